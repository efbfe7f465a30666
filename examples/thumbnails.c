/* Writes key frames at equal distances, each as a file. Those of motion JPEG are pictures; those of other codecs are what
 * a decoder starts with.
 *
 *   thumbnails FILE COUNT FOLDER */
#include "lxAviRead.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The smallest table, 363 key frames: of a file with more, it has every n-th one. */
#define TABLE_BYTES ((UInt32)(sizeof(lxAviReadCore_KeyFrameLeaf_t) + sizeof(void*)))
#define MOST_FRAMES 999u
#define LARGEST_FRAME (16u * 1024 * 1024)      /* a damaged file can state any size */
#define NO_AUDIO (LX_AVIREAD_AUDIO_TRACKS - 1) /* a track that hardly any file has: its chunks are rejected */

/* Delivers the frame that the seek before has chosen. */
static UInt32 NextFrame(lxAviRead_ChunkData_t* chunk)
{
    Bool jumped;
    for (;;) {
        const UInt32 result = lxAviReadCore_NextChunk(chunk, NO_AUDIO, 0, &jumped);
        if (result == LX_OK && chunk->eStreamType == LX_AVIREAD_STREAM_VIDEO) {
            return LX_OK;
        }
        if (result == LX_ERR_AVIREAD_AUDIO_SKIPPED || result == LX_ERR_AVIREAD_VIDEO_SKIPPED ||
            result == LX_ERR_AVIREAD_SUBTITLE_SKIPPED) {
            lxAviReadCore_IncreaseOffset(chunk->uiSize); /* a rejected chunk is skipped and counted by the caller */
        } else if (result != LX_OK) {
            return result;
        }
        if (lxAviReadCore_RemoveChunk(chunk->uiSize) != LX_OK) {
            return LX_ERR_AVIREAD_EOF;
        }
    }
}

/* The end of the name of a frame's file. */
static const char* Suffix(UInt32 streamNr)
{
    lxAviRead_StrfVideo_t format;
    memset(&format, 0, sizeof format);
    lxAviReadCore_GetStrfData(streamNr, &format);
    const UInt32 codec = format.biCompression | 0x20202020u; /* codes come in either case */
    return codec == LX_AVIREAD_FOURCC('m', 'j', 'p', 'g') ? "jpg" : "bin";
}

static UInt32 WriteFrame(const lxAviRead_ChunkData_t* chunk, UInt32 nr, const char* pFolder)
{
    if (chunk->uiSize > LARGEST_FRAME) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    char path[4096];
    snprintf(path, sizeof path, "%s/%03u.%s", pFolder, nr, Suffix(chunk->uiStreamNr));
    UInt32* const pFrame = (UInt32*)malloc((size_t)chunk->uiSize + 1);
    UInt32 result = pFrame != NULL ? lxAviReadCore_GetChunk(pFrame, chunk->uiSize) : LX_ERR_AVIREAD_NO_MEMORY;
    FILE* const pFile = result == LX_OK ? fopen(path, "wb") : NULL;
    if (result == LX_OK && (pFile == NULL || fwrite(pFrame, 1, chunk->uiSize, pFile) != chunk->uiSize)) {
        perror(path);
        result = LX_ERR_AVIREAD_OPEN;
    }
    if (pFile != NULL && fclose(pFile) != 0) {
        perror(path);
        result = LX_ERR_AVIREAD_OPEN;
    }
    free(pFrame);
    if (result == LX_OK) {
        const UInt64 usec = lxAviReadCore_GetStreamTimeUsec(chunk->uiStreamNr, chunk->uiFrameNumber, 0);
        printf("%s: frame %u at %.3f s, %u bytes\n", path, chunk->uiFrameNumber, (double)usec / 1e6, chunk->uiSize);
    }
    return result;
}

/* Seeks to `count` times from the first to the last key frame. A key frame that is nearest twice is written once. */
static UInt32 WriteFrames(UInt32 count, const char* pFolder)
{
    lxAviRead_SetPositionRangeInfo_t range;
    lxAviReadCore_GetSetPositionRangeInfo(&range);
    const UInt32 length = range.uiEndTimeMsec - range.uiStartTimeMsec;
    UInt32 last = 0xFFFFFFFFu;
    for (UInt32 i = 0; i < count; ++i) {
        const UInt32 msec = range.uiStartTimeMsec + (UInt32)((UInt64)length * i / (count > 1 ? count - 1 : 1));
        lxAviRead_ChunkData_t chunk;
        const UInt32 landed = lxAviReadCore_SeekToTime(msec, -1, lxAviRead_SetPosRoundNearest);
        if (landed == last) {
            continue; /* the jump stays armed, and the next seek replaces it */
        }
        last = landed;
        UInt32 result = NextFrame(&chunk);
        if (result == LX_OK) {
            result = WriteFrame(&chunk, i + 1, pFolder);
        }
        if (result != LX_OK) {
            return result;
        }
    }
    return LX_OK;
}

int main(int argc, char** argv)
{
    Bool allIndexed;
    if (argc != 4) {
        fprintf(stderr, "usage: thumbnails FILE COUNT FOLDER\n");
        return 2;
    }
    UInt32 result = lxAviReadCore_Open(0, argv[1], 1, TABLE_BYTES, LX_AVIREAD_FOLLOW_FORMAT | 1, &allIndexed);
    if (result == LX_OK) {
        result = lxAviReadCore_ParseIndex(0); /* seeks need the table */
    }
    if (result == LX_ERR_AVIREAD_NO_INDEX) { /* a player asks the user first: this reads in the whole file */
        result = lxAviReadCore_ParseMediaData(0, NULL, NULL);
    }
    if (result == LX_OK) {
        const unsigned long count = strtoul(argv[2], NULL, 10);
        result = WriteFrames(count < MOST_FRAMES ? (UInt32)count : MOST_FRAMES, argv[3]);
    }
    lxAviReadCore_Close();
    if (result != LX_OK) {
        fprintf(stderr, "thumbnails: %s: %s\n", argv[1], lxAviReadCore_ResultText(result));
    }
    return result == LX_OK ? 0 : 1;
}
