#include "Pads.hpp"

#include "Clock.hpp"
#include "Session.hpp"

#include <gst/audio/audio.h>
#include <gst/riff/riff-media.h>
#include <gst/riff/riff-read.h>
#include <gst/tag/tag.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

namespace lxavigst {
namespace {

// ---- Headers as the helper library for RIFF takes them ----

// The framework counts in 31 bits. A header without a rate gets that of the main header for video, or none.
void SetRate(const lxAviRead_Strh_t& header, gst_riff_strh& result)
{
    result.rate = header.dwRate;
    result.scale = header.dwScale;
    if (header.dwRate == 0 || header.dwScale == 0) {
        lxAviRead_Avih_t main = {};
        lxAviReadCore_GetAvihData(&main);
        result.rate = main.dwMicroSecPerFrame > 0 ? G_USEC_PER_SEC : 0;
        result.scale = MAX(main.dwMicroSecPerFrame, 1);
    }
    while (result.rate > G_MAXINT || result.scale > G_MAXINT) {
        result.rate >>= 1;
        result.scale = MAX(result.scale >> 1, 1);
    }
}

gst_riff_strh StreamHeader(UInt32 streamNr)
{
    lxAviRead_Strh_t header = {};
    UInt32 bytes = 0;
    lxAviReadCore_GetStrhData(streamNr, &header, &bytes);
    gst_riff_strh result = {};
    result.type = header.fccType;
    result.fcc_handler = header.fccHandler;
    result.flags = header.dwFlags;
    result.priority = header.wPriority | static_cast<guint32>(header.wLanguage) << 16;
    result.init_frames = header.dwInitialFrames;
    SetRate(header, result);
    result.start = header.dwStart;
    result.length = header.dwLength;
    result.bufsize = header.dwSuggestedBufferSize;
    result.quality = header.dwQuality;
    result.samplesize = header.dwSampleSize;
    return result;
}

struct Unref {
    void operator()(GstBuffer* pBuffer) const { gst_buffer_unref(pBuffer); }
};
using BufferPointer = std::unique_ptr<GstBuffer, Unref>;

// A chunk of the stream's header as a buffer; null when the file has none.
BufferPointer HeaderChunk(UInt32 streamNr, UInt32 kind)
{
    const std::vector<UInt8> bytes = StreamBytes(streamNr, kind);
    return BufferPointer(bytes.empty() ? nullptr : gst_buffer_new_memdup(bytes.data(), bytes.size()));
}

// The format of a stream, and the bytes behind its fixed part.
template <typename Fixed>
struct StreamFormat {
    std::unique_ptr<Fixed, decltype(&g_free)> pFixed{nullptr, g_free}; // null when the file has none
    BufferPointer pExtra;
};

// `parse` is the helper library's function for the kind of the stream. It takes the chunk.
template <typename Fixed>
StreamFormat<Fixed> ParseFormat(GstElement* pElement, UInt32 streamNr,
                                gboolean (*parse)(GstElement*, GstBuffer*, Fixed**, GstBuffer**))
{
    StreamFormat<Fixed> format;
    Fixed* pFixed = nullptr;
    GstBuffer* pExtra = nullptr;
    BufferPointer pChunk = HeaderChunk(streamNr, LX_AVIREAD_BYTES_STRF);
    if (pChunk != nullptr && parse(pElement, pChunk.release(), &pFixed, &pExtra) != FALSE) {
        format.pFixed.reset(pFixed);
        format.pExtra.reset(pExtra);
    }
    return format;
}

// What the helper library makes of the headers of a stream.
struct Format {
    GstCaps* pCaps = nullptr; // owned
    char* pCodec = nullptr;   // owned; the name of the codec
    Conversion conversion;
};

// ---- Video ----

GstCaps* UnknownVideo(UInt32 compression)
{
    return gst_caps_new_simple("video/x-avi-unknown", "fourcc", G_TYPE_INT, static_cast<gint>(compression), nullptr);
}

// The shape of the pixels follows from that of the whole picture and the size of its frame.
void AddPixelAspect(GstCaps* pCaps, UInt32 streamNr)
{
    // offsets in "vprp": two 16-bit numbers, the height first; then the size of the frame
    constexpr size_t kAspect = 20;
    constexpr size_t kWidth = 24;
    constexpr size_t kHeight = 28;
    const std::vector<UInt8> bytes = StreamBytes(streamNr, LX_AVIREAD_BYTES_VPRP);
    if (bytes.size() < kHeight + 4) {
        return;
    }
    const guint64 aspectHeight = GST_READ_UINT16_LE(bytes.data() + kAspect);
    const guint64 aspectWidth = GST_READ_UINT16_LE(bytes.data() + kAspect + 2);
    const guint64 numerator = aspectWidth * GST_READ_UINT32_LE(bytes.data() + kHeight);
    const guint64 denominator = aspectHeight * GST_READ_UINT32_LE(bytes.data() + kWidth);
    const guint64 divisor =
        gst_util_greatest_common_divisor_int64(static_cast<gint64>(numerator), static_cast<gint64>(denominator));
    if (divisor == 0 || numerator == 0 || denominator == 0 || numerator / divisor > G_MAXINT ||
        denominator / divisor > G_MAXINT) {
        return;
    }
    gst_caps_set_simple(pCaps, "pixel-aspect-ratio", GST_TYPE_FRACTION, static_cast<gint>(numerator / divisor),
                        static_cast<gint>(denominator / divisor), nullptr);
}

bool IsUncompressed(const GstCaps* pCaps)
{
    return gst_structure_has_name(gst_caps_get_structure(pCaps, 0), "video/x-raw") != FALSE;
}

// Uncompressed pictures in RGB stand from bottom to top, in rows of whole 32-bit words; those with a negative height stand
// from top to bottom.
guint RowsToTurn(const GstCaps* pCaps, const gst_riff_strf_vids& format, bool topDown)
{
    const guint64 rowBytes = (guint64{format.width} * format.bit_cnt + 31) / 32 * 4;
    return IsUncompressed(pCaps) && format.compression == 0 && !topDown && rowBytes <= G_MAXINT
               ? static_cast<guint>(rowBytes)
               : 0;
}

Format VideoFormat(GstElement* pElement, UInt32 streamNr)
{
    Format format;
    const auto stated = ParseFormat(pElement, streamNr, gst_riff_parse_strf_vids);
    gst_riff_strf_vids* const pFixed = stated.pFixed.get();
    if (pFixed == nullptr) {
        return format;
    }
    const auto height = static_cast<gint32>(pFixed->height);
    const bool topDown = height < 0 && height != G_MININT32;
    pFixed->height = topDown ? static_cast<guint32>(-height) : pFixed->height;
    gst_riff_strh header = StreamHeader(streamNr);
    const BufferPointer pData = HeaderChunk(streamNr, LX_AVIREAD_BYTES_STRD);
    format.pCaps = gst_riff_create_video_caps(pFixed->compression, &header, pFixed, stated.pExtra.get(), pData.get(),
                                              &format.pCodec);
    if (format.pCaps == nullptr) {
        format.pCaps = UnknownVideo(pFixed->compression);
    }
    format.conversion.rowBytes = RowsToTurn(format.pCaps, *pFixed, topDown);
    if (IsUncompressed(format.pCaps)) {
        gst_caps_set_simple(format.pCaps, "pixel-aspect-ratio", GST_TYPE_FRACTION, 1, 1, nullptr);
    }
    AddPixelAspect(format.pCaps, streamNr);
    return format;
}

// DV with its audio inside.
Format InterleavedFormat(UInt32 streamNr)
{
    Format format;
    gst_riff_strh header = StreamHeader(streamNr);
    gst_riff_strf_iavs unused = {};
    format.pCaps = gst_riff_create_iavs_caps(header.fcc_handler, &header, &unused, nullptr, nullptr, &format.pCodec);
    return format;
}

// ---- Audio ----

GstCaps* UnknownAudio(guint16 tag)
{
    return gst_caps_new_simple("audio/x-avi-unknown", "codec_id", G_TYPE_INT, static_cast<gint>(tag), nullptr);
}

// Whether the mask of an extensible format names as many speakers as there are channels. Other formats have no mask.
bool MaskFits(const gst_riff_strf_auds& format, UInt32 streamNr)
{
    constexpr guint16 kExtensible = 0xFFFE;
    constexpr size_t kMask = 20; // its offset in the format
    const std::vector<UInt8> bytes = StreamBytes(streamNr, LX_AVIREAD_BYTES_STRF);
    if (format.format != kExtensible) {
        return true;
    }
    return bytes.size() >= kMask + 4 &&
           __builtin_popcount(GST_READ_UINT32_LE(bytes.data() + kMask)) == static_cast<int>(format.channels);
}

// `places` is where each channel goes; -1 behind the last one.
std::vector<guint> MovedChannels(const gint (&places)[18], guint channels)
{
    std::vector<guint> moved;
    bool same = true;
    for (guint i = 0; i < std::min(channels, 18u); ++i) {
        if (places[i] < 0 || static_cast<guint>(places[i]) >= channels) {
            return {};
        }
        moved.push_back(static_cast<guint>(places[i]));
        same = same && moved.back() == i;
    }
    return same ? std::vector<guint>{} : moved;
}

void NoteSamples(const GstCaps* pCaps, const gint (&places)[18], Conversion& conversion)
{
    GstAudioInfo info;
    if (gst_structure_has_name(gst_caps_get_structure(pCaps, 0), "audio/x-raw") == FALSE ||
        gst_audio_info_from_caps(&info, pCaps) == FALSE) {
        return;
    }
    conversion.sampleBytes = static_cast<guint>(GST_AUDIO_INFO_BPF(&info));
    conversion.rate = static_cast<guint>(GST_AUDIO_INFO_RATE(&info));
    conversion.channelPlaces = MovedChannels(places, static_cast<guint>(GST_AUDIO_INFO_CHANNELS(&info)));
}

Format AudioFormat(GstElement* pElement, UInt32 streamNr)
{
    Format format;
    const auto stated = ParseFormat(pElement, streamNr, gst_riff_parse_strf_auds);
    gst_riff_strf_auds* const pFixed = stated.pFixed.get();
    if (pFixed == nullptr) {
        return format;
    }
    gst_riff_strh header = StreamHeader(streamNr);
    const BufferPointer pData = HeaderChunk(streamNr, LX_AVIREAD_BYTES_STRD);
    gint places[18];
    std::fill(std::begin(places), std::end(places), -1);
    format.pCaps = gst_riff_create_audio_caps(pFixed->format, &header, pFixed, stated.pExtra.get(), pData.get(),
                                              &format.pCodec, MaskFits(*pFixed, streamNr) ? places : nullptr);
    if (format.pCaps == nullptr) {
        format.pCaps = UnknownAudio(pFixed->format);
    }
    NoteSamples(format.pCaps, places, format.conversion);
    return format;
}

// ---- Subtitles ----

Format SubtitleFormat(UInt32 streamNr)
{
    Format format;
    const bool bitmaps = StreamHeader(streamNr).type == LX_AVIREAD_FOURCC('v', 'i', 'd', 's');
    format.pCaps = gst_caps_new_empty_simple(bitmaps ? "subpicture/x-xsub" : "application/x-subtitle-avi");
    return format;
}

// ---- Streams ----

Format FormatOf(GstElement* pElement, UInt32 streamNr, UInt32 kind)
{
    switch (kind) {
    case LX_AVIREAD_STREAM_VIDEO:
        return StreamHeader(streamNr).type == LX_AVIREAD_FOURCC('i', 'a', 'v', 's') ? InterleavedFormat(streamNr)
                                                                                    : VideoFormat(pElement, streamNr);
    case LX_AVIREAD_STREAM_AUDIO: return AudioFormat(pElement, streamNr);
    default: return SubtitleFormat(streamNr);
    }
}

const char* CodecTag(UInt32 kind)
{
    switch (kind) {
    case LX_AVIREAD_STREAM_VIDEO: return GST_TAG_VIDEO_CODEC;
    case LX_AVIREAD_STREAM_AUDIO: return GST_TAG_AUDIO_CODEC;
    default: return GST_TAG_SUBTITLE_CODEC;
    }
}

GstTagList* StreamTags(UInt32 streamNr, UInt32 kind, const char* pCodec)
{
    GstTagList* const pTags = gst_tag_list_new_empty();
    if (pCodec != nullptr) {
        gst_tag_list_add(pTags, GST_TAG_MERGE_REPLACE, CodecTag(kind), pCodec, nullptr);
    }
    lxAviRead_StreamSummary_t summary = {};
    lxAviReadCore_GetStreamSummary(streamNr, &summary);
    const guint64 bitRate = summary.uiDurationUsec > 0
                                ? gst_util_uint64_scale(summary.uiBytes, 8 * G_USEC_PER_SEC, summary.uiDurationUsec)
                                : 0;
    if (bitRate > 0 && bitRate <= G_MAXUINT) {
        gst_tag_list_add(pTags, GST_TAG_MERGE_REPLACE, GST_TAG_BITRATE, static_cast<guint>(bitRate), nullptr);
    }
    std::vector<UInt8> name = StreamBytes(streamNr, LX_AVIREAD_BYTES_STRN);
    name.push_back(0);
    if (char* const pTitle =
            gst_tag_freeform_string_to_utf8(reinterpret_cast<const gchar*>(name.data()), -1, nullptr)) {
        gst_tag_list_add(pTags, GST_TAG_MERGE_REPLACE, GST_TAG_TITLE, pTitle, nullptr);
        g_free(pTitle);
    }
    return pTags;
}

// Whether the library delivers the stream: the main video stream, eight audio tracks, all subtitles.
bool IsDelivered(UInt32 streamNr, UInt32 kind)
{
    const lxAviReadCore_AviInfo_t& info = *lxAviReadCore_GetAviInfo();
    switch (kind) {
    case LX_AVIREAD_STREAM_VIDEO: return static_cast<Int32>(streamNr) == info.videoStreamNr;
    case LX_AVIREAD_STREAM_AUDIO: return info.TrackNumber[streamNr] < LX_AVIREAD_AUDIO_TRACKS;
    default: return kind == LX_AVIREAD_STREAM_SUBTITLE;
    }
}

Stream MakeStream(GstElement* pElement, UInt32 streamNr, UInt32 kind)
{
    Format format = FormatOf(pElement, streamNr, kind);
    Stream stream = {};
    stream.number = streamNr;
    stream.kind = kind;
    stream.pCaps = format.pCaps;
    stream.conversion = format.conversion;
    stream.allKeyFrames = lxAviReadCore_HasOnlyKeyFrames(streamNr) != 0;
    stream.hasTimes = kind != LX_AVIREAD_STREAM_SUBTITLE && HasTimes(streamNr);
    stream.begin = lxAviReadCore_GetStreamTimeNsec(streamNr, 0, 0);
    NoteEnd(stream);
    if (stream.pCaps != nullptr) {
        stream.pTags = StreamTags(streamNr, kind, format.pCodec);
    }
    g_free(format.pCodec);
    return stream;
}

const char* TemplateOf(const Stream& stream)
{
    switch (stream.kind) {
    case LX_AVIREAD_STREAM_VIDEO: return "video_%u";
    case LX_AVIREAD_STREAM_AUDIO: return "audio_%u";
    default:
        return gst_structure_has_name(gst_caps_get_structure(stream.pCaps, 0), "subpicture/x-xsub") != FALSE
                   ? "subpicture_%u"
                   : "subtitle_%u";
    }
}

void SendStreamStart(GstElement* pElement, const Stream& stream, guint groupId)
{
    gchar* const pId = gst_pad_create_stream_id_printf(stream.pPad, pElement, "%03u", stream.number);
    const GstStreamFlags flags =
        stream.kind == LX_AVIREAD_STREAM_SUBTITLE ? GST_STREAM_FLAG_SPARSE : GST_STREAM_FLAG_NONE;
    GstEvent* const pEvent = gst_event_new_stream_start(pId);
    gst_event_set_group_id(pEvent, groupId);
    gst_event_set_stream_flags(pEvent, flags);
    g_free(pId);
    gst_pad_push_event(stream.pPad, pEvent);
}

void AddTemplate(GstElementClass* pClass, const char* pName, GstCaps* pCaps)
{
    gst_element_class_add_pad_template(pClass, gst_pad_template_new(pName, GST_PAD_SRC, GST_PAD_SOMETIMES, pCaps));
    gst_caps_unref(pCaps);
}

} // namespace

void NoteEnd(Stream& stream)
{
    const StreamEnd end = EndOf(stream.number);
    stream.end = end.time;
    stream.endIsCounted = end.counted;
}

void AddTemplates(GstElementClass* pClass)
{
    gst_riff_init();
    GstCaps* const pVideo = gst_riff_create_video_template_caps();
    gst_caps_append(pVideo, gst_riff_create_iavs_template_caps());
    gst_caps_append(pVideo, gst_caps_new_empty_simple("video/x-avi-unknown"));
    GstCaps* const pAudio = gst_riff_create_audio_template_caps();
    gst_caps_append(pAudio, gst_caps_new_empty_simple("audio/x-avi-unknown"));
    AddTemplate(pClass, "video_%u", pVideo);
    AddTemplate(pClass, "audio_%u", pAudio);
    AddTemplate(pClass, "subtitle_%u", gst_caps_new_empty_simple("application/x-subtitle-avi"));
    AddTemplate(pClass, "subpicture_%u", gst_caps_new_empty_simple("subpicture/x-xsub"));
}

std::vector<Stream> MakeStreams(GstElement* pElement, bool videoIsEmpty)
{
    const lxAviReadCore_AviInfo_t& info = *lxAviReadCore_GetAviInfo();
    std::vector<Stream> streams;
    for (UInt32 streamNr = 0; streamNr < LX_AVIREAD_STREAMS; ++streamNr) {
        const lxAviReadCore_StreamInfo_t* const pInfo = info.StreamInfo[streamNr];
        if (pInfo == nullptr || !IsDelivered(streamNr, pInfo->StreamType) ||
            (videoIsEmpty && pInfo->StreamType == LX_AVIREAD_STREAM_VIDEO)) {
            continue;
        }
        if (Stream stream = MakeStream(pElement, streamNr, pInfo->StreamType); stream.pCaps != nullptr) {
            streams.push_back(std::move(stream));
        }
    }
    return streams;
}

void AddPads(GstElement* pElement, std::vector<Stream>& streams, guint groupId, const PadFunctions& functions)
{
    std::vector<std::string> used;
    for (Stream& stream : streams) {
        const char* const pTemplate = TemplateOf(stream);
        const auto number = static_cast<guint>(std::count(used.begin(), used.end(), pTemplate));
        used.emplace_back(pTemplate);
        const std::string name = std::string(pTemplate, std::strlen(pTemplate) - 2) + std::to_string(number);
        stream.pPad = gst_pad_new_from_template(gst_element_get_pad_template(pElement, pTemplate), name.c_str());
        gst_pad_set_event_function(stream.pPad, functions.pfnEvent);
        gst_pad_set_query_function(stream.pPad, functions.pfnQuery);
        gst_pad_use_fixed_caps(stream.pPad);
        gst_pad_set_active(stream.pPad, TRUE);
        SendStreamStart(pElement, stream, groupId);
        gst_pad_set_caps(stream.pPad, stream.pCaps);
        gst_object_ref(stream.pPad);
        gst_element_add_pad(pElement, stream.pPad);
    }
}

void RemovePads(GstElement* pElement, std::vector<Stream>& streams)
{
    for (Stream& stream : streams) {
        if (stream.pPad != nullptr) {
            gst_element_remove_pad(pElement, stream.pPad);
            gst_object_unref(stream.pPad);
        }
        gst_caps_unref(stream.pCaps);
        gst_tag_list_unref(stream.pTags);
    }
    streams.clear();
}

// ---- The texts of the file ----

namespace {

// The texts as a list of chunks, as the helper library takes them.
std::vector<UInt8> InfoList()
{
    std::vector<UInt8> list;
    std::vector<char> text(LX_AVIREAD_KEPT_BYTES + 2); // with the zero, and a pad byte
    UInt32 code = 0;
    for (UInt32 i = 0; (code = lxAviReadCore_GetFileTextCode(i)) != 0; ++i) {
        lxAviReadCore_GetFileText(code, text.data(), LX_AVIREAD_KEPT_BYTES + 1);
        const auto size = static_cast<UInt32>(std::strlen(text.data()) + 1);
        for (const UInt32 word : {code, size}) {
            for (UInt32 shift = 0; shift < 32; shift += 8) {
                list.push_back(static_cast<UInt8>(word >> shift));
            }
        }
        list.insert(list.end(), text.data(), text.data() + size + size % 2);
    }
    return list;
}

} // namespace

GstTagList* FileTags(GstElement* pElement)
{
    GstTagList* pTags = nullptr;
    const std::vector<UInt8> list = InfoList();
    if (!list.empty()) {
        GstBuffer* const pList = gst_buffer_new_memdup(list.data(), list.size());
        gst_riff_parse_info(pElement, pList, &pTags);
        gst_buffer_unref(pList);
    }
    pTags = pTags != nullptr ? pTags : gst_tag_list_new_empty();
    gst_tag_list_set_scope(pTags, GST_TAG_SCOPE_GLOBAL);
    gst_tag_list_add(pTags, GST_TAG_MERGE_REPLACE, GST_TAG_CONTAINER_FORMAT, "AVI", nullptr);
    return pTags;
}

} // namespace lxavigst
