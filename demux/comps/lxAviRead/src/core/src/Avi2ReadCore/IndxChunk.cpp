// The `indx` chunk of a stream list: an index of index chunks, or an index of chunks on one level.
//
//   indx size
//     longs per entry (16), sub type (8), type (8), entries, chunk id
//     type 0: 3 reserved words, then entries of 16 bytes: offset (64), size, duration of an `ix##` chunk
//     type 1: base offset (64), reserved, then the records themselves
//
// A super index is only noted here; SuperIndex.cpp builds the table from it later. An index on one level builds the
// table inside Open, if the caller asks for that; the format mode notes it as a super index of one entry.

#include "internal/OpenDmlIndex.hpp"

#include <iterator>

namespace lxAviReadCore {
namespace {

// Bytes left to skip; bSkip is false once reading the chunk's own fields failed.
struct Padding {
    UInt32 uiRemaining; // wraps where a chunk claims more entries than it holds
    bool bSkip = true;
};

// Reads one of the chunk's own fields. After a failure nothing is skipped.
template <typename Record>
UInt32 ReadOwnField(lxAviReadCore_AviInfo_t* pAviInfo, Record& record, Padding& padding)
{
    const UInt32 result = LX_AVIREAD_CALL(ReadRecord(pAviInfo, record, kOpenDmlRead));
    padding.bSkip = result == LX_OK;
    return result;
}

constexpr UInt32 kFirstPiece = 64 * 1024; // bytes of entries that are allocated before any entry was read

// Reads the entries piece by piece. Each piece that the file really holds doubles the room, so that a large count in a
// small file costs no memory. For the message about the end of the file they are one read.
UInt32 ReadSuperIndexEntries(lxAviReadCore_AviInfo_t* pAviInfo, lxAviReadCore_StreamInfo_t* pStrInfo, UInt32 bytes)
{
    void* pEntries = pStrInfo->IndxChunk.pAviSuperIndexEntry;
    for (UInt32 done = 0; done < bytes;) {
        const UInt32 piece = std::min(bytes - done, std::max(done, kFirstPiece));
        void* const pGrown = std::realloc(pEntries, size_t{done} + piece);
        if (pGrown == Null) {
            return LX_ERR_AVIREAD_NO_MEMORY;
        }
        pEntries = pGrown;
        pStrInfo->IndxChunk.pAviSuperIndexEntry = static_cast<lxAviReadCore_AviSuperIndexEntry_t*>(pEntries);
        UInt8* const pPiece = static_cast<UInt8*>(pEntries) + done;
        std::memset(pPiece, 0, piece); // a read that goes on behind a short count leaves gaps
        const ReadTarget target = {.pBuffer = pPiece, .capacity = piece, .uiSize = piece, .uiOthers = bytes - piece};
        LX_AVIREAD_TRY(LX_AVIREAD_CALL(ReadLoop(pAviInfo, kOpenDmlRead, target)));
        done += piece;
    }
    return LX_OK;
}

// Allocates room for the first entries. The size is never 0, because a null pointer means that there is no index.
UInt32 AllocateSuperIndex(lxAviReadCore_StreamInfo_t* pStrInfo, UInt64 bytes)
{
    if (bytes > 0xFFFFFFFFu) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    const UInt64 first = std::clamp<UInt64>(bytes, 1, kFirstPiece);
    void* const pEntries = std::malloc(static_cast<size_t>(first));
    pStrInfo->IndxChunk.pAviSuperIndexEntry = static_cast<lxAviReadCore_AviSuperIndexEntry_t*>(pEntries);
    return pEntries != Null ? LX_OK : LX_ERR_AVIREAD_NO_MEMORY;
}

// Notes the entries for the walks over the index chunks.
UInt32 TakeSuperIndex(lxAviReadCore_AviInfo_t* pAviInfo, lxAviReadCore_StreamInfo_t* pStrInfo, Padding& padding)
{
    lxAviReadCore_IndxChunk_t& indx = pStrInfo->IndxChunk;
    if (ListsAreExact(pAviInfo)) { // the chunk has no room for more
        const UInt32 room = (padding.uiRemaining - kTypeSpecificBytes) / UInt32{sizeof *indx.pAviSuperIndexEntry};
        indx.aviIndxcommonSection.uiEntriesInUse = std::min(indx.aviIndxcommonSection.uiEntriesInUse, room);
    }
    const UInt64 bytes = UInt64{indx.aviIndxcommonSection.uiEntriesInUse} * sizeof *indx.pAviSuperIndexEntry;
    LX_AVIREAD_TRY(AllocateSuperIndex(pStrInfo, bytes));
    UInt32 result = ReadOwnField(pAviInfo, indx.aviIndxTypeSpecificSection.aviSuperIndex.uiReserved, padding);
    if (result == LX_OK) {
        result = ReadSuperIndexEntries(pAviInfo, pStrInfo, static_cast<UInt32>(bytes));
        padding.bSkip = result == LX_OK || result == LX_ERR_AVIREAD_NO_MEMORY;
    }
    if (result != LX_OK) {
        ReleaseSuperIndex(pStrInfo); // entries that were read in part are of no use
        return result;
    }
    padding.uiRemaining -= static_cast<UInt32>(bytes) + kTypeSpecificBytes;
    LX_LOG(kLevelIndex, "lxAviReadCore_ParseChunkIndx: It is AVI_INDEX_OF_INDEXES");
    return LX_OK;
}

UInt32 EntriesBytes(const lxAviReadCore_AviIndxChunkCommonSection_t& common)
{
    return EntryBytes(common) * common.uiEntriesInUse;
}

// Fills the table from the records that follow. They are read twice: counted, sought back over, and stored.
UInt32 BuildFromVideo(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, lxAviReadCore_StreamInfo_t* pStrInfo,
                      UInt32 size, Padding& padding)
{
    const auto common = pStrInfo->IndxChunk.aviIndxcommonSection;
    const auto& specific = pStrInfo->IndxChunk.aviIndxTypeSpecificSection.aviStdFieldIndex;
    if (pStrInfo->bIndexParsed == 1) {
        return LX_OK; // only once in a file: the seek back below must not lead to the same chunk again and again
    }
    if (static_cast<UInt16>(EntryBytes(common)) == 0) {
        return LX_ERR_AVIREAD_NO_INDEX; // the fill uses the low 16 bits of the size
    }
    LX_AVIREAD_TRY(SetBatchSize(pAviInfo, EntryBytes(common), kStandardIndex)); // GCOVR_EXCL_BR_LINE: not 0, see above
    if (!AcquireMetaDataBuffer(pAviInfo)) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    pAviInfo->bAbsoluteOffsets = 1;
    UInt32 numberOfKeyFrames = 0; // counted as 8-byte records, whatever the sub type
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(
        lxAvi2ReadCore_GetTotalKFramesInStdIndxChunk(pAviInfo, common.uiEntriesInUse, &numberOfKeyFrames)));
    padding.uiRemaining -= EntriesBytes(common);
    UInt32 neededLeafs = 0;
    UInt32 neededMemory = 0;
    UInt32 skipKey = 0;
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(lxAviReadCore_CalcLeafsNeededAndSkipValue(pAviInfo, &numberOfKeyFrames, &neededLeafs,
                                                                             &neededMemory, &skipKey)));
    if (!SeekAndRemember(pAviInfo, UInt64{0} - EntriesBytes(common), kFromHere)) {
        return LX_ERR_AVIREAD_SEEK;
    }
    return LX_AVIREAD_CALL(lxAvi2ReadCore_ParseVideoStdIndex(instance, pAviInfo, size, &common, specific.qwBaseOffset,
                                                             specific.dwReserved, skipKey, neededLeafs));
}

// Places the audio of the records that follow, if the video's index has filled the table before.
UInt32 BuildFromAudio(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, lxAviReadCore_StreamInfo_t* pStrInfo,
                      Padding& padding)
{
    const lxAviReadCore_StreamInfo_t* const pVideo = FindStream(pAviInfo, pAviInfo->videoStreamNr);
    if (pVideo == Null || pVideo->bIndexParsed != 1) {
        return LX_OK;
    }
    const auto common = pStrInfo->IndxChunk.aviIndxcommonSection;
    const auto& specific = pStrInfo->IndxChunk.aviIndxTypeSpecificSection.aviStdFieldIndex;
    const UInt32 result = LX_AVIREAD_CALL(
        lxAvi2ReadCore_ParseAudioStdIndex(instance, pAviInfo, &common, specific.qwBaseOffset, specific.dwReserved));
    padding.uiRemaining -= EntriesBytes(common);
    if (result == LX_OK) {
        pStrInfo->bIndexParsed = 1;
    }
    return result;
}

// Notes an index on one level as a super index of one entry. This works because the chunk has the layout of an `ix##`
// chunk.
UInt32 NoteAsSuperIndex(const lxAviReadCore_AviInfo_t* pAviInfo, lxAviReadCore_StreamInfo_t* pStrInfo, UInt32 size)
{
    UInt64 behindFields = 0;
    if (!TellPosition(pAviInfo, behindFields)) {
        return LX_ERR_AVIREAD_NO_INDEX;
    }
    LX_AVIREAD_TRY(AllocateSuperIndex(pStrInfo, sizeof(lxAviReadCore_AviSuperIndexEntry_t)));
    constexpr UInt32 kFieldBytes = kChunkHeaderBytes + kCommonBytes + kTypeSpecificBytes;
    *pStrInfo->IndxChunk.pAviSuperIndexEntry = {behindFields - kFieldBytes, size, 0};
    return LX_OK;
}

UInt32 StreamNrOf(const lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t* pStrInfo)
{
    const auto* const pFound = std::find(std::begin(pAviInfo->StreamInfo), std::end(pAviInfo->StreamInfo), pStrInfo);
    return static_cast<UInt32>(pFound - std::begin(pAviInfo->StreamInfo));
}

// Builds what the caller has asked Open to build: the table from the video's index, and the audio from an index behind
// it.
UInt32 BuildFromNoted(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, lxAviReadCore_StreamInfo_t* pStrInfo)
{
    const lxAviReadCore_StreamInfo_t* const pVideo = FindStream(pAviInfo, pAviInfo->videoStreamNr);
    UInt32 result = LX_OK;
    ForgetTotalsOf(StreamNrOf(pAviInfo, pStrInfo)); // of an earlier index in the same list
    if (pStrInfo == pVideo) {
        result = BuildVideoFromSuperIndex(instance, pAviInfo);
    } else if (pStrInfo->StreamType == LX_AVIREAD_STREAM_AUDIO && pVideo != Null && pVideo->bIndexParsed == 1) {
        result = PlaceStream(pAviInfo, StreamNrOf(pAviInfo, pStrInfo));
    } else {
        return LX_OK; // lxAviReadCore_ParseIndex builds it
    }
    pStrInfo->bIndexParsed = result == LX_OK ? 1 : 0;
    return result;
}

// Takes an index on one level in the format mode: notes it for lxAviReadCore_ParseIndex, and builds from it when the
// caller has asked for that.
UInt32 TakeOneLevel(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, lxAviReadCore_StreamInfo_t* pStrInfo,
                    UInt32 size, bool bBuild, Padding& padding)
{
    LX_AVIREAD_TRY(NoteAsSuperIndex(pAviInfo, pStrInfo, size));
    if (!bBuild) {
        return LX_OK;
    }
    const UInt32 result = BuildFromNoted(instance, pAviInfo, pStrInfo);
    padding.bSkip = false;
    ReleaseMetaDataBuffer(pAviInfo);
    const UInt64 behindChunk = pStrInfo->IndxChunk.pAviSuperIndexEntry->qwOffset + kChunkHeaderBytes + size;
    if (!SeekAndRemember(pAviInfo, behindChunk, kFromStart)) {
        return LX_ERR_AVIREAD_SEEK;
    }
    return IsUnusableIndex(result) ? LX_ERR_AVIREAD_NO_INDEX : result;
}

UInt32 TakeIndexOfChunks(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, lxAviReadCore_StreamInfo_t* pStrInfo,
                         UInt32 size, UInt8 indxOption, Padding& padding)
{
    LX_LOG(kLevelIndex, "lxAviReadCore_ParseChunkIndx: It is AVI_INDEX_OF_CHUNKS");
    lxAviReadCore_AviStdFieldIndex_t& specific = pStrInfo->IndxChunk.aviIndxTypeSpecificSection.aviStdFieldIndex;
    UInt8 fields[kTypeSpecificBytes] = {}; // read in one go
    LX_AVIREAD_TRY(ReadOwnField(pAviInfo, fields, padding));
    specific.qwBaseOffset = Load<UInt64>(fields);
    specific.dwReserved = Load<UInt32>(fields + sizeof specific.qwBaseOffset);
    padding.uiRemaining -= kTypeSpecificBytes;
    // Where the main header promises an `idx1`, the default mode leaves the table to that one.
    const lxAviRead_Avih_t* const pHeader = pAviInfo->AviHdr;
    const bool bIdx1Promised =
        pHeader != Null && (pHeader->dwFlags & LX_AVIREAD_HAS_INDEX) != 0; // GCOVR_EXCL_BR_LINE: no stream without it
    const bool bAskedFor = (indxOption & ~LX_AVIREAD_FOLLOW_FORMAT) == 1;
    if (OneLevelIndexesAreNoted(pAviInfo)) {
        return TakeOneLevel(instance, pAviInfo, pStrInfo, size, bAskedFor && !bIdx1Promised, padding);
    }
    if (bIdx1Promised) {
        return LX_OK;
    }
    const UInt32 streamNr = StreamOfChunks(pStrInfo->IndxChunk.aviIndxcommonSection.dwChunkId);
    if (pStrInfo->StreamType != LX_AVIREAD_STREAM_VIDEO || !IsMainVideoStream(pAviInfo, streamNr)) {
        return BuildFromAudio(instance, pAviInfo, pStrInfo, padding);
    }
    if (!bAskedFor) {
        return LX_OK;
    }
    const UInt32 result = BuildFromVideo(instance, pAviInfo, pStrInfo, size, padding);
    pStrInfo->bIndexParsed = result == LX_OK ? 1 : 0;
    return result;
}

UInt32 TakeIndx(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, lxAviReadCore_StreamInfo_t* pStrInfo, UInt32 size,
                UInt8 indxOption, Padding& padding)
{
    switch (pStrInfo->IndxChunk.aviIndxcommonSection.uiIndexType) {
    case kIndexOfIndexes: return TakeSuperIndex(pAviInfo, pStrInfo, padding);
    case kIndexOfChunks: return TakeIndexOfChunks(instance, pAviInfo, pStrInfo, size, indxOption, padding);
    default:
        LX_ASSERT(false, "(uiIndexType == (AVI_INDEX_OF_INDEXES || AVI_INDEX_OF_CHUNKS))", "Un supported Index type");
        return LX_OK;
    }
}

// Skips what is left of the chunk. A failure of the skip is the result only if there was no failure before.
UInt32 SkipPadding(const Padding& padding, UInt32 result)
{
    if (!padding.bSkip || padding.uiRemaining == 0) {
        return result;
    }
    LX_LOG(kLevelIndex, "lxAviReadCore_ParseChunkIndx: Dumping padded Bytes %d", padding.uiRemaining);
    const UInt32 skipped = LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(padding.uiRemaining));
    return result == LX_OK && skipped != LX_OK ? LX_ERR_AVIREAD_READ : result;
}

} // namespace
} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAvi2ReadCore_ParseChunkIndx(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size,
                                     lxAviReadCore_StreamInfo_t* pStrInfo, UInt8 IndxOption)
{
    LX_LOG(kLevelEnter, "Entered lxAviReadCore_ParseChunkIndx");
    ReleaseSuperIndex(pStrInfo);
    lxAviReadCore_AviIndxChunkCommonSection_t& common = pStrInfo->IndxChunk.aviIndxcommonSection;
    if (const UInt32 result = LX_AVIREAD_CALL_AS(
            "lxAvi2ReadCore_FileRead(pAviInfo, (UInt32*)(&((pStrInfo->IndxChunk).aviIndxcommonSection)), "
            "sizeof(lxAviReadCore_AviIndxChunkCommonSection_t))",
            ReadRecord(pAviInfo, common, kOpenDmlRead));
        result != LX_OK) {
        LX_LOG(kLevelLeave, "Leaving lxAvi2ReadCore_ParseChunkIndx,rval: %x", result);
        return result;
    }
    LX_LOG(kLevelIndex, "uiIndexType =%d,uiEntriesInUse= %d,uiStreamNumber = %d", common.uiIndexType,
           common.uiEntriesInUse, LowHalf(common.dwChunkId));
    Padding padding = {size - kCommonBytes};
    UInt32 result = TakeIndx(instance, pAviInfo, pStrInfo, size, IndxOption, padding);
    if (padding.bSkip) {
        result = SkipPadding(padding, result);
        ReleaseMetaDataBuffer(pAviInfo);
    }
    LX_LOG(kLevelLeave, "Leaving lxAvi2ReadCore_ParseChunkIndx,rval: %x", result);
    return result;
}
