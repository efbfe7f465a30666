// The limit: only the reads that the work needs, through stdio like those of the library. The code trusts the headers,
// and counts, checks and keeps nothing.

#include "Contender.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

namespace bench {
namespace {

constexpr UInt32 kBatchBytes = 18000;    // the library reads index records in batches of this size
constexpr UInt32 kSkipBytes = 1024;      // the library skips payload in pieces of this size
constexpr UInt32 kIndexHeaderBytes = 32; // fields of an ix## chunk, with code and size
constexpr UInt32 kHeaderBytes = 8;
constexpr UInt32 kLargestPayload = 1u << 20;

class LimitFile : public Contender {
public:
    explicit LimitFile(const Input& input)
        : m_input(input), m_pFile(std::fopen(input.path.c_str(), "rb")), m_buffer(kLargestPayload)
    {
        if (m_pFile == nullptr) {
            throw std::runtime_error("cannot open " + input.path);
        }
    }
    ~LimitFile() override { std::fclose(m_pFile); }

protected:
    void Seek(UInt64 offset) { fseeko(m_pFile, static_cast<off_t>(offset), SEEK_SET); }

    void Read(void* pBuffer, size_t bytes)
    {
        if (fread(pBuffer, 1, bytes, m_pFile) != bytes) {
            throw std::runtime_error("the file has become shorter");
        }
    }

    UInt32 ReadWord()
    {
        UInt32 word = 0;
        Read(&word, sizeof word);
        return word;
    }

    // Reads code, size and payload of a chunk, and returns the number of bytes.
    UInt32 ReadChunk()
    {
        ReadWord();
        const UInt32 size = (ReadWord() + 1) & ~1u;
        Read(m_buffer.data(), size);
        return kHeaderBytes + size;
    }

    void ReadInPieces(UInt64 bytes, UInt32 piece)
    {
        for (UInt64 left = bytes; left > 0;) {
            const auto now = static_cast<UInt32>(std::min<UInt64>(left, piece));
            Read(m_buffer.data(), now);
            left -= now;
        }
    }

    const Input& m_input;
    FILE* m_pFile;
    std::vector<UInt8> m_buffer;
};

class Idx1 : public LimitFile {
public:
    Idx1(const Input& input, UInt32 passes) : LimitFile(input), m_uiPasses(passes) {}

    UInt64 Run() override
    {
        for (UInt32 pass = 0; pass < m_uiPasses; ++pass) {
            Seek(m_input.uiIdx1);
            ReadInPieces(m_input.uiIdx1Bytes, kBatchBytes);
        }
        return m_input.uiChunks;
    }

private:
    UInt32 m_uiPasses;
};

// Reads the video records twice (to count and to store the key frames), and the audio records once.
class OpenDml : public LimitFile {
public:
    OpenDml(const Input& input, UInt32 passes) : LimitFile(input), m_uiPasses(passes) {}

    UInt64 Run() override
    {
        for (UInt32 pass = 0; pass < m_uiPasses; ++pass) {
            for (const IndexChunk& chunk : m_input.indexChunks) {
                if (chunk.bVideo == (pass < 2)) {
                    Seek(chunk.uiOffset);
                    Read(m_buffer.data(), kIndexHeaderBytes);
                    ReadInPieces(chunk.uiBytes, kBatchBytes);
                }
            }
        }
        return m_input.uiChunks;
    }

private:
    UInt32 m_uiPasses;
};

class Delivery : public LimitFile {
public:
    Delivery(const Input& input, Rejected eRejected) : LimitFile(input), m_eRejected(eRejected) {}

    UInt64 Run() override
    {
        Seek(m_input.uiMovi);
        UInt64 at = m_input.uiMovi;
        UInt64 chunks = 0;
        for (; at < m_input.uiMoviEnd; ++chunks) {
            at += m_eRejected == Rejected::None ? ReadChunk() : ReadOrPass();
        }
        return m_eRejected == Rejected::LeftToResync ? m_input.uiRejected : chunks;
    }

private:
    static constexpr UInt32 kSecondTrack = 0x62773230; // "02wb"

    UInt32 ReadOrPass()
    {
        const UInt32 code = ReadWord();
        const UInt32 size = (ReadWord() + 1) & ~1u;
        if (code != kSecondTrack) {
            Read(m_buffer.data(), size);
        } else if (m_eRejected == Rejected::SkippedByCaller) {
            ReadInPieces(size, kSkipBytes);
        } else {
            PassBytes(size);
        }
        return kHeaderBytes + size;
    }

    void PassBytes(UInt32 bytes)
    {
        UInt32 window = 0;
        for (UInt32 i = 0; i < bytes; ++i) {
            window = window >> 8 | static_cast<UInt32>(getc_unlocked(m_pFile)) << 24;
        }
        m_uiWindow = window;
    }

    Rejected m_eRejected;
    volatile UInt32 m_uiWindow = 0;
};

// In the film audio and video chunks alternate. All audio chunks have one size, and all video chunks have one size.
constexpr UInt32 kFilmPairBytes = 2 * kHeaderBytes + 640 + 600;
constexpr UInt32 kFilmAudioBytes = kHeaderBytes + 640;

class Seeking : public LimitFile {
public:
    using LimitFile::LimitFile;

    UInt64 Run() override
    {
        Dice dice;
        for (UInt32 i = 0; i < kJumps; ++i) {
            const UInt32 keyFrame = dice.Below(kFilmFrames) / kFilmKeyDistance * kFilmKeyDistance;
            Seek(m_input.uiMovi + UInt64{keyFrame} * kFilmPairBytes);
            ReadChunk();
            ReadChunk();
        }
        return kJumps;
    }
};

class Stepping : public LimitFile {
public:
    Stepping(const Input& input, Steps eSteps) : LimitFile(input), m_eSteps(eSteps) {}

    UInt64 Run() override
    {
        for (UInt32 i = 0; i < kJumps; ++i) {
            const UInt32 keyFrame = m_eSteps == Steps::Forward ? i : kFilmFrames / kFilmKeyDistance - 1 - i;
            Seek(m_input.uiMovi + UInt64{keyFrame} * kFilmKeyDistance * kFilmPairBytes + kFilmAudioBytes);
            ReadChunk();
        }
        return kJumps;
    }

private:
    Steps m_eSteps;
};

// A search in an array that contains only offsets.
class Lookup : public Contender {
public:
    Lookup(const Input& input, Lookups eLookups)
    {
        for (UInt32 frame = 0; frame < kFilmFrames; frame += kFilmKeyDistance) {
            m_offsets.push_back(static_cast<UInt32>(input.uiMovi) + frame * kFilmPairBytes + kFilmAudioBytes);
        }
        Dice dice;
        for (UInt32 i = 0; i < kAsked; ++i) {
            m_asked.push_back(eLookups == Lookups::InOrder
                                  ? m_offsets[i]
                                  : m_offsets[dice.Below(static_cast<UInt32>(m_offsets.size()))]);
        }
    }

    UInt64 Run() override
    {
        UInt32 found = 0;
        for (UInt32 i = 0; i < kLookups; ++i) {
            found += *std::ranges::lower_bound(m_offsets, m_asked[i % kAsked]);
        }
        m_uiFound = found;
        return kLookups;
    }

private:
    static constexpr UInt32 kAsked = 4096;
    std::vector<UInt32> m_offsets, m_asked;
    volatile UInt32 m_uiFound = 0;
};

// A process that copies the file.
class Extraction : public Contender {
public:
    explicit Extraction(const Input& input)
        : m_input(input), m_copy(input.path + ".copy"), m_command("cat '" + input.path + "' >'" + m_copy + "'")
    {
    }
    ~Extraction() override { std::filesystem::remove(m_copy); }

    UInt64 Run() override
    {
        if (std::system(m_command.c_str()) != 0) {
            throw std::runtime_error("cannot copy " + m_input.path);
        }
        return m_input.uiChunks;
    }

private:
    const Input& m_input;
    std::string m_copy;
    std::string m_command;
};

} // namespace

std::unique_ptr<Contender> LimitIdx1(const Input& input, UInt32 passes)
{
    return std::make_unique<Idx1>(input, passes);
}

std::unique_ptr<Contender> LimitOpenDml(const Input& input, UInt32 passes)
{
    return std::make_unique<OpenDml>(input, passes);
}

std::unique_ptr<Contender> LimitDelivery(const Input& input, Rejected eRejected)
{
    return std::make_unique<Delivery>(input, eRejected);
}

std::unique_ptr<Contender> LimitSeeking(const Input& input) { return std::make_unique<Seeking>(input); }

std::unique_ptr<Contender> LimitStepping(const Input& input, Steps eSteps)
{
    return std::make_unique<Stepping>(input, eSteps);
}

std::unique_ptr<Contender> LimitLookup(const Input& input, Lookups eLookups)
{
    return std::make_unique<Lookup>(input, eLookups);
}

std::unique_ptr<Contender> LimitExtraction(const Input& input) { return std::make_unique<Extraction>(input); }

} // namespace bench
