// Arming a jump to a key frame. Every seek and every step ends with it.

#pragma once

#include "KeyFrames.hpp"
#include "Mode.hpp"

namespace lxAviReadCore {

enum class VideoFirst : UInt8 {
    Keep,          // bJumpToVideo stays as it is; in the format mode the same as UnlessToAudio
    Require,       // the first chunk after the jump has to be the key frame
    UnlessToAudio, // required when the jump goes to the key frame, not when it goes to the audio chunk before it
};

// How the jumps differ.
struct JumpRules {
    VideoFirst eVideoFirst = VideoFirst::Keep;
    bool bLoadVideoCounter = false;
    bool bLoadAudioCounters = false; // of all tracks, so that a later switch finds them right
};

// Whether the chunk that `track` resumes with at `entry` lies before the key frame; never for track -1.
bool HasEarlierAudio(const lxAviReadCore_AviInfo_t* pAviInfo, const Entry& entry, Int32 track, UInt64 videoOffset);

// Arms the jump to `entry` at `position`, or to the chunk that `track` resumes with where that lies before it; `track`
// is -1 when no audio is played. True when it goes to an audio chunk.
bool ArmJump(lxAviReadCore_AviInfo_t* pAviInfo, const Position& position, const Entry& entry, Int32 track,
             const JumpRules& rules);

// The track number that the caller of `pFunction` gave, or -1 for none. A number that is out of range is reported as a
// failed assertion, and taken for none.
Int32 CheckedTrack(Int32 audioTrackNumber, const char* pCondition, const char* pFunction, SourcePlace place);

// Whether the position designates an entry. A position that does not, or whose offset differs from the entry's, is
// reported as a failed assertion; `pOffsetName` is what the report calls that offset.
bool CheckPosition(const Position& position, const Entry* pEntry, const char* pCondition, const char* pOffsetName,
                   SourcePlace place);

} // namespace lxAviReadCore
