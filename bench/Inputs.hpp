// The files that the benchmarks work on. Each is made when it is first asked for, and removed when the program ends.

#pragma once

#include "lxTypes.h"

#include <string>
#include <vector>

namespace bench {

// Records of one stream in one list.
struct IndexChunk {
    UInt64 uiOffset = 0; // of the chunk
    UInt32 uiBytes = 0;  // of its records
    bool bVideo = false;
};

struct Input {
    std::string path;
    UInt64 uiChunks = 0;   // of media data
    UInt64 uiMovi = 0;     // offset of the first of them
    UInt64 uiMoviEnd = 0;  // behind the last one
    UInt64 uiIdx1 = 0;     // offset of the first record
    UInt64 uiIdx1Bytes = 0;
    std::vector<IndexChunk> indexChunks; // of an OpenDML index
    UInt64 uiRejected = 0; // payload bytes of the second audio track
};

// Video and one audio track in turn, with payloads of 0 to 60 bytes.
const Input& SmallChunks(UInt32 chunks);

// The same with an OpenDML index, in several RIFF lists.
const Input& SmallChunksOpenDml(UInt32 chunks);

// 1 GiB of video in chunks of 460 000 bytes.
const Input& LargeChunks();

// Video and two audio tracks in turn; the second one's payloads have `payload` bytes.
const Input& TwoTracks(UInt32 chunks, UInt32 payload);

// 50 000 frames of 600 bytes, each with the sound of its 40 ms; every tenth is a key frame.
const Input& Film();
constexpr UInt32 kFilmFrames = 50000;
constexpr UInt32 kFilmKeyDistance = 10;
constexpr UInt32 kFilmFrameMsec = 40;

} // namespace bench
