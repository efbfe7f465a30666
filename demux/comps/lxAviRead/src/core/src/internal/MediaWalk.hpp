// The walk over the chunks of all `movi` lists, in file order, without an index.

#pragma once

#include "FrameKind.hpp"
#include "Segments.hpp"

namespace lxAviReadCore {

// A chunk of a stream that the file has, whole.
struct MediaChunk {
    UInt64 uiOffset;     // of its header, from the start of the file
    UInt64 uiDescriptor; // of the "dd" chunk that belongs to it; 0: there is none
    UInt32 uiId;
    UInt32 uiStreamNr;
    UInt32 uiSize;    // payload bytes, without a pad byte
    FrameKind eFrame; // of a video frame that the walk looks at
};

// The streams whose frames a walk looks at.
enum class LookAt : UInt8 { NoFrames, MainVideo, AllVideo };

// Delivery uses the same search, so that both meet the same chunks. The walk changes the place of delivery. A list that
// proves to be longer than it says is that long from then on.
class MediaWalk {
public:
    // A walk that looks at frames needs the batch buffer.
    MediaWalk(lxAviReadCore_AviInfo_t* pAviInfo, LookAt eLookAt);

    // Goes to the first chunk.
    [[nodiscard]] UInt32 Begin();
    // Goes over the next whole chunk. LX_AVIREAD_END_OF_MEDIA behind the last one.
    [[nodiscard]] UInt32 Next(MediaChunk& chunk);

    // From the first byte of the media data: where the walk is, and the end.
    UInt64 BytesDone() const { return m_pAviInfo->CurrentOffset - m_uiStart; }
    UInt64 BytesInAll() const;

private:
    [[nodiscard]] UInt32 Find(MediaChunk& chunk);
    bool IsTrusted() const { return m_pAviInfo->pCurrentAvix != m_pDamaged; }
    UInt64 EndOfList() const;
    UInt64 FurthestEnd() const;
    void GrowTo(UInt64 end) const;
    [[nodiscard]] UInt32 GrowAtEnd() const;
    [[nodiscard]] UInt32 Peek(UInt64 offset, UInt64 end, UInt32 (&header)[2]) const;
    [[nodiscard]] UInt32 Examine(UInt32 size, bool& bWhole);
    [[nodiscard]] UInt32 ExamineBehind(UInt64 behind, UInt64 end, bool& bFollowed) const;
    [[nodiscard]] UInt32 PassOver(MediaChunk& chunk);
    [[nodiscard]] UInt32 LookAtFrame(const FrameRule& rule, MediaChunk& chunk, UInt32& seen);

    lxAviReadCore_AviInfo_t* m_pAviInfo;
    FrameRule m_rules[LX_AVIREAD_STREAMS];
    UInt64 m_uiStart = 0;
    UInt64 m_uiFileSize = 0;
    const Segment* m_pDamaged = Null; // in which a chunk claims more than there is, and none was whole since
};

} // namespace lxAviReadCore
