// Format mode: the codes that tell what happened, aborts, skips, and DRM descriptors.

#include "FormatModeTest.hpp"

namespace avitest {
namespace {

class Delivery : public FormatMode {
protected:
    Delivery()
    {
        builder = AviBuilder();
        builder.eIndex = IndexKind::None;
        builder.Add(VideoStream());
    }

    void OpenFile(const Bytes& file)
    {
        ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
        Position();
    }

    Bytes CutBehind(UInt64 offset)
    {
        Bytes file = builder.Build();
        file.resize(static_cast<size_t>(offset));
        return file;
    }

    void AbortAtRead(UInt64 read)
    {
        Faults().onRead = [this, at = Faults().Reads() + read](UInt64) {
            if (Faults().Reads() == at) {
                EXPECT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
                readsAtAbort = Faults().Reads();
                blocksAtAbort = Faults().Blocks();
            }
        };
    }

    UInt64 readsAtAbort = 0;
    UInt64 blocksAtAbort = 0;
};

// ---- Codes ----

TEST_F(Delivery, TheEndOfTheFileInAHeaderIsTold)
{
    builder.Frame(0, Fill(100), true).Frame(0, Fill(100), false);
    static_cast<void>(builder.Build());
    const UInt64 second = builder.MediaItems()[1].uiOffset;
    for (const UInt64 bytes : {0u, 3u, 4u, 7u}) {
        OpenFile(CutBehind(second + bytes));
        EXPECT_EQ(Next().uiResult, LX_OK);
        EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_EOF) << bytes;
        ASSERT_EQ(OpenAs(kDefault, CutBehind(second + bytes)), LX_OK);
        Position();
        EXPECT_EQ(Next().uiResult, LX_OK);
        EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_READ) << bytes;
    }
}

TEST_F(Delivery, WhatThereIsOfACutChunkIsDelivered)
{
    bPayloadsMayBeCut = true;
    builder.Frame(0, Fill(100, 7), true);
    static_cast<void>(builder.Build());
    for (const UInt8 as : {kDefault, kFormat}) {
        ASSERT_EQ(OpenAs(as, CutBehind(builder.MediaItems()[0].uiOffset + 8 + 33)), LX_OK);
        Position();
        UInt32 size = 77;
        EXPECT_EQ(lxAviReadCore_GetReadSize(&size), LX_OK);
        EXPECT_EQ(size, 0u); // nothing was read yet
        const Delivered got = Next();
        EXPECT_EQ(got.uiResult, LX_OK);
        EXPECT_EQ(got.chunk.uiSize, 100u);
        EXPECT_EQ(got.uiPayloadResult, LX_ERR_AVIREAD_EOF);
        EXPECT_EQ(Bytes(got.payload.begin(), got.payload.begin() + 34), Fill(33, 7) + Fill(1, 0));
        EXPECT_EQ(lxAviReadCore_GetReadSize(&size), LX_OK);
        EXPECT_EQ(size, as == kFormat ? 33u : 0u);
    }
}

TEST_F(Delivery, TheSizeOfEveryReadIsTold)
{
    builder.Frame(0, Fill(100, 7), true);
    OpenFile(builder.Build());
    UInt32 buffer[64] = {};
    UInt32 size = 0;
    const auto readSize = [&] {
        EXPECT_EQ(lxAviReadCore_GetReadSize(&size), LX_OK);
        return size;
    };
    EXPECT_EQ(lxAviReadCore_GetChunk(buffer, 20), LX_OK);
    EXPECT_EQ(readSize(), 20u);
    EXPECT_EQ(lxAvi2ReadCore_FileRead(&Info(), buffer, 7), LX_OK);
    EXPECT_EQ(readSize(), 7u);
    Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 3});
    EXPECT_EQ(lxAviReadCore_GetChunk(buffer, 20), LX_ERR_AVIREAD_READ);
    EXPECT_EQ(readSize(), 3u);
    Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 5});
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetChunk(buffer, 20), LX_ERR_AVIREAD_ABORTED);
    EXPECT_EQ(readSize(), 5u);
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
    Info().maxReadAttempts = 3;
    Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 3});
    EXPECT_EQ(lxAviReadCore_GetChunk(buffer, 20), LX_OK); // by a second attempt
    EXPECT_EQ(readSize(), 20u);
    EXPECT_EQ(lxAviReadCore_GetChunk(nullptr, 20), LX_OK); // an assertion
    EXPECT_EQ(readSize(), 0u);
    EXPECT_EQ(lxAviReadCore_GetChunk(buffer, 20), LX_OK);
    EXPECT_EQ(lxAviReadCore_Reset(), LX_OK);
    EXPECT_EQ(readSize(), 0u);
    EXPECT_EQ(lxAviReadCore_GetChunk(buffer, 20), LX_ERR_AVIREAD_READ); // no file is open
    EXPECT_EQ(readSize(), 0u);
    EXPECT_EQ(lxAviReadCore_GetReadSize(nullptr), LX_OK);
    EXPECT_EQ(log.Assertions().back().text, "Parameter for lxAviReadCore_GetReadSize shouldn't be a null pointer");
}

TEST_F(Delivery, AFailedReadAndAnAbortAreTold)
{
    builder.Frame(0, Fill(100), true);
    OpenFile(builder.Build());
    Faults().FaultRead(2, {ReadFault::Kind::ShortThenError, 0});
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_READ);
    Position();
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
    Faults().FaultRead(2, {ReadFault::Kind::ShortThenError, 0});
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_ABORTED);
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
}

TEST_F(Delivery, TheEndOfTheFileInASteppedOverChunkIsTold)
{
    builder.Raw(Chunk("JUNK", Fill(20000))).Frame(0, Fill(10), true);
    static_cast<void>(builder.Build());
    OpenFile(CutBehind(builder.MoviOffset() + 10000));
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_EOF);
    OpenFile(builder.Build());
    EXPECT_EQ(Next().uiResult, LX_OK);
}

// ---- Aborts ----

// The flag is set while the search slides over 4 MiB of zeros.
TEST_F(Delivery, AnAbortEndsASearchWithinOneBlock)
{
    builder.Frame(0, Fill(10), true).Raw(Fill(4u << 20, 0)).Frame(0, Fill(10, 3), false);
    Faults().SetBuffered(true);
    OpenFile(builder.Build());
    EXPECT_EQ(Next().uiResult, LX_OK);
    AbortAtRead(100000);
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_ABORTED);
    EXPECT_LE(Faults().Reads() - readsAtAbort, 1024u);
    EXPECT_LE(Faults().Blocks() - blocksAtAbort, 1u);
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
    EXPECT_EQ(Next().payload, Fill(10, 3)); // and the search goes on
}

// An abort that comes when a part of a chunk's code has been read does not lose the chunk.
TEST_F(Delivery, AnAbortedSearchLosesNoChunk)
{
    for (UInt32 foreign = 1020; foreign < 1030; ++foreign) {
        builder = AviBuilder();
        builder.eIndex = IndexKind::None;
        builder.Add(VideoStream()).Raw(Fill(foreign, 0)).Frame(0, Fill(10, 3), true);
        OpenFile(builder.Build());
        AbortAtRead(1000);
        const Delivered aborted = Next();
        EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
        const Delivered got = aborted.uiResult == LX_OK ? aborted : Next();
        EXPECT_EQ(got.payload, Fill(10, 3)) << foreign;
    }
}

// An input that cannot seek goes on behind the aborted search.
TEST_F(Delivery, AnAbortedSearchOfAStreamGoesOn)
{
    builder.Raw(Fill(3000, 0)).Frame(0, Fill(10, 3), true);
    lxAviReadCore_Close();
    ASSERT_EQ(Open(builder.Build(), false, 1, kPlenty, kFormat), LX_OK);
    AbortAtRead(1500);
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_ABORTED);
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
    EXPECT_EQ(Next().payload, Fill(10, 3));
}

TEST_F(Delivery, AnAbortEndsAWayOverManyChunks)
{
    for (UInt32 i = 0; i < 1000; ++i) {
        builder.Raw(Chunk("JUNK", Fill(40)));
    }
    builder.Frame(0, Fill(10, 3), true);
    OpenFile(builder.Build());
    AbortAtRead(200);
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_ABORTED);
    EXPECT_LE(Faults().Reads() - readsAtAbort, 3 * kCallsOfAWord);
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
    EXPECT_EQ(Next().payload, Fill(10, 3));
}

// An abort is set at every read in turn, and cleared when it was heard. Every chunk is delivered all the same.
TEST_F(Delivery, AnAbortAtAnyReadLosesNothing)
{
    builder.eIndex = IndexKind::Idx1Relative;
    builder.Add(PcmStream());
    builder.Frame(0, Fill(10, 1), true).Raw(Chunk("JUNK", Fill(3000))).Audio(1, Fill(1500, 2)).Raw(Fill(2050, 0));
    builder.Frame(0, Fill(10, 3), true)
        .Raw(Chunk("JUNK", Fill(20000)))
        .Drm(0, Fill(4000, 4))
        .Raw(Chunk("JUNK", Fill(9)));
    builder.Frame(0, Fill(10, 5), true).Drm(0, Fill(10, 6)).Frame(0, Fill(9000, 7), false);
    const Bytes file = builder.Build();
    const auto play = [&] {
        std::vector<std::string> lines;
        for (UInt32 calls = 0; calls < 20; ++calls) {
            const Delivered got = Next();
            if (got.uiResult == LX_AVIREAD_END_OF_MEDIA) {
                break;
            }
            EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
            if (got.uiResult != LX_ERR_AVIREAD_ABORTED) {
                lines.push_back(std::to_string(got.uiResult) + " " + std::to_string(got.uiPosition) + " " +
                                std::to_string(got.chunk.uiFrameNumber) + " " + std::to_string(got.chunk.bKeyFrame) +
                                " " + std::to_string(got.chunk.bDrm) + " " + std::to_string(got.chunk.DrmInfo[0]) +
                                " " + std::to_string(got.payload.size()));
            }
        }
        return lines;
    };
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    const UInt64 before = Faults().Reads();
    const std::vector<std::string> want = play();
    ASSERT_EQ(want.size(), 5u);
    const UInt64 reads = Faults().Reads() - before;
    UInt32 heard = 0;
    for (UInt64 n = 1; n <= reads; ++n) {
        lxAviReadCore_RewindToStart();
        AbortAtRead(n);
        readsAtAbort = 0;
        ASSERT_EQ(play(), want) << "read " << n;
        heard += readsAtAbort != 0 ? 1 : 0;
    }
    EXPECT_GT(heard, 2000u);
}

TEST_F(Delivery, AnAbortedSkipSkipsNothing)
{
    builder.Frame(0, Fill(20000, 7), true).Frame(0, Fill(10, 3), false);
    OpenFile(builder.Build());
    lxAviRead_ChunkData_t chunk = {};
    Bool jumped = 0;
    ASSERT_EQ(lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped), LX_OK);
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
    EXPECT_EQ(lxAviReadCore_RemoveChunk(20000), LX_ERR_AVIREAD_ABORTED); // before the seek
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
    AbortAtRead(3);
    EXPECT_EQ(lxAviReadCore_RemoveChunk(8000), LX_ERR_AVIREAD_ABORTED); // between two pieces
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
    Faults().onRead = nullptr;
    Faults().FaultRead(2, {ReadFault::Kind::ShortThenError, 100});
    AbortAtRead(2);
    EXPECT_EQ(lxAviReadCore_RemoveChunk(8000), LX_ERR_AVIREAD_ABORTED); // inside a piece
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
    EXPECT_EQ(lxAviReadCore_RemoveChunk(20000), LX_OK);
    EXPECT_EQ(Next().payload, Fill(10, 3));
}

// The chunk is delivered whole, because nothing could be dropped.
TEST_F(Delivery, AnAbortedTrimDropsNothing)
{
    builder = AviBuilder();
    builder.Add(VideoStream()).Add(PcmStream());
    Bytes payload(4 * 640);
    for (size_t i = 0; i < payload.size(); ++i) {
        payload[i] = static_cast<UInt8>(i);
    }
    builder.Audio(1, payload);
    for (UInt32 i = 0; i < 4; ++i) {
        builder.Frame(0, Fill(10), true);
    }
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    lxAviReadCore_SeekToTime(120, 0, lxAviRead_SetPosRoundDown);
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
    const Delivered got = Next();
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
    EXPECT_EQ(got.uiResult, LX_OK);
    EXPECT_EQ(got.chunk.uiBytePosition, 0u);
    EXPECT_EQ(got.payload, payload);
    EXPECT_EQ(lxAviReadCore_SeekToTime(120, 0, lxAviRead_SetPosRoundDown), 120u);
    EXPECT_EQ(Next().chunk.uiBytePosition, (120u * 8 - 1) * 2);
}

TEST_F(Delivery, AnAbortEndsASkip)
{
    builder.Frame(0, Fill(1u << 20), true);
    lxAviReadCore_Close();
    ASSERT_EQ(Open(builder.Build(), false, 1, kPlenty, kFormat), LX_OK);
    AbortAtRead(100);
    EXPECT_EQ(lxAviReadCore_RemoveChunk(1u << 20), LX_ERR_AVIREAD_ABORTED);
    EXPECT_LE(Faults().Reads() - readsAtAbort, 1u);
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
}

TEST_F(Delivery, AnAbortEndsOpen)
{
    for (UInt32 i = 0; i < 100; ++i) {
        builder.behindMovi += Chunk("abcd", Fill(40));
    }
    const Bytes file = builder.Build();
    builder.dmlhTotalFrames = 10;
    for (UInt32 i = 0; i < 100; ++i) {
        builder.NextRiff();
        builder.Frame(0, Fill(10), true);
    }
    const Bytes segmented = builder.Build();
    for (const Bytes& one : {file, segmented}) {
        const UInt64 before = Faults().Reads();
        ASSERT_EQ(OpenAs(kFormat, one), LX_OK);
        const UInt64 reads = Faults().Reads() - before;
        for (const UInt64 left : {100u, 700u}) {
            ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
            Faults().Clear();
            AbortAtRead(reads - left);
            EXPECT_EQ(Open(one, true, 1, kPlenty, kFormat), LX_ERR_AVIREAD_ABORTED);
            EXPECT_LE(Faults().Reads() - readsAtAbort, 6 * kCallsOfAWord);
            EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
            Faults().onRead = nullptr;
        }
    }
}

// ---- Skips ----

TEST_F(Delivery, ALongSkipSeeks)
{
    builder.Frame(0, Fill(1u << 20), true).Frame(0, Fill(10, 3), false);
    Faults().SetBuffered(true);
    OpenFile(builder.Build());
    const UInt64 blocks = Faults().Blocks();
    const UInt64 seeks = Faults().Seeks();
    lxAviRead_ChunkData_t chunk = {};
    Bool jumped = 0;
    ASSERT_EQ(lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped), LX_OK);
    EXPECT_EQ(lxAviReadCore_RemoveChunk(chunk.uiSize), LX_OK);
    EXPECT_EQ(Next().payload, Fill(10, 3));
    EXPECT_LE(Faults().Blocks() - blocks, 4u);
    EXPECT_LE(Faults().Seeks() - seeks, 3u);
}

TEST_F(Delivery, AShortSkipReads)
{
    builder.Frame(0, Fill(20000), true);
    OpenFile(builder.Build());
    for (const UInt32 size : {8192u, 8193u}) {
        Position();
        const UInt64 reads = Faults().Reads();
        EXPECT_EQ(lxAviReadCore_RemoveChunk(size), LX_OK);
        EXPECT_EQ(Faults().Reads() - reads, size == 8192 ? 8u : 1u);
        UInt64 position = 0;
        position = static_cast<UInt64>(ftello64(Info().pFile));
        EXPECT_EQ(position, Info().moviOffset + size);
    }
}

TEST_F(Delivery, ALongSkipNoticesTheEndOfTheFile)
{
    builder.Frame(0, Fill(20000), true);
    const Bytes file = builder.Build();
    OpenFile(file);
    const auto left = static_cast<UInt32>(file.size() - builder.MoviOffset());
    EXPECT_EQ(lxAviReadCore_RemoveChunk(left), LX_OK);
    Position();
    EXPECT_EQ(lxAviReadCore_RemoveChunk(left + 1), LX_ERR_AVIREAD_EOF);
    Position();
    EXPECT_EQ(lxAviReadCore_RemoveChunk(0xFFFFFFFFu), LX_ERR_AVIREAD_EOF);
}

TEST_F(Delivery, ASkipThatCannotSeekReads)
{
    builder.Frame(0, Fill(20000), true).Frame(0, Fill(10, 3), false);
    for (const bool bSeekable : {true, false}) {
        ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
        ASSERT_EQ(Open(builder.Build(), bSeekable, 1, kPlenty, kFormat), LX_OK);
        if (bSeekable) {
            Position();
            Faults().FailSeek(1);
        }
        lxAviRead_ChunkData_t chunk = {};
        Bool jumped = 0;
        ASSERT_EQ(lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped), LX_OK);
        EXPECT_EQ(lxAviReadCore_RemoveChunk(chunk.uiSize), LX_OK);
        EXPECT_EQ(Next().payload, Fill(10, 3));
    }
}

// ---- DRM descriptors ----

class Descriptors : public Delivery {
protected:
    Descriptors() { builder.Add(PcmStream()); }

    void ExpectNext(const Bytes& payload, const std::optional<Bytes>& descriptor)
    {
        const Delivered got = Next();
        EXPECT_EQ(got.uiResult, LX_OK);
        EXPECT_EQ(got.payload, payload);
        EXPECT_EQ(got.chunk.bDrm, descriptor.has_value() ? 1 : 0);
        if (descriptor) {
            const Bytes have(got.chunk.DrmInfo, got.chunk.DrmInfo + LX_AVIREAD_DRM_BYTES);
            EXPECT_EQ(have, *descriptor);
        }
    }
};

TEST_F(Descriptors, ObeyTheirSize)
{
    for (const UInt32 size : {0u, 1u, 4u, 9u, 10u, 11u, 12u, 3000u}) {
        SCOPED_TRACE(size);
        builder.Drm(0, Fill(size, 6)).Frame(0, Fill(8, 1), true);
    }
    OpenFile(builder.Build());
    for (const UInt32 size : {0u, 1u, 4u, 9u, 10u, 11u, 12u, 3000u}) {
        Bytes want = Fill(std::min(size, 10u), 6);
        want.resize(10);
        ExpectNext(Fill(8, 1), want);
    }
}

TEST_F(Descriptors, BelongToTheStreamThatTheyName)
{
    builder.Drm(0, Fill(10, 6)).Audio(1, Fill(20, 2)).Frame(0, Fill(8, 1), true); // the audio cancels it
    builder.Drm(1, Fill(10, 7)).Audio(1, Fill(20, 3));
    builder.Drm(0, Fill(10, 4)).Drm(0, Fill(10, 5)).Frame(0, Fill(8, 9), false); // the last one counts
    builder.Drm(0, Fill(10, 4)).Raw(Chunk("JUNK", Fill(6))).Frame(0, Fill(8, 8), false);
    OpenFile(builder.Build());
    ExpectNext(Fill(20, 2), {});
    ExpectNext(Fill(8, 1), {});
    ExpectNext(Fill(20, 3), Fill(10, 7));
    ExpectNext(Fill(8, 9), Fill(10, 5));
    ExpectNext(Fill(8, 8), Fill(10, 4));
}

// Bytes that look like a descriptor, of a stream that the file does not have, or of a size that the list does not have.
TEST_F(Descriptors, ThatCannotBeOnesAreSlidOver)
{
    for (const bool bSeekable : {true, false}) {
        for (const Bytes& foreign :
             {Fill(64, 'd'), ChunkOfSize("05dd", 4, Fill(4, 6)), ChunkOfSize("00dd", 60000, Fill(10, 6)),
              ChunkOfSize("00dd", 0xFFFFFFFE, Fill(10, 6)), ChunkOfSize("01dd", 0xFFFFFFFF, Fill(10, 6))}) {
            builder = AviBuilder();
            builder.eIndex = IndexKind::None;
            builder.Add(VideoStream()).Add(PcmStream());
            builder.Frame(0, Fill(8, 1), true).Raw(foreign).Frame(0, Fill(8, 2), false).Drm(0, Fill(10, 7));
            builder.Frame(0, Fill(8, 3), false);
            ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
            ASSERT_EQ(Open(builder.Build(), bSeekable, 1, kPlenty, kFormat), LX_OK);
            if (bSeekable) {
                Position();
            }
            ExpectNext(Fill(8, 1), {});
            ExpectNext(Fill(8, 2), {});
            ExpectNext(Fill(8, 3), Fill(10, 7));
        }
    }
}

// A descriptor or a frame of another stream between a descriptor and its frame: the index and delivery agree that the
// frame has none.
TEST_F(Descriptors, OfAnotherStreamInBetweenCancel)
{
    builder = AviBuilder();
    builder.Add(VideoStream()).Add(VideoStream());
    builder.Frame(0, Fill(8), true);
    builder.Drm(0, Fill(10, 1)).Drm(1, Fill(10, 2)).Frame(0, Fill(8, 3), true);
    builder.Drm(0, Fill(10, 1)).Frame(1, Fill(8), true).Frame(0, Fill(8, 4), true);
    builder.Drm(0, Fill(10, 1)).Drm(0, Fill(10, 5)).Frame(0, Fill(8, 6), true);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    for (const UInt8 frame : {UInt8{3}, UInt8{4}, UInt8{6}}) {
        const UInt32 number = frame == 6 ? 3u : frame - 2u;
        EXPECT_EQ(lxAviReadCore_SeekToTime(number * 40, -1, lxAviRead_SetPosRoundDown), number * 40);
        const Delivered got = Next();
        EXPECT_EQ(got.payload, Fill(8, frame));
        EXPECT_EQ(got.chunk.bKeyFrame, 1);
        EXPECT_EQ(got.chunk.bDrm, frame == 6 ? 1 : 0);
    }
}

TEST_F(Descriptors, OfTheIndexedFrameAreFoundWhateverTheirSize)
{
    for (const IndexKind eKind : {IndexKind::Idx1Relative, IndexKind::SuperStandard}) {
        builder = AviBuilder();
        builder.eIndex = eKind;
        builder.eLayout = IxLayout::At32;
        builder.Add(VideoStream());
        for (UInt32 i = 0; i < 6; ++i) {
            builder.Drm(0, Fill(8 + 2 * i, 6)).Frame(0, Fill(8, static_cast<UInt8>(i)), i % 2 == 0);
        }
        ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
        for (UInt32 i = 0; i < 6; ++i) {
            const Delivered got = Next();
            EXPECT_EQ(got.chunk.uiFrameNumber, i);
            EXPECT_EQ(got.chunk.bKeyFrame, i % 2 == 0 ? 1 : 0);
            EXPECT_EQ(got.chunk.bDrm, 1);
        }
    }
}

TEST_F(Descriptors, ThatTheFileCutsAreTheEndOfTheFile)
{
    builder.Drm(0, Fill(3000, 6)).Frame(0, Fill(8, 1), true);
    static_cast<void>(builder.Build());
    const UInt64 start = builder.MediaItems()[0].uiOffset;
    for (const UInt64 bytes : {5u, 13u, 1000u, 3010u}) {
        OpenFile(CutBehind(start + bytes));
        EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_EOF) << bytes;
        const bool bInDescriptor = bytes == 13 || bytes == 1000;
        EXPECT_EQ(log.Has("xxdd chunk size = 3000"), bInDescriptor) << bytes;
    }
}

// ---- The end of a list ----

class ListEnds : public FormatMode {
protected:
    // Two frames in the first list and two in the last; `between` stands at the end of the first one, whose size leaves
    // out the last `cut` bytes of it.
    Bytes File(const Bytes& between, UInt32 cut, bool bEmptyListBetween)
    {
        builder = AviBuilder();
        builder.eIndex = IndexKind::None;
        builder.Add(VideoStream()).Frame(0, Fill(10, 1), true).Frame(0, Fill(10, 2), false).Raw(between);
        if (bEmptyListBetween) {
            builder.NextRiff();
        }
        builder.NextRiff().Frame(0, Fill(10, 3), true).Frame(0, Fill(10, 4), false);
        Bytes file = builder.Build();
        const size_t movi = Find(file, "movi");
        UInt32 size = 0;
        std::memcpy(&size, &file[movi - 4], sizeof size);
        Patch32(file, movi - 4, size - cut);
        return file;
    }

    void ExpectFourFrames(const Bytes& file)
    {
        ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
        Position();
        for (UInt8 i = 1; i <= 4; ++i) {
            const Delivered got = Next();
            ASSERT_EQ(got.uiResult, LX_OK) << UInt32{i};
            EXPECT_EQ(got.payload, Fill(10, i));
            EXPECT_EQ(got.chunk.uiFrameNumber, i - 1u);
        }
        EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA);
    }
};

TEST_F(ListEnds, WhatStandsAcrossTheEndOfAListCostsNothingOfTheNext)
{
    const Bytes ends[] = {
        {},
        Chunk("JUNK", Fill(100)),
        ChunkOfSize("JUNK", 5000, Fill(20)), // claims more than the list has
        ChunkOfSize("00dc", 10, {}),         // cut behind its header
        Text("JUNK"),
        Text("00dc"),
        Text("00"),
        Text("0"),
        Fill(7, 0), // no room for a header
    };
    for (const Bytes& end : ends) {
        for (const bool bEmptyListBetween : {false, true}) {
            const auto bytes = static_cast<UInt32>(end.size());
            for (const UInt32 cut : {0u, 2u, 4u, 6u, 50u}) {
                if (cut <= bytes && !(bytes == 8 && cut == 0)) { // a whole header is a chunk, wherever its payload is
                    SCOPED_TRACE(testing::Message() << bytes << " bytes, " << cut << " cut");
                    ExpectFourFrames(File(end, cut, bEmptyListBetween));
                }
            }
        }
    }
}

// ---- Chunks of streams that the file does not have ----

class ForeignChunks : public FormatMode {
protected:
    // Delivers all, and returns what was delivered of stream 0.
    std::vector<Bytes> Frames(const Bytes& file, bool bSeekable = true)
    {
        EXPECT_EQ(lxAviReadCore_Close(), LX_OK);
        indxOptionOfOpen = kFormat;
        EXPECT_EQ(Open(file), LX_OK);
        Position();
        lxalAviRead_FileSeekPossible = bSeekable ? 1 : 0;
        std::vector<Bytes> payloads;
        for (Delivered got = Next(); got.uiResult == LX_OK || got.uiResult == LX_ERR_AVIREAD_BAD_STREAM; got = Next()) {
            if (got.uiResult == LX_OK) {
                payloads.push_back(got.payload);
            }
        }
        return payloads;
    }

    static Bytes LooksLikeAFrame(UInt32 size) { return Text("00dc") + U32(4) + Fill(size - 8); }
};

TEST_F(ForeignChunks, AreSteppedOverWhereAnotherChunkFollows)
{
    builder.Frame(0, Fill(8), true).Media("05wb", LooksLikeAFrame(30)).Frame(0, Fill(10), false);
    builder.Media("23dc", LooksLikeAFrame(31)).Media("23dc", LooksLikeAFrame(13)).Frame(0, Fill(12), false);
    EXPECT_EQ(Frames(builder.Build()), (std::vector<Bytes>{Fill(8), Fill(10), Fill(12)}));
}

TEST_F(ForeignChunks, AreSteppedOverWhereTheListEnds)
{
    builder.eIndex = IndexKind::None;
    builder.Frame(0, Fill(8), true).Media("05wb", LooksLikeAFrame(30));
    EXPECT_EQ(Frames(builder.Build()), (std::vector<Bytes>{Fill(8)}));
    builder.NextRiff().Frame(0, Fill(10), false);
    EXPECT_EQ(Frames(builder.Build()), (std::vector<Bytes>{Fill(8), Fill(10)}));
}

TEST_F(ForeignChunks, AreSearchedWhereTheListGoesOnWithTooLittleForAChunk)
{
    builder.eIndex = IndexKind::None;
    builder.Frame(0, Fill(8), true).Media("05wb", LooksLikeAFrame(30)).Raw(Fill(6));
    EXPECT_EQ(Frames(builder.Build()), (std::vector<Bytes>{Fill(8), Fill(4)}));
}

TEST_F(ForeignChunks, AreSearchedWhereNoChunkFollows)
{
    builder.Frame(0, Fill(8), true).Media("05wb", LooksLikeAFrame(30)).Raw(Fill(8)).Frame(0, Fill(10), false);
    EXPECT_EQ(Frames(builder.Build()), (std::vector<Bytes>{Fill(8), Fill(4), Fill(10)}));
}

TEST_F(ForeignChunks, AreSearchedWhereTheyClaimMoreThanTheirList)
{
    builder.Frame(0, Fill(8), true).Media("05wb", LooksLikeAFrame(30)).Frame(0, Fill(10), false);
    Bytes file = builder.Build();
    for (const UInt32 size : {100u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        Patch32(file, static_cast<size_t>(builder.MediaItems()[1].uiOffset) + 4, size);
        EXPECT_EQ(Frames(file), (std::vector<Bytes>{Fill(8), Fill(4), Fill(10)})) << size;
    }
}

TEST_F(ForeignChunks, AreSearchedWhereTheInputCannotSeek)
{
    builder.Frame(0, Fill(8), true).Media("05wb", LooksLikeAFrame(30)).Frame(0, Fill(10), false);
    EXPECT_EQ(Frames(builder.Build(), false), (std::vector<Bytes>{Fill(8), Fill(4), Fill(10)}));
}

TEST_F(ForeignChunks, AreSearchedWhereTheFileEndsBehindThem)
{
    builder.eIndex = IndexKind::None;
    builder.Frame(0, Fill(8), true).Media("05wb", LooksLikeAFrame(30)).Frame(0, Fill(10), false);
    Bytes file = builder.Build();
    file.resize(static_cast<size_t>(builder.MediaItems()[2].uiOffset) + 2);
    EXPECT_EQ(Frames(file), (std::vector<Bytes>{Fill(8), Fill(4)}));
}

TEST_F(ForeignChunks, ALookBehindThemThatFailsIsTold)
{
    builder.Frame(0, Fill(8), true).Media("05wb", LooksLikeAFrame(30)).Frame(0, Fill(10), false);
    const Bytes file = builder.Build();
    const auto meetForeignChunk = [&] {
        ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
        Position();
        EXPECT_EQ(Next().payload, Fill(8));
        EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_BAD_STREAM);
    };
    meetForeignChunk();
    Faults().FailSeek(1);
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_SEEK);
    meetForeignChunk();
    Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 0});
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_READ);
    meetForeignChunk();
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
    Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 0});
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_ABORTED);
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
    EXPECT_EQ(Next().payload, Fill(10)); // nothing is lost
}

TEST_F(ForeignChunks, AreSteppedOverAfterARewind)
{
    builder.Frame(0, Fill(8), true).Media("05wb", LooksLikeAFrame(30)).Frame(0, Fill(10), true);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(Next().payload, Fill(8));
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_BAD_STREAM);
    lxAviReadCore_RewindToStart();
    EXPECT_EQ(Next().payload, Fill(8));
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_BAD_STREAM);
    EXPECT_EQ(Next().payload, Fill(10));
}

TEST_F(ForeignChunks, AWalkOverTheMediaDataChangesNothing)
{
    builder.Frame(0, Fill(8), true).Media("05wb", LooksLikeAFrame(30)).Frame(0, Fill(10), true);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(Next().payload, Fill(8));
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_BAD_STREAM);
    const auto visit = [](void*, const lxAviRead_MediaChunk_t*) { return UInt32{1}; };
    EXPECT_EQ(lxAviReadCore_WalkMediaData(visit, nullptr), LX_OK);
    EXPECT_EQ(Next().payload, Fill(10));
}

TEST_F(ForeignChunks, AJumpToTheirPayloadIsAJump)
{
    builder.Frame(0, Fill(8), true).Media("05wb", Text("00dc") + U32(4) + Fill(4)).Frame(0, Fill(10), true);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(Next().payload, Fill(8));
    EXPECT_EQ(Next().uiResult, LX_ERR_AVIREAD_BAD_STREAM);
    Entry(0, 1).videoChunkOffset = builder.MediaItems()[1].uiOffset + 8; // a damaged index names the payload
    static_cast<void>(lxAviReadCore_JumpInKeyFrames(1, -1));
    EXPECT_EQ(Next().payload, Fill(4));
}

TEST_F(FormatMode, AnIdx1ThatReachesOverTheEndOfItsListEndsTheList)
{
    const Bytes records = Text("00dc") + U32(0x10) + U32(4) + U32(10);
    builder.eIndex = IndexKind::None;
    builder.Frame(0, Fill(8), true).Raw(Text("idx1") + U32(160) + records + records);
    for (const bool bFurther : {false, true}) {
        if (bFurther) {
            builder.NextRiff().Frame(0, Fill(12), false);
        }
        ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
        Position();
        EXPECT_EQ(Next().payload, Fill(8));
        if (bFurther) {
            EXPECT_EQ(Next().payload, Fill(12));
        }
        EXPECT_EQ(Next().uiResult, UInt32{LX_AVIREAD_END_OF_MEDIA});
    }
}

TEST_F(FormatMode, DamageThatLooksLikeAnIdx1EndsNothing)
{
    builder.eIndex = IndexKind::None;
    builder.Frame(0, Fill(8), true).Raw(Text("idx1") + U32(0x7FFFFFFF) + Fill(20)).Frame(0, Fill(10), false);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    Position();
    EXPECT_EQ(Next().payload, Fill(8));
    EXPECT_EQ(Next().payload, Fill(10));
}

TEST_F(FormatMode, AnIdx1AtTheVeryEndOfItsListEndsTheList)
{
    builder.eIndex = IndexKind::None;
    builder.Frame(0, Fill(8), true).Raw(Text("idx1") + U32(160)).NextRiff().Frame(0, Fill(12), false);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    Position();
    EXPECT_EQ(Next().payload, Fill(8));
    EXPECT_EQ(Next().payload, Fill(12));
}

} // namespace
} // namespace avitest
