// The walk over the first RIFF list where the format is followed: every chunk stands where the sizes before it say.
//
//   RIFF size "AVI "
//     LIST size "hdrl" …         the header list
//     LIST size "movi" …         the media data; a further one goes on with them
//     idx1 size …                the index, before the media data or behind them
//     any other chunk or list    stepped over
//   RIFF …                       the next list: this one ends here, whatever its size says
//
// Writers that were stopped have left sizes of 0. The media data then end where something begins that cannot belong to
// them. What claims more than the list has room for is garbage, and stepped through until a chunk lines up.

#include "internal/FormatWalk.hpp"
#include "internal/Chunk.hpp"
#include "internal/Memory.hpp"

#include <algorithm>

namespace lxAviReadCore {
namespace {

constexpr UInt32 kTolerance = 0x20000;     // chunks of no known kind that one walk steps over
constexpr UInt32 kLargestStray = 0x38000;  // a chunk up to this is stepped over even where its list has no room for it
constexpr UInt32 kLargestSize = 0xFFFFFFFEu;
constexpr UInt64 kListHeaderBytes = 12;    // "LIST", size, type

struct Walk {
    lxAviReadCore_AviInfo_t* pAviInfo;
    UInt32 instance;
    UInt64 uiEnd;       // of the RIFF list, as it says
    UInt64 uiAt;        // where the file stands
    UInt32 uiTolerance = kTolerance;
    bool bMoviFound = false;
    bool bIndexFound = false;
};

// A chunk of the walk, and where the next one begins.
struct Place {
    ChunkHeader chunk;
    UInt64 uiOffset; // of the chunk's header
    UInt64 uiNext;
};

constexpr UInt32 kGoOn = LX_OK;
constexpr UInt32 kWalkEnds = LX_AVIREAD_END_OF_MEDIA; // everything was found
constexpr UInt32 kListEnds = LX_ERR_AVIREAD_EOF;      // here, or with the file: fine once the media data were met

UInt32 ConcludeWalk(const Walk& walk, UInt32 result)
{
    if (result == kListEnds && !walk.bMoviFound) {
        LX_LOG(kLevelEndOfFile, "Unexpected end of file. Didn't meet the movi chunk");
        return LX_ERR_AVIREAD_EOF;
    }
    return result == kListEnds || result == kWalkEnds ? LX_OK : result;
}

// Moves on to `target`. An input that cannot seek is read, and cannot go back.
UInt32 GoTo(Walk& walk, UInt64 target)
{
    const UInt64 distance = target - walk.uiAt;
    walk.uiAt = target;
    if (distance == 0 || (lxalAviRead_FileSeekPossible != 0 && SeekAndRemember(walk.pAviInfo, target, kFromStart))) {
        return LX_OK;
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
    return IsMediaCode(HighHalf(code)) || LowHalf(code) == TwoCC("ix") || code == FourCC("JUNK") ||
           code == FourCC("LIST");
}

// The media data's size where their writer has not come to writing it.
UInt32 MeasureMovi(Walk& walk, UInt64& size)
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
    size = std::min<UInt64>(place.uiOffset - start, kLargestSize);
    return SeekAndRemember(walk.pAviInfo, walk.uiAt = start, kFromStart) ? LX_OK : LX_ERR_AVIREAD_SEEK;
}

UInt32 AddSegment(Walk& walk, UInt64 offset, UInt64 size)
{
    lxAviReadCore_AvixRiff_t* const pSegment = AppendSegment(walk.pAviInfo, walk.pAviInfo->pCurrentAvix);
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
        walk.pAviInfo->idx1Offset = offset + size; // where it would be
    }
}

UInt32 TakeMovi(Walk& walk, const Place& place)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found movi LIST chunk");
    const UInt64 offset = walk.uiAt;
    UInt64 size = place.chunk.uiSize > kListTypeBytes ? place.chunk.uiSize - kListTypeBytes : 0;
    if (lxalAviRead_FileSeekPossible == 0 || !SeekAndRemember(walk.pAviInfo, offset, kFromStart)) {
        NoteFirstMovi(walk, offset, size != 0 ? size : kLargestSize);
        return kWalkEnds; // the file stays at the first media chunk
    }
    if (size == 0) {
        LX_AVIREAD_TRY(MeasureMovi(walk, size));
    }
    if (!walk.bMoviFound) {
        ReleaseSegments(walk.pAviInfo); // of an earlier Open over the same file
        NoteFirstMovi(walk, offset, size);
    }
    walk.bMoviFound = true;
    LX_AVIREAD_TRY(AddSegment(walk, offset, size));
    return offset + size == walk.uiEnd ? kWalkEnds : GoTo(walk, offset + size);
}

// ---- The other lists and chunks ----

UInt32 TakeHeaderList(Walk& walk, const Place& place)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found header LIST chunk");
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(lxAviReadCore_ParseListHdrl(walk.instance, walk.pAviInfo, place.chunk.uiSize)));
    if (!TellPosition(walk.pAviInfo, walk.uiAt)) {
        walk.uiAt = place.uiNext;
    }
    return GoTo(walk, place.uiNext);
}

UInt32 TakeIdx1(Walk& walk, const Place& place)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found index chunk");
    if (!walk.bIndexFound) {
        walk.bIndexFound = true;
        walk.pAviInfo->idx1Size = place.chunk.uiSize;
        walk.pAviInfo->idx1Offset = walk.uiAt;
    }
    return walk.bMoviFound && place.uiNext >= walk.uiEnd ? kWalkEnds : GoTo(walk, place.uiNext);
}

// Steps over what is of no known kind, as far as tolerance goes.
UInt32 StepOver(Walk& walk, const Place& place)
{
    if (walk.uiTolerance == 0) {
        return kListEnds;
    }
    --walk.uiTolerance;
    const bool bGarbage = place.chunk.uiSize > kLargestStray && place.uiNext > walk.uiEnd;
    return GoTo(walk, bGarbage ? place.uiOffset + kChunkHeaderBytes : place.uiNext);
}

// A list too short for its type has none: the next chunk begins there. Only media data and information that have not got
// their size yet are there all the same.
bool HasType(const Place& place, UInt32 type)
{
    return place.chunk.uiSize >= kListTypeBytes || type == FourCC("movi") || type == FourCC("INFO");
}

UInt32 TakeList(Walk& walk, Place& place)
{
    LX_LOG(kLevelHeader, "AviReadCore : Found LIST");
    UInt32 type = 0;
    LX_AVIREAD_TRY(Read(walk, type));
    if (type == FourCC("movi") && (!walk.bMoviFound || place.uiOffset < walk.uiEnd)) {
        return TakeMovi(walk, place);
    }
    if (type == FourCC("hdrl") && HasType(place, type)) {
        return TakeHeaderList(walk, place);
    }
    place.uiNext = HasType(place, type) ? std::max(place.uiNext, place.uiOffset + kListHeaderBytes) : place.uiNext;
    return StepOver(walk, place);
}

UInt32 TakeChunk(Walk& walk, Place& place)
{
    switch (place.chunk.uiCode) {
    case FourCC("LIST"): return TakeList(walk, place);
    case FourCC("idx1"): return TakeIdx1(walk, place);
    case FourCC("RIFF"): walk.pAviInfo->riffSize = place.uiOffset - kListHeaderBytes; return kListEnds;
    default: return StepOver(walk, place);
    }
}

} // namespace

UInt32 WalkByFormat(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 instance, bool& bIndexFound)
{
    Walk walk = {pAviInfo, instance, pAviInfo->riffSize + kListHeaderBytes, kListHeaderBytes};
    UInt32 result = kGoOn;
    while (result == kGoOn) {
        Place place = {};
        result = ReadHeader(walk, place);
        result = result == LX_OK ? TakeChunk(walk, place) : result;
    }
    bIndexFound = walk.bIndexFound;
    pAviInfo->bAbsoluteOffsets = 1;
    return ConcludeWalk(walk, result);
}

} // namespace lxAviReadCore
