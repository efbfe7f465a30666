// What the walks over the first RIFF list share: the default mode and the format mode walk it in different ways. The
// walk over a stream list uses Step, too.

#pragma once

#include "Chunk.hpp"

namespace lxAviReadCore {

// Chunks of size 0, of a size that cannot be true, or of no known kind that one walk steps over.
constexpr UInt32 kWalkTolerance = 0x20000;
// An unknown chunk above this size is taken for garbage.
constexpr UInt32 kLargestUnknownChunk = 0x38000;

// What a chunk of a walk leads to: the next chunk, or the end of the walk with a result.
struct Step {
    bool bFinished;
    UInt32 uiResult;
};

constexpr Step kNextChunk = {false, LX_OK};
constexpr Step kFinish = {true, LX_OK};

constexpr Step Fail(UInt32 result) { return {true, result}; }
constexpr Step ContinueUnless(UInt32 result) { return result == LX_OK ? kNextChunk : Fail(result); }

// The list, or the file, ends where a chunk could begin. That is fine once `movi` was met.
Step EndOfList(bool bMoviFound);

// The walks. Left in the state: what Open finds in the first RIFF list, and in `pCurrentAvix` its last `movi` list.
// `bIndexFound` tells whether the list holds an `idx1`.
[[nodiscard]] UInt32 WalkByDefault(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 instance, bool& bIndexFound);
[[nodiscard]] UInt32 WalkByFormat(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 instance, bool& bIndexFound);

} // namespace lxAviReadCore
