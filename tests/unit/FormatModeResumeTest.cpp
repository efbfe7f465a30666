// Format mode: where audio resumes after a jump, and what its chunks count from there.

#include "FormatModeTest.hpp"

namespace avitest {
namespace {

constexpr UInt32 kFrames = 40; // of 40 ms; every tenth is a key frame
constexpr UInt32 kChunk = 320; // bytes of an audio chunk of 20 ms

class Resume : public FormatMode {
protected:
    // Two audio chunks for each frame. Audio stands `late` frames behind the picture in the file, or before it.
    void AddAudio(UInt32 stream, UInt32 frame, int late)
    {
        const int shifted = static_cast<int>(frame) - late;
        if (frame == 0 && late < 0) {
            AddPairs(stream, static_cast<UInt32>(-late) + 1);
        } else if (shifted >= 0) {
            AddPairs(stream, 1);
        }
    }

    void AddPairs(UInt32 stream, UInt32 pairs)
    {
        for (; pairs > 0; --pairs) {
            builder.Audio(stream, Fill(kChunk)).Audio(stream, Fill(kChunk));
        }
    }

    void AddFilm(int late, int lateOfSecond = 0)
    {
        for (UInt32 i = 0; i < kFrames; ++i) {
            AddAudio(1, i, late);
            if (builder.streams.size() > 2) {
                AddAudio(2, i, lateOfSecond);
            }
            builder.Frame(0, Fill(10, static_cast<UInt8>(i)), i % 10 == 0);
        }
    }

    // The next delivered audio chunk; counts the rejected ones before it.
    Delivered NextAudio(UInt32 track = 0)
    {
        rejected = 0;
        for (;;) {
            const Delivered got = Next(track);
            if (got.uiResult == LX_OK && got.chunk.eStreamType == LX_AVIREAD_STREAM_AUDIO) {
                return got;
            }
            if (got.uiResult == LX_AVIREAD_END_OF_MEDIA) {
                ADD_FAILURE() << "no audio";
                return got;
            }
            rejected += got.uiResult == LX_ERR_AVIREAD_AUDIO_SKIPPED ? 1 : 0;
            SkipRejected(got);
        }
    }

    void ExpectChunk(const Delivered& got, UInt32 number)
    {
        EXPECT_EQ(got.chunk.uiFrameNumber, number);
        EXPECT_EQ(got.chunk.uiBytePosition, UInt64{number} * kChunk);
        EXPECT_EQ(lxAviReadCore_GetStreamTime(got.chunk.uiStreamNr, got.chunk.uiFrameNumber, got.chunk.uiBytePosition),
                  number * 20);
    }

    void StepTo(UInt32 keyFrame)
    {
        Bool found = 0;
        for (; keyFrame > 0; --keyFrame) {
            ASSERT_EQ(lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(&found, 0), LX_OK);
        }
    }

    UInt32 rejected = 0;
};

// Audio is ten frames late: the chunks 0 and 1 stand before the picture of 400 ms, its own chunk 20 far behind it.
TEST_F(Resume, EveryAudioChunkBeforeTheSyncChunkIsRejected)
{
    AddFilm(10);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(lxAviReadCore_SeekToTime(400, 0, lxAviRead_SetPosRoundDown), 400u);
    ExpectChunk(NextAudio(), 20);
    EXPECT_EQ(rejected, 18u);
    ExpectChunk(NextAudio(), 21);

    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    EXPECT_EQ(lxAviReadCore_SeekToTime(400, 0, lxAviRead_SetPosRoundDown), 400u);
    const Delivered second = NextAudio();
    EXPECT_EQ(rejected, 1u); // only the first is checked
    EXPECT_EQ(second.chunk.uiFrameNumber, Entry(0, 1).audioFrameNumber[0]);
}

// The audio stands ten frames before its picture. A step leads to the picture of 800 ms, where chunk 62 stands; the
// sync chunk 40 is passed over.
TEST_F(Resume, ChunksThatAStepPassesOverAreCounted)
{
    AddFilm(-10);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    StepTo(2);
    const Delivered key = Next();
    EXPECT_EQ(key.chunk.uiFrameNumber, 20u);
    EXPECT_EQ(key.chunk.bKeyFrame, 1);
    EXPECT_EQ(Entry(0, 2).audioFrameNumber[0], 40u);
    ExpectChunk(NextAudio(), 62); // behind frame 20: 2 x 11 chunks before frame 0, then 2 before each frame
    ExpectChunk(NextAudio(), 63);
    EXPECT_EQ(rejected, 0u);
}

TEST_F(Resume, EveryWayToAStepLoadsTheCounters)
{
    AddFilm(0);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    Bool found = 0;
    ASSERT_EQ(lxAviReadCore_JumpInKeyFrames(2, 0), LX_OK); // nothing was played: to the first key frame
    ExpectChunk(NextAudio(), 0);
    ASSERT_EQ(lxAviReadCore_SetJumpToNextKeyFrame(&found, 0), LX_OK);
    ExpectChunk(NextAudio(), 20);
    while (NextValid().chunk.uiFrameNumber != 20) { // a frame, because audio has passed number 20
    }
    ASSERT_EQ(lxAviReadCore_SetJumpToPrevKeyFrame(&found, 0), LX_OK);
    EXPECT_EQ(Info().bJumpToVideo, 1);
    ExpectChunk(NextAudio(), 22); // behind the picture of 400 ms, which stands behind chunk 21
    ASSERT_EQ(lxAviReadCore_SetOnKeyFrame_AudioAndVideo(-1), LX_OK);
    EXPECT_EQ(Info().bJumpToVideo, 1);
    ExpectChunk(NextAudio(), 22);
}

// A seek for the first track leads behind the sync chunk of the second, which stands ten frames before its picture.
TEST_F(Resume, AnotherTrackCountsFromItsOwnChunk)
{
    builder.Add(PcmStream());
    AddFilm(0, -10);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    lxAviReadCore_SeekToTime(800, 0, lxAviRead_SetPosRoundDown);
    ExpectChunk(NextAudio(0), 40);
    ExpectChunk(NextAudio(0), 41);
    ExpectChunk(NextAudio(1), 60); // these stand behind chunk 41 of the first track
    ExpectChunk(NextAudio(1), 61);
    ExpectChunk(NextAudio(0), 42);
    ExpectChunk(NextAudio(1), 62);
}

// The second track is late: its chunks before the sync chunk are rejected, also after a switch.
TEST_F(Resume, AnotherTrackIsRejectedUpToItsOwnChunk)
{
    builder.Add(PcmStream());
    AddFilm(0, 5);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    lxAviReadCore_SeekToTime(800, 0, lxAviRead_SetPosRoundDown);
    ExpectChunk(NextAudio(0), 40);
    ExpectChunk(NextAudio(1), 40); // not 30, which stands there
}

// An index that does not list the track: its chunks count from the start of the file.
TEST_F(Resume, ATrackWithoutAnyRecordCountsFromTheStart)
{
    builder.Add(PcmStream());
    for (UInt32 i = 0; i < kFrames; ++i) {
        builder.Audio(1, Fill(kChunk)).Media("02wb", Fill(kChunk), true, false);
        builder.Frame(0, Fill(10), i % 10 == 0);
    }
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    lxAviReadCore_SeekToTime(800, 1, lxAviRead_SetPosRoundDown);
    const Delivered got = NextAudio(1);
    EXPECT_EQ(got.chunk.uiFrameNumber, 21u); // the chunk behind frame 20
    EXPECT_EQ(got.chunk.uiBytePosition, 21u * kChunk);
}

// The table names a position where no chunk begins: the first chunk behind it resumes, and counts as the entry says.
TEST_F(Resume, ASyncChunkThatNeverComesIsReplacedByTheNext)
{
    AddFilm(10);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    Entry(0, 1).audioChunkOffset[0] += 4;
    lxAviReadCore_SeekToTime(400, 0, lxAviRead_SetPosRoundDown);
    ExpectChunk(NextAudio(), 20); // the chunk that an exact table calls 21
    EXPECT_EQ(rejected, 19u);
    ExpectChunk(NextAudio(), 21);

    // On the way from the start nothing is wrong.
    lxAviReadCore_RewindToStart();
    for (UInt32 i = 0; i < 40; ++i) {
        ExpectChunk(NextAudio(), i);
    }
}

// The index names the chunk of an entry far behind its place. Playing does not go by it, and a later entry is right.
TEST_F(Resume, AWrongPositionDoesNotDisturbPlaying)
{
    AddFilm(0);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    for (const UInt64 wrong : {UInt64{3000}, UInt64{1} << 31}) {
        Entry(0, 1).audioChunkOffset[0] += wrong;
        lxAviReadCore_RewindToStart();
        for (UInt32 i = 0; i < 60; ++i) {
            ExpectChunk(NextAudio(), i);
        }
        lxAviReadCore_SeekToTime(800, 0, lxAviRead_SetPosRoundDown);
        ExpectChunk(NextAudio(), 40);
    }
}

// An index in which a chunk is missing: a chunk has the same number by playing and after a seek.
TEST_F(Resume, AnIndexThatLacksAChunkGivesItsNumbersOnEveryWay)
{
    for (UInt32 i = 0; i < kFrames; ++i) {
        builder.Media("01wb", Fill(640), true, i != 5).Frame(0, Fill(10), i % 10 == 0);
    }
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    std::vector<UInt32> played;
    for (UInt32 i = 0; i < kFrames; ++i) {
        played.push_back(NextAudio().chunk.uiFrameNumber);
    }
    EXPECT_EQ(played[10], 10u);
    EXPECT_EQ(played[11], 10u); // the chunk that the index calls 10, which the entry of 400 ms names
    lxAviReadCore_SeekToTime(400, 0, lxAviRead_SetPosRoundDown);
    EXPECT_EQ(NextAudio().chunk.uiFrameNumber, 10u);
    EXPECT_EQ(NextAudio().chunk.uiFrameNumber, 11u);
}

TEST_F(Resume, ATrimChangesSizeAndBytePositionAndNothingElse)
{
    for (UInt32 i = 0; i < 10; ++i) {
        builder.Audio(1, Fill(3 * 640)); // 120 ms
        builder.Frame(0, Fill(10), true).Frame(0, Fill(10), true).Frame(0, Fill(10), true);
    }
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    lxAviReadCore_SeekToTime(200, 0, lxAviRead_SetPosRoundDown);
    const Delivered got = NextAudio();
    EXPECT_EQ(got.chunk.uiFrameNumber, 1u);
    const UInt32 trimmed = 639 * 2; // 80 ms less one sample of 2 bytes
    EXPECT_EQ(got.chunk.uiSize, 3u * 640 - trimmed);
    EXPECT_EQ(got.chunk.uiBytePosition, 3u * 640 + trimmed);
    const Delivered next = NextAudio();
    EXPECT_EQ(next.chunk.uiFrameNumber, 2u);
    EXPECT_EQ(next.chunk.uiBytePosition, 2u * 3 * 640);
}

// ---- Counting what was passed over, and failures ----

class PassedOver : public Resume {
protected:
    PassedOver()
    {
        AddFilm(-10);
        EXPECT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
        StepTo(2);
        EXPECT_EQ(Next().chunk.uiFrameNumber, 20u);
    }

    void ExpectNothingLost(UInt32 failure)
    {
        const Delivered got = Next();
        EXPECT_EQ(got.uiResult, failure);
        EXPECT_EQ(got.chunk.uiSize, 0u);
        EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
        ExpectChunk(Next(), 62);
    }
};

TEST_F(PassedOver, ASeekThatFailsLosesNothing)
{
    Faults().FailSeek(1);
    ExpectNothingLost(LX_ERR_AVIREAD_SEEK);
}

TEST_F(PassedOver, TheWayBackThatFailsLosesNothing)
{
    Faults().FailSeek(2);
    ExpectNothingLost(LX_ERR_AVIREAD_SEEK);
}

TEST_F(PassedOver, AReadThatFailsLosesNothing)
{
    Faults().FaultRead(2 * kCallsOfAWord + 5, {ReadFault::Kind::ShortThenError, 0});
    ExpectNothingLost(LX_ERR_AVIREAD_READ);
}

TEST_F(PassedOver, AnAbortLosesNothing)
{
    Faults().onRead = [reads = 0](UInt64) mutable {
        if (++reads == 30) {
            EXPECT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
        }
    };
    ExpectNothingLost(LX_ERR_AVIREAD_ABORTED);
}

TEST_F(PassedOver, AnAnchorOutsideTheMediaDataIsOutOfReach)
{
    lxAviReadCore_RewindToStart();
    Entry(0, 2).audioChunkOffset[0] = 8; // in the headers
    Entry(0, 3).audioChunkOffset[0] = 8; // its chunk lies before the chunk, too
    StepTo(2);
    EXPECT_EQ(Next().chunk.uiFrameNumber, 20u);
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_SEEK);
}

// Damage on the way leads over the chunk: what could be counted is counted.
TEST_F(PassedOver, DamageEndsTheCount)
{
    Bytes file = builder.Build();
    UInt64 inBetween = 0; // chunk 61: the one behind the last anchor before the chunk, which is that of the next entry
    for (const MediaItem& item : builder.MediaItems()) {
        if (item.code == "01wb" && item.uiOffset > Entry(0, 3).audioChunkOffset[0] && inBetween == 0) {
            inBetween = item.uiOffset;
        }
    }
    for (const UInt32 size :
         {0xFFFFFF00u, static_cast<UInt32>(builder.MoviOffset() + builder.MoviSize() - inBetween - 8)}) {
        const Bytes bytes = U32(size);
        std::copy(bytes.begin(), bytes.end(), file.begin() + static_cast<std::ptrdiff_t>(inBetween) + 4);
        ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
        StepTo(2);
        EXPECT_EQ(Next().chunk.uiFrameNumber, 20u);
        const Delivered got = Next();
        EXPECT_EQ(got.uiResult, LX_OK);
        EXPECT_EQ(got.chunk.uiFrameNumber, 62u);
    }
}

// Chunks of a stream that nobody knows, and of other kinds, lie between the anchor and the chunk.
TEST_F(Resume, ForeignChunksOnTheWayAreNotCounted)
{
    AddPairs(1, 12);
    builder.Frame(0, Fill(10), true)
        .Raw(Chunk("05wb", Fill(10)))
        .Raw(Chunk("JUNK", Fill(20)))
        .Raw(Chunk("99wb", Fill(3)));
    builder.Drm(0, Fill(10));
    AddPairs(1, 10);
    builder.Frame(0, Fill(10), true);
    AddPairs(1, 1);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    StepTo(1);
    EXPECT_EQ(Next().chunk.uiFrameNumber, 1u);
    ExpectChunk(Next(), 44);
}

} // namespace
} // namespace avitest
