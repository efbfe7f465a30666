#include "Interleave.hpp"

#include <algorithm>

namespace lxavi {

void Interleave::Add(Side side, UInt32 msec, UInt32 size, UInt64 offset)
{
    Read& awaited = side == Side::Video ? m_video : m_audio;
    Read& other = side == Side::Video ? m_audio : m_video;
    if (other.bytes > 0 || other.lastMsec > 0) {
        Wait(awaited, other, offset);
    }
    awaited.lastMsec = msec;
    awaited.unplayed.emplace_back(msec, size);
    awaited.bytes += size;
}

// A player has played up to the chunk of the awaited side that it has read last.
void Interleave::Wait(const Read& awaited, Read& other, UInt64 offset)
{
    const UInt32 played = awaited.lastMsec;
    while (!other.unplayed.empty() && other.unplayed.front().first <= played) {
        other.bytes -= other.unplayed.front().second;
        other.unplayed.pop_front();
    }
    m_lead.Add(played, static_cast<double>(m_audio.lastMsec) - static_cast<double>(m_video.lastMsec));
    const UInt64 waited = std::max(other.lastMsec, played) - played;
    if (waited > m_neededMsec) {
        m_neededMsec = waited;
        m_worstOffset = offset;
    }
    m_neededBytes = std::max(m_neededBytes, other.bytes);
}

} // namespace lxavi
