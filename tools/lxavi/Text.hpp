// Texts for people: times, four-character codes, and names that come from files.

#pragma once

#include "lxAviRead.h"

#include <optional>
#include <string>
#include <string_view>

namespace lxavi {

// "0:01:02.345"
std::string Duration(UInt64 msec);

// The four characters, or "0x01234567" when they are not all printable.
std::string FourCCText(UInt32 code);

// Whether a text is valid UTF-8.
bool IsUtf8(std::string_view text);

// A text of a file as UTF-8. What is no UTF-8 is taken as Latin-1, which most writers of INFO texts mean.
std::string ToUtf8(const std::string& text);

// A text for a terminal: control characters, and bytes that are no UTF-8, are written as "\x1B".
std::string Printable(const std::string& text);

// Milliseconds of "1500", "1500ms", "12.5s", "1:23.5" or "01:02:03.250"; nothing for other texts and for times beyond
// 32 bits.
std::optional<UInt32> ParseTime(std::string_view text);

} // namespace lxavi
