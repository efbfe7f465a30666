// Tests the decision about a chunk: tracks, counters, key frames, the sync rules after a jump, the trim.

#include "ReaderTest.hpp"

namespace avitest {
namespace {

class StreamChunks : public ReaderTest {
protected:
    AviBuilder builder;

    void OpenToPlay()
    {
        ASSERT_EQ(Open(builder), LX_OK);
        Position();
        log.Clear();
    }

    UInt64 Relative(size_t item) { return builder.MediaItems()[item].uiOffset - builder.MoviOffset() + 4; }
};

// ---- Without a table ----

TEST_F(StreamChunks, WithoutAnIndexFramesAreNumberedFromOne)
{
    builder.eIndex = IndexKind::None;
    builder.Add(VideoStream()).Frame(0, Fill(4), true).Frame(0, Fill(6), false).Frame(0, Fill(8), true);
    OpenToPlay();
    for (UInt32 n = 1; n <= 3; ++n) {
        const Delivered chunk = Next();
        EXPECT_EQ(chunk.uiResult, LX_OK);
        EXPECT_EQ(chunk.chunk.uiFrameNumber, n);
        EXPECT_EQ(chunk.chunk.bKeyFrame, 0);
        EXPECT_EQ(lxalAviRead_VideoFrame, n);
    }
    EXPECT_EQ(log.Count("MetaData not avalaible for validity "), 3u);
}

TEST_F(StreamChunks, TheOtherTrackIsRejectedAndCounted)
{
    builder.eIndex = IndexKind::None;
    builder.Add(VideoStream()).Add(PcmStream()).Add(PcmStream());
    builder.Audio(1, Fill(10)).Audio(2, Fill(20)).Audio(1, Fill(12)).Audio(2, Fill(22));
    OpenToPlay();
    const auto all = All();
    ASSERT_EQ(all.size(), 5u);
    EXPECT_EQ(all[0].uiResult, LX_OK);
    EXPECT_EQ(all[0].chunk.uiFrameNumber, 0u);
    EXPECT_EQ(all[0].chunk.uiBytePosition, 0u);
    EXPECT_EQ(all[1].uiResult, LX_ERR_AVIREAD_AUDIO_SKIPPED);
    EXPECT_EQ(all[2].chunk.uiFrameNumber, 1u);
    EXPECT_EQ(all[2].chunk.uiBytePosition, 10u);
    EXPECT_EQ(lxalAviRead_AudioFrame[0], 2u);
    EXPECT_EQ(lxalAviRead_AudioFrame[1], 2u);
    EXPECT_TRUE(log.Has("Selected AudioTrk Num(0) and this chunk's stream No=2 don't match"));
    EXPECT_TRUE(log.Has("Chunk StreamNo:=2,track=1,size=20, Current track:=0"));
    EXPECT_TRUE(log.Has("AudioChunk 1 (audioSync not set)"));
}

TEST_F(StreamChunks, ATrackSwitchFindsItsCountersRight)
{
    builder.eIndex = IndexKind::None;
    builder.Add(VideoStream()).Add(PcmStream()).Add(PcmStream());
    builder.Audio(1, Fill(10)).Audio(2, Fill(20)).Audio(1, Fill(12)).Audio(2, Fill(22));
    OpenToPlay();
    NextValid(0);
    NextValid(0);
    EXPECT_EQ(lxAviReadCore_SwitchAudioTrack(), LX_OK);
    const Delivered chunk = NextValid(1);
    EXPECT_EQ(chunk.chunk.uiFrameNumber, 1u);
    EXPECT_EQ(chunk.chunk.uiBytePosition, 20u);
    EXPECT_EQ(chunk.payload, Fill(22));
}

TEST_F(StreamChunks, SubtitlesAreSelectedByTrack)
{
    builder.eIndex = IndexKind::None;
    builder.Add(VideoStream()).Add(TextStream()).Add(VideoStream());
    builder.Media("01st", Fill(6)).Media("02sb", Fill(8)).Media("02dc", Fill(10));
    OpenToPlay();
    auto all = All(0, 0);
    EXPECT_EQ(all[0].uiResult, LX_OK);
    EXPECT_EQ(all[0].chunk.eStreamType, 3u);
    EXPECT_EQ(all[1].uiResult, LX_ERR_AVIREAD_SUBTITLE_SKIPPED);
    EXPECT_EQ(all[2].uiResult, LX_ERR_AVIREAD_SUBTITLE_SKIPPED);
    OpenToPlay();
    all = All(0, 1);
    EXPECT_EQ(all[0].uiResult, LX_ERR_AVIREAD_SUBTITLE_SKIPPED);
    EXPECT_EQ(all[1].payload, Fill(8));
    EXPECT_EQ(all[2].payload, Fill(10));
}

TEST_F(StreamChunks, TheProcessorsRejectWhatBelongsElsewhere)
{
    builder.eIndex = IndexKind::None;
    builder.Add(VideoStream()).Add(PcmStream());
    OpenToPlay();
    lxAviRead_ChunkData_t chunk = {};
    chunk.uiStreamNr = 3;
    chunk.uiSize = 5;
    EXPECT_EQ(lxAviReadCore_ProcessNextVideoChunk(&Info(), &chunk, 0), LX_ERR_AVIREAD_VIDEO_SKIPPED);
    EXPECT_EQ(chunk.eStreamType, 2u);
    EXPECT_TRUE(log.Has("Video chunk with invalid stream number and size=5"));
    chunk.uiStreamNr = LX_AVIREAD_STREAMS; // no such stream
    EXPECT_EQ(lxAviReadCore_ProcessNextAudioChunk(&Info(), &chunk, 0), LX_ERR_AVIREAD_AUDIO_SKIPPED);
    EXPECT_EQ(lxAviReadCore_ProcessNextSubtitleChunk(&Info(), &chunk, 0), LX_ERR_AVIREAD_SUBTITLE_SKIPPED);
    EXPECT_EQ(lxalAviRead_AudioFrame[0], 0u);
    EXPECT_EQ(chunk.bValid, 0);
}

TEST_F(StreamChunks, TheProcessorsSayWhatTheChunkIsAndWhetherItCounts)
{
    builder.eIndex = IndexKind::None;
    builder.Add(VideoStream()).Add(PcmStream()).Add(TextStream());
    OpenToPlay();
    lxAviRead_ChunkData_t chunk;
    const auto soil = [&chunk](UInt32 streamNr) {
        std::memset(&chunk, 0x7B, sizeof chunk);
        chunk.uiStreamNr = streamNr;
        chunk.uiSize = 4;
    };
    soil(0);
    EXPECT_EQ(lxAviReadCore_ProcessNextVideoChunk(&Info(), &chunk, 0), LX_OK);
    EXPECT_EQ(chunk.eStreamType, LX_AVIREAD_STREAM_VIDEO);
    EXPECT_EQ(chunk.bKeyFrame, 0);
    EXPECT_EQ(chunk.bValid, 1);
    soil(1);
    EXPECT_EQ(lxAviReadCore_ProcessNextAudioChunk(&Info(), &chunk, 0), LX_OK);
    EXPECT_EQ(chunk.eStreamType, LX_AVIREAD_STREAM_AUDIO);
    EXPECT_EQ(chunk.bValid, 1);
    EXPECT_EQ(lxAviReadCore_ProcessNextAudioChunk(&Info(), &chunk, 1), LX_ERR_AVIREAD_AUDIO_SKIPPED);
    EXPECT_EQ(chunk.bValid, 0);
    soil(2);
    EXPECT_EQ(lxAviReadCore_ProcessNextSubtitleChunk(&Info(), &chunk, 0), LX_OK);
    EXPECT_EQ(chunk.eStreamType, LX_AVIREAD_STREAM_SUBTITLE);
    EXPECT_EQ(chunk.bValid, 1);
}

TEST_F(StreamChunks, ATrackBeyondTheLastIsNeitherPlayedNorCounted)
{
    builder.eIndex = IndexKind::None;
    builder.Add(VideoStream()).Add(PcmStream()).Audio(1, Fill(10)).Audio(1, Fill(10)).Frame(0, Fill(4), true);
    OpenToPlay();
    Info().TrackNumber[1] = LX_AVIREAD_AUDIO_TRACKS; // no file leads to this value
    for (const UInt32 selected : {0u, UInt32{LX_AVIREAD_AUDIO_TRACKS}}) {
        const Delivered chunk = Next(selected);
        EXPECT_EQ(chunk.uiResult, LX_ERR_AVIREAD_AUDIO_SKIPPED);
        SkipRejected(chunk);
    }
    EXPECT_EQ(lxalAviRead_AudioFrame[0], 0u);
}

// ---- With a table ----

TEST_F(StreamChunks, AJumpToVideoThatIsStillToBeMadeIsNotAtItsEnd)
{
    builder.Add(VideoStream()).Frame(0, Fill(4), true).Frame(0, Fill(6), true);
    OpenIndexed(builder);
    Info().bJumpToVideo = 1;
    EXPECT_EQ(Next().chunk.bKeyFrame, 1);
    EXPECT_EQ(Info().bJumpToVideo, 1);
}

TEST_F(StreamChunks, KeyFramesOfTheTableAreMarkedAndNumbered)
{
    builder.Add(VideoStream());
    for (int i = 0; i < 7; ++i) {
        builder.Frame(0, Fill(10), i % 3 == 0);
    }
    OpenIndexed(builder);
    for (UInt32 i = 0; i < 7; ++i) {
        const Delivered chunk = Next();
        EXPECT_EQ(chunk.uiResult, LX_OK);
        EXPECT_EQ(chunk.chunk.uiFrameNumber, i);
        EXPECT_EQ(chunk.chunk.bKeyFrame, i % 3 == 0 ? 1 : 0);
    }
    EXPECT_TRUE(log.Has("Not drm-ed Chunk with offset=0.4 is a video K F"));
    EXPECT_TRUE(log.Has("Not drm-ed Chunk with offset=0.22 is not K F"));
    EXPECT_TRUE(log.Has(" video is not a KF,lxalAviRead_VideoFrame=0 offset=0.30"));
    EXPECT_TRUE(log.Has("Key Fr: frame 3,videoChunkOffset 0.58, lxalAviRead_VideoFrame=2"));
}

TEST_F(StreamChunks, AProtectedKeyFrameIsRecognisedByItsDrmChunk)
{
    builder.Add(VideoStream());
    builder.Frame(0, Fill(10), true)
        .Drm(0, Fill(10))
        .Frame(0, Fill(12), true)
        .Drm(0, Fill(10))
        .Frame(0, Fill(14), false);
    OpenIndexed(builder);
    EXPECT_EQ(Entry(0, 1).videoChunkOffset, Relative(1));
    EXPECT_EQ(Next().chunk.bKeyFrame, 1);
    const Delivered second = Next();
    EXPECT_EQ(second.chunk.bKeyFrame, 1);
    EXPECT_EQ(second.chunk.bDrm, 1);
    EXPECT_EQ(Next().chunk.bKeyFrame, 0);
    EXPECT_TRUE(log.Has("lxAviReadCore_NextChunk : Drm-ed chunk with offset=0.22 Is a key frame"));
    EXPECT_TRUE(log.HasPrefix("lxAviReadCore_NextChunk : Drm-ed chunk with offset=0.60 Is not a key frame"));
}

TEST_F(StreamChunks, FramesBeforeTheFirstStoredKeyFrameAreRejected)
{
    builder.Add(VideoStream());
    builder.Frame(0, Fill(10), false).Frame(0, Fill(12), false).Frame(0, Fill(14), true).Frame(0, Fill(16), false);
    OpenIndexed(builder);
    const auto all = All();
    EXPECT_EQ(all[0].uiResult, LX_ERR_AVIREAD_VIDEO_SKIPPED);
    EXPECT_EQ(all[1].uiResult, LX_ERR_AVIREAD_VIDEO_SKIPPED);
    EXPECT_EQ(all[2].uiResult, LX_OK);
    EXPECT_EQ(all[2].chunk.uiFrameNumber, 2u);
    EXPECT_EQ(all[3].chunk.uiFrameNumber, 3u);
    EXPECT_TRUE(log.Has("Jumped Positn is < than the sync positn, reject the jmp"));
}

TEST_F(StreamChunks, ARejectedJumpToVideoClearsBothFlags)
{
    builder.Add(VideoStream());
    builder.Frame(0, Fill(10), true).Frame(0, Fill(12), false).Frame(0, Fill(14), true);
    OpenIndexed(builder);
    Info().JumpOffset = Relative(1);
    Info().bJumpToVideo = 1;
    Info().bAudioSync = 1;
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_NO_KEY_FRAME);
    EXPECT_EQ(Info().bJumpToVideo, 0);
    EXPECT_EQ(Info().bAudioSync, 0);
    EXPECT_TRUE(log.Has("jmp to video chunk didnt find KF,reject the jmp"));
}

// Frames of 40 ms; every fourth frame is a key frame. Before each frame stand two audio chunks of 320 bytes (20 ms at
// 16000 bytes/s).
class SyncRules : public StreamChunks {
protected:
    SyncRules()
    {
        builder.Add(VideoStream()).Add(PcmStream());
        for (UInt32 i = 0; i < 40; ++i) {
            builder.Audio(1, Fill(320, static_cast<UInt8>(2 * i))).Audio(1, Fill(320, static_cast<UInt8>(2 * i + 1)));
            builder.Frame(0, Fill(50, static_cast<UInt8>(i)), i % 4 == 0);
        }
    }
};

TEST_F(SyncRules, ASeekResumesAudioAndVideoTogether)
{
    OpenIndexed(builder);
    EXPECT_EQ(lxAviReadCore_SeekToTime(800, 0, lxAviRead_SetPosRoundDown), 800u); // frame 20
    // The key frame gets the audio chunk before the first chunk whose computed time is later than 800 ms.
    const Delivered first = NextValid();
    EXPECT_TRUE(first.bJumped);
    EXPECT_EQ(first.chunk.eStreamType, 1u);
    EXPECT_EQ(first.chunk.uiFrameNumber, Entry(0, 5).audioFrameNumber[0]);
    bool sawKey = false;
    for (int i = 0; i < 6 && !sawKey; ++i) {
        const Delivered next = NextValid();
        if (next.chunk.eStreamType == 2) {
            EXPECT_EQ(next.chunk.uiFrameNumber, 20u);
            EXPECT_EQ(next.chunk.bKeyFrame, 1);
            EXPECT_EQ(next.payload, Fill(50, 20));
            sawKey = true;
        }
    }
    EXPECT_TRUE(sawKey);
}

TEST_F(SyncRules, AnEarlierKeyFrameIsRejectedByItsTime)
{
    OpenIndexed(builder);
    static_cast<void>(lxAviReadCore_SeekToTime(800, -1, lxAviRead_SetPosRoundDown));
    Info().JumpOffset = Relative(12 * 3 + 2); // frame 12, a key frame before the sync entry
    const Delivered early = Next();
    EXPECT_EQ(early.uiResult, LX_ERR_AVIREAD_VIDEO_SKIPPED);
    EXPECT_EQ(lxalAviRead_VideoFrame, 12u); // the reader has still set the counter
}

TEST_F(SyncRules, OtherFramesAreDeliveredOnceTheFrameCounterHasReachedTheSyncEntry)
{
    OpenIndexed(builder);
    static_cast<void>(lxAviReadCore_SeekToTime(800, -1, lxAviRead_SetPosRoundDown));
    Info().JumpOffset = 0;
    Info().bJumpToVideo = 0;
    Info().CurrentOffset = Relative(21 * 3 + 2);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), builder.MediaItems()[21 * 3 + 2].uiOffset, 0), 1);
    lxalAviRead_VideoFrame = 19;
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_VIDEO_SKIPPED);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), builder.MediaItems()[21 * 3 + 2].uiOffset, 0), 1);
    Info().CurrentOffset = Relative(21 * 3 + 2);
    lxalAviRead_VideoFrame = 20;
    const Delivered next = Next();
    EXPECT_EQ(next.uiResult, LX_OK);
    EXPECT_EQ(next.chunk.uiFrameNumber, 21u);
}

TEST_F(SyncRules, TheFirstAudioChunkIsComparedWithTheSyncChunk)
{
    OpenIndexed(builder);
    const UInt64 syncOffset = Entry(0, 5).audioChunkOffset[0];
    // the jump goes one audio chunk before the sync chunk
    Info().bAudioSync = 1;
    Info().audioSyncItemNr = 5;
    Info().JumpOffset = syncOffset - 328;
    Delivered chunk = Next();
    if (chunk.chunk.eStreamType == 2) { // a frame can stand between
        SkipRejected(chunk);
        chunk = Next();
    }
    // the reader delivers a chunk at the sync chunk's position
    Info().bAudioSync = 1;
    Info().JumpOffset = syncOffset;
    chunk = Next();
    EXPECT_EQ(chunk.uiResult, LX_OK);
    EXPECT_EQ(chunk.chunk.eStreamType, 1u);
    EXPECT_EQ(Info().bAudioSync, 0);
    EXPECT_TRUE(log.HasPrefix("1st audio chunk After Jump(fr#="));
    // the reader drops a chunk before the sync chunk's position
    log.Clear();
    Info().bAudioSync = 1;
    Info().JumpOffset = 4;
    chunk = Next();
    EXPECT_EQ(chunk.uiResult, LX_ERR_AVIREAD_AUDIO_SKIPPED);
    EXPECT_TRUE(log.Has("1st Audio Chk after jmp,skip it as the Chk offset < the actual offset "));
    EXPECT_EQ(Info().bAudioSync, 0);
    SkipRejected(chunk);
    EXPECT_EQ(Next().uiResult, LX_OK); // also before the sync chunk, but delivered
}

// One audio chunk of 8000 bytes (500 ms at 16000 bytes/s) per half second. Key frames at 0, 1000, 2000 ms, …
class Trim : public StreamChunks {
protected:
    Stream audio = PcmStream(); // 16-bit mono: blocks of 2 bytes, 0.125 ms

    void Build(UInt32 chunkBytes = 8000)
    {
        builder.Add(VideoStream()).Add(audio);
        for (UInt32 i = 0; i < 100; ++i) {
            if (i * 40 % 500 == 0) {
                builder.Audio(1, Fill(chunkBytes));
            }
            builder.Frame(0, Fill(20), i % 25 == 0);
        }
        OpenIndexed(builder);
    }

    // Jumps to the key frame at 1000 ms, and returns the first audio chunk. `item`, `frame` and `bytePosition` are the
    // values of this chunk in the table.
    Delivered FirstAudioAfterJump(size_t item, UInt32 frame, UInt64 bytePosition)
    {
        static_cast<void>(lxAviReadCore_SeekToTime(1000, 0, lxAviRead_SetPosRoundDown));
        Info().JumpOffset = Relative(item);
        Info().bJumpToVideo = 0;
        Entry(0, 1).audioChunkOffset[0] = Relative(item);
        Entry(0, 1).audioFrameNumber[0] = frame;
        Entry(0, 1).audioBytePosition[0] = bytePosition;
        const lxAviReadCore_KeyFramePosition_t position = {0, 1, 0, 1};
        lxAviReadCore_SetPointerOnKF(&position, 0);
        Info().JumpOffset = Relative(item);
        return Next();
    }
};

TEST_F(Trim, ThreeBlocksEarlyLosesTwo)
{
    audio.header.dwScale = 800; // blocks of 50 ms at 16000 bytes/s
    audio.header.dwSampleSize = 2;
    Build();
    // the chunk starts 150 ms before the key frame at 1000 ms: byte position 13600
    const Delivered chunk = FirstAudioAfterJump(0, 1, 13600);
    ASSERT_EQ(chunk.uiResult, LX_OK);
    EXPECT_EQ(chunk.chunk.uiSize, 8000u - 2 * 800u);
    EXPECT_EQ(chunk.chunk.uiBytePosition, 13600u + 1600u);
    EXPECT_EQ(chunk.payload.size(), 6400u);
    EXPECT_EQ(Info().CurrentOffset, 4u + 8u + 8000u);
    // the reader counts the whole chunk
    EXPECT_EQ(lxalAviRead_AudioFrame[0], 2u);
    EXPECT_EQ(NextValid().chunk.uiBytePosition, 13600u + 8000u);
}

TEST_F(Trim, OneBlockEarlyLosesNothing)
{
    audio.header.dwScale = 800;
    Build();
    EXPECT_EQ(FirstAudioAfterJump(0, 1, 15200).chunk.uiSize, 8000u);
    EXPECT_EQ(FirstAudioAfterJump(0, 1, 16000).chunk.uiSize, 8000u); // begins at the key frame's time
    EXPECT_EQ(FirstAudioAfterJump(0, 1, 20000).chunk.uiSize, 8000u); // begins later than the key frame
}

TEST_F(Trim, ATrimThatWouldTakeTheWholeChunkIsNotMade)
{
    audio.header.dwScale = 800;
    Build();
    // The chunk has 10 blocks of 800 bytes. When it begins 11 blocks early, the trim would drop all 10.
    EXPECT_EQ(FirstAudioAfterJump(0, 1, 16000 - 11 * 800).chunk.uiSize, 8000u);
    EXPECT_EQ(FirstAudioAfterJump(0, 1, 16000 - 10 * 800).chunk.uiSize, 800u);
}

TEST_F(Trim, Ac3IsNeverTrimmed)
{
    audio = Ac3Stream(16000);
    audio.header.dwScale = 800;
    Build();
    EXPECT_EQ(FirstAudioAfterJump(0, 1, 8800).chunk.uiSize, 8000u);
}

TEST_F(Trim, VariableBitRateIsNotTrimmed)
{
    audio = Mp3VbrStream();
    Build();
    EXPECT_EQ(FirstAudioAfterJump(0, 1, 0).chunk.uiSize, 8000u);
}

TEST_F(Trim, ASampleRateOfAThousandQualifies)
{
    audio = Mp3CbrStream(16000);
    audio.header.dwSampleSize = 0; // differs from the block size 1; 16000 / 1 is not below 1000
    Build();
    // blocks of one byte: 1000 / 16000 ms
    const Delivered chunk = FirstAudioAfterJump(0, 1, 15200);
    EXPECT_EQ(chunk.chunk.uiSize, 8000u - 799u);
}

TEST_F(Trim, ASkipThatFailsShowsInThePayload)
{
    audio.header.dwScale = 800;
    Build();
    const UInt64 readsToPayload = 2 * kCallsOfAWord; // code and size
    static_cast<void>(lxAviReadCore_SeekToTime(1000, 0, lxAviRead_SetPosRoundDown));
    Entry(0, 1).audioChunkOffset[0] = Relative(0);
    Entry(0, 1).audioBytePosition[0] = 13600;
    const lxAviReadCore_KeyFramePosition_t position = {0, 1, 0, 1};
    lxAviReadCore_SetPointerOnKF(&position, 0);
    lxAviRead_ChunkData_t chunk = {};
    Bool jumped = 0;
    Faults().FaultRead(readsToPayload + 1, {ReadFault::Kind::ShortThenError, 0});
    EXPECT_EQ(lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped), LX_OK);
    EXPECT_TRUE(Faults().Met());
    EXPECT_EQ(chunk.uiSize, 6400u);
}

TEST_F(Trim, NoBytesPerSecondOrNoScaleTrimNothing)
{
    audio.header.dwScale = 0;
    Build();
    EXPECT_EQ(FirstAudioAfterJump(0, 1, 0).chunk.uiSize, 8000u);
    static_cast<UInt8*>(Info().StreamInfo[1]->Format)[8] = 0;
    static_cast<UInt8*>(Info().StreamInfo[1]->Format)[9] = 0;
    EXPECT_EQ(FirstAudioAfterJump(0, 1, 0).chunk.uiSize, 8000u);
}

} // namespace
} // namespace avitest
