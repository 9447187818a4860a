// Runs the writer out of memory at every single allocation. Whatever was handed over by then must be freed
// once: the count below and, in the sanitizing build, the sanitizer watch.
#include "support/LogCapture.h"
#include "support/Meshes.h"

#include <kel/src/SrcWriter.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <sstream>

namespace {

long allocationsLeft = -1; // -1: as many as asked for
long living = 0;

void* allocate(std::size_t size) {
    if (allocationsLeft == 0) throw std::bad_alloc();
    if (allocationsLeft > 0) --allocationsLeft;
    void* bytes = std::malloc(size == 0 ? 1 : size);
    if (!bytes) throw std::bad_alloc();
    ++living;
    return bytes;
}

void release(void* bytes) noexcept {
    if (!bytes) return;
    --living;
    std::free(bytes);
}

} // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void operator delete(void* bytes) noexcept {
    release(bytes);
}
void operator delete(void* bytes, std::size_t) noexcept {
    release(bytes);
}
void operator delete[](void* bytes) noexcept {
    release(bytes);
}
void operator delete[](void* bytes, std::size_t) noexcept {
    release(bytes);
}

namespace {

using kel::src::SrcWriter;

/// Takes every byte and, unlike a string stream, no memory.
class NullBuffer : public std::streambuf {
protected:
    std::streamsize xsputn(const char*, std::streamsize size) override { return size; }
    int overflow(int c) override { return c; }
};

TEST(WriterMemory, EveryAllocationMayFailAndNothingIsLost) {
    kel::src::SrcWriterInput input;
    for (int i = 0; i < 2; ++i) {
        const auto mesh = fixture::unitSquare();
        const auto material = std::make_shared<kel::material::MaterialClassic>(3);
        input.meshes.push_back(mesh);
        input.materials.insert(material);
        input.meshMaterials[mesh] = material;
        input.metaData[mesh] = std::make_shared<std::map<std::string, std::string>>();
    }
    NullBuffer buffer;
    for (const auto mode :
         {SrcWriter::UNCOMPRESSED, SrcWriter::POSITION_COMPRESSED, SrcWriter::POSITION_NORMAL_COMPRESSED}) {
        std::ostream out(&buffer);
        SrcWriter::write(input, out, mode); // fills the maps, and whatever is made once
        const long before = living;
        long failures = 0;
        for (bool done = false; !done; ++failures) {
            allocationsLeft = failures;
            try {
                SrcWriter::write(input, out, mode);
                done = true;
            } catch (const std::bad_alloc&) {
            }
            allocationsLeft = -1;
            ASSERT_EQ(living, before) << "after " << failures << " allocations in mode " << mode;
        }
        EXPECT_GT(failures, 100);
    }
}

} // namespace
