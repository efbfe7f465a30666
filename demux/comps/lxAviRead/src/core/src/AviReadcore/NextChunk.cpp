// Delivery: the next chunk of the media data.
//
//   "00dc" size payload …          media: its header is read and classified, its payload is left to the caller
//   "00dd" size descriptor "00dc"… a DRM descriptor, attached to the chunk that follows it
//   "ix00" size …, "JUNK" size …   stepped over in one piece
//   anything else                  slid over byte by byte until a media code lines up: pad bytes, list headers, damage
//
// Before a header is read, a pending jump is executed; where a `movi` list ends, the next segment takes over. The
// state's `CurrentOffset` always tells where the file stands, but for a payload that has been counted in advance.

#include "internal/Chunk.hpp"
#include "internal/State.hpp"

#include <algorithm>

namespace lxAviReadCore {
namespace {

constexpr UInt64 kMoviCodeBytes = 4; // relative positions count from the "movi" code
constexpr UInt32 kCodeBytes = 4;
constexpr UInt32 kSizeBytes = 4;
constexpr UInt32 kHeaderBytes = kCodeBytes + kSizeBytes;
constexpr UInt32 kDrmChunkBytes = kHeaderBytes + LX_AVIREAD_DRM_BYTES;
// Behind a "dd" code: its size, its descriptor, and the code of the next chunk; then the next chunk's size.
constexpr UInt32 kDrmBytes = kSizeBytes + LX_AVIREAD_DRM_BYTES + kCodeBytes;

constexpr const char* kIdText = LX_TEXT(kLevelError, "lxAviReadCore_NextChunk : Error reding data at line:%d");
constexpr const char* kSteppedSizeText = LX_TEXT(kLevelError, "lxAviReadCore_NextChunk : Error reading dwSize at line:%d");
constexpr const char* kSlideText = LX_TEXT(kLevelError, "lxAviReadCore_NextChunk : Error reding data1 at line:%d");
constexpr const char* kDrmSizeText = LX_TEXT(kLevelError, "lxAviReadCore_NextChunk : Error reding i at line:%d");
constexpr const char* kDrmText = LX_TEXT(kLevelError, "lxAviReadCore_NextChunk : Error reding wDrmKeyNr at line:%d");
constexpr const char* kSizeText = LX_TEXT(kLevelError, "lxAviReadCore_NextChunk : Error reding size at line:%d");

[[gnu::cold, gnu::noinline]] UInt32 ReportFailedRead(const char* pErrorText, int line)
{
    LX_LOG_TEXT(pErrorText, line);
    return LX_ERR_AVIREAD_READ;
}

// Every failure of a header read is the same to the caller, the end of the file and an abort included.
template <typename Record>
UInt32 ReadHeaderPart(lxAviReadCore_AviInfo_t* pAviInfo, Record& record, const char* pErrorText, int line)
{
    return ReadRecord(pAviInfo, record) == LX_OK ? LX_OK : ReportFailedRead(pErrorText, line);
}

// The same, and counted.
template <typename Record>
UInt32 ReadCounted(lxAviReadCore_AviInfo_t* pAviInfo, Record& record, const char* pErrorText, int line)
{
    LX_AVIREAD_TRY(ReadHeaderPart(pAviInfo, record, pErrorText, line));
    pAviInfo->CurrentOffset += sizeof record;
    return LX_OK;
}

// ---- Segments and room ----

// Whether positions are kept to the segments of the chain, and not to the one `movi` list of a plain file.
bool IsSegmented(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    return pAviInfo->bAvixPresent == 1 || pAviInfo->bAbsoluteOffsets == 1;
}

UInt64 StartOf(const lxAviReadCore_AvixRiff_t& segment) { return segment.moviDataOffset; }
UInt64 EndOf(const lxAviReadCore_AvixRiff_t& segment) { return segment.moviDataOffset + segment.moviDataSize; }

// The first `movi` list as a segment: all there is where no record was made.
lxAviReadCore_AvixRiff_t FirstMovi(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    return {pAviInfo->moviOffset, static_cast<UInt32>(pAviInfo->moviSize), Null, Null};
}

UInt64 Limit(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    if (!IsSegmented(pAviInfo)) {
        return pAviInfo->moviSize; // Quirk Q19: 4 bytes before the end, since positions start at 4
    }
    return EndOf(pAviInfo->pCurrentAvix != Null ? *pAviInfo->pCurrentAvix : FirstMovi(pAviInfo));
}

[[gnu::cold]] void LogEndOfMovi(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    LX_LOG(kLevelChunk, "\n*** EndOfMovi: (moviSize=%d.%d )Rewind %d.%d***\n", LX_HILO(pAviInfo->moviSize),
           LX_HILO(pAviInfo->moviOffset));
}

// The current list is exhausted: go to the first byte of the next one, or end.
[[gnu::cold]] UInt32 EnterNextSegment(lxAviReadCore_AviInfo_t* pAviInfo)
{
    lxAviReadCore_AvixRiff_t* const pNext =
        IsSegmented(pAviInfo) && pAviInfo->pCurrentAvix != Null ? pAviInfo->pCurrentAvix->pNextAvix : Null;
    if (pNext == Null) {
        LogEndOfMovi(pAviInfo);
        return LX_AVIREAD_END_OF_MEDIA;
    }
    pAviInfo->pCurrentAvix = pNext;
    if (lxalAviRead_FileSeekPossible == 0 || !SeekAndRemember(pAviInfo, StartOf(*pNext), kFromStart)) {
        LogEndOfMovi(pAviInfo);
        return LX_ERR_AVIREAD_SEEK;
    }
    pAviInfo->CurrentOffset = StartOf(*pNext);
    return LX_OK;
}

// Makes sure that `bytes` more belong to the list. Where they do not, the step that asks goes on at the first byte of
// the next list, without asking again.
UInt32 MakeRoom(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 bytes)
{
    const UInt64 limit = Limit(pAviInfo);
    const bool bHasRoom = pAviInfo->CurrentOffset <= limit && limit - pAviInfo->CurrentOffset >= bytes;
    return bHasRoom ? LX_OK : EnterNextSegment(pAviInfo); // Quirk Q20
}

// ---- The pending jump ----

bool IsVideoCode(UInt16 twocc) { return twocc == TwoCC("dc") || twocc == TwoCC("db"); }

// The segment that holds `target`, looked for from `pFrom` on; null when there is none. The end of the first segment
// looked at still belongs to it.
lxAviReadCore_AvixRiff_t* FindSegment(lxAviReadCore_AvixRiff_t* pFrom, UInt64 target)
{
    lxAviReadCore_AvixRiff_t* pSegment = pFrom;
    if (target < StartOf(*pSegment)) {
        do {
            pSegment = pSegment->pPrevAvix;
        } while (pSegment != Null && !(StartOf(*pSegment) <= target && target < EndOf(*pSegment)));
    } else if (target > EndOf(*pSegment)) {
        do {
            pSegment = pSegment->pNextAvix;
        } while (pSegment != Null && target >= EndOf(*pSegment));
    }
    return pSegment;
}

// Makes the segment that holds `target` the current one.
[[gnu::cold]] bool EnterSegmentOf(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 target)
{
    if (pAviInfo->pCurrentAvix == Null) {
        lxAviReadCore_AvixRiff_t onlySegment = FirstMovi(pAviInfo);
        return FindSegment(&onlySegment, target) != Null;
    }
    lxAviReadCore_AvixRiff_t* const pSegment = FindSegment(pAviInfo->pCurrentAvix, target);
    if (pSegment != Null) {
        pAviInfo->pCurrentAvix = pSegment;
    }
    return pSegment != Null;
}

// Whether `bytes` are a "dd" chunk and the identifier of the frame that it belongs to.
bool IsProtectedFrame(const UInt8 (&bytes)[kDrmChunkBytes + kCodeBytes])
{
    const auto drmId = Load<UInt32>(bytes);
    const auto drmSize = Load<UInt32>(bytes + kCodeBytes);
    const auto frameId = Load<UInt32>(bytes + kDrmChunkBytes);
    return HighHalf(drmId) == TwoCC("dd") && drmSize == LX_AVIREAD_DRM_BYTES && IsVideoCode(HighHalf(frameId)) &&
           LowHalf(drmId) == LowHalf(frameId);
}

// An index may list a protected frame at its own position: the jump then goes to the "dd" chunk directly before it.
[[gnu::cold]] UInt64 StartOfFrame(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 target)
{
    const UInt64 first = StartOf(pAviInfo->pCurrentAvix != Null ? *pAviInfo->pCurrentAvix : FirstMovi(pAviInfo));
    const UInt64 before = target - kDrmChunkBytes;
    UInt8 bytes[kDrmChunkBytes + kCodeBytes] = {};
    if (target < first + kDrmChunkBytes || !SeekAndRemember(pAviInfo, before, kFromStart) ||
        ReadRecord(pAviInfo, bytes) != LX_OK) {
        return target;
    }
    return IsProtectedFrame(bytes) ? before : target;
}

[[gnu::cold]] UInt32 SeekToJumpTarget(lxAviReadCore_AviInfo_t* pAviInfo)
{
    UInt64 target = pAviInfo->CurrentOffset;
    if (pAviInfo->bAbsoluteOffsets == 1) {
        if (!EnterSegmentOf(pAviInfo, target)) {
            return LX_ERR_AVIREAD_JUMP_RANGE;
        }
    } else {
        target += pAviInfo->moviOffset - kMoviCodeBytes;
    }
    if (FollowsFormat(pAviInfo)) {
        target = StartOfFrame(pAviInfo, target);
        pAviInfo->CurrentOffset = target;
    }
    SeekAndRemember(pAviInfo, target, kFromStart);
    lxalAviRead_VideoFrame = 0; // Quirk Q21: until the key frame is met
    return LX_OK;
}

[[gnu::cold]] UInt32 ExecuteJump(lxAviReadCore_AviInfo_t* pAviInfo, Bool* pJumped)
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

// Steps over a chunk whose identifier has been read, and reads the next identifier.
[[gnu::cold]] UInt32 StepOver(lxAviReadCore_AviInfo_t* pAviInfo, UInt32& id)
{
    UInt32 size = 0;
    LX_AVIREAD_TRY(ReadCounted(pAviInfo, size, kSteppedSizeText, __LINE__));
    size = MakeEven(size);
    LX_AVIREAD_TRY(MakeRoom(pAviInfo, size));
    if (LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size)) != LX_OK) {
        return LX_ERR_AVIREAD_READ;
    }
    pAviInfo->CurrentOffset += size;
    LX_AVIREAD_TRY(MakeRoom(pAviInfo, kCodeBytes));
    return ReadCounted(pAviInfo, id, kIdText, __LINE__);
}

// Whether the search ends at an identifier. Most bytes of a file end none.
constexpr bool MeansSomething(UInt32 id, bool bIndexChunks)
{
    const UInt8 last = ByteOf(id, 3);
    const bool bMayEndOne = static_cast<UInt8>(last - 'b') <= 'd' - 'b' || last == 't' || last == 'K';
    return (bMayEndOne && (IsMediaCode(HighHalf(id)) || id == FourCC("JUNK"))) ||
           (bIndexChunks && LowHalf(id) == TwoCC("ix"));
}

constexpr UInt32 SlideOn(UInt32 id, UInt8 next)
{
    return id >> 8 | static_cast<UInt32>(next) << 24;
}

// Slides on over what is read ahead and belongs to the list, to the next identifier that means something.
void SlideThroughBuffered(lxAviReadCore_AviInfo_t* pAviInfo, UInt32& id)
{
    const UInt64 limit = Limit(pAviInfo);
    const UInt64 room = pAviInfo->CurrentOffset <= limit ? limit - pAviInfo->CurrentOffset : 0;
    const UInt64 bytes = std::min<UInt64>(room, BufferedBytes(pAviInfo->pFile));
    const UInt8* const pBytes = BufferedAt(pAviInfo->pFile);
    const bool bIndexChunks = pAviInfo->bIndxPresent == 1;
    size_t passed = 0;
    while (passed < bytes && !MeansSomething(id, bIndexChunks)) {
        id = SlideOn(id, pBytes[passed++]);
    }
    PassBuffered(pAviInfo->pFile, passed);
    pAviInfo->CurrentOffset += passed;
}

// Quirk Q44: lets the identifier slide further over the file, be it a list header, a pad byte or damage.
UInt32 Slide(lxAviReadCore_AviInfo_t* pAviInfo, UInt32& id)
{
    LX_AVIREAD_TRY(MakeRoom(pAviInfo, 1));
    UInt8 next = 0;
    LX_AVIREAD_TRY(ReadCounted(pAviInfo, next, kSlideText, __LINE__));
    id = SlideOn(id, next);
    SlideThroughBuffered(pAviInfo, id);
    return LX_OK;
}

UInt32 FindMediaCode(lxAviReadCore_AviInfo_t* pAviInfo, UInt32& id)
{
    LX_AVIREAD_TRY(MakeRoom(pAviInfo, kHeaderBytes));
    LX_AVIREAD_TRY(ReadCounted(pAviInfo, id, kIdText, __LINE__));
    while (!IsMediaCode(HighHalf(id))) {
        LX_AVIREAD_TRY(IsSteppedOver(pAviInfo, id) ? StepOver(pAviInfo, id) : Slide(pAviInfo, id));
    }
    const char twocc[] = {static_cast<char>(ByteOf(id, 2)), static_cast<char>(ByteOf(id, 3)), '\0'};
    LX_LOG_OFTEN(kLevelChunk, "twocc='%2s'(0x%x) data=0x%x Offset=%d", twocc, HighHalf(id), id,
                 static_cast<UInt32>(pAviInfo->CurrentOffset));
    return LX_OK;
}

// Reads a DRM descriptor and the identifier of the chunk that it belongs to.
[[gnu::cold]] UInt32 ReadDrm(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, UInt32& id)
{
    UInt32 size = 0; // Quirk Q22: whatever it says, 10 bytes are read, and the next code counts as a chunk's
    LX_AVIREAD_TRY(ReadHeaderPart(pAviInfo, size, kDrmSizeText, __LINE__));
    LX_AVIREAD_TRY(MakeRoom(pAviInfo, kDrmBytes + kSizeBytes));
    UInt32 result = ReadHeaderPart(pAviInfo, pChunk->DrmInfo, kDrmText, __LINE__);
    if (result == LX_OK) {
        result = ReadHeaderPart(pAviInfo, id, kIdText, __LINE__);
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

[[gnu::cold]] UInt32 RejectBadStream(lxAviRead_ChunkData_t* pChunk)
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
    default: return LX_OK; // no file brings it about
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
    LX_AVIREAD_TRY(ReadCounted(pAviInfo, pChunk->uiSize, kSizeText, __LINE__));
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
    LX_LOG_OFTEN(kLevelChunk, "lxAviReadCore_NextChunk : Offset %d.%d moviSize=%d.%d", LX_HILO(pAviInfo->CurrentOffset),
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
    LX_LOG_OFTEN(kLevelEnter, "Entered lxAviReadCore_NextChunk ");
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
    const UInt32 result =
        NextChunk(&lxAviReadCore_AviInfo, chunkData, audioTrackNumber, subtitleTrackNumber, pJumped);
    chunkData->bValid = result == LX_OK ? 1 : 0;
    LX_LOG_OFTEN(kLevelLeave, "lxAviReadCore_NextChunk leave: RVAL: %x ", result);
    LX_LOG_OFTEN(kLevelLeave, "Leaving lxAviReadCore_NextChunk at line %d ", __LINE__);
    return result;
}

UInt32 lxAviReadCore_GetChunk(UInt32* buffer, UInt32 size)
{
    LX_ASSERT(buffer != Null, "buffer!= Null", "Parameter for lxAviReadCore_GetChunk shouldn't be a null pointer");
    return ReadForCaller(&lxAviReadCore_AviInfo, kCoreRead, buffer, size);
}
