#include "FaultScript.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <malloc.h>

extern "C" {
void* __real_malloc(size_t bytes);
void __real_free(void* pBlock);
FILE* __real_fopen64(const char* path, const char* mode);
void* __wrap_malloc(size_t bytes);
void* __wrap_calloc(size_t count, size_t bytes);
void* __wrap_realloc(void* pBlock, size_t bytes);
void __wrap_free(void* pBlock);
FILE* __wrap_fopen64(const char* path, const char* mode);
size_t __real_fread_unlocked(void* pBuffer, size_t size, size_t count, FILE* pFile);
size_t __wrap_fread_unlocked(void* pBuffer, size_t size, size_t count, FILE* pFile);
int __real_getc_unlocked(FILE* pFile);
int __wrap_getc_unlocked(FILE* pFile);

void* __wrap_malloc(size_t bytes) { return avitest::FaultScript::Get().Allocate(bytes); }

// A compiler can turn malloc and memset into one call of calloc.
void* __wrap_calloc(size_t count, size_t bytes)
{
    void* const pBlock = avitest::FaultScript::Get().Allocate(count * bytes);
    return pBlock != nullptr ? std::memset(pBlock, 0, count * bytes) : nullptr;
}

void* __wrap_realloc(void* pBlock, size_t bytes) { return avitest::FaultScript::Get().Reallocate(pBlock, bytes); }
void __wrap_free(void* pBlock) { avitest::FaultScript::Get().Free(pBlock); }
FILE* __wrap_fopen64(const char* path, const char* mode) { return avitest::FaultScript::Get().Open(path, mode); }

size_t __wrap_fread_unlocked(void* pBuffer, size_t size, size_t count, FILE* pFile)
{
    avitest::FaultScript::Get().BeginRead(size * count);
    return __real_fread_unlocked(pBuffer, size, count, pFile);
}

int __wrap_getc_unlocked(FILE* pFile)
{
    avitest::FaultScript::Get().BeginRead(1);
    return __real_getc_unlocked(pFile);
}
}

namespace avitest {

namespace {

// A stream over bytes in memory.
struct Cookie {
    Bytes bytes;
    UInt64 uiPosition = 0; // can be behind the end
};

UInt64 s_uiOpenFiles = 0;

ssize_t ReadCookie(void* pCookie, char* pBuffer, size_t bytes)
{
    return FaultScript::Get().Read(pCookie, pBuffer, bytes);
}

int SeekCookie(void* pCookie, off64_t* pOffset, int whence)
{
    long long offset = *pOffset;
    const int result = FaultScript::Get().Seek(pCookie, &offset, whence);
    *pOffset = offset;
    return result;
}

int CloseCookie(void* pCookie)
{
    delete static_cast<Cookie*>(pCookie);
    --s_uiOpenFiles;
    return 0;
}

} // namespace

FaultScript& FaultScript::Get()
{
    static FaultScript* const s_pScript = new FaultScript; // never destroyed: late calls need it
    return *s_pScript;
}

void FaultScript::Clear()
{
    onRead = nullptr;
    m_bBuffered = false;
    m_failAllocation = m_failSeek = {};
    m_readFaults.clear();
    m_pending.reset();
    m_uiAllocations = m_uiReads = m_uiSeeks = m_uiBlocks = m_uiLargest = 0;
    m_readSizes.clear();
    m_bMet = false;
    m_files.clear();
    ResetPeak();
}

void FaultScript::ResetPeak() { m_uiPeakBytes = m_uiLiveBytes; }

void FaultScript::Serve(const std::string& path, const Bytes& bytes, bool bSeekable)
{
    std::erase_if(m_files, [&](const auto& file) { return file.first == path; });
    m_files.push_back({path, {bytes, bSeekable}});
}

void FaultScript::FailAllocation(UInt64 n, bool bFromThenOn)
{
    m_uiAllocations = 0;
    m_bMet = false;
    m_failAllocation = {n, bFromThenOn};
}

void FaultScript::FaultRead(UInt64 n, const ReadFault& fault, bool bFromThenOn)
{
    m_uiReads = 0;
    m_bMet = false;
    m_readFaults = {{{n, bFromThenOn}, fault}};
    m_pending.reset();
}

void FaultScript::FaultReadToo(UInt64 n, const ReadFault& fault) { m_readFaults.push_back({{n, false}, fault}); }

void FaultScript::FailSeek(UInt64 n, bool bFromThenOn)
{
    m_uiSeeks = 0;
    m_bMet = false;
    m_failSeek = {n, bFromThenOn};
}

void FaultScript::Meet()
{
    m_bMet = true;
    ++m_uiInjected;
}

UInt64 FaultScript::OpenFiles() const { return s_uiOpenFiles; }

void* FaultScript::Allocate(size_t bytes)
{
    if (m_failAllocation.Is(++m_uiAllocations)) {
        Meet();
        return nullptr;
    }
    void* const pBlock = __real_malloc(bytes);
    if (pBlock != nullptr) {
        std::memset(pBlock, 0xCD, bytes); // new memory is not cleared
        m_live.insert(pBlock);
        m_uiLiveBytes += malloc_usable_size(pBlock);
        m_uiPeakBytes = std::max(m_uiPeakBytes, m_uiLiveBytes);
        m_uiLargest = std::max<UInt64>(m_uiLargest, bytes);
    }
    return pBlock;
}

void* FaultScript::Reallocate(void* pBlock, size_t bytes)
{
    void* const pNew = Allocate(bytes);
    if (pNew != nullptr && pBlock != nullptr) {
        std::memcpy(pNew, pBlock, std::min(bytes, malloc_usable_size(pBlock)));
        Free(pBlock);
    }
    return pNew;
}

void FaultScript::Free(void* pBlock)
{
    if (m_live.erase(pBlock) != 0) { // skips blocks that the C library allocated
        m_uiLiveBytes -= malloc_usable_size(pBlock);
    }
    __real_free(pBlock);
}

FILE* FaultScript::Open(const char* path, const char* mode)
{
    for (const auto& [name, file] : m_files) {
        if (name != path) {
            continue;
        }
        cookie_io_functions_t functions = {};
        functions.read = ReadCookie;
        functions.seek = file.second ? SeekCookie : nullptr;
        functions.close = CloseCookie;
        FILE* const pFile = fopencookie(new Cookie{file.first}, mode, functions);
        ++s_uiOpenFiles;
        if (!m_bBuffered) {
            setvbuf(pFile, nullptr, _IONBF, 0);
        }
        return pFile;
    }
    return __real_fopen64(path, mode);
}

void FaultScript::BeginRead(size_t bytes)
{
    ++m_uiReads;
    m_readSizes.push_back(bytes);
    if (onRead) {
        onRead(m_uiReads);
    }
    for (const auto& [turn, fault] : m_readFaults) {
        if (turn.Is(m_uiReads) && !m_pending) {
            m_pending = fault;
        }
    }
}

long FaultScript::Read(void* pCookie, char* pBuffer, size_t bytes)
{
    ++m_uiBlocks;
    Cookie& cookie = *static_cast<Cookie*>(pCookie);
    const auto position = static_cast<size_t>(std::min<UInt64>(cookie.uiPosition, cookie.bytes.size()));
    size_t wanted = std::min(bytes, cookie.bytes.size() - position);
    if (m_pending) {
        if (m_pending->uiBytes == 0) {
            Meet();
            const bool bError = m_pending->eKind == ReadFault::Kind::ShortThenError;
            m_pending.reset();
            errno = EIO;
            return bError ? -1 : 0;
        }
        wanted = std::min(wanted, m_pending->uiBytes);
        m_pending->uiBytes -= wanted;
    }
    if (wanted > 0) {
        std::memcpy(pBuffer, cookie.bytes.data() + cookie.uiPosition, wanted);
        cookie.uiPosition += wanted;
    }
    return static_cast<long>(wanted);
}

int FaultScript::Seek(void* pCookie, long long* pOffset, int whence)
{
    Cookie& cookie = *static_cast<Cookie*>(pCookie);
    if (m_failSeek.Is(++m_uiSeeks)) {
        Meet();
        return -1;
    }
    const long long base = whence == SEEK_SET   ? 0
                           : whence == SEEK_CUR ? static_cast<long long>(cookie.uiPosition)
                                                : static_cast<long long>(cookie.bytes.size());
    if (base + *pOffset < 0) {
        return -1;
    }
    cookie.uiPosition = static_cast<UInt64>(base + *pOffset);
    *pOffset = static_cast<long long>(cookie.uiPosition);
    return 0;
}

} // namespace avitest
