#pragma once

#include "files/ConvertJobs.h"
#include "terminal/Messages.h"

#include <picojson.h>

#include <iosfwd>
#include <string>
#include <vector>

namespace kelsrc::cli {

/// What a file holds, for people: "3 meshes, 12 triangles, 8 vertices", with lines and points if it has any.
std::string countsText(const kel::convert::GeometryCounts& counts);

/// What was left out and changed, for people, a line each with a line break before it.
std::string lossesText(const std::vector<kel::importer::Dropped>& dropped,
                       const std::vector<std::string>& notes = {});

/// One outcome for people, in lines. A failure is told by Messages::error.
std::string reportText(const Job& job, const FileReport& report);

/// What was written, mesh by mesh, as a table; with columns of lines, points and errors if there are any.
void printList(std::ostream& out, const std::vector<kel::convert::WrittenMesh>& meshes);

/// One outcome for programs. Texts that are not UTF-8 have U+FFFD in place of what is wrong.
picojson::value toJson(const Job& job, const Outcome& outcome, bool withList);

} // namespace kelsrc::cli
