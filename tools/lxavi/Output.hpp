// The output of the commands: tables and reports, for people or for programs, and a progress bar for long work.

#pragma once

#include "Reader.hpp"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace lxavi {

using Json = nlohmann::ordered_json;

struct Column {
    std::string name;  // of CSV and JSON
    std::string title; // for people
    int width;         // for people; negative: left-aligned
};

// Prints each row at once: aligned, as CSV, or as an element of a JSON array.
class TableWriter {
public:
    TableWriter(const Options& options, std::vector<Column> columns);
    ~TableWriter();
    TableWriter(const TableWriter&) = delete;
    TableWriter& operator=(const TableWriter&) = delete;

    void Row(const std::vector<Json>& values);

private:
    const Options& m_options;
    std::vector<Column> m_columns;
    UInt64 m_rows = 0;
};

// Prints a report of nested objects: indented, as `path,value` lines, or as JSON.
void PrintReport(const Options& options, const Json& report);

// A progress bar on standard error, when standard error is a terminal.
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

std::string Duration(UInt64 msec);
std::string FourCCText(UInt32 code);

} // namespace lxavi
