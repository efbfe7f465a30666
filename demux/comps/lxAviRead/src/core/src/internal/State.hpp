// The reader's one state, and what stands beside it because the public record has no field for it.

#pragma once

#include "Debug.hpp"
#include "Mode.hpp"

extern lxAviReadCore_AviInfo_t lxAviReadCore_AviInfo;

namespace lxAviReadCore {

extern void* file_buffer;                                 // no read uses it: its presence proves to Open that Alloc ran
extern UInt64 AudioByteposition[LX_AVIREAD_AUDIO_TRACKS]; // payload bytes delivered or passed over, per track
extern lxAviReadCore_KeyFramePosition_t lastPlayedKeyFrame;
extern bool onlyKeyFrames;    // every frame of the main video stream is a key frame, by its codec
extern UInt64 chunkStart;     // position of the chunk met last, or of the "dd" chunk that belongs to it
extern UInt32 nextVideoFrame; // number of the frame that follows the last one met, where frames count from 0
extern bool allTracks;        // every audio and subtitle track is delivered, not only those that a call names

// Clears the counters that every return to the start clears.
void ClearCounters();

} // namespace lxAviReadCore
