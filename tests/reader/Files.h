#pragma once

// SRC files in memory: from both writers, and put together from a header of one's own.

#include <support/Meshes.h>
#include <support/SrcFile.h>

#include <kel/src/DefaultSrcWriter.h>
#include <kel/src/SrcReader.h>
#include <kel/src/SrcWriter.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

namespace reader_fixture {

using IndependentReading = kel::tests::SrcFile;
using kel::tests::SrcText;

using kel::src::SrcCode;

/// The modes in which a file can be written, by both writers.
enum class Mode { DEFAULT, CMP1, UNCOMPRESSED, POSITIONS, POSITIONS_AND_NORMALS };
constexpr Mode ALL_MODES[] = {Mode::DEFAULT, Mode::CMP1, Mode::UNCOMPRESSED, Mode::POSITIONS,
                              Mode::POSITIONS_AND_NORMALS};

inline std::string write(kel::src::SrcWriterInput input, Mode mode) {
    std::ostringstream out;
    if (mode == Mode::DEFAULT || mode == Mode::CMP1) {
        input.useCompressedPreset = mode == Mode::CMP1;
        kel::src::writeMeshSrcDefault(input, out);
    } else {
        using kel::src::SrcWriter;
        SrcWriter::write(input, out,
                         mode == Mode::UNCOMPRESSED ? SrcWriter::UNCOMPRESSED
                         : mode == Mode::POSITIONS  ? SrcWriter::POSITION_COMPRESSED
                                                    : SrcWriter::POSITION_NORMAL_COMPRESSED);
    }
    return out.str();
}

/// 23, 42, the header's length, header and data.
inline std::string assemble(const std::string& header, const std::string& data = {}) {
    std::string file;
    for (const std::size_t word : {std::size_t(23), std::size_t(42), header.size()})
        for (int byte = 0; byte < 4; ++byte)
            file += static_cast<char>(word >> (8 * byte) & 0xff);
    return file + header + data;
}

inline kel::src::SrcFile read(const std::string& file, const kel::src::ReadLimits& limits = {}) {
    return kel::src::readSrc(kel::src::ByteView(std::string_view(file)), limits);
}

/// The code with which the reader refuses the file; fails the test when it does not.
inline kel::src::SrcCode refusal(const std::string& file, const kel::src::ReadLimits& limits = {}) {
    try {
        read(file, limits);
    } catch (const kel::src::SrcError& error) {
        return error.code();
    }
    ADD_FAILURE() << "the reader took the file";
    return kel::src::SrcCode::UNREADABLE;
}

/// A file whose every part can be changed: replaces texts of the header and puts the file together again.
class Editable {
public:
    explicit Editable(const std::string& file) : header(SrcText(file).header), data(SrcText(file).data) {}

    /// Replaces the first `from`, which must be there.
    Editable& replace(const std::string& from, const std::string& to) {
        const std::size_t at = header.find(from);
        if (at == std::string::npos) throw std::runtime_error("the header has no " + from);
        header.replace(at, from.size(), to);
        return *this;
    }
    std::string file() const { return assemble(header, data); }

    std::string header;
    std::string data;
};

/// Corners on the axes at -0.5 and 0.5, whose unit normals the octahedral form holds exactly.
inline fixture::DefaultMeshPtr octahedron() {
    std::vector<float> corners = {1, 0, 0, -1, 0, 0, 0, 1, 0, 0, -1, 0, 0, 0, 1, 0, 0, -1};
    std::vector<float> positions = corners;
    for (float& component : positions)
        component *= 0.5f;
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute("position", 3, std::move(positions));
    mesh->addAttribute("normal", 3, std::move(corners));
    mesh->setIndices(std::vector<std::uint16_t>{0, 2, 4, 2, 1, 4, 1, 3, 4, 3, 0, 4, //
                                                2, 0, 5, 1, 2, 5, 3, 1, 5, 0, 3, 5});
    return mesh;
}

/// The smallest file with everything: one triangle with 16-bit indices, positions and normals as floats, one
/// material. Its data: indices 6 bytes, position 36, normal 36.
inline std::string triangleFile() {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute("position", 3, std::vector<float>{0, 0, 0, 1, 0, 0, 0, 1, 0});
    mesh->addAttribute("normal", 3, std::vector<float>{0, 0, 1, 0, 0, 1, 0, 0, 1});
    mesh->setIndices(std::vector<std::uint16_t>{0, 1, 2});
    auto input = fixture::inputOf({mesh});
    input.meshMaterials[mesh] = fixture::material(1, 0, 0);
    return write(input, Mode::DEFAULT);
}

} // namespace reader_fixture
