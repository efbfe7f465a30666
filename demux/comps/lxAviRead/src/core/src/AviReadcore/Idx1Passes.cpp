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

UInt64 s_uiOffsetBase;

// Decodes records. A file has few identifiers, which come again and again: the decoder remembers what the last few
// mean, in a slot by the second digit of the stream number.
class Idx1Decoder {
public:
    explicit Idx1Decoder(const lxAviReadCore_AviInfo_t* pAviInfo)
        : m_iVideoStreamNr(pAviInfo->videoStreamNr),
          m_uiOffsetBase(s_uiOffsetBase), m_meanings{MeaningOf(0), MeaningOf(0), MeaningOf(0), MeaningOf(0)}
    {
    }

    IndexEntry operator()(const UInt8* pRecord)
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
                .uiOffset = record.uiOffset + m_uiOffsetBase};
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
    UInt64 m_uiOffsetBase;
    Meaning m_meanings[kMeanings];
};

constexpr MessageRow<PlacerText> kPlacerRows[] = {
    {PlacerText::Stored, kLevelIndex, "Storing A%d for %d.%d  fr#%d Offset=%d.%d BP=%d.%d"},
    {PlacerText::Moved, kLevelIndex,
     "KF_data.leafNr.itemNr=%d.%d offset=%d valid=%d ;  _KF: leafNr.itemNr=%d.%d offset=%d valid=%d"},
};
static_assert(IsMessageTable(kPlacerRows, kPlacerTextArguments));
constexpr PlacerMessages kIdx1PlacerMessages = {kPlacerRows, false};

// Hands the records of the index to `visit`, as far as the file has them.
template <typename Visitor>
UInt32 ForEachRecord(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, Visitor&& visit)
{
    return AllowEarlyEnd(pAviInfo, ForEachEntry(pAviInfo, run, Idx1Decoder(pAviInfo), visit));
}

// ---- Survey ----

// Logs every record, and how many of the video stream stand in a row.
class RecordLog {
public:
    void operator()(const IndexEntry& entry)
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

// Hands every audio record to the placer of its track. All eight tracks are placed in one pass.
class AudioByTrack {
public:
    explicit AudioByTrack(const lxAviReadCore_AviInfo_t* pAviInfo)
    {
        UInt32 nextTrack = 0;
        for (AudioPlacer& placer : m_placers) {
            placer.Begin(pAviInfo, nextTrack++, kIdx1PlacerMessages);
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

    void Complete()
    {
        for (AudioPlacer& placer : m_placers) {
            placer.Complete();
        }
    }

private:
    AudioPlacer m_placers[LX_AVIREAD_AUDIO_TRACKS];
    UInt32 m_trackOfStream[LX_AVIREAD_STREAMS + 1]; // the last one serves all numbers that no stream has
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

    // `pWhere` tells whether the chunk comes before the key frame.
    static void Log(const char* pWhere, UInt32 itemNr, UInt32 track, const Entry& entry)
    {
        LX_LOG(kLevelIndex,
               "lxAviReadCore_ParseIndex: Store audio data %sfor %d item: tr=%d  fr#=%d offset=%d.%d abp=%d.%d", pWhere,
               itemNr, track, entry.audioFrameNumber[track], LX_HILO(entry.audioChunkOffset[track]),
               LX_HILO(entry.audioBytePosition[track]));
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
            audio.state.bHaveChunk = 0; // no key frame waits now: the chunk was given to all that waited
            Log("ahead of video ", m_video.Builder().ItemNr(), track, entry);
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
                Log("", position.itemNr, track, *table.At(position));
                bThere = table.Prev(position);
            }
        }
    }

    lxAviReadCore_AviInfo_t* m_pAviInfo;
    KeyFrameFiller& m_video;
    Track m_tracks[LX_AVIREAD_AUDIO_TRACKS] = {};
};

} // namespace

void SetIdx1OffsetBase(UInt64 base) { s_uiOffsetBase = base; }

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

UInt32 StoreAndPlace(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, KeyFrameFiller& filler)
{
    return ForEachRecord(pAviInfo, run, SinglePassFiller(pAviInfo, filler));
}

} // namespace lxAviReadCore
