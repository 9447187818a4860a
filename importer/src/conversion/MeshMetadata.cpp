#include "Conversion.h"

#include <kel/src/format/MetadataKeys.h>
#include <kel/src/text/JsonPointer.h>
#include <kel/src/text/JsonScanner.h>
#include <kel/src/text/JsonWriter.h>
#include <kel/src/text/Utf8.h>

#include <array>
#include <charconv>
#include <cmath>
#include <string_view>

namespace kel::importer::detail {

namespace {

namespace metadata_key = kel::src::format::metadata;

// ---- Texts and values as Assimp holds them, as JSON -----------------------------------------------------

/// With U+FFFD in place of bytes that are not UTF-8.
std::string validText(std::string_view text, TextRepairs& repairs) {
    bool changed = false;
    std::string utf8 = kel::src::text::validUtf8(text, &changed);
    repairs.notUtf8 += changed;
    return utf8;
}

std::string jsonString(std::string_view text, TextRepairs& repairs) {
    std::string json;
    kel::src::text::appendJsonString(json, validText(text, repairs));
    return json;
}

/// The shortest form that reads back equal, or null.
template<typename Number>
std::string jsonNumber(Number value, TextRepairs& repairs) {
    if (!std::isfinite(value)) {
        ++repairs.notFinite;
        return "null";
    }
    std::array<char, 40> text;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value);
    return std::string(text.data(), end.ptr);
}

/// Not always UTF-8.
std::string_view assimpText(const aiString& text, TextRepairs& repairs) {
    if (text.length + 1 >= MAXLEN) ++repairs.cut;
    return {text.data, text.length};
}

std::string jsonObject(const aiMetadata& metadata, std::size_t depth, TextRepairs& repairs);

std::string jsonValue(const aiMetadataEntry& entry, std::size_t depth, TextRepairs& repairs) {
    if (!entry.mData) return "null";
    switch (entry.mType) {
    case AI_BOOL:
        return *static_cast<const bool*>(entry.mData) ? "true" : "false";
    case AI_INT32:
        return std::to_string(*static_cast<const std::int32_t*>(entry.mData));
    case AI_UINT64:
        return std::to_string(*static_cast<const std::uint64_t*>(entry.mData));
    case AI_FLOAT:
        return jsonNumber(*static_cast<const float*>(entry.mData), repairs);
    case AI_DOUBLE:
        return jsonNumber(*static_cast<const double*>(entry.mData), repairs);
    case AI_AISTRING:
        return jsonString(assimpText(*static_cast<const aiString*>(entry.mData), repairs), repairs);
    case AI_AIVECTOR3D: {
        const auto& v = *static_cast<const aiVector3D*>(entry.mData);
        return "[" + jsonNumber(v.x, repairs) + "," + jsonNumber(v.y, repairs) + "," +
               jsonNumber(v.z, repairs) + "]";
    }
    case AI_AIMETADATA:
        if (depth < kel::src::text::MAX_METADATA_DEPTH)
            return jsonObject(*static_cast<const aiMetadata*>(entry.mData), depth + 1, repairs);
        ++repairs.tooDeep;
        return "null";
    default:
        return "null";
    }
}

std::string jsonObject(const aiMetadata& metadata, std::size_t depth, TextRepairs& repairs) {
    std::string text = "{";
    for (unsigned i = 0; i < metadata.mNumProperties; ++i) {
        if (text.size() > 1) text += ',';
        text += jsonString(assimpText(metadata.mKeys[i], repairs), repairs) + ":" +
                jsonValue(metadata.mValues[i], depth, repairs);
    }
    return text + "}";
}

// ---- The entries ----------------------------------------------------------------------------------------

/// FBX takes a node's pivots apart into a chain of nodes of its own making.
bool isPivot(std::string_view name) {
    return name.find("_$AssimpFbx$_") != std::string_view::npos;
}

/// The JSON string of the names from the root to `node`.
std::string nodePath(const aiNode& node, bool withRoot, TextRepairs& repairs) {
    std::vector<const aiNode*> chain;
    for (const aiNode* n = &node; n; n = n->mParent) {
        if (!n->mParent && !withRoot && n != &node) break;
        if (!isPivot({n->mName.data, n->mName.length})) chain.push_back(n);
    }
    std::string path;
    for (auto n = chain.rbegin(); n != chain.rend(); ++n) {
        if (n != chain.rbegin()) path += '/';
        kel::src::text::appendPointerStep(path, assimpText((*n)->mName, repairs));
    }
    return jsonString(path, repairs);
}

/// Metres per unit, where an FBX states it.
std::optional<double> unitOfFbx(const aiMetadata& metadata) {
    double centimetres = 0.0;
    float asFloat = 0.0f;
    if (!metadata.Get("UnitScaleFactor", centimetres) && metadata.Get("UnitScaleFactor", asFloat))
        centimetres = static_cast<double>(asFloat);
    if (!std::isfinite(centimetres) || !(centimetres > 0.0)) return std::nullopt;
    return centimetres / 100.0;
}

std::string upAxisOfFbx(const aiMetadata& metadata) {
    int axis = -1;
    int sign = 1;
    metadata.Get("UpAxisSign", sign);
    if (!metadata.Get("UpAxis", axis) || axis < 0 || axis > 2) return {};
    return std::string(sign < 0 ? "-" : "") + "XYZ"[axis];
}

} // namespace

std::string sourceEntry(const std::string& fileName, const std::string& format, const aiScene& scene,
                        TextRepairs& repairs) {
    kel::src::format::Source source;
    source.file = validText(fileName, repairs);
    source.format = validText(format, repairs);
    const auto is = [&](const char* word) { return format.find(word) != std::string::npos; };
    if (is("glTF") || is("Collada") || is("X3D")) {
        // All three are metres with Y up by definition, or are brought there by the reader.
        source.unit = 1.0;
        source.upAxis = "Y";
    } else if (is("FBX") && scene.mMetaData) {
        source.unit = unitOfFbx(*scene.mMetaData);
        source.upAxis = upAxisOfFbx(*scene.mMetaData);
    }
    return kel::src::format::sourceText(source, source.unit ? jsonNumber(*source.unit, repairs) : "");
}

void describeMesh(const Instance& instance, const aiScene& scene, const GltfNodes& gltfNodes,
                  TextRepairs& repairs, kel::scene::MetaData& metadata) {
    const auto set = [&](std::string_view key, std::string text) {
        metadata.emplace(std::string(key), std::move(text));
    };
    // Around several root nodes of a glTF the reader puts one of its own.
    const GltfDocument* gltf = gltfNodes.document();
    const bool withRoot = !gltf || gltf->sceneRoots().size() == 1;
    set(metadata_key::NODE, nodePath(*instance.node, withRoot, repairs));
    const auto node = gltfNodes.find(*instance.node);
    if (!node) {
        const aiString& meshName = scene.mMeshes[instance.mesh()]->mName;
        const aiString& name = meshName.length > 0 ? meshName : instance.node->mName;
        if (name.length > 0) set(metadata_key::NAME, jsonString(assimpText(name, repairs), repairs));
        const aiMetadata* extras = instance.node->mMetaData;
        if (extras && extras->mNumProperties > 0) set(metadata_key::EXTRAS, jsonObject(*extras, 1, repairs));
        return;
    }
    const auto keepExtras = [&](std::string_view key, const picojson::value* owner) {
        const picojson::value* value = member(owner, "extras");
        if (!value) return;
        std::string text;
        kel::src::text::appendJson(text, *value);
        set(key, validText(text, repairs));
    };
    const std::size_t mesh = gltf->meshOf(*node).value_or(0);
    std::string name = stringOf(member(gltf->find("meshes", mesh), "name"));
    if (name.empty()) name = stringOf(member(gltf->find("nodes", *node), "name"));
    if (!name.empty()) set(metadata_key::NAME, jsonString(name, repairs));
    keepExtras(metadata_key::EXTRAS, gltf->find("nodes", *node));
    keepExtras(metadata_key::MESH_EXTRAS, gltf->find("meshes", mesh));
    keepExtras(metadata_key::SCENE_EXTRAS, gltf->scene());
    if (const auto material = wholeNumber(member(gltf->primitive(mesh, instance.slot), "material")))
        keepExtras(metadata_key::MATERIAL_EXTRAS,
                   gltf->find("materials", static_cast<std::size_t>(*material)));
}

} // namespace kel::importer::detail
