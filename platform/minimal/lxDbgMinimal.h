/** @file
 *  The control of the minimal debug library: where messages go. Only programs include this file; components do not.
 *
 *  A program switches levels on with the masks of lxDbg.h, for example kvStbDbg_DbgUnit[LX_DBG_GLOBAL_UNIT] = 0x8000. */
#ifndef LX_DBG_MINIMAL_H
#define LX_DBG_MINIMAL_H

#include "lxDbg.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Receives a message or a failed assertion. `line` has no line end, and is valid until the function returns. */
typedef void (*lxDbg_SinkFn)(void* context, const char* line);

/** Sends messages and failed assertions to `sink`. Null, as at the start, drops them. Call it before the reader is used,
 *  because messages come from the thread that calls the reader. */
LX_DBG_API void lxDbg_SetSink(lxDbg_SinkFn sink, void* context);

#ifdef __cplusplus
}
#endif

#endif
