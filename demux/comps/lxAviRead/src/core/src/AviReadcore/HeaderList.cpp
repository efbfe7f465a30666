// The header list of the first RIFF list.
//
//   LIST size "hdrl"
//     avih 56 …                     the main AVI header
//     LIST size "strl" …            one per stream, numbered from 0 in file order
//     LIST size "odml" dmlh size …  OpenDML: the frame count of the whole file
//     LIST size "INFO" …            texts, which stand more often beside the header list
//
// Left in the state: the main header's record, the OpenDML count, and `bAvixPresent` when that count says that the
// file goes on behind the first RIFF list.

#include "internal/KeptChunks.hpp"
#include "internal/ListWalk.hpp"
#include "internal/State.hpp"

namespace lxAviReadCore {
namespace {

constexpr UInt32 kDmlhTotalFramesBytes = 4;

struct HeaderListWalk {
    UInt32 instance;
    UInt32 uiStreamNr = 0; // of the next stream list
};

UInt32 ParseOdmlChunk(lxAviReadCore_AviInfo_t* pAviInfo, const ChunkHeader& chunk)
{
    if (chunk.uiCode == FourCC("dmlh")) {
        LX_LOG(kLevelHeader, "AviReadCore : Found dmlh sub-chunk");
        return LX_AVIREAD_CALL(lxAviReadCore_ParseListdmlh(pAviInfo, chunk.uiSize));
    }
    LX_LOG(kLevelError, "AviReadCore : Error! Expected dmlh sub-chunk (0%x)", chunk.uiCode);
    return LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(chunk.uiSize));
}

// The default mode reads the first chunk alone. What follows it in the list is then walked as if it stood one level up.
UInt32 ParseOdml(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found odml LIST chunk");
    ListWalk walk(pAviInfo, size, 0);
    for (bool bGoesOn = !walk.IsExact() || walk.HasChunk(); bGoesOn; bGoesOn = walk.IsExact() && walk.HasChunk()) {
        ChunkHeader chunk = {};
        LX_AVIREAD_TRY(LX_AVIREAD_CALL(walk.Enter(chunk)));
        pAviInfo->bDmlhPresent = 1;
        LX_AVIREAD_TRY(ParseOdmlChunk(pAviInfo, chunk));
    }
    return walk.Leave();
}

UInt32 ParseStreamList(lxAviReadCore_AviInfo_t* pAviInfo, HeaderListWalk& walk, UInt32 size)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found stream LIST chunk");
    if (walk.uiStreamNr >= LX_AVIREAD_STREAMS) {
        LX_LOG(kLevelError, "AviReadCore : No slot for stream %d, its LIST is skipped", walk.uiStreamNr);
        return LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size - kListTypeBytes));
    }
    LX_AVIREAD_TRY(
        LX_AVIREAD_CALL(lxAviReadCore_ParseListStrl(walk.instance, pAviInfo, size - kListTypeBytes, walk.uiStreamNr)));
    ++walk.uiStreamNr;
    return LX_OK;
}

// The default mode skips 4 bytes beyond the list.
UInt32 SkipUnknownList(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 type, UInt32 size)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found LIST, read data_ext unknown (0x%x)", type);
    const UInt32 left = ListsAreExact(pAviInfo) ? size - kListTypeBytes : size;
    return LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(left));
}

UInt32 ParseList(lxAviReadCore_AviInfo_t* pAviInfo, HeaderListWalk& walk, UInt32 size)
{
    UInt32 type = 0;
    if (size < kListTypeBytes && ListsAreExact(pAviInfo)) {
        return LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size)); // no room for a type
    }
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(ReadRecord(pAviInfo, type)));
    switch (type) {
    case FourCC("odml"): return ParseOdml(pAviInfo, size - kListTypeBytes);
    case FourCC("strl"): return ParseStreamList(pAviInfo, walk, size);
    case FourCC("INFO"):
        return HeaderChunksAreKept(pAviInfo) ? KeepTexts(pAviInfo, size) : SkipUnknownList(pAviInfo, type, size);
    default: return SkipUnknownList(pAviInfo, type, size);
    }
}

UInt32 ParseChunk(lxAviReadCore_AviInfo_t* pAviInfo, HeaderListWalk& walk, const ChunkHeader& chunk)
{
    switch (chunk.uiCode) {
    case FourCC("LIST"): return ParseList(pAviInfo, walk, chunk.uiSize);
    case FourCC("avih"):
        LX_LOG(kLevelHeader, "AviReadCore : Found Avi header chunk");
        return LX_AVIREAD_CALL(lxAviReadCore_ParseAviHeader(pAviInfo, chunk.uiSize));
    default:
        LX_LOG(kLevelHeader, "AviReadCore : read data unknown (Line:%d)", __LINE__);
        return LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(chunk.uiSize));
    }
}

} // namespace
} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_ParseListHdrl(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size)
{
    pAviInfo->bIndxPresent = 0;
    HeaderListWalk streams = {instance};
    ListWalk walk(pAviInfo, size, kListTypeBytes);
    while (walk.HasChunk()) {
        ChunkHeader chunk = {};
        LX_AVIREAD_TRY(LX_AVIREAD_CALL(walk.Enter(chunk)));
        LX_AVIREAD_TRY(ParseChunk(pAviInfo, streams, chunk));
    }
    LX_LOG(kLevelLeave, "Leaving lxAviReadCore_ParseListHdrl");
    return walk.Leave();
}

UInt32 lxAviReadCore_ParseAviHeader(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size)
{
    if (size != sizeof(lxAviRead_Avih_t)) {
        return LX_ERR_AVIREAD_NOT_AVI;
    }
    if (pAviInfo->AviHdr == Null) {
        return LX_ERR_AVIREAD_NO_MEMORY; // Alloc could not give the record
    }
    return ReadRecord(pAviInfo, *pAviInfo->AviHdr);
}

UInt32 lxAviReadCore_ParseListdmlh(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size)
{
    if (size < kDmlhTotalFramesBytes && ListsAreExact(pAviInfo)) {
        return lxAviReadCore_RemoveChunk(size); // no room for the count
    }
    UInt32 totalFrames = 0;
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(ReadRecord(pAviInfo, totalFrames)));
    pAviInfo->dmlhTotalFrames = totalFrames;
    const UInt32 framesInFirstRiff = pAviInfo->AviHdr != Null ? pAviInfo->AviHdr->dwTotalFrames : 0;
    if (framesInFirstRiff < pAviInfo->dmlhTotalFrames) {
        pAviInfo->bAvixPresent = 1;
    }
    return LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size - kDmlhTotalFramesBytes));
}

UInt32 lxAviReadCore_GetAvihData(lxAviRead_Avih_t* pAvih)
{
    LX_ASSERT(pAvih != Null, "pAvih!=Null", "pAvih must be initialized");
    if (pAvih != Null && lxAviReadCore_AviInfo.AviHdr != Null) {
        *pAvih = *lxAviReadCore_AviInfo.AviHdr;
    }
    return LX_OK;
}

void lxAviReadCore_GetOpenDmlInfo(lxAviRead_OpenDmlInfo_t* pOpenDmlInfo)
{
    LX_ASSERT(pOpenDmlInfo != Null, "pOpenDmlInfo!=Null", "pOpenDmlInfo must be initialized");
    if (pOpenDmlInfo != Null) {
        pOpenDmlInfo->bPresent = lxAviReadCore_AviInfo.bDmlhPresent;
        pOpenDmlInfo->uiTotalFrames = lxAviReadCore_AviInfo.dmlhTotalFrames;
    }
}
