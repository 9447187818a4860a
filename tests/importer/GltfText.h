#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace kel::importer::test {

inline std::string base64(const std::string& bytes) {
    static const char DIGITS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const auto byte = [&](std::size_t k) {
            return k < bytes.size() ? static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[k])) : 0u;
        };
        const std::uint32_t bits = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
        for (std::size_t digit = 0; digit < 4; ++digit) {
            text += i + digit > bytes.size() ? '=' : DIGITS[bits >> (18 - 6 * digit) & 63];
        }
    }
    return text;
}

template<typename T>
std::string bytesOf(const std::vector<T>& values) {
    return std::string(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T));
}

inline std::string joined(const std::vector<std::string>& items) {
    std::string text;
    for (const std::string& item : items)
        text += (text.empty() ? "" : ",") + item;
    return text;
}

/// A glTF 2, put together piece by piece; whatever a test does not set has a plain value.
struct GltfText {
    std::string bytes;
    std::vector<std::string> views;
    std::vector<std::string> accessors;
    std::vector<std::string> meshes;
    std::vector<std::string> nodes;
    std::string roots = "0";
    std::string more; ///< further members of the document, each with a comma before it
    std::string asset = R"({"version":"2.0"})";

    /// Adds an accessor of its own view and returns its index.
    template<typename T>
    std::size_t add(const std::vector<T>& values, int componentType, const std::string& type,
                    std::size_t components) {
        views.push_back(R"({"buffer":0,"byteOffset":)" + std::to_string(bytes.size()) + R"(,"byteLength":)" +
                        std::to_string(values.size() * sizeof(T)) + "}");
        bytes += bytesOf(values);
        bytes.resize((bytes.size() + 3) / 4 * 4);
        accessors.push_back(R"({"bufferView":)" + std::to_string(views.size() - 1) + R"(,"componentType":)" +
                            std::to_string(componentType) + R"(,"type":")" + type + R"(","count":)" +
                            std::to_string(values.size() / components) + "}");
        return accessors.size() - 1;
    }
    std::size_t addVec3(const std::vector<float>& values) { return add(values, 5126, "VEC3", 3); }
    std::size_t addVec2(const std::vector<float>& values) { return add(values, 5126, "VEC2", 2); }
    std::size_t addIndices(const std::vector<std::uint16_t>& values) {
        return add(values, 5123, "SCALAR", 1);
    }

    /// Adds a mesh of one primitive; `members` stand behind its attributes.
    std::size_t addMesh(const std::string& attributes, const std::string& members = "",
                        const std::string& meshMembers = "") {
        meshes.push_back(R"({"primitives":[{"attributes":{)" + attributes + "}" + members + "}]" +
                         meshMembers + "}");
        return meshes.size() - 1;
    }

    std::string json(bool embedded = true) const {
        return R"({"asset":)" + asset + R"(,"scene":0,"scenes":[{"nodes":[)" + roots + R"(]}],"nodes":[)" +
               joined(nodes) + R"(],"meshes":[)" + joined(meshes) + R"(],"accessors":[)" + joined(accessors) +
               R"(],"bufferViews":[)" + joined(views) + R"(],"buffers":[{"byteLength":)" +
               std::to_string(bytes.size()) +
               (embedded ? R"(,"uri":"data:application/octet-stream;base64,)" + base64(bytes) + "\"" : "") +
               "}]" + more + "}";
    }

    std::string glb() const {
        std::string text = json(false);
        text.resize((text.size() + 3) / 4 * 4, ' ');
        const auto word = [](std::size_t value) {
            return bytesOf(std::vector<std::uint32_t>{static_cast<std::uint32_t>(value)});
        };
        return "glTF" + word(2) + word(12 + 8 + text.size() + 8 + bytes.size()) + word(text.size()) + "JSON" +
               text + word(bytes.size()) + std::string("BIN\0", 4) + bytes;
    }
};

/// One triangle in the plane z = 0, (0,0) (1,0) (0,1), as mesh 0 of node 0.
inline GltfText oneTriangle(const std::string& node = R"({"mesh":0})") {
    GltfText gltf;
    const auto position = gltf.addVec3({0, 0, 0, 1, 0, 0, 0, 1, 0});
    gltf.addMesh("\"POSITION\":" + std::to_string(position));
    gltf.nodes.push_back(node);
    return gltf;
}

} // namespace kel::importer::test
