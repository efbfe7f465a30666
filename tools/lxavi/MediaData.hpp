// The chunks of a file's media data, as the library meets them, and the bytes of the file.

#pragma once

#include "Reader.hpp"

#include <functional>
#include <memory>

namespace lxavi {

// A piece of a file.
struct Extent {
    UInt64 start;
    UInt64 end;
};

// All whole chunks, in file order. Making it walks over the media data.
class MediaData {
public:
    explicit MediaData(const Reader& reader); // throws Failure

    const std::vector<lxAviRead_MediaChunk_t>& Chunks() const { return m_chunks; }
    // The chunk at that offset, or null.
    const lxAviRead_MediaChunk_t* Find(UInt64 offset) const;

    // The `movi` lists, as far as the file has them.
    const std::vector<Extent>& Lists() const { return m_lists; }

private:
    std::vector<lxAviRead_MediaChunk_t> m_chunks;
    std::vector<Extent> m_lists;
};

// The offset behind a chunk and its pad byte.
constexpr UInt64 BehindChunk(const lxAviRead_MediaChunk_t& chunk)
{
    return chunk.uiOffset + 8 + chunk.uiSize + (chunk.uiSize & 1);
}

struct ChunkHead {
    UInt32 id;
    UInt32 size;
};

// The bytes of a regular file. Its functions throw Failure when bytes are missing.
class SourceFile {
public:
    explicit SourceFile(const std::string& path);

    ChunkHead HeaderAt(UInt64 offset);
    void Copy(UInt64 offset, UInt64 size, const std::function<void(std::span<const UInt8>)>& take);
    std::vector<UInt8> Bytes(UInt64 offset, size_t size);

private:
    struct Close {
        void operator()(FILE* file) const { std::fclose(file); }
    };

    std::unique_ptr<FILE, Close> m_file;
    std::vector<UInt8> m_piece;
};

} // namespace lxavi
