#include <kel/src/kernels/Dispatch.h>

#include <atomic>

namespace kel::src::detail {

namespace {

KernelSet detect() {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2")) return KernelSet::AVX2;
#endif
    return KernelSet::PLAIN;
}

std::atomic<KernelSet>& active() {
    static std::atomic<KernelSet> set{detect()};
    return set;
}

} // namespace

KernelSet bestKernels() {
    static const KernelSet best = detect();
    return best;
}

KernelSet activeKernels() {
    return active().load(std::memory_order_relaxed);
}

bool forceKernels(KernelSet set) {
    if (set == KernelSet::AVX2 && bestKernels() != KernelSet::AVX2) return false;
    active().store(set, std::memory_order_relaxed);
    return true;
}

void unforceKernels() {
    active().store(bestKernels(), std::memory_order_relaxed);
}

} // namespace kel::src::detail
