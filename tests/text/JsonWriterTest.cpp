#include <kel/src/text/JsonWriter.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace {

using namespace kel::src::text;

std::string numberText(double value) {
    std::string text;
    appendJsonNumber(text, value);
    return text;
}

TEST(JsonNumber, WholeNumbersBelowTwoToThe53HaveNoPoint) {
    EXPECT_EQ(numberText(0), "0");
    EXPECT_EQ(numberText(-0.0), "-0");
    EXPECT_EQ(numberText(1024), "1024");
    EXPECT_EQ(numberText(-9007199254740991.0), "-9007199254740991");
    EXPECT_EQ(numberText(9007199254740992.0), "9007199254740992");
}

TEST(JsonNumber, OthersHaveSeventeenDigits) {
    EXPECT_EQ(numberText(0.1), "0.10000000000000001");
    EXPECT_EQ(numberText(0.1f), "0.10000000149011612");
    EXPECT_EQ(numberText(1e-8), "1e-08");
    EXPECT_EQ(numberText(1e300), "1.0000000000000001e+300");
}

TEST(JsonNumber, NotANumberAndInfinitiesAreRefused) {
    EXPECT_THROW(numberText(std::nan("")), std::overflow_error);
    EXPECT_THROW(numberText(std::numeric_limits<double>::infinity()), std::overflow_error);
    EXPECT_THROW(numberText(-std::numeric_limits<double>::infinity()), std::overflow_error);
}

RC_GTEST_PROP(JsonNumber, IsPicojsonsTextForAnyBits, (std::uint64_t bits)) {
    double value;
    std::memcpy(&value, &bits, sizeof value);
    RC_PRE(std::isfinite(value));
    RC_ASSERT(numberText(value) == picojson::value(value).serialize());
}

RC_GTEST_PROP(JsonNumber, IsPicojsonsTextForSinglePrecision, (float value)) {
    RC_PRE(std::isfinite(value));
    RC_ASSERT(numberText(value) == picojson::value(static_cast<double>(value)).serialize());
}

RC_GTEST_PROP(JsonString, IsPicojsonsTextForAnyBytes, (const std::string& value)) {
    std::string text;
    appendJsonString(text, value);
    RC_ASSERT(text == picojson::value(value).serialize());
}

TEST(JsonString, IsPicojsonsTextForEveryByte) {
    std::string all;
    for (int c = 0; c < 256; ++c)
        all += static_cast<char>(c);
    std::string text;
    appendJsonString(text, all);
    EXPECT_EQ(text, picojson::value(all).serialize());
}

TEST(JsonValue, NestedIsPicojsonsText) {
    const std::string source =
        R"({"a":[],"b":{},"c":[1,"x",null,true,false,{"d":[-1.5e-7,[2]]}],"e/f":"\u0001\"\\"})";
    picojson::value value;
    ASSERT_EQ(picojson::parse(value, source), "");
    std::string text;
    appendJson(text, value);
    EXPECT_EQ(text, value.serialize());
}

} // namespace
