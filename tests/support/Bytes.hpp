// Builds the bytes of a file: little-endian words, codes, chunks and lists.

#pragma once

#include "lxTypes.h"

#include <cstring>
#include <initializer_list>
#include <string_view>
#include <vector>

namespace avitest {

using Bytes = std::vector<UInt8>;

template <typename T>
Bytes AsBytes(const T& value)
{
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

inline Bytes U16(UInt32 value) { return AsBytes(static_cast<UInt16>(value)); }
inline Bytes U32(UInt64 value) { return AsBytes(static_cast<UInt32>(value)); }
inline Bytes U64(UInt64 value) { return AsBytes(value); }
inline Bytes Text(std::string_view text) { return {text.begin(), text.end()}; }
inline Bytes Fill(size_t count, UInt8 value = 0x55) { return Bytes(count, value); }

inline Bytes& operator+=(Bytes& left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline Bytes operator+(Bytes left, const Bytes& right)
{
    left += right;
    return left;
}

// A chunk with any value in its size field, also a wrong one.
inline Bytes ChunkOfSize(std::string_view code, UInt32 size, const Bytes& payload)
{
    return Text(code) + U32(size) + payload;
}

// A chunk, padded to an even size.
inline Bytes Chunk(std::string_view code, const Bytes& payload)
{
    Bytes chunk = ChunkOfSize(code, static_cast<UInt32>(payload.size()), payload);
    return payload.size() % 2 != 0 ? chunk + Fill(1, 0) : chunk;
}

inline Bytes List(std::string_view type, const Bytes& payload) { return Chunk("LIST", Text(type) + payload); }

inline Bytes Riff(std::string_view form, const Bytes& payload) { return Chunk("RIFF", Text(form) + payload); }

// Overwrites a word of a finished file.
inline void Patch32(Bytes& file, size_t offset, UInt32 value)
{
    std::memcpy(file.data() + offset, &value, sizeof value);
}

inline UInt32 Get32(const Bytes& file, size_t offset)
{
    UInt32 value = 0;
    std::memcpy(&value, file.data() + offset, sizeof value);
    return value;
}

// Offset of the first occurrence of `code` from `from` on, or the file's size.
inline size_t Find(const Bytes& file, std::string_view code, size_t from = 0)
{
    const std::string_view all(reinterpret_cast<const char*>(file.data()), file.size());
    const size_t found = all.find(code, from);
    return found == std::string_view::npos ? file.size() : found;
}

} // namespace avitest
