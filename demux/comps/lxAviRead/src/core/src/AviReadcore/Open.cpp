// Open: checks the RIFF form and walks the chunks of the first RIFF list.
//
//   RIFF size "AVI "                     riffSize
//     LIST size "hdrl" …                 the header list
//     JUNK, LIST "INFO", anything else   stepped over
//     LIST size "movi" chunk chunk …     moviOffset, moviSize, the first segment record
//     idx1 size record record …          idx1Offset, idx1Size
//
// By default the two offsets are sums of the sizes that lead there, and some chunks are left out of a sum; a caller that
// follows the format gets another walk (FormatWalk.cpp). The table of key frames is not built here, and the file is left
// wherever the walk ended.

#include "internal/Chunk.hpp"
#include "internal/FormatWalk.hpp"
#include "internal/IndexPasses.hpp"
#include "internal/Memory.hpp"
#include "internal/State.hpp"

namespace lxAviReadCore {
namespace {

constexpr UInt32 kZeroSizeTolerance = 0x20000;  // chunks of size 0, or too large to be true, that one Open puts up with
constexpr UInt32 kLargestUnknownChunk = 0x38000; // an unknown chunk above this is taken for garbage
constexpr UInt32 kListHeaderBytes = 12; // "LIST", size, type
constexpr UInt64 kStartInMovi = 4;
constexpr char kModuleName[] = "lxAviRead";

struct Walk {
    UInt32 instance;
    UInt64 uiRemaining; // bytes of the RIFF list behind the current chunk; wraps when chunks claim more than it has
    UInt32 uiTolerance = kZeroSizeTolerance;
    bool bIndexFound = false;
    bool bMoviFound = false;
};

// What one chunk of the walk leads to: the next chunk, or the end of the walk with a result.
struct Step {
    bool bFinished;
    UInt32 uiResult;
};

constexpr Step kNextChunk = {false, LX_OK};
constexpr Step kFinish = {true, LX_OK};

constexpr Step Fail(UInt32 result) { return {true, result}; }
constexpr Step ContinueUnless(UInt32 result) { return result == LX_OK ? kNextChunk : Fail(result); }

// Uses up one piece of tolerance while there is some.
bool IsTolerated(Walk& walk, bool bSuspicious)
{
    if (!bSuspicious || walk.uiTolerance == 0) {
        return false;
    }
    --walk.uiTolerance;
    return true;
}

// The main header's has-index bit, as the walk found it.
void MarkHasIndex(lxAviReadCore_AviInfo_t* pAviInfo, bool bHasIndex)
{
    if (pAviInfo->AviHdr != Null) {
        const UInt32 other = pAviInfo->AviHdr->dwFlags & ~LX_AVIREAD_HAS_INDEX;
        pAviInfo->AviHdr->dwFlags = bHasIndex ? other | LX_AVIREAD_HAS_INDEX : other;
    }
}

// ---- The lists ----

// Steps over the media data, be there none. A size of 2 GiB and more would lead backwards in a 32-bit seek: that
// counts as failed, and is not tried.
bool SeekPastMovi(lxAviReadCore_AviInfo_t* pAviInfo)
{
    if (static_cast<Int32>(static_cast<UInt32>(pAviInfo->moviSize)) < 0) {
        lxalAviRead_FileSeekPossible = 0;
        return false;
    }
    return SeekAndRemember(pAviInfo, pAviInfo->moviSize, kFromHere);
}

// Starts the segment chain with the first `movi` list; a chain of an earlier list is released.
UInt32 StartSegmentChain(lxAviReadCore_AviInfo_t* pAviInfo)
{
    ReleaseSegments(pAviInfo);
    pAviInfo->pCurrentAvix = AllocateRecord<lxAviReadCore_AvixRiff_t>();
    if (pAviInfo->pCurrentAvix == Null) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    pAviInfo->pCurrentAvix->moviDataOffset = pAviInfo->moviOffset;
    pAviInfo->pCurrentAvix->moviDataSize = static_cast<UInt32>(pAviInfo->moviSize);
    return LX_OK;
}

Step TakeMovi(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk, UInt32 size)
{
    pAviInfo->idx1Offset = pAviInfo->moviOffset + kListHeaderBytes;
    pAviInfo->moviOffset += kListHeaderBytes;
    LX_LOG(kLevelHeader, "AviReadCore : Found movi LIST chunk");
    pAviInfo->moviSize = size - kListTypeBytes; // wraps at 32 bits
    if (lxalAviRead_FileSeekPossible == 0 || !SeekPastMovi(pAviInfo)) {
        return kFinish; // the file stays at the first media chunk
    }
    if (walk.uiRemaining != 0) {
        pAviInfo->idx1Offset += pAviInfo->moviSize;
    }
    if (const UInt32 result = StartSegmentChain(pAviInfo); result != LX_OK) {
        return Fail(result);
    }
    walk.bMoviFound = true;
    return walk.uiRemaining == 0 ? kFinish : kNextChunk;
}

Step TakeHeaderList(lxAviReadCore_AviInfo_t* pAviInfo, const Walk& walk, UInt32 size)
{
    pAviInfo->moviOffset += UInt64{size} + kChunkHeaderBytes;
    LX_LOG(kLevelHeader, "AviReadCore : Found header LIST chunk");
    return ContinueUnless(LX_AVIREAD_CALL(lxAviReadCore_ParseListHdrl(walk.instance, pAviInfo, size)));
}

Step SkipInfoList(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk, UInt32 size)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found INFO chunk");
    if (IsTolerated(walk, size == 0)) {
        return kNextChunk;
    }
    pAviInfo->moviOffset += UInt64{size} + kChunkHeaderBytes;
    return ContinueUnless(LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size - kListTypeBytes)));
}

Step SkipUnknownList(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk, UInt32 type, UInt32 size)
{
    LX_LOG(kLevelError, "AviReadCore : Found LIST, read data_ext 0x%x", type);
    if (IsTolerated(walk, size == 0)) {
        return kNextChunk;
    }
    if (const UInt32 result = LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size - kListTypeBytes)); result != LX_OK) {
        return Fail(result);
    }
    UInt64& offset = walk.bMoviFound ? pAviInfo->idx1Offset : pAviInfo->moviOffset;
    offset += UInt64{size} + kChunkHeaderBytes;
    return kNextChunk;
}

Step TakeList(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk, UInt32 size)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found LIST");
    UInt32 type = 0;
    if (const UInt32 result = LX_AVIREAD_CALL(ReadRecord(pAviInfo, type)); result != LX_OK) {
        return Fail(result);
    }
    switch (type) {
    case FourCC("movi"): return TakeMovi(pAviInfo, walk, size);
    case FourCC("hdrl"): return TakeHeaderList(pAviInfo, walk, size);
    case FourCC("INFO"): return SkipInfoList(pAviInfo, walk, size);
    default: return SkipUnknownList(pAviInfo, walk, type, size);
    }
}

// ---- The chunks ----

Step SkipJunk(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk, UInt32 size)
{
    if (IsTolerated(walk, size == 0)) {
        return kNextChunk;
    }
    pAviInfo->moviOffset += UInt64{size} + kChunkHeaderBytes; // Quirk Q09: behind `movi`, too
    return ContinueUnless(LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size)));
}

Step TakeIdx1(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk, UInt32 size)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found index chunk");
    walk.bIndexFound = true;
    pAviInfo->idx1Size = size;
    pAviInfo->idx1Offset += kChunkHeaderBytes;
    return kFinish;
}

Step SkipUnknownChunk(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk, UInt32 size)
{
    // Garbage of that size is stepped through 8 bytes at a time, until a known chunk lines up.
    if (IsTolerated(walk, size == 0) || IsTolerated(walk, size > kLargestUnknownChunk)) {
        return kNextChunk;
    }
    if (walk.bMoviFound) { // Quirk Q47
        LX_LOG(kLevelHeader, "lxAviReadCore_Open: index not found after movi chunk, jump back to movi junk!");
        SeekAndRemember(pAviInfo, pAviInfo->moviOffset, kFromStart);
        return kFinish;
    }
    if (const UInt32 result = LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size)); result != LX_OK) {
        return Fail(result);
    }
    pAviInfo->idx1Offset += size; // Quirk Q10: moviOffset does not count this chunk
    return kNextChunk;
}

Step TakeChunk(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk, const ChunkHeader& chunk)
{
    switch (chunk.uiCode) {
    case FourCC("JUNK"): return SkipJunk(pAviInfo, walk, chunk.uiSize);
    case FourCC("LIST"): return TakeList(pAviInfo, walk, chunk.uiSize);
    case FourCC("idx1"): return TakeIdx1(pAviInfo, walk, chunk.uiSize);
    default: return SkipUnknownChunk(pAviInfo, walk, chunk.uiSize);
    }
}

// ---- The walk ----

// The file has ended where a chunk could begin: fine once `movi` was met.
Step EndOfFile(const Walk& walk)
{
    if (walk.bMoviFound) {
        return kFinish;
    }
    LX_LOG(kLevelEndOfFile, "Unexpected end of file. Didn't meet the movi chunk");
    return Fail(LX_ERR_AVIREAD_EOF);
}

Step ReadWalkHeader(lxAviReadCore_AviInfo_t* pAviInfo, const Walk& walk, ChunkHeader& chunk)
{
    if (const UInt32 result = ReadRecord(pAviInfo, chunk.uiCode); result != LX_OK) {
        return result == LX_ERR_AVIREAD_EOF ? EndOfFile(walk) : Fail(LX_AVIREAD_CALL(result));
    }
    if (const UInt32 result = ReadRecord(pAviInfo, chunk.uiSize); result != LX_OK) {
        if (result == LX_ERR_AVIREAD_EOF && walk.bMoviFound) {
            LX_LOG(kLevelEndOfFile, "EOF:%d", __LINE__);
        }
        return result == LX_ERR_AVIREAD_EOF ? EndOfFile(walk) : Fail(LX_AVIREAD_CALL(result));
    }
    chunk.uiSize = MakeEven(chunk.uiSize);
    return kNextChunk;
}

Step WalkOneChunk(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk)
{
    ChunkHeader chunk = {};
    if (const Step step = ReadWalkHeader(pAviInfo, walk, chunk); step.bFinished) {
        return step;
    }
    walk.uiRemaining -= UInt64{kChunkHeaderBytes} + chunk.uiSize;
    return TakeChunk(pAviInfo, walk, chunk);
}

// Reads "RIFF", size, "AVI ".
UInt32 ReadRiffHeader(lxAviReadCore_AviInfo_t* pAviInfo)
{
    ChunkHeader riff = {};
    UInt32 form = 0;
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(ReadChunkHeader(pAviInfo, riff)));
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(ReadRecord(pAviInfo, form)));
    if (riff.uiCode != FourCC("RIFF") || form != FourCC("AVI ")) {
        LX_LOG(kLevelError, "AviReadCore : read data unknown %x (%2c%2c%2c%2c), size %x, data_ext %x", riff.uiCode,
               ByteOf(riff.uiCode, 3), ByteOf(riff.uiCode, 2), ByteOf(riff.uiCode, 1), ByteOf(riff.uiCode, 0),
               riff.uiSize, form);
        return LX_ERR_AVIREAD_NOT_AVI;
    }
    LX_LOG(kLevelHeader, "AviReadCore : Found Avi file (size= %d)", riff.uiSize);
    pAviInfo->riffSize = riff.uiSize - kListTypeBytes; // wraps at 32 bits
    pAviInfo->moviOffset = kListHeaderBytes;
    pAviInfo->audioStreamNr = -1;
    pAviInfo->videoStreamNr = -1;
    return LX_OK;
}

bool IsIndexParsed(const lxAviReadCore_AviInfo_t* pAviInfo, Int32 streamNr)
{
    const lxAviReadCore_StreamInfo_t* const pStream = FindStream(pAviInfo, streamNr);
    return pStream != Null && pStream->bIndexParsed == 1;
}

// What one-level indexes of an earlier parse have told.
void ForgetParsedIndexes(lxAviReadCore_AviInfo_t* pAviInfo)
{
    for (lxAviReadCore_StreamInfo_t* pStream : pAviInfo->StreamInfo) {
        if (pStream != Null) {
            pStream->bIndexParsed = 0;
        }
    }
}

// Walks the first RIFF list; whether it holds an `idx1`.
UInt32 WalkFirstList(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 instance, bool& bIndexFound)
{
    if (FollowsFormat(pAviInfo)) {
        return WalkByFormat(pAviInfo, instance, bIndexFound);
    }
    Walk walk = {instance, pAviInfo->riffSize};
    Step step = kNextChunk;
    while (!step.bFinished) {
        step = WalkOneChunk(pAviInfo, walk);
    }
    bIndexFound = walk.bIndexFound;
    return step.uiResult;
}

// Adds the lists behind the first RIFF list to the segment chain. By default its OpenDML header has to promise them; the
// format is followed to whatever is there, as long as that does not cost the first chunks of an input that cannot seek.
UInt32 FindExtensions(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 instance)
{
    const bool bLook = FollowsFormat(pAviInfo) ? lxalAviRead_FileSeekPossible != 0 : pAviInfo->bAvixPresent == 1;
    if (!bLook) {
        return LX_OK;
    }
    pAviInfo->bAvixPresent = 0;
    const UInt32 result = LX_AVIREAD_CALL(lxAviReadCore_ConstructAvixInfo(instance, pAviInfo));
    GoToFirstSegment(pAviInfo);
    return result;
}

// Walks the first RIFF list and concludes what follows from it.
UInt32 ParseFile(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 instance, Bool* pAllIndexed)
{
    bool bIndexFound = false;
    LX_AVIREAD_TRY(ReadRiffHeader(pAviInfo));
    LX_AVIREAD_TRY(WalkFirstList(pAviInfo, instance, bIndexFound));
    MarkHasIndex(pAviInfo, bIndexFound || pAviInfo->bIndxPresent != 0);
    *pAllIndexed = IsIndexParsed(pAviInfo, pAviInfo->videoStreamNr) && IsIndexParsed(pAviInfo, pAviInfo->audioStreamNr);
    pAviInfo->CurrentOffset = pAviInfo->bAbsoluteOffsets == 1 ? pAviInfo->moviOffset : kStartInMovi;
    return FindExtensions(pAviInfo, instance);
}

// ---- The file ----

UInt32 OpenFile(lxAviReadCore_AviInfo_t* pAviInfo, const char* path)
{
    static_cast<void>(lxAviReadCore_Reset()); // never fails
    LX_LOG_NAME(kLevelHeader, "AviReadCore : Opening %s", path);
    pAviInfo->pFile = fopen64(path, "rb");
    if (pAviInfo->pFile == Null) {
        LX_LOG_NAME(kLevelError, "AviReadCore : Error Opening file on path \"%s\"", path);
        return LX_ERR_AVIREAD_OPEN;
    }
    return LX_OK;
}

UInt32 OpenPath(lxAviReadCore_AviInfo_t* pAviInfo, const char* path)
{
    if (path[0] != '\0') {
        LX_AVIREAD_TRY(OpenFile(pAviInfo, path));
    }
    if (pAviInfo->pFile == Null || file_buffer == Null) {
        LX_LOG_NAME(kLevelError, "AviReadCore : Path is not defined \"%s\" ", path);
        return LX_ERR_AVIREAD_OPEN;
    }
    return LX_OK;
}

void CleanUpAfterFailure(lxAviReadCore_AviInfo_t* pAviInfo)
{
    lxAviReadCore_FreeAllocatedMemory(pAviInfo);
    pAviInfo->CurrentOffset = kStartInMovi;
}

} // namespace
} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_Open(UInt32 instance, const char* path, UInt32 maxReadAttempts, UInt32 memoryUsageLimit,
                          UInt8 IndxOption, Bool* pAllIndexed)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    Bool bNobodyAsks = 0;
    LX_ASSERT(path != Null, "path!= Null", "Parameter path for lxAviReadCore_Open shouldn't be a null pointer");
    LX_ASSERT(pAllIndexed != Null, "pAllIndexed!= Null",
              "Parameter pAllIndexed for lxAviReadCore_Open shouldn't be a null pointer");
    if (path == Null) {
        return LX_ERR_AVIREAD_OPEN;
    }
    pAllIndexed = pAllIndexed != Null ? pAllIndexed : &bNobodyAsks;

    pAviInfo->bAbsoluteOffsets = 0;
    *pAllIndexed = 0;
    if (glxalAviRead_debug_unit == LX_DBG_GLOBAL_UNIT) {
        lxDbg_RegisterModule(&glxalAviRead_debug_unit, kModuleName);
    }
    LX_LOG_NAME(kLevelEnter, "Entered lxAviReadCore_Open path=%s", path);
    // What is missing shows where it is needed: a file of few streams opens without the last records.
    static_cast<void>(lxAviReadCore_Alloc(instance));

    UInt32 result = OpenPath(pAviInfo, path);
    if (result == LX_OK) {
        pAviInfo->maxReadAttempts = maxReadAttempts;
        pAviInfo->IndxOption = IndxOption;
        pAviInfo->memoryUsageLimit = memoryUsageLimit;
        LX_LOG_NAME(kLevelHeader, "AviReadCore : Begin reading of file \"%s\" ", path);
        lxalAviRead_FileSeekPossible = 1;
        ForgetParsedIndexes(pAviInfo);
        ForgetIndexSurvey();
        result = ParseFile(pAviInfo, instance, pAllIndexed);
    }
    if (result != LX_OK) {
        CleanUpAfterFailure(pAviInfo);
    }
    ReleaseMetaDataBuffer(pAviInfo);
    LX_LOG(kLevelLeave, "Leaving lxAviReadCore_Open");
    return result;
}
