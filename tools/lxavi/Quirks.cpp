#include "Quirks.hpp"

#include "Codecs.hpp"
#include "Output.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

namespace lxavi {

namespace {

constexpr UInt64 kTwoGiB = UInt64{1} << 31;
constexpr UInt64 kFourGiB = UInt64{1} << 32;

// The quirks that a file can touch. The other quirks concern only the interface. doc/quirks.md describes them all.
constexpr QuirkTitle kTitles[] = {
    {1, false, "Stream numbers weigh letters by ten"},
    {7, true, "Seeks take 32 bits"},
    {9, true, "JUNK behind the media data moves it"},
    {10, true, "Unknown chunks before the media data are not counted"},
    {11, true, "The rest of an `odml` list is walked one level up"},
    {12, true, "Unknown lists in the header list take 4 bytes too many"},
    {13, true, "A ninth audio stream stays on track 0"},
    {14, true, "An index chunk ends its stream list"},
    {19, true, "The last four bytes of a plain `movi` list are out of reach"},
    {22, true, "A DRM descriptor is 10 bytes"},
    {27, true, "Lookups take 32 bits"},
    {29, true, "An absent track makes a jump to nowhere"},
    {33, true, "`wb` records count for their stream's number, whatever the stream"},
    {35, true, "OpenDML offsets lose the high word of their base"},
    {36, true, "A one-level field index is counted as 8-byte records"},
    {37, true, "A promised `idx1` turns one-level indexes off"},
    {38, true, "A misplaced index chunk is read to the end of the file"},
    {39, true, "OpenDML records are read 36 bytes behind the chunk's start"},
    {40, true, "Parsing again after a one-level index loses the table"},
    {41, true, "OpenDML audio is looked for directly behind the video"},
    {43, false, "Frames before the first stored key frame are rejected"},
    {44, false, "What is no chunk is slid over byte by byte"},
    {45, true, "Protected key frames of OpenDML files are not recognised"},
    {46, true, "Key-frame times leave out the stream's start"},
    {47, true, "An unknown chunk behind the media data ends the walk"},
    {48, true, "Relative offsets stay relative"},
    {49, true, "An OpenDML index stands alone"},
    {50, true, "An index without a key flag is no index"},
    {51, true, "An index that ends early is no index"},
    {52, true, "Audio times go by the codec"},
    {53, true, "Leading audio is dropped in blocks of `dwScale` bytes"},
    {58, true, "Video times come from the main header"},
    {59, true, "Every audio chunk counts one"},
    {60, true, "Every further video stream carries subtitles"},
    {61, true, "DV with its audio inside is no stream"},
    {62, true, "Text of type `tx` is no chunk"},
    {76, true, "Chunks of missing streams are searched for chunks"},
    {78, true, "Key frames of index chunks of an unknown sub type are stored and not counted"},
};

class Detector {
public:
    Detector(const Reader& reader, const SourceFile& file, const RiffScan& scan)
        : m_reader(reader), m_file(file), m_scan(scan)
    {
    }

    std::vector<TouchedQuirk> Run()
    {
        LookAtStructure();
        LookAtStreams();
        LookAtMedia();
        LookAtIdx1();
        LookAtIndexChunks();
        LookAtTable();
        std::vector<TouchedQuirk> all;
        for (const auto& [number, quirk] : m_found) {
            all.push_back(quirk);
        }
        return all;
    }

private:
    // Keeps only the first place of each quirk.
    void Note(UInt32 number, std::optional<UInt64> offset, const std::string& what)
    {
        m_found.insert({number, {number, offset, what}});
    }

    const lxAviReadCore_AviInfo_t& State() const { return m_reader.State(); }

    // ---- Lists and chunks ----

    void LookAtStructure()
    {
        const RiffPart* before = nullptr;
        for (const RiffPart& part : m_scan.parts) {
            switch (part.parent) {
            case Code("AVI "): LookAtTopLevel(part); break;
            case Code("hdrl"): LookAtHeaderList(part); break;
            case Code("odml"): LookAtOdml(part, before); break;
            case Code("strl"): LookAtStreamList(part, before); break;
            default: break;
            }
            before = &part;
        }
        if (m_scan.strangerInMovi) {
            Note(44, m_scan.strangerInMovi->offset,
                 fmt::format("'{}' among the media chunks", FourCCText(m_scan.strangerInMovi->id)));
        }
    }

    void LookAtTopLevel(const RiffPart& part)
    {
        const bool behind = m_scan.moviCode != 0 && part.offset > m_scan.moviCode;
        const std::string name = FourCCText(part.type != 0 ? part.type : part.id);
        if (part.type == Code("movi") && part.size >= kTwoGiB) {
            Note(7, part.offset, fmt::format("media data of {} bytes cannot be stepped over", part.size));
        }
        if (part.size == 0) {
            Note(10, part.offset, fmt::format("'{}' of size 0", name));
        } else if (behind && (part.id == Code("JUNK") || part.type == Code("INFO"))) {
            Note(9, part.offset, fmt::format("'{}' behind the media data", name));
        } else if (part.type == 0 && part.id != Code("JUNK") && part.id != Code("idx1")) {
            Note(behind ? 47 : 10, part.offset,
                 fmt::format("unknown chunk '{}' {} the media data", name, behind ? "behind" : "before"));
        }
    }

    void LookAtHeaderList(const RiffPart& part)
    {
        if (part.type != 0 && part.type != Code("strl") && part.type != Code("odml")) {
            Note(12, part.offset, fmt::format("unknown list '{}' in the header list", FourCCText(part.type)));
        }
    }

    void LookAtOdml(const RiffPart& part, const RiffPart* before)
    {
        if (before != nullptr && before->type != Code("odml")) {
            Note(11, part.offset, fmt::format("'{}' is not the first chunk of its list", FourCCText(part.id)));
        }
    }

    void LookAtStreamList(const RiffPart& part, const RiffPart* before)
    {
        if (before != nullptr && before->id == Code("indx") && before->parent == part.parent) {
            Note(14, part.offset, fmt::format("'{}' behind 'indx' in its stream list", FourCCText(part.id)));
        }
    }

    // ---- Streams ----

    void LookAtStreams()
    {
        UInt32 audio = 0;
        for (UInt32 i = 0; i < m_reader.StreamCount(); ++i) {
            const lxAviReadCore_StreamInfo_t& stream = *m_reader.Stream(i);
            if (stream.StreamType == LX_AVIREAD_STREAM_AUDIO && ++audio == LX_AVIREAD_AUDIO_TRACKS + 1) {
                Note(13, {}, fmt::format("stream {} is audio stream number {}", i, audio));
            }
            if (stream.StreamType == LX_AVIREAD_STREAM_VIDEO && stream.Header.dwStart != 0) {
                Note(46, {}, fmt::format("the video starts at frame {}", stream.Header.dwStart));
            }
            if (stream.StreamType == LX_AVIREAD_STREAM_AUDIO && stream.IndxChunk.pAviSuperIndexEntry != nullptr &&
                (i == 0 || i > State().AudioTracksCount)) {
                Note(41, {}, fmt::format("audio stream {} of {} has an index", i, State().AudioTracksCount));
            }
            if (stream.StreamType == LX_AVIREAD_STREAM_AUDIO) {
                LookAtAudioClock(i, stream);
            }
            LookAtKind(i, stream);
            LookAtSuperIndex(i, stream);
        }
        if (const std::string what = FrameRateConflict(m_reader); !what.empty()) {
            Note(58, {}, what);
        }
    }

    // Reports video streams of which default mode makes something else.
    void LookAtKind(UInt32 number, const lxAviReadCore_StreamInfo_t& stream)
    {
        if (stream.Header.fccType == Code("iavs")) {
            Note(61, {}, fmt::format("stream {} has its audio inside", number));
        }
        const bool further = stream.Header.fccType == Code("vids") && static_cast<int>(number) != State().videoStreamNr;
        if (further && !IsForSubtitles(stream)) {
            Note(60, {}, fmt::format("stream {} has the codec '{}'", number, FourCCText(stream.Header.fccHandler)));
        }
    }

    // Reports audio streams for which default mode (time by codec) and format mode (time by header) differ.
    void LookAtAudioClock(UInt32 number, const lxAviReadCore_StreamInfo_t& stream)
    {
        const lxAviRead_StrfAudio_t format = AudioFormatOf(stream);
        const lxAviRead_Strh_t& header = stream.Header;
        const double unitsPerSecond = header.dwScale != 0 ? static_cast<double>(header.dwRate) / header.dwScale : 0.0;
        const double bytesPerSecond = unitsPerSecond * header.dwSampleSize;
        double byCodec = 0.0; // bytes per second; 0 when default mode counts chunks
        switch (format.wFormatTag) {
        case LX_AVIREAD_FORMAT_PCM:
        case LX_AVIREAD_FORMAT_IEEE_FLOAT:
        case LX_AVIREAD_FORMAT_AC3: byCodec = header.dwRate; break;
        case LX_AVIREAD_FORMAT_MPEG:
        case LX_AVIREAD_FORMAT_MPEG_LAYER3:
        case LX_AVIREAD_FORMAT_AAC: byCodec = header.dwSampleSize == 0 ? 0.0 : format.nAvgBytesPerSec; break;
        default: Note(52, {}, fmt::format("audio stream {}: format {} has no time", number, format.wFormatTag)); return;
        }
        if (byCodec > 0.0 && std::abs(bytesPerSecond - byCodec) > byCodec / 1000) {
            Note(52, {},
                 fmt::format("audio stream {}: {:.0f} bytes a second, by the codec {:.0f}", number, bytesPerSecond,
                             byCodec));
        }
        if (format.wFormatTag == LX_AVIREAD_FORMAT_PCM &&
            header.dwScale % std::max<UInt32>(header.dwSampleSize, 1) != 0) {
            Note(53, {},
                 fmt::format("audio stream {}: samples of {} bytes, scale {}", number, header.dwSampleSize,
                             header.dwScale));
        }
    }

    // Checks that the index chunks stand at the offsets that the super index states.
    void LookAtSuperIndex(UInt32 number, const lxAviReadCore_StreamInfo_t& stream)
    {
        const auto& common = stream.IndxChunk.aviIndxcommonSection;
        if (stream.IndxChunk.pAviSuperIndexEntry == nullptr || common.uiIndexType != 0) {
            return;
        }
        std::set<UInt64> known;
        for (const ScannedIndex& index : m_scan.indexes) {
            known.insert(index.offset);
        }
        for (UInt32 i = 0; i < common.uiEntriesInUse; ++i) {
            const UInt64 offset = stream.IndxChunk.pAviSuperIndexEntry[i].qwOffset;
            if (known.contains(offset)) {
                continue;
            }
            const std::string what = fmt::format("index chunk {} of stream {}", i, number);
            if (offset + 8 > m_file.Size()) {
                Note(51, offset, what + " lies behind the end of the file");
            } else {
                Note(38, offset, what + " is not there");
            }
            if (HasIdx1()) {
                Note(49, offset, "there is an idx1, too");
            }
        }
    }

    // ---- Media data ----

    void LookAtMedia()
    {
        RiffWalk walk(m_file);
        for (RiffPart part = {}; walk.Next(part);) {
            if (part.IsMedia()) {
                LookAtChunk(part);
            }
        }
        LookAtLastChunk();
    }

    void LookAtChunk(const RiffPart& chunk)
    {
        const UInt32 twocc = chunk.id >> 16;
        if (twocc == ('d' | 'd' << 8)) {
            LookAtDescriptor(chunk);
        }
        if (twocc == ('t' | 'x' << 8)) {
            Note(62, chunk.offset, fmt::format("chunk '{}'", FourCCText(chunk.id)));
        }
        if (StreamOf(chunk.id) >= m_reader.StreamCount()) {
            Note(76, chunk.offset, fmt::format("chunk '{}'", FourCCText(chunk.id)));
        }
        LookAtAudioChunk(chunk);
        if ((chunk.id & 0xFF) >= 'A' || (chunk.id >> 8 & 0xFF) >= 'A') {
            Note(1, chunk.offset, fmt::format("chunk '{}'", FourCCText(chunk.id)));
        }
        if (chunk.offset >= kTwoGiB) {
            Note(7, chunk.offset, "a chunk 2 GiB into the file");
        }
        if (chunk.offset >= kFourGiB) {
            Note(27, chunk.offset, "a chunk 4 GiB into the file");
        }
    }

    void LookAtDescriptor(const RiffPart& chunk)
    {
        if (chunk.size != LX_AVIREAD_DRM_BYTES) {
            Note(22, chunk.offset, fmt::format("a descriptor of {} bytes", chunk.size));
        }
        if (State().bIndxPresent != 0) {
            Note(45, chunk.offset, "a protected frame");
        }
    }

    // Reports a chunk that does not count one in format mode.
    void LookAtAudioChunk(const RiffPart& chunk)
    {
        const lxAviReadCore_StreamInfo_t* const stream = m_reader.Stream(StreamOf(chunk.id));
        if (stream == nullptr || stream->StreamType != LX_AVIREAD_STREAM_AUDIO || stream->Header.dwSampleSize != 0) {
            return;
        }
        const UInt32 block = AudioFormatOf(*stream).nBlockAlign;
        if (block > 4 && (chunk.size == 0 || chunk.size > block)) {
            Note(59, chunk.offset, fmt::format("{} bytes in blocks of {}", chunk.size, block));
        }
    }

    void LookAtLastChunk()
    {
        if (m_scan.riffLists != 1 || State().bIndxPresent != 0 || !m_scan.lastMedia || IsAbsolute()) {
            return;
        }
        const RiffPart& last = *m_scan.lastMedia;
        if (last.offset + 12 > m_scan.moviEnd) {
            Note(19, last.offset, fmt::format("the last chunk has {} bytes", last.size));
        }
    }

    // ---- Indexes ----

    bool HasIdx1() const { return m_scan.idx1 && m_scan.idx1->count > 0; }

    RecordReader Idx1Records() const
    {
        return {m_file, m_scan.idx1 ? std::vector{*m_scan.idx1} : std::vector<RecordRun>{}};
    }

    // Whether the offsets of idx1 count from the start of the file: no chunk is before the first one.
    bool IsAbsolute() const
    {
        IndexRecord first = {};
        return m_scan.firstMedia && Idx1Records().Next(first) && first.offset >= m_scan.firstMedia->offset;
    }

    void LookAtIdx1()
    {
        RecordReader records = Idx1Records();
        for (IndexRecord record = {}; records.Next(record);) {
            const UInt32 stream = StreamOf(record.id);
            const lxAviReadCore_StreamInfo_t* const info = m_reader.Stream(stream);
            const bool known = info != nullptr && info->StreamType != LX_AVIREAD_STREAM_NONE;
            if (record.id >> 16 == ('w' | 'b' << 8) && known && info->StreamType != LX_AVIREAD_STREAM_AUDIO) {
                Note(33, record.at, fmt::format("a 'wb' record of stream {}", stream));
            }
        }
        if (!HasIdx1()) {
            return;
        }
        const UInt64 at = m_scan.idx1->at;
        if (m_scan.riffLists > 1 && !IsAbsolute()) {
            Note(48, at, fmt::format("relative offsets in a file of {} lists", m_scan.riffLists));
        }
        if (m_scan.idx1->count < State().idx1Size / 16) {
            Note(51, at, fmt::format("{} of {} records are there", m_scan.idx1->count, State().idx1Size / 16));
        }
    }

    void LookAtIndexChunks()
    {
        for (const ScannedIndex& index : m_scan.indexes) {
            const bool isOneLevel = index.id == Code("indx");
            if (!isOneLevel && !index.isOneWordMore) {
                Note(39, index.offset, fmt::format("records 32 bytes behind the start of '{}'", FourCCText(index.id)));
            }
            if (!index.HasKnownSubType()) {
                Note(78, index.offset, fmt::format("sub type {}", index.subType));
            }
            if (index.base >= kFourGiB) {
                Note(35, index.offset, fmt::format("base offset {}", index.base));
            }
            if (isOneLevel) {
                LookAtOneLevelIndex(index);
            }
        }
        LookAtKeyFlags(m_scan.indexes.empty() ? Idx1Records() : RecordReader(m_file, m_scan.OpenDmlRuns()));
    }

    void LookAtOneLevelIndex(const ScannedIndex& index)
    {
        Note(40, index.offset, "an index on one level");
        if (index.IsField()) {
            Note(36, index.offset, "a field index on one level");
        }
        if (m_scan.idx1Promised) {
            Note(37, index.offset, "an index on one level, and the main header promises an idx1");
        }
    }

    void LookAtKeyFlags(RecordReader records)
    {
        std::optional<UInt64> first;
        for (IndexRecord record = {}; records.Next(record);) {
            const UInt32 twocc = record.id >> 16;
            if ((twocc != ('d' | 'c' << 8) && twocc != ('d' | 'b' << 8)) ||
                static_cast<int>(StreamOf(record.id)) != State().videoStreamNr) {
                continue;
            }
            if (record.isKey) {
                return;
            }
            first = first.value_or(record.at);
        }
        if (first) {
            Note(50, *first, "no video record has a key flag");
        }
    }

    void LookAtTable()
    {
        const auto table = m_reader.Table();
        if (table.empty()) {
            return;
        }
        if (table.front()->videoFrameNumber > 0) {
            Note(43, table.front()->videoChunkOffset,
                 fmt::format("{} frames before the first key frame", table.front()->videoFrameNumber));
        }
        const UInt32 tracks = std::min<UInt32>(State().AudioTracksCount, LX_AVIREAD_AUDIO_TRACKS);
        for (UInt32 track = 0; track < tracks; ++track) {
            if (table.front()->audioChunkOffset[track] == 0) {
                Note(29, {}, fmt::format("audio track {} has no chunk in the index", track));
            }
        }
    }

    const Reader& m_reader;
    const SourceFile& m_file;
    const RiffScan& m_scan;
    std::map<UInt32, TouchedQuirk> m_found;
};

} // namespace

const QuirkTitle& TitleOf(UInt32 quirk)
{
    return *std::find_if(std::begin(kTitles), std::end(kTitles),
                         [&](const QuirkTitle& t) { return t.number == quirk; });
}

std::vector<TouchedQuirk> TouchedQuirks(const Reader& reader, const SourceFile& file, const RiffScan& scan)
{
    return Detector(reader, file, scan).Run();
}

std::string QuirkName(UInt32 quirk) { return fmt::format("Q{:02}", quirk); }

} // namespace lxavi
