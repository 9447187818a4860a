#include "Conversion.h"

#include "../VertexJoiner.h"

#include <kel/mesh/AttributeNames.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace kel::importer::detail {

namespace {

constexpr std::uint32_t NONE = std::numeric_limits<std::uint32_t>::max();

/// Vertices of a mesh as rows of floats, one stream per attribute of the part.
class VertexReader {
public:
    VertexReader(const aiMesh& mesh, kel::mesh::PrimitiveType type, const std::vector<std::uint32_t>& corners,
                 PartLosses& losses)
        : mesh(mesh), losses(losses), surface(type == kel::mesh::TRIANGLES), given(mesh.mNormals != nullptr) {
        const auto good = [this](std::uint32_t vertex) { return goodNormal(vertex); };
        allGood = given && std::all_of(corners.begin(), corners.end(), good);
        if (surface && !allGood) {
            made = makeNormals(mesh.mVertices, corners);
            losses.undefinedNormals += made.undefined;
        }
        for (unsigned t = 0; t < AI_MAX_NUMBER_OF_TEXTURECOORDS; ++t) {
            if (mesh.mTextureCoords[t]) texcoords.push_back(t);
        }
        for (unsigned c = 0; c < AI_MAX_NUMBER_OF_COLOR_SETS; ++c) {
            if (mesh.mColors[c]) colors.push_back(c);
        }
    }

    /// Names and widths, without values.
    std::vector<PartAttribute> attributes() const {
        std::vector<PartAttribute> result;
        result.push_back({kel::mesh::DEFAULT_POSITIONS_NAME, 3, {}});
        if (surface || given) result.push_back({kel::mesh::DEFAULT_NORMALS_NAME, 3, {}});
        const auto addSets = [&](const char* name, std::size_t width, std::size_t count) {
            for (std::size_t set = 0; set < count; ++set)
                result.push_back({set == 0 ? name : name + std::to_string(set), width, {}});
        };
        addSets(TEXCOORD_NAME, 2, texcoords.size());
        addSets(COLOR_NAME, 3, colors.size());
        return result;
    }
    /// Whether corners of one vertex may differ, since they have normals of their own.
    bool perCorner() const { return !made.ofCorner.empty(); }
    /// corner  its place in the list that the constructor was given
    /// out     gets the floats of all attributes, all finite and none of them -0
    void read(std::uint32_t vertex, std::size_t corner, float* out) {
        put(mesh.mVertices[vertex], out);
        if (surface || given) putNormal(vertex, corner, out);
        for (const unsigned t : texcoords) {
            put(mesh.mTextureCoords[t][vertex].x, out);
            put(mesh.mTextureCoords[t][vertex].y, out);
        }
        for (const unsigned c : colors) {
            put(mesh.mColors[c][vertex].r, out);
            put(mesh.mColors[c][vertex].g, out);
            put(mesh.mColors[c][vertex].b, out);
        }
    }

private:
    const aiMesh& mesh;
    PartLosses& losses;
    bool surface;
    bool given; // the mesh has normals
    bool allGood;
    CornerNormals made;
    std::vector<unsigned> texcoords;
    std::vector<unsigned> colors;

    bool goodNormal(std::uint32_t vertex) const {
        const aiVector3D& n = mesh.mNormals[vertex];
        return isFinite(n) && (n.x != 0.0f || n.y != 0.0f || n.z != 0.0f);
    }
    void putNormal(std::uint32_t vertex, std::size_t corner, float*& out) {
        if (allGood || (given && goodNormal(vertex))) return put(mesh.mNormals[vertex], out);
        losses.replacedNormals += given;
        const float up[3] = {0.0f, 0.0f, 1.0f};
        const float* normal = surface ? &made.normals[3 * std::size_t{made.ofCorner[corner]}] : up;
        for (int axis = 0; axis < 3; ++axis)
            put(normal[axis], out);
    }
    void put(float number, float*& out) {
        if (!std::isfinite(number)) {
            ++losses.replacedNumbers;
            number = 0.0f;
        }
        *out++ = number + 0.0f; // -0 becomes 0, so that equal numbers have equal bits
    }
    void put(const aiVector3D& v, float*& out) {
        put(v.x, out);
        put(v.y, out);
        put(v.z, out);
    }
};

MeshPart joinVertices(const aiMesh& mesh, kel::mesh::PrimitiveType type, std::vector<std::uint32_t> corners,
                      PartLosses& losses) {
    VertexReader reader(mesh, type, corners, losses);
    MeshPart part;
    part.type = type;
    part.attributes = reader.attributes();
    std::vector<std::size_t> widths;
    std::size_t width = 0;
    for (const PartAttribute& attribute : part.attributes) {
        widths.push_back(attribute.width);
        width += attribute.width;
    }

    // A vertex is looked up once, unless its corners have normals of their own.
    std::vector<std::uint32_t> order; // vertices, in the order of their first corners
    std::vector<std::uint32_t> known; // for each vertex: first whether it is in that list, then its index
    if (!reader.perCorner()) {
        known.assign(mesh.mNumVertices, NONE);
        order.reserve(std::min<std::size_t>(corners.size(), mesh.mNumVertices));
        for (const std::uint32_t vertex : corners) {
            if (known[vertex] != NONE) continue;
            known[vertex] = 0;
            order.push_back(vertex);
        }
    }
    // Where corners share vertices, somebody has joined equal ones already.
    const bool shared = !order.empty() && 2 * order.size() <= corners.size();
    VertexJoiner joiner(std::move(widths), shared ? order.size() : 0);
    // By the block, for which the joiner asks for memory ahead. Calls store(i, index) for i = 0 .. count - 1 in
    // turn; vertex(i) and corner(i) say what to read, and stay as they are up to that call.
    constexpr std::size_t BLOCK = 128;
    std::vector<float> rows(BLOCK * width);
    const auto join = [&](std::size_t count, const auto& vertex, const auto& corner, const auto& store) {
        std::array<std::uint32_t, BLOCK> indices;
        for (std::size_t first = 0; first < count; first += BLOCK) {
            const std::size_t here = std::min(BLOCK, count - first);
            for (std::size_t i = 0; i < here; ++i)
                reader.read(vertex(first + i), corner(first + i), &rows[i * width]);
            joiner.add(rows.data(), here, indices.data());
            for (std::size_t i = 0; i < here; ++i)
                store(first + i, indices[i]);
        }
    };
    if (reader.perCorner()) {
        join(
            corners.size(), [&](std::size_t i) { return corners[i]; }, [](std::size_t i) { return i; },
            [&](std::size_t i, std::uint32_t index) { corners[i] = index; });
    } else {
        join(
            order.size(), [&](std::size_t i) { return order[i]; }, [](std::size_t) { return 0; },
            [&](std::size_t i, std::uint32_t index) { known[order[i]] = index; });
        for (std::uint32_t& corner : corners)
            corner = known[corner];
    }
    for (std::size_t a = 0; a < part.attributes.size(); ++a) {
        part.attributes[a].values = std::move(joiner.stream(a));
        part.attributes[a].values.shrink_to_fit();
    }
    part.indices = std::move(corners);
    return part;
}

} // namespace

PartAttribute* MeshPart::normals() {
    const bool there = attributes.size() > 1 && attributes[1].name == kel::mesh::DEFAULT_NORMALS_NAME;
    return there ? &attributes[1] : nullptr;
}

std::vector<MeshPart> takeParts(aiMesh& mesh, bool positionsAreFinite, PartLosses& losses) {
    // By the number of corners, less one.
    constexpr std::array<kel::mesh::PrimitiveType, 3> TYPES = {kel::mesh::POINTS, kel::mesh::LINES,
                                                               kel::mesh::TRIANGLES};
    std::array<std::vector<std::uint32_t>, 3> corners;
    std::vector<char> used(mesh.mNumVertices, 0);
    std::size_t notFinite = 0;

    const auto take = [&](const unsigned* indices, unsigned count) {
        if (!positionsAreFinite &&
            !std::all_of(indices, indices + count, [&](unsigned i) { return isFinite(mesh.mVertices[i]); })) {
            ++notFinite;
            return;
        }
        std::vector<std::uint32_t>& list = corners[count - 1];
        for (unsigned i = 0; i < count; ++i) {
            list.push_back(indices[i]);
            used[indices[i]] = 1;
        }
    };
    if (mesh.mVertices) {
        std::array<std::size_t, 3> faces{};
        for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
            const unsigned count = mesh.mFaces[f].mNumIndices;
            if (count >= 1 && count <= 3) ++faces[count - 1];
        }
        for (std::size_t i = 0; i < faces.size(); ++i)
            corners[i].reserve(faces[i] * (i + 1));
        for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
            const aiFace& face = mesh.mFaces[f];
            if (face.mNumIndices >= 1 && face.mNumIndices <= 3) {
                take(face.mIndices, face.mNumIndices);
            } else {
                ++losses.notTriangulated;
            }
        }
        // A point cloud: vertices without faces.
        if (mesh.mNumFaces == 0) {
            corners[0].reserve(mesh.mNumVertices);
            for (unsigned v = 0; v < mesh.mNumVertices; ++v)
                take(&v, 1);
        }
    }
    delete[] std::exchange(mesh.mFaces, nullptr);
    mesh.mNumFaces = 0;
    losses.notFinite += notFinite;
    if (notFinite == 0)
        losses.unusedVertices += static_cast<std::size_t>(std::count(used.begin(), used.end(), 0));

    std::vector<MeshPart> parts;
    for (std::size_t i = TYPES.size(); i-- > 0;) {
        if (!corners[i].empty()) parts.push_back(joinVertices(mesh, TYPES[i], std::move(corners[i]), losses));
    }
    return parts;
}

} // namespace kel::importer::detail
