// "validate" on good files, and on files with one thing broken.

#include "CommandRun.h"

#include <reader/Files.h>

#include <gmock/gmock.h>
#include <picojson.h>

namespace {

using namespace kel::tests;
using reader_fixture::Editable;
using reader_fixture::triangleFile;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Validate : public testing::Test {
protected:
    std::string good(const std::string& name = "good.src") {
        return writeFile(folder / name, triangleFile());
    }

    /// The third index is 7, though there are three vertices: an error.
    std::string broken(const std::string& name = "broken.src") {
        Editable file(triangleFile());
        file.data[4] = 7;
        return writeFile(folder / name, file.file());
    }

    /// Bytes after the last chunk: a warning.
    std::string doubtful(const std::string& name = "doubtful.src") {
        return writeFile(folder / name, triangleFile() + "12345");
    }

    static picojson::value json(std::vector<std::string> args, int status) {
        args.insert(args.begin(), {"validate", "--json"});
        const CommandResult result = runCommand(args);
        EXPECT_EQ(result.status, status) << result.err;
        picojson::value value;
        const std::string error = picojson::parse(value, result.out);
        if (!error.empty()) throw std::runtime_error(error);
        return value;
    }

    static std::vector<std::string> codes(const picojson::value& report) {
        std::vector<std::string> result;
        for (const auto& finding : report.get("files").get(0).get("findings").get<picojson::array>())
            result.push_back(finding.get("code").get<std::string>());
        return result;
    }

    TempFolder folder;
};

TEST_F(Validate, GoodFileIsValid) {
    const std::string file = good();
    const CommandResult result = runCommand({"validate", file, "--ignore", "UNALIGNED_VIEW"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, file + ": valid\n");
    EXPECT_THAT(result.err, IsEmpty());
}

TEST_F(Validate, ErrorIsToldWithCodePlaceSentenceAndRemedy) {
    const std::string file = broken();
    const CommandResult result = runCommand({"validate", file});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, HasSubstr(file + ": error INDEX_OUT_OF_RANGE at /meshes/0/indices"));
    EXPECT_THAT(result.out, HasSubstr("An index is not below the number of vertices."));
    EXPECT_THAT(result.out, HasSubstr("\n  Correct the indices;"));
    EXPECT_THAT(result.out, HasSubstr(file + ": broken: 1 error"));
}

TEST_F(Validate, VerdictIsTheLastLine) {
    const std::string file = broken();
    const CommandResult result = runCommand({"validate", file, "--only", "INDEX_OUT_OF_RANGE"});
    EXPECT_THAT(result.out, EndsWith(file + ": broken: 1 error\n"));
}

TEST_F(Validate, WarningsAreStatus0AndWithStrictStatus1) {
    const std::string file = doubtful();
    const CommandResult result = runCommand({"validate", file});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr(file + ": valid, with 1 warning"));
    EXPECT_EQ(runCommand({"validate", file, "--strict"}).status, 1);
    EXPECT_EQ(runCommand({"validate", good(), "--strict"}).status, 0);
}

TEST_F(Validate, IgnoredCodeCountsForNothing) {
    EXPECT_EQ(runCommand({"validate", doubtful(), "--strict", "--ignore", "TRAILING_BYTES"}).status, 0);
    const CommandResult result = runCommand({"validate", broken(), "--ignore", "INDEX_OUT_OF_RANGE"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, Not(HasSubstr("INDEX_OUT_OF_RANGE")));
}

TEST_F(Validate, OnlyTheCodesAskedForCount) {
    EXPECT_THAT(codes(json({broken(), "--only", "INDEX_OUT_OF_RANGE"}, 1)),
                ElementsAre("INDEX_OUT_OF_RANGE"));
    EXPECT_THAT(codes(json({broken(), "--only", "NORMAL_LENGTH"}, 0)), IsEmpty());
    EXPECT_THAT(codes(json({broken(), "--only", "NORMAL_LENGTH", "--only", "INDEX_OUT_OF_RANGE"}, 1)),
                ElementsAre("INDEX_OUT_OF_RANGE"));
}

TEST_F(Validate, OnlyDoesNotCallAFileGoodThatCannotBeRead) {
    const std::string file = writeFile(folder / "cut.src", triangleFile().substr(0, 30));
    EXPECT_THAT(codes(json({file, "--only", "NORMAL_LENGTH"}, 1)), ElementsAre("HEADER_TRUNCATED"));
}

TEST_F(Validate, FileThatCannotBeOpenedIsStatus3EvenWhenItsCodeIsIgnored) {
    EXPECT_EQ(runCommand({"validate", folder / "none.src"}).status, 3);
    const CommandResult result = runCommand({"validate", folder / "none.src", "--ignore", "UNREADABLE"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.out, HasSubstr("none.src: cannot be checked\n"));
    EXPECT_EQ(runCommand({"validate", folder / "none.src", "--max", "0"}).status, 3);
}

TEST_F(Validate, UnknownCodeIsAUsageErrorWithTheNearestOne) {
    const CommandResult result = runCommand({"validate", good(), "--only", "INDEX_OUT_OF_RANG"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("Did you mean \"INDEX_OUT_OF_RANGE\"?"));
}

TEST_F(Validate, MaxLimitsWhatIsShownButNotWhatIsCounted) {
    const std::string file = broken();
    const CommandResult result = runCommand({"validate", file, "--max", "0"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, Not(HasSubstr("INDEX_OUT_OF_RANGE")));
    EXPECT_THAT(result.out, HasSubstr("more finding"));
    EXPECT_THAT(result.out, HasSubstr(file + ": broken: 1 error"));
}

TEST_F(Validate, WorstFindingsAreShownFirst) {
    Editable file(triangleFile());
    file.data[4] = 7;
    const std::string path = writeFile(folder / "both.src", file.file() + "12345");
    EXPECT_THAT(codes(json({path, "--max", "2"}, 1)), ElementsAre("INDEX_OUT_OF_RANGE", "TRAILING_BYTES"));
}

TEST_F(Validate, FolderStandsForItsSrcFilesAtAnyDepth) {
    std::filesystem::create_directory(folder / "deep");
    good("a.src");
    broken("deep/b.src");
    writeFile(folder / "c.txt", "no SRC file");
    const CommandResult result = runCommand({"validate", folder.path().string()});
    EXPECT_EQ(result.status, 1);
    EXPECT_LT(result.out.find("a.src: valid"), result.out.find("deep/b.src: broken"));
    EXPECT_THAT(result.out, Not(HasSubstr("c.txt")));
    EXPECT_THAT(result.out, EndsWith("2 files: 1 valid, 1 broken\n"));
}

TEST_F(Validate, FolderWithoutSrcFilesIsAnInputError) {
    const CommandResult result = runCommand({"validate", folder.path().string()});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("no file in this folder ends in \".src\""));
}

TEST_F(Validate, ThreadsChangeNothingInTheOutput) {
    for (int i = 0; i < 9; ++i) {
        const std::string number = std::to_string(i);
        i % 3 == 0 ? broken(number + ".src") : i % 3 == 1 ? doubtful(number + ".src") : good(number + ".src");
    }
    const CommandResult one = runCommand({"validate", folder.path().string(), "-j", "1"});
    const CommandResult many = runCommand({"validate", folder.path().string(), "-j", "7"});
    EXPECT_EQ(one.status, 1);
    EXPECT_EQ(one.out, many.out);
    EXPECT_THAT(one.out, EndsWith("9 files: 3 valid, 3 with warnings, 3 broken\n"));
}

TEST_F(Validate, QuietNamesOnlyFilesThatAreNotValid) {
    good("a.src");
    const std::string bad = broken("b.src");
    const CommandResult result = runCommand({"validate", "-q", folder.path().string()});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, testing::StartsWith(bad + ": broken: 1 error"));
    EXPECT_THAT(result.out, Not(HasSubstr("INDEX_OUT_OF_RANGE")));
    EXPECT_THAT(result.out, Not(HasSubstr("a.src")));
}

TEST_F(Validate, JsonTellsEveryFindingAndASummary) {
    const picojson::value report = json({broken(), "--only", "INDEX_OUT_OF_RANGE"}, 1);
    const auto file = report.get("files").get(0);
    EXPECT_EQ(file.get("verdict").get<std::string>(), "broken");
    EXPECT_EQ(file.get("errors").get<double>(), 1);
    const auto finding = file.get("findings").get(0);
    EXPECT_EQ(finding.get("severity").get<std::string>(), "error");
    EXPECT_EQ(finding.get("path").get<std::string>().substr(0, 17), "/meshes/0/indices");
    EXPECT_THAT(finding.get("detail").get<std::string>(), HasSubstr("7"));
    EXPECT_EQ(report.get("summary").get("broken").get<double>(), 1);
    EXPECT_EQ(report.get("summary").get("files").get<double>(), 1);
}

TEST_F(Validate, StandardInputIsReadForADash) {
    std::istringstream in(triangleFile());
    std::ostringstream out, err;
    EXPECT_EQ(kelsrc::cli::run({"validate", "-"}, in, out, err), 0);
    EXPECT_THAT(out.str(), HasSubstr("standard input: valid"));
    EXPECT_EQ(runCommand({"validate", "-", "-"}).status, 2);
}

} // namespace
