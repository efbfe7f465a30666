// lxavi chunks: one row per delivered chunk.

#include "Codecs.hpp"
#include "Commands.hpp"
#include "Output.hpp"

#include <fmt/format.h>
#include <zlib.h>

namespace lxavi {

namespace {

const std::vector<Column> kColumns = {
    {"n", "n", 8},           {"stream", "stream", 6},  {"type", "type", -8},
    {"track", "track", 5},   {"frame", "frame", 8},    {"byte_position", "byte position", 13},
    {"size", "size", 9},     {"key", "key", 3},        {"drm", "drm", 3},
    {"jumped", "jumped", 6}, {"offset", "offset", 12}, {"time_ms", "time ms", 9},
    {"crc32", "crc32", 10}};

UInt32 PayloadCrc(Reader& reader, const Item& item)
{
    uLong crc = crc32(0, nullptr, 0);
    reader.ReadPayload(
        item, [&](std::span<const UInt8> piece) { crc = crc32(crc, piece.data(), static_cast<uInt>(piece.size())); });
    return static_cast<UInt32>(crc);
}

std::vector<Json> Row(UInt64 n, const Item& item, UInt32 crc)
{
    const bool audio = item.chunk.eStreamType == LX_AVIREAD_STREAM_AUDIO;
    return {n,
            item.chunk.uiStreamNr,
            TypeName(item.chunk.eStreamType),
            item.track,
            item.chunk.uiFrameNumber,
            audio ? item.chunk.uiBytePosition : 0,
            item.chunk.uiSize,
            item.chunk.bKeyFrame,
            item.chunk.bDrm,
            item.jumped ? 1 : 0,
            item.offset,
            item.time,
            crc};
}

} // namespace

int RunChunks(const Options& options, const PlayOptions& play)
{
    Reader reader(options);
    // Without a table the library still delivers the file from start to end.
    const UInt32 indexed = reader.BuildIndex();
    if (indexed != LX_OK) {
        fmt::print(stderr, "lxavi: {}: no jumps in this file: {}\n", options.file, Failure("", indexed).what());
    }
    reader.Start();
    if (play.from) {
        const UInt32 landed = reader.Seek(*play.from, reader.TrackToPlay(play.audio), play.rounding);
        fmt::print(stderr, "lxavi: {}: asked for {} ms, landed on the key frame at {} ms\n", options.file, *play.from,
                   landed);
    }
    TableWriter table(options, kColumns);
    UInt64 n = 0;
    bool jumped = false; // a jump was executed since the last delivered chunk
    while (!play.limit || n < *play.limit) {
        Item item = reader.Next(play.audio, play.subtitle);
        jumped = jumped || item.jumped;
        if (Reader::IsEnd(item)) {
            if (item.result != LX_AVIREAD_END_OF_MEDIA) {
                throw Failure(fmt::format("delivery stopped at {}", item.offset + 8), item.result);
            }
            break;
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
