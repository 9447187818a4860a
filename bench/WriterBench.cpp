// The public writer's three modes on the three scenes, each beside one copy of its payload into fresh memory.
// Copy and writer take turns, so that a machine that slows down slows both; the counters are medians.

#include "Scenes.h"

#include <kel/src/SrcWriter.h>
#include <kel/src/kernels/Kernels.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <new>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace kel::bench;
using namespace kel::src::detail;
using kel::src::SrcWriter;

Payload payloadOf(SrcWriter::Compression mode) {
    switch (mode) {
    case SrcWriter::POSITION_COMPRESSED:
        return {6, 12, 8, 2};
    case SrcWriter::POSITION_NORMAL_COMPRESSED:
        return {8, 0, 0, 2};
    default:
        return {12, 12, 8, 2};
    }
}

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                     values.end());
    return values[values.size() / 2];
}

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::size_t headerBytesOf(const std::string& file) {
    std::uint32_t length = 0;
    std::memcpy(&length, file.data() + 8, sizeof length);
    return length;
}

void writer(benchmark::State& state, char name, SrcWriter::Compression mode) {
    const Scene& s = scene(name);
    const Payload payload = payloadOf(mode);
    const std::size_t payloadBytes = copyToFreshMemory(s, payload);
    const std::size_t peak = peakMemoryOf([&] {
        CountingStream out;
        SrcWriter::write(s.input, out, mode);
    });
    std::ostringstream once;
    SrcWriter::write(s.input, once, mode);
    const std::string file = once.str();
    const std::size_t header = headerBytesOf(file);
    if (file.size() != 12 + header + payloadBytes)
        state.SkipWithError("the payload is not what was expected");

    std::vector<double> copies, writes;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        CountingStream out;
        SrcWriter::write(s.input, out, mode);
        writes.push_back(secondsSince(start));
        state.PauseTiming();
        const auto copyStart = std::chrono::steady_clock::now();
        copyToFreshMemory(s, payload);
        copies.push_back(secondsSince(copyStart));
        state.ResumeTiming();
    }
    const double copy = median(copies), write = median(writes);
    state.counters["memcpy_ms"] = copy * 1e3;
    state.counters["times_memcpy"] = write / copy;
    state.counters["ns_per_vertex_above"] = (write - copy) * 1e9 / static_cast<double>(s.vertices());
    state.counters["us_per_mesh"] = write * 1e6 / static_cast<double>(s.meshes);
    state.counters["header_MB"] = static_cast<double>(header) / 1e6;
    state.counters["peak_MB"] = static_cast<double>(peak) / 1e6;
    state.counters["peak_limit_MB"] = static_cast<double>(payloadBytes + 3 * header) / 1e6;
}

void writerPerMesh(benchmark::State& state) {
    const Scene s = makeScene(static_cast<std::size_t>(state.range(0)), 50);
    for (auto _ : state) {
        CountingStream out;
        SrcWriter::write(s.input, out, SrcWriter::UNCOMPRESSED);
        benchmark::DoNotOptimize(out.bytes());
    }
    state.counters["per_mesh"] =
        benchmark::Counter(static_cast<double>(state.range(0)),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

template<typename Kernel>
void kernel(benchmark::State& state, Kernel run) {
    if (!forceKernels(state.range(0) == 0 ? KernelSet::PLAIN : KernelSet::AVX2)) {
        state.SkipWithError("this processor has no AVX2");
    }
    state.SetLabel(state.range(0) == 0 ? "plain" : "AVX2");
    const Sphere& sphere = scene('a').spheres[0];
    const std::size_t vertices = sphere.positions.size() / 3;
    std::vector<unsigned char> out(8 * vertices);
    for (auto _ : state) {
        run(sphere, vertices, out.data());
        benchmark::ClobberMemory();
    }
    forceKernels(bestKernels());
    state.counters["per_vertex"] =
        benchmark::Counter(static_cast<double>(vertices),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void positionCodes(const Sphere& sphere, std::size_t count, unsigned char* out) {
    const float min[3] = {-0.5f, -0.5f, -0.5f}, max[3] = {0.5f, 0.5f, 0.5f};
    quantizePositions(reinterpret_cast<const unsigned char*>(sphere.positions.data()), count, min, max, out,
                      6);
}

void normalCodes(const Sphere& sphere, std::size_t count, unsigned char* out) {
    encodeNormals(reinterpret_cast<const unsigned char*>(sphere.normals.data()), count, out, 2);
}

} // namespace

BENCHMARK_CAPTURE(writer, a_uncompressed, 'a', SrcWriter::UNCOMPRESSED)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(writer, a_position, 'a', SrcWriter::POSITION_COMPRESSED)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(writer, a_position_normal, 'a', SrcWriter::POSITION_NORMAL_COMPRESSED)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(writer, b_uncompressed, 'b', SrcWriter::UNCOMPRESSED)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(writer, b_position, 'b', SrcWriter::POSITION_COMPRESSED)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(writer, b_position_normal, 'b', SrcWriter::POSITION_NORMAL_COMPRESSED)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(writer, c_uncompressed, 'c', SrcWriter::UNCOMPRESSED)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(writer, c_position, 'c', SrcWriter::POSITION_COMPRESSED)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(writer, c_position_normal, 'c', SrcWriter::POSITION_NORMAL_COMPRESSED)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(writerPerMesh)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(kernel, positions, positionCodes)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(kernel, normals, normalCodes)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
