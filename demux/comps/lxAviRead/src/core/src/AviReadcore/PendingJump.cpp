// The pending jump.
//
//   seek or step ──► pending ──► executed by the next NextChunk ──► the chunk that the jump was made for
//                       │                     └─► it fails: LX_ERR_AVIREAD_JUMP_RANGE, _JUMP_NOT_VIDEO, …
//                       └─ RewindToStart and ParseIndex drop it, another one takes its place
//
// In the format mode a jump that fails leaves no trace: delivery goes on where it stood when the jump was armed. In the
// default mode the counters and the sync entry are those of the jump from the moment when it is armed.

#include "internal/PendingJump.hpp"
#include "internal/Delivery.hpp"
#include "internal/Streams.hpp"

#include <algorithm>
#include <iterator>

namespace lxAviReadCore {
namespace {

// All that arming or executing a jump changes.
struct Place {
    UInt64 uiOffset; // these three are known when the jump is executed
    Segment* pSegment;
    UInt64 uiTarget;
    UInt32 uiVideoFrame;
    UInt32 uiNextVideoFrame;
    UInt32 audioFrame[LX_AVIREAD_AUDIO_TRACKS];
    UInt64 audioBytes[LX_AVIREAD_AUDIO_TRACKS];
    AudioTrack audio[LX_AVIREAD_AUDIO_TRACKS];
    UInt32 uiSyncLeafNr;
    UInt32 uiSyncItemNr;
    Bool bAudioSync;
    Bool bJumpToVideo;
};

Place s_place;
bool s_bPlaceKnown;

void GoBack(lxAviReadCore_AviInfo_t* pAviInfo)
{
    pAviInfo->CurrentOffset = s_place.uiOffset;
    pAviInfo->pCurrentAvix = s_place.pSegment;
    lxalAviRead_VideoFrame = s_place.uiVideoFrame;
    nextVideoFrame = s_place.uiNextVideoFrame;
    std::copy(std::begin(s_place.audioFrame), std::end(s_place.audioFrame), lxalAviRead_AudioFrame);
    std::copy(std::begin(s_place.audioBytes), std::end(s_place.audioBytes), AudioByteposition);
    std::copy(std::begin(s_place.audio), std::end(s_place.audio), audioTracks);
    pAviInfo->audioSyncLeafNr = s_place.uiSyncLeafNr;
    pAviInfo->audioSyncItemNr = s_place.uiSyncItemNr;
    pAviInfo->bAudioSync = s_place.bAudioSync;
    pAviInfo->bJumpToVideo = s_place.bJumpToVideo;
    SeekAndRemember(pAviInfo, FileOffsetOf(pAviInfo, s_place.uiOffset), kFromStart);
}

// Whether `bytes` are a "dd" chunk and the identifier of the frame that it belongs to.
bool IsProtectedFrame(const lxAviReadCore_AviInfo_t* pAviInfo, const UInt8 (&bytes)[kDrmChunkBytes + kChunkCodeBytes])
{
    const auto drmId = Load<UInt32>(bytes);
    const auto drmSize = Load<UInt32>(bytes + kChunkCodeBytes);
    const auto frameId = Load<UInt32>(bytes + kDrmChunkBytes);
    return HighHalf(drmId) == TwoCC("dd") && drmSize == LX_AVIREAD_DRM_BYTES && IsVideoChunk(pAviInfo, frameId) &&
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
    return IsProtectedFrame(pAviInfo, bytes) ? before : target;
}

UInt32 SeekToTarget(lxAviReadCore_AviInfo_t* pAviInfo)
{
    UInt64 target = FileOffsetOf(pAviInfo, pAviInfo->CurrentOffset);
    if (pAviInfo->bAbsoluteOffsets == 1 && !EnterSegmentOf(pAviInfo, target)) {
        return LX_ERR_AVIREAD_JUMP_RANGE;
    }
    if (ProtectedFramesHaveTwoStarts(pAviInfo)) {
        target = StartOfFrame(pAviInfo, target);
        pAviInfo->CurrentOffset = target;
    }
    if (!SeekAndRemember(pAviInfo, target, kFromStart) && FailedJumpsAreOver(pAviInfo)) {
        return LX_ERR_AVIREAD_SEEK;
    }
    lxalAviRead_VideoFrame = 0; // Quirk Q21: until the key frame is met
    nextVideoFrame = 0;
    AwaitAudio(pAviInfo, target);
    return LX_OK;
}

// Whether a jump has led to no chunk, or not to its key frame.
bool IsFailedJump(UInt32 result)
{
    switch (result) {
    case LX_ERR_AVIREAD_JUMP_RANGE:
    case LX_ERR_AVIREAD_JUMP_NOT_VIDEO:
    case LX_ERR_AVIREAD_NO_KEY_FRAME:
    case LX_ERR_AVIREAD_SEEK:
    case LX_ERR_AVIREAD_EOF:
    case LX_ERR_AVIREAD_READ: return true;
    default: return false;
    }
}

} // namespace

void RememberPlace(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    if (pAviInfo->JumpOffset != 0 || !FailedJumpsAreOver(pAviInfo)) {
        return;
    }
    s_place.uiVideoFrame = lxalAviRead_VideoFrame;
    s_place.uiNextVideoFrame = nextVideoFrame;
    std::copy(std::begin(lxalAviRead_AudioFrame), std::end(lxalAviRead_AudioFrame), s_place.audioFrame);
    std::copy(std::begin(AudioByteposition), std::end(AudioByteposition), s_place.audioBytes);
    std::copy(std::begin(audioTracks), std::end(audioTracks), s_place.audio);
    s_place.uiSyncLeafNr = pAviInfo->audioSyncLeafNr;
    s_place.uiSyncItemNr = pAviInfo->audioSyncItemNr;
    s_place.bAudioSync = pAviInfo->bAudioSync;
    s_place.bJumpToVideo = pAviInfo->bJumpToVideo;
    s_bPlaceKnown = true;
}

void ForgetPlace() { s_bPlaceKnown = false; }

PendingJump TakePendingJump(lxAviReadCore_AviInfo_t* pAviInfo)
{
    const PendingJump pending = {pAviInfo->JumpOffset,      lastPlayedKeyFrame,   pAviInfo->audioSyncLeafNr,
                                 pAviInfo->audioSyncItemNr, pAviInfo->bAudioSync, pAviInfo->bJumpToVideo};
    DropJump(pAviInfo);
    return pending;
}

void ArmAgain(lxAviReadCore_AviInfo_t* pAviInfo, const PendingJump& pending)
{
    if (pending.uiTarget == 0) {
        return;
    }
    RememberPlace(pAviInfo);
    pAviInfo->JumpOffset = pending.uiTarget;
    lastPlayedKeyFrame = pending.lastPlayed;
    pAviInfo->audioSyncLeafNr = pending.uiSyncLeafNr;
    pAviInfo->audioSyncItemNr = pending.uiSyncItemNr;
    pAviInfo->bAudioSync = pending.bAudioSync;
    pAviInfo->bJumpToVideo = pending.bJumpToVideo;
}

void DropJump(lxAviReadCore_AviInfo_t* pAviInfo) { pAviInfo->JumpOffset = 0; }

UInt32 ExecuteJump(lxAviReadCore_AviInfo_t* pAviInfo, Bool* pJumped)
{
    // a caller may have skipped a payload since the jump was armed
    s_place.uiOffset = pAviInfo->CurrentOffset;
    s_place.pSegment = pAviInfo->pCurrentAvix;
    static_cast<void>(TakeForeignPayload());
    s_place.uiTarget = pAviInfo->JumpOffset;
    pAviInfo->CurrentOffset = pAviInfo->JumpOffset;
    *pJumped = 1;
    LX_ASSERT(lxalAviRead_FileSeekPossible, "lxalAviRead_FileSeekPossible",
              "Jump is set but fseek doesn't work. Programming error");
    if (lxalAviRead_FileSeekPossible != 0) {
        LX_AVIREAD_TRY(SeekToTarget(pAviInfo));
    } else if (FailedJumpsAreOver(pAviInfo)) {
        return LX_ERR_AVIREAD_SEEK;
    }
    pAviInfo->JumpOffset = 0;
    LX_LOG(kLevelSeek, "lxAviReadCore_NextChunk : Offset %d.%d", LX_HILO(pAviInfo->CurrentOffset));
    return LX_OK;
}

UInt32 ConcludeJump(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, UInt32 result)
{
    if (!FailedJumpsAreOver(pAviInfo)) {
        return result;
    }
    if (result == LX_ERR_AVIREAD_ABORTED) { // the next call makes the jump again
        pAviInfo->CurrentOffset = s_place.uiOffset;
        pAviInfo->pCurrentAvix = s_place.pSegment;
        pAviInfo->JumpOffset = s_place.uiTarget;
        return result;
    }
    if (result == LX_AVIREAD_END_OF_MEDIA) {
        result = LX_ERR_AVIREAD_JUMP_RANGE; // the target is where the last list ends
    }
    if (IsFailedJump(result)) {
        DropJump(pAviInfo);
        pChunk->uiSize = 0;
        if (s_bPlaceKnown) {
            GoBack(pAviInfo);
        }
    }
    return result;
}

} // namespace lxAviReadCore
