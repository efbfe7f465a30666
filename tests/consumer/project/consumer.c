/* Counts the chunks of a file, and hears the library's messages. */
#include <lxAviRead.h>
#include <lxDbgHost.h>

#include <stdio.h>

int main(int argc, char** argv)
{
    Bool allIndexed, jumped;
    lxAviRead_ChunkData_t chunk;
    unsigned chunks = 0;
    lxDbg_SetLevelMask("lxAviRead", 0);
    UInt32 result = argc == 2 ? lxAviReadCore_Open(0, argv[1], 1, 1u << 20, LX_AVIREAD_FOLLOW_FORMAT | 1, &allIndexed)
                              : LX_ERR_AVIREAD_OPEN;
    if (result == LX_OK) {
        result = lxAviReadCore_PositionTheFileHandleToPlayData(lxAviReadCore_GetAviInfo());
    }
    while (result == LX_OK) {
        result = lxAviReadCore_NextChunk(&chunk, 7, 0, &jumped);
        if (result == LX_OK || result == LX_ERR_AVIREAD_AUDIO_SKIPPED) {
            ++chunks;
            lxAviReadCore_IncreaseOffset(result == LX_OK ? 0 : chunk.uiSize);
            result = lxAviReadCore_RemoveChunk(chunk.uiSize);
        }
    }
    lxAviReadCore_Close();
    printf("%u chunks, version %d.%d.%d: %s\n", chunks, LX_AVIREAD_VERSION_MAJOR, LX_AVIREAD_VERSION_MINOR,
           LX_AVIREAD_VERSION_PATCH, lxAviReadCore_ResultText(result));
    return result == LX_AVIREAD_END_OF_MEDIA ? 0 : 1;
}
