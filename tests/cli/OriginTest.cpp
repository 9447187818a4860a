// A model far from zero: nine by nine points, a quarter apart, below a node with a large translation.

#include "CommandRun.h"

#include <importer/GltfText.h>

#include <gmock/gmock.h>
#include <picojson.h>

namespace {

using namespace kel::tests;
using testing::HasSubstr;
using testing::Not;

class DistantModel : public testing::Test {
protected:
    DistantModel() {
        std::vector<float> positions;
        std::vector<std::uint16_t> indices;
        for (std::uint16_t y = 0; y < 9; ++y) {
            for (std::uint16_t x = 0; x < 9; ++x) {
                positions.insert(positions.end(), {0.25f * x, 0.25f * y, 0.0f});
                if (x == 8 || y == 8) continue;
                const auto corner = static_cast<std::uint16_t>(9 * y + x);
                for (const int step : {0, 1, 9, 1, 10, 9})
                    indices.push_back(static_cast<std::uint16_t>(corner + step));
            }
        }
        kel::importer::test::GltfText text;
        const auto position = std::to_string(text.addVec3(positions));
        text.addMesh("\"POSITION\":" + position, ",\"indices\":" + std::to_string(text.addIndices(indices)));
        text.nodes.push_back(R"({"mesh":0,"translation":[500123.125,5400321.0625,3]})");
        model = writeFile(folder / "far.gltf", text.json());
        file = folder / "far.src";
    }

    CommandResult convert(std::vector<std::string> options) {
        options.insert(options.begin(), {"convert", model, "-o", file});
        return runCommand(options);
    }
    picojson::value bounds() {
        picojson::value report;
        picojson::parse(report, runCommand({"info", "--json", file}).out);
        return report.get("files").get(0).get("bounds");
    }

    TempFolder folder;
    std::string model, file;
};

TEST_F(DistantModel, IsStoredExactlyAboutARoundOriginNearby) {
    const auto result = convert({"--lossless", "--verify"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("positions and normals are exact"));
    EXPECT_THAT(result.err, HasSubstr("positions are stored about the origin [500124,5400322,3]"));
}

// From 2^22 on floats are 0.5 apart: of 5400321.0625 and steps of 0.25 the farthest is 0.1875 off.
TEST_F(DistantModel, IsSaidToBeOffWhenItsOriginIsKept) {
    const auto result = convert({"--lossless", "--origin=keep"});
    EXPECT_THAT(result.err, HasSubstr("stored as the nearest floats: positions within 0.188"));
    EXPECT_THAT(result.err, Not(HasSubstr("exact")));
}

TEST_F(DistantModel, TakesTheOriginThatIsGiven) {
    EXPECT_THAT(convert({"--origin=500000,5400000,0"}).err, HasSubstr("origin [500000,5400000,0]"));
}

TEST_F(DistantModel, HasItsTrueBoundsInInfo) {
    convert({"--lossless"});
    EXPECT_NEAR(bounds().get("min").get(1).get<double>(), 5400321.0625, 1e-6);
    EXPECT_NEAR(bounds().get("max").get(1).get<double>(), 5400323.0625, 1e-6);
    EXPECT_THAT(runCommand({"info", file}).out,
                HasSubstr("500123.125, 5400321.0625, 3 to 500125.125, 5400323.0625, 3"));
}

TEST_F(DistantModel, IsTheSameInEveryModeAndPreset) {
    for (const char* how : {"--mode=uncompressed", "--mode=position", "--mode=position-normal",
                            "--preset=default", "--preset=CMP1"}) {
        EXPECT_EQ(convert({how, "--verify"}).status, 0) << how;
        const auto compared = runCommand({"diff", model, file});
        EXPECT_EQ(compared.status, 0) << how << compared.out;
    }
}

TEST_F(DistantModel, HasItsOriginScaledAndTurnedWithIt) {
    convert({"--up=z", "--scale=2", "--lossless"});
    EXPECT_NEAR(bounds().get("min").get(2).get<double>(), 10800642.125, 1e-6);
    EXPECT_NEAR(bounds().get("min").get(1).get<double>(), -6.0, 1e-6);
}

TEST_F(DistantModel, IsExportedToGltfWithoutLoss) {
    convert({"--lossless"});
    EXPECT_EQ(runCommand({"export", file, "-o", folder / "out.glb"}).status, 0);
    const auto compared = runCommand({"diff", "--json", model, folder / "out.glb"});
    picojson::value report;
    picojson::parse(report, compared.out);
    EXPECT_EQ(report.get("maxDistance").get<double>(), 0.0);
}

TEST_F(DistantModel, IsSaidToBeOffWhereTheExportedFormatHasFloats) {
    convert({"--lossless"});
    EXPECT_THAT(runCommand({"export", file, "-o", folder / "out.stl"}).err, HasSubstr("off by up to 0.188"));
}

TEST(Origin, IsRefusedUnlessItIsAPlace) {
    const auto result = runCommand({"convert", "a.glb", "-o", "a.src", "--origin=here"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("--origin: \"here\" is neither auto nor keep nor three numbers"));
}

} // namespace
