#include "MediaData.hpp"

#include "Output.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace lxavi {

namespace {

constexpr size_t kPiece = 256 * 1024; // bytes that are copied at a time

struct Walk {
    std::vector<lxAviRead_MediaChunk_t>& chunks;
    Progress progress;
};

UInt32 AddChunk(void* pUser, const lxAviRead_MediaChunk_t* pChunk)
{
    auto& walk = *static_cast<Walk*>(pUser);
    walk.chunks.push_back(*pChunk);
    walk.progress.At(pChunk->uiOffset);
    return 1;
}

} // namespace

MediaData::MediaData(const Reader& reader)
{
    Walk walk{m_chunks, Progress("reading the media data", reader.FileSize())};
    if (const UInt32 result = lxAviReadCore_WalkMediaData(AddChunk, &walk); result != LX_OK) {
        throw Failure("the media data cannot be read", result);
    }
    const lxAviReadCore_AvixRiff_t* segment = reader.State().pCurrentAvix;
    while (segment != nullptr && segment->pPrevAvix != nullptr) {
        segment = segment->pPrevAvix;
    }
    for (; segment != nullptr; segment = segment->pNextAvix) {
        m_lists.push_back(
            {segment->moviDataOffset, std::min(segment->moviDataOffset + segment->moviDataSize, reader.FileSize())});
    }
}

const lxAviRead_MediaChunk_t* MediaData::Find(UInt64 offset) const
{
    const auto found =
        std::lower_bound(m_chunks.begin(), m_chunks.end(), offset,
                         [](const lxAviRead_MediaChunk_t& chunk, UInt64 wanted) { return chunk.uiOffset < wanted; });
    return found != m_chunks.end() && found->uiOffset == offset ? &*found : nullptr;
}

SourceFile::SourceFile(const std::string& path) : m_file(std::fopen(path.c_str(), "rb")), m_piece(kPiece)
{
    if (m_file == nullptr) {
        throw Failure(fmt::format("cannot be opened: {}", std::strerror(errno)));
    }
}

void SourceFile::Copy(UInt64 offset, UInt64 size, const std::function<void(std::span<const UInt8>)>& take)
{
    if (fseeko64(m_file.get(), static_cast<off64_t>(offset), SEEK_SET) != 0) {
        throw Failure(fmt::format("offset {} cannot be reached", offset));
    }
    while (size > 0) {
        const size_t piece = static_cast<size_t>(std::min<UInt64>(size, m_piece.size()));
        if (std::fread(m_piece.data(), 1, piece, m_file.get()) != piece) {
            throw Failure(fmt::format("{} bytes cannot be read behind {}", size, offset));
        }
        take({m_piece.data(), piece});
        size -= piece;
    }
}

std::vector<UInt8> SourceFile::Bytes(UInt64 offset, size_t size)
{
    std::vector<UInt8> bytes;
    Copy(offset, size, [&](std::span<const UInt8> piece) { bytes.insert(bytes.end(), piece.begin(), piece.end()); });
    return bytes;
}

ChunkHead SourceFile::HeaderAt(UInt64 offset)
{
    ChunkHead header = {};
    const std::vector<UInt8> bytes = Bytes(offset, sizeof header);
    std::memcpy(&header, bytes.data(), sizeof header);
    return header;
}

} // namespace lxavi
