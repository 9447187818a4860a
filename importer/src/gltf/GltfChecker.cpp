#include "GltfChecker.h"

#include <kel/mesh/ComponentType.h>
#include <kel/mesh/PrimitiveType.h>

#include <array>
#include <set>
#include <utility>

namespace kel::importer::detail {

namespace {

void checkExtensions(const GltfFields& fields, Findings& findings) {
    // Geometry in a form that the reader would take for plain numbers.
    static const std::set<std::string> FOREIGN = {"EXT_meshopt_compression", "KHR_meshopt_compression"};
    for (const picojson::value& name : fields.list("extensionsRequired")) {
        if (FOREIGN.count(stringOf(&name)) == 0) continue;
        fields.source.refuse(ImportCode::UNSUPPORTED_FEATURE, "it needs the extension " + stringOf(&name),
                             "extensionsRequired");
    }
    static const std::set<std::string> CARRIED = {
        "KHR_draco_mesh_compression", "KHR_mesh_quantization", "KHR_materials_unlit",
        "KHR_materials_pbrSpecularGlossiness", "KHR_lights_punctual"};
    std::string names;
    std::size_t count = 0;
    for (const picojson::value& name : fields.list("extensionsUsed")) {
        if (CARRIED.count(stringOf(&name)) > 0) continue;
        names += (count++ == 0 ? "" : ", ") + stringOf(&name);
    }
    if (count > 0) findings.dropped.push_back({"glTF extensions", count, names});
}

/// Checks primitives one after another.
class PrimitiveChecker {
public:
    PrimitiveChecker(const GltfFields& fields, const GltfAccessors& accessors, Findings& findings)
        : fields(fields), accessors(accessors), findings(findings) {}

    void check(const picojson::value& primitive, const GltfPlace& place);

    /// Names of attributes that begin with an underscore, once per use.
    std::multiset<std::string> customAttributes;

private:
    const GltfFields& fields;
    const GltfAccessors& accessors;
    Findings& findings;

    std::uint64_t checkAttributes(const picojson::value& primitive, bool draco, const GltfPlace& place);
    std::uint64_t checkIndices(const picojson::value& primitive, bool draco, std::uint64_t vertices,
                               const GltfPlace& place) const;
};

/// returns  how many vertices the primitive has
std::uint64_t PrimitiveChecker::checkAttributes(const picojson::value& primitive, bool draco,
                                                const GltfPlace& place) {
    std::optional<std::uint64_t> vertices;
    const picojson::value* attributes = member(&primitive, "attributes");
    const GltfPlace all(place, "attributes");
    for (const auto& entry : objectOf(attributes)) {
        const std::string& name = entry.first;
        const GltfPlace where(all, name.c_str());
        const auto index = fields.reference(attributes, name.c_str(), accessors.size(), where);
        const GltfAccessor& accessor = accessors[*index];
        if (!accessor.view && !accessor.sparse && !draco)
            fields.refuse(ImportCode::INVALID_MODEL, "the attribute has no data", where);
        if (name == "POSITION") vertices = accessor.count;
        const bool spatial = name == "POSITION" || name == "NORMAL" || name == "TANGENT";
        if (!name.empty() && name[0] == '_') customAttributes.insert(name);
        if (!spatial && name.compare(0, 9, "TEXCOORD_") != 0) continue;
        const char* expected = name == "TANGENT" ? "VEC4" : spatial ? "VEC3" : "VEC2";
        if (accessor.component != kel::mesh::FLOAT || accessor.type != expected) {
            // The reader copies the bytes, whatever they mean.
            fields.source.refuse(
                ImportCode::UNSUPPORTED_FEATURE,
                std::string("the attribute is not stored as ") + expected + " of 32-bit floats", where.text(),
                "export the model with float attributes, without quantization");
        }
    }
    if (!vertices) fields.refuse(ImportCode::INVALID_MODEL, "the primitive has no positions", place);
    for (const auto& entry : objectOf(attributes)) {
        const GltfAccessor& accessor = accessors[static_cast<std::size_t>(*wholeNumber(&entry.second))];
        if (accessor.count != *vertices) {
            fields.refuse(ImportCode::INVALID_MODEL,
                          "the attribute has " + std::to_string(accessor.count) + " elements for " +
                              std::to_string(*vertices) + " vertices",
                          GltfPlace(all, entry.first.c_str()));
        }
    }
    return *vertices;
}

/// returns  how many corners the primitive has
std::uint64_t PrimitiveChecker::checkIndices(const picojson::value& primitive, bool draco,
                                             std::uint64_t vertices, const GltfPlace& place) const {
    const auto index = fields.reference(&primitive, "indices", accessors.size(), place);
    if (!index) return vertices;
    const GltfPlace where(place, "indices");
    const GltfAccessor& accessor = accessors[*index];
    const bool whole = accessor.component == kel::mesh::UNSIGNED_BYTE ||
                       accessor.component == kel::mesh::UNSIGNED_SHORT ||
                       accessor.component == kel::mesh::UNSIGNED_INT;
    if (accessor.type != "SCALAR" || !whole)
        fields.refuse(ImportCode::INVALID_MODEL, "the indices are not unsigned whole numbers", where);
    if (!accessor.view && !draco) fields.refuse(ImportCode::INVALID_MODEL, "the indices have no data", where);
    if (!draco) accessors.checkIndices(accessor, vertices, where);
    return accessor.count;
}

void PrimitiveChecker::check(const picojson::value& primitive, const GltfPlace& place) {
    const bool draco = member(member(&primitive, "extensions"), "KHR_draco_mesh_compression") != nullptr;
    const std::uint64_t vertices = checkAttributes(primitive, draco, place);
    const std::uint64_t corners = checkIndices(primitive, draco, vertices, place);
    const std::uint64_t mode = fields.number(&primitive, "mode", kel::mesh::TRIANGLES, place);
    static constexpr std::array<std::uint64_t, 7> LEAST = {1, 2, 2, 2, 3, 3, 3};
    if (mode > kel::mesh::TRIANGLE_FAN)
        fields.refuse(ImportCode::INVALID_MODEL, "\"mode\" is " + std::to_string(mode), place);
    if (corners < LEAST[mode]) {
        fields.refuse(ImportCode::INVALID_MODEL,
                      "the primitive has too few corners: " + std::to_string(corners), place);
    }
    const std::uint64_t each = mode == kel::mesh::LINES ? 2 : mode == kel::mesh::TRIANGLES ? 3 : 1;
    if (corners % each != 0) {
        findings.notes.push_back("The last " + std::to_string(corners % each) + " corners of " +
                                 place.text() + " make no whole primitive and were left out");
    }
}

} // namespace

void checkGltf(const GltfFields& fields, std::shared_ptr<const Content> whole, std::uint64_t binaryOffset,
               std::uint64_t binaryLength, Findings& findings) {
    checkExtensions(fields, findings);
    const GltfAccessors accessors(fields, std::move(whole), binaryOffset, binaryLength);

    PrimitiveChecker primitiveChecker(fields, accessors, findings);
    const picojson::array& meshes = fields.list("meshes");
    const std::size_t materials = fields.list("materials").size();
    for (std::size_t m = 0; m < meshes.size(); ++m) {
        const GltfPlace mesh("meshes", m);
        const picojson::array& primitives = arrayOf(member(&meshes[m], "primitives"));
        for (std::size_t p = 0; p < primitives.size(); ++p) {
            const GltfPlace place("primitives", p, &mesh);
            fields.reference(&primitives[p], "material", materials, place);
            primitiveChecker.check(primitives[p], place);
        }
    }
    const picojson::array& nodes = fields.list("nodes");
    for (std::size_t n = 0; n < nodes.size(); ++n)
        fields.reference(&nodes[n], "mesh", meshes.size(), GltfPlace("nodes", n));

    const std::multiset<std::string>& custom = primitiveChecker.customAttributes;
    if (!custom.empty()) findings.dropped.push_back({"custom attributes", custom.size(), *custom.begin()});
    const std::size_t scenes = fields.list("scenes").size();
    if (scenes > 1) findings.dropped.push_back({"scenes besides the default one", scenes - 1, ""});
}

} // namespace kel::importer::detail
