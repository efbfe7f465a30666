/** @file
 *  The reader state, for the layer above and for diagnostics: read, never written.
 *
 *  There is one reader and one state. Its address comes from lxAviReadCore_GetAviInfo and is handed to the operations
 *  that take `pAviInfo`. Everything the state points to belongs to the reader and lives until lxAviReadCore_Close at
 *  the latest. */
#ifndef LX_AVI_READ_STATE_H
#define LX_AVI_READ_STATE_H

#include "lxAviReadTypes.h"

#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/** One retained video key frame, with the audio chunk that each track resumes with at its time. */
typedef struct {
    UInt32 videoFrameNumber; /**< frames of the video stream before this one */
    UInt64 videoChunkOffset; /**< position of the chunk as the index states it; of the "dd" chunk before it, if any */
    UInt64 timeMsec;         /**< presentation time in milliseconds, the stream's start not included */
    UInt32 audioFrameNumber[LX_AVIREAD_AUDIO_TRACKS];  /**< number of the audio chunk; 0xFFFFFFFF: no such track */
    UInt64 audioChunkOffset[LX_AVIREAD_AUDIO_TRACKS];  /**< its position, in the base of videoChunkOffset */
    UInt64 audioBytePosition[LX_AVIREAD_AUDIO_TRACKS]; /**< payload bytes of the track before it */
} lxAviReadCore_KeyFrameEntry_t;

/** A run of key frames with its bounds. Every leaf before the last one in use is full. */
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
    UInt64 moviDataOffset; /**< file offset of the first chunk in the list */
    UInt32 moviDataSize;   /**< bytes of chunks, without the list type */
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

/** What is known of an audio track while the chunks of its index are walked. */
typedef struct {
    UInt32 chunkCount;            /**< chunks seen so far */
    UInt64 lastChunkOffset;       /**< position of the last one */
    UInt64 lastChunkBytePosition; /**< payload bytes before it */
    Bool bHaveChunk;              /**< 1 when there is a last one */
    UInt64 totalBytes;            /**< payload bytes of all of them */
} lxAvi2ReadCore_AudioIndexState_t;

/** One stream. */
typedef struct {
    UInt32 StreamType;       /**< `LX_AVIREAD_STREAM_…`, known once the format was read */
    lxAviRead_Strh_t Header;
    void* Format;            /**< `LX_AVIREAD_FORMAT_BYTES` bytes */
    Bool bStrdPresent;       /**< 1 when StreamData holds a `strd` payload */
    Bool bIndexParsed;       /**< 1 when the stream's `indx` chunk filled the key-frame table inside Open */
    UInt32 uiStreamSize;     /**< payload bytes of the stream by the index; grows with every parse */
    Int32 iFrameSize;        /**< audio frame size in bytes, or 0 */
    void* StreamData;        /**< `LX_AVIREAD_STREAM_DATA_BYTES` bytes */
    lxAviReadCore_IndxChunk_t IndxChunk;
} lxAviReadCore_StreamInfo_t;

/** The reader state. All zero before the first lxAviReadCore_Alloc and after lxAviReadCore_Close. */
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
    Int32 audioStreamNr;      /**< first audio stream, or -1 */
    Int32 videoStreamNr;      /**< main video stream, or -1 */
    lxAviReadCore_StreamInfo_t* StreamInfo[LX_AVIREAD_STREAMS]; /**< by stream number; null when not allocated */
    UInt64 JumpOffset;        /**< pending jump, in the base of CurrentOffset; 0: none */
    UInt64 CurrentOffset;     /**< position of delivery: absolute, or counted from the "movi" code (first chunk at 4) */
    UInt32 AudioTracksCount;    /**< audio streams seen, may exceed 8 */
    UInt32 SubtitleTracksCount; /**< subtitle streams seen, may exceed 8 */
    UInt32 uiUnused2;
    lxAviReadCore_KeyFrameLeaf_t** KeyFramesListAsArray; /**< leaves of the key-frame table, or null */
    UInt32 KeyFramesListAsArrayLength;                   /**< number of leaves; 0: no table */
    UInt32 memoryUsageLimit;  /**< budget of the key-frame table in bytes */
    UInt32 TrackNumber[LX_AVIREAD_STREAMS]; /**< number of the stream among those of its kind; with
                                                 `LX_AVIREAD_FOLLOW_FORMAT` 0xFFFFFFFF for audio streams beyond eight */
    Bool bAudioSync;          /**< the first audio chunk after a jump is still to be checked */
    Bool bIndxPresent;        /**< some stream list held an `indx` chunk */
    Bool bJumpToVideo;        /**< a jump to a video key frame is pending */
    UInt8 IndxOption;         /**< as given to Open, with or without `LX_AVIREAD_FOLLOW_FORMAT` */
    Bool bDmlhPresent;        /**< the header list held an OpenDML header */
    UInt32 dmlhTotalFrames;   /**< video frames of the whole file by that header */
    Bool bAbsoluteOffsets;    /**< 1: index offsets and CurrentOffset are file offsets; always with
                                   `LX_AVIREAD_FOLLOW_FORMAT` */
    UInt32 audioSyncLeafNr;   /**< entry at which audio and video resume: its leaf */
    UInt32 audioSyncItemNr;   /**< and its item */
    UInt32 uiMaxRecordsInBuffer; /**< index records that one batch holds */
    lxAviReadCore_AvixRiff_t* pCurrentAvix; /**< `movi` list being read, or null */
    Bool bAbort;              /**< 1 makes blocking reads give up; written by any thread */
    Bool bAvixPresent;        /**< the file has "AVIX" lists */
    UInt32 maxReadAttempts;   /**< `fread` calls that one read may make; 0 counts as 1 */
} lxAviReadCore_AviInfo_t;

#ifdef __cplusplus
}
#endif

#endif
