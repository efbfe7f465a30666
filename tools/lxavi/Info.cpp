// lxavi info: shows container, streams, segments, index, and the touched quirks.

#include "Codecs.hpp"
#include "Commands.hpp"
#include "Output.hpp"
#include "Quirks.hpp"
#include "RiffScan.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace lxavi {

namespace {

double PerSecond(const lxAviRead_Strh_t& header)
{
    return header.dwScale != 0 ? static_cast<double>(header.dwRate) / header.dwScale : 0.0;
}

Json VideoDetails(const lxAviReadCore_StreamInfo_t& stream)
{
    const lxAviRead_StrfVideo_t format = VideoFormatOf(stream);
    Json json;
    json["width"] = format.biWidth;
    json["height"] = format.biHeight;
    json["bits per pixel"] = format.biBitCount;
    json["frames per second"] = PerSecond(stream.Header);
    return json;
}

Json AudioDetails(const Reader& reader, UInt32 number, const lxAviReadCore_StreamInfo_t& stream)
{
    const lxAviRead_StrfAudio_t format = AudioFormatOf(stream);
    Json json;
    json["format tag"] = format.wFormatTag;
    json["channels"] = format.nChannels;
    json["samples per second"] = format.nSamplesPerSec;
    json["bytes per second"] = format.nAvgBytesPerSec;
    json["block align"] = format.nBlockAlign;
    json["bits per sample"] = format.wBitsPerSample;
    json["variable bit rate"] =
        lxAviReadCore_TrackIsVBR(const_cast<lxAviReadCore_AviInfo_t*>(&reader.State()), number) != 0;
    return json;
}

Json StreamReport(const Reader& reader, UInt32 number)
{
    const lxAviReadCore_StreamInfo_t& stream = *reader.Stream(number);
    Json json;
    json["type"] = TypeName(stream.StreamType);
    if (IsUnknown(stream)) {
        json["unknown type"] = FourCCText(stream.Header.fccType);
    }
    const UInt32 track = reader.State().TrackNumber[number];
    json["track"] = track == 0xFFFFFFFFu ? Json("none") : Json(track);
    json["coding"] = CodingOf(stream).name;
    json["handler"] = FourCCText(stream.Header.fccHandler);
    json["rate"] = stream.Header.dwRate;
    json["scale"] = stream.Header.dwScale;
    json["start"] = stream.Header.dwStart;
    json["length"] = stream.Header.dwLength;
    json["sample size"] = stream.Header.dwSampleSize;
    json["stream data"] = stream.bStrdPresent != 0;
    if (stream.StreamType == LX_AVIREAD_STREAM_VIDEO) {
        json.update(VideoDetails(stream));
    } else if (stream.StreamType == LX_AVIREAD_STREAM_AUDIO) {
        json.update(AudioDetails(reader, number, stream));
    }
    json["payload bytes by index"] = stream.uiStreamSize;
    if (stream.IndxChunk.pAviSuperIndexEntry != nullptr) {
        json["index chunks"] = stream.IndxChunk.aviIndxcommonSection.uiEntriesInUse;
    }
    return json;
}

struct Frames {
    UInt32 all = 0;
    UInt32 key = 0;
};

// Counts the frames of the main video stream that an index lists.
Frames CountFrames(const Reader& reader, const std::vector<ScannedRecord>& records)
{
    Frames frames;
    for (const ScannedRecord& record : records) {
        const UInt32 twocc = record.id >> 16;
        const bool video = twocc == ('d' | 'c' << 8) || twocc == ('d' | 'b' << 8) || twocc == ('_' | '_' << 8) ||
                           twocc == ('i' | 'v' << 8);
        if (video && static_cast<int>(StreamOf(record.id)) == reader.State().videoStreamNr) {
            ++frames.all;
            frames.key += record.key ? 1 : 0;
        }
    }
    return frames;
}

// Whether the library builds the table from the OpenDML index: in default mode always when there is one, in format mode
// when it covers at least as many frames as idx1.
bool IsFromOpenDml(const Reader& reader, const RiffScan& scan)
{
    const bool covers = CountFrames(reader, scan.openDml).all >= CountFrames(reader, scan.idx1).all;
    return reader.State().bIndxPresent != 0 && (reader.Settings().defaultMode || covers);
}

std::string IndexKind(const Reader& reader, const RiffScan& scan)
{
    const lxAviReadCore_AviInfo_t& state = reader.State();
    if (reader.IsRebuilt()) {
        return "none used: the table comes from the media data";
    }
    if (IsFromOpenDml(reader, scan)) {
        const bool oneLevel = std::any_of(scan.indexes.begin(), scan.indexes.end(),
                                          [](const ScannedIndex& index) { return index.id == Code("indx"); });
        return oneLevel ? "OpenDML, one level" : "OpenDML, super index";
    }
    if (state.idx1Size == 0) {
        return "none";
    }
    if (scan.idx1.empty()) {
        return "idx1";
    }
    return scan.idx1.front().offset >= state.moviOffset ? "idx1, absolute offsets" : "idx1, relative offsets";
}

std::string Usability(const Reader& reader, const RiffScan& scan, UInt32 result)
{
    if (!reader.HasTable()) {
        return fmt::format("no ({})", CodeName(result));
    }
    const UInt32 misread = reader.Settings().defaultMode ? scan.IndexChunks() - scan.IndexesAt36() : scan.IndexesAt36();
    return IsFromOpenDml(reader, scan) && misread > 0 && !reader.IsRebuilt()
               ? "no (index records are read one word off)"
               : "yes";
}

Json IndexReport(const Reader& reader, const RiffScan& scan, UInt32 result)
{
    const lxAviReadCore_AviInfo_t& state = reader.State();
    Json json;
    json["kind"] = IndexKind(reader, scan);
    json["usable for seeking"] = Usability(reader, scan, result);
    json["idx1 records"] = state.idx1Size / 16;
    const auto stored = static_cast<UInt32>(reader.Table().size());
    if (!reader.IsRebuilt()) {
        const UInt32 found = CountFrames(reader, IsFromOpenDml(reader, scan) ? scan.openDml : scan.idx1).key;
        json["key frames found"] = found;
        json["every n-th is stored"] = stored > 0 ? (found + stored - 1) / stored : 0;
    }
    json["key frames stored"] = stored;
    json["leaves"] = state.KeyFramesListAsArrayLength;
    const UInt64 used =
        UInt64{state.KeyFramesListAsArrayLength} * (sizeof(lxAviReadCore_KeyFrameLeaf_t) + sizeof(void*));
    json["table bytes"] = used;
    json["budget bytes"] = state.memoryUsageLimit;
    lxAviRead_SetPositionRangeInfo_t range = {};
    static_cast<void>(lxAviReadCore_GetSetPositionRangeInfo(&range));
    if (reader.HasTable()) {
        json["range"] = Duration(range.uiStartTimeMsec) + " to " + Duration(range.uiEndTimeMsec);
    }
    return json;
}

// The quirks that the file touches. Default mode keeps them all; format mode repairs most of them.
Json QuirkReport(const Reader& reader, const RiffScan& scan)
{
    Json json = Json::array();
    for (const TouchedQuirk& quirk : TouchedQuirks(reader, scan)) {
        const QuirkTitle& title = TitleOf(quirk.number);
        const bool repaired = title.repaired && !reader.Settings().defaultMode;
        json.push_back(fmt::format("{} {}{}", QuirkName(quirk.number), title.title, repaired ? " (repaired)" : ""));
    }
    return json;
}

Json SegmentReport(const Reader& reader)
{
    Json json = Json::array();
    const lxAviReadCore_AvixRiff_t* segment = reader.State().pCurrentAvix;
    while (segment != nullptr && segment->pPrevAvix != nullptr) {
        segment = segment->pPrevAvix;
    }
    for (; segment != nullptr; segment = segment->pNextAvix) {
        json.push_back(fmt::format("{} bytes at {}", segment->moviDataSize, segment->moviDataOffset));
    }
    return json;
}

Json ContainerReport(const Reader& reader)
{
    const lxAviReadCore_AviInfo_t& state = reader.State();
    lxAviRead_Avih_t avih = {};
    lxAviRead_OpenDmlInfo_t openDml = {};
    static_cast<void>(lxAviReadCore_GetAvihData(&avih));
    lxAviReadCore_GetOpenDmlInfo(&openDml);
    Json json;
    json["file"] = reader.Settings().file;
    json["bytes"] = reader.FileSize();
    json["container"] = openDml.bPresent != 0 || state.bIndxPresent != 0 ? "OpenDML AVI" : "AVI";
    json["microseconds per frame"] = avih.dwMicroSecPerFrame;
    json["width"] = avih.dwWidth;
    json["height"] = avih.dwHeight;
    json["frames in first list"] = avih.dwTotalFrames;
    if (openDml.bPresent != 0) {
        json["frames in file"] = openDml.uiTotalFrames;
    }
    if (const std::string what = FrameRateConflict(reader); !what.empty()) {
        json["frame rates disagree"] = what;
    }
    const UInt32 frames = openDml.bPresent != 0 ? openDml.uiTotalFrames : avih.dwTotalFrames;
    json["duration"] = Duration(lxAviReadCore_GetStreamTime(static_cast<UInt32>(state.videoStreamNr), frames, 0));
    json["reads"] = reader.Settings().defaultMode ? "default mode" : "format mode";
    json["media data at"] = state.moviOffset;
    json["media data bytes"] = state.moviSize;
    json["seeking works"] = lxalAviRead_FileSeekPossible != 0;
    return json;
}

} // namespace

int RunInfo(const Options& options)
{
    Reader reader(options);
    const UInt32 indexed = reader.BuildIndex();
    const RiffScan scan(reader.IsRegularFile() ? reader.Settings().file : "");
    Json report = ContainerReport(reader);
    report["segments"] = SegmentReport(reader);
    report["index"] = IndexReport(reader, scan, indexed);
    report["quirks touched"] = QuirkReport(reader, scan);
    Json streams = Json::array();
    for (UInt32 i = 0; i < reader.StreamCount(); ++i) {
        streams.push_back(StreamReport(reader, i));
    }
    report["stream"] = streams;
    PrintReport(options, report);
    return kDone;
}

} // namespace lxavi
