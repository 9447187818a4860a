#include "Conversion.h"

#include <kel/mesh/DefaultMesh.h>
#include <kel/src/format/ElementTypes.h>
#include <kel/src/format/MetadataKeys.h>
#include <kel/src/text/Utf8.h>

#include <utility>

namespace kel::importer::detail {

namespace {

using kel::mesh::DefaultMesh;

const char* const CONVERTING = "converting";

std::string placeOf(const aiScene& scene, unsigned mesh) {
    const aiString& name = scene.mMeshes[mesh]->mName;
    return "mesh " + std::to_string(mesh) +
           (name.length == 0 ? "" : " \"" + kel::src::text::validUtf8({name.data, name.length}) + "\"");
}

/// Frees the vertices. Name and material stay for messages.
void freeVertices(aiMesh& mesh) {
    const auto free = [](auto*& array) {
        delete[] array;
        array = nullptr;
    };
    free(mesh.mVertices);
    free(mesh.mNormals);
    free(mesh.mTangents);
    free(mesh.mBitangents);
    for (auto*& set : mesh.mTextureCoords)
        free(set);
    for (auto*& set : mesh.mColors)
        free(set);
}

std::shared_ptr<DefaultMesh> makeMesh(MeshPart part) {
    auto mesh = std::make_shared<DefaultMesh>(part.type);
    if (part.vertices() <= kel::src::format::MAX_SHORT_INDEX_VERTICES) {
        mesh->setIndices(std::vector<std::uint16_t>(part.indices.begin(), part.indices.end()));
    } else {
        mesh->setIndices(std::move(part.indices));
    }
    for (PartAttribute& attribute : part.attributes)
        mesh->addAttribute(std::move(attribute.name), attribute.width, std::move(attribute.values));
    return mesh;
}

/// Of these formats, or of a file without any material, Assimp makes a grey one up.
bool describesMaterials(const std::string& format) {
    for (const char* without : {"STL", "PLY", "OFF", "Stereolithography", "Polygon Library"}) {
        if (format.find(without) != std::string::npos) return false;
    }
    return true;
}

class Converter {
public:
    Converter(AssimpScene& read, const Findings& findings, const ModelSource& source,
              ProgressReporter& progress)
        : read(read), scene(*read.scene), findings(findings), source(source), progress(progress),
          instances(collectInstances(source, scene)), gltfNodes(findings.gltf.get(), scene),
          describedMaterials(describesMaterials(read.format)),
          sourceText(sourceEntry(source.name, read.format, scene, sourceRepairs)) {}

    ImportedScene run() {
        result.report.format = read.format;
        if (instances.empty()) source.refuse(ImportCode::NO_MESH, "the scene has no mesh");
        losses.addScene(read, instances, gltfNodes, findings);
        convertMeshes();
        checkResult();
        losses.write(read, findings, result.report);
        progress.report(CONVERTING, 1.0);
        return std::move(result);
    }

private:
    AssimpScene& read;
    aiScene& scene;
    const Findings& findings;
    const ModelSource& source;
    ProgressReporter& progress;

    std::vector<Instance> instances;
    GltfNodes gltfNodes;
    LossReport losses;
    bool describedMaterials;
    std::map<unsigned, std::shared_ptr<kel::material::MaterialClassic>> materials; // by Assimp's index
    TextRepairs sourceRepairs;
    std::string sourceText; // the same for all meshes
    ModelExtent extent;
    ImportedScene result;

    void convertMeshes() {
        std::vector<std::size_t> uses(scene.mNumMeshes, 0); // still to come
        std::size_t all = 0;
        for (const Instance& instance : instances) {
            ++uses[instance.mesh()];
            all += scene.mMeshes[instance.mesh()]->mNumVertices;
        }
        result.scene.meshes.reserve(instances.size());
        std::size_t done = 0;
        std::map<unsigned, std::vector<MeshPart>> kept; // parts of meshes with uses to come
        for (const Instance& instance : instances) {
            const unsigned m = instance.mesh();
            aiMesh& mesh = *scene.mMeshes[m];
            auto found = kept.find(m);
            if (found == kept.end()) {
                losses.addMesh(mesh);
                found = kept.emplace(m, takeParts(mesh, read.positionsAreFinite, losses.parts)).first;
                freeVertices(mesh);
            }
            const bool last = --uses[m] == 0;
            for (MeshPart& part : found->second)
                add(instance, last ? std::move(part) : part);
            if (last) kept.erase(found);
            done += mesh.mNumVertices;
            progress.report(CONVERTING,
                            all == 0 ? 1.0 : static_cast<double>(done) / static_cast<double>(all));
        }
    }

    void add(const Instance& instance, MeshPart part) {
        losses.parts.undefinedNormals += bakeTransform(instance.world, part);
        if (const char* problem = extent.add(part))
            source.refuse(ImportCode::EXTENT_OVERFLOW, problem, placeOf(scene, instance.mesh()));

        ImportReport& report = result.report;
        ++report.meshes;
        report.vertices += part.vertices();
        if (part.type == kel::mesh::TRIANGLES) {
            report.triangles += part.indices.size() / 3;
        } else if (part.type == kel::mesh::LINES) {
            report.lines += part.indices.size() / 2;
        } else {
            report.points += part.indices.size();
        }

        kel::scene::SceneMesh entry;
        entry.mesh = makeMesh(std::move(part));
        entry.setMetaData(kel::src::format::metadata::SOURCE, sourceText);
        losses.texts.notUtf8 += sourceRepairs.notUtf8;
        describeMesh(instance, scene, gltfNodes, losses.texts, entry.editMetaData());
        entry.material = materialOf(instance);
        if (entry.material) result.scene.materials.insert(entry.material);
        result.scene.meshes.push_back(std::move(entry));
    }

    /// Made when the first mesh uses it; empty when the file describes none.
    std::shared_ptr<kel::material::MaterialClassic> materialOf(const Instance& instance) {
        const unsigned index = scene.mMeshes[instance.mesh()]->mMaterialIndex;
        std::optional<std::uint64_t> stated; // by a glTF
        if (const auto node = gltfNodes.find(*instance.node)) {
            // The reader keeps the materials in the order in which it came across them, and adds one for
            // primitives without.
            const GltfDocument& document = *gltfNodes.document();
            stated = wholeNumber(
                member(document.primitive(document.meshOf(*node).value_or(0), instance.slot), "material"));
            if (!stated) return nullptr;
        }
        if (index >= scene.mNumMaterials || !describedMaterials) return nullptr;
        const auto found = materials.find(index);
        if (found != materials.end()) return found->second;
        const aiMaterial& given = *scene.mMaterials[index];
        aiString name;
        given.Get(AI_MATKEY_NAME, name);
        if (!stated && std::string(name.C_Str()) == AI_DEFAULT_MATERIAL_NAME)
            return materials[index] = nullptr;
        int twoSided = 0;
        const bool statesSides = given.Get(AI_MATKEY_TWOSIDED, twoSided) == aiReturn_SUCCESS;
        losses.drop("two-sided flags", statesSides && twoSided != 0, "of materials");
        return materials[index] =
                   makeClassicMaterial(given, static_cast<std::uint32_t>(stated.value_or(index)));
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

ImportedScene convertScene(AssimpScene read, const Findings& findings, const ModelSource& source,
                           ProgressReporter& progress) {
    progress.report(CONVERTING, 0.0);
    return Converter(read, findings, source, progress).run();
}

} // namespace kel::importer::detail
