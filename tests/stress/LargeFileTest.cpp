// The reader delivers real files of more than 1 GiB with several RIFF lists completely. The payloads are holes in the
// file, so the files take little room on the disk.

#include "ReaderTest.hpp"

#include <filesystem>
#include <fstream>

#include <unistd.h>

namespace avitest {
namespace {

constexpr UInt64 kMiB = 1u << 20;

class LargeFile : public ReaderTest {
protected:
    // Tests run in parallel, so each process has a file of its own.
    std::string path = ::testing::TempDir() + "lxaviread-large-" + std::to_string(getpid()) + ".avi";
    std::ofstream out{path, std::ios::binary};
    UInt64 position = 0;

    ~LargeFile() override { std::filesystem::remove(path); }

    void Write(const Bytes& bytes)
    {
        out.seekp(static_cast<std::streamoff>(position));
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        position += bytes.size();
    }

    // Writes a chunk whose payload is a hole, except its last byte.
    void WriteHole(std::string_view code, UInt32 size)
    {
        Write(ChunkOfSize(code, size, {}));
        position += size - 1;
        Write({1});
    }
};

TEST_F(LargeFile, MoreThanAGiBInThreeListsIsDeliveredWhole)
{
    if (!out || std::filesystem::space(::testing::TempDir()).available < 64 * kMiB) {
        GTEST_SKIP() << "no room in " << ::testing::TempDir();
    }
    log.SetMask(0);
    AviBuilder head;
    head.Add(VideoStream());
    head.dmlhTotalFrames = 24;
    head.avih.dwTotalFrames = 8;
    Bytes start = head.Build();
    start.resize(Find(start, "movi") - 8);
    constexpr UInt32 kPayload = 50 * kMiB;
    constexpr UInt32 kFrames = 8; // in each list: 400 MiB
    constexpr UInt32 kListSize = 4 + kFrames * (8 + kPayload);
    Patch32(start, 4, static_cast<UInt32>(start.size()) + 8 + kListSize - 8);
    Write(start);
    std::vector<UInt64> offsets;
    for (UInt32 list = 0; list < 3; ++list) {
        if (list > 0) {
            Write(Text("RIFF") + U32(kListSize + 12) + Text("AVIX"));
        }
        Write(Text("LIST") + U32(kListSize) + Text("movi"));
        for (UInt32 i = 0; i < kFrames; ++i) {
            offsets.push_back(position);
            WriteHole("00dc", kPayload);
        }
    }
    out.close();
    ASSERT_GT(std::filesystem::file_size(path), 1024 * kMiB);

    ASSERT_EQ(lxAviReadCore_Open(0, path.c_str(), 1, kPlenty, 1, &allIndexed), LX_OK);
    Position();
    Info().bAbsoluteOffsets = 1; // as after parsing an OpenDML index
    Info().CurrentOffset = Info().moviOffset;
    for (const UInt64 offset : offsets) {
        lxAviRead_ChunkData_t chunk = {};
        Bool jumped = 0;
        ASSERT_EQ(lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped), LX_OK);
        EXPECT_EQ(chunk.uiSize, kPayload);
        EXPECT_EQ(static_cast<UInt64>(ftello(Info().pFile)) - 8, offset);
        ASSERT_EQ(lxAviReadCore_RemoveChunk(chunk.uiSize - 1), LX_OK);
        UInt8 last[4] = {};
        ASSERT_EQ(lxAviReadCore_GetChunk(reinterpret_cast<UInt32*>(last), 1), LX_OK);
        EXPECT_EQ(last[0], 1);
    }
    EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA);
}

// ---- Beyond 2, 4 and 6 GiB, in format mode ----

constexpr UInt32 kNoLists = 0;

// A film. Each frame has a large hole and a chunk of 40 ms of audio before it. Every payload begins with its number.
class HugeFile : public LargeFile {
protected:
    struct Item {
        UInt64 uiOffset;
        UInt32 uiNumber; // number among the items of its kind
        UInt32 uiSize;
        bool bVideo;
        bool bKey;
        UInt32 uiList;
    };
    std::vector<Item> items;
    std::vector<std::vector<UInt64>> indexes; // offsets of the index chunks, by list and stream

    bool HasRoom() const { return out && std::filesystem::space(::testing::TempDir()).available > 64 * kMiB; }

    // Writes the headers. The super indexes have `lists` entries, which FillInSuperIndexes writes later.
    void WriteHead(UInt32 lists, UInt32 listSize, UInt32 frames)
    {
        AviBuilder head;
        head.Add(VideoStream()).Add(PcmStream());
        head.eIndex = IndexKind::None;
        if (lists != kNoLists) {
            for (Stream& stream : head.streams) {
                const bool bAudio = stream.header.fccType == Code("auds");
                stream.extra = Chunk("indx", U16(4) + Bytes{0, 0} + U32(lists) + Text(bAudio ? "01wb" : "00dc") +
                                                 Fill(12, 0) + Fill(lists * 16, 0));
            }
            head.dmlhTotalFrames = frames;
        }
        Bytes start = head.Build();
        start.resize(Find(start, "movi") - 8);
        Patch32(start, 4, static_cast<UInt32>(start.size() + listSize));
        Write(start);
    }

    void Add(std::string_view code, UInt32 number, UInt32 size, bool bKey, UInt32 list)
    {
        items.push_back({position, number, size, code == "00dc", bKey, list});
        Write(ChunkOfSize(code, size, U32(number)));
        position += size - 4;
    }

    void WriteIndex(UInt32 stream, UInt32 list, UInt64 base, bool bField)
    {
        indexes[list].push_back(position);
        Bytes records;
        UInt32 count = 0;
        for (const Item& item : items) {
            if (item.bVideo == (stream == 0) && item.uiList == list) {
                records += U32(item.uiOffset + 8 - base) + U32(item.uiSize | (item.bKey ? 0 : 0x80000000u)) +
                           (bField ? U32(0) : Bytes{});
                ++count;
            }
        }
        const std::string id = stream == 0 ? "00dc" : "01wb";
        Write(Chunk("ix0" + std::to_string(stream), U16(bField ? 3 : 2) + Bytes{static_cast<UInt8>(bField ? 1 : 0), 1} +
                                                        U32(count) + Text(id) + U64(base) + U32(0) + records));
    }

    // Writes lists of `frames` frames each; every third frame is a key frame. The indexes stand at the end of each
    // list.
    void WriteOpenDml(UInt32 lists, UInt32 frames, UInt32 payload, bool bField)
    {
        const UInt32 media = frames * (8 + payload + 8 + 640);
        const UInt32 listSize = 4 + media + 2 * 32 + 2 * frames * (bField ? 12 : 8);
        indexes.resize(lists);
        for (UInt32 list = 0; list < lists; ++list) {
            if (list == 0) {
                WriteHead(lists, listSize, lists * frames);
            } else {
                Write(Text("RIFF") + U32(listSize + 12) + Text("AVIX"));
            }
            Write(Text("LIST") + U32(listSize) + Text("movi"));
            const UInt64 base = position;
            for (UInt32 i = 0; i < frames; ++i) {
                const UInt32 number = list * frames + i;
                Add("01wb", number, 640, true, list);
                Add("00dc", number, payload, number % 3 == 0, list);
            }
            WriteIndex(0, list, base, bField);
            WriteIndex(1, list, base, bField);
        }
        const UInt64 end = position;
        FillInSuperIndexes(lists);
        position = end;
    }

    void FillInSuperIndexes(UInt32 lists)
    {
        out.flush();
        std::ifstream in(path, std::ios::binary);
        Bytes start(4096);
        in.read(reinterpret_cast<char*>(start.data()), static_cast<std::streamsize>(start.size()));
        size_t at = 0;
        for (UInt32 stream = 0; stream < 2; ++stream) {
            at = Find(start, "indx", at + 4);
            for (UInt32 list = 0; list < lists; ++list) {
                position = at + 8 + 24 + list * 16;
                Write(U64(indexes[list][stream]) + U32(100) + U32(0));
            }
        }
    }

    UInt32 NumberAt(const lxAviRead_ChunkData_t& chunk)
    {
        UInt32 number = 0;
        EXPECT_EQ(lxAviReadCore_GetChunk(&number, 4), LX_OK);
        // a caller may also seek over the rest of the payload; here this saves reading the holes
        EXPECT_EQ(lxAviReadCore_FileSeek(&Info(), chunk.uiSize - 4, 1), 1);
        return number;
    }

    void ExpectChunk(const Item& item)
    {
        lxAviRead_ChunkData_t chunk = {};
        Bool jumped = 0;
        ASSERT_EQ(lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped), LX_OK);
        EXPECT_EQ(static_cast<UInt64>(ftello64(Info().pFile)) - 8, item.uiOffset);
        EXPECT_EQ(chunk.eStreamType == LX_AVIREAD_STREAM_VIDEO, item.bVideo);
        EXPECT_EQ(chunk.bKeyFrame, item.bVideo && item.bKey ? 1 : 0) << item.uiOffset;
        EXPECT_EQ(chunk.uiFrameNumber, item.uiNumber);
        EXPECT_EQ(NumberAt(chunk), item.uiNumber);
    }

    // Seeks to each key frame, or up to 39 ms behind it, in an order that jumps forward and back.
    void ExpectEverySeekLands()
    {
        std::vector<size_t> keys;
        for (size_t i = 0; i < items.size(); ++i) {
            if (items[i].bVideo && items[i].bKey) {
                keys.push_back(i);
            }
        }
        for (size_t k = 0; k < keys.size(); ++k) {
            const size_t at = keys[k * 7 % keys.size()];
            const UInt32 time = items[at].uiNumber * 40;
            ASSERT_EQ(lxAviReadCore_SeekToTime(time + static_cast<UInt32>(k % 40), 0, lxAviRead_SetPosRoundDown), time);
            for (size_t i = at - 1; i < std::min(at + 6, items.size()); ++i) { // three frames with their audio
                ASSERT_NO_FATAL_FAILURE(ExpectChunk(items[i])) << "seek to " << time;
            }
        }
    }

    void Finish(UInt64 atLeast)
    {
        out.seekp(static_cast<std::streamoff>(position - 1));
        out.write("\0", 1);
        out.close();
        ASSERT_GT(std::filesystem::file_size(path), atLeast);
        log.SetMask(0);
    }

    UInt32 OpenAndIndex(UInt8 indxOption)
    {
        EXPECT_EQ(lxAviReadCore_Open(0, path.c_str(), 1, kPlenty, indxOption, &allIndexed), LX_OK);
        const UInt32 result = lxAviReadCore_ParseIndex(0);
        Position();
        return result;
    }

    void ExpectWholeFilm()
    {
        ASSERT_EQ(OpenAndIndex(LX_AVIREAD_FOLLOW_FORMAT | 1), LX_OK);
        for (const Item& item : items) {
            ASSERT_NO_FATAL_FAILURE(ExpectChunk(item));
        }
        EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA);
        ASSERT_NO_FATAL_FAILURE(ExpectEverySeekLands());
        Bool found = 0;
        static_cast<void>(lxAviReadCore_SeekToTime(0xFFFFFFFFu, 0, lxAviRead_SetPosRoundDown));
        while (lxAviReadCore_SetJumpToPrevKeyFrame(&found, 0) == LX_OK && found == 1) {
        }
        ASSERT_NO_FATAL_FAILURE(ExpectChunk(items[0])); // the steps have gone back to the start, through all lists
    }
};

TEST_F(HugeFile, OpenDmlBeyondSixGiBIsSeekableInEverySegment)
{
    if (!HasRoom()) {
        GTEST_SKIP() << "no room in " << ::testing::TempDir();
    }
    for (const bool bField : {false, true}) {
        items.clear();
        indexes.clear();
        position = 0;
        out.close();
        out.open(path, std::ios::binary | std::ios::trunc);
        WriteOpenDml(7, 16, 63 * kMiB, bField);
        Finish(6ull << 30);
        EXPECT_NE(OpenAndIndex(1), LX_OK); // default mode: positions of 32 bits do not reach the indexes
        ASSERT_NO_FATAL_FAILURE(ExpectWholeFilm());
    }
}

TEST_F(HugeFile, FramesThatAre4GiBApartAreNotTakenForEachOther)
{
    if (!HasRoom()) {
        GTEST_SKIP() << "no room in " << ::testing::TempDir();
    }
    // Two lists of the same layout, exactly 4 GiB apart. So frames of the second list lie 2^32 bytes behind key frames
    // of the first list.
    constexpr UInt32 kFrames = 12;
    constexpr UInt32 kPayload = 64 * kMiB;
    const UInt32 listSize = 4 + kFrames * (8 + kPayload + 8 + 640) + 2 * 32 + 2 * kFrames * 8;
    indexes.resize(2);
    WriteHead(2, listSize, 2 * kFrames);
    UInt64 firstStart = 0;
    for (UInt32 list = 0; list < 2; ++list) {
        if (list == 1) {
            const UInt64 gap = firstStart + (1ull << 32) - 24 - position;
            Write(Text("RIFF") + U32(gap - 8) + Text("gap "));
            position = firstStart + (1ull << 32) - 24;
            Write(Text("RIFF") + U32(listSize + 12) + Text("AVIX"));
        }
        Write(Text("LIST") + U32(listSize) + Text("movi"));
        const UInt64 base = position;
        firstStart = list == 0 ? base : firstStart;
        for (UInt32 i = 0; i < kFrames; ++i) {
            const UInt32 number = list * kFrames + i;
            Add("01wb", number, 640, true, list);
            Add("00dc", number, kPayload, list == 0 ? i % 3 == 0 : i % 3 == 1, list);
        }
        WriteIndex(0, list, base, false);
        WriteIndex(1, list, base, false);
    }
    const UInt64 end = position;
    FillInSuperIndexes(2);
    position = end;
    Finish(4ull << 30);
    ASSERT_NO_FATAL_FAILURE(ExpectWholeFilm());
}

TEST_F(HugeFile, AFirstListOfMoreThan2GiBIsSteppedOverToItsIndex)
{
    if (!HasRoom()) {
        GTEST_SKIP() << "no room in " << ::testing::TempDir();
    }
    constexpr UInt32 kFrames = 30;
    constexpr UInt32 kPayload = 110 * kMiB;
    constexpr UInt32 kListSize = 4 + kFrames * (8 + kPayload + 8 + 640);
    static_assert(kListSize > 0x80000000u);
    WriteHead(kNoLists, kListSize + 8 + 8 + 2 * kFrames * 16, kFrames);
    Write(Text("LIST") + U32(kListSize) + Text("movi"));
    const UInt64 base = position - 4;
    Bytes records;
    for (UInt32 i = 0; i < kFrames; ++i) {
        records += Text("01wb") + U32(0x10) + U32(position - base) + U32(640);
        Add("01wb", i, 640, true, 0);
        records += Text("00dc") + U32(i % 3 == 0 ? 0x10 : 0) + U32(position - base) + U32(kPayload);
        Add("00dc", i, kPayload, i % 3 == 0, 0);
    }
    Write(Chunk("idx1", records));
    Finish(2ull << 30);
    EXPECT_EQ(OpenAndIndex(1), LX_ERR_AVIREAD_NO_INDEX);
    EXPECT_EQ(lxalAviRead_FileSeekPossible, 1);
    ASSERT_NO_FATAL_FAILURE(ExpectWholeFilm());
}

} // namespace
} // namespace avitest
