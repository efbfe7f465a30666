// The OpenDML index: decoding its records, and the walk over the `ix##` chunks that a super index names.

#pragma once

#include "IndexPasses.hpp"

namespace lxAviReadCore {

constexpr UInt8 kStandardIndex = 0; // uiSubIndexType: 8 bytes a record
constexpr UInt8 kFieldIndex = 1;    // 12 bytes a record

constexpr UInt8 kIndexOfIndexes = 0; // uiIndexType
constexpr UInt8 kIndexOfChunks = 1;

// As it stands in the file. Records of both sub types begin alike, and the second field is not looked at.
struct OpenDmlRecord {
    UInt32 dwOffset;
    UInt32 dwSize;
};
static_assert(sizeof(OpenDmlRecord) == 8);

// Tells what a record says. The stream, and so the kind, is that of the index.
class OpenDmlDecoder {
public:
    explicit OpenDmlDecoder(const IndexRun& run) : m_run(run) {}

    [[gnu::always_inline]] IndexEntry operator()(const UInt8* pRecord) const
    {
        const auto record = Load<OpenDmlRecord>(pRecord);
        // Quirk Q35: the low word of the base alone counts, unless all positions have 64 bits
        const UInt64 offset = (m_run.qwBaseOffset + record.dwOffset - kHeaderOfChunk) & m_run.uiOffsetMask;
        return {.eKind = m_run.eKind,
                .bKeyFrame = (record.dwSize & kNoKeyFrameBit) == 0,
                .uiStreamNr = m_run.uiStreamNr,
                .uiSize = record.dwSize & ~kNoKeyFrameBit,
                .uiOffset = offset};
    }

private:
    static constexpr UInt32 kNoKeyFrameBit = 0x80000000u;
    static constexpr UInt32 kHeaderOfChunk = 8; // offsets point behind it, the table's in front of it

    IndexRun m_run; // a copy, which no visitor can change: its fields stay in registers
};

// The records of one index, standard or field, as a run of one kind.
IndexRun OpenDmlRun(const lxAviReadCore_AviInfo_t* pAviInfo, UInt8 subType, UInt32 entries, UInt32 chunkId,
                    UInt64 baseOffset, EntryKind eKind);

// Derives the size of a batch from the size of an entry, as far as the batch buffer holds it.
// LX_ERR_AVIREAD_NO_INDEX for a size of 0.
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
        UInt32 uiFirstWord; // one word more than the fields of the header: of the first record, in most files
    } header;
};
static_assert(sizeof(IndexChunk::Header) == 32);

// What the walks over index chunks differ in.
struct IndexWalkRules {
    bool bVideoStreamOnly; // chunks of another stream end the walk
    TextList texts;
};

enum class WalkText : UInt32 {
    SeekFailed,   // code
    CodeFailed,   // line
    HeaderFailed, // line
    Entered,      // number, result of reading the header
    Result,       // number, result of the chunk
};

// Bytes of one record, as the index says.
constexpr UInt32 EntryBytes(const lxAviReadCore_AviIndxChunkCommonSection_t& common)
{
    return UInt32{common.wLongsPerEntry} * 4;
}

// Whether the stream has a super index, be it an empty one.
inline bool HasSuperIndex(const lxAviReadCore_StreamInfo_t& stream)
{
    return stream.IndxChunk.pAviSuperIndexEntry != Null;
}

// Gives the stored key frames the audio of a stream that has a super index; `listNr` is the number of its stream list.
[[nodiscard]] UInt32 PlaceStream(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 listNr);

// Whether a failure is the index's own, so that something else may serve instead.
constexpr bool IsUnusableIndex(UInt32 result)
{
    return result != LX_OK && result != LX_ERR_AVIREAD_ABORTED && result != LX_ERR_AVIREAD_NO_MEMORY;
}

// Hands every index chunk of a super index to `pfnVisit`, with the file at its first record. The first failure ends it.
[[nodiscard]] UInt32 WalkIndexChunks(lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t& stream,
                                     const IndexWalkRules& rules,
                                     UInt32 (*pfnVisit)(void* pVisitor, const IndexChunk& chunk), void* pVisitor);

// The same for a visitor with a state of its own.
template <typename Visitor>
[[nodiscard]] UInt32 ForEachIndexChunk(lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t& stream,
                                       const IndexWalkRules& rules, Visitor visit)
{
    const auto call = [](void* pVisitor, const IndexChunk& chunk) { return (*static_cast<Visitor*>(pVisitor))(chunk); };
    return WalkIndexChunks(pAviInfo, stream, rules, call, &visit);
}

} // namespace lxAviReadCore
