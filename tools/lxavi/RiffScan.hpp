// A plain walk over the structure of a file, independent of the library: what stands where, and what is wrong with it.

#pragma once

#include "Reader.hpp"

#include <memory>
#include <string>
#include <vector>

namespace lxavi {

struct Anomaly {
    UInt64 offset;
    std::string text;
};

// A chunk of the media data.
struct ScannedChunk {
    UInt64 offset; // of its header
    UInt32 id;
    UInt32 size;
};

// A record of an index.
struct ScannedRecord {
    UInt64 at;     // where the record stands
    UInt64 offset; // as the record states it (idx1), or of the chunk's header in the file (OpenDML)
    UInt32 id;     // of the chunk; of OpenDML records the one that the index names
    UInt32 size;
    bool key;
};

class RiffScan {
public:
    explicit RiffScan(const std::string& path);

    std::vector<ScannedChunk> media;
    std::vector<ScannedRecord> idx1;
    std::vector<ScannedRecord> openDml;
    std::vector<Anomaly> anomalies;
    UInt32 riffLists = 0;
    UInt32 streamLists = 0;
    UInt32 indexChunks = 0;   // ix##
    UInt32 indexesAt32 = 0;   // ix## chunks whose records begin 32 bytes behind their start
    UInt64 moviCode = 0;      // offset of the first "movi" code
    UInt64 bytes = 0;         // of the file

private:
    struct Header {
        UInt32 id;
        UInt32 size;
    };

    bool Read(UInt64 offset, void* buffer, size_t size);
    void Note(UInt64 offset, const std::string& text) { anomalies.push_back({offset, text}); }
    void Walk(UInt64 offset, UInt64 end, int depth, bool inMovi);
    UInt64 TakeChunk(UInt64 offset, UInt64 end, const Header& header, int depth, bool inMovi);
    void TakeList(UInt64 offset, UInt64 end, const Header& header, int depth, bool inMovi);
    void TakeIdx1(UInt64 offset, UInt64 size);
    void TakeIndexChunk(UInt64 offset, const Header& header);
    void TakeRecords(UInt64 at, UInt64 end, UInt32 entries, UInt32 recordSize, UInt32 chunkId, UInt64 base);

    struct Close {
        void operator()(FILE* file) const { std::fclose(file); }
    };
    std::unique_ptr<FILE, Close> m_file;
};

bool IsMediaId(UInt32 id);

} // namespace lxavi
