#include <kel/prepare/ChooseMode.h>

#include <support/Meshes.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

namespace {

using namespace kel::prepare;
using testing::HasSubstr;

constexpr float NaN = std::numeric_limits<float>::quiet_NaN();

fixture::DefaultMeshPtr withPositions(std::vector<float> positions) {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute("position", 3, std::move(positions));
    return mesh;
}

fixture::DefaultMeshPtr withNormals(std::vector<float> normals) {
    auto mesh = withPositions(std::vector<float>(normals.size()));
    mesh->addAttribute("normal", 3, std::move(normals));
    return mesh;
}

TEST(ChooseMode, TakesPositionNormalWhereNothingIsLost) {
    const auto choice = chooseMode(fixture::inputOf({fixture::sphere(12, 8)}), {1e-4, 1.0});
    EXPECT_EQ(choice.mode, Target::POSITION_NORMAL_COMPRESSED);
    EXPECT_EQ(choice.whyNotSmaller, "");
}

TEST(ChooseMode, NeverDropsAnAttribute) {
    const auto choice = chooseMode(fixture::inputOf({fixture::unitSquare()}), {1.0, 90.0});
    EXPECT_EQ(choice.mode, Target::POSITION_COMPRESSED);
    EXPECT_EQ(choice.whyNotSmaller, "Mesh 0 (\"mesh0\") has \"texcoord\", which position-normal leaves out.");
}

TEST(ChooseMode, KeepsOtherAttributesOfMeshesWithoutNormals) {
    auto coloured = fixture::tetrahedron();
    coloured->addAttribute("color", 3, std::vector<float>(12, 0.5f));
    const auto choice = chooseMode(fixture::inputOf({fixture::grid(2, 2), coloured}), {1.0, 1.0});
    EXPECT_EQ(choice.mode, Target::POSITION_NORMAL_COMPRESSED); // such a mesh is coded as by position
}

TEST(ChooseMode, TakesPositionWhenNoMeshHasNormals) {
    const auto choice = chooseMode(fixture::inputOf({fixture::tetrahedron()}), {1.0, 1.0});
    EXPECT_EQ(choice.mode, Target::POSITION_COMPRESSED);
    EXPECT_EQ(choice.whyNotSmaller, "");
}

TEST(ChooseMode, TakesPositionWhenNormalsWouldBeOffTooMuch) {
    const auto choice = chooseMode(fixture::inputOf({fixture::sphere(12, 8)}), {1e-4, 0.01});
    EXPECT_EQ(choice.mode, Target::POSITION_COMPRESSED);
    EXPECT_EQ(choice.largest.normalDegrees, 0.0);
    EXPECT_THAT(choice.whyNotSmaller, HasSubstr("degrees, and 0.01 is accepted"));
}

TEST(ChooseMode, TakesUncompressedWhenPositionsWouldBeOffTooMuch) {
    const auto choice = chooseMode(fixture::inputOf({fixture::sphere(12, 8)}), {1e-9, 1.0});
    EXPECT_EQ(choice.mode, Target::UNCOMPRESSED);
    EXPECT_EQ(choice.largest.position, 0.0);
    EXPECT_THAT(choice.whyNotSmaller, HasSubstr("and 1e-09 is accepted"));
}

TEST(ChooseMode, AcceptsNoErrorWhereThereIsNone) {
    const auto choice = chooseMode(fixture::inputOf({fixture::tetrahedron()}), {0.0, 0.0}); // only corners
    EXPECT_EQ(choice.mode, Target::POSITION_COMPRESSED);
    EXPECT_EQ(choice.largest.position, 0.0);
}

TEST(ChooseMode, ReportsTheErrorReached) {
    // A diagonal from 0 to 1 whose middle falls between the codes 32767 and 32768 on each axis.
    const auto choice =
        chooseMode(fixture::inputOf({withPositions({0, 0, 0, 1, 1, 1, 0.5f, 0.5f, 0.5f})}), {1.0, 1.0});
    EXPECT_NEAR(choice.largest.position, std::sqrt(3.0) * (0.5 - 32767.0 / 65535.0), 1e-7);
}

TEST(ChooseMode, ReportsTheErrorOfEachMesh) {
    const auto choice = chooseMode(
        fixture::inputOf({fixture::tetrahedron(), withPositions({0, 0, 0, 65535, 0, 0, 0.75f, 0, 0})}),
        {1.0, 1.0});
    ASSERT_EQ(choice.meshes.size(), 2u);
    EXPECT_EQ(choice.meshes[0].position, 0.0);
    EXPECT_NEAR(choice.meshes[1].position, 0.75, 1e-3); // codes are the integers, cut
    EXPECT_EQ(choice.largest.position, choice.meshes[1].position);
}

TEST(ChooseMode, RefusesNonFinitePositionsWhateverIsAccepted) {
    const auto choice = chooseMode(fixture::inputOf({withPositions({0, 0, 0, 1, NaN, 1})}),
                                   {std::numeric_limits<double>::infinity(), 1.0});
    EXPECT_EQ(choice.mode, Target::UNCOMPRESSED);
    EXPECT_THAT(choice.whyNotSmaller, HasSubstr("not finite"));
}

TEST(ChooseMode, RefusesAnExtentThatOverflows) {
    const auto choice =
        chooseMode(fixture::inputOf({withPositions({-3e38f, 0, 0, 3e38f, 1, 1})}), {1e39, 1.0});
    EXPECT_EQ(choice.mode, Target::UNCOMPRESSED);
}

TEST(ChooseMode, RefusesPositionsThatAreNotThreeFloats) {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute("position", 2, std::vector<float>{0, 0, 1, 1});
    const auto choice = chooseMode(fixture::inputOf({mesh}), {1.0, 1.0});
    EXPECT_EQ(choice.mode, Target::UNCOMPRESSED);
    EXPECT_THAT(choice.whyNotSmaller, HasSubstr("no three-float positions"));
}

TEST(ChooseMode, DoesNotPackNormalsOfAnotherCount) {
    auto mesh = fixture::tetrahedron();
    mesh->addAttribute("normal", 3, std::vector<float>{0, 0, 1});
    const auto choice = chooseMode(fixture::inputOf({mesh}), {1.0, 1.0});
    EXPECT_EQ(choice.mode, Target::POSITION_COMPRESSED);
    EXPECT_THAT(choice.whyNotSmaller, HasSubstr("has 1 normals for 4 positions"));
}

TEST(ChooseMode, ToleratesEmptyInputsAndMeshes) {
    kel::src::SrcWriterInput input;
    EXPECT_EQ(chooseMode(input, {}).mode, Target::POSITION_COMPRESSED);
    input.meshes = {nullptr, std::make_shared<kel::mesh::DefaultMesh>()};
    EXPECT_EQ(chooseMode(input, {}).mode, Target::UNCOMPRESSED);
}

TEST(MeasureErrors, KnowsThatAxesAreExact) {
    const auto errors = measureErrors(fixture::inputOf({withNormals({1, 0, 0, 0, -1, 0, 0, 0, 1})}),
                                      Target::POSITION_NORMAL_COMPRESSED);
    EXPECT_EQ(errors.at(0).normalDegrees, 0.0);
}

TEST(MeasureErrors, MeasuresNormalsByDirection) {
    // The nearest code to (0, 5, 5) has u = 127 and v = 190 or 191, so (0, 63, 64) / 127: the angle between
    // atan(64 / 63) and 45 degrees.
    const auto errors =
        measureErrors(fixture::inputOf({withNormals({0, 5, 5})}), Target::POSITION_NORMAL_COMPRESSED);
    EXPECT_NEAR(errors.at(0).normalDegrees, std::atan(64.0 / 63.0) * 57.29577951308232 - 45.0, 1e-4);
}

TEST(MeasureErrors, LeavesNormalsWithoutDirectionOut) {
    const auto errors = measureErrors(fixture::inputOf({withNormals({0, 0, 0, NaN, 1, 0})}),
                                      Target::POSITION_NORMAL_COMPRESSED);
    EXPECT_EQ(errors.at(0).normalDegrees, 0.0);
}

TEST(MeasureErrors, FindsNoneInTheUncompressedMode) {
    const auto errors = measureErrors(fixture::inputOf({fixture::sphere(5, 5)}), Target::UNCOMPRESSED);
    EXPECT_EQ(errors.at(0).position, 0.0);
}

TEST(MeasureErrors, IsForModesOnly) {
    EXPECT_THROW(measureErrors({}, Target::PRESET_CMP1), std::invalid_argument);
}

RC_GTEST_PROP(MeasureErrorsProperty, StaysUnderOneStepPerAxis, ()) {
    std::vector<float> positions(3 * *rc::gen::inRange<std::size_t>(2, 30));
    float low[3] = {1e9f, 1e9f, 1e9f}, high[3] = {-1e9f, -1e9f, -1e9f};
    for (std::size_t i = 0; i < positions.size(); ++i) {
        positions[i] = static_cast<float>(*rc::gen::inRange(-1000000, 1000000)) / 1024.0f;
        low[i % 3] = std::min(low[i % 3], positions[i]);
        high[i % 3] = std::max(high[i % 3], positions[i]);
    }
    double squares = 0.0;
    for (int axis = 0; axis < 3; ++axis) {
        // One step, the rounding of the box's floats, and the floor that flat boxes get.
        const double step = static_cast<double>(high[axis] - low[axis]) / 65535.0 + 1e-3;
        squares += step * step;
    }
    const auto errors =
        measureErrors(fixture::inputOf({withPositions(positions)}), Target::POSITION_COMPRESSED);
    RC_ASSERT(errors.at(0).position <= std::sqrt(squares));
}

} // namespace
