// The passes over an index, whatever its family: batches of records are read and decoded, and visitors count key
// frames, fill the table, and place the audio.
//
//   ForEachEntry(run, decoder, visitor) one run of records: batches, abort tests, the family's read
//     KeyFrameCounter                   how many key frames
//     KeyFrameFiller                    every SkipKey-th of them into the table
//     AudioPlacer                       which chunk of an audio track plays at each stored key frame

#pragma once

#include "FileAccess.hpp"
#include "KeyFrames.hpp"
#include "Streams.hpp"

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

// The records of a run in the batch buffer, batch by batch.
class IndexBatches {
public:
    IndexBatches(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run);

    // Reads the next batch; false where the run ends. When the abort flag is set before or after the read, the result
    // is LX_ERR_AVIREAD_ABORTED, whatever the read gave.
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

// Hands what `decode` makes of every record of a run to `visit`, in file order. Needs the batch buffer.
template <typename Decoder, typename Visitor>
[[nodiscard]] UInt32 ForEachEntry(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, Decoder decode,
                                  Visitor&& visit)
{
    IndexBatches batches(pAviInfo, run);
    while (batches.Next()) {
        const UInt8* pRecord = batches.Records();
        for (UInt32 i = batches.Count(); i > 0; --i, pRecord += run.uiRecordSize) {
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

// Concludes the first pass: decides which frames the passes that follow take for key frames, and returns their number.
[[nodiscard]] UInt32 SettleKeyFrames(const lxAviReadCore_AviInfo_t* pAviInfo, const KeyFrameCounter& counter);

// Frames of the main video stream that the first pass made last has counted.
UInt32 SurveyedFrames();

// Forgets what first passes have decided and counted.
void ForgetIndexSurvey();

// Adds a chunk to the total of its stream, if the headers have described that stream.
inline void CountPayload(const lxAviReadCore_AviInfo_t* pAviInfo, const IndexEntry& entry)
{
    lxAviReadCore_StreamInfo_t* const pStream = FindStream(pAviInfo, entry.uiStreamNr);
    if (pStream != Null && pStream->StreamType != LX_AVIREAD_STREAM_NONE) {
        pStream->uiStreamSize += entry.uiSize;
    }
}

// Stores every SkipKey-th key frame of the main video stream, and totals the video payload.
class KeyFrameFiller {
public:
    KeyFrameFiller(lxAviReadCore_AviInfo_t* pAviInfo, TableMessages pMessages, UInt32 skipKey);

    KeyFrameTableBuilder& Builder() { return m_builder; }
    UInt32 FrameNumber() const { return m_uiFrameNumber; } // video frames seen so far
    UInt32 SkipCounter() const { return m_uiSkipCounter; }

    // Continues where another run has ended.
    void Resume(UInt32 leafNr, UInt32 frameNumber, UInt32 skipCounter);

    // Takes one record; the entry that it stored, or null. Most records are finished here.
    Entry* Take(const IndexEntry& entry)
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

    void operator()(const IndexEntry& entry) { Take(entry); }

private:
    // On to the next frame of the main video stream.
    void PassOn()
    {
        m_bDrmPending = false;
        ++m_uiFrameNumber;
    }

    bool IsKeyFrame(const IndexEntry& entry) const;
    Entry* TakeAny(const IndexEntry& entry);
    Entry* TakeMainVideo(const IndexEntry& entry);
    void PassOver(bool bKeyFrame);
    Entry* Store(const IndexEntry& entry);

    lxAviReadCore_AviInfo_t* m_pAviInfo;
    KeyFrameTableBuilder m_builder;
    UInt32 m_uiSkipKey;
    bool m_bLookAtEveryFrame;   // a frame without the flag may be a key frame, or its message is logged
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
    // Called before the first chunk. It is no constructor, because the placers of all tracks are in an array.
    void Begin(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 track, const PlacerMessages& messages);
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

    // A place in a stream: chunks and payload bytes before it.
    struct Reach {
        UInt32 uiStreamNr = kNoStream;
        UInt32 uiChunks = 0;
        UInt64 uiBytes = 0;
    };

    bool NeedsTime(const IndexEntry& entry, UInt64 bytePosition) const;
    void PlaceBefore(const IndexEntry& entry, UInt64 bytePosition);
    void LookAhead(UInt32 streamNr, UInt64 bytePosition, UInt32 time);
    void Place();
    void Advance();
    void TakeCursorTime();
    void LogStored(const Position& position) const;
    void LogMoved(const Position& before) const;

    const lxAviReadCore_AviInfo_t* m_pAviInfo = Null;
    const PlacerMessages* m_pMessages = Null;
    UInt32 m_uiTrack = 0;
    AudioState m_state = {};
    Position m_cursor = {0, 0, 0, 1}; // the first key frame that still lacks the track's audio
    UInt32 m_uiCursorTime = 0;        // Quirk Q42: its time; 0 for the first, which so gets the first chunk
    bool m_bLogged = false;
    Reach m_reach; // no chunk of a stream up to here plays after the cursor's key frame
};

// Makes `chunk` the last one of the track. Used by the placers and by the single-pass builder.
void CountAudioChunk(AudioState& state, const IndexEntry& chunk);

// Writes the last chunk of a track into an entry; a track without chunks writes 0xFFFFFFFF, 0, 0.
void WriteAudio(Entry& entry, UInt32 track, const AudioState& state);

} // namespace lxAviReadCore
