// Replaces the set-top box's arithmetic library on a host: the loader then finds every library that the reader needs.

#include "lxArith.h"

UInt32 lxArith_Version(void) { return 0x00010000u; }
