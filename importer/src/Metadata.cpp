#include "Metadata.h"

#include <kel/src/text/JsonPointer.h>
#include <kel/src/text/JsonScanner.h>
#include <kel/src/text/JsonWriter.h>
#include <kel/src/text/Utf8.h>

#include <array>
#include <charconv>
#include <cmath>
#include <vector>

namespace kel::importer::detail {

namespace {

constexpr int DEEPEST = static_cast<int>(kel::src::text::MAX_METADATA_DEPTH);

template<typename T>
std::string shortest(T value, TextRepairs& repairs) {
    if (!std::isfinite(value)) {
        ++repairs.notFinite;
        return "null";
    }
    std::array<char, 40> text;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value);
    return std::string(text.data(), end.ptr);
}

std::string object(const aiMetadata& metadata, int depth, TextRepairs& repairs);

std::string value(const aiMetadataEntry& entry, int depth, TextRepairs& repairs) {
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
        return jsonString(nameOf(*static_cast<const aiString*>(entry.mData), repairs), repairs);
    case AI_AIVECTOR3D: {
        const auto& v = *static_cast<const aiVector3D*>(entry.mData);
        return "[" + jsonNumber(v.x, repairs) + "," + jsonNumber(v.y, repairs) + "," +
               jsonNumber(v.z, repairs) + "]";
    }
    case AI_AIMETADATA:
        if (depth >= DEEPEST) {
            ++repairs.tooDeep;
            return "null";
        }
        return object(*static_cast<const aiMetadata*>(entry.mData), depth + 1, repairs);
    default:
        return "null";
    }
}

std::string object(const aiMetadata& metadata, int depth, TextRepairs& repairs) {
    std::string text = "{";
    for (unsigned i = 0; i < metadata.mNumProperties; ++i) {
        if (text.size() > 1) text += ',';
        text += jsonString(nameOf(metadata.mKeys[i], repairs), repairs) + ":" +
                value(metadata.mValues[i], depth, repairs);
    }
    return text + "}";
}

/// FBX takes a node's pivots apart into a chain of nodes of its own making.
bool isPivot(std::string_view name) {
    return name.find("_$AssimpFbx$_") != std::string_view::npos;
}

} // namespace

std::string jsonString(std::string_view text, TextRepairs& repairs) {
    bool changed = false;
    const std::string utf8 = kel::src::text::validUtf8(text, &changed);
    repairs.notUtf8 += changed;
    std::string json;
    kel::src::text::appendJsonString(json, utf8);
    return json;
}

std::string jsonNumber(double number, TextRepairs& repairs) {
    return shortest(number, repairs);
}

std::string jsonNumber(float number, TextRepairs& repairs) {
    return shortest(number, repairs);
}

std::string_view nameOf(const aiString& text, TextRepairs& repairs) {
    if (text.length + 1 >= MAXLEN) ++repairs.cut;
    return {text.data, text.length};
}

std::string nodePath(const aiNode& node, bool withRoot, TextRepairs& repairs) {
    std::vector<const aiNode*> chain;
    for (const aiNode* n = &node; n; n = n->mParent) {
        if (!n->mParent && !withRoot && n != &node) break;
        if (!isPivot({n->mName.data, n->mName.length})) chain.push_back(n);
    }
    std::string path;
    for (auto n = chain.rbegin(); n != chain.rend(); ++n) {
        if (n != chain.rbegin()) path += '/';
        kel::src::text::appendPointerStep(path, nameOf((*n)->mName, repairs));
    }
    return jsonString(path, repairs);
}

std::string extras(const aiMetadata* metadata, TextRepairs& repairs) {
    if (!metadata || metadata->mNumProperties == 0) return {};
    return object(*metadata, 1, repairs);
}

std::string sourceObject(const std::string& fileName, const std::string& format, const aiScene& scene,
                         TextRepairs& repairs) {
    std::string unit;
    std::string up;
    const auto is = [&](const char* word) { return format.find(word) != std::string::npos; };
    if (is("glTF") || is("Collada") || is("X3D")) {
        // All three are metres with Y up by definition, or are brought there by the reader.
        unit = "1";
        up = "Y";
    } else if (is("FBX") && scene.mMetaData) {
        double centimetres = 0.0;
        float asFloat = 0.0f;
        if (scene.mMetaData->Get("UnitScaleFactor", asFloat)) {
            centimetres = static_cast<double>(asFloat);
        } else {
            scene.mMetaData->Get("UnitScaleFactor", centimetres);
        }
        if (std::isfinite(centimetres) && centimetres > 0.0) unit = jsonNumber(centimetres / 100.0, repairs);
        int axis = -1;
        int sign = 1;
        scene.mMetaData->Get("UpAxisSign", sign);
        if (scene.mMetaData->Get("UpAxis", axis) && axis >= 0 && axis <= 2) {
            up = std::string(sign < 0 ? "-" : "") + "XYZ"[axis];
        }
    }
    std::string text = "{\"file\":" + jsonString(fileName, repairs);
    if (!format.empty()) text += ",\"format\":" + jsonString(format, repairs);
    if (!unit.empty()) text += ",\"unit\":" + unit;
    if (!up.empty()) text += ",\"upAxis\":\"" + up + "\"";
    return text + "}";
}

} // namespace kel::importer::detail
