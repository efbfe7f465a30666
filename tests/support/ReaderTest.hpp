// The fixture of the reader's tests. Before each test the reader has no file. After each test the fixture checks that
// there is no leak and that the state is all zero.

#pragma once

#include "AviBuilder.hpp"
#include "FaultScript.hpp"
#include "LogRecorder.hpp"

#include "lxAviRead.h"

#include <gtest/gtest.h>

#include <optional>

namespace avitest {

// The result of one call of lxAviReadCore_NextChunk, and the payload.
struct Delivered {
    UInt32 uiResult;
    lxAviRead_ChunkData_t chunk;
    bool bJumped;
    Bytes payload;          // when the chunk is valid
    UInt32 uiPayloadResult; // result of reading the payload
    UInt64 uiPosition;      // file offset of the chunk's header
};

constexpr UInt32 kPlenty = 64u << 20; // a budget with room for all key frames

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
    // Calls Open, ParseIndex and PositionTheFileHandleToPlayData, and expects success of each.
    void OpenIndexed(const Bytes& file, UInt32 budget = kPlenty);
    void OpenIndexed(AviBuilder& builder, UInt32 budget = kPlenty) { OpenIndexed(builder.Build(), budget); }
    void Position();

    // Gets the next chunk and reads its payload. It does not skip the payload after a rejection.
    Delivered Next(UInt32 audioTrack = 0, UInt32 subtitleTrack = 0);
    // Gets the next delivered chunk, or the end. It skips rejected payloads.
    Delivered NextValid(UInt32 audioTrack = 0, UInt32 subtitleTrack = 0);
    // Gets all chunks up to the end, delivered and rejected. It skips rejected payloads.
    std::vector<Delivered> All(UInt32 audioTrack = 0, UInt32 subtitleTrack = 0);
    void SkipRejected(const Delivered& delivered);

    // Lends the reader a batch buffer, for tests that call a single pass. The fixture takes it back after the test.
    void LendBuffer(Bytes& buffer)
    {
        Info().pMetaDataBuffer = buffer.data();
        bBufferLent = true;
    }

    lxAviReadCore_KeyFrameEntry_t& Entry(UInt32 leafNr, UInt32 itemNr);
    // Checks the invariants of the table, and returns all entries in order.
    std::vector<lxAviReadCore_KeyFrameEntry_t> Table();

    LogRecorder log;
    UInt8 indxOptionOfOpen = 1; // Open's IndxOption when a test gives none
    Bool allIndexed = 7;
    bool bPayloadsMayBeCut = false; // for damaged files
    bool bBufferLent = false;
};

// Entries of a full leaf.
constexpr UInt32 kLeaf = LEAF_ARRAY_LENGTH;
constexpr UInt32 kLeafBytes = sizeof(lxAviReadCore_KeyFrameLeaf_t);
constexpr UInt32 kOneLeafBudget = kLeafBytes + sizeof(void*);

} // namespace avitest
