// Replaces file and memory functions of the C library for the tests: it serves files from memory, lets reads, seeks and
// allocations fail as scripted, and counts them. The linker option --wrap redirects the functions in the test programs.

#pragma once

#include "Bytes.hpp"

#include <cstdio>
#include <functional>
#include <optional>
#include <set>
#include <string>

namespace avitest {

// What happens to the reads of a served file when the turn of the fault comes. A read is one call of fread_unlocked or
// getc_unlocked, so that a header word takes four of them.
struct ReadFault {
    enum class Kind {
        ShortThenError, // the read returns some bytes, then fails, but not with the end of the file
        EndOfFile,      // the read returns some bytes, then meets the end of the file
    };
    Kind eKind = Kind::ShortThenError;
    size_t uiBytes = 0; // bytes that the read returns before the fault, by this read and the ones that follow
};

constexpr UInt64 kCallsOfAWord = 4;

class FaultScript {
public:
    static FaultScript& Get();

    // Removes all served files and faults, and sets the counters to 0.
    void Clear();

    // From now on fopen64 of `path` returns a stream over `bytes`. When `bSeekable` is false, seeks in it fail.
    void Serve(const std::string& path, const Bytes& bytes, bool bSeekable = true);
    // When true, stdio buffers the streams opened from now on. This is faster, but do not script read faults then.
    void SetBuffered(bool bBuffered) { m_bBuffered = bBuffered; }

    // The n-th call from now on fails (1: the next call); with `bFromThenOn` also all calls after it.
    void FailAllocation(UInt64 n, bool bFromThenOn = false);
    void FaultRead(UInt64 n, const ReadFault& fault, bool bFromThenOn = false);
    void FaultReadToo(UInt64 n, const ReadFault& fault); // in addition to the read faults set before
    void FailSeek(UInt64 n, bool bFromThenOn = false);
    // Called at each read with the number of the read.
    std::function<void(UInt64)> onRead;

    UInt64 Allocations() const { return m_uiAllocations; }
    UInt64 LiveAllocations() const { return m_live.size(); }
    UInt64 OpenFiles() const; // number of served files that are not closed
    UInt64 LiveBytes() const { return m_uiLiveBytes; }
    UInt64 PeakBytes() const { return m_uiPeakBytes; }
    UInt64 LargestAllocation() const { return m_uiLargest; }
    void ResetPeak();
    UInt64 Reads() const { return m_uiReads; }
    UInt64 ReadSize(size_t i) const { return m_readSizes.at(i); }
    const std::vector<UInt64>& ReadSizes() const { return m_readSizes; }
    UInt64 Seeks() const { return m_uiSeeks; }
    UInt64 Blocks() const { return m_uiBlocks; }     // reads of the file itself; less than Reads when stdio buffers
    bool Met() const { return m_bMet; }              // a scripted fault has happened
    UInt64 Injected() const { return m_uiInjected; } // faults since the program began

    // The wrapped functions call these.
    void* Allocate(size_t bytes);
    void* Reallocate(void* pBlock, size_t bytes);
    void Free(void* pBlock);
    FILE* Open(const char* path, const char* mode);
    void BeginRead(size_t bytes);
    long Read(void* pCookie, char* pBuffer, size_t bytes);
    int Seek(void* pCookie, long long* pOffset, int whence);

private:
    struct Turn {
        UInt64 uiAt = 0; // 0: never
        bool bFromThenOn = false;

        bool Is(UInt64 n) const { return uiAt != 0 && (n == uiAt || (bFromThenOn && n > uiAt)); }
    };

    void Meet();

    bool m_bBuffered = false;
    Turn m_failAllocation, m_failSeek;
    std::vector<std::pair<Turn, ReadFault>> m_readFaults;
    std::optional<ReadFault> m_pending; // its turn has come; bytes may still be delivered before it
    UInt64 m_uiAllocations = 0, m_uiLiveBytes = 0, m_uiPeakBytes = 0, m_uiLargest = 0;
    UInt64 m_uiReads = 0, m_uiSeeks = 0, m_uiInjected = 0, m_uiBlocks = 0;
    std::vector<UInt64> m_readSizes;
    std::set<void*> m_live;
    bool m_bMet = false;
    std::vector<std::pair<std::string, std::pair<Bytes, bool>>> m_files;
};

} // namespace avitest
