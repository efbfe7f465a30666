// Tests the key-frame table: budget, leaves, construction and release.

#include "ReaderTest.hpp"

namespace avitest {
namespace {

class KeyFrameTableTest : public ReaderTest {
protected:
    struct Budget {
        UInt32 result, keyFrames, leafs, memory, skip;
    };

    Budget Calculate(UInt32 keyFrames, UInt32 limit)
    {
        Info().memoryUsageLimit = limit;
        Budget budget = {0, keyFrames, 77, 78, 79};
        budget.result = lxAviReadCore_CalcLeafsNeededAndSkipValue(&Info(), &budget.keyFrames, &budget.leafs,
                                                                  &budget.memory, &budget.skip);
        return budget;
    }

    // A file in which every `step`-th frame is a key frame.
    static AviBuilder Frames(UInt32 count, UInt32 step = 1)
    {
        AviBuilder builder;
        builder.Add(VideoStream());
        for (UInt32 i = 0; i < count; ++i) {
            builder.Frame(0, Fill(4), i % step == 0);
        }
        return builder;
    }

    void OpenFrames(UInt32 count, UInt32 step = 1, UInt32 budget = kPlenty)
    {
        log.SetMask(0x8F00);
        AviBuilder builder = Frames(count, step);
        Faults().SetBuffered(true);
        OpenIndexed(builder, budget);
    }
};

TEST_F(KeyFrameTableTest, AThousandKeyFramesInOneLeafAreThinnedToAThird)
{
    const Budget budget = Calculate(1000, kOneLeafBudget);
    EXPECT_EQ(budget.result, LX_OK);
    EXPECT_EQ(budget.skip, 3u);
    EXPECT_EQ(budget.keyFrames, 334u);
    EXPECT_EQ(budget.leafs, 1u);
    EXPECT_EQ(budget.memory, kLeafBytes);
}

TEST_F(KeyFrameTableTest, ABudgetOfOneLeafHoldsOneLeaf)
{
    const Budget exact = Calculate(363, kOneLeafBudget);
    EXPECT_EQ(exact.skip, 1u);
    EXPECT_EQ(exact.leafs, 1u);
    const Budget oneMore = Calculate(364, kOneLeafBudget);
    EXPECT_EQ(oneMore.result, LX_OK);
    EXPECT_EQ(oneMore.skip, 2u);
    EXPECT_EQ(oneMore.keyFrames, 182u);
    EXPECT_EQ(oneMore.leafs, 1u);
}

TEST_F(KeyFrameTableTest, AByteLessHoldsNone)
{
    const Budget budget = Calculate(5, kOneLeafBudget - 1);
    EXPECT_EQ(budget.result, LX_ERR_AVIREAD_NO_MEMORY);
    EXPECT_EQ(budget.keyFrames, 5u); // the function does not change its outputs
    EXPECT_EQ(budget.leafs, 77u);
    EXPECT_EQ(budget.memory, 78u);
    EXPECT_EQ(budget.skip, 79u);
}

TEST_F(KeyFrameTableTest, NoKeyFramesAreNoIndex)
{
    const Budget budget = Calculate(0, kPlenty);
    EXPECT_EQ(budget.result, LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_EQ(budget.leafs, 0u);
    EXPECT_EQ(budget.memory, 0u);
    EXPECT_EQ(budget.skip, 0u);
}

TEST_F(KeyFrameTableTest, LeavesAreCountedWithoutTheirPointers)
{
    const Budget budget = Calculate(3 * kLeaf + 1, kPlenty);
    EXPECT_EQ(budget.leafs, 4u);
    EXPECT_EQ(budget.memory, 4 * kLeafBytes);
    EXPECT_EQ(budget.skip, 1u);
}

TEST_F(KeyFrameTableTest, TheLargestCountIsCalculated)
{
    const Budget budget = Calculate(0xFFFFFFFFu, kOneLeafBudget);
    EXPECT_EQ(budget.result, LX_OK);
    EXPECT_EQ(budget.skip, 11831866u); // leaves of 363
    EXPECT_EQ(budget.keyFrames, 363u);
    EXPECT_EQ(budget.leafs, 1u);
}

TEST_F(KeyFrameTableTest, NullOutputsAreAsserted)
{
    UInt32 value = 1;
    EXPECT_EQ(lxAviReadCore_CalcLeafsNeededAndSkipValue(&Info(), &value, &value, nullptr, &value), LX_OK);
    EXPECT_EQ(log.Assertions().size(), 1u);
}

TEST_F(KeyFrameTableTest, ALeafIsFullWith363Entries)
{
    OpenFrames(363);
    EXPECT_EQ(Table().size(), 363u);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 1u);
}

TEST_F(KeyFrameTableTest, TheNextKeyFrameRollsOver)
{
    ASSERT_EQ(Open(Frames(364).Build()), LX_OK);
    log.Clear();
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(Table().size(), 364u);
    ASSERT_EQ(Info().KeyFramesListAsArrayLength, 2u);
    EXPECT_EQ(Info().KeyFramesListAsArray[0]->pNextLeaf, Info().KeyFramesListAsArray[1]);
    EXPECT_EQ(Info().KeyFramesListAsArray[1]->pPrevLeaf, Info().KeyFramesListAsArray[0]);
    EXPECT_TRUE(log.Has("Leaf 0 if full, filling 1 leaf"));
    EXPECT_TRUE(log.Has("AviRead:Succeeded allocating " + std::to_string(2 * sizeof(void*)) + " bytes for 2 leafs"));
    EXPECT_TRUE(log.Has("Succeeded allocating the full array pAviInfo->KeyFramesListAsArray[2]"));
    EXPECT_TRUE(log.Has("AviRead:leafsCounter=2"));
    EXPECT_TRUE(log.Has("\tNumber of leafs                      =2"));
    EXPECT_TRUE(log.Has("\tNumber of key frames                 =364"));
    EXPECT_TRUE(log.Has("\tNumber of video frames               =364"));
}

TEST_F(KeyFrameTableTest, ThinningKeepsEveryThirdAndCountsEveryFrame)
{
    OpenFrames(2000, 2, kOneLeafBudget); // 1000 key frames
    const auto table = Table();
    ASSERT_EQ(table.size(), 334u);
    for (UInt32 i = 0; i < table.size(); ++i) {
        EXPECT_EQ(table[i].videoFrameNumber, 6 * i);
        EXPECT_EQ(table[i].timeMsec, 240u * i);
    }
}

TEST_F(KeyFrameTableTest, EntriesAreAllInPlaceAcrossManyLeaves)
{
    OpenFrames(1500);
    const auto table = Table();
    ASSERT_EQ(table.size(), 1500u);
    for (UInt32 i = 0; i < 1500; ++i) {
        EXPECT_EQ(table[i].videoFrameNumber, i);
        EXPECT_EQ(table[i].videoChunkOffset, 4u + 12u * i);
        EXPECT_EQ(table[i].timeMsec, 40u * i);
    }
}

TEST_F(KeyFrameTableTest, TheTableKeepsWithinItsBudget)
{
    for (const UInt32 leafs : {1u, 2u, 3u, 7u}) {
        const UInt32 budget = leafs * kOneLeafBudget + 17;
        OpenFrames(3000, 1, budget);
        const UInt32 used = Info().KeyFramesListAsArrayLength * kOneLeafBudget;
        EXPECT_LE(used, budget);
        EXPECT_GE(Table().size(), 1u);
    }
}

TEST_F(KeyFrameTableTest, WithoutKeyFlagsThereIsNoTable)
{
    AviBuilder builder;
    builder.Add(VideoStream()).Frame(0, Fill(4), false).Frame(0, Fill(4), false);
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_EQ(Info().KeyFramesListAsArray, nullptr);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
}

TEST_F(KeyFrameTableTest, AFailedAllocationLeavesNoTable)
{
    const Bytes file = Frames(800).Build(); // three leaves
    for (UInt64 n = 1; n <= 5; ++n) {
        ASSERT_EQ(Open(file), LX_OK);
        const UInt64 live = Faults().LiveAllocations();
        log.Clear();
        Faults().FailAllocation(n); // n = 1: the batch buffer, 2: the array, 3 to 5: the leaves
        EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_MEMORY) << n;
        EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
        if (n == 2) {
            EXPECT_TRUE(log.Has("AviRead:Failed allocating " + std::to_string(3 * sizeof(void*)) +
                                " bytes for pAviInfo->KeyFramesListAsArray"));
        }
        if (n >= 3) {
            EXPECT_TRUE(log.Has("Failed allocating " + std::to_string(kLeafBytes) +
                                " bytes for pAviInfo->KeyFramesListAsArray[" + std::to_string(n - 3) + "]"));
            EXPECT_LE(Faults().LiveAllocations(), live + 2); // the reader frees the leaves at once
            EXPECT_EQ(Info().KeyFramesListAsArray[0], nullptr);
        }
        Faults().FailAllocation(0);
        EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_OK); // the next call succeeds
        EXPECT_EQ(Table().size(), 800u);
    }
}

TEST_F(KeyFrameTableTest, ASecondParseReleasesTheFirstTable)
{
    OpenFrames(400);
    const UInt64 live = Faults().LiveAllocations();
    log.SetMask(0x800);
    log.Clear();
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(Faults().LiveAllocations(), live);
    EXPECT_EQ(log.CountPrefix("lxalAviRead_Free( 0x"), 4u); // two leaves, the array, the batch buffer
    EXPECT_EQ(Table().size(), 400u);
}

TEST_F(KeyFrameTableTest, OfATableThatCouldNotBeMadeOnlyTheArrayIsLeft)
{
    OpenFrames(800);            // three leaves
    Faults().FailAllocation(4); // the allocation after the batch buffer, the array and one leaf
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_MEMORY);
    Faults().FailAllocation(0);
    log.SetMask(0x800);
    log.Clear();
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(log.CountPrefix("lxalAviRead_Free( 0x"), 2u); // the array, and at the end the batch buffer
}

TEST_F(KeyFrameTableTest, TheCleanUpTracesItsFrees)
{
    OpenFrames(400);
    log.SetMask(0x800);
    log.Clear();
    ASSERT_EQ(lxAviReadCore_Reset(), LX_OK);
    EXPECT_EQ(log.Count("Freeing pAviInfo->KeyFramesListAsArray[uiLoopCnt]"), 2u);
    EXPECT_EQ(log.Count("Freeing pAviInfo->KeyFramesListAsArray"), 1u);
    EXPECT_EQ(log.Count("Freeing pAviInfo->pCurrentAvix"), 1u);
}

TEST_F(KeyFrameTableTest, ALengthSetToZeroDoesNotLeakTheLeaves)
{
    OpenFrames(400);
    EXPECT_EQ(Calculate(0, kPlenty).result, LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u); // the fixture checks for leaks
}

TEST_F(KeyFrameTableTest, PrintingChangesNothing)
{
    OpenFrames(400);
    log.SetMask(0x200);
    const Bytes before = AsBytes(Info());
    EXPECT_EQ(lxAviReadCore_PrintIndex(), LX_OK);
    EXPECT_EQ(AsBytes(Info()), before);
    EXPECT_EQ(log.CountPrefix("lxAviReadCore_PrintIndex: "), 400u);
}

TEST_F(KeyFrameTableTest, WithoutALeafNothingIsStored)
{
    AviBuilder builder;
    builder.Add(VideoStream());
    ASSERT_EQ(Open(builder), LX_OK);
    Bytes batch = Fill(18000);
    LendBuffer(batch);
    Info().uiMaxRecordsInBuffer = 2;
    lxAviReadCore_KeyFrameLeaf_t* pLeaf = nullptr;
    UInt32 frame = 0, skip = 0;
    for (UInt32 leafNr : {0u, 1u, 9u}) { // no table; then leaf 1 and leaf 9 of a table of one leaf
        ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
        frame = 0;
        EXPECT_EQ(lxAvi2ReadCore_FillVideoKFramesInKFTable(&Info(), &pLeaf, &frame, 2, 0, 0, 0, 1, &skip, &leafNr),
                  LX_OK);
        EXPECT_EQ(pLeaf, nullptr);
        EXPECT_EQ(frame, 2u);
        ASSERT_EQ(lxAvi2ReadCore_CreateKFTable(0, &Info(), 1), LX_OK);
    }
    Info().pMetaDataBuffer = nullptr;
}

TEST_F(KeyFrameTableTest, ALeafThatWasFilledBeforeIsClearedWhenItIsEnteredAgain)
{
    AviBuilder builder;
    builder.Add(VideoStream()).Frame(0, Fill(8, 0), true); // one record of a key frame
    ASSERT_EQ(Open(builder), LX_OK);
    Bytes batch = Fill(18000);
    LendBuffer(batch);
    Info().uiMaxRecordsInBuffer = 1;
    ASSERT_EQ(lxAvi2ReadCore_CreateKFTable(0, &Info(), 2), LX_OK);
    Info().KeyFramesListAsArray[0]->arrayLength = LEAF_ARRAY_LENGTH;
    lxAviReadCore_KeyFrameLeaf_t& second = *Info().KeyFramesListAsArray[1];
    second.arrayLength = 5;
    second.array[4].videoFrameNumber = 77;
    lxAviReadCore_KeyFrameLeaf_t* pLeaf = nullptr;
    UInt32 frame = 9, skip = 0, leafNr = 0;
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), builder.MoviOffset() + 8, 0), 1);
    EXPECT_EQ(lxAvi2ReadCore_FillVideoKFramesInKFTable(&Info(), &pLeaf, &frame, 1, 0, 0, 0, 1, &skip, &leafNr), LX_OK);
    EXPECT_EQ(pLeaf, &second);
    EXPECT_EQ(second.arrayLength, 1u);
    EXPECT_EQ(second.array[0].videoFrameNumber, 9u);
    EXPECT_EQ(second.array[4].videoFrameNumber, 0u);
    Info().pMetaDataBuffer = nullptr;
}

TEST_F(KeyFrameTableTest, EveryResultHasToHaveItsPlace)
{
    UInt32 a = 1, b = 0, c = 0, d = 0;
    lxAviReadCore_KeyFrameLeaf_t* pLeaf = nullptr;
    EXPECT_EQ(lxAviReadCore_CalcLeafsNeededAndSkipValue(&Info(), nullptr, &b, &c, &d), LX_OK);
    EXPECT_EQ(lxAviReadCore_CalcLeafsNeededAndSkipValue(&Info(), &a, nullptr, &c, &d), LX_OK);
    EXPECT_EQ(lxAviReadCore_CalcLeafsNeededAndSkipValue(&Info(), &a, &b, nullptr, &d), LX_OK);
    EXPECT_EQ(lxAviReadCore_CalcLeafsNeededAndSkipValue(&Info(), &a, &b, &c, nullptr), LX_OK);
    EXPECT_EQ(lxAvi2ReadCore_FillVideoKFramesInKFTable(&Info(), nullptr, &a, 1, 0, 0, 0, 1, &b, &c), LX_OK);
    EXPECT_EQ(lxAvi2ReadCore_FillVideoKFramesInKFTable(&Info(), &pLeaf, nullptr, 1, 0, 0, 0, 1, &b, &c), LX_OK);
    EXPECT_EQ(lxAvi2ReadCore_FillVideoKFramesInKFTable(&Info(), &pLeaf, &a, 1, 0, 0, 0, 1, nullptr, &c), LX_OK);
    EXPECT_EQ(lxAvi2ReadCore_FillVideoKFramesInKFTable(&Info(), &pLeaf, &a, 1, 0, 0, 0, 1, &b, nullptr), LX_OK);
    lxAvi2ReadCore_AudioIndexState_t state = {};
    lxAviReadCore_KeyFramePosition_t cursor = {};
    EXPECT_EQ(lxAvi2ReadCore_FillAudioInfoInKFTable(&Info(), 1, 0, 0, 0, 0, nullptr, &cursor, &a), LX_OK);
    EXPECT_EQ(lxAvi2ReadCore_FillAudioInfoInKFTable(&Info(), 1, 0, 0, 0, 0, &state, nullptr, &a), LX_OK);
    EXPECT_EQ(lxAvi2ReadCore_FillAudioInfoInKFTable(&Info(), 1, 0, 0, 0, 0, &state, &cursor, nullptr), LX_OK);
    EXPECT_EQ(log.Assertions().size(), 11u);
    lxAviRead_Strh_t header = {};
    EXPECT_EQ(lxAviReadCore_GetStrhData(0, nullptr, &a), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStrhData(0, &header, nullptr), LX_OK);
    Bool bPresent = 0;
    EXPECT_EQ(lxAviReadCore_GetStrdData(0, nullptr, &bPresent), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStrdData(0, &header, nullptr), LX_OK);
    EXPECT_EQ(log.Assertions().size(), 15u);
}

} // namespace
} // namespace avitest
