// The OpenDML index: decoding its records, and the walk over the `ix##` chunks that a super index names.

#pragma once

#include "IndexPasses.hpp"

namespace lxAviReadCore {

constexpr UInt8 kStandardIndex = 0; // uiSubIndexType: 8 bytes a record
constexpr UInt8 kFieldIndex = 1;    // 12 bytes a record

// The records of one index, standard or field, as a run of one kind.
IndexRun OpenDmlRun(const lxAviReadCore_AviInfo_t* pAviInfo, UInt8 subType, UInt32 entries, UInt32 chunkId,
                    UInt64 baseOffset, EntryKind eKind);

// Derives the size of a batch from the size of an entry, as far as the batch buffer holds it.
// LX_ERR_AVIREAD_NO_INDEX for a size of 0.
[[nodiscard]] UInt32 SetBatchSize(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 entryBytes, UInt8 subType);

// An `ix##` chunk: its stream, and its header as it stands in the file behind the four-character code.
struct IndexChunk {
    UInt32 uiNr;       // among those of the super index
    UInt32 uiStreamNr; // from its four-character code
    struct Header {
        UInt32 uiSize;
        lxAviReadCore_AviIndxChunkCommonSection_t common;
        UInt64 qwBaseOffset;
        UInt32 dwReserved;
        UInt32 uiFirstWord; // one word more than the fields of the header
    } header;
};
static_assert(sizeof(IndexChunk::Header) == 32);

// What the walks over index chunks differ in.
struct IndexWalkRules {
    bool bVideoStreamOnly;          // chunks of another stream end the walk
    const char* pSeekFailedText;    // code; or null
    const char* pCodeFailedText;    // line
    const char* pHeaderFailedText;  // line; or null
    const char* pResultText;        // number, result of the chunk; or null
};

// Bytes of one record, as the index says.
constexpr UInt32 EntryBytes(const lxAviReadCore_AviIndxChunkCommonSection_t& common)
{
    return UInt32{common.wLongsPerEntry} * 4;
}

// Where the records of an index chunk end at the earliest. A chunk that begins before that has been walked already:
// however often a damaged index names the same records, they are read once.
constexpr UInt64 EarliestNext(const lxAviReadCore_AviSuperIndexEntry_t& entry, const IndexChunk& chunk)
{
    const UInt64 recordSize = chunk.header.common.uiSubIndexType == kFieldIndex ? 12 : 8;
    return entry.qwOffset + recordSize * chunk.header.common.uiEntriesInUse;
}

// Seeks to the `ix##` chunk that an entry of the super index names, and reads its header.
[[nodiscard]] UInt32 EnterIndexChunk(lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_AviSuperIndexEntry_t& entry,
                                     const IndexWalkRules& rules, IndexChunk& chunk);

// Whether the stream has a super index, be it an empty one.
inline bool HasSuperIndex(const lxAviReadCore_StreamInfo_t& stream)
{
    return stream.IndxChunk.pAviSuperIndexEntry != Null;
}

// Hands every index chunk of a super index to `visit`, with the file at its first record. The first failure ends it.
template <typename Visitor>
[[nodiscard]] UInt32 ForEachIndexChunk(lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t& stream,
                                       const IndexWalkRules& rules, Visitor&& visit)
{
    const UInt32 entries = HasSuperIndex(stream) ? stream.IndxChunk.aviIndxcommonSection.uiEntriesInUse : 0;
    UInt64 earliest = 0;
    for (UInt32 i = 0; i < entries; ++i) {
        const lxAviReadCore_AviSuperIndexEntry_t& entry = stream.IndxChunk.pAviSuperIndexEntry[i];
        IndexChunk chunk = {};
        chunk.uiNr = i;
        UInt32 result = entry.qwOffset < earliest ? LX_ERR_AVIREAD_NO_INDEX
                                                  : EnterIndexChunk(pAviInfo, entry, rules, chunk);
        if (result == LX_OK) {
            result = visit(chunk);
        }
        if (rules.pResultText != Null) {
            LX_LOG(kLevelIndex, rules.pResultText, i, result);
        }
        LX_AVIREAD_TRY(result);
        earliest = EarliestNext(entry, chunk);
    }
    return LX_OK;
}

} // namespace lxAviReadCore
