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

    // The lines that begin so follow one another directly, the first time that the first of them is met.
    void ExpectInARow(const std::vector<std::string>& prefixes)
    {
        const size_t first = log.Find(prefixes.front());
        ASSERT_LE(first + prefixes.size(), log.Lines().size()) << prefixes.front();
        for (size_t i = 0; i < prefixes.size(); ++i) {
            EXPECT_EQ(log.Lines()[first + i].text.substr(0, prefixes[i].size()), prefixes[i]);
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
    EXPECT_TRUE(log.HasPrefix("Calling ReadRecord(pAviInfo, riff) from ReadRiffHeader at "
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

TEST_F(Traces, OfAudioThatIsPlacedByIdx1)
{
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    ExpectInARow({"Storing A0 for 0.0  fr#0 ", "KF_data.leafNr.itemNr=0.0 ",
                  "lxAviReadCore_GetStreamTime: Video. stream=0 framenumber=   10"});
}

TEST_F(Traces, OfAudioThatIsPlacedByASuperIndex)
{
    builder.eIndex = IndexKind::SuperStandard;
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    ExpectInARow({"BEFORE Getnextitem KF leafNr:0 itemNr:0 ", "Storing Audio(0) for 0.0  fr#0 ",
                  "lxAviReadCore_GetStreamTime: Video. stream=0 framenumber=   10"});
}

TEST_F(Traces, OfTheWalksOverIndexChunks)
{
    builder.eIndex = IndexKind::SuperStandard;
    ASSERT_EQ(Open(builder), LX_OK);
    log.Clear();
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    // One walk counts, one stores the key frames, and two place audio. The storing walk is silent about its way.
    EXPECT_EQ(log.CountPrefix("Fseeking(0) to offset: 0."), 3u);
    EXPECT_EQ(log.CountPrefix("First 4 bytes after fseek and twocc, 30307869, 7869"), 1u);
    EXPECT_EQ(log.CountPrefix("First 4 bytes after fseek and twocc"), 1u);
    EXPECT_EQ(log.CountPrefix("Rval after reading the std/field video ix## struct"), 1u);
    const size_t storing = log.Find("AviRead:Succeeded allocating ");
    EXPECT_LT(log.Find("Rval after reading the std/field video ix## struct"), storing);
    EXPECT_EQ(log.Find("Fseeking(", storing), log.Find("Fseeking(", log.Find("lxAvi2ReadCore_ParseAudioSuperIndex")));
}

TEST_F(Traces, OfAOneLevelIndex)
{
    builder.eIndex = IndexKind::OneLevelStandard;
    ASSERT_EQ(Open(builder), LX_OK);
    Expect({"lxAviReadCore_ParseChunkIndx: It is AVI_INDEX_OF_CHUNKS", "\tNumber of key frames =3",
            "\tNumber of video frames =30", "lxAvi2ReadCore_ParseAudioStdIndex",
            "Leaving lxAvi2ReadCore_ParseAudioStdIndex: 0"});
}

TEST_F(Traces, OfAFailedReadInTheSinglePass)
{
    const auto parse = [&](const ReadFault& fault) {
        EXPECT_EQ(Open(builder), LX_OK);
        Bytes buffer(18000);
        LendBuffer(buffer);
        EXPECT_EQ(lxAviReadCore_FileSeek(&Info(), Info().idx1Offset, 0), 1);
        log.Clear();
        Faults().FaultRead(5, fault);
        const UInt32 result = lxAviReadCore_ParseVideoAudioIndex(0, &Info(), Info().idx1Size, 1, 1);
        Info().pMetaDataBuffer = nullptr;
        return result;
    };
    EXPECT_EQ(parse({ReadFault::Kind::EndOfFile, 3}), LX_ERR_AVIREAD_EOF);
    EXPECT_EQ(log.CountPrefix("Error 0x88019809 (-2013161463 )returned from function call at "
                              "src/demux/comps/lxAviRead/src/core/src/AviReadcore:"),
              1u);
    EXPECT_EQ(parse({ReadFault::Kind::ShortThenError, 3}), LX_ERR_AVIREAD_READ);
    EXPECT_EQ(log.CountPrefix("Error 0x88019017 (-2013163497 )returned from function call at "), 1u);
}

TEST_F(Traces, OfReadsThatMeetTheEndOfTheFileAsAWhole)
{
    const std::string core = "leaving lxAviReadCore_FileRead()-eof.err=0x88019017(-2013163497). only ";
    EXPECT_EQ(Open(Bytes{}), LX_ERR_AVIREAD_EOF);
    EXPECT_TRUE(log.Has(core + "12 bytes left unread"));
    log.Clear();
    EXPECT_EQ(Open(Text("RIFFsizeAV")), LX_ERR_AVIREAD_EOF);
    EXPECT_TRUE(log.Has(core + "12 bytes left unread"));

    const std::string openDml = "leaving lxAvi2ReadCore_FileRead()-eof.err=0x88019017(-2013163497). only ";
    const auto openCutBehindIndx = [&](size_t bytes) {
        Bytes file = builder.Build();
        file.resize(Find(file, "indx") + 8 + bytes);
        log.Clear();
        EXPECT_EQ(Open(file), LX_ERR_AVIREAD_EOF);
    };
    builder.avih.dwFlags = 0;
    builder.eIndex = IndexKind::OneLevelStandard;
    openCutBehindIndx(12 + 9); // inside the reserved word behind the base offset
    EXPECT_TRUE(log.Has(openDml + "12 bytes left unread"));
    builder.eIndex = IndexKind::SuperStandard;
    openCutBehindIndx(12 + 9); // inside the reserved words
    EXPECT_TRUE(log.Has(openDml + "12 bytes left unread"));
}

TEST_F(Traces, OfASuperIndexThatClaimsMoreThanTheFileHolds)
{
    builder.eIndex = IndexKind::SuperStandard;
    Bytes file = builder.Build();
    Patch32(file, Find(file, "indx") + 12, 100000);
    EXPECT_EQ(Open(file), LX_ERR_AVIREAD_EOF);
    EXPECT_TRUE(log.Has("leaving lxAvi2ReadCore_FileRead()-eof.err=0x88019017(-2013163497). only 1600000 bytes left "
                        "unread"));
    // the file ends in the second piece of 64 KiB
    builder.eIndex = IndexKind::None;
    builder.streams[0].extra = Chunk("indx", U16(4) + U16(0) + U32(5000) + Text("00dc") + Fill(12 + 80000, 0));
    file = builder.Build();
    file.resize(Find(file, "indx") + 8 + 24 + 72000);
    log.Clear();
    EXPECT_EQ(Open(file), LX_ERR_AVIREAD_EOF);
    EXPECT_TRUE(
        log.Has("leaving lxAvi2ReadCore_FileRead()-eof.err=0x88019017(-2013163497). only 80000 bytes left unread"));
}

TEST_F(Traces, OfAnIndexChunkWhoseHeaderIsCut)
{
    builder.eIndex = IndexKind::SuperStandard;
    Bytes file = builder.Build();
    const size_t entry = Find(file, "indx", Find(file, "indx", Find(file, "indx") + 4) + 4) + 8 + 24; // of the last
    Patch32(file, entry, static_cast<UInt32>(file.size()));
    file += Text("ix02") + Fill(20, 0);
    ASSERT_EQ(Open(file), LX_OK);
    log.Clear();
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_EOF);
    const size_t failed = log.Find("ParseAudioSuperIndex : Error Reading data1,line:");
    EXPECT_EQ(log.Find("AudioSuperIndexParsing :Rval Reading ix(0)-> 88019809"), failed + 1);
}

TEST_F(Traces, OfAnAbortedReadInTheSinglePass)
{
    ASSERT_EQ(Open(builder), LX_OK);
    Bytes buffer(18000);
    LendBuffer(buffer);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), Info().idx1Offset, 0), 1);
    log.Clear();
    Faults().FaultRead(3, {ReadFault::Kind::ShortThenError, 3});
    UInt32 reads = 0;
    Faults().onRead = [&](UInt64) { Info().bAbort = ++reads == 3 ? 1 : 0; };
    EXPECT_EQ(lxAviReadCore_ParseVideoAudioIndex(0, &Info(), Info().idx1Size, 1, 1), LX_ERR_AVIREAD_ABORTED);
    Faults().onRead = nullptr;
    Info().pMetaDataBuffer = nullptr;
    EXPECT_EQ(log.CountPrefix("Error 0x88019812 (-2013161454 )returned from function call at "), 1u);
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
