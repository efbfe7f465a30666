// Tests Alloc, Reset, RewindToStart, PositionTheFileHandleToPlayData and Close.

#include "ReaderTest.hpp"

namespace avitest {
namespace {

class Lifecycle : public ReaderTest {
protected:
    AviBuilder builder;

    Lifecycle()
    {
        builder.Add(VideoStream()).Add(PcmStream());
        builder.Frame(0, Fill(10), true).Audio(1, Fill(8)).Frame(0, Fill(12), false);
    }
};

TEST_F(Lifecycle, AllocMakesEveryRecordAndBuffer)
{
    EXPECT_EQ(lxAviReadCore_Alloc(0), LX_OK);
    // file_buffer, the main header, and three blocks for each of the 17 streams
    EXPECT_EQ(Faults().LiveAllocations(), 2u + 17u * 3u);
    EXPECT_NE(Info().AviHdr, nullptr);
    for (const auto* pStream : Info().StreamInfo) {
        ASSERT_NE(pStream, nullptr);
        EXPECT_NE(pStream->Format, nullptr);
        EXPECT_NE(pStream->StreamData, nullptr);
        EXPECT_EQ(pStream->StreamType, 0u);
    }
}

TEST_F(Lifecycle, AllocCalledTwiceAllocatesNothingTheSecondTime)
{
    ASSERT_EQ(lxAviReadCore_Alloc(0), LX_OK);
    const UInt64 before = Faults().Allocations();
    EXPECT_EQ(lxAviReadCore_Alloc(0), LX_OK);
    EXPECT_EQ(Faults().Allocations(), before);
}

TEST_F(Lifecycle, AllocReportsEachFailureInItsWords)
{
    const std::pair<UInt64, const char*> cases[] = {
        {1, "could not allocate 1024 bytes for file_buffer"},
        {2, "could not allocate 56 bytes for pAviInfo->AviHdr "},
        {4, "could not allocate 0 bytes for pAviInfo->StreamInfo[40]->Format"},
        {5, "could not allocate 0 bytes for pAviInfo->StreamInfo[2232]->StreamData"},
        {7, "could not allocate 1 bytes for pAviInfo->StreamInfo[40]->Format"},
    };
    for (const auto& [n, text] : cases) {
        log.Clear();
        ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
        Faults().FailAllocation(n);
        EXPECT_EQ(lxAviReadCore_Alloc(0), LX_ERR_AVIREAD_NO_MEMORY);
        EXPECT_TRUE(log.Has(0x8100, text)) << text;
        Faults().FailAllocation(0);
    }
}

TEST_F(Lifecycle, AllocAfterAFailureCompletesWhatIsMissing)
{
    Faults().FailAllocation(4); // the format buffer of stream 0
    ASSERT_EQ(lxAviReadCore_Alloc(0), LX_ERR_AVIREAD_NO_MEMORY);
    ASSERT_NE(Info().StreamInfo[0], nullptr);
    ASSERT_EQ(Info().StreamInfo[0]->Format, nullptr);
    EXPECT_EQ(lxAviReadCore_Alloc(0), LX_OK);
    EXPECT_NE(Info().StreamInfo[0]->Format, nullptr);
    EXPECT_NE(Info().StreamInfo[16], nullptr);
}

TEST_F(Lifecycle, CloseAndDeAllocBothLeaveNothing)
{
    for (const auto close : {lxAviReadCore_Close, lxAviReadCore_DeAlloc}) {
        ASSERT_EQ(Open(builder), LX_OK);
        ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
        EXPECT_EQ(close(), LX_OK);
        EXPECT_EQ(Faults().LiveAllocations(), 0u);
        EXPECT_EQ(AsBytes(Info()), Bytes(sizeof(Info()), 0)); // every field, to the last byte
    }
    EXPECT_EQ(Open(builder), LX_OK); // Open allocates again by itself
}

TEST_F(Lifecycle, EveryFreeOfCloseIsTraced)
{
    ASSERT_EQ(lxAviReadCore_Alloc(0), LX_OK);
    log.Clear();
    ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
    EXPECT_EQ(log.CountPrefix("lxalAviRead_Free( 0x"), 17u * 3u + 1u);
}

TEST_F(Lifecycle, ResetWithoutAFileIsHarmless)
{
    EXPECT_EQ(lxAviReadCore_Reset(), LX_OK);
    EXPECT_EQ(Info().CurrentOffset, 4u);
    EXPECT_EQ(Info().IndxOption, 1);
    EXPECT_EQ(lxalAviRead_FileSeekPossible, 1);
    EXPECT_EQ(lxAviReadCore_Alloc(0), LX_OK);
    EXPECT_EQ(lxAviReadCore_Reset(), LX_OK);
    EXPECT_NE(Info().StreamInfo[0], nullptr);
}

TEST_F(Lifecycle, ResetForgetsTheFileAndKeepsTheRecords)
{
    builder.streams[0].extra = Chunk("strd", Fill(2232, 7));
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    Position();
    Next();
    ASSERT_EQ(lxAviReadCore_SeekToTime(0, 0, lxAviRead_SetPosRoundDown), 0u);
    ASSERT_EQ(lxAviReadCore_Reset(), LX_OK);

    EXPECT_EQ(Info().pFile, nullptr);
    EXPECT_EQ(Info().moviSize, 0u);
    EXPECT_EQ(Info().moviOffset, 0u);
    EXPECT_EQ(Info().idx1Size, 0u);
    EXPECT_EQ(Info().idx1Offset, 0u);
    EXPECT_EQ(Info().riffSize, 0u);
    EXPECT_EQ(Info().JumpOffset, 0u);
    EXPECT_EQ(Info().CurrentOffset, 4u);
    EXPECT_EQ(Info().AudioTracksCount, 0u);
    EXPECT_EQ(Info().maxReadAttempts, 0u);
    EXPECT_EQ(Info().memoryUsageLimit, 0u);
    EXPECT_EQ(Info().KeyFramesListAsArray, nullptr);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
    EXPECT_EQ(Info().pCurrentAvix, nullptr);
    EXPECT_EQ(Info().bAudioSync, 0);
    EXPECT_EQ(Info().bJumpToVideo, 0);
    EXPECT_EQ(Info().IndxOption, 1);
    EXPECT_EQ(lxalAviRead_VideoFrame, 0u);
    const lxAviReadCore_StreamInfo_t& stream = *Info().StreamInfo[0];
    EXPECT_EQ(stream.StreamType, 0u);
    EXPECT_EQ(stream.Header.fccType, 0u);
    EXPECT_EQ(stream.bStrdPresent, 0);
    EXPECT_EQ(stream.uiStreamSize, 0u);
    EXPECT_EQ(static_cast<const UInt8*>(stream.Format)[0], 0);
    EXPECT_EQ(static_cast<const UInt8*>(stream.StreamData)[0], 0);
    EXPECT_EQ(Info().AviHdr->dwMicroSecPerFrame, 0u);
}

TEST_F(Lifecycle, ResetGivesEveryFieldTheValueOfTheStateWithoutAFile)
{
    ASSERT_EQ(Open(builder), LX_OK);
    const auto soil = [this](lxAviReadCore_AviInfo_t& state) {
        const lxAviReadCore_AviInfo_t before = Info();
        std::memset(&state, 0xA5, sizeof state); // also sets the padding bytes between the fields
        state.pFile = before.pFile;
        state.AviHdr = before.AviHdr;
        std::copy(std::begin(before.StreamInfo), std::end(before.StreamInfo), std::begin(state.StreamInfo));
        state.KeyFramesListAsArray = nullptr;
        state.pCurrentAvix = before.pCurrentAvix;
        state.bAbort = 1;
    };
    lxAviReadCore_AviInfo_t expected;
    soil(expected);
    soil(Info());
    lxalAviRead_FileSeekPossible = 0;
    lxalAviRead_VideoFrame = 7;
    ASSERT_EQ(lxAviReadCore_Reset(), LX_OK);

    expected.pFile = nullptr;
    expected.pMetaDataBuffer = nullptr;
    expected.moviSize = 0;
    expected.idx1Size = 0;
    expected.idx1Offset = 0;
    expected.moviOffset = 0;
    expected.riffSize = 0;
    expected.uiUnused1 = 0;
    expected.audioStreamNr = 0;
    expected.videoStreamNr = 0;
    expected.JumpOffset = 0;
    expected.CurrentOffset = 4;
    expected.AudioTracksCount = 0;
    expected.SubtitleTracksCount = 0;
    expected.uiUnused2 = 0;
    expected.KeyFramesListAsArrayLength = 0;
    expected.memoryUsageLimit = 0;
    std::fill(std::begin(expected.TrackNumber), std::end(expected.TrackNumber), 0);
    expected.bAudioSync = 0;
    expected.bIndxPresent = 0;
    expected.bJumpToVideo = 0;
    expected.IndxOption = 1;
    expected.bDmlhPresent = 0;
    expected.dmlhTotalFrames = 0;
    expected.bAbsoluteOffsets = 0;
    expected.audioSyncLeafNr = 0;
    expected.audioSyncItemNr = 0;
    expected.uiMaxRecordsInBuffer = 0;
    expected.pCurrentAvix = nullptr;
    expected.bAvixPresent = 0;
    expected.maxReadAttempts = 0;
    EXPECT_EQ(AsBytes(Info()), AsBytes(expected)); // the abort flag is still set, too
    EXPECT_EQ(lxalAviRead_FileSeekPossible, 1);
    EXPECT_EQ(lxalAviRead_VideoFrame, 0u);
    EXPECT_EQ(Faults().OpenFiles(), 0u);
}

TEST_F(Lifecycle, ResetGivesEveryFieldOfAStreamTheValueOfNone)
{
    builder.eIndex = IndexKind::SuperStandard;
    ASSERT_EQ(Open(builder), LX_OK);
    lxAviReadCore_StreamInfo_t& stream = *Info().StreamInfo[0];
    ASSERT_NE(stream.IndxChunk.pAviSuperIndexEntry, nullptr);
    stream.bIndexParsed = 1;
    stream.iFrameSize = 5;
    ASSERT_EQ(lxAviReadCore_Reset(), LX_OK);
    EXPECT_EQ(stream.bIndexParsed, 0);
    EXPECT_EQ(stream.iFrameSize, 0);
    EXPECT_EQ(stream.IndxChunk.pAviSuperIndexEntry, nullptr);
    EXPECT_EQ(stream.IndxChunk.aviIndxcommonSection.wLongsPerEntry, 0);
    EXPECT_EQ(stream.IndxChunk.aviIndxcommonSection.uiEntriesInUse, 0u);
    EXPECT_EQ(stream.IndxChunk.aviIndxcommonSection.dwChunkId, 0u);
}

TEST_F(Lifecycle, FreeingTheRecordsForgetsTheCountersAndTheBatchBuffer)
{
    Bytes file = builder.Build();
    file.resize(file.size() - 8); // the index ends early
    ASSERT_EQ(Open(file), LX_OK);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_EOF);
    ASSERT_NE(Info().pMetaDataBuffer, nullptr);
    lxalAviRead_VideoFrame = 7;
    lxalAviRead_AudioFrame[2] = 8;
    lxAviReadCore_FreeAllocatedMemory(&Info());
    EXPECT_EQ(Info().pMetaDataBuffer, nullptr);
    EXPECT_EQ(Info().AviHdr, nullptr);
    EXPECT_EQ(Info().StreamInfo[0], nullptr);
    EXPECT_EQ(lxalAviRead_VideoFrame, 0u);
    EXPECT_EQ(lxalAviRead_AudioFrame[2], 0u);
}

TEST_F(Lifecycle, TheBatchBufferIsClearWhenItIsMade)
{
    ASSERT_EQ(Open(builder), LX_OK);
    Faults().FaultRead(1, {ReadFault::Kind::EndOfFile, 0});
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_EOF);
    const auto* const pBuffer = static_cast<const UInt8*>(Info().pMetaDataBuffer);
    ASSERT_NE(pBuffer, nullptr);
    EXPECT_EQ(Bytes(pBuffer, pBuffer + 18000), Fill(18000, 0));
}

TEST_F(Lifecycle, ResetClearsTheCounters)
{
    builder.eIndex = IndexKind::None;
    ASSERT_EQ(Open(builder), LX_OK);
    Position();
    Next();
    ASSERT_EQ(Next().uiResult, LX_OK);
    ASSERT_EQ(lxalAviRead_AudioFrame[0], 1u);
    ASSERT_EQ(lxAviReadCore_Reset(), LX_OK);
    EXPECT_EQ(lxalAviRead_AudioFrame[0], 0u);
    ASSERT_EQ(Open(builder), LX_OK);
    Position();
    Next();
    EXPECT_EQ(Next().chunk.uiBytePosition, 0u);
}

TEST_F(Lifecycle, ResetWithoutFreeingTheBatchBufferLeaksNothing)
{
    builder.avih.dwMicroSecPerFrame = 40000;
    Bytes file = builder.Build();
    file.resize(file.size() - 8); // the index ends early
    ASSERT_EQ(Open(file), LX_OK);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_EOF);
    ASSERT_NE(Info().pMetaDataBuffer, nullptr); // the next Open, Reset or Close frees it
    ASSERT_EQ(lxAviReadCore_Reset(), LX_OK);
    EXPECT_EQ(Info().pMetaDataBuffer, nullptr);
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
}

TEST_F(Lifecycle, RewindDeliversFromTheStartAgain)
{
    OpenIndexed(builder);
    const auto first = All();
    lxAviReadCore_RewindToStart();
    EXPECT_TRUE(log.HasPrefix("lxAviReadCore_RewindToStart: Done (pAviInfo->moviOffset="));
    const auto second = All();
    ASSERT_EQ(first.size(), second.size());
    for (size_t i = 0; i < first.size(); ++i) {
        EXPECT_EQ(first[i].uiResult, second[i].uiResult);
        EXPECT_EQ(first[i].uiPosition, second[i].uiPosition);
        EXPECT_EQ(first[i].chunk.uiFrameNumber, second[i].chunk.uiFrameNumber);
        EXPECT_EQ(first[i].chunk.uiBytePosition, second[i].chunk.uiBytePosition);
    }
}

TEST_F(Lifecycle, RewindWithoutSeekingOnlyResetsTheCounters)
{
    ASSERT_EQ(Open(builder), LX_OK);
    Position();
    Next();
    Next();
    lxalAviRead_FileSeekPossible = 0;
    const UInt64 seeks = Faults().Seeks();
    lxAviReadCore_RewindToStart();
    EXPECT_EQ(Faults().Seeks(), seeks);
    EXPECT_EQ(lxalAviRead_FileSeekPossible, 0);
    EXPECT_EQ(Info().CurrentOffset, 4u);
    EXPECT_EQ(lxalAviRead_VideoFrame, 0u);
    EXPECT_EQ(lxalAviRead_AudioFrame[0], 0u);
}

TEST_F(Lifecycle, RewindForgetsWhereASeekHasLed)
{
    OpenIndexed(builder);
    Info().audioSyncLeafNr = 3;
    Info().audioSyncItemNr = 4;
    Info().bAudioSync = 1;
    Info().bJumpToVideo = 1;
    lxAviReadCore_RewindToStart();
    EXPECT_EQ(Info().audioSyncLeafNr, 0u);
    EXPECT_EQ(Info().audioSyncItemNr, 0u);
    EXPECT_EQ(Info().bAudioSync, 0);
    EXPECT_EQ(Info().bJumpToVideo, 0);
}

TEST_F(Lifecycle, RewindStoresTheSeeksOutcome)
{
    ASSERT_EQ(Open(builder), LX_OK);
    Faults().FailSeek(1, true);
    lxAviReadCore_RewindToStart();
    EXPECT_EQ(lxalAviRead_FileSeekPossible, 0);
}

TEST_F(Lifecycle, RewindWithAbsoluteOffsetsStartsAtTheMediaData)
{
    builder.eIndex = IndexKind::Idx1Absolute;
    OpenIndexed(builder);
    Next();
    lxAviReadCore_RewindToStart();
    EXPECT_EQ(Info().CurrentOffset, builder.MoviOffset());
}

TEST_F(Lifecycle, RewindInAFileOfSeveralSegmentsStartsAtTheFirst)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.dmlhTotalFrames = 3;
    builder.NextRiff().Frame(0, Fill(20, 9), true);
    OpenIndexed(builder);
    const auto first = All();
    ASSERT_NE(Info().pCurrentAvix->pPrevAvix, nullptr);
    lxAviReadCore_RewindToStart();
    EXPECT_EQ(Info().pCurrentAvix->pPrevAvix, nullptr);
    EXPECT_EQ(All().size(), first.size());
}

TEST_F(Lifecycle, PositionSeeksToTheMediaDataAndLeavesTheOffset)
{
    ASSERT_EQ(Open(builder), LX_OK);
    Info().CurrentOffset = 1234;
    EXPECT_EQ(lxAviReadCore_PositionTheFileHandleToPlayData(&Info()), LX_OK);
    EXPECT_EQ(ftell(Info().pFile), static_cast<long>(builder.MoviOffset()));
    EXPECT_EQ(Info().CurrentOffset, 1234u);
}

TEST_F(Lifecycle, PositionReportsAFailedSeek)
{
    ASSERT_EQ(Open(builder), LX_OK);
    Faults().FailSeek(1, true);
    EXPECT_EQ(lxAviReadCore_PositionTheFileHandleToPlayData(&Info()), LX_ERR_AVIREAD_SEEK);
    EXPECT_EQ(lxalAviRead_FileSeekPossible, 0);
}

TEST_F(Lifecycle, TheAbortFlagSurvivesResetAndOpenButNotClose)
{
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetAbortFlag(), 1);
    ASSERT_EQ(lxAviReadCore_Reset(), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetAbortFlag(), 1);
    ASSERT_EQ(Open(builder), LX_OK); // a read without a fault does not check the flag
    EXPECT_EQ(lxAviReadCore_GetAbortFlag(), 1);
    ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetAbortFlag(), 0);
}

TEST_F(Lifecycle, GetFileGivesTheStream)
{
    FILE* pFile = stdin;
    EXPECT_EQ(lxAviReadCore_GetFile(&pFile), LX_OK);
    EXPECT_EQ(pFile, nullptr);
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetFile(&pFile), LX_OK);
    EXPECT_EQ(pFile, Info().pFile);
}

TEST_F(Lifecycle, NullResultPointersAreAssertedAndAnsweredWithZero)
{
    ASSERT_EQ(Open(builder), LX_OK);
    lxAviRead_ChunkData_t chunk = {};
    Bool flag = 0;
    EXPECT_EQ(lxAviReadCore_GetFile(nullptr), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetAvihData(nullptr), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStrhData(0, nullptr, nullptr), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStrfData(0, nullptr), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStrdData(0, nullptr, &flag), LX_OK);
    EXPECT_EQ(lxAviReadCore_NextChunk(nullptr, 0, 0, &flag), LX_OK);
    EXPECT_EQ(lxAviReadCore_NextChunk(&chunk, 0, 0, nullptr), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetChunk(nullptr, 4), LX_OK);
    EXPECT_EQ(lxAviReadCore_FileRead(&Info(), nullptr, 4), LX_OK);
    EXPECT_EQ(lxAvi2ReadCore_FileRead(&Info(), nullptr, 4), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetSetPositionRangeInfo(nullptr), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetChunkInfo(nullptr, 4), LX_OK);
    lxAviReadCore_GetFilePosition(nullptr);
    lxAviReadCore_GetOpenDmlInfo(nullptr);
    lxAviReadCore_SetPointerOnKF(nullptr, 0);
    EXPECT_EQ(log.Assertions().size(), 15u);
    EXPECT_TRUE(log.HasAssertion("pOpenDmlInfo!=Null", "pOpenDmlInfo must be initialized"));
    EXPECT_TRUE(
        log.HasAssertion("chunkData!= Null", "Parameter for lxAviReadCore_NextChunk shouldn't be a null pointer"));
}

TEST_F(Lifecycle, OperationsWithoutAFileDoNoHarm)
{
    EXPECT_EQ(lxalAviRead_FileSeekPossible, 1); // the fixture has called Close, which calls Reset
    UInt32 word = 77;
    lxAviRead_Avih_t avih = {};
    avih.dwWidth = 5;
    lxAviRead_Strh_t strh = {};
    Bool present = 9;
    Bytes strd = Fill(2232);
    EXPECT_EQ(lxAviReadCore_FileRead(&Info(), &word, 4), LX_ERR_AVIREAD_READ);
    EXPECT_EQ(lxAvi2ReadCore_FileRead(&Info(), &word, 4), LX_ERR_AVIREAD_READ);
    EXPECT_EQ(word, 77u);
    EXPECT_EQ(lxAviReadCore_RemoveChunk(4), LX_ERR_AVIREAD_READ);
    EXPECT_EQ(lxAviReadCore_GetChunk(&word, 4), LX_ERR_AVIREAD_READ);
    EXPECT_EQ(lxAviReadCore_ParseListdmlh(&Info(), 4), LX_ERR_AVIREAD_READ); // a single word
    EXPECT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 0);
    EXPECT_EQ(lxAviReadCore_FileEof(&Info()), 0);
    EXPECT_EQ(lxAvi2ReadCore_FileEof(&Info()), 0);
    EXPECT_EQ(lxAviReadCore_PositionTheFileHandleToPlayData(&Info()), LX_ERR_AVIREAD_SEEK);
    EXPECT_EQ(lxAviReadCore_GetAvihData(&avih), LX_OK);
    EXPECT_EQ(avih.dwWidth, 5u);
    EXPECT_EQ(lxAviReadCore_GetStrhData(0, &strh, &word), LX_OK);
    EXPECT_EQ(word, 77u);
    EXPECT_EQ(lxAviReadCore_GetStrfData(0, strd.data()), LX_OK);
    EXPECT_EQ(strd[0], 0x55);
    EXPECT_EQ(lxAviReadCore_GetStrdData(0, strd.data(), &present), LX_OK);
    EXPECT_EQ(present, 0);
    EXPECT_EQ(lxAviReadCore_TrackIsVBR(&Info(), 0), 0);
    EXPECT_EQ(lxAviReadCore_GetStreamTime(0, 1, 1), 0u);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_EQ(lxAviReadCore_Open(0, "", 1, kPlenty, 1, &allIndexed), LX_ERR_AVIREAD_OPEN);
    lxAviReadCore_RewindToStart();
    EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA); // without media data delivery ends at once
}

TEST_F(Lifecycle, NoPrintReturnsOne) { EXPECT_EQ(NOPRINT("%d %s", 1, "two"), 1); }

// ---- A stream of the caller ----

class CallersStream : public ReaderTest {
protected:
    FILE* OpenStream(const std::string& path, const Bytes& bytes, bool bSeekable = true)
    {
        Faults().Serve(path, bytes, bSeekable);
        return fopen64(path.c_str(), "rb");
    }

    UInt32 OpenFormat(FILE* pStream)
    {
        return lxAviReadCore_OpenStream(0, pStream, 1, kPlenty, LX_AVIREAD_FOLLOW_FORMAT | 1, &allIndexed);
    }

    Bytes File()
    {
        AviBuilder builder;
        builder.Add(VideoStream()).Add(PcmStream());
        for (UInt32 i = 0; i < 12; ++i) {
            builder.Audio(1, Fill(640)).Frame(0, Fill(10, static_cast<UInt8>(i)), i % 3 == 0);
        }
        return builder.Build();
    }
};

TEST_F(CallersStream, IsPlayedAndSoughtInAsAFileIs)
{
    for (const UInt8 option : {UInt8{1}, UInt8{LX_AVIREAD_FOLLOW_FORMAT | 1}}) {
        FILE* const pStream = OpenStream("film", File());
        ASSERT_EQ(lxAviReadCore_OpenStream(0, pStream, 1, kPlenty, option, &allIndexed), LX_OK);
        EXPECT_EQ(Info().pFile, pStream);
        ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
        Position();
        EXPECT_EQ(All().size(), 25u);
        EXPECT_EQ(lxAviReadCore_SeekToTime(240, -1, lxAviRead_SetPosRoundDown), 240u);
        EXPECT_EQ(Next().payload, Fill(10, 6));
        EXPECT_EQ(Faults().OpenFiles(), 1u);
        ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
        EXPECT_EQ(Faults().OpenFiles(), 0u);
    }
}

TEST_F(CallersStream, ThatCannotSeekPlaysFromStartToEnd)
{
    ASSERT_EQ(OpenFormat(OpenStream("pipe", File(), false)), LX_OK);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_EQ(All().size(), 25u);
}

TEST_F(CallersStream, BelongsToTheReaderAlsoWhenTheOpenFails)
{
    EXPECT_EQ(OpenFormat(OpenStream("text", Text("no film at all, only words"))), LX_ERR_AVIREAD_NOT_AVI);
    EXPECT_EQ(Faults().OpenFiles(), 1u);
    ASSERT_EQ(OpenFormat(OpenStream("film", File())), LX_OK); // closes it
    EXPECT_EQ(Faults().OpenFiles(), 1u);
    ASSERT_EQ(Open(File()), LX_OK); // and a path closes a stream
    EXPECT_EQ(Faults().OpenFiles(), 1u);
    ASSERT_EQ(lxAviReadCore_Reset(), LX_OK);
    EXPECT_EQ(Faults().OpenFiles(), 0u);
}

TEST_F(CallersStream, WithoutMemoryIsClosedAllTheSame)
{
    ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
    FILE* const pStream = OpenStream("film", File());
    Faults().FailAllocation(1, true);
    EXPECT_EQ(OpenFormat(pStream), LX_ERR_AVIREAD_OPEN);
    Faults().FailAllocation(0);
    ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
    EXPECT_EQ(Faults().OpenFiles(), 0u);
}

TEST_F(CallersStream, MayBeTheOneThatIsOpen)
{
    ASSERT_EQ(OpenFormat(OpenStream("film", File())), LX_OK);
    FILE* pStream = nullptr;
    ASSERT_EQ(lxAviReadCore_GetFile(&pStream), LX_OK);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
    ASSERT_EQ(OpenFormat(pStream), LX_OK);
    EXPECT_EQ(Faults().OpenFiles(), 1u);
    Position();
    EXPECT_EQ(All().size(), 25u);
}

TEST_F(CallersStream, ThatIsNullIsRefused)
{
    ASSERT_EQ(OpenFormat(OpenStream("film", File())), LX_OK);
    EXPECT_EQ(OpenFormat(nullptr), LX_ERR_AVIREAD_OPEN);
    EXPECT_EQ(log.Assertions().back().condition, "pStream!= Null");
    Position();
    EXPECT_EQ(All().size(), 25u); // the open file stays open
    FILE* const pStream = OpenStream("other", File());
    EXPECT_EQ(lxAviReadCore_OpenStream(0, pStream, 1, kPlenty, 1, nullptr), LX_OK);
    EXPECT_EQ(log.Assertions().back().condition, "pAllIndexed!= Null");
}

TEST_F(Lifecycle, EveryResultCodeHasItsSentence)
{
    constexpr UInt32 kCodes[] = {LX_OK,
                                 LX_AVIREAD_END_OF_MEDIA,
                                 LX_ERR_AVIREAD_READ,
                                 LX_ERR_AVIREAD_NO_MEMORY,
                                 LX_ERR_AVIREAD_OPEN,
                                 LX_ERR_AVIREAD_NOT_AVI,
                                 LX_ERR_AVIREAD_SEEK,
                                 LX_ERR_AVIREAD_EOF,
                                 LX_ERR_AVIREAD_NO_INDEX,
                                 LX_ERR_AVIREAD_SUBTITLE_SKIPPED,
                                 LX_ERR_AVIREAD_AUDIO_SKIPPED,
                                 LX_ERR_AVIREAD_VIDEO_SKIPPED,
                                 LX_ERR_AVIREAD_JUMP_NOT_VIDEO,
                                 LX_ERR_AVIREAD_BAD_STREAM,
                                 LX_ERR_AVIREAD_ABORTED,
                                 LX_ERR_AVIREAD_INDEX_STREAM,
                                 LX_ERR_AVIREAD_AVIX_LIST,
                                 LX_ERR_AVIREAD_JUMP_RANGE,
                                 LX_ERR_AVIREAD_NO_KEY_FRAME};
    std::set<std::string> texts;
    for (const UInt32 code : kCodes) {
        texts.insert(lxAviReadCore_ResultText(code));
    }
    EXPECT_EQ(texts.size(), std::size(kCodes)); // each has its own
    for (const UInt32 other : {2u, 0x88019811u + 0x10000, 0xFFFFFFFFu}) {
        EXPECT_STREQ(lxAviReadCore_ResultText(other), "The result code is unknown.");
    }
    for (const std::string& text : texts) {
        EXPECT_EQ(text.back(), '.');
    }
    EXPECT_STREQ(lxAviReadCore_ResultText(LX_ERR_AVIREAD_EOF), "The file ends too early.");
}

} // namespace
} // namespace avitest
