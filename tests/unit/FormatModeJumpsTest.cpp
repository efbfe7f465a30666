// Format mode: a jump that fails is over, and delivery goes on where it stood before. A rewind drops a pending jump.

#include "FormatModeTest.hpp"

namespace avitest {
namespace {

class FailedJump : public FormatMode {
protected:
    Bytes file;
    std::vector<UInt32> playedBefore = {0, 1, 24, 45}; // chunks

    FailedJump()
    {
        AddMedia(30, 10);
        file = builder.Build();
    }

    // A line for each chunk up to the end.
    std::vector<std::string> Rest()
    {
        std::vector<std::string> lines;
        for (const Delivered& got : All()) {
            lines.push_back(std::to_string(got.uiResult) + " " + std::to_string(got.uiPosition) + " " +
                            std::to_string(got.chunk.uiFrameNumber) + " " + std::to_string(got.chunk.uiBytePosition) +
                            " " + std::to_string(got.chunk.uiSize) + " " + std::to_string(got.chunk.bKeyFrame));
        }
        return lines;
    }

    // Plays some chunks, arms a jump that fails with `code`, and plays on.
    void ExpectToBeOver(UInt32 code, const std::function<void()>& arm)
    {
        for (const UInt32 chunks : playedBefore) {
            SCOPED_TRACE(chunks);
            const auto play = [&] {
                ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
                for (UInt32 i = 0; i < chunks; ++i) {
                    ASSERT_EQ(Next().uiResult, LX_OK);
                }
            };
            play();
            const std::vector<std::string> want = Rest();
            play();
            arm();
            const Delivered failed = Next();
            EXPECT_EQ(failed.uiResult, code);
            EXPECT_TRUE(failed.bJumped);
            EXPECT_EQ(failed.chunk.uiSize, 0u); // a caller that skips it skips nothing
            EXPECT_EQ(failed.chunk.bValid, 0);
            EXPECT_EQ(Info().JumpOffset, 0u);
            EXPECT_EQ(Rest(), want);
        }
    }

    // Arms a jump to the second key frame as if it began at `offset`.
    void ArmTo(UInt64 offset)
    {
        const lxAviReadCore_KeyFramePosition_t position = {0, 1, offset, 1};
        lxAviReadCore_SetPointerOnKF(&position, -1);
    }
};

TEST_F(FailedJump, OutOfAllListsIsOver)
{
    ExpectToBeOver(LX_ERR_AVIREAD_JUMP_RANGE, [&] { ArmTo(UInt64{1} << 40); });
    ExpectToBeOver(LX_ERR_AVIREAD_JUMP_RANGE, [&] { ArmTo(12); });
}

TEST_F(FailedJump, ToAudioInTheKeyFramesPlaceIsOver)
{
    ExpectToBeOver(LX_ERR_AVIREAD_JUMP_NOT_VIDEO, [&] { ArmTo(builder.MediaItems()[20].uiOffset); });
}

TEST_F(FailedJump, ToAnotherFrameIsOver)
{
    ExpectToBeOver(LX_ERR_AVIREAD_NO_KEY_FRAME, [&] { ArmTo(builder.MediaItems()[23].uiOffset); });
}

TEST_F(FailedJump, ToAChunkThatIsNotOfTheMainVideoStreamIsOver)
{
    playedBefore = {0, 1, 20}; // not over the damage
    for (const std::string_view code : {"77dc", "05dc", "01dc", "05wb"}) {
        const Bytes text = Text(code);
        std::copy(text.begin(), text.end(),
                  file.begin() + static_cast<std::ptrdiff_t>(builder.MediaItems()[21].uiOffset));
        ExpectToBeOver(LX_ERR_AVIREAD_JUMP_NOT_VIDEO, [&] { ArmTo(0); });
    }
}

TEST_F(FailedJump, ToTheEndOfTheListIsOver)
{
    const UInt64 end = builder.MoviOffset() + builder.MoviSize();
    for (const UInt64 before : {0u, 1u, 7u}) {
        ExpectToBeOver(LX_ERR_AVIREAD_JUMP_RANGE, [&] { ArmTo(end - before); });
    }
    ExpectToBeOver(LX_ERR_AVIREAD_JUMP_RANGE, [&] { ArmTo(end + 1); });
}

TEST_F(FailedJump, ToTheStartOfTheFileIsOver)
{
    ExpectToBeOver(LX_ERR_AVIREAD_JUMP_RANGE, [&] {
        Entry(0, 1).videoChunkOffset = 0;
        ArmTo(0);
        Entry(0, 1).videoChunkOffset = builder.MediaItems()[21].uiOffset;
    });
}

TEST_F(FailedJump, BehindTheEndOfACutFileIsOver)
{
    bPayloadsMayBeCut = true;
    builder = AviBuilder();
    builder.Add(VideoStream()).Add(PcmStream());
    builder.eIndex = IndexKind::OneLevelStandard;
    AddMedia(30, 10);
    file = builder.Build();
    file.resize(static_cast<size_t>(builder.MediaItems()[58].uiOffset));
    ExpectToBeOver(LX_ERR_AVIREAD_EOF, [&] { ArmTo(builder.MediaItems()[59].uiOffset); });
}

// The jump is not lost: the next call makes it again.
TEST_F(FailedJump, ThatIsAbortedIsMadeAgain)
{
    builder = AviBuilder();
    builder.Add(VideoStream()).Add(PcmStream());
    AddMedia(20, 10);
    builder.Raw(Fill(3000, 0)).Frame(0, Fill(10, 9), true);
    AddMedia(10, 10);
    file = builder.Build();
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    const lxAviReadCore_KeyFramePosition_t third = {0, 2, builder.MediaItems()[41].uiOffset - 2500, 1};
    lxAviReadCore_SetPointerOnKF(&third, -1);
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
    for (UInt32 i = 0; i < 2; ++i) {
        EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_ABORTED);
    }
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
    const Delivered got = Next();
    EXPECT_TRUE(got.bJumped);
    EXPECT_EQ(got.uiResult, LX_OK);
    EXPECT_EQ(got.payload, Fill(10, 9));
}

TEST_F(FailedJump, ThatWasAbortedBeforeGoesBackToWhereDeliveryStood)
{
    builder = AviBuilder();
    builder.Add(VideoStream()).Add(PcmStream());
    AddMedia(20, 10);
    builder.Raw(Fill(3000, 0)).Frame(0, Fill(10, 9), false);
    AddMedia(10, 10);
    file = builder.Build();
    ExpectToBeOver(LX_ERR_AVIREAD_NO_KEY_FRAME, [&] {
        ArmTo(builder.MediaItems()[41].uiOffset - 2500);
        EXPECT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
        EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_ABORTED);
        EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
    });
}

// The caller skips a rejected payload after it has armed the jump.
TEST_F(FailedJump, ComesBackBehindWhatWasSkippedSince)
{
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    const Delivered rejected = Next(1);
    EXPECT_EQ(rejected.uiResult, LX_ERR_AVIREAD_AUDIO_SKIPPED);
    ArmTo(UInt64{1} << 40);
    SkipRejected(rejected);
    EXPECT_EQ(Next(1).uiResult, LX_ERR_AVIREAD_JUMP_RANGE);
    EXPECT_EQ(Next(1).uiPosition, builder.MediaItems()[1].uiOffset);
}

TEST_F(FailedJump, WhoseSeekFailsIsOver)
{
    ExpectToBeOver(LX_ERR_AVIREAD_SEEK, [&] {
        ArmTo(0);
        Faults().FailSeek(2); // the first one looks for a descriptor before the frame
    });
}

TEST_F(FailedJump, OfAnInputThatCannotSeekAnyMoreIsOver)
{
    ExpectToBeOver(LX_ERR_AVIREAD_SEEK, [&] {
        ArmTo(0);
        lxalAviRead_FileSeekPossible = 0;
    });
    EXPECT_EQ(lxalAviRead_FileSeekPossible, 1); // the way back has shown that it can
}

TEST_F(FailedJump, ThatWasArmedTwiceGoesBackToWhereDeliveryStood)
{
    ExpectToBeOver(LX_ERR_AVIREAD_JUMP_RANGE, [&] {
        lxAviReadCore_SeekToTime(800, 0, lxAviRead_SetPosRoundDown);
        ArmTo(12);
    });
}

TEST_F(FailedJump, InAnotherSegmentComesBack)
{
    builder = AviBuilder();
    builder.Add(VideoStream()).Add(PcmStream());
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    AddSegments(3, 15, 5);
    file = builder.Build();
    ExpectToBeOver(LX_ERR_AVIREAD_NO_KEY_FRAME, [&] { ArmTo(builder.MediaItems()[85].uiOffset); });
}

// An Open that reads the same file again has released the segment that delivery stood in.
TEST_F(FailedJump, AfterTheFileWasReadAgainHasNoWayBack)
{
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    ArmTo(UInt64{1} << 40);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
    ASSERT_EQ(lxAviReadCore_Open(0, "", 1, kPlenty, kFormat, &allIndexed), LX_OK);
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_JUMP_RANGE);
    EXPECT_EQ(Info().JumpOffset, 0u);
}

TEST_F(FailedJump, InDefaultModeIsTriedAgain)
{
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    Info().bAbsoluteOffsets = 1;
    ArmTo(UInt64{1} << 30);
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_JUMP_RANGE);
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_JUMP_RANGE);
}

TEST_F(FormatMode, ARewindDropsAPendingJump)
{
    AddMedia(30, 10);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    lxAviReadCore_SeekToTime(800, -1, lxAviRead_SetPosRoundDown);
    lxAviReadCore_RewindToStart();
    EXPECT_EQ(Info().JumpOffset, 0u);
    const Delivered first = Next();
    EXPECT_FALSE(first.bJumped);
    EXPECT_EQ(first.uiPosition, builder.MediaItems()[0].uiOffset);
    EXPECT_EQ(first.chunk.uiFrameNumber, 0u);
}

TEST_F(FormatMode, AnotherTableDropsAPendingJump)
{
    AddMedia(30, 10);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    lxAviReadCore_SeekToTime(800, -1, lxAviRead_SetPosRoundDown);
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_ABORTED);
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
    EXPECT_EQ(Info().JumpOffset, 0u);
    Position();
    EXPECT_FALSE(Next().bJumped);
    EXPECT_EQ(Next().chunk.uiFrameNumber, 0u);
}

// The sync entry of a jump is over, too. A pending jump stays, and where it fails, delivery goes on at the start.
TEST_F(FormatMode, PositioningForgetsWhereDeliveryStood)
{
    AddMedia(30, 10);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    lxAviReadCore_SeekToTime(800, -1, lxAviRead_SetPosRoundDown);
    EXPECT_EQ(Next().chunk.uiFrameNumber, 20u);
    Position();
    EXPECT_EQ(Next().chunk.uiBytePosition, 0u);
    const Delivered first = Next();
    EXPECT_EQ(first.uiResult, LX_OK);
    EXPECT_EQ(first.chunk.uiFrameNumber, 0u);

    lxAviReadCore_SeekToTime(800, -1, lxAviRead_SetPosRoundDown);
    Position();
    EXPECT_EQ(Next().chunk.uiFrameNumber, 20u);

    const lxAviReadCore_KeyFramePosition_t nowhere = {0, 1, UInt64{1} << 40, 1};
    lxAviReadCore_SetPointerOnKF(&nowhere, -1);
    Position();
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_JUMP_RANGE);
    const Delivered start = Next();
    EXPECT_EQ(start.uiPosition, builder.MediaItems()[0].uiOffset);
    EXPECT_EQ(start.chunk.uiFrameNumber, 0u);
}

// Without a table frames count from 0; after the index is parsed, delivery starts over.
TEST_F(FormatMode, PositioningStartsOver)
{
    AddMedia(30, 10);
    const Bytes file = builder.Build();
    for (const UInt8 as : {kDefault, kFormat}) {
        ASSERT_EQ(OpenAs(as, file), LX_OK);
        Position();
        const bool bFormat = as == kFormat;
        for (UInt32 i = 0; i < 3; ++i) {
            EXPECT_EQ(Next().chunk.uiFrameNumber, i);
            EXPECT_EQ(Next().chunk.uiFrameNumber, bFormat ? i : i + 1);
        }
        ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
        Position();
        const Delivered audio = Next();
        EXPECT_EQ(audio.chunk.uiFrameNumber, bFormat ? 0u : 3u);
        EXPECT_EQ(audio.chunk.uiBytePosition, bFormat ? 0u : 3u * 640);
        EXPECT_EQ(Next().chunk.uiFrameNumber, 0u);
    }
}

// With audio earlier in the file, frames of the group before are met first. They are rejected by their number.
TEST_F(FormatMode, FramesBeforeTheSyncPointAreRejectedByTheirNumber)
{
    builder.streams[0].header.dwRate = 0; // all times are 0
    builder.avih.dwMicroSecPerFrame = 0;
    builder.Audio(1, Fill(640)).Frame(0, Fill(10), true).Frame(0, Fill(10), false).Frame(0, Fill(10), true);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    const lxAviReadCore_KeyFramePosition_t second = {0, 1, 0, 1};
    lxAviReadCore_SetPointerOnKF(&second, 0);
    EXPECT_EQ(Next().chunk.eStreamType, UInt32{LX_AVIREAD_STREAM_AUDIO});
    for (UInt32 i = 0; i < 2; ++i) {
        const Delivered before = Next();
        EXPECT_EQ(before.uiResult, LX_ERR_AVIREAD_VIDEO_SKIPPED);
        SkipRejected(before);
    }
    EXPECT_EQ(Next().chunk.uiFrameNumber, 2u);
}

} // namespace
} // namespace avitest
