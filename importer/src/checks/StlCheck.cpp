#include "Checks.h"

#include <cstring>

namespace kel::importer::detail {

namespace {

constexpr std::uint64_t HEADER = 84;
constexpr std::uint64_t FACET = 50;

} // namespace

void checkStl(const ModelSource& source, const Content& content) {
    const std::string head = content.text(0, 1024);
    std::uint32_t count = 0;
    if (content.read(HEADER - 4, &count, sizeof count) == sizeof count &&
        content.size() == HEADER + FACET * count) {
        return;
    }
    std::size_t start = head.find_first_not_of(" \t\r\n");
    if (start == std::string::npos) start = 0;
    // Some binary files begin with "solid", too; text has no zero bytes.
    const bool text = head.compare(start, 5, "solid") == 0 && head.find('\0') == std::string::npos;
    if (text) {
        if (content.text(0, 65536).find("facet") == std::string::npos) {
            source.refuse(ImportCode::NO_MESH, "the solid has no facet");
        }
        return;
    }
    if (content.size() < HEADER) {
        source.refuse(ImportCode::WRONG_CONTENT,
                      "the name promises an STL, but the content is neither text nor binary STL",
                      "first bytes", "check what was downloaded or exported");
    }
    if (content.size() < HEADER + FACET * count) {
        source.refuse(ImportCode::IMPOSSIBLE_COUNT,
                      "the header announces " + std::to_string(count) + " triangles, the file has room for " +
                          std::to_string((content.size() - HEADER) / FACET),
                      "byte 80", "the file is cut off or no STL; export or download it again");
    }
}

} // namespace kel::importer::detail
