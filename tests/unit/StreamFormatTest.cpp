// Tests stream formats and stream data.

#include "ReaderTest.hpp"

namespace avitest {
namespace {

class StreamFormat : public ReaderTest {
protected:
    // Opens a file of one stream with this type and format.
    void OpenFormat(std::string_view type, const Bytes& format, const Bytes& extra = {})
    {
        Stream stream;
        stream.header.fccType = Code(type);
        stream.format = format;
        stream.extra = extra;
        AviBuilder builder;
        builder.Add(stream).Add(TextStream());
        ASSERT_EQ(Open(builder), LX_OK);
        // the reader has found the next stream
        ASSERT_EQ(Info().StreamInfo[1]->StreamType, 3u);
    }

    Int32 FrameSize(UInt16 tag, UInt32 samplesPerSec, UInt32 bytesPerSec, UInt16 bits = 16)
    {
        OpenFormat("auds", AudioFormat(tag, 2, samplesPerSec, bytesPerSec, 4, bits));
        return Info().StreamInfo[0]->iFrameSize;
    }

    static Bytes Counting(size_t count)
    {
        Bytes bytes(count);
        for (size_t i = 0; i < count; ++i) {
            bytes[i] = static_cast<UInt8>(i + 1);
        }
        return bytes;
    }
};

TEST_F(StreamFormat, AVideoFormatOf40BytesIsReadWhole)
{
    OpenFormat("vids", Counting(40));
    Bytes out(40);
    ASSERT_EQ(lxAviReadCore_GetStrfData(0, out.data()), LX_OK);
    EXPECT_EQ(out, Counting(40));
    EXPECT_FALSE(log.HasPrefix("AviReadCore : size of video stream"));
    EXPECT_TRUE(log.Has("Entered lxAviReadCore_ParseListStrf_video"));
    EXPECT_TRUE(log.Has("Leaving lxAviReadCore_ParseListStrf_video"));
}

TEST_F(StreamFormat, AVideoFormatOf56BytesIsCut)
{
    OpenFormat("vids", Counting(56));
    Bytes out(48, 0xEE);
    ASSERT_EQ(lxAviReadCore_GetStrfData(0, out.data()), LX_OK);
    EXPECT_EQ(out, Counting(40) + Fill(8, 0xEE));
    EXPECT_TRUE(log.Has(0x8100, "AviReadCore : size of video stream (56) is bigger then size of struct (40)\n"));
}

TEST_F(StreamFormat, AShorterVideoFormatKeepsTheRestOfTheBuffer)
{
    OpenFormat("vids", Counting(12));
    Bytes out(40);
    ASSERT_EQ(lxAviReadCore_GetStrfData(0, out.data()), LX_OK);
    EXPECT_EQ(out, Counting(12) + Fill(28, 0));
}

TEST_F(StreamFormat, AnAudioFormatOf18BytesIsReadWhole)
{
    const Bytes format = AudioFormat(1, 2, 44100, 176400, 4, 16);
    ASSERT_EQ(format.size(), 18u);
    OpenFormat("auds", format);
    Bytes out(40, 0xEE);
    ASSERT_EQ(lxAviReadCore_GetStrfData(0, out.data()), LX_OK);
    EXPECT_EQ(out, format + Fill(14, 0) + Fill(8, 0xEE)); // exactly 32 bytes are copied
    EXPECT_EQ(Info().StreamInfo[0]->iFrameSize, 2);       // does not depend on the number of channels
}

TEST_F(StreamFormat, AnAudioFormatOf50BytesIsCutQuietly)
{
    OpenFormat("auds", Counting(50));
    Bytes out(32);
    ASSERT_EQ(lxAviReadCore_GetStrfData(0, out.data()), LX_OK);
    EXPECT_EQ(out, Counting(32));
    EXPECT_TRUE(log.Has(0x100, "AviReadCore : size of audio stream (50) is bigger then size of struct (32)\n"));
}

TEST_F(StreamFormat, ATextFormatIsCutAt8Bytes)
{
    OpenFormat("txts", Counting(20));
    EXPECT_TRUE(log.Has(0x8100, "AviReadCore : size of text subtitle stream (20) is bigger then size of struct (8)\n"));
    Bytes out(8, 0xEE);
    ASSERT_EQ(lxAviReadCore_GetStrfData(0, out.data()), LX_OK);
    EXPECT_EQ(out, Fill(8, 0xEE)); // not copied for a subtitle stream
    const auto* const pFormat = static_cast<const UInt8*>(Info().StreamInfo[0]->Format);
    EXPECT_EQ(Bytes(pFormat, pFormat + 9), Counting(8) + Fill(1, 0));
}

TEST_F(StreamFormat, FormatsOfStreamsThatAreNotThereAreNotCopied)
{
    OpenFormat("vids", Counting(40));
    Bytes out(40, 0xEE);
    EXPECT_EQ(lxAviReadCore_GetStrfData(17, out.data()), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStrfData(5, out.data()), LX_OK);
    EXPECT_EQ(out, Fill(40, 0xEE));
}

TEST_F(StreamFormat, AudioFrameSizesFollowTheTable)
{
    EXPECT_EQ(FrameSize(0x0001, 44100, 176400, 16), 2);
    EXPECT_EQ(FrameSize(0x0001, 8000, 8000, 8), 1);
    EXPECT_EQ(FrameSize(0x0003, 44100, 176400, 32), 4);
    EXPECT_EQ(FrameSize(0x0055, 1000, 7000), 7000); // (1152 / 1000) * 7000
    EXPECT_EQ(FrameSize(0x0055, 576, 7000), 14000);
    EXPECT_EQ(FrameSize(0x0055, 44100, 16000), 0); // the reader first truncates the quotient
    EXPECT_EQ(FrameSize(0x0050, 384, 100), 300);
    EXPECT_EQ(FrameSize(0x00FF, 512, 100), 200);
    EXPECT_EQ(FrameSize(0x2000, 500, 100), 300);
    EXPECT_EQ(FrameSize(0x0161, 500, 100), 0);
}

TEST_F(StreamFormat, NoSamplesPerSecondGiveFrameSizeZero)
{
    EXPECT_EQ(FrameSize(0x0055, 0, 16000), 0);
    EXPECT_EQ(FrameSize(0x00FF, 0, 16000), 0);
    EXPECT_EQ(FrameSize(0x2000, 0, 16000), 0);
}

TEST_F(StreamFormat, StreamDataOf2231BytesIsNone)
{
    // In the file 2231 bytes would become the even size 2232, so the test passes the odd size to the parser itself.
    Stream video = VideoStream();
    AviBuilder builder;
    builder.Add(video).Add(TextStream());
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
    Faults().SetBuffered(false);
    const Bytes file = Fill(4000, 6);
    Faults().Serve("data", file);
    static_cast<void>(lxAviReadCore_Open(0, "data", 1, 0, 1, &allIndexed));
    ASSERT_EQ(lxAviReadCore_Alloc(0), LX_OK);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
    lxAviReadCore_StreamInfo_t* const pStream = Info().StreamInfo[0];
    pStream->StreamType = 2;
    EXPECT_EQ(lxAviReadCore_ParseListStrd_video(&Info(), 2231, pStream), LX_OK);
    EXPECT_TRUE(log.Has("AviReadCore : size of video stream data (2231) should be >= size of struct (40)\n"));
    EXPECT_EQ(ftell(Info().pFile), 2231);
    Bool present = 9;
    Bytes out = Fill(2232, 0xEE);
    EXPECT_EQ(lxAviReadCore_GetStrdData(0, out.data(), &present), LX_OK);
    EXPECT_EQ(present, 0);
    EXPECT_EQ(out, Fill(2232, 0));
}

TEST_F(StreamFormat, StreamDataOf2232BytesIsStoredWithoutASkip)
{
    OpenFormat("vids", Counting(40), Chunk("strd", Fill(2232, 6)));
    EXPECT_FALSE(log.HasPrefix("lxAviReadCore_RemoveChunk"));
    Bool present = 9;
    Bytes out = Fill(2240, 0xEE);
    EXPECT_EQ(lxAviReadCore_GetStrdData(0, out.data(), &present), LX_OK);
    EXPECT_EQ(present, 1);
    EXPECT_EQ(out, Fill(2232, 6) + Fill(8, 0xEE));
    EXPECT_TRUE(log.Has("lxAviReadCore_GetStrdData : Stream 0"));
    EXPECT_TRUE(log.Has("lxAviReadCore_GetStrdData : copying StreamDdata"));
}

TEST_F(StreamFormat, StreamDataOf2240BytesIsCut)
{
    OpenFormat("vids", Counting(40), Chunk("strd", Fill(2232, 6) + Fill(8, 7)));
    Bool present = 0;
    Bytes out(2232);
    EXPECT_EQ(lxAviReadCore_GetStrdData(0, out.data(), &present), LX_OK);
    EXPECT_EQ(out, Fill(2232, 6));
}

TEST_F(StreamFormat, WithoutAStreamRecordOnlyTheFirstWordIsCleared)
{
    OpenFormat("vids", Counting(40));
    Bool present = 9;
    Bytes out = Fill(2232, 0xEE);
    EXPECT_EQ(lxAviReadCore_GetStrdData(17, out.data(), &present), LX_OK);
    EXPECT_EQ(present, 0);
    EXPECT_EQ(out, Fill(4, 0) + Fill(2228, 0xEE));
}

TEST_F(StreamFormat, ReadAndSkipErrorsArePassedOn)
{
    const Bytes header = Chunk("strh", AsBytes(VideoStream().header));
    const auto cut = [&](const Bytes& chunk) { return Open(Riff("AVI ", List("hdrl", List("strl", header + chunk)))); };
    EXPECT_EQ(cut(ChunkOfSize("strf", 40, Fill(39))), LX_ERR_AVIREAD_EOF);
    EXPECT_EQ(cut(ChunkOfSize("strf", 60, Fill(50))), LX_ERR_AVIREAD_EOF);
    const Bytes format = Chunk("strf", Fill(40));
    EXPECT_EQ(cut(format + ChunkOfSize("strd", 2232, Fill(100))), LX_ERR_AVIREAD_EOF);
    EXPECT_EQ(cut(format + ChunkOfSize("strd", 2000, Fill(100))), LX_ERR_AVIREAD_EOF);
    EXPECT_EQ(cut(format + ChunkOfSize("strd", 3000, Fill(2300))), LX_ERR_AVIREAD_EOF);
}

TEST_F(StreamFormat, BitRatesAreTold)
{
    Stream mp3 = Mp3VbrStream();
    const auto isVbr = [&](UInt32 sampleSize, UInt16 blockAlign, UInt32 rate, UInt32 scale) {
        Stream stream = mp3;
        stream.header.dwSampleSize = sampleSize;
        stream.header.dwRate = rate;
        stream.header.dwScale = scale;
        stream.format = AudioFormat(0x55, 2, 44100, 16000, blockAlign, 0);
        AviBuilder builder;
        builder.Add(stream);
        EXPECT_EQ(Open(builder), LX_OK);
        return lxAviReadCore_TrackIsVBR(&Info(), 0);
    };
    EXPECT_EQ(isVbr(0, 0, 48000, 1), 1);
    EXPECT_EQ(isVbr(1, 4, 48000, 1), 0);
    EXPECT_EQ(isVbr(4, 4, 10, 1), 0);
    EXPECT_EQ(isVbr(0, 1152, 44100, 1152), 1);
    EXPECT_EQ(isVbr(1, 4, 1000, 1), 0);
    EXPECT_EQ(isVbr(1, 4, 999, 1), 1);
    EXPECT_EQ(isVbr(1, 4, 0, 0), 0);           // 0 / 0 is not a number, and not below 1000
    EXPECT_EQ(isVbr(1, 4, 0x80000000u, 1), 0); // the rate is unsigned
    EXPECT_EQ(lxAviReadCore_TrackIsVBR(&Info(), 17), 0);
}

} // namespace
} // namespace avitest
