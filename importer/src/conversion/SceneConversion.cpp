#include "Conversion.h"

#include "../model/CopyLimit.h"
#include "../model/NotFinitePositions.h"

#include <kel/mesh/ForEachPrimitive.h>
#include <kel/src/format/MetadataKeys.h>

#include <algorithm>
#include <utility>

namespace kel::importer::detail {

namespace {

const char* const CONVERTING = "converting";

double bytesOf(const std::vector<UsedPart>& parts) {
    double bytes = 0.0;
    for (const UsedPart& used : parts) {
        const ModelPart& part = used.part();
        bytes += static_cast<double>(sizeof(std::uint32_t) * part.indices.size());
        for (const ModelAttribute& attribute : part.attributes)
            bytes += static_cast<double>(sizeof(float) * attribute.width * attribute.vertices());
    }
    return bytes;
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
        std::map<std::size_t, std::vector<UsedPart>> kept; // parts of meshes with uses to come
        std::size_t done = 0;
        CopyLimit copies(source, options);
        for (const Use& use : uses) {
            auto found = kept.find(use.mesh);
            if (found == kept.end()) {
                found = kept.emplace(use.mesh, takeParts(use.mesh)).first;
                if (const std::size_t further = left[use.mesh] - 1; further > 0)
                    copies.add(static_cast<double>(further), bytesOf(found->second),
                               model.meshes[use.mesh].place);
            }
            const bool last = --left[use.mesh] == 0;
            for (UsedPart& part : found->second)
                add(use, part, last);
            if (last) kept.erase(found);
            progress.report(CONVERTING, static_cast<double>(++done) / static_cast<double>(uses.size()));
        }
        if (notFinite.any()) notFinite.refuse(source);
    }

    /// Ready for use. Once positions have been found that are refused, the others are only counted.
    std::vector<UsedPart> takeParts(std::size_t mesh) {
        std::vector<ModelPart> parts = model.takeMesh(mesh);
        if (options.onBadGeometry == BadGeometry::FAIL) {
            for (const ModelPart& part : parts)
                countNotFinite(part, model.meshes[mesh].place);
            if (notFinite.any()) return {};
        }
        std::vector<UsedPart> ready;
        ready.reserve(parts.size());
        for (ModelPart& part : parts) {
            if (preparePart(part, losses.parts)) ready.emplace_back(std::move(part));
        }
        return ready;
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

    void add(const Use& use, UsedPart& used, bool isLast) {
        UsedPart::Placed placed = used.place({use.world, origin}, isLast, rounding, extent);
        losses.parts.undefinedNormals += placed.undefined;
        if (placed.problem)
            source.refuse(ImportCode::EXTENT_OVERFLOW, placed.problem, model.meshes[use.mesh].place);

        const ModelPart& part = used.part();
        ImportReport& report = result.report;
        ++report.meshes;
        report.vertices += used.vertices();
        (part.type == kel::mesh::TRIANGLES ? report.triangles
         : part.type == kel::mesh::LINES   ? report.lines
                                           : report.points) += placed.mesh->getNumPrimitives();

        kel::scene::SceneMesh entry;
        entry.setMetaData(kel::src::format::metadata::SOURCE, sourceText);
        losses.notUtf8 += sourceNotUtf8;
        if (!originText.empty()) entry.setMetaData(kel::src::format::metadata::ORIGIN, originText);
        describeMesh(model, use, part, losses.notUtf8, entry.editMetaData());
        if (part.material) {
            entry.material = materialOf(*part.material);
            result.scene.materials.insert(entry.material);
        }
        entry.mesh = std::move(placed.mesh);
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
