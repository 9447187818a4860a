// Every kernel with the plain loop that defines it.

#include "Scenes.h"

#include <kel/src/encoding/Quantization.h>
#include <kel/src/kernels/Kernels.h>

#include <benchmark/benchmark.h>

#include <vector>

namespace {

using namespace kel::bench;
using namespace kel::src::detail;

/// Forces the set of kernels that the benchmark's first argument names.
class Kernels {
public:
    explicit Kernels(benchmark::State& state) {
        if (!forceKernels(state.range(0) == 0 ? KernelSet::PLAIN : KernelSet::AVX2)) {
            state.SkipWithError("this processor has no AVX2");
        }
        state.SetLabel(state.range(0) == 0 ? "plain" : "AVX2");
    }
    ~Kernels() { forceKernels(bestKernels()); }
};

void perVertex(benchmark::State& state, std::size_t vertices) {
    state.counters["per_vertex"] =
        benchmark::Counter(static_cast<double>(vertices),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void bounds(benchmark::State& state) {
    const Kernels kernels(state);
    const auto& positions = scene('a').spheres[0].positions;
    for (auto _ : state) {
        float min[3] = {1e30f, 1e30f, 1e30f}, max[3] = {-1e30f, -1e30f, -1e30f};
        extendBounds(positions.data(), positions.size() / 3, min, max);
        benchmark::DoNotOptimize(min[0] + max[0]);
    }
    perVertex(state, positions.size() / 3);
}

void quantizeBits(benchmark::State& state) {
    const Kernels kernels(state);
    const auto& positions = scene('a').spheres[0].positions;
    const float min[3] = {-0.5f, -0.5f, -0.5f}, extent[3] = {1, 1, 1};
    std::vector<unsigned char> out;
    ShapeResourceContainer::SRCDataType type;
    std::size_t bytesPerElement = 0;
    double decodeOffset[3], decodeScale[3];
    for (auto _ : state) {
        quantizeToNBits(positions.data(), positions.size() / 3, 3, min, extent,
                        static_cast<std::size_t>(state.range(1)), false, out, type, bytesPerElement,
                        decodeOffset, decodeScale);
        benchmark::ClobberMemory();
    }
    perVertex(state, positions.size() / 3);
}

} // namespace

BENCHMARK(bounds)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(quantizeBits)->ArgsProduct({{0, 1}, {8, 16, 24}})->Unit(benchmark::kMicrosecond);
