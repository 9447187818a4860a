// kelsrc_scenes FOLDER
//
// The scenes of the comparisons as files, in every mode and as plain GLB: a-uncompressed.src, a-plain.glb and
// so on. The spheres lie in a grid here, since these files are drawn.

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
    write(path("plain.glb"), name, writeTinygltf);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: kelsrc_scenes FOLDER\n";
        return 2;
    }
    try {
        std::filesystem::create_directories(argv[1]);
        for (const char name : {'a', 'b', 'c'})
            writeScene(argv[1], name);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "kelsrc_scenes: " << error.what() << '\n';
        return 1;
    }
}
