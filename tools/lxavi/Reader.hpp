// The library as the tool drives it: one open file, its chunks with their payload in bounded pieces.

#pragma once

#include "lxAviRead.h"

#include <cstdio>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace lxavi {

// What went wrong, ready to be printed behind the file's name.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    Failure(const std::string& what, UInt32 code);
};

std::string CodeName(UInt32 code);

struct Options {
    std::string file;
    UInt32 attempts = 1;
    UInt32 budget = 1u << 20;
    UInt32 indxOption = 1;
    bool strict = false; // keep the library's oddities instead of following the format
    UInt32 logMask = 0;
    bool json = false;
    bool csv = false;
};

// A chunk that the library has told of.
struct Item {
    UInt32 result = LX_OK;
    lxAviRead_ChunkData_t chunk = {};
    bool jumped = false;
    UInt64 offset = 0; // of the chunk header in the file; of the payload minus 8 after a trim
    UInt32 track = 0;
    UInt32 time = 0; // milliseconds
};

class Reader {
public:
    explicit Reader(const Options& options); // opens; throws Failure
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    const lxAviReadCore_AviInfo_t& State() const { return *lxAviReadCore_GetAviInfo(); }
    const Options& Settings() const { return m_options; }

    // Builds the key-frame table; LX_OK or why there is none.
    UInt32 BuildIndex();
    bool HasTable() const;
    // Goes to the first chunk.
    void Start();
    // Arms a jump; throws Failure when there is no table. The time of the key frame.
    UInt32 Seek(UInt32 timeMsec, int audioTrack, UInt32 rounding);

    // The track, or -1 where the file has no such track: a jump for an absent track would lead nowhere.
    int TrackToPlay(UInt32 audio) const;

    // The next chunk, or a result that ends delivery (see IsEnd).
    Item Next(UInt32 audioTrack, UInt32 subtitleTrack);
    static bool IsEnd(const Item& item);
    static bool IsRejected(const Item& item) { return item.result != LX_OK && !IsEnd(item); }

    // Hands the payload of a delivered chunk on in pieces. What could not be read throws Failure.
    void ReadPayload(const Item& item, const std::function<void(std::span<const UInt8>)>& take);
    // Skips the payload of a delivered or rejected chunk, as far as its size can be trusted.
    void Skip(const Item& item);

    // The entries of the table in order.
    std::vector<const lxAviReadCore_KeyFrameEntry_t*> Table() const;
    const lxAviReadCore_StreamInfo_t* Stream(UInt32 number) const;
    UInt32 StreamCount() const; // those that were described
    UInt64 FileSize() const { return m_fileSize; }
    bool IsRegularFile() const { return m_isRegular; } // and can be opened a second time

private:
    Options m_options;
    UInt64 Position() const;

    UInt64 m_fileSize = 0;
    UInt64 m_delivered = 0; // payload bytes that the library has counted in advance
    bool m_isRegular = false;
    std::vector<UInt32> m_buffer; // a piece, with the room that several read attempts need
};

} // namespace lxavi
