// The order of the writes leaves the file at least as playable as it was, wherever it is interrupted:
//
//   1  the size of the `movi` list        ends the media data where they end
//   2  the size of the RIFF list          ends there, too: what is appended behind it is not part of the file yet
//   3  the index, behind the media data   as a chunk of padding that is whole from the start: first zeros, then its
//                                         header, then the records, so that nobody takes one of them for a chunk
//   4  counts and lengths                 each is right by itself
//   5  the size of the RIFF list          now the padding is part of the file
//   6  the code of the padding            becomes that of an index
//   7  the flag that there is an index
//
// An index that is there in part was left by such an interruption if it equals the first bytes of the one that would be
// written, and has zeros behind them. Any other bytes behind the media data are not touched.

#include "InPlace.hpp"

#include "RiffScan.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace lxavi {

namespace {

template <typename T>
std::string Bytes(const T& value)
{
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

// Where the fields stand in the payloads of their headers.
constexpr size_t kFlags = offsetof(lxAviRead_Avih_t, dwFlags);
constexpr size_t kFrames = offsetof(lxAviRead_Avih_t, dwTotalFrames);
constexpr size_t kLengthOfStream = offsetof(lxAviRead_Strh_t, dwLength);

// Where the headers are that have to be corrected.
struct Places {
    UInt64 avih = 0;             // payload
    std::vector<UInt64> streams; // payloads of the stream headers
    UInt64 dmlh = 0;             // payload of the extended header; 0: there is none
    UInt64 movi = 0;             // header of the list
};

// Finds them in the first RIFF list.
class PlaceFinder {
public:
    explicit PlaceFinder(SourceFile& file, UInt64 moviData) : m_file(file), m_end(moviData) {}

    Places Find()
    {
        constexpr UInt64 kRiffHeader = 12;
        Walk(kRiffHeader, m_end);
        return m_places;
    }

private:
    void Walk(UInt64 at, UInt64 end)
    {
        constexpr UInt64 kListHeader = 12;
        while (at + kListHeader <= end && m_places.movi == 0) {
            const ChunkHead header = m_file.HeaderAt(at);
            if (header.id == Code("LIST")) {
                TakeList(at, std::min(at + 8 + header.size, end));
            } else if (header.id == Code("avih") && header.size >= sizeof(lxAviRead_Avih_t)) {
                m_places.avih = at + 8;
            } else if (header.id == Code("strh") && header.size >= kLengthOfStream + sizeof(UInt32)) {
                m_places.streams.push_back(at + 8);
            } else if (header.id == Code("dmlh") && header.size >= sizeof(UInt32)) {
                m_places.dmlh = at + 8;
            }
            at += 8 + UInt64{header.size} + (header.size & 1);
        }
    }

    void TakeList(UInt64 at, UInt64 end)
    {
        const UInt32 type = m_file.HeaderAt(at + 8).id;
        if (type == Code("movi") && at + 12 == m_end) {
            m_places.movi = at;
        } else if (type == Code("hdrl") || type == Code("strl") || type == Code("odml")) {
            Walk(at + 12, end);
        }
    }

    SourceFile& m_file;
    UInt64 m_end; // where the media data begin
    Places m_places;
};

// Writes into an existing file, one piece after the other.
class Patcher {
public:
    explicit Patcher(const std::string& path) : m_file(open(path.c_str(), O_RDWR | O_CLOEXEC))
    {
        if (m_file < 0) {
            Fail();
        }
    }
    ~Patcher() { close(m_file); }
    Patcher(const Patcher&) = delete;
    Patcher& operator=(const Patcher&) = delete;

    // Writes the bytes, unless they are there already. Returns whether they were not.
    bool Write(UInt64 offset, const std::string& bytes)
    {
        std::string there(bytes.size(), '\0');
        const ssize_t got = pread(m_file, there.data(), there.size(), static_cast<off_t>(offset));
        if (got == static_cast<ssize_t>(bytes.size()) && there == bytes) {
            return false;
        }
        for (size_t done = 0; done < bytes.size();) {
            const ssize_t wrote =
                pwrite(m_file, bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
            if (wrote <= 0) {
                Fail();
            }
            done += static_cast<size_t>(wrote);
        }
        return true;
    }

    // Makes the file as long as that, with zeros. Returns whether it was shorter.
    bool Extend(UInt64 size)
    {
        if (lseek(m_file, 0, SEEK_END) >= static_cast<off_t>(size)) {
            return false;
        }
        if (ftruncate(m_file, static_cast<off_t>(size)) != 0) {
            Fail();
        }
        return true;
    }

    // What was written before is on the medium before what is written after.
    void Settle()
    {
        if (fsync(m_file) != 0) {
            Fail();
        }
    }

private:
    [[noreturn]] static void Fail() { throw Failure(fmt::format("cannot be written: {}", std::strerror(errno))); }

    int m_file;
};

class Completion {
public:
    // Refuses files that cannot be completed.
    Completion(const Reader& reader, const Inventory& inventory)
        : m_reader(reader), m_inventory(inventory), m_source(reader.Settings().file)
    {
        FindEnd();
        m_places = PlaceFinder(m_source, m_start).Find();
        if (m_places.avih == 0 || m_places.movi == 0 || m_places.streams.size() != reader.StreamCount()) {
            Refuse("its headers are damaged");
        }
        MakeIndex();
        LookBehind();
    }

    std::vector<std::string> Run()
    {
        Patcher file(m_reader.Settings().file);
        EndMediaData(file);
        file.Settle();
        Note(WriteIndex(file), "index");
        CorrectHeaders(file);
        file.Settle();
        Note(WriteFileSize(file, m_end + m_index.size()), "size of the file");
        file.Settle();
        Note(file.Write(m_end, "idx1"), "index");
        Note(WriteFlags(file), "flag of the index");
        file.Settle();
        return m_changed;
    }

private:
    [[noreturn]] static void Refuse(const std::string& why)
    {
        throw Failure("cannot be completed in place, " + why + ": write a copy with -o");
    }

    // The media data have to be chunks and padding, up to their end.
    void FindEnd()
    {
        constexpr UInt64 kMostBytes = 0xFFFFFFFF;
        constexpr UInt64 kRecordBytes = 16;
        if (m_inventory.Lists().size() != 1) {
            Refuse("it has several lists of media data");
        }
        if (m_inventory.BytesLeftOut() > 0) {
            Refuse(fmt::format("{} bytes of its media data are cut or damaged", m_inventory.BytesLeftOut()));
        }
        const Piece& last = m_inventory.Pieces().back();
        m_start = m_inventory.Lists().front().start;
        m_end = std::max(last.offset + 8 + last.size, m_inventory.Lists().front().end);
        m_end += m_end % 2;
        if (m_end + 8 + kRecordBytes * m_inventory.Pieces().size() > kMostBytes) {
            Refuse("it is too large for one list");
        }
    }

    void MakeIndex()
    {
        std::string records;
        for (const Piece& piece : m_inventory.Pieces()) {
            const UInt64 moviCode = m_start - 4;
            records += Idx1Record(piece.id, piece.listed, static_cast<UInt32>(piece.offset - moviCode), piece.size);
        }
        m_index = ChunkBytes(Code("idx1"), records);
    }

    void LookBehind()
    {
        const UInt64 behind = m_reader.FileSize() - std::min(m_reader.FileSize(), m_end);
        const std::vector<UInt8> bytes =
            m_source.Bytes(m_reader.FileSize() - behind, static_cast<size_t>(std::min<UInt64>(behind, m_index.size())));
        const std::string there(bytes.begin(), bytes.end());
        const bool isIndex = there.starts_with("idx1");
        m_index.replace(0, 4, isIndex ? "idx1" : "JUNK");
        if (behind != 0 && (behind != m_index.size() || !IsBegun(there))) {
            const bool isComplete = behind > m_index.size() && there == m_index;
            Refuse(isComplete ? fmt::format("{} bytes follow its index", behind - m_index.size())
                   : isIndex  ? "it has another index"
                              : fmt::format("{} bytes follow its media data", behind));
        }
        m_isIndexThere = isIndex;
    }

    // Whether the bytes are the first ones of the index, and zeros.
    bool IsBegun(const std::string& there) const
    {
        const auto differs = std::mismatch(there.begin(), there.end(), m_index.begin()).first;
        return std::all_of(differs, there.end(), [](char byte) { return byte == 0; });
    }

    void EndMediaData(Patcher& file)
    {
        if (m_end > m_reader.FileSize()) {
            Note(file.Write(m_end - 1, std::string(1, '\0')), "pad byte of the last chunk");
        }
        const UInt64 behindSize = m_places.movi + 8;
        Note(file.Write(m_places.movi + 4, Bytes(static_cast<UInt32>(m_end - behindSize))), "size of the media data");
        if (!m_isIndexThere) { // else it may be in use
            Note(WriteFileSize(file, m_end), "size of the file");
        }
    }

    static bool WriteFileSize(Patcher& file, UInt64 end) { return file.Write(4, Bytes(static_cast<UInt32>(end - 8))); }

    // In pieces, so that a large index is not one write.
    bool WriteIndex(Patcher& file) const
    {
        constexpr size_t kHeader = 8;
        constexpr size_t kPiece = 64 * 1024;
        bool written = file.Extend(m_end + m_index.size());
        written = file.Write(m_end, m_index.substr(0, kHeader)) || written;
        for (size_t at = kHeader; at < m_index.size(); at += kPiece) {
            written = file.Write(m_end + at, m_index.substr(at, kPiece)) || written;
        }
        return written;
    }

    void CorrectHeaders(Patcher& file)
    {
        for (UInt32 i = 0; i < m_reader.StreamCount(); ++i) {
            const UInt64 at = m_places.streams[i] + kLengthOfStream;
            Note(file.Write(at, Bytes(m_inventory.LengthOf(i))), fmt::format("length of stream {}", i));
        }
        if (const int video = m_reader.State().videoStreamNr; video >= 0) {
            const std::string frames = Bytes(m_inventory.LengthOf(static_cast<UInt32>(video)));
            Note(file.Write(m_places.avih + kFrames, frames), "number of frames");
            Note(m_places.dmlh != 0 && file.Write(m_places.dmlh, frames), "number of frames");
        }
    }

    bool WriteFlags(Patcher& file)
    {
        const UInt64 at = m_places.avih + kFlags;
        UInt32 flags = 0;
        std::memcpy(&flags, m_source.Bytes(at, sizeof flags).data(), sizeof flags);
        return file.Write(at, Bytes(flags | LX_AVIREAD_HAS_INDEX));
    }

    void Note(bool changed, const std::string& what)
    {
        if (changed && std::find(m_changed.begin(), m_changed.end(), what) == m_changed.end()) {
            m_changed.push_back(what);
        }
    }

    const Reader& m_reader;
    const Inventory& m_inventory;
    SourceFile m_source;
    Places m_places;
    UInt64 m_start = 0; // of the media data
    UInt64 m_end = 0;
    std::string m_index; // as a chunk of padding, or as an index where one is begun
    bool m_isIndexThere = false;
    std::vector<std::string> m_changed;
};

} // namespace

std::vector<std::string> CompleteInPlace(const Reader& reader, const Inventory& inventory)
{
    return Completion(reader, inventory).Run();
}

} // namespace lxavi
