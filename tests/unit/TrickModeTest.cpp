// Tests steps from key frame to key frame.

#include "ReaderTest.hpp"

namespace avitest {
namespace {

class TrickMode : public ReaderTest {
protected:
    AviBuilder builder;
    Bool found = 9;

    void OpenVideo(UInt32 frames, UInt32 step, bool bAudio = true)
    {
        builder.Add(VideoStream()).Add(PcmStream());
        for (UInt32 i = 0; i < frames; ++i) {
            if (bAudio) {
                builder.Audio(1, Fill(640));
            }
            builder.Frame(0, Fill(10), i % step == 0);
        }
        log.SetMask(0xE0);
        Faults().SetBuffered(true);
        OpenIndexed(builder);
    }

    // Plays until the reader has delivered the frame.
    void PlayTo(UInt32 frame)
    {
        static_cast<void>(lxAviReadCore_SeekToTime(frame * 40, -1, lxAviRead_SetPosRoundDown));
        for (;;) {
            const Delivered chunk = NextValid();
            ASSERT_NE(chunk.uiResult, LX_AVIREAD_END_OF_MEDIA);
            if (chunk.chunk.eStreamType == 2 && chunk.chunk.uiFrameNumber == frame) {
                return;
            }
        }
    }

    UInt32 Armed() { return Entry(Info().audioSyncLeafNr, Info().audioSyncItemNr).videoFrameNumber; }

    // Returns the number of the frame that is delivered next.
    UInt32 Shown()
    {
        for (;;) {
            const Delivered chunk = NextValid();
            if (chunk.chunk.eStreamType == 2 || chunk.uiResult == LX_AVIREAD_END_OF_MEDIA) {
                return chunk.chunk.uiFrameNumber;
            }
        }
    }
};

TEST_F(TrickMode, AJumpOfNoneArmsNothing)
{
    OpenVideo(60, 10);
    PlayTo(10);
    EXPECT_EQ(lxAviReadCore_JumpInKeyFrames(0, 0), LX_OK);
    EXPECT_EQ(Info().JumpOffset, 0u);
    EXPECT_TRUE(log.CountPrefix("lxAviReadCore_JumpInKeyFrames") == 0);
}

TEST_F(TrickMode, AJumpGoesForwardAndBackAndLoadsTheCounters)
{
    OpenVideo(100, 10);
    PlayTo(30);
    log.Clear();
    EXPECT_EQ(lxAviReadCore_JumpInKeyFrames(3, -1), LX_OK);
    EXPECT_EQ(Armed(), 60u);
    EXPECT_EQ(lxalAviRead_VideoFrame, 60u);
    EXPECT_EQ(lxalAviRead_AudioFrame[0], Entry(0, 6).audioFrameNumber[0]);
    EXPECT_EQ(Info().bJumpToVideo, 1);
    EXPECT_TRUE(log.Has("lxAviReadCore_JumpInKeyFrames: KFs=3 time=2400 leaf 0->0 item 3->6"));
    // the second jump also counts from the key frame played last, which is frame 30
    EXPECT_EQ(lxAviReadCore_JumpInKeyFrames(-2, -1), LX_OK);
    EXPECT_EQ(Armed(), 10u);
    EXPECT_EQ(Shown(), 10u);
}

TEST_F(TrickMode, AJumpOffEitherEndGoesToTheFirstKeyFrame)
{
    OpenVideo(100, 10);
    for (const Int32 count : {7, 1000, INT32_MAX, -4, -1000, INT32_MIN}) {
        PlayTo(30);
        EXPECT_EQ(lxAviReadCore_JumpInKeyFrames(count, -1), LX_OK);
        EXPECT_EQ(Armed(), 0u) << count;
        EXPECT_EQ(Info().JumpOffset, Entry(0, 0).videoChunkOffset);
        EXPECT_TRUE(log.Assertions().empty());
    }
    PlayTo(30);
    EXPECT_EQ(lxAviReadCore_JumpInKeyFrames(6, -1), LX_OK); // exactly to the last key frame
    EXPECT_EQ(Armed(), 90u);
}

TEST_F(TrickMode, AJumpBeforeAnythingWasPlayedGoesToTheFirstKeyFrame)
{
    OpenVideo(100, 10);
    EXPECT_EQ(lxAviReadCore_JumpInKeyFrames(5, -1), LX_OK);
    EXPECT_EQ(Armed(), 0u);
}

TEST_F(TrickMode, StepsCrossTheLeafBoundaryBothWays)
{
    OpenVideo(400, 1, false);
    PlayTo(362);
    EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(&found, -1), LX_OK);
    EXPECT_EQ(found, 1);
    EXPECT_EQ(Info().audioSyncLeafNr, 1u);
    EXPECT_EQ(Info().audioSyncItemNr, 0u);
    EXPECT_EQ(Shown(), 363u);
    EXPECT_EQ(lxAviReadCore_SetJumpToPrevKeyFrame(&found, -1), LX_OK);
    EXPECT_EQ(found, 1);
    EXPECT_EQ(Info().audioSyncLeafNr, 0u);
    EXPECT_EQ(Info().audioSyncItemNr, 362u);
    EXPECT_EQ(Shown(), 362u);
    EXPECT_EQ(lxAviReadCore_JumpInKeyFrames(2, -1), LX_OK);
    EXPECT_EQ(Shown(), 364u);
    EXPECT_EQ(lxAviReadCore_JumpInKeyFrames(-3, -1), LX_OK);
    EXPECT_EQ(Shown(), 361u);
}

TEST_F(TrickMode, TheNextStepSkipsWhatTheReaderHasPassed)
{
    OpenVideo(100, 10);
    PlayTo(10);
    // delivery has passed two more key frames since the key frame played last
    Info().CurrentOffset = Entry(0, 4).videoChunkOffset - 5;
    EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrame(&found, -1), LX_OK);
    EXPECT_EQ(found, 1);
    EXPECT_EQ(Armed(), 40u);
    EXPECT_EQ(lxalAviRead_VideoFrame, 40u);
    PlayTo(10);
    Info().CurrentOffset = Entry(0, 4).videoChunkOffset; // delivery has not passed the key frame at this position
    EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrame(&found, -1), LX_OK);
    EXPECT_EQ(Armed(), 40u);
    EXPECT_TRUE(log.HasPrefix("Entered lxAviReadCore_SetJumpToNextKeyFrame. lastPlayedKeyFrame=0->1 "));
    EXPECT_TRUE(log.HasPrefix("Leaving lxAviReadCore_SetJumpToNextKeyFrame with value=1 JumpOffset=0."));
}

TEST_F(TrickMode, TheNextStepKeepsTheLastEntryAtTheEndOfTheTable)
{
    OpenVideo(100, 10);
    PlayTo(10);
    Info().CurrentOffset = 1u << 30;
    EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrame(&found, -1), LX_OK);
    EXPECT_EQ(found, 1);
    EXPECT_EQ(Armed(), 90u);
}

TEST_F(TrickMode, TrickPlayStepsExactlyOneWhereverTheReaderIs)
{
    OpenVideo(100, 10);
    PlayTo(10);
    const UInt32 videoFrame = lxalAviRead_VideoFrame;
    const UInt32 audioFrame = lxalAviRead_AudioFrame[0];
    Info().CurrentOffset = 1u << 30;
    EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(&found, 0), LX_OK);
    EXPECT_EQ(found, 1);
    EXPECT_EQ(Armed(), 20u);
    EXPECT_EQ(Info().JumpOffset, Entry(0, 2).videoChunkOffset); // to the video, not to the audio
    EXPECT_EQ(Info().bAudioSync, 1);
    EXPECT_EQ(Info().bJumpToVideo, 0);
    EXPECT_EQ(lxalAviRead_VideoFrame, videoFrame); // the step does not load the counters
    EXPECT_EQ(lxalAviRead_AudioFrame[0], audioFrame);
    EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(&found, 0), LX_OK);
    EXPECT_EQ(Armed(), 30u); // the step has moved from a key frame that was not played
    EXPECT_EQ(Shown(), 30u);
}

TEST_F(TrickMode, TheBackwardStepRequiresVideoFirst)
{
    OpenVideo(100, 10);
    PlayTo(50);
    EXPECT_EQ(lxAviReadCore_SetJumpToPrevKeyFrame(&found, 0), LX_OK);
    EXPECT_EQ(found, 1);
    EXPECT_EQ(Armed(), 40u);
    EXPECT_EQ(Info().bJumpToVideo, 1);
    EXPECT_EQ(Info().JumpOffset, Entry(0, 4).videoChunkOffset);
    EXPECT_EQ(lxalAviRead_VideoFrame, 50u); // the step does not load the counters
    EXPECT_EQ(lxAviReadCore_SetJumpToPrevKeyFrame(&found, 0), LX_OK);
    EXPECT_EQ(Armed(), 30u);
    EXPECT_EQ(Shown(), 30u);
}

TEST_F(TrickMode, AtTheLastKeyFrameTheForwardStepsArmItAgain)
{
    OpenVideo(100, 10);
    PlayTo(90);
    EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrame(&found, -1), LX_OK);
    EXPECT_EQ(found, 0);
    EXPECT_EQ(Armed(), 90u);
    EXPECT_EQ(Shown(), 90u);
    EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(&found, -1), LX_OK);
    EXPECT_EQ(found, 0);
    EXPECT_EQ(Armed(), 90u);
    EXPECT_EQ(Info().bJumpToVideo, 1); // armed like a seek
    EXPECT_EQ(Shown(), 90u);
    EXPECT_TRUE(log.HasPrefix("Entered lxAviReadCore_SetJumpToNextKeyFrameForTrickMode. lastPlayedKeyFrame=0->9 "));
    EXPECT_TRUE(log.HasPrefix("Leaving lxAviReadCore_SetJumpToNextKeyFrameForTrickMode with value=0 JumpOffset=0."));
}

TEST_F(TrickMode, AtTheFirstKeyFrameTheBackwardStepArmsItAgain)
{
    OpenVideo(100, 10);
    PlayTo(0);
    EXPECT_EQ(lxAviReadCore_SetJumpToPrevKeyFrame(&found, -1), LX_OK);
    EXPECT_EQ(found, 0);
    EXPECT_EQ(Armed(), 0u);
    EXPECT_EQ(Shown(), 0u);
}

TEST_F(TrickMode, BeforeAnythingWasPlayedStepsBeginAtTheFirstKeyFrame)
{
    OpenVideo(100, 10);
    EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrame(&found, -1), LX_OK);
    EXPECT_EQ(found, 1);
    EXPECT_EQ(Armed(), 10u);
    lxAviReadCore_RewindToStart();
    EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(&found, -1), LX_OK);
    EXPECT_EQ(Armed(), 10u);
    lxAviReadCore_RewindToStart();
    EXPECT_EQ(lxAviReadCore_SetJumpToPrevKeyFrame(&found, -1), LX_OK);
    EXPECT_EQ(found, 0);
    EXPECT_EQ(Armed(), 0u);
    Info().JumpOffset = 0;
}

TEST_F(TrickMode, AnAudioTrackGoesWithTheFullArming)
{
    OpenVideo(100, 10);
    PlayTo(10);
    EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrame(&found, 0), LX_OK);
    EXPECT_EQ(Info().JumpOffset, Entry(0, 2).audioChunkOffset[0]);
    EXPECT_EQ(Info().bJumpToVideo, 0);
}

TEST_F(TrickMode, WithoutATableNothingIsArmed)
{
    builder.eIndex = IndexKind::None;
    builder.Add(VideoStream()).Frame(0, Fill(4), true);
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(lxAviReadCore_JumpInKeyFrames(1, 0), LX_OK);
    EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrame(&found, 0), LX_OK);
    EXPECT_EQ(found, 0);
    EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(&found, 0), LX_OK);
    EXPECT_EQ(lxAviReadCore_SetJumpToPrevKeyFrame(&found, 0), LX_OK);
    EXPECT_EQ(log.Assertions().size(), 4u);
    EXPECT_EQ(Info().JumpOffset, 0u);
    EXPECT_EQ(Info().bAudioSync, 0);
}

TEST_F(TrickMode, ANullOutcomeIsAsserted)
{
    OpenVideo(100, 10);
    EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrame(nullptr, 0), LX_OK);
    EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(nullptr, 0), LX_OK);
    EXPECT_EQ(lxAviReadCore_SetJumpToPrevKeyFrame(nullptr, 0), LX_OK);
    EXPECT_EQ(log.Assertions().size(), 3u);
    EXPECT_EQ(Info().JumpOffset, 0u);
}

} // namespace
} // namespace avitest
