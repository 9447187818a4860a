#include <kel/prepare/FitToRange.h>

#include <support/Meshes.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <picojson.h>
#include <rapidcheck/gtest.h>

#include <clocale>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace {

using namespace kel::prepare;
using fixture::floatsOf;
using testing::Each;
using testing::ElementsAre;

constexpr float NaN = std::numeric_limits<float>::quiet_NaN();
constexpr float INF = std::numeric_limits<float>::infinity();

fixture::DefaultMeshPtr withAttribute(const std::string& name, std::size_t components,
                                      std::vector<float> values) {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute(name, components, std::move(values));
    return mesh;
}

/// The recorded numbers, read back by an independent reader of JSON.
std::vector<double> recorded(const kel::src::SrcWriterInput& input, const std::string& attribute,
                             const std::string& field) {
    picojson::value fit;
    const std::string error = picojson::parse(fit, input.metaData.at(input.meshes.at(0))->at("fit"));
    EXPECT_EQ(error, "");
    std::vector<double> numbers;
    for (const auto& number : fit.get(attribute).get(field).get<picojson::array>())
        numbers.push_back(number.get<double>());
    return numbers;
}

/// original = value * scale + offset
std::vector<double> undone(const kel::src::SrcWriterInput& fitted, const std::string& attribute) {
    const auto offset = recorded(fitted, attribute, "offset");
    const auto scale = recorded(fitted, attribute, "scale");
    std::vector<double> values;
    for (const float value : floatsOf(*fitted.meshes.at(0), attribute)) {
        const std::size_t c = values.size() % offset.size();
        values.push_back(static_cast<double>(value) * scale[c] + offset[c]);
    }
    return values;
}

kel::src::SrcWriterInput fit(const kel::mesh::MeshPtr& mesh) {
    return fitToRange(fixture::inputOf({mesh}));
}

// ---- countClamped ---------------------------------------------------------------------------------------

TEST(CountClamped, CountsEveryComponentOutsideTheBox) {
    const auto input = fixture::inputOf({fixture::unitSquare()});
    const auto counts = countClamped(input); // the ones: 4 in the positions, 4 normals, 4 texture coordinates
    ASSERT_EQ(counts.size(), 3u);
    EXPECT_EQ(counts[0].attribute, "position");
    EXPECT_EQ(counts[0].components, 4u);
    EXPECT_EQ(counts[1].attribute, "normal");
    EXPECT_EQ(counts[1].components, 4u);
    EXPECT_EQ(counts[2].attribute, "texcoord");
    EXPECT_EQ(counts[2].components, 4u);
}

TEST(CountClamped, NamesTheMesh) {
    const auto counts = countClamped(
        fixture::inputOf({withAttribute("position", 1, {0.0f}), withAttribute("position", 1, {2.0f})}));
    ASSERT_EQ(counts.size(), 1u);
    EXPECT_EQ(counts[0].mesh, 1u);
    EXPECT_EQ(counts[0].meshName, "mesh1");
}

TEST(CountClamped, TakesTheBoundsAsInside) {
    EXPECT_TRUE(countClamped(fixture::inputOf({withAttribute("position", 2, {-0.5f, 0.5f})})).empty());
}

TEST(CountClamped, CountsNanAndInfinity) {
    const auto counts = countClamped(fixture::inputOf({withAttribute("color", 3, {NaN, INF, 0.0f})}));
    ASSERT_EQ(counts.size(), 1u);
    EXPECT_EQ(counts[0].components, 2u);
}

TEST(CountClamped, PassesWhatThePresetDoesNotQuantize) {
    auto mesh = withAttribute("id", 1, {7.0f});
    mesh->addAttribute("weight", 1, std::vector<float>{7.0f});
    mesh->addAttribute("color", 4, std::vector<float>{7, 7, 7, 7});
    mesh->addAttribute("texcoord", 1, std::vector<std::int32_t>{7});
    EXPECT_TRUE(countClamped(fixture::inputOf({mesh})).empty());
}

TEST(CountClamped, ToleratesEmptyPointers) {
    kel::src::SrcWriterInput input;
    input.meshes = {nullptr, withAttribute("position", 1, {2.0f})};
    input.metaData[input.meshes[1]] = nullptr;
    const auto counts = countClamped(input);
    ASSERT_EQ(counts.size(), 1u);
    EXPECT_EQ(counts[0].mesh, 1u);
    EXPECT_EQ(counts[0].meshName, "");
}

TEST(CountClamped, RefusesAnEmptyBox) {
    EXPECT_THROW(countClamped({}, {1.0f, 1.0f}), std::invalid_argument);
    EXPECT_THROW(countClamped({}, {NaN, 1.0f}), std::invalid_argument);
}

// ---- fitToRange -----------------------------------------------------------------------------------------

TEST(FitToRange, PutsPositionsOnTheWholeBoxAxisByAxis) {
    const auto fitted = fit(withAttribute("position", 3, {10, -2, 0, 30, -1, 8, 20, -2, 2}));
    EXPECT_THAT(floatsOf(*fitted.meshes[0], "position"),
                ElementsAre(-0.5f, -0.5f, -0.5f, 0.5f, 0.5f, 0.5f, 0.0f, -0.5f, -0.25f));
}

TEST(FitToRange, RecordsTheInversePerComponent) {
    const auto fitted = fit(withAttribute("position", 3, {10, -2, 0, 30, -1, 8}));
    EXPECT_EQ(fitted.metaData.at(fitted.meshes[0])->at("fit"),
              "{\"position\":{\"offset\":[20,-1.5,4],\"scale\":[20,1,8]}}");
}

TEST(FitToRange, FitsNormalsAlikeOnEveryMesh) {
    const auto fitted = fit(withAttribute("normal", 3, {0, 0.6f, 0.8f}));
    EXPECT_THAT(floatsOf(*fitted.meshes[0], "normal"), ElementsAre(0.0f, 0.3f, 0.4f));
    EXPECT_THAT(recorded(fitted, "normal", "scale"), Each(2.0));
    EXPECT_THAT(recorded(fitted, "normal", "offset"), Each(0.0));
}

TEST(FitToRange, WidensTheRangeForLongNormals) {
    const auto fitted = fit(withAttribute("normal", 3, {0, -4, 1}));
    EXPECT_THAT(floatsOf(*fitted.meshes[0], "normal"), ElementsAre(0.0f, -0.5f, 0.125f));
    EXPECT_THAT(recorded(fitted, "normal", "scale"), Each(8.0));
}

TEST(FitToRange, FitsColorsAlikeOnEveryMesh) {
    const auto fitted = fit(withAttribute("color", 3, {0, 0.25f, 1}));
    EXPECT_THAT(floatsOf(*fitted.meshes[0], "color"), ElementsAre(-0.5f, -0.25f, 0.5f));
    EXPECT_THAT(recorded(fitted, "color", "scale"), Each(1.0));
    EXPECT_THAT(recorded(fitted, "color", "offset"), Each(0.5));
}

TEST(FitToRange, WidensTheRangeForBrightColors) {
    const auto fitted = fit(withAttribute("color", 3, {0, 0, 2}));
    EXPECT_THAT(floatsOf(*fitted.meshes[0], "color"), ElementsAre(-0.5f, -0.5f, 0.5f));
    EXPECT_THAT(recorded(fitted, "color", "scale"), ElementsAre(1.0, 1.0, 2.0));
}

TEST(FitToRange, BringsAConstantComponentBackExactly) {
    for (const float constant : {0.0f, 5.3f, -1e-30f, 3e38f, 1e-45f}) {
        const auto fitted = fit(withAttribute("position", 1, {constant, constant}));
        EXPECT_THAT(undone(fitted, "position"), Each(static_cast<double>(constant)));
        EXPECT_THAT(floatsOf(*fitted.meshes[0], "position"), Each(-0.5f));
        EXPECT_GT(recorded(fitted, "position", "scale")[0], 0.0);
    }
}

TEST(FitToRange, HoldsTheWholeRangeOfFloats) {
    constexpr float MAX = std::numeric_limits<float>::max();
    const auto fitted = fit(withAttribute("position", 1, {-MAX, 0.0f, MAX}));
    EXPECT_THAT(floatsOf(*fitted.meshes[0], "position"), ElementsAre(-0.5f, 0.0f, 0.5f));
    EXPECT_THAT(undone(fitted, "position"),
                ElementsAre(-static_cast<double>(MAX), 0.0, static_cast<double>(MAX)));
}

TEST(FitToRange, LeavesNonFiniteNumbersAndFitsTheRest) {
    const auto fitted = fit(withAttribute("position", 1, {2, NaN, INF, 4}));
    const auto values = floatsOf(*fitted.meshes[0], "position");
    EXPECT_EQ(values[0], -0.5f);
    EXPECT_TRUE(std::isnan(values[1]));
    EXPECT_EQ(values[2], INF);
    EXPECT_EQ(values[3], 0.5f);
    EXPECT_EQ(countClamped(fitted).at(0).components, 2u);
}

TEST(FitToRange, CombinesWithAnEarlierFit) {
    auto input = fixture::inputOf({withAttribute("texcoord", 1, {0, 1})});
    (*input.metaData[input.meshes[0]])["fit"] =
        R"({"texcoord":{"offset":[100],"scale":[10]},"color":{"offset":[7,7,7],"scale":[2,2,2]}})";
    const auto fitted = fitToRange(input);
    EXPECT_THAT(undone(fitted, "texcoord"), ElementsAre(100.0, 110.0));
    EXPECT_THAT(recorded(fitted, "color", "offset"), ElementsAre(7.0, 7.0, 7.0));
}

TEST(FitToRange, ReplacesARecordThatIsNone) {
    for (const std::string& text : {std::string("oops"), std::string(100000, '['), std::string("[1]"),
                                    std::string(R"({"position":{"offset":[1e999],"scale":[1]}})"),
                                    std::string(R"({"position":{"offset":[1e101],"scale":[1]}})")}) {
        auto input = fixture::inputOf({withAttribute("position", 1, {0, 1})});
        (*input.metaData[input.meshes[0]])["fit"] = text;
        EXPECT_THAT(undone(fitToRange(input), "position"), ElementsAre(0.0, 1.0));
    }
}

TEST(FitToRange, SharesWhatItDoesNotChange) {
    auto mesh = fixture::unitSquare();
    mesh->addAttribute("id", 1, std::vector<float>{1, 2, 3, 4});
    const auto fitted = fit(mesh);
    EXPECT_EQ(fitted.meshes[0]->getIndexBuffer(), mesh->getIndexBuffer());
    EXPECT_EQ(fitted.meshes[0]->getAttributeBuffer("id"), mesh->getAttributeBuffer("id"));
    EXPECT_EQ(fitted.meshes[0]->getNumAttributeBuffers(), 4u);
    EXPECT_EQ(fitted.meshes[0]->getNumPrimitives(), 2u);
    EXPECT_EQ(fitted.meshes[0]->getPrimitiveType(), kel::mesh::TRIANGLES);
}

TEST(FitToRange, DoesNotTouchTheInput) {
    const auto mesh = fixture::unitSquare();
    const auto before = floatsOf(*mesh, "position");
    const auto input = fixture::inputOf({mesh});
    const auto fitted = fitToRange(input);
    EXPECT_EQ(floatsOf(*mesh, "position"), before);
    EXPECT_EQ(input.metaData.at(mesh)->count("fit"), 0u);
}

TEST(FitToRange, CopiesMetadataOfUnchangedMeshesToo) {
    const auto input = fixture::inputOf({withAttribute("weight", 1, {7.0f})});
    const auto fitted = fitToRange(input);
    EXPECT_EQ(fitted.meshes[0], input.meshes[0]);
    EXPECT_NE(fitted.metaData.at(fitted.meshes[0]), input.metaData.at(input.meshes[0]));
    EXPECT_EQ(*fitted.metaData.at(fitted.meshes[0]), *input.metaData.at(input.meshes[0]));
}

TEST(FitToRange, KeepsMaterialsAndNames) {
    const auto input = fixture::twoMaterials();
    const auto fitted = fitToRange(input);
    EXPECT_EQ(fitted.materials, input.materials);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(fitted.meshMaterials.at(fitted.meshes[i]), input.meshMaterials.at(input.meshes[i]));
        EXPECT_EQ(fitted.metaData.at(fitted.meshes[i])->at("name"), "\"mesh" + std::to_string(i) + "\"");
    }
    EXPECT_EQ(fitted.meshMaterials.size(), 2u);
    EXPECT_EQ(fitted.metaData.size(), 2u);
}

TEST(FitToRange, GivesAMeshWithoutMetadataItsRecord) {
    kel::src::SrcWriterInput input;
    input.meshes = {fixture::unitSquare(), nullptr};
    const auto fitted = fitToRange(input);
    EXPECT_EQ(fitted.metaData.at(fitted.meshes[0])->count("fit"), 1u);
    EXPECT_EQ(fitted.meshes[1], nullptr);
}

TEST(FitToRange, KeepsAMeshListedTwiceOneMesh) {
    const auto mesh = fixture::unitSquare();
    auto input = fixture::inputOf({mesh});
    input.meshes.push_back(mesh);
    FitReport report;
    const auto fitted = fitToRange(input, &report);
    EXPECT_EQ(fitted.meshes[0], fitted.meshes[1]);
    EXPECT_EQ(report.meshes, 1u);
    EXPECT_EQ(report.attributes, 3u);
}

TEST(FitToRange, FitsASharedBufferOnce) {
    const auto a = fixture::unitSquare();
    const auto b = fixture::unitSquare();
    b->addAttribute(a->getAttributeBuffer("position"));
    const auto fitted = fitToRange(fixture::inputOf({a, b}));
    EXPECT_EQ(fitted.meshes[0]->getAttributeBuffer("position"),
              fitted.meshes[1]->getAttributeBuffer("position"));
}

TEST(FitToRange, ReadsInterleavedBuffers) {
    std::vector<float> vertices = {1, 2, 9, 3, 4, 9};
    std::vector<unsigned char> bytes(vertices.size() * sizeof(float));
    std::memcpy(bytes.data(), vertices.data(), bytes.size());
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute(std::make_shared<kel::mesh::detail::AttributeBufferDataView>(
        kel::mesh::FLOAT, 2, 12, 0, std::make_shared<kel::mesh::detail::VectorBufferData>(bytes),
        "texcoord"));
    EXPECT_THAT(floatsOf(*fit(mesh).meshes[0], "texcoord"), ElementsAre(-0.5f, -0.5f, 0.5f, 0.5f));
}

TEST(FitToRange, KeepsAnEmptyAttributeEmpty) {
    const auto fitted = fit(withAttribute("position", 3, {}));
    EXPECT_EQ(fitted.meshes[0]->getAttributeBuffer("position")->getElementCount(), 0u);
}

TEST(FitToRange, WritesNumbersInAnyLocale) {
    const std::string before = std::setlocale(LC_ALL, nullptr);
    std::setlocale(LC_ALL, "de_DE.UTF-8"); // where it is installed, a decimal comma
    const auto fitted = fit(withAttribute("position", 1, {0.0f, 0.5f}));
    std::setlocale(LC_ALL, before.c_str());
    EXPECT_EQ(fitted.metaData.at(fitted.meshes[0])->at("fit"),
              "{\"position\":{\"offset\":[0.25],\"scale\":[0.5]}}");
}

TEST(FitToRange, FitsAnyBox) {
    const auto fitted =
        fitToRange(fixture::inputOf({withAttribute("position", 1, {3, 5, 7})}), nullptr, {-1.0f, 0.0f});
    EXPECT_THAT(floatsOf(*fitted.meshes[0], "position"), ElementsAre(-1.0f, -0.5f, 0.0f));
    EXPECT_THAT(undone(fitted, "position"), ElementsAre(3.0, 5.0, 7.0));
}

float anyFinite() {
    const auto bits = *rc::gen::arbitrary<std::uint32_t>();
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return std::isfinite(value) ? value : 0.0f;
}

RC_GTEST_PROP(FitToRangeProperty, NeverLeavesTheBox, ()) {
    std::vector<float> values(*rc::gen::inRange(1, 20));
    for (float& value : values)
        value = anyFinite();
    const float lower = *rc::gen::element(-0.5f, -1.0f, 0.0f, 0.1f);
    const float upper = lower + *rc::gen::element(1.0f, 0.3f, 0.9f);
    const auto name = *rc::gen::element<std::string>("position", "normal", "texcoord", "color");
    const auto fitted =
        fitToRange(fixture::inputOf({withAttribute(name, 1, values)}), nullptr, {lower, upper});
    for (const float value : floatsOf(*fitted.meshes[0], name))
        RC_ASSERT(value >= lower && value <= upper);
}

RC_GTEST_PROP(FitToRangeProperty, ComesBackWithinTheStatedError, ()) {
    std::vector<float> values(*rc::gen::inRange(1, 20));
    for (float& value : values)
        value = anyFinite();
    const auto fitted = fit(withAttribute("position", 1, values));
    const auto back = undone(fitted, "position");
    const double range = static_cast<double>(*std::max_element(values.begin(), values.end())) -
                         static_cast<double>(*std::min_element(values.begin(), values.end()));
    for (std::size_t i = 0; i < values.size(); ++i)
        RC_ASSERT(std::fabs(back[i] - static_cast<double>(values[i])) <= range * std::exp2(-26) * 1.0000001);
}

} // namespace
