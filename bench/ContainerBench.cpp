// The container writer on the three scenes, beside what no writer can undercut: one copy of the payload into
// fresh memory.

#include "Scenes.h"

#include <kel/src/DefaultSrcWriter.h>
#include <kel/src/MeshUtils.h>

#include <benchmark/benchmark.h>

#include <sstream>
#include <string>

namespace {

using namespace kel::bench;

std::size_t headerBytesOf(const Scene& s) {
    std::ostringstream out;
    kel::src::writeMeshSrcDefault(s.input, out);
    const std::string file = out.str();
    std::size_t length = 0;
    for (int i = 11; i >= 8; --i)
        length = length << 8 | static_cast<unsigned char>(file[static_cast<std::size_t>(i)]);
    return length;
}

void memcpyFresh(benchmark::State& state, char name) {
    const Scene& s = scene(name);
    std::size_t bytes = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(bytes = copyToFreshMemory(s, payloadOf(s)));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}

void container(benchmark::State& state, char name, bool compressed) {
    Scene s = scene(name);
    s.input.useCompressedPreset = compressed;
    const std::size_t peak = peakMemoryOf([&] {
        CountingStream out;
        kel::src::writeMeshSrcDefault(s.input, out);
    });
    std::size_t bytes = 0;
    for (auto _ : state) {
        CountingStream out;
        kel::src::writeMeshSrcDefault(s.input, out);
        bytes = out.bytes();
    }
    const std::size_t header = headerBytesOf(s);
    const std::size_t payload = bytes - 12 - header;
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
    state.counters["file_MB"] = static_cast<double>(bytes) / 1e6;
    state.counters["header_MB"] = static_cast<double>(header) / 1e6;
    state.counters["peak_MB"] = static_cast<double>(peak) / 1e6;
    state.counters["peak_limit_MB"] =
        (1.2 * static_cast<double>(payload) + 3 * static_cast<double>(header)) / 1e6;
}

void containerPerMesh(benchmark::State& state) {
    const Scene s = makeScene(static_cast<std::size_t>(state.range(0)), 50);
    for (auto _ : state) {
        CountingStream out;
        kel::src::writeMeshSrcDefault(s.input, out);
        benchmark::DoNotOptimize(out.bytes());
    }
    state.counters["per_mesh"] =
        benchmark::Counter(static_cast<double>(state.range(0)),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void triangleAreas(benchmark::State& state) {
    const Scene& s = scene('a');
    float area = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(area = kel::src::detail::computeTriangleSurfaceArea(s.input.meshes[0]));
    state.counters["per_triangle"] =
        benchmark::Counter(static_cast<double>(s.triangles()),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

} // namespace

BENCHMARK_CAPTURE(memcpyFresh, a, 'a')->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(container, a_default, 'a', false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(container, a_CMP1, 'a', true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(memcpyFresh, b, 'b')->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(container, b_default, 'b', false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(container, b_CMP1, 'b', true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(memcpyFresh, c, 'c')->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(container, c_default, 'c', false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(container, c_CMP1, 'c', true)->Unit(benchmark::kMillisecond);
BENCHMARK(containerPerMesh)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(triangleAreas)->Unit(benchmark::kMillisecond);
