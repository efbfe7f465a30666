// The reader takes bytes from stdio's buffer when they are there, and reads them otherwise. The results have to be
// equal.

#include "ReaderTest.hpp"

#include <random>

namespace avitest {
namespace {

struct Told {
    UInt32 uiResult, uiPayloadResult, uiSize, uiFrameNumber;
    UInt64 uiPosition, uiOffset;
    Bytes payload;

    bool operator==(const Told&) const = default;
};

class BufferedRead : public ReaderTest {
protected:
    std::mt19937 random;

    UInt32 Below(UInt32 limit) { return static_cast<UInt32>(random() % limit); }

    // Bytes from the characters of chunk identifiers, so that many of them look almost like an identifier.
    Bytes AlmostCodes()
    {
        static constexpr char kCharacters[] = {'0', '1', 'd', 'c', 'b', 'w', 't',  's',
                                               'i', 'x', 'J', 'U', 'N', 'K', '\0', '\1'};
        Bytes bytes(Below(40));
        for (UInt8& byte : bytes) {
            byte = static_cast<UInt8>(kCharacters[Below(sizeof kCharacters)]);
        }
        return bytes;
    }

    Bytes AnyFile()
    {
        AviBuilder builder;
        builder.eIndex = Below(2) == 0 ? IndexKind::Idx1Relative : IndexKind::SuperStandard;
        builder.dmlhTotalFrames = 1000;
        builder.Add(VideoStream()).Add(PcmStream()).Add(PcmStream());
        for (UInt32 i = 0; i < 60; ++i) {
            switch (Below(7)) {
            case 0: builder.Raw(AlmostCodes()); break;
            case 1: builder.Raw(Chunk("JUNK", Fill(Below(3000)))); break;
            case 2: builder.Raw(Chunk("ix00", Fill(Below(60)))); break;
            case 3: builder.Audio(1 + Below(2), Fill(Below(6000))); break;
            case 4: builder.Drm(0, Fill(10)); [[fallthrough]];
            default: builder.Frame(0, Fill(Below(300)), Below(5) == 0);
            }
            if (i == 40) {
                builder.NextRiff();
            }
        }
        Bytes file = builder.Build();
        file.resize(file.size() - Below(3) * Below(200)); // cuts some of the files
        return file;
    }

    std::vector<Told> Play(const Bytes& file, bool bBuffered, UInt8 option)
    {
        bPayloadsMayBeCut = true;
        Faults().SetBuffered(bBuffered);
        std::vector<Told> all;
        if (Open(file, true, 2, kPlenty, option) != LX_OK) {
            return all;
        }
        static_cast<void>(lxAviReadCore_ParseIndex(0));
        static_cast<void>(lxAviReadCore_PositionTheFileHandleToPlayData(&Info()));
        for (const Delivered& one : All()) {
            all.push_back({one.uiResult, one.uiPayloadResult, one.chunk.uiSize, one.chunk.uiFrameNumber, one.uiPosition,
                           Info().CurrentOffset, one.payload});
        }
        return all;
    }

    void CheckMany(UInt8 option)
    {
        size_t chunks = 0;
        for (UInt32 seed = 0; seed < 200; ++seed) {
            random.seed(seed);
            const Bytes file = AnyFile();
            const std::vector<Told> buffered = Play(file, true, option);
            EXPECT_TRUE(buffered == Play(file, false, option)) << seed;
            chunks += buffered.size();
        }
        EXPECT_GT(chunks, 2000u);
    }
};

TEST_F(BufferedRead, DeliversWhatAReadDelivers) { CheckMany(1); }
TEST_F(BufferedRead, DeliversWhatAReadDeliversToThoseWhoFollowTheFormat) { CheckMany(1 | LX_AVIREAD_FOLLOW_FORMAT); }

// The search for a chunk in stdio's buffer stops at the end of the list. There the media data ends, although the bytes
// behind the list look like a chunk.
TEST_F(BufferedRead, TheSearchEndsWithTheList)
{
    AviBuilder builder;
    builder.eIndex = IndexKind::None;
    builder.Add(VideoStream()).Frame(0, Fill(4), true).Raw(Fill(21, 0)); // default mode does not reach the last 4
    builder.behindMovi = Chunk("00dc", Fill(4));
    Faults().SetBuffered(true);
    ASSERT_EQ(Open(builder), LX_OK);
    Position();
    EXPECT_EQ(Next().uiResult, LX_OK);
    EXPECT_EQ(Next().uiResult, LX_AVIREAD_END_OF_MEDIA);
    EXPECT_EQ(Info().CurrentOffset, Info().moviSize);
}

// A payload that is larger than stdio's buffer is read completely.
TEST_F(BufferedRead, APayloadLargerThanTheBufferIsReadWhole)
{
    AviBuilder builder;
    Bytes payload(100000);
    for (size_t i = 0; i < payload.size(); ++i) {
        payload[i] = static_cast<UInt8>(i * 7);
    }
    builder.Add(VideoStream()).Frame(0, payload, true).Frame(0, Fill(3), false);
    Faults().SetBuffered(true);
    OpenIndexed(builder);
    EXPECT_EQ(Next().payload, payload);
    EXPECT_EQ(Next().payload, Fill(3));
}

// A read of 0 bytes works before stdio has a buffer.
TEST_F(BufferedRead, ReadingNothingTouchesNothing)
{
    AviBuilder builder;
    builder.Add(VideoStream()).Frame(0, Fill(2), true);
    Faults().SetBuffered(true);
    ASSERT_EQ(Open(builder), LX_OK);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 0, SEEK_SET), 1);
    UInt32 word = 0x12345678;
    EXPECT_EQ(lxAviReadCore_FileRead(&Info(), &word, 0), LX_OK);
    EXPECT_EQ(word, 0x12345678u);
}

} // namespace
} // namespace avitest
