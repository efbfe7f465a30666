// What becomes of a media chunk, by the kind of its stream: delivered, or rejected and why.
//
// Frame numbers and byte positions are counted here. After a jump the sync entry (`audioSyncLeafNr`,
// `audioSyncItemNr`) is where audio and video resume together:
//
//   ┆ audio ┆ video ┆ audio ┆ KEY ┆ audio ┆ video
//     before          sync    sync entry
//   └─ dropped ─────┘ └─ trimmed to one block before the key frame's time
//
// In the default mode only the first audio chunk is checked. In the format mode every audio chunk before the sync chunk is
// dropped, and each track counts from the chunk that the table names (AudioResume.cpp).

#include "internal/AudioResume.hpp"
#include "internal/Chunk.hpp"
#include "internal/KeyFrames.hpp"
#include "internal/Streams.hpp"

#include <algorithm>

namespace lxAviReadCore {
namespace {

// Where the chunk begins whose header has just been read. A protected frame begins with its "dd" chunk, which an
// OpenDML index does not list.
UInt64 ChunkStart(const lxAviReadCore_AviInfo_t* pAviInfo, const lxAviRead_ChunkData_t* pChunk)
{
    if (pChunk->bDrm == 1) {
        return DrmChunksAreExact(pAviInfo) ? chunkStart : pAviInfo->CurrentOffset - kChunkHeaderBytes - kDrmChunkBytes;
    }
    return pAviInfo->CurrentOffset - kChunkHeaderBytes;
}

// The sync entry; the first entry where the table has no such entry any more, and null only without a table.
const Entry* SyncEntry(const lxAviReadCore_AviInfo_t* pAviInfo, const KeyFrameTable& table)
{
    const Entry* const pEntry = table.At(pAviInfo->audioSyncLeafNr, pAviInfo->audioSyncItemNr);
    return pEntry != Null ? pEntry : table.At(0, 0);
}

// ---- Video ----

UInt32 NumberFrame(lxAviRead_ChunkData_t* pChunk, UInt32 frameNumber)
{
    lxalAviRead_VideoFrame = frameNumber;
    nextVideoFrame = frameNumber + 1;
    pChunk->uiFrameNumber = frameNumber;
    return LX_OK;
}

// The number of a frame that the table does not name. In the default mode the first frame without a table has number 1.
UInt32 NextFrameNumber(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    return FramesCountFromZero(pAviInfo) ? nextVideoFrame : lxalAviRead_VideoFrame + 1;
}

Position FindKeyFrame(const lxAviReadCore_AviInfo_t* pAviInfo, const KeyFrameTable& table,
                      const lxAviRead_ChunkData_t* pChunk)
{
    const UInt64 start = ChunkStart(pAviInfo, pChunk);
    Position found = FindKeyFrameAt(table, start & PositionMask(pAviInfo));
    if (found.valid == 0 && pChunk->bDrm == 1 && ProtectedFramesHaveTwoStarts(pAviInfo)) {
        found = FindKeyFrameAt(table, pAviInfo->CurrentOffset - kChunkHeaderBytes);
    }
    if (pChunk->bDrm == 1) {
        LX_LOG(kLevelChunk, "lxAviReadCore_NextChunk : Drm-ed chunk with offset=%d.%d %s", LX_HILO(start),
               found.valid == 1 ? "Is a key frame" : "Is not a key frame");
    } else {
        LX_LOG(kLevelChunk, "Not drm-ed Chunk with offset=%d.%d %s", LX_HILO(start),
               found.valid == 1 ? "is a video K F" : "is not K F");
    }
    return found;
}

// Stores the key frame as the one played last, and ends a jump to video. Null for a position without an entry.
const Entry* MeetKeyFrame(lxAviReadCore_AviInfo_t* pAviInfo, const KeyFrameTable& table, const Position& found,
                          Bool bJumped)
{
    lastPlayedKeyFrame = found;
    const Entry* const pEntry = table.At(found);
    LX_ASSERT(found.leafNr < pAviInfo->KeyFramesListAsArrayLength,
              "searchResult.leafNr < pAviInfo->KeyFramesListAsArrayLength",
              "SearchResultLeaf >= KeyFramesListAsArrayLength");
    LX_ASSERT(pEntry != Null, "searchResult.itemNr < pSearchLeaf->arrayLength",
              "itemNr in the search result leaf >= arrayLength of the leaf");
    if (pEntry == Null) {
        return Null;
    }
    LX_LOG(kLevelChunk, "Key Fr: frame %d,videoChunkOffset %d.%d, lxalAviRead_VideoFrame=%d", pEntry->videoFrameNumber,
           LX_HILO(pEntry->videoChunkOffset), lxalAviRead_VideoFrame);
    lxalAviRead_VideoFrame = pEntry->videoFrameNumber;
    nextVideoFrame = pEntry->videoFrameNumber + 1;
    if (bJumped == 1 && pAviInfo->bJumpToVideo == 1) {
        pAviInfo->bJumpToVideo = 0;
    }
    return pEntry;
}

// A frame that is no key frame, where a jump to video has just been made to one.
UInt32 RejectJump(lxAviReadCore_AviInfo_t* pAviInfo)
{
    LX_LOG(kLevelSeek, "jmp to video chunk didnt find KF,reject the jmp");
    pAviInfo->bAudioSync = 0;
    pAviInfo->bJumpToVideo = 0;
    return LX_ERR_AVIREAD_NO_KEY_FRAME;
}

// Looks the chunk up in the table, and concludes a jump to it. `pFound` is the key frame's entry, or null.
UInt32 MeetFrame(lxAviReadCore_AviInfo_t* pAviInfo, const KeyFrameTable& table, const lxAviRead_ChunkData_t* pChunk,
                 Bool bJumped, Position& found, const Entry*& pFound)
{
    found = FindKeyFrame(pAviInfo, table, pChunk);
    pFound = found.valid == 1 ? MeetKeyFrame(pAviInfo, table, found, bJumped) : Null;
    return pFound == Null && bJumped == 1 && pAviInfo->bJumpToVideo == 1 ? RejectJump(pAviInfo) : LX_OK;
}

// In the default mode key frames are compared with the sync entry by time, other frames by number.
bool IsBeforeSyncPoint(const lxAviReadCore_AviInfo_t* pAviInfo, const lxAviRead_ChunkData_t* pChunk,
                       const Entry* pFound, const Entry& sync)
{
    if (SyncIsByFrameNumber(pAviInfo)) {
        return (pFound != Null ? pFound->videoFrameNumber : NextFrameNumber(pAviInfo)) < sync.videoFrameNumber;
    }
    if (pFound == Null) {
        return sync.videoFrameNumber > lxalAviRead_VideoFrame;
    }
    return lxAviReadCore_GetStreamTime(pChunk->uiStreamNr, pFound->videoFrameNumber, 0) <
           lxAviReadCore_GetStreamTime(pChunk->uiStreamNr, sync.videoFrameNumber, 0);
}

// Quirk Q43: the sync rule holds for every video chunk, not only after a jump. Before any jump the sync entry is the
// first entry of the table.
UInt32 ApplySyncRule(const lxAviReadCore_AviInfo_t* pAviInfo, const KeyFrameTable& table, lxAviRead_ChunkData_t* pChunk,
                     const Entry* pFound)
{
    if (IsBeforeSyncPoint(pAviInfo, pChunk, pFound, *SyncEntry(pAviInfo, table))) {
        LX_LOG(kLevelSeek, "Jumped Positn is < than the sync positn, reject the jmp");
        return LX_ERR_AVIREAD_VIDEO_SKIPPED;
    }
    if (pFound != Null) {
        pChunk->bKeyFrame = 1;
        return NumberFrame(pChunk, pFound->videoFrameNumber);
    }
    LX_LOG(kLevelChunk, " video is not a KF,lxalAviRead_VideoFrame=%d offset=%d.%d", lxalAviRead_VideoFrame,
           LX_HILO(pAviInfo->CurrentOffset));
    pChunk->bKeyFrame = onlyKeyFrames ? 1 : 0;
    return NumberFrame(pChunk, NextFrameNumber(pAviInfo));
}

// Decides about a chunk of the main video stream in a file with a key-frame table.
UInt32 ProcessIndexedVideo(lxAviReadCore_AviInfo_t* pAviInfo, const KeyFrameTable& table, lxAviRead_ChunkData_t* pChunk,
                           Bool bJumped)
{
    Position found = {};
    const Entry* pFound = Null;
    const UInt32 result = MeetFrame(pAviInfo, table, pChunk, bJumped, found, pFound);
    LX_LOG(kLevelChunk, "Search Result's validity =%d Leaf=%d Item=%d audioSynkInfoSet's Leaf: %d Item:%d", found.valid,
           found.leafNr, found.itemNr, pAviInfo->audioSyncLeafNr, pAviInfo->audioSyncItemNr);
    return result != LX_OK ? result : ApplySyncRule(pAviInfo, table, pChunk, pFound);
}

// ---- Audio ----

// Where an audio chunk begins whose header has just been read.
UInt64 StartOfAudio(const lxAviReadCore_AviInfo_t* pAviInfo) { return pAviInfo->CurrentOffset - kChunkHeaderBytes; }

// In the format mode a track counts from where it resumes.
void CountOtherTrack(const lxAviReadCore_AviInfo_t* pAviInfo, const lxAviRead_ChunkData_t* pChunk, UInt32 track)
{
    if (AudioResumesAtItsChunk(pAviInfo) &&
        (!MeetAudio(pAviInfo, track, StartOfAudio(pAviInfo)) || audioTracks[track].eCount != AudioCount::Exact)) {
        return;
    }
    CountAudio(pAviInfo, pChunk->uiStreamNr, track, pChunk->uiSize);
}

// Counts audio of a track that is not played, so that a later switch to that track finds its counters right.
UInt32 RejectOtherTrack(const lxAviReadCore_AviInfo_t* pAviInfo, const lxAviRead_ChunkData_t* pChunk, UInt32 track,
                        UInt32 audioTrackNumber)
{
    LX_LOG(kLevelChunk, "Selected AudioTrk Num(%d) and this chunk's stream No=%d don't match", audioTrackNumber,
           pChunk->uiStreamNr);
    if (track < LX_AVIREAD_AUDIO_TRACKS) {
        CountOtherTrack(pAviInfo, pChunk, track);
    }
    LX_LOG(kLevelChunk, "lxAviReadCore_NextChunk : audio, offset=%d.%d", LX_HILO(pAviInfo->CurrentOffset));
    return LX_ERR_AVIREAD_AUDIO_SKIPPED;
}

void PlaceAudio(lxAviRead_ChunkData_t* pChunk, UInt32 track)
{
    pChunk->uiBytePosition = AudioByteposition[track];
    pChunk->uiFrameNumber = lxalAviRead_AudioFrame[track];
}

// By how much the chunk begins before the key frame that it resumes with.
struct Lead {
    UInt32 uiVideoTime; // milliseconds
    UInt32 uiAudioTime;
};

Lead LeadOf(const lxAviReadCore_AviInfo_t* pAviInfo, const lxAviRead_ChunkData_t* pChunk, const Entry& sync)
{
    return {lxAviReadCore_GetStreamTime(static_cast<UInt32>(pAviInfo->videoStreamNr), sync.videoFrameNumber, 0),
            lxAviReadCore_GetStreamTime(pChunk->uiStreamNr, pChunk->uiFrameNumber,
                                        pChunk->uiBytePosition & TrimMask(pAviInfo))};
}

// What is dropped: blocks of so many bytes. One block before the key frame's time is kept.
struct LeadingBlocks {
    UInt32 uiCount;
    UInt32 uiBytes;
};

// In the format mode: samples.
LeadingBlocks LeadingSamples(const lxAviRead_Strh_t& header, const Lead& lead, UInt32 sampleBytes)
{
    if (lead.uiVideoTime <= lead.uiAudioTime || header.dwScale == 0 || sampleBytes == 0) {
        return {};
    }
    const UInt64 msec = lead.uiVideoTime - lead.uiAudioTime;
    const UInt64 samples = msec * header.dwRate / (UInt64{header.dwScale} * 1000);
    const UInt64 dropped = samples > 0 ? samples - 1 : 0;
    return {static_cast<UInt32>(std::min<UInt64>(dropped, 0xFFFFFFFFu)), sampleBytes};
}

// In the default mode: blocks of dwScale bytes, computed in single precision.
LeadingBlocks LeadingBlocksOfScale(const lxAviRead_Strh_t& header, const lxAviRead_StrfAudio_t& format,
                                   const Lead& lead)
{
    const float block = static_cast<float>(static_cast<double>(header.dwScale) * 1000.0) /
                        static_cast<float>(format.nAvgBytesPerSec); // milliseconds
    const float blocks =
        (static_cast<float>(lead.uiVideoTime) - (block + static_cast<float>(lead.uiAudioTime))) / block;
    return {ToUInt32(blocks), header.dwScale};
}

// Drops the leading audio of the first chunk after a jump, unless nothing would be left of it.
void TrimLeadingAudio(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, const Entry& sync)
{
    const lxAviReadCore_StreamInfo_t& stream = *FindStream(pAviInfo, pChunk->uiStreamNr);
    const auto format = FormatOf<lxAviRead_StrfAudio_t>(&stream);
    if (!AudioCodecOf(format.wFormatTag).bTrimmed || !IsConstantBitRate(stream.Header, format)) {
        return;
    }
    const Lead lead = LeadOf(pAviInfo, pChunk, sync);
    const LeadingBlocks leading =
        AudioIsTrimmedInSamples(pAviInfo)
            ? LeadingSamples(stream.Header, lead, AudioUnitsOf(pAviInfo, stream).uiSampleBytes)
            : LeadingBlocksOfScale(stream.Header, format, lead);
    const UInt64 bytes = UInt64{leading.uiCount} * leading.uiBytes;
    if (leading.uiCount == 0 || bytes >= pChunk->uiSize) {
        return;
    }
    const UInt32 skipped = lxAviReadCore_RemoveChunk(static_cast<UInt32>(bytes));
    if (skipped == LX_ERR_AVIREAD_ABORTED && AbortsAreHeard(pAviInfo)) {
        return; // nothing was skipped
    }
    // Any other failure is ignored: if the skip fails, reading the payload fails, too.
    pChunk->uiBytePosition += bytes;
    pAviInfo->CurrentOffset += bytes;
    pChunk->uiSize -= static_cast<UInt32>(bytes);
}

// The first chunk of the selected track after a jump.
UInt32 ProcessFirstAudioAfterJump(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, UInt32 track,
                                  const Entry& sync)
{
    const UInt64 start = StartOfAudio(pAviInfo);
    if (start < sync.audioChunkOffset[track]) {
        LX_LOG(kLevelSeek, "1st Audio Chk after jmp,skip it as the Chk offset < the actual offset ");
        LX_LOG(kLevelSeek, "Actual offset=%d.%d,  Leaf:%d,Item:%d,Chunk Offset=%d.%d",
               LX_HILO(sync.audioChunkOffset[track]), pAviInfo->audioSyncLeafNr, pAviInfo->audioSyncItemNr,
               LX_HILO(start));
        return LX_ERR_AVIREAD_AUDIO_SKIPPED;
    }
    PlaceAudio(pChunk, track);
    LX_LOG(kLevelSeek, "1st audio chunk After Jump(fr#=%d Byte postn=%d.%d) ", pChunk->uiFrameNumber,
           LX_HILO(pChunk->uiBytePosition));
    LX_LOG(kLevelSeek, "Offset =%d.%d , Leaf = %d,Item = %d) Chunk Offset=%d.%d", LX_HILO(sync.audioChunkOffset[track]),
           pAviInfo->audioSyncLeafNr, pAviInfo->audioSyncItemNr, LX_HILO(start));
    const UInt32 size = pChunk->uiSize; // counted whole, whatever is trimmed
    TrimLeadingAudio(pAviInfo, pChunk, sync);
    CountAudio(pAviInfo, pChunk->uiStreamNr, track, size);
    return LX_OK;
}

// A chunk of the selected track, other than the first after a jump.
UInt32 DeliverAudio(const lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, UInt32 track)
{
    PlaceAudio(pChunk, track);
    CountAudio(pAviInfo, pChunk->uiStreamNr, track, pChunk->uiSize);
    LX_LOG(kLevelChunk, "AudioChunk %d (audioSync not set)", pChunk->uiFrameNumber);
    return LX_OK;
}

// Makes the counters of the selected track those of the chunk, in the format mode.
UInt32 ResumeAudio(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, UInt32 track)
{
    const UInt64 start = StartOfAudio(pAviInfo);
    if (!MeetAudio(pAviInfo, track, start)) {
        LX_LOG(kLevelSeek, "audio chunk at %d.%d before the sync chunk", LX_HILO(start));
        return LX_ERR_AVIREAD_AUDIO_SKIPPED;
    }
    const UInt32 result = CountPassedAudio(pAviInfo, track, start);
    pChunk->uiSize = result == LX_OK ? pChunk->uiSize : 0; // delivery stands before the chunk again
    return result;
}

// Whether a chunk is the first of its track after a jump; not asked a second time. The default mode checks one chunk after
// a jump and no other.
bool IsFirstAfterJump(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 track)
{
    const bool bFirst = allTracks ? !audioTracks[track].bResumed : pAviInfo->bAudioSync == 1;
    audioTracks[track].bResumed = true;
    pAviInfo->bAudioSync = 0;
    return bFirst;
}

UInt32 ProcessSelectedAudio(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, UInt32 track)
{
    if (AudioResumesAtItsChunk(pAviInfo)) {
        LX_AVIREAD_TRY(ResumeAudio(pAviInfo, pChunk, track));
    }
    const Entry* const pSync = IsFirstAfterJump(pAviInfo, track) ? SyncEntry(pAviInfo, KeyFrameTable(pAviInfo)) : Null;
    return pSync != Null ? ProcessFirstAudioAfterJump(pAviInfo, pChunk, track, *pSync)
                         : DeliverAudio(pAviInfo, pChunk, track);
}

} // namespace
} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_ProcessNextSubtitleChunk(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* chunkData,
                                              UInt32 subtitleTrackNumber)
{
    const UInt32 track = TrackOf(pAviInfo, chunkData->uiStreamNr);
    LX_LOG(kLevelChunk, "Chunk StreamNo:=%d,track=%d,size=%d, Current track:=%d", chunkData->uiStreamNr, track,
           chunkData->uiSize, subtitleTrackNumber);
    chunkData->eStreamType = LX_AVIREAD_STREAM_SUBTITLE;
    chunkData->bValid = allTracks || track == subtitleTrackNumber ? 1 : 0;
    return chunkData->bValid == 1 ? LX_OK : LX_ERR_AVIREAD_SUBTITLE_SKIPPED;
}

UInt32 lxAviReadCore_ProcessNextVideoChunk(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* chunkData,
                                           Bool jumped)
{
    chunkData->bKeyFrame = 0;
    chunkData->eStreamType = LX_AVIREAD_STREAM_VIDEO;
    const KeyFrameTable table(pAviInfo);
    UInt32 result = LX_ERR_AVIREAD_VIDEO_SKIPPED;
    if (!IsMainVideoStream(pAviInfo, chunkData->uiStreamNr)) {
        LX_LOG(kLevelError, "Video chunk with invalid stream number and size=%d", chunkData->uiSize);
    } else if (table.IsEmpty()) {
        LX_LOG(kLevelChunk, "MetaData not avalaible for validity ");
        chunkData->bKeyFrame = onlyKeyFrames ? 1 : 0;
        result = NumberFrame(chunkData, NextFrameNumber(pAviInfo));
    } else {
        result = ProcessIndexedVideo(pAviInfo, table, chunkData, jumped);
    }
    chunkData->bValid = result == LX_OK ? 1 : 0;
    LX_LOG(kLevelLeave, "lxAviReadCore_ProcessNextVideoChunk with rval %x", result);
    return result;
}

UInt32 lxAviReadCore_ProcessNextAudioChunk(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* chunkData,
                                           UInt32 audioTrackNumber)
{
    const UInt32 track = TrackOf(pAviInfo, chunkData->uiStreamNr);
    LX_LOG(kLevelChunk, "Chunk StreamNo:=%d,track=%d,size=%d, Current track:=%d", chunkData->uiStreamNr, track,
           chunkData->uiSize, audioTrackNumber);
    chunkData->eStreamType = LX_AVIREAD_STREAM_AUDIO;
    UInt32 result = LX_OK;
    const bool bSelected = allTracks || track == audioTrackNumber;
    if (!bSelected || track >= LX_AVIREAD_AUDIO_TRACKS) {
        result = RejectOtherTrack(pAviInfo, chunkData, track, audioTrackNumber);
    } else {
        result = ProcessSelectedAudio(pAviInfo, chunkData, track);
    }
    chunkData->bValid = result == LX_OK ? 1 : 0;
    LX_LOG(kLevelLeave, "lxAviReadCore_ProcessNextAudioChunk %x", result);
    return result;
}

UInt32 lxAviReadCore_SwitchAudioTrack(void) { return LX_OK; }

void lxAviReadCore_DeliverAllTracks(Bool bAll) { allTracks = bAll != 0 && TracksPlayTogether(&lxAviReadCore_AviInfo); }
