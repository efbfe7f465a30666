// Tests delivery: headers, resynchronisation, DRM descriptors, segments, jumps.

#include "ReaderTest.hpp"

namespace avitest {
namespace {

class NextChunk : public ReaderTest {
protected:
    AviBuilder builder;

    NextChunk()
    {
        builder.eIndex = IndexKind::None;
        builder.Add(VideoStream()).Add(PcmStream());
    }

    void OpenToPlay()
    {
        ASSERT_EQ(Open(builder), LX_OK);
        Position();
        log.Clear();
    }

    void OpenToPlay(const Bytes& file)
    {
        ASSERT_EQ(Open(file), LX_OK);
        Position();
        log.Clear();
    }
};

TEST_F(NextChunk, ChunksComeInFileOrderWithTheirPayload)
{
    builder.Frame(0, Fill(10, 1), true).Audio(1, Fill(6, 2)).Frame(0, Fill(12, 3), false, "db");
    OpenToPlay();
    const auto all = All();
    ASSERT_EQ(all.size(), 4u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(all[i].payload, builder.MediaItems()[i].payload);
        EXPECT_EQ(all[i].uiPosition, builder.MediaItems()[i].uiOffset);
        EXPECT_EQ(all[i].chunk.uiSize, builder.MediaItems()[i].payload.size());
        EXPECT_EQ(all[i].chunk.bDrm, 0);
        EXPECT_FALSE(all[i].bJumped);
    }
    EXPECT_EQ(all[0].chunk.uiStreamNr, 0u);
    EXPECT_EQ(all[0].chunk.eStreamType, 2u);
    EXPECT_EQ(all[1].chunk.uiStreamNr, 1u);
    EXPECT_EQ(all[1].chunk.eStreamType, 1u);
    EXPECT_EQ(all[3].uiResult, LX_AVIREAD_END_OF_MEDIA);
}

TEST_F(NextChunk, ADeliveredChunkCostsNoAllocation)
{
    for (int i = 0; i < 100; ++i) {
        builder.Frame(0, Fill(11), i % 10 == 0).Audio(1, Fill(7));
    }
    builder.eIndex = IndexKind::Idx1Relative;
    OpenIndexed(builder);
    const UInt64 before = Faults().Allocations();
    EXPECT_EQ(All().size(), 201u);
    static_cast<void>(lxAviReadCore_SeekToTime(2000, 0, lxAviRead_SetPosRoundNearest));
    EXPECT_GT(All().size(), 50u);
    EXPECT_EQ(Faults().Allocations(), before);
}

TEST_F(NextChunk, AChunkThatEndsWithTheListIsDelivered)
{
    builder.Frame(0, Fill(4), true);
    OpenToPlay();
    EXPECT_EQ(Info().moviSize, 12u);
    EXPECT_EQ(Next().payload, Fill(4));
    EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA);
    EXPECT_TRUE(log.Has("\n*** EndOfMovi: (moviSize=0.12 )Rewind 0." + std::to_string(Info().moviOffset) + "***\n"));
}

TEST_F(NextChunk, TheEndIsNotSticky)
{
    builder.Frame(0, Fill(4), true);
    OpenToPlay();
    Next();
    EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA);
    EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA);
    lxAviReadCore_RewindToStart();
    EXPECT_EQ(Next().uiResult, LX_OK);
}

TEST_F(NextChunk, AnOddChunkIsFollowedByItsPadByte)
{
    builder.Frame(0, Fill(5), true).Frame(0, Fill(6), false);
    OpenToPlay();
    ASSERT_EQ(Next().uiResult, LX_OK);
    EXPECT_EQ(Info().CurrentOffset, 4u + 8u + 5u); // the reader counts the pad byte later
    const Delivered second = Next();
    EXPECT_EQ(second.uiPosition, builder.MediaItems()[1].uiOffset);
    EXPECT_EQ(Info().CurrentOffset, 4u + 8u + 5u + 1u + 8u + 6u);
}

TEST_F(NextChunk, ARecordListIsSlidOver)
{
    builder.Raw(ChunkOfSize("LIST", 18, Text("rec "))).Frame(0, Fill(6), true);
    OpenToPlay();
    const Delivered chunk = Next();
    EXPECT_EQ(chunk.payload, Fill(6));
    EXPECT_EQ(Info().CurrentOffset, 4u + 12u + 8u + 6u); // the reader counts every byte
}

TEST_F(NextChunk, GarbageIsSlidOver)
{
    builder.Raw(Fill(100, 0xA5)).Frame(0, Fill(6), true).Raw(Text("xyz")).Frame(0, Fill(8), true);
    OpenToPlay();
    EXPECT_EQ(Next().payload, Fill(6));
    EXPECT_EQ(Next().payload, Fill(8));
}

TEST_F(NextChunk, JunkIsSteppedOverInOnePiece)
{
    builder.Raw(Chunk("JUNK", Text("00dc1234") + Fill(91))).Frame(0, Fill(6), true);
    OpenToPlay();
    EXPECT_EQ(Next().payload, Fill(6));
    EXPECT_EQ(Info().CurrentOffset, 4u + 108u + 14u);
}

TEST_F(NextChunk, EmptyJunkIsSteppedOver)
{
    builder.Raw(Chunk("JUNK", {})).Frame(0, Fill(6), true);
    OpenToPlay();
    EXPECT_EQ(Next().payload, Fill(6));
}

TEST_F(NextChunk, EmptyJunkThatFillsTheListIsSteppedOverToo)
{
    builder.Frame(0, Fill(6), true).Raw(Chunk("JUNK", {})).Raw(Fill(4)); // the reader does not reach the last 4 bytes
    OpenToPlay();
    EXPECT_EQ(Next().uiResult, LX_OK);
    EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA);
    EXPECT_EQ(Info().CurrentOffset, Info().moviSize);
    EXPECT_TRUE(log.HasPrefix("lxAviReadCore_RemoveChunk : size == 0"));
}

TEST_F(NextChunk, JunkThatReachesBeyondTheListEndsIt)
{
    builder.Frame(0, Fill(6), true).Raw(ChunkOfSize("JUNK", 500, Fill(40)));
    OpenToPlay();
    EXPECT_EQ(Next().uiResult, LX_OK);
    EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA);
}

TEST_F(NextChunk, JunkAtTheEndOfTheListEndsIt)
{
    builder.Frame(0, Fill(6), true).Raw(Chunk("JUNK", Fill(40)));
    OpenToPlay();
    EXPECT_EQ(Next().uiResult, LX_OK);
    EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA);
}

TEST_F(NextChunk, IndexChunksAreSteppedOverOnlyInFilesThatHaveIndexes)
{
    const Bytes ix = Chunk("ix00", Text("00dc") + U32(4) + Fill(4, 9));
    builder.Raw(ix).Frame(0, Fill(6), true);
    OpenToPlay();
    EXPECT_EQ(Next().payload, Fill(4, 9)); // a chunk inside the index chunk
    OpenToPlay();
    Info().bIndxPresent = 1;
    EXPECT_EQ(Next().payload, Fill(6));
}

TEST_F(NextChunk, ADrmDescriptorIsAttachedToTheChunkBehindIt)
{
    const Bytes drm = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    builder.Drm(0, drm).Frame(0, Fill(6), true).Frame(0, Fill(8), false);
    OpenToPlay();
    const Delivered chunk = Next();
    EXPECT_EQ(chunk.chunk.bDrm, 1);
    EXPECT_EQ(Bytes(chunk.chunk.DrmInfo, chunk.chunk.DrmInfo + 10), drm);
    EXPECT_EQ(chunk.payload, Fill(6));
    EXPECT_EQ(Info().CurrentOffset, 4u + 18u + 14u);
    EXPECT_EQ(Next().chunk.bDrm, 0);
}

TEST_F(NextChunk, TheSizeOfADrmDescriptorDoesNotMatter)
{
    for (const UInt32 size : {0u, 3u, 10u, 0xFFFFFFFFu}) {
        AviBuilder one;
        one.eIndex = IndexKind::None;
        one.Add(VideoStream()).Raw(ChunkOfSize("07dd", size, Fill(10, 4))).Frame(0, Fill(6), true);
        OpenToPlay(one.Build());
        const Delivered chunk = Next();
        EXPECT_EQ(chunk.uiResult, LX_OK);
        EXPECT_EQ(chunk.chunk.bDrm, 1);
        EXPECT_EQ(chunk.chunk.uiStreamNr, 0u); // not the stream number of the "dd" chunk
        EXPECT_EQ(chunk.payload, Fill(6));
    }
}

TEST_F(NextChunk, AnyCodeBehindADrmDescriptorIsTaken)
{
    builder.Raw(ChunkOfSize("00dd", 10, Fill(10))).Raw(ChunkOfSize("00zz", 6, Fill(6, 3)));
    OpenToPlay();
    const Delivered chunk = Next();
    EXPECT_EQ(chunk.uiResult, LX_OK);
    EXPECT_EQ(chunk.payload, Fill(6, 3));
}

TEST_F(NextChunk, ADrmDescriptorWithoutRoomBehindItEndsTheList)
{
    builder.Frame(0, Fill(6), true).Raw(ChunkOfSize("00dd", 10, Fill(10)));
    OpenToPlay();
    EXPECT_EQ(Next().uiResult, LX_OK);
    EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA);
}

TEST_F(NextChunk, ADrmDescriptorNeedsRoomForTheHeaderBehindIt)
{
    builder.Frame(0, Fill(6), true).Raw(ChunkOfSize("00dd", 10, Fill(10)));
    AviBuilder enough = builder;
    builder.Raw(ChunkOfSize("00dc", 4, Fill(2))); // without the last 4 bytes, 6 bytes are left; 8 are needed
    enough.Raw(ChunkOfSize("00dc", 4, Fill(4)));
    OpenToPlay();
    EXPECT_EQ(Next().uiResult, LX_OK);
    const Delivered cut = Next();
    EXPECT_EQ(cut.uiResult, LX_AVIREAD_END_OF_MEDIA);
    EXPECT_EQ(cut.chunk.bDrm, 0);
    OpenToPlay(enough.Build());
    EXPECT_EQ(Next().uiResult, LX_OK);
    EXPECT_EQ(Next().chunk.bDrm, 1);
}

TEST_F(NextChunk, SlidingEndsWithTheList)
{
    AviBuilder indexed; // the bytes behind the list look like chunks
    indexed.Add(VideoStream()).Frame(0, Fill(6), true).Raw(Fill(20));
    OpenToPlay(indexed.Build());
    EXPECT_EQ(Next().uiResult, LX_OK);
    EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA);
    EXPECT_EQ(Info().CurrentOffset, Info().moviSize);
}

TEST_F(NextChunk, ACodeWithoutRoomForItsSizeEndsTheList)
{
    builder.Frame(0, Fill(6), true).Raw(Fill(5)).Raw(Text("00dc")).Raw(U32(2)); // the last 4 bytes are not reached
    OpenToPlay();
    EXPECT_EQ(Next().uiResult, LX_OK);
    EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA);
}

TEST_F(NextChunk, AChunkWithoutADescriptorIsNotProtected)
{
    builder.Frame(0, Fill(6), true);
    OpenToPlay();
    lxAviRead_ChunkData_t chunk = {};
    chunk.bDrm = 1; // as from the chunk before
    Bool jumped = 0;
    ASSERT_EQ(lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped), LX_OK);
    EXPECT_EQ(chunk.bDrm, 0);
}

TEST_F(NextChunk, ThePadByteOfJunkBelongsToIt)
{
    builder.Raw(Chunk("JUNK", Fill(41))).Frame(0, Fill(6), true);
    OpenToPlay();
    const size_t before = Faults().ReadSizes().size();
    EXPECT_EQ(Next().payload, Fill(6));
    const std::vector<UInt64> sizes(Faults().ReadSizes().begin() + static_cast<std::ptrdiff_t>(before),
                                    Faults().ReadSizes().end());
    EXPECT_EQ(sizes, (std::vector<UInt64>{1, 1, 1, 1, 1, 1, 1, 1, 42, 1, 1, 1, 1, 1, 1, 1, 1, 6}));
}

TEST_F(NextChunk, ANumberWithoutAStreamLeavesTheTypeUntilTheSizeIsThere)
{
    builder.Frame(0, Fill(6), true).Raw(Fill(5)).Raw(Text("17dc")).Raw(U32(2)); // the last 4 bytes are not reached
    OpenToPlay();
    EXPECT_EQ(Next().uiResult, LX_OK);
    lxAviRead_ChunkData_t chunk = {};
    chunk.eStreamType = LX_AVIREAD_STREAM_VIDEO;
    Bool jumped = 0;
    EXPECT_EQ(lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped), LX_AVIREAD_END_OF_MEDIA);
    EXPECT_EQ(chunk.uiStreamNr, 17u);
    EXPECT_EQ(chunk.eStreamType, LX_AVIREAD_STREAM_VIDEO);
}

TEST_F(NextChunk, AStreamOfATypeThatNobodyKnowsIsDelivered)
{
    builder.Frame(0, Fill(6), true);
    OpenToPlay();
    Info().StreamInfo[0]->StreamType = 4;
    const Delivered chunk = Next();
    EXPECT_EQ(chunk.uiResult, LX_OK);
    EXPECT_EQ(chunk.chunk.eStreamType, 4u);
    EXPECT_EQ(chunk.payload, Fill(6));
}

TEST_F(NextChunk, AChunkOfABadStreamIsOfNoType)
{
    AviBuilder bad;
    bad.eIndex = IndexKind::None;
    bad.Add(VideoStream()).Media("17dc", Fill(6)).Media("05dc", Fill(6)).Raw(Fill(4));
    OpenToPlay(bad.Build());
    for (int i = 0; i < 2; ++i) {
        lxAviRead_ChunkData_t chunk = {};
        chunk.eStreamType = LX_AVIREAD_STREAM_VIDEO; // as from the chunk before
        Bool jumped = 0;
        EXPECT_EQ(lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped), LX_ERR_AVIREAD_BAD_STREAM);
        EXPECT_EQ(chunk.eStreamType, LX_AVIREAD_STREAM_NONE);
        ASSERT_EQ(lxAviReadCore_RemoveChunk(6), LX_OK);
        lxAviReadCore_IncreaseOffset(6);
    }
}

TEST_F(NextChunk, StreamDigitsAreWeightedByTen)
{
    const std::pair<const char*, UInt32> cases[] = {{"00dc", 0},   {"01wb", 1},  {"0Adc", 10},   {"10dc", 10},
                                                    {"16dc", 16},  {"17dc", 17}, {"99dc", 99},   {"1Adc", 20},
                                                    {"A0dc", 100}, {"0adc", 42}, {"//dc", 65525}};
    for (const auto& [id, streamNr] : cases) {
        AviBuilder one;
        one.eIndex = IndexKind::None;
        one.Add(VideoStream()).Media(id, Fill(6));
        OpenToPlay(one.Build());
        const Delivered chunk = Next();
        EXPECT_EQ(chunk.chunk.uiStreamNr, streamNr) << id;
        if (streamNr > 16) {
            EXPECT_EQ(chunk.uiResult, LX_ERR_AVIREAD_BAD_STREAM);
            EXPECT_EQ(chunk.chunk.eStreamType, 0u);
            EXPECT_TRUE(log.Has("lxAviReadCore_NextChunk:Chunk with invalid stream number and size=6"));
        }
    }
}

TEST_F(NextChunk, AnEmptyStreamSlotIsABadStream)
{
    builder.Media("05dc", Fill(6)).Frame(0, Fill(8), true);
    OpenToPlay();
    const Delivered chunk = Next();
    EXPECT_EQ(chunk.uiResult, LX_ERR_AVIREAD_BAD_STREAM);
    EXPECT_EQ(chunk.chunk.uiStreamNr, 5u);
    EXPECT_TRUE(log.Has("chunk with invalid stream number and size=6"));
    EXPECT_EQ(Info().CurrentOffset, 4u + 8u); // the reader does not count the payload
    EXPECT_EQ(Next().payload, Fill(8));       // the search goes through the payload byte by byte
}

TEST_F(NextChunk, ARejectedPayloadIsSlidOverByACallerThatDoesNotSkip)
{
    builder.Add(PcmStream()).Audio(2, Fill(20)).Frame(0, Fill(8), true);
    OpenToPlay();
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_AUDIO_SKIPPED);
    EXPECT_EQ(Next().payload, Fill(8));
}

TEST_F(NextChunk, APayloadThatLooksLikeAChunkFoolsACallerThatDoesNotSkip)
{
    builder.Add(PcmStream()).Audio(2, ChunkOfSize("00dc", 4, Fill(8, 7))).Frame(0, Fill(8), true);
    OpenToPlay();
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_AUDIO_SKIPPED);
    EXPECT_EQ(Next().payload, Fill(4, 7));
    OpenToPlay();
    const auto all = All(); // All() skips rejected payloads
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[1].payload, Fill(8));
}

TEST_F(NextChunk, AnAudioTrackOutOfRangeIsAssertedAndSelectsNone)
{
    builder.Audio(1, Fill(6)).Frame(0, Fill(8), true);
    OpenToPlay();
    EXPECT_EQ(Next(8).uiResult, LX_ERR_AVIREAD_AUDIO_SKIPPED);
    EXPECT_TRUE(log.HasAssertion("audioTrackNumber < LX_AVIREAD_AUDIO_TRACKS",
                                 "Invalid  track No in lxAviReadCore_NextChunk (8 must be < LX_AVIREAD_AUDIO_TRACKS"));
}

TEST_F(NextChunk, EveryFailedReadIsTheSameReadError)
{
    const std::pair<UInt64, const char*> cases[] = {
        {1, "lxAviReadCore_NextChunk : Error reding data at line:"},
        {4, "lxAviReadCore_NextChunk : Error reding data at line:"}, // the word's last byte
        {5, "lxAviReadCore_NextChunk : Error reading dwSize at line:"},
        {10, "lxAviReadCore_NextChunk : Error reding data at line:"},
        {14, "lxAviReadCore_NextChunk : Error reding data1 at line:"},
        {15, "lxAviReadCore_NextChunk : Error reding i at line:"},
        {19, "lxAviReadCore_NextChunk : Error reding wDrmKeyNr at line:"},
        {20, "lxAviReadCore_NextChunk : Error reding data at line:"},
        {24, "lxAviReadCore_NextChunk : Error reding size at line:"},
        {27, "lxAviReadCore_NextChunk : Error reding size at line:"},
    };
    // the reads: JUNK (code, size, payload, next code), a byte, "dd" (size, descriptor, next code), size
    builder.Raw(Chunk("JUNK", Fill(6)) + Bytes{'0'}).Drm(0, Fill(10)).Frame(0, Fill(8), true).Frame(0, Fill(8), true);
    const Bytes file = builder.Build();
    for (const auto kind : {ReadFault::Kind::ShortThenError, ReadFault::Kind::EndOfFile}) {
        for (const auto& [n, text] : cases) {
            OpenToPlay(file);
            Faults().FaultRead(n, {kind, 0});
            const Delivered chunk = Next();
            EXPECT_EQ(chunk.uiResult, LX_ERR_AVIREAD_READ) << n;
            EXPECT_TRUE(log.HasPrefix(text)) << n;
            if (n == 19) {
                EXPECT_TRUE(log.Has("xxdd chunk size = 10"));
            }
        }
        OpenToPlay(file);
        Faults().FaultRead(9, {kind, 0}); // the payload of JUNK
        EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_READ);
    }
    OpenToPlay(file);
    ASSERT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
    Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 0});
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_READ); // an abort gives the same result
}

// The size of a chunk that is stepped over is read without asking for room. Behind the end of the list there is no room
// for 0 bytes either.
TEST_F(NextChunk, AnEmptyChunkAcrossTheEndOfTheListEndsTheList)
{
    builder.eIndex = IndexKind::None;
    builder.Frame(0, Fill(6), true).Raw(Fill(4, 0)).Raw(Chunk("JUNK", {})); // its size is out of reach
    OpenToPlay();
    EXPECT_EQ(Next().uiResult, LX_OK);
    log.Clear();
    EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA);
    EXPECT_FALSE(log.HasPrefix("lxAviReadCore_RemoveChunk : size == 0"));
}

TEST_F(NextChunk, AnEmptyChunkAcrossTheEndOfTheListGoesOnInTheNextOne)
{
    builder.eIndex = IndexKind::None;
    builder.dmlhTotalFrames = 9;
    builder.Frame(0, Fill(6), true).Raw(Fill(4, 0)).Raw(Text("JUNK")).Raw(Fill(8, 0));
    builder.NextRiff().Raw(Text("00dc")).NextRiff().Frame(0, Fill(12), true);
    Bytes file = builder.Build();
    const size_t movi = Find(file, "movi");
    Patch32(file, Find(file, "movi", movi + 4) - 4, 4 + 2); // the second list ends inside the code
    Patch32(file, movi - 4, static_cast<UInt32>(Find(file, "JUNK", movi)) - static_cast<UInt32>(movi) + 4);
    ASSERT_EQ(Open(file, true, 1, kPlenty, UInt8{LX_AVIREAD_FOLLOW_FORMAT | 1}), LX_OK);
    Position();
    EXPECT_EQ(Next().payload, Fill(6));
    EXPECT_EQ(Next().payload, Fill(12)); // the second list has no room for a code
}

TEST_F(NextChunk, ATruncatedFileEndsWithAReadError)
{
    builder.Frame(0, Fill(20), true).Frame(0, Fill(20), false);
    Bytes file = builder.Build();
    file.resize(file.size() - 24);
    OpenToPlay(file);
    EXPECT_EQ(Next().uiResult, LX_OK);
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_READ);
}

TEST_F(NextChunk, GetChunkReadsLikeAFileRead)
{
    builder.Frame(0, Fill(20), true).Frame(0, Fill(20), false);
    Bytes file = builder.Build();
    file.resize(file.size() - 4);
    ASSERT_EQ(Open(file), LX_OK);
    Position();
    lxAviRead_ChunkData_t chunk = {};
    Bool jumped = 0;
    UInt32 buffer[64] = {};
    ASSERT_EQ(lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped), LX_OK);
    const UInt64 offset = Info().CurrentOffset;
    EXPECT_EQ(lxAviReadCore_GetChunk(buffer, 20), LX_OK);
    EXPECT_EQ(Info().CurrentOffset, offset);
    ASSERT_EQ(lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped), LX_OK);
    log.Clear();
    EXPECT_EQ(lxAviReadCore_GetChunk(buffer, 20), LX_ERR_AVIREAD_EOF);
    EXPECT_TRUE(log.HasPrefix("leaving lxAviReadCore_FileRead()-eof.err="));
}

TEST_F(NextChunk, FieldsThatACallDoesNotMentionKeepTheirValues)
{
    builder.Frame(0, Fill(4), true);
    OpenToPlay();
    Next();
    lxAviRead_ChunkData_t chunk;
    std::memset(&chunk, 0x7B, sizeof chunk);
    Bool jumped = 5;
    EXPECT_EQ(lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped), LX_AVIREAD_END_OF_MEDIA);
    EXPECT_EQ(jumped, 0);
    EXPECT_EQ(chunk.bValid, 0);
    EXPECT_EQ(chunk.bKeyFrame, 0);
    EXPECT_EQ(chunk.uiSize, 0x7B7B7B7Bu);
    EXPECT_EQ(chunk.uiStreamNr, 0x7B7B7B7Bu);
}

// ---- Jumps ----

TEST_F(NextChunk, APendingJumpIsExecutedInAPlainFile)
{
    builder.Frame(0, Fill(10), true).Frame(0, Fill(12, 2), false).Frame(0, Fill(14, 3), false);
    OpenToPlay();
    Info().JumpOffset = 4 + 18 + 20;
    const Delivered chunk = Next();
    EXPECT_TRUE(chunk.bJumped);
    EXPECT_EQ(chunk.payload, Fill(14, 3));
    EXPECT_EQ(Info().JumpOffset, 0u);
    EXPECT_EQ(lxalAviRead_VideoFrame, 1u); // the jump has set 0, then came one frame
}

TEST_F(NextChunk, AJumpWithoutSeekingIsAssertedAndTakenOver)
{
    builder.Frame(0, Fill(10), true).Frame(0, Fill(12, 2), false);
    OpenToPlay();
    lxalAviRead_FileSeekPossible = 0;
    lxalAviRead_VideoFrame = 5;
    Info().JumpOffset = 4 + 18; // position of the second chunk; the file stands at the first chunk
    const UInt64 seeks = Faults().Seeks();
    const Delivered chunk = Next();
    EXPECT_TRUE(
        log.HasAssertion("lxalAviRead_FileSeekPossible", "Jump is set but fseek doesn't work. Programming error"));
    EXPECT_TRUE(chunk.bJumped);
    EXPECT_EQ(chunk.payload, Fill(10));
    EXPECT_EQ(Faults().Seeks(), seeks);
    EXPECT_EQ(Info().CurrentOffset, 4u + 18u + 8u + 10u);
    EXPECT_EQ(Info().JumpOffset, 0u);
    EXPECT_EQ(lxalAviRead_VideoFrame, 6u); // the jump has not set it to 0
}

TEST_F(NextChunk, AJumpWhoseSeekFailsGoesOnWhereTheFileStands)
{
    builder.Frame(0, Fill(10), true).Frame(0, Fill(12, 2), false);
    OpenToPlay();
    Faults().FailSeek(1);
    Info().JumpOffset = 4 + 18;
    const Delivered chunk = Next();
    EXPECT_EQ(lxalAviRead_FileSeekPossible, 0);
    EXPECT_EQ(chunk.payload, Fill(10));
}

TEST_F(NextChunk, AJumpToVideoHasToMeetVideoFirst)
{
    builder.Audio(1, Fill(6)).Frame(0, Fill(10), true);
    OpenToPlay();
    Info().JumpOffset = 4;
    Info().bJumpToVideo = 1;
    Info().bAudioSync = 1;
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_JUMP_NOT_VIDEO);
    EXPECT_EQ(Info().bJumpToVideo, 0);
    EXPECT_EQ(Info().bAudioSync, 0);
}

// ---- Segments ----

class Segments : public NextChunk {
protected:
    Segments()
    {
        builder.dmlhTotalFrames = 100;
        builder.eIndex = IndexKind::SuperStandard;
        builder.Frame(0, Fill(10, 1), true).Frame(0, Fill(12, 2), false);
        builder.NextRiff().ForeignRiff(Riff("WAVE", Chunk("00dc", Fill(4, 9)))).Frame(0, Fill(14, 3), true);
        builder.NextRiff().Frame(0, Fill(16, 4), true).Frame(0, Fill(18, 5), false);
    }

    UInt64 Offset(size_t i) { return builder.MediaItems()[i].uiOffset; }
    size_t SegmentNr()
    {
        size_t nr = 0;
        for (const auto* p = Info().pCurrentAvix; p->pPrevAvix != nullptr; p = p->pPrevAvix) {
            ++nr;
        }
        return nr;
    }
    // Opens for delivery with absolute offsets, as after parsing an OpenDML index, but without a table.
    void OpenSegments()
    {
        OpenToPlay();
        Info().bAbsoluteOffsets = 1;
        Info().CurrentOffset = Info().moviOffset;
    }
};

TEST_F(Segments, DeliveryGoesFromListToList)
{
    OpenSegments();
    const auto all = All();
    ASSERT_EQ(all.size(), 6u);
    for (size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(all[i].payload, builder.MediaItems()[i].payload);
        EXPECT_EQ(all[i].uiPosition, Offset(i));
    }
    EXPECT_EQ(all[5].uiResult, LX_AVIREAD_END_OF_MEDIA);
    EXPECT_EQ(SegmentNr(), 2u);
}

TEST_F(Segments, ANextListOutOfReachIsASeekError)
{
    OpenSegments();
    Next();
    Next();
    Faults().FailSeek(1, true);
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_SEEK);
    EXPECT_EQ(lxalAviRead_FileSeekPossible, 0);
    EXPECT_TRUE(log.HasPrefix("\n*** EndOfMovi:"));
    Faults().FailSeek(0);
    OpenSegments();
    Next();
    Next();
    lxalAviRead_FileSeekPossible = 0;
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_SEEK);
}

TEST_F(Segments, AJumpFindsItsSegmentForwardAndBack)
{
    OpenSegments();
    for (const auto& [item, segment] : {std::pair<size_t, size_t>{4, 2}, {2, 1}, {3, 2}, {0, 0}, {3, 2}, {1, 0}}) {
        Info().JumpOffset = Offset(item);
        EXPECT_EQ(Next().payload, builder.MediaItems()[item].payload);
        EXPECT_EQ(SegmentNr(), segment);
    }
}

TEST_F(Segments, ATargetAtTheEndOfTheCurrentListStaysInIt)
{
    OpenSegments();
    const UInt64 end = Info().pCurrentAvix->moviDataOffset + Info().pCurrentAvix->moviDataSize;
    Info().JumpOffset = end;
    const Delivered chunk = Next();
    // the list has no bytes left, so delivery goes to the next list, without a search between the two lists
    EXPECT_EQ(chunk.payload, Fill(14, 3));
    EXPECT_TRUE(chunk.bJumped);
}

TEST_F(Segments, ATargetAtTheEndOfAListAheadIsOfTheListBehindIt)
{
    OpenSegments();
    const auto* const pAhead = Info().pCurrentAvix->pNextAvix;
    Info().JumpOffset = pAhead->moviDataOffset + pAhead->moviDataSize;
    const UInt64 seeks = Faults().Seeks();
    EXPECT_EQ(Next().payload, Fill(16, 4));
    EXPECT_EQ(SegmentNr(), 2u);
    EXPECT_EQ(Faults().Seeks(), seeks + 1); // the reader has not entered a list in between
}

TEST_F(Segments, ATargetOutsideEveryListIsRefused)
{
    OpenSegments();
    for (const UInt64 target : {UInt64{12}, Offset(4) + 100000}) {
        Info().JumpOffset = target;
        const Delivered chunk = Next();
        EXPECT_EQ(chunk.uiResult, LX_ERR_AVIREAD_JUMP_RANGE);
        EXPECT_EQ(Info().JumpOffset, target);
        EXPECT_EQ(Info().CurrentOffset, target);
        EXPECT_EQ(SegmentNr(), 0u);
        EXPECT_TRUE(chunk.bJumped);
    }
}

TEST_F(Segments, ATargetBetweenTwoListsIsFoundForwardAndNotBack)
{
    OpenSegments();
    const UInt64 between = Offset(2) - 10;
    Info().JumpOffset = between;
    EXPECT_EQ(Next().payload, Fill(14, 3)); // the search has gone through the list header
    Info().JumpOffset = Offset(4);
    ASSERT_EQ(Next().uiResult, LX_OK);
    Info().JumpOffset = between;
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_JUMP_RANGE);
    const auto* const pBefore = Info().pCurrentAvix->pPrevAvix;
    ASSERT_NE(pBefore, nullptr);
    // in the search backwards the end of a list does not belong to the list
    Info().JumpOffset = pBefore->moviDataOffset + pBefore->moviDataSize;
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_JUMP_RANGE);
}

TEST_F(Segments, WithoutASegmentRecordTheFirstListIsTheOnlyOne)
{
    AviBuilder plain;
    plain.eIndex = IndexKind::None;
    plain.Add(VideoStream()).Frame(0, Fill(10, 1), true).Frame(0, Fill(12, 2), false);
    OpenToPlay(plain.Build());
    Faults().Free(Info().pCurrentAvix);
    Info().pCurrentAvix = nullptr;
    Info().bAbsoluteOffsets = 1;
    Info().CurrentOffset = Info().moviOffset;
    EXPECT_EQ(Next().payload, Fill(10, 1));
    EXPECT_EQ(Next().payload, Fill(12, 2));
    EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA);
    Info().JumpOffset = plain.MediaItems()[1].uiOffset;
    EXPECT_EQ(Next().payload, Fill(12, 2));
    Info().JumpOffset = 4;
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_JUMP_RANGE);
    Info().JumpOffset = 100000;
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_JUMP_RANGE);
}

TEST_F(Segments, AChunkCutByTheEndOfAListGoesOnInTheNextWithoutASecondRoomTest)
{
    // The payload of the JUNK chunk does not fit into its list, so the skip begins at the first byte of the next list.
    AviBuilder cut;
    cut.dmlhTotalFrames = 100;
    cut.eIndex = IndexKind::None;
    cut.Add(VideoStream()).Frame(0, Fill(10, 1), true).Raw(ChunkOfSize("JUNK", 22, {}));
    cut.NextRiff().Frame(0, Fill(14, 3), true).Frame(0, Fill(16, 4), false);
    OpenToPlay(cut.Build());
    Info().bAbsoluteOffsets = 1;
    Info().CurrentOffset = Info().moviOffset;
    EXPECT_EQ(Next().payload, Fill(10, 1));
    EXPECT_EQ(Next().payload, Fill(16, 4)); // 22 bytes later: the skip has gone over the first chunk of the list
}

} // namespace
} // namespace avitest
