#pragma once

#include "SrcText.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace kel::tests {

/// Reads the geometry of an SRC file the long way round, one number at a time, and complains about everything
/// that does not fit together. It shares nothing with the library's own reader and writers.
class SrcFile : public SrcText {
public:
    using SrcText::SrcText;

    using Element = std::vector<double>;

    struct Attribute {
        std::string type; ///< "VEC3" and so on
        unsigned componentType = 0;
        std::vector<Element> codes;   ///< as stored
        std::vector<Element> decoded; ///< (code + decodeOffset) / decodeScale
    };

    std::vector<std::string> meshIds() const { return keys(json.get("meshes")); }
    std::vector<std::string> attributeNames(const std::string& mesh) const {
        return keys(meshEntry(mesh).get("attributes"));
    }
    const picojson::value& meshEntry(const std::string& mesh) const {
        return entry(json.get("meshes"), mesh);
    }

    /// All bytes of a buffer view's chunks.
    std::vector<unsigned char> bytesOf(const std::string& bufferView) const {
        const auto& view = entry(json.get("bufferViews"), bufferView);
        std::vector<unsigned char> bytes;
        for (const auto& id : view.get("chunks").get<picojson::array>()) {
            const auto& chunk = entry(json.get("bufferChunks"), id.get<std::string>());
            const std::size_t offset = size(chunk, "byteOffset"), length = size(chunk, "byteLength");
            check(offset <= data.size() && length <= data.size() - offset, "a chunk lies outside the file");
            bytes.insert(bytes.end(), data.begin() + static_cast<std::ptrdiff_t>(offset),
                         data.begin() + static_cast<std::ptrdiff_t>(offset + length));
        }
        check(bytes.size() == size(view, "byteLength"), "the chunks do not add up to their view");
        return bytes;
    }

    Attribute attribute(const std::string& mesh, const std::string& name) const {
        const std::string id = entry(meshEntry(mesh).get("attributes"), name).get<std::string>();
        const auto& view = entry(json.get("accessors").get("attributeViews"), id);
        const auto bytes = bytesOf(view.get("bufferView").get<std::string>());
        Attribute attribute;
        attribute.type = view.get("type").get<std::string>();
        attribute.componentType = static_cast<unsigned>(size(view, "componentType"));
        const std::size_t components = componentsOf(attribute.type);
        const std::size_t width = widthOf(attribute.componentType);
        const auto& offsets = view.get("decodeOffset").get<picojson::array>();
        const auto& scales = view.get("decodeScale").get<picojson::array>();
        check(offsets.size() == components && scales.size() == components, "one decode entry per component");
        for (std::size_t i = 0; i < size(view, "count"); ++i) {
            Element codes, decoded;
            for (std::size_t c = 0; c < components; ++c) {
                const std::size_t at = size(view, "byteOffset") + i * size(view, "byteStride") + c * width;
                codes.push_back(numberAt(bytes, at, attribute.componentType));
                decoded.push_back((codes.back() + offsets[c].get<double>()) / scales[c].get<double>());
            }
            attribute.codes.push_back(codes);
            attribute.decoded.push_back(decoded);
        }
        return attribute;
    }

    /// Empty for a mesh without an index view.
    std::vector<std::uint32_t> indices(const std::string& mesh) const {
        const std::string id = meshEntry(mesh).get("indices").get<std::string>();
        if (id.empty()) return {};
        const auto& view = entry(json.get("accessors").get("indexViews"), id);
        const auto bytes = bytesOf(view.get("bufferView").get<std::string>());
        const auto type = static_cast<unsigned>(size(view, "componentType"));
        std::vector<std::uint32_t> indices;
        for (std::size_t k = 0; k < size(view, "count"); ++k) {
            const std::size_t at = size(view, "byteOffset") + k * widthOf(type);
            indices.push_back(static_cast<std::uint32_t>(numberAt(bytes, at, type)));
        }
        return indices;
    }

private:
    static void check(bool holds, const char* what) {
        if (!holds) throw std::runtime_error(what);
    }

    static const picojson::value& entry(const picojson::value& section, const std::string& id) {
        if (!section.contains(id)) throw std::runtime_error("no entry \"" + id + "\"");
        return section.get(id);
    }

    static std::vector<std::string> keys(const picojson::value& section) {
        std::vector<std::string> names;
        for (const auto& member : section.get<picojson::object>())
            names.push_back(member.first);
        return names;
    }

    static std::size_t size(const picojson::value& object, const char* key) {
        const double number = entry(object, key).get<double>();
        check(number >= 0 && std::trunc(number) == number, "a size is no whole number");
        return static_cast<std::size_t>(number);
    }

    static std::size_t componentsOf(const std::string& type) {
        static const std::map<std::string, std::size_t> COMPONENTS = {
            {"SCALAR", 1}, {"VEC2", 2}, {"VEC3", 3}, {"VEC4", 4}};
        return COMPONENTS.at(type);
    }

    static std::size_t widthOf(unsigned type) {
        check(type >= 5120 && type <= 5126, "an unknown component type");
        return type <= 5121 ? 1 : type <= 5123 ? 2 : 4;
    }

    static double numberAt(const std::vector<unsigned char>& bytes, std::size_t at, unsigned type) {
        const std::size_t width = widthOf(type);
        check(at <= bytes.size() && width <= bytes.size() - at, "an element lies outside its view");
        std::uint32_t bits = 0;
        for (std::size_t i = width; i-- > 0;)
            bits = bits << 8 | bytes[at + i];
        switch (type) {
        case 5120:
            return static_cast<std::int8_t>(bits);
        case 5122:
            return static_cast<std::int16_t>(bits);
        case 5124:
            return static_cast<std::int32_t>(bits);
        case 5126: {
            float value;
            std::memcpy(&value, &bits, sizeof value);
            return value;
        }
        default:
            return bits;
        }
    }
};

} // namespace kel::tests
