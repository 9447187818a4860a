#include "page/HtmlPage.h"

#include "Failure.h"
#include "page/Gzip.h"

#include <kel/src/text/Utf8.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string_view>
#include <utility>
#include <vector>

namespace kelsrc::cli {

namespace {

constexpr std::string_view MARKER = "<!--kelsrc:files-->";
constexpr std::string_view TITLE = "<title>", TITLE_END = "</title>";
constexpr std::size_t PIECE = std::size_t(1) << 20;
constexpr int LEVEL = 6;

/// A text as HTML has it in elements and in attributes. Texts that are not UTF-8 have U+FFFD in place of what
/// is wrong, as has a NUL, which HTML cannot hold.
std::string htmlText(std::string_view text) {
    constexpr std::pair<char, const char*> REPLACED[] = {{'&', "&amp;"},  {'<', "&lt;"},
                                                         {'>', "&gt;"},   {'"', "&quot;"},
                                                         {'\'', "&#39;"}, {'\0', "\xef\xbf\xbd"}};
    std::string result;
    for (const char c : kel::src::text::validUtf8(text)) {
        const auto* row = std::find_if(std::begin(REPLACED), std::end(REPLACED),
                                       [c](const auto& replaced) { return replaced.first == c; });
        if (row == std::end(REPLACED)) {
            result += c;
        } else {
            result += row->second;
        }
    }
    return result;
}

/// Base64 of what comes in pieces of any size.
class Base64 {
public:
    explicit Base64(std::ostream& out) : out(out) {}

    void add(const char* bytes, std::size_t size) {
        text.clear();
        for (std::size_t i = 0; i < size; ++i) {
            bits = bits << 8 | static_cast<unsigned char>(bytes[i]);
            for (held += 8; held >= 6; held -= 6)
                text += DIGITS[bits >> (held - 6) & 63];
        }
        out.write(text.data(), static_cast<std::streamsize>(text.size()));
    }

    void finish() {
        if (held != 0) out << DIGITS[bits << (6 - held) & 63] << (held == 2 ? "==" : "=");
    }

private:
    static constexpr char DIGITS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

    std::ostream& out;
    std::string text;
    unsigned bits = 0; ///< the lowest `held` of them are not written yet
    int held = 0;
};

std::size_t placeOf(const std::string& page, std::string_view text) {
    const std::size_t place = page.find(text);
    if (place == std::string::npos)
        throw Failure(STATUS_NOT_WRITTEN, "", "the viewer's page has no " + std::string(text),
                      "Build the command again, with the viewer that belongs to it.");
    return place;
}

void writeElement(std::ostream& out, const EmbeddedFile& file,
                  const std::function<void(std::uint64_t)>& onProgress) {
    std::ifstream in(file.path, std::ios::binary | std::ios::ate);
    if (!in) throw Failure(STATUS_INPUT, file.name, std::string("cannot be read: ") + std::strerror(errno));
    const auto size = static_cast<std::uint64_t>(in.tellg());
    in.seekg(0);
    out << R"(<script type="application/vnd.kelsrc" data-name=")" << htmlText(file.name)
        << R"(" data-bytes=")" << std::to_string(size) << R"(" data-encoding="gzip">)";
    Base64 base64(out);
    Gzip compressor(LEVEL, [&](const char* bytes, std::size_t count) {
        base64.add(bytes, count);
        return out.good();
    });
    std::vector<char> piece(PIECE);
    std::uint64_t done = 0;
    while (done < size && out) {
        in.read(piece.data(),
                static_cast<std::streamsize>(std::min<std::uint64_t>(piece.size(), size - done)));
        const auto got = static_cast<std::size_t>(in.gcount());
        if (got == 0)
            throw Failure(STATUS_INPUT, file.name,
                          "ends after " + std::to_string(done) + " of " + std::to_string(size) + " bytes",
                          "Another program changes it; try again.");
        compressor.add({piece.data(), got});
        done += got;
        if (onProgress) onProgress(done);
    }
    compressor.finish();
    base64.finish();
    out << "</script>\n";
}

} // namespace

void writeHtmlPage(std::ostream& out, const std::string& viewer, const EmbeddedFile& file,
                   const std::function<void(std::uint64_t)>& onProgress) {
    const std::size_t title = placeOf(viewer, TITLE) + TITLE.size();
    const std::size_t titleEnd = placeOf(viewer, TITLE_END);
    const std::size_t marker = placeOf(viewer, MARKER);
    if (!(title <= titleEnd && titleEnd < marker))
        throw Failure(STATUS_NOT_WRITTEN, "", "the viewer's page has its title behind its files");
    const std::string_view page = viewer;
    out << page.substr(0, title) << htmlText(file.name) << page.substr(titleEnd, marker - titleEnd);
    writeElement(out, file, onProgress);
    out << page.substr(marker + MARKER.size());
}

} // namespace kelsrc::cli
