// lxavi extract: writes each delivered stream to a file that players can open, and writes a manifest.

#include "Codecs.hpp"
#include "Commands.hpp"
#include "Output.hpp"

#include <fmt/format.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

namespace lxavi {

namespace {

namespace fs = std::filesystem;

template <typename T>
void Append(std::string& bytes, T value)
{
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

// The header of a WAV file with `bytes` bytes of samples. Its size fields have 32 bits.
std::string WavHeader(const lxAviRead_StrfAudio_t& format, UInt64 bytes)
{
    const auto size = static_cast<UInt32>(std::min<UInt64>(bytes, 0xFFFFFFFFu - 36));
    std::string header = "RIFF";
    Append(header, size + 36);
    header += "WAVEfmt ";
    Append(header, UInt32{16});
    Append(header, format.wFormatTag);
    Append(header, format.nChannels);
    Append(header, format.nSamplesPerSec);
    Append(header, format.nAvgBytesPerSec);
    Append(header, format.nBlockAlign);
    Append(header, format.wBitsPerSample);
    header += "data";
    Append(header, size);
    return header;
}

// The seven header bytes that make a raw AAC frame playable; empty when the format does not state enough.
std::string AdtsHeader(const lxAviRead_StrfAudio_t& format, UInt32 frameBytes)
{
    constexpr std::array<UInt32, 13> kRates = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                               22050, 16000, 12000, 11025, 8000,  7350};
    UInt32 profile = 1; // low complexity
    const auto* const found = std::find(kRates.begin(), kRates.end(), format.nSamplesPerSec);
    auto rateIndex = static_cast<UInt32>(found - kRates.begin());
    UInt32 channels = format.nChannels;
    if (format.cbSize >= 2 && format.uiExtension[0] != 0) { // the decoder's configuration
        const UInt32 config = static_cast<UInt32>(format.uiExtension[0]) << 8 | format.uiExtension[1];
        const UInt32 objectType = config >> 11;
        profile = objectType >= 1 && objectType <= 4 ? objectType - 1 : 1;
        rateIndex = config >> 7 & 0xF;
        channels = config >> 3 & 0xF;
    }
    const UInt32 length = frameBytes + 7;
    if (rateIndex >= kRates.size() || channels > 7 || length > 0x1FFF) {
        return {};
    }
    std::string header(7, '\0');
    header[0] = static_cast<char>(0xFF);
    header[1] = static_cast<char>(0xF1);
    header[2] = static_cast<char>(profile << 6 | rateIndex << 2 | channels >> 2);
    header[3] = static_cast<char>((channels & 3) << 6 | length >> 11);
    header[4] = static_cast<char>(length >> 3);
    header[5] = static_cast<char>((length & 7) << 5 | 0x1F);
    header[6] = static_cast<char>(0xFC);
    return header;
}

// A failed write ends the extraction. (A failed read ends only one pass.)
class WriteFailure : public Failure {
public:
    using Failure::Failure;
};

// One stream's file.
class StreamFile {
public:
    StreamFile(const fs::path& source, const fs::path& folder, UInt32 number, const lxAviReadCore_StreamInfo_t& stream)
        : m_number(number), m_type(stream.StreamType), m_coding(CodingOf(stream)), m_format(AudioFormatOf(stream)),
          m_name(fmt::format("stream{:02}_{}.{}", number, TypeName(stream.StreamType), m_coding.extension)),
          m_path(folder / m_name)
    {
        std::error_code error;
        if (fs::equivalent(source, m_path, error)) {
            throw WriteFailure(fmt::format("would overwrite {}", m_path.string()));
        }
        m_out.open(m_path, std::ios::binary);
        if (IsWav()) {
            m_out << WavHeader(m_format, 0);
        }
        Check();
    }

    void Take(Reader& reader, const Item& item)
    {
        bool first = true;
        reader.ReadPayload(item, [&](std::span<const UInt8> piece) {
            if (first && m_coding.coding == Coding::Aac && !IsFramed(piece)) {
                m_out << AdtsHeader(m_format, item.chunk.uiSize);
            }
            first = false;
            m_out.write(reinterpret_cast<const char*>(piece.data()), static_cast<std::streamsize>(piece.size()));
            m_bytes += piece.size();
        });
        Check();
        ++m_chunks;
        m_protected += item.chunk.bDrm;
    }

    Json Finish()
    {
        if (IsWav()) {
            m_out.seekp(0);
            if (m_bytes % 2 != 0) {
                m_out.seekp(0, std::ios::end).put('\0');
                m_out.seekp(0);
            }
            m_out << WavHeader(m_format, m_bytes);
        }
        m_out.close();
        Check();
        Json json;
        json["stream"] = m_number;
        json["type"] = TypeName(m_type);
        json["codec"] = m_coding.name;
        json["chunks"] = m_chunks;
        json["bytes"] = m_bytes;
        if (m_protected > 0) {
            json["protected chunks"] = m_protected;
        }
        json["file"] = m_name;
        return json;
    }

private:
    bool IsWav() const { return m_coding.coding == Coding::Pcm; }

    static bool IsFramed(std::span<const UInt8> payload)
    {
        return payload.size() > 1 && payload[0] == 0xFF && (payload[1] & 0xF6) == 0xF0;
    }

    void Check()
    {
        if (!m_out) {
            throw WriteFailure(fmt::format("cannot write {}", m_path.string()));
        }
    }

    UInt32 m_number;
    UInt32 m_type;
    StreamCoding m_coding;
    lxAviRead_StrfAudio_t m_format;
    std::string m_name;
    fs::path m_path;
    std::ofstream m_out;
    UInt64 m_chunks = 0;
    UInt64 m_bytes = 0;
    UInt64 m_protected = 0;
};

class Extraction {
public:
    Extraction(Reader& reader, const ExtractOptions& extract) : m_reader(reader), m_extract(extract) {}

    Json Run()
    {
        std::error_code error;
        fs::create_directories(m_extract.folder, error);
        if (error) {
            throw Failure(fmt::format("cannot make the folder {}", m_extract.folder));
        }
        const std::vector<UInt32> tracks = Tracks();
        const UInt32 subtitles = std::min<UInt32>(m_reader.State().SubtitleTracksCount, LX_AVIREAD_AUDIO_TRACKS);
        // One pass delivers one audio track and one subtitle track; only the first pass writes the video.
        const size_t passes = std::max<size_t>({tracks.size(), subtitles, 1});
        m_audioPasses = tracks.size();
        if (passes > 1 && lxalAviRead_FileSeekPossible == 0) {
            throw Failure("has several tracks and cannot seek: extract one of them with --audio");
        }
        for (size_t pass = 0; pass < passes; ++pass) {
            Play(pass, pass < tracks.size() ? tracks[pass] : LX_AVIREAD_AUDIO_TRACKS - 1, passes);
        }
        return Manifest();
    }

    std::string Trouble() const { return m_trouble; }

private:
    std::vector<UInt32> Tracks() const
    {
        const UInt32 count = std::min<UInt32>(m_reader.State().AudioTracksCount, LX_AVIREAD_AUDIO_TRACKS);
        std::vector<UInt32> tracks;
        if (m_extract.audio == "all") {
            for (UInt32 t = 0; t < count; ++t) {
                tracks.push_back(t);
            }
        } else {
            tracks.push_back(static_cast<UInt32>(std::stoul(m_extract.audio, nullptr, 0)));
            if (tracks[0] >= count) {
                throw Failure(fmt::format("there is no audio track {}", m_extract.audio));
            }
        }
        return tracks;
    }

    void Begin(int track)
    {
        if (m_started) {
            lxAviReadCore_RewindToStart();
        } else {
            m_reader.Start();
        }
        m_started = true;
        if (m_extract.from) {
            m_reader.Seek(*m_extract.from, track, lxAviRead_SetPosRoundDown);
        }
    }

    bool IsWanted(size_t pass, const Item& item) const
    {
        if (m_extract.to && item.time >= *m_extract.to) {
            return false;
        }
        switch (item.chunk.eStreamType) {
        case LX_AVIREAD_STREAM_VIDEO: return pass == 0;
        case LX_AVIREAD_STREAM_AUDIO: return pass < m_audioPasses;
        default: return true;
        }
    }

    void Play(size_t pass, UInt32 track, size_t passes)
    {
        Begin(static_cast<int>(track));
        Progress progress(passes > 1 ? fmt::format("extracting, pass {} of {}", pass + 1, passes) : "extracting",
                          m_reader.FileSize());
        for (;;) {
            const Item item = m_reader.Next(track, static_cast<UInt32>(pass));
            if (Reader::IsEnd(item)) {
                if (item.result != LX_AVIREAD_END_OF_MEDIA) {
                    m_trouble = Failure(fmt::format("delivery stopped at {}", item.offset + 8), item.result).what();
                }
                return;
            }
            progress.At(item.offset);
            if (item.result != LX_OK || !IsWanted(pass, item)) {
                m_reader.Skip(item);
                if (HasPassedTheEnd(item)) {
                    return;
                }
                continue;
            }
            try {
                FileOf(item.chunk.uiStreamNr).Take(m_reader, item);
            } catch (const WriteFailure&) {
                throw;
            } catch (const Failure& failure) {
                m_trouble = failure.what(); // the chunks before the failure are kept
                return;
            }
        }
    }

    // Audio can stand a little behind its video in the file, so delivery ends when the video is well beyond the end.
    bool HasPassedTheEnd(const Item& item) const
    {
        constexpr UInt32 kInterleave = 5000; // milliseconds
        return m_extract.to && item.result == LX_OK && item.chunk.eStreamType == LX_AVIREAD_STREAM_VIDEO &&
               item.time > *m_extract.to + UInt64{kInterleave};
    }

    StreamFile& FileOf(UInt32 number)
    {
        auto found = m_files.find(number);
        if (found == m_files.end()) {
            auto file = std::make_unique<StreamFile>(m_reader.Settings().file, m_extract.folder, number,
                                                     *m_reader.Stream(number));
            found = m_files.emplace(number, std::move(file)).first;
        }
        return *found->second;
    }

    Json Manifest()
    {
        Json streams = Json::array();
        for (auto& [number, file] : m_files) {
            streams.push_back(file->Finish());
        }
        Json manifest;
        manifest["source"] = m_reader.Settings().file;
        manifest["streams"] = streams;
        std::ofstream out(fs::path(m_extract.folder) / "manifest.json");
        out << manifest.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
        if (!out.flush()) {
            throw Failure(fmt::format("cannot write {}/manifest.json", m_extract.folder));
        }
        return manifest;
    }

    Reader& m_reader;
    const ExtractOptions& m_extract;
    std::map<UInt32, std::unique_ptr<StreamFile>> m_files;
    std::string m_trouble;
    size_t m_audioPasses = 0;
    bool m_started = false;
};

} // namespace

int RunExtract(const Options& options, const ExtractOptions& extract)
{
    Reader reader(options);
    // Without a table the library still delivers every chunk.
    static_cast<void>(reader.BuildIndex());
    Extraction extraction(reader, extract);
    const Json manifest = extraction.Run();
    TableWriter table(options, {{"stream", "stream", 6},
                                {"type", "type", -8},
                                {"codec", "codec", -14},
                                {"chunks", "chunks", 8},
                                {"bytes", "bytes", 12},
                                {"file", "file", -24}});
    for (const Json& stream : manifest["streams"]) {
        table.Row({stream["stream"], stream["type"], stream["codec"], stream["chunks"], stream["bytes"],
                   extract.folder + "/" + stream["file"].get<std::string>()});
    }
    if (!extraction.Trouble().empty()) {
        throw Failure(extraction.Trouble());
    }
    return kDone;
}

} // namespace lxavi
