// fuzz_seeds TARGET FOLDER: writes the seeds of a fuzz target.

#include <fuzz/GoodFiles.h>
#include <importer/GltfText.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

namespace {

/// The small ones among Debian's models. Where they are not installed there are fewer seeds.
void addModels(std::vector<std::string>& seeds) {
    constexpr std::uintmax_t LARGEST = 65536;
    std::error_code none;
    std::vector<std::filesystem::path> paths;
    for (std::filesystem::recursive_directory_iterator entry("/usr/share/assimp/models/glTF2", none), end;
         entry != end; ++entry) {
        const auto extension = entry->path().extension();
        if ((extension == ".glb" || extension == ".gltf") && entry->file_size() <= LARGEST)
            paths.push_back(entry->path());
    }
    std::sort(paths.begin(), paths.end());
    for (const auto& path : paths) {
        std::ifstream in(path, std::ios::binary);
        seeds.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
}

std::vector<std::string> seedsOf(const std::string& target) {
    if (target == "read") return fuzz::goodFiles();
    if (target == "gltf") {
        std::vector<std::string> seeds = {kel::importer::test::oneTriangle().glb(),
                                          kel::importer::test::oneTriangle().json()};
        addModels(seeds);
        return seeds;
    }
    if (target == "metadata") {
        return {"name\n\"bolt\"\n",
                "n\n42\nlist\n[1,2.5,{\"a\":null}]\n",
                "fit\n{\"position\":{\"offset\":[0,0,0],\"scale\":[2,2,2]}}\n",
                "plain\nhello\n",
                "\"\\\n\"\\u00e9\\ud83d\\ude00\"\n",
                "a\n{\"b\":[[[[true,false]]]]}\na\n1e300\n"};
    }
    // Bytes that other targets read as instructions: some of each kind.
    std::vector<std::string> seeds;
    for (int seed = 0; seed < 16; ++seed) {
        std::string bytes;
        unsigned state = static_cast<unsigned>(seed) * 2654435761u + 1;
        for (int i = 0; i < 16 << (seed % 5); ++i) {
            state = state * 1664525u + 1013904223u;
            bytes += static_cast<char>(state >> 24);
        }
        seeds.push_back(bytes);
    }
    return seeds;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: " << argv[0] << " TARGET FOLDER\n";
        return 2;
    }
    const std::filesystem::path folder(argv[2]);
    std::filesystem::create_directories(folder);
    int number = 0;
    for (const std::string& seed : seedsOf(argv[1])) {
        std::ofstream out(folder / ("seed" + std::to_string(number++)), std::ios::binary);
        out << seed;
        if (!out) return 4;
    }
}
