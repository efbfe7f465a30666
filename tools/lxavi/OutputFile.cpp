#include "OutputFile.hpp"

#include <fmt/format.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace lxavi {

namespace fs = std::filesystem;

namespace {

// The files that are not complete. A signal handler may look at the list at any moment: every change is one store.
std::atomic<OutputFile*> s_pFirst;

} // namespace

void OutputFile::Enlist()
{
    m_pNext = s_pFirst;
    s_pFirst = this;
}

void OutputFile::Strike()
{
    if (s_pFirst == this) {
        s_pFirst = m_pNext;
        return;
    }
    for (OutputFile* pFile = s_pFirst; pFile != nullptr; pFile = pFile->m_pNext) {
        if (pFile->m_pNext == this) {
            pFile->m_pNext = m_pNext;
            return;
        }
    }
}

void RemovePartialFiles()
{
    for (const OutputFile* pFile = s_pFirst; pFile != nullptr; pFile = pFile->m_pNext) {
        unlink(pFile->m_partial.c_str());
    }
}

void RefuseToOverwrite(const fs::path& path, const std::string& input, bool force)
{
    std::error_code ignored;
    if (fs::equivalent(input, path, ignored)) {
        throw OutputFailure(path.string(), "is the input, which would be overwritten");
    }
    if (fs::exists(path, ignored) && !fs::is_regular_file(path, ignored)) {
        throw OutputFailure(path.string(), "is no regular file");
    }
    const bool isThere = fs::symlink_status(path, ignored).type() != fs::file_type::not_found; // also a link to nothing
    if (isThere && !force) {
        throw OutputFailure(path.string(), "exists: --force overwrites it");
    }
}

OutputFile::OutputFile(const fs::path& path, const std::string& input, bool force) : m_path(path)
{
    RefuseToOverwrite(path, input, force);
    const std::string suffix = ".partial";
    std::string name = path.string() + ".XXXXXX" + suffix;
    const int descriptor = mkstemps(name.data(), static_cast<int>(suffix.size()));
    if (descriptor < 0) {
        Fail();
    }
    m_partial = name;
    const mode_t mask = umask(0);
    umask(mask);
    static_cast<void>(fchmod(descriptor, 0666 & ~mask)); // as any new file has it
    m_file.reset(fdopen(descriptor, "wb"));
    if (m_file == nullptr) {
        close(descriptor);
        unlink(name.c_str());
        Fail();
    }
    Enlist();
}

OutputFile::~OutputFile()
{
    Strike();
    if (m_file != nullptr) {
        m_file.reset();
        std::error_code ignored;
        fs::remove(m_partial, ignored);
    }
}

void OutputFile::Fail() const
{
    throw OutputFailure(m_path.string(), fmt::format("cannot be written: {}", std::strerror(errno)));
}

void OutputFile::Write(std::span<const UInt8> bytes)
{
    if (std::fwrite(bytes.data(), 1, bytes.size(), m_file.get()) != bytes.size()) {
        Fail();
    }
    m_size += bytes.size();
}

void OutputFile::Write(const std::string& bytes)
{
    Write({reinterpret_cast<const UInt8*>(bytes.data()), bytes.size()});
}

void OutputFile::WriteAt(UInt64 offset, const std::string& bytes)
{
    if (fseeko64(m_file.get(), static_cast<off64_t>(offset), SEEK_SET) != 0 ||
        std::fwrite(bytes.data(), 1, bytes.size(), m_file.get()) != bytes.size() ||
        fseeko64(m_file.get(), 0, SEEK_END) != 0) {
        Fail();
    }
}

void OutputFile::Commit()
{
    if (std::fflush(m_file.get()) != 0 || fsync(fileno(m_file.get())) != 0) {
        Fail();
    }
    m_file.reset();
    std::error_code error;
    fs::rename(m_partial, m_path, error);
    Strike();
    if (error) {
        std::error_code ignored;
        fs::remove(m_partial, ignored);
        throw OutputFailure(m_path.string(), fmt::format("cannot be made: {}", error.message()));
    }
}

} // namespace lxavi
