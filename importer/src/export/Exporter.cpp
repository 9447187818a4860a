#include "../ModelSource.h"
#include "../gltf/GltfContainer.h"
#include "SceneExport.h"

#include <kel/src/format/FileLayout.h>

#include <assimp/Exporter.hpp>
#include <assimp/config.h>

#include <cstring>
#include <utility>

namespace kel::importer {

namespace {

using detail::ExportFormat;

constexpr ExportFormat EXPORT_FORMATS[] = {
    {"glb", "glb2", true, true, true, true, true, true, true, 4},
    {"gltf", "gltf2", true, true, true, true, true, true, true, 4},
    {"obj", "obj", true, true, false, true, true, true, false, 1},
    {"ply", "plyb", false, false, false, false, true, true, false, 1},
    {"stl", "stlb", false, false, false, false, false, false, false, 0},
};

/// throws  ExportError when no format has the extension of the file
const ExportFormat& exportFormatOf(const std::string& fileName) {
    const std::size_t dot = fileName.rfind('.');
    const std::string extension =
        dot == std::string::npos ? "" : detail::smallLetters(fileName.substr(dot + 1));
    for (const ExportFormat& format : EXPORT_FORMATS) {
        if (extension == format.extension) return format;
    }
    throw ExportError("there is no exporter for the extension \"" + extension + '"');
}

/// Puts members into the nodes of a glTF's JSON that the scene's first node holds: Assimp's exporter leaves metadata out,
/// and has floats for a translation.
///
/// members  one entry per node, in their order
/// throws   ExportError
std::string withMembers(const char* begin, const char* end, const std::vector<picojson::object>& members) {
    picojson::value json;
    std::string error;
    picojson::parse(json, begin, end, &error);
    if (!error.empty()) throw ExportError("the exporter wrote no JSON: " + error);
    auto& nodes = json.get<picojson::object>().at("nodes").get<picojson::array>();
    const auto number = [](const picojson::value& value) {
        return static_cast<std::size_t>(value.get<double>());
    };
    const picojson::array children = nodes.at(number(json.get("scenes").get(0).get("nodes").get(0)))
                                         .get("children")
                                         .get<picojson::array>();
    for (std::size_t i = 0; i < members.size(); ++i) {
        auto& node = nodes.at(number(children.at(i))).get<picojson::object>();
        for (const auto& [key, value] : members[i])
            node[key] = value;
    }
    return json.serialize();
}

std::string withMembersInGlb(const std::string& bytes, const std::vector<picojson::object>& members) {
    namespace glb = detail::glb;
    constexpr std::size_t CONTENT = glb::PREAMBLE_BYTES + glb::CHUNK_HEAD_BYTES;
    if (bytes.size() < CONTENT) throw ExportError("the exporter wrote no whole GLB");
    const std::size_t length = kel::src::format::readUint32(bytes.data() + glb::PREAMBLE_BYTES);
    if (length > bytes.size() - CONTENT) throw ExportError("the exporter wrote no whole GLB");
    const char* json = bytes.data() + CONTENT;
    std::string text = withMembers(json, json + length, members);
    const std::size_t rest = CONTENT + length;
    const std::size_t size = CONTENT + (text.size() + 3) / 4 * 4 + (bytes.size() - rest);
    if (size > 0xffffffffu) throw ExportError("the GLB would be larger than 4 GiB");
    std::string result = glb::front(std::move(text), bytes.size() - rest);
    result.append(bytes, rest, std::string::npos);
    return result;
}

} // namespace

const std::vector<std::string>& exportExtensions() {
    static const std::vector<std::string> extensions = [] {
        std::vector<std::string> result;
        for (const ExportFormat& format : EXPORT_FORMATS)
            result.emplace_back(format.extension);
        return result;
    }();
    return extensions;
}

ExportError::~ExportError() = default;

ExportResult exportModel(const kel::src::SrcFile& file, const std::string& fileName) {
    const ExportFormat& format = exportFormatOf(fileName);
    detail::ExportScene made = detail::makeExportScene(file, format);

    Assimp::Exporter exporter;
    Assimp::ExportProperties properties;
    properties.SetPropertyString(AI_CONFIG_EXPORT_BLOB_NAME,
                                 fileName); // else files name each other "$blobfile"
    // The binary PLY exporter stores colours in another type than it says.
    const char* assimpId =
        made.hasColours && std::strcmp(format.assimpId, "plyb") == 0 ? "ply" : format.assimpId;
    const aiExportDataBlob* blob = exporter.ExportToBlob(made.scene.get(), assimpId, 0, &properties);
    if (!blob) throw ExportError(exporter.GetErrorString());
    ExportResult result = std::move(made.result);
    for (; blob; blob = blob->next) // the model first
        result.files.push_back({blob->name.C_Str(), {static_cast<const char*>(blob->data), blob->size}});
    if (format.metadata) {
        std::string& bytes = result.files.front().bytes;
        bytes = format.extension == std::string("glb")
                    ? withMembersInGlb(bytes, made.nodeMembers)
                    : withMembers(bytes.data(), bytes.data() + bytes.size(), made.nodeMembers);
    }
    return result;
}

} // namespace kel::importer
