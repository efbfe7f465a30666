// A jump from the moment when a seek or a step arms it to the moment when it has led to its chunk, or has failed.

#pragma once

#include "AudioResume.hpp"
#include "KeyFrames.hpp"
#include "Segments.hpp"

namespace lxAviReadCore {

// Called before a jump is armed: in the format mode, remembers the counters and the sync entry of delivery. While a jump
// is pending already, they are those of that jump, and nothing is remembered.
void RememberPlace(const lxAviReadCore_AviInfo_t* pAviInfo);

// Forgets them: the file is read anew, or closed.
void ForgetPlace();

// A pending jump, with what arming it has set.
struct PendingJump {
    UInt64 uiTarget; // 0: there is none
    Position lastPlayed;
    UInt32 uiSyncLeafNr;
    UInt32 uiSyncItemNr;
    Bool bAudioSync;
    Bool bJumpToVideo;
};

// Takes the pending jump, if there is one, out of the state.
PendingJump TakePendingJump(lxAviReadCore_AviInfo_t* pAviInfo);
// Arms a jump again that was taken out. Where delivery stands is remembered anew.
void ArmAgain(lxAviReadCore_AviInfo_t* pAviInfo, const PendingJump& pending);

// Forgets the pending jump, if there is one.
void DropJump(lxAviReadCore_AviInfo_t* pAviInfo);

// Goes to the target of the pending jump.
[[nodiscard]] UInt32 ExecuteJump(lxAviReadCore_AviInfo_t* pAviInfo, Bool* pJumped);

// Concludes the call that has executed a jump, and returns its result. Where the jump has failed, in the format mode
// delivery goes back to where it stood before; the chunk then has no payload. A jump that was aborted is pending again.
UInt32 ConcludeJump(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, UInt32 result);

} // namespace lxAviReadCore
