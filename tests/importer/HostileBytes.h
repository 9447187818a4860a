#pragma once

#include "ImporterTest.h"

#include <initializer_list>

namespace kel::importer::test {

/// Cuts the file at every byte, and changes every byte in several ways: the import ends with a model or an
/// ImportError. Each copy lies in memory of its own size, where sanitizers see a byte read behind it.
inline void expectErrorsOrModels(const std::string& name, const std::string& file) {
    const auto tryIt = [&](const std::vector<char>& bytes) {
        ImportOptions options;
        options.onBadGeometry = BadGeometry::DROP;
        try {
            importModel(bytes.data(), bytes.size(), name, options);
        } catch (const ImportError& error) {
            EXPECT_FALSE(std::string(error.what()).empty());
        }
    };
    for (std::size_t cut = 0; cut < file.size(); ++cut)
        tryIt({file.begin(), file.begin() + static_cast<std::ptrdiff_t>(cut)});
    for (std::size_t at = 0; at < file.size(); ++at) {
        for (const char change : {'\x01', '\x04', '\x10', '\x40', '\x80', '\xff'}) {
            std::vector<char> bytes(file.begin(), file.end());
            bytes[at] = static_cast<char>(bytes[at] ^ change);
            tryIt(bytes);
        }
    }
}

} // namespace kel::importer::test
