#include <kel/src/kernels/Kernels.h>

#include <atomic>

namespace kel::src::detail {

KernelSet bestKernels() {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2")) return KernelSet::AVX2;
#endif
    return KernelSet::PLAIN;
}

namespace {

std::atomic<KernelSet>& active() {
    static std::atomic<KernelSet> set{bestKernels()};
    return set;
}

} // namespace

KernelSet activeKernels() {
    return active().load(std::memory_order_relaxed);
}

bool forceKernels(KernelSet set) {
    if (set == KernelSet::AVX2 && bestKernels() != KernelSet::AVX2) return false;
    active().store(set, std::memory_order_relaxed);
    return true;
}

} // namespace kel::src::detail
