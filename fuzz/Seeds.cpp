// fuzz_seeds TARGET FOLDER: writes the seeds of a fuzz target.

#include <fuzz/GoodFiles.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace {

std::vector<std::string> seedsOf(const std::string& target) {
    if (target == "read") return fuzz::goodFiles();
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
