// Tests seeking to a time, arming a jump, and the range that seeking covers.

#include "ReaderTest.hpp"

namespace avitest {
namespace {

constexpr UInt32 kUp = lxAviRead_SetPosRoundUp;
constexpr UInt32 kDown = lxAviRead_SetPosRoundDown;
constexpr UInt32 kNearest = lxAviRead_SetPosRoundNearest;

class Seek : public ReaderTest {
protected:
    AviBuilder builder;

    // Opens video of 25 fps. Every `step`-th frame is a key frame; audio stands behind or before each frame.
    void OpenVideo(UInt32 frames, UInt32 step, bool bAudioFirst = false, bool bAudio = true)
    {
        builder.Add(VideoStream());
        if (bAudio) {
            builder.Add(PcmStream());
        }
        for (UInt32 i = 0; i < frames; ++i) {
            if (bAudio && bAudioFirst) {
                builder.Audio(1, Fill(640));
            }
            builder.Frame(0, Fill(10), i % step == 0);
            if (bAudio && !bAudioFirst) {
                builder.Audio(1, Fill(640));
            }
        }
        log.SetMask(0x20);
        Faults().SetBuffered(true);
        OpenIndexed(builder);
    }

    // Seeks without audio, and returns the frame number of the key frame.
    UInt32 Sought(UInt32 time, UInt32 rounding)
    {
        const UInt32 result = lxAviReadCore_SeekToTime(time, -1, rounding);
        const auto& entry = Entry(Info().audioSyncLeafNr, Info().audioSyncItemNr);
        EXPECT_EQ(result, entry.videoFrameNumber * 40);
        EXPECT_EQ(Info().JumpOffset, entry.videoChunkOffset);
        EXPECT_EQ(lxalAviRead_VideoFrame, entry.videoFrameNumber);
        return entry.videoFrameNumber;
    }
};

TEST_F(Seek, BeforeAndAtTheFirstKeyFrameIsTheFirst)
{
    builder.Add(VideoStream());
    for (UInt32 i = 0; i < 20; ++i) {
        builder.Frame(0, Fill(10), i % 5 == 3); // key frames 3, 8, 13, 18
    }
    OpenIndexed(builder);
    for (const UInt32 rounding : {kUp, kDown, kNearest}) {
        EXPECT_EQ(Sought(0, rounding), 3u);
        EXPECT_EQ(Sought(119, rounding), 3u);
        EXPECT_EQ(Sought(120, rounding), 3u);
    }
}

TEST_F(Seek, AtAndBeyondTheLastKeyFrameIsTheLast)
{
    OpenVideo(50, 10);
    for (const UInt32 rounding : {kUp, kDown, kNearest}) {
        EXPECT_EQ(Sought(1600, rounding), 40u);
        EXPECT_EQ(Sought(1601, rounding), 40u);
        EXPECT_EQ(Sought(0xFFFFFFFFu, rounding), 40u);
    }
}

TEST_F(Seek, TheLastKeyFrameNeedsNoSearch)
{
    OpenVideo(50, 10);
    log.Clear();
    EXPECT_EQ(Sought(1600, kDown), 40u);
    EXPECT_FALSE(log.HasPrefix(" Found the Leaf:"));
    EXPECT_EQ(Sought(1599, kDown), 30u);
    EXPECT_TRUE(log.HasPrefix(" Found the Leaf:"));
}

TEST_F(Seek, AnExactTimeIsThatKeyFrame)
{
    OpenVideo(50, 10);
    for (const UInt32 rounding : {kUp, kDown, kNearest}) {
        for (UInt32 frame = 0; frame < 50; frame += 10) {
            EXPECT_EQ(Sought(frame * 40, rounding), frame);
        }
    }
}

TEST_F(Seek, BetweenTwoKeyFramesTheRoundingDecides)
{
    OpenVideo(50, 10);
    EXPECT_EQ(Sought(401, kDown), 10u);
    EXPECT_EQ(Sought(401, kUp), 20u);
    EXPECT_EQ(Sought(599, kNearest), 10u);
    EXPECT_EQ(Sought(600, kNearest), 10u); // equally near: the earlier key frame
    EXPECT_EQ(Sought(601, kNearest), 20u);
}

TEST_F(Seek, EveryTimeIsFoundAsALinearSearchFindsIt)
{
    OpenVideo(1200, 3, false, false); // 400 key frames in two leaves, 120 ms apart
    for (UInt32 time = 0; time < 48500; time += 7) {
        const UInt32 down = std::min(time / 120 * 3, 1197u);
        const UInt32 up = std::min((time + 119) / 120 * 3, 1197u);
        EXPECT_EQ(Sought(time, kDown), down) << time;
        EXPECT_EQ(Sought(time, kUp), up) << time;
        EXPECT_EQ(Sought(time, kNearest), up * 40 >= time && up * 40 - time < time - down * 40 ? up : down) << time;
    }
}

TEST_F(Seek, BetweenTwoLeavesTheGapRuleHolds)
{
    OpenVideo(400 * 10, 10, false, false); // leaf 0 ends with key frame 362, frame 3620; leaf 1 begins at 3630
    EXPECT_EQ(Entry(0, 362).videoFrameNumber, 3620u);
    EXPECT_EQ(Entry(1, 0).videoFrameNumber, 3630u);
    const UInt32 end = 3620 * 40;
    EXPECT_EQ(Sought(end, kUp), 3620u);
    EXPECT_EQ(Sought(end + 1, kDown), 3620u);
    EXPECT_EQ(Sought(end + 1, kUp), 3630u);
    EXPECT_EQ(Sought(end + 200, kNearest), 3620u); // equally near: the earlier key frame
    EXPECT_EQ(Sought(end + 201, kNearest), 3630u);
    EXPECT_EQ(Sought(end + 400, kDown), 3630u);
}

TEST_F(Seek, ASingleKeyFrameAnswersEveryTime)
{
    OpenVideo(5, 10);
    for (const UInt32 time : {0u, 1u, 5000u}) {
        EXPECT_EQ(Sought(time, kNearest), 0u);
    }
}

TEST_F(Seek, AnUnknownRoundingShowsOnlyWhereItDecides)
{
    OpenVideo(50, 10);
    EXPECT_EQ(Sought(800, 3), 20u); // exactly the time of a key frame
    EXPECT_EQ(Sought(5000, 3), 40u);
    EXPECT_TRUE(log.Assertions().empty());
    EXPECT_EQ(Sought(801, 3), 0u);
    EXPECT_TRUE(log.HasAssertion(
        "(roundPreference == lxAviRead_SetPosRoundUp) || (roundPreference == lxAviRead_SetPosRoundDown) || "
        "(roundPreference == lxAviRead_SetPosRoundNearest)",
        "GiveOffsetTotime:Rounding Option is not correct"));
}

TEST_F(Seek, AudioAheadOfTheKeyFrameIsJumpedToFirst)
{
    OpenVideo(50, 10, true);
    static_cast<void>(lxAviReadCore_SeekToTime(800, 0, kDown));
    const auto& entry = Entry(0, 2);
    ASSERT_LT(entry.audioChunkOffset[0], entry.videoChunkOffset);
    EXPECT_EQ(Info().JumpOffset, entry.audioChunkOffset[0]);
    EXPECT_EQ(Info().bJumpToVideo, 0);
    EXPECT_EQ(Info().bAudioSync, 1);
    EXPECT_EQ(lxalAviRead_AudioFrame[0], entry.audioFrameNumber[0]);
    EXPECT_TRUE(log.HasPrefix("lxAviReadCore_SetPointerOnKF: audio(offset=0."));
    EXPECT_TRUE(log.HasPrefix("lxAviReadCore_SeekToTime : Set jump to audio chunk: 0."));
    // without an audio track the jump goes to the video
    static_cast<void>(lxAviReadCore_SeekToTime(800, -1, kDown));
    EXPECT_EQ(Info().JumpOffset, entry.videoChunkOffset);
    EXPECT_EQ(Info().bJumpToVideo, 1);
    EXPECT_TRUE(log.HasPrefix("lxAviReadCore_SeekToTime : Set jump to video chunk: aoffset=0.0 vooffset=0."));
}

TEST_F(Seek, AudioBehindTheKeyFrameLetsTheVideoComeFirst)
{
    OpenVideo(50, 10);
    static_cast<void>(lxAviReadCore_SeekToTime(0, 0, kDown)); // chunk 0 stands behind frame 0
    EXPECT_EQ(Info().JumpOffset, 4u);
    EXPECT_EQ(Info().bJumpToVideo, 1);
    EXPECT_TRUE(log.HasPrefix("lxAviReadCore_SetPointerOnKF: Video(offset=0.4) ahead of audio(offset=0.22)"));
}

TEST_F(Seek, AllTracksAreLoadedWhateverIsSelected)
{
    builder.Add(VideoStream()).Add(PcmStream()).Add(PcmStream());
    for (UInt32 i = 0; i < 50; ++i) {
        builder.Audio(1, Fill(640)).Audio(2, Fill(320)).Audio(2, Fill(320)).Frame(0, Fill(10), i % 10 == 0);
    }
    OpenIndexed(builder);
    static_cast<void>(lxAviReadCore_SeekToTime(800, -1, kDown));
    const auto& entry = Entry(0, 2);
    EXPECT_EQ(lxalAviRead_AudioFrame[0], entry.audioFrameNumber[0]);
    EXPECT_EQ(lxalAviRead_AudioFrame[1], entry.audioFrameNumber[1]);
    EXPECT_EQ(lxalAviRead_AudioFrame[7], 0xFFFFFFFFu); // the file has no track 7
    // after a switch to another track the counters of that track are right
    const Delivered audio = NextValid(1);
    const Delivered next = audio.chunk.eStreamType == 1 ? audio : NextValid(1);
    EXPECT_EQ(next.chunk.eStreamType, 1u);
}

TEST_F(Seek, ASecondSeekReplacesTheFirst)
{
    OpenVideo(50, 10);
    Sought(0, kDown);
    Sought(1600, kDown);
    const Delivered chunk = Next();
    EXPECT_EQ(chunk.chunk.uiFrameNumber, 40u);
    EXPECT_TRUE(chunk.bJumped);
    EXPECT_FALSE(Next().bJumped);
}

TEST_F(Seek, AStreamThatStartsLateIsToldByTheResult)
{
    Stream video = VideoStream();
    video.header.dwStart = 25;
    builder.Add(video).Frame(0, Fill(4), true).Frame(0, Fill(4), true);
    OpenIndexed(builder);
    EXPECT_EQ(lxAviReadCore_SeekToTime(0, -1, kDown), 1000u);  // the returned stream time includes the start
    EXPECT_EQ(lxAviReadCore_SeekToTime(40, -1, kDown), 1040u); // the time to seek, as in the table, does not
}

TEST_F(Seek, ATrackOutOfRangeIsAssertedAndTakenForNone)
{
    OpenVideo(50, 10, true);
    EXPECT_EQ(lxAviReadCore_SeekToTime(800, 8, kDown), 800u);
    EXPECT_TRUE(log.HasAssertion("audioTrackNumber <LX_AVIREAD_AUDIO_TRACKS",
                                 "Wrong audio track number in lxAviReadCore_SeekToTime (8 must be < "
                                 "LX_AVIREAD_AUDIO_TRACKS"));
    EXPECT_EQ(log.Assertions().size(), 1u);
    EXPECT_EQ(Info().JumpOffset, Entry(0, 2).videoChunkOffset);
    const lxAviReadCore_KeyFramePosition_t position = {0, 1, 0, 1};
    lxAviReadCore_SetPointerOnKF(&position, 12);
    EXPECT_EQ(log.Assertions().size(), 2u);
    EXPECT_EQ(Info().JumpOffset, Entry(0, 1).videoChunkOffset);
}

TEST_F(Seek, WithoutATableNothingIsArmed)
{
    builder.Add(VideoStream()).Frame(0, Fill(4), true);
    builder.eIndex = IndexKind::None;
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(lxAviReadCore_SeekToTime(0, 0, kDown), 0u);
    EXPECT_TRUE(log.HasAssertion("pAviInfo->KeyFramesListAsArrayLength > 0",
                                 "Set position cannot be called when KeyFramesListAsArrayLength  <  0"));
    EXPECT_EQ(Info().JumpOffset, 0u);
    EXPECT_EQ(Info().bAudioSync, 0);
}

TEST_F(Seek, APositionThatDesignatesNoEntryIsAsserted)
{
    OpenVideo(50, 10);
    for (const lxAviReadCore_KeyFramePosition_t& position :
         {lxAviReadCore_KeyFramePosition_t{1, 0, 0, 1}, {0, 5, 0, 1}, {0xFFFFFFFFu, 0, 0, 1}, {0, 0xFFFFFFFFu, 7, 1}}) {
        log.Clear();
        lxAviReadCore_SetPointerOnKF(&position, 0);
        EXPECT_EQ(log.Assertions().size(), 1u);
        EXPECT_EQ(Info().JumpOffset, 0u);
        EXPECT_EQ(Info().bAudioSync, 0);
    }
}

TEST_F(Seek, AnOffsetThatDisagreesIsAssertedAndUsed)
{
    OpenVideo(50, 10);
    const lxAviReadCore_KeyFramePosition_t position = {0, 1, 5555, 1};
    lxAviReadCore_SetPointerOnKF(&position, -1);
    EXPECT_EQ(Info().JumpOffset, 5555u);
    EXPECT_TRUE(log.HasAssertion("keyFrame->Offset == pAviInfo->KeyFramesListAsArray[keyFrame->leafNr]->"
                                 "array[keyFrame->itemNr].videoChunkOffset",
                                 "Data is inconsistent keyFrame->Offset=0*2^32+5555 , 0->1->videoChunkOffset=0*2^32+" +
                                     std::to_string(Entry(0, 1).videoChunkOffset)));
}

TEST_F(Seek, AnOffsetThatDisagreesIsAssertedBehindTheMessageOfTheJump)
{
    OpenVideo(50, 10);
    const lxAviReadCore_KeyFramePosition_t position = {0, 1, 5555, 1};
    log.Clear();
    lxAviReadCore_SetPointerOnKF(&position, -1);
    ASSERT_EQ(log.Assertions().size(), 1u);
    EXPECT_EQ(log.Find("lxAviReadCore_SetPointerOnKF: Video(offset=0.5555) ahead of audio(offset=0.0)"), 0u);
    EXPECT_EQ(log.Assertions()[0].uiLinesBefore, 1u);
}

TEST_F(Seek, ATrackOutOfRangeIsAssertedBehindTheMessagesOfTheSearch)
{
    OpenVideo(50, 10);
    log.SetMask(0x60);
    log.Clear();
    static_cast<void>(lxAviReadCore_SeekToTime(0, 8, kDown));
    ASSERT_EQ(log.Assertions().size(), 1u);
    EXPECT_EQ(log.Find("entered GiveOffsetTotime"), 0u);
    EXPECT_EQ(log.Find("Jump Offset=0.0  "), 1u);
    EXPECT_EQ(log.Assertions()[0].uiLinesBefore, 2u);
}

TEST_F(Seek, WithoutATableTheSearchIsToldAllTheSame)
{
    builder.Add(VideoStream()).Frame(0, Fill(4), true);
    builder.eIndex = IndexKind::None;
    ASSERT_EQ(Open(builder), LX_OK);
    log.Clear();
    EXPECT_EQ(lxAviReadCore_SeekToTime(0, 8, kDown), 0u);
    ASSERT_EQ(log.Lines().size(), 2u);
    EXPECT_EQ(log.Lines()[0].text, "entered GiveOffsetTotime");
    EXPECT_EQ(log.Lines()[1].text, "Jump Offset=0.0  ");
    ASSERT_EQ(log.Assertions().size(), 2u);
    EXPECT_EQ(log.Assertions()[0].condition, "audioTrackNumber <LX_AVIREAD_AUDIO_TRACKS");
    EXPECT_EQ(log.Assertions()[0].uiLinesBefore, 2u);
    EXPECT_EQ(log.Assertions()[1].condition, "pAviInfo->KeyFramesListAsArrayLength > 0");
}

TEST_F(Seek, TheRangeIsThatOfTheTable)
{
    lxAviRead_SetPositionRangeInfo_t range = {1, 2, 3};
    EXPECT_EQ(lxAviReadCore_GetSetPositionRangeInfo(&range), LX_OK);
    EXPECT_EQ(range.uiLastKeyFrameNr, 0xFFFFFFFFu);
    EXPECT_EQ(range.uiStartTimeMsec, 0u);
    EXPECT_EQ(range.uiEndTimeMsec, 0u);
    builder.Add(VideoStream());
    for (UInt32 i = 0; i < 3000; ++i) {
        builder.Frame(0, Fill(4), i % 5 == 2);
    }
    log.SetMask(0);
    Faults().SetBuffered(true);
    OpenIndexed(builder);
    EXPECT_EQ(lxAviReadCore_GetSetPositionRangeInfo(&range), LX_OK);
    EXPECT_EQ(range.uiLastKeyFrameNr, 2997u);
    EXPECT_EQ(range.uiStartTimeMsec, 80u);
    EXPECT_EQ(range.uiEndTimeMsec, 2997u * 40u);
}

TEST_F(Seek, SearchesAndRangesEndAtTheLastLeafInUse)
{
    OpenVideo(5, 1, false, false);
    // the table has two more leaves than the key frames need
    Info().uiMaxRecordsInBuffer = 1125;
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), Info().idx1Offset, 0), 1);
    Bytes buffer(18000);
    LendBuffer(buffer);
    ASSERT_EQ(lxAviReadCore_ParseIndex_Video(0, &Info(), 5 * 16, 1, 3), LX_OK);
    Info().pMetaDataBuffer = nullptr;
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 3u);
    EXPECT_EQ(Sought(10000, kDown), 4u);
    EXPECT_EQ(Sought(81, kUp), 3u);
    lxAviRead_SetPositionRangeInfo_t range = {};
    EXPECT_EQ(lxAviReadCore_GetSetPositionRangeInfo(&range), LX_OK);
    EXPECT_EQ(range.uiLastKeyFrameNr, 4u);
    EXPECT_EQ(range.uiEndTimeMsec, 160u);
}

TEST_F(Seek, AnAbsentTrackMakesAJumpToNowhere)
{
    OpenVideo(50, 10, true);
    Next();
    static_cast<void>(lxAviReadCore_SeekToTime(800, 3, kDown)); // there is no track 3
    EXPECT_EQ(Info().JumpOffset, 0u);
    EXPECT_FALSE(Next().bJumped);
}

TEST_F(Seek, ALeafWhoseBoundLiesBehindItsLastEntryIsSearchedToItsEnd)
{
    AviBuilder film;
    film.Add(VideoStream());
    for (UInt32 i = 0; i < 9; ++i) {
        film.Frame(0, Fill(8), i % 3 == 0);
    }
    OpenIndexed(film);
    Info().KeyFramesListAsArray[0]->EndTimeMsec = 500;
    EXPECT_EQ(lxAviReadCore_SeekToTime(240, -1, lxAviRead_SetPosRoundUp), 240u);
    EXPECT_EQ(Info().audioSyncItemNr, 2u);
}

} // namespace
} // namespace avitest
