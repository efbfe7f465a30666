// Reading the file: the one read loop, words and records, chunk headers.

#pragma once

#include "Buffered.hpp"
#include "Bytes.hpp"
#include "Debug.hpp"

namespace lxAviReadCore {

// What the core read and the read of the OpenDML index differ in.
struct ReadFamily {
    bool bAbortable; // polls the abort flag after a short read
    TextList texts;
};

enum class ReadText : UInt32 {
    EndOfFile, // the file ends inside a read
    Exhausted, // the attempts are used up
};

extern const ReadFamily kCoreRead;
extern const ReadFamily kOpenDmlRead;

// Reads `size` bytes into `pBuffer`, with bounded retries. What would land behind `capacity` is consumed and dropped.
// Where the file ends inside the read, `pLeft`, if given, tells how many bytes it lacks.
[[nodiscard]] UInt32 ReadLoop(lxAviReadCore_AviInfo_t* pAviInfo, const ReadFamily& family, void* pBuffer,
                              size_t capacity, UInt32 size, UInt32* pLeft = Null);

// Reads bytes for a caller of the library, who answers for the room.
[[nodiscard]] UInt32 ReadForCaller(lxAviReadCore_AviInfo_t* pAviInfo, const ReadFamily& family, UInt32* pBuffer,
                                   UInt32 size);

// Reads one record (or word) whole.
template <typename Record>
[[nodiscard]] UInt32 ReadRecord(lxAviReadCore_AviInfo_t* pAviInfo, Record& record, const ReadFamily& family = kCoreRead)
{
    static_assert(std::is_trivially_copyable_v<Record> && !std::is_pointer_v<Record>);
    return TakeBuffered(pAviInfo->pFile, &record, sizeof record)
               ? LX_OK
               : ReadLoop(pAviInfo, family, &record, sizeof record, sizeof record);
}

// A chunk's header: code, and size made even.
struct ChunkHeader {
    UInt32 uiCode;
    UInt32 uiSize;
};

[[nodiscard]] UInt32 ReadChunkHeader(lxAviReadCore_AviInfo_t* pAviInfo, ChunkHeader& chunk);

constexpr UInt32 kChunkHeaderBytes = 8;
constexpr UInt32 kListTypeBytes = 4;

// The walk over the chunks of a list in the headers.
class ListWalk {
public:
    ListWalk(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size, UInt32 consumed)
        : m_pAviInfo(pAviInfo), m_uiSize(size), m_uiConsumed(consumed)
    {
    }

    // Whether the list goes on with a chunk.
    bool HasChunk() const;
    // Reads the header of that chunk, and counts the chunk as passed. A list that is walked exactly ends its chunks.
    [[nodiscard]] UInt32 Enter(ChunkHeader& chunk);
    // Skips what is left of a list that is walked exactly.
    [[nodiscard]] UInt32 Leave() const;

    UInt64 Consumed() const { return m_uiConsumed; }

private:
    UInt64 Left() const { return m_uiConsumed < m_uiSize ? m_uiSize - m_uiConsumed : 0; }

    lxAviReadCore_AviInfo_t* m_pAviInfo;
    UInt32 m_uiSize;
    UInt64 m_uiConsumed;
};

} // namespace lxAviReadCore
