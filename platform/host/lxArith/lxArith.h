/** @file
 *  The platform's arithmetic library. On the set-top processors it contains 64-bit helper functions that the compiler
 *  calls. A host needs none of them, so this version contains only the version number. */
#ifndef LX_ARITH_H
#define LX_ARITH_H

#include "lxTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @return the version of the arithmetic library, major number in the upper 16 bits. */
UInt32 lxArith_Version(void);

#ifdef __cplusplus
}
#endif

#endif
