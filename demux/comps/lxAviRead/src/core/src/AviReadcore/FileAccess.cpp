// Access to the file: the read loop, seeks, skips, and the account of where delivery stands.
//
// Reads are blocking `fread` calls of element size 1. One read makes at most `maxReadAttempts` of them and always one:
//
//   fread ──► all there ─────────────► LX_OK
//         ├─► end of file ───────────► LX_ERR_AVIREAD_EOF
//         ├─► short, abort flag set ─► LX_ERR_AVIREAD_ABORTED
//         └─► short ──► again, or, with the attempts used up, LX_ERR_AVIREAD_READ
//
// `CurrentOffset` is the position of delivery. It counts from the "movi" code, so that the first chunk is at 4, or is
// a file offset when `bAbsoluteOffsets` says so.

#include "internal/Chunk.hpp"
#include "internal/State.hpp"

#include <algorithm>

namespace lxAviReadCore {

const ReadFamily kCoreRead = {
    true,
    kTextList<LX_PACKED(kLevelEndOfFile, "leaving lxAviReadCore_FileRead()-eof.err=0x%x(%d). only %d bytes left unread"),
              LX_NO_TEXT>};

namespace {

constexpr UInt32 kJunkBytes = 1024; // skipped at a time; a seek would not do for inputs that cannot seek
constexpr UInt64 kMoviCodeBytes = 4;

// The bytes of the pieces that a buffer has no room for.
[[gnu::cold]] size_t ReadAndDrop(FILE* pFile, size_t left)
{
    UInt8 dropped[256];
    size_t total = 0;
    while (left > 0) {
        const size_t wanted = std::min(left, sizeof dropped);
        const size_t got = fread(dropped, 1, wanted, pFile);
        total += got;
        if (got < wanted) {
            break;
        }
        left -= got;
    }
    return total;
}

// One attempt: `left` bytes to `position` of the buffer, those beyond its capacity to nowhere.
size_t ReadPiece(FILE* pFile, UInt8* pBuffer, size_t capacity, UInt64 position, size_t left)
{
    const size_t room = position < capacity ? capacity - static_cast<size_t>(position) : 0;
    const size_t wanted = std::min(room, left);
    const size_t got = wanted > 0 ? fread(pBuffer + position, 1, wanted, pFile) : 0;
    return got < wanted ? got : got + ReadAndDrop(pFile, left - wanted);
}

UInt32 SkipPiece(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 bytes)
{
    if (pAviInfo->pFile != Null && BufferedBytes(pAviInfo->pFile) >= bytes) {
        PassBuffered(pAviInfo->pFile, bytes);
        return LX_OK;
    }
    UInt32 junk[kJunkBytes / sizeof(UInt32)];
    return ReadLoop(pAviInfo, kCoreRead, junk, sizeof junk, bytes);
}

} // namespace

UInt32 ReadLoop(lxAviReadCore_AviInfo_t* pAviInfo, const ReadFamily& family, void* pBuffer, size_t capacity,
                UInt32 size, UInt32* pLeft)
{
    if (pAviInfo->pFile == Null) {
        return LX_ERR_AVIREAD_READ;
    }
    UInt64 position = 0;
    UInt32 left = size;
    UInt32 attempts = 0;
    do {
        const size_t got = ReadPiece(pAviInfo->pFile, static_cast<UInt8*>(pBuffer), capacity, position, left);
        ++attempts;
        if (got == left) {
            return LX_OK;
        }
        if (lxAviReadCore_FileEof(pAviInfo) != 0) {
            if (pLeft != Null) {
                *pLeft = left - static_cast<UInt32>(got);
            }
            // Quirk Q05: the message names the read error, the result is the end of the file.
            LX_LOG_TEXT(TextOf(family.texts, ReadText::EndOfFile), LX_ERR_AVIREAD_READ,
                        static_cast<Int32>(LX_ERR_AVIREAD_READ), left);
            return LX_ERR_AVIREAD_EOF;
        }
        // Quirk Q06: bytes received are applied as words
        position += FollowsFormat(pAviInfo) ? UInt64{got} : UInt64{4} * got;
        left -= static_cast<UInt32>(got);
        if (family.bAbortable && IsAborted(pAviInfo)) {
            return LX_ERR_AVIREAD_ABORTED;
        }
    } while (attempts < pAviInfo->maxReadAttempts);
    LX_LOG_TEXT(TextOf(family.texts, ReadText::Exhausted), LX_ERR_AVIREAD_READ, static_cast<Int32>(LX_ERR_AVIREAD_READ),
                left);
    return LX_ERR_AVIREAD_READ;
}

UInt32 ReadForCaller(lxAviReadCore_AviInfo_t* pAviInfo, const ReadFamily& family, UInt32* pBuffer, UInt32 size)
{
    constexpr size_t kAnyCapacity = SIZE_MAX;
    if (pBuffer == Null || TakeBuffered(pAviInfo->pFile, pBuffer, size)) {
        return LX_OK;
    }
    return ReadLoop(pAviInfo, family, pBuffer, kAnyCapacity, size);
}

UInt32 ReadChunkHeader(lxAviReadCore_AviInfo_t* pAviInfo, ChunkHeader& chunk)
{
    LX_AVIREAD_TRY(ReadRecord(pAviInfo, chunk.uiCode));
    LX_AVIREAD_TRY(ReadRecord(pAviInfo, chunk.uiSize));
    chunk.uiSize = MakeEven(chunk.uiSize);
    return LX_OK;
}

bool TellPosition(const lxAviReadCore_AviInfo_t* pAviInfo, UInt64& position)
{
    const std::int64_t told = ftello64(pAviInfo->pFile);
    position = static_cast<UInt64>(told);
    return told >= 0;
}

} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_FileRead(lxAviReadCore_AviInfo_t* pAviInfo, UInt32* buffer, UInt32 size)
{
    LX_ASSERT(buffer != Null, "buffer!= Null", "Parameter for lxAviReadCore_FileRead shouldn't be a null pointer");
    return ReadForCaller(pAviInfo, kCoreRead, buffer, size);
}

Bool lxAviReadCore_FileSeek(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 offset, Int32 origin)
{
    if (pAviInfo->pFile == Null) {
        return 0;
    }
    const int result = fseeko64(pAviInfo->pFile, SeekDistance(pAviInfo, offset), origin);
    return static_cast<UInt8>(result) == 0 ? 1 : 0;
}

Bool lxAviReadCore_FileEof(lxAviReadCore_AviInfo_t* pAviInfo)
{
    return pAviInfo->pFile != Null && feof(pAviInfo->pFile) != 0 ? 1 : 0;
}

[[gnu::cold]] void lxAviReadCore_GetFilePosition(UInt64* pPosition)
{
    LX_ASSERT(pPosition != Null, "pPosition!= Null",
              "Parameter for lxAviReadCore_GetFilePosition shouldn't be a null pointer");
    if (pPosition == Null) {
        return;
    }
    const lxAviReadCore_AviInfo_t& info = lxAviReadCore_AviInfo;
    *pPosition = info.bAbsoluteOffsets == 1 ? info.CurrentOffset : info.moviOffset + info.CurrentOffset - kMoviCodeBytes;
}

void lxAviReadCore_IncreaseOffset(UInt32 count)
{
    lxAviReadCore_AviInfo.CurrentOffset += count;
}

UInt32 lxAviReadCore_RemoveChunk(UInt32 size)
{
    if (size == 0) {
        // Quirk Q08: it sounds like a failure and is none.
        LX_LOG(kLevelBadParameter,
               "lxAviReadCore_RemoveChunk : size == 0 something is wrong returning LX_ERR_BAD_PARAMETER");
        return LX_OK;
    }
    for (UInt32 left = size; left > 0;) {
        const UInt32 piece = std::min(left, kJunkBytes);
        LX_AVIREAD_TRY(SkipPiece(&lxAviReadCore_AviInfo, piece));
        left -= piece;
    }
    return LX_OK;
}
