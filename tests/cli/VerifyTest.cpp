#include "CommandRun.h"
#include "Models.h"

#include <gmock/gmock.h>

namespace {

using namespace kel::tests;
using testing::HasSubstr;

class ConvertVerify : public testing::Test {
protected:
    TempFolder folder;
};

TEST_F(ConvertVerify, EveryWayOfWritingPasses) {
    const std::string model = writeFile(
        folder / "in.gltf", gltf({{"a", true, true, false, -3.0f}, {"b", false, false, false, 50.0f}}));
    for (const std::vector<std::string>& how : {std::vector<std::string>{},
                                                {"--lossless"},
                                                {"--mode=position"},
                                                {"--mode=position-normal"},
                                                {"--preset=default"},
                                                {"--preset=CMP1"},
                                                {"--preset=CMP1", "--no-fit", "--allow-clamping"},
                                                {"--optimize"}}) {
        std::vector<std::string> args{"convert", model, "-o", folder / "out.src", "--verify"};
        args.insert(args.end(), how.begin(), how.end());
        const CommandResult result = runCommand(args);
        EXPECT_EQ(result.status, 0) << result.err;
    }
    EXPECT_THAT(folder.entries(), testing::UnorderedElementsAre("in.gltf", "out.src"));
}

TEST_F(ConvertVerify, TellsHowFarTheFileIsFromTheModel) {
    const std::string model = writeFile(folder / "in.gltf", gltf({{"a", true, true, false, 0.3f}}));
    const auto said = [&](const char* option) {
        return runCommand({"convert", model, "-o", folder / "out.src", "--verify", option});
    };
    EXPECT_THAT(said("--lossless").err, HasSubstr("verified: every number is that of the model\n"));
    const CommandResult coded = said("--preset=CMP1");
    EXPECT_THAT(coded.err, HasSubstr("verified: positions within "));
    EXPECT_THAT(coded.err, HasSubstr("colours within "));
}

TEST_F(ConvertVerify, StandardOutputGetsTheSameBytes) {
    const std::string model = writeFile(folder / "in.obj", PLATE_OBJ);
    const CommandResult plain = runCommand({"convert", model, "-o", "-"});
    const CommandResult verified = runCommand({"convert", model, "-o", "-", "--verify"});
    EXPECT_EQ(verified.status, 0);
    EXPECT_EQ(plain.out, verified.out);
    EXPECT_EQ(verified.out.substr(0, 1), "\x17");
}

TEST_F(ConvertVerify, DeviceIsRefused) {
    const std::string model = writeFile(folder / "in.obj", PLATE_OBJ);
    const CommandResult result = runCommand({"convert", model, "-o", "/dev/null", "--verify"});
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.err, HasSubstr("/dev/null: cannot be read back"));
    EXPECT_EQ(runCommand({"convert", model, "-o", "/dev/null"}).status, 0);
}

} // namespace
