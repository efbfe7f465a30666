// Which of the library's oddities a file touches, and where: what an integrator wants to know before choosing a mode.

#pragma once

#include "Reader.hpp"
#include "RiffScan.hpp"

#include <string>
#include <vector>

namespace lxavi {

struct TouchedQuirk {
    UInt32 number; // as doc/quirks.md counts them
    UInt64 offset; // where the file first touches it
    std::string what;
};

// Title of a quirk, and whether following the format repairs it.
struct QuirkTitle {
    UInt32 number;
    bool repaired;
    const char* title;
};

const QuirkTitle& TitleOf(UInt32 quirk);

// In order of their numbers, each once. The table of the reader has been built, or could not be.
std::vector<TouchedQuirk> TouchedQuirks(const Reader& reader, const RiffScan& scan);

std::string QuirkName(UInt32 quirk); // "Q07"

} // namespace lxavi
