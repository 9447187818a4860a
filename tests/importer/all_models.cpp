// Imports every file below a folder and says which of them end otherwise than with a result or a refusal, and which
// a reader did not survive. Not a test: it takes about a minute.
//
//     all_models [FOLDER]

#include <kel/importer/Importer.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace {

const char* importOne(const std::filesystem::path& path) {
    using kel::importer::ImportCode;
    try {
        const auto result = kel::importer::importModel(path);
        return result.input.meshes.empty() ? "failed" : "imported";
    } catch (const kel::importer::ImportError& error) {
        const bool isOver = error.code() == ImportCode::READER_FAILED ||
                            error.code() == ImportCode::TIME_LIMIT ||
                            error.code() == ImportCode::MEMORY_LIMIT;
        if (isOver) std::printf("%s\n", error.what());
        return error.remedy().empty() ? "failed" : isOver ? "not survived" : "refused";
    } catch (const std::exception& error) {
        std::printf("%s: %s\n", path.c_str(), error.what());
        return "failed";
    }
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(argc > 1 ? argv[1] : "/usr/share/assimp/models")) {
        if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());

    std::map<std::string, std::size_t> counts;
    for (const auto& path : files)
        ++counts[importOne(path)];
    std::printf("%zu files", files.size());
    for (const auto& [outcome, count] : counts)
        std::printf(", %zu %s", count, outcome.c_str());
    std::printf("\n");
    return counts["failed"] == 0 ? 0 : 1;
}
