#include "Findings.hpp"

#include <algorithm>

namespace lxavi {

const char* SeverityName(Severity severity)
{
    switch (severity) {
    case Severity::Error: return "error";
    case Severity::Warning: return "warning";
    default: return "note";
    }
}

void Findings::Add(Finding finding) { m_all.push_back(std::move(finding)); }

void FindingRow::Add(const Finding& finding)
{
    if (m_isOpen) {
        ++m_findings.m_all.at(m_number).places;
        m_findings.m_all.at(m_number).last = finding.offset.value_or(0);
        return;
    }
    m_number = m_findings.m_all.size();
    m_isOpen = true;
    m_findings.Add(finding);
}

const std::vector<Finding>& Findings::Sort()
{
    std::stable_sort(m_all.begin(), m_all.end(),
                     [](const Finding& a, const Finding& b) { return a.offset < b.offset; }); // no offset is less
    return m_all;
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
