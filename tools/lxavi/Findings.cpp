#include "Findings.hpp"

#include <algorithm>
#include <numeric>

namespace lxavi {

const char* SeverityName(Severity severity)
{
    switch (severity) {
    case Severity::Error: return "error";
    case Severity::Warning: return "warning";
    default: return "note";
    }
}

namespace {

// Counts a finding with an earlier one.
void Join(Finding& kept, const Finding& finding)
{
    kept.places += finding.places;
    kept.last = std::max(finding.last, finding.offset.value_or(0));
}

} // namespace

size_t Findings::NumberFor(const Finding& finding)
{
    Kept& kept = m_kept[{finding.code, finding.severity}];
    if (kept.count == kMostOfACode) {
        Join(m_all[kept.last], finding);
        return kept.last;
    }
    ++kept.count;
    kept.last = m_all.size();
    m_all.push_back(finding);
    return kept.last;
}

void FindingRow::Add(const Finding& finding)
{
    if (m_isOpen && m_findings.m_all[m_number].severity == finding.severity) {
        Join(m_findings.m_all[m_number], finding);
        return;
    }
    m_number = m_findings.NumberFor(finding);
    m_isOpen = true;
}

const std::vector<Finding>& Findings::Sort()
{
    std::stable_sort(m_all.begin(), m_all.end(),
                     [](const Finding& a, const Finding& b) { return a.offset < b.offset; }); // no offset is less
    return m_all;
}

std::vector<Finding> Findings::MostSevere(size_t most)
{
    std::vector<size_t> numbers(Sort().size());
    std::iota(numbers.begin(), numbers.end(), size_t{0});
    std::stable_sort(numbers.begin(), numbers.end(),
                     [&](size_t a, size_t b) { return m_all[a].severity < m_all[b].severity; });
    numbers.resize(std::min(most, numbers.size()));
    std::sort(numbers.begin(), numbers.end());
    std::vector<Finding> chosen;
    for (const size_t number : numbers) {
        chosen.push_back(m_all[number]);
    }
    return chosen;
}

UInt64 Findings::Places(Severity severity) const
{
    UInt64 places = 0;
    for (const Finding& finding : m_all) {
        places += finding.severity == severity ? finding.places : 0;
    }
    return places;
}

bool Findings::Has(Severity severity) const
{
    return std::any_of(m_all.begin(), m_all.end(),
                       [&](const Finding& finding) { return finding.severity <= severity; });
}

} // namespace lxavi
