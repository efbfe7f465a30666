// Seeking: the key frame for a time, and the jump to it.
//
// A seek never touches the file. It arms a jump: `JumpOffset` is where delivery resumes, the counters are loaded from
// the key frame's entry, and the entry becomes the sync point. The next chunk that is asked for executes the jump. It
// goes to the earlier of the key frame and the audio chunk that plays at its time.

#include "internal/KeyFrameJump.hpp"
#include "internal/KeyFrames.hpp"
#include "internal/PendingJump.hpp"
#include "internal/Streams.hpp"

namespace lxAviReadCore {

namespace {

// A jump to 0 is none. A damaged table that has a key frame there makes a jump that fails, to a position in the headers.
constexpr UInt64 kNowhere = 1;

} // namespace

namespace {

// Where the audio of a track resumes, or `target` if that is earlier.
UInt64 EarlierOf(const lxAviReadCore_AviInfo_t* pAviInfo, UInt64 audioOffset, UInt64 target)
{
    const bool bAbsent = audioOffset == 0; // what the table holds for a track without audio; a jump to 0 is none
    return audioOffset < target && !(bAbsent && AbsentTracksAreNoTarget(pAviInfo)) ? audioOffset : target;
}

// Where a jump to a key frame goes: to the frame, or to the audio that resumes with it and stands before it.
UInt64 TargetOf(const lxAviReadCore_AviInfo_t* pAviInfo, const Entry& entry, Int32 track, UInt64 videoOffset)
{
    if (track < 0) {
        return videoOffset;
    }
    if (!allTracks) {
        return EarlierOf(pAviInfo, entry.audioChunkOffset[track], videoOffset);
    }
    UInt64 target = videoOffset;
    for (const UInt64 audioOffset : entry.audioChunkOffset) {
        target = EarlierOf(pAviInfo, audioOffset, target);
    }
    return target;
}

} // namespace

bool HasEarlierAudio(const lxAviReadCore_AviInfo_t* pAviInfo, const Entry& entry, Int32 track, UInt64 videoOffset)
{
    return TargetOf(pAviInfo, entry, track, videoOffset) != videoOffset;
}

bool ArmJump(lxAviReadCore_AviInfo_t* pAviInfo, const Position& position, const Entry& entry, Int32 track,
             const JumpRules& rules)
{
    RememberPlace(pAviInfo);
    pAviInfo->JumpOffset = TargetOf(pAviInfo, entry, track, position.Offset);
    const bool bToAudio = pAviInfo->JumpOffset != position.Offset;
    if (pAviInfo->JumpOffset == 0 && FailedJumpsAreOver(pAviInfo)) {
        pAviInfo->JumpOffset = kNowhere;
    }
    const bool bKeep = rules.eVideoFirst == VideoFirst::Keep && !EveryJumpSaysWhatComesFirst(pAviInfo);
    if (!bKeep) {
        pAviInfo->bJumpToVideo = rules.eVideoFirst == VideoFirst::Require || !bToAudio ? 1 : 0;
    }
    if (rules.bLoadVideoCounter) {
        lxalAviRead_VideoFrame = entry.videoFrameNumber;
    }
    if (rules.bLoadAudioCounters) {
        std::memcpy(lxalAviRead_AudioFrame, entry.audioFrameNumber, sizeof lxalAviRead_AudioFrame);
        std::memcpy(AudioByteposition, entry.audioBytePosition, sizeof AudioByteposition);
    }
    pAviInfo->bAudioSync = 1;
    pAviInfo->audioSyncLeafNr = position.leafNr;
    pAviInfo->audioSyncItemNr = position.itemNr;
    return bToAudio;
}

Int32 CheckedTrack(Int32 audioTrackNumber, const char* pCondition, const char* pFunction, SourcePlace place)
{
    if (audioTrackNumber < LX_AVIREAD_AUDIO_TRACKS) {
        return audioTrackNumber < 0 ? -1 : audioTrackNumber;
    }
    const char* const pText = lxDbg_StrAssertFormat("Wrong audio track number in %s (%d must be < %s", pFunction,
                                                    audioTrackNumber, "LX_AVIREAD_AUDIO_TRACKS");
    lxDbg_AssertError(pCondition, pText, place.pPath, place.iLine);
    return -1;
}

bool CheckPosition(const Position& position, const Entry* pEntry, const char* pCondition, const char* pOffsetName,
                   SourcePlace place)
{
    const UInt64 offset = pEntry != Null ? pEntry->videoChunkOffset : 0;
    if (pEntry == Null || position.Offset != offset) {
        const char* const pText = lxDbg_StrAssertFormat(
            "Data is inconsistent %s=%d*2^32+%d , %d->%d->videoChunkOffset=%d*2^32+%d", pOffsetName,
            LX_HILO(position.Offset), position.leafNr, position.itemNr, LX_HILO(offset));
        lxDbg_AssertError(pCondition, pText, place.pPath, place.iLine);
    }
    return pEntry != Null;
}

namespace {

// ---- The search ----

UInt32 LastItem(const Leaf& leaf) { return leaf.arrayLength - 1; }

UInt32 FindLeaf(const KeyFrameTable& table, UInt64 time)
{
    const UInt32 endLeaf = table.LeafCount() - 1;
    const UInt32 currentLeaf = table.FindLeaf(&Leaf::StartTimeMsec, time);
    LX_ASSERT(currentLeaf < endLeaf + 1, "currentLeaf<endLeaf+1", // GCOVR_EXCL_BR_LINE: FindLeaf ends at the last leaf
              "index structures are not coherent: searchedTimeMsec=%d.%d EndTimeMsec=%d.%d currentLeaf=%d endLeaf=%d",
              LX_HILO(time), LX_HILO(table.LeafAt(endLeaf).EndTimeMsec), currentLeaf, endLeaf);
    LX_LOG(kLevelSeek, " Found the Leaf: StartTimeMsec=%d.%d  EndTimeMsec=%d.%d",
           LX_HILO(table.LeafAt(currentLeaf).StartTimeMsec), LX_HILO(table.LeafAt(currentLeaf).EndTimeMsec));
    return currentLeaf;
}

// The one of two neighbours that the rounding asks for.
Position Round(const KeyFrameTable& table, const Position& down, const Position& up, bool bUpIsNearer,
               UInt32 roundPreference)
{
    switch (roundPreference) {
    case lxAviRead_SetPosRoundDown: return down;
    case lxAviRead_SetPosRoundUp: return up;
    case lxAviRead_SetPosRoundNearest: return bUpIsNearer ? up : down;
    default:
        LX_ASSERT(false,
                  "(roundPreference == lxAviRead_SetPosRoundUp) || (roundPreference == lxAviRead_SetPosRoundDown) || "
                  "(roundPreference == lxAviRead_SetPosRoundNearest)",
                  "GiveOffsetTotime:Rounding Option is not correct");
        return table.First();
    }
}

// The one of two neighbours around `time`.
Position RoundTime(const KeyFrameTable& table, const Position& down, const Position& up, UInt64 time,
                   UInt32 roundPreference)
{
    const bool bUpIsNearer = table.At(up)->timeMsec - time < time - table.At(down)->timeMsec;
    return Round(table, down, up, bUpIsNearer, roundPreference);
}

// Inside a leaf, whose bounds lie on both sides of `time`.
Position SearchLeaf(const KeyFrameTable& table, UInt32 leafNr, UInt64 time, UInt32 roundPreference)
{
    const Leaf& leaf = table.LeafAt(leafNr);
    UInt32 low = 0;
    UInt32 high = LastItem(leaf);
    UInt32 middle = 0;
    do {
        middle = (low + high) / 2;
        (time < leaf.array[middle].timeMsec ? high : low) = middle;
    } while (low + 1 < high && leaf.array[middle].timeMsec != time);
    if (leaf.array[low].timeMsec == time) {
        return table.PositionOf(leafNr, low);
    }
    if (leaf.array[high].timeMsec == time) {
        return table.PositionOf(leafNr, high);
    }
    return RoundTime(table, table.PositionOf(leafNr, low), table.PositionOf(leafNr, high), time, roundPreference);
}

Position SearchTime(const KeyFrameTable& table, UInt64 time, UInt32 roundPreference)
{
    if (time <= table.LeafAt(0).StartTimeMsec) {
        return table.First();
    }
    if (time >= table.LeafAt(table.LeafCount() - 1).EndTimeMsec) {
        return table.Last();
    }
    const UInt32 leafNr = FindLeaf(table, time);
    const Leaf& leaf = table.LeafAt(leafNr);
    if (time == leaf.EndTimeMsec) {
        return table.PositionOf(leafNr, LastItem(leaf));
    }
    if (time == leaf.StartTimeMsec) {
        return table.PositionOf(leafNr, 0);
    }
    if (time > leaf.EndTimeMsec) {
        return RoundTime(table, table.PositionOf(leafNr, LastItem(leaf)), table.PositionOf(leafNr + 1, 0), time,
                         roundPreference);
    }
    return SearchLeaf(table, leafNr, time, roundPreference);
}

// ---- The search by exact times ----

UInt64 NanosecondsOf(const lxAviReadCore_AviInfo_t* pAviInfo, const Entry& entry)
{
    return lxAviReadCore_GetStreamTimeNsec(static_cast<UInt32>(pAviInfo->videoStreamNr), entry.videoFrameNumber, 0);
}

// The last key frame at or before `time`, or the first one. The table has milliseconds, so that a search in them ends
// near it: several key frames may have the same millisecond.
Position LastAtOrBefore(const lxAviReadCore_AviInfo_t* pAviInfo, const KeyFrameTable& table, UInt64 time)
{
    Position found = SearchTime(table, Milliseconds(time / 1000), lxAviRead_SetPosRoundDown);
    for (Position next = found; table.Next(next) && NanosecondsOf(pAviInfo, *table.At(next)) <= time;) {
        found = next;
    }
    while (NanosecondsOf(pAviInfo, *table.At(found)) > time && table.Prev(found)) {
    }
    return found;
}

Position SearchExactTime(const lxAviReadCore_AviInfo_t* pAviInfo, const KeyFrameTable& table, UInt64 time,
                         UInt32 roundPreference)
{
    const Position down = LastAtOrBefore(pAviInfo, table, time);
    const UInt64 downTime = NanosecondsOf(pAviInfo, *table.At(down));
    Position up = down;
    if (downTime >= time || !table.Next(up)) {
        return down;
    }
    const bool bUpIsNearer = NanosecondsOf(pAviInfo, *table.At(up)) - time < time - downTime;
    return Round(table, down, up, bUpIsNearer, roundPreference);
}

bool HasKeyFrames(const KeyFrameTable& table, SourcePlace place)
{
    if (table.IsEmpty()) {
        lxDbg_AssertError("pAviInfo->KeyFramesListAsArrayLength > 0",
                          lxDbg_StrAssertFormat("Set position cannot be called when KeyFramesListAsArrayLength  <  0"),
                          place.pPath, place.iLine);
    }
    return !table.IsEmpty();
}

void LogSeek(const lxAviReadCore_AviInfo_t* pAviInfo, const Position& position, const Entry& entry, Int32 track)
{
    if (HasEarlierAudio(pAviInfo, entry, track, entry.videoChunkOffset)) {
        LX_LOG(kLevelSeek,
               "lxAviReadCore_SeekToTime : Set jump to audio chunk: %d.%d trk%d aoffset=%d.%d vooffset=%d.%d (%d.%d))",
               LX_HILO(pAviInfo->JumpOffset), track, LX_HILO(entry.audioChunkOffset[track]),
               LX_HILO(entry.videoChunkOffset), position.leafNr, position.itemNr);
        LX_LOG(kLevelSeek,
               "lxAviReadCore_SeekToTime : JumpOffset %d.%d (aud= %d.%d), moviOffset %d.%d  (%d->%d) vfr#=%d afr#=%d "
               "abp=%d.%d %s",
               LX_HILO(pAviInfo->JumpOffset), LX_HILO(entry.audioChunkOffset[track]), LX_HILO(pAviInfo->moviOffset),
               position.leafNr, position.itemNr, entry.videoFrameNumber, entry.audioFrameNumber[track],
               LX_HILO(entry.audioBytePosition[track]), "audio first");
        return;
    }
    LX_LOG(kLevelSeek, "lxAviReadCore_SeekToTime : Set jump to video chunk: aoffset=%d.%d vooffset=%d.%d",
           LX_HILO(track >= 0 ? entry.audioChunkOffset[track] : 0), LX_HILO(entry.videoChunkOffset));
    LX_LOG(kLevelSeek, "lxAviReadCore_SeekToTime : JumpOffset %d.%d , moviOffset %d.%d  (%d->%d) vfr#=%d ",
           LX_HILO(pAviInfo->JumpOffset), LX_HILO(pAviInfo->moviOffset), position.leafNr, position.itemNr,
           entry.videoFrameNumber);
}

// Arms the jump of a seek or a full step, and says whether audio or video comes first.
void ArmFromPointer(lxAviReadCore_AviInfo_t* pAviInfo, const Position& position, const Entry& entry, Int32 track)
{
    const JumpRules rules = {
        .eVideoFirst = VideoFirst::UnlessToAudio, .bLoadVideoCounter = true, .bLoadAudioCounters = true};
    if (ArmJump(pAviInfo, position, entry, track, rules)) {
        LX_LOG(kLevelSeek, "lxAviReadCore_SetPointerOnKF: audio(offset=%d.%d) ahead of video(offset=%d.%d)",
               LX_HILO(pAviInfo->JumpOffset), LX_HILO(position.Offset));
    } else {
        LX_LOG(kLevelSeek, "lxAviReadCore_SetPointerOnKF: Video(offset=%d.%d) ahead of audio(offset=%d.%d)",
               LX_HILO(position.Offset), LX_HILO(track >= 0 ? entry.audioChunkOffset[track] : 0));
    }
}

} // namespace
} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_SeekToTime(UInt32 timeMsec, Int32 audioTrackNumber, UInt32 roundPreference)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    LX_LOG(kLevelEnter, "entered GiveOffsetTotime");
    LX_LOG(kLevelSeek, "Jump Offset=%d.%d  ", LX_HILO(pAviInfo->JumpOffset));
    const Int32 track =
        CheckedTrack(audioTrackNumber, "audioTrackNumber <LX_AVIREAD_AUDIO_TRACKS", "lxAviReadCore_SeekToTime", Here());
    const KeyFrameTable table(pAviInfo);
    if (!HasKeyFrames(table, Here())) {
        return 0;
    }
    const Position found = SearchTime(table, timeMsec, roundPreference);
    LX_LOG(kLevelSeek, "leaving GiveOffsetTotime with result: leaf=%d item=%d offset=%d.%d", found.leafNr, found.itemNr,
           LX_HILO(found.Offset));
    lxAviReadCore_SetPointerOnKF(&found, track);
    const Entry& entry = *table.At(found);
    LogSeek(pAviInfo, found, entry, track);
    return lxAviReadCore_GetStreamTime(static_cast<UInt32>(pAviInfo->videoStreamNr), entry.videoFrameNumber, 0);
}

UInt64 lxAviReadCore_SeekToTimeNsec(UInt64 timeNsec, Int32 audioTrackNumber, UInt32 roundPreference)
{
    const lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    if (!ExactTimesAreGiven(pAviInfo)) {
        return 0;
    }
    const Int32 track = CheckedTrack(audioTrackNumber, "audioTrackNumber < LX_AVIREAD_AUDIO_TRACKS",
                                     "lxAviReadCore_SeekToTimeNsec", Here());
    const KeyFrameTable table(pAviInfo);
    if (!HasKeyFrames(table, Here())) {
        return 0;
    }
    const Position found = SearchExactTime(pAviInfo, table, timeNsec, roundPreference);
    lxAviReadCore_SetPointerOnKF(&found, track);
    const Entry& entry = *table.At(found);
    LogSeek(pAviInfo, found, entry, track);
    return NanosecondsOf(pAviInfo, entry);
}

void lxAviReadCore_SetPointerOnKF(const lxAviReadCore_KeyFramePosition_t* keyFrame, Int32 audioTrackNumber)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    LX_ASSERT(keyFrame != Null, "keyFrame!= Null",
              "Parameter for lxAviReadCore_SetPointerOnKF shouldn't be a null pointer");
    if (keyFrame == Null) {
        return;
    }
    const Int32 track = CheckedTrack(audioTrackNumber, "audioTrackNumber < LX_AVIREAD_AUDIO_TRACKS",
                                     "lxAviReadCore_SetPointerOnKF", Here());
    Position position = *keyFrame;
    const Entry* const pEntry = KeyFrameTable(pAviInfo).At(position);
    if (pEntry != Null) {
        position.Offset = position.Offset != 0 ? position.Offset : pEntry->videoChunkOffset;
        ArmFromPointer(pAviInfo, position, *pEntry, track);
    }
    CheckPosition(position, pEntry,
                  "keyFrame->Offset == pAviInfo->KeyFramesListAsArray[keyFrame->leafNr]->array[keyFrame->itemNr]"
                  ".videoChunkOffset",
                  "keyFrame->Offset", Here());
}

UInt32 lxAviReadCore_GetSetPositionRangeInfo(lxAviRead_SetPositionRangeInfo_t* pRange)
{
    LX_LOG(kLevelEnter, "lxAviReadCore_GetSetPositionRangeInfo Enter");
    LX_ASSERT(pRange != Null, "pRange!= Null",
              "Parameter for lxAviReadCore_GetSetPositionRangeInfo shouldn't be a null pointer");
    if (pRange == Null) {
        return LX_OK;
    }
    const KeyFrameTable table(&lxAviReadCore_AviInfo);
    *pRange = {0xFFFFFFFFu, 0, 0};
    if (!table.IsEmpty()) {
        pRange->uiLastKeyFrameNr = table.At(table.Last())->videoFrameNumber;
        pRange->uiStartTimeMsec = static_cast<UInt32>(table.LeafAt(0).StartTimeMsec);
        pRange->uiEndTimeMsec = static_cast<UInt32>(table.LeafAt(table.LeafCount() - 1).EndTimeMsec);
    }
    LX_LOG(kLevelLeave, "lxAviReadCore_GetSetPositionRangeInfo Leave");
    return LX_OK;
}
