// The steps of the walk over a list in the headers.

#include "internal/ListWalk.hpp"

#include <algorithm>

namespace lxAviReadCore {

UInt32 ListWalk::Enter(ChunkHeader& chunk)
{
    LX_AVIREAD_TRY(ReadChunkHeader(m_pAviInfo, chunk));
    m_uiConsumed += kChunkHeaderBytes;
    if (m_bExact) {
        chunk.uiSize = static_cast<UInt32>(std::min<UInt64>(chunk.uiSize, Left()));
        chunk.uiPayload = std::min(chunk.uiPayload, chunk.uiSize);
    }
    m_uiConsumed += chunk.uiSize;
    return LX_OK;
}

UInt32 ListWalk::Leave() const
{
    return m_bExact && Left() > 0 ? lxAviReadCore_RemoveChunk(static_cast<UInt32>(Left())) : LX_OK;
}

} // namespace lxAviReadCore
