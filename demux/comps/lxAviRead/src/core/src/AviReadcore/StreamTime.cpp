// From a position in a stream to its presentation time in milliseconds.
//
//   video            frames × microseconds per frame
//   PCM, AC-3        bytes ÷ dwRate
//   compressed, CBR  bytes ÷ nAvgBytesPerSec
//   compressed, VBR  chunks × dwScale ÷ dwRate
//
// In the format mode times come from the header of the stream, whatever the codec:
//
//   video             frames × dwScale ÷ dwRate; without these × microseconds per frame
//   audio             samples or chunks × dwScale ÷ dwRate
//
// It is exact: integers all the way, and truncated once. In the default mode the single-precision steps and the
// grouping are part of the results: every target computes the same values.

#include "internal/State.hpp"
#include "internal/Streams.hpp"

namespace lxAviReadCore {
namespace {

struct StreamPosition {
    UInt32 uiStreamNr;
    UInt32 uiFrameNumber;
    UInt64 uiBytePosition;
};

UInt32 MicroSecPerFrame(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    const lxAviRead_Avih_t* const pHeader = pAviInfo->AviHdr;
    return pHeader != Null ? pHeader->dwMicroSecPerFrame : 0; // GCOVR_EXCL_BR_LINE: no stream without it
}

// `pKind` is inserted behind the function's name.
void LogTime(const char* pKind, const StreamPosition& position, UInt32 time)
{
    LX_LOG(kLevelChunk,
           "lxAviReadCore_GetStreamTime: %sstream=%d framenumber=% 5d bytePosition=%d.% 7d dwMicroSecPerFrame=% 7d "
           "streamTime=% 7d",
           pKind, position.uiStreamNr, position.uiFrameNumber, LX_HILO(position.uiBytePosition),
           MicroSecPerFrame(&lxAviReadCore_AviInfo), time);
}

// ---- Exact times ----

// A quotient and what is left over, of the same divisor.
struct Quotient {
    UInt64 uiWhole;
    UInt64 uiRest;
};

// `count` × `factor` ÷ `divisor`; the factor has at most 62 bits. The product is never made, so that it cannot
// overflow. A result of more than 64 bits becomes the largest number.
Quotient MultiplyAndDivide(UInt64 count, UInt64 factor, UInt32 divisor)
{
    const UInt64 rest = count % divisor;
    const UInt64 lowest = rest * (factor % divisor); // both are below 2^32
    UInt64 whole = 0;
    const bool bTooLarge = __builtin_mul_overflow(count / divisor, factor, &whole) ||
                           __builtin_add_overflow(whole, rest * (factor / divisor) + lowest / divisor, &whole);
    return {bTooLarge ? ~UInt64{0} : whole, lowest % divisor};
}

constexpr UInt32 kMicroSecPerMsec = 1000;

bool HasTimeBase(const lxAviRead_Strh_t& header) { return header.dwScale != 0 && header.dwRate != 0; }

// A position in samples: whole ones, and bytes of the next one.
struct SamplePosition {
    UInt64 uiSamples;
    UInt32 uiBytes = 0;
    UInt32 uiSampleBytes = 1;
};

// The time of a position in units of dwScale ÷ dwRate seconds; 0 where the header does not give the unit.
UInt64 ExactTime(const lxAviRead_Strh_t& header, const SamplePosition& position, TimeUnit perSecond)
{
    if (!HasTimeBase(header)) {
        return 0;
    }
    const UInt64 factor = UInt64{header.dwScale} * perSecond;
    const Quotient whole = MultiplyAndDivide(position.uiSamples, factor, header.dwRate);
    const UInt64 part = MultiplyAndDivide(position.uiBytes, factor, position.uiSampleBytes).uiWhole;
    const UInt64 partial = (whole.uiRest + part) / header.dwRate;
    return whole.uiWhole > ~UInt64{0} - partial ? ~UInt64{0} : whole.uiWhole + partial;
}

// ---- Video ----

UInt64 ExactFrameTime(const lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t& stream, UInt64 frames,
                      TimeUnit perSecond)
{
    if (HasTimeBase(stream.Header)) {
        return ExactTime(stream.Header, {frames}, perSecond);
    }
    return MultiplyAndDivide(frames, UInt64{MicroSecPerFrame(pAviInfo)} * (perSecond / kMicroSecPerSec), 1).uiWhole;
}

UInt32 VideoTime(const lxAviReadCore_StreamInfo_t& stream, const StreamPosition& position)
{
    if (VideoTimeIsByStream(&lxAviReadCore_AviInfo)) {
        const UInt32 exact =
            Milliseconds(ExactVideoTime(&lxAviReadCore_AviInfo, stream, position.uiFrameNumber, kMicroSecPerSec));
        LogTime("Video by header. ", position, exact);
        return exact;
    }
    const UInt32 frames = stream.Header.dwStart + position.uiFrameNumber;
    // the count passes through single precision; above 2^24 it loses its lowest bits
    const double rounded = static_cast<double>(static_cast<float>(frames));
    const UInt32 time = ToUInt32(rounded * (static_cast<double>(MicroSecPerFrame(&lxAviReadCore_AviInfo)) / 1000.0));
    LogTime("Video. ", position, time);
    return time;
}

// ---- Audio ----

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

// In units of the header: samples, whose number follows from the bytes, or blocks and chunks.
UInt64 ExactAudioTime(const lxAviReadCore_StreamInfo_t& stream, UInt64 start, UInt64 units, UInt64 bytes,
                      TimeUnit perSecond)
{
    const UInt32 sampleBytes = AudioUnitsOf(&lxAviReadCore_AviInfo, stream).uiSampleBytes;
    const SamplePosition samples =
        sampleBytes == 0
            ? SamplePosition{start + units}
            : SamplePosition{start + bytes / sampleBytes, static_cast<UInt32>(bytes % sampleBytes), sampleBytes};
    return ExactTime(stream.Header, samples, perSecond);
}

UInt64 ExactAudioTime(const lxAviReadCore_StreamInfo_t& stream, const StreamPosition& position, TimeUnit perSecond)
{
    return ExactAudioTime(stream, stream.Header.dwStart, position.uiFrameNumber, position.uiBytePosition, perSecond);
}

UInt32 TimeByHeader(const lxAviReadCore_StreamInfo_t& stream, const StreamPosition& position)
{
    const UInt32 time = Milliseconds(ExactAudioTime(stream, position, kMicroSecPerSec));
    LogTime("by header. ", position, time);
    return time;
}

UInt32 AudioTime(const lxAviReadCore_StreamInfo_t& stream, const StreamPosition& position)
{
    if (AudioTimeIsByHeader(&lxAviReadCore_AviInfo) && stream.StreamType == LX_AVIREAD_STREAM_AUDIO) {
        return TimeByHeader(stream, position);
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

// The time of a position in a stream; 0 for streams without times, and in the default mode.
UInt64 ExactStreamTime(const StreamPosition& position, TimeUnit perSecond)
{
    const lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    const lxAviReadCore_StreamInfo_t* const pStream = FindStream(pAviInfo, position.uiStreamNr);
    if (pStream == Null || !ExactTimesAreGiven(pAviInfo)) {
        return 0;
    }
    switch (pStream->StreamType) {
    case LX_AVIREAD_STREAM_VIDEO: return ExactVideoTime(pAviInfo, *pStream, position.uiFrameNumber, perSecond);
    case LX_AVIREAD_STREAM_AUDIO: return ExactAudioTime(*pStream, position, perSecond);
    default: return 0;
    }
}

} // namespace

bool HasNoFrameRate(const lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t& stream)
{
    return !HasTimeBase(stream.Header) && MicroSecPerFrame(pAviInfo) == 0;
}

UInt32 Milliseconds(UInt64 microseconds)
{
    const UInt64 msec = microseconds / kMicroSecPerMsec;
    return msec > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<UInt32>(msec);
}

UInt64 ExactVideoTime(const lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t& stream,
                      UInt32 frameNumber, TimeUnit perSecond)
{
    return ExactFrameTime(pAviInfo, stream, UInt64{stream.Header.dwStart} + frameNumber, perSecond);
}

UInt64 ExactDuration(const lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t& stream, UInt64 units,
                     UInt64 bytes)
{
    switch (stream.StreamType) {
    case LX_AVIREAD_STREAM_VIDEO: return ExactFrameTime(pAviInfo, stream, units, kMicroSecPerSec);
    case LX_AVIREAD_STREAM_AUDIO: return ExactAudioTime(stream, 0, units, bytes, kMicroSecPerSec);
    default: return ExactTime(stream.Header, {units}, kMicroSecPerSec);
    }
}

} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_GetStreamTime(UInt32 streamNr, UInt32 frameNumber, UInt64 bytePosition)
{
    const lxAviReadCore_StreamInfo_t* const pStream = FindStream(&lxAviReadCore_AviInfo, streamNr);
    if (pStream == Null) {
        return 0;
    }
    const StreamPosition position = {streamNr, frameNumber, bytePosition};
    return pStream->StreamType == LX_AVIREAD_STREAM_VIDEO ? VideoTime(*pStream, position)
                                                          : AudioTime(*pStream, position);
}

UInt64 lxAviReadCore_GetStreamTimeUsec(UInt32 streamNr, UInt32 frameNumber, UInt64 bytePosition)
{
    return ExactStreamTime({streamNr, frameNumber, bytePosition}, kMicroSecPerSec);
}

UInt64 lxAviReadCore_GetStreamTimeNsec(UInt32 streamNr, UInt32 frameNumber, UInt64 bytePosition)
{
    return ExactStreamTime({streamNr, frameNumber, bytePosition}, kNanoSecPerSec);
}
