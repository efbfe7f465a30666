// Format mode: the caller selects which video stream is delivered.

#include "FormatModeTest.hpp"

namespace avitest {
namespace {

class SelectVideo : public FormatMode {
protected:
    // Streams: video, audio, video. The frames of stream 2 have 20 bytes, and every fourth is a key frame.
    void AddTwoPictures(UInt32 count)
    {
        builder.Add(VideoStream(50)); // twice the frame rate of stream 0
        for (UInt32 i = 0; i < count; ++i) {
            builder.Audio(1, Fill(640, static_cast<UInt8>(i))).Frame(0, Fill(10, static_cast<UInt8>(i)), i % 3 == 0);
            builder.Frame(2, Fill(20, static_cast<UInt8>(i)), i % 4 == 0);
            builder.Frame(2, Fill(20, static_cast<UInt8>(i)), false);
        }
    }

    std::vector<UInt64> OffsetsOf(std::string_view digits, bool bKeysAlone) const
    {
        std::vector<UInt64> offsets;
        for (const MediaItem& item : builder.MediaItems()) {
            if (item.code.substr(0, 2) == digits && (item.bKey || !bKeysAlone)) {
                offsets.push_back(item.uiOffset);
            }
        }
        return offsets;
    }

    void ExpectPlays(UInt32 streamNr, const std::vector<UInt64>& frames)
    {
        std::vector<UInt64> played;
        for (const Delivered& got : All()) {
            if (got.chunk.eStreamType == LX_AVIREAD_STREAM_VIDEO && got.uiResult == LX_OK) {
                EXPECT_EQ(got.chunk.uiStreamNr, streamNr);
                EXPECT_EQ(got.chunk.uiFrameNumber, played.size());
                played.push_back(got.uiPosition);
            }
        }
        EXPECT_EQ(played, frames);
    }
};

TEST_F(SelectVideo, TheSelectedStreamIsDeliveredAndSought)
{
    for (const IndexKind eIndex : {IndexKind::Idx1Relative, IndexKind::Idx1Absolute, IndexKind::SuperStandard,
                                   IndexKind::SuperField, IndexKind::OneLevelStandard, IndexKind::OneLevelField}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = eIndex;
        builder.eLayout = IxLayout::At32;
        AddTwoPictures(12);
        ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
        EXPECT_EQ(TableOffsets(), OffsetsOf("00", true));
        for (const UInt32 streamNr : {2u, 0u, 2u}) {
            const std::string_view digits = streamNr == 2 ? "02" : "00";
            EXPECT_EQ(lxAviReadCore_SelectVideoStream(streamNr), LX_OK);
            EXPECT_EQ(Info().videoStreamNr, static_cast<Int32>(streamNr));
            EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
            ExpectPlays(streamNr, OffsetsOf(digits, false)); // from the start, without a table
            ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
            EXPECT_EQ(TableOffsets(), OffsetsOf(digits, true));
            Position();
            ExpectPlays(streamNr, OffsetsOf(digits, false));
            ExpectEverySeekLands();
        }
        EXPECT_EQ(Table()[1].timeMsec, 160u); // frame 8 at 50 frames a second
    }
}

TEST_F(SelectVideo, AOneLevelIndexOfAFurtherStreamDisturbsNothingInOpen)
{
    builder.eIndex = IndexKind::OneLevelStandard;
    builder.avih.dwFlags = 0; // so that Open builds the table
    AddTwoPictures(12);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(allIndexed, 1);
    EXPECT_EQ(TableOffsets(), OffsetsOf("00", true));
    for (const auto& entry : Table()) {
        EXPECT_EQ(entry.audioFrameNumber[0], entry.videoFrameNumber); // a chunk of 640 bytes plays for one frame
    }
    EXPECT_EQ(Info().StreamInfo[2]->bIndexParsed, 0);
}

TEST_F(SelectVideo, SelectingTheMainStreamAgainChangesNothing)
{
    AddTwoPictures(12);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(NextValid().chunk.uiStreamNr, 1u);
    EXPECT_EQ(lxAviReadCore_SelectVideoStream(0), LX_OK);
    EXPECT_EQ(TableOffsets(), OffsetsOf("00", true));
    EXPECT_EQ(NextValid().chunk.uiStreamNr, 0u); // delivery goes on
}

TEST_F(SelectVideo, APendingJumpIsDropped)
{
    AddTwoPictures(12);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    lxAviReadCore_SeekToTime(360, 0, lxAviRead_SetPosRoundDown);
    EXPECT_EQ(lxAviReadCore_SelectVideoStream(2), LX_OK);
    const Delivered first = Next();
    EXPECT_EQ(first.uiPosition, builder.MoviOffset());
    EXPECT_FALSE(first.bJumped);
}

TEST_F(SelectVideo, TheCodecOfTheSelectedStreamTellsKeyFrames)
{
    AddTwoPictures(12);
    const Bytes codec = Text("MJPG");
    std::copy(codec.begin(), codec.end(), builder.streams[2].format.begin() + 16);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(lxAviReadCore_SelectVideoStream(2), LX_OK);
    for (const Delivered& got : All()) {
        if (got.chunk.uiStreamNr == 2 && got.uiResult == LX_OK) {
            EXPECT_EQ(got.chunk.bKeyFrame, 1);
        }
    }
    EXPECT_EQ(lxAviReadCore_SelectVideoStream(0), LX_OK);
    Delivered got = Next();
    while (got.chunk.uiStreamNr != 0) {
        got = Next();
    }
    EXPECT_EQ(got.chunk.bKeyFrame, 0);
}

TEST_F(SelectVideo, AnIndexWithoutKeyFlagsIsJudgedAnew)
{
    AddTwoPictures(4);
    const Bytes codec = Text("MJPG");
    std::copy(codec.begin(), codec.end(), builder.streams[2].format.begin() + 16);
    Bytes file = builder.Build();
    for (size_t record = file.size() - 16; record + 16 <= file.size() && file[record + 2] != 0; record -= 16) {
        Patch32(file, record + 4, 0); // no flag anywhere
        if (file[record - 8] == 'i') {
            break;
        }
    }
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(Table().size(), 1u);
    EXPECT_EQ(lxAviReadCore_SelectVideoStream(2), LX_OK);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(Table().size(), 8u);
}

TEST_F(SelectVideo, AnInputThatCannotSeekSelectsBeforeTheFirstChunk)
{
    AddTwoPictures(3);
    const Bytes file = builder.Build();
    ASSERT_EQ(Open(file, false, 1, kPlenty, kFormat), LX_OK);
    EXPECT_EQ(lxAviReadCore_SelectVideoStream(2), LX_OK);
    ExpectPlays(2, OffsetsOf("02", false));
    EXPECT_EQ(lxAviReadCore_SelectVideoStream(0), LX_ERR_AVIREAD_SEEK);
    EXPECT_EQ(Info().videoStreamNr, 2);
}

TEST_F(SelectVideo, AFailedSeekIsTold)
{
    AddTwoPictures(3);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    Faults().FailSeek(1);
    EXPECT_EQ(lxAviReadCore_SelectVideoStream(2), LX_ERR_AVIREAD_SEEK);
    EXPECT_EQ(Info().videoStreamNr, 2);
}

TEST_F(SelectVideo, OtherNumbersAreRefused)
{
    EXPECT_EQ(lxAviReadCore_SelectVideoStream(0), LX_ERR_AVIREAD_BAD_STREAM); // before Open
    AddTwoPictures(3);
    builder.Add(TextStream());
    Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    for (const UInt32 streamNr : {1u, 3u, 4u, 16u, 17u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(lxAviReadCore_SelectVideoStream(streamNr), LX_ERR_AVIREAD_BAD_STREAM);
        EXPECT_EQ(Info().videoStreamNr, 0);
    }
    ASSERT_EQ(OpenAs(kDefault, file), LX_OK);
    EXPECT_EQ(lxAviReadCore_SelectVideoStream(0), LX_ERR_AVIREAD_BAD_STREAM);
    EXPECT_EQ(lxAviReadCore_SelectVideoStream(2), LX_ERR_AVIREAD_BAD_STREAM);
    file.resize(100);
    EXPECT_NE(OpenAs(kFormat, file), LX_OK);
    EXPECT_EQ(lxAviReadCore_SelectVideoStream(0), LX_ERR_AVIREAD_BAD_STREAM);
}

} // namespace
} // namespace avitest
