// Imports every file below a folder, each in a process of its own, and says which of them end otherwise than
// with a result or a refusal. Not a test: it takes about a minute.
//
//     all_models [FOLDER]

#include <kel/importer/Importer.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr int REFUSED = 3;
constexpr int WRONG = 4;
constexpr unsigned SECONDS = 60;

int importOne(const std::filesystem::path& path) {
    try {
        const auto result = kel::importer::importModel(path);
        return result.input.meshes.empty() ? WRONG : 0;
    } catch (const kel::importer::ImportError& error) {
        return error.remedy().empty() ? WRONG : REFUSED;
    } catch (...) {
        return WRONG;
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
    for (const auto& path : files) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(SECONDS);
            _exit(importOne(path));
        }
        int status = 0;
        if (child < 0 || waitpid(child, &status, 0) < 0) {
            std::perror("all_models");
            return 1;
        }
        const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        if (code == 0) {
            ++counts["imported"];
        } else if (code == REFUSED) {
            ++counts["refused"];
        } else {
            ++counts["failed"];
            std::printf("%s: %s\n", path.c_str(),
                        WIFSIGNALED(status) ? strsignal(WTERMSIG(status)) : "neither a result nor a refusal");
        }
    }
    std::printf("%zu files: %zu imported, %zu refused, %zu failed\n", files.size(), counts["imported"],
                counts["refused"], counts["failed"]);
    return counts["failed"] == 0 ? 0 : 1;
}
