#include "FaultModels.h"

#include <kel/convert/Compare.h>
#include <kel/convert/ConvertError.h>
#include <reader/Files.h>

#include <gmock/gmock.h>

#include <cmath>

namespace {

using namespace kel::convert;
using namespace kel::tests;
using reader_fixture::Mode;
using testing::ElementsAre;
using testing::IsEmpty;

/// A unit square whose vertices are moved along z, named "part".
kel::src::SrcWriterInput square(float z, float red = 1.0f) {
    const auto mesh = fixture::unitSquare();
    auto moved = std::make_shared<kel::mesh::DefaultMesh>();
    auto positions = fixture::floatsOf(*mesh, "position");
    for (std::size_t i = 2; i < positions.size(); i += 3)
        positions[i] += z;
    moved->addAttribute("position", 3, positions);
    moved->addAttribute("normal", 3, fixture::floatsOf(*mesh, "normal"));
    std::vector<std::uint16_t> indices;
    for (const std::size_t index : fixture::indicesOf(*mesh))
        indices.push_back(static_cast<std::uint16_t>(index));
    moved->setIndices(indices);
    auto input = fixture::inputOf({moved});
    const auto material = fixture::material(red, 0, 0);
    input.meshMaterials[moved] = material;
    input.materials.insert(material);
    input.metaData[moved] = std::make_shared<std::map<std::string, std::string>>(
        std::map<std::string, std::string>{{"name", "\"part\""}});
    return input;
}

ComparableScene written(const kel::src::SrcWriterInput& input, Mode mode = Mode::UNCOMPRESSED) {
    return comparableScene(reader_fixture::read(reader_fixture::write(input, mode)), "file");
}

TEST(Compare, MeshesAndTheirFileAreTheSame) {
    for (const Mode mode : {Mode::DEFAULT, Mode::UNCOMPRESSED}) {
        const CompareReport report = compare(comparableScene(square(0.0f)), written(square(0.0f), mode));
        EXPECT_TRUE(report.sameMeshes());
        EXPECT_EQ(report.maxDistance, 0.0);
        EXPECT_EQ(report.maxAngle, 0.0);
        EXPECT_EQ(report.a.counts.triangles, 2u);
        EXPECT_EQ(report.b.counts.vertices, 4u);
        EXPECT_THAT(report.attributes, IsEmpty());
        EXPECT_THAT(report.materials, IsEmpty());
        EXPECT_THAT(report.metadata, IsEmpty());
    }
}

TEST(Compare, DistanceIsThatOfTheVertices) {
    const CompareReport report = compare(written(square(0.0f)), written(square(0.25f)));
    EXPECT_EQ(report.maxDistance, 0.25);
    EXPECT_EQ(report.rmsDistance, 0.25);
    ASSERT_EQ(report.pairs.size(), 1u);
    EXPECT_EQ(report.pairs[0].name, "part");
}

TEST(Compare, MeshWithoutANameIsCalledByNodeOrPosition) {
    auto plain = square(0.0f), moved = square(0.25f);
    const auto labels = [&] {
        std::vector<std::string> found;
        for (const Difference& difference : compare(written(plain), written(moved)).differences)
            found.push_back(difference.mesh);
        return found;
    };
    for (auto* input : {&plain, &moved})
        input->metaData.begin()->second->erase("name");
    EXPECT_THAT(labels(), ElementsAre("#0"));
    for (auto* input : {&plain, &moved})
        (*input->metaData.begin()->second)["node"] = "\"house/roof\"";
    EXPECT_THAT(labels(), ElementsAre("house/roof"));
}

/// The square in a plane at z, stored about an origin.
kel::src::SrcWriterInput about(const std::string& origin, float z) {
    auto input = square(z);
    (*input.metaData.begin()->second)["origin"] = origin;
    return input;
}

TEST(Compare, MeshesInAnotherOrderThatAreALittleOffBelongTogether) {
    ComparableScene a = written(square(0.0f)), b = written(square(10.125f));
    a.meshes.push_back(written(square(10.0f)).meshes.front());
    b.meshes.push_back(written(square(0.125f)).meshes.front());
    EXPECT_EQ(compare(a, b).maxDistance, 0.125);
}

/// Two squares, 10 apart; and the same as another program may write them: in another order, without names, slightly
/// off, one with a triangle that has no area.
std::pair<ComparableScene, ComparableScene> madeAnew() {
    ComparableScene a = written(square(0.0f)), b = written(square(10.0f));
    a.meshes.push_back(written(square(10.0f)).meshes.front());
    b.meshes.push_back(written(square(0.001f)).meshes.front());
    b.meshes[0].corners.insert(b.meshes[0].corners.end(), {0, 0, 0});
    for (ComparableMesh& mesh : b.meshes)
        mesh.name.clear();
    return {std::move(a), std::move(b)};
}

TEST(Compare, MeshesWithoutNamesBelongToThoseWithTheirBox) {
    const auto [a, b] = madeAnew();
    EXPECT_NEAR(compare(a, b).maxDistance, 0.001, 1e-9);
}

TEST(Compare, NodesWithoutNamesBringNothingTogether) {
    auto [a, b] = madeAnew();
    a.meshes[0].node = b.meshes[0].node = "/";
    a.meshes[1].node = b.meshes[1].node = "//";
    EXPECT_NEAR(compare(a, b).maxDistance, 0.001, 1e-9);
}

/// Two unit squares that meet at a right angle, each cut from its middle into four triangles or along a diagonal
/// into two, with a normal each.
kel::src::SrcWriterInput fold(float x, float z, bool fromTheMiddle) {
    fault_models::Part part;
    std::vector<float> positions, normals;
    const auto add = [&](bool lies, const std::vector<std::array<float, 2>>& corners,
                         const std::vector<std::uint32_t>& indices) {
        const auto first = static_cast<std::uint32_t>(positions.size() / 3);
        for (const auto& [across, along] : corners) {
            const float out = across - 1.0f; // up to the edge that both share
            positions.insert(positions.end(), {x + (lies ? out : 0.0f), along, z + (lies ? 0.0f : out)});
            normals.insert(normals.end(), {lies ? 0.0f : 1.0f, 0.0f, lies ? 1.0f : 0.0f});
        }
        for (const std::uint32_t index : indices)
            part.indices.push_back(first + index);
    };
    for (const bool lies : {true, false}) {
        if (fromTheMiddle) {
            add(lies, {{0, 0}, {1, 0}, {1, 1}, {0, 1}, {0.5f, 0.5f}}, {0, 1, 4, 1, 2, 4, 2, 3, 4, 3, 0, 4});
        } else {
            add(lies, {{0, 0}, {1, 0}, {1, 1}, {0, 1}}, {0, 1, 2, 0, 2, 3});
        }
    }
    part.attributes["position"] = {3, positions};
    part.attributes["normal"] = {3, normals};
    return fault_models::inputOf({"fold", {part}});
}

TEST(Compare, AtASharpEdgeTheSurfaceThatFitsCountsNotTheNearestOne) {
    // The lying square is 0.002 off, so that what stands is nearer to its edge.
    CompareLimits limits;
    limits.position = 0.004;
    limits.ignored = {DifferenceKind::TOPOLOGY};
    const CompareReport report =
        compare(written(fold(0, 0, false)), written(fold(0.001f, 0.002f, true)), limits);
    EXPECT_NEAR(report.maxDistance, std::hypot(0.001, 0.002), 1e-6); // at the far sides
    EXPECT_LT(report.maxAngle, 0.01);
}

TEST(Compare, PositionsAreThoseAboutTheTrueOrigin) {
    EXPECT_TRUE(
        compare(written(about("[500000.25, 5400000, 0]", 0)), written(about("[500000.25, 5400000, -8]", 8)))
            .same());
    const CompareReport report = compare(written(square(0)), written(about("[5000000, 0, 0]", 0)));
    EXPECT_EQ(report.maxDistance, 5e6);
    ASSERT_FALSE(report.same());
    EXPECT_EQ(report.differences[0].kind, DifferenceKind::POSITIONS);
}

TEST(Compare, WhatFloatsFarFromZeroHaveLostIsADifference) {
    // About zero the steps between floats are 0.5 there.
    const CompareReport report =
        compare(written(about("[0, 0, 5400000]", 0.25f)), written(square(5400000.25f)));
    ASSERT_FALSE(report.same());
    EXPECT_EQ(report.differences[0].kind, DifferenceKind::POSITIONS);
    EXPECT_EQ(report.differences[0].amount, 0.25);
}

TEST(Compare, DoublesDecideFarFromZero) {
    // A sixteenth is less than a float of this size can tell.
    const std::string far = "[5400000.0625, 0, 0]", near = "[5400000, 0, 0]";
    EXPECT_EQ(compare(written(about(far, 0)), written(about(near, 0))).maxDistance, 0.0625);
}

TEST(Compare, MaterialsMetadataAndMissingMeshesAreCounted) {
    auto other = square(0.0f, 0.5f);
    (*other.metaData.begin()->second)["node"] = "\"/part\"";
    const auto extra = fixture::pointRow(3);
    other.meshes.push_back(extra);
    other.metaData[extra] = std::make_shared<std::map<std::string, std::string>>(
        std::map<std::string, std::string>{{"name", "\"dots\""}});
    const CompareReport report = compare(written(square(0.0f)), written(other));
    EXPECT_THAT(report.missing, IsEmpty());
    EXPECT_THAT(report.added, ElementsAre("dots"));
    ASSERT_EQ(report.materials.count("diffuseColor"), 1u);
    EXPECT_EQ(report.materials.at("diffuseColor").largest, 0.5);
    ASSERT_EQ(report.metadata.count("node"), 1u);
    EXPECT_EQ(report.metadata.at("node").onlyB, 1u);
}

TEST(Compare, IndexWithoutAVertexIsRefused) {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute("position", 3, std::vector<float>{0, 0, 0, 1, 0, 0, 0, 1, 0});
    mesh->setIndices(std::vector<std::uint16_t>{0, 1, 2});
    std::string file = reader_fixture::write(fixture::inputOf({mesh}), Mode::UNCOMPRESSED);
    const std::size_t indices = file.find(std::string("\0\0\1\0\2\0", 6));
    ASSERT_NE(indices, std::string::npos);
    file[indices + 4] = 3;
    try {
        comparableScene(reader_fixture::read(file), "file");
        ADD_FAILURE();
    } catch (const ConvertError& error) {
        EXPECT_EQ(error.code(), ConvertCode::INDEX_WITHOUT_VERTEX);
        EXPECT_EQ(error.subject(), "file");
    }
}

} // namespace
