#include <kel/src/text/Utf8.h>

namespace kel::src::text {

std::size_t firstNonUtf8(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = utf8SequenceAt(text.substr(i)).length;
        if (length == 0) return i;
        i += length;
    }
    return text.size();
}

std::string validUtf8(std::string_view text, bool* changed) {
    std::string valid;
    valid.reserve(text.size());
    if (changed) *changed = false;
    while (!text.empty()) {
        const Utf8Sequence sequence = utf8SequenceAt(text);
        if (sequence.length > 0) {
            valid.append(text.substr(0, sequence.length));
            text.remove_prefix(sequence.length);
        } else {
            valid += "\xef\xbf\xbd";
            text.remove_prefix(sequence.broken);
            if (changed) *changed = true;
        }
    }
    return valid;
}

void appendUtf8(std::string& target, std::uint32_t code) {
    const auto put = [&](std::uint32_t byte) { target += static_cast<char>(byte); };
    if (code < 0x80) {
        put(code);
    } else if (code < 0x800) {
        put(0xc0 | code >> 6);
        put(0x80 | (code & 0x3f));
    } else if (code < 0x10000) {
        put(0xe0 | code >> 12);
        put(0x80 | (code >> 6 & 0x3f));
        put(0x80 | (code & 0x3f));
    } else {
        put(0xf0 | code >> 18);
        put(0x80 | (code >> 12 & 0x3f));
        put(0x80 | (code >> 6 & 0x3f));
        put(0x80 | (code & 0x3f));
    }
}

} // namespace kel::src::text
