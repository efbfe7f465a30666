// A key-frame table without an index: the chunks of the media data give the entries that a perfect index would hold, to
// the same visitors.
//
//   first walk    the frames of the main video stream: every key frame into the table; where the budget is used up,
//                 every second one stays, and half as many are stored from there on
//   second walk   the audio, which may lead or lag by seconds; a file without audio tracks does not need it
//
// The table holds every 1st, 2nd, 4th, 8th … key frame. An index tells the number of key frames before, so that its table
// may hold more of them: never twice as many.

#include "internal/Delivery.hpp"
#include "internal/IndexPasses.hpp"
#include "internal/MediaWalk.hpp"

namespace lxAviReadCore {
namespace {

constexpr MessageRow<TableText> kMediaMessages[] = {
    {TableText::ArrayFailed, kLevelError, "AviRead:Failed allocating %d bytes for pAviInfo->KeyFramesListAsArray"},
    {TableText::ArraySucceeded, kLevelIndex, "AviRead:Succeeded allocating %d bytes for at most %d leafs"},
    {TableText::LeafFailed, kLevelError, "Failed allocating %d bytes for pAviInfo->KeyFramesListAsArray[%d]"},
    NoMessage(TableText::LeafSucceeded),
    NoMessage(TableText::LeafsSucceeded),
    {TableText::LeafFull, kLevelIndex, "Leaf %d is full, filling %d leaf"},
};
static_assert(IsMessageTable(kMediaMessages, kTableTextArguments));

// Tells the caller how far the walks are, once for every hundredth of their way.
class ProgressTeller {
public:
    ProgressTeller(lxAviRead_Progress_t pfnProgress, void* pUser, UInt32 walks)
        : m_pfnProgress(pfnProgress), m_pUser(pUser), m_uiWalks(walks)
    {
    }

    void BeginWalk() { ++m_uiWalk; }

    // LX_ERR_AVIREAD_ABORTED when the caller wants no more.
    UInt32 Tell(const MediaWalk& walk)
    {
        m_uiLength = std::max(m_uiLength, walk.BytesInAll()); // lists may grow
        const UInt64 done = (m_uiWalk - 1) * m_uiLength + std::min(walk.BytesDone(), m_uiLength);
        if (m_pfnProgress == Null || done < m_uiNext) {
            return LX_OK;
        }
        const UInt64 all = m_uiWalks * m_uiLength;
        m_uiNext = done + all / 100 + 1;
        return m_pfnProgress(m_pUser, done, all) != 0 ? LX_OK : UInt32{LX_ERR_AVIREAD_ABORTED};
    }

private:
    lxAviRead_Progress_t m_pfnProgress;
    void* m_pUser;
    UInt32 m_uiWalks;
    UInt32 m_uiWalk = 0;   // from 1
    UInt64 m_uiLength = 0; // of a walk
    UInt64 m_uiNext = 0;   // bytes done when the caller is told next
};

// Hands every chunk of a walk to `visit`, until the end or until it returns another result than LX_OK.
template <typename Visitor>
UInt32 ForEachChunk(MediaWalk& walk, Visitor&& visit)
{
    MediaChunk chunk = {};
    LX_AVIREAD_TRY(walk.Begin());
    UInt32 result = walk.Next(chunk);
    while (result == LX_OK) {
        LX_AVIREAD_TRY(visit(chunk));
        result = walk.Next(chunk);
    }
    return result == LX_AVIREAD_END_OF_MEDIA ? LX_OK : result;
}

// What an index would say about a chunk.
IndexEntry EntryOf(const MediaChunk& chunk, const EntrySource& source)
{
    return {.pSource = &source,
            .eKind = chunk.eFrame == FrameKind::Key ? source.eFlaggedKind : source.eKind,
            .uiSize = chunk.uiSize,
            .uiOffset = chunk.uiOffset};
}

// ---- Video ----

// Counts and stores the frames of the main video stream.
class FrameIndexer {
public:
    explicit FrameIndexer(lxAviReadCore_AviInfo_t* pAviInfo)
        : m_pAviInfo(pAviInfo), m_filler(pAviInfo, kMediaMessages, kEveryKeyFrame)
    {
    }

    UInt32 Begin() { return m_filler.Builder().CreateGrowing(LeafsInBudget(m_pAviInfo)); }

    UInt32 Take(const MediaChunk& chunk)
    {
        const EntrySource source = SourceOfIdentifier(m_pAviInfo, chunk.uiId);
        const IndexEntry entry = EntryOf(chunk, source);
        if (chunk.uiDescriptor != 0) {
            TakeDescriptor(chunk);
        }
        if (IsMainVideo(entry.eKind) && m_counter.Frames() == 0) {
            m_uiFirstFrame = chunk.uiDescriptor != 0 ? chunk.uiDescriptor : chunk.uiOffset;
        }
        m_counter(entry);
        m_filler.Take(entry);
        return m_filler.Builder().IsOutOfMemory() ? UInt32{LX_ERR_AVIREAD_NO_MEMORY} : LX_OK;
    }

    UInt32 Finish()
    {
        if (m_counter.Frames() == 0) {
            return LX_ERR_AVIREAD_NO_INDEX;
        }
        if (m_counter.KeyFrames() == 0) {
            StoreFirstFrame();
        }
        tableOrigin = {LX_AVIREAD_TABLE_MEDIA_DATA, std::max(m_counter.KeyFrames(), 1u)};
        m_filler.Builder().FreeEmptyLeafs();
        m_filler.Builder().Finish();
        return LX_OK;
    }

private:
    // An index has an entry of its own for a "dd" chunk.
    void TakeDescriptor(const MediaChunk& chunk)
    {
        const EntrySource source = SourceOf(
            m_pAviInfo, IsMainVideoStream(m_pAviInfo, chunk.uiStreamNr) ? EntryKind::MainDrm : EntryKind::OtherDrm,
            chunk.uiStreamNr);
        m_filler.Take({&source, source.eKind, LX_AVIREAD_DRM_BYTES, chunk.uiDescriptor});
    }

    // An index without any key flag is usable, too.
    void StoreFirstFrame()
    {
        LX_LOG(kLevelError, "AviReadCore : no key frame is known in stream %d, decoding can begin at its first frame",
               m_pAviInfo->videoStreamNr);
        const EntrySource source =
            SourceOf(m_pAviInfo, EntryKind::Frame, static_cast<UInt32>(m_pAviInfo->videoStreamNr));
        m_filler.StoreFirstFrame({&source, source.eFlaggedKind, 0, m_uiFirstFrame});
    }

    static constexpr UInt32 kEveryKeyFrame = 1; // until the table is full

    lxAviReadCore_AviInfo_t* m_pAviInfo;
    KeyFrameFiller m_filler;
    FrameCounter m_counter;
    UInt64 m_uiFirstFrame = 0; // where the first frame begins, or its "dd" chunk
};

UInt32 IndexFrames(lxAviReadCore_AviInfo_t* pAviInfo, ProgressTeller& progress)
{
    FrameIndexer indexer(pAviInfo);
    LX_AVIREAD_TRY(indexer.Begin());
    progress.BeginWalk();
    MediaWalk walk(pAviInfo, LookAt::MainVideo);
    const UInt32 result = ForEachChunk(walk, [&](const MediaChunk& chunk) {
        LX_AVIREAD_TRY(progress.Tell(walk));
        return indexer.Take(chunk);
    });
    LX_AVIREAD_TRY(EndPass(pAviInfo, result));
    return indexer.Finish();
}

// ---- Audio ----

UInt32 PlaceAudio(lxAviReadCore_AviInfo_t* pAviInfo, ProgressTeller& progress)
{
    AudioByTrack tracks(pAviInfo, kPlainPlacerMessages);
    if (pAviInfo->AudioTracksCount > 0) {
        progress.BeginWalk();
        MediaWalk walk(pAviInfo, LookAt::NoFrames);
        const UInt32 result = ForEachChunk(walk, [&](const MediaChunk& chunk) {
            const EntrySource source = SourceOfIdentifier(pAviInfo, chunk.uiId);
            if (source.eKind == EntryKind::Audio) {
                tracks.Take(EntryOf(chunk, source));
            }
            return progress.Tell(walk);
        });
        LX_AVIREAD_TRY(EndPass(pAviInfo, result));
    }
    tracks.Complete();
    return LX_OK;
}

// ---- The table ----

UInt32 BuildTable(lxAviReadCore_AviInfo_t* pAviInfo, ProgressTeller& progress)
{
    LX_AVIREAD_TRY(IndexFrames(pAviInfo, progress));
    return PlaceAudio(pAviInfo, progress);
}

// Calls `walk` with the batch buffer at hand.
template <typename Walk>
UInt32 WithBatchBuffer(lxAviReadCore_AviInfo_t* pAviInfo, Walk&& walk)
{
    if (!AcquireMetaDataBuffer(pAviInfo)) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    const UInt32 result = walk();
    ReleaseMetaDataBuffer(pAviInfo);
    return result;
}

UInt32 IndexMediaData(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_Progress_t pfnProgress, void* pUser)
{
    if (pAviInfo->videoStreamNr < 0) {
        return LX_ERR_AVIREAD_NO_INDEX;
    }
    ForgetIndexSurvey(); // the rules of frames decide which are key frames, not those of an index
    ProgressTeller progress(pfnProgress, pUser, pAviInfo->AudioTracksCount > 0 ? 2 : 1);
    return WithBatchBuffer(pAviInfo, [&] { return BuildTable(pAviInfo, progress); });
}

UInt32 PublicKind(FrameKind eKind)
{
    switch (eKind) {
    case FrameKind::Key: return LX_AVIREAD_FRAME_KEY;
    case FrameKind::Other: return LX_AVIREAD_FRAME_OTHER;
    default: return LX_AVIREAD_FRAME_UNKNOWN;
    }
}

// Walks from where delivery stands, and returns there: the payload that comes next may still have to be read.
UInt32 WalkAndReturn(lxAviReadCore_AviInfo_t* pAviInfo, lxAviRead_VisitChunk_t pfnVisit, void* pUser)
{
    const DeliveryPlace place = PlaceOfDelivery(pAviInfo);
    const ForeignPayload foreign = TakeForeignPayload();
    UInt64 position = FileOffsetOf(pAviInfo, place.uiOffset);
    static_cast<void>(TellPosition(pAviInfo, position));
    const auto visit = [&](const MediaChunk& chunk) -> UInt32 {
        const lxAviRead_MediaChunk_t visited = {.uiOffset = chunk.uiOffset,
                                                .uiDescriptor = chunk.uiDescriptor,
                                                .uiId = chunk.uiId,
                                                .uiStreamNr = chunk.uiStreamNr,
                                                .uiSize = chunk.uiSize,
                                                .eFrame = PublicKind(chunk.eFrame)};
        return pfnVisit(pUser, &visited) != 0 ? LX_OK : UInt32{LX_ERR_AVIREAD_ABORTED};
    };
    const UInt32 result = WithBatchBuffer(pAviInfo, [&] {
        MediaWalk walk(pAviInfo, LookAt::AllVideo);
        return ForEachChunk(walk, visit);
    });
    const bool bReturned = GoToPlace(pAviInfo, place) && SeekAndRemember(pAviInfo, position, kFromStart);
    GiveBackForeignPayload(foreign);
    return bReturned || result != LX_OK ? result : UInt32{LX_ERR_AVIREAD_SEEK};
}

} // namespace
} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_ParseMediaData(UInt32 /*instance*/, lxAviRead_Progress_t pfnProgress, void* pUser)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    LX_LOG(kLevelEnter, "Entering lxAviReadCore_ParseMediaData");
    if (!MediaDataServesAsIndex(pAviInfo) || lxalAviRead_FileSeekPossible == 0) {
        return LX_ERR_AVIREAD_NO_INDEX;
    }
    ReleaseKeyFrameTable(pAviInfo, TableReleaseTrace::IndexDriver);
    ForgetStreamSizes(pAviInfo);
    UInt32 result = IndexMediaData(pAviInfo, pfnProgress, pUser);
    lxAviReadCore_RewindToStart(); // what delivery knew is about the table before
    if (result == LX_OK && lxalAviRead_FileSeekPossible == 0) {
        result = LX_ERR_AVIREAD_SEEK; // delivery does not stand at the start
    }
    if (result == LX_OK) {
        SetOriginOfTotals(LX_AVIREAD_SUMMARY_MEDIA_DATA);
    } else {
        ForgetStreamSizes(pAviInfo); // they are those of a part of the file
        ReleaseKeyFrameTable(pAviInfo, TableReleaseTrace::IndexDriver);
    }
    LX_LOG(kLevelLeave, "Leaving lxAviReadCore_ParseMediaData %x", result);
    return result;
}

UInt32 lxAviReadCore_WalkMediaData(lxAviRead_VisitChunk_t pfnVisit, void* pUser)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    LX_ASSERT(pfnVisit != Null, "pfnVisit!=Null", "pfnVisit must be initialized");
    if (pfnVisit == Null) {
        return LX_OK;
    }
    if (!MediaDataServesAsIndex(pAviInfo) || lxalAviRead_FileSeekPossible == 0) {
        return LX_ERR_AVIREAD_NO_INDEX;
    }
    return WalkAndReturn(pAviInfo, pfnVisit, pUser);
}

UInt32 lxAviReadCore_GetFrameKind(UInt32 streamNr, const void* pPayload, UInt32 size)
{
    const lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    LX_ASSERT(pPayload != Null || size == 0, "pPayload!=Null", "pPayload must be initialized");
    if (!MediaDataServesAsIndex(pAviInfo) || StreamTypeOf(pAviInfo, streamNr) != LX_AVIREAD_STREAM_VIDEO ||
        (pPayload == Null && size != 0)) {
        return LX_AVIREAD_FRAME_UNKNOWN;
    }
    const FrameRule rule(*FindStream(pAviInfo, streamNr), streamNr);
    const size_t bytes = std::min(size, kMostHeadBytes);
    return PublicKind(rule.Look({{static_cast<const UInt8*>(pPayload), bytes}, size}));
}
