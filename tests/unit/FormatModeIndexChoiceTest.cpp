// Format mode: which of two indexes gives the table, and indexes on one level.

#include "FormatModeTest.hpp"

namespace avitest {
namespace {

TEST_F(FormatMode, AOneLevelTableSurvivesParsingAgain)
{
    for (const IndexKind eKind : {IndexKind::OneLevelStandard, IndexKind::OneLevelField}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = eKind;
        AddMedia(12, 4);
        const Bytes file = builder.Build();
        if (eKind == IndexKind::OneLevelStandard) {
            EXPECT_EQ(ParseAs(kDefault, file), LX_OK);
            EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
        }
        ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
        EXPECT_EQ(allIndexed, 1);
        EXPECT_EQ(TableOffsets(), KeyFrames());
        EXPECT_EQ(Table()[1].audioFrameNumber[0], 4u);
        EXPECT_EQ(Info().StreamInfo[1]->uiStreamSize, 12u * 640);
        for (UInt32 again = 0; again < 2; ++again) {
            ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
            EXPECT_EQ(TableOffsets(), KeyFrames());
            EXPECT_EQ(Table()[1].audioFrameNumber[0], 4u);
            EXPECT_EQ(Info().StreamInfo[1]->uiStreamSize, 12u * 640); // counted from 0 again
        }
        Position();
        ExpectEverySeekLands();
    }
}

TEST_F(FormatMode, AOneLevelIndexIsBuiltByParseIndexWhereOpenWasNotAskedTo)
{
    builder.eIndex = IndexKind::OneLevelField;
    AddMedia(12, 4);
    for (const bool bPromised : {false, true}) {
        builder.avih.dwFlags = bPromised ? LX_AVIREAD_HAS_INDEX : 0;
        for (const UInt8 lower : {UInt8{0}, UInt8{1}, UInt8{127}}) {
            ASSERT_EQ(OpenAs(LX_AVIREAD_FOLLOW_FORMAT | lower, builder.Build()), LX_OK);
            const bool bBuilt = lower == 1 && !bPromised;
            EXPECT_EQ(Info().KeyFramesListAsArrayLength, bBuilt ? 1u : 0u);
            EXPECT_EQ(allIndexed, bBuilt ? 1 : 0);
            ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
            EXPECT_EQ(TableOffsets(), KeyFrames());
            EXPECT_EQ(Table()[2].audioFrameNumber[0], 8u);
        }
    }
}

TEST_F(FormatMode, AOneLevelIndexFindsTheAudioOfEarlierStreams)
{
    builder = AviBuilder();
    builder.Add(PcmStream()).Add(VideoStream());
    builder.eIndex = IndexKind::OneLevelStandard;
    for (UInt32 i = 0; i < 6; ++i) {
        builder.Audio(0, Fill(640)).Frame(1, Fill(10), i % 3 == 0);
    }
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(Entry(0, 1).audioChunkOffset[0], 0u); // there was no table yet when Open read this audio index
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(Entry(0, 1).audioChunkOffset[0], builder.MediaItems()[6].uiOffset);
}

TEST_F(FormatMode, AnOneLevelIndexWithoutEntrySizeIsNone)
{
    builder.eIndex = IndexKind::OneLevelStandard;
    AddMedia(4, 2);
    Bytes file = builder.Build();
    Patch32(file, Find(file, "indx") + 8, Get32(file, Find(file, "indx") + 8) & 0xFFFF0000u);
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK); // the walk continues behind the chunk
    EXPECT_EQ(Info().AudioTracksCount, 1u);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
}

TEST_F(FormatMode, ABudgetBelowALeafFailsOpenAsByDefault)
{
    builder.eIndex = IndexKind::OneLevelStandard;
    AddMedia(4, 2);
    for (const UInt8 as : {kDefault, kFormat}) {
        EXPECT_EQ(Open(builder.Build(), true, 1, 100, as), LX_ERR_AVIREAD_NO_MEMORY);
    }
}

TEST_F(FormatMode, AOneLevelIndexOfAnInputThatCannotSeekIsPassedOver)
{
    builder.eIndex = IndexKind::OneLevelStandard;
    AddMedia(4, 2);
    indxOptionOfOpen = kFormat;
    ASSERT_EQ(Open(builder.Build(), false), LX_OK);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
    EXPECT_EQ(CountDelivered(), 8u);
}

TEST_F(FormatMode, AnUnusableOpenDmlIndexLeavesTheTableToIdx1)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    builder.bIdx1Too = true;
    AddMedia(12, 4);
    Bytes file = builder.Build();
    Patch32(file, Find(file, "indx") + 8 + 24, 0);
    EXPECT_EQ(ParseAs(kDefault, file), LX_ERR_AVIREAD_EOF);
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    EXPECT_EQ(Info().StreamInfo[0]->uiStreamSize, 120u);
    ExpectEverySeekLands();
}

TEST_F(FormatMode, OfTwoIndexesTheOneThatCoversTheFileWins)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    builder.bIdx1Too = true;
    AddSegments(2, 12, 4);
    Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK); // idx1 covers only the first list
    EXPECT_EQ(TableOffsets(), KeyFrames());
    EXPECT_EQ(KeyFrames().size(), 6u);

    // Now the super index covers only half of the first list.
    Patch32(file, Find(file, "indx") + 8 + 4, 1);
    Patch32(file, Find(file, "ix00") + 12, 6);
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    const auto keys = KeyFrames();
    EXPECT_EQ(TableOffsets(), std::vector<UInt64>(keys.begin(), keys.begin() + 3));
    EXPECT_EQ(Info().StreamInfo[0]->uiStreamSize, 120u);

    // Now the super index also has no key flag. The rule that then makes its first frame a key frame must not be used
    // for idx1.
    for (size_t record = 0; record < 6; ++record) {
        const size_t size = Find(file, "ix00") + 32 + 8 * record + 4;
        Patch32(file, size, Get32(file, size) | 0x80000000u);
    }
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(TableOffsets(), std::vector<UInt64>(keys.begin(), keys.begin() + 3));
}

TEST_F(FormatMode, EqualIndexesAreReadFromOpenDml)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    builder.bIdx1Too = true;
    AddMedia(12, 4);
    Bytes file = builder.Build();
    const size_t flags = Find(file, "idx1") + 8 + 16 + 4; // key flag of the first frame
    Patch32(file, flags, 0);
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(FormatMode, TheMainHeaderTellsWhetherThereIsAnIndex)
{
    for (const IndexKind eKind : {IndexKind::None, IndexKind::Idx1Relative, IndexKind::SuperStandard}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = eKind;
        builder.avih.dwFlags = eKind == IndexKind::None ? LX_AVIREAD_HAS_INDEX | 0x100 : 0x100;
        AddMedia(2, 1);
        ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
        EXPECT_EQ(Info().AviHdr->dwFlags, eKind == IndexKind::None ? 0x100u : LX_AVIREAD_HAS_INDEX | 0x100u);
    }
}

TEST_F(FormatMode, ASuperIndexWithoutEntriesIsOne)
{
    builder.eIndex = IndexKind::Idx1Relative;
    const Bytes fields = U16(4) + Bytes{0, 0} + U32(0) + Text("00dc") + Fill(12, 0);
    builder.streams[0].extra = Chunk("indx", fields);
    AddMedia(4, 2);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK); // the table comes from idx1
    EXPECT_NE(Info().StreamInfo[0]->IndxChunk.pAviSuperIndexEntry, nullptr);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    builder.streams[0].extra = Chunk("indx", Bytes(fields.begin(), fields.end() - 2));
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(Info().StreamInfo[0]->IndxChunk.pAviSuperIndexEntry, nullptr); // the chunk is too short for its fields
}

TEST_F(FormatMode, AnAbortIsNoReasonForAnotherIndex)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    builder.bIdx1Too = true;
    AddMedia(12, 4);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    static_cast<void>(lxAviReadCore_SetAbortFlag(1));
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_ABORTED);
    static_cast<void>(lxAviReadCore_SetAbortFlag(0));
}

TEST_F(FormatMode, WithoutAVideoStreamThereIsNoIndex)
{
    builder = AviBuilder();
    builder.Add(PcmStream());
    builder.eIndex = IndexKind::SuperStandard;
    builder.bIdx1Too = true;
    builder.Audio(0, Fill(10));
    EXPECT_EQ(ParseAs(kFormat, builder.Build()), LX_ERR_AVIREAD_NO_INDEX);
}

TEST_F(FormatMode, WithoutAVideoStreamNoIndexIsCounted)
{
    AviBuilder audio;
    audio.eIndex = IndexKind::SuperStandard;
    audio.bIdx1Too = true;
    audio.Add(PcmStream()).Audio(0, Fill(20));
    EXPECT_EQ(ParseAs(kFormat, audio.Build()), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_EQ(Info().pMetaDataBuffer, nullptr);
    EXPECT_EQ(NextValid().payload, Fill(20));
}

} // namespace
} // namespace avitest
