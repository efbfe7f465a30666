// Tests the chain of movi segments behind the first RIFF list.

#include "ReaderTest.hpp"

namespace avitest {
namespace {

class SegmentChain : public ReaderTest {
protected:
    AviBuilder builder;

    SegmentChain()
    {
        builder.Add(VideoStream());
        builder.eIndex = IndexKind::None;
        builder.dmlhTotalFrames = 9;
        builder.Frame(0, Fill(10), true);
    }

    static Bytes Avix(const Bytes& content) { return Riff("AVIX", content); }

    std::vector<const lxAviReadCore_AvixRiff_t*> Chain()
    {
        std::vector<const lxAviReadCore_AvixRiff_t*> chain;
        for (const auto* p = Info().pCurrentAvix; p != nullptr; p = p->pNextAvix) {
            EXPECT_EQ(p->pPrevAvix, chain.empty() ? nullptr : chain.back());
            chain.push_back(p);
        }
        return chain;
    }
};

TEST_F(SegmentChain, ThreeExtensionListsMakeFourRecordsLinkedBothWays)
{
    builder.NextRiff().Frame(0, Fill(20), true);
    builder.NextRiff().Frame(0, Fill(30), true);
    builder.NextRiff().Frame(0, Fill(40), true);
    ASSERT_EQ(Open(builder), LX_OK);
    const auto chain = Chain();
    ASSERT_EQ(chain.size(), 4u);
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(chain[i]->moviDataOffset, builder.MediaItems()[i].uiOffset);
        EXPECT_EQ(chain[i]->moviDataSize, 8 + 10 * (i + 1));
    }
    EXPECT_EQ(Info().bAvixPresent, 1);
    EXPECT_TRUE(log.Has("Found AVIX RIFF"));
    EXPECT_TRUE(log.Has("Allocated memory for AVIX RIFF structure"));
    EXPECT_EQ(log.Count("pAviInfo->pCurrentAvix Initialized"), 1u);
    EXPECT_EQ(log.Count("In the While Loop, searching for a RIFF "), 4u);
    EXPECT_TRUE(log.Has("lxAviReadCore_ConstructAvixInfo: Leave with RVAL:0"));
}

TEST_F(SegmentChain, ForeignListsAreSteppedOver)
{
    builder.NextRiff().ForeignRiff(Riff("WAVE", Fill(30)) + Riff("ABCD", {})).Frame(0, Fill(20), true);
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(Chain().size(), 2u);
    EXPECT_EQ(Chain()[1]->moviDataOffset, builder.MediaItems()[1].uiOffset);
}

TEST_F(SegmentChain, AnOddListSizeIsMadeEven)
{
    builder.NextRiff().ForeignRiff(ChunkOfSize("RIFF", 7, Text("WAVE") + Fill(4))).Frame(0, Fill(20), true);
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(Chain().size(), 2u);
}

TEST_F(SegmentChain, AnOddMoviSizeIsMadeEven)
{
    const Bytes movi = ChunkOfSize("LIST", 4 + 8 + 11, Text("movi") + ChunkOfSize("00dc", 11, Fill(12)));
    ASSERT_EQ(Open(builder.Build() + Avix(movi)), LX_OK);
    ASSERT_EQ(Chain().size(), 2u);
    EXPECT_EQ(Chain()[1]->moviDataSize, 20u);
}

TEST_F(SegmentChain, TrailingBytesAreIgnored)
{
    builder.NextRiff().Frame(0, Fill(20), true);
    ASSERT_EQ(Open(builder.Build() + Text("trailing bytes that are no list")), LX_OK);
    EXPECT_EQ(Chain().size(), 2u);
    ASSERT_EQ(Open(builder.Build() + Text("RI")), LX_OK);
    EXPECT_EQ(Chain().size(), 2u);
}

TEST_F(SegmentChain, AnExtensionWithoutAListIsRefused)
{
    EXPECT_EQ(Open(builder.Build() + Avix(Chunk("JUNK", Fill(8)))), LX_ERR_AVIREAD_AVIX_LIST);
    EXPECT_TRUE(log.HasAssertion("uiData == listChunk", "AVIX should have only LIST strcuture"));
}

TEST_F(SegmentChain, AnExtensionWithAnotherListIsRefused)
{
    EXPECT_EQ(Open(builder.Build() + Avix(List("abcd", Fill(8)))), LX_ERR_AVIREAD_AVIX_LIST);
    EXPECT_TRUE(log.HasAssertion("uiDataExt == listtypeAVIMOVIE", "AVIX should have only movi LIST"));
    EXPECT_EQ(log.Assertions()[0].file, "src/demux/comps/lxAviRead/src/core/src/AviReadcore");
    // the record stays in the chain until the next Reset
    EXPECT_EQ(Chain().size(), 2u);
    EXPECT_EQ(Info().StreamInfo[0], nullptr); // Open has failed and freed the stream records
    ASSERT_EQ(lxAviReadCore_Reset(), LX_OK);
    EXPECT_EQ(Info().pCurrentAvix, nullptr);
}

TEST_F(SegmentChain, AFileThatEndsInsideAHeaderIsRefused)
{
    const Bytes good = builder.Build();
    EXPECT_EQ(Open(good + Text("RIFF") + U16(1)), LX_ERR_AVIREAD_EOF);
    EXPECT_TRUE(log.Has("Err while Reading size of RIFF: 88019809 "));
    EXPECT_EQ(Open(good + Text("RIFF") + U32(100) + Text("AV")), LX_ERR_AVIREAD_EOF);
    EXPECT_TRUE(log.Has("Err while Reading RIFF Type: 88019809 "));
    EXPECT_EQ(Open(good + Text("RIFF") + U32(100) + Text("AVIXLI")), LX_ERR_AVIREAD_EOF);
    EXPECT_TRUE(log.Has("Err while LIST fourcc for movi LIST 88019809 "));
    EXPECT_EQ(Open(good + Text("RIFF") + U32(100) + Text("AVIXLIST") + U16(1)), LX_ERR_AVIREAD_EOF);
    EXPECT_EQ(Open(good + Text("RIFF") + U32(100) + Text("AVIXLIST") + U32(90) + Text("mo")), LX_ERR_AVIREAD_EOF);
}

TEST_F(SegmentChain, ThePositionIsToldAsItIsWalked)
{
    builder.NextRiff().Frame(0, Fill(20), true);
    const Bytes file = builder.Build();
    ASSERT_EQ(Open(file), LX_OK);
    const size_t avix = Find(file, "RIFF", 1);
    EXPECT_TRUE(log.Has("Offset value till now 0." + std::to_string(avix + 12) + " "));
    EXPECT_TRUE(log.Has("New RIFF Size 44 \n"));
}

TEST_F(SegmentChain, ASegmentRecordNeedsMemory)
{
    builder.NextRiff().Frame(0, Fill(20), true);
    Faults().Serve("test.avi", builder.Build());
    Faults().FailAllocation(2 + 17 * 3 + 2);
    EXPECT_EQ(lxAviReadCore_Open(0, "test.avi", 1, kPlenty, 1, &allIndexed), LX_ERR_AVIREAD_NO_MEMORY);
}

TEST_F(SegmentChain, AFailedSeekToTheEndOfTheFirstListIsReported)
{
    builder.NextRiff().Frame(0, Fill(20), true);
    const Bytes file = builder.Build();
    ASSERT_EQ(Open(file), LX_OK);
    Faults().FailSeek(1, true);
    EXPECT_EQ(lxAviReadCore_ConstructAvixInfo(0, &Info()), LX_ERR_AVIREAD_SEEK);
    EXPECT_EQ(lxalAviRead_FileSeekPossible, 0);
}

TEST_F(SegmentChain, AFailedSeekBetweenListsEndsTheWalkWithSuccess)
{
    builder.NextRiff().Frame(0, Fill(20), true);
    builder.NextRiff().Frame(0, Fill(30), true);
    const Bytes file = builder.Build();
    ASSERT_EQ(Open(file), LX_OK);
    const UInt64 all = Faults().Seeks();
    Faults().FailSeek(all - 1);
    EXPECT_EQ(lxAviReadCore_Open(0, "test.avi", 1, kPlenty, 1, &allIndexed), LX_OK);
    EXPECT_TRUE(Faults().Met());
    EXPECT_EQ(Chain().size(), 2u);
    EXPECT_EQ(lxalAviRead_FileSeekPossible, 0);
}

TEST_F(SegmentChain, WithoutSeekingItReadsFromWhereTheFileStands)
{
    builder.NextRiff().Frame(0, Fill(20), true);
    const Bytes file = builder.Build();
    ASSERT_EQ(Open(file, false), LX_OK);
    // the file stands at the first media chunk, where no list begins
    EXPECT_EQ(Info().pCurrentAvix, nullptr);
    EXPECT_EQ(Info().bAvixPresent, 0);
}

TEST_F(SegmentChain, WithoutSeekingTheWalkTakesItsStartForPositionZero)
{
    const Bytes good = builder.Build();
    const Bytes file = good + Avix(List("movi", Chunk("00dc", Fill(20))));
    Bytes first = file;
    Patch32(first, Find(first, "dmlh") + 8, 0); // so Open does not look for AVIX lists
    ASSERT_EQ(Open(first), LX_OK);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), good.size(), 0), 1);
    lxalAviRead_FileSeekPossible = 0;
    ASSERT_EQ(lxAviReadCore_ConstructAvixInfo(0, &Info()), LX_OK);
    const auto chain = Chain();
    ASSERT_EQ(chain.size(), 2u);
    EXPECT_EQ(chain[0]->moviDataSize, 18u); // unchanged
    EXPECT_EQ(chain[1]->moviDataOffset, 24u);
}

TEST_F(SegmentChain, WithoutAFirstRecordTheFirstNewOneIsCurrent)
{
    builder.NextRiff().Frame(0, Fill(20), true);
    builder.NextRiff().Frame(0, Fill(30), true);
    const Bytes file = builder.Build();
    ASSERT_EQ(Open(file), LX_OK);
    while (Info().pCurrentAvix != nullptr) { // as for an input that cannot seek
        auto* const pRecord = Info().pCurrentAvix;
        Info().pCurrentAvix = pRecord->pNextAvix;
        Faults().Free(pRecord);
    }
    ASSERT_EQ(lxAviReadCore_ConstructAvixInfo(0, &Info()), LX_OK);
    EXPECT_EQ(Chain().size(), 2u);
}

TEST_F(SegmentChain, WalkingAgainReplacesTheRecords)
{
    builder.NextRiff().Frame(0, Fill(20), true);
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(lxAviReadCore_ConstructAvixInfo(0, &Info()), LX_OK);
    EXPECT_EQ(Chain().size(), 2u);
}

TEST_F(SegmentChain, AWalkThatWouldGoBackEnds)
{
    // the size leads beyond 4 GiB, where a 32-bit seek would lead back to the start of the list
    const Bytes good = builder.Build();
    Bytes file = good + Avix(List("movi", Chunk("00dc", Fill(20))));
    Patch32(file, good.size() + 4, 0xFFFFFFF8u);
    ASSERT_EQ(Open(file), LX_OK);
    EXPECT_EQ(Chain().size(), 2u);
    Patch32(file, good.size() + 4, 0xFFFFFFF8u - static_cast<UInt32>(good.size()));
    ASSERT_EQ(Open(file), LX_OK);
    EXPECT_EQ(Chain().size(), 2u);
}

TEST_F(SegmentChain, ListsThatReachIntoTheNextOneKeepTheirSize)
{
    Bytes file = builder.Build();
    const size_t first = file.size();
    for (int i = 0; i < 3; ++i) {
        file += Riff("AVIX", ChunkOfSize("LIST", 4000, Text("movi") + Chunk("00dc", Fill(20))));
    }
    ASSERT_EQ(Open(file), LX_OK);
    const auto chain = Chain();
    ASSERT_EQ(chain.size(), 4u);
    EXPECT_EQ(chain[1]->moviDataOffset, first + 24);
    for (size_t i = 1; i < 4; ++i) {
        EXPECT_EQ(chain[i]->moviDataSize, 3996u);
    }
    indxOptionOfOpen = LX_AVIREAD_FOLLOW_FORMAT;
    ASSERT_EQ(Open(file), LX_OK);
    const auto cut = Chain();
    ASSERT_EQ(cut.size(), 4u);
    EXPECT_EQ(cut[1]->moviDataSize, 28u);
    EXPECT_EQ(cut[2]->moviDataSize, 28u);
    EXPECT_EQ(cut[3]->moviDataSize, 3996u); // no list follows, so the size stays
}

TEST_F(SegmentChain, JunkInTheOpenDmlHeaderMovesTheFirstListIntoTheNextOne)
{
    builder.behindDmlh = Chunk("JUNK", Fill(20));
    builder.NextRiff().Frame(0, Fill(20), true);
    const Bytes file = builder.Build();
    ASSERT_EQ(Open(file), LX_OK);
    // the default mode counts the chunk twice: with the header list, and as a chunk behind it
    EXPECT_EQ(Info().moviOffset, builder.MoviOffset() + 28);
    EXPECT_EQ(Info().pCurrentAvix->moviDataOffset, builder.MoviOffset() + 28);
    EXPECT_EQ(Info().pCurrentAvix->moviDataSize, builder.MoviSize());
    indxOptionOfOpen = LX_AVIREAD_FOLLOW_FORMAT;
    ASSERT_EQ(Open(file), LX_OK);
    EXPECT_EQ(Info().pCurrentAvix->moviDataOffset, builder.MoviOffset());
    EXPECT_EQ(Info().pCurrentAvix->moviDataSize, builder.MoviSize());
}

TEST_F(SegmentChain, ChunksOfListsThatOverlapAreDeliveredTwice)
{
    builder.eIndex = IndexKind::SuperStandard; // positions count from the start of the file
    Bytes file = builder.Build();
    const Bytes extension = Riff("AVIX", List("movi", Chunk("00dc", Fill(20))));
    const size_t movi = Find(file, "movi");
    Patch32(file, movi - 4, static_cast<UInt32>(file.size() - movi + extension.size()));
    file += extension;
    const auto deliveredSizes = [&](UInt8 option) {
        indxOptionOfOpen = option;
        OpenIndexed(file);
        std::vector<UInt32> sizes;
        for (const Delivered& got : All()) {
            if (got.uiResult == LX_OK) {
                sizes.push_back(got.chunk.uiSize);
            }
        }
        return sizes;
    };
    EXPECT_EQ(deliveredSizes(1), (std::vector<UInt32>{10, 20, 20}));
    EXPECT_EQ(deliveredSizes(LX_AVIREAD_FOLLOW_FORMAT), (std::vector<UInt32>{10, 20}));
}

TEST_F(SegmentChain, AnAbortAndSpentAttemptsArePassedOn)
{
    builder.NextRiff().Frame(0, Fill(20), true);
    ASSERT_EQ(Open(builder), LX_OK);
    for (UInt64 n = 1; n <= 6; ++n) {
        Faults().FaultRead(n, {ReadFault::Kind::ShortThenError, 1});
        EXPECT_EQ(lxAviReadCore_ConstructAvixInfo(0, &Info()), LX_ERR_AVIREAD_READ) << n;
    }
    ASSERT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
    Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 1});
    EXPECT_EQ(lxAviReadCore_ConstructAvixInfo(0, &Info()), LX_ERR_AVIREAD_ABORTED);
}

} // namespace
} // namespace avitest
