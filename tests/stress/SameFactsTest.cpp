// In format mode a chunk has the same facts on every way: its stream, its kind, its number, its position, its time and
// its key flag are the same whether it is reached by playing, after a seek, a step or a rewind. The tests play a file
// from its start and note the facts of every chunk. Then they jump at random and compare.

#include "ReaderTest.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <random>

namespace avitest {
namespace {

constexpr UInt8 kFormat = LX_AVIREAD_FOLLOW_FORMAT | 1;
constexpr UInt32 kNoTrack = 7; // of a file that has fewer tracks

struct Facts {
    UInt32 uiStreamNr, eStreamType, uiFrameNumber, uiSize;
    UInt64 uiBytePosition;
    UInt32 uiTime;
    bool bKeyFrame;

    bool operator==(const Facts&) const = default;
};

class SameFacts : public ReaderTest {
protected:
    std::mt19937 random{0};
    std::map<UInt64, Facts> facts; // by the end of the payload, which a trim does not move
    UInt64 jumps = 0;
    UInt64 compared = 0;

    UInt32 Pick(UInt32 from, UInt32 to) { return std::uniform_int_distribution<UInt32>(from, to)(random); }

    UInt32 Tracks() { return std::min<UInt32>(Info().AudioTracksCount, kNoTrack); }

    static UInt32 TimeOf(const lxAviRead_ChunkData_t& chunk)
    {
        return lxAviReadCore_GetStreamTime(chunk.uiStreamNr, chunk.uiFrameNumber, chunk.uiBytePosition);
    }

    // Audio and video have facts; a subtitle has its payload alone.
    static Facts FactsOf(const lxAviRead_ChunkData_t& chunk)
    {
        const bool bAudio = chunk.eStreamType == LX_AVIREAD_STREAM_AUDIO;
        const bool bNumbered = bAudio || chunk.eStreamType == LX_AVIREAD_STREAM_VIDEO;
        return {chunk.uiStreamNr,
                chunk.eStreamType,
                bNumbered ? chunk.uiFrameNumber : 0,
                chunk.uiSize,
                bAudio ? chunk.uiBytePosition : 0,
                bNumbered ? TimeOf(chunk) : 0,
                chunk.bKeyFrame == 1};
    }

    // What is noted of a chunk from which a trim has removed `bytes`.
    static Facts Untrimmed(Facts noted, const lxAviRead_ChunkData_t& chunk)
    {
        const UInt32 bytes = noted.uiSize - chunk.uiSize;
        if (bytes != 0 && noted.uiSize > chunk.uiSize && noted.eStreamType == LX_AVIREAD_STREAM_AUDIO) {
            noted.uiSize -= bytes;
            noted.uiBytePosition += bytes;
            noted.uiTime = lxAviReadCore_GetStreamTime(noted.uiStreamNr, noted.uiFrameNumber, noted.uiBytePosition);
        }
        return noted;
    }

    void NoteAll(UInt32 track)
    {
        lxAviReadCore_RewindToStart();
        for (const Delivered& got : All(track)) {
            if (got.uiResult == LX_OK) {
                facts[got.uiPosition + got.chunk.uiSize] = FactsOf(got.chunk);
            }
        }
    }

    void Compare(const Delivered& got)
    {
        const auto noted = facts.find(got.uiPosition + got.chunk.uiSize);
        ASSERT_NE(noted, facts.end()) << "a chunk at " << got.uiPosition << " that playing does not meet";
        const Facts want = Untrimmed(noted->second, got.chunk);
        const Facts have = FactsOf(got.chunk);
        ++compared;
        ASSERT_EQ(have, want) << "the chunk at " << got.uiPosition << " of stream " << have.uiStreamNr << ": frame "
                              << have.uiFrameNumber << " for " << want.uiFrameNumber << ", byte position "
                              << have.uiBytePosition << " for " << want.uiBytePosition << ", time " << have.uiTime
                              << " for " << want.uiTime << ", key " << have.bKeyFrame << " for " << want.bKeyFrame;
    }

    void Jump(Int32 track)
    {
        Bool found = 0;
        lxAviRead_SetPositionRangeInfo_t range = {};
        EXPECT_EQ(lxAviReadCore_GetSetPositionRangeInfo(&range), LX_OK);
        ++jumps;
        switch (Pick(0, 7)) {
        case 0: EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrame(&found, track), LX_OK); break;
        case 1: EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(&found, track), LX_OK); break;
        case 2: EXPECT_EQ(lxAviReadCore_SetJumpToPrevKeyFrame(&found, track), LX_OK); break;
        case 3: EXPECT_EQ(lxAviReadCore_JumpInKeyFrames(static_cast<Int32>(Pick(0, 8)) - 4, track), LX_OK); break;
        case 4: EXPECT_EQ(lxAviReadCore_SetOnKeyFrame_AudioAndVideo(track), LX_OK); break;
        case 5:
            if (Pick(0, 3) == 0) {
                lxAviReadCore_RewindToStart();
                break;
            }
            [[fallthrough]];
        default: lxAviReadCore_SeekToTime(Pick(0, range.uiEndTimeMsec + 500), track, Pick(0, 2));
        }
    }

    // Plays on for a while, now and then with another track.
    void PlayOn(UInt32 selected)
    {
        for (UInt32 n = Pick(0, 40); n > 0; --n) {
            if (Tracks() > 1 && Pick(0, 30) == 0) {
                selected = Pick(0, Tracks() - 1);
            }
            const Delivered got = Next(selected);
            if (got.uiResult == LX_OK) {
                ASSERT_NO_FATAL_FAILURE(Compare(got));
            }
            if (got.uiResult == LX_AVIREAD_END_OF_MEDIA || got.uiResult == LX_ERR_AVIREAD_EOF ||
                got.uiPayloadResult != LX_OK) {
                return;
            }
            SkipRejected(got);
        }
    }

    // False for a file that has no table.
    bool CheckFile(const Bytes& file, UInt32 budget, UInt32 jumpCount)
    {
        log.SetMask(0);
        Faults().Clear();
        Faults().SetBuffered(true);
        bPayloadsMayBeCut = true;
        facts.clear();
        if (Open(file, true, 1, budget, kFormat) != LX_OK || lxAviReadCore_ParseIndex(0) != LX_OK) {
            return false;
        }
        Position();
        for (UInt32 track = 0; track <= Tracks(); ++track) {
            NoteAll(track);
        }
        lxAviReadCore_RewindToStart();
        for (UInt32 i = 0; i < jumpCount && !HasFatalFailure(); ++i) {
            const auto track = static_cast<Int32>(Pick(0, Tracks())) - 1;
            Jump(track);
            const bool bOther = Tracks() > 0 && Pick(0, 5) == 0; // a player may play what it has not sought with
            PlayOn(bOther ? Pick(0, Tracks() - 1) : track >= 0 ? static_cast<UInt32>(track) : kNoTrack);
        }
        return true;
    }

    void Tell() const
    {
        std::cout << jumps << " jumps, " << compared << " chunks compared, differences " << HasFatalFailure() << "\n";
    }

    // ---- Random files ----

    Stream RandomTrack()
    {
        Stream coded = Mp3VbrStream(8000);
        coded.format = AudioFormat(0x161, 2, 8000, 2000, 100, 0); // chunks of several blocks, or none
        switch (Pick(0, 4)) {
        case 0: return PcmStream(8000, 1, 16);
        case 1: return Mp3CbrStream(4000);
        case 2: return Mp3VbrStream(44100);
        case 3: return coded;
        default: return Ac3Stream(6000);
        }
    }

    // A file whose index need not agree with its chunks: some chunks are missing in it.
    Bytes RandomFile(IndexKind eKind)
    {
        AviBuilder builder;
        builder.eIndex = eKind;
        builder.eLayout = IxLayout::At32;
        builder.bIdx1Too = Pick(0, 4) == 0;
        builder.dmlhTotalFrames = 100000;
        builder.Add(VideoStream(25, 1));
        const UInt32 tracks = Pick(0, 3);
        for (UInt32 t = 0; t < tracks; ++t) {
            builder.Add(RandomTrack());
        }
        const UInt32 frames = Pick(10, 800);
        const UInt32 step = Pick(1, 12);
        const UInt32 unindexed = Pick(0, 1) == 0 ? 0 : 20; // one chunk of so many is not in the index
        for (UInt32 i = 0; i < frames; ++i) {
            for (UInt32 t = 0; t < tracks; ++t) {
                for (UInt32 n = i == 0 ? Pick(0, 40) : Pick(0, 2); n > 0; --n) {
                    const std::string code = {'0', static_cast<char>('1' + t), 'w', 'b'};
                    const bool bIndexed = unindexed == 0 || Pick(0, unindexed) != 0;
                    builder.Media(code, Fill(Pick(0, 300), static_cast<UInt8>(random())), true, bIndexed);
                }
            }
            if (Pick(0, 30) == 0) {
                builder.Raw(Chunk("JUNK", Fill(Pick(0, 40))));
            }
            builder.Media("00dc", Fill(Pick(0, 60)), i % step == 0,
                          i == 0 || unindexed == 0 || Pick(0, unindexed) != 0);
            if (i == frames / 2 && Pick(0, 2) == 0) {
                builder.NextRiff();
            }
        }
        return builder.Build();
    }
};

TEST_F(SameFacts, HoldInRandomFilesOfEveryKindOfIndex)
{
    for (UInt32 seed = 1; seed <= 360 && !HasFatalFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        random.seed(seed);
        static constexpr IndexKind kKinds[] = {IndexKind::Idx1Relative,     IndexKind::Idx1Absolute,
                                               IndexKind::SuperStandard,    IndexKind::SuperField,
                                               IndexKind::OneLevelStandard, IndexKind::OneLevelField};
        const Bytes file = RandomFile(kKinds[seed % 6]);
        ASSERT_TRUE(CheckFile(file, seed % 3 == 0 ? kOneLeafBudget : kPlenty, 60));
    }
    EXPECT_GE(jumps, 20000u);
    Tell();
}

// The samples, and the files of the folder that the environment names, if it names one.
TEST_F(SameFacts, HoldInRealFiles)
{
    std::vector<std::filesystem::path> folders = {LXAVIREAD_SAMPLES};
    if (const char* const pCorpus = std::getenv("LXAVI_CORPUS"); pCorpus != nullptr) {
        folders.emplace_back(pCorpus);
    }
    UInt32 files = 0;
    for (const std::filesystem::path& folder : folders) {
        for (const auto& item : std::filesystem::directory_iterator(folder)) {
            const std::string extension = item.path().extension().string();
            if ((extension != ".avi" && extension != ".AVI") || HasFatalFailure()) {
                continue;
            }
            SCOPED_TRACE(item.path().filename().string());
            std::ifstream stream(item.path(), std::ios::binary);
            const Bytes file{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
            files += CheckFile(file, kPlenty, 200) ? 1 : 0;
            CheckFile(file, kOneLeafBudget, 50);
        }
    }
    EXPECT_GE(files, 4u);
    std::cout << files << " files with a table; ";
    Tell();
}

} // namespace
} // namespace avitest
