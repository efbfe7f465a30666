// Reading the file: the one read loop, words and records, chunk headers.

#pragma once

#include "Bytes.hpp"
#include "Debug.hpp"

namespace lxAviReadCore {

// What the core read and the read of the OpenDML index differ in.
struct ReadFamily {
    bool bAbortable;            // polls the abort flag after a short read
    const char* pEofText;       // logged when the file ends inside a read
    const char* pExhaustedText; // logged when the attempts are used up, or null
};

extern const ReadFamily kCoreRead;
extern const ReadFamily kOpenDmlRead;

constexpr size_t kCapacityOfCaller = SIZE_MAX; // the exported reads: the caller answers for the room

// Reads `size` bytes into `pBuffer`, with bounded retries. What would land behind `capacity` is consumed and dropped.
[[nodiscard]] UInt32 ReadLoop(lxAviReadCore_AviInfo_t* pAviInfo, const ReadFamily& family, void* pBuffer,
                              size_t capacity, UInt32 size);

// Reads one record (or word) whole.
template <typename Record>
[[nodiscard]] UInt32 ReadRecord(lxAviReadCore_AviInfo_t* pAviInfo, Record& record, const ReadFamily& family = kCoreRead)
{
    static_assert(std::is_trivially_copyable_v<Record> && !std::is_pointer_v<Record>);
    return ReadLoop(pAviInfo, family, &record, sizeof record, sizeof record);
}

// A chunk's header: code, and size made even.
struct ChunkHeader {
    UInt32 uiCode;
    UInt32 uiSize;
};

[[nodiscard]] UInt32 ReadChunkHeader(lxAviReadCore_AviInfo_t* pAviInfo, ChunkHeader& chunk);

} // namespace lxAviReadCore
