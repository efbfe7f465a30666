// lxavi info: shows container, texts, streams, segments, index, and the touched quirks.

#include "Info.hpp"

#include "Codecs.hpp"
#include "Commands.hpp"
#include "FileTexts.hpp"
#include "MediaData.hpp"
#include "Quirks.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace lxavi {

namespace {

Json OrNull(UInt64 value) { return value != 0 ? Json(value) : Json(); }

Json BitRate(UInt64 bytes, UInt64 usec)
{
    return bytes != 0 && usec != 0
               ? Json(static_cast<UInt64>(std::llround(static_cast<double>(bytes) * 8e6 / static_cast<double>(usec))))
               : Json();
}

const char* OriginName(UInt32 origin)
{
    switch (origin) {
    case LX_AVIREAD_SUMMARY_INDEX: return "the index";
    case LX_AVIREAD_SUMMARY_MEDIA_DATA: return "the media data";
    default: return "the header";
    }
}

// When a stream begins, by its header.
UInt64 StartUsec(const lxAviRead_Strh_t& header)
{
    return header.dwRate != 0 ? static_cast<UInt64>(std::llround(1e6 * header.dwStart * header.dwScale / header.dwRate))
                              : 0;
}

lxAviRead_StreamSummary_t SummaryOf(UInt32 number)
{
    lxAviRead_StreamSummary_t summary = {};
    static_cast<void>(lxAviReadCore_GetStreamSummary(number, &summary));
    return summary;
}

// ---- Streams ----

void AddVideo(Json& json, const Reader& reader, UInt32 number)
{
    const lxAviReadCore_StreamInfo_t& stream = *reader.Stream(number);
    const lxAviRead_StrfVideo_t format = VideoFormatOf(stream);
    const lxAviRead_Strh_t& header = stream.Header;
    json["main"] = static_cast<int>(number) == reader.State().videoStreamNr;
    json["width"] = format.biWidth;
    json["height"] = std::abs(static_cast<std::int64_t>(format.biHeight));
    json["row_order"] = format.biHeight < 0 ? "top row first" : "bottom row first, where a picture is uncompressed";
    json["bits_per_pixel"] = format.biBitCount;
    json["frame_rate_fps"] = header.dwScale != 0 ? Json(static_cast<double>(header.dwRate) / header.dwScale) : Json();
}

void AddAudio(Json& json, const Reader& reader, UInt32 number)
{
    const lxAviRead_StrfAudio_t format = AudioFormatOf(*reader.Stream(number));
    json["format_tag"] = format.wFormatTag;
    json["channels"] = format.nChannels;
    json["sample_rate_hz"] = format.nSamplesPerSec;
    json["stated_bps"] = UInt64{format.nAvgBytesPerSec} * 8;
    json["block_bytes"] = format.nBlockAlign;
    json["bits_per_sample"] = format.wBitsPerSample;
    json["variable_bit_rate"] =
        lxAviReadCore_TrackIsVBR(const_cast<lxAviReadCore_AviInfo_t*>(&reader.State()), number) != 0;
}

Json StreamReport(const Reader& reader, UInt32 number)
{
    const lxAviReadCore_StreamInfo_t& stream = *reader.Stream(number);
    const lxAviRead_StreamSummary_t summary = SummaryOf(number);
    const UInt32 track = reader.State().TrackNumber[number];
    Json json;
    json["type"] = TypeName(stream.StreamType);
    json["kind"] = KindOf(stream);
    json["track"] = stream.StreamType == LX_AVIREAD_STREAM_NONE || track == 0xFFFFFFFFu ? Json() : Json(track);
    json["codec"] = CodingOf(stream).name;
    json["handler"] = FourCCText(stream.Header.fccHandler);
    if (stream.StreamType == LX_AVIREAD_STREAM_VIDEO) {
        json["compression"] = FourCCText(VideoFormatOf(stream).biCompression);
        AddVideo(json, reader, number);
    } else if (stream.StreamType == LX_AVIREAD_STREAM_AUDIO) {
        AddAudio(json, reader, number);
    }
    json["start_us"] = StartUsec(stream.Header);
    json["duration_us"] = OrNull(summary.uiDurationUsec);
    json["chunks"] = OrNull(summary.uiChunks);
    json["payload_bytes"] = OrNull(summary.uiBytes);
    json["bit_rate_bps"] = BitRate(summary.uiBytes, summary.uiDurationUsec);
    json["counted_in"] = summary.eOrigin != LX_AVIREAD_SUMMARY_NONE ? Json(OriginName(summary.eOrigin)) : Json();
    json["header"] = {{"rate", stream.Header.dwRate},
                      {"scale", stream.Header.dwScale},
                      {"start", stream.Header.dwStart},
                      {"length", stream.Header.dwLength},
                      {"sample_bytes", stream.Header.dwSampleSize},
                      {"has_stream_data", stream.bStrdPresent != 0}};
    json["index_chunks"] =
        stream.IndxChunk.pAviSuperIndexEntry != nullptr ? stream.IndxChunk.aviIndxcommonSection.uiEntriesInUse : 0;
    return json;
}

// ---- The index ----

std::string Idx1Kind(const Reader& reader, const SourceFile* file, const RiffScan* scan)
{
    IndexRecord first = {};
    if (file == nullptr || !scan->idx1 || !RecordReader(*file, {*scan->idx1}).Next(first)) {
        return "idx1";
    }
    return first.offset >= reader.State().moviOffset ? "idx1, absolute offsets" : "idx1, relative offsets";
}

bool HasOneLevelIndex(const RiffScan* scan)
{
    return scan != nullptr && std::any_of(scan->indexes.begin(), scan->indexes.end(),
                                          [](const ScannedIndex& index) { return index.id == Code("indx"); });
}

// The index that the table comes from, or else the one that the file has.
std::string IndexKind(const Reader& reader, UInt32 source, const SourceFile* file, const RiffScan* scan)
{
    switch (source) {
    case LX_AVIREAD_TABLE_IDX1: return Idx1Kind(reader, file, scan);
    case LX_AVIREAD_TABLE_SUPER_INDEX: return "OpenDML, super index";
    case LX_AVIREAD_TABLE_ONE_LEVEL_INDEX: return "OpenDML, one level";
    case LX_AVIREAD_TABLE_MEDIA_DATA: return "none used: the table comes from the media data";
    default: break;
    }
    if (reader.State().bIndxPresent != 0) {
        return HasOneLevelIndex(scan) ? "OpenDML, one level" : "OpenDML, super index";
    }
    return reader.State().idx1Size != 0 ? Idx1Kind(reader, file, scan) : "none";
}

// Why nothing can be sought with the index; empty when something can.
std::string Obstacle(const Reader& reader, const RiffScan* scan, UInt32 result)
{
    if (!reader.HasTable()) {
        return reader.State().videoStreamNr < 0 ? "there is no video stream" : Failure("", result).what();
    }
    const bool isDefault = reader.Settings().defaultMode;
    if (scan == nullptr || reader.State().bIndxPresent == 0 || reader.IsRebuilt()) {
        return "";
    }
    const UInt32 misread = isDefault ? scan->IndexChunks() - scan->IndexesAt36() : scan->IndexesAt36();
    return misread > 0 ? "index records are read one word off" : "";
}

Json IndexReport(const Reader& reader, const SourceFile* file, const RiffScan* scan, UInt32 result)
{
    const lxAviReadCore_AviInfo_t& state = reader.State();
    lxAviRead_TableSummary_t table = {};
    static_cast<void>(lxAviReadCore_GetTableSummary(&table));
    lxAviRead_SetPositionRangeInfo_t range = {};
    static_cast<void>(lxAviReadCore_GetSetPositionRangeInfo(&range));
    const bool isPipe = lxalAviRead_FileSeekPossible == 0;
    const std::string obstacle = isPipe ? "nothing can be sought in a pipe" : Obstacle(reader, scan, result);
    Json json;
    json["kind"] = isPipe ? Json() : Json(IndexKind(reader, table.eSource, file, scan));
    json["usable_for_seeking"] = obstacle.empty();
    json["obstacle"] = obstacle.empty() ? Json("none") : Json(obstacle);
    json["idx1_records"] = isPipe ? Json() : Json(state.idx1Size / 16);
    json["key_frames"] = OrNull(table.uiKeyFrames);
    json["key_frames_stored"] = reader.Table().size();
    json["step"] = OrNull(table.uiStep);
    json["leaves"] = state.KeyFramesListAsArrayLength;
    json["table_bytes"] =
        UInt64{state.KeyFramesListAsArrayLength} * (sizeof(lxAviReadCore_KeyFrameLeaf_t) + sizeof(void*));
    json["budget_bytes"] = state.memoryUsageLimit;
    json["first_key_frame_ms"] = reader.HasTable() ? Json(range.uiStartTimeMsec) : Json();
    json["last_key_frame_ms"] = reader.HasTable() ? Json(range.uiEndTimeMsec) : Json();
    return json;
}

// ---- The container ----

// The quirks that the file touches. Default mode keeps them all; format mode repairs most of them.
Json QuirkReport(const Reader& reader, const SourceFile& file, const RiffScan& scan)
{
    Json json = Json::array();
    for (const TouchedQuirk& quirk : TouchedQuirks(reader, file, scan)) {
        const QuirkTitle& title = TitleOf(quirk.number);
        const bool repaired = title.repaired && !reader.Settings().defaultMode;
        json.push_back(fmt::format("{} {}{}", QuirkName(quirk.number), title.title, repaired ? " (repaired)" : ""));
    }
    return json;
}

Json SegmentReport(const Reader& reader)
{
    Json json = Json::array();
    for (const lxAviReadCore_AvixRiff_t* segment = FirstSegment(reader); segment != nullptr;
         segment = segment->pNextAvix) {
        json.push_back({{"offset", segment->moviDataOffset}, {"size_bytes", segment->moviDataSize}});
    }
    return json;
}

Json TextReport()
{
    Json json = Json::array();
    for (const NamedBytes& text : TextsOfFile()) {
        json.push_back({{"code", FourCCText(text.code)},
                        {"name", TextName(text.code)},
                        {"text", ToUtf8(text.bytes.substr(0, text.bytes.find('\0')))}});
    }
    return json;
}

// The end of the stream that ends last. In default mode streams have no summaries.
UInt64 FileDurationUsec(const Reader& reader, UInt32 frames)
{
    UInt64 usec = 0;
    for (UInt32 i = 0; i < reader.StreamCount(); ++i) {
        const UInt64 duration = SummaryOf(i).uiDurationUsec;
        usec = std::max(usec, duration != 0 ? duration + StartUsec(reader.Stream(i)->Header) : 0);
    }
    const int video = reader.State().videoStreamNr;
    if (reader.Settings().defaultMode && video >= 0) {
        usec = UInt64{lxAviReadCore_GetStreamTime(static_cast<UInt32>(video), frames, 0)} * 1000;
    }
    return usec;
}

Json ContainerReport(const Reader& reader)
{
    const lxAviReadCore_AviInfo_t& state = reader.State();
    lxAviRead_Avih_t avih = {};
    lxAviRead_OpenDmlInfo_t openDml = {};
    static_cast<void>(lxAviReadCore_GetAvihData(&avih));
    lxAviReadCore_GetOpenDmlInfo(&openDml);
    const UInt64 usec = FileDurationUsec(reader, openDml.bPresent != 0 ? openDml.uiTotalFrames : avih.dwTotalFrames);
    Json json;
    json["size_bytes"] = OrNull(reader.FileSize());
    json["container"] = openDml.bPresent != 0 || state.bIndxPresent != 0 ? "OpenDML AVI" : "AVI";
    json["duration_us"] = OrNull(usec);
    json["bit_rate_bps"] = BitRate(reader.FileSize(), usec);
    json["width"] = avih.dwWidth;
    json["height"] = std::abs(static_cast<std::int64_t>(static_cast<Int32>(avih.dwHeight)));
    json["frame_us"] = avih.dwMicroSecPerFrame;
    json["frames_in_first_list"] = avih.dwTotalFrames;
    json["frames_in_file"] = openDml.bPresent != 0 ? Json(openDml.uiTotalFrames) : Json();
    const std::string conflict = FrameRateConflict(reader);
    json["frame_rate_conflict"] = conflict.empty() ? Json("none") : Json(conflict);
    json["can_seek"] = lxalAviRead_FileSeekPossible != 0;
    return json;
}

} // namespace

Json InfoReport(const Reader& reader, UInt32 indexed)
{
    std::optional<SourceFile> file;
    std::optional<RiffScan> scan;
    if (reader.IsRegularFile()) {
        file.emplace(reader.Settings().Path());
        scan.emplace(*file);
    }
    Json report = ContainerReport(reader);
    report["texts"] = TextReport();
    report["segments"] = SegmentReport(reader);
    report["index"] = IndexReport(reader, file ? &*file : nullptr, scan ? &*scan : nullptr, indexed);
    report["quirks"] = file ? QuirkReport(reader, *file, *scan) : Json();
    Json streams = Json::array();
    for (UInt32 i = 0; i < reader.StreamCount(); ++i) {
        streams.push_back(StreamReport(reader, i));
    }
    report["streams"] = streams;
    if (lxalAviRead_FileSeekPossible == 0) {
        report["unknown_because_of_pipe"] =
            "what stands behind the headers: the index, the size, further segments, quirks";
    }
    return report;
}

int RunInfo(const Options& options)
{
    Reader reader(options);
    const UInt32 indexed = reader.BuildIndex();
    PrintReport(options, InfoReport(reader, indexed));
    return kDone;
}

} // namespace lxavi
