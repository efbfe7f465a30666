// Lists the quirks that a file touches, and where. It helps an integrator to choose between default and format mode.

#pragma once

#include "Reader.hpp"
#include "RiffScan.hpp"

#include <optional>
#include <string>
#include <vector>

namespace lxavi {

struct TouchedQuirk {
    UInt32 number;                // number in doc/quirks.md
    std::optional<UInt64> offset; // where the file first touches it
    std::string what;
};

// Title of a quirk, and whether format mode repairs it.
struct QuirkTitle {
    UInt32 number;
    bool repaired;
    const char* title;
};

const QuirkTitle& TitleOf(UInt32 quirk);

// Each touched quirk once, ordered by number. Call this after the attempt to build the reader's table.
std::vector<TouchedQuirk> TouchedQuirks(const Reader& reader, const SourceFile& file, const RiffScan& scan);

std::string QuirkName(UInt32 quirk); // "Q07"

} // namespace lxavi
