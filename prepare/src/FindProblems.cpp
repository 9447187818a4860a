#include <kel/prepare/detail/Steps.h>

#include "MeshBuffers.h"

#include <kel/material/MaterialClassic.h>
#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/ForEachPrimitive.h>
#include <kel/src/MeshUtils.h>
#include <kel/src/format/ElementTypes.h>
#include <kel/src/format/MaterialParameters.h>
#include <kel/src/text/JsonScanner.h>
#include <kel/src/text/Utf8.h>

#include <glm/geometric.hpp>
#include <glm/vec3.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <set>

namespace kel::prepare {

namespace {

using detail::AttributePtr;
using detail::ContainerPreset;
using detail::PackedFloats;
using kel::scene::Scene;
using kel::scene::SceneMesh;
namespace format = kel::src::format;
namespace text = kel::src::text;

using Code = ProblemCode;

template<typename Numbers>
bool areFinite(const Numbers& numbers) {
    bool finite = true; // no early end: the loop is made of wide instructions then
    for (const float number : numbers)
        finite &= std::abs(number) <= std::numeric_limits<float>::max();
    return finite;
}

bool isFinite(const glm::vec3& v) {
    return areFinite(std::initializer_list<float>{v.x, v.y, v.z});
}

/// First element at fault, and how many.
struct Faults {
    std::size_t first = NOWHERE;
    std::size_t count = 0;

    void add(std::size_t element) {
        if (count++ == 0) first = element;
    }
};

/// The container writer writes the fields, without the transparency.
bool hasFiniteFields(const kel::material::MaterialClassic& material) {
    return std::isfinite(material.getAmbient()) && isFinite(material.getDiffuse()) &&
           isFinite(material.getEmissive()) && isFinite(material.getSpecular()) &&
           std::isfinite(material.getShininess());
}

/// The public writer writes what the description names.
bool hasFiniteAttributes(const kel::material::Material& material) {
    for (const format::MaterialParameter& parameter : format::MATERIAL_PARAMETERS) {
        const std::string name(parameter.attribute);
        if (!material.getDescription()->hasAttribute(name)) continue;
        if (!areFinite(material.getAttribute(name))) return false;
    }
    return true;
}

class Finder {
public:
    Finder(const Scene& scene, Target target, const ProblemOptions& options)
        : scene(scene), target(target), options(options) {
        if (isContainerTarget(target)) preset.emplace(target);
    }

    Problems find() {
        if (scene.meshes.empty()) report(Code::INPUT_EMPTY);
        std::unordered_map<const kel::mesh::Mesh*, std::size_t> seen; // stays empty where none repeats
        for (position = 0; position < scene.meshes.size(); ++position) {
            const SceneMesh& entry = scene.meshes[position];
            if (!entry.mesh) {
                report(Code::MESH_MISSING);
                continue;
            }
            if (scene.repeatsMeshes) {
                const auto [first, isNew] = seen.emplace(entry.mesh.get(), position);
                if (!isNew) {
                    report(Code::MESH_DUPLICATE, std::to_string(first->second));
                    continue;
                }
            }
            checkMesh(entry.mesh);
            checkMetaData(entry);
            checkMaterial(entry);
        }
        position = NOWHERE;
        if (!preset) {
            for (const auto& material : scene.materials)
                checkMaterialValues(material);
        }
        return std::move(problems);
    }

private:
    Finding& report(Code code, const std::string& detail = {}) {
        const ProblemKind& kind = kindOf(code);
        ++(kind.severity == Severity::ERROR     ? problems.errors
           : kind.severity == Severity::WARNING ? problems.warnings
                                                : problems.hints);
        if (options.maxFindings != 0 && problems.findings.size() >= options.maxFindings)
            return notKept = Finding();
        Finding finding;
        finding.code = code;
        finding.severity = kind.severity;
        if (position < scene.meshes.size()) {
            finding.mesh = position;
            finding.meshName = nameOfMesh(scene.meshes[position]);
        }
        finding.sentence = std::string(kind.sentence) + ' ' + std::string(kind.remedy);
        const std::size_t gap = finding.sentence.find("{}");
        if (gap != std::string::npos) finding.sentence.replace(gap, 2, detail);
        problems.findings.push_back(std::move(finding));
        return problems.findings.back();
    }

    void reportFaults(Code code, const Faults& faults, const std::string& attribute = {},
                      const std::string& detail = {}) {
        if (faults.count == 0) return;
        Finding& finding = report(code, detail);
        finding.attribute = attribute;
        finding.element = faults.first;
        finding.count = faults.count;
    }

    void reportAttribute(Code code, const std::string& attribute, const std::string& detail = {}) {
        report(code, detail).attribute = attribute;
    }

    // ---- Geometry ---------------------------------------------------------------------------------------

    void checkMesh(const kel::mesh::MeshPtr& handle) {
        const kel::mesh::Mesh& mesh = *handle;
        const std::vector<AttributePtr> attributes = detail::attributesOf(handle);
        const AttributePtr positions = mesh.getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME);
        const std::size_t vertices = detail::vertexCountOf(mesh, attributes);
        checkPrimitiveType(mesh.getPrimitiveType());
        checkPositions(positions, mesh.getPrimitiveType());
        checkAttributes(mesh, attributes, vertices);
        checkNormals(mesh);
        checkIndices(mesh, vertices, positions != nullptr);
    }

    void checkPrimitiveType(kel::mesh::PrimitiveType type) {
        if (static_cast<std::uint32_t>(type) > kel::mesh::TRIANGLE_FAN) {
            report(Code::PRIMITIVE_UNKNOWN, std::to_string(static_cast<std::uint32_t>(type)));
        } else if (preset && type != kel::mesh::TRIANGLES) {
            report(Code::PRIMITIVE_MISLABELED, kel::mesh::getStringForPrimitiveType(type));
        }
    }

    void checkPositions(const AttributePtr& positions, kel::mesh::PrimitiveType type) {
        const bool boundsOnly = target == Target::UNCOMPRESSED;
        if (!positions) {
            report(boundsOnly ? Code::POSITION_MISSING_UNBOUNDED : Code::POSITION_MISSING);
            return;
        }
        const bool isVec3f = kel::src::detail::isAttributeVec3f(positions);
        const bool fitsContainer = preset && positions->getComponentType() == kel::mesh::FLOAT &&
                                   ContainerPreset::fits(positions->getComponentCountPerElement());
        if (!isVec3f && !fitsContainer)
            reportAttribute(boundsOnly ? Code::POSITION_TYPE_UNBOUNDED : Code::POSITION_TYPE,
                            kel::mesh::DEFAULT_POSITIONS_NAME);
        if (positions->getElementCount() == 0) {
            report(Code::MESH_WITHOUT_VERTICES);
            return;
        }
        if (!isVec3f) return;

        const PackedFloats values(*positions);
        if (!areFinite(values)) return;
        glm::vec3 min, max;
        kel::src::detail::computeBoundingBoxMinMax(positions, min, max);
        const glm::vec3 size = max - min;
        if (!boundsOnly && !(isFinite(size) && isFinite(max + min))) {
            report(Code::BOX_OVERFLOW);
        } else if (size == glm::vec3(0.0f) && type != kel::mesh::POINTS) {
            report(Code::BOX_DEGENERATE);
        } else if (!preset && !boundsOnly && (size.x == 0.0f || size.y == 0.0f || size.z == 0.0f)) {
            report(Code::BOX_FLAT);
        }
    }

    /// Position-normal writes these two and nothing else; a mesh without such normals it writes as position.
    bool isPacked(const kel::mesh::Mesh& mesh) const {
        return target == Target::POSITION_NORMAL_COMPRESSED &&
               kel::src::detail::isAttributeVec3f(mesh.getAttributeBuffer(kel::mesh::DEFAULT_NORMALS_NAME));
    }

    void checkAttributes(const kel::mesh::Mesh& mesh, const std::vector<AttributePtr>& attributes,
                         std::size_t vertices) {
        std::set<std::string> names;
        std::set<std::string> written;
        const bool packed = isPacked(mesh);
        for (std::size_t i = 0; i < attributes.size(); ++i) {
            if (!attributes[i]) {
                report(Code::ATTRIBUTE_MISSING).element = i;
                continue;
            }
            const std::string name = attributes[i]->getAttributeName();
            const std::size_t odd = text::firstNonUtf8(name);
            if (odd != name.size()) reportAttribute(Code::TEXT_NOT_UTF8, name);
            if (!names.insert(name).second) reportAttribute(Code::ATTRIBUTE_DUPLICATE, name);
            if (!isWritten(name, *attributes[i], packed)) continue;
            written.insert(name);
            const std::size_t count = attributes[i]->getElementCount();
            if (count != vertices)
                reportAttribute(Code::ATTRIBUTE_LENGTH, name,
                                std::to_string(count) + " elements, " + std::to_string(vertices) +
                                    " vertices");
            if (attributes[i]->getComponentType() == kel::mesh::FLOAT)
                checkValues(name, *attributes[i], packed);
        }

        // The container writer keeps one map of attributes for the whole file, and without an index buffer
        // does not come as far as the attributes.
        if (!preset || !mesh.getIndexBuffer()) return;
        if (mesh.getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME)) {
            for (const std::string& name : writtenBefore) {
                if (written.count(name) == 0) reportAttribute(Code::ATTRIBUTE_INHERITED, name);
            }
        }
        writtenBefore.insert(written.begin(), written.end());
    }

    /// Whether the target writes the attribute; says so when not.
    bool isWritten(const std::string& name, const kel::mesh::AttributeBuffer& buffer, bool packed) {
        if (!preset) {
            const bool isWritten = !packed || name == kel::mesh::DEFAULT_POSITIONS_NAME ||
                                   name == kel::mesh::DEFAULT_NORMALS_NAME;
            if (!isWritten) reportAttribute(Code::ATTRIBUTE_DROPPED, name, "position-normal");
            return isWritten;
        }
        const std::size_t components = buffer.getComponentCountPerElement();
        if (!preset->knows(name)) {
            reportAttribute(Code::ATTRIBUTE_DROPPED, name, "the container writer");
        } else if (name == kel::mesh::DEFAULT_POSITIONS_NAME) {
            // What is wrong with its type is told in checkPositions.
        } else if (!ContainerPreset::fits(components)) {
            reportAttribute(Code::ATTRIBUTE_COMPONENTS, name, std::to_string(components));
        } else if (!ContainerPreset::hasWidthOfFloats(buffer)) {
            reportAttribute(Code::ATTRIBUTE_TYPE, name);
        } else if (buffer.getComponentType() != kel::mesh::FLOAT) {
            reportAttribute(preset->quantizes(name) ? Code::ATTRIBUTE_NOT_FLOAT_QUANTIZED
                                                    : Code::ATTRIBUTE_NOT_FLOAT,
                            name);
        }
        return preset->stores(buffer);
    }

    void checkValues(const std::string& name, const kel::mesh::AttributeBuffer& buffer, bool packed) {
        const bool isPosition = name == kel::mesh::DEFAULT_POSITIONS_NAME;
        if (packed && !isPosition) return; // see checkNormals
        const PackedFloats values(buffer);
        const std::size_t components = std::max<std::size_t>(1, buffer.getComponentCountPerElement());
        const bool isClamped = preset && preset->quantizes(name);
        if (!isClamped && areFinite(values)) return;
        const FitOptions box;
        Faults notFinite, clamped;
        std::size_t lastFault = NOWHERE;
        for (std::size_t i = 0; i < values.size(); ++i) {
            const float value = values.data()[i];
            if (!std::isfinite(value)) {
                if (lastFault != i / components) notFinite.add(i / components); // an element counts once
                lastFault = i / components;
            } else if (isClamped && !(value >= box.lower && value <= box.upper)) {
                clamped.add(i / components);
            }
        }
        reportFaults(isPosition ? Code::POSITION_NOT_FINITE : Code::ATTRIBUTE_NOT_FINITE, notFinite, name);
        reportFaults(Code::COMPONENT_CLAMPED, clamped, name);
    }

    void checkNormals(const kel::mesh::Mesh& mesh) {
        if (target != Target::POSITION_NORMAL_COMPRESSED) return;
        const std::string& name = kel::mesh::DEFAULT_NORMALS_NAME;
        const AttributePtr normals = mesh.getAttributeBuffer(name);
        if (!normals) {
            report(Code::NORMAL_MISSING);
            return;
        }
        if (!kel::src::detail::isAttributeVec3f(normals)) {
            reportAttribute(Code::NORMAL_TYPE, name);
            return;
        }
        Faults directionless, notUnit;
        const PackedFloats values(*normals);
        for (std::size_t i = 0; i < values.size() / 3; ++i) {
            const float* n = values.data() + 3 * i;
            const glm::dvec3 normal(n[0], n[1], n[2]);
            const double square = glm::dot(normal, normal);
            if (!std::isfinite(square) || square == 0.0) {
                directionless.add(i);
            } else if (square < 0.98 || square > 1.02) { // one percent of the length
                notUnit.add(i);
            }
        }
        reportFaults(Code::NORMAL_WITHOUT_DIRECTION, directionless, name);
        reportFaults(Code::NORMAL_NOT_UNIT, notUnit, name);
    }

    void checkIndices(const kel::mesh::Mesh& mesh, std::size_t vertices, bool hasPositions) {
        const auto indices = mesh.getIndexBuffer();
        const kel::mesh::PrimitiveType type = mesh.getPrimitiveType();
        const bool isSurface = type == kel::mesh::TRIANGLES || type == kel::mesh::TRIANGLE_STRIP ||
                               type == kel::mesh::TRIANGLE_FAN; // an unknown type is none
        if (!indices) {
            if (preset) {
                report(Code::INDEX_MISSING);
            } else if (isSurface && hasPositions) {
                report(Code::MESH_UNINDEXED);
            }
            if (vertices != 0) checkPrimitiveCount(type, vertices);
            return;
        }
        const std::size_t count = indices->getElementCount();
        if (vertices != 0 || count != 0) checkPrimitiveCount(type, count);
        if (!preset && vertices > format::MAX_SHORT_INDEX_VERTICES)
            report(Code::TOO_MANY_VERTICES, std::to_string(vertices));

        Faults outOfRange, restart;
        const bool isShort = preset && indices->getElementSizeInBytes() <= 2;
        detail::forEachIndex(*indices, count, [&](std::size_t k, std::size_t index) {
            if (index >= vertices) {
                outOfRange.add(k);
            } else if (isShort && index == format::SHORT_RESTART_INDEX) {
                restart.add(k);
            }
        });
        reportFaults(Code::INDEX_OUT_OF_RANGE, outOfRange, {}, std::to_string(vertices));
        reportFaults(Code::INDEX_RESTART, restart);
    }

    void checkPrimitiveCount(kel::mesh::PrimitiveType type, std::size_t indices) {
        const std::size_t corners = kel::mesh::cornersPerPrimitive(type);
        if (indices < corners) {
            report(Code::MESH_WITHOUT_PRIMITIVES);
            return;
        }
        const std::size_t rest = indices - kel::mesh::usedCorners(type, indices);
        reportFaults(Code::INDEX_INCOMPLETE, {indices - rest, rest}, {},
                     rest == 1 ? "index" : std::to_string(rest) + " indices");
    }

    // ---- Metadata ---------------------------------------------------------------------------------------

    void checkMetaData(const SceneMesh& entry) {
        if (!entry.metaData) {
            if (!preset) report(Code::METADATA_MISSING);
            return;
        }
        for (const auto& [key, json] : *entry.metaData) {
            const auto reportText = [&, &k = key](Code code, std::size_t at, const std::string& detail = {}) {
                Finding& finding = report(code, detail);
                finding.key = k;
                finding.element = at;
            };
            const auto needsEscape = [](char c) {
                return c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20;
            };
            // Only the container's header escapes keys.
            if (!preset && std::any_of(key.begin(), key.end(), needsEscape))
                reportText(Code::METADATA_KEY, NOWHERE);
            const std::size_t odd = text::firstNonUtf8(json);
            if (text::firstNonUtf8(key) != key.size()) {
                reportText(Code::TEXT_NOT_UTF8, NOWHERE);
            } else if (odd != json.size()) {
                reportText(Code::TEXT_NOT_UTF8, odd);
            } else if (const text::JsonCheck check = text::checkJson(json); !check) {
                const bool isTooDeep = check.fault == text::JsonFault::TOO_DEEP;
                reportText(isTooDeep                                          ? Code::METADATA_TOO_DEEP
                           : check.fault == text::JsonFault::NUMBER_TOO_LARGE ? Code::METADATA_NUMBER
                                                                              : Code::METADATA_NOT_JSON,
                           check.at, isTooDeep ? std::to_string(text::MAX_METADATA_DEPTH) : "");
            }
        }
    }

    // ---- Materials --------------------------------------------------------------------------------------

    void checkMaterial(const SceneMesh& entry) {
        if (!entry.material) return;
        if (!std::dynamic_pointer_cast<kel::material::MaterialClassic>(entry.material)) {
            report(Code::MATERIAL_NOT_CLASSIC);
        } else if (preset) {
            checkMaterialValues(entry.material);
        } else if (scene.materials.count(entry.material) == 0) {
            report(Code::MATERIAL_NOT_IN_SET);
        }
    }

    void checkMaterialValues(const std::shared_ptr<kel::material::Material>& material) {
        const auto classic = std::dynamic_pointer_cast<kel::material::MaterialClassic>(material);
        if (!classic) return;
        const bool finite = preset ? hasFiniteFields(*classic) : hasFiniteAttributes(*material);
        if (!finite) report(Code::MATERIAL_NOT_FINITE, std::to_string(material->identifier));
    }

    const Scene& scene;
    Target target;
    ProblemOptions options;
    std::optional<ContainerPreset> preset; ///< of a container target
    Problems problems;
    Finding notKept;                     ///< takes what is filled in for a finding over the limit
    std::size_t position = NOWHERE;      ///< of the mesh at hand
    std::set<std::string> writtenBefore; ///< attributes that the container's map holds
};

} // namespace

std::string describe(const Finding& finding) {
    std::string message =
        finding.mesh == NOWHERE ? "The input" : kel::scene::placeOfMesh(finding.mesh, finding.meshName);
    if (!finding.attribute.empty()) message += ", attribute \"" + finding.attribute + "\"";
    if (!finding.key.empty()) message += ", metadata \"" + finding.key + "\"";
    if (finding.element != NOWHERE) {
        message += (finding.key.empty() ? ", element " : ", byte ") + std::to_string(finding.element);
        if (finding.count > 1) message += " (and " + std::to_string(finding.count - 1) + " more)";
    }
    return message + ": " + finding.sentence;
}

Problems steps::findProblems(const Scene& scene, Target target, const ProblemOptions& options) {
    return Finder(scene, target, options).find();
}

} // namespace kel::prepare
