#include "JsonTexts.h"

#include <kel/src/text/JsonScanner.h>
#include <kel/src/text/JsonWriter.h>
#include <kel/src/text/Utf8.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>

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
        return jsonString(assimpText(*static_cast<const aiString*>(entry.mData), repairs), repairs);
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
        text += jsonString(assimpText(metadata.mKeys[i], repairs), repairs) + ":" +
                value(metadata.mValues[i], depth, repairs);
    }
    return text + "}";
}

} // namespace

TextRepairs& TextRepairs::operator+=(const TextRepairs& other) {
    notUtf8 += other.notUtf8;
    notFinite += other.notFinite;
    tooDeep += other.tooDeep;
    cut += other.cut;
    return *this;
}

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

std::string jsonNumber(double number, TextRepairs& repairs) {
    return shortest(number, repairs);
}

std::string jsonNumber(float number, TextRepairs& repairs) {
    return shortest(number, repairs);
}

std::string_view assimpText(const aiString& text, TextRepairs& repairs) {
    if (text.length + 1 >= MAXLEN) ++repairs.cut;
    return {text.data, text.length};
}

std::string jsonObject(const aiMetadata* metadata, TextRepairs& repairs) {
    if (!metadata || metadata->mNumProperties == 0) return {};
    return object(*metadata, 1, repairs);
}

} // namespace kel::importer::detail
