#include "Codecs.hpp"

#include "Output.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>

namespace lxavi {

namespace {

struct NamedCoding {
    const char* code; // lower case
    Coding coding;
};

constexpr NamedCoding kVideoCodings[] = {
    {"mjpg", Coding::Mjpeg},  {"ijpg", Coding::Mjpeg},  {"xvid", Coding::Mpeg4},        {"divx", Coding::Mpeg4},
    {"dx50", Coding::Mpeg4},  {"fmp4", Coding::Mpeg4},  {"mp4v", Coding::Mpeg4},        {"mp4s", Coding::Mpeg4},
    {"h264", Coding::H264},   {"x264", Coding::H264},   {"avc1", Coding::H264},         {"mpg1", Coding::Mpeg12},
    {"mpg2", Coding::Mpeg12}, {"mpeg", Coding::Mpeg12}, {"dib ", Coding::Uncompressed},
};

Coding VideoCoding(UInt32 compression)
{
    if (compression == 0) {
        return Coding::Uncompressed;
    }
    std::string text = FourCCText(compression);
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const auto* const found =
        std::find_if(std::begin(kVideoCodings), std::end(kVideoCodings), [&](const auto& c) { return text == c.code; });
    return found != std::end(kVideoCodings) ? found->coding : Coding::Other;
}

std::string VideoExtension(Coding coding)
{
    switch (coding) {
    case Coding::Mjpeg: return "mjpeg";
    case Coding::Mpeg4: return "m4v";
    case Coding::H264: return "h264";
    case Coding::Mpeg12: return "mpv";
    default: return "bin";
    }
}

StreamCoding AudioCoding(UInt16 tag)
{
    switch (tag) {
    case LX_AVIREAD_FORMAT_PCM: return {Coding::Pcm, "PCM", "wav"};
    case LX_AVIREAD_FORMAT_IEEE_FLOAT: return {Coding::Pcm, "PCM float", "wav"};
    case LX_AVIREAD_FORMAT_MPEG: return {Coding::Mp2, "MPEG audio", "mp2"};
    case LX_AVIREAD_FORMAT_MPEG_LAYER3: return {Coding::Mp3, "MP3", "mp3"};
    case LX_AVIREAD_FORMAT_AAC: return {Coding::Aac, "AAC", "aac"};
    case LX_AVIREAD_FORMAT_AC3: return {Coding::Ac3, "AC-3", "ac3"};
    default: return {Coding::Other, fmt::format("format 0x{:04X}", tag), "bin"};
    }
}

template <typename Record>
Record FormatAs(const lxAviReadCore_StreamInfo_t& stream)
{
    Record record = {};
    if (stream.Format != nullptr) {
        std::memcpy(&record, stream.Format, sizeof record);
    }
    return record;
}

} // namespace

lxAviRead_StrfVideo_t VideoFormatOf(const lxAviReadCore_StreamInfo_t& stream)
{
    return FormatAs<lxAviRead_StrfVideo_t>(stream);
}

lxAviRead_StrfAudio_t AudioFormatOf(const lxAviReadCore_StreamInfo_t& stream)
{
    return FormatAs<lxAviRead_StrfAudio_t>(stream);
}

const char* TypeName(UInt32 streamType)
{
    switch (streamType) {
    case LX_AVIREAD_STREAM_AUDIO: return "audio";
    case LX_AVIREAD_STREAM_VIDEO: return "video";
    case LX_AVIREAD_STREAM_SUBTITLE: return "subtitle";
    default: return "none";
    }
}

bool IsUnknown(const lxAviReadCore_StreamInfo_t& stream)
{
    return stream.StreamType == LX_AVIREAD_STREAM_NONE && stream.Header.fccType != 0;
}

bool IsForSubtitles(const lxAviReadCore_StreamInfo_t& stream)
{
    const auto isOne = [](UInt32 code) {
        std::string text = FourCCText(code);
        std::transform(text.begin(), text.end(), text.begin(),
                       [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
        return text == "DXSB" || text == "DXSA";
    };
    return isOne(stream.Header.fccHandler) || isOne(VideoFormatOf(stream).biCompression);
}

std::string FrameRateConflict(const Reader& reader)
{
    const int number = reader.State().videoStreamNr;
    lxAviRead_Avih_t avih = {};
    static_cast<void>(lxAviReadCore_GetAvihData(&avih));
    if (number < 0 || avih.dwMicroSecPerFrame == 0) {
        return "";
    }
    const lxAviRead_Strh_t& header = reader.Stream(static_cast<UInt32>(number))->Header;
    const double byStream = header.dwRate != 0 ? 1e6 * header.dwScale / header.dwRate : 0.0;
    const double byMain = avih.dwMicroSecPerFrame;
    if (byStream == 0.0 || std::abs(byStream - byMain) <= byStream / 1000) {
        return "";
    }
    return fmt::format("the main header says {} microseconds per frame, the video stream {:.3f}",
                       avih.dwMicroSecPerFrame, byStream);
}

StreamCoding CodingOf(const lxAviReadCore_StreamInfo_t& stream)
{
    constexpr UInt32 kTxts = 0x73747874;
    switch (stream.StreamType) {
    case LX_AVIREAD_STREAM_AUDIO: return AudioCoding(AudioFormatOf(stream).wFormatTag);
    case LX_AVIREAD_STREAM_VIDEO: {
        const UInt32 compression = VideoFormatOf(stream).biCompression;
        const Coding coding = VideoCoding(compression);
        return {coding, compression == 0 ? "uncompressed" : FourCCText(compression), VideoExtension(coding)};
    }
    case LX_AVIREAD_STREAM_SUBTITLE:
        return stream.Header.fccType == kTxts ? StreamCoding{Coding::Text, "text", "txt"}
                                              : StreamCoding{Coding::Bitmap, "bitmap", "bin"};
    default: return {Coding::Other, "unknown", "bin"};
    }
}

} // namespace lxavi
