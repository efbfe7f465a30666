// One test for each oddity of default mode. The test fails when somebody repairs the oddity. See doc/quirks.md.

#include "ReaderTest.hpp"

#include "internal/Bytes.hpp"

namespace avitest {
namespace {

class Quirks : public ReaderTest {
protected:
    AviBuilder builder;

    Quirks() { builder.Add(VideoStream()).Add(PcmStream()); }

    // Adds `count` frames of 10 bytes with 40 ms of audio before each frame; every `step`-th frame is a key frame.
    void AddMedia(UInt32 count, UInt32 step)
    {
        for (UInt32 i = 0; i < count; ++i) {
            builder.Audio(1, Fill(640)).Frame(0, Fill(10), i % step == 0);
        }
    }

    void Play(UInt32 chunks)
    {
        for (UInt32 i = 0; i < chunks; ++i) {
            ASSERT_EQ(NextValid().uiResult, LX_OK);
        }
    }

    static Bytes Record(std::string_view id, UInt32 flags, UInt32 offset, UInt32 size)
    {
        return Text(id) + U32(flags) + U32(offset) + U32(size);
    }

    UInt32 ParseRecords(const Bytes& records)
    {
        builder.eIndex = IndexKind::None;
        builder.Frame(0, Fill(40), true);
        builder.behindMovi = ChunkOfSize("idx1", static_cast<UInt32>(records.size()), records);
        EXPECT_EQ(Open(builder), LX_OK);
        return lxAviReadCore_ParseIndex(0);
    }
};

TEST_F(Quirks, Quirk_Q01_LettersInStreamNumbersWeighTen)
{
    using lxAviReadCore::StreamNumber;
    using lxAviReadCore::TwoCC;
    EXPECT_EQ(StreamNumber(TwoCC("0A")), 10);
    EXPECT_EQ(StreamNumber(TwoCC("10")), 10);
    EXPECT_EQ(StreamNumber(TwoCC("1A")), 20); // not 26
    EXPECT_EQ(StreamNumber(TwoCC("A0")), 100);
}

TEST_F(Quirks, Quirk_Q02_AllocationMessagesSwapTheirNumbers)
{
    ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
    Faults().FailAllocation(2 + 3 * 3 + 2); // the format of stream 3
    EXPECT_EQ(lxAviReadCore_Alloc(0), LX_ERR_AVIREAD_NO_MEMORY);
    EXPECT_TRUE(log.Has("could not allocate 3 bytes for pAviInfo->StreamInfo[40]->Format"));
}

TEST_F(Quirks, Quirk_Q03_ResetSelectsStreamZero)
{
    AviBuilder audioOnly;
    audioOnly.Add(PcmStream());
    ASSERT_EQ(Open(audioOnly), LX_OK);
    EXPECT_EQ(Info().videoStreamNr, -1);
    ASSERT_EQ(lxAviReadCore_Reset(), LX_OK);
    EXPECT_EQ(Info().videoStreamNr, 0);
    EXPECT_EQ(Info().audioStreamNr, 0);
}

TEST_F(Quirks, Quirk_Q04_ARewindKeepsAPendingJump)
{
    AddMedia(30, 10);
    OpenIndexed(builder);
    static_cast<void>(lxAviReadCore_SeekToTime(800, -1, lxAviRead_SetPosRoundDown));
    const UInt64 jump = Info().JumpOffset;
    lxAviReadCore_RewindToStart();
    EXPECT_EQ(Info().JumpOffset, jump);
    EXPECT_EQ(Next().chunk.uiFrameNumber, 20u);
}

TEST_F(Quirks, Quirk_Q05_TheEndOfFileMessageNamesTheReadError)
{
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 1u << 20, 0), 1);
    UInt32 word = 0;
    EXPECT_EQ(lxAviReadCore_FileRead(&Info(), &word, 4), LX_ERR_AVIREAD_EOF);
    EXPECT_TRUE(log.HasPrefix("leaving lxAviReadCore_FileRead()-eof.err=0x88019017"));
}

TEST_F(Quirks, Quirk_Q06_AShortReadGoesOnFourTimesFurther)
{
    Bytes data;
    for (UInt8 i = 1; i <= 64; ++i) {
        data.push_back(i);
    }
    Faults().Serve("data", data);
    static_cast<void>(lxAviReadCore_Open(0, "data", 3, 0, 1, &allIndexed));
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
    for (const auto read : {lxAviReadCore_FileRead, lxAvi2ReadCore_FileRead}) {
        ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
        UInt32 buffer[16] = {};
        Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 2});
        Faults().FaultReadToo(2, {ReadFault::Kind::ShortThenError, 1});
        ASSERT_EQ(read(&Info(), buffer, 6), LX_OK);
        // 2 bytes at 0, 1 byte at 8, 3 bytes at 12
        EXPECT_EQ(AsBytes(buffer), (Bytes{1, 2, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 4, 5, 6, 0}) + Fill(48, 0));
    }
}

TEST_F(Quirks, Quirk_Q07_SeeksTake32SignedBits)
{
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(lxAviReadCore_FileSeek(&Info(), (7ull << 32) + 100, 0), 1);
    EXPECT_EQ(ftell(Info().pFile), 100);
    EXPECT_EQ(lxAviReadCore_FileSeek(&Info(), 0x80000000u, 0), 0);
}

TEST_F(Quirks, Quirk_Q08_RemovingNothingSucceeds)
{
    EXPECT_EQ(lxAviReadCore_RemoveChunk(0), LX_OK); // even without a file
    EXPECT_TRUE(log.Has(0x8400, "lxAviReadCore_RemoveChunk : size == 0 something is wrong returning "
                                "LX_ERR_BAD_PARAMETER"));
}

TEST_F(Quirks, Quirk_Q09_JunkBehindTheMediaDataMovesIt)
{
    builder.Frame(0, Fill(4), true);
    builder.behindMovi = Chunk("JUNK", Fill(20));
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(Info().moviOffset, builder.MoviOffset() + 28);
    EXPECT_EQ(Info().pCurrentAvix->moviDataOffset, builder.MoviOffset());
    EXPECT_EQ(Info().idx1Offset, builder.MoviOffset() + 12 + 8); // 28 bytes before the index
}

TEST_F(Quirks, Quirk_Q10_UnknownChunksBeforeTheMediaDataAreNotCounted)
{
    builder.Frame(0, Fill(4), true);
    builder.beforeMovi = Chunk("abcd", Fill(20));
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(Info().moviOffset, builder.MoviOffset() - 28);
}

TEST_F(Quirks, Quirk_Q11_TheRestOfAnOdmlListIsWalkedOneLevelUp)
{
    builder.Frame(0, Fill(4), true);
    // The second chunk of the odml list is an avih of a wrong size. The reader refuses it, because it treats it as a
    // chunk of the header list.
    builder.inHeaderList = List("odml", Chunk("dmlh", U32(1)) + Chunk("avih", Fill(8))) + Chunk("JUNK", Fill(64));
    EXPECT_EQ(Open(builder), LX_ERR_AVIREAD_NOT_AVI);
}

TEST_F(Quirks, Quirk_Q12_UnknownListsInTheHeaderListTakeFourBytesMore)
{
    const Bytes avih = Chunk("avih", Fill(56, 1));
    const Bytes headers = Text("hdrl") + List("abcd", Fill(8)) + Fill(4, 0) + avih;
    const Bytes movi = List("movi", Chunk("00dc", Fill(4)));
    ASSERT_EQ(Open(Riff("AVI ", ChunkOfSize("LIST", static_cast<UInt32>(headers.size()) - 4, headers) + movi)), LX_OK);
    EXPECT_EQ(Info().AviHdr->dwWidth, 0x01010101u);
    EXPECT_NE(Open(Riff("AVI ", List("hdrl", List("abcd", Fill(8)) + avih) + movi)), LX_OK);
}

TEST_F(Quirks, Quirk_Q13_ANinthAudioStreamStaysOnTrackZero)
{
    for (int i = 0; i < 8; ++i) {
        builder.Add(PcmStream());
    }
    builder.Audio(9, Fill(8));
    builder.eIndex = IndexKind::None;
    ASSERT_EQ(Open(builder), LX_OK);
    Position();
    EXPECT_EQ(Info().TrackNumber[9], 0u);
    EXPECT_EQ(Info().AudioTracksCount, 9u);
    EXPECT_EQ(Next(0).uiResult, LX_OK);
}

TEST_F(Quirks, Quirk_Q14_AnIndexChunkEndsItsStreamList)
{
    // If the reader read the second header as part of the stream list, the stream's rate would change.
    Stream other = VideoStream(99);
    builder.streams[0].extra =
        Chunk("indx", U16(4) + Bytes{0, 0} + U32(0) + Text("00dc") + Fill(12)) + Chunk("strh", AsBytes(other.header));
    builder.Frame(0, Fill(4), true);
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(Info().StreamInfo[0]->Header.dwRate, 25u);
}

TEST_F(Quirks, Quirk_Q15_AudioFrameSizesDivideFirst)
{
    AviBuilder ac3;
    ac3.Add(Ac3Stream(24000)); // 48000 samples a second: 1536 / 48000 is 0
    ASSERT_EQ(Open(ac3), LX_OK);
    EXPECT_EQ(Info().StreamInfo[0]->iFrameSize, 0); // not 768
}

TEST_F(Quirks, Quirk_Q16_TheStreamDataMessagePrints40)
{
    builder.streams[0].extra = Chunk("strd", Fill(100));
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_TRUE(log.Has("AviReadCore : size of video stream data (100) should be >= size of struct (40)\n"));
}

TEST_F(Quirks, Quirk_Q17_ThinningCountsLeaves)
{
    Info().memoryUsageLimit = kOneLeafBudget;
    UInt32 keyFrames = 1000, leafs = 0, memory = 0, skip = 0;
    ASSERT_EQ(lxAviReadCore_CalcLeafsNeededAndSkipValue(&Info(), &keyFrames, &leafs, &memory, &skip), LX_OK);
    EXPECT_EQ(skip, 3u);
    EXPECT_EQ(keyFrames, 334u); // 363 would fit
}

TEST_F(Quirks, Quirk_Q18_NeededMemoryLeavesOutThePointers)
{
    Info().memoryUsageLimit = kPlenty;
    UInt32 keyFrames = 1000, leafs = 0, memory = 0, skip = 0;
    ASSERT_EQ(lxAviReadCore_CalcLeafsNeededAndSkipValue(&Info(), &keyFrames, &leafs, &memory, &skip), LX_OK);
    EXPECT_EQ(memory, 3 * kLeafBytes);
}

TEST_F(Quirks, Quirk_Q19_TheLastFourBytesOfAPlainListAreOutOfReach)
{
    for (const UInt32 size : {0u, 2u, 4u}) {
        AviBuilder one;
        one.eIndex = IndexKind::None;
        one.Add(VideoStream()).Frame(0, Fill(8), true).Frame(0, Fill(size), false);
        ASSERT_EQ(Open(one), LX_OK);
        Position();
        EXPECT_EQ(All().size(), size < 4 ? 2u : 3u) << size; // this number includes the end
    }
}

TEST_F(Quirks, Quirk_Q20_NoSecondRoomTestInTheNextList)
{
    AviBuilder cut;
    cut.dmlhTotalFrames = 100;
    cut.eIndex = IndexKind::None;
    cut.Add(VideoStream()).Raw(ChunkOfSize("JUNK", 22, {}));
    cut.NextRiff().Frame(0, Fill(14, 3), true).Frame(0, Fill(16, 4), false);
    ASSERT_EQ(Open(cut), LX_OK);
    Position();
    Info().bAbsoluteOffsets = 1;
    Info().CurrentOffset = Info().moviOffset;
    EXPECT_EQ(Next().payload, Fill(16, 4)); // the reader skips the 22 bytes in the next list
}

TEST_F(Quirks, Quirk_Q21_AJumpSetsTheFrameCounterToZero)
{
    AddMedia(30, 10);
    OpenIndexed(builder);
    static_cast<void>(lxAviReadCore_SeekToTime(800, 0, lxAviRead_SetPosRoundDown));
    EXPECT_EQ(lxalAviRead_VideoFrame, 20u);
    EXPECT_EQ(Next().chunk.eStreamType, 1u); // audio comes first
    EXPECT_EQ(lxalAviRead_VideoFrame, 0u);
}

TEST_F(Quirks, Quirk_Q22_ADrmDescriptorIsTenBytesWhateverItsSize)
{
    builder.eIndex = IndexKind::None;
    builder.Raw(ChunkOfSize("55dd", 4000, Fill(10, 6))).Raw(ChunkOfSize("00zz", 6, Fill(6, 3)));
    ASSERT_EQ(Open(builder), LX_OK);
    Position();
    const Delivered chunk = Next();
    EXPECT_EQ(chunk.chunk.bDrm, 1);
    EXPECT_EQ(chunk.payload, Fill(6, 3));
}

TEST_F(Quirks, Quirk_Q23_VideoTimesPassThroughSinglePrecision)
{
    builder.avih.dwMicroSecPerFrame = 1000;
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStreamTime(0, 16777217, 0), 16777216u);
}

TEST_F(Quirks, Quirk_Q24_OtherFramesAreComparedByNumber)
{
    AddMedia(40, 10);
    OpenIndexed(builder);
    static_cast<void>(lxAviReadCore_SeekToTime(800, -1, lxAviRead_SetPosRoundDown));
    Info().JumpOffset = 4; // back to the start, with the sync entry at frame 20
    lxalAviRead_FileSeekPossible = 1;
    Info().bJumpToVideo = 0;
    NextValid(); // audio
    lxalAviRead_VideoFrame = 25;
    SkipRejected(Next()); // key frame 0: rejected by its time; sets the counter to 0
    NextValid();
    lxalAviRead_VideoFrame = 25;
    EXPECT_EQ(Next().uiResult, LX_OK); // frame 1: delivered, because the counter is 25 and the sync entry is frame 20
}

TEST_F(Quirks, Quirk_Q25_WithoutATableFramesCountFromOne)
{
    builder.eIndex = IndexKind::None;
    builder.Frame(0, Fill(8), true);
    ASSERT_EQ(Open(builder), LX_OK);
    Position();
    EXPECT_EQ(Next().chunk.uiFrameNumber, 1u);
}

TEST_F(Quirks, Quirk_Q26_OneAudioChunkIsCheckedAfterAJump)
{
    for (UInt32 i = 0; i < 30; ++i) {
        builder.Audio(1, Fill(320)).Audio(1, Fill(320)).Frame(0, Fill(10), i % 10 == 0);
    }
    OpenIndexed(builder);
    static_cast<void>(lxAviReadCore_SeekToTime(800, 0, lxAviRead_SetPosRoundDown));
    Info().JumpOffset = 4; // the next two audio chunks lie before the sync chunk
    const Delivered first = Next();
    EXPECT_EQ(first.uiResult, LX_ERR_AVIREAD_AUDIO_SKIPPED);
    SkipRejected(first);
    EXPECT_EQ(Next().uiResult, LX_OK);
}

TEST_F(Quirks, Quirk_Q27_LookupsTake32Bits)
{
    AddMedia(30, 10);
    OpenIndexed(builder);
    Entry(0, 1).videoChunkOffset += 1ull << 32;
    Info().KeyFramesListAsArray[0]->EndOffset = ~0ull;
    lxAviReadCore_KeyFramePosition_t result = {};
    EXPECT_EQ(lxAviReadCore_GetChunkInfo(&result, static_cast<UInt32>(Entry(0, 1).videoChunkOffset)), LX_OK);
    EXPECT_EQ(result.valid, 0);
}

TEST_F(Quirks, Quirk_Q28_RearmingLeavesFlagsAndCounters)
{
    AddMedia(30, 10);
    OpenIndexed(builder);
    Play(4);
    lxalAviRead_AudioFrame[0] = 77;
    ASSERT_EQ(lxAviReadCore_SetOnKeyFrame_AudioAndVideo(-1), LX_OK);
    EXPECT_NE(Info().JumpOffset, 0u);
    EXPECT_EQ(Info().bJumpToVideo, 0);
    EXPECT_EQ(lxalAviRead_AudioFrame[0], 77u);
}

TEST_F(Quirks, Quirk_Q29_AnAbsentTrackMakesAJumpToNowhere)
{
    AddMedia(30, 10);
    OpenIndexed(builder);
    static_cast<void>(lxAviReadCore_SeekToTime(800, 5, lxAviRead_SetPosRoundDown));
    EXPECT_EQ(Info().JumpOffset, 0u);
    EXPECT_FALSE(Next().bJumped);
}

TEST_F(Quirks, Quirk_Q30_StepsOffTheEndGoToTheFirstKeyFrame)
{
    AddMedia(30, 10);
    OpenIndexed(builder);
    Play(4);
    ASSERT_EQ(lxAviReadCore_JumpInKeyFrames(100, -1), LX_OK);
    EXPECT_EQ(Info().JumpOffset, Entry(0, 0).videoChunkOffset);
}

TEST_F(Quirks, Quirk_Q31_TheTrickStepDoesNotRequireVideoFirst)
{
    AddMedia(30, 10);
    OpenIndexed(builder);
    Play(4);
    Bool found = 0;
    ASSERT_EQ(lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(&found, 0), LX_OK);
    EXPECT_EQ(Info().bJumpToVideo, 0);
    ASSERT_EQ(lxAviReadCore_SetJumpToPrevKeyFrame(&found, 0), LX_OK);
    EXPECT_EQ(Info().bJumpToVideo, 1);
}

TEST_F(Quirks, Quirk_Q32_AudioTimesMixTwoChunks)
{
    // Chunks of 16000, 160 and 160 bytes. For the second chunk the reader computes 10 ms (default mode).
    ASSERT_EQ(ParseRecords(Record("00dc", 0x10, 4, 1) + Record("00dc", 0x10, 5, 1) + Record("01wb", 0, 10, 16000) +
                           Record("01wb", 0, 11, 160) + Record("01wb", 0, 12, 160)),
              LX_OK);
    EXPECT_EQ(Entry(0, 1).audioFrameNumber[0], 1u); // not 0
}

TEST_F(Quirks, Quirk_Q33_AudioRecordsCountForTheirStreamsNumber)
{
    ASSERT_EQ(ParseRecords(Record("00wb", 0, 10, 640) + Record("00dc", 0x10, 12, 1)), LX_OK);
    EXPECT_EQ(Entry(0, 0).audioChunkOffset[0], 10u);
}

TEST_F(Quirks, Quirk_Q34_TheAudioPassRunsAfterAFailedSeek)
{
    builder.Frame(0, Fill(4), true);
    builder.behindIdx1 = Fill(64);
    ASSERT_EQ(Open(builder), LX_OK);
    Faults().FaultRead(0, {});
    Faults().FailSeek(3);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_SEEK);
    EXPECT_EQ(Faults().Reads(), 3u);
}

TEST_F(Quirks, Quirk_Q35_OpenDmlOffsetsLoseTheHighWordOfTheirBase)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.uiBaseShift = 3ull << 32;
    builder.Frame(0, Fill(4), true);
    OpenIndexed(builder);
    EXPECT_EQ(Entry(0, 0).videoChunkOffset, builder.MoviOffset());
}

TEST_F(Quirks, Quirk_Q36_AOneLevelFieldIndexIsCountedAs8ByteRecords)
{
    // Read as two 12-byte records, one is a key frame; read as two 8-byte records, none is a key frame.
    const Bytes records = U32(8) + U32(0x80000004u) + U32(0) + U32(0x80000000u) + U32(4) + U32(0);
    builder.streams[0].extra = Chunk("indx", U16(3) + Bytes{1, 1} + U32(2) + Text("00dc") + U64(0) + U32(0) + records);
    builder.eIndex = IndexKind::None;
    builder.Frame(0, Fill(4), true);
    static_cast<void>(Open(builder));
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
}

TEST_F(Quirks, Quirk_Q37_APromisedIdx1TurnsOneLevelIndexesOff)
{
    builder.eIndex = IndexKind::OneLevelStandard;
    builder.avih.dwFlags = LX_AVIREAD_HAS_INDEX;
    builder.Frame(0, Fill(4), true);
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
}

TEST_F(Quirks, Quirk_Q38_AMisplacedIndexChunkIsReadToTheEndOfTheFile)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.Frame(0, Fill(4), true);
    Bytes file = builder.Build();
    // the super index points one byte before the chunk, so the code begins at the next byte
    const size_t entry = Find(file, "indx") + 8 + 24;
    Patch32(file, entry, Get32(file, entry) - 1);
    ASSERT_EQ(Open(file), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_EOF);
}

TEST_F(Quirks, Quirk_Q39_OpenDmlRecordsAreRead36BytesOn)
{
    for (const IxLayout eLayout : {IxLayout::At36, IxLayout::At32}) {
        builder = AviBuilder();
        builder.Add(VideoStream());
        builder.eIndex = IndexKind::SuperStandard;
        builder.eLayout = eLayout;
        builder.behindIdx1 = Fill(64);
        builder.Frame(0, Fill(4), true).Frame(0, Fill(4), true);
        OpenIndexed(builder);
        EXPECT_EQ(Entry(0, 0).videoChunkOffset == builder.MediaItems()[0].uiOffset, eLayout == IxLayout::At36);
    }
}

TEST_F(Quirks, Quirk_Q40_ParsingAgainAfterAOneLevelIndexLosesTheTable)
{
    builder.eIndex = IndexKind::OneLevelStandard;
    builder.Frame(0, Fill(4), true);
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(Info().KeyFramesListAsArrayLength, 1u);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
}

TEST_F(Quirks, Quirk_Q41_OpenDmlAudioIsLookedForDirectlyBehindTheVideo)
{
    AviBuilder apart;
    apart.Add(VideoStream()).Add(TextStream()).Add(PcmStream());
    apart.eIndex = IndexKind::SuperStandard;
    apart.Frame(0, Fill(4), true).Audio(2, Fill(8));
    OpenIndexed(apart);
    EXPECT_EQ(Entry(0, 0).audioChunkOffset[0], 0u);
}

TEST_F(Quirks, Quirk_Q42_TheFirstKeyFrameAlwaysGetsTheFirstAudioChunk)
{
    Bytes records;
    for (UInt32 i = 0; i < 50; ++i) {
        records += Record("00dc", 0, 4 + i, 1) + Record("01wb", 0, 1000 + i, 640);
    }
    ASSERT_EQ(ParseRecords(records + Record("00dc", 0x10, 100, 1)), LX_OK); // frame 50, at 2000 ms
    EXPECT_EQ(Entry(0, 0).audioFrameNumber[0], 0u);
}

TEST_F(Quirks, Quirk_Q43_FramesBeforeTheFirstStoredKeyFrameAreRejected)
{
    builder.Frame(0, Fill(8), false).Frame(0, Fill(8), true);
    OpenIndexed(builder);
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_VIDEO_SKIPPED);
}

TEST_F(Quirks, Quirk_Q44_WhatIsNoChunkIsSlidOverByteByByte)
{
    builder.eIndex = IndexKind::None;
    // the reader does not enter a record list, so it also finds a chunk code inside the list header
    builder.Raw(Text("LIST") + ChunkOfSize("00dc", 4, Fill(4, 9))).Frame(0, Fill(8), true);
    ASSERT_EQ(Open(builder), LX_OK);
    Position();
    EXPECT_EQ(Next().payload, Fill(4, 9));
    EXPECT_EQ(Info().CurrentOffset, 4u + 4u + 12u);
}

TEST_F(Quirks, Quirk_Q45_ProtectedKeyFramesOfOpenDmlFilesAreNotRecognised)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.Frame(0, Fill(8), true).Drm(0, Fill(10)).Frame(0, Fill(8), true);
    OpenIndexed(builder);
    EXPECT_EQ(Next().chunk.bKeyFrame, 1);
    const Delivered chunk = Next();
    EXPECT_EQ(chunk.chunk.bDrm, 1);
    EXPECT_EQ(chunk.chunk.bKeyFrame, 0);
}

TEST_F(Quirks, Quirk_Q47_AnUnknownChunkBehindTheMediaDataEndsTheWalk)
{
    builder.Frame(0, Fill(8), true);
    builder.behindMovi = Chunk("abcd", Fill(4));
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(Info().idx1Size, 0u);
    EXPECT_EQ(static_cast<UInt64>(ftell(Info().pFile)), builder.MoviOffset());
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
}

TEST_F(Quirks, Quirk_Q48_RelativeOffsetsStayRelative)
{
    builder.dmlhTotalFrames = 9;
    builder.Frame(0, Fill(8), true).NextRiff().Frame(0, Fill(8), true);
    OpenIndexed(builder);
    EXPECT_EQ(Info().bAvixPresent, 1);
    EXPECT_EQ(Info().bAbsoluteOffsets, 0);
    EXPECT_EQ(Entry(0, 0).videoChunkOffset, 4u);
}

TEST_F(Quirks, Quirk_Q49_AnOpenDmlIndexStandsAlone)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.bIdx1Too = true;
    builder.Frame(0, Fill(8), true);
    Bytes file = builder.Build();
    Patch32(file, Find(file, "indx") + 8 + 24, 0); // the super index points at the start of the file
    ASSERT_EQ(Open(file), LX_OK);
    EXPECT_EQ(Info().idx1Size, 16u);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_EOF);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
}

TEST_F(Quirks, Quirk_Q50_AnIndexWithoutAKeyFlagIsNone)
{
    builder.Frame(0, Fill(8), false).Frame(0, Fill(8), false);
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
}

TEST_F(Quirks, Quirk_Q51_AnIndexThatEndsEarlyIsNone)
{
    AddMedia(20, 5);
    Bytes file = builder.Build();
    file.resize(file.size() - 16); // cuts the last record off
    ASSERT_EQ(Open(file), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_EOF);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
}

TEST_F(Quirks, Quirk_Q52_AudioTimesGoByTheCodec)
{
    builder.streams[1].header.dwScale = 1;
    builder.streams[1].header.dwRate = 8000; // samples of 2 bytes
    Stream adpcm = PcmStream();
    adpcm.format[0] = 2;
    builder.Add(adpcm);
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStreamTime(1, 0, 16000), 2000u); // the audio lasts 1000 ms
    EXPECT_EQ(lxAviReadCore_GetStreamTime(2, 0, 16000), 0u);
}

TEST_F(Quirks, Quirk_Q53_LeadingAudioIsDroppedInBlocksOfTheScale)
{
    builder.streams[1].header.dwScale = 1; // samples of 2 bytes
    builder.streams[1].format = AudioFormat(LX_AVIREAD_FORMAT_PCM, 1, 8000, 16000, 2, 16);
    builder.Audio(1, Fill(8000)).Frame(0, Fill(8), true).Frame(0, Fill(8), false).Frame(0, Fill(8), true);
    OpenIndexed(builder);
    static_cast<void>(lxAviReadCore_SeekToTime(80, 0, lxAviRead_SetPosRoundDown));
    // 80 ms are 1280 bytes. The trim leaves one block, here one byte, before the key frame's time.
    EXPECT_EQ(NextValid().chunk.uiBytePosition, 1279u);
}

TEST_F(Quirks, Quirk_Q57_TrimmingWorksWith32Bits)
{
    builder.streams[1].header.dwScale = 1;
    builder.streams[1].format = AudioFormat(LX_AVIREAD_FORMAT_PCM, 1, 8000, 16000, 2, 16);
    builder.Audio(1, Fill(8000)).Frame(0, Fill(8), true).Frame(0, Fill(8), false).Frame(0, Fill(8), true);
    OpenIndexed(builder);
    constexpr UInt64 kFourGiB = UInt64{1} << 32;
    Entry(0, 1).audioBytePosition[0] = kFourGiB; // three days of audio behind the key frame
    static_cast<void>(lxAviReadCore_SeekToTime(80, 0, lxAviRead_SetPosRoundDown));
    EXPECT_EQ(NextValid().chunk.uiBytePosition, kFourGiB + 1279); // trimmed as if it were 0
}

TEST_F(Quirks, Quirk_Q54_ExtensionListsHaveToBePromised)
{
    builder.eIndex = IndexKind::None;
    builder.Frame(0, Fill(10), true).NextRiff().Frame(0, Fill(10), true);
    ASSERT_EQ(Open(builder), LX_OK); // the file has no OpenDML header
    EXPECT_EQ(Info().pCurrentAvix->pNextAvix, nullptr);

    builder.dmlhTotalFrames = 2;
    builder.beforeMoviInAvix = Chunk("JUNK", Fill(30));
    EXPECT_EQ(Open(builder), LX_ERR_AVIREAD_AVIX_LIST);
}

TEST_F(Quirks, Quirk_Q55_AnUnusableAudioIndexCostsTheResult)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddMedia(12, 4);
    Bytes file = builder.Build();
    const size_t audioIndex = Find(file, "indx", Find(file, "indx") + 4);
    Patch32(file, audioIndex + 8 + 24, 400); // the entry names bytes of the headers
    ASSERT_EQ(Open(file), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_EOF);
}

TEST_F(Quirks, Quirk_Q56_AListThatReachesIntoTheNextRiffListKeepsItsSize)
{
    builder.eIndex = IndexKind::None;
    builder.dmlhTotalFrames = 1;
    builder.Frame(0, Fill(4), true);
    Bytes file = builder.Build();
    const Bytes extension = Riff("AVIX", List("movi", Chunk("00dc", Fill(10))));
    const size_t movi = Find(file, "movi");
    const auto claimed = static_cast<UInt32>(12 + extension.size()); // its own chunk, and the whole next list
    Patch32(file, movi - 4, claimed + 4);
    ASSERT_EQ(Open(file + extension), LX_OK);
    EXPECT_EQ(Info().pCurrentAvix->moviDataSize, claimed);
    ASSERT_NE(Info().pCurrentAvix->pNextAvix, nullptr);
    EXPECT_EQ(Info().pCurrentAvix->pNextAvix->moviDataSize, 18u);
}

TEST_F(Quirks, Quirk_Q46_KeyFrameTimesLeaveOutTheStart)
{
    builder.streams[0].header.dwStart = 100;
    AddMedia(30, 10);
    OpenIndexed(builder);
    EXPECT_EQ(Entry(0, 1).timeMsec, 400u);
    EXPECT_EQ(lxAviReadCore_GetStreamTime(0, 10, 0), 4400u);
}

TEST_F(Quirks, Quirk_Q58_VideoTimesComeFromTheMainHeader)
{
    builder.streams[0].header.dwRate = 50; // the main header says 40 ms
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStreamTime(0, 100, 0), 4000u); // not 2000
}

TEST_F(Quirks, Quirk_Q59_EveryAudioChunkCountsOne)
{
    builder.streams[1] = Mp3VbrStream();
    builder.Audio(1, Fill(0)).Audio(1, Fill(5000)).Audio(1, Fill(10)).Frame(0, Fill(8), true);
    OpenIndexed(builder);
    for (UInt32 i = 0; i < 3; ++i) {
        EXPECT_EQ(Next().chunk.uiFrameNumber, i); // the blocks are 0, 5 and 1
    }
}

TEST_F(Quirks, Quirk_Q60_EveryFurtherVideoStreamCarriesSubtitles)
{
    builder.Add(VideoStream());
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(Info().StreamInfo[2]->StreamType, UInt32{LX_AVIREAD_STREAM_SUBTITLE});
}

TEST_F(Quirks, Quirk_Q61_DvWithItsAudioInsideIsNoStream)
{
    Stream dv = VideoStream();
    dv.header.fccType = Code("iavs");
    builder.Add(dv).Media("02__", Fill(8), true);
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(Info().StreamInfo[2]->StreamType, UInt32{LX_AVIREAD_STREAM_NONE});
    Position();
    EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA);
}

TEST_F(Quirks, Quirk_Q62_TextOfTypeTxIsNoChunk)
{
    builder.Add(TextStream()).Media("02tx", Fill(8), true);
    ASSERT_EQ(Open(builder), LX_OK);
    Position();
    EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA);
}

TEST_F(Quirks, Quirk_Q63_DeliveryCallsEverythingAFailedRead)
{
    builder.eIndex = IndexKind::None;
    builder.Frame(0, Fill(8), true);
    Bytes file = builder.Build();
    file.resize(static_cast<size_t>(builder.MoviOffset()) + 2);
    ASSERT_EQ(Open(file), LX_OK);
    Position();
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_READ);
}

TEST_F(Quirks, Quirk_Q64_NobodyTellsHowMuchOfAChunkCame)
{
    builder.Frame(0, Fill(8), true);
    OpenIndexed(builder);
    EXPECT_EQ(Next().uiPayloadResult, LX_OK);
    UInt32 size = 7;
    EXPECT_EQ(lxAviReadCore_GetReadSize(&size), LX_OK);
    EXPECT_EQ(size, 0u);
}

TEST_F(Quirks, Quirk_Q65_OnlyAShortReadNoticesAnAbort)
{
    builder.Raw(Fill(5000, 0)).Raw(Chunk("JUNK", Fill(5000))).Frame(0, Fill(8), true);
    OpenIndexed(builder);
    ASSERT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
    EXPECT_EQ(Next().uiResult, LX_OK);
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
}

TEST_F(Quirks, Quirk_Q66_SkippedBytesAreRead)
{
    builder.Frame(0, Fill(100000), true);
    OpenIndexed(builder);
    const UInt64 reads = Faults().Reads();
    EXPECT_EQ(lxAviReadCore_RemoveChunk(100000), LX_OK);
    EXPECT_EQ(Faults().Reads() - reads, 98u); // 1024 bytes each
}

TEST_F(Quirks, Quirk_Q67_AFailedJumpLeavesItsTraces)
{
    AddMedia(30, 10);
    OpenIndexed(builder);
    const lxAviReadCore_KeyFramePosition_t audio = {0, 1, builder.MediaItems()[20].uiOffset - builder.MoviOffset() + 4,
                                                    1};
    lxAviReadCore_SetPointerOnKF(&audio, -1);
    const Delivered failed = Next();
    EXPECT_EQ(failed.uiResult, LX_ERR_AVIREAD_JUMP_NOT_VIDEO);
    SkipRejected(failed);
    EXPECT_EQ(Next().uiPosition, builder.MediaItems()[21].uiOffset); // delivery goes on at the target
}

TEST_F(Quirks, Quirk_Q68_PositioningKeepsTheCounters)
{
    AddMedia(30, 10);
    OpenIndexed(builder);
    Play(4);
    ASSERT_EQ(lxAviReadCore_PositionTheFileHandleToPlayData(&Info()), LX_OK);
    EXPECT_EQ(lxalAviRead_AudioFrame[0], 2u);
}

TEST_F(Quirks, Quirk_Q69_TimesHaveMilliseconds)
{
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStreamTime(0, 100, 0), 4000u);
    EXPECT_EQ(lxAviReadCore_GetStreamTimeUsec(0, 100, 0), 0u);
}

TEST_F(Quirks, Quirk_Q70_OnlyTheTableTellsKeyFrames)
{
    builder.eIndex = IndexKind::None;
    const Bytes codec = Text("MJPG");
    std::copy(codec.begin(), codec.end(), builder.streams[0].format.begin() + 16);
    builder.Frame(0, Fill(8), true);
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(lxAviReadCore_HasOnlyKeyFrames(0), 0);
    Position();
    EXPECT_EQ(Next().chunk.bKeyFrame, 0);
}

TEST_F(Quirks, Quirk_Q71_OfCodecDataOnlyTheFixedPartIsKept)
{
    builder.streams[0].format += Fill(20);
    builder.beforeMovi = List("INFO", Chunk("INAM", Text("title")));
    ASSERT_EQ(Open(builder), LX_OK);
    UInt32 size = 7;
    EXPECT_EQ(lxAviReadCore_GetStreamBytes(0, LX_AVIREAD_BYTES_STRF, Null, 0, &size), LX_OK);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(lxAviReadCore_GetFileText(Code("INAM"), Null, 0), 0u);
}

TEST_F(Quirks, Quirk_Q72_NobodyTellsWhatAStreamHoldsInAll)
{
    AddMedia(30, 10);
    OpenIndexed(builder);
    lxAviRead_StreamSummary_t summary = {7, 7, 7, 7};
    EXPECT_EQ(lxAviReadCore_GetStreamSummary(0, &summary), LX_OK);
    EXPECT_EQ(summary.uiBytes + summary.uiDurationUsec + summary.uiChunks, 0u);
    EXPECT_EQ(summary.eOrigin, UInt32{LX_AVIREAD_SUMMARY_NONE});
}

TEST_F(Quirks, Quirk_Q73_TheFirstVideoStreamIsTheOnlyOne)
{
    builder.Add(VideoStream());
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(lxAviReadCore_SelectVideoStream(2), LX_ERR_AVIREAD_BAD_STREAM);
    EXPECT_EQ(Info().videoStreamNr, 0);
}

TEST_F(Quirks, Quirk_Q74_WithoutAnIndexThereIsNoTable)
{
    builder.eIndex = IndexKind::None;
    builder.Frame(0, Bytes{0, 0, 1, 0xB6, 0x10, 0, 0, 0, 0, 0}, true);
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseMediaData(0, nullptr, nullptr), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_EQ(Info().KeyFramesListAsArray, nullptr);
    const auto visit = [](void*, const lxAviRead_MediaChunk_t*) { return UInt32{1}; };
    EXPECT_EQ(lxAviReadCore_WalkMediaData(visit, nullptr), LX_ERR_AVIREAD_NO_INDEX);
    const Bytes frame = {0, 0, 1, 0xB6, 0x10, 0, 0, 0, 0, 0};
    EXPECT_EQ(lxAviReadCore_GetFrameKind(0, frame.data(), 10), UInt32{LX_AVIREAD_FRAME_UNKNOWN});
}

TEST_F(Quirks, Quirk_Q75_IndexChunksAreMediaDataWhereNoIndexIsKnown)
{
    const Bytes index = U16(2) + Bytes{0, 1} + U32(0) + Text("00dc") + U32(4) + U32(0) + U32(0);
    builder.Media("ix00", index, false, false).Frame(0, Fill(10), true);
    for (const bool bFormat : {false, true}) {
        ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
        indxOptionOfOpen = bFormat ? LX_AVIREAD_FOLLOW_FORMAT | 1 : 1;
        ASSERT_EQ(Open(builder), LX_OK);
        Position();
        const UInt64 header = builder.MediaItems()[0].uiOffset;
        EXPECT_EQ(Next().uiPosition, bFormat ? builder.MediaItems()[1].uiOffset : header + 16);
    }
}

TEST_F(Quirks, Quirk_Q76_ChunksOfMissingStreamsAreSearched)
{
    const Bytes inside = Text("00dc") + U32(4) + Fill(4);
    builder.Media("05wb", inside).Frame(0, Fill(10), true);
    for (const bool bFormat : {false, true}) {
        ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
        indxOptionOfOpen = bFormat ? LX_AVIREAD_FOLLOW_FORMAT | 1 : 1;
        ASSERT_EQ(Open(builder), LX_OK);
        Position();
        EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_BAD_STREAM);
        EXPECT_EQ(Next().payload, bFormat ? Fill(10) : Fill(4));
    }
}

TEST_F(Quirks, Quirk_Q77_OneTrackOfAKindIsDelivered)
{
    builder.Add(PcmStream()).Add(PcmStream()).Audio(1, Fill(4)).Audio(2, Fill(4));
    for (const bool bFormat : {false, true}) {
        ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
        indxOptionOfOpen = bFormat ? LX_AVIREAD_FOLLOW_FORMAT | 1 : 1;
        ASSERT_EQ(Open(builder), LX_OK);
        Position();
        lxAviReadCore_DeliverAllTracks(1);
        EXPECT_EQ(Next(0).uiResult, LX_OK);
        EXPECT_EQ(Next(0).uiResult, bFormat ? LX_OK : LX_ERR_AVIREAD_AUDIO_SKIPPED);
    }
}

TEST_F(Quirks, Quirk_Q78_KeyFramesOfIndexChunksOfUnknownSubTypesAreStoredAndNotCounted)
{
    builder = AviBuilder();
    builder.Add(VideoStream());
    builder.eIndex = IndexKind::SuperStandard;
    builder.dmlhTotalFrames = 3;
    builder.Frame(0, Fill(4), true).NextRiff().Frame(0, Fill(4), true).Frame(0, Fill(4), true);
    Bytes file = builder.Build();
    file[Find(file, "ix00", Find(file, "ix00") + 4) + 10] = 7; // of two index chunks the second one
    for (const bool bFormat : {false, true}) {
        ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
        indxOptionOfOpen = bFormat ? LX_AVIREAD_FOLLOW_FORMAT | 1 : 1;
        ASSERT_EQ(Open(file), LX_OK);
        EXPECT_EQ(lxAviReadCore_ParseIndex(0), bFormat ? LX_ERR_AVIREAD_NO_INDEX : LX_OK);
        EXPECT_EQ(Table().size(), bFormat ? 0u : 3u); // one leaf has room for those that were not counted
    }
}

} // namespace
} // namespace avitest
