// OpenDML: indexes on one level, which Open takes in.

#include "OpenDmlIndexTest.hpp"

namespace avitest {
namespace {

TEST_F(OpenDmlIndex, AOneLevelIndexIsTakenInOnlyWithItsOption)
{
    for (const UInt8 option : {UInt8{0}, UInt8{2}, UInt8{127}}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = IndexKind::OneLevelStandard;
        AddMedia(0, 8);
        ASSERT_EQ(Open(builder.Build(), true, 1, kPlenty, option), LX_OK);
        EXPECT_EQ(allIndexed, 0);
        EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
        EXPECT_EQ(Info().bAbsoluteOffsets, 0);
        EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX); // there are no super-index entries
    }
}

TEST_F(OpenDmlIndex, ParsingAgainAfterAOneLevelIndexLosesTheTable)
{
    builder.eIndex = IndexKind::OneLevelStandard;
    AddMedia(0, 8);
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(Table().size(), 2u);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
}

TEST_F(OpenDmlIndex, AOneLevelIndexIsIgnoredWhenTheHeaderPromisesIdx1)
{
    builder.eIndex = IndexKind::OneLevelStandard;
    builder.avih.dwFlags = 0x10;
    AddMedia(0, 8);
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(allIndexed, 0);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
    EXPECT_TRUE(log.Has("lxAviReadCore_ParseChunkIndx: Dumping padded Bytes 64")); // the 8 records of the video
    EXPECT_EQ(Info().StreamInfo[1]->StreamType, 1u);
}

TEST_F(OpenDmlIndex, AnAudioIndexBeforeTheVideosIsSkipped)
{
    builder = AviBuilder();
    builder.Add(PcmStream()).Add(VideoStream());
    builder.eIndex = IndexKind::OneLevelStandard;
    builder.Audio(0, Fill(640)).Frame(1, Fill(10), true).Audio(0, Fill(640));
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(Info().StreamInfo[0]->bIndexParsed, 0);
    EXPECT_EQ(Info().StreamInfo[1]->bIndexParsed, 1);
    EXPECT_EQ(allIndexed, 0);
    EXPECT_EQ(Entry(0, 0).audioChunkOffset[0], 0u);
}

TEST_F(OpenDmlIndex, AOneLevelIndexOfAnotherStreamIsNotTakenIn)
{
    const Bytes records = U32(8) + U32(4);
    ASSERT_EQ(OpenWithIndx(Chunk("indx", IndxHead(2, 0, 1, 1, "05dc") + Fill(12, 0) + records)), LX_OK);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
    EXPECT_EQ(Info().StreamInfo[0]->bIndexParsed, 0);
}

TEST_F(OpenDmlIndex, AUnusableOneLevelIndexIsTolerated)
{
    const Bytes noKey = U32(8) + U32(0x80000004u);
    ASSERT_EQ(OpenWithIndx(Chunk("indx", IndxHead(2, 0, 1, 1) + Fill(12, 0) + noKey) + Chunk("strn", Fill(4))), LX_OK);
    EXPECT_EQ(Info().StreamInfo[0]->bIndexParsed, 0);
    EXPECT_EQ(Info().AviHdr->dwFlags & 0x10u, 0x10u); // Open sets the bit again, because there was an index chunk
    EXPECT_FALSE(log.HasPrefix("AviReadCore : read data unknown")); // the reader has walked to the end of the list
    ASSERT_EQ(OpenWithIndx(Chunk("indx", IndxHead(0, 0, 1, 1) + Fill(12, 0) + noKey)), LX_OK); // entries of size 0
    EXPECT_EQ(OpenWithIndx(Chunk("indx", IndxHead(0x4000, 0, 1, 0) + Fill(12, 0))), LX_OK);
}

TEST_F(OpenDmlIndex, AnEntrySizeThatWraps16BitsIsUnusable)
{
    // The entry size of 0x10000 is 0 in 16 bits.
    Bytes records;
    for (int i = 0; i < 4; ++i) {
        records += U32(8) + U32(4);
    }
    EXPECT_EQ(OpenWithIndx(Chunk("indx", IndxHead(0x4000, 0, 1, 0) + Fill(12, 0) + records)), LX_OK);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
}

TEST_F(OpenDmlIndex, AOneLevelFieldIndexFollowsThreeRulesThatDisagree)
{
    // Three records of 12 bytes. The reader counts three records of 8 bytes, seeks back over 36 bytes, and stores three
    // records of 12 bytes. So the stored records begin 12 bytes before the real records, at the base and the reserved
    // word. The file then stands 12 bytes before the end of the chunk. The header list continues there, and here a
    // chunk begins at that place.
    const Bytes records = U32(1000) + U32(10) + U32(1) + U32(2000) + U32(20) + U32(2) + Chunk("JUNK", Fill(4));
    ASSERT_EQ(OpenWithIndx(Chunk("indx", IndxHead(3, 1, 1, 3) + U64(100) + U32(0) + records)), LX_OK);
    const auto table = Table();
    ASSERT_EQ(table.size(), 3u);
    EXPECT_EQ(table[0].videoChunkOffset, 192u); // the reader uses the base as an offset
    EXPECT_EQ(table[1].videoChunkOffset, 1092u);
    EXPECT_EQ(table[2].videoChunkOffset, 2092u);
}

TEST_F(OpenDmlIndex, OneLevelFailuresPassThroughTheCommonExit)
{
    builder.eIndex = IndexKind::OneLevelStandard;
    AddMedia(0, 8);
    const Bytes file = builder.Build();
    // the budget is too small
    EXPECT_EQ(Open(file, true, 1, 100), LX_ERR_AVIREAD_NO_MEMORY);
    // Alloc makes 2 + 17 x 3 allocations; then come the batch buffer, the array, the leaf, and the audio's batch buffer
    for (UInt64 n = 54; n <= 57; ++n) {
        ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
        Faults().FailAllocation(n);
        EXPECT_EQ(Open(file), LX_ERR_AVIREAD_NO_MEMORY) << n;
        Faults().FailAllocation(0);
    }
    // the seek back fails
    Faults().FailSeek(1);
    EXPECT_EQ(Open(file), LX_ERR_AVIREAD_SEEK);
    Faults().FailSeek(0);
    // the reads of the chunk's own fields, and those that count, store and assign the audio
    UInt32 failures = 0;
    for (UInt64 n = 1; n <= 40; ++n) {
        Faults().FaultRead(n, {ReadFault::Kind::ShortThenError, 1});
        const UInt32 result = Open(file);
        EXPECT_TRUE(result == LX_OK || result == LX_ERR_AVIREAD_READ) << n;
        failures += result != LX_OK ? 1 : 0;
    }
    EXPECT_GT(failures, 25u);
}

TEST_F(OpenDmlIndex, APaddingSkipThatFailsCountsOnlyWithoutAnErrorBefore)
{
    const Bytes cutPadding = ChunkOfSize("indx", 12 + 12 + 5000, IndxHead(2, 0, 1, 1) + Fill(12, 0) + U32(8) + U32(4));
    EXPECT_EQ(OpenWithIndx(cutPadding), LX_ERR_AVIREAD_READ);
    const Bytes noKey =
        ChunkOfSize("indx", 12 + 12 + 5000, IndxHead(2, 0, 1, 1) + Fill(12, 0) + U32(8) + U32(0x80000004u));
    // the result NO_INDEX is tolerated, and the walk then meets the end of the file
    EXPECT_EQ(OpenWithIndx(noKey), LX_ERR_AVIREAD_EOF);
}

TEST_F(OpenDmlIndex, RecordsSoughtBackOverDoNotLeadToTheSameListForEver)
{
    // The second header list holds only an index of the main video stream. Its 14 entries are read as 8 bytes each, but
    // the seek back assumes 20 bytes each, so it leads back to the same list.
    const Stream video = VideoStream();
    const Bytes first = List("hdrl", List("strl", Chunk("strh", AsBytes(video.header)) + Chunk("strf", video.format)));
    Bytes records;
    for (UInt32 i = 0; i < 14; ++i) {
        records += U32(8) + U32(4);
    }
    const Bytes indx = IndxHead(5, 0, 1, 14) + Fill(12, 0) + records + Fill(168 - records.size() + 60, 0);
    const Bytes second = List("hdrl", List("strl", Chunk("indx", indx)));
    for (UInt32 pad = 0; pad < 120; pad += 4) {
        const Bytes file = Riff("AVI ", first + Chunk("JUNK", Fill(pad)) + second + Fill(16, 0) +
                                            List("movi", Chunk("00dc", Fill(4))));
        static_cast<void>(Open(file)); // Open has to return
    }
}

TEST_F(OpenDmlIndex, EntriesAreReadInPiecesThatGrow)
{
    // 10000 entries have 160000 bytes. The reader reads them in pieces of 64 KiB, 64 KiB and the rest.
    Bytes entries;
    for (UInt32 i = 0; i < 10000; ++i) {
        entries += U64(i) + U32(i) + U32(0);
    }
    log.SetMask(0);
    ASSERT_EQ(OpenWithIndx(Chunk("indx", IndxHead(4, 0, 0, 10000) + Fill(12) + entries)), LX_OK);
    const auto* const pEntries = Info().StreamInfo[0]->IndxChunk.pAviSuperIndexEntry;
    ASSERT_EQ(std::memcmp(pEntries, entries.data(), entries.size()), 0);
    EXPECT_EQ(Faults().LargestAllocation(), 160000u);
    for (UInt64 n = 54; n <= 57; ++n) {
        ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
        Faults().FailAllocation(n);
        EXPECT_EQ(OpenWithIndx(Chunk("indx", IndxHead(4, 0, 0, 10000) + Fill(12) + entries)), LX_ERR_AVIREAD_NO_MEMORY);
    }
    Faults().FailAllocation(0);
}

TEST_F(OpenDmlIndex, NullOutputsOfThePassesAreAsserted)
{
    AddMedia(0, 8);
    ASSERT_EQ(Open(builder), LX_OK);
    UInt32 value = 0;
    EXPECT_EQ(lxAvi2ReadCore_PreParseVideoIndex(0, &Info(), &value, &value, &value, nullptr), LX_OK);
    EXPECT_EQ(lxAviReadCore_PreParseIdx1Chunk(&Info(), 16, &value, &value, &value, nullptr), LX_OK);
    EXPECT_EQ(lxAvi2ReadCore_FillVideoKFramesInKFTable(&Info(), nullptr, &value, 1, 0, 0, 0, 1, &value, &value), LX_OK);
    EXPECT_EQ(lxAvi2ReadCore_FillAudioInfoInKFTable(&Info(), 1, 0, 0, 0, 0, nullptr, nullptr, &value), LX_OK);
    EXPECT_EQ(log.Assertions().size(), 4u);
}

TEST_F(OpenDmlIndex, ASecondIndexChunkReplacesTheFirst)
{
    // the first index chunk is unusable, so the walk over the stream list continues to the second
    const Bytes unusable = Chunk("indx", IndxHead(2, 0, 1, 0) + Fill(12, 0));
    const Bytes super = Chunk("indx", IndxHead(4, 0, 0, 1) + Fill(12) + Fill(16));
    ASSERT_EQ(OpenWithIndx(unusable + super), LX_OK);
    EXPECT_NE(Info().StreamInfo[0]->IndxChunk.pAviSuperIndexEntry, nullptr);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
    ASSERT_EQ(lxAviReadCore_Open(0, "", 1, kPlenty, 1, &allIndexed), LX_OK); // same records again: no leak
}

// Ten records of 10 bytes at 1008, 1108, …: every other one is a key frame. The pass functions are called by
// themselves.
class FillFunctions : public OpenDmlIndex {
protected:
    Bytes buffer = Bytes(18000);
    lxAviReadCore_KeyFrameLeaf_t* pLeaf = nullptr;
    UInt32 frame = 0, skip = 0, leafNr = 0;

    void SetUp() override
    {
        Bytes records;
        for (UInt32 i = 0; i < 10; ++i) {
            records += U32(1008 + 100 * i) + U32(i % 2 == 0 ? 10 : 0x8000000Au);
        }
        builder.Frame(0, records, true);
        ASSERT_EQ(Open(builder), LX_OK);
        Info().uiMaxRecordsInBuffer = 2250;
        LendBuffer(buffer);
        ASSERT_EQ(lxAvi2ReadCore_CreateKFTable(0, &Info(), 2), LX_OK);
        pLeaf = Info().KeyFramesListAsArray[0];
        GoToRecords();
    }

    void GoToRecords() { ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), builder.MoviOffset() + 8, 0), 1); }

    // The key frames of the next five records.
    void Fill5(UInt32 skipKey)
    {
        ASSERT_EQ(lxAvi2ReadCore_FillVideoKFramesInKFTable(&Info(), &pLeaf, &frame, 5, 0, Code("00dc"), 0, skipKey,
                                                           &skip, &leafNr),
                  LX_OK);
    }
};

TEST_F(FillFunctions, StoreKeyFramesFromRunToRun)
{
    Fill5(2);
    Fill5(2);
    EXPECT_EQ(frame, 10u);
    EXPECT_EQ(skip, 1u);
    EXPECT_EQ(leafNr, 0u);
    EXPECT_EQ(pLeaf, Info().KeyFramesListAsArray[0]);
    ASSERT_EQ(pLeaf->arrayLength, 3u); // stores 0, 4 and 8 of the key frames 0, 2, 4, 6, 8
    EXPECT_EQ(pLeaf->array[1].videoFrameNumber, 4u);
    EXPECT_EQ(pLeaf->array[2].videoChunkOffset, 1800u);
}

TEST_F(FillFunctions, ClearTheNextLeafWhenOneIsFull)
{
    Fill5(1);
    frame = skip = leafNr = 0;
    pLeaf->arrayLength = kLeaf;
    Info().KeyFramesListAsArray[1]->arrayLength = 7;
    Info().KeyFramesListAsArray[1]->array[3].videoFrameNumber = 7;
    GoToRecords();
    Fill5(1);
    EXPECT_EQ(leafNr, 1u);
    EXPECT_EQ(pLeaf->arrayLength, 3u);
    EXPECT_EQ(pLeaf->array[3].videoFrameNumber, 0u);
    EXPECT_EQ(pLeaf->pPrevLeaf, Info().KeyFramesListAsArray[0]);
}

TEST_F(FillFunctions, SkipOneKeyFrameForASkipCounterThatIsNot0)
{
    skip = 1; // also when every key frame is stored
    Fill5(1);
    EXPECT_EQ(skip, 0u);
    EXPECT_EQ(pLeaf->arrayLength, 2u); // 2 and 4 of the key frames 0, 2, 4
}

TEST_F(FillFunctions, CountAudioFromRunToRun)
{
    lxAvi2ReadCore_AudioIndexState_t state = {};
    lxAviReadCore_KeyFramePosition_t cursor = {0, 0, 0, 1};
    UInt32 cursorTime = 0;
    for (int half = 0; half < 2; ++half) {
        ASSERT_EQ(
            lxAvi2ReadCore_FillAudioInfoInKFTable(&Info(), 5, 0, Code("01wb"), 0, 0, &state, &cursor, &cursorTime),
            LX_OK);
    }
    EXPECT_EQ(state.chunkCount, 10u);
    EXPECT_EQ(state.totalBytes, 100u);
    EXPECT_EQ(state.lastChunkOffset, 1900u);
    EXPECT_EQ(state.lastChunkBytePosition, 90u);
}

TEST_F(FillFunctions, CountKeyFramesOfAnyRecords)
{
    UInt32 count = 7;
    EXPECT_EQ(lxAvi2ReadCore_GetTotalKFramesInStdIndxChunk(&Info(), 0, &count), LX_OK);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(lxAvi2ReadCore_GetTotalKFramesInStdIndxChunk(&Info(), 0, nullptr), LX_OK);
    EXPECT_EQ(lxAvi2ReadCore_GetTotalKFramesInFieldIndxChunk(&Info(), 6, &count), LX_OK);
    EXPECT_EQ(count, 5u); // the second word of each 12-byte record counts as its size
}

} // namespace
} // namespace avitest
