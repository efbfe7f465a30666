/** @file
 *  The platform's scalar types. Every name states the width in bits. No type depends on the compiler's `long`. */
#ifndef LX_TYPES_H
#define LX_TYPES_H

#include <stddef.h>
#include <stdint.h>

/* Some headers, those of X11 among them, define Bool as a macro. It is put aside here, and restored at the end. */
#pragma push_macro("Bool")
#undef Bool

typedef uint8_t UInt8;
typedef uint16_t UInt16;
typedef uint32_t UInt32;
typedef uint64_t UInt64;
typedef int16_t Int16;
typedef int32_t Int32;

/** A truth value of exactly 8 bits: 0 is false, 1 is true. A program in which Bool is a macro writes UInt8 instead. */
typedef UInt8 Bool;

/** The null pointer. */
#define Null NULL

#pragma pop_macro("Bool")

#endif
