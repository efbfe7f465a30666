// The walk over the index chunks that a super index names, and the passes over them.
//
//   ix00 size                                     in the media data, or behind it
//     longs per entry (16), sub type (8), type (8), entries, chunk id, base offset (64), reserved, one word more
//     records: offset from the base, size (bit 31 set: no key frame), and in a field index the second field's offset
//
// The key-frame table is built in two walks over the video stream's index chunks, which count and store the key frames,
// and one walk over those of every audio stream.

#include "internal/OpenDmlIndex.hpp"

#include <cstddef>

namespace lxAviReadCore {
namespace {

// ---- One index chunk ----

// Reads the code of an index chunk. In the default mode, if the code does not begin with "ix", single bytes are read
// and shifted into a word that can never begin so, until the file ends.
UInt32 ReadIndexCode(lxAviReadCore_AviInfo_t* pAviInfo, const MessageRow<WalkText>* pMessages, UInt32& code)
{
    LX_AVIREAD_TRY(ReadRecord(pAviInfo, code, kOpenDmlRead));
    LogRow(pMessages, WalkText::CodeRead, code, UInt32{LowHalf(code)});
    if (EntriesNameIndexChunks(pAviInfo)) {
        return LowHalf(code) == TwoCC("ix") || code == FourCC("indx") ? LX_OK : LX_ERR_AVIREAD_NO_INDEX;
    }
    while (LowHalf(code) != TwoCC("ix")) {
        UInt8 next = 0;
        LX_AVIREAD_TRY(ReadRecord(pAviInfo, next, kOpenDmlRead));
        code = code << 24 | next;
    }
    return LX_OK;
}

bool IsKnownSubType(UInt8 subType) { return subType == kStandardIndex || subType == kFieldIndex; }

// Bounds the number of records by the size of the chunk.
void KeepRecordsInChunk(IndexChunk::Header& header)
{
    const UInt32 room = header.uiSize > kIndexFieldBytes ? header.uiSize - kIndexFieldBytes : 0;
    const UInt32 records = room / RecordBytes(header.common.uiSubIndexType);
    header.common.uiEntriesInUse = std::min(header.common.uiEntriesInUse, records);
}

// Seeks to the `ix##` chunk that an entry of the super index names, and reads its header.
UInt32 EnterIndexChunk(lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_AviSuperIndexEntry_t& entry,
                       const IndexWalkRules& rules, IndexChunk& chunk)
{
    LogRow(rules.pMessages, WalkText::Seeking, chunk.uiNr, LX_HILO(entry.qwOffset));
    if (EntriesNameIndexChunks(pAviInfo) && SeekDistance(pAviInfo, entry.qwOffset) < 0) {
        return LX_ERR_AVIREAD_NO_INDEX; // no file is that large
    }
    if (!SeekAndRemember(pAviInfo, entry.qwOffset, kFromStart)) {
        LogRow(rules.pMessages, WalkText::SeekFailed, static_cast<Int32>(LX_ERR_AVIREAD_SEEK));
        return LX_ERR_AVIREAD_SEEK;
    }
    UInt32 code = 0;
    if (const UInt32 result = ReadIndexCode(pAviInfo, rules.pMessages, code); result != LX_OK) {
        LogRow(rules.pMessages, WalkText::CodeFailed, __LINE__);
        return result;
    }
    if (LowHalf(code) == TwoCC("ix")) {
        chunk.uiStreamNr = StreamNumber(HighHalf(code));
    }
    if (rules.bVideoStreamOnly && !IsMainVideoStream(pAviInfo, chunk.uiStreamNr)) {
        return LX_ERR_AVIREAD_INDEX_STREAM;
    }
    // the default mode reads 32 bytes, so that the records begin 36 bytes behind the chunk's start
    const UInt32 bytes =
        RecordsFollowTheFields(pAviInfo) ? offsetof(IndexChunk::Header, uiFirstWord) : sizeof chunk.header;
    const UInt32 result = ReadLoop(pAviInfo, kOpenDmlRead, {&chunk.header, sizeof chunk.header, bytes});
    LogRow(rules.pMessages, WalkText::HeaderRead, result);
    if (result != LX_OK) {
        LogRow(rules.pMessages, WalkText::HeaderFailed, __LINE__);
    }
    LogRow(rules.pMessages, WalkText::Entered, chunk.uiNr, result);
    if (result == LX_OK && SubTypesMustBeKnown(pAviInfo) && !IsKnownSubType(chunk.header.common.uiSubIndexType)) {
        return LX_ERR_AVIREAD_NO_INDEX;
    }
    if (ListsAreExact(pAviInfo)) {
        KeepRecordsInChunk(chunk.header);
    }
    return result;
}

// Bounds the work of a walk, so that a damaged index that names the same records again and again cannot make it run
// long. A walk may read 16 MiB of records, and eight times as many bytes as lie before the end of the furthest record.
class IndexWalkBudget {
public:
    // `offset` is where the chunk begins, as far as a seek goes; `bytes` are those of its records that the walk reads.
    bool Allows(UInt64 offset, UInt64 bytes)
    {
        m_uiTotal += bytes;
        m_uiFurthest = std::clamp(offset + bytes, m_uiFurthest, kLargestPosition);
        return m_uiTotal <= kAlwaysAllowed + kTimesFurthest * m_uiFurthest;
    }

private:
    static constexpr UInt64 kAlwaysAllowed = 16u << 20;
    static constexpr UInt64 kTimesFurthest = 8;
    static constexpr UInt64 kLargestPosition = UInt64{1} << 60; // no file is that large, and the product has 64 bits

    UInt64 m_uiTotal = 0;
    UInt64 m_uiFurthest = 0;
};

// Bytes of the records that a walk reads of an index chunk.
UInt64 BytesToRead(const IndexChunk& chunk, const IndexWalkRules& rules)
{
    const auto& common = chunk.header.common;
    const bool bReads = !rules.bKnownSubTypesOnly || IsKnownSubType(common.uiSubIndexType);
    return bReads ? UInt64{RecordBytes(common.uiSubIndexType)} * common.uiEntriesInUse : 0;
}

// The number of index chunks of the stream. An index on one level that was noted as a super index is one chunk.
UInt32 IndexChunkCount(const lxAviReadCore_StreamInfo_t& stream)
{
    const auto& common = stream.IndxChunk.aviIndxcommonSection;
    const UInt32 count = common.uiIndexType == kIndexOfChunks ? 1 : common.uiEntriesInUse;
    return HasSuperIndex(stream) ? count : 0;
}

} // namespace

UInt32 SetBatchSize(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 entryBytes, UInt8 subType)
{
    if (entryBytes == 0) {
        return LX_ERR_AVIREAD_NO_INDEX;
    }
    const UInt32 largest = kMetaDataBytes / RecordBytes(subType);
    const UInt32 records = kMetaDataBytes / entryBytes;
    pAviInfo->uiMaxRecordsInBuffer = records == 0 ? largest : std::min(records, largest);
    return LX_OK;
}

// ---- The walk ----

UInt32 WalkIndexChunks(lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t& stream,
                       const IndexWalkRules& rules, UInt32 (*pfnVisit)(void* pVisitor, const IndexChunk& chunk),
                       void* pVisitor)
{
    IndexWalkBudget budget;
    UInt32 result = LX_OK;
    for (UInt32 i = 0; i < IndexChunkCount(stream) && result == LX_OK; ++i) {
        const lxAviReadCore_AviSuperIndexEntry_t& entry = stream.IndxChunk.pAviSuperIndexEntry[i];
        if (entry.qwOffset == 0 && EntriesNameIndexChunks(pAviInfo)) {
            continue; // an entry that the writer has made in advance and not used
        }
        IndexChunk chunk = {};
        chunk.uiNr = i;
        chunk.uiStreamNr = StreamOfChunks(stream.IndxChunk.aviIndxcommonSection.dwChunkId);
        result = EnterIndexChunk(pAviInfo, entry, rules, chunk);
        if (result == LX_OK) {
            const UInt64 offset = entry.qwOffset & PositionMask(pAviInfo);
            result =
                budget.Allows(offset, BytesToRead(chunk, rules)) ? pfnVisit(pVisitor, chunk) : LX_ERR_AVIREAD_NO_INDEX;
        }
        LogRow(rules.pMessages, WalkText::Result, i, result);
    }
    return AllowEarlyEnd(pAviInfo, result);
}

namespace {

// ---- Key frames ----

constexpr MessageRow<WalkText> kCountMessages[] = {
    {WalkText::Seeking, kLevelIndex, "Fseeking(%d) to offset: %d.%d \n"},
    {WalkText::SeekFailed, kLevelError, "PreParseIndxChunk avi2: Error %d"},
    {WalkText::CodeRead, kLevelIndex, "First 4 bytes after fseek and twocc, %x, %x"},
    {WalkText::CodeFailed, kLevelError, "PreParseIndxChunk avi2:Error Reading data at line:%d"},
    {WalkText::HeaderRead, kLevelIndex, "Rval after reading the std/field video ix## struct%x"},
    NoMessage(WalkText::HeaderFailed),
    NoMessage(WalkText::Entered),
    NoMessage(WalkText::Result),
};
static_assert(IsMessageTable(kCountMessages, kWalkTextArguments));
constexpr IndexWalkRules kCountWalk = {.bVideoStreamOnly = true,
                                       .bKnownSubTypesOnly = true,
                                       .pMessages = kCountMessages};

UInt32 CountEntries(lxAviReadCore_AviInfo_t* pAviInfo, UInt8 subType, UInt32 entries, FrameCounter& counter)
{
    IndexRun run = OpenDmlRun(pAviInfo, subType, entries);
    run.eFailedBatch = FailedBatch::IsSilent;
    // only the key flag counts, whatever the stream; nothing is totalled
    constexpr EntrySource source = {EntryKind::Frame, EntryKind::KeyFrame, 0, kNoTrack, 0, Null};
    const OpenDmlDecoder decode(pAviInfo, source, 0);
    return entries == 0 ? LX_OK : ForEachEntry(pAviInfo, run, decode, counter);
}

// Counts the key frames of one index chunk; a sub type that is unknown has none.
UInt32 CountKeyFrames(lxAviReadCore_AviInfo_t* pAviInfo, const IndexChunk& chunk, FrameCounter& counter)
{
    const auto& common = chunk.header.common;
    LX_AVIREAD_TRY(SetBatchSize(pAviInfo, EntryBytes(common), common.uiSubIndexType));
    if (!IsKnownSubType(common.uiSubIndexType)) {
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
    FrameCounter counter;
    const UInt32 result = CountEntries(pAviInfo, subType, entries, counter);
    *pCount = counter.KeyFrames();
    return result;
}

} // namespace

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

namespace {

UInt32 BuildFromSuperIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo)
{
    LX_AVIREAD_TRY(BuildVideoFromSuperIndex(instance, pAviInfo));
    const UInt32 result = LX_AVIREAD_CALL(lxAvi2ReadCore_ParseAudioSuperIndex(pAviInfo));
    // Key frames without the audio of a track are worth more than none, if there is no `idx1` to serve instead.
    const bool bCostsAudioAlone = IsUnusableIndex(result) && pAviInfo->idx1Size == 0 && TracksFailAlone(pAviInfo);
    return bCostsAudioAlone ? LX_OK : result;
}

} // namespace
} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAvi2ReadCore_ParseIndxIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo)
{
    const lxAviReadCore_StreamInfo_t* const pVideo = FindStream(pAviInfo, pAviInfo->videoStreamNr);
    if (pVideo == Null) {
        return LX_ERR_AVIREAD_NO_INDEX;
    }
    pAviInfo->bAbsoluteOffsets = 1;
    pAviInfo->CurrentOffset = pAviInfo->moviOffset;
    // in the default mode a one-level index that Open took in is not taken in again
    const bool bBuild = pVideo->bIndexParsed == 0 || OneLevelIndexesAreNoted(pAviInfo);
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
    FrameCounter counter;
    const auto count = [&](const IndexChunk& chunk) {
        LX_AVIREAD_TRY(CountKeyFrames(pAviInfo, chunk, counter));
        *numberOfKeyFrames = counter.KeyFrames();
        return LX_OK;
    };
    LX_AVIREAD_TRY(ForEachIndexChunk(pAviInfo, *pVideo, kCountWalk, count));
    *numberOfKeyFrames = SettleKeyFrames(pAviInfo, counter);
    const bool bOneLevel = common.uiIndexType == kIndexOfChunks;
    tableOrigin = {bOneLevel ? LX_AVIREAD_TABLE_ONE_LEVEL_INDEX : LX_AVIREAD_TABLE_SUPER_INDEX, *numberOfKeyFrames};
    return LX_AVIREAD_CALL(
        lxAviReadCore_CalcLeafsNeededAndSkipValue(pAviInfo, numberOfKeyFrames, neededLeafs, neededMemory, skipKey));
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
