// The visitors of the index passes: what is done with a record once it is decoded, for idx1 and OpenDML alike.

#include "internal/IndexPasses.hpp"

namespace lxAviReadCore {

namespace {

constexpr UInt32 kNobody = LX_AVIREAD_STREAMS; // stands for streams that the headers have not described
PassTotals s_pass[LX_AVIREAD_STREAMS + 1];

// The kind of a record without the key flag. `bInterleaved` tells that its stream is DV with its audio inside.
EntryKind KindOf(UInt16 chunkType, bool bMainVideoStream, bool bInterleaved)
{
    switch (chunkType) {
    case TwoCC("__"):
    case TwoCC("iv"):
        if (!bInterleaved) {
            return EntryKind::Other;
        }
        [[fallthrough]];
    case TwoCC("db"):
    case TwoCC("dc"): return bMainVideoStream ? EntryKind::Frame : EntryKind::OtherVideo;
    case TwoCC("dd"): return bMainVideoStream ? EntryKind::MainDrm : EntryKind::OtherDrm;
    case TwoCC("wb"): return EntryKind::Audio;
    default: return EntryKind::Other;
    }
}

} // namespace

EntrySource SourceOf(const lxAviReadCore_AviInfo_t* pAviInfo, EntryKind eKind, UInt32 streamNr)
{
    const bool bDescribed = StreamTypeOf(pAviInfo, streamNr) != LX_AVIREAD_STREAM_NONE;
    return {.eKind = eKind,
            .eFlaggedKind = eKind == EntryKind::Frame ? EntryKind::KeyFrame : eKind,
            .uiStreamNr = streamNr,
            .uiTrack = IndexedTrackOf(pAviInfo, streamNr),
            .uiBlockBytes = bDescribed && eKind == EntryKind::Audio
                                ? AudioUnitsOf(pAviInfo, *FindStream(pAviInfo, streamNr)).uiBlockBytes
                                : 0,
            .pTotals = &s_pass[bDescribed ? streamNr : kNobody]};
}

EntrySource SourceOfIdentifier(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 id)
{
    const UInt16 streamNr = StreamNumber(LowHalf(id));
    const EntryKind eKind =
        KindOf(HighHalf(id), IsMainVideoStream(pAviInfo, streamNr), IsInterleavedStream(pAviInfo, streamNr));
    return SourceOf(pAviInfo, eKind, streamNr);
}

UInt32 EndPass(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 result)
{
    for (UInt32 streamNr = 0; streamNr < LX_AVIREAD_STREAMS; ++streamNr) {
        if (lxAviReadCore_StreamInfo_t* const pStream = FindStream(pAviInfo, streamNr); pStream != Null) {
            pStream->uiStreamSize += static_cast<UInt32>(s_pass[streamNr].uiBytes);
        }
        TotalsOf(streamNr).uiBytes += s_pass[streamNr].uiBytes;
        TotalsOf(streamNr).uiChunks += s_pass[streamNr].uiChunks;
    }
    std::memset(s_pass, 0, sizeof s_pass);
    return result;
}

// ---- Batches ----

IndexBatches::IndexBatches(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run)
    : m_pAviInfo(pAviInfo), m_run(run), m_uiLargest(std::min(run.uiBatch, kMetaDataBytes / run.uiRecordSize)),
      m_uiLeft(run.uiEntries)
{
    if (pAviInfo->pMetaDataBuffer == Null) {
        m_uiResult = LX_ERR_AVIREAD_NO_MEMORY;
    } else if (m_uiLargest == 0) {
        m_uiResult = LX_ERR_AVIREAD_NO_INDEX;
    }
}

bool IndexBatches::Next()
{
    if (m_uiResult != LX_OK || m_uiLeft == 0) {
        return false;
    }
    const UInt32 wanted = std::min(m_uiLeft, m_uiLargest);
    m_uiLeft -= wanted;
    m_uiCount = 0;
    m_uiResult = IsAborted(m_pAviInfo) ? UInt32{LX_ERR_AVIREAD_ABORTED} : Read(wanted);
    return m_uiCount > 0;
}

UInt32 IndexBatches::Read(UInt32 records)
{
    const UInt32 bytes = records * m_run.uiRecordSize;
    UInt32 lacking = 0;
    const UInt32 result =
        ReadLoop(m_pAviInfo, *m_run.pRead, {m_pAviInfo->pMetaDataBuffer, kMetaDataBytes, bytes}, &lacking);
    if (result != LX_OK && m_run.eFailedBatch == FailedBatch::IsACall) {
        static_cast<void>(ReportCall(result, Here()));
    }
    if (IsAborted(m_pAviInfo)) {
        return LX_ERR_AVIREAD_ABORTED;
    }
    if (result == LX_OK) {
        m_uiCount = records;
        return LX_OK;
    }
    if (AllowEarlyEnd(m_pAviInfo, result) == LX_OK) {
        m_uiCount = (bytes - lacking) / m_run.uiRecordSize;
    }
    if (m_run.eFailedBatch == FailedBatch::IsABatch) {
        LX_LOG(kLevelError, "Error reading %d records with size %d into the metadatabuffer", records,
               m_run.uiRecordSize);
    }
    return result;
}

// ---- Key frames ----

namespace {

// Which frames are key frames.
enum class KeyFrameRule : UInt8 {
    ByFlag,     // those that the index flags
    FirstOnly,  // the index flags none; decoding can begin at the first frame
    EveryFrame, // the index flags none; every frame of the codec can be decoded alone
};

// What the first pass over an index leaves for the passes that follow.
struct IndexSurvey {
    KeyFrameRule eRule = KeyFrameRule::ByFlag;
    UInt32 uiFrames = 0;
};

IndexSurvey s_survey;

double MillisecondsPerFrame(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    const lxAviRead_Avih_t* const pHeader = pAviInfo->AviHdr;
    const UInt32 microSecPerFrame =
        pHeader != Null ? pHeader->dwMicroSecPerFrame : 0; // GCOVR_EXCL_BR_LINE: no stream without it
    return static_cast<double>(microSecPerFrame) / 1000.0;
}

} // namespace

UInt32 SettleKeyFrames(const lxAviReadCore_AviInfo_t* pAviInfo, const FrameCounter& counter)
{
    s_survey = {KeyFrameRule::ByFlag, counter.Frames()};
    if (pAviInfo->videoStreamNr >= 0 && IsInterleavedStream(pAviInfo, static_cast<UInt32>(pAviInfo->videoStreamNr))) {
        s_survey.eRule = KeyFrameRule::EveryFrame; // whatever the index flags
        return counter.Frames();
    }
    if (counter.KeyFrames() > 0 || counter.Frames() == 0 || !IndexesNeedNoKeyFlag(pAviInfo)) {
        return counter.KeyFrames();
    }
    const lxAviReadCore_StreamInfo_t* const pVideo = FindStream(pAviInfo, pAviInfo->videoStreamNr);
    const bool bAll = pVideo != Null && HasOnlyKeyFrames(*pVideo); // GCOVR_EXCL_BR_LINE: frames are of a stream
    s_survey.eRule = bAll ? KeyFrameRule::EveryFrame : KeyFrameRule::FirstOnly;
    return bAll ? counter.Frames() : 1;
}

UInt32 SurveyedFrames() { return s_survey.uiFrames; }

void ForgetIndexSurvey() { s_survey = {}; }

// Every frame is looked at where a frame without the flag may be a key frame, and where its message is logged.
KeyFrameFiller::KeyFrameFiller(lxAviReadCore_AviInfo_t* pAviInfo, TableMessages pMessages, UInt32 skipKey)
    : m_builder(pAviInfo, pMessages), m_uiSkipKey(skipKey),
      m_ePassedOn(s_survey.eRule == KeyFrameRule::ByFlag && !IsLogged(kLevelIndex) ? EntryKind::Frame
                                                                                   : EntryKind::None),
      m_pAviInfo(pAviInfo), m_millisecondsPerFrame(MillisecondsPerFrame(pAviInfo))
{
    tableStep = skipKey;
}

bool KeyFrameFiller::IsKeyFrame(IndexEntry entry) const
{
    switch (s_survey.eRule) {
    case KeyFrameRule::FirstOnly: return m_uiFrameNumber == 0;
    case KeyFrameRule::EveryFrame: return true;
    default: return entry.eKind == EntryKind::KeyFrame;
    }
}

void KeyFrameFiller::Resume(UInt32 leafNr, UInt32 frameNumber, UInt32 skipCounter)
{
    m_builder.Resume(leafNr);
    m_uiFrameNumber = frameNumber;
    m_uiSkipCounter = skipCounter;
}

// A "dd" chunk belongs to the frame of the main video stream that follows it. In the default mode video and "dd" records
// of other streams may stand between the two; any other record in between cancels the descriptor.
Entry* KeyFrameFiller::TakeAny(IndexEntry entry)
{
    switch (entry.eKind) {
    case EntryKind::Frame:
    case EntryKind::KeyFrame: return TakeMainVideo(entry);
    case EntryKind::OtherVideo: CountPayload(entry); [[fallthrough]];
    case EntryKind::OtherDrm:
        if (DrmChunksAreExact(m_pAviInfo)) {
            CancelDrm();
        }
        return Null;
    case EntryKind::MainDrm:
        LX_LOG(kLevelIndex, "lxAviReadCore_ParseIndex: DRM chunk in index: sn:%d l:%d o:%d", entry.pSource->uiStreamNr,
               entry.uiSize, static_cast<UInt32>(entry.uiOffset));
        m_uiDrmOffset = entry.uiOffset;
        m_bDrmPending = true;
        return Null;
    default: CancelDrm(); return Null;
    }
}

Entry* KeyFrameFiller::TakeMainVideo(IndexEntry entry)
{
    CountPayload(entry);
    Entry* pStored = Null;
    const bool bKeyFrame = IsKeyFrame(entry);
    if (bKeyFrame && m_uiSkipCounter == 0 && m_builder.IsFull()) {
        Thin();
    }
    if (bKeyFrame && m_uiSkipCounter == 0) {
        pStored = Store(entry);
        m_uiSkipCounter = m_uiSkipKey >= 2 ? 1 : 0;
    } else {
        PassOver(bKeyFrame);
    }
    PassOn();
    return pStored;
}

// After an odd number of entries, the next key frame is one of those that are left out from here on.
void KeyFrameFiller::Thin()
{
    const UInt32 stored = m_builder.KeepEverySecond();
    m_uiSkipCounter = stored % 2 != 0 ? m_uiSkipKey : 0;
    m_uiSkipKey *= 2;
    tableStep = m_uiSkipKey;
    LX_LOG(kLevelIndex, "AviReadCore : the table is full, every %d. key frame stays", m_uiSkipKey);
}

void KeyFrameFiller::StoreFirstFrame(IndexEntry first)
{
    const UInt32 frames = m_uiFrameNumber;
    CancelDrm();
    m_uiFrameNumber = 0;
    Store(first);
    m_uiFrameNumber = frames;
}

void KeyFrameFiller::PassOver(bool bKeyFrame)
{
    LX_LOG(kLevelIndex, "lxAviReadCore_ParseIndex: Video non Key Frame found");
    if (bKeyFrame && ++m_uiSkipCounter >= m_uiSkipKey) {
        m_uiSkipCounter = 0;
    }
}

// The time of the frame. In the default mode it leaves out the start of the stream, which stream times include.
UInt64 KeyFrameFiller::FrameTime() const
{
    const lxAviReadCore_StreamInfo_t* const pVideo = FindStream(m_pAviInfo, m_pAviInfo->videoStreamNr);
    if (TableHasStreamTimes(m_pAviInfo) && pVideo != Null) { // GCOVR_EXCL_BR_LINE: frames are of a stream
        return Milliseconds(ExactVideoTime(m_pAviInfo, *pVideo, m_uiFrameNumber, kMicroSecPerSec));
    }
    return static_cast<UInt64>(static_cast<double>(m_uiFrameNumber) * m_millisecondsPerFrame);
}

Entry* KeyFrameFiller::Store(IndexEntry entry)
{
    Entry* const pEntry = m_builder.Append();
    if (pEntry == Null) {
        return Null; // more key frames than were counted
    }
    pEntry->videoFrameNumber = m_uiFrameNumber;
    pEntry->videoChunkOffset = m_bDrmPending ? m_uiDrmOffset : entry.uiOffset;
    pEntry->timeMsec = FrameTime();
    LX_LOG(kLevelIndex, "lxAviReadCore_ParseIndex: Storing key video fr#%d item#%d time=%d.%d offset=%d.%d",
           m_uiFrameNumber, m_builder.ItemNr(), LX_HILO(pEntry->timeMsec), LX_HILO(pEntry->videoChunkOffset));
    return pEntry;
}

// ---- Audio ----

void AudioPlacer::Begin(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 track, const PlacerMessages& messages)
{
    m_pAviInfo = pAviInfo;
    m_pMessages = &messages;
    m_uiTrack = track;
    m_bLogged = IsLogged(kLevelIndex | kLevelChunk);
    if (FirstKeyFrameHasItsTime(pAviInfo)) {
        TakeCursorTime();
    }
}

void AudioPlacer::Resume(const AudioState& state, const Position& cursor, UInt32 cursorTime, UInt32 blockBytes)
{
    const auto lastSize = static_cast<UInt32>(state.totalBytes - state.lastChunkBytePosition);
    m_uiNumber = state.chunkCount == 0 ? kNoChunk : state.chunkCount - UnitsOfChunk(blockBytes, lastSize);
    m_state = state;
    m_cursor = cursor;
    m_uiCursorTime = cursorTime;
}

void AudioPlacer::LogStored(const Position& position) const
{
    LogRow(m_pMessages->pRows, PlacerText::Stored, m_uiTrack, position.leafNr, position.itemNr, m_uiNumber,
           LX_HILO(m_state.lastChunkOffset), LX_HILO(m_state.lastChunkBytePosition));
}

void AudioPlacer::LogMoved(const Position& before) const
{
    LogRow(m_pMessages->pRows, PlacerText::Moved, before.leafNr, before.itemNr, static_cast<UInt32>(before.Offset),
           UInt32{before.valid}, m_cursor.leafNr, m_cursor.itemNr, static_cast<UInt32>(m_cursor.Offset),
           UInt32{m_cursor.valid});
}

// Moves the cursor to the next key frame; past the last one it becomes invalid ({0,0,0,0}).
void AudioPlacer::Advance()
{
    m_reach = {};
    if (!KeyFrameTable(m_pAviInfo).Next(m_cursor)) {
        m_cursor = {};
    }
}

// Takes the time of the key frame under the cursor; an invalid cursor has that of the first one.
void AudioPlacer::TakeCursorTime()
{
    if (const Entry* const pEntry = KeyFrameTable(m_pAviInfo).At(m_cursor); pEntry != Null) {
        m_uiCursorTime =
            lxAviReadCore_GetStreamTime(static_cast<UInt32>(m_pAviInfo->videoStreamNr), pEntry->videoFrameNumber, 0);
    }
}

// Gives the last chunk to the key frame under the cursor, and moves on.
void AudioPlacer::Place()
{
    if (Entry* const pEntry = KeyFrameTable(m_pAviInfo).At(m_cursor); pEntry != Null) {
        WriteAudio(*pEntry, m_uiTrack, m_state, m_uiNumber);
    }
    const Position before = m_cursor;
    if (m_pMessages->bMovedFirst) {
        LogMoved(before);
        Advance();
        LogStored(before);
    } else {
        LogStored(before);
        Advance();
        LogMoved(before);
    }
    TakeCursorTime();
}

// Estimates how far the stream can go before it passes the cursor's time, and checks the estimate. No times are
// computed up to there. This is safe because times never decrease while the count of chunks does not wrap.
void AudioPlacer::LookAhead(UInt32 streamNr, UInt64 bytePosition, UInt32 time)
{
    const lxAviReadCore_StreamInfo_t* const pStream = FindStream(m_pAviInfo, streamNr);
    if (m_bLogged || time == 0 || time >= m_uiCursorTime || pStream == Null) {
        return;
    }
    const double ratio = static_cast<double>(m_uiCursorTime) / static_cast<double>(time);
    const double chunks = static_cast<double>(m_state.chunkCount) * ratio;
    const double bytes = static_cast<double>(bytePosition) * ratio;
    if (chunks + static_cast<double>(pStream->Header.dwStart) >= 4294967295.0 || bytes >= 9e18) {
        return;
    }
    const Reach reach = {streamNr, static_cast<UInt32>(chunks), static_cast<UInt64>(bytes)};
    if (lxAviReadCore_GetStreamTime(streamNr, reach.uiChunks, reach.uiBytes) <= m_uiCursorTime) {
        m_reach = reach;
    }
}

// Gives the last chunk to all key frames whose time is before that of `entry`.
void AudioPlacer::PlaceBefore(IndexEntry entry)
{
    const UInt32 streamNr = entry.pSource->uiStreamNr;
    m_uiStreamNr = streamNr;
    if (m_cursor.valid == 0 && !m_bLogged) {
        m_reach = {streamNr, 0xFFFFFFFF, ~UInt64{0}}; // every key frame has its chunk
        return;
    }
    // the default mode adds the size of this chunk to the start of the one before it
    const UInt64 bytePosition =
        AudioIsPlacedByChunkStarts(m_pAviInfo) ? m_state.totalBytes : m_state.lastChunkBytePosition + entry.uiSize;
    const UInt32 time =
        m_state.bHaveChunk == 0 ? 0 : lxAviReadCore_GetStreamTime(streamNr, m_state.chunkCount, bytePosition);
    if (m_cursor.valid == 1) {
        LX_LOG(kLevelIndex, "Atrk=%d(%d) vtrk=%d streamTime=%d seekedT=%d ", streamNr, m_uiTrack,
               m_pAviInfo->videoStreamNr, time, m_uiCursorTime);
    }
    while (m_uiCursorTime < time && m_state.bHaveChunk == 1 && m_cursor.valid == 1) {
        Place();
    }
    LookAhead(streamNr, bytePosition, time);
}

void AudioPlacer::CompleteLeaf(Leaf& leaf, UInt32 leafNr) const
{
    if (m_cursor.valid == 0 || leafNr < m_cursor.leafNr) {
        return;
    }
    const AudioState state = m_state;
    const UInt32 number = m_uiNumber;
    for (UInt32 i = leafNr == m_cursor.leafNr ? m_cursor.itemNr : 0; i < leaf.arrayLength; ++i) {
        WriteAudio(leaf.array[i], m_uiTrack, state, number);
    }
}

void AudioPlacer::NoteUnits() const
{
    if (m_uiStreamNr < LX_AVIREAD_STREAMS) {
        TotalsOf(m_uiStreamNr).uiAudioUnits = m_state.chunkCount;
    }
}

void CompleteAudio(const lxAviReadCore_AviInfo_t* pAviInfo, std::span<const AudioPlacer> placers)
{
    const KeyFrameTable table(pAviInfo);
    for (const AudioPlacer& placer : placers) {
        placer.NoteUnits();
    }
    for (UInt32 leafNr = 0; leafNr < table.LeafCount(); ++leafNr) {
        for (const AudioPlacer& placer : placers) {
            placer.CompleteLeaf(table.LeafAt(leafNr), leafNr);
        }
    }
}

} // namespace lxAviReadCore
