#include "SourceFile.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lxavi {

namespace {

constexpr size_t kPiece = 256 * 1024; // bytes that are copied at a time

} // namespace

SourceFile::SourceFile(const std::string& path) : m_descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC))
{
    struct stat status = {};
    if (m_descriptor < 0 || fstat(m_descriptor, &status) != 0) {
        const int reason = errno;
        close(m_descriptor);
        throw Failure(fmt::format("cannot be opened: {}", std::strerror(reason)));
    }
    m_size = static_cast<UInt64>(status.st_size);
}

SourceFile::~SourceFile() { close(m_descriptor); }

bool SourceFile::Read(UInt64 offset, void* buffer, size_t size) const
{
    auto* to = static_cast<UInt8*>(buffer);
    while (size > 0) {
        const ssize_t got = pread(m_descriptor, to, size, static_cast<off_t>(offset));
        if (got <= 0) {
            return false;
        }
        to += got;
        offset += static_cast<UInt64>(got);
        size -= static_cast<size_t>(got);
    }
    return true;
}

void SourceFile::Copy(UInt64 offset, UInt64 size, const std::function<void(std::span<const UInt8>)>& take)
{
    m_piece.resize(kPiece);
    while (size > 0) {
        const size_t piece = static_cast<size_t>(std::min<UInt64>(size, m_piece.size()));
        if (!Read(offset, m_piece.data(), piece)) {
            throw Failure(fmt::format("{} bytes cannot be read behind {}", size, offset));
        }
        take({m_piece.data(), piece});
        offset += piece;
        size -= piece;
    }
}

std::vector<UInt8> SourceFile::Bytes(UInt64 offset, size_t size) const
{
    std::vector<UInt8> bytes(size);
    if (!Read(offset, bytes.data(), size)) {
        throw Failure(fmt::format("{} bytes cannot be read behind {}", size, offset));
    }
    return bytes;
}

ChunkHead SourceFile::HeaderAt(UInt64 offset) const
{
    ChunkHead header = {};
    if (!Read(offset, &header, sizeof header)) {
        throw Failure(fmt::format("{} bytes cannot be read behind {}", sizeof header, offset));
    }
    return header;
}

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

bool HasStreamNumber(UInt32 id)
{
    const auto isDigit = [](UInt32 character) { return character >= '0' && character <= '9'; };
    return isDigit(id & 0xFF) && isDigit(id >> 8 & 0xFF);
}

bool IsDescriptorId(UInt32 id) { return id >> 16 == ('d' | 'd' << 8); }

bool IsIndexId(UInt32 id) { return (id & 0xFFFF) == ('i' | 'x' << 8); }

UInt32 WordAt(const UInt8* bytes)
{
    UInt32 word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

bool IsVideoId(UInt32 id)
{
    switch (id >> 16) {
    case 'd' | 'c' << 8:
    case 'd' | 'b' << 8:
    case '_' | '_' << 8:
    case 'i' | 'v' << 8: return true;
    default: return false;
    }
}

bool IsMediaId(UInt32 id)
{
    switch (id >> 16) {
    case 'w' | 'b' << 8:
    case 's' | 't' << 8:
    case 't' | 'x' << 8:
    case 's' | 'b' << 8:
    case 'd' | 'd' << 8: return true;
    default: return IsVideoId(id);
    }
}

} // namespace lxavi
