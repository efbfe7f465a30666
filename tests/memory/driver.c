/* A player in C for the files on its command line, for tools that need every library of a program instrumented. It uses
 * only the core and the C library. Its own debug library formats every message and drops the text.
 *
 * The player opens, indexes and plays each file, seeks and steps in it, in default mode and in format mode. It prints a
 * checksum of all delivered data, so the tool sees every use of uninitialised memory. */
#include "lxAviRead.h"
#include "lxDbg.h"

#include <stdarg.h>
#include <stdio.h>

/* ---- The debug library ---- */

UInt32 kvStbDbg_DbgUnit[LX_DBG_UNITS];

UInt32 lxDbg_RegisterModule(lxDbg_Unit_t* pUnit, const char* name)
{
    (void)name;
    *pUnit = 1;
    return 0;
}

static unsigned long s_uiMessages;

void lxDbg_Print(lxDbg_Unit_t unit, UInt32 level, const char* format, ...)
{
    static char text[1024];
    va_list arguments;
    (void)unit;
    (void)level;
    va_start(arguments, format);
    s_uiMessages += vsnprintf(text, sizeof text, format, arguments) >= 0;
    va_end(arguments);
}

const char* lxDbg_StrAssertFormat(const char* format, ...) { return format; }

void lxDbg_AssertError(const char* condition, const char* text, const char* file, int line)
{
    (void)condition;
    (void)text;
    (void)file;
    (void)line;
}

/* ---- The player ---- */

static UInt32 s_uiSum;

static void Sum(const void* pData, size_t size)
{
    const unsigned char* pByte = pData;
    for (; size > 0; --size) {
        s_uiSum = (s_uiSum ^ *pByte++) * 16777619u;
    }
}

/* 0 at the end. */
static int Deliver(const lxAviRead_ChunkData_t* pChunk)
{
    static UInt32 buffer[4 * 1024];
    UInt32 left = pChunk->uiSize;
    Sum(&pChunk->uiFrameNumber, sizeof pChunk->uiFrameNumber);
    Sum(&pChunk->bKeyFrame, sizeof pChunk->bKeyFrame);
    if (pChunk->bDrm != 0) {
        Sum(pChunk->DrmInfo, sizeof pChunk->DrmInfo);
    }
    while (left > 0) {
        const UInt32 piece = left < 4096 ? left : 4096;
        if (lxAviReadCore_GetChunk(buffer, piece) != LX_OK) {
            return 0;
        }
        Sum(buffer, piece);
        left -= piece;
    }
    return 1;
}

static void Play(UInt32 chunks)
{
    for (; chunks > 0; --chunks) {
        lxAviRead_ChunkData_t chunk = {0};
        Bool jumped = 0;
        const UInt32 result = lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped);
        Sum(&result, sizeof result);
        if (result == LX_OK) {
            if (!Deliver(&chunk)) {
                return;
            }
        } else if (result == LX_AVIREAD_END_OF_MEDIA || result == LX_ERR_AVIREAD_READ || result == LX_ERR_AVIREAD_EOF ||
                   result == LX_ERR_AVIREAD_SEEK || result == LX_ERR_AVIREAD_JUMP_RANGE) {
            return;
        } else if (result != LX_ERR_AVIREAD_BAD_STREAM) {
            if (lxAviReadCore_RemoveChunk(chunk.uiSize) != LX_OK) {
                return;
            }
            lxAviReadCore_IncreaseOffset(chunk.uiSize);
        }
    }
}

static void SumTable(void)
{
    const lxAviReadCore_AviInfo_t* const pInfo = lxAviReadCore_GetAviInfo();
    UInt32 i;
    for (i = 0; i < pInfo->KeyFramesListAsArrayLength; ++i) {
        const lxAviReadCore_KeyFrameLeaf_t* const pLeaf = pInfo->KeyFramesListAsArray[i];
        UInt32 k;
        for (k = 0; k < pLeaf->arrayLength; ++k) {
            Sum(&pLeaf->array[k].videoChunkOffset, sizeof pLeaf->array[k].videoChunkOffset);
            Sum(pLeaf->array[k].audioChunkOffset, sizeof pLeaf->array[k].audioChunkOffset);
        }
    }
}

static void Watch(const char* path, UInt8 option)
{
    Bool found = 0;
    if (lxAviReadCore_Open(0, path, 2, 1u << 20, option, &found) == LX_OK) {
        const UInt32 indexed = lxAviReadCore_ParseIndex(0);
        Sum(&indexed, sizeof indexed);
        SumTable();
        (void)!lxAviReadCore_PositionTheFileHandleToPlayData(lxAviReadCore_GetAviInfo());
        Play(2000);
        lxAviReadCore_SeekToTime(300, 0, lxAviRead_SetPosRoundNearest);
        Play(20);
        (void)!lxAviReadCore_SetJumpToNextKeyFrame(&found, 0);
        Play(20);
        (void)!lxAviReadCore_SetJumpToPrevKeyFrame(&found, -1);
        Play(20);
        lxAviReadCore_RewindToStart();
        Play(20);
    }
    (void)!lxAviReadCore_Close();
}

int main(int argc, char** argv)
{
    int i;
    kvStbDbg_DbgUnit[LX_DBG_GLOBAL_UNIT] = 0xFFFFFFFFu;
    for (i = 1; i < argc; ++i) {
        Watch(argv[i], 1);
        Watch(argv[i], 1 | LX_AVIREAD_FOLLOW_FORMAT);
    }
    printf("%d files read in both ways, %lu messages, sum %08x\n", argc - 1, s_uiMessages, (unsigned)s_uiSum);
    return argc > 1 ? 0 : 1;
}
