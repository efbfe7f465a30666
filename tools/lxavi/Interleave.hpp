// How far audio and video are apart in a file, and what a player that reads it from start to end has to buffer.

#pragma once

#include "Columns.hpp"

#include <deque>
#include <utility>

namespace lxavi {

// What a queue of a common player holds: the standard settings of the media framework that most Linux players use.
constexpr UInt64 kCommonQueueMsec = 1000;
constexpr UInt64 kCommonQueueBytes = UInt64{10} << 20;

enum class Side { Video, Audio };

// Takes the chunks of the video and of one audio track in file order. While a player waits for the next chunk of one
// side, it has to keep what it has read of the other side beyond that time.
class Interleave {
public:
    // A chunk that plays from `begin` to `end`, in milliseconds.
    void Add(Side side, UInt32 begin, UInt32 end, UInt32 size, UInt64 offset);

    UInt64 NeededMsec() const { return m_neededMsec; }
    UInt64 NeededBytes() const { return m_neededBytes; }
    UInt64 WorstOffset() const { return m_worstOffset; } // of the chunk that is awaited longest
    UInt32 WorstMsec() const { return m_worstMsec; }     // when a player waits for it
    // Milliseconds that audio is ahead of the video, over the time played; negative where it is behind.
    const Columns& Lead() const { return m_lead; }

private:
    struct Read {
        bool isThere = false;                           // a chunk has been read
        UInt32 endMsec = 0;                             // of the chunk read last
        std::deque<std::pair<UInt32, UInt32>> unplayed; // end and size
        UInt64 bytes = 0;                               // of these
    };

    void Wait(UInt32 played, Read& other, UInt64 offset);

    Read m_video;
    Read m_audio;
    Columns m_lead;
    UInt64 m_neededMsec = 0;
    UInt64 m_neededBytes = 0;
    UInt64 m_worstOffset = 0;
    UInt32 m_worstMsec = 0;
};

} // namespace lxavi
