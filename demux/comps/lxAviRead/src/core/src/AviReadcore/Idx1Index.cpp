// The legacy index, and the driver that chooses between it and the OpenDML index.
//
//   idx1 size record record …           16 bytes each
//     0  "00"    stream number          two characters
//     2  "dc"    chunk type             "db" "dc" video, "wb" audio, "dd" DRM
//     4  flags   bit 0x10: key frame
//     8  offset  of the chunk           from the file's start, or from the "movi" code
//    12  size    payload bytes
//
// Three passes, each from the first record on: the key frames are counted, so that the table can be sized against the
// budget; they are stored; and every stored key frame learns which audio chunks play at its time.

#include "internal/OpenDmlIndex.hpp"

namespace lxAviReadCore {
namespace {

constexpr UInt32 kRecordBytes = 16;
constexpr UInt32 kRecordsPerRead = 1125;
static_assert(kRecordsPerRead * kRecordBytes == kMetaDataBytes);
constexpr UInt32 kKeyFrameFlag = 0x10;
constexpr UInt64 kStartInMovi = 4;
constexpr double kConsecutiveSeconds = 5.0;

EntryKind KindOf(UInt16 chunkType, bool bMainVideoStream)
{
    switch (chunkType) {
    case TwoCC("db"):
    case TwoCC("dc"): return bMainVideoStream ? EntryKind::MainVideo : EntryKind::OtherVideo;
    case TwoCC("dd"): return bMainVideoStream ? EntryKind::MainDrm : EntryKind::OtherDrm;
    case TwoCC("wb"): return EntryKind::Audio;
    default: return EntryKind::Other;
    }
}

// As it stands in the file.
struct lxAviReadCore_IDXrecord_t {
    UInt16 uiStreamCharacters;
    UInt16 uiChunkType;
    UInt32 uiFlags;
    UInt32 uiOffset;
    UInt32 uiSize;
};
static_assert(sizeof(lxAviReadCore_IDXrecord_t) == kRecordBytes);

// Tells what a record says. The few identifiers of a file come again and again: what they mean is worked out once, and
// kept by the last digit of the stream.
class Idx1Decoder {
public:
    explicit Idx1Decoder(const IndexRun& run)
        : m_iVideoStreamNr(run.iVideoStreamNr), m_qwBaseOffset(run.qwBaseOffset),
          m_meanings{MeaningOf(0), MeaningOf(0), MeaningOf(0), MeaningOf(0)}
    {
    }

    [[gnu::always_inline]] IndexEntry operator()(const UInt8* pRecord)
    {
        const auto record = Load<lxAviReadCore_IDXrecord_t>(pRecord);
        const auto id = Load<UInt32>(pRecord);
        Meaning& meaning = m_meanings[ByteOf(id, 1) % kMeanings];
        if (meaning.uiId != id) {
            meaning = MeaningOf(id);
        }
        return {.eKind = meaning.eKind,
                .bKeyFrame = (record.uiFlags & kKeyFrameFlag) != 0,
                .uiStreamNr = meaning.uiStreamNr,
                .uiSize = record.uiSize,
                .uiOffset = record.uiOffset + m_qwBaseOffset};
    }

private:
    struct Meaning {
        UInt32 uiId;
        UInt16 uiStreamNr;
        EntryKind eKind;
    };
    static constexpr UInt32 kMeanings = 4;

    Meaning MeaningOf(UInt32 id) const
    {
        const UInt16 streamNr = StreamNumber(LowHalf(id));
        return {id, streamNr, KindOf(HighHalf(id), Int32{streamNr} == m_iVideoStreamNr)};
    }

    Int32 m_iVideoStreamNr;
    UInt64 m_qwBaseOffset;
    Meaning m_meanings[kMeanings];
};

constexpr IndexFormat kIdx1Format = {kRecordBytes, &kCoreRead};

constexpr TextList kIdx1Texts = kTextList<    LX_PACKED(kLevelError, "AviRead:Failed allocating %d bytes for pAviInfo->KeyFramesListAsArray"),
    LX_PACKED(kLevelIndex, "AviRead:Succeeded allocating %d bytes for %d leafs"),
    LX_PACKED(kLevelError, "Failed allocating %d bytes for pAviInfo->KeyFramesListAsArray[%d]"),
    LX_NO_TEXT,
    LX_PACKED(kLevelIndex, "Succeeded allocating the full array pAviInfo->KeyFramesListAsArray[%d]"),
    LX_PACKED(kLevelIndex, "Leaf %d if full, filling %d leaf"),
    LX_PACKED(0, "List structure must be initialized")>;

constexpr TextList kSinglePassTexts = kTextList<    LX_PACKED(kLevelError, "AviRead:Failed allocating %d bytes for pAviInfo->KeyFramesListAsArray"),
    LX_PACKED(kLevelIndex, "AviRead:Succeeded allocating %d bytes for %d leafs for pAviInfo->KeyFramesListAsArray"),
    LX_PACKED(kLevelError, "Failed allocating %d bytes for pAviInfo->KeyFramesListAsArray[chunkIndexElementsCounter]"),
    LX_PACKED(kLevelIndex, "Succeeded allocating %d bytes for pAviInfo->KeyFramesListAsArray[chunkIndexElementsCounter]"),
    LX_NO_TEXT,
    LX_PACKED(kLevelIndex, "Leaf %d if full, filling %d leaf"),
    LX_PACKED(0, "List structure must be initialized")>;

constexpr PlacerTexts kIdx1PlacerTexts = {
    kTextList<LX_PACKED(kLevelIndex, "Storing A%d for %d.%d  fr#%d Offset=%d.%d BP=%d.%d"),
              LX_PACKED(kLevelIndex, "KF_data.leafNr.itemNr=%d.%d offset=%d valid=%d ;  _KF: leafNr.itemNr=%d.%d offset=%d valid=%d")>,
    false};

IndexRun Idx1Run(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size, UInt32 batch)
{
    return {.pFormat = &kIdx1Format,
            .uiEntries = size / kRecordBytes,
            .uiBatch = batch,
            .iVideoStreamNr = pAviInfo->videoStreamNr,
            .uiStreamNr = 0,
            .eKind = EntryKind::Other,
            .qwBaseOffset = OffsetBase(),
            .uiOffsetMask = 0,
            .pBatchFailedText = Null};
}

// Hands the records of the index to `visit`, as far as the file has them.
template <typename Visitor>
UInt32 ForEachRecord(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, Visitor& visit)
{
    return AllowEarlyEnd(pAviInfo, ForEachEntry<Idx1Decoder>(pAviInfo, run, visit));
}

// ---- The first pass ----

// Video frames in five seconds: a figure for the log alone.
Int32 ConsecutiveFramesThreshold(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streams)
{
    for (UInt32 i = 0; i < std::min<UInt32>(streams, LX_AVIREAD_STREAMS); ++i) {
        const lxAviReadCore_StreamInfo_t* const pStream = pAviInfo->StreamInfo[i];
        if (pStream != Null && pStream->StreamType == LX_AVIREAD_STREAM_VIDEO) {
            const double frames = static_cast<double>(pStream->Header.dwRate) /
                                  static_cast<double>(pStream->Header.dwScale) * kConsecutiveSeconds;
            const double whole = static_cast<double>(ToUInt32(frames));
            const double rounded = frames > whole ? whole + 1.0 : whole;
            return static_cast<Int32>(std::min<UInt32>(ToUInt32(rounded), INT32_MAX));
        }
    }
    return 0;
}

// Counts the frames, notes where the first record points, and tells of every record where that is wanted.
class FirstPass {
public:
    explicit FirstPass(bool bLogged) : m_bLogged(bLogged) {}

    void operator()(const IndexEntry& entry)
    {
        if (m_uiRecords++ == 0) {
            m_uiFirstOffset = entry.uiOffset;
        }
        m_counter(entry);
        if (m_bLogged) {
            Log(entry);
        }
    }

    const KeyFrameCounter& Counter() const { return m_counter; }
    bool IsEmpty() const { return m_uiRecords == 0; }
    UInt64 FirstOffset() const { return m_uiFirstOffset; }

private:
    // The record, and how many frames of the video stream stand in a row.
    void Log(const IndexEntry& entry)
    {
        m_uiInARow = entry.eKind == EntryKind::MainVideo ? m_uiInARow + 1 : 0;
        if (m_uiInARow > 0) {
            LX_LOG(kLevelIndex, "Video Consecutive Frames Counter : %d", m_uiInARow);
        }
        LX_LOG(kLevelIndex, "lxAviReadCore_PerParseIndex: Record( %d)  Offset =%u ", m_uiRecords - 1,
               static_cast<UInt32>(entry.uiOffset));
    }

    bool m_bLogged;
    KeyFrameCounter m_counter;
    UInt64 m_uiFirstOffset = 0;
    UInt32 m_uiRecords = 0;
    UInt32 m_uiInARow = 0;
};

// Walks over the index once.
UInt32 RunFirstPass(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size, UInt32 batch, FirstPass& pass)
{
    return ForEachRecord(pAviInfo, Idx1Run(pAviInfo, size, batch), pass);
}

// The first record tells whether offsets count from the file's start: no chunk lies before the media data. Where the
// format is followed they have been converted.
void DecideOffsetBase(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 firstOffset)
{
    const bool bAbsolute = pAviInfo->moviOffset <= firstOffset || FollowsFormat(pAviInfo); // Quirk Q48
    pAviInfo->bAbsoluteOffsets = bAbsolute ? 1 : 0;
    pAviInfo->CurrentOffset = bAbsolute ? pAviInfo->moviOffset : kStartInMovi;
}

// ---- The third pass ----

// Gives the records of an index their place by track: up to eight tracks are walked at once.
class AudioByTrack {
public:
    explicit AudioByTrack(const lxAviReadCore_AviInfo_t* pAviInfo)
    {
        for (UInt32 track = 0; track < LX_AVIREAD_AUDIO_TRACKS; ++track) {
            m_placers[track].Begin(pAviInfo, track, kIdx1PlacerTexts);
        }
        for (UInt32 i = 0; i < LX_AVIREAD_STREAMS; ++i) {
            m_trackOfStream[i] = IndexedTrackOf(pAviInfo, i);
        }
    }

    void operator()(const IndexEntry& entry)
    {
        if (entry.eKind != EntryKind::Audio) {
            return;
        }
        const UInt32 track = entry.uiStreamNr < LX_AVIREAD_STREAMS ? m_trackOfStream[entry.uiStreamNr] : kNoTrack;
        if (track >= LX_AVIREAD_AUDIO_TRACKS) {
            LX_LOG(kLevelIndex, "lxAviReadCore_ParseIndex: Audio chunk found %d ", track);
            return;
        }
        m_placers[track].Take(entry);
    }

    void Complete()
    {
        for (AudioPlacer& placer : m_placers) {
            placer.Complete();
        }
    }

private:
    AudioPlacer m_placers[LX_AVIREAD_AUDIO_TRACKS];
    UInt32 m_trackOfStream[LX_AVIREAD_STREAMS];
};

// ---- Single pass ----

// Fills video and audio in index order: a key frame gets the track's latest chunk before it, if one came since the
// key frame stored before, else the first one after it.
class SinglePassFiller {
public:
    SinglePassFiller(lxAviReadCore_AviInfo_t* pAviInfo, KeyFrameFiller& video) : m_pAviInfo(pAviInfo), m_video(video) {}

    void operator()(const IndexEntry& entry)
    {
        if (Entry* const pStored = m_video.Take(entry); pStored != Null) {
            GiveLatestChunks(*pStored);
        }
        if (entry.eKind != EntryKind::Audio) {
            return;
        }
        const UInt32 track = IndexedTrackOf(m_pAviInfo, entry.uiStreamNr);
        if (track < LX_AVIREAD_AUDIO_TRACKS) {
            CountPayload(m_pAviInfo, entry);
            CountAudioChunk(m_tracks[track].state, entry);
            GiveToWaitingKeyFrames(track);
        }
    }

private:
    struct Track {
        AudioState state; // bHaveChunk: a chunk came since the key frame stored last
        UInt32 uiWaiting; // key frames stored last that still wait for a chunk
    };

    void Log(const char* pText, UInt32 itemNr, UInt32 track, const Entry& entry) const
    {
        LX_LOG_TEXT(pText, itemNr, track, entry.audioFrameNumber[track],
               LX_HILO(entry.audioChunkOffset[track]), LX_HILO(entry.audioBytePosition[track]));
    }

    void GiveLatestChunks(Entry& entry)
    {
        for (UInt32 track = 0; track < LX_AVIREAD_AUDIO_TRACKS; ++track) {
            Track& audio = m_tracks[track];
            if (audio.state.bHaveChunk == 0) {
                ++audio.uiWaiting;
                continue;
            }
            WriteAudio(entry, track, audio.state);
            audio.state.bHaveChunk = 0; // and no key frame waits: the chunk went to those that did
            Log(LX_TEXT(kLevelIndex, "lxAviReadCore_ParseIndex: Store audio data ahead of video for %d item: tr=%d  fr#=%d offset=%d.%d "
                             "abp=%d.%d"),
                m_video.Builder().ItemNr(), track, entry);
        }
    }

    void GiveToWaitingKeyFrames(UInt32 track)
    {
        const KeyFrameTable table(m_pAviInfo);
        Track& audio = m_tracks[track];
        Position position = table.Last();
        bool bThere = position.valid == 1;
        for (; audio.uiWaiting > 0; --audio.uiWaiting) {
            LX_ASSERT(bThere, "TempLeaf != Null",
                      "reached start of List structure but tempAudioData.storeNext[audioTrackNumber]>0");
            if (bThere) {
                WriteAudio(*table.At(position), track, audio.state);
                Log(LX_TEXT(kLevelIndex, "lxAviReadCore_ParseIndex: Store audio data for %d item: tr=%d  fr#=%d offset=%d.%d abp=%d.%d"),
                    position.itemNr, track, *table.At(position));
                bThere = table.Prev(position);
            }
        }
    }

    lxAviReadCore_AviInfo_t* m_pAviInfo;
    KeyFrameFiller& m_video;
    Track m_tracks[LX_AVIREAD_AUDIO_TRACKS] = {};
};

// ---- Around the passes ----

// Constructs the table. The abort flag is looked at afterwards.
UInt32 BeginTable(const lxAviReadCore_AviInfo_t* pAviInfo, KeyFrameTableBuilder& builder, UInt32 neededLeafs)
{
    if (pAviInfo->pMetaDataBuffer == Null) {
        LX_LOG_TEXT(TextOf(kIdx1Texts, TableText::ArrayFailed), kMetaDataBytes); // the passes need it as they need the table
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    LX_AVIREAD_TRY(builder.Create(neededLeafs));
    return IsAborted(pAviInfo) ? LX_ERR_AVIREAD_ABORTED : LX_OK;
}

void FinishTable(lxAviReadCore_AviInfo_t* pAviInfo, KeyFrameFiller& filler)
{
    filler.Builder().Finish();
    LX_LOG(kLevelIndex, "AviRead:leafsCounter=%d", filler.Builder().LeafsInUse());
    const UInt32 leafs = pAviInfo->KeyFramesListAsArrayLength;
    LX_LOG(kLevelIndex, "\tNumber of leafs                      =%d", leafs);
    LX_LOG(kLevelIndex, "\tNumber of key frames                 =%d",
           (leafs - 1) * LEAF_ARRAY_LENGTH + pAviInfo->KeyFramesListAsArray[leafs - 1]->arrayLength);
    LX_LOG(kLevelIndex, "\tNumber of video frames               =%d", filler.FrameNumber());
    ClearMetaDataBuffer(pAviInfo);
}

// Builds the table from the records of a run, which `visit` takes.
template <typename Visitor>
UInt32 BuildTable(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, UInt32 neededLeafs, KeyFrameFiller& filler,
                  Visitor& visit)
{
    LX_ASSERT(neededLeafs > 0, "neededLeafs > 0", "neededLeafs should be > 0");
    if (neededLeafs == 0) {
        return LX_OK;
    }
    LX_AVIREAD_TRY(BeginTable(pAviInfo, filler.Builder(), neededLeafs));
    LX_AVIREAD_TRY(ForEachRecord(pAviInfo, run, visit));
    FinishTable(pAviInfo, filler);
    return LX_OK;
}

bool SeekToIdx1(lxAviReadCore_AviInfo_t* pAviInfo)
{
    return SeekAndRemember(pAviInfo, pAviInfo->idx1Offset, kFromStart);
}

// The two passes that fill the table. A seek that fails before the audio pass does not keep it from running.
UInt32 FillFromIdx1(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size, UInt32 skipKey, UInt32 neededLeafs)
{
    LX_AVIREAD_TRY(
        LX_AVIREAD_CALL(lxAviReadCore_ParseIndex_Video(instance, pAviInfo, size, skipKey, neededLeafs)));
    const bool bSought = SeekToIdx1(pAviInfo); // Quirk Q34
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(lxAviReadCore_ParseIndex_Audio(pAviInfo, size, neededLeafs)));
    return bSought ? LX_OK : LX_ERR_AVIREAD_SEEK;
}

// The three passes, each from the first record on.
UInt32 BuildFromIdx1(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo)
{
    const UInt32 size = pAviInfo->idx1Size;
    pAviInfo->uiMaxRecordsInBuffer = kRecordsPerRead;
    if (!AcquireMetaDataBuffer(pAviInfo)) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    SeekToIdx1(pAviInfo);
    UInt32 skipKey = 0;
    UInt32 neededLeafs = 0;
    UInt32 neededMemory = 0;
    UInt32 numberOfKeyFrames = 0;
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(lxAviReadCore_PreParseIdx1Chunk(pAviInfo, size, &skipKey, &neededLeafs,
                                                                   &neededMemory, &numberOfKeyFrames)));
    LX_LOG(kLevelIndex, "lxAviReadCore_PreParseIdx1Chunk: memoryUsageLimit:%d, ReqMemory=%d",
           pAviInfo->memoryUsageLimit, neededMemory);
    LX_LOG(kLevelIndex, "lxAviReadCore_PreParseIdx1Chunk: SkipKey:%d ReqLeafs=%d NoOfKeyFrames:%d", skipKey,
           neededLeafs, numberOfKeyFrames);
    UInt32 result = LX_ERR_AVIREAD_SEEK;
    if (SeekToIdx1(pAviInfo)) {
        result = FillFromIdx1(instance, pAviInfo, size, skipKey, neededLeafs);
        if (result != LX_OK && result != LX_ERR_AVIREAD_SEEK) {
            return result; // the batch buffer stays for the clean-up
        }
    }
    ReleaseMetaDataBuffer(pAviInfo);
    LX_LOG(kLevelLeave, "Leaving lxAviReadCore_ParseIdx1Chunk %x", result);
    return result;
}

// ---- Where the offsets count from ----

// Whether the file has the chunk of `record` where it says, counted from `base`. A "rec " record names a list's type.
bool IsChunkAt(lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_IDXrecord_t& record, UInt64 base)
{
    const UInt32 id = UInt32{record.uiStreamCharacters} | static_cast<UInt32>(record.uiChunkType) << 16;
    UInt32 code = 0;
    return SeekAndRemember(pAviInfo, base + record.uiOffset, kFromStart) && ReadRecord(pAviInfo, code) == LX_OK &&
           code == (id == FourCC("rec ") ? FourCC("LIST") : id);
}

// What makes the offsets of the index absolute. Writers count from the file's start, from the "movi" code, or from
// somewhere that makes the first record the first chunk's: the first record tells, and for the last the second has to agree.
UInt64 ChooseOffsetBase(lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_IDXrecord_t (&records)[2])
{
    const lxAviReadCore_IDXrecord_t& first = records[0];
    const UInt64 fromMovi = pAviInfo->moviOffset - kStartInMovi;
    for (const UInt64 base : {UInt64{0}, fromMovi}) {
        if (IsChunkAt(pAviInfo, first, base)) {
            return base;
        }
    }
    const UInt64 fromFirst = pAviInfo->moviOffset - first.uiOffset;
    const bool bAgreed = pAviInfo->idx1Size < sizeof records || IsChunkAt(pAviInfo, records[1], fromFirst);
    if (bAgreed && IsChunkAt(pAviInfo, first, fromFirst)) {
        return fromFirst;
    }
    return first.uiOffset >= pAviInfo->moviOffset ? 0 : fromMovi;
}

// Settles the base for the passes, and leaves the file where it stood: at the first record.
void SettleOffsetBase(lxAviReadCore_AviInfo_t* pAviInfo)
{
    UInt64 base = 0;
    UInt64 position = 0;
    if (FollowsFormat(pAviInfo) && TellPosition(pAviInfo, position)) {
        lxAviReadCore_IDXrecord_t records[2] = {};
        const bool bThere = AllowEarlyEnd(pAviInfo, ReadRecord(pAviInfo, records)) == LX_OK;
        base = bThere ? ChooseOffsetBase(pAviInfo, records) : 0;
        SeekAndRemember(pAviInfo, position, kFromStart);
    }
    SetOffsetBase(base);
}

// ---- The choice of the index ----

bool HasUsableIdx1(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    return pAviInfo->idx1Size != 0 && pAviInfo->videoStreamNr >= 0;
}

UInt32 ParseIdx1(UInt32 instance, const lxAviReadCore_AviInfo_t* pAviInfo)
{
    return HasUsableIdx1(pAviInfo) ? LX_AVIREAD_CALL(lxAviReadCore_ParseIdx1Chunk(instance)) : LX_ERR_AVIREAD_NO_INDEX;
}

// Frames of the main video stream in `idx1`; 0 when it cannot be read.
UInt32 CountFramesInIdx1(lxAviReadCore_AviInfo_t* pAviInfo)
{
    FirstPass pass(false);
    if (HasUsableIdx1(pAviInfo) && AcquireMetaDataBuffer(pAviInfo) && SeekToIdx1(pAviInfo)) {
        const UInt32 result = RunFirstPass(pAviInfo, pAviInfo->idx1Size, kRecordsPerRead, pass);
        return result == LX_OK ? pass.Counter().uiFrames : 0;
    }
    return 0;
}

// The totals of the streams, for an index that is read from the start.
void ForgetStreamSizes(lxAviReadCore_AviInfo_t* pAviInfo)
{
    for (lxAviReadCore_StreamInfo_t* pStream : pAviInfo->StreamInfo) {
        if (pStream != Null) {
            pStream->uiStreamSize = 0;
        }
    }
}

// A file that has both indexes gets its table from the one that covers more of it, the OpenDML index if they are equal.
UInt32 ParseIndexThatCoversMost(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo)
{
    if (lxalAviRead_FileSeekPossible == 0) {
        return LX_ERR_AVIREAD_NO_INDEX; // what is read to no purpose is lost for delivery
    }
    ForgetStreamSizes(pAviInfo);
    if (pAviInfo->bIndxPresent == 0) {
        return ParseIdx1(instance, pAviInfo);
    }
    const UInt32 framesInIdx1 = CountFramesInIdx1(pAviInfo);
    const UInt32 result = LX_AVIREAD_CALL(lxAvi2ReadCore_ParseIndxIndex(instance, pAviInfo));
    const bool bEnough = result == LX_OK && SurveyedFrames() >= framesInIdx1;
    if (bEnough || framesInIdx1 == 0 || (result != LX_OK && !IsUnusableIndex(result))) {
        return result;
    }
    ForgetStreamSizes(pAviInfo);
    return ParseIdx1(instance, pAviInfo);
}

UInt32 ParseChosenIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo)
{
    if (FollowsFormat(pAviInfo)) {
        return ParseIndexThatCoversMost(instance, pAviInfo);
    }
    if (pAviInfo->bIndxPresent != 0) { // Quirk Q49
        return LX_AVIREAD_CALL(lxAvi2ReadCore_ParseIndxIndex(instance, pAviInfo));
    }
    return ParseIdx1(instance, pAviInfo);
}

} // namespace
} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_ParseIndex(UInt32 instance)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    LX_LOG(kLevelEnter, "Entering lxAviReadCore_ParseIndex");
    ReleaseKeyFrameTable(pAviInfo, TableReleaseTrace::IndexDriver);
    const UInt32 result = ParseChosenIndex(instance, pAviInfo);
    ForgetDanglingPositions(pAviInfo);
    LX_LOG(kLevelLeave, "Leaving lxAviReadCore_ParseIndex %x", result);
    return result;
}

UInt32 lxAviReadCore_ParseIdx1Chunk(UInt32 instance)
{
    LX_LOG(kLevelEnter, "Entering lxAviReadCore_ParseIdx1Chunk");
    return BuildFromIdx1(instance, &lxAviReadCore_AviInfo);
}

UInt32 lxAviReadCore_PreParseIdx1Chunk(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiSize, UInt32* SkipKey,
                                       UInt32* neededLeafs, UInt32* neededMemory, UInt32* numberOfKeyFrames)
{
    LX_LOG(kLevelEnter, "Entering lxAviReadCore_PreParseIdx1Chunk");
    LX_ASSERT(numberOfKeyFrames != Null, "numberOfKeyFrames!=Null", "numberOfKeyFrames must be initialized");
    if (numberOfKeyFrames == Null) {
        return LX_OK;
    }
    const UInt32 streams = pAviInfo->AviHdr != Null ? pAviInfo->AviHdr->dwStreams : 0;
    LX_LOG(kLevelIndex, "Num of Streams : %d, Frame rate : %d, ConsFramesThr : %d", streams, 0,
           ConsecutiveFramesThreshold(pAviInfo, streams));
    SettleOffsetBase(pAviInfo);
    FirstPass pass(streams > 1 && IsLogged(kLevelIndex));
    const UInt32 passed = RunFirstPass(pAviInfo, uiSize, pAviInfo->uiMaxRecordsInBuffer, pass);
    if (!pass.IsEmpty()) {
        DecideOffsetBase(pAviInfo, pass.FirstOffset());
    }
    LX_AVIREAD_TRY(passed);
    *numberOfKeyFrames += SettleKeyFrames(pAviInfo, pass.Counter());
    const UInt32 result =
        lxAviReadCore_CalcLeafsNeededAndSkipValue(pAviInfo, numberOfKeyFrames, neededLeafs, neededMemory, SkipKey);
    ClearMetaDataBuffer(pAviInfo);
    LX_LOG(kLevelLeave, "Leaving lxAviReadCore_PreParseIdx1Chunk %x", result);
    return result;
}

UInt32 lxAviReadCore_ParseIndex_Video(UInt32 /*instance*/, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiSize,
                                      UInt32 SkipKey, UInt32 neededLeafs)
{
    KeyFrameFiller filler(pAviInfo, kIdx1Texts, SkipKey);
    return BuildTable(pAviInfo, Idx1Run(pAviInfo, uiSize, pAviInfo->uiMaxRecordsInBuffer), neededLeafs, filler, filler);
}

UInt32 lxAviReadCore_ParseIndex_Audio(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiSize, UInt32 /*neededLeafs*/)
{
    if (pAviInfo->KeyFramesListAsArrayLength > 0) {
        pAviInfo->KeyFramesListAsArray[0]->pPrevLeaf = Null;
    }
    AudioByTrack tracks(pAviInfo);
    LX_AVIREAD_TRY(ForEachRecord(pAviInfo, Idx1Run(pAviInfo, uiSize, pAviInfo->uiMaxRecordsInBuffer), tracks));
    tracks.Complete();
    ClearMetaDataBuffer(pAviInfo);
    return LX_OK;
}

UInt32 lxAviReadCore_ParseVideoAudioIndex(UInt32 /*instance*/, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiSize,
                                          UInt32 SkipKey, UInt32 neededLeafs)
{
    constexpr UInt32 kOneRecord = 1;
    KeyFrameFiller filler(pAviInfo, kSinglePassTexts, SkipKey);
    SinglePassFiller singlePass(pAviInfo, filler);
    return BuildTable(pAviInfo, Idx1Run(pAviInfo, uiSize, kOneRecord), neededLeafs, filler, singlePass);
}
