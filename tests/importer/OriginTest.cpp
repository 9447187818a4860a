// Models far from zero: where their origin is put, and what is lost.

#include "GltfText.h"
#include "HandMadeModel.h"

#include <cmath>

namespace kel::importer::test {

using testing::ElementsAre;

namespace {

ImportOptions withOrigin(Origin::Choice choice, std::array<double, 3> at = {}) {
    ImportOptions options;
    options.origin = {choice, at};
    return options;
}

/// Points in steps of 0.25 along y, as a survey in metres of a map states them.
detail::ModelPart terrain() {
    std::vector<double> positions;
    for (int step = 0; step <= 80; ++step)
        positions.insert(positions.end(), {500123.0 + step, 5400321.0 + 0.25 * step, 10.0});
    return pointsAt(positions);
}

/// A triangle of 1 x 1 about (0, 0).
detail::ModelPart smallTriangle() {
    return trianglesAt({-0.5f, -0.5f, 0, 0.5f, -0.5f, 0, 0.5f, 0.5f, 0}, {0, 1, 2});
}

} // namespace

TEST(Origin, LeavesASceneAtZeroWhereItIs) {
    HandMadeModel model;
    model.addNode(model.addMesh(smallTriangle()));
    const ImportResult result = convert(model, withOrigin(Origin::AUTO));
    EXPECT_THAT(result.report.origin, ElementsAre(0, 0, 0));
    EXPECT_EQ(metadataOf(result, 0, "origin"), "");
    EXPECT_EQ(result.report.positionError, 0.0);
}

TEST(Origin, OfATerrainIsARoundPlaceNearItsMiddle) {
    HandMadeModel model;
    model.addNode(model.addMesh(terrain()));
    const ImportResult result = convert(model, withOrigin(Origin::AUTO));
    // The box is 80 x 20 x 0, its diagonal 82.5, its middle (500163, 5400331, 10): to the next multiple of 1.
    EXPECT_EQ(metadataOf(result, 0, "origin"), "[500163,5400331,10]");
    EXPECT_THAT(result.report.origin, ElementsAre(500163, 5400331, 10));
    // Steps of 0.25 within 100 of the origin are floats.
    EXPECT_EQ(result.report.positionError, 0.0);
    const std::vector<float> positions = numbersOf(*result.input.meshes[0], "position");
    ASSERT_EQ(positions.size(), 3u * 81);
    for (std::size_t step = 0; step <= 80; ++step) {
        EXPECT_EQ(positions[3 * step], -40.0f + static_cast<float>(step));
        EXPECT_EQ(positions[3 * step + 1], -10.0f + 0.25f * static_cast<float>(step));
        EXPECT_EQ(positions[3 * step + 2], 0.0f);
    }
}

TEST(Origin, ThatIsKeptCostsHalfTheStepOfFloatsThere) {
    HandMadeModel model;
    model.addNode(model.addMesh(terrain()));
    const ImportResult result = convert(model, withOrigin(Origin::KEEP));
    // Between 2^22 and 2^23 floats are 0.5 apart.
    EXPECT_EQ(result.report.positionError, 0.25);
    EXPECT_EQ(metadataOf(result, 0, "origin"), "");
    EXPECT_EQ(numbersOf(*result.input.meshes[0], "position")[1], 5400321.0f);
}

TEST(Origin, IsChosenByDefault) {
    HandMadeModel model;
    model.addNode(model.addMesh(terrain()));
    EXPECT_THAT(convert(model).report.origin, ElementsAre(500163, 5400331, 10));
}

TEST(Origin, OfFloatsThatStayWhereTheyAreIsKept) {
    HandMadeModel model;
    model.addNode(model.addMesh(trianglesAt({5400321.5f, 0, 0, 5400322, 0, 0, 5400321.5f, 1, 0}, {0, 1, 2})));
    const ImportResult result = convert(model);
    EXPECT_THAT(result.report.origin, ElementsAre(0, 0, 0));
    EXPECT_EQ(result.report.positionError, 0.0);
}

TEST(Origin, IsTakenAsGiven) {
    HandMadeModel model;
    model.addNode(model.addMesh(terrain()));
    const ImportResult result = convert(model, withOrigin(Origin::GIVEN, {500000.5, 5400000, -1}));
    EXPECT_EQ(metadataOf(result, 0, "origin"), "[500000.5,5400000,-1]");
    EXPECT_EQ(numbersOf(*result.input.meshes[0], "position")[0], 122.5f);
    EXPECT_EQ(numbersOf(*result.input.meshes[0], "position")[2], 11.0f);
}

TEST(Origin, IsOneForAllMeshes) {
    HandMadeModel model;
    model.addNode(model.addMesh(smallTriangle()), {1e6, 0, 0});
    model.addNode(1, {1e6, 8, 0});
    model.addMesh(smallTriangle());
    const ImportResult result = convert(model, withOrigin(Origin::AUTO));
    EXPECT_EQ(metadataOf(result, 0, "origin"), metadataOf(result, 1, "origin"));
    // 1 x 9: the diagonal is 9.06, and 1 is the smallest step for models of this size.
    EXPECT_EQ(metadataOf(result, 0, "origin"), "[1000000,4,0]");
}

TEST(Origin, OfSmallCoordinatesBelowALargeTranslationKeepsThemExact) {
    HandMadeModel model;
    model.addNode(glm::dvec3(500000, 0, 0));
    model.addNode(model.addMesh(smallTriangle()), {0, 5400000, 0}).parent = 0;
    const ImportResult result = convert(model, withOrigin(Origin::AUTO));
    EXPECT_EQ(metadataOf(result, 0, "origin"), "[500000,5400000,0]");
    EXPECT_THAT(numbersOf(*result.input.meshes[0], "position"),
                ElementsAre(-0.5f, -0.5f, 0, 0.5f, -0.5f, 0, 0.5f, 0.5f, 0));
    EXPECT_EQ(result.report.positionError, 0.0);
}

TEST(Origin, OfTranslationsThatCancelIsZero) {
    HandMadeModel model;
    model.addNode(glm::dvec3(1e9, -1e9, 0));
    model.addNode(model.addMesh(smallTriangle()), {-1e9, 1e9, 0}).parent = 0;
    const ImportResult result = convert(model, withOrigin(Origin::AUTO));
    EXPECT_THAT(result.report.origin, ElementsAre(0, 0, 0));
    EXPECT_EQ(numbersOf(*result.input.meshes[0], "position")[0], -0.5f);
    EXPECT_EQ(result.report.positionError, 0.0);
}

TEST(Origin, OfASmallModelIsABinaryFraction) {
    HandMadeModel model;
    model.addNode(model.addMesh(trianglesAt({0, 0, 0, 0.001f, 0, 0, 0, 0.001f, 0}, {0, 1, 2})), {0.3, 0, 0});
    // The diagonal is 0.00141, between 2^-10 and 2^-9: steps of 2^-12. 1231 and 2 of them are nearest to the middle,
    // (0.3005, 0.0005).
    EXPECT_EQ(metadataOf(convert(model, withOrigin(Origin::AUTO)), 0, "origin"),
              "[0.300537109375,0.00048828125,0]");
}

TEST(Origin, MattersFromAMillionthOfTheDiagonalOn) {
    // Points 3 and 4 apart have a diagonal of 5: 5e-6 may be lost. Floats up to 64 lie within 2^-19 = 1.9e-6, those
    // up to 128 within 2^-18 = 3.8e-6, those up to 256 within 2^-17 = 7.6e-6 of any number.
    const auto originAt = [](double x) {
        HandMadeModel model;
        model.addNode(model.addMesh(pointsAt({x - 3, 0, 0, x, 4, 0})));
        return convert(model, withOrigin(Origin::AUTO)).report.origin[0];
    };
    EXPECT_EQ(originAt(63.0), 0.0);
    EXPECT_EQ(originAt(127.0), 0.0);
    EXPECT_EQ(originAt(129.0), 128.0); // the middle is 127.5
}

TEST(Origin, LetsAModelFitThatIsTooFarForFloats) {
    HandMadeModel model;
    const double far = std::ldexp(1.0, 140);
    const double step = std::ldexp(1.0, 100);
    model.addNode(model.addMesh(pointsAt({far, 0, 0, far + step, 0, 0})));
    EXPECT_EQ(errorOf([&] { convert(model, withOrigin(Origin::KEEP)); }).code(), ImportCode::EXTENT_OVERFLOW);
    HandMadeModel again;
    again.addNode(again.addMesh(pointsAt({far, 0, 0, far + step, 0, 0})));
    const ImportResult result = convert(again, withOrigin(Origin::AUTO));
    const std::vector<float> positions = numbersOf(*result.input.meshes[0], "position");
    EXPECT_EQ(static_cast<double>(positions[3]) - static_cast<double>(positions[0]), step);
}

class OriginOfAFile : public ImporterTest {};

TEST_F(OriginOfAFile, IsChosenByTheVerticesInUse) {
    GltfText gltf;
    const auto position = gltf.addVec3({-500000, -5400000, 0, 0, 0, 0, 10, 0, 0, 0, 10, 0});
    const auto index = gltf.addIndices({1, 2, 3});
    gltf.addMesh("\"POSITION\":" + std::to_string(position), ",\"indices\":" + std::to_string(index));
    gltf.nodes.push_back(R"({"mesh":0,"translation":[500123,5400321,0]})");
    const ImportResult result = import("far.gltf", gltf.json());
    // 10 x 10 without the first vertex: the diagonal is 14.1, the middle (500128, 5400326).
    EXPECT_EQ(metadataOf(result, 0, "origin"), "[500128,5400326,0]");
    EXPECT_THAT(numbersOf(*result.input.meshes[0], "position"), ElementsAre(-5, -5, 0, 5, -5, 0, -5, 5, 0));
}

TEST(PositionError, IsTheLargestDistanceOverAllMeshes) {
    HandMadeModel model;
    // From 2^24 on floats are 2 apart: each of these is off by 1 on each axis.
    model.addNode(model.addMesh(pointsAt({16777217, 16777217, 0, 0, 0, 0})));
    model.addNode(model.addMesh(pointsAt({0, 0, 16777219})));
    EXPECT_DOUBLE_EQ(convert(model, withOrigin(Origin::KEEP)).report.positionError, std::sqrt(2.0));
}

TEST(PositionError, IsMeasuredBehindTheTransform) {
    HandMadeModel model;
    model.addNode(model.addMesh(smallTriangle()), {8388608, 0, 0});
    // From 2^23 on floats are 1 apart, below it 0.5: 8388608.5 is the only number between two floats.
    EXPECT_EQ(convert(model, withOrigin(Origin::KEEP)).report.positionError, 0.5);
}

TEST(RoundedNormals, AreNoneWhereTheyStayAsTheyAre) {
    HandMadeModel model;
    model.addNode(model.addMesh(facingZ(smallTriangle())), {5, 0, 0});
    EXPECT_EQ(convert(model).report.roundedNormals, 0u);
}

TEST(RoundedNormals, AreThoseThatATransformTurnsBetweenFloats) {
    HandMadeModel model;
    // (0, 0, 1) becomes (0, 0.6, 0.8), which no floats are; a quarter turn makes it (0, -1, 0).
    glm::dmat4 turn(1.0);
    turn[1] = {0.0, 0.8, -0.6, 0.0};
    turn[2] = {0.0, 0.6, 0.8, 0.0};
    glm::dmat4 quarter(1.0);
    quarter[1] = {0.0, 0.0, 1.0, 0.0};
    quarter[2] = {0.0, -1.0, 0.0, 0.0};
    model.addNode(model.addMesh(facingZ(smallTriangle()))).transform = turn;
    model.addNode(model.addMesh(facingZ(smallTriangle()))).transform = quarter;
    EXPECT_EQ(convert(model).report.roundedNormals, 3u);
}

TEST(RoundedNormals, AreThoseThatAreMadeUnitLength) {
    HandMadeModel model;
    detail::ModelPart part = facingZ(smallTriangle());
    part.attributes[1].values[2] = 2.0f;
    model.addNode(model.addMesh(std::move(part)));
    EXPECT_EQ(convert(model).report.roundedNormals, 1u);
}

TEST(RoundedNormals, AreNotThoseThatTheSourceLacks) {
    HandMadeModel model;
    model.addNode(model.addMesh(trianglesAt({0, 0, 0, 1, 0, 0.3f, 0, 1, 0.7f}, {0, 1, 2})));
    EXPECT_EQ(convert(model).report.roundedNormals, 0u);
}

} // namespace kel::importer::test
