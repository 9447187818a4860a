#include "ObjReader.h"

#include "../polygons/PolygonCutter.h"
#include "ObjFile.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/src/text/Utf8.h>

#include <algorithm>
#include <numeric>
#include <utility>

namespace kel::importer::detail {

namespace {

constexpr std::uint32_t NONE = ObjCorner::NONE;

/// A file without faces is a cloud of points.
bool isCloud(const ObjFile& file) {
    return file.corners.empty();
}

std::vector<bool> usedPositions(const ObjFile& file) {
    std::vector<bool> isUsed(file.positions.size() / 3, isCloud(file));
    for (const ObjCorner& corner : file.corners)
        isUsed[corner.position] = true;
    return isUsed;
}

/// Makes meshes of what the file says.
class ObjModelMaker {
public:
    ObjModelMaker(ObjFile given, const ModelSource& source, const ImportOptions& options)
        : file(std::move(given)), isUsed(usedPositions(file)),
          positions(makePositionsOfText(std::move(file.positions), isUsed, options.origin)),
          firstOf(positions.vertices(), NONE), cutter(positions, options.onBadGeometry) {
        model->format = "Wavefront Object";
        file.colors.resize(file.colors.empty() ? 0 : 3 * positions.vertices(), 1.0f);
        model->nodes.emplace_back().name = source.path.substr(source.path.rfind('/') + 1);
    }

    std::unique_ptr<Model> make() {
        for (const std::string& object : file.objects) {
            ModelNode& node = model->nodes.emplace_back();
            node.name = object;
            node.parent = 0;
        }
        for (std::size_t m = 0; m < file.meshes.size(); ++m) {
            const bool isLast = m + 1 == file.meshes.size();
            addMesh(file.meshes[m], isLast ? file.faceSizes.size() : file.meshes[m + 1].firstFace);
        }
        if (isCloud(file) && !isUsed.empty()) addPoints();
        report();
        return std::move(model);
    }

private:
    ObjFile file;
    std::vector<bool> isUsed; ///< for each position of the file
    const ModelAttribute positions;
    std::unique_ptr<ListedModel> model = std::make_unique<ListedModel>();

    // Of the mesh at hand: the corners that differ, which become its vertices.
    std::vector<ObjCorner> vertices;
    std::vector<std::uint32_t> firstOf; ///< for each position of the file, the first vertex there
    std::vector<std::uint32_t> next;    ///< for each vertex, the next one at that position

    std::size_t unused = 0;
    std::size_t withThirdTexcoords = 0; ///< meshes
    PolygonCutter cutter;

    std::uint32_t vertexOf(const ObjCorner& corner) {
        std::uint32_t* link = &firstOf[corner.position];
        for (; *link != NONE; link = &next[*link]) {
            const ObjCorner& known = vertices[*link];
            if (known.texcoord == corner.texcoord && known.normal == corner.normal) return *link;
        }
        const auto vertex = static_cast<std::uint32_t>(vertices.size());
        *link = vertex;
        vertices.push_back(corner);
        next.push_back(NONE); // may move what `link` points to
        return vertex;
    }

    void addMesh(const ObjMesh& mesh, std::size_t endOfFaces) {
        PrimitiveLists lists;
        std::vector<std::uint32_t> places, names; // of the corners of a face
        bool hasTexcoords = false, hasNormals = false;
        std::size_t corner = mesh.firstCorner;
        for (std::size_t f = mesh.firstFace; f < endOfFaces; ++f) {
            const auto size = static_cast<std::size_t>(std::abs(file.faceSizes[f]));
            places.clear();
            names.clear();
            for (const std::size_t end = corner + size; corner < end; ++corner) {
                const ObjCorner& at = file.corners[corner];
                hasTexcoords |= at.texcoord != NONE;
                hasNormals |= at.normal != NONE;
                places.push_back(at.position);
                names.push_back(vertexOf(at));
            }
            if (file.faceSizes[f] > 0) {
                cutter.add(places.data(), names.data(), size, lists);
                continue;
            }
            for (std::size_t i = 1; i < size; ++i)
                lists.lines.insert(lists.lines.end(), {names[i - 1], names[i]});
        }
        if (vertices.empty()) return;
        std::vector<ModelPart> parts =
            partsOf(std::move(lists), attributesOfVertices(hasTexcoords, hasNormals), unused);
        bool hasThird = false;
        for (const ObjCorner& vertex : vertices) {
            firstOf[vertex.position] = NONE;
            hasThird |= vertex.texcoord != NONE && file.hasThird[vertex.texcoord];
        }
        withThirdTexcoords += hasThird;
        vertices.clear();
        next.clear();
        add(mesh.object + 1, mesh.name, mesh.material, std::move(parts));
    }

    void add(std::size_t node, const std::string& name, std::optional<std::size_t> material,
             std::vector<ModelPart> parts) {
        for (ModelPart& part : parts)
            part.material = material;
        const std::string number = "mesh " + std::to_string(model->meshes.size());
        const std::string place =
            name.empty() ? number : number + " \"" + kel::src::text::validUtf8(name) + "\"";
        model->nodes[node].meshes.push_back(model->addMesh({name, place, {}}, std::move(parts)));
    }

    std::vector<ModelAttribute> attributesOfVertices(bool hasTexcoords, bool hasNormals) const {
        std::vector<std::uint32_t> places;
        places.reserve(vertices.size());
        for (const ObjCorner& vertex : vertices)
            places.push_back(vertex.position);
        std::vector<ModelAttribute> attributes;
        attributes.push_back(
            {positions.name, 3, gather(positions.values, 3, places), gather(positions.doubles, 3, places)});
        if (hasNormals)
            attributes.push_back(
                {kel::mesh::DEFAULT_NORMALS_NAME, 3, gatherOrZero(file.normals, 3, &ObjCorner::normal), {}});
        if (hasTexcoords)
            attributes.push_back(
                {TEXCOORD_NAME, 2, gatherOrZero(file.texcoords, 2, &ObjCorner::texcoord), {}});
        if (!file.colors.empty()) attributes.push_back({COLOR_NAME, 3, gather(file.colors, 3, places), {}});
        return attributes;
    }

    /// A corner may state less than the others of its mesh.
    std::vector<float> gatherOrZero(const std::vector<float>& numbers, std::size_t width,
                                    std::uint32_t ObjCorner::*which) const {
        std::vector<float> result(width * vertices.size(), 0.0f);
        for (std::size_t v = 0; v < vertices.size(); ++v) {
            const std::size_t place = vertices[v].*which;
            if (place != NONE) std::copy_n(&numbers[width * place], width, &result[width * v]);
        }
        return result;
    }

    void addPoints() {
        std::vector<std::uint32_t> all(isUsed.size());
        std::iota(all.begin(), all.end(), 0u);
        // Normals have no index here; as many as points are theirs.
        const bool hasNormals = file.normals.size() == 3 * all.size();
        for (const std::uint32_t place : all)
            vertices.push_back({place, NONE, hasNormals ? place : NONE});
        PrimitiveLists lists;
        lists.points = std::move(all);
        add(0, "", std::nullopt, partsOf(std::move(lists), attributesOfVertices(false, hasNormals), unused));
    }

    void report() {
        model->materials = std::move(file.materials.list);
        const auto drop = [&](const char* kind, std::size_t count, const std::string& detail = {}) {
            if (count > 0) model->dropped.push_back({kind, count, detail});
        };
        drop("textures", file.materials.textures.size(), listed(file.materials.textures));
        drop("free-form curves and surfaces", file.freeForms);
        drop("third texture coordinates", withThirdTexcoords, "of whole meshes");
        drop("alpha channels", file.hasAlpha, "of vertex colours");
        drop("numbers of vertices without a meaning here", file.extraNumbers);
        const auto left = static_cast<std::size_t>(std::count(isUsed.begin(), isUsed.end(), false));
        drop(UNUSED_VERTICES, left + unused);
        cutter.report(model->dropped);
        for (const std::string& path : file.missing)
            model->notes.push_back("The model names a file that could not be opened: " + path);
    }
};

} // namespace

std::unique_ptr<Model> readObj(const ModelSource& source, const ImportOptions& options,
                               ProgressReporter& progress) {
    progress.report("reading", 0.0);
    const Content content(source);
    const std::string_view text(content.data(), static_cast<std::size_t>(content.size()));
    auto model = ObjModelMaker(readObjFile(source, text, progress), source, options).make();
    progress.report("reading", 1.0);
    return model;
}

} // namespace kel::importer::detail
