#include <kel/prepare/FindProblems.h>

#include "Buffers.h"
#include "Presets.h"

#include <kel/material/MaterialClassic.h>
#include <kel/mesh/AttributeNames.h>
#include <kel/src/MeshUtils.h>
#include <kel/src/PackedAccess.h>
#include <kel/src/text/JsonScanner.h>
#include <kel/src/text/Utf8.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <unordered_set>

namespace kel::prepare {

namespace {

using detail::AttributePtr;
using detail::PackedFloats;

constexpr std::size_t SHORT_INDEX_VERTICES = 65535;
constexpr std::size_t RESTART_INDEX = 65535;

const std::vector<ProblemKind> TABLE = {
    {"attribute-components", Severity::WARNING,
     "It has {} components per element and is left out; only one to three are written.",
     "Cut or split it to at most three."},
    {"attribute-dropped", Severity::WARNING, "It is left out: {} does not write attributes of this name.",
     "Choose a target that writes it, or rename it."},
    {"attribute-duplicate", Severity::ERROR,
     "The mesh has an attribute of this name already; one hides the other.", "Rename or remove one of them."},
    {"attribute-inherited", Severity::ERROR,
     "The mesh lacks this attribute, which an earlier mesh has, and would point at the earlier mesh's "
     "values.",
     "Apply keepAttributesApart first."},
    {"attribute-length", Severity::ERROR, "It does not have one element per vertex: {}.",
     "Make all attributes of the mesh as long as \"position\"."},
    {"attribute-missing", Severity::ERROR, "The mesh has an empty pointer in place of an attribute.",
     "Remove it from the mesh."},
    {"attribute-not-finite", Severity::WARNING, "It has values that are NaN or infinite.",
     "Replace them by finite values."},
    {"attribute-not-float", Severity::WARNING, "Its integers are written bit for bit and labelled as floats.",
     "Convert it to floats."},
    {"attribute-not-float-quantized", Severity::ERROR,
     "Its integers would be quantized as if their bits were floats.", "Convert it to floats."},
    {"attribute-type", Severity::WARNING, "Its components are not four bytes wide, so it is left out.",
     "Convert it to floats."},
    {"box-degenerate", Severity::WARNING, "All its vertices lie in one point.", "Remove the mesh."},
    {"box-flat", Severity::HINT,
     "It is flat on an axis; the scale on that axis is that of a hundred-millionth of the diagonal.",
     "Nothing needs to be done."},
    {"box-overflow", Severity::ERROR, "Its bounds are too large for a 32-bit float.",
     "Scale the mesh down, or move it nearer to the origin."},
    {"component-clamped", Severity::ERROR, "It has components outside -0.5 to 0.5, which would be clamped.",
     "Apply fitToRange first."},
    {"index-incomplete", Severity::WARNING, "The last {} make no whole primitive and draw nothing.",
     "Remove them, or complete the primitive."},
    {"index-missing", Severity::ERROR, "The mesh has no index buffer and is skipped.",
     "Give it one index per vertex."},
    {"index-out-of-range", Severity::ERROR, "It has indices that name no vertex: it has {} vertices.",
     "Remove the primitives that use them."},
    {"index-restart", Severity::WARNING,
     "It uses index 65535 in 16 bits, which restarts the primitive in WebGL 2.",
     "Use indices of four bytes, or split the mesh to 65,535 vertices."},
    {"input-empty", Severity::WARNING, "There is no mesh to write.", "Add one."},
    {"material-not-classic", Severity::WARNING,
     "Its material is not a classic one; the mesh is written without a material.",
     "Convert it to a MaterialClassic."},
    {"material-not-finite", Severity::ERROR,
     "Material {} has a value that is NaN or infinite, which the header cannot hold.",
     "Replace it by a finite value."},
    {"material-not-in-set", Severity::ERROR,
     "Its material is not among the input's materials; the mesh would be written without one.",
     "Add the material to the set."},
    {"mesh-duplicate", Severity::WARNING,
     "The mesh is in the list already, at position {}, and is written twice.",
     "List it once, or make a copy."},
    {"mesh-missing", Severity::ERROR, "The list of meshes holds an empty pointer.",
     "Remove it from the list."},
    {"mesh-unindexed", Severity::HINT, "The mesh has no index buffer, so its surface area is given as 0.",
     "Give it one index per vertex."},
    {"mesh-without-primitives", Severity::WARNING, "It has too few indices for a single primitive.",
     "Remove the mesh."},
    {"mesh-without-vertices", Severity::WARNING, "It has no vertices; its bounds are a placeholder.",
     "Remove the mesh."},
    {"metadata-key", Severity::ERROR,
     "The key has a character that is copied into the header without an escape.",
     "Take quotes, backslashes and control characters out of it."},
    {"metadata-missing", Severity::WARNING, "The mesh has no metadata, so it gets no statistics either.",
     "Give it a map, which may be empty."},
    {"metadata-not-json", Severity::ERROR,
     "The text is not one JSON value, and would be lost or kept as a string.",
     "Put plain text in quotes, escaped as a JSON string."},
    {"metadata-number", Severity::ERROR, "The text has a number that no double holds.",
     "Write it as a string."},
    {"metadata-too-deep", Severity::ERROR, "The text nests deeper than {} levels, more than readers follow.",
     "Make it flatter."},
    {"normal-missing", Severity::HINT, "The mesh has no normals and is written as in the mode \"position\".",
     "Nothing needs to be done."},
    {"normal-not-unit", Severity::HINT,
     "It has normals whose length is not 1; only the direction is written.",
     "Nothing needs to be done, unless the length has a meaning."},
    {"normal-type", Severity::HINT,
     "It is not three floats per element, so the mesh is written as in the mode \"position\".",
     "Convert it to three floats to have it packed."},
    {"normal-without-direction", Severity::WARNING,
     "It has normals that are zero or not finite; they are written as +z.", "Compute them anew."},
    {"position-missing", Severity::ERROR,
     "The mesh has no attribute \"position\": the container writer skips it, and the compressed modes never "
     "end.",
     "Name its positions \"position\", or leave the mesh out."},
    {"position-missing-unbounded", Severity::WARNING,
     "The mesh has no attribute \"position\" and gets no bounds.", "Name its positions \"position\"."},
    {"position-not-finite", Severity::ERROR, "It has values that are NaN or infinite.",
     "Remove the primitives that use these vertices."},
    {"position-type", Severity::ERROR,
     "Positions must be floats, three in the compressed modes and up to three in the container.",
     "Convert them to three floats."},
    {"position-type-unbounded", Severity::WARNING,
     "It is not three floats per element, so the mesh gets no bounds.", "Convert it to three floats."},
    {"primitive-mislabeled", Severity::ERROR,
     "It is drawn as {} and would be labelled as a list of triangles.",
     "Leave the mesh out, turn it into triangles, or use the public writer."},
    {"primitive-unknown", Severity::ERROR, "Its primitive type is {}.", "Give it one of the seven."},
    {"text-not-utf8", Severity::ERROR, "The text is not UTF-8, and readers would refuse the whole file.",
     "Convert it to UTF-8."},
    {"too-many-vertices", Severity::ERROR, "It has {} vertices, and indices of 16 bits reach 65,535 of them.",
     "Apply splitForShortIndices first."},
};

const ProblemKind& kindOf(std::string_view code) {
    return *std::lower_bound(TABLE.begin(), TABLE.end(), code,
                             [](const ProblemKind& kind, std::string_view c) { return kind.code < c; });
}

bool isFinite(const glm::vec3& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

/// First element at fault, and how many.
struct Faults {
    std::size_t first = NOWHERE;
    std::size_t count = 0;

    void add(std::size_t element) {
        if (count++ == 0) first = element;
    }
    explicit operator bool() const { return count != 0; }
};

class Finder {
public:
    Finder(const kel::src::SrcWriterInput& input, Target target, const ProblemOptions& options)
        : input(input), target(target), options(options) {}

    Problems find() {
        if (input.meshes.empty()) report("input-empty");
        std::map<kel::mesh::MeshPtr, std::size_t> seen;
        for (position = 0; position < input.meshes.size(); ++position) {
            const kel::mesh::MeshPtr& listed = input.meshes[position];
            if (!listed) {
                report("mesh-missing");
                continue;
            }
            const auto [first, isNew] = seen.emplace(listed, position);
            if (!isNew) {
                report("mesh-duplicate", std::to_string(first->second));
                continue;
            }
            checkMesh(*listed);
            checkMetaData(listed);
            checkMaterial(listed);
        }
        position = NOWHERE;
        if (!isContainerTarget(target)) {
            for (const auto& material : input.materials)
                checkMaterialValues(material);
        }
        return std::move(problems);
    }

private:
    Finding& report(std::string_view code, const std::string& detail = {}) {
        const ProblemKind& kind = kindOf(code);
        ++(kind.severity == Severity::ERROR     ? problems.errors
           : kind.severity == Severity::WARNING ? problems.warnings
                                                : problems.hints);
        if (options.maxFindings != 0 && problems.findings.size() >= options.maxFindings) {
            return notKept = Finding();
        }
        Finding finding;
        finding.code = kind.code;
        finding.severity = kind.severity;
        if (position < input.meshes.size()) {
            finding.mesh = position;
            finding.meshName = detail::nameOf(input, input.meshes[position]);
        }
        finding.sentence = std::string(kind.sentence) + ' ' + std::string(kind.remedy);
        const std::size_t gap = finding.sentence.find("{}");
        if (gap != std::string::npos) finding.sentence.replace(gap, 2, detail);
        problems.findings.push_back(std::move(finding));
        return problems.findings.back();
    }

    void report(std::string_view code, const std::string& attribute, const Faults& faults) {
        if (!faults) return;
        Finding& finding = report(code);
        finding.attribute = attribute;
        finding.element = faults.first;
        finding.count = faults.count;
    }

    void reportAttribute(std::string_view code, const std::string& attribute,
                         const std::string& detail = {}) {
        report(code, detail).attribute = attribute;
    }

    // ---- Geometry

    void checkMesh(const kel::mesh::Mesh& mesh) {
        const std::vector<AttributePtr> attributes = detail::attributesOf(mesh);
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
            report("primitive-unknown", std::to_string(static_cast<std::uint32_t>(type)));
        } else if (isContainerTarget(target) && type != kel::mesh::TRIANGLES) {
            report("primitive-mislabeled", kel::mesh::getStringForPrimitiveType(type));
        }
    }

    void checkPositions(const AttributePtr& positions, kel::mesh::PrimitiveType type) {
        const bool boundsOnly = target == Target::UNCOMPRESSED;
        if (!positions) {
            report(boundsOnly ? "position-missing-unbounded" : "position-missing");
            return;
        }
        const bool isVec3f = kel::src::detail::isAttributeVec3f(positions);
        const std::size_t components = positions->getComponentCountPerElement();
        const bool fitsContainer =
            positions->getComponentType() == kel::mesh::FLOAT && components >= 1 && components <= 3;
        if (!isVec3f && !(isContainerTarget(target) && fitsContainer)) {
            reportAttribute(boundsOnly ? "position-type-unbounded" : "position-type",
                            kel::mesh::DEFAULT_POSITIONS_NAME);
        }
        if (positions->getElementCount() == 0) {
            report("mesh-without-vertices");
            return;
        }
        if (!isVec3f) return;

        const PackedFloats values(*positions);
        if (!std::all_of(values.begin(), values.end(), [](float v) { return std::isfinite(v); })) return;
        glm::vec3 min, max;
        kel::src::detail::computeBoundingBoxMinMax(positions, min, max);
        const glm::vec3 size = max - min;
        if (target != Target::UNCOMPRESSED && !(isFinite(size) && isFinite(max + min))) {
            report("box-overflow");
        } else if (size == glm::vec3(0.0f) && type != kel::mesh::POINTS) {
            report("box-degenerate");
        } else if ((target == Target::POSITION_COMPRESSED || target == Target::POSITION_NORMAL_COMPRESSED) &&
                   (size.x == 0.0f || size.y == 0.0f || size.z == 0.0f)) {
            report("box-flat");
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
                report("attribute-missing").element = i;
                continue;
            }
            const std::string name = attributes[i]->getAttributeName();
            const std::size_t odd = kel::src::text::firstNonUtf8(name);
            if (odd != name.size()) reportAttribute("text-not-utf8", name);
            if (!names.insert(name).second) reportAttribute("attribute-duplicate", name);
            if (!isWritten(name, *attributes[i], packed)) continue;
            written.insert(name);
            const std::size_t count = attributes[i]->getElementCount();
            if (count != vertices) {
                reportAttribute("attribute-length", name,
                                std::to_string(count) + " elements, " + std::to_string(vertices) +
                                    " vertices");
            }
            if (attributes[i]->getComponentType() == kel::mesh::FLOAT) {
                checkValues(name, *attributes[i], packed);
            }
        }

        // The container writer keeps one map of attributes for the whole file, and without an index buffer
        // does not come as far as the attributes.
        if (!isContainerTarget(target) || !mesh.getIndexBuffer()) return;
        if (mesh.getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME)) {
            for (const std::string& name : writtenBefore) {
                if (written.count(name) == 0) reportAttribute("attribute-inherited", name);
            }
        }
        writtenBefore.insert(written.begin(), written.end());
    }

    /// Whether the target writes the attribute; says so when not.
    bool isWritten(const std::string& name, const kel::mesh::AttributeBuffer& buffer, bool packed) {
        if (!isContainerTarget(target)) {
            const bool isWritten = !packed || name == kel::mesh::DEFAULT_POSITIONS_NAME ||
                                   name == kel::mesh::DEFAULT_NORMALS_NAME;
            if (!isWritten) reportAttribute("attribute-dropped", name, "position-normal");
            return isWritten;
        }
        const std::size_t components = buffer.getComponentCountPerElement();
        const bool isPosition = name == kel::mesh::DEFAULT_POSITIONS_NAME; // told in checkPositions
        if (!detail::isInPresets(name)) {
            reportAttribute("attribute-dropped", name, "the container writer");
            return false;
        }
        if (components == 0 || components > 3) {
            if (!isPosition) reportAttribute("attribute-components", name, std::to_string(components));
            return false;
        }
        if (buffer.getElementSizeInBytes() != components * sizeof(float)) {
            if (!isPosition) reportAttribute("attribute-type", name);
            return false;
        }
        if (buffer.getComponentType() != kel::mesh::FLOAT && !isPosition) {
            const bool isQuantized = target == Target::PRESET_CMP1 && detail::isQuantizedByCmp1(name);
            reportAttribute(isQuantized ? "attribute-not-float-quantized" : "attribute-not-float", name);
        }
        return true;
    }

    void checkValues(const std::string& name, const kel::mesh::AttributeBuffer& buffer, bool packed) {
        const bool isPosition = name == kel::mesh::DEFAULT_POSITIONS_NAME;
        if (packed && !isPosition) return; // see checkNormals
        const PackedFloats values(buffer);
        const std::size_t components = std::max<std::size_t>(1, buffer.getComponentCountPerElement());
        const bool isClamped = target == Target::PRESET_CMP1 && detail::isQuantizedByCmp1(name);
        Faults notFinite, clamped;
        std::size_t lastFault = NOWHERE;
        for (std::size_t i = 0; i < values.size(); ++i) {
            const float value = values.data()[i];
            if (!std::isfinite(value)) {
                if (lastFault != i / components) notFinite.add(i / components); // an element counts once
                lastFault = i / components;
            } else if (isClamped && !(value >= -0.5f && value <= 0.5f)) {
                clamped.add(i / components);
            }
        }
        report(isPosition ? "position-not-finite" : "attribute-not-finite", name, notFinite);
        report("component-clamped", name, clamped);
    }

    void checkNormals(const kel::mesh::Mesh& mesh) {
        if (target != Target::POSITION_NORMAL_COMPRESSED) return;
        const std::string& name = kel::mesh::DEFAULT_NORMALS_NAME;
        const AttributePtr normals = mesh.getAttributeBuffer(name);
        if (!normals) {
            report("normal-missing");
            return;
        }
        if (!kel::src::detail::isAttributeVec3f(normals)) {
            reportAttribute("normal-type", name);
            return;
        }
        Faults directionless, notUnit;
        const PackedFloats values(*normals);
        for (std::size_t i = 0; i < values.size() / 3; ++i) {
            const float* n = values.data() + 3 * i;
            const double x = static_cast<double>(n[0]), y = static_cast<double>(n[1]),
                         z = static_cast<double>(n[2]);
            const double square = x * x + y * y + z * z;
            if (!std::isfinite(square) || square == 0.0) {
                directionless.add(i);
            } else if (square < 0.98 || square > 1.02) { // one percent of the length
                notUnit.add(i);
            }
        }
        report("normal-without-direction", name, directionless);
        report("normal-not-unit", name, notUnit);
    }

    void checkIndices(const kel::mesh::Mesh& mesh, std::size_t vertices, bool hasPositions) {
        const auto indices = mesh.getIndexBuffer();
        const kel::mesh::PrimitiveType type = mesh.getPrimitiveType();
        const bool isSurface = type == kel::mesh::TRIANGLES || type == kel::mesh::TRIANGLE_STRIP ||
                               type == kel::mesh::TRIANGLE_FAN;
        if (!indices) {
            if (isContainerTarget(target)) {
                report("index-missing");
            } else if (isSurface && hasPositions) {
                report("mesh-unindexed");
            }
            if (vertices != 0) checkPrimitiveCount(type, vertices);
            return;
        }
        const std::size_t count = indices->getElementCount();
        if (vertices != 0 || count != 0) checkPrimitiveCount(type, count);
        if (!isContainerTarget(target) && vertices > SHORT_INDEX_VERTICES) {
            report("too-many-vertices", std::to_string(vertices));
        }

        Faults outOfRange, restart;
        const bool isShort = isContainerTarget(target) && indices->getElementSizeInBytes() <= 2;
        const auto check = [&](std::size_t k, std::size_t index) {
            if (index >= vertices) {
                outOfRange.add(k);
            } else if (isShort && index == RESTART_INDEX) {
                restart.add(k);
            }
        };
        const auto* packed16 = kel::src::detail::packedIndices<std::uint16_t>(*indices);
        const auto* packed32 = kel::src::detail::packedIndices<std::uint32_t>(*indices);
        for (std::size_t k = 0; k < count; ++k)
            check(k, packed32 ? packed32[k] : packed16 ? packed16[k] : indices->getIndex(k));
        if (outOfRange) {
            Finding& finding = report("index-out-of-range", std::to_string(vertices));
            finding.element = outOfRange.first;
            finding.count = outOfRange.count;
        }
        report("index-restart", {}, restart);
    }

    void checkPrimitiveCount(kel::mesh::PrimitiveType type, std::size_t indices) {
        const bool isLines =
            type == kel::mesh::LINES || type == kel::mesh::LINE_LOOP || type == kel::mesh::LINE_STRIP;
        const std::size_t corners = type == kel::mesh::POINTS ? 1 : isLines ? 2 : 3;
        if (indices < corners) {
            report("mesh-without-primitives");
        } else if ((type == kel::mesh::LINES || type == kel::mesh::TRIANGLES) && indices % corners != 0) {
            const std::size_t rest = indices % corners;
            Finding& finding =
                report("index-incomplete", rest == 1 ? "index" : std::to_string(rest) + " indices");
            finding.element = indices - rest;
            finding.count = rest;
        }
    }

    // ---- Metadata

    void checkMetaData(const kel::mesh::MeshPtr& mesh) {
        const auto entry = input.metaData.find(mesh);
        if (entry == input.metaData.end() || !entry->second) {
            if (!isContainerTarget(target)) report("metadata-missing");
            return;
        }
        for (const auto& [key, text] : *entry->second) {
            const auto reportText = [&, &k = key](std::string_view code, std::size_t at,
                                                  const std::string& detail = {}) {
                Finding& finding = report(code, detail);
                finding.key = k;
                finding.element = at;
            };
            const auto needsEscape = [](char c) {
                return c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20;
            };
            // Only the container's header escapes keys.
            if (!isContainerTarget(target) && std::any_of(key.begin(), key.end(), needsEscape)) {
                reportText("metadata-key", NOWHERE);
            }
            if (kel::src::text::firstNonUtf8(key) != key.size()) {
                reportText("text-not-utf8", NOWHERE);
                continue;
            }
            const std::size_t odd = kel::src::text::firstNonUtf8(text);
            if (odd != text.size()) {
                reportText("text-not-utf8", odd);
                continue;
            }
            const kel::src::text::JsonCheck json = kel::src::text::checkJson(text);
            switch (json.fault) {
            case kel::src::text::JsonFault::NONE:
                break;
            case kel::src::text::JsonFault::TOO_DEEP:
                reportText("metadata-too-deep", json.at, std::to_string(kel::src::text::MAX_METADATA_DEPTH));
                break;
            case kel::src::text::JsonFault::NUMBER_TOO_LARGE:
                reportText("metadata-number", json.at);
                break;
            default:
                reportText("metadata-not-json", json.at);
            }
        }
    }

    // ---- Materials

    void checkMaterial(const kel::mesh::MeshPtr& mesh) {
        const auto entry = input.meshMaterials.find(mesh);
        if (entry == input.meshMaterials.end() || !entry->second) return;
        if (!std::dynamic_pointer_cast<kel::material::MaterialClassic>(entry->second)) {
            report("material-not-classic");
        } else if (isContainerTarget(target)) {
            checkMaterialValues(entry->second);
        } else if (input.materials.count(entry->second) == 0) {
            report("material-not-in-set");
        }
    }

    void checkMaterialValues(const std::shared_ptr<kel::material::Material>& material) {
        const auto classic = std::dynamic_pointer_cast<kel::material::MaterialClassic>(material);
        if (!classic) return;
        bool finite = std::isfinite(classic->getAmbient()) && isFinite(classic->getDiffuse()) &&
                      isFinite(classic->getEmissive()) && isFinite(classic->getSpecular()) &&
                      std::isfinite(classic->getShininess());
        if (!isContainerTarget(target)) { // writes what the description names
            finite = true;
            for (const char* name :
                 {"ambient", "diffuse", "emissive", "specular", "shininess", "transparency"}) {
                if (!material->getDescription()->hasAttribute(name)) continue;
                const kel::material::AttributeValues values = material->getAttribute(name);
                finite = finite &&
                         std::all_of(values.begin(), values.end(), [](float v) { return std::isfinite(v); });
            }
        }
        if (!finite) report("material-not-finite", std::to_string(material->identifier));
    }

    const kel::src::SrcWriterInput& input;
    Target target;
    ProblemOptions options;
    Problems problems;
    Finding notKept;                     ///< takes what is filled in for a finding over the limit
    std::size_t position = NOWHERE;      ///< of the mesh at hand
    std::set<std::string> writtenBefore; ///< attributes that the container's map holds
};

} // namespace

const char* nameOf(Severity severity) {
    return severity == Severity::ERROR ? "error" : severity == Severity::WARNING ? "warning" : "hint";
}

const std::vector<ProblemKind>& problemTable() {
    return TABLE;
}

std::string describe(const Finding& finding) {
    std::string text = finding.mesh == NOWHERE ? "The input" : "Mesh " + std::to_string(finding.mesh);
    if (!finding.meshName.empty()) text += " (\"" + finding.meshName + "\")";
    if (!finding.attribute.empty()) text += ", attribute \"" + finding.attribute + "\"";
    if (!finding.key.empty()) text += ", metadata \"" + finding.key + "\"";
    if (finding.element != NOWHERE) {
        text += (finding.key.empty() ? ", element " : ", byte ") + std::to_string(finding.element);
        if (finding.count > 1) text += " (and " + std::to_string(finding.count - 1) + " more)";
    }
    return text + ": " + finding.sentence;
}

Problems findProblems(const kel::src::SrcWriterInput& input, Target target, const ProblemOptions& options) {
    return Finder(input, target, options).find();
}

} // namespace kel::prepare
