// docs/format.md tells of every metadata key that our tools give a meaning, and of no other.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <stdexcept>
#include <string>

namespace {

/// What stands in the file between two texts.
std::string between(const char* path, const std::string& from, const std::string& to) {
    std::ifstream in(path);
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    const std::size_t begin = text.find(from), end = text.find(to, begin);
    if (begin == std::string::npos || end == std::string::npos)
        throw std::runtime_error(from + " is not there");
    return text.substr(begin, end - begin);
}

std::set<std::string> found(const std::string& text, const char* pattern) {
    std::set<std::string> texts;
    const std::regex expression(pattern);
    for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end; ++match)
        texts.insert((*match)[1]);
    return texts;
}

TEST(MetadataDocument, TellsOfEveryKeyAndOfNoOther) {
    const auto keys = found(between(KELSRC_METADATA_KEYS, "namespace metadata {", "} // namespace metadata"),
                            "= \"(\\w+)\";");
    ASSERT_GE(keys.size(), 15u);
    const std::string section = between(KELSRC_FORMAT_DOCUMENT, "\n## 8. Metadata", "**`source`.**");
    std::set<std::string> told;
    for (const std::string& cell : found(section, "\n\\| (`[^|]*) \\|"))
        for (const std::string& key : found(cell, "`(\\w+)`"))
            told.insert(key);
    EXPECT_EQ(told, keys);
}

} // namespace
