// The legacy index, and the driver that chooses between it and the OpenDML index.
//
//   idx1 size record record …           16 bytes each
//     0  "00"    stream number          two characters
//     2  "dc"    chunk type             "db" "dc" video, "wb" audio, "dd" DRM
//     4  flags   bit 0x10: key frame
//     8  offset  of the chunk           from the file's start, or from the "movi" code
//    12  size    payload bytes
//
// Three passes, each from the first record on: the key frames are counted, so that the table can be sized against the
// budget; they are stored; and every stored key frame learns which audio chunks play at its time.

#include "internal/Idx1Passes.hpp"
#include "internal/OpenDmlIndex.hpp"
#include "internal/PendingJump.hpp"
#include "internal/Segments.hpp"

namespace lxAviReadCore {
namespace {

constexpr UInt32 kRecordsPerRead = 1125;
static_assert(kRecordsPerRead * kIdx1RecordBytes == kMetaDataBytes);
constexpr double kConsecutiveSeconds = 5.0;

constexpr MessageRow<TableText> kIdx1Messages[] = {
    {TableText::ArrayFailed, kLevelError, "AviRead:Failed allocating %d bytes for pAviInfo->KeyFramesListAsArray"},
    {TableText::ArraySucceeded, kLevelIndex, "AviRead:Succeeded allocating %d bytes for %d leafs"},
    {TableText::LeafFailed, kLevelError, "Failed allocating %d bytes for pAviInfo->KeyFramesListAsArray[%d]"},
    NoMessage(TableText::LeafSucceeded),
    {TableText::LeafsSucceeded, kLevelIndex, "Succeeded allocating the full array pAviInfo->KeyFramesListAsArray[%d]"},
    {TableText::LeafFull, kLevelIndex, "Leaf %d if full, filling %d leaf"},
};
static_assert(IsMessageTable(kIdx1Messages, kTableTextArguments));

constexpr MessageRow<TableText> kSinglePassMessages[] = {
    {TableText::ArrayFailed, kLevelError, "AviRead:Failed allocating %d bytes for pAviInfo->KeyFramesListAsArray"},
    {TableText::ArraySucceeded, kLevelIndex,
     "AviRead:Succeeded allocating %d bytes for %d leafs for pAviInfo->KeyFramesListAsArray"},
    {TableText::LeafFailed, kLevelError,
     "Failed allocating %d bytes for pAviInfo->KeyFramesListAsArray[chunkIndexElementsCounter]"},
    {TableText::LeafSucceeded, kLevelIndex,
     "Succeeded allocating %d bytes for pAviInfo->KeyFramesListAsArray[chunkIndexElementsCounter]"},
    NoMessage(TableText::LeafsSucceeded),
    {TableText::LeafFull, kLevelIndex, "Leaf %d if full, filling %d leaf"},
};
static_assert(IsMessageTable(kSinglePassMessages, kTableTextArguments));

// ---- The first pass ----

// Video frames in five seconds: a figure for the log alone.
Int32 ConsecutiveFramesThreshold(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streams)
{
    for (UInt32 i = 0; i < std::min<UInt32>(streams, LX_AVIREAD_STREAMS); ++i) {
        const lxAviReadCore_StreamInfo_t* const pStream = pAviInfo->StreamInfo[i];
        if (pStream != Null && pStream->StreamType == LX_AVIREAD_STREAM_VIDEO) {
            const double frames = static_cast<double>(pStream->Header.dwRate) /
                                  static_cast<double>(pStream->Header.dwScale) * kConsecutiveSeconds;
            const double whole = static_cast<double>(ToUInt32(frames));
            const double rounded = frames > whole ? whole + 1.0 : whole;
            return static_cast<Int32>(std::min<UInt32>(ToUInt32(rounded), INT32_MAX));
        }
    }
    return 0;
}

// The first record tells whether offsets count from the file's start: no chunk lies before the media data. In the
// format mode the passes have made them absolute.
void DecideOffsetBase(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 firstOffset)
{
    pAviInfo->bAbsoluteOffsets = pAviInfo->moviOffset <= firstOffset || OffsetsAreAbsolute(pAviInfo) ? 1 : 0;
    pAviInfo->CurrentOffset = StartOfDelivery(pAviInfo);
}

// ---- Around the passes ----

// Constructs the table. The abort flag is looked at afterwards.
UInt32 BeginTable(const lxAviReadCore_AviInfo_t* pAviInfo, KeyFrameTableBuilder& builder, UInt32 neededLeafs)
{
    if (pAviInfo->pMetaDataBuffer == Null) {
        LogRow(kIdx1Messages, TableText::ArrayFailed, kMetaDataBytes); // no buffer, no table
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    LX_AVIREAD_TRY(builder.Create(neededLeafs));
    return IsAborted(pAviInfo) ? LX_ERR_AVIREAD_ABORTED : LX_OK;
}

void FinishTable(lxAviReadCore_AviInfo_t* pAviInfo, KeyFrameFiller& filler)
{
    filler.Builder().Finish();
    LX_LOG(kLevelIndex, "AviRead:leafsCounter=%d", filler.Builder().LeafsInUse());
    const UInt32 leafs = pAviInfo->KeyFramesListAsArrayLength;
    LX_LOG(kLevelIndex, "\tNumber of leafs                      =%d", leafs);
    LX_LOG(kLevelIndex, "\tNumber of key frames                 =%d",
           (leafs - 1) * LEAF_ARRAY_LENGTH + pAviInfo->KeyFramesListAsArray[leafs - 1]->arrayLength);
    LX_LOG(kLevelIndex, "\tNumber of video frames               =%d", filler.FrameNumber());
    ClearMetaDataBuffer(pAviInfo);
}

// Builds the table in one pass over a run.
UInt32 BuildTable(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, UInt32 neededLeafs, KeyFrameFiller& filler,
                  UInt32 (*pfnPass)(lxAviReadCore_AviInfo_t* pAviInfo, const IndexRun& run, KeyFrameFiller& filler))
{
    LX_ASSERT(neededLeafs > 0, "neededLeafs > 0", "neededLeafs should be > 0");
    if (neededLeafs == 0) {
        return LX_OK;
    }
    LX_AVIREAD_TRY(BeginTable(pAviInfo, filler.Builder(), neededLeafs));
    LX_AVIREAD_TRY(pfnPass(pAviInfo, run, filler));
    FinishTable(pAviInfo, filler);
    return LX_OK;
}

bool SeekToIdx1(lxAviReadCore_AviInfo_t* pAviInfo)
{
    return SeekAndRemember(pAviInfo, pAviInfo->idx1Offset, kFromStart);
}

// The two passes that fill the table. The audio pass runs even if the seek before it fails.
UInt32 FillFromIdx1(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size, UInt32 skipKey, UInt32 neededLeafs)
{
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(lxAviReadCore_ParseIndex_Video(instance, pAviInfo, size, skipKey, neededLeafs)));
    const bool bSought = SeekToIdx1(pAviInfo); // Quirk Q34
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(lxAviReadCore_ParseIndex_Audio(pAviInfo, size, neededLeafs)));
    return bSought ? LX_OK : LX_ERR_AVIREAD_SEEK;
}

// The three passes, each from the first record on.
UInt32 BuildFromIdx1(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo)
{
    const UInt32 size = pAviInfo->idx1Size;
    pAviInfo->uiMaxRecordsInBuffer = kRecordsPerRead;
    if (!AcquireMetaDataBuffer(pAviInfo)) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    SeekToIdx1(pAviInfo);
    UInt32 skipKey = 0;
    UInt32 neededLeafs = 0;
    UInt32 neededMemory = 0;
    UInt32 numberOfKeyFrames = 0;
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(
        lxAviReadCore_PreParseIdx1Chunk(pAviInfo, size, &skipKey, &neededLeafs, &neededMemory, &numberOfKeyFrames)));
    LX_LOG(kLevelIndex, "lxAviReadCore_PreParseIdx1Chunk: memoryUsageLimit:%d, ReqMemory=%d",
           pAviInfo->memoryUsageLimit, neededMemory);
    LX_LOG(kLevelIndex, "lxAviReadCore_PreParseIdx1Chunk: SkipKey:%d ReqLeafs=%d NoOfKeyFrames:%d", skipKey,
           neededLeafs, numberOfKeyFrames);
    UInt32 result = LX_ERR_AVIREAD_SEEK;
    if (SeekToIdx1(pAviInfo)) {
        result = FillFromIdx1(instance, pAviInfo, size, skipKey, neededLeafs);
        if (result != LX_OK && result != LX_ERR_AVIREAD_SEEK) {
            return result; // the batch buffer stays for the clean-up
        }
    }
    ReleaseMetaDataBuffer(pAviInfo);
    LX_LOG(kLevelLeave, "Leaving lxAviReadCore_ParseIdx1Chunk %x", result);
    return result;
}

// ---- Where the offsets count from ----

// Whether the chunk that `record` names is at its offset plus `base`. A "rec " record names the type of a list.
bool IsChunkAt(lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_IDXrecord_t& record, UInt64 base)
{
    const UInt32 id = UInt32{record.uiStreamCharacters} | static_cast<UInt32>(record.uiChunkType) << 16;
    UInt32 code = 0;
    return SeekAndRemember(pAviInfo, base + record.uiOffset, kFromStart) && ReadRecord(pAviInfo, code) == LX_OK &&
           code == (id == FourCC("rec ") ? FourCC("LIST") : id);
}

// The number to add to an offset of the index to make it absolute. Writers count from the file's start, from the
// "movi" code, or so that the first record names the first chunk. The first two are tried with the first record, the
// third with the first and the second.
UInt64 ChooseOffsetBase(lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_IDXrecord_t (&records)[2])
{
    const lxAviReadCore_IDXrecord_t& first = records[0];
    const UInt64 fromMovi = pAviInfo->moviOffset - kStartInMovi;
    for (const UInt64 base : {UInt64{0}, fromMovi}) {
        if (IsChunkAt(pAviInfo, first, base)) {
            return base;
        }
    }
    const UInt64 fromFirst = pAviInfo->moviOffset - first.uiOffset;
    const bool bAgreed = pAviInfo->idx1Size < sizeof records || IsChunkAt(pAviInfo, records[1], fromFirst);
    if (bAgreed && IsChunkAt(pAviInfo, first, fromFirst)) {
        return fromFirst;
    }
    return first.uiOffset >= pAviInfo->moviOffset ? 0 : fromMovi;
}

// Sets the base for the passes, and leaves the file where it stood, at the first record. The default mode leaves
// offsets as they stand.
void ChooseAndSetOffsetBase(lxAviReadCore_AviInfo_t* pAviInfo)
{
    UInt64 base = 0;
    UInt64 position = 0;
    if (OffsetsAreAbsolute(pAviInfo) && TellPosition(pAviInfo, position)) {
        lxAviReadCore_IDXrecord_t records[2] = {};
        const bool bThere = AllowEarlyEnd(pAviInfo, ReadRecord(pAviInfo, records)) == LX_OK;
        base = bThere ? ChooseOffsetBase(pAviInfo, records) : 0;
        SeekAndRemember(pAviInfo, position, kFromStart);
    }
    SetIdx1OffsetBase(base);
}

// ---- The choice of the index ----

UInt32 ParseIdx1(UInt32 instance, const lxAviReadCore_AviInfo_t* pAviInfo)
{
    return pAviInfo->idx1Size != 0 ? LX_AVIREAD_CALL(lxAviReadCore_ParseIdx1Chunk(instance)) : LX_ERR_AVIREAD_NO_INDEX;
}

// Frames of the main video stream in `idx1`; 0 without such a stream, or when the index cannot be read.
UInt32 CountFramesInIdx1(lxAviReadCore_AviInfo_t* pAviInfo)
{
    Idx1Survey survey;
    const bool bLook = pAviInfo->idx1Size != 0 && pAviInfo->videoStreamNr >= 0;
    if (bLook && AcquireMetaDataBuffer(pAviInfo) && SeekToIdx1(pAviInfo)) {
        const UInt32 result = SurveyIdx1(pAviInfo, Idx1Run(pAviInfo->idx1Size, kRecordsPerRead), false, survey);
        return result == LX_OK ? survey.counter.Frames() : 0;
    }
    return 0;
}

// A file that has both indexes gets its table from the one that covers more of it, the OpenDML index if they are equal.
UInt32 ParseIndexThatCoversMost(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo)
{
    if (lxalAviRead_FileSeekPossible == 0) {
        return LX_ERR_AVIREAD_NO_INDEX; // media data that is read to look for an index would be lost for delivery
    }
    ForgetStreamSizes(pAviInfo);
    if (pAviInfo->bIndxPresent == 0) {
        return ParseIdx1(instance, pAviInfo);
    }
    const UInt32 framesInIdx1 = CountFramesInIdx1(pAviInfo);
    const UInt32 result = LX_AVIREAD_CALL(lxAvi2ReadCore_ParseIndxIndex(instance, pAviInfo));
    const bool bEnough = result == LX_OK && SurveyedFrames() >= framesInIdx1;
    if (bEnough || framesInIdx1 == 0 || (result != LX_OK && !IsUnusableIndex(result))) {
        return result;
    }
    ForgetStreamSizes(pAviInfo);
    return ParseIdx1(instance, pAviInfo);
}

UInt32 ParseChosenIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo)
{
    if (BothIndexesCompete(pAviInfo)) {
        return ParseIndexThatCoversMost(instance, pAviInfo);
    }
    if (pAviInfo->bIndxPresent != 0) {
        return LX_AVIREAD_CALL(lxAvi2ReadCore_ParseIndxIndex(instance, pAviInfo));
    }
    return ParseIdx1(instance, pAviInfo);
}

} // namespace
} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_ParseIndex(UInt32 instance)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    LX_LOG(kLevelEnter, "Entering lxAviReadCore_ParseIndex");
    ReleaseKeyFrameTable(pAviInfo, TableReleaseTrace::IndexDriver);
    if (RewindsDropJumps(pAviInfo)) {
        DropJump(pAviInfo);
    }
    const UInt32 result = ParseChosenIndex(instance, pAviInfo);
    if (result != LX_OK) {
        ForgetTotals(); // they are those of a part of the index
    }
    ForgetDanglingPositions(pAviInfo);
    LX_LOG(kLevelLeave, "Leaving lxAviReadCore_ParseIndex %x", result);
    return result;
}

UInt32 lxAviReadCore_ParseIdx1Chunk(UInt32 instance)
{
    LX_LOG(kLevelEnter, "Entering lxAviReadCore_ParseIdx1Chunk");
    return BuildFromIdx1(instance, &lxAviReadCore_AviInfo);
}

UInt32 lxAviReadCore_PreParseIdx1Chunk(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiSize, UInt32* SkipKey,
                                       UInt32* neededLeafs, UInt32* neededMemory, UInt32* numberOfKeyFrames)
{
    LX_LOG(kLevelEnter, "Entering lxAviReadCore_PreParseIdx1Chunk");
    LX_ASSERT(numberOfKeyFrames != Null, "numberOfKeyFrames!=Null", "numberOfKeyFrames must be initialized");
    if (numberOfKeyFrames == Null) {
        return LX_OK;
    }
    const UInt32 streams = pAviInfo->AviHdr != Null ? pAviInfo->AviHdr->dwStreams : 0;
    LX_LOG(kLevelIndex, "Num of Streams : %d, Frame rate : %d, ConsFramesThr : %d", streams, 0,
           ConsecutiveFramesThreshold(pAviInfo, streams));
    ChooseAndSetOffsetBase(pAviInfo);
    Idx1Survey survey;
    const UInt32 surveyed = SurveyIdx1(pAviInfo, Idx1Run(uiSize, pAviInfo->uiMaxRecordsInBuffer),
                                       streams > 1 && IsLogged(kLevelIndex), survey);
    if (!survey.bEmpty) {
        DecideOffsetBase(pAviInfo, survey.uiFirstOffset);
    }
    LX_AVIREAD_TRY(surveyed);
    *numberOfKeyFrames += SettleKeyFrames(pAviInfo, survey.counter);
    tableOrigin = {LX_AVIREAD_TABLE_IDX1, *numberOfKeyFrames};
    const UInt32 result =
        lxAviReadCore_CalcLeafsNeededAndSkipValue(pAviInfo, numberOfKeyFrames, neededLeafs, neededMemory, SkipKey);
    ClearMetaDataBuffer(pAviInfo);
    LX_LOG(kLevelLeave, "Leaving lxAviReadCore_PreParseIdx1Chunk %x", result);
    return result;
}

UInt32 lxAviReadCore_ParseIndex_Video(UInt32 /*instance*/, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiSize,
                                      UInt32 SkipKey, UInt32 neededLeafs)
{
    KeyFrameFiller filler(pAviInfo, kIdx1Messages, SkipKey);
    return BuildTable(pAviInfo, Idx1Run(uiSize, pAviInfo->uiMaxRecordsInBuffer), neededLeafs, filler, StoreKeyFrames);
}

UInt32 lxAviReadCore_ParseIndex_Audio(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiSize, UInt32 /*neededLeafs*/)
{
    if (pAviInfo->KeyFramesListAsArrayLength > 0) {
        pAviInfo->KeyFramesListAsArray[0]->pPrevLeaf = Null;
    }
    LX_AVIREAD_TRY(PlaceAudio(pAviInfo, Idx1Run(uiSize, pAviInfo->uiMaxRecordsInBuffer)));
    ClearMetaDataBuffer(pAviInfo);
    return LX_OK;
}

UInt32 lxAviReadCore_ParseVideoAudioIndex(UInt32 /*instance*/, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiSize,
                                          UInt32 SkipKey, UInt32 neededLeafs)
{
    constexpr UInt32 kOneRecord = 1;
    IndexRun run = Idx1Run(uiSize, kOneRecord);
    run.eFailedBatch = FailedBatch::IsACall;
    KeyFrameFiller filler(pAviInfo, kSinglePassMessages, SkipKey);
    return BuildTable(pAviInfo, run, neededLeafs, filler, StoreAndPlace);
}
