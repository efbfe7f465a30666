// The key-frame table: its budget, its construction and release, and the way from entry to entry.
//
// The table holds every SkipKey-th key frame of the main video stream, in leaves of 363 entries that are all
// allocated before the first entry is stored; from the media data it grows leaf by leaf. `KeyFramesListAsArrayLength`
// counts the allocated leaves; those behind the last one in use are empty.

#include "internal/KeyFrames.hpp"
#include "internal/Mode.hpp"
#include "internal/Streams.hpp"

namespace lxAviReadCore {

UInt32 leafsInUse;
TableOrigin tableOrigin;
UInt32 tableStep;

namespace {

// The number of leaves to free. The length in the state can be 0 although leaves exist.
UInt32 s_uiOwnedLeafs;

constexpr UInt32 DivideUp(UInt32 dividend, UInt32 divisor)
{
    return dividend / divisor + (dividend % divisor != 0 ? 1 : 0);
}

void FreeLeafs(Leaf** ppLeafs, UInt32 count)
{
    for (UInt32 i = 0; i < count; ++i) {
        std::free(ppLeafs[i]);
        ppLeafs[i] = Null;
    }
}

void TraceRelease(TableReleaseTrace trace, const char* pName, const void* pBlock)
{
    if (trace == TableReleaseTrace::CleanUp) {
        LX_LOG(kLevelMemory, "Freeing %s", pName);
    } else {
        LX_LOG(kLevelMemory, "lxalAviRead_Free( 0x%x )", static_cast<UInt32>(reinterpret_cast<std::uintptr_t>(pBlock)));
    }
}

} // namespace

// ---- The view ----

Position KeyFrameTable::PositionOf(UInt32 leafNr, UInt32 itemNr) const
{
    const Entry* const pEntry = At(leafNr, itemNr);
    return pEntry != Null ? Position{leafNr, itemNr, pEntry->videoChunkOffset, 1} : Position{};
}

Position KeyFrameTable::Last() const
{
    return IsEmpty() ? Position{} : PositionOf(m_uiLeafs - 1, LeafAt(m_uiLeafs - 1).arrayLength - 1);
}

UInt32 KeyFrameTable::FindLeaf(UInt64 Leaf::*pStart, UInt64 value) const
{
    UInt32 leafNr = 0;
    while (leafNr + 1 < m_uiLeafs && LeafAt(leafNr + 1).*pStart <= value) {
        ++leafNr;
    }
    return leafNr;
}

bool KeyFrameTable::Prev(Position& position) const
{
    if (At(position) == Null || (position.leafNr == 0 && position.itemNr == 0)) {
        return false;
    }
    position = position.itemNr > 0 ? PositionOf(position.leafNr, position.itemNr - 1)
                                   : PositionOf(position.leafNr - 1, LeafAt(position.leafNr - 1).arrayLength - 1);
    return true;
}

// ---- The builder ----

UInt32 KeyFrameTableBuilder::AllocateArray(UInt32 leafs) const
{
    ReleaseKeyFrameTable(m_pAviInfo, TableReleaseTrace::IndexDriver);
    const UInt32 bytes = leafs * static_cast<UInt32>(sizeof(Leaf*));
    m_pAviInfo->KeyFramesListAsArray = static_cast<Leaf**>(AllocateCleared(leafs, sizeof(Leaf*)));
    if (m_pAviInfo->KeyFramesListAsArray == Null) {
        LogRow(m_pMessages, TableText::ArrayFailed, bytes);
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    LogRow(m_pMessages, TableText::ArraySucceeded, bytes, leafs);
    return LX_OK;
}

Leaf* KeyFrameTableBuilder::AllocateLeaf(UInt32 leafNr) const
{
    Leaf* const pLeaf = AllocateRecord<Leaf>();
    if (pLeaf == Null) {
        LogRow(m_pMessages, TableText::LeafFailed, static_cast<UInt32>(sizeof(Leaf)), leafNr);
    } else {
        LogRow(m_pMessages, TableText::LeafSucceeded, static_cast<UInt32>(sizeof(Leaf)));
    }
    m_pAviInfo->KeyFramesListAsArray[leafNr] = pLeaf;
    return pLeaf;
}

UInt32 KeyFrameTableBuilder::AllocateLeafs(UInt32 neededLeafs) const
{
    for (UInt32 i = 0; i < neededLeafs; ++i) {
        if (AllocateLeaf(i) == Null) {
            FreeLeafs(m_pAviInfo->KeyFramesListAsArray, i);
            return LX_ERR_AVIREAD_NO_MEMORY;
        }
    }
    return LX_OK;
}

UInt32 KeyFrameTableBuilder::Create(UInt32 neededLeafs)
{
    LX_AVIREAD_TRY(AllocateArray(neededLeafs));
    LX_AVIREAD_TRY(AllocateLeafs(neededLeafs));
    m_pAviInfo->KeyFramesListAsArrayLength = neededLeafs;
    s_uiOwnedLeafs = neededLeafs;
    LogRow(m_pMessages, TableText::LeafsSucceeded, neededLeafs);
    return LX_OK;
}

// ---- A table of a size that is not known ----

UInt32 KeyFrameTableBuilder::CreateGrowing(UInt32 mostLeafs)
{
    if (mostLeafs == 0) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    LX_AVIREAD_TRY(AllocateArray(mostLeafs));
    m_uiMostLeafs = mostLeafs;
    return Grow() ? LX_OK : UInt32{LX_ERR_AVIREAD_NO_MEMORY};
}

// Allocates one more leaf.
bool KeyFrameTableBuilder::Grow()
{
    m_bOutOfMemory = AllocateLeaf(s_uiOwnedLeafs) == Null;
    if (!m_bOutOfMemory) {
        m_pAviInfo->KeyFramesListAsArrayLength = ++s_uiOwnedLeafs;
    }
    return !m_bOutOfMemory;
}

bool KeyFrameTableBuilder::IsFull() const
{
    return m_uiLeafNr + 1 == m_uiMostLeafs && s_uiOwnedLeafs == m_uiMostLeafs &&
           m_pAviInfo->KeyFramesListAsArray[m_uiLeafNr]->arrayLength == LEAF_ARRAY_LENGTH;
}

UInt32 KeyFrameTableBuilder::KeepEverySecond()
{
    Leaf** const ppLeafs = m_pAviInfo->KeyFramesListAsArray;
    const auto entryAt = [&](UInt32 nr) -> Entry& {
        return ppLeafs[nr / LEAF_ARRAY_LENGTH]->array[nr % LEAF_ARRAY_LENGTH];
    };
    const UInt32 stored = m_uiLeafNr * LEAF_ARRAY_LENGTH + ppLeafs[m_uiLeafNr]->arrayLength;
    const UInt32 kept = DivideUp(stored, 2);
    for (UInt32 nr = 1; nr < kept; ++nr) {
        entryAt(nr) = entryAt(2 * nr);
    }
    for (UInt32 nr = kept; nr < stored; ++nr) {
        entryAt(nr) = {};
    }
    leafsInUse = DivideUp(kept, LEAF_ARRAY_LENGTH);
    m_uiLeafNr = leafsInUse - 1;
    for (UInt32 leafNr = m_uiLeafNr; leafNr < s_uiOwnedLeafs; ++leafNr) {
        ppLeafs[leafNr]->arrayLength = leafNr == m_uiLeafNr ? kept - m_uiLeafNr * LEAF_ARRAY_LENGTH : 0;
        ppLeafs[leafNr]->pNextLeaf = Null;
    }
    return stored;
}

void KeyFrameTableBuilder::FreeEmptyLeafs() const
{
    FreeLeafs(m_pAviInfo->KeyFramesListAsArray + leafsInUse, s_uiOwnedLeafs - leafsInUse);
    s_uiOwnedLeafs = leafsInUse;
    m_pAviInfo->KeyFramesListAsArrayLength = leafsInUse;
}

// ---- Entries ----

bool KeyFrameTableBuilder::RollOver()
{
    if (m_bFull) {
        return false; // the failed assertion is reported once
    }
    LogRow(m_pMessages, TableText::LeafFull, m_uiLeafNr, m_uiLeafNr + 1);
    if (m_uiLeafNr + 1 >= m_pAviInfo->KeyFramesListAsArrayLength && m_uiMostLeafs > 0 && !Grow()) {
        return false;
    }
    m_bFull = m_uiLeafNr + 1 >= m_pAviInfo->KeyFramesListAsArrayLength;
    LX_ASSERT(!m_bFull, "pCurrentLeaf!=Null", "List structure must be initialized");
    if (m_bFull) {
        return false;
    }
    Leaf* const pOld = m_pAviInfo->KeyFramesListAsArray[m_uiLeafNr];
    Leaf* const pNew = m_pAviInfo->KeyFramesListAsArray[++m_uiLeafNr];
    pOld->pNextLeaf = pNew;
    if (pNew->arrayLength != 0) { // filled before; a leaf is cleared when it is allocated
        std::memset(pNew, 0, sizeof *pNew);
    }
    pNew->pPrevLeaf = pOld;
    return true;
}

Entry* KeyFrameTableBuilder::Append()
{
    if (m_uiLeafNr >= m_pAviInfo->KeyFramesListAsArrayLength || m_uiLeafNr > leafsInUse) {
        return Null; // no such leaf, or the leaf before it is empty
    }
    if (m_pAviInfo->KeyFramesListAsArray[m_uiLeafNr]->arrayLength >= LEAF_ARRAY_LENGTH && !RollOver()) {
        return Null;
    }
    Leaf* const pLeaf = m_pAviInfo->KeyFramesListAsArray[m_uiLeafNr];
    leafsInUse = std::max(leafsInUse, m_uiLeafNr + 1);
    return &pLeaf->array[pLeaf->arrayLength++];
}

UInt32 KeyFrameTableBuilder::ItemNr() const { return m_pAviInfo->KeyFramesListAsArray[m_uiLeafNr]->arrayLength - 1; }

UInt32 KeyFrameTableBuilder::LeafsInUse() const { return KeyFrameTable(m_pAviInfo).LeafCount(); }

void KeyFrameTableBuilder::Finish() const
{
    for (UInt32 i = 0; i < LeafsInUse(); ++i) {
        Leaf* const pLeaf = m_pAviInfo->KeyFramesListAsArray[i];
        const Entry& first = pLeaf->array[0];
        const Entry& last = pLeaf->array[pLeaf->arrayLength - 1];
        pLeaf->StartTimeMsec = first.timeMsec;
        pLeaf->EndTimeMsec = last.timeMsec;
        pLeaf->StartOffset = first.videoChunkOffset;
        pLeaf->EndOffset = last.videoChunkOffset;
    }
}

UInt32 LeafsInBudget(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    return pAviInfo->memoryUsageLimit / static_cast<UInt32>(sizeof(Leaf) + sizeof(Leaf*));
}

// ---- Release ----

void ReleaseKeyFrameTable(lxAviReadCore_AviInfo_t* pAviInfo, TableReleaseTrace trace)
{
    if (pAviInfo->KeyFramesListAsArray != Null) {
        for (UInt32 i = 0; i < s_uiOwnedLeafs; ++i) {
            TraceRelease(trace, "pAviInfo->KeyFramesListAsArray[uiLoopCnt]", pAviInfo->KeyFramesListAsArray[i]);
        }
        FreeLeafs(pAviInfo->KeyFramesListAsArray, s_uiOwnedLeafs);
        TraceRelease(trace, "pAviInfo->KeyFramesListAsArray", pAviInfo->KeyFramesListAsArray);
        std::free(pAviInfo->KeyFramesListAsArray);
    }
    pAviInfo->KeyFramesListAsArray = Null;
    pAviInfo->KeyFramesListAsArrayLength = 0;
    s_uiOwnedLeafs = 0;
    leafsInUse = 0;
}

void ForgetDanglingPositions(lxAviReadCore_AviInfo_t* pAviInfo)
{
    const KeyFrameTable table(pAviInfo);
    if (table.At(lastPlayedKeyFrame) == Null) {
        lastPlayedKeyFrame = {};
    }
    if (table.At(pAviInfo->audioSyncLeafNr, pAviInfo->audioSyncItemNr) == Null) {
        pAviInfo->audioSyncLeafNr = 0;
        pAviInfo->audioSyncItemNr = 0;
    }
}

} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_CalcLeafsNeededAndSkipValue(lxAviReadCore_AviInfo_t* pAviInfo, UInt32* numberOfKeyFrames,
                                                 UInt32* neededLeafs, UInt32* neededMemory, UInt32* SkipKey)
{
    LX_ASSERT(numberOfKeyFrames != Null && neededLeafs != Null && neededMemory != Null && SkipKey != Null,
              "numberOfKeyFrames!=Null && neededLeafs!=Null && neededMemory!=Null && SkipKey!=Null",
              "outputs of lxAviReadCore_CalcLeafsNeededAndSkipValue must be initialized");
    if (numberOfKeyFrames == Null || neededLeafs == Null || neededMemory == Null || SkipKey == Null) {
        return LX_OK;
    }
    if (*numberOfKeyFrames == 0) {
        *neededLeafs = 0;
        *SkipKey = 0;
        *neededMemory = 0;
        pAviInfo->KeyFramesListAsArrayLength = 0;
        return LX_ERR_AVIREAD_NO_INDEX;
    }
    const UInt32 maxLeafs = LeafsInBudget(pAviInfo);
    if (maxLeafs == 0) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    const UInt32 leafs = DivideUp(*numberOfKeyFrames, LEAF_ARRAY_LENGTH);
    *SkipKey = maxLeafs < leafs ? DivideUp(leafs, maxLeafs) : 1; // Quirk Q17: from leaf counts, not from key frames
    *numberOfKeyFrames = DivideUp(*numberOfKeyFrames, *SkipKey);
    *neededLeafs = DivideUp(*numberOfKeyFrames, LEAF_ARRAY_LENGTH);
    *neededMemory = *neededLeafs * static_cast<UInt32>(sizeof(Leaf)); // Quirk Q18: without the array of pointers
    return LX_OK;
}

UInt32 lxAviReadCore_PrintIndex(void)
{
    const KeyFrameTable table(&lxAviReadCore_AviInfo);
    for (Position position = table.First(); position.valid != 0;) {
        const Entry& entry = *table.At(position);
        LX_LOG(kLevelIndex, "lxAviReadCore_PrintIndex: %d.%d fr#%d time=%d.%d offset=%d.%d audio 0 at %d ms",
               position.leafNr, position.itemNr, entry.videoFrameNumber, LX_HILO(entry.timeMsec),
               LX_HILO(entry.videoChunkOffset),
               lxAviReadCore_GetStreamTime(1, entry.audioFrameNumber[0], entry.audioBytePosition[0]));
        if (!table.Next(position)) {
            break;
        }
    }
    return LX_OK;
}

UInt32 lxAviReadCore_GetTableSummary(lxAviRead_TableSummary_t* pSummary)
{
    LX_ASSERT(pSummary != Null, "pSummary!=Null", "pSummary must be initialized");
    if (pSummary == Null) {
        return LX_OK;
    }
    *pSummary = {};
    const lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    const KeyFrameTable table(pAviInfo);
    if (!SummariesAreGiven(pAviInfo) || table.IsEmpty()) {
        return LX_OK;
    }
    const UInt32 lastLeaf = table.LeafCount() - 1;
    pSummary->eSource = tableOrigin.uiSource;
    pSummary->uiKeyFrames = tableOrigin.uiKeyFrames;
    pSummary->uiStored = lastLeaf * LEAF_ARRAY_LENGTH + table.LeafAt(lastLeaf).arrayLength;
    pSummary->uiStep = tableStep;
    return LX_OK;
}
