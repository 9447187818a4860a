#include <kel/src/encoding/EncodingPresets.h>

#include <support/Streams.h>

#include <gtest/gtest.h>

namespace {

using namespace kel::src::detail;
using kel::tests::CapturedStreams;
using Precision = std::map<std::string, std::uint32_t>;

const Precision ALL_FLOATS = {{"position", 32}, {"normal", 32}, {"texcoord", 32}, {"color", 32}, {"id", 32}};

TEST(EncodingPresets, DefaultQuantizesNothing) {
    const SRCEncodingConfig& config = getSRCEncodingPreset("default");
    EXPECT_EQ(config.precision, ALL_FLOATS);
    EXPECT_TRUE(config.lossless);
    EXPECT_TRUE(config.enabled);
}

TEST(EncodingPresets, Cmp1QuantizesAllButIds) {
    const SRCEncodingConfig& config = getSRCEncodingPreset("CMP1");
    EXPECT_EQ(config.precision,
              (Precision{{"position", 16}, {"normal", 8}, {"texcoord", 16}, {"color", 8}, {"id", 32}}));
    EXPECT_FALSE(config.lossless);
    EXPECT_TRUE(config.enabled);
}

TEST(EncodingPresets, ASecondRequestGivesTheSameEntryAndWritesNothing) {
    SRCEncodingConfig& first = getSRCEncodingPreset("CMP1");
    CapturedStreams streams;
    EXPECT_EQ(&getSRCEncodingPreset("CMP1"), &first);
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST(EncodingPresets, AnUnknownNameWarnsOnceAndIsKeptWithTheDefaults) {
    CapturedStreams streams;
    const SRCEncodingConfig& config = getSRCEncodingPreset("Default");
    getSRCEncodingPreset("Default");
    EXPECT_EQ(streams.err(),
              "Unable to find SRC encoding preset with name \"Default\". Using default preset instead.\n");
    EXPECT_EQ(config.precision, ALL_FLOATS);
    EXPECT_TRUE(config.lossless);
    EXPECT_TRUE(config.enabled);
}

TEST(EncodingPresets, AChangeThroughTheReferenceChangesThePreset) {
    CapturedStreams streams;
    getSRCEncodingPreset("changed").precision["position"] = 12;
    EXPECT_EQ(getSRCEncodingPreset("changed").precision.at("position"), 12u);
}

TEST(EncodingPresets, MakingAPresetAgainKeepsItsChanges) {
    getSRCEncodingPreset("default").precision["extra"] = 9;
    createSRCEncodingPreset("default");
    EXPECT_EQ(getSRCEncodingPreset("default").precision.at("extra"), 9u);
    getSRCEncodingPreset("default").precision.erase("extra");
}

} // namespace
