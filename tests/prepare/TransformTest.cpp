#include <kel/prepare/FitToRange.h>
#include <kel/prepare/Transform.h>
#include <kel/prepare/detail/Steps.h>

#include <support/Meshes.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

namespace {

using namespace kel::prepare;
using fixture::floatsOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

constexpr UpAxis AXES[] = {UpAxis::X, UpAxis::Y, UpAxis::Z};

/// One vertex at (2, 3, 5) with the normal (0.6, 0, 0.8).
kel::src::SrcWriterInput oneVertex() {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>(kel::mesh::POINTS);
    mesh->addAttribute("position", 3, std::vector<float>{2, 3, 5});
    mesh->addAttribute("normal", 3, std::vector<float>{0.6f, 0, 0.8f});
    mesh->addAttribute("texcoord", 2, std::vector<float>{1, 2});
    return fixture::inputOf({mesh});
}

std::vector<float> turned(UpAxis from, UpAxis to) {
    return floatsOf(*transform(oneVertex(), {1.0, from, to}).meshes[0], "position");
}

TEST(Transform, TurnsUpAxes) {
    EXPECT_THAT(turned(UpAxis::Y, UpAxis::Z), ElementsAre(2, -5, 3));
    EXPECT_THAT(turned(UpAxis::Z, UpAxis::Y), ElementsAre(2, 5, -3));
    EXPECT_THAT(turned(UpAxis::X, UpAxis::Y), ElementsAre(-3, 2, 5));
    EXPECT_THAT(turned(UpAxis::Y, UpAxis::X), ElementsAre(3, -2, 5));
    EXPECT_THAT(turned(UpAxis::X, UpAxis::Z), ElementsAre(-5, 3, 2));
    EXPECT_THAT(turned(UpAxis::Z, UpAxis::X), ElementsAre(5, 3, -2));
}

TEST(Transform, TakesUpToUp) {
    for (const UpAxis from : AXES) {
        for (const UpAxis to : AXES) {
            auto mesh = std::make_shared<kel::mesh::DefaultMesh>(kel::mesh::POINTS);
            std::vector<float> up(3), expected(3);
            up[static_cast<std::size_t>(from)] = 1.0f;
            expected[static_cast<std::size_t>(to)] = 1.0f;
            mesh->addAttribute("position", 3, up);
            const auto result = transform(fixture::inputOf({mesh}), {1.0, from, to});
            EXPECT_EQ(floatsOf(*result.meshes[0], "position"), expected)
                << axisName(from) << " to " << axisName(to);
        }
    }
}

/// The triangles' areas times their outward normals, summed up against the positions: six times the volume.
double volume(const kel::mesh::Mesh& mesh) {
    const auto p = floatsOf(mesh, "position");
    const auto k = fixture::indicesOf(mesh);
    double sum = 0.0;
    for (std::size_t i = 0; i < k.size(); i += 3) {
        const float *a = &p[3 * k[i]], *b = &p[3 * k[i + 1]], *c = &p[3 * k[i + 2]];
        sum += static_cast<double>(a[0] * (b[1] * c[2] - b[2] * c[1]) + a[1] * (b[2] * c[0] - b[0] * c[2]) +
                                   a[2] * (b[0] * c[1] - b[1] * c[0]));
    }
    return sum;
}

TEST(Transform, KeepsTheWinding) {
    for (const UpAxis from : AXES) {
        for (const UpAxis to : AXES) {
            const auto result = transform(fixture::inputOf({fixture::tetrahedron()}), {2.0, from, to});
            EXPECT_DOUBLE_EQ(volume(*result.meshes[0]), 8.0); // 1 before; negative were it inside out
        }
    }
}

TEST(Transform, ScalesPositionsOnly) {
    const auto result = transform(oneVertex(), {0.5});
    EXPECT_THAT(floatsOf(*result.meshes[0], "position"), ElementsAre(1.0f, 1.5f, 2.5f));
    EXPECT_THAT(floatsOf(*result.meshes[0], "normal"), ElementsAre(0.6f, 0.0f, 0.8f));
}

TEST(Transform, TurnsNormalsWithoutScalingThem) {
    const auto result = transform(oneVertex(), {10.0, UpAxis::Y, UpAxis::Z});
    EXPECT_THAT(floatsOf(*result.meshes[0], "position"), ElementsAre(20, -50, 30));
    EXPECT_THAT(floatsOf(*result.meshes[0], "normal"), ElementsAre(0.6f, -0.8f, 0.0f));
}

TEST(Transform, SharesWhatItDoesNotChange) {
    const auto input = oneVertex();
    const auto result = transform(input, {2.0});
    EXPECT_EQ(result.meshes[0]->getAttributeBuffer("texcoord"),
              input.meshes[0]->getAttributeBuffer("texcoord"));
    EXPECT_EQ(result.meshes[0]->getAttributeBuffer("normal"), input.meshes[0]->getAttributeBuffer("normal"));
    EXPECT_EQ(floatsOf(*input.meshes[0], "position"), (std::vector<float>{2, 3, 5}));
}

TEST(Transform, RecordsWhatItDid) {
    const auto input = oneVertex();
    const auto result = transform(input, {0.001, UpAxis::Y, UpAxis::Z});
    EXPECT_EQ(result.metaData.at(result.meshes[0])->at("transform"),
              "{\"from\":\"y\",\"matrix\":[0.001,0,0,0,0,-0.001,0,0.001,0],\"scale\":0.001,\"to\":\"z\"}");
    EXPECT_EQ(result.metaData.at(result.meshes[0])->at("name"), "\"mesh0\"");
    EXPECT_EQ(input.metaData.at(input.meshes[0])->count("transform"), 0u);
}

TEST(Transform, CombinesRecords) {
    const auto once = transform(oneVertex(), {2.0, UpAxis::X, UpAxis::Y});
    const auto twice = transform(once, {3.0, UpAxis::Y, UpAxis::Z});
    // X to Y gives (-y, x, z), then Y to Z gives (-y, -z, x).
    EXPECT_THAT(floatsOf(*twice.meshes[0], "position"), ElementsAre(-18, -30, 12));
    EXPECT_EQ(twice.metaData.at(twice.meshes[0])->at("transform"),
              "{\"from\":\"x\",\"matrix\":[0,-6,0,0,0,-6,6,0,0],\"scale\":6,\"to\":\"z\"}");
}

TEST(Transform, ReplacesARecordThatIsNone) {
    auto input = oneVertex();
    for (const char* text : {"1", "{\"from\":\"y\",\"scale\":1,\"to\":\"y\"}",
                             "{\"from\":\"w\",\"matrix\":[2,0,0,0,2,0,0,0,2],\"scale\":2,\"to\":\"y\"}"}) {
        (*input.metaData[input.meshes[0]])["transform"] = text;
        const auto result = transform(input, {2.0});
        EXPECT_EQ(result.metaData.at(result.meshes[0])->at("transform"),
                  "{\"from\":\"y\",\"matrix\":[2,0,0,0,2,0,0,0,2],\"scale\":2,\"to\":\"y\"}");
    }
}

TEST(Transform, RefusesToCombineARecordBeyondDoubles) {
    auto input = oneVertex();
    (*input.metaData[input.meshes[0]])["transform"] =
        "{\"from\":\"y\",\"matrix\":[1e308,0,0,0,1e308,0,0,0,1e308],\"scale\":1e308,\"to\":\"y\"}";
    EXPECT_THAT([&] { transform(input, {1e10}); },
                ThrowsMessage<std::invalid_argument>(HasSubstr("Mesh 0 (\"mesh0\"): its metadata tell of")));
}

TEST(Transform, DoesNothingWhenNothingIsAsked) {
    const auto input = oneVertex();
    const auto result = transform(input, {1.0, UpAxis::Z, UpAxis::Z});
    EXPECT_EQ(result.meshes, input.meshes);
    EXPECT_EQ(result.metaData.at(result.meshes[0])->count("transform"), 0u);
}

TEST(Transform, KeepsMaterialsAndListing) {
    auto input = fixture::twoMaterials();
    input.meshes.push_back(input.meshes[0]);
    input.meshes.push_back(nullptr);
    const auto result = transform(input, {2.0});
    EXPECT_EQ(result.meshes[0], result.meshes[2]);
    EXPECT_EQ(result.meshes[3], nullptr);
    EXPECT_EQ(result.meshMaterials.at(result.meshes[1]), input.meshMaterials.at(input.meshes[1]));
    EXPECT_EQ(result.meshMaterials.size(), 2u);
}

TEST(Transform, MovesTheOriginAsItMovesPositions) {
    auto input = oneVertex();
    auto metadata = std::make_shared<kel::src::MetaDataPtr::element_type>();
    (*metadata)["origin"] = "[500000,5400000,7]";
    input.metaData[input.meshes[0]] = metadata;
    const auto result = transform(input, {2.0, UpAxis::Y, UpAxis::Z});
    EXPECT_EQ(result.metaData.at(result.meshes[0])->at("origin"), "[1000000,-14,10800000]");
}

TEST(Transform, TellsWhatRoundingCosts) {
    const auto roundingOf = [](float x, double scale) {
        auto mesh = std::make_shared<kel::mesh::DefaultMesh>(kel::mesh::POINTS);
        mesh->addAttribute("position", 3, std::vector<float>{x, 0, 0});
        auto scene = kel::scene::fromInput(fixture::inputOf({mesh}));
        double rounding = -1.0;
        steps::transform(scene, {scale}, &rounding);
        return rounding;
    };
    EXPECT_EQ(roundingOf(3, 0.5), 0.0);
    // 16777215 and a half lies between two floats, which are 1 apart here.
    EXPECT_EQ(roundingOf(11184810, 1.5 + std::ldexp(1.0, -25)), std::ldexp(11184810.0, -25));
}

TEST(Transform, LeavesInfinitiesInfinite) {
    constexpr float INF = std::numeric_limits<float>::infinity();
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>(kel::mesh::POINTS);
    mesh->addAttribute("position", 3, std::vector<float>{INF, 0, 1});
    const auto result = transform(fixture::inputOf({mesh}), {1.0, UpAxis::Y, UpAxis::Z});
    EXPECT_THAT(floatsOf(*result.meshes[0], "position"), ElementsAre(INF, -1, 0));
}

TEST(Transform, RefusesScalesThatMirrorOrFlatten) {
    for (const double scale : {0.0, -1.0, std::numeric_limits<double>::infinity(), std::nan("")})
        EXPECT_THROW(transform(oneVertex(), {scale}), std::invalid_argument);
}

TEST(Transform, RefusesFittedMeshes) {
    EXPECT_THAT([] { transform(fitToRange(oneVertex()), {2.0}); },
                ThrowsMessage<std::invalid_argument>(HasSubstr("Mesh 0 (\"mesh0\") was fitted")));
}

TEST(Transform, RefusesPositionsItCannotTurn) {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>(kel::mesh::POINTS);
    mesh->addAttribute("position", 2, std::vector<float>{1, 2});
    EXPECT_THAT([&] { transform(fixture::inputOf({mesh}), {2.0}); },
                ThrowsMessage<std::invalid_argument>(HasSubstr("\"position\" is not three floats")));
}

TEST(MetresPer, KnowsUnits) {
    EXPECT_EQ(metresPer("mm"), 0.001);
    EXPECT_EQ(metresPer("in"), 0.0254);
    EXPECT_EQ(metresPer("furlong"), std::nullopt);
}

} // namespace
