#include "Conversion.h"

#include <kel/src/format/MetadataKeys.h>
#include <kel/src/text/JsonPointer.h>
#include <kel/src/text/JsonWriter.h>
#include <kel/src/text/Utf8.h>

#include <array>
#include <charconv>
#include <string_view>

namespace kel::importer::detail {

namespace {

namespace metadata_key = kel::src::format::metadata;

/// With U+FFFD in place of bytes that are not UTF-8.
std::string validText(std::string_view text, std::size_t& notUtf8) {
    bool changed = false;
    std::string utf8 = kel::src::text::validUtf8(text, &changed);
    notUtf8 += changed;
    return utf8;
}

std::string jsonString(std::string_view text, std::size_t& notUtf8) {
    std::string json;
    kel::src::text::appendJsonString(json, validText(text, notUtf8));
    return json;
}

/// The names from the root to `node`, as in a JSON Pointer.
std::string nodePath(const Model& model, std::size_t node) {
    std::vector<std::size_t> chain;
    for (std::optional<std::size_t> n = node; n; n = model.nodes[*n].parent) {
        if (!model.nodes[*n].isOwn) chain.push_back(*n);
    }
    std::string path;
    for (auto n = chain.rbegin(); n != chain.rend(); ++n) {
        if (n != chain.rbegin()) path += '/';
        kel::src::text::appendPointerStep(path, model.nodes[*n].name);
    }
    return path;
}

} // namespace

std::string sourceEntry(const std::string& fileName, const Model& model, std::size_t& notUtf8) {
    kel::src::format::Source source;
    source.file = validText(fileName, notUtf8);
    source.format = validText(model.format, notUtf8);
    source.unit = model.unit;
    source.upAxis = model.upAxis;
    std::array<char, 40> unit{};
    if (model.unit) std::to_chars(unit.data(), unit.data() + unit.size(), *model.unit);
    return kel::src::format::sourceText(source, unit.data());
}

void describeMesh(const Model& model, const Use& use, const ModelPart& part, std::size_t& notUtf8,
                  kel::scene::MetaData& metadata) {
    const ModelNode& node = model.nodes[use.node];
    const ModelMesh& mesh = model.meshes[use.mesh];
    const auto set = [&](std::string_view key, std::string text) {
        metadata.emplace(std::string(key), std::move(text));
    };
    set(metadata_key::NODE, jsonString(nodePath(model, use.node), notUtf8));
    const std::string& name = mesh.name.empty() ? node.name : mesh.name;
    if (!name.empty()) set(metadata_key::NAME, jsonString(name, notUtf8));
    if (!node.extras.empty()) set(metadata_key::EXTRAS, validText(node.extras, notUtf8));
    const auto setAll = [&](const kel::scene::MetaData& entries) {
        for (const auto& [key, json] : entries)
            set(key, validText(json, notUtf8));
    };
    setAll(model.metaData);
    setAll(mesh.metaData);
    if (part.material) setAll(model.materials[*part.material].metaData);
}

} // namespace kel::importer::detail
