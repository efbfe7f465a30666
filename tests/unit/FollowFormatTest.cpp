// The option that follows the published formats: for each rule a file on which the default and the option differ, read
// in both ways.

#include "ReaderTest.hpp"

#include <numeric>

namespace avitest {
namespace {

constexpr UInt8 kDefault = 1;
constexpr UInt8 kFollow = LX_AVIREAD_FOLLOW_FORMAT | 1;

class FollowFormat : public ReaderTest {
protected:
    AviBuilder builder;

    FollowFormat() { builder.Add(VideoStream()).Add(PcmStream()); }

    // `count` frames of 10 bytes, a key frame every `step`; 40 ms of audio before each.
    void AddMedia(UInt32 count, UInt32 step)
    {
        for (UInt32 i = 0; i < count; ++i) {
            builder.Audio(1, Fill(640, static_cast<UInt8>(i))).Frame(0, Fill(10, static_cast<UInt8>(i)), i % step == 0);
        }
    }

    void AddSegments(UInt32 segments, UInt32 count, UInt32 step)
    {
        builder.dmlhTotalFrames = segments * count + 1;
        for (UInt32 i = 0; i < segments; ++i) {
            AddMedia(count, step);
            if (i + 1 < segments) {
                builder.NextRiff();
            }
        }
    }

    UInt32 OpenAs(UInt8 as, const Bytes& file)
    {
        EXPECT_EQ(lxAviReadCore_Close(), LX_OK);
        log.Clear();
        indxOptionOfOpen = as;
        return Open(file);
    }

    UInt32 ParseAs(UInt8 as, const Bytes& file)
    {
        EXPECT_EQ(OpenAs(as, file), LX_OK);
        const UInt32 result = lxAviReadCore_ParseIndex(0);
        Position();
        return result;
    }

    // Positions of the media items of a stream, key frames of the video stream alone.
    std::vector<UInt64> KeyFrames() const
    {
        std::vector<UInt64> offsets;
        for (const MediaItem& item : builder.MediaItems()) {
            if (item.code.substr(0, 2) == "00" && item.bKey) {
                offsets.push_back(item.uiOffset);
            }
        }
        return offsets;
    }

    std::vector<UInt64> TableOffsets()
    {
        std::vector<UInt64> offsets;
        for (const auto& entry : Table()) {
            offsets.push_back(entry.videoChunkOffset);
        }
        return offsets;
    }

    UInt32 CountDelivered()
    {
        UInt32 count = 0;
        for (const Delivered& got : All()) {
            count += got.uiResult == LX_OK ? 1 : 0;
        }
        return count;
    }

    // After a seek to each key frame: it is delivered first of all video, and its audio comes before it or with it.
    void ExpectEverySeekLands()
    {
        const auto table = Table();
        for (const auto& entry : table) {
            ASSERT_EQ(lxAviReadCore_SeekToTime(static_cast<UInt32>(entry.timeMsec), 0, lxAviRead_SetPosRoundDown),
                      entry.timeMsec);
            Delivered got = NextValid();
            const bool bAudioFirst = got.chunk.eStreamType == LX_AVIREAD_STREAM_AUDIO;
            while (got.uiResult == LX_OK && got.chunk.eStreamType != LX_AVIREAD_STREAM_VIDEO) {
                got = NextValid();
            }
            ASSERT_EQ(got.uiResult, LX_OK);
            EXPECT_EQ(got.chunk.bKeyFrame, 1);
            EXPECT_EQ(got.chunk.uiFrameNumber, entry.videoFrameNumber);
            EXPECT_EQ(got.uiPosition, entry.videoChunkOffset);
            EXPECT_TRUE(bAudioFirst);
        }
    }
};

TEST_F(FollowFormat, IsABitOfTheOptionAndNotTheDefault)
{
    EXPECT_EQ(LX_AVIREAD_FOLLOW_FORMAT, 0x80u);
    AddMedia(2, 1);
    ASSERT_EQ(OpenAs(kFollow, builder.Build()), LX_OK);
    EXPECT_EQ(Info().IndxOption, 0x81);
    ASSERT_EQ(lxAviReadCore_Reset(), LX_OK);
    EXPECT_EQ(Info().IndxOption, 1);
}

// ---- Index chunks ----

TEST_F(FollowFormat, RecordsOfIndexChunksBeginBehindTheHeader)
{
    for (const IndexKind eKind : {IndexKind::SuperStandard, IndexKind::SuperField}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = eKind;
        builder.eLayout = IxLayout::At32;
        AddSegments(3, 12, 4);
        const Bytes file = builder.Build();
        static_cast<void>(ParseAs(kDefault, file));
        EXPECT_NE(Info().KeyFramesListAsArray[0]->array[0].videoChunkOffset, KeyFrames()[0]);
        ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
        EXPECT_EQ(TableOffsets(), KeyFrames());
        ASSERT_EQ(Table().size(), 9u);
        EXPECT_EQ(Table()[4].videoFrameNumber, 16u);
        EXPECT_EQ(Table()[4].audioFrameNumber[0], 16u); // 40 ms each: this one begins at 640 ms, too
        EXPECT_EQ(Table()[4].audioBytePosition[0], 16u * 640);
        ExpectEverySeekLands();
        EXPECT_EQ(lxAviReadCore_SeekToTime(0, 0, lxAviRead_SetPosRoundDown), 0u);
        EXPECT_EQ(CountDelivered(), 72u);
    }
}

TEST_F(FollowFormat, AMisplacedIndexChunkIsReportedAtOnce)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    AddMedia(3000, 10);
    Bytes file = builder.Build();
    const size_t entry = Find(file, "indx") + 8 + 24;
    Patch32(file, entry, static_cast<UInt32>(builder.MoviOffset()));
    EXPECT_EQ(ParseAs(kDefault, file), LX_ERR_AVIREAD_EOF);
    ASSERT_EQ(OpenAs(kFollow, file), LX_OK);
    const UInt64 reads = Faults().Reads();
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_LE(Faults().Reads(), reads + 1);
}

TEST_F(FollowFormat, AnIndexOfAnotherStreamIsUnusable)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    AddMedia(4, 2);
    Bytes file = builder.Build();
    file[Find(file, "ix00") + 3] = '1';
    EXPECT_EQ(ParseAs(kFollow, file), LX_ERR_AVIREAD_INDEX_STREAM);
}

TEST_F(FollowFormat, AnIndexChunkHasNoMoreRecordsThanRoom)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    AddMedia(12, 4);
    Bytes file = builder.Build();
    Patch32(file, Find(file, "ix00") + 12, 100);
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    Patch32(file, Find(file, "ix00") + 4, 23); // not even its own fields
    EXPECT_EQ(ParseAs(kFollow, file), LX_ERR_AVIREAD_NO_INDEX);
}

TEST_F(FollowFormat, EntriesMadeInAdvanceAreNotUsed)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    AddSegments(3, 12, 4);
    Bytes file = builder.Build();
    const size_t second = Find(file, "indx") + 8 + 24 + 16;
    Patch32(file, second, 0);
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(Table().size(), 6u);

    Patch32(file, second + 4, 0x80000000u); // where no file reaches
    EXPECT_EQ(ParseAs(kFollow, file), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_EQ(lxalAviRead_FileSeekPossible, 1);
}

TEST_F(FollowFormat, AnUnusableAudioIndexCostsTheTrackAlone)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    builder.Add(PcmStream());
    for (UInt32 i = 0; i < 12; ++i) {
        builder.Audio(1, Fill(640)).Audio(2, Fill(640)).Frame(0, Fill(10), i % 4 == 0);
    }
    for (const bool bIdx1Too : {false, true}) {
        builder.bIdx1Too = bIdx1Too;
        Bytes file = builder.Build();
        const size_t second = Find(file, "indx", Find(file, "indx") + 4);
        Patch32(file, second + 8 + 24, 400); // of the first audio stream
        ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
        EXPECT_EQ(TableOffsets(), KeyFrames());
        EXPECT_EQ(Entry(0, 1).audioChunkOffset[0], bIdx1Too ? builder.MediaItems()[12].uiOffset : 0u);
        EXPECT_EQ(Entry(0, 1).audioChunkOffset[1], builder.MediaItems()[13].uiOffset);
    }
}

TEST_F(FollowFormat, AnAudioIndexBelongsToTheStreamThatHoldsIt)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    AddMedia(12, 4);
    Bytes file = builder.Build();
    Patch32(file, Find(file, "indx", Find(file, "indx") + 4) + 8 + 8, 0); // its chunk id
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(Entry(0, 1).audioChunkOffset[0], builder.MediaItems()[8].uiOffset);
}

TEST_F(FollowFormat, ASuperIndexHasNoMoreEntriesThanRoom)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    AddMedia(4, 2);
    Bytes file = builder.Build();
    Patch32(file, Find(file, "indx") + 8 + 4, 1000);
    EXPECT_NE(OpenAs(kDefault, file), LX_OK);
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(Info().StreamInfo[0]->IndxChunk.aviIndxcommonSection.uiEntriesInUse, 1u);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

// ---- 64 bits ----

TEST_F(FollowFormat, SeeksTakeTheWholeOffset)
{
    AddMedia(1, 1);
    const Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kDefault, file), LX_OK);
    EXPECT_EQ(lxAviReadCore_FileSeek(&Info(), 0x80000000u, 0), 0);
    ASSERT_EQ(OpenAs(kFollow, file), LX_OK);
    for (const UInt64 offset : {0x80000000ull, 0xFFFFFFFFull, (7ull << 32) + 100}) {
        ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), offset, 0), 1);
        EXPECT_EQ(static_cast<UInt64>(ftello64(Info().pFile)), offset);
    }
    EXPECT_EQ(lxAviReadCore_FileSeek(&Info(), 100, 0), 1);
    EXPECT_EQ(lxAviReadCore_FileSeek(&Info(), UInt64{0} - 60, 1), 1); // back from here
    EXPECT_EQ(ftello64(Info().pFile), 40);
}

TEST_F(FollowFormat, OffsetsKeepTheHighWordOfTheirBase)
{
    builder.eIndex = IndexKind::SuperStandard;
    AddMedia(1, 1);
    for (const UInt8 as : {kDefault, kFollow}) {
        builder.eLayout = as == kFollow ? IxLayout::At32 : IxLayout::At36;
        Bytes file = builder.Build();
        Patch32(file, Find(file, "ix00") + 24, 2); // the base moves by 8 GiB
        ASSERT_EQ(ParseAs(as, file), LX_OK);
        EXPECT_EQ(Entry(0, 0).videoChunkOffset, KeyFrames()[0] + (as == kFollow ? 2ull << 32 : 0));
    }
}

// ---- Positions ----

TEST_F(FollowFormat, PositionsAreTrueWhateverStandsAround)
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
            ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
            EXPECT_EQ(Info().moviOffset, builder.MoviOffset());
            EXPECT_EQ(Info().idx1Offset, Find(file, "idx1", static_cast<size_t>(builder.MoviOffset() + builder.MoviSize())) + 8);
            EXPECT_EQ(Info().idx1Size, 20u * 16);
            EXPECT_EQ(Info().pCurrentAvix->moviDataOffset, builder.MoviOffset());
            EXPECT_EQ(TableOffsets(), KeyFrames());
            EXPECT_EQ(CountDelivered(), 20u);
        }
    }
    EXPECT_GE(differences, 9u);
}

TEST_F(FollowFormat, AnIndexBeforeTheMediaDataIsFound)
{
    AddMedia(4, 2);
    builder.eIndex = IndexKind::None;
    AviBuilder indexed = builder;
    indexed.eIndex = IndexKind::Idx1Relative;
    const Bytes with = indexed.Build();
    const size_t at = Find(with, "idx1");
    builder.beforeMovi = Bytes(with.begin() + static_cast<long>(at), with.end());
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    EXPECT_EQ(CountDelivered(), 8u);
}

TEST_F(FollowFormat, GarbageBeforeTheMediaDataIsSteppedThrough)
{
    builder.beforeMovi = ChunkOfSize("\x01\x02\x03\x04", 0x7FFFFFFF, Fill(48, 0x7E));
    AddMedia(4, 2);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(Info().moviOffset, builder.MoviOffset());
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(FollowFormat, ASizeThatWasNeverWrittenHidesNothing)
{
    AddMedia(4, 2);
    Bytes file = builder.Build();
    Patch32(file, 4, 0); // of the RIFF list
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    Patch32(file, Find(file, "movi") - 4, 0); // and of the media data
    ASSERT_EQ(OpenAs(kFollow, file), LX_OK);
    Position();
    EXPECT_EQ(Info().moviOffset, builder.MoviOffset());
    bPayloadsMayBeCut = true;
    EXPECT_GE(CountDelivered(), 8u);
}

TEST_F(FollowFormat, TheNextListEndsTheFirst)
{
    AddSegments(2, 4, 2);
    Bytes file = builder.Build();
    builder.eIndex = IndexKind::None;
    file = builder.Build();
    ASSERT_EQ(OpenAs(kFollow, file), LX_OK);
    EXPECT_EQ(Info().idx1Size, 0u);
    Position();
    EXPECT_EQ(CountDelivered(), 16u);

    const Bytes headersAlone = Riff("AVI ", List("hdrl", Chunk("avih", Fill(56, 0)))) + Riff("AVIX", List("movi", {}));
    EXPECT_EQ(OpenAs(kFollow, headersAlone), LX_ERR_AVIREAD_EOF);
    EXPECT_TRUE(log.Has(0x8180, "Unexpected end of file. Didn't meet the movi chunk"));
}

TEST_F(FollowFormat, AFileThatEndsBehindTheMediaDataOpens)
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
        ASSERT_EQ(OpenAs(kFollow, file), LX_OK);
        EXPECT_EQ(Info().moviOffset, builder.MoviOffset());
        Position();
        EXPECT_EQ(CountDelivered(), 8u);
    }
}

TEST_F(FollowFormat, TheEndOfAListIsExact)
{
    for (const size_t last : {0u, 1u, 2u, 3u, 4u}) {
        builder = AviBuilder();
        builder.Add(VideoStream());
        builder.Frame(0, Fill(8), true).Frame(0, Fill(last), false);
        const Bytes file = builder.Build();
        ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
        EXPECT_EQ(CountDelivered(), last >= 3 ? 2u : 1u); // an odd size is padded
        ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
        EXPECT_EQ(CountDelivered(), 2u);
    }
}

TEST_F(FollowFormat, OffsetsAreAbsoluteFromOpenOn)
{
    AddMedia(4, 2);
    const Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kDefault, file), LX_OK);
    EXPECT_EQ(Info().CurrentOffset, 4u);
    ASSERT_EQ(OpenAs(kFollow, file), LX_OK);
    EXPECT_EQ(Info().bAbsoluteOffsets, 1);
    EXPECT_EQ(Info().CurrentOffset, builder.MoviOffset());
    Position();
    EXPECT_EQ(CountDelivered(), 8u); // without any index
    lxAviReadCore_RewindToStart();
    EXPECT_EQ(Info().CurrentOffset, builder.MoviOffset());
    EXPECT_EQ(CountDelivered(), 8u);
}

TEST_F(FollowFormat, AnInputThatCannotSeekIsDeliveredWhole)
{
    AddSegments(1, 6, 2);
    const Bytes file = builder.Build();
    indxOptionOfOpen = kFollow;
    ASSERT_EQ(Open(file, false), LX_OK);
    EXPECT_EQ(lxalAviRead_FileSeekPossible, 0);
    EXPECT_EQ(CountDelivered(), 12u);
}

TEST_F(FollowFormat, ATailOfZerosDoesNotHoldOpenUp)
{
    builder.eIndex = IndexKind::None;
    AddMedia(4, 2);
    Bytes file = builder.Build();
    Patch32(file, 4, 0); // what the list's size would tell
    file.resize(file.size() + (8u << 20), 0);
    Faults().SetBuffered(true);
    ASSERT_EQ(OpenAs(kFollow, file), LX_OK);
    EXPECT_LT(Faults().Reads(), 400000u); // of more than two million
    Position();
    EXPECT_EQ(CountDelivered(), 8u);
}

TEST_F(FollowFormat, MediaDataWithoutTheirSizeEndWhereSomethingElseBegins)
{
    AddMedia(4, 2);
    const Bytes whole = builder.Build();
    for (const UInt32 size : {0u, 2u, 4u}) {
        for (const bool bRiffToo : {false, true}) {
            Bytes file = whole;
            Patch32(file, Find(file, "movi") - 4, size);
            Patch32(file, 4, bRiffToo ? 0 : Get32(file, 4));
            ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
            EXPECT_EQ(Info().moviSize, builder.MoviSize());
            EXPECT_EQ(TableOffsets(), KeyFrames());
            EXPECT_EQ(CountDelivered(), 8u);
            ExpectEverySeekLands();
        }
    }
    const Bytes cut(whole.begin(), whole.begin() + static_cast<long>(builder.MediaItems()[5].uiOffset + 4));
    Bytes unfinished = cut;
    Patch32(unfinished, Find(unfinished, "movi") - 4, 0);
    ASSERT_EQ(OpenAs(kFollow, unfinished), LX_OK);
    Position();
    EXPECT_EQ(CountDelivered(), 5u);
}

TEST_F(FollowFormat, AFileCutInsideItsMediaDataPlaysUpToThere)
{
    for (const UInt32 frames : {4u, 400u}) { // a few KB, and more than a quarter of a MiB
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        AddMedia(frames, 2);
        const Bytes whole = builder.Build();
        for (const bool bMeasured : {false, true}) {
            Bytes cut(whole.begin(), whole.begin() + static_cast<long>(builder.MediaItems()[6].uiOffset + 100)); // in audio
            Patch32(cut, Find(cut, "movi") - 4, bMeasured ? 0 : Get32(cut, Find(cut, "movi") - 4));
            ASSERT_EQ(OpenAs(kFollow, cut), LX_OK);
            EXPECT_EQ(Info().moviOffset, builder.MoviOffset());
            Position();
            bPayloadsMayBeCut = true;
            EXPECT_EQ(CountDelivered(), 7u); // the last one in part
        }
    }
}

TEST_F(FollowFormat, FurtherMediaDataInTheFirstListGoOnWithThem)
{
    AddMedia(4, 2);
    builder.behindMovi = List("movi", Chunk("00dc", Fill(10, 0x77)) + Chunk("01wb", Fill(8)));
    const Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kFollow, file), LX_OK);
    EXPECT_EQ(Info().pCurrentAvix->pPrevAvix, nullptr); // delivery begins in the first
    ASSERT_NE(Info().pCurrentAvix->pNextAvix, nullptr);
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(Info().moviOffset, builder.MoviOffset());
    EXPECT_EQ(Info().moviSize, builder.MoviSize());
    EXPECT_EQ(CountDelivered(), 10u);
    ExpectEverySeekLands();

    // behind the list they are what an earlier file has left
    builder.behindMovi.clear();
    builder.eIndex = IndexKind::None;
    Bytes leftover = builder.Build() + List("movi", Chunk("00dc", Fill(10, 0x77)));
    Patch32(leftover, 4, Get32(leftover, 4) - 2); // the walk goes on behind a size that is too small
    ASSERT_EQ(OpenAs(kFollow, leftover), LX_OK);
    Position();
    EXPECT_EQ(CountDelivered(), 8u);
}

TEST_F(FollowFormat, ListsThatDoNotKnowTheirSizeAreChained)
{
    builder.eIndex = IndexKind::None;
    AddSegments(3, 4, 2);
    const Bytes whole = builder.Build();
    for (const UInt32 size : {0u, Get32(whole, 4) + 8, Get32(whole, 4) + 100}) {
        Bytes file = whole;
        Patch32(file, 4, size);
        ASSERT_EQ(OpenAs(kFollow, file), LX_OK);
        Position();
        EXPECT_EQ(CountDelivered(), 24u);
    }
    Bytes last = whole;
    const size_t third = Find(last, "AVIX", Find(last, "AVIX") + 4) - 4;
    for (const UInt32 size : {0u, 4u, 11u}) {
        Patch32(last, third, size);
        ASSERT_EQ(OpenAs(kFollow, last), LX_OK);
        Position();
        EXPECT_EQ(CountDelivered(), 24u);
    }
}

TEST_F(FollowFormat, AListWithoutRoomForItsTypeHasNone)
{
    builder.beforeMovi = ChunkOfSize("LIST", 0, {}) + ChunkOfSize("LIST", 2, Fill(2)) +
                         ChunkOfSize("LIST", 0, Text("INFO")) + Chunk("ISFT", Text("a tool")) +
                         ChunkOfSize("LIST", 4, Text("hdrl"));
    AddMedia(4, 2);
    ASSERT_EQ(ParseAs(kFollow, builder.Build()), LX_OK);
    EXPECT_EQ(Info().moviOffset, builder.MoviOffset());
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(FollowFormat, AHeaderListHoldsItsTypeAtLeast)
{
    builder.beforeMovi = ChunkOfSize("LIST", 4, Text("hdrl"));
    AddMedia(4, 2);
    ASSERT_EQ(OpenAs(kFollow, builder.Build()), LX_OK);
    EXPECT_EQ(log.Count("AviReadCore : Found header LIST chunk"), 2u);
}

TEST_F(FollowFormat, OfStrayChunksOnlyWhatIsLargeAndHasNoRoomIsGarbage)
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
        EXPECT_EQ(OpenAs(kFollow, file), LX_OK);
        return Info().moviOffset != builder.MoviOffset();
    };
    EXPECT_FALSE(foundDecoy(kLargestStray, -100));
    EXPECT_TRUE(foundDecoy(kLargestStray + 2, -2));
    EXPECT_FALSE(foundDecoy(kLargestStray + 2, 0));
    EXPECT_FALSE(foundDecoy(kLargestStray + 2, 100));
}

TEST_F(FollowFormat, AnIndexAloneIsNoEndOfTheWalk)
{
    const Bytes headers = List("hdrl", Chunk("avih", Fill(56, 0)));
    EXPECT_EQ(OpenAs(kFollow, Riff("AVI ", headers + Chunk("idx1", Fill(16)))), LX_ERR_AVIREAD_EOF);

    builder.behindIdx1 = List("movi", Chunk("00dc", Fill(10, 0x77)) + Chunk("01wb", Fill(8)));
    AddMedia(4, 2);
    ASSERT_EQ(OpenAs(kFollow, builder.Build()), LX_OK);
    Position();
    EXPECT_EQ(CountDelivered(), 10u);
}

TEST_F(FollowFormat, MediaDataDirectlyBehindTheListAreNotOfIt)
{
    builder.eIndex = IndexKind::None;
    builder.behindMovi = Chunk("JUNK", Fill(20));
    AddMedia(4, 2);
    ASSERT_EQ(OpenAs(kFollow, builder.Build() + List("movi", Chunk("00dc", Fill(10, 0x77)))), LX_OK);
    Position();
    EXPECT_EQ(CountDelivered(), 8u);
}

TEST_F(FollowFormat, AnInputThatCannotSeekIsReadOverTheLargestSize)
{
    builder.beforeMovi = ChunkOfSize("idx1", 0xFFFFFFFE, {});
    AddMedia(4, 2);
    indxOptionOfOpen = kFollow;
    EXPECT_EQ(Open(builder.Build(), false), LX_ERR_AVIREAD_EOF);
}

TEST_F(FollowFormat, TheStartOfTheFileIsAPositionToo)
{
    AddMedia(2, 1);
    ASSERT_EQ(OpenAs(kFollow, builder.Build()), LX_OK);
    Bytes buffer(18000);
    LendBuffer(buffer);
    Info().uiMaxRecordsInBuffer = 1125;
    UInt32 skip = 0, leafs = 0, memory = 0, keyFrames = 0;
    EXPECT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
    const UInt64 seeks = Faults().Seeks();
    static_cast<void>(lxAviReadCore_PreParseIdx1Chunk(&Info(), 16, &skip, &leafs, &memory, &keyFrames));
    EXPECT_GE(Faults().Seeks(), seeks + 2); // the base was looked for, and the file put back
    Info().pMetaDataBuffer = nullptr;
}

TEST_F(FollowFormat, AnIndexThatHasToWaitIsNoFailure)
{
    const Bytes payload = U16(2) + Bytes{0, 1} + U32(1) + Text("01wb") + Fill(12, 0) + U32(8) + U32(4);
    builder.eIndex = IndexKind::None;
    builder.Raw(payload);
    ASSERT_EQ(OpenAs(kFollow, builder.Build()), LX_OK);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), builder.MoviOffset(), 0), 1);
    EXPECT_EQ(lxAvi2ReadCore_ParseChunkIndx(0, &Info(), static_cast<UInt32>(payload.size()), Info().StreamInfo[1], kFollow),
              LX_OK);
    EXPECT_EQ(Info().StreamInfo[1]->bIndexParsed, 0);
}

TEST_F(FollowFormat, AnAudioIndexBeforeTheVideosWaits)
{
    builder = AviBuilder();
    builder.Add(PcmStream()).Add(VideoStream());
    builder.eIndex = IndexKind::OneLevelStandard;
    builder.Audio(0, Fill(640)).Frame(1, Fill(10), true);
    ASSERT_EQ(OpenAs(kFollow, builder.Build()), LX_OK);
    EXPECT_EQ(Info().StreamInfo[0]->bIndexParsed, 0);
    EXPECT_EQ(Info().StreamInfo[1]->bIndexParsed, 1);
}

TEST_F(FollowFormat, AnInputThatCannotSeekCannotGoBackBehindAnEmptyList)
{
    builder.beforeMovi = ChunkOfSize("LIST", 0, {});
    AddMedia(4, 2);
    indxOptionOfOpen = kFollow;
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

TEST_F(FollowFormat, TheFirstOfTwoIndexesCounts)
{
    AddMedia(4, 2);
    builder.behindIdx1 = Chunk("idx1", Fill(32));
    ASSERT_EQ(ParseAs(kFollow, builder.Build()), LX_OK);
    EXPECT_EQ(Info().idx1Size, 8u * 16);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(FollowFormat, MediaDataOfEveryKindAreMeasured)
{
    builder.Media("JUNK", Fill(6), false, false).Media("ix00", Fill(6), false, false).Raw(List("rec ", Chunk("00dc", Fill(8))));
    AddMedia(2, 1);
    Bytes file = builder.Build();
    Patch32(file, Find(file, "movi") - 4, 0);
    ASSERT_EQ(OpenAs(kFollow, file), LX_OK);
    EXPECT_EQ(Info().moviSize, builder.MoviSize());
}

TEST_F(FollowFormat, WithoutRoomForTheMainHeaderAFileOfNoStreamsOpens)
{
    builder = AviBuilder();
    builder.dmlhTotalFrames = 7;
    Bytes file = builder.Build();
    std::memcpy(file.data() + Find(file, "avih"), "none", 4);
    for (const UInt8 as : {kDefault, kFollow}) {
        ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
        Faults().FailAllocation(2); // the main header's record
        ASSERT_EQ(lxAviReadCore_Alloc(0), LX_ERR_AVIREAD_NO_MEMORY);
        Faults().FailAllocation(1); // and again when Open completes the records
        indxOptionOfOpen = as;
        ASSERT_EQ(Open(file), LX_OK);
        EXPECT_EQ(Info().AviHdr, nullptr);
        EXPECT_EQ(Info().dmlhTotalFrames, 7u);
        EXPECT_EQ(lxAviReadCore_GetStreamTime(0, 10, 0), 0u);
    }
}

TEST_F(FollowFormat, AnInputThatCannotSeekIsNotReadForItsIndex)
{
    AddMedia(4, 2);
    AviBuilder indexed = builder;
    const Bytes with = indexed.Build();
    builder.beforeMovi = Bytes(with.begin() + static_cast<long>(Find(with, "idx1")), with.end());
    builder.eIndex = IndexKind::None;
    indxOptionOfOpen = kFollow;
    ASSERT_EQ(Open(builder.Build(), false), LX_OK);
    EXPECT_EQ(Info().idx1Size, 8u * 16);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_EQ(CountDelivered(), 8u);
}

// ---- idx1 ----

TEST_F(FollowFormat, ThePassesAloneConvertOffsets)
{
    AddMedia(12, 4);
    ASSERT_EQ(OpenAs(kFollow, builder.Build()), LX_OK);
    Bytes buffer = Fill(18000);
    LendBuffer(buffer);
    Info().uiMaxRecordsInBuffer = 1125;
    UInt32 skip = 0, leafs = 0, memory = 0, keys = 0;
    const UInt32 size = Info().idx1Size;
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), Info().idx1Offset, 0), 1);
    ASSERT_EQ(lxAviReadCore_PreParseIdx1Chunk(&Info(), size, &skip, &leafs, &memory, &keys), LX_OK);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), Info().idx1Offset, 0), 1);
    ASSERT_EQ(lxAviReadCore_ParseVideoAudioIndex(0, &Info(), size, skip, leafs), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    EXPECT_EQ(Entry(0, 1).audioChunkOffset[0], builder.MediaItems()[8].uiOffset);
    Info().pMetaDataBuffer = nullptr;
}

TEST_F(FollowFormat, OneRecordIsEnoughToCountFromTheFirstChunk)
{
    builder.Frame(0, Fill(10), true);
    builder.behindIdx1 = Chunk("JUNK", Fill(20));
    Bytes file = builder.Build();
    Patch32(file, Find(file, "idx1") + 8 + 8, 0);
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(FollowFormat, AFirstRecordThatPointsNowhereDoesNotMoveTheOthers)
{
    AddMedia(12, 4);
    Bytes file = builder.Build();
    Patch32(file, Find(file, "idx1") + 8 + 8, 0); // as if it counted from the first chunk
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(FollowFormat, RelativeOffsetsAreConverted)
{
    AddMedia(12, 4);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    EXPECT_EQ(TableOffsets()[0] + builder.MoviOffset() - 4, KeyFrames()[0]);
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    EXPECT_EQ(Table()[1].audioChunkOffset[0], builder.MediaItems()[8].uiOffset); // the fifth of the track
    ExpectEverySeekLands();
}

TEST_F(FollowFormat, RelativeOffsetsWorkInFilesOfSeveralLists)
{
    AddSegments(2, 12, 4);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    const UInt32 time = lxAviReadCore_SeekToTime(320, -1, lxAviRead_SetPosRoundDown);
    EXPECT_EQ(time, 320u);
    EXPECT_EQ(Next().uiResult, LX_OK); // the base is that of the first list: it works by luck, until a list is left
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    const auto keys = KeyFrames();
    EXPECT_EQ(TableOffsets(), std::vector<UInt64>(keys.begin(), keys.begin() + 3)); // idx1 covers the first list
    EXPECT_EQ(CountDelivered(), 48u);
    ExpectEverySeekLands();
    EXPECT_EQ(lxAviReadCore_SeekToTime(0, 0, lxAviRead_SetPosRoundDown), 0u); // back from the second list
    EXPECT_EQ(CountDelivered(), 48u);
}

TEST_F(FollowFormat, TheFileTellsWhereOffsetsCountFrom)
{
    // The first chunk of the index stands so far behind the "movi" code that its offset could be absolute.
    builder.Media("JUNK", Fill(4000), false, false);
    AddMedia(4, 2);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    EXPECT_NE(TableOffsets()[0] + (Info().bAbsoluteOffsets == 1 ? 0 : builder.MoviOffset() - 4), KeyFrames()[0]);
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());

    // Offsets that count from the first chunk.
    builder = AviBuilder();
    builder.Add(VideoStream()).Add(PcmStream());
    AddMedia(4, 2);
    Bytes fromChunk = builder.Build();
    for (size_t at = Find(fromChunk, "idx1") + 8; at < fromChunk.size(); at += 16) {
        Patch32(fromChunk, at + 8, Get32(fromChunk, at + 8) - 4);
    }
    ASSERT_EQ(ParseAs(kFollow, fromChunk), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());

    // From anywhere, so that the first record is the first chunk's.
    for (size_t at = Find(fromChunk, "idx1") + 8; at < fromChunk.size(); at += 16) {
        Patch32(fromChunk, at + 8, Get32(fromChunk, at + 8) + 300);
    }
    ASSERT_EQ(ParseAs(kFollow, fromChunk), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(FollowFormat, OfTwoRecordsBothHaveToCountFromTheFirstChunk)
{
    AddMedia(1, 1);
    Bytes file = builder.Build();
    const size_t records = Find(file, "idx1") + 8;
    ASSERT_EQ(file.size(), records + 32);
    ASSERT_GT(builder.MoviOffset(), 302u); // or the offsets would count from the file's start
    Patch32(file, records + 8, 300);
    Patch32(file, records + 24, 302); // nothing there
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(TableOffsets(), (std::vector<UInt64>{builder.MoviOffset() - 4 + 302}));
}

TEST_F(FollowFormat, ARecordThatIsNowhereLeavesTheBaseToTheRule)
{
    for (const IndexKind eKind : {IndexKind::Idx1Relative, IndexKind::Idx1Absolute}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = eKind;
        AddMedia(4, 2);
        Bytes file = builder.Build();
        std::memcpy(file.data() + Find(file, "idx1") + 8, "77xx", 4);
        ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
        EXPECT_EQ(TableOffsets(), KeyFrames());
    }
}

TEST_F(FollowFormat, ARecordListIsFoundByItsHeader)
{
    // "rec " records name the type of a list whose header stands at the offset.
    builder.eIndex = IndexKind::None;
    builder.Raw(List("rec ", Chunk("00dc", Fill(8)) + Chunk("01wb", Fill(8))));
    const auto record = [](std::string_view id, UInt32 flags, UInt32 offset, UInt32 size) {
        return Text(id) + U32(flags) + U32(offset) + U32(size);
    };
    builder.behindMovi =
        Chunk("idx1", record("rec ", 1, 4, 36) + record("00dc", 0x10, 16, 8) + record("01wb", 0x10, 32, 8));
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(TableOffsets(), std::vector<UInt64>{builder.MoviOffset() + 12});
}

// ---- Which index ----

TEST_F(FollowFormat, AOneLevelTableSurvivesParsingAgain)
{
    for (const IndexKind eKind : {IndexKind::OneLevelStandard, IndexKind::OneLevelField}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = eKind;
        AddMedia(12, 4);
        const Bytes file = builder.Build();
        if (eKind == IndexKind::OneLevelStandard) {
            EXPECT_EQ(ParseAs(kDefault, file), LX_OK);
            EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
        }
        ASSERT_EQ(OpenAs(kFollow, file), LX_OK);
        EXPECT_EQ(allIndexed, 1);
        EXPECT_EQ(TableOffsets(), KeyFrames());
        EXPECT_EQ(Table()[1].audioFrameNumber[0], 4u);
        EXPECT_EQ(Info().StreamInfo[1]->uiStreamSize, 12u * 640);
        for (UInt32 again = 0; again < 2; ++again) {
            ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
            EXPECT_EQ(TableOffsets(), KeyFrames());
            EXPECT_EQ(Table()[1].audioFrameNumber[0], 4u);
            EXPECT_EQ(Info().StreamInfo[1]->uiStreamSize, 12u * 640); // counted anew
        }
        Position();
        ExpectEverySeekLands();
    }
}

TEST_F(FollowFormat, AOneLevelIndexIsBuiltByParseIndexWhereOpenWasNotAskedTo)
{
    builder.eIndex = IndexKind::OneLevelField;
    AddMedia(12, 4);
    for (const bool bPromised : {false, true}) {
        builder.avih.dwFlags = bPromised ? LX_AVIREAD_HAS_INDEX : 0;
        for (const UInt8 lower : {UInt8{0}, UInt8{1}, UInt8{127}}) {
            ASSERT_EQ(OpenAs(LX_AVIREAD_FOLLOW_FORMAT | lower, builder.Build()), LX_OK);
            const bool bBuilt = lower == 1 && !bPromised;
            EXPECT_EQ(Info().KeyFramesListAsArrayLength, bBuilt ? 1u : 0u);
            EXPECT_EQ(allIndexed, bBuilt ? 1 : 0);
            ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
            EXPECT_EQ(TableOffsets(), KeyFrames());
            EXPECT_EQ(Table()[2].audioFrameNumber[0], 8u);
        }
    }
}

TEST_F(FollowFormat, AOneLevelIndexFindsTheAudioOfEarlierStreams)
{
    builder = AviBuilder();
    builder.Add(PcmStream()).Add(VideoStream());
    builder.eIndex = IndexKind::OneLevelStandard;
    for (UInt32 i = 0; i < 6; ++i) {
        builder.Audio(0, Fill(640)).Frame(1, Fill(10), i % 3 == 0);
    }
    ASSERT_EQ(OpenAs(kFollow, builder.Build()), LX_OK);
    EXPECT_EQ(Entry(0, 1).audioChunkOffset[0], 0u); // its list came before the table
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    EXPECT_EQ(Entry(0, 1).audioChunkOffset[0], builder.MediaItems()[6].uiOffset);
}

TEST_F(FollowFormat, AnOneLevelIndexWithoutEntrySizeIsNone)
{
    builder.eIndex = IndexKind::OneLevelStandard;
    AddMedia(4, 2);
    Bytes file = builder.Build();
    Patch32(file, Find(file, "indx") + 8, Get32(file, Find(file, "indx") + 8) & 0xFFFF0000u);
    ASSERT_EQ(OpenAs(kFollow, file), LX_OK); // the walk goes on behind the chunk
    EXPECT_EQ(Info().AudioTracksCount, 1u);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_NO_INDEX);
}

TEST_F(FollowFormat, ABudgetBelowALeafFailsOpenAsByDefault)
{
    builder.eIndex = IndexKind::OneLevelStandard;
    AddMedia(4, 2);
    for (const UInt8 as : {kDefault, kFollow}) {
        EXPECT_EQ(Open(builder.Build(), true, 1, 100, as), LX_ERR_AVIREAD_NO_MEMORY);
    }
}

TEST_F(FollowFormat, AOneLevelIndexOfAnInputThatCannotSeekIsPassedOver)
{
    builder.eIndex = IndexKind::OneLevelStandard;
    AddMedia(4, 2);
    indxOptionOfOpen = kFollow;
    ASSERT_EQ(Open(builder.Build(), false), LX_OK);
    EXPECT_EQ(Info().KeyFramesListAsArrayLength, 0u);
    EXPECT_EQ(CountDelivered(), 8u);
}

TEST_F(FollowFormat, AnUnusableOpenDmlIndexLeavesTheTableToIdx1)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    builder.bIdx1Too = true;
    AddMedia(12, 4);
    Bytes file = builder.Build();
    Patch32(file, Find(file, "indx") + 8 + 24, 0);
    EXPECT_EQ(ParseAs(kDefault, file), LX_ERR_AVIREAD_EOF);
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    EXPECT_EQ(Info().StreamInfo[0]->uiStreamSize, 120u);
    ExpectEverySeekLands();
}

TEST_F(FollowFormat, OfTwoIndexesTheOneThatCoversTheFileWins)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    builder.bIdx1Too = true;
    AddSegments(2, 12, 4);
    Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK); // idx1 covers the first list
    EXPECT_EQ(TableOffsets(), KeyFrames());
    EXPECT_EQ(KeyFrames().size(), 6u);

    // Of the super index nothing is left but an index of half of the first list.
    Patch32(file, Find(file, "indx") + 8 + 4, 1);
    Patch32(file, Find(file, "ix00") + 12, 6);
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    const auto keys = KeyFrames();
    EXPECT_EQ(TableOffsets(), std::vector<UInt64>(keys.begin(), keys.begin() + 3));
    EXPECT_EQ(Info().StreamInfo[0]->uiStreamSize, 120u);

    // Nor has it a key flag: what it needs to have key frames at all does not hold for idx1.
    for (size_t record = 0; record < 6; ++record) {
        const size_t size = Find(file, "ix00") + 32 + 8 * record + 4;
        Patch32(file, size, Get32(file, size) | 0x80000000u);
    }
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(TableOffsets(), std::vector<UInt64>(keys.begin(), keys.begin() + 3));
}

TEST_F(FollowFormat, EqualIndexesAreReadFromOpenDml)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    builder.bIdx1Too = true;
    AddMedia(12, 4);
    Bytes file = builder.Build();
    const size_t flags = Find(file, "idx1") + 8 + 16 + 4; // of the first frame
    Patch32(file, flags, 0);
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(FollowFormat, TheMainHeaderTellsWhetherThereIsAnIndex)
{
    for (const IndexKind eKind : {IndexKind::None, IndexKind::Idx1Relative, IndexKind::SuperStandard}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = eKind;
        builder.avih.dwFlags = eKind == IndexKind::None ? LX_AVIREAD_HAS_INDEX | 0x100 : 0x100;
        AddMedia(2, 1);
        ASSERT_EQ(OpenAs(kFollow, builder.Build()), LX_OK);
        EXPECT_EQ(Info().AviHdr->dwFlags, eKind == IndexKind::None ? 0x100u : LX_AVIREAD_HAS_INDEX | 0x100u);
    }
}

TEST_F(FollowFormat, ASuperIndexWithoutEntriesIsOne)
{
    builder.eIndex = IndexKind::Idx1Relative;
    const Bytes fields = U16(4) + Bytes{0, 0} + U32(0) + Text("00dc") + Fill(12, 0);
    builder.streams[0].extra = Chunk("indx", fields);
    AddMedia(4, 2);
    ASSERT_EQ(ParseAs(kFollow, builder.Build()), LX_OK); // from idx1
    EXPECT_NE(Info().StreamInfo[0]->IndxChunk.pAviSuperIndexEntry, nullptr);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    builder.streams[0].extra = Chunk("indx", Bytes(fields.begin(), fields.end() - 2));
    ASSERT_EQ(ParseAs(kFollow, builder.Build()), LX_OK);
    EXPECT_EQ(Info().StreamInfo[0]->IndxChunk.pAviSuperIndexEntry, nullptr); // too short for its fields
}

TEST_F(FollowFormat, AnAbortIsNoReasonForAnotherIndex)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    builder.bIdx1Too = true;
    AddMedia(12, 4);
    ASSERT_EQ(OpenAs(kFollow, builder.Build()), LX_OK);
    static_cast<void>(lxAviReadCore_SetAbortFlag(1));
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_ABORTED);
    static_cast<void>(lxAviReadCore_SetAbortFlag(0));
}

TEST_F(FollowFormat, WithoutAVideoStreamThereIsNoIndex)
{
    builder = AviBuilder();
    builder.Add(PcmStream());
    builder.eIndex = IndexKind::SuperStandard;
    builder.bIdx1Too = true;
    builder.Audio(0, Fill(10));
    EXPECT_EQ(ParseAs(kFollow, builder.Build()), LX_ERR_AVIREAD_NO_INDEX);
}

// ---- Audio ----

TEST_F(FollowFormat, AudioIndexesAreLookedForInEveryStream)
{
    builder = AviBuilder();
    builder.Add(PcmStream()).Add(TextStream()).Add(VideoStream()).Add(TextStream()).Add(PcmStream());
    builder.eIndex = IndexKind::SuperStandard;
    for (UInt32 i = 0; i < 6; ++i) {
        builder.Audio(0, Fill(640)).Audio(4, Fill(320)).Audio(4, Fill(320)).Frame(2, Fill(10), i % 3 == 0);
    }
    for (const UInt8 as : {kDefault, kFollow}) {
        builder.eLayout = as == kFollow ? IxLayout::At32 : IxLayout::At36;
        ASSERT_EQ(ParseAs(as, builder.Build()), LX_OK);
        const bool bFound = as == kFollow;
        EXPECT_EQ(Entry(0, 1).audioChunkOffset[0], bFound ? builder.MediaItems()[12].uiOffset : 0u);
        EXPECT_EQ(Entry(0, 1).audioChunkOffset[1], bFound ? builder.MediaItems()[13].uiOffset : 0u);
        EXPECT_EQ(Entry(0, 1).audioFrameNumber[1], bFound ? 6u : 0u);
    }
}

TEST_F(FollowFormat, ANinthAudioStreamBelongsToNoTrack)
{
    builder = AviBuilder();
    builder.Add(VideoStream());
    for (UInt32 i = 0; i < 9; ++i) {
        builder.Add(PcmStream());
    }
    builder.Audio(9, Fill(100)).Audio(1, Fill(640)).Frame(0, Fill(8), true);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    EXPECT_EQ(Info().TrackNumber[9], 0u);
    EXPECT_EQ(NextValid().chunk.uiStreamNr, 9); // taken for track 0
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(Info().TrackNumber[9], 0xFFFFFFFFu);
    EXPECT_EQ(Info().TrackNumber[8], 7u);
    EXPECT_EQ(Info().AudioTracksCount, 9u);
    EXPECT_EQ(Entry(0, 0).audioFrameNumber[0], 0u);
    EXPECT_EQ(Entry(0, 0).audioChunkOffset[0], builder.MediaItems()[1].uiOffset);
    const Delivered rejected = Next();
    EXPECT_EQ(rejected.uiResult, LX_ERR_AVIREAD_AUDIO_SKIPPED);
    SkipRejected(rejected);
    const Delivered first = Next();
    EXPECT_EQ(first.chunk.uiStreamNr, 1);
    EXPECT_EQ(first.chunk.uiFrameNumber, 0u); // the ninth stream counted for nothing
}

TEST_F(FollowFormat, RecordsOfStreamsWithoutAudioAreNoAudio)
{
    builder.Add(TextStream());
    builder.Media("02wb", Fill(50), true).Audio(1, Fill(640)).Frame(0, Fill(8), true);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    EXPECT_EQ(Entry(0, 0).audioChunkOffset[0], 4u); // the record of the subtitles
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(Entry(0, 0).audioChunkOffset[0], builder.MediaItems()[1].uiOffset);
    EXPECT_EQ(Info().StreamInfo[2]->uiStreamSize, 0u);
}

TEST_F(FollowFormat, AnAbsentTrackIsNoJumpTarget)
{
    for (UInt32 i = 0; i < 6; ++i) {
        builder.Frame(0, Fill(10, static_cast<UInt8>(i)), i % 3 == 0);
    }
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    static_cast<void>(lxAviReadCore_SeekToTime(120, 0, lxAviRead_SetPosRoundDown));
    EXPECT_EQ(Info().JumpOffset, 0u);
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    for (const Int32 track : {0, 1, 7}) {
        static_cast<void>(lxAviReadCore_SeekToTime(120, track, lxAviRead_SetPosRoundDown));
        EXPECT_EQ(Info().JumpOffset, KeyFrames()[1]);
        EXPECT_EQ(Info().bJumpToVideo, 1);
        EXPECT_TRUE(log.HasPrefix("lxAviReadCore_SeekToTime : Set jump to video chunk"));
        EXPECT_EQ(NextValid().chunk.uiFrameNumber, 3u);
        ASSERT_EQ(lxAviReadCore_SetOnKeyFrame_AudioAndVideo(track), LX_OK);
        EXPECT_EQ(Info().JumpOffset, KeyFrames()[1]);
    }
}

TEST_F(FollowFormat, AudioTimesComeFromTheHeaderWhateverTheCodec)
{
    Stream pcm = PcmStream(48000, 2, 16);
    pcm.header.dwScale = 1;
    pcm.header.dwRate = 48000;
    Stream adpcm = PcmStream(8000, 1, 16); // blocks of 256 bytes, 505 samples each
    adpcm.format = AudioFormat(2, 1, 8000, 4055, 256, 4);
    adpcm.header.dwScale = 505;
    adpcm.header.dwRate = 8000;
    adpcm.header.dwSampleSize = 256;
    Stream mp3 = Mp3VbrStream(44100);
    mp3.header.dwStart = 3;
    builder = AviBuilder();
    builder.Add(VideoStream()).Add(pcm).Add(adpcm).Add(mp3).Add(Ac3Stream(24000)).Add(TextStream());
    const Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kDefault, file), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStreamTime(1, 0, 192000), 4000u); // four times too slow
    EXPECT_EQ(lxAviReadCore_GetStreamTime(2, 0, 25600), 0u);
    ASSERT_EQ(OpenAs(kFollow, file), LX_OK);
    EXPECT_EQ(lxAviReadCore_GetStreamTime(1, 0, 192000), 1000u);
    EXPECT_EQ(lxAviReadCore_GetStreamTime(1, 7, 6ull << 30), 33554432u);  // beyond 4 GiB
    EXPECT_EQ(lxAviReadCore_GetStreamTime(2, 0, 25600), 6312u);           // 100 x 505 / 8000
    EXPECT_EQ(lxAviReadCore_GetStreamTime(3, 10, 99999), 339u);           // 13 x 1152 / 44100
    EXPECT_EQ(lxAviReadCore_GetStreamTime(4, 0, 48000), 2000u);
    EXPECT_EQ(lxAviReadCore_GetStreamTime(5, 10, 48000), 0u);             // no audio
    EXPECT_EQ(lxAviReadCore_GetStreamTime(0, 10, 0), 400u);
}

TEST_F(FollowFormat, AudioWithoutATimeByDefaultIsPlacedByItsHeader)
{
    builder.streams[1].format[0] = 2; // a codec that has no time by default
    AddMedia(12, 4);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    EXPECT_EQ(Entry(0, 1).audioFrameNumber[0], 11u); // the last, for every key frame
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(Entry(0, 0).audioFrameNumber[0], 0u);
    EXPECT_EQ(Entry(0, 1).audioFrameNumber[0], 4u);
    EXPECT_EQ(Entry(0, 2).audioFrameNumber[0], 8u);
}

TEST_F(FollowFormat, AudioIsPlacedByTheStartOfEachChunk)
{
    // 40 ms, 40 ms, then 5 ms a chunk; the third begins at 80 ms, the key frame's time, and the fourth behind it.
    builder.Audio(1, Fill(640)).Audio(1, Fill(640)).Audio(1, Fill(80)).Audio(1, Fill(640)).Audio(1, Fill(80));
    builder.Frame(0, Fill(8), true).Frame(0, Fill(8), false).Frame(0, Fill(8), true);
    const Bytes file = builder.Build();
    ASSERT_EQ(ParseAs(kDefault, file), LX_OK);
    EXPECT_EQ(Entry(0, 1).audioFrameNumber[0], 2u); // by 40 + 5, then 80 + 40
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(Entry(0, 1).audioFrameNumber[0], 2u);

    // 80 ms, then 5 ms: the second begins at 80 ms, and not at 5.
    builder = AviBuilder();
    builder.Add(VideoStream()).Add(PcmStream());
    builder.Audio(1, Fill(1280)).Audio(1, Fill(80)).Audio(1, Fill(80));
    builder.Frame(0, Fill(8), true).Frame(0, Fill(8), true);
    const Bytes early = builder.Build();
    ASSERT_EQ(ParseAs(kDefault, early), LX_OK);
    EXPECT_EQ(Entry(0, 1).audioFrameNumber[0], 1u); // that begins 40 ms after the key frame
    ASSERT_EQ(ParseAs(kFollow, early), LX_OK);
    EXPECT_EQ(Entry(0, 1).audioFrameNumber[0], 0u);
}

TEST_F(FollowFormat, LeadingAudioIsDroppedInWholeSamples)
{
    builder = AviBuilder();
    Stream pcm = PcmStream(8000, 2, 16); // samples of 4 bytes, 32000 bytes a second
    pcm.header.dwScale = 1;
    pcm.header.dwRate = 8000;
    builder.Add(VideoStream()).Add(pcm);
    builder.Audio(1, Fill(16000)).Frame(0, Fill(8), true).Frame(0, Fill(8), false).Frame(0, Fill(8), true);
    ASSERT_EQ(ParseAs(kFollow, builder.Build()), LX_OK);
    static_cast<void>(lxAviReadCore_SeekToTime(80, 0, lxAviRead_SetPosRoundDown));
    const Delivered audio = NextValid();
    EXPECT_EQ(audio.chunk.uiBytePosition, 2556u); // 80 ms are 640 samples; one is left before the key frame
    EXPECT_EQ(audio.payload.size(), 16000u - 2556);

    // The format's own rate may be wrong: the header's clock counts.
    builder.streams[1].format = AudioFormat(LX_AVIREAD_FORMAT_PCM, 2, 8000, 40000, 4, 16);
    ASSERT_EQ(ParseAs(kFollow, builder.Build()), LX_OK);
    static_cast<void>(lxAviReadCore_SeekToTime(80, 0, lxAviRead_SetPosRoundDown));
    EXPECT_EQ(NextValid().chunk.uiBytePosition, 2556u);
}

// ---- Protected frames ----

TEST_F(FollowFormat, ProtectedKeyFramesAreRecognisedAndDeliveredWhole)
{
    struct Case {
        IndexKind eKind;
        bool bDrmIndexed;
    };
    for (const Case& one : {Case{IndexKind::SuperStandard, false}, Case{IndexKind::Idx1Relative, true},
                            Case{IndexKind::Idx1Relative, false}}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = one.eKind;
        builder.eLayout = IxLayout::At32;
        for (UInt32 i = 0; i < 8; ++i) {
            builder.Media("00dd", Fill(10, static_cast<UInt8>(0xA0 + i)), false, one.bDrmIndexed);
            builder.Frame(0, Fill(10, static_cast<UInt8>(i)), i % 4 == 0).Audio(1, Fill(640));
        }
        const Bytes file = builder.Build();
        ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
        ASSERT_EQ(Table().size(), 2u);
        std::vector<Delivered> frames;
        for (const Delivered& got : All()) {
            if (got.uiResult == LX_OK && got.chunk.eStreamType == LX_AVIREAD_STREAM_VIDEO) {
                EXPECT_EQ(got.chunk.bKeyFrame, frames.size() % 4 == 0 ? 1 : 0);
                frames.push_back(got);
            }
        }
        EXPECT_EQ(frames.size(), 8u);
        static_cast<void>(lxAviReadCore_SeekToTime(160, -1, lxAviRead_SetPosRoundDown));
        const Delivered got = Next();
        ASSERT_EQ(got.uiResult, LX_OK);
        EXPECT_EQ(got.chunk.bKeyFrame, 1);
        EXPECT_EQ(got.chunk.bDrm, 1);
        EXPECT_EQ(Bytes(std::begin(got.chunk.DrmInfo), std::end(got.chunk.DrmInfo)), Fill(10, 0xA4));
        EXPECT_EQ(got.payload, Fill(10, 4));
        EXPECT_EQ(got.uiPosition, builder.MediaItems()[13].uiOffset);
    }
}

TEST_F(FollowFormat, OnlyADescriptorDirectlyBeforeTheFrameBelongsToIt)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    builder.Frame(0, Fill(10), true);
    builder.Drm(0, Fill(10)).Audio(1, Fill(64)).Frame(0, Fill(10, 1), true); // audio stands between
    builder.Drm(1, Fill(10)).Frame(0, Fill(10, 2), true);                    // of another stream
    builder.Drm(0, Fill(12)).Frame(0, Fill(10, 3), true);                    // of another size
    ASSERT_EQ(ParseAs(kFollow, builder.Build()), LX_OK);
    for (const UInt32 frame : {0u, 1u, 2u, 3u}) {
        static_cast<void>(lxAviReadCore_SeekToTime(frame * 40, -1, lxAviRead_SetPosRoundDown));
        const Delivered got = Next();
        EXPECT_EQ(got.uiResult, LX_OK);
        EXPECT_EQ(got.chunk.bDrm, 0);
        EXPECT_EQ(got.chunk.uiFrameNumber, frame);
    }
}

TEST_F(FollowFormat, BeforeTheFirstChunkThereIsNoDescriptor)
{
    AddSegments(2, 2, 1);
    ASSERT_EQ(ParseAs(kFollow, builder.Build()), LX_OK);
    const UInt64 second = Info().pCurrentAvix->pNextAvix->moviDataOffset;
    for (const UInt64 first : {Info().moviOffset, second}) {
        for (const UInt64 distance : {UInt64{0}, UInt64{17}}) {
            Info().JumpOffset = first + distance;
            const UInt64 seeks = Faults().Seeks();
            static_cast<void>(Next());
            EXPECT_EQ(Faults().Seeks(), seeks + 1);
        }
    }
    Info().JumpOffset = Info().moviOffset + 18;
    const UInt64 seeks = Faults().Seeks();
    static_cast<void>(Next());
    EXPECT_EQ(Faults().Seeks(), seeks + 2); // there might be one

    // the same where no segment was noted
    Faults().Free(Info().pCurrentAvix->pNextAvix);
    Faults().Free(Info().pCurrentAvix);
    Info().pCurrentAvix = nullptr;
    Info().JumpOffset = Info().moviOffset;
    EXPECT_EQ(Next().uiResult, LX_OK);
}

// ---- Header lists ----

TEST_F(FollowFormat, WhatFollowsAnIndexBelongsToItsStream)
{
    // Written by hand: the builder puts its own index last.
    builder.eIndex = IndexKind::None;
    builder.streams[0].extra = Chunk("indx", U16(4) + Bytes{0, 0} + U32(0) + Text("00dc") + Fill(12, 0)) +
                               Chunk("strd", Fill(2232, 0x77)) + Chunk("strn", Text("name"));
    AddMedia(2, 1);
    const Bytes file = builder.Build();
    for (const UInt8 as : {kDefault, kFollow}) {
        ASSERT_EQ(OpenAs(as, file), LX_OK);
        EXPECT_EQ(Info().StreamInfo[0]->bStrdPresent, as == kFollow ? 1 : 0);
        EXPECT_EQ(Info().AudioTracksCount, as == kFollow ? 1u : 0u); // met one level up, they count twice
    }
}

TEST_F(FollowFormat, AnUnknownListInTheHeadersIsSkippedByItsSize)
{
    builder.inHeaderList = List("more", Fill(12, 0)) + List("odml", Chunk("dmlh", U32(77)));
    AddMedia(2, 1);
    const Bytes file = builder.Build();
    static_cast<void>(OpenAs(kDefault, file));
    EXPECT_NE(Info().dmlhTotalFrames, 77u);
    ASSERT_EQ(OpenAs(kFollow, file), LX_OK);
    EXPECT_EQ(Info().dmlhTotalFrames, 77u);
}

TEST_F(FollowFormat, EveryChunkOfAnOdmlListIsRead)
{
    builder.dmlhTotalFrames = 77;
    builder.inOdml = Chunk("more", Fill(12, 0)) + Chunk("JUNK", Fill(2, 0));
    builder.inHeaderList = Chunk("vprp", Fill(68));
    AddMedia(2, 1);
    const Bytes file = builder.Build();
    static_cast<void>(OpenAs(kDefault, file));
    EXPECT_NE(Info().dmlhTotalFrames, 77u);
    ASSERT_EQ(OpenAs(kFollow, file), LX_OK);
    EXPECT_EQ(Info().dmlhTotalFrames, 77u);
    EXPECT_EQ(Info().bDmlhPresent, 1);
    EXPECT_EQ(Info().moviOffset, builder.MoviOffset());
    Position();
    EXPECT_EQ(CountDelivered(), 4u);
}

TEST_F(FollowFormat, ChunksOfAHeaderListEndWithTheirList)
{
    const Bytes tooLong[] = {ChunkOfSize("strn", 50000, Fill(4)), ChunkOfSize("JUNK", 50000, Fill(6)),
                             ChunkOfSize("indx", 8, Fill(8, 0)),  Fill(2), Fill(6), ChunkOfSize("LIST", 2, Fill(2))};
    for (const Bytes& bytes : tooLong) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.streams[0].extra = bytes;
        builder.inHeaderList = bytes;
        builder.inOdml = {};
        builder.dmlhTotalFrames = 2;
        AddMedia(2, 1);
        const Bytes file = builder.Build();
        ASSERT_EQ(OpenAs(kFollow, file), LX_OK);
        EXPECT_EQ(Info().AudioTracksCount, 1u);
        EXPECT_EQ(Info().moviOffset, builder.MoviOffset());
        Position();
        EXPECT_EQ(CountDelivered(), 4u);
    }
}

TEST_F(FollowFormat, ShortListsInTheHeadersAreNone)
{
    builder.inHeaderList = List("odml", {}) + List("odml", ChunkOfSize("dmlh", 2, Fill(2))) +
                           List("odml", ChunkOfSize("dmlh", 60, U32(5)));
    AddMedia(2, 1);
    ASSERT_EQ(OpenAs(kFollow, builder.Build()), LX_OK);
    EXPECT_EQ(Info().dmlhTotalFrames, 5u);
    EXPECT_EQ(Info().moviOffset, builder.MoviOffset());

    // What has room for its type, or for its header, is there.
    builder.inHeaderList = ChunkOfSize("LIST", 4, Text("strl")) + Chunk("abcd", {});
    ASSERT_EQ(OpenAs(kFollow, builder.Build()), LX_OK);
    EXPECT_EQ(log.Count("AviReadCore : Found stream LIST chunk"), 3u);
    EXPECT_EQ(log.CountPrefix("AviReadCore : read data unknown"), 1u);
}

// ---- Reads ----

TEST_F(FollowFormat, AShortReadGoesOnWhereItStopped)
{
    Bytes data(64);
    std::iota(data.begin(), data.end(), UInt8{1});
    for (const UInt8 as : {kDefault, kFollow}) {
        Faults().Serve("data", data);
        static_cast<void>(lxAviReadCore_Open(0, "data", 3, 0, as, &allIndexed));
        for (const auto read : {lxAviReadCore_FileRead, lxAvi2ReadCore_FileRead}) {
            ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
            UInt32 buffer[16] = {};
            Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 2});
            ASSERT_EQ(read(&Info(), buffer, 6), LX_OK);
            const Bytes want = as == kFollow ? Bytes{1, 2, 3, 4, 5, 6, 0, 0, 0, 0, 0, 0}
                                             : Bytes{1, 2, 0, 0, 0, 0, 0, 0, 3, 4, 5, 6};
            EXPECT_EQ(AsBytes(buffer), want + Fill(52, 0));
        }
    }
}

// ---- Indexes without key flags, and indexes that end early ----

TEST_F(FollowFormat, WithoutAKeyFlagTheFirstFrameIsTheKeyFrame)
{
    for (const IndexKind eKind : {IndexKind::Idx1Relative, IndexKind::SuperStandard, IndexKind::SuperField}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = eKind;
        builder.eLayout = IxLayout::At32;
        for (UInt32 i = 0; i < 10; ++i) {
            builder.Audio(1, Fill(640)).Frame(0, Fill(10), false);
        }
        const Bytes file = builder.Build();
        EXPECT_NE(ParseAs(kDefault, file), LX_OK);
        ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
        EXPECT_EQ(TableOffsets(), std::vector<UInt64>{builder.MediaItems()[1].uiOffset});
        EXPECT_EQ(CountDelivered(), 20u);
        EXPECT_EQ(lxAviReadCore_SeekToTime(390, 0, lxAviRead_SetPosRoundDown), 0u);
        EXPECT_EQ(CountDelivered(), 20u);
    }
}

TEST_F(FollowFormat, WithoutAKeyFlagEveryFrameOfSomeCodecsIsAKeyFrame)
{
    struct Codec {
        const char* code;
        bool bIntra;
    };
    for (const Codec& codec : {Codec{"MJPG", true}, Codec{"mjpa", true}, Codec{"DIB ", true}, Codec{"dvsd", true},
                               Codec{"YUY2", true}, Codec{"\0\0\0\0", true}, Codec{"HFYU", true}, Codec{"XVID", false},
                               Codec{"\1\0\0\0", false}, Codec{"H264", false}}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        std::memcpy(builder.streams[0].format.data() + 16, codec.code, 4);
        for (UInt32 i = 0; i < 400; ++i) {
            builder.Audio(1, Fill(64)).Frame(0, Fill(10), false);
        }
        ASSERT_EQ(ParseAs(kFollow, builder.Build()), LX_OK);
        EXPECT_EQ(Table().size(), codec.bIntra ? 400u : 1u) << codec.code;
        EXPECT_EQ(Info().KeyFramesListAsArrayLength, codec.bIntra ? 2u : 1u); // no more than the frames need
    }
}

TEST_F(FollowFormat, OneKeyFlagIsEnoughToBeBelieved)
{
    std::memcpy(builder.streams[0].format.data() + 16, "MJPG", 4);
    for (UInt32 i = 0; i < 10; ++i) {
        builder.Frame(0, Fill(10), i == 4);
    }
    ASSERT_EQ(ParseAs(kFollow, builder.Build()), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
}

TEST_F(FollowFormat, AnIndexWithoutAFrameIsNone)
{
    builder.Audio(1, Fill(64));
    EXPECT_EQ(ParseAs(kFollow, builder.Build()), LX_ERR_AVIREAD_NO_INDEX);
}

TEST_F(FollowFormat, WhatOneFileNeededIsForgottenForTheNext)
{
    builder.Frame(0, Fill(10), false).Frame(0, Fill(10), false);
    ASSERT_EQ(ParseAs(kFollow, builder.Build()), LX_OK);
    builder = AviBuilder();
    builder.Add(VideoStream()).Add(PcmStream());
    builder.Frame(0, Fill(10), false).Frame(0, Fill(10), true);
    ASSERT_EQ(ParseAs(kDefault, builder.Build()), LX_OK);
    EXPECT_EQ(Table().size(), 1u);
    EXPECT_EQ(Table()[0].videoFrameNumber, 1u);
}

TEST_F(FollowFormat, WhatAFileNeededIsForgottenWithIt)
{
    builder.Frame(0, Fill(10), false).Frame(0, Fill(10), false);
    ASSERT_EQ(ParseAs(kFollow, builder.Build()), LX_OK);
    const UInt64 records = Info().idx1Offset;
    ASSERT_EQ(lxAviReadCore_Reset(), LX_OK);
    Info().pFile = Faults().Open("test.avi", "rb");
    Bytes buffer(18000);
    LendBuffer(buffer);
    Info().uiMaxRecordsInBuffer = 1125;
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), records, 0), 1);
    ASSERT_EQ(lxAviReadCore_ParseIndex_Video(0, &Info(), 32, 1, 1), LX_OK);
    EXPECT_EQ(Info().KeyFramesListAsArray[0]->arrayLength, 0u); // frames without a flag are no key frames
    Info().pMetaDataBuffer = nullptr;
}

TEST_F(FollowFormat, WhatOneOpenNeededIsForgottenForTheNextOfTheSameFile)
{
    builder.Frame(0, Fill(10), false).Frame(0, Fill(10), false);
    ASSERT_EQ(ParseAs(kFollow, builder.Build()), LX_OK);
    ASSERT_EQ(Table().size(), 1u); // the first frame, without a flag
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
    ASSERT_EQ(lxAviReadCore_Open(0, "", 1, kPlenty, kDefault, &allIndexed), LX_OK);
    // the pass that fills the table, without the one that counts
    Bytes buffer(18000);
    LendBuffer(buffer);
    Info().uiMaxRecordsInBuffer = 1125;
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), Info().idx1Offset, 0), 1);
    ASSERT_EQ(lxAviReadCore_ParseIndex_Video(0, &Info(), Info().idx1Size, 1, 1), LX_OK);
    EXPECT_EQ(Info().KeyFramesListAsArray[0]->arrayLength, 0u);
    Info().pMetaDataBuffer = nullptr;
}

TEST_F(FollowFormat, AnIdx1ThatEndsEarlyCoversWhatItHas)
{
    AddMedia(1000, 4); // 2000 records: two batches
    const Bytes whole = builder.Build();
    const size_t records = Find(whole, "idx1") + 8;
    for (const size_t kept : {1u, 2u, 9u, 1125u, 1126u, 1999u}) {
        const Bytes file(whole.begin(), whole.begin() + static_cast<long>(records + kept * 16 + 5));
        EXPECT_EQ(ParseAs(kDefault, file), LX_ERR_AVIREAD_EOF);
        const UInt32 result = ParseAs(kFollow, file);
        const size_t keys = (kept / 2 + 3) / 4; // records come in pairs, the frame second
        if (keys == 0) {
            EXPECT_EQ(result, LX_ERR_AVIREAD_NO_INDEX);
            continue;
        }
        ASSERT_EQ(result, LX_OK);
        ASSERT_EQ(Table().size(), keys);
        lxAviRead_SetPositionRangeInfo_t range = {};
        ASSERT_EQ(lxAviReadCore_GetSetPositionRangeInfo(&range), LX_OK);
        EXPECT_EQ(range.uiLastKeyFrameNr, 4 * (keys - 1));
        EXPECT_EQ(range.uiEndTimeMsec, 160 * (keys - 1));
        EXPECT_EQ(lxAviReadCore_SeekToTime(39999, 0, lxAviRead_SetPosRoundUp), 160 * (keys - 1));
    }
}

TEST_F(FollowFormat, ASuperIndexThatEndsEarlyCoversWhatItHas)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    AddSegments(3, 12, 4);
    const Bytes whole = builder.Build();
    const auto keys = KeyFrames();
    const size_t secondIndex = Find(whole, "ix00", Find(whole, "ix00") + 100);
    struct Cut {
        size_t uiAt;
        size_t uiKeys;
    };
    for (const Cut& cut : {Cut{secondIndex, 3}, Cut{secondIndex + 20, 3}, Cut{secondIndex + 32 + 5 * 8, 5},
                           Cut{secondIndex + 3000, 6}}) {
        const Bytes file(whole.begin(), whole.begin() + static_cast<long>(cut.uiAt));
        EXPECT_NE(ParseAs(kDefault, file), LX_OK);
        ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
        EXPECT_EQ(TableOffsets(), std::vector<UInt64>(keys.begin(), keys.begin() + static_cast<long>(cut.uiKeys)));
        EXPECT_EQ(lxAviReadCore_SeekToTime(99999, 0, lxAviRead_SetPosRoundUp), 160 * (cut.uiKeys - 1));
    }
}

TEST_F(FollowFormat, AReadErrorIsNoEarlyEnd)
{
    AddMedia(20, 4);
    ASSERT_EQ(OpenAs(kFollow, builder.Build()), LX_OK);
    Faults().FaultRead(4, {ReadFault::Kind::ShortThenError, 8}); // behind the three that find the base
    EXPECT_EQ(lxAviReadCore_ParseIndex(0), LX_ERR_AVIREAD_READ);
}

// ---- Extension lists ----

TEST_F(FollowFormat, ExtensionListsAreFoundWithoutBeingPromised)
{
    AddSegments(3, 4, 2);
    builder.dmlhTotalFrames.reset();
    const Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kDefault, file), LX_OK);
    EXPECT_EQ(Info().pCurrentAvix->pNextAvix, nullptr);
    ASSERT_EQ(OpenAs(kFollow, file), LX_OK);
    EXPECT_EQ(Info().bAvixPresent, 1);
    Position();
    EXPECT_EQ(CountDelivered(), 24u);
}

TEST_F(FollowFormat, AListThatEndsBeforeItsFirstChunkIsEmpty)
{
    builder.eIndex = IndexKind::None;
    builder.dmlhTotalFrames = 1;
    Bytes file = builder.Build();
    ASSERT_EQ(Find(file, "movi") + 4, file.size());
    const Bytes extension = Riff("AVIX", List("movi", Chunk("00dc", Fill(10)) + Chunk("01wb", Fill(8))));
    const auto claimed = static_cast<UInt32>(extension.size()); // all that follows
    Patch32(file, file.size() - 8, 4 + claimed);
    ASSERT_EQ(OpenAs(kDefault, file + extension), LX_OK);
    EXPECT_EQ(Info().pCurrentAvix->moviDataSize, claimed);
    ASSERT_EQ(OpenAs(kFollow, file + extension), LX_OK);
    EXPECT_EQ(Info().pCurrentAvix->moviDataSize, 0u);
    Position();
    EXPECT_EQ(CountDelivered(), 2u);
}

TEST_F(FollowFormat, AnExtensionListMayHoldMoreThanMediaData)
{
    builder.beforeMoviInAvix = Chunk("JUNK", Fill(30)) + List("more", Fill(4));
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    AddSegments(3, 4, 2);
    builder.ForeignRiff(Riff("AVIX", Chunk("JUNK", Fill(10))) + Riff("AVIX", {}));
    const Bytes file = builder.Build();
    EXPECT_EQ(OpenAs(kDefault, file), LX_ERR_AVIREAD_AVIX_LIST);
    ASSERT_EQ(ParseAs(kFollow, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    EXPECT_EQ(CountDelivered(), 24u);
    ExpectEverySeekLands();
}

TEST_F(FollowFormat, AnExtensionListHoldsItsMediaDataWhole)
{
    builder.eIndex = IndexKind::None;
    AddMedia(2, 1);
    const Bytes first = builder.Build();
    // a list of media data that ends with the extension list belongs to it, one directly behind does not
    const Bytes junk = Chunk("JUNK", Fill(30));
    ASSERT_EQ(OpenAs(kFollow, first + Riff("AVIX", junk + List("movi", {}))), LX_OK);
    ASSERT_NE(Info().pCurrentAvix->pNextAvix, nullptr);
    EXPECT_EQ(Info().pCurrentAvix->pNextAvix->moviDataOffset, first.size() + 12 + 38 + 12);
    ASSERT_EQ(OpenAs(kFollow, first + Riff("AVIX", junk) + List("movi", Chunk("00dc", Fill(4)))), LX_OK);
    EXPECT_EQ(Info().pCurrentAvix->pNextAvix, nullptr);
}

TEST_F(FollowFormat, AFileCutInsideAListHeaderHasTheListsBefore)
{
    builder.eIndex = IndexKind::None;
    AddSegments(2, 4, 2);
    const Bytes whole = builder.Build();
    const size_t second = Find(whole, "AVIX") - 8;
    for (const size_t more : {2u, 6u, 10u, 14u, 20u, 22u}) {
        ASSERT_EQ(OpenAs(kFollow, Bytes(whole.begin(), whole.begin() + static_cast<long>(second + more))), LX_OK);
        EXPECT_EQ(Info().pCurrentAvix->pNextAvix, nullptr);
        Position();
        EXPECT_EQ(CountDelivered(), 8u);
    }
}

} // namespace
} // namespace avitest
