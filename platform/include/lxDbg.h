/** @file
 *  The functions of the platform's debug library that a component calls: registering a named unit with a mask of log
 *  levels, printing a message (the caller tests the mask first), and reporting a failed assertion. */
#ifndef LX_DBG_H
#define LX_DBG_H

#include "lxTypes.h"

/* Some headers, those of X11 among them, define Bool as a macro. It is put aside here, and restored at the end. */
#pragma push_macro("Bool")
#undef Bool

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define LX_DBG_PRINTF(formatArgument, firstArgument) __attribute__((format(printf, formatArgument, firstArgument)))
#define LX_DBG_API __attribute__((visibility("default")))
#else
#define LX_DBG_PRINTF(formatArgument, firstArgument)
#define LX_DBG_API
#endif

/** Number of a debug unit, 1 to `LX_DBG_UNITS` - 1. 0 is the global unit. Before a component has registered, its unit
 *  number is 0, and it logs as the global unit. */
typedef UInt32 lxDbg_Unit_t;

/** Largest number of units, including the global unit. */
#define LX_DBG_UNITS 32u

/** The global unit. Its mask switches levels on for every component. */
#define LX_DBG_GLOBAL_UNIT 0u

/** The level mask of every unit, by unit number. A message of level L is on when L shares a bit with the mask of its
 *  unit or with the mask of the global unit. Test the mask before you evaluate the arguments of a message (see
 *  `lxDbg_LevelIsOn`); then a message that is off costs only one test. Only the platform writes the masks. */
extern LX_DBG_API UInt32 kvStbDbg_DbgUnit[LX_DBG_UNITS];

/** Registers a component under `name` (copied; at most 31 characters count).
 *  @param pUnit receives the unit number; the same name gives the same number again.
 *  @return 0, or 1 when `pUnit` or `name` is null or no unit is left (`*pUnit` is then the global unit). */
LX_DBG_API UInt32 lxDbg_RegisterModule(lxDbg_Unit_t* pUnit, const char* name);

/** Prints one message of `unit` at `level`, with a format string as in printf. It does not test the masks; the caller
 *  has done this before. */
LX_DBG_API void lxDbg_Print(lxDbg_Unit_t unit, UInt32 level, const char* format, ...) LX_DBG_PRINTF(3, 4);

/** Formats the explanation of a failed assertion, with a format string as in printf.
 *  @return the text (at most 511 bytes). The next call of the same thread overwrites it. */
LX_DBG_API const char* lxDbg_StrAssertFormat(const char* format, ...) LX_DBG_PRINTF(1, 2);

/** Reports a failed assertion. Returns to the caller unless the platform was told to abort.
 *  @param condition source text of the condition that does not hold
 *  @param text      the explanation, from `lxDbg_StrAssertFormat`
 *  @param file      source path of the component
 *  @param line      line in that source */
LX_DBG_API void lxDbg_AssertError(const char* condition, const char* text, const char* file, int line);

/** The levels that are on for `unit`: the mask of the unit and the mask of the global unit. */
static inline UInt32 lxDbg_MaskOf(lxDbg_Unit_t unit)
{
    return kvStbDbg_DbgUnit[unit % LX_DBG_UNITS] | kvStbDbg_DbgUnit[LX_DBG_GLOBAL_UNIT];
}

/** True when messages of `level` are on for `unit`. */
static inline Bool lxDbg_LevelIsOn(lxDbg_Unit_t unit, UInt32 level)
{
    return (Bool)((lxDbg_MaskOf(unit) & level) != 0);
}

#ifdef __cplusplus
}
#endif

#pragma pop_macro("Bool")

#endif
