#pragma once

#include <assimp/scene.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace kel::importer::detail {

/// What had to be changed to make texts JSON.
struct TextRepairs {
    std::size_t notUtf8 = 0;   ///< texts with bytes that are not UTF-8
    std::size_t notFinite = 0; ///< numbers that JSON cannot hold
    std::size_t tooDeep = 0;   ///< values nested deeper than the limit
    std::size_t cut = 0;       ///< names as long as the reader can hold, so probably longer in the file
};

/// A JSON string.
std::string jsonString(std::string_view text, TextRepairs& repairs);
/// A JSON number in the shortest form that reads back equal, or null.
std::string jsonNumber(double value, TextRepairs& repairs);
std::string jsonNumber(float value, TextRepairs& repairs);

/// A name as the reader holds it.
std::string_view nameOf(const aiString& text, TextRepairs& repairs);

/// The JSON string of the names from the root to `node`.
std::string nodePath(const aiNode& node, bool withRoot, TextRepairs& repairs);

/// The JSON object of a node's metadata, or an empty text when there is none.
std::string extras(const aiMetadata* metadata, TextRepairs& repairs);

/// The JSON object "source".
std::string sourceObject(const std::string& fileName, const std::string& format, const aiScene& scene,
                         TextRepairs& repairs);

} // namespace kel::importer::detail
