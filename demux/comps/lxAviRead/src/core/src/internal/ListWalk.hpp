// The walk over the chunks of a list in the headers.

#pragma once

#include "Chunk.hpp"

namespace lxAviReadCore {

// In the format mode the walk is exact: no chunk reaches beyond the list, and the list ends where its size says. In the
// default mode the list ends behind the chunk that uses up its size.
class ListWalk {
public:
    ListWalk(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size, UInt32 consumed)
        : m_pAviInfo(pAviInfo), m_uiSize(size), m_uiConsumed(consumed), m_bExact(ListsAreExact(pAviInfo))
    {
    }

    // Whether the list goes on with a chunk.
    bool HasChunk() const { return Left() >= (m_bExact ? kChunkHeaderBytes : 1); }
    // Reads the header of that chunk, and counts the whole chunk as consumed. An exact walk cuts a chunk at the end of
    // the list.
    [[nodiscard]] UInt32 Enter(ChunkHeader& chunk);
    // In an exact walk, skips the rest of the list.
    [[nodiscard]] UInt32 Leave() const;

    bool IsExact() const { return m_bExact; }
    UInt64 Consumed() const { return m_uiConsumed; }

private:
    UInt64 Left() const { return m_uiConsumed < m_uiSize ? m_uiSize - m_uiConsumed : 0; }

    lxAviReadCore_AviInfo_t* m_pAviInfo;
    UInt32 m_uiSize;
    UInt64 m_uiConsumed; // may exceed the size where a chunk claims more than the list has
    bool m_bExact;
};

} // namespace lxAviReadCore
