// The passes over the records of `idx1`.

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

// The records of an index of `size` bytes, `batch` at a time.
constexpr IndexRun Idx1Run(UInt32 size, UInt32 batch)
{
    return {.uiEntries = size / kIdx1RecordBytes,
            .uiRecordSize = kIdx1RecordBytes,
            .uiBatch = batch,
            .pRead = &kCoreRead,
            .eFailedBatch = FailedBatch::IsSilent};
}

// Sets what the passes add to every offset, so that positions count from the file's start; with 0 the passes leave
// the offsets unchanged. The value holds until it is set again.
void SetIdx1OffsetBase(UInt64 base);

// What the first pass finds out.
struct Idx1Survey {
    FrameCounter counter;
    bool bEmpty = true;
    UInt64 uiFirstOffset = 0; // of the first record
};

// The first pass counts. Logs every record when asked to.
[[nodiscard]] UInt32 SurveyIdx1(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, bool bLogRecords,
                                Idx1Survey& survey);

// The second pass: stores the key frames.
[[nodiscard]] UInt32 StoreKeyFrames(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, KeyFrameFiller& filler);

// The third pass: gives every stored key frame the audio of each track.
[[nodiscard]] UInt32 PlaceAudio(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run);

// The second and the third pass in one.
[[nodiscard]] UInt32 StoreAndPlace(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, KeyFrameFiller& filler);

} // namespace lxAviReadCore
