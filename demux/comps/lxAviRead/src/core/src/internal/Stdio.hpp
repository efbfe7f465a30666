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

constexpr size_t kWordBytes = sizeof(UInt32);

// Reads byte `got` of a word, and counts it; false where none comes.
inline bool TakeByte(FILE* pFile, UInt32& word, size_t& got)
{
    const int character = ReadByte(pFile);
    if (character == EOF) {
        return false;
    }
    word |= static_cast<UInt32>(character) << (8 * got);
    ++got;
    return true;
}

// Reads a word, or a part of one; like `fread`, it tells how many bytes came. There is no loop, so that the compiler
// knows which byte is which, and keeps the word in a register.
inline size_t ReadWord(FILE* pFile, UInt32& word)
{
    word = 0;
    size_t got = 0;
    static_cast<void>(TakeByte(pFile, word, got) && TakeByte(pFile, word, got) && TakeByte(pFile, word, got) &&
                      TakeByte(pFile, word, got));
    return got;
}

} // namespace lxAviReadCore
