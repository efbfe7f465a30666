// The passes over `idx1`, whose loops run once per record.

#include "internal/Idx1Passes.hpp"

namespace lxAviReadCore {
namespace {

constexpr UInt32 kKeyFrameFlag = 0x10;

// A record in the batch buffer, which is aligned for records of words.
const lxAviReadCore_IDXrecord_t& RecordAt(const UInt8* pRecord)
{
    return *reinterpret_cast<const lxAviReadCore_IDXrecord_t*>(pRecord);
}

bool IsAudio(const UInt8* pRecord) { return RecordAt(pRecord).uiChunkType == TwoCC("wb"); }

UInt64 s_uiOffsetBase;

// Decodes records. Most often a record has the identifier of the record decoded before it. If not, it is one of few,
// which come again and again: the decoder remembers what the last few mean, in a slot by the second digit of the stream
// number.
class Idx1Decoder {
public:
    explicit Idx1Decoder(const lxAviReadCore_AviInfo_t* pAviInfo)
        : m_pAviInfo(pAviInfo), m_uiOffsetBase(s_uiOffsetBase), m_pMeaning(m_slots)
    {
        for (Meaning& slot : m_slots) {
            Learn(slot, 0);
        }
    }
    Idx1Decoder(const Idx1Decoder&) = delete;
    Idx1Decoder& operator=(const Idx1Decoder&) = delete;

    IndexEntry operator()(const UInt8* pRecord)
    {
        const lxAviReadCore_IDXrecord_t& record = RecordAt(pRecord);
        if (const auto id = Load<UInt32>(pRecord); m_pMeaning->uiId != id) {
            m_pMeaning = Recall(id);
        }
        const EntrySource& source = m_pMeaning->source;
        return {.pSource = &source,
                .eKind = (record.uiFlags & kKeyFrameFlag) != 0 ? source.eFlaggedKind : source.eKind,
                .uiSize = record.uiSize,
                .uiOffset = record.uiOffset + m_uiOffsetBase};
    }

private:
    struct Meaning {
        UInt32 uiId;
        EntrySource source;
    };
    static constexpr UInt32 kSlots = 4;

    const Meaning* Recall(UInt32 id);
    const Meaning* Learn(Meaning& slot, UInt32 id) const;

    const lxAviReadCore_AviInfo_t* m_pAviInfo;
    UInt64 m_uiOffsetBase;
    Meaning m_slots[kSlots];
    const Meaning* m_pMeaning; // of the identifier decoded last
};

const Idx1Decoder::Meaning* Idx1Decoder::Recall(UInt32 id)
{
    Meaning& slot = m_slots[ByteOf(id, 1) % kSlots];
    return slot.uiId == id ? &slot : Learn(slot, id);
}

const Idx1Decoder::Meaning* Idx1Decoder::Learn(Meaning& slot, UInt32 id) const
{
    slot = {id, SourceOfIdentifier(m_pAviInfo, id)};
    return &slot;
}

// ---- Survey ----

// Logs every record, and how many of the video stream stand in a row.
class RecordLog {
public:
    void operator()(IndexEntry entry)
    {
        m_uiInARow = IsMainVideo(entry.eKind) ? m_uiInARow + 1 : 0;
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

// ---- Single pass ----

// Fills video and audio in index order: a key frame gets the track's latest chunk before it, if one came since the
// key frame stored before, else the first one after it.
class SinglePassFiller {
public:
    SinglePassFiller(lxAviReadCore_AviInfo_t* pAviInfo, KeyFrameFiller& video) : m_pAviInfo(pAviInfo), m_video(video) {}

    void operator()(IndexEntry entry)
    {
        if (Entry* const pStored = m_video.Take(entry); pStored != Null) {
            GiveLatestChunks(*pStored);
        }
        if (entry.eKind != EntryKind::Audio) {
            return;
        }
        const UInt32 track = entry.pSource->uiTrack;
        if (track < LX_AVIREAD_AUDIO_TRACKS) {
            CountPayload(entry);
            m_tracks[track].uiNumber = CountAudioChunk(m_tracks[track].state, entry);
            TotalsOf(entry.pSource->uiStreamNr).uiAudioUnits = m_tracks[track].state.chunkCount;
            GiveToWaitingKeyFrames(track);
        }
    }

private:
    struct Track {
        AudioState state; // bHaveChunk: a chunk came since the key frame stored last
        UInt32 uiNumber;  // of its last chunk
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
            WriteAudio(entry, track, audio.state, audio.uiNumber);
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
                WriteAudio(*table.At(position), track, audio.state, audio.uiNumber);
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
    Idx1Survey found;
    Idx1Decoder decode(pAviInfo);
    RecordLog log;
    const auto count = [&](const UInt8* pRecord) {
        if (!IsAudio(pRecord)) {
            found.counter(decode(pRecord));
        }
    };
    const auto countAndLog = [&](const UInt8* pRecord) {
        count(pRecord);
        log(decode(pRecord));
    };
    IndexBatches batches(pAviInfo, run);
    while (batches.Next()) {
        if (found.bEmpty) {
            found.bEmpty = false;
            found.uiFirstOffset = decode(batches.First()).uiOffset;
        }
        bLogRecords ? batches.ForEach(countAndLog) : batches.ForEach(count);
    }
    survey = found;
    return AllowEarlyEnd(pAviInfo, batches.Result());
}

UInt32 StoreKeyFrames(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, KeyFrameFiller& filler)
{
    Idx1Decoder decode(pAviInfo);
    const auto store = [&](const UInt8* pRecord) {
        if (IsAudio(pRecord)) {
            filler.CancelDrm();
        } else {
            filler.Take(decode(pRecord));
        }
    };
    return EndPass(pAviInfo, AllowEarlyEnd(pAviInfo, ForEachRecord(pAviInfo, run, store)));
}

UInt32 PlaceAudio(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run)
{
    AudioByTrack tracks(pAviInfo, kPlainPlacerMessages);
    Idx1Decoder decode(pAviInfo);
    const auto place = [&](const UInt8* pRecord) {
        if (IsAudio(pRecord)) {
            tracks.Take(decode(pRecord));
        }
    };
    LX_AVIREAD_TRY(EndPass(pAviInfo, AllowEarlyEnd(pAviInfo, ForEachRecord(pAviInfo, run, place))));
    tracks.Complete();
    return LX_OK;
}

UInt32 StoreAndPlace(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, KeyFrameFiller& filler)
{
    SinglePassFiller both(pAviInfo, filler);
    Idx1Decoder decode(pAviInfo);
    return EndPass(pAviInfo, AllowEarlyEnd(pAviInfo, ForEachEntry(pAviInfo, run, decode, both)));
}

} // namespace lxAviReadCore
