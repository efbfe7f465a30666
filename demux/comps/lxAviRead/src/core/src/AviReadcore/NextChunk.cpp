// Delivery: the next chunk of the media data.
//
//   "00dc" size payload …          media: its header is read and classified, its payload is left to the caller
//   "00dd" size descriptor "00dc"… a DRM descriptor, attached to the chunk that follows it
//   "ix00" size …, "JUNK" size …   stepped over in one piece
//   anything else                  slid over byte by byte until a media code lines up: pad bytes, list headers, damage
//
// Before a header is read, a pending jump is executed; where a `movi` list ends, the next segment takes over. The
// state's `CurrentOffset` is the position of the file, except while a payload that was counted has not been read yet.

#include "internal/Segments.hpp"
#include "internal/State.hpp"
#include "internal/Streams.hpp"

namespace lxAviReadCore {
namespace {

constexpr UInt32 kSizeBytes = 4;
// Behind a "dd" code: its size, its descriptor, and the code of the next chunk.
constexpr UInt32 kDrmBytes = kSizeBytes + LX_AVIREAD_DRM_BYTES + kChunkCodeBytes;

// The parts of a header, as the message about a failed read calls them.
constexpr char kId[] = "reding data";
constexpr char kSteppedSize[] = "reading dwSize";
constexpr char kSlide[] = "reding data1";
constexpr char kDrmSize[] = "reding i";
constexpr char kDrm[] = "reding wDrmKeyNr";
constexpr char kSize[] = "reding size";

UInt32 ReportFailedRead(const char* pPart, SourcePlace place)
{
    LX_LOG(kLevelError, "lxAviReadCore_NextChunk : Error %s at line:%d", pPart, place.iLine);
    return LX_ERR_AVIREAD_READ;
}

// Every failure of a header read is the same to the caller, the end of the file and an abort included.
template <typename Record>
UInt32 ReadHeaderPart(lxAviReadCore_AviInfo_t* pAviInfo, Record& record, const char* pPart, SourcePlace place)
{
    return ReadRecord(pAviInfo, record) == LX_OK ? LX_OK : ReportFailedRead(pPart, place);
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

// Makes sure that the current segment holds `bytes` more; behind its end there is no room for 0 bytes either. If there
// is less room, enters the next segment, and the caller continues there unchecked.
inline UInt32 MakeRoom(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 bytes)
{
    const UInt64 end = EndOfDelivery(pAviInfo);
    const bool bHasRoom = pAviInfo->CurrentOffset <= end && end - pAviInfo->CurrentOffset >= bytes;
    return bHasRoom ? LX_OK : EnterNextSegment(pAviInfo); // Quirk Q20
}

// ---- The pending jump ----

bool IsVideoCode(UInt16 twocc) { return twocc == TwoCC("dc") || twocc == TwoCC("db"); }

// Whether `bytes` are a "dd" chunk and the identifier of the frame that it belongs to.
bool IsProtectedFrame(const UInt8 (&bytes)[kDrmChunkBytes + kChunkCodeBytes])
{
    const auto drmId = Load<UInt32>(bytes);
    const auto drmSize = Load<UInt32>(bytes + kChunkCodeBytes);
    const auto frameId = Load<UInt32>(bytes + kDrmChunkBytes);
    return HighHalf(drmId) == TwoCC("dd") && drmSize == LX_AVIREAD_DRM_BYTES && IsVideoCode(HighHalf(frameId)) &&
           LowHalf(drmId) == LowHalf(frameId);
}

// An index may list a protected frame at its own position: the jump then goes to the "dd" chunk directly before it.
UInt64 StartOfFrame(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 target)
{
    const UInt64 first = StartOf(CurrentSegment(pAviInfo));
    const UInt64 before = target - kDrmChunkBytes;
    UInt8 bytes[kDrmChunkBytes + kChunkCodeBytes] = {};
    if (target < first + kDrmChunkBytes || !SeekAndRemember(pAviInfo, before, kFromStart) ||
        ReadRecord(pAviInfo, bytes) != LX_OK) {
        return target;
    }
    return IsProtectedFrame(bytes) ? before : target;
}

UInt32 SeekToJumpTarget(lxAviReadCore_AviInfo_t* pAviInfo)
{
    UInt64 target = FileOffsetOf(pAviInfo, pAviInfo->CurrentOffset);
    if (pAviInfo->bAbsoluteOffsets == 1 && !EnterSegmentOf(pAviInfo, target)) {
        return LX_ERR_AVIREAD_JUMP_RANGE;
    }
    if (ProtectedFramesHaveTwoStarts(pAviInfo)) {
        target = StartOfFrame(pAviInfo, target);
        pAviInfo->CurrentOffset = target;
    }
    SeekAndRemember(pAviInfo, target, kFromStart);
    lxalAviRead_VideoFrame = 0; // Quirk Q21: until the key frame is met
    return LX_OK;
}

UInt32 ExecuteJump(lxAviReadCore_AviInfo_t* pAviInfo, Bool* pJumped)
{
    pAviInfo->CurrentOffset = pAviInfo->JumpOffset;
    *pJumped = 1;
    LX_ASSERT(lxalAviRead_FileSeekPossible, "lxalAviRead_FileSeekPossible",
              "Jump is set but fseek doesn't work. Programming error");
    if (lxalAviRead_FileSeekPossible != 0) {
        LX_AVIREAD_TRY(SeekToJumpTarget(pAviInfo));
    }
    pAviInfo->JumpOffset = 0;
    LX_LOG(kLevelSeek, "lxAviReadCore_NextChunk : Offset %d.%d", LX_HILO(pAviInfo->CurrentOffset));
    return LX_OK;
}

// ---- The way to the next media chunk ----

bool IsSteppedOver(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 id)
{
    return (LowHalf(id) == TwoCC("ix") && pAviInfo->bIndxPresent == 1) || id == FourCC("JUNK");
}

bool MeansSomething(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 id)
{
    return IsMediaCode(HighHalf(id)) || IsSteppedOver(pAviInfo, id);
}

// Steps over a chunk whose identifier has been read, and reads the next identifier.
UInt32 StepOver(lxAviReadCore_AviInfo_t* pAviInfo, UInt32& id)
{
    UInt32 size = 0;
    LX_AVIREAD_TRY(ReadCounted(pAviInfo, size, kSteppedSize, Here()));
    size = MakeEven(size);
    LX_AVIREAD_TRY(MakeRoom(pAviInfo, size));
    if (LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size)) != LX_OK) {
        return LX_ERR_AVIREAD_READ;
    }
    pAviInfo->CurrentOffset += size;
    LX_AVIREAD_TRY(MakeRoom(pAviInfo, kChunkCodeBytes));
    return ReadCounted(pAviInfo, id, kId, Here());
}

// Lets the identifier slide on by one byte.
UInt32 SlideByOne(lxAviReadCore_AviInfo_t* pAviInfo, UInt32& id)
{
    const int character = ReadByte(pAviInfo->pFile);
    auto next = static_cast<UInt8>(character);
    if (character == EOF && ContinueWord(pAviInfo, kCoreRead, &next, sizeof next, 0) != LX_OK) {
        return ReportFailedRead(kSlide, Here());
    }
    pAviInfo->CurrentOffset += sizeof next;
    id = id >> 8 | static_cast<UInt32>(next) << 24;
    return LX_OK;
}

// Quirk Q44: lets the identifier slide over the file, be it a list header, a pad byte or damage, to the next one that
// means something or to the end of the segment.
UInt32 Slide(lxAviReadCore_AviInfo_t* pAviInfo, UInt32& id)
{
    LX_AVIREAD_TRY(MakeRoom(pAviInfo, 1));
    UInt64 room = RoomLeft(pAviInfo); // 0 in a next segment that is empty: one byte is read all the same
    do {
        LX_AVIREAD_TRY(SlideByOne(pAviInfo, id));
    } while (room-- > 1 && !MeansSomething(pAviInfo, id));
    return LX_OK;
}

// The last two characters of an identifier, as text.
struct TypeText {
    char characters[3];
};

TypeText TextOfType(UInt32 id) { return {{static_cast<char>(ByteOf(id, 2)), static_cast<char>(ByteOf(id, 3)), '\0'}}; }

UInt32 FindMediaCode(lxAviReadCore_AviInfo_t* pAviInfo, UInt32& id)
{
    LX_AVIREAD_TRY(MakeRoom(pAviInfo, kChunkHeaderBytes));
    LX_AVIREAD_TRY(ReadCounted(pAviInfo, id, kId, Here()));
    while (!IsMediaCode(HighHalf(id))) {
        LX_AVIREAD_TRY(IsSteppedOver(pAviInfo, id) ? StepOver(pAviInfo, id) : Slide(pAviInfo, id));
    }
    LX_LOG(kLevelChunk, "twocc='%2s'(0x%x) data=0x%x Offset=%d", TextOfType(id).characters, HighHalf(id), id,
           static_cast<UInt32>(pAviInfo->CurrentOffset));
    return LX_OK;
}

// Reads a DRM descriptor and the identifier of the chunk that it belongs to.
UInt32 ReadDrm(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, UInt32& id)
{
    UInt32 size = 0; // Quirk Q22: always 10 bytes are read, and the next code is taken for the code of a chunk
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

// ---- The chunk ----

UInt32 RejectBadStream(lxAviRead_ChunkData_t* pChunk)
{
    pChunk->eStreamType = LX_AVIREAD_STREAM_NONE;
    return LX_ERR_AVIREAD_BAD_STREAM;
}

UInt32 Dispatch(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, UInt32 audioTrackNumber,
                UInt32 subtitleTrackNumber, Bool bJumped)
{
    switch (pChunk->eStreamType) {
    case LX_AVIREAD_STREAM_VIDEO: return lxAviReadCore_ProcessNextVideoChunk(pAviInfo, pChunk, bJumped);
    case LX_AVIREAD_STREAM_AUDIO: return lxAviReadCore_ProcessNextAudioChunk(pAviInfo, pChunk, audioTrackNumber);
    case LX_AVIREAD_STREAM_SUBTITLE:
        return lxAviReadCore_ProcessNextSubtitleChunk(pAviInfo, pChunk, subtitleTrackNumber);
    default: return LX_OK; // cannot happen
    }
}

// Reads the rest of the header and decides about the chunk.
UInt32 TakeChunk(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, UInt32 id, UInt32 audioTrackNumber,
                 UInt32 subtitleTrackNumber, Bool bJumped)
{
    pChunk->uiStreamNr = StreamNumber(LowHalf(id));
    if (pChunk->uiStreamNr < LX_AVIREAD_STREAMS) {
        pChunk->eStreamType = StreamTypeOf(pAviInfo, pChunk->uiStreamNr);
    }
    LX_AVIREAD_TRY(MakeRoom(pAviInfo, kSizeBytes));
    LX_AVIREAD_TRY(ReadCounted(pAviInfo, pChunk->uiSize, kSize, Here()));
    if (pChunk->uiStreamNr >= LX_AVIREAD_STREAMS) {
        LX_LOG(kLevelError, "lxAviReadCore_NextChunk:Chunk with invalid stream number and size=%d", pChunk->uiSize);
        return RejectBadStream(pChunk);
    }
    if (bJumped == 1 && pAviInfo->bJumpToVideo == 1 && !IsVideoCode(HighHalf(id))) {
        pAviInfo->bJumpToVideo = 0;
        pAviInfo->bAudioSync = 0;
        return LX_ERR_AVIREAD_JUMP_NOT_VIDEO;
    }
    if (pChunk->eStreamType == LX_AVIREAD_STREAM_NONE) {
        LX_LOG(kLevelError, "chunk with invalid stream number and size=%d", pChunk->uiSize);
        return RejectBadStream(pChunk);
    }
    LX_AVIREAD_TRY(Dispatch(pAviInfo, pChunk, audioTrackNumber, subtitleTrackNumber, bJumped));
    pAviInfo->CurrentOffset += pChunk->uiSize;
    return LX_OK;
}

UInt32 NextChunk(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, UInt32 audioTrackNumber,
                 UInt32 subtitleTrackNumber, Bool* pJumped)
{
    if (pAviInfo->JumpOffset != 0) {
        LX_AVIREAD_TRY(ExecuteJump(pAviInfo, pJumped));
    }
    LX_LOG(kLevelChunk, "lxAviReadCore_NextChunk : Offset %d.%d moviSize=%d.%d", LX_HILO(pAviInfo->CurrentOffset),
           LX_HILO(pAviInfo->moviSize));
    UInt32 id = 0;
    LX_AVIREAD_TRY(FindMediaCode(pAviInfo, id));
    if (HighHalf(id) == TwoCC("dd")) {
        LX_AVIREAD_TRY(ReadDrm(pAviInfo, pChunk, id));
    } else {
        pChunk->bDrm = 0;
    }
    return TakeChunk(pAviInfo, pChunk, id, audioTrackNumber, subtitleTrackNumber, *pJumped);
}

} // namespace
} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_NextChunk(lxAviRead_ChunkData_t* chunkData, UInt32 audioTrackNumber, UInt32 subtitleTrackNumber,
                               Bool* pJumped)
{
    LX_LOG(kLevelEnter, "Entered lxAviReadCore_NextChunk ");
    LX_ASSERT(chunkData != Null, "chunkData!= Null",
              "Parameter for lxAviReadCore_NextChunk shouldn't be a null pointer");
    LX_ASSERT(pJumped != Null, "pJumped!= Null", "Parameter for lxAviReadCore_NextChunk shouldn't be a null pointer");
    LX_ASSERT(audioTrackNumber < LX_AVIREAD_AUDIO_TRACKS, "audioTrackNumber < LX_AVIREAD_AUDIO_TRACKS",
              "Invalid  track No in lxAviReadCore_NextChunk (%d must be < %s", audioTrackNumber,
              "LX_AVIREAD_AUDIO_TRACKS");
    if (chunkData == Null || pJumped == Null) {
        return LX_OK;
    }
    chunkData->bKeyFrame = 0;
    *pJumped = 0;
    const UInt32 result = NextChunk(&lxAviReadCore_AviInfo, chunkData, audioTrackNumber, subtitleTrackNumber, pJumped);
    chunkData->bValid = result == LX_OK ? 1 : 0;
    LX_LOG(kLevelLeave, "lxAviReadCore_NextChunk leave: RVAL: %x ", result);
    LX_LOG(kLevelLeave, "Leaving lxAviReadCore_NextChunk at line %d ", __LINE__);
    return result;
}

UInt32 lxAviReadCore_GetChunk(UInt32* buffer, UInt32 size)
{
    LX_ASSERT(buffer != Null, "buffer!= Null", "Parameter for lxAviReadCore_GetChunk shouldn't be a null pointer");
    return ReadForCaller(&lxAviReadCore_AviInfo, kCoreRead, buffer, size);
}
