// The key-frame table from the video stream's OpenDML index, on one level or over the chunks of a super index.
//
//   indx (one level) ──► records ─┐
//   ix00 ──► records ─────────────┼──► every skipKey-th key frame into the table
//   ix00 ──► records ─────────────┘    frame number and skip counter go on from chunk to chunk

#include "internal/OpenDmlIndex.hpp"

namespace lxAviReadCore {
namespace {

constexpr MessageRow<TableText> kOpenDmlMessages[] = {
    {TableText::ArrayFailed, kLevelError, "AviRead:Failed allocating %d bytes for pAviInfo->KeyFramesListAsArray"},
    {TableText::ArraySucceeded, kLevelIndex, "AviRead:Succeeded allocating %d bytes for %d leafs"},
    {TableText::LeafFailed, kLevelError, "Failed allocating %d bytes for KeyFramesListAsArray[%d]"},
    NoMessage(TableText::LeafSucceeded),
    {TableText::LeafsSucceeded, kLevelIndex, "Allocating %d no of leafs"},
    {TableText::LeafFull, kLevelIndex, "Leaf %d is full, filling %d leaf"},
};
static_assert(IsMessageTable(kOpenDmlMessages, kTableTextArguments));

constexpr MessageRow<WalkText> kVideoWalkMessages[] = {
    NoMessage(WalkText::Seeking),
    NoMessage(WalkText::SeekFailed),
    NoMessage(WalkText::CodeRead),
    {WalkText::CodeFailed, kLevelError, "ParseVideoSuperIndex : Error reading data at line:%d"},
    NoMessage(WalkText::HeaderRead),
    {WalkText::HeaderFailed, kLevelError, "ParseVideoSuperIndex : Error Reading data1,line:%d"},
    NoMessage(WalkText::Entered),
    {WalkText::Result, kLevelIndex, "ParseVideoSuperIndex :Rval Reading ix(%2d): %x"},
};
static_assert(IsMessageTable(kVideoWalkMessages, kWalkTextArguments));
constexpr IndexWalkRules kVideoWalk = {.bVideoStreamOnly = true,
                                       .bKnownSubTypesOnly = false,
                                       .pMessages = kVideoWalkMessages};

UInt32 BeginTable(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 neededLeafs)
{
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(lxAvi2ReadCore_CreateKFTable(instance, pAviInfo, neededLeafs)));
    LX_ASSERT(pAviInfo->KeyFramesListAsArrayLength > 0, "pCurrentLeaf!=Null", "List structure must be allocated");
    return pAviInfo->KeyFramesListAsArrayLength > 0 ? LX_OK : LX_ERR_AVIREAD_NO_INDEX;
}

// Stores the key frames of the records that follow.
UInt32 StoreKeyFrames(lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_AviIndxChunkCommonSection_t& common,
                      UInt64 baseOffset, KeyFrameFiller& filler)
{
    const EntrySource source = SourceOf(pAviInfo, EntryKind::Frame, StreamOfChunks(common.dwChunkId));
    const OpenDmlDecoder decode(pAviInfo, source, baseOffset);
    const IndexRun run = OpenDmlRun(pAviInfo, common.uiSubIndexType, common.uiEntriesInUse);
    return EndPass(pAviInfo, ForEachEntry(pAviInfo, run, decode, filler));
}

UInt32 FillFromChunk(lxAviReadCore_AviInfo_t* pAviInfo, const IndexChunk& chunk, KeyFrameFiller& filler)
{
    const auto& common = chunk.header.common;
    LX_AVIREAD_TRY(SetBatchSize(pAviInfo, EntryBytes(common), common.uiSubIndexType));
    return StoreKeyFrames(pAviInfo, common, chunk.header.qwBaseOffset, filler);
}

void LogLeafs(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    const KeyFrameTable table(pAviInfo);
    LX_LOG(kLevelIndex, "\tNumber of leafs =%d", table.LeafCount());
    for (UInt32 i = 0; i < table.LeafCount(); ++i) {
        const Leaf& leaf = table.LeafAt(i);
        LX_LOG(kLevelIndex, "\t Leaf(%d)->starttime:%d, endtime:%d \n", i, static_cast<UInt32>(leaf.StartTimeMsec),
               static_cast<UInt32>(leaf.EndTimeMsec));
        LX_LOG(kLevelIndex, "\t Leaf(%d)-> startoffset:%d , endoffset:%d \n", i, static_cast<UInt32>(leaf.StartOffset),
               static_cast<UInt32>(leaf.EndOffset));
    }
}

} // namespace
} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAvi2ReadCore_CreateKFTable(UInt32 /*instance*/, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 neededLeafs)
{
    return KeyFrameTableBuilder(pAviInfo, kOpenDmlMessages).Create(neededLeafs);
}

UInt32 lxAvi2ReadCore_ParseVideoStdIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 /*size*/,
                                         const lxAviReadCore_AviIndxChunkCommonSection_t* pCommon, UInt64 qwBaseOffset,
                                         UInt32 /*dwReserved*/, UInt32 skipKey, UInt32 neededLeafs)
{
    LX_AVIREAD_TRY(BeginTable(instance, pAviInfo, neededLeafs));
    // the size of an entry is taken as a 16-bit value here
    const UInt16 entryBytes = static_cast<UInt16>(EntryBytes(*pCommon));
    LX_AVIREAD_TRY(SetBatchSize(pAviInfo, entryBytes, pCommon->uiSubIndexType));
    if (!AcquireMetaDataBuffer(pAviInfo)) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    KeyFrameFiller filler(pAviInfo, kOpenDmlMessages, skipKey);
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(StoreKeyFrames(pAviInfo, *pCommon, qwBaseOffset, filler)));
    filler.Builder().Finish();
    const UInt32 leafs = pAviInfo->KeyFramesListAsArrayLength;
    LX_LOG(kLevelIndex, "\tNumber of key frames =%d",
           leafs * LEAF_ARRAY_LENGTH + pAviInfo->KeyFramesListAsArray[leafs - 1]->arrayLength - LEAF_ARRAY_LENGTH);
    LX_LOG(kLevelIndex, "\tNumber of video frames =%d", filler.FrameNumber());
    ClearMetaDataBuffer(pAviInfo);
    return LX_OK;
}

UInt32 lxAvi2ReadCore_ParseVideoSuperIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 skipKey,
                                           UInt32 neededLeafs)
{
    const lxAviReadCore_StreamInfo_t* const pVideo = FindStream(pAviInfo, pAviInfo->videoStreamNr);
    if (pVideo == Null) {
        return LX_ERR_AVIREAD_NO_INDEX;
    }
    LX_AVIREAD_TRY(BeginTable(instance, pAviInfo, neededLeafs));
    if (!AcquireMetaDataBuffer(pAviInfo)) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    KeyFrameFiller filler(pAviInfo, kOpenDmlMessages, skipKey);
    LX_AVIREAD_TRY(ForEachIndexChunk(pAviInfo, *pVideo, kVideoWalk,
                                     [&](const IndexChunk& chunk) { return FillFromChunk(pAviInfo, chunk, filler); }));
    filler.Builder().Finish();
    LogLeafs(pAviInfo);
    return LX_OK;
}

UInt32 lxAvi2ReadCore_FillVideoKFramesInKFTable(lxAviReadCore_AviInfo_t* pAviInfo,
                                                lxAviReadCore_KeyFrameLeaf_t** ppCurrentLeaf, UInt32* pFrameNumber,
                                                UInt32 uiNoOfEntries, UInt8 uiSubIndexType, UInt32 dwChunkId,
                                                UInt64 qwBaseOffset, UInt32 skipKey, UInt32* pSkipCounter,
                                                UInt32* pLeafNumber)
{
    const bool bGiven = ppCurrentLeaf != Null && pFrameNumber != Null && pSkipCounter != Null && pLeafNumber != Null;
    LX_ASSERT(bGiven, "ppCurrentLeaf!=Null && pFrameNumber!=Null && pSkipCounter!=Null && pLeafNumber!=Null",
              "what goes on from run to run must be initialized");
    if (!bGiven) {
        return LX_OK;
    }
    KeyFrameFiller filler(pAviInfo, kOpenDmlMessages, skipKey);
    filler.Resume(*pLeafNumber, *pFrameNumber, *pSkipCounter);
    const lxAviReadCore_AviIndxChunkCommonSection_t common = {0, uiSubIndexType, kIndexOfChunks, uiNoOfEntries,
                                                              dwChunkId};
    const UInt32 result = StoreKeyFrames(pAviInfo, common, qwBaseOffset, filler);
    *pFrameNumber = filler.FrameNumber();
    *pSkipCounter = filler.SkipCounter();
    *pLeafNumber = filler.Builder().LeafNr();
    *ppCurrentLeaf =
        *pLeafNumber < pAviInfo->KeyFramesListAsArrayLength ? pAviInfo->KeyFramesListAsArray[*pLeafNumber] : Null;
    return result;
}
