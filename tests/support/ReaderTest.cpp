#include "ReaderTest.hpp"

#include <algorithm>

namespace avitest {

ReaderTest::ReaderTest()
{
    EXPECT_EQ(lxAviReadCore_Close(), LX_OK);
    Faults().Clear();
    log.Clear();
}

ReaderTest::~ReaderTest()
{
    Faults().FailAllocation(0);
    if (bBufferLent) {
        Info().pMetaDataBuffer = nullptr;
    }
    EXPECT_EQ(lxAviReadCore_Close(), LX_OK);
    const Bytes state = AsBytes(Info());
    EXPECT_TRUE(std::all_of(state.begin(), state.end(), [](UInt8 byte) { return byte == 0; }))
        << "Close left something in the state";
    EXPECT_EQ(Faults().LiveAllocations(), 0u) << "leaked";
    EXPECT_EQ(Faults().OpenFiles(), 0u) << "left open";
    Faults().Clear();
}

UInt32 ReaderTest::Open(const Bytes& file, bool bSeekable, UInt32 attempts, UInt32 budget,
                        std::optional<UInt8> indxOption)
{
    Faults().Serve("test.avi", file, bSeekable);
    return lxAviReadCore_Open(0, "test.avi", attempts, budget, indxOption.value_or(indxOptionOfOpen), &allIndexed);
}

void ReaderTest::OpenIndexed(const Bytes& file, UInt32 budget)
{
    ASSERT_EQ(Open(file, true, 1, budget), LX_OK);
    ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
    Position();
    log.Clear();
}

void ReaderTest::Position() { ASSERT_EQ(lxAviReadCore_PositionTheFileHandleToPlayData(&Info()), LX_OK); }

Delivered ReaderTest::Next(UInt32 audioTrack, UInt32 subtitleTrack)
{
    Delivered delivered = {};
    Bool jumped = 9;
    delivered.uiResult = lxAviReadCore_NextChunk(&delivered.chunk, audioTrack, subtitleTrack, &jumped);
    delivered.bJumped = jumped == 1;
    EXPECT_LE(jumped, 1);
    EXPECT_EQ(delivered.chunk.bValid, delivered.uiResult == LX_OK ? 1 : 0);
    UInt64 behindHeader = 0;
    lxAviReadCore_GetFilePosition(&behindHeader);
    delivered.uiPosition = behindHeader - 8;
    if (delivered.uiResult == LX_OK) {
        delivered.uiPosition -= delivered.chunk.uiSize;
        constexpr UInt32 kLargest = 1u << 24; // only a damaged file states a larger size
        // room for the largest buffer address of a read with several attempts (quirk Q06)
        Bytes buffer(delivered.chunk.uiSize <= kLargest ? size_t{4} * delivered.chunk.uiSize + 16 : 0);
        delivered.uiPayloadResult =
            buffer.empty() ? lxAviReadCore_RemoveChunk(delivered.chunk.uiSize)
                           : lxAviReadCore_GetChunk(reinterpret_cast<UInt32*>(buffer.data()), delivered.chunk.uiSize);
        EXPECT_TRUE(delivered.uiPayloadResult == LX_OK || bPayloadsMayBeCut);
        buffer.resize(buffer.empty() ? 0 : delivered.chunk.uiSize);
        delivered.payload = buffer;
    }
    return delivered;
}

void ReaderTest::SkipRejected(const Delivered& delivered)
{
    switch (delivered.uiResult) {
    case LX_ERR_AVIREAD_SUBTITLE_SKIPPED:
    case LX_ERR_AVIREAD_AUDIO_SKIPPED:
    case LX_ERR_AVIREAD_VIDEO_SKIPPED:
    case LX_ERR_AVIREAD_JUMP_NOT_VIDEO:
    case LX_ERR_AVIREAD_NO_KEY_FRAME:
        EXPECT_TRUE(lxAviReadCore_RemoveChunk(delivered.chunk.uiSize) == LX_OK || bPayloadsMayBeCut);
        lxAviReadCore_IncreaseOffset(delivered.chunk.uiSize);
        break;
    default: break;
    }
}

namespace {

bool IsEnd(UInt32 result)
{
    switch (result) {
    case LX_AVIREAD_END_OF_MEDIA:
    case LX_ERR_AVIREAD_READ:
    case LX_ERR_AVIREAD_EOF:
    case LX_ERR_AVIREAD_ABORTED:
    case LX_ERR_AVIREAD_SEEK:
    case LX_ERR_AVIREAD_JUMP_RANGE: return true;
    default: return false;
    }
}

} // namespace

Delivered ReaderTest::NextValid(UInt32 audioTrack, UInt32 subtitleTrack)
{
    for (;;) {
        const Delivered delivered = Next(audioTrack, subtitleTrack);
        if (delivered.uiResult == LX_OK || IsEnd(delivered.uiResult)) {
            return delivered;
        }
        SkipRejected(delivered);
    }
}

std::vector<Delivered> ReaderTest::All(UInt32 audioTrack, UInt32 subtitleTrack)
{
    std::vector<Delivered> all;
    for (;;) {
        all.push_back(Next(audioTrack, subtitleTrack));
        if (IsEnd(all.back().uiResult) || all.back().uiPayloadResult != LX_OK) {
            return all;
        }
        SkipRejected(all.back());
    }
}

lxAviReadCore_KeyFrameEntry_t& ReaderTest::Entry(UInt32 leafNr, UInt32 itemNr)
{
    return Info().KeyFramesListAsArray[leafNr]->array[itemNr];
}

std::vector<lxAviReadCore_KeyFrameEntry_t> ReaderTest::Table()
{
    std::vector<lxAviReadCore_KeyFrameEntry_t> entries;
    const UInt32 leafs = Info().KeyFramesListAsArrayLength;
    UInt32 inUse = leafs;
    while (inUse > 0 && Info().KeyFramesListAsArray[inUse - 1]->arrayLength == 0) {
        --inUse;
    }
    for (UInt32 i = 0; i < inUse; ++i) {
        const lxAviReadCore_KeyFrameLeaf_t& leaf = *Info().KeyFramesListAsArray[i];
        EXPECT_GE(leaf.arrayLength, 1u);
        if (i + 1 < inUse) {
            EXPECT_EQ(leaf.arrayLength, kLeaf) << "leaf " << i << " is not full";
            EXPECT_EQ(leaf.pNextLeaf, Info().KeyFramesListAsArray[i + 1]);
        } else {
            EXPECT_EQ(leaf.pNextLeaf, nullptr);
        }
        EXPECT_EQ(leaf.pPrevLeaf, i > 0 ? Info().KeyFramesListAsArray[i - 1] : nullptr);
        const lxAviReadCore_KeyFrameEntry_t& last = leaf.array[leaf.arrayLength - 1];
        EXPECT_EQ(leaf.StartTimeMsec, leaf.array[0].timeMsec);
        EXPECT_EQ(leaf.EndTimeMsec, last.timeMsec);
        EXPECT_EQ(leaf.StartOffset, leaf.array[0].videoChunkOffset);
        EXPECT_EQ(leaf.EndOffset, last.videoChunkOffset);
        entries.insert(entries.end(), leaf.array, leaf.array + leaf.arrayLength);
    }
    for (size_t i = 1; i < entries.size(); ++i) {
        EXPECT_GT(entries[i].videoChunkOffset, entries[i - 1].videoChunkOffset);
        EXPECT_GE(entries[i].timeMsec, entries[i - 1].timeMsec);
    }
    return entries;
}

} // namespace avitest
