// The passes over `idx1`: what is done with its records one after the other.

#pragma once

#include "IndexPasses.hpp"

namespace lxAviReadCore {

constexpr UInt32 kIdx1RecordBytes = 16;

// As it stands in the file.
struct lxAviReadCore_IDXrecord_t {
    UInt16 uiStreamCharacters;
    UInt16 uiChunkType;
    UInt32 uiFlags;
    UInt32 uiOffset;
    UInt32 uiSize;
};
static_assert(sizeof(lxAviReadCore_IDXrecord_t) == kIdx1RecordBytes);

// The records of the index, `batch` at a time.
IndexRun Idx1Run(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size, UInt32 batch);

// What the first pass has found out.
struct Idx1Survey {
    KeyFrameCounter counter;
    bool bEmpty = true;
    UInt64 uiFirstOffset = 0; // of the first record
};

// The first pass: counts. Every record is told of where that is wanted.
[[nodiscard]] UInt32 SurveyIdx1(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, bool bLogRecords,
                                Idx1Survey& survey);

// The second pass: stores the key frames.
[[nodiscard]] UInt32 StoreKeyFrames(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, KeyFrameFiller& filler);

// The third pass: gives every stored key frame the audio of each track.
[[nodiscard]] UInt32 PlaceAudio(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run);

// The second and the third pass in one.
[[nodiscard]] UInt32 StoreAndPlace(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, KeyFrameFiller& filler);

} // namespace lxAviReadCore
