// Tests the lookup of a key frame by its offset, and arming a jump back to the key frame played last.

#include "ReaderTest.hpp"

namespace avitest {
namespace {

constexpr char kLast[] = "lxAviReadCore_GetChunkInfo - last played keyframe is the right one";
constexpr char kNext[] = "lxAviReadCore_GetChunkInfo - next keyframe after last played keyframe is the right one";
constexpr char kBetween[] = "lxAviReadCore_GetChunkInfo - between this and next keyframes";
constexpr char kFull[] = "lxAviReadCore_GetChunkInfo - performing full search";
constexpr char kOutOfRange[] = "lxAviReadCore_GetChunkInfo - out of range";

class KeyFrameLookup : public ReaderTest {
protected:
    AviBuilder builder;

    void OpenVideo(UInt32 frames, UInt32 step)
    {
        builder.Add(VideoStream()).Add(PcmStream());
        for (UInt32 i = 0; i < frames; ++i) {
            builder.Audio(1, Fill(640)).Frame(0, Fill(10), i % step == 0);
        }
        log.SetMask(0x30);
        Faults().SetBuffered(true);
        OpenIndexed(builder);
    }

    lxAviReadCore_KeyFramePosition_t Lookup(UInt64 offset)
    {
        log.Clear();
        lxAviReadCore_KeyFramePosition_t result = {9, 9, 9, 9};
        EXPECT_EQ(lxAviReadCore_GetChunkInfo(&result, static_cast<UInt32>(offset)), LX_OK);
        return result;
    }
};

TEST_F(KeyFrameLookup, AnEmptyTableIsNoIndex)
{
    lxAviReadCore_KeyFramePosition_t result = {};
    EXPECT_EQ(lxAviReadCore_GetChunkInfo(&result, 4), LX_ERR_AVIREAD_NO_INDEX);
}

TEST_F(KeyFrameLookup, PlayingInOrderNeedsNoSearch)
{
    OpenVideo(60, 10);
    log.Clear();
    All();
    // before any key frame was played, the first key frame counts as the key frame played last
    EXPECT_EQ(log.Count(kLast), 1u);
    EXPECT_EQ(log.Count(kNext), 5u);
    EXPECT_EQ(log.Count(kBetween), 45u);
    EXPECT_EQ(log.Count(kOutOfRange), 9u); // behind the last key frame
    EXPECT_EQ(log.Count(kFull), 0u);
}

TEST_F(KeyFrameLookup, AfterASeekFarAheadTheFirstKeyFrameIsSearchedFor)
{
    OpenVideo(60, 10);
    Next();
    NextValid();
    static_cast<void>(lxAviReadCore_SeekToTime(1600, -1, lxAviRead_SetPosRoundDown));
    log.Clear();
    const Delivered chunk = Next();
    EXPECT_EQ(chunk.chunk.uiFrameNumber, 40u);
    EXPECT_EQ(log.Count(kFull), 1u);
    log.Clear();
    for (int i = 0; i < 12; ++i) {
        NextValid();
    }
    EXPECT_EQ(log.Count(kFull), 0u);
}

TEST_F(KeyFrameLookup, OffsetsOutsideTheTableAreOutOfRange)
{
    OpenVideo(60, 10);
    EXPECT_EQ(Lookup(Entry(0, 0).videoChunkOffset - 1).valid, 0);
    EXPECT_TRUE(log.Has(kOutOfRange));
    EXPECT_EQ(Lookup(Entry(0, 5).videoChunkOffset + 1).valid, 0);
    EXPECT_TRUE(log.Has(kOutOfRange));
}

TEST_F(KeyFrameLookup, TheBoundsOfEveryLeafAreFound)
{
    OpenVideo(800, 1); // leaves of 363, 363 and 74
    for (const auto& [leaf, item] :
         {std::pair{2u, 73u}, {0u, 0u}, {2u, 0u}, {0u, 362u}, {1u, 362u}, {1u, 0u}, {1u, 180u}}) {
        const UInt64 offset = Entry(leaf, item).videoChunkOffset;
        const auto result = Lookup(offset);
        EXPECT_EQ(result.valid, 1);
        EXPECT_EQ(result.leafNr, leaf);
        EXPECT_EQ(result.itemNr, item);
        EXPECT_EQ(result.Offset, offset);
        EXPECT_TRUE(log.HasPrefix("leaving lxAviReadCore_GetChunkInfo with result: leaf=" + std::to_string(leaf) +
                                  " item=" + std::to_string(item) + " offset=0." + std::to_string(offset)));
        EXPECT_EQ(Lookup(offset + 1).valid, 0);
    }
}

TEST_F(KeyFrameLookup, EveryOffsetIsFoundAndNoOther)
{
    OpenVideo(750, 2);
    for (UInt32 i = 0; i < 375; ++i) {
        const UInt32 n = i * 211 % 375; // not in order
        const auto& entry = Entry(n / kLeaf, n % kLeaf);
        const auto result = Lookup(entry.videoChunkOffset);
        ASSERT_EQ(result.valid, 1);
        ASSERT_EQ(result.leafNr * kLeaf + result.itemNr, n);
        ASSERT_EQ(Lookup(entry.videoChunkOffset + 18).valid, 0);
        ASSERT_EQ(Lookup(entry.videoChunkOffset - 2).valid, 0);
    }
}

TEST_F(KeyFrameLookup, ALeafOfASingleEntryIsSearched)
{
    OpenVideo(364, 1);
    EXPECT_EQ(Info().KeyFramesListAsArray[1]->arrayLength, 1u);
    const auto result = Lookup(Entry(1, 0).videoChunkOffset);
    EXPECT_TRUE(log.Has(kFull));
    EXPECT_EQ(result.leafNr, 1u);
    EXPECT_EQ(result.itemNr, 0u);
}

TEST_F(KeyFrameLookup, ATableOfASingleEntryIsSearched)
{
    OpenVideo(5, 10);
    const UInt64 offset = Entry(0, 0).videoChunkOffset;
    EXPECT_EQ(Lookup(offset).valid, 1);
    EXPECT_EQ(Lookup(offset + 1).valid, 0);
    EXPECT_EQ(Lookup(0).valid, 0); // offset 0 must not match when there is no next entry
}

TEST_F(KeyFrameLookup, AnEntryBeyond4GiBNeverMatches)
{
    OpenVideo(30, 10);
    Entry(0, 1).videoChunkOffset += 1ull << 32;
    Info().KeyFramesListAsArray[0]->EndOffset = ~0ull;
    EXPECT_EQ(Lookup(Entry(0, 1).videoChunkOffset).valid, 0);
}

TEST_F(KeyFrameLookup, WhatLiesBetweenTheEntriesIsNotFoundByTheSearchEither)
{
    OpenVideo(30, 10);
    Info().KeyFramesListAsArray[0]->EndOffset += 100; // the range now ends behind the last entry
    EXPECT_EQ(Lookup(Entry(0, 2).videoChunkOffset + 50).valid, 0);
    EXPECT_TRUE(log.Has(kFull));
    EXPECT_TRUE(log.Has("leaving lxAviReadCore_GetChunkInfo with result: chunk not found"));
}

TEST_F(KeyFrameLookup, ADamagedLeafLengthIsAssertedAndNotFollowed)
{
    OpenVideo(800, 1);
    const UInt64 offset = Entry(1, 300).videoChunkOffset;
    Info().KeyFramesListAsArray[1]->arrayLength = 4000;
    EXPECT_EQ(Lookup(offset).itemNr, 300u);
    EXPECT_TRUE(log.HasAssertion("lastElement<LEAF_ARRAY_LENGTH",
                                 "lastElement# for leaf 1 exceeds the constant(LEAF_ARRAY_LENGTH=363)"));
    Info().KeyFramesListAsArray[1]->arrayLength = kLeaf;
}

TEST_F(KeyFrameLookup, AKeyFrameThatTheTableHasLostIsAsserted)
{
    OpenVideo(30, 10);
    for (int i = 0; i < 22; ++i) {
        NextValid();
    }
    static_cast<void>(lxAviReadCore_SetOnKeyFrame_AudioAndVideo(-1)); // a jump back to the second key frame
    Info().KeyFramesListAsArray[0]->arrayLength = 1;
    log.Clear();
    EXPECT_NE(Next().chunk.bKeyFrame, 1);
    EXPECT_TRUE(log.HasAssertion("searchResult.itemNr < pSearchLeaf->arrayLength",
                                 "itemNr in the search result leaf >= arrayLength of the leaf"));
}

// ---- Re-arming ----

TEST_F(KeyFrameLookup, RearmingBeforeAnythingWasPlayedDoesNothing)
{
    OpenVideo(60, 10);
    Info().JumpOffset = 77;
    EXPECT_EQ(lxAviReadCore_SetOnKeyFrame_AudioAndVideo(0), LX_OK);
    EXPECT_EQ(Info().JumpOffset, 77u);
    EXPECT_EQ(Info().bAudioSync, 0);
    EXPECT_TRUE(log.Has("lastPlayedKeyFrame.valid==false"));
    Info().JumpOffset = 0;
}

TEST_F(KeyFrameLookup, RearmingWithAudioGoesToTheEarlierChunkAndLoadsAllCounters)
{
    OpenVideo(60, 10);
    for (int i = 0; i < 44; ++i) {
        Next();
    }
    EXPECT_EQ(lxalAviRead_VideoFrame, 21u);
    log.Clear();
    EXPECT_EQ(lxAviReadCore_SetOnKeyFrame_AudioAndVideo(0), LX_OK);
    const auto& entry = Entry(0, 2);
    EXPECT_EQ(Info().JumpOffset, entry.audioChunkOffset[0]);
    EXPECT_EQ(Info().bAudioSync, 1);
    EXPECT_EQ(Info().audioSyncItemNr, 2u);
    EXPECT_EQ(Info().bJumpToVideo, 0);
    EXPECT_EQ(lxalAviRead_VideoFrame, 20u);
    EXPECT_EQ(lxalAviRead_AudioFrame[0], entry.audioFrameNumber[0]);
    EXPECT_EQ(lxalAviRead_AudioFrame[5], 0xFFFFFFFFu);
    EXPECT_TRUE(log.Has("Pointer is on prev audio chunk"));
    Delivered chunk = NextValid();
    EXPECT_EQ(chunk.chunk.eStreamType, 1u);
    while (chunk.chunk.eStreamType != 2) {
        chunk = NextValid();
    }
    EXPECT_EQ(chunk.chunk.uiFrameNumber, 20u);
}

TEST_F(KeyFrameLookup, RearmingWithoutAudioLeavesTheAudioCounters)
{
    OpenVideo(60, 10);
    for (int i = 0; i < 44; ++i) {
        Next();
    }
    const UInt32 audio = lxalAviRead_AudioFrame[0];
    log.Clear();
    EXPECT_EQ(lxAviReadCore_SetOnKeyFrame_AudioAndVideo(-1), LX_OK);
    EXPECT_EQ(Info().JumpOffset, Entry(0, 2).videoChunkOffset);
    EXPECT_EQ(lxalAviRead_AudioFrame[0], audio);
    EXPECT_EQ(lxalAviRead_VideoFrame, 20u);
    EXPECT_EQ(Info().bAudioSync, 1);
    EXPECT_EQ(Info().bJumpToVideo, 0); // this operation never sets it
    EXPECT_TRUE(log.HasPrefix("lxAviReadCore_SetOnKeyFrame_AudioAndVideo : JumpOffset 0."));
    EXPECT_FALSE(log.HasPrefix("Pointer is on"));
}

TEST_F(KeyFrameLookup, RearmingKeepsAPendingJumpToVideoFlag)
{
    OpenVideo(60, 10);
    NextValid();
    NextValid();
    Info().bJumpToVideo = 1;
    EXPECT_EQ(lxAviReadCore_SetOnKeyFrame_AudioAndVideo(0), LX_OK);
    EXPECT_EQ(Info().bJumpToVideo, 1);
    Info().bJumpToVideo = 0;
}

TEST_F(KeyFrameLookup, RearmingOnAKeyFrameWithoutEarlierAudioGoesToIt)
{
    builder.Add(VideoStream()).Add(PcmStream());
    builder.Frame(0, Fill(10), true).Audio(1, Fill(640));
    OpenIndexed(builder);
    Next();
    EXPECT_EQ(lxAviReadCore_SetOnKeyFrame_AudioAndVideo(0), LX_OK);
    EXPECT_EQ(Info().JumpOffset, 4u);
    EXPECT_TRUE(log.Has("Pointer is on key video chunk"));
}

TEST_F(KeyFrameLookup, RearmingWithATrackOutOfRangeIsAsserted)
{
    OpenVideo(60, 10);
    NextValid();
    NextValid();
    EXPECT_EQ(lxAviReadCore_SetOnKeyFrame_AudioAndVideo(9), LX_OK);
    EXPECT_TRUE(log.HasAssertion("audioTrackNumber < LX_AVIREAD_AUDIO_TRACKS",
                                 "Wrong audio track number in lxAviReadCore_SetOnKeyFrame_AudioAndVideo (9 must be < "
                                 "LX_AVIREAD_AUDIO_TRACKS"));
    EXPECT_EQ(Info().JumpOffset, Entry(0, 0).videoChunkOffset);
}

TEST_F(KeyFrameLookup, RearmingOnAChangedTableIsAsserted)
{
    OpenVideo(60, 10);
    NextValid();
    NextValid();
    Entry(0, 0).videoChunkOffset += 2;
    EXPECT_EQ(lxAviReadCore_SetOnKeyFrame_AudioAndVideo(-1), LX_OK);
    EXPECT_EQ(log.Assertions().size(), 1u);
    EXPECT_EQ(log.Assertions()[0].condition,
              "lastPlayedKeyFrame.Offset == pAviInfo->KeyFramesListAsArray[lastPlayedKeyFrame.leafNr]->"
              "array[lastPlayedKeyFrame.itemNr].videoChunkOffset");
    log.Clear();
    Info().JumpOffset = 0;
    Info().KeyFramesListAsArrayLength = 0; // the table has no entries now
    EXPECT_EQ(lxAviReadCore_SetOnKeyFrame_AudioAndVideo(-1), LX_OK);
    EXPECT_EQ(Info().JumpOffset, 0u);
    EXPECT_EQ(log.Assertions().size(), 1u);
}

} // namespace
} // namespace avitest
