// What the numbers of an audio stream count, from its two headers.
//
//   strh dwSampleSize ≠ 0   samples of so many bytes: the number follows from the bytes before it
//        dwSampleSize = 0   blocks of nBlockAlign bytes (strf): a chunk counts every block that it begins
//                           without a block size, every chunk counts one
//
// Writers misuse both fields. What they mean then was found by comparing the packet times of media tools:
//
//   dwSampleSize 1024 for AAC, 1152 or 576 for MP3   samples of a coded frame, whose bytes vary: it is none
//   dwSampleSize against the byte rate               nBlockAlign is meant, where that fits
//   nBlockAlign 1 to 4 of a coded stream             the size of a decoded sample: no block size, unless it fits the byte rate

#include "internal/Streams.hpp"

#include <algorithm>
#include <iterator>

namespace lxAviReadCore {
namespace {

constexpr UInt32 kAacFrameSamples = 1024;
constexpr UInt32 kMp3FrameSamples = 1152;
constexpr UInt32 kMp3LowRateFrameSamples = 576; // of sampling rates below 32 kHz
constexpr UInt32 kLargestDecodedSample = 4;     // bytes: two channels of 16 bits

// The tags of AAC: the usual one, that of ADTS frames, and those that early writers have chosen.
constexpr UInt16 kAacTags[] = {LX_AVIREAD_FORMAT_AAC, 0x1600, 0x4143, 0x706D, 0xA106};

bool IsAac(UInt16 tag) { return std::find(std::begin(kAacTags), std::end(kAacTags), tag) != std::end(kAacTags); }

bool IsUncompressed(const lxAviRead_StrfAudio_t& format) { return AudioCodecOf(format.wFormatTag).uiFrameSamples == 1; }

// Whether units of so many bytes, dwRate ÷ dwScale of them a second, give the byte rate of the format within a quarter.
bool FitsByteRate(UInt32 bytes, const lxAviRead_Strh_t& header, const lxAviRead_StrfAudio_t& format)
{
    const double stated = static_cast<double>(format.nAvgBytesPerSec) * static_cast<double>(header.dwScale);
    const double counted = static_cast<double>(bytes) * static_cast<double>(header.dwRate);
    return counted >= stated * 0.75 && counted <= stated * 1.25 && counted > 0.0;
}

bool IsCodedFrame(UInt32 sampleSize, UInt16 tag)
{
    const bool bMp3 = sampleSize == kMp3FrameSamples || sampleSize == kMp3LowRateFrameSamples;
    return (sampleSize == kAacFrameSamples && IsAac(tag)) || (bMp3 && tag == LX_AVIREAD_FORMAT_MPEG_LAYER3);
}

UInt32 SampleBytes(const lxAviRead_Strh_t& header, const lxAviRead_StrfAudio_t& format)
{
    if (header.dwSampleSize == 0 || IsCodedFrame(header.dwSampleSize, format.wFormatTag)) {
        return 0;
    }
    const bool bBlockIsMeant =
        FitsByteRate(format.nBlockAlign, header, format) && !FitsByteRate(header.dwSampleSize, header, format);
    return bBlockIsMeant ? format.nBlockAlign : header.dwSampleSize;
}

UInt32 BlockBytes(const lxAviRead_Strh_t& header, const lxAviRead_StrfAudio_t& format)
{
    const bool bBlock = format.nBlockAlign > kLargestDecodedSample || IsUncompressed(format) ||
                        FitsByteRate(format.nBlockAlign, header, format);
    return bBlock ? format.nBlockAlign : 0;
}

} // namespace

AudioUnits AudioUnitsOf(const lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t& stream)
{
    if (!AudioCountsBlocks(pAviInfo)) {
        return {stream.Header.dwSampleSize, 0};
    }
    const auto format = FormatOf<lxAviRead_StrfAudio_t>(&stream);
    const UInt32 sampleBytes = SampleBytes(stream.Header, format);
    return {sampleBytes, sampleBytes == 0 ? BlockBytes(stream.Header, format) : 0};
}

} // namespace lxAviReadCore
