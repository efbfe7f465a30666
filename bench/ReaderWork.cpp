// Does the work of one case several times, for tools that count instructions or system calls of a process. It can also
// count its own heap allocations.
//
//   reader_work CASE reader|stdio|floor TIMES     prints nothing; one Run costs the difference between two TIMES
//   reader_work heap                             prints one line per figure: name, tab, value

#include "Contender.hpp"

#include "lxAviRead.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <malloc.h>
#include <stdexcept>

// ---- The heap, counted ----

extern "C" {
void* __libc_malloc(size_t bytes);
void* __libc_calloc(size_t count, size_t bytes);
void* __libc_realloc(void* pBlock, size_t bytes);
void __libc_free(void* pBlock);
}

namespace {

struct Heap {
    size_t calls = 0;
    size_t live = 0;
    size_t peak = 0;

    void* Took(void* pBlock)
    {
        ++calls;
        live += malloc_usable_size(pBlock);
        peak = live > peak ? live : peak;
        return pBlock;
    }
    void Gave(void* pBlock) { live -= malloc_usable_size(pBlock); }
};

Heap s_heap;

} // namespace

extern "C" {
void* malloc(size_t bytes) { return s_heap.Took(__libc_malloc(bytes)); }
void* calloc(size_t count, size_t bytes) { return s_heap.Took(__libc_calloc(count, bytes)); }
void* realloc(void* pBlock, size_t bytes)
{
    s_heap.Gave(pBlock);
    return s_heap.Took(__libc_realloc(pBlock, bytes));
}
void free(void* pBlock)
{
    s_heap.Gave(pBlock);
    __libc_free(pBlock);
}
}

namespace {

void Print(const std::string& name, size_t value) { std::printf("%s\t%zu\n", name.c_str(), value); }

void CountAllocationsOfDelivery()
{
    const auto delivery = bench::ReaderDelivery(bench::SmallChunks(60000), bench::Rejected::None);
    delivery->Run(); // stdio takes its buffer with the first read
    const size_t before = s_heap.calls;
    const UInt64 chunks = delivery->Run();
    Print("allocations while " + std::to_string(chunks) + " chunks are delivered", s_heap.calls - before);
}

// Counts the most heap memory that the reader holds between the start of Open and the end of ParseIndex, with stdio's
// buffer and stream.
void CountPeak(const char* pIndex, const bench::Input& input, UInt32 budget)
{
    const auto indexing = bench::ReaderIndexing(input, budget);
    const size_t before = s_heap.live;
    s_heap.peak = before;
    indexing->Run();
    Print("peak heap of open+index, " + std::string(pIndex) + " of " + std::to_string(input.uiChunks) + ", budget " +
              std::to_string(budget),
          s_heap.peak - before);
}

void CountHeap()
{
    CountAllocationsOfDelivery();
    for (const UInt32 budget : {bench::kOneLeaf, 1u << 20, 0xFFFFFFFFu}) {
        for (const UInt32 records : {10000u, 100000u, 1000000u}) {
            CountPeak("idx1", bench::SmallChunks(records), budget);
            CountPeak("OpenDML", bench::SmallChunksOpenDml(records), budget);
        }
    }
}

void Work(const std::string& name, const std::string& who, int times)
{
    for (const bench::Case& one : bench::Cases()) {
        if (one.name == name) {
            const auto contender = (who == "reader" ? one.reader : who == "stdio" ? one.stdio : one.floor)();
            for (int i = 0; i < times; ++i) {
                contender->Run();
            }
            return;
        }
    }
    throw std::runtime_error("no such case: " + name);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        if (argc == 2 && std::strcmp(argv[1], "heap") == 0) {
            CountHeap();
        } else if (argc == 4) {
            Work(argv[1], argv[2], std::atoi(argv[3]));
        } else {
            throw std::runtime_error("usage: reader_work CASE reader|stdio|floor TIMES, or reader_work heap");
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "reader_work: %s\n", error.what());
        return 1;
    }
    return 0;
}
