// What becomes of a mesh's metadata text.
#include "support/LogCapture.h"
#include "support/SrcFile.h"

#include <src/SrcWriter.h>
#include <src/builder/MeshBuilder.h>
#include <src/builder/SrcBuilder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace {

using kel::tests::LogCapture;
using kel::tests::SrcText;
using testing::HasSubstr;
using testing::IsEmpty;

/// The text of the mesh's "meta" member as it stands in the header.
std::string metaOf(const std::string& text, LogCapture& log, const std::string& mesh = "sail") {
    const auto builder = src::builder::SrcBuilder::create();
    const auto meshBuilder = src::builder::MeshBuilder::create(mesh, nullptr, src::POINTS);
    meshBuilder->setMetaJsonString(text);
    builder->addMesh(meshBuilder->build());
    std::ostringstream out;
    src::SrcWriter::create()->write(builder->build(), out);
    const std::string header = SrcText(out.str()).header; // parses, whatever the text was
    static_cast<void>(log);
    const std::string from = "\"material\":\"\",\"meta\":", to = ",\"primitive\":0}}";
    const std::size_t begin = header.find(from) + from.size();
    return header.substr(begin, header.rfind(to) - begin);
}

struct Kept {
    const char *text, *meta;
};
class MetaObject : public testing::TestWithParam<Kept> {};
INSTANTIATE_TEST_SUITE_P(
    Texts, MetaObject,
    testing::Values(Kept{"{}", "{}"}, Kept{" { } ", "{}"},
                    Kept{R"({"a" : 1,"b" : "x y"})", R"({"a":1,"b":"x y"})"},
                    Kept{"{\"a\":\t[ 1 ,\n{ } ,[ ] ]\r}", R"({"a":[1,{},[]]})"},
                    Kept{R"({"a":[true,false,null]})", R"({"a":[true,false,null]})"},
                    // Numbers take the header's form.
                    Kept{R"({"a":12.500000,"b":1.0,"c":-0,"d":1e3,"e":0.1,"f":9007199254740993})",
                         R"({"a":12.5,"b":1,"c":-0,"d":1000,"e":0.10000000000000001,"f":9007199254740992})"},
                    // Strings stay as they are.
                    Kept{R"({"a\/b":"\u00e9\ud83d\ude00\\\"\n / é"})",
                         R"({"a\/b":"\u00e9\ud83d\ude00\\\"\n / é"})"}));

TEST_P(MetaObject, IsKept) {
    LogCapture log;
    EXPECT_EQ(metaOf(GetParam().text, log), GetParam().meta);
    EXPECT_THAT(log.messages(), IsEmpty());
}

struct Refused {
    std::string text;
    std::size_t offset;
};
class MetaNoObject : public testing::TestWithParam<Refused> {};
INSTANTIATE_TEST_SUITE_P(
    Texts, MetaNoObject,
    testing::Values(Refused{"", 0}, Refused{"x", 0}, Refused{"[1]", 0}, Refused{"12", 0}, Refused{"null", 0},
                    Refused{"{", 1}, Refused{"{\"a\"", 4}, Refused{"{\"a\" 1}", 5}, Refused{"{\"a\" : x}", 7},
                    Refused{"{\"a\" : ,\"b\" : 1}", 7}, Refused{"{\"a\":1,}", 7}, Refused{"{a:1}", 1},
                    Refused{"{'a':1}", 1}, Refused{"{\"a\":[1,]}", 8}, Refused{"{\"a\":[1 2]}", 8},
                    Refused{"{\"a\":[1}", 7}, Refused{"{} {}", 3}, Refused{"{}x", 2},
                    Refused{"{\"a\":tru}", 5}, Refused{"{\"a\":01}", 6}, Refused{"{\"a\":1.}", 7},
                    Refused{"{\"a\":.5}", 5}, Refused{"{\"a\":+1}", 5}, Refused{"{\"a\":-}", 5},
                    Refused{"{\"a\":1e}", 7}, Refused{"{\"a\":NaN}", 5}, Refused{"{\"a\":Infinity}", 5},
                    Refused{"{\"a\":1e999}", 5}, Refused{"{\"a\":\"x}", 8}, Refused{"{\"a\":\"\n\"}", 6},
                    Refused{"{\"a\":\"\\x\"}", 6}, Refused{"{\"a\":\"\\u12g4\"}", 6},
                    Refused{"{\"a\":\"\\u12\"}", 6}, Refused{"{\"a\":\"\\ud800\"}", 6},
                    Refused{"{\"a\":\"\\ud800\\u0041\"}", 6}, Refused{"{\"a\":\"\\udc00\"}", 6},
                    Refused{"{\"a\":\"\\", 6}, Refused{std::string("{\0}", 3), 1},
                    Refused{std::string("{}\0", 3), 2}, Refused{"\xef\xbb\xbf{}", 0},
                    Refused{"{\"a\" : \"b\" c\"}", 11}));

TEST_P(MetaNoObject, IsKeptAsOneStringWithAWarning) {
    LogCapture log;
    const std::string meta = metaOf(GetParam().text, log);
    picojson::value value;
    ASSERT_EQ(picojson::parse(value, meta), "");
    ASSERT_TRUE(value.is<std::string>());
    EXPECT_EQ(value.get<std::string>(), GetParam().text);
    ASSERT_EQ(log.records().size(), 1u);
    EXPECT_EQ(log.records()[0].severity, 3);
    EXPECT_THAT(log.records()[0].message, HasSubstr("Metadata of mesh \"sail\" is not a JSON object"));
    EXPECT_THAT(log.records()[0].message, HasSubstr(" at byte " + std::to_string(GetParam().offset) + "."));
    EXPECT_EQ(log.records()[0].function,
              "void src::builder::MeshBuilder::setMetaJsonString(const std::string&)");
}

TEST(MetaText, BytesThatAreNotUtf8AreReplaced) {
    LogCapture log;
    // A stray continuation, an overlong slash, half a surrogate pair, a cut sequence; é, € and 😀 stay.
    EXPECT_EQ(metaOf("\x80|\xc0\xaf|\xed\xa0\x80|\xe2\x82|é€😀", log),
              "\"\uFFFD|\uFFFD\uFFFD|\uFFFD\uFFFD\uFFFD|\uFFFD|é€😀\"");
    EXPECT_EQ(log.records().size(), 1u);
    for (const char* bad : {"{\"\xff\":1}", "{\"a\":\"\xf4\x90\x80\x80\"}", "{\"a\":\"\xe0\x80\x80\"}",
                            "{\"a\":\"\xf0\x80\x80\x80\"}", "{\"a\":\"\xc3\"}"})
        EXPECT_EQ(metaOf(bad, log).front(), '"') << bad;
}

TEST(MetaText, NestingIsBounded) {
    const auto nested = [](int levels) {
        return "{\"a\":" + std::string(static_cast<std::size_t>(levels - 1), '[') +
               std::string(static_cast<std::size_t>(levels - 1), ']') + "}";
    };
    LogCapture log;
    EXPECT_EQ(metaOf(nested(61), log).front(), '{');
    EXPECT_THAT(log.messages(), IsEmpty());
    EXPECT_EQ(metaOf(nested(62), log).front(), '"');
    EXPECT_EQ(metaOf("{\"a\":" + std::string(3000000, '['), log).front(), '"');
    EXPECT_EQ(log.records().size(), 2u);
}

TEST(MetaText, TheLastTextCounts) {
    const auto meshBuilder = src::builder::MeshBuilder::create("m", nullptr, src::POINTS);
    meshBuilder->setMetaJsonString("{\"a\":1}");
    meshBuilder->setMetaJsonString("{\"b\":2}");
    const auto builder = src::builder::SrcBuilder::create();
    builder->addMesh(meshBuilder->build());
    std::ostringstream out;
    src::SrcWriter::create()->write(builder->build(), out);
    EXPECT_EQ(SrcText(out.str()).at("meshes", "m", "meta"), "{\"b\":2}");
}

} // namespace
