// The hex dump in docs/format.md is the very file that the container writes.

#include <kel/mesh/KelMesh.h>
#include <kel/src/MeshUtils.h>
#include <kel/src/container/ShapeResourceContainer.h>
#include <kel/src/default_writer/MeshToContainer.h>
#include <kel/src/encoding/EncodingPresets.h>

#include <gtest/gtest.h>
#include <picojson.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using kel::src::detail::ShapeResourceContainer;

picojson::value json(const std::string& text) {
    picojson::value value;
    EXPECT_EQ(picojson::parse(value, text), "");
    return value;
}

/// A triangle with 16-bit positions, a material and a name.
std::string writeExample() {
    const std::vector<float> corners{-0.5f, -0.5f, 0, 0.5f, -0.5f, 0, 0, 0.5f, 0};
    const std::uint16_t indices[] = {0, 1, 2};
    ShapeResourceContainer container;

    const std::string indexBuffer =
        container.addBufferView(reinterpret_cast<const unsigned char*>(indices), sizeof indices, nullptr);
    const std::string indexView = container.addIndexView(indexBuffer, 0, 3, ShapeResourceContainer::USHORT);
    std::map<std::string, std::string> attributes;
    kel::src::detail::createAttributeView<3>(
        "position", attributes, reinterpret_cast<const unsigned char*>(corners.data()), 3, glm::vec3(0),
        glm::vec3(1), container, kel::src::detail::getSRCEncodingPreset("CMP1"));

    kel::mesh::DefaultMesh mesh;
    mesh.addAttribute("position", 3, corners);
    glm::vec3 center, size;
    kel::src::detail::computeBoundingBoxCenterSize(mesh.getAttributeBuffer("position"), center, size);
    container.addMesh("0", attributes, indexView, "red", ShapeResourceContainer::TRIANGLES, &center.x,
                      &size.x, json(R"({"name":"sail"})"));
    container.addMaterial("red", "flat", json(R"({"color":[1,0,0],"gloss":[0.25]})"));
    container.addTechnique("flat", json(R"({"color":{"value":[0.8,0.8,0.8]},"gloss":{"value":0}})"));
    container.addMetaData("title", picojson::value("one triangle"));

    std::ostringstream out;
    container.writeToStream(out);
    return out.str();
}

std::string hexDump(const std::string& bytes) {
    std::string text;
    for (std::size_t row = 0; row < bytes.size(); row += 16) {
        char column[32];
        std::snprintf(column, sizeof column, "%04zx ", row);
        text += column;
        std::string letters;
        for (std::size_t i = row; i < row + 16; ++i) {
            if (i >= bytes.size()) {
                text += "   ";
                continue;
            }
            const auto byte = static_cast<unsigned char>(bytes[i]);
            std::snprintf(column, sizeof column, " %02x", byte);
            text += column;
            letters += byte >= 0x20 && byte < 0x7f ? static_cast<char>(byte) : '.';
        }
        text += "  " + letters + "\n";
    }
    return text;
}

/// The lines of the fenced block that is marked with `info`.
std::string fencedBlock(const char* path, const std::string& info) {
    std::ifstream file(path);
    std::string line, block;
    bool inside = false;
    while (std::getline(file, line)) {
        if (inside && line == "```") return block;
        if (inside) block += line + "\n";
        if (line == "```" + info) inside = true;
    }
    return "no block ```" + info + " in " + path;
}

TEST(FormatDocument, HexDumpIsTheFileThatTheContainerWrites) {
    EXPECT_EQ(fencedBlock(KELSRC_FORMAT_DOCUMENT, "hexdump"), hexDump(writeExample()));
}

/// The bytes of a dump: the two-digit columns behind the offset.
std::string bytesOfDump(const std::string& dump) {
    std::istringstream lines(dump);
    std::string line, bytes;
    while (std::getline(lines, line)) {
        std::istringstream columns(line.substr(4, 50));
        std::string column;
        while (columns >> column)
            bytes += static_cast<char>(std::strtoul(column.c_str(), nullptr, 16));
    }
    return bytes;
}

// By the page's own rules, without a line of the library.
TEST(FormatDocument, HexDumpReadByThePagesRulesGivesTheTriangle) {
    const std::string file = bytesOfDump(fencedBlock(KELSRC_FORMAT_DOCUMENT, "hexdump"));
    const auto number = [&](std::size_t offset, int bytes) {
        std::uint32_t value = 0;
        for (int i = 0; i < bytes; ++i)
            value |= std::uint32_t(static_cast<unsigned char>(file.at(offset + i))) << 8 * i;
        return value;
    };
    ASSERT_EQ(number(0, 4), 23u);
    ASSERT_EQ(number(4, 4), 42u);
    const std::size_t data = 12 + number(8, 4);
    const picojson::value header = json(file.substr(12, number(8, 4)));
    const auto byteInFile = [&](const picojson::value& view) {
        const std::string chunk = header.get("bufferViews")
                                      .get(view.get("bufferView").get<std::string>())
                                      .get("chunks")
                                      .get(0)
                                      .get<std::string>();
        return data + static_cast<std::size_t>(
                          header.get("bufferChunks").get(chunk).get("byteOffset").get<double>() +
                          view.get("byteOffset").get<double>());
    };

    const picojson::value& mesh = header.get("meshes").get("0");
    const picojson::value& indices =
        header.get("accessors").get("indexViews").get(mesh.get("indices").get<std::string>());
    ASSERT_EQ(indices.get("componentType").get<double>(), 5123);
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(number(byteInFile(indices) + 2 * i, 2), i);

    const picojson::value& positions = header.get("accessors")
                                           .get("attributeViews")
                                           .get(mesh.get("attributes").get("position").get<std::string>());
    ASSERT_EQ(positions.get("componentType").get<double>(), 5123);
    ASSERT_EQ(positions.get("type").get<std::string>(), "VEC3");
    const double corners[3][3] = {{-0.5, -0.5, 0}, {0.5, -0.5, 0}, {0, 0.5, 0}};
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t c = 0; c < 3; ++c) {
            const std::size_t stride = static_cast<std::size_t>(positions.get("byteStride").get<double>());
            const double offset = positions.get("decodeOffset").get(c).get<double>();
            const double scale = positions.get("decodeScale").get(c).get<double>();
            const double value = (number(byteInFile(positions) + i * stride + c * 2, 2) + offset) / scale;
            EXPECT_LE(value, corners[i][c]);
            EXPECT_GT(value, corners[i][c] - 1 / scale);
        }
    }
}

} // namespace
