#include <kel/prepare/ContainerAttributes.h>
#include <kel/prepare/MeshName.h>

#include "Buffers.h"

#include <kel/src/encoding/EncodingPresets.h>
#include <kel/src/text/JsonWriter.h>

#include <glm/geometric.hpp>
#include <glm/vec3.hpp>

#include <algorithm>
#include <cstring>
#include <map>
#include <numeric>
#include <set>
#include <unordered_map>

namespace kel::prepare {

namespace {

using detail::AttributePtr;
using NameSet = std::set<std::string>;
using Precision = std::map<std::string, std::uint32_t>;

bool isStored(const AttributePtr& buffer, const Precision& precision) {
    const std::size_t components = buffer->getComponentCountPerElement();
    return components >= 1 && components <= 3 &&
           buffer->getElementSizeInBytes() == components * sizeof(float) &&
           precision.count(buffer->getAttributeName()) != 0;
}

kel::mesh::MeshPtr withAttributes(const kel::mesh::Mesh& mesh, std::vector<AttributePtr> attributes) {
    return std::make_shared<detail::AssembledMesh>(mesh.getPrimitiveType(), mesh.getNumPrimitives(),
                                                   mesh.getIndexBuffer(), std::move(attributes));
}

NameSet namesOf(const kel::mesh::Mesh& mesh) {
    NameSet names;
    for (const AttributePtr& buffer : detail::attributesOf(mesh)) {
        if (buffer) names.insert(buffer->getAttributeName());
    }
    return names;
}

/// Each vertex the sum of its triangles' normals, which are as long as the triangles are large.
std::vector<float> triangleNormals(const kel::mesh::Mesh& mesh, std::size_t count) {
    std::vector<glm::vec3> sums(count, glm::vec3(0.0f));
    const auto positions = mesh.getAttributeBuffer("position");
    const auto indices = mesh.getIndexBuffer();
    if (positions && positions->isVec3f() && indices && mesh.getPrimitiveType() == kel::mesh::TRIANGLES) {
        const detail::PackedFloats values(*positions);
        const auto corner = [&](std::size_t vertex) {
            const float* first = values.data() + 3 * vertex;
            return glm::vec3(first[0], first[1], first[2]);
        };
        for (std::size_t i = 0; i + 2 < indices->getElementCount(); i += 3) {
            const std::size_t a = indices->getIndex(i), b = indices->getIndex(i + 1),
                              c = indices->getIndex(i + 2);
            if (std::max({a, b, c}) >= count) continue;
            const glm::vec3 normal = glm::cross(corner(b) - corner(a), corner(c) - corner(a));
            for (const std::size_t vertex : {a, b, c})
                sums[vertex] += normal;
        }
    }
    std::vector<float> normals;
    normals.reserve(count * 3);
    for (const glm::vec3& sum : sums) {
        const float length = glm::length(sum);
        const glm::vec3 normal = length > 0.0f ? sum / length : glm::vec3(0.0f, 0.0f, 1.0f);
        normals.insert(normals.end(), {normal.x, normal.y, normal.z});
    }
    return normals;
}

AttributePtr filler(const kel::mesh::Mesh& mesh, const std::string& name, std::size_t components) {
    const auto positions = mesh.getAttributeBuffer("position");
    const std::size_t count = positions ? positions->getElementCount() : 0;
    const std::vector<float> values =
        name == "normal" && components == 3
            ? triangleNormals(mesh, count)
            : std::vector<float>(count * components, name == "color" ? 1.0f : 0.0f);
    detail::Bytes bytes(values.size() * sizeof(float));
    if (!bytes.empty()) std::memcpy(bytes.data(), values.data(), bytes.size());
    return detail::makeAttribute(kel::mesh::FLOAT, components, std::move(bytes), name);
}

} // namespace

std::string meshName(const kel::src::SrcWriterInput& input, const kel::mesh::MeshPtr& mesh) {
    return detail::nameOf(input, mesh);
}

kel::src::SrcWriterInput keepStoredAttributes(const kel::src::SrcWriterInput& input,
                                              std::vector<UnstoredAttribute>* removed) {
    const Precision precision =
        kel::src::detail::getSRCEncodingPreset(input.useCompressedPreset ? "CMP1" : "default").precision;
    kel::src::SrcWriterInput result = input;
    std::map<std::pair<std::string, std::size_t>, std::size_t> counts;
    std::unordered_map<kel::mesh::MeshPtr, kel::mesh::MeshPtr> replaced;
    for (auto& listed : result.meshes) {
        if (!listed) continue;
        const kel::mesh::MeshPtr mesh = listed;
        std::vector<AttributePtr> kept;
        const std::vector<AttributePtr> attributes = detail::attributesOf(*mesh);
        for (const AttributePtr& buffer : attributes) {
            if (!buffer) continue;
            if (isStored(buffer, precision)) {
                kept.push_back(buffer);
            } else {
                ++counts[{buffer->getAttributeName(), buffer->getComponentCountPerElement()}];
            }
        }
        if (kept.size() == attributes.size()) continue;
        const auto [entry, isNew] = replaced.try_emplace(mesh);
        if (isNew) {
            entry->second = withAttributes(*mesh, std::move(kept));
            detail::moveMeshEntries(result, mesh, entry->second);
        }
        listed = entry->second;
    }
    if (removed) {
        removed->clear();
        for (const auto& [attribute, meshes] : counts)
            removed->push_back({attribute.first, attribute.second, meshes});
    }
    return result;
}

kel::src::SrcWriterInput keepAttributesApart(const kel::src::SrcWriterInput& input, ApartReport* report) {
    kel::src::SrcWriterInput result = input;
    ApartReport done;

    std::vector<NameSet> names;
    names.reserve(input.meshes.size());
    for (const auto& mesh : input.meshes)
        names.push_back(mesh ? namesOf(*mesh) : NameSet());

    const auto contains = [](const NameSet& all, const NameSet& some) {
        return std::includes(all.begin(), all.end(), some.begin(), some.end());
    };
    std::vector<std::size_t> order(input.meshes.size());
    std::iota(order.begin(), order.end(), std::size_t(0));
    const bool isChain =
        std::adjacent_find(names.begin(), names.end(), [&](const auto& before, const auto& after) {
            return !contains(after, before);
        }) == names.end();
    if (!isChain) {
        std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
            return names[a].size() != names[b].size() ? names[a].size() < names[b].size()
                                                      : names[a] < names[b];
        });
    }

    std::map<std::string, std::size_t> componentsSoFar, filled;
    std::unordered_map<kel::mesh::MeshPtr, kel::mesh::MeshPtr> replaced;
    for (std::size_t i = 0; i < order.size(); ++i) {
        const kel::mesh::MeshPtr mesh = input.meshes[order[i]];
        result.meshes[i] = mesh;
        if (order[i] != i) ++done.moved;
        if (!mesh) continue;

        const auto known = replaced.find(mesh);
        if (known != replaced.end()) {
            result.meshes[i] = known->second;
            continue;
        }
        std::vector<AttributePtr> attributes = detail::attributesOf(*mesh);
        std::string list;
        for (const auto& [name, components] : componentsSoFar) {
            if (names[order[i]].count(name) != 0) continue;
            attributes.push_back(filler(*mesh, name, components));
            ++filled[name];
            if (!list.empty()) list += ',';
            kel::src::text::appendJsonString(list, name);
        }
        for (const AttributePtr& buffer : attributes) {
            if (buffer) componentsSoFar[buffer->getAttributeName()] = buffer->getComponentCountPerElement();
        }
        if (list.empty()) continue;

        result.meshes[i] = withAttributes(*mesh, std::move(attributes));
        replaced.emplace(mesh, result.meshes[i]);
        detail::moveMeshEntries(result, mesh, result.meshes[i]);
        kel::src::MetaDataPtr& metaData = result.metaData[result.meshes[i]];
        metaData = detail::ownMetaData(metaData);
        (*metaData)["filled"] = '[' + list + ']';
    }
    for (const auto& [name, meshes] : filled)
        done.filled.push_back({name, meshes});
    if (report) *report = done;
    return result;
}

} // namespace kel::prepare
