// The passes over an index, whatever its family: batches of records are read and decoded, and visitors count key
// frames, fill the table, and place the audio.
//
//   ForEachRecord(run, visitor)         one run of records: batches, abort tests, the family's read
//   ForEachEntry(run, decoder, visitor) the same, decoded
//     FrameCounter                      how many frames and key frames
//     KeyFrameFiller                    every SkipKey-th of them into the table
//     AudioPlacer                       which chunk of an audio track plays at each stored key frame

#pragma once

#include "FileAccess.hpp"
#include "KeyFrames.hpp"
#include "Streams.hpp"

#include <algorithm>
#include <span>

namespace lxAviReadCore {

enum class EntryKind : UInt8 {
    None,     // the kind of no record
    Frame,    // of the main video stream, without the key flag
    KeyFrame, // and with it
    OtherVideo,
    Audio,
    MainDrm, // "dd" of the main video stream
    OtherDrm,
    Other,
};

constexpr bool IsMainVideo(EntryKind eKind) { return eKind == EntryKind::Frame || eKind == EntryKind::KeyFrame; }

// What one pass counts of a stream.
struct PassTotals {
    UInt64 uiBytes; // payload
    UInt32 uiChunks;
};

// Called when a pass ends, with its result, which it returns: adds what the pass has counted to the totals of the streams.
UInt32 EndPass(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 result);

// What the passes have counted of a stream since the totals were forgotten.
struct StreamTotals {
    UInt64 uiBytes; // payload
    UInt32 uiChunks;
    UInt32 uiAudioUnits; // what the numbers of audio chunks count
};

StreamTotals& TotalsOf(UInt32 streamNr);
void ForgetTotals();
void ForgetTotalsOf(UInt32 streamNr);
// The same for all streams, and for what their records hold. Called before an index is read from its start.
void ForgetStreamSizes(lxAviReadCore_AviInfo_t* pAviInfo);
// What the totals were counted in, `LX_AVIREAD_SUMMARY_…`; an index, until this is called.
void SetOriginOfTotals(UInt32 origin);

// What the records of one identifier have in common. The passes find it out once, not for every record.
struct EntrySource {
    EntryKind eKind;        // of records without the key flag
    EntryKind eFlaggedKind; // and with it
    UInt32 uiStreamNr;
    UInt32 uiTrack;      // audio track that audio records count for, or kNoTrack
    UInt32 uiBlockBytes; // of the blocks that audio chunks count; 0: every chunk counts one
    PassTotals* pTotals; // of the stream; of a stream that the headers have not described, those that nobody reads
};

// The source of records of a kind; frames with the key flag are key frames.
EntrySource SourceOf(const lxAviReadCore_AviInfo_t* pAviInfo, EntryKind eKind, UInt32 streamNr);

// The source of the records, or of the chunks, with an identifier.
EntrySource SourceOfIdentifier(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 id);

// What any index record says. It is passed by value, so that the compiler can keep it in registers.
struct IndexEntry {
    const EntrySource* pSource;
    EntryKind eKind;
    UInt32 uiSize;   // payload bytes
    UInt64 uiOffset; // of the chunk, in the index's base
};

// Adds a chunk to the totals of its stream.
inline void CountPayload(IndexEntry entry)
{
    PassTotals& totals = *entry.pSource->pTotals;
    totals.uiBytes += entry.uiSize;
    ++totals.uiChunks;
}

// What is said about a batch that could not be read.
enum class FailedBatch : UInt8 {
    IsSilent,
    IsACall,  // what is said about every failed call
    IsABatch, // how many records it has
};

// A run of records from where the file stands. What a record says is the decoder's business.
struct IndexRun {
    UInt32 uiEntries;
    UInt32 uiRecordSize; // bytes
    UInt32 uiBatch;      // records of one read
    const ReadFamily* pRead;
    FailedBatch eFailedBatch;
};

// What the families log while they place audio.
enum class PlacerText : UInt32 {
    Stored, // track, leaf, item, frame, offset, byte position
    Moved,  // leaf, item, offset, valid of the cursor: before, after
    Count,
};
constexpr UInt8 kPlacerTextArguments[] = {8, 8};

struct PlacerMessages {
    const MessageRow<PlacerText>* pRows;
    bool bMovedFirst; // true: log Moved before advancing and Stored after; false: the reverse
};

// Of all but the OpenDML index.
constexpr MessageRow<PlacerText> kPlainPlacerRows[] = {
    {PlacerText::Stored, kLevelIndex, "Storing A%d for %d.%d  fr#%d Offset=%d.%d BP=%d.%d"},
    {PlacerText::Moved, kLevelIndex,
     "KF_data.leafNr.itemNr=%d.%d offset=%d valid=%d ;  _KF: leafNr.itemNr=%d.%d offset=%d valid=%d"},
};
static_assert(IsMessageTable(kPlainPlacerRows, kPlacerTextArguments));
constexpr PlacerMessages kPlainPlacerMessages = {kPlainPlacerRows, false};

// The records of a run in the batch buffer, batch by batch.
class IndexBatches {
public:
    IndexBatches(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run);

    // Reads the next batch; false where the run ends. When the abort flag is set before or after the read, the result
    // is LX_ERR_AVIREAD_ABORTED, whatever the read gave.
    bool Next();
    const UInt8* First() const { return static_cast<const UInt8*>(m_pAviInfo->pMetaDataBuffer); }

    // Hands every record of the batch to `visit`.
    template <typename Visitor>
    void ForEach(Visitor&& visit) const
    {
        const size_t recordSize = m_run.uiRecordSize;
        const UInt8* const pEnd = First() + m_uiCount * recordSize;
        for (const UInt8* pRecord = First(); pRecord != pEnd; pRecord += recordSize) {
            visit(pRecord);
        }
    }

    UInt32 Result() const { return m_uiResult; }

private:
    UInt32 Read(UInt32 records);

    lxAviReadCore_AviInfo_t* m_pAviInfo;
    const IndexRun& m_run;
    UInt32 m_uiLargest; // batch, in records
    UInt32 m_uiLeft;    // records to come
    UInt32 m_uiCount = 0;
    UInt32 m_uiResult = LX_OK;
};

// Hands every record of a run to `visit`, in file order, as a pointer to its bytes. Needs the batch buffer.
template <typename Visitor>
[[nodiscard]] UInt32 ForEachRecord(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, Visitor&& visit)
{
    IndexBatches batches(pAviInfo, run);
    while (batches.Next()) {
        batches.ForEach(visit);
    }
    return batches.Result();
}

// Hands what `decode` makes of every record to `visit`.
template <typename Decoder, typename Visitor>
[[nodiscard]] UInt32 ForEachEntry(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, Decoder& decode,
                                  Visitor&& visit)
{
    return ForEachRecord(pAviInfo, run, [&](const UInt8* pRecord) { visit(decode(pRecord)); });
}

// Counts the frames of the main video stream.
class FrameCounter {
public:
    void operator()(IndexEntry entry)
    {
        if (entry.eKind == EntryKind::Frame) {
            ++m_uiUnflagged;
        } else if (entry.eKind == EntryKind::KeyFrame) {
            ++m_uiKeyFrames;
        }
    }

    UInt32 KeyFrames() const { return m_uiKeyFrames; } // those that the index says to be
    UInt32 Frames() const { return m_uiUnflagged + m_uiKeyFrames; }

private:
    UInt32 m_uiUnflagged = 0;
    UInt32 m_uiKeyFrames = 0;
};

// Concludes the first pass: decides which frames the passes that follow take for key frames, and returns their number.
[[nodiscard]] UInt32 SettleKeyFrames(const lxAviReadCore_AviInfo_t* pAviInfo, const FrameCounter& counter);

// Frames of the main video stream that the first pass made last has counted.
UInt32 SurveyedFrames();

// Forgets what first passes have decided and counted.
void ForgetIndexSurvey();

// Stores every SkipKey-th key frame of the main video stream, and totals the video payload. Where a growing table is
// full, it keeps every second entry and stores half as many from there on.
class KeyFrameFiller {
public:
    KeyFrameFiller(lxAviReadCore_AviInfo_t* pAviInfo, TableMessages pMessages, UInt32 skipKey);

    KeyFrameTableBuilder& Builder() { return m_builder; }
    UInt32 FrameNumber() const { return m_uiFrameNumber; } // video frames seen so far
    UInt32 SkipCounter() const { return m_uiSkipCounter; }

    // Continues where another run has ended.
    void Resume(UInt32 leafNr, UInt32 frameNumber, UInt32 skipCounter);

    // Takes one record; the entry that it stored, or null. Most records are finished here.
    Entry* Take(IndexEntry entry)
    {
        if (entry.eKind != m_ePassedOn) {
            return TakeAny(entry);
        }
        CountPayload(entry);
        PassOn();
        return Null;
    }

    // Stores the frame that was the first one, because no frame was a key frame. Decoding can begin there.
    void StoreFirstFrame(IndexEntry first);

    // Called for a record that is neither video nor "dd": a descriptor before it belongs to no frame.
    void CancelDrm() { m_bDrmPending = false; }

    void operator()(IndexEntry entry) { Take(entry); }

private:
    // On to the next frame of the main video stream.
    void PassOn()
    {
        CancelDrm();
        ++m_uiFrameNumber;
    }

    bool IsKeyFrame(IndexEntry entry) const;
    Entry* TakeAny(IndexEntry entry);
    Entry* TakeMainVideo(IndexEntry entry);
    void PassOver(bool bKeyFrame);
    void Thin();
    Entry* Store(IndexEntry entry);
    UInt64 FrameTime() const;

    KeyFrameTableBuilder m_builder;
    UInt32 m_uiSkipKey;
    EntryKind m_ePassedOn; // what needs no closer look: frames without the key flag, or nothing
    const lxAviReadCore_AviInfo_t* m_pAviInfo;
    double m_millisecondsPerFrame;
    UInt32 m_uiSkipCounter = 0; // 0: the next key frame is stored
    UInt32 m_uiFrameNumber = 0;
    UInt64 m_uiDrmOffset = 0; // of the "dd" chunk before the next frame
    bool m_bDrmPending = false;
};

// What is known of an audio track while its chunks are walked.
using AudioState = lxAvi2ReadCore_AudioIndexState_t;

// The number of the last chunk of a track that has none yet.
constexpr UInt32 kNoChunk = 0xFFFFFFFFu;

// Makes `chunk` the last one of the track, and returns its number. Used by the placers and by the single-pass builder.
inline UInt32 CountAudioChunk(AudioState& state, IndexEntry chunk)
{
    const UInt32 number = state.chunkCount;
    state.bHaveChunk = 1;
    state.lastChunkBytePosition = state.totalBytes;
    state.totalBytes += chunk.uiSize;
    state.lastChunkOffset = chunk.uiOffset;
    state.chunkCount += UnitsOfChunk(chunk.pSource->uiBlockBytes, chunk.uiSize);
    return number;
}

// Writes the last chunk of a track, whose number is `number`, into an entry; without one writes 0xFFFFFFFF, 0, 0.
inline void WriteAudio(Entry& entry, UInt32 track, const AudioState& state, UInt32 number)
{
    entry.audioFrameNumber[track] = number;
    entry.audioChunkOffset[track] = state.lastChunkOffset;
    entry.audioBytePosition[track] = state.lastChunkBytePosition;
}

// Gives every key frame the audio chunk of one track that plays at its time.
class AudioPlacer {
public:
    // Called before the first chunk. It is no constructor, because the placers of all tracks are in an array.
    void Begin(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 track, const PlacerMessages& messages);
    // Continues where another run has ended.
    void Resume(const AudioState& state, const Position& cursor, UInt32 cursorTime, UInt32 blockBytes);

    // Takes the next chunk of the track: places the one before it where that is due, and counts this one.
    void Take(IndexEntry entry)
    {
        if (!IsWithinReach(entry)) {
            PlaceBefore(entry);
        }
        CountPayload(entry);
        m_uiNumber = CountAudioChunk(m_state, entry);
    }

    // Gives the last chunk to the key frames of a leaf that are left. Called for every leaf, after the last chunk.
    void CompleteLeaf(Leaf& leaf, UInt32 leafNr) const;
    // Adds to the totals what the chunks count.
    void NoteUnits() const;

    const AudioState& State() const { return m_state; }
    const Position& Cursor() const { return m_cursor; }
    UInt32 CursorTime() const { return m_uiCursorTime; }

private:
    static constexpr UInt32 kNoStream = 0xFFFFFFFF;

    // A place in a stream: chunks and payload bytes before it.
    struct Reach {
        UInt32 uiStreamNr = kNoStream;
        UInt32 uiChunks = 0;
        UInt64 uiBytes = 0;
    };

    // Whether it is known that the stream does not pass the cursor's time here, so that its time need not be computed.
    bool IsWithinReach(IndexEntry entry) const
    {
        return entry.pSource->uiStreamNr == m_reach.uiStreamNr && m_state.chunkCount <= m_reach.uiChunks &&
               m_state.totalBytes + entry.uiSize <= m_reach.uiBytes;
    }

    void PlaceBefore(IndexEntry entry);
    void LookAhead(UInt32 streamNr, UInt64 bytePosition, UInt32 time);
    void Place();
    void Advance();
    void TakeCursorTime();
    void LogStored(const Position& position) const;
    void LogMoved(const Position& before) const;

    const lxAviReadCore_AviInfo_t* m_pAviInfo = Null;
    const PlacerMessages* m_pMessages = Null;
    UInt32 m_uiTrack = 0;
    UInt32 m_uiStreamNr = kNoStream; // of the chunks
    AudioState m_state = {};
    UInt32 m_uiNumber = kNoChunk;     // of the last chunk
    Position m_cursor = {0, 0, 0, 1}; // the first key frame that still lacks the track's audio
    UInt32 m_uiCursorTime = 0;        // its time; in the default mode 0 for the first, which so gets the first chunk
    bool m_bLogged = false;
    Reach m_reach; // no chunk of a stream up to here plays after the cursor's key frame; with messages on it is empty
};

// Gives the last chunk of each track to all key frames that are left, after the last chunk of all.
void CompleteAudio(const lxAviReadCore_AviInfo_t* pAviInfo, std::span<const AudioPlacer> placers);

// Hands every audio record to the placer of its track. All eight tracks are placed in one pass.
class AudioByTrack {
public:
    AudioByTrack(const lxAviReadCore_AviInfo_t* pAviInfo, const PlacerMessages& messages) : m_pAviInfo(pAviInfo)
    {
        UInt32 nextTrack = 0;
        for (AudioPlacer& placer : m_placers) {
            placer.Begin(pAviInfo, nextTrack++, messages);
        }
    }

    void Take(IndexEntry entry)
    {
        if (entry.pSource->uiTrack != m_uiTrack) {
            Select(entry.pSource->uiTrack);
        }
        if (m_pPlacer != Null) {
            m_pPlacer->Take(entry);
        } else {
            LX_LOG(kLevelIndex, "lxAviReadCore_ParseIndex: Audio chunk found %d ", m_uiTrack);
        }
    }

    void Complete() const { CompleteAudio(m_pAviInfo, m_placers); }

private:
    void Select(UInt32 track)
    {
        m_uiTrack = track;
        m_pPlacer = track < LX_AVIREAD_AUDIO_TRACKS ? &m_placers[track] : Null;
    }

    const lxAviReadCore_AviInfo_t* m_pAviInfo;
    AudioPlacer m_placers[LX_AVIREAD_AUDIO_TRACKS];
    UInt32 m_uiTrack = kNoTrack;   // of the record taken last
    AudioPlacer* m_pPlacer = Null; // of that track; null where it is none of the eight
};

} // namespace lxAviReadCore
