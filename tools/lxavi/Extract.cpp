// lxavi extract: writes each stream to a file that players can open, and a manifest that tells about all of them.

#include "Codecs.hpp"
#include "Commands.hpp"
#include "Output.hpp"
#include "StreamFile.hpp"
#include "Undelivered.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>

namespace lxavi {

namespace {

namespace fs = std::filesystem;

const std::vector<Column> kColumns = {{"stream", 6},         {"type", -8},  {"codec", -16}, {"chunks", 8},
                                      {"payload_bytes", 13}, {"form", -26}, {"file", -24}};

// What one pass over the file writes. One pass delivers one video stream, one audio track and one subtitle track.
struct Pass {
    std::optional<UInt32> video; // stream number
    std::optional<UInt32> audio; // track
    std::optional<UInt32> subtitle;
};

// The last track number stands for no track in a file that has fewer.
constexpr UInt32 kNoTrack = LX_AVIREAD_AUDIO_TRACKS - 1;

// The range of time that a pass writes. It is over when every stream of the pass has passed its end.
class Range {
public:
    Range(const ExtractOptions& extract, bool hasVideo, const Pass& pass)
        : m_to(extract.to),
          m_from(hasVideo ? 0 : extract.from.value_or(0)), m_isOver{{LX_AVIREAD_STREAM_VIDEO, !pass.video},
                                                                    {LX_AVIREAD_STREAM_AUDIO, !pass.audio},
                                                                    {LX_AVIREAD_STREAM_SUBTITLE, !pass.subtitle}}
    {
    }

    bool Holds(const Item& item)
    {
        const bool isBehind = m_to && item.time >= *m_to;
        m_isOver[item.chunk.eStreamType] = m_isOver[item.chunk.eStreamType] || isBehind;
        return !isBehind && item.time >= m_from;
    }

    bool IsOver() const
    {
        return m_to && std::all_of(m_isOver.begin(), m_isOver.end(), [](const auto& type) { return type.second; });
    }

private:
    std::optional<UInt32> m_to;
    UInt32 m_from; // with video, a jump has led to the start; without it there are no key frames to jump to
    std::map<UInt32, bool> m_isOver; // by type of stream
};

// A file on its way, with what the manifest tells about it.
class Extract {
public:
    Extract(const StreamToWrite& stream, const fs::path& path, const std::string& input, bool force)
        : m_stream(stream), m_path(path), m_out(path, input, force), m_file(MakeStreamFile(stream, m_out))
    {
    }

    // A damaged size can claim gigabytes: the chunk gets the size of what is there.
    void Take(Reader& reader, const Item& delivered)
    {
        Item item = delivered;
        item.chunk.uiSize = reader.BytesThere(delivered);
        if (item.chunk.uiSize == 0) {
            m_file->BeginChunk(item, {});
        }
        UInt32 taken = 0;
        try {
            reader.ReadPayload(delivered, [&](std::span<const UInt8> piece) {
                if (taken == 0) {
                    m_file->BeginChunk(item, piece);
                }
                m_file->Payload(piece);
                taken += static_cast<UInt32>(piece.size());
                m_bytes += piece.size();
            });
        } catch (const Failure&) {
            if (taken > 0) {
                FillUp(m_file->StatesSizes() ? item.chunk.uiSize - taken : 0);
                EndChunk(item);
            }
            throw;
        }
        EndChunk(item);
    }

    void Finish() { m_file->Finish(); }
    void Commit() { m_out.Commit(); }

    Json Report() const
    {
        const lxAviReadCore_StreamInfo_t& info = *m_stream.reader.Stream(m_stream.number);
        Json json;
        json["stream"] = m_stream.number;
        json["type"] = TypeName(info.StreamType);
        json["codec"] = CodingOf(info).name;
        json["file"] = m_path.filename().string();
        json["form"] = m_file->Form();
        json["chunks"] = m_chunks;
        json["protected_chunks"] = m_protected;
        json["payload_bytes"] = m_bytes;
        json["begins_us"] = m_beginsUsec;
        json["duration_us"] = m_endsUsec - std::min(m_beginsUsec, m_endsUsec);
        AddFormat(json, info);
        return json;
    }

private:
    // A chunk that a pipe ends in may have begun with its whole size: zeros stand for the rest.
    void FillUp(UInt32 size)
    {
        constexpr UInt32 kPiece = 64 * 1024;
        const std::vector<UInt8> zeros(std::min(size, kPiece));
        for (UInt32 piece = 0; size > 0; size -= piece) {
            piece = std::min(size, kPiece);
            m_file->Payload(std::span(zeros).first(piece));
        }
    }

    void EndChunk(const Item& item)
    {
        m_file->EndChunk();
        NoteTimes(item);
        ++m_chunks;
        m_protected += item.chunk.bDrm;
    }

    void NoteTimes(const Item& item)
    {
        const lxAviRead_ChunkData_t& chunk = item.chunk;
        if (m_chunks == 0) {
            m_beginsUsec = lxAviReadCore_GetStreamTimeUsec(chunk.uiStreamNr, chunk.uiFrameNumber, chunk.uiBytePosition);
        }
        m_endsUsec = lxAviReadCore_GetStreamTimeUsec(chunk.uiStreamNr, chunk.uiFrameNumber + 1,
                                                     chunk.uiBytePosition + chunk.uiSize);
    }

    static void AddFormat(Json& json, const lxAviReadCore_StreamInfo_t& info)
    {
        json["rate"] = info.Header.dwRate;
        json["scale"] = info.Header.dwScale;
        if (info.StreamType == LX_AVIREAD_STREAM_VIDEO) {
            const lxAviRead_StrfVideo_t format = VideoFormatOf(info);
            json["width"] = format.biWidth;
            json["height"] = std::abs(static_cast<std::int64_t>(format.biHeight));
        } else if (info.StreamType == LX_AVIREAD_STREAM_AUDIO) {
            const lxAviRead_StrfAudio_t format = AudioFormatOf(info);
            json["sample_rate_hz"] = format.nSamplesPerSec;
            json["channels"] = format.nChannels;
            json["bits_per_sample"] = format.wBitsPerSample;
        }
    }

    StreamToWrite m_stream;
    fs::path m_path;
    OutputFile m_out;
    std::unique_ptr<StreamFile> m_file;
    UInt64 m_chunks = 0;
    UInt64 m_protected = 0;
    UInt64 m_bytes = 0;
    UInt64 m_beginsUsec = 0;
    UInt64 m_endsUsec = 0;
};

class Extraction {
public:
    Extraction(Reader& reader, const ExtractOptions& extract, const std::vector<UInt64>& keyFrames)
        : m_reader(reader), m_extract(extract), m_keyFrames(keyFrames), m_mainVideo(reader.State().videoStreamNr)
    {
    }

    Json Run()
    {
        static_cast<void>(m_reader.TrackToPlay(m_extract.audio));
        const std::vector<Pass> passes = Passes();
        if (passes.size() > 1 && lxalAviRead_FileSeekPossible == 0) {
            throw Failure("has several tracks and cannot seek: extract one of them with --audio");
        }
        MakeFolder();
        RefuseToOverwriteAny();
        NoteLeftOut();
        for (size_t i = 0; i < passes.size(); ++i) {
            const bool isAlone = passes.size() == 1;
            PlayPass(passes[i], i == 0,
                     isAlone ? "extracting" : fmt::format("extracting, pass {} of {}", i + 1, passes.size()));
        }
        NoteUndelivered();
        NoteEmptyStreams();
        return Finish();
    }

    // Why a part of the input could not be read; empty when all of it was.
    const std::string& Trouble() const { return m_trouble; }

private:
    bool IsVideo(UInt32 number) const
    {
        const lxAviReadCore_StreamInfo_t* const stream = m_reader.Stream(number);
        return stream != nullptr && stream->StreamType == LX_AVIREAD_STREAM_VIDEO;
    }

    // The main video goes with the first tracks. Each further video stream needs a pass of its own.
    std::vector<Pass> Passes() const
    {
        std::vector<UInt32> audio;
        for (UInt32 track = 0; track < m_reader.AudioTracks(); ++track) {
            if (!m_extract.audio || *m_extract.audio == track) {
                audio.push_back(track);
            }
        }
        std::vector<Pass> passes(std::max<size_t>({audio.size(), m_reader.SubtitleTracks(), 1}));
        for (size_t i = 0; i < passes.size(); ++i) {
            passes[i].audio = i < audio.size() ? std::optional(audio[i]) : std::nullopt;
            passes[i].subtitle = i < m_reader.SubtitleTracks() ? std::optional(static_cast<UInt32>(i)) : std::nullopt;
        }
        if (m_mainVideo >= 0) {
            passes[0].video = static_cast<UInt32>(m_mainVideo);
        }
        for (UInt32 i = 0; i < m_reader.StreamCount(); ++i) {
            if (IsVideo(i) && static_cast<int>(i) != m_mainVideo && !m_reader.Settings().defaultMode) {
                passes.push_back({i, {}, {}});
            }
        }
        return passes;
    }

    // ---- Files ----

    std::string PathOf(UInt32 number) const
    {
        const StreamToWrite stream = {m_reader, number, m_extract.raw, m_extract.from.has_value(), m_keyFrames};
        return fs::path(m_extract.folder) / fmt::format("stream{:02}_{}.{}", number,
                                                        TypeName(m_reader.Stream(number)->StreamType),
                                                        ExtensionOf(stream));
    }

    std::string ManifestPath() const { return fs::path(m_extract.folder) / "manifest.json"; }

    void MakeFolder() const
    {
        std::error_code error;
        fs::create_directories(m_extract.folder, error);
        if (error) {
            throw OutputFailure(m_extract.folder, fmt::format("cannot be made: {}", error.message()));
        }
    }

    // Before anything is written.
    void RefuseToOverwriteAny() const
    {
        const std::string input = m_reader.Settings().Path();
        RefuseToOverwrite(ManifestPath(), input, m_extract.force);
        for (UInt32 i = 0; i < m_reader.StreamCount(); ++i) {
            if (m_reader.Stream(i)->StreamType != LX_AVIREAD_STREAM_NONE) {
                RefuseToOverwrite(PathOf(i), input, m_extract.force);
            }
        }
    }

    Extract& FileOf(UInt32 number)
    {
        auto found = m_files.find(number);
        if (found == m_files.end()) {
            const StreamToWrite stream = {m_reader, number, m_extract.raw, m_extract.from.has_value(), m_keyFrames};
            auto file = std::make_unique<Extract>(stream, PathOf(number), m_reader.Settings().Path(), m_extract.force);
            found = m_files.emplace(number, std::move(file)).first;
        }
        return *found->second;
    }

    // ---- What is left out ----

    void NoteLeftOut(UInt32 stream, const std::string& why)
    {
        Say(fmt::format("lxavi: {}: stream {} is left out: {}", m_reader.Settings().Name(), stream, why));
        m_leftOut.push_back({{"stream", stream}, {"why", why}});
    }

    void NoteLeftOut()
    {
        for (UInt32 i = 0; i < m_reader.StreamCount(); ++i) {
            const lxAviReadCore_StreamInfo_t& stream = *m_reader.Stream(i);
            if (stream.StreamType == LX_AVIREAD_STREAM_NONE) {
                NoteLeftOut(i, fmt::format("its type '{}' is not supported", FourCCText(stream.Header.fccType)));
            } else if (stream.StreamType == LX_AVIREAD_STREAM_AUDIO &&
                       m_reader.State().TrackNumber[i] >= LX_AVIREAD_AUDIO_TRACKS) {
                NoteLeftOut(i, fmt::format("only {} audio tracks can be played", LX_AVIREAD_AUDIO_TRACKS));
            }
        }
    }

    // Something of the file, or of a stream that is written, is not there.
    void NoteLoss(const Json& stream, const std::string& why)
    {
        const std::string who = stream.is_null() ? "" : fmt::format("stream {}: ", stream.get<UInt32>());
        Say(fmt::format("lxavi: {}: {}{}", m_reader.Settings().Name(), who, why));
        m_leftOut.push_back({{"stream", stream}, {"why", why}});
        m_isWhole = false;
    }

    // What of the file is never delivered. A pipe cannot be read again to look for it.
    void NoteUndelivered()
    {
        if (!m_reader.IsRegularFile()) {
            return;
        }
        m_delivered.isWholeFile = !m_extract.from && !m_extract.to;
        m_delivered.hasStopped = !m_trouble.empty();
        const Undelivered found = LookForUndelivered(m_reader, m_delivered);
        for (const auto& [number, chunks] : found.strange) {
            const std::string why = number < LX_AVIREAD_STREAMS
                                        ? "the headers do not describe it"
                                        : fmt::format("only {} streams can be read", LX_AVIREAD_STREAMS);
            NoteLeftOut(number, fmt::format("{}; it has {} chunks", why, chunks));
        }
        for (const auto& [number, chunks] : found.lost) {
            if (IsWanted(number)) {
                NoteLoss(number, fmt::format("not delivered: {} of {} chunks", chunks, found.all.at(number)));
            }
        }
        if (found.damagedPlaces > 0) {
            const std::string more =
                found.damagedPlaces > 1 ? fmt::format(", and more places: {}", found.damagedPlaces - 1) : "";
            NoteLoss(nullptr, fmt::format("damaged: {} bytes at {} are no chunk{}",
                                          found.damage.end - found.damage.start, found.damage.start, more));
        }
    }

    bool IsWanted(UInt32 number) const
    {
        const lxAviReadCore_StreamInfo_t& stream = *m_reader.Stream(number);
        const UInt32 track = m_reader.State().TrackNumber[number];
        return stream.StreamType == LX_AVIREAD_STREAM_AUDIO
                   ? track < LX_AVIREAD_AUDIO_TRACKS && (!m_extract.audio || *m_extract.audio == track)
                   : stream.StreamType != LX_AVIREAD_STREAM_NONE;
    }

    void NoteEmptyStreams()
    {
        for (UInt32 i = 0; i < m_reader.StreamCount(); ++i) {
            const bool isTold = std::any_of(m_leftOut.begin(), m_leftOut.end(),
                                            [&](const Json& entry) { return entry["stream"] == i; });
            if (IsWanted(i) && !m_files.contains(i) && !isTold) {
                NoteLeftOut(i, m_extract.from || m_extract.to ? "it has no chunks in the range" : "it has no chunks");
            }
        }
    }

    // ---- Delivery ----

    void Begin(const Pass& pass)
    {
        if (pass.video && static_cast<int>(*pass.video) != m_reader.State().videoStreamNr) {
            static_cast<void>(lxAviReadCore_SelectVideoStream(*pass.video));
            if (m_extract.from) {
                static_cast<void>(m_reader.BuildIndex());
            }
            m_reader.Start();
        } else if (m_hasStarted) {
            lxAviReadCore_RewindToStart();
        } else {
            m_reader.Start();
        }
        m_hasStarted = true;
        if (m_extract.from && m_mainVideo >= 0) {
            m_reader.Seek(*m_extract.from, pass.audio ? static_cast<int>(*pass.audio) : -1, lxAviRead_SetPosRoundDown);
        }
    }

    static bool Writes(const Pass& pass, const Item& item)
    {
        switch (item.chunk.eStreamType) {
        case LX_AVIREAD_STREAM_VIDEO: return pass.video == item.chunk.uiStreamNr;
        case LX_AVIREAD_STREAM_AUDIO: return pass.audio.has_value();
        default: return pass.subtitle.has_value();
        }
    }

    // A further video stream that cannot be jumped in does not cost the others.
    void PlayPass(const Pass& pass, bool isFirst, const std::string& what)
    {
        try {
            Play(pass, isFirst, what);
        } catch (const Failure& failure) {
            if (isFirst || !pass.video) {
                throw;
            }
            NoteLeftOut(*pass.video, failure.what());
        }
    }

    // The first pass meets the chunks of all streams.
    void Play(const Pass& pass, bool isFirst, const std::string& what)
    {
        Begin(pass);
        Progress progress(what, m_reader.FileSize());
        Range range(m_extract, m_mainVideo >= 0, pass);
        while (!range.IsOver()) {
            const Item item = m_reader.Next(pass.audio.value_or(kNoTrack), pass.subtitle.value_or(0));
            if (Reader::IsEnd(item)) {
                NoteEnd(item);
                return;
            }
            progress.At(item.offset);
            if (item.result != LX_OK || !range.Holds(item) || !Writes(pass, item)) {
                m_reader.Skip(item);
                NoteMet(item, isFirst);
                continue;
            }
            NoteMet(item, isFirst);
            m_delivered.part.end = std::max(m_delivered.part.end, item.offset);
            m_delivered.part.start = std::min(m_delivered.part.start, item.offset);
            try {
                FileOf(item.chunk.uiStreamNr).Take(m_reader, item);
            } catch (const Failure& failure) {
                m_delivered.cutStream = item.chunk.uiStreamNr;
                m_trouble = failure.what(); // the chunks before the failure are kept
                return;
            }
        }
    }

    void NoteMet(const Item& item, bool isFirst) { m_delivered.chunks[item.chunk.uiStreamNr] += isFirst ? 1 : 0; }

    void NoteEnd(const Item& item)
    {
        if (item.result != LX_AVIREAD_END_OF_MEDIA) {
            m_trouble = Failure(fmt::format("delivery stopped at {}", item.offset + 8), item.result).what();
        }
    }

    // ---- The end ----

    Json Finish()
    {
        Json streams = Json::array();
        for (auto& [number, file] : m_files) {
            file->Finish();
            streams.push_back(file->Report());
        }
        Json manifest = DocumentHead(m_reader.Settings());
        manifest["asked_from_ms"] = m_extract.from ? Json(*m_extract.from) : Json();
        manifest["asked_to_ms"] = m_extract.to ? Json(*m_extract.to) : Json();
        manifest["complete"] = m_trouble.empty() && m_isWhole;
        manifest["streams"] = streams;
        manifest["left_out"] = m_leftOut;
        OutputFile out(ManifestPath(), m_reader.Settings().Path(), m_extract.force);
        out.Write(JsonText(manifest, 2) + "\n");
        for (auto& [number, file] : m_files) {
            file->Commit();
        }
        out.Commit();
        return manifest;
    }

    Reader& m_reader;
    const ExtractOptions& m_extract;
    const std::vector<UInt64>& m_keyFrames;
    int m_mainVideo;
    std::map<UInt32, std::unique_ptr<Extract>> m_files; // by stream
    Delivered m_delivered;
    Json m_leftOut = Json::array();
    std::string m_trouble;
    bool m_isWhole = true; // nothing of the streams that are written is missing
    bool m_hasStarted = false;
};

// The offsets of the key frames that the file's index names. A pipe is read only once.
std::vector<UInt64> IndexedKeyFrames(const Options& options)
{
    std::vector<UInt64> offsets;
    std::error_code ignored;
    if (fs::is_regular_file(options.Path(), ignored)) {
        Reader reader(options);
        static_cast<void>(reader.BuildIndex());
        for (const auto* entry : reader.Table()) {
            offsets.push_back(entry->videoChunkOffset);
        }
    }
    std::sort(offsets.begin(), offsets.end());
    return offsets;
}

} // namespace

int RunExtract(const Options& options, const ExtractOptions& extract)
{
    RefuseUnknownFields(options, kColumns);     // before the work
    constexpr UInt32 kEveryKeyFrame = 1u << 30; // a range begins at the nearest one
    Options settings = options;
    settings.budget = kEveryKeyFrame;
    const std::vector<UInt64> keyFrames = IndexedKeyFrames(settings);
    Reader reader(settings);
    // Without a table the library delivers every chunk, also the frames before the first key frame.
    if (extract.from) {
        static_cast<void>(reader.BuildIndex());
    }
    Extraction extraction(reader, extract, keyFrames);
    const Json manifest = extraction.Run();
    {
        TableWriter table(options, kColumns);
        for (const Json& stream : manifest["streams"]) {
            table.Row({stream["stream"], stream["type"], stream["codec"], stream["chunks"], stream["payload_bytes"],
                       stream["form"], (fs::path(extract.folder) / stream["file"].get<std::string>()).string()});
        }
        table.Summary({{"left_out", manifest["left_out"]}, {"complete", manifest["complete"]}});
    }
    if (!extraction.Trouble().empty()) {
        throw Failure(extraction.Trouble());
    }
    if (manifest["streams"].empty()) {
        throw Failure("nothing was extracted");
    }
    return manifest["complete"].get<bool>() ? kDone : kDamaged;
}

} // namespace lxavi
