// How fast the reader indexes, delivers, seeks and looks up, on files that are made at run time.

#include "AviBuilder.hpp"

#include "lxAviRead.h"

#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace {

using namespace avitest;

// A file of `frames` frames of 40 bytes, a key frame every ten, each with a chunk of audio.
class SmallChunks {
public:
    SmallChunks(UInt32 frames, IndexKind eIndex)
        : m_path(std::filesystem::temp_directory_path() / ("lxaviread-bench-" + std::to_string(frames) + "-" +
                                                           std::to_string(static_cast<int>(eIndex)) + ".avi"))
    {
        AviBuilder builder;
        builder.eIndex = eIndex;
        builder.Add(VideoStream()).Add(PcmStream());
        for (UInt32 i = 0; i < frames; ++i) {
            builder.Audio(1, Fill(60)).Frame(0, Fill(40), i % 10 == 0);
        }
        const Bytes file = builder.Build();
        std::ofstream(m_path, std::ios::binary)
            .write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
    }

    ~SmallChunks() { std::filesystem::remove(m_path); }
    SmallChunks(const SmallChunks&) = delete;
    SmallChunks& operator=(const SmallChunks&) = delete;

    void Open() const
    {
        Bool allIndexed = 0;
        if (lxAviReadCore_Open(0, m_path.c_str(), 1, 64u << 20, 1, &allIndexed) != LX_OK ||
            lxAviReadCore_ParseIndex(0) != LX_OK ||
            lxAviReadCore_PositionTheFileHandleToPlayData(lxAviReadCore_GetAviInfo()) != LX_OK) {
            throw std::runtime_error("the file of the benchmark cannot be opened");
        }
    }

private:
    std::filesystem::path m_path;
};

UInt64 DeliverAll()
{
    UInt64 chunks = 0;
    UInt32 buffer[64];
    lxAviRead_ChunkData_t chunk;
    Bool jumped = 0;
    while (lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped) == LX_OK) {
        benchmark::DoNotOptimize(lxAviReadCore_GetChunk(buffer, chunk.uiSize));
        ++chunks;
    }
    return chunks;
}

void OpenAndIndex(benchmark::State& state, IndexKind eIndex)
{
    const SmallChunks file(static_cast<UInt32>(state.range(0)) / 2, eIndex);
    for (auto _ : state) {
        file.Open();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0)); // records
    lxAviReadCore_Close();
}
BENCHMARK_CAPTURE(OpenAndIndex, idx1, IndexKind::Idx1Relative)->Arg(10000)->Arg(100000)->Arg(1000000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(OpenAndIndex, super_index, IndexKind::SuperStandard)->Arg(10000)->Arg(100000)->Arg(1000000)
    ->Unit(benchmark::kMillisecond);

void DeliverSmallChunks(benchmark::State& state)
{
    const SmallChunks file(static_cast<UInt32>(state.range(0)) / 2, IndexKind::Idx1Relative);
    file.Open();
    UInt64 chunks = 0;
    for (auto _ : state) {
        lxAviReadCore_RewindToStart();
        chunks += DeliverAll();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(chunks));
    lxAviReadCore_Close();
}
BENCHMARK(DeliverSmallChunks)->Arg(600000)->Unit(benchmark::kMillisecond);

void SeekAndFirstChunk(benchmark::State& state)
{
    const SmallChunks file(100000, IndexKind::Idx1Relative);
    file.Open();
    UInt32 time = 0;
    lxAviRead_ChunkData_t chunk;
    Bool jumped = 0;
    for (auto _ : state) {
        time = time * 1664525u + 1013904223u;
        lxAviReadCore_SeekToTime(time % 4000000, 0, lxAviRead_SetPosRoundNearest);
        benchmark::DoNotOptimize(lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped));
    }
    lxAviReadCore_Close();
}
BENCHMARK(SeekAndFirstChunk);

// In playback order the lookup needs no search.
void LookupInOrder(benchmark::State& state)
{
    const SmallChunks file(100000, IndexKind::Idx1Relative);
    file.Open();
    const UInt32 offset = static_cast<UInt32>(lxAviReadCore_GetAviInfo()->KeyFramesListAsArray[0]->array[0].videoChunkOffset) + 60;
    lxAviReadCore_KeyFramePosition_t position;
    for (auto _ : state) {
        benchmark::DoNotOptimize(lxAviReadCore_GetChunkInfo(&position, offset));
    }
    lxAviReadCore_Close();
}
BENCHMARK(LookupInOrder);

} // namespace

BENCHMARK_MAIN();
