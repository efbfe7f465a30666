// Measures every case with each of its contenders: `case/contender`. Interleave the repetitions, so that other work of
// the machine slows down all contenders equally.

#include "Contender.hpp"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <exception>

namespace {

void Measure(benchmark::State& state, const bench::MakeContender& make)
{
    const std::unique_ptr<bench::Contender> contender = make();
    if (contender == nullptr) {
        state.SkipWithError("not installed");
        return;
    }
    UInt64 items = contender->Run(); // the file is in memory now
    items = 0;
    for (auto _ : state) {
        items += contender->Run();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(items));
}

void Register(const std::string& name, const bench::MakeContender& make, double seconds)
{
    if (!make) {
        return; // nothing does the same
    }
    benchmark::RegisterBenchmark(name.c_str(), [make](benchmark::State& state) { Measure(state, make); })
        ->UseRealTime()
        ->MinTime(seconds)
        ->Unit(benchmark::kMicrosecond);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        benchmark::Initialize(&argc, argv);
        for (const bench::Case& one : bench::Cases()) {
            Register(one.name + "/reader", one.reader, one.seconds);
            Register(one.name + "/stdio", one.stdio, one.seconds);
            Register(one.name + "/floor", one.floor, one.seconds);
            if (bench::HasPeer()) {
                Register(one.name + "/peer", one.peer, one.seconds);
            }
        }
        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "reader_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
