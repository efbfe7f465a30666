// Files that commands write.

#pragma once

#include "Reader.hpp"

#include <filesystem>
#include <memory>
#include <span>
#include <string>

namespace lxavi {

// Throws OutputFailure when a file must not be written there; see OutputFile.
void RefuseToOverwrite(const std::filesystem::path& path, const std::string& input, bool force);

// Removes the files below that are not complete. A signal handler may call it before it ends the program.
void RemovePartialFiles();

// A file that appears under its name only when it is complete. Until then it has a name of its own in the same folder, with
// ".partial" at the end, which no other file has.
class OutputFile {
public:
    // Throws OutputFailure when it cannot be made, when `path` is there and no regular file, when it is the file of the
    // name `input`, and when it exists already and `force` is not set.
    OutputFile(const std::filesystem::path& path, const std::string& input, bool force);
    ~OutputFile(); // removes what was not committed
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // These throw OutputFailure when they fail.
    void Write(std::span<const UInt8> bytes);
    void Write(const std::string& bytes);
    void WriteAt(UInt64 offset, const std::string& bytes); // in bytes that are written already
    void Commit();

    UInt64 Size() const { return m_size; }

private:
    struct Close {
        void operator()(FILE* file) const { std::fclose(file); }
    };

    friend void RemovePartialFiles();

    [[noreturn]] void Fail() const;
    void Enlist();
    void Strike();

    std::filesystem::path m_path;
    std::filesystem::path m_partial;
    std::unique_ptr<FILE, Close> m_file;
    OutputFile* m_pNext = nullptr; // of those that are not complete
    UInt64 m_size = 0;
};

} // namespace lxavi
