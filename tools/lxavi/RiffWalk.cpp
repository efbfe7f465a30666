#include "RiffWalk.hpp"

#include "Text.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace lxavi {

namespace {

constexpr size_t kDeepest = 8; // lists in lists

bool IsList(UInt32 id) { return id == Code("RIFF") || id == Code("LIST"); }

} // namespace

RiffWalk::RiffWalk(const SourceFile& file, std::function<void(Finding)> report)
    : m_file(file), m_report(std::move(report)), m_lists{{0, file.Size(), 0, false}}
{
}

void RiffWalk::Report(Severity severity, UInt64 offset, const char* code, const std::string& text) const
{
    if (m_report) {
        m_report({severity, offset, code, text});
    }
}

// Bytes that no chunk begins with. In the media data they may have been chunks; behind the file's RIFF lists they cost
// nothing.
void RiffWalk::ReportRest(UInt64 at) const
{
    const List& list = m_lists.back();
    const bool isBehindAll = m_lists.size() == 1 && m_riffLists > 0;
    const Severity elsewhere = isBehindAll ? Severity::Note : Severity::Warning;
    Report(list.isInMovi ? Severity::Error : elsewhere, at, isBehindAll ? "bytes_behind_riff" : "no_chunk",
           fmt::format("no chunk begins here, {} bytes are left over", list.end - at));
}

// Leaves the lists that are at their ends.
bool RiffWalk::HasNext()
{
    while (!m_lists.empty()) {
        List& list = m_lists.back();
        ChunkHead header = {};
        if (list.at + sizeof header <= list.end && m_file.Read(list.at, &header, sizeof header)) {
            if (IsPrintableId(header.id)) {
                return true;
            }
            ReportRest(list.at);
        } else if (list.at < list.end && m_lists.size() > 1) {
            Report(Severity::Note, list.at, "short_rest",
                   fmt::format("{} bytes at the end of a list are too few for a chunk", list.end - list.at));
        }
        m_lists.pop_back();
    }
    return false;
}

// A writer that was interrupted has left the size 0 where it would have filled in the size at the end.
bool RiffWalk::IsUnfinished(const RiffPart& part) const
{
    UInt32 type = 0;
    return part.size == 0 && IsList(part.id) && m_file.Read(part.offset + 8, &type, sizeof type) &&
           (type == Code("movi") || part.id == Code("RIFF"));
}

void RiffWalk::MeasurePart(RiffPart& part)
{
    const List& list = m_lists.back();
    const UInt64 end = part.offset + 8 + part.size;
    part.end = std::min(end, list.end);
    if (IsUnfinished(part)) {
        part.end = list.end;
        Report(Severity::Warning, part.offset, "unfinished_list", "a list of size 0: its writer has not finished it");
    } else if (end > list.end) {
        const bool isOfFile = list.end == m_file.Size();
        const Severity severity = isOfFile && !IsList(part.id) ? Severity::Error : Severity::Warning;
        Report(severity, part.offset, isOfFile ? "beyond_file" : "beyond_list",
               fmt::format("chunk '{}' of {} bytes reaches {} bytes beyond {}", FourCCText(part.id), part.size,
                           end - list.end, isOfFile ? "the end of the file" : "its list"));
    }
}

void RiffWalk::EnterList(const RiffPart& part)
{
    m_riffLists += part.id == Code("RIFF") ? 1 : 0;
    const bool isInMovi = part.type == Code("movi") || (part.isInMovi && part.type == Code("rec "));
    m_lists.push_back({part.offset + 12, part.end, part.type, isInMovi});
}

bool RiffWalk::Next(RiffPart& part)
{
    if (!HasNext()) {
        return false;
    }
    List& list = m_lists.back();
    const ChunkHead header = m_file.HeaderAt(list.at);
    part = {list.at, 0, header.id, header.size, 0, list.type, list.isInMovi};
    MeasurePart(part);
    list.at = std::max(BehindPart(part), part.end);
    if (!IsList(part.id)) {
        return true;
    }
    if (m_lists.size() > kDeepest || part.offset + 12 > part.end ||
        !m_file.Read(part.offset + 8, &part.type, sizeof part.type)) {
        Report(Severity::Warning, part.offset, "bad_list", "list without a type, or too deep in other lists");
        return true;
    }
    EnterList(part);
    return true;
}

} // namespace lxavi
