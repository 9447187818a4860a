// Formats whose header announces how much follows: STL, OFF.

#include "Checks.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <string_view>

namespace kel::importer::detail {

namespace {

const char* const DAMAGED = "the file is cut off or its header damaged; export or download it again";
constexpr std::uint64_t MOST_CORNERS = 9; // the reader takes no larger faces

/// The next number at the front of `rest`; false when there is none.
bool takeNumber(std::string_view& rest, std::uint64_t& number) {
    const std::size_t start = rest.find_first_not_of(" \t");
    if (start == std::string_view::npos || !std::isdigit(static_cast<unsigned char>(rest[start])))
        return false;
    rest.remove_prefix(start);
    const auto [end, failure] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
    rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
    return failure == std::errc{};
}

constexpr std::uint64_t STL_HEADER = 84, STL_FACET = 50;

/// What the header of a binary STL announces.
std::uint64_t trianglesOfStl(const Content& content) {
    std::uint32_t count = 0;
    content.read(STL_HEADER - 4, &count, sizeof count);
    return count;
}

} // namespace

bool isWholeBinaryStl(const Content& content) {
    return content.size() >= STL_HEADER && content.size() == STL_HEADER + STL_FACET * trianglesOfStl(content);
}

void checkStl(const ModelSource& source, const Content& content) {
    if (isWholeBinaryStl(content)) return;
    const std::string head = content.text(0, 1024);
    std::size_t start = head.find_first_not_of(" \t\r\n");
    if (start == std::string::npos) start = 0;
    // Some binary files begin with "solid", too; text has no zero bytes.
    const bool text = head.compare(start, 5, "solid") == 0 && head.find('\0') == std::string::npos;
    if (text) {
        if (content.text(0, 65536).find("facet") == std::string::npos)
            source.refuse(ImportCode::NO_MESH, "the solid has no facet");
        return;
    }
    if (content.size() < STL_HEADER)
        source.refuse(ImportCode::WRONG_CONTENT,
                      "the name promises an STL, but the content is neither text nor binary STL",
                      "first bytes", "check what was downloaded or exported");
    const std::uint64_t count = trianglesOfStl(content);
    if (content.size() < STL_HEADER + STL_FACET * count)
        source.refuse(ImportCode::IMPOSSIBLE_COUNT,
                      "the header announces " + std::to_string(count) + " triangles, the file has room for " +
                          std::to_string((content.size() - STL_HEADER) / STL_FACET),
                      "byte 80", "the file is cut off or no STL; export or download it again");
}

void checkOff(const ModelSource& source, const Content& content, Findings& findings) {
    Lines lines(content);
    std::string line;
    const auto next = [&] {
        while (lines.get(line)) {
            const std::size_t start = line.find_first_not_of(" \t");
            if (start != std::string::npos && line[start] != '#') return true;
        }
        return false;
    };
    const auto needLine = [&] {
        if (next()) return;
        source.refuse(ImportCode::TRUNCATED, "the header has no counts", "line 1", "export the model again");
    };
    needLine();
    // "OFF", "COFF" and the like, with the counts behind it or on the next line.
    std::string_view rest = line;
    const std::size_t word = rest.find("OFF");
    std::size_t dimensions = 0;
    if (word != std::string_view::npos) {
        dimensions = rest.substr(0, word).find('n') != std::string_view::npos;
        rest.remove_prefix(word + 3);
    }
    if (rest.find("BINARY") != std::string_view::npos)
        source.refuse(ImportCode::UNSUPPORTED_FEATURE, "this is a binary OFF, which no reader here knows",
                      "line 1", "export it as text OFF or as PLY");
    std::uint64_t vertices = 0;
    std::uint64_t faces = 0;
    for (std::size_t skipped = 0; skipped < dimensions; ++skipped) {
        if (!takeNumber(rest, vertices) && !(next() && (rest = line, takeNumber(rest, vertices)))) return;
    }
    if (!takeNumber(rest, vertices)) {
        needLine();
        rest = line;
        if (!takeNumber(rest, vertices)) return; // the reader says what is wrong
    }
    if (!takeNumber(rest, faces)) return;

    const std::string place = "line " + std::to_string(lines.number());
    // A line has two bytes at least, the last one may lack its end.
    const std::uint64_t room = (content.size() + 1 - lines.offset()) / 2;
    if (vertices > room || faces > room)
        source.refuse(ImportCode::IMPOSSIBLE_COUNT,
                      "the header announces " + std::to_string(vertices) + " vertices and " +
                          std::to_string(faces) + " faces, the file has room for " + std::to_string(room) +
                          " lines",
                      place);
    for (std::uint64_t v = 0; v < vertices; ++v) {
        if (!next())
            source.refuse(ImportCode::TRUNCATED,
                          "the header announces " + std::to_string(vertices) + " vertices, the file has " +
                              std::to_string(v),
                          place, DAMAGED);
    }
    std::uint64_t tooLarge = 0;
    for (std::uint64_t f = 0; f < faces; ++f) {
        if (!next())
            source.refuse(ImportCode::TRUNCATED,
                          "the header announces " + std::to_string(faces) + " faces, the file has " +
                              std::to_string(f),
                          place, DAMAGED);
        rest = line;
        std::uint64_t corners = 0;
        if (!takeNumber(rest, corners)) continue;
        tooLarge += corners > MOST_CORNERS;
        std::uint64_t index = 0;
        for (std::uint64_t c = 0; c < corners && takeNumber(rest, index); ++c) {
            if (index < vertices) continue;
            source.refuse(ImportCode::INDEX_OUT_OF_RANGE,
                          "a face uses vertex " + std::to_string(index) + ", the last one is " +
                              std::to_string(vertices - 1),
                          "line " + std::to_string(lines.number()));
        }
    }
    if (tooLarge > 0) {
        findings.dropped.push_back(
            {"faces of more than nine corners", static_cast<std::size_t>(tooLarge), ""});
    }
}

} // namespace kel::importer::detail
