#include "IndexCheck.hpp"

#include "Codecs.hpp"
#include "MediaData.hpp"
#include "Text.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <optional>

namespace lxavi {

namespace {

// Decoders can begin at recovery points and in open groups of these codecs, which the frames' first bytes do not tell.
bool MayBeginElsewhere(const lxAviReadCore_StreamInfo_t* stream)
{
    if (stream == nullptr) {
        return false;
    }
    const Coding coding = CodingOf(*stream).coding;
    return coding == Coding::H264 || coding == Coding::H265;
}

// Whether a stream is of a type that is played, by its number; the last one stands for all numbers beyond.
using PlayedStreams = std::array<bool, LX_AVIREAD_STREAMS + 1>;

// One index on its way along the chunks. Both are in the order of their offsets.
class IndexCursor {
public:
    IndexCursor(const SourceFile& file, Findings& findings, const PlayedStreams& streams,
                const std::vector<RecordRun>& runs, UInt64 base, UInt64 end, std::string name)
        : m_file(file), m_findings(findings), m_streams(streams), m_records(file, runs), m_base(base), m_end(end),
          m_name(std::move(name)), m_isIdx1(!runs.empty() && runs.front().isIdx1)
    {
        Advance();
    }

    // `isListed` says whether the index should list the chunk.
    void Meet(const lxAviRead_MediaChunk_t& chunk, bool isListed, bool keysMayDiffer)
    {
        for (; m_has && Offset() < chunk.uiOffset; Advance()) {
            ReportStray();
        }
        const bool isFound = m_has && Offset() == chunk.uiOffset;
        for (; m_has && Offset() == chunk.uiOffset; Advance()) {
            Compare(chunk, keysMayDiffer);
        }
        if (isListed && !isFound && chunk.uiOffset < m_end) {
            ReportMissing(chunk);
        } else if (isFound) {
            m_missing.End();
        }
    }

    // Behind the last chunk.
    void Finish()
    {
        for (; m_has; Advance()) {
            ReportStray();
        }
    }

private:
    UInt64 Offset() const { return m_base + m_record.offset; }
    void Advance() { m_has = m_records.Next(m_record); }

    void Note(FindingRow& row, const lxAviRead_MediaChunk_t& chunk, const char* code, const std::string& text)
    {
        row.Add({.severity = Severity::Warning,
                 .offset = m_record.at,
                 .code = code,
                 .text = text,
                 .media = chunk.uiOffset});
    }

    // A record that leads to no chunk of the media data. Where the chunk stands in the file all the same, no list holds it,
    // and it cannot be played. (Chunks of missing streams, and chunks that were cut, are reported elsewhere.)
    void ReportStray()
    {
        ChunkHead header = {};
        if (!IsMediaId(m_record.id) || IsDescriptorId(m_record.id)) {
            return;
        }
        if (m_file.Read(Offset(), &header, sizeof header) && header.id == m_record.id) {
            const bool isWhole = Offset() + sizeof header + header.size <= m_file.Size();
            if (isWhole && m_streams.at(std::min<UInt32>(StreamOf(header.id), LX_AVIREAD_STREAMS))) {
                m_lost.Add({.severity = Severity::Error,
                            .offset = Offset(),
                            .code = "chunk_unreachable",
                            .text = fmt::format("chunk '{}' is listed by {}, but it stands in no list of media data",
                                                FourCCText(header.id), m_name)});
            }
            return;
        }
        if (m_record.at != m_strayAt) {
            m_stray.End();
        }
        m_stray.Add({Severity::Warning, m_record.at, "record_without_chunk",
                     fmt::format("index record '{}' points at no chunk ({})", FourCCText(m_record.id), Offset())});
        m_strayAt = m_record.behind;
    }

    void ReportMissing(const lxAviRead_MediaChunk_t& chunk)
    {
        m_missing.Add({Severity::Warning, chunk.uiOffset, "chunk_not_listed",
                       fmt::format("chunk '{}' is not listed by {}", FourCCText(chunk.uiId), m_name)});
    }

    void Compare(const lxAviRead_MediaChunk_t& chunk, bool keysMayDiffer)
    {
        if (m_record.size != chunk.uiSize) {
            Note(m_sizes, chunk, "record_size",
                 fmt::format("index record says {} bytes, the chunk at {} has {}", m_record.size, chunk.uiOffset,
                             chunk.uiSize));
        } else {
            m_sizes.End();
        }
        const bool isOther = m_isIdx1 ? m_record.id != chunk.uiId : StreamOf(m_record.id) != StreamOf(chunk.uiId);
        if (isOther) {
            Note(
                m_ids, chunk, "record_id",
                fmt::format("index record '{}' points at chunk '{}'", FourCCText(m_record.id), FourCCText(chunk.uiId)));
        } else {
            m_ids.End();
        }
        CompareKeyFlag(chunk, keysMayDiffer);
    }

    // The frame is believed, and not the index. A placeholder shows nothing and costs nothing, whatever its flag.
    void CompareKeyFlag(const lxAviRead_MediaChunk_t& chunk, bool keysMayDiffer)
    {
        constexpr UInt32 kPlaceholderBytes = 8;
        if (chunk.eFrame == LX_AVIREAD_FRAME_UNKNOWN || chunk.uiSize <= kPlaceholderBytes) {
            return;
        }
        const bool isKey = chunk.eFrame == LX_AVIREAD_FRAME_KEY;
        FindingRow& row = m_record.isKey ? m_tooMany : m_tooFew;
        if (isKey == m_record.isKey) {
            m_tooMany.End();
            m_tooFew.End();
            return;
        }
        const bool mayBegin = keysMayDiffer && m_record.isKey;
        row.Add({.severity = mayBegin ? Severity::Note : Severity::Warning,
                 .offset = m_record.at,
                 .code = "record_key_flag",
                 .text = fmt::format("index record says {}, by its own bytes the frame at {} is {}{}",
                                     m_record.isKey ? "key frame" : "no key frame", chunk.uiOffset,
                                     isKey ? "one" : "none", mayBegin ? "; decoders may be able to begin there" : ""),
                 .media = chunk.uiOffset});
    }

    const SourceFile& m_file;
    Findings& m_findings;
    const PlayedStreams& m_streams;
    OrderedRecords m_records;
    IndexRecord m_record = {};
    bool m_has = false;
    UInt64 m_base;
    UInt64 m_end; // of the part of the file whose chunks the index should list
    std::string m_name;
    bool m_isIdx1;
    FindingRow m_missing{m_findings}; // chunks
    FindingRow m_stray{m_findings};   // records
    FindingRow m_sizes{m_findings};
    FindingRow m_ids{m_findings};
    FindingRow m_lost{m_findings};    // chunks that no list holds
    FindingRow m_tooMany{m_findings}; // key flags
    FindingRow m_tooFew{m_findings};
    UInt64 m_strayAt = 0; // where the next one of the row would be
};

class Comparison {
public:
    Comparison(const Reader& reader, const SourceFile& file, const RiffScan& scan, Findings& findings)
        : m_reader(reader), m_file(file), m_scan(scan), m_findings(findings)
    {
        for (UInt32 i = 0; i < LX_AVIREAD_STREAMS; ++i) {
            m_mayBeginElsewhere[i] = MayBeginElsewhere(reader.Stream(i));
            m_played[i] = reader.Stream(i) != nullptr && reader.Stream(i)->StreamType != LX_AVIREAD_STREAM_NONE;
        }
        AddOpenDml();
        AddIdx1();
    }

    void Run(const std::function<void(const lxAviRead_MediaChunk_t&)>& observer)
    {
        ForEachMediaChunk(m_reader, [&](const lxAviRead_MediaChunk_t& chunk) {
            Take(chunk);
            if (observer) {
                observer(chunk);
            }
        });
        for (auto& [stream, cursor] : m_openDml) {
            cursor.Finish();
        }
        if (m_idx1) {
            m_idx1->Finish();
        }
    }

private:
    void Take(const lxAviRead_MediaChunk_t& chunk)
    {
        const bool keysMayDiffer = m_mayBeginElsewhere.at(chunk.uiStreamNr);
        for (auto& [stream, cursor] : m_openDml) {
            cursor.Meet(chunk, stream == chunk.uiStreamNr, keysMayDiffer);
        }
        if (m_idx1) {
            m_idx1->Meet(chunk, true, keysMayDiffer);
        }
    }

    // Each stream has an OpenDML index of its own, or none.
    void AddOpenDml()
    {
        std::map<UInt32, std::vector<RecordRun>> runs;
        for (const RecordRun& run : m_scan.OpenDmlRuns()) {
            runs[StreamOf(run.chunkId)].push_back(run);
        }
        for (const auto& [stream, ofStream] : runs) {
            m_openDml.emplace(std::piecewise_construct, std::forward_as_tuple(stream),
                              std::forward_as_tuple(m_file, m_findings, m_played, ofStream, 0, m_file.Size(),
                                                    "the index of its stream"));
        }
    }

    // In a file with an OpenDML index, idx1 is about the first list alone.
    void AddIdx1()
    {
        if (!m_scan.idx1 || m_scan.idx1->count == 0) {
            return;
        }
        const std::vector<Extent> lists = MediaLists(m_reader);
        const bool isFirstListAlone = !m_openDml.empty() && !lists.empty();
        const UInt64 end = isFirstListAlone ? lists.front().end : m_file.Size();
        m_idx1.emplace(m_file, m_findings, m_played, std::vector{*m_scan.idx1}, Idx1Base(), end, "the index idx1");
    }

    // The position from which the offsets of idx1 count: the file's start, the "movi" code, or the first chunk. The
    // result is the position with which most of the first records lead to their chunks.
    UInt64 Idx1Base() const
    {
        UInt64 best = 0;
        int most = 0;
        for (const UInt64 base : {UInt64{0}, m_scan.moviCode, m_scan.moviCode + 4}) {
            const int right = RightRecords(base);
            best = right > most ? base : best;
            most = std::max(most, right);
        }
        return best;
    }

    int RightRecords(UInt64 base) const
    {
        constexpr int kTried = 16;
        RecordReader records(m_file, {*m_scan.idx1});
        int right = 0;
        IndexRecord record = {};
        for (int i = 0; i < kTried && records.Next(record); ++i) {
            ChunkHead header = {};
            right += m_file.Read(base + record.offset, &header, sizeof header) && header.id == record.id ? 1 : 0;
        }
        return right;
    }

    const Reader& m_reader;
    const SourceFile& m_file;
    const RiffScan& m_scan;
    Findings& m_findings;
    std::map<UInt32, IndexCursor> m_openDml; // by stream
    std::optional<IndexCursor> m_idx1;
    std::array<bool, LX_AVIREAD_STREAMS> m_mayBeginElsewhere = {};
    PlayedStreams m_played = {};
};

} // namespace

void CompareIndexes(const Reader& reader, const SourceFile& file, const RiffScan& scan, Findings& findings,
                    const std::function<void(const lxAviRead_MediaChunk_t&)>& observer)
{
    Comparison(reader, file, scan, findings).Run(observer);
}

} // namespace lxavi
