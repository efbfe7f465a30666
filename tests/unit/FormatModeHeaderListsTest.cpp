// Format mode: lists in the headers end where their sizes say, and short reads go on behind their bytes.

#include "FormatModeTest.hpp"

namespace avitest {
namespace {

// ---- Header lists ----

TEST_F(FormatMode, WhatFollowsAnIndexBelongsToItsStream)
{
    // The test writes the indx chunk itself, because the builder puts its own index last.
    builder.eIndex = IndexKind::None;
    builder.streams[0].extra = Chunk("indx", U16(4) + Bytes{0, 0} + U32(0) + Text("00dc") + Fill(12, 0)) +
                               Chunk("strd", Fill(2232, 0x77)) + Chunk("strn", Text("name"));
    AddMedia(2, 1);
    const Bytes file = builder.Build();
    for (const UInt8 as : {kDefault, kFormat}) {
        ASSERT_EQ(OpenAs(as, file), LX_OK);
        EXPECT_EQ(Info().StreamInfo[0]->bStrdPresent, as == kFormat ? 1 : 0);
        // default mode counts the chunks behind the index twice, so it ends the header list too early
        EXPECT_EQ(Info().AudioTracksCount, as == kFormat ? 1u : 0u);
    }
}

TEST_F(FormatMode, AnUnknownListInTheHeadersIsSkippedByItsSize)
{
    builder.inHeaderList = List("more", Fill(12, 0)) + List("odml", Chunk("dmlh", U32(77)));
    AddMedia(2, 1);
    const Bytes file = builder.Build();
    static_cast<void>(OpenAs(kDefault, file));
    EXPECT_NE(Info().dmlhTotalFrames, 77u);
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    EXPECT_EQ(Info().dmlhTotalFrames, 77u);
}

TEST_F(FormatMode, EveryChunkOfAnOdmlListIsRead)
{
    builder.dmlhTotalFrames = 77;
    builder.inOdml = Chunk("more", Fill(12, 0)) + Chunk("JUNK", Fill(2, 0));
    builder.inHeaderList = Chunk("vprp", Fill(68));
    AddMedia(2, 1);
    const Bytes file = builder.Build();
    static_cast<void>(OpenAs(kDefault, file));
    EXPECT_NE(Info().dmlhTotalFrames, 77u);
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    EXPECT_EQ(Info().dmlhTotalFrames, 77u);
    EXPECT_EQ(Info().bDmlhPresent, 1);
    EXPECT_EQ(Info().moviOffset, builder.MoviOffset());
    Position();
    EXPECT_EQ(CountDelivered(), 4u);
}

TEST_F(FormatMode, ChunksOfAHeaderListEndWithTheirList)
{
    const Bytes tooLong[] = {ChunkOfSize("strn", 50000, Fill(4)),
                             ChunkOfSize("JUNK", 50000, Fill(6)),
                             ChunkOfSize("indx", 8, Fill(8, 0)),
                             Fill(2),
                             Fill(6),
                             ChunkOfSize("LIST", 2, Fill(2))};
    for (const Bytes& bytes : tooLong) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.streams[0].extra = bytes;
        builder.inHeaderList = bytes;
        builder.inOdml = {};
        builder.dmlhTotalFrames = 2;
        AddMedia(2, 1);
        const Bytes file = builder.Build();
        ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
        EXPECT_EQ(Info().AudioTracksCount, 1u);
        EXPECT_EQ(Info().moviOffset, builder.MoviOffset());
        Position();
        EXPECT_EQ(CountDelivered(), 4u);
    }
}

TEST_F(FormatMode, ShortListsInTheHeadersAreNone)
{
    builder.inHeaderList = List("odml", {}) + List("odml", ChunkOfSize("dmlh", 2, Fill(2))) +
                           List("odml", ChunkOfSize("dmlh", 60, U32(5)));
    AddMedia(2, 1);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(Info().dmlhTotalFrames, 5u);
    EXPECT_EQ(Info().moviOffset, builder.MoviOffset());

    // Format mode reads a list that has just room for its type, and a chunk that has just room for its header.
    builder.inHeaderList = ChunkOfSize("LIST", 4, Text("strl")) + Chunk("abcd", {});
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(log.Count("AviReadCore : Found stream LIST chunk"), 3u);
    EXPECT_EQ(log.CountPrefix("AviReadCore : read data unknown"), 1u);
}

// ---- Reads ----

TEST_F(FormatMode, AShortReadGoesOnWhereItStopped)
{
    Bytes data(64);
    std::iota(data.begin(), data.end(), UInt8{1});
    for (const UInt8 as : {kDefault, kFormat}) {
        Faults().Serve("data", data);
        static_cast<void>(lxAviReadCore_Open(0, "data", 3, 0, as, &allIndexed));
        for (const auto read : {lxAviReadCore_FileRead, lxAvi2ReadCore_FileRead}) {
            ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
            UInt32 buffer[16] = {};
            Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 2});
            ASSERT_EQ(read(&Info(), buffer, 6), LX_OK);
            const Bytes want =
                as == kFormat ? Bytes{1, 2, 3, 4, 5, 6, 0, 0, 0, 0, 0, 0} : Bytes{1, 2, 0, 0, 0, 0, 0, 0, 3, 4, 5, 6};
            EXPECT_EQ(AsBytes(buffer), want + Fill(52, 0));
        }
    }
}

} // namespace
} // namespace avitest
