#include "GltfMeshes.h"

#include <kel/mesh/ForEachPrimitive.h>
#include <kel/src/format/ElementTypes.h>
#include <kel/src/text/JsonCharacters.h>

#include <algorithm>
#include <array>

namespace kel::importer::detail {

namespace {

/// No real primitive has more, and each costs memory for all vertices.
constexpr std::size_t MOST_ATTRIBUTES = 64;

constexpr std::string_view DRACO = "KHR_draco_mesh_compression";

/// What a kind of attribute is made of; widths 0 for whatever it may be.
struct Form {
    std::string_view base;
    bool set;
    std::uint32_t least, most;
    const char* name;
};
constexpr std::array<Form, 7> FORMS = {{{"POSITION", false, 3, 3, "VEC3"},
                                        {"NORMAL", false, 3, 3, "VEC3"},
                                        {"TEXCOORD_", true, 2, 2, "VEC2"},
                                        {"COLOR_", true, 3, 4, "VEC3 or VEC4"},
                                        {"TANGENT", false, 4, 4, "VEC4"},
                                        {"JOINTS_", true, 4, 4, "VEC4"},
                                        {"WEIGHTS_", true, 4, 4, "VEC4"}}};
constexpr std::size_t OWN = 3; // stand between colours and tangents

/// Where an attribute stands in the order of a primitive: its kind, then its set.
std::optional<std::pair<std::size_t, std::size_t>> orderOf(std::string_view name) {
    if (!name.empty() && name[0] == '_') return std::pair(2 * OWN + 1, std::size_t{0});
    for (std::size_t f = 0; f < FORMS.size(); ++f) {
        const auto set = FORMS[f].set ? setOf(name, FORMS[f].base) : std::nullopt;
        if (set || (!FORMS[f].set && name == FORMS[f].base)) return std::pair(2 * f, set.value_or(0));
    }
    return std::nullopt;
}

class MeshReader {
public:
    MeshReader(const GltfData& data, std::size_t materials, GltfMeshLosses& losses,
               std::vector<std::string>& notes)
        : data(data), materials(materials), losses(losses), notes(notes) {}

    GltfMesh read(const GltfObject& object) {
        GltfMesh mesh;
        mesh.name = object.string("name");
        mesh.extras = object.extras();
        mesh.primitives.reserve(object.sizeOf("primitives"));
        object.forEachObject("primitives", [&](const GltfObject& primitive) {
            mesh.primitives.push_back(readPrimitive(primitive));
        });
        mesh.weights.resize(object.sizeOf("weights"));
        object.numbers("weights", mesh.weights.data(), mesh.weights.size());
        return mesh;
    }

private:
    const GltfData& data;
    std::size_t materials;
    GltfMeshLosses& losses;
    std::vector<std::string>& notes;

    GltfPrimitive readPrimitive(const GltfObject& object) {
        GltfPrimitive primitive;
        primitive.material = object.reference("material", materials);
        readDraco(object, primitive);
        const GltfPlace place(object.place(), "attributes");
        const GltfObject attributes = object.child("attributes", place);
        primitive.attributes = readAttributes(attributes, true);
        const auto position = primitive.find("POSITION");
        if (!position) object.refuse(ImportCode::INVALID_MODEL, "the primitive has no positions");
        const std::uint64_t vertices = data.accessors[*position].count;
        checkCounts(attributes, primitive.attributes, vertices);
        object.forEachObject("targets", [&](const GltfObject& target) {
            primitive.targets.push_back(readAttributes(target, false));
            checkCounts(target, primitive.targets.back(), vertices);
        });
        losses.targets += primitive.targets.size();
        checkCorners(object, primitive, readIndices(object, primitive, vertices));
        return primitive;
    }

    void readDraco(const GltfObject& object, GltfPrimitive& primitive) const {
        const GltfPlace extensions(object.place(), "extensions");
        const GltfPlace place(&extensions, DRACO);
        const GltfObject draco = object.child("extensions", extensions).child(DRACO, place);
        if (!draco) return;
        primitive.draco = std::make_unique<GltfDraco>();
        primitive.draco->view = draco.needed("bufferView", data.views.size());
        const GltfView& view = data.views[primitive.draco->view];
        if (!view.bytes.data && !view.packed)
            draco.refuse(ImportCode::INVALID_MODEL, "its buffer has no bytes");
        const GltfPlace identifiers(&place, "attributes");
        const GltfObject attributes = draco.child("attributes", identifiers);
        attributes.forEachMember([&](std::string_view name, simdjson::dom::element value) {
            const auto identifier = wholeNumber(value);
            if (!identifier || *identifier > 0xFFFFFFFFu)
                attributes.refuse(ImportCode::INVALID_MODEL, "an identifier is not a whole number");
            primitive.draco->identifiers.emplace_back(name, static_cast<std::uint32_t>(*identifier));
        });
    }

    std::vector<GltfAttribute> readAttributes(const GltfObject& object, bool whole) {
        using Order = std::pair<std::size_t, std::size_t>;
        std::vector<std::pair<Order, GltfAttribute>> found;
        std::size_t count = 0;
        object.forEachMember([&](std::string_view name, simdjson::dom::element) {
            if (++count > MOST_ATTRIBUTES) {
                object.refuse(ImportCode::UNSUPPORTED_FEATURE,
                              "there are more than " + std::to_string(MOST_ATTRIBUTES) + " attributes");
            }
            const std::size_t accessor = *object.reference(name, data.accessors.size());
            const auto order = orderOf(name);
            if (!order) {
                if (whole && losses.unknown++ == 0) losses.firstUnknown = name;
                return;
            }
            if (whole && data.accessors[accessor].matrix && order->first == 2 * OWN + 1) {
                if (losses.matrices++ == 0) losses.firstMatrix = name;
                return;
            }
            if (whole && name == "TANGENT") ++losses.tangents;
            if (!whole && order->first > 2 * OWN) return; // targets move tangents, which are left out
            checkForm(object, name, accessor, order->first);
            const auto same = [&](const auto& other) { return other.second.first == name; };
            if (std::none_of(found.begin(), found.end(), same))
                found.emplace_back(*order, GltfAttribute(name, accessor));
        });
        std::stable_sort(found.begin(), found.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        std::vector<GltfAttribute> attributes;
        attributes.reserve(found.size());
        for (auto& entry : found)
            attributes.push_back(std::move(entry.second));
        return attributes;
    }

    void checkForm(const GltfObject& object, std::string_view name, std::size_t index,
                   std::size_t order) const {
        const GltfAccessor& accessor = data.accessors[index];
        if (order % 2 != 0) return; // own names may be anything
        const Form& form = FORMS[order / 2];
        if (!accessor.matrix && accessor.width >= form.least && accessor.width <= form.most) return;
        refuseGltf(object.model(), ImportCode::INVALID_MODEL,
                   std::string("the attribute is not stored as ") + form.name,
                   GltfPlace(object.place(), name).text());
    }

    void checkCounts(const GltfObject& object, const std::vector<GltfAttribute>& attributes,
                     std::uint64_t vertices) const {
        for (const GltfAttribute& attribute : attributes) {
            const std::uint64_t count = data.accessors[attribute.second].count;
            if (count == vertices) continue;
            refuseGltf(object.model(), ImportCode::INVALID_MODEL,
                       "the attribute has " + std::to_string(count) + " elements for " +
                           std::to_string(vertices) + " vertices",
                       GltfPlace(object.place(), attribute.first).text());
        }
    }

    /// returns  how many corners the primitive has
    std::uint64_t readIndices(const GltfObject& object, GltfPrimitive& primitive,
                              std::uint64_t vertices) const {
        primitive.indices = object.reference("indices", data.accessors.size());
        if (!primitive.indices) return vertices;
        const GltfAccessor& accessor = data.accessors[*primitive.indices];
        if (accessor.width != 1 || !kel::src::format::componentType(accessor.type)->forIndices) {
            refuseGltf(object.model(), ImportCode::INVALID_MODEL,
                       "the indices are not unsigned whole numbers",
                       GltfPlace(object.place(), "indices").text());
        }
        return accessor.count;
    }

    void checkCorners(const GltfObject& object, GltfPrimitive& primitive, std::uint64_t corners) {
        const std::uint64_t mode = object.whole("mode", kel::mesh::TRIANGLES);
        if (mode > kel::mesh::TRIANGLE_FAN)
            object.refuse(ImportCode::INVALID_MODEL, "\"mode\" is " + std::to_string(mode));
        primitive.mode = static_cast<kel::mesh::PrimitiveType>(mode);
        const std::uint64_t used = kel::mesh::usedCorners(primitive.mode, corners);
        if (used == 0) {
            object.refuse(ImportCode::INVALID_MODEL,
                          "the primitive has too few corners: " + std::to_string(corners));
        }
        if (used != corners) {
            notes.push_back("The last " + std::to_string(corners - used) + " corners of " +
                            object.place()->text() + " make no whole primitive and were left out");
        }
    }
};

} // namespace

std::optional<std::size_t> setOf(std::string_view name, std::string_view base) {
    if (name.size() <= base.size() || name.size() > base.size() + 4 || name.substr(0, base.size()) != base)
        return std::nullopt;
    std::size_t set = 0;
    for (const char c : name.substr(base.size())) {
        if (!kel::src::text::isDigit(c)) return std::nullopt;
        set = 10 * set + static_cast<std::size_t>(c - '0');
    }
    return set;
}

std::optional<std::size_t> GltfPrimitive::find(std::string_view name) const {
    for (const GltfAttribute& attribute : attributes) {
        if (attribute.first == name) return attribute.second;
    }
    return std::nullopt;
}

std::vector<GltfMesh> readMeshes(const GltfObject& document, const GltfData& data, std::size_t materials,
                                 GltfMeshLosses& losses, std::vector<std::string>& notes) {
    MeshReader reader(data, materials, losses, notes);
    std::vector<GltfMesh> meshes;
    meshes.reserve(document.sizeOf("meshes"));
    document.forEachObject("meshes", [&](const GltfObject& mesh) { meshes.push_back(reader.read(mesh)); });
    return meshes;
}

} // namespace kel::importer::detail
