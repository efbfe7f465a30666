// The texts of messages, as small as they can be kept: half of the library would be words. The compiler packs each text
// when it meets it; what is printed is unpacked on the way.
//
//   level     1 byte, of messages alone: the number of the level
//   text      ASCII characters stand for themselves, a byte of 0x80 or more for a phrase
//   0

#pragma once

#include "Phrases.hpp"

#include "lxTypes.h"

#include <cstddef>
#include <cstring>

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

constexpr UInt16 kLevels[] = {0, // of messages that never come
                              kLevelChunk, kLevelSeek, kLevelEnter, kLevelLeave, kLevelHeader, kLevelIndex,
                              kLevelMemory, kLevelCall, kLevelError, kLevelEndOfFile, kLevelOversize,
                              kLevelBadParameter};

// Where a level stands in kLevels; one that does not is an error at compile time.
constexpr UInt8 LevelCode(UInt32 level)
{
    UInt8 code = 0;
    while (kLevels[code] != level) {
        ++code;
    }
    return code;
}

constexpr UInt8 kFirstPhrase = 0x80;
constexpr size_t kLongestText = 200; // characters, unpacked

constexpr size_t LengthOf(const char* pText)
{
    size_t length = 0;
    while (pText[length] != '\0') {
        ++length;
    }
    return length;
}

// Where the phrases begin, for the compiler.
struct PhraseTable {
    static constexpr size_t kPhraseCount = 128;
    const char* begins[kPhraseCount];
    size_t lengths[kPhraseCount];

    constexpr PhraseTable() : begins{}, lengths{}
    {
        const char* pPhrase = kPhrases;
        for (size_t i = 0; i < kPhraseCount; ++i, pPhrase += lengths[i - 1] + 1) {
            begins[i] = pPhrase;
            lengths[i] = LengthOf(pPhrase);
        }
    }

    constexpr bool Fits(size_t phrase, const char* pText) const
    {
        size_t same = 0;
        while (same < lengths[phrase] && pText[same] == begins[phrase][same]) {
            ++same;
        }
        return same == lengths[phrase];
    }
};

template <size_t kSize>
struct PackedText {
    char bytes[kSize];
};

void ATextIsAscii(); // not for the compiler to call: a text that is not does not compile

// For every character of a text, what the shortest way from there to the end takes first.
struct Packing {
    UInt8 codes[kLongestText + 1]; // 0: the character itself
    size_t lengths[kLongestText + 1];
    size_t uiSize; // of the whole text, packed

    constexpr explicit Packing(const char* pText) : codes{}, lengths{}, uiSize(0)
    {
        constexpr PhraseTable kTable;
        size_t sizes[kLongestText + 1] = {}; // a longer text does not compile
        for (size_t at = LengthOf(pText); at-- > 0;) {
            if (static_cast<UInt8>(pText[at]) >= kFirstPhrase) {
                ATextIsAscii();
            }
            lengths[at] = 1;
            sizes[at] = sizes[at + 1] + 1;
            for (size_t i = 0; i < PhraseTable::kPhraseCount; ++i) {
                if (kTable.begins[i][0] == pText[at] && kTable.Fits(i, pText + at) &&
                    sizes[at + kTable.lengths[i]] + 1 < sizes[at]) {
                    codes[at] = static_cast<UInt8>(kFirstPhrase + i);
                    lengths[at] = kTable.lengths[i];
                    sizes[at] = sizes[at + kTable.lengths[i]] + 1;
                }
            }
        }
        uiSize = sizes[0];
    }
};

// A text with its end, behind `kLead` bytes.
template <size_t kSize, size_t kLead>
constexpr PackedText<kLead + kSize + 1> Pack(const char* pText)
{
    const Packing packing(pText);
    PackedText<kLead + kSize + 1> packed = {};
    size_t size = kLead;
    for (size_t at = 0; pText[at] != '\0'; at += packing.lengths[at]) {
        packed.bytes[size++] = packing.codes[at] != 0 ? static_cast<char>(packing.codes[at]) : pText[at];
    }
    return packed;
}

template <size_t kSize>
constexpr auto PackMessage(UInt32 level, const char* pText)
{
    auto packed = Pack<kSize, 1>(pText);
    packed.bytes[0] = static_cast<char>(LevelCode(level));
    return packed;
}

// One copy of each text, wherever it is used.
template <PackedText kPacked>
constexpr const char* kText = kPacked.bytes;

// Texts that belong together, one behind the other: what differs between two index families, say.
using TextList = const char*;

template <PackedText... kPacked>
constexpr auto Join()
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
        pText += 1 + std::strlen(pText + 1) + 1; // the level, the text, and its end
    }
    return pText;
}

// The level mask of a packed message.
constexpr UInt32 LevelOf(const char* pMessage)
{
    return kLevels[static_cast<UInt8>(*pMessage)];
}

// Packed words in full, for as long as this lives.
class Unpacked {
public:
    explicit Unpacked(const char* pWords);
    operator const char*() const { return m_text; }

private:
    char m_text[kLongestText + 1];
};

} // namespace lxAviReadCore

// A message, packed; it serves as a template argument.
#define LX_PACKED(level, text)                                                                                        \
    (::lxAviReadCore::PackMessage<::lxAviReadCore::Packing(text).uiSize>(level, text))

// A message that never comes.
#define LX_NO_TEXT LX_PACKED(0, "")

// A message that is kept for later, with its level.
#define LX_TEXT(level, text) (::lxAviReadCore::kText<LX_PACKED(level, text)>)

// Words that are no message of their own.
#define LX_WORDS(text)                                                                                                \
    (::lxAviReadCore::kText<::lxAviReadCore::Pack<::lxAviReadCore::Packing(text).uiSize, 0>(text)>)
