// Whether a video frame is a key frame, by the first bytes of its payload.

#pragma once

#include "Streams.hpp"

#include <span>

namespace lxAviReadCore {

enum class FrameKind : UInt8 {
    Unknown, // the codec, or these bytes, do not tell
    Key,     // decoding can begin here
    Other,
};

// The first bytes of a payload.
struct FrameHead {
    std::span<const UInt8> bytes;
    UInt32 uiSize; // of the whole payload
};

// What the rules look at, at most. Parameter sets and user data may come before the picture.
constexpr UInt32 kMostHeadBytes = 4096;

// The rule of one video stream, found out once for all its frames.
class FrameRule {
public:
    using LookFn = FrameKind (*)(const FrameHead& head, UInt32 lengthBytes);

    FrameRule() = default; // knows no frame
    explicit FrameRule(const lxAviReadCore_StreamInfo_t& stream, UInt32 streamNr);

    bool IsKnown() const { return m_pfnLook != nullptr; }
    // Says Unknown where these bytes do not tell it; more bytes may.
    FrameKind Look(const FrameHead& head) const;

private:
    LookFn m_pfnLook = nullptr;
    UInt32 m_uiLengthBytes = 0; // bytes of the length before each NAL unit, by the codec data; 0: they do not say
};

} // namespace lxAviReadCore
