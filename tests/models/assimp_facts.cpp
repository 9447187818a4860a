// assimp_facts FILE
// assimp_facts --list FOLDER
//
// What Assimp reads in a model, as JSON, for the table of models; or the files below a folder that have the extension of
// a model.

#include "AssimpReading.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <vector>

int main(int argc, char** argv) {
    if (argc == 3 && std::string(argv[1]) == "--list") {
        const Assimp::Importer importer;
        std::vector<std::string> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[2])) {
            const std::string extension = entry.path().extension().string();
            if (entry.is_regular_file() && !extension.empty() && importer.IsExtensionSupported(extension))
                files.push_back(std::filesystem::relative(entry.path(), argv[2]).string());
        }
        std::sort(files.begin(), files.end());
        for (const std::string& file : files)
            std::puts(file.c_str());
        return 0;
    }
    if (argc != 2) {
        std::fputs("usage: assimp_facts FILE | --list FOLDER\n", stderr);
        return 2;
    }
    try {
        const kel::tests::AssimpReading read(argv[1]);
        std::printf(R"({"meshes":%zu,"triangles":%zu,"lines":%zu,"points":%zu,"vertices":[%zu,%zu],)",
                    read.meshes, read.triangles, read.lines, read.points, read.places, read.vertices);
        std::printf("\"min\":[%.17g,%.17g,%.17g],\"max\":[%.17g,%.17g,%.17g]}\n", read.min[0], read.min[1],
                    read.min[2], read.max[0], read.max[1], read.max[2]);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
