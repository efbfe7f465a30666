// OpenDML indexes: one-level and super, standard and field, video and audio.

#include "ReaderTest.hpp"

namespace avitest {
namespace {

class OpenDmlIndex : public ReaderTest {
protected:
    AviBuilder builder;

    OpenDmlIndex() { builder.Add(VideoStream()).Add(PcmStream()); }

    // Key frames every fourth frame, two chunks of 20 ms of audio before each frame.
    void AddMedia(UInt32 from, UInt32 to)
    {
        for (UInt32 i = from; i < to; ++i) {
            builder.Audio(1, Fill(320, static_cast<UInt8>(2 * i)));
            builder.Audio(1, Fill(320, static_cast<UInt8>(2 * i + 1)));
            builder.Frame(0, Fill(50 + i % 7, static_cast<UInt8>(i)), i % 4 == 0);
        }
    }

    // 3000 key frames: more than a batch.
    void AddMediaWithoutAudio()
    {
        for (UInt32 i = 0; i < 3000; ++i) {
            builder.Frame(0, Fill(4), true);
        }
    }

    void AddSegments()
    {
        builder.dmlhTotalFrames = 60;
        AddMedia(0, 20);
        builder.NextRiff();
        AddMedia(20, 40);
        builder.NextRiff();
        AddMedia(40, 60);
    }

    // The frame that a seek without audio shows first.
    UInt32 Shown(UInt32 time)
    {
        static_cast<void>(lxAviReadCore_SeekToTime(time, -1, lxAviRead_SetPosRoundDown));
        const Delivered chunk = Next();
        EXPECT_EQ(chunk.uiResult, LX_OK);
        EXPECT_EQ(chunk.chunk.bKeyFrame, 1);
        EXPECT_EQ(chunk.payload.at(0), static_cast<UInt8>(chunk.chunk.uiFrameNumber));
        return chunk.chunk.uiFrameNumber;
    }

    static Bytes IndxHead(UInt32 longs, UInt8 subType, UInt8 type, UInt32 entries, std::string_view id = "00dc")
    {
        return U16(longs) + Bytes{subType, type} + U32(entries) + Text(id);
    }

    // A file with this chunk in the stream list of stream `nr`, media of one key frame.
    UInt32 OpenWithIndx(const Bytes& chunk, UInt32 nr = 0, UInt32 flags = 0)
    {
        AviBuilder one;
        one.avih.dwFlags = flags;
        one.eIndex = IndexKind::None;
        one.Add(VideoStream()).Add(PcmStream());
        one.streams[nr].extra = chunk;
        one.Frame(0, Fill(40), true);
        return Open(one.Build());
    }
};

// ---- Super indexes ----

TEST_F(OpenDmlIndex, ASuperIndexIsOnlyNotedByOpen)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddMedia(0, 20);
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(Info().bIndxPresent, 1);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
    const lxAviReadCore_IndxChunk_t& indx = Info().StreamInfo[0]->IndxChunk;
    EXPECT_EQ(indx.aviIndxcommonSection.wLongsPerEntry, 4);
    EXPECT_EQ(indx.aviIndxcommonSection.uiEntriesInUse, 1u);
    EXPECT_EQ(indx.aviIndxcommonSection.dwChunkId, Code("00dc"));
    ASSERT_NE(indx.pAviSuperIndexEntry, nullptr);
    EXPECT_EQ(Info().bAbsoluteOffsets, 0);
    EXPECT_EQ(Info().StreamInfo[0]->bIndexParsed, 0);
    EXPECT_TRUE(log.Has("lxAviReadCore_ParseChunkIndx: It is AVI_INDEX_OF_INDEXES"));
    EXPECT_TRUE(log.Has("uiIndexType =0,uiEntriesInUse= 1,uiStreamNumber = 12336"));
}

TEST_F(OpenDmlIndex, EveryKindOfIndexGivesTheSameTable)
{
    for (const IndexKind eKind : {IndexKind::SuperStandard, IndexKind::SuperField, IndexKind::OneLevelStandard}) {
        builder.eIndex = eKind;
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = eKind;
        AddMedia(0, 60);
        ASSERT_EQ(Open(builder), LX_OK);
        if (eKind != IndexKind::OneLevelStandard) {
            ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
            EXPECT_EQ(Info().StreamInfo[0]->bIndexParsed, 0); // of one-level indexes only
        } else {
            EXPECT_EQ(allIndexed, 1);
            EXPECT_EQ(Info().StreamInfo[1]->bIndexParsed, 1);
        }
        EXPECT_EQ(Info().pMetaDataBuffer, nullptr);
        EXPECT_EQ(Info().bAbsoluteOffsets, 1);
        EXPECT_EQ(Info().CurrentOffset, builder.MoviOffset());
        const auto table = Table();
        ASSERT_EQ(table.size(), 15u);
        // the same media with idx1
        AviBuilder plain = builder;
        plain.eIndex = IndexKind::Idx1Absolute;
        const Bytes plainFile = plain.Build();
        const UInt64 shift = builder.MoviOffset() - plain.MoviOffset();
        ASSERT_EQ(Open(plainFile), LX_OK);
        ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
        const auto plainTable = Table();
        ASSERT_EQ(plainTable.size(), 15u);
        for (size_t i = 0; i < 15; ++i) {
            EXPECT_EQ(table[i].videoFrameNumber, 4 * i);
            EXPECT_EQ(table[i].timeMsec, 160 * i);
            EXPECT_EQ(table[i].videoChunkOffset, plainTable[i].videoChunkOffset + shift);
            EXPECT_EQ(table[i].audioFrameNumber[0], plainTable[i].audioFrameNumber[0]);
            EXPECT_EQ(table[i].audioBytePosition[0], plainTable[i].audioBytePosition[0]);
            EXPECT_EQ(table[i].audioChunkOffset[0], plainTable[i].audioChunkOffset[0] + shift);
        }
    }
}

TEST_F(OpenDmlIndex, SegmentsSeekStepAndResumeLikeAPlainFile)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddSegments();
    OpenIndexed(builder);
    ASSERT_EQ(Table().size(), 15u);
    for (const UInt32 frame : {40u, 0u, 56u, 20u, 36u, 4u, 16u}) {
        EXPECT_EQ(Shown(frame * 40), frame);
    }
    Bool found = 0;
    EXPECT_EQ(Shown(16 * 40), 16u);
    EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrame(&found, -1), LX_OK); // over the end of the first list
    EXPECT_EQ(Next().chunk.uiFrameNumber, 20u);
    EXPECT_EQ(lxAviReadCore_SetJumpToPrevKeyFrame(&found, -1), LX_OK);
    EXPECT_EQ(Next().chunk.uiFrameNumber, 16u);
    // with audio: resumed with the chunk of the table
    static_cast<void>(lxAviReadCore_SeekToTime(40 * 40, 0, lxAviRead_SetPosRoundDown));
    const auto& entry = Entry(0, 10);
    const Delivered first = NextValid();
    EXPECT_EQ(first.chunk.eStreamType, 1u);
    EXPECT_EQ(first.uiPosition, entry.audioChunkOffset[0]);
    EXPECT_EQ(first.chunk.uiFrameNumber, entry.audioFrameNumber[0]);
}

TEST_F(OpenDmlIndex, IndexChunksInTheMediaDataAreSteppedOver)
{
    for (const bool bInMovi : {true, false}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = IndexKind::SuperStandard;
        builder.bIxInMovi = bInMovi;
        AddSegments();
        OpenIndexed(builder);
        const auto all = All();
        ASSERT_EQ(all.size(), 181u);
        for (const Delivered& delivered : all) {
            EXPECT_TRUE(delivered.uiResult == LX_OK || &delivered == &all.back());
        }
        EXPECT_EQ(all.back().uiResult, LX_AVIREAD_END_OF_MEDIA);
    }
}

TEST_F(OpenDmlIndex, TheTableIsThinnedToItsBudget)
{
    builder.eIndex = IndexKind::SuperField;
    builder.dmlhTotalFrames = 2000;
    for (UInt32 riff = 0; riff < 4; ++riff) {
        for (UInt32 i = 0; i < 500; ++i) {
            builder.Frame(0, Fill(4), i % 2 == 0);
        }
        if (riff < 3) {
            builder.NextRiff();
        }
    }
    log.SetMask(0);
    Faults().SetBuffered(true);
    OpenIndexed(builder, kOneLeafBudget); // 1000 key frames: every third
    const auto table = Table();
    ASSERT_EQ(table.size(), 334u);
    for (UInt32 i = 0; i < 334; ++i) {
        EXPECT_EQ(table[i].videoFrameNumber, 6 * i);
    }
}

TEST_F(OpenDmlIndex, TheNextKeyFrameRollsOver)
{
    builder.eIndex = IndexKind::SuperStandard;
    for (UInt32 i = 0; i < 364; ++i) {
        builder.Frame(0, Fill(4), true);
    }
    ASSERT_EQ(Open(builder), LX_OK);
    log.Clear();
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(Table().size(), 364u);
    EXPECT_TRUE(log.Has("Leaf 0 is full, filling 1 leaf"));
    EXPECT_TRUE(log.Has("Allocating 2 no of leafs"));
    EXPECT_TRUE(log.Has("\tNumber of leafs =2"));
    EXPECT_TRUE(log.Has("\t Leaf(0)->starttime:0, endtime:14480 \n"));
    EXPECT_TRUE(log.HasPrefix("\t Leaf(1)-> startoffset:"));
    EXPECT_TRUE(log.Has("Stream: 0 uiNoOfIndexes: 1 uiSubIndexType: 0 \n"));
    EXPECT_TRUE(log.Has("ParseVideoSuperIndex :Rval Reading ix( 0): 0"));
    EXPECT_TRUE(log.HasPrefix("Fseeking(0) to offset: 0."));
    EXPECT_TRUE(log.Has("No of Audio steams in the file: 1  \n"));
}

TEST_F(OpenDmlIndex, ABaseBeyond4GiBIsStoredWithoutItsHighWord)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddMedia(0, 8);
    builder.uiBaseShift = 5ull << 32; // the records' offsets wrap around it
    OpenIndexed(builder);
    EXPECT_EQ(Entry(0, 0).videoChunkOffset, builder.MediaItems()[2].uiOffset);
    EXPECT_EQ(Entry(0, 0).videoChunkOffset >> 32, 0u);
}

TEST_F(OpenDmlIndex, TotalsCountTheOwningStream)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddMedia(0, 10);
    OpenIndexed(builder);
    UInt32 video = 0;
    for (const MediaItem& item : builder.MediaItems()) {
        video += item.code == "00dc" ? static_cast<UInt32>(item.payload.size()) : 0;
    }
    EXPECT_EQ(Info().StreamInfo[0]->uiStreamSize, video);
    EXPECT_EQ(Info().StreamInfo[1]->uiStreamSize, 20u * 320u);
}

TEST_F(OpenDmlIndex, SeveralAudioTracksArePlaced)
{
    builder.Add(PcmStream());
    builder.eIndex = IndexKind::SuperStandard;
    for (UInt32 i = 0; i < 20; ++i) {
        builder.Audio(1, Fill(640)).Audio(2, Fill(1280)).Frame(0, Fill(10), i % 5 == 0);
    }
    OpenIndexed(builder);
    const auto table = Table();
    EXPECT_EQ(table[0].audioFrameNumber[0], 0u);
    EXPECT_EQ(table[0].audioFrameNumber[1], 0u);
    EXPECT_EQ(table[3].audioFrameNumber[0], 15u); // 600 ms: the time at chunk c is 40 x c
    EXPECT_EQ(table[3].audioFrameNumber[1], 7u);  // 80 x c
    EXPECT_EQ(table[3].audioFrameNumber[2], 0u);  // a track without an index stays as the leaf was cleared
}

TEST_F(OpenDmlIndex, AudioThatEndsEarlyGivesItsLastChunk)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.Audio(1, Fill(640)).Audio(1, Fill(640));
    for (UInt32 i = 0; i < 20; ++i) {
        builder.Frame(0, Fill(10), true);
    }
    OpenIndexed(builder);
    const auto table = Table();
    EXPECT_EQ(table[0].audioFrameNumber[0], 0u);
    EXPECT_EQ(table[19].audioFrameNumber[0], 1u);
    EXPECT_EQ(table[19].audioBytePosition[0], 640u);
    EXPECT_TRUE(log.Lines().empty()); // cleared by OpenIndexed
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_TRUE(log.Has("\tAudio frames in stream# 01 =1"));
    EXPECT_TRUE(log.HasPrefix("BEFORE Getnextitem KF leafNr:0 itemNr:0 offset="));
    EXPECT_TRUE(log.HasPrefix("Storing Audio(0) for 0.0  fr#0 Offset=0."));
}

TEST_F(OpenDmlIndex, AnEmptyAudioIndexMarksTheTrackAbsent)
{
    builder.eIndex = IndexKind::SuperStandard;
    for (UInt32 i = 0; i < 5; ++i) {
        builder.Frame(0, Fill(10), true);
    }
    OpenIndexed(builder);
    for (const auto& entry : Table()) {
        EXPECT_EQ(entry.audioFrameNumber[0], 0xFFFFFFFFu);
        EXPECT_EQ(entry.audioChunkOffset[0], 0u);
        EXPECT_EQ(entry.audioBytePosition[0], 0u);
    }
}

TEST_F(OpenDmlIndex, AudioStreamsBeyondTheTrackCountAreMissed)
{
    builder = AviBuilder();
    builder.Add(VideoStream()).Add(TextStream()).Add(PcmStream());
    builder.eIndex = IndexKind::SuperStandard;
    builder.Audio(2, Fill(640)).Frame(0, Fill(10), true).Audio(2, Fill(640));
    OpenIndexed(builder);
    EXPECT_EQ(Entry(0, 0).audioChunkOffset[0], 0u);
    EXPECT_EQ(Info().StreamInfo[2]->uiStreamSize, 0u);
}

TEST_F(OpenDmlIndex, WithTheVideoInRecordOneTheAudioOfRecordZeroIsMissed)
{
    builder = AviBuilder();
    builder.Add(PcmStream()).Add(VideoStream());
    builder.eIndex = IndexKind::SuperStandard;
    builder.Audio(0, Fill(640)).Frame(1, Fill(10), true).Audio(0, Fill(640));
    OpenIndexed(builder);
    EXPECT_EQ(Table().size(), 1u);
    EXPECT_EQ(Entry(0, 0).audioChunkOffset[0], 0u);
    EXPECT_EQ(Info().StreamInfo[0]->uiStreamSize, 0u);
}

TEST_F(OpenDmlIndex, TheFirstAudioEntryStoresNothing)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.Audio(1, Fill(640)).Frame(0, Fill(10), true);
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(log.CountPrefix("Storing Audio(0)"), 0u); // the completion stores
    EXPECT_EQ(Entry(0, 0).audioFrameNumber[0], 0u);
}

TEST_F(OpenDmlIndex, RecordsOf32BytesOnAreReadOneWordOff)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    builder.behindIdx1 = Fill(64); // the last record read reaches behind its chunk
    AddMedia(0, 8);
    OpenIndexed(builder);
    // the first record that is read is the size of the first chunk and the offset of the second
    EXPECT_NE(Entry(0, 0).videoChunkOffset, builder.MediaItems()[2].uiOffset);
    const auto base = static_cast<UInt32>(builder.MoviOffset());
    EXPECT_EQ(Entry(0, 0).videoChunkOffset, base + 50u - 8u); // frame 0 is a key frame of 50 bytes
}

// ---- What goes wrong in super indexes ----

TEST_F(OpenDmlIndex, AnIndexChunkOfAnotherStreamIsRefused)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddMedia(0, 8);
    Bytes file = builder.Build();
    file[Find(file, "ix00") + 3] = '5';
    ASSERT_EQ(Open(file), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_INDEX_STREAM);
    EXPECT_EQ(Info().pMetaDataBuffer, nullptr);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u); // by the walk that counts
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

TEST_F(OpenDmlIndex, ReadErrorsOfTheWalksArePassedOn)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddSegments();
    const Bytes file = builder.Build();
    for (UInt64 n = 1; n <= 27; ++n) { // code, header, records of each chunk
        ASSERT_EQ(Open(file), LX_OK);
        log.Clear();
        Faults().FaultRead(n, {ReadFault::Kind::ShortThenError, 2});
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
    Faults().FaultRead(9 + 5, {ReadFault::Kind::EndOfFile, 0});
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
            if (read == n) {
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
            EXPECT_TRUE(log.Has("Failed allocating " + std::to_string(kLeafBytes) + " bytes for KeyFramesListAsArray[0]"));
        }
    }
}

TEST_F(OpenDmlIndex, EachWalkNeedsTheBatchBuffer)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddMedia(0, 8);
    ASSERT_EQ(Open(builder), LX_OK);
    Faults().FailAllocation(3); // behind the array and the leaf
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
    // two entries where the chunk has one: what is left wraps, and the skip meets the end of the file
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
    EXPECT_TRUE(log.HasAssertion("(uiIndexType == (AVI_INDEX_OF_INDEXES || AVI_INDEX_OF_CHUNKS))",
                                 "Un supported Index type"));
    EXPECT_EQ(log.Assertions()[0].file, "src/demux/comps/lxAviRead/src/core/src/Avi2ReadCore");
    EXPECT_EQ(Info().StreamInfo[1]->StreamType, 1u);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
}

TEST_F(OpenDmlIndex, ChunksBehindAnIndexAreMetOneLevelUp)
{
    // The list ends with the index; what follows it is walked by the header list.
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
    EXPECT_EQ(Info().bIndxPresent, 1); // which turns ParseIndex away from idx1
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

// ---- Hostile entry sizes, counts, subtypes, streams, offsets ----

TEST_F(OpenDmlIndex, EntrySizesAreClampedToTheBatchBuffer)
{
    for (const auto& [longs, result] : {std::pair<UInt32, UInt32>{0, LX_ERR_AVIREAD_NO_INDEX},
                                        {1, LX_OK}, {3, LX_OK}, {0x4000, LX_OK}, {0xFFFF, LX_OK}}) {
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
        EXPECT_EQ(sizes, (std::vector<UInt64>{4, 32, 18000, last, 4, 32, 18000, last}));
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
    // two lists: the second one's index has a sub type that counts nothing and fills all the same
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
    EXPECT_EQ(log.Assertions().size(), 1u); // once, however many
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
        EXPECT_EQ(result, static_cast<UInt32>(offset) >= 0x80000000u ? LX_ERR_AVIREAD_SEEK : LX_ERR_AVIREAD_EOF) << offset;
    }
}

// ---- One-level indexes ----

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
        EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX); // it has no super-index entries
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
    EXPECT_TRUE(log.Has("lxAviReadCore_ParseChunkIndx: Dumping padded Bytes 64")); // 8 records of the video
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
    EXPECT_EQ(Info().AviHdr->dwFlags & 0x10u, 0x10u); // set again by Open: there was an index chunk
    EXPECT_FALSE(log.HasPrefix("AviReadCore : read data unknown")); // the list was walked to its end
    ASSERT_EQ(OpenWithIndx(Chunk("indx", IndxHead(0, 0, 1, 1) + Fill(12, 0) + noKey)), LX_OK); // entries of size 0
    EXPECT_EQ(OpenWithIndx(Chunk("indx", IndxHead(0x4000, 0, 1, 0) + Fill(12, 0))), LX_OK);
}

TEST_F(OpenDmlIndex, AnEntrySizeThatWraps16BitsIsUnusable)
{
    // counted over 8-byte records, then the entry size of 0x10000 is 0 in 16 bits
    Bytes records;
    for (int i = 0; i < 4; ++i) {
        records += U32(8) + U32(4);
    }
    EXPECT_EQ(OpenWithIndx(Chunk("indx", IndxHead(0x4000, 0, 1, 0) + Fill(12, 0) + records)), LX_OK);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
}

TEST_F(OpenDmlIndex, AOneLevelFieldIndexFollowsThreeRulesThatDisagree)
{
    // Three records of 12 bytes: counted as three of 8 bytes, sought back over 36, filled as three of 12 bytes from
    // 12 bytes before the records on (which are the base and the reserved word).
    // The file is left 12 bytes before the end of the chunk, where the header list goes on: at a chunk, by luck.
    const Bytes records = U32(1000) + U32(10) + U32(1) + U32(2000) + U32(20) + U32(2) + Chunk("JUNK", Fill(4));
    ASSERT_EQ(OpenWithIndx(Chunk("indx", IndxHead(3, 1, 1, 3) + U64(100) + U32(0) + records)), LX_OK);
    const auto table = Table();
    ASSERT_EQ(table.size(), 3u);
    EXPECT_EQ(table[0].videoChunkOffset, 192u); // the base, taken for an offset
    EXPECT_EQ(table[1].videoChunkOffset, 1092u);
    EXPECT_EQ(table[2].videoChunkOffset, 2092u);
}

TEST_F(OpenDmlIndex, OneLevelFailuresPassThroughTheCommonExit)
{
    builder.eIndex = IndexKind::OneLevelStandard;
    AddMedia(0, 8);
    const Bytes file = builder.Build();
    // the budget
    EXPECT_EQ(Open(file, true, 1, 100), LX_ERR_AVIREAD_NO_MEMORY);
    // allocations: two and 17 times three by Alloc, then the batch buffer, the array, the leaf, the audio's batch buffer
    for (UInt64 n = 54; n <= 57; ++n) {
        ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
        Faults().FailAllocation(n);
        EXPECT_EQ(Open(file), LX_ERR_AVIREAD_NO_MEMORY) << n;
        Faults().FailAllocation(0);
    }
    // the seek back
    Faults().FailSeek(1);
    EXPECT_EQ(Open(file), LX_ERR_AVIREAD_SEEK);
    Faults().FailSeek(0);
    // reads: each of the chunk's own fields, counting, filling, audio
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
    const Bytes noKey = ChunkOfSize("indx", 12 + 12 + 5000, IndxHead(2, 0, 1, 1) + Fill(12, 0) + U32(8) + U32(0x80000004u));
    // NO_INDEX stays, is tolerated, and the walk then meets the end of the file
    EXPECT_EQ(OpenWithIndx(noKey), LX_ERR_AVIREAD_EOF);
}

TEST_F(OpenDmlIndex, RecordsSoughtBackOverDoNotLeadToTheSameListForEver)
{
    // The second header list holds nothing but an index of the main video stream whose entry size leads the seek back
    // to that very list: 14 entries, read as 8 bytes each and sought back over as 20.
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
        static_cast<void>(Open(file)); // it returns
    }
}

TEST_F(OpenDmlIndex, RecordsThatASuperIndexNamesOverAndOverAreNotReadOverAndOver)
{
    // 300 entries name one chunk of 40 records, some of them beyond 4 GiB, which a seek does not see
    Bytes records;
    for (UInt32 i = 0; i < 40; ++i) {
        records += U32(8) + U32(4);
    }
    AviBuilder one;
    one.eIndex = IndexKind::None;
    one.Add(VideoStream());
    one.streams[0].extra = Chunk("indx", IndxHead(4, 0, 0, 300) + Fill(12) + Fill(300 * 16, 0));
    one.Raw(Chunk("ix00", IndxHead(2, 0, 1, 40) + U64(0) + U32(0) + U32(0) + records)).Frame(0, Fill(4), true);
    Bytes file = one.Build();
    const size_t entries = Find(file, "indx") + 8 + 24;
    for (UInt32 i = 0; i < 300; ++i) {
        Patch32(file, entries + 16 * i, static_cast<UInt32>(Find(file, "ix00")));
        Patch32(file, entries + 16 * i + 4, i % 3);
    }
    log.SetMask(0);
    ASSERT_EQ(Open(file), LX_OK);
    const UInt64 reads = Faults().Reads();
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_LT(Faults().Reads() - reads, 3u * 20u); // 6000 bytes of file hold 320 bytes of records not 20 times
}

TEST_F(OpenDmlIndex, RecordsAreReadAsOftenAsTheyHaveRoomBeforeTheFurthest)
{
    // 40 records of 8 bytes, or of 12, at a multiple of their size: n + 1 times fits exactly.
    for (const UInt32 recordBytes : {8u, 12u}) {
        const UInt32 bytes = 40 * recordBytes;
        AviBuilder one;
        one.eIndex = IndexKind::None;
        one.Add(VideoStream());
        one.streams[0].extra = Chunk("indx", IndxHead(4, 0, 0, 20) + Fill(12) + Fill(20 * 16, 0));
        one.Raw(Chunk("ix00", IndxHead(recordBytes / 4, recordBytes == 12 ? 1 : 0, 1, 40) + Fill(16, 0) + Fill(bytes)));
        const size_t unaligned = Find(one.Build(), "ix00");
        one.beforeMovi = Chunk("JUNK", Fill(bytes - (unaligned + 8) % bytes));
        Bytes file = one.Build();
        const size_t at = Find(file, "ix00");
        ASSERT_EQ(at % bytes, 0u);
        for (UInt32 i = 0; i < 20; ++i) {
            Patch32(file, Find(file, "indx") + 8 + 24 + 16 * i, static_cast<UInt32>(at));
        }
        log.SetMask(0x200);
        ASSERT_EQ(Open(file), LX_OK);
        log.Clear();
        EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
        EXPECT_EQ(log.CountPrefix("Fseeking("), at / bytes + 2); // the last one is refused
    }
}

TEST_F(OpenDmlIndex, AChunkNamedTwiceIsReadTwiceWhereThatIsNoHarm)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddSegments();
    Bytes file = builder.Build();
    const size_t entries = Find(file, "indx") + 8 + 24;
    for (size_t i = 0; i < 16; ++i) {
        file[entries + 16 + i] = file[entries + i];
    }
    ASSERT_EQ(Open(file), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(Info().KeyFramesListAsArray[0]->arrayLength, 15u);
}

TEST_F(OpenDmlIndex, EntriesAreReadInPiecesThatGrow)
{
    // 10000 entries are 160000 bytes: pieces of 64 KiB, 64 KiB and the rest
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
        EXPECT_EQ(OpenWithIndx(Chunk("indx", IndxHead(4, 0, 0, 10000) + Fill(12) + entries)),
                  LX_ERR_AVIREAD_NO_MEMORY);
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
    // the first is of no use, so the list goes on to the second
    const Bytes unusable = Chunk("indx", IndxHead(2, 0, 1, 0) + Fill(12, 0));
    const Bytes super = Chunk("indx", IndxHead(4, 0, 0, 1) + Fill(12) + Fill(16));
    ASSERT_EQ(OpenWithIndx(unusable + super), LX_OK);
    EXPECT_NE(Info().StreamInfo[0]->IndxChunk.pAviSuperIndexEntry, nullptr);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
    ASSERT_EQ(lxAviReadCore_Open(0, "", 1, kPlenty, 1, &allIndexed), LX_OK); // over the same records: no leak
}

TEST_F(OpenDmlIndex, TheFillFunctionsGoOnFromRunToRun)
{
    Bytes records;
    for (UInt32 i = 0; i < 10; ++i) {
        records += U32(1008 + 100 * i) + U32(i % 2 == 0 ? 10 : 0x8000000Au);
    }
    builder.Frame(0, records, true);
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), builder.MoviOffset() + 8, 0), 1);
    Info().uiMaxRecordsInBuffer = 2250;
    Bytes buffer(18000);
    LendBuffer(buffer);
    ASSERT_EQ(lxAvi2ReadCore_CreateKFTable(0, &Info(), 2), LX_OK);
    lxAviReadCore_KeyFrameLeaf_t* pLeaf = Info().KeyFramesListAsArray[0];
    UInt32 frame = 0, skip = 0, leafNr = 0;
    for (int half = 0; half < 2; ++half) {
        ASSERT_EQ(lxAvi2ReadCore_FillVideoKFramesInKFTable(&Info(), &pLeaf, &frame, 5, 0, Code("00dc"), 0, 2, &skip,
                                                           &leafNr),
                  LX_OK);
    }
    EXPECT_EQ(frame, 10u);
    EXPECT_EQ(skip, 1u);
    EXPECT_EQ(leafNr, 0u);
    EXPECT_EQ(pLeaf, Info().KeyFramesListAsArray[0]);
    ASSERT_EQ(pLeaf->arrayLength, 3u); // key frames 0, 4 and 8 of 0, 2, 4, 6, 8
    EXPECT_EQ(pLeaf->array[1].videoFrameNumber, 4u);
    EXPECT_EQ(pLeaf->array[2].videoChunkOffset, 1800u);

    // a leaf that is rolled over to begins empty
    frame = skip = leafNr = 0;
    pLeaf->arrayLength = kLeaf;
    Info().KeyFramesListAsArray[1]->arrayLength = 7;
    Info().KeyFramesListAsArray[1]->array[3].videoFrameNumber = 7;
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), builder.MoviOffset() + 8, 0), 1);
    ASSERT_EQ(lxAvi2ReadCore_FillVideoKFramesInKFTable(&Info(), &pLeaf, &frame, 5, 0, Code("00dc"), 0, 1, &skip, &leafNr),
              LX_OK);
    EXPECT_EQ(leafNr, 1u);
    EXPECT_EQ(pLeaf->arrayLength, 3u);
    EXPECT_EQ(pLeaf->array[3].videoFrameNumber, 0u);
    EXPECT_EQ(pLeaf->pPrevLeaf, Info().KeyFramesListAsArray[0]);
    pLeaf = Info().KeyFramesListAsArray[0];
    pLeaf->arrayLength = 3;
    leafNr = 0;
    skip = 1;

    // a counter that is not 0 passes over one key frame, also where every one is kept
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), builder.MoviOffset() + 8, 0), 1);
    ASSERT_EQ(lxAvi2ReadCore_FillVideoKFramesInKFTable(&Info(), &pLeaf, &frame, 5, 0, Code("00dc"), 0, 1, &skip, &leafNr),
              LX_OK);
    EXPECT_EQ(skip, 0u);
    EXPECT_EQ(pLeaf->arrayLength, 5u);

    lxAvi2ReadCore_AudioIndexState_t state = {};
    lxAviReadCore_KeyFramePosition_t cursor = {0, 0, 0, 1};
    UInt32 cursorTime = 0;
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), builder.MoviOffset() + 8, 0), 1);
    for (int half = 0; half < 2; ++half) {
        ASSERT_EQ(lxAvi2ReadCore_FillAudioInfoInKFTable(&Info(), 5, 0, Code("01wb"), 0, 0, &state, &cursor, &cursorTime),
                  LX_OK);
    }
    EXPECT_EQ(state.chunkCount, 10u);
    EXPECT_EQ(state.totalBytes, 100u);
    EXPECT_EQ(state.lastChunkOffset, 1900u);
    EXPECT_EQ(state.lastChunkBytePosition, 90u);
    UInt32 count = 7;
    EXPECT_EQ(lxAvi2ReadCore_GetTotalKFramesInStdIndxChunk(&Info(), 0, &count), LX_OK);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(lxAvi2ReadCore_GetTotalKFramesInStdIndxChunk(&Info(), 0, nullptr), LX_OK);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), builder.MoviOffset() + 8, 0), 1);
    EXPECT_EQ(lxAvi2ReadCore_GetTotalKFramesInFieldIndxChunk(&Info(), 6, &count), LX_OK);
    EXPECT_EQ(count, 5u); // the second words of 12-byte records: 10, 1108 is the first of the next, …
    Info().pMetaDataBuffer = nullptr;
}

// ---- What the passes leave alone, and what they leave behind ----

TEST_F(OpenDmlIndex, ATrackBeyondTheLastIsWalkedAndNotPlaced)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddMedia(0, 20);
    OpenIndexed(builder);
    const auto table = Table();
    ASSERT_EQ(table.size(), 5u);
    Info().TrackNumber[1] = LX_AVIREAD_AUDIO_TRACKS; // which no file brings about
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
    EXPECT_EQ(Bytes(pBuffer, pBuffer + 18000), Fill(18000, 0)); // no records are left behind

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
    EXPECT_EQ(Entry(0, 7).audioChunkOffset[1], 0u); // the second track's index was not looked at
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
    Info().AviHdr->dwFlags = 0; // no idx1 is promised
    // What a table is built from is left out, and skipped with the rest of the chunk.
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
    file[Find(file, "ix00") + 8] = 4; // the first chunk's entries count as 16 bytes: 1125 are read at a time
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
    EXPECT_EQ(Bytes(pBuffer, pBuffer + 18000), Fill(18000, 0)); // no records are left behind
}

TEST_F(OpenDmlIndex, WithoutABatchBufferNothingIsTouched)
{
    builder.eIndex = IndexKind::None;
    ASSERT_EQ(Open(builder), LX_OK);
    log.Clear();
    Faults().FailAllocation(1);
    const lxAviReadCore_AviIndxChunkCommonSection_t common = {2, 0, 1, 1, Code("01wb")};
    EXPECT_EQ(lxAvi2ReadCore_ParseAudioStdIndex(0, &Info(), &common, 0, 0), LX_ERR_AVIREAD_NO_MEMORY);
    EXPECT_TRUE(log.Assertions().empty()); // the table is not looked at
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
