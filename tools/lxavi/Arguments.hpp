// Kinds of command-line arguments: numbers in decimal, sizes, times, and choices by name.

#pragma once

#include "Reader.hpp"

#include <CLI/CLI.hpp>

#include <map>
#include <optional>
#include <string>

namespace lxavi {

// A whole number of decimal digits, so that "010" is ten.
CLI::Option* AddNumber(CLI::App* command, const std::string& name, std::optional<UInt32>& number,
                       const std::string& what, UInt32 least, UInt32 most);
CLI::Option* AddNumber(CLI::App* command, const std::string& name, UInt32& number, const std::string& what,
                       UInt32 least, UInt32 most);
CLI::Option* AddNumber(CLI::App* command, const std::string& name, std::optional<UInt64>& number,
                       const std::string& what, UInt64 least, UInt64 most);
CLI::Option* AddNumber(CLI::App* command, const std::string& name, int& number, const std::string& what, int least,
                       int most);

// A number of bytes: "65536", "64kb" or "1mb", in powers of 1024.
CLI::Option* AddSize(CLI::App* command, const std::string& name, UInt32& bytes, const std::string& what);

// A time such as "1500" (milliseconds), "12.5s", "1:23.5" or "01:02:03.250".
CLI::Option* AddTime(CLI::App* command, const std::string& name, UInt32& msec, const std::string& what);
CLI::Option* AddTime(CLI::App* command, const std::string& name, std::optional<UInt32>& msec, const std::string& what);

// One of some names.
template <typename Value>
CLI::Option* AddChoice(CLI::App* command, const std::string& name, Value& value,
                       const std::map<std::string, Value>& choices, const std::string& what)
{
    std::string names;
    std::string standard;
    for (const auto& [choice, meaning] : choices) {
        names += (names.empty() ? "" : "|") + choice;
        standard = meaning == value ? choice : standard;
    }
    const std::string missing = "is none of " + names;
    return command
        ->add_option_function<std::string>(
            name,
            [&value, choices, name, missing](const std::string& text) {
                const auto found = choices.find(text);
                if (found == choices.end()) {
                    throw CLI::ValidationError(name, "'" + text + "' " + missing);
                }
                value = found->second;
            },
            what)
        ->option_text(names + (standard.empty() ? "" : " [" + standard + "]"));
}

// The library's log levels: names such as "seek,index", or a mask.
CLI::Option* AddLogLevels(CLI::App* command, UInt32& mask);

} // namespace lxavi
