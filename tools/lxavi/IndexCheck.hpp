// Compares the indexes of a file with its media data: idx1, and the OpenDML index of each stream, over all lists.

#pragma once

#include "Findings.hpp"
#include "RiffScan.hpp"

namespace lxavi {

// Reads the media data once. `reader` reads in the format mode, because the default mode has no walk over the media data.
// `observer` hears of every chunk; it may be empty, and must not call the library.
void CompareIndexes(const Reader& reader, const SourceFile& file, const RiffScan& scan, Findings& findings,
                    const std::function<void(const lxAviRead_MediaChunk_t&)>& observer);

} // namespace lxavi
