// Tests the choice of the index, and the passes over idx1.

#include "ReaderTest.hpp"

#include "internal/Bytes.hpp"

#include <functional>

namespace avitest {
namespace {

class Idx1Index : public ReaderTest {
protected:
    AviBuilder builder;

    Idx1Index() { builder.Add(VideoStream()).Add(PcmStream()); }

    UInt64 Relative(size_t item) { return builder.MediaItems()[item].uiOffset - builder.MoviOffset() + 4; }

    static Bytes Record(std::string_view id, UInt32 flags, UInt32 offset, UInt32 size)
    {
        return Text(id) + U32(flags) + U32(offset) + U32(size);
    }

    // Opens a file with this idx1, which does not have to fit the media data, and parses the index.
    UInt32 ParseRecords(const Bytes& records, UInt32 budget = kPlenty)
    {
        builder.eIndex = IndexKind::None;
        if (builder.MediaItems().empty()) {
            builder.Frame(0, Fill(40), true);
        }
        builder.behindMovi = ChunkOfSize("idx1", static_cast<UInt32>(records.size()), records);
        EXPECT_EQ(Open(builder.Build(), true, 1, budget), LX_OK);
        log.Clear();
        return lxAviReadCore_ParseIndex(0);
    }
};

TEST_F(Idx1Index, WithoutAnIndexThereIsNoTable)
{
    builder.eIndex = IndexKind::None;
    builder.Frame(0, Fill(4), true);
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_TRUE(log.Has("Entering lxAviReadCore_ParseIndex"));
    EXPECT_TRUE(log.Has("Leaving lxAviReadCore_ParseIndex 8801980a"));
}

// A file of 280 bytes with one stream of audio, whose index counts from the start of the file.
AviBuilder AudioOnly()
{
    AviBuilder audio;
    audio.eIndex = IndexKind::Idx1Absolute;
    audio.Add(PcmStream()).Audio(0, Fill(20)).Audio(0, Fill(2));
    return audio;
}

TEST_F(Idx1Index, WithoutAVideoStreamThereIsNoTableButTheIndexIsRead)
{
    AviBuilder audio = AudioOnly();
    ASSERT_EQ(Open(audio), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_EQ(Info().KeyFramesListAsArray, nullptr);
    EXPECT_EQ(Info().bAbsoluteOffsets, 1);
    EXPECT_EQ(Info().CurrentOffset, audio.MoviOffset());
    EXPECT_TRUE(log.Has("Entering lxAviReadCore_PreParseIdx1Chunk"));
    EXPECT_TRUE(log.Has("Num of Streams : 1, Frame rate : 0, ConsFramesThr : 0"));
}

TEST_F(Idx1Index, WithoutAVideoStreamTheLastAudioChunkIsDelivered)
{
    const Bytes file = AudioOnly().Build();
    ASSERT_EQ(file.size(), 280u);
    ASSERT_EQ(Open(file), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
    Position();
    EXPECT_EQ(NextValid().payload, Fill(20));
    EXPECT_EQ(NextValid().payload, Fill(2));
    EXPECT_EQ(NextValid().uiResult, LX_AVIREAD_END_OF_MEDIA);
}

TEST_F(Idx1Index, WithoutAVideoStreamAnIndexThatIsCutIsTheEndOfTheFile)
{
    Bytes file = AudioOnly().Build();
    file.resize(file.size() - 8);
    ASSERT_EQ(Open(file), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_EOF);
}

TEST_F(Idx1Index, WithoutAVideoStreamThePreParseCanBeAborted)
{
    ASSERT_EQ(Open(AudioOnly().Build()), LX_OK);
    Info().bAbort = 1;
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_ABORTED);
}

TEST_F(Idx1Index, NoRecordBelongsToAStreamThatIsNotThere)
{
    // The characters "0/" give the stream number -1, which has 16 bits: it is not the -1 of "no video stream".
    AviBuilder audio = AudioOnly();
    audio.Media("0/dc", Fill(4), true);
    ASSERT_EQ(Open(audio), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
}

TEST_F(Idx1Index, TheDriverSaysWhatItNeeds)
{
    builder.Frame(0, Fill(4), true).Frame(0, Fill(4), true);
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_TRUE(
        log.Has("lxAviReadCore_PreParseIdx1Chunk: memoryUsageLimit:67108864, ReqMemory=" + std::to_string(kLeafBytes)));
    EXPECT_TRUE(log.Has("lxAviReadCore_PreParseIdx1Chunk: SkipKey:1 ReqLeafs=1 NoOfKeyFrames:2"));
    EXPECT_TRUE(log.Has("Num of Streams : 2, Frame rate : 0, ConsFramesThr : 125"));
    EXPECT_EQ(Info().pMetaDataBuffer, nullptr);
    EXPECT_EQ(Info().uiMaxRecordsInBuffer, 1125u);
}

TEST_F(Idx1Index, TheFramesOfFiveSecondsAreRoundedUp)
{
    builder.streams[0] = VideoStream(30000, 1001); // 149.85 frames in five seconds
    builder.Frame(0, Fill(4), true);
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_TRUE(log.Has("Num of Streams : 2, Frame rate : 0, ConsFramesThr : 150"));
    builder.streams[0] = VideoStream(0xFFFFFFFFu, 1);
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_TRUE(log.Has("Num of Streams : 2, Frame rate : 0, ConsFramesThr : 2147483647"));
}

TEST_F(Idx1Index, WithoutVideoAmongTheDeclaredStreamsTheThresholdIsZero)
{
    AviBuilder late;
    late.avih.dwStreams = 1;
    late.Add(PcmStream()).Add(VideoStream()).Frame(1, Fill(4), true);
    ASSERT_EQ(Open(late), LX_OK);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_TRUE(log.Has("Num of Streams : 1, Frame rate : 0, ConsFramesThr : 0"));
    late.avih.dwStreams = 2;
    ASSERT_EQ(Open(late), LX_OK);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_TRUE(log.Has("Num of Streams : 2, Frame rate : 0, ConsFramesThr : 125"));
}

TEST_F(Idx1Index, RecordsAreLoggedWhereThereAreSeveralStreams)
{
    builder.Frame(0, Fill(4), true).Frame(0, Fill(4), false).Audio(1, Fill(4)).Frame(0, Fill(4), false);
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(log.Count("Video Consecutive Frames Counter : 1"), 2u);
    EXPECT_EQ(log.Count("Video Consecutive Frames Counter : 2"), 1u);
    EXPECT_TRUE(log.Has("lxAviReadCore_PerParseIndex: Record( 3)  Offset =40 "));
    builder.avih.dwStreams = 1;
    ASSERT_EQ(Open(builder), LX_OK);
    log.Clear();
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_FALSE(log.HasPrefix("Video Consecutive Frames Counter"));
    EXPECT_FALSE(log.HasPrefix("lxAviReadCore_PerParseIndex"));
}

TEST_F(Idx1Index, ARemainderOfARecordIsIgnored)
{
    EXPECT_EQ(ParseRecords(Record("00dc", 0x10, 4, 40) + Fill(14)), LX_OK);
    EXPECT_EQ(Table().size(), 1u);
}

TEST_F(Idx1Index, TheFirstOffsetTellsTheBase)
{
    builder.Frame(0, Fill(40), true);
    builder.Build();
    const auto movi = static_cast<UInt32>(builder.MoviOffset()); // does not depend on the index
    ASSERT_EQ(ParseRecords(Record("00dc", 0x10, movi, 40)), LX_OK);
    EXPECT_EQ(Info().bAbsoluteOffsets, 1);
    EXPECT_EQ(Info().CurrentOffset, movi);
    ASSERT_EQ(ParseRecords(Record("00dc", 0x10, movi - 1, 40)), LX_OK);
    EXPECT_EQ(Info().bAbsoluteOffsets, 0);
    EXPECT_EQ(Info().CurrentOffset, 4u);
}

TEST_F(Idx1Index, MediaDataBeyond4GiBIsAlwaysRelative)
{
    ASSERT_EQ(ParseRecords(Record("00dc", 0x10, 0xFFFFFFFFu, 40)), LX_OK);
    Info().moviOffset = 1ull << 32;
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(Info().bAbsoluteOffsets, 0);
}

TEST_F(Idx1Index, OnlyFlaggedVideoOfTheMainStreamCounts)
{
    ASSERT_EQ(ParseRecords(Record("01wb", 0x10, 4, 1) + Record("02dc", 0x10, 5, 1) + Record("00dc", 0x0F, 6, 1) +
                           Record("00db", 0x10, 7, 1) + Record("00dd", 0x10, 8, 1) + Record("00pc", 0x10, 9, 1) +
                           Record("00dc", 0x30, 10, 1)),
              LX_OK);
    EXPECT_TRUE(log.Has("lxAviReadCore_PreParseIdx1Chunk: SkipKey:1 ReqLeafs=1 NoOfKeyFrames:2"));
    const auto table = Table();
    ASSERT_EQ(table.size(), 2u);
    EXPECT_EQ(table[0].videoChunkOffset, 7u);
    EXPECT_EQ(table[0].videoFrameNumber, 1u); // one frame stands before it
    EXPECT_EQ(table[1].videoChunkOffset, 10u);
    EXPECT_EQ(table[1].videoFrameNumber, 2u);
}

TEST_F(Idx1Index, StreamTenIsWrittenInTwoWays)
{
    EXPECT_EQ(lxAviReadCore::StreamNumber(lxAviReadCore::TwoCC("0A")), 10);
    EXPECT_EQ(lxAviReadCore::StreamNumber(lxAviReadCore::TwoCC("10")), 10);
    AviBuilder eleven;
    for (int i = 0; i < 10; ++i) {
        eleven.Add(PcmStream());
    }
    eleven.Add(VideoStream()).Media("10dc", Fill(4), true).Media("0Adc", Fill(4), true);
    OpenIndexed(eleven);
    EXPECT_EQ(Table().size(), 2u);
}

TEST_F(Idx1Index, OneBatchHolds1125Records)
{
    const std::pair<UInt32, std::vector<UInt64>> cases[] = {
        {1125, {18000}}, {1126, {18000, 16}}, {2250, {18000, 18000}}, {2251, {18000, 18000, 16}}};
    log.SetMask(0);
    for (const auto& [records, batches] : cases) {
        Bytes index;
        for (UInt32 i = 0; i < records; ++i) {
            index += Record("00dc", i == 0 ? 0x10 : 0, 4 + i, 1);
        }
        ASSERT_EQ(ParseRecords(index), LX_OK);
        const size_t before = Faults().ReadSizes().size();
        ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
        std::vector<UInt64> threePasses;
        for (int pass = 0; pass < 3; ++pass) {
            threePasses.insert(threePasses.end(), batches.begin(), batches.end());
        }
        const auto& sizes = Faults().ReadSizes();
        EXPECT_EQ(std::vector<UInt64>(sizes.begin() + static_cast<long>(before), sizes.end()), threePasses);
    }
}

TEST_F(Idx1Index, TotalsCountByStream)
{
    builder.Add(VideoStream()).Add(PcmStream());
    ASSERT_EQ(ParseRecords(Record("00dc", 0x10, 4, 100) + Record("01wb", 0, 5, 20) + Record("02db", 0, 6, 3000) +
                           Record("03wb", 0, 7, 7) + Record("00dd", 0, 8, 50000) + Record("09wb", 0, 9, 9) +
                           Record("77dc", 0, 9, 9) + Record("00db", 0, 10, 1)),
              LX_OK);
    EXPECT_EQ(Info().StreamInfo[0]->uiStreamSize, 101u);
    EXPECT_EQ(Info().StreamInfo[1]->uiStreamSize, 20u);
    EXPECT_EQ(Info().StreamInfo[2]->uiStreamSize, 3000u);
    EXPECT_EQ(Info().StreamInfo[3]->uiStreamSize, 7u);
    EXPECT_EQ(Info().StreamInfo[9]->uiStreamSize, 0u); // an empty slot
    EXPECT_TRUE(log.HasPrefix("lxAviReadCore_ParseIndex: Audio chunk found "));
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(Info().StreamInfo[0]->uiStreamSize, 202u); // default mode: a second parse adds the bytes again
}

// ---- DRM ----

TEST_F(Idx1Index, ADrmRecordGivesItsPositionToTheKeyFrame)
{
    builder.Add(VideoStream());
    const auto offsetOf = [&](const Bytes& between) {
        EXPECT_EQ(ParseRecords(Record("00dc", 0x10, 4, 1) + Record("00dd", 0, 50, 10) + between +
                               Record("00dc", 0x10, 100, 1)),
                  LX_OK);
        return Table().back().videoChunkOffset;
    };
    EXPECT_EQ(offsetOf({}), 50u);
    EXPECT_EQ(offsetOf(Record("02dc", 0x10, 60, 1)), 50u);
    EXPECT_EQ(offsetOf(Record("02db", 0, 60, 1)), 50u);
    EXPECT_EQ(offsetOf(Record("02dd", 0, 60, 1)), 50u);
    EXPECT_EQ(offsetOf(Record("00dd", 0, 70, 10)), 70u); // the position of the second "dd" record
    EXPECT_EQ(offsetOf(Record("01wb", 0, 60, 1)), 100u);
    EXPECT_EQ(offsetOf(Record("00dc", 0, 60, 1)), 100u);
    EXPECT_EQ(offsetOf(Record("00xx", 0, 60, 1)), 100u);
    EXPECT_EQ(offsetOf(Record("rec ", 0, 60, 1)), 100u);
    EXPECT_TRUE(log.Has("lxAviReadCore_ParseIndex: DRM chunk in index: sn:0 l:10 o:50"));
}

TEST_F(Idx1Index, ADrmPositionOfZeroCounts)
{
    ASSERT_EQ(ParseRecords(Record("00dd", 0, 0, 10) + Record("00dc", 0x10, 18, 1)), LX_OK);
    EXPECT_EQ(Table()[0].videoChunkOffset, 0u);
}

TEST_F(Idx1Index, ASkippedKeyFrameUsesUpItsDrmRecord)
{
    Bytes records;
    for (UInt32 i = 0; i < 364; ++i) {
        records += Record("00dd", 0, 100 * i + 50, 10) + Record("00dc", 0x10, 100 * i + 80, 1);
    }
    ASSERT_EQ(ParseRecords(records, kOneLeafBudget), LX_OK);
    const auto table = Table();
    ASSERT_EQ(table.size(), 182u);
    for (UInt32 i = 0; i < 182; ++i) {
        EXPECT_EQ(table[i].videoChunkOffset, 200u * i + 50);
    }
}

TEST_F(Idx1Index, ASkippedKeyFrameCancelsThePendingDrmPosition)
{
    const Bytes records = Record("00dc", 0x10, 4, 1) + Record("00dd", 0, 50, 10) + Record("00dc", 0x10, 80, 1) +
                          Record("00dc", 0x10, 100, 1);
    ASSERT_EQ(ParseRecords(records), LX_OK);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), Info().idx1Offset, 0), 1);
    Bytes buffer(18000);
    LendBuffer(buffer);
    ASSERT_EQ(lxAviReadCore_ParseIndex_Video(0, &Info(), 4 * 16, 2, 1), LX_OK);
    Info().pMetaDataBuffer = nullptr;
    ASSERT_EQ(Table().size(), 2u);
    EXPECT_EQ(Table()[1].videoChunkOffset, 100u);
}

TEST_F(Idx1Index, SkippingKeepsEverySecondKeyFrame)
{
    builder.eIndex = IndexKind::None;
    builder.Frame(0, Fill(40), true);
    Bytes records;
    for (UInt32 i = 0; i < 31; ++i) {
        records += Record("00dc", i % 10 == 0 ? 0x10 : 0, 4 + i, 1);
    }
    ASSERT_EQ(ParseRecords(records), LX_OK);
    // calls the passes one by one, with a skip factor of 2
    Info().uiMaxRecordsInBuffer = 1125;
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), Info().idx1Offset, 0), 1);
    Bytes buffer(18000);
    LendBuffer(buffer);
    ASSERT_EQ(lxAviReadCore_ParseIndex_Video(0, &Info(), 31 * 16, 2, 1), LX_OK);
    Info().pMetaDataBuffer = nullptr;
    const auto table = Table();
    ASSERT_EQ(table.size(), 2u);
    EXPECT_EQ(table[0].videoFrameNumber, 0u);
    EXPECT_EQ(table[1].videoFrameNumber, 20u);
    EXPECT_EQ(table[1].timeMsec, 800u);
}

TEST_F(Idx1Index, KeyFrameTimesAreTruncatedAndWithoutTheStart)
{
    builder.avih.dwMicroSecPerFrame = 33366;
    builder.streams[0].header.dwStart = 1000;
    ASSERT_EQ(ParseRecords(Record("00dc", 0x10, 4, 1) + Record("00dc", 0x10, 5, 1) + Record("00dc", 0x10, 6, 1)),
              LX_OK);
    EXPECT_EQ(Table()[1].timeMsec, 33u);
    EXPECT_EQ(Table()[2].timeMsec, 66u);
    EXPECT_EQ(lxAviReadCore_GetStreamTime(0, 2, 0), 33432u); // the stream's time includes the start
}

// ---- Audio positions ----

// 25 fps video, 16000 bytes/s audio: a frame lasts 640 bytes of audio.
class AudioPositions : public Idx1Index {
protected:
    struct Expected {
        UInt32 frame;
        UInt64 offset, bytes;
    };

    void Expect(const lxAviReadCore_KeyFrameEntry_t& entry, UInt32 track, const Expected& expected)
    {
        EXPECT_EQ(entry.audioFrameNumber[track], expected.frame);
        EXPECT_EQ(entry.audioChunkOffset[track], expected.offset);
        EXPECT_EQ(entry.audioBytePosition[track], expected.bytes);
    }
};

TEST_F(AudioPositions, EachKeyFrameGetsTheLastChunkThatBeganBeforeIt)
{
    // Audio chunks of 800 bytes, 50 ms each. Default mode adds the size of a chunk to the start of the chunk before it,
    // so the computed time of chunk c (c >= 1) is 50 x c ms. Key frames at 0, 120 and 200 ms.
    ASSERT_EQ(ParseRecords(Record("01wb", 0, 10, 800) + Record("00dc", 0x10, 11, 1) + Record("01wb", 0, 12, 800) +
                           Record("00dc", 0, 13, 1) + Record("00dc", 0, 14, 1) + Record("00dc", 0x10, 15, 1) +
                           Record("01wb", 0, 16, 800) + Record("01wb", 0, 17, 800) + Record("00dc", 0, 18, 1) +
                           Record("00dc", 0x10, 19, 1) + Record("01wb", 0, 20, 800) + Record("01wb", 0, 21, 800)),
              LX_OK);
    const auto table = Table();
    ASSERT_EQ(table.size(), 3u);
    Expect(table[0], 0, {0, 10, 0});    // chunk 1 (50 ms) is later than 0 ms: chunk 0
    Expect(table[1], 0, {2, 16, 1600}); // chunk 3 (150 ms) is later than 120 ms: chunk 2
    Expect(table[2], 0, {4, 20, 3200}); // chunk 5 (250 ms) is later than 200 ms: chunk 4
    EXPECT_TRUE(log.Has("Storing A0 for 0.1  fr#2 Offset=0.16 BP=0.1600"));
    EXPECT_TRUE(log.Has("Atrk=1(0) vtrk=0 streamTime=150 seekedT=120 "));
    EXPECT_TRUE(log.Has("KF_data.leafNr.itemNr=0.1 offset=15 valid=1 ;  _KF: leafNr.itemNr=0.2 offset=19 valid=1"));
}

TEST_F(AudioPositions, TheSizeOfTheNewChunkIsAddedToTheStartOfTheOneBefore)
{
    // Chunks of 160, 16000 and 160 bytes. Default mode adds the size of a chunk to the start of the chunk before it.
    ASSERT_EQ(ParseRecords(Record("00dc", 0x10, 4, 1) + Record("00dc", 0x10, 5, 1) + Record("01wb", 0, 10, 160) +
                           Record("01wb", 0, 11, 16000) + Record("01wb", 0, 12, 160)),
              LX_OK);
    const auto table = Table();
    Expect(table[0], 0, {0, 10, 0});
    // the computed time of the second chunk is 0 + 16000 bytes = 1000 ms, later than 40 ms
    Expect(table[1], 0, {0, 10, 0});
    ASSERT_EQ(ParseRecords(Record("00dc", 0x10, 4, 1) + Record("00dc", 0x10, 5, 1) + Record("01wb", 0, 10, 16000) +
                           Record("01wb", 0, 11, 160) + Record("01wb", 0, 12, 160)),
              LX_OK);
    // the second chunk (160 bytes = 10 ms) is later than the first key frame; the third (16160 bytes = 1010 ms) is
    // later than the second key frame
    Expect(Table()[0], 0, {0, 10, 0});
    Expect(Table()[1], 0, {1, 11, 16000});
}

TEST_F(AudioPositions, TheFirstKeyFrameAlwaysGetsChunkZero)
{
    // the first key frame is frame 50, at 2000 ms
    Bytes records;
    for (UInt32 i = 0; i < 50; ++i) {
        records += Record("00dc", 0, 4 + i, 1) + Record("01wb", 0, 1000 + i, 640);
    }
    ASSERT_EQ(ParseRecords(records + Record("00dc", 0x10, 100, 1)), LX_OK);
    Expect(Table()[0], 0, {0, 1000, 0});
}

TEST_F(AudioPositions, KeyFramesBeyondTheAudioGetTheLastChunk)
{
    Bytes records = Record("01wb", 0, 10, 640) + Record("01wb", 0, 11, 640) + Record("01wb", 0, 12, 100);
    for (UInt32 i = 0; i < 400; ++i) {
        records += Record("00dc", 0x10, 20 + i, 1);
    }
    ASSERT_EQ(ParseRecords(records), LX_OK);
    const auto table = Table();
    ASSERT_EQ(table.size(), 400u);
    Expect(table[399], 0, {2, 12, 1280});
    Expect(table[200], 0, {2, 12, 1280});
}

TEST_F(AudioPositions, ATrackWithoutChunksIsMarkedAbsent)
{
    builder.Add(PcmStream());
    ASSERT_EQ(ParseRecords(Record("00dc", 0x10, 4, 1) + Record("01wb", 0, 10, 640) + Record("00dc", 0x10, 5, 1)),
              LX_OK);
    for (const auto& entry : Table()) {
        for (UInt32 track = 1; track < 8; ++track) {
            Expect(entry, track, {0xFFFFFFFFu, 0, 0});
        }
    }
}

TEST_F(AudioPositions, TracksAreWalkedSideBySide)
{
    builder.Add(PcmStream());
    ASSERT_EQ(ParseRecords(Record("01wb", 0, 10, 640) + Record("02wb", 0, 11, 3200) + Record("00dc", 0x10, 12, 1) +
                           Record("01wb", 0, 13, 640) + Record("00dc", 0x10, 14, 1) + Record("01wb", 0, 15, 640) +
                           Record("02wb", 0, 16, 3200)),
              LX_OK);
    const auto table = Table();
    Expect(table[1], 0, {1, 13, 640});
    Expect(table[1], 1, {0, 11, 0});
}

TEST_F(AudioPositions, AudioOfAStreamThatIsNoAudioStreamIsBookedOnItsNumber)
{
    ASSERT_EQ(ParseRecords(Record("00wb", 0, 10, 640) + Record("00dc", 0x10, 12, 1)), LX_OK);
    Expect(Table()[0], 0, {0, 10, 0}); // the video stream has track number 0
}

TEST_F(AudioPositions, ChunksOfANinthStreamAreBookedOnTrackZero)
{
    for (int i = 0; i < 8; ++i) {
        builder.Add(PcmStream());
    }
    ASSERT_EQ(Info().AudioTracksCount, 0u);
    ASSERT_EQ(ParseRecords(Record("09wb", 0, 10, 640) + Record("00dc", 0x10, 12, 1)), LX_OK);
    EXPECT_EQ(Info().AudioTracksCount, 9u);
    Expect(Table()[0], 0, {0, 10, 0});
}

// ---- The single-pass builder ----

class SinglePass : public AudioPositions {
protected:
    UInt32 BuildSinglePass(const Bytes& records, UInt32 skip = 1, UInt32 leafs = 1)
    {
        EXPECT_EQ(ParseRecords(records), LX_OK);
        EXPECT_EQ(lxAviReadCore_FileSeek(&Info(), Info().idx1Offset, 0), 1);
        for (auto* pStream : Info().StreamInfo) {
            pStream->uiStreamSize = 0;
        }
        LendBuffer(buffer);
        log.Clear();
        const UInt64 reads = Faults().ReadSizes().size();
        const UInt32 result =
            lxAviReadCore_ParseVideoAudioIndex(0, &Info(), static_cast<UInt32>(records.size()), skip, leafs);
        for (auto i = static_cast<size_t>(reads); i < Faults().ReadSizes().size(); ++i) {
            EXPECT_EQ(Faults().ReadSize(i), 16u);
        }
        Info().pMetaDataBuffer = nullptr;
        return result;
    }

    Bytes buffer = Fill(18000);
};

TEST_F(SinglePass, AKeyFrameGetsTheLatestChunkBeforeItElseTheFirstAfterIt)
{
    ASSERT_EQ(BuildSinglePass(Record("01wb", 0, 10, 100) + Record("01wb", 0, 11, 200) + Record("00dc", 0x10, 12, 1) +
                              Record("00dc", 0x10, 13, 1) + Record("00dc", 0x10, 14, 1) + Record("01wb", 0, 15, 300) +
                              Record("00dc", 0x10, 16, 1)),
              LX_OK);
    const auto table = Table();
    ASSERT_EQ(table.size(), 4u);
    Expect(table[0], 0, {1, 11, 100}); // chunk 1 came before it
    Expect(table[1], 0, {2, 15, 300}); // the first chunk after the key frame
    Expect(table[2], 0, {2, 15, 300});
    Expect(table[3], 0, {2, 15, 300}); // chunk 2 is still the last chunk
    EXPECT_EQ(Info().StreamInfo[1]->uiStreamSize, 600u);
    EXPECT_EQ(Info().StreamInfo[0]->uiStreamSize, 4u);
    EXPECT_TRUE(log.Has("lxAviReadCore_ParseIndex: Store audio data ahead of video for 0 item: tr=0  fr#=1 offset=0.11 "
                        "abp=0.100"));
    EXPECT_TRUE(log.Has("lxAviReadCore_ParseIndex: Store audio data for 2 item: tr=0  fr#=2 offset=0.15 abp=0.300"));
    EXPECT_TRUE(log.Has("AviRead:Succeeded allocating " + std::to_string(sizeof(void*)) +
                        " bytes for 1 leafs for pAviInfo->KeyFramesListAsArray"));
    EXPECT_TRUE(log.Has("Succeeded allocating " + std::to_string(kLeafBytes) +
                        " bytes for pAviInfo->KeyFramesListAsArray[chunkIndexElementsCounter]"));
}

TEST_F(SinglePass, WaitingKeyFramesReachBackOverLeaves)
{
    Bytes records;
    for (UInt32 i = 0; i < 400; ++i) {
        records += Record("00dc", 0x10, 100 + i, 1);
    }
    ASSERT_EQ(BuildSinglePass(records + Record("01wb", 0, 5000, 10), 1, 2), LX_OK);
    const auto table = Table();
    ASSERT_EQ(table.size(), 400u);
    for (const auto& entry : table) {
        Expect(entry, 0, {0, 5000, 0});
    }
}

TEST_F(SinglePass, MoreKeyFramesThanLeavesAreDropped)
{
    Bytes records;
    for (UInt32 i = 0; i < 400; ++i) {
        records += Record("00dc", 0x10, 100 + i, 1);
    }
    ASSERT_EQ(BuildSinglePass(records + Record("01wb", 0, 5000, 10), 1, 1), LX_OK);
    EXPECT_EQ(Table().size(), 363u);
    EXPECT_TRUE(log.HasAssertion("pCurrentLeaf!=Null", "List structure must be initialized"));
}

TEST_F(SinglePass, NoLeavesAreAsserted)
{
    EXPECT_EQ(BuildSinglePass(Record("00dc", 0x10, 4, 1), 1, 0), LX_OK);
    EXPECT_TRUE(log.HasAssertion("neededLeafs > 0", "neededLeafs should be > 0"));
    EXPECT_EQ(lxAviReadCore_ParseIndex_Video(0, &Info(), 16, 1, 0), LX_OK);
    EXPECT_EQ(log.Assertions().size(), 2u);
}

TEST_F(SinglePass, TheBatchBufferIsNeeded)
{
    ASSERT_EQ(ParseRecords(Record("00dc", 0x10, 4, 1)), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseVideoAudioIndex(0, &Info(), 16, 1, 1), LX_ERR_AVIREAD_NO_MEMORY);
    EXPECT_EQ(lxAviReadCore_ParseIndex_Video(0, &Info(), 16, 1, 1), LX_ERR_AVIREAD_NO_MEMORY);
    EXPECT_EQ(lxAviReadCore_ParseIndex_Audio(&Info(), 16, 1), LX_ERR_AVIREAD_NO_MEMORY);
    Info().uiMaxRecordsInBuffer = 0;
    Bytes scratch(18000);
    LendBuffer(scratch);
    EXPECT_EQ(lxAviReadCore_ParseIndex_Audio(&Info(), 16, 1), LX_ERR_AVIREAD_NO_INDEX);
    Info().pMetaDataBuffer = nullptr;
}

TEST_F(SinglePass, LeafFailuresAreToldInItsOwnWords)
{
    ASSERT_EQ(ParseRecords(Record("00dc", 0x10, 4, 1)), LX_OK);
    LendBuffer(buffer);
    Faults().FailAllocation(2);
    EXPECT_EQ(lxAviReadCore_ParseVideoAudioIndex(0, &Info(), 16, 1, 1), LX_ERR_AVIREAD_NO_MEMORY);
    EXPECT_TRUE(log.Has("Failed allocating " + std::to_string(kLeafBytes) +
                        " bytes for pAviInfo->KeyFramesListAsArray[chunkIndexElementsCounter]"));
    Info().pMetaDataBuffer = nullptr;
}

TEST_F(SinglePass, TracksAreFilledSideBySide)
{
    builder.Add(PcmStream());
    ASSERT_EQ(BuildSinglePass(Record("01wb", 0, 10, 100) + Record("02wb", 0, 11, 200) + Record("00dc", 0x10, 12, 1) +
                              Record("00dc", 0x10, 13, 1) + Record("02wb", 0, 14, 50) + Record("01wb", 0, 15, 60)),
              LX_OK);
    const auto table = Table();
    ASSERT_EQ(table.size(), 2u);
    Expect(table[0], 0, {0, 10, 0});
    Expect(table[0], 1, {0, 11, 0});
    Expect(table[1], 0, {1, 15, 100});
    Expect(table[1], 1, {1, 14, 200});
}

TEST_F(SinglePass, EachPassLeavesNoRecordsInTheBatchBuffer)
{
    const Bytes records = Record("00dc", 0x10, 4, 1) + Record("01wb", 0, 14, 60);
    ASSERT_EQ(ParseRecords(records), LX_OK);
    LendBuffer(buffer);
    UInt32 skip = 0, leafs = 0, memory = 0, keyFrames = 0;
    const auto size = static_cast<UInt32>(records.size());
    const std::function<UInt32()> passes[] = {
        [&] { return lxAviReadCore_PreParseIdx1Chunk(&Info(), size, &skip, &leafs, &memory, &keyFrames); },
        [&] { return lxAviReadCore_ParseIndex_Video(0, &Info(), size, 1, 1); },
        [&] { return lxAviReadCore_ParseIndex_Audio(&Info(), size, 1); },
        [&] { return lxAviReadCore_ParseVideoAudioIndex(0, &Info(), size, 1, 1); }};
    for (const auto& pass : passes) {
        std::fill(buffer.begin(), buffer.end(), 0);
        ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), Info().idx1Offset, 0), 1);
        ASSERT_EQ(pass(), LX_OK);
        EXPECT_EQ(buffer, Fill(18000, 0));
    }
    Info().pMetaDataBuffer = nullptr;
}

TEST_F(SinglePass, TheAudioPassStartsFromTheFirstLeafIfThereIsOne)
{
    builder.Frame(0, Fill(40), true);
    ASSERT_EQ(ParseRecords(Record("00dc", 0x10, 4, 1)), LX_OK);
    LendBuffer(buffer);
    Info().KeyFramesListAsArray[0]->pPrevLeaf = Info().KeyFramesListAsArray[0];
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), Info().idx1Offset, 0), 1);
    ASSERT_EQ(lxAviReadCore_ParseIndex_Audio(&Info(), 16, 1), LX_OK);
    EXPECT_EQ(Info().KeyFramesListAsArray[0]->pPrevLeaf, nullptr);
    Info().pMetaDataBuffer = nullptr;

    ASSERT_EQ(Open(builder), LX_OK); // no table yet
    LendBuffer(buffer);
    Info().uiMaxRecordsInBuffer = 1125;
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), Info().idx1Offset, 0), 1);
    EXPECT_EQ(lxAviReadCore_ParseIndex_Audio(&Info(), 16, 1), LX_OK);
    Info().pMetaDataBuffer = nullptr;
}

TEST_F(SinglePass, APassAloneTakesOffsetsAsTheyStand)
{
    const Bytes records = Record("00dc", 0x10, 104, 1);
    builder.eIndex = IndexKind::None;
    builder.Frame(0, Fill(40), true);
    builder.behindMovi = Chunk("idx1", records);
    ASSERT_EQ(Open(builder), LX_OK);
    LendBuffer(buffer);
    Info().uiMaxRecordsInBuffer = 1125;
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), Info().idx1Offset, 0), 1);
    ASSERT_EQ(lxAviReadCore_ParseIndex_Video(0, &Info(), 16, 1, 1), LX_OK);
    EXPECT_EQ(Entry(0, 0).videoChunkOffset, 104u);
    Info().pMetaDataBuffer = nullptr;
}

TEST_F(SinglePass, ATrackBeyondTheLastIsPassedOver)
{
    const Bytes records = Record("00dc", 0x10, 4, 1) + Record("01wb", 0, 14, 60);
    ASSERT_EQ(ParseRecords(records), LX_OK);
    Info().TrackNumber[1] = LX_AVIREAD_AUDIO_TRACKS; // no file leads to this value
    log.Clear();
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_TRUE(log.Has("lxAviReadCore_ParseIndex: Audio chunk found 8 "));
    Info().StreamInfo[1]->uiStreamSize = 0;
    LendBuffer(buffer);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), Info().idx1Offset, 0), 1);
    ASSERT_EQ(lxAviReadCore_ParseVideoAudioIndex(0, &Info(), 32, 1, 1), LX_OK);
    EXPECT_EQ(Info().StreamInfo[1]->uiStreamSize, 0u);
    Info().pMetaDataBuffer = nullptr;
}

// ---- Failures ----

TEST_F(Idx1Index, AnIndexThatEndsEarlyIsAnEndOfFile)
{
    builder.Frame(0, Fill(4), true).Frame(0, Fill(4), true);
    Bytes file = builder.Build();
    file.resize(file.size() - 1);
    ASSERT_EQ(Open(file), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_EOF);
}

TEST_F(Idx1Index, EachPassReportsItsFailedRead)
{
    builder.Frame(0, Fill(4), true).Audio(1, Fill(4));
    const Bytes file = builder.Build();
    for (const UInt64 n : {1u, 2u, 3u}) {
        ASSERT_EQ(Open(file), LX_OK);
        Faults().FaultRead(n, {ReadFault::Kind::ShortThenError, 5});
        EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_READ) << n;
        EXPECT_NE(Info().pMetaDataBuffer, nullptr);
        ASSERT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK); // with this flag a failed read gives LX_ERR_AVIREAD_ABORTED
        Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 5});
        EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_ABORTED);
        ASSERT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
        Faults().FaultRead(0, {});
    }
}

TEST_F(Idx1Index, AnAbortIsSeenBeforeAndAfterEachBatch)
{
    builder.Frame(0, Fill(4), true).Audio(1, Fill(4));
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
    const UInt64 reads = Faults().Reads();
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_ABORTED);
    EXPECT_EQ(Faults().Reads(), reads);   // the reader makes no read
    for (const UInt64 n : {1u, 2u, 3u}) { // sets the flag while the reader reads the n-th batch
        ASSERT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
        Faults().FaultRead(0, {});
        Faults().onRead = [n](UInt64 read) {
            if (read == n) {
                EXPECT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
            }
        };
        EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_ABORTED);
        EXPECT_EQ(Faults().Reads(), n);
    }
}

TEST_F(Idx1Index, TheTableIsConstructedBeforeTheAbortFlagIsLookedAt)
{
    builder.Frame(0, Fill(4), true);
    ASSERT_EQ(Open(builder), LX_OK);
    Bytes buffer(18000);
    LendBuffer(buffer);
    ASSERT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex_Video(0, &Info(), 16, 1, 3), LX_ERR_AVIREAD_ABORTED);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 3u);
    Info().pMetaDataBuffer = nullptr;
}

TEST_F(Idx1Index, AFailedSeekToTheIndexIsReported)
{
    builder.Frame(0, Fill(4), true).Audio(1, Fill(4));
    const Bytes file = builder.Build();
    ASSERT_EQ(Open(file), LX_OK);
    Faults().FailSeek(1); // the file already stands at the index
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    ASSERT_EQ(Open(file), LX_OK);
    Faults().FailSeek(2);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_SEEK);
    EXPECT_EQ(Info().pMetaDataBuffer, nullptr);
    EXPECT_EQ(Info().KeyFramesListAsArray, nullptr); // the video pass did not run
}

TEST_F(Idx1Index, AfterAFailedSeekTheAudioPassRunsAllTheSame)
{
    builder.Frame(0, Fill(4), true).Audio(1, Fill(4));
    builder.behindIdx1 = Fill(64); // bytes that the audio pass reads
    ASSERT_EQ(Open(builder), LX_OK);
    Faults().FaultRead(0, {});
    Faults().FailSeek(3);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_SEEK);
    EXPECT_EQ(Faults().Reads(), 3u);
    EXPECT_EQ(Info().pMetaDataBuffer, nullptr);
    EXPECT_EQ(Table().size(), 1u);
    EXPECT_EQ(Table()[0].audioFrameNumber[0], 0xFFFFFFFFu); // these bytes contain no audio record
    EXPECT_EQ(lxalAviRead_FileSeekPossible, 0);
}

TEST_F(Idx1Index, AMillionRecordsNeedNothingButTheTable)
{
    Bytes records;
    records.reserve(16u << 20);
    for (UInt32 i = 0; i < 1000000; ++i) {
        const bool bAudio = i % 2 == 1;
        const Bytes record = Record(bAudio ? "01wb" : "00dc", i % 20 == 0 ? 0x10 : 0, 4 + 10 * i, bAudio ? 640 : 1);
        records.insert(records.end(), record.begin(), record.end());
    }
    log.SetMask(0);
    Faults().SetBuffered(true);
    builder.eIndex = IndexKind::None;
    builder.Frame(0, Fill(40), true);
    builder.behindMovi = ChunkOfSize("idx1", static_cast<UInt32>(records.size()), records);
    const UInt32 budget = 10 * kOneLeafBudget;
    ASSERT_EQ(Open(builder.Build(), true, 1, budget), LX_OK);
    Faults().FailAllocation(0);
    Faults().ResetPeak();
    const UInt64 before = Faults().LiveBytes();
    const UInt64 reads = Faults().ReadSizes().size();
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(Faults().Allocations(), 1u + 1u + Info().KeyFramesListAsArrayLength); // buffer, array, leaves
    EXPECT_LE(Faults().PeakBytes() - before, budget + 18000u + 64u * (Info().KeyFramesListAsArrayLength + 2));
    for (auto i = static_cast<size_t>(reads); i < Faults().ReadSizes().size(); ++i) {
        EXPECT_LE(Faults().ReadSize(i), 18000u);
    }
    EXPECT_EQ(Faults().ReadSizes().size() - reads, 3u * 889u); // three passes of 888 full batches and one more
    EXPECT_EQ(Table().size(), 3572u);                          // 50000 key frames, every 14th
}

TEST_F(Idx1Index, ASecondParseForgetsOnlyPositionsThatWouldDangle)
{
    builder.Frame(0, Fill(4), true).Frame(0, Fill(4), true).Frame(0, Fill(4), true);
    OpenIndexed(builder);
    Next();
    Next();
    static_cast<void>(lxAviReadCore_SeekToTime(40, -1, lxAviRead_SetPosRoundDown));
    EXPECT_EQ(Info().audioSyncItemNr, 1u);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(Info().audioSyncItemNr, 1u); // this entry still exists
    Info().JumpOffset = 0;
    ASSERT_EQ(lxAviReadCore_SetOnKeyFrame_AudioAndVideo(-1), LX_OK);
    EXPECT_EQ(Info().JumpOffset, Relative(1)); // the key frame played last still exists, too
    Info().audioSyncLeafNr = 1;                // there is no leaf 1
    Info().idx1Size = 16;                      // the index has only one record now
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(Info().audioSyncItemNr, 0u);
    EXPECT_EQ(Info().audioSyncLeafNr, 0u);
    Info().JumpOffset = 0;
    log.SetMask(0x20);
    log.Clear();
    ASSERT_EQ(lxAviReadCore_SetOnKeyFrame_AudioAndVideo(-1), LX_OK);
    EXPECT_EQ(Info().JumpOffset, 0u); // no key frame counts as played now
    EXPECT_TRUE(log.Has("lastPlayedKeyFrame.valid==false"));
}

} // namespace
} // namespace avitest
