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

void LogMissingFrameRate(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    const lxAviReadCore_StreamInfo_t* const pVideo = FindStream(pAviInfo, pAviInfo->videoStreamNr);
    if (VideoTimeIsByStream(pAviInfo) && pVideo != Null && HasNoFrameRate(pAviInfo, *pVideo)) {
        LX_LOG(kLevelError, "AviReadCore : no header gives the frame rate of stream %d, its times are 0",
               pAviInfo->videoStreamNr);
    }
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
    LogMissingFrameRate(pAviInfo);
    onlyKeyFrames = pAviInfo->videoStreamNr >= 0 &&
                    lxAviReadCore_HasOnlyKeyFrames(static_cast<UInt32>(pAviInfo->videoStreamNr)) == 1;
    *pAllIndexed = IsIndexParsed(pAviInfo, pAviInfo->videoStreamNr) && IsIndexParsed(pAviInfo, pAviInfo->audioStreamNr);
    pAviInfo->CurrentOffset = StartOfDelivery(pAviInfo);
    return FindExtensions(pAviInfo, instance);
}

// ---- The file ----

UInt32 OpenFile(lxAviReadCore_AviInfo_t* pAviInfo, const char* path)
{
    static_cast<void>(lxAviReadCore_Reset()); // never fails
    LX_LOG(kLevelHeader, "AviReadCore : Opening %s", path);
    pAviInfo->pFile = fopen64(path, "rb");
    if (pAviInfo->pFile == Null) {
        LX_LOG(kLevelError, "AviReadCore : Error Opening file on path \"%s\"", path);
        return LX_ERR_AVIREAD_OPEN;
    }
    return LX_OK;
}

UInt32 OpenPath(lxAviReadCore_AviInfo_t* pAviInfo, const char* path)
{
    if (path[0] != '\0') {
        LX_AVIREAD_TRY(OpenFile(pAviInfo, path));
    }
    if (pAviInfo->pFile == Null || file_buffer == Null) {
        LX_LOG(kLevelError, "AviReadCore : Path is not defined \"%s\" ", path);
        return LX_ERR_AVIREAD_OPEN;
    }
    return LX_OK;
}

void CleanUpAfterFailure(lxAviReadCore_AviInfo_t* pAviInfo)
{
    lxAviReadCore_FreeAllocatedMemory(pAviInfo);
    pAviInfo->CurrentOffset = kStartInMovi;
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
    pAllIndexed = pAllIndexed != Null ? pAllIndexed : &ignored;

    pAviInfo->bAbsoluteOffsets = 0;
    *pAllIndexed = 0;
    if (glxalAviRead_debug_unit == LX_DBG_GLOBAL_UNIT) {
        lxDbg_RegisterModule(&glxalAviRead_debug_unit, kModuleName);
    }
    LX_LOG(kLevelEnter, "Entered lxAviReadCore_Open path=%s", path);
    // If a record cannot be allocated, the error appears where the record is needed: a file of few streams opens
    // without the last ones.
    static_cast<void>(lxAviReadCore_Alloc(instance));

    UInt32 result = OpenPath(pAviInfo, path);
    if (result == LX_OK) {
        pAviInfo->maxReadAttempts = maxReadAttempts;
        pAviInfo->IndxOption = IndxOption;
        pAviInfo->memoryUsageLimit = memoryUsageLimit;
        LX_LOG(kLevelHeader, "AviReadCore : Begin reading of file \"%s\" ", path);
        lxalAviRead_FileSeekPossible = 1;
        ForgetParsedIndexes(pAviInfo);
        ForgetIndexSurvey();
        SetIdx1OffsetBase(0);
        result = ParseFile(pAviInfo, instance, pAllIndexed);
    }
    if (result != LX_OK) {
        CleanUpAfterFailure(pAviInfo);
    }
    ReleaseMetaDataBuffer(pAviInfo);
    LX_LOG(kLevelLeave, "Leaving lxAviReadCore_Open");
    return result;
}
