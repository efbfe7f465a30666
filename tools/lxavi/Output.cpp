#include "Output.hpp"

#include <fmt/color.h>
#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace lxavi {

namespace {

// ---- Values ----

struct Unit {
    const char* suffix; // of a name
    std::string (*format)(double value);
};

std::string Bytes(double value)
{
    constexpr const char* kPrefixes[] = {"kB", "MB", "GB", "TB", "PB", "EB"};
    if (value < 1000) {
        return fmt::format("{} bytes", value);
    }
    size_t prefix = 0;
    double scaled = value / 1000;
    for (; scaled >= 999.95 && prefix + 1 < std::size(kPrefixes); scaled /= 1000) {
        ++prefix;
    }
    return fmt::format("{:.0f} bytes ({:.1f} {})", value, scaled, kPrefixes[prefix]);
}

std::string BitRate(double value)
{
    return value < 1e6 ? fmt::format("{:.1f} kbit/s", value / 1e3) : fmt::format("{:.2f} Mbit/s", value / 1e6);
}

constexpr Unit kUnits[] = {
    {"_duration_us", [](double value) { return Duration(static_cast<UInt64>(value / 1000 + 0.5)); }},
    {"_us", [](double value) { return fmt::format("{} µs", value); }},
    {"_ms", [](double value) { return fmt::format("{} ms", value); }},
    {"_bytes", Bytes},
    {"_bps", BitRate},
    {"_hz", [](double value) { return fmt::format("{} Hz", value); }},
    {"_fps", [](double value) { return fmt::format("{:.6g} frames/s", value); }},
};

const Unit* UnitOf(const std::string& name)
{
    const auto* const found = std::find_if(std::begin(kUnits), std::end(kUnits),
                                           [&](const Unit& unit) { return ("_" + name).ends_with(unit.suffix); });
    return found != std::end(kUnits) ? found : nullptr;
}

std::string WithSpaces(std::string name)
{
    std::replace(name.begin(), name.end(), '_', ' ');
    return name;
}

// "duration_us" is "duration" for people, who see the unit with the value.
std::string Title(const std::string& name)
{
    const size_t last = name.rfind('_');
    return WithSpaces(UnitOf(name) != nullptr && last != std::string::npos ? name.substr(0, last) : name);
}

std::string Plain(const Json& value) { return value.is_string() ? value.get<std::string>() : JsonText(value); }

std::string ListText(const Json& list)
{
    std::string text;
    for (const Json& value : list) {
        text += (text.empty() ? "" : ", ") + Plain(value);
    }
    return text.empty() ? "none" : text;
}

// A value of a table for people. The unit stands in the title.
std::string Cell(const Json& value)
{
    if (value.is_null()) {
        return "-";
    }
    if (value.is_boolean()) {
        return value.get<bool>() ? "yes" : "no";
    }
    return Printable(Plain(value));
}

// A value of a report for people, with its unit.
std::string ForPeople(const std::string& name, const Json& value)
{
    if (value.is_null()) {
        return "not known";
    }
    if (value.is_array()) {
        return Printable(ListText(value));
    }
    const Unit* const unit = UnitOf(name);
    return unit != nullptr && value.is_number() ? unit->format(value.get<double>()) : Cell(value);
}

// A field of CSV, in quotes when it needs them.
std::string CsvField(const Json& value)
{
    if (value.is_null()) {
        return "";
    }
    if (value.is_boolean()) {
        return value.get<bool>() ? "1" : "0";
    }
    std::string text = Plain(value);
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        return text;
    }
    for (size_t at = text.find('"'); at != std::string::npos; at = text.find('"', at + 2)) {
        text.insert(at, 1, '"');
    }
    return '"' + text + '"';
}

std::string CsvLine(const std::vector<Json>& values)
{
    std::string line;
    for (const Json& value : values) {
        line += (&value != &values.front() ? "," : "") + CsvField(value);
    }
    return line;
}

// ---- Reports ----

bool IsListOfObjects(const Json& value) { return value.is_array() && !value.empty() && value.front().is_object(); }

void PrintForPeople(const Json& object, int indent)
{
    for (const auto& [name, value] : object.items()) {
        if (value.is_object()) {
            fmt::print("{:{}}{}\n", "", indent, Title(name));
            PrintForPeople(value, indent + 2);
        } else if (IsListOfObjects(value)) {
            for (size_t i = 0; i < value.size(); ++i) {
                const std::string one = name.ends_with('s') ? name.substr(0, name.size() - 1) : name;
                fmt::print("{:{}}{} {}\n", "", indent, Title(one), i);
                PrintForPeople(value[i], indent + 2);
            }
        } else {
            fmt::print("{:{}}{:<{}} {}\n", "", indent, Title(name), std::max(30 - indent, 1), ForPeople(name, value));
        }
    }
}

void PrintAsCsv(const Json& value, const std::string& path)
{
    if (value.is_object()) {
        for (const auto& [key, member] : value.items()) {
            PrintAsCsv(member, path.empty() ? key : path + "." + key);
        }
    } else if (value.is_array() && !value.empty()) {
        for (size_t i = 0; i < value.size(); ++i) {
            PrintAsCsv(value[i], fmt::format("{}.{}", path, i));
        }
    } else {
        fmt::print("{},{}\n", path, value.is_array() ? "" : CsvField(value));
    }
}

std::vector<std::string> NamesOf(const Json& report)
{
    std::vector<std::string> names;
    for (const auto& [name, value] : report.items()) {
        names.push_back(name);
    }
    return names;
}

// The member at a path such as `streams.0.codec`.
const Json& MemberAt(const Json& report, const std::string& path)
{
    const Json* member = &report;
    for (size_t at = 0; at <= path.size();) {
        const size_t end = std::min(path.find('.', at), path.size());
        const std::string name = path.substr(at, end - at);
        const bool isNumber =
            !name.empty() && name.size() < 9 && name.find_first_not_of("0123456789") == std::string::npos;
        if (member->is_object() && member->contains(name)) {
            member = &member->at(name);
        } else if (member->is_array() && isNumber && std::stoul(name) < member->size()) {
            member = &member->at(std::stoul(name));
        } else {
            throw UsageError(fmt::format("--fields: there is no '{}'; there are: {}", path,
                                         fmt::join(member->is_object() ? NamesOf(*member) : NamesOf(report), ", ")));
        }
        at = end + 1;
    }
    return *member;
}

Json ChosenMembers(const Options& options, const Json& report)
{
    Json chosen;
    for (const std::string& path : options.fields) {
        chosen[path] = MemberAt(report, path);
    }
    return chosen;
}

} // namespace

void Say(const std::string& line)
{
    const std::string text = Printable(line) + "\n";
    static_cast<void>(std::fputs(text.c_str(), stderr));
}

bool UsesColours()
{
    const char* const noColour = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) != 0 && (noColour == nullptr || *noColour == '\0');
}

std::string JsonText(const Json& json, int indent)
{
    return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

std::string VersionText()
{
    return fmt::format("lxavi {}.{}.{}", LX_AVIREAD_VERSION_MAJOR, LX_AVIREAD_VERSION_MINOR, LX_AVIREAD_VERSION_PATCH);
}

Json DocumentHead(const Options& options)
{
    Json head;
    head["schema_version"] = kSchemaVersion;
    head["command"] = options.command;
    head["file"] = options.file;
    head["mode"] = options.defaultMode ? "default" : "format";
    return head;
}

// ---- Tables ----

void RefuseUnknownMembers(const Options& options, const std::vector<std::string>& members)
{
    for (const std::string& field : options.fields) {
        if (std::find(members.begin(), members.end(), field.substr(0, field.find('.'))) == members.end()) {
            throw UsageError(fmt::format("--fields: there is no '{}'; there are: {}", field, fmt::join(members, ", ")));
        }
    }
}

void RefuseUnknownFields(const Options& options, const std::vector<Column>& columns)
{
    std::vector<std::string> names;
    for (const Column& column : columns) {
        names.push_back(column.name);
    }
    RefuseUnknownMembers(options, names);
}

TableWriter::TableWriter(const Options& options, std::vector<Column> columns)
    : m_options(options), m_columns(std::move(columns))
{
    RefuseUnknownFields(options, m_columns);
    for (const std::string& field : options.fields) {
        const auto found = std::find_if(m_columns.begin(), m_columns.end(),
                                        [&](const Column& column) { return column.name == field; });
        m_shown.push_back(static_cast<size_t>(found - m_columns.begin()));
    }
    for (size_t i = 0; options.fields.empty() && i < m_columns.size(); ++i) {
        m_shown.push_back(i);
    }
    Header();
}

void TableWriter::Header() const
{
    if (m_options.json) {
        std::string head = JsonText(DocumentHead(m_options), 2);
        head.resize(head.rfind('\n')); // the rows come before the end of the object
        fmt::print("{},\n  \"rows\": [", head);
        return;
    }
    std::vector<Json> titles;
    for (const Column& column : m_columns) {
        titles.emplace_back(m_options.csv ? column.name : WithSpaces(column.name));
    }
    if (m_options.csv) {
        PrintCsv(titles);
    } else {
        PrintAligned(titles, Colour::None);
    }
}

TableWriter::~TableWriter()
{
    if (m_options.json) { // nothing here throws
        std::fputs(m_rows > 0 ? "\n  ]" : "]", stdout);
        if (!m_summary.is_null()) {
            std::fputs((",\n  \"summary\": " + JsonText(m_summary)).c_str(), stdout);
        }
        std::fputs("\n}\n", stdout);
    }
}

void TableWriter::PrintAligned(const std::vector<Json>& values, Colour colour) const
{
    std::string line;
    for (const size_t i : m_shown) {
        const int width = m_columns[i].width;
        const std::string text = Cell(values[i]);
        line += (i != m_shown.front() ? "  " : "") +
                (width < 0 ? fmt::format("{:<{}}", text, -width) : fmt::format("{:>{}}", text, width));
    }
    line.erase(line.find_last_not_of(' ') + 1);
    if (colour == Colour::None || !UsesColours()) {
        fmt::print("{}\n", line);
        return;
    }
    constexpr fmt::terminal_color kColours[] = {fmt::terminal_color::white, fmt::terminal_color::red,
                                                fmt::terminal_color::yellow, fmt::terminal_color::bright_black};
    fmt::print(fmt::fg(kColours[static_cast<size_t>(colour)]), "{}", line);
    fmt::print("\n");
}

void TableWriter::PrintCsv(const std::vector<Json>& values) const
{
    std::vector<Json> shown;
    for (const size_t i : m_shown) {
        shown.push_back(values[i]);
    }
    fmt::print("{}\n", CsvLine(shown));
}

void TableWriter::Row(const std::vector<Json>& values, Colour colour)
{
    if (m_options.json) {
        Json object;
        for (const size_t i : m_shown) {
            object[m_columns[i].name] = values[i];
        }
        fmt::print("{}\n    {}", m_rows > 0 ? "," : "", JsonText(object));
    } else if (m_options.csv) {
        PrintCsv(values);
    } else {
        PrintAligned(values, colour);
    }
    ++m_rows;
}

void TableWriter::Summary(const Json& summary, const std::vector<Json>& csvRow)
{
    m_summary = summary;
    if (m_options.csv && !csvRow.empty() && m_options.fields.empty()) {
        PrintCsv(csvRow);
    }
}

void PrintReport(const Options& options, const Json& report)
{
    const Json shown = options.fields.empty() ? report : ChosenMembers(options, report);
    if (options.json) {
        Json document = DocumentHead(options);
        options.fields.empty() ? document.update(shown) : document.update({{"fields", shown}});
        fmt::print("{}\n", JsonText(document, 2));
    } else if (options.csv) {
        fmt::print("key,value\n");
        PrintAsCsv(shown, "");
    } else {
        PrintForPeople(shown, 0);
    }
}

// ---- Progress ----

// When the program has begun: what takes long may consist of many short walks.
static const std::chrono::steady_clock::time_point kStart = std::chrono::steady_clock::now();

Progress::Progress(const std::string& what, UInt64 total)
    : m_what(what), m_total(std::max<UInt64>(total, 1)), m_on(isatty(STDERR_FILENO) != 0)
{
}

Progress::~Progress()
{
    if (m_on && m_shown >= 0) {
        At(m_total);
        static_cast<void>(std::fputs("\n", stderr));
    }
}

void Progress::At(UInt64 done)
{
    constexpr std::chrono::milliseconds kPatience(500);
    const int percent =
        static_cast<int>(static_cast<double>(std::min(done, m_total)) * 100 / static_cast<double>(m_total));
    if (!m_on || percent == m_shown || (m_shown < 0 && std::chrono::steady_clock::now() - kStart < kPatience)) {
        return;
    }
    m_shown = percent;
    constexpr int kWidth = 40;
    const int filled = percent * kWidth / 100;
    const std::string bar = fmt::format("\r{} [{:#<{}}{:{}}] {:3}%", m_what, "", filled, "", kWidth - filled, percent);
    static_cast<void>(std::fputs(bar.c_str(), stderr));
    static_cast<void>(std::fflush(stderr));
}

UInt32 Progress::Tell(void* pUser, UInt64 done, UInt64 all)
{
    auto& progress = *static_cast<Progress*>(pUser);
    progress.m_total = std::max<UInt64>(all, 1);
    progress.At(done);
    return 1;
}

} // namespace lxavi
