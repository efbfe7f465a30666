#include "Inventory.hpp"

#include "RiffScan.hpp"

#include <algorithm>
#include <cmath>

namespace lxavi {

namespace {

std::set<UInt64> IndexedKeyFrames(Reader& reader)
{
    std::set<UInt64> offsets;
    if (reader.BuildIndex() == LX_OK) {
        for (const auto* entry : reader.Table()) {
            offsets.insert(entry->videoChunkOffset);
        }
    }
    return offsets;
}

UInt64 StartOf(const lxAviRead_MediaChunk_t& chunk)
{
    return chunk.uiDescriptor != 0 ? chunk.uiDescriptor : chunk.uiOffset;
}

} // namespace

Inventory::Inventory(Reader& reader)
    : m_reader(reader), m_indexed(IndexedKeyFrames(reader)), m_source(reader.Settings().Path())
{
    std::vector<lxAviRead_MediaChunk_t> chunks;
    ForEachMediaChunk(reader, [&](const lxAviRead_MediaChunk_t& chunk) { chunks.push_back(chunk); });
    m_lists = MediaLists(reader); // the walk may have found more
    if (chunks.empty()) {
        throw Failure("has no media data to repair");
    }
    UInt64 behind = 0;
    for (const lxAviRead_MediaChunk_t& chunk : chunks) {
        TakeGap(behind, StartOf(chunk));
        TakeChunk(chunk);
        behind = BehindChunk(chunk);
    }
    TakeGap(behind, reader.FileSize());
    CountOutside();
    static_cast<void>(reader.ParseMediaData()); // counts what the streams hold; not without a video stream
    for (UInt32 i = 0; i < reader.StreamCount(); ++i) {
        m_lengths[i] = CountLength(i);
    }
}

void Inventory::TakeChunk(const lxAviRead_MediaChunk_t& chunk)
{
    if (chunk.uiDescriptor != 0) {
        const ChunkHead header = m_source.HeaderAt(chunk.uiDescriptor);
        m_pieces.push_back({chunk.uiDescriptor, header.id, header.size, chunk.uiStreamNr, Listed::InIdx1Only});
    }
    const bool isVideo = m_reader.Stream(chunk.uiStreamNr)->StreamType == LX_AVIREAD_STREAM_VIDEO;
    const bool isKey = !isVideo || IsKeyFrame(chunk);
    m_keyFrames += isVideo && isKey ? 1 : 0;
    ++m_chunks[chunk.uiStreamNr];
    m_bytes[chunk.uiStreamNr] += chunk.uiSize;
    m_pieces.push_back(
        {chunk.uiOffset, chunk.uiId, chunk.uiSize, chunk.uiStreamNr, isKey ? Listed::AsKeyFrame : Listed::AsFrame});
}

// Of a codec whose frames the library does not know, an index of the file can know more. Decoding begins at the first
// frame in any case.
bool Inventory::IsKeyFrame(const lxAviRead_MediaChunk_t& chunk)
{
    if (chunk.eFrame != LX_AVIREAD_FRAME_UNKNOWN) {
        return chunk.eFrame == LX_AVIREAD_FRAME_KEY;
    }
    return m_chunks[chunk.uiStreamNr] == 0 || m_indexed.contains(StartOf(chunk));
}

// What the lists have between two chunks.
void Inventory::TakeGap(UInt64 from, UInt64 to)
{
    for (; m_list < m_lists.size(); ++m_list) {
        const Extent gap = {std::max(from, m_lists[m_list].start), std::min(to, m_lists[m_list].end)};
        if (gap.start < gap.end) {
            TakeGapOfList(gap);
        }
        if (to < m_lists[m_list].end) {
            return; // the list goes on behind the gap
        }
    }
}

// Changes of the palette belong to a repaired file, the headers of lists, padding and index chunks are made anew, and
// everything else is damage.
void Inventory::TakeGapOfList(Extent gap)
{
    constexpr UInt64 kListHeader = 12;
    while (gap.start + 8 <= gap.end) {
        const ChunkHead header = m_source.HeaderAt(gap.start);
        const bool isList = header.id == Code("LIST");
        const bool isStructure = isList || header.id == Code("JUNK") || (header.id & 0xFFFF) == ('i' | 'x' << 8);
        const UInt64 next = gap.start + (isList ? kListHeader : 8 + UInt64{header.size} + (header.size & 1));
        if (next > gap.end || !(isStructure || IsPaletteChange(header.id))) {
            break;
        }
        if (!isStructure) {
            m_pieces.push_back({gap.start, header.id, header.size, StreamOf(header.id), Listed::InIdx1Only});
        }
        gap.start = next;
    }
    if (gap.start < gap.end) {
        constexpr UInt64 kChunkHeader = 8;
        m_bytesLeftOut += gap.end - gap.start;
        ++m_placesLeftOut;
        if (gap.end - gap.start >= kChunkHeader) {
            m_damage.push_back(gap);
        }
    }
}

// Between the lists and behind the last one there are indexes and the headers of lists. What is no chunk there is damage, or
// was left over from an older file.
void Inventory::CountOutside()
{
    for (size_t i = 0; i < m_lists.size(); ++i) {
        const UInt64 end = i + 1 < m_lists.size() ? m_lists[i + 1].start : m_reader.FileSize();
        UInt64 at = m_lists[i].end + m_lists[i].end % 2;
        while (at + 8 <= end) {
            const ChunkHead header = m_source.HeaderAt(at);
            const bool isList = header.id == Code("RIFF") || header.id == Code("LIST");
            const bool isInfo = isList && m_source.HeaderAt(at + 4).size == Code("INFO");
            const UInt64 next = at + (isList && !isInfo ? 12 : 8 + UInt64{header.size} + (header.size & 1));
            if (next > end || !IsPrintableId(header.id)) {
                break;
            }
            at = next;
        }
        m_bytesOutside += end - std::min(at, end);
    }
}

bool Inventory::IsPaletteChange(UInt32 id) const
{
    const auto* stream = m_reader.Stream(StreamOf(id));
    return id >> 16 == ('p' | 'c' << 8) && stream != nullptr && stream->StreamType == LX_AVIREAD_STREAM_VIDEO;
}

// A video stream is as long as it has frames. The length of audio follows from its duration, which the library has
// counted.
UInt32 Inventory::CountLength(UInt32 streamNr) const
{
    const lxAviReadCore_StreamInfo_t& stream = *m_reader.Stream(streamNr);
    lxAviRead_StreamSummary_t summary = {};
    static_cast<void>(lxAviReadCore_GetStreamSummary(streamNr, &summary));
    const lxAviRead_Strh_t& header = stream.Header;
    if (stream.StreamType == LX_AVIREAD_STREAM_VIDEO) {
        return m_chunks[streamNr];
    }
    if (stream.StreamType != LX_AVIREAD_STREAM_AUDIO || header.dwScale == 0) {
        return header.dwLength;
    }
    if (summary.eOrigin != LX_AVIREAD_SUMMARY_MEDIA_DATA) { // there is no video stream
        return header.dwSampleSize != 0 ? static_cast<UInt32>(m_bytes[streamNr] / header.dwSampleSize)
                                        : m_chunks[streamNr];
    }
    const double units = static_cast<double>(summary.uiDurationUsec) * header.dwRate / header.dwScale / 1e6;
    return static_cast<UInt32>(std::llround(std::clamp(units, 0.0, 4294967295.0)));
}

} // namespace lxavi
