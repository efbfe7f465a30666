/** @file
 *  Controls of the host's debug library: which levels are printed, where they go, and what an assertion does.
 *  Components never include this; programs and tests do.
 *
 *  The environment variable LXDBG sets masks before the first message, as a comma-separated list of NAME=MASK, for
 *  example `LXDBG="lxAviRead=0x8100,*=0x40"`; the name `*` is the global unit. */
#ifndef LX_DBG_HOST_H
#define LX_DBG_HOST_H

#include "lxDbg.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Receives each printed message. `text` lives until the callback returns. */
typedef void (*lxDbg_MessageFn)(void* context, const char* unit, UInt32 level, const char* text);

/** Receives each failed assertion. The strings live until the callback returns. */
typedef void (*lxDbg_AssertFn)(void* context, const char* condition, const char* text, const char* file, int line);

/** Sets the level mask of the unit `name` ("*" for the global unit); a unit that registers later starts with it. */
void lxDbg_SetLevelMask(const char* name, UInt32 mask);

/** Sends messages and assertions to standard error (the start-up state). */
void lxDbg_LogToStandardError(void);

/** Appends messages and assertions to the file `path`.
 *  @return 0, or 1 when the file cannot be opened (the sink then stays as it was). */
UInt32 lxDbg_LogToFile(const char* path);

/** Sends messages and assertions to the callbacks; either may be null and then drops its kind. */
void lxDbg_LogToCallback(lxDbg_MessageFn message, lxDbg_AssertFn assertion, void* context);

/** 1 makes a failed assertion abort the process after its report; 0, the start-up state, carries on. */
void lxDbg_AbortOnAssert(Bool abortOnAssert);

#ifdef __cplusplus
}
#endif

#endif
