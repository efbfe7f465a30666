// Chunks of the headers that are kept whole: what decoders need beyond the fixed records, and the texts of the file. Only
// the format mode keeps any.

#pragma once

#include "Chunk.hpp"

namespace lxAviReadCore {

// The first bytes of a chunk, where somebody has read them already.
struct ChunkHead {
    const void* pBytes = Null;
    UInt32 uiBytes = 0;
};

// Reads what follows `head` in a chunk of a stream's list, which has `size` bytes in all, and keeps all of the chunk, in
// place of an earlier one with the same code.
[[nodiscard]] UInt32 KeepChunk(lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t* pStream,
                               UInt32 code, UInt32 size, const ChunkHead& head = {});

// Takes the pad byte of a chunk with an odd size, which was kept with it, from its size again.
void DropPadByte(const lxAviReadCore_StreamInfo_t* pStream, const ChunkHeader& chunk);

// Keeps the texts of an INFO list. `size` is the list size, which includes the "INFO" code.
[[nodiscard]] UInt32 KeepTexts(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size);

void ReleaseKeptChunks();

} // namespace lxAviReadCore
