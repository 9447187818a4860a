#include "commands/ConvertOutput.h"

#include "terminal/JsonOutput.h"
#include "terminal/Table.h"

#include <ostream>

namespace kelsrc::cli {

namespace {

using kel::convert::WrittenMesh;
using kel::prepare::ReachedError;

/// What the encoding costs, and what was rounded before: the sum is a bound.
std::string errorText(const FileReport& report) {
    const double position = report.error->position + report.sourceError;
    if (report.error->position != 0.0 || report.error->normalDegrees != 0.0)
        return "largest error: positions " + shortNumber(position, 3) + ", normals " +
               shortNumber(report.error->normalDegrees, 3) + " degrees";
    if (position != 0.0) return "stored as the nearest floats: positions within " + shortNumber(position, 3);
    return report.roundedNormals == 0 ? "positions and normals are exact"
                                      : "positions are exact, normals are the nearest floats";
}

std::string verifiedText(const kel::convert::VerifiedError& error) {
    if (error.isExact) return "verified: every number is that of the model";
    std::string text = "verified: positions within " + shortNumber(error.position, 3) + " of the model";
    const auto add = [&](double amount, const char* what, const char* unit) {
        if (amount > 0) text += std::string(", ") + what + " within " + shortNumber(amount, 3) + unit;
    };
    add(error.normalDegrees, "normals", " degrees");
    add(error.color, "colours", "");
    add(error.texcoord, "texture coordinates", "");
    return text;
}

picojson::value json(const kel::convert::VerifiedError& error) {
    return picojson::value(picojson::object{{"exact", picojson::value(error.isExact)},
                                            {"position", jsonNumber(error.position)},
                                            {"normalDegrees", jsonNumber(error.normalDegrees)},
                                            {"color", jsonNumber(error.color)},
                                            {"texcoord", jsonNumber(error.texcoord)}});
}

picojson::value json(const ReachedError& error) {
    picojson::object object;
    // A mode may be asked for that cannot hold the positions at all: null, then.
    object["position"] = jsonNumber(error.position);
    object["normalDegrees"] = jsonNumber(error.normalDegrees);
    return picojson::value(object);
}

picojson::value json(const WrittenMesh& mesh) {
    picojson::object object;
    object["name"] = jsonText(mesh.name);
    addCounts(object, mesh.counts);
    object.erase("meshes");
    object["bytes"] = jsonCount(mesh.bytes);
    if (mesh.error) object["errorReached"] = json(*mesh.error);
    return picojson::value(object);
}

void addReport(picojson::object& object, const FileReport& report, bool withList) {
    object["format"] = jsonText(report.format);
    if (!report.takenAsIs) {
        object["writer"] = jsonText(isContainerTarget(report.target) ? "container" : "public");
        object[isContainerTarget(report.target) ? "preset" : "mode"] = jsonText(targetName(report.target));
    }
    addCounts(object, report.counts);
    object["bytesIn"] = jsonCount(report.bytesIn);
    object["bytesOut"] = jsonCount(report.bytesOut);
    if (report.bytesSrc) object["bytesSrc"] = jsonCount(*report.bytesSrc);
    if (report.error) object["errorReached"] = json(*report.error);
    if (report.verified) object["verified"] = json(*report.verified);
    if (report.seamless)
        object["seamless"] =
            picojson::value(picojson::object{{"meshes", jsonCount(report.seamless->meshes)},
                                             {"pointClouds", jsonCount(report.seamless->pointClouds)},
                                             {"sharedPositions", jsonCount(report.seamless->shared)},
                                             {"smallestStep", jsonNumber(report.seamless->smallestStep)},
                                             {"largestStep", jsonNumber(report.seamless->largestStep)}});
    object["sourceError"] = jsonNumber(report.sourceError);
    object["roundedNormals"] = jsonCount(report.roundedNormals);
    object["origin"] = jsonVector(report.origin);
    object["notes"] = jsonTexts(report.notes);
    object["warnings"] = jsonTexts(report.warnings);
    object["dropped"] = jsonList(report.dropped, [](const kel::importer::Dropped& entry) {
        return picojson::value(picojson::object{{"kind", jsonText(entry.kind)},
                                                {"count", jsonCount(entry.count)},
                                                {"detail", jsonText(entry.detail)}});
    });
    if (withList)
        object["list"] = jsonList(report.written, [](const WrittenMesh& mesh) { return json(mesh); });
}

} // namespace

std::string countsText(const kel::convert::GeometryCounts& counts) {
    std::string text =
        counted(counts.meshes, "mesh", "meshes") + ", " + counted(counts.triangles, "triangle", "triangles");
    if (counts.lines != 0) text += ", " + counted(counts.lines, "line", "lines");
    if (counts.points != 0) text += ", " + counted(counts.points, "point", "points");
    return text + ", " + counted(counts.vertices, "vertex", "vertices");
}

std::string lossesText(const std::vector<kel::importer::Dropped>& dropped,
                       const std::vector<std::string>& notes) {
    std::string text;
    for (const auto& entry : dropped)
        text += "\n  dropped " + printable(entry.kind) + ": " + std::to_string(entry.count) +
                (entry.detail.empty() ? "" : " (" + printable(entry.detail) + ')');
    for (const auto& note : notes)
        text += "\n  note: " + printable(note);
    return text;
}

std::string reportText(const Job& job, const FileReport& report) {
    std::string text = printable(job.destination.shownName()) + ": " + countsText(report.counts) + ", " +
                       counted(report.bytesOut, "byte", "bytes");
    if (report.bytesSrc) text += " with " + counted(*report.bytesSrc, "byte", "bytes") + " of SRC inside";
    if (!report.takenAsIs) text += std::string(" (") + targetName(report.target) + ')';
    if (report.error) text += "\n  " + errorText(report);
    if (report.verified) text += "\n  " + verifiedText(*report.verified);
    if (report.origin != std::array<double, 3>{})
        text += "\n  positions are stored about the origin " + jsonVector(report.origin).serialize();
    return text + lossesText(report.dropped, report.notes);
}

void printList(std::ostream& out, const std::vector<WrittenMesh>& meshes) {
    Table table({"mesh", "triangles", "lines", "points", "vertices", "bytes", "error"});
    kel::convert::GeometryCounts all;
    bool errors = false;
    for (const auto& mesh : meshes) {
        all += mesh.counts;
        errors = errors || (mesh.error && mesh.error->position != 0.0);
        table.add({mesh.name.empty() ? "(no name)" : printable(mesh.name),
                   std::to_string(mesh.counts.triangles), std::to_string(mesh.counts.lines),
                   std::to_string(mesh.counts.points), std::to_string(mesh.counts.vertices),
                   std::to_string(mesh.bytes), mesh.error ? shortNumber(mesh.error->position, 3) : ""});
    }
    if (!errors) table.removeColumn("error");
    if (all.points == 0) table.removeColumn("points");
    if (all.lines == 0) table.removeColumn("lines");
    table.print(out);
}

picojson::value toJson(const Job& job, const Outcome& outcome, bool withList) {
    picojson::object object;
    object["input"] = jsonText(job.source.stream ? "-" : job.source.file.string());
    object["output"] = jsonText(job.destination.stream ? "-" : job.destination.file.string());
    object["seconds"] = picojson::value(outcome.seconds);
    switch (outcome.state) {
    case Outcome::CONVERTED:
        object["status"] = jsonCount(STATUS_OK);
        addReport(object, outcome.report, withList);
        break;
    case Outcome::FAILED: {
        object["status"] = jsonCount(static_cast<std::uint64_t>(outcome.failure->status()));
        const std::string& subject = outcome.failure->subject();
        object["error"] = jsonText((subject.empty() ? "" : subject + ": ") + outcome.failure->what());
        object["remedy"] = jsonText(outcome.failure->remedy());
        break;
    }
    case Outcome::NOT_TRIED:
        object["status"] = picojson::value();
        break;
    }
    return picojson::value(object);
}

} // namespace kelsrc::cli
