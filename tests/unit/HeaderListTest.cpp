// Tests the header list: main header, stream lists, OpenDML header.

#include "ReaderTest.hpp"

namespace avitest {
namespace {

class HeaderList : public ReaderTest {
protected:
    static Bytes Avih(UInt32 totalFrames = 0)
    {
        lxAviRead_Avih_t avih = {};
        avih.dwMicroSecPerFrame = 40000;
        avih.dwTotalFrames = totalFrames;
        avih.dwWidth = 640;
        return Chunk("avih", AsBytes(avih));
    }

    static Bytes Strl(const Stream& stream)
    {
        return List("strl", Chunk("strh", AsBytes(stream.header)) + Chunk("strf", stream.format));
    }

    static Bytes Movi() { return List("movi", Chunk("00dc", Fill(4))); }

    UInt32 OpenHeaders(const Bytes& headers, const Bytes& behind = Movi())
    {
        return Open(Riff("AVI ", List("hdrl", headers) + behind));
    }
};

TEST_F(HeaderList, TheMainHeaderIsKeptWhole)
{
    ASSERT_EQ(OpenHeaders(Avih(99)), LX_OK);
    lxAviRead_Avih_t avih = {};
    ASSERT_EQ(lxAviReadCore_GetAvihData(&avih), LX_OK);
    EXPECT_EQ(avih.dwMicroSecPerFrame, 40000u);
    EXPECT_EQ(avih.dwTotalFrames, 99u);
    EXPECT_EQ(avih.dwWidth, 640u);
}

TEST_F(HeaderList, WithoutAMainHeaderTheRecordStaysZero)
{
    ASSERT_EQ(OpenHeaders(Strl(VideoStream())), LX_OK);
    lxAviRead_Avih_t avih = {};
    avih.dwWidth = 3;
    ASSERT_EQ(lxAviReadCore_GetAvihData(&avih), LX_OK);
    EXPECT_EQ(avih.dwWidth, 0u);
    EXPECT_EQ(avih.dwMicroSecPerFrame, 0u);
}

TEST_F(HeaderList, AMainHeaderOfAnotherSizeIsRefused)
{
    EXPECT_EQ(OpenHeaders(Chunk("avih", Fill(54))), LX_ERR_AVIREAD_NOT_AVI);
    EXPECT_EQ(OpenHeaders(Chunk("avih", Fill(58))), LX_ERR_AVIREAD_NOT_AVI);
    EXPECT_EQ(OpenHeaders(ChunkOfSize("avih", 55, Fill(56))), LX_OK); // the reader first makes the size even
}

TEST_F(HeaderList, StreamListsAreNumberedFromZero)
{
    ASSERT_EQ(OpenHeaders(Avih() + Strl(PcmStream()) + Strl(VideoStream()) + Strl(TextStream())), LX_OK);
    EXPECT_EQ(Info().StreamInfo[0]->StreamType, 1u);
    EXPECT_EQ(Info().StreamInfo[1]->StreamType, 2u);
    EXPECT_EQ(Info().StreamInfo[2]->StreamType, 3u);
    EXPECT_EQ(Info().StreamInfo[3]->StreamType, 0u);
    EXPECT_EQ(Info().audioStreamNr, 0);
    EXPECT_EQ(Info().videoStreamNr, 1);
}

TEST_F(HeaderList, AStreamListThatFailsEndsTheParse)
{
    Stream indexed = VideoStream();
    const Bytes hopeless = Chunk("indx", U16(4) + Bytes{0, 0} + U32(0x10000000) + Text("00dc") + Fill(12));
    const Bytes list = List("strl", Chunk("strh", AsBytes(indexed.header)) + Chunk("strf", indexed.format) + hopeless);
    EXPECT_EQ(OpenHeaders(Avih() + list + Strl(PcmStream())), LX_ERR_AVIREAD_NO_MEMORY);
}

TEST_F(HeaderList, StreamListsBeyondTheLastSlotAreSkippedWhole)
{
    Bytes lists;
    for (int i = 0; i < 20; ++i) {
        lists += Strl(PcmStream());
    }
    ASSERT_EQ(OpenHeaders(Avih() + lists), LX_OK);
    EXPECT_EQ(log.CountPrefix("AviReadCore : No slot for stream"), 3u);
    EXPECT_EQ(Info().StreamInfo[16]->StreamType, 1u);
    EXPECT_EQ(Info().AudioTracksCount, 17u);
}

TEST_F(HeaderList, UnknownChunksAreSkipped)
{
    ASSERT_EQ(OpenHeaders(Chunk("abcd", Fill(11)) + Avih() + Chunk("JUNK", Fill(3)) + Strl(VideoStream())), LX_OK);
    EXPECT_EQ(log.CountPrefix("AviReadCore : read data unknown (Line:"), 2u);
    EXPECT_EQ(Info().StreamInfo[0]->StreamType, 2u);
}

TEST_F(HeaderList, AnUnknownListTakesFourBytesOfWhatFollows)
{
    // when 4 more bytes stand behind the unknown list, the reader finds everything else
    const Bytes headers = Text("hdrl") + Avih() + List("abcd", Fill(8)) + Fill(4, 0) + Strl(VideoStream());
    const Bytes list = ChunkOfSize("LIST", static_cast<UInt32>(headers.size()) - 4, headers);
    ASSERT_EQ(Open(Riff("AVI ", list + Movi())), LX_OK);
    EXPECT_TRUE(log.Has("AviReadCore : Found LIST, read data_ext unknown (0x64636261)"));
    EXPECT_EQ(Info().StreamInfo[0]->StreamType, 2u);
    // without these 4 bytes the reader skips the code of the next list and misreads the list
    EXPECT_NE(OpenHeaders(Avih() + List("abcd", Fill(8)) + Strl(VideoStream())), LX_OK);
}

TEST_F(HeaderList, TheOpenDmlHeaderGivesTheTotalFrames)
{
    ASSERT_EQ(OpenHeaders(Avih(10) + List("odml", Chunk("dmlh", U32(10) + Fill(244)))), LX_OK);
    lxAviRead_OpenDmlInfo_t info = {};
    lxAviReadCore_GetOpenDmlInfo(&info);
    EXPECT_EQ(info.bPresent, 1);
    EXPECT_EQ(info.uiTotalFrames, 10u);
    EXPECT_EQ(Info().bAvixPresent, 0); // the first list has all frames
    EXPECT_TRUE(log.Has("AviReadCore : Found odml LIST chunk"));
    EXPECT_TRUE(log.Has("AviReadCore : Found dmlh sub-chunk"));
    EXPECT_FALSE(log.Has("lxAviReadCore_ConstructAvixInfo: Enter"));
}

TEST_F(HeaderList, MoreTotalFramesThanTheFirstListStartTheSegmentScan)
{
    ASSERT_EQ(OpenHeaders(Avih(10) + List("odml", Chunk("dmlh", U32(11)))), LX_OK);
    EXPECT_TRUE(log.Has("lxAviReadCore_ConstructAvixInfo: Enter"));
    EXPECT_EQ(Info().bAvixPresent, 0); // the reader has found no AVIX list
    EXPECT_EQ(Info().dmlhTotalFrames, 11u);
}

TEST_F(HeaderList, AnOdmlListWithoutDmlhIsTolerated)
{
    ASSERT_EQ(OpenHeaders(Avih() + List("odml", Chunk("abcd", Fill(9))) + Strl(VideoStream())), LX_OK);
    EXPECT_TRUE(log.Has("AviReadCore : Error! Expected dmlh sub-chunk (064636261)"));
    EXPECT_EQ(Info().bDmlhPresent, 1);
    EXPECT_EQ(Info().StreamInfo[0]->StreamType, 2u);
}

TEST_F(HeaderList, WithoutAnOdmlListThereIsNoOpenDmlInfo)
{
    ASSERT_EQ(OpenHeaders(Avih()), LX_OK);
    lxAviRead_OpenDmlInfo_t info = {9, 9};
    lxAviReadCore_GetOpenDmlInfo(&info);
    EXPECT_EQ(info.bPresent, 0);
    EXPECT_EQ(info.uiTotalFrames, 0u);
}

TEST_F(HeaderList, ADmlhShorterThanItsCountWrapsAndReadsToTheEnd)
{
    EXPECT_EQ(OpenHeaders(Avih() + List("odml", ChunkOfSize("dmlh", 2, U16(7)))), LX_ERR_AVIREAD_EOF);
}

TEST_F(HeaderList, AnEmptyHeaderListIsNoHeaders)
{
    ASSERT_EQ(OpenHeaders({}), LX_OK);
    EXPECT_EQ(Info().videoStreamNr, -1);
    EXPECT_EQ(Info().audioStreamNr, -1);
    EXPECT_TRUE(log.Has("Leaving lxAviReadCore_ParseListHdrl"));
}

TEST_F(HeaderList, AHeaderListBeginsWithoutAnIndex)
{
    Info().bIndxPresent = 1;
    EXPECT_EQ(lxAviReadCore_ParseListHdrl(0, &Info(), 4), LX_OK); // a list of its type only
    EXPECT_EQ(Info().bIndxPresent, 0);
}

} // namespace
} // namespace avitest
