/** @file
 *  What a component asks of the platform's debug library: a named unit with a mask of log levels, a print that
 *  the caller guards with that mask, and the report of a failed assertion. */
#ifndef LX_DBG_H
#define LX_DBG_H

#include "lxTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define LX_DBG_PRINTF(formatArgument, firstArgument) __attribute__((format(printf, formatArgument, firstArgument)))
#else
#define LX_DBG_PRINTF(formatArgument, firstArgument)
#endif

/** Number of a debug unit, 1 to `LX_DBG_UNITS` - 1. 0 is the global unit; a component whose unit is still 0 has
 *  not registered yet and logs as the global unit. */
typedef UInt32 lxDbg_Unit_t;

/** Units the platform can hold, the global unit included. */
#define LX_DBG_UNITS 32u

/** The unit whose mask counts for every component. */
#define LX_DBG_GLOBAL_UNIT 0u

/** The level mask of every unit, by unit number. A message of level L is printed when L shares a bit with the mask
 *  of its unit or with the mask of the global unit. Read it before the arguments of a message are evaluated (see
 *  `lxDbg_LevelIsOn`), so that a message that is switched off costs one test. Written by the platform only. */
extern UInt32 kvStbDbg_DbgUnit[LX_DBG_UNITS];

/** Registers a component under `name` (copied; at most 31 characters count).
 *  @param pUnit receives the unit number; the same name gives the same number again.
 *  @return 0, or 1 when `pUnit` or `name` is null or no unit is left (`*pUnit` is then the global unit). */
UInt32 lxDbg_RegisterModule(lxDbg_Unit_t* pUnit, const char* name);

/** Prints one message of `unit` at `level`, printf fashion. Does not look at the masks: the caller has. */
void lxDbg_Print(lxDbg_Unit_t unit, UInt32 level, const char* format, ...) LX_DBG_PRINTF(3, 4);

/** Formats the explanation of a failed assertion, printf fashion.
 *  @return the text (cut at 511 bytes), in storage of the calling thread that the next call overwrites. */
const char* lxDbg_StrAssertFormat(const char* format, ...) LX_DBG_PRINTF(1, 2);

/** Reports a failed assertion. Returns to the caller unless the platform was told to abort.
 *  @param condition source text of the condition that does not hold
 *  @param text      what that means, from `lxDbg_StrAssertFormat`
 *  @param file      source path of the component
 *  @param line      line in that source */
void lxDbg_AssertError(const char* condition, const char* text, const char* file, int line);

/** The levels that are printed of `unit`: its own and those of all units. */
static inline UInt32 lxDbg_MaskOf(lxDbg_Unit_t unit)
{
    return kvStbDbg_DbgUnit[unit % LX_DBG_UNITS] | kvStbDbg_DbgUnit[LX_DBG_GLOBAL_UNIT];
}

/** True when a message of `level` by `unit` is to be printed. */
static inline Bool lxDbg_LevelIsOn(lxDbg_Unit_t unit, UInt32 level)
{
    return (Bool)((lxDbg_MaskOf(unit) & level) != 0);
}

#ifdef __cplusplus
}
#endif

#endif
