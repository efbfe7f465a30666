// Format mode: indexes without key flags, and indexes that end early.

#include "FormatModeTest.hpp"

namespace avitest {
namespace {

TEST_F(FormatMode, WithoutAKeyFlagTheFirstFrameIsTheKeyFrame)
{
    for (const IndexKind eKind : {IndexKind::Idx1Relative, IndexKind::SuperStandard, IndexKind::SuperField}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = eKind;
        builder.eLayout = IxLayout::At32;
        for (UInt32 i = 0; i < 10; ++i) {
            builder.Audio(1, Fill(640)).Frame(0, Fill(10), false);
        }
        const Bytes file = builder.Build();
        EXPECT_NE(ParseAs(kDefault, file), LX_OK);
        ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
        EXPECT_EQ(TableOffsets(), std::vector<UInt64>{builder.MediaItems()[1].uiOffset});
        EXPECT_EQ(CountDelivered(), 20u);
        EXPECT_EQ(lxAviReadCore_SeekToTime(390, 0, lxAviRead_SetPosRoundDown), 0u);
        EXPECT_EQ(CountDelivered(), 20u);
    }
}

TEST_F(FormatMode, WithoutAKeyFlagEveryFrameOfSomeCodecsIsAKeyFrame)
{
    struct Codec {
        const char* code;
        bool bIntra;
    };
    for (const Codec& codec : {Codec{"MJPG", true}, Codec{"mjpa", true}, Codec{"DIB ", true}, Codec{"dvsd", true},
                               Codec{"YUY2", true}, Codec{"\0\0\0\0", true}, Codec{"HFYU", true}, Codec{"XVID", false},
                               Codec{"\1\0\0\0", false}, Codec{"H264", false}}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        std::memcpy(builder.streams[0].format.data() + 16, codec.code, 4);
        for (UInt32 i = 0; i < 400; ++i) {
            builder.Audio(1, Fill(64)).Frame(0, Fill(10), false);
        }
        ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
        EXPECT_EQ(Table().size(), codec.bIntra ? 400u : 1u) << codec.code;
        EXPECT_EQ(Info().KeyFramesListAsArrayLength, codec.bIntra ? 2u : 1u); // as many leaves as the frames need
    }
}

TEST_F(FormatMode, OneKeyFlagIsEnoughToBeBelieved)
{
    std::memcpy(builder.streams[0].format.data() + 16, "MJPG", 4);
    for (UInt32 i = 0; i < 10; ++i) {
        builder.Frame(0, Fill(10), i == 4);
    }
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(FormatMode, AnIndexWithoutAFrameIsNone)
{
    builder.Audio(1, Fill(64));
    EXPECT_EQ(ParseAs(kFormat, builder.Build()), LX_ERR_AVIREAD_NO_INDEX);
}

TEST_F(FormatMode, WhatOneFileNeededIsForgottenForTheNext)
{
    builder.Frame(0, Fill(10), false).Frame(0, Fill(10), false);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    builder = AviBuilder();
    builder.Add(VideoStream()).Add(PcmStream());
    builder.Frame(0, Fill(10), false).Frame(0, Fill(10), true);
    ASSERT_EQ(ParseAs(kDefault, builder.Build()), LX_OK);
    EXPECT_EQ(Table().size(), 1u);
    EXPECT_EQ(Table()[0].videoFrameNumber, 1u);
}

TEST_F(FormatMode, WhatAFileNeededIsForgottenWithIt)
{
    builder.Frame(0, Fill(10), false).Frame(0, Fill(10), false);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    const UInt64 records = Info().idx1Offset;
    ASSERT_EQ(lxAviReadCore_Reset(), LX_OK);
    Info().pFile = Faults().Open("test.avi", "rb");
    Bytes buffer(18000);
    LendBuffer(buffer);
    Info().uiMaxRecordsInBuffer = 1125;
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), records, 0), 1);
    ASSERT_EQ(lxAviReadCore_ParseIndex_Video(0, &Info(), 32, 1, 1), LX_OK);
    EXPECT_EQ(Info().KeyFramesListAsArray[0]->arrayLength, 0u); // frames without a key flag are not stored
    Info().pMetaDataBuffer = nullptr;
}

TEST_F(FormatMode, WhatOneOpenNeededIsForgottenForTheNextOfTheSameFile)
{
    builder.Frame(0, Fill(10), false).Frame(0, Fill(10), false);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    ASSERT_EQ(Table().size(), 1u); // the first frame; it has no key flag
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
    ASSERT_EQ(lxAviReadCore_Open(0, "", 1, kPlenty, kDefault, &allIndexed), LX_OK);
    // only the pass that fills the table, without the pass that counts
    Bytes buffer(18000);
    LendBuffer(buffer);
    Info().uiMaxRecordsInBuffer = 1125;
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), Info().idx1Offset, 0), 1);
    ASSERT_EQ(lxAviReadCore_ParseIndex_Video(0, &Info(), Info().idx1Size, 1, 1), LX_OK);
    EXPECT_EQ(Info().KeyFramesListAsArray[0]->arrayLength, 0u);
    Info().pMetaDataBuffer = nullptr;
}

TEST_F(FormatMode, AnIdx1ThatEndsEarlyCoversWhatItHas)
{
    AddMedia(1000, 4); // 2000 records: two batches
    const Bytes whole = builder.Build();
    const size_t records = Find(whole, "idx1") + 8;
    for (const size_t kept : {1u, 2u, 9u, 1125u, 1126u, 1999u}) {
        const Bytes file(whole.begin(), whole.begin() + static_cast<long>(records + kept * 16 + 5));
        EXPECT_EQ(ParseAs(kDefault, file), LX_ERR_AVIREAD_EOF);
        const UInt32 result = ParseAs(kFormat, file);
        const size_t keys = (kept / 2 + 3) / 4; // records alternate: audio, frame
        if (keys == 0) {
            EXPECT_EQ(result, LX_ERR_AVIREAD_NO_INDEX);
            continue;
        }
        ASSERT_EQ(result, LX_OK);
        ASSERT_EQ(Table().size(), keys);
        lxAviRead_SetPositionRangeInfo_t range = {};
        ASSERT_EQ(lxAviReadCore_GetSetPositionRangeInfo(&range), LX_OK);
        EXPECT_EQ(range.uiLastKeyFrameNr, 4 * (keys - 1));
        EXPECT_EQ(range.uiEndTimeMsec, 160 * (keys - 1));
        EXPECT_EQ(lxAviReadCore_SeekToTime(39999, 0, lxAviRead_SetPosRoundUp), 160 * (keys - 1));
    }
}

TEST_F(FormatMode, ASuperIndexThatEndsEarlyCoversWhatItHas)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    AddSegments(3, 12, 4);
    const Bytes whole = builder.Build();
    const auto keys = KeyFrames();
    const size_t secondIndex = Find(whole, "ix00", Find(whole, "ix00") + 100);
    struct Cut {
        size_t uiAt;
        size_t uiKeys;
    };
    for (const Cut& cut : {Cut{secondIndex, 3}, Cut{secondIndex + 20, 3}, Cut{secondIndex + 32 + 5 * 8, 5},
                           Cut{secondIndex + 3000, 6}}) {
        const Bytes file(whole.begin(), whole.begin() + static_cast<long>(cut.uiAt));
        EXPECT_NE(ParseAs(kDefault, file), LX_OK);
        ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
        EXPECT_EQ(TableOffsets(), std::vector<UInt64>(keys.begin(), keys.begin() + static_cast<long>(cut.uiKeys)));
        EXPECT_EQ(lxAviReadCore_SeekToTime(99999, 0, lxAviRead_SetPosRoundUp), 160 * (cut.uiKeys - 1));
    }
}

TEST_F(FormatMode, AReadErrorIsNoEarlyEnd)
{
    AddMedia(20, 4);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    Faults().FaultRead(4, {ReadFault::Kind::ShortThenError, 8}); // the first three reads find the base
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_READ);
}

} // namespace
} // namespace avitest
