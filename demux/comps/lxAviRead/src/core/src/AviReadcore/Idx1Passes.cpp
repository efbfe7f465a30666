// The passes over `idx1`, whose loops run once per record.

#include "internal/Idx1Passes.hpp"

namespace lxAviReadCore {
namespace {

constexpr UInt32 kKeyFrameFlag = 0x10;

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

    [[gnu::cold]] Meaning MeaningOf(UInt32 id) const
    {
        const UInt16 streamNr = StreamNumber(LowHalf(id));
        return {id, streamNr, KindOf(HighHalf(id), Int32{streamNr} == m_iVideoStreamNr)};
    }

    Int32 m_iVideoStreamNr;
    UInt64 m_qwBaseOffset;
    Meaning m_meanings[kMeanings];
};

constexpr IndexFormat kIdx1Format = {kIdx1RecordBytes, &kCoreRead};

constexpr PlacerTexts kIdx1PlacerTexts = {
    kTextList<LX_PACKED(kLevelIndex, "Storing A%d for %d.%d  fr#%d Offset=%d.%d BP=%d.%d"),
              LX_PACKED(kLevelIndex, "KF_data.leafNr.itemNr=%d.%d offset=%d valid=%d ;  _KF: leafNr.itemNr=%d.%d offset=%d valid=%d")>,
    false};

// Hands the records of the index to `visit`, as far as the file has them.
template <typename Visitor>
UInt32 ForEachRecord(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, Visitor&& visit)
{
    return AllowEarlyEnd(pAviInfo, ForEachEntry<Idx1Decoder>(pAviInfo, run, visit));
}

// ---- Survey ----

// Logs every record, and how many of the video stream stand in a row.
class RecordLog {
public:
    [[gnu::cold]] void operator()(const IndexEntry& entry)
    {
        m_uiInARow = entry.eKind == EntryKind::MainVideo ? m_uiInARow + 1 : 0;
        if (m_uiInARow > 0) {
            LX_LOG(kLevelIndex, "Video Consecutive Frames Counter : %d", m_uiInARow);
        }
        LX_LOG(kLevelIndex, "lxAviReadCore_PerParseIndex: Record( %d)  Offset =%u ", m_uiRecord,
               static_cast<UInt32>(entry.uiOffset));
        ++m_uiRecord;
    }

private:
    UInt32 m_uiInARow = 0;
    UInt32 m_uiRecord = 0;
};

// ---- Audio ----

// Gives the records of an index their place by track: up to eight tracks are walked at once.
class AudioByTrack {
public:
    [[gnu::cold]] explicit AudioByTrack(const lxAviReadCore_AviInfo_t* pAviInfo)
    {
        UInt32 nextTrack = 0;
        for (AudioPlacer& placer : m_placers) {
            placer.Begin(pAviInfo, nextTrack++, kIdx1PlacerTexts);
        }
        UInt32 nextStream = 0;
        for (UInt32& track : m_trackOfStream) {
            track = IndexedTrackOf(pAviInfo, nextStream++);
        }
    }

    void operator()(const IndexEntry& entry)
    {
        if (entry.eKind != EntryKind::Audio) {
            return;
        }
        const UInt32 track = m_trackOfStream[std::min<UInt32>(entry.uiStreamNr, LX_AVIREAD_STREAMS)];
        if (track >= LX_AVIREAD_AUDIO_TRACKS) {
            LX_LOG(kLevelIndex, "lxAviReadCore_ParseIndex: Audio chunk found %d ", track);
            return;
        }
        m_placers[track].Take(entry);
    }

    [[gnu::cold]] void Complete()
    {
        for (AudioPlacer& placer : m_placers) {
            placer.Complete();
        }
    }

private:
    AudioPlacer m_placers[LX_AVIREAD_AUDIO_TRACKS];
    UInt32 m_trackOfStream[LX_AVIREAD_STREAMS + 1]; // the last one stands for all numbers that no stream has
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

    [[gnu::cold]] void GiveLatestChunks(Entry& entry)
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

    [[gnu::cold]] void GiveToWaitingKeyFrames(UInt32 track)
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

} // namespace

IndexRun Idx1Run(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size, UInt32 batch)
{
    return {.pFormat = &kIdx1Format,
            .uiEntries = size / kIdx1RecordBytes,
            .uiBatch = batch,
            .iVideoStreamNr = pAviInfo->videoStreamNr,
            .uiStreamNr = 0,
            .eKind = EntryKind::Other,
            .qwBaseOffset = OffsetBase(),
            .uiOffsetMask = 0,
            .pBatchFailedText = Null};
}

UInt32 SurveyIdx1(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, bool bLogRecords, Idx1Survey& survey)
{
    RecordLog log;
    Idx1Survey found;
    const auto visit = [&](const IndexEntry& entry) {
        if (found.bEmpty) {
            found.bEmpty = false;
            found.uiFirstOffset = entry.uiOffset;
        }
        found.counter(entry);
        if (bLogRecords) {
            log(entry);
        }
    };
    const UInt32 result = ForEachRecord(pAviInfo, run, visit);
    survey = found;
    return result;
}

UInt32 StoreKeyFrames(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, KeyFrameFiller& filler)
{
    return ForEachRecord(pAviInfo, run, filler);
}

UInt32 PlaceAudio(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run)
{
    AudioByTrack tracks(pAviInfo);
    LX_AVIREAD_TRY(ForEachRecord(pAviInfo, run, tracks));
    tracks.Complete();
    return LX_OK;
}

[[gnu::cold]] UInt32 StoreAndPlace(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, KeyFrameFiller& filler)
{
    return ForEachRecord(pAviInfo, run, SinglePassFiller(pAviInfo, filler));
}

} // namespace lxAviReadCore
