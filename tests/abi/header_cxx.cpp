// Checks that the public header compiles alone in C++, and that the names have C linkage.
#include "lxAviRead.h"

#include <type_traits>

static_assert(sizeof(Bool) == 1, "Bool is 8 bits wide");
static_assert(std::is_standard_layout<lxAviReadCore_AviInfo_t>::value, "usable from C");

int main()
{
    UInt64 position = 1;
    lxAviReadCore_GetFilePosition(&position);
    return lxAviReadCore_Alloc(0) == LX_OK && lxAviReadCore_Close() == LX_OK &&
                   lxAviReadCore_GetAviInfo()->pFile == Null
               ? 0
               : 1;
}
