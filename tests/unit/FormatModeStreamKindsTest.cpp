// Format mode: further video streams, bitmap subtitles, DV with its audio inside, and both types of subtitle text.

#include "FormatModeTest.hpp"

namespace avitest {
namespace {

class StreamKinds : public FormatMode {
protected:
    StreamKinds() { builder = AviBuilder(); }

    static Stream Video(std::string_view handler, std::string_view compression)
    {
        Stream stream = VideoStream();
        stream.header.fccHandler = Code(handler);
        const Bytes code = Text(compression);
        std::copy(code.begin(), code.end(), stream.format.begin() + 16);
        return stream;
    }

    // DV "type 1". Its format tells of the tape.
    static Stream Interleaved()
    {
        Stream stream = VideoStream();
        stream.header.fccType = Code("iavs");
        stream.header.fccHandler = Code("dvsd");
        stream.format = Fill(32, 0x99);
        return stream;
    }

    UInt32 TypeOf(UInt32 streamNr) { return Info().StreamInfo[streamNr]->StreamType; }
};

TEST_F(StreamKinds, AFurtherVideoStreamIsOneUnlessItsCodecIsForSubtitles)
{
    builder.Add(Video("XVID", "XVID")).Add(Video("XVID", "XVID")).Add(Video("DXSB", "abcd"));
    builder.Add(Video("abcd", "dxsa")).Add(Video("DXSC", "DXS")).Add(PcmStream());
    const Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kDefault, file), LX_OK);
    for (const UInt32 further : {1u, 2u, 3u, 4u}) {
        EXPECT_EQ(TypeOf(further), UInt32{LX_AVIREAD_STREAM_SUBTITLE});
        EXPECT_EQ(Info().TrackNumber[further], further - 1);
    }
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    EXPECT_EQ(Info().videoStreamNr, 0);
    const UInt32 types[] = {LX_AVIREAD_STREAM_VIDEO,    LX_AVIREAD_STREAM_VIDEO, LX_AVIREAD_STREAM_SUBTITLE,
                            LX_AVIREAD_STREAM_SUBTITLE, LX_AVIREAD_STREAM_VIDEO, LX_AVIREAD_STREAM_AUDIO};
    const UInt32 tracks[] = {0, 1, 0, 1, 2, 0};
    for (UInt32 i = 0; i < 6; ++i) {
        EXPECT_EQ(TypeOf(i), types[i]) << i;
        EXPECT_EQ(Info().TrackNumber[i], tracks[i]) << i;
    }
    EXPECT_EQ(Info().SubtitleTracksCount, 2u);
}

TEST_F(StreamKinds, TwoFormatsOfTheMainVideoStreamMakeItNoOther)
{
    Stream video = VideoStream();
    video.extra = Chunk("strf", video.format);
    builder.Add(video);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(Info().videoStreamNr, 0);
    EXPECT_EQ(Info().TrackNumber[0], 0u);
}

TEST_F(StreamKinds, SubtitlesBeforeThePictureAreNotThePicture)
{
    builder.Add(Video("DXSB", "DXSB")).Add(VideoStream()).Frame(1, Fill(10), true);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(Info().videoStreamNr, 1);
    EXPECT_EQ(Next().chunk.bKeyFrame, 1);
}

TEST_F(StreamKinds, ChunksOfAFurtherVideoStreamAreRejected)
{
    builder.Add(VideoStream()).Add(VideoStream());
    builder.Frame(0, Fill(10), true).Frame(1, Fill(20), true).Frame(0, Fill(10), false);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(Table().size(), 1u);
    EXPECT_EQ(Next().chunk.uiFrameNumber, 0u);
    const Delivered other = Next();
    EXPECT_EQ(other.uiResult, LX_ERR_AVIREAD_VIDEO_SKIPPED);
    EXPECT_EQ(other.chunk.eStreamType, UInt32{LX_AVIREAD_STREAM_VIDEO});
    EXPECT_EQ(other.chunk.uiSize, 20u);
    SkipRejected(other);
    EXPECT_EQ(Next().chunk.uiFrameNumber, 1u);
}

TEST_F(StreamKinds, AFormatThatCannotBeReadFailsTheOpen)
{
    builder.Add(VideoStream()).Add(VideoStream());
    const Bytes file = builder.Build();
    const Bytes head(file.begin(), file.begin() + 12 + 12 + 64 + 12 + 64 + 20); // into the first strf
    EXPECT_EQ(OpenAs(kFormat, head), LX_ERR_AVIREAD_EOF);
}

// ---- DV with its audio inside ----

TEST_F(StreamKinds, InterleavedDvIsVideoOfKeyFrames)
{
    for (const IndexKind eKind : {IndexKind::Idx1Relative, IndexKind::SuperStandard, IndexKind::None}) {
        builder = AviBuilder();
        builder.eIndex = eKind;
        builder.eLayout = IxLayout::At32;
        builder.avih.dwWidth = 720;
        builder.avih.dwHeight = 576;
        builder.Add(Interleaved());
        const char* const codes[] = {"00__", "00iv", "00dc", "00db"};
        for (UInt32 i = 0; i < 4; ++i) {
            builder.Media(codes[i], Fill(20 + i), i == 2); // an index that flags one frame
        }
        const Bytes file = builder.Build();
        ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
        EXPECT_EQ(Info().videoStreamNr, 0);
        lxAviRead_StrfVideo_t format = {};
        ASSERT_EQ(lxAviReadCore_GetStrfData(0, &format), LX_OK);
        EXPECT_EQ(format.biSize, 40u);
        EXPECT_EQ(format.biWidth, 720);
        EXPECT_EQ(format.biHeight, 576);
        EXPECT_EQ(format.biPlanes, 1);
        EXPECT_EQ(format.biBitCount, 24);
        EXPECT_EQ(format.biCompression, Code("dvsd"));
        const bool bIndexed = eKind != IndexKind::None;
        EXPECT_EQ(lxAviReadCore_ParseIndex(0), bIndexed ? LX_OK : LX_ERR_AVIREAD_NO_INDEX);
        if (eKind == IndexKind::Idx1Relative) {
            EXPECT_EQ(Table().size(), 4u);
        }
        Position();
        for (UInt32 i = 0; i < 4; ++i) {
            const Delivered got = Next();
            EXPECT_EQ(got.uiResult, LX_OK);
            EXPECT_EQ(got.payload, Fill(20 + i));
            EXPECT_EQ(got.chunk.uiFrameNumber, i);
            EXPECT_EQ(got.chunk.bKeyFrame, 1);
        }
    }
}

TEST_F(StreamKinds, InDefaultModeInterleavedDvIsNoStream)
{
    builder.Add(Interleaved()).Media("00__", Fill(20), true);
    ASSERT_EQ(OpenAs(kDefault, builder.Build()), LX_OK);
    EXPECT_EQ(Info().videoStreamNr, -1);
    EXPECT_EQ(TypeOf(0), UInt32{LX_AVIREAD_STREAM_NONE});
    Position();
    EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA);
}

TEST_F(StreamKinds, ASeekInInterleavedDvLands)
{
    builder.Add(Interleaved());
    for (UInt32 i = 0; i < 10; ++i) {
        builder.Media("00__", Fill(20, static_cast<UInt8>(i)), false);
    }
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(lxAviReadCore_SeekToTime(200, -1, lxAviRead_SetPosRoundDown), 200u);
    EXPECT_EQ(Next().payload, Fill(20, 5));
}

// The types of interleaved DV mean nothing in other files, where such bytes can occur anywhere.
TEST_F(StreamKinds, TheTypesOfInterleavedDvBelongToItsStreams)
{
    builder.Add(VideoStream()).Add(Interleaved());
    builder.Media("00__", Fill(3), true).Frame(0, Fill(10), true).Media("00iv", Fill(3), true);
    builder.Media("01__", Fill(5), true).Frame(0, Fill(10), false);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(Next().uiPosition, builder.MediaItems()[1].uiOffset);
    const Delivered other = Next();
    EXPECT_EQ(other.uiResult, LX_ERR_AVIREAD_VIDEO_SKIPPED);
    EXPECT_EQ(other.uiPosition, builder.MediaItems()[3].uiOffset);
    SkipRejected(other);
    EXPECT_EQ(Next().chunk.uiFrameNumber, 1u);
}

TEST_F(StreamKinds, InterleavedDvWithoutItsRecordsIsNoMemory)
{
    builder.Add(Interleaved());
    ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
    Faults().FailAllocation(4); // the format of stream 0
    EXPECT_EQ(Open(builder.Build(), true, 1, kPlenty, kFormat), LX_ERR_AVIREAD_NO_MEMORY);
}

// ---- Codecs whose frames do not refer to each other ----

TEST_F(StreamKinds, EveryFrameOfSuchACodecIsAKeyFrame)
{
    builder.Add(Video("mjpg", "mjpg")).Add(PcmStream()).Add(Video("XVID", "XVID"));
    for (UInt32 i = 0; i < 2 * kLeaf; ++i) {
        builder.Frame(0, Fill(10), true); // a table of one leaf holds every second frame
    }
    builder.Frame(0, Fill(10), false);
    const Bytes file = builder.Build();
    for (const bool bTable : {true, false}) {
        ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
        ASSERT_EQ(Open(file, true, 1, kOneLeafBudget, kFormat), LX_OK);
        if (bTable) {
            ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
            EXPECT_EQ(Table().size(), kLeaf);
        }
        Position();
        EXPECT_EQ(lxAviReadCore_HasOnlyKeyFrames(0), 1);
        for (UInt32 i = 0; i <= 2 * kLeaf; ++i) {
            ASSERT_EQ(Next().chunk.bKeyFrame, 1) << i;
        }
    }
    for (const UInt32 other : {1u, 2u, 3u, 16u, 17u, 0xFFFFFFFFu}) {
        EXPECT_EQ(lxAviReadCore_HasOnlyKeyFrames(other), 0);
    }
    ASSERT_EQ(lxAviReadCore_Reset(), LX_OK);
    EXPECT_EQ(lxAviReadCore_HasOnlyKeyFrames(0), 0);
}

// ---- Subtitle text ----

TEST_F(StreamKinds, TextHasTwoTypes)
{
    builder.Add(VideoStream()).Add(TextStream());
    builder.Frame(0, Fill(10), true).Media("01tx", Text("abc."), true).Media("01st", Text("defg"), true);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(Next().uiResult, LX_OK);
    for (const std::string_view text : {"abc.", "defg"}) {
        const Delivered got = Next();
        EXPECT_EQ(got.uiResult, LX_OK);
        EXPECT_EQ(got.chunk.eStreamType, UInt32{LX_AVIREAD_STREAM_SUBTITLE});
        EXPECT_EQ(got.payload, Text(text));
    }
    EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA);
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    EXPECT_EQ(Next().uiResult, LX_OK);
    EXPECT_EQ(Next().payload, Text("defg"));
}

// A writer that was stopped has left the size of the media data 0: they are measured over all these chunks.
TEST_F(StreamKinds, MediaDataOfTheseTypesAreMeasured)
{
    builder.eIndex = IndexKind::None;
    builder.Add(Interleaved()).Add(TextStream()).Media("00__", Fill(20), true).Media("01tx", Fill(4), true);
    builder.Media("00iv", Fill(20), true);
    Bytes file = builder.Build();
    const auto size = file.begin() + static_cast<std::ptrdiff_t>(builder.MoviOffset()) - 8;
    std::fill(size, size + 4, UInt8{0});
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    EXPECT_EQ(Info().moviSize, 28u + 12 + 28);
}

} // namespace
} // namespace avitest
