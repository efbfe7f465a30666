// The audio positions from the audio streams' OpenDML indexes: for every key frame of the table, the chunk of each
// track that plays at its time. Each stream's index is walked once, on one level or over the chunks of a super index.

#define LX_AVIREAD_MODULE ::lxAviReadCore::Module::Avi2ReadCore
#include "../AviReadcore/internal/OpenDmlIndex.hpp"

namespace lxAviReadCore {
namespace {

constexpr PlacerTexts kOpenDmlPlacerTexts = {
    kTextList<LX_PACKED(kLevelIndex, "Storing Audio(%d) for %d.%d  fr#%d Offset=%d.%d BP=%d.%d"),
              LX_PACKED(kLevelIndex, "BEFORE Getnextitem KF leafNr:%d itemNr:%d offset=%d valid=%d ;")>,
    true};

constexpr IndexWalkRules kAudioWalk = {
    false,
    kTextList<LX_NO_TEXT,
              LX_PACKED(kLevelError, "ParseAudioSuperIndex : Error Reading data at line:%d"),
              LX_PACKED(kLevelError, "ParseAudioSuperIndex : Error Reading data1,line:%d"),
              LX_PACKED(kLevelIndex, "AudioSuperIndexParsing :Rval Reading ix(%d)-> %x"),
              LX_NO_TEXT>};

// Takes the records of one run. Those of no track are read and dropped.
UInt32 PlaceRun(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, UInt32 track, AudioPlacer& placer)
{
    const UInt32 result = ForEachEntry<OpenDmlDecoder>(pAviInfo, run, [&](const IndexEntry& entry) {
        if (track < LX_AVIREAD_AUDIO_TRACKS) {
            placer.Take(entry);
        }
    });
    LX_LOG(kLevelLeave, "Leaving lxAvi2ReadCore_FillAudioInfoInKFTable with Rval-> %x", result);
    return result;
}

// After the last run of a stream.
void CompleteStream(UInt32 streamNr, UInt32 track, AudioPlacer& placer)
{
    if (track < LX_AVIREAD_AUDIO_TRACKS) {
        placer.Complete();
    }
    LX_LOG(kLevelIndex, "\tAudio frames in stream# %02d =%d", streamNr, placer.State().chunkCount - 1);
}

// The table that the audio is placed in has to be there.
void RequireTable(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    LX_ASSERT(pAviInfo->KeyFramesListAsArrayLength > 0, "pCurrentLeaf!=Null", "List structure must be allocated");
    if (pAviInfo->KeyFramesListAsArrayLength > 0) {
        pAviInfo->KeyFramesListAsArray[0]->pPrevLeaf = Null;
    }
}

} // namespace

UInt32 PlaceStream(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 listNr)
{
    const lxAviReadCore_StreamInfo_t& stream = *pAviInfo->StreamInfo[listNr];
    RequireTable(pAviInfo);
    if (!AcquireMetaDataBuffer(pAviInfo)) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    const UInt32 chunkId = stream.IndxChunk.aviIndxcommonSection.dwChunkId;
    // By default the index says which stream it belongs to, whatever list holds it.
    const UInt32 streamNr = FollowsFormat(pAviInfo) ? listNr : StreamNumber(LowHalf(chunkId));
    const UInt32 track = IndexedTrackOf(pAviInfo, streamNr);
    LX_LOG(kLevelIndex, "Stream: %d uiNoOfIndexes: %d  \n", streamNr,
           stream.IndxChunk.aviIndxcommonSection.uiEntriesInUse);
    AudioPlacer placer;
    placer.Begin(pAviInfo, track, kOpenDmlPlacerTexts);
    const auto placeChunk = [&](const IndexChunk& chunk) {
        const auto& common = chunk.header.common;
        LX_AVIREAD_TRY(SetBatchSize(pAviInfo, EntryBytes(common), common.uiSubIndexType));
        IndexRun run = OpenDmlRun(pAviInfo, common.uiSubIndexType, common.uiEntriesInUse, chunkId,
                                  chunk.header.qwBaseOffset, EntryKind::Audio);
        run.uiStreamNr = streamNr;
        return PlaceRun(pAviInfo, run, track, placer);
    };
    LX_AVIREAD_TRY(ForEachIndexChunk(pAviInfo, stream, kAudioWalk, placeChunk));
    CompleteStream(streamNr, track, placer);
    return LX_OK;
}

namespace {

UInt32 PlaceAllStreams(lxAviReadCore_AviInfo_t* pAviInfo)
{
    // Quirk Q41: by default the audio streams are taken to stand directly behind the video stream 0
    const bool bEvery = FollowsFormat(pAviInfo);
    const UInt32 behindLast =
        bEvery ? LX_AVIREAD_STREAMS : std::min<UInt32>(pAviInfo->AudioTracksCount + 1, LX_AVIREAD_STREAMS);
    UInt32 first = LX_OK; // of the failures
    for (UInt32 i = bEvery ? 0 : 1; i < behindLast; ++i) {
        const lxAviReadCore_StreamInfo_t* const pStream = pAviInfo->StreamInfo[i];
        if (pStream == Null || pStream->StreamType != LX_AVIREAD_STREAM_AUDIO || !HasSuperIndex(*pStream)) {
            continue;
        }
        const UInt32 result = PlaceStream(pAviInfo, i);
        if (result != LX_OK && !(bEvery && IsUnusableIndex(result))) {
            return result;
        }
        first = first == LX_OK ? result : first;
    }
    return first;
}

} // namespace
} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAvi2ReadCore_ParseAudioStdIndex(UInt32 /*instance*/, lxAviReadCore_AviInfo_t* pAviInfo,
                                         const lxAviReadCore_AviIndxChunkCommonSection_t* pCommon, UInt64 qwBaseOffset,
                                         UInt32 /*dwReserved*/)
{
    LX_LOG(kLevelEnter, "lxAvi2ReadCore_ParseAudioStdIndex");
    const UInt32 track = IndexedTrackOf(pAviInfo, StreamNumber(LowHalf(pCommon->dwChunkId)));
    UInt32 result =
        SetBatchSize(pAviInfo, EntryBytes(*pCommon), pCommon->uiSubIndexType);
    if (result == LX_OK && !AcquireMetaDataBuffer(pAviInfo)) {
        result = LX_ERR_AVIREAD_NO_MEMORY;
    }
    if (result == LX_OK) {
        RequireTable(pAviInfo);
        AudioPlacer placer;
        placer.Begin(pAviInfo, track, kOpenDmlPlacerTexts);
        const IndexRun run = OpenDmlRun(pAviInfo, pCommon->uiSubIndexType, pCommon->uiEntriesInUse, pCommon->dwChunkId,
                                        qwBaseOffset, EntryKind::Audio);
        result = LX_AVIREAD_CALL(PlaceRun(pAviInfo, run, track, placer));
        if (result == LX_OK) {
            CompleteStream(run.uiStreamNr, track, placer);
        }
    }
    ClearMetaDataBuffer(pAviInfo);
    LX_LOG(kLevelLeave, "Leaving lxAvi2ReadCore_ParseAudioStdIndex: %x", result);
    return result;
}

UInt32 lxAvi2ReadCore_ParseAudioSuperIndex(lxAviReadCore_AviInfo_t* pAviInfo)
{
    LX_LOG(kLevelEnter, "lxAvi2ReadCore_ParseAudioSuperIndex");
    LX_LOG(kLevelIndex, "No of Audio steams in the file: %d  \n", pAviInfo->AudioTracksCount);
    const UInt32 result = PlaceAllStreams(pAviInfo);
    ClearMetaDataBuffer(pAviInfo);
    LX_LOG(kLevelLeave, "Leaving lxAvi2ReadCore_ParseAudioSuperIndex");
    return result;
}

UInt32 lxAvi2ReadCore_FillAudioInfoInKFTable(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiNoOfEntries,
                                             UInt8 uiSubIndexType, UInt32 dwChunkId, UInt64 qwBaseOffset,
                                             UInt32 audioTrackNumber, lxAvi2ReadCore_AudioIndexState_t* pState,
                                             lxAviReadCore_KeyFramePosition_t* pCursor, UInt32* pCursorTimeMsec)
{
    const bool bGiven = pState != Null && pCursor != Null && pCursorTimeMsec != Null;
    LX_ASSERT(bGiven, "pState!=Null && pCursor!=Null && pCursorTimeMsec!=Null",
              "what goes on from run to run must be initialized");
    if (!bGiven) {
        return LX_OK;
    }
    AudioPlacer placer;
    placer.Begin(pAviInfo, audioTrackNumber, kOpenDmlPlacerTexts);
    placer.Resume(*pState, *pCursor, *pCursorTimeMsec);
    const UInt32 result = PlaceRun(
        pAviInfo,
        OpenDmlRun(pAviInfo, uiSubIndexType, uiNoOfEntries, dwChunkId, qwBaseOffset, EntryKind::Audio),
        audioTrackNumber, placer);
    *pState = placer.State();
    *pCursor = placer.Cursor();
    *pCursorTimeMsec = placer.CursorTime();
    return result;
}
