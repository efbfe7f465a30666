// lxavi check: walks through the structure, the index and the media data, and reports every anomaly with its offset.

#include "Codecs.hpp"
#include "Commands.hpp"
#include "Output.hpp"
#include "Quirks.hpp"
#include "RiffScan.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <set>

namespace lxavi {

namespace {

constexpr size_t kMostAnomalies = 1000; // the others are only counted

class Checker {
public:
    explicit Checker(const Options& options) : m_reader(options), m_scan(RegularFile(m_reader)) {}

    std::vector<Anomaly> Run()
    {
        for (const Anomaly& anomaly : m_scan.anomalies) {
            Note(anomaly.offset, anomaly.text);
        }
        CompareHeaders();
        CheckIndex();
        Deliver();
        std::stable_sort(m_anomalies.begin(), m_anomalies.end(),
                         [](const Anomaly& a, const Anomaly& b) { return a.offset < b.offset; });
        return m_anomalies;
    }

    std::vector<TouchedQuirk> Quirks() const { return TouchedQuirks(m_reader, m_scan); }
    UInt64 Delivered() const { return m_delivered; }
    UInt64 Found() const { return m_found; }

private:
    static const std::string& RegularFile(const Reader& reader)
    {
        if (!reader.IsRegularFile()) {
            throw Failure("cannot be checked: it is no regular file, and its structure is read twice");
        }
        return reader.Settings().file;
    }

    void Note(UInt64 offset, const std::string& text)
    {
        if (m_anomalies.size() < kMostAnomalies) {
            m_anomalies.push_back({offset, text});
        }
        ++m_found;
    }

    void CompareHeaders()
    {
        lxAviRead_Avih_t avih = {};
        static_cast<void>(lxAviReadCore_GetAvihData(&avih));
        if (avih.dwStreams != m_scan.streamLists) {
            Note(0, fmt::format("the main header says {} streams, the file describes {}", avih.dwStreams,
                                m_scan.streamLists));
        }
        CheckStreams(avih);
        if (m_reader.State().videoStreamNr < 0) {
            Note(0, "there is no video stream");
        }
    }

    void CheckStreams(const lxAviRead_Avih_t& avih)
    {
        bool noFrameRate = avih.dwMicroSecPerFrame == 0;
        if (const int video = m_reader.State().videoStreamNr; video >= 0 && !m_reader.Settings().defaultMode) {
            const lxAviRead_Strh_t& header = m_reader.Stream(static_cast<UInt32>(video))->Header;
            noFrameRate = noFrameRate && (header.dwScale == 0 || header.dwRate == 0);
        }
        if (noFrameRate) {
            Note(0, "no header gives a frame duration: all video times are 0");
        }
        if (const std::string what = FrameRateConflict(m_reader); !what.empty()) {
            Note(0, what);
        }
        for (UInt32 i = 0; i < m_reader.StreamCount(); ++i) {
            const lxAviReadCore_StreamInfo_t& stream = *m_reader.Stream(i);
            if (IsUnknown(stream)) {
                Note(0, fmt::format("stream {} is of the unknown type '{}'", i, FourCCText(stream.Header.fccType)));
            }
        }
    }

    // ---- The index against the media data ----

    void CheckIndex()
    {
        const UInt32 result = m_reader.BuildIndex();
        const lxAviReadCore_AviInfo_t& state = m_reader.State();
        if (result != LX_OK) {
            Note(state.idx1Offset, Failure("no key-frame table can be built", result).what());
        }
        const bool defaultMode = m_reader.Settings().defaultMode;
        const UInt32 misread = defaultMode ? m_scan.IndexChunks() - m_scan.IndexesAt36() : m_scan.IndexesAt36();
        if (state.bIndxPresent != 0 && misread > 0) {
            Note(0, fmt::format("{} of {} index chunks have their records {} bytes behind their start and not {}: "
                                "they are read one word off, and not usable for seeking",
                                misread, m_scan.IndexChunks(), defaultMode ? 32 : 36, defaultMode ? 36 : 32));
        }
        CheckRecords(m_scan.idx1, Idx1Base(), true);
        CheckRecords(m_scan.openDml, 0, false);
    }

    // The position from which the offsets of idx1 count: the file's start, the "movi" code, or the first chunk. The
    // result is the position with which most of the first records lead to a chunk.
    UInt64 Idx1Base() const
    {
        constexpr size_t kTried = 16;
        std::set<UInt64> chunks;
        for (const ScannedChunk& chunk : m_scan.media) {
            chunks.insert(chunk.offset);
        }
        UInt64 best = 0;
        size_t most = 0;
        for (const UInt64 base : {UInt64{0}, m_scan.moviCode, m_scan.moviCode + 4}) {
            size_t right = 0;
            for (size_t i = 0; i < std::min(m_scan.idx1.size(), kTried); ++i) {
                right += chunks.count(base + m_scan.idx1[i].offset);
            }
            best = right > most ? base : best;
            most = std::max(most, right);
        }
        return best;
    }

    void CheckRecords(const std::vector<ScannedRecord>& records, UInt64 base, bool hasId)
    {
        if (records.empty()) {
            return;
        }
        std::map<UInt64, const ScannedChunk*> byOffset;
        for (const ScannedChunk& chunk : m_scan.media) {
            byOffset[chunk.offset] = &chunk;
        }
        std::set<UInt64> listed;
        for (const ScannedRecord& record : records) {
            const UInt64 offset = base + record.offset;
            const auto found = byOffset.find(offset);
            if (found == byOffset.end()) {
                if (IsMediaId(record.id)) {
                    Note(record.at,
                         fmt::format("index record '{}' points at no chunk ({})", FourCCText(record.id), offset));
                }
                continue;
            }
            listed.insert(offset);
            CompareRecord(record, *found->second, hasId);
        }
        for (const ScannedChunk& chunk : m_scan.media) {
            if (!listed.contains(chunk.offset)) {
                Note(chunk.offset, fmt::format("chunk '{}' is not listed by the index", FourCCText(chunk.id)));
            }
        }
    }

    void CompareRecord(const ScannedRecord& record, const ScannedChunk& chunk, bool hasId)
    {
        if (record.size != chunk.size) {
            Note(record.at, fmt::format("index record says {} bytes, the chunk at {} has {}", record.size, chunk.offset,
                                        chunk.size));
        }
        if (hasId && record.id != chunk.id) {
            Note(record.at,
                 fmt::format("index record '{}' points at chunk '{}'", FourCCText(record.id), FourCCText(chunk.id)));
        }
        const UInt64 header = chunk.offset;
        m_flags[header] = {record.at, record.key};
    }

    // ---- Delivery ----

    void Deliver()
    {
        m_reader.Start();
        Progress progress("checking", m_scan.bytes);
        UInt64 expected = m_reader.State().moviOffset;
        for (;;) {
            const Item item = m_reader.Next(0, 0);
            if (Reader::IsEnd(item)) {
                if (item.result != LX_AVIREAD_END_OF_MEDIA) {
                    Note(item.offset + 8, Failure("delivery stopped", item.result).what());
                }
                return;
            }
            progress.At(item.offset);
            if (item.result == LX_ERR_AVIREAD_BAD_STREAM) {
                Note(item.offset,
                     fmt::format("chunk of stream {}, which the file does not have", item.chunk.uiStreamNr));
            }
            CheckGap(expected, item);
            expected = item.offset + 8 + item.chunk.uiSize + (item.chunk.uiSize & 1);
            if (item.result == LX_OK) {
                ++m_delivered;
            }
            if (!CheckPayload(item)) {
                return;
            }
        }
    }

    // Reports a delivered chunk that the file's structure does not have.
    void CheckGap(UInt64 expected, const Item& item)
    {
        const UInt64 begin = item.offset - (item.chunk.bDrm == 1 ? 18 : 0);
        const bool known =
            std::binary_search(m_scan.media.begin(), m_scan.media.end(), ScannedChunk{item.offset, 0, 0},
                               [](const ScannedChunk& a, const ScannedChunk& b) { return a.offset < b.offset; });
        if (!known) {
            Note(item.offset, fmt::format("delivered a chunk where the file's structure has none ({} bytes behind the "
                                          "chunk before)",
                                          begin - std::min(begin, expected)));
        }
    }

    bool CheckPayload(const Item& item)
    {
        if (item.result != LX_OK) {
            m_reader.Skip(item);
            return true;
        }
        try {
            std::vector<UInt8> head;
            m_reader.ReadPayload(item, [&](std::span<const UInt8> piece) {
                if (head.empty()) {
                    head.assign(piece.begin(), piece.end());
                }
            });
            CheckKeyFlag(item, head);
            return true;
        } catch (const Failure& failure) {
            Note(item.offset, failure.what());
            return false;
        }
    }

    void CheckKeyFlag(const Item& item, std::span<const UInt8> head)
    {
        const auto flag = m_flags.find(item.offset);
        if (item.chunk.eStreamType != LX_AVIREAD_STREAM_VIDEO || flag == m_flags.end()) {
            return;
        }
        const auto isKey = LooksLikeKeyFrame(CodingOf(*m_reader.Stream(item.chunk.uiStreamNr)).coding, head);
        if (isKey && *isKey != flag->second.key) {
            Note(flag->second.at,
                 fmt::format("index record says {}, the frame at {} is {}",
                             flag->second.key ? "key frame" : "no key frame", item.offset, *isKey ? "one" : "none"));
        }
    }

    struct Flag {
        UInt64 at; // file offset of the record
        bool key;
    };

    Reader m_reader;
    RiffScan m_scan;
    std::vector<Anomaly> m_anomalies;
    UInt64 m_found = 0;
    std::map<UInt64, Flag> m_flags; // key: offset of the chunk
    UInt64 m_delivered = 0;
};

} // namespace

int RunCheck(const Options& options)
{
    Checker checker(options);
    const std::vector<Anomaly> anomalies = checker.Run();
    const std::vector<TouchedQuirk> quirks = checker.Quirks();
    {
        TableWriter table(options, {{"offset", "offset", 12}, {"quirk", "quirk", 5}, {"anomaly", "anomaly", -40}});
        for (const Anomaly& anomaly : anomalies) {
            table.Row({anomaly.offset, "", anomaly.text});
        }
        for (const TouchedQuirk& quirk : quirks) {
            const QuirkTitle& title = TitleOf(quirk.number);
            const bool repaired = title.repaired && !options.defaultMode;
            table.Row({quirk.offset, QuirkName(quirk.number),
                       fmt::format("{}: {}{}", title.title, quirk.what, repaired ? " (repaired)" : "")});
        }
    }
    if (!options.json && !options.csv) {
        if (checker.Found() > anomalies.size()) {
            fmt::print("… and {} more\n", checker.Found() - anomalies.size());
        }
        fmt::print("{} chunks delivered, {} anomalies, {} quirks touched\n", checker.Delivered(), checker.Found(),
                   quirks.size());
    }
    return anomalies.empty() ? kDone : kDamaged;
}

} // namespace lxavi
