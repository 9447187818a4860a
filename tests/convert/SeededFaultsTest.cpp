// Faults are put into models one at a time; each has to be found, and named.

#include "FaultModels.h"

#include <kel/convert/Compare.h>
#include <kel/convert/Convert.h>
#include <kel/convert/Verify.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <functional>
#include <sstream>

namespace {

using namespace fault_models;
using namespace kel::convert;
using Kind = DifferenceKind;

ComparableScene sceneOf(const Model& model) {
    return comparableScene(inputOf(model));
}

// ---- Faults ---------------------------------------------------------------------------------------------

/// The middle triangle, away from poles and rims.
std::uint32_t* middleTriangle(Part& part) {
    return &part.indices[part.indices.size() / 6 * 3];
}

/// Spoils one part; false where there is nothing of the kind.
using SpoilPart = std::function<bool(Part&)>;

struct Fault {
    std::string name;
    Kind kind;
    std::function<bool(Model&)> spoil;
};

/// A fault of the first part that can have it.
Fault inPart(std::string name, Kind kind, const SpoilPart& spoil) {
    return {std::move(name), kind,
            [spoil](Model& model) { return std::any_of(model.parts.begin(), model.parts.end(), spoil); }};
}

Fault inSurface(std::string name, Kind kind, const std::function<void(Part&)>& spoil) {
    return inPart(std::move(name), kind, [spoil](Part& part) {
        if (part.isSurface()) spoil(part);
        return part.isSurface();
    });
}

Fault inAttribute(std::string name, Kind kind, const std::string& attribute,
                  const std::function<void(std::vector<float>&)>& spoil) {
    return inPart(std::move(name), kind, [attribute, spoil](Part& part) {
        if (!part.has(attribute)) return false;
        spoil(part.values(attribute));
        return true;
    });
}

/// Of all parts.
Fault inPositions(std::string name, const std::function<void(float*)>& spoil) {
    return {std::move(name), Kind::POSITIONS, [spoil](Model& model) {
                for (Part& part : model.parts) {
                    for (std::size_t v = 0; v < part.vertices(); ++v)
                        spoil(&part.values("position")[3 * v]);
                }
                return true;
            }};
}

void turn(float* vector, double degrees) {
    const double angle = degrees * 3.14159265358979323846 / 180.0;
    const double y = static_cast<double>(vector[1]), z = static_cast<double>(vector[2]);
    vector[1] = static_cast<float>(std::cos(angle) * y - std::sin(angle) * z);
    vector[2] = static_cast<float>(std::sin(angle) * y + std::cos(angle) * z);
}

std::vector<Fault> orientationFaults() {
    return {inSurface("one triangle faces the other way", Kind::ORIENTATION,
                      [](Part& part) { std::swap(middleTriangle(part)[0], middleTriangle(part)[1]); }),
            inSurface("all triangles face the other way", Kind::ORIENTATION, [](Part& part) {
                for (std::size_t i = 0; i + 2 < part.indices.size(); i += 3)
                    std::swap(part.indices[i], part.indices[i + 1]);
            })};
}

std::vector<Fault> topologyFaults() {
    return {
        inSurface("one triangle uses another vertex", Kind::TOPOLOGY,
                  [](Part& part) {
                      std::uint32_t* triangle = middleTriangle(part);
                      const auto isFree = [&](std::uint32_t v) {
                          return std::find(triangle, triangle + 3, v) == triangle + 3;
                      };
                      std::uint32_t other = 0;
                      while (!isFree(other))
                          ++other;
                      triangle[2] = other;
                  }),
        inSurface("a tenth of the triangles is gone", Kind::TOPOLOGY,
                  [](Part& part) {
                      std::vector<std::uint32_t> kept;
                      for (std::size_t t = 0; 3 * t < part.indices.size(); ++t) {
                          if (t % 10 != 1)
                              kept.insert(kept.end(), {part.indices[3 * t], part.indices[3 * t + 1],
                                                       part.indices[3 * t + 2]});
                      }
                      part.indices = kept;
                  }),
        inSurface("one triangle is gone", Kind::TOPOLOGY,
                  [](Part& part) {
                      const auto first = part.indices.begin() + (middleTriangle(part) - part.indices.data());
                      part.indices.erase(first, first + 3);
                  }),
        inSurface("one triangle is there twice", Kind::TOPOLOGY,
                  [](Part& part) {
                      const std::vector<std::uint32_t> triangle(middleTriangle(part),
                                                                middleTriangle(part) + 3);
                      part.indices.insert(part.indices.end(), triangle.begin(), triangle.end());
                  }),
        inSurface("a shared edge is split on one side", Kind::TOPOLOGY,
                  [](Part& part) {
                      std::uint32_t* triangle = middleTriangle(part);
                      const auto added = static_cast<std::uint32_t>(part.vertices());
                      for (auto& [name, attribute] : part.attributes) {
                          auto& [components, values] = attribute;
                          for (std::size_t c = 0; c < components; ++c)
                              values.push_back((values[triangle[0] * components + c] +
                                                values[triangle[1] * components + c]) *
                                               0.5f);
                      }
                      const std::uint32_t last[] = {added, triangle[1], triangle[2]};
                      triangle[1] = added;
                      part.indices.insert(part.indices.end(), last, last + 3);
                  }),
        inPart("one line is gone", Kind::TOPOLOGY,
               [](Part& part) {
                   if (part.type != kel::mesh::LINES) return false;
                   part.indices.erase(part.indices.begin(), part.indices.begin() + 2);
                   return true;
               }),
        inPart("one line joins other points", Kind::TOPOLOGY,
               [](Part& part) {
                   if (part.type != kel::mesh::LINES) return false;
                   part.indices[1] = 3;
                   return true;
               }),
        inPart("one point is gone", Kind::TOPOLOGY,
               [](Part& part) {
                   if (part.type != kel::mesh::POINTS) return false;
                   part.indices.erase(part.indices.begin() + 1);
                   return true;
               }),
        {"the other diagonal of a flat square", Kind::TOPOLOGY,
         [](Model& model) {
             if (model.name != "drawing") return false;
             model.parts[0].indices = {0, 1, 3, 1, 2, 3};
             return true;
         }},
    };
}

std::vector<Fault> positionFaults() {
    return {
        inPart("one vertex is moved a little", Kind::POSITIONS,
               [](Part& part) {
                   part.values("position")[part.indices[part.indices.size() / 2] * 3] += 0.001f;
                   return true;
               }),
        inPart("one vertex is moved far", Kind::POSITIONS,
               [](Part& part) {
                   part.values("position")[part.indices[part.indices.size() / 2] * 3 + 1] += 500.0f;
                   return true;
               }),
        inPositions("all is moved a little", [](float* p) { p[1] += 0.01f; }),
        inPositions("all is moved by five million", [](float* p) { p[0] += 5e6f; }),
        inPositions("all is scaled",
                    [](float* p) {
                        for (int c = 0; c < 3; ++c)
                            p[c] *= 1.001f;
                    }),
        inPositions("all is mirrored", [](float* p) { p[0] = -1.0f - p[0]; }),
        inPositions("two axes are exchanged", [](float* p) { std::swap(p[0], p[2]); }),
        inPositions("all is turned", [](float* p) { turn(p, 1.0); }),
        {"a piece is detached", Kind::POSITIONS,
         [](Model& model) {
             if (model.name != "pair") return false;
             auto& positions = model.parts[0].values("position");
             for (std::size_t i = positions.size() / 2; i < positions.size(); i += 3)
                 positions[i] += 0.02f;
             return true;
         }},
    };
}

std::vector<Fault> attributeFaults() {
    const auto invert = [](std::vector<float>& values) {
        for (float& value : values)
            value = 1.0f - value;
    };
    return {
        inAttribute("one normal is negated", Kind::NORMALS, "normal",
                    [](auto& values) {
                        const std::size_t v = values.size() / 6 * 3;
                        for (std::size_t c = 0; c < 3; ++c)
                            values[v + c] = -values[v + c];
                    }),
        inAttribute("all normals are negated", Kind::NORMALS, "normal",
                    [](auto& values) {
                        for (float& value : values)
                            value = -value;
                    }),
        inAttribute("normals are turned by two degrees", Kind::NORMALS, "normal",
                    [](auto& values) {
                        for (std::size_t i = 0; i < values.size(); i += 3)
                            turn(&values[i], 2.0);
                    }),
        inAttribute("normals are twice as long", Kind::NORMALS, "normal",
                    [](auto& values) {
                        for (float& value : values)
                            value *= 2.0f;
                    }),
        inAttribute("normals are all the same", Kind::NORMALS, "normal",
                    [](auto& values) {
                        for (std::size_t i = 0; i < values.size(); ++i)
                            values[i] = i % 3 == 0 ? 1.0f : 0.0f;
                    }),
        inAttribute("colours are inverted", Kind::COLORS, "color", invert),
        inAttribute("one colour is another", Kind::COLORS, "color", [](auto& values) { values[4] += 0.05f; }),
        inAttribute("red and blue are exchanged", Kind::COLORS, "color",
                    [](auto& values) {
                        for (std::size_t i = 0; i < values.size(); i += 3)
                            std::swap(values[i], values[i + 2]);
                    }),
        inAttribute("texture coordinates are shifted", Kind::TEXCOORDS, "texcoord",
                    [](auto& values) {
                        for (std::size_t i = 0; i < values.size(); i += 2)
                            values[i] += 0.1f;
                    }),
        inAttribute("v is upside down", Kind::TEXCOORDS, "texcoord",
                    [](auto& values) {
                        for (std::size_t i = 1; i < values.size(); i += 2)
                            values[i] = 1.0f - values[i];
                    }),
        inAttribute("an attribute of the model's own is another", Kind::ATTRIBUTES, "_HEAT",
                    [](auto& values) { values[3] += 1.0f; }),
        inPart("normals are gone", Kind::ATTRIBUTES,
               [](Part& part) { return part.attributes.erase("normal") != 0; }),
        inPart("texture coordinates are gone", Kind::ATTRIBUTES,
               [](Part& part) { return part.attributes.erase("texcoord") != 0; }),
        inPart("an attribute is added", Kind::ATTRIBUTES,
               [](Part& part) {
                   part.attributes["color2"] = {3, std::vector<float>(3 * part.vertices(), 1.0f)};
                   return true;
               }),
    };
}

std::vector<Fault> meshFaults() {
    const auto several = [](std::string name, Kind kind,
                            const std::function<void(std::vector<Part>&)>& spoil) {
        return Fault{std::move(name), kind, [spoil](Model& model) {
                         if (model.parts.size() < 2) return false;
                         spoil(model.parts);
                         return true;
                     }};
    };
    return {
        {"two meshes have each other's names", Kind::POSITIONS,
         [](Model& model) {
             if (model.name != "building") return false;
             std::swap(model.parts[0].name, model.parts[1].name);
             return true;
         }},
        inPart("a mesh is renamed", Kind::NAMES,
               [](Part& part) {
                   part.name += " (1)";
                   return true;
               }),
        several("a mesh is gone", Kind::MESHES, [](auto& parts) { parts.pop_back(); }),
        {"a mesh is added", Kind::MESHES,
         [](Model& model) {
             model.parts.push_back(partOf(*fixture::tetrahedron(), "trap"));
             return true;
         }},
        {"a mesh is there twice", Kind::MESHES,
         [](Model& model) {
             model.parts.push_back(model.parts.front());
             return true;
         }},
        inPart("lines became points", Kind::MESHES,
               [](Part& part) {
                   const bool isLines = part.type == kel::mesh::LINES;
                   if (isLines) part.type = kel::mesh::POINTS;
                   return isLines;
               }),
        inPart("a colour of a material is another", Kind::MATERIALS,
               [](Part& part) {
                   if (part.diffuse) (*part.diffuse)[1] += 0.01f;
                   return part.diffuse.has_value();
               }),
        inPart("a material is gone", Kind::MATERIALS,
               [](Part& part) {
                   const bool has = part.diffuse.has_value();
                   part.diffuse.reset();
                   return has;
               }),
        {"two meshes have each other's materials", Kind::MATERIALS,
         [](Model& model) {
             if (model.name != "building") return false;
             std::swap(model.parts[0].diffuse, model.parts[2].diffuse);
             return true;
         }},
        inPart("an entry of the metadata is gone", Kind::METADATA,
               [](Part& part) {
                   if (part.metadata.empty()) return false;
                   part.metadata.erase(part.metadata.begin());
                   return true;
               }),
        inPart("an entry of the metadata is another", Kind::METADATA,
               [](Part& part) {
                   if (!part.metadata.empty()) part.metadata.begin()->second = "\"other\"";
                   return !part.metadata.empty();
               }),
        inPart("an entry of the metadata is added", Kind::METADATA,
               [](Part& part) {
                   part.metadata["mass"] = "3.5";
                   return true;
               }),
    };
}

std::vector<Fault> allFaults() {
    std::vector<Fault> all;
    for (const auto& faults :
         {orientationFaults(), topologyFaults(), positionFaults(), attributeFaults(), meshFaults()})
        all.insert(all.end(), faults.begin(), faults.end());
    return all;
}

// ---- What is found --------------------------------------------------------------------------------------

bool isFound(const CompareReport& report, Kind kind) {
    return std::any_of(report.differences.begin(), report.differences.end(),
                       [&](const Difference& difference) { return difference.kind == kind; });
}

std::string listOf(const CompareReport& report) {
    std::string text;
    for (const Difference& difference : report.differences)
        text += '\n' + describe(difference);
    return text.empty() ? "nothing" : text;
}

struct FaultCase {
    Fault fault;
    Model sound, spoilt;
};

std::vector<FaultCase> allCases() {
    std::vector<FaultCase> cases;
    for (const Fault& fault : allFaults()) {
        for (const Model& model : allModels()) {
            FaultCase made{fault, model, model};
            if (made.fault.spoil(made.spoilt)) cases.push_back(std::move(made));
        }
    }
    return cases;
}

class SeededFault : public testing::TestWithParam<FaultCase> {};

TEST_P(SeededFault, IsFoundFromBothSides) {
    const FaultCase& seeded = GetParam();
    const ComparableScene sound = sceneOf(seeded.sound), spoilt = sceneOf(seeded.spoilt);
    for (const CompareReport& report : {compare(sound, spoilt), compare(spoilt, sound)}) {
        EXPECT_TRUE(isFound(report, seeded.fault.kind)) << "found: " << listOf(report);
        for (const Difference& difference : report.differences)
            EXPECT_NE(difference.mesh, "") << describe(difference);
    }
}

/// The file that the model becomes.
std::string fileOf(const Model& model, const Recipe& recipe) {
    std::ostringstream file;
    const kel::src::SrcWriterInput input = inputOf(model);
    convert(Source::ofInput(input, model.name), recipe, Destination::ofStream(file, "file"));
    return file.str();
}

TEST_P(SeededFault, IsFoundInAFileThatShouldHoldTheSoundModel) {
    using kel::prepare::Target;
    const FaultCase& seeded = GetParam();
    for (const Target target : {Target::UNCOMPRESSED, Target::POSITION_COMPRESSED, Target::PRESET_CMP1}) {
        // A preset takes surfaces only, and no attributes of other names than its own.
        const bool isStored = !isContainerTarget(target) ||
                              (seeded.sound.name != "drawing" && seeded.fault.kind != Kind::ATTRIBUTES);
        if (!isStored) continue;
        Recipe recipe;
        recipe.target = target;
        const std::string file = fileOf(seeded.spoilt, recipe);
        const CompareReport report =
            compareWithSource(inputOf(seeded.sound), recipe, target, {},
                              kel::src::readSrc(kel::src::ByteView(std::string_view(file))));
        EXPECT_TRUE(isFound(report, seeded.fault.kind)) << targetName(target) << " found: " << listOf(report);
        EXPECT_FALSE(report.isExact && seeded.fault.kind == Kind::POSITIONS);
    }
}

/// The name of a case in letters.
std::string caseName(const testing::TestParamInfo<FaultCase>& info) {
    std::string name;
    bool isFirst = true;
    for (const char letter : info.param.fault.name + " in " + info.param.sound.name) {
        const auto byte = static_cast<unsigned char>(letter);
        if (std::isalnum(byte)) name += static_cast<char>(isFirst ? std::toupper(byte) : letter);
        isFirst = !std::isalnum(byte);
    }
    return name;
}

INSTANTIATE_TEST_SUITE_P(Compare, SeededFault, testing::ValuesIn(allCases()), caseName);

TEST(SeededFaults, AreManyInFiveModels) {
    EXPECT_GE(allFaults().size(), 40u);
    EXPECT_EQ(allModels().size(), 5u);
}

// ---- What is no fault -----------------------------------------------------------------------------------

ComparableScene converted(const Model& model, const Recipe& recipe) {
    const std::string file = fileOf(model, recipe);
    return comparableScene(kel::src::readSrc(kel::src::ByteView(std::string_view(file))), "file");
}

/// The surfaces of the model: the container writer takes nothing else.
Model surfacesOf(Model model) {
    model.parts.erase(std::remove_if(model.parts.begin(), model.parts.end(),
                                     [](const Part& part) { return !part.isSurface(); }),
                      model.parts.end());
    return model;
}

TEST(UnchangedModel, HasNoDifferenceInAnyModeOrPreset) {
    for (const Model& model : allModels()) {
        for (const auto& target : kel::prepare::TARGETS) {
            for (const bool optimize : {false, true}) {
                Recipe recipe;
                recipe.target = target.target;
                recipe.optimize = optimize;
                const Model written = target.isContainer ? surfacesOf(model) : model;
                const ComparableScene before = sceneOf(written), after = converted(written, recipe);
                for (const CompareReport& report : {compare(before, after), compare(after, before)})
                    EXPECT_TRUE(report.same()) << model.name << " in " << target.name << listOf(report);
            }
        }
    }
}

/// A change of the lists that draws the same.
void expectNoDifference(const std::function<void(Part&)>& change) {
    for (const Model& model : allModels()) {
        Model other = model;
        for (Part& part : other.parts)
            change(part);
        const CompareReport report = compare(sceneOf(model), sceneOf(other));
        EXPECT_TRUE(report.same()) << model.name << listOf(report);
    }
}

TEST(UnchangedModel, MayListItsPrimitivesInAnotherOrder) {
    expectNoDifference([](Part& part) {
        const std::size_t size = part.isSurface() ? 3 : part.type == kel::mesh::LINES ? 2 : 1;
        std::vector<std::uint32_t> reversed;
        for (std::size_t first = part.indices.size(); first > 0; first -= size)
            for (std::size_t c = 0; c < size; ++c)
                reversed.push_back(part.indices[first - size + c]);
        part.indices = reversed;
    });
}

TEST(UnchangedModel, MayBeginItsTrianglesAtAnotherCorner) {
    expectNoDifference([](Part& part) {
        for (std::size_t i = 0; part.isSurface() && i + 2 < part.indices.size(); i += 3)
            std::rotate(&part.indices[i], &part.indices[i] + 1, &part.indices[i] + 3);
    });
}

TEST(UnchangedModel, MayHaveAVertexForEachCorner) {
    expectNoDifference([](Part& part) {
        for (auto& [name, attribute] : part.attributes) {
            std::vector<float> values;
            for (const std::uint32_t index : part.indices)
                for (std::size_t c = 0; c < attribute.first; ++c)
                    values.push_back(attribute.second[index * attribute.first + c]);
            attribute.second = values;
        }
        for (std::size_t i = 0; i < part.indices.size(); ++i)
            part.indices[i] = static_cast<std::uint32_t>(i);
    });
}

TEST(UnchangedModel, MayHaveTrianglesThatUseAVertexTwice) {
    expectNoDifference([](Part& part) {
        if (part.isSurface()) part.indices.insert(part.indices.begin() + 3, {0, 0, 1});
    });
}

TEST(UnchangedModel, MayListItsMeshesInAnotherOrder) {
    const Model model = building();
    Model other = model;
    std::reverse(other.parts.begin(), other.parts.end());
    const CompareReport report = compare(sceneOf(model), sceneOf(other));
    EXPECT_TRUE(report.same()) << listOf(report);
}

TEST(UnchangedModel, MayListMeshesOfOneNameInAnotherOrder) {
    Model model = building();
    for (Part& part : model.parts) {
        part.name = "block";
        part.metadata.clear();
    }
    Model other = model;
    std::rotate(other.parts.begin(), other.parts.begin() + 1, other.parts.end());
    const CompareReport report = compare(sceneOf(model), sceneOf(other));
    EXPECT_TRUE(report.same()) << listOf(report);
}

TEST(UnchangedModel, MayStandFarFromZero) {
    for (Model model : allModels()) {
        for (Part& part : model.parts)
            move(part, 5e6f, -5e6f, 5e6f);
        const CompareReport report = compare(sceneOf(model), sceneOf(model));
        EXPECT_TRUE(report.same()) << listOf(report);
        EXPECT_EQ(report.maxDistance, 0.0);
    }
}

} // namespace
