#include "commands/Command.h"
#include "commands/ConvertOutput.h"

#include "terminal/JsonOutput.h"
#include "terminal/Table.h"
#include <kel/convert/Describe.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <sstream>
#include <utility>

namespace kelsrc::cli {

namespace {

using namespace kel::convert;

constexpr std::size_t MATERIALS_SHOWN = 10;
constexpr std::size_t KEYS_SHOWN = 20;
constexpr std::size_t BAR_WIDTH = 20;

struct InfoArguments {
    std::vector<std::string> files;
    bool meshes = false, json = false;
};

/// By SectionInfo::Purpose.
constexpr const char* PURPOSES[] = {"header", "indices", "attribute", "other"};

// ---- For people -----------------------------------------------------------------------------------------

constexpr int DIGITS = 6;

std::string vectorText(const std::array<double, 3>& vector, const char* separator, int digits = DIGITS) {
    std::string text;
    for (const double component : vector)
        text += (text.empty() ? "" : separator) + shortNumber(component, digits);
    return text;
}

/// As many digits as tell the box's corners apart when it is far from zero.
int digitsOf(const Bounds& bounds) {
    double largest = 0.0;
    for (std::size_t c = 0; c < 3; ++c)
        largest = std::max({largest, std::abs(bounds.min[c]), std::abs(bounds.max[c])});
    const double times = largest / bounds.diagonal();
    return times > 1.0 && std::isfinite(times) ? std::min(15, DIGITS + int(std::ceil(std::log10(times))))
                                               : DIGITS;
}

/// A vector that belongs to the box: writers widen flat boxes by next to nothing, which reads as 0 here.
std::string vectorText(std::array<double, 3> vector, const Bounds& bounds, const char* separator,
                       int digits = DIGITS) {
    for (double& component : vector) {
        if (std::abs(component) < bounds.diagonal() * 1e-7) component = 0.0;
    }
    return vectorText(vector, separator, digits);
}

/// The table, with a bar behind each row but the first.
void printSections(std::ostream& out, const FileInfo& info) {
    Table table({"bytes by purpose", "bytes", "share", "stored as", "step"});
    std::vector<std::size_t> bars;
    for (const auto& section : info.sections) {
        const double share =
            info.bytes == 0 ? 0.0 : static_cast<double>(section.bytes) / static_cast<double>(info.bytes);
        bars.push_back(
            std::min(BAR_WIDTH, static_cast<std::size_t>(share * static_cast<double>(BAR_WIDTH) + 0.5)));
        table.add({"  " + (section.purpose == SectionInfo::ATTRIBUTE ? printable(section.name)
                                                                     : PURPOSES[section.purpose]),
                   std::to_string(section.bytes), std::to_string(static_cast<int>(share * 100 + 0.5)) + " %",
                   section.encoding, section.step ? shortNumber(*section.step) : ""});
    }
    std::ostringstream rows;
    table.print(rows);
    std::istringstream lines(rows.str());
    std::string line;
    for (std::size_t i = 0; std::getline(lines, line); ++i) {
        if (i > 0 && bars[i - 1] > 0) line += "  " + std::string(bars[i - 1], '#');
        line.erase(line.find_last_not_of(' ') + 1);
        out << line << '\n';
    }
}

void printMaterials(std::ostream& out, const FileInfo& info) {
    if (info.materials.empty()) return;
    Table table({"materials", "meshes", "diffuse color", "technique"});
    for (std::size_t i = 0; i < std::min(info.materials.size(), MATERIALS_SHOWN); ++i) {
        const auto& material = info.materials[i];
        table.add({"  " + printable(material.id), std::to_string(material.meshes),
                   material.diffuse.empty()
                       ? ""
                       : vectorText({material.diffuse[0], material.diffuse[1], material.diffuse[2]}, " "),
                   printable(material.technique)});
    }
    table.print(out);
    if (info.materials.size() > MATERIALS_SHOWN)
        out << "  and " << info.materials.size() - MATERIALS_SHOWN << " more\n";
}

void printKeys(std::ostream& out, const char* what, const std::vector<std::string>& keys) {
    if (!keys.empty()) out << what << ": " << listed(keys, KEYS_SHOWN) << '\n';
}

void printKeys(std::ostream& out, const FileInfo& info) {
    std::vector<std::string> document, meshes;
    for (const auto& key : info.documentKeys)
        document.push_back(printable(key));
    for (const auto& [key, users] : info.metadataKeys) {
        meshes.push_back(printable(key));
        if (users != info.counts.meshes)
            meshes.back() += " (" + std::to_string(users) + " of " + std::to_string(info.counts.meshes) + ')';
    }
    printKeys(out, "metadata of the file", document);
    printKeys(out, "metadata of meshes", meshes);
}

void printMeshes(std::ostream& out, const FileInfo& info) {
    Table table({"mesh", "id", "primitives", "of", "vertices", "bytes", "size", "material"});
    for (const auto& mesh : info.meshList) {
        table.add({mesh.name.empty() ? "(no name)" : printable(mesh.name), printable(mesh.id),
                   std::to_string(mesh.primitives()), mesh.kind, std::to_string(mesh.counts.vertices),
                   std::to_string(mesh.bytes),
                   mesh.bounds.isEmpty() ? "" : vectorText(mesh.bounds.size(), mesh.bounds, " x "),
                   printable(mesh.material)});
    }
    table.print(out);
}

void print(std::ostream& out, const std::string& name, const FileInfo& info, bool listMeshes) {
    out << printable(name) << ": " << countsText(info.counts) << ", " << counted(info.bytes, "byte", "bytes")
        << '\n';
    if (!info.bounds.isEmpty())
        out << "bounds: " << vectorText(info.bounds.min, info.bounds, ", ", digitsOf(info.bounds)) << " to "
            << vectorText(info.bounds.max, info.bounds, ", ", digitsOf(info.bounds)) << " (size "
            << vectorText(info.bounds.size(), info.bounds, " x ") << ")\n";
    if (info.origin)
        out << "origin: " << jsonVector(*info.origin).serialize() << ", added to the positions stored\n";
    printSections(out, info);
    printMaterials(out, info);
    printKeys(out, info);
    if (listMeshes) printMeshes(out, info);
}

// ---- For programs ---------------------------------------------------------------------------------------

picojson::value toJson(const SectionInfo& section) {
    picojson::object object;
    object["purpose"] = picojson::value(PURPOSES[section.purpose]);
    if (section.purpose == SectionInfo::ATTRIBUTE) object["name"] = jsonText(section.name);
    object["bytes"] = jsonCount(section.bytes);
    object["storedAs"] = jsonText(section.encoding);
    object["step"] = jsonNumber(section.step);
    return picojson::value(std::move(object));
}

picojson::value toJson(const MaterialInfo& material) {
    picojson::object object;
    object["id"] = jsonText(material.id);
    object["technique"] = jsonText(material.technique);
    object["meshes"] = jsonCount(material.meshes);
    if (!material.diffuse.empty())
        object["diffuseColor"] = jsonVector({material.diffuse[0], material.diffuse[1], material.diffuse[2]});
    return picojson::value(std::move(object));
}

picojson::value toJson(const MeshInfo& mesh) {
    return picojson::value(picojson::object{{"id", jsonText(mesh.id)},
                                            {"name", jsonText(mesh.name)},
                                            {"material", jsonText(mesh.material)},
                                            {"kind", jsonText(mesh.kind)},
                                            {"primitives", jsonCount(mesh.primitives())},
                                            {"vertices", jsonCount(mesh.counts.vertices)},
                                            {"bytes", jsonCount(mesh.bytes)},
                                            {"bounds", jsonBounds(mesh.bounds)}});
}

picojson::value toJson(const std::string& name, const FileInfo& info, bool listMeshes) {
    picojson::object object;
    object["file"] = jsonText(name);
    object["bytes"] = jsonCount(info.bytes);
    addCounts(object, info.counts);
    object["bounds"] = jsonBounds(info.bounds);
    object["origin"] = info.origin ? jsonVector(*info.origin) : picojson::value();
    const auto entryJson = [](const auto& entry) { return toJson(entry); };
    object["sections"] = jsonList(info.sections, entryJson);
    object["materials"] = jsonList(info.materials, entryJson);
    if (listMeshes) object["meshList"] = jsonList(info.meshList, entryJson);
    picojson::object keys;
    for (const auto& [key, meshes] : info.metadataKeys)
        keys[jsonText(key).get<std::string>()] = jsonCount(meshes);
    object["meshMetadata"] = picojson::value(std::move(keys));
    object["fileMetadata"] = jsonTexts(info.documentKeys);
    return picojson::value(std::move(object));
}

int runInfo(const InfoArguments& arguments, const Streams& streams) {
    Output output(streams);
    picojson::array reports;
    std::size_t failed = 0, shown = 0;
    for (const auto& path : arguments.files) {
        const std::string name = inputName(path);
        try {
            const auto file = openSrcFile(path, streams.in);
            const FileInfo info = describe(file, arguments.meshes);
            if (arguments.json) {
                reports.push_back(toJson(name, info, arguments.meshes));
            } else {
                if (shown != 0) output.out << '\n';
                print(output.out, name, info, arguments.meshes);
            }
            ++shown;
        } catch (...) {
            output.messages.error(currentFailure(name));
            ++failed;
        }
    }
    if (arguments.json) {
        picojson::object report;
        report["files"] = picojson::value(std::move(reports));
        output.out << picojson::value(std::move(report)).serialize(true);
    }
    return failed == 0 ? STATUS_OK : shown == 0 ? STATUS_INPUT : STATUS_FINDINGS;
}

} // namespace

Action addInfo(CLI::App& app) {
    const auto arguments = std::make_shared<InfoArguments>();
    CLI::App* verb = app.add_subcommand("info", "Show what SRC files hold");
    verb->add_option("FILE", arguments->files, "SRC files; - reads standard input")->required();
    addMeshes(*verb, arguments->meshes);
    addJson(*verb, arguments->json);
    verb->footer(R"(
Reads headers only, so it is fast on files of any size. "kelsrc validate" looks at the data.

"step" is the largest distance between neighbouring values, in the units of the model.)");
    return [arguments](const Streams& streams) { return runInfo(*arguments, streams); };
}

} // namespace kelsrc::cli
