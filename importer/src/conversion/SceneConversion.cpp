#include "Conversion.h"

#include "../model/NotFinitePositions.h"

#include <kel/mesh/DefaultMesh.h>
#include <kel/mesh/ForEachPrimitive.h>
#include <kel/src/format/ElementTypes.h>
#include <kel/src/format/MetadataKeys.h>

#include <algorithm>
#include <utility>

namespace kel::importer::detail {

namespace {

using kel::mesh::DefaultMesh;

const char* const CONVERTING = "converting";

std::shared_ptr<DefaultMesh> makeMesh(ModelPart part) {
    auto mesh = std::make_shared<DefaultMesh>(part.type);
    if (part.vertices() <= kel::src::format::MAX_SHORT_INDEX_VERTICES) {
        mesh->setIndices(std::vector<std::uint16_t>(part.indices.begin(), part.indices.end()));
    } else {
        mesh->setIndices(std::move(part.indices));
    }
    for (ModelAttribute& attribute : part.attributes)
        mesh->addAttribute(std::move(attribute.name), attribute.width, std::move(attribute.values));
    return mesh;
}

class Converter {
public:
    Converter(Model& model, const ModelSource& source, const ImportOptions& options,
              ProgressReporter& progress)
        : model(model), source(source), options(options), progress(progress),
          uses(collectUses(source, model)), materials(model.materials.size()),
          sourceText(sourceEntry(source.name, model, sourceNotUtf8)),
          origin(chooseOrigin(model, uses, options.origin)) {
        result.scene.origin = {origin.x, origin.y, origin.z};
        if (origin != glm::dvec3(0.0)) originText = kel::src::format::originText(result.scene.origin);
    }

    ImportedScene run() {
        result.report.format = model.format;
        if (uses.empty()) source.refuse(ImportCode::NO_MESH, "the scene has no mesh");
        losses.addNodes(model, uses);
        convertMeshes();
        checkResult();
        losses.write(model, result.report);
        result.report.origin = result.scene.origin;
        result.report.positionError = rounding.position;
        result.report.roundedNormals = rounding.normals;
        progress.report(CONVERTING, 1.0);
        return std::move(result);
    }

private:
    Model& model;
    const ModelSource& source;
    const ImportOptions& options;
    ProgressReporter& progress;

    std::vector<Use> uses;
    LossReport losses;
    NotFinitePositions notFinite;                                           // that are refused
    std::vector<std::shared_ptr<kel::material::MaterialClassic>> materials; // empty until they are used
    std::size_t sourceNotUtf8 = 0;
    std::string sourceText; // the same for all meshes
    glm::dvec3 origin;
    std::string originText; // empty where it is zero
    Rounding rounding;
    ModelExtent extent;
    ImportedScene result;

    void convertMeshes() {
        std::vector<std::size_t> left(model.meshes.size(), 0); // uses to come
        for (const Use& use : uses)
            ++left[use.mesh];
        result.scene.meshes.reserve(uses.size());
        std::map<std::size_t, std::vector<ModelPart>> kept; // parts of meshes with uses to come
        std::size_t done = 0;
        for (const Use& use : uses) {
            auto found = kept.find(use.mesh);
            if (found == kept.end()) found = kept.emplace(use.mesh, takeParts(use.mesh)).first;
            const bool last = --left[use.mesh] == 0;
            for (ModelPart& part : found->second)
                add(use, last ? std::move(part) : part);
            if (last) kept.erase(found);
            progress.report(CONVERTING, static_cast<double>(++done) / static_cast<double>(uses.size()));
        }
        if (notFinite.any()) notFinite.refuse(source);
    }

    /// Ready for use. Once positions have been found that are refused, the others are only counted.
    std::vector<ModelPart> takeParts(std::size_t mesh) {
        std::vector<ModelPart> parts = model.takeMesh(mesh);
        if (options.onBadGeometry == BadGeometry::FAIL) {
            for (const ModelPart& part : parts)
                countNotFinite(part, model.meshes[mesh].place);
            if (notFinite.any()) return {};
        }
        const auto isEmpty = [&](ModelPart& part) { return !preparePart(part, losses.parts); };
        parts.erase(std::remove_if(parts.begin(), parts.end(), isEmpty), parts.end());
        return parts;
    }

    void countNotFinite(const ModelPart& part, const std::string& place) {
        if (hasFinitePositions(part)) return;
        const ModelAttribute& positions = part.attributes[0];
        const std::vector<char> used = usedVertices(part);
        if (positions.doubles.empty()) {
            notFinite.add(positions.values.data(), used, part.indices.size(), place);
        } else {
            notFinite.add(positions.doubles.data(), used, part.indices.size(), place);
        }
    }

    void add(const Use& use, ModelPart part) {
        losses.parts.undefinedNormals += bake({use.world, origin}, part, rounding);
        if (const char* problem = extent.add(part))
            source.refuse(ImportCode::EXTENT_OVERFLOW, problem, model.meshes[use.mesh].place);

        ImportReport& report = result.report;
        ++report.meshes;
        report.vertices += part.vertices();
        const std::size_t primitives = part.indices.size() / kel::mesh::cornersPerPrimitive(part.type);
        (part.type == kel::mesh::TRIANGLES ? report.triangles
         : part.type == kel::mesh::LINES   ? report.lines
                                           : report.points) += primitives;

        kel::scene::SceneMesh entry;
        entry.setMetaData(kel::src::format::metadata::SOURCE, sourceText);
        losses.notUtf8 += sourceNotUtf8;
        if (!originText.empty()) entry.setMetaData(kel::src::format::metadata::ORIGIN, originText);
        describeMesh(model, use, part, losses.notUtf8, entry.editMetaData());
        if (part.material) {
            entry.material = materialOf(*part.material);
            result.scene.materials.insert(entry.material);
        }
        entry.mesh = makeMesh(std::move(part));
        result.scene.meshes.push_back(std::move(entry));
    }

    /// Made when the first mesh uses it.
    std::shared_ptr<kel::material::MaterialClassic> materialOf(std::size_t index) {
        if (!materials[index]) {
            materials[index] = makeClassicMaterial(model.materials[index]);
            losses.drop("two-sided flags", model.materials[index].twoSided, "of materials");
        }
        return materials[index];
    }

    void checkResult() const {
        if (result.scene.meshes.empty())
            source.refuse(ImportCode::NO_MESH, "nothing to draw: no point, line or triangle");
        if (extent.isOnePlace()) source.refuse(ImportCode::NO_EXTENT, "all vertices are at one place");
        const ImportReport& report = result.report;
        if (report.lines == 0 && report.points == 0 && !extent.hasArea()) {
            source.refuse(ImportCode::NO_EXTENT,
                          "none of the " + std::to_string(report.triangles) + " triangles has an area");
        }
    }
};

} // namespace

ImportedScene convertModel(Model& model, const ModelSource& source, const ImportOptions& options,
                           ProgressReporter& progress) {
    progress.report(CONVERTING, 0.0);
    return Converter(model, source, options, progress).run();
}

} // namespace kel::importer::detail
