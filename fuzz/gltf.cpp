// A glTF or GLB into its reader, with the box and the parts of every mesh.

#include <gltf/GltfReader.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace kel::importer;
    // A copy of its own, so that a byte read behind it is one that the sanitizer knows.
    const std::vector<char> bytes(data, data + size);
    detail::ModelSource source;
    source.shown = source.name = source.path = "fuzzed.glb";
    source.bytes = bytes.data();
    source.size = bytes.size();
    const ImportOptions options;
    detail::ProgressReporter progress(options.progress, source);
    try {
        const auto model = openGltf(source, options, progress);
        if (!model) return 0; // version 1
        for (std::size_t m = 0; m < model->meshes.size(); ++m) {
            if (m % 2 == 0) model->boxOf(m);
            for (const detail::ModelPart& part : model->takeMesh(m)) {
                for (const std::uint32_t index : part.indices) {
                    if (index >= part.vertices()) std::abort();
                }
                for (const detail::ModelAttribute& attribute : part.attributes) {
                    if (attribute.vertices() != part.vertices()) std::abort();
                }
            }
        }
    } catch (const ImportError&) {
    }
    return 0;
}
