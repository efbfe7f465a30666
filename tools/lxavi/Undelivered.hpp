// Which chunks of a file delivery does not hand out, and why.

#pragma once

#include "Findings.hpp"
#include "Reader.hpp"

#include <map>

namespace lxavi {

struct Undelivered {
    std::map<UInt32, UInt64> strange; // chunks of streams that the headers do not describe, by stream
    std::map<UInt32, UInt64> lost;    // chunks of streams that they describe
    std::map<UInt32, UInt64> all;     // chunks of these, delivered or not
    UInt64 outside = 0;               // chunks that stand in no list of media data
    std::optional<Finding> damage;    // the first place that is no chunk
    UInt64 damagedPlaces = 0;
};

// `met` has how many chunks of each stream delivery has met from start to end; nothing is lost where it is null. `ended`
// says that delivery has not come to the end.
Undelivered LookForUndelivered(const Reader& reader, const std::map<UInt32, UInt64>* met, bool ended);

} // namespace lxavi
