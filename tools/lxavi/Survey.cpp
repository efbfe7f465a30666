#include "Survey.hpp"

#include "Codecs.hpp"
#include "Info.hpp"
#include "Landing.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace lxavi {

namespace {

constexpr UInt32 kSizeClassesPerDoubling = 2;
constexpr UInt64 kNarrowestRate = 1000; // milliseconds
constexpr size_t kMostPlaces = 2000;
constexpr UInt32 kEveryKeyFrame = 1u << 30; // bytes for a table of all key frames
constexpr size_t kMostFindings = 1000;      // that a page lists, the most severe ones; the summary counts all

// Classes whose upper bounds grow by the square root of two. Class 0 holds empty chunks.
UInt32 SizeClass(UInt32 size)
{
    return size == 0
               ? 0
               : 1 + static_cast<UInt32>(std::floor(std::log2(static_cast<double>(size)) * kSizeClassesPerDoubling));
}

UInt64 LeastOfClass(UInt32 number)
{
    return number == 0
               ? 0
               : static_cast<UInt64>(std::ceil(std::exp2(static_cast<double>(number - 1) / kSizeClassesPerDoubling)));
}

double Rounded(double value) { return std::round(value * 10) / 10; }

// [time, least, most] of each column that has values. The time is the middle of the column.
Json RangePoints(const Columns& columns)
{
    Json points = Json::array();
    for (size_t i = 0; i < columns.All().size(); ++i) {
        const Columns::Column& column = columns.All()[i];
        if (column.count > 0) {
            points.push_back({i * columns.Width() + columns.Width() / 2, column.least, column.most});
        }
    }
    return points;
}

// [time, kbit/s] of every column, and 0 from the end of the stream on. Columns of less than a second are joined, because
// single chunks are no rate.
Json RatePoints(const Columns& columns, UInt64 endMsec)
{
    Json points = Json::array();
    for (size_t i = 0; i < columns.All().size(); ++i) {
        const UInt64 begin = i * columns.Width();
        const UInt64 end = std::min(begin + columns.Width(), endMsec);
        if (end > begin) {
            points.push_back({begin, Rounded(columns.All()[i].sum * 8 / static_cast<double>(end - begin))});
        }
    }
    points.push_back({endMsec, 0.0});
    return points;
}

} // namespace

// ---- Gathering ----

void Survey::TakeChunk(const lxAviRead_MediaChunk_t& chunk)
{
    if (chunk.eFrame == LX_AVIREAD_FRAME_KEY && static_cast<int>(chunk.uiStreamNr) == m_mainVideo) {
        m_keyOffsets.push_back(chunk.uiOffset);
    }
}

void Survey::TakeDelivered(const Item& item, bool isNew)
{
    if (!isNew) {
        return;
    }
    Stream& stream = m_streams[item.chunk.uiStreamNr];
    stream.type = item.chunk.eStreamType;
    Spread(stream, item);
    ++stream.bySize[SizeClass(item.chunk.uiSize)];
    ++stream.chunks;
    m_endMsec = std::max(m_endMsec, stream.endMsec);
    m_lastOffset = std::max(m_lastOffset, item.offset);
    if (item.chunk.eStreamType != LX_AVIREAD_STREAM_VIDEO) {
        return;
    }
    NotePlace(item.offset, item.time);
    m_lastFrameMsec = item.time;
    while (m_nextKey < m_keyOffsets.size() && m_keyOffsets[m_nextKey] < item.offset) {
        ++m_nextKey;
    }
    const bool isKey = m_keyOffsets.empty() ? item.chunk.bKeyFrame != 0
                                            : m_nextKey < m_keyOffsets.size() && m_keyOffsets[m_nextKey] == item.offset;
    if (isKey) {
        TakeKeyFrame(item.time);
    }
}

// A chunk may play for seconds. Its bytes are spread over its time.
void Survey::Spread(Stream& stream, const Item& item)
{
    constexpr UInt32 kPiece = 50; // milliseconds
    const UInt32 duration = std::max(item.endTime, item.time) - item.time;
    const UInt32 pieces = std::clamp<UInt32>(duration / kPiece, 1, Columns::kMost);
    for (UInt32 i = 0; i < pieces; ++i) {
        stream.bytes.Add(item.time + UInt64{duration} * i / pieces, static_cast<double>(item.chunk.uiSize) / pieces);
    }
    stream.endMsec = std::max(stream.endMsec, item.time + duration);
}

void Survey::TakeKeyFrame(UInt32 msec)
{
    if (m_lastKeyMsec) {
        m_keyDistances.Add(*m_lastKeyMsec, msec - std::min(msec, *m_lastKeyMsec));
    }
    m_lastKeyMsec = msec;
    ++m_keyFrames;
}

// Keeps every m_placeStep-th place, so that there are never more than kMostPlaces.
void Survey::NotePlace(UInt64 offset, UInt32 msec)
{
    if (m_placesSeen++ % m_placeStep != 0) {
        return;
    }
    m_places.push_back({offset, msec});
    if (m_places.size() == kMostPlaces) {
        for (size_t i = 0; 2 * i < m_places.size(); ++i) {
            m_places[i] = m_places[2 * i];
        }
        m_places.resize(kMostPlaces / 2);
        m_placeStep *= 2;
    }
}

// The time that plays where the finding is; null for a finding about headers or about an index.
Json Survey::TimeOf(const Finding& finding) const
{
    if (finding.msec) {
        return *finding.msec;
    }
    const std::optional<UInt64> offset = finding.media ? finding.media : finding.offset;
    if (!offset || m_places.empty() || *offset < m_places.front().offset) {
        return nullptr;
    }
    const auto behind = std::upper_bound(m_places.begin(), m_places.end(), *offset,
                                         [](UInt64 wanted, const Place& place) { return wanted < place.offset; });
    const bool isInMedia = finding.media || *offset <= m_lastOffset;
    return isInMedia ? Json((behind - 1)->msec) : Json();
}

// ---- Telling ----

Json Survey::StreamReport(const Reader& reader) const
{
    Json streams = Json::array();
    for (const auto& [number, stream] : m_streams) {
        Json sizes = Json::array();
        for (const auto& [sizeClass, chunks] : stream.bySize) {
            sizes.push_back({LeastOfClass(sizeClass), chunks});
        }
        Columns rates = stream.bytes;
        rates.WidenTo(kNarrowestRate);
        Json json;
        json["stream"] = number;
        json["type"] = TypeName(stream.type);
        json["codec"] = CodingOf(*reader.Stream(number)).name;
        json["chunks"] = stream.chunks;
        json["end_ms"] = stream.endMsec;
        json["rate_column_ms"] = rates.Width();
        json["rate_ms_kbps"] = RatePoints(rates, stream.endMsec);
        json["chunks_by_least_bytes"] = sizes;
        streams.push_back(json);
    }
    return streams;
}

Json Survey::InterleaveReport(const Checker& checker) const
{
    Json tracks = Json::array();
    for (const auto& [track, interleave] : checker.Interleaves()) {
        Json json;
        json["track"] = track;
        json["needed_ms"] = interleave.NeededMsec();
        json["needed_bytes"] = interleave.NeededBytes();
        json["common_ms"] = kCommonQueueMsec;
        json["common_bytes"] = kCommonQueueBytes;
        json["column_ms"] = interleave.Lead().Width();
        json["lead_ms"] = RangePoints(interleave.Lead());
        tracks.push_back(json);
    }
    return tracks;
}

Json Survey::KeyFrameReport(const Reader& reader) const
{
    lxAviRead_TableSummary_t summary = {};
    static_cast<void>(lxAviReadCore_GetTableSummary(&summary));
    Columns stored;
    const auto table = reader.Table();
    for (size_t i = 0; i + 1 < table.size(); ++i) {
        stored.Add(table[i]->timeMsec, static_cast<double>(table[i + 1]->timeMsec - table[i]->timeMsec));
    }
    Json json;
    json["key_frames"] = m_keyFrames;
    json["told_by"] = m_keyOffsets.empty() ? "the index" : "the frames";
    json["stored"] = table.size();
    json["step"] = summary.uiStep != 0 ? Json(summary.uiStep) : Json();
    json["distance_ms"] = RangePoints(m_keyDistances);
    json["stored_distance_ms"] = RangePoints(stored);
    return json;
}

Json Survey::SeekReport(Reader& reader) const
{
    constexpr UInt32 kTargets = 200;
    constexpr UInt64 kPatience = 5000; // chunks that a seek may deliver
    Json seeks = Json::array();
    if (!reader.HasTable()) {
        return seeks;
    }
    Progress progress("seeking", kTargets);
    const int track = reader.TrackToPlay({});
    reader.Start();
    for (UInt32 i = 0; i < kTargets; ++i) {
        progress.At(i);
        const auto target = static_cast<UInt32>(UInt64{m_lastFrameMsec} * i / (kTargets - 1));
        const UInt32 landed = reader.Seek(target, track, lxAviRead_SetPosRoundDown);
        const Landing landing = Land(reader, track, kPatience);
        const bool both = landing.video && landing.audio;
        seeks.push_back({target, static_cast<std::int64_t>(landed) - target,
                         both ? Json(static_cast<std::int64_t>(landing.audio->time) - landing.video->time) : Json()});
    }
    return seeks;
}

Json Survey::FindingReport(Findings& findings) const
{
    Json list = Json::array();
    for (const Finding& finding : findings.MostSevere(kMostFindings)) {
        Json json;
        json["severity"] = SeverityName(finding.severity);
        json["offset"] = finding.offset ? Json(*finding.offset) : Json();
        json["time_ms"] = TimeOf(finding);
        json["places"] = finding.places;
        json["code"] = finding.code;
        json["text"] = finding.text;
        list.push_back(json);
    }
    return list;
}

Json Survey::Run()
{
    Options thorough = m_options;
    thorough.budget = kEveryKeyFrame;
    Checker checker(thorough, {[this](const lxAviRead_MediaChunk_t& chunk) { TakeChunk(chunk); },
                               [this](const Item& item, bool isNew) { TakeDelivered(item, isNew); }});
    m_mainVideo = Reader(m_options).State().videoStreamNr;
    Findings& findings = checker.Run();
    Reader reader(m_options);
    const UInt32 indexed = reader.BuildIndex();
    Json report;
    report["info"] = InfoReport(reader, indexed);
    report["end_ms"] = m_endMsec;
    report["streams"] = StreamReport(reader);
    report["interleave"] = InterleaveReport(checker);
    report["key_frames"] = KeyFrameReport(reader);
    report["seeks_ms"] = SeekReport(reader);
    report["findings"] = FindingReport(findings);
    report["summary"] = {
        {"errors", findings.Places(Severity::Error)},    {"warnings", findings.Places(Severity::Warning)},
        {"notes", findings.Places(Severity::Note)},      {"findings", findings.Sort().size()},
        {"findings_printed", report["findings"].size()}, {"chunks_delivered", checker.Delivered()}};
    return report;
}

} // namespace lxavi
