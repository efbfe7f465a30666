/* Checks that the public header compiles behind headers that define Bool and other common words as macros, as those of
 * X11 do, and that the macros are there afterwards. The file is compiled as C and as C++. */
#define Bool int
#define Status int
#define True 1
#define False 0
#define None 0L
#define Success 0

#include "lxAviRead.h"

static Bool BoolIsTheMacroAgain(void) { return (Bool)sizeof(Bool) == (Bool)sizeof(int) ? True : False; }

int main(void)
{
    lxAviRead_ChunkData_t chunk;
    UInt8 jumped = 7;
    if (sizeof chunk.bValid != 1 || sizeof lxalAviRead_FileSeekPossible != 1) {
        return 1;
    }
    if (lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped) != LX_AVIREAD_END_OF_MEDIA || jumped != 0) {
        return 2;
    }
    return BoolIsTheMacroAgain() ? Success : 3;
}
