#include "Checks.h"

#include <charconv>
#include <cstring>
#include <string_view>

namespace kel::importer::detail {

namespace {

/// One of the three lists that a face picks from.
struct List {
    const char* name;
    std::int64_t count = 0;
    std::int64_t largest = 0; // index used so far
    std::size_t lineOfLargest = 0;
};

bool isSpace(char c) {
    return c == ' ' || c == '\t';
}

} // namespace

void checkWavefront(const ModelSource& source, const Content& content, ProgressReporter& progress,
                    Findings& findings) {
    const std::string bom = content.text(0, 2);
    if (bom == "\xFF\xFE" || bom == "\xFE\xFF") return; // UTF-16 is the reader's affair

    List lists[3] = {{"vertex"}, {"texture coordinate"}, {"normal"}};
    std::size_t freeForms = 0;
    const auto refuse = [&](const List& list, std::int64_t index, std::size_t line) {
        source.refuse(ImportCode::INDEX_OUT_OF_RANGE,
                      std::string("a face uses ") + list.name + " " + std::to_string(index) +
                          ", the file has " + std::to_string(list.count) + (index < 0 ? " up to there" : ""),
                      "line " + std::to_string(line), "export the model again, or add what is missing");
    };

    Lines lines(content);
    std::string line;
    std::string more;
    while (lines.get(line)) {
        const std::size_t number = lines.number();
        while (!line.empty() && line.back() == '\\') {
            line.pop_back();
            if (!lines.get(more)) break;
            line += ' ' + more;
        }
        if (number % 65536 == 0)
            progress.report("checking",
                            static_cast<double>(lines.offset()) / static_cast<double>(content.size()));
        const char* at = line.data();
        const char* end = at + line.size();
        while (at != end && isSpace(*at))
            ++at;
        if (at == end) continue;
        const char* word = at;
        while (at != end && !isSpace(*at))
            ++at;
        const std::string_view keyword(word, static_cast<std::size_t>(at - word));
        if (keyword == "v") {
            ++lists[0].count;
        } else if (keyword == "vt") {
            ++lists[1].count;
        } else if (keyword == "vn") {
            ++lists[2].count;
        } else if (keyword == "curv" || keyword == "curv2" || keyword == "surf") {
            ++freeForms;
        } else if (keyword == "f" || keyword == "l" || keyword == "p" || keyword == "fo") {
            while (at != end) {
                while (at != end && isSpace(*at))
                    ++at;
                for (int list = 0; list < 3 && at != end && !isSpace(*at); ++list) {
                    std::int64_t index = 0;
                    const auto [stop, failure] = std::from_chars(at, end, index);
                    if (stop != at && failure == std::errc{}) {
                        if (index < -lists[list].count) refuse(lists[list], index, number);
                        if (index > lists[list].largest) {
                            lists[list].largest = index;
                            lists[list].lineOfLargest = number;
                        }
                    }
                    at = stop;
                    if (at == end || *at != '/') break;
                    ++at;
                }
                while (at != end && !isSpace(*at))
                    ++at; // what no index is, the reader judges
            }
        }
    }
    for (const List& list : lists) {
        if (list.largest > list.count) refuse(list, list.largest, list.lineOfLargest);
    }
    if (freeForms > 0) findings.dropped.push_back({"free-form curves and surfaces", freeForms, ""});
}

} // namespace kel::importer::detail
