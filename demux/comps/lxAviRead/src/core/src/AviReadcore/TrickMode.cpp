// Stepping from key frame to key frame, for fast forward and rewind.
//
//                                         moves lastPlayedKeyFrame   counters   video first
//   JumpInKeyFrames                       no                         loaded     unless audio comes first
//   SetJumpToNextKeyFrame                 yes                        loaded     unless audio comes first
//   SetJumpToNextKeyFrameForTrickMode     yes                        kept       kept
//   SetJumpToPrevKeyFrame                 yes                        kept       required
//
// Every step only arms a jump. Where there is no key frame in that direction, the last three arm the current one again,
// and JumpInKeyFrames goes to the first.

#include "internal/KeyFrameJump.hpp"
#include "internal/KeyFrames.hpp"

namespace lxAviReadCore {
namespace {

// The key frame `count` steps from `position`. Off either end lies the first key frame.
Position StepFrom(const KeyFrameTable& table, Position position, Int32 count)
{
    const bool bForward = count > 0;
    UInt32 left = bForward ? static_cast<UInt32>(count) : 0u - static_cast<UInt32>(count);
    for (; left > 0; --left) {
        if (!(bForward ? table.Next(position) : table.Prev(position))) {
            return {}; // Quirk Q30
        }
    }
    return position;
}

// Arms the jump of a step. A step that moved shows the new key frame and nothing else: the counters stay as they are. A
// step that did not move arms the current key frame in full.
void ArmStep(lxAviReadCore_AviInfo_t* pAviInfo, bool bMoved, VideoFirst eVideoFirst, Int32 audioTrackNumber)
{
    const Entry* const pEntry = KeyFrameTable(pAviInfo).At(lastPlayedKeyFrame);
    if (bMoved && pEntry != Null) {
        ArmJump(pAviInfo, lastPlayedKeyFrame, *pEntry, -1, {.eVideoFirst = eVideoFirst});
    } else {
        lxAviReadCore_SetPointerOnKF(&lastPlayedKeyFrame, audioTrackNumber);
    }
}

// Whether the caller has given a place for the outcome of a step.
bool IsGiven(const Bool* pFound)
{
    LX_ASSERT(pFound != Null, "pFound!= Null", "Parameter pFound shouldn't be a null pointer");
    return pFound != Null;
}

} // namespace
} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_JumpInKeyFrames(Int32 count, Int32 audioTrackNumber)
{
    if (count == 0) {
        return LX_OK;
    }
    const KeyFrameTable table(&lxAviReadCore_AviInfo);
    Position target = lastPlayedKeyFrame;
    if (target.valid == 1) {
        target = StepFrom(table, target, count);
    }
    if (const Entry* const pEntry = table.At(target); pEntry != Null) {
        LX_LOG(kLevelSeek, "lxAviReadCore_JumpInKeyFrames: KFs=%d time=%d leaf %d->%d item %d->%d", count,
               static_cast<UInt32>(pEntry->timeMsec), lastPlayedKeyFrame.leafNr, target.leafNr,
               lastPlayedKeyFrame.itemNr, target.itemNr);
    }
    lxAviReadCore_SetPointerOnKF(&target, audioTrackNumber);
    return LX_OK;
}

UInt32 lxAviReadCore_SetJumpToNextKeyFrame(Bool* pFound, Int32 audioTrackNumber)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    LX_LOG(kLevelEnter, "Entered lxAviReadCore_SetJumpToNextKeyFrame. lastPlayedKeyFrame=%d->%d ",
           lastPlayedKeyFrame.leafNr, lastPlayedKeyFrame.itemNr);
    if (!IsGiven(pFound)) {
        return LX_OK;
    }
    const KeyFrameTable table(pAviInfo);
    *pFound = table.Next(lastPlayedKeyFrame) ? 1 : 0;
    // Skips key frames that delivery has already passed, but never the last one of the table.
    while (*pFound == 1 && lastPlayedKeyFrame.Offset < pAviInfo->CurrentOffset && table.Next(lastPlayedKeyFrame)) {
    }
    lxAviReadCore_SetPointerOnKF(&lastPlayedKeyFrame, audioTrackNumber);
    LX_LOG(kLevelLeave, "Leaving lxAviReadCore_SetJumpToNextKeyFrame with value=%d JumpOffset=%d.%d", *pFound,
           LX_HILO(pAviInfo->JumpOffset));
    return LX_OK;
}

UInt32 lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(Bool* pFound, Int32 audioTrackNumber)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    LX_LOG(kLevelEnter, "Entered lxAviReadCore_SetJumpToNextKeyFrameForTrickMode. lastPlayedKeyFrame=%d->%d ",
           lastPlayedKeyFrame.leafNr, lastPlayedKeyFrame.itemNr);
    if (!IsGiven(pFound)) {
        return LX_OK;
    }
    *pFound = KeyFrameTable(pAviInfo).Next(lastPlayedKeyFrame) ? 1 : 0;
    ArmStep(pAviInfo, *pFound == 1, VideoFirst::Keep, audioTrackNumber);
    LX_LOG(kLevelLeave, "Leaving lxAviReadCore_SetJumpToNextKeyFrameForTrickMode with value=%d JumpOffset=%d.%d",
           *pFound, LX_HILO(pAviInfo->JumpOffset));
    return LX_OK;
}

UInt32 lxAviReadCore_SetJumpToPrevKeyFrame(Bool* pFound, Int32 audioTrackNumber)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    if (!IsGiven(pFound)) {
        return LX_OK;
    }
    *pFound = KeyFrameTable(pAviInfo).Prev(lastPlayedKeyFrame) ? 1 : 0;
    ArmStep(pAviInfo, *pFound == 1, VideoFirst::Require, audioTrackNumber);
    return LX_OK;
}
