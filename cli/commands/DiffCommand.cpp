#include "commands/Command.h"

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
constexpr std::size_t DIFFERENCES_SHOWN = 20;

struct DiffArguments {
    std::string a, b;
    CompareLimits limits;
    std::vector<std::string> ignored;
    ImportLimitArguments importLimits;
    bool meshes = false, json = false;
};

/// Limits by their options.
struct LimitOption {
    const char* name;
    std::optional<double> CompareLimits::*limit;
    const char* help;
    const char* unit;
};
constexpr LimitOption LIMIT_OPTIONS[] = {
    {"--max-error", &CompareLimits::position, "Distance that positions may be apart", "DISTANCE"},
    {"--max-normal", &CompareLimits::normalDegrees, "Angle that normals may be apart", "DEGREES"},
    {"--max-color", &CompareLimits::color, "Difference that a component of a colour may have", "NUMBER"},
    {"--max-texcoord", &CompareLimits::texcoord, "Difference that a texture coordinate may have", "NUMBER"},
};

const char* comparedText(ComparedBy by) {
    return by == ComparedBy::ORDER ? "order" : by == ComparedBy::MATCH ? "match" : "surface";
}

// ---- For people -----------------------------------------------------------------------------------------

std::string nameText(const std::string& name) {
    return name.empty() ? "(no name)" : '"' + printable(name) + '"';
}

std::string vectorText(const std::array<double, 3>& vector) {
    return shortNumber(vector[0], 8) + ", " + shortNumber(vector[1], 8) + ", " + shortNumber(vector[2], 8);
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
    row("boundary edges", report.a.topology.boundaryEdges, report.b.topology.boundaryEdges, true);
    row("components", report.a.topology.components, report.b.topology.components, true);
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
        if (report.maxColor > 0)
            out << "colours: largest difference " << shortNumber(report.maxColor) << '\n';
        if (report.maxTexcoord > 0)
            out << "texture coordinates: largest difference " << shortNumber(report.maxTexcoord) << '\n';
        const auto bySurface = std::count_if(report.pairs.begin(), report.pairs.end(),
                                             [](const auto& pair) { return pair.by == ComparedBy::SURFACE; });
        if (bySurface != 0)
            out << "measured from surface to surface: " << bySurface << " of " << report.pairs.size() << '\n';
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
                    std::to_string(pair.meshesB), comparedText(pair.by), shortNumber(pair.maxDistance),
                    shortNumber(pair.rmsDistance), shortNumber(pair.maxAngle, 3)});
    meshes.print(out);
}

void printDifferences(std::ostream& out, const CompareReport& report) {
    if (report.same()) {
        out << "no differences beyond the limits\n";
        return;
    }
    out << counted(report.differences.size(), "difference", "differences") << " beyond the limits:\n";
    for (std::size_t i = 0; i < std::min(report.differences.size(), DIFFERENCES_SHOWN); ++i)
        out << "  " << printable(describe(report.differences[i])) << '\n';
    if (report.differences.size() > DIFFERENCES_SHOWN)
        out << "  and " << report.differences.size() - DIFFERENCES_SHOWN << " more, which --json lists\n";
}

// ---- For programs ---------------------------------------------------------------------------------------

picojson::value toJson(const ComparedSide& side, const std::string& file) {
    picojson::object object;
    object["file"] = jsonText(file);
    addCounts(object, side.counts);
    object["bounds"] = jsonBounds(side.bounds);
    object["boundaryEdges"] = jsonCount(side.topology.boundaryEdges);
    object["components"] = jsonCount(side.topology.components);
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
                                            {"compared", picojson::value(comparedText(pair.by))},
                                            {"maxDistance", jsonNumber(pair.maxDistance)},
                                            {"rmsDistance", jsonNumber(pair.rmsDistance)},
                                            {"maxNormalDegrees", jsonNumber(pair.maxAngle)},
                                            {"maxColor", jsonNumber(pair.maxColor)},
                                            {"maxTexcoord", jsonNumber(pair.maxTexcoord)}});
}

picojson::value toJson(const Difference& difference) {
    picojson::object object;
    object["kind"] = jsonText(kindName(difference.kind));
    object["mesh"] = jsonText(difference.mesh);
    object["what"] = jsonText(difference.what);
    object["amount"] = jsonNumber(difference.amount);
    object["limit"] = jsonNumber(difference.limit);
    object["count"] = jsonCount(difference.count);
    object["place"] = picojson::value();
    if (difference.place)
        object["place"] = jsonList(*difference.place, [](double number) { return jsonNumber(number); });
    object["text"] = jsonText(describe(difference));
    return picojson::value(std::move(object));
}

picojson::value toJson(const CompareReport& report, const DiffArguments& arguments) {
    picojson::object object;
    object["a"] = toJson(report.a, arguments.a);
    object["b"] = toJson(report.b, arguments.b);
    object["compared"] = jsonCount(report.pairs.size());
    object["maxDistance"] = jsonNumber(report.maxDistance);
    object["rmsDistance"] = jsonNumber(report.rmsDistance);
    object["maxNormalDegrees"] = jsonNumber(report.maxAngle);
    object["maxColor"] = jsonNumber(report.maxColor);
    object["maxTexcoord"] = jsonNumber(report.maxTexcoord);
    object["worstMesh"] =
        report.pairs.empty() ? picojson::value() : jsonText(report.pairs[report.worst].name);
    object["onlyA"] = jsonTexts(report.missing);
    object["onlyB"] = jsonTexts(report.added);
    object["attributes"] = toJson(report.attributes, "name");
    object["materials"] = toJson(report.materials, "value");
    object["metadata"] = toJson(report.metadata, "key");
    object["same"] = picojson::value(report.same());
    object["differences"] =
        jsonList(report.differences, [](const Difference& difference) { return toJson(difference); });
    const auto& maxError = arguments.limits.position;
    object["withinMaxError"] = maxError
                                   ? picojson::value(report.sameMeshes() && report.maxDistance <= *maxError)
                                   : picojson::value();
    if (arguments.meshes)
        object["meshes"] = jsonList(report.pairs, [](const ComparedPair& pair) { return toJson(pair); });
    return picojson::value(std::move(object));
}

CompareLimits limitsOf(const DiffArguments& arguments) {
    CompareLimits limits = arguments.limits;
    for (const LimitOption& option : LIMIT_OPTIONS) {
        const auto& limit = limits.*option.limit;
        if (limit && !(*limit >= 0.0 && std::isfinite(*limit)))
            throw Failure(STATUS_USAGE, "", std::string(option.name) + " must be a finite number, 0 or more",
                          "It is the largest difference that is accepted.");
    }
    std::vector<std::string> names;
    for (const DifferenceKind kind : allDifferenceKinds())
        names.push_back(kindName(kind));
    for (const std::string& name : arguments.ignored) {
        const auto found = std::find(names.begin(), names.end(), name);
        if (found == names.end())
            throw Failure(STATUS_USAGE, "",
                          "--ignore: \"" + printable(name) + "\" is nothing that is compared",
                          "Choose from " + listed(names, names.size()) + '.');
        limits.ignored.push_back(allDifferenceKinds()[static_cast<std::size_t>(found - names.begin())]);
    }
    return limits;
}

int runDiff(const DiffArguments& arguments, const Streams& streams) {
    const CompareLimits limits = limitsOf(arguments);
    const kel::importer::ImportLimits importLimits = limitsOf(arguments.importLimits);
    Output output(streams);
    std::ostream& out = output.out;
    CompareReport report;
    try {
        const CapturedOutput captured;
        const ComparableScene a = openComparable(arguments.a, importLimits);
        const ComparableScene b = openComparable(arguments.b, importLimits);
        report = compare(a, b, limits);
    } catch (const std::bad_alloc&) {
        throw Failure(STATUS_INPUT, arguments.a, "comparing needs more memory than there is");
    }
    if (arguments.json) {
        out << toJson(report, arguments).serialize(true);
    } else {
        print(out, report, arguments.meshes);
        printDifferences(out, report);
    }
    return report.same() ? STATUS_OK : STATUS_FINDINGS;
}

} // namespace

Action addDiff(CLI::App& app) {
    const auto arguments = std::make_shared<DiffArguments>();
    CLI::App* verb = app.add_subcommand("diff", "Compare two files");
    verb->add_option("A", arguments->a, "An SRC file, or a model in any format that convert reads")
        ->required();
    verb->add_option("B", arguments->b, "The same")->required();
    for (const LimitOption& option : LIMIT_OPTIONS)
        verb->add_option(option.name, arguments->limits.*option.limit, option.help)->option_text(option.unit);
    verb->add_option("--ignore", arguments->ignored,
                     "Kinds of differences that do not count, e.g. names,metadata")
        ->delimiter(',')
        ->option_text("KIND,...");
    addImportLimits(*verb, arguments->importLimits);
    addMeshes(*verb, arguments->meshes);
    addJson(*verb, arguments->json);
    verb->footer(R"(
Tells what differs: surfaces, the way triangles face, which triangles there are, normals, colours, texture
coordinates, other attributes, materials, metadata and names. Values are decoded, and what was fitted into a preset's
box is moved back. A limit that is not given is what the encoding of the two files may lose: nothing for floats, a step
for codes. The status is 1 when anything differs by more, else 0.)");
    return [arguments](const Streams& streams) { return runDiff(*arguments, streams); };
}

} // namespace kelsrc::cli
