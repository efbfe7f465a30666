// Tests presentation times.

#include "ReaderTest.hpp"

namespace avitest {
namespace {

class StreamTime : public ReaderTest {
protected:
    void OpenStream(const Stream& stream, UInt32 microSecPerFrame = 40000)
    {
        AviBuilder builder;
        builder.avih.dwMicroSecPerFrame = microSecPerFrame;
        builder.Add(stream);
        ASSERT_EQ(Open(builder), LX_OK);
        log.Clear();
    }

    static Stream Started(Stream stream, UInt32 start)
    {
        stream.header.dwStart = start;
        return stream;
    }

    UInt32 Time(UInt32 frame, UInt64 bytes = 0) { return lxAviReadCore_GetStreamTime(0, frame, bytes); }
};

TEST_F(StreamTime, VideoCountsFrames)
{
    OpenStream(VideoStream());
    EXPECT_EQ(Time(25), 1000u);
    EXPECT_EQ(Time(0), 0u);
    EXPECT_EQ(Time(1, 999999), 40u); // the byte position has no effect
    EXPECT_TRUE(log.Has("lxAviReadCore_GetStreamTime: Video. stream=0 framenumber=   25 bytePosition=0.      0 "
                        "dwMicroSecPerFrame=  40000 streamTime=   1000"));
}

TEST_F(StreamTime, VideoBeginsAtItsStart)
{
    OpenStream(Started(VideoStream(), 10));
    EXPECT_EQ(Time(15), 1000u);
    EXPECT_EQ(Time(0xFFFFFFFFu), 360u); // the sum wraps to 9 frames
}

TEST_F(StreamTime, VideoTimesAreTruncated)
{
    OpenStream(VideoStream(), 33366);
    EXPECT_EQ(Time(1), 33u);
    EXPECT_EQ(Time(100), 3336u);
}

TEST_F(StreamTime, VideoCountsAbove2To24LoseTheirLowestBits)
{
    OpenStream(VideoStream(), 1000); // a frame lasts one millisecond
    EXPECT_EQ(Time(16777216), 16777216u);
    EXPECT_EQ(Time(16777217), 16777216u);
    EXPECT_EQ(Time(16777219), 16777220u);
}

TEST_F(StreamTime, VideoTimesSaturate)
{
    OpenStream(VideoStream(), 0xFFFFFFFFu);
    EXPECT_EQ(Time(0xFFFFFFFFu), 0xFFFFFFFFu);
}

TEST_F(StreamTime, PcmCountsBytesOverTheRate)
{
    Stream pcm = PcmStream(44100, 2, 16);
    ASSERT_EQ(pcm.header.dwRate, 176400u);
    OpenStream(pcm);
    EXPECT_EQ(Time(0, 176400), 1000u);
    EXPECT_EQ(Time(77, 88200), 500u); // the chunk number has no effect
    EXPECT_TRUE(log.HasPrefix("lxAviReadCore_GetStreamTime: AC3 or PCM.stream=0 framenumber=    0 bytePosition=0. "
                              "176400"));
}

TEST_F(StreamTime, PcmBeginsAtItsStartInFrames)
{
    Stream pcm = PcmStream(1000, 1, 32); // 4000 bytes a second, 4 bytes a frame
    OpenStream(Started(pcm, 1));
    ASSERT_EQ(Info().StreamInfo[0]->iFrameSize, 4);
    EXPECT_EQ(Time(0, 0), 1u); // 4 bytes of 4000
    EXPECT_EQ(Time(0, 4000), 1001u);
}

TEST_F(StreamTime, FloatAndAc3CountBytesToo)
{
    Stream stream = PcmStream(1000, 1, 32);
    stream.format[0] = 3;
    OpenStream(stream);
    EXPECT_EQ(Time(0, 4000), 1000u);
    OpenStream(Ac3Stream(24000));
    EXPECT_EQ(Time(0, 24000), 1000u);
}

TEST_F(StreamTime, PcmPositionsBeyond4GiBCount)
{
    OpenStream(PcmStream(44100, 2, 16));
    EXPECT_EQ(Time(0, 176400ull * 100000), 100000000u);
}

TEST_F(StreamTime, Mp3BelowAThousandChunksASecondCountsChunks)
{
    OpenStream(Mp3VbrStream(44100));
    EXPECT_EQ(Time(100), 2612u);
    EXPECT_EQ(Time(100, 123456), 2612u);
    EXPECT_TRUE(log.HasPrefix("lxAviReadCore_GetStreamTime: VBR.   stream=0"));
}

TEST_F(StreamTime, ChunksBeginAtTheStart)
{
    OpenStream(Started(Mp3VbrStream(44100), 40));
    EXPECT_EQ(Time(60), 2612u);
}

TEST_F(StreamTime, Mp3WithASampleSizeCountsBytes)
{
    OpenStream(Mp3CbrStream(16000));
    EXPECT_EQ(Time(0, 16000), 1000u);
    EXPECT_EQ(Time(5, 8000), 500u);
    EXPECT_TRUE(log.HasPrefix("lxAviReadCore_GetStreamTime: CBR.   stream=0"));
}

TEST_F(StreamTime, CbrByteCountsAreCutTo32BitsBeforeTheyAreScaled)
{
    OpenStream(Mp3CbrStream(16000));
    EXPECT_EQ(Time(0, 0x200000000ull), static_cast<UInt32>(4294967295.0 * 1000.0 / 16000.0));
}

TEST_F(StreamTime, CbrStartCountsInFrames)
{
    Stream stream = Started(Mp3CbrStream(1000), 3);
    stream.format = AudioFormat(0x55, 2, 1152, 1000, 1, 0); // one second a frame: 1000 bytes
    OpenStream(stream);
    EXPECT_EQ(Time(0, 500), 3500u);
}

TEST_F(StreamTime, SampleSizeAndBlockSizeZeroAreVbr)
{
    Stream stream = Mp3VbrStream(48000);
    stream.header.dwScale = 1;
    stream.format = AudioFormat(0xFF, 2, 48000, 16000, 0, 0);
    OpenStream(stream);
    EXPECT_EQ(Time(48), 1u); // 48 chunks of 1 / 48000 s
}

TEST_F(StreamTime, AThousandChunksASecondAreCbr)
{
    Stream stream = Mp3VbrStream(1000);
    stream.header.dwScale = 1;
    stream.format = AudioFormat(0x50, 2, 44100, 16000, 4, 0);
    OpenStream(stream);
    EXPECT_EQ(Time(0, 32000), 2000u);
    stream.header.dwRate = 999;
    OpenStream(stream);
    EXPECT_EQ(Time(999, 32000), 1000u);
}

TEST_F(StreamTime, NoRateAndNoScaleAreVbrAndGiveNoTime)
{
    Stream stream = Mp3VbrStream(0);
    stream.header.dwScale = 0;
    OpenStream(stream);
    EXPECT_EQ(Time(100), 0u);                           // 100 x (0 x infinity) is not a number
    EXPECT_EQ(lxAviReadCore_TrackIsVBR(&Info(), 0), 0); // TrackIsVBR decides differently
}

TEST_F(StreamTime, NoRateGivesTheLargestTime)
{
    Stream stream = PcmStream();
    stream.header.dwRate = 0;
    OpenStream(stream);
    EXPECT_EQ(Time(0, 1), 0xFFFFFFFFu);
    EXPECT_EQ(Time(0, 0), 0u);
}

TEST_F(StreamTime, OtherCodingsGiveZeroWithoutAWord)
{
    Stream stream = PcmStream();
    stream.format = AudioFormat(0x0161, 2, 44100, 16000, 1, 0);
    OpenStream(stream);
    EXPECT_EQ(Time(100, 100000), 0u);
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_EQ(lxAviReadCore_GetStreamTime(17, 1, 1), 0u);
}

} // namespace
} // namespace avitest
