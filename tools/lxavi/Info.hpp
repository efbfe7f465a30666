// What a file is: container, texts, streams, segments, index, and the touched quirks.

#pragma once

#include "Output.hpp"

namespace lxavi {

// `indexed` is the result of BuildIndex.
Json InfoReport(const Reader& reader, UInt32 indexed);

} // namespace lxavi
