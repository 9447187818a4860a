// Metadata keys and texts of any bytes: lines, key and text by turns, into both writers and back. Each
// text is also read as every entry that our tools give a meaning.

#include <fuzz/Exercise.h>
#include <fuzz/GoodFiles.h>

#include <kel/src/format/MetadataKeys.h>

#include <boost/log/core.hpp>

#include <cstring>
#include <stdexcept>
#include <string>

namespace {

using namespace kel::src;
using fuzz::require;

bool isUtf8(const std::string& text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t more = lead < 0x80       ? 0
                                 : lead >> 5 == 6  ? 1
                                 : lead >> 4 == 14 ? 2
                                 : lead >> 3 == 30 ? 3
                                                   : 9;
        if (more == 9 || i + more >= text.size()) return false;
        std::uint32_t code = more == 0 ? lead : lead & (0x3fu >> more);
        for (std::size_t k = 1; k <= more; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if (next >> 6 != 2) return false;
            code = code << 6 | (next & 0x3fu);
        }
        static const std::uint32_t SMALLEST[] = {0, 0x80, 0x800, 0x10000};
        if (code < SMALLEST[more] || code > 0x10ffff || (code >= 0xd800 && code < 0xe000)) return false;
        i += more + 1;
    }
    return true;
}

/// What was read, written again, reads as the same.
void readAsEveryEntry(const std::string& text) {
    namespace format = kel::src::format;
    const std::string fit = format::fitText(format::readFit(text));
    require(format::fitText(format::readFit(fit)) == fit, "a fit comes back");
    if (const auto transform = format::readTransform(text)) {
        const std::string again = format::transformText(*transform);
        const auto read = format::readTransform(again);
        require(read && format::transformText(*read) == again, "a transform comes back");
    }
    if (const auto source = format::readSource(text)) {
        const std::string again = format::sourceText(*source);
        const auto read = format::readSource(again);
        require(read && format::sourceText(*read) == again, "a source comes back");
    }
    format::readName(text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    boost::log::core::get()->set_logging_enabled(false);
    const std::string text(reinterpret_cast<const char*>(data), size);
    for (const int mode : {0, 2}) {
        auto input = fixture::inputOf({fixture::tetrahedron()});
        auto& metadata = *input.metaData[input.meshes[0]];
        std::size_t at = 0;
        const auto line = [&] {
            const std::size_t end = std::min(text.find('\n', at), text.size());
            std::string result = text.substr(at, end - at);
            at = std::min(end + 1, text.size());
            return result;
        };
        while (at < text.size()) {
            const std::string key = line();
            readAsEveryEntry(metadata[key] = line());
        }
        std::string file;
        try {
            file = fuzz::write(input, mode);
        } catch (const std::overflow_error&) {
            continue; // a number that no double holds
        }
        const auto refused = fuzz::exercise(ByteView(std::string_view(file)));
        // The container writer passes bytes on as they are; the builder replaces what is no UTF-8.
        const bool mayBeNoText = mode == 0 && !isUtf8(text);
        require(!refused || *refused == SrcCode::LIMIT_EXCEEDED ||
                    (mayBeNoText && *refused == SrcCode::JSON_SYNTAX),
                "whatever the metadata are, the file reads");
        if (refused || mode != 0) continue;
        const SrcFile read = readSrc(ByteView(std::string_view(file)));
        const auto members = jsonMembers(read.meshes()[0].metadata);
        require(members.size() == metadata.size(), "every key is there");
        auto expected = metadata.begin();
        for (const SrcMember& member : members)
            require(member.key == (expected++)->first, "keys come back as they were");
    }
    return 0;
}
