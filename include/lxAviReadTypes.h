/** @file
 *  Result codes, limits and records of the AVI reader. Usable from C99 and C++. */
#ifndef LX_AVI_READ_TYPES_H
#define LX_AVI_READ_TYPES_H

#include "lxTypes.h"

/* Some headers, those of X11 among them, define Bool as a macro. It is put aside here, and restored at the end. */
#pragma push_macro("Bool")
#undef Bool

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Result codes ------------------------------------------------------------------------------------------- */

/** Success. */
#define LX_OK 0u
/** The media data has ended. This is not an error; only lxAviReadCore_NextChunk returns it. */
#define LX_AVIREAD_END_OF_MEDIA 1u

/** A read did not get all its bytes within the read attempts that the caller gave to Open. */
#define LX_ERR_AVIREAD_READ 0x88019017u
/** The heap is exhausted, or the memory budget does not hold one leaf of the key-frame table. */
#define LX_ERR_AVIREAD_NO_MEMORY 0x8801901Cu
/** The file could not be opened, or the reader was not allocated. */
#define LX_ERR_AVIREAD_OPEN 0x88019801u
/** Not a RIFF "AVI " file, or a malformed header. */
#define LX_ERR_AVIREAD_NOT_AVI 0x88019802u
/** A seek failed, or the reader cannot reach the next `movi` segment. */
#define LX_ERR_AVIREAD_SEEK 0x88019808u
/** The file ended inside a read. */
#define LX_ERR_AVIREAD_EOF 0x88019809u
/** No usable index, no key frame in it, or no key-frame table. */
#define LX_ERR_AVIREAD_NO_INDEX 0x8801980Au
/** Rejected: subtitle chunk of a track that is not selected. */
#define LX_ERR_AVIREAD_SUBTITLE_SKIPPED 0x8801980Du
/** Rejected: audio chunk of another track, or before the audio sync chunk of a jump. */
#define LX_ERR_AVIREAD_AUDIO_SKIPPED 0x8801980Eu
/** Rejected: video chunk of a further video stream, or before the sync point of a jump. */
#define LX_ERR_AVIREAD_VIDEO_SKIPPED 0x8801980Fu
/** Rejected: the first chunk after a jump to a video key frame is not video. */
#define LX_ERR_AVIREAD_JUMP_NOT_VIDEO 0x88019810u
/** Rejected: the chunk has a stream number above 16, or that of an empty stream slot. Its size cannot be trusted. */
#define LX_ERR_AVIREAD_BAD_STREAM 0x88019811u
/** The abort flag stopped a read. */
#define LX_ERR_AVIREAD_ABORTED 0x88019812u
/** An `ix##` chunk that the video super index names belongs to another stream. */
#define LX_ERR_AVIREAD_INDEX_STREAM 0x88019813u
/** An "AVIX" list does not begin with `LIST` `movi`. */
#define LX_ERR_AVIREAD_AVIX_LIST 0x88019814u
/** A jump target lies outside every `movi` segment. */
#define LX_ERR_AVIREAD_JUMP_RANGE 0x88019815u
/** Rejected: the first video chunk after a jump is not a key frame of the table. */
#define LX_ERR_AVIREAD_NO_KEY_FRAME 0x88019025u

/* ---- Limits ------------------------------------------------------------------------------------------------- */

/** Stream slots of a file; stream numbers are 0 to 16. */
#define LX_AVIREAD_STREAMS 17
/** Audio tracks that are numbered, counted and indexed; track numbers are 0 to 7. */
#define LX_AVIREAD_AUDIO_TRACKS 8
/** Key frames in one leaf of the key-frame table. */
#define LEAF_ARRAY_LENGTH 363
/** Bytes of a stream's format buffer. */
#define LX_AVIREAD_FORMAT_BYTES 40
/** Bytes of a stream's data buffer, and of `lxAviRead_StrdVideo_t`. */
#define LX_AVIREAD_STREAM_DATA_BYTES 2232
/** Bytes of the DRM descriptor that a "dd" chunk carries. */
#define LX_AVIREAD_DRM_BYTES 10

/** Bytes that the reader keeps of a chunk for lxAviReadCore_GetStreamBytes, at most. */
#define LX_AVIREAD_KEPT_BYTES 65536u
/** The four-character code that four characters make, as the fields of the records hold it. */
#define LX_AVIREAD_FOURCC(a, b, c, d)                                                                                  \
    ((UInt32)(UInt8)(a) | (UInt32)(UInt8)(b) << 8 | (UInt32)(UInt8)(c) << 16 | (UInt32)(UInt8)(d) << 24)

/** Bit of the main header's `dwFlags`: the file has an index. Open sets the bit when it has found an index, else clears
 *  it. */
#define LX_AVIREAD_HAS_INDEX 0x10u
/** A bit of Open's `IndxOption`. 1 selects format mode: the reader reads files as the published AVI and OpenDML formats
 *  say. 0 selects default mode: the reader keeps its oddities, for callers that were built on them. The lower seven
 *  bits have the same meaning in both modes. */
#define LX_AVIREAD_FOLLOW_FORMAT 0x80u

/** Stream kinds: `StreamType` of a stream record, `eStreamType` of a chunk record. */
enum {
    LX_AVIREAD_STREAM_NONE = 0,
    LX_AVIREAD_STREAM_AUDIO = 1,
    LX_AVIREAD_STREAM_VIDEO = 2,
    LX_AVIREAD_STREAM_SUBTITLE = 3
};

/** Chunks of a stream's list that lxAviReadCore_GetStreamBytes copies. */
enum {
    LX_AVIREAD_BYTES_STRF = 0, /**< the format, with what follows the fixed record: codec data, palette */
    LX_AVIREAD_BYTES_STRD = 1, /**< data for the decoder */
    LX_AVIREAD_BYTES_STRN = 2, /**< the name of the stream, a text */
    LX_AVIREAD_BYTES_VPRP = 3  /**< properties of the picture: aspect ratio, fields */
};

/** Where the numbers of a lxAviRead_StreamSummary_t come from. */
enum {
    LX_AVIREAD_SUMMARY_NONE = 0,   /**< there are none */
    LX_AVIREAD_SUMMARY_HEADER = 1, /**< from the headers, as the writer has filled them in */
    LX_AVIREAD_SUMMARY_INDEX = 2,  /**< counted in the index by the last successful lxAviReadCore_ParseIndex or Open; an
                                        index that covers a part of the file counts that part */
    LX_AVIREAD_SUMMARY_MEDIA_DATA = 3 /**< counted in the media data by lxAviReadCore_ParseMediaData */
};

/** What a key-frame table was built from. */
enum {
    LX_AVIREAD_TABLE_NONE = 0,            /**< there is no table */
    LX_AVIREAD_TABLE_IDX1 = 1,            /**< the index `idx1` */
    LX_AVIREAD_TABLE_SUPER_INDEX = 2,     /**< OpenDML indexes, which a super index names */
    LX_AVIREAD_TABLE_ONE_LEVEL_INDEX = 3, /**< an OpenDML index in the stream's header */
    LX_AVIREAD_TABLE_MEDIA_DATA = 4       /**< the media data */
};

/** What the bytes of a video frame say about it. */
enum {
    LX_AVIREAD_FRAME_UNKNOWN = 0, /**< nothing: the library has no rule for the codec, or the frame breaks it */
    LX_AVIREAD_FRAME_KEY = 1,     /**< decoding can begin here */
    LX_AVIREAD_FRAME_OTHER = 2    /**< the frame needs others before it, or shows nothing */
};

/** Rounding of a seek: which key frame the reader chooses for a time between two key frames. */
enum {
    lxAviRead_SetPosRoundUp = 0,     /**< the first key frame at or after the time */
    lxAviRead_SetPosRoundDown = 1,   /**< the last key frame at or before the time */
    lxAviRead_SetPosRoundNearest = 2 /**< the nearer of the two; the earlier one when both are equally near */
};

/** Values of `wFormatTag` for which default mode has a timing rule. */
enum {
    LX_AVIREAD_FORMAT_PCM = 0x0001,
    LX_AVIREAD_FORMAT_IEEE_FLOAT = 0x0003,
    LX_AVIREAD_FORMAT_MPEG = 0x0050,
    LX_AVIREAD_FORMAT_MPEG_LAYER3 = 0x0055,
    LX_AVIREAD_FORMAT_AAC = 0x00FF,
    LX_AVIREAD_FORMAT_AC3 = 0x2000
};

/* ---- Records with the same layout as in the file (little-endian) ----------------------------------------------- */

/** Main AVI header, the payload of `avih` (56 bytes). */
typedef struct {
    UInt32 dwMicroSecPerFrame; /**< microseconds per video frame; in default mode all video times come from it */
    UInt32 dwMaxBytesPerSec;
    UInt32 dwPaddingGranularity;
    UInt32 dwFlags;       /**< Open sets or clears the bit `LX_AVIREAD_HAS_INDEX` */
    UInt32 dwTotalFrames; /**< video frames in the first RIFF list */
    UInt32 dwInitialFrames;
    UInt32 dwStreams; /**< number of streams that the writer states */
    UInt32 dwSuggestedBufferSize;
    UInt32 dwWidth;  /**< pixels */
    UInt32 dwHeight; /**< pixels */
    UInt32 dwReserved[4];
} lxAviRead_Avih_t;

/** Stream header, the payload of `strh` (56 bytes). */
typedef struct {
    UInt32 fccType;    /**< "vids", "auds", "txts", or in format mode "iavs": DV with its audio inside, read as video */
    UInt32 fccHandler; /**< four-character code of the codec */
    UInt32 dwFlags;
    UInt16 wPriority;
    UInt16 wLanguage;
    UInt32 dwInitialFrames;
    UInt32 dwScale; /**< with dwRate: dwRate / dwScale samples (frames) per second */
    UInt32 dwRate;
    UInt32 dwStart; /**< start of the stream, in units of dwScale / dwRate seconds */
    UInt32 dwLength;
    UInt32 dwSuggestedBufferSize;
    UInt32 dwQuality;
    UInt32 dwSampleSize; /**< bytes per sample; 0 when samples vary in size */
    Int16 rcFrame[4];    /**< left, top, right, bottom */
} lxAviRead_Strh_t;

/** Video stream format, the payload of `strf` of a "vids" stream (the first 40 bytes). */
typedef struct {
    UInt32 biSize;
    Int32 biWidth;  /**< pixels */
    Int32 biHeight; /**< pixels; negative: the first row is the top row */
    UInt16 biPlanes;
    UInt16 biBitCount;
    UInt32 biCompression; /**< four-character code, or a small number for uncompressed pictures */
    UInt32 biSizeImage;
    Int32 biXPelsPerMeter;
    Int32 biYPelsPerMeter;
    UInt32 biClrUsed;
    UInt32 biClrImportant;
} lxAviRead_StrfVideo_t;

/** Audio stream format, the payload of `strf` of an "auds" stream (the first 32 bytes). */
typedef struct {
    UInt16 wFormatTag; /**< coding, for example `LX_AVIREAD_FORMAT_PCM` */
    UInt16 nChannels;
    UInt32 nSamplesPerSec;
    UInt32 nAvgBytesPerSec;
    UInt16 nBlockAlign; /**< bytes per block */
    UInt16 wBitsPerSample;
    UInt16 cbSize;         /**< bytes of the extension that follows */
    UInt8 uiExtension[14]; /**< the first 14 bytes of the extension, as read */
} lxAviRead_StrfAudio_t;

/** Text subtitle format, the payload of `strf` of a "txts" stream (the first 8 bytes), as read. */
typedef struct {
    UInt8 uiData[8];
} lxAviRead_StrfText_t;

/** Stream data of a video stream, the first 2232 bytes of `strd`, as read. */
typedef struct {
    UInt8 uiData[LX_AVIREAD_STREAM_DATA_BYTES];
} lxAviRead_StrdVideo_t;

/* ---- Records of the calls ------------------------------------------------------------------------------------- */

/** Contents of the OpenDML extended header. */
typedef struct {
    Bool bPresent;        /**< 1 when the header list held an `odml` list */
    UInt32 uiTotalFrames; /**< video frames of the whole file, all RIFF lists; 0 when unknown */
} lxAviRead_OpenDmlInfo_t;

/** One chunk of the media data. The caller owns the record; lxAviReadCore_NextChunk fills it. A field that a call does
 *  not set keeps its old value. */
typedef struct {
    Bool bValid;           /**< 1: deliver the payload; 0: skip it */
    UInt64 uiBytePosition; /**< audio: payload bytes of the track before this payload; a trim increases it */
    UInt32 uiFrameNumber;  /**< video: frame number, from 0 (in default mode from 1 without a table). Audio: number of
                                the chunk in its track, from 0; in format mode, in a stream without a sample size, the
                                number of its first block, and a chunk counts every block that it begins */
    UInt32 uiStreamNr;     /**< stream number decoded from the chunk's identifier */
    UInt32 uiSize;         /**< payload bytes to read now; a trim reduces it; an odd size is not rounded up */
    Bool bKeyFrame;        /**< 1 for a key frame of the table at or after the sync point */
    UInt32 eStreamType;    /**< `LX_AVIREAD_STREAM_…` */
    UInt16 bDrm;           /**< 1 when a "dd" chunk stands before this chunk */
    UInt8 DrmInfo[LX_AVIREAD_DRM_BYTES]; /**< descriptor of the "dd" chunk, unchanged; valid only when bDrm is 1 */
} lxAviRead_ChunkData_t;

/** What a stream holds in all. */
typedef struct {
    UInt64 uiBytes;        /**< payload bytes; 0 when they are not known */
    UInt64 uiDurationUsec; /**< microseconds, without the stream's start; 0 when the duration is not known */
    UInt32 uiChunks;       /**< chunks; 0 when they are not known */
    UInt32 eOrigin;        /**< `LX_AVIREAD_SUMMARY_…` */
} lxAviRead_StreamSummary_t;

/** What the key-frame table holds of the file's key frames. */
typedef struct {
    UInt32 eSource;     /**< `LX_AVIREAD_TABLE_…`: what the table was built from */
    UInt32 uiKeyFrames; /**< key frames of the main video stream that the source names */
    UInt32 uiStored;    /**< entries of the table */
    UInt32 uiStep;      /**< every uiStep-th key frame is stored; more than 1 where the budget has no room for all */
} lxAviRead_TableSummary_t;

/** A chunk of the media data, as lxAviReadCore_WalkMediaData meets it. */
typedef struct {
    UInt64 uiOffset;     /**< of the chunk's header, from the start of the file */
    UInt64 uiDescriptor; /**< of the header of the "dd" chunk that belongs to it; 0: there is none */
    UInt32 uiId;         /**< four-character identifier */
    UInt32 uiStreamNr;   /**< the stream that the identifier names; the file has it */
    UInt32 uiSize;       /**< payload bytes, without a pad byte; the file has them all */
    UInt32 eFrame;       /**< `LX_AVIREAD_FRAME_…`; of a chunk that is no video, `LX_AVIREAD_FRAME_UNKNOWN` */
} lxAviRead_MediaChunk_t;

/** Hears of each chunk of a walk; `pUser` is what the caller of the walk has passed. It must not call the library.
 *  @return 1 to go on, 0 to end the walk */
typedef UInt32 (*lxAviRead_VisitChunk_t)(void* pUser, const lxAviRead_MediaChunk_t* pChunk);

/** Hears how far a long operation is: `uiDone` bytes of `uiAll`. It must not call the library, except for
 *  lxAviReadCore_SetAbortFlag. @return 1 to go on, 0 to end the operation */
typedef UInt32 (*lxAviRead_Progress_t)(void* pUser, UInt64 uiDone, UInt64 uiAll);

/** The range that seeking covers. */
typedef struct {
    UInt32 uiLastKeyFrameNr; /**< frame number of the last key frame; 0xFFFFFFFF when there is no table */
    UInt32 uiStartTimeMsec;  /**< time of the first key frame in milliseconds; 0 without a table */
    UInt32 uiEndTimeMsec;    /**< time of the last key frame in milliseconds; 0 without a table */
} lxAviRead_SetPositionRangeInfo_t;

/** The position of an entry in the key-frame table. */
typedef struct {
    UInt32 leafNr; /**< index into `KeyFramesListAsArray` */
    UInt32 itemNr; /**< index into that leaf's `array` */
    UInt64 Offset; /**< copy of the entry's `videoChunkOffset` */
    Bool valid;    /**< 1 when the record names an entry */
} lxAviReadCore_KeyFramePosition_t;

#ifdef __cplusplus
}
#endif

#pragma pop_macro("Bool")

#endif
