// Format mode: delivery of all tracks at once, and what each of them resumes with after a jump.

#include "FormatModeTest.hpp"

#include <map>
#include <random>

namespace avitest {
namespace {

constexpr UInt32 kFrames = 60;     // of 40 ms; every tenth is a key frame
constexpr UInt32 kPiece = 640;     // bytes of 40 ms of PCM
constexpr UInt32 kPieceOfMp3 = 96; // bytes of a chunk of one block

// What a chunk says of itself. A trim changes the payload of a chunk, and not where it ends.
struct Fact {
    UInt32 uiStreamNr;
    UInt32 uiFrameNumber;
    UInt64 uiEnd; // behind its payload
    Bool bKeyFrame;
    bool operator==(const Fact&) const = default;
};

class AllTracks : public FormatMode {
protected:
    AllTracks()
    {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream()).Add(Mp3VbrStream()).Add(PcmStream()).Add(TextStream());
    }

    // Each audio stream stands so many frames behind the picture in the file, or before it.
    void AddFilm(int first, int second, int third)
    {
        for (int i = 0; i < static_cast<int>(kFrames); ++i) {
            AddAudio(1, i, first, Fill(kPiece));
            AddAudio(2, i, second, Fill(kPieceOfMp3));
            AddAudio(3, i, third, Fill(kPiece));
            builder.Frame(0, Fill(10, static_cast<UInt8>(i)), i % 10 == 0);
            if (i % 15 == 0) {
                builder.Media("04tx", Fill(20));
            }
        }
    }

    void AddAudio(UInt32 stream, int frame, int late, const Bytes& piece)
    {
        const int pieces = frame == 0 && late < 0 ? 1 - late : frame >= late ? 1 : 0;
        for (int i = 0; i < pieces; ++i) {
            builder.Audio(stream, piece);
        }
    }

    void OpenFilm(Bool bAll = 1)
    {
        ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
        lxAviReadCore_DeliverAllTracks(bAll);
    }

    static Fact FactOf(const Delivered& got)
    {
        const bool bAudio = got.chunk.eStreamType == LX_AVIREAD_STREAM_AUDIO;
        const bool bCounted = got.chunk.eStreamType != LX_AVIREAD_STREAM_SUBTITLE;
        return {got.chunk.uiStreamNr, bCounted ? got.chunk.uiFrameNumber : 0,
                bAudio ? got.chunk.uiBytePosition + got.chunk.uiSize : 0, got.chunk.bKeyFrame};
    }

    // All chunks that are delivered from here to the end, by the position of their end in the file.
    std::map<UInt64, Fact> Rest()
    {
        std::map<UInt64, Fact> facts;
        for (Delivered got = NextValid(); got.uiResult == LX_OK; got = NextValid()) {
            facts[got.uiPosition + got.chunk.uiSize] = FactOf(got);
        }
        return facts;
    }

    // The first delivered chunk of each stream, up to the end.
    std::map<UInt32, Delivered> Firsts()
    {
        std::map<UInt32, Delivered> firsts;
        for (Delivered got = NextValid(); got.uiResult == LX_OK; got = NextValid()) {
            firsts.emplace(got.chunk.uiStreamNr, got);
        }
        return firsts;
    }

    static UInt32 TimeOf(const Delivered& got)
    {
        return lxAviReadCore_GetStreamTime(got.chunk.uiStreamNr, got.chunk.uiFrameNumber, got.chunk.uiBytePosition);
    }
};

TEST_F(AllTracks, AreDeliveredWithTheirNumbers)
{
    AddFilm(0, 0, 0);
    OpenFilm();
    std::map<UInt32, UInt32> chunks;
    for (const auto& [end, fact] : Rest()) {
        const UInt32 number = chunks[fact.uiStreamNr]++;
        if (fact.uiStreamNr < 4) {
            EXPECT_EQ(fact.uiFrameNumber, number);
        }
        const UInt32 bytes = fact.uiStreamNr == 2 ? kPieceOfMp3 : kPiece;
        if (fact.uiStreamNr > 0 && fact.uiStreamNr < 4) {
            EXPECT_EQ(fact.uiEnd, UInt64{number + 1} * bytes);
        }
    }
    EXPECT_EQ(chunks, (std::map<UInt32, UInt32>{{0, kFrames}, {1, kFrames}, {2, kFrames}, {3, kFrames}, {4, 4}}));
}

TEST_F(AllTracks, AreThoseThatACallNamesAgainAfterwards)
{
    AddFilm(0, 0, 0);
    OpenFilm(0);
    lxAviReadCore_DeliverAllTracks(1);
    lxAviReadCore_DeliverAllTracks(0);
    for (const auto& [end, fact] : Rest()) {
        EXPECT_TRUE(fact.uiStreamNr == 0 || fact.uiStreamNr == 1 || fact.uiStreamNr == 4);
    }
}

TEST_F(AllTracks, AreForgottenWithTheFile)
{
    AddFilm(0, 0, 0);
    OpenFilm();
    OpenFilm(0);
    EXPECT_EQ(Firsts().count(3), 0u);
    ASSERT_EQ(ParseAs(kDefault, builder.Build()), LX_OK);
    lxAviReadCore_DeliverAllTracks(1); // nothing in the default mode
    EXPECT_EQ(Firsts().count(3), 0u);
}

// The first track stands at the picture, the second 8 frames behind it, the third 5 before it.
TEST_F(AllTracks, ResumeEachAtItsOwnChunk)
{
    AddFilm(0, 8, -5);
    OpenFilm();
    EXPECT_EQ(lxAviReadCore_SeekToTime(800, 0, lxAviRead_SetPosRoundDown), 800u);
    const Delivered target = Next(); // of the third track: 20 pieces are its first 800 ms, a bit of the last is kept
    EXPECT_TRUE(target.bJumped);
    EXPECT_EQ(target.chunk.uiStreamNr, 3u);
    const auto firsts = Firsts();
    EXPECT_EQ(firsts.at(0).chunk.uiFrameNumber, 20u);
    EXPECT_EQ(firsts.at(0).chunk.bKeyFrame, 1);
    EXPECT_GE(TimeOf(target), 799u - 40u);
    EXPECT_LE(TimeOf(target), 800u);
    EXPECT_LE(TimeOf(firsts.at(1)), 800u);
    EXPECT_GE(TimeOf(firsts.at(1)), 799u); // trimmed
    EXPECT_LE(TimeOf(firsts.at(2)), 800u);
    EXPECT_GE(TimeOf(firsts.at(2)), 800u - 27u); // a block of 1152 samples
}

TEST_F(AllTracks, AreEachTrimmedOnce)
{
    builder = AviBuilder();
    builder.Add(VideoStream()).Add(PcmStream()).Add(PcmStream());
    for (UInt32 i = 0; i < kFrames; ++i) { // pieces of 100 ms, key frames every 40 ms
        if (i % 5 == 0) {
            builder.Audio(1, Fill(3200)).Audio(2, Fill(3200));
        }
        builder.Frame(0, Fill(10), true);
    }
    OpenFilm();
    EXPECT_EQ(lxAviReadCore_SeekToTime(440, 0, lxAviRead_SetPosRoundDown), 440u);
    for (const UInt32 stream : {1u, 2u}) {
        const Delivered got = NextValid();
        EXPECT_EQ(got.chunk.uiStreamNr, stream);
        // the piece begins at 400 ms; 40 ms are 320 samples, and one of them is kept
        EXPECT_EQ(got.chunk.uiBytePosition, 2u * 3200 + 319 * 2);
        EXPECT_EQ(got.chunk.uiSize, 3200u - 319 * 2);
    }
    const auto firsts = Firsts();
    EXPECT_EQ(firsts.at(1).chunk.uiBytePosition, 3u * 3200); // the next pieces are whole
    EXPECT_EQ(firsts.at(2).chunk.uiBytePosition, 3u * 3200);
}

TEST_F(AllTracks, WithoutAudioAJumpGoesToTheKeyFrame)
{
    AddFilm(0, 8, -5);
    OpenFilm();
    EXPECT_EQ(lxAviReadCore_SeekToTime(800, -1, lxAviRead_SetPosRoundDown), 800u);
    const Delivered target = Next();
    EXPECT_EQ(target.uiResult, LX_OK);
    EXPECT_EQ(target.chunk.uiStreamNr, 0u);
    EXPECT_EQ(target.chunk.uiFrameNumber, 20u);
}

// Whatever the jump, each chunk behind it says the same as by playing, and nothing of a track is missing.
TEST_F(AllTracks, SayTheSameOnEveryWay)
{
    std::mt19937 random(20);
    const auto late = [&] { return static_cast<int>(random() % 21) - 10; };
    for (int round = 0; round < 20; ++round) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream()).Add(Mp3VbrStream()).Add(PcmStream()).Add(TextStream());
        builder.eIndex = round % 2 == 0 ? IndexKind::Idx1Relative : IndexKind::SuperStandard;
        builder.eLayout = IxLayout::At32;
        AddFilm(late(), late(), late());
        OpenFilm();
        const auto played = Rest();
        for (const auto& entry : Table()) {
            const auto time = static_cast<UInt32>(entry.timeMsec);
            EXPECT_EQ(lxAviReadCore_SeekToTime(time, 0, lxAviRead_SetPosRoundDown), time);
            std::map<UInt32, UInt64> begun;
            const auto rest = Rest();
            for (const auto& [end, fact] : rest) {
                ASSERT_EQ(fact, played.at(end)) << round << " " << time;
                begun.emplace(fact.uiStreamNr, end);
            }
            for (const auto& [end, fact] : played) {
                if (begun.count(fact.uiStreamNr) != 0 && end >= begun[fact.uiStreamNr]) {
                    EXPECT_EQ(rest.count(end), 1u);
                }
            }
            EXPECT_EQ(begun.count(1) + begun.count(2) + begun.count(3), 3u);
        }
    }
}

TEST_F(AllTracks, SwitchedOnBehindAJumpAreCountedUpToTheirChunk)
{
    AddFilm(0, 0, 0);
    OpenFilm();
    const auto played = Rest();
    lxAviReadCore_DeliverAllTracks(0);
    EXPECT_EQ(lxAviReadCore_SeekToTime(1200, 2, lxAviRead_SetPosRoundDown), 1200u);
    EXPECT_EQ(NextValid(2).uiResult, LX_OK);
    lxAviReadCore_DeliverAllTracks(1);
    for (const auto& [end, fact] : Rest()) {
        EXPECT_EQ(fact, played.at(end));
    }
}

} // namespace
} // namespace avitest
