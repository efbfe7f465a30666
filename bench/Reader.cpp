// The library does the work. It opens files in format mode, as `lxavi` does.

#include "Contender.hpp"

#include "lxAviRead.h"

#include <filesystem>
#include <stdexcept>

namespace bench {
namespace {

constexpr UInt8 kIndexOption = 1 | LX_AVIREAD_FOLLOW_FORMAT;
constexpr UInt32 kAttempts = 3;
constexpr UInt32 kUnlimited = 0xFFFFFFFF;

void Expect(bool holds, const char* pWhat)
{
    if (!holds) {
        throw std::runtime_error(std::string("the reader could not ") + pWhat);
    }
}

void OpenAndIndex(const Input& input, UInt32 budget)
{
    Bool allIndexed = 0;
    const UInt32 expected = budget < kOneLeaf ? UInt32{LX_ERR_AVIREAD_NO_MEMORY} : UInt32{LX_OK};
    Expect(lxAviReadCore_Open(0, input.path.c_str(), kAttempts, budget, kIndexOption, &allIndexed) == LX_OK, "open");
    Expect(lxAviReadCore_ParseIndex(0) == expected, "index");
    Expect(lxAviReadCore_PositionTheFileHandleToPlayData(lxAviReadCore_GetAviInfo()) == LX_OK, "begin");
}

// Keeps the file open while the contender exists.
class OpenReader : public Contender {
public:
    explicit OpenReader(const Input& input, bool bIndexed = true) : m_input(input), m_buffer(kLargestPayload)
    {
        Bool allIndexed = 0;
        if (bIndexed) {
            OpenAndIndex(input, kUnlimited);
        } else {
            Expect(lxAviReadCore_Open(0, input.path.c_str(), kAttempts, kUnlimited, kIndexOption, &allIndexed) == LX_OK,
                   "open");
        }
    }
    ~OpenReader() override { lxAviReadCore_Close(); }

protected:
    static constexpr UInt32 kLargestPayload = 1u << 20; // bytes; the buffer has four times as many

    // Gets the next chunk and reads its payload. It skips the payload of a rejected chunk only with `bSkipRejected`.
    UInt32 Next(bool bSkipRejected = true)
    {
        const UInt32 result = lxAviReadCore_NextChunk(&m_chunk, 0, 0, &m_bJumped);
        if (result == LX_OK) {
            Expect(lxAviReadCore_GetChunk(m_buffer.data(), m_chunk.uiSize) == LX_OK, "read a chunk");
        } else if (bSkipRejected && result != LX_AVIREAD_END_OF_MEDIA) {
            Expect(lxAviReadCore_RemoveChunk(m_chunk.uiSize) == LX_OK, "skip a chunk");
            lxAviReadCore_IncreaseOffset(m_chunk.uiSize);
        }
        return result;
    }

    const Input& m_input;
    std::vector<UInt32> m_buffer;
    lxAviRead_ChunkData_t m_chunk = {};
    Bool m_bJumped = 0;
};

class Indexing : public Contender {
public:
    Indexing(const Input& input, UInt32 budget) : m_input(input), m_uiBudget(budget) {}
    ~Indexing() override { lxAviReadCore_Close(); }

    UInt64 Run() override
    {
        OpenAndIndex(m_input, m_uiBudget);
        return m_input.uiChunks;
    }

private:
    const Input& m_input;
    UInt32 m_uiBudget;
};

class Delivery : public OpenReader {
public:
    // Builds the table when the file has an index, so the reader looks up each video chunk in the table.
    Delivery(const Input& input, Rejected eRejected) : OpenReader(input, input.uiIdx1 != 0), m_eRejected(eRejected) {}

    // The items are the delivered chunks, or the bytes of rejected payload when the search goes through these bytes.
    UInt64 Run() override
    {
        lxAviReadCore_RewindToStart();
        const bool bSkip = m_eRejected != Rejected::LeftToResync;
        UInt64 chunks = 0;
        UInt64 delivered = 0;
        for (UInt32 result = Next(bSkip); result != LX_AVIREAD_END_OF_MEDIA; result = Next(bSkip)) {
            ++chunks;
            delivered += result == LX_OK ? 1 : 0;
        }
        Expect(chunks == m_input.uiChunks, "meet every chunk");
        return bSkip ? delivered : m_input.uiRejected;
    }

private:
    Rejected m_eRejected;
};

// Opens the file, builds the table unless it is left alone, and plays from the first chunk to the last.
class Playing : public OpenReader {
public:
    Playing(const Input& input, Index eIndex) : OpenReader(input, false), m_eIndex(eIndex) {}

    UInt64 Run() override
    {
        Bool allIndexed = 0;
        if (m_eIndex == Index::Built) {
            OpenAndIndex(m_input, kUnlimited);
        } else {
            Expect(lxAviReadCore_Open(0, m_input.path.c_str(), kAttempts, kUnlimited, kIndexOption, &allIndexed) ==
                           LX_OK &&
                       lxAviReadCore_PositionTheFileHandleToPlayData(lxAviReadCore_GetAviInfo()) == LX_OK,
                   "open");
        }
        UInt64 delivered = 0;
        for (UInt32 result = Next(); result != LX_AVIREAD_END_OF_MEDIA; result = Next()) {
            Expect(result == LX_OK, "deliver every chunk");
            ++delivered;
        }
        Expect(delivered == m_input.uiChunks, "deliver the whole file");
        return delivered;
    }

private:
    Index m_eIndex;
};

// Seeks, and plays until it has the first video chunk and the first audio chunk.
class Seeking : public OpenReader {
public:
    using OpenReader::OpenReader;

    UInt64 Run() override
    {
        Dice dice;
        for (UInt32 i = 0; i < kJumps; ++i) {
            lxAviReadCore_SeekToTime(dice.Below(kFilmFrames) * kFilmFrameMsec, 0, lxAviRead_SetPosRoundDown);
            bool bVideo = false;
            bool bAudio = false;
            while (!bVideo || !bAudio) {
                const UInt32 result = Next();
                Expect(result != LX_AVIREAD_END_OF_MEDIA, "play behind a seek");
                bVideo |= result == LX_OK && m_chunk.eStreamType == LX_AVIREAD_STREAM_VIDEO;
                bAudio |= result == LX_OK && m_chunk.eStreamType == LX_AVIREAD_STREAM_AUDIO;
            }
        }
        return kJumps;
    }
};

// Steps from key frame to key frame, and reads the first chunk there. It asks for no audio, so this chunk is the frame.
class Stepping : public OpenReader {
public:
    Stepping(const Input& input, Steps eSteps) : OpenReader(input), m_eSteps(eSteps) {}

    UInt64 Run() override
    {
        const bool bForward = m_eSteps == Steps::Forward;
        const UInt32 start = bForward ? 0 : (kFilmFrames - 1) * kFilmFrameMsec;
        lxAviReadCore_SeekToTime(start, -1, lxAviRead_SetPosRoundDown);
        FirstFrame();
        Bool found = 0;
        for (UInt32 i = 0; i < kJumps; ++i) {
            Expect((bForward ? lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(&found, -1)
                             : lxAviReadCore_SetJumpToPrevKeyFrame(&found, -1)) == LX_OK &&
                       found == 1,
                   "step");
            FirstFrame();
        }
        return kJumps;
    }

private:
    void FirstFrame() { Expect(Next() == LX_OK && m_chunk.bKeyFrame == 1, "deliver the key frame"); }

    Steps m_eSteps;
};

// Looks up the key frame at an offset, as delivery does for each video chunk.
class Lookup : public OpenReader {
public:
    Lookup(const Input& input, Lookups eLookups) : OpenReader(input)
    {
        const auto& info = *lxAviReadCore_GetAviInfo();
        Dice dice;
        const UInt32 leafs = info.KeyFramesListAsArrayLength;
        const UInt32 next = PlayToFirstKeyFrame();
        for (UInt32 i = 0; i < kOffsets; ++i) {
            const auto& leaf = *info.KeyFramesListAsArray[dice.Below(leafs)];
            const auto random = static_cast<UInt32>(leaf.array[dice.Below(leaf.arrayLength)].videoChunkOffset);
            m_offsets.push_back(eLookups == Lookups::InOrder ? next + i % kFilmKeyDistance : random);
        }
    }

    UInt64 Run() override
    {
        lxAviReadCore_KeyFramePosition_t position;
        UInt32 valid = 0;
        for (UInt32 i = 0; i < kLookups; ++i) {
            Expect(lxAviReadCore_GetChunkInfo(&position, m_offsets[i % kOffsets]) == LX_OK, "look up");
            valid += position.valid;
        }
        m_uiValid = valid;
        return kLookups;
    }

private:
    static constexpr UInt32 kOffsets = 4096;

    // Returns an offset between the delivered key frame and the next key frame.
    UInt32 PlayToFirstKeyFrame()
    {
        while (m_chunk.bKeyFrame == 0) {
            Expect(Next() == LX_OK, "play");
        }
        return static_cast<UInt32>(lxAviReadCore_GetAviInfo()->CurrentOffset);
    }

    std::vector<UInt32> m_offsets;
    volatile UInt32 m_uiValid = 0;
};

// The whole tool, as one process.
class Extraction : public Contender {
public:
    explicit Extraction(const Input& input)
        : m_input(input), m_out(input.path + ".out"), m_command(std::string(LXAVI_PROGRAM) + " extract '" + input.path +
                                                                "' --force --out '" + m_out + "' >/dev/null 2>&1")
    {
    }
    ~Extraction() override { std::filesystem::remove_all(m_out); }

    UInt64 Run() override
    {
        Expect(std::system(m_command.c_str()) == 0, "extract");
        return m_input.uiChunks;
    }

private:
    const Input& m_input;
    std::string m_out;
    std::string m_command;
};

} // namespace

std::unique_ptr<Contender> ReaderIndexing(const Input& input, UInt32 budget)
{
    return std::make_unique<Indexing>(input, budget);
}

std::unique_ptr<Contender> ReaderDelivery(const Input& input, Rejected eRejected)
{
    return std::make_unique<Delivery>(input, eRejected);
}

std::unique_ptr<Contender> ReaderPlaying(const Input& input, Index eIndex)
{
    return std::make_unique<Playing>(input, eIndex);
}

std::unique_ptr<Contender> ReaderSeeking(const Input& input) { return std::make_unique<Seeking>(input); }

std::unique_ptr<Contender> ReaderStepping(const Input& input, Steps eSteps)
{
    return std::make_unique<Stepping>(input, eSteps);
}

std::unique_ptr<Contender> ReaderLookup(const Input& input, Lookups eLookups)
{
    return std::make_unique<Lookup>(input, eLookups);
}

std::unique_ptr<Contender> ReaderExtraction(const Input& input) { return std::make_unique<Extraction>(input); }

} // namespace bench
