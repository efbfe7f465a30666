// The header list of the first RIFF list.
//
//   LIST size "hdrl"
//     avih 56 …                     the main AVI header
//     LIST size "strl" …            one per stream, numbered from 0 in file order
//     LIST size "odml" dmlh size …  OpenDML: the frame count of the whole file
//
// Left in the state: the main header's record, the OpenDML count, and `bAvixPresent` when that count says that the
// file goes on behind the first RIFF list.

#include "internal/Chunk.hpp"
#include "internal/State.hpp"

namespace lxAviReadCore {
namespace {

constexpr UInt32 kListTypeBytes = 4;
constexpr UInt32 kChunkHeaderBytes = 8;
constexpr UInt32 kDmlhTotalFramesBytes = 4;

struct HeaderListWalk {
    UInt32 instance;
    UInt32 uiStreamNr = 0; // of the next stream list
};

// Reads the first chunk of the list; the walk goes on with whatever follows it, as if it stood one level up.
UInt32 ParseOdml(lxAviReadCore_AviInfo_t* pAviInfo)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found odml LIST chunk");
    ChunkHeader chunk = {};
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(ReadChunkHeader(pAviInfo, chunk)));
    pAviInfo->bDmlhPresent = 1;
    if (chunk.uiCode == FourCC("dmlh")) {
        LX_LOG(kLevelHeader, "AviReadCore : Found dmlh sub-chunk");
        return LX_AVIREAD_CALL(lxAviReadCore_ParseListdmlh(pAviInfo, chunk.uiSize));
    }
    LX_LOG(kLevelError, "AviReadCore : Error! Expected dmlh sub-chunk (0%x)", chunk.uiCode);
    return LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(chunk.uiSize)); // Quirk Q11: the rest of the list stays unread
}

UInt32 ParseStreamList(lxAviReadCore_AviInfo_t* pAviInfo, HeaderListWalk& walk, UInt32 size)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found stream LIST chunk");
    if (walk.uiStreamNr >= LX_AVIREAD_STREAMS) {
        LX_LOG(kLevelError, "AviReadCore : No slot for stream %d, its LIST is skipped", walk.uiStreamNr);
        return LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size - kListTypeBytes));
    }
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(
        lxAviReadCore_ParseListStrl(walk.instance, pAviInfo, size - kListTypeBytes, walk.uiStreamNr)));
    ++walk.uiStreamNr;
    return LX_OK;
}

UInt32 SkipUnknownList(UInt32 type, UInt32 size)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found LIST, read data_ext unknown (0x%x)", type);
    return LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size)); // Quirk Q12: 4 bytes beyond the list
}

UInt32 ParseList(lxAviReadCore_AviInfo_t* pAviInfo, HeaderListWalk& walk, UInt32 size)
{
    UInt32 type = 0;
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(ReadRecord(pAviInfo, type)));
    switch (type) {
    case FourCC("odml"): return ParseOdml(pAviInfo);
    case FourCC("strl"): return ParseStreamList(pAviInfo, walk, size);
    default: return SkipUnknownList(type, size);
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
    HeaderListWalk walk = {instance};
    for (UInt64 consumed = kListTypeBytes; consumed < size;) {
        ChunkHeader chunk = {};
        LX_AVIREAD_TRY(LX_AVIREAD_CALL(ReadChunkHeader(pAviInfo, chunk)));
        LX_AVIREAD_TRY(ParseChunk(pAviInfo, walk, chunk));
        consumed += UInt64{chunk.uiSize} + kChunkHeaderBytes;
    }
    LX_LOG(kLevelLeave, "Leaving lxAviReadCore_ParseListHdrl");
    return LX_OK;
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
