#include "Convert.h"

#include "AtomicFile.h"
#include "Messages.h"
#include "Status.h"

#include <kel/material/MaterialClassic.h>
#include <kel/prepare/ContainerAttributes.h>
#include <kel/prepare/FitToRange.h>
#include <kel/prepare/MeshName.h>
#include <kel/src/default_writer/DefaultSrcWriter.h>
#include <kel/src/encoding/EncodingPresets.h>

#include <algorithm>
#include <map>
#include <new>
#include <set>
#include <utility>

namespace kelsrc::cli {

namespace {

using kel::src::SrcWriterInput;

constexpr std::size_t PREAMBLE_SIZE = 12;
constexpr std::size_t NAMES_SHOWN = 5;

const char* presetName(Preset preset) {
    return preset == Preset::CMP1 ? "CMP1" : "default";
}

/// How a mesh is called in a message.
std::string nameForPeople(const SrcWriterInput& input, std::size_t position) {
    const std::string name = kel::prepare::meshName(input, input.meshes[position]);
    const std::string number = "mesh " + std::to_string(position);
    return name.empty() ? number : '"' + name + "\" (" + number + ')';
}

std::string joined(const std::vector<std::string>& parts) {
    std::string text;
    for (std::size_t i = 0; i < std::min(parts.size(), NAMES_SHOWN); ++i)
        text += (i == 0 ? "" : ", ") + parts[i];
    if (parts.size() > NAMES_SHOWN) text += " and " + std::to_string(parts.size() - NAMES_SHOWN) + " more";
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

std::size_t verticesOf(const kel::mesh::Mesh& mesh) {
    const auto positions = mesh.getAttributeBuffer("position");
    return positions ? positions->getElementCount() : 0;
}

kel::importer::ImportResult import(const std::filesystem::path& file, const ConvertOptions& options,
                                   const StageCallback& onStage) {
    kel::importer::ImportOptions importOptions;
    importOptions.onBadGeometry = options.onBadGeometry;
    importOptions.progress = [&](const char* stage, double done) {
        onStage(stage, done);
        return true;
    };
    try {
        return kel::importer::importModel(file, importOptions);
    } catch (const kel::importer::ImportError& error) {
        const bool canDrop = error.code() == "non-finite-positions";
        throw Failure(STATUS_INPUT, "", error.what(),
                      canDrop ? "Give --on-bad-geometry=drop to leave out the primitives that use them."
                              : "");
    }
}

/// The container writer labels every mesh as triangles, so no other may reach it.
void keepTriangles(const std::string& file, const ConvertOptions& options, SrcWriterInput& input,
                   ConvertReport& report) {
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
        throw Failure(STATUS_INPUT, file, "there is no mesh of triangles: " + joined(refused),
                      "This way of writing can only store triangles.");
    }
    if (!options.onlyTriangles) {
        throw Failure(STATUS_INPUT, file,
                      "only meshes of triangles can be written, but here " +
                          std::string(refused.size() == 1 ? "is " : "are ") + joined(refused),
                      "Give --only-triangles to leave such meshes out.");
    }
    for (const auto& [kind, count] : leftOut)
        report.dropped.push_back({"meshes of " + kind, count, "--only-triangles"});
    input.meshes = std::move(kept);
}

void keepStoredAttributes(const ConvertOptions& options, SrcWriterInput& input, ConvertReport& report) {
    std::vector<kel::prepare::UnstoredAttribute> removed;
    input = kel::prepare::keepStoredAttributes(input, &removed);
    for (const auto& entry : removed) {
        report.dropped.push_back(
            {"\"" + entry.attribute + "\" attributes", entry.meshes,
             "the preset \"" + std::string(presetName(options.preset)) + "\" has no place for " +
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
    if (count != 0) report.dropped.push_back({"transparencies", count, "materials are written without one"});
}

void fitOrCheck(const std::string& file, const ConvertOptions& options, SrcWriterInput& input,
                ConvertReport& report) {
    if (options.preset != Preset::CMP1) return;
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

std::uint64_t bytesOf(const kel::mesh::Mesh& mesh, const kel::src::detail::SRCEncodingConfig& config) {
    const auto indices = mesh.getIndexBuffer();
    std::uint64_t bytes = indices->getElementCount() * (indices->getElementSizeInBytes() <= 2 ? 2 : 4);
    for (std::size_t i = 0; i < mesh.getNumAttributeBuffers(); ++i) {
        const auto buffer = mesh.getAttributeBuffer(i);
        const std::uint32_t bits = config.precision.at(buffer->getAttributeName());
        bytes += buffer->getElementCount() * buffer->getComponentCountPerElement() * ((bits + 7) / 8);
    }
    return bytes;
}

std::uint32_t littleEndian(const std::string& bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

/// The last look before the file takes the place of an older one.
void checkWritten(AtomicFile& file, const std::string& name, std::uint64_t size, std::uint64_t payload) {
    const std::string preamble = file.firstBytes(PREAMBLE_SIZE);
    if (preamble.empty()) return; // a device or a pipe
    if (preamble.size() < PREAMBLE_SIZE || littleEndian(preamble, 0) != 23 ||
        littleEndian(preamble, 4) != 42 || PREAMBLE_SIZE + littleEndian(preamble, 8) + payload != size) {
        throw Failure(STATUS_NOT_WRITTEN, name, "what was written is not a whole SRC file",
                      "Write to another disk; if it happens again, please report it.");
    }
}

} // namespace

ConvertReport convert(const std::filesystem::path& inputFile, const std::filesystem::path& outputFile,
                      const ConvertOptions& options, const StageCallback& stageCallback) {
    const StageCallback onStage = stageCallback ? stageCallback : [](const std::string&, double) {};
    const std::string name = inputFile.string();
    if (isSameFile(inputFile, outputFile)) {
        throw Failure(STATUS_NOT_WRITTEN, outputFile.string(), "is the model itself, which would be lost",
                      "Choose another name for the output.");
    }
    AtomicFile::check(outputFile);

    ConvertReport report;
    kel::importer::ImportResult imported = import(inputFile, options, onStage);
    SrcWriterInput input = std::move(imported.input);
    report.format = std::move(imported.report.format);
    report.dropped = std::move(imported.report.dropped);
    report.notes = std::move(imported.report.notes);

    onStage("preparing", -1.0);
    input.useCompressedPreset = options.preset == Preset::CMP1;
    keepTriangles(name, options, input, report);
    keepStoredAttributes(options, input, report);
    keepAttributesApart(input, report);
    reportTransparency(input, report);
    fitOrCheck(name, options, input, report);

    const auto& config = kel::src::detail::getSRCEncodingPreset(presetName(options.preset));
    std::uint64_t payload = 0;
    report.meshes = input.meshes.size();
    for (const auto& mesh : input.meshes) {
        const std::uint64_t bytes = bytesOf(*mesh, config);
        payload += bytes;
        report.triangles += mesh->getNumPrimitives();
        report.vertices += verticesOf(*mesh);
        if (options.list) {
            report.written.push_back(
                {kel::prepare::meshName(input, mesh), mesh->getNumPrimitives(), verticesOf(*mesh), bytes});
        }
    }

    onStage("writing", 0.0);
    AtomicFile file(outputFile);
    file.onProgress([&](std::uint64_t bytes) {
        onStage("writing", static_cast<double>(bytes) / static_cast<double>(payload + 1));
    });
    try {
        kel::src::detail::writeMeshSrcDefault(input, file.stream());
    } catch (const std::overflow_error&) {
        throw Failure(STATUS_INPUT, name,
                      "a number that is not finite would have to stand in the file's header",
                      "Look for infinite or NaN numbers in its materials and positions.");
    }
    report.bytes = file.flush();
    checkWritten(file, outputFile.string(), report.bytes, payload);
    file.commit();
    return report;
}

} // namespace kelsrc::cli
