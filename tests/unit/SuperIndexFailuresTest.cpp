// OpenDML: what goes wrong in super indexes, and with which result.

#include "OpenDmlIndexTest.hpp"

namespace avitest {
namespace {

TEST_F(OpenDmlIndex, AnIndexChunkOfAnotherStreamIsRefused)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddMedia(0, 8);
    Bytes file = builder.Build();
    file[Find(file, "ix00") + 3] = '5';
    ASSERT_EQ(Open(file), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_INDEX_STREAM);
    EXPECT_EQ(Info().pMetaDataBuffer, nullptr);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u); // already the walk that counts fails
    EXPECT_EQ(lxAvi2ReadCore_ParseVideoSuperIndex(0, &Info(), 1, 1), LX_ERR_AVIREAD_INDEX_STREAM);
}

TEST_F(OpenDmlIndex, AMisplacedIndexChunkIsReadToTheEndOfTheFile)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddMedia(0, 8);
    Bytes file = builder.Build();
    file[Find(file, "ix00")] = 'j';
    ASSERT_EQ(Open(file), LX_OK);
    log.Clear();
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_EOF);
    EXPECT_TRUE(log.HasPrefix("PreParseIndxChunk avi2:Error Reading data at line:"));
    EXPECT_TRUE(log.Has("First 4 bytes after fseek and twocc, 3030786a, 786a"));
    EXPECT_EQ(lxAviReadCore_FileEof(&Info()), 1);
}

TEST_F(OpenDmlIndex, AFailedSeekToAnIndexChunkIsReported)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddSegments();
    const Bytes file = builder.Build();
    for (UInt64 n = 1; n <= 9; ++n) { // three chunks, walked three times
        ASSERT_EQ(Open(file), LX_OK);
        log.Clear();
        Faults().FailSeek(n);
        EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_SEEK) << n;
        EXPECT_EQ(lxalAviRead_FileSeekPossible, 0);
        EXPECT_EQ(log.Has("PreParseIndxChunk avi2: Error -2013161464"), n <= 3);
    }
    Faults().FailSeek(0);
}

// The call with which the n-th read of the walks begins. Each chunk takes three reads: its code, which is a word, its
// header and its records.
constexpr UInt64 CallOfRead(UInt64 n)
{
    const UInt64 behindCode = (n - 1) % 3 == 0 ? 0 : kCallsOfAWord - 1;
    return (n - 1) / 3 * (kCallsOfAWord + 2) + (n - 1) % 3 + behindCode + 1;
}

TEST_F(OpenDmlIndex, ReadErrorsOfTheWalksArePassedOn)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddSegments();
    const Bytes file = builder.Build();
    for (UInt64 n = 1; n <= 27; ++n) { // the reads of code, header and records of each chunk
        ASSERT_EQ(Open(file), LX_OK);
        log.Clear();
        Faults().FaultRead(CallOfRead(n), {ReadFault::Kind::ShortThenError, 2});
        EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_READ) << n;
        EXPECT_EQ(Info().pMetaDataBuffer, nullptr);
        if (n == 10) {
            EXPECT_TRUE(log.HasPrefix("ParseVideoSuperIndex : Error reading data at line:"));
        } else if (n == 11) {
            EXPECT_TRUE(log.HasPrefix("ParseVideoSuperIndex : Error Reading data1,line:"));
        } else if (n == 12) {
            EXPECT_TRUE(log.HasPrefix("Error reading 20 records with size 8 into the metadatabuffer"));
        } else if (n == 19) {
            EXPECT_TRUE(log.HasPrefix("ParseAudioSuperIndex : Error Reading data at line:"));
        } else if (n == 20) {
            EXPECT_TRUE(log.HasPrefix("ParseAudioSuperIndex : Error Reading data1,line:"));
        }
        Faults().FaultRead(0, {});
    }
}

TEST_F(OpenDmlIndex, LeafBoundsStayUnsetWhenTheWalkFailsHalfWay)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddSegments();
    ASSERT_EQ(Open(builder), LX_OK);
    Faults().FaultRead(CallOfRead(9 + 5), {ReadFault::Kind::EndOfFile, 0});
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_EOF);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 1u);
    EXPECT_EQ(Info().KeyFramesListAsArray[0]->arrayLength, 5u);
    EXPECT_EQ(Info().KeyFramesListAsArray[0]->EndTimeMsec, 0u);
}

TEST_F(OpenDmlIndex, AnAbortEndsTheWalks)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddSegments();
    const Bytes file = builder.Build();
    for (const UInt64 n : {3u, 12u, 21u}) { // the records of the first chunk in each walk
        ASSERT_EQ(Open(file), LX_OK);
        Faults().FaultRead(0, {});
        Faults().onRead = [n](UInt64 read) {
            if (read == CallOfRead(n)) {
                EXPECT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
            }
        };
        EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_ABORTED) << n;
        Faults().onRead = nullptr;
        ASSERT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
    }
}

TEST_F(OpenDmlIndex, AllocationFailuresOfTheWalksArePassedOn)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddSegments();
    const Bytes file = builder.Build();
    for (UInt64 n = 1; n <= 3; ++n) { // batch buffer, array, leaf
        ASSERT_EQ(Open(file), LX_OK);
        log.Clear();
        Faults().FailAllocation(n);
        EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_MEMORY);
        Faults().FailAllocation(0);
        if (n == 3) {
            EXPECT_TRUE(
                log.Has("Failed allocating " + std::to_string(kLeafBytes) + " bytes for KeyFramesListAsArray[0]"));
        }
    }
}

TEST_F(OpenDmlIndex, EachWalkNeedsTheBatchBuffer)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddMedia(0, 8);
    ASSERT_EQ(Open(builder), LX_OK);
    Faults().FailAllocation(3); // the allocation after the array and the leaf
    EXPECT_EQ(lxAvi2ReadCore_ParseVideoSuperIndex(0, &Info(), 1, 1), LX_ERR_AVIREAD_NO_MEMORY);
    const lxAviReadCore_AviIndxChunkCommonSection_t common = {2, 0, 1, 1, Code("00dc")};
    Faults().FailAllocation(3);
    EXPECT_EQ(lxAvi2ReadCore_ParseVideoStdIndex(0, &Info(), 0, &common, 0, 0, 1, 1), LX_ERR_AVIREAD_NO_MEMORY);
    Faults().FailAllocation(1);
    EXPECT_EQ(lxAvi2ReadCore_ParseAudioSuperIndex(&Info()), LX_ERR_AVIREAD_NO_MEMORY);
    Faults().FailAllocation(1);
    EXPECT_EQ(lxAvi2ReadCore_ParseAudioStdIndex(0, &Info(), &common, 0, 0), LX_ERR_AVIREAD_NO_MEMORY);
    Faults().FailAllocation(0);
}

TEST_F(OpenDmlIndex, AnEmptySuperIndexHasNoKeyFrames)
{
    ASSERT_EQ(OpenWithIndx(Chunk("indx", IndxHead(4, 0, 0, 0) + Fill(12))), LX_OK);
    EXPECT_NE(Info().StreamInfo[0]->IndxChunk.pAviSuperIndexEntry, nullptr);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
}

TEST_F(OpenDmlIndex, ASuperIndexIsReleasedWithItsTrace)
{
    ASSERT_EQ(OpenWithIndx(Chunk("indx", IndxHead(4, 0, 0, 2) + Fill(12) + Fill(32))), LX_OK);
    log.Clear();
    ASSERT_EQ(lxAviReadCore_Reset(), LX_OK);
    EXPECT_TRUE(log.Has("Freeing pAviSuperIndexEntry"));
}

TEST_F(OpenDmlIndex, ACountThatCannotBeExpressedIsNoMemory)
{
    EXPECT_EQ(OpenWithIndx(Chunk("indx", IndxHead(4, 0, 0, 0x10000000) + Fill(12))), LX_ERR_AVIREAD_NO_MEMORY);
    EXPECT_EQ(OpenWithIndx(Chunk("indx", IndxHead(4, 0, 0, 0xFFFFFFFF) + Fill(12))), LX_ERR_AVIREAD_NO_MEMORY);
}

TEST_F(OpenDmlIndex, MoreEntriesThanTheFileHasAreAnEndOfFile)
{
    EXPECT_EQ(OpenWithIndx(Chunk("indx", IndxHead(4, 0, 0, 100000) + Fill(12))), LX_ERR_AVIREAD_EOF);
}

TEST_F(OpenDmlIndex, MoreEntriesThanTheChunkHasWrapThePadding)
{
    // The header claims two entries, the chunk has one. The number of bytes left wraps, and the skip meets the end of
    // the file.
    EXPECT_EQ(OpenWithIndx(Chunk("indx", IndxHead(4, 0, 0, 2) + Fill(12) + Fill(16))), LX_ERR_AVIREAD_READ);
}

TEST_F(OpenDmlIndex, PaddingIsSkipped)
{
    ASSERT_EQ(OpenWithIndx(Chunk("indx", IndxHead(4, 0, 0, 1) + Fill(12) + Fill(16) + Fill(500))), LX_OK);
    EXPECT_TRUE(log.Has("lxAviReadCore_ParseChunkIndx: Dumping padded Bytes 500"));
    EXPECT_EQ(Info().StreamInfo[1]->StreamType, 1u);
}

TEST_F(OpenDmlIndex, AnUnknownTypeIsAssertedAndSkipped)
{
    ASSERT_EQ(OpenWithIndx(Chunk("indx", IndxHead(4, 0, 2, 1) + Fill(40))), LX_OK);
    EXPECT_TRUE(
        log.HasAssertion("(uiIndexType == (AVI_INDEX_OF_INDEXES || AVI_INDEX_OF_CHUNKS))", "Un supported Index type"));
    EXPECT_EQ(log.Assertions()[0].file, "src/demux/comps/lxAviRead/src/core/src/Avi2ReadCore");
    EXPECT_EQ(Info().StreamInfo[1]->StreamType, 1u);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
}

TEST_F(OpenDmlIndex, ChunksBehindAnIndexAreMetOneLevelUp)
{
    // In default mode the stream list ends with the index. The walk over the header list reads the chunks behind it.
    ASSERT_EQ(OpenWithIndx(Chunk("indx", IndxHead(4, 0, 0, 0) + Fill(12)) + Chunk("strn", Fill(6))), LX_OK);
    EXPECT_TRUE(log.HasPrefix("AviReadCore : read data unknown (Line:"));
    EXPECT_EQ(Info().StreamInfo[1]->StreamType, 1u);
}

TEST_F(OpenDmlIndex, TheIndexOfASubtitleStreamIsSkipped)
{
    builder = AviBuilder();
    builder.Add(VideoStream()).Add(VideoStream());
    builder.streams[1].extra = Chunk("indx", IndxHead(4, 0, 0, 9) + Fill(12)) + Chunk("strn", Fill(4));
    builder.eIndex = IndexKind::Idx1Relative;
    builder.Frame(0, Fill(4), true);
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(Info().bIndxPresent, 1); // so ParseIndex does not use idx1
    EXPECT_EQ(Info().StreamInfo[1]->IndxChunk.pAviSuperIndexEntry, nullptr);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
}

TEST_F(OpenDmlIndex, ATruncatedIndexChunkFailsTheOpen)
{
    const Bytes whole = Chunk("indx", IndxHead(4, 0, 0, 1) + Fill(28));
    const Stream video = VideoStream();
    for (size_t length = 9; length < whole.size(); ++length) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<long>(length));
        EXPECT_EQ(Open(Riff("AVI ", List("hdrl", List("strl", Chunk("strh", AsBytes(video.header)) +
                                                                  Chunk("strf", video.format) + cut)))),
                  LX_ERR_AVIREAD_EOF)
            << length;
    }
}

TEST_F(OpenDmlIndex, WithoutAVideoStreamThereIsNoTable)
{
    builder = AviBuilder();
    builder.Add(PcmStream());
    builder.eIndex = IndexKind::SuperStandard;
    builder.Audio(0, Fill(10));
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
    UInt32 skip = 0, leafs = 0, memory = 0, keys = 0;
    EXPECT_EQ(lxAvi2ReadCore_PreParseVideoIndex(0, &Info(), &skip, &leafs, &memory, &keys), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_EQ(lxAvi2ReadCore_ParseVideoSuperIndex(0, &Info(), 1, 1), LX_ERR_AVIREAD_NO_INDEX);
}

} // namespace
} // namespace avitest
