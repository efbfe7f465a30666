// The fixture of the reader's tests: a reader without a file before each test, no leak and a zero state after it.

#pragma once

#include "AviBuilder.hpp"
#include "FaultScript.hpp"
#include "LogRecorder.hpp"

#include "lxAviRead.h"

#include <gtest/gtest.h>

#include <optional>

namespace avitest {

// One call of lxAviReadCore_NextChunk and what became of the payload.
struct Delivered {
    UInt32 uiResult;
    lxAviRead_ChunkData_t chunk;
    bool bJumped;
    Bytes payload;     // of a valid chunk
    UInt32 uiPayloadResult; // of reading it
    UInt64 uiPosition; // file offset of the chunk's header
};

constexpr UInt32 kPlenty = 64u << 20; // budget that thins nothing

class ReaderTest : public ::testing::Test {
protected:
    ReaderTest();
    ~ReaderTest() override;

    lxAviReadCore_AviInfo_t& Info() { return *lxAviReadCore_GetAviInfo(); }
    FaultScript& Faults() { return FaultScript::Get(); }

    // Serves the bytes as a file and opens it.
    UInt32 Open(const Bytes& file, bool bSeekable = true, UInt32 attempts = 1, UInt32 budget = kPlenty,
                std::optional<UInt8> indxOption = {});
    UInt32 Open(AviBuilder& builder) { return Open(builder.Build()); }
    // Open, ParseIndex and PositionTheFileHandleToPlayData, all expected to succeed.
    void OpenIndexed(const Bytes& file, UInt32 budget = kPlenty);
    void OpenIndexed(AviBuilder& builder, UInt32 budget = kPlenty) { OpenIndexed(builder.Build(), budget); }
    void Position();

    // The next chunk, its payload read; nothing is skipped after a rejection.
    Delivered Next(UInt32 audioTrack = 0, UInt32 subtitleTrack = 0);
    // The next chunk that is delivered, or the end; rejected payloads are skipped.
    Delivered NextValid(UInt32 audioTrack = 0, UInt32 subtitleTrack = 0);
    // Everything up to the end, delivered and rejected; rejected payloads are skipped.
    std::vector<Delivered> All(UInt32 audioTrack = 0, UInt32 subtitleTrack = 0);
    void SkipRejected(const Delivered& delivered);

    // Lends the reader a batch buffer, for passes that are called by themselves; taken back at the end of the test at the latest.
    void LendBuffer(Bytes& buffer)
    {
        Info().pMetaDataBuffer = buffer.data();
        bBufferLent = true;
    }

    lxAviReadCore_KeyFrameEntry_t& Entry(UInt32 leafNr, UInt32 itemNr);
    // All entries of the table in order, after its invariants were checked.
    std::vector<lxAviReadCore_KeyFrameEntry_t> Table();

    LogRecorder log;
    UInt8 indxOptionOfOpen = 1; // Open's IndxOption where a test gives none
    Bool allIndexed = 7;
    bool bPayloadsMayBeCut = false; // in damaged files
    bool bBufferLent = false;
};

// One more than the table can hold: for the leaf bounds.
constexpr UInt32 kLeaf = LEAF_ARRAY_LENGTH;
constexpr UInt32 kLeafBytes = sizeof(lxAviReadCore_KeyFrameLeaf_t);
constexpr UInt32 kOneLeafBudget = kLeafBytes + sizeof(void*);

} // namespace avitest
