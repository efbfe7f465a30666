// What a check has found: its severity, its place, and a sentence.

#pragma once

#include "lxAviRead.h"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace lxavi {

enum class Severity {
    Error,   // data is lost, or cannot be reached
    Warning, // a player may stumble
    Note,    // an oddity that costs nothing
};

const char* SeverityName(Severity severity);

struct Finding {
    Severity severity;
    std::optional<UInt64> offset; // in the file
    std::string code;             // for programs, such as "chunk_not_listed"
    std::string text;
    UInt64 places = 1;                // more, when places that follow each other have the same
    UInt64 last = 0;                  // offset of the last one, when there are several
    std::optional<UInt64> media = {}; // offset of the chunk that a finding about an index record concerns
    std::optional<UInt32> msec = {};  // when a player notices it, where that is known
};

class Findings {
public:
    // Of one code and severity, the first kMostOfACode findings are kept for themselves. The last of them counts all that follow.
    static constexpr size_t kMostOfACode = 10000;

    void Add(const Finding& finding) { static_cast<void>(NumberFor(finding)); }

    // In the order of their offsets; those without an offset come first. Ends the rows below.
    const std::vector<Finding>& Sort();
    // The `most` most severe ones, in the same order.
    std::vector<Finding> MostSevere(size_t most);
    UInt64 Places(Severity severity) const;
    // Whether there is one that is as severe, or more so.
    bool Has(Severity severity) const;

private:
    friend class FindingRow;
    struct Kept {
        size_t count = 0;
        size_t last = 0; // its number in m_all
    };

    // Returns the number in m_all of the finding that is kept for this one.
    size_t NumberFor(const Finding& finding);

    std::vector<Finding> m_all;
    std::map<std::pair<std::string, Severity>, Kept> m_kept; // by code and severity
};

// Makes one finding of places that follow each other.
class FindingRow {
public:
    explicit FindingRow(Findings& findings) : m_findings(findings) {}

    void Add(const Finding& finding);
    void End() { m_isOpen = false; } // a place without the finding was between

private:
    Findings& m_findings;
    size_t m_number = 0;
    bool m_isOpen = false;
};

} // namespace lxavi
