// Format mode: chunks of the headers that are kept whole for decoders, names, and the texts of the file.

#include "FormatModeTest.hpp"

#include <algorithm>

namespace avitest {
namespace {

class KeptChunks : public FormatMode {
protected:
    // Bytes 0, 1, 2, …
    static Bytes Ramp(size_t count)
    {
        Bytes bytes(count);
        for (size_t i = 0; i < count; ++i) {
            bytes[i] = static_cast<UInt8>(i);
        }
        return bytes;
    }

    static UInt32 SizeOf(UInt32 streamNr, UInt32 kind)
    {
        UInt32 size = 7;
        EXPECT_EQ(lxAviReadCore_GetStreamBytes(streamNr, kind, Null, 0, &size), LX_OK);
        return size;
    }

    // What is kept of a chunk.
    static Bytes Kept(UInt32 streamNr, UInt32 kind)
    {
        Bytes bytes(LX_AVIREAD_KEPT_BYTES);
        UInt32 size = 7;
        EXPECT_EQ(lxAviReadCore_GetStreamBytes(streamNr, kind, bytes.data(), LX_AVIREAD_KEPT_BYTES, &size), LX_OK);
        bytes.resize(std::min(size, LX_AVIREAD_KEPT_BYTES));
        return bytes;
    }

    static std::string FileText(const char (&code)[5])
    {
        std::string text(100, '#');
        const UInt32 length = lxAviReadCore_GetFileText(Code(code), text.data(), 100);
        text.resize(length);
        return text;
    }
};

TEST_F(KeptChunks, AFormatIsGivenWithAllItsBytes)
{
    builder.streams[0].format += Ramp(39); // an odd size: the pad byte does not belong to it
    builder.streams[1].format += Ramp(30);
    builder.Add(TextStream());
    builder.streams[2].format = Ramp(50);
    const Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    for (UInt32 streamNr = 0; streamNr < 3; ++streamNr) {
        EXPECT_EQ(SizeOf(streamNr, LX_AVIREAD_BYTES_STRF), builder.streams[streamNr].format.size());
        EXPECT_EQ(Kept(streamNr, LX_AVIREAD_BYTES_STRF), builder.streams[streamNr].format);
    }
    lxAviRead_StrfVideo_t fixed = {};
    EXPECT_EQ(lxAviReadCore_GetStrfData(0, &fixed), LX_OK);
    EXPECT_EQ(std::memcmp(&fixed, builder.streams[0].format.data(), sizeof fixed), 0);
    ASSERT_EQ(OpenAs(kDefault, file), LX_OK);
    for (UInt32 streamNr = 0; streamNr < 3; ++streamNr) {
        EXPECT_EQ(SizeOf(streamNr, LX_AVIREAD_BYTES_STRF), 0u);
    }
}

TEST_F(KeptChunks, AShortFormatIsGivenAsItIs)
{
    builder.streams[1].format.resize(16); // without cbSize
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(Kept(1, LX_AVIREAD_BYTES_STRF), builder.streams[1].format);
}

TEST_F(KeptChunks, FormatsOfEveryKindOfStreamAreGiven)
{
    builder.Add(VideoStream()).Add(VideoStream()).Add(TextStream());
    builder.streams[2].header.fccType = Code("iavs");
    builder.streams[2].format = Ramp(32);
    builder.streams[3].header.fccType = Code("mids"); // no kind that the reader knows
    builder.streams[3].format = Ramp(20);
    builder.streams[4].format = {};
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(Kept(2, LX_AVIREAD_BYTES_STRF), Ramp(32));
    EXPECT_EQ(Kept(3, LX_AVIREAD_BYTES_STRF), Ramp(20));
    EXPECT_EQ(SizeOf(4, LX_AVIREAD_BYTES_STRF), 0u);
}

TEST_F(KeptChunks, DataNameAndPropertiesAreGivenForEveryStream)
{
    for (Stream& stream : builder.streams) {
        stream.extra = Chunk("strd", Ramp(20)) + Chunk("strn", Text("Commentary")) + Chunk("vprp", Ramp(68)) +
                       Chunk("abcd", Ramp(10));
    }
    const Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    for (const UInt32 streamNr : {0u, 1u}) {
        EXPECT_EQ(Kept(streamNr, LX_AVIREAD_BYTES_STRD), Ramp(20));
        EXPECT_EQ(Kept(streamNr, LX_AVIREAD_BYTES_STRN), Text("Commentary"));
        EXPECT_EQ(Kept(streamNr, LX_AVIREAD_BYTES_VPRP), Ramp(68));
    }
    EXPECT_EQ(Info().StreamInfo[0]->bStrdPresent, 0); // too short for the fixed record
    ASSERT_EQ(OpenAs(kDefault, file), LX_OK);
    for (const UInt32 kind : {LX_AVIREAD_BYTES_STRD, LX_AVIREAD_BYTES_STRN, LX_AVIREAD_BYTES_VPRP}) {
        EXPECT_EQ(SizeOf(0, kind), 0u);
    }
}

TEST_F(KeptChunks, StreamDataOfTheMainVideoIsGivenBesidesTheRecord)
{
    const Bytes data = Ramp(2300);
    builder.streams[0].extra = Chunk("strd", data);
    builder.Add(VideoStream());
    builder.streams[2].extra = Chunk("strd", data);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(Kept(0, LX_AVIREAD_BYTES_STRD), data);
    EXPECT_EQ(Kept(2, LX_AVIREAD_BYTES_STRD), data);
    lxAviRead_StrdVideo_t fixed = {};
    Bool bPresent = 0;
    EXPECT_EQ(lxAviReadCore_GetStrdData(0, &fixed, &bPresent), LX_OK);
    EXPECT_EQ(bPresent, 1);
    EXPECT_EQ(std::memcmp(&fixed, data.data(), sizeof fixed), 0);
}

TEST_F(KeptChunks, TheLastOfTwoChunksIsGiven)
{
    builder.streams[0].extra = Chunk("strn", Text("first")) + Chunk("strn", Text("second")) + Chunk("JUNK", Ramp(5));
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(Kept(0, LX_AVIREAD_BYTES_STRN), Text("second"));
}

TEST_F(KeptChunks, ChunksThatComeAgainTakeNoMoreMemory)
{
    const auto bytesWith = [this](UInt32 count) {
        builder.streams[0].extra = {};
        for (UInt32 i = 0; i < count; ++i) {
            builder.streams[0].extra += Chunk("strn", Ramp(5000));
        }
        EXPECT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
        return Faults().LiveBytes();
    };
    EXPECT_LT(bytesWith(100), bytesWith(1) + 5000);
}

TEST_F(KeptChunks, AChunkIsCutAt64KiBAndTellsItsSize)
{
    for (const UInt32 size : {LX_AVIREAD_KEPT_BYTES, LX_AVIREAD_KEPT_BYTES + 1, 200001u}) {
        builder.streams[0].extra = Chunk("strd", Ramp(size)) + Chunk("strn", Text("behind"));
        ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
        EXPECT_EQ(SizeOf(0, LX_AVIREAD_BYTES_STRD), size);
        EXPECT_EQ(Kept(0, LX_AVIREAD_BYTES_STRD), Ramp(LX_AVIREAD_KEPT_BYTES));
        EXPECT_EQ(Kept(0, LX_AVIREAD_BYTES_STRN), Text("behind"));
    }
}

TEST_F(KeptChunks, AChunkThatClaimsMoreThanItsListEndsWithTheList)
{
    builder.streams[1].extra = ChunkOfSize("strn", 0xFFFFFFF1u, Text("name"));
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(Kept(1, LX_AVIREAD_BYTES_STRN), Text("name"));
    builder.streams[1].extra = ChunkOfSize("strn", 0xFFFFFFFFu, {}); // made even, this size is 0
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(SizeOf(1, LX_AVIREAD_BYTES_STRN), 0u);
}

TEST_F(KeptChunks, ACallerGetsNoMoreBytesThanItHasRoomFor)
{
    builder.streams[0].extra = Chunk("strn", Text("abcdef"));
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    UInt8 buffer[5] = {1, 2, 3, 4, 5};
    UInt32 size = 0;
    EXPECT_EQ(lxAviReadCore_GetStreamBytes(0, LX_AVIREAD_BYTES_STRN, buffer, 4, &size), LX_OK);
    EXPECT_EQ(size, 6u);
    EXPECT_EQ(Bytes(buffer, buffer + 5), Text("abcd") + Fill(1, 5));
}

TEST_F(KeptChunks, ThePadByteOfAChunkIsNotCopied)
{
    builder.streams[0].extra = Chunk("strn", Text("abc"));
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    UInt8 buffer[5] = {1, 2, 3, 4, 5};
    UInt32 size = 0;
    EXPECT_EQ(lxAviReadCore_GetStreamBytes(0, LX_AVIREAD_BYTES_STRN, buffer, 5, &size), LX_OK);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(Bytes(buffer, buffer + 5), (Text("abc") + Bytes{4, 5}));
}

TEST_F(KeptChunks, CarelessCallersOfStreamBytesGetNothing)
{
    UInt8 buffer[4] = {1, 2, 3, 4};
    UInt32 size = 7;
    EXPECT_EQ(SizeOf(0, LX_AVIREAD_BYTES_STRF), 0u); // before Open
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStreamBytes(0, LX_AVIREAD_BYTES_STRF, buffer, 4, Null), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStreamBytes(0, LX_AVIREAD_BYTES_STRF, Null, 4, &size), LX_OK);
    EXPECT_EQ(log.Assertions().size(), 2u);
    EXPECT_EQ(size, 7u);
    for (const UInt32 streamNr : {2u, 16u, 17u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(SizeOf(streamNr, LX_AVIREAD_BYTES_STRF), 0u);
    }
    for (const UInt32 kind : {4u, 0xFFFFFFFFu, Code("strf")}) {
        EXPECT_EQ(SizeOf(0, kind), 0u);
    }
    EXPECT_EQ(Bytes(buffer, buffer + 4), (Bytes{1, 2, 3, 4}));
}

TEST_F(KeptChunks, AFailedOpenAndAResetKeepNothing)
{
    Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    EXPECT_EQ(lxAviReadCore_Reset(), LX_OK);
    EXPECT_EQ(SizeOf(0, LX_AVIREAD_BYTES_STRF), 0u);
    file.resize(static_cast<size_t>(builder.MoviOffset()) - 12); // no media data
    EXPECT_EQ(OpenAs(kFormat, file), LX_ERR_AVIREAD_EOF);
    EXPECT_EQ(SizeOf(0, LX_AVIREAD_BYTES_STRF), 0u);
}

TEST_F(KeptChunks, ASecondParseOfTheOpenFileForgetsTheFirst)
{
    builder.streams[0].extra = Chunk("strn", Text("name"));
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
    Bool ignored = 0;
    ASSERT_EQ(lxAviReadCore_Open(0, "", 1, kPlenty, kDefault, &ignored), LX_OK);
    EXPECT_EQ(SizeOf(0, LX_AVIREAD_BYTES_STRN), 0u);
}

TEST_F(KeptChunks, WithoutMemoryTheOpenFails)
{
    builder.streams[0].extra = Chunk("strn", Text("name"));
    const Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
    UInt32 failed = 0;
    for (UInt32 nth = 1;; ++nth) {
        Faults().FailAllocation(nth);
        const UInt32 result = Open(file, true, 1, kPlenty, kFormat);
        Faults().FailAllocation(1u << 30); // never
        if (result == LX_OK && SizeOf(0, LX_AVIREAD_BYTES_STRN) == 4) {
            break;
        }
        failed += result == LX_ERR_AVIREAD_NO_MEMORY ? 1 : 0;
        EXPECT_EQ(lxAviReadCore_Close(), LX_OK);
        ASSERT_LT(nth, 1000u);
    }
    EXPECT_GE(failed, 3u); // two formats and the name
}

// ---- Texts ----

TEST_F(KeptChunks, TextsOfTheInfoListAreGiven)
{
    builder.beforeMovi =
        List("INFO", Chunk("INAM", Text("The title") + Fill(1, 0)) + Chunk("IART", Text("odd")) +
                         Chunk("ICRD", Text("2026") + Fill(3, 0)) + Chunk("ICMT", {}) + Chunk("INAM", Text("another")));
    builder.behindMovi = List("INFO", Chunk("ISFT", Text("writer")));
    AddMedia(2, 1);
    const Bytes file = builder.Build();
    for (const bool bSeekable : {true, false}) {
        EXPECT_EQ(lxAviReadCore_Close(), LX_OK);
        ASSERT_EQ(Open(file, bSeekable, 1, kPlenty, kFormat), LX_OK);
        EXPECT_EQ(FileText("INAM"), "The title"); // the first of two
        EXPECT_EQ(FileText("IART"), "odd");
        EXPECT_EQ(FileText("ICRD"), "2026");
        EXPECT_EQ(FileText("ICMT"), "");
        EXPECT_EQ(FileText("ISFT"), bSeekable ? "writer" : "");
        EXPECT_EQ(FileText("IGNR"), "");
        EXPECT_EQ(FileText("strf"), ""); // a chunk of a stream is no text
        if (bSeekable) {
            Position();
        }
        EXPECT_EQ(Next().uiResult, LX_OK);
    }
    ASSERT_EQ(OpenAs(kDefault, file), LX_OK);
    EXPECT_EQ(FileText("INAM"), "");
}

TEST_F(KeptChunks, TextsInTheHeaderListAreGiven)
{
    builder.inHeaderList = List("INFO", Chunk("INAM", Text("title")));
    AddMedia(1, 1);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(FileText("INAM"), "title");
}

TEST_F(KeptChunks, TextsAreEnumeratedInTheOrderOfTheFile)
{
    EXPECT_EQ(lxAviReadCore_GetFileTextCode(0), 0u); // no file
    builder.streams[0].extra = Chunk("strn", Text("name"));
    builder.beforeMovi = List("INFO", Chunk("INAM", Text("title")) + Chunk("IART", Text("artist")) +
                                          Chunk("INAM", Text("again")) + Chunk("ISFT", Text("writer")));
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    const char* const expected[] = {"INAM", "IART", "ISFT"};
    for (UInt32 i = 0; i < 3; ++i) {
        EXPECT_EQ(lxAviReadCore_GetFileTextCode(i), Code(expected[i]));
    }
    EXPECT_EQ(lxAviReadCore_GetFileTextCode(3), 0u);
    EXPECT_EQ(lxAviReadCore_GetFileTextCode(~0u), 0u);
    ASSERT_EQ(OpenAs(kDefault, builder.Build()), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetFileTextCode(0), 0u);
}

TEST_F(KeptChunks, ATextIsCutToTheRoomOfTheCaller)
{
    builder.beforeMovi = List("INFO", Chunk("INAM", Text("title")));
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    char buffer[8];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(lxAviReadCore_GetFileText(Code("INAM"), buffer, 3), 5u);
    EXPECT_EQ(std::string_view(buffer, 4), std::string_view("ti\0#", 4));
    EXPECT_EQ(lxAviReadCore_GetFileText(Code("INAM"), buffer, 1), 5u);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(buffer[1], 'i');
    EXPECT_EQ(lxAviReadCore_GetFileText(Code("INAM"), buffer, 0), 5u);
    EXPECT_EQ(lxAviReadCore_GetFileText(Code("INAM"), Null, 0), 5u);
    EXPECT_EQ(log.Assertions().size(), 0u);
    EXPECT_EQ(lxAviReadCore_GetFileText(Code("INAM"), Null, 8), 0u);
    EXPECT_EQ(log.Assertions().size(), 1u);
    EXPECT_EQ(lxAviReadCore_GetFileText(Code("none"), buffer, 8), 0u);
    EXPECT_EQ(buffer[0], '\0');
}

TEST_F(KeptChunks, AtMost64TextsAreKept)
{
    Bytes texts;
    for (char i = 0; i < 70; ++i) {
        texts += Chunk(std::string("IX0") + static_cast<char>('0' + i), Text("x"));
    }
    builder.beforeMovi = List("INFO", texts);
    AddMedia(1, 1);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    const std::string last = std::string("IX0") + static_cast<char>('0' + 63);
    const std::string beyond = std::string("IX0") + static_cast<char>('0' + 64);
    EXPECT_EQ(lxAviReadCore_GetFileText(Code(last), Null, 0), 1u);
    EXPECT_EQ(lxAviReadCore_GetFileText(Code(beyond), Null, 0), 0u);
}

TEST_F(KeptChunks, TextsTogetherHaveAtMost64KiB)
{
    builder.beforeMovi =
        List("INFO", Chunk("INAM", Fill(65000, 'a')) + Chunk("IART", Fill(1000, 'b')) + Chunk("ICMT", Fill(1000, 'c')));
    AddMedia(1, 1);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetFileText(Code("INAM"), Null, 0), 65000u);
    std::string text(2000, '#'); // the lengths are those in the file, also where less is kept
    EXPECT_EQ(lxAviReadCore_GetFileText(Code("IART"), text.data(), 2000), 1000u);
    EXPECT_EQ(std::string_view(text.c_str()), std::string(536, 'b'));
    EXPECT_EQ(lxAviReadCore_GetFileText(Code("ICMT"), text.data(), 2000), 1000u);
    EXPECT_EQ(text[0], '\0');
}

TEST_F(KeptChunks, AChunkThatCannotBeReadCostsItselfAlone)
{
    builder.streams[1].extra = Chunk("strn", Text("earlier")) + Chunk("strn", Ramp(2000)) + Chunk("strd", Text("data"));
    builder.beforeMovi = List("INFO", Chunk("INAM", Ramp(3000)) + Chunk("IART", Text("artist")));
    AddMedia(2, 1);
    const Bytes file = builder.Build();
    for (const UInt32 bytes : {2000u, 3000u}) { // the read of the name, and that of the title
        for (const bool bSeekable : {true, false}) {
            EXPECT_EQ(lxAviReadCore_Close(), LX_OK);
            const auto before = static_cast<std::ptrdiff_t>(Faults().ReadSizes().size());
            ASSERT_EQ(Open(file, bSeekable, 1, kPlenty, kFormat), LX_OK);
            EXPECT_EQ(lxAviReadCore_Close(), LX_OK);
            const auto& sizes = Faults().ReadSizes();
            const auto read = std::find(sizes.begin() + before, sizes.end(), bytes);
            ASSERT_NE(read, sizes.end());
            const auto nth = static_cast<UInt64>(read - sizes.begin() - before + 1);
            Faults().FaultRead(nth, {ReadFault::Kind::ShortThenError, 100});
            const UInt32 result = Open(file, bSeekable, 1, kPlenty, kFormat);
            EXPECT_EQ(result, bSeekable ? LX_OK : LX_ERR_AVIREAD_READ);
            if (result == LX_OK) {
                EXPECT_EQ(SizeOf(1, LX_AVIREAD_BYTES_STRN), bytes == 2000 ? 0u : 2000u);
                EXPECT_EQ(Kept(1, LX_AVIREAD_BYTES_STRD), Text("data"));
                EXPECT_EQ(lxAviReadCore_GetFileText(Code("INAM"), Null, 0), 0u); // it begins with a zero byte
                EXPECT_EQ(FileText("IART"), "artist");
                Position();
                EXPECT_EQ(CountDelivered(), 4u);
            }
        }
    }
}

TEST_F(KeptChunks, DamagedInfoListsDoNotHideTheMediaData)
{
    const Bytes lists[] = {
        ChunkOfSize("LIST", 4, Text("INFO")),
        ChunkOfSize("LIST", 0, Text("INFO")),
        ChunkOfSize("LIST", 11, Text("INFO") + Text("INAM") + Fill(4, 0)),
        List("INFO", ChunkOfSize("INAM", 0xFFFFFFFEu, Text("title"))),
        ChunkOfSize("LIST", 0x40000000, Text("INFO") + Fill(4, 0)), // the walk goes through it 8 bytes at a time
    };
    for (const Bytes& list : lists) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.beforeMovi = list;
        AddMedia(2, 1);
        ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
        EXPECT_EQ(CountDelivered(), 4u);
    }
}

TEST_F(KeptChunks, AnAbortEndsTheWalkOverTheTexts)
{
    builder.beforeMovi = List("INFO", Chunk("INAM", Text("title")));
    const Bytes file = builder.Build();
    const auto info = std::search(file.begin(), file.end(), builder.beforeMovi.begin(), builder.beforeMovi.end());
    Faults().onRead = [&](UInt64) {
        if (ftell(Info().pFile) >= info - file.begin() + 8) {
            EXPECT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
        }
    };
    EXPECT_EQ(OpenAs(kFormat, file), LX_ERR_AVIREAD_ABORTED);
    EXPECT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
}

} // namespace
} // namespace avitest
