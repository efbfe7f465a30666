// The heap: checked sizes, and the blocks that outlive the pointer to them in the reader state.

#pragma once

#include "State.hpp"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace lxAviReadCore {

// Cleared memory for `count` records, or null when there is none or the size cannot be expressed.
inline void* AllocateCleared(UInt64 count, size_t recordSize)
{
    if (count > SIZE_MAX / recordSize) { // GCOVR_EXCL_BR_LINE: counts have 32 bits, sizes 64 where coverage is measured
        return Null;                     // GCOVR_EXCL_LINE
    }
    return std::calloc(static_cast<size_t>(count), recordSize);
}

template <typename Record>
Record* AllocateRecord()
{
    return static_cast<Record*>(AllocateCleared(1, sizeof(Record)));
}

// Frees a block with its trace, and clears the pointer to it.
template <typename Record>
void FreeLogged(Record*& pBlock)
{
    LX_LOG(kLevelMemory, "lxalAviRead_Free( 0x%x )", static_cast<UInt32>(reinterpret_cast<std::uintptr_t>(pBlock)));
    std::free(pBlock);
    pBlock = Null;
}

// ---- The buffer for batches of index records ----

constexpr UInt32 kMetaDataBytes = 18000;

// Makes `pMetaDataBuffer` a cleared buffer of kMetaDataBytes. It stays null when the heap is exhausted.
bool AcquireMetaDataBuffer(lxAviReadCore_AviInfo_t* pAviInfo);
void ClearMetaDataBuffer(lxAviReadCore_AviInfo_t* pAviInfo);
void ReleaseMetaDataBuffer(lxAviReadCore_AviInfo_t* pAviInfo);
// Frees the buffer also when Reset has cleared the pointer to it.
void ReleaseForgottenMetaDataBuffer();

// ---- What belongs to a stream ----

// Frees the super-index entries of a stream, if any.
void ReleaseSuperIndex(lxAviReadCore_StreamInfo_t* pStream);

} // namespace lxAviReadCore
