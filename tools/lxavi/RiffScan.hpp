// A simple walk over the structure of a file, without the library. It notes the place of every part, and every anomaly.

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
    UInt64 offset; // offset of its header
    UInt32 id;
    UInt32 size;
};

// A chunk or list of the file's structure that is not media data.
struct ScannedPart {
    UInt64 offset; // offset of its header
    UInt32 id;
    UInt32 size;
    UInt32 type;   // type of a list; 0 for a chunk
    UInt32 parent; // type of the list that holds it; 0 at the top level
};

// An index chunk: an ix## chunk, or an indx chunk with a one-level index.
struct ScannedIndex {
    UInt64 offset; // offset of its header
    UInt64 base;
    UInt32 id;
    bool field;
    bool oneWordMore; // the records begin 36 bytes behind the chunk's start, not 32
};

// A record of an index.
struct ScannedRecord {
    UInt64 at;     // file offset of the record
    UInt64 offset; // idx1: as the record states it; OpenDML: file offset of the chunk's header
    UInt32 id;     // identifier of the chunk; OpenDML: the identifier that the index names
    UInt32 size;
    bool key;
};

class RiffScan {
public:
    explicit RiffScan(const std::string& path);

    std::vector<ScannedChunk> media;
    std::vector<ScannedPart> parts; // in file order, the first kMostParts
    std::vector<ScannedIndex> indexes;
    std::vector<ScannedRecord> idx1;
    std::vector<ScannedRecord> openDml;
    std::vector<Anomaly> anomalies;
    UInt32 riffLists = 0;
    UInt32 streamLists = 0;
    UInt64 moviCode = 0;       // offset of the first "movi" code
    UInt64 moviEnd = 0;        // end of the first `movi` list
    UInt64 bytes = 0;          // size of the file
    bool idx1Promised = false; // the main header has the has-index bit

    UInt32 IndexChunks() const; // number of ix## chunks
    UInt32 IndexesAt36() const; // index chunks with one more word before their records

private:
    static constexpr size_t kMostParts = 100000;

    struct Header {
        UInt32 id;
        UInt32 size;
    };

    bool Read(UInt64 offset, void* buffer, size_t size);
    void Note(UInt64 offset, const std::string& text) { anomalies.push_back({offset, text}); }
    struct Place {
        int depth;     // number of lists around the part
        UInt32 parent; // type of the innermost list
        bool inMovi;
    };

    void Walk(UInt64 offset, UInt64 end, const Place& place);
    UInt64 TakeChunk(UInt64 offset, UInt64 end, const Header& header, const Place& place);
    void TakeList(UInt64 offset, UInt64 end, const Header& header, const Place& place);
    void NotePart(UInt64 offset, const Header& header, UInt32 type, const Place& place);
    void TakeMainHeader(UInt64 offset);
    void TakeOneLevelIndex(UInt64 offset, const Header& header);
    void TakeIdx1(UInt64 offset, UInt64 size);
    void TakeIndexChunk(UInt64 offset, const Header& header);
    void TakeRecords(UInt64 at, UInt64 end, UInt32 entries, UInt32 recordSize, UInt32 chunkId, UInt64 base);

    struct Close {
        void operator()(FILE* file) const { std::fclose(file); }
    };
    std::unique_ptr<FILE, Close> m_file;
};

bool IsMediaId(UInt32 id);

// Whether an identifier has four printable characters.
bool IsPrintableId(UInt32 id);

// A four-character code as a little-endian word.
constexpr UInt32 Code(const char (&text)[5])
{
    return static_cast<UInt32>(static_cast<UInt8>(text[0])) | static_cast<UInt32>(static_cast<UInt8>(text[1])) << 8 |
           static_cast<UInt32>(static_cast<UInt8>(text[2])) << 16 |
           static_cast<UInt32>(static_cast<UInt8>(text[3])) << 24;
}

// The stream number that the first two characters of a chunk identifier give.
UInt32 StreamOf(UInt32 id);

} // namespace lxavi
