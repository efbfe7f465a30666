// The calls of stdio that read bytes. One thread at a time uses the reader, so that no call has to lock the stream. The
// first attempt to read a word uses getc_unlocked, every other read uses fread_unlocked. Where a platform lacks these
// calls, the build defines LX_AVIREAD_PLAIN_STDIO and gets the locked ones.

#pragma once

#include "lxTypes.h"

#include <cstdio>

namespace lxAviReadCore {

#ifdef LX_AVIREAD_PLAIN_STDIO
inline int ReadByte(FILE* pFile) { return getc(pFile); }
inline size_t ReadBytes(FILE* pFile, void* pBuffer, size_t bytes) { return fread(pBuffer, 1, bytes, pFile); }
#else
inline int ReadByte(FILE* pFile) { return getc_unlocked(pFile); }
inline size_t ReadBytes(FILE* pFile, void* pBuffer, size_t bytes) { return fread_unlocked(pBuffer, 1, bytes, pFile); }
#endif

constexpr size_t kWordBytes = 4;

// Reads a word, or a part of one, byte by byte; like `fread`, it tells how many bytes came.
inline size_t ReadWord(FILE* pFile, UInt8* pBuffer, size_t bytes)
{
    for (size_t i = 0; i < bytes; ++i) {
        const int character = ReadByte(pFile);
        if (character == EOF) {
            return i;
        }
        pBuffer[i] = static_cast<UInt8>(character);
    }
    return bytes;
}

} // namespace lxAviReadCore
