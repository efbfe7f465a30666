// Format mode: every chunk of the first RIFF list stands where the sizes before it say.

#include "FormatModeTest.hpp"

namespace avitest {
namespace {

TEST_F(FormatMode, PositionsAreTrueWhateverStandsAround)
{
    const std::pair<const char*, Bytes> pieces[] = {
        {"junk", Chunk("JUNK", Fill(21))},
        {"empty junk", Chunk("JUNK", {})},
        {"unknown", Chunk("abcd", Fill(20))},
        {"empty unknown", Chunk("abcd", {})},
        {"large unknown", Chunk("abcd", Fill(0x40000))},
        {"info", List("INFO", Chunk("ISFT", Text("me")))},
        {"list", List("more", Chunk("abcd", Fill(8)))},
        {"empty list", Chunk("LIST", {})},
        {"mixed", Chunk("abcd", Fill(3)) + Chunk("JUNK", {}) + List("more", Fill(6)) + Chunk("JUNK", Fill(30))},
    };
    UInt32 differences = 0;
    for (const auto& [name, piece] : pieces) {
        for (const bool bBehind : {false, true}) {
            builder = AviBuilder();
            builder.Add(VideoStream()).Add(PcmStream());
            (bBehind ? builder.behindMovi : builder.beforeMovi) = piece;
            AddMedia(10, 5);
            const Bytes file = builder.Build();
            SCOPED_TRACE(std::string(name) + (bBehind ? " behind" : " before"));
            const bool bDefaultWorks = OpenAs(kDefault, file) == LX_OK && lxAviReadCore_ParseIndex(0) == LX_OK &&
                                       Info().moviOffset == builder.MoviOffset();
            differences += bDefaultWorks ? 0 : 1;
            ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
            EXPECT_EQ(Info().moviOffset, builder.MoviOffset());
            EXPECT_EQ(Info().idx1Offset,
                      Find(file, "idx1", static_cast<size_t>(builder.MoviOffset() + builder.MoviSize())) + 8);
            EXPECT_EQ(Info().idx1Size, 20u * 16);
            EXPECT_EQ(Info().pCurrentAvix->moviDataOffset, builder.MoviOffset());
            EXPECT_EQ(TableOffsets(), KeyFrames());
            EXPECT_EQ(CountDelivered(), 20u);
        }
    }
    EXPECT_GE(differences, 9u);
}

TEST_F(FormatMode, AnIndexBeforeTheMediaDataIsFound)
{
    AddMedia(4, 2);
    builder.eIndex = IndexKind::None;
    AviBuilder indexed = builder;
    indexed.eIndex = IndexKind::Idx1Relative;
    const Bytes with = indexed.Build();
    const size_t at = Find(with, "idx1");
    builder.beforeMovi = Bytes(with.begin() + static_cast<long>(at), with.end());
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    EXPECT_EQ(CountDelivered(), 8u);
}

TEST_F(FormatMode, GarbageBeforeTheMediaDataIsSteppedThrough)
{
    builder.beforeMovi = ChunkOfSize("\x01\x02\x03\x04", 0x7FFFFFFF, Fill(48, 0x7E));
    AddMedia(4, 2);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(Info().moviOffset, builder.MoviOffset());
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(FormatMode, ASizeThatWasNeverWrittenHidesNothing)
{
    AddMedia(4, 2);
    Bytes file = builder.Build();
    Patch32(file, 4, 0); // size of the RIFF list
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    Patch32(file, Find(file, "movi") - 4, 0); // size of the movi list
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    Position();
    EXPECT_EQ(Info().moviOffset, builder.MoviOffset());
    bPayloadsMayBeCut = true;
    EXPECT_GE(CountDelivered(), 8u);
}

TEST_F(FormatMode, TheNextListEndsTheFirst)
{
    AddSegments(2, 4, 2);
    Bytes file = builder.Build();
    builder.eIndex = IndexKind::None;
    file = builder.Build();
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    EXPECT_EQ(Info().idx1Size, 0u);
    Position();
    EXPECT_EQ(CountDelivered(), 16u);

    const Bytes headersAlone = Riff("AVI ", List("hdrl", Chunk("avih", Fill(56, 0)))) + Riff("AVIX", List("movi", {}));
    EXPECT_EQ(OpenAs(kFormat, headersAlone), LX_ERR_AVIREAD_EOF);
    EXPECT_TRUE(log.Has(0x8180, "Unexpected end of file. Didn't meet the movi chunk"));
}

TEST_F(FormatMode, AFileThatEndsBehindTheMediaDataOpens)
{
    for (const Bytes& tail : {ChunkOfSize("JUNK", 500, Fill(20)), ChunkOfSize("abcd", 0x50000, Fill(20)),
                              ChunkOfSize("LIST", 500, Text("INFO") + Fill(20)), ChunkOfSize("LIST", 0, {}),
                              Text("LIS"), ChunkOfSize("LIST", 500, {})}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = IndexKind::None;
        builder.behindMovi = tail;
        AddMedia(4, 2);
        const Bytes file = builder.Build();
        ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
        EXPECT_EQ(Info().moviOffset, builder.MoviOffset());
        Position();
        EXPECT_EQ(CountDelivered(), 8u);
    }
}

TEST_F(FormatMode, TheEndOfAListIsExact)
{
    for (const size_t last : {0u, 1u, 2u, 3u, 4u}) {
        builder = AviBuilder();
        builder.Add(VideoStream());
        builder.Frame(0, Fill(8), true).Frame(0, Fill(last), false);
        const Bytes file = builder.Build();
        ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
        EXPECT_EQ(CountDelivered(), last >= 3 ? 2u : 1u); // the builder pads odd sizes
        ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
        EXPECT_EQ(CountDelivered(), 2u);
    }
}

TEST_F(FormatMode, OffsetsAreAbsoluteFromOpenOn)
{
    AddMedia(4, 2);
    const Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kDefault, file), LX_OK);
    EXPECT_EQ(Info().CurrentOffset, 4u);
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    EXPECT_EQ(Info().bAbsoluteOffsets, 1);
    EXPECT_EQ(Info().CurrentOffset, builder.MoviOffset());
    Position();
    EXPECT_EQ(CountDelivered(), 8u); // without parsing the index
    lxAviReadCore_RewindToStart();
    EXPECT_EQ(Info().CurrentOffset, builder.MoviOffset());
    EXPECT_EQ(CountDelivered(), 8u);
}

TEST_F(FormatMode, AnInputThatCannotSeekIsDeliveredWhole)
{
    AddSegments(1, 6, 2);
    const Bytes file = builder.Build();
    indxOptionOfOpen = kFormat;
    ASSERT_EQ(Open(file, false), LX_OK);
    EXPECT_EQ(lxalAviRead_FileSeekPossible, 0);
    EXPECT_EQ(CountDelivered(), 12u);
}

TEST_F(FormatMode, ATailOfZerosDoesNotHoldOpenUp)
{
    builder.eIndex = IndexKind::None;
    AddMedia(4, 2);
    Bytes file = builder.Build();
    Patch32(file, 4, 0); // removes the RIFF size, which would show where the list ends
    file.resize(file.size() + (8u << 20), 0);
    Faults().SetBuffered(true);
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    EXPECT_LT(Faults().Reads(), 400000 * kCallsOfAWord); // a walk over all zeros would need more than two million words
    Position();
    EXPECT_EQ(CountDelivered(), 8u);
}

TEST_F(FormatMode, MediaDataWithoutTheirSizeEndWhereSomethingElseBegins)
{
    AddMedia(4, 2);
    const Bytes whole = builder.Build();
    for (const UInt32 size : {0u, 2u, 4u}) {
        for (const bool bRiffToo : {false, true}) {
            Bytes file = whole;
            Patch32(file, Find(file, "movi") - 4, size);
            Patch32(file, 4, bRiffToo ? 0 : Get32(file, 4));
            ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
            EXPECT_EQ(Info().moviSize, builder.MoviSize());
            EXPECT_EQ(TableOffsets(), KeyFrames());
            EXPECT_EQ(CountDelivered(), 8u);
            ExpectEverySeekLands();
        }
    }
    const Bytes cut(whole.begin(), whole.begin() + static_cast<long>(builder.MediaItems()[5].uiOffset + 4));
    Bytes unfinished = cut;
    Patch32(unfinished, Find(unfinished, "movi") - 4, 0);
    ASSERT_EQ(OpenAs(kFormat, unfinished), LX_OK);
    Position();
    EXPECT_EQ(CountDelivered(), 5u);
}

TEST_F(FormatMode, AFileCutInsideItsMediaDataPlaysUpToThere)
{
    for (const UInt32 frames : {4u, 400u}) { // a few KB, and more than 256 KiB
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        AddMedia(frames, 2);
        const Bytes whole = builder.Build();
        for (const bool bMeasured : {false, true}) {
            // cuts the file inside an audio chunk
            Bytes cut(whole.begin(), whole.begin() + static_cast<long>(builder.MediaItems()[6].uiOffset + 100));
            Patch32(cut, Find(cut, "movi") - 4, bMeasured ? 0 : Get32(cut, Find(cut, "movi") - 4));
            ASSERT_EQ(OpenAs(kFormat, cut), LX_OK);
            EXPECT_EQ(Info().moviOffset, builder.MoviOffset());
            Position();
            bPayloadsMayBeCut = true;
            EXPECT_EQ(CountDelivered(), 7u); // the last chunk in part
        }
    }
}

TEST_F(FormatMode, FurtherMediaDataInTheFirstListGoOnWithThem)
{
    AddMedia(4, 2);
    builder.behindMovi = List("movi", Chunk("00dc", Fill(10, 0x77)) + Chunk("01wb", Fill(8)));
    const Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    EXPECT_EQ(Info().pCurrentAvix->pPrevAvix, nullptr); // delivery begins in the first list
    ASSERT_NE(Info().pCurrentAvix->pNextAvix, nullptr);
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(Info().moviOffset, builder.MoviOffset());
    EXPECT_EQ(Info().moviSize, builder.MoviSize());
    EXPECT_EQ(CountDelivered(), 10u);
    ExpectEverySeekLands();

    // media data behind the RIFF list are leftovers of an earlier file
    builder.behindMovi.clear();
    builder.eIndex = IndexKind::None;
    Bytes leftover = builder.Build() + List("movi", Chunk("00dc", Fill(10, 0x77)));
    Patch32(leftover, 4, Get32(leftover, 4) - 2); // the size is too small, so the walk continues behind the list
    ASSERT_EQ(OpenAs(kFormat, leftover), LX_OK);
    Position();
    EXPECT_EQ(CountDelivered(), 8u);
}

TEST_F(FormatMode, ListsThatDoNotKnowTheirSizeAreChained)
{
    builder.eIndex = IndexKind::None;
    AddSegments(3, 4, 2);
    const Bytes whole = builder.Build();
    for (const UInt32 size : {0u, Get32(whole, 4) + 8, Get32(whole, 4) + 100}) {
        Bytes file = whole;
        Patch32(file, 4, size);
        ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
        Position();
        EXPECT_EQ(CountDelivered(), 24u);
    }
    Bytes last = whole;
    const size_t third = Find(last, "AVIX", Find(last, "AVIX") + 4) - 4;
    for (const UInt32 size : {0u, 4u, 11u}) {
        Patch32(last, third, size);
        ASSERT_EQ(OpenAs(kFormat, last), LX_OK);
        Position();
        EXPECT_EQ(CountDelivered(), 24u);
    }
}

TEST_F(FormatMode, AListWithoutRoomForItsTypeHasNone)
{
    builder.beforeMovi = ChunkOfSize("LIST", 0, {}) + ChunkOfSize("LIST", 2, Fill(2)) +
                         ChunkOfSize("LIST", 0, Text("INFO")) + Chunk("ISFT", Text("a tool")) +
                         ChunkOfSize("LIST", 4, Text("hdrl"));
    AddMedia(4, 2);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(Info().moviOffset, builder.MoviOffset());
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(FormatMode, AHeaderListHoldsItsTypeAtLeast)
{
    builder.beforeMovi = ChunkOfSize("LIST", 4, Text("hdrl"));
    AddMedia(4, 2);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(log.Count("AviReadCore : Found header LIST chunk"), 2u);
}

TEST_F(FormatMode, OfStrayChunksOnlyWhatIsLargeAndHasNoRoomIsGarbage)
{
    constexpr UInt32 kLargestStray = 0x38000;
    const Bytes decoy = List("movi", Chunk("00dc", Fill(4)));
    builder.eIndex = IndexKind::None;
    AddMedia(4, 2);
    const auto foundDecoy = [&](UInt32 size, Int32 room) {
        builder.beforeMovi = Chunk("abcd", decoy + Fill(size - decoy.size()));
        Bytes file = builder.Build();
        const auto behind = static_cast<UInt32>(Find(file, "abcd") + 8 + size);
        Patch32(file, 4, behind - 8 + static_cast<UInt32>(room));
        EXPECT_EQ(OpenAs(kFormat, file), LX_OK);
        return Info().moviOffset != builder.MoviOffset();
    };
    EXPECT_FALSE(foundDecoy(kLargestStray, -100));
    EXPECT_TRUE(foundDecoy(kLargestStray + 2, -2));
    EXPECT_FALSE(foundDecoy(kLargestStray + 2, 0));
    EXPECT_FALSE(foundDecoy(kLargestStray + 2, 100));
}

TEST_F(FormatMode, AnIndexAloneIsNoEndOfTheWalk)
{
    const Bytes headers = List("hdrl", Chunk("avih", Fill(56, 0)));
    EXPECT_EQ(OpenAs(kFormat, Riff("AVI ", headers + Chunk("idx1", Fill(16)))), LX_ERR_AVIREAD_EOF);

    builder.behindIdx1 = List("movi", Chunk("00dc", Fill(10, 0x77)) + Chunk("01wb", Fill(8)));
    AddMedia(4, 2);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    Position();
    EXPECT_EQ(CountDelivered(), 10u);
}

TEST_F(FormatMode, MediaDataDirectlyBehindTheListAreNotOfIt)
{
    builder.eIndex = IndexKind::None;
    builder.behindMovi = Chunk("JUNK", Fill(20));
    AddMedia(4, 2);
    ASSERT_EQ(OpenAs(kFormat, builder.Build() + List("movi", Chunk("00dc", Fill(10, 0x77)))), LX_OK);
    Position();
    EXPECT_EQ(CountDelivered(), 8u);
}

TEST_F(FormatMode, AnInputThatCannotSeekIsReadOverTheLargestSize)
{
    builder.beforeMovi = ChunkOfSize("idx1", 0xFFFFFFFE, {});
    AddMedia(4, 2);
    indxOptionOfOpen = kFormat;
    EXPECT_EQ(Open(builder.Build(), false), LX_ERR_AVIREAD_EOF);
}

TEST_F(FormatMode, TheStartOfTheFileIsAPositionToo)
{
    AddMedia(2, 1);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    Bytes buffer(18000);
    LendBuffer(buffer);
    Info().uiMaxRecordsInBuffer = 1125;
    UInt32 skip = 0, leafs = 0, memory = 0, keyFrames = 0;
    EXPECT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
    const UInt64 seeks = Faults().Seeks();
    static_cast<void>(lxAviReadCore_PreParseIdx1Chunk(&Info(), 16, &skip, &leafs, &memory, &keyFrames));
    EXPECT_GE(Faults().Seeks(), seeks + 2); // the seeks that find the base, and the seek back
    Info().pMetaDataBuffer = nullptr;
}

TEST_F(FormatMode, AnIndexThatHasToWaitIsNoFailure)
{
    const Bytes payload = U16(2) + Bytes{0, 1} + U32(1) + Text("01wb") + Fill(12, 0) + U32(8) + U32(4);
    builder.eIndex = IndexKind::None;
    builder.Raw(payload);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), builder.MoviOffset(), 0), 1);
    EXPECT_EQ(
        lxAvi2ReadCore_ParseChunkIndx(0, &Info(), static_cast<UInt32>(payload.size()), Info().StreamInfo[1], kFormat),
        LX_OK);
    EXPECT_EQ(Info().StreamInfo[1]->bIndexParsed, 0);
}

TEST_F(FormatMode, AnAudioIndexBeforeTheVideosWaits)
{
    builder = AviBuilder();
    builder.Add(PcmStream()).Add(VideoStream());
    builder.eIndex = IndexKind::OneLevelStandard;
    builder.Audio(0, Fill(640)).Frame(1, Fill(10), true);
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(Info().StreamInfo[0]->bIndexParsed, 0);
    EXPECT_EQ(Info().StreamInfo[1]->bIndexParsed, 1);
}

TEST_F(FormatMode, AnInputThatCannotSeekCannotGoBackBehindAnEmptyList)
{
    builder.beforeMovi = ChunkOfSize("LIST", 0, {});
    AddMedia(4, 2);
    indxOptionOfOpen = kFormat;
    EXPECT_EQ(Open(builder.Build(), false), LX_ERR_AVIREAD_SEEK);

    builder.beforeMovi = ChunkOfSize("LIST", 2, Text("hdrl"));
    EXPECT_NE(Open(builder.Build(), false), LX_OK);

    builder.beforeMovi.clear();
    Bytes unfinished = builder.Build();
    Patch32(unfinished, Find(unfinished, "movi") - 4, 0);
    ASSERT_EQ(Open(unfinished, false), LX_OK);
    EXPECT_EQ(Info().moviSize, 0xFFFFFFFEu);
    EXPECT_GE(CountDelivered(), 8u);
}

TEST_F(FormatMode, TheFirstOfTwoIndexesCounts)
{
    AddMedia(4, 2);
    builder.behindIdx1 = Chunk("idx1", Fill(32));
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(Info().idx1Size, 8u * 16);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(FormatMode, MediaDataOfEveryKindAreMeasured)
{
    builder.Media("JUNK", Fill(6), false, false)
        .Media("ix00", Fill(6), false, false)
        .Raw(List("rec ", Chunk("00dc", Fill(8))));
    AddMedia(2, 1);
    Bytes file = builder.Build();
    Patch32(file, Find(file, "movi") - 4, 0);
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    EXPECT_EQ(Info().moviSize, builder.MoviSize());
}

TEST_F(FormatMode, WithoutRoomForTheMainHeaderAFileOfNoStreamsOpens)
{
    builder = AviBuilder();
    builder.dmlhTotalFrames = 7;
    Bytes file = builder.Build();
    std::memcpy(file.data() + Find(file, "avih"), "none", 4);
    for (const UInt8 as : {kDefault, kFormat}) {
        ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
        Faults().FailAllocation(2); // the main header's record
        ASSERT_EQ(lxAviReadCore_Alloc(0), LX_ERR_AVIREAD_NO_MEMORY);
        Faults().FailAllocation(1); // the second allocation, when Open completes the records
        indxOptionOfOpen = as;
        ASSERT_EQ(Open(file), LX_OK);
        EXPECT_EQ(Info().AviHdr, nullptr);
        EXPECT_EQ(Info().dmlhTotalFrames, 7u);
        EXPECT_EQ(lxAviReadCore_GetStreamTime(0, 10, 0), 0u);
    }
}

TEST_F(FormatMode, AnInputThatCannotSeekIsNotReadForItsIndex)
{
    AddMedia(4, 2);
    AviBuilder indexed = builder;
    const Bytes with = indexed.Build();
    builder.beforeMovi = Bytes(with.begin() + static_cast<long>(Find(with, "idx1")), with.end());
    builder.eIndex = IndexKind::None;
    indxOptionOfOpen = kFormat;
    ASSERT_EQ(Open(builder.Build(), false), LX_OK);
    EXPECT_EQ(Info().idx1Size, 8u * 16);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_EQ(CountDelivered(), 8u);
}

} // namespace
} // namespace avitest
