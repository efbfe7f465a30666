// Delivery: the next chunk of the media data, and its payload.
//
// A pending jump is executed first (PendingJump.cpp). The search finds the header of the next media chunk
// (MediaSearch.cpp), and the kind of its stream decides what becomes of it (StreamChunks.cpp). The payload is left to the
// caller. The state's `CurrentOffset` is the position of the file, except while a payload that was counted has not been
// read yet.

#include "internal/Delivery.hpp"
#include "internal/PendingJump.hpp"
#include "internal/State.hpp"
#include "internal/Streams.hpp"

namespace lxAviReadCore {
namespace {

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

// Decides about a chunk whose header has been read.
UInt32 TakeChunk(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, UInt32 id, UInt32 audioTrackNumber,
                 UInt32 subtitleTrackNumber, Bool bJumped)
{
    if (FailedJumpsAreOver(pAviInfo) && bJumped == 1 && pAviInfo->bJumpToVideo == 1 &&
        !IsMainVideoStream(pAviInfo, pChunk->uiStreamNr)) {
        return LX_ERR_AVIREAD_JUMP_NOT_VIDEO;
    }
    if (pChunk->uiStreamNr >= LX_AVIREAD_STREAMS) {
        LX_LOG(kLevelError, "lxAviReadCore_NextChunk:Chunk with invalid stream number and size=%d", pChunk->uiSize);
        return RejectBadStream(pChunk);
    }
    if (bJumped == 1 && pAviInfo->bJumpToVideo == 1 && !IsVideoChunk(pAviInfo, id)) {
        pAviInfo->bJumpToVideo = 0;
        pAviInfo->bAudioSync = 0;
        return LX_ERR_AVIREAD_JUMP_NOT_VIDEO;
    }
    if (!IsOfKnownStream(*pChunk)) {
        LX_LOG(kLevelError, "chunk with invalid stream number and size=%d", pChunk->uiSize);
        return RejectBadStream(pChunk);
    }
    LX_AVIREAD_TRY(Dispatch(pAviInfo, pChunk, audioTrackNumber, subtitleTrackNumber, bJumped));
    pAviInfo->CurrentOffset += pChunk->uiSize;
    return LX_OK;
}

UInt32 FindAndTakeChunk(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, UInt32 audioTrackNumber,
                        UInt32 subtitleTrackNumber, Bool bJumped)
{
    LX_LOG(kLevelChunk, "lxAviReadCore_NextChunk : Offset %d.%d moviSize=%d.%d", LX_HILO(pAviInfo->CurrentOffset),
           LX_HILO(pAviInfo->moviSize));
    MediaHeader header = {};
    LX_AVIREAD_TRY(ReadMediaHeader(pAviInfo, pChunk, header));
    chunkStart = header.uiStart;
    return TakeChunk(pAviInfo, pChunk, header.uiId, audioTrackNumber, subtitleTrackNumber, bJumped);
}

UInt32 NextChunk(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, UInt32 audioTrackNumber,
                 UInt32 subtitleTrackNumber, Bool* pJumped)
{
    if (pAviInfo->JumpOffset == 0) {
        return FindAndTakeChunk(pAviInfo, pChunk, audioTrackNumber, subtitleTrackNumber, 0);
    }
    UInt32 result = ExecuteJump(pAviInfo, pJumped);
    if (result == LX_OK) {
        result = FindAndTakeChunk(pAviInfo, pChunk, audioTrackNumber, subtitleTrackNumber, 1);
    }
    return ConcludeJump(pAviInfo, pChunk, result);
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
