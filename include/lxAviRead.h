/** @file
 *  AVI reader: opens an AVI or OpenDML file, indexes its key frames within a memory budget, hands out the chunks of
 *  the media data one at a time, seeks, steps from key frame to key frame, and resumes audio and video together.
 *
 *  One file is open at a time; all state is the library's. The calls in their usual order:
 *  @code
 *  Bool allIndexed;
 *  if (lxAviReadCore_Open(0, "film.avi", 3, 1u << 20, 1, &allIndexed) == LX_OK) {
 *      lxAviReadCore_ParseIndex(0);                                   // optional: needed for seeking only
 *      lxAviReadCore_PositionTheFileHandleToPlayData(lxAviReadCore_GetAviInfo());
 *      lxAviRead_ChunkData_t chunk;
 *      Bool jumped;
 *      UInt32 result;
 *      while ((result = lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped)) != LX_AVIREAD_END_OF_MEDIA) {
 *          ... // LX_OK: read chunk.uiSize bytes with lxAviReadCore_GetChunk; a rejection: skip them; else: stop
 *      }
 *  }
 *  lxAviReadCore_Close();
 *  @endcode
 *
 *  Results: every operation returns a code of lxAviReadTypes.h, `LX_OK` = 0, unless it says otherwise.
 *  Threads: none inside. Serialise all calls, except lxAviReadCore_SetAbortFlag, which any thread may make.
 *  Memory: the reader owns what it allocates until lxAviReadCore_Close; records and buffers passed in are the caller's.
 *  Null pointers where a result is to be stored are reported as a failed assertion; nothing is stored, the result is 0. */
#ifndef LX_AVI_READ_H
#define LX_AVI_READ_H

#include "lxAviReadState.h"
#include "lxAviReadTypes.h"
#include "lxDbg.h"

#define LX_AVIREAD_VERSION_MAJOR 0
#define LX_AVIREAD_VERSION_MINOR 1
#define LX_AVIREAD_VERSION_PATCH 0

#if defined(__GNUC__)
#define LX_AVIREAD_API __attribute__((visibility("default")))
#else
#define LX_AVIREAD_API
#endif

/* Inside the project every result has to be looked at; callers decide for themselves. */
#if defined(LX_AVIREAD_NODISCARD_RESULTS) && defined(__cplusplus)
#define LX_AVIREAD_RESULT [[nodiscard]] LX_AVIREAD_API UInt32
#else
#define LX_AVIREAD_RESULT LX_AVIREAD_API UInt32
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Globals shared with the layer above ----------------------------------------------------------------------- */

/** Owned by the layer above; the reader neither reads nor writes it. */
extern LX_AVIREAD_API UInt32 videoTrackNumber;
/** Video frames delivered since the start or the last jump. */
extern LX_AVIREAD_API UInt32 lxalAviRead_VideoFrame;
/** Chunks counted per audio track, whether the track is selected or not. */
extern LX_AVIREAD_API UInt32 lxalAviRead_AudioFrame[LX_AVIREAD_AUDIO_TRACKS];
/** 1 while seeking in the file works; 0 before the first Reset or Open and as soon as a seek has failed. */
extern LX_AVIREAD_API Bool lxalAviRead_FileSeekPossible;
/** Debug unit "lxAviRead", registered by the first Open. */
extern LX_AVIREAD_API lxDbg_Unit_t glxalAviRead_debug_unit;

/* ---- Lifecycle --------------------------------------------------------------------------------------------------- */

/** Allocates what the reader needs before the first Open (Open calls it, too). Calling it again is harmless.
 *  @param instance the caller's handle; not used
 *  @return LX_OK or LX_ERR_AVIREAD_NO_MEMORY; what was allocated so far stays until Close */
LX_AVIREAD_RESULT lxAviReadCore_Alloc(UInt32 instance);

/** Opens a file and parses its headers up to the media data.
 *  @param instance         the caller's handle; passed through
 *  @param path             file path; "" parses the file that is already open again, from its current position
 *  @param maxReadAttempts  `fread` calls that one read may make; 0 counts as 1. Above 1, buffers handed to the reader
 *                          need four times their size (see lxAviReadCore_FileRead)
 *  @param memoryUsageLimit budget of the key-frame table in bytes
 *  @param IndxOption       lower seven bits 1: a one-level OpenDML index fills the key-frame table at once;
 *                          | `LX_AVIREAD_FOLLOW_FORMAT`: files are read as the published formats say (doc/quirks.md)
 *  @param pAllIndexed      out: 1 when the main video and the first audio stream were indexed that way, else 0
 *  @return LX_OK; LX_ERR_AVIREAD_OPEN, _NOT_AVI, _EOF (no `movi` list), _READ, _ABORTED, _NO_MEMORY, or a result of
 *          the extension lists (_AVIX_LIST, _SEEK). After a failure no stream is known, and the next Open, Reset or
 *          Close closes the file. */
LX_AVIREAD_RESULT lxAviReadCore_Open(UInt32 instance, const char* path, UInt32 maxReadAttempts,
                                     UInt32 memoryUsageLimit, UInt8 IndxOption, Bool* pAllIndexed);

/** Moves the file to the first chunk of the media data: the last step before delivery.
 *  @return LX_OK, or LX_ERR_AVIREAD_SEEK; chunks can then still be delivered from where the file stands */
LX_AVIREAD_RESULT lxAviReadCore_PositionTheFileHandleToPlayData(lxAviReadCore_AviInfo_t* pAviInfo);

/** Prepares delivery from the first chunk again: position, counters and sync state; a pending jump stays. */
LX_AVIREAD_API void lxAviReadCore_RewindToStart(void);

/** Closes the file and forgets everything about it; the allocated records stay. The abort flag stays as it is.
 *  @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_Reset(void);

/** Closes the file and releases everything; the whole state is zero afterwards. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_DeAlloc(void);

/** The same as lxAviReadCore_DeAlloc. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_Close(void);

/** Releases the stream records, the main header and the batch buffer, and clears the counters (part of Close). */
LX_AVIREAD_API void lxAviReadCore_FreeAllocatedMemory(lxAviReadCore_AviInfo_t* pAviInfo);

/** Sets (1) or clears (0) the abort flag. While it is set, a read that comes back short gives LX_ERR_AVIREAD_ABORTED,
 *  and so does an index parse. Any thread may call it. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_SetAbortFlag(Bool bAbort);

/** @return the abort flag */
LX_AVIREAD_API Bool lxAviReadCore_GetAbortFlag(void);

/** @return the address of the one reader state, for the operations that take `pAviInfo` */
LX_AVIREAD_API lxAviReadCore_AviInfo_t* lxAviReadCore_GetAviInfo(void);

/** Stores the open stream (null without a file) in `*ppFile`; it stays the reader's. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_GetFile(FILE** ppFile);

/** Takes the place of a print function where a build leaves logging out. @return 1 */
LX_AVIREAD_API int NOPRINT(const char* format, ...);

/* ---- File access --------------------------------------------------------------------------------------------------- */

/** Reads exactly `size` bytes. After a short `fread` that is not the end of the file, the next one continues at the
 *  buffer address advanced by FOUR TIMES the bytes received: give a buffer of four times the size, or let Open allow
 *  one read attempt only. With `LX_AVIREAD_FOLLOW_FORMAT` it continues where it stopped, and `size` bytes are enough.
 *  @return LX_OK; LX_ERR_AVIREAD_EOF (the file ended), _ABORTED (abort flag after a short read), _READ (attempts used
 *          up, or no file) */
LX_AVIREAD_RESULT lxAviReadCore_FileRead(lxAviReadCore_AviInfo_t* pAviInfo, UInt32* buffer, UInt32 size);

/** The read of the OpenDML index code: as lxAviReadCore_FileRead, but it never looks at the abort flag. */
LX_AVIREAD_RESULT lxAvi2ReadCore_FileRead(lxAviReadCore_AviInfo_t* pAviInfo, UInt32* buffer, UInt32 size);

/** Seeks. Only the low 32 bits of `offset` count, as a signed number: positions from 2 GiB on cannot be reached. With
 *  `LX_AVIREAD_FOLLOW_FORMAT` all 64 bits count, as a signed number.
 *  @param origin 0 from the start, 1 from the current position
 *  @return 1 on success, else 0 */
LX_AVIREAD_API Bool lxAviReadCore_FileSeek(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 offset, Int32 origin);

/** @return 1 when a read has met the end of the file */
LX_AVIREAD_API Bool lxAviReadCore_FileEof(lxAviReadCore_AviInfo_t* pAviInfo);

/** The same as lxAviReadCore_FileEof. */
LX_AVIREAD_API Bool lxAvi2ReadCore_FileEof(lxAviReadCore_AviInfo_t* pAviInfo);

/** Stores the absolute file offset of delivery in `*pPosition`. */
LX_AVIREAD_API void lxAviReadCore_GetFilePosition(UInt64* pPosition);

/** Adds `count` bytes to the position of delivery: for payload that the caller has read or skipped by itself. */
LX_AVIREAD_API void lxAviReadCore_IncreaseOffset(UInt32 count);

/** Consumes `size` bytes of the file by reading them (it never seeks), without counting them.
 *  @return LX_OK or the code of the read that failed */
LX_AVIREAD_RESULT lxAviReadCore_RemoveChunk(UInt32 size);

/* ---- Header access ------------------------------------------------------------------------------------------------- */

/** Copies the main AVI header to `*pAvih`; leaves it untouched when there is none. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_GetAvihData(lxAviRead_Avih_t* pAvih);

/** Fills `*pOpenDmlInfo`. */
LX_AVIREAD_API void lxAviReadCore_GetOpenDmlInfo(lxAviRead_OpenDmlInfo_t* pOpenDmlInfo);

/** Copies the header of stream `streamNr` to `*pStrh` and its payload bytes by the index to `*pSize`; leaves both
 *  untouched when there is no such stream record. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_GetStrhData(UInt32 streamNr, lxAviRead_Strh_t* pStrh, UInt32* pSize);

/** Copies the format of stream `streamNr` to `pOut`: 40 bytes (lxAviRead_StrfVideo_t) for a video stream, 32 bytes
 *  (lxAviRead_StrfAudio_t) for an audio stream, nothing for any other. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_GetStrfData(UInt32 streamNr, void* pOut);

/** Copies the stream data of video stream `streamNr`, 2232 bytes, to `pOut` (whose first four bytes are cleared in
 *  any case; all of it when there is no stream data).
 *  @param pPresent out: 1 when stream data was copied, else 0
 *  @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_GetStrdData(UInt32 streamNr, void* pOut, Bool* pPresent);

/** @return 1 when the audio stream is of variable bit rate: fewer than 1000 samples (chunks) per second, or a sample
 *  size and a block size of 0 */
LX_AVIREAD_API Bool lxAviReadCore_TrackIsVBR(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streamNr);

/* ---- Header parsers (Open calls them; the file stands behind the chunk's header) ---------------------------------- */

/** Parses the header list; `size` counts from its "hdrl" code. */
LX_AVIREAD_RESULT lxAviReadCore_ParseListHdrl(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size);
/** Parses `avih`; LX_ERR_AVIREAD_NOT_AVI unless `size` is 56. */
LX_AVIREAD_RESULT lxAviReadCore_ParseAviHeader(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size);
/** Parses `dmlh`. */
LX_AVIREAD_RESULT lxAviReadCore_ParseListdmlh(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size);
/** Parses one stream list; `size` counts from behind its "strl" code, `StreamNr` is 0 to 16. */
LX_AVIREAD_RESULT lxAviReadCore_ParseListStrl(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size,
                                              UInt32 StreamNr);
/** Parses `strh` of stream `StreamID`. */
LX_AVIREAD_RESULT lxAviReadCore_ParseListStrh(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size, UInt32 StreamID);
/** Stores a video format: 40 bytes, the rest of the chunk is skipped. */
LX_AVIREAD_RESULT lxAviReadCore_ParseListStrf_video(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size,
                                                    lxAviReadCore_StreamInfo_t* pStrInfo);
/** Stores an audio format, 32 bytes, and computes the audio frame size. */
LX_AVIREAD_RESULT lxAviReadCore_ParseListStrf_audio(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size,
                                                    lxAviReadCore_StreamInfo_t* pStrInfo);
/** Stores a text subtitle format, 8 bytes. */
LX_AVIREAD_RESULT lxAviReadCore_ParseListStrf_textSubtitle(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size,
                                                           lxAviReadCore_StreamInfo_t* pStrInfo);
/** Stores stream data of a video stream, 2232 bytes; a shorter chunk is skipped. */
LX_AVIREAD_RESULT lxAviReadCore_ParseListStrd_video(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size,
                                                    lxAviReadCore_StreamInfo_t* pStrInfo);
/** Parses the OpenDML index chunk of a stream. */
LX_AVIREAD_RESULT lxAvi2ReadCore_ParseChunkIndx(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size,
                                                lxAviReadCore_StreamInfo_t* pStrInfo, UInt8 IndxOption);
/** Finds the "AVIX" lists behind the first RIFF list and chains their `movi` lists to the first one.
 *  @return LX_OK, LX_ERR_AVIREAD_AVIX_LIST, _NO_MEMORY, _SEEK, _EOF, _READ or _ABORTED */
LX_AVIREAD_RESULT lxAviReadCore_ConstructAvixInfo(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo);

/* ---- The index and the key-frame table -------------------------------------------------------------------------- */

/** Builds the key-frame table: from the OpenDML super indexes when a stream list held an `indx` chunk, else from `idx1`.
 *  Call it after Open. A table that is there is released first; one that Open has built from a one-level OpenDML index
 *  is not rebuilt, so ask lxAviReadCore_GetSetPositionRangeInfo before. The file is left anywhere: position it with
 *  lxAviReadCore_PositionTheFileHandleToPlayData afterwards.
 *  With `LX_AVIREAD_FOLLOW_FORMAT` every kind of index is built (again); of two indexes the one that covers more frames
 *  is taken, the other one where that is unusable; and an index that ends early gives a table of what it covers.
 *  @return LX_OK; LX_ERR_AVIREAD_NO_INDEX (no index, no key frame in it, no video stream), _NO_MEMORY (the budget is
 *          below one leaf, or the heap is exhausted), _SEEK, _EOF, _READ, _ABORTED, _INDEX_STREAM. The file plays from
 *          start to end without a table, too. */
LX_AVIREAD_RESULT lxAviReadCore_ParseIndex(UInt32 instance);

/** Sizes the table against `memoryUsageLimit`.
 *  @param numberOfKeyFrames in: key frames of the file; out: key frames that will be stored
 *  @param neededLeafs       out: leaves for those
 *  @param neededMemory      out: bytes of the leaves, without the array of pointers
 *  @param SkipKey           out: every SkipKey-th key frame is stored
 *  @return LX_OK, LX_ERR_AVIREAD_NO_INDEX (no key frame), LX_ERR_AVIREAD_NO_MEMORY (no room for one leaf) */
LX_AVIREAD_RESULT lxAviReadCore_CalcLeafsNeededAndSkipValue(lxAviReadCore_AviInfo_t* pAviInfo,
                                                            UInt32* numberOfKeyFrames, UInt32* neededLeafs,
                                                            UInt32* neededMemory, UInt32* SkipKey);

/** Walks over the table for diagnostics. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_PrintIndex(void);

/** Builds the table from `idx1` (part of lxAviReadCore_ParseIndex). */
LX_AVIREAD_RESULT lxAviReadCore_ParseIdx1Chunk(UInt32 instance);
/** First pass over `idx1`: decides the base of the offsets, counts key frames (`*numberOfKeyFrames` is 0 on entry),
 *  and sizes the table. The file stands at the first record; `uiSize` is in bytes. */
LX_AVIREAD_RESULT lxAviReadCore_PreParseIdx1Chunk(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiSize, UInt32* SkipKey,
                                                  UInt32* neededLeafs, UInt32* neededMemory,
                                                  UInt32* numberOfKeyFrames);
/** Second pass: allocates the table and stores the key frames. */
LX_AVIREAD_RESULT lxAviReadCore_ParseIndex_Video(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiSize,
                                                 UInt32 SkipKey, UInt32 neededLeafs);
/** Third pass: gives every stored key frame the audio chunks that play at its time. */
LX_AVIREAD_RESULT lxAviReadCore_ParseIndex_Audio(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiSize, UInt32 neededLeafs);
/** Both in a single pass, one record at a time, with the audio chunks by index order and not by time. Needs the batch
 *  buffer, as lxAviReadCore_ParseIndex_Video does. */
LX_AVIREAD_RESULT lxAviReadCore_ParseVideoAudioIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiSize,
                                                     UInt32 SkipKey, UInt32 neededLeafs);

/** Builds the table from the OpenDML super indexes (part of lxAviReadCore_ParseIndex). */
LX_AVIREAD_RESULT lxAvi2ReadCore_ParseIndxIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo);
/** Counts the key frames of the video super index and sizes the table. */
LX_AVIREAD_RESULT lxAvi2ReadCore_PreParseVideoIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32* skipKey,
                                                    UInt32* neededLeafs, UInt32* neededMemory,
                                                    UInt32* numberOfKeyFrames);
/** Counts the key frames in `uiNoOfEntries` standard records (8 bytes) from where the file stands. */
LX_AVIREAD_RESULT lxAvi2ReadCore_GetTotalKFramesInStdIndxChunk(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiNoOfEntries,
                                                               UInt32* pCount);
/** Counts the key frames in `uiNoOfEntries` field records (12 bytes) from where the file stands. */
LX_AVIREAD_RESULT lxAvi2ReadCore_GetTotalKFramesInFieldIndxChunk(lxAviReadCore_AviInfo_t* pAviInfo,
                                                                 UInt32 uiNoOfEntries, UInt32* pCount);
/** Allocates a table of `neededLeafs` empty leaves. */
LX_AVIREAD_RESULT lxAvi2ReadCore_CreateKFTable(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 neededLeafs);
/** Fills the table from the one-level index that follows. */
LX_AVIREAD_RESULT lxAvi2ReadCore_ParseVideoStdIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size,
                                                    const lxAviReadCore_AviIndxChunkCommonSection_t* pCommon,
                                                    UInt64 qwBaseOffset, UInt32 dwReserved, UInt32 skipKey,
                                                    UInt32 neededLeafs);
/** Fills the table from the video super index. */
LX_AVIREAD_RESULT lxAvi2ReadCore_ParseVideoSuperIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo,
                                                      UInt32 skipKey, UInt32 neededLeafs);
/** Stores the key frames of a run of `uiNoOfEntries` records; leaf, frame number, skip counter and leaf number go on
 *  from run to run. */
LX_AVIREAD_RESULT lxAvi2ReadCore_FillVideoKFramesInKFTable(lxAviReadCore_AviInfo_t* pAviInfo,
                                                           lxAviReadCore_KeyFrameLeaf_t** ppCurrentLeaf,
                                                           UInt32* pFrameNumber, UInt32 uiNoOfEntries,
                                                           UInt8 uiSubIndexType, UInt32 dwChunkId, UInt64 qwBaseOffset,
                                                           UInt32 skipKey, UInt32* pSkipCounter, UInt32* pLeafNumber);
/** Places the audio of the one-level index that follows. */
LX_AVIREAD_RESULT lxAvi2ReadCore_ParseAudioStdIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo,
                                                    const lxAviReadCore_AviIndxChunkCommonSection_t* pCommon,
                                                    UInt64 qwBaseOffset, UInt32 dwReserved);
/** Places the audio of every audio stream's super index. */
LX_AVIREAD_RESULT lxAvi2ReadCore_ParseAudioSuperIndex(lxAviReadCore_AviInfo_t* pAviInfo);
/** Places the audio of a run of `uiNoOfEntries` records; state, cursor and the cursor's time (milliseconds) go on from
 *  run to run. */
LX_AVIREAD_RESULT lxAvi2ReadCore_FillAudioInfoInKFTable(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiNoOfEntries,
                                                        UInt8 uiSubIndexType, UInt32 dwChunkId, UInt64 qwBaseOffset,
                                                        UInt32 audioTrackNumber,
                                                        lxAvi2ReadCore_AudioIndexState_t* pState,
                                                        lxAviReadCore_KeyFramePosition_t* pCursor,
                                                        UInt32* pCursorTimeMsec);

/* ---- Delivery --------------------------------------------------------------------------------------------------- */

/** Reads the header of the next media chunk, executes a pending jump first, and decides whether the chunk is to be
 *  delivered. On LX_OK read exactly `uiSize` bytes with lxAviReadCore_GetChunk (or lxAviReadCore_RemoveChunk).
 *  After a rejection the payload is still unread: skip it with lxAviReadCore_RemoveChunk(uiSize) and count it with
 *  lxAviReadCore_IncreaseOffset(uiSize), except after LX_ERR_AVIREAD_BAD_STREAM, whose size cannot be trusted;
 *  a caller that does not skip leaves it to a search byte by byte, which payload can fool. Never allocate `uiSize`
 *  bytes on the file's word.
 *  @param chunkData           filled; `bValid` is 1 only together with LX_OK
 *  @param audioTrackNumber    selected audio track, 0 to 7; any other value (an assertion) selects none
 *  @param subtitleTrackNumber selected subtitle track
 *  @param pJumped             out: 1 when this call executed a pending jump, else 0
 *  @return LX_OK; LX_AVIREAD_END_OF_MEDIA; a rejection: LX_ERR_AVIREAD_SUBTITLE_SKIPPED, _AUDIO_SKIPPED,
 *          _VIDEO_SKIPPED, _JUMP_NOT_VIDEO, _BAD_STREAM, _NO_KEY_FRAME; or LX_ERR_AVIREAD_READ (also at the end of
 *          the file and on abort), _SEEK (next segment out of reach), _JUMP_RANGE */
LX_AVIREAD_RESULT lxAviReadCore_NextChunk(lxAviRead_ChunkData_t* chunkData, UInt32 audioTrackNumber,
                                          UInt32 subtitleTrackNumber, Bool* pJumped);

/** Reads `size` payload bytes of the current chunk; lxAviReadCore_FileRead under its own name, with its rule for the
 *  size of the buffer. */
LX_AVIREAD_RESULT lxAviReadCore_GetChunk(UInt32* buffer, UInt32 size);

/** Nothing to do: pass another track to the next lxAviReadCore_NextChunk; all tracks are counted all the time.
 *  @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_SwitchAudioTrack(void);

/** Presentation time in milliseconds of a position in a stream, the stream's start included.
 *  @param streamNr     0 to 16
 *  @param frameNumber  video frame, or audio chunk for tracks that are timed by their chunks
 *  @param bytePosition payload bytes before the position, for tracks that are timed by their bytes
 *  @return milliseconds, saturated at 0xFFFFFFFF; 0 for an unknown stream or audio coding */
LX_AVIREAD_API UInt32 lxAviReadCore_GetStreamTime(UInt32 streamNr, UInt32 frameNumber, UInt64 bytePosition);

/** Decides about a video chunk (part of lxAviReadCore_NextChunk). `jumped`: this call executed a jump. */
LX_AVIREAD_RESULT lxAviReadCore_ProcessNextVideoChunk(lxAviReadCore_AviInfo_t* pAviInfo,
                                                      lxAviRead_ChunkData_t* chunkData, Bool jumped);
/** Decides about an audio chunk and counts it (part of lxAviReadCore_NextChunk). */
LX_AVIREAD_RESULT lxAviReadCore_ProcessNextAudioChunk(lxAviReadCore_AviInfo_t* pAviInfo,
                                                      lxAviRead_ChunkData_t* chunkData, UInt32 audioTrackNumber);
/** Decides about a subtitle chunk (part of lxAviReadCore_NextChunk). */
LX_AVIREAD_RESULT lxAviReadCore_ProcessNextSubtitleChunk(lxAviReadCore_AviInfo_t* pAviInfo,
                                                         lxAviRead_ChunkData_t* chunkData, UInt32 subtitleTrackNumber);

/* ---- Seeking and key-frame steps ------------------------------------------------------------------------------------ */

/* These only arm a jump; the next lxAviReadCore_NextChunk executes it. They need a key-frame table: without one a failed
 * assertion is reported, nothing is armed, and times are 0. `audioTrackNumber` is the track that plays, or negative for
 * none; one above 7 is reported, and taken for none. */

/** Arms a jump to the key frame for a time.
 *  @param timeMsec        milliseconds
 *  @param roundPreference `lxAviRead_SetPosRoundUp`, `…Down` or `…Nearest`
 *  @return stream time in milliseconds of the key frame that was chosen */
LX_AVIREAD_API UInt32 lxAviReadCore_SeekToTime(UInt32 timeMsec, Int32 audioTrackNumber, UInt32 roundPreference);

/** Arms a jump to an entry of the table: to its audio chunk where that lies before the key frame, else to the key
 *  frame. An `Offset` of 0 in `*keyFrame` stands for the entry's own. */
LX_AVIREAD_API void lxAviReadCore_SetPointerOnKF(const lxAviReadCore_KeyFramePosition_t* keyFrame,
                                                 Int32 audioTrackNumber);

/** Fills the range that seeking covers. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_GetSetPositionRangeInfo(lxAviRead_SetPositionRangeInfo_t* pRange);

/** Looks up the key frame whose chunk begins at `offset` (the low 32 bits, in the base of the index).
 *  @param result out: `valid` 1 and the position when there is one, else `valid` 0
 *  @return LX_OK, or LX_ERR_AVIREAD_NO_INDEX without a table */
LX_AVIREAD_RESULT lxAviReadCore_GetChunkInfo(lxAviReadCore_KeyFramePosition_t* result, UInt32 offset);

/** Arms a jump back to the key frame played last; nothing happens when none was. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_SetOnKeyFrame_AudioAndVideo(Int32 audioTrackNumber);

/** Arms a jump `count` key frames forward, or back when negative, from the key frame played last. Off either end lies
 *  the first key frame. 0 arms nothing. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_JumpInKeyFrames(Int32 count, Int32 audioTrackNumber);

/** Arms a jump to the next key frame that delivery has not passed yet.
 *  @param pFound out: 1, or 0 when there is no next key frame and the current one was armed again
 *  @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_SetJumpToNextKeyFrame(Bool* pFound, Int32 audioTrackNumber);

/** Arms a jump exactly one key frame forward, for trick play: counters are not loaded. `pFound` as above.
 *  @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(Bool* pFound, Int32 audioTrackNumber);

/** Arms a jump one key frame back, for trick play: counters are not loaded. `pFound` likewise. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_SetJumpToPrevKeyFrame(Bool* pFound, Int32 audioTrackNumber);

#ifdef __cplusplus
}
#endif

#endif
