// lxavi check: prints what compares badly in headers, indexes, media data and delivery, with severities and offsets.

#include "Checker.hpp"
#include "Commands.hpp"
#include "Output.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace lxavi {

namespace {

const std::vector<Column> kColumns = {{"severity", -8}, {"offset", 12}, {"places", 6}, {"code", -22}, {"text", -40}};

Json SummaryOf(const Findings& findings, UInt64 delivered, size_t found, size_t printed)
{
    Json summary;
    summary["errors"] = findings.Places(Severity::Error);
    summary["warnings"] = findings.Places(Severity::Warning);
    summary["notes"] = findings.Places(Severity::Note);
    summary["findings"] = found;
    summary["findings_printed"] = printed;
    summary["chunks_delivered"] = delivered;
    return summary;
}

Colour ColourOf(Severity severity)
{
    switch (severity) {
    case Severity::Error: return Colour::Red;
    case Severity::Warning: return Colour::Yellow;
    default: return Colour::Grey;
    }
}

std::string TextOf(const Finding& finding)
{
    return finding.places == 1
               ? finding.text
               : fmt::format("{} (and {} more, up to {})", finding.text, finding.places - 1, finding.last);
}

std::string Count(UInt64 count, const char* what) { return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s"); }

} // namespace

int RunCheck(const Options& options, const CheckOptions& check)
{
    RefuseUnknownFields(options, kColumns); // before the work
    Checker checker(options);
    Findings& findings = checker.Run();
    const std::vector<Finding>& all = findings.Sort();
    const auto printed = static_cast<size_t>(std::min<UInt64>(check.limit.value_or(all.size()), all.size()));
    const Json summary = SummaryOf(findings, checker.Delivered(), all.size(), printed);
    const std::string left =
        printed < all.size() ? fmt::format("; {} not printed", Count(all.size() - printed, "finding")) : "";
    const std::string verdict = fmt::format("{}, {}, {}; {} delivered{}", Count(summary["errors"], "error"),
                                            Count(summary["warnings"], "warning"), Count(summary["notes"], "note"),
                                            Count(checker.Delivered(), "chunk"), left);
    {
        TableWriter table(options, kColumns);
        for (size_t i = 0; i < printed; ++i) {
            const Finding& finding = all[i];
            table.Row({SeverityName(finding.severity), finding.offset ? Json(*finding.offset) : Json(), finding.places,
                       finding.code, TextOf(finding)},
                      ColourOf(finding.severity));
        }
        table.Summary(summary, {"summary", nullptr, all.size(), nullptr, verdict});
    }
    if (options.IsForPeople()) {
        fmt::print("{}\n", verdict);
    }
    return findings.Has(check.failOn) ? kDamaged : kDone;
}

} // namespace lxavi
