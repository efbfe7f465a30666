// Logging and assertions of the reader: the levels by name, messages that cost one test when they are off, checked
// calls that report a failed code in the system's words and hand it on.

#pragma once

#ifndef LX_AVIREAD_NODISCARD_RESULTS
#define LX_AVIREAD_NODISCARD_RESULTS
#endif

#include "lxAviRead.h"
#include "lxDbg.h"

#include <cstddef>

// The module that checked calls and assertions report; the OpenDML index sources define their own before any include.
#ifndef LX_AVIREAD_MODULE
#define LX_AVIREAD_MODULE ::lxAviReadCore::Module::AviReadcore
#endif

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

// The levels in force. Out of line, as all that follows: hundreds of places ask, and what each of them costs counts.
[[gnu::pure]] UInt32 LogMask();

inline bool IsLogged(UInt32 level)
{
    return (LogMask() & level) != 0;
}

template <typename... Args>
[[gnu::noinline, gnu::cold]] void PrintLog(UInt32 level, const char* pFormat, Args... args)
{
    lxDbg_Print(glxalAviRead_debug_unit, level, pFormat, args...);
}

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

template <typename... Args>
[[gnu::noinline, gnu::cold]] void ReportAssertion(const char* pCondition, SourcePlace place, const char* pFormat,
                                                  Args... args)
{
    lxDbg_AssertError(pCondition, lxDbg_StrAssertFormat(pFormat, args...), PathOf(place), LineOf(place));
}

// ---- The name of what is called ----

template <size_t kLength>
struct Name {
    char text[kLength + 1];
};

// A call's source text without its arguments.
consteval size_t CalleeLength(const char* pCall)
{
    size_t length = 0;
    while (pCall[length] != '(' && pCall[length] != '\0') {
        ++length;
    }
    return length;
}

template <size_t kLength>
consteval Name<kLength> CalleeOf(const char* pCall)
{
    Name<kLength> name = {};
    for (size_t i = 0; i < kLength; ++i) {
        name.text[i] = pCall[i];
    }
    return name;
}

// One copy of each name, however many calls there are.
template <Name kName>
constexpr const char* kCallee = kName.text;

} // namespace lxAviReadCore

// The two arguments of "%d.%d" for a 64-bit value: high word, low word.
#define LX_HILO(value) static_cast<UInt32>(static_cast<UInt64>(value) >> 32), static_cast<UInt32>(value)

// Here.
#define LX_AVIREAD_PLACE ::lxAviReadCore::PlaceAt(LX_AVIREAD_MODULE, __LINE__)

// Prints a message; the arguments are not evaluated while the level is off. The compiler checks them against the format
// of the call that is never made.
#define LX_LOG(level, ...)                                                                                            \
    do {                                                                                                              \
        if (::lxAviReadCore::IsLogged(level)) {                                                                       \
            ::lxAviReadCore::PrintLog(level, __VA_ARGS__);                                                            \
            if constexpr (false) {                                                                                    \
                lxDbg_Print(0, level, __VA_ARGS__);                                                                   \
            }                                                                                                         \
        }                                                                                                             \
    } while (0)

// Reports a failed assertion when `holds` is false, and carries on. `text` is the condition in the system's words.
#define LX_ASSERT(holds, text, ...)                                                                                   \
    do {                                                                                                              \
        if (!(holds)) {                                                                                               \
            ::lxAviReadCore::ReportAssertion(text, LX_AVIREAD_PLACE, __VA_ARGS__);                                    \
            if constexpr (false) {                                                                                    \
                static_cast<void>(lxDbg_StrAssertFormat(__VA_ARGS__));                                                \
            }                                                                                                         \
        }                                                                                                             \
    } while (0)

// Makes a call whose failure is worth a message; yields its code.
#define LX_AVIREAD_CALL(expr)                                                                                         \
    LX_AVIREAD_CALL_AS((::lxAviReadCore::kCallee<::lxAviReadCore::CalleeOf<                                           \
                            ::lxAviReadCore::CalleeLength(#expr)>(#expr)>),                                           \
                       expr)

// The same, announced in the system's words.
#define LX_AVIREAD_CALL_AS(text, expr)                                                                                \
    (::lxAviReadCore::AnnounceCall(text, __func__, LX_AVIREAD_PLACE),                                                 \
     ::lxAviReadCore::ReportCall((expr), LX_AVIREAD_PLACE))

// Leaves the function with the code of `expr` unless it is LX_OK.
#define LX_AVIREAD_TRY(expr)                                                                                          \
    do {                                                                                                              \
        if (const UInt32 uiTried = (expr); uiTried != LX_OK) {                                                        \
            return uiTried;                                                                                           \
        }                                                                                                             \
    } while (0)
