// A floor, a wall on it and a door in the wall, which share edges and corners.

#include "CommandRun.h"

#include <kel/src/SrcReader.h>

#include <gmock/gmock.h>
#include <picojson.h>

#include <cmath>
#include <fstream>

namespace {

using namespace kel::tests;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr const char* HOUSE = R"(v 0 0 0
v 3.1 0 0
v 3.9 0 0
v 12.3 0 0
v 12.3 8.1 0
v 0 8.1 0
v 0 0 2.7
v 3.1 0 2.05
v 3.9 0 2.05
v 12.3 0 2.7
o floor
f 1 2 6
f 2 3 6
f 3 5 6
f 3 4 5
o wall
f 1 2 8
f 1 8 7
f 7 8 10
f 8 9 10
f 9 3 10
f 3 4 10
o door
f 2 3 9
f 2 9 8
)";

class Seamless : public testing::Test {
protected:
    CommandResult convert(std::vector<std::string> options, const std::string& content = HOUSE) {
        options.insert(options.begin(),
                       {"convert", writeFile(folder / "house.obj", content), "-o", file, "--seamless"});
        return runCommand(options);
    }
    static picojson::value parsed(const std::string& text) {
        picojson::value value;
        EXPECT_EQ(picojson::parse(value, text), "");
        return value;
    }

    TempFolder folder;
    const std::string file = folder / "house.src";
};

TEST_F(Seamless, FileIsVerifiedInEveryModeWithCodes) {
    for (const char* mode : {"--mode=position", "--mode=position-normal", "--preset=CMP1", "--mode=auto"}) {
        const auto result = convert({mode, "--verify"});
        EXPECT_EQ(result.status, 0) << mode << result.err;
        EXPECT_THAT(result.err, HasSubstr("verified: positions within"));
    }
}

TEST_F(Seamless, ReportStatesStepsAndSharedPositions) {
    // 12.3 is more than 65533 of 2^-13, 2.05 more than 65533 of 2^-15.
    EXPECT_THAT(
        convert({"--mode=position"}).err,
        HasSubstr(
            "put 3 meshes onto lattices with steps of 2^-14 (6.104e-05) to 2^-12 (0.0002441), which keeps "
            "6 positions of several meshes the same"));
    const auto report =
        parsed(convert({"--mode=position", "--json"}).out).get("files").get(0).get("seamless");
    EXPECT_EQ(report.get("meshes").get<double>(), 3.0);
    EXPECT_EQ(report.get("pointClouds").get<double>(), 0.0);
    EXPECT_EQ(report.get("sharedPositions").get<double>(), 6.0);
    EXPECT_EQ(report.get("smallestStep").get<double>(), std::ldexp(1.0, -14));
    EXPECT_EQ(report.get("largestStep").get<double>(), std::ldexp(1.0, -12));
}

TEST_F(Seamless, StatedErrorIsTheLargest) {
    const auto report = parsed(convert({"--mode=position", "--verify", "--json"}).out).get("files").get(0);
    const double stated = report.get("errorReached").get("position").get<double>();
    EXPECT_GT(stated, 0.0);
    EXPECT_LE(stated, 0.5 * std::sqrt(3.0) * std::ldexp(1.0, -12));
    // The text's numbers are rounded to floats before.
    EXPECT_NEAR(report.get("verified").get("position").get<double>(), stated, 1e-6);
}

TEST_F(Seamless, SharedCornersAreTheSameInEveryMesh) {
    for (const char* mode : {"--mode=position", "--preset=CMP1"}) {
        convert({mode});
        const auto read = kel::src::openSrc(file);
        std::vector<std::array<float, 3>> hinges; // the corner at 3.1, 0, 2.05
        for (const auto& mesh : read.meshes()) {
            const auto values = decodeMesh(read, mesh).find("position")->values;
            for (std::size_t i = 0; i < values.size(); i += 3) {
                if (std::hypot(values[i] - 3.1f, values[i + 1], values[i + 2] - 2.05f) < 0.01f)
                    hinges.push_back({values[i], values[i + 1], values[i + 2]});
            }
        }
        ASSERT_GE(hinges.size(), 2u);
        for (const auto& hinge : hinges)
            EXPECT_EQ(hinge, hinges.front()) << mode;
    }
}

TEST_F(Seamless, InfoTellsTheTrueBounds) {
    for (const char* mode : {"--mode=position", "--preset=CMP1"}) {
        convert({mode});
        const auto bounds =
            parsed(runCommand({"info", "--json", file}).out).get("files").get(0).get("bounds");
        const std::array<double, 3> high{12.3, 8.1, 2.7};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            EXPECT_EQ(bounds.get("min").get(axis).get<double>(), 0.0);
            EXPECT_NEAR(bounds.get("max").get(axis).get<double>(), high[axis], std::ldexp(1.0, -12));
        }
    }
}

TEST_F(Seamless, ModelAndFileDoNotDiffer) {
    for (const char* mode : {"--mode=position", "--preset=CMP1"}) {
        convert({mode});
        const auto compared = runCommand({"diff", folder / "house.obj", file});
        EXPECT_EQ(compared.status, 0) << compared.out << compared.err;
    }
}

TEST_F(Seamless, ExportLeavesOutWhatStretchesTheBox) {
    const auto exported = [&](const char* mode) {
        convert({mode});
        EXPECT_EQ(runCommand({"export", file, "-o", folder / "out.ply"}).status, 0);
        std::ifstream ply(folder / "out.ply");
        std::string line;
        while (std::getline(ply, line) && line.find("element vertex") == std::string::npos) {
        }
        return line;
    };
    EXPECT_EQ(exported("--mode=position"), exported("--preset=CMP1")); // which adds none
}

TEST_F(Seamless, FileIsValid) {
    convert({"--mode=position"});
    EXPECT_EQ(runCommand({"validate", "--strict", file}).status, 0);
}

TEST_F(Seamless, ErrorThatIsTooLargeStoresFloats) {
    const auto result = convert({"--max-error=1e-7"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("(uncompressed)"));
    EXPECT_THAT(result.err, Not(HasSubstr("lattices")));
    EXPECT_THAT(std::string(kel::src::openSrc(file).meshes()[0].metadata), Not(HasSubstr("bounds")));
}

TEST_F(Seamless, WithoutFittingThereIsNothingToDo) {
    const auto result = convert({"--preset=CMP1", "--no-fit", "--allow-clamping"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("--seamless had nothing to do"));
}

TEST_F(Seamless, FloatsAreAUsageError) {
    for (const char* option : {"--lossless", "--preset=default"}) {
        const auto result = convert({option});
        EXPECT_EQ(result.status, 2);
        EXPECT_THAT(result.err, HasSubstr("which show no cracks"));
    }
}

TEST_F(Seamless, PointCloudIsAnError) {
    const auto result = convert({"--mode=position"}, "v 0 0 0\nv 1 0 0\nv 0 1 0\np 1\np 2\np 3\n");
    EXPECT_NE(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("no mesh has surfaces or lines"));
}

TEST_F(Seamless, ModelTooFarFromZeroIsAnError) {
    const auto result = convert({"--mode=position", "--origin=keep"},
                                "v 1000000 0 0\nv 1000001 0 0\nv 1000000 1 0\nf 1 2 3\n");
    EXPECT_NE(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("needs more than 22 bits"));
}

} // namespace
