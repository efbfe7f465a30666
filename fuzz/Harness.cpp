#include "Harness.hpp"

#include "lxDbgHost.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {
FILE* __wrap_fopen64(const char* path, const char* mode);
void* __wrap_malloc(size_t bytes);
void* __wrap_realloc(void* pBlock, size_t bytes);
void* __real_malloc(size_t bytes);
void* __real_realloc(void* pBlock, size_t bytes);
}

namespace lxfuzz {
namespace {

Input s_file;
std::int64_t s_position;

// ---- Faults ----

enum Fault : UInt8 { kShortRead, kFailedRead, kEndOfFile, kFailedSeek, kFailedAllocation, kAbort, kFaults };

Input s_script;
UInt32 s_turns[kFaults]; // number of operations so far, by the kind of fault that the operation can meet

// Counts an operation, and returns whether it meets a scripted fault.
bool Meets(Fault fault)
{
    const UInt32 turn = ++s_turns[fault];
    for (size_t i = 0; i + 1 < s_script.size(); i += 2) {
        if (s_script[i] % kFaults == fault && s_script[i + 1] == turn) {
            return true;
        }
    }
    return false;
}

// ---- The file ----

ssize_t Read(void* /*pCookie*/, char* pBuffer, size_t bytes)
{
    if (Meets(kAbort)) {
        static_cast<void>(lxAviReadCore_SetAbortFlag(1));
    }
    if (Meets(kFailedRead)) {
        errno = EIO;
        return -1;
    }
    const auto size = static_cast<std::int64_t>(s_file.size());
    if (Meets(kEndOfFile) || s_position >= size) {
        return 0;
    }
    size_t given = std::min(bytes, static_cast<size_t>(size - s_position));
    if (Meets(kShortRead)) {
        given = (given + 1) / 2;
    }
    std::memcpy(pBuffer, s_file.data() + s_position, given);
    s_position += static_cast<std::int64_t>(given);
    return static_cast<ssize_t>(given);
}

int Seek(void* /*pCookie*/, off64_t* pOffset, int whence)
{
    const std::int64_t from[] = {0, s_position, static_cast<std::int64_t>(s_file.size())};
    std::int64_t target = 0;
    if (Meets(kFailedSeek) || __builtin_add_overflow(from[whence], *pOffset, &target) || target < 0) {
        errno = EINVAL;
        return -1;
    }
    s_position = target;
    *pOffset = target;
    return 0;
}

[[noreturn]] void Fail(const char* pText)
{
    std::fprintf(stderr, "broken: %s\n", pText);
    std::abort();
}

// ---- The player ----

// Reads a payload in pieces, because the file can state any size.
bool ReadPayload(UInt32 size)
{
    UInt32 buffer[1024]; // four times the size of a piece (quirk Q06)
    for (UInt32 left = size; left > 0;) {
        const UInt32 piece = std::min<UInt32>(left, sizeof buffer / 4);
        if (lxAviReadCore_GetChunk(buffer, piece) != LX_OK) {
            return false;
        }
        left -= piece;
    }
    return true;
}

} // namespace

void Serve(Input file)
{
    lxDbg_LogToCallback(nullptr, nullptr, nullptr); // damaged input makes many assertions fail
    s_file = file;
    ScriptFaults({});
}

void ScriptFaults(Input script)
{
    s_script = script;
    std::memset(s_turns, 0, sizeof s_turns);
}

bool Play(UInt32 chunks, UInt32 audioTrack)
{
    for (; chunks > 0; --chunks) {
        lxAviRead_ChunkData_t chunk = {};
        Bool jumped = 0;
        switch (lxAviReadCore_NextChunk(&chunk, audioTrack, 0, &jumped)) {
        case LX_OK:
            if (!ReadPayload(chunk.uiSize)) {
                return false;
            }
            break;
        case LX_AVIREAD_END_OF_MEDIA:
        case LX_ERR_AVIREAD_READ:
        case LX_ERR_AVIREAD_EOF:
        case LX_ERR_AVIREAD_ABORTED:
        case LX_ERR_AVIREAD_SEEK:
        case LX_ERR_AVIREAD_JUMP_RANGE: return false;
        case LX_ERR_AVIREAD_BAD_STREAM: break;
        default:
            if (lxAviReadCore_RemoveChunk(chunk.uiSize) != LX_OK) {
                return false;
            }
            lxAviReadCore_IncreaseOffset(chunk.uiSize);
        }
    }
    return true;
}

// The calls that only ask.
void CallQueries(UInt8 argument)
{
    UInt32 size = 0;
    UInt8 buffer[100];
    static_cast<void>(lxAviReadCore_GetStreamBytes(argument % 20, argument % 5, buffer, argument % 101, &size));
    static_cast<void>(lxAviReadCore_GetFileText(0x4D414E49, reinterpret_cast<char*>(buffer), argument % 101)); // "INAM"
    lxAviRead_StreamSummary_t summary = {};
    static_cast<void>(lxAviReadCore_GetStreamSummary(argument % 20, &summary));
    lxAviRead_TableSummary_t table = {};
    static_cast<void>(lxAviReadCore_GetTableSummary(&table));
    if (table.uiStored > table.uiKeyFrames || (table.uiStored > 0) != (table.uiStep > 0)) {
        Fail("a table holds more key frames than there are");
    }
    if (*lxAviReadCore_ResultText(argument) == '\0') {
        Fail("a result has no text");
    }
    static_cast<void>(lxAviReadCore_GetReadSize(&size));
    static_cast<void>(lxAviReadCore_HasOnlyKeyFrames(argument));
    static_cast<void>(lxAviReadCore_GetFrameKind(argument % 20, buffer, argument % 101));
    static_cast<void>(lxAviReadCore_GetFileTextCode(argument));
    if (lxAviReadCore_GetStreamTimeUsec(argument, size, size) > lxAviReadCore_GetStreamTimeNsec(argument, size, size)) {
        Fail("a time has more microseconds than nanoseconds");
    }
    if (lxAviReadCore_GetStreamTime(argument, size, size) > lxAviReadCore_GetStreamTimeUsec(argument, size, size) &&
        (lxAviReadCore_GetAviInfo()->IndxOption & LX_AVIREAD_FOLLOW_FORMAT) != 0) {
        Fail("a time has more milliseconds than microseconds");
    }
}

// A progress function, and a visitor, that end the operation after some calls.
UInt32 CountDown(void* pUser, UInt64 done, UInt64 all)
{
    if (done > all) {
        Fail("more is done than there is");
    }
    UInt32& left = *static_cast<UInt32*>(pUser);
    left = left > 0 ? left - 1 : 0;
    return left;
}

UInt32 CheckChunk(void* pUser, const lxAviRead_MediaChunk_t* pChunk)
{
    UInt64& behind = *static_cast<UInt64*>(pUser);
    if (pChunk->uiOffset < behind || pChunk->uiDescriptor > pChunk->uiOffset ||
        pChunk->uiStreamNr >= LX_AVIREAD_STREAMS) {
        Fail("a chunk of a walk cannot be");
    }
    behind = pChunk->uiOffset + 8 + pChunk->uiSize;
    return 1;
}

void Walk()
{
    UInt64 behind = 0;
    static_cast<void>(lxAviReadCore_WalkMediaData(CheckChunk, &behind));
}

void Call(UInt8 code, UInt8 argument)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = lxAviReadCore_GetAviInfo();
    lxAviRead_ChunkData_t chunk = {};
    Bool flag = 0;
    UInt32 left = argument;
    const auto track = static_cast<Int32>(argument % 10) - 1;
    switch (code % 25) {
    case 0: Play(argument, argument % 9); break;
    case 1: static_cast<void>(lxAviReadCore_SeekToTime(argument * 97u, track, argument % 4)); break;
    case 2: static_cast<void>(lxAviReadCore_SetJumpToNextKeyFrame(&flag, track)); break;
    case 3: static_cast<void>(lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(&flag, track)); break;
    case 4: static_cast<void>(lxAviReadCore_SetJumpToPrevKeyFrame(&flag, track)); break;
    case 5: static_cast<void>(lxAviReadCore_JumpInKeyFrames(static_cast<Int32>(argument) - 128, track)); break;
    case 6: static_cast<void>(lxAviReadCore_SetOnKeyFrame_AudioAndVideo(track)); break;
    case 7: lxAviReadCore_RewindToStart(); break;
    case 8: static_cast<void>(lxAviReadCore_ParseIndex(0)); break;
    case 9: static_cast<void>(lxAviReadCore_SetAbortFlag(argument & 1)); break;
    case 10: static_cast<void>(lxAviReadCore_PositionTheFileHandleToPlayData(pAviInfo)); break;
    case 11: static_cast<void>(lxAviReadCore_Open(0, "", argument % 3, argument * 8192u, argument, &flag)); break;
    case 12: static_cast<void>(lxAviReadCore_Open(0, "input", argument % 3, argument * 8192u, argument, &flag)); break;
    case 13: static_cast<void>(lxAviReadCore_Reset()); break;
    case 14: static_cast<void>(lxAviReadCore_ConstructAvixInfo(0, pAviInfo)); break;
    case 15: static_cast<void>(lxAviReadCore_FileSeek(pAviInfo, argument, 0)); break;
    case 16: static_cast<void>(lxAviReadCore_NextChunk(&chunk, argument, argument, &flag)); break; // skips no payload
    case 17: CallQueries(argument); break;
    case 18:
        static_cast<void>(
            lxAviReadCore_OpenStream(0, fopen64("input", "rb"), argument % 3, argument * 8192u, argument, &flag));
        break;
    case 19: static_cast<void>(lxAviReadCore_SelectVideoStream(argument % 18)); break;
    case 20: static_cast<void>(lxAviReadCore_ParseMediaData(0, CountDown, &left)); break;
    case 21: Walk(); break;
    case 22: static_cast<void>(lxAviReadCore_SeekToTimeNsec(argument * 97000003u, track, argument % 4)); break;
    case 23: lxAviReadCore_DeliverAllTracks(argument & 1); break;
    default: static_cast<void>(lxAviReadCore_RemoveChunk(argument)); break;
    }
}

void CheckTable(UInt32 budget)
{
    const lxAviReadCore_AviInfo_t& info = *lxAviReadCore_GetAviInfo();
    const UInt64 leafs = info.KeyFramesListAsArrayLength;
    if (leafs * (sizeof(lxAviReadCore_KeyFrameLeaf_t) + sizeof(void*)) > budget) {
        Fail("the table exceeds its budget");
    }
    for (UInt64 i = 0; i < leafs; ++i) {
        const lxAviReadCore_KeyFrameLeaf_t& leaf = *info.KeyFramesListAsArray[i];
        if (leaf.arrayLength > LEAF_ARRAY_LENGTH) {
            Fail("a leaf is too long");
        }
        if (i > 0 && leaf.arrayLength > 0 && info.KeyFramesListAsArray[i - 1]->arrayLength != LEAF_ARRAY_LENGTH) {
            Fail("a leaf before the last one in use is not full");
        }
    }
}

void CloseAndCheck()
{
    static const lxAviReadCore_AviInfo_t kZero = {};
    s_script = {};
    if (lxAviReadCore_Close() != LX_OK || std::memcmp(lxAviReadCore_GetAviInfo(), &kZero, sizeof kZero) != 0) {
        Fail("Close leaves something in the state");
    }
}

Parts Split(const UInt8* pData, size_t size, size_t scriptBytes)
{
    const Input input(pData, size);
    const size_t script = std::min(size, scriptBytes);
    return {input.first(size - script), input.last(script)};
}

} // namespace lxfuzz

FILE* __wrap_fopen64(const char* /*path*/, const char* mode)
{
    lxfuzz::s_position = 0;
    return fopencookie(nullptr, mode, {lxfuzz::Read, nullptr, lxfuzz::Seek, nullptr});
}

void* __wrap_malloc(size_t bytes) { return lxfuzz::Meets(lxfuzz::kFailedAllocation) ? nullptr : __real_malloc(bytes); }

void* __wrap_realloc(void* pBlock, size_t bytes)
{
    return lxfuzz::Meets(lxfuzz::kFailedAllocation) ? nullptr : __real_realloc(pBlock, bytes);
}
