// Open: opens the file, checks the RIFF form, walks the first RIFF list, and finds the extension lists behind it.
//
//   RIFF size "AVI "         riffSize
//     …                      the first list: DefaultWalk.cpp, FormatWalk.cpp
//   RIFF size "AVIX" …       extension lists: ExtensionLists.cpp
//
// Open builds no key-frame table, except from an OpenDML index on one level when the caller asks for it. The file is
// left wherever the walk ended.

#include "internal/Idx1Passes.hpp"
#include "internal/IndexPasses.hpp"
#include "internal/KeptChunks.hpp"
#include "internal/Memory.hpp"
#include "internal/Segments.hpp"
#include "internal/Streams.hpp"
#include "internal/Walk.hpp"

namespace lxAviReadCore {
namespace {

constexpr char kModuleName[] = "lxAviRead";

// The main header's has-index bit, as the walk found it.
void MarkHasIndex(lxAviReadCore_AviInfo_t* pAviInfo, bool bHasIndex)
{
    if (pAviInfo->AviHdr != Null) {
        const UInt32 other = pAviInfo->AviHdr->dwFlags & ~LX_AVIREAD_HAS_INDEX;
        pAviInfo->AviHdr->dwFlags = bHasIndex ? other | LX_AVIREAD_HAS_INDEX : other;
    }
}

// What the file begins with: "RIFF", size, "AVI ". It is read in one go.
struct RiffHeader {
    UInt32 uiCode;
    UInt32 uiSize;
    UInt32 uiForm;
};

UInt32 ReadRiffHeader(lxAviReadCore_AviInfo_t* pAviInfo)
{
    RiffHeader riff = {};
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(ReadRecord(pAviInfo, riff)));
    riff.uiSize = MakeEven(riff.uiSize);
    if (riff.uiCode != FourCC("RIFF") || riff.uiForm != FourCC("AVI ")) {
        LX_LOG(kLevelError, "AviReadCore : read data unknown %x (%2c%2c%2c%2c), size %x, data_ext %x", riff.uiCode,
               ByteOf(riff.uiCode, 3), ByteOf(riff.uiCode, 2), ByteOf(riff.uiCode, 1), ByteOf(riff.uiCode, 0),
               riff.uiSize, riff.uiForm);
        return LX_ERR_AVIREAD_NOT_AVI;
    }
    LX_LOG(kLevelHeader, "AviReadCore : Found Avi file (size= %d)", riff.uiSize);
    pAviInfo->riffSize = riff.uiSize - kListTypeBytes; // wraps at 32 bits
    pAviInfo->moviOffset = kListHeaderBytes;
    pAviInfo->audioStreamNr = -1;
    pAviInfo->videoStreamNr = -1;
    return LX_OK;
}

bool IsIndexParsed(const lxAviReadCore_AviInfo_t* pAviInfo, Int32 streamNr)
{
    const lxAviReadCore_StreamInfo_t* const pStream = FindStream(pAviInfo, streamNr);
    return pStream != Null && pStream->bIndexParsed == 1;
}

// Forgets which one-level indexes an earlier Open of the same file took in.
void ForgetParsedIndexes(lxAviReadCore_AviInfo_t* pAviInfo)
{
    for (lxAviReadCore_StreamInfo_t* pStream : pAviInfo->StreamInfo) {
        if (pStream != Null) {
            pStream->bIndexParsed = 0;
        }
    }
}

// Walks the first RIFF list. `bIndexFound` tells whether it holds an `idx1`.
UInt32 WalkFirstList(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 instance, bool& bIndexFound)
{
    return ChunksStandWhereSizesSay(pAviInfo) ? WalkByFormat(pAviInfo, instance, bIndexFound)
                                              : WalkByDefault(pAviInfo, instance, bIndexFound);
}

// Adds the lists behind the first RIFF list to the segment chain. In the default mode the OpenDML header of the first
// list has to promise them. The format mode looks for them in every file that can seek; in others the search would use
// up the first chunks.
UInt32 FindExtensions(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 instance)
{
    const bool bLook =
        ExtensionsNeedNoPromise(pAviInfo) ? lxalAviRead_FileSeekPossible != 0 : pAviInfo->bAvixPresent == 1;
    if (!bLook) {
        return LX_OK;
    }
    pAviInfo->bAvixPresent = 0;
    const UInt32 result = LX_AVIREAD_CALL(lxAviReadCore_ConstructAvixInfo(instance, pAviInfo));
    GoToFirstSegment(pAviInfo);
    return result;
}

// Walks the first RIFF list and concludes what follows from it.
UInt32 ParseFile(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 instance, Bool* pAllIndexed)
{
    bool bIndexFound = false;
    LX_AVIREAD_TRY(ReadRiffHeader(pAviInfo));
    LX_AVIREAD_TRY(WalkFirstList(pAviInfo, instance, bIndexFound));
    MarkHasIndex(pAviInfo, bIndexFound || pAviInfo->bIndxPresent != 0);
    SettleMainVideo(pAviInfo);
    *pAllIndexed = IsIndexParsed(pAviInfo, pAviInfo->videoStreamNr) && IsIndexParsed(pAviInfo, pAviInfo->audioStreamNr);
    pAviInfo->CurrentOffset = StartOfDelivery(pAviInfo);
    return FindExtensions(pAviInfo, instance);
}

// ---- The file ----

// What the caller of an Open has asked for.
struct Request {
    UInt32 instance;
    UInt32 maxReadAttempts;
    UInt32 memoryUsageLimit;
    UInt8 IndxOption;
    Bool* pAllIndexed;
};

// What comes before there is a file. If a record cannot be allocated, the error appears where the record is needed: a
// file of few streams opens without the last ones.
void BeginOpen(lxAviReadCore_AviInfo_t* pAviInfo, const Request& request, const char* path)
{
    pAviInfo->bAbsoluteOffsets = 0;
    *request.pAllIndexed = 0;
    if (glxalAviRead_debug_unit == LX_DBG_GLOBAL_UNIT) {
        lxDbg_RegisterModule(&glxalAviRead_debug_unit, kModuleName);
    }
    LX_LOG(kLevelEnter, "Entered lxAviReadCore_Open path=%s", path);
    static_cast<void>(lxAviReadCore_Alloc(request.instance));
}

// Closed on exec, so that a program that the player starts does not inherit the file.
UInt32 OpenFile(lxAviReadCore_AviInfo_t* pAviInfo, const char* path)
{
    static_cast<void>(lxAviReadCore_Reset()); // never fails
    LX_LOG(kLevelHeader, "AviReadCore : Opening %s", path);
    pAviInfo->pFile = fopen64(path, "rbe");
    if (pAviInfo->pFile == Null) {
        LX_LOG(kLevelError, "AviReadCore : Error Opening file on path \"%s\"", path);
        return LX_ERR_AVIREAD_OPEN;
    }
    return LX_OK;
}

// Takes a stream that the caller has opened. It may be the one that is open already.
void TakeStream(lxAviReadCore_AviInfo_t* pAviInfo, FILE* pStream)
{
    if (pAviInfo->pFile == pStream) {
        pAviInfo->pFile = Null;
    }
    static_cast<void>(lxAviReadCore_Reset()); // never fails
    pAviInfo->pFile = pStream;
}

void CleanUpAfterFailure(lxAviReadCore_AviInfo_t* pAviInfo)
{
    lxAviReadCore_FreeAllocatedMemory(pAviInfo);
    pAviInfo->CurrentOffset = kStartInMovi;
}

UInt32 ReadFile(lxAviReadCore_AviInfo_t* pAviInfo, const Request& request, const char* path)
{
    if (pAviInfo->pFile == Null || file_buffer == Null) {
        LX_LOG(kLevelError, "AviReadCore : Path is not defined \"%s\" ", path);
        return LX_ERR_AVIREAD_OPEN;
    }
    pAviInfo->maxReadAttempts = request.maxReadAttempts;
    pAviInfo->IndxOption = request.IndxOption;
    pAviInfo->memoryUsageLimit = request.memoryUsageLimit;
    LX_LOG(kLevelHeader, "AviReadCore : Begin reading of file \"%s\" ", path);
    lxalAviRead_FileSeekPossible = 1;
    ForgetParsedIndexes(pAviInfo);
    ForgetIndexSurvey();
    ReleaseKeptChunks();
    ForgetTotals();
    SetIdx1OffsetBase(0);
    return ParseFile(pAviInfo, request.instance, request.pAllIndexed);
}

// Concludes an Open with its result.
UInt32 EndOpen(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 result)
{
    if (result != LX_OK) {
        CleanUpAfterFailure(pAviInfo);
    }
    ReleaseMetaDataBuffer(pAviInfo);
    LX_LOG(kLevelLeave, "Leaving lxAviReadCore_Open");
    return result;
}

} // namespace
} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_Open(UInt32 instance, const char* path, UInt32 maxReadAttempts, UInt32 memoryUsageLimit,
                          UInt8 IndxOption, Bool* pAllIndexed)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    Bool ignored = 0;
    LX_ASSERT(path != Null, "path!= Null", "Parameter path for lxAviReadCore_Open shouldn't be a null pointer");
    LX_ASSERT(pAllIndexed != Null, "pAllIndexed!= Null",
              "Parameter pAllIndexed for lxAviReadCore_Open shouldn't be a null pointer");
    if (path == Null) {
        return LX_ERR_AVIREAD_OPEN;
    }
    const Request request = {instance, maxReadAttempts, memoryUsageLimit, IndxOption,
                             pAllIndexed != Null ? pAllIndexed : &ignored};
    BeginOpen(pAviInfo, request, path);
    UInt32 result = path[0] != '\0' ? OpenFile(pAviInfo, path) : LX_OK;
    if (result == LX_OK) {
        result = ReadFile(pAviInfo, request, path);
    }
    return EndOpen(pAviInfo, result);
}

UInt32 lxAviReadCore_OpenStream(UInt32 instance, FILE* pStream, UInt32 maxReadAttempts, UInt32 memoryUsageLimit,
                                UInt8 IndxOption, Bool* pAllIndexed)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    Bool ignored = 0;
    LX_ASSERT(pStream != Null, "pStream!= Null",
              "Parameter pStream for lxAviReadCore_OpenStream shouldn't be a null pointer");
    LX_ASSERT(pAllIndexed != Null, "pAllIndexed!= Null",
              "Parameter pAllIndexed for lxAviReadCore_OpenStream shouldn't be a null pointer");
    if (pStream == Null) {
        return LX_ERR_AVIREAD_OPEN;
    }
    const Request request = {instance, maxReadAttempts, memoryUsageLimit, IndxOption,
                             pAllIndexed != Null ? pAllIndexed : &ignored};
    constexpr char kNoPath[] = "a stream of the caller";
    TakeStream(pAviInfo, pStream);
    BeginOpen(pAviInfo, request, kNoPath);
    return EndOpen(pAviInfo, ReadFile(pAviInfo, request, kNoPath));
}
