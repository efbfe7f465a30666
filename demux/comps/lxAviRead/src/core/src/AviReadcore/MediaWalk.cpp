// The walk over the chunks of the media data. It stands in for an index that a file does not have.
//
//   "00dc" size payload …   header read, payload passed over; of a video frame the first bytes are looked at
//   anything else           passed over by the search of delivery (MediaSearch.cpp)
//
// A chunk that claims more bytes than its list has left means one of two things. If another chunk begins where it ends, the
// list is longer than it says: its writer was stopped before it brought the size up to date. Else the chunk is damaged, or
// was cut. Its size says nothing, so the search goes on behind its header. From there on the payload of that chunk is
// searched, too, and looks like a chunk here and there: until the next whole one, a chunk counts only if the list ends
// behind it, or another chunk begins there. The search never goes back, so that the work stays in proportion to the size
// of the file.

#include "internal/MediaWalk.hpp"
#include "internal/Delivery.hpp"
#include "internal/Memory.hpp"

#include <algorithm>

namespace lxAviReadCore {
namespace {

// What is read of a frame at first. It is enough for most frames of all codings.
constexpr UInt32 kFirstHeadBytes = 256;
static_assert(kMostHeadBytes <= kMetaDataBytes);

bool IsMediaOfAStream(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 id)
{
    return IsMediaChunk(pAviInfo, id) && StreamTypeOf(pAviInfo, StreamNumber(LowHalf(id))) != LX_AVIREAD_STREAM_NONE;
}

// Whether a `movi` list can have a chunk, or a list, with this identifier.
bool IsPlausible(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 id)
{
    return IsMediaOfAStream(pAviInfo, id) || LowHalf(id) == TwoCC("ix") || id == FourCC("JUNK") || id == FourCC("LIST");
}

} // namespace

MediaWalk::MediaWalk(lxAviReadCore_AviInfo_t* pAviInfo, LookAt eLookAt) : m_pAviInfo(pAviInfo)
{
    for (UInt32 streamNr = 0; streamNr < LX_AVIREAD_STREAMS; ++streamNr) {
        const bool bLook =
            eLookAt == LookAt::AllVideo || (eLookAt == LookAt::MainVideo && IsMainVideoStream(pAviInfo, streamNr));
        if (bLook && StreamTypeOf(pAviInfo, streamNr) == LX_AVIREAD_STREAM_VIDEO) {
            m_rules[streamNr] = FrameRule(*FindStream(pAviInfo, streamNr), streamNr);
        }
    }
}

UInt32 MediaWalk::Begin()
{
    if (!TellSize(m_pAviInfo, m_uiFileSize)) {
        m_uiFileSize = ~UInt64{0};
    }
    GoToFirstSegment(m_pAviInfo);
    m_uiStart = StartOf(CurrentSegment(m_pAviInfo));
    return GoToPlace(m_pAviInfo, {m_uiStart, m_pAviInfo->pCurrentAvix}) ? LX_OK : UInt32{LX_ERR_AVIREAD_SEEK};
}

UInt64 MediaWalk::BytesInAll() const
{
    const Segment first = CurrentSegment(m_pAviInfo);
    const Segment* pLast = &first;
    while (pLast->pNextAvix != Null) {
        pLast = pLast->pNextAvix;
    }
    return std::min(EndOf(*pLast), m_uiFileSize) - std::min(m_uiStart, m_uiFileSize);
}

// Where the current list ends, or the file.
UInt64 MediaWalk::EndOfList() const { return std::min(EndOfDelivery(m_pAviInfo), m_uiFileSize); }

// ---- Lists that are longer than they say ----

// How far the current list can reach: to the header of the next one, or to the end of the file.
UInt64 MediaWalk::FurthestEnd() const
{
    constexpr UInt32 kLargestList = 0xFFFFFFFEu;
    const Segment list = CurrentSegment(m_pAviInfo);
    const UInt64 end = std::min(m_uiFileSize, StartOf(list) + kLargestList);
    return list.pNextAvix != Null ? std::min(end, StartOf(*list.pNextAvix) - kListHeaderBytes) : end;
}

void MediaWalk::GrowTo(UInt64 end) const
{
    if (Segment* const pList = m_pAviInfo->pCurrentAvix; pList != Null && end > EndOf(*pList)) {
        LX_LOG(kLevelHeader, "AviReadCore : the media data go on behind the end of their list");
        pList->moviDataSize = static_cast<UInt32>(end - StartOf(*pList));
    }
}

// Reads the header at `offset`, if one ends before `end`, else zeros.
UInt32 MediaWalk::Peek(UInt64 offset, UInt64 end, UInt32 (&header)[2]) const
{
    if (offset + sizeof header > end) {
        return LX_OK;
    }
    if (!SeekAndRemember(m_pAviInfo, offset, kFromStart)) {
        return LX_ERR_AVIREAD_SEEK;
    }
    return ReadRecord(m_pAviInfo, header);
}

// Lets the current list grow by a whole chunk that begins where the list ends.
UInt32 MediaWalk::GrowAtEnd() const
{
    const UInt64 place = m_pAviInfo->CurrentOffset;
    if (place + kChunkHeaderBytes <= EndOfDelivery(m_pAviInfo)) {
        return LX_OK;
    }
    const UInt64 offset = place + (place & 1u);
    const UInt64 furthest = FurthestEnd();
    UInt32 header[2] = {}; // identifier, size
    LX_AVIREAD_TRY(Peek(offset, furthest, header));
    const UInt64 end = offset + sizeof header + header[1];
    if (IsMediaOfAStream(m_pAviInfo, header[0]) && end <= furthest) {
        GrowTo(end);
    }
    return SeekAndRemember(m_pAviInfo, place, kFromStart) ? LX_OK : UInt32{LX_ERR_AVIREAD_SEEK};
}

// ---- The way from chunk to chunk ----

UInt32 MediaWalk::Next(MediaChunk& chunk)
{
    const UInt32 result = Find(chunk);
    return result == LX_ERR_AVIREAD_EOF ? UInt32{LX_AVIREAD_END_OF_MEDIA} : result; // the file was cut
}

UInt32 MediaWalk::Find(MediaChunk& chunk)
{
    for (;;) {
        lxAviRead_ChunkData_t data = {};
        MediaHeader header = {};
        LX_AVIREAD_TRY(HearAbort(m_pAviInfo));
        LX_AVIREAD_TRY(GrowAtEnd());
        LX_AVIREAD_TRY(ReadMediaHeader(m_pAviInfo, &data, header));
        if (!IsOfKnownStream(data)) {
            continue; // its size cannot be trusted; delivery searches on behind the header, too
        }
        bool bWhole = false;
        LX_AVIREAD_TRY(Examine(data.uiSize, bWhole));
        if (bWhole) {
            const UInt64 start = m_pAviInfo->CurrentOffset - kChunkHeaderBytes;
            chunk = {.uiOffset = start,
                     .uiDescriptor = data.bDrm != 0 ? header.uiStart : 0,
                     .uiId = header.uiId,
                     .uiStreamNr = data.uiStreamNr,
                     .uiSize = data.uiSize,
                     .eFrame = FrameKind::Unknown};
            return PassOver(chunk);
        }
    }
}

// Whether a chunk whose header has been read is whole. Leaves the file at its payload.
UInt32 MediaWalk::Examine(UInt32 size, bool& bWhole)
{
    const UInt64 payload = m_pAviInfo->CurrentOffset;
    const UInt64 end = payload + size;
    const bool bInList = end <= EndOfList();
    bWhole = bInList || end <= FurthestEnd();
    if (bWhole && !(bInList && IsTrusted())) {
        LX_AVIREAD_TRY(ExamineBehind(end + (end & 1u), bInList ? EndOfList() : FurthestEnd(), bWhole));
        bWhole = bWhole || (bInList && end + 1 + kChunkHeaderBytes > EndOfList());
        LX_AVIREAD_TRY(SeekAndRemember(m_pAviInfo, payload, kFromStart) ? LX_OK : UInt32{LX_ERR_AVIREAD_SEEK});
    }
    if (bWhole) {
        GrowTo(end);
    }
    m_pDamaged = bWhole ? Null : m_pAviInfo->pCurrentAvix;
    return LX_OK;
}

// Whether a chunk begins at `behind`, and its header ends before `end`.
UInt32 MediaWalk::ExamineBehind(UInt64 behind, UInt64 end, bool& bFollowed) const
{
    UInt32 header[2] = {};
    LX_AVIREAD_TRY(Peek(behind, end, header));
    bFollowed = IsPlausible(m_pAviInfo, header[0]);
    return LX_OK;
}

// Goes over the payload of a chunk.
UInt32 MediaWalk::PassOver(MediaChunk& chunk)
{
    UInt32 seen = 0;
    if (IsVideoChunk(m_pAviInfo, chunk.uiId)) {
        LX_AVIREAD_TRY(LookAtFrame(m_rules[chunk.uiStreamNr], chunk, seen));
    }
    if (seen < chunk.uiSize) {
        LX_AVIREAD_TRY(lxAviReadCore_RemoveChunk(chunk.uiSize - seen));
    }
    m_pAviInfo->CurrentOffset += chunk.uiSize;
    return LX_OK;
}

// Reads as much of a payload as its rule needs, and tells in `seen` how much that was.
UInt32 MediaWalk::LookAtFrame(const FrameRule& rule, MediaChunk& chunk, UInt32& seen)
{
    auto* const pHead = static_cast<UInt8*>(m_pAviInfo->pMetaDataBuffer);
    const auto look = [&] { return rule.Look({{pHead, seen}, chunk.uiSize}); };
    chunk.eFrame = look();
    for (const UInt32 most : {kFirstHeadBytes, kMostHeadBytes}) {
        const UInt32 wanted = std::min(chunk.uiSize, most);
        if (rule.IsKnown() && chunk.eFrame == FrameKind::Unknown && seen < wanted) {
            LX_AVIREAD_TRY(ReadLoop(m_pAviInfo, kCoreRead, {pHead + seen, kMetaDataBytes - seen, wanted - seen}));
            seen = wanted;
            chunk.eFrame = look();
        }
    }
    return LX_OK;
}

} // namespace lxAviReadCore
