// lxavi index: the key-frame table.

#include "Commands.hpp"
#include "Output.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace lxavi {

int RunIndex(const Options& options)
{
    Reader reader(options);
    if (const UInt32 result = reader.BuildIndex(); result != LX_OK) {
        throw Failure("", result);
    }
    std::vector<Column> columns = {{"n", "n", 7},         {"leaf", "leaf", 4},       {"item", "item", 4},
                                   {"frame", "frame", 8}, {"time_ms", "time ms", 9}, {"offset", "offset", 11}};
    const UInt32 tracks = std::min<UInt32>(reader.State().AudioTracksCount, LX_AVIREAD_AUDIO_TRACKS);
    for (UInt32 t = 0; t < tracks; ++t) {
        columns.push_back({fmt::format("a{}_frame", t), fmt::format("a{} frame", t), 10});
        columns.push_back({fmt::format("a{}_offset", t), fmt::format("a{} offset", t), 11});
        columns.push_back({fmt::format("a{}_bytes", t), fmt::format("a{} bytes", t), 11});
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
            row.insert(row.end(),
                       {entry->audioFrameNumber[t], entry->audioChunkOffset[t], entry->audioBytePosition[t]});
        }
        table.Row(row);
        ++n;
    }
    return kDone;
}

} // namespace lxavi
