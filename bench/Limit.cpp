// The limits: only the reads that the work needs. The code trusts the headers, and counts, checks and keeps nothing.
//
//   stdio   the fastest public calls: words byte by byte with getc_unlocked, payload with fread_unlocked
//   floor   the file is mapped, and the same bytes are touched

#include "Contender.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace bench {
namespace {

constexpr UInt32 kBatchBytes = 18000;    // the library reads index records in batches of this size
constexpr UInt32 kSkipBytes = 1024;      // the library skips payload in pieces of this size
constexpr UInt32 kIndexHeaderBytes = 32; // fields of an ix## chunk, with code and size
constexpr UInt32 kHeaderBytes = 8;
constexpr UInt32 kLargestPayload = 1u << 20;

// ---- The two ways to the bytes ----

class Stdio {
public:
    explicit Stdio(const Input& input) : m_pFile(std::fopen(input.path.c_str(), "rb")), m_buffer(kLargestPayload)
    {
        if (m_pFile == nullptr) {
            throw std::runtime_error("cannot open " + input.path);
        }
    }
    ~Stdio() { std::fclose(m_pFile); }
    Stdio(const Stdio&) = delete;
    Stdio& operator=(const Stdio&) = delete;

    void Seek(UInt64 offset) { fseeko(m_pFile, static_cast<off_t>(offset), SEEK_SET); }
    UInt32 Byte() { return static_cast<UInt32>(getc_unlocked(m_pFile)); }
    UInt32 Word() { return Byte() | Byte() << 8 | Byte() << 16 | Byte() << 24; }

    void Bytes(size_t bytes)
    {
        if (fread_unlocked(m_buffer.data(), 1, bytes, m_pFile) != bytes) {
            throw std::runtime_error("the file has become shorter");
        }
    }

private:
    FILE* m_pFile;
    std::vector<UInt8> m_buffer;
};

class Mapped {
public:
    explicit Mapped(const Input& input)
    {
        const int file = open(input.path.c_str(), O_RDONLY);
        struct stat status = {};
        fstat(file, &status);
        m_bytes = static_cast<size_t>(status.st_size);
        void* const pMap = mmap(nullptr, m_bytes, PROT_READ, MAP_PRIVATE | MAP_POPULATE, file, 0);
        close(file);
        if (pMap == MAP_FAILED) {
            throw std::runtime_error("cannot map " + input.path);
        }
        m_pStart = m_pAt = static_cast<const UInt8*>(pMap);
    }
    ~Mapped() { munmap(const_cast<UInt8*>(m_pStart), m_bytes); }
    Mapped(const Mapped&) = delete;
    Mapped& operator=(const Mapped&) = delete;

    void Seek(UInt64 offset) { m_pAt = m_pStart + offset; }
    UInt32 Byte() { return *m_pAt++; }

    UInt32 Word()
    {
        UInt32 word = 0;
        std::memcpy(&word, m_pAt, sizeof word);
        m_pAt += sizeof word;
        return word;
    }

    // Every byte is added to a sum that nobody reads.
    void Bytes(size_t bytes)
    {
        UInt64 sum = 0;
        for (size_t i = 0; i + sizeof sum <= bytes; i += sizeof sum) {
            UInt64 eight = 0;
            std::memcpy(&eight, m_pAt + i, sizeof eight);
            sum += eight;
        }
        for (size_t i = bytes & ~(sizeof sum - 1); i < bytes; ++i) {
            sum += m_pAt[i];
        }
        m_pAt += bytes;
        m_uiSum = sum;
    }

private:
    const UInt8* m_pStart = nullptr;
    const UInt8* m_pAt = nullptr;
    size_t m_bytes = 0;
    volatile UInt64 m_uiSum = 0;
};

// ---- The work ----

template <typename Source>
class Limited : public Contender {
public:
    explicit Limited(const Input& input) : m_input(input), m_source(input) {}

protected:
    // Reads code, size and payload of a chunk, and returns the number of bytes.
    UInt32 ReadChunk()
    {
        m_source.Word();
        const UInt32 size = (m_source.Word() + 1) & ~1u;
        m_source.Bytes(size);
        return kHeaderBytes + size;
    }

    void ReadInPieces(UInt64 bytes, UInt32 piece)
    {
        for (UInt64 left = bytes; left > 0;) {
            const auto now = static_cast<UInt32>(std::min<UInt64>(left, piece));
            m_source.Bytes(now);
            left -= now;
        }
    }

    const Input& m_input;
    Source m_source;
};

template <typename Source>
class Idx1 : public Limited<Source> {
public:
    Idx1(const Input& input, UInt32 passes) : Limited<Source>(input), m_uiPasses(passes) {}

    UInt64 Run() override
    {
        for (UInt32 pass = 0; pass < m_uiPasses; ++pass) {
            this->m_source.Seek(this->m_input.uiIdx1);
            this->ReadInPieces(this->m_input.uiIdx1Bytes, kBatchBytes);
        }
        return this->m_input.uiChunks;
    }

private:
    UInt32 m_uiPasses;
};

// Reads the video records twice (to count and to store the key frames), and the audio records once.
template <typename Source>
class OpenDml : public Limited<Source> {
public:
    OpenDml(const Input& input, UInt32 passes) : Limited<Source>(input), m_uiPasses(passes) {}

    UInt64 Run() override
    {
        for (UInt32 pass = 0; pass < m_uiPasses; ++pass) {
            for (const IndexChunk& chunk : this->m_input.indexChunks) {
                if (chunk.bVideo == (pass < 2)) {
                    this->m_source.Seek(chunk.uiOffset);
                    this->m_source.Bytes(kIndexHeaderBytes);
                    this->ReadInPieces(chunk.uiBytes, kBatchBytes);
                }
            }
        }
        return this->m_input.uiChunks;
    }

private:
    UInt32 m_uiPasses;
};

template <typename Source>
class Delivery : public Limited<Source> {
public:
    Delivery(const Input& input, Rejected eRejected) : Limited<Source>(input), m_eRejected(eRejected) {}

    UInt64 Run() override
    {
        this->m_source.Seek(this->m_input.uiMovi);
        UInt64 at = this->m_input.uiMovi;
        UInt64 delivered = 0;
        while (at < this->m_input.uiMoviEnd) {
            at += m_eRejected == Rejected::None ? this->ReadChunk() : ReadOrPass();
            delivered += m_bDelivered ? 1 : 0;
        }
        return m_eRejected == Rejected::LeftToResync ? this->m_input.uiRejected : delivered;
    }

private:
    static constexpr UInt32 kSecondTrack = 0x62773230; // "02wb"

    UInt32 ReadOrPass()
    {
        const UInt32 code = this->m_source.Word();
        const UInt32 size = (this->m_source.Word() + 1) & ~1u;
        m_bDelivered = code != kSecondTrack;
        if (m_bDelivered) {
            this->m_source.Bytes(size);
        } else if (m_eRejected == Rejected::SkippedByCaller) {
            this->ReadInPieces(size, kSkipBytes);
        } else {
            PassBytes(size);
        }
        return kHeaderBytes + size;
    }

    void PassBytes(UInt32 bytes)
    {
        UInt32 window = 0;
        for (UInt32 i = 0; i < bytes; ++i) {
            window = window >> 8 | this->m_source.Byte() << 24;
        }
        m_uiWindow = window;
    }

    Rejected m_eRejected;
    bool m_bDelivered = true;
    volatile UInt32 m_uiWindow = 0;
};

// Opens the file, reads the index as often as there are passes, and then all chunks.
template <typename Source>
class Playing : public Contender {
public:
    Playing(const Input& input, Index eIndex) : m_input(input), m_eIndex(eIndex) {}

    UInt64 Run() override
    {
        Idx1<Source> index(m_input, m_eIndex == Index::Built ? 3 : 0);
        index.Run();
        return Delivery<Source>(m_input, Rejected::None).Run();
    }

private:
    const Input& m_input;
    Index m_eIndex;
};

// In the film audio and video chunks alternate. All audio chunks have one size, and all video chunks have one size.
constexpr UInt32 kFilmPairBytes = 2 * kHeaderBytes + 640 + 600;
constexpr UInt32 kFilmAudioBytes = kHeaderBytes + 640;

template <typename Source>
class Seeking : public Limited<Source> {
public:
    using Limited<Source>::Limited;

    UInt64 Run() override
    {
        Dice dice;
        for (UInt32 i = 0; i < kJumps; ++i) {
            const UInt32 keyFrame = dice.Below(kFilmFrames) / kFilmKeyDistance * kFilmKeyDistance;
            this->m_source.Seek(this->m_input.uiMovi + UInt64{keyFrame} * kFilmPairBytes);
            this->ReadChunk();
            this->ReadChunk();
        }
        return kJumps;
    }
};

template <typename Source>
class Stepping : public Limited<Source> {
public:
    Stepping(const Input& input, Steps eSteps) : Limited<Source>(input), m_eSteps(eSteps) {}

    UInt64 Run() override
    {
        for (UInt32 i = 0; i < kJumps; ++i) {
            const UInt32 keyFrame = m_eSteps == Steps::Forward ? i : kFilmFrames / kFilmKeyDistance - 1 - i;
            this->m_source.Seek(this->m_input.uiMovi + UInt64{keyFrame} * kFilmKeyDistance * kFilmPairBytes +
                                kFilmAudioBytes);
            this->ReadChunk();
        }
        return kJumps;
    }

private:
    Steps m_eSteps;
};

// A search in an array that contains only offsets. Nothing is read.
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

// The work on the one or the other source.
template <template <typename> typename Work, typename... Arguments>
std::unique_ptr<Contender> Make(Limit eLimit, const Input& input, Arguments... arguments)
{
    if (eLimit == Limit::Stdio) {
        return std::make_unique<Work<Stdio>>(input, arguments...);
    }
    return std::make_unique<Work<Mapped>>(input, arguments...);
}

} // namespace

std::unique_ptr<Contender> LimitIdx1(Limit eLimit, const Input& input, UInt32 passes)
{
    return Make<Idx1>(eLimit, input, passes);
}

std::unique_ptr<Contender> LimitOpenDml(Limit eLimit, const Input& input, UInt32 passes)
{
    return Make<OpenDml>(eLimit, input, passes);
}

std::unique_ptr<Contender> LimitDelivery(Limit eLimit, const Input& input, Rejected eRejected)
{
    return Make<Delivery>(eLimit, input, eRejected);
}

std::unique_ptr<Contender> LimitPlaying(Limit eLimit, const Input& input, Index eIndex)
{
    return Make<Playing>(eLimit, input, eIndex);
}

std::unique_ptr<Contender> LimitSeeking(Limit eLimit, const Input& input) { return Make<Seeking>(eLimit, input); }

std::unique_ptr<Contender> LimitStepping(Limit eLimit, const Input& input, Steps eSteps)
{
    return Make<Stepping>(eLimit, input, eSteps);
}

std::unique_ptr<Contender> FloorLookup(const Input& input, Lookups eLookups)
{
    return std::make_unique<Lookup>(input, eLookups);
}

std::unique_ptr<Contender> FloorExtraction(const Input& input) { return std::make_unique<Extraction>(input); }

} // namespace bench
