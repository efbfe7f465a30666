// The passes over an index, whatever its family: batches of records are read and decoded, and visitors count key
// frames, fill the table, and place the audio. What differs between the families is data: record size, decoder, read.
//
//   ForEachEntry<Decoder>(run, visitor) one run of records: batches, abort tests, the family's read
//     KeyFrameCounter                   how many key frames
//     KeyFrameFiller                    every SkipKey-th of them into the table
//     AudioPlacer                       which chunk of an audio track plays at each stored key frame

#pragma once

#include "Chunk.hpp"
#include "KeyFrames.hpp"

#include <algorithm>

namespace lxAviReadCore {

enum class EntryKind : UInt8 { MainVideo, OtherVideo, Audio, MainDrm, OtherDrm, Other };

// What any index record says.
struct IndexEntry {
    EntryKind eKind;
    bool bKeyFrame;
    UInt32 uiStreamNr;
    UInt32 uiSize;   // payload bytes
    UInt64 uiOffset; // of the chunk, in the index's base
};

struct IndexFormat;

// A run of records from where the file stands.
struct IndexRun {
    const IndexFormat* pFormat;
    UInt32 uiEntries;
    UInt32 uiBatch;       // records of one read
    Int32 iVideoStreamNr; // idx1: tells the main video stream's records
    UInt32 uiStreamNr;    // OpenDML: the stream of all records
    EntryKind eKind;      // OpenDML: the kind of all records
    UInt64 qwBaseOffset;  // added to every offset
    UInt64 uiOffsetMask;  // the bits of the sum that count
    const char* pBatchFailedText; // records, record size; or null
};

struct IndexFormat {
    UInt32 uiRecordSize;
    const ReadFamily* pRead;
};

// What the families log while they place audio, and in which order.
struct PlacerTexts {
    TextList texts;
    bool bMovedFirst; // told before the cursor moves, and the storing after it
};

enum class PlacerText : UInt32 {
    Stored, // track, leaf, item, frame, offset, byte position
    Moved,  // leaf, item, offset, valid of the cursor: before, after
};

// What becomes of a pass that has met the end of the file: an index that ends early covers a part of the file, which is
// worth a table where the format is followed.
inline UInt32 AllowEarlyEnd(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 result)
{
    return result == LX_ERR_AVIREAD_EOF && FollowsFormat(pAviInfo) ? LX_OK : result; // Quirk Q51
}

// The records of a run in the batch buffer, batch by batch.
class IndexBatches {
public:
    IndexBatches(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run);

    // Reads the next batch; false where the run ends. An abort counts for more than a failed read.
    bool Next();
    const UInt8* Records() const { return static_cast<const UInt8*>(m_pAviInfo->pMetaDataBuffer); }
    UInt32 Count() const { return m_uiCount; }

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

// Hands every record of a run to `visit`, in file order. Needs the batch buffer. A `Decoder` of the run tells what a
// record says.
template <typename Decoder, typename Visitor>
[[nodiscard]] UInt32 ForEachEntry(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, Visitor&& visit)
{
    const UInt32 recordSize = run.pFormat->uiRecordSize;
    Decoder decode(run);
    IndexBatches batches(pAviInfo, run);
    while (batches.Next()) {
        const UInt8* pRecord = batches.Records();
        for (UInt32 i = batches.Count(); i > 0; --i, pRecord += recordSize) {
            visit(decode(pRecord));
        }
    }
    return batches.Result();
}

// Counts the frames of the main video stream, and the key frames among them.
struct KeyFrameCounter {
    UInt32 uiFrames = 0;
    UInt32 uiKeyFrames = 0; // those that the index says to be

    void operator()(const IndexEntry& entry)
    {
        if (entry.eKind == EntryKind::MainVideo) {
            ++uiFrames;
            uiKeyFrames += entry.bKeyFrame ? 1 : 0;
        }
    }
};

// Concludes the first pass: settles which frames the passes that follow take for key frames, and how many those are.
[[nodiscard]] UInt32 SettleKeyFrames(const lxAviReadCore_AviInfo_t* pAviInfo, const KeyFrameCounter& counter);

// Frames of the main video stream that the index surveyed last covers.
UInt32 SurveyedFrames();

// What the offsets of `idx1` count from; 0 leaves them as they stand.
UInt64 OffsetBase();
void SetOffsetBase(UInt64 base);

// Forgets what first passes have settled.
void ForgetIndexSurvey();

// Adds a chunk to the total of its stream. An index record counts for a stream that has been described; the slot of any
// other number is empty.
[[gnu::always_inline]] inline void CountPayload(const lxAviReadCore_AviInfo_t* pAviInfo, const IndexEntry& entry)
{
    lxAviReadCore_StreamInfo_t* const pStream = FindStream(pAviInfo, entry.uiStreamNr);
    if (pStream != Null && pStream->StreamType != LX_AVIREAD_STREAM_NONE) {
        pStream->uiStreamSize += entry.uiSize;
    }
}

// Stores every SkipKey-th key frame of the main video stream, and totals the video payload.
class KeyFrameFiller {
public:
    KeyFrameFiller(lxAviReadCore_AviInfo_t* pAviInfo, TextList texts, UInt32 skipKey);

    KeyFrameTableBuilder& Builder() { return m_builder; }
    UInt32 FrameNumber() const { return m_uiFrameNumber; } // video frames seen so far
    UInt32 SkipCounter() const { return m_uiSkipCounter; }

    // Continues where another run has ended.
    void Resume(UInt32 leafNr, UInt32 frameNumber, UInt32 skipCounter);

    // Takes one record; the entry that it stored, or null. Most records are passed over, and that is quick.
    [[gnu::always_inline]] Entry* Take(const IndexEntry& entry)
    {
        if (entry.eKind == EntryKind::Audio || entry.eKind == EntryKind::Other) {
            m_bDrmPending = false;
            return Null;
        }
        if (entry.eKind == EntryKind::MainVideo && !m_bLookAtEveryFrame && !entry.bKeyFrame) {
            CountPayload(m_pAviInfo, entry);
            PassOn();
            return Null;
        }
        return TakeAny(entry);
    }

    [[gnu::always_inline]] void operator()(const IndexEntry& entry) { Take(entry); }

private:
    // On to the next frame of the main video stream.
    void PassOn()
    {
        m_bDrmPending = false;
        ++m_uiFrameNumber;
    }

    bool IsKeyFrame(const IndexEntry& entry) const;
    [[gnu::noinline]] Entry* TakeAny(const IndexEntry& entry);
    Entry* TakeMainVideo(const IndexEntry& entry);
    void PassOver(bool bKeyFrame);
    Entry* Store(const IndexEntry& entry);

    lxAviReadCore_AviInfo_t* m_pAviInfo;
    KeyFrameTableBuilder m_builder;
    UInt32 m_uiSkipKey;
    bool m_bLookAtEveryFrame; // it may be a key frame without the flag, or is to be told of
    UInt32 m_uiSkipCounter = 0; // 0: the next key frame is stored
    UInt32 m_uiFrameNumber = 0;
    UInt64 m_uiDrmOffset = 0; // of the "dd" chunk before the next frame
    bool m_bDrmPending = false;
};

// What is known of an audio track while its chunks are walked.
using AudioState = lxAvi2ReadCore_AudioIndexState_t;

// Gives every key frame the audio chunk of one track that plays at its time.
class AudioPlacer {
public:
    // Before the first chunk. Not a constructor: the placers of all tracks are an array.
    void Begin(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 track, const PlacerTexts& texts);
    // Continues where another run has ended.
    void Resume(const AudioState& state, const Position& cursor, UInt32 cursorTime);

    // Takes the next chunk of the track: places the one before it where that is due, and counts this one.
    void Take(const IndexEntry& entry);

    // Gives the last chunk to all key frames that are left.
    void Complete();

    const AudioState& State() const { return m_state; }
    const Position& Cursor() const { return m_cursor; }
    UInt32 CursorTime() const { return m_uiCursorTime; }

private:
    static constexpr UInt32 kNoStream = 0xFFFFFFFF;

    // How far into a track a chunk of a stream is.
    struct Reach {
        UInt32 uiStreamNr = kNoStream;
        UInt32 uiChunks = 0;
        UInt64 uiBytes = 0;
    };

    bool NeedsTime(const IndexEntry& entry, UInt64 bytePosition) const;
    [[gnu::noinline]] void PlaceBefore(const IndexEntry& entry, UInt64 bytePosition);
    void LookAhead(UInt32 streamNr, UInt64 bytePosition, UInt32 time);
    void Place();
    Position Advance();
    void LogStored(const Position& position) const;
    void LogMoved(const Position& before) const;

    const lxAviReadCore_AviInfo_t* m_pAviInfo = Null;
    const PlacerTexts* m_pTexts = Null;
    UInt32 m_uiTrack = 0;
    AudioState m_state = {};
    Position m_cursor = {0, 0, 0, 1}; // the first key frame that still lacks the track's audio
    UInt32 m_uiCursorTime = 0;        // Quirk Q42: its time; 0 for the first, which so gets the first chunk
    bool m_bLogged = false;
    Reach m_reach;                    // chunks of a stream up to here are known not to play after it
};

// Makes `chunk` the last one of the track: what the placers and the single-pass builder count alike.
void CountAudioChunk(AudioState& state, const IndexEntry& chunk);

// Writes the last chunk of a track into an entry; a track without chunks writes 0xFFFFFFFF, 0, 0.
void WriteAudio(Entry& entry, UInt32 track, const AudioState& state);

} // namespace lxAviReadCore
