// Access to the file: the one read loop, reads of words and records, seeks.

#pragma once

#include "Bytes.hpp"
#include "Debug.hpp"
#include "Mode.hpp"
#include "Stdio.hpp"

namespace lxAviReadCore {

// ---- Reads ----

// The messages in which the core read and the read of the OpenDML index differ.
enum class ReadText : UInt32 {
    EndOfFile, // result twice, bytes left: the file ends inside a read
    Exhausted, // result twice, bytes left: the attempts are used up
    Count,
};
constexpr UInt8 kReadTextArguments[] = {3, 3};

// What the core read and the read of the OpenDML index differ in.
struct ReadFamily {
    bool bAbortable; // looks at the abort flag after a short read
    const MessageRow<ReadText>* pMessages;
};

extern const ReadFamily kCoreRead;
extern const ReadFamily kOpenDmlRead;

// Where the bytes of a read go. Bytes that do not fit into `capacity` are read and dropped.
struct ReadTarget {
    void* pBuffer;
    size_t capacity;
    UInt32 uiSize;       // bytes that the read wants
    UInt32 uiOthers = 0; // bytes that other reads of the same piece of the file want; messages count them as left
};

// Reads `target.uiSize` bytes, with bounded attempts. Where the read fails, `pLacking`, if given, receives the number of
// bytes that did not come.
[[nodiscard]] UInt32 ReadLoop(lxAviReadCore_AviInfo_t* pAviInfo, const ReadFamily& family, const ReadTarget& target,
                              UInt32* pLacking = Null);

// Reads one word.
[[nodiscard]] UInt32 ReadOneWord(lxAviReadCore_AviInfo_t* pAviInfo, const ReadFamily& family, void* pWord);

// Goes on with the read of a word whose first attempt brought `got` bytes, which is less than `size`.
[[nodiscard]] UInt32 ContinueWord(lxAviReadCore_AviInfo_t* pAviInfo, const ReadFamily& family, void* pWord, UInt32 size,
                                  size_t got);

// Reads bytes for a caller of the library, who must provide a large enough buffer.
[[nodiscard]] UInt32 ReadForCaller(lxAviReadCore_AviInfo_t* pAviInfo, const ReadFamily& family, UInt32* pBuffer,
                                   UInt32 size);

// Forgets how many bytes the last of these reads has brought.
void ForgetReadSize();

// Reads one record, or one word.
template <typename Record>
[[nodiscard]] UInt32 ReadRecord(lxAviReadCore_AviInfo_t* pAviInfo, Record& record, const ReadFamily& family = kCoreRead)
{
    static_assert(std::is_trivially_copyable_v<Record> && !std::is_pointer_v<Record>);
    if constexpr (sizeof record == kWordBytes) {
        return ReadOneWord(pAviInfo, family, &record);
    } else {
        return ReadLoop(pAviInfo, family, {&record, sizeof record, sizeof record});
    }
}

// ---- Positions ----

constexpr Int32 kFromStart = SEEK_SET;
constexpr Int32 kFromHere = SEEK_CUR;
constexpr Int32 kFromEnd = SEEK_END;
static_assert(kFromStart == 0 && kFromHere == 1, "the origins are those of stdio");

// Seeks and keeps the outcome in lxalAviRead_FileSeekPossible.
inline bool SeekAndRemember(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 offset, Int32 origin)
{
    lxalAviRead_FileSeekPossible = lxAviReadCore_FileSeek(pAviInfo, offset, origin);
    return lxalAviRead_FileSeekPossible != 0;
}

// Where the file stands; false for an input that cannot tell.
bool TellPosition(const lxAviReadCore_AviInfo_t* pAviInfo, UInt64& position);

// Bytes of the file, which stands anywhere afterwards; false for an input that cannot tell.
bool TellSize(lxAviReadCore_AviInfo_t* pAviInfo, UInt64& size);

// The abort flag is one byte that another thread may set at any time.
inline bool IsAborted(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    return __atomic_load_n(&pAviInfo->bAbort, __ATOMIC_RELAXED) == 1;
}

// Called between two reads of a walk, a search or a skip: in the format mode an abort ends it.
inline UInt32 HearAbort(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    return AbortsAreHeard(pAviInfo) && IsAborted(pAviInfo) ? UInt32{LX_ERR_AVIREAD_ABORTED} : LX_OK;
}

} // namespace lxAviReadCore
