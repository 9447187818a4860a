#include <kel/prepare/FitToRange.h>
#include <kel/prepare/RoundToCodes.h>
#include <kel/prepare/Seamless.h>
#include <kel/prepare/SplitForShortIndices.h>
#include <kel/prepare/WriteChecked.h>
#include <kel/src/SrcReader.h>
#include <kel/src/SrcValidator.h>

#include <support/Meshes.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>

namespace {

using namespace kel::prepare;
using fixture::DefaultMeshPtr;
using fixture::floatsOf;
using kel::src::SrcWriterInput;
using testing::ElementsAre;
using testing::HasSubstr;
using Floats = std::vector<float>;
using Point = std::array<double, 3>;

constexpr std::array<Target, 3> TARGETS_OF_CODES{Target::POSITION_COMPRESSED,
                                                 Target::POSITION_NORMAL_COMPRESSED, Target::PRESET_CMP1};

DefaultMeshPtr meshOf(const Floats& positions, const std::vector<std::uint16_t>& indices) {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute("position", 3, positions);
    Floats normals;
    for (std::size_t i = 0; i < positions.size(); i += 3)
        normals.insert(normals.end(), {0.0f, 0.0f, 1.0f});
    mesh->addAttribute("normal", 3, normals);
    mesh->setIndices(indices);
    return mesh;
}

/// A rectangle with vertices wherever a coordinate of the one list meets one of the other, in the plane where
/// the third axis has the value `at`.
DefaultMeshPtr panel(std::size_t axisA, const Floats& a, std::size_t axisB, const Floats& b, float at) {
    Floats positions;
    std::vector<std::uint16_t> indices;
    const std::size_t axisC = 3 - axisA - axisB;
    for (std::size_t j = 0; j < b.size(); ++j) {
        for (std::size_t i = 0; i < a.size(); ++i) {
            std::array<float, 3> place{};
            place[axisA] = a[i];
            place[axisB] = b[j];
            place[axisC] = at;
            positions.insert(positions.end(), place.begin(), place.end());
            if (i == 0 || j == 0) continue;
            const auto last = static_cast<std::uint16_t>(j * a.size() + i);
            const auto below = static_cast<std::uint16_t>(last - a.size());
            for (const int corner : {below - 1, below + 0, last + 0, below - 1, last + 0, last - 1})
                indices.push_back(static_cast<std::uint16_t>(corner));
        }
    }
    return meshOf(positions, indices);
}

/// A room of 12.3 by 8.1 by 2.7 with a door, of meshes between 20 m and 3 mm, all of which meet others in
/// edges or corners.
std::vector<DefaultMeshPtr> building() {
    const Floats x{0.0f, 3.1f, 3.9f, 7.77f, 12.3f}, y{0.0f, 2.2f, 8.1f}, z{0.0f, 2.05f, 2.7f};
    const Floats doorX{3.1f, 3.9f}, doorZ{0.0f, 2.05f}, lintelZ{2.05f, 2.7f};
    return {
        panel(0, x, 1, y, 0.0f),            // floor
        panel(0, x, 1, y, 2.7f),            // ceiling
        panel(1, y, 2, z, 0.0f),            // walls
        panel(1, y, 2, z, 12.3f),           //
        panel(0, x, 2, z, 8.1f),            //
        panel(0, {0.0f, 3.1f}, 2, z, 0.0f), // beside the door
        panel(0, {3.9f, 7.77f, 12.3f}, 2, z, 0.0f),
        panel(0, doorX, 2, lintelZ, 0.0f),
        panel(0, doorX, 2, doorZ, 0.0f),                                                          // the door
        meshOf({3.1f, 0.0f, 2.05f, 3.103f, 0.0f, 2.05f, 3.1f, 0.003f, 2.05f}, {0, 1, 2}),         // its hinge
        meshOf({0, 0, 0, -20.25f, -9.3f, -0.4f, 12.3f, 0, 0, 12.3f, 8.1f, 0}, {0, 1, 2, 1, 2, 3}) // outside
    };
}

SrcWriterInput inputOf(const std::vector<DefaultMeshPtr>& meshes) {
    return fixture::inputOf({meshes.begin(), meshes.end()});
}

std::string written(const SrcWriterInput& input, Target target) {
    std::ostringstream out;
    write(input, target, out);
    return out.str();
}

/// What the conversion does without seamless.
SrcWriterInput apart(const SrcWriterInput& input, Target target) {
    return roundToCodes(isContainerTarget(target) ? fitToRange(input) : input, target);
}

kel::src::SrcFile fileOf(const SrcWriterInput& input, Target target) {
    std::istringstream in(written(input, target));
    return kel::src::readSrc(in);
}

/// Positions as documented: decoded in doubles, then the fit undone.
std::vector<Point> decodedInDoubles(const kel::src::SrcFile& file, const kel::src::SrcMesh& mesh) {
    const auto* view = file.findAttribute(mesh, "position");
    if (!view) view = file.findAttribute(mesh, "pos3us_nor2ub_oct");
    std::vector<double> values(view->count * view->components);
    decodeAttribute(file, *view, values.data());
    std::vector<Point> positions;
    Point scale{1, 1, 1}, offset{};
    for (const auto& fit : fitOf(mesh)) {
        if (fit.attribute != "position") continue;
        std::copy_n(fit.scale.begin(), 3, scale.begin());
        std::copy_n(fit.offset.begin(), 3, offset.begin());
    }
    for (std::size_t i = 0; i < values.size(); i += view->components) {
        Point& at = positions.emplace_back();
        for (std::size_t c = 0; c < 3; ++c)
            at[c] = values[i + c] * scale[c] + offset[c];
    }
    return positions;
}

/// How many positions of the model are decoded to different places in different meshes, as floats and as
/// doubles.
std::size_t cracks(const std::vector<DefaultMeshPtr>& model, const kel::src::SrcFile& file) {
    std::map<std::array<float, 3>, std::set<std::array<float, 3>>> places;
    std::map<std::array<float, 3>, std::set<Point>> exactPlaces;
    for (std::size_t m = 0; m < model.size(); ++m) {
        const Floats before = floatsOf(*model[m], "position");
        const auto& mesh = file.meshes()[m];
        const auto decoded = decodeMesh(file, mesh).find("position")->values;
        const auto exact = decodedInDoubles(file, mesh);
        for (std::size_t v = 0; v < before.size() / 3; ++v) {
            const std::array<float, 3> position{before[3 * v], before[3 * v + 1], before[3 * v + 2]};
            places[position].insert({decoded[3 * v], decoded[3 * v + 1], decoded[3 * v + 2]});
            exactPlaces[position].insert(exact[v]);
        }
    }
    std::size_t count = 0;
    for (const auto& [position, found] : places)
        count += found.size() > 1 || exactPlaces[position].size() > 1;
    return count;
}

/// The largest distance of a vertex of the model from what the file decodes to.
double largestError(const std::vector<DefaultMeshPtr>& model, const kel::src::SrcFile& file,
                    std::size_t mesh) {
    const Floats before = floatsOf(*model[mesh], "position");
    const auto after = decodeMesh(file, file.meshes()[mesh]).find("position")->values;
    double largest = 0.0;
    for (std::size_t i = 0; i < before.size(); i += 3) {
        double square = 0.0;
        for (std::size_t c = i; c < i + 3; ++c)
            square += std::pow(static_cast<double>(after[c]) - static_cast<double>(before[c]), 2);
        largest = std::max(largest, square);
    }
    return std::sqrt(largest);
}

bool isPowerOfTwo(double number) {
    int exponent = 0;
    return std::frexp(number, &exponent) == 0.5;
}

// ---- A building -------------------------------------------------------------------------------------------

TEST(Seamless, ClosesABuildingToTheLastBit) {
    const auto model = building();
    for (const Target target : TARGETS_OF_CODES)
        EXPECT_EQ(cracks(model, fileOf(seamless(inputOf(model), target), target)), 0u) << targetName(target);
}

TEST(Seamless, WithoutItABuildingShowsCracks) {
    const auto model = building();
    for (const Target target : TARGETS_OF_CODES)
        EXPECT_GT(cracks(model, fileOf(apart(inputOf(model), target), target)), 5u) << targetName(target);
}

TEST(Seamless, StatesTheStepsOfABuilding) {
    SeamlessReport report;
    seamless(inputOf(building()), Target::POSITION_COMPRESSED, &report);
    EXPECT_EQ(report.meshes, 11u);
    EXPECT_EQ(report.pointClouds, 0u);
    // The outside is 32.55 long, more than 65533 / 2048 and less than 65533 / 1024. The hinge is 3 mm long,
    // for which 2^-24 would do, but 3.1 away, which is less than 2^22 times 2^-20 and more than 2^22 times
    // 2^-21.
    EXPECT_EQ(report.largestStep, std::ldexp(1.0, -10));
    EXPECT_EQ(report.smallestStep, std::ldexp(1.0, -20));
    // 12 each of floor and ceiling, at walls and corners; 6 at the height of the door.
    EXPECT_EQ(report.shared, 30u);
}

TEST(Seamless, StatesTheLargestError) {
    const auto model = building();
    for (const Target target : TARGETS_OF_CODES) {
        SeamlessReport report;
        const auto file = fileOf(seamless(inputOf(model), target, &report), target);
        for (std::size_t m = 0; m < model.size(); ++m) {
            EXPECT_EQ(largestError(model, file, m), report.errors.at(m));
            EXPECT_LE(report.errors.at(m), 0.5 * std::sqrt(3.0) * report.largestStep);
        }
    }
}

TEST(Seamless, BoundsAreThoseOfTheDecodedVertices) {
    const auto model = building();
    for (const Target target : TARGETS_OF_CODES) {
        const auto file = fileOf(seamless(inputOf(model), target), target);
        for (std::size_t m = 0; m < model.size(); ++m) {
            const auto& mesh = file.meshes()[m];
            const auto positions = decodeMesh(file, mesh).find("position")->values;
            const std::size_t count = floatsOf(*model[m], "position").size();
            const auto bounds = boundsOf(mesh);
            ASSERT_TRUE(bounds);
            for (std::size_t axis = 0; axis < 3; ++axis) {
                float low = positions[axis], high = positions[axis];
                for (std::size_t i = axis; i < count; i += 3) {
                    low = std::min(low, positions[i]);
                    high = std::max(high, positions[i]);
                }
                EXPECT_EQ(bounds->min[axis], static_cast<double>(low));
                EXPECT_EQ(bounds->max[axis], static_cast<double>(high));
            }
        }
    }
}

TEST(Seamless, FilesAreClean) {
    for (const Target target : TARGETS_OF_CODES) {
        const std::string file = written(seamless(inputOf(building()), target), target);
        const auto report = kel::src::validateSrc(kel::src::ByteView(std::string_view(file)));
        EXPECT_TRUE(report.isClean())
            << (report.findings.empty() ? "" : infoOf(report.findings[0].code).sentence);
    }
}

TEST(Seamless, BoxesAreCubesOfWholeSteps) {
    const auto file =
        fileOf(seamless(inputOf(building()), Target::POSITION_COMPRESSED), Target::POSITION_COMPRESSED);
    for (const auto& mesh : file.meshes()) {
        const double step = mesh.boundsSize[0] / 65535.0;
        EXPECT_TRUE(isPowerOfTwo(step));
        for (std::size_t axis = 0; axis < 3; ++axis) {
            EXPECT_EQ(mesh.boundsSize[axis], 65535.0 * step);
            const double steps = (mesh.boundsCenter[axis] - mesh.boundsSize[axis] / 2) / step;
            EXPECT_EQ(steps, std::floor(steps));
        }
    }
}

TEST(Seamless, AddsTwoVerticesThatNothingUses) {
    const auto model = building();
    const auto input = seamless(inputOf(model), Target::POSITION_COMPRESSED);
    for (std::size_t m = 0; m < model.size(); ++m) {
        EXPECT_EQ(floatsOf(*input.meshes[m], "position").size(), floatsOf(*model[m], "position").size() + 6);
        EXPECT_EQ(floatsOf(*input.meshes[m], "normal").size(), floatsOf(*model[m], "normal").size() + 6);
        EXPECT_EQ(fixture::indicesOf(*input.meshes[m]), fixture::indicesOf(*model[m]));
        EXPECT_EQ(input.meshes[m]->getNumPrimitives(), model[m]->getNumPrimitives());
    }
}

TEST(Seamless, AddedVerticesCanBeLeftOut) {
    const auto model = building();
    const auto file =
        fileOf(seamless(inputOf(model), Target::POSITION_COMPRESSED), Target::POSITION_COMPRESSED);
    kel::src::DecodeOptions options;
    options.leaveOutAddedVertices = true;
    for (std::size_t m = 0; m < model.size(); ++m) {
        const auto decoded = decodeMesh(file, file.meshes()[m], options);
        EXPECT_EQ(decoded.find("position")->values.size(), floatsOf(*model[m], "position").size());
        EXPECT_EQ(decoded.find("normal")->values.size(), floatsOf(*model[m], "normal").size());
    }
}

TEST(Seamless, OnePresetHasOneScaleForAll) {
    const auto file = fileOf(seamless(inputOf(building()), Target::PRESET_CMP1), Target::PRESET_CMP1);
    for (const auto& mesh : file.meshes()) {
        for (const auto& fit : fitOf(mesh)) {
            if (fit.attribute != "position") continue;
            EXPECT_THAT(fit.scale, ElementsAre(65535.0 / 1024, 65535.0 / 1024, 65535.0 / 1024));
            for (const double offset : fit.offset)
                EXPECT_EQ(std::fabs(std::fmod(offset * 1024.0, 1.0)), 0.5);
        }
    }
}

TEST(Seamless, RewrittenFileIsTheSame) {
    const std::string bytes =
        written(seamless(inputOf(building()), Target::POSITION_COMPRESSED), Target::POSITION_COMPRESSED);
    std::istringstream in(bytes);
    EXPECT_EQ(written(toInput(kel::src::readSrc(in)), Target::POSITION_COMPRESSED), bytes);
}

// ---- Other meshes -----------------------------------------------------------------------------------------

TEST(Seamless, JoinsThePartsThatOneMeshWasCutInto) {
    const auto whole = fixture::sphere(60, 40);
    SplitOptions options;
    options.maxVertices = 300;
    const SrcWriterInput parts = splitForShortIndices(fixture::inputOf({whole}), options);
    ASSERT_GT(parts.meshes.size(), 5u);
    std::vector<DefaultMeshPtr> model;
    for (const auto& part : parts.meshes) {
        auto copy = std::make_shared<kel::mesh::DefaultMesh>();
        copy->addAttribute("position", 3, floatsOf(*part, "position"));
        model.push_back(copy);
    }
    for (const Target target : TARGETS_OF_CODES) {
        EXPECT_EQ(cracks(model, fileOf(seamless(parts, target), target)), 0u);
        EXPECT_GT(cracks(model, fileOf(apart(parts, target), target)), 100u);
    }
}

TEST(Seamless, GivesIndicesToMeshesWithoutAny) {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute("position", 3, Floats{0, 0, 0, 1, 0, 0, 0, 1.5f, 0});
    const auto input = seamless(fixture::inputOf({mesh}), Target::POSITION_COMPRESSED);
    EXPECT_THAT(fixture::indicesOf(*input.meshes.at(0)), ElementsAre(0, 1, 2));
    EXPECT_EQ(input.meshes[0]->getNumPrimitives(), 1u);
}

TEST(Seamless, TakesLinesToo) {
    auto lines = std::make_shared<kel::mesh::DefaultMesh>(kel::mesh::LINES);
    lines->addAttribute("position", 3, Floats{0.1f, 0, 0, 7.77f, 2.2f, 0});
    const std::vector<DefaultMeshPtr> model{lines, building()[0]};
    const auto file =
        fileOf(seamless(inputOf(model), Target::POSITION_COMPRESSED), Target::POSITION_COMPRESSED);
    EXPECT_EQ(cracks(model, file), 0u);
    EXPECT_EQ(decodeMesh(file, file.meshes()[0]).indices.size(), 2u);
}

TEST(Seamless, LeavesPointCloudsAsTheyAre) {
    const auto input = fixture::inputOf({fixture::pointRow(5), building()[0]});
    SeamlessReport report;
    const auto result = seamless(input, Target::POSITION_COMPRESSED, &report);
    EXPECT_EQ(report.pointClouds, 1u);
    EXPECT_EQ(report.meshes, 1u);
    EXPECT_EQ(fixture::indicesOf(*result.meshes[0]), fixture::indicesOf(*input.meshes[0]));
    EXPECT_EQ(result.metaData.at(result.meshes[0])->count("bounds"), 0u);
}

TEST(Seamless, LeavesWhatIsStoredAsFloats) {
    const auto input = inputOf(building());
    for (const Target target : {Target::UNCOMPRESSED, Target::PRESET_DEFAULT})
        EXPECT_EQ(seamless(input, target).meshes, input.meshes);
}

TEST(Seamless, TakesAMeshThatIsListedTwiceOnce) {
    auto input = inputOf(building());
    input.meshes.push_back(input.meshes[0]);
    SeamlessReport report;
    const auto result = seamless(input, Target::POSITION_COMPRESSED, &report);
    EXPECT_EQ(result.meshes.back(), result.meshes.front());
    EXPECT_EQ(report.errors.back(), report.errors.front());
    EXPECT_EQ(report.meshes, 11u);
}

TEST(Seamless, RoundingLeavesItAlone) {
    for (const Target target : {Target::POSITION_COMPRESSED, Target::POSITION_NORMAL_COMPRESSED}) {
        const auto input = seamless(inputOf(building()), target);
        EXPECT_EQ(roundToCodes(input, target).meshes, input.meshes);
    }
}

TEST(Seamless, AModelOfOnePointHasAPlace) {
    const auto mesh = meshOf({5.3f, 0, -7.7f, 5.3f, 0, -7.7f, 5.3f, 0, -7.7f}, {0, 1, 2});
    SeamlessReport report;
    seamless(inputOf({mesh}), Target::POSITION_COMPRESSED, &report);
    EXPECT_LE(report.errors.at(0), 5.3e-6);
}

TEST(Seamless, ASinglePointHasAPlace) {
    const auto mesh = meshOf({5.3f, 0, -7.7f, 5.3f, 0, -7.7f, 5.3f, 0, -7.7f}, {0, 1, 2});
    const auto zero = meshOf({0, 0, 0, 0, 0, 0, 0, 0, 0}, {0, 1, 2});
    const std::vector<DefaultMeshPtr> model{mesh, zero, building()[0]};
    for (const Target target : TARGETS_OF_CODES)
        EXPECT_EQ(cracks(model, fileOf(seamless(inputOf(model), target), target)), 0u);
}

// ---- What is refused --------------------------------------------------------------------------------------

std::string refusal(const SrcWriterInput& input, Target target = Target::POSITION_COMPRESSED) {
    try {
        seamless(input, target);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "";
}

TEST(Seamless, RefusesAModelTooFarFromZero) {
    const auto far = meshOf({1e6f, 0, 0, 1e6f + 1, 0, 0, 1e6f, 1, 0}, {0, 1, 2});
    // A side of 1 asks for 2^-15, as 65533 of 2^-16 are a little less.
    EXPECT_EQ(
        refusal(fixture::inputOf({far})),
        "Mesh 0 (\"mesh0\") lies too far from 0 for its size: its box begins 1e+06 away, which is 3.277e+10 "
        "steps of 3.052e-05 and needs more than 22 bits; store positions about an origin nearby.");
}

TEST(Seamless, TakesALargerStepWhereTheSceneAsksForOneAnyway) {
    const auto small = meshOf({1000, 0, 0, 1001, 0, 0, 1000, 1, 0}, {0, 1, 2});
    const auto large = meshOf({0, 0, 0, 1000, 0, 0, 0, 1000, 0}, {0, 1, 2});
    SeamlessReport report;
    const std::vector<DefaultMeshPtr> model{small, large};
    const auto file =
        fileOf(seamless(inputOf(model), Target::POSITION_COMPRESSED, &report), Target::POSITION_COMPRESSED);
    EXPECT_EQ(cracks(model, file), 0u);
    EXPECT_EQ(report.smallestStep, std::ldexp(1.0, -12)); // 1000 * 2^12 is less than 2^22
    EXPECT_EQ(report.largestStep, std::ldexp(1.0, -6));
}

TEST(Seamless, RefusesPositionsThatAreNotFinite) {
    const auto mesh = meshOf({0, 0, 0, 1, 0, 0, 0, std::numeric_limits<float>::quiet_NaN(), 0}, {0, 1, 2});
    EXPECT_EQ(refusal(fixture::inputOf({mesh})), "Mesh 0 (\"mesh0\") has positions that are not finite.");
}

TEST(Seamless, RefusesAMeshTooLargeForCodes) {
    EXPECT_THAT(refusal(fixture::inputOf({meshOf({0, 0, 0, 1e30f, 0, 0, 0, 1, 0}, {0, 1, 2})})),
                HasSubstr("too large"));
}

TEST(Seamless, RefusesMeshesAboutDifferentOrigins) {
    const auto model = building();
    auto input = inputOf(model);
    (*input.metaData.at(model[1]))["origin"] = "[1,2,3]";
    EXPECT_THAT(refusal(input), HasSubstr("Mesh 1 (\"mesh1\") has another origin"));
}

TEST(Seamless, RefusesWhatWasFittedOrIsSeamless) {
    const auto model = building();
    EXPECT_THAT(refusal(fitToRange(inputOf(model))), HasSubstr("was fitted to a range already"));
    EXPECT_THAT(refusal(seamless(inputOf(model), Target::POSITION_COMPRESSED)),
                HasSubstr("is seamless already"));
}

// ---- Any rooms --------------------------------------------------------------------------------------------

/// Places along an axis, of any size; some just fill what a step has room for.
rc::Gen<Floats> anyPlaces() {
    const auto place = rc::gen::map(rc::gen::pair(rc::gen::inRange(-65533, 65534), rc::gen::inRange(-14, 1)),
                                    [](const std::pair<int, int>& parts) {
                                        return std::ldexp(static_cast<float>(parts.first), parts.second);
                                    });
    return rc::gen::map(rc::gen::container<Floats>(4, place), [](Floats places) {
        std::sort(places.begin(), places.end());
        return places;
    });
}

RC_GTEST_PROP(SeamlessProperty, ClosesAnyRooms, ()) {
    const std::array<Floats, 3> places{*anyPlaces(), *anyPlaces(), *anyPlaces()};
    const auto rooms = *rc::gen::inRange(2, 12);
    std::vector<DefaultMeshPtr> model;
    for (int i = 0; i < rooms; ++i) {
        const auto axisA = *rc::gen::inRange<std::size_t>(0, 3);
        const std::size_t axisB = (axisA + 1) % 3, axisC = (axisA + 2) % 3;
        const auto part = [&](std::size_t axis) {
            const auto first = *rc::gen::inRange<std::size_t>(0, 3);
            const auto last = *rc::gen::inRange<std::size_t>(first + 1, 4);
            return Floats(places[axis].begin() + static_cast<std::ptrdiff_t>(first),
                          places[axis].begin() + static_cast<std::ptrdiff_t>(last) + 1);
        };
        const Floats a = part(axisA), b = part(axisB);
        model.push_back(panel(axisA, a, axisB, b, places[axisC][*rc::gen::inRange<std::size_t>(0, 4)]));
    }
    RC_PRE(refusal(inputOf(model)).empty()); // for a model far from zero
    for (const Target target : TARGETS_OF_CODES) {
        SeamlessReport report;
        const auto file = fileOf(seamless(inputOf(model), target, &report), target);
        RC_ASSERT(cracks(model, file) == 0u);
        for (std::size_t m = 0; m < model.size(); ++m)
            RC_ASSERT(largestError(model, file, m) == report.errors[m]);
    }
}

} // namespace
