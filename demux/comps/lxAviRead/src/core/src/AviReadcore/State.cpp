// The state of the reader and its life: allocated, without a file, open, rewound, released.
//
//   Alloc ──► no file ──Open──► open ──index, delivery──► playing
//               ▲  └────Reset────┴──────────Reset───────────┘  └─ RewindToStart: back to the first chunk
//   DeAlloc / Close: from anywhere to all bytes zero
//
// Most of what the state points to is allocated and freed here. The key-frame table, the segment chain and the entries
// of super indexes are allocated in files of their own.

#include "internal/Delivery.hpp"
#include "internal/Idx1Passes.hpp"
#include "internal/IndexPasses.hpp"
#include "internal/KeptChunks.hpp"
#include "internal/KeyFrames.hpp"
#include "internal/Memory.hpp"
#include "internal/PendingJump.hpp"
#include "internal/Segments.hpp"
#include "internal/State.hpp"

#include <cstddef>

UInt32 videoTrackNumber;
UInt32 lxalAviRead_VideoFrame;
UInt32 lxalAviRead_AudioFrame[LX_AVIREAD_AUDIO_TRACKS];
Bool lxalAviRead_FileSeekPossible;
lxDbg_Unit_t glxalAviRead_debug_unit;

lxAviReadCore_AviInfo_t lxAviReadCore_AviInfo;

namespace lxAviReadCore {

void* file_buffer;
UInt64 AudioByteposition[LX_AVIREAD_AUDIO_TRACKS];
lxAviReadCore_KeyFramePosition_t lastPlayedKeyFrame;
bool onlyKeyFrames;
UInt64 chunkStart;
UInt32 nextVideoFrame;
bool allTracks;

namespace {

constexpr UInt32 kFileBufferBytes = 1024;

void* s_pMetaDataBufferOwner; // the batch buffer, also while the state has forgotten it

template <typename T>
constexpr bool kPlainRecord = std::conjunction_v<std::is_standard_layout<T>, std::is_trivially_copyable<T>>;

// The records that are read from the file as they stand.
static_assert(kPlainRecord<lxAviRead_Avih_t> && sizeof(lxAviRead_Avih_t) == 56);
static_assert(offsetof(lxAviRead_Avih_t, dwFlags) == 12 && offsetof(lxAviRead_Avih_t, dwReserved) == 40);
static_assert(kPlainRecord<lxAviRead_Strh_t> && sizeof(lxAviRead_Strh_t) == 56);
static_assert(offsetof(lxAviRead_Strh_t, dwScale) == 20 && offsetof(lxAviRead_Strh_t, rcFrame) == 48);
static_assert(kPlainRecord<lxAviRead_StrfVideo_t> && sizeof(lxAviRead_StrfVideo_t) == 40);
static_assert(offsetof(lxAviRead_StrfVideo_t, biCompression) == 16);
static_assert(kPlainRecord<lxAviRead_StrfAudio_t> && sizeof(lxAviRead_StrfAudio_t) == 32);
static_assert(offsetof(lxAviRead_StrfAudio_t, nBlockAlign) == 12 && offsetof(lxAviRead_StrfAudio_t, cbSize) == 16);
static_assert(kPlainRecord<lxAviRead_StrfText_t> && sizeof(lxAviRead_StrfText_t) == 8);
static_assert(kPlainRecord<lxAviRead_StrdVideo_t> && sizeof(lxAviRead_StrdVideo_t) == 2232);
static_assert(kPlainRecord<lxAviReadCore_AviIndxChunkCommonSection_t> &&
              sizeof(lxAviReadCore_AviIndxChunkCommonSection_t) == 12);
static_assert(kPlainRecord<lxAviReadCore_AviSuperIndexEntry_t> && sizeof(lxAviReadCore_AviSuperIndexEntry_t) == 16);
static_assert(kPlainRecord<lxAviReadCore_AviInfo_t> && kPlainRecord<lxAviRead_ChunkData_t>);
static_assert(sizeof(Bool) == 1);

bool AllocateOnce(void*& pBlock, size_t bytes)
{
    if (pBlock == Null) {
        pBlock = AllocateCleared(1, bytes);
    }
    return pBlock != Null;
}

// Allocates what is missing of one stream's record.
UInt32 AllocateStream(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streamNr)
{
    lxAviReadCore_StreamInfo_t*& pStream = pAviInfo->StreamInfo[streamNr];
    if (pStream == Null) {
        pStream = AllocateRecord<lxAviReadCore_StreamInfo_t>();
    }
    // Quirk Q02: the messages print the stream number as the bytes and the bytes as the index.
    if (pStream == Null) {
        LX_LOG(kLevelError, "could not allocate %d bytes for pAviInfo->StreamInfo[%d]", streamNr,
               static_cast<UInt32>(sizeof *pStream));
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    if (!AllocateOnce(pStream->Format, LX_AVIREAD_FORMAT_BYTES)) {
        LX_LOG(kLevelError, "could not allocate %d bytes for pAviInfo->StreamInfo[%d]->Format", streamNr,
               LX_AVIREAD_FORMAT_BYTES);
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    if (!AllocateOnce(pStream->StreamData, LX_AVIREAD_STREAM_DATA_BYTES)) {
        LX_LOG(kLevelError, "could not allocate %d bytes for pAviInfo->StreamInfo[%d]->StreamData", streamNr,
               LX_AVIREAD_STREAM_DATA_BYTES);
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    return LX_OK;
}

void FreeStream(lxAviReadCore_StreamInfo_t*& pStream)
{
    FreeLogged(pStream->Format);
    FreeLogged(pStream->StreamData);
    ReleaseSuperIndex(pStream);
    FreeLogged(pStream);
}

void ClearBlock(void* pBlock, size_t bytes)
{
    if (pBlock != Null) {
        std::memset(pBlock, 0, bytes);
    }
}

void ResetStream(lxAviReadCore_StreamInfo_t* pStream)
{
    pStream->StreamType = LX_AVIREAD_STREAM_NONE;
    pStream->Header = {};
    ClearBlock(pStream->Format, LX_AVIREAD_FORMAT_BYTES);
    ClearBlock(pStream->StreamData, LX_AVIREAD_STREAM_DATA_BYTES);
    pStream->bStrdPresent = 0;
    pStream->bIndexParsed = 0;
    pStream->uiStreamSize = 0;
    pStream->iFrameSize = 0;
    ReleaseSuperIndex(pStream);
    pStream->IndxChunk = {};
}

void CloseFile(lxAviReadCore_AviInfo_t* pAviInfo)
{
    if (pAviInfo->pFile != Null) {
        fclose(pAviInfo->pFile);
        pAviInfo->pFile = Null;
    }
}

// Makes the state of delivery that before the first chunk. A pending jump stays.
void StartOver(lxAviReadCore_AviInfo_t* pAviInfo)
{
    GoToFirstSegment(pAviInfo);
    lastPlayedKeyFrame = {};
    pAviInfo->audioSyncLeafNr = 0;
    pAviInfo->audioSyncItemNr = 0;
    pAviInfo->bAudioSync = 0;
    pAviInfo->bJumpToVideo = 0;
    ClearCounters();
    pAviInfo->CurrentOffset = StartOfDelivery(pAviInfo);
}

// Clears all that Open found in the file. The abort flag stays; only DeAlloc clears it.
void ForgetFile(lxAviReadCore_AviInfo_t* pAviInfo)
{
    pAviInfo->pMetaDataBuffer = Null; // still owned beside the state
    pAviInfo->moviSize = 0;
    pAviInfo->idx1Size = 0;
    pAviInfo->idx1Offset = 0;
    pAviInfo->moviOffset = 0;
    pAviInfo->riffSize = 0;
    pAviInfo->uiUnused1 = 0;
    pAviInfo->audioStreamNr = 0; // Quirk Q03: stream 0 until Open says that there is none
    pAviInfo->videoStreamNr = 0;
    pAviInfo->JumpOffset = 0;
    pAviInfo->CurrentOffset = kStartInMovi;
    pAviInfo->AudioTracksCount = 0;
    pAviInfo->SubtitleTracksCount = 0;
    pAviInfo->uiUnused2 = 0;
    pAviInfo->memoryUsageLimit = 0;
    pAviInfo->bAudioSync = 0;
    pAviInfo->bIndxPresent = 0;
    pAviInfo->bJumpToVideo = 0;
    pAviInfo->IndxOption = 1;
    pAviInfo->bDmlhPresent = 0;
    pAviInfo->dmlhTotalFrames = 0;
    pAviInfo->bAbsoluteOffsets = 0;
    pAviInfo->audioSyncLeafNr = 0;
    pAviInfo->audioSyncItemNr = 0;
    pAviInfo->uiMaxRecordsInBuffer = 0;
    pAviInfo->bAvixPresent = 0;
    pAviInfo->maxReadAttempts = 0; // one attempt for each read until the next Open
    std::memset(pAviInfo->TrackNumber, 0, sizeof pAviInfo->TrackNumber);
}

} // namespace

void ClearCounters()
{
    lxalAviRead_VideoFrame = 0;
    chunkStart = 0;
    nextVideoFrame = 0;
    StartAudio();
    std::memset(lxalAviRead_AudioFrame, 0, sizeof lxalAviRead_AudioFrame);
    std::memset(AudioByteposition, 0, sizeof AudioByteposition);
}

bool AcquireMetaDataBuffer(lxAviReadCore_AviInfo_t* pAviInfo)
{
    if (s_pMetaDataBufferOwner == Null) {
        s_pMetaDataBufferOwner = std::malloc(kMetaDataBytes);
    }
    pAviInfo->pMetaDataBuffer = s_pMetaDataBufferOwner;
    ClearMetaDataBuffer(pAviInfo);
    return pAviInfo->pMetaDataBuffer != Null;
}

void ClearMetaDataBuffer(lxAviReadCore_AviInfo_t* pAviInfo) { ClearBlock(pAviInfo->pMetaDataBuffer, kMetaDataBytes); }

void ReleaseMetaDataBuffer(lxAviReadCore_AviInfo_t* pAviInfo)
{
    if (pAviInfo->pMetaDataBuffer != Null) {
        FreeLogged(pAviInfo->pMetaDataBuffer);
        s_pMetaDataBufferOwner = Null;
    }
}

void ReleaseForgottenMetaDataBuffer()
{
    std::free(s_pMetaDataBufferOwner);
    s_pMetaDataBufferOwner = Null;
}

void ReleaseSuperIndex(lxAviReadCore_StreamInfo_t* pStream)
{
    if (pStream->IndxChunk.pAviSuperIndexEntry != Null) {
        LX_LOG(kLevelMemory, "Freeing pAviSuperIndexEntry");
        FreeLogged(pStream->IndxChunk.pAviSuperIndexEntry);
    }
}

} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_Alloc(UInt32 /*instance*/)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    if (!AllocateOnce(file_buffer, kFileBufferBytes)) {
        LX_LOG(kLevelError, "could not allocate %d bytes for file_buffer", kFileBufferBytes);
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    if (pAviInfo->AviHdr == Null) {
        pAviInfo->AviHdr = AllocateRecord<lxAviRead_Avih_t>();
    }
    if (pAviInfo->AviHdr == Null) {
        LX_LOG(kLevelError, "could not allocate %d bytes for pAviInfo->AviHdr ",
               static_cast<UInt32>(sizeof(lxAviRead_Avih_t)));
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    for (UInt32 streamNr = 0; streamNr < LX_AVIREAD_STREAMS; ++streamNr) {
        LX_AVIREAD_TRY(AllocateStream(pAviInfo, streamNr));
    }
    return LX_OK;
}

void lxAviReadCore_FreeAllocatedMemory(lxAviReadCore_AviInfo_t* pAviInfo)
{
    for (lxAviReadCore_StreamInfo_t*& pStream : pAviInfo->StreamInfo) {
        if (pStream != Null) {
            FreeStream(pStream);
        }
    }
    FreeLogged(pAviInfo->AviHdr);
    ReleaseKeptChunks();
    ClearCounters();
    ReleaseMetaDataBuffer(pAviInfo);
}

UInt32 lxAviReadCore_Reset(void)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    CloseFile(pAviInfo);
    lxalAviRead_FileSeekPossible = 1;
    ClearCounters();
    ForgetFile(pAviInfo);
    static_cast<void>(TakeForeignPayload());
    ForgetIndexSurvey();
    ForgetReadSize();
    ReleaseKeptChunks();
    ForgetTotals();
    onlyKeyFrames = false;
    allTracks = false;
    SetIdx1OffsetBase(0);
    ReleaseKeyFrameTable(pAviInfo, TableReleaseTrace::CleanUp);
    ReleaseSegments(pAviInfo);
    for (lxAviReadCore_StreamInfo_t* pStream : pAviInfo->StreamInfo) {
        if (pStream != Null) {
            ResetStream(pStream);
        }
    }
    if (pAviInfo->AviHdr != Null) {
        *pAviInfo->AviHdr = {};
    }
    lastPlayedKeyFrame = {};
    return LX_OK;
}

UInt32 lxAviReadCore_DeAlloc(void)
{
    static_cast<void>(lxAviReadCore_Reset()); // never fails
    lxAviReadCore_FreeAllocatedMemory(&lxAviReadCore_AviInfo);
    ReleaseForgottenMetaDataBuffer();
    std::free(file_buffer);
    file_buffer = Null;
    std::memset(&lxAviReadCore_AviInfo, 0, sizeof lxAviReadCore_AviInfo);
    return LX_OK;
}

UInt32 lxAviReadCore_Close(void) { return lxAviReadCore_DeAlloc(); }

void lxAviReadCore_RewindToStart(void)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    if (lxalAviRead_FileSeekPossible != 0) {
        SeekAndRemember(pAviInfo, pAviInfo->moviOffset, kFromStart);
    }
    if (RewindsDropJumps(pAviInfo)) {
        DropJump(pAviInfo);
    }
    StartOver(pAviInfo);
    LX_LOG(kLevelSeek, "lxAviReadCore_RewindToStart: Done (pAviInfo->moviOffset=%d)",
           static_cast<UInt32>(pAviInfo->moviOffset));
}

UInt32 lxAviReadCore_PositionTheFileHandleToPlayData(lxAviReadCore_AviInfo_t* pAviInfo)
{
    if (PositioningStartsOver(pAviInfo)) {
        const PendingJump pending = TakePendingJump(pAviInfo);
        StartOver(pAviInfo);
        ArmAgain(pAviInfo, pending);
    }
    return SeekAndRemember(pAviInfo, pAviInfo->moviOffset, kFromStart) ? LX_OK : LX_ERR_AVIREAD_SEEK;
}

UInt32 lxAviReadCore_SetAbortFlag(Bool bAbort)
{
    __atomic_store_n(&lxAviReadCore_AviInfo.bAbort, bAbort, __ATOMIC_RELAXED);
    return LX_OK;
}

Bool lxAviReadCore_GetAbortFlag(void) { return __atomic_load_n(&lxAviReadCore_AviInfo.bAbort, __ATOMIC_RELAXED); }

lxAviReadCore_AviInfo_t* lxAviReadCore_GetAviInfo(void) { return &lxAviReadCore_AviInfo; }

UInt32 lxAviReadCore_GetFile(FILE** ppFile)
{
    LX_ASSERT(ppFile != Null, "ppFile!= Null", "Parameter for lxAviReadCore_GetFile shouldn't be a null pointer");
    if (ppFile != Null) {
        *ppFile = lxAviReadCore_AviInfo.pFile;
    }
    return LX_OK;
}

int NOPRINT(const char* /*format*/, ...) { return 1; }
