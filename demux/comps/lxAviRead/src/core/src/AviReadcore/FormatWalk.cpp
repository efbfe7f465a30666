// The walk over the first RIFF list in the format mode: every chunk stands where the sizes before it say.
//
//   RIFF size "AVI "
//     LIST size "hdrl" …         the header list
//     LIST size "INFO" …         texts
//     LIST size "movi" …         the media data; a further one goes on with them
//     idx1 size …                the index, before the media data or behind them
//     any other chunk or list    stepped over
//   RIFF …                       the next list: this one ends here, whatever its size says
//
// If a writer was stopped, sizes may be 0. The media data then end before an index or another RIFF list, or with the file. A
// chunk that claims more than the list has room for is garbage; the walk goes through it 8 bytes at a time, until a
// known chunk lines up.

#include "internal/KeptChunks.hpp"
#include "internal/Segments.hpp"
#include "internal/Walk.hpp"

#include <algorithm>

namespace lxAviReadCore {
namespace {

constexpr UInt32 kLargestSize = 0xFFFFFFFEu;

struct Walk {
    lxAviReadCore_AviInfo_t* pAviInfo;
    UInt32 instance;
    UInt64 uiEnd; // of the RIFF list, as it says
    UInt64 uiAt;  // where the file stands
    UInt32 uiTolerance = kWalkTolerance;
    bool bMoviFound = false;
    bool bIndexFound = false;
};

// A chunk of the walk, and where the next one begins.
struct Place {
    ChunkHeader chunk;
    UInt64 uiOffset; // of the chunk's header
    UInt64 uiNext;
};

// What a read or a seek of the walk leads to: the end of the file ends the list.
Step AfterResult(const Walk& walk, UInt32 result)
{
    return result == LX_ERR_AVIREAD_EOF ? EndOfList(walk.bMoviFound) : ContinueUnless(result);
}

// Moves on to `target`. A short way is read, because most of it is in the stream's buffer. An input that cannot seek is read
// up to there, and cannot go back.
UInt32 GoTo(Walk& walk, UInt64 target)
{
    constexpr UInt32 kShortWay = 4096;
    const UInt64 distance = target - walk.uiAt;
    walk.uiAt = target;
    if (distance == 0) {
        return LX_OK;
    }
    if (lxalAviRead_FileSeekPossible != 0) {
        const bool bRead = distance <= kShortWay && lxAviReadCore_RemoveChunk(static_cast<UInt32>(distance)) == LX_OK;
        if (bRead || SeekAndRemember(walk.pAviInfo, target, kFromStart)) {
            return LX_OK;
        }
    }
    if (distance > kLargestSize) {
        return LX_ERR_AVIREAD_SEEK;
    }
    return LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(static_cast<UInt32>(distance)));
}

template <typename Record>
UInt32 Read(Walk& walk, Record& record)
{
    walk.uiAt += sizeof record;
    return LX_AVIREAD_CALL(ReadRecord(walk.pAviInfo, record));
}

UInt32 ReadHeader(Walk& walk, Place& place)
{
    LX_AVIREAD_TRY(HearAbort(walk.pAviInfo));
    place.uiOffset = walk.uiAt;
    LX_AVIREAD_TRY(Read(walk, place.chunk.uiCode));
    LX_AVIREAD_TRY(Read(walk, place.chunk.uiSize));
    place.chunk.uiSize = MakeEven(place.chunk.uiSize);
    place.uiNext = walk.uiAt + place.chunk.uiSize;
    return LX_OK;
}

// ---- Media data ----

bool MayBelongToMovi(UInt32 code)
{
    constexpr UInt16 kPaletteChange = TwoCC("pc");
    return IsMediaCode(HighHalf(code)) || HighHalf(code) == TwoCC("tx") || IsInterleavedType(HighHalf(code)) ||
           HighHalf(code) == kPaletteChange || LowHalf(code) == TwoCC("ix") || code == FourCC("JUNK") ||
           code == FourCC("LIST");
}

// Where media data end that go on to `end` and stop there with a chunk that cannot belong to them. If that is nothing that
// follows media data either, it is damage, and they may go on behind it, up to the end of the file. A list whose size is not
// 0 is finished, and ends there.
UInt64 EndOfMeasured(const Walk& walk, const ChunkHeader& list, UInt32 code, UInt64 end)
{
    UInt64 fileSize = 0;
    const bool bDamage = list.uiSize == 0 && code != FourCC("idx1") && code != FourCC("RIFF");
    return bDamage && TellSize(walk.pAviInfo, fileSize) ? std::max(end, fileSize) : end;
}

// Measures media data whose writer has left their size 0.
UInt32 MeasureMovi(Walk& walk, const ChunkHeader& list, UInt64& size)
{
    const UInt64 start = walk.uiAt;
    Place place = {};
    UInt32 result = ReadHeader(walk, place);
    while (result == LX_OK && MayBelongToMovi(place.chunk.uiCode)) {
        LX_AVIREAD_TRY(GoTo(walk, place.uiNext));
        result = ReadHeader(walk, place);
    }
    if (result != LX_OK && result != LX_ERR_AVIREAD_EOF) {
        return result;
    }
    const UInt64 end = result == LX_OK ? EndOfMeasured(walk, list, place.chunk.uiCode, place.uiOffset) : place.uiOffset;
    size = std::min<UInt64>(end - start, kLargestSize);
    return SeekAndRemember(walk.pAviInfo, walk.uiAt = start, kFromStart) ? LX_OK : LX_ERR_AVIREAD_SEEK;
}

UInt32 AddSegment(Walk& walk, UInt64 offset, UInt64 size)
{
    Segment* const pSegment = AppendSegment(walk.pAviInfo, walk.pAviInfo->pCurrentAvix);
    if (pSegment == Null) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    pSegment->moviDataOffset = offset;
    pSegment->moviDataSize = static_cast<UInt32>(size);
    walk.pAviInfo->pCurrentAvix = pSegment;
    return LX_OK;
}

void NoteFirstMovi(const Walk& walk, UInt64 offset, UInt64 size)
{
    walk.pAviInfo->moviOffset = offset;
    walk.pAviInfo->moviSize = size;
    if (!walk.bIndexFound) {
        walk.pAviInfo->idx1Offset = offset + size; // where an index behind the media data would begin
    }
}

Step TakeMovi(Walk& walk, const Place& place)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found movi LIST chunk");
    const UInt64 offset = walk.uiAt;
    UInt64 size = place.chunk.uiSize > kListTypeBytes ? place.chunk.uiSize - kListTypeBytes : 0;
    if (lxalAviRead_FileSeekPossible == 0 || !SeekAndRemember(walk.pAviInfo, offset, kFromStart)) {
        NoteFirstMovi(walk, offset, size != 0 ? size : kLargestSize);
        return kFinish; // the file stays at the first media chunk
    }
    if (const UInt32 result = size == 0 ? MeasureMovi(walk, place.chunk, size) : LX_OK; result != LX_OK) {
        return AfterResult(walk, result);
    }
    if (!walk.bMoviFound) {
        ReleaseSegments(walk.pAviInfo); // of an earlier Open over the same file
        NoteFirstMovi(walk, offset, size);
    }
    walk.bMoviFound = true;
    if (const UInt32 result = AddSegment(walk, offset, size); result != LX_OK) {
        return Fail(result);
    }
    return offset + size == walk.uiEnd ? kFinish : AfterResult(walk, GoTo(walk, offset + size));
}

// ---- The other lists and chunks ----

UInt32 ParseHeaderList(Walk& walk, const Place& place)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found header LIST chunk");
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(lxAviReadCore_ParseListHdrl(walk.instance, walk.pAviInfo, place.chunk.uiSize)));
    if (!TellPosition(walk.pAviInfo, walk.uiAt)) {
        walk.uiAt = place.uiNext;
    }
    return GoTo(walk, place.uiNext);
}

Step TakeIdx1(Walk& walk, const Place& place)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found index chunk");
    if (!walk.bIndexFound) {
        walk.bIndexFound = true;
        walk.pAviInfo->idx1Size = place.chunk.uiSize;
        walk.pAviInfo->idx1Offset = walk.uiAt;
    }
    return walk.bMoviFound && place.uiNext >= walk.uiEnd ? kFinish : AfterResult(walk, GoTo(walk, place.uiNext));
}

bool IsGarbage(const Walk& walk, const Place& place)
{
    return place.chunk.uiSize > kLargestUnknownChunk && place.uiNext > walk.uiEnd;
}

// Steps over a chunk of no known kind, while there is tolerance for one.
Step StepOver(Walk& walk, const Place& place)
{
    if (walk.uiTolerance == 0) {
        return EndOfList(walk.bMoviFound);
    }
    --walk.uiTolerance;
    return AfterResult(walk, GoTo(walk, IsGarbage(walk, place) ? place.uiOffset + kChunkHeaderBytes : place.uiNext));
}

UInt32 TakeTexts(Walk& walk, const Place& place)
{
    walk.uiAt = place.uiNext;
    return KeepTexts(walk.pAviInfo, place.chunk.uiSize);
}

// A list of fewer than 4 bytes has no type; the next chunk begins where the type would be. Media data and INFO lists
// are the exception: a writer that was stopped has left their size 0.
bool HasType(const Place& place, UInt32 type)
{
    return place.chunk.uiSize >= kListTypeBytes || type == FourCC("movi") || type == FourCC("INFO");
}

Step TakeList(Walk& walk, Place& place)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found LIST");
    UInt32 type = 0;
    if (const UInt32 result = Read(walk, type); result != LX_OK) {
        return AfterResult(walk, result);
    }
    if (type == FourCC("movi") && (!walk.bMoviFound || place.uiOffset < walk.uiEnd)) {
        return TakeMovi(walk, place);
    }
    if (type == FourCC("hdrl") && HasType(place, type)) {
        return AfterResult(walk, ParseHeaderList(walk, place));
    }
    if (type == FourCC("INFO") && place.chunk.uiSize > kListTypeBytes && !IsGarbage(walk, place)) {
        return AfterResult(walk, TakeTexts(walk, place));
    }
    place.uiNext = HasType(place, type) ? std::max(place.uiNext, place.uiOffset + kListHeaderBytes) : place.uiNext;
    return StepOver(walk, place);
}

// Another RIFF list ends the first one, whatever its size says.
Step EndBeforeNextRiff(const Walk& walk, const Place& place)
{
    walk.pAviInfo->riffSize = place.uiOffset - kListHeaderBytes;
    return EndOfList(walk.bMoviFound);
}

Step TakeChunk(Walk& walk, Place& place)
{
    switch (place.chunk.uiCode) {
    case FourCC("LIST"): return TakeList(walk, place);
    case FourCC("idx1"): return TakeIdx1(walk, place);
    case FourCC("RIFF"): return EndBeforeNextRiff(walk, place);
    default: return StepOver(walk, place);
    }
}

Step WalkOneChunk(Walk& walk)
{
    Place place = {};
    const UInt32 result = ReadHeader(walk, place);
    return result == LX_OK ? TakeChunk(walk, place) : AfterResult(walk, result);
}

} // namespace

UInt32 WalkByFormat(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 instance, bool& bIndexFound)
{
    Walk walk = {pAviInfo, instance, pAviInfo->riffSize + kListHeaderBytes, kListHeaderBytes};
    Step step = kNextChunk;
    while (!step.bFinished) {
        step = WalkOneChunk(walk);
    }
    bIndexFound = walk.bIndexFound;
    pAviInfo->bAbsoluteOffsets = 1;
    return step.uiResult;
}

} // namespace lxAviReadCore
