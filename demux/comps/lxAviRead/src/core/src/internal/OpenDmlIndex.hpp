// The OpenDML index: decoding its records, and the walk over the `ix##` chunks that a super index names.

#pragma once

#include "Chunk.hpp"
#include "IndexPasses.hpp"

namespace lxAviReadCore {

constexpr UInt8 kStandardIndex = 0; // uiSubIndexType: 8 bytes a record
constexpr UInt8 kFieldIndex = 1;    // 12 bytes a record

constexpr UInt8 kIndexOfIndexes = 0; // uiIndexType
constexpr UInt8 kIndexOfChunks = 1;

constexpr UInt32 kStandardRecordBytes = 8; // offset, size
constexpr UInt32 kFieldRecordBytes = 12;   // and the offset of the second field

constexpr UInt32 RecordBytes(UInt8 subType)
{
    return subType == kFieldIndex ? kFieldRecordBytes : kStandardRecordBytes;
}

// The fields that an index chunk begins with, behind its header: the common ones, and those of its type.
constexpr UInt32 kCommonBytes = sizeof(lxAviReadCore_AviIndxChunkCommonSection_t);
constexpr UInt32 kTypeSpecificBytes = 12;
constexpr UInt32 kIndexFieldBytes = kCommonBytes + kTypeSpecificBytes;

// As it stands in the file. Records of both sub types begin alike; the reader does not use the second field.
struct OpenDmlRecord {
    UInt32 dwOffset;
    UInt32 dwSize;
};
static_assert(sizeof(OpenDmlRecord) == kStandardRecordBytes);

// Decodes the records of one index. They all belong to one stream, and so have one source.
class OpenDmlDecoder {
public:
    // The index gives the position behind the chunk's header, the table stores that of the header.
    OpenDmlDecoder(const lxAviReadCore_AviInfo_t* pAviInfo, const EntrySource& source, UInt64 baseOffset)
        : m_source(source), m_qwBaseOfHeaders(baseOffset - kChunkHeaderBytes), m_uiOffsetMask(PositionMask(pAviInfo))
    {
    }

    IndexEntry operator()(const UInt8* pRecord) const
    {
        const auto& record = *reinterpret_cast<const OpenDmlRecord*>(pRecord); // the batch buffer is aligned
        return {.pSource = &m_source,
                .eKind = (record.dwSize & kNoKeyFrameBit) != 0 ? m_source.eKind : m_source.eFlaggedKind,
                .uiSize = record.dwSize & ~kNoKeyFrameBit,
                .uiOffset = (m_qwBaseOfHeaders + record.dwOffset) & m_uiOffsetMask};
    }

private:
    static constexpr UInt32 kNoKeyFrameBit = 0x80000000u;

    const EntrySource& m_source;
    UInt64 m_qwBaseOfHeaders;
    UInt64 m_uiOffsetMask; // the bits of a position that count
};

// The records of an index, standard or field, in batches of the size that SetBatchSize has derived.
inline IndexRun OpenDmlRun(const lxAviReadCore_AviInfo_t* pAviInfo, UInt8 subType, UInt32 entries)
{
    return {.uiEntries = entries,
            .uiRecordSize = RecordBytes(subType),
            .uiBatch = pAviInfo->uiMaxRecordsInBuffer,
            .pRead = &kOpenDmlRead,
            .eFailedBatch = FailedBatch::IsABatch};
}

// The stream that the identifier of the indexed chunks names.
constexpr UInt32 StreamOfChunks(UInt32 chunkId) { return StreamNumber(LowHalf(chunkId)); }

// Derives the size of a batch from the size of an entry, and bounds it by the batch buffer. LX_ERR_AVIREAD_NO_INDEX for
// a size of 0.
[[nodiscard]] UInt32 SetBatchSize(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 entryBytes, UInt8 subType);

// An `ix##` chunk: its stream, and its header as it stands in the file behind the four-character code.
struct IndexChunk {
    UInt32 uiNr;       // among those of the super index
    UInt32 uiStreamNr; // from its four-character code; of an index on one level from the chunks it lists
    struct Header {
        UInt32 uiSize;
        lxAviReadCore_AviIndxChunkCommonSection_t common;
        UInt64 qwBaseOffset;
        UInt32 dwReserved;
        UInt32 uiFirstWord; // the default mode reads one word more than the fields of the header
    } header;
};
static_assert(sizeof(IndexChunk::Header) == 32);

// The messages of the walks over index chunks.
enum class WalkText : UInt32 {
    Seeking,      // number, offset
    SeekFailed,   // code
    CodeRead,     // the four-character code, its first half
    CodeFailed,   // line
    HeaderRead,   // result
    HeaderFailed, // line
    Entered,      // number, result of reading the header
    Result,       // number, result of the chunk
    Count,
};
constexpr UInt8 kWalkTextArguments[] = {3, 1, 2, 1, 1, 1, 2, 2};

// How the walks over index chunks differ.
struct IndexWalkRules {
    bool bVideoStreamOnly;   // a chunk of another stream ends the walk
    bool bKnownSubTypesOnly; // records of other sub types are not read
    const MessageRow<WalkText>* pMessages;
};

// Bytes of one record, as the index says.
constexpr UInt32 EntryBytes(const lxAviReadCore_AviIndxChunkCommonSection_t& common)
{
    return UInt32{common.wLongsPerEntry} * 4;
}

// Whether the stream has a super index. It may be empty.
inline bool HasSuperIndex(const lxAviReadCore_StreamInfo_t& stream)
{
    return stream.IndxChunk.pAviSuperIndexEntry != Null;
}

// Gives the stored key frames the audio of a stream that has a super index; `listNr` is the number of its stream list.
[[nodiscard]] UInt32 PlaceStream(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 listNr);

// Whether the index itself is the cause of a failure, so that another index may serve.
constexpr bool IsUnusableIndex(UInt32 result)
{
    return result != LX_OK && result != LX_ERR_AVIREAD_ABORTED && result != LX_ERR_AVIREAD_NO_MEMORY;
}

// Builds the table from the video stream's super index: counts, then stores the key frames.
[[nodiscard]] UInt32 BuildVideoFromSuperIndex(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo);

// Hands every index chunk of a super index to `pfnVisit`, with the file at its first record. The walk ends with the
// first failure.
[[nodiscard]] UInt32 WalkIndexChunks(lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t& stream,
                                     const IndexWalkRules& rules,
                                     UInt32 (*pfnVisit)(void* pVisitor, const IndexChunk& chunk), void* pVisitor);

// The same for a function object.
template <typename Visitor>
[[nodiscard]] UInt32 ForEachIndexChunk(lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t& stream,
                                       const IndexWalkRules& rules, Visitor visit)
{
    const auto call = [](void* pVisitor, const IndexChunk& chunk) { return (*static_cast<Visitor*>(pVisitor))(chunk); };
    return WalkIndexChunks(pAviInfo, stream, rules, call, &visit);
}

} // namespace lxAviReadCore
