#include "commands/Command.h"

#include "commands/ConvertOutput.h"
#include "files/ConvertJobs.h"
#include "terminal/CapturedOutput.h"
#include "terminal/JsonOutput.h"
#include "terminal/Progress.h"

#include <cmath>
#include <cstdio>
#include <memory>
#include <thread>

namespace kelsrc::cli {

namespace {

using kel::convert::Destination;
using kel::convert::Source;
using kel::prepare::Target;

struct ConvertArguments {
    std::vector<std::string> inputs;
    std::string output;
    std::string writer, mode, preset;
    bool lossless = false;
    std::optional<double> maxError;
    bool noFit = false, allowClamping = false, onlyTriangles = false, optimize = false, seamless = false;
    std::string onBadGeometry = "fail";
    std::optional<std::string> scene;
    std::string units, up, origin = "auto";
    double scale = 1.0;
    int threads = 1;
    bool failFast = false;
    ImportLimitArguments importLimits;
    bool html = false;
    bool verify = false, list = false, json = false, quiet = false, verbose = false, noProgress = false;
};

[[noreturn]] void refuse(const std::string& what, const std::string& remedy) {
    throw Failure(STATUS_USAGE, "", what, remedy);
}

std::string joinedNames(const std::vector<std::string>& names) {
    std::string text;
    for (const auto& name : names)
        text += (text.empty() ? "" : "|") + name;
    return text;
}

std::optional<Target> targetOf(const ConvertArguments& arguments) {
    const bool container =
        arguments.writer == "container" || (arguments.writer.empty() && !arguments.preset.empty());
    const bool modeGiven = !arguments.mode.empty() || arguments.lossless || arguments.maxError;
    if (container && modeGiven)
        refuse("--mode, --lossless and --max-error belong to the public writer, --preset to the container "
               "writer",
               "Leave one of them out.");
    if (!container && !arguments.preset.empty())
        refuse("--preset belongs to the container writer",
               "Give --writer=container, or --mode instead of --preset.");
    const auto named = [](const std::string& name, Target otherwise) {
        for (const auto& row : kel::prepare::TARGETS) {
            if (name == row.name) return row.target;
        }
        return otherwise;
    };
    if (container) return named(arguments.preset, Target::PRESET_DEFAULT);
    if (arguments.lossless && !arguments.mode.empty() && arguments.mode != "uncompressed")
        refuse("--lossless is --mode=uncompressed, but --mode=" + arguments.mode + " is given, too",
               "Leave one of them out.");
    const bool isAuto = !arguments.lossless && (arguments.mode.empty() || arguments.mode == "auto");
    if (arguments.maxError && !isAuto)
        refuse("--max-error chooses a mode, but one is given", "Leave one of them out, or give --mode=auto.");
    if (isAuto) return std::nullopt;
    return named(arguments.mode, Target::UNCOMPRESSED);
}

/// The two sides of "FROM:TO"; "TO" alone has no first one.
std::pair<std::string, std::string> sidesOf(const std::string& text) {
    const auto colon = text.find(':');
    return colon == std::string::npos ? std::pair{std::string(), text}
                                      : std::pair{text.substr(0, colon), text.substr(colon + 1)};
}

double unitOf(const std::string& name) {
    const std::optional<double> metres = kel::prepare::metresPer(name);
    if (!metres)
        refuse("--units: unknown unit \"" + name + "\"", "Known are mm, cm, dm, m, km, in, ft, yd and mi.");
    return *metres;
}

kel::prepare::UpAxis axisOf(const std::string& name) {
    if (name == "x" || name == "X") return kel::prepare::UpAxis::X;
    if (name == "y" || name == "Y") return kel::prepare::UpAxis::Y;
    if (name == "z" || name == "Z") return kel::prepare::UpAxis::Z;
    refuse("--up: unknown axis \"" + name + "\"", "Known are x, y and z.");
}

kel::importer::Origin originOf(const std::string& text) {
    using kel::importer::Origin;
    if (text == "auto") return {Origin::AUTO, {}};
    if (text == "keep") return {Origin::KEEP, {}};
    try {
        return kel::convert::readRecipe("{\"origin\":[" + text + "]}").origin;
    } catch (const kel::convert::ConvertError&) {
        refuse("--origin: \"" + text + "\" is neither auto nor keep nor three numbers",
               "For instance --origin=500000,5400000,0.");
    }
}

bool wantsPage(const ConvertArguments& arguments) {
    const auto extension = std::filesystem::path(arguments.output).extension();
    return arguments.html || extension == ".html" || extension == ".htm";
}

kel::convert::Recipe recipeOf(const ConvertArguments& arguments) {
    kel::convert::Recipe recipe;
    recipe.target = targetOf(arguments);
    recipe.maxError = arguments.maxError;
    if (recipe.maxError && !(*recipe.maxError >= 0.0 && std::isfinite(*recipe.maxError)))
        refuse("--max-error must be a finite number, 0 or more", "It is a distance in units of the output.");
    recipe.fit = !arguments.noFit;
    recipe.allowClamping = arguments.noFit && arguments.allowClamping;
    recipe.onlyTriangles = arguments.onlyTriangles;
    recipe.optimize = arguments.optimize;
    recipe.seamless = arguments.seamless;
    if (recipe.seamless && (recipe.target == Target::UNCOMPRESSED || recipe.target == Target::PRESET_DEFAULT))
        refuse("--seamless is for positions of 16 bits, and " + std::string(targetName(*recipe.target)) +
                   " stores floats, which show no cracks",
               "Leave it out, or give --mode=position, --mode=position-normal or --preset=CMP1.");
    if (arguments.onBadGeometry == "drop") recipe.onBadGeometry = kel::importer::BadGeometry::DROP;
    recipe.scene = arguments.scene;
    recipe.origin = originOf(arguments.origin);
    recipe.scale = arguments.scale;
    if (!(recipe.scale > 0.0 && std::isfinite(recipe.scale)))
        refuse("--scale must be a finite number above 0", "For instance 0.001 makes metres of millimetres.");
    if (!arguments.units.empty()) {
        const auto [from, to] = sidesOf(arguments.units);
        if (!from.empty()) recipe.fromUnit = unitOf(from);
        recipe.toUnit = unitOf(to);
    }
    if (!arguments.up.empty()) {
        const auto [from, to] = sidesOf(arguments.up);
        if (!from.empty()) recipe.fromUp = axisOf(from);
        recipe.toUp = axisOf(to);
    }
    return recipe;
}

JobOptions optionsOf(const ConvertArguments& arguments) {
    JobOptions options;
    options.recipe = recipeOf(arguments);
    options.pages = wantsPage(arguments);
    if (arguments.output.empty() && !options.pages)
        refuse("--output is required", "Name the SRC file with -o, or - for standard output.");
    const bool outputTaken = arguments.output == "-";
    if (outputTaken && (arguments.list || arguments.json))
        refuse("--list and --json write to standard output, as does -o -", "Write the model to a file.");
    options.convert.verify = arguments.verify;
    options.convert.importLimits = limitsOf(arguments.importLimits);
    options.convert.list = arguments.list || (arguments.verbose && !outputTaken);
    return options;
}

bool isBatch(const ConvertArguments& arguments) {
    return arguments.inputs.size() > 1 || std::filesystem::is_directory(arguments.inputs[0]);
}

std::vector<Job> jobsOf(const ConvertArguments& arguments, const Streams& streams, std::ostream& out) {
    if (!isBatch(arguments)) {
        Job job;
        if (arguments.inputs[0] == "-") {
            job.source = Source::ofStream(streams.in, inputName("-"));
        } else {
            job.source = Source::ofFile(arguments.inputs[0]);
        }
        if (arguments.output == "-") {
            job.destination = Destination::ofStream(out, "standard output");
        } else if (!arguments.output.empty()) {
            job.destination.file = arguments.output;
        } else if (job.source.stream) {
            refuse("a page of standard input has no name", "Name it with -o.");
        } else {
            job.destination.file = job.source.file.stem();
            job.destination.file += ".html";
        }
        std::vector<Job> jobs;
        jobs.push_back(std::move(job));
        return jobs;
    }
    for (const auto& input : arguments.inputs) {
        if (input == "-") refuse("standard input cannot be one of several models", "Convert it on its own.");
    }
    if (arguments.output.empty()) refuse("several pages need a folder", "Name one with -o.");
    if (arguments.output == "-")
        refuse("several models cannot go to standard output", "Name a folder with -o.");
    const std::filesystem::path folder = arguments.output;
    if (std::filesystem::exists(folder) && !std::filesystem::is_directory(folder))
        throw Failure(STATUS_NOT_WRITTEN, arguments.output, "is a file, but several models need a folder",
                      "Name a folder with -o.");
    const auto parent = std::filesystem::absolute(folder / "").lexically_normal().parent_path().parent_path();
    if (!std::filesystem::exists(folder) && !std::filesystem::is_directory(parent))
        throw Failure(STATUS_NOT_WRITTEN, arguments.output, "\"" + parent.string() + "\" is no folder",
                      "Make the folder first, or choose another one.");
    return planJobs(arguments.inputs, folder, wantsPage(arguments));
}

struct Totals {
    std::size_t converted = 0, failed = 0, notTried = 0;
    kel::convert::GeometryCounts counts;
    std::uint64_t bytesIn = 0, bytesOut = 0;
    int status = STATUS_OK; ///< of the last failure
    picojson::array files;
};

/// "0.42 s", "3:07 min"
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

void printSummary(Messages& messages, const Totals& totals, double seconds) {
    std::string text = std::to_string(totals.converted) + " of " +
                       counted(totals.converted + totals.failed + totals.notTried, "model", "models") +
                       " converted";
    if (totals.failed != 0) text += ", " + std::to_string(totals.failed) + " failed";
    if (totals.notTried != 0) text += ", " + std::to_string(totals.notTried) + " not tried";
    messages.info(text + ": " + counted(totals.counts.meshes, "mesh", "meshes") + ", " +
                  counted(totals.counts.triangles, "triangle", "triangles") + ", " +
                  std::to_string(totals.bytesIn) + " bytes in, " + std::to_string(totals.bytesOut) +
                  " bytes out, " + secondsForPeople(seconds));
}

void printJson(std::ostream& out, const Totals& totals, double seconds) {
    picojson::object summary{{"converted", jsonCount(totals.converted)},
                             {"failed", jsonCount(totals.failed)},
                             {"notTried", jsonCount(totals.notTried)},
                             {"meshes", jsonCount(totals.counts.meshes)},
                             {"triangles", jsonCount(totals.counts.triangles)},
                             {"vertices", jsonCount(totals.counts.vertices)},
                             {"bytesIn", jsonCount(totals.bytesIn)},
                             {"bytesOut", jsonCount(totals.bytesOut)},
                             {"seconds", picojson::value(seconds)}};
    const picojson::object report{{"files", picojson::value(totals.files)},
                                  {"summary", picojson::value(std::move(summary))}};
    out << picojson::value(report).serialize(true);
}

int runConvert(const ConvertArguments& arguments, const Streams& streams) {
    const auto start = std::chrono::steady_clock::now();
    Output output(streams, arguments.quiet     ? Messages::QUIET
                           : arguments.verbose ? Messages::VERBOSE
                                               : Messages::NORMAL);
    std::ostream& out = output.out;
    Messages& messages = output.messages;
    const JobOptions options = optionsOf(arguments);
    const std::vector<Job> jobs = jobsOf(arguments, streams, out);
    const bool batch = isBatch(arguments);

    CapturedOutput captured;
    Progress::Options progressOptions;
    progressOptions.enabled = output.terminal.isTerminal && !arguments.quiet && !arguments.noProgress;
    progressOptions.width = output.terminal.width;
    std::vector<Progress::Task> tasks;
    for (const auto& job : jobs) {
        std::error_code unknown;
        const std::uint64_t bytes = std::filesystem::file_size(job.source.file, unknown);
        tasks.push_back({job.source.shownName(), unknown ? 0 : bytes});
    }
    Progress progress(messages, std::move(tasks), progressOptions);

    Totals totals;
    const auto onStage = [&](std::size_t job, const char* stage, double done) {
        progress.update(job, stage, done);
    };
    const auto onOutcome = [&](std::size_t index, Outcome& outcome) {
        const Job& job = jobs[index];
        progress.finishTask(index);
        if (!batch) progress.finish();
        for (const auto& line : captured.takePrinted()) {
            // With an error there is a better sentence already.
            if (outcome.state == Outcome::CONVERTED) {
                messages.warning("a library says: " + printable(line));
            } else {
                messages.detail("  printed: " + printable(line));
            }
        }
        for (const auto& line : captured.takeLog())
            messages.detail("  log: " + printable(line));
        if (arguments.json) totals.files.push_back(toJson(job, outcome, options.convert.list));
        switch (outcome.state) {
        case Outcome::NOT_TRIED:
            ++totals.notTried;
            return;
        case Outcome::FAILED:
            ++totals.failed;
            totals.status = outcome.failure->status();
            messages.error(*outcome.failure);
            return;
        case Outcome::CONVERTED:
            break;
        }
        const FileReport& report = outcome.report;
        ++totals.converted;
        totals.counts += report.counts;
        totals.bytesIn += report.bytesIn;
        totals.bytesOut += report.bytesOut;
        messages.detail(printable(job.source.shownName()) + ": " + printable(report.format));
        for (const auto& warning : report.warnings)
            messages.warning((batch ? printable(job.source.shownName()) + ": " : "") + printable(warning));
        messages.info(reportText(job, report));
        if (options.convert.list && !arguments.json) {
            if (batch) out << printable(job.destination.shownName()) << ":\n";
            printList(out, report.written);
            if (batch) out << '\n';
        }
    };
    const std::size_t threads = arguments.threads == 0 ? std::max(1u, std::thread::hardware_concurrency())
                                                       : static_cast<std::size_t>(arguments.threads);
    runJobs(jobs, options, threads, arguments.failFast, onStage, onOutcome);
    progress.finish();

    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (batch) printSummary(messages, totals, seconds);
    if (arguments.json) printJson(out, totals, seconds);
    if (!batch) return totals.status;
    return totals.failed == 0 ? STATUS_OK : STATUS_FINDINGS;
}

} // namespace

Action addConvert(CLI::App& app) {
    const auto arguments = std::make_shared<ConvertArguments>();
    CLI::App* verb = app.add_subcommand("convert", "Convert model files into SRC files");
    verb->add_option("MODEL", arguments->inputs,
                     "Models in any format that Assimp reads, folders of models, or - for standard input")
        ->required();
    verb->add_option(
            "-o,--output", arguments->output,
            "The SRC file, replaced in one step; the folder for several models or a folder of them; - for "
            "standard output. Required but for one page, which is MODEL.html in the current folder")
        ->option_text("FILE|FOLDER|-");

    const char* group = "How to store";
    const auto flag = [&](const char* name, bool& value, const char* text) {
        return verb->add_flag(name, value, text)->group(group);
    };
    const auto option = [&](const char* name, auto& value, const std::string& values, const char* text) {
        return verb->add_option(name, value, text)->group(group)->option_text(values);
    };
    option("--writer", arguments->writer, "public|container",
           "public (the default): modes, short indices, points and lines. container (the default with "
           "--preset): presets, long indices, triangles only")
        ->check(CLI::IsMember({"public", "container"}));
    option("--mode", arguments->mode, "MODE",
           "Of the public writer. uncompressed: 32-bit floats. position: positions in 16 bits. "
           "position-normal: normals in two bytes as well, no other attribute. auto (the default): the "
           "smallest that leaves no attribute out and stays within --max-error")
        ->check(CLI::IsMember({"uncompressed", "position", "position-normal", "auto"}));
    flag("--lossless", arguments->lossless, "The same as --mode=uncompressed");
    option("--max-error", arguments->maxError, "DISTANCE",
           "With --mode=auto: how far a position may be off, in units of the output (default: 1/16384 of the "
           "diagonal of the scene)");
    std::vector<std::string> presets;
    for (const auto& row : kel::prepare::TARGETS) {
        if (row.isContainer) presets.push_back(row.name);
    }
    option("--preset", arguments->preset, joinedNames(presets),
           "Of the container writer. default: 32-bit floats. CMP1: positions and texture coordinates in 16 "
           "bits, normals and colours in 8")
        ->check(CLI::IsMember(presets));
    flag("--no-fit", arguments->noFit,
         "With CMP1: write values as they are instead of fitting each attribute into the preset's box of "
         "-0.5 to 0.5; fails if any would be clamped");
    flag("--allow-clamping", arguments->allowClamping,
         "With --no-fit: clamp values outside the box instead of failing");
    flag("--html", arguments->html,
         "Write a web page with viewer and model inside, which opens from disk and needs no network; "
         "the same as an output that ends in .html. SRC files go into it as they are");
    flag("--optimize", arguments->optimize,
         "Reorder triangles and vertices so that GPUs draw them fast and files compress better");
    flag("--seamless", arguments->seamless,
         "Let positions that several meshes share stay one position, to the last bit, where they are stored "
         "in 16 bits: no cracks show between meshes");
    flag("--verify", arguments->verify,
         "Read back what was written and compare it with the model before it is put in place");

    group = "What to store";
    flag("--only-triangles", arguments->onlyTriangles,
         "Leave out meshes of points and lines; the container writer fails on them otherwise");
    option("--on-bad-geometry", arguments->onBadGeometry, "fail|drop",
           "What to do about positions that are not finite: fail, or drop the primitives that use them")
        ->check(CLI::IsMember({"fail", "drop"}))
        ->capture_default_str();
    option("--scene", arguments->scene, "NAME|INDEX",
           "Of a glTF with several scenes: the one to convert, by its name or its number from 0 on (default: "
           "the "
           "one that the file shows first)");
    option("--units", arguments->units, "[FROM:]TO",
           "Scale to this unit: mm, cm, dm, m, km, in, ft, yd or mi. FROM overrules what the model says; "
           "without either it is metres");
    option("--up", arguments->up, "[FROM:]TO",
           "Turn the model so that this axis points up: x, y or z. FROM overrules what the model says; "
           "without either it is y");
    option("--origin", arguments->origin, "auto|keep|X,Y,Z",
           "Store positions about this point of the model, before --units and --up; viewers and tools add it "
           "again. auto: "
           "zero, or a round point nearby where floats would lose more than a millionth of the model's size")
        ->capture_default_str();
    option("--scale", arguments->scale, "FACTOR", "Multiply all positions, after --units");

    group = "What reading may take";
    addImportLimits(*verb, arguments->importLimits, group);

    group = "Many models";
    option("-j,--jobs", arguments->threads, "N", "Models to convert at the same time; 0 takes all cores")
        ->check(CLI::Range(0, 1024))
        ->capture_default_str();
    flag("--fail-fast", arguments->failFast, "Begin no further model after one has failed");

    group = "What to say";
    flag("--list", arguments->list, "Print what was written, mesh by mesh, on standard output");
    addJson(*verb, arguments->json, "Print a report for programs on standard output")->group(group);
    auto* quiet = addQuiet(*verb, arguments->quiet)->group(group);
    flag("-v,--verbose", arguments->verbose, "Print more: --list, the model's format, the library's log")
        ->excludes(quiet);
    flag("--no-progress", arguments->noProgress, "Draw no progress bar");
    verb->footer(R"(
Nothing is dropped silently: what SRC cannot hold, or the mode leaves out, is reported once per kind on standard
error. Meshes of more than 65535 vertices are cut into parts by the public writer.

In files of the container writer a mesh refers to every attribute that a mesh before it has. So meshes with fewer
attributes are written first; where that does not help, a mesh gets what it lacks with neutral values (white, zero,
normals of its triangles) and says so in its metadata under "filled".)");
    return [arguments](const Streams& streams) { return runConvert(*arguments, streams); };
}

} // namespace kelsrc::cli
