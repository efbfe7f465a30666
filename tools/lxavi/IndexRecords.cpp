#include "IndexRecords.hpp"

#include <algorithm>

namespace lxavi {

namespace {

constexpr size_t kBufferBytes = 64 * 1024;

IndexRecord Idx1RecordOf(const UInt8* bytes, UInt64 at)
{
    constexpr UInt32 kKeyFrame = 0x10;
    return {at, WordAt(bytes + 8), WordAt(bytes), WordAt(bytes + 12), (WordAt(bytes + 4) & kKeyFrame) != 0};
}

// The records name the payload of a chunk, behind its header.
IndexRecord OpenDmlRecordOf(const UInt8* bytes, UInt64 at, const RecordRun& run)
{
    constexpr UInt32 kNoKeyFrame = 0x80000000;
    const UInt32 size = WordAt(bytes + 4);
    return {at, run.base + WordAt(bytes) - 8, run.chunkId, size & ~kNoKeyFrame, (size & kNoKeyFrame) == 0};
}

} // namespace

RecordReader::RecordReader(const SourceFile& file, std::vector<RecordRun> runs) : m_file(file), m_runs(std::move(runs))
{
}

// Reads the next records of the run, or of the next run that has some. A run that cannot be read is over.
bool RecordReader::Fill()
{
    for (; m_run < m_runs.size(); ++m_run, m_nextInRun = 0) {
        const RecordRun& run = m_runs[m_run];
        const UInt64 most = std::max<UInt64>(kBufferBytes / run.recordBytes, 1);
        const auto count = static_cast<size_t>(std::min(most, run.count - m_nextInRun));
        m_bufferAt = run.at + m_nextInRun * run.recordBytes;
        m_buffer.resize(count * run.recordBytes);
        m_at = 0;
        m_nextInRun += count;
        if (count > 0 && m_file.Read(m_bufferAt, m_buffer.data(), m_buffer.size())) {
            return true;
        }
    }
    m_buffer.clear();
    return false;
}

bool RecordReader::Next(IndexRecord& record)
{
    if (m_at >= m_buffer.size() && !Fill()) {
        return false;
    }
    const RecordRun& run = m_runs[m_run];
    const UInt8* const bytes = m_buffer.data() + m_at;
    const UInt64 at = m_bufferAt + m_at;
    record = run.isIdx1 ? Idx1RecordOf(bytes, at) : OpenDmlRecordOf(bytes, at, run);
    record.behind = at + run.recordBytes;
    m_at += run.recordBytes;
    return true;
}

OrderedRecords::OrderedRecords(const SourceFile& file, const std::vector<RecordRun>& runs) : m_reader(file, runs)
{
    RecordReader reader(file, runs);
    bool isInOrder = true;
    UInt64 before = 0;
    for (IndexRecord record = {}; reader.Next(record); before = record.offset) {
        isInOrder = isInOrder && record.offset >= before;
        m_isEmpty = false;
    }
    if (isInOrder) {
        return;
    }
    for (IndexRecord record = {}; m_reader.Next(record);) {
        m_sorted.push_back(record);
    }
    std::stable_sort(m_sorted.begin(), m_sorted.end(),
                     [](const IndexRecord& a, const IndexRecord& b) { return a.offset < b.offset; });
}

bool OrderedRecords::Next(IndexRecord& record)
{
    if (m_sorted.empty()) {
        return m_reader.Next(record);
    }
    if (m_next == m_sorted.size()) {
        return false;
    }
    record = m_sorted[m_next++];
    return true;
}

} // namespace lxavi
