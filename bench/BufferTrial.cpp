// What a larger buffer of stdio would give: plays the film of two hours with several buffers, from the page cache and from
// a medium that answers each read after a millisecond. Prints one row of a table for each buffer.
//
// The library opens its file with fopen64. This program puts its own function in that place, which sets the buffer.

#include "Contender.hpp"

#include "lxAviRead.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <stdexcept>
#include <thread>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kAnswer = std::chrono::milliseconds(1);

size_t s_bufferBytes = 0; // 0: the C library's choice
bool s_bSlow = false;
std::vector<char> s_buffer;

// ---- The slow medium ----

int FileOf(void* pCookie) { return static_cast<int>(reinterpret_cast<intptr_t>(pCookie)); }

ssize_t ReadSlowly(void* pCookie, char* pBuffer, size_t bytes)
{
    std::this_thread::sleep_for(kAnswer);
    return read(FileOf(pCookie), pBuffer, bytes);
}

int Seek(void* pCookie, off64_t* pOffset, int whence)
{
    *pOffset = lseek64(FileOf(pCookie), *pOffset, whence);
    return *pOffset < 0 ? -1 : 0;
}

int CloseFile(void* pCookie) { return close(FileOf(pCookie)); }

FILE* OpenSlow(const char* path)
{
    const int file = open(path, O_RDONLY);
    const cookie_io_functions_t functions = {ReadSlowly, nullptr, Seek, CloseFile};
    return file >= 0 ? fopencookie(reinterpret_cast<void*>(static_cast<intptr_t>(file)), "rb", functions) : nullptr;
}

} // namespace

extern "C" FILE* fopen64(const char* path, const char* mode)
{
    FILE* const pFile = s_bSlow ? OpenSlow(path) : std::fopen(path, mode);
    if (pFile != nullptr && s_bufferBytes != 0) {
        s_buffer.resize(s_bufferBytes);
        setvbuf(pFile, s_buffer.data(), _IOFBF, s_bufferBytes);
    }
    return pFile;
}

namespace {

// ---- The work ----

void Expect(bool holds)
{
    if (!holds) {
        throw std::runtime_error("the film cannot be read");
    }
}

void OpenAndIndex(const bench::Input& film)
{
    Bool allIndexed = 0;
    Expect(lxAviReadCore_Open(0, film.path.c_str(), 3, 0xFFFFFFFF, 1 | LX_AVIREAD_FOLLOW_FORMAT, &allIndexed) == LX_OK);
    Expect(lxAviReadCore_ParseIndex(0) == LX_OK);
    Expect(lxAviReadCore_PositionTheFileHandleToPlayData(lxAviReadCore_GetAviInfo()) == LX_OK);
}

lxAviRead_ChunkData_t Next()
{
    static std::vector<UInt32> buffer(1u << 16);
    lxAviRead_ChunkData_t chunk = {};
    Bool jumped = 0;
    const UInt32 result = lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped);
    if (result == LX_OK) {
        Expect(lxAviReadCore_GetChunk(buffer.data(), chunk.uiSize) == LX_OK);
    } else {
        Expect(lxAviReadCore_RemoveChunk(chunk.uiSize) == LX_OK);
        lxAviReadCore_IncreaseOffset(chunk.uiSize);
    }
    return chunk;
}

void Play(UInt64 chunks)
{
    for (UInt64 i = 0; i < chunks; ++i) {
        Next();
    }
}

// Seeks, and reads up to the first video chunk and the first audio chunk.
void SeekAndStart(UInt32 msec)
{
    lxAviReadCore_SeekToTime(msec, 0, lxAviRead_SetPosRoundDown);
    bool bVideo = false;
    bool bAudio = false;
    while (!bVideo || !bAudio) {
        const lxAviRead_ChunkData_t chunk = Next();
        bVideo |= chunk.bValid == 1 && chunk.eStreamType == LX_AVIREAD_STREAM_VIDEO;
        bAudio |= chunk.bValid == 1 && chunk.eStreamType == LX_AVIREAD_STREAM_AUDIO;
    }
}

template <typename Work>
double Milliseconds(Work work)
{
    const auto start = Clock::now();
    work();
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void PrintRow(const bench::Input& film)
{
    constexpr int kTimes = 5;
    constexpr UInt64 kSlowChunks = 2000;
    constexpr UInt32 kSeeks = 20;
    s_bSlow = false;
    double fast = 1e9;
    for (int i = 0; i < kTimes; ++i) {
        fast = std::min(fast, Milliseconds([&] {
                            OpenAndIndex(film);
                            Play(film.uiChunks);
                        }));
    }
    s_bSlow = true;
    const double open = Milliseconds([&] { OpenAndIndex(film); });
    const double play = Milliseconds([&] { Play(kSlowChunks); });
    bench::Dice dice;
    const double seek = Milliseconds([&] {
        for (UInt32 i = 0; i < kSeeks; ++i) {
            SeekAndStart(dice.Below(2 * 60 * 60 * 1000));
        }
    });
    static_cast<void>(lxAviReadCore_Close());
    const std::string name = s_bufferBytes == 0 ? "default" : std::to_string(s_bufferBytes / 1024) + " KiB";
    std::printf("| %s | %.1f | %.0f | %.0f | %.1f |\n", name.c_str(), fast * 1e6 / static_cast<double>(film.uiChunks),
                open, play, seek / kSeeks);
}

} // namespace

int main()
{
    try {
        const bench::Input& film = bench::TwoHours();
        for (const size_t bytes : {0u, 16u << 10, 32u << 10, 64u << 10}) {
            s_bufferBytes = bytes;
            PrintRow(film);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "buffer_trial: %s\n", error.what());
        return 1;
    }
    return 0;
}
