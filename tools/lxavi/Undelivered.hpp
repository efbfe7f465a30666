// Which chunks of a file delivery does not hand out, and why.

#pragma once

#include "SourceFile.hpp"

#include <map>
#include <optional>

namespace lxavi {

// What delivery has met.
struct Delivered {
    std::map<UInt32, UInt64> chunks; // by stream; the last one may be cut
    std::optional<UInt32> cutStream; // stream of the chunk that could not be read to its end
    Extent part = {~UInt64{0}, 0}; // of the file, from the first chunk that is written to the last; first of all empty
    bool isWholeFile = false;      // from start to end, as far as it can be delivered
    bool hasStopped = false;       // before the end
};

struct Undelivered {
    std::map<UInt32, UInt64> strange; // chunks of streams that the headers do not describe, by stream
    std::map<UInt32, UInt64> lost;    // chunks of streams that they describe
    std::map<UInt32, UInt64> all;     // chunks of these, delivered or not
    Extent damage = {};               // the first place in the media data that is no chunk
    UInt64 damagedPlaces = 0;
};

// Chunks are counted in a whole file only, damage also in a part of it.
Undelivered LookForUndelivered(Reader& reader, const Delivered& delivered);

} // namespace lxavi
