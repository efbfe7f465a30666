#include "Checker.hpp"

#include "Codecs.hpp"
#include "IndexCheck.hpp"
#include "Output.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace lxavi {

namespace {

// One pass delivers one audio track, and the video again.
bool IsNew(const Item& item, UInt32 pass) { return pass == 0 || item.chunk.eStreamType != LX_AVIREAD_STREAM_VIDEO; }

} // namespace

// The media chunks of the structure in step with the delivered ones, and what is found on the way.
class Checker::Structure {
public:
    Structure(const SourceFile& file, Findings& findings)
        : m_findings(findings), m_end(file.Size()), m_walk(file), m_lost(findings), m_strange(findings)
    {
        Advance();
    }

    // Takes the next delivered chunk, or rejected one.
    void Meet(const Item& item)
    {
        PassBy(item.offset);
        if (m_has && m_part.offset == item.offset) {
            Advance();
            m_lost.End();
            m_strange.End();
        } else {
            m_strange.Add({Severity::Warning, item.offset, "chunk_outside_structure",
                           "delivered a chunk where the file's structure has none"});
        }
        if (item.result == LX_ERR_AVIREAD_BAD_STREAM) {
            MeetForeign(item);
        }
    }

    // Called when delivery has come to the end of the media data.
    void Finish() { PassBy(m_end); }

    // Chunks that were not delivered, by stream.
    const std::map<UInt32, UInt64>& PassedBy() const { return m_passedBy; }

private:
    void PassBy(UInt64 offset)
    {
        for (; m_has && m_part.offset < offset; Advance()) {
            ++m_passedBy[StreamOf(m_part.id)];
            m_lost.Add({Severity::Error, m_part.offset, "chunk_not_delivered",
                        fmt::format("chunk '{}' is not delivered", FourCCText(m_part.id))});
        }
    }

    void MeetForeign(const Item& item)
    {
        FindingRow& row = m_foreign.try_emplace(item.chunk.uiStreamNr, m_findings).first->second;
        row.Add({Severity::Error, item.offset, "chunk_of_no_stream",
                 fmt::format("chunk of stream {}, which the headers do not describe, or not as a type that is read",
                             item.chunk.uiStreamNr)});
    }

    void Advance()
    {
        do {
            m_has = m_walk.Next(m_part);
        } while (m_has && (!m_part.IsMedia() || IsDescriptorId(m_part.id)));
    }

    Findings& m_findings;
    UInt64 m_end;
    RiffWalk m_walk;
    RiffPart m_part = {};
    bool m_has = false;
    FindingRow m_lost;
    FindingRow m_strange;
    std::map<UInt32, FindingRow> m_foreign; // by stream
    std::map<UInt32, UInt64> m_passedBy;
};

Checker::Checker(const Options& options, CheckObserver observer)
    : m_options(options), m_observer(std::move(observer)), m_file(RegularFile(options)),
      m_scan(m_file, [this](const Finding& finding) { Add(finding); })
{
}

Findings& Checker::Run()
{
    CheckIndexes();
    Reader reader(m_options);
    CheckHeaders(reader);
    CheckLengths(reader);
    CheckOutside();
    CheckSuperIndexes(reader);
    CheckTable(reader);
    Deliver(reader);
    CheckInterleave();
    for (const TouchedQuirk& quirk : TouchedQuirks(reader, m_file, m_scan)) {
        AddQuirk(quirk);
    }
    return m_findings;
}

std::string Checker::RegularFile(const Options& options)
{
    const Reader reader(options); // refuses what is no AVI file
    if (!reader.IsRegularFile()) {
        throw Failure("cannot be checked: it is no regular file, and is read several times");
    }
    return options.Path();
}

// Damage often comes in rows of the same kind.
void Checker::Add(const Finding& finding)
{
    const bool isOfRow = finding.code == "bad_list" || finding.code == "short_rest" || finding.code == "no_chunk" ||
                         finding.code == "unknown_chunk";
    if (!isOfRow || finding.code != m_rowOf) {
        m_row.End();
    }
    m_row.Add(finding);
    m_rowOf = finding.code;
}

void Checker::Note(Severity severity, std::optional<UInt64> offset, const std::string& code, const std::string& text)
{
    m_findings.Add({severity, offset, code, text});
}

void Checker::AddQuirk(const TouchedQuirk& quirk)
{
    const QuirkTitle& title = TitleOf(quirk.number);
    const bool isRepaired = title.repaired && !m_options.defaultMode;
    Note(m_options.defaultMode ? Severity::Warning : Severity::Note, quirk.offset, QuirkName(quirk.number),
         fmt::format("{}: {}{}", title.title, quirk.what, isRepaired ? " (repaired)" : ""));
}

// ---- Headers ----

void Checker::CheckHeaders(const Reader& reader)
{
    lxAviRead_Avih_t avih = {};
    static_cast<void>(lxAviReadCore_GetAvihData(&avih));
    if (avih.dwStreams != m_scan.streamLists) {
        Note(Severity::Warning, {}, "stream_count",
             fmt::format("the main header says {} streams, the file describes {}", avih.dwStreams, m_scan.streamLists));
    }
    if (m_scan.streamLists > LX_AVIREAD_STREAMS) {
        Note(Severity::Error, {}, "too_many_streams",
             fmt::format("{} streams: those beyond the first {} are not read", m_scan.streamLists, LX_AVIREAD_STREAMS));
    }
    if (reader.State().AudioTracksCount > LX_AVIREAD_AUDIO_TRACKS) {
        Note(Severity::Error, {}, "too_many_tracks",
             fmt::format("{} audio tracks: those beyond the first {} cannot be played", reader.State().AudioTracksCount,
                         LX_AVIREAD_AUDIO_TRACKS));
    }
    if (reader.State().videoStreamNr < 0) {
        Note(Severity::Note, {}, "no_video", "there is no video stream");
    } else {
        CheckFrameRate(reader, avih);
    }
    CheckTypes(reader);
}

void Checker::CheckFrameRate(const Reader& reader, const lxAviRead_Avih_t& avih)
{
    const lxAviRead_Strh_t& header = reader.Stream(static_cast<UInt32>(reader.State().videoStreamNr))->Header;
    const bool isInStream = header.dwScale != 0 && header.dwRate != 0 && !m_options.defaultMode;
    if (avih.dwMicroSecPerFrame == 0 && !isInStream) {
        Note(Severity::Warning, {}, "no_frame_rate", "no header gives a frame duration: all video times are 0");
    }
    if (const std::string what = FrameRateConflict(reader); !what.empty()) {
        Note(Severity::Warning, {}, "frame_rates", what);
    }
}

void Checker::CheckTypes(const Reader& reader)
{
    for (UInt32 i = 0; i < reader.StreamCount(); ++i) {
        if (IsUnknown(*reader.Stream(i))) {
            Note(Severity::Warning, {}, "unknown_type",
                 fmt::format("stream {} is of the unknown type '{}'", i, FourCCText(reader.Stream(i)->Header.fccType)));
        }
    }
}

// A video stream is as long as it has frames. Players believe the headers where they show a duration.
void Checker::CheckLengths(const Reader& reader)
{
    constexpr UInt32 kTolerance = 2; // frames; many writers count one more, or one less
    lxAviRead_Avih_t avih = {};
    static_cast<void>(lxAviReadCore_GetAvihData(&avih));
    const int main = reader.State().videoStreamNr;
    const auto differs = [kTolerance](UInt32 told, UInt32 counted) {
        return std::max(told, counted) - std::min(told, counted) > std::max(kTolerance, counted / 100);
    };
    // of a file with several lists, the main header counts the frames of the first one
    if (main >= 0 && m_scan.riffLists == 1 && differs(avih.dwTotalFrames, m_frames[static_cast<UInt32>(main)])) {
        Note(Severity::Warning, {}, "total_frames",
             fmt::format("the main header says {} frames, the file has {}", avih.dwTotalFrames,
                         m_frames[static_cast<UInt32>(main)]));
    }
    for (UInt32 i = 0; i < reader.StreamCount(); ++i) {
        const lxAviReadCore_StreamInfo_t& stream = *reader.Stream(i);
        if (stream.StreamType != LX_AVIREAD_STREAM_VIDEO || stream.Header.dwSampleSize != 0) {
            continue;
        }
        if (differs(stream.Header.dwLength, m_frames[i])) {
            Note(m_frames[i] == 0 ? Severity::Error : Severity::Warning, {}, "stream_length",
                 fmt::format("the header of stream {} says {} frames, the file has {}", i, stream.Header.dwLength,
                             m_frames[i]));
        }
        if (stream.Header.dwRate == 0 || stream.Header.dwScale == 0) {
            Note(Severity::Warning, {}, "stream_rate", fmt::format("the header of stream {} has no frame rate", i));
        }
    }
}

// What players that trust the lists never find. Where the media data reach into the index, what looks like a chunk behind
// them is a record of the index.
void Checker::CheckOutside()
{
    const bool isInIndex = m_scan.strangerInMovi && m_scan.strangerInMovi->id == Code("idx1");
    if (m_scan.mediaOutside && !isInIndex) {
        m_findings.Add(
            {.severity = Severity::Error,
             .offset = m_scan.mediaOutside->offset,
             .code = "chunk_unreachable",
             .text = fmt::format("chunk '{}' stands in no list of media data", FourCCText(m_scan.mediaOutside->id)),
             .places = m_scan.mediaOutsideCount,
             .last = m_scan.lastMediaOutside});
    }
}

// ---- Indexes ----

void Checker::CheckSuperIndexes(const Reader& reader)
{
    for (UInt32 i = 0; i < reader.StreamCount(); ++i) {
        if (reader.Stream(i)->IndxChunk.pAviSuperIndexEntry != nullptr &&
            reader.Stream(i)->IndxChunk.aviIndxcommonSection.uiIndexType == 0) {
            CheckSuperIndex(i, *reader.Stream(i));
        }
    }
}

// Every entry leads to an index chunk of the stream, and every index chunk of the stream has an entry.
void Checker::CheckSuperIndex(UInt32 streamNr, const lxAviReadCore_StreamInfo_t& stream)
{
    std::map<UInt64, const ScannedIndex*> unlisted; // by offset
    for (const ScannedIndex& index : m_scan.indexes) {
        if (index.id != Code("indx") && StreamOf(index.records.chunkId) == streamNr) {
            unlisted[index.offset] = &index;
        }
    }
    const auto& common = stream.IndxChunk.aviIndxcommonSection;
    for (UInt32 i = 0; i < common.uiEntriesInUse; ++i) {
        const lxAviReadCore_AviSuperIndexEntry_t& entry = stream.IndxChunk.pAviSuperIndexEntry[i];
        const std::string what = fmt::format("entry {} of the super index of stream {}", i, streamNr);
        CheckSuperIndexEntry(entry, unlisted.erase(entry.qwOffset) > 0, what);
    }
    for (const auto& [offset, index] : unlisted) {
        Note(Severity::Warning, offset, "index_chunk_not_listed",
             fmt::format("index chunk '{}' is not listed by the super index of stream {}", FourCCText(index->id),
                         streamNr));
    }
    if (common.uiEntriesInUse > 0 && StreamOf(common.dwChunkId) != streamNr) {
        Note(Severity::Warning, {}, "super_index_stream",
             fmt::format("the super index of stream {} is about the chunks '{}'", streamNr,
                         FourCCText(common.dwChunkId)));
    }
}

// `isListed` says that it leads to an index chunk of its stream, as the first entry that does.
void Checker::CheckSuperIndexEntry(const lxAviReadCore_AviSuperIndexEntry_t& entry, bool isListed,
                                   const std::string& what)
{
    ChunkHead header = {};
    const bool isIndexChunk = m_file.Read(entry.qwOffset, &header, sizeof header) && IsIndexId(header.id);
    const bool isInList = std::any_of(m_scan.indexes.begin(), m_scan.indexes.end(),
                                      [&](const ScannedIndex& index) { return index.offset == entry.qwOffset; });
    if (isIndexChunk && !isInList) {
        Note(Severity::Error, entry.qwOffset, "segment_unreachable",
             what + " leads to an index chunk that no list holds: its media data cannot be reached");
    } else if (!isListed) {
        Note(Severity::Warning, entry.qwOffset, "super_index_entry",
             what + " leads to no index chunk of the stream, or to one that was listed before");
    } else if (entry.dwSize != header.size && entry.dwSize != header.size + sizeof header) {
        Note(Severity::Warning, entry.qwOffset, "super_index_entry",
             fmt::format("{} says {} bytes, the index chunk has {}", what, entry.dwSize, header.size));
    }
}

void Checker::CheckIndexes()
{
    Options options = m_options;
    options.defaultMode = false;
    const Reader reader(options);
    CompareIndexes(reader, m_file, m_scan, m_findings, [this](const lxAviRead_MediaChunk_t& chunk) {
        ++m_frames[chunk.uiStreamNr];
        if (m_observer.chunk) {
            m_observer.chunk(chunk);
        }
    });
}

void Checker::CheckTable(Reader& reader)
{
    const UInt32 result = reader.BuildIndex();
    const lxAviReadCore_AviInfo_t& state = reader.State();
    if (result != LX_OK && state.videoStreamNr >= 0) {
        const std::optional<UInt64> at = state.idx1Size > 0 ? std::optional(state.idx1Offset - 8) : std::nullopt;
        Note(Severity::Warning, at, "no_table", Failure("no key-frame table can be built", result).what());
    }
    const bool isDefault = m_options.defaultMode;
    const UInt32 misread = isDefault ? m_scan.IndexChunks() - m_scan.IndexesAt36() : m_scan.IndexesAt36();
    if (state.bIndxPresent != 0 && misread > 0) {
        Note(Severity::Warning, {}, "misread_index",
             fmt::format("{} of {} index chunks have their records {} bytes behind their start and not {}: "
                         "they are read one word off, and not usable for seeking",
                         misread, m_scan.IndexChunks(), isDefault ? 32 : 36, isDefault ? 36 : 32));
    }
}

// ---- Delivery ----

// One pass delivers the video, one audio track and one subtitle track.
void Checker::Deliver(Reader& reader)
{
    const UInt32 passes = std::max({reader.AudioTracks(), reader.SubtitleTracks(), 1u});
    for (UInt32 pass = 0; pass < passes; ++pass) {
        if (pass == 0) {
            reader.Start();
        } else {
            lxAviReadCore_RewindToStart();
        }
        DeliverPass(reader, pass);
    }
}

// All passes meet the same chunks, so the first one is compared with the structure.
void Checker::DeliverPass(Reader& reader, UInt32 pass)
{
    std::optional<Structure> structure;
    if (pass == 0) {
        structure.emplace(m_file, m_findings);
    }
    Progress progress("checking the delivery", reader.FileSize());
    for (;;) {
        const Item item = reader.Next(std::min<UInt32>(pass, LX_AVIREAD_AUDIO_TRACKS - 1), pass);
        if (item.result == LX_AVIREAD_END_OF_MEDIA && structure) {
            structure->Finish();
        }
        if (Reader::IsEnd(item)) {
            NoteEnd(item);
            break;
        }
        progress.At(item.offset);
        if (structure) {
            structure->Meet(item);
        }
        if (!Take(reader, item, pass)) {
            break;
        }
        m_met[item.chunk.uiStreamNr] += pass == 0 ? 1 : 0;
    }
    if (structure) {
        CheckLosses(reader, structure->PassedBy());
    }
}

// Behind damage that ends delivery, the walk over the media data goes on.
void Checker::CheckLosses(const Reader& reader, const std::map<UInt32, UInt64>& passedBy)
{
    for (const auto& [number, chunks] : m_frames) {
        const lxAviReadCore_StreamInfo_t* const stream = reader.Stream(number);
        const auto countOf = [stream = number](const std::map<UInt32, UInt64>& counts) {
            const auto found = counts.find(stream);
            return found != counts.end() ? found->second : 0;
        };
        const UInt64 known = countOf(m_met) + countOf(passedBy) + countOf(m_scan.mediaOutsideByStream);
        if (stream != nullptr && stream->StreamType != LX_AVIREAD_STREAM_NONE && chunks > known) {
            m_findings.Add(
                {.severity = Severity::Error,
                 .offset = {},
                 .code = "chunks_lost",
                 .text = fmt::format("{} of the {} chunks of stream {} cannot be played: they lie behind damage",
                                     chunks - known, chunks, number)});
        }
    }
}

void Checker::NoteEnd(const Item& item)
{
    const bool isNew = item.result != LX_AVIREAD_END_OF_MEDIA && m_stoppedAt.insert(item.offset).second;
    if (isNew) { // every pass stops there
        Note(Severity::Error, item.offset + 8, "delivery_stopped", Failure("delivery stopped", item.result).what());
    }
}

// False when delivery cannot go on.
bool Checker::Take(Reader& reader, const Item& item, UInt32 pass)
{
    if (item.result == LX_OK) {
        Observe(reader, item, pass);
    }
    if (item.result != LX_OK || !IsNew(item, pass)) {
        reader.Skip(item);
        return true;
    }
    ++m_delivered;
    try {
        reader.ReadPayload(item, [](std::span<const UInt8>) {});
        return true;
    } catch (const Failure& failure) {
        if (m_stoppedAt.insert(item.offset).second) {
            Note(Severity::Error, item.offset, "unreadable_chunk", failure.what());
        }
        return false;
    }
}

// ---- Interleave ----

void Checker::Observe(const Reader& reader, const Item& item, UInt32 pass)
{
    const bool isVideo = item.chunk.eStreamType == LX_AVIREAD_STREAM_VIDEO;
    const bool isAudio = item.chunk.eStreamType == LX_AVIREAD_STREAM_AUDIO;
    if (reader.State().videoStreamNr >= 0 && pass < reader.AudioTracks() && (isVideo || isAudio)) {
        m_interleaves[pass].Add(isVideo ? Side::Video : Side::Audio, item.time, item.endTime, item.chunk.uiSize,
                                item.offset);
    }
    if (m_observer.delivered) {
        m_observer.delivered(item, IsNew(item, pass));
    }
}

void Checker::CheckInterleave()
{
    for (const auto& [track, interleave] : m_interleaves) {
        if (interleave.NeededMsec() > kCommonQueueMsec || interleave.NeededBytes() > kCommonQueueBytes) {
            m_findings.Add(
                {.severity = Severity::Warning,
                 .offset = interleave.WorstOffset(),
                 .code = "bad_interleave",
                 .text = fmt::format("audio track {} and the video are up to {} ms apart in the file: a player "
                                     "needs to buffer {} bytes, and common players have room for {} ms and {} bytes",
                                     track, interleave.NeededMsec(), interleave.NeededBytes(), kCommonQueueMsec,
                                     kCommonQueueBytes),
                 .msec = interleave.WorstMsec()});
        }
    }
}

} // namespace lxavi
