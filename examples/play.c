/* Lists the streams of a file and plays it: the loop that every player has.
 *
 *   play FILE [seek=SECONDS | audio=TRACK | play=SECONDS] …
 *
 * It follows the commands in turn: goes to the last key frame at or before a time, switches the audio track, plays so
 * much of the video. Then it plays to the end of the file. Ctrl-C stops it. */
#define _POSIX_C_SOURCE 200809L
#include "lxAviRead.h"

#include <signal.h>
#include <stdio.h>

#define TABLE_BYTES (256u * 1024u)       /* memory for the key-frame table */
#define LARGEST_CHUNK (4u * 1024 * 1024) /* a damaged file can state any size; larger chunks are skipped */

static UInt32 payload[LARGEST_CHUNK / sizeof(UInt32)];
static unsigned long delivered, deliveredBytes;

/* The flag outlives Open and every other call, so the signal may come at any time. */
static void StopOnSignal(int number)
{
    (void)number;
    lxAviReadCore_SetAbortFlag(1);
}

static void ListStreams(void)
{
    char title[100];
    if (lxAviReadCore_GetFileText(LX_AVIREAD_FOURCC('I', 'N', 'A', 'M'), title, sizeof title) > 0) {
        printf("title: %s\n", title);
    }
    for (UInt32 streamNr = 0; streamNr < LX_AVIREAD_STREAMS; ++streamNr) {
        lxAviRead_StreamSummary_t summary;
        lxAviRead_Strh_t header;
        UInt32 bytes, codecData;
        lxAviReadCore_GetStreamSummary(streamNr, &summary);
        if (summary.eOrigin == LX_AVIREAD_SUMMARY_NONE) {
            continue; /* the file has no such stream */
        }
        lxAviReadCore_GetStrhData(streamNr, &header, &bytes);
        lxAviReadCore_GetStreamBytes(streamNr, LX_AVIREAD_BYTES_STRF, NULL, 0, &codecData);
        printf("stream %u: %.4s track %u, %.3f s, %u chunks, %llu bytes, format %u bytes\n", streamNr,
               (const char*)&header.fccType, lxAviReadCore_GetAviInfo()->TrackNumber[streamNr],
               (double)summary.uiDurationUsec / 1e6, summary.uiChunks, (unsigned long long)summary.uiBytes, codecData);
    }
}

/* Reads a payload. A player hands it to the decoder of chunk->uiStreamNr now. */
static UInt32 TakePayload(const lxAviRead_ChunkData_t* chunk)
{
    if (chunk->uiSize > LARGEST_CHUNK) {
        return lxAviReadCore_RemoveChunk(chunk->uiSize);
    }
    ++delivered;
    deliveredBytes += chunk->uiSize;
    return lxAviReadCore_GetChunk(payload, chunk->uiSize);
}

/* Delivers or skips one chunk. LX_OK: delivery goes on. */
static UInt32 PlayChunk(UInt32 audioTrack, lxAviRead_ChunkData_t* chunk)
{
    Bool jumped;
    const UInt32 result = lxAviReadCore_NextChunk(chunk, audioTrack, 0, &jumped);
    switch (result) {
    case LX_OK: return TakePayload(chunk);
    case LX_ERR_AVIREAD_BAD_STREAM: return LX_OK; /* its size cannot be trusted: the next call searches on */
    case LX_ERR_AVIREAD_AUDIO_SKIPPED:            /* another track, or before the sync point of a jump */
    case LX_ERR_AVIREAD_VIDEO_SKIPPED:
    case LX_ERR_AVIREAD_SUBTITLE_SKIPPED:
        lxAviReadCore_IncreaseOffset(chunk->uiSize);
        return lxAviReadCore_RemoveChunk(chunk->uiSize);
    case LX_ERR_AVIREAD_JUMP_NOT_VIDEO: /* the jump has failed; delivery goes on where it stood */
    case LX_ERR_AVIREAD_JUMP_RANGE:
    case LX_ERR_AVIREAD_NO_KEY_FRAME: fprintf(stderr, "\n%s\n", lxAviReadCore_ResultText(result)); return LX_OK;
    default: return result; /* the end of the media data, of the file, an abort, a failed read */
    }
}

/* Plays `seconds` of the video from its next frame on; a negative number plays to the end. */
static UInt32 Play(UInt32 audioTrack, double seconds)
{
    lxAviRead_ChunkData_t chunk = {0};
    double start = -1;
    UInt32 result;
    while ((result = PlayChunk(audioTrack, &chunk)) == LX_OK) {
        if (chunk.bValid == 0 || chunk.eStreamType != LX_AVIREAD_STREAM_VIDEO) {
            continue;
        }
        const double now = (double)lxAviReadCore_GetStreamTimeUsec(chunk.uiStreamNr, chunk.uiFrameNumber, 0) / 1e6;
        start = start < 0 ? now : start;
        fprintf(stderr, "\r%10.3f s  frame %u%s ", now, chunk.uiFrameNumber, chunk.bKeyFrame ? " key" : "    ");
        if (seconds >= 0 && now - start >= seconds) {
            return LX_OK;
        }
    }
    return result;
}

static UInt32 RunCommands(int count, char** commands)
{
    lxAviRead_SetPositionRangeInfo_t range;
    UInt32 audioTrack = 0, result = LX_OK;
    lxAviReadCore_GetSetPositionRangeInfo(&range);
    for (int i = 0; i < count && (result == LX_OK || result == LX_AVIREAD_END_OF_MEDIA); ++i) {
        double value;
        if (sscanf(commands[i], "audio=%lf", &value) == 1 && value >= 0 && value < LX_AVIREAD_AUDIO_TRACKS) {
            audioTrack = (UInt32)value; /* holds from the next call on */
        } else if (sscanf(commands[i], "seek=%lf", &value) == 1 && value >= 0 && value < 4e6) {
            if (range.uiLastKeyFrameNr == 0xFFFFFFFFu) {
                continue; /* no table */
            }
            const UInt32 landed =
                lxAviReadCore_SeekToTime((UInt32)(value * 1000), (Int32)audioTrack, lxAviRead_SetPosRoundDown);
            printf("seek to %.3f s: key frame at %.3f s\n", value, landed / 1000.0);
            result = LX_OK; /* also behind the end */
        } else if (sscanf(commands[i], "play=%lf", &value) == 1) {
            result = Play(audioTrack, value);
        } else {
            fprintf(stderr, "play: what is %s?\n", commands[i]);
        }
    }
    return result == LX_OK ? Play(audioTrack, -1) : result;
}

int main(int argc, char** argv)
{
    Bool allIndexed;
    if (argc < 2) {
        fprintf(stderr, "usage: play FILE [seek=SECONDS | audio=TRACK | play=SECONDS] ...\n");
        return 2;
    }
    /* Without SA_RESTART the signal also ends a read that waits, on a pipe for example. */
    const struct sigaction action = {.sa_handler = StopOnSignal};
    sigaction(SIGINT, &action, NULL);
    UInt32 result = lxAviReadCore_Open(0, argv[1], 1, TABLE_BYTES, LX_AVIREAD_FOLLOW_FORMAT | 1, &allIndexed);
    if (result == LX_OK) {
        if (lxAviReadCore_ParseIndex(0) != LX_OK) {
            fprintf(stderr, "no index: the file plays, but seeks do nothing\n");
        }
        ListStreams();
        lxAviReadCore_PositionTheFileHandleToPlayData(lxAviReadCore_GetAviInfo());
        result = RunCommands(argc - 2, argv + 2);
    }
    lxAviReadCore_Close();
    printf("\n%lu chunks, %lu bytes: %s\n", delivered, deliveredBytes, lxAviReadCore_ResultText(result));
    return result == LX_AVIREAD_END_OF_MEDIA ? 0 : 1;
}
