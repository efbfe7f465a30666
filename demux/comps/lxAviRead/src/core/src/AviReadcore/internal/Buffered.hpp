// What stdio has read ahead. A read that finds all its bytes there takes them as `fread` would, to the same effect on
// the stream, in a few instructions where `fread` takes a hundred: headers are two words, and many payloads hardly more.
//
// The C library keeps its read pointers in the open for its own inline functions; where it does not, nothing ever
// counts as read ahead, and every read goes through `fread`.

#pragma once

#include "lxTypes.h"

#include <cstdio>
#include <cstring>

#if defined(__has_feature)
#if __has_feature(memory_sanitizer)
#define LX_AVIREAD_CLOSED_STREAMS 1 // it follows memory through fread alone
#endif
#endif

namespace lxAviReadCore {

#if defined(__GLIBC__) && !defined(__UCLIBC__) && !defined(LX_AVIREAD_CLOSED_STREAMS)

inline size_t BufferedBytes(const FILE* pFile)
{
    return static_cast<size_t>(pFile->_IO_read_end - pFile->_IO_read_ptr);
}

inline const UInt8* BufferedAt(const FILE* pFile)
{
    return reinterpret_cast<const UInt8*>(pFile->_IO_read_ptr);
}

// Consumes bytes that are buffered.
inline void PassBuffered(FILE* pFile, size_t bytes)
{
    pFile->_IO_read_ptr += bytes;
}

#else

inline size_t BufferedBytes(const FILE*) { return 0; }
inline const UInt8* BufferedAt(const FILE*) { return Null; }
inline void PassBuffered(FILE*, size_t) {}

#endif

// Reads `bytes` if there are any and all of them are buffered.
inline bool TakeBuffered(FILE* pFile, void* pBuffer, size_t bytes)
{
    if (pFile == Null || bytes == 0 || BufferedBytes(pFile) < bytes) {
        return false;
    }
    std::memcpy(pBuffer, BufferedAt(pFile), bytes);
    PassBuffered(pFile, bytes);
    return true;
}

} // namespace lxAviReadCore
