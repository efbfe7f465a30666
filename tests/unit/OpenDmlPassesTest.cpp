// OpenDML: what the passes leave alone, and what they leave behind.

#include "OpenDmlIndexTest.hpp"

namespace avitest {
namespace {

TEST_F(OpenDmlIndex, ATrackBeyondTheLastIsWalkedAndNotPlaced)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddMedia(0, 20);
    OpenIndexed(builder);
    const auto table = Table();
    ASSERT_EQ(table.size(), 5u);
    Info().TrackNumber[1] = LX_AVIREAD_AUDIO_TRACKS; // no file leads to this value
    ASSERT_EQ(lxAvi2ReadCore_ParseAudioSuperIndex(&Info()), LX_OK);
    EXPECT_TRUE(log.Has("\tAudio frames in stream# 01 =-1"));
    EXPECT_EQ(std::memcmp(Table().data(), table.data(), 5 * sizeof table[0]), 0);
}

TEST_F(OpenDmlIndex, TheFirstLeafHasNoPredecessorOncePlacingBegins)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddMedia(0, 8);
    OpenIndexed(builder);
    Info().KeyFramesListAsArray[0]->pPrevLeaf = Info().KeyFramesListAsArray[0];
    ASSERT_EQ(lxAvi2ReadCore_ParseAudioSuperIndex(&Info()), LX_OK);
    EXPECT_EQ(Info().KeyFramesListAsArray[0]->pPrevLeaf, nullptr);
    const auto* const pBuffer = static_cast<const UInt8*>(Info().pMetaDataBuffer);
    ASSERT_NE(pBuffer, nullptr);
    EXPECT_EQ(Bytes(pBuffer, pBuffer + 18000), Fill(18000, 0)); // the pass has cleared the buffer

    const auto audio = Info().StreamInfo[1]->IndxChunk.aviIndxcommonSection;
    const lxAviReadCore_AviIndxChunkCommonSection_t common = {2, 0, 1, 8, audio.dwChunkId};
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), builder.MoviOffset(), 0), 1);
    ASSERT_EQ(lxAvi2ReadCore_ParseAudioStdIndex(0, &Info(), &common, 0, 0), LX_OK);
    EXPECT_EQ(Bytes(pBuffer, pBuffer + 18000), Fill(18000, 0));
}

TEST_F(OpenDmlIndex, AnUnusableAudioIndexEndsThePlacing)
{
    builder.Add(PcmStream());
    builder.eIndex = IndexKind::SuperStandard;
    for (UInt32 i = 0; i < 8; ++i) {
        builder.Audio(1, Fill(640)).Audio(2, Fill(640)).Frame(0, Fill(10), true);
    }
    Bytes file = builder.Build();
    file[Find(file, "ix01") + 8] = 0; // entries of size 0
    ASSERT_EQ(Open(file), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
    ASSERT_EQ(Info().KeyFramesListAsArrayLength, 1u);
    EXPECT_EQ(Entry(0, 7).videoFrameNumber, 7u);
    EXPECT_EQ(Entry(0, 7).audioChunkOffset[0], 0u);
    EXPECT_EQ(Entry(0, 7).audioChunkOffset[1], 0u); // the reader did not use the second track's index
}

TEST_F(OpenDmlIndex, AReadThatFailsInASuperIndexLeavesItAtOnceAndWithoutEntries)
{
    const Bytes payload = IndxHead(4, 0, 0, 2) + Fill(12) + Fill(32) + Fill(600);
    builder.eIndex = IndexKind::None;
    builder.Raw(payload);
    ASSERT_EQ(Open(builder), LX_OK);
    lxAviReadCore_StreamInfo_t& stream = *Info().StreamInfo[0];
    const auto parse = [&] {
        EXPECT_EQ(lxAviReadCore_FileSeek(&Info(), builder.MoviOffset(), 0), 1);
        return lxAvi2ReadCore_ParseChunkIndx(0, &Info(), static_cast<UInt32>(payload.size()), &stream, 1);
    };
    Faults().FaultRead(0, {});
    ASSERT_EQ(parse(), LX_OK);
    ASSERT_EQ(Faults().Reads(), 4u); // common fields, reserved words, entries, padding
    ASSERT_NE(stream.IndxChunk.pAviSuperIndexEntry, nullptr);
    for (UInt64 n = 1; n <= 3; ++n) {
        Faults().FaultRead(n, {ReadFault::Kind::ShortThenError, 5});
        EXPECT_EQ(parse(), LX_ERR_AVIREAD_READ) << n;
        EXPECT_EQ(Faults().Reads(), n);
        EXPECT_EQ(stream.IndxChunk.pAviSuperIndexEntry, nullptr);
    }
}

TEST_F(OpenDmlIndex, AStreamWhoseOneLevelIndexIsTakenInPassesOverAnother)
{
    builder.eIndex = IndexKind::OneLevelStandard;
    AddMedia(0, 8);
    ASSERT_EQ(Open(builder), LX_OK);
    lxAviReadCore_StreamInfo_t& video = *Info().StreamInfo[0];
    ASSERT_EQ(video.bIndexParsed, 1);
    const Bytes file = builder.Build();
    const size_t indx = Find(file, "indx");
    const size_t next = Find(file, "LIST", indx);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), indx + 8, 0), 1);
    const auto size = static_cast<UInt32>(next - indx - 8);
    Info().AviHdr->dwFlags = 0; // the main header promises no idx1
    // The reader does not build a table, and skips the whole chunk.
    EXPECT_EQ(lxAvi2ReadCore_ParseChunkIndx(0, &Info(), size, &video, 1), LX_OK);
    EXPECT_EQ(video.bIndexParsed, 1);
    EXPECT_EQ(ftello64(Info().pFile), static_cast<std::int64_t>(next));
}

TEST_F(OpenDmlIndex, EveryIndexChunkSetsItsOwnBatchSize)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.dmlhTotalFrames = 3000;
    AddMediaWithoutAudio();
    builder.NextRiff();
    AddMediaWithoutAudio();
    Bytes file = builder.Build();
    file[Find(file, "ix00") + 8] = 4; // entries of 16 bytes: a read takes 1125 records
    ASSERT_EQ(Open(file), LX_OK);
    const size_t before = Faults().ReadSizes().size();
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    std::vector<UInt64> batches;
    for (size_t i = before; i < Faults().ReadSizes().size(); ++i) {
        if (Faults().ReadSize(i) >= 750 * 8) {
            batches.push_back(Faults().ReadSize(i));
        }
    }
    const std::vector<UInt64> once = {9000, 9000, 6000, 18000, 6000}; // 1125 + 1125 + 750, 2250 + 750
    std::vector<UInt64> twice = once;
    twice.insert(twice.end(), once.begin(), once.end());
    EXPECT_EQ(batches, twice);
}

TEST_F(OpenDmlIndex, AOneLevelTableIsBuiltWithABatchSizeOfItsOwn)
{
    builder.eIndex = IndexKind::None;
    builder.Frame(0, Fill(96, 0x11), true);
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), builder.MoviOffset() + 8, 0), 1);
    Info().uiMaxRecordsInBuffer = 1;
    const lxAviReadCore_AviIndxChunkCommonSection_t common = {3, 1, 1, 8, Code("00dc")};
    ASSERT_EQ(lxAvi2ReadCore_ParseVideoStdIndex(0, &Info(), 0, &common, 1000, 0, 1, 1), LX_OK);
    EXPECT_EQ(Info().uiMaxRecordsInBuffer, 1500u);
    const auto* const pBuffer = static_cast<const UInt8*>(Info().pMetaDataBuffer);
    EXPECT_EQ(Bytes(pBuffer, pBuffer + 18000), Fill(18000, 0)); // the pass has cleared the buffer
}

TEST_F(OpenDmlIndex, WithoutABatchBufferNothingIsTouched)
{
    builder.eIndex = IndexKind::None;
    ASSERT_EQ(Open(builder), LX_OK);
    log.Clear();
    Faults().FailAllocation(1);
    const lxAviReadCore_AviIndxChunkCommonSection_t common = {2, 0, 1, 1, Code("01wb")};
    EXPECT_EQ(lxAvi2ReadCore_ParseAudioStdIndex(0, &Info(), &common, 0, 0), LX_ERR_AVIREAD_NO_MEMORY);
    EXPECT_TRUE(log.Assertions().empty()); // the function does not check the table
}

TEST_F(OpenDmlIndex, AudioNeedsATable)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddMedia(0, 8);
    ASSERT_EQ(Open(builder), LX_OK);
    static_cast<void>(lxAvi2ReadCore_ParseAudioSuperIndex(&Info()));
    EXPECT_TRUE(log.HasAssertion("pCurrentLeaf!=Null", "List structure must be allocated"));

    builder.eIndex = IndexKind::None;
    ASSERT_EQ(Open(builder), LX_OK);
    log.Clear();
    const lxAviReadCore_AviIndxChunkCommonSection_t common = {2, 0, 1, 0, Code("01wb")};
    EXPECT_EQ(lxAvi2ReadCore_ParseAudioStdIndex(0, &Info(), &common, 0, 0), LX_OK);
    EXPECT_TRUE(log.HasAssertion("pCurrentLeaf!=Null", "List structure must be allocated"));
    EXPECT_EQ(lxAvi2ReadCore_ParseVideoStdIndex(0, &Info(), 0, &common, 0, 0, 1, 0), LX_ERR_AVIREAD_NO_INDEX);
}

} // namespace
} // namespace avitest
