// The top level of the file behind the first RIFF list: the extension lists of an OpenDML file.
//
//   RIFF size "AVI "  …              the chain's first record, made by Open
//   RIFF size "AVIX"
//     LIST size "movi" chunk chunk … one record each: where its chunks begin, and how many bytes they have
//     …                              whatever else the list holds is stepped over with it
//   RIFF size other  …               stepped over
//
// The walk ends at the end of the file, at anything that is no RIFF list, and where it would not get further on. The walk
// over the media data looks for lists behind that.

#include "internal/Memory.hpp"
#include "internal/Segments.hpp"

#include <algorithm>

namespace lxAviReadCore {
namespace {

struct RiffHeader {
    UInt32 uiSize;
    UInt32 uiForm;
};

UInt32 ReadRiffHeader(lxAviReadCore_AviInfo_t* pAviInfo, RiffHeader& riff)
{
    LX_LOG(kLevelHeader, "Found a new RIFF ");
    if (const UInt32 result = ReadRecord(pAviInfo, riff.uiSize); result != LX_OK) {
        LX_LOG(kLevelError, "Err while Reading size of RIFF: %x ", result);
        return result;
    }
    LX_LOG(kLevelHeader, "New RIFF Size %d \n", riff.uiSize);
    if (const UInt32 result = ReadRecord(pAviInfo, riff.uiForm); result != LX_OK) {
        LX_LOG(kLevelError, "Err while Reading RIFF Type: %x ", result);
        return result;
    }
    riff.uiSize = MakeEven(riff.uiSize);
    return LX_OK;
}

// Reads the header of the list that an "AVIX" list has to begin with.
UInt32 ReadMoviHeader(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 position, UInt32& listSize)
{
    UInt32 code = 0;
    if (const UInt32 result = ReadRecord(pAviInfo, code); result != LX_OK) {
        LX_LOG(kLevelError, "Err while LIST fourcc for movi LIST %x ", result);
        return result;
    }
    LX_LOG(kLevelHeader, "Offset value till now %d.%d ", LX_HILO(position + kListHeaderBytes));
    LX_ASSERT(code == FourCC("LIST"), "uiData == listChunk", "AVIX should have only LIST strcuture");
    if (code != FourCC("LIST")) {
        return LX_ERR_AVIREAD_AVIX_LIST;
    }
    LX_AVIREAD_TRY(LX_AVIREAD_CALL_AS("lxAviReadCore_FileRead(pAviInfo,&uiSize,4 )", ReadRecord(pAviInfo, listSize)));
    listSize = MakeEven(listSize);
    UInt32 type = 0;
    LX_AVIREAD_TRY(LX_AVIREAD_CALL_AS("lxAviReadCore_FileRead(pAviInfo,&uiDataExt, 4)", ReadRecord(pAviInfo, type)));
    LX_ASSERT(type == FourCC("movi"), "uiDataExt == listtypeAVIMOVIE", "AVIX should have only movi LIST");
    return type == FourCC("movi") ? LX_OK : LX_ERR_AVIREAD_AVIX_LIST;
}

// The end of the chain while the walk adds to it.
struct ChainEnd {
    Segment* pTail;
    bool bFirst = true; // no "AVIX" list was met yet
};

// Ends a list that claims to reach into the RIFF list at `position`.
void EndBefore(Segment* pSegment, UInt64 position)
{
    if (pSegment != Null && position >= StartOf(*pSegment)) {
        const UInt64 room = position - StartOf(*pSegment);
        pSegment->moviDataSize = static_cast<UInt32>(std::min<UInt64>(pSegment->moviDataSize, room));
    }
}

// Looks for the `movi` list among whatever else an "AVIX" list holds; `found` is where it begins, 0 when there is none.
UInt32 FindMovi(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 position, UInt32 riffSize, UInt64& found)
{
    const UInt64 first = position + kListHeaderBytes;
    const UInt64 end = position + kChunkHeaderBytes + riffSize;
    found = 0;
    // The first list is read whatever the RIFF size says: a writer that was stopped has left that size 0.
    for (UInt64 at = first; at == first || at + kListHeaderBytes <= end;) {
        ChunkHeader chunk = {};
        UInt32 type = 0;
        LX_AVIREAD_TRY(HearAbort(pAviInfo));
        if (!SeekAndRemember(pAviInfo, at, kFromStart)) {
            return LX_ERR_AVIREAD_SEEK;
        }
        LX_AVIREAD_TRY(ReadChunkHeader(pAviInfo, chunk));
        LX_AVIREAD_TRY(ReadRecord(pAviInfo, type));
        if (chunk.uiCode == FourCC("LIST") && type == FourCC("movi")) {
            found = at;
            return LX_OK;
        }
        at += UInt64{kChunkHeaderBytes} + chunk.uiSize;
    }
    return LX_OK;
}

// Records one "AVIX" list. The record stays in the chain even if the list is malformed.
UInt32 TakeExtension(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 position, UInt64 movi, ChainEnd& end)
{
    LX_LOG(kLevelHeader, "Found AVIX RIFF");
    if (ListsEndBeforeTheNext(pAviInfo)) {
        EndBefore(end.pTail, position);
    }
    Segment* const pSegment = AppendSegment(pAviInfo, end.pTail);
    if (pSegment == Null) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    if (end.bFirst) {
        LX_LOG(kLevelHeader, "pAviInfo->pCurrentAvix Initialized");
    }
    end = {pSegment, false};
    UInt32 listSize = 0;
    LX_AVIREAD_TRY(ReadMoviHeader(pAviInfo, position, listSize));
    pSegment->moviDataOffset = movi + kListHeaderBytes;
    pSegment->moviDataSize = listSize - kListTypeBytes;
    pAviInfo->bAvixPresent = 1;
    return LX_OK;
}

// Takes an "AVIX" list. In the default mode it has to begin with its `movi` list, in the format mode it holds one
// somewhere or is no segment.
UInt32 TakeAvix(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 position, UInt32 riffSize, ChainEnd& end)
{
    UInt64 movi = position + kListHeaderBytes;
    if (ExtensionsNeedNoPromise(pAviInfo)) {
        LX_AVIREAD_TRY(FindMovi(pAviInfo, position, riffSize, movi));
        if (movi == 0) {
            return LX_OK;
        }
        if (!SeekAndRemember(pAviInfo, movi, kFromStart)) {
            return LX_ERR_AVIREAD_SEEK;
        }
    }
    return TakeExtension(pAviInfo, position, movi, end);
}

// Seeks to the next list. In the default mode a seek takes 32 bits; one that would lead back to bytes already walked
// ends the walk.
bool SeekFurtherOn(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 from, UInt64 to)
{
    const UInt64 mask = PositionMask(pAviInfo);
    return (to & mask) > (from & mask) && SeekAndRemember(pAviInfo, to, kFromStart);
}

UInt32 WalkTopLevel(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 position)
{
    ChainEnd end = {pAviInfo->pCurrentAvix};
    for (;;) {
        LX_LOG(kLevelHeader, "In the While Loop, searching for a RIFF ");
        LX_AVIREAD_TRY(HearAbort(pAviInfo));
        UInt32 code = 0;
        if (const UInt32 result = ReadRecord(pAviInfo, code); result != LX_OK) {
            return result == LX_ERR_AVIREAD_EOF ? LX_OK : result;
        }
        if (code != FourCC("RIFF")) {
            return LX_OK;
        }
        RiffHeader riff = {};
        LX_AVIREAD_TRY(ReadRiffHeader(pAviInfo, riff));
        if (riff.uiForm == FourCC("AVIX")) {
            LX_AVIREAD_TRY(TakeAvix(pAviInfo, position, riff.uiSize, end));
        }
        const UInt64 next = position + riff.uiSize + kChunkHeaderBytes;
        if (!SeekFurtherOn(pAviInfo, position, next)) {
            return LX_OK;
        }
        position = next;
    }
}

// ---- Lists that Open has not found ----

constexpr UInt32 kWordsOfLists = 6; // RIFF, its size, AVIX, LIST, its size, movi
constexpr UInt32 kBytesOfLists = kWordsOfLists * sizeof(UInt32);

// Whether an "AVIX" list begins here with its `movi` list.
bool IsExtension(const UInt8* pBytes)
{
    return Load<UInt32>(pBytes) == FourCC("RIFF") && Load<UInt32>(pBytes + 8) == FourCC("AVIX") &&
           Load<UInt32>(pBytes + 12) == FourCC("LIST") && Load<UInt32>(pBytes + 20) == FourCC("movi");
}

// Searches the bytes from `at` on; at the end of the search `at` is that of an "AVIX" list, or beyond `fileSize`.
UInt32 SearchExtension(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 fileSize, UInt64& at, UInt32& moviSize)
{
    const auto* const pBlock = static_cast<const UInt8*>(pAviInfo->pMetaDataBuffer);
    while (at + kBytesOfLists <= fileSize) {
        LX_AVIREAD_TRY(HearAbort(pAviInfo));
        const auto bytes = static_cast<UInt32>(std::min<UInt64>(kMetaDataBytes, fileSize - at));
        if (!SeekAndRemember(pAviInfo, at, kFromStart)) {
            return LX_ERR_AVIREAD_SEEK;
        }
        LX_AVIREAD_TRY(ReadLoop(pAviInfo, kCoreRead, {pAviInfo->pMetaDataBuffer, kMetaDataBytes, bytes}));
        for (UInt32 i = 0; i + kBytesOfLists <= bytes; ++i) {
            if (IsExtension(pBlock + i)) {
                moviSize = Load<UInt32>(pBlock + i + 16);
                at += i;
                return LX_OK;
            }
        }
        at += bytes - (kBytesOfLists - 1);
    }
    return LX_OK;
}

// The place behind an index that follows media data, as in most files of one list; else `offset`.
UInt32 StepOverIdx1(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 fileSize, UInt64& offset)
{
    ChunkHeader chunk = {};
    if (offset + kChunkHeaderBytes > fileSize) {
        return LX_OK;
    }
    if (!SeekAndRemember(pAviInfo, offset, kFromStart)) {
        return LX_ERR_AVIREAD_SEEK;
    }
    LX_AVIREAD_TRY(ReadChunkHeader(pAviInfo, chunk));
    offset += chunk.uiCode == FourCC("idx1") ? UInt64{kChunkHeaderBytes} + chunk.uiSize : 0;
    return LX_OK;
}

UInt32 AppendLostList(lxAviReadCore_AviInfo_t* pAviInfo, Segment*& pTail, UInt64 at, UInt32 moviSize)
{
    Segment* const pSegment = AppendSegment(pAviInfo, pTail);
    if (pSegment == Null) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    LX_LOG(kLevelHeader, "AviReadCore : found an AVIX list behind damage");
    pSegment->moviDataOffset = at + kBytesOfLists;
    pSegment->moviDataSize = moviSize > kListTypeBytes ? MakeEven(moviSize) - kListTypeBytes : 0;
    pAviInfo->bAvixPresent = 1;
    pTail = pSegment;
    return LX_OK;
}

} // namespace

UInt32 FindLostLists(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 fileSize)
{
    Segment* pTail = pAviInfo->pCurrentAvix;
    if (pTail == Null) {
        return LX_OK;
    }
    while (pTail->pNextAvix != Null) {
        pTail = pTail->pNextAvix;
    }
    UInt64 at = EndOf(*pTail) + (EndOf(*pTail) & 1u);
    LX_AVIREAD_TRY(StepOverIdx1(pAviInfo, fileSize, at));
    for (;;) {
        UInt32 moviSize = 0;
        LX_AVIREAD_TRY(SearchExtension(pAviInfo, fileSize, at, moviSize));
        if (at + kBytesOfLists > fileSize) {
            return LX_OK;
        }
        LX_AVIREAD_TRY(AppendLostList(pAviInfo, pTail, at, moviSize));
        at = std::max(at + kBytesOfLists, std::min(EndOf(*pTail), fileSize));
    }
}

} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_ConstructAvixInfo(UInt32 /*instance*/, lxAviReadCore_AviInfo_t* pAviInfo)
{
    LX_LOG(kLevelEnter, "lxAviReadCore_ConstructAvixInfo: Enter");
    UInt64 position = 0; // where an input that cannot seek is taken to stand
    UInt32 result = LX_OK;
    if (lxalAviRead_FileSeekPossible != 0) {
        position = pAviInfo->riffSize + kListHeaderBytes;
        result = SeekAndRemember(pAviInfo, position, kFromStart) ? LX_OK : LX_ERR_AVIREAD_SEEK;
    }
    if (result == LX_OK) {
        ReleaseFollowingSegments(pAviInfo);
        result = WalkTopLevel(pAviInfo, position);
    }
    result = AllowEarlyEnd(pAviInfo, result); // the lists before the end of the file are whole
    LX_LOG(kLevelLeave, "lxAviReadCore_ConstructAvixInfo: Leave with RVAL:%x", result);
    return result;
}
