#include "ConvertCommand.h"

#include "Convert.h"
#include "LibraryTalk.h"
#include "Messages.h"
#include "Progress.h"
#include "Table.h"
#include "Terminal.h"

#include <map>
#include <memory>
#include <new>
#include <ostream>
#include <string>

namespace kelsrc::cli {

namespace {

struct ConvertArguments {
    std::string input, output;
    std::string preset = "default";
    std::string onBadGeometry = "fail";
    bool noFit = false, allowClamping = false, onlyTriangles = false;
    bool list = false, quiet = false, verbose = false, noProgress = false;
};

ConvertOptions optionsOf(const ConvertArguments& arguments) {
    ConvertOptions options;
    options.preset = arguments.preset == "CMP1" ? Preset::CMP1 : Preset::DEFAULT;
    options.fit = !arguments.noFit;
    options.allowClamping = arguments.allowClamping;
    options.onlyTriangles = arguments.onlyTriangles;
    options.onBadGeometry = arguments.onBadGeometry == "drop" ? kel::importer::BadGeometry::DROP
                                                              : kel::importer::BadGeometry::FAIL;
    options.list = arguments.list || arguments.verbose;
    return options;
}

/// Once per kind, whoever reported it.
std::vector<kel::importer::Dropped> oncePerKind(const std::vector<kel::importer::Dropped>& dropped) {
    std::vector<kel::importer::Dropped> result;
    std::map<std::string, std::size_t> places;
    for (const auto& entry : dropped) {
        const auto [place, isNew] = places.try_emplace(entry.kind, result.size());
        if (isNew) {
            result.push_back(entry);
            continue;
        }
        auto& known = result[place->second];
        known.count += entry.count;
        if (!entry.detail.empty() && known.detail.find(entry.detail) == std::string::npos)
            known.detail += (known.detail.empty() ? "" : "; ") + entry.detail;
    }
    return result;
}

void print(Messages& messages, const ConvertArguments& arguments, const ConvertReport& report) {
    for (const auto& warning : report.warnings)
        messages.warning(printable(warning));
    messages.info(printable(arguments.output) + ": " + counted(report.meshes, "mesh", "meshes") + ", " +
                  counted(report.triangles, "triangle", "triangles") + ", " +
                  counted(report.vertices, "vertex", "vertices") + ", " +
                  counted(report.bytes, "byte", "bytes"));
    for (const auto& entry : oncePerKind(report.dropped)) {
        messages.info("  dropped " + printable(entry.kind) + ": " + std::to_string(entry.count) +
                      (entry.detail.empty() ? "" : " (" + printable(entry.detail) + ')'));
    }
    for (const auto& note : report.notes)
        messages.info("  note: " + printable(note));
}

void print(std::ostream& out, const std::vector<WrittenMesh>& meshes) {
    Table table({"mesh", "triangles", "vertices", "bytes"});
    for (const auto& mesh : meshes) {
        table.add({mesh.name.empty() ? "(no name)" : printable(mesh.name), std::to_string(mesh.triangles),
                   std::to_string(mesh.vertices), std::to_string(mesh.bytes)});
    }
    table.print(out);
}

int runConvert(const ConvertArguments& arguments, const Streams& streams) {
    const Terminal terminal = terminalOf(streams.err);
    // Streams of their own on the same buffers: what libraries print on the process's streams is caught
    // meanwhile.
    std::ostream out(streams.out.rdbuf()), err(streams.err.rdbuf());
    Messages messages(err,
                      arguments.quiet     ? Messages::QUIET
                      : arguments.verbose ? Messages::VERBOSE
                                          : Messages::NORMAL,
                      terminal.colour);
    try {
        LibraryTalk talk;
        ConvertReport report;
        {
            Progress::Options progressOptions;
            progressOptions.enabled = terminal.isTerminal && !arguments.quiet && !arguments.noProgress;
            progressOptions.width = terminal.width;
            Progress progress(messages, arguments.input, progressOptions);
            report = convert(arguments.input, arguments.output, optionsOf(arguments),
                             [&](const std::string& stage, double done) { progress.update(stage, done); });
        }
        for (const auto& line : talk.takePrinted())
            messages.warning(printable(line));
        for (const auto& line : talk.takeLog())
            messages.detail("  log: " + printable(line));
        if (messages.isVerbose())
            messages.detail(printable(arguments.input) + ": " + printable(report.format));
        print(messages, arguments, report);
        if (!report.written.empty()) print(out, report.written);
        return STATUS_OK;
    } catch (const Failure& failure) {
        messages.error(failure);
        return failure.status();
    } catch (const std::bad_alloc&) {
        messages.error(Failure(STATUS_INPUT, arguments.input, "needs more memory than there is"));
        return STATUS_INPUT;
    }
}

} // namespace

Action addConvert(CLI::App& app) {
    const auto arguments = std::make_shared<ConvertArguments>();
    CLI::App* verb = app.add_subcommand("convert", "Convert a model file into an SRC file");
    verb->add_option("MODEL", arguments->input, "The model, in any format that Assimp reads")->required();
    verb->add_option("-o,--output", arguments->output,
                     "The SRC file; an existing one is replaced in one step")
        ->option_text("FILE")
        ->required();
    verb->add_option(
            "--preset", arguments->preset,
            "default: 32-bit floats. CMP1: positions and texture coordinates in 16 bits, normals and colours "
            "in 8")
        ->option_text("default|CMP1")
        ->check(CLI::IsMember({"default", "CMP1"}))
        ->capture_default_str();
    verb->add_flag(
        "--no-fit", arguments->noFit,
        "With CMP1: write values as they are instead of fitting each attribute into the preset's box of "
        "-0.5 to 0.5; fails if any would be clamped");
    verb->add_flag("--allow-clamping", arguments->allowClamping,
                   "With --no-fit: clamp values outside the box instead of failing");
    verb->add_flag("--only-triangles", arguments->onlyTriangles,
                   "Leave out meshes of points and lines, which cannot be written, instead of failing");
    verb->add_option(
            "--on-bad-geometry", arguments->onBadGeometry,
            "What to do about positions that are not finite: fail, or drop the primitives that use them")
        ->option_text("fail|drop")
        ->check(CLI::IsMember({"fail", "drop"}))
        ->capture_default_str();
    verb->add_flag("--list", arguments->list, "Print what was written, mesh by mesh, on standard output");
    auto* quiet = verb->add_flag("-q,--quiet", arguments->quiet, "Print errors only");
    verb->add_flag("-v,--verbose", arguments->verbose,
                   "Print more: --list, the model's format, the library's log")
        ->excludes(quiet);
    verb->add_flag("--no-progress", arguments->noProgress, "Draw no progress bar");
    verb->footer(R"(
Nothing is dropped silently: what SRC cannot hold is reported once per kind on standard error.

An SRC file of this kind holds triangles only, and a mesh refers to every attribute that a mesh before it has.
So meshes with fewer attributes are written first; where that does not help, a mesh gets what it lacks with
neutral values (white, zero, normals of its triangles) and says so in its metadata under "filled".)");
    return [arguments](const Streams& streams) { return runConvert(*arguments, streams); };
}

} // namespace kelsrc::cli
