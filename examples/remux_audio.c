/* remux_audio FILE FOLDER writes every audio track of a file as a WAV file, in one pass. The reader delivers one track and
 * rejects the others; the payload of a rejected chunk can be read all the same. */
#include "lxAviRead.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#define LARGEST_WAV 0xFFFE0000u /* sizes in a WAV file have 32 bits; the head needs some, too */
#define PIECE (64u * 1024u)

typedef struct {
    FILE* pFile; /* null: the file has no such track */
    UInt32 streamNr;
    char path[4096];
    UInt32 dataBytes; /* counted here: the reader counts for the track that it delivers */
    UInt32 chunks;
} Track;

static Track tracks[LX_AVIREAD_AUDIO_TRACKS];
static UInt32 piece[PIECE / sizeof(UInt32)];

/* The library runs on little-endian machines alone, and WAV files are little-endian. */
static int Put32(FILE* pFile, UInt32 value) { return fwrite(&value, 1, 4, pFile) == 4; }

/* RIFF, WAVE, the format as the AVI file has it with its codec data, and the head of the data chunk. */
static int WriteHead(const Track* pTrack)
{
    UInt32 size;
    memset(piece, 0, sizeof piece);
    lxAviReadCore_GetStreamBytes(pTrack->streamNr, LX_AVIREAD_BYTES_STRF, piece, PIECE, &size);
    if (size > PIECE) {
        return 0;
    }
    const UInt32 even = size + (size & 1);
    const UInt32 evenData = pTrack->dataBytes + (pTrack->dataBytes & 1);
    return fwrite("RIFF", 1, 4, pTrack->pFile) == 4 && Put32(pTrack->pFile, 20 + even + evenData) &&
           fwrite("WAVEfmt ", 1, 8, pTrack->pFile) == 8 && Put32(pTrack->pFile, size) &&
           fwrite(piece, 1, even, pTrack->pFile) == even && fwrite("data", 1, 4, pTrack->pFile) == 4 &&
           Put32(pTrack->pFile, pTrack->dataBytes);
}

/* Opens a file for each of the first eight audio streams. */
static int OpenTracks(const char* pFolder)
{
    const lxAviReadCore_AviInfo_t* const pInfo = lxAviReadCore_GetAviInfo();
    for (UInt32 streamNr = 0; streamNr < LX_AVIREAD_STREAMS; ++streamNr) {
        const lxAviReadCore_StreamInfo_t* const pStream = pInfo->StreamInfo[streamNr];
        const UInt32 nr = pInfo->TrackNumber[streamNr];
        if (pStream == NULL || pStream->StreamType != LX_AVIREAD_STREAM_AUDIO || nr >= LX_AVIREAD_AUDIO_TRACKS) {
            continue;
        }
        Track* const pTrack = &tracks[nr];
        pTrack->streamNr = streamNr;
        snprintf(pTrack->path, sizeof pTrack->path, "%s/track-%u.wav", pFolder, nr);
        pTrack->pFile = fopen(pTrack->path, "wb");
        if (pTrack->pFile == NULL || !WriteHead(pTrack)) {
            perror(pTrack->path);
            return 0;
        }
    }
    return 1;
}

/* Pads the data, writes the sizes into the head, and closes the file. */
static int CloseTrack(Track* pTrack)
{
    printf("%s: %u chunks, %u bytes\n", pTrack->path, pTrack->chunks, pTrack->dataBytes);
    int bWritten = (pTrack->dataBytes & 1) == 0 || fputc(0, pTrack->pFile) == 0;
    rewind(pTrack->pFile);
    bWritten = WriteHead(pTrack) && bWritten;
    return fclose(pTrack->pFile) == 0 && bWritten;
}

/* Copies the payload of an audio chunk, in pieces, because the file can state any size. */
static UInt32 CopyPayload(Track* pTrack, UInt32 size)
{
    ++pTrack->chunks;
    for (UInt32 left = size; left > 0;) {
        UInt32 count = left < PIECE ? left : PIECE;
        const UInt32 result = lxAviReadCore_GetChunk(piece, count);
        if (result != LX_OK) {
            lxAviReadCore_GetReadSize(&count); /* a cut file: what is there is kept */
        }
        if (pTrack->dataBytes > LARGEST_WAV - count || fwrite(piece, 1, count, pTrack->pFile) != count) {
            fprintf(stderr, "%s is full: %s\n", pTrack->path, strerror(errno));
            return LX_ERR_AVIREAD_ABORTED;
        }
        pTrack->dataBytes += count;
        left -= count;
        if (result != LX_OK) {
            return result;
        }
    }
    return LX_OK;
}

/* Copies audio, and skips the rest. Read or skipped, a rejected payload is counted by the caller. */
static UInt32 TakePayload(const lxAviRead_ChunkData_t* chunk, int bRejected)
{
    const UInt32 nr = lxAviReadCore_GetAviInfo()->TrackNumber[chunk->uiStreamNr];
    const int bCopied = chunk->eStreamType == LX_AVIREAD_STREAM_AUDIO && nr < LX_AVIREAD_AUDIO_TRACKS;
    if (bRejected) {
        lxAviReadCore_IncreaseOffset(chunk->uiSize);
    }
    return bCopied ? CopyPayload(&tracks[nr], chunk->uiSize) : lxAviReadCore_RemoveChunk(chunk->uiSize);
}

static UInt32 CopyAll(void)
{
    UInt32 result = LX_OK;
    while (result == LX_OK) {
        lxAviRead_ChunkData_t chunk;
        Bool jumped;
        result = lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped);
        switch (result) {
        case LX_OK: result = TakePayload(&chunk, 0); break;
        case LX_ERR_AVIREAD_AUDIO_SKIPPED: /* another track */
        case LX_ERR_AVIREAD_VIDEO_SKIPPED:
        case LX_ERR_AVIREAD_SUBTITLE_SKIPPED: result = TakePayload(&chunk, 1); break;
        case LX_ERR_AVIREAD_BAD_STREAM: result = LX_OK; /* its size cannot be trusted: the next call searches on */
        }
    }
    return result;
}

int main(int argc, char** argv)
{
    Bool allIndexed;
    if (argc != 3) {
        fprintf(stderr, "usage: remux_audio FILE FOLDER\n");
        return 2;
    }
    int bWritten = 1;
    /* It makes no jump, and so needs no table. */
    UInt32 result = lxAviReadCore_Open(0, argv[1], 1, 0, LX_AVIREAD_FOLLOW_FORMAT, &allIndexed);
    if (result == LX_OK) {
        lxAviReadCore_PositionTheFileHandleToPlayData(lxAviReadCore_GetAviInfo());
        bWritten = OpenTracks(argv[2]);
        result = bWritten ? CopyAll() : LX_OK;
    }
    for (UInt32 nr = 0; nr < LX_AVIREAD_AUDIO_TRACKS; ++nr) {
        bWritten = (tracks[nr].pFile == NULL || CloseTrack(&tracks[nr])) && bWritten;
    }
    lxAviReadCore_Close();
    printf("%s\n", lxAviReadCore_ResultText(result));
    return result == LX_AVIREAD_END_OF_MEDIA && bWritten ? 0 : 1;
}
