// The format of a stream (strf) and the data for its decoder (strd): the fixed records.
//
//   bytes in the file   record      of
//   40 or more          first 40    video and bitmap subtitle formats
//   18 or more          first 32    audio formats; the audio frame size is derived from them
//   8                   first 8     text subtitle formats
//   2232 or more        first 2232  stream data; a shorter chunk is no stream data at all
//
// The format mode keeps the whole chunks besides (KeptChunks.cpp).

#include "internal/KeptChunks.hpp"
#include "internal/State.hpp"
#include "internal/Streams.hpp"

#include <algorithm>
#include <iterator>

namespace lxAviReadCore {
namespace {

// What the format parsers differ in.
struct FormatRule {
    UInt32 uiLimit;         // bytes that are kept
    const char* pKind;      // end of the parser's name
    const char* pStream;    // name of the stream in messages
    UInt32 uiOversizeLevel; // of the message about a longer format
};

constexpr FormatRule kVideoFormat = {sizeof(lxAviRead_StrfVideo_t), "video", "video", kLevelError};
constexpr FormatRule kAudioFormat = {sizeof(lxAviRead_StrfAudio_t), "audio", "audio", kLevelHeader};
constexpr FormatRule kTextFormat = {sizeof(lxAviRead_StrfText_t), "textSubtitle", "text subtitle", kLevelError};

// Reads the first `limit` bytes of a chunk into `pBuffer`.
UInt32 ReadHeadOfChunk(lxAviReadCore_AviInfo_t* pAviInfo, void* pBuffer, UInt32 limit, UInt32 size)
{
    if (pBuffer == Null) {
        return LX_ERR_AVIREAD_NO_MEMORY; // Alloc could not give the buffer
    }
    return LX_AVIREAD_CALL(ReadLoop(pAviInfo, kCoreRead, {pBuffer, limit, std::min(size, limit)}));
}

// Skips what a chunk has beyond `limit`.
UInt32 SkipRestOfChunk(UInt32 limit, UInt32 size)
{
    return size > limit ? LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size - limit)) : LX_OK;
}

// The same, or keeps the chunk, whose first bytes are in `pBuffer`.
UInt32 TakeRestOfChunk(lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t* pStrInfo, UInt32 code,
                       const void* pBuffer, UInt32 limit, UInt32 size)
{
    return HeaderChunksAreKept(pAviInfo) ? KeepChunk(pAviInfo, pStrInfo, code, size, {pBuffer, std::min(size, limit)})
                                         : SkipRestOfChunk(limit, size);
}

UInt32 ParseFormat(lxAviReadCore_AviInfo_t* pAviInfo, const FormatRule& rule, UInt32 size,
                   lxAviReadCore_StreamInfo_t* pStrInfo)
{
    LX_LOG(kLevelEnter, "Entered lxAviReadCore_ParseListStrf_%s", rule.pKind);
    if (size > rule.uiLimit) {
        LX_LOG(rule.uiOversizeLevel, "AviReadCore : size of %s stream (%d) is bigger then size of struct (%d)\n",
               rule.pStream, size, rule.uiLimit);
    }
    LX_AVIREAD_TRY(ReadHeadOfChunk(pAviInfo, pStrInfo->Format, rule.uiLimit, size));
    LX_AVIREAD_TRY(TakeRestOfChunk(pAviInfo, pStrInfo, FourCC("strf"), pStrInfo->Format, rule.uiLimit, size));
    LX_LOG(kLevelLeave, "Leaving lxAviReadCore_ParseListStrf_%s", rule.pKind);
    return LX_OK;
}

// ---- Codecs ----

constexpr AudioCodec kAudioCodecs[] = {
    {LX_AVIREAD_FORMAT_PCM, 1, AudioClock::Bytes, true},
    {LX_AVIREAD_FORMAT_IEEE_FLOAT, 1, AudioClock::Bytes, true},
    {LX_AVIREAD_FORMAT_MPEG, 1152, AudioClock::BitRate, true},
    {LX_AVIREAD_FORMAT_MPEG_LAYER3, 1152, AudioClock::BitRate, true},
    {LX_AVIREAD_FORMAT_AAC, 1024, AudioClock::BitRate, true},
    {LX_AVIREAD_FORMAT_AC3, 1536, AudioClock::Bytes, false},
};
constexpr AudioCodec kUnknownAudioCodec = {0, 0, AudioClock::None, true};

// Bytes of a coded frame, or of an uncompressed sample of one channel.
UInt32 AudioFrameSize(const lxAviRead_StrfAudio_t& format)
{
    const UInt32 samples = AudioCodecOf(format.wFormatTag).uiFrameSamples;
    if (samples == 1) {
        return format.wBitsPerSample / 8u;
    }
    // Quirk Q15: the quotient is truncated before it is multiplied; sampling rates above the frame's length give 0
    return format.nSamplesPerSec == 0 ? 0 : samples / format.nSamplesPerSec * format.nAvgBytesPerSec;
}

// Codecs, upper case, whose frames do not refer to each other.
constexpr UInt32 kIntraCodecs[] = {
    // motion JPEG and JPEG 2000
    FourCC("MJPG"), FourCC("MJPA"), FourCC("MJPB"), FourCC("IJPG"), FourCC("LJPG"), FourCC("JPEG"), FourCC("JPGL"),
    FourCC("DMB1"), FourCC("AVRN"), FourCC("MJ2C"), FourCC("MJP2"),
    // DV
    FourCC("DVSD"), FourCC("DVHD"), FourCC("DVSL"), FourCC("DVC "), FourCC("DVCP"), FourCC("DV25"), FourCC("DV50"),
    FourCC("DVH1"), FourCC("CDVC"), FourCC("CDV5"),
    // uncompressed; the last three are numbers of bitmap formats: none, bit fields, and alpha bit fields
    FourCC("DIB "), FourCC("RGB "), FourCC("RAW "), FourCC("YUY2"), FourCC("YUYV"), FourCC("UYVY"), FourCC("YVYU"),
    FourCC("2VUY"), FourCC("HDYC"), FourCC("YV12"), FourCC("I420"), FourCC("IYUV"), FourCC("YVU9"), FourCC("Y41P"),
    FourCC("NV12"), FourCC("Y800"), FourCC("Y8  "), FourCC("GREY"), FourCC("V210"), 0, 3, 6,
    // lossless and intermediate
    FourCC("HFYU"), FourCC("FFVH"), FourCC("ULRG"), FourCC("ULRA"), FourCC("ULY0"), FourCC("ULY2"), FourCC("CFHD"),
    FourCC("AVDN"), FourCC("PNG "), FourCC("MPNG")};

void lxAviReadCore_AudioFrameSizeCalculation(lxAviReadCore_StreamInfo_t* pStrInfo)
{
    pStrInfo->iFrameSize = static_cast<Int32>(AudioFrameSize(FormatOf<lxAviRead_StrfAudio_t>(pStrInfo)));
    LX_LOG(kLevelHeader, "lxAviReadCore_AudioFrameSizeCalculation pStrInfo=%p iFrameSize=%d",
           static_cast<const void*>(pStrInfo), pStrInfo->iFrameSize);
}

} // namespace

const AudioCodec& AudioCodecOf(UInt16 formatTag)
{
    const auto* const pFound = std::find_if(std::begin(kAudioCodecs), std::end(kAudioCodecs),
                                            [&](const AudioCodec& codec) { return codec.uiFormatTag == formatTag; });
    return pFound != std::end(kAudioCodecs) ? *pFound : kUnknownAudioCodec;
}

UInt32 CodecInUpperCase(UInt32 code)
{
    UInt32 upper = 0;
    for (unsigned i = 0; i < 4; ++i) {
        const UInt8 c = ByteOf(code, i);
        upper |= static_cast<UInt32>(c >= 'a' && c <= 'z' ? c - 0x20 : c) << (8 * i);
    }
    return upper;
}

bool IsConstantBitRate(const lxAviRead_Strh_t& header, const lxAviRead_StrfAudio_t& format)
{
    if (header.dwSampleSize == format.nBlockAlign) {
        return header.dwSampleSize != 0;
    }
    return static_cast<float>(header.dwRate) / static_cast<float>(header.dwScale) >= 1000.0f;
}

bool HasSubtitleCodec(const lxAviReadCore_StreamInfo_t& stream)
{
    const auto isOne = [](UInt32 codec) {
        return CodecInUpperCase(codec) == FourCC("DXSB") || CodecInUpperCase(codec) == FourCC("DXSA");
    };
    return isOne(stream.Header.fccHandler) || isOne(FormatOf<lxAviRead_StrfVideo_t>(&stream).biCompression);
}

bool HasOnlyKeyFrames(const lxAviReadCore_StreamInfo_t& stream)
{
    if (stream.Header.fccType == FourCC("iavs")) {
        return true;
    }
    const UInt32 codec = CodecInUpperCase(FormatOf<lxAviRead_StrfVideo_t>(&stream).biCompression);
    return std::find(std::begin(kIntraCodecs), std::end(kIntraCodecs), codec) != std::end(kIntraCodecs);
}

} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_ParseListStrf_video(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size,
                                         lxAviReadCore_StreamInfo_t* pStrInfo)
{
    return ParseFormat(pAviInfo, kVideoFormat, size, pStrInfo);
}

UInt32 lxAviReadCore_ParseListStrf_audio(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size,
                                         lxAviReadCore_StreamInfo_t* pStrInfo)
{
    LX_AVIREAD_TRY(ParseFormat(pAviInfo, kAudioFormat, size, pStrInfo));
    lxAviReadCore_AudioFrameSizeCalculation(pStrInfo);
    return LX_OK;
}

UInt32 lxAviReadCore_ParseListStrf_textSubtitle(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size,
                                                lxAviReadCore_StreamInfo_t* pStrInfo)
{
    return ParseFormat(pAviInfo, kTextFormat, size, pStrInfo);
}

UInt32 lxAviReadCore_ParseListStrd_video(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size,
                                         lxAviReadCore_StreamInfo_t* pStrInfo)
{
    LX_LOG(kLevelEnter, "Entered lxAviReadCore_ParseListStrd_video");
    if (size < sizeof(lxAviRead_StrdVideo_t)) {
        // Quirk Q16: the limit that is printed is the one of the format
        LX_LOG(kLevelError, "AviReadCore : size of video stream data (%d) should be >= size of struct (%d)\n", size,
               LX_AVIREAD_FORMAT_BYTES);
        return HeaderChunksAreKept(pAviInfo) ? KeepChunk(pAviInfo, pStrInfo, FourCC("strd"), size)
                                             : LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size));
    }
    LX_AVIREAD_TRY(ReadHeadOfChunk(pAviInfo, pStrInfo->StreamData, sizeof(lxAviRead_StrdVideo_t), size));
    pStrInfo->bStrdPresent = 1;
    LX_AVIREAD_TRY(
        TakeRestOfChunk(pAviInfo, pStrInfo, FourCC("strd"), pStrInfo->StreamData, sizeof(lxAviRead_StrdVideo_t), size));
    LX_LOG(kLevelLeave, "Leaving lxAviReadCore_ParseListStrd_video");
    return LX_OK;
}

Bool lxAviReadCore_HasOnlyKeyFrames(UInt32 streamNr)
{
    const lxAviReadCore_StreamInfo_t* const pStream = FindStream(&lxAviReadCore_AviInfo, streamNr);
    const bool bOnly = pStream != Null && pStream->StreamType == LX_AVIREAD_STREAM_VIDEO &&
                       CodecsTellKeyFrames(&lxAviReadCore_AviInfo) && HasOnlyKeyFrames(*pStream);
    return bOnly ? 1 : 0;
}

UInt32 lxAviReadCore_GetStrfData(UInt32 streamNr, void* pOut)
{
    LX_ASSERT(pOut != Null, "pOut!=Null", "pOut must be initialized");
    const lxAviReadCore_StreamInfo_t* const pStream = FindStream(&lxAviReadCore_AviInfo, streamNr);
    if (pOut == Null || pStream == Null || pStream->Format == Null) {
        return LX_OK;
    }
    if (pStream->StreamType == LX_AVIREAD_STREAM_VIDEO) {
        std::memcpy(pOut, pStream->Format, sizeof(lxAviRead_StrfVideo_t));
    } else if (pStream->StreamType == LX_AVIREAD_STREAM_AUDIO) {
        std::memcpy(pOut, pStream->Format, sizeof(lxAviRead_StrfAudio_t));
    }
    return LX_OK;
}

UInt32 lxAviReadCore_GetStrdData(UInt32 streamNr, void* pOut, Bool* pPresent)
{
    LX_ASSERT(pOut != Null && pPresent != Null, "pOut!=Null && pPresent!=Null",
              "pOut and pPresent must be initialized");
    if (pOut == Null || pPresent == Null) {
        return LX_OK;
    }
    std::memset(pOut, 0, sizeof(UInt32));
    LX_LOG(kLevelHeader, "lxAviReadCore_GetStrdData : Stream %d", streamNr);
    const lxAviReadCore_StreamInfo_t* const pStream = FindStream(&lxAviReadCore_AviInfo, streamNr);
    *pPresent = 0;
    if (pStream == Null) {
        return LX_OK;
    }
    if (pStream->StreamType != LX_AVIREAD_STREAM_VIDEO || pStream->StreamData == Null || pStream->bStrdPresent == 0) {
        std::memset(pOut, 0, sizeof(lxAviRead_StrdVideo_t));
        return LX_OK;
    }
    LX_LOG(kLevelHeader, "lxAviReadCore_GetStrdData : copying StreamDdata");
    std::memcpy(pOut, pStream->StreamData, sizeof(lxAviRead_StrdVideo_t));
    *pPresent = 1;
    return LX_OK;
}

Bool lxAviReadCore_TrackIsVBR(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streamNr)
{
    const lxAviReadCore_StreamInfo_t* const pStream = FindStream(pAviInfo, streamNr);
    if (pStream == Null) {
        return 0;
    }
    const lxAviRead_Strh_t& header = pStream->Header;
    if (header.dwSampleSize == FormatOf<lxAviRead_StrfAudio_t>(pStream).nBlockAlign) {
        return header.dwSampleSize == 0 ? 1 : 0;
    }
    return static_cast<float>(header.dwRate) / static_cast<float>(header.dwScale) < 1000.0f ? 1 : 0;
}
