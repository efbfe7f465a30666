// From a chunk's position to its key frame, and back to the key frame played last.
//
// In playback order the chunk is the key frame played last, the one after it, or lies between the two. Only the first
// chunk after a jump needs a search: for the leaf by its first offset, and by halving inside the leaf.

#include "internal/KeyFrames.hpp"
#include "internal/KeyFrameJump.hpp"

#include <algorithm>

namespace lxAviReadCore {
namespace {

UInt32 FindLeaf(const KeyFrameTable& table, UInt64 offset)
{
    const UInt32 endLeaf = table.LeafCount() - 1;
    const UInt32 currentLeaf = table.FindLeaf(&Leaf::StartOffset, offset);
    LX_ASSERT(currentLeaf < endLeaf + 1, "currentLeaf<endLeaf+1", // GCOVR_EXCL_BR_LINE: FindLeaf ends at the last leaf
              "index structures are not coherent: OffsetOfchunk=%d endOffset=%d currentLeaf=%d endLeaf=%d",
              static_cast<UInt32>(offset), static_cast<UInt32>(table.LeafAt(endLeaf).EndOffset), currentLeaf, endLeaf);
    return currentLeaf;
}

Position SearchTable(const KeyFrameTable& table, UInt64 offset)
{
    LX_LOG(kLevelSeek, "lxAviReadCore_GetChunkInfo - performing full search");
    const UInt32 leafNr = FindLeaf(table, offset);
    const Leaf& leaf = table.LeafAt(leafNr);
    LX_ASSERT(leaf.arrayLength <= LEAF_ARRAY_LENGTH, "lastElement<LEAF_ARRAY_LENGTH",
              "lastElement# for leaf %d exceeds the constant(LEAF_ARRAY_LENGTH=%d)", leafNr, LEAF_ARRAY_LENGTH);
    const UInt32 last = std::min<UInt32>(leaf.arrayLength, LEAF_ARRAY_LENGTH) - 1;
    UInt32 low = 0;
    UInt32 high = last;
    do {
        const UInt32 middle = (low + high) / 2;
        (leaf.array[middle].videoChunkOffset <= offset ? low : high) = middle;
    } while (low + 1 < high);
    if (leaf.array[low].videoChunkOffset == offset) {
        return table.PositionOf(leafNr, low);
    }
    if (leaf.array[last].videoChunkOffset == offset) {
        return table.PositionOf(leafNr, high);
    }
    LX_LOG(kLevelSeek, "leaving lxAviReadCore_GetChunkInfo with result: chunk not found");
    return {};
}

// Makes the key frame played last designate an entry: the first one, before anything was played.
void ValidateLastPlayed(const KeyFrameTable& table)
{
    if (lastPlayedKeyFrame.valid == 0) {
        lastPlayedKeyFrame = table.PositionOf(lastPlayedKeyFrame.leafNr, lastPlayedKeyFrame.itemNr);
    }
}

Position Lookup(const KeyFrameTable& table, UInt64 offset)
{
    if (offset < table.LeafAt(0).StartOffset || offset > table.LeafAt(table.LeafCount() - 1).EndOffset) {
        LX_LOG(kLevelSeek, "lxAviReadCore_GetChunkInfo - out of range");
        return {};
    }
    ValidateLastPlayed(table);
    if (offset == lastPlayedKeyFrame.Offset) {
        LX_LOG(kLevelChunk, "lxAviReadCore_GetChunkInfo - last played keyframe is the right one");
        return lastPlayedKeyFrame;
    }
    Position next = lastPlayedKeyFrame;
    const bool bHasNext = table.Next(next);
    if (bHasNext && offset == next.Offset) {
        LX_LOG(kLevelChunk, "lxAviReadCore_GetChunkInfo - next keyframe after last played keyframe is the right one");
        return next;
    }
    if (bHasNext && offset > lastPlayedKeyFrame.Offset && offset < next.Offset) {
        LX_LOG(kLevelChunk, "lxAviReadCore_GetChunkInfo - between this and next keyframes");
        return {};
    }
    return SearchTable(table, offset);
}

void LogRearmed(const lxAviReadCore_AviInfo_t* pAviInfo, const Entry& entry, UInt32 track, bool bToAudio)
{
    LX_LOG(kLevelSeek, "%s", bToAudio ? "Pointer is on prev audio chunk" : "Pointer is on key video chunk");
    LX_LOG(kLevelSeek,
           "lxAviReadCore_SetOnKeyFrame_AudioAndVideo : JumpOffset %d.%d (aud= %d.%d), moviOffset %d.%d  (%d->%d) "
           "vfr#=%d afr#=%d abp=%d.%d ",
           LX_HILO(pAviInfo->JumpOffset), LX_HILO(entry.audioChunkOffset[track]), LX_HILO(pAviInfo->moviOffset),
           lastPlayedKeyFrame.leafNr, lastPlayedKeyFrame.itemNr, entry.videoFrameNumber, entry.audioFrameNumber[track],
           LX_HILO(entry.audioBytePosition[track]));
}

} // namespace

Position FindKeyFrameAt(const KeyFrameTable& table, UInt64 offset)
{
    const Position found = Lookup(table, offset);
    if (found.valid == 1) {
        LX_LOG(kLevelSeek, "leaving lxAviReadCore_GetChunkInfo with result: leaf=%d item=%d offset=%d.%d (%d.%d)",
               found.leafNr, found.itemNr, LX_HILO(found.Offset), LX_HILO(offset));
    }
    return found;
}

} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_GetChunkInfo(lxAviReadCore_KeyFramePosition_t* result, UInt32 offset)
{
    LX_ASSERT(result != Null, "result!= Null", "Parameter for lxAviReadCore_GetChunkInfo shouldn't be a null pointer");
    if (result == Null) {
        return LX_OK;
    }
    const KeyFrameTable table(&lxAviReadCore_AviInfo);
    if (table.IsEmpty()) {
        return LX_ERR_AVIREAD_NO_INDEX;
    }
    *result = FindKeyFrameAt(table, offset);
    return LX_OK;
}

UInt32 lxAviReadCore_SetOnKeyFrame_AudioAndVideo(Int32 audioTrackNumber)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    const Int32 track = CheckedTrack(audioTrackNumber, "audioTrackNumber < LX_AVIREAD_AUDIO_TRACKS",
                                     "lxAviReadCore_SetOnKeyFrame_AudioAndVideo", Here());
    if (lastPlayedKeyFrame.valid != 1) {
        LX_LOG(kLevelSeek, "lastPlayedKeyFrame.valid==false");
        return LX_OK;
    }
    const Entry* const pEntry = KeyFrameTable(pAviInfo).At(lastPlayedKeyFrame);
    if (!CheckPosition(lastPlayedKeyFrame, pEntry,
                       "lastPlayedKeyFrame.Offset == pAviInfo->KeyFramesListAsArray[lastPlayedKeyFrame.leafNr]"
                       "->array[lastPlayedKeyFrame.itemNr].videoChunkOffset",
                       "lastPlayedKeyFrame.Offset", Here())) {
        return LX_OK;
    }
    // The default mode does not change bJumpToVideo here, nor the audio counters where no audio is played.
    const JumpRules rules = {.bLoadVideoCounter = true, .bLoadAudioCounters = track >= 0};
    const bool bToAudio = ArmJump(pAviInfo, lastPlayedKeyFrame, *pEntry, track, rules);
    if (track >= 0) {
        LogRearmed(pAviInfo, *pEntry, static_cast<UInt32>(track), bToAudio);
    } else {
        LX_LOG(kLevelSeek,
               "lxAviReadCore_SetOnKeyFrame_AudioAndVideo : JumpOffset %d.%d , moviOffset %d.%d  (%d->%d) vfr#=%d ",
               LX_HILO(pAviInfo->JumpOffset), LX_HILO(pAviInfo->moviOffset), lastPlayedKeyFrame.leafNr,
               lastPlayedKeyFrame.itemNr, pEntry->videoFrameNumber);
    }
    return LX_OK;
}
