// Logging and assertions of the reader: messages that cost one test while their level is off, and checked calls that
// report a failed code in the system's words and return it unchanged.
//
// A build with LX_AVIREAD_NO_MESSAGES has no messages: LX_LOG hands its arguments to NOPRINT in a branch that never
// runs, and a checked call is the call alone. Assertions stay.

#pragma once

#include "lxAviRead.h"
#include "lxDbg.h"

#include <cstddef>
#include <string_view>
#include <type_traits>

namespace lxAviReadCore {

#ifdef LX_AVIREAD_NO_MESSAGES
constexpr bool kHasMessages = false;
#else
constexpr bool kHasMessages = true;
#endif

// ---- Levels ----

// Levels are bit masks; a message is printed when it shares a bit with a mask in force. 0x8000 marks trouble.
constexpr UInt32 kLevelNever = 0;      // of a message that an index family does not have
constexpr UInt32 kLevelChunk = 0x10;   // delivered chunks
constexpr UInt32 kLevelSeek = 0x20;    // jumps, seeks and key-frame steps
constexpr UInt32 kLevelEnter = 0x40;   // entry traces
constexpr UInt32 kLevelLeave = 0x80;   // exit traces
constexpr UInt32 kLevelHeader = 0x100; // what the headers hold
constexpr UInt32 kLevelIndex = 0x200;  // what the index holds, and the table built from it
constexpr UInt32 kLevelMemory = 0x800; // what is freed
constexpr UInt32 kLevelCall = 0x1000;  // checked calls, before and after
constexpr UInt32 kLevelError = 0x8100;
constexpr UInt32 kLevelEndOfFile = 0x8180;
constexpr UInt32 kLevelOversize = 0x8200; // records longer than the reader keeps
constexpr UInt32 kLevelBadParameter = 0x8400;

// Whether a message of this level is printed at present.
inline bool IsLogged(UInt32 level) { return kHasMessages && lxDbg_LevelIsOn(glxalAviRead_debug_unit, level) != 0; }

// ---- Rows of messages ----

// Where two families of operations say the same thing in different words, each family has a table of rows. An
// enumerator names a row; the last enumerator, Count, is the number of rows.
template <typename Name>
struct MessageRow {
    Name eName;
    UInt32 uiLevel;
    const char* pFormat; // its arguments are 32-bit integers

    // A build without messages does not keep the words.
    consteval MessageRow(Name eRow, UInt32 level, const char* pWords)
        : eName(eRow), uiLevel(kHasMessages ? level : kLevelNever), pFormat(kHasMessages ? pWords : "")
    {
    }
};

// The row of a message that a family does not have.
template <typename Name>
consteval MessageRow<Name> NoMessage(Name eRow)
{
    return {eRow, kLevelNever, ""};
}

// The arguments that a format takes. "%%" does not occur.
constexpr size_t CountConversions(std::string_view format)
{
    size_t count = 0;
    for (const char character : format) {
        count += character == '%' ? 1 : 0;
    }
    return count;
}

// Whether a table has a row for every name, in the order of the names, and no row takes more arguments than its name
// has.
template <typename Name, size_t kRows>
consteval bool IsMessageTable(const MessageRow<Name> (&rows)[kRows], const UInt8 (&arguments)[kRows])
{
    bool bHolds = kRows == static_cast<size_t>(Name::Count);
    for (size_t i = 0; i < kRows; ++i) {
        const bool bSaid = rows[i].uiLevel != kLevelNever;
        bHolds = bHolds && rows[i].eName == static_cast<Name>(i) &&
                 (!bSaid || CountConversions(rows[i].pFormat) <= arguments[i]);
    }
    return bHolds;
}

// Prints the message that `eName` names in a table.
template <typename Name, typename... Arguments>
void LogRow(const MessageRow<Name>* pTable, Name eName, Arguments... arguments)
{
    static_assert(((std::is_integral_v<Arguments> && sizeof(Arguments) == sizeof(UInt32)) && ...));
    static_assert(sizeof...(Arguments) > 0);
    const MessageRow<Name>& row = pTable[static_cast<size_t>(eName)];
    if (IsLogged(row.uiLevel)) {
        lxDbg_Print(glxalAviRead_debug_unit, row.uiLevel, row.pFormat, arguments...);
    }
}

// ---- Places in the source ----

// A line, and the path of its module as messages name it.
struct SourcePlace {
    const char* pPath;
    int iLine;
};

// The place of the call.
consteval SourcePlace Here(const char* pFile = __builtin_FILE(), int line = __builtin_LINE())
{
    const std::string_view file(pFile);
    const bool bOpenDml = file.substr(0, file.find_last_of('/')).ends_with("Avi2ReadCore");
    return {bOpenDml ? "src/demux/comps/lxAviRead/src/core/src/Avi2ReadCore"
                     : "src/demux/comps/lxAviRead/src/core/src/AviReadcore",
            line};
}

// ---- Checked calls ----

void AnnounceCall(const char* pCall, const char* pCaller, SourcePlace place);

// Reports the outcome of a checked call, and returns it unchanged.
UInt32 ReportCall(UInt32 result, SourcePlace place);

} // namespace lxAviReadCore

// The two arguments of "%d.%d" for a 64-bit value: high word, low word.
#define LX_HILO(value) static_cast<UInt32>(static_cast<UInt64>(value) >> 32), static_cast<UInt32>(value)

// LX_LOG(level, format, …) prints a message; the arguments are not evaluated while the level is off.
// LX_AVIREAD_CALL_AS(text, expr) makes a call whose failure is worth a message, announces it in the system's words, and
// yields its code.
#ifndef LX_AVIREAD_NO_MESSAGES
#define LX_LOG(level, ...)                                                                                             \
    do {                                                                                                               \
        if (::lxAviReadCore::IsLogged(level)) {                                                                        \
            lxDbg_Print(glxalAviRead_debug_unit, level, __VA_ARGS__);                                                  \
        }                                                                                                              \
    } while (0)
#define LX_AVIREAD_CALL_AS(text, expr)                                                                                 \
    (::lxAviReadCore::AnnounceCall(text, __func__, ::lxAviReadCore::Here()),                                           \
     ::lxAviReadCore::ReportCall((expr), ::lxAviReadCore::Here()))
#else
#define LX_LOG(level, ...)                                                                                             \
    do {                                                                                                               \
        if (false) {                                                                                                   \
            NOPRINT(__VA_ARGS__);                                                                                      \
        }                                                                                                              \
    } while (0)
#define LX_AVIREAD_CALL_AS(text, expr) (expr)
#endif

// The same, announced as it stands in the source.
#define LX_AVIREAD_CALL(expr) LX_AVIREAD_CALL_AS(#expr, expr)

// Leaves the function with the code of `expr` unless it is LX_OK.
#define LX_AVIREAD_TRY(expr)                                                                                           \
    do {                                                                                                               \
        if (const UInt32 uiTried = (expr); uiTried != LX_OK) {                                                         \
            return uiTried;                                                                                            \
        }                                                                                                              \
    } while (0)

// LX_ASSERT(holds, condition, format, …) reports a failed assertion when `holds` is false, and carries on. `condition`
// is its text in the system's words.
#define LX_ASSERT(holds, condition, ...)                                                                               \
    do {                                                                                                               \
        if (!(holds)) {                                                                                                \
            constexpr ::lxAviReadCore::SourcePlace kPlace = ::lxAviReadCore::Here();                                   \
            lxDbg_AssertError(condition, lxDbg_StrAssertFormat(__VA_ARGS__), kPlace.pPath, kPlace.iLine);              \
        }                                                                                                              \
    } while (0)
