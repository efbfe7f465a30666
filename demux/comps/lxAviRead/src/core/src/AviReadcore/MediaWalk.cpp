// The walk over the chunks of the media data. It stands in for an index that a file does not have.
//
//   "00dc" size payload …   header read, payload passed over; of a video frame the first bytes are looked at
//   anything else           passed over by the search of delivery (MediaSearch.cpp)
//
// A chunk that claims more bytes than its list or the file has left is damage, or was cut. Its size says nothing, so the
// search goes on behind its header. From there on the payload of that chunk is searched, too, and looks like a chunk here
// and there: until the next whole one, a chunk counts only if the list ends behind it, or another chunk begins there.
// The search never goes back, so that the work stays in proportion to the size of the file.

#include "internal/MediaWalk.hpp"
#include "internal/Delivery.hpp"
#include "internal/Memory.hpp"

#include <algorithm>

namespace lxAviReadCore {
namespace {

// What is read of a frame at first. It is enough for most frames of all codings.
constexpr UInt32 kFirstHeadBytes = 256;
static_assert(kMostHeadBytes <= kMetaDataBytes);

// Whether a chunk of the media data can begin with this identifier.
bool IsPlausible(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 id)
{
    const bool bOfAStream = StreamTypeOf(pAviInfo, StreamNumber(LowHalf(id))) != LX_AVIREAD_STREAM_NONE;
    return (IsMediaChunk(pAviInfo, id) && bOfAStream) || LowHalf(id) == TwoCC("ix") || id == FourCC("JUNK") ||
           id == FourCC("LIST");
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
    const UInt64 end = EndOfList();
    bWhole = payload <= end && size <= end - payload;
    if (!bWhole) {
        m_pDamaged = m_pAviInfo->pCurrentAvix;
        return LX_OK;
    }
    if (IsTrusted()) {
        return LX_OK;
    }
    const UInt64 behind = payload + size + (size & 1u);
    if (behind + kChunkHeaderBytes <= end) {
        UInt32 id = 0;
        if (!SeekAndRemember(m_pAviInfo, behind, kFromStart)) {
            return LX_ERR_AVIREAD_SEEK;
        }
        LX_AVIREAD_TRY(ReadRecord(m_pAviInfo, id));
        bWhole = IsPlausible(m_pAviInfo, id);
        if (!SeekAndRemember(m_pAviInfo, payload, kFromStart)) {
            return LX_ERR_AVIREAD_SEEK;
        }
    }
    m_pDamaged = bWhole ? Null : m_pDamaged;
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
