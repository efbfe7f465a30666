// What a file's media data have, and what an index and headers should say about them.

#pragma once

#include "AviWriter.hpp"
#include "MediaData.hpp"

#include <array>
#include <set>

namespace lxavi {

// A chunk that belongs into a repaired file.
struct Piece {
    UInt64 offset; // of its header
    UInt32 id;
    UInt32 size;
    UInt32 streamNr;
    Listed listed;
};

class Inventory {
public:
    // Walks over the media data. Throws Failure when there are none.
    explicit Inventory(Reader& reader);

    const std::vector<Piece>& Pieces() const { return m_pieces; } // in file order
    const std::vector<Extent>& Lists() const { return m_lists; }
    // The length of a stream in its units; what its header says, where nothing else is known.
    UInt32 LengthOf(UInt32 streamNr) const { return m_lengths[streamNr]; }

    UInt64 KeyFrames() const { return m_keyFrames; }
    UInt64 PlacesLeftOut() const { return m_placesLeftOut; } // bytes of the lists that are no chunks
    UInt64 BytesLeftOut() const { return m_bytesLeftOut; }
    // The places of the lists that are no chunks, and that have room for one.
    const std::vector<Extent>& Damage() const { return m_damage; }
    UInt64 BytesOutside() const { return m_bytesOutside; } // of the lists, and no chunks either

private:
    void TakeChunk(const lxAviRead_MediaChunk_t& chunk);
    bool IsKeyFrame(const lxAviRead_MediaChunk_t& chunk);
    void TakeGap(UInt64 from, UInt64 to);
    void TakeGapOfList(Extent gap);
    void CountOutside();
    bool IsPaletteChange(UInt32 id) const;
    UInt32 CountLength(UInt32 streamNr) const;

    const Reader& m_reader;
    const std::set<UInt64> m_indexed; // where an index of the file says that key frames are
    std::vector<Extent> m_lists;
    SourceFile m_source;
    std::vector<Piece> m_pieces;
    std::vector<Extent> m_damage;
    std::array<UInt32, LX_AVIREAD_STREAMS> m_lengths = {};
    std::array<UInt32, LX_AVIREAD_STREAMS> m_chunks = {}; // by stream, so far
    std::array<UInt64, LX_AVIREAD_STREAMS> m_bytes = {};  // of their payloads
    size_t m_list = 0;                                    // in which the gap taken last has ended
    UInt64 m_keyFrames = 0;
    UInt64 m_placesLeftOut = 0;
    UInt64 m_bytesLeftOut = 0;
    UInt64 m_bytesOutside = 0;
};

} // namespace lxavi
