#include <kel/convert/ConvertError.h>
#include <kel/convert/Recipe.h>

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

namespace {

using kel::convert::ConvertCode;
using kel::convert::ConvertError;
using kel::convert::readRecipe;
using kel::convert::Recipe;
using kel::prepare::Target;
using kel::prepare::UpAxis;
using testing::HasSubstr;

constexpr Target TARGETS[] = {Target::PRESET_DEFAULT, Target::PRESET_CMP1, Target::UNCOMPRESSED,
                              Target::POSITION_COMPRESSED, Target::POSITION_NORMAL_COMPRESSED};

void expectRefused(const std::string& json, ConvertCode code, const std::string& what) {
    try {
        readRecipe(json);
        ADD_FAILURE() << "accepted: " << json;
    } catch (const ConvertError& error) {
        EXPECT_EQ(error.code(), code) << json;
        EXPECT_THAT(error.what(), HasSubstr(what));
        EXPECT_NE(error.remedy(), "");
    }
}

TEST(Recipe, StatesItsDefaults) {
    EXPECT_EQ(
        toJson(Recipe()),
        R"({"allowClamping":false,"fit":true,"onBadGeometry":"fail",)"
        R"("onlyTriangles":false,"optimize":false,"origin":"auto","scale":1,"seamless":false,"target":"auto"})");
}

TEST(Recipe, StatesWhatIsSet) {
    Recipe recipe;
    recipe.target = Target::PRESET_CMP1;
    recipe.maxError = 0.25;
    recipe.fit = false;
    recipe.allowClamping = recipe.onlyTriangles = recipe.optimize = recipe.seamless = true;
    recipe.onBadGeometry = kel::importer::BadGeometry::DROP;
    recipe.origin = {kel::importer::Origin::GIVEN, {500000, 5400000.5, -1}};
    recipe.scale = 2.5;
    recipe.scene = "the \"second\"";
    recipe.fromUnit = 0.001;
    recipe.toUnit = 1.0;
    recipe.fromUp = UpAxis::Y;
    recipe.toUp = UpAxis::Z;
    EXPECT_EQ(toJson(recipe),
              R"({"allowClamping":true,"fit":false,"fromUnit":0.001,"fromUp":"y","maxError":0.25,)"
              R"("onBadGeometry":"drop","onlyTriangles":true,"optimize":true,)"
              R"("origin":[500000,5400000.5,-1],"scale":2.5,)"
              R"("scene":"the \"second\"","seamless":true,"target":"CMP1","toUnit":1,"toUp":"z"})");
    EXPECT_TRUE(readRecipe(toJson(recipe)) == recipe);
    EXPECT_TRUE(recipe != Recipe());
}

TEST(Recipe, KnowsTheOriginsThatAreNoPlace) {
    EXPECT_EQ(readRecipe(R"({"origin":"keep"})").origin.choice, kel::importer::Origin::KEEP);
    EXPECT_EQ(readRecipe(R"({"origin":"auto"})").origin.choice, kel::importer::Origin::AUTO);
}

TEST(Recipe, RefusesOriginsOfOtherShapes) {
    expectRefused(R"({"origin":[1,2]})", ConvertCode::RECIPE_WRONG_TYPE,
                  "\"origin\" is no list of three numbers");
    expectRefused(R"({"origin":"far"})", ConvertCode::RECIPE_OUT_OF_RANGE, "\"origin\" is \"far\"");
    expectRefused(R"({"origin":7})", ConvertCode::RECIPE_WRONG_TYPE, "\"origin\" is no string");
}

TEST(Recipe, MembersThatAreNotThereHaveTheirDefaults) {
    EXPECT_TRUE(readRecipe("{}") == Recipe());
    const Recipe recipe = readRecipe(" { \"optimize\" : true ,\n\"target\": \"position\" } ");
    EXPECT_TRUE(recipe.optimize);
    EXPECT_EQ(recipe.target, Target::POSITION_COMPRESSED);
    EXPECT_TRUE(recipe.fit);
}

RC_GTEST_PROP(Recipe, ReadsBackAsItWas, ()) {
    Recipe recipe;
    const auto number = [] { return std::abs(*rc::gen::nonZero<double>()); };
    if (*rc::gen::arbitrary<bool>()) recipe.target = TARGETS[*rc::gen::inRange(0, 5)];
    if (*rc::gen::arbitrary<bool>()) recipe.maxError = number();
    recipe.fit = *rc::gen::arbitrary<bool>();
    recipe.allowClamping = *rc::gen::arbitrary<bool>();
    recipe.onlyTriangles = *rc::gen::arbitrary<bool>();
    recipe.optimize = *rc::gen::arbitrary<bool>();
    if (*rc::gen::arbitrary<bool>()) recipe.onBadGeometry = kel::importer::BadGeometry::DROP;
    recipe.scale = number();
    if (*rc::gen::arbitrary<bool>()) recipe.scene = std::to_string(*rc::gen::arbitrary<int>());
    if (*rc::gen::arbitrary<bool>()) recipe.fromUnit = number();
    if (*rc::gen::arbitrary<bool>()) recipe.toUnit = number();
    if (*rc::gen::arbitrary<bool>()) recipe.fromUp = static_cast<UpAxis>(*rc::gen::inRange(0, 3));
    if (*rc::gen::arbitrary<bool>()) recipe.toUp = static_cast<UpAxis>(*rc::gen::inRange(0, 3));
    const Recipe read = readRecipe(toJson(recipe));
    RC_ASSERT(read == recipe);
    RC_ASSERT(read.target == recipe.target && read.maxError == recipe.maxError && read.fit == recipe.fit &&
              read.allowClamping == recipe.allowClamping && read.onlyTriangles == recipe.onlyTriangles &&
              read.optimize == recipe.optimize && read.onBadGeometry == recipe.onBadGeometry &&
              read.scale == recipe.scale && read.scene == recipe.scene && read.fromUnit == recipe.fromUnit &&
              read.toUnit == recipe.toUnit && read.fromUp == recipe.fromUp && read.toUp == recipe.toUp);
}

TEST(Recipe, WhatIsNoObjectIsRefused) {
    for (const char* json : {"", "[]", "1", "null", "{", "{\"fit\":true", "{\"fit\":true}x"})
        expectRefused(json, ConvertCode::RECIPE_NOT_JSON, "not a JSON object");
}

TEST(Recipe, UnknownMemberIsRefusedByItsName) {
    expectRefused(R"({"fitt":true})", ConvertCode::RECIPE_UNKNOWN_MEMBER, "\"fitt\"");
}

TEST(Recipe, WrongTypeIsRefusedByTheMembersName) {
    for (const char* member : {"allowClamping", "fit", "fromUnit", "fromUp", "maxError", "onBadGeometry",
                               "onlyTriangles", "optimize", "scale", "scene", "target", "toUnit", "toUp"})
        for (const char* value : {"null", "{}", "[1]", "[true]", "[\"x\"]"})
            expectRefused(std::string("{\"") + member + "\":" + value + '}', ConvertCode::RECIPE_WRONG_TYPE,
                          std::string("\"") + member + '"');
}

TEST(Recipe, ValueOutOfRangeIsRefusedByTheMembersName) {
    const std::pair<const char*, const char*> WRONG[] = {
        {"scale", "0"},         {"scale", "-1"},        {"fromUnit", "0"}, {"toUnit", "-0.5"},
        {"maxError", "-1e-30"}, {"target", "\"cmp1\""}, {"toUp", "\"w\""}, {"onBadGeometry", "\"keep\""}};
    for (const auto& [member, value] : WRONG)
        expectRefused(std::string("{\"") + member + "\":" + value + '}', ConvertCode::RECIPE_OUT_OF_RANGE,
                      std::string("\"") + member + '"');
    EXPECT_EQ(readRecipe(R"({"maxError":0})").maxError, 0.0);
}

} // namespace
