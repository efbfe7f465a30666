// Tests the exact texts of the messages that the reader logs in ordinary sessions.

#include "ReaderTest.hpp"

namespace avitest {
namespace {

class Traces : public ReaderTest {
protected:
    AviBuilder builder;

    Traces()
    {
        builder.Add(VideoStream()).Add(PcmStream()).Add(PcmStream());
        for (UInt32 i = 0; i < 30; ++i) {
            builder.Audio(1, Fill(640)).Audio(2, Fill(640)).Frame(0, Fill(10), i % 10 == 0);
        }
    }

    void Expect(const std::vector<std::string>& prefixes)
    {
        for (const std::string& prefix : prefixes) {
            EXPECT_TRUE(log.HasPrefix(prefix)) << prefix;
        }
    }
};

TEST_F(Traces, OfOpen)
{
    const Bytes file = builder.Build();
    ASSERT_EQ(Open(file), LX_OK);
    Expect({"Entered lxAviReadCore_Open path=test.avi",
            "AviReadCore : Found Avi file (size= " + std::to_string(file.size() - 8) + ")",
            "AviReadCore : Found stream LIST chunk", "AviReadCore : Found Avi header chunk",
            "AviReadCore : Found audio streamformat sub-chunk. FccType is auds 73647561, size 18",
            "AviReadCore : Found streamformat sub-chunk. FccType is vids 73646976, size 28\n",
            "AviReadCore : Stream 1 streamheader subchunk\n", "leaving lxAviReadCore_ParseListStrl",
            "lxAviReadCore_AudioFrameSizeCalculation pStrInfo=0x", "AviReadCore : Found LIST"});
    EXPECT_TRUE(log.HasPrefix("Calling ReadRecord(pAviInfo, form) from ReadRiffHeader at "
                              "src/demux/comps/lxAviRead/src/core/src/AviReadcore:"));
    Expect({"Successfully returned from function call at src/demux/comps/lxAviRead/src/core/src/AviReadcore:"});
}

TEST_F(Traces, OfSegments)
{
    builder.dmlhTotalFrames = 40;
    builder.NextRiff().Frame(0, Fill(10), true);
    ASSERT_EQ(Open(builder), LX_OK);
    Expect({"Found a new RIFF ", "Calling lxAviReadCore_FileRead(pAviInfo,&uiSize,4 ) from ",
            "Calling lxAviReadCore_FileRead(pAviInfo,&uiDataExt, 4) from "});
}

TEST_F(Traces, OfAnIdx1Index)
{
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    Expect({"Entering lxAviReadCore_ParseIdx1Chunk", "Leaving lxAviReadCore_ParseIdx1Chunk 0",
            "lxAviReadCore_ParseIndex: Video non Key Frame found"});
    const std::string offset = std::to_string(Entry(0, 1).videoChunkOffset);
    EXPECT_TRUE(log.Has("lxAviReadCore_ParseIndex: Storing key video fr#10 item#1 time=0.400 offset=0." + offset));
}

TEST_F(Traces, OfASuperIndex)
{
    builder.eIndex = IndexKind::SuperStandard;
    ASSERT_EQ(Open(builder), LX_OK);
    Expect({"Entered lxAviReadCore_ParseChunkIndx", "Leaving lxAvi2ReadCore_ParseChunkIndx,rval: 0",
            "Calling lxAvi2ReadCore_FileRead(pAviInfo, (UInt32*)(&((pStrInfo->IndxChunk).aviIndxcommonSection)), "
            "sizeof(lxAviReadCore_AviIndxChunkCommonSection_t)) from "});
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    Expect({"Rval after reading the std/field video ix## struct0", "lxAvi2ReadCore_ParseAudioSuperIndex",
            "Leaving lxAvi2ReadCore_ParseAudioSuperIndex", "AudioSuperIndexParsing :Rval Reading ix(0)-> 0",
            "Leaving lxAvi2ReadCore_FillAudioInfoInKFTable with Rval-> 0", "Stream: 1 uiNoOfIndexes: 1  \n"});
}

TEST_F(Traces, OfAOneLevelIndex)
{
    builder.eIndex = IndexKind::OneLevelStandard;
    ASSERT_EQ(Open(builder), LX_OK);
    Expect({"lxAviReadCore_ParseChunkIndx: It is AVI_INDEX_OF_CHUNKS", "\tNumber of key frames =3",
            "\tNumber of video frames =30", "lxAvi2ReadCore_ParseAudioStdIndex",
            "Leaving lxAvi2ReadCore_ParseAudioStdIndex: 0"});
}

TEST_F(Traces, OfDelivery)
{
    OpenIndexed(builder);
    All();
    Expect({"Entered lxAviReadCore_NextChunk ", "lxAviReadCore_NextChunk leave: RVAL: 0 ",
            "lxAviReadCore_NextChunk leave: RVAL: 1 ", "Leaving lxAviReadCore_NextChunk at line ",
            "lxAviReadCore_NextChunk : Offset 0.4 moviSize=0.", "twocc='wb'(0x6277) data=0x62773130 Offset=8",
            "lxAviReadCore_ProcessNextVideoChunk with rval 0", "lxAviReadCore_ProcessNextAudioChunk 0",
            "Search Result's validity =1 Leaf=0 Item=0 audioSynkInfoSet's Leaf: 0 Item:0",
            "lxAviReadCore_NextChunk : audio, offset=0."});
}

TEST_F(Traces, OfASeek)
{
    OpenIndexed(builder);
    static_cast<void>(lxAviReadCore_SeekToTime(450, 0, lxAviRead_SetPosRoundDown));
    const std::string jump = std::to_string(Info().JumpOffset);
    Expect({"entered GiveOffsetTotime", "Jump Offset=0.0  ",
            "leaving GiveOffsetTotime with result: leaf=0 item=1 offset=0.",
            " Found the Leaf: StartTimeMsec=0.0  EndTimeMsec=0.800",
            "lxAviReadCore_SeekToTime : JumpOffset 0." + jump + " (aud= 0." + jump + "), moviOffset 0."});
    Next();
    Expect(
        {"lxAviReadCore_NextChunk : Offset 0." + jump, "Offset =0." + jump + " , Leaf = 0,Item = 1) Chunk Offset=0."});
    static_cast<void>(lxAviReadCore_SeekToTime(450, -1, lxAviRead_SetPosRoundDown));
    Expect({"lxAviReadCore_SeekToTime : JumpOffset 0." + std::to_string(Info().JumpOffset) + " , moviOffset 0."});
    Info().JumpOffset = 4;
    Info().bJumpToVideo = 0;
    Next();
    Expect({"Actual offset=0." + jump + ",  Leaf:0,Item:1,Chunk Offset=0.4"});
    lxAviRead_SetPositionRangeInfo_t range = {};
    EXPECT_EQ(lxAviReadCore_GetSetPositionRangeInfo(&range), LX_OK);
    Expect({"lxAviReadCore_GetSetPositionRangeInfo Enter", "lxAviReadCore_GetSetPositionRangeInfo Leave"});
}

} // namespace
} // namespace avitest
