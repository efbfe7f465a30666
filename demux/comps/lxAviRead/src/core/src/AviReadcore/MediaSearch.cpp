// The way to the next media chunk.
//
//   "00dc" size payload …          a media chunk: its header is read
//   "00dd" size descriptor "00dc"… a DRM descriptor, attached to the chunk that follows it
//   "ix00" size …, "JUNK" size …   stepped over in one piece
//   "23wb" size payload …          of a stream that the file does not have: stepped over if another chunk follows
//   anything else                  slid over byte by byte until a media code lines up: pad bytes, list headers, damage
//
// Where a `movi` list ends, the next segment takes over.

#include "internal/Delivery.hpp"
#include "internal/Segments.hpp"
#include "internal/Streams.hpp"

#include <algorithm>

namespace lxAviReadCore {
namespace {

constexpr UInt32 kSizeBytes = 4;
constexpr UInt32 kSlideBytes = 1024; // slid over between two looks at the abort flag
// Behind a "dd" code: its size, its descriptor, and the code of the next chunk.
constexpr UInt32 kDrmBytes = kSizeBytes + LX_AVIREAD_DRM_BYTES + kChunkCodeBytes;

// The parts of a header, as the message about a failed read calls them.
constexpr char kId[] = "reding data";
constexpr char kSteppedSize[] = "reading dwSize";
constexpr char kSlide[] = "reding data1";
constexpr char kDrmSize[] = "reding i";
constexpr char kDrm[] = "reding wDrmKeyNr";
constexpr char kSize[] = "reding size";

UInt32 ReportFailedRead(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 result, const char* pPart, SourcePlace place)
{
    LX_LOG(kLevelError, "lxAviReadCore_NextChunk : Error %s at line:%d", pPart, place.iLine);
    return ReasonOfFailedRead(pAviInfo, result);
}

template <typename Record>
UInt32 ReadHeaderPart(lxAviReadCore_AviInfo_t* pAviInfo, Record& record, const char* pPart, SourcePlace place)
{
    const UInt32 result = ReadRecord(pAviInfo, record);
    return result == LX_OK ? LX_OK : ReportFailedRead(pAviInfo, result, pPart, place);
}

// The same, and counted.
template <typename Record>
UInt32 ReadCounted(lxAviReadCore_AviInfo_t* pAviInfo, Record& record, const char* pPart, SourcePlace place)
{
    LX_AVIREAD_TRY(ReadHeaderPart(pAviInfo, record, pPart, place));
    pAviInfo->CurrentOffset += sizeof record;
    return LX_OK;
}

// Bytes that delivery has left in the current segment.
UInt64 RoomLeft(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    const UInt64 end = EndOfDelivery(pAviInfo);
    return pAviInfo->CurrentOffset <= end ? end - pAviInfo->CurrentOffset : 0;
}

// Whether the current segment holds `bytes` more; behind its end there is no room for 0 bytes either.
inline bool HasRoom(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 bytes)
{
    const UInt64 end = EndOfDelivery(pAviInfo);
    return pAviInfo->CurrentOffset <= end && end - pAviInfo->CurrentOffset >= bytes;
}

// Enters the next segment: in the format mode, the next one that holds `bytes`. In the default mode the caller continues
// there unchecked.
UInt32 EnterSegmentFor(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 bytes)
{
    do {
        LX_AVIREAD_TRY(EnterNextSegment(pAviInfo));
    } while (StepsEndWithTheirList(pAviInfo) && !HasRoom(pAviInfo, bytes));
    return LX_OK;
}

// Makes sure that the current segment holds `bytes` more, or enters another one.
inline UInt32 MakeRoom(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 bytes)
{
    return HasRoom(pAviInfo, bytes) ? LX_OK : EnterSegmentFor(pAviInfo, bytes);
}

ForeignPayload s_foreign;

// ---- What an identifier means ----

// Whether the identifier is one of an "iavs" stream, which has chunk types of its own.
bool IsInterleavedChunk(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 id)
{
    return IsInterleavedType(HighHalf(id)) && IsInterleavedStream(pAviInfo, StreamNumber(LowHalf(id)));
}

// Whether a "dd" identifier is one of a descriptor: in the format mode, of a stream that the file has.
bool IsDescriptorOfAStream(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 id)
{
    return !DrmChunksAreExact(pAviInfo) || StreamTypeOf(pAviInfo, StreamNumber(LowHalf(id))) != LX_AVIREAD_STREAM_NONE;
}

} // namespace

ForeignPayload TakeForeignPayload()
{
    const ForeignPayload foreign = s_foreign;
    s_foreign = {};
    return foreign;
}

void GiveBackForeignPayload(const ForeignPayload& foreign) { s_foreign = foreign; }

bool IsMediaChunk(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 id)
{
    if (HighHalf(id) == TwoCC("dd")) {
        return IsDescriptorOfAStream(pAviInfo, id);
    }
    return IsMediaCode(HighHalf(id)) || (HighHalf(id) == TwoCC("tx") && TextHasTwoTypes(pAviInfo)) ||
           IsInterleavedChunk(pAviInfo, id);
}

namespace {

// ---- The way to the next media chunk ----

bool IsSteppedOver(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 id)
{
    const bool bIndex = IndexesAreNeverMedia(pAviInfo) ? IsIndexChunk(id) || id == FourCC("idx1")
                                                       : LowHalf(id) == TwoCC("ix") && pAviInfo->bIndxPresent == 1;
    return bIndex || id == FourCC("JUNK");
}

bool MeansSomething(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 id)
{
    return IsMediaChunk(pAviInfo, id) || IsSteppedOver(pAviInfo, id);
}

// The room that a segment needs for the next identifier: in the format mode for its size, too.
UInt32 RoomOfIdentifier(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    return StepsEndWithTheirList(pAviInfo) ? kChunkHeaderBytes : kChunkCodeBytes;
}

// Lets the identifier slide on by one byte.
UInt32 SlideByOne(lxAviReadCore_AviInfo_t* pAviInfo, UInt32& id)
{
    const int character = ReadByte(pAviInfo->pFile);
    auto next = static_cast<UInt8>(character);
    if (character == EOF) {
        if (const UInt32 result = ContinueWord(pAviInfo, kCoreRead, &next, sizeof next, 0); result != LX_OK) {
            return ReportFailedRead(pAviInfo, result, kSlide, Here());
        }
    }
    pAviInfo->CurrentOffset += sizeof next;
    id = id >> 8 | static_cast<UInt32>(next) << 24;
    return LX_OK;
}

// Quirk Q44: lets the identifier slide over the file, be it a list header, a pad byte or damage, to the next one that
// means something, to the end of the segment, or so far that the abort flag is due to be looked at.
UInt32 Slide(lxAviReadCore_AviInfo_t* pAviInfo, UInt32& id)
{
    if (!HasRoom(pAviInfo, 1)) {
        LX_AVIREAD_TRY(EnterSegmentFor(pAviInfo, 1));
        id = StepsEndWithTheirList(pAviInfo) ? 0 : id; // no identifier begins in one list and ends in the next
    }
    // 0 in a next segment that is empty: one byte is read all the same
    UInt64 room = std::min<UInt64>(RoomLeft(pAviInfo), kSlideBytes);
    do {
        LX_AVIREAD_TRY(SlideByOne(pAviInfo, id));
    } while (room-- > 1 && !MeansSomething(pAviInfo, id));
    if (room < kSizeBytes && StepsEndWithTheirList(pAviInfo) && !HasRoom(pAviInfo, kSizeBytes)) {
        id = 0; // what stands so near to the end of a list is no identifier
    }
    return LX_OK;
}

// The last two characters of an identifier, as text.
struct TypeText {
    char characters[3];
};

TypeText TextOfType(UInt32 id) { return {{static_cast<char>(ByteOf(id, 2)), static_cast<char>(ByteOf(id, 3)), '\0'}}; }

// Where a search begins again after an abort: at the identifier that it has come to, or at the first descriptor before
// the chunk. So nothing is lost in a file; an input that cannot seek goes on where it stands.
struct SearchPlace {
    UInt64 uiOffset;
    Segment* pSegment;
};

SearchPlace PlaceBefore(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 bytes)
{
    return {pAviInfo->CurrentOffset - bytes, pAviInfo->pCurrentAvix};
}

void ReturnTo(lxAviReadCore_AviInfo_t* pAviInfo, const SearchPlace& place)
{
    if (lxalAviRead_FileSeekPossible != 0 &&
        SeekAndRemember(pAviInfo, FileOffsetOf(pAviInfo, place.uiOffset), kFromStart)) {
        pAviInfo->CurrentOffset = place.uiOffset;
        pAviInfo->pCurrentAvix = place.pSegment;
    }
}

// Slides on behind an identifier whose size has been read, and cannot be true.
UInt32 SlideBehind(lxAviReadCore_AviInfo_t* pAviInfo, UInt32& id)
{
    ReturnTo(pAviInfo, PlaceBefore(pAviInfo, kSizeBytes));
    return Slide(pAviInfo, id);
}

// An `idx1` that claims more bytes than its list has. If its first record names a chunk, the size of the list is stale and
// reaches into the index of the file: there are no media data behind it, and the next list takes over. Otherwise damage looks
// like an identifier, and the search slides on.
UInt32 LeaveAtIndex(lxAviReadCore_AviInfo_t* pAviInfo, UInt32& id)
{
    UInt32 firstRecord = 0;
    if (HasRoom(pAviInfo, sizeof firstRecord)) {
        LX_AVIREAD_TRY(ReadCounted(pAviInfo, firstRecord, kSteppedSize, Here()));
        if (!MeansSomething(pAviInfo, firstRecord) && firstRecord != FourCC("rec ")) {
            ReturnTo(pAviInfo, PlaceBefore(pAviInfo, kSizeBytes + sizeof firstRecord));
            return Slide(pAviInfo, id);
        }
    }
    LX_AVIREAD_TRY(EnterSegmentFor(pAviInfo, kChunkHeaderBytes));
    return ReadCounted(pAviInfo, id, kId, Here());
}

// Steps over a chunk whose identifier has been read, and reads the next identifier.
UInt32 StepOver(lxAviReadCore_AviInfo_t* pAviInfo, UInt32& id)
{
    UInt32 size = 0;
    LX_AVIREAD_TRY(ReadCounted(pAviInfo, size, kSteppedSize, Here()));
    size = MakeEven(size);
    if (StepsEndWithTheirList(pAviInfo) && !HasRoom(pAviInfo, size)) {
        return id == FourCC("idx1") ? LeaveAtIndex(pAviInfo, id) : SlideBehind(pAviInfo, id);
    }
    LX_AVIREAD_TRY(MakeRoom(pAviInfo, size));
    if (const UInt32 result = LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size)); result != LX_OK) {
        return ReasonOfFailedRead(pAviInfo, result);
    }
    pAviInfo->CurrentOffset += size;
    LX_AVIREAD_TRY(MakeRoom(pAviInfo, RoomOfIdentifier(pAviInfo)));
    return ReadCounted(pAviInfo, id, kId, Here());
}

// Goes on with a search that has come to the identifier `id`.
UInt32 SearchFrom(lxAviReadCore_AviInfo_t* pAviInfo, UInt32& id, SearchPlace& place)
{
    while (!IsMediaChunk(pAviInfo, id)) {
        place = PlaceBefore(pAviInfo, kChunkCodeBytes);
        LX_AVIREAD_TRY(HearAbort(pAviInfo));
        LX_AVIREAD_TRY(IsSteppedOver(pAviInfo, id) ? StepOver(pAviInfo, id) : Slide(pAviInfo, id));
    }
    place = PlaceBefore(pAviInfo, kChunkCodeBytes);
    LX_LOG(kLevelChunk, "twocc='%2s'(0x%x) data=0x%x Offset=%d", TextOfType(id).characters, HighHalf(id), id,
           static_cast<UInt32>(pAviInfo->CurrentOffset));
    return LX_OK;
}

// ---- Chunks of streams that the file does not have ----

UInt32 GoTo(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 offset)
{
    if (!SeekAndRemember(pAviInfo, FileOffsetOf(pAviInfo, offset), kFromStart)) {
        return LX_ERR_AVIREAD_SEEK;
    }
    pAviInfo->CurrentOffset = offset;
    return LX_OK;
}

// Steps over a foreign payload, if the list ends behind it or another chunk begins there. Otherwise its size may be damage,
// and the search goes through the payload.
UInt32 StepOverForeign(lxAviReadCore_AviInfo_t* pAviInfo)
{
    const ForeignPayload foreign = TakeForeignPayload();
    const UInt64 behind = foreign.uiStart + foreign.uiSize + (foreign.uiSize & 1u);
    const UInt64 end = EndOfDelivery(pAviInfo);
    if (foreign.uiSize == 0 || pAviInfo->CurrentOffset != foreign.uiStart || behind > end ||
        lxalAviRead_FileSeekPossible == 0) {
        return LX_OK;
    }
    bool bFollowed = behind == end;
    if (!bFollowed) {
        UInt32 nextId = 0;
        LX_AVIREAD_TRY(GoTo(pAviInfo, behind));
        const UInt32 result = ReadRecord(pAviInfo, nextId);
        if (result != LX_OK && result != LX_ERR_AVIREAD_EOF) {
            s_foreign = foreign; // after an abort the search begins here again
            return ReportFailedRead(pAviInfo, result, kId, Here());
        }
        bFollowed = result == LX_OK && (MeansSomething(pAviInfo, nextId) || nextId == FourCC("LIST"));
    }
    return GoTo(pAviInfo, bFollowed ? behind : foreign.uiStart);
}

UInt32 FindMediaCode(lxAviReadCore_AviInfo_t* pAviInfo, UInt32& id, SearchPlace& place)
{
    place = PlaceBefore(pAviInfo, 0);
    LX_AVIREAD_TRY(StepOverForeign(pAviInfo));
    LX_AVIREAD_TRY(MakeRoom(pAviInfo, kChunkHeaderBytes));
    place = PlaceBefore(pAviInfo, 0);
    LX_AVIREAD_TRY(ReadCounted(pAviInfo, id, kId, Here()));
    return SearchFrom(pAviInfo, id, place);
}

// ---- Protected chunks ----

// Reads a DRM descriptor and the identifier behind it. In the default mode a descriptor has 10 bytes, whatever its size
// says, and the identifier is that of the chunk that it belongs to, whatever stands there.
UInt32 ReadDrm(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, UInt32& id)
{
    UInt32 size = 0;
    LX_AVIREAD_TRY(ReadHeaderPart(pAviInfo, size, kDrmSize, Here()));
    LX_AVIREAD_TRY(MakeRoom(pAviInfo, kDrmBytes + kSizeBytes));
    UInt32 result = ReadHeaderPart(pAviInfo, pChunk->DrmInfo, kDrm, Here());
    if (result == LX_OK) {
        result = ReadHeaderPart(pAviInfo, id, kId, Here());
    }
    if (result != LX_OK) {
        LX_LOG(kLevelError, "xxdd chunk size = %d", size);
        return result;
    }
    pAviInfo->CurrentOffset += kDrmBytes;
    pChunk->bDrm = 1;
    return LX_OK;
}

// Reads a DRM descriptor of `size` bytes, which the segment has. What is longer than a descriptor is skipped, what is
// shorter leaves zeros.
UInt32 ReadExactDrm(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, UInt32 size)
{
    const UInt32 kept = std::min<UInt32>(size, sizeof pChunk->DrmInfo);
    std::memset(pChunk->DrmInfo, 0, sizeof pChunk->DrmInfo);
    UInt32 result = ReadLoop(pAviInfo, kCoreRead, {pChunk->DrmInfo, sizeof pChunk->DrmInfo, kept});
    if (result == LX_OK && MakeEven(size) > kept) {
        result = lxAviReadCore_RemoveChunk(MakeEven(size) - kept);
    }
    if (result != LX_OK) {
        LX_LOG(kLevelError, "xxdd chunk size = %d", size);
        return ReportFailedRead(pAviInfo, result, kDrm, Here());
    }
    pAviInfo->CurrentOffset += MakeEven(size);
    return LX_OK;
}

// Reads descriptors up to the next other chunk, which the last one belongs to if both name the same stream.
UInt32 FindProtectedChunk(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, MediaHeader& header)
{
    MediaHeader descriptor = {};
    SearchPlace place = {};
    while (HighHalf(header.uiId) == TwoCC("dd")) {
        UInt32 size = 0;
        LX_AVIREAD_TRY(ReadCounted(pAviInfo, size, kDrmSize, Here()));
        if (size > RoomLeft(pAviInfo)) {
            LX_AVIREAD_TRY(SlideBehind(pAviInfo, header.uiId));
            LX_AVIREAD_TRY(SearchFrom(pAviInfo, header.uiId, place));
        } else {
            descriptor = header;
            LX_AVIREAD_TRY(ReadExactDrm(pAviInfo, pChunk, size));
            LX_AVIREAD_TRY(FindMediaCode(pAviInfo, header.uiId, place));
        }
        header.uiStart = place.uiOffset;
    }
    const bool bBelongs = descriptor.uiStart != 0 && LowHalf(descriptor.uiId) == LowHalf(header.uiId);
    header.uiStart = bBelongs ? descriptor.uiStart : header.uiStart;
    pChunk->bDrm = bBelongs ? 1 : 0;
    return LX_OK;
}

// Takes the descriptors before a chunk, if there are any.
UInt32 TakeDrm(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, MediaHeader& header)
{
    if (HighHalf(header.uiId) != TwoCC("dd")) {
        pChunk->bDrm = 0;
        return LX_OK;
    }
    return DrmChunksAreExact(pAviInfo) ? FindProtectedChunk(pAviInfo, pChunk, header)
                                       : ReadDrm(pAviInfo, pChunk, header.uiId);
}

// ---- The header ----

UInt32 Search(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, MediaHeader& header, SearchPlace& place)
{
    LX_AVIREAD_TRY(FindMediaCode(pAviInfo, header.uiId, place));
    header.uiStart = place.uiOffset;
    LX_AVIREAD_TRY(TakeDrm(pAviInfo, pChunk, header));
    pChunk->uiStreamNr = StreamNumber(LowHalf(header.uiId));
    if (pChunk->uiStreamNr < LX_AVIREAD_STREAMS) {
        pChunk->eStreamType = StreamTypeOf(pAviInfo, pChunk->uiStreamNr);
    }
    LX_AVIREAD_TRY(MakeRoom(pAviInfo, kSizeBytes));
    LX_AVIREAD_TRY(ReadCounted(pAviInfo, pChunk->uiSize, kSize, Here()));
    if (ForeignChunksAreSteppedOver(pAviInfo) && !IsOfKnownStream(*pChunk)) {
        s_foreign = {pAviInfo->CurrentOffset, pChunk->uiSize};
    }
    return LX_OK;
}

} // namespace

UInt32 ReadMediaHeader(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, MediaHeader& header)
{
    SearchPlace place = {};
    const UInt32 result = Search(pAviInfo, pChunk, header, place);
    if (result == LX_ERR_AVIREAD_ABORTED) { // in the default mode an abort is a failed read
        ReturnTo(pAviInfo, place);
    }
    return result;
}

bool IsOfKnownStream(const lxAviRead_ChunkData_t& chunk)
{
    return chunk.uiStreamNr < LX_AVIREAD_STREAMS && chunk.eStreamType != LX_AVIREAD_STREAM_NONE;
}

bool IsVideoChunk(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 id)
{
    return HighHalf(id) == TwoCC("dc") || HighHalf(id) == TwoCC("db") || IsInterleavedChunk(pAviInfo, id);
}

} // namespace lxAviReadCore
