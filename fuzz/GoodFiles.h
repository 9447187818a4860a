#pragma once

// Good files of both writers in every mode, small enough to be fuzzed.

#include <support/Meshes.h>

#include <kel/src/DefaultSrcWriter.h>
#include <kel/src/SrcWriter.h>

#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace fuzz {

constexpr int MODES = 5; ///< "default", "CMP1", and the public writer's three

/// Keeps what the writers print on the standard streams away from the fuzzer's own output.
class Silence {
public:
    Silence() : out(std::cout.rdbuf(nowhere.rdbuf())), err(std::cerr.rdbuf(nowhere.rdbuf())) {}
    ~Silence() {
        std::cout.rdbuf(out);
        std::cerr.rdbuf(err);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    std::ostringstream nowhere;
    std::streambuf* out;
    std::streambuf* err;
};

inline std::string write(kel::src::SrcWriterInput& input, int mode) {
    const Silence silence;
    std::ostringstream out;
    if (mode < 2) {
        input.useCompressedPreset = mode == 1;
        kel::src::writeMeshSrcDefault(input, out);
    } else {
        kel::src::SrcWriter::write(input, out, static_cast<kel::src::SrcWriter::Compression>(mode - 2));
    }
    return out.str();
}

inline std::vector<std::string> goodFiles() {
    std::vector<std::string> files;
    for (int mode = 0; mode < MODES; ++mode) {
        auto two = fixture::inputOf({fixture::unitSquare(), fixture::tetrahedron()});
        const auto red = fixture::material(1, 0, 0);
        two.materials = {red};
        two.meshMaterials[two.meshes[0]] = red;
        (*two.metaData[two.meshes[1]])["fit"] = R"({"position":{"offset":[1,2,3],"scale":[2,2,2]}})";
        auto one = fixture::inputOf({fixture::noNormals()});
        kel::src::SrcWriterInput none;
        files.push_back(write(two, mode));
        files.push_back(write(one, mode));
        files.push_back(write(none, mode));
    }
    return files;
}

} // namespace fuzz
