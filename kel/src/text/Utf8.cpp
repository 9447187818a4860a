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
    const int more = code < 0x80 ? 0 : code < 0x800 ? 1 : code < 0x10000 ? 2 : 3; // bytes behind the first
    constexpr std::uint32_t LEADS[] = {0, 0xc0, 0xe0, 0xf0};
    target += static_cast<char>(LEADS[more] | code >> (6 * more));
    for (int i = more; i-- > 0;)
        target += static_cast<char>(0x80 | (code >> (6 * i) & 0x3f));
}

} // namespace kel::src::text
