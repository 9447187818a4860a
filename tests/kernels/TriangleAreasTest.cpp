#include <kel/mesh/DefaultMesh.h>
#include <kel/src/MeshUtils.h>
#include <kel/src/kernels/Kernels.h>

#include <support/Kernels.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstring>
#include <stdexcept>
#include <vector>

namespace {

using namespace kel::src::detail;
using kel::mesh::DefaultMesh;

template<typename Index>
float areaOf(const std::vector<float>& positions, const std::vector<Index>& indices) {
    DefaultMesh list;
    list.addAttribute("position", 3, positions);
    list.setIndices(indices);
    return computeTriangleSurfaceArea(std::make_shared<DefaultMesh>(list));
}

RC_GTEST_PROP(AreaKernels, AreEqualForAnyPositions, ()) {
    auto positions = *rc::gen::container<std::vector<float>>(60, kel::tests::anyFloat());
    const auto indices =
        *rc::gen::container<std::vector<std::uint16_t>>(rc::gen::inRange<std::uint16_t>(0, 20));
    const std::vector<std::uint32_t> wide(indices.begin(), indices.end());
    const auto narrow = kel::tests::withEachKernelSet([&] { return areaOf(positions, indices); });
    const auto both = kel::tests::withEachKernelSet([&] { return areaOf(positions, wide); });
    RC_ASSERT(std::memcmp(&narrow.fast, &narrow.plain, sizeof(float)) == 0);
    RC_ASSERT(std::memcmp(&both.fast, &narrow.plain, sizeof(float)) == 0);
}

TEST(AreaKernels, AnIndexPastThePositionsIsAnExceptionInAnyPlace) {
    const std::vector<float> positions(30, 1.0f);
    for (std::size_t wrong = 0; wrong < 60; ++wrong) {
        std::vector<std::uint32_t> indices(60, 3);
        indices[wrong] = 10;
        EXPECT_THROW(areaOf(positions, indices), std::out_of_range);
    }
}

struct Added {
    std::size_t triangles;
    float area;
    bool operator==(const Added& other) const {
        return triangles == other.triangles && std::memcmp(&area, &other.area, sizeof area) == 0;
    }
};

RC_GTEST_PROP(AreaKernels, StopAtTheSameTriangle, ()) {
    const auto positions = *rc::gen::container<std::vector<float>>(60, kel::tests::anyFloat());
    auto indices =
        *rc::gen::container<std::vector<std::uint16_t>>(90, rc::gen::inRange<std::uint16_t>(0, 20));
    indices[*rc::gen::inRange<std::size_t>(0, 90)] = *rc::gen::inRange<std::uint16_t>(18, 22);
    const PositionsInMemory memory{reinterpret_cast<const unsigned char*>(positions.data()), 12, 20};
    const auto both = kel::tests::withEachKernelSet([&] {
        AreaSum sum;
        const std::size_t triangles = addTriangleAreas(memory, indices.data(), 30, sum);
        return Added{triangles, sum.get()};
    });
    RC_ASSERT(both.fast == both.plain);
}

} // namespace
