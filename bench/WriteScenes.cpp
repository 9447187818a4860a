// kelsrc_scenes FOLDER
// kelsrc_scenes --models FOLDER
//
// The scenes of the comparisons as files, in every mode and as plain GLB: a-uncompressed.src, a-plain.glb and
// so on; or the GLB files that bench/import.py measures. The spheres lie in a grid here, since these files are drawn.

#include "Peers.h"
#include "Scenes.h"

#include <kel/prepare/FitToRange.h>
#include <kel/prepare/SplitForShortIndices.h>
#include <kel/src/DefaultSrcWriter.h>
#include <kel/src/SrcWriter.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

using namespace kel::bench;
using kel::src::SrcWriter;
using kel::src::SrcWriterInput;

/// Each file is written from input of its own: writers add statistics to the metadata that they are given.
void write(const std::filesystem::path& path, char name,
           const std::function<void(const Scene&, std::ostream&)>& writer) {
    std::ofstream out(path, std::ios::binary);
    writer(makeScene(name, Places::GRID), out);
    out.close();
    if (!out) throw std::runtime_error("cannot write \"" + path.string() + '"');
}

void writeScene(const std::filesystem::path& folder, char name) {
    const auto path = [&](const std::string& rest) { return folder / (name + ("-" + rest)); };
    const auto writeMode = [&](const std::string& mode, SrcWriter::Compression compression) {
        write(path(mode + ".src"), name, [&](const Scene& scene, std::ostream& out) {
            SrcWriter::write(kel::prepare::splitForShortIndices(scene.input), out, compression);
        });
    };
    writeMode("uncompressed", SrcWriter::UNCOMPRESSED);
    writeMode("position", SrcWriter::POSITION_COMPRESSED);
    writeMode("position-normal", SrcWriter::POSITION_NORMAL_COMPRESSED);
    const auto writeContainer = [&](const std::string& preset, bool compressed) {
        write(path(preset + ".src"), name, [&](const Scene& scene, std::ostream& out) {
            // The compressed preset has room for -0.5 to 0.5 only; what moved a mesh there is in its
            // metadata.
            SrcWriterInput input = compressed ? kel::prepare::fitToRange(scene.input) : scene.input;
            input.useCompressedPreset = compressed;
            kel::src::writeMeshSrcDefault(input, out);
        });
    };
    writeContainer("container", false);
    writeContainer("container-cmp1", true);
    write(path("plain.glb"), name, [](const Scene& scene, std::ostream& out) { writeTinygltf(scene, out); });
}

/// What is imported: as many triangles, in one mesh or many, and one mesh that many nodes place.
void writeModels(const std::filesystem::path& folder) {
    struct Model {
        const char* name;
        std::size_t meshes, triangles, nodes;
    };
    constexpr Model MODELS[] = {{"1x1000000", 1, 1000000, 1},      {"1x3000000", 1, 3000000, 1},
                                {"1000x1000", 1000, 1000, 1},      {"20000x50", 20000, 50, 1},
                                {"10000-of-1000", 1, 1000, 10000}, {"10000-of-100", 1, 100, 10000}};
    for (const Model& model : MODELS) {
        const Scene scene = makeScene(model.meshes, model.triangles, Places::GRID);
        std::ofstream out(folder / (std::string(model.name) + ".glb"), std::ios::binary);
        writeTinygltf(scene, out, model.nodes);
        if (!out.flush()) throw std::runtime_error(std::string("cannot write ") + model.name);
    }
}

} // namespace

int main(int argc, char** argv) {
    const bool models = argc == 3 && std::string(argv[1]) == "--models";
    if (argc != 2 && !models) {
        std::cerr << "usage: kelsrc_scenes [--models] FOLDER\n";
        return 2;
    }
    try {
        std::filesystem::create_directories(argv[argc - 1]);
        if (models) {
            writeModels(argv[2]);
            return 0;
        }
        for (const char name : {'a', 'b', 'c'})
            writeScene(argv[1], name);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "kelsrc_scenes: " << error.what() << '\n';
        return 1;
    }
}
