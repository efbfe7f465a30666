// The walk over the first RIFF list for callers that follow the format, and what it shares with its neighbours.

#pragma once

#include "State.hpp"

namespace lxAviReadCore {

// Walks the list from its first chunk on. Left in the state: everything that Open finds there, at its true positions;
// `pCurrentAvix` is the last `movi` list of this RIFF list.
[[nodiscard]] UInt32 WalkByFormat(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 instance, bool& bIndexFound);

// Appends a cleared record behind `pTail`, or starts the chain when there is none; null when the heap is exhausted.
lxAviReadCore_AvixRiff_t* AppendSegment(lxAviReadCore_AviInfo_t* pAviInfo, lxAviReadCore_AvixRiff_t* pTail);

// Makes the first segment of the chain the current one.
inline void GoToFirstSegment(lxAviReadCore_AviInfo_t* pAviInfo)
{
    while (pAviInfo->pCurrentAvix != Null && pAviInfo->pCurrentAvix->pPrevAvix != Null) {
        pAviInfo->pCurrentAvix = pAviInfo->pCurrentAvix->pPrevAvix;
    }
}

} // namespace lxAviReadCore
