// Builds AVI and OpenDML files in memory. A test writes one line per chunk and controls every byte.

#pragma once

#include "Bytes.hpp"

#include "lxAviReadTypes.h"

#include <optional>
#include <string>

namespace avitest {

// One stream list under construction.
struct Stream {
    lxAviRead_Strh_t header = {};
    Bytes format;
    Bytes extra; // further chunks behind strf
};

UInt32 Code(std::string_view text);

// Headers for the usual streams.
Stream VideoStream(UInt32 rate = 25, UInt32 scale = 1);
Stream PcmStream(UInt32 samplesPerSec = 8000, UInt16 channels = 1, UInt16 bits = 16);
Stream Mp3CbrStream(UInt32 bytesPerSec = 16000);
Stream Mp3VbrStream(UInt32 samplesPerSec = 44100);
Stream Ac3Stream(UInt32 bytesPerSec = 24000);
Stream TextStream();
Bytes AudioFormat(UInt16 tag, UInt16 channels, UInt32 samplesPerSec, UInt32 bytesPerSec, UInt16 blockAlign,
                  UInt16 bitsPerSample);

enum class IndexKind {
    None,
    Idx1Relative, // offsets from the "movi" code
    Idx1Absolute,
    SuperStandard, // super index; each list has its standard ix## chunks behind its media chunks
    SuperField,
    OneLevelStandard, // the indx chunks of the video stream and the audio streams hold the records
    OneLevelField,
};

// Where the records of an ix## chunk begin: 36 or 32 bytes behind the start of the chunk.
enum class IxLayout { At36, At32 };

struct MediaItem {
    std::string code; // four characters; empty: raw bytes without a chunk header
    Bytes payload;
    bool bKey = false;
    bool bIndexed = true;
    UInt64 uiOffset = 0; // file offset of the chunk; Build sets it
    UInt32 uiRiff = 0;   // number of the RIFF list that holds the chunk, from 0
};

class AviBuilder {
public:
    AviBuilder();

    lxAviRead_Avih_t avih = {};
    std::vector<Stream> streams;
    std::optional<UInt32> dmlhTotalFrames; // writes an odml list
    IndexKind eIndex = IndexKind::Idx1Relative;
    IxLayout eLayout = IxLayout::At36;
    bool bIdx1Too = false;  // besides an OpenDML index, an idx1 of the first list with relative offsets
    bool bIxInMovi = true;  // true: ix## chunks stand in the movi list; false: behind it, in the RIFF list
    Bytes beforeMovi;       // chunks between the header list and movi
    Bytes inOdml;           // chunks before the dmlh chunk
    Bytes behindDmlh;       // chunks of the odml list behind the dmlh chunk
    Bytes beforeMoviInAvix; // chunks of every further RIFF list
    Bytes behindMovi;       // chunks between movi and idx1
    Bytes behindIdx1;
    Bytes inHeaderList;     // chunks behind the stream lists
    UInt64 uiBaseShift = 0; // added to every base offset, and subtracted from the offsets of the records

    AviBuilder& Add(const Stream& stream);
    AviBuilder& Frame(UInt32 streamNr, const Bytes& payload, bool bKey, std::string_view twocc = "dc");
    AviBuilder& Audio(UInt32 streamNr, const Bytes& payload);
    AviBuilder& Drm(UInt32 streamNr, const Bytes& payload);
    AviBuilder& Media(std::string_view code, const Bytes& payload, bool bKey = false, bool bIndexed = true);
    AviBuilder& Raw(const Bytes& bytes);        // bytes between chunks, not in the index
    AviBuilder& NextRiff();                     // begins a new AVIX list
    AviBuilder& ForeignRiff(const Bytes& riff); // bytes before the next AVIX list

    // Builds the file, and sets the offsets of the media items.
    Bytes Build();

    const std::vector<MediaItem>& MediaItems() const { return m_media; }
    UInt64 MoviOffset() const { return m_moviOffset; } // offset of the first chunk of the first list
    UInt64 MoviSize() const { return m_moviSize; }     // size of the first list minus 4

private:
    struct SuperEntry {
        UInt64 uiOffset;
        UInt32 uiSize;
        UInt32 uiDuration;
    };

    bool IsSuper() const { return eIndex == IndexKind::SuperStandard || eIndex == IndexKind::SuperField; }
    bool IsOneLevel() const { return eIndex == IndexKind::OneLevelStandard || eIndex == IndexKind::OneLevelField; }
    bool IsField() const { return eIndex == IndexKind::SuperField || eIndex == IndexKind::OneLevelField; }
    UInt32 RiffCount() const;
    bool Belongs(const MediaItem& item, UInt32 streamNr) const;
    Bytes HeaderList() const;
    Bytes StreamList(UInt32 streamNr) const;
    Bytes Indx(UInt32 streamNr) const;
    Bytes Records(UInt32 streamNr, UInt32 riff, UInt64 base) const;
    Bytes IxChunk(UInt32 streamNr, UInt32 riff, UInt64 base) const;
    Bytes Movi(UInt32 riff, UInt64 listStart);
    Bytes Idx1() const;
    Bytes Assemble();
    std::string StreamDigits(UInt32 streamNr) const;

    std::vector<MediaItem> m_media;
    std::vector<Bytes> m_foreign; // by list: the bytes before the list
    UInt32 m_riff = 0;
    UInt64 m_moviOffset = 0;
    UInt64 m_moviSize = 0;
    std::vector<std::vector<SuperEntry>> m_super; // by stream, by list
};

} // namespace avitest
