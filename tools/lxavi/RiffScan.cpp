#include "RiffScan.hpp"

#include "Output.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace lxavi {

namespace {

bool IsIndexChunk(const RiffPart& part) { return part.type == 0 && part.parent != 0 && IsIndexId(part.id); }

} // namespace

RiffScan::RiffScan(const SourceFile& file, const std::function<void(Finding)>& report) : m_file(file), m_report(report)
{
    Progress progress("reading the structure", file.Size());
    RiffWalk walk(file, report);
    for (RiffPart part = {}; walk.Next(part);) {
        progress.At(part.offset);
        Take(part);
    }
}

void RiffScan::Report(Severity severity, UInt64 offset, const char* code, const std::string& text) const
{
    if (m_report) {
        m_report({severity, offset, code, text});
    }
}

void RiffScan::Take(const RiffPart& part)
{
    if (IsIndexChunk(part)) {
        TakeIndexChunk(part);
    } else if (part.type != 0) {
        TakeList(part);
    } else if (part.isInMovi) {
        TakeInMovi(part);
    } else {
        TakeHeaderPart(part);
    }
    if (!part.isInMovi && parts.size() < kMostParts) {
        parts.push_back(part);
    }
}

void RiffScan::TakeList(const RiffPart& part)
{
    riffLists += part.id == Code("RIFF") ? 1 : 0;
    streamLists += part.type == Code("strl") ? 1 : 0;
    if (part.type == Code("movi") && moviCode == 0) {
        moviCode = part.offset + 8;
        moviEnd = part.end;
    }
}

void RiffScan::TakeInMovi(const RiffPart& part)
{
    if (part.IsMedia()) {
        firstMedia = firstMedia.value_or(part);
        lastMedia = part;
    } else if (part.id != Code("JUNK")) {
        strangerInMovi = strangerInMovi.value_or(part);
        const bool isPalette = part.id >> 16 == ('p' | 'c' << 8) && HasStreamNumber(part.id);
        if (!isPalette && part.id != Code("idx1")) {
            Report(Severity::Warning, part.offset, "unknown_chunk",
                   fmt::format("chunk '{}' of {} bytes is none that the media data can have", FourCCText(part.id),
                               part.size));
        }
    }
}

void RiffScan::TakeHeaderPart(const RiffPart& part)
{
    constexpr UInt8 kIndexOfChunks = 1;
    UInt32 flags = 0;
    UInt8 indexType = 0;
    if (moviCode != 0 && IsMediaId(part.id) && HasStreamNumber(part.id)) {
        mediaOutside = mediaOutside.value_or(part);
        ++mediaOutsideCount;
        ++mediaOutsideByStream[StreamOf(part.id)];
        lastMediaOutside = part.offset;
    }
    switch (part.id) {
    case Code("idx1"): TakeIdx1(part); break;
    case Code("avih"):
        idx1Promised = m_file.Read(part.offset + 8 + 12, &flags, sizeof flags) && (flags & LX_AVIREAD_HAS_INDEX) != 0;
        break;
    case Code("indx"):
        if (m_file.Read(part.offset + 11, &indexType, sizeof indexType) && indexType == kIndexOfChunks) {
            TakeIndexChunk(part);
        }
        break;
    default: break;
    }
}

void RiffScan::TakeIdx1(const RiffPart& part)
{
    const UInt64 size = part.end - part.offset - 8;
    if (size % 16 != 0) {
        Report(Severity::Warning, part.offset, "idx1_size",
               fmt::format("index of {} bytes is no multiple of 16", size));
    }
    if (!idx1) {
        idx1 = RecordRun{part.offset + 8, size / 16, 16, 0, 0, true};
    }
}

void RiffScan::TakeIndexChunk(const RiffPart& part)
{
    UInt8 fields[32];
    if (part.size < 24 || !m_file.Read(part.offset, fields, sizeof fields)) {
        Report(Severity::Warning, part.offset, "index_chunk_short", "index chunk is too short for its header");
        return;
    }
    const UInt32 recordSize = (WordAt(fields + 8) & 0xFFFF) * 4;
    const UInt64 entries = WordAt(fields + 12);
    const UInt64 base = WordAt(fields + 20) | static_cast<UInt64>(WordAt(fields + 24)) << 32;
    if (recordSize < 8) {
        Report(Severity::Warning, part.offset, "index_record_size",
               fmt::format("index chunk with records of {} bytes", recordSize));
        return;
    }
    // The chunk header and the fields take 32 bytes. Some files have one more word before the records.
    const bool isOneWordMore = part.id != Code("indx") && part.size == 28 + entries * recordSize;
    const UInt64 room = (part.size - 24) / recordSize;
    if (entries > room) {
        Report(Severity::Warning, part.offset, "index_chunk_room",
               fmt::format("index chunk claims {} records and has room for {}", entries, room));
    }
    const UInt64 at = part.offset + (isOneWordMore ? 36 : 32);
    const UInt64 inFile = part.end > at ? (part.end - at) / recordSize : 0; // the file may end in the chunk
    const RecordRun records = {at, std::min({entries, room, inFile}), recordSize, base, WordAt(fields + 16), false};
    indexes.push_back({part.offset, base, part.id, fields[10], isOneWordMore, records});
    if (!indexes.back().HasKnownSubType()) {
        indexes.back().records.count = 0;
        Report(Severity::Warning, part.offset, "index_sub_type",
               fmt::format("index chunk of the unknown sub type {}: its records cannot be read", fields[10]));
    }
}

UInt32 RiffScan::IndexChunks() const
{
    return static_cast<UInt32>(std::count_if(indexes.begin(), indexes.end(),
                                             [](const ScannedIndex& index) { return index.id != Code("indx"); }));
}

UInt32 RiffScan::IndexesAt36() const
{
    return static_cast<UInt32>(
        std::count_if(indexes.begin(), indexes.end(), [](const ScannedIndex& index) { return index.isOneWordMore; }));
}

std::vector<RecordRun> RiffScan::OpenDmlRuns() const
{
    std::vector<RecordRun> runs;
    for (const ScannedIndex& index : indexes) {
        runs.push_back(index.records);
    }
    return runs;
}

} // namespace lxavi
