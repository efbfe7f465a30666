// A jump from the moment when a seek or a step arms it to the moment when it has led to its chunk, or has failed.

#pragma once

#include "AudioResume.hpp"
#include "KeyFrames.hpp"
#include "Segments.hpp"

namespace lxAviReadCore {

// Called before a jump is armed: in the format mode, remembers where delivery stands. While a jump is pending already,
// that is known.
void RememberPlace(const lxAviReadCore_AviInfo_t* pAviInfo);

// Forgets that place: its segment is released.
void ForgetPlace();

// Forgets the pending jump, if there is one.
void DropJump(lxAviReadCore_AviInfo_t* pAviInfo);

// Goes to the target of the pending jump.
[[nodiscard]] UInt32 ExecuteJump(lxAviReadCore_AviInfo_t* pAviInfo, Bool* pJumped);

// Concludes the call that has executed a jump. Where the jump has failed, in the format mode delivery goes back to where
// it stood before; the chunk then has no payload. Returns `result` unchanged.
UInt32 ConcludeJump(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk, UInt32 result);

} // namespace lxAviReadCore
