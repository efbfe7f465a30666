// OpenDML: hostile entry sizes, counts, sub types, stream numbers and offsets.

#include "OpenDmlIndexTest.hpp"

namespace avitest {
namespace {

TEST_F(OpenDmlIndex, EntrySizesAreClampedToTheBatchBuffer)
{
    for (const auto& [longs, result] : {std::pair<UInt32, UInt32>{0, LX_ERR_AVIREAD_NO_INDEX},
                                        {1, LX_OK},
                                        {3, LX_OK},
                                        {0x4000, LX_OK},
                                        {0xFFFF, LX_OK}}) {
        builder = AviBuilder();
        builder.Add(VideoStream());
        builder.eIndex = IndexKind::SuperStandard;
        AddMediaWithoutAudio();
        Bytes file = builder.Build();
        const size_t ix = Find(file, "ix00");
        file[ix + 8] = static_cast<UInt8>(longs);
        file[ix + 9] = static_cast<UInt8>(longs >> 8);
        log.SetMask(0);
        ASSERT_EQ(Open(file), LX_OK);
        const size_t reads = Faults().ReadSizes().size();
        EXPECT_EQ(lxAviReadCore_ParseIndex(0), result) << longs;
        for (size_t i = reads; i < Faults().ReadSizes().size(); ++i) {
            EXPECT_LE(Faults().ReadSize(i), 18000u);
        }
        if (result == LX_OK) {
            EXPECT_EQ(Table().size(), 3000u);
        }
    }
}

TEST_F(OpenDmlIndex, BatchesHold2250StandardAnd1500FieldRecords)
{
    for (const auto& [eKind, batch] : {std::pair{IndexKind::SuperStandard, 2250u}, {IndexKind::SuperField, 1500u}}) {
        builder = AviBuilder();
        builder.Add(VideoStream());
        builder.eIndex = eKind;
        AddMediaWithoutAudio();
        log.SetMask(0);
        ASSERT_EQ(Open(builder), LX_OK);
        const size_t reads = Faults().ReadSizes().size();
        ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
        EXPECT_EQ(Info().uiMaxRecordsInBuffer, batch);
        const std::vector<UInt64> sizes(Faults().ReadSizes().begin() + static_cast<long>(reads),
                                        Faults().ReadSizes().end());
        const UInt64 last = (3000 - batch) * (batch == 2250 ? 8u : 12u);
        EXPECT_EQ(sizes, (std::vector<UInt64>{1, 1, 1, 1, 32, 18000, last, 1, 1, 1, 1, 32, 18000, last}));
    }
}

TEST_F(OpenDmlIndex, AnUnknownSubTypeCountsNothingAndFillsNothing)
{
    for (const UInt8 subType : {UInt8{2}, UInt8{255}}) {
        builder = AviBuilder();
        builder.Add(VideoStream());
        builder.eIndex = IndexKind::SuperStandard;
        builder.Frame(0, Fill(4), true);
        Bytes file = builder.Build();
        file[Find(file, "ix00") + 10] = subType;
        ASSERT_EQ(Open(file), LX_OK);
        EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
    }
}

TEST_F(OpenDmlIndex, MoreKeyFramesThanCountedAreDropped)
{
    // Two lists. The index of the second list has a sub type for which the reader counts no key frames, but stores
    // them.
    builder = AviBuilder();
    builder.Add(VideoStream());
    builder.eIndex = IndexKind::SuperStandard;
    builder.dmlhTotalFrames = 1000;
    for (UInt32 i = 0; i < 363; ++i) {
        builder.Frame(0, Fill(4), true);
    }
    builder.NextRiff();
    for (UInt32 i = 0; i < 5; ++i) {
        builder.Frame(0, Fill(4), true);
    }
    Bytes file = builder.Build();
    file[Find(file, "ix00", Find(file, "ix00") + 4) + 10] = 7;
    log.SetMask(0);
    ASSERT_EQ(Open(file), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(Table().size(), 363u);
    EXPECT_EQ(log.Assertions().size(), 1u); // one assertion, although several key frames are dropped
    EXPECT_TRUE(log.HasAssertion("pCurrentLeaf!=Null", "List structure must be initialized"));
}

TEST_F(OpenDmlIndex, RecordCountsNear2To32MeetTheEndOfTheFile)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddMedia(0, 8);
    Bytes file = builder.Build();
    Patch32(file, Find(file, "ix00") + 12, 0xFFFFFFFFu);
    ASSERT_EQ(Open(file), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_EOF);
}

TEST_F(OpenDmlIndex, StreamsThatAreNotThereAreCountedNowhere)
{
    for (const char* digits : {"17", "99", "zz", "//", "05"}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = IndexKind::SuperStandard;
        AddMedia(0, 8);
        Bytes file = builder.Build();
        const size_t ix = Find(file, "ix00");
        file[ix + 16] = static_cast<UInt8>(digits[0]); // the id of the indexed chunks
        file[ix + 17] = static_cast<UInt8>(digits[1]);
        const size_t audioIndx = Find(file, "indx", Find(file, "indx") + 4);
        file[audioIndx + 16] = static_cast<UInt8>(digits[0]);
        file[audioIndx + 17] = static_cast<UInt8>(digits[1]);
        ASSERT_EQ(Open(file), LX_OK);
        EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_OK) << digits;
        EXPECT_EQ(Info().StreamInfo[0]->uiStreamSize, 0u);
        EXPECT_EQ(Table()[0].audioChunkOffset[0], 0u);
    }
}

TEST_F(OpenDmlIndex, SuperIndexOffsetsMayPointAnywhere)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddMedia(0, 8);
    const Bytes good = builder.Build();
    const size_t entry = Find(good, "indx") + 8 + 24;
    for (const UInt64 offset : {UInt64{0}, UInt64{12}, static_cast<UInt64>(entry), static_cast<UInt64>(good.size()),
                                UInt64{0x7FFFFFFF}, UInt64{0x80000000u}, UInt64{0xFFFFFFFFFFFFFFFFull}}) {
        Bytes file = good;
        Patch32(file, entry, static_cast<UInt32>(offset));
        Patch32(file, entry + 4, static_cast<UInt32>(offset >> 32));
        ASSERT_EQ(Open(file), LX_OK);
        const UInt32 result = lxAviReadCore_ParseIndex(0);
        EXPECT_EQ(result, static_cast<UInt32>(offset) >= 0x80000000u ? LX_ERR_AVIREAD_SEEK : LX_ERR_AVIREAD_EOF)
            << offset;
    }
}

// A file whose super index names one index chunk again and again. The index chunk stands before the media data. All its
// records are key frames.
class RepeatedIndexChunk : public OpenDmlIndex {
protected:
    static constexpr UInt32 kRecords = 4000;
    UInt64 indexOffset = 0;

    Bytes Repeat(UInt32 records, UInt32 times, UInt32 recordBytes = 8)
    {
        AviBuilder file;
        file.Add(VideoStream()).Frame(0, Fill(4), true);
        file.eIndex = IndexKind::None;
        const UInt8 subType = recordBytes == 12 ? 1 : 0;
        const Bytes word = U32(0); // the default mode reads it behind the header
        file.beforeMovi = Chunk("ix00", IndxHead(recordBytes / 4, subType, 1, records) + Fill(12, 0) + word +
                                            Fill(records * recordBytes, 0));
        file.streams[0].extra = Chunk("indx", IndxHead(4, 0, 0, times) + Fill(12, 0) + Fill(16 * times, 0));
        Bytes bytes = file.Build();
        indexOffset = Find(bytes, "ix00");
        for (UInt32 i = 0; i < times; ++i) {
            Patch32(bytes, Find(bytes, "indx") + 8 + 24 + 16 * i, static_cast<UInt32>(indexOffset));
        }
        return bytes;
    }

    UInt32 KeyFrameCount()
    {
        UInt32 count = 0;
        for (UInt32 i = 0; i < Info().KeyFramesListAsArrayLength; ++i) {
            count += Info().KeyFramesListAsArray[i]->arrayLength;
        }
        return count;
    }

    // The number of index chunks that the counting walk goes to before the reader refuses one.
    size_t Visited(const Bytes& file)
    {
        EXPECT_EQ(Open(file), LX_OK);
        log.SetMask(0x200);
        log.Clear();
        EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
        return log.CountPrefix("Fseeking(");
    }
};

TEST_F(RepeatedIndexChunk, IsTakenEachTime)
{
    for (const UInt8 option : {UInt8{1}, UInt8{LX_AVIREAD_FOLLOW_FORMAT}}) {
        indxOptionOfOpen = option;
        ASSERT_EQ(Open(Repeat(200, 2)), LX_OK);
        EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
        EXPECT_EQ(KeyFrameCount(), 400u);
    }
}

TEST_F(RepeatedIndexChunk, IsRefusedBeyond16MiBAndEightTimesTheFurthestPosition)
{
    for (const UInt32 recordBytes : {8u, 12u}) {
        const UInt64 bytes = UInt64{kRecords} * recordBytes;
        Bytes file = Repeat(kRecords, 600, recordBytes);
        const UInt64 budget = 16777216 + 8 * (indexOffset + bytes);
        EXPECT_EQ(Visited(file), budget / bytes + 1);
    }
}

TEST_F(RepeatedIndexChunk, IsNoFurtherAwayWhereA32BitSeekIgnoresTheUpperHalf)
{
    Bytes file = Repeat(kRecords, 600);
    for (UInt32 i = 0; i < 600; ++i) {
        Patch32(file, Find(file, "indx") + 8 + 24 + 16 * i + 4, i % 3);
    }
    EXPECT_EQ(Visited(file), (16777216 + 8 * (indexOffset + kRecords * 8)) / (kRecords * 8) + 1);
}

TEST_F(RepeatedIndexChunk, IsNotAllowedMoreByAChunkThatClaimsRecordsWhichNobodyReads)
{
    Bytes file = Repeat(kRecords, 600);
    const size_t entries = Find(file, "indx") + 8 + 24;
    Patch32(file, entries, static_cast<UInt32>(file.size())); // the first entry names a chunk of an unknown sub type
    file += Text("ix00") + U32(24) + IndxHead(2, 7, 1, 0xFFFFFFFFu) + Fill(16, 0);
    EXPECT_EQ(Visited(file), 1 + (16777216 + 8 * (UInt64{file.size()} - 36)) / (kRecords * 8) + 1);
}

TEST_F(RepeatedIndexChunk, IsTakenAsOftenAsTheBudgetAllows)
{
    const Bytes file = Repeat(kRecords, 534);
    ASSERT_EQ((16777216 + 8 * (indexOffset + kRecords * 8)) / (kRecords * 8), 534u);
    log.SetMask(0);
    ASSERT_EQ(Open(file), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
}

} // namespace
} // namespace avitest
