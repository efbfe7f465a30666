// The way to the next media chunk, for delivery, for the count of the audio that a jump has passed over, and for the walk
// over the media data.

#pragma once

#include "Chunk.hpp"

namespace lxAviReadCore {

// A media chunk whose header has been read.
struct MediaHeader {
    UInt32 uiId;    // its identifier
    UInt64 uiStart; // position of its header, or of the "dd" chunk that belongs to it
};

// Finds the next media chunk and reads its header: stream, kind, size, and the descriptor of a "dd" chunk before it.
[[nodiscard]] UInt32 ReadMediaHeader(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_ChunkData_t* pChunk,
                                     MediaHeader& header);

// The payload of the last chunk of a stream that the file does not have, until the next search begins.
struct ForeignPayload {
    UInt64 uiStart;
    UInt32 uiSize; // 0: there is none
};

// Takes it away, so that a walk does not use it up; the next search has it when it is given back.
ForeignPayload TakeForeignPayload();
void GiveBackForeignPayload(const ForeignPayload& foreign);

// Whether the size of a chunk can be trusted: its stream is known.
bool IsOfKnownStream(const lxAviRead_ChunkData_t& chunk);

// Whether the identifier is one of a media chunk.
bool IsMediaChunk(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 id);

// Whether the identifier is one of a video chunk.
bool IsVideoChunk(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 id);

} // namespace lxAviReadCore
