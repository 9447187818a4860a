// Random inputs through every mode of both writers and back: what was written reads, and says what went in.

#include <fuzz/Exercise.h>
#include <fuzz/GoodFiles.h>
#include <fuzz/Instructions.h>

#include <kel/mesh/KelMesh.h>

#include <boost/log/core.hpp>

#include <cmath>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace kel::src;
using fuzz::Instructions;
using fuzz::require;

kel::mesh::MeshPtr meshFrom(Instructions& in) {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>(kel::mesh::TRIANGLES);
    const std::size_t vertices = 1 + in.below(20);
    const auto floats = [&](std::size_t components) {
        std::vector<float> values(vertices * components);
        for (float& value : values)
            value = in.number();
        return values;
    };
    static const char* const NAMES[] = {"normal", "texcoord", "color", "id"};
    static const std::size_t COMPONENTS[] = {3, 2, 3, 1};
    const std::size_t before = in.below(5);
    for (std::size_t i = 0; i < before; ++i)
        if (in.coin()) mesh->addAttribute(NAMES[i % 4], COMPONENTS[i % 4], floats(COMPONENTS[i % 4]));
    mesh->addAttribute("position", 3, floats(3));
    if (in.coin()) mesh->addAttribute("normal", 3, floats(3));
    const std::size_t indices = 3 * in.below(10);
    if (in.coin()) {
        std::vector<std::uint16_t> list(indices);
        for (auto& index : list)
            index = static_cast<std::uint16_t>(in.below(vertices));
        mesh->setIndices(std::move(list));
    } else {
        std::vector<std::uint32_t> list(indices);
        for (auto& index : list)
            index = static_cast<std::uint32_t>(in.below(vertices));
        mesh->setIndices(std::move(list));
    }
    return mesh;
}

SrcWriterInput inputFrom(Instructions& in) {
    SrcWriterInput input;
    const std::size_t meshes = in.below(5);
    std::vector<std::shared_ptr<kel::material::MaterialClassic>> materials;
    for (std::size_t i = in.below(3); i > 0; --i) {
        auto material = std::make_shared<kel::material::MaterialClassic>(static_cast<std::uint32_t>(i));
        material->setDiffuse({std::fabs(in.number()), 0.5f, 0.25f});
        if (in.coin()) material->removeAttribute("specular");
        input.materials.insert(material);
        materials.push_back(std::move(material));
    }
    for (std::size_t i = 0; i < meshes; ++i) {
        input.meshes.push_back(meshFrom(in));
        auto metadata = std::make_shared<std::map<std::string, std::string>>();
        if (in.coin()) (*metadata)["n"] = std::to_string(in.byte());
        input.metaData[input.meshes.back()] = std::move(metadata);
        if (!materials.empty() && in.coin())
            input.meshMaterials[input.meshes.back()] = materials[in.below(materials.size())];
    }
    return input;
}

std::vector<float> floatsOf(const kel::mesh::Mesh& mesh, const char* name) {
    return fixture::floatsOf(mesh, name);
}

void compareExact(const SrcFile& file, const SrcWriterInput& input) {
    for (std::size_t m = 0; m < input.meshes.size(); ++m) {
        const DecodedMesh decoded = decodeMesh(file, file.meshes()[m]);
        const std::vector<float> expected = floatsOf(*input.meshes[m], "position");
        const DecodedAttribute* position = decoded.find("position");
        require(position && position->values.size() == expected.size() &&
                    std::memcmp(position->values.data(), expected.data(), expected.size() * sizeof(float)) ==
                        0,
                "positions that are stored as floats come back bit for bit");
        const std::vector<std::size_t> indices = fixture::indicesOf(*input.meshes[m]);
        require(std::equal(indices.begin(), indices.end(), decoded.indices.begin(), decoded.indices.end()),
                "indices come back");
    }
}

/// Values inside the box come back within one code.
void compareBoxed(const SrcFile& file, const SrcWriterInput& input) {
    for (std::size_t m = 0; m < input.meshes.size(); ++m) {
        const DecodedMesh decoded = decodeMesh(file, file.meshes()[m]);
        const std::vector<float> expected = floatsOf(*input.meshes[m], "position");
        const std::vector<float>& values = decoded.find("position")->values;
        require(values.size() == expected.size(), "every vertex comes back");
        for (std::size_t i = 0; i < values.size(); ++i)
            require(!(std::fabs(expected[i]) <= 0.5f) ||
                        std::fabs(values[i] - expected[i]) <= 1.01f / 65535.0f,
                    "values inside the preset's box come back within one code");
    }
}

void roundTrip(SrcWriterInput& input, int mode) {
    std::string text;
    try {
        text = fuzz::write(input, mode);
    } catch (const std::overflow_error&) {
        return; // bounds or colours that no JSON number holds: the writers' own exception
    }
    const ByteView bytes{std::string_view(text)};
    require(!fuzz::exercise(bytes), "what a writer wrote is taken");
    const SrcFile file = readSrc(bytes);
    require(file.meshes().size() == input.meshes.size(), "every mesh is written");
    if (mode == 0 || mode == 2) compareExact(file, input);
    if (mode == 1) compareBoxed(file, input);

    SrcWriterInput back = toInput(file);
    std::string again;
    try {
        again = fuzz::write(back, mode);
    } catch (const std::overflow_error&) {
        require(mode > 2, "what was written once can be written again");
        return; // a box of decoded positions may be flat where the original's was not
    }
    if (mode == 0 || mode == 2) {
        require(again == text, "the same bytes are written again");
    } else if (mode == 1) {
        const std::size_t data = text.size() - static_cast<std::size_t>(file.dataOffset());
        require(again.size() >= data && again.substr(again.size() - data) == text.substr(text.size() - data),
                "the same codes are written again");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    boost::log::core::get()->set_logging_enabled(false);
    Instructions in(data, size);
    const int mode = static_cast<int>(in.below(fuzz::MODES));
    SrcWriterInput input = inputFrom(in);
    roundTrip(input, mode);
    return 0;
}
