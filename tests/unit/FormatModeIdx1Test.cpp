// Format mode: where the offsets of `idx1` count from, and where `idx1` stands.

#include "FormatModeTest.hpp"

namespace avitest {
namespace {

TEST_F(FormatMode, ThePassesAloneConvertOffsets)
{
    AddMedia(12, 4);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    Bytes buffer = Fill(18000);
    LendBuffer(buffer);
    Info().uiMaxRecordsInBuffer = 1125;
    UInt32 skip = 0, leafs = 0, memory = 0, keys = 0;
    const UInt32 size = Info().idx1Size;
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), Info().idx1Offset, 0), 1);
    ASSERT_EQ(lxAviReadCore_PreParseIdx1Chunk(&Info(), size, &skip, &leafs, &memory, &keys), LX_OK);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), Info().idx1Offset, 0), 1);
    ASSERT_EQ(lxAviReadCore_ParseVideoAudioIndex(0, &Info(), size, skip, leafs), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    EXPECT_EQ(Entry(0, 1).audioChunkOffset[0], builder.MediaItems()[8].uiOffset);
    Info().pMetaDataBuffer = nullptr;
}

TEST_F(FormatMode, OneRecordIsEnoughToCountFromTheFirstChunk)
{
    builder.Frame(0, Fill(10), true);
    builder.behindIdx1 = Chunk("JUNK", Fill(20));
    Bytes file = builder.Build();
    Patch32(file, Find(file, "idx1") + 8 + 8, 0);
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(FormatMode, AFirstRecordThatPointsNowhereDoesNotMoveTheOthers)
{
    AddMedia(12, 4);
    Bytes file = builder.Build();
    Patch32(file, Find(file, "idx1") + 8 + 8, 0); // an offset as if it counted from the first chunk
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(FormatMode, RelativeOffsetsAreConverted)
{
    AddMedia(12, 4);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    EXPECT_EQ(TableOffsets()[0] + builder.MoviOffset() - 4, KeyFrames()[0]);
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    EXPECT_EQ(Table()[1].audioChunkOffset[0], builder.MediaItems()[8].uiOffset); // the fifth chunk of the track
    ExpectEverySeekLands();
}

TEST_F(FormatMode, RelativeOffsetsWorkInFilesOfSeveralLists)
{
    AddSegments(2, 12, 4);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    const UInt32 time = lxAviReadCore_SeekToTime(320, -1, lxAviRead_SetPosRoundDown);
    EXPECT_EQ(time, 320u);
    // Default mode counts from the first list, so this jump works as long as delivery stays in the first list.
    EXPECT_EQ(Next().uiResult, LX_OK);
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    const auto keys = KeyFrames();
    EXPECT_EQ(TableOffsets(), std::vector<UInt64>(keys.begin(), keys.begin() + 3)); // idx1 covers only the first list
    EXPECT_EQ(CountDelivered(), 48u);
    ExpectEverySeekLands();
    EXPECT_EQ(lxAviReadCore_SeekToTime(0, 0, lxAviRead_SetPosRoundDown), 0u); // jumps back from the second list
    EXPECT_EQ(CountDelivered(), 48u);
}

TEST_F(FormatMode, TheFileTellsWhereOffsetsCountFrom)
{
    // The first indexed chunk stands so far behind the "movi" code that its relative offset looks like a file offset.
    builder.Media("JUNK", Fill(4000), false, false);
    AddMedia(4, 2);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    EXPECT_NE(TableOffsets()[0] + (Info().bAbsoluteOffsets == 1 ? 0 : builder.MoviOffset() - 4), KeyFrames()[0]);
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());

    // Offsets that count from the first chunk.
    builder = AviBuilder();
    builder.Add(VideoStream()).Add(PcmStream());
    AddMedia(4, 2);
    Bytes fromChunk = builder.Build();
    for (size_t at = Find(fromChunk, "idx1") + 8; at < fromChunk.size(); at += 16) {
        Patch32(fromChunk, at + 8, Get32(fromChunk, at + 8) - 4);
    }
    ASSERT_EQ(ParseAs(kFormat, fromChunk), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());

    // Offsets that count from any place; the first record belongs to the first chunk.
    for (size_t at = Find(fromChunk, "idx1") + 8; at < fromChunk.size(); at += 16) {
        Patch32(fromChunk, at + 8, Get32(fromChunk, at + 8) + 300);
    }
    ASSERT_EQ(ParseAs(kFormat, fromChunk), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(FormatMode, OfTwoRecordsBothHaveToCountFromTheFirstChunk)
{
    AddMedia(1, 1);
    Bytes file = builder.Build();
    const size_t records = Find(file, "idx1") + 8;
    ASSERT_EQ(file.size(), records + 32);
    ASSERT_GT(builder.MoviOffset(), 302u); // otherwise the offsets would be file offsets
    Patch32(file, records + 8, 300);
    Patch32(file, records + 24, 302); // no chunk stands there
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(TableOffsets(), (std::vector<UInt64>{builder.MoviOffset() - 4 + 302}));
}

TEST_F(FormatMode, ARecordThatIsNowhereLeavesTheBaseToTheRule)
{
    for (const IndexKind eKind : {IndexKind::Idx1Relative, IndexKind::Idx1Absolute}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = eKind;
        AddMedia(4, 2);
        Bytes file = builder.Build();
        std::memcpy(file.data() + Find(file, "idx1") + 8, "77xx", 4);
        ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
        EXPECT_EQ(TableOffsets(), KeyFrames());
    }
}

TEST_F(FormatMode, ARecordListIsFoundByItsHeader)
{
    // A "rec " record names the type of a list. The header of this list stands at the offset.
    builder.eIndex = IndexKind::None;
    builder.Raw(List("rec ", Chunk("00dc", Fill(8)) + Chunk("01wb", Fill(8))));
    const auto record = [](std::string_view id, UInt32 flags, UInt32 offset, UInt32 size) {
        return Text(id) + U32(flags) + U32(offset) + U32(size);
    };
    builder.behindMovi =
        Chunk("idx1", record("rec ", 1, 4, 36) + record("00dc", 0x10, 16, 8) + record("01wb", 0x10, 32, 8));
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(TableOffsets(), std::vector<UInt64>{builder.MoviOffset() + 12});
}

} // namespace
} // namespace avitest
