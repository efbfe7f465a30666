// Stands in for the set-top box's arithmetic library, so that the reader finds every library that it names.

#include "lxArith.h"

UInt32 lxArith_Version(void)
{
    return 0x00010000u;
}
