#pragma once

#include <assimp/scene.h>

#include <cstddef>
#include <string>
#include <string_view>

/// Texts and values as Assimp holds them, as JSON.
namespace kel::importer::detail {

/// What had to be changed to make texts JSON.
struct TextRepairs {
    std::size_t notUtf8 = 0;   ///< texts with bytes that are not UTF-8
    std::size_t notFinite = 0; ///< numbers that JSON cannot hold
    std::size_t tooDeep = 0;   ///< values nested deeper than the limit
    std::size_t cut = 0;       ///< names as long as the reader can hold, so probably longer in the file

    TextRepairs& operator+=(const TextRepairs& other);
};

/// With U+FFFD in place of bytes that are not UTF-8.
std::string validText(std::string_view text, TextRepairs& repairs);
/// A JSON string.
std::string jsonString(std::string_view text, TextRepairs& repairs);
/// A JSON number in the shortest form that reads back equal, or null.
std::string jsonNumber(double value, TextRepairs& repairs);
std::string jsonNumber(float value, TextRepairs& repairs);
/// The JSON object of a node's metadata, or an empty text when there is none.
std::string jsonObject(const aiMetadata* metadata, TextRepairs& repairs);

/// A text as Assimp holds it, not always UTF-8.
std::string_view assimpText(const aiString& text, TextRepairs& repairs);

} // namespace kel::importer::detail
