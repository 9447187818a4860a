#include "Preparation.h"

#include "Messages.h"
#include "Status.h"

#include <kel/material/MaterialClassic.h>
#include <kel/prepare/FindProblems.h>
#include <kel/prepare/FitToRange.h>
#include <kel/prepare/KeepAttributesApart.h>
#include <kel/prepare/KeepStoredAttributes.h>
#include <kel/prepare/MeshName.h>
#include <kel/prepare/OptimizeForGpu.h>
#include <kel/prepare/SplitForShortIndices.h>
#include <kel/src/MeshUtils.h>
#include <kel/src/encoding/EncodingPresets.h>

#include <glm/geometric.hpp>
#include <picojson.h>

#include <algorithm>
#include <map>
#include <set>
#include <utility>

namespace kelsrc::cli {

namespace {

using kel::prepare::ProblemCode;
using kel::prepare::Target;
using kel::src::SrcWriterInput;

constexpr std::size_t PLACES_SHOWN = 5;
// Of the diagonal of the scene's bounds: a tenth of a pixel when the scene fills a screen of 1,600 of them.
constexpr double DEFAULT_MAX_ERROR = 1.0 / 16384.0;

/// How a mesh is called in a message.
std::string nameForPeople(const SrcWriterInput& input, std::size_t position) {
    const std::string name = kel::prepare::meshName(input, input.meshes[position]);
    const std::string number = "mesh " + std::to_string(position);
    return name.empty() ? number : '"' + name + "\" (" + number + ')';
}

std::string joined(const std::vector<std::string>& parts, const char* separator = ", ") {
    std::string text;
    for (std::size_t i = 0; i < std::min(parts.size(), PLACES_SHOWN); ++i)
        text += (i == 0 ? "" : separator) + parts[i];
    if (parts.size() > PLACES_SHOWN) text += " and " + std::to_string(parts.size() - PLACES_SHOWN) + " more";
    return text;
}

const char* primitivesOf(const kel::mesh::Mesh& mesh) {
    switch (mesh.getPrimitiveType()) {
    case kel::mesh::POINTS:
        return "points";
    case kel::mesh::LINES:
    case kel::mesh::LINE_LOOP:
    case kel::mesh::LINE_STRIP:
        return "lines";
    case kel::mesh::TRIANGLES:
        return "triangles";
    default:
        return "strips or fans";
    }
}

/// The container writer labels every mesh as triangles, so no other may reach it.
void keepTriangles(const std::string& file, const ConvertOptions& options, bool isContainer,
                   SrcWriterInput& input, ConvertReport& report) {
    if (!isContainer && !options.onlyTriangles) return;
    std::vector<kel::mesh::MeshPtr> kept;
    std::vector<std::string> refused;
    std::map<std::string, std::size_t> leftOut;
    for (std::size_t i = 0; i < input.meshes.size(); ++i) {
        const auto& mesh = input.meshes[i];
        if (mesh->getPrimitiveType() == kel::mesh::TRIANGLES) {
            kept.push_back(mesh);
        } else {
            refused.push_back(nameForPeople(input, i) + " of " + primitivesOf(*mesh));
            ++leftOut[primitivesOf(*mesh)];
        }
    }
    if (refused.empty()) return;
    if (kept.empty()) {
        throw Failure(
            STATUS_INPUT, file, "there is no mesh of triangles: " + joined(refused),
            "The container writer stores triangles only; --writer=public stores points and lines, too.");
    }
    if (!options.onlyTriangles) {
        throw Failure(STATUS_INPUT, file,
                      "only meshes of triangles can be written, but here " +
                          std::string(refused.size() == 1 ? "is " : "are ") + joined(refused),
                      "Give --only-triangles to leave such meshes out, or --writer=public.");
    }
    for (const auto& [kind, count] : leftOut)
        report.dropped.push_back({"meshes of " + kind, count, "--only-triangles"});
    input.meshes = std::move(kept);
}

// ---- Units and axes -------------------------------------------------------------------------------------

struct StatedSource {
    std::optional<double> unit;
    std::string upAxis;
};

/// What the importer says in each mesh's metadata about the whole file.
StatedSource statedBy(const SrcWriterInput& input) {
    StatedSource stated;
    for (const auto& [mesh, metaData] : input.metaData) {
        if (!metaData || metaData->count("source") == 0) continue;
        picojson::value source;
        if (!picojson::parse(source, metaData->at("source")).empty() || !source.is<picojson::object>())
            continue;
        if (source.get("unit").is<double>()) stated.unit = source.get("unit").get<double>();
        if (source.get("upAxis").is<std::string>()) stated.upAxis = source.get("upAxis").get<std::string>();
        break;
    }
    return stated;
}

kel::prepare::UpAxis upAxisOf(const std::string& file, const std::string& text) {
    if (text == "X") return kel::prepare::UpAxis::X;
    if (text == "Y") return kel::prepare::UpAxis::Y;
    if (text == "Z") return kel::prepare::UpAxis::Z;
    throw Failure(STATUS_INPUT, file, "its up axis is " + text + ", which --up cannot turn from",
                  "Turn the model in the program it comes from.");
}

/// "source" speaks of the positions delivered, so what a transform changes is changed there, too.
void restate(SrcWriterInput& input, std::optional<double> unit, std::optional<kel::prepare::UpAxis> up) {
    std::map<std::string, std::string> done;
    for (auto& [mesh, metaData] : input.metaData) {
        if (!metaData) continue;
        std::string& text = (*metaData)["source"];
        const auto [entry, isNew] = done.try_emplace(text);
        if (isNew) {
            picojson::value source;
            if (!picojson::parse(source, text).empty() || !source.is<picojson::object>())
                source = picojson::value(picojson::object());
            auto& members = source.get<picojson::object>();
            if (unit) members["unit"] = picojson::value(*unit);
            if (up) {
                std::string name = kel::prepare::axisName(*up);
                std::transform(name.begin(), name.end(), name.begin(),
                               [](char c) { return static_cast<char>(c - 'a' + 'A'); });
                members["upAxis"] = picojson::value(name);
            }
            entry->second = source.serialize();
        }
        text = entry->second;
    }
}

void transform(const std::string& file, const ConvertOptions& options, SrcWriterInput& input,
               ConvertReport& report) {
    if (options.scale == 1.0 && !options.toUnit && !options.toUp) return;
    const StatedSource stated = statedBy(input);
    kel::prepare::TransformOptions change;
    change.scale = options.scale;
    if (options.toUnit) {
        double from = 1.0;
        if (options.fromUnit) {
            from = *options.fromUnit;
        } else if (stated.unit) {
            from = *stated.unit;
        } else {
            report.notes.push_back(
                "the model states no unit; its numbers are taken as metres (--units=FROM:TO says "
                "otherwise)");
        }
        change.scale *= from / *options.toUnit;
    }
    if (options.toUp) {
        if (options.fromUp) {
            change.fromUp = *options.fromUp;
        } else if (!stated.upAxis.empty()) {
            change.fromUp = upAxisOf(file, stated.upAxis);
        } else {
            report.notes.push_back(
                "the model does not state which axis points up; it is taken as y (--up=FROM:TO "
                "says otherwise)");
        }
        change.toUp = *options.toUp;
    }
    try {
        input = kel::prepare::transform(input, change);
    } catch (const std::invalid_argument& error) {
        throw Failure(STATUS_INPUT, file, error.what());
    }
    restate(input, options.toUnit, options.toUp);
}

// ---- The container writer -------------------------------------------------------------------------------

void keepStoredAttributes(SrcWriterInput& input, ConvertReport& report) {
    std::vector<kel::prepare::UnstoredAttribute> removed;
    input = kel::prepare::keepStoredAttributes(input, &removed);
    for (const auto& entry : removed) {
        report.dropped.push_back(
            {"\"" + entry.attribute + "\" attributes", entry.meshes,
             "the preset \"" + std::string(targetName(report.target)) + "\" has no place for " +
                 counted(entry.components, "component", "components") + " of that name"});
    }
}

void keepAttributesApart(SrcWriterInput& input, ConvertReport& report) {
    kel::prepare::ApartReport apart;
    input = kel::prepare::keepAttributesApart(input, &apart);
    if (apart.moved != 0) {
        report.notes.push_back(
            "the meshes are in another order than in the model: those with fewer attributes "
            "come first, or they would refer to values of others");
    }
    for (const auto& entry : apart.filled) {
        report.notes.push_back(counted(entry.meshes, "mesh", "meshes") + " got a neutral \"" +
                               entry.attribute +
                               "\", which others have; their metadata says so under \"filled\"");
    }
}

/// The container writer stores no transparency, and viewers take the technique's default for it.
void reportTransparency(const SrcWriterInput& input, ConvertReport& report) {
    std::set<const kel::material::Material*> seen;
    std::size_t count = 0;
    for (const auto& mesh : input.meshes) {
        const auto found = input.meshMaterials.find(mesh);
        if (found == input.meshMaterials.end() || !seen.insert(found->second.get()).second) continue;
        const auto classic = std::dynamic_pointer_cast<kel::material::MaterialClassic>(found->second);
        if (classic && classic->getTransparency() != 0.0f) ++count;
    }
    if (count != 0) report.dropped.push_back({"transparencies", count, "the container writer stores none"});
}

void fitOrCheck(const std::string& file, const ConvertOptions& options, SrcWriterInput& input,
                ConvertReport& report) {
    if (report.target != Target::PRESET_CMP1) return;
    if (options.fit) {
        kel::prepare::FitReport fit;
        input = kel::prepare::fitToRange(input, &fit);
        report.notes.push_back(
            "fitted " + counted(fit.attributes, "attribute", "attributes") + " of " +
            counted(fit.meshes, "mesh", "meshes") +
            " into the box of CMP1, -0.5 to 0.5; the way back is in each mesh's metadata under "
            "\"fit\"");
        return;
    }

    struct Clamped {
        std::size_t components = 0, meshes = 0;
        std::string first;
    };
    std::map<std::string, Clamped> clamped;
    for (const auto& count : kel::prepare::countClamped(input)) {
        Clamped& entry = clamped[count.attribute];
        if (entry.meshes++ == 0) entry.first = nameForPeople(input, count.mesh);
        entry.components += count.components;
    }
    if (clamped.empty()) return;
    std::string text;
    for (const auto& [attribute, entry] : clamped) {
        text += (text.empty() ? "" : "; ") + counted(entry.components, "component", "components") + " of \"" +
                attribute + "\" in " + counted(entry.meshes, "mesh", "meshes") + ", first in " + entry.first;
    }
    text = "outside the box of CMP1, -0.5 to 0.5: " + text;
    if (!options.allowClamping) {
        throw Failure(STATUS_INPUT, file, "values would be clamped, " + text,
                      "Leave --no-fit out to fit them, or give --allow-clamping to write them all the same.");
    }
    report.warnings.push_back("values were clamped, " + text);
}

// ---- The public writer ----------------------------------------------------------------------------------

void splitForShortIndices(const std::string& file, SrcWriterInput& input, ConvertReport& report) {
    kel::prepare::SplitReport split;
    try {
        input = kel::prepare::splitForShortIndices(input, {}, &split);
    } catch (const std::invalid_argument& error) {
        throw Failure(STATUS_INPUT, file, error.what());
    }
    if (split.meshes == 0) return;
    report.notes.push_back("cut " + counted(split.meshes, "mesh", "meshes") +
                           " of more than 65535 vertices into " + counted(split.parts, "part", "parts") +
                           ", which doubles " + counted(split.verticesAdded, "vertex", "vertices"));
    if (split.verticesUnused != 0)
        report.dropped.push_back({"vertices that no primitive uses", split.verticesUnused, ""});
    if (split.degenerateTriangles != 0)
        report.dropped.push_back({"triangles that use a vertex twice", split.degenerateTriangles, ""});
    if (split.indicesIncomplete != 0)
        report.dropped.push_back({"indices that make no whole primitive", split.indicesIncomplete, ""});
}

double diagonalOf(const SrcWriterInput& input) {
    glm::dvec3 low(std::numeric_limits<double>::infinity()), high(-std::numeric_limits<double>::infinity());
    for (const auto& mesh : input.meshes) {
        const auto positions = mesh->getAttributeBuffer("position");
        if (!positions || !positions->isVec3f() || positions->getElementCount() == 0) continue;
        glm::vec3 meshLow, meshHigh;
        kel::src::detail::computeBoundingBoxMinMax(positions, meshLow, meshHigh);
        low = glm::min(low, glm::dvec3(meshLow));
        high = glm::max(high, glm::dvec3(meshHigh));
    }
    return low.x <= high.x ? glm::length(high - low) : 0.0;
}

void chooseMode(const ConvertOptions& options, const SrcWriterInput& input, ConvertReport& report,
                std::vector<kel::prepare::ReachedError>& errors) {
    if (options.target) {
        errors = kel::prepare::measureErrors(input, report.target);
        report.error.emplace();
        for (const auto& error : errors) {
            report.error->position = std::max(report.error->position, error.position);
            report.error->normalDegrees = std::max(report.error->normalDegrees, error.normalDegrees);
        }
        return;
    }
    kel::prepare::MaxError accepted;
    accepted.position = options.maxError ? *options.maxError : diagonalOf(input) * DEFAULT_MAX_ERROR;
    kel::prepare::ModeChoice choice = kel::prepare::chooseMode(input, accepted);
    report.target = choice.mode;
    report.error = choice.largest;
    errors = std::move(choice.meshes);
    if (!choice.whyNotSmaller.empty()) report.notes.push_back(choice.whyNotSmaller);
}

// ---- For both -------------------------------------------------------------------------------------------

/// Errors end the conversion; of the rest each kind is told once, and what is left out counts as dropped.
void refuseProblems(const std::string& file, const ConvertOptions& options, const SrcWriterInput& input,
                    ConvertReport& report) {
    const kel::prepare::Problems problems = kel::prepare::findProblems(input, report.target);
    std::vector<std::string> errors;
    std::map<std::pair<ProblemCode, std::string>, std::vector<const kel::prepare::Finding*>> kinds;
    for (const auto& finding : problems.findings) {
        // Counted and told before.
        if (finding.code == ProblemCode::COMPONENT_CLAMPED && options.allowClamping) continue;
        if (finding.severity == kel::prepare::Severity::ERROR) errors.push_back(describe(finding));
        if (finding.severity != kel::prepare::Severity::WARNING) continue;
        kinds[{finding.code, finding.code == ProblemCode::ATTRIBUTE_DROPPED ? finding.attribute : ""}]
            .push_back(&finding);
    }
    if (!errors.empty()) throw Failure(STATUS_INPUT, file, joined(errors, "; "));
    for (const auto& [kind, findings] : kinds) {
        if (kind.first == ProblemCode::ATTRIBUTE_DROPPED) {
            report.dropped.push_back(
                {'"' + kind.second + "\" attributes", findings.size(),
                 "the mode \"" + std::string(targetName(report.target)) + "\" does not write them"});
            continue;
        }
        std::string text = describe(*findings.front());
        if (findings.size() > 1)
            text += " (and " + counted(findings.size() - 1, "more place", "more places") + ')';
        report.warnings.push_back(std::move(text));
    }
}

} // namespace

void prepareForWriter(const std::string& file, const ConvertOptions& options, SrcWriterInput& input,
                      ConvertReport& report, std::vector<kel::prepare::ReachedError>& errors) {
    report.target = options.target.value_or(Target::UNCOMPRESSED);
    const bool isContainer = isContainerTarget(report.target);
    input.useCompressedPreset = report.target == Target::PRESET_CMP1;

    keepTriangles(file, options, isContainer, input, report);
    transform(file, options, input, report);
    if (options.optimize) {
        kel::prepare::OptimizeReport optimized;
        input = kel::prepare::optimizeForGpu(input, &optimized);
        report.notes.push_back("reordered " + counted(optimized.meshes, "mesh", "meshes") + " for GPUs");
    }
    if (isContainer) {
        keepStoredAttributes(input, report);
        keepAttributesApart(input, report);
        reportTransparency(input, report);
        fitOrCheck(file, options, input, report);
    } else {
        splitForShortIndices(file, input, report);
        chooseMode(options, input, report, errors);
    }
    refuseProblems(file, options, input, report);
}

std::uint64_t storedBytes(const kel::mesh::Mesh& mesh, Target target) {
    const bool isContainer = isContainerTarget(target);
    const auto indices = mesh.getIndexBuffer();
    const std::size_t indexSize = isContainer && indices && indices->getElementSizeInBytes() > 2 ? 4 : 2;
    std::uint64_t bytes = indices ? indices->getElementCount() * indexSize : 0;

    const auto normals = mesh.getAttributeBuffer("normal");
    const auto positions = mesh.getAttributeBuffer("position");
    if (target == Target::POSITION_NORMAL_COMPRESSED && positions && normals && normals->isVec3f())
        return bytes + positions->getElementCount() * 8;

    const auto& precision =
        kel::src::detail::getSRCEncodingPreset(target == Target::PRESET_CMP1 ? "CMP1" : "default").precision;
    for (std::size_t i = 0; i < mesh.getNumAttributeBuffers(); ++i) {
        const auto buffer = mesh.getAttributeBuffer(i);
        const std::string name = buffer->getAttributeName();
        std::uint64_t elementSize = buffer->getElementSizeInBytes();
        if (isContainer) {
            elementSize = buffer->getComponentCountPerElement() * ((precision.at(name) + 7) / 8);
        } else if (target != Target::UNCOMPRESSED && name == "position") {
            elementSize = 6;
        }
        bytes += buffer->getElementCount() * elementSize;
    }
    return bytes;
}

} // namespace kelsrc::cli
