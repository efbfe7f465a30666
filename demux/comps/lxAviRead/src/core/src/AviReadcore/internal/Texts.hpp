// The texts of messages, as small as they can be kept: half of the library would be words. The compiler packs each text
// when it meets it; what is printed is unpacked on the way.
//
//   level     1 byte: the number of the message's level
//   text      ASCII characters stand for themselves, a byte of 0x80 or more for a phrase
//   0

#pragma once

#include "Phrases.hpp"

#include "lxTypes.h"

#include <cstddef>

namespace lxAviReadCore {

// Levels are bit masks; a message is printed when it shares a bit with a mask in force. 0x8000 marks trouble.
constexpr UInt32 kLevelChunk = 0x10;           // delivered chunks
constexpr UInt32 kLevelSeek = 0x20;            // jumps, seeks and key-frame steps
constexpr UInt32 kLevelEnter = 0x40;           // entry traces
constexpr UInt32 kLevelLeave = 0x80;           // exit traces
constexpr UInt32 kLevelHeader = 0x100;         // what the headers hold
constexpr UInt32 kLevelIndex = 0x200;          // what the index holds, and the table built from it
constexpr UInt32 kLevelMemory = 0x800;         // what is freed
constexpr UInt32 kLevelCall = 0x1000;          // checked calls, before and after
constexpr UInt32 kLevelError = 0x8100;
constexpr UInt32 kLevelEndOfFile = 0x8180;
constexpr UInt32 kLevelOversize = 0x8200;      // records longer than the reader keeps
constexpr UInt32 kLevelBadParameter = 0x8400;

constexpr UInt16 kLevels[] = {0, // no message of its own
                              kLevelChunk, kLevelSeek, kLevelEnter, kLevelLeave, kLevelHeader, kLevelIndex,
                              kLevelMemory, kLevelCall, kLevelError, kLevelEndOfFile, kLevelOversize,
                              kLevelBadParameter};

// Where a level stands in kLevels; one that does not is an error at compile time.
consteval UInt8 LevelCode(UInt32 level)
{
    UInt8 code = 0;
    while (kLevels[code] != level) {
        ++code;
    }
    return code;
}

constexpr UInt8 kFirstPhrase = 0x80;
constexpr size_t kLongestText = 200; // characters, unpacked

// A phrase in kPhrases, or an empty one behind the last.
struct Phrase {
    const char* pBegin;
    size_t uiLength;

    constexpr explicit Phrase(const char* pText) : pBegin(pText), uiLength(0)
    {
        while (pText[uiLength] != '\0') {
            ++uiLength;
        }
    }
    constexpr Phrase Next() const { return Phrase(pBegin + uiLength + 1); }
    constexpr bool Begins(const char* pText) const
    {
        size_t same = 0;
        while (same < uiLength && pText[same] == pBegin[same]) {
            ++same;
        }
        return same == uiLength;
    }
};

template <size_t kSize>
struct PackedText {
    char bytes[kSize];
};

// Takes the longest phrase wherever one fits.
template <size_t kSize>
consteval size_t PackInto(PackedText<kSize>& packed, const char* pText, UInt8 level)
{
    size_t size = 0;
    packed.bytes[size++] = static_cast<char>(level);
    while (*pText != '\0') {
        UInt8 code = kFirstPhrase;
        Phrase phrase(kPhrases);
        while (phrase.uiLength > 0 && !phrase.Begins(pText)) {
            phrase = phrase.Next();
            ++code;
        }
        packed.bytes[size++] = phrase.uiLength > 0 ? static_cast<char>(code) : *pText;
        pText += phrase.uiLength > 0 ? phrase.uiLength : 1;
    }
    packed.bytes[size++] = '\0';
    return size;
}

consteval size_t PackedSize(const char* pText)
{
    PackedText<kLongestText + 2> packed = {}; // a longer text does not compile
    return PackInto(packed, pText, 0);
}

template <size_t kSize>
consteval PackedText<kSize> Pack(const char* pText, UInt8 level)
{
    PackedText<kSize> packed = {};
    PackInto(packed, pText, level);
    return packed;
}

// One copy of each text, wherever it is used.
template <PackedText kPacked>
constexpr const char* kText = kPacked.bytes;

// Texts that belong together, one behind the other: what differs between two index families, say.
using TextList = const char*;

template <PackedText... kPacked>
consteval auto Join()
{
    PackedText<(sizeof kPacked.bytes + ...)> joined = {};
    size_t size = 0;
    const auto append = [&](const auto& packed) {
        for (const char byte : packed.bytes) {
            joined.bytes[size++] = byte;
        }
    };
    (append(kPacked), ...);
    return joined;
}

template <PackedText... kPacked>
constexpr TextList kTextList = kText<Join<kPacked...>()>;

// The text of a list that an enumeration names by its place.
template <typename Place>
const char* TextOf(TextList list, Place place)
{
    const char* pText = list;
    for (UInt32 i = 0; i < static_cast<UInt32>(place); ++i) {
        pText += Phrase(pText + 1).uiLength + 2; // the level, the text, and its end
    }
    return pText;
}

// The level mask of a packed text.
constexpr UInt32 LevelOf(const char* pPacked)
{
    return kLevels[static_cast<UInt8>(*pPacked)];
}

// A packed text in full, for as long as this lives.
class Unpacked {
public:
    explicit Unpacked(const char* pPacked);
    operator const char*() const { return m_text; }

private:
    char m_text[kLongestText + 1];
};

} // namespace lxAviReadCore

// A text, packed; it serves as a template argument.
#define LX_PACKED(level, text)                                                                                        \
    (::lxAviReadCore::Pack<::lxAviReadCore::PackedSize(text)>(text, ::lxAviReadCore::LevelCode(level)))

// No text: a message that is never wanted.
#define LX_NO_TEXT LX_PACKED(0, "")

// A text that is kept for a message to come, and its level.
#define LX_TEXT(level, text) (::lxAviReadCore::kText<LX_PACKED(level, text)>)
