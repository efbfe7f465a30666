// Format mode: exact times of video, and what the numbers of audio count.

#include "FormatModeTest.hpp"

namespace avitest {
namespace {

class Times : public FormatMode {
protected:
    struct VideoCase {
        UInt32 uiScale, uiRate, uiMicroSec, uiStart, uiFrame, uiWant;
    };

    UInt32 VideoTime(const VideoCase& one)
    {
        builder = AviBuilder();
        Stream video = VideoStream();
        video.header.dwScale = one.uiScale;
        video.header.dwRate = one.uiRate;
        video.header.dwStart = one.uiStart;
        builder.avih.dwMicroSecPerFrame = one.uiMicroSec;
        builder.Add(video);
        EXPECT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
        return lxAviReadCore_GetStreamTime(0, one.uiFrame, 0);
    }
};

TEST_F(Times, OfVideoComeFromItsStreamAndAreExact)
{
    constexpr UInt32 kMax = 0xFFFFFFFFu;
    const VideoCase cases[] = {
        {1001, 30000, 40000, 0, 1000, 33366},        // 33366.67
        {1001, 30000, 40000, 0, 30, 1001},           // whole
        {1001, 30000, 40000, 3, 27, 1001},           // the start counts
        {1, 1000, 40000, 0, 16777217, 16777217},     // more than single precision holds
        {125, 2997, 41708, 0, 200000, 8341675},      // 8341675.008; by the main header 8341600
        {3, 7, 0, 0, 7, 3000},                       // no main header is needed
        {0, 25, 40000, 0, 25, 1000},                 // no scale: by the main header
        {1, 0, 40000, 5, 20, 1000},                  // no rate: by the main header
        {0, 25, 0, 0, 25, 0},                        // no header has it
        {kMax, kMax, 40000, 0, 4000000, 4000000000}, // a second each
        {kMax, 1, 40000, 0, 1, kMax},                // too large
        {kMax, 1, 40000, kMax, kMax, kMax},          //
        {1, kMax, 40000, kMax, kMax, 2000},          // the sum of start and frame has 33 bits
        {0, 0, kMax, kMax, kMax, kMax},              //
    };
    for (const VideoCase& one : cases) {
        EXPECT_EQ(VideoTime(one), one.uiWant) << one.uiScale << " " << one.uiRate << " " << one.uiFrame;
    }
}

TEST_F(Times, OpenLogsThatNoHeaderHasARate)
{
    const std::string text = "AviReadCore : no header gives the frame rate of stream 0, its times are 0";
    for (const UInt8 as : {kDefault, kFormat}) {
        for (const UInt32 microSec : {0u, 40000u}) {
            builder = AviBuilder();
            builder.Add(VideoStream(0, 1));
            builder.avih.dwMicroSecPerFrame = microSec;
            ASSERT_EQ(OpenAs(as, builder.Build()), LX_OK);
            EXPECT_EQ(log.Has(text), as == kFormat && microSec == 0);
        }
    }
}

// The main header says 40 ms, the stream 50 ms. The table has the times that a seek returns, with the start.
TEST_F(Times, OfTheTableAreThoseOfTheStream)
{
    builder = AviBuilder();
    Stream video = VideoStream(20, 1);
    video.header.dwStart = 4;
    builder.Add(video).Add(PcmStream());
    for (UInt32 i = 0; i < 20; ++i) {
        builder.Audio(1, Fill(800)).Frame(0, Fill(10), i % 5 == 0); // 50 ms each
    }
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(Entry(0, 0).timeMsec, 200u);
    EXPECT_EQ(Entry(0, 1).timeMsec, 450u);
    EXPECT_EQ(Entry(0, 0).audioFrameNumber[0], 4u); // at 200 ms plays the fifth chunk
    EXPECT_EQ(Entry(0, 1).audioFrameNumber[0], 9u);
    EXPECT_EQ(lxAviReadCore_SeekToTime(450, 0, lxAviRead_SetPosRoundUp), 450u);
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    EXPECT_EQ(Entry(0, 1).timeMsec, 200u);
    EXPECT_EQ(Entry(0, 0).audioFrameNumber[0], 0u);
}

// ---- What audio counts ----

struct UnitsCase {
    const char* pWhat;
    UInt16 uiTag, uiBlockAlign;
    UInt32 uiSampleSize, uiScale, uiRate, uiBytesPerSec;
    UInt32 number[5]; // of chunks of 400, 0, 300, 1200 and 5 bytes
    UInt32 uiLastTime;
};

const UnitsCase kUnits[] = {
    // chunks count blocks
    {"VBR MP3", 0x55, 1152, 0, 1152, 44100, 16000, {0, 1, 1, 2, 4}, 104},
    {"WMA", 0x161, 100, 0, 100, 2000, 2000, {0, 4, 4, 7, 19}, 950},
    {"PCM without a sample size", 1, 4, 0, 1, 8000, 32000, {0, 100, 100, 175, 475}, 59},
    {"A-law without a sample size", 6, 1, 0, 1, 8000, 8000, {0, 400, 400, 700, 1900}, 237},
    {"AC-3 by bytes", 0x2000, 1, 0, 1, 16000, 16000, {0, 400, 400, 700, 1900}, 118},
    // no block size: every chunk counts one
    {"AC-3", 0x2000, 0, 0, 1536, 48000, 16000, {0, 1, 2, 3, 4}, 128},
    {"AAC with the block size of PCM", 0xFF, 4, 0, 1024, 48000, 16000, {0, 1, 2, 3, 4}, 85},
    {"MP3 with a block size of 1", 0x55, 1, 0, 1152, 44100, 16000, {0, 1, 2, 3, 4}, 104},
    {"MP3 without a byte rate", 0x55, 2, 0, 1152, 44100, 0, {0, 1, 2, 3, 4}, 104},
    // sample sizes that are none
    {"AAC, 1024", 0xFF, 1024, 1024, 1024, 44100, 16000, {0, 1, 1, 2, 4}, 92},
    {"AAC, 1024, no block", 0x706D, 0, 1024, 1024, 44100, 16000, {0, 1, 2, 3, 4}, 92},
    {"MP3, 1152", 0x55, 1152, 1152, 1152, 44100, 16000, {0, 1, 1, 2, 4}, 104},
    {"MP3 of a low rate, 576", 0x55, 576, 576, 576, 8000, 1000, {0, 1, 1, 2, 5}, 360},
    // sample sizes: chunks are numbered, times come from bytes; before the last chunk are 1900
    {"ADPCM", 2, 1024, 1024, 1017, 22050, 22311, {0, 1, 2, 3, 4}, 85},
    {"layer II, 1152", 0x50, 1152, 1152, 1152, 44100, 44100, {0, 1, 2, 3, 4}, 43},
    {"CBR MP3", 0x55, 1, 1, 1, 16000, 16000, {0, 1, 2, 3, 4}, 118},
    {"PCM", 1, 4, 4, 1, 8000, 32000, {0, 1, 2, 3, 4}, 59},
    {"PCM with the sample size of one channel", 1, 4, 1, 1, 8000, 32000, {0, 1, 2, 3, 4}, 59},
    {"a sample size that the block does not mend", 0x55, 768, 1, 1, 16000, 16000, {0, 1, 2, 3, 4}, 118},
};

TEST_F(Times, OfAudioFollowFromWhatItsNumbersCount)
{
    constexpr UInt32 kSizes[] = {400, 0, 300, 1200, 5};
    for (const UnitsCase& one : kUnits) {
        SCOPED_TRACE(one.pWhat);
        Stream stream = PcmStream();
        stream.format = AudioFormat(one.uiTag, 2, 8000, one.uiBytesPerSec, one.uiBlockAlign, 0);
        stream.header.dwSampleSize = one.uiSampleSize;
        stream.header.dwScale = one.uiScale;
        stream.header.dwRate = one.uiRate;
        for (const IndexKind eKind : {IndexKind::Idx1Relative, IndexKind::SuperStandard}) {
            builder = AviBuilder();
            builder.eIndex = eKind;
            builder.eLayout = IxLayout::At32;
            builder.Add(VideoStream(1, 1)).Add(stream);
            for (const UInt32 size : kSizes) {
                builder.Audio(1, Fill(size));
            }
            builder.Frame(0, Fill(10), true).Frame(0, Fill(10), true);
            ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
            EXPECT_EQ(Entry(0, 1).audioFrameNumber[0], one.number[4]); // the last chunk plays at 1 s
            UInt32 time = 0;
            for (const UInt32 number : one.number) {
                const Delivered got = Next();
                EXPECT_EQ(got.chunk.uiFrameNumber, number);
                time = lxAviReadCore_GetStreamTime(1, got.chunk.uiFrameNumber, got.chunk.uiBytePosition);
            }
            EXPECT_EQ(time, one.uiLastTime);
        }
    }
}

TEST_F(Times, OfAudioInPartsOfASampleAreExact)
{
    Stream stream = PcmStream();
    stream.header.dwSampleSize = 3;
    stream.header.dwScale = 7;
    stream.header.dwRate = 11;
    stream.header.dwStart = 2;
    stream.format = AudioFormat(1, 1, 8000, 0, 3, 8);
    builder = AviBuilder();
    builder.Add(VideoStream()).Add(stream);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStreamTime(1, 0, 0), 1272u); // 2 x 7000 / 11
    EXPECT_EQ(lxAviReadCore_GetStreamTime(1, 0, 1), 1484u); // (2 + 1/3) x 7000 / 11 = 1484.8
    EXPECT_EQ(lxAviReadCore_GetStreamTime(1, 0, 5), 2333u); // (2 + 5/3) x 7000 / 11 = 2333.3
    EXPECT_EQ(lxAviReadCore_GetStreamTime(1, 0, ~0ull), 0xFFFFFFFFu);
}

TEST_F(Times, InMicrosecondsAreExact)
{
    Stream video = VideoStream(30000, 1001);
    video.header.dwStart = 2;
    builder = AviBuilder();
    builder.Add(video).Add(Mp3VbrStream(44100)).Add(PcmStream(48000, 2, 16)).Add(TextStream()).Add(VideoStream(0, 1));
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStreamTimeUsec(0, 1, 0), 100100u);                   // 3 x 1001 / 30000 s
    EXPECT_EQ(lxAviReadCore_GetStreamTimeUsec(0, 0xFFFFFFFF, 0), 143308742143233u); // (2^32 + 1) x 1001 / 30000 s
    EXPECT_EQ(lxAviReadCore_GetStreamTimeUsec(1, 7, 99), 182857u);                  // 7 x 1152 / 44100 s
    EXPECT_EQ(lxAviReadCore_GetStreamTimeUsec(2, 0, 4), 20u);                       // one sample of 1/48000 s
    EXPECT_EQ(lxAviReadCore_GetStreamTimeUsec(2, 0, 192000ull * 100000), 100000000000u);
    EXPECT_EQ(lxAviReadCore_GetStreamTimeUsec(3, 1, 1), 0u);        // text
    EXPECT_EQ(lxAviReadCore_GetStreamTimeUsec(4, 25, 0), 1000000u); // by the main header
    EXPECT_EQ(lxAviReadCore_GetStreamTimeUsec(5, 1, 1), 0u);        // no such stream
    EXPECT_EQ(lxAviReadCore_GetStreamTimeUsec(17, 1, 1), 0u);
    EXPECT_EQ(lxAviReadCore_GetStreamTimeUsec(0xFFFFFFFF, 1, 1), 0u);
    ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStreamTimeUsec(0, 1, 1), 0u);
}

TEST_F(Times, InNanosecondsAreExact)
{
    Stream video = VideoStream(30000, 1001);
    video.header.dwStart = 2;
    builder = AviBuilder();
    builder.avih.dwMicroSecPerFrame = 33367;
    builder.Add(video).Add(Mp3VbrStream(44100)).Add(PcmStream(48000, 2, 16)).Add(TextStream()).Add(VideoStream(0, 1));
    const Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStreamTimeNsec(0, 0, 0), 66733333u);  // 2 x 1001 / 30000 s
    EXPECT_EQ(lxAviReadCore_GetStreamTimeNsec(0, 1, 0), 100100000u); // 3 x 1001 / 30000 s
    EXPECT_EQ(lxAviReadCore_GetStreamTimeNsec(0, 0xFFFFFFFF, 0), 143308742143233333u);
    EXPECT_EQ(lxAviReadCore_GetStreamTimeNsec(1, 7, 99), 182857142u); // 7 x 1152 / 44100 s
    EXPECT_EQ(lxAviReadCore_GetStreamTimeNsec(2, 0, 4), 20833u);      // one sample of 1/48000 s
    EXPECT_EQ(lxAviReadCore_GetStreamTimeNsec(2, 0, ~0ull), ~0ull);
    EXPECT_EQ(lxAviReadCore_GetStreamTimeNsec(3, 1, 1), 0u);         // text
    EXPECT_EQ(lxAviReadCore_GetStreamTimeNsec(4, 3, 0), 100101000u); // by the main header
    EXPECT_EQ(lxAviReadCore_GetStreamTimeNsec(5, 1, 1), 0u);         // no such stream
    ASSERT_EQ(OpenAs(kDefault, file), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStreamTimeNsec(0, 1, 0), 0u);
}

// ---- Seeks to nanoseconds ----

// Compares seeks with a search along all key frames.
class ExactSeeks : public FormatMode {
protected:
    static UInt64 TimeOf(UInt32 frame) { return lxAviReadCore_GetStreamTimeNsec(0, frame, 0); }

    // The frame that a plain search finds.
    UInt32 Expected(UInt64 time, UInt32 rounding)
    {
        std::optional<UInt32> down;
        std::optional<UInt32> up;
        for (const auto& entry : Table()) {
            const UInt64 at = TimeOf(entry.videoFrameNumber);
            down = at <= time || !down ? std::optional(entry.videoFrameNumber) : down;
            up = at >= time && !up ? std::optional(entry.videoFrameNumber) : up;
        }
        if (!up || TimeOf(*down) >= time || rounding == lxAviRead_SetPosRoundDown) {
            return *down;
        }
        const bool bUpIsNearer = TimeOf(*up) - time < time - TimeOf(*down);
        return rounding == lxAviRead_SetPosRoundUp || bUpIsNearer ? *up : *down;
    }

    void ExpectSeek(UInt64 time, UInt32 rounding)
    {
        const UInt32 expected = Expected(time, rounding);
        EXPECT_EQ(lxAviReadCore_SeekToTimeNsec(time, -1, rounding), TimeOf(expected)) << time << " " << rounding;
        EXPECT_EQ(Next().chunk.uiFrameNumber, expected) << time << " " << rounding;
    }
};

TEST_F(ExactSeeks, FindTheKeyFrameAmongThoseOfOneMillisecond)
{
    for (const UInt32 rate : {7000u, 30u}) {
        builder = AviBuilder();
        Stream video = VideoStream(rate, 1);
        video.header.dwStart = 3;
        builder.Add(video);
        for (UInt32 i = 0; i < 30; ++i) {
            builder.Frame(0, Fill(10), i % 7 != 3);
        }
        ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
        const UInt64 frame = 1000000000 / rate;
        for (const UInt32 rounding :
             {lxAviRead_SetPosRoundDown, lxAviRead_SetPosRoundUp, lxAviRead_SetPosRoundNearest}) {
            for (UInt32 i = 0; i < 30; ++i) {
                for (const UInt64 time : {TimeOf(i), TimeOf(i) - 1, TimeOf(i) + 1, TimeOf(i) + frame / 2}) {
                    ExpectSeek(time, rounding);
                }
            }
            ExpectSeek(0, rounding);
            ExpectSeek(~0ull, rounding);
        }
    }
}

TEST_F(ExactSeeks, ToABadRoundingGoToTheFirst)
{
    AddMedia(40, 10);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(lxAviReadCore_SeekToTimeNsec(500000000, 0, 3), 0u);
    EXPECT_EQ(log.Assertions().size(), 1u);
}

TEST_F(ExactSeeks, NeedATableAndTheFormatMode)
{
    AddMedia(40, 10);
    const Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    Position();
    EXPECT_EQ(lxAviReadCore_SeekToTimeNsec(500000000, 0, lxAviRead_SetPosRoundDown), 0u);
    ASSERT_EQ(log.Assertions().size(), 1u);
    EXPECT_EQ(log.Assertions()[0].text, "Set position cannot be called when KeyFramesListAsArrayLength  <  0");
    EXPECT_EQ(Info().JumpOffset, 0u);
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    EXPECT_EQ(lxAviReadCore_SeekToTimeNsec(500000000, 0, lxAviRead_SetPosRoundDown), 0u);
    EXPECT_EQ(Info().JumpOffset, 0u);
    EXPECT_EQ(log.Assertions().size(), 0u);
}

TEST_F(ExactSeeks, TakeATrackAsOtherSeeksDo)
{
    AddMedia(40, 10);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(lxAviReadCore_SeekToTimeNsec(800000000, 0, lxAviRead_SetPosRoundDown), 800000000u);
    EXPECT_EQ(Next().chunk.eStreamType, UInt32{LX_AVIREAD_STREAM_AUDIO});
    EXPECT_EQ(lxAviReadCore_SeekToTimeNsec(800000000, 8, lxAviRead_SetPosRoundDown), 800000000u);
    EXPECT_EQ(log.Assertions().size(), 1u);
    EXPECT_EQ(Next().chunk.eStreamType, UInt32{LX_AVIREAD_STREAM_VIDEO});
}

// With the largest scale there is, nothing wraps.
TEST_F(Times, InNanosecondsDoNotWrap)
{
    builder = AviBuilder();
    builder.Add(VideoStream(1, 0xFFFFFFFF)).Add(PcmStream());
    builder.streams[1].header.dwScale = 0xFFFFFFFF;
    builder.streams[1].header.dwRate = 0xFFFFFFFF;
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStreamTimeNsec(0, 4, 0), 17179869180ull * 1000000000);
    EXPECT_EQ(lxAviReadCore_GetStreamTimeNsec(0, 5, 0), ~0ull);
    EXPECT_EQ(lxAviReadCore_GetStreamTimeNsec(1, 0, 3), 1500000000u); // a sample and a half of one second each
}

TEST_F(Times, OfAudioWithoutARateAreZero)
{
    for (const bool bScale : {false, true}) {
        Stream stream = PcmStream();
        (bScale ? stream.header.dwScale : stream.header.dwRate) = 0;
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(stream);
        ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
        EXPECT_EQ(lxAviReadCore_GetStreamTime(1, 100, 100000), 0u);
    }
}

} // namespace
} // namespace avitest
