#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kelsrc::cli {

/// A text as a part of an address: every byte but letters, digits and "-._~" becomes %XX.
std::string percentEncoded(const std::string& text);
/// Undoes percentEncoded, once. None when a % is not followed by two digits.
std::optional<std::string> percentDecoded(std::string_view text);

/// Changes the letters of ASCII only.
std::string lowerCase(std::string text);

/// True when the client takes gzip, by its Accept-Encoding: it says so, and not with a weight of 0.
bool acceptsGzip(const std::string& acceptEncoding);

struct ByteRange {
    std::uint64_t begin, end;
};

/// The single range that a Range header asks for; none when it is not one, which is answered with the whole
/// file. An empty range is one that the file does not have.
std::optional<ByteRange> rangeOf(std::string_view header, std::uint64_t size);

} // namespace kelsrc::cli
