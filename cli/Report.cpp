#include "Report.h"

#include "Table.h"

#include <cstdio>
#include <ostream>
#include <utility>

namespace kelsrc::cli {

namespace {

using kel::prepare::ReachedError;

std::string shortNumber(double value) {
    char text[40];
    std::snprintf(text, sizeof text, "%.3g", value);
    return text;
}

std::string describe(const ReachedError& error) {
    if (error.position == 0.0 && error.normalDegrees == 0.0) return "positions and normals are exact";
    return "largest error: positions " + shortNumber(error.position) + ", normals " +
           shortNumber(error.normalDegrees) + " degrees";
}

/// Well-formed UTF-8 as it is, every other byte as U+FFFD.
std::string validUtf8(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size();) {
        const auto byte = [&](std::size_t at) {
            return at < text.size() ? static_cast<unsigned char>(text[at]) : 0u;
        };
        const unsigned first = byte(i);
        const std::size_t length = first < 0x80                     ? 1
                                   : first >= 0xc2 && first <= 0xdf ? 2
                                   : first >= 0xe0 && first <= 0xef ? 3
                                   : first >= 0xf0 && first <= 0xf4 ? 4
                                                                    : 0;
        bool good = length != 0;
        for (std::size_t k = 1; k < length; ++k)
            good = good && (byte(i + k) & 0xc0u) == 0x80;
        // No overlong forms, surrogates or code points beyond the last.
        if (first == 0xe0) good = good && byte(i + 1) >= 0xa0;
        if (first == 0xed) good = good && byte(i + 1) <= 0x9f;
        if (first == 0xf0) good = good && byte(i + 1) >= 0x90;
        if (first == 0xf4) good = good && byte(i + 1) <= 0x8f;
        if (good) {
            result.append(text, i, length);
            i += length;
        } else {
            result += "\xef\xbf\xbd";
            ++i;
        }
    }
    return result;
}

picojson::value json(const std::string& text) {
    return picojson::value(validUtf8(text));
}
picojson::value json(std::uint64_t number) {
    return picojson::value(static_cast<double>(number));
}

picojson::value json(const ReachedError& error) {
    picojson::object object;
    // A mode may be asked for that cannot hold the positions at all; JSON has no infinity.
    if (error.position <= std::numeric_limits<double>::max())
        object["position"] = picojson::value(error.position);
    if (error.normalDegrees <= 180.0) object["normalDegrees"] = picojson::value(error.normalDegrees);
    return picojson::value(object);
}

picojson::value json(const std::vector<std::string>& texts) {
    picojson::array array;
    for (const auto& text : texts)
        array.push_back(json(text));
    return picojson::value(array);
}

picojson::value json(const WrittenMesh& mesh) {
    picojson::object object;
    object["name"] = json(mesh.name);
    object["triangles"] = json(mesh.triangles);
    object["lines"] = json(mesh.lines);
    object["points"] = json(mesh.points);
    object["vertices"] = json(mesh.vertices);
    object["bytes"] = json(mesh.bytes);
    if (mesh.error) object["errorReached"] = json(*mesh.error);
    return picojson::value(object);
}

void addReport(picojson::object& object, const ConvertReport& report, bool withList) {
    object["format"] = json(report.format);
    object["writer"] = json(isContainerTarget(report.target) ? "container" : "public");
    object[isContainerTarget(report.target) ? "preset" : "mode"] = json(nameOf(report.target));
    object["meshes"] = json(report.meshes);
    object["triangles"] = json(report.triangles);
    object["lines"] = json(report.lines);
    object["points"] = json(report.points);
    object["vertices"] = json(report.vertices);
    object["bytesIn"] = json(report.bytesIn);
    object["bytesOut"] = json(report.bytesOut);
    if (report.error) object["errorReached"] = json(*report.error);
    object["notes"] = json(report.notes);
    object["warnings"] = json(report.warnings);
    picojson::array dropped;
    for (const auto& entry : report.dropped) {
        picojson::object item;
        item["kind"] = json(entry.kind);
        item["count"] = json(entry.count);
        item["detail"] = json(entry.detail);
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
            counted(report.bytesOut, "byte", "bytes") + " (" + nameOf(report.target) + ')';
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
        if (errors) row.push_back(mesh.error ? shortNumber(mesh.error->position) : "");
        table.add(std::move(row));
    }
    table.print(out);
}

picojson::value toJson(const Job& job, const Outcome& outcome, bool withList) {
    picojson::object object;
    object["input"] = json(job.source.stream ? "-" : job.source.file.string());
    object["output"] = json(job.target.stream ? "-" : job.target.file.string());
    object["seconds"] = picojson::value(outcome.seconds);
    switch (outcome.state) {
    case Outcome::CONVERTED:
        object["status"] = json(std::uint64_t(STATUS_OK));
        addReport(object, outcome.report, withList);
        break;
    case Outcome::FAILED: {
        object["status"] = json(static_cast<std::uint64_t>(outcome.failure->status()));
        const std::string& subject = outcome.failure->subject();
        object["error"] = json((subject.empty() ? "" : subject + ": ") + outcome.failure->what());
        object["remedy"] = json(outcome.failure->remedy());
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
