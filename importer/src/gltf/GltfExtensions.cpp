#include "GltfExtensions.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace kel::importer::detail {

namespace {

constexpr std::string_view READ[] = {"KHR_draco_mesh_compression", "KHR_mesh_quantization",
                                     "KHR_materials_unlit",        "EXT_meshopt_compression",
                                     "KHR_meshopt_compression",    "KHR_materials_pbrSpecularGlossiness",
                                     "EXT_mesh_gpu_instancing",    "KHR_lights_punctual"};

/// How the names of those begin that change nothing about geometry: looks, pictures, annotations.
constexpr std::string_view APART[] = {"KHR_materials_",        "EXT_materials_",         "ADOBE_materials_",
                                      "KHR_texture_",          "EXT_texture_",           "MSFT_texture_",
                                      "MSFT_packing_",         "KHR_technique",          "KHR_xmp",
                                      "KHR_animation_",        "EXT_mesh_features",      "EXT_lights_",
                                      "EXT_instance_features", "EXT_structural_metadata"};

bool isRead(std::string_view name) {
    return std::find(std::begin(READ), std::end(READ), name) != std::end(READ);
}

bool isApart(std::string_view name) {
    return std::any_of(std::begin(APART), std::end(APART),
                       [&](std::string_view start) { return name.substr(0, start.size()) == start; });
}

std::string_view nameIn(const GltfObject& document, simdjson::dom::element value, const GltfPlace& place) {
    std::string_view name;
    if (value.get(name) != simdjson::SUCCESS)
        refuseGltf(document.model(), ImportCode::INVALID_MODEL, "it is not a string", place.text());
    return name;
}

} // namespace

void checkExtensions(const GltfObject& document, Model& model) {
    document.forEach("extensionsRequired", [&](simdjson::dom::element value, const GltfPlace& place) {
        const std::string_view name = nameIn(document, value, place);
        if (isRead(name) || isApart(name)) return;
        document.model().refuse(
            ImportCode::UNSUPPORTED_EXTENSION,
            "it requires the extension \"" + std::string(name) + "\", which is not known here", place.text());
    });
    Dropped apart{"glTF extensions", 0, ""};
    document.forEach("extensionsUsed", [&](simdjson::dom::element value, const GltfPlace& place) {
        const std::string name(nameIn(document, value, place));
        if (isRead(name)) return;
        if (isApart(name)) {
            apart.detail += (apart.count++ == 0 ? "" : ", ") + name;
        } else {
            model.notes.push_back("The extension " + name + " is not known here and was passed over");
        }
    });
    if (apart.count > 0) model.dropped.push_back(std::move(apart));
}

} // namespace kel::importer::detail
