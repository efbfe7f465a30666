// The OpenDML index of a stream: an index of index chunks, or an index of chunks on one level.
//
//   indx size                                     in the stream list
//     longs per entry (16), sub type (8), type (8), entries, chunk id
//     type 0: 3 reserved words, then entries of 16 bytes: offset (64), size, duration of an `ix##` chunk
//     type 1: base offset (64), reserved, then the records themselves
//
//   ix00 size                                     in the media data, or behind it
//     longs per entry (16), sub type (8), type (8), entries, chunk id, base offset (64), reserved, one word more
//     records: offset from the base, size (bit 31 set: no key frame), and in a field index the second field's offset
//
// A super index is only noted while the headers are parsed; the key-frame table is built from it afterwards, in two
// walks over the video stream's index chunks and one over those of every audio stream.

#define LX_AVIREAD_MODULE ::lxAviReadCore::Module::Avi2ReadCore
#include "../AviReadcore/internal/OpenDmlIndex.hpp"

#include <cstddef>
#include <iterator>

namespace lxAviReadCore {
namespace {

constexpr UInt32 kCommonBytes = sizeof(lxAviReadCore_AviIndxChunkCommonSection_t);
constexpr UInt32 kTypeSpecificBytes = 12;
constexpr UInt32 kIndexFieldBytes = kCommonBytes + kTypeSpecificBytes;
constexpr const char* kBatchFailedText =
    LX_TEXT(kLevelError, "Error reading %d records with size %d into the metadatabuffer");
constexpr IndexFormat kStandardFormat = {8, &kOpenDmlRead};
constexpr IndexFormat kFieldFormat = {12, &kOpenDmlRead};

const IndexFormat& FormatOfSubType(UInt8 subType)
{
    return subType == kFieldIndex ? kFieldFormat : kStandardFormat;
}

// ---- indx ----

// What of the chunk is still to be skipped, and whether it is to be skipped at all: not when its own fields failed.
struct Padding {
    UInt32 uiRemaining; // wraps where a chunk claims more entries than it holds
    bool bSkip = true;
};

// Reads a part of the chunk's own fields; a failure leaves the chunk at once.
template <typename Record>
UInt32 ReadOwnField(lxAviReadCore_AviInfo_t* pAviInfo, Record& record, Padding& padding)
{
    const UInt32 result = LX_AVIREAD_CALL(ReadRecord(pAviInfo, record, kOpenDmlRead));
    padding.bSkip = result == LX_OK;
    return result;
}

constexpr UInt32 kFirstPiece = 64 * 1024; // bytes of entries that are allocated on the file's word

// Reads the entries. Room for them grows with what the file really holds, so that a count alone costs nothing.
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
        LX_AVIREAD_TRY(LX_AVIREAD_CALL(
            ReadLoop(pAviInfo, kOpenDmlRead, static_cast<UInt8*>(pEntries) + done, piece, piece)));
        done += piece;
    }
    return LX_OK;
}

// Room for the first entries; never of size 0, for an empty index is an index.
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

// Notes the entries for the walks to come.
UInt32 TakeSuperIndex(lxAviReadCore_AviInfo_t* pAviInfo, lxAviReadCore_StreamInfo_t* pStrInfo, Padding& padding)
{
    lxAviReadCore_IndxChunk_t& indx = pStrInfo->IndxChunk;
    if (FollowsFormat(pAviInfo)) { // a list that is walked exactly has no room for more
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
        ReleaseSuperIndex(pStrInfo); // no half-read entries
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
        return LX_OK; // once in a file: what is sought back over must not lead to the same chunk for ever
    }
    if (static_cast<UInt16>(EntryBytes(common)) == 0) {
        return LX_ERR_AVIREAD_NO_INDEX; // the fill takes the size as 16 bits
    }
    LX_AVIREAD_TRY(SetBatchSize(pAviInfo, EntryBytes(common), kStandardIndex)); // GCOVR_EXCL_BR_LINE: not 0, see above
    if (!AcquireMetaDataBuffer(pAviInfo)) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    pAviInfo->bAbsoluteOffsets = 1;
    UInt32 numberOfKeyFrames = 0; // Quirk Q36: counted as 8-byte records, whatever the sub type
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

// Audio is placed once the video has filled the table: its stream list has to come later.
UInt32 BuildFromAudio(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, lxAviReadCore_StreamInfo_t* pStrInfo,
                      Padding& padding)
{
    const lxAviReadCore_StreamInfo_t* const pVideo = FindStream(pAviInfo, pAviInfo->videoStreamNr);
    if (pVideo == Null || pVideo->bIndexParsed != 1) {
        return LX_OK;
    }
    const auto common = pStrInfo->IndxChunk.aviIndxcommonSection;
    const auto& specific = pStrInfo->IndxChunk.aviIndxTypeSpecificSection.aviStdFieldIndex;
    const UInt32 result = LX_AVIREAD_CALL(lxAvi2ReadCore_ParseAudioStdIndex(instance, pAviInfo, &common,
                                                                            specific.qwBaseOffset, specific.dwReserved));
    padding.uiRemaining -= EntriesBytes(common);
    if (result == LX_OK) {
        pStrInfo->bIndexParsed = 1;
    }
    return result;
}

UInt32 BuildVideoFromSuperIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo)
{
    UInt32 skipKey = 0;
    UInt32 neededLeafs = 0;
    UInt32 neededMemory = 0;
    UInt32 numberOfKeyFrames = 0;
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(lxAvi2ReadCore_PreParseVideoIndex(instance, pAviInfo, &skipKey, &neededLeafs,
                                                                     &neededMemory, &numberOfKeyFrames)));
    return LX_AVIREAD_CALL(lxAvi2ReadCore_ParseVideoSuperIndex(instance, pAviInfo, skipKey, neededLeafs));
}

// Notes an index on one level as a super index of one entry: the chunk is laid out as an `ix##` chunk is.
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

// Builds what the caller has asked Open to build: the table from the video's index, the audio once that is there.
UInt32 BuildFromNoted(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, lxAviReadCore_StreamInfo_t* pStrInfo)
{
    const lxAviReadCore_StreamInfo_t* const pVideo = FindStream(pAviInfo, pAviInfo->videoStreamNr);
    UInt32 result = LX_OK;
    if (pStrInfo == pVideo) {
        result = BuildVideoFromSuperIndex(instance, pAviInfo);
    } else if (pVideo != Null && pVideo->bIndexParsed == 1) {
        result = PlaceStream(pAviInfo, StreamNrOf(pAviInfo, pStrInfo));
    } else {
        return LX_OK; // its turn comes with lxAviReadCore_ParseIndex
    }
    pStrInfo->bIndexParsed = result == LX_OK ? 1 : 0;
    return result;
}

// An index on one level, where the format is followed: noted for lxAviReadCore_ParseIndex, and built from if asked for.
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
    LX_AVIREAD_TRY(ReadOwnField(pAviInfo, specific.qwBaseOffset, padding));
    LX_AVIREAD_TRY(ReadOwnField(pAviInfo, specific.dwReserved, padding));
    padding.uiRemaining -= kTypeSpecificBytes;
    // Quirk Q37: `idx1`, which the main header promises, builds the table
    const lxAviRead_Avih_t* const pHeader = pAviInfo->AviHdr;
    const bool bIdx1Promised =
        pHeader != Null && (pHeader->dwFlags & LX_AVIREAD_HAS_INDEX) != 0; // GCOVR_EXCL_BR_LINE: no stream without it
    const bool bAskedFor = (indxOption & ~LX_AVIREAD_FOLLOW_FORMAT) == 1;
    if (FollowsFormat(pAviInfo)) {
        return TakeOneLevel(instance, pAviInfo, pStrInfo, size, bAskedFor && !bIdx1Promised, padding);
    }
    if (bIdx1Promised) {
        return LX_OK;
    }
    const UInt16 streamNr = StreamNumber(LowHalf(pStrInfo->IndxChunk.aviIndxcommonSection.dwChunkId));
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

// Skips what is left of the chunk. A failure shows only where there was none before.
UInt32 SkipPadding(const Padding& padding, UInt32 result)
{
    if (!padding.bSkip || padding.uiRemaining == 0) {
        return result;
    }
    LX_LOG(kLevelIndex, "lxAviReadCore_ParseChunkIndx: Dumping padded Bytes %d", padding.uiRemaining);
    const UInt32 skipped = LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(padding.uiRemaining));
    return result == LX_OK && skipped != LX_OK ? LX_ERR_AVIREAD_READ : result;
}

// ---- ix## ----

// Reads the code of an index chunk. By default, where it does not begin with "ix", single bytes follow in a word that can
// never begin so: the read ends with the file.
UInt32 ReadIndexCode(lxAviReadCore_AviInfo_t* pAviInfo, UInt32& code)
{
    LX_AVIREAD_TRY(ReadRecord(pAviInfo, code, kOpenDmlRead));
    LX_LOG(kLevelIndex, "First 4 bytes after fseek and twocc, %x, %x", code, LowHalf(code));
    if (FollowsFormat(pAviInfo)) {
        return LowHalf(code) == TwoCC("ix") || code == FourCC("indx") ? LX_OK : LX_ERR_AVIREAD_NO_INDEX;
    }
    while (LowHalf(code) != TwoCC("ix")) {
        UInt8 next = 0;
        LX_AVIREAD_TRY(ReadRecord(pAviInfo, next, kOpenDmlRead));
        code = code << 24 | next; // Quirk Q38
    }
    return LX_OK;
}

constexpr IndexWalkRules kCountRules = {
    true,
    kTextList<LX_PACKED(kLevelError, "PreParseIndxChunk avi2: Error %d"),
              LX_PACKED(kLevelError, "PreParseIndxChunk avi2:Error Reading data at line:%d"),
              LX_NO_TEXT,
              LX_NO_TEXT,
              LX_NO_TEXT>};

UInt32 CountEntries(lxAviReadCore_AviInfo_t* pAviInfo, UInt8 subType, UInt32 entries, KeyFrameCounter& counter)
{
    IndexRun run = OpenDmlRun(pAviInfo, subType, entries, 0, 0, EntryKind::MainVideo);
    run.pBatchFailedText = Null;
    return entries == 0 ? LX_OK : ForEachEntry<OpenDmlDecoder>(pAviInfo, run, counter);
}

// Counts the key frames of one index chunk; a sub type that is unknown has none.
UInt32 CountKeyFrames(lxAviReadCore_AviInfo_t* pAviInfo, const IndexChunk& chunk, KeyFrameCounter& counter)
{
    const auto& common = chunk.header.common;
    LX_AVIREAD_TRY(SetBatchSize(pAviInfo, EntryBytes(common), common.uiSubIndexType));
    if (common.uiSubIndexType != kStandardIndex && common.uiSubIndexType != kFieldIndex) {
        return LX_OK;
    }
    return LX_AVIREAD_CALL(CountEntries(pAviInfo, common.uiSubIndexType, common.uiEntriesInUse, counter));
}

UInt32 CountRun(lxAviReadCore_AviInfo_t* pAviInfo, UInt8 subType, UInt32 entries, UInt32* pCount)
{
    LX_ASSERT(pCount != Null, "pCount!= Null", "Parameter for the key-frame count shouldn't be a null pointer");
    if (pCount == Null) {
        return LX_OK;
    }
    KeyFrameCounter counter;
    const UInt32 result = CountEntries(pAviInfo, subType, entries, counter);
    *pCount = counter.uiKeyFrames;
    return result;
}

UInt32 BuildFromSuperIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo)
{
    LX_AVIREAD_TRY(BuildVideoFromSuperIndex(instance, pAviInfo));
    const UInt32 result = LX_AVIREAD_CALL(lxAvi2ReadCore_ParseAudioSuperIndex(pAviInfo));
    // Where nothing better is there, key frames without the audio of a track are worth more than none.
    const bool bAudioAlone = IsUnusableIndex(result) && pAviInfo->idx1Size == 0 && FollowsFormat(pAviInfo);
    return bAudioAlone ? LX_OK : result;
}

} // namespace

IndexRun OpenDmlRun(const lxAviReadCore_AviInfo_t* pAviInfo, UInt8 subType, UInt32 entries, UInt32 chunkId,
                    UInt64 baseOffset, EntryKind eKind)
{
    return {.pFormat = &FormatOfSubType(subType),
            .uiEntries = entries,
            .uiBatch = pAviInfo->uiMaxRecordsInBuffer,
            .iVideoStreamNr = pAviInfo->videoStreamNr,
            .uiStreamNr = StreamNumber(LowHalf(chunkId)),
            .eKind = eKind,
            .qwBaseOffset = baseOffset,
            .uiOffsetMask = PositionMask(pAviInfo),
            .pBatchFailedText = kBatchFailedText};
}

UInt32 SetBatchSize(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 entryBytes, UInt8 subType)
{
    if (entryBytes == 0) {
        return LX_ERR_AVIREAD_NO_INDEX;
    }
    const UInt32 largest = kMetaDataBytes / FormatOfSubType(subType).uiRecordSize;
    const UInt32 records = kMetaDataBytes / entryBytes;
    pAviInfo->uiMaxRecordsInBuffer = records == 0 ? largest : std::min(records, largest);
    return LX_OK;
}

namespace {

// A chunk has no more records than room.
void KeepRecordsInChunk(IndexChunk::Header& header)
{
    const UInt32 room = header.uiSize > kIndexFieldBytes ? header.uiSize - kIndexFieldBytes : 0;
    const UInt32 records = room / FormatOfSubType(header.common.uiSubIndexType).uiRecordSize;
    header.common.uiEntriesInUse = std::min(header.common.uiEntriesInUse, records);
}

// Seeks to the `ix##` chunk that an entry of the super index names, and reads its header.
UInt32 EnterIndexChunk(lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_AviSuperIndexEntry_t& entry,
                       const IndexWalkRules& rules, IndexChunk& chunk)
{
    LX_LOG(kLevelIndex, "Fseeking(%d) to offset: %d.%d \n", chunk.uiNr, LX_HILO(entry.qwOffset));
    if (FollowsFormat(pAviInfo) && SeekDistance(pAviInfo, entry.qwOffset) < 0) {
        return LX_ERR_AVIREAD_NO_INDEX; // no file is that large
    }
    if (!SeekAndRemember(pAviInfo, entry.qwOffset, kFromStart)) {
        LX_LOG_TEXT(TextOf(rules.texts, WalkText::SeekFailed), static_cast<Int32>(LX_ERR_AVIREAD_SEEK));
        return LX_ERR_AVIREAD_SEEK;
    }
    UInt32 code = 0;
    if (const UInt32 result = ReadIndexCode(pAviInfo, code); result != LX_OK) {
        LX_LOG_TEXT(TextOf(rules.texts, WalkText::CodeFailed), __LINE__);
        return result;
    }
    if (LowHalf(code) == TwoCC("ix")) {
        chunk.uiStreamNr = StreamNumber(HighHalf(code));
    }
    if (rules.bVideoStreamOnly && !IsMainVideoStream(pAviInfo, chunk.uiStreamNr)) {
        return LX_ERR_AVIREAD_INDEX_STREAM;
    }
    // Quirk Q39: 32 bytes by default, so that the records begin 36 bytes behind the chunk's start
    const UInt32 bytes = FollowsFormat(pAviInfo) ? offsetof(IndexChunk::Header, uiFirstWord) : sizeof chunk.header;
    const UInt32 result = ReadLoop(pAviInfo, kOpenDmlRead, &chunk.header, sizeof chunk.header, bytes);
    LX_LOG(kLevelIndex, "Rval after reading the std/field video ix## struct%x", result);
    LX_LOG_TEXT(TextOf(rules.texts, WalkText::Entered), chunk.uiNr, result);
    if (result != LX_OK) {
        LX_LOG_TEXT(TextOf(rules.texts, WalkText::HeaderFailed), __LINE__);
    }
    if (FollowsFormat(pAviInfo)) {
        KeepRecordsInChunk(chunk.header);
    }
    return result;
}

// Keeps the work of a walk within the size of the file: however often a damaged index names the same records, no more
// of them are read than there is room for before the furthest of them.
class IndexWalkBudget {
public:
    // `offset` is where the chunk begins, as far as a seek goes.
    bool Allows(UInt64 offset, const IndexChunk& chunk)
    {
        const UInt64 recordSize = chunk.header.common.uiSubIndexType == kFieldIndex ? 12 : 8;
        const UInt64 bytes = recordSize * chunk.header.common.uiEntriesInUse;
        m_uiTotal += bytes;
        m_uiFurthest = std::max(m_uiFurthest, offset + bytes);
        return m_uiTotal <= m_uiFurthest;
    }

private:
    UInt64 m_uiTotal = 0;
    UInt64 m_uiFurthest = 0;
};

// The index chunks of the stream. An index on one level that was noted as a super index is the one chunk of that.
UInt32 IndexChunkCount(const lxAviReadCore_StreamInfo_t& stream)
{
    const auto& common = stream.IndxChunk.aviIndxcommonSection;
    const UInt32 count = common.uiIndexType == kIndexOfChunks ? 1 : common.uiEntriesInUse;
    return HasSuperIndex(stream) ? count : 0;
}

} // namespace

UInt32 WalkIndexChunks(lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t& stream,
                       const IndexWalkRules& rules, UInt32 (*pfnVisit)(void* pVisitor, const IndexChunk& chunk),
                       void* pVisitor)
{
    IndexWalkBudget budget;
    UInt32 result = LX_OK;
    for (UInt32 i = 0; i < IndexChunkCount(stream) && result == LX_OK; ++i) {
        const lxAviReadCore_AviSuperIndexEntry_t& entry = stream.IndxChunk.pAviSuperIndexEntry[i];
        if (entry.qwOffset == 0 && FollowsFormat(pAviInfo)) {
            continue; // made in advance, and not used
        }
        IndexChunk chunk = {};
        chunk.uiNr = i;
        chunk.uiStreamNr = StreamNumber(LowHalf(stream.IndxChunk.aviIndxcommonSection.dwChunkId));
        result = EnterIndexChunk(pAviInfo, entry, rules, chunk);
        if (result == LX_OK) {
            const UInt64 offset = entry.qwOffset & PositionMask(pAviInfo);
            result = budget.Allows(offset, chunk) ? pfnVisit(pVisitor, chunk) : LX_ERR_AVIREAD_NO_INDEX;
        }
        LX_LOG_TEXT(TextOf(rules.texts, WalkText::Result), i, result);
    }
    return AllowEarlyEnd(pAviInfo, result);
}

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

UInt32 lxAvi2ReadCore_ParseIndxIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo)
{
    const lxAviReadCore_StreamInfo_t* const pVideo = FindStream(pAviInfo, pAviInfo->videoStreamNr);
    if (pVideo == Null) {
        return LX_ERR_AVIREAD_NO_INDEX;
    }
    pAviInfo->bAbsoluteOffsets = 1;
    pAviInfo->CurrentOffset = pAviInfo->moviOffset;
    // Quirk Q40: a one-level index that Open took in is not taken in again
    const bool bBuild = pVideo->bIndexParsed == 0 || FollowsFormat(pAviInfo);
    const UInt32 result = bBuild ? BuildFromSuperIndex(instance, pAviInfo) : LX_OK;
    ReleaseMetaDataBuffer(pAviInfo);
    return result;
}

UInt32 lxAvi2ReadCore_PreParseVideoIndex(UInt32 /*instance*/, lxAviReadCore_AviInfo_t* pAviInfo, UInt32* skipKey,
                                         UInt32* neededLeafs, UInt32* neededMemory, UInt32* numberOfKeyFrames)
{
    const lxAviReadCore_StreamInfo_t* const pVideo = FindStream(pAviInfo, pAviInfo->videoStreamNr);
    if (pVideo == Null) {
        return LX_ERR_AVIREAD_NO_INDEX;
    }
    const auto& common = pVideo->IndxChunk.aviIndxcommonSection;
    LX_LOG(kLevelIndex, "Stream: %d uiNoOfIndexes: %d uiSubIndexType: %d \n", pAviInfo->videoStreamNr,
           common.uiEntriesInUse, common.uiSubIndexType);
    LX_ASSERT(numberOfKeyFrames != Null, "numberOfKeyFrames!=Null", "numberOfKeyFrames must be initialized");
    if (numberOfKeyFrames == Null) {
        return LX_OK;
    }
    *numberOfKeyFrames = 0;
    if (!AcquireMetaDataBuffer(pAviInfo)) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    KeyFrameCounter counter;
    const auto count = [&](const IndexChunk& chunk) {
        LX_AVIREAD_TRY(CountKeyFrames(pAviInfo, chunk, counter));
        *numberOfKeyFrames = counter.uiKeyFrames;
        return LX_OK;
    };
    LX_AVIREAD_TRY(ForEachIndexChunk(pAviInfo, *pVideo, kCountRules, count));
    *numberOfKeyFrames = SettleKeyFrames(pAviInfo, counter);
    return LX_AVIREAD_CALL(lxAviReadCore_CalcLeafsNeededAndSkipValue(pAviInfo, numberOfKeyFrames, neededLeafs,
                                                                     neededMemory, skipKey));
}

UInt32 lxAvi2ReadCore_GetTotalKFramesInStdIndxChunk(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiNoOfEntries,
                                                    UInt32* pCount)
{
    return CountRun(pAviInfo, kStandardIndex, uiNoOfEntries, pCount);
}

UInt32 lxAvi2ReadCore_GetTotalKFramesInFieldIndxChunk(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 uiNoOfEntries,
                                                      UInt32* pCount)
{
    return CountRun(pAviInfo, kFieldIndex, uiNoOfEntries, pCount);
}
