// Tests which audio chunk the reader assigns to a key frame. While messages are on, the reader computes the time of
// every chunk, because the messages print it. While they are off, it computes only the times that can matter. Both have
// to give the same table, also for files with senseless headers.

#include "ReaderTest.hpp"

#include <cstring>
#include <random>

namespace avitest {
namespace {

constexpr UInt32 kTimesAndIndex = 0x210;

class AudioPlacement : public ReaderTest {
protected:
    std::mt19937 random;

    UInt32 Below(UInt32 limit) { return static_cast<UInt32>(random() % limit); }

    UInt32 OneOf(std::initializer_list<UInt32> values)
    {
        return *(values.begin() + Below(static_cast<UInt32>(values.size())));
    }

    // An ordinary audio stream, or one with hostile values in its header.
    Stream AnyAudio()
    {
        Stream stream = PcmStream();
        if (Below(2) == 0) {
            return stream;
        }
        stream.header.dwRate = OneOf({0, 1, 25, 8000, 16000, 44100, 0xFFFFFFFF});
        stream.header.dwScale = OneOf({0, 1, 2, 1152, 44100, 0xFFFFFFFF});
        stream.header.dwStart = OneOf({0, 0, 0, 7, 1000, 0xFFFFFFF0});
        stream.header.dwSampleSize = OneOf({0, 1, 2, 4, 0xFFFFFFFF});
        stream.format =
            AudioFormat(static_cast<UInt16>(OneOf({LX_AVIREAD_FORMAT_PCM, LX_AVIREAD_FORMAT_AC3,
                                                   LX_AVIREAD_FORMAT_MPEG_LAYER3, LX_AVIREAD_FORMAT_AAC, 0x1234})),
                        2, 8000, OneOf({0, 1, 16000, 0xFFFFFFFF}), static_cast<UInt16>(OneOf({0, 1, 2, 4})), 16);
        return stream;
    }

    AviBuilder AnyFile(IndexKind eIndex)
    {
        AviBuilder builder;
        builder.eIndex = eIndex;
        builder.avih.dwMicroSecPerFrame = OneOf({0, 1000, 40000, 40000, 40000, 0x7FFFFFFF});
        Stream video = VideoStream();
        video.header.dwStart = OneOf({0, 0, 0, 5, 0xFFFFFFF0});
        builder.Add(video).Add(AnyAudio()).Add(AnyAudio()).Add(TextStream());
        const UInt32 distance = 1 + Below(20);
        for (UInt32 frame = 0; frame < 120; ++frame) {
            builder.Frame(0, Fill(2), frame % distance == 0);
            for (UInt32 chunks = Below(4); chunks > 0; --chunks) {
                builder.Audio(1 + Below(2), Fill(Below(700)));
            }
            if (Below(8) == 0) {
                builder.Media("03wb", Fill(Below(700))); // default mode counts this chunk for an audio track
            }
        }
        return builder;
    }

    std::vector<lxAviReadCore_KeyFrameEntry_t> TableOf(const Bytes& file, UInt8 option, UInt32 mask)
    {
        log.SetMask(mask);
        if (Open(file, true, 1, kPlenty, option) != LX_OK || lxAviReadCore_ParseIndex(0) != LX_OK) {
            return {};
        }
        std::vector<lxAviReadCore_KeyFrameEntry_t> table; // without the checks of Table(), which odd files can break
        for (UInt32 i = 0; i < Info().KeyFramesListAsArrayLength; ++i) {
            const auto& leaf = *Info().KeyFramesListAsArray[i];
            table.insert(table.end(), leaf.array, leaf.array + leaf.arrayLength);
        }
        return table;
    }

    // Opens a file, builds its table, and seeks to the payload of the first frame. The test reads this payload as an
    // index record of a chunk of 0 bytes.
    void StandAtARecord(AviBuilder& builder)
    {
        log.SetMask(0);
        OpenIndexed(builder);
        LendBuffer(batch);
        Info().uiMaxRecordsInBuffer = 1;
        ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), builder.MediaItems()[0].uiOffset + 8, SEEK_SET), 1);
    }

    Bytes batch = Bytes(18000);

    void CheckMany(IndexKind eIndex, UInt8 option)
    {
        UInt32 placed = 0;
        for (UInt32 seed = 0; seed < 150; ++seed) {
            random.seed(seed);
            AviBuilder builder = AnyFile(eIndex);
            builder.eLayout = (option & LX_AVIREAD_FOLLOW_FORMAT) != 0 ? IxLayout::At32 : IxLayout::At36;
            const Bytes file = builder.Build();
            const auto told = TableOf(file, option, kTimesAndIndex);
            const auto silent = TableOf(file, option, 0);
            ASSERT_EQ(told.size(), silent.size()) << seed;
            for (size_t i = 0; i < told.size(); ++i) {
                ASSERT_EQ(std::memcmp(&told[i], &silent[i], sizeof told[i]), 0) << "seed " << seed << " entry " << i;
                placed += i > 0 && told[i].audioChunkOffset[0] != told[0].audioChunkOffset[0] ? 1 : 0;
            }
        }
        EXPECT_GT(placed, 1000u);
    }
};

TEST_F(AudioPlacement, InSilenceIsThatWithMessages_Idx1) { CheckMany(IndexKind::Idx1Relative, 1); }
TEST_F(AudioPlacement, InSilenceIsThatWithMessages_Idx1AndFormat)
{
    CheckMany(IndexKind::Idx1Relative, 1 | LX_AVIREAD_FOLLOW_FORMAT);
}
TEST_F(AudioPlacement, InSilenceIsThatWithMessages_OpenDml) { CheckMany(IndexKind::SuperStandard, 1); }
TEST_F(AudioPlacement, InSilenceIsThatWithMessages_OpenDmlAndFormat)
{
    CheckMany(IndexKind::SuperStandard, 1 | LX_AVIREAD_FOLLOW_FORMAT);
}

// Two streams share a track. The limit up to which the reader computes no time for one stream must not hold for the
// other stream, whose time is already later.
TEST_F(AudioPlacement, LooksAheadInOneStreamOnly)
{
    AviBuilder builder; // a frame every 40 ms; 160 bytes of audio last 10 ms, in the third stream 160 seconds
    builder.Add(VideoStream()).Add(PcmStream(8000)).Add(VideoStream());
    builder.streams[2].format = builder.streams[1].format;
    builder.streams[2].header.dwRate = 1;
    builder.Frame(0, Fill(2), true).Audio(1, Fill(160)).Audio(1, Fill(160)).Audio(1, Fill(160));
    builder.Media("02wb", Fill(160)).Audio(1, Fill(160)).Frame(0, Fill(2), true);
    const Bytes file = builder.Build();
    for (const UInt32 mask : {kTimesAndIndex, 0u}) {
        const auto table = TableOf(file, 1, mask);
        ASSERT_EQ(table.size(), 2u);
        EXPECT_EQ(table[0].audioFrameNumber[0], 0u) << mask;
        EXPECT_EQ(table[1].audioFrameNumber[0], 2u) << mask;
    }
}

// In default mode a ninth audio stream stays on track 0, but has its own sampling rate.
TEST_F(AudioPlacement, NineStreamsShareEightTracks)
{
    AviBuilder builder;
    builder.Add(VideoStream(10));
    builder.avih.dwMicroSecPerFrame = 100000;
    for (UInt32 stream = 0; stream < 9; ++stream) {
        builder.Add(PcmStream(stream == 8 ? 2000 : 8000));
    }
    for (UInt32 frame = 0; frame < 100; ++frame) {
        builder.Frame(0, Fill(2), frame % 10 == 0).Audio(1, Fill(800));
        if (frame % 10 == 5) {
            builder.Audio(9, Fill(400));
        }
    }
    const Bytes file = builder.Build();
    const auto told = TableOf(file, 1, kTimesAndIndex);
    const auto silent = TableOf(file, 1, 0);
    ASSERT_EQ(told.size(), 10u);
    ASSERT_EQ(silent.size(), 10u);
    for (size_t i = 0; i < told.size(); ++i) {
        EXPECT_EQ(told[i].audioFrameNumber[0], silent[i].audioFrameNumber[0]) << i;
    }
}

// A caller may continue with a state that has a last chunk but a count of 0. The reader still assigns this chunk to the
// key frames before the next chunk.
TEST_F(AudioPlacement, GoesOnFromAStateWithoutACount)
{
    AviBuilder builder;
    builder.Add(VideoStream()).Add(Mp3VbrStream()).Frame(0, Fill(8, 0), true).Frame(0, Fill(2), true);
    builder.streams[1].header.dwStart = 1; // one chunk, so the audio begins later than the first key frame
    StandAtARecord(builder);
    lxAvi2ReadCore_AudioIndexState_t state = {};
    state.bHaveChunk = 1;
    state.lastChunkOffset = 777;
    lxAviReadCore_KeyFramePosition_t cursor = {0, 0, 0, 1};
    UInt32 cursorTime = 0;
    ASSERT_EQ(lxAvi2ReadCore_FillAudioInfoInKFTable(&Info(), 1, 0, Code("01wb"), 0, 0, &state, &cursor, &cursorTime),
              LX_OK);
    EXPECT_EQ(cursor.itemNr, 1u);
    EXPECT_EQ(Entry(0, 0).audioChunkOffset[0], 777u);
}

// The reader continues with the cursor and the cursor's time that the caller passes.
TEST_F(AudioPlacement, GoesOnFromTheCursorGiven)
{
    AviBuilder builder;
    builder.Add(VideoStream())
        .Add(Mp3VbrStream())
        .Frame(0, Fill(8, 0), true)
        .Frame(0, Fill(2), true)
        .Frame(0, Fill(2), true);
    builder.streams[1].header.dwStart = 1;
    StandAtARecord(builder);
    lxAvi2ReadCore_AudioIndexState_t state = {};
    state.bHaveChunk = 1;
    lxAviReadCore_KeyFramePosition_t cursor = {0, 1, 0, 1};
    UInt32 cursorTime = 1000000; // much later than the chunk, so the reader assigns nothing
    ASSERT_EQ(lxAvi2ReadCore_FillAudioInfoInKFTable(&Info(), 1, 0, Code("01wb"), 0, 0, &state, &cursor, &cursorTime),
              LX_OK);
    EXPECT_EQ(cursor.itemNr, 1u);
    EXPECT_EQ(cursorTime, 1000000u);
}

// When no record of the index has a key flag, the first frame is a key frame; for some codecs every frame is one. This
// has to work while messages are off, too.
TEST_F(AudioPlacement, KeyFramesWithoutFlagsAreFoundInSilence)
{
    AviBuilder builder;
    builder.Add(VideoStream());
    for (UInt32 frame = 0; frame < 5; ++frame) {
        builder.Frame(0, Fill(2), false);
    }
    EXPECT_EQ(TableOf(builder.Build(), 1 | LX_AVIREAD_FOLLOW_FORMAT, 0).size(), 1u);
    lxAviRead_StrfVideo_t format = {};
    format.biSize = sizeof format;
    format.biCompression = Code("MJPG");
    builder.streams[0].format = AsBytes(format);
    EXPECT_EQ(TableOf(builder.Build(), 1 | LX_AVIREAD_FOLLOW_FORMAT, 0).size(), 5u);
}

// When an abort prevents the read of a batch, the reader does not process the previous batch again.
TEST_F(AudioPlacement, AnAbortedBatchIsNobodys)
{
    AviBuilder builder;
    builder.Add(VideoStream());
    for (UInt32 frame = 0; frame < 6; ++frame) {
        builder.Frame(0, Fill(10), true);
    }
    OpenIndexed(builder);
    LendBuffer(batch);
    Info().uiMaxRecordsInBuffer = 2;
    Info().StreamInfo[0]->uiStreamSize = 0;
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), Info().idx1Offset, SEEK_SET), 1);
    UInt32 reads = 0;
    Faults().onRead = [&](UInt64) { Info().bAbort = ++reads == 2 ? 1 : 0; };
    EXPECT_EQ(lxAviReadCore_ParseIndex_Video(0, &Info(), 6 * 16, 1, 1), LX_ERR_AVIREAD_ABORTED);
    Faults().onRead = nullptr;
    Info().bAbort = 0;
    EXPECT_EQ(Info().StreamInfo[0]->uiStreamSize, 20u);
}

} // namespace
} // namespace avitest
