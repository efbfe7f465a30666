// lxavi index: the key-frame table.

#include "Commands.hpp"
#include "Output.hpp"

#include <fmt/format.h>

namespace lxavi {

namespace {

std::vector<Json> AudioOf(const lxAviReadCore_KeyFrameEntry_t& entry, UInt32 track)
{
    constexpr UInt32 kNoChunk = 0xFFFFFFFF;
    if (entry.audioFrameNumber[track] == kNoChunk) {
        return {nullptr, nullptr, nullptr};
    }
    return {entry.audioFrameNumber[track], entry.audioChunkOffset[track], entry.audioBytePosition[track]};
}

} // namespace

int RunIndex(const Options& options)
{
    Reader reader(options);
    if (const UInt32 result = reader.BuildIndex(); result != LX_OK) {
        throw Failure("", result);
    }
    std::vector<Column> columns = {{"n", 7}, {"leaf", 4}, {"item", 4}, {"frame", 8}, {"time_ms", 9}, {"offset", 11}};
    const UInt32 tracks = reader.AudioTracks();
    for (UInt32 t = 0; t < tracks; ++t) {
        columns.push_back({fmt::format("a{}_frame", t), 10});
        columns.push_back({fmt::format("a{}_offset", t), 11});
        columns.push_back({fmt::format("a{}_bytes", t), 11});
    }
    TableWriter table(options, columns);
    UInt64 n = 0;
    for (const auto* entry : reader.Table()) {
        std::vector<Json> row = {n,
                                 n / LEAF_ARRAY_LENGTH,
                                 n % LEAF_ARRAY_LENGTH,
                                 entry->videoFrameNumber,
                                 entry->timeMsec,
                                 entry->videoChunkOffset};
        for (UInt32 t = 0; t < tracks; ++t) {
            const std::vector<Json> audio = AudioOf(*entry, t);
            row.insert(row.end(), audio.begin(), audio.end());
        }
        table.Row(row);
        ++n;
    }
    return kDone;
}

} // namespace lxavi
