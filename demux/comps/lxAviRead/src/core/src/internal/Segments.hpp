// The segment chain: one record for every `movi` list of the file, in file order; `pCurrentAvix` is the one being read.

#pragma once

#include "Chunk.hpp"
#include "State.hpp"

namespace lxAviReadCore {

using Segment = lxAviReadCore_AvixRiff_t;

inline UInt64 StartOf(const Segment& segment) { return segment.moviDataOffset; }
inline UInt64 EndOf(const Segment& segment) { return segment.moviDataOffset + segment.moviDataSize; }

// ---- Construction ----

// Starts a chain with the first `movi` list, and frees the chain of an earlier list.
[[nodiscard]] UInt32 StartSegments(lxAviReadCore_AviInfo_t* pAviInfo);

// Appends a cleared record behind `pTail`, or starts the chain when there is none; null when the heap is exhausted.
Segment* AppendSegment(lxAviReadCore_AviInfo_t* pAviInfo, Segment* pTail);

// Looks behind the last record for "AVIX" lists that a damaged header has hidden from Open, and appends records for them.
// Needs the batch buffer. `fileSize` is in bytes.
[[nodiscard]] UInt32 FindLostLists(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 fileSize);

// Lets a list grow that is longer than it says. What it says is remembered for a few lists.
void Grow(Segment& list, UInt64 end);
// Makes the lists that have grown as long as they say again.
void UndoGrowth();

// Frees the whole chain.
void ReleaseSegments(lxAviReadCore_AviInfo_t* pAviInfo);
// Frees the records behind the current one, which an earlier walk may have left.
void ReleaseFollowingSegments(lxAviReadCore_AviInfo_t* pAviInfo);

// ---- The way through the chain ----

// A copy of the current segment; the first `movi` list of the file where no record was made.
inline Segment CurrentSegment(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    return pAviInfo->pCurrentAvix != Null
               ? *pAviInfo->pCurrentAvix
               : Segment{pAviInfo->moviOffset, static_cast<UInt32>(pAviInfo->moviSize), Null, Null};
}

// Whether delivery keeps to the segments of the chain, and not to the one `movi` list of a plain file.
inline bool IsSegmented(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    return pAviInfo->bAvixPresent == 1 || pAviInfo->bAbsoluteOffsets == 1;
}

// Makes the first segment of the chain the current one.
void GoToFirstSegment(lxAviReadCore_AviInfo_t* pAviInfo);

// Goes to the first byte of the next segment. LX_AVIREAD_END_OF_MEDIA behind the last one, LX_ERR_AVIREAD_SEEK when the
// input cannot go there.
[[nodiscard]] UInt32 EnterNextSegment(lxAviReadCore_AviInfo_t* pAviInfo);

// Makes the segment that holds the position `target` the current one; false when none does.
bool EnterSegmentOf(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 target);

// Where delivery stands, and the segment.
struct DeliveryPlace {
    UInt64 uiOffset;
    Segment* pSegment;
};

inline DeliveryPlace PlaceOfDelivery(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    return {pAviInfo->CurrentOffset, pAviInfo->pCurrentAvix};
}

// Makes delivery stand at a place; false when the file cannot go there.
bool GoToPlace(lxAviReadCore_AviInfo_t* pAviInfo, const DeliveryPlace& place);

// ---- Positions of delivery ----

// A relative position counts from the "movi" code: the first chunk is at 4.
constexpr UInt64 kStartInMovi = 4;

// The position of the first chunk, as `CurrentOffset` counts.
inline UInt64 StartOfDelivery(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    return pAviInfo->bAbsoluteOffsets == 1 ? pAviInfo->moviOffset : kStartInMovi;
}

// The file offset of a position.
inline UInt64 FileOffsetOf(const lxAviReadCore_AviInfo_t* pAviInfo, UInt64 position)
{
    return position + pAviInfo->moviOffset - StartOfDelivery(pAviInfo);
}

// The position at which delivery leaves the current segment. In a plain file of the default mode this is 4 bytes before
// the end of the list, since positions start at 4.
inline UInt64 EndOfDelivery(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    if (!IsSegmented(pAviInfo)) {
        return pAviInfo->moviSize;
    }
    return pAviInfo->pCurrentAvix != Null ? EndOf(*pAviInfo->pCurrentAvix) : EndOf(CurrentSegment(pAviInfo));
}

} // namespace lxAviReadCore
