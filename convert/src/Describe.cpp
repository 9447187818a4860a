#include <kel/convert/Describe.h>

#include "MeshFacts.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/ForEachPrimitive.h>
#include <kel/src/format/ElementTypes.h>
#include <kel/src/format/MaterialParameters.h>
#include <kel/src/format/MetadataKeys.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

namespace kel::convert {

namespace {

namespace format = kel::src::format;
using kel::src::SRC_NONE;
using kel::src::SrcAttribute;
using kel::src::SrcAttributeView;
using kel::src::SrcFile;
using kel::src::SrcFit;
using kel::src::SrcMesh;

std::string encodingOf(const SrcAttribute& attribute, const SrcAttributeView& view) {
    if (isCombinedPositionNormal(attribute, view)) return "16-bit codes, octahedral normals";
    if (view.componentType == kel::mesh::FLOAT) return "floats";
    return std::to_string(8 * view.componentBytes) + (view.decoded ? "-bit codes" : "-bit integers");
}

/// Distance from the largest coordinate of the box to the next float.
double floatStep(const Bounds& bounds) {
    float largest = 0.0f;
    for (std::size_t c = 0; c < 3; ++c) {
        largest = std::max({largest, static_cast<float>(std::abs(bounds.min[c])),
                            static_cast<float>(std::abs(bounds.max[c]))});
    }
    return static_cast<double>(std::nextafter(largest, std::numeric_limits<float>::infinity())) -
           static_cast<double>(largest);
}

/// Elements of the attribute that says where the vertices are; 0 when the mesh has none.
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

class Collector {
public:
    Collector(const SrcFile& file, bool listMeshes)
        : file(file), listMeshes(listMeshes), users(file.bufferViews().size()),
          indexSeen(file.indexViews().size()), attributeSeen(file.attributeViews().size()) {}

    FileInfo collect() {
        info.bytes = file.dataOffset() + file.dataBytes();
        for (const auto& material : file.materials()) {
            MaterialInfo entry;
            entry.id = material.id;
            if (material.technique != SRC_NONE) entry.technique = file.techniques()[material.technique].id;
            entry.diffuse = file.materialParameter(material, parameterName(format::DIFFUSE_COLOR));
            if (entry.diffuse.size() != 3) entry.diffuse.clear();
            info.materials.push_back(std::move(entry));
        }
        for (const auto& view : file.indexViews())
            ++users[view.bufferView];
        for (const auto& view : file.attributeViews())
            ++users[view.bufferView];
        for (const SrcMesh& mesh : file.meshes())
            add(mesh);
        for (auto& member : kel::src::jsonMembers(file.metadata()))
            info.documentKeys.push_back(std::move(member.key));
        addSections();
        if (originsAgree && sharedOrigin != std::array<double, 3>{}) info.origin = sharedOrigin;
        return std::move(info);
    }

private:
    struct Section {
        std::uint64_t bytes = 0;
        std::set<std::string> encodings;
        std::optional<double> step;

        void widen(double found) {
            if (std::isfinite(found)) step = std::max(step.value_or(0.0), found);
        }
    };

    /// A buffer view that serves one view is its own with all that it holds; of a shared one each view has
    /// its elements.
    std::uint64_t bytesOf(std::uint32_t bufferView, std::uint64_t elements) const {
        const std::uint64_t stored = file.bufferViews()[bufferView].storedBytes;
        return users[bufferView] == 1 ? stored : std::min(stored, elements);
    }

    void add(const SrcMesh& mesh) {
        MeshInfo entry;
        entry.kind = kindName(mesh.primitive);
        entry.counts.meshes = 1;
        entry.counts.vertices = vertexCount(file, mesh);
        const std::uint64_t corners =
            mesh.indexView == SRC_NONE ? entry.counts.vertices : file.indexViews()[mesh.indexView].count;
        primitivesIn(entry.counts, mesh.primitive) = kel::mesh::primitiveCount(mesh.primitive, corners);
        info.counts += entry.counts;

        if (mesh.indexView != SRC_NONE) entry.bytes += addIndices(mesh.indexView);
        std::vector<SrcFit> fits;
        std::array<double, 3> origin{};
        for (auto& member : kel::src::jsonMembers(mesh.metadata)) {
            if (member.key == format::metadata::FIT) fits = kel::src::fitOf(mesh);
            if (member.key == format::metadata::ORIGIN) origin = kel::src::originOf(mesh);
            if (listMeshes && member.key == format::metadata::NAME)
                kel::src::jsonString(member.json, entry.name);
            ++info.metadataKeys[std::move(member.key)];
        }
        Bounds stored;
        if (const auto box = kel::src::boundsOf(mesh)) {
            stored.add(box->min);
            stored.add(box->max);
        }
        entry.bounds = stored.movedBy(origin);
        info.bounds.add(entry.bounds);
        if (!sharedOrigin) sharedOrigin = origin;
        originsAgree = originsAgree && *sharedOrigin == origin;
        const auto self = static_cast<std::uint32_t>(&mesh - file.meshes().begin());
        for (const SrcAttribute& attribute : file.attributes(mesh)) {
            if (file.attributeViews()[attribute.view].owner == self)
                entry.bytes += addAttribute(attribute, fits, stored);
        }
        if (mesh.material != SRC_NONE) {
            ++info.materials[mesh.material].meshes;
            entry.material = file.materials()[mesh.material].id;
        }
        if (!listMeshes) return;
        entry.id = mesh.id;
        info.meshList.push_back(std::move(entry));
    }

    std::uint64_t addIndices(std::uint32_t position) {
        if (indexSeen[position]) return 0;
        indexSeen[position] = true;
        const auto& view = file.indexViews()[position];
        const std::uint64_t width = format::componentType(view.componentType)->bytes;
        const std::uint64_t bytes = bytesOf(view.bufferView, view.count * width);
        indices.bytes += bytes;
        indices.encodings.insert(std::to_string(8 * width) + "-bit");
        return bytes;
    }

    std::uint64_t addAttribute(const SrcAttribute& attribute, const std::vector<SrcFit>& fits,
                               const Bounds& bounds) {
        if (attributeSeen[attribute.view]) return 0;
        attributeSeen[attribute.view] = true;
        const auto& view = file.attributeViews()[attribute.view];
        const std::uint64_t bytes =
            bytesOf(view.bufferView, view.count * view.components * view.componentBytes);
        Section& section = attributes[std::string(attribute.name)];
        section.bytes += bytes;
        section.encodings.insert(encodingOf(attribute, view));
        if (view.componentType == kel::mesh::FLOAT) {
            const bool isPosition = attribute.name == kel::mesh::DEFAULT_POSITIONS_NAME;
            if (isPosition && !view.decoded && !bounds.isEmpty()) section.widen(floatStep(bounds));
        } else if (view.decoded) {
            // Of the combined attribute the fourth number holds the normal.
            const std::size_t components =
                isCombinedPositionNormal(attribute, view) ? 3 : std::size_t(view.components);
            for (std::size_t c = 0; c < components; ++c) {
                double step = 1.0 / std::abs(view.decodeScale[c]);
                for (const SrcFit& fit : fits) {
                    if (fit.attribute == attribute.name && fit.scale.size() == components)
                        step *= std::abs(fit.scale[c]);
                }
                section.widen(step);
            }
        }
        return bytes;
    }

    void addSections() {
        std::uint64_t named = 0;
        info.sections.push_back({SectionInfo::HEADER, "", file.dataOffset(), "", {}});
        const auto push = [&](SectionInfo::Purpose purpose, const std::string& name, const Section& section) {
            SectionInfo entry;
            entry.purpose = purpose;
            entry.name = name;
            entry.bytes = section.bytes;
            entry.step = section.step;
            for (const auto& encoding : section.encodings)
                entry.encoding += (entry.encoding.empty() ? "" : ", ") + encoding;
            named += section.bytes;
            info.sections.push_back(std::move(entry));
        };
        if (!indices.encodings.empty()) push(SectionInfo::INDICES, "", indices);
        for (const auto& [name, section] : attributes)
            push(SectionInfo::ATTRIBUTE, name, section);
        // Chunks may share bytes; then there is no rest that could be told.
        if (named < file.dataBytes())
            info.sections.push_back({SectionInfo::OTHER, "", file.dataBytes() - named, "", {}});
    }

    const SrcFile& file;
    const bool listMeshes;
    FileInfo info;
    std::optional<std::array<double, 3>> sharedOrigin; ///< of the first mesh
    bool originsAgree = true;
    std::vector<std::uint32_t> users; ///< views per buffer view
    std::vector<bool> indexSeen, attributeSeen;
    Section indices;
    std::map<std::string, Section> attributes;
};

} // namespace

FileInfo describe(const SrcFile& file, bool listMeshes) {
    return Collector(file, listMeshes).collect();
}

} // namespace kel::convert
