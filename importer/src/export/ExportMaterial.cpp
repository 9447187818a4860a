#include "ExportMaterial.h"

#include "../conversion/ClassicMaterial.h"

#include <kel/src/format/MaterialParameters.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace kel::importer::detail {

using kel::src::SrcFile;
using kel::src::SrcMaterial;
using namespace kel::src::format;

aiString assimpString(std::string_view text) {
    aiString result;
    result.Set(std::string(text.substr(0, MAXLEN - 1)));
    return result;
}

std::unique_ptr<aiMaterial> exportedMaterial(const SrcFile& file, const SrcMaterial& source,
                                             const ExportFormat& format) {
    auto material = std::make_unique<aiMaterial>();
    const auto valuesOf = [&](MaterialParameterIndex parameter) {
        std::vector<double> values = file.materialParameter(source, nameOf(parameter));
        if (values.size() != MATERIAL_PARAMETERS[parameter].components) values.clear();
        return values;
    };
    const auto color = [](const std::vector<double>& v, double factor = 1.0) {
        return aiColor3D(static_cast<float>(v[0] * factor), static_cast<float>(v[1] * factor),
                         static_cast<float>(v[2] * factor));
    };
    const aiString name = assimpString(source.id);
    material->AddProperty(&name, AI_MATKEY_NAME);
    const auto diffuse = valuesOf(DIFFUSE_COLOR);
    const auto addColor = [&](const std::vector<double>& values, double factor, const char* key) {
        if (values.empty()) return;
        const aiColor3D value = color(values, factor);
        material->AddProperty(&value, 1, key, 0, 0);
    };
    const auto addNumber = [&](float value, const char* key) { material->AddProperty(&value, 1, key, 0, 0); };
    addColor(diffuse, 1.0, "$clr.diffuse");
    addColor(valuesOf(EMISSIVE_COLOR), 1.0, "$clr.emissive");
    const auto ambient = valuesOf(AMBIENT_INTENSITY);
    if (!ambient.empty()) addColor(diffuse, ambient[0], "$clr.ambient");
    const auto shininess = valuesOf(SHININESS);
    if (format.metallicRoughness) {
        addColor(diffuse, 1.0, "$clr.base");
        addNumber(0.0f, "$mat.metallicFactor");
        // The roughness whose highlight is as wide as that of the exponent.
        const double exponent =
            shininess.empty() ? 0.0 : std::max(shininess[0], 0.0) * double(LARGEST_PHONG_EXPONENT);
        addNumber(static_cast<float>(std::pow(2.0 / (exponent + 2.0), 0.25)), "$mat.roughnessFactor");
    } else {
        addColor(valuesOf(SPECULAR_COLOR), 1.0, "$clr.specular");
        if (!shininess.empty())
            addNumber(static_cast<float>(shininess[0] * double(LARGEST_PHONG_EXPONENT)), "$mat.shininess");
    }
    // The technique's default would make see-through what its writer has no word for.
    for (const auto& member : kel::src::jsonMembers(source.values)) {
        std::vector<double> transparency;
        if (member.key != nameOf(TRANSPARENCY) || !kel::src::jsonNumbers(member.json, transparency) ||
            transparency.size() != 1 || transparency[0] == 0.0)
            continue;
        addNumber(static_cast<float>(1.0 - transparency[0]), "$mat.opacity");
        const aiString blend("BLEND");
        material->AddProperty(&blend, "$mat.gltf.alphaMode", 0, 0);
    }
    return material;
}

std::unique_ptr<aiMaterial> neutralMaterial() {
    auto neutral = std::make_unique<aiMaterial>();
    const aiString name("none");
    neutral->AddProperty(&name, AI_MATKEY_NAME);
    const aiColor3D grey(0.8f, 0.8f, 0.8f);
    neutral->AddProperty(&grey, 1, AI_MATKEY_COLOR_DIFFUSE);
    return neutral;
}

} // namespace kel::importer::detail
