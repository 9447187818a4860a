#include "commands/Command.h"

#include <kel/convert/OpenSrc.h>

namespace kelsrc::cli {

Output::Output(const Streams& streams, Messages::Level level)
    : terminal(terminalOf(streams.err)), out(streams.out.rdbuf()), err(streams.err.rdbuf()),
      messages(err, level, terminal.colour), shared(streams.out) {}

Output::~Output() {
    if (!out) shared.setstate(std::ios::badbit);
}

CLI::Option* addJson(CLI::App& verb, bool& json, const char* text) {
    return verb.add_flag("--json", json, text);
}

CLI::Option* addQuiet(CLI::App& verb, bool& quiet, const char* text) {
    return verb.add_flag("-q,--quiet", quiet, text);
}

CLI::Option* addMeshes(CLI::App& verb, bool& meshes) {
    return verb.add_flag("--meshes", meshes, "List the meshes, too");
}

std::string inputName(const std::string& path) {
    return path == "-" ? "standard input" : path;
}

kel::src::SrcFile openSrcFile(const std::string& path, std::istream& in) {
    return path == "-" ? kel::convert::openSrc(in, inputName(path)) : kel::convert::openSrc(path);
}

} // namespace kelsrc::cli
