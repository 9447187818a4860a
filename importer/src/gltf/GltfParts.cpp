#include "GltfParts.h"

#include "GltfAccessors.h"
#include "GltfCompression.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/ForEachPrimitive.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace kel::importer::detail {

namespace {

/// Reads the attributes of one primitive, from wherever their numbers are.
class PartReader {
public:
    PartReader(const ModelSource& source, const GltfData& data, const GltfPrimitive& primitive,
               const GltfPlace& place, const std::map<std::size_t, GltfTextureTransform>& transforms,
               const GltfPose& pose, std::vector<Dropped>& dropped, std::vector<std::string>& notes)
        : source(source), data(data), primitive(primitive), place(place), transforms(transforms), pose(pose),
          dropped(dropped), notes(notes),
          vertices(static_cast<std::size_t>(data.accessors[primitive.attributes[0].second].count)) {}

    ModelPart read() {
        part.material = primitive.material;
        if (primitive.draco) unpackDraco();
        setIndices();
        std::size_t texcoords = 0, colors = 0;
        std::vector<std::vector<float>> joints, weights;
        for (const GltfAttribute& attribute : primitive.attributes) {
            const std::string& name = attribute.first;
            if (name == "POSITION") {
                addPositions(attribute);
            } else if (name == "NORMAL") {
                add(kel::mesh::DEFAULT_NORMALS_NAME, attribute, 3);
            } else if (const auto set = setOf(name, "TEXCOORD_")) {
                add(nameOfSet(TEXCOORD_NAME, texcoords++), attribute, 2);
                std::vector<float>& values = part.attributes.back().values;
                const auto found = transforms.find(*set);
                if (found != transforms.end() && data.accessors[attribute.second].type != kel::mesh::FLOAT)
                    transform(found->second, values);
                for (std::size_t i = 1; i < values.size(); i += 2)
                    values[i] = 1.0f - values[i]; // glTF has the origin of v at the top
            } else if (setOf(name, "COLOR_")) {
                add(nameOfSet(COLOR_NAME, colors++), attribute, 3);
                checkAlpha(attribute);
            } else if (name[0] == '_') {
                addOwn(attribute);
            } else if (isSkinned() && setOf(name, "JOINTS_")) {
                joints.push_back(numbers<float>(attribute, 4));
            } else if (isSkinned() && setOf(name, "WEIGHTS_")) {
                weights.push_back(numbers<float>(attribute, 4));
            }
        }
        if (isSkinned()) {
            const std::size_t sets = std::min(joints.size(), weights.size());
            joints.resize(sets);
            weights.resize(sets);
            bend(source, pose, joints, weights, place.text(), part);
        }
        return std::move(part);
    }

private:
    const ModelSource& source;
    const GltfData& data;
    const GltfPrimitive& primitive;
    const GltfPlace& place;
    const std::map<std::size_t, GltfTextureTransform>& transforms;
    const GltfPose& pose;
    std::vector<Dropped>& dropped;
    std::vector<std::string>& notes;
    std::size_t vertices;
    DracoMesh draco;
    ModelPart part;

    bool isSkinned() const { return !pose.joints.empty(); }

    void unpackDraco() {
        std::vector<std::uint32_t> identifiers;
        for (const auto& entry : primitive.draco->identifiers)
            identifiers.push_back(entry.second);
        const GltfBytes bytes = data.bytesOf(source, primitive.draco->view);
        draco = decodeDraco(source, place, bytes, identifiers);
        if (draco.vertices != vertices) {
            refuseGltf(source, ImportCode::INVALID_MODEL,
                       "its Draco data have " + std::to_string(draco.vertices) + " vertices, its accessors " +
                           std::to_string(vertices),
                       place.text());
        }
    }

    /// Corner by corner, with strips, fans and loops taken apart.
    void setIndices() {
        std::vector<std::uint32_t> corners;
        kel::mesh::PrimitiveType mode = primitive.mode;
        part.isIndexed = primitive.indices || primitive.draco;
        if (primitive.draco) {
            corners = std::move(draco.indices);
            mode = kel::mesh::TRIANGLES; // which its data are, whatever they were made from
        } else if (primitive.indices) {
            corners = readIndices(source, data, *primitive.indices, vertices, place);
        } else {
            corners.resize(vertices);
            std::iota(corners.begin(), corners.end(), 0u);
        }
        const std::size_t each = kel::mesh::cornersPerPrimitive(mode);
        part.type = each == 1 ? kel::mesh::POINTS : each == 2 ? kel::mesh::LINES : kel::mesh::TRIANGLES;
        if (mode == part.type) {
            corners.resize(kel::mesh::usedCorners(mode, corners.size()));
            part.indices = std::move(corners);
            return;
        }
        part.indices.reserve(each * kel::mesh::primitiveCount(mode, corners.size()));
        kel::mesh::forEachPrimitive(mode, corners.size(),
                                    [&](const std::array<std::size_t, 3>& of, std::size_t count) {
                                        for (std::size_t c = 0; c < count; ++c)
                                            part.indices.push_back(corners[of[c]]);
                                    });
    }

    const DracoAttribute* packed(const std::string& name) const {
        if (!primitive.draco) return nullptr;
        const auto& all = primitive.draco->identifiers;
        const auto found =
            std::find_if(all.begin(), all.end(), [&](const auto& entry) { return entry.first == name; });
        return found == all.end() ? nullptr
                                  : &draco.attributes[static_cast<std::size_t>(found - all.begin())];
    }

    std::size_t widthOf(const GltfAttribute& attribute) const {
        const DracoAttribute* const own = packed(attribute.first);
        return own ? own->width : data.accessors[attribute.second].width;
    }

    /// With the morph targets that have a weight added.
    template<typename Number>
    std::vector<Number> numbers(const GltfAttribute& attribute, std::size_t take,
                                std::size_t first = 0) const {
        std::vector<Number> values;
        if (const DracoAttribute* const own = packed(attribute.first)) {
            if (own->width < first + take) {
                refuseGltf(source, ImportCode::INVALID_MODEL,
                           "its Draco data have " + std::to_string(own->width) + " numbers for each " +
                               attribute.first,
                           place.text());
            }
            const std::size_t component = own->bytes.size() / std::max<std::size_t>(1, vertices * own->width);
            values = decodeNumbers<Number>({own->bytes.data() + first * component, own->width * component,
                                            own->type, data.accessors[attribute.second].normalized},
                                           vertices, take);
        } else {
            values = readNumbers<Number>(source, data, attribute.second, take, first);
        }
        if (pose.weights && first == 0)
            addTargets(source, data, primitive, *pose.weights, attribute.first, take, values);
        return values;
    }

    void add(std::string name, const GltfAttribute& attribute, std::size_t width) {
        part.attributes.push_back({std::move(name), width, numbers<float>(attribute, width), {}});
    }

    /// As doubles where floats would not hold what the file says, or where they are moved.
    void addPositions(const GltfAttribute& attribute) {
        const GltfAccessor& accessor = data.accessors[attribute.second];
        const bool exact = accessor.type == kel::mesh::FLOAT ||
                           (!accessor.normalized && accessor.type != kel::mesh::UNSIGNED_INT);
        const bool moved = isSkinned() || (pose.weights && !primitive.targets.empty());
        if (exact && !moved) return add(kel::mesh::DEFAULT_POSITIONS_NAME, attribute, 3);
        part.attributes.push_back({kel::mesh::DEFAULT_POSITIONS_NAME, 3, {}, numbers<double>(attribute, 3)});
    }

    static void transform(const GltfTextureTransform& transform, std::vector<float>& values) {
        const double cosine = std::cos(transform.rotation), sine = std::sin(transform.rotation);
        for (std::size_t i = 0; i + 1 < values.size(); i += 2) {
            const double u = transform.scale[0] * static_cast<double>(values[i]);
            const double v = transform.scale[1] * static_cast<double>(values[i + 1]);
            values[i] = static_cast<float>(transform.offset[0] + (cosine * u + sine * v));
            values[i + 1] = static_cast<float>(transform.offset[1] + (cosine * v - sine * u));
        }
    }

    void addOwn(const GltfAttribute& attribute) {
        const std::size_t width = widthOf(attribute);
        if (data.accessors[attribute.second].type == kel::mesh::UNSIGNED_INT) {
            const std::vector<double> exact = numbers<double>(attribute, width);
            const auto lost = std::count_if(exact.begin(), exact.end(), [](double number) {
                return static_cast<double>(static_cast<float>(number)) != number;
            });
            if (lost > 0) {
                notes.push_back(std::to_string(lost) + " numbers of the attribute " + attribute.first +
                                " are larger than a 32-bit float can count, and were rounded");
            }
        }
        add(attribute.first, attribute, width);
    }

    void checkAlpha(const GltfAttribute& attribute) {
        if (widthOf(attribute) < 4) return;
        const std::vector<float> alpha = numbers<float>(attribute, 1, 3);
        if (std::any_of(alpha.begin(), alpha.end(), [](float a) { return a != 1.0f; }))
            dropped.push_back({"alpha channels", 1, "of vertex colours"});
    }
};

} // namespace

ModelPart readPart(const ModelSource& source, const GltfData& data, const GltfPrimitive& primitive,
                   const GltfPlace& place, const std::map<std::size_t, GltfTextureTransform>& transforms,
                   const GltfPose& pose, std::vector<Dropped>& dropped, std::vector<std::string>& notes) {
    return PartReader(source, data, primitive, place, transforms, pose, dropped, notes).read();
}

} // namespace kel::importer::detail
