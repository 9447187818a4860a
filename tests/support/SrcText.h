#pragma once

#include <picojson.h>

#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>

namespace kel::tests {

/// A file of the SRC layout taken apart: little-endian 23, 42, header length, header text, data.
struct SrcText {
    std::string header;
    std::string data;
    picojson::value json;

    explicit SrcText(const std::string& file) {
        const auto word = [&](std::size_t at) {
            std::uint32_t value = 0;
            for (int i = 3; i >= 0; --i)
                value = value << 8 | static_cast<unsigned char>(file.at(at + static_cast<std::size_t>(i)));
            return value;
        };
        if (word(0) != 23 || word(4) != 42) throw std::runtime_error("not the signature 23, 42");
        header = file.substr(12, word(8));
        if (header.size() != word(8)) throw std::runtime_error("the header is cut");
        data = file.substr(12 + header.size());
        const std::string error = picojson::parse(json, header);
        if (!error.empty()) throw std::runtime_error(error);
    }

    /// The JSON text at a path of keys, "" when there is none.
    template<typename... Keys>
    std::string at(const Keys&... keys) const {
        const picojson::value* value = &json;
        for (const std::string& key : {std::string(keys)...}) {
            if (!value->is<picojson::object>() || !value->contains(key)) return "";
            value = &value->get(key);
        }
        return value->serialize();
    }
};

/// The SRC file that `write(stream)` writes.
template<typename Write>
SrcText written(Write write) {
    std::ostringstream out;
    write(out);
    return SrcText(out.str());
}

} // namespace kel::tests
