// The walk over the first RIFF list in the default mode.
//
//   LIST size "hdrl" …                 the header list
//   JUNK, LIST "INFO", anything else   stepped over
//   LIST size "movi" chunk chunk …     moviOffset, moviSize, the first segment record
//   idx1 size record record …          idx1Offset, idx1Size
//
// Each of the two offsets is a sum of chunk sizes, and some chunks are not added. The file is left wherever the walk
// ends.

#include "internal/Segments.hpp"
#include "internal/Walk.hpp"

namespace lxAviReadCore {
namespace {

struct Walk {
    lxAviReadCore_AviInfo_t* pAviInfo;
    UInt32 instance;
    UInt64 uiRemaining; // bytes of the RIFF list behind the current chunk; wraps when chunks claim more than it has
    UInt32 uiTolerance = kWalkTolerance;
    bool bIndexFound = false;
    bool bMoviFound = false;
};

// Uses up one piece of tolerance while there is some.
bool IsTolerated(Walk& walk, bool bSuspicious)
{
    if (!bSuspicious || walk.uiTolerance == 0) {
        return false;
    }
    --walk.uiTolerance;
    return true;
}

// ---- The lists ----

// Skips the media data, also when there is none. In a 32-bit seek a size of 2 GiB or more would lead backwards, so the
// reader does not try it, and the seek counts as failed.
bool SeekPastMovi(lxAviReadCore_AviInfo_t* pAviInfo)
{
    if (static_cast<Int32>(static_cast<UInt32>(pAviInfo->moviSize)) < 0) {
        lxalAviRead_FileSeekPossible = 0;
        return false;
    }
    return SeekAndRemember(pAviInfo, pAviInfo->moviSize, kFromHere);
}

Step TakeMovi(Walk& walk, UInt32 size)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = walk.pAviInfo;
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
    if (const UInt32 result = StartSegments(pAviInfo); result != LX_OK) {
        return Fail(result);
    }
    walk.bMoviFound = true;
    return walk.uiRemaining == 0 ? kFinish : kNextChunk;
}

Step TakeHeaderList(const Walk& walk, UInt32 size)
{
    walk.pAviInfo->moviOffset += UInt64{size} + kChunkHeaderBytes;
    LX_LOG(kLevelHeader, "AviReadCore : Found header LIST chunk");
    return ContinueUnless(LX_AVIREAD_CALL(lxAviReadCore_ParseListHdrl(walk.instance, walk.pAviInfo, size)));
}

Step SkipInfoList(Walk& walk, UInt32 size)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found INFO chunk");
    if (IsTolerated(walk, size == 0)) {
        return kNextChunk;
    }
    walk.pAviInfo->moviOffset += UInt64{size} + kChunkHeaderBytes;
    return ContinueUnless(LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size - kListTypeBytes)));
}

Step SkipUnknownList(Walk& walk, UInt32 type, UInt32 size)
{
    LX_LOG(kLevelError, "AviReadCore : Found LIST, read data_ext 0x%x", type);
    if (IsTolerated(walk, size == 0)) {
        return kNextChunk;
    }
    if (const UInt32 result = LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size - kListTypeBytes)); result != LX_OK) {
        return Fail(result);
    }
    UInt64& offset = walk.bMoviFound ? walk.pAviInfo->idx1Offset : walk.pAviInfo->moviOffset;
    offset += UInt64{size} + kChunkHeaderBytes;
    return kNextChunk;
}

Step TakeList(Walk& walk, UInt32 size)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found LIST");
    UInt32 type = 0;
    if (const UInt32 result = LX_AVIREAD_CALL(ReadRecord(walk.pAviInfo, type)); result != LX_OK) {
        return Fail(result);
    }
    switch (type) {
    case FourCC("movi"): return TakeMovi(walk, size);
    case FourCC("hdrl"): return TakeHeaderList(walk, size);
    case FourCC("INFO"): return SkipInfoList(walk, size);
    default: return SkipUnknownList(walk, type, size);
    }
}

// ---- The chunks ----

Step SkipJunk(Walk& walk, UInt32 size)
{
    if (IsTolerated(walk, size == 0)) {
        return kNextChunk;
    }
    walk.pAviInfo->moviOffset += UInt64{size} + kChunkHeaderBytes; // deliberate, also behind `movi`
    return ContinueUnless(LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size)));
}

Step TakeIdx1(Walk& walk, UInt32 size)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found index chunk");
    walk.bIndexFound = true;
    walk.pAviInfo->idx1Size = size;
    walk.pAviInfo->idx1Offset += kChunkHeaderBytes;
    return kFinish;
}

Step SkipUnknownChunk(Walk& walk, UInt32 size)
{
    // Garbage of that size is stepped through 8 bytes at a time, until a known chunk lines up.
    if (IsTolerated(walk, size == 0) || IsTolerated(walk, size > kLargestUnknownChunk)) {
        return kNextChunk;
    }
    if (walk.bMoviFound) {
        LX_LOG(kLevelHeader, "lxAviReadCore_Open: index not found after movi chunk, jump back to movi junk!");
        SeekAndRemember(walk.pAviInfo, walk.pAviInfo->moviOffset, kFromStart);
        return kFinish;
    }
    if (const UInt32 result = LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size)); result != LX_OK) {
        return Fail(result);
    }
    walk.pAviInfo->idx1Offset += size; // moviOffset deliberately does not count this chunk
    return kNextChunk;
}

Step TakeChunk(Walk& walk, const ChunkHeader& chunk)
{
    switch (chunk.uiCode) {
    case FourCC("JUNK"): return SkipJunk(walk, chunk.uiSize);
    case FourCC("LIST"): return TakeList(walk, chunk.uiSize);
    case FourCC("idx1"): return TakeIdx1(walk, chunk.uiSize);
    default: return SkipUnknownChunk(walk, chunk.uiSize);
    }
}

// ---- The walk ----

Step ReadWalkHeader(const Walk& walk, ChunkHeader& chunk)
{
    if (const UInt32 result = ReadRecord(walk.pAviInfo, chunk.uiCode); result != LX_OK) {
        return result == LX_ERR_AVIREAD_EOF ? EndOfList(walk.bMoviFound) : Fail(ReportCall(result, Here()));
    }
    if (const UInt32 result = ReadRecord(walk.pAviInfo, chunk.uiSize); result != LX_OK) {
        if (result == LX_ERR_AVIREAD_EOF && walk.bMoviFound) {
            LX_LOG(kLevelEndOfFile, "EOF:%d", __LINE__);
        }
        return result == LX_ERR_AVIREAD_EOF ? EndOfList(walk.bMoviFound) : Fail(ReportCall(result, Here()));
    }
    chunk.uiSize = MakeEven(chunk.uiSize);
    return kNextChunk;
}

Step WalkOneChunk(Walk& walk)
{
    ChunkHeader chunk = {};
    if (const Step step = ReadWalkHeader(walk, chunk); step.bFinished) {
        return step;
    }
    walk.uiRemaining -= UInt64{kChunkHeaderBytes} + chunk.uiSize;
    return TakeChunk(walk, chunk);
}

} // namespace

Step EndOfList(bool bMoviFound)
{
    if (bMoviFound) {
        return kFinish;
    }
    LX_LOG(kLevelEndOfFile, "Unexpected end of file. Didn't meet the movi chunk");
    return Fail(LX_ERR_AVIREAD_EOF);
}

UInt32 WalkByDefault(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 instance, bool& bIndexFound)
{
    Walk walk = {pAviInfo, instance, pAviInfo->riffSize};
    Step step = kNextChunk;
    while (!step.bFinished) {
        step = WalkOneChunk(walk);
    }
    bIndexFound = walk.bIndexFound;
    return step.uiResult;
}

} // namespace lxAviReadCore
