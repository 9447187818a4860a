#include "Checks.h"

#include <algorithm>
#include <map>
#include <sstream>

namespace kel::importer::detail {

namespace {

std::uint64_t sizeOfType(const std::string& type) {
    static const std::map<std::string, std::uint64_t> SIZES = {
        {"char", 1},  {"uchar", 1},   {"int8", 1},   {"uint8", 1},  {"short", 2}, {"ushort", 2},
        {"int16", 2}, {"uint16", 2},  {"int", 4},    {"uint", 4},   {"int32", 4}, {"uint32", 4},
        {"float", 4}, {"float32", 4}, {"double", 8}, {"float64", 8}};
    const auto found = SIZES.find(type);
    return found == SIZES.end() ? 1 : found->second;
}

struct Element {
    std::string name;
    std::uint64_t count = 0;
    std::uint64_t binaryBytes = 0; // at least, per element
    std::uint64_t textBytes = 0;
};

} // namespace

void checkPly(const ModelSource& source, const Content& content) {
    const std::string remedy = "the file is cut off or its header damaged; export or download it again";
    Lines lines(content, 0, content.size());
    std::string line;
    std::vector<Element> elements;
    bool text = false;
    bool ended = false;
    while (lines.number() < 10000 && lines.get(line)) {
        std::istringstream words(line);
        std::string word;
        words >> word;
        if (word == "format") {
            words >> word;
            text = word == "ascii";
        } else if (word == "element") {
            Element element;
            std::string count;
            words >> element.name >> count;
            if (count.empty() || count.find_first_not_of("0123456789") != std::string::npos) {
                source.refuse(ImportCode::INVALID_MODEL, "the count of an element is not a number",
                              "line " + std::to_string(lines.number()), remedy);
            }
            // More digits than any file has bytes are as good as the largest number.
            element.count = count.size() > 18 ? 1000000000000000000u : std::stoull(count);
            if (element.name == "tristrips" && element.count > 0) {
                source.refuse(ImportCode::UNSUPPORTED_FEATURE,
                              "its triangles are stored as strips, which the reader cuts short",
                              "line " + std::to_string(lines.number()), "export the model with plain faces");
            }
            elements.push_back(element);
        } else if (word == "property" && !elements.empty()) {
            words >> word;
            if (word == "list") words >> word; // at least its count
            elements.back().binaryBytes += sizeOfType(word);
            elements.back().textBytes += 2; // a digit and a space or line end
        } else if (word == "end_header") {
            ended = true;
            break;
        }
    }
    if (!ended) {
        source.refuse(ImportCode::TRUNCATED, "the header has no end",
                      "line " + std::to_string(lines.number()), remedy);
    }
    std::uint64_t room = content.size() - lines.offset();
    for (const Element& element : elements) {
        const std::uint64_t bytes = text ? element.textBytes : element.binaryBytes;
        // The last line may lack its end.
        const std::uint64_t fits = bytes == 0 ? room : (room + (text ? 1 : 0)) / bytes;
        if (element.count > fits) {
            source.refuse(ImportCode::IMPOSSIBLE_COUNT,
                          "the header announces " + std::to_string(element.count) + " elements \"" +
                              element.name + "\", the file has room for " + std::to_string(fits) + " at most",
                          "header");
        }
        room -= std::min(room, element.count * bytes);
    }
}

} // namespace kel::importer::detail
