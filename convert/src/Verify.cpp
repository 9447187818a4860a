#include <kel/convert/Verify.h>

#include "MeshFacts.h"

#include <kel/convert/Texts.h>

#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/Mesh.h>
#include <kel/src/encoding/EncodingPresets.h>
#include <kel/src/encoding/Quantization.h>
#include <kel/src/format/MaterialParameters.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <utility>

namespace kel::convert {

namespace {

namespace format = kel::src::format;
using kel::mesh::AttributeBuffer;
using kel::prepare::ReachedError;
using kel::prepare::Target;
using kel::src::DecodedAttribute;
using kel::src::SRC_NONE;
using kel::src::SrcFile;
using kel::src::SrcMesh;
using kel::src::SrcWriterInput;

/// Normals are measured in other ways here and there.
constexpr double ANGLE_ROUNDING = 0.01;
constexpr double STEP_ROUNDING = 1e-4;

std::vector<float> floatsOf(const AttributeBuffer& buffer) {
    const std::size_t components = buffer.getComponentCountPerElement();
    std::vector<float> values(buffer.getElementCount() * components);
    for (std::size_t i = 0; i < buffer.getElementCount(); ++i)
        buffer.getElement(i, values.data() + i * components);
    return values;
}

double distance(const float* a, const float* b) {
    return std::hypot(static_cast<double>(a[0]) - static_cast<double>(b[0]),
                      static_cast<double>(a[1]) - static_cast<double>(b[1]),
                      static_cast<double>(a[2]) - static_cast<double>(b[2]));
}

bool equalAsFloats(double a, double b) {
    return static_cast<float>(a) == static_cast<float>(b);
}

std::string offText(std::size_t element, double off, const char* unit, double allowed) {
    return "element " + std::to_string(element) + " is off by " + shortNumber(off) + unit + ", more than " +
           shortNumber(allowed);
}

class Verification {
public:
    Verification(const SrcWriterInput& input, Target target, const std::vector<ReachedError>& errors,
                 const SrcFile& file)
        : input(input), target(target), errors(errors), file(file) {}

    std::string run() {
        if (file.meshes().size() != input.meshes.size())
            return "it has " + std::to_string(file.meshes().size()) + " of " +
                   std::to_string(input.meshes.size()) + " meshes";
        for (std::size_t i = 0; i < input.meshes.size(); ++i) {
            const std::string difference = compareMesh(i);
            if (!difference.empty()) return "mesh " + std::to_string(i) + ": " + difference;
        }
        return "";
    }

private:
    std::string compareMesh(std::size_t position) const {
        const auto& mesh = input.meshes[position];
        const SrcMesh& written = file.meshes()[position];
        kel::src::DecodeOptions options;
        options.applyFit = false;
        const kel::src::DecodedMesh decoded = decodeMesh(file, written, options);

        const auto indices = mesh->getIndexBuffer();
        if (indices) {
            if (decoded.indices.size() != indices->getElementCount())
                return "it has " + std::to_string(decoded.indices.size()) + " of " +
                       std::to_string(indices->getElementCount()) + " indices";
            for (std::size_t i = 0; i < decoded.indices.size(); ++i) {
                if (decoded.indices[i] != indices->getIndex(i))
                    return "index " + std::to_string(i) + " is " + std::to_string(decoded.indices[i]) +
                           ", not " + std::to_string(indices->getIndex(i));
            }
        }
        if (written.primitive != mesh->getPrimitiveType()) return "it consists of other primitives";
        for (std::size_t a = 0; a < mesh->getNumAttributeBuffers(); ++a) {
            const std::string difference = compareAttribute(*mesh->getAttributeBuffer(a), decoded, position);
            if (!difference.empty())
                return '"' + mesh->getAttributeBuffer(a)->getAttributeName() + "\": " + difference;
        }
        std::string difference = compareMetadata(mesh, written);
        if (difference.empty()) difference = compareMaterial(mesh, written);
        return difference;
    }

    std::string compareAttribute(const AttributeBuffer& buffer, const kel::src::DecodedMesh& decoded,
                                 std::size_t position) const {
        const std::string name = buffer.getAttributeName();
        if (buffer.getComponentType() != kel::mesh::FLOAT) return "";
        const DecodedAttribute* found = decoded.find(name);
        const bool isPosition = name == kel::mesh::DEFAULT_POSITIONS_NAME;
        const bool isNormal = name == kel::mesh::DEFAULT_NORMALS_NAME;
        // That mode leaves all other attributes out, which the report says.
        if (!found && target == Target::POSITION_NORMAL_COMPRESSED && !isPosition && !isNormal) return "";
        if (!found) return "it is missing";
        const std::vector<float> values = floatsOf(buffer);
        if (found->values.size() != values.size() ||
            found->components != buffer.getComponentCountPerElement())
            return "it has " + std::to_string(found->values.size()) + " of " + std::to_string(values.size()) +
                   " numbers";
        if (values.empty()) return "";
        const bool three = found->components == 3;
        if (three && isPosition &&
            (target == Target::POSITION_COMPRESSED || target == Target::POSITION_NORMAL_COMPRESSED))
            return comparePositions(values, found->values, errors.at(position).position);
        if (three && isNormal && target == Target::POSITION_NORMAL_COMPRESSED)
            return compareNormals(values, found->values, errors.at(position).normalDegrees);
        if (isContainerTarget(target)) {
            const auto& precision = kel::src::detail::getSRCEncodingPreset(targetName(target)).precision;
            const auto bits = precision.find(name);
            if (bits != precision.end() && bits->second > 0 && bits->second < 32)
                return compareInBox(values, found->values, bits->second);
        }
        if (std::memcmp(values.data(), found->values.data(), values.size() * sizeof(float)) == 0) return "";
        return "its numbers are not those that were written";
    }

    static std::string comparePositions(const std::vector<float>& values, const std::vector<float>& found,
                                        double error) {
        float largest = 0.0f;
        for (const float value : values)
            largest = std::max(largest, std::abs(value));
        const double rounding =
            4.0 * static_cast<double>(largest) * static_cast<double>(std::numeric_limits<float>::epsilon());
        for (std::size_t i = 0; i + 2 < values.size(); i += 3) {
            const double off = distance(&values[i], &found[i]);
            if (!(off <= error + rounding)) return offText(i / 3, off, "", error);
        }
        return "";
    }

    static std::string compareNormals(const std::vector<float>& values, const std::vector<float>& found,
                                      double error) {
        for (std::size_t i = 0; i + 2 < values.size(); i += 3) {
            const double off = degreesBetween(&values[i], &found[i]);
            const double length = distance(&values[i], std::array<float, 3>{}.data());
            if (length > 0 && !(off <= error + ANGLE_ROUNDING)) return offText(i / 3, off, " degrees", error);
        }
        return "";
    }

    /// The preset clamps to its box and truncates to a whole step.
    static std::string compareInBox(const std::vector<float>& values, const std::vector<float>& found,
                                    unsigned int bits) {
        const double step = 1.0 / kel::src::detail::getMaxCode(bits);
        for (std::size_t i = 0; i < values.size(); ++i) {
            const double expected = std::clamp(static_cast<double>(values[i]), -0.5, 0.5);
            const double off = std::abs(static_cast<double>(found[i]) - expected);
            if (!(off <= step * (1.0 + STEP_ROUNDING) + 1e-7))
                return "number " + std::to_string(i) + " is off by " + shortNumber(off) +
                       ", more than a step of " + shortNumber(step);
        }
        return "";
    }

    std::string compareMetadata(const kel::mesh::MeshPtr& mesh, const SrcMesh& written) const {
        const auto metadata = input.metaData.find(mesh);
        if (metadata == input.metaData.end() || !metadata->second) return "";
        std::map<std::string, std::string_view> found;
        for (auto& member : kel::src::jsonMembers(written.metadata))
            found.emplace(std::move(member.key), member.json);
        for (const auto& [key, text] : *metadata->second) {
            const auto place = found.find(key);
            if (place == found.end()) return "its metadata lack \"" + key + '"';
            if (!sameJson(text, place->second)) return "its metadata have another \"" + key + '"';
        }
        return "";
    }

    std::string compareMaterial(const kel::mesh::MeshPtr& mesh, const SrcMesh& written) const {
        const auto found = input.meshMaterials.find(mesh);
        const bool has = found != input.meshMaterials.end() && found->second;
        if (has != (written.material != SRC_NONE))
            return has ? "its material is missing" : "it has a material";
        if (!has) return "";
        for (const auto& [parameter, expected] : classicValues(found->second.get())) {
            if (parameter == format::TRANSPARENCY && isContainerTarget(target)) continue;
            const std::vector<double> values =
                file.materialParameter(file.materials()[written.material], parameterName(parameter));
            if (!std::equal(values.begin(), values.end(), expected.begin(), expected.end(), equalAsFloats))
                return "its material has another " + std::string(parameterName(parameter));
        }
        return "";
    }

    const SrcWriterInput& input;
    const Target target;
    const std::vector<ReachedError>& errors;
    const SrcFile& file;
};

} // namespace

std::string firstDifference(const SrcWriterInput& input, Target target,
                            const std::vector<ReachedError>& errors, const SrcFile& file) {
    return Verification(input, target, errors, file).run();
}

std::string firstError(const kel::src::ValidationReport& report, bool clamped) {
    for (const auto& finding : report.findings) {
        if (finding.severity() != kel::src::Severity::ERROR) continue;
        if (clamped && finding.code == kel::src::SrcCode::BOUNDS_TOO_SMALL) continue;
        const auto& info = kel::src::infoOf(finding.code);
        return std::string(info.name) + (finding.path.empty() ? "" : " at " + finding.path) + ": " +
               std::string(info.sentence);
    }
    return "";
}

namespace {

template<typename Bytes, typename Open>
std::string verify(const SrcWriterInput& input, Target target, const std::vector<ReachedError>& errors,
                   bool clamped, const Bytes& bytes, const FurtherCheck& further, const Open& open) {
    try {
        std::string found = firstError(kel::src::validateSrc(bytes), clamped);
        if (!found.empty()) return found;
        const SrcFile file = open(bytes);
        found = firstDifference(input, target, errors, file);
        return found.empty() && further ? further(file) : found;
    } catch (const kel::src::SrcError& error) {
        return error.what();
    }
}

} // namespace

std::string verifyFile(const SrcWriterInput& input, Target target, const std::vector<ReachedError>& errors,
                       bool clamped, const std::string& path, const FurtherCheck& further) {
    return verify(input, target, errors, clamped, path, further,
                  [](const std::string& file) { return kel::src::openSrc(file); });
}

std::string verifyBytes(const SrcWriterInput& input, Target target, const std::vector<ReachedError>& errors,
                        bool clamped, std::string_view bytes, const FurtherCheck& further) {
    return verify(input, target, errors, clamped, kel::src::ByteView(bytes), further,
                  [](const kel::src::ByteView& view) { return kel::src::readSrc(view); });
}

} // namespace kel::convert
