#include "Interleave.hpp"

#include <algorithm>

namespace lxavi {

// The side that a chunk comes for has played up to the end of its last chunk, or up to its first one.
void Interleave::Add(Side side, UInt32 begin, UInt32 end, UInt32 size, UInt64 offset)
{
    Read& awaited = side == Side::Video ? m_video : m_audio;
    Read& other = side == Side::Video ? m_audio : m_video;
    const UInt32 played = awaited.isThere ? awaited.endMsec : begin;
    awaited.isThere = true;
    awaited.endMsec = played;
    if (other.isThere && other.endMsec >= played) { // else it was not the one that a player waited for
        Wait(played, other, offset);
    }
    awaited.endMsec = std::max(end, played);
    awaited.unplayed.emplace_back(awaited.endMsec, size);
    awaited.bytes += size;
}

void Interleave::Wait(UInt32 played, Read& other, UInt64 offset)
{
    while (!other.unplayed.empty() && other.unplayed.front().first <= played) {
        other.bytes -= other.unplayed.front().second;
        other.unplayed.pop_front();
    }
    m_lead.Add(played, static_cast<double>(m_audio.endMsec) - static_cast<double>(m_video.endMsec));
    const UInt64 waited = other.endMsec - played;
    if (waited > m_neededMsec) {
        m_neededMsec = waited;
        m_worstOffset = offset;
        m_worstMsec = played;
    }
    m_neededBytes = std::max(m_neededBytes, other.bytes);
}

} // namespace lxavi
