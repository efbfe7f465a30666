// What the charts of a report show: gathered while a file is checked. Only the key frames take memory in proportion to the
// file.

#pragma once

#include "Checker.hpp"
#include "Columns.hpp"
#include "Output.hpp"

#include <array>
#include <map>
#include <vector>

namespace lxavi {

class Survey {
public:
    explicit Survey(const Options& options) : m_options(options) {}

    // Checks the file, builds its table, and makes some jumps.
    Json Run();

private:
    struct Stream {
        UInt32 type = LX_AVIREAD_STREAM_NONE;
        Columns bytes;                   // of payload
        UInt32 endMsec = 0;              // of its last chunk
        std::map<UInt32, UInt64> bySize; // chunks, by the class of their size
        UInt64 chunks = 0;
    };
    // A place of the file and the time that plays there.
    struct Place {
        UInt64 offset;
        UInt32 msec;
    };

    void TakeChunk(const lxAviRead_MediaChunk_t& chunk);
    void TakeDelivered(const Item& item, bool isNew);
    static void Spread(Stream& stream, const Item& item);
    void TakeKeyFrame(UInt32 msec);
    void NotePlace(UInt64 offset, UInt32 msec);
    Json TimeOf(const Finding& finding) const;

    Json StreamReport(const Reader& reader) const;
    Json InterleaveReport(const Checker& checker) const;
    Json KeyFrameReport(const Reader& reader) const;
    Json SeekReport(Reader& reader) const;
    Json FindingReport(Findings& findings) const;

    const Options& m_options;
    std::map<UInt32, Stream> m_streams;
    std::vector<UInt64> m_keyOffsets; // of the key frames by their own bytes, in file order
    size_t m_nextKey = 0;             // of these
    Columns m_keyDistances;           // milliseconds to the key frame before
    std::optional<UInt32> m_lastKeyMsec;
    UInt64 m_keyFrames = 0;
    std::vector<Place> m_places;
    UInt64 m_placeStep = 1; // every how many-th chunk is noted as a place
    UInt64 m_placesSeen = 0;
    UInt64 m_lastOffset = 0; // of a chunk
    int m_mainVideo = -1;    // stream number
    UInt32 m_lastFrameMsec = 0;
    UInt32 m_endMsec = 0; // of the stream that ends last
};

} // namespace lxavi
