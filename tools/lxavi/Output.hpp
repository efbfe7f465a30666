// The output of the commands: tables and reports, for people or for programs, and a progress bar for long work.
//
// Programs get names in snake_case. A unit is the last word of a name: `duration_us`, `size_bytes`, `bit_rate_bps`. People
// get the same names with spaces, and the values with their units. doc/lxavi.schema.json describes the JSON of every
// command; a change that a reader of it would notice needs a new kSchemaVersion.

#pragma once

#include "Reader.hpp"
#include "Text.hpp"

#include <nlohmann/json.hpp>

#include <chrono>
#include <string>
#include <vector>

namespace lxavi {

using Json = nlohmann::ordered_json;

constexpr int kSchemaVersion = 1;

// Writes a line to standard error, with control characters escaped. A line that cannot be written is dropped.
void Say(const std::string& line);

// Whether standard output is a terminal on which the user wants colours.
bool UsesColours();

enum class Colour { None, Red, Yellow, Grey };

struct Column {
    std::string name; // of CSV, JSON and --fields
    int width;        // for people; negative: left-aligned
};

// Throws UsageError when the user wants a field that the table does not have.
void RefuseUnknownFields(const Options& options, const std::vector<Column>& columns);

// The same for the members of a report; `members` are those of its first level.
void RefuseUnknownMembers(const Options& options, const std::vector<std::string>& members);

// Prints each row at once: aligned, as CSV, or as an element of a JSON array. A value that is not known is null.
class TableWriter {
public:
    // Throws UsageError when the user wants a field that the table does not have.
    TableWriter(const Options& options, std::vector<Column> columns);
    ~TableWriter();
    TableWriter(const TableWriter&) = delete;
    TableWriter& operator=(const TableWriter&) = delete;

    // One value for each column.
    void Row(const std::vector<Json>& values, Colour colour = Colour::None);
    // What is told behind the rows, for programs: an object of JSON. CSV has it as a last row, when `csvRow` is given and the
    // user has not chosen columns.
    void Summary(const Json& summary, const std::vector<Json>& csvRow = {});

private:
    void Header() const;
    void PrintAligned(const std::vector<Json>& values, Colour colour) const;
    void PrintCsv(const std::vector<Json>& values) const;

    const Options& m_options;
    std::vector<Column> m_columns;
    std::vector<size_t> m_shown; // of the columns, in the order of --fields
    Json m_summary;
    UInt64 m_rows = 0;
};

// Prints a report of nested objects: indented, as `key,value` lines, or as JSON. --fields chooses members by their paths,
// such as `index.kind` and `streams.0.codec`; JSON has them in an object `fields`. Throws UsageError when the report has no such member.
void PrintReport(const Options& options, const Json& report);

// A text of JSON. Bytes that are no UTF-8 are replaced.
std::string JsonText(const Json& json, int indent = -1);

// "lxavi 1.2.3"
std::string VersionText();

// What every JSON document of the tool begins with.
Json DocumentHead(const Options& options);

// A progress bar on standard error, when that is a terminal, once the program has run for half a second.
class Progress {
public:
    explicit Progress(const std::string& what, UInt64 total = 1);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void At(UInt64 done);
    // For operations of the library that tell their progress; `pUser` is the address of a Progress.
    static UInt32 Tell(void* pUser, UInt64 done, UInt64 all);

private:
    std::string m_what;
    UInt64 m_total;
    int m_shown = -1; // per cent
    bool m_on;
};

} // namespace lxavi
