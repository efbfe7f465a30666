// Format mode: times, placement and trimming of audio.

#include "FormatModeTest.hpp"

namespace avitest {
namespace {

TEST_F(FormatMode, AudioIndexesAreLookedForInEveryStream)
{
    builder = AviBuilder();
    builder.Add(PcmStream()).Add(TextStream()).Add(VideoStream()).Add(TextStream()).Add(PcmStream());
    builder.eIndex = IndexKind::SuperStandard;
    for (UInt32 i = 0; i < 6; ++i) {
        builder.Audio(0, Fill(640)).Audio(4, Fill(320)).Audio(4, Fill(320)).Frame(2, Fill(10), i % 3 == 0);
    }
    for (const UInt8 as : {kDefault, kFormat}) {
        builder.eLayout = as == kFormat ? IxLayout::At32 : IxLayout::At36;
        ASSERT_EQ(ParseAs(as, builder.Build()), LX_OK);
        const bool bFound = as == kFormat;
        EXPECT_EQ(Entry(0, 1).audioChunkOffset[0], bFound ? builder.MediaItems()[12].uiOffset : 0u);
        EXPECT_EQ(Entry(0, 1).audioChunkOffset[1], bFound ? builder.MediaItems()[13].uiOffset : 0u);
        EXPECT_EQ(Entry(0, 1).audioFrameNumber[1], bFound ? 6u : 0u);
    }
}

TEST_F(FormatMode, ANinthAudioStreamBelongsToNoTrack)
{
    builder = AviBuilder();
    builder.Add(VideoStream());
    for (UInt32 i = 0; i < 9; ++i) {
        builder.Add(PcmStream());
    }
    builder.Audio(9, Fill(100)).Audio(1, Fill(640)).Frame(0, Fill(8), true);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    EXPECT_EQ(Info().TrackNumber[9], 0u);
    EXPECT_EQ(NextValid().chunk.uiStreamNr, 9); // default mode counts it as track 0
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(Info().TrackNumber[9], 0xFFFFFFFFu);
    EXPECT_EQ(Info().TrackNumber[8], 7u);
    EXPECT_EQ(Info().AudioTracksCount, 9u);
    EXPECT_EQ(Entry(0, 0).audioFrameNumber[0], 0u);
    EXPECT_EQ(Entry(0, 0).audioChunkOffset[0], builder.MediaItems()[1].uiOffset);
    const Delivered rejected = Next();
    EXPECT_EQ(rejected.uiResult, LX_ERR_AVIREAD_AUDIO_SKIPPED);
    SkipRejected(rejected);
    const Delivered first = Next();
    EXPECT_EQ(first.chunk.uiStreamNr, 1);
    EXPECT_EQ(first.chunk.uiFrameNumber, 0u); // chunks of the ninth stream are not counted
}

TEST_F(FormatMode, RecordsOfStreamsWithoutAudioAreNoAudio)
{
    builder.Add(TextStream());
    builder.Media("02wb", Fill(50), true).Audio(1, Fill(640)).Frame(0, Fill(8), true);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    EXPECT_EQ(Entry(0, 0).audioChunkOffset[0], 4u); // the record of the subtitle stream
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(Entry(0, 0).audioChunkOffset[0], builder.MediaItems()[1].uiOffset);
    EXPECT_EQ(Info().StreamInfo[2]->uiStreamSize, 0u);
}

TEST_F(FormatMode, AnAbsentTrackIsNoJumpTarget)
{
    for (UInt32 i = 0; i < 6; ++i) {
        builder.Frame(0, Fill(10, static_cast<UInt8>(i)), i % 3 == 0);
    }
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    static_cast<void>(lxAviReadCore_SeekToTime(120, 0, lxAviRead_SetPosRoundDown));
    EXPECT_EQ(Info().JumpOffset, 0u);
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    for (const Int32 track : {0, 1, 7}) {
        static_cast<void>(lxAviReadCore_SeekToTime(120, track, lxAviRead_SetPosRoundDown));
        EXPECT_EQ(Info().JumpOffset, KeyFrames()[1]);
        EXPECT_EQ(Info().bJumpToVideo, 1);
        EXPECT_TRUE(log.HasPrefix("lxAviReadCore_SeekToTime : Set jump to video chunk"));
        EXPECT_EQ(NextValid().chunk.uiFrameNumber, 3u);
        ASSERT_EQ(lxAviReadCore_SetOnKeyFrame_AudioAndVideo(track), LX_OK);
        EXPECT_EQ(Info().JumpOffset, KeyFrames()[1]);
    }
}

TEST_F(FormatMode, AudioTimesComeFromTheHeaderWhateverTheCodec)
{
    Stream pcm = PcmStream(48000, 2, 16);
    pcm.header.dwScale = 1;
    pcm.header.dwRate = 48000;
    Stream adpcm = PcmStream(8000, 1, 16); // blocks of 256 bytes, 505 samples each
    adpcm.format = AudioFormat(2, 1, 8000, 4055, 256, 4);
    adpcm.header.dwScale = 505;
    adpcm.header.dwRate = 8000;
    adpcm.header.dwSampleSize = 256;
    Stream mp3 = Mp3VbrStream(44100);
    mp3.header.dwStart = 3;
    builder = AviBuilder();
    builder.Add(VideoStream()).Add(pcm).Add(adpcm).Add(mp3).Add(Ac3Stream(24000)).Add(TextStream());
    const Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kDefault, file), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStreamTime(1, 0, 192000), 4000u); // four times too large
    EXPECT_EQ(lxAviReadCore_GetStreamTime(2, 0, 25600), 0u);
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStreamTime(1, 0, 192000), 1000u);
    EXPECT_EQ(lxAviReadCore_GetStreamTime(1, 7, 6ull << 30), 33554432u); // beyond 4 GiB
    EXPECT_EQ(lxAviReadCore_GetStreamTime(2, 0, 25600), 6312u);          // 100 x 505 / 8000
    EXPECT_EQ(lxAviReadCore_GetStreamTime(3, 10, 99999), 339u);          // 13 x 1152 / 44100
    EXPECT_EQ(lxAviReadCore_GetStreamTime(4, 0, 48000), 2000u);
    EXPECT_EQ(lxAviReadCore_GetStreamTime(5, 10, 48000), 0u); // not an audio stream
    EXPECT_EQ(lxAviReadCore_GetStreamTime(0, 10, 0), 400u);
}

TEST_F(FormatMode, AudioWithoutATimeByDefaultIsPlacedByItsHeader)
{
    builder.streams[1].format[0] = 2; // a codec without a time in default mode
    AddMedia(12, 4);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    EXPECT_EQ(Entry(0, 1).audioFrameNumber[0], 11u); // default mode: the last chunk, for every key frame
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(Entry(0, 0).audioFrameNumber[0], 0u);
    EXPECT_EQ(Entry(0, 1).audioFrameNumber[0], 4u);
    EXPECT_EQ(Entry(0, 2).audioFrameNumber[0], 8u);
}

TEST_F(FormatMode, AudioIsPlacedByTheStartOfEachChunk)
{
    // The chunks last 40, 40, 5, 40 and 5 ms. The third chunk begins at 80 ms, the time of the key frame; the fourth
    // begins later.
    builder.Audio(1, Fill(640)).Audio(1, Fill(640)).Audio(1, Fill(80)).Audio(1, Fill(640)).Audio(1, Fill(80));
    builder.Frame(0, Fill(8), true).Frame(0, Fill(8), false).Frame(0, Fill(8), true);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    EXPECT_EQ(Entry(0, 1).audioFrameNumber[0], 2u); // the computed times are 40 + 5 ms, then 80 + 40 ms
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(Entry(0, 1).audioFrameNumber[0], 2u);

    // The chunks last 80, 5 and 5 ms. The second chunk begins at 80 ms; default mode computes 5 ms.
    builder = AviBuilder();
    builder.Add(VideoStream()).Add(PcmStream());
    builder.Audio(1, Fill(1280)).Audio(1, Fill(80)).Audio(1, Fill(80));
    builder.Frame(0, Fill(8), true).Frame(0, Fill(8), true);
    const Bytes early = builder.Build();
    ASSERT_EQ(ParseAs(kDefault, early), LX_OK);
    EXPECT_EQ(Entry(0, 1).audioFrameNumber[0], 1u); // this chunk begins 40 ms after the key frame
    ASSERT_EQ(ParseAs(kFormat, early), LX_OK);
    EXPECT_EQ(Entry(0, 1).audioFrameNumber[0], 0u);
}

TEST_F(FormatMode, LeadingAudioIsDroppedInWholeSamples)
{
    builder = AviBuilder();
    Stream pcm = PcmStream(8000, 2, 16); // samples of 4 bytes, 32000 bytes a second
    pcm.header.dwScale = 1;
    pcm.header.dwRate = 8000;
    builder.Add(VideoStream()).Add(pcm);
    builder.Audio(1, Fill(16000)).Frame(0, Fill(8), true).Frame(0, Fill(8), false).Frame(0, Fill(8), true);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    static_cast<void>(lxAviReadCore_SeekToTime(80, 0, lxAviRead_SetPosRoundDown));
    const Delivered audio = NextValid();
    EXPECT_EQ(audio.chunk.uiBytePosition, 2556u); // 80 ms are 640 samples; one sample stays before the key frame
    EXPECT_EQ(audio.payload.size(), 16000u - 2556);

    // A wrong byte rate in the format does not matter: format mode uses the stream header.
    builder.streams[1].format = AudioFormat(LX_AVIREAD_FORMAT_PCM, 2, 8000, 40000, 4, 16);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    static_cast<void>(lxAviReadCore_SeekToTime(80, 0, lxAviRead_SetPosRoundDown));
    EXPECT_EQ(NextValid().chunk.uiBytePosition, 2556u);
}

} // namespace
} // namespace avitest
