// The key-frame table from the video stream's OpenDML index, on one level or over the chunks of a super index.
//
//   indx (one level) ──► records ─┐
//   ix00 ──► records ─────────────┼──► every skipKey-th key frame into the table
//   ix00 ──► records ─────────────┘    frame number and skip counter go on from chunk to chunk

#define LX_AVIREAD_MODULE ::lxAviReadCore::Module::Avi2ReadCore
#include "../AviReadcore/internal/OpenDmlIndex.hpp"

namespace lxAviReadCore {
namespace {

constexpr TextList kOpenDmlTexts = kTextList<
    LX_PACKED(kLevelError, "AviRead:Failed allocating %d bytes for pAviInfo->KeyFramesListAsArray"),
    LX_PACKED(kLevelIndex, "AviRead:Succeeded allocating %d bytes for %d leafs"),
    LX_PACKED(kLevelError, "Failed allocating %d bytes for KeyFramesListAsArray[%d]"),
    LX_NO_TEXT,
    LX_PACKED(kLevelIndex, "Allocating %d no of leafs"),
    LX_PACKED(kLevelIndex, "Leaf %d is full, filling %d leaf")>;

constexpr IndexWalkRules kVideoWalk = {
    true,
    kTextList<LX_NO_TEXT,
              LX_PACKED(kLevelError, "ParseVideoSuperIndex : Error reading data at line:%d"),
              LX_PACKED(kLevelError, "ParseVideoSuperIndex : Error Reading data1,line:%d"),
              LX_NO_TEXT,
              LX_PACKED(kLevelIndex, "ParseVideoSuperIndex :Rval Reading ix(%2d): %x")>};

UInt32 BeginTable(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 neededLeafs)
{
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(lxAvi2ReadCore_CreateKFTable(instance, pAviInfo, neededLeafs)));
    LX_ASSERT(pAviInfo->KeyFramesListAsArrayLength > 0, "pCurrentLeaf!=Null", "List structure must be allocated");
    return pAviInfo->KeyFramesListAsArrayLength > 0 ? LX_OK : LX_ERR_AVIREAD_NO_INDEX;
}

UInt32 FillFromChunk(lxAviReadCore_AviInfo_t* pAviInfo, const IndexChunk& chunk, KeyFrameFiller& filler)
{
    const auto& common = chunk.header.common;
    LX_AVIREAD_TRY(SetBatchSize(pAviInfo, EntryBytes(common), common.uiSubIndexType));
    const IndexRun run = OpenDmlRun(pAviInfo, common.uiSubIndexType, common.uiEntriesInUse, common.dwChunkId,
                                    chunk.header.qwBaseOffset, EntryKind::MainVideo);
    return ForEachEntry<OpenDmlDecoder>(pAviInfo, run, filler);
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
    return KeyFrameTableBuilder(pAviInfo, kOpenDmlTexts).Create(neededLeafs);
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
    KeyFrameFiller filler(pAviInfo, kOpenDmlTexts, skipKey);
    const IndexRun run = OpenDmlRun(pAviInfo, pCommon->uiSubIndexType, pCommon->uiEntriesInUse, pCommon->dwChunkId,
                                    qwBaseOffset, EntryKind::MainVideo);
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(ForEachEntry<OpenDmlDecoder>(pAviInfo, run, filler)));
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
    KeyFrameFiller filler(pAviInfo, kOpenDmlTexts, skipKey);
    LX_AVIREAD_TRY(ForEachIndexChunk(pAviInfo, *pVideo, kVideoWalk, [&](const IndexChunk& chunk) {
        return FillFromChunk(pAviInfo, chunk, filler);
    }));
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
    KeyFrameFiller filler(pAviInfo, kOpenDmlTexts, skipKey);
    filler.Resume(*pLeafNumber, *pFrameNumber, *pSkipCounter);
    const IndexRun run =
        OpenDmlRun(pAviInfo, uiSubIndexType, uiNoOfEntries, dwChunkId, qwBaseOffset, EntryKind::MainVideo);
    const UInt32 result = ForEachEntry<OpenDmlDecoder>(pAviInfo, run, filler);
    *pFrameNumber = filler.FrameNumber();
    *pSkipCounter = filler.SkipCounter();
    *pLeafNumber = filler.Builder().LeafNr();
    *ppCurrentLeaf = *pLeafNumber < pAviInfo->KeyFramesListAsArrayLength ? pAviInfo->KeyFramesListAsArray[*pLeafNumber]
                                                                         : Null;
    return result;
}
