#include "Inputs.hpp"

#include "AviBuilder.hpp"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <stdexcept>
#include <unistd.h>

namespace bench {
namespace {

using namespace avitest;

constexpr UInt64 kLargeFile = 1u << 30;
constexpr UInt32 kLargePayload = 460000;
constexpr UInt32 kLargestSmallPayload = 60;
constexpr UInt32 kFramesOfAList = 50000;
constexpr UInt32 kIndexHeaderBytes = 24; // in an ix## chunk before its records

// The inputs by name, and the folder with their files. The folder exists while the program runs.
class Folder {
public:
    Folder() : m_path(std::filesystem::temp_directory_path() / ("lxaviread-bench-" + std::to_string(getpid())))
    {
        std::filesystem::create_directories(m_path);
    }
    ~Folder() { std::filesystem::remove_all(m_path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const Input& Get(const std::string& name, const std::function<void(Input&)>& make)
    {
        const auto [found, isNew] = m_inputs.try_emplace(name);
        if (isNew) {
            found->second.path = (m_path / (name + ".avi")).string();
            make(found->second);
        }
        return found->second;
    }

private:
    std::filesystem::path m_path;
    std::map<std::string, Input> m_inputs;
};

Folder& Files()
{
    static Folder s_folder;
    return s_folder;
}

void Put(std::ofstream& file, const Bytes& bytes)
{
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

UInt32 WordAt(const Bytes& bytes, size_t at)
{
    UInt32 word = 0;
    std::memcpy(&word, &bytes.at(at), sizeof word);
    return word;
}

// Finds the places of the indexes: walks through the lists, except the header lists.
void FindIndex(Input& input, const Bytes& bytes, size_t begin, size_t end)
{
    for (size_t at = begin; at + 12 <= end;) {
        const UInt32 code = WordAt(bytes, at);
        const UInt32 size = WordAt(bytes, at + 4);
        if (code == Code("RIFF") || (code == Code("LIST") && WordAt(bytes, at + 8) == Code("movi"))) {
            FindIndex(input, bytes, at + 12, at + 8 + size);
        } else if (code == Code("idx1")) {
            input.uiIdx1 = at + 8;
            input.uiIdx1Bytes = size;
        } else if (code == Code("ix00") || code == Code("ix01")) {
            input.indexChunks.push_back({at, size - kIndexHeaderBytes, code == Code("ix00")});
        }
        at += 8 + size + size % 2;
    }
}

void Write(Input& input, AviBuilder& builder)
{
    const Bytes bytes = builder.Build();
    FindIndex(input, bytes, 0, bytes.size());
    std::ofstream file(input.path, std::ios::binary);
    Put(file, bytes);
    if (!file.flush()) {
        throw std::runtime_error("no room for " + input.path);
    }
    input.uiChunks = builder.MediaItems().size();
    input.uiMovi = builder.MoviOffset();
    input.uiMoviEnd = builder.MoviOffset() + builder.MoviSize();
}

// 0 to 60 bytes; all sizes occur equally often.
Bytes SmallPayload(UInt32 n) { return Fill(n * 37u % (kLargestSmallPayload + 1)); }

void AddSmallChunks(AviBuilder& builder, UInt32 chunks)
{
    builder.Add(VideoStream()).Add(PcmStream());
    for (UInt32 frame = 0; frame < chunks / 2; ++frame) {
        builder.Audio(1, SmallPayload(2 * frame)).Frame(0, SmallPayload(2 * frame + 1), frame % 10 == 0);
    }
}

// The film of two hours, in a second.
constexpr UInt32 kFrames = 25;
constexpr UInt32 kAudioChunks = 42;
constexpr UInt32 kAudioBytes = 384; // in a chunk

// Writes a film second by second, because the whole film would not fit into the memory of a small machine. The size
// fields are patched when all is written.
class FilmWriter {
public:
    explicit FilmWriter(Input& input) : m_input(input), m_file(input.path, std::ios::binary)
    {
        AviBuilder builder;
        builder.eIndex = IndexKind::None;
        builder.avih.dwFlags = 0x10; // there is an index
        builder.Add(VideoStream()).Add(Mp3CbrStream(kAudioBytes * kAudioChunks)).Frame(0, Fill(0), true);
        m_head = builder.Build();
        m_input.uiMovi = builder.MoviOffset();
        m_head.resize(m_input.uiMovi);
        m_uiAt = m_input.uiMovi;
        Put(m_file, m_head);
    }

    void Add(std::string_view code, UInt32 bytes, UInt32 flags)
    {
        const Bytes chunk = Chunk(code, Fill(bytes));
        const UInt64 fromMovi = m_uiAt - m_input.uiMovi + 4;
        m_index += Text(code) + U32(flags) + U32(fromMovi) + U32(bytes);
        Put(m_file, chunk);
        m_uiAt += chunk.size();
        ++m_input.uiChunks;
    }

    void Finish()
    {
        m_input.uiMoviEnd = m_uiAt;
        m_input.uiIdx1 = m_uiAt + 8;
        m_input.uiIdx1Bytes = m_index.size();
        Put(m_file, Chunk("idx1", m_index));
        Patch(4, m_uiAt + 8 + m_index.size() - 8);
        Patch(m_input.uiMovi - 8, m_uiAt - m_input.uiMovi + 4);
        if (!m_file.flush()) {
            throw std::runtime_error("no room for " + m_input.path);
        }
    }

private:
    void Patch(UInt64 at, UInt64 size)
    {
        m_file.seekp(static_cast<std::streamoff>(at));
        Put(m_file, U32(size));
    }

    Input& m_input;
    std::ofstream m_file;
    Bytes m_head, m_index;
    UInt64 m_uiAt = 0;
};

void WriteTwoHours(Input& input)
{
    constexpr UInt32 kSeconds = 2 * 60 * 60;

    constexpr UInt32 kKeyFlag = 0x10;
    FilmWriter writer(input);
    for (UInt32 second = 0; second < kSeconds; ++second) {
        UInt32 audio = 0;
        for (UInt32 frame = 0; frame < kFrames; ++frame) {
            for (; audio * kFrames < (frame + 1) * kAudioChunks; ++audio) {
                writer.Add("01wb", kAudioBytes, 0);
            }
            const bool bKey = frame == 0;
            writer.Add("00dc", bKey ? 20000 : 1000 + (second * 31 + frame) * 97 % 3200, bKey ? kKeyFlag : 0);
        }
    }
    writer.Finish();
}

// Writes one chunk again and again, because the whole file would not fit into the memory of a small machine.
void WriteLarge(Input& input)
{
    AviBuilder builder;
    builder.eIndex = IndexKind::None;
    builder.Add(VideoStream()).Frame(0, Fill(kLargePayload), true);
    Bytes head = builder.Build();
    const Bytes chunk = Chunk("00dc", Fill(kLargePayload));
    const size_t movi = builder.MoviOffset();
    input.uiChunks = kLargeFile / chunk.size();
    input.uiMovi = movi;
    input.uiMoviEnd = movi + input.uiChunks * chunk.size();
    head.resize(movi);
    const auto patch = [&head](size_t at, UInt64 size) {
        std::ranges::copy(U32(size), head.begin() + static_cast<long>(at));
    };
    patch(4, input.uiMoviEnd - 8);
    patch(movi - 8, input.uiMoviEnd - movi + 4);
    std::ofstream file(input.path, std::ios::binary);
    Put(file, head);
    for (UInt64 i = 0; i < input.uiChunks; ++i) {
        Put(file, chunk);
    }
    if (!file.flush()) {
        throw std::runtime_error("no room for " + input.path);
    }
}

} // namespace

const Input& SmallChunks(UInt32 chunks)
{
    return Files().Get("small-" + std::to_string(chunks), [&](Input& input) {
        AviBuilder builder;
        AddSmallChunks(builder, chunks);
        Write(input, builder);
    });
}

const Input& SmallChunksOpenDml(UInt32 chunks)
{
    return Files().Get("opendml-" + std::to_string(chunks), [&](Input& input) {
        AviBuilder builder;
        builder.eIndex = IndexKind::SuperStandard;
        builder.eLayout = IxLayout::At32;
        builder.Add(VideoStream()).Add(PcmStream());
        for (UInt32 frame = 0; frame < chunks / 2; ++frame) {
            if (frame > 0 && frame % kFramesOfAList == 0) {
                builder.NextRiff();
            }
            builder.Audio(1, SmallPayload(2 * frame)).Frame(0, SmallPayload(2 * frame + 1), frame % 10 == 0);
        }
        Write(input, builder);
    });
}

const Input& LargeChunks() { return Files().Get("large", WriteLarge); }

const Input& TwoTracks(UInt32 chunks, UInt32 payload)
{
    return Files().Get("tracks-" + std::to_string(payload), [&](Input& input) {
        AviBuilder builder;
        builder.Add(VideoStream()).Add(PcmStream()).Add(PcmStream());
        for (UInt32 frame = 0; frame < chunks / 3; ++frame) {
            builder.Audio(1, Fill(60)).Audio(2, Fill(payload)).Frame(0, Fill(40), frame % 10 == 0);
            input.uiRejected += payload;
        }
        Write(input, builder);
    });
}

const Input& Film()
{
    return Files().Get("film", [](Input& input) {
        AviBuilder builder;
        builder.Add(VideoStream(1000 / kFilmFrameMsec)).Add(PcmStream());
        for (UInt32 frame = 0; frame < kFilmFrames; ++frame) {
            builder.Audio(1, Fill(640)).Frame(0, Fill(600), frame % kFilmKeyDistance == 0);
        }
        Write(input, builder);
    });
}

const Input& TwoHours() { return Files().Get("two-hours", WriteTwoHours); }

} // namespace bench
