// The same geometry written by tinygltf as GLB, in the same run.

#include "Peers.h"
#include "Scenes.h"

#include <benchmark/benchmark.h>

namespace {

using namespace kel::bench;

void tinygltfGlb(benchmark::State& state, char name) {
    const Scene& s = scene(name);
    const std::size_t peak = peakMemoryOf([&] {
        CountingStream out;
        writeTinygltf(s, out);
    });
    std::size_t bytes = 0;
    for (auto _ : state) {
        CountingStream out;
        writeTinygltf(s, out);
        bytes = out.bytes();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
    state.counters["file_MB"] = static_cast<double>(bytes) / 1e6;
    state.counters["peak_MB"] = static_cast<double>(peak) / 1e6;
}

} // namespace

BENCHMARK_CAPTURE(tinygltfGlb, a, 'a')->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(tinygltfGlb, b, 'b')->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(tinygltfGlb, c, 'c')->Unit(benchmark::kMillisecond);
