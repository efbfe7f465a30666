// Format mode: the key-frame table from the media data, for files whose index is missing or damaged, and the walk over
// all chunks.

#include "FormatModeTest.hpp"

#include <set>

namespace avitest {
namespace {

class MediaData : public FormatMode {
protected:
    MediaData()
    {
        builder.streams[0] = VideoStream();
        Patch32(builder.streams[0].format, 16, Code("VP80")); // bit 0 of a frame: no key frame
    }

    static Bytes FrameBytes(UInt32 nr, bool bKey, UInt32 size = 10)
    {
        Bytes frame = Fill(size, static_cast<UInt8>(nr));
        frame[0] = bKey ? 0x10 : 0x11;
        return frame;
    }

    // Frames whose bytes tell what their flags tell, with 40 ms of audio before each.
    void AddFrames(UInt32 count, UInt32 step)
    {
        for (UInt32 i = 0; i < count; ++i) {
            builder.Audio(1, Fill(640, static_cast<UInt8>(i))).Frame(0, FrameBytes(i, i % step == 0), i % step == 0);
        }
    }

    static UInt32 Parse(lxAviRead_Progress_t pfnProgress = nullptr, void* pUser = nullptr)
    {
        return lxAviReadCore_ParseMediaData(0, pfnProgress, pUser);
    }

    UInt32 ParseFile(const Bytes& file, UInt32 budget = kPlenty)
    {
        EXPECT_EQ(lxAviReadCore_Close(), LX_OK);
        log.Clear();
        EXPECT_EQ(Open(file, true, 1, budget, kFormat), LX_OK);
        return Parse();
    }

    // The entries, with the audio of the tracks that the file has.
    Bytes AsRows(const std::vector<lxAviReadCore_KeyFrameEntry_t>& table)
    {
        Bytes rows;
        for (const auto& entry : table) {
            rows += U32(entry.videoFrameNumber) + U64(entry.videoChunkOffset) + U64(entry.timeMsec);
            for (UInt32 track = 0; track < Info().AudioTracksCount; ++track) {
                rows += U32(entry.audioFrameNumber[track]) + U64(entry.audioChunkOffset[track]) +
                        U64(entry.audioBytePosition[track]);
            }
        }
        return rows;
    }

    // Expects that the table by media data equals the table by index.
    void ExpectTableOfTheIndex(const Bytes& file, UInt32 budget = kPlenty)
    {
        EXPECT_EQ(lxAviReadCore_Close(), LX_OK);
        ASSERT_EQ(Open(file, true, 1, budget, kFormat), LX_OK);
        ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
        const Bytes byIndex = AsRows(Table());
        ASSERT_FALSE(byIndex.empty());
        ASSERT_EQ(Parse(), LX_OK);
        EXPECT_EQ(AsRows(Table()), byIndex);
    }

    // The size that the chunk at `offset` claims.
    static void PatchSize(Bytes& file, UInt64 offset, UInt32 size)
    {
        Patch32(file, static_cast<size_t>(offset) + 4, size);
    }

    static Bytes Start(const Bytes& file, UInt64 size)
    {
        return {file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size)};
    }

    std::vector<UInt64> OffsetsOf(std::string_view code) const
    {
        std::vector<UInt64> offsets;
        for (const MediaItem& item : builder.MediaItems()) {
            if (item.code == code) {
                offsets.push_back(item.uiOffset);
            }
        }
        return offsets;
    }

    static UInt32 Visit(void* pUser, const lxAviRead_MediaChunk_t* pChunk)
    {
        static_cast<std::vector<lxAviRead_MediaChunk_t>*>(pUser)->push_back(*pChunk);
        return 1;
    }

    static std::vector<lxAviRead_MediaChunk_t> Walk()
    {
        std::vector<lxAviRead_MediaChunk_t> chunks;
        EXPECT_EQ(lxAviReadCore_WalkMediaData(Visit, &chunks), LX_OK);
        return chunks;
    }

    static std::vector<UInt64> WalkedOffsets()
    {
        std::vector<UInt64> offsets;
        for (const auto& chunk : Walk()) {
            offsets.push_back(chunk.uiOffset);
        }
        return offsets;
    }

    std::vector<UInt64> BuiltOffsets() const
    {
        std::vector<UInt64> offsets;
        for (const MediaItem& item : builder.MediaItems()) {
            if (!item.code.empty()) {
                offsets.push_back(item.uiOffset);
            }
        }
        return offsets;
    }
};

// ---- The table ----

TEST_F(MediaData, ItsTableEqualsThatOfEveryKindOfIndex)
{
    for (const IndexKind eIndex : {IndexKind::Idx1Relative, IndexKind::Idx1Absolute, IndexKind::SuperStandard,
                                   IndexKind::SuperField, IndexKind::OneLevelStandard}) {
        builder = AviBuilder();
        builder.Add(VideoStream(30000, 1001)).Add(PcmStream()).Add(Mp3VbrStream()).Add(VideoStream()).Add(TextStream());
        Patch32(builder.streams[0].format, 16, Code("VP80"));
        builder.eIndex = eIndex;
        builder.eLayout = IxLayout::At32;
        for (UInt32 i = 0; i < 100; ++i) {
            builder.Audio(1, Fill(540 + i % 3)).Frame(0, FrameBytes(i, i % 7 == 0, 3 + i), i % 7 == 0);
            builder.Frame(3, FrameBytes(i, true), true).Audio(2, Fill(300));
            if (i % 20 == 0) {
                builder.Media("04tx", Text("hello"));
            }
            if (eIndex == IndexKind::SuperStandard && i % 40 == 39) {
                builder.NextRiff();
            }
        }
        ExpectTableOfTheIndex(builder.Build());
    }
}

TEST_F(MediaData, AudioMayLeadOrLag)
{
    for (UInt32 i = 0; i < 60; ++i) {
        builder.Audio(1, Fill(640));
    }
    for (UInt32 i = 0; i < 120; ++i) {
        builder.Frame(0, FrameBytes(i, i % 5 == 0), i % 5 == 0);
        if (i > 60) {
            builder.Audio(1, Fill(640));
        }
    }
    ExpectTableOfTheIndex(builder.Build());
}

TEST_F(MediaData, AudioMayBeAbsent)
{
    builder.streams.pop_back();
    for (UInt32 i = 0; i < 20; ++i) {
        builder.Frame(0, FrameBytes(i, i % 5 == 0), i % 5 == 0);
    }
    ExpectTableOfTheIndex(builder.Build());
}

TEST_F(MediaData, ATrackWithoutChunksHasNoAudio)
{
    builder.Frame(0, FrameBytes(0, true), true);
    ExpectTableOfTheIndex(builder.Build());
    EXPECT_EQ(Entry(0, 0).audioFrameNumber[0], 0xFFFFFFFFu);
}

TEST_F(MediaData, EverySeekLandsWithoutAnIndex)
{
    builder.eIndex = IndexKind::None;
    AddFrames(50, 5);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kFormat, file), LX_ERR_AVIREAD_NO_INDEX);
    ASSERT_EQ(Parse(), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    ExpectEverySeekLands();
}

TEST_F(MediaData, DefaultModeHasNothingOfIt)
{
    AddFrames(10, 5);
    ASSERT_EQ(ParseAs(kDefault, builder.Build()), LX_OK);
    const Bytes table = AsRows(Table());
    EXPECT_EQ(Parse(), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_EQ(AsRows(Table()), table);
    std::vector<lxAviRead_MediaChunk_t> chunks;
    EXPECT_EQ(lxAviReadCore_WalkMediaData(Visit, &chunks), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_TRUE(chunks.empty());
}

TEST_F(MediaData, AnInputThatCannotSeekHasNone)
{
    AddFrames(10, 5);
    ASSERT_EQ(Open(builder.Build(), false, 1, kPlenty, kFormat), LX_OK);
    EXPECT_EQ(Parse(), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_EQ(lxAviReadCore_WalkMediaData(Visit, nullptr), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_EQ(CountDelivered(), 20u);
}

TEST_F(MediaData, AFileWithoutVideoOrWithoutFramesHasNoTable)
{
    const Bytes noFrames = builder.Audio(1, Fill(640)).Build();
    EXPECT_EQ(ParseFile(noFrames), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_EQ(Info().KeyFramesListAsArray, nullptr);
    builder.streams[0] = PcmStream();
    EXPECT_EQ(ParseFile(builder.Build()), LX_ERR_AVIREAD_NO_INDEX);
}

TEST_F(MediaData, OfAnUnknownCodecTheFirstFrameIsAKeyFrame)
{
    Patch32(builder.streams[0].format, 16, Code("abcd"));
    builder.streams[0].header.fccHandler = Code("abcd");
    builder.Drm(0, Fill(10));
    AddFrames(10, 5);
    ASSERT_EQ(ParseFile(builder.Build()), LX_OK);
    EXPECT_EQ(TableOffsets(), std::vector<UInt64>{OffsetsOf("00dc")[0]}); // audio stands behind the descriptor
    EXPECT_TRUE(log.Has("AviReadCore : no key frame is known in stream 0, decoding can begin at its first frame"));
}

TEST_F(MediaData, WithoutAKeyFrameDecodingBeginsAtTheFirst)
{
    builder.Audio(1, Fill(640)).Drm(0, Fill(10)).Frame(0, FrameBytes(0, false), false);
    builder.Audio(1, Fill(640)).Frame(0, FrameBytes(1, false), false);
    ASSERT_EQ(ParseFile(builder.Build()), LX_OK);
    EXPECT_EQ(TableOffsets(), OffsetsOf("00dd"));
    EXPECT_EQ(Entry(0, 0).videoFrameNumber, 0u);
    EXPECT_EQ(Entry(0, 0).audioChunkOffset[0], OffsetsOf("01wb")[0]);
}

TEST_F(MediaData, AProtectedKeyFrameBeginsAtItsDescriptor)
{
    builder.Audio(1, Fill(640)).Drm(0, Fill(10)).Frame(0, FrameBytes(0, true), true);
    builder.Drm(0, Fill(12)).Audio(1, Fill(640)).Frame(0, FrameBytes(1, true), true); // the descriptor is of no frame
    builder.Drm(0, Fill(10)).Frame(0, FrameBytes(2, true), true);
    ExpectTableOfTheIndex(builder.Build());
    EXPECT_EQ(TableOffsets(), (std::vector<UInt64>{OffsetsOf("00dd")[0], OffsetsOf("00dc")[1], OffsetsOf("00dd")[2]}));
}

TEST_F(MediaData, FramesOfAnInterleavedStreamAreKeyFrames)
{
    builder = AviBuilder();
    Stream dv = VideoStream();
    dv.header.fccType = Code("iavs");
    builder.Add(dv);
    for (UInt32 i = 0; i < 5; ++i) {
        builder.Media("00__", Fill(120), true);
    }
    ExpectTableOfTheIndex(builder.Build());
    EXPECT_EQ(Table().size(), 5u);
}

TEST_F(MediaData, TheSelectedVideoStreamIsIndexed)
{
    builder.Add(builder.streams[0]);
    for (UInt32 i = 0; i < 12; ++i) {
        builder.Frame(0, FrameBytes(i, i % 4 == 0), i % 4 == 0).Frame(2, FrameBytes(i, i % 3 == 0), i % 3 == 0);
    }
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    ASSERT_EQ(lxAviReadCore_SelectVideoStream(2), LX_OK);
    ASSERT_EQ(Parse(), LX_OK);
    EXPECT_EQ(Table().size(), 4u);
    EXPECT_EQ(Entry(0, 1).videoChunkOffset, OffsetsOf("02dc")[3]);
}

TEST_F(MediaData, TheTableOfAnIndexIsReplaced)
{
    AddFrames(10, 5);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    ASSERT_EQ(Parse(), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(MediaData, DeliveryBeginsAgainAfterwards)
{
    builder.dmlhTotalFrames = 36;
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    for (UInt32 i = 0; i < 3; ++i) {
        AddFrames(12, 3);
        if (i < 2) {
            builder.NextRiff();
        }
    }
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    const std::vector<Delivered> before = All();
    EXPECT_EQ(lxAviReadCore_SeekToTime(900, 0, lxAviRead_SetPosRoundDown), 840u);
    ASSERT_EQ(NextValid().uiResult, LX_OK);
    EXPECT_EQ(lxAviReadCore_SeekToTime(400, 0, lxAviRead_SetPosRoundDown), 360u); // pending
    ASSERT_EQ(Parse(), LX_OK);
    EXPECT_EQ(Info().JumpOffset, 0u);
    const std::vector<Delivered> after = All();
    ASSERT_EQ(after.size(), before.size());
    for (size_t i = 0; i < after.size(); ++i) {
        EXPECT_EQ(after[i].uiResult, before[i].uiResult);
        EXPECT_EQ(after[i].uiPosition, before[i].uiPosition);
        EXPECT_EQ(AsBytes(after[i].chunk.uiFrameNumber), AsBytes(before[i].chunk.uiFrameNumber));
        EXPECT_EQ(after[i].chunk.uiBytePosition, before[i].chunk.uiBytePosition);
        EXPECT_EQ(after[i].chunk.bKeyFrame, before[i].chunk.bKeyFrame);
    }
}

TEST_F(MediaData, WithoutTheWayBackToTheStartThereIsNoTable)
{
    builder.eIndex = IndexKind::None;
    AddFrames(4, 2);
    const Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    const UInt64 before = Faults().Seeks();
    ASSERT_EQ(Parse(), LX_OK);
    const UInt64 seeks = Faults().Seeks() - before;
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    Faults().FailSeek(seeks); // the last one
    EXPECT_EQ(Parse(), LX_ERR_AVIREAD_SEEK);
    EXPECT_EQ(Info().KeyFramesListAsArray, nullptr);
    Faults().FailSeek(0);
}

TEST_F(MediaData, StepsAreThoseOfTheNewTable)
{
    builder.eIndex = IndexKind::None;
    AddFrames(100, 10);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_ERR_AVIREAD_NO_INDEX);
    for (UInt32 i = 0; i < 90; ++i) {
        ASSERT_EQ(Next().uiResult, LX_OK);
    }
    ASSERT_EQ(Parse(), LX_OK);
    EXPECT_EQ(lxAviReadCore_SeekToTime(2000, -1, lxAviRead_SetPosRoundDown), 2000u);
    EXPECT_EQ(NextValid().chunk.uiFrameNumber, 50u);
    Bool found = 0;
    ASSERT_EQ(lxAviReadCore_SetJumpToPrevKeyFrame(&found, -1), LX_OK);
    EXPECT_EQ(found, 1);
    EXPECT_EQ(NextValid().chunk.uiFrameNumber, 40u);
}

TEST_F(MediaData, AWalkLeavesDeliveryWhereItStood)
{
    builder.dmlhTotalFrames = 12;
    AddFrames(6, 3);
    builder.NextRiff();
    AddFrames(6, 3);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    for (UInt32 i = 0; i < 15; ++i) {
        ASSERT_EQ(Next().uiResult, LX_OK);
    }
    ASSERT_EQ(Walk().size(), 24u);
    EXPECT_EQ(Next().uiPosition, BuiltOffsets()[15]);
    lxAviRead_ChunkData_t chunk = {};
    Bool jumped = 0;
    ASSERT_EQ(lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped), LX_OK);
    ASSERT_EQ(Walk().size(), 24u);
    Bytes payload(chunk.uiSize);
    ASSERT_EQ(lxAviReadCore_GetChunk(reinterpret_cast<UInt32*>(payload.data()), chunk.uiSize), LX_OK);
    EXPECT_EQ(payload, builder.MediaItems()[16].payload);
    EXPECT_EQ(Next().uiPosition, BuiltOffsets()[17]);
    EXPECT_EQ(lxAviReadCore_SeekToTime(120, -1, lxAviRead_SetPosRoundDown), 120u);
    ASSERT_EQ(Walk().size(), 24u);
    EXPECT_EQ(Next().chunk.uiFrameNumber, 3u); // the jump is still pending
}

TEST_F(MediaData, SummariesAreCounted)
{
    builder.eIndex = IndexKind::None;
    AddFrames(10, 5);
    ASSERT_EQ(ParseFile(builder.Build()), LX_OK);
    lxAviRead_StreamSummary_t summary = {};
    ASSERT_EQ(lxAviReadCore_GetStreamSummary(1, &summary), LX_OK);
    EXPECT_EQ(summary.eOrigin, LX_AVIREAD_SUMMARY_MEDIA_DATA);
    EXPECT_EQ(summary.uiChunks, 10u);
    EXPECT_EQ(summary.uiBytes, 6400u);
    EXPECT_EQ(summary.uiDurationUsec, 400000u);
    ASSERT_EQ(lxAviReadCore_GetStreamSummary(0, &summary), LX_OK);
    EXPECT_EQ(summary.uiChunks, 10u);
    EXPECT_EQ(summary.uiBytes, 100u);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
    ASSERT_EQ(lxAviReadCore_GetStreamSummary(1, &summary), LX_OK);
    EXPECT_EQ(summary.eOrigin, LX_AVIREAD_SUMMARY_HEADER);
}

// ---- The budget ----

class Budgets : public MediaData {
protected:
    // Frames alone, all of them key frames.
    Bytes KeyFramesOnly(UInt32 count)
    {
        builder.streams.pop_back();
        for (UInt32 i = 0; i < count; ++i) {
            builder.Frame(0, FrameBytes(i, true, 2), true);
        }
        return builder.Build();
    }

    std::vector<UInt32> Numbers()
    {
        std::vector<UInt32> numbers;
        for (const auto& entry : Table()) {
            numbers.push_back(entry.videoFrameNumber);
        }
        return numbers;
    }

    static std::vector<UInt32> Every(UInt32 step, UInt32 count)
    {
        std::vector<UInt32> numbers;
        for (UInt32 i = 0; i < count; i += step) {
            numbers.push_back(i);
        }
        return numbers;
    }
};

TEST_F(Budgets, AFullLeafStaysWhole)
{
    const Bytes file = KeyFramesOnly(kLeaf);
    ASSERT_EQ(ParseFile(file, kOneLeafBudget), LX_OK);
    EXPECT_EQ(Numbers(), Every(1, kLeaf));
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 1u);
}

TEST_F(Budgets, OneMoreLeavesEverySecond)
{
    const Bytes file = KeyFramesOnly(kLeaf + 1);
    ASSERT_EQ(ParseFile(file, kOneLeafBudget), LX_OK);
    EXPECT_EQ(Numbers(), Every(2, kLeaf + 1));
}

TEST_F(Budgets, TheStepDoublesAsOftenAsNeeded)
{
    for (const UInt32 leafs : {1u, 2u, 3u, 4u}) { // an odd and an even number of entries
        for (const UInt32 count : {2 * kLeaf, 2 * kLeaf + 1, 4 * kLeaf, 4 * kLeaf + 1, 5 * kLeaf + 77, 9 * kLeaf}) {
            builder = AviBuilder();
            builder.Add(VideoStream()).Add(PcmStream());
            Patch32(builder.streams[0].format, 16, Code("VP80"));
            const Bytes file = KeyFramesOnly(count);
            ASSERT_EQ(ParseFile(file, leafs * kOneLeafBudget), LX_OK);
            UInt32 step = 1;
            while (count > step * leafs * kLeaf) {
                step *= 2;
            }
            EXPECT_EQ(Numbers(), Every(step, count)) << leafs << " leaves, " << count << " key frames";
            EXPECT_EQ(Info().KeyFramesListAsArrayLength, (Every(step, count).size() + kLeaf - 1) / kLeaf);
        }
    }
}

TEST_F(Budgets, TheTableIsThatOfTheIndexWhereItsStepIsAPowerOfTwo)
{
    AddFrames(4 * kLeaf - 9, 1);
    const Bytes file = builder.Build();
    for (const UInt32 leafs : {1u, 2u, 4u}) {
        ExpectTableOfTheIndex(file, leafs * kOneLeafBudget);
    }
    // every 2nd by the index with 3 leaves, and by the media data, too
    ExpectTableOfTheIndex(file, 3 * kOneLeafBudget);
}

TEST_F(Budgets, ElseItHoldsMoreThanHalfAsMany)
{
    const Bytes file = KeyFramesOnly(3 * kLeaf);
    ASSERT_EQ(Open(file, true, 1, kOneLeafBudget, kFormat), LX_OK);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(Numbers(), Every(3, 3 * kLeaf));
    ASSERT_EQ(Parse(), LX_OK);
    EXPECT_EQ(Numbers(), Every(4, 3 * kLeaf));
}

TEST_F(Budgets, NoLeafIsNoTable)
{
    const Bytes file = KeyFramesOnly(3);
    EXPECT_EQ(ParseFile(file, kOneLeafBudget - 1), LX_ERR_AVIREAD_NO_MEMORY);
    EXPECT_EQ(Info().KeyFramesListAsArray, nullptr);
}

TEST_F(Budgets, MemoryStaysWithinTheBudget)
{
    const Bytes file = KeyFramesOnly(5 * kLeaf);
    for (const UInt32 leafs : {1u, 2u, 3u}) {
        ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
        ASSERT_EQ(Open(file, true, 1, leafs * kOneLeafBudget, kFormat), LX_OK);
        const UInt64 before = Faults().LiveBytes();
        Faults().ResetPeak();
        ASSERT_EQ(Parse(), LX_OK);
        constexpr UInt64 kBatchBuffer = 18000;
        constexpr UInt64 kRoundedUp = 64; // by malloc
        EXPECT_LE(Faults().PeakBytes() - before, leafs * kOneLeafBudget + kBatchBuffer + kRoundedUp);
    }
}

TEST_F(Budgets, AFailingAllocationLeavesNoTable)
{
    const Bytes file = KeyFramesOnly(3 * kLeaf);
    ASSERT_EQ(Open(file, true, 1, kPlenty, kFormat), LX_OK);
    for (UInt32 n = 1; n <= 5; ++n) { // the batch buffer, the array, three leaves
        Faults().FailAllocation(n);
        EXPECT_EQ(Parse(), LX_ERR_AVIREAD_NO_MEMORY) << n;
        EXPECT_EQ(Info().KeyFramesListAsArray, nullptr);
        EXPECT_EQ(Info().pMetaDataBuffer, nullptr);
        Faults().FailAllocation(0);
    }
    EXPECT_EQ(Parse(), LX_OK);
    EXPECT_EQ(Numbers(), Every(1, 3 * kLeaf));
}

// ---- The walk ----

TEST_F(MediaData, AWalkMeetsTheChunksOfAllStreams)
{
    builder.Add(builder.streams[0]).Add(TextStream());
    builder.Audio(1, Fill(7)).Frame(0, FrameBytes(0, true), true).Media("03tx", Text("abc"));
    builder.Frame(2, FrameBytes(0, false, 5), false).Drm(0, Fill(10)).Frame(0, FrameBytes(1, false), false);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    const auto chunks = Walk();
    ASSERT_EQ(chunks.size(), 5u);
    const std::vector<UInt64> built = BuiltOffsets();
    const auto expect = [&](size_t i, UInt64 offset, std::string_view id, UInt32 stream, UInt32 size, UInt32 frame) {
        EXPECT_EQ(chunks[i].uiOffset, offset);
        EXPECT_EQ(chunks[i].uiId, Code(id));
        EXPECT_EQ(chunks[i].uiStreamNr, stream);
        EXPECT_EQ(chunks[i].uiSize, size);
        EXPECT_EQ(chunks[i].eFrame, frame);
    };
    expect(0, built[0], "01wb", 1, 7, LX_AVIREAD_FRAME_UNKNOWN);
    expect(1, built[1], "00dc", 0, 10, LX_AVIREAD_FRAME_KEY);
    expect(2, built[2], "03tx", 3, 3, LX_AVIREAD_FRAME_UNKNOWN);
    expect(3, built[3], "02dc", 2, 5, LX_AVIREAD_FRAME_OTHER);
    expect(4, built[5], "00dc", 0, 10, LX_AVIREAD_FRAME_OTHER);
    EXPECT_EQ(chunks[3].uiDescriptor, 0u);
    EXPECT_EQ(chunks[4].uiDescriptor, built[4]);
}

TEST_F(MediaData, AWalkStepsOverChunksOfMissingStreams)
{
    builder.Frame(0, FrameBytes(0, true), true).Media("05wb", Text("00dc") + U32(4) + Fill(20));
    builder.Frame(0, FrameBytes(1, false), false);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(WalkedOffsets(), OffsetsOf("00dc"));
}

TEST_F(MediaData, AfterAFailedOpenThereIsNothingToWalk)
{
    EXPECT_NE(OpenAs(kFormat, Riff("AVI ", Chunk("JUNK", Fill(8)))), LX_OK);
    EXPECT_TRUE(Walk().empty());
    EXPECT_EQ(Parse(), LX_ERR_AVIREAD_NO_INDEX);
}

// The first look at a frame takes 256 bytes, and does not reach the second length.
TEST_F(MediaData, MoreIsReadWhereLengthsAndStartCodesLookAlike)
{
    Patch32(builder.streams[0].format, 16, Code("avc1"));
    for (const UInt8 unit : {UInt8{0x65}, UInt8{0x41}, UInt8{0x65}}) {
        builder.Frame(0, Bytes{0, 0, 1, 0x2C, unit} + Fill(299) + Bytes{0, 0, 0, 4, unit} + Fill(3), unit == 0x65);
    }
    ASSERT_EQ(ParseFile(builder.Build()), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(MediaData, AWalkNeedsAVisitor)
{
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(lxAviReadCore_WalkMediaData(nullptr, nullptr), LX_OK);
    EXPECT_EQ(log.Assertions().size(), 1u);
}

TEST_F(MediaData, AVisitorEndsTheWalk)
{
    AddFrames(10, 5);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    UInt32 left = 3;
    const auto countDown = [](void* pUser, const lxAviRead_MediaChunk_t*) -> UInt32 {
        return --*static_cast<UInt32*>(pUser);
    };
    EXPECT_EQ(lxAviReadCore_WalkMediaData(countDown, &left), LX_ERR_AVIREAD_ABORTED);
    EXPECT_EQ(left, 0u);
}

TEST_F(MediaData, OfAFrameAtMost4096BytesAreRead)
{
    Patch32(builder.streams[0].format, 16, Code("XVID"));
    for (UInt32 i = 0; i < 4; ++i) {
        builder.Frame(0, Fill(300000), i == 0); // no start code in it
    }
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    const size_t before = Faults().ReadSizes().size();
    ASSERT_EQ(Parse(), LX_OK);
    const std::vector<UInt64>& sizes = Faults().ReadSizes();
    const UInt64 bytes = std::accumulate(sizes.begin() + static_cast<std::ptrdiff_t>(before), sizes.end(), UInt64{0});
    constexpr UInt64 kOther = 64; // headers, the last byte of a payload, and the walk for audio
    EXPECT_LE(bytes, 4 * (4096 + kOther) + kOther);
}

TEST_F(MediaData, ParameterSetsOfAnyLengthUpTo4096BytesMayComeFirst)
{
    Patch32(builder.streams[0].format, 16, Code("XVID"));
    const Bytes vop = {0, 0, 1, 0xB6, 0x10, 0, 0, 0, 0, 0};
    for (const UInt32 before : {0u, 100u, 251u, 252u, 300u, 4091u}) {
        builder.Frame(0, Fill(before) + vop, true);
    }
    builder.Frame(0, Fill(4092) + vop, false); // too late
    ASSERT_EQ(ParseFile(builder.Build()), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

// ---- Progress and abort ----

struct Heard {
    std::vector<UInt64> done;
    UInt64 uiAll = 0;
    size_t most = SIZE_MAX;
};

UInt32 Hear(void* pUser, UInt64 done, UInt64 all)
{
    auto& heard = *static_cast<Heard*>(pUser);
    heard.done.push_back(done);
    heard.uiAll = all;
    return heard.done.size() < heard.most ? 1 : 0;
}

TEST_F(MediaData, ProgressIsToldAtMostAHundredTimes)
{
    builder.dmlhTotalFrames = 3000;
    builder.eIndex = IndexKind::None;
    AddFrames(1000, 50);
    builder.NextRiff();
    AddFrames(2000, 50);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    Heard heard;
    ASSERT_EQ(Parse(Hear, &heard), LX_OK);
    EXPECT_LE(heard.done.size(), 101u);
    EXPECT_GE(heard.done.size(), 90u);
    EXPECT_TRUE(std::is_sorted(heard.done.begin(), heard.done.end()));
    EXPECT_LE(heard.done.back(), heard.uiAll);
    EXPECT_GE(heard.done.back(), heard.uiAll / 100 * 97);
    // two walks, from the first chunk to the end of the file
    EXPECT_EQ(heard.uiAll, 2 * (builder.Build().size() - builder.MoviOffset()));
}

TEST_F(MediaData, ProgressNeverGoesBackWhenAListGrows)
{
    builder.eIndex = IndexKind::None;
    AddFrames(50, 5);
    Bytes file = builder.Build();
    Patch32(file, Find(file, "movi") - 4, 4 + 648 + 18);
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    Heard heard;
    ASSERT_EQ(Parse(Hear, &heard), LX_OK);
    EXPECT_TRUE(std::is_sorted(heard.done.begin(), heard.done.end()));
    EXPECT_EQ(heard.uiAll, 2 * (file.size() - builder.MoviOffset()));
}

TEST_F(MediaData, ProgressInAFileWithoutAudioIsThatOfOneWalk)
{
    builder.streams.pop_back();
    builder.eIndex = IndexKind::None;
    builder.Frame(0, FrameBytes(0, true), true);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    Heard heard;
    ASSERT_EQ(Parse(Hear, &heard), LX_OK);
    EXPECT_EQ(heard.done, (std::vector<UInt64>{18}));
    EXPECT_EQ(heard.uiAll, 18u);
}

TEST_F(MediaData, ProgressEndsTheWalk)
{
    AddFrames(100, 5);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    for (const size_t most : {1u, 2u, 50u, 60u}) {
        Heard heard;
        heard.most = most;
        EXPECT_EQ(Parse(Hear, &heard), LX_ERR_AVIREAD_ABORTED);
        EXPECT_EQ(heard.done.size(), most);
        EXPECT_EQ(Info().KeyFramesListAsArray, nullptr);
    }
    EXPECT_EQ(Parse(), LX_OK);
}

TEST_F(MediaData, AnAbortIsHeardWithinTwentyReads)
{
    AddFrames(100, 5);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    for (const UInt64 at : {1u, 2u, 3u, 50u, 333u, 900u}) {
        const UInt64 start = Faults().Reads();
        Faults().onRead = [&](UInt64 read) {
            if (read == start + at) {
                EXPECT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
            }
        };
        EXPECT_EQ(Parse(), LX_ERR_AVIREAD_ABORTED);
        EXPECT_LE(Faults().Reads(), start + at + 20);
        EXPECT_EQ(Info().KeyFramesListAsArray, nullptr);
        EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
    }
    Faults().onRead = nullptr;
    EXPECT_EQ(Parse(), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

// ---- Damage ----

TEST_F(MediaData, BytesThatAreNoChunkAreSlidOver)
{
    builder.eIndex = IndexKind::None;
    AddFrames(5, 2);
    builder.Raw(Fill(1000, 0));
    AddFrames(5, 2);
    builder.Raw(Text("garbage")).Media("JUNK", Fill(30)).Media("ix00", Fill(24));
    builder.Raw(Text("LIST") + U32(4000) + Text("rec "));
    AddFrames(5, 2);
    ASSERT_EQ(ParseFile(builder.Build()), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    EXPECT_EQ(Table().back().videoFrameNumber, 14u);
    ExpectEverySeekLands();
}

TEST_F(MediaData, ChunksOfUnknownStreamsAreSlidOver)
{
    builder.eIndex = IndexKind::None;
    builder.Frame(0, FrameBytes(0, true), true).Media("77wb", Fill(9)).Frame(0, FrameBytes(1, true), true);
    ASSERT_EQ(ParseFile(builder.Build()), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    EXPECT_EQ(Walk().size(), 2u);
}

TEST_F(MediaData, AChunkThatTheEndOfTheFileCutsIsNoEntry)
{
    AddFrames(5, 1);
    const Bytes whole = builder.Build();
    const std::vector<UInt64> built = BuiltOffsets();
    const std::vector<UInt64> keys = KeyFrames();
    const UInt64 last = keys.back();
    for (UInt64 size = last; size < last + 18; ++size) {
        ASSERT_EQ(ParseFile(Start(whole, size)), LX_OK) << size;
        EXPECT_EQ(TableOffsets(), std::vector<UInt64>(keys.begin(), keys.end() - 1)) << size;
    }
    ASSERT_EQ(ParseFile(Start(whole, last + 18)), LX_OK);
    EXPECT_EQ(TableOffsets(), keys);
    EXPECT_EQ(WalkedOffsets(), built);
}

TEST_F(MediaData, APadByteMayBeMissingAtTheEnd)
{
    builder.eIndex = IndexKind::None;
    builder.Frame(0, FrameBytes(0, true, 9), true);
    Bytes file = builder.Build();
    file.pop_back();
    ASSERT_EQ(ParseFile(file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(MediaData, ASizeBeyondTheListCostsTheChunkAlone)
{
    builder.eIndex = IndexKind::None;
    AddFrames(10, 1);
    Bytes file = builder.Build();
    std::vector<UInt64> expected = BuiltOffsets();
    PatchSize(file, expected[7], 0x7FFFFFFF);
    ASSERT_EQ(ParseFile(file), LX_OK);
    expected.erase(expected.begin() + 7);
    EXPECT_EQ(WalkedOffsets(), expected);
    EXPECT_EQ(Table().size(), 9u);
}

TEST_F(MediaData, ADamagedChunkWithNothingPlausibleBehindItEndsItsList)
{
    builder.dmlhTotalFrames = 10;
    builder.eIndex = IndexKind::None;
    AddFrames(2, 1);
    const Bytes misleading = Text("00dc") + U32(6) + Fill(8) + Text("01wb") + U32(3000) + Fill(100);
    builder.Frame(0, Fill(50) + misleading, true);
    builder.NextRiff();
    AddFrames(2, 1);
    Bytes file = builder.Build();
    std::vector<UInt64> expected = BuiltOffsets();
    PatchSize(file, expected[4], 5000);
    ASSERT_EQ(ParseFile(file), LX_OK);
    expected.erase(expected.begin() + 4);
    EXPECT_EQ(WalkedOffsets(), expected);
}

TEST_F(MediaData, BehindADamagedChunkOnlyChunksInARowCount)
{
    builder.eIndex = IndexKind::None;
    AddFrames(1, 1);
    builder.Frame(0, Text("00dc") + U32(8) + Fill(40), true); // looks like a chunk, and nothing follows it
    builder.Frame(0, FrameBytes(1, true), true).Media("JUNK", Fill(6)).Frame(0, FrameBytes(2, true), true);
    Bytes file = builder.Build();
    std::vector<UInt64> expected = BuiltOffsets();
    PatchSize(file, expected[2], 0xFFFFFFFE);
    ASSERT_EQ(ParseFile(file), LX_OK);
    expected.erase(expected.begin() + 4); // "JUNK"
    expected.erase(expected.begin() + 2);
    EXPECT_EQ(WalkedOffsets(), expected);
}

TEST_F(MediaData, UnfinishedFilesWork)
{
    builder.dmlhTotalFrames = 0;
    builder.eIndex = IndexKind::None;
    AddFrames(3, 3);
    builder.Media("00pc", Fill(8));
    AddFrames(3, 3);
    Bytes plain = builder.Build();
    builder.NextRiff();
    AddFrames(6, 3);
    Bytes extended = builder.Build();
    const auto keys = KeyFrames();
    Patch32(plain, 4, 0);
    Patch32(plain, Find(plain, "movi") - 4, 0);
    ASSERT_EQ(ParseFile(plain), LX_OK);
    EXPECT_EQ(TableOffsets(), std::vector<UInt64>(keys.begin(), keys.begin() + 2));
    const size_t avix = Find(extended, "AVIX");
    Patch32(extended, avix - 4, 0);
    Patch32(extended, Find(extended, "movi", avix) - 4, 0);
    ASSERT_EQ(ParseFile(extended), LX_OK);
    EXPECT_EQ(TableOffsets(), keys);
    Patch32(extended, 4, 0);
    Patch32(extended, Find(extended, "movi") - 4, 0);
    ASSERT_EQ(ParseFile(extended), LX_OK);
    EXPECT_EQ(TableOffsets(), keys);
    Position();
    ExpectEverySeekLands();
}

TEST_F(MediaData, AListMayBeLongerThanItSays)
{
    builder.dmlhTotalFrames = 12;
    builder.eIndex = IndexKind::None;
    AddFrames(6, 2);
    builder.NextRiff();
    AddFrames(6, 2);
    const Bytes whole = builder.Build();
    const std::vector<UInt64> built = BuiltOffsets();
    const size_t movi = Find(whole, "movi");
    for (const UInt64 end : {built[4], built[4] + 3, built[4] + 8, built[4] + 300, built[5] + 2}) {
        Bytes file = whole;
        Patch32(file, movi - 4, static_cast<UInt32>(end - movi));
        ASSERT_EQ(ParseFile(file), LX_OK);
        EXPECT_EQ(TableOffsets(), KeyFrames()) << end - built[4];
        EXPECT_EQ(WalkedOffsets(), built) << end - built[4];
        Position();
        EXPECT_EQ(CountDelivered(), 24u);
        Position();
        ExpectEverySeekLands();
    }
}

TEST_F(MediaData, WhatStandsBeforeAChunkDoesNotKeepAListFromGrowing)
{
    builder.eIndex = IndexKind::None;
    AddFrames(2, 1);
    builder.Drm(0, Fill(10)).Frame(0, FrameBytes(2, true), true).Media("JUNK", Fill(7));
    builder.Raw(Text("LIST") + U32(4000) + Text("rec ")).Drm(0, Fill(10)).Frame(0, FrameBytes(3, true), true);
    builder.Media("ix00", Fill(24)).Audio(1, Fill(9)).Audio(1, Fill(640));
    const Bytes whole = builder.Build();
    const size_t movi = Find(whole, "movi");
    ASSERT_EQ(ParseFile(whole), LX_OK);
    const std::vector<UInt64> offsets = WalkedOffsets();
    ASSERT_EQ(offsets.size(), 8u);
    for (const MediaItem& item : builder.MediaItems()) {
        Bytes file = whole;
        Patch32(file, movi - 4, static_cast<UInt32>(item.uiOffset - movi));
        ASSERT_EQ(ParseFile(file), LX_OK) << item.uiOffset;
        EXPECT_EQ(Table().size(), 4u) << item.uiOffset;
        EXPECT_EQ(WalkedOffsets(), offsets) << item.uiOffset;
    }
}

// The list grows in the first walk. Damage that was no chunk then is none in the second one either.
TEST_F(MediaData, BothWalksMeetTheSameChunks)
{
    builder.eIndex = IndexKind::None;
    for (UInt32 i = 0; i < 40; ++i) {
        builder.Audio(1, Fill(640)).Frame(0, FrameBytes(i, true, i < 10 ? 20 : 12), true);
        if (i == 9) {
            builder.Raw(ChunkOfSize("00dc", 668 * 15 + 4, Fill(20)));
        }
    }
    Bytes file = builder.Build();
    Patch32(file, Find(file, "movi") - 4, 4 + 676 * 10 + 28 + 668 * 6);
    ASSERT_EQ(ParseFile(file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    for (UInt32 i = 0; i < 40; ++i) {
        EXPECT_EQ(Entry(0, i).audioChunkOffset[0], OffsetsOf("01wb")[i]) << i;
    }
    for (UInt32 again = 0; again < 2; ++again) {
        EXPECT_EQ(Walk().size(), 80u);
        ASSERT_EQ(Parse(), LX_OK);
        EXPECT_EQ(TableOffsets(), KeyFrames());
    }
}

TEST_F(MediaData, ManyListsMayGrow)
{
    builder.dmlhTotalFrames = 24;
    builder.eIndex = IndexKind::None;
    constexpr UInt32 kLists = 12;
    for (UInt32 i = 0; i < kLists; ++i) {
        AddFrames(4, 2);
        if (i + 1 < kLists) {
            builder.NextRiff();
        }
    }
    Bytes file = builder.Build();
    size_t movi = Find(file, "movi");
    for (UInt32 i = 0; i < kLists; ++i) {
        Patch32(file, movi - 4, 4 + 648 + 18);
        movi = Find(file, "movi", movi + 4);
    }
    ASSERT_EQ(ParseFile(file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    EXPECT_EQ(WalkedOffsets(), BuiltOffsets());
    EXPECT_EQ(WalkedOffsets(), BuiltOffsets());
    Position();
    EXPECT_EQ(CountDelivered(), 8 * kLists);
}

TEST_F(MediaData, DamageMayShiftChunksToOddOffsets)
{
    builder.eIndex = IndexKind::None;
    AddFrames(5, 1);
    builder.Raw(Fill(1));
    AddFrames(5, 1);
    builder.Raw(ChunkOfSize("00dc", 0x7000000, Fill(20)));
    AddFrames(20, 1);
    ASSERT_EQ(ParseFile(builder.Build()), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(MediaData, LettersThatLookLikeAnIndexCostNothing)
{
    builder.eIndex = IndexKind::None;
    AddFrames(5, 1);
    builder.Raw(Text("????ix?!") + U32(0x55667788) + Text("ix00") + U32(0x55667788) + Text("JUNK") + U32(0x55667788));
    AddFrames(5, 1);
    ASSERT_EQ(ParseFile(builder.Build()), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    Position();
    EXPECT_EQ(CountDelivered(), 20u);
}

TEST_F(MediaData, AListThatReachesOverTheIndexHasNoChunksThere)
{
    AddFrames(10, 2);
    Bytes file = builder.Build();
    const size_t movi = Find(file, "movi");
    Patch32(file, movi - 4, static_cast<UInt32>(file.size() - movi + 1000));
    ASSERT_EQ(ParseFile(file), LX_OK);
    EXPECT_EQ(WalkedOffsets(), BuiltOffsets());
    Position();
    EXPECT_EQ(CountDelivered(), 20u);
}

TEST_F(MediaData, AListIsWalkedOnce)
{
    AddFrames(5, 1);
    Bytes file = builder.Build();
    const size_t movi = Find(file, "movi") - 8;
    const Bytes avix = Chunk("JUNK", Text("RIFF") + U32(0x100000) + Text("AVIXLIST") + U32(0x100000) + Text("movi"));
    file.insert(file.begin() + static_cast<std::ptrdiff_t>(movi), avix.begin(), avix.end());
    Patch32(file, 4, static_cast<UInt32>(movi)); // the RIFF list ends in the padding
    ASSERT_EQ(Open(file, true, 1, kPlenty, kFormat), LX_OK);
    const std::vector<UInt64> offsets = WalkedOffsets();
    EXPECT_TRUE(std::is_sorted(offsets.begin(), offsets.end()));
    EXPECT_TRUE(std::adjacent_find(offsets.begin(), offsets.end()) == offsets.end());
}

TEST_F(MediaData, AListDoesNotGrowIntoWhatFollowsIt)
{
    AddFrames(4, 2);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseFile(file), LX_OK);
    EXPECT_EQ(WalkedOffsets(), BuiltOffsets());
    EXPECT_EQ(Info().pCurrentAvix->moviDataSize, builder.MoviSize());
    builder.behindMovi =
        Chunk("00dc", FrameBytes(9, true)) + Chunk("abcd", Fill(8)) + Chunk("00dc", FrameBytes(9, true));
    ASSERT_EQ(ParseFile(builder.Build()), LX_OK);
    EXPECT_EQ(WalkedOffsets().size(), 9u);
    EXPECT_EQ(Info().pCurrentAvix->moviDataSize, builder.MoviSize() + 18);
}

TEST_F(MediaData, AListDoesNotGrowByWhatIsNoChunkOfTheFile)
{
    AddFrames(4, 2);
    for (const Bytes& behind : {Chunk("77dc", Fill(8)), ChunkOfSize("00dc", 90000, Fill(8)), Text("00d")}) {
        builder.eIndex = IndexKind::None;
        builder.behindMovi = behind;
        ASSERT_EQ(ParseFile(builder.Build()), LX_OK);
        EXPECT_EQ(WalkedOffsets(), BuiltOffsets());
        EXPECT_EQ(Info().pCurrentAvix->moviDataSize, builder.MoviSize());
    }
}

TEST_F(MediaData, ListsAndIndexChunksFollowAWholeChunk)
{
    for (const std::string_view code : {"LIST", "ix00", "JUNK"}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = IndexKind::None;
        AddFrames(1, 1);
        builder.Frame(0, FrameBytes(1, true), true).Frame(0, FrameBytes(2, true), true);
        builder.Raw(Text(code) + U32(4) + Text("rec ")).Frame(0, FrameBytes(3, true), true);
        Bytes file = builder.Build();
        const std::vector<UInt64> built = BuiltOffsets();
        PatchSize(file, built[2], 0xFFFFFFFF);
        ASSERT_EQ(ParseFile(file), LX_OK);
        EXPECT_EQ(WalkedOffsets(), (std::vector<UInt64>{built[0], built[1], built[3], built[4]})) << code;
    }
}

TEST_F(MediaData, AnUnfinishedListGoesOnBehindDamage)
{
    builder.eIndex = IndexKind::None;
    AddFrames(10, 5);
    builder.Raw(Fill(1001));
    AddFrames(10, 5);
    builder.Raw(Text("abcd") + U32(0xFFFFFF00));
    AddFrames(10, 5);
    Bytes file = builder.Build();
    Patch32(file, 4, 0);
    Patch32(file, Find(file, "movi") - 4, 0);
    ASSERT_EQ(ParseFile(file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    EXPECT_EQ(Table().back().videoFrameNumber, 25u);
    Position();
    EXPECT_EQ(CountDelivered(), 60u);
}

TEST_F(MediaData, ListsBehindADamagedHeaderAreFound)
{
    builder.dmlhTotalFrames = 20;
    builder.eIndex = IndexKind::None;
    for (UInt32 i = 0; i < 5; ++i) {
        AddFrames(30, 10);
        if (i < 4) {
            builder.NextRiff();
        }
    }
    const Bytes whole = builder.Build();
    const size_t third = Find(whole, "AVIX", Find(whole, "AVIX") + 4) - 8;
    for (const UInt32 size : {0u, 7u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        Bytes file = whole;
        Patch32(file, third + 4, size);
        ASSERT_EQ(ParseFile(file), LX_OK);
        EXPECT_EQ(TableOffsets(), KeyFrames()) << size;
        EXPECT_EQ(Table().back().videoFrameNumber, 140u);
        Position();
        EXPECT_EQ(CountDelivered(), 300u);
    }
    Bytes file = whole;
    std::fill_n(file.begin() + static_cast<std::ptrdiff_t>(third), 24, UInt8{0});
    ASSERT_EQ(ParseFile(file), LX_OK);
    EXPECT_EQ(Table().size(), 12u); // the list without its header is lost
    file.insert(file.begin() + static_cast<std::ptrdiff_t>(third), 20001, 0);
    ASSERT_EQ(ParseFile(file), LX_OK);
    EXPECT_EQ(Table().size(), 12u);
}

TEST_F(MediaData, FailuresOfTheSearchForListsAreTold)
{
    builder.dmlhTotalFrames = 8;
    builder.eIndex = IndexKind::None;
    for (UInt32 i = 0; i < 4; ++i) {
        AddFrames(2, 1);
        if (i < 3) {
            builder.NextRiff();
        }
    }
    Bytes file = builder.Build();
    Patch32(file, Find(file, "AVIX") - 4, 0xFFFFFFFF); // hides the lists behind the second one
    std::set<UInt32> results;
    for (UInt32 n = 1; n <= 8; ++n) { // the batch buffer, two lists, the table
        ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
        Faults().FailAllocation(n);
        results.insert(Parse());
        Faults().FailAllocation(0);
    }
    EXPECT_EQ(results, (std::set<UInt32>{LX_OK, LX_ERR_AVIREAD_NO_MEMORY}));
    for (UInt32 n = 1; n <= 20; ++n) {
        ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
        Faults().FailSeek(n, true);
        results.insert(Parse());
        Faults().FailSeek(0);
    }
    EXPECT_TRUE(results.contains(LX_ERR_AVIREAD_SEEK));
    for (UInt32 n = 1; n <= 12; ++n) {
        ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
        const UInt64 start = Faults().Reads();
        Faults().onRead = [&](UInt64 read) {
            if (read == start + n) {
                EXPECT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
            }
        };
        EXPECT_EQ(Parse(), LX_ERR_AVIREAD_ABORTED) << n;
        Faults().onRead = nullptr;
        EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
    }
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    EXPECT_EQ(Parse(), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(MediaData, TheSizeOfTheFileNeedNotBeKnown)
{
    AddFrames(5, 1);
    const Bytes whole = builder.Build();
    const std::vector<UInt64> keys = KeyFrames();
    const Bytes file = Start(whole, keys.back() + 12);
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    Faults().FailSeek(1); // the one to the end
    ASSERT_EQ(Parse(), LX_OK);
    EXPECT_EQ(TableOffsets(), std::vector<UInt64>(keys.begin(), keys.end() - 1));
}

TEST_F(MediaData, FailedSeeksAndReadsAreTold)
{
    builder.eIndex = IndexKind::None;
    for (UInt32 i = 0; i < 5; ++i) {
        builder.Frame(0, FrameBytes(i, true, 20000), true);
    }
    const Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    Faults().FailSeek(1, true);
    EXPECT_EQ(Parse(), LX_ERR_AVIREAD_SEEK);
    Faults().FailSeek(0);
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    constexpr UInt64 kInTheMiddle = 6;
    Faults().FaultRead(kInTheMiddle, {ReadFault::Kind::ShortThenError, 0});
    EXPECT_EQ(Parse(), LX_ERR_AVIREAD_READ);
    EXPECT_EQ(Info().KeyFramesListAsArray, nullptr);
}

// The search never goes back: a list full of headers that claim too much costs a fixed number of reads for each.
TEST_F(MediaData, TheWorkIsLinear)
{
    builder.eIndex = IndexKind::None;
    builder.streams.pop_back();
    Bytes headers;
    constexpr UInt32 kHeaders = 2000;
    for (UInt32 i = 0; i < kHeaders; ++i) {
        headers += Text("00dc") + U32(i % 2 == 0 ? 0x10000000 : 9);
    }
    builder.Raw(headers).Frame(0, FrameBytes(0, true), true);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    const UInt64 before = Faults().Reads();
    ASSERT_EQ(Parse(), LX_OK);
    EXPECT_LE(Faults().Reads() - before, UInt64{20} * kHeaders);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

} // namespace
} // namespace avitest
