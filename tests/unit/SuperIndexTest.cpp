// OpenDML: the table from super indexes.

#include "OpenDmlIndexTest.hpp"

namespace avitest {
namespace {

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
            EXPECT_EQ(Info().StreamInfo[0]->bIndexParsed, 0); // only one-level indexes set it
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
    EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrame(&found, -1), LX_OK); // beyond the end of the first list
    EXPECT_EQ(Next().chunk.uiFrameNumber, 20u);
    EXPECT_EQ(lxAviReadCore_SetJumpToPrevKeyFrame(&found, -1), LX_OK);
    EXPECT_EQ(Next().chunk.uiFrameNumber, 16u);
    // with audio: delivery resumes with the audio chunk of the table
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
    OpenIndexed(builder, kOneLeafBudget); // stores every third of 1000 key frames
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
    builder.uiBaseShift = 5ull << 32; // the records' offsets wrap at 32 bits
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
    EXPECT_EQ(table[3].audioFrameNumber[0], 15u); // the key frame is at 600 ms; chunk c is at 40 x c ms
    EXPECT_EQ(table[3].audioFrameNumber[1], 7u);  // chunk c is at 80 x c ms
    EXPECT_EQ(table[3].audioFrameNumber[2], 0u);  // a track without an index keeps the 0 of the cleared leaf
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
    EXPECT_TRUE(log.Lines().empty()); // OpenIndexed has cleared the log
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
    EXPECT_EQ(log.CountPrefix("Storing Audio(0)"), 0u); // the chunk is stored at the end, without this message
    EXPECT_EQ(Entry(0, 0).audioFrameNumber[0], 0u);
}

TEST_F(OpenDmlIndex, RecordsOf32BytesOnAreReadOneWordOff)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    builder.behindIdx1 = Fill(64); // the last record that is read reaches beyond its chunk
    AddMedia(0, 8);
    OpenIndexed(builder);
    // as first record the reader reads the size of the first chunk and the offset of the second chunk
    EXPECT_NE(Entry(0, 0).videoChunkOffset, builder.MediaItems()[2].uiOffset);
    const auto base = static_cast<UInt32>(builder.MoviOffset());
    EXPECT_EQ(Entry(0, 0).videoChunkOffset, base + 50u - 8u); // frame 0 is a key frame of 50 bytes
}

} // namespace
} // namespace avitest
