// Format mode: index chunks of OpenDML files as writers make them, and positions of 64 bits.

#include "FormatModeTest.hpp"

namespace avitest {
namespace {

TEST_F(FormatMode, IsABitOfTheOptionAndNotTheDefault)
{
    EXPECT_EQ(LX_AVIREAD_FOLLOW_FORMAT, 0x80u);
    AddMedia(2, 1);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(Info().IndxOption, 0x81);
    ASSERT_EQ(lxAviReadCore_Reset(), LX_OK);
    EXPECT_EQ(Info().IndxOption, 1);
}

// ---- Index chunks ----

TEST_F(FormatMode, RecordsOfIndexChunksBeginBehindTheHeader)
{
    for (const IndexKind eKind : {IndexKind::SuperStandard, IndexKind::SuperField}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = eKind;
        builder.eLayout = IxLayout::At32;
        AddSegments(3, 12, 4);
        const Bytes file = builder.Build();
        static_cast<void>(ParseAs(kDefault, file));
        EXPECT_NE(Info().KeyFramesListAsArray[0]->array[0].videoChunkOffset, KeyFrames()[0]);
        ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
        EXPECT_EQ(TableOffsets(), KeyFrames());
        ASSERT_EQ(Table().size(), 9u);
        EXPECT_EQ(Table()[4].videoFrameNumber, 16u);
        EXPECT_EQ(Table()[4].audioFrameNumber[0], 16u); // a chunk lasts 40 ms, so chunk 16 begins at 640 ms
        EXPECT_EQ(Table()[4].audioBytePosition[0], 16u * 640);
        ExpectEverySeekLands();
        EXPECT_EQ(lxAviReadCore_SeekToTime(0, 0, lxAviRead_SetPosRoundDown), 0u);
        EXPECT_EQ(CountDelivered(), 72u);
    }
}

TEST_F(FormatMode, AMisplacedIndexChunkIsReportedAtOnce)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    AddMedia(3000, 10);
    Bytes file = builder.Build();
    const size_t entry = Find(file, "indx") + 8 + 24;
    Patch32(file, entry, static_cast<UInt32>(builder.MoviOffset()));
    EXPECT_EQ(ParseAs(kDefault, file), LX_ERR_AVIREAD_EOF);
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    const UInt64 reads = Faults().Reads();
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_LE(Faults().Reads(), reads + kCallsOfAWord);
}

TEST_F(FormatMode, AnIndexOfAnotherStreamIsUnusable)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    AddMedia(4, 2);
    Bytes file = builder.Build();
    file[Find(file, "ix00") + 3] = '1';
    EXPECT_EQ(ParseAs(kFormat, file), LX_ERR_AVIREAD_INDEX_STREAM);
}

TEST_F(FormatMode, AnIndexChunkHasNoMoreRecordsThanRoom)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    AddMedia(12, 4);
    Bytes file = builder.Build();
    Patch32(file, Find(file, "ix00") + 12, 100);
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    Patch32(file, Find(file, "ix00") + 4, 23); // too small for the fields of the index chunk
    EXPECT_EQ(ParseAs(kFormat, file), LX_ERR_AVIREAD_NO_INDEX);
}

TEST_F(FormatMode, EntriesMadeInAdvanceAreNotUsed)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    AddSegments(3, 12, 4);
    Bytes file = builder.Build();
    const size_t second = Find(file, "indx") + 8 + 24 + 16;
    Patch32(file, second, 0);
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(Table().size(), 6u);

    Patch32(file, second + 4, 0x80000000u); // larger than any file
    EXPECT_EQ(ParseAs(kFormat, file), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_EQ(lxalAviRead_FileSeekPossible, 1);
}

TEST_F(FormatMode, AnUnusableAudioIndexCostsTheTrackAlone)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    builder.Add(PcmStream());
    for (UInt32 i = 0; i < 12; ++i) {
        builder.Audio(1, Fill(640)).Audio(2, Fill(640)).Frame(0, Fill(10), i % 4 == 0);
    }
    for (const bool bIdx1Too : {false, true}) {
        builder.bIdx1Too = bIdx1Too;
        Bytes file = builder.Build();
        const size_t second = Find(file, "indx", Find(file, "indx") + 4);
        Patch32(file, second + 8 + 24, 400); // index chunk of the first audio stream
        ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
        EXPECT_EQ(TableOffsets(), KeyFrames());
        EXPECT_EQ(Entry(0, 1).audioChunkOffset[0], bIdx1Too ? builder.MediaItems()[12].uiOffset : 0u);
        EXPECT_EQ(Entry(0, 1).audioChunkOffset[1], builder.MediaItems()[13].uiOffset);
    }
}

TEST_F(FormatMode, AnAudioIndexBelongsToTheStreamThatHoldsIt)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    AddMedia(12, 4);
    Bytes file = builder.Build();
    Patch32(file, Find(file, "indx", Find(file, "indx") + 4) + 8 + 8, 0); // the chunk id in the audio index
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(Entry(0, 1).audioChunkOffset[0], builder.MediaItems()[8].uiOffset);
}

TEST_F(FormatMode, ASuperIndexHasNoMoreEntriesThanRoom)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    AddMedia(4, 2);
    Bytes file = builder.Build();
    Patch32(file, Find(file, "indx") + 8 + 4, 1000);
    EXPECT_NE(OpenAs(kDefault, file), LX_OK);
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(Info().StreamInfo[0]->IndxChunk.aviIndxcommonSection.uiEntriesInUse, 1u);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

// ---- 64 bits ----

TEST_F(FormatMode, SeeksTakeTheWholeOffset)
{
    AddMedia(1, 1);
    const Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kDefault, file), LX_OK);
    EXPECT_EQ(lxAviReadCore_FileSeek(&Info(), 0x80000000u, 0), 0);
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    for (const UInt64 offset : {0x80000000ull, 0xFFFFFFFFull, (7ull << 32) + 100}) {
        ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), offset, 0), 1);
        EXPECT_EQ(static_cast<UInt64>(ftello64(Info().pFile)), offset);
    }
    EXPECT_EQ(lxAviReadCore_FileSeek(&Info(), 100, 0), 1);
    EXPECT_EQ(lxAviReadCore_FileSeek(&Info(), UInt64{0} - 60, 1), 1); // backwards from the current position
    EXPECT_EQ(ftello64(Info().pFile), 40);
}

TEST_F(FormatMode, OffsetsKeepTheHighWordOfTheirBase)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddMedia(1, 1);
    for (const UInt8 as : {kDefault, kFormat}) {
        builder.eLayout = as == kFormat ? IxLayout::At32 : IxLayout::At36;
        Bytes file = builder.Build();
        Patch32(file, Find(file, "ix00") + 24, 2); // the base moves by 8 GiB
        ASSERT_EQ(ParseAs(as, file), LX_OK);
        EXPECT_EQ(Entry(0, 0).videoChunkOffset, KeyFrames()[0] + (as == kFormat ? 2ull << 32 : 0));
    }
}

} // namespace
} // namespace avitest
