// Open: checks the RIFF form and walks the chunks of the first RIFF list.
//
//   RIFF size "AVI "                     riffSize
//     LIST size "hdrl" …                 the header list
//     JUNK, LIST "INFO", anything else   stepped over
//     LIST size "movi" chunk chunk …     moviOffset, moviSize, the first segment record
//     idx1 size record record …          idx1Offset, idx1Size
//
// By default the two offsets are sums of the sizes that lead there, and some chunks are left out of a sum. A caller
// that follows the format gets the positions that the walk has met.
//
// The table of key frames is not built here, and the file is left wherever the walk ended.

#include "internal/Chunk.hpp"
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
    UInt64 uiPosition = 0;  // where the file stands, by the sizes walked over
    UInt64 uiMoviOffset = 0; // where the walk has met the first media chunk
    UInt64 uiIdx1Offset = 0; // and the first record of the index, or where it would be
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

// The file has ended where a chunk could begin: fine once `movi` was met.
Step EndOfFile(const Walk& walk)
{
    if (walk.bMoviFound) {
        return kFinish;
    }
    LX_LOG(kLevelEndOfFile, "Unexpected end of file. Didn't meet the movi chunk");
    return Fail(LX_ERR_AVIREAD_EOF);
}

// Skips the rest of a chunk. Where the format is followed, chunks so large that a seek pays are no garbage, and a file
// that ends inside one has ended behind the last whole one.
Step Skip(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk, UInt32 size)
{
    walk.uiPosition += size;
    if (!FollowsFormat(pAviInfo)) {
        return ContinueUnless(LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size)));
    }
    if (size == 0 || (size > kLargestUnknownChunk && SeekAndRemember(pAviInfo, size, kFromHere))) {
        return kNextChunk;
    }
    const UInt32 result = LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size));
    return AllowEarlyEnd(pAviInfo, result) != result ? EndOfFile(walk) : ContinueUnless(result);
}

// ---- The lists ----

// Steps over the media data, be there none. A size of 2 GiB and more would lead backwards in a 32-bit seek: that
// counts as failed, and is not tried.
bool SeekPastMovi(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk)
{
    if (SeekDistance(pAviInfo, pAviInfo->moviSize) < 0) {
        lxalAviRead_FileSeekPossible = 0;
        return false;
    }
    walk.uiPosition += pAviInfo->moviSize;
    return SeekAndRemember(pAviInfo, pAviInfo->moviSize, kFromHere);
}

// The positions as the walk has met them, where the format is followed.
void SettlePositions(lxAviReadCore_AviInfo_t* pAviInfo, const Walk& walk)
{
    if (FollowsFormat(pAviInfo)) {
        pAviInfo->moviOffset = walk.uiMoviOffset;
        pAviInfo->idx1Offset = walk.uiIdx1Offset;
        pAviInfo->bAbsoluteOffsets = 1;
    }
}

// Whether nothing more is looked for behind the media data. A list that a writer has left unfinished does not know its
// own size, so that the format is followed up to the index, the next list or the end of the file.
bool EndsHere(const lxAviReadCore_AviInfo_t* pAviInfo, const Walk& walk)
{
    return walk.uiRemaining == 0 && !FollowsFormat(pAviInfo);
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
    walk.uiMoviOffset = walk.uiPosition;
    walk.uiIdx1Offset = walk.bIndexFound ? walk.uiIdx1Offset : walk.uiPosition + size - kListTypeBytes;
    pAviInfo->idx1Offset = pAviInfo->moviOffset + kListHeaderBytes;
    pAviInfo->moviOffset += kListHeaderBytes;
    LX_LOG(kLevelHeader, "AviReadCore : Found movi LIST chunk");
    pAviInfo->moviSize = size - kListTypeBytes; // wraps at 32 bits
    if (lxalAviRead_FileSeekPossible == 0 || !SeekPastMovi(pAviInfo, walk)) {
        return kFinish; // the file stays at the first media chunk
    }
    if (walk.uiRemaining != 0) {
        pAviInfo->idx1Offset += pAviInfo->moviSize;
    }
    SettlePositions(pAviInfo, walk);
    if (const UInt32 result = StartSegmentChain(pAviInfo); result != LX_OK) {
        return Fail(result);
    }
    walk.bMoviFound = true;
    return EndsHere(pAviInfo, walk) ? kFinish : kNextChunk;
}

Step TakeHeaderList(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk, UInt32 size)
{
    pAviInfo->moviOffset += UInt64{size} + kChunkHeaderBytes;
    walk.uiPosition += size - kListTypeBytes;
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
    return Skip(pAviInfo, walk, size - kListTypeBytes);
}

Step SkipUnknownList(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk, UInt32 type, UInt32 size)
{
    LX_LOG(kLevelError, "AviReadCore : Found LIST, read data_ext 0x%x", type);
    if (IsTolerated(walk, size == 0)) {
        return kNextChunk;
    }
    if (const Step step = Skip(pAviInfo, walk, size - kListTypeBytes); step.bFinished) {
        return step;
    }
    UInt64& offset = walk.bMoviFound ? pAviInfo->idx1Offset : pAviInfo->moviOffset;
    offset += UInt64{size} + kChunkHeaderBytes;
    return kNextChunk;
}

// A list without room for its type: what was read as the type belongs to the chunk that follows. Only media data that
// a writer has left unfinished have no size and are there all the same.
Step LeaveEmptyList(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk, UInt32 size)
{
    const UInt64 back = UInt64{0} - (kListTypeBytes - size);
    walk.uiPosition += back;
    return SeekAndRemember(pAviInfo, back, kFromHere) ? kNextChunk : Fail(LX_ERR_AVIREAD_SEEK);
}

Step TakeList(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk, UInt32 size)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found LIST");
    UInt32 type = 0;
    if (const UInt32 result = LX_AVIREAD_CALL(ReadRecord(pAviInfo, type)); result != LX_OK) {
        return AllowEarlyEnd(pAviInfo, result) == LX_OK ? EndOfFile(walk) : Fail(result);
    }
    walk.uiPosition += kListTypeBytes;
    if (size < kListTypeBytes && type != FourCC("movi") && FollowsFormat(pAviInfo)) {
        return LeaveEmptyList(pAviInfo, walk, size);
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
    return Skip(pAviInfo, walk, size);
}

Step TakeIdx1(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk, UInt32 size)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found index chunk");
    walk.bIndexFound = true;
    pAviInfo->idx1Size = size;
    pAviInfo->idx1Offset += kChunkHeaderBytes;
    walk.uiIdx1Offset = walk.uiPosition;
    const bool bMoviMayFollow = FollowsFormat(pAviInfo) && !walk.bMoviFound;
    return bMoviMayFollow ? Skip(pAviInfo, walk, size) : kFinish;
}

// Garbage of that size is stepped through 8 bytes at a time, until a known chunk lines up. The format knows no largest
// chunk, but a chunk that its list has no room for is garbage, too.
bool IsGarbage(const lxAviReadCore_AviInfo_t* pAviInfo, const Walk& walk, UInt32 size)
{
    const UInt64 endOfRiff = pAviInfo->riffSize + kListHeaderBytes;
    return size > kLargestUnknownChunk && (!FollowsFormat(pAviInfo) || walk.uiPosition + size > endOfRiff);
}

Step SkipUnknownChunk(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk, UInt32 size)
{
    if (IsTolerated(walk, size == 0) || IsTolerated(walk, IsGarbage(pAviInfo, walk, size))) {
        return kNextChunk;
    }
    if (walk.bMoviFound && !FollowsFormat(pAviInfo)) { // Quirk Q47
        LX_LOG(kLevelHeader, "lxAviReadCore_Open: index not found after movi chunk, jump back to movi junk!");
        SeekAndRemember(pAviInfo, pAviInfo->moviOffset, kFromStart);
        return kFinish;
    }
    if (const Step step = Skip(pAviInfo, walk, size); step.bFinished) {
        return step;
    }
    pAviInfo->idx1Offset += size; // Quirk Q10: moviOffset does not count this chunk
    return kNextChunk;
}

Step TakeChunk(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk, const ChunkHeader& chunk)
{
    if (chunk.uiCode == FourCC("RIFF") && FollowsFormat(pAviInfo)) {
        return EndOfFile(walk); // of this list, that is: the next one begins
    }
    switch (chunk.uiCode) {
    case FourCC("JUNK"): return SkipJunk(pAviInfo, walk, chunk.uiSize);
    case FourCC("LIST"): return TakeList(pAviInfo, walk, chunk.uiSize);
    case FourCC("idx1"): return TakeIdx1(pAviInfo, walk, chunk.uiSize);
    default: return SkipUnknownChunk(pAviInfo, walk, chunk.uiSize);
    }
}

// ---- The walk ----

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
    walk.uiPosition += kChunkHeaderBytes;
    return TakeChunk(pAviInfo, walk, chunk);
}

// Reads "RIFF", size, "AVI " and sets out at the first chunk.
UInt32 ReadRiffHeader(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk)
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
    walk.uiRemaining = pAviInfo->riffSize;
    walk.uiPosition = kListHeaderBytes;
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

// Whether the file is searched for extension lists. By default its OpenDML header has to promise them; the format is
// followed to whatever is there, as long as that does not cost the first chunks of an input that cannot seek.
bool MayHaveExtensions(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    return FollowsFormat(pAviInfo) ? lxalAviRead_FileSeekPossible != 0 : pAviInfo->bAvixPresent == 1;
}

// Walks the first RIFF list and concludes what follows from it.
UInt32 ParseFile(lxAviReadCore_AviInfo_t* pAviInfo, Walk& walk, Bool* pAllIndexed)
{
    LX_AVIREAD_TRY(ReadRiffHeader(pAviInfo, walk));
    Step step = kNextChunk;
    while (!step.bFinished) {
        step = WalkOneChunk(pAviInfo, walk);
    }
    LX_AVIREAD_TRY(step.uiResult);

    SettlePositions(pAviInfo, walk);
    MarkHasIndex(pAviInfo, walk.bIndexFound || pAviInfo->bIndxPresent != 0);
    *pAllIndexed = IsIndexParsed(pAviInfo, pAviInfo->videoStreamNr) && IsIndexParsed(pAviInfo, pAviInfo->audioStreamNr);
    pAviInfo->CurrentOffset = pAviInfo->bAbsoluteOffsets == 1 ? pAviInfo->moviOffset : kStartInMovi;
    if (!MayHaveExtensions(pAviInfo)) {
        return LX_OK;
    }
    pAviInfo->bAvixPresent = 0;
    return LX_AVIREAD_CALL(lxAviReadCore_ConstructAvixInfo(walk.instance, pAviInfo));
}

// ---- The file ----

UInt32 OpenFile(lxAviReadCore_AviInfo_t* pAviInfo, const char* path)
{
    LX_AVIREAD_TRY(lxAviReadCore_Reset());
    LX_LOG(kLevelHeader, "AviReadCore : Opening %s", path);
    pAviInfo->pFile = fopen64(path, "rb");
    if (pAviInfo->pFile == Null) {
        LX_LOG(kLevelError, "AviReadCore : Error Opening file on path \"%s\"", path);
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
        LX_LOG(kLevelError, "AviReadCore : Path is not defined \"%s\" ", path);
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
    LX_LOG(kLevelEnter, "Entered lxAviReadCore_Open path=%s", path);
    // What is missing shows where it is needed: a file of few streams opens without the last records.
    static_cast<void>(lxAviReadCore_Alloc(instance));

    Walk walk = {instance, 0};
    UInt32 result = OpenPath(pAviInfo, path);
    if (result == LX_OK) {
        pAviInfo->maxReadAttempts = maxReadAttempts;
        pAviInfo->IndxOption = IndxOption;
        pAviInfo->memoryUsageLimit = memoryUsageLimit;
        LX_LOG(kLevelHeader, "AviReadCore : Begin reading of file \"%s\" ", path);
        lxalAviRead_FileSeekPossible = 1;
        ForgetParsedIndexes(pAviInfo);
        ForgetIndexSurvey();
        result = ParseFile(pAviInfo, walk, pAllIndexed);
    }
    if (result != LX_OK) {
        CleanUpAfterFailure(pAviInfo);
    }
    ReleaseMetaDataBuffer(pAviInfo);
    LX_LOG(kLevelLeave, "Leaving lxAviReadCore_Open");
    return result;
}
