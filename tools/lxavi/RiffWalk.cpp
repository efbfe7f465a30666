#include "RiffWalk.hpp"

#include "Text.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

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
void RiffWalk::ReportRest(UInt64 from, UInt64 to) const
{
    const bool isBehindAll = IsBehindAll();
    const bool mayBeChunk = m_lists.back().isInMovi && to - from >= sizeof(ChunkHead);
    const Severity elsewhere = isBehindAll ? Severity::Note : Severity::Warning;
    Report(mayBeChunk ? Severity::Error : elsewhere, from, isBehindAll ? "bytes_behind_riff" : "no_chunk",
           fmt::format("no chunk begins here, {} bytes are left over", to - from));
}

// Whether the walk stands behind a RIFF list, where a file may have anything.
bool RiffWalk::IsBehindAll() const { return m_lists.size() == 1 && m_riffLists > 0; }

// Whether the chunk ends where its list ends, or where another chunk begins.
bool RiffWalk::IsFollowed(UInt64 offset, const ChunkHead& header) const
{
    const UInt64 end = offset + sizeof header + header.size;
    const UInt64 next = end + header.size % 2;
    ChunkHead behind = {};
    const bool isLast = end == m_lists.back().end || next == m_lists.back().end;
    return isLast || (next + sizeof header <= m_lists.back().end && m_file.Read(next, &behind, sizeof behind) &&
                      IsPrintableId(behind.id));
}

// Looks for the next chunk of media data behind damage, up to the end of the list.
bool RiffWalk::FindNext()
{
    List& list = m_lists.back();
    const UInt64 from = list.at;
    const bool mayHaveMedia = list.isInMovi || list.type == Code("AVI ") || list.type == Code("AVIX");
    size_t windowBytes = 512; // grows, so that both little and much damage cost little
    std::vector<UInt8> window;
    for (UInt64 at = from + 1; mayHaveMedia && at + sizeof(ChunkHead) <= list.end;
         at += windowBytes - sizeof(ChunkHead)) {
        windowBytes = std::min<size_t>(2 * windowBytes, 64 * 1024);
        window.resize(static_cast<size_t>(std::min<UInt64>(windowBytes, list.end - at)));
        if (!m_file.Read(at, window.data(), window.size())) {
            break;
        }
        for (size_t i = 0; i + sizeof(ChunkHead) <= window.size(); ++i) {
            ChunkHead header = {};
            std::memcpy(&header, window.data() + i, sizeof header);
            const bool isMedia = IsMediaId(header.id) && HasStreamNumber(header.id);
            if ((isMedia || header.id == Code("idx1")) && IsFollowed(at + i, header)) {
                ReportRest(from, at + i);
                list.at = at + i;
                return true;
            }
        }
    }
    ReportRest(from, list.end);
    return false;
}

// Leaves the lists that are at their ends.
bool RiffWalk::HasNext()
{
    while (!m_lists.empty()) {
        List& list = m_lists.back();
        ChunkHead header = {};
        if (list.at + sizeof header <= list.end && m_file.Read(list.at, &header, sizeof header)) {
            const bool isOfFile = !IsBehindAll() || list.at + sizeof header + header.size <= list.end;
            if ((IsPrintableId(header.id) && isOfFile) || FindNext()) {
                return true;
            }
        } else if (list.at < list.end && m_lists.size() > 1) {
            Report(Severity::Note, list.at, "short_rest",
                   fmt::format("{} bytes at the end of a list are too few for a chunk", list.end - list.at));
        } else if (list.at < list.end && m_riffLists > 0) {
            ReportRest(list.at, list.end);
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
