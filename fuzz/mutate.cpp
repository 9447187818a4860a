// Good files, changed part by part: what is behind the header's grammar is reached without guessing it.

#include <fuzz/Exercise.h>
#include <fuzz/GoodFiles.h>
#include <fuzz/Instructions.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using fuzz::Instructions;

/// A piece of a header's text: a string, a number, a word or one structural character.
using Tokens = std::vector<std::string>;

Tokens tokensOf(const std::string& text) {
    Tokens tokens;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t begin = at++;
        if (text[begin] == '"') {
            while (at < text.size() && text[at] != '"')
                at += text[at] == '\\' ? 2 : 1;
            at = std::min(at + 1, text.size());
        } else if (std::string("{}[]:,").find(text[begin]) == std::string::npos) {
            at = std::min(text.find_first_of("{}[]:,\"", at), text.size());
        }
        tokens.push_back(text.substr(begin, at - begin));
    }
    return tokens;
}

bool isString(const std::string& token) {
    return token[0] == '"';
}
bool isNumber(const std::string& token) {
    return token[0] == '-' || (token[0] >= '0' && token[0] <= '9');
}

/// The positions of tokens of one kind, or all when there are none.
template<typename Is>
std::size_t choose(Instructions& in, const Tokens& tokens, Is&& is) {
    std::vector<std::size_t> positions;
    for (std::size_t i = 0; i < tokens.size(); ++i)
        if (is(tokens[i])) positions.push_back(i);
    return positions.empty() ? in.below(tokens.size()) : positions[in.below(positions.size())];
}

/// Where the member or element that begins at `first` ends: behind its value.
std::size_t endOfValue(const Tokens& tokens, std::size_t first) {
    int depth = 0;
    for (std::size_t i = first; i < tokens.size(); ++i) {
        const char c = tokens[i][0];
        if (c == '{' || c == '[') ++depth;
        if ((c == '}' || c == ']') && --depth < 0) return i;
        if (c == ',' && depth == 0) return i;
    }
    return tokens.size();
}

void mutateHeader(Instructions& in, Tokens& tokens) {
    static const char* const NUMBERS[] = {"0",
                                          "1",
                                          "2",
                                          "3",
                                          "4",
                                          "5",
                                          "7",
                                          "8",
                                          "9",
                                          "12",
                                          "5120",
                                          "5121",
                                          "5122",
                                          "5123",
                                          "5125",
                                          "5126",
                                          "255",
                                          "256",
                                          "65535",
                                          "65536",
                                          "-1",
                                          "0.5",
                                          "1e308",
                                          "-0",
                                          "4294967295",
                                          "4294967296",
                                          "9007199254740991",
                                          "9007199254740992"};
    static const char* const VALUES[] = {
        "null",         "true",       "[]",         "{}",      "\"\"",
        "\"VEC2\"",     "\"VEC4\"",   "\"SCALAR\"", "[1,1,1]", "\"pos3us_nor2ub_oct\"",
        "\"position\"", "\"normal\"", "\"fit\"",    "\"meta\""};
    const std::size_t number = choose(in, tokens, isNumber), string = choose(in, tokens, isString);
    switch (in.below(7)) {
    case 0:
        tokens[number] = NUMBERS[in.below(std::size(NUMBERS))];
        break;
    case 1:
        tokens[number] = std::to_string(in.below(100));
        break;
    case 2:
        tokens[string] = tokens[choose(in, tokens, isString)];
        break;
    case 3:
        tokens[in.coin() ? number : string] = VALUES[in.below(std::size(VALUES))];
        break;
    case 4: { // out with a member
        const std::size_t end = endOfValue(tokens, string);
        const bool comma = end < tokens.size() && tokens[end] == ",";
        tokens.erase(tokens.begin() + static_cast<std::ptrdiff_t>(string),
                     tokens.begin() + static_cast<std::ptrdiff_t>(end + (comma ? 1 : 0)));
        break;
    }
    case 5: { // a member twice
        const std::size_t end = endOfValue(tokens, string);
        Tokens copy(tokens.begin() + static_cast<std::ptrdiff_t>(string),
                    tokens.begin() + static_cast<std::ptrdiff_t>(end));
        copy.push_back(",");
        tokens.insert(tokens.begin() + static_cast<std::ptrdiff_t>(string), copy.begin(), copy.end());
        break;
    }
    default: { // two tokens change places
        const std::size_t other = in.below(tokens.size());
        std::swap(tokens[in.coin() ? number : string], tokens[other]);
    }
    }
    if (tokens.empty()) tokens.push_back("{}");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::vector<std::string> GOOD = fuzz::goodFiles();
    Instructions in(data, size);
    const std::string& good = GOOD[in.below(GOOD.size())];
    std::size_t length = 0;
    for (std::size_t byte = 4; byte-- > 0;)
        length = length << 8 | static_cast<unsigned char>(good[8 + byte]);
    Tokens tokens = tokensOf(good.substr(12, length));
    std::string bytes = good.substr(12 + length);
    for (int change = 0; change < 12 && !in.empty() && tokens.size() < 20000; ++change) {
        if (in.below(4) > 0) {
            mutateHeader(in, tokens);
        } else if (!bytes.empty()) {
            const std::size_t at = in.below(bytes.size());
            if (in.below(8) == 0) {
                bytes.resize(at);
            } else {
                bytes[at] = static_cast<char>(in.byte());
            }
        }
    }
    std::string header;
    for (const std::string& token : tokens)
        header += token;
    std::string file = good.substr(0, 8);
    for (int byte = 0; byte < 4; ++byte)
        file += static_cast<char>(header.size() >> (8 * byte) & 0xff);
    file += header + bytes;
    fuzz::exercise(kel::src::ByteView(std::string_view(file)));
    return 0;
}
