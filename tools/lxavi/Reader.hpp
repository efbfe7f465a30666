// Calls the library for the tool: one open file, its chunks, and their payload in pieces of limited size.

#pragma once

#include "lxAviRead.h"

#include <cstdio>
#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace lxavi {

// An error. Its text is printed behind the name of the input.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    Failure(const std::string& what, UInt32 code);
};

// An error of a file that is written. Its text is printed behind the name of that file.
class OutputFailure : public std::runtime_error {
public:
    OutputFailure(std::string path, const std::string& what) : std::runtime_error(what), m_path(std::move(path)) {}
    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
};

// Wrong arguments, found by a command.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

std::string CodeName(UInt32 code);

// When the key-frame table is built from the media data and not from an index.
enum class Rebuild {
    Never,
    WithoutIndex, // where no index can be used
    Always,
};

struct Options {
    std::string command; // its name
    std::string file;    // "-" is standard input
    UInt32 attempts = 1;
    UInt32 budget = 1u << 20;
    UInt32 indxOption = 1;
    bool defaultMode = false; // true: default mode; false: format mode
    UInt32 logMask = 0;
    Rebuild rebuild = Rebuild::Never;
    bool json = false;
    bool csv = false;
    std::vector<std::string> fields; // that are printed; none: all

    bool IsForPeople() const { return !json && !csv; }
    // The name of the input for people.
    std::string Name() const { return file == "-" ? "standard input" : file; }
    // The name to open the input by.
    std::string Path() const { return file == "-" ? "/dev/stdin" : file; }
};

// One result of NextChunk.
struct Item {
    UInt32 result = LX_OK;
    lxAviRead_ChunkData_t chunk = {};
    bool jumped = false;
    UInt64 offset = 0; // file offset of the chunk header; after a trim, offset of the payload minus 8
    UInt32 track = 0;
    UInt32 time = 0;    // milliseconds
    UInt32 endTime = 0; // when the next chunk of its stream begins
};

class Reader {
public:
    explicit Reader(const Options& options); // opens; throws Failure
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    const lxAviReadCore_AviInfo_t& State() const { return *lxAviReadCore_GetAviInfo(); }
    const Options& Settings() const { return m_options; }

    // Builds the key-frame table, as the options say. The result is LX_OK, or the reason why there is no table.
    UInt32 BuildIndex();
    // Builds it from the media data, with a progress bar.
    UInt32 ParseMediaData();
    // Whether the table comes from the media data.
    bool IsRebuilt() const { return m_isRebuilt; }
    bool HasTable() const;
    // Goes to the first chunk.
    void Start();
    // Arms a jump and returns the time of the key frame. Throws Failure when there is no table.
    UInt32 Seek(UInt32 timeMsec, int audioTrack, UInt32 rounding);

    // Audio tracks and subtitle tracks that can be delivered.
    UInt32 AudioTracks() const;
    UInt32 SubtitleTracks() const;
    // The audio track that the user wants, or else the first; -1 when the file has none, because a jump for a missing track
    // would do nothing (quirk Q29). Throws Failure when the file does not have the wanted one.
    int TrackToPlay(std::optional<UInt32> wanted) const;
    // The same for subtitles.
    UInt32 SubtitleToPlay(std::optional<UInt32> wanted) const;

    // The next chunk, or a result that ends delivery (see IsEnd).
    Item Next(UInt32 audioTrack, UInt32 subtitleTrack);
    static bool IsEnd(const Item& item);
    static bool IsRejected(const Item& item) { return item.result != LX_OK && !IsEnd(item); }

    // Passes the payload of a delivered chunk to `take` in pieces. Throws Failure when a read fails.
    void ReadPayload(const Item& item, const std::function<void(std::span<const UInt8>)>& take);
    // The bytes of a chunk's payload that the input has; all of them where nobody knows how long the input is.
    UInt32 BytesThere(const Item& item) const;
    // Skips the payload of a delivered or rejected chunk, unless its size cannot be trusted.
    void Skip(const Item& item);

    // All entries of the table, in order.
    std::vector<const lxAviReadCore_KeyFrameEntry_t*> Table() const;
    const lxAviReadCore_StreamInfo_t* Stream(UInt32 number) const;
    UInt32 StreamCount() const;                        // streams that the headers describe
    UInt64 FileSize() const { return m_fileSize; }     // 0 when it is not known
    bool IsRegularFile() const { return m_isRegular; } // then it can be opened a second time

private:
    void LookAtInput();
    UInt32 ParseIndex();
    UInt64 Position() const;
    std::string WhichChunk(const Item& item) const;

    Options m_options;
    bool m_isRebuilt = false;

    UInt64 m_fileSize = 0;
    UInt64 m_delivered = 0; // payload bytes that the library has counted, but the tool has not read
    bool m_isRegular = false;
    std::vector<UInt32> m_buffer; // room for one piece, four times its size (quirk Q06)
};

} // namespace lxavi
