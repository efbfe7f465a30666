// lxavi seek and lxavi step: show where jumps land, and which chunks the library delivers there.

#include "Codecs.hpp"
#include "Commands.hpp"
#include "Landing.hpp"
#include "Output.hpp"

#include <algorithm>
#include <cstdlib>

namespace lxavi {

namespace {

// Builds the table and goes to the first chunk.
void Prepare(Reader& reader)
{
    if (const UInt32 result = reader.BuildIndex(); result != LX_OK) {
        throw Failure("cannot jump", result);
    }
    reader.Start();
}

// The next delivered chunk of a kind. Skips its payload, and the payloads of all chunks before it.
std::optional<Item> NextOf(Reader& reader, UInt32 type, UInt32 audio)
{
    for (;;) {
        const Item item = reader.Next(audio, 0);
        if (Reader::IsEnd(item)) {
            return std::nullopt;
        }
        reader.Skip(item);
        if (item.result == LX_OK && item.chunk.eStreamType == type) {
            return item;
        }
    }
}

Json ItemReport(const std::optional<Item>& item)
{
    if (!item) {
        return nullptr;
    }
    Json json;
    json["stream"] = item->chunk.uiStreamNr;
    json["frame"] = item->chunk.uiFrameNumber;
    json["time_ms"] = item->time;
    json["offset"] = item->offset;
    json["size_bytes"] = item->chunk.uiSize;
    if (item->chunk.eStreamType == LX_AVIREAD_STREAM_VIDEO) {
        json["key"] = item->chunk.bKeyFrame != 0;
    } else {
        json["byte_position"] = item->chunk.uiBytePosition;
    }
    return json;
}

void ArmStep(StepMode mode, int track, Bool& found)
{
    switch (mode) {
    case StepMode::Forward: static_cast<void>(lxAviReadCore_SetJumpToNextKeyFrame(&found, track)); break;
    case StepMode::Trick: static_cast<void>(lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(&found, track)); break;
    case StepMode::Back: static_cast<void>(lxAviReadCore_SetJumpToPrevKeyFrame(&found, track)); break;
    case StepMode::Jump: break;
    }
}

// The steps of one run of the command.
class Steps {
public:
    Steps(Reader& reader, const StepOptions& step) : m_reader(reader), m_step(step) {}

    void Run(TableWriter& table)
    {
        Show(table, 0, true, Begin());
        const int count = std::abs(m_step.count);
        bool found = true;
        for (int n = 1; n <= count && found; ++n) {
            found = m_step.mode == StepMode::Jump ? Jump(n) : Step();
            Show(table, n, found, Next());
        }
    }

private:
    // Goes to the place from where the steps count, and returns the frame there.
    Item Begin()
    {
        lxAviReadCore_RewindToStart();
        if (m_step.from) {
            m_reader.Seek(*m_step.from, -1, lxAviRead_SetPosRoundDown);
        }
        return Next();
    }

    bool Step()
    {
        Bool found = 0;
        ArmStep(m_step.mode, -1, found);
        return found != 0;
    }

    // A jump by `n` key frames from the first place. One that would leave the table goes to the first key frame.
    bool Jump(int n)
    {
        const Item begin = Begin();
        const auto table = m_reader.Table();
        const auto current = std::find_if(table.begin(), table.end(), [&](const auto* entry) {
            return entry->videoFrameNumber == begin.chunk.uiFrameNumber;
        });
        const Int32 count = m_step.count < 0 ? -n : n;
        static_cast<void>(lxAviReadCore_JumpInKeyFrames(count, -1));
        const auto target = current - table.begin() + count;
        return target >= 0 && target < static_cast<std::ptrdiff_t>(table.size());
    }

    Item Next()
    {
        const std::optional<Item> item = NextOf(m_reader, LX_AVIREAD_STREAM_VIDEO, 0);
        if (!item) {
            throw Failure("no video chunk follows");
        }
        return *item;
    }

    static void Show(TableWriter& table, int n, bool found, const Item& item)
    {
        table.Row(
            {n, found, item.chunk.uiFrameNumber, item.time, item.chunk.bKeyFrame != 0, item.offset, item.chunk.uiSize});
    }

    Reader& m_reader;
    const StepOptions& m_step;
};

} // namespace

int RunSeek(const Options& options, UInt32 time, const PlayOptions& play)
{
    Reader reader(options);
    const int track = reader.TrackToPlay(play.audio);
    Prepare(reader);
    const UInt32 landed = reader.Seek(time, track, play.rounding);
    const lxAviReadCore_AviInfo_t& state = reader.State();
    lxAviRead_SetPositionRangeInfo_t range = {};
    static_cast<void>(lxAviReadCore_GetSetPositionRangeInfo(&range));
    Json report;
    report["asked_ms"] = time;
    report["landed_ms"] = landed;
    report["off_by_ms"] = static_cast<std::int64_t>(landed) - static_cast<std::int64_t>(time);
    report["leaf"] = state.audioSyncLeafNr;
    report["item"] = state.audioSyncItemNr;
    report["jump_to"] = state.bJumpToVideo != 0 ? "video" : "audio";
    report["jump_offset"] = state.JumpOffset;
    report["first_key_frame_ms"] = range.uiStartTimeMsec;
    report["last_key_frame_ms"] = range.uiEndTimeMsec;
    constexpr UInt64 kAllChunks = ~UInt64{0};
    const Landing landing = Land(reader, track, kAllChunks);
    report["first_video"] = ItemReport(landing.video);
    report["first_audio"] = ItemReport(landing.audio);
    report["audio_minus_video_ms"] = nullptr;
    if (landing.video && landing.audio) {
        report["audio_minus_video_ms"] =
            static_cast<std::int64_t>(landing.audio->time) - static_cast<std::int64_t>(landing.video->time);
    }
    PrintReport(options, report);
    return kDone;
}

int RunStep(const Options& options, const StepOptions& step)
{
    Reader reader(options);
    Prepare(reader);
    TableWriter table(
        options,
        {{"n", 6}, {"found", 5}, {"frame", 8}, {"time_ms", 9}, {"key", 5}, {"offset", 12}, {"size_bytes", 10}});
    Steps(reader, step).Run(table);
    return kDone;
}

} // namespace lxavi
