// From a position in a stream to its presentation time in milliseconds.
//
//   video            frames × microseconds per frame
//   PCM, AC-3        bytes ÷ dwRate
//   compressed, CBR  bytes ÷ nAvgBytesPerSec
//   compressed, VBR  chunks × dwScale ÷ dwRate
//
// In the format mode the time of any audio comes from its header, whatever the codec:
//
//   dwSampleSize ≠ 0  bytes ÷ dwSampleSize × dwScale ÷ dwRate
//   dwSampleSize = 0  chunks × dwScale ÷ dwRate
//
// The single-precision steps and the grouping are part of the results: every target computes the same values.

#include "internal/State.hpp"
#include "internal/Streams.hpp"

namespace lxAviReadCore {
namespace {

struct StreamPosition {
    UInt32 uiStreamNr;
    UInt32 uiFrameNumber;
    UInt64 uiBytePosition;
};

UInt32 MicroSecPerFrame()
{
    const lxAviRead_Avih_t* const pHeader = lxAviReadCore_AviInfo.AviHdr;
    return pHeader != Null ? pHeader->dwMicroSecPerFrame : 0; // GCOVR_EXCL_BR_LINE: no stream without it
}

// `pKind` is inserted behind the function's name.
void LogTime(const char* pKind, const StreamPosition& position, UInt32 time)
{
    LX_LOG(kLevelChunk,
           "lxAviReadCore_GetStreamTime: %sstream=%d framenumber=% 5d bytePosition=%d.% 7d dwMicroSecPerFrame=% 7d "
           "streamTime=% 7d",
           pKind, position.uiStreamNr, position.uiFrameNumber, LX_HILO(position.uiBytePosition), MicroSecPerFrame(),
           time);
}

UInt32 VideoTime(const lxAviRead_Strh_t& header, const StreamPosition& position)
{
    const UInt32 frames = header.dwStart + position.uiFrameNumber;
    // Quirk Q23: the count passes through single precision; above 2^24 it loses its lowest bits
    const double rounded = static_cast<double>(static_cast<float>(frames));
    const UInt32 time = ToUInt32(rounded * (static_cast<double>(MicroSecPerFrame()) / 1000.0));
    LogTime("Video. ", position, time);
    return time;
}

// Bytes before the stream's start, a 32-bit product.
double StartBytes(const lxAviReadCore_StreamInfo_t& stream)
{
    return static_cast<double>(stream.Header.dwStart * static_cast<UInt32>(stream.iFrameSize));
}

UInt32 UncompressedTime(const lxAviReadCore_StreamInfo_t& stream, const StreamPosition& position)
{
    const double bytes = StartBytes(stream) + static_cast<double>(position.uiBytePosition);
    const UInt32 time = ToUInt32(bytes * 1000.0 / static_cast<double>(stream.Header.dwRate));
    LogTime("AC3 or PCM.", position, time);
    return time;
}

UInt32 ConstantBitRateTime(const lxAviReadCore_StreamInfo_t& stream, const lxAviRead_StrfAudio_t& format,
                           const StreamPosition& position)
{
    const UInt32 bytes = ToUInt32(StartBytes(stream) + static_cast<double>(position.uiBytePosition));
    const UInt32 time = ToUInt32(static_cast<double>(bytes) * 1000.0 / static_cast<double>(format.nAvgBytesPerSec));
    LogTime("CBR.   ", position, time);
    return time;
}

UInt32 VariableBitRateTime(const lxAviRead_Strh_t& header, const StreamPosition& position)
{
    const UInt32 chunks = header.dwStart + position.uiFrameNumber;
    const UInt32 time = ToUInt32(static_cast<double>(chunks) *
                                 (static_cast<double>(header.dwScale) * (1000.0 / static_cast<double>(header.dwRate))));
    LogTime("VBR.   ", position, time);
    return time;
}

// In units of the header: samples of dwSampleSize bytes, or chunks.
UInt32 TimeByHeader(const lxAviRead_Strh_t& header, const StreamPosition& position)
{
    const double units = header.dwSampleSize != 0
                             ? static_cast<double>(position.uiBytePosition) / static_cast<double>(header.dwSampleSize)
                             : static_cast<double>(position.uiFrameNumber);
    const UInt32 time = ToUInt32((static_cast<double>(header.dwStart) + units) * static_cast<double>(header.dwScale) *
                                 1000.0 / static_cast<double>(header.dwRate));
    LogTime("by header. ", position, time);
    return time;
}

UInt32 AudioTime(const lxAviReadCore_StreamInfo_t& stream, const StreamPosition& position)
{
    if (AudioTimeIsByHeader(&lxAviReadCore_AviInfo) && stream.StreamType == LX_AVIREAD_STREAM_AUDIO) {
        return TimeByHeader(stream.Header, position);
    }
    const auto format = FormatOf<lxAviRead_StrfAudio_t>(&stream);
    switch (AudioCodecOf(format.wFormatTag).eClock) {
    case AudioClock::Bytes: return UncompressedTime(stream, position);
    case AudioClock::BitRate:
        return IsConstantBitRate(stream.Header, format) ? ConstantBitRateTime(stream, format, position)
                                                        : VariableBitRateTime(stream.Header, position);
    default: return 0;
    }
}

} // namespace
} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_GetStreamTime(UInt32 streamNr, UInt32 frameNumber, UInt64 bytePosition)
{
    const lxAviReadCore_StreamInfo_t* const pStream = FindStream(&lxAviReadCore_AviInfo, streamNr);
    if (pStream == Null) {
        return 0;
    }
    const StreamPosition position = {streamNr, frameNumber, bytePosition};
    return pStream->StreamType == LX_AVIREAD_STREAM_VIDEO ? VideoTime(pStream->Header, position)
                                                          : AudioTime(*pStream, position);
}
