/* Plays a file that is in memory. In the same way a player reads from an archive, from the network, or what is encrypted:
 * fopencookie makes a stream of three functions, and lxAviReadCore_OpenStream takes the stream.
 *
 *   memory FILE */
#define _GNU_SOURCE
#include "lxAviRead.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define LARGEST_FILE (1024L * 1024 * 1024)
#define LARGEST_OFFSET 0x7FFFFFFFFFFFFFFF

static char
    streamBuffer[64 * 1024]; /* lives longer than the stream; without one of ours, setvbuf keeps the usual size */

typedef struct {
    char* pBytes;
    off64_t size;
    off64_t position;
} Memory;

static ssize_t Read(void* pCookie, char* pBuffer, size_t count)
{
    Memory* const pMemory = (Memory*)pCookie;
    const size_t left = pMemory->position < pMemory->size ? (size_t)(pMemory->size - pMemory->position) : 0;
    const size_t given = count < left ? count : left;
    if (given > 0) {
        memcpy(pBuffer, pMemory->pBytes + pMemory->position, given);
    }
    pMemory->position += (off64_t)given;
    return (ssize_t)given; /* 0 is the end of the file, -1 with errno a failure */
}

/* As in a file, a position behind the end is allowed; a read there finds the end. The reader looks behind the end where a
 * file is cut. For a source that cannot seek, set the `seek` member below to NULL. The file then plays from start to end. */
static int Seek(void* pCookie, off64_t* pOffset, int whence)
{
    Memory* const pMemory = (Memory*)pCookie;
    const off64_t from = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? pMemory->position : pMemory->size;
    if (*pOffset < -from || *pOffset > LARGEST_OFFSET - from) {
        errno = EINVAL; /* a damaged index can lead anywhere */
        return -1;
    }
    pMemory->position = from + *pOffset;
    *pOffset = pMemory->position;
    return 0;
}

/* The reader calls it when it closes the stream, also when Open has failed. */
static int Close(void* pCookie)
{
    Memory* const pMemory = (Memory*)pCookie;
    free(pMemory->pBytes);
    free(pMemory);
    return 0;
}

/* Loads a file into memory; null when that fails. */
static Memory* Load(const char* pPath)
{
    Memory* pMemory = (Memory*)calloc(1, sizeof *pMemory);
    FILE* const pFile = fopen(pPath, "rb");
    if (pMemory != NULL && pFile != NULL && fseeko64(pFile, 0, SEEK_END) == 0) {
        pMemory->size = ftello64(pFile);
        rewind(pFile);
        const int bFits = pMemory->size >= 0 && pMemory->size < LARGEST_FILE;
        pMemory->pBytes = bFits ? (char*)malloc((size_t)pMemory->size + 1) : NULL;
    }
    if (pMemory != NULL &&
        (pMemory->pBytes == NULL || fread(pMemory->pBytes, 1, (size_t)pMemory->size, pFile) != (size_t)pMemory->size)) {
        Close(pMemory);
        pMemory = NULL;
    }
    if (pFile != NULL) {
        fclose(pFile);
    }
    return pMemory;
}

/* Plays to the end. The payloads are dropped here. */
static UInt32 Play(unsigned long* pChunks)
{
    lxAviRead_ChunkData_t chunk;
    Bool jumped;
    for (;;) {
        const UInt32 result = lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped);
        if (result == LX_OK) {
            ++*pChunks;
        } else if (result == LX_ERR_AVIREAD_AUDIO_SKIPPED || result == LX_ERR_AVIREAD_VIDEO_SKIPPED ||
                   result == LX_ERR_AVIREAD_SUBTITLE_SKIPPED) {
            lxAviReadCore_IncreaseOffset(chunk.uiSize);
        } else if (result == LX_ERR_AVIREAD_BAD_STREAM) {
            continue;
        } else {
            return result;
        }
        if (lxAviReadCore_RemoveChunk(chunk.uiSize) != LX_OK) {
            return LX_ERR_AVIREAD_EOF;
        }
    }
}

int main(int argc, char** argv)
{
    Memory* const pMemory = argc == 2 ? Load(argv[1]) : NULL;
    if (pMemory == NULL) {
        fprintf(stderr, "usage: memory FILE (a file that can be read)\n");
        return 2;
    }
    const cookie_io_functions_t functions = {.read = Read, .seek = Seek, .close = Close};
    FILE* const pStream = fopencookie(pMemory, "rb", functions);
    if (pStream == NULL) {
        Close(pMemory);
        return 1;
    }
    /* A larger buffer saves calls of Read where each one is dear. */
    setvbuf(pStream, streamBuffer, _IOFBF, sizeof streamBuffer);

    Bool allIndexed;
    unsigned long chunks = 0;
    /* From here on the stream belongs to the reader. */
    UInt32 result = lxAviReadCore_OpenStream(0, pStream, 1, 256 * 1024, LX_AVIREAD_FOLLOW_FORMAT | 1, &allIndexed);
    if (result == LX_OK) {
        lxAviReadCore_ParseIndex(0);
        lxAviReadCore_PositionTheFileHandleToPlayData(lxAviReadCore_GetAviInfo());
        result = Play(&chunks);
    }
    lxAviReadCore_Close();
    printf("%lu chunks: %s\n", chunks, lxAviReadCore_ResultText(result));
    return result == LX_AVIREAD_END_OF_MEDIA ? 0 : 1;
}
