// Stands between the reader and its surroundings: serves files from memory with scripted faults, and counts or fails
// allocations. The test programs are linked with --wrap for the functions concerned.

#pragma once

#include "Bytes.hpp"

#include <cstdio>
#include <functional>
#include <optional>
#include <set>
#include <string>

namespace avitest {

// What a read of a served file does when its turn comes.
struct ReadFault {
    enum class Kind {
        ShortThenError, // delivers some bytes, then fails without end of file
        EndOfFile,      // delivers some bytes, then the end of the file
    };
    Kind eKind = Kind::ShortThenError;
    size_t uiBytes = 0; // delivered before the fault
};

class FaultScript {
public:
    static FaultScript& Get();

    // Back to: real files, no faults, counters 0.
    void Clear();

    // fopen64 of `path` gives a stream over `bytes`. Without `bSeekable` its seeks fail.
    void Serve(const std::string& path, const Bytes& bytes, bool bSeekable = true);
    // Streams opened from now on are buffered by stdio: faster, and without faults.
    void SetBuffered(bool bBuffered) { m_bBuffered = bBuffered; }

    // From its n-th occasion (1 is the next one) on, once or for all that follow.
    void FailAllocation(UInt64 n, bool bFromThenOn = false);
    void FaultRead(UInt64 n, const ReadFault& fault, bool bFromThenOn = false);
    void FaultReadToo(UInt64 n, const ReadFault& fault); // besides the ones asked for already
    void FailSeek(UInt64 n, bool bFromThenOn = false);
    // Called at each read, with its number.
    std::function<void(UInt64)> onRead;

    UInt64 Allocations() const { return m_uiAllocations; }
    UInt64 LiveAllocations() const { return m_live.size(); }
    UInt64 OpenFiles() const; // served and not closed
    UInt64 LiveBytes() const { return m_uiLiveBytes; }
    UInt64 PeakBytes() const { return m_uiPeakBytes; }
    UInt64 LargestAllocation() const { return m_uiLargest; }
    void ResetPeak();
    UInt64 Reads() const { return m_uiReads; }
    UInt64 ReadSize(size_t i) const { return m_readSizes.at(i); }
    const std::vector<UInt64>& ReadSizes() const { return m_readSizes; }
    UInt64 Seeks() const { return m_uiSeeks; }
    bool Met() const { return m_bMet; } // a scripted fault has happened
    UInt64 Injected() const { return m_uiInjected; } // since the program began

    // For the wrapped functions.
    void* Allocate(size_t bytes);
    void* Reallocate(void* pBlock, size_t bytes);
    void Free(void* pBlock);
    FILE* Open(const char* path, const char* mode);
    void BeginRead(size_t bytes);
    void EndRead();
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
    std::optional<ReadFault> m_pending; // of the read that is under way
    UInt64 m_uiAllocations = 0, m_uiLiveBytes = 0, m_uiPeakBytes = 0, m_uiLargest = 0;
    UInt64 m_uiReads = 0, m_uiSeeks = 0, m_uiInjected = 0;
    std::vector<UInt64> m_readSizes;
    std::set<void*> m_live;
    bool m_bMet = false;
    std::vector<std::pair<std::string, std::pair<Bytes, bool>>> m_files;
};

} // namespace avitest
