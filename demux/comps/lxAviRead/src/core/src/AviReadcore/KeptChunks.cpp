// Chunks of the headers that are kept whole, in the format mode.
//
//   LIST size "strl"
//     strf size …   the format, with what the codec has appended to the fixed record
//     strd size …   data for the decoder
//     strn size …   the name of the stream
//     vprp size …   the properties of the picture: aspect, fields
//   LIST size "INFO"
//     INAM size …   the title, and other texts
//
// Of each chunk of a stream at most 64 KiB are kept. Of the texts at most 64 are kept, which together have at most 64
// KiB. So a damaged file cannot take much memory.

#include "internal/KeptChunks.hpp"
#include "internal/ListWalk.hpp"
#include "internal/Memory.hpp"
#include "internal/Streams.hpp"

#include <algorithm>

namespace lxAviReadCore {
namespace {

constexpr UInt32 kMostTexts = 64;
constexpr UInt32 kMostTextBytes = 64 * 1024;

// A kept chunk. Its bytes follow it in memory.
struct KeptChunk {
    KeptChunk* pNext;
    const lxAviReadCore_StreamInfo_t* pStream; // whose list holds it; null for a text of the file
    UInt32 uiCode;
    UInt32 uiSize; // in the file
    UInt32 uiKept; // bytes in memory

    UInt8* Bytes() { return reinterpret_cast<UInt8*>(this + 1); }
};

KeptChunk* s_pChunks;
UInt32 s_uiTexts;
UInt32 s_uiTextBytes;

// The place of the pointer to a chunk, or of the null pointer behind the last one.
KeptChunk** Find(const lxAviReadCore_StreamInfo_t* pStream, UInt32 code)
{
    KeptChunk** ppChunk = &s_pChunks;
    while (*ppChunk != Null && ((*ppChunk)->pStream != pStream || (*ppChunk)->uiCode != code)) {
        ppChunk = &(*ppChunk)->pNext;
    }
    return ppChunk;
}

// Forgets the chunk at that place, if there is one.
void Forget(KeptChunk** ppChunk)
{
    if (KeptChunk* const pChunk = *ppChunk; pChunk != Null) {
        *ppChunk = pChunk->pNext;
        std::free(pChunk);
    }
}

// Reads what is kept of a chunk behind its head, and skips the rest.
UInt32 ReadChunk(lxAviReadCore_AviInfo_t* pAviInfo, KeptChunk* pChunk, const ChunkHead& head)
{
    const UInt32 bytes = std::min(head.uiBytes, pChunk->uiKept);
    if (bytes > 0) {
        std::memcpy(pChunk->Bytes(), head.pBytes, bytes);
    }
    const UInt32 left = pChunk->uiKept - bytes;
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(ReadLoop(pAviInfo, kCoreRead, {pChunk->Bytes() + bytes, left, left})));
    const UInt32 beyond = pChunk->uiSize - pChunk->uiKept;
    return beyond > 0 ? LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(beyond)) : LX_OK;
}

// Goes on behind a chunk that cannot be read, where the input can seek: what is kept is worth less than the file.
UInt32 LeaveUnreadable(lxAviReadCore_AviInfo_t* pAviInfo, bool bPlaceKnown, UInt64 behind, UInt32 result)
{
    const bool bLeft = result == LX_ERR_AVIREAD_READ && bPlaceKnown && lxalAviRead_FileSeekPossible != 0 &&
                       SeekAndRemember(pAviInfo, behind, kFromStart);
    return bLeft ? LX_OK : result;
}

// Keeps the first `limit` bytes of a chunk, in place of an earlier one with the same code.
UInt32 Keep(lxAviReadCore_AviInfo_t* pAviInfo, const KeptChunk& chunk, UInt32 limit, const ChunkHead& head)
{
    const UInt32 kept = std::min(chunk.uiSize, limit);
    UInt64 start = 0;
    const bool bPlaceKnown = TellPosition(pAviInfo, start);
    auto* const pChunk = static_cast<KeptChunk*>(std::malloc(sizeof(KeptChunk) + kept));
    if (pChunk == Null) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    *pChunk = chunk;
    pChunk->uiKept = kept;
    Forget(Find(chunk.pStream, chunk.uiCode));
    if (const UInt32 result = ReadChunk(pAviInfo, pChunk, head); result != LX_OK) {
        std::free(pChunk);
        return LeaveUnreadable(pAviInfo, bPlaceKnown, start + chunk.uiSize - head.uiBytes, result);
    }
    pChunk->pNext = s_pChunks;
    s_pChunks = pChunk;
    return LX_OK;
}

// Takes the pad byte from a chunk's size.
void CutTo(KeptChunk* pChunk, UInt32 size)
{
    pChunk->uiSize = std::min(pChunk->uiSize, size);
    pChunk->uiKept = std::min(pChunk->uiKept, size);
}

// The first text with a code is kept.
UInt32 KeepText(lxAviReadCore_AviInfo_t* pAviInfo, const ChunkHeader& chunk)
{
    if (*Find(Null, chunk.uiCode) != Null) {
        return LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(chunk.uiSize));
    }
    const KeptChunk text = {Null, Null, chunk.uiCode, chunk.uiSize, 0};
    LX_AVIREAD_TRY(Keep(pAviInfo, text, kMostTextBytes - s_uiTextBytes, {}));
    if (KeptChunk* const pText = *Find(Null, chunk.uiCode); pText != Null) {
        ++s_uiTexts;
        s_uiTextBytes += pText->uiKept;
        CutTo(pText, chunk.uiPayload);
    }
    return LX_OK;
}

// The code of a kind of bytes that a caller asks for; 0 for an unknown kind.
constexpr UInt32 CodeOf(UInt32 kind)
{
    switch (kind) {
    case LX_AVIREAD_BYTES_STRF: return FourCC("strf");
    case LX_AVIREAD_BYTES_STRD: return FourCC("strd");
    case LX_AVIREAD_BYTES_STRN: return FourCC("strn");
    case LX_AVIREAD_BYTES_VPRP: return FourCC("vprp");
    default: return 0;
    }
}

// The bytes of a text up to the first zero byte. Of a text that is not kept whole they are all its bytes.
UInt32 TextLength(KeptChunk* pText)
{
    const void* const pZero = std::memchr(pText->Bytes(), 0, pText->uiKept);
    return pZero != Null ? static_cast<UInt32>(static_cast<const UInt8*>(pZero) - pText->Bytes()) : pText->uiSize;
}

} // namespace

UInt32 KeepChunk(lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t* pStream, UInt32 code, UInt32 size,
                 const ChunkHead& head)
{
    return Keep(pAviInfo, {Null, pStream, code, size, 0}, LX_AVIREAD_KEPT_BYTES, head);
}

void DropPadByte(const lxAviReadCore_StreamInfo_t* pStream, const ChunkHeader& chunk)
{
    if (KeptChunk* const pChunk = *Find(pStream, chunk.uiCode); pChunk != Null) {
        CutTo(pChunk, chunk.uiPayload);
    }
}

UInt32 KeepTexts(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size)
{
    ListWalk walk(pAviInfo, size, kListTypeBytes);
    while (walk.HasChunk() && s_uiTexts < kMostTexts) {
        ChunkHeader chunk = {};
        LX_AVIREAD_TRY(walk.Enter(chunk));
        LX_AVIREAD_TRY(KeepText(pAviInfo, chunk));
    }
    return walk.Leave();
}

void ReleaseKeptChunks()
{
    while (s_pChunks != Null) {
        Forget(&s_pChunks);
    }
    s_uiTexts = 0;
    s_uiTextBytes = 0;
}

} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_GetStreamBytes(UInt32 streamNr, UInt32 kind, void* pBuffer, UInt32 capacity, UInt32* pSize)
{
    const bool bGiven = pSize != Null && (pBuffer != Null || capacity == 0);
    LX_ASSERT(bGiven, "pSize!=Null && (pBuffer!=Null || capacity==0)", "pSize and pBuffer must be initialized");
    if (!bGiven) {
        return LX_OK;
    }
    const lxAviReadCore_StreamInfo_t* const pStream = FindStream(&lxAviReadCore_AviInfo, streamNr);
    KeptChunk* const pChunk = pStream != Null ? *Find(pStream, CodeOf(kind)) : Null;
    *pSize = pChunk != Null ? pChunk->uiSize : 0;
    if (const UInt32 bytes = pChunk != Null ? std::min(pChunk->uiKept, capacity) : 0; bytes > 0) {
        std::memcpy(pBuffer, pChunk->Bytes(), bytes);
    }
    return LX_OK;
}

UInt32 lxAviReadCore_GetFileText(UInt32 fourcc, char* pBuffer, UInt32 capacity)
{
    LX_ASSERT(pBuffer != Null || capacity == 0, "pBuffer!=Null || capacity==0", "pBuffer must be initialized");
    KeptChunk* const pText = *Find(Null, fourcc);
    const UInt32 length = pText != Null ? TextLength(pText) : 0;
    if (pBuffer == Null || capacity == 0) {
        return pBuffer == Null && capacity != 0 ? 0 : length;
    }
    const UInt32 copied = pText != Null ? std::min({length, pText->uiKept, capacity - 1}) : 0;
    if (copied > 0) {
        std::memcpy(pBuffer, pText->Bytes(), copied);
    }
    pBuffer[copied] = '\0';
    return length;
}

// The chunks are in a list with the one kept last in front.
UInt32 lxAviReadCore_GetFileTextCode(UInt32 index)
{
    const KeptChunk* pChunk = s_pChunks;
    for (UInt32 text = s_uiTexts; pChunk != Null; pChunk = pChunk->pNext) {
        if (pChunk->pStream == Null && --text == index) {
            return pChunk->uiCode;
        }
    }
    return 0;
}
