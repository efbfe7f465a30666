// lxavi report: writes one page that shows a file as a picture, and needs nothing else. The page's own script fills it from
// the JSON in it, and puts everything that comes from the file in as text.

#include "Commands.hpp"
#include "Output.hpp"
#include "OutputFile.hpp"
#include "PageParts.hpp"
#include "Survey.hpp"

#include <fmt/format.h>
#include <openssl/evp.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

namespace lxavi {

namespace {

namespace fs = std::filesystem;

const std::vector<std::string> kMembers = {"info",       "end_ms",   "streams",  "interleave",
                                           "key_frames", "seeks_ms", "findings", "summary"};

constexpr const char* kDebianCharts = "/usr/share/javascript/dygraphs";
constexpr const char* kDebianLicence = "/usr/share/doc/libjs-dygraphs/copyright";

// ---- The chart library ----

struct ChartLibrary {
    std::string script;
    std::string style;
    std::string licence;
};

std::string TextOfFile(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file || text.empty()) {
        throw OutputFailure(
            path.string(),
            "cannot be read: reports need the package libjs-dygraphs, or --charts with a folder that has "
            "dygraph.min.js, dygraph.min.css and LICENSE.txt");
    }
    return text;
}

// Debuggers would fetch the file that the last line of a script or style names.
std::string WithoutSourceMap(const std::string& text)
{
    for (const char* const comment : {"//# sourceMappingURL=", "/*# sourceMappingURL="}) {
        if (const size_t line = text.rfind(comment); line != std::string::npos) {
            return text.substr(0, line);
        }
    }
    return text;
}

// A text that ends its element early would make markup of the rest.
const std::string& Embeddable(const std::string& text, const fs::path& path, const char* element)
{
    if (text.find(fmt::format("</{}", element)) != std::string::npos) {
        throw OutputFailure(path.string(), fmt::format("cannot stand in a page: it has the end of a '{}'", element));
    }
    return text;
}

ChartLibrary ReadChartLibrary(const std::string& folder)
{
    const fs::path from = folder.empty() ? kDebianCharts : folder;
    const fs::path licence = folder.empty() ? fs::path(kDebianLicence) : from / "LICENSE.txt";
    return {Embeddable(WithoutSourceMap(TextOfFile(from / "dygraph.min.js")), from, "script"),
            Embeddable(WithoutSourceMap(TextOfFile(from / "dygraph.min.css")), from, "style"), TextOfFile(licence)};
}

// ---- The page ----

// "sha256-…", as a content security policy names an inline element.
std::string HashOf(const std::string& text)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest = {};
    unsigned int size = 0;
    if (EVP_Digest(text.data(), text.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1) {
        throw Failure("the page's parts cannot be hashed");
    }
    std::array<unsigned char, 2 * EVP_MAX_MD_SIZE> encoded = {};
    const int length = EVP_EncodeBlock(encoded.data(), digest.data(), static_cast<int>(size));
    return "'sha256-" + std::string(encoded.begin(), encoded.begin() + length) + "'";
}

using Escapes = std::map<char, std::string>;

std::string Escaped(const std::string& text, const Escapes& escapes)
{
    std::string escaped;
    for (const char c : text) {
        const auto found = escapes.find(c);
        escaped += found != escapes.end() ? found->second : std::string(1, c);
    }
    return escaped;
}

const Escapes kForMarkup = {{'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}};
// In JSON in a script element, so that nothing in it can end the element.
const Escapes kForScriptElement = {{'&', "\\u0026"}, {'<', "\\u003c"}, {'>', "\\u003e"}};

// Fills in the places, each once and in one go, so that nothing that was filled in is taken for a place.
std::string FilledIn(std::string_view page, const std::map<std::string, std::string>& parts)
{
    std::string filled;
    while (!page.empty()) {
        const size_t begin = page.find('@');
        const size_t end = begin != std::string_view::npos ? page.find('@', begin + 1) : std::string_view::npos;
        filled += page.substr(0, begin);
        if (end == std::string_view::npos) {
            break;
        }
        filled += parts.at(std::string(page.substr(begin + 1, end - begin - 1)));
        page.remove_prefix(end + 1);
    }
    return filled;
}

std::string Page(const ChartLibrary& charts, const Json& document)
{
    const std::string style = charts.style + std::string(kPageStyle);
    const std::string script(kPageScript);
    const std::string policy =
        fmt::format("default-src 'none'; script-src {} {}; style-src {}; base-uri 'none'; form-action 'none'",
                    HashOf(charts.script), HashOf(script), HashOf(style));
    return FilledIn(kPageHtml, {{"POLICY", policy},
                                {"STYLE", style},
                                {"LICENCE", Escaped(charts.licence, kForMarkup)},
                                {"DATA", Escaped(JsonText(document), kForScriptElement)},
                                {"CHARTS", charts.script},
                                {"SCRIPT", script}});
}

} // namespace

int RunReport(const Options& options, const ReportOptions& report)
{
    RefuseUnknownMembers(options, kMembers); // before the work
    const bool writesPage = !report.output.empty();
    ChartLibrary charts;
    if (writesPage) { // before the work
        RefuseToOverwrite(report.output, options.Path(), report.force);
        charts = ReadChartLibrary(report.charts);
    }
    const Json data = Survey(options).Run();
    if (writesPage) {
        Json document = DocumentHead(options);
        document["maker"] = VersionText();
        document.update(data);
        OutputFile page(report.output, options.Path(), report.force);
        page.Write(Page(charts, document));
        page.Commit();
    }
    if (!options.IsForPeople() || !options.fields.empty()) {
        PrintReport(options, data);
    } else {
        fmt::print("{}\n", Printable(report.output));
    }
    return kDone;
}

} // namespace lxavi
