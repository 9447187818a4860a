#include "commands/Command.h"
#include "files/OutputFile.h"

#include "terminal/CapturedOutput.h"
#include "terminal/JsonOutput.h"
#include "terminal/Table.h"
#include <kel/convert/Compare.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <new>
#include <optional>
#include <utility>

namespace kelsrc::cli {

namespace {

using namespace kel::convert;

constexpr std::size_t NAMES_SHOWN = 10;

struct DiffArguments {
    std::string a, b;
    std::optional<double> maxError;
    bool meshes = false, json = false;
};

// ---- For people -----------------------------------------------------------------------------------------

std::string nameText(const std::string& name) {
    return name.empty() ? "(no name)" : '"' + printable(name) + '"';
}

std::string vectorText(const std::array<double, 3>& vector) {
    return shortNumber(vector[0], 6) + ", " + shortNumber(vector[1], 6) + ", " + shortNumber(vector[2], 6);
}

void printNames(std::ostream& out, const char* what, std::vector<std::string> names) {
    if (names.empty()) return;
    std::transform(names.begin(), names.end(), names.begin(), nameText);
    out << what << " (" << names.size() << "): " << listed(names, NAMES_SHOWN) << '\n';
}

void printCounts(std::ostream& out, const char* what, const char* whole,
                 const std::map<std::string, DifferenceCount>& counts) {
    for (const auto& [name, count] : counts) {
        out << what << (name.empty() ? std::string(whole) : nameText(name)) << ':';
        const char* separator = " ";
        const auto add = [&](std::size_t meshes, const char* text) {
            if (meshes == 0) return;
            out << separator << text << ' ' << counted(meshes, "mesh", "meshes");
            separator = ", ";
        };
        add(count.onlyA, "only in A, on");
        add(count.onlyB, "only in B, on");
        add(count.differ, "differs on");
        if (count.largest != 0) out << ", by up to " << shortNumber(count.largest);
        out << '\n';
    }
}

void print(std::ostream& out, const CompareReport& report, bool listMeshes) {
    Table table({"", "A", "B"});
    const auto row = [&](const char* what, std::size_t a, std::size_t b, bool always) {
        if (always || a != 0 || b != 0) table.add({what, std::to_string(a), std::to_string(b)});
    };
    row("meshes", report.a.counts.meshes, report.b.counts.meshes, true);
    row("triangles", report.a.counts.triangles, report.b.counts.triangles, true);
    row("lines", report.a.counts.lines, report.b.counts.lines, false);
    row("points", report.a.counts.points, report.b.counts.points, false);
    row("vertices", report.a.counts.vertices, report.b.counts.vertices, true);
    table.print(out);
    for (const auto* side : {&report.a, &report.b}) {
        if (side->bounds.isEmpty()) continue;
        out << "bounds of " << (side == &report.a ? "A: " : "B: ") << vectorText(side->bounds.min) << " to "
            << vectorText(side->bounds.max) << '\n';
    }
    if (!report.pairs.empty()) {
        const double diagonal = report.a.bounds.diagonal();
        out << "positions: largest distance " << shortNumber(report.maxDistance) << ", RMS "
            << shortNumber(report.rmsDistance);
        if (report.maxDistance > 0 && diagonal > 0)
            out << "; the largest is " << shortNumber(report.maxDistance / diagonal, 3)
                << " of the diagonal, in mesh " << nameText(report.pairs[report.worst].name);
        out << "\nnormals: largest angle " << shortNumber(report.maxAngle, 3) << " degrees\n";
        const auto nearest = std::count_if(report.pairs.begin(), report.pairs.end(),
                                           [](const ComparedPair& pair) { return !pair.byOrder; });
        if (nearest != 0)
            out << "compared by nearest vertices, not in order: " << nearest << " of " << report.pairs.size()
                << '\n';
    }
    printNames(out, "meshes only in A", report.missing);
    printNames(out, "meshes only in B", report.added);
    printCounts(out, "attribute ", "", report.attributes);
    std::map<std::string, DifferenceCount> values = report.materials, whole;
    if (auto node = values.extract("")) whole.insert(std::move(node)); // stands for whole materials
    printCounts(out, "material", "", whole);
    printCounts(out, "material value ", "", values);
    printCounts(out, "metadata ", "\"\"", report.metadata);
    if (!listMeshes) return;
    Table meshes({"mesh", "of A", "of B", "compared", "largest", "RMS", "degrees"});
    for (const auto& pair : report.pairs)
        meshes.add({pair.name.empty() ? "(no name)" : printable(pair.name), std::to_string(pair.meshesA),
                    std::to_string(pair.meshesB), pair.byOrder ? "in order" : "nearest",
                    shortNumber(pair.maxDistance), shortNumber(pair.rmsDistance),
                    shortNumber(pair.maxAngle, 3)});
    meshes.print(out);
}

// ---- For programs ---------------------------------------------------------------------------------------

picojson::value toJson(const ComparedSide& side, const std::string& file) {
    picojson::object object;
    object["file"] = jsonText(file);
    addCounts(object, side.counts);
    object["bounds"] = jsonBounds(side.bounds);
    return picojson::value(std::move(object));
}

picojson::value toJson(const std::map<std::string, DifferenceCount>& counts, const char* key) {
    return jsonList(counts, [&](const auto& entry) {
        const auto& [name, count] = entry;
        return picojson::value(picojson::object{{key, jsonText(name)},
                                                {"onlyA", jsonCount(count.onlyA)},
                                                {"onlyB", jsonCount(count.onlyB)},
                                                {"differ", jsonCount(count.differ)},
                                                {"largest", jsonNumber(count.largest)}});
    });
}

picojson::value toJson(const ComparedPair& pair) {
    return picojson::value(picojson::object{{"name", jsonText(pair.name)},
                                            {"meshesA", jsonCount(pair.meshesA)},
                                            {"meshesB", jsonCount(pair.meshesB)},
                                            {"compared", picojson::value(pair.byOrder ? "order" : "nearest")},
                                            {"maxDistance", jsonNumber(pair.maxDistance)},
                                            {"rmsDistance", jsonNumber(pair.rmsDistance)},
                                            {"maxNormalDegrees", jsonNumber(pair.maxAngle)}});
}

picojson::value toJson(const CompareReport& report, const DiffArguments& arguments, bool within) {
    picojson::object object;
    object["a"] = toJson(report.a, arguments.a);
    object["b"] = toJson(report.b, arguments.b);
    object["compared"] = jsonCount(report.pairs.size());
    object["maxDistance"] = jsonNumber(report.maxDistance);
    object["rmsDistance"] = jsonNumber(report.rmsDistance);
    object["maxNormalDegrees"] = jsonNumber(report.maxAngle);
    object["worstMesh"] =
        report.pairs.empty() ? picojson::value() : jsonText(report.pairs[report.worst].name);
    object["onlyA"] = jsonTexts(report.missing);
    object["onlyB"] = jsonTexts(report.added);
    object["attributes"] = toJson(report.attributes, "name");
    object["materials"] = toJson(report.materials, "value");
    object["metadata"] = toJson(report.metadata, "key");
    object["withinMaxError"] = arguments.maxError ? picojson::value(within) : picojson::value();
    if (arguments.meshes)
        object["meshes"] = jsonList(report.pairs, [](const ComparedPair& pair) { return toJson(pair); });
    return picojson::value(std::move(object));
}

int runDiff(const DiffArguments& arguments, const Streams& streams) {
    if (arguments.maxError && !(*arguments.maxError >= 0.0 && std::isfinite(*arguments.maxError)))
        throw Failure(STATUS_USAGE, "", "--max-error must be a finite number, 0 or more",
                      "It is a distance in the units of the files.");
    Output output(streams);
    std::ostream& out = output.out;
    CompareReport report;
    try {
        const CapturedOutput captured;
        const kel::convert::ProcessHooks hooks = signalHooks();
        const ComparableScene a = openComparable(arguments.a, hooks);
        const ComparableScene b = openComparable(arguments.b, hooks);
        report = compare(a, b);
    } catch (const std::bad_alloc&) {
        throw Failure(STATUS_INPUT, arguments.a, "comparing needs more memory than there is");
    }
    const bool within =
        !arguments.maxError || (report.sameMeshes() && report.maxDistance <= *arguments.maxError);
    if (arguments.json) {
        out << toJson(report, arguments, within).serialize(true);
    } else {
        print(out, report, arguments.meshes);
        if (arguments.maxError)
            out << (within                ? "within --max-error\n"
                    : report.sameMeshes() ? "more than --max-error apart\n"
                                          : "not within --max-error: meshes are missing on one side\n");
    }
    return within ? STATUS_OK : STATUS_FINDINGS;
}

} // namespace

Action addDiff(CLI::App& app) {
    const auto arguments = std::make_shared<DiffArguments>();
    CLI::App* verb = app.add_subcommand("diff", "Compare two files as geometry");
    verb->add_option("A", arguments->a, "An SRC file, or a model in any format that Assimp reads")
        ->required();
    verb->add_option("B", arguments->b, "The same")->required();
    verb->add_option("--max-error", arguments->maxError,
                     "Status 1 when positions are farther apart than this, or meshes are missing")
        ->option_text("DISTANCE");
    addMeshes(*verb, arguments->meshes);
    addJson(*verb, arguments->json);
    verb->footer(R"(
Tells what a conversion lost: counts, bounds, distances of positions, angles between normals, meshes, attributes,
material values and metadata that are not on both sides. Values are decoded, and what was fitted into a preset's
box is moved back. Without --max-error the status is 0 whatever differs.)");
    return [arguments](const Streams& streams) { return runDiff(*arguments, streams); };
}

} // namespace kelsrc::cli
