// The anchors of audio, and the count of what a jump has passed over.
//
//   ┆ a0 ┆ v ┆ a1 ┆ a2 ┆ KEY ┆ a3 ┆ a4 ┆ v ┆ a5 …
//          anchor─┘          └─ a jump to the key frame: a3 is the first chunk met
//
// a3 counts from the anchor a1, over a2. Playing, the counters pass from chunk to chunk; at a chunk that is an anchor they
// are set to it, so that an index in which chunks are missing gives the same numbers on every way.

#include "internal/AudioResume.hpp"
#include "internal/Delivery.hpp"
#include "internal/KeyFrames.hpp"
#include "internal/Segments.hpp"
#include "internal/Streams.hpp"

namespace lxAviReadCore {

AudioTrack audioTracks[LX_AVIREAD_AUDIO_TRACKS];

namespace {

constexpr UInt32 kNoLeaf = 0xFFFFFFFFu; // behind the last entry

void SetCounters(UInt32 track, UInt32 number, UInt64 bytes)
{
    lxalAviRead_AudioFrame[track] = number;
    AudioByteposition[track] = bytes;
}

// Moves on to the next entry.
void PassEntry(const KeyFrameTable& table, AudioTrack& audio)
{
    Position position = {audio.uiLeafNr, audio.uiItemNr, 0, 1};
    if (!table.Next(position)) {
        position.leafNr = kNoLeaf;
    }
    audio.uiLeafNr = position.leafNr;
    audio.uiItemNr = position.itemNr;
}

// Takes the anchor of an entry that lies at or before the chunk at `start`. Several entries may name the same chunk, and
// one without audio names none. Where the counters are exact already, an anchor at which no chunk begins is damage.
void TakeAnchor(const Entry& entry, UInt32 track, UInt64 start, AudioTrack& audio)
{
    const UInt64 anchor = entry.audioChunkOffset[track];
    if (anchor <= audio.uiAnchor || (audio.eCount == AudioCount::Exact && anchor != start)) {
        return;
    }
    SetCounters(track, entry.audioFrameNumber[track], entry.audioBytePosition[track]);
    audio.uiAnchor = anchor;
    audio.eCount = anchor >= audio.uiFrom ? AudioCount::Exact : AudioCount::Behind;
}

} // namespace

void StartAudio()
{
    for (AudioTrack& audio : audioTracks) {
        audio = {};
        audio.bResumed = true;
    }
}

void AwaitAudio(const lxAviReadCore_AviInfo_t* pAviInfo, UInt64 position)
{
    for (AudioTrack& audio : audioTracks) {
        audio = {.uiLeafNr = pAviInfo->audioSyncLeafNr,
                 .uiItemNr = pAviInfo->audioSyncItemNr,
                 .uiFrom = position,
                 .uiAnchor = 0,
                 .eCount = AudioCount::Waiting,
                 .bResumed = false};
    }
}

bool MeetAudio(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 track, UInt64 start)
{
    AudioTrack& audio = audioTracks[track];
    const KeyFrameTable table(pAviInfo);
    const Entry* pEntry = table.At(audio.uiLeafNr, audio.uiItemNr);
    while (pEntry != Null && pEntry->audioChunkOffset[track] <= start) {
        TakeAnchor(*pEntry, track, start, audio);
        PassEntry(table, audio);
        pEntry = table.At(audio.uiLeafNr, audio.uiItemNr);
    }
    if (audio.eCount == AudioCount::Waiting) {
        if (pEntry != Null) {
            return false;
        }
        SetCounters(track, 0, 0); // the table has no audio of this track
        audio.eCount = AudioCount::Behind;
    }
    return true;
}

void CountAudio(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streamNr, UInt32 track, UInt32 size)
{
    const lxAviReadCore_StreamInfo_t* const pStream = FindStream(pAviInfo, streamNr);
    const UInt32 blockBytes = pStream != Null ? AudioUnitsOf(pAviInfo, *pStream).uiBlockBytes : 0;
    AudioByteposition[track] += size;
    lxalAviRead_AudioFrame[track] += UnitsOfChunk(blockBytes, size);
}

// ---- What a jump has passed over ----

namespace {

// Goes to the anchor of the track, or to the first chunk of the file.
bool GoToAnchor(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 anchor)
{
    if (anchor == 0) {
        GoToFirstSegment(pAviInfo);
        anchor = StartOf(CurrentSegment(pAviInfo));
    } else if (!EnterSegmentOf(pAviInfo, anchor)) {
        return false;
    }
    return GoToPlace(pAviInfo, {anchor, pAviInfo->pCurrentAvix});
}

// Counts the chunks of a track from where delivery stands up to `end`.
UInt32 CountUpTo(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 track, UInt64 end)
{
    for (;;) {
        lxAviRead_ChunkData_t chunk = {};
        MediaHeader header = {};
        LX_AVIREAD_TRY(ReadMediaHeader(pAviInfo, &chunk, header));
        if (pAviInfo->CurrentOffset - kChunkHeaderBytes >= end) {
            return LX_OK;
        }
        LX_AVIREAD_TRY(HearAbort(pAviInfo));
        if (!IsOfKnownStream(chunk)) {
            continue; // its size cannot be trusted
        }
        const UInt32 chunkTrack = IndexedTrackOf(pAviInfo, chunk.uiStreamNr);
        if (chunkTrack == track && chunkTrack != kNoTrack) {
            CountAudio(pAviInfo, chunk.uiStreamNr, track, chunk.uiSize);
        }
        LX_AVIREAD_TRY(lxAviReadCore_RemoveChunk(chunk.uiSize));
        pAviInfo->CurrentOffset += chunk.uiSize;
    }
}

} // namespace

UInt32 CountPassedAudio(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 track, UInt64 start)
{
    AudioTrack& audio = audioTracks[track];
    if (audio.eCount != AudioCount::Behind) {
        return LX_OK;
    }
    const DeliveryPlace behindHeader = PlaceOfDelivery(pAviInfo);
    const UInt32 number = lxalAviRead_AudioFrame[track];
    const UInt64 bytes = AudioByteposition[track];
    UInt32 result =
        GoToAnchor(pAviInfo, audio.uiAnchor) ? CountUpTo(pAviInfo, track, start) : UInt32{LX_ERR_AVIREAD_SEEK};
    if (result == LX_AVIREAD_END_OF_MEDIA || result == LX_ERR_AVIREAD_EOF) {
        result = LX_OK; // damage has led over the chunk
    }
    if (result == LX_OK && GoToPlace(pAviInfo, behindHeader)) {
        audio.eCount = AudioCount::Exact;
        return LX_OK;
    }
    SetCounters(track, number, bytes);
    static_cast<void>(GoToPlace(pAviInfo, {start, behindHeader.pSegment})); // if it fails, the next read fails, too
    return result == LX_OK ? UInt32{LX_ERR_AVIREAD_SEEK} : result;
}

} // namespace lxAviReadCore
