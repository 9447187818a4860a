#include <kel/mesh/DefaultMesh.h>
#include <kel/src/MeshUtils.h>

#include <support/ForeignMesh.h>
#include <support/LogCapture.h>

#include <gtest/gtest.h>

#include <limits>

namespace {

using namespace kel::src::detail;
using kel::mesh::DefaultMesh;
using kel::tests::LogCapture;
using Texts = std::map<std::string, std::string>;

constexpr const char* NO_POSITIONS =
    "No attribute buffer with default positions name \"position\" found in mesh";
constexpr const char* NO_FLOAT_POSITIONS =
    "No attribute buffer with default positions name \"position\" and 3 float "
    "components per element found in mesh";
constexpr const char* NO_INDICES = "No index array could be found, so skip the triangle data";

const std::vector<float> SQUARE = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};

std::shared_ptr<DefaultMesh> mesh(kel::mesh::PrimitiveType type, std::vector<float> positions,
                                  std::vector<std::uint16_t> indices) {
    auto result = std::make_shared<DefaultMesh>(type);
    result->addAttribute("position", 3, std::move(positions));
    result->setIndices(std::move(indices));
    return result;
}

Texts statisticsOf(const kel::mesh::MeshPtr& mesh, Texts before = {}) {
    const auto meta = std::make_shared<Texts>(std::move(before));
    addStatisticsMetaData(mesh, meta);
    return *meta;
}

TEST(Statistics, OfTheUnitSquare) {
    EXPECT_EQ(
        statisticsOf(mesh(kel::mesh::TRIANGLES, SQUARE, {0, 1, 2, 0, 2, 3})),
        (Texts{{"numOriginalTriangles", "2"}, {"numOriginalVertices", "4"}, {"surfaceArea", "1.000000"}}));
}

TEST(Statistics, TrailingIndicesAddNoArea) {
    EXPECT_EQ(computeTriangleSurfaceArea(mesh(kel::mesh::TRIANGLES, SQUARE, {0, 1, 2, 0, 2, 3, 1})), 1.0f);
}

TEST(Statistics, OfAStripCountsAndMeasures) {
    const Texts meta =
        statisticsOf(mesh(kel::mesh::TRIANGLE_STRIP, {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0}, {0, 1, 2, 3}));
    EXPECT_EQ(meta.at("numOriginalTriangles"), "2");
    EXPECT_EQ(meta.at("surfaceArea"), "1.000000");
}

TEST(Statistics, OfAFanMeasuresButDoesNotCount) {
    LogCapture log;
    const Texts meta = statisticsOf(mesh(kel::mesh::TRIANGLE_FAN, SQUARE, {0, 1, 2, 3}));
    EXPECT_EQ(meta, (Texts{{"numOriginalVertices", "4"}, {"surfaceArea", "1.000000"}}));
    EXPECT_EQ(log.messages(), std::vector<std::string>{"No statistics for primitive type TRIANGLE_FAN\n"});
}

TEST(Statistics, OfLineLoopsAndStripsWarn) {
    for (const auto type : {kel::mesh::LINE_LOOP, kel::mesh::LINE_STRIP}) {
        LogCapture log;
        const Texts meta = statisticsOf(mesh(type, SQUARE, {0, 1, 2, 3}));
        EXPECT_EQ(meta, (Texts{{"numOriginalVertices", "4"}, {"surfaceArea", "0.000000"}}));
        EXPECT_EQ(log.records().size(), 1u);
    }
}

TEST(Statistics, OfLinesCountsAndHasNoArea) {
    LogCapture log;
    const Texts meta = statisticsOf(mesh(kel::mesh::LINES, SQUARE, {0, 1, 2, 3}));
    EXPECT_EQ(meta,
              (Texts{{"numOriginalLines", "2"}, {"numOriginalVertices", "4"}, {"surfaceArea", "0.000000"}}));
    EXPECT_TRUE(log.records().empty());
}

TEST(Statistics, OfPointsWithoutPositionsWarnsOnce) {
    LogCapture log;
    const auto points = std::make_shared<kel::tests::ForeignMesh>();
    points->type = kel::mesh::POINTS;
    points->primitives = 1024;
    EXPECT_EQ(statisticsOf(points), (Texts{{"numOriginalPoints", "1024"}, {"surfaceArea", "0.000000"}}));
    EXPECT_EQ(log.messages(), std::vector<std::string>{NO_POSITIONS});
}

TEST(Statistics, OfTrianglesWithoutIndicesHaveNoAreaAndWarn) {
    LogCapture log;
    const auto unindexed = std::make_shared<DefaultMesh>();
    unindexed->addAttribute("position", 3, std::vector<float>{0, 0, 0, 1, 0, 0, 0, 1, 0});
    EXPECT_EQ(statisticsOf(unindexed).at("surfaceArea"), "0.000000");
    EXPECT_EQ(log.messages(), std::vector<std::string>{NO_INDICES});
}

TEST(Statistics, OfShortPositionsCountVerticesButWarnOfTheArea) {
    LogCapture log;
    const auto shorts = std::make_shared<DefaultMesh>();
    shorts->addAttribute("position", 3, std::vector<std::uint16_t>(9));
    shorts->setIndices(std::vector<std::uint16_t>{0, 1, 2});
    const Texts meta = statisticsOf(shorts);
    EXPECT_EQ(meta.at("numOriginalVertices"), "3");
    EXPECT_EQ(meta.at("surfaceArea"), "0.000000");
    EXPECT_EQ(log.messages(), std::vector<std::string>{NO_FLOAT_POSITIONS});
}

TEST(Statistics, DegenerateAndNaNTrianglesAddNothing) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const auto triangles =
        mesh(kel::mesh::TRIANGLES, {0, 0, 0, 2, 0, 0, 0, 2, 0, nan, 0, 0}, {0, 1, 2, 1, 1, 1, 0, 1, 3});
    EXPECT_EQ(computeTriangleSurfaceArea(triangles), 2.0f);
}

TEST(Statistics, SubnormalAndInfiniteAreasAddNothing) {
    const auto triangles =
        mesh(kel::mesh::TRIANGLES, {0, 0, 0, 1e-20f, 0, 0, 0, 1e-20f, 0, 1e30f, 0, 0, 0, 1e30f, 0},
             {0, 1, 2, 0, 3, 4});
    EXPECT_EQ(computeTriangleSurfaceArea(triangles), 0.0f);
}

TEST(Statistics, TwoIndicesAreNoTriangle) {
    EXPECT_EQ(computeTriangleSurfaceArea(mesh(kel::mesh::TRIANGLE_FAN, SQUARE, {0, 1})), 0.0f);
}

TEST(Statistics, ReplaceExistingValuesAndLeaveOtherKeysAlone) {
    const Texts meta = statisticsOf(mesh(kel::mesh::TRIANGLES, SQUARE, {0, 1, 2}),
                                    {{"surfaceArea", "old"}, {"name", "\"bolt\""}});
    EXPECT_EQ(meta.at("surfaceArea"), "0.500000");
    EXPECT_EQ(meta.at("name"), "\"bolt\"");
}

TEST(Statistics, AnIndexPastThePositionsIsAnException) {
    EXPECT_THROW(computeTriangleSurfaceArea(mesh(kel::mesh::TRIANGLES, SQUARE, {0, 1, 4})),
                 std::out_of_range);
}

TEST(Statistics, RecordsCarryTheirPlace) {
    LogCapture log;
    const auto unindexed = std::make_shared<DefaultMesh>(kel::mesh::TRIANGLE_FAN);
    unindexed->addAttribute("position", 3, std::vector<float>(9));
    statisticsOf(unindexed);
    ASSERT_EQ(log.records().size(), 2u);
    for (const auto& record : log.records()) {
        EXPECT_EQ(record.severity, 3);
        EXPECT_EQ(record.file, "kel/src/MeshUtils");
        EXPECT_GT(record.line, 0);
    }
    EXPECT_EQ(log.records()[0].function,
              "void kel::src::detail::addStatisticsMetaData(kel::mesh::MeshPtr, kel::src::MetaDataPtr)");
    EXPECT_EQ(log.records()[1].function,
              "float kel::src::detail::computeTriangleSurfaceArea(const MeshPtr&)");
    EXPECT_NE(log.records()[0].line, log.records()[1].line);
}

TEST(Statistics, AreTheSameThroughTheInterface) {
    const auto ours = mesh(kel::mesh::TRIANGLES, SQUARE, {0, 1, 2, 0, 2, 3});
    const auto foreign = std::make_shared<kel::tests::ForeignMesh>();
    foreign->primitives = 2;
    foreign->indices =
        std::make_shared<kel::tests::ForeignIndices>(4, std::vector<std::size_t>{0, 1, 2, 0, 2, 3});
    foreign->attributes = {{"position", kel::tests::foreignFloats("position", 3, SQUARE)}};
    EXPECT_EQ(statisticsOf(foreign), statisticsOf(ours));
}

TEST(Statistics, AskTheMeshInTheStatedOrder) {
    const auto foreign = std::make_shared<kel::tests::ForeignMesh>();
    foreign->indices =
        std::make_shared<kel::tests::ForeignIndices>(2, std::vector<std::size_t>{0, 1, 0}, foreign->log);
    foreign->attributes = {{"position", kel::tests::foreignFloats("position", 3, SQUARE, foreign->log)}};
    statisticsOf(foreign);
    EXPECT_EQ(*foreign->log,
              (kel::tests::CallLog{
                  "mesh.getNumPrimitives", "mesh.getPrimitiveType", "mesh.getAttributeBuffer(position)",
                  "position.getElementCount", "mesh.getPrimitiveType", "mesh.getAttributeBuffer(position)",
                  "position.getComponentType", "position.getComponentCountPerElement", "mesh.getIndexBuffer",
                  "indices.getElementCount", "mesh.getPrimitiveType", "indices.getIndex(0)",
                  "position.getElement(0)", "indices.getIndex(1)", "position.getElement(1)",
                  "indices.getIndex(2)", "position.getElement(0)"}));
}

TEST(Statistics, AskForeignPositionsOfOurOwnIndicesForNothingMore) {
    const auto log = std::make_shared<kel::tests::CallLog>();
    const auto ours = std::make_shared<DefaultMesh>();
    ours->setIndices(std::vector<std::uint16_t>{0, 1, 2, 0, 2, 3});
    ours->addAttribute(kel::tests::foreignFloats("position", 3, SQUARE, log));
    log->clear(); // the mesh asked for the name
    EXPECT_EQ(computeTriangleSurfaceArea(ours), 1.0f);
    kel::tests::CallLog calls;
    for (const std::string& call : *log) {
        if (call != "position.getAttributeName") calls.push_back(call);
    }
    EXPECT_EQ(calls, (kel::tests::CallLog{"position.getComponentType", "position.getComponentCountPerElement",
                                          "position.getElement(0)", "position.getElement(1)",
                                          "position.getElement(2)", "position.getElement(0)",
                                          "position.getElement(2)", "position.getElement(3)"}));
}

} // namespace
