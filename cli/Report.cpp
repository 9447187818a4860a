#include "Report.h"

#include "JsonOutput.h"
#include "Table.h"

#include <cstdio>
#include <ostream>
#include <utility>

namespace kelsrc::cli {

namespace {

using kel::prepare::ReachedError;

std::string describe(const ReachedError& error) {
    if (error.position == 0.0 && error.normalDegrees == 0.0) return "positions and normals are exact";
    return "largest error: positions " + shortNumber(error.position, 3) + ", normals " +
           shortNumber(error.normalDegrees, 3) + " degrees";
}

picojson::value json(const ReachedError& error) {
    picojson::object object;
    // A mode may be asked for that cannot hold the positions at all: null, then.
    object["position"] = jsonNumber(error.position);
    object["normalDegrees"] = jsonNumber(error.normalDegrees);
    return picojson::value(object);
}

picojson::value json(const std::vector<std::string>& texts) {
    picojson::array array;
    for (const auto& text : texts)
        array.push_back(jsonText(text));
    return picojson::value(array);
}

picojson::value json(const WrittenMesh& mesh) {
    picojson::object object;
    object["name"] = jsonText(mesh.name);
    object["triangles"] = jsonCount(mesh.triangles);
    object["lines"] = jsonCount(mesh.lines);
    object["points"] = jsonCount(mesh.points);
    object["vertices"] = jsonCount(mesh.vertices);
    object["bytes"] = jsonCount(mesh.bytes);
    if (mesh.error) object["errorReached"] = json(*mesh.error);
    return picojson::value(object);
}

void addReport(picojson::object& object, const ConvertReport& report, bool withList) {
    object["format"] = jsonText(report.format);
    if (!report.takenAsIs) {
        object["writer"] = jsonText(isContainerTarget(report.target) ? "container" : "public");
        object[isContainerTarget(report.target) ? "preset" : "mode"] = jsonText(targetName(report.target));
    }
    object["meshes"] = jsonCount(report.meshes);
    object["triangles"] = jsonCount(report.triangles);
    object["lines"] = jsonCount(report.lines);
    object["points"] = jsonCount(report.points);
    object["vertices"] = jsonCount(report.vertices);
    object["bytesIn"] = jsonCount(report.bytesIn);
    object["bytesOut"] = jsonCount(report.bytesOut);
    if (report.bytesSrc) object["bytesSrc"] = jsonCount(*report.bytesSrc);
    if (report.error) object["errorReached"] = json(*report.error);
    object["notes"] = json(report.notes);
    object["warnings"] = json(report.warnings);
    picojson::array dropped;
    for (const auto& entry : report.dropped) {
        picojson::object item;
        item["kind"] = jsonText(entry.kind);
        item["count"] = jsonCount(entry.count);
        item["detail"] = jsonText(entry.detail);
        dropped.emplace_back(item);
    }
    object["dropped"] = picojson::value(dropped);
    if (!withList) return;
    picojson::array list;
    for (const auto& mesh : report.written)
        list.push_back(json(mesh));
    object["list"] = picojson::value(list);
}

} // namespace

std::string describe(const Job& job, const ConvertReport& report) {
    std::string text = printable(job.target.name()) + ": " + counted(report.meshes, "mesh", "meshes") + ", " +
                       counted(report.triangles, "triangle", "triangles");
    if (report.lines != 0) text += ", " + counted(report.lines, "line", "lines");
    if (report.points != 0) text += ", " + counted(report.points, "point", "points");
    text += ", " + counted(report.vertices, "vertex", "vertices") + ", " +
            counted(report.bytesOut, "byte", "bytes");
    if (report.bytesSrc) text += " with " + counted(*report.bytesSrc, "byte", "bytes") + " of SRC inside";
    if (!report.takenAsIs) text += std::string(" (") + targetName(report.target) + ')';
    if (report.error) text += "\n  " + describe(*report.error);
    for (const auto& entry : report.dropped) {
        text += "\n  dropped " + printable(entry.kind) + ": " + std::to_string(entry.count) +
                (entry.detail.empty() ? "" : " (" + printable(entry.detail) + ')');
    }
    for (const auto& note : report.notes)
        text += "\n  note: " + printable(note);
    return text;
}

void printList(std::ostream& out, const std::vector<WrittenMesh>& meshes) {
    bool lines = false, points = false, errors = false;
    for (const auto& mesh : meshes) {
        lines = lines || mesh.lines != 0;
        points = points || mesh.points != 0;
        errors = errors || (mesh.error && mesh.error->position != 0.0);
    }
    std::vector<std::string> heading{"mesh", "triangles"};
    if (lines) heading.push_back("lines");
    if (points) heading.push_back("points");
    heading.insert(heading.end(), {"vertices", "bytes"});
    if (errors) heading.push_back("error");
    Table table(heading);
    for (const auto& mesh : meshes) {
        std::vector<std::string> row{mesh.name.empty() ? "(no name)" : printable(mesh.name),
                                     std::to_string(mesh.triangles)};
        if (lines) row.push_back(std::to_string(mesh.lines));
        if (points) row.push_back(std::to_string(mesh.points));
        row.push_back(std::to_string(mesh.vertices));
        row.push_back(std::to_string(mesh.bytes));
        if (errors) row.push_back(mesh.error ? shortNumber(mesh.error->position, 3) : "");
        table.add(std::move(row));
    }
    table.print(out);
}

picojson::value toJson(const Job& job, const Outcome& outcome, bool withList) {
    picojson::object object;
    object["input"] = jsonText(job.source.stream ? "-" : job.source.file.string());
    object["output"] = jsonText(job.target.stream ? "-" : job.target.file.string());
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

std::string secondsForPeople(double seconds) {
    char text[40];
    if (seconds < 60.0) {
        std::snprintf(text, sizeof text, "%.2f s", seconds);
    } else {
        const auto whole = static_cast<long long>(seconds);
        std::snprintf(text, sizeof text, "%lld:%02lld min", whole / 60, whole % 60);
    }
    return text;
}

} // namespace kelsrc::cli
