// The library without the command: models from memory, from streams and as meshes.

#include <kel/convert/AtomicFile.h>
#include <kel/convert/Convert.h>
#include <reader/Files.h>
#include <support/TempFolder.h>

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

using namespace kel::convert;
using namespace kel::tests;
using kel::prepare::Target;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const char* const SQUARE_OBJ = "o square\nv 0 0 0\nv 2 0 0\nv 2 2 0\nv 0 2 0\nf 1 2 3\nf 1 3 4\n";

std::string converted(const Source& source, const Recipe& recipe = {}, const ConvertOptions& options = {},
                      ConvertReport* report = nullptr) {
    std::ostringstream out;
    ConvertReport made = convert(source, recipe, Destination::ofStream(out, "the stream"), options);
    if (report) *report = std::move(made);
    return out.str();
}

template<typename Work>
ConvertCode codeOf(const Work& work, std::string* subject = nullptr) {
    try {
        work();
    } catch (const ConvertError& error) {
        if (subject) *subject = error.subject();
        return error.code();
    }
    ADD_FAILURE() << "nothing was thrown";
    return ConvertCode::CANCELLED;
}

class ConvertFiles : public testing::Test {
protected:
    std::string content(const char* name) const {
        std::ifstream in(folder / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    void write(const char* name, const std::string& text) const { std::ofstream(folder / name) << text; }

    const kel::tests::TempFolder temporary;
    const std::filesystem::path folder = temporary.path();
};

TEST(Convert, BytesInMemoryBecomeAFileInAStream) {
    ConvertReport report;
    ConvertOptions options;
    options.list = true;
    const std::string file = converted(Source::ofBytes(SQUARE_OBJ, "square.obj"), {}, options, &report);
    const auto read = reader_fixture::read(file);
    ASSERT_EQ(read.meshes().size(), 1u);
    EXPECT_EQ(decodeMesh(read, read.meshes()[0]).indices.size(), 6u);
    EXPECT_EQ(report.bytesIn, std::string(SQUARE_OBJ).size());
    EXPECT_EQ(report.bytesOut, file.size());
    EXPECT_EQ(report.counts.meshes, 1u);
    EXPECT_EQ(report.counts.triangles, 2u);
    EXPECT_EQ(report.counts.vertices, 4u);
    ASSERT_EQ(report.written.size(), 1u);
    EXPECT_EQ(report.written[0].name, "square");
    EXPECT_TRUE(report.written[0].error.has_value());
}

TEST(Convert, EverySourceGivesTheSameBytes) {
    Recipe recipe;
    recipe.target = Target::PRESET_CMP1;
    const std::string bytes = converted(Source::ofBytes(SQUARE_OBJ, "square.obj"), recipe);
    std::istringstream in(SQUARE_OBJ);
    EXPECT_EQ(converted(Source::ofStream(in, "square.obj"), recipe), bytes);
    const auto imported =
        kel::importer::importModel(SQUARE_OBJ, std::string(SQUARE_OBJ).size(), "square.obj");
    EXPECT_EQ(converted(Source::ofInput(imported.input, "square"), recipe), bytes);
}

TEST(Convert, VerifyingChangesNoBytes) {
    ConvertOptions verify;
    verify.verify = true;
    for (const auto& target : {std::optional<Target>(), std::optional(Target::PRESET_CMP1),
                               std::optional(Target::POSITION_NORMAL_COMPRESSED)}) {
        Recipe recipe;
        recipe.target = target;
        const Source source = Source::ofBytes(SQUARE_OBJ, "square.obj");
        EXPECT_EQ(converted(source, recipe, verify), converted(source, recipe));
    }
}

TEST(Convert, MeshesOfTheCallerStayAsTheyAre) {
    auto input = fixture::twoMaterials();
    for (const auto& mesh : input.meshes)
        input.metaData[mesh] = std::make_shared<std::map<std::string, std::string>>(
            std::map<std::string, std::string>{{"source", R"({"file":"a","unit":1})"}});
    const auto meshes = input.meshes;
    const auto positions = fixture::floatsOf(*meshes[0], "position");
    Recipe recipe;
    recipe.scale = 2.0;
    recipe.toUnit = 0.001;
    recipe.optimize = true;
    recipe.target = Target::PRESET_CMP1;
    const std::string file = converted(Source::ofInput(input, "scene"), recipe);
    EXPECT_THAT(file, HasSubstr(R"("source":{"file":"a","unit":0.001})"));
    EXPECT_EQ(input.meshes, meshes);
    EXPECT_EQ(fixture::floatsOf(*meshes[0], "position"), positions);
    for (const auto& mesh : meshes) {
        ASSERT_EQ(input.metaData.at(mesh)->size(), 1u);
        EXPECT_EQ(input.metaData.at(mesh)->at("source"), R"({"file":"a","unit":1})");
    }
}

TEST(Convert, MeshWithoutThreeFloatPositionsIsRefusedInsteadOfWrittenForEver) {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute("position", 2, std::vector<float>{0, 0, 1, 0, 0, 1});
    mesh->setIndices(std::vector<std::uint16_t>{0, 1, 2});
    Recipe recipe;
    recipe.target = Target::POSITION_COMPRESSED;
    const auto input = fixture::inputOf({mesh});
    EXPECT_EQ(codeOf([&] { converted(Source::ofInput(input, "flat"), recipe); }),
              ConvertCode::PROBLEMS_FOUND);
}

TEST(Convert, MeshThatIsNoneIsRefused) {
    const auto input = fixture::inputOf({fixture::unitSquare(), nullptr});
    for (const auto& target : {std::optional<Target>(), std::optional(Target::PRESET_DEFAULT)}) {
        Recipe recipe;
        recipe.target = target;
        EXPECT_EQ(codeOf([&] { converted(Source::ofInput(input, "holes"), recipe); }),
                  ConvertCode::PROBLEMS_FOUND);
    }
}

TEST(Convert, RecipeOutOfRangeIsRefusedBeforeAnythingIsRead) {
    Recipe recipe;
    recipe.scale = 0.0;
    EXPECT_EQ(codeOf([&] { converted(Source::ofFile("there/is/none.obj"), recipe); }),
              ConvertCode::RECIPE_OUT_OF_RANGE);
}

TEST(Convert, ProgressCancels) {
    for (const std::string stop : {"reading", "preparing", "writing", "verifying"}) {
        std::vector<std::string> seen;
        ConvertOptions options;
        options.verify = true;
        options.progress = [&](const char* stage, double) {
            if (seen.empty() || seen.back() != stage) seen.emplace_back(stage);
            return stage != stop;
        };
        std::string subject;
        EXPECT_EQ(
            codeOf([&] { converted(Source::ofBytes(SQUARE_OBJ, "square.obj"), {}, options); }, &subject),
            ConvertCode::CANCELLED);
        EXPECT_EQ(subject, "square.obj");
        ASSERT_FALSE(seen.empty());
        EXPECT_EQ(seen.back(), stop);
    }
}

TEST(Convert, StreamThatTakesNothingIsToldByItsName) {
    std::ostream broken(nullptr);
    std::string subject;
    EXPECT_EQ(codeOf(
                  [&] {
                      convert(Source::ofBytes(SQUARE_OBJ, "square.obj"), {},
                              Destination::ofStream(broken, "the stream"));
                  },
                  &subject),
              ConvertCode::STREAM_FAILED);
    EXPECT_EQ(subject, "the stream");
}

TEST_F(ConvertFiles, FileIsReplacedInOneStep) {
    write("out.src", "old");
    write("square.obj", SQUARE_OBJ);
    std::string during;
    ConvertOptions options;
    options.verify = true;
    options.progress = [&](const char* stage, double) {
        if (stage == std::string("verifying")) during = content("out.src");
        return true;
    };
    const Source source = Source::ofFile(folder / "square.obj");
    const ConvertReport report = convert(source, {}, Destination::ofFile(folder / "out.src"), options);
    EXPECT_EQ(during, "old");
    EXPECT_EQ(content("out.src"), converted(source));
    EXPECT_EQ(report.bytesOut, content("out.src").size());
}

TEST_F(ConvertFiles, FileOfACancelledConversionIsStillAsItWas) {
    write("out.src", "old");
    ConvertOptions options;
    options.verify = true;
    options.progress = [](const char* stage, double) { return stage != std::string("verifying"); };
    EXPECT_EQ(codeOf([&] {
                  convert(Source::ofBytes(SQUARE_OBJ, "square.obj"), {},
                          Destination::ofFile(folder / "out.src"), options);
              }),
              ConvertCode::CANCELLED);
    EXPECT_EQ(content("out.src"), "old");
}

TEST_F(ConvertFiles, ModelItselfIsNeverOverwritten) {
    write("square.obj", SQUARE_OBJ);
    EXPECT_EQ(codeOf([&] {
                  convert(Source::ofFile(folder / "square.obj"), {},
                          Destination::ofFile(folder / "square.obj"));
              }),
              ConvertCode::OUTPUT_IS_SOURCE);
    EXPECT_EQ(content("square.obj"), SQUARE_OBJ);
}

TEST_F(ConvertFiles, TemporaryNameIsToldBeforeTheFileIsMade) {
    std::vector<std::string> names;
    ProcessHooks hooks;
    hooks.onTemporaryFile = [&](const std::string& path) {
        EXPECT_FALSE(std::filesystem::exists(path));
        names.push_back(path);
        return std::shared_ptr<void>(nullptr, [&](void*) { names.clear(); });
    };
    {
        AtomicFile file(folder / "new", hooks, AtomicFile::Naming::ALWAYS_NAMED);
        ASSERT_EQ(names.size(), 1u);
        EXPECT_EQ(names[0], file.temporaryPath());
        file.commit();
    }
    EXPECT_THAT(names, IsEmpty());
}

} // namespace
