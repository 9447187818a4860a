#include <kel/prepare/ChooseMode.h>
#include <kel/prepare/RoundToCodes.h>
#include <kel/prepare/WriteChecked.h>
#include <kel/src/SrcReader.h>

#include <support/Meshes.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>

namespace {

using namespace kel::prepare;
using fixture::floatsOf;
using testing::ElementsAre;
using Floats = std::vector<float>;

constexpr float NaN = std::numeric_limits<float>::quiet_NaN();

fixture::DefaultMeshPtr withAttribute(const std::string& name, std::size_t components, Floats values) {
    auto mesh = fixture::tetrahedron();
    mesh->addAttribute(name, components, std::move(values));
    return mesh;
}

/// What a reader decodes after rounding and writing.
Floats writtenAndRead(const fixture::DefaultMeshPtr& mesh, Target target,
                      const std::string& name = "position") {
    std::stringstream file;
    write(roundToCodes(fixture::inputOf({mesh}), target), target, file);
    const kel::src::SrcFile read = kel::src::readSrc(file);
    return decodeMesh(read, read.meshes()[0]).find(name)->values;
}

Floats moved(const fixture::DefaultMeshPtr& mesh, Target target, const std::string& name = "position") {
    return floatsOf(*roundToCodes(fixture::inputOf({mesh}), target).meshes.at(0), name);
}

/// The x coordinates, on a box from 0, 0, 0 to 65535, 65535, 65535, whose codes are the whole numbers.
fixture::DefaultMeshPtr alongX(const Floats& values) {
    Floats positions{0, 0, 0, 65535, 65535, 65535};
    for (const float value : values)
        positions.insert(positions.end(), {value, 0, 0});
    return withAttribute("position", 3, std::move(positions));
}

TEST(RoundToCodes, GivesEveryValueTheNearestCode) {
    Floats values, nearest;
    for (int code = 0; code < 65535; ++code) {
        const auto below = static_cast<float>(code);
        values.insert(values.end(), {below + 0.25f, below + 0.75f});
        nearest.insert(nearest.end(), {below, below + 1.0f});
    }
    const Floats decoded = writtenAndRead(alongX(values), Target::POSITION_COMPRESSED);
    for (std::size_t i = 0; i < nearest.size(); ++i)
        ASSERT_EQ(decoded[6 + 3 * i], nearest[i]) << values[i];
}

TEST(RoundToCodes, MovesIntoTheMiddleOfTheBin) {
    const Floats found = moved(alongX({2.25f, 2.75f, 3.0f}), Target::POSITION_COMPRESSED);
    EXPECT_EQ(found[6], 2.5f);
    EXPECT_EQ(found[9], 3.5f);
    EXPECT_EQ(found[12], 3.5f);
}

TEST(RoundToCodes, KeepsWhatDefinesTheBox) {
    const Floats found = moved(alongX({0.25f}), Target::POSITION_NORMAL_COMPRESSED);
    EXPECT_EQ(Floats(found.begin(), found.begin() + 6), (Floats{0, 0, 0, 65535, 65535, 65535}));
    EXPECT_EQ(found[6], 0.5f);
}

TEST(RoundToCodes, TakesTheLastCodeFromTheEndOfTheBox) {
    EXPECT_EQ(moved(alongX({65534.75f}), Target::POSITION_COMPRESSED)[6], 65535.0f);
    EXPECT_EQ(moved(alongX({65534.25f}), Target::POSITION_COMPRESSED)[6], 65534.5f);
}

TEST(RoundToCodes, VerticesThatNoPrimitiveUsesCountForTheBox) {
    auto mesh =
        withAttribute("position", 3, {1, 1, 1, 2.25f, 1, 1, 1, 2.75f, 1, 0, 0, 0, 65535, 65535, 65535});
    mesh->setIndexBuffer(
        std::make_shared<kel::mesh::DefaultIndexBuffer<std::uint16_t>>(std::vector<std::uint16_t>{0, 1, 2}));
    const Floats decoded = writtenAndRead(mesh, Target::POSITION_COMPRESSED);
    EXPECT_EQ(decoded[3], 2.0f);
    EXPECT_EQ(decoded[7], 3.0f);
}

TEST(RoundToCodes, LeavesNanAlone) {
    const Floats found =
        moved(withAttribute("position", 3, {NaN, NaN, NaN, 0, 0, 0, 65535, 65535, 65535, 1.25f, 1, 1}),
              Target::POSITION_COMPRESSED);
    EXPECT_TRUE(std::isnan(found[0]) && std::isnan(found[1]) && std::isnan(found[2]));
    EXPECT_EQ(found[9], 1.5f);
}

TEST(RoundToCodes, LeavesAFlatAxisAlone) {
    const Floats found = moved(withAttribute("position", 3, {0, 7, 0, 65535, 7, 65535, 3.25f, 7, 3.25f}),
                               Target::POSITION_COMPRESSED);
    EXPECT_THAT(Floats(found.begin() + 6, found.end()), ElementsAre(3.5f, 7.0f, 3.5f));
}

TEST(RoundToCodes, HandsOnWhatIsStoredAsFloats) {
    const auto input = fixture::inputOf({fixture::sphere(12, 8)});
    for (const Target target : {Target::UNCOMPRESSED, Target::PRESET_DEFAULT})
        EXPECT_EQ(roundToCodes(input, target).meshes, input.meshes);
}

TEST(RoundToCodes, HandsOnEmptyMeshesAndPositionsOfOtherKinds) {
    auto flat = withAttribute("position", 2, {0, 0, 1, 1});
    auto input = fixture::inputOf({flat, withAttribute("position", 3, {})});
    input.meshes.push_back(nullptr);
    const auto rounded = roundToCodes(input, Target::POSITION_COMPRESSED);
    EXPECT_EQ(rounded.meshes, input.meshes);
}

TEST(RoundToCodes, CountsWhatItMoved) {
    RoundReport report;
    roundToCodes(fixture::inputOf({fixture::unitSquare(), fixture::tetrahedron()}), Target::PRESET_CMP1,
                 &report);
    EXPECT_EQ(report.meshes, 2u);
    EXPECT_EQ(report.attributes, 4u); // positions, normals and texture coordinates; positions
}

TEST(RoundToCodes, RoundsWhatAPresetQuantizes) {
    // Codes of 8 bits: 127 / 255 - 0.5 is -0.00196, and 128 / 255 - 0.5 is 0.00196.
    const Floats colors = writtenAndRead(
        withAttribute("color", 3, {-0.0015f, -0.0001f, 0.0015f, -0.5f, 0.5f, 0.4999f, 0, 0, 0, 0, 0, 0}),
        Target::PRESET_CMP1, "color");
    const auto code = [](double number) { return static_cast<float>(number / 255.0 - 0.5); };
    EXPECT_FLOAT_EQ(colors[0], code(127));
    EXPECT_FLOAT_EQ(colors[1], code(127));
    EXPECT_FLOAT_EQ(colors[2], code(128));
    EXPECT_FLOAT_EQ(colors[3], code(0));
    EXPECT_FLOAT_EQ(colors[4], code(255));
    EXPECT_FLOAT_EQ(colors[5], code(255));
}

TEST(RoundToCodes, GivesEveryValueOfAPresetTheNearestCode) {
    Floats positions;
    for (int i = 0; i < 3 * 40000; ++i)
        positions.push_back(static_cast<float>(i / 120000.0 - 0.5));
    const Floats decoded = writtenAndRead(withAttribute("position", 3, positions), Target::PRESET_CMP1);
    const double half = 0.5 / 65535.0;
    for (std::size_t i = 0; i < positions.size(); ++i)
        ASSERT_NEAR(decoded[i], positions[i], half * 1.005) << positions[i];
}

TEST(RoundToCodes, IsMeasured) {
    const auto mesh = fixture::sphere(20, 10);
    const Floats decoded = writtenAndRead(mesh, Target::POSITION_COMPRESSED),
                 positions = floatsOf(*mesh, "position");
    double largest = 0.0;
    for (std::size_t i = 0; i < positions.size(); i += 3) {
        double square = 0.0;
        for (std::size_t c = i; c < i + 3; ++c)
            square += std::pow(static_cast<double>(decoded[c]) - static_cast<double>(positions[c]), 2);
        largest = std::max(largest, std::sqrt(square));
    }
    const auto input = fixture::inputOf({mesh});
    EXPECT_EQ(measureErrors(input, Target::POSITION_COMPRESSED, Codes::ROUNDED).at(0).position, largest);
    EXPECT_EQ(chooseMode(input, {1.0, 1.0}, Codes::ROUNDED).largest.position, largest);
    EXPECT_LT(largest, 0.6 * measureErrors(input, Target::POSITION_COMPRESSED).at(0).position);
}

/// A number of any size that its square, and a sum of three such, have room for.
rc::Gen<float> anySize() {
    return rc::gen::map(rc::gen::pair(rc::gen::inRange(-1000, 1001), rc::gen::inRange(-160, 56)),
                        [](const std::pair<int, int>& parts) {
                            return std::ldexp(static_cast<float>(parts.first) / 1000.0f, parts.second);
                        });
}

float spacingAt(float value) {
    value = std::fabs(value);
    return std::nextafterf(value, std::numeric_limits<float>::infinity()) - value;
}

RC_GTEST_PROP(RoundToCodesProperty, IsWithinHalfAStepInAnyBox, ()) {
    Floats low(3), side(3);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        low[axis] = *anySize();
        side[axis] = std::fabs(*anySize());
    }
    const auto parts = *rc::gen::container<std::vector<int>>(48, rc::gen::inRange(0, 100001));
    Floats positions;
    for (std::size_t i = 0; i < parts.size(); ++i)
        positions.push_back(low[i % 3] + side[i % 3] * (static_cast<float>(parts[i]) / 100000.0f));
    const auto mesh = withAttribute("position", 3, positions);
    const Floats decoded = writtenAndRead(mesh, Target::POSITION_COMPRESSED);

    // As the writer finds the box: no side is less than a hundred-millionth of the diagonal, or than 1e-16.
    Floats first(3, std::numeric_limits<float>::max()), last(3, std::numeric_limits<float>::lowest());
    double diagonal = 0.0;
    for (std::size_t i = 0; i < positions.size(); ++i) {
        first[i % 3] = std::min(first[i % 3], positions[i]);
        last[i % 3] = std::max(last[i % 3], positions[i]);
    }
    for (std::size_t axis = 0; axis < 3; ++axis)
        diagonal = std::hypot(diagonal, static_cast<double>(last[axis]) - static_cast<double>(first[axis]));
    for (std::size_t i = 0; i < positions.size(); ++i) {
        const float from = first[i % 3], to = last[i % 3];
        const double real = static_cast<double>(to) - static_cast<double>(from);
        const double widened = std::max(diagonal * 1e-8, 1e-16);
        const double spacing = spacingAt(std::max(std::fabs(from), std::fabs(to)));
        const double off = std::fabs(static_cast<double>(decoded[i]) - static_cast<double>(positions[i]));
        if (real <= widened * 1.01) {
            RC_ASSERT(off <= widened + 2.0 * spacing);
        } else {
            RC_ASSERT(off <= 0.5 * real / 65535.0 * (1.0 + 1e-5) + 4.0 * spacing);
        }
    }
}

RC_GTEST_PROP(RoundToCodesProperty, LeavesTheBoxWhereItIs, ()) {
    const auto parts = *rc::gen::container<std::vector<int>>(24, rc::gen::inRange(-100000, 100001));
    Floats positions;
    for (const int part : parts)
        positions.push_back(static_cast<float>(part) / 777.0f + 20.0f);
    const Floats found = moved(withAttribute("position", 3, positions), Target::POSITION_COMPRESSED);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        float low = positions[axis], high = positions[axis], foundLow = found[axis], foundHigh = found[axis];
        for (std::size_t i = axis; i < positions.size(); i += 3) {
            low = std::min(low, positions[i]);
            high = std::max(high, positions[i]);
            foundLow = std::min(foundLow, found[i]);
            foundHigh = std::max(foundHigh, found[i]);
        }
        RC_ASSERT(foundLow == low);
        RC_ASSERT(foundHigh >= high);
        RC_ASSERT(foundHigh <= high + 4.0f * spacingAt(std::max(std::fabs(low), std::fabs(high))));
    }
}

} // namespace
