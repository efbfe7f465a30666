#include "Codecs.hpp"

#include "Output.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>

namespace lxavi {

namespace {

struct VideoCodec {
    const char* codes; // lower case, separated by spaces
    Coding coding;
    const char* name;
};

constexpr VideoCodec kVideoCodecs[] = {
    {"mjpg ijpg avrn dmb1", Coding::Mjpeg, "Motion JPEG"},
    {"xvid divx dx50 fmp4 mp4v mp4s 3iv2 3ivx rmp4 m4s2 blz0 sedg", Coding::Mpeg4, "MPEG-4 part 2"},
    {"h264 x264 avc1 davc vssh", Coding::H264, "H.264"},
    {"h265 hevc hvc1 hev1 x265", Coding::H265, "H.265"},
    {"mpg1 mpeg", Coding::Mpeg12, "MPEG-1"},
    {"mpg2 mp2v", Coding::Mpeg12, "MPEG-2"},
    {"dvsd dvhd dvsl dv25 dv50 dvcp", Coding::Dv, "DV"},
    {"mpg4 mp41", Coding::Other, "MS MPEG-4 v1"},
    {"mp42 div2", Coding::Other, "MS MPEG-4 v2"},
    {"mp43 div3 div4 col1 ap41", Coding::Other, "MS MPEG-4 v3"},
    {"wmv1", Coding::Other, "Windows Media Video 7"},
    {"wmv2", Coding::Other, "Windows Media Video 8"},
    {"wmv3", Coding::Other, "Windows Media Video 9"},
    {"wvc1", Coding::Other, "VC-1"},
    {"h261", Coding::Other, "H.261"},
    {"h263 u263 i263", Coding::Other, "H.263"},
    {"flv1", Coding::Other, "Sorenson H.263"},
    {"vp31 vp30", Coding::Other, "VP3"},
    {"vp60 vp61 vp62", Coding::Other, "VP6"},
    {"vp70", Coding::Other, "VP7"},
    {"vp80", Coding::Other, "VP8"},
    {"vp90", Coding::Other, "VP9"},
    {"av01", Coding::Other, "AV1"},
    {"theo", Coding::Other, "Theora"},
    {"cvid", Coding::Other, "Cinepak"},
    {"iv31 iv32", Coding::Other, "Indeo 3"},
    {"iv41", Coding::Other, "Indeo 4"},
    {"iv50", Coding::Other, "Indeo 5"},
    {"msvc cram wham", Coding::Other, "MS Video 1"},
    {"mrle rle ", Coding::Other, "run-length coded"},
    {"aasc", Coding::Other, "Autodesk run-length coded"},
    {"ljpg", Coding::Other, "lossless JPEG"},
    {"zlib", Coding::Other, "LCL ZLIB"},
    {"mszh", Coding::Other, "LCL MSZH"},
    {"asv1", Coding::Other, "ASUS V1"},
    {"asv2", Coding::Other, "ASUS V2"},
    {"vcr1", Coding::Other, "ATI VCR1"},
    {"vcr2", Coding::Other, "ATI VCR2"},
    {"tm20", Coding::Other, "TrueMotion 2"},
    {"cljr", Coding::Other, "AccuPak"},
    {"sp53 sp54", Coding::Other, "SunPlus JPEG"},
    {"hfyu ffvh", Coding::Other, "HuffYUV"},
    {"ulrg ulra uly0 uly2 uly4 ulh0 ulh2", Coding::Other, "Ut Video"},
    {"ffv1", Coding::Other, "FFV1"},
    {"lags", Coding::Other, "Lagarith"},
    {"magy", Coding::Other, "MagicYUV"},
    {"tscc tsc2", Coding::Other, "TechSmith screen capture"},
    {"cscd", Coding::Other, "CamStudio"},
    {"zmbv", Coding::Other, "Zip Motion Blocks"},
    {"mjp2 mj2c", Coding::Other, "Motion JPEG 2000"},
    {"drac", Coding::Other, "Dirac"},
    {"apcn apch apcs apco", Coding::Other, "ProRes"},
    {"snow", Coding::Other, "Snow"},
    {"m8rg m8ra m8y0 m8y2 m8y4 m8ya m8g0", Coding::Other, "MagicYUV"},
    {"cfhd", Coding::Other, "CineForm"},
    {"png  mpng", Coding::Other, "PNG"},
    {"svq1", Coding::Other, "Sorenson Video 1"},
    {"svq3", Coding::Other, "Sorenson Video 3"},
    {"yuy2 uyvy yv12 i420 iyuv nv12 yvu9 y800 yvyu v210 y41p", Coding::Other, "uncompressed"},
    {"dib  rgb  raw  bgr ", Coding::Other, "uncompressed"},
};

struct AudioCodec {
    UInt16 tag;
    Coding coding;
    const char* name;
};

constexpr AudioCodec kAudioCodecs[] = {
    {0x0001, Coding::Wave, "PCM"},
    {0x0002, Coding::Wave, "MS ADPCM"},
    {0x0003, Coding::Wave, "PCM float"},
    {0x0006, Coding::Wave, "A-law"},
    {0x0007, Coding::Wave, "µ-law"},
    {0x0010, Coding::Wave, "OKI ADPCM"},
    {0x0011, Coding::Wave, "IMA ADPCM"},
    {0x0014, Coding::Wave, "G.723 ADPCM"},
    {0x0020, Coding::Wave, "Yamaha ADPCM"},
    {0x0022, Coding::Other, "TrueSpeech"},
    {0x0031, Coding::Wave, "GSM 6.10"},
    {0x0040, Coding::Wave, "G.721 ADPCM"},
    {0x0042, Coding::Other, "G.723.1"},
    {0x0045, Coding::Wave, "G.726 ADPCM"},
    {0x0050, Coding::Mp2, "MPEG audio"},
    {0x0055, Coding::Mp3, "MP3"},
    {0x0061, Coding::Wave, "Duck DK4 ADPCM"},
    {0x0062, Coding::Wave, "Duck DK3 ADPCM"},
    {0x0075, Coding::Other, "Voxware"},
    {0x00FF, Coding::Aac, "AAC"},
    {0x0130, Coding::Other, "ACELP"},
    {0x0160, Coding::Other, "Windows Media Audio 1"},
    {0x0161, Coding::Other, "Windows Media Audio 2"},
    {0x0162, Coding::Other, "Windows Media Audio Professional"},
    {0x0163, Coding::Other, "Windows Media Audio Lossless"},
    {0x0200, Coding::Wave, "Creative ADPCM"},
    {0x0270, Coding::Other, "ATRAC3"},
    {0x028F, Coding::Other, "G.722 ADPCM"},
    {0x0401, Coding::Other, "Indeo Audio"},
    {0x0402, Coding::Other, "Indeo Audio"},
    {0x1600, Coding::Aac, "AAC"},
    {0x2000, Coding::Ac3, "AC-3"},
    {0x2001, Coding::Dts, "DTS"},
    {0x5346, Coding::Other, "Flash ADPCM"},
    {0x566F, Coding::Other, "Vorbis"},
    {0x674F, Coding::Other, "Vorbis"},
    {0x6750, Coding::Other, "Vorbis"},
    {0x6751, Coding::Other, "Vorbis"},
    {0x676F, Coding::Other, "Vorbis"},
    {0x6770, Coding::Other, "Vorbis"},
    {0x6771, Coding::Other, "Vorbis"},
    {0x87AF, Coding::Other, "E-AC-3"},
    {0xA109, Coding::Other, "Speex"},
    {0xF1AC, Coding::Other, "FLAC"},
    {0xFFFE, Coding::Wave, "extensible"},
};

const char* ExtensionOf(Coding coding)
{
    switch (coding) {
    case Coding::Mjpeg: return "mjpeg";
    case Coding::Mpeg4: return "m4v";
    case Coding::H264: return "h264";
    case Coding::H265: return "h265";
    case Coding::Mpeg12: return "mpv";
    case Coding::Dv: return "dv";
    case Coding::Wave: return "wav";
    case Coding::Mp3: return "mp3";
    case Coding::Mp2: return "mp2";
    case Coding::Aac: return "aac";
    case Coding::Ac3: return "ac3";
    case Coding::Dts: return "dts";
    case Coding::Text: return "txt";
    default: return "avi";
    }
}

StreamCoding CodingNamed(Coding coding, const std::string& name) { return {coding, name, ExtensionOf(coding)}; }

std::string LowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// Small numbers are those of bitmaps.
StreamCoding VideoCoding(UInt32 compression)
{
    switch (compression) {
    case 0:
    case 3: return CodingNamed(Coding::Other, "uncompressed");
    case 1:
    case 2: return CodingNamed(Coding::Other, "run-length coded");
    default: break;
    }
    const std::string code = FourCCText(compression);
    const std::string lower = LowerCase(code);
    for (const VideoCodec& codec : kVideoCodecs) {
        const std::string codes = codec.codes;
        for (size_t at = 0; at + 4 <= codes.size(); at += 5) {
            if (codes.substr(at, 4) == lower) {
                return CodingNamed(codec.coding, codec.name);
            }
        }
    }
    return CodingNamed(Coding::Other, code);
}

StreamCoding AudioCoding(UInt16 tag)
{
    const auto* const found = std::find_if(std::begin(kAudioCodecs), std::end(kAudioCodecs),
                                           [&](const AudioCodec& codec) { return codec.tag == tag; });
    return found != std::end(kAudioCodecs) ? CodingNamed(found->coding, found->name)
                                           : CodingNamed(Coding::Other, fmt::format("format 0x{:04X}", tag));
}

// What an extensible format says behind its fixed fields: the tag that it stands for.
UInt16 TagOf(const lxAviRead_StrfAudio_t& format)
{
    constexpr UInt16 kExtensible = 0xFFFE;
    constexpr size_t kSubFormat = 6; // behind valid bits and channel mask
    UInt16 tag = format.wFormatTag;
    if (tag == kExtensible && format.cbSize >= 22) {
        std::memcpy(&tag, format.uiExtension + kSubFormat, sizeof tag);
    }
    return tag;
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

bool IsInterleaved(const lxAviReadCore_StreamInfo_t& stream)
{
    constexpr UInt32 kIavs = 0x73766169;
    return stream.Header.fccType == kIavs && stream.StreamType == LX_AVIREAD_STREAM_VIDEO;
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
    case LX_AVIREAD_STREAM_AUDIO: {
        const lxAviRead_StrfAudio_t format = AudioFormatOf(stream);
        const StreamCoding coding = AudioCoding(format.wFormatTag);
        return {coding.coding, AudioCoding(TagOf(format)).name, coding.extension};
    }
    case LX_AVIREAD_STREAM_VIDEO:
        return IsInterleaved(stream) ? CodingNamed(Coding::Dv, "DV") : VideoCoding(VideoFormatOf(stream).biCompression);
    case LX_AVIREAD_STREAM_SUBTITLE:
        return stream.Header.fccType == kTxts ? CodingNamed(Coding::Text, "text")
                                              : CodingNamed(Coding::Bitmap, "bitmap");
    default: return CodingNamed(Coding::Other, "unknown");
    }
}

std::string KindOf(const lxAviReadCore_StreamInfo_t& stream)
{
    if (IsInterleaved(stream)) {
        return "DV type 1: video with its audio inside";
    }
    return IsUnknown(stream) ? fmt::format("unknown: {}", FourCCText(stream.Header.fccType))
                             : std::string(TypeName(stream.StreamType));
}

} // namespace lxavi
