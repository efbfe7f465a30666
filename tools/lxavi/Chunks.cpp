// lxavi chunks: one row per delivered chunk.

#include "Codecs.hpp"
#include "Commands.hpp"
#include "Output.hpp"

#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>

#include <unistd.h>

namespace lxavi {

namespace {

const std::vector<Column> kColumns = {
    {"n", 8},   {"stream", 6}, {"type", -8},  {"track", 5},   {"frame", 8},   {"byte_position", 13}, {"size_bytes", 10},
    {"key", 5}, {"drm", 5},    {"jumped", 6}, {"offset", 12}, {"time_ms", 9}, {"crc32", 10}};

UInt32 PayloadCrc(Reader& reader, const Item& item)
{
    uLong crc = crc32(0, nullptr, 0);
    reader.ReadPayload(
        item, [&](std::span<const UInt8> piece) { crc = crc32(crc, piece.data(), static_cast<uInt>(piece.size())); });
    return static_cast<UInt32>(crc);
}

std::vector<Json> Row(UInt64 n, const Item& item, UInt32 crc)
{
    const bool isAudio = item.chunk.eStreamType == LX_AVIREAD_STREAM_AUDIO;
    return {n,
            item.chunk.uiStreamNr,
            TypeName(item.chunk.eStreamType),
            item.track,
            item.chunk.uiFrameNumber,
            isAudio ? Json(item.chunk.uiBytePosition) : Json(),
            item.chunk.uiSize,
            item.chunk.bKeyFrame != 0,
            item.chunk.bDrm != 0,
            item.jumped,
            item.offset,
            item.time,
            crc};
}

} // namespace

int RunChunks(const Options& options, const PlayOptions& play)
{
    RefuseUnknownFields(options, kColumns); // before the work
    Reader reader(options);
    const int track = reader.TrackToPlay(play.audio);
    const UInt32 subtitle = reader.SubtitleToPlay(play.subtitle);
    // Without a table the library still delivers the file from start to end.
    const UInt32 indexed = reader.BuildIndex();
    if (indexed != LX_OK) {
        Say(fmt::format("lxavi: {}: no jumps in this file: {}", options.Name(), Failure("", indexed).what()));
    }
    reader.Start();
    if (play.from) {
        const UInt32 landed = reader.Seek(*play.from, track, play.rounding);
        Say(fmt::format("lxavi: {}: asked for {} ms, landed on the key frame at {} ms", options.Name(), *play.from,
                        landed));
    }
    TableWriter table(options, kColumns);
    Progress progress("listing", reader.FileSize());
    UInt64 n = 0;
    bool jumped = false; // a jump was executed since the last delivered chunk
    while (!play.limit || n < *play.limit) {
        Item item = reader.Next(static_cast<UInt32>(std::max(track, 0)), subtitle);
        jumped = jumped || item.jumped;
        if (Reader::IsEnd(item)) {
            if (item.result != LX_AVIREAD_END_OF_MEDIA) {
                throw Failure(fmt::format("delivery stopped at {}", item.offset + 8), item.result);
            }
            break;
        }
        if (isatty(STDOUT_FILENO) == 0) { // there the rows show the progress
            progress.At(item.offset);
        }
        if (Reader::IsRejected(item)) {
            reader.Skip(item);
            continue;
        }
        item.jumped = jumped;
        jumped = false;
        table.Row(Row(n, item, PayloadCrc(reader, item)));
        ++n;
    }
    return kDone;
}

} // namespace lxavi
