// The input becomes the index of a small film: idx1, or a super index with its index chunks, or a one-level index. The
// first bytes of the input choose the kind of index, IndxOption and the budget. The structure of the file around the
// index is always correct.

#include "Harness.hpp"

#include <cstring>
#include <vector>

const size_t kScriptBytes = 0;

namespace {

using Bytes = std::vector<UInt8>;

void Append(Bytes& bytes, const void* pData, size_t size)
{
    const auto* const pBytes = static_cast<const UInt8*>(pData);
    bytes.insert(bytes.end(), pBytes, pBytes + size);
}

Bytes Chunk(const char* pCode, const Bytes& payload)
{
    const auto size = static_cast<UInt32>(payload.size());
    Bytes bytes;
    Append(bytes, pCode, 4);
    Append(bytes, &size, sizeof size);
    Append(bytes, payload.data(), payload.size());
    if (size % 2 != 0) {
        bytes.push_back(0);
    }
    return bytes;
}

Bytes List(const char* pCode, const char* pType, const Bytes& payload)
{
    Bytes body(pType, pType + 4);
    Append(body, payload.data(), payload.size());
    return Chunk(pCode, body);
}

Bytes StreamList(bool bAudio, const Bytes& indx)
{
    lxAviRead_Strh_t header = {};
    std::memcpy(&header.fccType, bAudio ? "auds" : "vids", 4);
    header.dwScale = 1;
    header.dwRate = bAudio ? 8000 : 25;
    header.dwSampleSize = bAudio ? 1 : 0;
    Bytes strh, strf(40);
    Append(strh, &header, sizeof header);
    strf[0] = 0x55; // for audio: a compressed format
    strf[8] = 0x40;
    strf[9] = 0x1F; // 8000 bytes a second
    strf[12] = 1;
    Bytes body = Chunk("strh", strh);
    const Bytes format = Chunk("strf", strf);
    Append(body, format.data(), format.size());
    Append(body, indx.data(), indx.size());
    return List("LIST", "strl", body);
}

struct Film {
    Bytes videoIndex; // `indx` chunks
    Bytes audioIndex;
    Bytes inMovi;
    Bytes behindMovi;
};

Bytes Build(const Film& film)
{
    lxAviRead_Avih_t avih = {};
    avih.dwMicroSecPerFrame = 40000;
    avih.dwStreams = 2;
    Bytes header;
    Append(header, &avih, sizeof avih);
    Bytes hdrl = Chunk("avih", header);
    for (const Bytes& list : {StreamList(false, film.videoIndex), StreamList(true, film.audioIndex)}) {
        Append(hdrl, list.data(), list.size());
    }
    Bytes body = List("LIST", "hdrl", hdrl);
    const Bytes movi = List("LIST", "movi", film.inMovi);
    Append(body, movi.data(), movi.size());
    Append(body, film.behindMovi.data(), film.behindMovi.size());
    return List("RIFF", "AVI ", body);
}

// Index chunks stand at fixed places in the media data, so that the input can contain their offsets.
Film MakeFilm(UInt8 kind, const Bytes& index)
{
    Film film;
    const Bytes half(index.begin(), index.begin() + static_cast<long>(index.size() / 2));
    const Bytes rest(index.begin() + static_cast<long>(index.size() / 2), index.end());
    switch (kind % 4) {
    case 0: film.behindMovi = Chunk("idx1", index); break;
    case 1:
        film.videoIndex = Chunk("indx", half);
        film.audioIndex = Chunk("indx", rest);
        break;
    case 2: {
        film.videoIndex = Chunk("indx", half);
        film.inMovi = Chunk("ix00", rest);
        const Bytes audio = Chunk("ix01", rest);
        Append(film.inMovi, audio.data(), audio.size());
        break;
    }
    default:
        film.videoIndex = Chunk("indx", half);
        film.behindMovi = Chunk("idx1", rest);
        break;
    }
    for (UInt32 i = 0; i < 8; ++i) {
        const Bytes chunk = Chunk(i % 2 == 0 ? "00dc" : "01wb", Bytes(16 + i, UInt8{7}));
        Append(film.inMovi, chunk.data(), chunk.size());
    }
    return film;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const UInt8* pData, size_t size)
{
    if (size < 3) {
        return 0;
    }
    const Bytes file = Build(MakeFilm(pData[0], Bytes(pData + 3, pData + size)));
    const UInt32 budget = pData[2] * 70000u;
    Bool allIndexed = 0;
    lxfuzz::Serve(file);
    if (lxAviReadCore_Open(0, "input", 1, budget, pData[1], &allIndexed) == LX_OK) {
        lxfuzz::CheckTable(budget);
        static_cast<void>(lxAviReadCore_ParseIndex(0));
        lxfuzz::CheckTable(budget);
        for (const UInt32 time : {0u, 40u, 1000u, 0xFFFFFFFFu}) {
            static_cast<void>(lxAviReadCore_SeekToTime(time, 0, lxAviRead_SetPosRoundNearest));
            lxfuzz::Play(4, 0);
        }
        static_cast<void>(lxAviReadCore_PrintIndex());
    }
    lxfuzz::CloseAndCheck();
    return 0;
}
