/** @file
 *  Controls of the host's debug library: which levels it prints, where it prints them, and what a failed assertion
 *  does. Only programs and tests include this file; components do not.
 *
 *  The environment variable LXDBG sets masks before the first message, as a comma-separated list of NAME=MASK, for
 *  example `LXDBG="lxAviRead=0x8100,*=0x40"`; the name `*` is the global unit. */
#ifndef LX_DBG_HOST_H
#define LX_DBG_HOST_H

#include "lxDbg.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Receives each printed message. `text` is valid until the callback returns. */
typedef void (*lxDbg_MessageFn)(void* context, const char* unit, UInt32 level, const char* text);

/** Receives each failed assertion. The strings are valid until the callback returns. */
typedef void (*lxDbg_AssertFn)(void* context, const char* condition, const char* text, const char* file, int line);

/** Sets the level mask of the unit `name` ("*" for the global unit). A unit that registers later under this name starts
 *  with this mask. */
void lxDbg_SetLevelMask(const char* name, UInt32 mask);

/** Sends messages and assertions to standard error (the start-up state). */
void lxDbg_LogToStandardError(void);

/** Appends messages and assertions to the file `path`.
 *  @return 0, or 1 when the file cannot be opened (then messages still go to the previous place). */
UInt32 lxDbg_LogToFile(const char* path);

/** Sends messages and assertions to the callbacks. When a callback is null, its messages or assertions are dropped. */
void lxDbg_LogToCallback(lxDbg_MessageFn message, lxDbg_AssertFn assertion, void* context);

/** 1: a failed assertion aborts the process after its report. 0 (at start-up): the process continues. */
void lxDbg_AbortOnAssert(Bool abortOnAssert);

#ifdef __cplusplus
}
#endif

#endif
