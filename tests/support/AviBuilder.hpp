// Builds AVI and OpenDML files in memory, one line per chunk, exactly as asked for.

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
    Bytes extra; // chunks behind strf, as they are
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
    SuperStandard, // super index, standard ix## chunks behind the media data of each list
    SuperField,
    OneLevelStandard, // records directly in the video's and the audio streams' indx
    OneLevelField,
};

// Where the records of an ix## chunk begin, counted from the chunk.
enum class IxLayout { At36, At32 };

struct MediaItem {
    std::string code; // four characters; empty: raw bytes, no chunk
    Bytes payload;
    bool bKey = false;
    bool bIndexed = true;
    UInt64 uiOffset = 0; // of the chunk in the file, known after Build
    UInt32 uiRiff = 0;   // list that holds it, 0 for the first
};

class AviBuilder {
public:
    AviBuilder();

    lxAviRead_Avih_t avih = {};
    std::vector<Stream> streams;
    std::optional<UInt32> dmlhTotalFrames; // writes an odml list
    IndexKind eIndex = IndexKind::Idx1Relative;
    IxLayout eLayout = IxLayout::At36;
    bool bIdx1Too = false;      // an idx1 of the first list with relative offsets, besides an OpenDML index
    bool bIxInMovi = true;      // ix## chunks stand in the media data; else behind it, in the RIFF list
    Bytes beforeMovi;           // chunks between the header list and movi
    Bytes inOdml;               // chunks before the dmlh chunk
    Bytes beforeMoviInAvix;     // chunks of every further RIFF list
    Bytes behindMovi;           // chunks between movi and idx1
    Bytes behindIdx1;
    Bytes inHeaderList;         // chunks behind the stream lists
    UInt64 uiBaseShift = 0;     // added to every base offset, and taken off the offsets

    AviBuilder& Add(const Stream& stream);
    AviBuilder& Frame(UInt32 streamNr, const Bytes& payload, bool bKey, std::string_view twocc = "dc");
    AviBuilder& Audio(UInt32 streamNr, const Bytes& payload);
    AviBuilder& Drm(UInt32 streamNr, const Bytes& payload);
    AviBuilder& Media(std::string_view code, const Bytes& payload, bool bKey = false, bool bIndexed = true);
    AviBuilder& Raw(const Bytes& bytes); // between chunks, not indexed
    AviBuilder& NextRiff();              // what follows goes to a new AVIX list
    AviBuilder& ForeignRiff(const Bytes& riff); // stands before the next AVIX list

    // The file; offsets of the media are known afterwards.
    Bytes Build();

    const std::vector<MediaItem>& MediaItems() const { return m_media; }
    UInt64 MoviOffset() const { return m_moviOffset; } // of the first chunk of the first list
    UInt64 MoviSize() const { return m_moviSize; }     // its list size minus 4

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
    std::vector<Bytes> m_foreign; // by list: what stands before it
    UInt32 m_riff = 0;
    UInt64 m_moviOffset = 0;
    UInt64 m_moviSize = 0;
    std::vector<std::vector<SuperEntry>> m_super; // by stream, by list
};

} // namespace avitest
