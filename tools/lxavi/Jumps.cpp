// lxavi seek and lxavi step: show where jumps land, and which chunks the library delivers there.

#include "Codecs.hpp"
#include "Commands.hpp"
#include "Output.hpp"

#include <fmt/format.h>

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
    Json json;
    if (!item) {
        json["delivered"] = false;
        return json;
    }
    json["delivered"] = true;
    json["stream"] = item->chunk.uiStreamNr;
    json["frame"] = item->chunk.uiFrameNumber;
    json["time ms"] = item->time;
    json["offset"] = item->offset;
    json["size"] = item->chunk.uiSize;
    if (item->chunk.eStreamType == LX_AVIREAD_STREAM_VIDEO) {
        json["key"] = item->chunk.bKeyFrame != 0;
    } else {
        json["byte position"] = item->chunk.uiBytePosition;
    }
    return json;
}

struct Landing {
    std::optional<Item> video;
    std::optional<Item> audio;
};

// Delivers chunks until it has the first video chunk and the first audio chunk.
Landing Land(Reader& reader, int track)
{
    Landing landing;
    while (!landing.video || (track >= 0 && !landing.audio)) {
        const Item item = reader.Next(track >= 0 ? static_cast<UInt32>(track) : 0, 0);
        if (Reader::IsEnd(item)) {
            break;
        }
        reader.Skip(item);
        if (item.result != LX_OK) {
            continue;
        }
        if (item.chunk.eStreamType == LX_AVIREAD_STREAM_VIDEO && !landing.video) {
            landing.video = item;
        } else if (item.chunk.eStreamType == LX_AVIREAD_STREAM_AUDIO && !landing.audio) {
            landing.audio = item;
        }
    }
    return landing;
}

// The first and the last time that a seek can land on.
std::string Range()
{
    lxAviRead_SetPositionRangeInfo_t range = {};
    static_cast<void>(lxAviReadCore_GetSetPositionRangeInfo(&range));
    return Duration(range.uiStartTimeMsec) + " to " + Duration(range.uiEndTimeMsec);
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

} // namespace

int RunSeek(const Options& options, UInt32 time, const PlayOptions& play)
{
    Reader reader(options);
    Prepare(reader);
    const int track = reader.TrackToPlay(play.audio);
    const UInt32 landed = reader.Seek(time, track, play.rounding);
    const lxAviReadCore_AviInfo_t& state = reader.State();
    Json report;
    report["asked for ms"] = time;
    report["landed on ms"] = landed;
    report["off by ms"] = static_cast<std::int64_t>(landed) - static_cast<std::int64_t>(time);
    report["leaf"] = state.audioSyncLeafNr;
    report["item"] = state.audioSyncItemNr;
    report["jump to"] = state.bJumpToVideo != 0 ? "video" : "audio";
    report["jump offset"] = state.JumpOffset;
    report["range"] = Range();
    const Landing landing = Land(reader, track);
    report["first video"] = ItemReport(landing.video);
    if (track >= 0) {
        report["first audio"] = ItemReport(landing.audio);
    }
    if (landing.video && landing.audio) {
        report["audio minus video ms"] =
            static_cast<std::int64_t>(landing.audio->time) - static_cast<std::int64_t>(landing.video->time);
    }
    PrintReport(options, report);
    return kDone;
}

int RunStep(const Options& options, const StepOptions& step)
{
    Reader reader(options);
    Prepare(reader);
    if (step.from) {
        reader.Seek(*step.from, -1, lxAviRead_SetPosRoundDown);
    }
    TableWriter table(options, {{"n", "n", 6},
                                {"found", "found", 5},
                                {"frame", "frame", 8},
                                {"time_ms", "time ms", 9},
                                {"key", "key", 3},
                                {"offset", "offset", 12},
                                {"size", "size", 9}});
    const auto show = [&](int n, bool found) {
        const std::optional<Item> item = NextOf(reader, LX_AVIREAD_STREAM_VIDEO, 0);
        if (!item) {
            throw Failure("no video chunk follows");
        }
        table.Row({n, found ? 1 : 0, item->chunk.uiFrameNumber, item->time, item->chunk.bKeyFrame, item->offset,
                   item->chunk.uiSize});
    };
    show(0, true);
    if (step.mode == StepMode::Jump) {
        static_cast<void>(lxAviReadCore_JumpInKeyFrames(step.count, -1));
        show(1, true);
        return kDone;
    }
    for (int n = 1; n <= step.count; ++n) {
        Bool found = 0;
        ArmStep(step.mode, -1, found);
        show(n, found != 0);
        if (found == 0) {
            break;
        }
    }
    return kDone;
}

} // namespace lxavi
