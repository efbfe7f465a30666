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

// The search for chunks is that of delivery. The walk changes the place of delivery, and lets lists grow that prove to be
// longer than they say, so that delivery reaches their chunks, too.
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
    UInt64 BytesInAll() const { return m_uiEnd - m_uiStart; }

private:
    struct Header {
        UInt32 uiId;
        UInt32 uiSize;
    };

    [[nodiscard]] UInt32 Find(MediaChunk& chunk);
    [[nodiscard]] UInt32 PassOver(MediaChunk& chunk);
    [[nodiscard]] UInt32 LookAtFrame(const FrameRule& rule, MediaChunk& chunk, UInt32& seen);

    UInt64 EndOfList() const;
    UInt64 FurthestEnd() const;
    [[nodiscard]] UInt32 Peek(UInt64 offset, UInt64 end, Header& header) const;
    [[nodiscard]] UInt32 Examine(UInt32 size, bool& bWhole);
    [[nodiscard]] UInt32 LookBehind(UInt64 end, UInt32 size, UInt64 limit, bool& bFollowed) const;

    void EnterList();
    void GrowTo(UInt64 end);
    [[nodiscard]] UInt32 GrowAtEnd();
    [[nodiscard]] UInt32 GrowBy(UInt64 offset);

    lxAviReadCore_AviInfo_t* m_pAviInfo;
    FrameRule m_rules[LX_AVIREAD_STREAMS];
    UInt64 m_uiStart = 0; // of the media data
    UInt64 m_uiEnd = 0;
    UInt64 m_uiFileSize = 0;
    UInt64 m_uiBehind = 0;   // the chunk met last; the walk never goes back
    UInt32 m_uiPadBytes = 0; // that should follow it
    Segment* m_pList = Null; // the current list
    bool m_bDamaged = false; // a chunk of it claims more than there is, and none was whole since
};

} // namespace lxAviReadCore
