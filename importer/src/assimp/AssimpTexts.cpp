#include "AssimpModel.h"

#include <kel/src/text/JsonScanner.h>
#include <kel/src/text/JsonWriter.h>

#include <array>
#include <charconv>
#include <cstdint>

namespace kel::importer::detail {

namespace {

/// Appends the shortest form that reads back equal, or null.
template<typename Number>
void appendNumber(std::string& json, Number value, TextLosses& losses) {
    if (!std::isfinite(value)) {
        ++losses.notFinite;
        json += "null";
        return;
    }
    std::array<char, 40> text;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value);
    json.append(text.data(), end.ptr);
}

void appendObject(std::string& json, const aiMetadata& metadata, std::size_t depth, TextLosses& losses);

void appendValue(std::string& json, const aiMetadataEntry& entry, std::size_t depth, TextLosses& losses) {
    const auto as = [&](auto type) { return *static_cast<const decltype(type)*>(entry.mData); };
    switch (entry.mData ? entry.mType : AI_META_MAX) {
    case AI_BOOL:
        json += as(bool{}) ? "true" : "false";
        break;
    case AI_INT32:
        json += std::to_string(as(std::int32_t{}));
        break;
    case AI_UINT64:
        json += std::to_string(as(std::uint64_t{}));
        break;
    case AI_FLOAT:
        appendNumber(json, as(float{}), losses);
        break;
    case AI_DOUBLE:
        appendNumber(json, as(double{}), losses);
        break;
    case AI_AISTRING:
        kel::src::text::appendJsonString(json, textOf(*static_cast<const aiString*>(entry.mData), losses));
        break;
    case AI_AIVECTOR3D: {
        const auto& v = *static_cast<const aiVector3D*>(entry.mData);
        kel::src::text::appendSeparated(json, "[]", std::array{v.x, v.y, v.z},
                                        [&](float number) { appendNumber(json, number, losses); });
        break;
    }
    case AI_AIMETADATA:
        if (depth < kel::src::text::MAX_METADATA_DEPTH) {
            appendObject(json, *static_cast<const aiMetadata*>(entry.mData), depth + 1, losses);
            break;
        }
        ++losses.tooDeep;
        [[fallthrough]];
    default:
        json += "null";
    }
}

void appendObject(std::string& json, const aiMetadata& metadata, std::size_t depth, TextLosses& losses) {
    json += '{';
    for (unsigned i = 0; i < metadata.mNumProperties; ++i) {
        if (i > 0) json += ',';
        kel::src::text::appendJsonString(json, textOf(metadata.mKeys[i], losses));
        json += ':';
        appendValue(json, metadata.mValues[i], depth, losses);
    }
    json += '}';
}

} // namespace

std::string textOf(const aiString& text, TextLosses& losses) {
    if (text.length + 1 >= MAXLEN) ++losses.cut;
    return {text.data, text.length};
}

std::string extrasOf(const aiNode& node, TextLosses& losses) {
    std::string json;
    if (node.mMetaData && node.mMetaData->mNumProperties > 0) appendObject(json, *node.mMetaData, 1, losses);
    return json;
}

} // namespace kel::importer::detail
