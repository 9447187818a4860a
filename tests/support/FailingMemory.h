#pragma once

#include <cstdlib>
#include <new>

/// Replaces the program's memory by one that runs out after a number of allocations. For the one source file of a test
/// program of its own.
namespace kel::tests {

inline long allocationsLeft = -1; ///< -1: as many as asked for
inline long livingAllocations = 0;

inline void* allocate(std::size_t size) {
    if (allocationsLeft == 0) throw std::bad_alloc();
    if (allocationsLeft > 0) --allocationsLeft;
    void* bytes = std::malloc(size == 0 ? 1 : size);
    if (!bytes) throw std::bad_alloc();
    ++livingAllocations;
    return bytes;
}

inline void release(void* bytes) noexcept {
    if (!bytes) return;
    --livingAllocations;
    std::free(bytes);
}

} // namespace kel::tests

void* operator new(std::size_t size) {
    return kel::tests::allocate(size);
}
void* operator new[](std::size_t size) {
    return kel::tests::allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return kel::tests::allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}
void operator delete(void* bytes) noexcept {
    kel::tests::release(bytes);
}
void operator delete(void* bytes, std::size_t) noexcept {
    kel::tests::release(bytes);
}
void operator delete[](void* bytes) noexcept {
    kel::tests::release(bytes);
}
void operator delete[](void* bytes, std::size_t) noexcept {
    kel::tests::release(bytes);
}
