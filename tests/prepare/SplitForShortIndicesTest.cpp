#include <kel/prepare/SplitForShortIndices.h>

#include <support/Meshes.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <numeric>
#include <set>
#include <stdexcept>

namespace {

using namespace kel::prepare;
using fixture::floatsOf;
using fixture::indicesOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

/// `vertices` vertices whose "id" is their number, drawn by `indices`.
fixture::DefaultMeshPtr numbered(kel::mesh::PrimitiveType type, std::size_t vertices,
                                 std::vector<std::uint32_t> indices) {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>(type);
    std::vector<std::uint32_t> ids(vertices);
    std::iota(ids.begin(), ids.end(), 0u);
    std::vector<float> positions;
    for (std::size_t i = 0; i < vertices; ++i)
        positions.insert(positions.end(), {static_cast<float>(i), 0.0f, 1.0f});
    mesh->addAttribute("position", 3, std::move(positions));
    mesh->addAttribute("id", 1, std::move(ids));
    if (!indices.empty()) mesh->setIndices(std::move(indices));
    return mesh;
}

/// The numbers of the vertices that the parts draw, in order, as the parts' "id" tells them.
std::vector<std::uint32_t> drawn(const kel::src::SrcWriterInput& input) {
    std::vector<std::uint32_t> ids;
    for (const auto& mesh : input.meshes) {
        const auto buffer = mesh->getAttributeBuffer("id");
        std::vector<std::size_t> indices = indicesOf(*mesh);
        if (!mesh->getIndexBuffer()) {
            indices.resize(buffer->getElementCount());
            std::iota(indices.begin(), indices.end(), std::size_t(0));
        }
        for (const std::size_t index : indices) {
            std::uint32_t id;
            buffer->getElement(index, &id);
            ids.push_back(id);
        }
    }
    return ids;
}

kel::src::SrcWriterInput split(const kel::mesh::MeshPtr& mesh, std::size_t maxVertices,
                               SplitReport* report = nullptr) {
    return splitForShortIndices(fixture::inputOf({mesh}), {maxVertices}, report);
}

TEST(SplitForShortIndices, PassesMeshesWithinTheLimit) {
    const auto input = fixture::twoMaterials();
    const auto result = splitForShortIndices(input);
    EXPECT_EQ(result.meshes, input.meshes);
    EXPECT_EQ(result.metaData, input.metaData);
    EXPECT_EQ(result.meshMaterials, input.meshMaterials);
}

TEST(SplitForShortIndices, PassesTheLargestMeshThatFits) {
    const auto mesh = fixture::pointRow(65535);
    EXPECT_EQ(splitForShortIndices(fixture::inputOf({mesh})).meshes, std::vector<kel::mesh::MeshPtr>{mesh});
}

TEST(SplitForShortIndices, CutsTheSmallestMeshThatDoesNotFit) {
    SplitReport report;
    const auto result = splitForShortIndices(fixture::inputOf({fixture::pointRow(65536)}), {}, &report);
    ASSERT_EQ(result.meshes.size(), 2u);
    EXPECT_EQ(result.meshes[0]->getNumPrimitives(), 65535u);
    EXPECT_EQ(result.meshes[1]->getNumPrimitives(), 1u);
    EXPECT_EQ(indicesOf(*result.meshes[1]), std::vector<std::size_t>{0});
    EXPECT_EQ(result.meshes[0]->getIndexBuffer()->getElementSizeInBytes(), 2u);
    EXPECT_EQ(report.meshes, 1u);
    EXPECT_EQ(report.parts, 2u);
    EXPECT_EQ(report.verticesAdded, 0u);
}

TEST(SplitForShortIndices, CutsATriangleListBetweenTriangles) {
    SplitReport report;
    const auto result = split(numbered(kel::mesh::TRIANGLES, 5, {0, 1, 2, 2, 1, 3, 4, 3, 2}), 4, &report);
    ASSERT_EQ(result.meshes.size(), 2u);
    EXPECT_THAT(indicesOf(*result.meshes[0]), ElementsAre(0, 1, 2, 2, 1, 3));
    EXPECT_THAT(indicesOf(*result.meshes[1]), ElementsAre(0, 1, 2));
    EXPECT_THAT(drawn(result), ElementsAre(0, 1, 2, 2, 1, 3, 4, 3, 2));
    EXPECT_THAT(floatsOf(*result.meshes[1], "position"), ElementsAre(4, 0, 1, 3, 0, 1, 2, 0, 1));
    EXPECT_EQ(report.verticesAdded, 2u);
    EXPECT_EQ(report.verticesUnused, 0u);
}

TEST(SplitForShortIndices, CutsALineListBetweenLines) {
    const auto result = split(numbered(kel::mesh::LINES, 4, {0, 1, 1, 2, 2, 3}), 3);
    ASSERT_EQ(result.meshes.size(), 2u);
    EXPECT_EQ(result.meshes[0]->getPrimitiveType(), kel::mesh::LINES);
    EXPECT_EQ(result.meshes[0]->getNumPrimitives(), 2u);
    EXPECT_THAT(drawn(result), ElementsAre(0, 1, 1, 2, 2, 3));
}

TEST(SplitForShortIndices, TurnsAStripIntoTrianglesOfTheSameFacing) {
    const auto result = split(numbered(kel::mesh::TRIANGLE_STRIP, 5, {0, 1, 2, 3, 4}), 3);
    EXPECT_THAT(drawn(result), ElementsAre(0, 1, 2, 2, 1, 3, 2, 3, 4));
    EXPECT_EQ(result.meshes[0]->getPrimitiveType(), kel::mesh::TRIANGLES);
}

TEST(SplitForShortIndices, DropsAndCountsDegenerateStripTrianglesAndKeepsTheTurn) {
    SplitReport report;
    // Two strips joined by doubled vertices; the second one's triangle stands at an odd place.
    const auto result = split(numbered(kel::mesh::TRIANGLE_STRIP, 6, {0, 1, 2, 2, 3, 3, 4, 5}), 3, &report);
    EXPECT_THAT(drawn(result), ElementsAre(0, 1, 2, 4, 3, 5));
    EXPECT_EQ(report.degenerateTriangles, 4u);
}

TEST(SplitForShortIndices, TurnsAFanIntoTriangles) {
    const auto result = split(numbered(kel::mesh::TRIANGLE_FAN, 5, {4, 0, 1, 2, 3}), 4);
    EXPECT_THAT(drawn(result), ElementsAre(4, 0, 1, 4, 1, 2, 4, 2, 3));
}

TEST(SplitForShortIndices, TurnsALoopIntoLinesAndClosesIt) {
    const auto result = split(numbered(kel::mesh::LINE_LOOP, 4, {0, 1, 2, 3}), 3);
    EXPECT_THAT(drawn(result), ElementsAre(0, 1, 1, 2, 2, 3, 3, 0));
    EXPECT_EQ(result.meshes[0]->getPrimitiveType(), kel::mesh::LINES);
}

TEST(SplitForShortIndices, TurnsALineStripIntoLines) {
    const auto result = split(numbered(kel::mesh::LINE_STRIP, 4, {0, 1, 2, 3}), 3);
    EXPECT_THAT(drawn(result), ElementsAre(0, 1, 1, 2, 2, 3));
}

TEST(SplitForShortIndices, CutsAListWithoutIndicesWithoutMakingSome) {
    const auto result = split(numbered(kel::mesh::TRIANGLES, 9, {}), 5);
    ASSERT_EQ(result.meshes.size(), 3u);
    EXPECT_EQ(result.meshes[0]->getIndexBuffer(), nullptr);
    EXPECT_EQ(result.meshes[0]->getNumPrimitives(), 1u);
    EXPECT_THAT(drawn(result), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8));
}

TEST(SplitForShortIndices, GivesAStripWithoutIndicesSome) {
    const auto result = split(numbered(kel::mesh::TRIANGLE_STRIP, 4, {}), 3);
    EXPECT_NE(result.meshes[0]->getIndexBuffer(), nullptr);
    EXPECT_THAT(drawn(result), ElementsAre(0, 1, 2, 2, 1, 3));
}

TEST(SplitForShortIndices, CountsWhatIsLeftOut) {
    SplitReport report;
    const auto result = split(numbered(kel::mesh::TRIANGLES, 6, {0, 1, 2, 3, 4}), 3, &report);
    EXPECT_THAT(drawn(result), ElementsAre(0, 1, 2));
    EXPECT_EQ(report.indicesIncomplete, 2u);
    EXPECT_EQ(report.verticesUnused, 3u);
}

TEST(SplitForShortIndices, GivesPartsTheirOwnMetadata) {
    auto input = fixture::inputOf({numbered(kel::mesh::POINTS, 4, {})});
    const auto result = splitForShortIndices(input, {3});
    ASSERT_EQ(result.meshes.size(), 2u);
    EXPECT_EQ(*result.metaData.at(result.meshes[0]),
              (std::map<std::string, std::string>{{"name", "\"mesh0\""}, {"part", "0"}, {"parts", "2"}}));
    EXPECT_EQ(result.metaData.at(result.meshes[1])->at("part"), "1");
    EXPECT_EQ(result.metaData.size(), 2u);
    EXPECT_EQ(input.metaData.at(input.meshes[0])->size(), 1u);
}

TEST(SplitForShortIndices, GivesPartsTheMaterial) {
    auto input = fixture::inputOf({numbered(kel::mesh::POINTS, 4, {})});
    const auto red = fixture::material(1, 0, 0);
    input.materials = {red};
    input.meshMaterials[input.meshes[0]] = red;
    const auto result = splitForShortIndices(input, {3});
    EXPECT_EQ(result.meshMaterials.at(result.meshes[0]), red);
    EXPECT_EQ(result.meshMaterials.at(result.meshes[1]), red);
    EXPECT_EQ(result.meshMaterials.size(), 2u);
    EXPECT_EQ(result.materials, input.materials);
}

TEST(SplitForShortIndices, PutsPartsWhereTheMeshWas) {
    const auto before = fixture::unitSquare(), after = fixture::unitSquare();
    const auto result =
        splitForShortIndices(fixture::inputOf({before, numbered(kel::mesh::POINTS, 6, {}), after}), {4});
    ASSERT_EQ(result.meshes.size(), 4u);
    EXPECT_EQ(result.meshes[0], before);
    EXPECT_EQ(result.meshes[3], after);
}

TEST(SplitForShortIndices, ListsThePartsOfAMeshListedTwiceTwice) {
    auto input = fixture::inputOf({numbered(kel::mesh::POINTS, 4, {})});
    input.meshes.push_back(input.meshes[0]);
    const auto result = splitForShortIndices(input, {3});
    ASSERT_EQ(result.meshes.size(), 4u);
    EXPECT_EQ(result.meshes[0], result.meshes[2]);
    EXPECT_EQ(result.meshes[1], result.meshes[3]);
}

TEST(SplitForShortIndices, KeepsAMeshThatFitsOnceUnusedVerticesAreGoneWhole) {
    SplitReport report;
    const auto result = split(numbered(kel::mesh::TRIANGLES, 9, {8, 0, 4}), 5, &report);
    ASSERT_EQ(result.meshes.size(), 1u);
    EXPECT_EQ(result.metaData.at(result.meshes[0])->count("part"), 0u);
    EXPECT_THAT(drawn(result), ElementsAre(8, 0, 4));
    EXPECT_EQ(report.verticesUnused, 6u);
}

TEST(SplitForShortIndices, KeepsAMeshWithoutPrimitivesByName) {
    auto mesh = numbered(kel::mesh::TRIANGLES, 9, {});
    mesh->setIndices(std::vector<std::uint32_t>{});
    const auto result = split(mesh, 5);
    ASSERT_EQ(result.meshes.size(), 1u);
    EXPECT_EQ(result.metaData.at(result.meshes[0])->at("name"), "\"mesh0\"");
    EXPECT_EQ(result.meshes[0]->getNumPrimitives(), 0u);
}

TEST(SplitForShortIndices, CarriesEveryTypeAndStride) {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>(kel::mesh::POINTS);
    // Four vertices of 8 bytes: three shorts and two bytes.
    const std::vector<unsigned char> bytes = {0, 0, 1, 0, 2, 0, 200, 201, 3, 0, 4, 0, 5, 0, 202, 203,
                                              6, 0, 7, 0, 8, 0, 204, 205, 9, 0, 9, 0, 9, 0, 206, 207};
    const auto data = std::make_shared<kel::mesh::detail::VectorBufferData>(bytes);
    using View = kel::mesh::detail::AttributeBufferDataView;
    mesh->addAttribute(std::make_shared<View>(kel::mesh::UNSIGNED_SHORT, 3, 8, 0, data, "position"));
    mesh->addAttribute(std::make_shared<View>(kel::mesh::UNSIGNED_BYTE, 2, 8, 6, data, "nor"));
    const auto result = split(mesh, 3);
    const auto last = result.meshes.at(1);
    std::array<std::uint16_t, 3> position{};
    last->getAttributeBuffer("position")->getElement(0, position.data());
    EXPECT_THAT(position, ElementsAre(9, 9, 9));
    std::array<std::uint8_t, 2> normal{};
    last->getAttributeBuffer("nor")->getElement(0, normal.data());
    EXPECT_THAT(normal, ElementsAre(206, 207));
    EXPECT_EQ(last->getAttributeBuffer("nor")->getComponentType(), kel::mesh::UNSIGNED_BYTE);
    EXPECT_EQ(last->getAttributeBuffer("position")->getElementStrideInBytes(), 6u);
}

TEST(SplitForShortIndices, RefusesAnIndexWithoutVertexByName) {
    EXPECT_THAT(
        [] {
            split(numbered(kel::mesh::POINTS, 4, {0, 4}), 3);
        },
        ThrowsMessage<std::invalid_argument>(
            HasSubstr("Mesh 0 (\"mesh0\"): index 4 at position 1 is beyond its 4 vertices")));
}

TEST(SplitForShortIndices, RefusesAnAttributeThatEndsEarly) {
    auto mesh = numbered(kel::mesh::POINTS, 4, {});
    mesh->addAttribute("weight", 1, std::vector<float>{1, 2});
    EXPECT_THAT([&] { split(mesh, 3); },
                ThrowsMessage<std::invalid_argument>(HasSubstr("\"weight\" has 2 elements for 4 vertices")));
}

TEST(SplitForShortIndices, RefusesALimitThatHoldsNoTriangleOrNoIndex) {
    EXPECT_THROW(splitForShortIndices({}, {2}), std::invalid_argument);
    EXPECT_THROW(splitForShortIndices({}, {65536}), std::invalid_argument);
}

TEST(SplitForShortIndices, ToleratesEmptyPointers) {
    kel::src::SrcWriterInput input;
    input.meshes = {nullptr};
    EXPECT_EQ(splitForShortIndices(input).meshes, input.meshes);
}

RC_GTEST_PROP(SplitForShortIndicesProperty, DrawsTheSamePrimitivesInTheSameOrder, ()) {
    const auto limit = *rc::gen::inRange<std::size_t>(3, 12);
    const auto vertices = limit + *rc::gen::inRange<std::size_t>(1, 30);
    const auto corners = *rc::gen::inRange<std::size_t>(1, 4);
    const auto primitives = *rc::gen::inRange<std::size_t>(1, 40);
    const auto indices = *rc::gen::container<std::vector<std::uint32_t>>(
        primitives * corners, rc::gen::inRange<std::uint32_t>(0, static_cast<std::uint32_t>(vertices)));
    const auto type = corners == 1   ? kel::mesh::POINTS
                      : corners == 2 ? kel::mesh::LINES
                                     : kel::mesh::TRIANGLES;
    SplitReport report;
    const auto result = split(numbered(type, vertices, indices), limit, &report);
    RC_ASSERT(drawn(result) == indices);
    const std::set<std::uint32_t> used(indices.begin(), indices.end());
    std::size_t written = 0;
    for (const auto& part : result.meshes) {
        const std::size_t count = part->getAttributeBuffer("position")->getElementCount();
        RC_ASSERT(count <= limit);
        RC_ASSERT(part->getNumPrimitives() * corners == indicesOf(*part).size());
        written += count;
    }
    RC_ASSERT(written == used.size() + report.verticesAdded);
    RC_ASSERT(vertices == used.size() + report.verticesUnused);
}

} // namespace
