/** @file
 *  The reader state, for the layer above and for diagnostics. Callers may read it, but must not write it.
 *
 *  There is one reader and one state. lxAviReadCore_GetAviInfo returns the address of the state. Pass this address to
 *  the operations that take `pAviInfo`. The reader owns all memory that the state points to, and frees it in
 *  lxAviReadCore_Close at the latest. Modes (default mode, format mode): see lxAviRead.h. */
#ifndef LX_AVI_READ_STATE_H
#define LX_AVI_READ_STATE_H

#include "lxAviReadTypes.h"

#include <stdio.h>

/* Some headers, those of X11 among them, define Bool as a macro. It is put aside here, and restored at the end. */
#pragma push_macro("Bool")
#undef Bool

#ifdef __cplusplus
extern "C" {
#endif

/** One stored video key frame, and for each audio track the chunk with which the track resumes at the key frame. */
typedef struct {
    UInt32 videoFrameNumber; /**< frames of the video stream before this one */
    UInt64 videoChunkOffset; /**< position that the index states for the chunk, or for its "dd" chunk */
    UInt64 timeMsec;         /**< presentation time in milliseconds, without the stream's start */
    UInt32 audioFrameNumber[LX_AVIREAD_AUDIO_TRACKS];  /**< number of the audio chunk; 0xFFFFFFFF: no chunk */
    UInt64 audioChunkOffset[LX_AVIREAD_AUDIO_TRACKS];  /**< position of the chunk; counts from the same place */
    UInt64 audioBytePosition[LX_AVIREAD_AUDIO_TRACKS]; /**< payload bytes of the track before the chunk */
} lxAviReadCore_KeyFrameEntry_t;

/** A block of key frames, with its first and last time and offset. Every leaf before the last used leaf is full. */
typedef struct lxAviReadCore_KeyFrameLeaf_s {
    lxAviReadCore_KeyFrameEntry_t array[LEAF_ARRAY_LENGTH];
    UInt32 arrayLength; /**< entries in use, 0 to LEAF_ARRAY_LENGTH */
    struct lxAviReadCore_KeyFrameLeaf_s* pNextLeaf;
    struct lxAviReadCore_KeyFrameLeaf_s* pPrevLeaf;
    UInt64 StartTimeMsec; /**< timeMsec of the first entry */
    UInt64 EndTimeMsec;   /**< timeMsec of the last entry in use */
    UInt64 StartOffset;   /**< videoChunkOffset of the first entry */
    UInt64 EndOffset;     /**< videoChunkOffset of the last entry in use */
} lxAviReadCore_KeyFrameLeaf_t;

/** One `movi` list of the file. */
typedef struct lxAviReadCore_AvixRiff_s {
    UInt64 moviDataOffset;                      /**< file offset of the first chunk in the list */
    UInt32 moviDataSize;                        /**< bytes of chunks, without the list type */
    struct lxAviReadCore_AvixRiff_s* pNextAvix; /**< following list in the file, or null */
    struct lxAviReadCore_AvixRiff_s* pPrevAvix; /**< preceding list in the file, or null */
} lxAviReadCore_AvixRiff_t;

/** One entry of an OpenDML super index (16 bytes in the file). */
typedef struct {
    UInt64 qwOffset;   /**< file offset of an `ix##` chunk */
    UInt32 dwSize;     /**< size of that chunk */
    UInt32 dwDuration; /**< time covered, in stream ticks */
} lxAviReadCore_AviSuperIndexEntry_t;

/** The fields that every OpenDML index begins with (12 bytes in the file). */
typedef struct {
    UInt16 wLongsPerEntry; /**< size of an entry in 32-bit words */
    UInt8 uiSubIndexType;  /**< 0 standard, 1 field index */
    UInt8 uiIndexType;     /**< 0 index of indexes, 1 index of chunks */
    UInt32 uiEntriesInUse;
    UInt32 dwChunkId; /**< identifier of the indexed chunks; its first two characters are the stream number */
} lxAviReadCore_AviIndxChunkCommonSection_t;

/** The fields of a one-level index that follow the common ones. */
typedef struct {
    UInt64 qwBaseOffset; /**< added to every entry's offset */
    UInt32 dwReserved;
} lxAviReadCore_AviStdFieldIndex_t;

/** The OpenDML index header of a stream. */
typedef struct {
    lxAviReadCore_AviIndxChunkCommonSection_t aviIndxcommonSection;
    union {
        struct {
            UInt32 uiReserved[3];
        } aviSuperIndex;
        lxAviReadCore_AviStdFieldIndex_t aviStdFieldIndex;
    } aviIndxTypeSpecificSection;
    lxAviReadCore_AviSuperIndexEntry_t* pAviSuperIndexEntry; /**< `uiEntriesInUse` entries, or null */
} lxAviReadCore_IndxChunk_t;

/** Counters of an audio track during the walk over the chunks of its index. */
typedef struct {
    UInt32 chunkCount;            /**< chunks seen so far */
    UInt64 lastChunkOffset;       /**< position of the last chunk */
    UInt64 lastChunkBytePosition; /**< payload bytes before the last chunk */
    Bool bHaveChunk;              /**< 1 when there is a last chunk */
    UInt64 totalBytes;            /**< payload bytes of all chunks */
} lxAvi2ReadCore_AudioIndexState_t;

/** One stream. */
typedef struct {
    UInt32 StreamType; /**< `LX_AVIREAD_STREAM_…`; set when the format is read */
    lxAviRead_Strh_t Header;
    void* Format;        /**< `LX_AVIREAD_FORMAT_BYTES` bytes */
    Bool bStrdPresent;   /**< 1 when StreamData holds a `strd` payload */
    Bool bIndexParsed;   /**< 1 when the stream's `indx` chunk filled the key-frame table inside Open */
    UInt32 uiStreamSize; /**< payload bytes of the stream by the index; in default mode a second parse adds them
                                  again */
    Int32 iFrameSize;    /**< audio frame size in bytes, or 0 */
    void* StreamData;    /**< `LX_AVIREAD_STREAM_DATA_BYTES` bytes */
    lxAviReadCore_IndxChunk_t IndxChunk;
} lxAviReadCore_StreamInfo_t;

/** The reader state. All its bytes are 0 before the first lxAviReadCore_Alloc and after lxAviReadCore_Close. */
typedef struct {
    FILE* pFile;              /**< the open file, or null */
    void* pMetaDataBuffer;    /**< 18000 bytes for batches of index records, or null */
    UInt64 moviSize;          /**< bytes of the first `movi` list behind its type */
    UInt32 idx1Size;          /**< bytes of `idx1`; 0: the file has none */
    UInt64 idx1Offset;        /**< file offset of the first `idx1` record */
    UInt64 moviOffset;        /**< file offset of the first chunk of the first `movi` list */
    UInt64 riffSize;          /**< bytes of the first RIFF list behind "AVI " */
    lxAviRead_Avih_t* AviHdr; /**< main header, or null */
    UInt32 uiUnused1;
    Int32 audioStreamNr;                                        /**< first audio stream, or -1 */
    Int32 videoStreamNr;                                        /**< main video stream, or -1 */
    lxAviReadCore_StreamInfo_t* StreamInfo[LX_AVIREAD_STREAMS]; /**< by stream number; null when not allocated */
    UInt64 JumpOffset;          /**< target of the pending jump, counted like CurrentOffset; 0: no jump */
    UInt64 CurrentOffset;       /**< delivery: file offset, or counted from the "movi" code (first chunk at 4) */
    UInt32 AudioTracksCount;    /**< number of audio streams, may exceed 8 */
    UInt32 SubtitleTracksCount; /**< number of subtitle streams, may exceed 8 */
    UInt32 uiUnused2;
    lxAviReadCore_KeyFrameLeaf_t** KeyFramesListAsArray; /**< leaves of the key-frame table, or null */
    UInt32 KeyFramesListAsArrayLength;                   /**< number of leaves; 0: no table */
    UInt32 memoryUsageLimit;                             /**< budget of the key-frame table in bytes */
    UInt32 TrackNumber[LX_AVIREAD_STREAMS];              /**< number of the stream among the streams of its kind; in
                                                 format mode 0xFFFFFFFF for audio streams beyond eight */
    Bool bAudioSync;             /**< 1 until the first audio chunk after a jump has been checked */
    Bool bIndxPresent;           /**< 1 when a stream list held an `indx` chunk */
    Bool bJumpToVideo;           /**< 1 when the first chunk after the jump has to be video */
    UInt8 IndxOption;            /**< as given to Open; its bit `LX_AVIREAD_FOLLOW_FORMAT` selects format mode */
    Bool bDmlhPresent;           /**< 1 when the header list held an OpenDML header */
    UInt32 dmlhTotalFrames;      /**< video frames of the whole file by that header */
    Bool bAbsoluteOffsets;       /**< 1: index offsets and CurrentOffset are file offsets; always 1 in
                                   format mode */
    UInt32 audioSyncLeafNr;      /**< leaf of the entry at which audio and video resume */
    UInt32 audioSyncItemNr;      /**< index of this entry in its leaf */
    UInt32 uiMaxRecordsInBuffer; /**< number of index records in one batch */
    lxAviReadCore_AvixRiff_t* pCurrentAvix; /**< `movi` list that delivery reads from, or null */
    Bool bAbort;                            /**< abort flag, see lxAviReadCore_SetAbortFlag; any thread may set it */
    Bool bAvixPresent;                      /**< 1 when the file has "AVIX" lists */
    UInt32 maxReadAttempts;                 /**< number of `fread` calls that one read may make; 0 counts as 1 */
} lxAviReadCore_AviInfo_t;

#ifdef __cplusplus
}
#endif

#pragma pop_macro("Bool")

#endif
