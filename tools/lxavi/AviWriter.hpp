// Writes AVI files: chunks in the order in which they come, with an index, and headers with the right counts.
//
//   RIFF "AVI "   LIST hdrl   LIST INFO   LIST movi chunk chunk … ix00 ix01 …   idx1
//   RIFF "AVIX"   LIST movi chunk chunk … ix00 ix01 …
//
// A file that will not be larger than a list may be has no "AVIX" lists, and no index but idx1. A larger one has a super
// index for every stream.

#pragma once

#include "OutputFile.hpp"
#include "Reader.hpp"

#include <span>
#include <string>
#include <vector>

namespace lxavi {

// A chunk of the headers, or a text: its code and its payload.
struct NamedBytes {
    UInt32 code;
    std::string bytes;
};

struct WrittenStream {
    lxAviRead_Strh_t header;        // dwLength and dwSuggestedBufferSize are the writer's
    std::vector<NamedBytes> chunks; // of its list behind strh: strf first
};

struct WrittenFile {
    lxAviRead_Avih_t header; // counts and flags are the writer's
    std::vector<WrittenStream> streams;
    std::vector<NamedBytes> texts; // of the INFO list
    UInt64 expectedBytes = 0;      // of the media data: decides whether the file has "AVIX" lists
};

// What a chunk is in the index.
enum class Listed {
    AsKeyFrame,
    AsFrame,
    InIdx1Only, // "dd" chunks and changes of the palette
};

class AviWriter {
public:
    // Writes the headers. `out` has to live as long as the writer.
    AviWriter(OutputFile& out, WrittenFile file, UInt64 listBytes = kListBytes);

    // Begins a chunk, whose `size` bytes Payload brings.
    void BeginChunk(UInt32 id, UInt32 streamNr, UInt32 size, Listed listed);
    void Payload(std::span<const UInt8> bytes);
    // Says how long a stream is, in its units. Without it, a stream is as long as it has chunks.
    void SetLength(UInt32 streamNr, UInt32 length);
    // Writes what is left, and the headers again; then the output can be committed.
    void Finish();

    UInt32 Lists() const { return m_lists; }
    bool HasSuperIndex() const { return m_superEntries > 0; }

    // The RIFF lists of a file with several are not larger than this.
    static constexpr UInt64 kListBytes = UInt64{1} << 30;

private:
    struct Record {
        UInt64 payload; // where its payload begins in the file
        UInt32 size;
        bool key;
    };
    struct SuperEntry {
        UInt64 offset;
        UInt32 size;
        UInt32 duration;
    };
    struct Stream {
        UInt32 chunkId = 0; // of its first chunk
        UInt32 chunks = 0;
        UInt32 largest = 0;
        UInt32 length = 0;
        bool lengthIsSet = false;
        std::vector<Record> records; // of the current list
        std::vector<SuperEntry> super;
    };

    std::string Headers() const;
    std::string HeaderList() const;
    std::string StreamList(UInt32 streamNr) const;
    std::string SuperIndex(const Stream& stream) const;
    std::string ExtendedHeader() const;
    std::string IndexChunk(UInt32 streamNr, const Stream& stream) const;
    lxAviRead_Avih_t MainHeader() const;
    UInt32 Frames() const;

    void OpenList();
    void CloseList();
    void WriteIndexChunks();
    void Pad();
    bool HasRoom(UInt32 size) const;

    OutputFile& m_out;
    WrittenFile m_file;
    UInt64 m_listBytes;
    UInt32 m_superEntries; // room in each super index; 0: there is none
    std::vector<Stream> m_streams;
    std::string m_idx1;
    UInt64 m_riff = 0;       // where the current RIFF list begins
    UInt64 m_movi = 0;       // and its "movi" code
    UInt64 m_indexBytes = 0; // that the index of the current list will take
    UInt32 m_lists = 0;
    UInt32 m_framesInFirst = 0;
};

// A record of idx1; `offset` counts from the "movi" code.
std::string Idx1Record(UInt32 id, Listed listed, UInt32 offset, UInt32 size);

// A chunk as a file has it, padded.
std::string ChunkBytes(UInt32 code, const std::string& payload);

} // namespace lxavi
