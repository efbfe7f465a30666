#include "Arguments.hpp"

#include "Text.hpp"

#include <fmt/format.h>

#include <charconv>
#include <functional>

namespace lxavi {

namespace {

template <typename Number>
std::optional<Number> ParseNumber(const std::string& text, int base = 10)
{
    Number number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, base);
    return error == std::errc{} && stop == end && !text.empty() ? std::optional(number) : std::nullopt;
}

template <typename Number>
CLI::Option* AddParsedNumber(CLI::App* command, const std::string& name, const std::string& what, Number least,
                             Number most, const std::string& shown, const std::function<void(Number)>& take)
{
    const auto parse = [name, least, most, take](const std::string& text) {
        const std::optional<Number> number = ParseNumber<Number>(text);
        if (!number || *number < least || *number > most) {
            throw CLI::ValidationError(name, fmt::format("'{}' is no whole number from {} to {}", text, least, most));
        }
        take(*number);
    };
    return command->add_option_function<std::string>(name, parse, what)->option_text(shown);
}

CLI::Option* AddParsedTime(CLI::App* command, const std::string& name, const std::string& what,
                           const std::function<void(UInt32)>& take)
{
    const auto parse = [name, take](const std::string& text) {
        const std::optional<UInt32> msec = ParseTime(text);
        if (!msec) {
            throw CLI::ValidationError(
                name, fmt::format("'{}' is no time: write 1500 (milliseconds), 12.5s, 1:23.5 or 01:02:03.250", text));
        }
        take(*msec);
    };
    return command->add_option_function<std::string>(name, parse, what)->option_text("TIME");
}

struct LogLevel {
    const char* name;
    UInt32 mask;
};

constexpr LogLevel kLogLevels[] = {{"chunk", 0x10},   {"seek", 0x20},     {"enter", 0x40},   {"leave", 0x80},
                                   {"header", 0x100}, {"index", 0x200},   {"memory", 0x800}, {"call", 0x1000},
                                   {"error", 0x8000}, {"all", 0xFFFFFFFF}};

UInt32 LogMask(const std::string& text)
{
    if (text.starts_with("0x")) {
        if (const std::optional<UInt32> mask = ParseNumber<UInt32>(text.substr(2), 16)) {
            return *mask;
        }
    }
    if (const std::optional<UInt32> mask = ParseNumber<UInt32>(text)) {
        return *mask;
    }
    for (const LogLevel& level : kLogLevels) {
        if (text == level.name) {
            return level.mask;
        }
    }
    throw CLI::ValidationError("--log", fmt::format("'{}' is no log level", text));
}

std::string LogLevelNames()
{
    std::string names;
    for (const LogLevel& level : kLogLevels) {
        names += (names.empty() ? "" : ", ") + std::string(level.name);
    }
    return names;
}

} // namespace

CLI::Option* AddNumber(CLI::App* command, const std::string& name, std::optional<UInt32>& number,
                       const std::string& what, UInt32 least, UInt32 most)
{
    return AddParsedNumber<UInt32>(command, name, what, least, most, "N", [&](UInt32 taken) { number = taken; });
}

CLI::Option* AddNumber(CLI::App* command, const std::string& name, UInt32& number, const std::string& what,
                       UInt32 least, UInt32 most)
{
    return AddParsedNumber<UInt32>(command, name, what, least, most, fmt::format("N [{}]", number),
                                   [&](UInt32 taken) { number = taken; });
}

CLI::Option* AddNumber(CLI::App* command, const std::string& name, std::optional<UInt64>& number,
                       const std::string& what, UInt64 least, UInt64 most)
{
    return AddParsedNumber<UInt64>(command, name, what, least, most, "N", [&](UInt64 taken) { number = taken; });
}

CLI::Option* AddNumber(CLI::App* command, const std::string& name, int& number, const std::string& what, int least,
                       int most)
{
    return AddParsedNumber<int>(command, name, what, least, most, "N", [&](int taken) { number = taken; });
}

CLI::Option* AddSize(CLI::App* command, const std::string& name, UInt32& bytes, const std::string& what)
{
    return command
        ->add_option_function<std::string>(
            name,
            [&bytes, name](std::string text) {
                UInt64 unit = 1;
                for (const auto& [suffix, factor] : {std::pair{"kb", 1u << 10}, {"mb", 1u << 20}, {"gb", 1u << 30}}) {
                    if (CLI::detail::to_lower(text).ends_with(suffix)) {
                        unit = factor;
                        text.resize(text.size() - 2);
                    }
                }
                const std::optional<UInt32> number = ParseNumber<UInt32>(text);
                if (!number || *number * unit > 0xFFFFFFFFu) {
                    throw CLI::ValidationError(
                        name, fmt::format("'{}' is no size: write 65536, 64kb or 1mb, below 4gb", text));
                }
                bytes = static_cast<UInt32>(*number * unit);
            },
            what)
        ->option_text(fmt::format("BYTES [{}]", bytes));
}

CLI::Option* AddTime(CLI::App* command, const std::string& name, UInt32& msec, const std::string& what)
{
    return AddParsedTime(command, name, what, [&](UInt32 taken) { msec = taken; });
}

CLI::Option* AddTime(CLI::App* command, const std::string& name, std::optional<UInt32>& msec, const std::string& what)
{
    return AddParsedTime(command, name, what, [&](UInt32 taken) { msec = taken; });
}

CLI::Option* AddLogLevels(CLI::App* command, UInt32& mask)
{
    return command
        ->add_option_function<std::vector<std::string>>(
            "--log",
            [&mask](const std::vector<std::string>& levels) {
                for (const std::string& level : levels) {
                    mask |= LogMask(level);
                }
            },
            "Messages of the library, to standard error: " + LogLevelNames() + ", or a mask")
        ->delimiter(',')
        ->option_text("LEVEL,…");
}

} // namespace lxavi
