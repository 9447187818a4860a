// Real models of many formats through the real command: each converts or is refused with a message, in
// reasonable time, and leaves nothing but a whole file. With KELSRC_ALL_MODELS set in the environment every
// file below the folder of the models is taken, what is no model included (target convert_all_models).

#include "ChildProcess.h"
#include "CommandRun.h"

#include <support/SrcText.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>

namespace {

using namespace kel::tests;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

const std::filesystem::path MODELS = "/usr/share/assimp/models";

std::vector<std::string> models() {
    std::vector<std::string> names;
    if (std::getenv("KELSRC_ALL_MODELS")) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(MODELS)) {
            if (entry.is_regular_file())
                names.push_back(std::filesystem::relative(entry.path(), MODELS).string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    std::istringstream list(contentOf(KELSRC_MODEL_LIST));
    for (std::string line; std::getline(list, line);) {
        if (!line.empty() && line[0] != '#') names.push_back(line);
    }
    return names;
}

double number(const picojson::value& object, const char* key) {
    return object.get(key).get<double>();
}

/// What holds for every file: lengths and offsets agree, and each mesh refers to as many elements of every
/// attribute as it has positions, so to none of another mesh.
void expectWholeFile(const std::string& name, std::size_t meshes) {
    const SrcText file(contentOf(name));
    double end = 0;
    for (const auto& [id, chunk] : file.json.get("bufferChunks").get<picojson::object>())
        end = std::max(end, number(chunk, "byteOffset") + number(chunk, "byteLength"));
    EXPECT_EQ(end, static_cast<double>(file.data.size()));

    const auto& views = file.json.get("accessors").get("attributeViews");
    const auto& entries = file.json.get("meshes").get<picojson::object>();
    EXPECT_EQ(entries.size(), meshes);
    std::set<std::string> seen;
    for (const auto& [id, mesh] : entries) {
        const auto& attributes = mesh.get("attributes").get<picojson::object>();
        ASSERT_EQ(attributes.count("position") + attributes.count("pos3us_nor2ub_oct"), 1u);
        const double vertices = number(mesh.get("meta"), "numOriginalVertices");
        for (const auto& [attribute, view] : attributes) {
            EXPECT_EQ(number(views.get(view.get<std::string>()), "count"), vertices)
                << id << ' ' << attribute;
            EXPECT_TRUE(seen.insert(view.get<std::string>()).second) << id << " shares its " << attribute;
        }
    }
}

class ModelSweep : public testing::TestWithParam<std::string> {};

INSTANTIATE_TEST_SUITE_P(Models, ModelSweep, testing::ValuesIn(models()), [](const auto& test) {
    std::string name = test.param;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
    return name;
});

TEST_P(ModelSweep, ConvertsOrSaysWhyNot) {
    TempFolder folder;
    const std::string model = (MODELS / GetParam()).string();
    const std::string output = folder / "out.src";
    ASSERT_TRUE(std::filesystem::exists(model));
    std::vector<std::string> ways{"--preset=default", "--preset=CMP1", "--mode=auto"};
    if (std::getenv("KELSRC_ALL_MODELS"))
        ways.insert(ways.end(), {"--mode=uncompressed", "--mode=position", "--mode=position-normal"});
    for (const std::string& how : ways) {
        SCOPED_TRACE(how);
        const ProcessResult result =
            runProcess({"convert", model, "-o", output, "--only-triangles", "--verify", "--list", how});
        if (result.status == 0) {
            EXPECT_THAT(folder.entries(), ElementsAre("out.src"));
            const auto lines =
                static_cast<std::size_t>(std::count(result.out.begin(), result.out.end(), '\n'));
            expectWholeFile(output, lines - 1);
            EXPECT_THAT(result.err, StartsWith(output + ": "));
            std::filesystem::remove(output);
        } else {
            EXPECT_EQ(result.status, 3) << result.err;
            EXPECT_THAT(result.err, StartsWith("kelsrc: error: " + model + ": "));
            EXPECT_THAT(folder.entries(), IsEmpty());
            EXPECT_THAT(result.out, IsEmpty());
        }
    }
}

} // namespace
