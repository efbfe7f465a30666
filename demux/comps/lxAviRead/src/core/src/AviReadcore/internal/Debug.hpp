// Logging and assertions of the reader: messages that cost one test when they are off, checked calls that report a
// failed code in the system's words and hand it on.

#pragma once

#ifndef LX_AVIREAD_NODISCARD_RESULTS
#define LX_AVIREAD_NODISCARD_RESULTS
#endif

#include "Texts.hpp"

#include "lxAviRead.h"
#include "lxDbg.h"

#include <cstddef>

// The module that checked calls and assertions report; the OpenDML index sources define their own before any include.
#ifndef LX_AVIREAD_MODULE
#define LX_AVIREAD_MODULE ::lxAviReadCore::Module::AviReadcore
#endif

namespace lxAviReadCore {

// The levels in force. Out of line, as all that follows: hundreds of places ask, and what each of them costs counts.
[[gnu::pure]] UInt32 LogMask();

inline bool IsLogged(UInt32 level)
{
    return (LogMask() & level) != 0;
}

// The message, or null while its level is off.
[[gnu::pure]] const char* WantedText(const char* pMessage);

// Prints a message. Its arguments are numbers, addresses and short words of our own; see LX_LOG_NAME for others.
[[gnu::cold]] void PrintLog(const char* pMessage, ...);

// Prints a message of no arguments, if it is wanted.
void Say(const char* pMessage);

// Prints a message about a name of any length, if it is wanted.
void SayOf(const char* pMessage, const char* pName);

// ---- Places in the source ----

enum class Module : UInt32 { AviReadcore, Avi2ReadCore };

// Module and line in one word.
using SourcePlace = UInt32;

constexpr SourcePlace PlaceAt(Module eModule, UInt32 line)
{
    return static_cast<UInt32>(eModule) << 16 | line;
}

constexpr int LineOf(SourcePlace place)
{
    return static_cast<int>(place & 0xFFFF);
}

// The path that messages name.
const char* PathOf(SourcePlace place);

// ---- Checked calls and assertions ----

void AnnounceCall(const char* pCall, const char* pCaller, SourcePlace place);

// Reports the outcome of a checked call, and returns it unchanged.
UInt32 ReportCall(UInt32 result, SourcePlace place);

[[gnu::cold]] void ReportAssertion(const char* pCondition, SourcePlace place, const char* pWords, ...);

// ---- The name of what is called ----

struct Name {
    char text[kLongestText];
};

// The function in a call's source text.
constexpr Name CalleeOf(const char* pCall)
{
    Name name = {};
    for (size_t i = 0; pCall[i] != '(' && pCall[i] != '<' && pCall[i] != '\0'; ++i) {
        name.text[i] = pCall[i];
    }
    return name;
}

} // namespace lxAviReadCore

// The two arguments of "%d.%d" for a 64-bit value: high word, low word.
#define LX_HILO(value) static_cast<UInt32>(static_cast<UInt64>(value) >> 32), static_cast<UInt32>(value)

// The place of the line that it stands in.
#define LX_AVIREAD_PLACE ::lxAviReadCore::PlaceAt(LX_AVIREAD_MODULE, __LINE__)

// Prints a message; the arguments are not evaluated while the level is off. The compiler checks them against the format
// of the call that is never made.
#define LX_LOG(level, text, ...)                                                                                      \
    do {                                                                                                              \
        LX_LOG_TEXT(LX_TEXT(level, text) __VA_OPT__(, ) __VA_ARGS__);                                                 \
        LX_CHECK_FORMAT(text __VA_OPT__(, ) __VA_ARGS__);                                                             \
    } while (0)

// The same where it runs for every chunk: the level is asked for on the spot, at the cost of some bytes.
#define LX_LOG_OFTEN(level, text, ...)                                                                                \
    do {                                                                                                              \
        if (lxDbg_LevelIsOn(glxalAviRead_debug_unit, level) != 0) {                                                   \
            ::lxAviReadCore::PrintLog(LX_TEXT(level, text) __VA_OPT__(, ) __VA_ARGS__);                               \
        }                                                                                                             \
        LX_CHECK_FORMAT(text __VA_OPT__(, ) __VA_ARGS__);                                                             \
    } while (0)

// The same with a text that is kept (LX_TEXT).
#define LX_LOG_TEXT(kept, ...) LX_AVIREAD_LOG##__VA_OPT__(_WITH)(kept __VA_OPT__(, ) __VA_ARGS__)
#define LX_AVIREAD_LOG(kept) ::lxAviReadCore::Say(kept)
#define LX_AVIREAD_LOG_WITH(kept, ...)                                                                                \
    do {                                                                                                              \
        if (const char* const pWanted = ::lxAviReadCore::WantedText(kept); pWanted != Null) {                         \
            ::lxAviReadCore::PrintLog(pWanted, __VA_ARGS__);                                                          \
        }                                                                                                             \
    } while (0)

// The same about a name that the caller has given.
#define LX_LOG_NAME(level, text, name)                                                                                \
    do {                                                                                                              \
        ::lxAviReadCore::SayOf(LX_TEXT(level, text), name);                                                           \
        LX_CHECK_FORMAT(text, name);                                                                                  \
    } while (0)

#define LX_CHECK_FORMAT(...)                                                                                          \
    do {                                                                                                              \
        if constexpr (false) {                                                                                        \
            static_cast<void>(lxDbg_StrAssertFormat(__VA_ARGS__));                                                    \
        }                                                                                                             \
    } while (0)

// Reports a failed assertion when `holds` is false, and carries on. `condition` is its text in the system's words.
#define LX_ASSERT(holds, condition, text, ...)                                                                        \
    do {                                                                                                              \
        if (!(holds)) {                                                                                               \
            ::lxAviReadCore::ReportAssertion(LX_WORDS(condition), LX_AVIREAD_PLACE,                                   \
                                             LX_WORDS(text) __VA_OPT__(, ) __VA_ARGS__);                              \
        }                                                                                                             \
        LX_CHECK_FORMAT(text __VA_OPT__(, ) __VA_ARGS__);                                                             \
    } while (0)

// Makes a call whose failure is worth a message; yields its code.
#define LX_AVIREAD_CALL(expr) LX_AVIREAD_CALL_AS(::lxAviReadCore::CalleeOf(#expr).text, expr)

// The same, announced in the system's words.
#define LX_AVIREAD_CALL_AS(text, expr)                                                                                \
    (::lxAviReadCore::AnnounceCall(LX_WORDS(text), LX_WORDS(__func__), LX_AVIREAD_PLACE),                             \
     ::lxAviReadCore::ReportCall((expr), LX_AVIREAD_PLACE))

// Leaves the function with the code of `expr` unless it is LX_OK.
#define LX_AVIREAD_TRY(expr)                                                                                          \
    do {                                                                                                              \
        if (const UInt32 uiTried = (expr); uiTried != LX_OK) {                                                        \
            return uiTried;                                                                                           \
        }                                                                                                             \
    } while (0)
