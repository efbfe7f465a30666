// The walk over the chunks of the media data. It stands in for an index that a file does not have.
//
//   "00dc" size payload …   header read, payload passed over; of a video frame the first bytes are looked at
//   anything else           passed over by the search of delivery (MediaSearch.cpp)
//
// A list can be longer than it says: its writer was stopped before it brought the size up to date. It grows by the chunks
// that begin where it ends, and by a chunk that reaches over its end if another one begins behind that.
//
// Any other chunk that claims more bytes than its list has left is damaged, or was cut. Its size says nothing, so the search
// goes on behind its header. From there on the payload of that chunk is searched, too, and looks like a chunk here and
// there: until the next whole one, a chunk counts only if the list ends behind it, or another chunk begins there. The
// search never goes back, so that the number of reads stays in proportion to the size of the file.

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
    return IsMediaOfAStream(pAviInfo, id) || IsIndexChunk(id) || id == FourCC("JUNK") || id == FourCC("LIST");
}

const Segment* LastOf(const Segment* pList)
{
    while (pList->pNextAvix != Null) {
        pList = pList->pNextAvix;
    }
    return pList;
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
    UndoGrowth(); // so that all walks meet the same chunks
    if (TellSize(m_pAviInfo, m_uiFileSize)) {
        LX_AVIREAD_TRY(AllowEarlyEnd(m_pAviInfo, FindLostLists(m_pAviInfo, m_uiFileSize)));
    } else {
        m_uiFileSize = ~UInt64{0};
    }
    GoToFirstSegment(m_pAviInfo);
    const Segment first = CurrentSegment(m_pAviInfo);
    m_uiStart = StartOf(first);
    m_uiEnd = std::max(m_uiStart, std::min(EndOf(*LastOf(&first)), m_uiFileSize));
    return GoToPlace(m_pAviInfo, {m_uiStart, m_pAviInfo->pCurrentAvix}) ? LX_OK : UInt32{LX_ERR_AVIREAD_SEEK};
}

// ---- The current list ----

// Where it ends, or the file.
UInt64 MediaWalk::EndOfList() const { return std::min(EndOfDelivery(m_pAviInfo), m_uiFileSize); }

// How far it can reach: to the header of the next list, or to the end of the file.
UInt64 MediaWalk::FurthestEnd() const
{
    constexpr UInt32 kLargestList = 0xFFFFFFFEu;
    const Segment list = CurrentSegment(m_pAviInfo);
    const UInt64 end = std::min(m_uiFileSize, StartOf(list) + kLargestList);
    return list.pNextAvix != Null ? std::min(end, StartOf(*list.pNextAvix) - kListHeaderBytes) : end;
}

// Called where delivery may have gone on to another list.
void MediaWalk::EnterList()
{
    if (m_pAviInfo->pCurrentAvix != m_pList) {
        m_pList = m_pAviInfo->pCurrentAvix;
        m_uiPadBytes = 0;
        m_bDamaged = false;
    }
}

// Reads the header at `offset`, if it ends before `end`, else zeros.
UInt32 MediaWalk::Peek(UInt64 offset, UInt64 end, Header& header) const
{
    header = {};
    if (offset + sizeof header > end) {
        return LX_OK;
    }
    if (!SeekAndRemember(m_pAviInfo, offset, kFromStart)) {
        return LX_ERR_AVIREAD_SEEK;
    }
    return ReadRecord(m_pAviInfo, header);
}

// ---- Lists that are longer than they say ----

void MediaWalk::GrowTo(UInt64 end)
{
    if (m_pList != Null && end > EndOf(*m_pList)) {
        LX_LOG(kLevelHeader, "AviReadCore : the media data go on behind the end of their list");
        Grow(*m_pList, end);
        m_uiEnd = std::max(m_uiEnd, end);
    }
}

// Near the end of the current list, lets it grow by the chunk that comes next. The chunk before may lack its pad byte.
UInt32 MediaWalk::GrowAtEnd()
{
    constexpr UInt32 kNear = 64; // a "dd" chunk and the header of its frame
    const UInt64 place = m_pAviInfo->CurrentOffset;
    const UInt64 end = EndOfDelivery(m_pAviInfo);
    if (m_pList == Null || place + kNear <= end) {
        return LX_OK;
    }
    LX_AVIREAD_TRY(GrowBy(place + m_uiPadBytes));
    if (m_uiPadBytes != 0 && EndOfDelivery(m_pAviInfo) == end) {
        LX_AVIREAD_TRY(GrowBy(place));
    }
    return SeekAndRemember(m_pAviInfo, place, kFromStart) ? LX_OK : UInt32{LX_ERR_AVIREAD_SEEK};
}

// Lets the current list grow by a whole media chunk, if one comes at `offset` or behind what may stand before it there: a
// "dd" chunk, padding, an index chunk, the header of a list.
UInt32 MediaWalk::GrowBy(UInt64 offset)
{
    const UInt64 furthest = FurthestEnd();
    Header header = {};
    for (UInt64 at = offset;;) {
        LX_AVIREAD_TRY(HearAbort(m_pAviInfo));
        LX_AVIREAD_TRY(Peek(at, furthest, header));
        const bool bList = header.uiId == FourCC("LIST");
        const UInt64 end = at + (bList ? UInt64{kListHeaderBytes} : UInt64{kChunkHeaderBytes} + header.uiSize);
        if (!IsPlausible(m_pAviInfo, header.uiId) || end > furthest) {
            return LX_OK;
        }
        if (IsMediaOfAStream(m_pAviInfo, header.uiId) && HighHalf(header.uiId) != TwoCC("dd")) {
            GrowTo(end);
            return LX_OK;
        }
        at = end + (bList ? 0 : header.uiSize & 1u);
    }
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
        EnterList();
        LX_AVIREAD_TRY(GrowAtEnd());
        LX_AVIREAD_TRY(ReadMediaHeader(m_pAviInfo, &data, header));
        EnterList();
        if (header.uiStart < m_uiBehind) {
            return LX_AVIREAD_END_OF_MEDIA; // a damaged header has led to a list that was passed already
        }
        if (!IsOfKnownStream(data)) {
            continue; // the search decides whether its size can be trusted, as in delivery
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
    const UInt64 endOfList = EndOfList();
    const UInt64 limit = end <= endOfList ? endOfList : FurthestEnd();
    bWhole = end <= limit;
    if (bWhole && (end > endOfList || m_bDamaged)) {
        LX_AVIREAD_TRY(LookBehind(end, size, limit, bWhole));
        bWhole = bWhole || (end <= endOfList && end + 1 + kChunkHeaderBytes > endOfList);
        LX_AVIREAD_TRY(SeekAndRemember(m_pAviInfo, payload, kFromStart) ? LX_OK : UInt32{LX_ERR_AVIREAD_SEEK});
    }
    if (bWhole) {
        GrowTo(end);
    }
    m_bDamaged = !bWhole;
    return LX_OK;
}

// Whether a chunk begins behind a payload of `size` bytes that ends at `end`, with a pad byte or without the one that
// should be there.
UInt32 MediaWalk::LookBehind(UInt64 end, UInt32 size, UInt64 limit, bool& bFollowed) const
{
    Header header = {};
    LX_AVIREAD_TRY(Peek(end + (size & 1u), limit, header));
    bFollowed = IsPlausible(m_pAviInfo, header.uiId);
    if (!bFollowed && (size & 1u) != 0) {
        LX_AVIREAD_TRY(Peek(end, limit, header));
        bFollowed = IsPlausible(m_pAviInfo, header.uiId);
    }
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
    m_uiBehind = m_pAviInfo->CurrentOffset;
    m_uiPadBytes = chunk.uiSize & 1u;
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
