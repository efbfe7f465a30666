// Where the audio of each track resumes after a jump, and what its chunks count from there, in the format mode.
//
// Every entry of the key-frame table names a chunk of each track, its number, and the payload bytes before it. These
// chunks are the anchors of the track: a chunk counts from the last anchor at or before it, whatever way delivery has
// come. A jump can lead behind the anchor; what it has passed over is counted in the file when the track is played.

#pragma once

#include "State.hpp"

namespace lxAviReadCore {

// What is known of the counters of a track.
enum class AudioCount : UInt8 {
    Exact,   // they are those of the next chunk
    Waiting, // a jump was made, and the anchor of its key frame lies ahead
    Behind,  // they are those of an anchor that lies behind, and chunks after it were passed over
};

struct AudioTrack {
    UInt32 uiLeafNr; // the first entry whose anchor delivery has not met
    UInt32 uiItemNr;
    UInt64 uiFrom;   // where delivery has begun, at the start or after a jump: it has met every chunk from here on
    UInt64 uiAnchor; // where the counters count from; 0: the first chunk of the file
    AudioCount eCount;
    bool bResumed; // false from a jump until a chunk of the track is delivered; of use where all tracks are delivered
};

extern AudioTrack audioTracks[LX_AVIREAD_AUDIO_TRACKS];

// Delivery begins at the first chunk.
void StartAudio();

// Delivery goes on at `position`, to resume at the sync entry.
void AwaitAudio(const lxAviReadCore_AviInfo_t* pAviInfo, UInt64 position);

// Meets the chunk of `track` that begins at `start`; false where it lies before the anchor of the key frame that the last
// jump has led to. Otherwise the counters of the track are those of the anchor, or of the chunk.
bool MeetAudio(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 track, UInt64 start);

// Makes the counters of the track exact for the chunk that begins at `start` and whose header has just been read: counts
// the chunks between the anchor and it. Without success, delivery stands before the chunk.
[[nodiscard]] UInt32 CountPassedAudio(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 track, UInt64 start);

// Counts a chunk of a track.
void CountAudio(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streamNr, UInt32 track, UInt32 size);

} // namespace lxAviReadCore
