// The golden files record what the reader does: results, positions, tables, times and messages for files of every kind
// and with every oddity. There is a file for each mode and each family of scenarios. The tests fail when a change
// alters any of these values, and when a target computes other values; they then print what the scenario does, in full.
//
// After a wanted change, LXAVI_GOLDEN_OUT=FOLDER writes the lines to files in that folder instead of comparing them.
//
// For messages and assertions the golden files hold their number and a checksum of their texts. The checksum leaves out
// addresses, source lines, and the source expressions that "Calling" messages quote. Only 64-bit hosts compare it,
// because some messages print sizes of pointers.

#include "ReaderTest.hpp"

#include <cstdlib>
#include <fstream>
#include <functional>
#include <random>
#include <regex>
#include <sstream>

namespace avitest {
namespace {

struct Scenario {
    std::string name;
    Bytes file;
    bool bSeekable = true;
    UInt8 indxOption = 1;
    UInt32 budgetLeafs = 4;
};

UInt32 Fnv(UInt32 sum, std::string_view text)
{
    for (const char c : text) {
        sum = (sum ^ static_cast<UInt8>(c)) * 16777619u;
    }
    return sum;
}

UInt32 SumOf(const Bytes& bytes)
{
    return Fnv(2166136261u, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

// ---- The files ----

void AddMedia(AviBuilder& builder, UInt32 frames, UInt32 step, bool bDrm = false)
{
    std::mt19937 random(frames * 31 + step);
    for (UInt32 i = 0; i < frames; ++i) {
        for (UInt32 stream = 1; stream < builder.streams.size(); ++stream) {
            const size_t size = 1 + random() % 300; // before `random()` in the call below
            builder.Audio(stream, Fill(size, static_cast<UInt8>(random())));
        }
        if (bDrm && i % 3 == 0) {
            builder.Drm(0, Fill(10, static_cast<UInt8>(i)));
        }
        builder.Frame(0, Fill(4 + random() % 60, static_cast<UInt8>(i)), i % step == 0, i % 2 == 0 ? "dc" : "db");
    }
    builder.Frame(0, Fill(8), false);
}

AviBuilder Plain(IndexKind eKind = IndexKind::Idx1Relative)
{
    AviBuilder builder;
    builder.eIndex = eKind;
    builder.Add(VideoStream()).Add(PcmStream()).Add(Mp3VbrStream());
    return builder;
}

Bytes WithMedia(AviBuilder builder, UInt32 frames = 60, UInt32 step = 7, bool bDrm = false)
{
    AddMedia(builder, frames, step, bDrm);
    return builder.Build();
}

Bytes Segmented(IndexKind eKind, IxLayout eLayout)
{
    AviBuilder builder = Plain(eKind);
    builder.eLayout = eLayout;
    builder.dmlhTotalFrames = 200;
    AddMedia(builder, 40, 5);
    builder.NextRiff();
    AddMedia(builder, 40, 5);
    builder.NextRiff();
    AddMedia(builder, 20, 5);
    return builder.Build();
}

Bytes Surrounded(const std::function<void(AviBuilder&)>& change, IndexKind eKind = IndexKind::Idx1Relative)
{
    AviBuilder builder = Plain(eKind);
    change(builder);
    return WithMedia(builder);
}

std::vector<Scenario> SegmentedFiles()
{
    std::vector<Scenario> all;
    const std::pair<const char*, IndexKind> kinds[] = {{"none", IndexKind::None},
                                                       {"idx1 relative", IndexKind::Idx1Relative},
                                                       {"idx1 absolute", IndexKind::Idx1Absolute},
                                                       {"super standard", IndexKind::SuperStandard},
                                                       {"super field", IndexKind::SuperField},
                                                       {"one level standard", IndexKind::OneLevelStandard},
                                                       {"one level field", IndexKind::OneLevelField}};
    for (const auto& [name, eKind] : kinds) {
        all.push_back({std::string(name), WithMedia(Plain(eKind))});
        all.push_back({std::string(name) + ", protected", WithMedia(Plain(eKind), 60, 7, true)});
        all.push_back({std::string(name) + ", no seeks", WithMedia(Plain(eKind)), false});
        all.push_back({std::string(name) + ", option 0", WithMedia(Plain(eKind)), true, 0});
        all.push_back({std::string(name) + ", option 2", WithMedia(Plain(eKind)), true, 2});
        all.push_back({std::string(name) + ", thinned", WithMedia(Plain(eKind), 1200, 1), true, 1, 1});
        all.push_back({std::string(name) + ", several lists", Segmented(eKind, IxLayout::At36)});
        all.push_back({std::string(name) + ", no key flag", WithMedia(Plain(eKind), 20, 1000000)});
    }
    all.push_back({"records at 32", Segmented(IndexKind::SuperStandard, IxLayout::At32)});
    return all;
}

std::vector<Scenario> OddFiles()
{
    std::vector<Scenario> all;
    const auto add = [&](const char* name, const std::function<void(AviBuilder&)>& change) {
        all.push_back({name, Surrounded(change)});
        all.push_back({std::string(name) + ", super index", Surrounded(change, IndexKind::SuperStandard)});
    };
    add("junk before movi", [](AviBuilder& b) { b.beforeMovi = Chunk("JUNK", Fill(21)); });
    add("junk behind movi", [](AviBuilder& b) { b.behindMovi = Chunk("JUNK", Fill(20)); });
    add("unknown before movi", [](AviBuilder& b) { b.beforeMovi = Chunk("abcd", Fill(20)); });
    add("unknown behind movi", [](AviBuilder& b) { b.behindMovi = Chunk("abcd", Fill(20)); });
    add("empty before movi", [](AviBuilder& b) { b.beforeMovi = Chunk("JUNK", {}) + Chunk("abcd", {}); });
    add("empty behind movi", [](AviBuilder& b) { b.behindMovi = Chunk("JUNK", {}); });
    add("info before movi", [](AviBuilder& b) { b.beforeMovi = List("INFO", Chunk("ISFT", Text("me"))); });
    add("info behind movi", [](AviBuilder& b) { b.behindMovi = List("INFO", Chunk("ISFT", Text("me"))); });
    add("list before movi", [](AviBuilder& b) { b.beforeMovi = List("more", Fill(12)); });
    add("list behind movi", [](AviBuilder& b) { b.behindMovi = List("more", Fill(12)); });
    add("list in headers", [](AviBuilder& b) { b.inHeaderList = List("more", Fill(12)); });
    add("chunk in headers", [](AviBuilder& b) { b.inHeaderList = Chunk("vprp", Fill(68)); });
    add("text in stream list", [](AviBuilder& b) { b.streams[0].extra = Chunk("strn", Text("video")); });
    add("open header", [](AviBuilder& b) { b.dmlhTotalFrames = 61; });
    add("ten audio streams", [](AviBuilder& b) {
        for (int i = 0; i < 8; ++i) {
            b.Add(PcmStream());
        }
    });
    add("subtitles", [](AviBuilder& b) { b.Add(TextStream()).Add(VideoStream()); });
    add("has-index bit", [](AviBuilder& b) { b.avih.dwFlags = 0x10; });
    add("start", [](AviBuilder& b) { b.streams[0].header.dwStart = 25; });
    return all;
}

std::vector<Scenario> DamagedFiles()
{
    std::vector<Scenario> all;
    for (const IndexKind eKind : {IndexKind::Idx1Relative, IndexKind::SuperStandard}) {
        const std::string kind = eKind == IndexKind::Idx1Relative ? "idx1" : "super";
        const Bytes whole = WithMedia(Plain(eKind));
        for (UInt32 percent = 5; percent < 100; percent += 5) {
            all.push_back({kind + " cut at " + std::to_string(percent),
                           Bytes(whole.begin(), whole.begin() + static_cast<long>(whole.size() * percent / 100))});
        }
        std::mt19937 random(7);
        for (UInt32 i = 0; i < 40; ++i) {
            Bytes damaged = whole;
            for (UInt32 n = 0; n < 3; ++n) {
                const size_t at = random() % damaged.size();
                damaged[at] = static_cast<UInt8>(random());
            }
            all.push_back({kind + " damaged " + std::to_string(i), damaged});
        }
    }
    return all;
}

// ---- What happens ----

class Golden : public ReaderTest {
protected:
    std::ostringstream out;
    bool bQuiet = false;
    bool bInFull = false; // every chunk and message, not their sums
    UInt8 mode = 0;       // added to every scenario's option with a bitwise or

    void MessagesInFull()
    {
        for (const LogLine& line : log.Lines()) {
            out << "message " << std::hex << line.uiLevel << std::dec << " " << line.text << "\n";
        }
        for (const AssertLine& line : log.Assertions()) {
            out << "assertion " << line.condition << " (" << line.text << ")\n";
        }
        log.Clear();
    }

    void Messages()
    {
        static const std::regex kVolatile(
            "(Free\\( 0x[0-9a-f]+|0x[0-9a-f]{6,}|\\(nil\\)|:\\d+$|:\\d+\\)|line:\\d+|at line \\d+|line \\d+)");
        if (!kHasMessages) {
            out << "messages are not in this build\n";
            log.Clear();
            return;
        }
        if (bInFull) {
            MessagesInFull();
            return;
        }
        UInt32 sum = 2166136261u;
        for (const LogLine& line : log.Lines()) {
            const bool bQuotesSource = line.text.starts_with("Calling ");
            sum = Fnv(sum, std::to_string(line.uiLevel) +
                               (bQuotesSource ? "Calling" : std::regex_replace(line.text, kVolatile, "~")) + "\n");
        }
        for (const AssertLine& line : log.Assertions()) {
            sum = Fnv(sum, line.condition + "|" + line.text + "\n");
        }
        out << "messages " << log.Lines().size() << " assertions " << log.Assertions().size() << " sum " << sum << "\n";
        log.Clear();
    }

    void State()
    {
        const auto& info = Info();
        out << "state movi " << info.moviOffset << "+" << info.moviSize << " idx1 " << info.idx1Offset << "+"
            << info.idx1Size << " at " << info.CurrentOffset << " jump " << info.JumpOffset << " flags "
            << int{info.bAbsoluteOffsets} << int{info.bIndxPresent} << int{info.bAvixPresent} << int{info.bAudioSync}
            << int{info.bJumpToVideo} << " streams " << info.videoStreamNr << "," << info.audioStreamNr << " tracks "
            << info.AudioTracksCount << "," << info.SubtitleTracksCount << " file at "
            << (info.pFile != nullptr ? ftell(info.pFile) : -1) << "\n";
    }

    void TableLines()
    {
        for (UInt32 leaf = 0; leaf < Info().KeyFramesListAsArrayLength; ++leaf) {
            const auto& keys = *Info().KeyFramesListAsArray[leaf];
            for (UInt32 item = 0; item < keys.arrayLength; item += 1 + keys.arrayLength / 8) {
                const auto& key = keys.array[item];
                out << "key " << leaf << "." << item << " " << key.videoFrameNumber << " " << key.videoChunkOffset
                    << " " << key.timeMsec;
                for (UInt32 track = 0; track < 2; ++track) {
                    out << " | " << key.audioFrameNumber[track] << " " << key.audioChunkOffset[track] << " "
                        << key.audioBytePosition[track];
                }
                out << "\n";
            }
        }
    }

    static std::string Line(const Delivered& got)
    {
        std::ostringstream line;
        line << "chunk " << std::hex << got.uiResult << std::dec << " stream " << got.chunk.uiStreamNr << " frame "
             << got.chunk.uiFrameNumber << " bytes " << got.chunk.uiBytePosition << " size " << got.chunk.uiSize
             << " key " << int{got.chunk.bKeyFrame} << " drm " << int{got.chunk.bDrm} << " jumped " << got.bJumped
             << " sum " << SumOf(got.payload) << " time "
             << lxAviReadCore_GetStreamTime(got.chunk.uiStreamNr, got.chunk.uiFrameNumber, got.chunk.uiBytePosition);
        return line.str();
    }

    static bool Ends(const Delivered& got)
    {
        return got.uiResult == LX_AVIREAD_END_OF_MEDIA || got.uiResult == LX_ERR_AVIREAD_READ ||
               got.uiResult == LX_ERR_AVIREAD_EOF || got.uiResult == LX_ERR_AVIREAD_SEEK ||
               got.uiPayloadResult != LX_OK;
    }

    // Writes the first chunks in full, and a checksum of the other chunks.
    void Play(UInt32 most)
    {
        UInt32 more = 0;
        UInt32 sum = 2166136261u;
        for (UInt32 i = 0; i < most; ++i) {
            const Delivered got = Next();
            SkipRejected(got);
            if (i < 2 || bInFull) {
                out << Line(got) << "\n";
            } else {
                sum = Fnv(sum, Line(got));
                ++more;
            }
            if (Ends(got)) {
                break;
            }
        }
        if (more > 0) {
            out << "chunks " << more << " sum " << sum << "\n";
        }
    }

    void Jumps()
    {
        Bool found = 0;
        for (const UInt32 time : {0u, 700u, 1500u, 999999u}) {
            for (UInt32 rounding = 0; rounding < 3; ++rounding) {
                out << "seek " << time << " " << rounding << " to " << lxAviReadCore_SeekToTime(time, 0, rounding)
                    << "\n";
                State();
                Play(rounding == 1 ? 6 : 1);
            }
        }
        out << "next " << lxAviReadCore_SetJumpToNextKeyFrame(&found, -1) << int{found} << "\n";
        Play(4);
        out << "back " << lxAviReadCore_SetJumpToPrevKeyFrame(&found, 0) << int{found} << "\n";
        Play(4);
        out << "trick " << lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(&found, 0) << int{found} << "\n";
        Play(4);
        out << "jump " << lxAviReadCore_JumpInKeyFrames(-2, 1) << " rearm "
            << lxAviReadCore_SetOnKeyFrame_AudioAndVideo(0) << "\n";
        Play(4);
    }

    void Run(const Scenario& scenario)
    {
        out << "== " << scenario.name << "\n";
        bPayloadsMayBeCut = true;
        const UInt32 budget = scenario.budgetLeafs * kOneLeafBudget;
        const UInt32 opened =
            Open(scenario.file, scenario.bSeekable, 1, budget, static_cast<UInt8>(scenario.indxOption | mode));
        out << "open " << std::hex << opened << std::dec << " indexed " << int{allIndexed} << "\n";
        State();
        if (opened == LX_OK) {
            lxAviRead_SetPositionRangeInfo_t range = {};
            static_cast<void>(lxAviReadCore_GetSetPositionRangeInfo(&range));
            if (range.uiLastKeyFrameNr == 0xFFFFFFFFu) {
                out << "index " << std::hex << lxAviReadCore_ParseIndex(0) << std::dec << "\n";
            }
            static_cast<void>(lxAviReadCore_GetSetPositionRangeInfo(&range));
            out << "range " << range.uiLastKeyFrameNr << " " << range.uiStartTimeMsec << " " << range.uiEndTimeMsec
                << "\n";
            TableLines();
            State();
            if (scenario.bSeekable) {
                Position();
            }
            Play(40);
            if (range.uiLastKeyFrameNr != 0xFFFFFFFFu) {
                Jumps();
            }
        }
        Messages();
        static_cast<void>(lxAviReadCore_Close());
        log.Clear();
    }

    UInt32 OpenAs(const Bytes& file) { return Open(file, true, 1, kOneLeafBudget, static_cast<UInt8>(1 | mode)); }

    void Times();
    std::string InFull(const Scenario& scenario);
    void CompareFamily(const std::string& family, const std::vector<Scenario>& scenarios);
    void Compare();
};

// Writes the times of random positions in streams with random headers. The floating-point results have to be the same
// on every target.
void Golden::Times()
{
    std::mt19937 random(5);
    const auto below = [&](UInt32 limit) { return static_cast<UInt32>(random() % limit); };
    constexpr UInt16 kFormats[] = {1, 2, 3, 0x50, 0x55, 0xFF, 0x2000};
    for (UInt32 i = 0; i < 100; ++i) {
        AviBuilder builder;
        builder.avih.dwMicroSecPerFrame = below(100000);
        Stream audio = PcmStream();
        const UInt32 bytesPerSec = below(400000);
        const UInt16 format = kFormats[below(7)];
        const UInt32 samplesPerSec = below(96000);
        audio.format = AudioFormat(format, 2, samplesPerSec, bytesPerSec, static_cast<UInt16>(below(5)), 16);
        audio.header.dwScale = below(3000);
        audio.header.dwRate = below(200000);
        audio.header.dwSampleSize = below(5);
        audio.header.dwStart = below(100);
        builder.Add(VideoStream()).Add(audio);
        ASSERT_EQ(OpenAs(builder.Build()), LX_OK);
        out << "times";
        for (UInt32 n = 0; n < 8; ++n) {
            const UInt64 bytes = UInt64{below(0xFFFFFFFF)} * (n < 6 ? 1 : 1000);
            const UInt32 frame = below(0xFFFFFFFF) >> n * 3;
            out << " " << lxAviReadCore_GetStreamTime(0, frame, 0) << " "
                << lxAviReadCore_GetStreamTime(1, frame, bytes >> n);
        }
        out << "\n";
        static_cast<void>(lxAviReadCore_Close());
        log.Clear();
    }
}

bool IsCompared(const std::string& line)
{
    return (sizeof(void*) == 8 && kHasMessages) || !line.starts_with("messages ");
}

std::string FileOf(UInt8 mode, const std::string& family)
{
    return (mode == 0 ? "default-" : "format-") + family + ".txt";
}

std::string GoldenText(UInt8 mode, const std::string& family)
{
    std::ifstream file(LXAVIREAD_GOLDEN "/" + FileOf(mode, family));
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string Golden::InFull(const Scenario& scenario)
{
    bInFull = true;
    out.str({});
    Run(scenario);
    bInFull = false;
    return out.str();
}

// Compares what the scenarios of a family have written to `out`.
void Golden::CompareFamily(const std::string& family, const std::vector<Scenario>& scenarios)
{
    if (const char* folder = bQuiet ? nullptr : std::getenv("LXAVI_GOLDEN_OUT")) {
        std::ofstream(folder + ("/" + FileOf(mode, family))) << out.str();
        return;
    }
    std::istringstream golden(GoldenText(mode, family)), now(out.str());
    std::string want, got;
    size_t begun = 0; // scenarios
    UInt32 compared = 0;
    while (std::getline(golden, want)) {
        ASSERT_TRUE(std::getline(now, got)) << "nothing more, where the golden file of " << family << " has: " << want;
        begun += want.starts_with("== ") ? 1 : 0;
        if (IsCompared(want) && !(bQuiet && want.starts_with("messages "))) {
            ASSERT_EQ(got, want) << (begun > 0 ? "in full now:\n" + InFull(scenarios.at(begun - 1)) : family);
            ++compared;
        }
    }
    EXPECT_FALSE(std::getline(now, got)) << "more than the golden file of " << family << " has: " << got;
    EXPECT_GT(compared, 99u);
    EXPECT_EQ(begun, scenarios.size());
}

void Golden::Compare()
{
    const std::pair<const char*, std::vector<Scenario>> families[] = {
        {"segmented", SegmentedFiles()}, {"odd", OddFiles()}, {"damaged", DamagedFiles()}};
    for (const auto& [family, scenarios] : families) {
        out.str({});
        for (const Scenario& scenario : scenarios) {
            Run(scenario);
        }
        CompareFamily(family, scenarios);
    }
    out.str({});
    Times();
    CompareFamily("times", {});
}

TEST_F(Golden, WhatTheReaderDoesByDefaultIsWhatItAlwaysDid) { Compare(); }

TEST_F(Golden, NothingDependsOnWhatIsLogged)
{
    bQuiet = true;
    log.SetMask(0);
    Compare();
}

TEST_F(Golden, WhatFollowingTheFormatDoesIsWrittenDown)
{
    mode = LX_AVIREAD_FOLLOW_FORMAT;
    Compare();
}

// Reads from a golden file whether Open succeeded, for each scenario.
std::vector<std::pair<std::string, bool>> Opened(UInt8 mode, const std::string& family)
{
    std::vector<std::pair<std::string, bool>> opened;
    std::istringstream golden(GoldenText(mode, family));
    std::string line, scenario;
    while (std::getline(golden, line)) {
        scenario = line.starts_with("== ") ? line : scenario;
        if (line.starts_with("open ")) {
            opened.emplace_back(scenario, line.starts_with("open 0 "));
        }
    }
    return opened;
}

TEST(GoldenFiles, FollowingTheFormatOpensWhateverTheDefaultOpens)
{
    size_t files = 0;
    for (const std::string family : {"segmented", "odd", "damaged"}) {
        const auto byDefault = Opened(0, family);
        const auto byFormat = Opened(LX_AVIREAD_FOLLOW_FORMAT, family);
        ASSERT_EQ(byDefault.size(), byFormat.size());
        for (size_t i = 0; i < byDefault.size(); ++i) {
            EXPECT_TRUE(byFormat[i].second || !byDefault[i].second) << byDefault[i].first;
        }
        files += byDefault.size();
    }
    ASSERT_GT(files, 200u);
}

} // namespace
} // namespace avitest
