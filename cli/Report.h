#pragma once

#include "Batch.h"
#include "Messages.h"

#include <picojson.h>

#include <iosfwd>
#include <string>
#include <vector>

namespace kelsrc::cli {

/// One outcome for people, in lines. A failure is told by Messages::error.
std::string describe(const Job& job, const ConvertReport& report);

/// What was written, mesh by mesh, as a table. Columns of lines, points and errors appear where there are
/// some.
void printList(std::ostream& out, const std::vector<WrittenMesh>& meshes);

/// One outcome for programs. Texts that are not UTF-8 have U+FFFD in place of what is wrong.
picojson::value toJson(const Job& job, const Outcome& outcome, bool withList);

/// A duration for people: "0.42 s", "3:07 min".
std::string secondsForPeople(double seconds);

} // namespace kelsrc::cli
