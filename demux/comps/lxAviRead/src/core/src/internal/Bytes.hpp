// Bytes as the file has them: little-endian words, codes of two and four characters, even sizes, stream digits.

#pragma once

#include "lxTypes.h"

#include <bit>
#include <cstring>
#include <type_traits>

static_assert(std::endian::native == std::endian::little,
              "lxAviRead needs a little-endian processor: words are read from the file as they stand in memory");

namespace lxAviReadCore {

// A four-character code as the 32-bit word that the file's bytes make.
consteval UInt32 FourCC(const char (&text)[5])
{
    UInt32 code = 0;
    for (unsigned i = 0; i < 4; ++i) {
        code |= static_cast<UInt32>(static_cast<UInt8>(text[i])) << (8 * i);
    }
    return code;
}

// A two-character code, likewise.
consteval UInt16 TwoCC(const char (&text)[3])
{
    return static_cast<UInt16>(static_cast<UInt8>(text[0]) | static_cast<UInt8>(text[1]) << 8);
}

// The type of a media chunk: the last two characters of its identifier.
constexpr bool IsMediaCode(UInt16 twocc)
{
    switch (twocc) {
    case TwoCC("dc"): // compressed video frame
    case TwoCC("db"): // uncompressed video frame
    case TwoCC("wb"): // audio data
    case TwoCC("st"): // subtitle text
    case TwoCC("sb"): // subtitle bitmap
    case TwoCC("dd"): // DRM descriptor of the following chunk
        return true;
    default: return false;
    }
}

// The chunk types of DV whose audio is inside the frames.
constexpr bool IsInterleavedType(UInt16 twocc) { return twocc == TwoCC("__") || twocc == TwoCC("iv"); }

constexpr UInt16 LowHalf(UInt32 word) { return static_cast<UInt16>(word); }
constexpr UInt16 HighHalf(UInt32 word) { return static_cast<UInt16>(word >> 16); }

// Byte `index` of a word, 0 being the one that comes first in the file.
constexpr UInt8 ByteOf(UInt32 word, unsigned index) { return static_cast<UInt8>(word >> (8 * index)); }

constexpr bool IsDigit(UInt8 character) { return character >= '0' && character <= '9'; }

// Whether the identifier is one of an index chunk: "ix" and the digits of a stream.
constexpr bool IsIndexChunk(UInt32 id)
{
    return LowHalf(id) == TwoCC("ix") && IsDigit(ByteOf(id, 2)) && IsDigit(ByteOf(id, 3));
}

// Chunks start at even offsets: an odd size is followed by one pad byte. 0xFFFFFFFF becomes 0.
constexpr UInt32 MakeEven(UInt32 size) { return size + (size & 1u); }

template <typename T>
T Load(const UInt8* pBytes)
{
    static_assert(std::is_trivially_copyable_v<T>);
    T value;
    std::memcpy(&value, pBytes, sizeof value);
    return value;
}

// One digit of a stream number. Letters count on from 10, whatever the letter.
constexpr UInt32 StreamDigit(UInt8 character)
{
    return character < 'A' ? static_cast<UInt32>(character) - '0' : static_cast<UInt32>(character) - 55u;
}

// The stream number that the first two characters of a chunk identifier give, 16 bits wide. The
// tens digit is multiplied by ten, also when it is a letter, so "1A" and "20" name the same stream.
constexpr UInt16 StreamNumber(UInt16 characters)
{
    // Quirk Q01
    return static_cast<UInt16>(StreamDigit(ByteOf(characters, 0)) * 10u + StreamDigit(ByteOf(characters, 1)));
}

// Floating point to a 32-bit count: truncated toward zero, 0 for negatives and NaN, the largest value beyond it.
template <typename Float>
constexpr UInt32 ToUInt32(Float value)
{
    constexpr Float kTooLarge = static_cast<Float>(4294967296.0);
    if (!(value > Float{0})) {
        return 0;
    }
    return value >= kTooLarge ? 0xFFFFFFFFu : static_cast<UInt32>(value);
}

} // namespace lxAviReadCore
