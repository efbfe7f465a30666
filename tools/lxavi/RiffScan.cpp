#include "RiffScan.hpp"

#include "Output.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

namespace lxavi {

namespace {

constexpr int kDeepest = 8;             // lists in lists
constexpr size_t kMostAnomalies = 1000; // then the scan stops

UInt32 WordAt(const std::vector<UInt8>& bytes, size_t offset)
{
    UInt32 word = 0;
    std::memcpy(&word, bytes.data() + offset, sizeof word);
    return word;
}

} // namespace

bool IsPrintableId(UInt32 id)
{
    for (int i = 0; i < 4; ++i) {
        const auto c = static_cast<UInt8>(id >> (8 * i));
        if (c < 0x20 || c > 0x7E) {
            return false;
        }
    }
    return true;
}

UInt32 StreamOf(UInt32 id)
{
    const auto digit = [](UInt32 character) { return character < 'A' ? character - '0' : character - 55; };
    return (digit(id & 0xFF) * 10 + digit(id >> 8 & 0xFF)) & 0xFFFF;
}

bool IsMediaId(UInt32 id)
{
    switch (id >> 16) {
    case 'd' | 'c' << 8:
    case 'd' | 'b' << 8:
    case 'w' | 'b' << 8:
    case 's' | 't' << 8:
    case 't' | 'x' << 8:
    case '_' | '_' << 8:
    case 'i' | 'v' << 8:
    case 's' | 'b' << 8:
    case 'd' | 'd' << 8: return true;
    default: return false;
    }
}

RiffScan::RiffScan(const std::string& path) : m_file(std::fopen(path.c_str(), "rb"))
{
    if (m_file == nullptr || fseeko64(m_file.get(), 0, SEEK_END) != 0) {
        return;
    }
    bytes = static_cast<UInt64>(ftello64(m_file.get()));
    Walk(0, bytes, {0, 0, false});
}

UInt32 RiffScan::IndexChunks() const
{
    return static_cast<UInt32>(std::count_if(indexes.begin(), indexes.end(),
                                             [](const ScannedIndex& index) { return index.id != Code("indx"); }));
}

UInt32 RiffScan::IndexesAt36() const
{
    return static_cast<UInt32>(
        std::count_if(indexes.begin(), indexes.end(), [](const ScannedIndex& index) { return index.oneWordMore; }));
}

bool RiffScan::Read(UInt64 offset, void* buffer, size_t size)
{
    return fseeko64(m_file.get(), static_cast<off64_t>(offset), SEEK_SET) == 0 &&
           std::fread(buffer, 1, size, m_file.get()) == size;
}

void RiffScan::NotePart(UInt64 offset, const Header& header, UInt32 type, const Place& place)
{
    if (parts.size() < kMostParts) {
        parts.push_back({offset, header.id, header.size, type, place.parent});
    }
}

void RiffScan::TakeMainHeader(UInt64 offset)
{
    UInt32 flags = 0;
    idx1Promised = Read(offset + 8 + 12, &flags, sizeof flags) && (flags & LX_AVIREAD_HAS_INDEX) != 0;
}

void RiffScan::Walk(UInt64 offset, UInt64 end, const Place& place)
{
    while (offset + 8 <= end && anomalies.size() < kMostAnomalies) {
        Header header = {};
        if (!Read(offset, &header, sizeof header)) {
            return;
        }
        if (!IsPrintableId(header.id)) {
            Note(offset, fmt::format("no chunk begins here, {} bytes are left over", end - offset));
            return;
        }
        offset = TakeChunk(offset, end, header, place);
    }
    if (offset < end && place.depth > 0) {
        Note(offset, fmt::format("{} bytes at the end of a list are too few for a chunk", end - offset));
    }
}

UInt64 RiffScan::TakeChunk(UInt64 offset, UInt64 end, const Header& header, const Place& place)
{
    const UInt64 chunkEnd = offset + 8 + header.size;
    if (chunkEnd > end) {
        Note(offset, fmt::format("chunk '{}' of {} bytes reaches {} bytes beyond {}", FourCCText(header.id),
                                 header.size, chunkEnd - end, end == bytes ? "the end of the file" : "its list"));
    }
    const UInt64 limit = std::min(chunkEnd, end);
    if (header.id == Code("RIFF") || header.id == Code("LIST")) {
        TakeList(offset, limit, header, place);
    } else if ((header.id & 0xFFFF) == ('i' | 'x' << 8) && place.depth > 0) {
        TakeIndexChunk(offset, header);
    } else if (place.inMovi && IsMediaId(header.id)) {
        media.push_back({offset, header.id, header.size});
    } else {
        NotePart(offset, header, 0, place);
    }
    switch (header.id) {
    case Code("idx1"): TakeIdx1(offset + 8, limit - offset - 8); break;
    case Code("avih"): TakeMainHeader(offset); break;
    case Code("indx"): TakeOneLevelIndex(offset, header); break;
    default: break;
    }
    return chunkEnd + (header.size & 1);
}

void RiffScan::TakeList(UInt64 offset, UInt64 end, const Header& header, const Place& place)
{
    UInt32 type = 0;
    if (place.depth >= kDeepest || offset + 12 > end || !Read(offset + 8, &type, sizeof type)) {
        Note(offset, "list without a type, or too deep in other lists");
        return;
    }
    if (header.id == Code("RIFF")) {
        ++riffLists;
    }
    if (type == Code("strl")) {
        ++streamLists;
    }
    if (type == Code("movi") && moviCode == 0) {
        moviCode = offset + 8;
        moviEnd = end;
    }
    NotePart(offset, header, type, place);
    const bool recordList = type == Code("rec ");
    Walk(offset + 12, end, {place.depth + 1, type, type == Code("movi") || (place.inMovi && recordList)});
}

void RiffScan::TakeIdx1(UInt64 offset, UInt64 size)
{
    if (size % 16 != 0) {
        Note(offset, fmt::format("index of {} bytes is no multiple of 16", size));
    }
    std::vector<UInt8> batch(16 * 4096);
    for (UInt64 at = 0; at + 16 <= size;) {
        const auto piece = static_cast<size_t>(std::min<UInt64>(batch.size(), (size - at) / 16 * 16));
        if (!Read(offset + at, batch.data(), piece)) {
            return;
        }
        for (size_t i = 0; i < piece; i += 16) {
            idx1.push_back({offset + at + i, WordAt(batch, i + 8), WordAt(batch, i), WordAt(batch, i + 12),
                            (WordAt(batch, i + 4) & 0x10) != 0});
        }
        at += piece;
    }
}

void RiffScan::TakeRecords(UInt64 at, UInt64 end, UInt32 entries, UInt32 recordSize, UInt32 chunkId, UInt64 base)
{
    std::vector<UInt8> record(recordSize);
    for (UInt32 i = 0; i < entries && at + recordSize <= end; ++i, at += recordSize) {
        if (!Read(at, record.data(), recordSize)) {
            return;
        }
        const UInt32 size = WordAt(record, 4);
        openDml.push_back({at, base + WordAt(record, 0) - 8, chunkId, size & 0x7FFFFFFF, (size >> 31) == 0});
    }
}

void RiffScan::TakeOneLevelIndex(UInt64 offset, const Header& header)
{
    UInt8 indexType = 0;
    constexpr UInt8 kIndexOfChunks = 1;
    if (Read(offset + 11, &indexType, sizeof indexType) && indexType == kIndexOfChunks) {
        TakeIndexChunk(offset, header);
    }
}

void RiffScan::TakeIndexChunk(UInt64 offset, const Header& header)
{
    std::vector<UInt8> fields(32);
    if (header.size < 24 || !Read(offset, fields.data(), fields.size())) {
        Note(offset, "index chunk is too short for its header");
        return;
    }
    const UInt32 recordSize = (WordAt(fields, 8) & 0xFFFF) * 4;
    const UInt32 entries = WordAt(fields, 12);
    const UInt64 base = WordAt(fields, 20) | static_cast<UInt64>(WordAt(fields, 24)) << 32;
    if (recordSize < 8) {
        Note(offset, fmt::format("index chunk with records of {} bytes", recordSize));
        return;
    }
    // The chunk header and the fields take 32 bytes. Some files have one more word before the records.
    const bool oneWordMore = header.id != Code("indx") && header.size == 28 + static_cast<UInt64>(entries) * recordSize;
    indexes.push_back({offset, base, header.id, fields[10] == 1, oneWordMore});
    if (24 + static_cast<UInt64>(entries) * recordSize > header.size) {
        Note(offset, fmt::format("index chunk claims {} records and has room for {}", entries,
                                 (header.size - 24) / recordSize));
    }
    TakeRecords(offset + (oneWordMore ? 36 : 32), offset + 8 + header.size, entries, recordSize, WordAt(fields, 16),
                base);
}

} // namespace lxavi
