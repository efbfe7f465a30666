#include "AviWriter.hpp"

#include "SourceFile.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace lxavi {

namespace {

constexpr UInt32 kHasIndex = LX_AVIREAD_HAS_INDEX;
constexpr UInt32 kMustUseIndex = 0x20; // the order of the chunks is not that of playing
constexpr UInt32 kKeyFrame = 0x10;     // of an idx1 record
constexpr UInt32 kNoTime = 0x100;      // of an idx1 record: the chunk takes no time
constexpr UInt32 kNoKeyFrame = 0x80000000;
constexpr UInt32 kIdx1RecordBytes = 16;
constexpr UInt32 kIndexRecordBytes = 8;
constexpr UInt32 kIndexHeaderBytes = 32; // of ix## and indx, with the chunk header
constexpr UInt32 kSuperEntryBytes = 16;
constexpr UInt32 kChunkHeaderBytes = 8;

template <typename T>
std::string Bytes(const T& value)
{
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

std::string List(const char (&type)[5], const std::string& payload)
{
    return ChunkBytes(Code("LIST"), std::string(type, 4) + payload);
}

// The fields that ix## and indx chunks begin with.
std::string IndexFields(UInt16 wordsPerEntry, UInt8 indexType, size_t entries, UInt32 chunkId)
{
    constexpr UInt8 kNoSubType = 0;
    return Bytes(wordsPerEntry) + Bytes(kNoSubType) + Bytes(indexType) + Bytes(static_cast<UInt32>(entries)) +
           Bytes(chunkId);
}

} // namespace

std::string ChunkBytes(UInt32 code, const std::string& payload)
{
    const std::string chunk = Bytes(code) + Bytes(static_cast<UInt32>(payload.size())) + payload;
    return payload.size() % 2 != 0 ? chunk + '\0' : chunk;
}

std::string Idx1Record(UInt32 id, Listed listed, UInt32 offset, UInt32 size)
{
    UInt32 flags = 0;
    switch (listed) {
    case Listed::AsKeyFrame: flags = kKeyFrame; break;
    case Listed::InIdx1Only: flags = kNoTime; break;
    case Listed::AsFrame: break;
    }
    return Bytes(id) + Bytes(flags) + Bytes(offset) + Bytes(size);
}

// ---- The headers ----

AviWriter::AviWriter(OutputFile& out, WrittenFile file, UInt64 listBytes)
    : m_out(out), m_file(std::move(file)), m_listBytes(listBytes),
      m_superEntries(m_file.expectedBytes > listBytes ? static_cast<UInt32>(m_file.expectedBytes / (listBytes / 2) + 2)
                                                      : 0),
      m_streams(m_file.streams.size())
{
    m_out.Write(Headers());
    OpenList();
}

// The frames of the first video stream.
UInt32 AviWriter::Frames() const
{
    for (size_t i = 0; i < m_streams.size(); ++i) {
        const UInt32 type = m_file.streams[i].header.fccType;
        if (type == Code("vids") || type == Code("iavs")) {
            return m_streams[i].chunks;
        }
    }
    return 0;
}

lxAviRead_Avih_t AviWriter::MainHeader() const
{
    lxAviRead_Avih_t header = m_file.header;
    header.dwFlags = (header.dwFlags | kHasIndex) & ~kMustUseIndex;
    header.dwTotalFrames = m_framesInFirst;
    header.dwStreams = static_cast<UInt32>(m_streams.size());
    UInt32 largest = 0;
    for (const Stream& stream : m_streams) {
        largest = std::max(largest, stream.largest);
    }
    header.dwSuggestedBufferSize = largest + kChunkHeaderBytes;
    return header;
}

// A super index has room for a fixed number of entries, so that the headers keep their size.
std::string AviWriter::SuperIndex(const Stream& stream) const
{
    constexpr UInt16 kWordsPerEntry = kSuperEntryBytes / 4;
    constexpr UInt8 kIndexOfIndexes = 0;
    std::string payload = IndexFields(kWordsPerEntry, kIndexOfIndexes, stream.super.size(), stream.chunkId);
    payload.append(12, '\0');
    for (const SuperEntry& entry : stream.super) {
        payload += Bytes(entry.offset) + Bytes(entry.size) + Bytes(entry.duration);
    }
    payload.append((m_superEntries - stream.super.size()) * kSuperEntryBytes, '\0');
    return ChunkBytes(Code("indx"), payload);
}

std::string AviWriter::StreamList(UInt32 streamNr) const
{
    const Stream& stream = m_streams[streamNr];
    lxAviRead_Strh_t header = m_file.streams[streamNr].header;
    header.dwLength = stream.lengthIsSet ? stream.length : stream.chunks;
    header.dwSuggestedBufferSize = stream.largest;
    std::string payload = ChunkBytes(Code("strh"), Bytes(header));
    for (const NamedBytes& chunk : m_file.streams[streamNr].chunks) {
        payload += ChunkBytes(chunk.code, chunk.bytes);
    }
    return List("strl", HasSuperIndex() ? payload + SuperIndex(stream) : payload);
}

std::string AviWriter::ExtendedHeader() const
{
    constexpr size_t kBytes = 248;
    std::string payload = Bytes(Frames());
    payload.resize(kBytes, '\0');
    return List("odml", ChunkBytes(Code("dmlh"), payload));
}

std::string AviWriter::HeaderList() const
{
    std::string payload = ChunkBytes(Code("avih"), Bytes(MainHeader()));
    for (UInt32 i = 0; i < m_streams.size(); ++i) {
        payload += StreamList(i);
    }
    return List("hdrl", HasSuperIndex() ? payload + ExtendedHeader() : payload);
}

// From the header of the first RIFF list to that of its `movi` list.
std::string AviWriter::Headers() const
{
    std::string texts;
    for (const NamedBytes& text : m_file.texts) {
        texts += ChunkBytes(text.code, text.bytes);
    }
    return "RIFF" + Bytes(UInt32{0}) + "AVI " + HeaderList() + (texts.empty() ? "" : List("INFO", texts));
}

// ---- Lists ----

void AviWriter::OpenList()
{
    if (m_lists > 0) {
        m_riff = m_out.Size();
        m_out.Write("RIFF" + Bytes(UInt32{0}) + "AVIX");
    }
    m_out.Write("LIST" + Bytes(UInt32{0}));
    m_movi = m_out.Size();
    m_out.Write("movi");
    m_indexBytes = m_streams.size() * kIndexHeaderBytes;
    ++m_lists;
}

std::string AviWriter::IndexChunk(UInt32 streamNr, const Stream& stream) const
{
    constexpr UInt16 kWordsPerEntry = kIndexRecordBytes / 4;
    constexpr UInt8 kIndexOfChunks = 1;
    std::string payload = IndexFields(kWordsPerEntry, kIndexOfChunks, stream.records.size(), stream.chunkId) +
                          Bytes(m_movi) + Bytes(UInt32{0});
    for (const Record& record : stream.records) {
        payload +=
            Bytes(static_cast<UInt32>(record.payload - m_movi)) + Bytes(record.size | (record.key ? 0 : kNoKeyFrame));
    }
    const UInt32 id = Code("ix00") + ((streamNr / 10) << 16) + ((streamNr % 10) << 24);
    return ChunkBytes(id, payload);
}

void AviWriter::WriteIndexChunks()
{
    for (UInt32 i = 0; i < m_streams.size(); ++i) {
        Stream& stream = m_streams[i];
        if (stream.records.empty()) {
            continue;
        }
        if (stream.super.size() >= m_superEntries) {
            throw Failure("the media data is larger than expected");
        }
        UInt64 bytes = 0;
        for (const Record& record : stream.records) {
            bytes += record.size;
        }
        const UInt32 sampleSize = m_file.streams[i].header.dwSampleSize;
        const UInt64 duration = sampleSize != 0 ? bytes / sampleSize : stream.records.size();
        const std::string chunk = IndexChunk(i, stream);
        stream.super.push_back({m_out.Size(), static_cast<UInt32>(chunk.size()), static_cast<UInt32>(duration)});
        m_out.Write(chunk);
        stream.records.clear();
    }
}

void AviWriter::CloseList()
{
    Pad();
    if (HasSuperIndex()) {
        WriteIndexChunks();
    }
    m_out.WriteAt(m_movi - 4, Bytes(static_cast<UInt32>(m_out.Size() - m_movi)));
    if (m_lists == 1) {
        m_framesInFirst = Frames();
        m_out.Write(ChunkBytes(Code("idx1"), m_idx1));
    }
    m_out.WriteAt(m_riff + 4, Bytes(static_cast<UInt32>(m_out.Size() - m_riff - kChunkHeaderBytes)));
}

bool AviWriter::HasRoom(UInt32 size) const
{
    const UInt64 index = m_indexBytes + (m_lists == 1 ? m_idx1.size() + kIdx1RecordBytes : 0) + kIndexRecordBytes;
    return m_out.Size() - m_riff + kChunkHeaderBytes + size + index + 2 * kChunkHeaderBytes <= m_listBytes;
}

// ---- Chunks ----

void AviWriter::Pad()
{
    if (m_out.Size() % 2 != 0) {
        m_out.Write(std::string(1, '\0'));
    }
}

void AviWriter::BeginChunk(UInt32 id, UInt32 streamNr, UInt32 size, Listed listed)
{
    constexpr UInt32 kLargest = 0xE0000000; // with it, the sizes of the lists around it have 32 bits
    if (size > kLargest) {
        throw Failure(fmt::format("a chunk of {} bytes is too large for the format", size));
    }
    Pad();
    const bool isEmpty = m_out.Size() == m_movi + 4;
    if (HasSuperIndex() && !isEmpty && !HasRoom(size)) {
        CloseList();
        OpenList();
    }
    if (m_lists == 1) {
        m_idx1 += Idx1Record(id, listed, static_cast<UInt32>(m_out.Size() - m_movi), size);
    }
    if (listed != Listed::InIdx1Only) {
        Stream& stream = m_streams.at(streamNr);
        stream.chunkId = stream.chunks == 0 ? id : stream.chunkId;
        ++stream.chunks;
        stream.largest = std::max(stream.largest, size);
        if (HasSuperIndex()) {
            stream.records.push_back({m_out.Size() + kChunkHeaderBytes, size, listed == Listed::AsKeyFrame});
            m_indexBytes += kIndexRecordBytes;
        }
    }
    m_out.Write(Bytes(id) + Bytes(size));
}

void AviWriter::Payload(std::span<const UInt8> bytes) { m_out.Write(bytes); }

void AviWriter::SetLength(UInt32 streamNr, UInt32 length)
{
    m_streams.at(streamNr).length = length;
    m_streams.at(streamNr).lengthIsSet = true;
}

void AviWriter::Finish()
{
    CloseList();
    const std::string headers = Headers();
    constexpr UInt64 kBehindSize = kChunkHeaderBytes;
    m_out.WriteAt(kBehindSize, headers.substr(kBehindSize));
}

} // namespace lxavi
