// The files for the benchmarks. A file is made at its first use, and removed when the program ends.

#pragma once

#include "lxTypes.h"

#include <string>
#include <vector>

namespace bench {

// Index records of one stream in one list.
struct IndexChunk {
    UInt64 uiOffset = 0; // offset of the index chunk
    UInt32 uiBytes = 0;  // bytes of its records
    bool bVideo = false;
};

struct Input {
    std::string path;
    UInt64 uiChunks = 0;  // number of media chunks
    UInt64 uiMovi = 0;    // offset of the first media chunk
    UInt64 uiMoviEnd = 0; // offset behind the last media chunk
    UInt64 uiIdx1 = 0;    // offset of the first record of idx1
    UInt64 uiIdx1Bytes = 0;
    std::vector<IndexChunk> indexChunks; // of an OpenDML index
    UInt64 uiRejected = 0;               // payload bytes of the second audio track
};

// Video and one audio track in turn, with payloads of 0 to 60 bytes.
const Input& SmallChunks(UInt32 chunks);

// The same with an OpenDML index, in several RIFF lists.
const Input& SmallChunksOpenDml(UInt32 chunks);

// 1 GiB of video in chunks of 460 000 bytes.
const Input& LargeChunks();

// Video and two audio tracks in turn. The payloads of the second audio track have `payload` bytes.
const Input& TwoTracks(UInt32 chunks, UInt32 payload);

// 50 000 frames of 600 bytes, each with 40 ms of audio; every tenth frame is a key frame.
const Input& Film();
constexpr UInt32 kFilmFrames = 50000;
constexpr UInt32 kFilmKeyDistance = 10;
constexpr UInt32 kFilmFrameMsec = 40;

// Two hours: 25 frames a second, of which one is a key frame, and 42 audio chunks a second; about 700 MB.
const Input& TwoHours();

} // namespace bench
