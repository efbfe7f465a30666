/** @file
 *  AVI reader: opens an AVI or OpenDML file, indexes its key frames within a memory budget, delivers the chunks of the
 *  media data one at a time, seeks, steps from key frame to key frame, and resumes audio and video together.
 *
 *  The library has two modes of reading. In default mode the reader keeps the oddities that older callers were built on
 *  (doc/quirks.md). In format mode it reads files as the published AVI and OpenDML formats say. The bit
 *  `LX_AVIREAD_FOLLOW_FORMAT` of Open's `IndxOption` selects format mode. New players use format mode. A function whose
 *  description names no mode does the same in both.
 *
 *  Only one file can be open at a time; the library holds all state. doc/INTEGRATION.md tells the rules of calling, and
 *  examples/ has whole programs. This one plays a file:
 *  @code
 *  static UInt32 payload[1u << 20];                                   // 4 MiB; a damaged file can state any size
 *
 *  UInt32 PlayFile(const char* path)
 *  {
 *      Bool allIndexed, jumped;
 *      UInt32 result = lxAviReadCore_Open(0, path, 1, 256 * 1024, LX_AVIREAD_FOLLOW_FORMAT | 1, &allIndexed);
 *      if (result == LX_OK) {
 *          lxAviReadCore_ParseIndex(0);                               // optional: seeks and steps need it
 *          lxAviReadCore_PositionTheFileHandleToPlayData(lxAviReadCore_GetAviInfo());
 *      }
 *      while (result == LX_OK) {
 *          lxAviRead_ChunkData_t chunk;
 *          result = lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped);   // audio track 0, subtitle track 0
 *          if (result == LX_OK && chunk.uiSize <= sizeof payload) {
 *              result = lxAviReadCore_GetChunk(payload, chunk.uiSize);
 *              // chunk.uiSize bytes for the decoder of stream chunk.uiStreamNr
 *          } else if (result == LX_OK) {
 *              result = lxAviReadCore_RemoveChunk(chunk.uiSize);
 *          } else if (result == LX_ERR_AVIREAD_AUDIO_SKIPPED || result == LX_ERR_AVIREAD_VIDEO_SKIPPED ||
 *                     result == LX_ERR_AVIREAD_SUBTITLE_SKIPPED) {    // rejected: the caller skips and counts it
 *              lxAviReadCore_IncreaseOffset(chunk.uiSize);
 *              result = lxAviReadCore_RemoveChunk(chunk.uiSize);
 *          } else if (result == LX_ERR_AVIREAD_BAD_STREAM) {
 *              result = LX_OK;                                        // the next call searches on
 *          }
 *      }
 *      lxAviReadCore_Close();
 *      return result;                                                 // LX_AVIREAD_END_OF_MEDIA: all was played
 *  }
 *  @endcode
 *
 *  Results: every operation returns a code of lxAviReadTypes.h, `LX_OK` = 0, unless it says otherwise.
 *  Threads: the library creates none. Only one thread at a time may call the library; only lxAviReadCore_SetAbortFlag
 *  may be called from any thread at any time.
 *  Memory: the reader owns the memory that it allocates, until lxAviReadCore_Close. The caller owns the records and
 *  buffers that it passes in.
 *  Null pointers: when the pointer for a result is null, the reader reports a failed assertion, stores nothing and
 *  returns 0. */
#ifndef LX_AVI_READ_H
#define LX_AVI_READ_H

#include "lxAviReadState.h"
#include "lxAviReadTypes.h"
#include "lxDbg.h"

#define LX_AVIREAD_VERSION_MAJOR 0
#define LX_AVIREAD_VERSION_MINOR 2
#define LX_AVIREAD_VERSION_PATCH 0

#if defined(__GNUC__)
#define LX_AVIREAD_API __attribute__((visibility("default")))
#else
#define LX_AVIREAD_API
#endif

/* Inside the project the compiler warns about every result that is not used. For callers it does not. */
#if defined(LX_AVIREAD_NODISCARD_RESULTS) && defined(__cplusplus)
#define LX_AVIREAD_RESULT [[nodiscard]] LX_AVIREAD_API UInt32
#else
#define LX_AVIREAD_RESULT LX_AVIREAD_API UInt32
#endif

/* Some headers, those of X11 among them, define Bool as a macro. It is put aside here, and restored at the end. */
#pragma push_macro("Bool")
#undef Bool

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Globals shared with the layer above ------------------------------------------------------------------------ */

/** Belongs to the layer above. The reader neither reads nor writes it. */
extern LX_AVIREAD_API UInt32 videoTrackNumber;
/** Video frames delivered since the start or the last jump. */
extern LX_AVIREAD_API UInt32 lxalAviRead_VideoFrame;
/** Counted per audio track: chunks, or in format mode what the numbers of chunks count (`uiFrameNumber` of
 *  lxAviRead_ChunkData_t). The reader also counts the chunks of tracks that are not selected. In format mode the value
 *  is exact for the selected track, once one of its chunks was delivered. */
extern LX_AVIREAD_API UInt32 lxalAviRead_AudioFrame[LX_AVIREAD_AUDIO_TRACKS];
/** 1 while seeking in the file works. 0 before the first Reset or Open, and after a failed seek. */
extern LX_AVIREAD_API Bool lxalAviRead_FileSeekPossible;
/** Debug unit "lxAviRead", registered by the first Open. */
extern LX_AVIREAD_API lxDbg_Unit_t glxalAviRead_debug_unit;

/** @return one sentence in English about a result code; about any other number, that it is unknown. Never null. The
 *  text belongs to the library. */
LX_AVIREAD_API const char* lxAviReadCore_ResultText(UInt32 result);

/* ---- Lifecycle -------------------------------------------------------------------------------------------------- */

/** Allocates the stream records and the main header. Open calls it, too. A second call changes nothing.
 *  @param instance the caller's handle; not used
 *  @return LX_OK or LX_ERR_AVIREAD_NO_MEMORY; the blocks that were allocated before the failure stay until Close */
LX_AVIREAD_RESULT lxAviReadCore_Alloc(UInt32 instance);

/** Opens a file and parses its headers up to the media data.
 *
 *  In default mode Open steps through the file as older callers expect, and finds "AVIX" lists only where the OpenDML
 *  header promises them. In format mode it goes by the sizes of the chunks, finds every "AVIX" list, and keeps codec
 *  data and texts (lxAviReadCore_GetStreamBytes).
 *  @param instance         the caller's handle; passed through
 *  @param path             file path; "" parses the already open file again, from its current position
 *  @param maxReadAttempts  number of `fread` calls that one read may make; 0 counts as 1. When it is above 1, in
 *                          default mode a buffer passed to the reader needs four times its size (see
 *                          lxAviReadCore_FileRead)
 *  @param memoryUsageLimit budget of the key-frame table in bytes
 *  @param IndxOption       lower seven bits 1: Open fills the key-frame table from a one-level OpenDML index;
 *                          bit `LX_AVIREAD_FOLLOW_FORMAT`: 1 for format mode, 0 for default mode
 *  @param pAllIndexed      out: 1 when Open has indexed the main video and the first audio stream from one-level
 *                          OpenDML indexes, else 0
 *  @return LX_OK; LX_ERR_AVIREAD_OPEN, _NOT_AVI, _EOF (no `movi` list), _READ, _ABORTED, _NO_MEMORY, or a result of
 *          the walk over the "AVIX" lists (_AVIX_LIST, _SEEK). After a failure the reader knows no stream; the file
 *          stays open until the next Open with a path, Reset or Close. */
LX_AVIREAD_RESULT lxAviReadCore_Open(UInt32 instance, const char* path, UInt32 maxReadAttempts, UInt32 memoryUsageLimit,
                                     UInt8 IndxOption, Bool* pAllIndexed);

/** Opens what the caller has opened, for example with `fopencookie`: a file in memory, in an archive, behind a network
 *  connection, or encrypted. The stream has to stand at the first byte of the file. From this call on it belongs to the
 *  reader, which closes it as it closes its own files: at the next Open, Reset or Close, also when this call fails. A
 *  stream that cannot seek plays from start to end. The reader seeks and reads with the calls of stdio; to read more at
 *  a time, give the stream a larger buffer of yours with `setvbuf` before. As in a file, a seek behind the end has to
 *  succeed, and a read there finds the end; otherwise a file that was cut does not open.
 *  @param pStream the stream; null is a failed assertion and LX_ERR_AVIREAD_OPEN, and the open file stays open
 *  @return as lxAviReadCore_Open, which describes the other parameters */
LX_AVIREAD_RESULT lxAviReadCore_OpenStream(UInt32 instance, FILE* pStream, UInt32 maxReadAttempts,
                                           UInt32 memoryUsageLimit, UInt8 IndxOption, Bool* pAllIndexed);

/** Seeks to the first chunk of the media data. Call it last before delivery. In default mode the counters and the
 *  position of delivery stay as they are; in format mode they are those of the start afterwards.
 *  @return LX_OK, or LX_ERR_AVIREAD_SEEK; then delivery can still begin at the current position of the file */
LX_AVIREAD_RESULT lxAviReadCore_PositionTheFileHandleToPlayData(lxAviReadCore_AviInfo_t* pAviInfo);

/** Goes back to the first chunk and clears the counters and the sync state. A pending jump stays armed in default mode,
 *  and is dropped in format mode, where lxAviReadCore_ParseIndex drops it, too. */
LX_AVIREAD_API void lxAviReadCore_RewindToStart(void);

/** Closes the file and clears everything that the state holds about it. The mode is default mode until the next Open.
 *  The allocated records and the abort flag stay.
 *  @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_Reset(void);

/** Closes the file and frees all memory. All bytes of the state are zero afterwards. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_DeAlloc(void);

/** The same as lxAviReadCore_DeAlloc. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_Close(void);

/** Frees the stream records, the main header and the batch buffer, and clears the counters (part of Close). */
LX_AVIREAD_API void lxAviReadCore_FreeAllocatedMemory(lxAviReadCore_AviInfo_t* pAviInfo);

/** Sets (1) or clears (0) the abort flag. While the flag is set, the result of an index parse is
 *  LX_ERR_AVIREAD_ABORTED. A read has the same result when it returns too few bytes, but not at the end of the file.
 *  In format mode an abort also ends Open, lxAviReadCore_NextChunk, lxAviReadCore_RemoveChunk and
 *  lxAviReadCore_WalkMediaData with this result while they search, step over chunks or skip, at the latest after 1024
 *  bytes. A chunk that is there without a search is
 *  delivered. After the flag is cleared, delivery in a file goes on without a loss; an input that cannot seek has lost
 *  what was skipped in part. The flag stays set until the caller clears it.
 *  Any thread may call this function. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_SetAbortFlag(Bool bAbort);

/** @return the abort flag */
LX_AVIREAD_API Bool lxAviReadCore_GetAbortFlag(void);

/** @return the address of the reader state, for the operations that take `pAviInfo` */
LX_AVIREAD_API lxAviReadCore_AviInfo_t* lxAviReadCore_GetAviInfo(void);

/** Stores the open stdio stream in `*ppFile`, or null when no file is open. The stream still belongs to the reader.
 *  @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_GetFile(FILE** ppFile);

/** Does nothing. A build without logging uses it instead of a print function. @return 1 */
LX_AVIREAD_API int NOPRINT(const char* format, ...);

/* ---- File access ------------------------------------------------------------------------------------------------ */

/** Reads exactly `size` bytes. In default mode, after a short `fread` that is not the end of the file, the next `fread`
 *  writes to the buffer address advanced by FOUR TIMES the bytes received. So pass a buffer of four times the size, or
 *  let Open allow only one read attempt. In format mode the next `fread` continues directly behind the bytes received,
 *  and a buffer of `size` bytes is large enough.
 *  @return LX_OK; LX_ERR_AVIREAD_EOF (the file ended), _ABORTED (the abort flag was set after a short read), _READ (all
 *          attempts were short, or no file is open) */
LX_AVIREAD_RESULT lxAviReadCore_FileRead(lxAviReadCore_AviInfo_t* pAviInfo, UInt32* buffer, UInt32 size);

/** The read function of the OpenDML index code. It does the same as lxAviReadCore_FileRead, but never checks the abort
 *  flag. */
LX_AVIREAD_RESULT lxAvi2ReadCore_FileRead(lxAviReadCore_AviInfo_t* pAviInfo, UInt32* buffer, UInt32 size);

/** Seeks. Default mode uses only the low 32 bits of `offset`, as a signed number, so it cannot reach positions from
 *  2 GiB on. Format mode uses all 64 bits, as a signed number.
 *  @param origin 0 from the start, 1 from the current position
 *  @return 1 on success, else 0 */
LX_AVIREAD_API Bool lxAviReadCore_FileSeek(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 offset, Int32 origin);

/** @return 1 when a read has met the end of the file */
LX_AVIREAD_API Bool lxAviReadCore_FileEof(lxAviReadCore_AviInfo_t* pAviInfo);

/** The same as lxAviReadCore_FileEof. */
LX_AVIREAD_API Bool lxAvi2ReadCore_FileEof(lxAviReadCore_AviInfo_t* pAviInfo);

/** Stores the position of delivery in `*pPosition`, as an offset from the start of the file. After a delivered chunk
 *  this is the end of its payload, and after a rejected chunk the start of its payload, until the caller counts the
 *  skip with lxAviReadCore_IncreaseOffset. */
LX_AVIREAD_API void lxAviReadCore_GetFilePosition(UInt64* pPosition);

/** Adds `count` bytes to the position of delivery. Call it when you have skipped the payload of a rejected chunk. */
LX_AVIREAD_API void lxAviReadCore_IncreaseOffset(UInt32 count);

/** Skips `size` bytes of the file. In default mode it reads and drops them. In format mode it seeks over more than 8192
 *  bytes if the input can seek. It does not change the position of delivery (see lxAviReadCore_IncreaseOffset).
 *  @return LX_OK or the code of the read that failed: LX_ERR_AVIREAD_EOF (the file ends before), _READ, _ABORTED */
LX_AVIREAD_RESULT lxAviReadCore_RemoveChunk(UInt32 size);

/** Stores in `*pSize` how many bytes the last lxAviReadCore_GetChunk, or another read into a buffer of the caller, has
 *  brought, 0 before the first. After LX_ERR_AVIREAD_EOF this is the part of the payload that the file has.
 *  In default mode always 0. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_GetReadSize(UInt32* pSize);

/* ---- Header access ---------------------------------------------------------------------------------------------- */

/** Copies the main AVI header to `*pAvih`. Without a main header `*pAvih` stays unchanged. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_GetAvihData(lxAviRead_Avih_t* pAvih);

/** Fills `*pOpenDmlInfo`. */
LX_AVIREAD_API void lxAviReadCore_GetOpenDmlInfo(lxAviRead_OpenDmlInfo_t* pOpenDmlInfo);

/** Copies the header of stream `streamNr` to `*pStrh`, and the payload bytes that the index counts for the stream to
 *  `*pSize`. Without such a stream record both stay unchanged. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_GetStrhData(UInt32 streamNr, lxAviRead_Strh_t* pStrh, UInt32* pSize);

/** Copies the fixed record of the format of stream `streamNr` to `pOut`: 40 bytes (lxAviRead_StrfVideo_t) for a video
 *  stream, 32 bytes (lxAviRead_StrfAudio_t) for an audio stream. For other streams it copies nothing. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_GetStrfData(UInt32 streamNr, void* pOut);

/** Copies the stream data of video stream `streamNr`, 2232 bytes, to `pOut`. When the stream has no stream data, it
 *  clears all 2232 bytes of `pOut`. When there is no such stream record, it clears only the first four bytes.
 *  @param pPresent out: 1 when stream data was copied, else 0
 *  @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_GetStrdData(UInt32 streamNr, void* pOut, Bool* pPresent);

/** Copies a chunk of the stream's list as the file has it. A decoder needs the bytes behind the fixed records that the
 *  calls above copy: H.264, MPEG-4 with a global header, palettes, subtitles. In default mode the size is always 0.
 *  @param kind     `LX_AVIREAD_BYTES_…`
 *  @param pBuffer  out: the first bytes of the chunk, `capacity` of them at most; may be null when `capacity` is 0
 *  @param pSize    out: size of the chunk in the file; 0 for a chunk that the file does not have, an
 *                  unknown stream or an unknown kind. The reader keeps `LX_AVIREAD_KEPT_BYTES` bytes of a chunk; a
 *                  larger size tells that the bytes behind these are lost.
 *  @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_GetStreamBytes(UInt32 streamNr, UInt32 kind, void* pBuffer, UInt32 capacity,
                                               UInt32* pSize);

/** Tells how many chunks and payload bytes a stream has, how long it lasts, and where these numbers come from. Before
 *  an index is parsed they come from the headers, which damaged files and unfinished recordings have not filled in.
 *  Streams that the index does not count keep the numbers of their headers: subtitles, audio tracks beyond the eighth,
 *  and with an OpenDML index further video streams. In default mode, and for a stream that is not there or of no known
 *  kind, all fields are 0.
 *  @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_GetStreamSummary(UInt32 streamNr, lxAviRead_StreamSummary_t* pSummary);

/** Tells what the key-frame table was built from, and how many of the key frames it holds. Without a table, and in
 *  default mode, all fields are 0.
 *  @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_GetTableSummary(lxAviRead_TableSummary_t* pSummary);

/** Makes another video stream the main one, which is delivered and which the key-frame table is about. Chunks of the
 *  other video streams are rejected from then on. The key-frame table is released, a pending jump is dropped, and
 *  delivery stands at the start of the media data. To go on at the same time, call lxAviReadCore_ParseIndex and
 *  lxAviReadCore_SeekToTime. When the stream is the main one already, nothing changes.
 *  @return LX_OK; LX_ERR_AVIREAD_BAD_STREAM for a stream that is no video stream, and always in default mode, where a
 *          further video stream carries subtitles; LX_ERR_AVIREAD_SEEK when the file cannot go back to its start: an
 *          input that cannot seek has to select before the first chunk, and nothing changes there; where a seek has
 *          failed, the stream is selected */
LX_AVIREAD_RESULT lxAviReadCore_SelectVideoStream(UInt32 streamNr);

/** Copies a text of the INFO list in the first RIFF list: title, artist, software. In default mode there is no text.
 *  The reader keeps at most 64 texts, which together have at most 64 KiB, and of two with the same code the first. From
 *  an input that cannot seek it knows those that stand before the media data.
 *  @param fourcc  code of the text, for example `LX_AVIREAD_FOURCC('I', 'N', 'A', 'M')` for the title
 *  @param pBuffer out: the text up to its first zero byte, cut to `capacity` - 1 bytes or to what is kept, and a zero
 *                 byte. The file does not tell the character set. May be null when `capacity` is 0.
 *  @return bytes of the text in the file, without the zero byte; 0 when there is no such text */
LX_AVIREAD_API UInt32 lxAviReadCore_GetFileText(UInt32 fourcc, char* pBuffer, UInt32 capacity);

/** @return the code of a text for lxAviReadCore_GetFileText, `index` counts from 0; 0 behind the last text */
LX_AVIREAD_API UInt32 lxAviReadCore_GetFileTextCode(UInt32 index);

/** @return 1 when the audio stream has a variable bit rate: its sample size and its block size are both 0, or they
 *  differ and `dwRate` / `dwScale` is below 1000; else 0 */
LX_AVIREAD_API Bool lxAviReadCore_TrackIsVBR(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streamNr);

/* ---- Header parsers (Open calls them; the file has to stand directly behind the chunk's header) ----------------- */

/* In default mode these parsers keep their oddities at the edges of lists. In format mode a list ends where its size
 * says, and chunks are kept for lxAviReadCore_GetStreamBytes. */

/** Parses the header list. `size` is the list size, which includes the "hdrl" code. */
LX_AVIREAD_RESULT lxAviReadCore_ParseListHdrl(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size);
/** Parses `avih`; LX_ERR_AVIREAD_NOT_AVI unless `size` is 56. */
LX_AVIREAD_RESULT lxAviReadCore_ParseAviHeader(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size);
/** Parses `dmlh`. */
LX_AVIREAD_RESULT lxAviReadCore_ParseListdmlh(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size);
/** Parses one stream list. `size` is the list size without the "strl" code, `StreamNr` is 0 to 16. */
LX_AVIREAD_RESULT lxAviReadCore_ParseListStrl(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size,
                                              UInt32 StreamNr);
/** Parses `strh` of stream `StreamID`. */
LX_AVIREAD_RESULT lxAviReadCore_ParseListStrh(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size, UInt32 StreamID);
/** Stores 40 bytes of a video format, and skips the rest of the chunk. */
LX_AVIREAD_RESULT lxAviReadCore_ParseListStrf_video(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size,
                                                    lxAviReadCore_StreamInfo_t* pStrInfo);
/** Stores 32 bytes of an audio format, and computes the audio frame size. */
LX_AVIREAD_RESULT lxAviReadCore_ParseListStrf_audio(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size,
                                                    lxAviReadCore_StreamInfo_t* pStrInfo);
/** Stores 8 bytes of a text subtitle format. */
LX_AVIREAD_RESULT lxAviReadCore_ParseListStrf_textSubtitle(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size,
                                                           lxAviReadCore_StreamInfo_t* pStrInfo);
/** Stores 2232 bytes of stream data of a video stream. It skips a shorter chunk. */
LX_AVIREAD_RESULT lxAviReadCore_ParseListStrd_video(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size,
                                                    lxAviReadCore_StreamInfo_t* pStrInfo);
/** Parses the OpenDML index chunk of a stream. */
LX_AVIREAD_RESULT lxAvi2ReadCore_ParseChunkIndx(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size,
                                                lxAviReadCore_StreamInfo_t* pStrInfo, UInt8 IndxOption);
/** Finds the "AVIX" lists behind the first RIFF list, and adds their `movi` lists to the chain behind the first one. In
 *  default mode an "AVIX" list has to begin with its `movi` list. In format mode this list may stand anywhere in it.
 *  @return LX_OK, LX_ERR_AVIREAD_AVIX_LIST, _NO_MEMORY, _SEEK, _EOF, _READ or _ABORTED */
LX_AVIREAD_RESULT lxAviReadCore_ConstructAvixInfo(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo);

/* ---- The index and the key-frame table -------------------------------------------------------------------------- */

/** Builds the key-frame table. Call it after Open. It first releases an existing table. Afterwards the file can stand
 *  anywhere, so call lxAviReadCore_PositionTheFileHandleToPlayData next.
 *
 *  Default mode: when a stream list held an `indx` chunk, the reader builds the table from the OpenDML super indexes,
 *  otherwise from `idx1`. When Open has built a table from a one-level OpenDML index, ParseIndex releases this table,
 *  does not build it again, and returns LX_OK. So call lxAviReadCore_GetSetPositionRangeInfo first, and ParseIndex only
 *  when there is no table.
 *
 *  Format mode: the reader builds the table from any kind of index, also when Open has built one before. When the file
 *  has two indexes, the reader uses the index that covers more frames, or the other index when that one is unusable.
 *  From an index that ends early it builds a table of the part that is there.
 *  @return LX_OK; LX_ERR_AVIREAD_NO_INDEX (no index, no key frame in it, no video stream), _NO_MEMORY (the budget is
 *          below one leaf, or the heap is exhausted), _SEEK, _EOF, _READ, _ABORTED, _INDEX_STREAM. A file without a
 *          table can still be played from start to end. */
LX_AVIREAD_RESULT lxAviReadCore_ParseIndex(UInt32 instance);

/** Builds the key-frame table from the media data, for a file whose index is missing or damaged: a download that was cut,
 *  a recording that was not finished. It reads the headers of all chunks, and of video frames the first bytes, at most
 *  4096, which tell whether the frame is a key frame; it goes over the payloads. In a file with audio it goes twice over
 *  the media data. This can take seconds on a slow medium, therefore lxAviReadCore_ParseIndex never does it by itself.
 *
 *  The table equals that of a right index, with two exceptions. Where not all key frames fit into the budget, the table
 *  holds every 2nd, 4th, 8th … key frame, and not every 3rd. In a stream whose codec has no rule (doc/INTEGRATION.md
 *  lists the codecs), or that has no key frame, only the first frame is in the table.
 *
 *  It first releases an existing table, and drops a pending jump. Afterwards delivery stands at the start of the media
 *  data. To go on at the same time, call lxAviReadCore_SeekToTime. After a failure there is no table.
 *
 *  A list of media data that goes on behind the end that it states, because its writer was stopped, is as long as it is
 *  from then on, for delivery, too.
 *  @param instance    the caller's handle; not used
 *  @param pfnProgress hears of the progress at most once for every hundredth of the way; may be null
 *  @param pUser       passed to `pfnProgress`
 *  @return LX_OK; LX_ERR_AVIREAD_NO_INDEX (no video stream, no frame, an input that cannot seek, and always in default
 *          mode; in the last two cases nothing else happens), _NO_MEMORY (as lxAviReadCore_ParseIndex), _SEEK, _READ, _ABORTED (by the
 *          abort flag, or by `pfnProgress`) */
LX_AVIREAD_RESULT lxAviReadCore_ParseMediaData(UInt32 instance, lxAviRead_Progress_t pfnProgress, void* pUser);

/** Hands every whole chunk of the media data to `pfnVisit`, in file order: the chunks of all streams that the file has, also
 *  those that delivery rejects. A chunk that claims more bytes than its list or the file has left is damage and no chunk,
 *  unless another chunk follows it; then the list is longer than it states, as lxAviReadCore_ParseMediaData describes.
 *  Delivery goes on where it stood; a payload that was not read yet can be read.
 *  @return LX_OK; LX_ERR_AVIREAD_NO_INDEX (an input that cannot seek, and always in default mode), _NO_MEMORY, _SEEK, _READ,
 *          _ABORTED (by the abort flag, or by `pfnVisit`) */
LX_AVIREAD_RESULT lxAviReadCore_WalkMediaData(lxAviRead_VisitChunk_t pfnVisit, void* pUser);

/** Tells whether a frame of video stream `streamNr` is a key frame, by the first bytes of its payload.
 *  @param pPayload the first bytes of the payload, 4096 of them or all
 *  @param size     bytes of the whole payload; `pPayload` has the first 4096 of them at least
 *  @return `LX_AVIREAD_FRAME_…`; in default mode and for a stream that is no video always
 *          `LX_AVIREAD_FRAME_UNKNOWN` */
LX_AVIREAD_API UInt32 lxAviReadCore_GetFrameKind(UInt32 streamNr, const void* pPayload, UInt32 size);

/** Computes the size of the table, so that it fits into `memoryUsageLimit`.
 *  @param numberOfKeyFrames in: key frames of the file; out: key frames that will be stored
 *  @param neededLeafs       out: leaves for those
 *  @param neededMemory      out: bytes of the leaves, without the array of pointers
 *  @param SkipKey           out: every SkipKey-th key frame is stored
 *  @return LX_OK, LX_ERR_AVIREAD_NO_INDEX (no key frame), LX_ERR_AVIREAD_NO_MEMORY (no room for one leaf) */
LX_AVIREAD_RESULT lxAviReadCore_CalcLeafsNeededAndSkipValue(lxAviReadCore_AviInfo_t* pAviInfo,
                                                            UInt32* numberOfKeyFrames, UInt32* neededLeafs,
                                                            UInt32* neededMemory, UInt32* SkipKey);

/** Logs every entry of the table. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_PrintIndex(void);

/* The functions from here to lxAvi2ReadCore_FillAudioInfoInKFTable are parts of lxAviReadCore_ParseIndex, or of Open
 * for an index on one level; lxAviReadCore_ParseVideoAudioIndex is an alternative to two of them. They differ between
 * the modes as lxAviReadCore_ParseIndex does: in positions of 32 or 64 bits, in what an index without key flags or with
 * an early end is worth, and in the times by which audio is placed. */

/** Builds the table from `idx1` (part of lxAviReadCore_ParseIndex). */
LX_AVIREAD_RESULT lxAviReadCore_ParseIdx1Chunk(UInt32 instance);
/** First pass over `idx1`: decides what the offsets count from, counts the key frames (the caller sets
 *  `*numberOfKeyFrames` to 0 before), and computes the size of the table. The file has to stand at the first record;
 *  `uiSize` is in bytes. */
LX_AVIREAD_RESULT lxAviReadCore_PreParseIdx1Chunk(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiSize, UInt32* SkipKey,
                                                  UInt32* neededLeafs, UInt32* neededMemory, UInt32* numberOfKeyFrames);
/** Second pass: allocates the table and stores the key frames. */
LX_AVIREAD_RESULT lxAviReadCore_ParseIndex_Video(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiSize,
                                                 UInt32 SkipKey, UInt32 neededLeafs);
/** Third pass: gives every stored key frame the audio chunks that play at its time. */
LX_AVIREAD_RESULT lxAviReadCore_ParseIndex_Audio(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiSize, UInt32 neededLeafs);
/** Second and third pass in one, one record at a time. It assigns audio chunks to key frames by their order in the
 *  index, not by their times. Like lxAviReadCore_ParseIndex_Video it needs the batch buffer. */
LX_AVIREAD_RESULT lxAviReadCore_ParseVideoAudioIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiSize,
                                                     UInt32 SkipKey, UInt32 neededLeafs);

/** Builds the table from the OpenDML super indexes (part of lxAviReadCore_ParseIndex). */
LX_AVIREAD_RESULT lxAvi2ReadCore_ParseIndxIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo);
/** Counts the key frames of the video super index, and computes the size of the table. */
LX_AVIREAD_RESULT lxAvi2ReadCore_PreParseVideoIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32* skipKey,
                                                    UInt32* neededLeafs, UInt32* neededMemory,
                                                    UInt32* numberOfKeyFrames);
/** Counts the key frames in the next `uiNoOfEntries` standard records (8 bytes) of the file. */
LX_AVIREAD_RESULT lxAvi2ReadCore_GetTotalKFramesInStdIndxChunk(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiNoOfEntries,
                                                               UInt32* pCount);
/** Counts the key frames in the next `uiNoOfEntries` field records (12 bytes) of the file. */
LX_AVIREAD_RESULT lxAvi2ReadCore_GetTotalKFramesInFieldIndxChunk(lxAviReadCore_AviInfo_t* pAviInfo,
                                                                 UInt32 uiNoOfEntries, UInt32* pCount);
/** Allocates a table of `neededLeafs` empty leaves. */
LX_AVIREAD_RESULT lxAvi2ReadCore_CreateKFTable(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 neededLeafs);
/** Fills the table from a one-level index, whose records begin at the current position of the file. */
LX_AVIREAD_RESULT lxAvi2ReadCore_ParseVideoStdIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size,
                                                    const lxAviReadCore_AviIndxChunkCommonSection_t* pCommon,
                                                    UInt64 qwBaseOffset, UInt32 dwReserved, UInt32 skipKey,
                                                    UInt32 neededLeafs);
/** Fills the table from the video super index. */
LX_AVIREAD_RESULT lxAvi2ReadCore_ParseVideoSuperIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo,
                                                      UInt32 skipKey, UInt32 neededLeafs);
/** Stores the key frames of a run of `uiNoOfEntries` records. The next call continues with the leaf, frame number, skip
 *  counter and leaf number that this call returns. */
LX_AVIREAD_RESULT lxAvi2ReadCore_FillVideoKFramesInKFTable(lxAviReadCore_AviInfo_t* pAviInfo,
                                                           lxAviReadCore_KeyFrameLeaf_t** ppCurrentLeaf,
                                                           UInt32* pFrameNumber, UInt32 uiNoOfEntries,
                                                           UInt8 uiSubIndexType, UInt32 dwChunkId, UInt64 qwBaseOffset,
                                                           UInt32 skipKey, UInt32* pSkipCounter, UInt32* pLeafNumber);
/** Assigns the audio chunks of a one-level index, whose records begin at the current position, to the key frames. */
LX_AVIREAD_RESULT lxAvi2ReadCore_ParseAudioStdIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo,
                                                    const lxAviReadCore_AviIndxChunkCommonSection_t* pCommon,
                                                    UInt64 qwBaseOffset, UInt32 dwReserved);
/** Assigns the audio chunks of every audio stream's super index to the key frames. */
LX_AVIREAD_RESULT lxAvi2ReadCore_ParseAudioSuperIndex(lxAviReadCore_AviInfo_t* pAviInfo);
/** Assigns the audio chunks of a run of `uiNoOfEntries` records to the key frames. The next call continues with the
 *  state, the cursor and the cursor's time (milliseconds) that this call returns. */
LX_AVIREAD_RESULT lxAvi2ReadCore_FillAudioInfoInKFTable(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiNoOfEntries,
                                                        UInt8 uiSubIndexType, UInt32 dwChunkId, UInt64 qwBaseOffset,
                                                        UInt32 audioTrackNumber,
                                                        lxAvi2ReadCore_AudioIndexState_t* pState,
                                                        lxAviReadCore_KeyFramePosition_t* pCursor,
                                                        UInt32* pCursorTimeMsec);

/* ---- Delivery --------------------------------------------------------------------------------------------------- */

/** Executes a pending jump, reads the header of the next media chunk, and decides whether to deliver the chunk.
 *
 *  In format mode the numbers, the position, the time and the key flag of a chunk are the same on every way to it: by
 *  playing, after a seek, a step or a rewind. After a jump that has passed over audio, the first chunk of the selected
 *  track costs reads of the headers in between.
 *
 *  After LX_OK read exactly `uiSize` bytes with lxAviReadCore_GetChunk (or lxAviReadCore_RemoveChunk).
 *
 *  After a rejection the payload is still unread. Skip the payload with lxAviReadCore_RemoveChunk(uiSize), and count it
 *  with lxAviReadCore_IncreaseOffset(uiSize). Do not do this after LX_ERR_AVIREAD_BAD_STREAM, because the size of such
 *  a chunk cannot be trusted. If the caller does not skip the payload, the next call searches it byte by byte for a
 *  chunk, and payload bytes can look like a chunk.
 *
 *  Never allocate `uiSize` bytes without a limit of your own: a damaged file can state any size.
 *  @param chunkData           filled; `bValid` is 1 only together with LX_OK
 *  @param audioTrackNumber    selected audio track, 0 to 7; any other value (an assertion) selects none
 *  @param subtitleTrackNumber selected subtitle track
 *  @param pJumped             out: 1 when this call executed a pending jump, else 0
 *  @return LX_OK; LX_AVIREAD_END_OF_MEDIA; a rejection: LX_ERR_AVIREAD_SUBTITLE_SKIPPED, _AUDIO_SKIPPED,
 *          _VIDEO_SKIPPED, _JUMP_NOT_VIDEO, _BAD_STREAM, _NO_KEY_FRAME; or LX_ERR_AVIREAD_READ (in default mode also at
 *          the end of the file and on abort), in format mode LX_ERR_AVIREAD_EOF (the file ends before its media data
 *          do) and _ABORTED; _SEEK (next segment out of reach), _JUMP_RANGE. In format mode a jump that fails is over:
 *          when the call that executes it returns _JUMP_RANGE, _JUMP_NOT_VIDEO, _NO_KEY_FRAME, _SEEK, _EOF or _READ, no
 *          jump is pending, delivery goes on where it stood before, and `uiSize` is 0. After _ABORTED the next call
 *          makes the jump again. */
LX_AVIREAD_RESULT lxAviReadCore_NextChunk(lxAviRead_ChunkData_t* chunkData, UInt32 audioTrackNumber,
                                          UInt32 subtitleTrackNumber, Bool* pJumped);

/** Reads `size` payload bytes of the current chunk. It does the same as lxAviReadCore_FileRead, and has the same rule
 *  for the size of the buffer. Where a file was cut inside the payload, it stores what is there and returns
 *  LX_ERR_AVIREAD_EOF; lxAviReadCore_GetReadSize then tells how many bytes came. */
LX_AVIREAD_RESULT lxAviReadCore_GetChunk(UInt32* buffer, UInt32 size);

/** Delivers all tracks at once, for a player that gives every track a queue or a decoder of its own. From now on, and
 *  until the next Open, Reset or Close, lxAviReadCore_NextChunk delivers the chunks of the audio tracks 0 to 7 and of all
 *  subtitle tracks, whatever track numbers it gets; `uiStreamNr` tells them apart. A seek or step that gets a track
 *  number of 0 or more goes to the earliest chunk with which one of the tracks resumes. After it each track begins at
 *  its own chunk, and is trimmed for itself. One that gets a negative number goes to the key frame, as before.
 *  @param bAll 1: all tracks; 0: the tracks that each call names. In default mode always the latter. */
LX_AVIREAD_API void lxAviReadCore_DeliverAllTracks(Bool bAll);

/** Does nothing in either mode. To switch the track, pass another track number to the next lxAviReadCore_NextChunk. The
 *  reader always counts the chunks of all tracks.
 *  @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_SwitchAudioTrack(void);

/** Computes the presentation time of a position in a stream. The time includes the stream's start (`dwStart`). In
 *  default mode video times come from `dwMicroSecPerFrame` of the main header, and audio times from the coding. In
 *  format mode all times come from `dwScale` and `dwRate` of the stream header, those of video from the main header if
 *  one of the two is 0. They are exact, and truncated to milliseconds.
 *  @param streamNr     0 to 16
 *  @param frameNumber  number of the video frame, or of the audio chunk when the track's time is computed from chunks
 *  @param bytePosition payload bytes before the position, when the track's time is computed from bytes
 *  @return milliseconds, at most 0xFFFFFFFF; 0 for an unknown stream and, in default mode, for an unknown coding */
LX_AVIREAD_API UInt32 lxAviReadCore_GetStreamTime(UInt32 streamNr, UInt32 frameNumber, UInt64 bytePosition);

/** Computes the same as lxAviReadCore_GetStreamTime in format mode, in microseconds: exact, and truncated once.
 *  @return microseconds, at most 2^64 - 1; 0 for an unknown stream, and always 0 in default mode */
LX_AVIREAD_API UInt64 lxAviReadCore_GetStreamTimeUsec(UInt32 streamNr, UInt32 frameNumber, UInt64 bytePosition);

/** Computes the same in nanoseconds, for players that count in them: exact, and truncated once.
 *  @return nanoseconds, at most 2^64 - 1; 0 for an unknown stream, and always 0 in default mode */
LX_AVIREAD_API UInt64 lxAviReadCore_GetStreamTimeNsec(UInt32 streamNr, UInt32 frameNumber, UInt64 bytePosition);

/** Tells whether every frame of a video stream can be decoded alone, by its codec (motion JPEG, DV, uncompressed,
 *  lossless codecs). In format mode `bKeyFrame` is then 1 for each of its chunks.
 *  @return 1 or 0; always 0 in default mode, and for other streams */
LX_AVIREAD_API Bool lxAviReadCore_HasOnlyKeyFrames(UInt32 streamNr);

/* The next three functions are parts of lxAviReadCore_NextChunk, and differ between the modes as it does. */

/** Decides about a video chunk (part of lxAviReadCore_NextChunk). `jumped`: this call executed a jump. */
LX_AVIREAD_RESULT lxAviReadCore_ProcessNextVideoChunk(lxAviReadCore_AviInfo_t* pAviInfo,
                                                      lxAviRead_ChunkData_t* chunkData, Bool jumped);
/** Decides about an audio chunk and counts it (part of lxAviReadCore_NextChunk). */
LX_AVIREAD_RESULT lxAviReadCore_ProcessNextAudioChunk(lxAviReadCore_AviInfo_t* pAviInfo,
                                                      lxAviRead_ChunkData_t* chunkData, UInt32 audioTrackNumber);
/** Decides about a subtitle chunk (part of lxAviReadCore_NextChunk). */
LX_AVIREAD_RESULT lxAviReadCore_ProcessNextSubtitleChunk(lxAviReadCore_AviInfo_t* pAviInfo,
                                                         lxAviRead_ChunkData_t* chunkData, UInt32 subtitleTrackNumber);

/* ---- Seeking and key-frame steps -------------------------------------------------------------------------------- */

/* These functions only arm a jump; the next lxAviReadCore_NextChunk executes it. They need a key-frame table. Without a
 * table they report a failed assertion, arm nothing, and return a time of 0. `audioTrackNumber` is the track that
 * plays, or a negative number for no track. A number above 7 is a failed assertion and counts as no track.
 *
 * In default mode a track without audio in the table makes a jump to nowhere, table times leave out the stream's start,
 * and a failed jump stays armed or leaves its counters. In format mode such a track counts as no track, times include
 * the start, and a failed jump is over. */

/** Chooses the key frame for a time, and arms a jump to it.
 *  @param timeMsec        milliseconds
 *  @param roundPreference `lxAviRead_SetPosRoundUp`, `…Down` or `…Nearest`
 *  @return stream time of the chosen key frame in milliseconds */
LX_AVIREAD_API UInt32 lxAviReadCore_SeekToTime(UInt32 timeMsec, Int32 audioTrackNumber, UInt32 roundPreference);

/** Does the same as lxAviReadCore_SeekToTime in format mode, with exact times. Two key frames that have the same
 *  millisecond are told apart, and a time just before a key frame is before it.
 *  @param timeNsec nanoseconds
 *  @return stream time of the chosen key frame in nanoseconds; in default mode 0, and nothing is armed */
LX_AVIREAD_API UInt64 lxAviReadCore_SeekToTimeNsec(UInt64 timeNsec, Int32 audioTrackNumber, UInt32 roundPreference);

/** Arms a jump to an entry of the table: to its audio chunk when this chunk lies before the key frame, else to the key
 *  frame. When `Offset` in `*keyFrame` is 0, the function uses the offset of the entry. */
LX_AVIREAD_API void lxAviReadCore_SetPointerOnKF(const lxAviReadCore_KeyFramePosition_t* keyFrame,
                                                 Int32 audioTrackNumber);

/** Fills the range that seeking covers. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_GetSetPositionRangeInfo(lxAviRead_SetPositionRangeInfo_t* pRange);

/** Looks up the key frame whose chunk begins at `offset`. `offset` is the low 32 bits of the position, counted from the
 *  same place as the offsets of the table. Default mode compares 32 bits; format mode finds only positions below 4 GiB.
 *  @param result out: `valid` 1 and the position when such a key frame exists, else `valid` 0
 *  @return LX_OK, or LX_ERR_AVIREAD_NO_INDEX without a table */
LX_AVIREAD_RESULT lxAviReadCore_GetChunkInfo(lxAviReadCore_KeyFramePosition_t* result, UInt32 offset);

/** Arms a jump back to the key frame played last. When no key frame was played, it does nothing. In default mode it
 *  does not change whether video has to come first, and without a track not the audio counters either. @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_SetOnKeyFrame_AudioAndVideo(Int32 audioTrackNumber);

/** Arms a jump of `count` key frames from the key frame played last: forward, or back when `count` is negative. When
 *  the jump would pass the first or the last key frame, it goes to the first key frame. A `count` of 0 arms nothing.
 *  @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_JumpInKeyFrames(Int32 count, Int32 audioTrackNumber);

/** Arms a jump to the next key frame that delivery has not passed yet.
 *  @param pFound out: 1; or 0 when there is no next key frame, then the jump goes to the current key frame
 *  @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_SetJumpToNextKeyFrame(Bool* pFound, Int32 audioTrackNumber);

/** Arms a jump of exactly one key frame forward, for trick play. In default mode it does not load the counters.
 *  `pFound` has the same meaning as for lxAviReadCore_SetJumpToNextKeyFrame.
 *  @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(Bool* pFound, Int32 audioTrackNumber);

/** Arms a jump of one key frame back, for trick play. In default mode it does not load the counters.
 *  @param pFound out: 1; or 0 when there is no previous key frame, then the jump goes to the current key frame
 *  @return LX_OK */
LX_AVIREAD_RESULT lxAviReadCore_SetJumpToPrevKeyFrame(Bool* pFound, Int32 audioTrackNumber);

#ifdef __cplusplus
}
#endif

#pragma pop_macro("Bool")

#endif
