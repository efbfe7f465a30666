// Access to the file: the read loop, seeks, skips, and the account of where delivery stands.
//
// Reads block. One read makes at most `maxReadAttempts` attempts, and always one:
//
//   attempt ► all there ─────────────► LX_OK
//         ├─► end of file ───────────► LX_ERR_AVIREAD_EOF
//         ├─► short, abort flag set ─► LX_ERR_AVIREAD_ABORTED
//         └─► short ──► again, or, with the attempts used up, LX_ERR_AVIREAD_READ
//
// `CurrentOffset` is the position of delivery. It counts from the "movi" code, so that the first chunk is at 4, or is
// a file offset when `bAbsoluteOffsets` says so.

#include "internal/Chunk.hpp"
#include "internal/Segments.hpp"

#include <algorithm>

namespace lxAviReadCore {
namespace {

constexpr MessageRow<ReadText> kCoreReadMessages[] = {
    {ReadText::EndOfFile, kLevelEndOfFile,
     "leaving lxAviReadCore_FileRead()-eof.err=0x%x(%d). only %d bytes left unread"},
    NoMessage(ReadText::Exhausted),
};
static_assert(IsMessageTable(kCoreReadMessages, kReadTextArguments));

constexpr UInt32 kJunkBytes = 1024;     // skipped at a time; inputs that cannot seek are read
constexpr UInt32 kLongSkipBytes = 8192; // two buffers of stdio: a shorter skip is read, because most of it is there

UInt32 s_uiReadSize; // bytes that the last read for a caller has brought

// Reads the bytes of a piece that the buffer has no room for.
size_t ReadAndDrop(FILE* pFile, size_t left)
{
    UInt8 dropped[256];
    size_t total = 0;
    while (left > 0) {
        const size_t wanted = std::min(left, sizeof dropped);
        const size_t got = ReadBytes(pFile, dropped, wanted);
        total += got;
        if (got < wanted) {
            break;
        }
        left -= got;
    }
    return total;
}

// One attempt: `left` bytes to `position` of the buffer, those beyond its capacity to nowhere.
size_t ReadPiece(FILE* pFile, const ReadTarget& target, UInt64 position, size_t left)
{
    const size_t room = position < target.capacity ? target.capacity - static_cast<size_t>(position) : 0;
    const size_t wanted = std::min(room, left);
    const size_t got = wanted > 0 ? ReadBytes(pFile, static_cast<UInt8*>(target.pBuffer) + position, wanted) : 0;
    const bool bRoomIsUsedUp = got == wanted && wanted < left;
    return bRoomIsUsedUp ? got + ReadAndDrop(pFile, left - wanted) : got;
}

// Stores the number of bytes that have not come, where somebody wants to know it.
void Tell(UInt32* pLacking, UInt32 lacking)
{
    if (pLacking != Null) {
        *pLacking = lacking;
    }
}

// Reads and drops `size` bytes, and adds to `skipped` how many came.
UInt32 ReadJunk(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size, UInt32& skipped)
{
    for (UInt32 left = size; left > 0;) {
        LX_AVIREAD_TRY(HearAbort(pAviInfo));
        const UInt32 piece = std::min(left, kJunkBytes);
        UInt32 junk[kJunkBytes / sizeof(UInt32)];
        UInt32 lacking = 0;
        const UInt32 result = ReadLoop(pAviInfo, kCoreRead, {junk, sizeof junk, piece}, &lacking);
        skipped += result == LX_OK ? piece : piece - lacking;
        LX_AVIREAD_TRY(result);
        left -= piece;
    }
    return LX_OK;
}

// Seeks over all bytes but the last one, which is read, so that the end of the file is noticed.
bool SeekOver(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size)
{
    return size > kLongSkipBytes && LongSkipsSeek(pAviInfo) && lxalAviRead_FileSeekPossible != 0 &&
           !IsAborted(pAviInfo) && SeekAndRemember(pAviInfo, size - 1, kFromHere);
}

// Leaves the file where a skip began that an abort has ended. An input that cannot seek has lost what was skipped.
void UndoSkip(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 skipped)
{
    if (AbortsAreHeard(pAviInfo) && lxalAviRead_FileSeekPossible != 0 && skipped > 0) {
        SeekAndRemember(pAviInfo, UInt64{0} - skipped, kFromHere);
    }
}

// Goes on with a read whose first attempt brought `got` bytes, which is less than it wants.
UInt32 ContinueRead(lxAviReadCore_AviInfo_t* pAviInfo, const ReadFamily& family, const ReadTarget& target, size_t got,
                    UInt32* pLacking)
{
    UInt64 position = 0;
    UInt32 left = target.uiSize;
    for (UInt32 attempts = 1; got < left; ++attempts) {
        if (lxAviReadCore_FileEof(pAviInfo) != 0) {
            Tell(pLacking, left - static_cast<UInt32>(got));
            // Quirk Q05: the message names the read error, the result is the end of the file.
            LogRow(family.pMessages, ReadText::EndOfFile, LX_ERR_AVIREAD_READ, static_cast<Int32>(LX_ERR_AVIREAD_READ),
                   left + target.uiOthers);
            return LX_ERR_AVIREAD_EOF;
        }
        position += ReadAdvance(pAviInfo, got);
        left -= static_cast<UInt32>(got);
        Tell(pLacking, left);
        if (family.bAbortable && IsAborted(pAviInfo)) {
            return LX_ERR_AVIREAD_ABORTED;
        }
        if (attempts >= pAviInfo->maxReadAttempts) {
            LogRow(family.pMessages, ReadText::Exhausted, LX_ERR_AVIREAD_READ, static_cast<Int32>(LX_ERR_AVIREAD_READ),
                   left + target.uiOthers);
            return LX_ERR_AVIREAD_READ;
        }
        got = ReadPiece(pAviInfo->pFile, target, position, left);
    }
    return LX_OK;
}

} // namespace

const ReadFamily kCoreRead = {true, kCoreReadMessages};

UInt32 ReadLoop(lxAviReadCore_AviInfo_t* pAviInfo, const ReadFamily& family, const ReadTarget& target, UInt32* pLacking)
{
    if (pAviInfo->pFile == Null) {
        return LX_ERR_AVIREAD_READ;
    }
    const bool bFits = target.uiSize > 0 && target.uiSize <= target.capacity;
    const size_t got = bFits ? ReadBytes(pAviInfo->pFile, target.pBuffer, target.uiSize)
                             : ReadPiece(pAviInfo->pFile, target, 0, target.uiSize);
    return got == target.uiSize ? LX_OK : ContinueRead(pAviInfo, family, target, got, pLacking);
}

UInt32 ReadOneWord(lxAviReadCore_AviInfo_t* pAviInfo, const ReadFamily& family, void* pWord)
{
    if (pAviInfo->pFile == Null) {
        return LX_ERR_AVIREAD_READ;
    }
    UInt32 word = 0;
    const size_t got = ReadWord(pAviInfo->pFile, word);
    if (got == kWordBytes) {
        std::memcpy(pWord, &word, kWordBytes);
        return LX_OK;
    }
    const UInt32 part = word; // a copy, because `word` stays in a register if nothing takes its address
    std::memcpy(pWord, &part, got);
    return ContinueWord(pAviInfo, family, pWord, kWordBytes, got);
}

UInt32 ContinueWord(lxAviReadCore_AviInfo_t* pAviInfo, const ReadFamily& family, void* pWord, UInt32 size, size_t got)
{
    return ContinueRead(pAviInfo, family, {pWord, size, size}, got, Null);
}

UInt32 ReadForCaller(lxAviReadCore_AviInfo_t* pAviInfo, const ReadFamily& family, UInt32* pBuffer, UInt32 size)
{
    constexpr size_t kAnyCapacity = SIZE_MAX;
    s_uiReadSize = 0;
    if (pBuffer == Null) {
        return LX_OK;
    }
    UInt32 lacking = size; // of a read that fails before its first attempt
    const UInt32 result = ReadLoop(pAviInfo, family, {pBuffer, kAnyCapacity, size}, &lacking);
    s_uiReadSize = result == LX_OK ? size : size - lacking;
    return result;
}

void ForgetReadSize() { s_uiReadSize = 0; }

UInt32 ReadChunkHeader(lxAviReadCore_AviInfo_t* pAviInfo, ChunkHeader& chunk)
{
    LX_AVIREAD_TRY(ReadRecord(pAviInfo, chunk.uiCode));
    LX_AVIREAD_TRY(ReadRecord(pAviInfo, chunk.uiSize));
    chunk.uiPayload = chunk.uiSize;
    chunk.uiSize = MakeEven(chunk.uiSize);
    return LX_OK;
}

bool TellPosition(const lxAviReadCore_AviInfo_t* pAviInfo, UInt64& position)
{
    const std::int64_t told = ftello64(pAviInfo->pFile);
    position = static_cast<UInt64>(told);
    return told >= 0;
}

bool TellSize(lxAviReadCore_AviInfo_t* pAviInfo, UInt64& size)
{
    return lxAviReadCore_FileSeek(pAviInfo, 0, kFromEnd) != 0 && TellPosition(pAviInfo, size);
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

void lxAviReadCore_GetFilePosition(UInt64* pPosition)
{
    LX_ASSERT(pPosition != Null, "pPosition!= Null",
              "Parameter for lxAviReadCore_GetFilePosition shouldn't be a null pointer");
    if (pPosition == Null) {
        return;
    }
    *pPosition = FileOffsetOf(&lxAviReadCore_AviInfo, lxAviReadCore_AviInfo.CurrentOffset);
}

void lxAviReadCore_IncreaseOffset(UInt32 count) { lxAviReadCore_AviInfo.CurrentOffset += count; }

UInt32 lxAviReadCore_GetReadSize(UInt32* pSize)
{
    LX_ASSERT(pSize != Null, "pSize!= Null", "Parameter for lxAviReadCore_GetReadSize shouldn't be a null pointer");
    if (pSize != Null) {
        *pSize = ReadSizeIsTold(&lxAviReadCore_AviInfo) ? s_uiReadSize : 0;
    }
    return LX_OK;
}

UInt32 lxAviReadCore_RemoveChunk(UInt32 size)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    if (size == 0) {
        // Quirk Q08: it sounds like a failure and is none.
        LX_LOG(kLevelBadParameter,
               "lxAviReadCore_RemoveChunk : size == 0 something is wrong returning LX_ERR_BAD_PARAMETER");
        return LX_OK;
    }
    UInt32 skipped = SeekOver(pAviInfo, size) ? size - 1 : 0;
    const UInt32 result = ReadJunk(pAviInfo, size - skipped, skipped);
    if (result == LX_ERR_AVIREAD_ABORTED) {
        UndoSkip(pAviInfo, skipped);
    }
    return result;
}
