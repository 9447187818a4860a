#include <kel/convert/ConvertError.h>

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

using namespace kel::convert;

TEST(ConvertCodes, TableIsInTheOrderOfTheEnumAndSaysSomething) {
    std::set<std::string_view> names;
    for (std::size_t i = 0; i < std::size(CONVERT_CODES); ++i) {
        EXPECT_EQ(static_cast<std::size_t>(CONVERT_CODES[i].code), i);
        EXPECT_TRUE(names.insert(CONVERT_CODES[i].name).second) << CONVERT_CODES[i].name;
        EXPECT_FALSE(CONVERT_CODES[i].sentence.empty()) << CONVERT_CODES[i].name;
    }
}

TEST(ConvertError, PutsTheDetailIntoItsSentence) {
    const ConvertError error(ConvertCode::UNKNOWN_UP_AXIS, "a.fbx", "-Y", "not asked for");
    EXPECT_STREQ(error.what(), "its up axis is -Y, which --up cannot turn from");
    EXPECT_EQ(error.subject(), "a.fbx");
    EXPECT_EQ(error.remedy(), "Turn the model in the program it comes from.");
}

TEST(ConvertError, TakesARemedyWhereItDependsOnTheCase) {
    const ConvertError error(ConvertCode::OUTPUT_REFUSED, "out.src", "is a folder, not a file",
                             "Add a file name.");
    EXPECT_STREQ(error.what(), "is a folder, not a file");
    EXPECT_EQ(error.remedy(), "Add a file name.");
}

} // namespace
