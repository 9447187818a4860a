#include "ProblemInputs.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <set>

namespace {

using namespace problems;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr float NaN = std::numeric_limits<float>::quiet_NaN();

/// A mesh whose list of attributes can hold what DefaultMesh refuses.
class ListMesh final : public kel::mesh::Mesh {
public:
    explicit ListMesh(const DefaultMesh& mesh) : indices(mesh.getIndexBuffer()) {
        for (std::size_t i = 0; i < mesh.getNumAttributeBuffers(); ++i)
            attributes.push_back(mesh.getAttributeBuffer(i));
    }
    kel::mesh::PrimitiveType getPrimitiveType() const override { return kel::mesh::TRIANGLES; }
    std::size_t getNumPrimitives() const override { return indices->getElementCount() / 3; }
    std::shared_ptr<kel::mesh::IndexBuffer> getIndexBuffer() const override { return indices; }
    std::size_t getNumAttributeBuffers() const override { return attributes.size(); }
    std::shared_ptr<kel::mesh::AttributeBuffer> getAttributeBuffer(std::size_t index) const override {
        return attributes.at(index);
    }
    std::shared_ptr<kel::mesh::AttributeBuffer> getAttributeBuffer(const std::string& name) const override {
        for (const auto& buffer : attributes) {
            if (buffer && buffer->getAttributeName() == name) return buffer;
        }
        return nullptr;
    }

    std::shared_ptr<kel::mesh::IndexBuffer> indices;
    std::vector<std::shared_ptr<kel::mesh::AttributeBuffer>> attributes;
};

class PlainMaterial final : public kel::material::Material {
public:
    PlainMaterial() : Material(0) {}
    const std::shared_ptr<kel::material::MaterialDescription>& getDescription() const override {
        return none;
    }
    kel::material::AttributeValues getAttribute(const std::string&) const override { return {}; }

private:
    std::shared_ptr<kel::material::MaterialDescription> none;
};

/// Puts another mesh in the place of the only one.
void replaceMesh(SrcWriterInput& input, const kel::mesh::MeshPtr& mesh) {
    input.metaData[mesh] = input.metaData.at(input.meshes[0]);
    input.meshMaterials[mesh] = input.meshMaterials.at(input.meshes[0]);
    input.meshes = {mesh};
}

/// The octahedron without one of its attributes.
kel::mesh::MeshPtr without(SrcWriterInput& input, const std::string& name) {
    auto mesh = std::make_shared<DefaultMesh>();
    mesh->setIndexBuffer(input.meshes[0]->getIndexBuffer());
    for (std::size_t i = 0; i < input.meshes[0]->getNumAttributeBuffers(); ++i) {
        const auto buffer = input.meshes[0]->getAttributeBuffer(i);
        if (buffer->getAttributeName() != name) mesh->addAttribute(buffer);
    }
    return mesh;
}

struct Break {
    const char* code;
    Target target;
    std::function<void(SrcWriterInput&)> spoil;
};

const std::vector<Break>& breaks() {
    using T = Target;
    using I = SrcWriterInput;
    static const std::vector<Break> list = {
        {"attribute-components", T::PRESET_DEFAULT,
         [](I& i) { meshOf(i).addAttribute("color", 4, times(24, 0)); }},
        {"attribute-dropped", T::PRESET_DEFAULT,
         [](I& i) { meshOf(i).addAttribute("weight", 1, times(6, 0)); }},
        {"attribute-dropped", T::PRESET_CMP1, [](I& i) { meshOf(i).addAttribute("weight", 1, times(6, 0)); }},
        {"attribute-dropped", T::POSITION_NORMAL_COMPRESSED,
         [](I& i) { meshOf(i).addAttribute("texcoord", 2, times(12, 0)); }},
        {"attribute-duplicate", T::UNCOMPRESSED,
         [](I& i) {
             auto mesh = std::make_shared<ListMesh>(meshOf(i));
             mesh->attributes.push_back(mesh->attributes.back());
             replaceMesh(i, mesh);
         }},
        {"attribute-inherited", T::PRESET_DEFAULT,
         [](I& i) {
             i.meshes.push_back(without(i, "normal"));
             i.metaData[i.meshes[1]] = nullptr;
         }},
        {"attribute-length", T::UNCOMPRESSED, [](I& i) { meshOf(i).addAttribute("color", 3, times(15, 0)); }},
        {"attribute-length", T::PRESET_DEFAULT,
         [](I& i) { meshOf(i).addAttribute("color", 3, times(21, 0)); }},
        {"attribute-length", T::POSITION_NORMAL_COMPRESSED,
         [](I& i) {
             meshOf(i).addAttribute("normal", 3, std::vector<float>{0, 0, 1});
         }},
        {"attribute-missing", T::POSITION_COMPRESSED,
         [](I& i) {
             auto mesh = std::make_shared<ListMesh>(meshOf(i));
             mesh->attributes.push_back(nullptr);
             replaceMesh(i, mesh);
         }},
        {"attribute-not-finite", T::UNCOMPRESSED,
         [](I& i) { meshOf(i).addAttribute("texcoord", 2, times(12, NaN)); }},
        {"attribute-not-finite", T::PRESET_CMP1,
         [](I& i) { meshOf(i).addAttribute("color", 1, times(6, NaN)); }},
        {"attribute-not-float", T::PRESET_DEFAULT,
         [](I& i) { meshOf(i).addAttribute("id", 1, std::vector<std::int32_t>(6)); }},
        {"attribute-not-float", T::PRESET_CMP1,
         [](I& i) { meshOf(i).addAttribute("id", 1, std::vector<std::uint32_t>(6)); }},
        {"attribute-not-float-quantized", T::PRESET_CMP1,
         [](I& i) { meshOf(i).addAttribute("color", 3, std::vector<std::int32_t>(18)); }},
        {"attribute-type", T::PRESET_DEFAULT,
         [](I& i) { meshOf(i).addAttribute("color", 3, std::vector<std::uint8_t>(18)); }},
        {"box-degenerate", T::POSITION_COMPRESSED,
         [](I& i) { meshOf(i).addAttribute("position", 3, times(18, 3)); }},
        {"box-flat", T::POSITION_COMPRESSED,
         [](I& i) {
             meshOf(i).addAttribute("position", 3,
                                    std::vector<float>{0, 0, 7, 1, 0, 7, 1, 1, 7, 0, 1, 7, 0, 0, 7, 2, 2, 7});
         }},
        {"box-overflow", T::PRESET_DEFAULT,
         [](I& i) {
             auto positions = times(18, 0.0f);
             positions[0] = -3e38f;
             positions[17] = positions[4] = 1.0f;
             positions[3] = 3e38f;
             meshOf(i).addAttribute("position", 3, positions);
         }},
        {"component-clamped", T::PRESET_CMP1,
         [](I& i) { meshOf(i).addAttribute("texcoord", 2, times(12, 0.6f)); }},
        {"index-incomplete", T::UNCOMPRESSED,
         [](I& i) {
             meshOf(i).setIndices(std::vector<std::uint16_t>{0, 1, 2, 3});
         }},
        {"index-missing", T::PRESET_DEFAULT, [](I& i) { meshOf(i).setIndexBuffer(nullptr); }},
        {"index-out-of-range", T::PRESET_DEFAULT,
         [](I& i) {
             meshOf(i).setIndices(std::vector<std::uint32_t>{0, 1, 6});
         }},
        {"index-out-of-range", T::UNCOMPRESSED,
         [](I& i) {
             meshOf(i).setIndices(std::vector<std::uint8_t>{0, 1, 200});
         }},
        {"index-restart", T::PRESET_DEFAULT,
         [](I& i) {
             makeLong(meshOf(i));
             meshOf(i).setIndices(std::vector<std::uint16_t>{0, 1, 65535});
         }},
        {"input-empty", T::UNCOMPRESSED, [](I& i) { i.meshes.clear(); }},
        {"material-not-classic", T::UNCOMPRESSED,
         [](I& i) { i.meshMaterials[i.meshes[0]] = std::make_shared<PlainMaterial>(); }},
        {"material-not-classic", T::PRESET_DEFAULT,
         [](I& i) { i.meshMaterials[i.meshes[0]] = std::make_shared<PlainMaterial>(); }},
        {"material-not-finite", T::PRESET_DEFAULT,
         [](I& i) {
             std::dynamic_pointer_cast<kel::material::MaterialClassic>(*i.materials.begin())
                 ->setShininess(NaN);
         }},
        {"material-not-finite", T::UNCOMPRESSED,
         [](I& i) {
             std::dynamic_pointer_cast<kel::material::MaterialClassic>(*i.materials.begin())
                 ->setTransparency(NaN);
         }},
        {"material-not-in-set", T::UNCOMPRESSED, [](I& i) { i.materials.clear(); }},
        {"mesh-duplicate", T::UNCOMPRESSED, [](I& i) { i.meshes.push_back(i.meshes[0]); }},
        {"mesh-missing", T::PRESET_DEFAULT, [](I& i) { i.meshes.push_back(nullptr); }},
        {"mesh-unindexed", T::UNCOMPRESSED, [](I& i) { meshOf(i).setIndexBuffer(nullptr); }},
        {"mesh-without-primitives", T::UNCOMPRESSED,
         [](I& i) {
             meshOf(i).setIndices(std::vector<std::uint16_t>{0, 1});
         }},
        {"mesh-without-vertices", T::PRESET_DEFAULT,
         [](I& i) {
             meshOf(i).addAttribute("position", 3, times(0, 0));
             meshOf(i).addAttribute("normal", 3, times(0, 0));
             meshOf(i).setIndices(std::vector<std::uint16_t>{});
         }},
        {"metadata-key", T::UNCOMPRESSED, [](I& i) { metaOf(i)["a\"b"] = "1"; }},
        {"metadata-missing", T::UNCOMPRESSED, [](I& i) { i.metaData.clear(); }},
        {"metadata-missing", T::POSITION_COMPRESSED, [](I& i) { i.metaData[i.meshes[0]] = nullptr; }},
        {"metadata-not-json", T::PRESET_DEFAULT, [](I& i) { metaOf(i)["note"] = "hello"; }},
        {"metadata-not-json", T::UNCOMPRESSED, [](I& i) { metaOf(i)["note"] = "1 2"; }},
        {"metadata-number", T::PRESET_DEFAULT, [](I& i) { metaOf(i)["note"] = "[1e999]"; }},
        {"metadata-number", T::UNCOMPRESSED, [](I& i) { metaOf(i)["note"] = "1e-999"; }},
        {"metadata-too-deep", T::PRESET_DEFAULT,
         [](I& i) {
             for (int level = 0; level < 200000; ++level)
                 metaOf(i)["note"] += "{\"a\":";
         }},
        {"normal-missing", T::POSITION_NORMAL_COMPRESSED, [](I& i) { replaceMesh(i, without(i, "normal")); }},
        {"normal-not-unit", T::POSITION_NORMAL_COMPRESSED,
         [](I& i) { meshOf(i).addAttribute("normal", 3, times(18, 1)); }},
        {"normal-type", T::POSITION_NORMAL_COMPRESSED,
         [](I& i) { meshOf(i).addAttribute("normal", 3, std::vector<std::int8_t>(18, 1)); }},
        {"normal-without-direction", T::POSITION_NORMAL_COMPRESSED,
         [](I& i) { meshOf(i).addAttribute("normal", 3, times(18, 0)); }},
        {"normal-without-direction", T::POSITION_NORMAL_COMPRESSED,
         [](I& i) { meshOf(i).addAttribute("normal", 3, times(18, NaN)); }},
        {"position-missing", T::PRESET_DEFAULT, [](I& i) { replaceMesh(i, without(i, "position")); }},
        {"position-missing", T::POSITION_COMPRESSED, [](I& i) { replaceMesh(i, without(i, "position")); }},
        {"position-missing-unbounded", T::UNCOMPRESSED, [](I& i) { replaceMesh(i, without(i, "position")); }},
        {"position-not-finite", T::POSITION_COMPRESSED,
         [](I& i) { meshOf(i).addAttribute("position", 3, times(18, NaN)); }},
        {"position-not-finite", T::PRESET_CMP1,
         [](I& i) { meshOf(i).addAttribute("position", 3, times(18, NaN)); }},
        {"position-type", T::POSITION_COMPRESSED,
         [](I& i) { meshOf(i).addAttribute("position", 2, times(12, 0)); }},
        {"position-type", T::POSITION_NORMAL_COMPRESSED,
         [](I& i) { meshOf(i).addAttribute("position", 3, std::vector<std::int16_t>(18)); }},
        {"position-type", T::PRESET_DEFAULT,
         [](I& i) { meshOf(i).addAttribute("position", 4, times(24, 0)); }},
        {"position-type", T::PRESET_DEFAULT,
         [](I& i) { meshOf(i).addAttribute("position", 3, std::vector<std::uint32_t>(18)); }},
        {"position-type-unbounded", T::UNCOMPRESSED,
         [](I& i) { meshOf(i).addAttribute("position", 4, times(24, 0)); }},
        {"primitive-mislabeled", T::PRESET_DEFAULT,
         [](I& i) { meshOf(i).setPrimitiveType(kel::mesh::LINES); }},
        {"primitive-mislabeled", T::PRESET_CMP1,
         [](I& i) { meshOf(i).setPrimitiveType(kel::mesh::TRIANGLE_STRIP); }},
        {"primitive-unknown", T::UNCOMPRESSED,
         [](I& i) { meshOf(i).setPrimitiveType(static_cast<kel::mesh::PrimitiveType>(9)); }},
        {"text-not-utf8", T::UNCOMPRESSED, [](I& i) { metaOf(i)["note"] = "\"\xc3(\""; }},
        {"text-not-utf8", T::PRESET_DEFAULT, [](I& i) { metaOf(i)["\xff"] = "1"; }},
        {"text-not-utf8", T::UNCOMPRESSED, [](I& i) { meshOf(i).addAttribute("\xe9t\xe9", 1, times(6, 0)); }},
        {"too-many-vertices", T::POSITION_COMPRESSED, [](I& i) { makeLong(meshOf(i)); }},
        {"too-many-vertices", T::UNCOMPRESSED, [](I& i) { makeLong(meshOf(i)); }},
    };
    return list;
}

class GoodInput : public testing::TestWithParam<Target> {};

TEST_P(GoodInput, HasNothingToFind) {
    EXPECT_THAT(codesOf(findProblems(goodInput(GetParam()), GetParam())), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Targets, GoodInput, testing::ValuesIn(ALL), [](const auto& instance) {
    return "Target" + std::to_string(static_cast<int>(instance.param));
});

class BreakOneThing : public testing::TestWithParam<std::size_t> {};

TEST_P(BreakOneThing, FindsExactlyThat) {
    const Break& broken = breaks()[GetParam()];
    auto input = goodInput(broken.target);
    broken.spoil(input);
    const Problems problems = findProblems(input, broken.target);
    ASSERT_THAT(codesOf(problems), ElementsAre(broken.code));
    EXPECT_THAT(problems.findings[0].sentence, testing::Not(HasSubstr("{}")));
}

INSTANTIATE_TEST_SUITE_P(Breaks, BreakOneThing, testing::Range<std::size_t>(0, breaks().size()),
                         [](const auto& instance) {
                             std::string name = breaks()[instance.param].code;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name + '_' + std::to_string(instance.param);
                         });

TEST(ProblemTable, IsSortedWithEveryCodeOnce) {
    for (std::size_t i = 1; i < std::size(PROBLEM_KINDS); ++i) {
        EXPECT_LT(PROBLEM_KINDS[i - 1].text, PROBLEM_KINDS[i].text);
        EXPECT_EQ(&kindOf(PROBLEM_KINDS[i].code), &PROBLEM_KINDS[i]);
    }
}

TEST(ProblemTable, SaysWhatIsWrongAndWhatToDo) {
    for (const ProblemKind& kind : PROBLEM_KINDS) {
        EXPECT_EQ(kind.text.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-"),
                  std::string_view::npos)
            << kind.text;
        EXPECT_TRUE(kind.sentence.size() > 10 && kind.sentence.back() == '.') << kind.text;
        EXPECT_TRUE(kind.remedy.size() > 5 && kind.remedy.back() == '.') << kind.text;
    }
}

TEST(ProblemTable, HasNoCodeThatNoTestBreaks) {
    std::set<std::string_view> broken;
    for (const Break& entry : breaks())
        broken.insert(entry.code);
    for (const ProblemKind& kind : PROBLEM_KINDS)
        EXPECT_EQ(broken.count(kind.text), 1u) << kind.text;
}

} // namespace
