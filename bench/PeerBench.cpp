// The same geometry written by tinygltf as GLB, in the same run.

#include "Scenes.h"

#include <benchmark/benchmark.h>

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
#endif
#include <tiny_gltf.h>
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

#include <cstring>
#include <string>

namespace {

using namespace kel::bench;

/// One buffer, a view and an accessor per attribute, a mesh and a node per mesh, as exporters write it.
tinygltf::Model toGltf(const Scene& s) {
    tinygltf::Model model;
    model.asset.version = "2.0";
    model.buffers.resize(1);
    auto& bytes = model.buffers[0].data;
    bytes.reserve(s.inputBytes());
    const auto add = [&](const void* data, std::size_t size, int target, int componentType, int type,
                         std::size_t count) {
        tinygltf::BufferView view;
        view.buffer = 0;
        view.byteOffset = bytes.size();
        view.byteLength = size;
        view.target = target;
        const auto* from = static_cast<const unsigned char*>(data);
        bytes.insert(bytes.end(), from, from + size);
        model.bufferViews.push_back(view);
        tinygltf::Accessor accessor;
        accessor.bufferView = static_cast<int>(model.bufferViews.size()) - 1;
        accessor.componentType = componentType;
        accessor.count = count;
        accessor.type = type;
        model.accessors.push_back(accessor);
        return static_cast<int>(model.accessors.size()) - 1;
    };
    const Sphere& sphere = s.sphere;
    const std::size_t vertices = sphere.positions.size() / 3;
    const bool narrow = vertices <= 65535;
    const std::vector<std::uint16_t> indices16(sphere.indices.begin(), sphere.indices.end());
    tinygltf::Scene root;
    for (std::size_t i = 0; i < s.meshes; ++i) {
        tinygltf::Primitive primitive;
        primitive.mode = TINYGLTF_MODE_TRIANGLES;
        primitive.attributes["POSITION"] =
            add(sphere.positions.data(), vertices * 12, TINYGLTF_TARGET_ARRAY_BUFFER,
                TINYGLTF_COMPONENT_TYPE_FLOAT, TINYGLTF_TYPE_VEC3, vertices);
        model.accessors.back().minValues = {-0.5, -0.5, -0.5};
        model.accessors.back().maxValues = {0.5, 0.5, 0.5};
        primitive.attributes["NORMAL"] =
            add(sphere.normals.data(), vertices * 12, TINYGLTF_TARGET_ARRAY_BUFFER,
                TINYGLTF_COMPONENT_TYPE_FLOAT, TINYGLTF_TYPE_VEC3, vertices);
        primitive.attributes["TEXCOORD_0"] =
            add(sphere.texcoords.data(), vertices * 8, TINYGLTF_TARGET_ARRAY_BUFFER,
                TINYGLTF_COMPONENT_TYPE_FLOAT, TINYGLTF_TYPE_VEC2, vertices);
        primitive.indices =
            add(narrow ? static_cast<const void*>(indices16.data()) : sphere.indices.data(),
                s.indexBytes() / s.meshes, TINYGLTF_TARGET_ELEMENT_ARRAY_BUFFER,
                narrow ? TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT : TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT,
                TINYGLTF_TYPE_SCALAR, sphere.indices.size());
        tinygltf::Mesh mesh;
        mesh.name = std::to_string(i);
        mesh.primitives.push_back(primitive);
        model.meshes.push_back(mesh);
        tinygltf::Node node;
        node.mesh = static_cast<int>(i);
        model.nodes.push_back(node);
        root.nodes.push_back(static_cast<int>(i));
    }
    model.scenes.push_back(root);
    model.defaultScene = 0;
    return model;
}

void tinygltfGlb(benchmark::State& state, char name) {
    const Scene& s = scene(name);
    std::size_t bytes = 0;
    for (auto _ : state) {
        CountingStream out;
        tinygltf::Model model = toGltf(s);
        tinygltf::TinyGLTF writer;
        writer.WriteGltfSceneToStream(&model, out, false, true);
        bytes = out.bytes();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
    state.counters["file_MB"] = static_cast<double>(bytes) / 1e6;
    state.counters["peak_MB"] = static_cast<double>(peakMemoryOf([&] {
                                    CountingStream out;
                                    tinygltf::Model model = toGltf(s);
                                    tinygltf::TinyGLTF writer;
                                    writer.WriteGltfSceneToStream(&model, out, false, true);
                                })) /
                                1e6;
}

} // namespace

BENCHMARK_CAPTURE(tinygltfGlb, a, 'a')->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(tinygltfGlb, b, 'b')->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(tinygltfGlb, c, 'c')->Unit(benchmark::kMillisecond);
