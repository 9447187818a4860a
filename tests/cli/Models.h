#pragma once

// Small models as text, each with geometry that can be checked by eye.

#include <picojson.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace kel::tests {

/// The square from (0, 0) to (2, 2) at z = 0 in two triangles, named "plate".
inline const char* const PLATE_OBJ = "o plate\n"
                                     "v 0 0 0\nv 2 0 0\nv 2 2 0\nv 0 2 0\n"
                                     "vn 0 0 1\n"
                                     "f 1//1 2//1 3//1\nf 1//1 3//1 4//1\n";

/// One mesh of a glTF file: triangles, unless told otherwise, along the x axis from `x` on.
struct GltfMesh {
    std::string name;
    bool texcoord = false, color = false, secondTexcoord = false;
    float x = 0.0f;
    int mode = 4; ///< 0 points, 1 lines, 4 triangles
};

/// A glTF file with everything inside. Each mesh has three vertices at (x, 0, 0), (x + 1, 0, 0), (x, 1, 0);
/// texcoord equals (x, y), color is (0.25, 0.5, 0.75).
inline std::string gltf(const std::vector<GltfMesh>& meshes, const std::string& material = "") {
    std::string data;
    std::string views, accessors, meshTexts, nodes, scene;
    int accessor = 0;
    const auto comma = [](std::string& text) {
        if (!text.empty()) text += ',';
    };
    const auto add = [&](const std::vector<float>& values, int components) {
        const std::size_t start = data.size();
        data.append(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(float));
        comma(views);
        views += "{\"buffer\":0,\"byteOffset\":" + std::to_string(start) +
                 ",\"byteLength\":" + std::to_string(data.size() - start) + "}";
        comma(accessors);
        accessors += "{\"bufferView\":" + std::to_string(accessor) +
                     ",\"componentType\":5126,\"count\":3,\"type\":\"VEC" + std::to_string(components) + "\"";
        if (accessor == 0 || components == 3) {
            accessors += ",\"min\":[-1000,-1000,-1000],\"max\":[1000,1000,1000]";
        }
        accessors += "}";
        return std::to_string(accessor++);
    };
    for (std::size_t i = 0; i < meshes.size(); ++i) {
        const GltfMesh& mesh = meshes[i];
        const float x = mesh.x;
        std::string attributes = "\"POSITION\":" + add({x, 0, 0, x + 1, 0, 0, x, 1, 0}, 3);
        if (mesh.mode == 4) attributes += ",\"NORMAL\":" + add({0, 0, 1, 0, 0, 1, 0, 0, 1}, 3);
        if (mesh.texcoord) attributes += ",\"TEXCOORD_0\":" + add({x, 0, x + 1, 0, x, 1}, 2);
        if (mesh.secondTexcoord) attributes += ",\"TEXCOORD_1\":" + add({0, 0, 1, 0, 0, 1}, 2);
        if (mesh.color)
            attributes +=
                ",\"COLOR_0\":" + add({0.25f, 0.5f, 0.75f, 0.25f, 0.5f, 0.75f, 0.25f, 0.5f, 0.75f}, 3);
        comma(meshTexts);
        meshTexts += "{\"name\":" + picojson::value(mesh.name).serialize() +
                     ",\"primitives\":[{\"attributes\":{" + attributes +
                     "},\"mode\":" + std::to_string(mesh.mode) + (material.empty() ? "" : ",\"material\":0") +
                     "}]}";
        comma(nodes);
        nodes += "{\"name\":\"node" + std::to_string(i) + "\",\"mesh\":" + std::to_string(i) + "}";
        comma(scene);
        scene += std::to_string(i);
    }
    static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string base64;
    for (std::size_t i = 0; i < data.size(); i += 3) {
        const std::string part = data.substr(i, 3);
        std::uint32_t bits = 0;
        for (std::size_t k = 0; k < 3; ++k)
            bits = bits << 8 | (k < part.size() ? static_cast<unsigned char>(part[k]) : 0u);
        for (std::size_t k = 0; k < 4; ++k)
            base64 += k <= part.size() ? digits[bits >> (18 - 6 * k) & 63] : '=';
    }
    return "{\"asset\":{\"version\":\"2.0\"},\"scene\":0,\"scenes\":[{\"nodes\":[" + scene +
           "]}],\"nodes\":[" + nodes + "],\"meshes\":[" + meshTexts + "]," +
           (material.empty() ? "" : "\"materials\":[" + material + "],") + "\"accessors\":[" + accessors +
           "],\"bufferViews\":[" + views + "],\"buffers\":[{\"byteLength\":" + std::to_string(data.size()) +
           ",\"uri\":\"data:application/octet-stream;base64," + base64 + "\"}]}";
}

} // namespace kel::tests
