// Tests stream lists: headers, kinds, track numbers.

#include "ReaderTest.hpp"

namespace avitest {
namespace {

class StreamList : public ReaderTest {
protected:
    AviBuilder builder;

    static Stream Typed(std::string_view type)
    {
        Stream stream = VideoStream();
        stream.header.fccType = Code(type);
        return stream;
    }
};

TEST_F(StreamList, TheHeaderIsKeptWhole)
{
    Stream video = VideoStream(30000, 1001);
    video.header.rcFrame[2] = -5;
    video.header.dwStart = 77;
    builder.Add(video).Frame(0, Fill(4), true);
    ASSERT_EQ(Open(builder), LX_OK);
    lxAviRead_Strh_t header = {};
    UInt32 size = 1;
    ASSERT_EQ(lxAviReadCore_GetStrhData(0, &header, &size), LX_OK);
    EXPECT_EQ(AsBytes(header), AsBytes(video.header));
    EXPECT_EQ(size, 0u); // no index has been parsed yet
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    ASSERT_EQ(lxAviReadCore_GetStrhData(0, &header, &size), LX_OK);
    EXPECT_EQ(size, 4u);
}

TEST_F(StreamList, ANumberWithoutARecordLeavesTheOutputs)
{
    builder.Add(VideoStream());
    ASSERT_EQ(Open(builder), LX_OK);
    lxAviRead_Strh_t header = {};
    header.dwRate = 42;
    UInt32 size = 43;
    EXPECT_EQ(lxAviReadCore_GetStrhData(17, &header, &size), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStrhData(0xFFFFFFFFu, &header, &size), LX_OK);
    EXPECT_EQ(header.dwRate, 42u);
    EXPECT_EQ(size, 43u);
}

TEST_F(StreamList, NineAudioStreamsGetEightTracks)
{
    builder.Add(VideoStream());
    for (int i = 0; i < 9; ++i) {
        builder.Add(PcmStream());
    }
    ASSERT_EQ(Open(builder), LX_OK);
    for (UInt32 i = 0; i < 8; ++i) {
        EXPECT_EQ(Info().TrackNumber[i + 1], i);
    }
    EXPECT_EQ(Info().TrackNumber[9], 0u);
    EXPECT_EQ(Info().AudioTracksCount, 9u);
    EXPECT_EQ(Info().audioStreamNr, 1);
}

TEST_F(StreamList, LaterVideoStreamsAreBitmapSubtitles)
{
    builder.Add(VideoStream()).Add(VideoStream()).Add(TextStream()).Add(VideoStream());
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(Info().videoStreamNr, 0);
    for (const auto& [stream, track] : {std::pair{1u, 0u}, {2u, 1u}, {3u, 2u}}) {
        EXPECT_EQ(Info().StreamInfo[stream]->StreamType, 3u);
        EXPECT_EQ(Info().TrackNumber[stream], track);
    }
    EXPECT_EQ(Info().SubtitleTracksCount, 3u);
    EXPECT_TRUE(log.Has("AviReadCore : Found subtitle streamformat (bitmap) (id=1,size = 40) streamformat sub-chunk."));
    EXPECT_TRUE(log.Has("AviReadCore : Found subtitle streamformat  (id=2,size = 8) streamformat sub-chunk."));
}

TEST_F(StreamList, ANinthSubtitleStreamIsTrackZero)
{
    for (int i = 0; i < 10; ++i) {
        builder.Add(TextStream());
    }
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(Info().TrackNumber[7], 7u);
    EXPECT_EQ(Info().TrackNumber[8], 0u);
    EXPECT_EQ(Info().SubtitleTracksCount, 10u);
    // the reader sets it, whatever the value before
    Info().TrackNumber[8] = 5;
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
    ASSERT_EQ(lxAviReadCore_Open(0, "", 1, kPlenty, 1, &allIndexed), LX_OK);
    EXPECT_EQ(Info().TrackNumber[8], 0u);
}

TEST_F(StreamList, UnknownTypesBelongToNoKind)
{
    builder.Add(Typed("mids")).Add(VideoStream());
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(Info().StreamInfo[0]->StreamType, 0u);
    EXPECT_EQ(Info().videoStreamNr, 1);
    EXPECT_TRUE(log.HasPrefix("AviReadCore : Fourcc error! Stream 0 type (auds/vids) not defined 7364696d ( s d i m) "
                              "(line:"));
    Info().StreamInfo[0]->StreamType = LX_AVIREAD_STREAM_AUDIO; // the reader sets it, whatever the value before
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
    ASSERT_EQ(lxAviReadCore_Open(0, "", 1, kPlenty, 1, &allIndexed), LX_OK);
    EXPECT_EQ(Info().StreamInfo[0]->StreamType, LX_AVIREAD_STREAM_NONE);
}

TEST_F(StreamList, AStrfBeforeItsStrhIsRejected)
{
    const Stream video = VideoStream();
    const Bytes list = List("strl", Chunk("strf", video.format) + Chunk("strh", AsBytes(video.header)));
    ASSERT_EQ(Open(Riff("AVI ", List("hdrl", list) + List("movi", Chunk("00dc", Fill(4))))), LX_OK);
    EXPECT_EQ(Info().StreamInfo[0]->StreamType, 0u);
    EXPECT_EQ(Info().videoStreamNr, -1);
    EXPECT_EQ(Info().StreamInfo[0]->Header.fccType, Code("vids"));
}

TEST_F(StreamList, AStrhOf64BytesIsCutAndOneOf48IsShort)
{
    const Bytes header = AsBytes(VideoStream().header);
    const auto open = [&](const Bytes& strh) {
        return Open(Riff("AVI ", List("hdrl", List("strl", Chunk("strh", strh) + Chunk("strf", Fill(40)))) +
                                     List("movi", Chunk("00dc", Fill(4)))));
    };
    ASSERT_EQ(open(header + Fill(8)), LX_OK);
    EXPECT_TRUE(log.Has(0x8200, "size> sizeof(lxAviRead_Strh_t) (64>56)"));
    EXPECT_EQ(AsBytes(Info().StreamInfo[0]->Header), header);
    EXPECT_EQ(Info().StreamInfo[0]->StreamType, 2u);

    Bytes shorter = header;
    shorter.resize(48);
    ASSERT_EQ(open(shorter), LX_OK);
    EXPECT_TRUE(log.Has("size<- sizeof(lxAviRead_Strh_t) (48<56)"));
    EXPECT_EQ(AsBytes(Info().StreamInfo[0]->Header), shorter + Fill(8, 0));
    EXPECT_EQ(Info().StreamInfo[0]->StreamType, 2u);
}

TEST_F(StreamList, StreamDataBelongsToTheMainVideoStream)
{
    Stream first = VideoStream();
    Stream second = VideoStream();
    Stream audio = PcmStream();
    first.extra = Chunk("strd", Fill(2232, 1));
    second.extra = Chunk("strd", Fill(2232, 2));
    audio.extra = Chunk("strd", Fill(30, 3));
    builder.Add(first).Add(second).Add(audio);
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(Info().StreamInfo[0]->bStrdPresent, 1);
    EXPECT_EQ(Info().StreamInfo[1]->bStrdPresent, 0);
    EXPECT_EQ(Info().StreamInfo[2]->bStrdPresent, 0);
    EXPECT_TRUE(log.Has("AviReadCore : Found streamdata (strd) sub-chunk. FccType is vids 73646976, size 8b8\n"));
    EXPECT_TRUE(log.Has("AviReadCore : Found streamdata (strd) sub-chunk for not-main video track. FccType is vids "
                        "73646976, size 8b8\n"));
    EXPECT_TRUE(log.Has("AviReadCore : strd chunk found but not procesed (size=30)"));
}

TEST_F(StreamList, OtherChunksAreSkipped)
{
    Stream video = VideoStream();
    video.extra = Chunk("JUNK", Fill(5)) + Chunk("strn", Text("name")) + Chunk("vprp", Fill(7));
    builder.Add(video).Add(PcmStream());
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_TRUE(log.HasPrefix("AviReadCore : removing chunk (line:"));
    EXPECT_TRUE(log.Has(0x100, "AviReadCore : removing chunk"));
    EXPECT_TRUE(log.HasPrefix("AviReadCore : Fourcc error! 70727076 ( p r p v) (line:"));
    EXPECT_TRUE(log.Has("AviReadCore : Current chunk (vprp) size=8, after it will be left in this list 0 bytes"));
    EXPECT_EQ(Info().StreamInfo[1]->StreamType, 1u);
}

TEST_F(StreamList, ASecondFormatOfTheMainVideoStreamMakesItASubtitleStream)
{
    Stream video = VideoStream();
    video.extra = Chunk("strf", video.format);
    builder.Add(video);
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(Info().StreamInfo[0]->StreamType, 3u);
    EXPECT_EQ(Info().videoStreamNr, 0);
    // An index chunk behind it belongs to a subtitle stream, so the reader skips it.
    builder.streams[0].extra = Chunk("strf", video.format) + Chunk("indx", Fill(40, 0));
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(Info().bIndxPresent, 1);
    EXPECT_EQ(Info().StreamInfo[0]->IndxChunk.pAviSuperIndexEntry, nullptr);
    // Stream data behind it makes the stream the video stream again.
    builder.streams[0].extra = Chunk("strf", video.format) + Chunk("strd", Fill(2232, 1));
    ASSERT_EQ(Open(builder), LX_OK);
    EXPECT_EQ(Info().StreamInfo[0]->StreamType, 2u);
    // When the stream data comes first, the second format then makes the stream a subtitle stream.
    builder.streams[0].extra = Chunk("strd", Fill(2232, 1)) + Chunk("strf", video.format);
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(Info().StreamInfo[0]->bStrdPresent, 1);
    Bytes data(2232);
    Bool present = 7;
    ASSERT_EQ(lxAviReadCore_GetStrdData(0, data.data(), &present), LX_OK);
    EXPECT_EQ(present, 0);
    EXPECT_EQ(data, Fill(2232, 0));
}

TEST_F(StreamList, AnUnusableIndexTakesThePromiseOfAnIndexBack)
{
    // When the input cannot state its position, the reader cannot use a one-level index.
    const Bytes indx = Chunk("indx", U16(2) + Bytes{0, 1} + U32(1) + Text("00dc") + Fill(12, 0) + U32(8) + U32(4));
    builder.eIndex = IndexKind::None;
    builder.Add(VideoStream()).Raw(indx);
    indxOptionOfOpen = LX_AVIREAD_FOLLOW_FORMAT | 1;
    ASSERT_EQ(Open(builder.Build(), false), LX_OK); // now the file stands at the chunk
    Info().AviHdr->dwFlags |= LX_AVIREAD_HAS_INDEX;
    EXPECT_EQ(lxAviReadCore_ParseListStrl(0, &Info(), static_cast<UInt32>(indx.size()), 0), LX_OK);
    EXPECT_EQ(Info().AviHdr->dwFlags & LX_AVIREAD_HAS_INDEX, 0u);
}

TEST_F(StreamList, ACallForAStreamThatHasNoRecordIsAnswered)
{
    EXPECT_EQ(lxAviReadCore_ParseListStrl(0, &Info(), 100, 0), LX_ERR_AVIREAD_NO_MEMORY);
    EXPECT_EQ(lxAviReadCore_ParseListStrh(&Info(), 56, 17), LX_ERR_AVIREAD_NO_MEMORY);
}

} // namespace
} // namespace avitest
