#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace kelsrc::cli {

/// The kelsrc command. Data goes to `out`, talk to `err`; both may be the process's own streams or any other.
///
/// args     without the program's name
/// returns  the exit status, see Status.h
///
/// Takes over the handling of signals and what libraries print on the process's own streams while it runs.
int run(const std::vector<std::string>& args, std::istream& in, std::ostream& out, std::ostream& err);

} // namespace kelsrc::cli
