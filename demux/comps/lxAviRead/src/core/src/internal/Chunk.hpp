// Chunks and lists as the file has them: their headers, and the sizes that many chapters count with.

#pragma once

#include "FileAccess.hpp"

namespace lxAviReadCore {

constexpr UInt32 kChunkCodeBytes = 4;
constexpr UInt32 kChunkHeaderBytes = 8; // code, size
constexpr UInt32 kListTypeBytes = 4;
constexpr UInt32 kListHeaderBytes = kChunkHeaderBytes + kListTypeBytes; // "LIST" or "RIFF", size, type

// A "dd" chunk: its header and its descriptor.
constexpr UInt32 kDrmChunkBytes = kChunkHeaderBytes + LX_AVIREAD_DRM_BYTES;

// A chunk's header.
struct ChunkHeader {
    UInt32 uiCode;
    UInt32 uiSize;    // made even
    UInt32 uiPayload; // the same without a pad byte
};

[[nodiscard]] UInt32 ReadChunkHeader(lxAviReadCore_AviInfo_t* pAviInfo, ChunkHeader& chunk);

} // namespace lxAviReadCore
