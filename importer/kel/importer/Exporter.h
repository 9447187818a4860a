#pragma once

#include <kel/importer/Export.h>
#include <kel/importer/Importer.h>
#include <kel/src/SrcReader.h>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace kel::importer {

/// Formats that SRC files can be turned into, by the extension of the file.
///     glb, gltf  names, materials, metadata (as "extras" of the nodes), all conventional attributes;
///                points and lines
///     obj        names, materials, normals, one set of texture coordinates, colours; points and lines
///     ply        triangles with normals, colours and one set of texture coordinates, as one mesh;
///                binary where there are no colours
///     stl        binary: triangles
KEL_IMPORTER_EXPORT const std::vector<std::string>& exportExtensions();

/// A file of the result.
struct ExportedFile {
    std::string name; ///< without folder
    std::string bytes;
};

struct ExportResult {
    /// The model first, then the files that it names: the buffer of a glTF, the materials of an OBJ.
    std::vector<ExportedFile> files;
    std::vector<Dropped> dropped; ///< what the target cannot hold; once per kind
    /// Of formats other than glTF: the largest distance by which a position, its origin added, was rounded to floats, in
    /// units of the model. A glTF has the origin in its nodes.
    double positionError = 0.0;
    std::size_t meshes = 0, triangles = 0, lines = 0, points = 0, vertices = 0;
};

/// what() is one sentence.
class KEL_IMPORTER_EXPORT ExportError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ~ExportError() override;
};

/// Turns an SRC file into a model file, in memory.
///
/// fileName  of the model, without folder; its extension is one of exportExtensions()
///
/// Values are those of the model: decoded, with a recorded "fit" undone and an "origin" added, as the translation of a
/// glTF's nodes and to the positions themselves elsewhere; these entries are left out. Strips,
/// fans and loops become single primitives. A material counts as opaque unless its own values say otherwise.
///
/// throws  ExportError; kel::src::SrcError; std::bad_alloc
KEL_IMPORTER_EXPORT ExportResult exportModel(const kel::src::SrcFile& file, const std::string& fileName);

} // namespace kel::importer
