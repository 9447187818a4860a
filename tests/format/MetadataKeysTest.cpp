// What our tools write into the metadata reads back, and what is of another shape reads as nothing.

#include <kel/src/format/MetadataKeys.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace kel::src::format;

TEST(FitText, ReadsBackToTheSameDoubles) {
    const std::vector<Fit> fits = {{"normal", {0.1}, {1.0 / 3.0}},
                                   {"position", {-1e-300, 0.0, 12345678.9}, {2.5, 1e300, 3.0}}};
    const std::vector<Fit> read = readFit(fitText(fits));
    ASSERT_EQ(read.size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(read[i].attribute, fits[i].attribute);
        EXPECT_EQ(read[i].offset, fits[i].offset);
        EXPECT_EQ(read[i].scale, fits[i].scale);
    }
    EXPECT_EQ(fitText({}), "{}");
    EXPECT_TRUE(readFit("{}").empty());
}

TEST(ReadFit, TakesNumbersWithExponents) {
    const std::vector<Fit> read = readFit(R"({"a":{"offset":[-25e-2,1.5E+3],"scale":[4e0,12E1]}})");
    ASSERT_EQ(read.size(), 1u);
    EXPECT_EQ(read[0].offset, (std::vector<double>{-0.25, 1500.0}));
    EXPECT_EQ(read[0].scale, (std::vector<double>{4.0, 120.0}));
}

TEST(ReadFit, LeavesOutWhatIsOfAnotherShape) {
    EXPECT_EQ(
        readFit(R"({"a":{"offset":[1,2,3,4],"scale":[1,2,3,4]},"b":7,"c":{"offset":1,"scale":2}})").size(),
        2u);
    for (const char* text :
         {"", "null", "[]", "{", R"({"a":{"offset":[1],"scale":[1]}} x)", R"({"a":{"offset":[],"scale":[]}})",
          R"({"a":{"offset":[1,2],"scale":[1]}})", R"({"a":{"offset":[1]}})",
          R"({"a":{"offset":[1,2,3,4,5],"scale":[1,2,3,4,5]}})", R"({"a":{"offset":["1"],"scale":[1]}})",
          R"({"a":{"offset":[1e999],"scale":[1]}})"})
        EXPECT_TRUE(readFit(text).empty()) << text;
}

TEST(TransformText, ReadsBack) {
    Transform transform;
    transform.from = 'z';
    transform.to = 'x';
    transform.scale = 0.001;
    for (std::size_t i = 0; i < 9; ++i)
        transform.matrix[i] = 0.1 * static_cast<double>(i) - 0.3;
    const auto read = readTransform(transformText(transform));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->from, 'z');
    EXPECT_EQ(read->to, 'x');
    EXPECT_EQ(read->scale, 0.001);
    EXPECT_EQ(read->matrix, transform.matrix);
}

TEST(ReadTransform, NeedsMatrixScaleAndFrom) {
    const std::string matrix = R"("matrix":[1,0,0,0,1,0,0,0,1])";
    EXPECT_TRUE(readTransform(R"({"from":"y",)" + matrix + R"(,"scale":1,"to":"z"})"));
    EXPECT_EQ(readTransform(R"({"from":"z",)" + matrix + R"(,"scale":1})")->to, 'z');
    for (const std::string& text :
         {std::string("null"), std::string("[]"), std::string(R"({"from":"y","scale":1})"),
          R"({"from":"y",)" + matrix + "}", "{" + matrix + R"(,"scale":1})",
          R"({"from":"up",)" + matrix + R"(,"scale":1})", R"({"from":"y",)" + matrix + R"(,"scale":[1]})",
          R"({"from":"y",)" + matrix + R"(,"scale":1e999})",
          std::string(R"({"from":"y","matrix":[1,0,0,0,1,0,0,0],"scale":1})")})
        EXPECT_FALSE(readTransform(text)) << text;
}

TEST(SourceText, ReadsBack) {
    const Source source{"a \"b\".glb", "glTF", 0.01, "-Z"};
    const auto read = readSource(sourceText(source));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->file, source.file);
    EXPECT_EQ(read->format, "glTF");
    EXPECT_EQ(read->unit, 0.01);
    EXPECT_EQ(read->upAxis, "-Z");
    EXPECT_EQ(sourceText({"a.stl", "", std::nullopt, ""}), R"({"file":"a.stl"})");
}

TEST(ReadSource, MembersOfAnotherShapeCountAsMissing) {
    const auto read = readSource(R"({"file":7,"format":[],"unit":-1,"upAxis":"W","more":true})");
    ASSERT_TRUE(read);
    EXPECT_EQ(read->file + read->format + read->upAxis, "");
    EXPECT_FALSE(read->unit);
    EXPECT_FALSE(readSource(R"({"unit":"1"})")->unit);
    EXPECT_FALSE(readSource(R"({"unit":0})")->unit);
    EXPECT_FALSE(readSource("[]"));
    EXPECT_FALSE(readSource("a.glb"));
}

TEST(BoundsText, HasBothCornersInOneList) {
    EXPECT_EQ(boundsText({{{0.0, -0.5, 0.25}, {12.5, 8.0, 2.75}}}), "[0,-0.5,0.25,12.5,8,2.75]");
    const Bounds bounds{{{-1e300, 0.1, 0.0}, {0.1 + 0.2, 0.1, 1e300}}};
    EXPECT_EQ(readBounds(boundsText(bounds)), bounds);
}

TEST(ReadBounds, NeedsSixFiniteNumbersOfABox) {
    for (const char* text : {"", "7", "[0,0,0,1,1]", "[0,0,0,1,1,1,1]", "[0,0,0,1,-1,1]", "[0,0,0,1,1,1e999]",
                             "[0,0,0,1,1,null]", "[[0,0,0],[1,1,1]]", "{\"min\":[0,0,0]}", "[0,0,0,1,1,1"})
        EXPECT_FALSE(readBounds(text)) << text;
}

TEST(OriginText, HasNoMoreDigitsThanReadBackToTheSameDoubles) {
    EXPECT_EQ(originText({500000.0, 5400321.1, 0.0}), "[500000,5400321.1,0]");
    const Origin origin{0.1 + 0.2, -1e-300, 1e300};
    EXPECT_EQ(readOrigin(originText(origin)), origin);
}

TEST(ReadOrigin, NeedsThreeFiniteNumbers) {
    EXPECT_EQ(readOrigin("[1, -2.5, 3e6]"), (Origin{1.0, -2.5, 3e6}));
    for (const char* text : {"", "7", "null", "{}", "[]", "[1,2]", "[1,2,3,4]", "[1,2,\"3\"]", "[1,2,null]",
                             "[1,2,1e999]", "[1,2,[3]]", "[1,2,3", "[1,2,3] x"})
        EXPECT_FALSE(readOrigin(text)) << text;
}

TEST(NamesText, IsAListOfStrings) {
    EXPECT_EQ(namesText({"color", "a\"b", "\xc3\xa4"}), "[\"color\",\"a\\\"b\",\"\xc3\xa4\"]");
    EXPECT_EQ(namesText({}), "[]");
}

TEST(ReadName, IsTheContentOfAStringOrElseTheText) {
    EXPECT_EQ(readName(R"("bolt \u00e9")"), "bolt \xc3\xa9");
    EXPECT_EQ(readName("bolt"), "bolt");
    EXPECT_EQ(readName("7"), "7");
}

} // namespace
