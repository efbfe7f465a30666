// Logging and assertions of the reader: the levels by name, messages that cost one test when they are off, checked
// calls that report a failed code in the system's words and hand it on.

#pragma once

#ifndef LX_AVIREAD_NODISCARD_RESULTS
#define LX_AVIREAD_NODISCARD_RESULTS
#endif

#include "lxAviRead.h"
#include "lxDbg.h"

// The path that checked calls and assertions report; the OpenDML index sources define their own before any include.
#ifndef LX_AVIREAD_MODULE
#define LX_AVIREAD_MODULE "src/demux/comps/lxAviRead/src/core/src/AviReadcore"
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

inline bool IsLogged(UInt32 level)
{
    return lxDbg_LevelIsOn(glxalAviRead_debug_unit, level) != 0;
}

// Reports the outcome of a checked call, and returns it unchanged.
inline UInt32 ReportCall(UInt32 result, const char* module, int line)
{
    if (result != LX_OK) {
        if (IsLogged(kLevelError)) {
            lxDbg_Print(glxalAviRead_debug_unit, kLevelError,
                        "Error 0x%x (%d )returned from function call at %s:%d", result, static_cast<Int32>(result),
                        module, line);
        }
    } else if (IsLogged(kLevelCall)) {
        lxDbg_Print(glxalAviRead_debug_unit, kLevelCall, "Successfully returned from function call at %s:%d", module,
                    line);
    }
    return result;
}

inline void AnnounceCall(const char* call, const char* caller, const char* module, int line)
{
    if (IsLogged(kLevelCall)) {
        lxDbg_Print(glxalAviRead_debug_unit, kLevelCall, "Calling %s from %s at %s:%d", call, caller, module, line);
    }
}

} // namespace lxAviReadCore

// The two arguments of "%d.%d" for a 64-bit value: high word, low word.
#define LX_HILO(value) static_cast<UInt32>(static_cast<UInt64>(value) >> 32), static_cast<UInt32>(value)

// Prints a message; the arguments are not evaluated while the level is off.
#define LX_LOG(level, ...)                                                                                            \
    do {                                                                                                              \
        if (::lxAviReadCore::IsLogged(level)) {                                                                       \
            lxDbg_Print(glxalAviRead_debug_unit, level, __VA_ARGS__);                                                 \
        }                                                                                                             \
    } while (0)

// Reports a failed assertion when `holds` is false, and carries on. `text` is the condition in the system's words.
#define LX_ASSERT(holds, text, ...)                                                                                   \
    do {                                                                                                              \
        if (!(holds)) {                                                                                               \
            lxDbg_AssertError(text, lxDbg_StrAssertFormat(__VA_ARGS__), LX_AVIREAD_MODULE, __LINE__);                 \
        }                                                                                                             \
    } while (0)

// Makes a call whose failure is worth a message; yields its code.
#define LX_AVIREAD_CALL(expr) LX_AVIREAD_CALL_AS(#expr, expr)

// The same, announced in the system's words.
#define LX_AVIREAD_CALL_AS(text, expr)                                                                                \
    (::lxAviReadCore::AnnounceCall(text, __func__, LX_AVIREAD_MODULE, __LINE__),                                      \
     ::lxAviReadCore::ReportCall((expr), LX_AVIREAD_MODULE, __LINE__))

// Leaves the function with the code of `expr` unless it is LX_OK.
#define LX_AVIREAD_TRY(expr)                                                                                          \
    do {                                                                                                              \
        if (const UInt32 uiTried = (expr); uiTried != LX_OK) {                                                        \
            return uiTried;                                                                                           \
        }                                                                                                             \
    } while (0)
