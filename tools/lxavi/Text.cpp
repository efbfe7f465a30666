#include "Text.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <vector>

namespace lxavi {

namespace {

bool IsControl(unsigned char c) { return c < 0x20 || c == 0x7F; }

// The bytes of the UTF-8 character at the start of `text`; 0 when there is none.
size_t Utf8Length(std::string_view text)
{
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const auto goesOn = [&](size_t i) { return i < text.size() && (byte(i) & 0xC0) == 0x80; };
    const unsigned char first = byte(0);
    if (first < 0x80) {
        return 1;
    }
    if (first >= 0xC2 && first < 0xE0) {
        return goesOn(1) ? 2 : 0;
    }
    if (first >= 0xE0 && first < 0xF0) {
        const bool isShortest = first != 0xE0 || (text.size() > 1 && byte(1) >= 0xA0);
        const bool isSurrogate = first == 0xED && text.size() > 1 && byte(1) >= 0xA0;
        return goesOn(1) && goesOn(2) && isShortest && !isSurrogate ? 3 : 0;
    }
    if (first >= 0xF0 && first < 0xF5) {
        const bool isShortest = first != 0xF0 || (text.size() > 1 && byte(1) >= 0x90);
        const bool isInRange = first != 0xF4 || (text.size() > 1 && byte(1) < 0x90);
        return goesOn(1) && goesOn(2) && goesOn(3) && isShortest && isInRange ? 4 : 0;
    }
    return 0;
}

// The control characters U+0080 to U+009F have two bytes. Some terminals obey them.
bool IsLongControl(std::string_view character)
{
    return character.size() == 2 && character[0] == '\xC2' && static_cast<unsigned char>(character[1]) < 0xA0;
}

// A whole number or, for the last part of a time, a decimal fraction.
std::optional<double> ParsePart(std::string_view text, bool mayHaveFraction)
{
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    const size_t point = mayHaveFraction ? std::min(text.find('.'), text.size()) : text.size();
    const std::string_view whole = text.substr(0, point);
    const std::string_view fraction = point < text.size() ? text.substr(point + 1) : "0";
    if (whole.empty() || whole.size() > 10 || fraction.empty() || !std::all_of(whole.begin(), whole.end(), isDigit) ||
        !std::all_of(fraction.begin(), fraction.end(), isDigit)) {
        return std::nullopt;
    }
    double value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

std::optional<UInt32> Milliseconds(std::optional<double> value, double factor)
{
    if (!value || *value * factor + 0.5 >= 4294967296.0) {
        return std::nullopt;
    }
    return static_cast<UInt32>(*value * factor + 0.5);
}

bool TakeSuffix(std::string_view& text, std::string_view suffix)
{
    if (!text.ends_with(suffix)) {
        return false;
    }
    text.remove_suffix(suffix.size());
    return true;
}

} // namespace

std::string Duration(UInt64 msec)
{
    return fmt::format("{}:{:02}:{:02}.{:03}", msec / 3600000, msec / 60000 % 60, msec / 1000 % 60, msec % 1000);
}

std::string FourCCText(UInt32 code)
{
    std::string text;
    for (int i = 0; i < 4; ++i) {
        const char c = static_cast<char>(code >> (8 * i));
        if (c >= 0x20 && c < 0x7F) {
            text += c;
        } else {
            return fmt::format("0x{:08X}", code);
        }
    }
    return text;
}

bool IsUtf8(std::string_view text)
{
    while (!text.empty()) {
        const size_t length = Utf8Length(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

std::string ToUtf8(const std::string& text)
{
    if (IsUtf8(text)) {
        return text;
    }
    std::string converted;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            converted += c;
        } else {
            converted += static_cast<char>(0xC0 | byte >> 6);
            converted += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return converted;
}

std::string Printable(const std::string& text)
{
    std::string printable;
    for (std::string_view rest = text; !rest.empty();) {
        const size_t length = Utf8Length(rest);
        const std::string_view character = rest.substr(0, std::max<size_t>(length, 1));
        if (length == 0 || IsControl(static_cast<unsigned char>(rest[0])) || IsLongControl(character)) {
            for (const char c : character) {
                printable += fmt::format("\\x{:02X}", static_cast<unsigned char>(c));
            }
        } else {
            printable += character;
        }
        rest.remove_prefix(character.size());
    }
    return printable;
}

std::optional<UInt32> ParseTime(std::string_view text)
{
    if (TakeSuffix(text, "ms")) {
        return Milliseconds(ParsePart(text, false), 1);
    }
    if (TakeSuffix(text, "s")) {
        return Milliseconds(ParsePart(text, true), 1000);
    }
    if (text.find(':') == std::string_view::npos) {
        return Milliseconds(ParsePart(text, false), 1);
    }
    double seconds = 0; // of the hours and minutes
    for (int parts = 1; text.find(':') != std::string_view::npos; ++parts) {
        const std::optional<double> part = ParsePart(text.substr(0, text.find(':')), false);
        constexpr int kHoursAndMinutes = 2;
        if (!part || parts > kHoursAndMinutes || (parts > 1 && *part >= 60)) {
            return std::nullopt;
        }
        seconds = (seconds + *part) * 60;
        text.remove_prefix(text.find(':') + 1);
    }
    const std::optional<double> last = ParsePart(text, true);
    return last && *last < 60 ? Milliseconds(seconds + *last, 1000) : std::nullopt;
}

} // namespace lxavi
