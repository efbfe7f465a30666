#include "StreamFile.hpp"

#include "FileTexts.hpp"
#include "NalUnits.hpp"
#include "SourceFile.hpp"

#include <algorithm>
#include <array>
#include <cstring>

namespace lxavi {

namespace {

template <typename T>
void Append(std::string& bytes, T value)
{
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

const lxAviReadCore_StreamInfo_t& InfoOf(const StreamToWrite& stream) { return *stream.reader.Stream(stream.number); }

// What a video stream's format has behind the fixed record: parameter sets, headers, palettes.
std::string CodecData(const StreamToWrite& stream)
{
    const std::string format = BytesOfStream(stream.number, LX_AVIREAD_BYTES_STRF);
    return format.size() > sizeof(lxAviRead_StrfVideo_t) ? format.substr(sizeof(lxAviRead_StrfVideo_t)) : "";
}

// ---- The payloads as they are ----

class RawFile : public StreamFile {
public:
    explicit RawFile(OutputFile& out, const char* form) : m_out(out), m_form(form) {}

    void Payload(std::span<const UInt8> bytes) override { m_out.Write(bytes); }
    const char* Form() const override { return m_form; }

protected:
    OutputFile& m_out;

private:
    const char* m_form;
};

// MPEG-4 part 2. The headers of a decoder can stand in the stream's format alone.
class Mpeg4File : public RawFile {
public:
    Mpeg4File(OutputFile& out, std::string headers)
        : RawFile(out, "MPEG-4 elementary stream"), m_headers(std::move(headers))
    {
    }

    void BeginChunk(const Item& /*item*/, std::span<const UInt8> first) override
    {
        constexpr UInt8 kStartCode[] = {0, 0, 1};
        constexpr UInt8 kFrame[] = {0, 0, 1, 0xB6};
        const auto beginsWith = [&](std::span<const UInt8> code) {
            return first.size() >= code.size() && std::equal(code.begin(), code.end(), first.begin());
        };
        if (!beginsWith(kStartCode)) {
            return; // a placeholder
        }
        if (beginsWith(kFrame) && m_headers.starts_with(std::string("\0\0\1", 3))) {
            m_out.Write(m_headers);
        }
        m_headers.clear(); // only before the first frame
    }

private:
    std::string m_headers;
};

// ---- AAC ----

// What the headers of frames say about a stream.
struct AacFormat {
    UInt32 profile;
    UInt32 rateIndex;
    UInt32 channels;

    // Whether the headers have numbers for it.
    bool IsFramable() const { return rateIndex < 13 && channels <= 7; }
};

AacFormat AacFormatOf(const lxAviRead_StrfAudio_t& format)
{
    constexpr std::array<UInt32, 13> kRates = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                               22050, 16000, 12000, 11025, 8000,  7350};
    constexpr UInt32 kLowComplexity = 1;
    if (format.cbSize >= 2 && format.uiExtension[0] != 0) { // the decoder's configuration
        const UInt32 config = static_cast<UInt32>(format.uiExtension[0]) << 8 | format.uiExtension[1];
        const UInt32 objectType = config >> 11;
        const UInt32 profile = objectType >= 1 && objectType <= 4 ? objectType - 1 : kLowComplexity;
        return {profile, config >> 7 & 0xF, config >> 3 & 0xF};
    }
    const auto* const found = std::find(kRates.begin(), kRates.end(), format.nSamplesPerSec);
    return {kLowComplexity, static_cast<UInt32>(found - kRates.begin()), format.nChannels};
}

// Gives each frame a header of seven bytes, which makes it playable, unless the frames have headers already.
class AdtsFile : public RawFile {
public:
    AdtsFile(OutputFile& out, const AacFormat& format) : RawFile(out, "AAC with ADTS headers"), m_format(format) {}

    void BeginChunk(const Item& item, std::span<const UInt8> first) override
    {
        const bool isFramed = first.size() > 1 && first[0] == 0xFF && (first[1] & 0xF6) == 0xF0;
        if (!first.empty() && !isFramed) {
            m_out.Write(Header(item.chunk.uiSize));
        }
    }

    bool StatesSizes() const override { return true; }

private:
    // Empty for a frame that is too large for one.
    std::string Header(UInt32 frameBytes) const
    {
        const UInt32 length = frameBytes + 7;
        if (length > 0x1FFF) {
            return {};
        }
        std::string header(7, '\0');
        header[0] = static_cast<char>(0xFF);
        header[1] = static_cast<char>(0xF1);
        header[2] = static_cast<char>(m_format.profile << 6 | m_format.rateIndex << 2 | m_format.channels >> 2);
        header[3] = static_cast<char>((m_format.channels & 3) << 6 | length >> 11);
        header[4] = static_cast<char>(length >> 3);
        header[5] = static_cast<char>((length & 7) << 5 | 0x1F);
        header[6] = static_cast<char>(0xFC);
        return header;
    }

    AacFormat m_format;
};

// ---- H.264 and H.265 ----

// Frames whose units have lengths get start codes instead. Frames that have start codes stay as they are.
class AnnexBFile : public StreamFile {
public:
    AnnexBFile(OutputFile& out, NalCodec codec, const std::string& codecData)
        : m_out(out), m_parameters(ParseCodecData(codec, codecData))
    {
    }

    void BeginChunk(const Item& item, std::span<const UInt8> /*first*/) override
    {
        m_frame.clear();
        m_isTooLarge = item.chunk.uiSize > kLargestFrame;
        m_out.Write(m_parameters.sets); // only before the first frame
        m_parameters.sets.clear();
    }

    void Payload(std::span<const UInt8> bytes) override
    {
        if (m_isTooLarge) {
            m_out.Write(bytes);
        } else {
            m_frame.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        }
    }

    void EndChunk() override
    {
        if (!m_isTooLarge) {
            m_out.Write(WithStartCodes(m_frame, m_parameters.lengthBytes));
        }
    }

    const char* Form() const override { return "Annex B elementary stream"; }

private:
    static constexpr UInt32 kLargestFrame = 64u << 20; // a larger one is no frame

    OutputFile& m_out;
    NalParameters m_parameters;
    std::string m_frame;
    bool m_isTooLarge = false;
};

// ---- WAV ----

//   RIFF size "WAVE"   [JUNK, which becomes ds64]   fmt   [fact]   data
//
// Sizes beyond 32 bits make it an RF64 file, which has them in ds64. The room for ds64 is only there when the source is
// large enough to need it.
class WavFile : public StreamFile {
public:
    WavFile(OutputFile& out, const StreamToWrite& stream)
        : m_out(out), m_format(AudioFormatOf(InfoOf(stream))), m_formatChunk(FormatChunk(stream)),
          m_mayBeLarge(stream.reader.FileSize() == 0 || stream.reader.FileSize() > kMost)
    {
        m_out.Write(Header());
    }

    void Payload(std::span<const UInt8> bytes) override
    {
        m_out.Write(bytes);
        m_bytes += bytes.size();
    }

    void Finish() override
    {
        if (m_bytes % 2 != 0) {
            m_out.Write(std::string(1, '\0'));
        }
        m_out.WriteAt(0, Header());
    }

    const char* Form() const override { return IsLarge() ? "RF64" : "WAV"; }

private:
    static constexpr UInt64 kMost = 0xFFFF0000; // bytes of samples in a file with 32-bit sizes
    static constexpr UInt32 kSeeDs64 = 0xFFFFFFFF;
    // format tags
    static constexpr UInt16 kMsAdpcm = 0x0002;
    static constexpr UInt16 kALaw = 0x0006;
    static constexpr UInt16 kMuLaw = 0x0007;
    static constexpr UInt16 kImaAdpcm = 0x0011;
    static constexpr UInt16 kExtensible = 0xFFFE;

    bool IsLarge() const { return m_bytes > kMost; }

    // The format as the source has it. PCM has no extension, whatever stands behind its fields.
    std::string FormatChunk(const StreamToWrite& stream) const
    {
        constexpr size_t kFields = 16;
        constexpr size_t kExtension = 18;
        std::string format = BytesOfStream(stream.number, LX_AVIREAD_BYTES_STRF);
        if (format.empty()) { // the default mode does not keep it
            format.assign(reinterpret_cast<const char*>(&m_format), sizeof m_format);
        }
        const size_t wanted = m_format.wFormatTag == LX_AVIREAD_FORMAT_PCM ? kFields : kExtension + m_format.cbSize;
        format.resize(std::clamp(format.size(), kFields, std::max(wanted, kFields)));
        return ChunkBytes(Code("fmt "), format);
    }

    // Whether the number of samples follows from the size.
    bool TellsSamples() const
    {
        switch (m_format.wFormatTag) {
        case kMsAdpcm:
        case kALaw:
        case kMuLaw:
        case kImaAdpcm:
        case kExtensible:
        case LX_AVIREAD_FORMAT_PCM:
        case LX_AVIREAD_FORMAT_IEEE_FLOAT: return m_format.nBlockAlign != 0;
        default: return false;
        }
    }

    UInt64 SampleFrames() const
    {
        const bool isAdpcm = m_format.wFormatTag == kMsAdpcm || m_format.wFormatTag == kImaAdpcm;
        const UInt32 samplesInBlock = isAdpcm ? m_format.uiExtension[0] | m_format.uiExtension[1] << 8 : 1;
        return TellsSamples() ? m_bytes / m_format.nBlockAlign * samplesInBlock : 0;
    }

    // All but PCM should tell how many samples they have.
    std::string FactChunk() const
    {
        if (m_format.wFormatTag == LX_AVIREAD_FORMAT_PCM || !TellsSamples()) {
            return {};
        }
        std::string count;
        Append(count, static_cast<UInt32>(std::min<UInt64>(SampleFrames(), kSeeDs64)));
        return ChunkBytes(Code("fact"), count);
    }

    std::string SizesChunk(UInt64 riffBytes) const
    {
        std::string sizes;
        Append(sizes, riffBytes);
        Append(sizes, m_bytes);
        Append(sizes, SampleFrames());
        Append(sizes, UInt32{0}); // further chunks with large sizes
        return ChunkBytes(IsLarge() ? Code("ds64") : Code("JUNK"), IsLarge() ? sizes : std::string(sizes.size(), '\0'));
    }

    std::string Header() const
    {
        std::string chunks = m_formatChunk + FactChunk();
        constexpr size_t kSizesChunk = 8 + 28;
        const UInt64 riffBytes = 4 + (m_mayBeLarge ? kSizesChunk : 0) + chunks.size() + 8 + m_bytes + m_bytes % 2;
        std::string header = IsLarge() ? "RF64" : "RIFF";
        Append(header, IsLarge() ? kSeeDs64 : static_cast<UInt32>(riffBytes));
        header += "WAVE" + (m_mayBeLarge ? SizesChunk(riffBytes) : "") + chunks + "data";
        Append(header, IsLarge() ? kSeeDs64 : static_cast<UInt32>(m_bytes));
        return header;
    }

    OutputFile& m_out;
    lxAviRead_StrfAudio_t m_format;
    std::string m_formatChunk;
    bool m_mayBeLarge;
    UInt64 m_bytes = 0;
};

// ---- AVI ----

// For codecs without a file format of their own.
class AviFile : public StreamFile {
public:
    AviFile(OutputFile& out, const StreamToWrite& stream)
        : m_number(stream.number), m_keyFrames(stream.keyFrames),
          m_isVideo(InfoOf(stream).StreamType == LX_AVIREAD_STREAM_VIDEO),
          m_sampleBytes(InfoOf(stream).Header.dwSampleSize), m_chunkId(ChunkId(stream)), m_writer(out, Plan(stream))
    {
    }

    void BeginChunk(const Item& item, std::span<const UInt8> first) override
    {
        m_writer.BeginChunk(m_chunkId, 0, item.chunk.uiSize, IsKey(item, first) ? Listed::AsKeyFrame : Listed::AsFrame);
        m_bytes += item.chunk.uiSize;
        m_isFirst = false;
    }

    bool StatesSizes() const override { return true; }
    void Payload(std::span<const UInt8> bytes) override { m_writer.Payload(bytes); }

    void Finish() override
    {
        if (!m_isVideo && m_sampleBytes != 0) {
            m_writer.SetLength(0, static_cast<UInt32>(m_bytes / m_sampleBytes));
        }
        m_writer.Finish();
    }

    const char* Form() const override { return "AVI of one stream"; }

private:
    static UInt32 ChunkId(const StreamToWrite& stream)
    {
        if (InfoOf(stream).StreamType == LX_AVIREAD_STREAM_AUDIO) {
            return Code("00wb");
        }
        if (InfoOf(stream).StreamType == LX_AVIREAD_STREAM_SUBTITLE) {
            return Code("00sb");
        }
        return VideoFormatOf(InfoOf(stream)).biCompression == 0 ? Code("00db") : Code("00dc");
    }

    static WrittenFile Plan(const StreamToWrite& stream)
    {
        constexpr UInt64 kPipe = UInt64{1} << 36; // room for the index of so many bytes
        WrittenFile file;
        static_cast<void>(lxAviReadCore_GetAvihData(&file.header));
        file.streams.push_back(StreamOfFile(stream.reader, stream.number));
        if (stream.isPart) {
            file.streams.front().header.dwStart = 0;
        }
        file.texts = TextsOfFile();
        file.expectedBytes = stream.reader.FileSize() != 0 ? stream.reader.FileSize() : kPipe;
        return file;
    }

    // Of a codec whose frames the library does not know, the index tells the key frames. Decoding begins at the first
    // frame in any case.
    bool IsKey(const Item& item, std::span<const UInt8> first) const
    {
        if (!m_isVideo || m_isFirst) {
            return true;
        }
        switch (lxAviReadCore_GetFrameKind(m_number, first.data(), static_cast<UInt32>(first.size()))) {
        case LX_AVIREAD_FRAME_KEY: return true;
        case LX_AVIREAD_FRAME_OTHER: return false;
        default: break;
        }
        return item.chunk.bKeyFrame != 0 || std::binary_search(m_keyFrames.begin(), m_keyFrames.end(), item.offset);
    }

    UInt32 m_number;
    const std::vector<UInt64>& m_keyFrames;
    bool m_isVideo;
    UInt32 m_sampleBytes;
    UInt32 m_chunkId;
    AviWriter m_writer;
    UInt64 m_bytes = 0;
    bool m_isFirst = true;
};

} // namespace

namespace {

// AAC with a rate or channels that frame headers have no numbers for goes into an AVI file.
Coding CodingToWrite(const StreamToWrite& stream)
{
    const Coding coding = CodingOf(InfoOf(stream)).coding;
    const bool isFramable = coding != Coding::Aac || AacFormatOf(AudioFormatOf(InfoOf(stream))).IsFramable();
    return isFramable ? coding : Coding::Other;
}

} // namespace

std::string ExtensionOf(const StreamToWrite& stream)
{
    if (stream.isRaw) {
        return "raw";
    }
    return CodingToWrite(stream) == Coding::Other ? "avi" : CodingOf(InfoOf(stream)).extension;
}

std::unique_ptr<StreamFile> MakeStreamFile(const StreamToWrite& stream, OutputFile& out)
{
    if (stream.isRaw) {
        return std::make_unique<RawFile>(out, "payloads");
    }
    switch (CodingToWrite(stream)) {
    case Coding::Wave: return std::make_unique<WavFile>(out, stream);
    case Coding::Aac: return std::make_unique<AdtsFile>(out, AacFormatOf(AudioFormatOf(InfoOf(stream))));
    case Coding::Mpeg4: return std::make_unique<Mpeg4File>(out, CodecData(stream));
    case Coding::H264: return std::make_unique<AnnexBFile>(out, NalCodec::H264, CodecData(stream));
    case Coding::H265: return std::make_unique<AnnexBFile>(out, NalCodec::H265, CodecData(stream));
    case Coding::Other:
    case Coding::Bitmap: return std::make_unique<AviFile>(out, stream);
    case Coding::Dv: return std::make_unique<RawFile>(out, "DV stream");
    case Coding::Text: return std::make_unique<RawFile>(out, "texts");
    default: return std::make_unique<RawFile>(out, "elementary stream");
    }
}

} // namespace lxavi
