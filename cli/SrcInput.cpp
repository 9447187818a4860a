#include "SrcInput.h"

#include "Status.h"

#include <kel/mesh/AttributeNames.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <istream>

namespace kelsrc::cli {

using kel::mesh::PrimitiveType;
using kel::src::SrcError;
using kel::src::SrcFile;
using kel::src::SrcMesh;

std::string nameOfInput(const std::string& path) {
    return path == "-" ? "standard input" : path;
}

bool looksLikeSrc(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    char first[8] = {};
    in.read(first, sizeof first);
    static const char signature[8] = {23, 0, 0, 0, 42, 0, 0, 0};
    const std::size_t dot = path.rfind('.');
    return std::memcmp(first, signature, sizeof first) == 0 ||
           (dot != std::string::npos && path.substr(dot) == ".src");
}

SrcFile openSrcFile(const std::string& path, std::istream& in) {
    try {
        return path == "-" ? kel::src::readSrc(in) : kel::src::openSrc(path);
    } catch (const SrcError& error) {
        std::string text(kel::src::infoOf(error.code()).name);
        if (!error.path().empty()) text += " at " + error.path();
        if (error.byteOffset() != SrcError::NO_OFFSET) text += ", byte " + std::to_string(error.byteOffset());
        text += ": ";
        text += kel::src::infoOf(error.code()).sentence;
        if (!error.detail().empty()) text += " (" + error.detail() + ')';
        throw Failure(STATUS_INPUT, nameOfInput(path), text,
                      std::string(kel::src::infoOf(error.code()).remedy));
    }
}

void Bounds::add(const std::array<double, 3>& point) {
    for (std::size_t c = 0; c < 3; ++c) {
        min[c] = std::min(min[c], point[c]);
        max[c] = std::max(max[c], point[c]);
    }
}

void Bounds::add(const Bounds& other) {
    if (other.isEmpty()) return;
    add(other.min);
    add(other.max);
}

std::array<double, 3> Bounds::size() const {
    if (isEmpty()) return {0, 0, 0};
    return {max[0] - min[0], max[1] - min[1], max[2] - min[2]};
}

double Bounds::diagonal() const {
    const auto extent = size();
    return std::hypot(extent[0], extent[1], extent[2]);
}

std::uint64_t vertexCount(const SrcFile& file, const SrcMesh& mesh) {
    const auto attributes = file.attributes(mesh);
    if (attributes.empty()) return 0;
    for (const auto& attribute : attributes) {
        const auto& view = file.attributeViews()[attribute.view];
        if (attribute.name == kel::mesh::DEFAULT_POSITIONS_NAME || isCombinedPositionNormal(attribute, view))
            return view.count;
    }
    return file.attributeViews()[attributes[0].view].count;
}

std::uint64_t cornerCount(const SrcFile& file, const SrcMesh& mesh) {
    return mesh.indexView == kel::src::SRC_NONE ? vertexCount(file, mesh)
                                                : file.indexViews()[mesh.indexView].count;
}

std::uint64_t primitiveCount(PrimitiveType type, std::uint64_t corners) {
    switch (type) {
    case kel::mesh::POINTS:
        return corners;
    case kel::mesh::LINES:
        return corners / 2;
    case kel::mesh::LINE_LOOP:
        return corners < 2 ? 0 : corners;
    case kel::mesh::LINE_STRIP:
        return corners < 2 ? 0 : corners - 1;
    case kel::mesh::TRIANGLE_STRIP:
    case kel::mesh::TRIANGLE_FAN:
        return corners < 3 ? 0 : corners - 2;
    case kel::mesh::TRIANGLES:
        break;
    }
    return corners / 3;
}

const char* kindOf(PrimitiveType type) {
    switch (type) {
    case kel::mesh::POINTS:
        return "points";
    case kel::mesh::LINES:
    case kel::mesh::LINE_LOOP:
    case kel::mesh::LINE_STRIP:
        return "lines";
    default:
        return "triangles";
    }
}

std::string nameOf(const SrcMesh& mesh) {
    std::string name;
    if (mesh.metadata.find("\"name\"") == std::string_view::npos) return name;
    for (const auto& member : kel::src::jsonMembers(mesh.metadata)) {
        if (member.key == "name") kel::src::jsonString(member.json, name);
    }
    return name;
}

} // namespace kelsrc::cli
