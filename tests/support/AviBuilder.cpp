#include "AviBuilder.hpp"

#include <algorithm>

namespace avitest {

UInt32 Code(std::string_view text)
{
    UInt32 code = 0;
    std::memcpy(&code, text.data(), std::min<size_t>(text.size(), 4));
    return code;
}

Bytes AudioFormat(UInt16 tag, UInt16 channels, UInt32 samplesPerSec, UInt32 bytesPerSec, UInt16 blockAlign,
                  UInt16 bitsPerSample)
{
    return U16(tag) + U16(channels) + U32(samplesPerSec) + U32(bytesPerSec) + U16(blockAlign) + U16(bitsPerSample) +
           U16(0);
}

Stream VideoStream(UInt32 rate, UInt32 scale)
{
    Stream stream;
    stream.header.fccType = Code("vids");
    stream.header.fccHandler = Code("XVID");
    stream.header.dwRate = rate;
    stream.header.dwScale = scale;
    lxAviRead_StrfVideo_t format = {};
    format.biSize = sizeof format;
    format.biWidth = 320;
    format.biHeight = 240;
    format.biPlanes = 1;
    format.biBitCount = 24;
    format.biCompression = Code("XVID");
    stream.format = AsBytes(format);
    return stream;
}

Stream PcmStream(UInt32 samplesPerSec, UInt16 channels, UInt16 bits)
{
    const auto blockAlign = static_cast<UInt16>(channels * bits / 8);
    Stream stream;
    stream.header.fccType = Code("auds");
    stream.header.dwScale = blockAlign;
    stream.header.dwRate = samplesPerSec * blockAlign;
    stream.header.dwSampleSize = blockAlign;
    stream.format =
        AudioFormat(LX_AVIREAD_FORMAT_PCM, channels, samplesPerSec, samplesPerSec * blockAlign, blockAlign, bits);
    return stream;
}

Stream Mp3CbrStream(UInt32 bytesPerSec)
{
    Stream stream;
    stream.header.fccType = Code("auds");
    stream.header.dwScale = 1;
    stream.header.dwRate = bytesPerSec;
    stream.header.dwSampleSize = 1;
    stream.format = AudioFormat(LX_AVIREAD_FORMAT_MPEG_LAYER3, 2, 44100, bytesPerSec, 1, 0);
    return stream;
}

Stream Mp3VbrStream(UInt32 samplesPerSec)
{
    Stream stream;
    stream.header.fccType = Code("auds");
    stream.header.dwScale = 1152;
    stream.header.dwRate = samplesPerSec;
    stream.header.dwSampleSize = 0;
    stream.format = AudioFormat(LX_AVIREAD_FORMAT_MPEG_LAYER3, 2, samplesPerSec, 16000, 1152, 0);
    return stream;
}

Stream Ac3Stream(UInt32 bytesPerSec)
{
    Stream stream;
    stream.header.fccType = Code("auds");
    stream.header.dwScale = 1;
    stream.header.dwRate = bytesPerSec;
    stream.header.dwSampleSize = 1;
    stream.format = AudioFormat(LX_AVIREAD_FORMAT_AC3, 2, 48000, bytesPerSec, 1, 0);
    return stream;
}

Stream TextStream()
{
    Stream stream;
    stream.header.fccType = Code("txts");
    stream.format = Fill(8, 0x11);
    return stream;
}

AviBuilder::AviBuilder()
{
    avih.dwMicroSecPerFrame = 40000;
    avih.dwWidth = 320;
    avih.dwHeight = 240;
    m_foreign.emplace_back();
}

AviBuilder& AviBuilder::Add(const Stream& stream)
{
    streams.push_back(stream);
    return *this;
}

std::string AviBuilder::StreamDigits(UInt32 streamNr) const
{
    return {static_cast<char>('0' + streamNr / 10), static_cast<char>('0' + streamNr % 10)};
}

AviBuilder& AviBuilder::Frame(UInt32 streamNr, const Bytes& payload, bool bKey, std::string_view twocc)
{
    return Media(StreamDigits(streamNr) + std::string(twocc), payload, bKey);
}

AviBuilder& AviBuilder::Audio(UInt32 streamNr, const Bytes& payload)
{
    return Media(StreamDigits(streamNr) + "wb", payload, true);
}

AviBuilder& AviBuilder::Drm(UInt32 streamNr, const Bytes& payload)
{
    return Media(StreamDigits(streamNr) + "dd", payload);
}

AviBuilder& AviBuilder::Media(std::string_view code, const Bytes& payload, bool bKey, bool bIndexed)
{
    m_media.push_back({std::string(code), payload, bKey, bIndexed, 0, m_riff});
    return *this;
}

AviBuilder& AviBuilder::Raw(const Bytes& bytes)
{
    m_media.push_back({"", bytes, false, false, 0, m_riff});
    return *this;
}

AviBuilder& AviBuilder::NextRiff()
{
    ++m_riff;
    m_foreign.emplace_back();
    return *this;
}

AviBuilder& AviBuilder::ForeignRiff(const Bytes& riff)
{
    m_foreign[m_riff] += riff;
    return *this;
}

UInt32 AviBuilder::RiffCount() const { return m_riff + 1; }

bool AviBuilder::Belongs(const MediaItem& item, UInt32 streamNr) const
{
    return item.bIndexed && item.code.substr(0, 2) == StreamDigits(streamNr) && item.code.substr(2) != "dd";
}

Bytes AviBuilder::Records(UInt32 streamNr, UInt32 riff, UInt64 base) const
{
    Bytes records;
    for (const MediaItem& item : m_media) {
        if (!Belongs(item, streamNr) || (IsSuper() && item.uiRiff != riff)) {
            continue;
        }
        records += U32(item.uiOffset + 8 - base);
        records += U32(item.payload.size() | (item.bKey ? 0 : 0x80000000u));
        if (IsField()) {
            records += U32(item.uiOffset + 8 - base + item.payload.size() / 2);
        }
    }
    return records;
}

Bytes AviBuilder::IxChunk(UInt32 streamNr, UInt32 riff, UInt64 base) const
{
    const UInt32 longs = IsField() ? 3 : 2;
    const Bytes records = Records(streamNr, riff, base);
    Bytes body = U16(longs) + Bytes{static_cast<UInt8>(IsField() ? 1 : 0), 1} + U32(records.size() / (longs * 4)) +
                 Text(StreamDigits(streamNr)) + Text(streams[streamNr].header.fccType == Code("auds") ? "wb" : "dc") +
                 U64(base) + U32(0);
    if (eLayout == IxLayout::At36) {
        body += U32(0);
    }
    return Chunk("ix" + StreamDigits(streamNr), body + records);
}

Bytes AviBuilder::Indx(UInt32 streamNr) const
{
    const bool bAudio = streams[streamNr].header.fccType == Code("auds");
    const Bytes chunkId = Text(StreamDigits(streamNr)) + Text(bAudio ? "wb" : "dc");
    if (IsSuper()) {
        Bytes body =
            U16(4) + Bytes{static_cast<UInt8>(IsField() ? 1 : 0), 0} + U32(RiffCount()) + chunkId + Fill(12, 0);
        for (UInt32 riff = 0; riff < RiffCount(); ++riff) {
            const SuperEntry entry = m_super.empty() ? SuperEntry{} : m_super[streamNr][riff];
            body += U64(entry.uiOffset) + U32(entry.uiSize) + U32(entry.uiDuration);
        }
        return Chunk("indx", body);
    }
    const UInt32 longs = IsField() ? 3 : 2;
    const UInt64 base = m_moviOffset + uiBaseShift;
    const Bytes records = Records(streamNr, 0, base);
    return Chunk("indx", U16(longs) + Bytes{static_cast<UInt8>(IsField() ? 1 : 0), 1} +
                             U32(records.size() / (longs * 4)) + chunkId + U64(base) + U32(0) + records);
}

Bytes AviBuilder::StreamList(UInt32 streamNr) const
{
    const Stream& stream = streams[streamNr];
    Bytes body = Chunk("strh", AsBytes(stream.header)) + Chunk("strf", stream.format) + stream.extra;
    if (IsSuper() || IsOneLevel()) {
        body += Indx(streamNr);
    }
    return List("strl", body);
}

Bytes AviBuilder::HeaderList() const
{
    lxAviRead_Avih_t header = avih;
    header.dwStreams = avih.dwStreams != 0 ? avih.dwStreams : static_cast<UInt32>(streams.size());
    Bytes body = Chunk("avih", AsBytes(header));
    for (UInt32 i = 0; i < streams.size(); ++i) {
        body += StreamList(i);
    }
    if (dmlhTotalFrames) {
        body += List("odml", inOdml + Chunk("dmlh", U32(*dmlhTotalFrames) + Fill(244, 0)) + behindDmlh);
    }
    return List("hdrl", body + inHeaderList);
}

// The `movi` list number `riff`, whose "LIST" code stands at `listStart`.
Bytes AviBuilder::Movi(UInt32 riff, UInt64 listStart)
{
    Bytes payload;
    const UInt64 start = listStart + 12;
    for (MediaItem& item : m_media) {
        if (item.uiRiff != riff) {
            continue;
        }
        item.uiOffset = start + payload.size();
        payload += item.code.empty() ? item.payload : Chunk(item.code, item.payload);
    }
    if (riff == 0) {
        m_moviOffset = start;
    }
    if (IsSuper()) {
        m_super.resize(streams.size(), std::vector<SuperEntry>(RiffCount()));
        Bytes behind;
        for (UInt32 i = 0; i < streams.size(); ++i) {
            const Bytes ix = IxChunk(i, riff, start + uiBaseShift);
            // In both layouts the chunk stands behind the payload and behind the index chunks built so far.
            m_super[i][riff] = {start + payload.size() + behind.size(), static_cast<UInt32>(ix.size()), 0};
            (bIxInMovi ? payload : behind) += ix;
        }
        if (riff == 0) {
            m_moviSize = payload.size();
        }
        return List("movi", payload) + behind;
    }
    if (riff == 0) {
        m_moviSize = payload.size();
    }
    return List("movi", payload);
}

Bytes AviBuilder::Idx1() const
{
    Bytes records;
    for (const MediaItem& item : m_media) {
        if (!item.bIndexed || item.uiRiff != 0) {
            continue;
        }
        const UInt64 base = eIndex == IndexKind::Idx1Absolute ? 0 : m_moviOffset - 4;
        records += Text(item.code) + U32(item.bKey ? 0x10 : 0) + U32(item.uiOffset - base) + U32(item.payload.size());
    }
    return Chunk("idx1", records);
}

Bytes AviBuilder::Assemble()
{
    Bytes body = HeaderList() + beforeMovi;
    body += Movi(0, 12 + body.size());
    body += behindMovi;
    if (eIndex == IndexKind::Idx1Relative || eIndex == IndexKind::Idx1Absolute || bIdx1Too) {
        body += Idx1();
    }
    body += behindIdx1;
    Bytes file = Riff("AVI ", body);
    for (UInt32 riff = 1; riff < RiffCount(); ++riff) {
        file += m_foreign[riff];
        file += Riff("AVIX", beforeMoviInAvix + Movi(riff, file.size() + 12 + beforeMoviInAvix.size()));
    }
    return file;
}

Bytes AviBuilder::Build()
{
    Assemble(); // the first run computes the offsets, the second run writes them
    return Assemble();
}

} // namespace avitest
