#include "CommandRun.h"

#include <gmock/gmock.h>

namespace {

using namespace kel::tests;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

TEST(Usage, BareCallShowsAShortUsageAndIsAnError) {
    const CommandResult result = runCommand({});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(result.err, StartsWith("usage: kelsrc convert MODEL -o OUT.src"));
}

TEST(Usage, HelpGoesToStandardOutput) {
    for (const char* flag : {"-h", "--help"}) {
        const CommandResult result = runCommand({flag});
        EXPECT_EQ(result.status, 0);
        EXPECT_THAT(result.out, HasSubstr("convert"));
        EXPECT_THAT(result.out, HasSubstr("Exit status:"));
        EXPECT_THAT(result.err, IsEmpty());
    }
}

TEST(Usage, HelpOfAVerbNeedsNoOtherArguments) {
    const CommandResult result = runCommand({"convert", "--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr("--preset"));
    EXPECT_THAT(result.err, IsEmpty());
}

TEST(Usage, VersionGoesToStandardOutput) {
    const CommandResult result = runCommand({"--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, testing::MatchesRegex("kelsrc [0-9]+\\.[0-9]+\\.[0-9]+\n"));
    EXPECT_THAT(result.err, IsEmpty());
}

TEST(Usage, UnknownOptionSuggestsTheNearest) {
    const CommandResult result = runCommand({"convert", "a.obj", "-o", "b.src", "--preste=CMP1"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(result.err, HasSubstr("unknown option \"--preste\""));
    EXPECT_THAT(result.err, HasSubstr("Did you mean \"--preset\"?"));
}

TEST(Usage, UnknownOptionIsNamedEvenWhenItsValueLooksLikeAModel) {
    const CommandResult result = runCommand({"convert", "--preste", "CMP1", "a.obj", "-o", "b.src"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("Did you mean \"--preset\"?"));
}

TEST(Usage, UnknownOptionBeforeTheVerbIsSuggestedFromThere) {
    const CommandResult result = runCommand({"--versoin"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("Did you mean \"--version\"?"));
}

TEST(Usage, OptionFarFromAllOthersPointsToTheHelp) {
    const CommandResult result = runCommand({"convert", "a.obj", "-o", "b.src", "--xyzzy"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("\"kelsrc convert --help\" lists the options."));
}

TEST(Usage, UnknownVerbSuggestsTheNearest) {
    const CommandResult result = runCommand({"convrt", "a.obj"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("unknown command \"convrt\""));
    EXPECT_THAT(result.err, HasSubstr("Did you mean \"convert\"?"));
}

TEST(Usage, MissingModelAndMissingOutputAreUsageErrors) {
    EXPECT_EQ(runCommand({"convert"}).status, 2);
    EXPECT_EQ(runCommand({"convert", "a.obj"}).status, 2);
    EXPECT_EQ(runCommand({"convert", "-o", "b.src"}).status, 2);
    EXPECT_THAT(runCommand({"convert", "a.obj"}).err, HasSubstr("--output"));
}

TEST(Usage, UnknownPresetIsAUsageErrorThatNamesTheKnownOnes) {
    const CommandResult result = runCommand({"convert", "a.obj", "-o", "b.src", "--preset", "CMP2"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("CMP1"));
    EXPECT_THAT(result.err, HasSubstr("default"));
}

TEST(Usage, QuietAndVerboseExcludeEachOther) {
    EXPECT_EQ(runCommand({"convert", "a.obj", "-o", "b.src", "-q", "-v"}).status, 2);
}

} // namespace
