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

} // namespace
} // namespace avitest
