// The records of an index, one at a time, whether of idx1 or of OpenDML index chunks.

#pragma once

#include "SourceFile.hpp"

#include <vector>

namespace lxavi {

// Records that follow each other in the file.
struct RecordRun {
    UInt64 at; // offset of the first one
    UInt64 count;
    UInt32 recordBytes;
    UInt64 base;    // OpenDML: added to the offset of each record
    UInt32 chunkId; // OpenDML: of all their chunks; the records of idx1 name a chunk each
    bool isIdx1;
};

struct IndexRecord {
    UInt64 at;     // file offset of the record
    UInt64 offset; // idx1: as the record states it; OpenDML: of the chunk's header, in the file
    UInt32 id;     // of the chunk
    UInt32 size;   // of its payload
    bool isKey;
    UInt64 behind = 0; // file offset behind the record
};

// Reads runs from start to end, with a small buffer.
class RecordReader {
public:
    RecordReader(const SourceFile& file, std::vector<RecordRun> runs);

    bool Next(IndexRecord& record); // false behind the last one

private:
    bool Fill();

    const SourceFile& m_file;
    std::vector<RecordRun> m_runs;
    size_t m_run = 0;
    UInt64 m_nextInRun = 0; // to be read from the file
    std::vector<UInt8> m_buffer;
    size_t m_at = 0;       // in the buffer
    UInt64 m_bufferAt = 0; // offset of the buffer in the file
};

// The records in the order of their chunks. Nearly all indexes have them in that order. Of another one a sorted copy is made,
// which takes memory in proportion to the index.
class OrderedRecords {
public:
    OrderedRecords(const SourceFile& file, const std::vector<RecordRun>& runs);

    bool IsEmpty() const { return m_isEmpty; }
    bool Next(IndexRecord& record);

private:
    RecordReader m_reader;
    std::vector<IndexRecord> m_sorted; // empty when the index is in order
    size_t m_next = 0;
    bool m_isEmpty = true;
};

} // namespace lxavi
