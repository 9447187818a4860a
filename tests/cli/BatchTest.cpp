// Many models at once: folders, names, failures, threads, reports.

#include "CommandRun.h"
#include "Models.h"

#include <support/SrcText.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>

namespace {

using namespace kel::tests;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Batch : public testing::Test {
protected:
    Batch() {
        std::filesystem::create_directories(folder / "in/deep/er");
        writeFile(folder / "in/plate.obj", PLATE_OBJ);
        writeFile(folder / "in/deep/a.gltf", gltf({{"a"}}));
        writeFile(folder / "in/deep/er/B.OBJ", PLATE_OBJ);
        writeFile(folder / "in/readme.txt", "no model");
        writeFile(folder / "in/plate.mtl", "newmtl m\n");
    }

    /// The files below a folder, by path within it.
    std::vector<std::string> filesIn(const std::string& name) const {
        std::vector<std::string> files;
        if (!std::filesystem::exists(folder / name)) return files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder / name)) {
            if (entry.is_regular_file())
                files.push_back(entry.path().lexically_relative(folder / name).string());
        }
        std::sort(files.begin(), files.end());
        return files;
    }

    TempFolder folder;
    CommandResult result;
};

TEST_F(Batch, ConvertsTheModelsOfAFolderAndKeepsItsFolders) {
    result = runCommand({"convert", folder / "in", "-o", folder / "out"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(filesIn("out"), ElementsAre("deep/a.src", "deep/er/B.src", "plate.src"));
    EXPECT_THAT(result.err, HasSubstr("3 of 3 models converted: 3 meshes, 5 triangles, "));
}

TEST_F(Batch, SeveralFilesGoIntoOneFolder) {
    result =
        runCommand({"convert", folder / "in/plate.obj", folder / "in/deep/a.gltf", "-o", folder / "out"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(filesIn("out"), ElementsAre("a.src", "plate.src"));
}

TEST_F(Batch, SeveralFoldersKeepTheirOwnNames) {
    result = runCommand({"convert", folder / "in/deep/er/", folder / "in/deep", folder / "in/plate.obj", "-o",
                         folder / "out"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(filesIn("out"), ElementsAre("deep/a.src", "deep/er/B.src", "er/B.src", "plate.src"));
}

TEST_F(Batch, ModelsThatDifferInTheirExtensionOnlyKeepIt) {
    writeFile(folder / "in/plate.gltf", gltf({{"other"}}));
    result = runCommand({"convert", folder / "in", "-o", folder / "out"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(filesIn("out"),
                ElementsAre("deep/a.src", "deep/er/B.src", "plate.gltf.src", "plate.obj.src"));
}

TEST_F(Batch, TwoModelsForOneFileAreRefusedButForTheFirst) {
    writeFile(folder / "in/deep/plate.obj", PLATE_OBJ);
    result =
        runCommand({"convert", folder / "in/plate.obj", folder / "in/deep/plate.obj", "-o", folder / "out"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(filesIn("out"), ElementsAre("plate.src"));
    EXPECT_THAT(result.err, HasSubstr("would be written to "));
}

TEST_F(Batch, AFailureDoesNotStopTheOthers) {
    writeFile(folder / "in/deep/broken.obj", "");
    result = runCommand({"convert", folder / "in", "-o", folder / "out"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(filesIn("out"), ElementsAre("deep/a.src", "deep/er/B.src", "plate.src"));
    EXPECT_THAT(result.err, HasSubstr("broken.obj: the file is empty"));
    EXPECT_THAT(result.err, HasSubstr("3 of 4 models converted, 1 failed:"));
}

TEST_F(Batch, FailFastBeginsNothingAfterAFailure) {
    writeFile(folder / "in/broken.obj", ""); // comes first
    result = runCommand({"convert", folder / "in", "-o", folder / "out", "--fail-fast"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(filesIn("out"), IsEmpty());
    EXPECT_THAT(result.err, HasSubstr("0 of 4 models converted, 1 failed, 3 not tried"));
}

TEST_F(Batch, AnyNumberOfThreadsGivesTheSameFilesAndTheSameReport) {
    for (int i = 0; i < 12; ++i) {
        writeFile(folder / ("in/m" + std::to_string(i) + ".gltf"),
                  gltf({{"a", true}, {"b", false, i % 2 == 0}, {"c", i % 3 == 0}}, "{\"name\":\"red\"}"));
    }
    writeFile(folder / "in/m5.gltf", "");
    const auto report = [&](const std::string& out, const char* threads) {
        result = runCommand({"convert", folder / "in", "-o", folder / out, threads, "--list"});
        EXPECT_EQ(result.status, 1);
        // Only the folder and the time taken differ.
        std::string text = result.out + result.err.substr(0, result.err.rfind(", "));
        for (std::size_t at; (at = text.find("/" + out + "/")) != std::string::npos;)
            text.replace(at, out.size() + 2, "/OUT/");
        return text;
    };
    const std::string expected = report("one", "-j1");
    for (const char* threads : {"-j3", "-j0", "-j100"}) {
        EXPECT_EQ(report("many", threads), expected);
        ASSERT_EQ(filesIn("many"), filesIn("one"));
        for (const auto& file : filesIn("one"))
            EXPECT_TRUE(contentOf(folder / ("one/" + file)) == contentOf(folder / ("many/" + file))) << file;
        std::filesystem::remove_all(folder / "many");
    }
}

TEST_F(Batch, AFolderWithoutAModelIsAnError) {
    std::filesystem::create_directory(folder / "none");
    writeFile(folder / "none/readme.txt", "no model");
    result = runCommand({"convert", folder / "none", "-o", folder / "out"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("there is no model in this folder"));
    EXPECT_THAT(filesIn("out"), IsEmpty());
}

TEST_F(Batch, TheOutputMustBeAFolderOrBecomeOne) {
    writeFile(folder / "file", "old");
    EXPECT_EQ(runCommand({"convert", folder / "in", "-o", folder / "file"}).status, 4);
    EXPECT_EQ(contentOf(folder / "file"), "old");
    EXPECT_EQ(runCommand({"convert", folder / "in", "-o", folder / "missing/out"}).status, 4);
    EXPECT_EQ(runCommand({"convert", folder / "in", "-o", folder / "new/"}).status, 0);
    EXPECT_EQ(filesIn("new").size(), 3u);
}

TEST_F(Batch, StandardStreamsAreForOneModelOnly) {
    EXPECT_EQ(runCommand({"convert", folder / "in", "-o", "-"}).status, 2);
    EXPECT_EQ(runCommand({"convert", "-", folder / "in", "-o", folder / "out"}).status, 2);
}

// ---- The report for programs ----------------------------------------------------------------------------

picojson::value parsed(const std::string& text) {
    picojson::value value;
    const std::string error = picojson::parse(value, text);
    if (!error.empty()) throw std::runtime_error(error);
    return value;
}

TEST_F(Batch, JsonReportsEveryFile) {
    writeFile(folder / "in/broken.obj", "");
    result = runCommand({"convert", folder / "in", "-o", folder / "out", "--json"});
    EXPECT_EQ(result.status, 1);
    const auto report = parsed(result.out);
    const auto& files = report.get("files");
    ASSERT_EQ(files.get<picojson::array>().size(), 4u);

    const auto& broken = files.get(0);
    EXPECT_EQ(broken.get("input").to_str(), folder / "in/broken.obj");
    EXPECT_EQ(broken.get("status").to_str(), "3");
    EXPECT_THAT(broken.get("error").to_str(), HasSubstr("is empty"));

    const auto& plate = files.get(3);
    EXPECT_EQ(plate.get("input").to_str(), folder / "in/plate.obj");
    EXPECT_EQ(plate.get("output").to_str(), folder / "out/plate.src");
    EXPECT_EQ(plate.get("status").to_str(), "0");
    EXPECT_EQ(plate.get("writer").to_str(), "public");
    EXPECT_EQ(plate.get("mode").to_str(), "position-normal");
    EXPECT_EQ(plate.get("meshes").to_str(), "1");
    EXPECT_EQ(plate.get("triangles").to_str(), "2");
    EXPECT_EQ(plate.get("vertices").to_str(), "4");
    EXPECT_EQ(plate.get("bytesIn").get<double>(), static_cast<double>(std::string(PLATE_OBJ).size()));
    EXPECT_EQ(plate.get("bytesOut").get<double>(),
              static_cast<double>(contentOf(folder / "out/plate.src").size()));
    EXPECT_NEAR(plate.get("errorReached").get("position").get<double>(), 0.0, 1e-9);
    EXPECT_EQ(plate.get("errorReached").get("normalDegrees").to_str(), "0");
    EXPECT_TRUE(plate.get("seconds").is<double>());
    EXPECT_FALSE(plate.contains("list"));

    EXPECT_EQ(report.get("summary").get("converted").to_str(), "3");
    EXPECT_EQ(report.get("summary").get("failed").to_str(), "1");
}

TEST_F(Batch, JsonTellsWhatWasDroppedAndListsMeshesWhenAsked) {
    const std::string input = writeFile(folder / "uv.gltf", gltf({{"a", true}}));
    result = runCommand(
        {"convert", input, "-o", folder / "out.src", "--json", "--list", "--mode=position-normal"});
    ASSERT_EQ(result.status, 0) << result.err;
    const auto file = parsed(result.out).get("files").get(0);
    EXPECT_EQ(file.get("dropped").get(0).get("kind").to_str(), "\"texcoord\" attributes");
    EXPECT_EQ(file.get("dropped").get(0).get("count").to_str(), "1");
    const auto& mesh = file.get("list").get(0);
    EXPECT_EQ(mesh.get("name").to_str(), "a");
    EXPECT_EQ(mesh.get("bytes").to_str(), "30"); // three indices of two bytes, three vertices of eight
    EXPECT_TRUE(mesh.get("errorReached").contains("position"));
}

TEST_F(Batch, JsonOfAFailedModelIsWrittenToo) {
    result = runCommand({"convert", folder / "no.obj", "-o", folder / "out.src", "--json"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(parsed(result.out).get("files").get(0).get("status").to_str(), "3");
}

TEST_F(Batch, JsonNamesThePresetOfTheContainerWriter) {
    result =
        runCommand({"convert", folder / "in/plate.obj", "-o", folder / "out.src", "--json", "--preset=CMP1"});
    const auto file = parsed(result.out).get("files").get(0);
    EXPECT_EQ(file.get("writer").to_str(), "container");
    EXPECT_EQ(file.get("preset").to_str(), "CMP1");
    EXPECT_FALSE(file.contains("mode"));
}

TEST_F(Batch, JsonIsUtf8WhateverTheFilesAreCalled) {
    const std::string input = writeFile(folder / "\xff\xc3\xa4\xed\xa0\x80.obj", PLATE_OBJ);
    result = runCommand({"convert", input, "-o", folder / "out.src", "--json"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(parsed(result.out).get("files").get(0).get("input").to_str(),
                testing::EndsWith("/\xef\xbf\xbd\xc3\xa4\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd.obj"));
}

} // namespace
