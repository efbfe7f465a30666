// lxavi check: walks through the structure, the index and the media data, and reports every anomaly with its offset.

#include "Codecs.hpp"
#include "Commands.hpp"
#include "MediaData.hpp"
#include "Output.hpp"
#include "Quirks.hpp"
#include "RiffScan.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace lxavi {

namespace {

constexpr size_t kMostAnomalies = 1000; // the others are only counted

class Checker {
public:
    explicit Checker(const Options& options) : m_media(ReadMediaData(options)), m_reader(options), m_scan(options.file)
    {
    }

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
    // The default mode has no walk over the media data, so the file is opened in the format mode for it.
    static MediaData ReadMediaData(Options options)
    {
        options.defaultMode = false;
        const Reader reader(options);
        if (!reader.IsRegularFile()) {
            throw Failure("cannot be checked: it is no regular file, and its structure is read twice");
        }
        return MediaData(reader);
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
        CheckIdx1();
        CheckOpenDml();
    }

    // The position from which the offsets of idx1 count: the file's start, the "movi" code, or the first chunk. The
    // result is the position with which most of the first records lead to a chunk.
    UInt64 Idx1Base() const
    {
        constexpr size_t kTried = 16;
        UInt64 best = 0;
        size_t most = 0;
        for (const UInt64 base : {UInt64{0}, m_scan.moviCode, m_scan.moviCode + 4}) {
            size_t right = 0;
            for (size_t i = 0; i < std::min(m_scan.idx1.size(), kTried); ++i) {
                right += m_media.Find(base + m_scan.idx1[i].offset) != nullptr ? 1 : 0;
            }
            best = right > most ? base : best;
            most = std::max(most, right);
        }
        return best;
    }

    // In a file with an OpenDML index, idx1 is about the first list alone.
    void CheckIdx1()
    {
        const std::set<UInt64> listed = CompareRecords(m_scan.idx1, Idx1Base(), true);
        const bool firstListAlone = !m_scan.openDml.empty() && !m_media.Lists().empty();
        const UInt64 end = firstListAlone ? m_media.Lists().front().end : m_scan.bytes;
        for (const lxAviRead_MediaChunk_t& chunk : m_media.Chunks()) {
            if (!m_scan.idx1.empty() && chunk.uiOffset < end && !listed.contains(chunk.uiOffset)) {
                Note(chunk.uiOffset, fmt::format("chunk '{}' is not listed by the index idx1", FourCCText(chunk.uiId)));
            }
        }
    }

    // Each stream has an OpenDML index of its own, or none.
    void CheckOpenDml()
    {
        const std::set<UInt64> listed = CompareRecords(m_scan.openDml, 0, false);
        std::set<UInt32> streams;
        for (const ScannedRecord& record : m_scan.openDml) {
            streams.insert(StreamOf(record.id));
        }
        for (const lxAviRead_MediaChunk_t& chunk : m_media.Chunks()) {
            if (streams.contains(chunk.uiStreamNr) && !listed.contains(chunk.uiOffset)) {
                Note(chunk.uiOffset,
                     fmt::format("chunk '{}' is not listed by the index of its stream", FourCCText(chunk.uiId)));
            }
        }
    }

    // Compares records with the chunks that they name, and returns the offsets of these chunks.
    std::set<UInt64> CompareRecords(const std::vector<ScannedRecord>& records, UInt64 base, bool hasId)
    {
        std::set<UInt64> listed;
        for (const ScannedRecord& record : records) {
            const UInt64 offset = base + record.offset;
            if (const lxAviRead_MediaChunk_t* const chunk = m_media.Find(offset); chunk != nullptr) {
                listed.insert(offset);
                CompareRecord(record, *chunk, hasId);
            } else if (IsMediaId(record.id) && !IsDescriptor(record.id)) {
                Note(record.at,
                     fmt::format("index record '{}' points at no chunk ({})", FourCCText(record.id), offset));
            }
        }
        return listed;
    }

    static bool IsDescriptor(UInt32 id) { return id >> 16 == ('d' | 'd' << 8); }

    void CompareRecord(const ScannedRecord& record, const lxAviRead_MediaChunk_t& chunk, bool hasId)
    {
        if (record.size != chunk.uiSize) {
            Note(record.at, fmt::format("index record says {} bytes, the chunk at {} has {}", record.size,
                                        chunk.uiOffset, chunk.uiSize));
        }
        if (hasId && record.id != chunk.uiId) {
            Note(record.at,
                 fmt::format("index record '{}' points at chunk '{}'", FourCCText(record.id), FourCCText(chunk.uiId)));
        }
        CompareKeyFlag(record, chunk);
    }

    // The frame is believed, and not the index. A placeholder shows nothing and costs nothing, whatever its flag.
    void CompareKeyFlag(const ScannedRecord& record, const lxAviRead_MediaChunk_t& chunk)
    {
        constexpr UInt32 kPlaceholderBytes = 8;
        const bool isKey = chunk.eFrame == LX_AVIREAD_FRAME_KEY;
        if (chunk.eFrame != LX_AVIREAD_FRAME_UNKNOWN && isKey != record.key && chunk.uiSize > kPlaceholderBytes) {
            Note(record.at,
                 fmt::format("index record says {}, by its own bytes the frame at {} is {}",
                             record.key ? "key frame" : "no key frame", chunk.uiOffset, isKey ? "one" : "none"));
        }
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

    bool IsInStructure(UInt64 offset) const
    {
        return std::binary_search(m_scan.media.begin(), m_scan.media.end(), ScannedChunk{offset, 0, 0},
                                  [](const ScannedChunk& a, const ScannedChunk& b) { return a.offset < b.offset; });
    }

    // Reports a delivered chunk that the file's structure does not have.
    void CheckGap(UInt64 expected, const Item& item)
    {
        const UInt64 begin = item.offset - (item.chunk.bDrm == 1 ? 18 : 0);
        if (!IsInStructure(item.offset)) {
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
            m_reader.ReadPayload(item, [](std::span<const UInt8>) {});
            return true;
        } catch (const Failure& failure) {
            Note(item.offset, failure.what());
            return false;
        }
    }

    const MediaData m_media;
    Reader m_reader;
    RiffScan m_scan;
    std::vector<Anomaly> m_anomalies;
    UInt64 m_found = 0;
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
