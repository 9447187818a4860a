// What verification finds, on files that were written from another input than the one compared with.

#include <kel/convert/Convert.h>
#include <kel/convert/Verify.h>
#include <kel/prepare/ChooseMode.h>
#include <reader/Files.h>

#include <gmock/gmock.h>

#include <cmath>
#include <functional>
#include <sstream>

namespace {

using namespace kel::tests;
using kel::prepare::Target;
using reader_fixture::Mode;
using testing::HasSubstr;
using testing::StartsWith;

Target targetOf(Mode mode) {
    switch (mode) {
    case Mode::DEFAULT:
        return Target::PRESET_DEFAULT;
    case Mode::CMP1:
        return Target::PRESET_CMP1;
    case Mode::UNCOMPRESSED:
        return Target::UNCOMPRESSED;
    case Mode::POSITIONS:
        return Target::POSITION_COMPRESSED;
    case Mode::POSITIONS_AND_NORMALS:
        break;
    }
    return Target::POSITION_NORMAL_COMPRESSED;
}

/// A tetrahedron with normals in the box of the presets, a material and metadata.
kel::src::SrcWriterInput
scene(const std::function<void(std::vector<float>& positions, std::vector<std::uint16_t>& indices)>& change =
          nullptr,
      const std::string& name = "\"part\"", float red = 1.0f) {
    std::vector<float> positions{0, 0, 0, 0.5f, 0, 0, 0, 0.5f, 0, 0, 0, 0.5f};
    std::vector<std::uint16_t> indices{0, 2, 1, 0, 1, 3, 0, 3, 2, 1, 2, 3};
    if (change) change(positions, indices);
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute("position", 3, positions);
    mesh->addAttribute("normal", 3, std::vector<float>{0, 0, 0.5f, 0.5f, 0, 0, 0, 0.5f, 0, 0, 0, 0.5f});
    mesh->setIndices(indices);
    auto input = fixture::inputOf({mesh});
    const auto material = fixture::material(red, 0, 0);
    input.meshMaterials[mesh] = material;
    input.materials.insert(material);
    input.metaData[mesh] = std::make_shared<std::map<std::string, std::string>>(
        std::map<std::string, std::string>{{"name", name}});
    return input;
}

/// The difference between `input` and a file that was written from `written`.
std::string difference(const kel::src::SrcWriterInput& input, const kel::src::SrcWriterInput& written,
                       Mode mode) {
    const std::string file = reader_fixture::write(written, mode);
    const bool isPublic = mode != Mode::DEFAULT && mode != Mode::CMP1;
    const auto errors = isPublic ? kel::prepare::measureErrors(input, targetOf(mode))
                                 : std::vector<kel::prepare::ReachedError>();
    return kel::convert::firstDifference(input, targetOf(mode), errors, reader_fixture::read(file));
}

TEST(Verify, WhatWasWrittenIsWhatWasMeantInEveryMode) {
    for (const Mode mode : reader_fixture::ALL_MODES)
        EXPECT_EQ(difference(scene(), scene(), mode), "") << static_cast<int>(mode);
}

TEST(Verify, MovedPositionIsFoundInEveryMode) {
    // By far more than any step, and inside the bounds.
    const auto moved = scene([](auto& positions, auto&) { positions[4] = 0.01f; });
    for (const Mode mode : reader_fixture::ALL_MODES)
        EXPECT_THAT(difference(scene(), moved, mode), StartsWith("mesh 0: \"position\": "))
            << static_cast<int>(mode);
}

TEST(Verify, OneBitOfAFloatIsFoundWhereFloatsAreStored) {
    const auto moved = scene([](auto& positions, auto&) { positions[3] = 0.50000006f; });
    for (const Mode mode : {Mode::DEFAULT, Mode::UNCOMPRESSED})
        EXPECT_THAT(difference(scene(), moved, mode), HasSubstr("\"position\""));
}

TEST(Verify, OtherIndexIsFound) {
    const auto other = scene([](auto&, auto& indices) { std::swap(indices[1], indices[2]); });
    for (const Mode mode : reader_fixture::ALL_MODES)
        EXPECT_EQ(difference(scene(), other, mode), "mesh 0: index 1 is 1, not 2");
}

TEST(Verify, MissingMeshIsFound) {
    auto two = scene();
    two.meshes.push_back(fixture::unitSquare());
    for (const Mode mode : {Mode::DEFAULT, Mode::UNCOMPRESSED})
        EXPECT_EQ(difference(two, scene(), mode), "it has 1 of 2 meshes");
}

TEST(Verify, MissingAttributeIsFound) {
    auto with = fixture::inputOf({fixture::unitSquare()}), without = fixture::inputOf({fixture::noNormals()});
    for (const Mode mode : {Mode::DEFAULT, Mode::UNCOMPRESSED, Mode::POSITIONS})
        EXPECT_EQ(difference(with, without, mode), "mesh 0: \"normal\": it is missing");
}

TEST(Verify, OtherMetadataAreFound) {
    for (const Mode mode : {Mode::DEFAULT, Mode::UNCOMPRESSED})
        EXPECT_EQ(difference(scene(), scene(nullptr, "\"trap\""), mode),
                  "mesh 0: its metadata have another \"name\"");
}

TEST(Verify, OtherMaterialIsFound) {
    for (const Mode mode : {Mode::DEFAULT, Mode::UNCOMPRESSED})
        EXPECT_EQ(difference(scene(), scene(nullptr, "\"part\"", 0.5f), mode),
                  "mesh 0: its material has another diffuseColor");
}

TEST(Verify, ClampedBoundsAreAnErrorUnlessTheyWereAskedFor) {
    auto far = scene([](auto& positions, auto&) {
        for (float& value : positions)
            value += 10.0f;
    });
    const std::string file = reader_fixture::write(far, Mode::CMP1);
    const auto report = kel::src::validateSrc(kel::src::ByteView(std::string_view(file)));
    EXPECT_THAT(kel::convert::firstError(report, false), StartsWith("BOUNDS_TOO_SMALL"));
    EXPECT_EQ(kel::convert::firstError(report, true), "");
}

/// What verification says of a conversion; an error ends the test.
kel::convert::VerifiedError verified(const kel::convert::Recipe& recipe,
                                     const kel::src::SrcWriterInput& input = scene()) {
    std::ostringstream file;
    kel::convert::ConvertOptions options;
    options.verify = true;
    const auto report = kel::convert::convert(kel::convert::Source::ofInput(input, "model"), recipe,
                                              kel::convert::Destination::ofStream(file, "file"), options);
    return report.verified.value();
}

TEST(Verify, ExactIsSaidWhereFloatsAreStored) {
    for (const Target target : {Target::UNCOMPRESSED, Target::PRESET_DEFAULT}) {
        kel::convert::Recipe recipe;
        recipe.target = target;
        EXPECT_TRUE(verified(recipe).isExact);
        EXPECT_EQ(verified(recipe).position, 0.0);
    }
}

TEST(Verify, CodesAreWithinHalfAStep) {
    const double step = 2.0 / 65535.0; // of a sphere of radius 1
    for (const Target target : {Target::POSITION_COMPRESSED, Target::PRESET_CMP1}) {
        kel::convert::Recipe recipe;
        recipe.target = target;
        const double found = verified(recipe, fixture::inputOf({fixture::sphere(50, 30)})).position;
        EXPECT_LE(found, std::sqrt(3.0) * 0.5 * step * 1.005);
        EXPECT_GE(found, 0.5 * step);
    }
}

TEST(Verify, TurningAndScalingAreDoneToTheModelToo) {
    using kel::prepare::UpAxis;
    for (const UpAxis to : {UpAxis::X, UpAxis::Y, UpAxis::Z}) {
        for (const Target target :
             {Target::UNCOMPRESSED, Target::POSITION_NORMAL_COMPRESSED, Target::PRESET_CMP1}) {
            kel::convert::Recipe recipe;
            recipe.target = target;
            recipe.fromUp = UpAxis::Y;
            recipe.toUp = to;
            recipe.fromUnit = 0.001;
            recipe.toUnit = 0.3048;
            EXPECT_LT(verified(recipe).position, 1e-5);
        }
    }
}

TEST(Verify, FileThatWasTurnedTheOtherWayIsFound) {
    using kel::prepare::UpAxis;
    const auto model = scene();
    kel::convert::Recipe recipe;
    recipe.toUp = UpAxis::Z;
    kel::prepare::TransformOptions right, wrong;
    right.toUp = wrong.fromUp = UpAxis::Z;
    const std::string file = reader_fixture::write(kel::prepare::transform(model, wrong), Mode::UNCOMPRESSED);
    const auto report = kel::convert::compareWithSource(model, recipe, Target::UNCOMPRESSED, right,
                                                        reader_fixture::read(file));
    EXPECT_FALSE(report.same());
}

TEST(Verify, CutFileIsFound) {
    const std::string file = reader_fixture::write(scene(), Mode::UNCOMPRESSED);
    const auto verify = [&](const std::string& bytes) {
        return kel::convert::verifyBytes(scene(), Target::UNCOMPRESSED, {}, false, bytes);
    };
    EXPECT_EQ(verify(file), "");
    EXPECT_THAT(verify(file.substr(0, file.size() - 1)), StartsWith("CHUNK_PAST_END"));
    EXPECT_THAT(verify(file.substr(0, 40)), StartsWith("HEADER_TRUNCATED"));
}

} // namespace
