// The segment chain, and the positions of delivery that follow from it.
//
//   pCurrentAvix ───────────────────┐
//                                   ▼
//   first `movi` ◄──► `movi` ◄──► `movi` ◄──► …        pPrevAvix, pNextAvix
//
// A plain file has one segment. An input that cannot seek has no record at all: its first `movi` list serves.

#include "internal/Segments.hpp"
#include "internal/Memory.hpp"
#include "internal/PendingJump.hpp"

#include <algorithm>
#include <iterator>

namespace lxAviReadCore {

// ---- Lists that are longer than they say ----

namespace {

// A list that has grown, and the size that it says. Most often only the last list of a file is unfinished.
struct GrownList {
    Segment* pList;
    UInt32 uiStated;
};
GrownList s_grown[8];

void ForgetGrowth() { std::fill(std::begin(s_grown), std::end(s_grown), GrownList{}); }

} // namespace

void Grow(Segment& list, UInt64 end)
{
    auto* const pKnown = std::find_if(std::begin(s_grown), std::end(s_grown), [&](const GrownList& grown) {
        return grown.pList == &list || grown.pList == Null;
    });
    if (pKnown != std::end(s_grown) && pKnown->pList == Null) {
        *pKnown = {&list, list.moviDataSize};
    }
    list.moviDataSize = static_cast<UInt32>(end - StartOf(list));
}

void UndoGrowth()
{
    for (const GrownList& grown : s_grown) {
        if (grown.pList != Null) {
            grown.pList->moviDataSize = grown.uiStated;
        }
    }
    ForgetGrowth();
}

// ---- Construction ----

UInt32 StartSegments(lxAviReadCore_AviInfo_t* pAviInfo)
{
    ReleaseSegments(pAviInfo);
    pAviInfo->pCurrentAvix = AllocateRecord<Segment>();
    if (pAviInfo->pCurrentAvix == Null) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    pAviInfo->pCurrentAvix->moviDataOffset = pAviInfo->moviOffset;
    pAviInfo->pCurrentAvix->moviDataSize = static_cast<UInt32>(pAviInfo->moviSize);
    return LX_OK;
}

Segment* AppendSegment(lxAviReadCore_AviInfo_t* pAviInfo, Segment* pTail)
{
    auto* const pSegment = AllocateRecord<Segment>();
    if (pSegment == Null) {
        return Null;
    }
    LX_LOG(kLevelHeader, "Allocated memory for AVIX RIFF structure");
    if (pTail == Null) {
        pAviInfo->pCurrentAvix = pSegment;
        return pSegment;
    }
    pTail->pNextAvix = pSegment;
    pSegment->pPrevAvix = pTail;
    return pSegment;
}

void ReleaseSegments(lxAviReadCore_AviInfo_t* pAviInfo)
{
    ForgetPlace();
    ForgetGrowth();
    GoToFirstSegment(pAviInfo);
    for (Segment* pSegment = pAviInfo->pCurrentAvix; pSegment != Null;) {
        Segment* const pNext = pSegment->pNextAvix;
        LX_LOG(kLevelMemory, "Freeing pAviInfo->pCurrentAvix");
        std::free(pSegment);
        pSegment = pNext;
    }
    pAviInfo->pCurrentAvix = Null;
}

void ReleaseFollowingSegments(lxAviReadCore_AviInfo_t* pAviInfo)
{
    ForgetPlace();
    ForgetGrowth();
    if (pAviInfo->pCurrentAvix == Null) {
        return;
    }
    Segment* pSegment = pAviInfo->pCurrentAvix->pNextAvix;
    pAviInfo->pCurrentAvix->pNextAvix = Null;
    while (pSegment != Null) {
        Segment* const pNext = pSegment->pNextAvix;
        std::free(pSegment);
        pSegment = pNext;
    }
}

// ---- The way through the chain ----

void GoToFirstSegment(lxAviReadCore_AviInfo_t* pAviInfo)
{
    while (pAviInfo->pCurrentAvix != Null && pAviInfo->pCurrentAvix->pPrevAvix != Null) {
        pAviInfo->pCurrentAvix = pAviInfo->pCurrentAvix->pPrevAvix;
    }
}

namespace {

void LogEndOfMovi(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    LX_LOG(kLevelChunk, "\n*** EndOfMovi: (moviSize=%d.%d )Rewind %d.%d***\n", LX_HILO(pAviInfo->moviSize),
           LX_HILO(pAviInfo->moviOffset));
}

// The segment that holds `target`, looked for from `pFrom` on; null when there is none. The end of the first segment
// looked at still belongs to it.
Segment* FindSegment(Segment* pFrom, UInt64 target)
{
    Segment* pSegment = pFrom;
    if (target < StartOf(*pSegment)) {
        do {
            pSegment = pSegment->pPrevAvix;
        } while (pSegment != Null && !(StartOf(*pSegment) <= target && target < EndOf(*pSegment)));
    } else if (target > EndOf(*pSegment)) {
        do {
            pSegment = pSegment->pNextAvix;
        } while (pSegment != Null && target >= EndOf(*pSegment));
    }
    return pSegment;
}

} // namespace

UInt32 EnterNextSegment(lxAviReadCore_AviInfo_t* pAviInfo)
{
    Segment* const pNext =
        IsSegmented(pAviInfo) && pAviInfo->pCurrentAvix != Null ? pAviInfo->pCurrentAvix->pNextAvix : Null;
    if (pNext == Null) {
        LogEndOfMovi(pAviInfo);
        return LX_AVIREAD_END_OF_MEDIA;
    }
    pAviInfo->pCurrentAvix = pNext;
    if (lxalAviRead_FileSeekPossible == 0 || !SeekAndRemember(pAviInfo, StartOf(*pNext), kFromStart)) {
        LogEndOfMovi(pAviInfo);
        return LX_ERR_AVIREAD_SEEK;
    }
    pAviInfo->CurrentOffset = StartOf(*pNext);
    return LX_OK;
}

bool EnterSegmentOf(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 target)
{
    if (pAviInfo->pCurrentAvix == Null) {
        Segment onlySegment = CurrentSegment(pAviInfo);
        return FindSegment(&onlySegment, target) != Null;
    }
    Segment* const pSegment = FindSegment(pAviInfo->pCurrentAvix, target);
    if (pSegment != Null) {
        pAviInfo->pCurrentAvix = pSegment;
    }
    return pSegment != Null;
}

bool GoToPlace(lxAviReadCore_AviInfo_t* pAviInfo, const DeliveryPlace& place)
{
    pAviInfo->CurrentOffset = place.uiOffset;
    pAviInfo->pCurrentAvix = place.pSegment;
    return SeekAndRemember(pAviInfo, FileOffsetOf(pAviInfo, place.uiOffset), kFromStart);
}

} // namespace lxAviReadCore
