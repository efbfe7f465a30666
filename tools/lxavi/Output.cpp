#include "Output.hpp"

#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>

namespace lxavi {

namespace {

std::string Plain(const Json& value) { return value.is_string() ? value.get<std::string>() : value.dump(); }

// A field of CSV, in quotes when it needs them.
std::string CsvField(const Json& value)
{
    std::string text = Plain(value);
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        return text;
    }
    for (size_t at = text.find('"'); at != std::string::npos; at = text.find('"', at + 2)) {
        text.insert(at, 1, '"');
    }
    return '"' + text + '"';
}

bool IsTableOfObjects(const Json& value) { return value.is_array() && !value.empty() && value.front().is_object(); }

void PrintForPeople(const Json& object, int indent)
{
    for (const auto& [key, value] : object.items()) {
        if (value.is_object()) {
            fmt::print("{:{}}{}\n", "", indent, key);
            PrintForPeople(value, indent + 2);
        } else if (IsTableOfObjects(value)) {
            for (size_t i = 0; i < value.size(); ++i) {
                fmt::print("{:{}}{} {}\n", "", indent, key, i);
                PrintForPeople(value[i], indent + 2);
            }
        } else {
            fmt::print("{:{}}{:<{}} {}\n", "", indent, key, std::max(30 - indent, 1), Plain(value));
        }
    }
}

void PrintAsCsv(const Json& value, const std::string& path)
{
    if (value.is_object()) {
        for (const auto& [key, member] : value.items()) {
            PrintAsCsv(member, path.empty() ? key : path + "." + key);
        }
    } else if (value.is_array()) {
        for (size_t i = 0; i < value.size(); ++i) {
            PrintAsCsv(value[i], fmt::format("{}.{}", path, i));
        }
    } else {
        fmt::print("{},{}\n", path, CsvField(value));
    }
}

} // namespace

TableWriter::TableWriter(const Options& options, std::vector<Column> columns)
    : m_options(options), m_columns(std::move(columns))
{
    if (options.json) {
        fmt::print("[");
        return;
    }
    for (size_t i = 0; i < m_columns.size(); ++i) {
        const Column& column = m_columns[i];
        if (options.csv) {
            fmt::print("{}{}", i > 0 ? "," : "", column.name);
        } else if (column.width < 0) {
            fmt::print("{}{:<{}}", i > 0 ? "  " : "", column.title, -column.width);
        } else {
            fmt::print("{}{:>{}}", i > 0 ? "  " : "", column.title, column.width);
        }
    }
    fmt::print("\n");
}

TableWriter::~TableWriter()
{
    if (m_options.json) {
        std::fputs(m_rows > 0 ? "\n]\n" : "]\n", stdout); // never throws
    }
}

void TableWriter::Row(const std::vector<Json>& values)
{
    if (m_options.json) {
        Json object;
        for (size_t i = 0; i < m_columns.size(); ++i) {
            object[m_columns[i].name] = values[i];
        }
        fmt::print("{}\n  {}", m_rows > 0 ? "," : "", object.dump(-1, ' ', false, Json::error_handler_t::replace));
    } else {
        for (size_t i = 0; i < m_columns.size(); ++i) {
            const int width = m_columns[i].width;
            if (m_options.csv) {
                fmt::print("{}{}", i > 0 ? "," : "", CsvField(values[i]));
            } else if (width < 0) {
                fmt::print("{}{:<{}}", i > 0 ? "  " : "", Plain(values[i]), -width);
            } else {
                fmt::print("{}{:>{}}", i > 0 ? "  " : "", Plain(values[i]), width);
            }
        }
        fmt::print("\n");
    }
    ++m_rows;
}

void PrintReport(const Options& options, const Json& report)
{
    if (options.json) {
        fmt::print("{}\n", report.dump(2, ' ', false, Json::error_handler_t::replace));
    } else if (options.csv) {
        fmt::print("key,value\n");
        PrintAsCsv(report, "");
    } else {
        PrintForPeople(report, 0);
    }
}

Progress::Progress(const std::string& what, UInt64 total)
    : m_what(what), m_total(std::max<UInt64>(total, 1)), m_on(isatty(STDERR_FILENO) != 0)
{
}

Progress::~Progress()
{
    if (m_on && m_shown >= 0) {
        At(m_total);
        fmt::print(stderr, "\n");
    }
}

void Progress::At(UInt64 done)
{
    const int percent = static_cast<int>(std::min(done, m_total) * 100 / m_total);
    if (!m_on || percent == m_shown) {
        return;
    }
    m_shown = percent;
    constexpr int kWidth = 40;
    const int filled = percent * kWidth / 100;
    fmt::print(stderr, "\r{} [{:#<{}}{:{}}] {:3}%", m_what, "", filled, "", kWidth - filled, percent);
    std::fflush(stderr);
}

UInt32 Progress::Tell(void* pUser, UInt64 done, UInt64 all)
{
    auto& progress = *static_cast<Progress*>(pUser);
    progress.m_total = std::max<UInt64>(all, 1);
    progress.At(done);
    return 1;
}

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

} // namespace lxavi
