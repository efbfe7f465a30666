// The bytes of a regular file, and the codes that its chunks begin with.

#pragma once

#include "Reader.hpp"

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace lxavi {

// A piece of a file.
struct Extent {
    UInt64 start;
    UInt64 end;
};

struct ChunkHead {
    UInt32 id;
    UInt32 size;
};

class SourceFile {
public:
    explicit SourceFile(const std::string& path); // throws Failure
    ~SourceFile();
    SourceFile(const SourceFile&) = delete;
    SourceFile& operator=(const SourceFile&) = delete;

    UInt64 Size() const { return m_size; }
    // False when the file does not have all the bytes.
    bool Read(UInt64 offset, void* buffer, size_t size) const;

    // These throw Failure when bytes are missing.
    ChunkHead HeaderAt(UInt64 offset) const;
    void Copy(UInt64 offset, UInt64 size, const std::function<void(std::span<const UInt8>)>& take);
    std::vector<UInt8> Bytes(UInt64 offset, size_t size) const;

private:
    int m_descriptor;
    UInt64 m_size = 0;
    std::vector<UInt8> m_piece;
};

// A four-character code as a little-endian word.
constexpr UInt32 Code(const char (&text)[5])
{
    return static_cast<UInt32>(static_cast<UInt8>(text[0])) | static_cast<UInt32>(static_cast<UInt8>(text[1])) << 8 |
           static_cast<UInt32>(static_cast<UInt8>(text[2])) << 16 |
           static_cast<UInt32>(static_cast<UInt8>(text[3])) << 24;
}

// The little-endian word at the start of some bytes.
UInt32 WordAt(const UInt8* bytes);

// Whether an identifier has four printable characters.
bool IsPrintableId(UInt32 id);

// Whether an identifier is one of a chunk of media data.
bool IsMediaId(UInt32 id);

// Whether it is one of a frame.
bool IsVideoId(UInt32 id);

// Whether it is one of a DRM descriptor, or of an index chunk.
bool IsDescriptorId(UInt32 id);
bool IsIndexId(UInt32 id);

// Whether its first two characters are digits.
bool HasStreamNumber(UInt32 id);

// The stream number that the first two characters of a chunk identifier give.
UInt32 StreamOf(UInt32 id);

} // namespace lxavi
