// The key-frame table: a view to look entries up and step through them, and the builder that fills it.
//
//   KeyFramesListAsArray ──► leaf 0          leaf 1          …  leaf n-1
//                            entry 0         entry 363          entry …
//                            …               …                  …
//                            entry 362       entry 725          (the last leaf in use may be short, more may be empty)

#pragma once

#include "Memory.hpp"

#include <algorithm>

namespace lxAviReadCore {

using Leaf = lxAviReadCore_KeyFrameLeaf_t;
using Entry = lxAviReadCore_KeyFrameEntry_t;
using Position = lxAviReadCore_KeyFramePosition_t;

// Leaves that hold at least one entry.
extern UInt32 leafsInUse;

// What the table was built from. Of no meaning without a table.
struct TableOrigin {
    UInt32 uiSource;    // LX_AVIREAD_TABLE_…
    UInt32 uiKeyFrames; // that the source names
};
extern TableOrigin tableOrigin;
// Every tableStep-th key frame is stored.
extern UInt32 tableStep;

// A view of the table. All stepping is done here.
class KeyFrameTable {
public:
    explicit KeyFrameTable(const lxAviReadCore_AviInfo_t* pAviInfo)
        : m_ppLeafs(pAviInfo->KeyFramesListAsArray),
          m_uiLeafs(m_ppLeafs != Null ? std::min(leafsInUse, pAviInfo->KeyFramesListAsArrayLength) : 0)
    {
    }

    bool IsEmpty() const { return m_uiLeafs == 0; }
    UInt32 LeafCount() const { return m_uiLeafs; } // leaves in use

    // A leaf in use; `leafNr` is below LeafCount.
    Leaf& LeafAt(UInt32 leafNr) const { return *m_ppLeafs[leafNr]; }

    // The entry, or null when the position designates none.
    Entry* At(UInt32 leafNr, UInt32 itemNr) const
    {
        return leafNr < m_uiLeafs && itemNr < m_ppLeafs[leafNr]->arrayLength ? &m_ppLeafs[leafNr]->array[itemNr] : Null;
    }
    Entry* At(const Position& position) const { return At(position.leafNr, position.itemNr); }

    // The valid position of an entry.
    Position PositionOf(UInt32 leafNr, UInt32 itemNr) const;

    Position First() const { return PositionOf(0, 0); }
    Position Last() const;

    // The last leaf whose bound `pStart` (StartOffset or StartTimeMsec) is not greater than `value`, or else the first
    // leaf.
    UInt32 FindLeaf(UInt64 Leaf::*pStart, UInt64 value) const;

    // Move to the neighbour; false, and the position unchanged, where there is none.
    [[nodiscard]] bool Next(Position& position) const
    {
        const bool bInLeaf = At(position.leafNr, position.itemNr + 1) != Null;
        const UInt32 leafNr = bInLeaf ? position.leafNr : position.leafNr + 1;
        const UInt32 itemNr = bInLeaf ? position.itemNr + 1 : 0;
        const Entry* const pEntry = At(leafNr, itemNr);
        if (pEntry != Null) {
            position = {leafNr, itemNr, pEntry->videoChunkOffset, 1};
        }
        return pEntry != Null;
    }
    [[nodiscard]] bool Prev(Position& position) const;

private:
    Leaf** m_ppLeafs;
    UInt32 m_uiLeafs;
};

// The key frame whose chunk begins at `offset`; not valid when there is none. The table must not be empty.
Position FindKeyFrameAt(const KeyFrameTable& table, UInt64 offset);

// The messages in which the index families differ while they build the table.
enum class TableText : UInt32 {
    ArrayFailed,    // bytes
    ArraySucceeded, // bytes, leaves
    LeafFailed,     // bytes, leaf
    LeafSucceeded,  // bytes
    LeafsSucceeded, // leaves
    LeafFull,       // old leaf, new leaf
    Count,
};
constexpr UInt8 kTableTextArguments[] = {1, 2, 2, 1, 1, 2};
using TableMessages = const MessageRow<TableText>*;

// Leaves that fit into the memory budget.
UInt32 LeafsInBudget(const lxAviReadCore_AviInfo_t* pAviInfo);

// Fills the table. Append never leaves the leaves that Create allocated, or that CreateGrowing allows.
class KeyFrameTableBuilder {
public:
    KeyFrameTableBuilder(lxAviReadCore_AviInfo_t* pAviInfo, TableMessages pMessages)
        : m_pAviInfo(pAviInfo), m_pMessages(pMessages)
    {
    }

    // Continues in a table that another builder has begun.
    void Resume(UInt32 leafNr) { m_uiLeafNr = leafNr; }

    // Releases the old table and allocates `neededLeafs` cleared leaves. Called once, before anything is appended.
    [[nodiscard]] UInt32 Create(UInt32 neededLeafs);

    // The same for a number of key frames that is not known: begins with one leaf, and goes up to `mostLeafs`.
    [[nodiscard]] UInt32 CreateGrowing(UInt32 mostLeafs);
    // Whether a growing table has no room for one more entry.
    bool IsFull() const;
    // Keeps every second entry, from the first on. Returns how many there were.
    UInt32 KeepEverySecond();
    // Frees the leaves behind the last one in use.
    void FreeEmptyLeafs() const;

    // The place of the next entry, cleared and counted; null when the last leaf is full, or when the heap is exhausted.
    Entry* Append();
    bool IsOutOfMemory() const { return m_bOutOfMemory; }

    // Sets the bounds of every leaf in use.
    void Finish() const;

    UInt32 LeafNr() const { return m_uiLeafNr; }
    UInt32 ItemNr() const; // of the entry appended last
    UInt32 LeafsInUse() const;

private:
    [[nodiscard]] UInt32 AllocateArray(UInt32 leafs) const;
    Leaf* AllocateLeaf(UInt32 leafNr) const;
    [[nodiscard]] UInt32 AllocateLeafs(UInt32 neededLeafs) const;
    bool Grow();
    bool RollOver();

    lxAviReadCore_AviInfo_t* m_pAviInfo;
    TableMessages m_pMessages;
    UInt32 m_uiLeafNr = 0;
    UInt32 m_uiMostLeafs = 0; // of a growing table
    bool m_bFull = false;     // a key frame found no room
    bool m_bOutOfMemory = false;
};

// Who releases the table; the traces differ.
enum class TableReleaseTrace { CleanUp, IndexDriver };

// Frees the table, also when its length in the state is 0 already.
void ReleaseKeyFrameTable(lxAviReadCore_AviInfo_t* pAviInfo, TableReleaseTrace trace);

// Clears the position of the key frame played last, and that of the sync entry, where the table has no such entry any
// more.
void ForgetDanglingPositions(lxAviReadCore_AviInfo_t* pAviInfo);

} // namespace lxAviReadCore
