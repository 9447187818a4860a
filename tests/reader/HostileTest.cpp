// Bytes that were made to harm: what must come out is a named error or a file, within the limits.

#include "Files.h"

#include <fuzz/Exercise.h>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <set>

namespace {

using namespace kel::src;
using namespace reader_fixture;

/// From a block of exactly the right size, so that a sanitizer sees a read past it.
std::optional<SrcCode> exercise(std::string_view text) {
    const auto block = std::make_unique<unsigned char[]>(text.size());
    std::copy(text.begin(), text.end(), block.get());
    return fuzz::exercise(ByteView(block.get(), text.size()));
}

std::string smallFile(Mode mode) {
    auto input = fixture::inputOf({octahedron(), fixture::tetrahedron()});
    const auto red = fixture::material(1, 0, 0);
    input.materials = {red};
    input.meshMaterials[input.meshes[0]] = red;
    return write(input, mode);
}

class EveryMode : public testing::TestWithParam<Mode> {};
INSTANTIATE_TEST_SUITE_P(Hostile, EveryMode, testing::ValuesIn(ALL_MODES));

TEST_P(EveryMode, CutAtEveryLengthIsRefused) {
    const std::string text = smallFile(GetParam());
    for (std::size_t length = 0; length < text.size(); ++length) {
        const auto refused = exercise(std::string_view(text).substr(0, length));
        const std::size_t dataAt = 12 + SrcText(text).header.size();
        const SrcCode expected = length == 0       ? SrcCode::EMPTY_FILE
                                 : length < 12     ? SrcCode::TRUNCATED_PREAMBLE
                                 : length < dataAt ? SrcCode::HEADER_TRUNCATED
                                                   : SrcCode::CHUNK_PAST_END;
        ASSERT_TRUE(refused == expected)
            << "cut to " << length << ": " << (refused ? infoOf(*refused).name : std::string_view("taken"));
    }
    EXPECT_EQ(exercise(text), std::nullopt);
}

TEST_P(EveryMode, EveryByteFlippedIsAFileOrANamedError) {
    std::string text = smallFile(GetParam());
    std::set<SrcCode> codes;
    for (std::size_t at = 0; at < text.size(); ++at) {
        for (const unsigned char mask : {0xff, 0x01}) {
            text[at] = static_cast<char>(static_cast<unsigned char>(text[at]) ^ mask);
            if (const auto refused = exercise(text)) codes.insert(*refused);
            text[at] = static_cast<char>(static_cast<unsigned char>(text[at]) ^ mask);
        }
    }
    EXPECT_GE(codes.size(), 10u); // the loop does reach different checks
}

TEST(Hostile, HeaderLengthsThatLie) {
    std::string text = triangleFile();
    const auto withLength = [&](std::uint32_t length) {
        for (int byte = 0; byte < 4; ++byte)
            text[static_cast<std::size_t>(8 + byte)] = static_cast<char>(length >> (8 * byte) & 0xff);
        return exercise(text);
    };
    const auto rest = static_cast<std::uint32_t>(text.size() - 12);
    EXPECT_EQ(withLength(0), SrcCode::HEADER_EMPTY);
    EXPECT_EQ(withLength(0xffffffffu), SrcCode::LIMIT_EXCEEDED);
    EXPECT_EQ(withLength(rest + 1), SrcCode::HEADER_TRUNCATED);
    EXPECT_EQ(withLength(rest), SrcCode::JSON_SYNTAX); // the data do not parse
    EXPECT_EQ(withLength(1), SrcCode::JSON_SYNTAX);
}

TEST(Hostile, NestingOf100000IsRefusedWithoutRecursion) {
    for (const char* open : {"[", "{\"a\":"}) {
        std::string deep, closing;
        for (int i = 0; i < 100000; ++i) {
            deep += open;
            closing += open[0] == '[' ? ']' : '}';
        }
        const std::string whole = deep + "1" + closing;
        const auto inMeta =
            Editable(triangleFile()).replace("\"meta\":{}", "\"meta\":{\"x\":" + whole + "}").file();
        EXPECT_EQ(exercise(inMeta), SrcCode::LIMIT_EXCEEDED);
        const auto root = exercise(assemble(whole));
        EXPECT_TRUE(root == SrcCode::LIMIT_EXCEEDED || root == SrcCode::WRONG_TYPE);
        EXPECT_EQ(exercise(assemble(deep)), SrcCode::LIMIT_EXCEEDED);
    }
}

TEST(Hostile, WhatBothWritersNestIsTaken) {
    auto input = fixture::inputOf({fixture::tetrahedron()});
    std::string deep = "1";
    for (int i = 0; i < 99; ++i)
        deep = "[" + deep + "]";
    (*input.metaData[input.meshes[0]])["deep"] = deep;
    const std::string text = write(input, Mode::DEFAULT);
    EXPECT_NE(text.find(deep), std::string::npos);
    EXPECT_EQ(exercise(text), std::nullopt);
}

TEST(Hostile, IdsMayHoldEveryCharacter) {
    std::vector<std::string> ids = {"",
                                    " ",
                                    "/",
                                    "~",
                                    "~1",
                                    "\xc3\xa9",
                                    "\xf0\x9f\x98\x80",
                                    "00",
                                    "0 ",
                                    "-1",
                                    "1e3",
                                    "4294967295",
                                    "18446744073709551616",
                                    std::string(60000, 'x')};
    for (char c = 1; c < 0x7f; ++c)
        ids.push_back(std::string("a") + c);
    ids.push_back(std::string("nul\0", 4));
    for (const std::string& id : ids) {
        std::string json;
        for (const char c : id) {
            char escaped[8];
            const bool plain = static_cast<unsigned char>(c) >= 0x20 && c != '"' && c != '\\';
            std::snprintf(escaped, sizeof escaped, "\\u%04x",
                          static_cast<unsigned>(static_cast<unsigned char>(c)));
            json += plain ? std::string(1, c) : std::string(escaped);
        }
        Editable file(triangleFile());
        file.replace("\"attributeView0\":{", "\"" + json + "\":{");
        file.replace("\"position\":\"attributeView0\"", "\"position\":\"" + json + "\"");
        file.replace("\"meshes\":{\"0\"", "\"meshes\":{\"" + json + "\"");
        const std::string text = file.file();
        ASSERT_EQ(exercise(text), std::nullopt) << json;
        const kel::src::SrcFile read = reader_fixture::read(text);
        ASSERT_NE(read.findMesh(id), nullptr) << json;
        EXPECT_EQ(read.findAttribute(*read.findMesh(id), "position")->id, id);
    }
}

TEST(Hostile, NamesBeyondTheLimitAreRefused) {
    const std::string text =
        Editable(triangleFile())
            .replace("\"meshes\":{\"0\"", "\"meshes\":{\"" + std::string(65537, 'x') + "\"")
            .file();
    EXPECT_EQ(exercise(text), SrcCode::LIMIT_EXCEEDED);
}

TEST(Hostile, WhatIsNoCountIsRefusedWhereverACountStands) {
    const std::string good = triangleFile();
    const SrcText parts(good);
    int places = 0;
    for (const char* key : {"\"byteLength\":", "\"byteOffset\":", "\"byteStride\":", "\"count\":",
                            "\"componentType\":", "\"primitive\":"}) {
        for (std::size_t at = parts.header.find(key); at != std::string::npos;
             at = parts.header.find(key, at + 1)) {
            const std::size_t number = at + std::strlen(key);
            const std::size_t end = parts.header.find_first_of(",}", number);
            ++places;
            for (const char* odd : {"1e308", "-1", "0.5", "9007199254740992", "1e400", "-1e308", "1e-400",
                                    "18446744073709551616", "9007199254740991"}) {
                const std::string text =
                    assemble(parts.header.substr(0, number) + odd + parts.header.substr(end), parts.data);
                const auto refused = exercise(text);
                const std::string_view value(odd);
                if (value == "1e-400") continue; // reads as 0: any outcome that is no crash
                if (value == "9007199254740991") {
                    // The largest count there is: too large for its place, but not for a number; a buffer
                    // view may promise more than it stores.
                    EXPECT_TRUE(refused != SrcCode::BAD_NUMBER) << key << odd;
                } else {
                    EXPECT_EQ(refused, SrcCode::BAD_NUMBER) << key << odd;
                }
            }
            for (const char* noNumber :
                 {"01", "+1", ".5", "1.", "1e", "0x10", "NaN", "Infinity", "--1", "tru", "nul"}) {
                const std::string text = assemble(
                    parts.header.substr(0, number) + noNumber + parts.header.substr(end), parts.data);
                EXPECT_EQ(exercise(text), SrcCode::JSON_SYNTAX) << key << noNumber;
            }
            for (const char* other : {"\"1\"", "[1]", "{}", "null", "true"}) {
                const std::string text =
                    assemble(parts.header.substr(0, number) + other + parts.header.substr(end), parts.data);
                EXPECT_EQ(exercise(text), SrcCode::WRONG_TYPE) << key << other;
            }
        }
    }
    EXPECT_EQ(places, 21);
}

TEST(Hostile, SumsThatWouldWrapAreRefused) {
    // Offset, stride and count each at their largest: their sum and product do not fit 64 bits.
    const std::string largest = "9007199254740991";
    Editable file(triangleFile());
    file.replace("\"byteOffset\":0,\"byteStride\":12,\"componentType\":5126,\"count\":3",
                 "\"byteOffset\":" + largest + ",\"byteStride\":" + largest +
                     ",\"componentType\":5126,\"count\":" + largest);
    EXPECT_EQ(exercise(file.file()), SrcCode::VIEW_PAST_END);
    EXPECT_EQ(
        exercise(Editable(triangleFile()).replace("\"byteOffset\":42", "\"byteOffset\":" + largest).file()),
        SrcCode::CHUNK_PAST_END);
}

TEST(Hostile, TextsThatAreNoJsonSayWhere) {
    const auto fault = [](const std::string& header) {
        try {
            read(assemble(header));
        } catch (const SrcError& error) {
            EXPECT_EQ(error.code(), SrcCode::JSON_SYNTAX) << header;
            return error.byteOffset();
        }
        ADD_FAILURE() << header;
        return std::uint64_t(0);
    };
    EXPECT_EQ(fault("{\"meta\" {}}"), 12u + 8);
    EXPECT_EQ(fault("{\"meta\":{}"), 12u + 10);
    EXPECT_EQ(fault("{\"meta\":{}}}"), 12u + 11);
    EXPECT_EQ(fault("{\"meta\":{,}}"), 12u + 9);
    EXPECT_EQ(fault("{\"meta\":{\"a\":1,}}"), 12u + 15);
    EXPECT_EQ(fault("{\"meta\":{\"a\":[1 2]}}"), 12u + 16);
    EXPECT_EQ(fault("{\"meta\":{\"a\":[1,]}}"), 12u + 16);
    EXPECT_EQ(fault("{\"meta\":{\"a\":\"\\x\"}}"), 12u + 15);
    EXPECT_EQ(fault("{\"meta\":{\"a\":\"\\u12g4\"}}"), 12u + 18);
    EXPECT_EQ(fault("{\"meta\":{\"a\":nulL}}"), 12u + 13);
    EXPECT_EQ(fault("{\"meta\":{\"a\":\"b\"\"c\"}}"), 12u + 16);
    fault("   ");
    fault("{\"meta\":\"\xff\"}");
    fault("{\"meta\":\"\n\"}");
    fault("{\"meta\":\"open");
    fault("\xef\xbb\xbf{}");
}

// ---- Memory ---------------------------------------------------------------------------------------------

/// How much more memory than before a child process had at most while it did `work`, in bytes.
std::uint64_t peakOf(const std::function<void()>& work) {
    int ends[2];
    if (::pipe(ends) != 0) throw std::runtime_error("no pipe");
    const pid_t child = ::fork();
    if (child == 0) {
        const auto value = [](const char* key) {
            std::ifstream status("/proc/self/status");
            std::string word;
            std::uint64_t kilobytes = 0;
            while (status >> word)
                if (word == key) status >> kilobytes;
            return kilobytes * 1024;
        };
        std::ofstream("/proc/self/clear_refs") << "5"; // the peak starts anew
        const std::uint64_t before = value("VmRSS:");
        work();
        const std::uint64_t peak = value("VmHWM:");
        const std::uint64_t grown = peak > before ? peak - before : 0;
        if (::write(ends[1], &grown, sizeof grown) != sizeof grown) ::_exit(1);
        ::_exit(0);
    }
    std::uint64_t grown = 0;
    ::close(ends[1]);
    const bool told = ::read(ends[0], &grown, sizeof grown) == sizeof grown;
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!told || status != 0) throw std::runtime_error("the child died");
    return grown;
}

/// Sanitizers keep freed memory and put room around each block.
#if defined(KELSRC_SANITIZED)
constexpr std::uint64_t OVERHEAD = 4;
#else
constexpr std::uint64_t OVERHEAD = 1;
#endif
constexpr std::uint64_t MIB = 1 << 20;

TEST(HostileMemory, TheLimitHoldsForHeadersMadeOfTheSmallestEntries) {
    ValidateOptions options;
    options.limits.memoryBytes = 64 * MIB;
    const std::string frames[][2] = {
        {R"({"accessors":{"attributeViews":{},"indexViews":{}},"bufferViews":{},"meshes":{},"bufferChunks":{)",
         R"("":{}}})"},
        {R"({"accessors":{"attributeViews":{},"indexViews":{}},"bufferChunks":{},"bufferViews":{},"meshes":{)",
         R"("":{}}})"},
        {R"({"bufferChunks":{},"bufferViews":{},"meshes":{},"accessors":{"indexViews":{},"attributeViews":{)",
         R"("":{}}}})"},
        {R"({"meta":{"a":[)", R"(0]}})"},
        {R"({"bufferViews":{"a":{"chunks":[)", R"(""]}}})"},
    };
    const std::string fillers[] = {"\"\":{},", "\"\":{},", "\"\":{},", "0,", "\"\","};
    for (int i = 0; i < 5; ++i) {
        std::string header = frames[i][0];
        while (header.size() < 12 * MIB)
            header += fillers[i];
        const std::string text = assemble(header + frames[i][1]);
        EXPECT_LE(peakOf([&] {
                      try {
                          read(text, options.limits);
                      } catch (const SrcError&) {
                      }
                  }),
                  OVERHEAD * (64 * MIB + 8 * MIB))
            << fillers[i] << i;
        EXPECT_LE(peakOf([&] { validateSrc(ByteView(std::string_view(text)), options); }),
                  OVERHEAD * (64 * MIB + 8 * MIB))
            << fillers[i] << i;
    }
}

TEST(HostileMemory, AStreamThatClaimsMuchAndGivesLittleTakesLittle) {
    std::string longHeader = assemble(std::string(1000, ' '));
    longHeader.replace(8, 4, std::string("\0\0\0\x1f", 4)); // 496 MiB, below the limit
    const std::string longChunk =
        Editable(triangleFile())
            .replace("\"byteLength\":36,\"byteOffset\":42", "\"byteLength\":4000000000,\"byteOffset\":42")
            .file();
    for (const std::string& text : {longHeader, longChunk}) {
        EXPECT_LE(peakOf([&] {
                      std::istringstream in(text);
                      try {
                          readSrc(in);
                      } catch (const SrcError&) {
                      }
                      std::istringstream again(text);
                      validateSrc(again);
                      std::istringstream meshes(text);
                      try {
                          SrcStream stream(meshes);
                          while (stream.next())
                              ;
                      } catch (const SrcError&) {
                      }
                  }),
                  OVERHEAD * 8 * MIB);
    }
}

} // namespace
