// The audio positions from the audio streams' OpenDML indexes: for every key frame of the table, the chunk of each
// track that plays at its time. Each stream's index is walked once, on one level or over the chunks of a super index.

#include "internal/OpenDmlIndex.hpp"

namespace lxAviReadCore {
namespace {

constexpr MessageRow<PlacerText> kPlacerRows[] = {
    {PlacerText::Stored, kLevelIndex, "Storing Audio(%d) for %d.%d  fr#%d Offset=%d.%d BP=%d.%d"},
    {PlacerText::Moved, kLevelIndex, "BEFORE Getnextitem KF leafNr:%d itemNr:%d offset=%d valid=%d ;"},
};
static_assert(IsMessageTable(kPlacerRows, kPlacerTextArguments));
constexpr PlacerMessages kOpenDmlPlacerMessages = {kPlacerRows, true};

constexpr MessageRow<WalkText> kAudioWalkMessages[] = {
    {WalkText::Seeking, kLevelIndex, "Fseeking(%d) to offset: %d.%d \n"},
    NoMessage(WalkText::SeekFailed),
    NoMessage(WalkText::CodeRead),
    {WalkText::CodeFailed, kLevelError, "ParseAudioSuperIndex : Error Reading data at line:%d"},
    NoMessage(WalkText::HeaderRead),
    {WalkText::HeaderFailed, kLevelError, "ParseAudioSuperIndex : Error Reading data1,line:%d"},
    {WalkText::Entered, kLevelIndex, "AudioSuperIndexParsing :Rval Reading ix(%d)-> %x"},
    NoMessage(WalkText::Result),
};
static_assert(IsMessageTable(kAudioWalkMessages, kWalkTextArguments));
constexpr IndexWalkRules kAudioWalk = {.bVideoStreamOnly = false,
                                       .bKnownSubTypesOnly = false,
                                       .pMessages = kAudioWalkMessages};

// The audio of one stream while its index is walked.
struct AudioStream {
    EntrySource source;
    AudioPlacer placer;

    bool HasTrack() const { return source.uiTrack < LX_AVIREAD_AUDIO_TRACKS; }
};

AudioStream BeginStream(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streamNr)
{
    AudioStream stream = {SourceOf(pAviInfo, EntryKind::Audio, streamNr), {}};
    stream.placer.Begin(pAviInfo, stream.source.uiTrack, kOpenDmlPlacerMessages);
    return stream;
}

// Takes the records that follow. Records of a stream without a track are read and dropped.
UInt32 PlaceRun(lxAviReadCore_AviInfo_t* pAviInfo, UInt8 subType, UInt32 entries, UInt64 baseOffset,
                AudioStream& stream)
{
    const OpenDmlDecoder decode(pAviInfo, stream.source, baseOffset);
    const IndexRun run = OpenDmlRun(pAviInfo, subType, entries);
    const bool bPlaced = stream.HasTrack();
    const auto place = [&](IndexEntry entry) {
        if (bPlaced) {
            stream.placer.Take(entry);
        }
    };
    const UInt32 result = EndPass(pAviInfo, ForEachEntry(pAviInfo, run, decode, place));
    LX_LOG(kLevelLeave, "Leaving lxAvi2ReadCore_FillAudioInfoInKFTable with Rval-> %x", result);
    return result;
}

// Called after the last run of a stream.
void CompleteStream(const lxAviReadCore_AviInfo_t* pAviInfo, const AudioStream& stream)
{
    if (stream.HasTrack()) {
        CompleteAudio(pAviInfo, {&stream.placer, 1});
    }
    LX_LOG(kLevelIndex, "\tAudio frames in stream# %02d =%d", stream.source.uiStreamNr,
           stream.placer.State().chunkCount - 1);
}

// Reports a failed assertion when there is no table to place audio in.
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
    // in the default mode the index says which stream it belongs to, whatever list holds it
    const UInt32 streamNr = IndexesBelongToTheirList(pAviInfo) ? listNr : StreamOfChunks(chunkId);
    LX_LOG(kLevelIndex, "Stream: %d uiNoOfIndexes: %d  \n", streamNr,
           stream.IndxChunk.aviIndxcommonSection.uiEntriesInUse);
    AudioStream audio = BeginStream(pAviInfo, streamNr);
    const auto placeChunk = [&](const IndexChunk& chunk) {
        const auto& common = chunk.header.common;
        LX_AVIREAD_TRY(SetBatchSize(pAviInfo, EntryBytes(common), common.uiSubIndexType));
        return PlaceRun(pAviInfo, common.uiSubIndexType, common.uiEntriesInUse, chunk.header.qwBaseOffset, audio);
    };
    LX_AVIREAD_TRY(ForEachIndexChunk(pAviInfo, stream, kAudioWalk, placeChunk));
    CompleteStream(pAviInfo, audio);
    return LX_OK;
}

namespace {

UInt32 PlaceAllStreams(lxAviReadCore_AviInfo_t* pAviInfo)
{
    // the default mode takes the audio streams to stand directly behind the video stream 0
    const bool bEvery = IndexesBelongToTheirList(pAviInfo);
    const UInt32 behindLast =
        bEvery ? LX_AVIREAD_STREAMS : std::min<UInt32>(pAviInfo->AudioTracksCount + 1, LX_AVIREAD_STREAMS);
    UInt32 firstFailure = LX_OK;
    for (UInt32 i = bEvery ? 0 : 1; i < behindLast; ++i) {
        const lxAviReadCore_StreamInfo_t* const pStream = pAviInfo->StreamInfo[i];
        if (pStream == Null || pStream->StreamType != LX_AVIREAD_STREAM_AUDIO || !HasSuperIndex(*pStream)) {
            continue;
        }
        const UInt32 result = PlaceStream(pAviInfo, i);
        if (result != LX_OK) {
            ForgetTotalsOf(i); // they are those of a part of the stream
        }
        if (result != LX_OK && !(TracksFailAlone(pAviInfo) && IsUnusableIndex(result))) {
            return result;
        }
        firstFailure = firstFailure == LX_OK ? result : firstFailure;
    }
    return firstFailure;
}

} // namespace
} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAvi2ReadCore_ParseAudioStdIndex(UInt32 /*instance*/, lxAviReadCore_AviInfo_t* pAviInfo,
                                         const lxAviReadCore_AviIndxChunkCommonSection_t* pCommon, UInt64 qwBaseOffset,
                                         UInt32 /*dwReserved*/)
{
    LX_LOG(kLevelEnter, "lxAvi2ReadCore_ParseAudioStdIndex");
    const UInt32 streamNr = StreamOfChunks(pCommon->dwChunkId);
    UInt32 result = SetBatchSize(pAviInfo, EntryBytes(*pCommon), pCommon->uiSubIndexType);
    if (result == LX_OK && !AcquireMetaDataBuffer(pAviInfo)) {
        result = LX_ERR_AVIREAD_NO_MEMORY;
    }
    if (result == LX_OK) {
        RequireTable(pAviInfo);
        AudioStream stream = BeginStream(pAviInfo, streamNr);
        result =
            LX_AVIREAD_CALL(PlaceRun(pAviInfo, pCommon->uiSubIndexType, pCommon->uiEntriesInUse, qwBaseOffset, stream));
        if (result == LX_OK) {
            CompleteStream(pAviInfo, stream);
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
    AudioStream stream = {SourceOf(pAviInfo, EntryKind::Audio, StreamOfChunks(dwChunkId)), {}};
    stream.source.uiTrack = audioTrackNumber;
    stream.placer.Begin(pAviInfo, audioTrackNumber, kOpenDmlPlacerMessages);
    stream.placer.Resume(*pState, *pCursor, *pCursorTimeMsec, stream.source.uiBlockBytes);
    const UInt32 result = PlaceRun(pAviInfo, uiSubIndexType, uiNoOfEntries, qwBaseOffset, stream);
    *pState = stream.placer.State();
    *pCursor = stream.placer.Cursor();
    *pCursorTimeMsec = stream.placer.CursorTime();
    return result;
}
