// Runs the writer out of memory at every single allocation. Whatever was handed over by then must be freed
// once: the count below and, in the sanitizing build, the sanitizer watch.
#include "support/FailingMemory.h"
#include "support/LogCapture.h"
#include "support/Meshes.h"

#include <kel/src/SrcWriter.h>

#include <gtest/gtest.h>

#include <sstream>

namespace {

using kel::src::SrcWriter;
using kel::tests::allocationsLeft;
using kel::tests::livingAllocations;

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
        const long before = livingAllocations;
        long failures = 0;
        for (bool done = false; !done; ++failures) {
            allocationsLeft = failures;
            try {
                SrcWriter::write(input, out, mode);
                done = true;
            } catch (const std::bad_alloc&) {
            }
            allocationsLeft = -1;
            ASSERT_EQ(livingAllocations, before) << "after " << failures << " allocations in mode " << mode;
        }
        EXPECT_GT(failures, 100);
    }
}

} // namespace
