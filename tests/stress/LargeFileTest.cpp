// A real file larger than 1 GiB, of several RIFF lists, delivered whole across its segments. Its payloads are holes, so
// that it takes no room on the disk.

#include "ReaderTest.hpp"

#include <filesystem>
#include <fstream>

namespace avitest {
namespace {

constexpr UInt64 kMiB = 1u << 20;

class LargeFile : public ReaderTest {
protected:
    std::string path = ::testing::TempDir() + "lxaviread-large.avi";
    std::ofstream out{path, std::ios::binary};
    UInt64 position = 0;

    ~LargeFile() override { std::filesystem::remove(path); }

    void Write(const Bytes& bytes)
    {
        out.seekp(static_cast<std::streamoff>(position));
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        position += bytes.size();
    }

    // A chunk whose payload is a hole, but for its last byte.
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
    Info().bAbsoluteOffsets = 1; // as an OpenDML index has them
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

} // namespace
} // namespace avitest
