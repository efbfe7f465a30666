/* Checks that the public header compiles alone in C99, and that a program can call the library. */
#include "lxAviRead.h"

int main(void)
{
    lxAviRead_ChunkData_t chunk;
    Bool jumped = 0;
    Bool allIndexed = 0;
    if (lxalAviRead_FileSeekPossible != 0) {
        return 1; /* lxalAviRead_FileSeekPossible has to be 0 before the first Reset or Open */
    }
    if (videoTrackNumber != 0 || lxalAviRead_VideoFrame != 0 || lxalAviRead_AudioFrame[7] != 0) {
        return 2;
    }
    if (lxAviReadCore_Open(0, "/nonexistent", 1, 1000, 1, &allIndexed) != LX_ERR_AVIREAD_OPEN) {
        return 3;
    }
    if (lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped) != LX_AVIREAD_END_OF_MEDIA) {
        return 4;
    }
    return lxAviReadCore_Close() == LX_OK && NOPRINT("%d", 1) == 1 ? 0 : 5;
}
