// write_web_fixtures FOLDER
//
// Writes SRC files of both writers in every mode, and beside each NAME.src what this library's own reader
// reads in it, as NAME.json. For broken files it writes the codes with which the reader refuses them. The web
// loader's tests compare.

#include "support/Meshes.h"

#include <kel/prepare/FitToRange.h>
#include <kel/src/DefaultSrcWriter.h>
#include <kel/src/SrcReader.h>
#include <kel/src/SrcWriter.h>
#include <kel/src/container/ShapeResourceContainer.h>
#include <kel/src/default_writer/ClassicMaterial.h>
#include <kel/src/default_writer/MeshToContainer.h>
#include <kel/src/encoding/EncodingPresets.h>

#include <cmath>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using kel::src::SrcWriterInput;
using kel::src::detail::ShapeResourceContainer;

std::filesystem::path folder;

// ---- What the reader reads, as JSON ---------------------------------------------------------------------

std::string jsonText(std::string_view text) {
    return picojson::value(std::string(text)).serialize();
}

template<typename Values>
void appendNumbers(std::string& json, const Values& values) {
    json += '[';
    for (std::size_t i = 0; i < values.size(); ++i) {
        char text[32];
        std::snprintf(text, sizeof text, "%s%.9g", i == 0 ? "" : ",", static_cast<double>(values[i]));
        json += text;
    }
    json += ']';
}

std::string readBack(const std::string& bytes) {
    const kel::src::SrcFile file = kel::src::readSrc(kel::src::ByteView(bytes));
    std::string json = "{\"meshes\":[";
    for (const kel::src::SrcMesh& mesh : file.meshes()) {
        if (json.back() == '}') json += ',';
        const kel::src::DecodedMesh decoded = kel::src::decodeMesh(file, mesh);
        json += "{\"id\":" + jsonText(mesh.id) + ",\"indices\":";
        if (decoded.indexed) {
            appendNumbers(json, decoded.indices);
        } else {
            json += "null";
        }
        json += ",\"attributes\":{";
        for (const kel::src::DecodedAttribute& attribute : decoded.attributes) {
            if (json.back() != '{') json += ',';
            json += jsonText(attribute.name) + ":";
            appendNumbers(json, attribute.values);
        }
        json += "}}";
    }
    return json + "]}\n";
}

void save(const std::string& name, const std::string& bytes) {
    std::ofstream file(folder / name, std::ios::binary);
    file << bytes;
    file.flush();
    if (!file) throw std::runtime_error("cannot write " + (folder / name).string());
}

void saveFile(const std::string& name, const std::string& bytes) {
    save(name + ".src", bytes);
    save(name + ".json", readBack(bytes));
}

template<typename Write>
std::string textOf(Write write) {
    std::ostringstream out;
    write(out);
    return out.str();
}

// ---- Models ---------------------------------------------------------------------------------------------

fixture::DefaultMeshPtr moved(fixture::DefaultMeshPtr mesh, float scale, float x, float y, float z) {
    std::vector<float> positions = fixture::floatsOf(*mesh, "position");
    const float offset[] = {x, y, z};
    for (std::size_t i = 0; i < positions.size(); ++i)
        positions[i] = positions[i] * scale + offset[i % 3];
    mesh->addAttribute("position", 3, std::move(positions));
    return mesh;
}

/// The sphere with its faces outwards.
fixture::DefaultMeshPtr ball(std::size_t slices, std::size_t stacks) {
    auto mesh = fixture::sphere(slices, stacks);
    const std::vector<std::size_t> inward = fixture::indicesOf(*mesh);
    mesh->setIndices(std::vector<std::uint32_t>(inward.rbegin(), inward.rend()));
    return mesh;
}

fixture::DefaultMeshPtr torus(std::size_t around, std::size_t across) {
    auto mesh = fixture::grid(around, across);
    std::vector<float> positions, normals, texcoords;
    for (std::size_t y = 0; y <= across; ++y) {
        for (std::size_t x = 0; x <= around; ++x) {
            const double u = static_cast<double>(x) / static_cast<double>(around);
            const double v = static_cast<double>(y) / static_cast<double>(across);
            const double phi = 6.283185307179586 * u, psi = 6.283185307179586 * v;
            const double n[] = {std::cos(psi) * std::cos(phi), std::cos(psi) * std::sin(phi), std::sin(psi)};
            positions.insert(positions.end(), {static_cast<float>(0.7 * std::cos(phi) + 0.25 * n[0]),
                                               static_cast<float>(0.7 * std::sin(phi) + 0.25 * n[1]),
                                               static_cast<float>(0.25 * n[2])});
            for (const double component : n)
                normals.push_back(static_cast<float>(component));
            texcoords.insert(texcoords.end(), {static_cast<float>(4 * u - 1.3), static_cast<float>(v + 0.2)});
        }
    }
    mesh->addAttribute("position", 3, std::move(positions));
    mesh->addAttribute("normal", 3, std::move(normals));
    mesh->addAttribute("texcoord", 2, std::move(texcoords));
    return mesh;
}

fixture::DefaultMeshPtr colouredGround() {
    auto mesh = fixture::grid(8, 8);
    std::vector<float> colors;
    for (int i = 0; i < 81; ++i) {
        const float x = static_cast<float>(i % 9) / 8.0f, y = static_cast<float>(i / 9) / 8.0f;
        colors.insert(colors.end(), {x, y, 1.0f - 0.5f * x});
    }
    mesh->addAttribute("color", 3, std::move(colors));
    return mesh;
}

std::shared_ptr<kel::material::MaterialClassic> shiny(float red, float green, float blue) {
    auto material = fixture::material(red, green, blue);
    material->setSpecular({0.5f, 0.5f, 0.5f});
    material->setShininess(0.25f);
    material->setAmbient(0.5f);
    return material;
}

void assign(SrcWriterInput& input, std::size_t mesh, std::shared_ptr<kel::material::Material> material) {
    input.materials.insert(material);
    input.meshMaterials[input.meshes[mesh]] = std::move(material);
}

/// Bodies of every kind of attribute, with flat, stretched and far boxes.
SrcWriterInput scene() {
    auto sphere = moved(ball(48, 24), 1.0f, -1.4f, 0.0f, 0.3f);
    auto ring = moved(torus(64, 24), 1.0f, 1.1f, 0.2f, 0.0f);
    auto ground = moved(colouredGround(), 6.0f, -3.0f, -3.0f, -1.2f);
    auto plate = moved(fixture::noNormals(), 0.8f, 0.6f, -1.9f, 0.2f);
    // A box three times as wide as high: where a quantized position's unequal steps would bend normals.
    auto pebble = ball(32, 16);
    std::vector<float> positions = fixture::floatsOf(*pebble, "position");
    std::vector<float> normals = fixture::floatsOf(*pebble, "normal");
    for (std::size_t i = 0; i < positions.size(); i += 3) {
        positions[i] = positions[i] * 0.9f - 0.2f;
        positions[i + 1] = positions[i + 1] * 0.3f + 1.7f;
        positions[i + 2] = positions[i + 2] * 0.3f;
        const double x = normals[i] / 0.9, y = normals[i + 1] / 0.3, z = normals[i + 2] / 0.3;
        const double length = std::sqrt(x * x + y * y + z * z);
        normals[i] = static_cast<float>(x / length);
        normals[i + 1] = static_cast<float>(y / length);
        normals[i + 2] = static_cast<float>(z / length);
    }
    pebble->addAttribute("position", 3, std::move(positions));
    pebble->addAttribute("normal", 3, std::move(normals));

    auto input = fixture::inputOf({sphere, ring, ground, plate, pebble});
    assign(input, 0, shiny(0.9f, 0.2f, 0.15f));
    assign(input, 1, shiny(0.2f, 0.7f, 0.3f));
    assign(input, 3, shiny(0.9f, 0.8f, 0.2f));
    assign(input, 4, shiny(0.3f, 0.4f, 0.9f));
    return input;
}

/// One mesh of each primitive type around the unit square.
SrcWriterInput primitives() {
    std::vector<kel::mesh::MeshPtr> meshes;
    const std::vector<std::vector<std::uint16_t>> lists = {{0, 1, 2, 3}, {0, 1, 2, 3},       {0, 1, 2, 3},
                                                           {0, 1, 2, 3}, {0, 1, 2, 0, 2, 3}, {0, 1, 3, 2},
                                                           {0, 1, 2, 3}};
    for (std::uint32_t type = kel::mesh::POINTS; type <= kel::mesh::TRIANGLE_FAN; ++type) {
        auto mesh = moved(fixture::unitSquare(), 0.8f, 1.2f * static_cast<float>(type), 0.0f, 0.0f);
        mesh->setPrimitiveType(static_cast<kel::mesh::PrimitiveType>(type));
        mesh->setIndices(lists[type]);
        meshes.push_back(mesh);
    }
    auto input = fixture::inputOf(meshes);
    for (std::size_t i = 0; i < meshes.size(); ++i)
        assign(input, i, shiny(0.9f, 0.3f, 0.1f));
    return input;
}

SrcWriterInput many(std::size_t count) {
    std::vector<kel::mesh::MeshPtr> meshes;
    for (std::size_t i = 0; i < count; ++i) {
        meshes.push_back(moved(ball(8, 6), 0.35f, static_cast<float>(i % 20), static_cast<float>(i / 20 % 20),
                               static_cast<float>(i / 400)));
    }
    auto input = fixture::inputOf(meshes);
    const auto red = shiny(0.8f, 0.2f, 0.2f), green = shiny(0.2f, 0.8f, 0.2f), blue = shiny(0.2f, 0.2f, 0.8f);
    for (std::size_t i = 0; i < count; ++i)
        assign(input, i, i % 3 == 0 ? red : i % 3 == 1 ? green : blue);
    return input;
}

// ---- Files ----------------------------------------------------------------------------------------------

std::string byContainer(SrcWriterInput input, bool compressed) {
    input.useCompressedPreset = compressed;
    return textOf([&](std::ostream& out) { kel::src::writeMeshSrcDefault(input, out); });
}

std::string byPublicWriter(const SrcWriterInput& input, kel::src::SrcWriter::Compression mode) {
    return textOf([&](std::ostream& out) { kel::src::SrcWriter::write(input, out, mode); });
}

/// The scene with every attribute on `bits` bits, in the box that the quantizer takes.
std::string onBits(std::uint32_t bits) {
    SrcWriterInput input = kel::prepare::fitToRange(scene());
    ShapeResourceContainer container;
    std::map<std::string, std::string> attributeIds;
    kel::src::detail::SRCEncodingConfig config;
    for (auto& [name, precision] : config.precision)
        precision = bits;
    for (std::size_t i = 0; i < input.meshes.size(); ++i) {
        kel::src::detail::addMeshToSrc(container, attributeIds, i, input.meshes[i],
                                       input.metaData[input.meshes[i]], config);
    }
    container.addTechnique("x3dStandardMaterialTechnique",
                           kel::src::detail::createStandardX3DMaterialTechnique());
    return textOf([&](std::ostream& out) { container.writeToStream(out); });
}

/// A square whose buffer views are cut into chunks at odd places, behind a view of one byte that leaves
/// everything unaligned. A view with borders loses its last byte, so each gets one too many.
std::string inChunks() {
    ShapeResourceContainer container;
    const unsigned char odd[1] = {0xff};
    container.addBufferView(odd, 1, nullptr);
    const float positions[] = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};
    const std::uint16_t indices[] = {0, 1, 2, 0, 2, 3};
    const auto padded = [](const void* data, std::size_t size) {
        std::vector<unsigned char> bytes(size + 1);
        std::copy_n(static_cast<const unsigned char*>(data), size, bytes.begin());
        return bytes;
    };
    const std::vector<unsigned char> positionBytes = padded(positions, sizeof positions);
    const std::vector<unsigned int> positionBorders = {5, 5, 19, sizeof positions};
    const std::string positionView =
        container.addBufferView(positionBytes.data(), positionBytes.size(), &positionBorders);
    const std::vector<unsigned char> indexBytes = padded(indices, sizeof indices);
    const std::vector<unsigned int> indexBorders = {3, sizeof indices};
    const std::string indexView =
        container.addBufferView(indexBytes.data(), indexBytes.size(), &indexBorders);
    const double zeros[3] = {0, 0, 0}, ones[3] = {1, 1, 1};
    const std::string position =
        container.addAttributeView<3>(positionView, 0, 12, 4, ShapeResourceContainer::FLOAT, zeros, ones);
    const float center[] = {0.5f, 0.5f, 0}, size[] = {1, 1, 1e-8f};
    container.addMesh("a/b ~\"\xc3\xa9\"", {{"position", position}},
                      container.addIndexView(indexView, 0, 6, ShapeResourceContainer::USHORT), "",
                      ShapeResourceContainer::TRIANGLES, center, size, picojson::value());
    return textOf([&](std::ostream& out) { container.writeToStream(out); });
}

// ---- Broken files ---------------------------------------------------------------------------------------

/// The name of the code that the reader refuses the bytes with; "" when it takes them.
std::string codeOf(const std::string& bytes) {
    try {
        kel::src::readSrc(kel::src::ByteView(bytes));
        return "";
    } catch (const kel::src::SrcError& error) {
        return std::string(kel::src::infoOf(error.code()).name);
    }
}

void appendCode(std::string& json, const std::string& bytes) {
    if (json.back() != '[') json += ',';
    json += jsonText(codeOf(bytes));
}

/// What becomes of a file that is cut at each length, and of one with each byte changed in two ways.
void saveBroken(const std::string& name, const std::string& good) {
    std::string json = "{\"cut\":[";
    for (std::size_t length = 0; length < good.size(); ++length)
        appendCode(json, good.substr(0, length));
    for (const int mask : {0x01, 0x80}) {
        json += "],\"flipped" + std::to_string(mask) + "\":[";
        for (std::size_t at = 0; at < good.size(); ++at) {
            std::string bad = good;
            bad[at] = static_cast<char>(bad[at] ^ mask);
            appendCode(json, bad);
        }
    }
    save(name + ".src", good);
    save(name + ".json", json + "]}\n");
}

void writeAll() {
    using kel::src::SrcWriter;
    saveFile("default", byContainer(scene(), false));
    saveFile("cmp1", byContainer(kel::prepare::fitToRange(scene()), true));
    saveFile("uncompressed", byPublicWriter(scene(), SrcWriter::UNCOMPRESSED));
    saveFile("position", byPublicWriter(scene(), SrcWriter::POSITION_COMPRESSED));
    saveFile("position-normal", byPublicWriter(scene(), SrcWriter::POSITION_NORMAL_COMPRESSED));
    saveFile("bits-20", onBits(20));
    saveFile("bits-12", onBits(12));
    saveFile("bits-5", onBits(5));
    saveFile("primitives", byPublicWriter(primitives(), SrcWriter::UNCOMPRESSED));
    saveFile("primitives-position", byPublicWriter(primitives(), SrcWriter::POSITION_COMPRESSED));
    saveFile("primitives-default", byContainer(primitives(), false));
    saveFile("chunks", inChunks());
    saveFile("empty", byContainer(SrcWriterInput(), false));
    saveFile("many", byPublicWriter(many(500), SrcWriter::POSITION_NORMAL_COMPRESSED));
    saveFile("many-cmp1", byContainer(kel::prepare::fitToRange(many(500)), true));

    auto square = fixture::inputOf({fixture::unitSquare()});
    assign(square, 0, shiny(1, 0.5f, 0));
    saveBroken("broken-container", byContainer(square, true));
    saveBroken("broken-public", byPublicWriter(square, SrcWriter::POSITION_NORMAL_COMPRESSED));
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: write_web_fixtures FOLDER\n";
        return 2;
    }
    try {
        folder = argv[1];
        std::filesystem::create_directories(folder);
        writeAll();
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "write_web_fixtures: " << error.what() << '\n';
        return 1;
    }
}
