#include "GltfExtras.h"

#include "../gltf/Glb.h"

#include <kel/importer/Exporter.h>
#include <kel/src/format/FileLayout.h>

#include <cstddef>

namespace kel::importer::detail {

std::string withExtras(const char* begin, const char* end, const std::vector<picojson::object>& extras) {
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
    for (std::size_t i = 0; i < extras.size(); ++i) {
        if (extras[i].empty()) continue;
        nodes.at(number(children.at(i))).get<picojson::object>()["extras"] = picojson::value(extras[i]);
    }
    return json.serialize();
}

std::string withExtrasInGlb(const std::string& bytes, const std::vector<picojson::object>& extras) {
    constexpr std::size_t CONTENT = glb::PREAMBLE_BYTES + glb::CHUNK_HEAD_BYTES;
    if (bytes.size() < CONTENT) throw ExportError("the exporter wrote no whole GLB");
    const std::size_t length = kel::src::format::readUint32(bytes.data() + glb::PREAMBLE_BYTES);
    if (length > bytes.size() - CONTENT) throw ExportError("the exporter wrote no whole GLB");
    const char* json = bytes.data() + CONTENT;
    std::string text = withExtras(json, json + length, extras);
    glb::padJson(text);
    const std::size_t rest = CONTENT + length;
    const std::size_t size = CONTENT + text.size() + (bytes.size() - rest);
    if (size > 0xffffffffu) throw ExportError("the GLB would be larger than 4 GiB");
    std::string result;
    result.reserve(size);
    result.append(bytes, 0, 8); // magic and version
    glb::appendUint32(result, size);
    glb::appendUint32(result, text.size());
    glb::appendUint32(result, glb::JSON_CHUNK);
    result += text;
    result.append(bytes, rest, std::string::npos);
    return result;
}

} // namespace kel::importer::detail
