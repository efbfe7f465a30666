// Format mode: what a stream holds in all, by its header and by an index.

#include "FormatModeTest.hpp"

namespace avitest {
namespace {

class Summaries : public FormatMode {
protected:
    static lxAviRead_StreamSummary_t Of(UInt32 streamNr)
    {
        lxAviRead_StreamSummary_t summary = {7, 7, 7, 7};
        EXPECT_EQ(lxAviReadCore_GetStreamSummary(streamNr, &summary), LX_OK);
        return summary;
    }

    static void Expect(UInt32 streamNr, UInt32 origin, UInt32 chunks, UInt64 bytes, UInt64 usec)
    {
        const lxAviRead_StreamSummary_t summary = Of(streamNr);
        EXPECT_EQ(summary.eOrigin, origin);
        EXPECT_EQ(summary.uiChunks, chunks);
        EXPECT_EQ(summary.uiBytes, bytes);
        EXPECT_EQ(summary.uiDurationUsec, usec);
    }

    static void ExpectNothing(UInt32 streamNr) { Expect(streamNr, LX_AVIREAD_SUMMARY_NONE, 0, 0, 0); }
};

constexpr UInt32 kHeader = LX_AVIREAD_SUMMARY_HEADER;
constexpr UInt32 kIndex = LX_AVIREAD_SUMMARY_INDEX;

TEST_F(Summaries, HeadersTellWhatTheWriterHasFilledIn)
{
    builder.streams[0] = VideoStream(30000, 1001);
    builder.streams[0].header.dwLength = 300;
    builder.streams[0].header.dwStart = 5;      // durations are those without it
    builder.streams[1].header.dwLength = 80000; // samples of 2 bytes at 8000 a second
    builder.Add(Mp3VbrStream()).Add(TextStream());
    builder.streams[2].header.dwLength = 400; // blocks of 1152 samples at 44100 a second
    builder.streams[3].header.dwScale = 1;
    builder.streams[3].header.dwRate = 1000;
    builder.streams[3].header.dwLength = 2500;
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    Expect(0, kHeader, 300, 0, 10010000);
    Expect(1, kHeader, 0, 160000, 10000000);
    Expect(2, kHeader, 0, 0, 10448979); // 400 * 1152 / 44100 s
    Expect(3, kHeader, 0, 0, 2500000);
}

TEST_F(Summaries, OtherHeadersKnowTheFramesOfTheMainVideo)
{
    builder.Add(VideoStream());
    builder.avih.dwTotalFrames = 50;
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    Expect(0, kHeader, 50, 0, 2000000);
    Expect(2, kHeader, 0, 0, 0);
    builder.dmlhTotalFrames = 75;
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    Expect(0, kHeader, 75, 0, 3000000);
    builder.streams[0].header.dwLength = 25;
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    Expect(0, kHeader, 25, 0, 1000000);
}

TEST_F(Summaries, OtherHeadersKnowTheFirstVideoWhicheverIsSelected)
{
    builder.Add(VideoStream());
    builder.dmlhTotalFrames = 75;
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    ASSERT_EQ(lxAviReadCore_SelectVideoStream(2), LX_OK);
    Expect(0, kHeader, 75, 0, 3000000);
    Expect(2, kHeader, 0, 0, 0);
}

TEST_F(Summaries, AStreamWhoseIndexFailsHasItsHeaderAlone)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    builder.streams[1].header.dwLength = 6400;
    AddSegments(2, 6, 3);
    Bytes file = builder.Build();
    const Bytes code = Text("ix01");
    const auto second = std::find_end(file.begin(), file.end(), code.begin(), code.end());
    std::fill_n(second, 4, UInt8{'x'});
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    Expect(0, kIndex, 12, 120, 480000);
    Expect(1, kHeader, 0, 12800, 800000);
}

TEST_F(Summaries, TheLastOfTwoIndexesInAListCounts)
{
    builder.eIndex = IndexKind::OneLevelStandard;
    builder.avih.dwFlags = 0;
    AddMedia(10, 5);
    const Bytes file = builder.Build();
    const size_t indx = Find(file, "indx");
    UInt32 size = 0;
    std::memcpy(&size, &file[indx + 4], sizeof size);
    const auto at = file.begin() + static_cast<std::ptrdiff_t>(indx);
    builder.streams[0].extra = Bytes(at, at + 8 + static_cast<std::ptrdiff_t>(size));
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    Expect(0, kIndex, 10, 100, 400000);
}

TEST_F(Summaries, ThePassThatPlacesAudioByOrderCountsBlocks)
{
    builder.streams[1] = Mp3VbrStream();
    builder.Audio(1, Fill(2500)).Frame(0, Fill(10), true).Audio(1, Fill(100)); // blocks: 3 and 1
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    Bytes buffer(18000);
    LendBuffer(buffer);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), Info().idx1Offset, 0), 1);
    ASSERT_EQ(lxAviReadCore_ParseVideoAudioIndex(0, &Info(), Info().idx1Size, 0, 1), LX_OK);
    Expect(1, kIndex, 2, 2600, 104489);
}

TEST_F(Summaries, AnIndexTellsWhatIsThere)
{
    builder.Add(Mp3VbrStream());
    builder.streams[0].header.dwLength = 999; // wrong
    builder.streams[0].header.dwStart = 3;
    builder.streams[2].header.dwStart = 3;
    AddMedia(10, 5);
    builder.Audio(2, Fill(2500)).Audio(2, Fill(100)).Audio(2, {}); // blocks of 1152 bytes: 3, 1 and 0
    for (const IndexKind eIndex : {IndexKind::Idx1Relative, IndexKind::SuperStandard, IndexKind::OneLevelField}) {
        builder.eIndex = eIndex;
        builder.eLayout = IxLayout::At32;
        ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
        for (UInt32 again = 0; again < 2; ++again) {
            Expect(0, kIndex, 10, 100, 400000);
            Expect(1, kIndex, 10, 6400, 400000);
            Expect(2, kIndex, 3, 2600, 104489); // 4 * 1152 / 44100 s
            ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
        }
    }
}

TEST_F(Summaries, ATableOfOpenCountsToo)
{
    builder.eIndex = IndexKind::OneLevelStandard;
    builder.avih.dwFlags = 0;
    AddMedia(10, 5);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(allIndexed, 1);
    Expect(0, kIndex, 10, 100, 400000);
    Expect(1, kIndex, 10, 6400, 400000);
}

TEST_F(Summaries, OnlyTheUsedOneOfTwoIndexesCounts)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    builder.bIdx1Too = true;
    AddMedia(10, 5);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    Expect(0, kIndex, 10, 100, 400000);
    Expect(1, kIndex, 10, 6400, 400000);
}

TEST_F(Summaries, ThinningChangesNothing)
{
    AddMedia(2 * kLeaf, 1);
    const Bytes file = builder.Build();
    EXPECT_EQ(lxAviReadCore_Close(), LX_OK);
    ASSERT_EQ(Open(file, true, 1, kOneLeafBudget, kFormat), LX_OK);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(Table().size(), kLeaf);
    Expect(0, kIndex, 726, 7260, 29040000);
}

TEST_F(Summaries, BytesHave64Bits)
{
    AddMedia(3, 1);
    Bytes file = builder.Build();
    for (size_t record = file.size() - 16; file[record] == '0'; record -= 16) { // idx1 ends the file
        Patch32(file, record + 12, 0xF0000000u);
    }
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    Expect(0, kIndex, 3, 3 * UInt64{0xF0000000u}, 120000);
    Expect(1, kIndex, 3, 3 * UInt64{0xF0000000u}, 754974720000); // at 16000 bytes a second
}

TEST_F(Summaries, AFailedIndexLeavesTheHeaders)
{
    builder.streams[0].header.dwLength = 20;
    AddMedia(10, 5);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    Expect(0, kIndex, 10, 100, 400000);
    ASSERT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_ABORTED);
    ASSERT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
    Expect(0, kHeader, 20, 0, 800000);
}

TEST_F(Summaries, AnotherFileHasItsOwn)
{
    AddMedia(10, 5);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    builder.streams[0].header.dwLength = 20;
    ASSERT_EQ(Open(builder), LX_OK); // without a Close in between
    Expect(0, kHeader, 20, 0, 800000);
}

TEST_F(Summaries, WhereThereIsNoStreamThereIsNothing)
{
    ExpectNothing(0); // before Open
    AddMedia(10, 5);
    builder.Add(VideoStream());
    builder.streams[2].header.fccType = Code("mids"); // no kind that the reader knows
    Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    for (const UInt32 streamNr : {2u, 3u, 16u, 17u, 0x80000000u, 0xFFFFFFFFu}) {
        ExpectNothing(streamNr);
    }
    EXPECT_EQ(log.Assertions().size(), 0u);
    EXPECT_EQ(lxAviReadCore_GetStreamSummary(0, Null), LX_OK);
    EXPECT_EQ(log.Assertions().size(), 1u);
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    ExpectNothing(0);
    file.resize(100);
    EXPECT_NE(OpenAs(kFormat, file), LX_OK);
    ExpectNothing(0);
}

lxAviRead_TableSummary_t TableSummary()
{
    lxAviRead_TableSummary_t summary = {7, 7, 7, 7};
    EXPECT_EQ(lxAviReadCore_GetTableSummary(&summary), LX_OK);
    return summary;
}

void ExpectTableSummary(UInt32 source, UInt32 keyFrames, UInt32 stored, UInt32 step)
{
    const lxAviRead_TableSummary_t summary = TableSummary();
    EXPECT_EQ(summary.eSource, source);
    EXPECT_EQ(summary.uiKeyFrames, keyFrames);
    EXPECT_EQ(summary.uiStored, stored);
    EXPECT_EQ(summary.uiStep, step);
}

TEST_F(Summaries, ATableTellsItsSource)
{
    const std::pair<IndexKind, UInt32> sources[] = {
        {IndexKind::Idx1Relative, LX_AVIREAD_TABLE_IDX1},
        {IndexKind::Idx1Absolute, LX_AVIREAD_TABLE_IDX1},
        {IndexKind::SuperStandard, LX_AVIREAD_TABLE_SUPER_INDEX},
        {IndexKind::SuperField, LX_AVIREAD_TABLE_SUPER_INDEX},
        {IndexKind::OneLevelStandard, LX_AVIREAD_TABLE_ONE_LEVEL_INDEX},
        {IndexKind::OneLevelField, LX_AVIREAD_TABLE_ONE_LEVEL_INDEX},
    };
    for (const auto& [eKind, source] : sources) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = eKind;
        builder.eLayout = IxLayout::At32;
        AddMedia(10, 5);
        ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
        ExpectTableSummary(source, 2, 2, 1);
    }
}

TEST_F(Summaries, AThinnedTableTellsItsStep)
{
    AddMedia(3 * kLeaf, 1);
    const Bytes file = builder.Build();
    ASSERT_EQ(Open(file, true, 1, kOneLeafBudget, kFormat), LX_OK);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    ExpectTableSummary(LX_AVIREAD_TABLE_IDX1, 3 * kLeaf, kLeaf, 3);
    Patch32(builder.streams[0].format, 16, Code("MJPG")); // all frames are key frames
    ASSERT_EQ(Open(builder.Build(), true, 1, kOneLeafBudget, kFormat), LX_OK);
    ASSERT_EQ(lxAviReadCore_ParseMediaData(0, Null, Null), LX_OK);
    ExpectTableSummary(LX_AVIREAD_TABLE_MEDIA_DATA, 3 * kLeaf, 3 * (kLeaf + 1) / 4, 4); // 1089 of which every 4th
}

TEST_F(Summaries, WithoutATableThereIsNothingToTell)
{
    ExpectTableSummary(LX_AVIREAD_TABLE_NONE, 0, 0, 0); // before Open
    AddMedia(10, 5);
    const Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    ExpectTableSummary(LX_AVIREAD_TABLE_NONE, 0, 0, 0);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(TableSummary().uiStored, 2u);
    EXPECT_EQ(lxAviReadCore_Close(), LX_OK);
    ExpectTableSummary(LX_AVIREAD_TABLE_NONE, 0, 0, 0);
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    ExpectTableSummary(LX_AVIREAD_TABLE_NONE, 0, 0, 0);
    EXPECT_EQ(lxAviReadCore_GetTableSummary(Null), LX_OK);
    EXPECT_EQ(log.Assertions().size(), 1u);
}

} // namespace
} // namespace avitest
