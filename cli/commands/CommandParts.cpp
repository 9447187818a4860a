#include "commands/Command.h"

#include <kel/convert/OpenSrc.h>

#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>

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

void addImportLimits(CLI::App& verb, ImportLimitArguments& arguments, const char* group) {
    verb.add_option(
            "--import-timeout", arguments.timeout,
            "How long reading a model may take, in formats that are read in a process of their own; 0 or "
            "none: no limit (default: 60, or 5 for each MiB of the file where that is more)")
        ->option_text("SECONDS")
        ->group(group);
    verb.add_option(
            "--import-memory", arguments.memory,
            "How much memory that may take, as in 512M or 4G; 0 or none: no limit (default: 2G, or 32 "
            "times the size of the file where that is more)")
        ->option_text("SIZE")
        ->group(group);
}

namespace {

/// A number, 0 for "none", or nothing where it is none; what follows the number is left in `text`.
std::optional<double> takeLimit(std::string& text) {
    if (text == "none") {
        text.clear();
        return 0.0;
    }
    double number = 0.0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure != std::errc() || !std::isfinite(number) || number < 0.0) return std::nullopt;
    text.erase(0, static_cast<std::size_t>(end - text.data()));
    return number;
}

/// How many bytes a unit of them has; 0 for what is none.
double bytesPer(const std::string& unit) {
    constexpr std::string_view UNITS = "KMGT";
    if (unit.empty()) return 1.0;
    const std::size_t power = UNITS.find(unit);
    return unit.size() == 1 && power != std::string_view::npos
               ? std::exp2(10.0 * static_cast<double>(power + 1))
               : 0.0;
}

} // namespace

kel::importer::ImportLimits limitsOf(const ImportLimitArguments& arguments) {
    kel::importer::ImportLimits limits;
    std::string rest = arguments.timeout;
    if (!rest.empty()) {
        limits.seconds = takeLimit(rest);
        if (!limits.seconds || !rest.empty())
            throw Failure(STATUS_USAGE, "",
                          "--import-timeout: \"" + printable(arguments.timeout) + "\" is no time",
                          "Give seconds, for instance 300, or none.");
    }
    rest = arguments.memory;
    if (!rest.empty()) {
        const std::optional<double> number = takeLimit(rest);
        const double bytes = number ? *number * bytesPer(rest) : -1.0;
        constexpr double MOST = 9e18;
        if (!number || bytesPer(rest) == 0.0 || bytes > MOST)
            throw Failure(STATUS_USAGE, "",
                          "--import-memory: \"" + printable(arguments.memory) + "\" is no size",
                          "Give for instance 512M or 4G, or none.");
        limits.memory = static_cast<std::uint64_t>(bytes);
    }
    return limits;
}

std::string inputName(const std::string& path) {
    return path == "-" ? "standard input" : path;
}

kel::src::SrcFile openSrcFile(const std::string& path, std::istream& in) {
    return path == "-" ? kel::convert::openSrc(in, inputName(path)) : kel::convert::openSrc(path);
}

} // namespace kelsrc::cli
