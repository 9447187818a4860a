#include "commands/Command.h"

#include "commands/ConvertOutput.h"
#include "files/ConvertJobs.h"
#include "files/OutputFile.h"
#include "page/HtmlPage.h"
#include "page/ViewServer.h"
#include "terminal/CapturedOutput.h"
#include "terminal/JsonOutput.h"
#include "terminal/Signals.h"
#include <kel/convert/OpenSrc.h>

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <spawn.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kelsrc::cli {

namespace {

namespace fs = std::filesystem;

struct ViewArguments {
    std::vector<std::string> files;
    int port = 0;
    ImportLimitArguments importLimits;
    bool noOpen = false, json = false, quiet = false;
};

/// The files that are served, and the models among them as SRC files that vanish with this.
struct ServedFiles {
    std::vector<ServedFile> files;
    std::vector<std::unique_ptr<OutputFile>> converted;
};

/// Writes a model aside as "convert" would by default.
ServedFile convertAside(const std::string& path, const JobOptions& options, ServedFiles& served,
                        Messages& messages) {
    auto file = std::make_unique<OutputFile>(scratchPlace());
    Job job;
    job.source = kel::convert::Source::ofFile(path);
    job.destination = kel::convert::Destination::ofOpened(*file, job.source.file.stem().concat(".src"));
    FileReport report;
    {
        const CapturedOutput captured; // it would stand among the command's own lines
        report = convertFile(job, options);
    }
    for (const auto& warning : report.warnings)
        messages.warning(printable(path) + ": " + printable(warning));
    messages.info(reportText(job, report));
    served.converted.push_back(std::move(file));
    return {job.destination.file.string(), served.converted.back()->temporaryPath()};
}

ServedFiles filesToServe(const ViewArguments& arguments, Messages& messages) {
    ServedFiles served;
    JobOptions options;
    options.convert.importLimits = limitsOf(arguments.importLimits);
    for (const auto& path : arguments.files) {
        if (path == "-")
            throw Failure(STATUS_USAGE, "", "standard input cannot be viewed", "Save it to a file first.");
        if (fs::is_directory(path)) throw Failure(STATUS_INPUT, path, "is a folder", "Name the files in it.");
        if (!fs::exists(path) || kel::convert::looksLikeSrc(path)) {
            kel::convert::openSrc(path);
            const fs::path whole = fs::absolute(path);
            served.files.push_back({whole.filename().string(), whole.string()});
        } else {
            served.files.push_back(convertAside(path, options, served, messages));
        }
    }
    return served;
}

bool isSet(const char* name) {
    const char* value = std::getenv(name);
    return value && *value;
}

/// Has the desktop's browser open an address, and does not wait for it. Does nothing where there is no desktop
/// or no program xdg-open.
void openInBrowser(const std::string& address) {
    if (!isSet("DISPLAY") && !isSet("WAYLAND_DISPLAY")) return;
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    if (::posix_spawn_file_actions_init(&files) != 0) return;
    if (::posix_spawnattr_init(&attributes) != 0) {
        ::posix_spawn_file_actions_destroy(&files);
        return;
    }
    // What it says is not for this terminal, nor is standard output: that is data.
    ::posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    // A session of its own: Ctrl-C here is not for a browser that began with this page. Signals that the
    // command ignores would stay ignored there.
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigaddset(&defaults, SIGXFSZ);
    ::posix_spawnattr_setsigdefault(&attributes, &defaults);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF);
    char program[] = "xdg-open";
    std::string argument = address;
    char* const arguments[] = {program, argument.data(), nullptr};
    pid_t child = 0;
    ::posix_spawnp(&child, program, &files, &attributes, arguments, environ);
    ::posix_spawn_file_actions_destroy(&files);
    ::posix_spawnattr_destroy(&attributes);
}

picojson::value toJson(const ViewServer& server, const ServedFiles& served) {
    picojson::array files;
    for (std::size_t i = 0; i < served.files.size(); ++i)
        files.emplace_back(
            picojson::object{{"name", jsonText(served.files[i].name)}, {"path", jsonText(server.pathOf(i))}});
    return picojson::value(picojson::object{{"address", jsonText(server.address())},
                                            {"port", jsonCount(static_cast<std::uint64_t>(server.port()))},
                                            {"files", picojson::value(std::move(files))}});
}

int runView(const ViewArguments& arguments, const Streams& streams) {
    Output output(streams, arguments.quiet ? Messages::QUIET : Messages::NORMAL);
    std::ostream& out = output.out;
    const std::string page = viewerPage();
    const ServedFiles served = filesToServe(arguments, output.messages);
    ViewServer server(page, served.files, arguments.port);
    const StopRequest stop;
    // Before there are connections that a browser would inherit; they wait for start().
    if (!arguments.noOpen) openInBrowser(server.address());
    server.start();
    if (arguments.json) {
        out << toJson(server, served).serialize() << std::endl;
    } else {
        out << server.address() << std::endl;
    }
    if (!out) throw Failure(STATUS_NOT_WRITTEN, "standard output", "cannot be written");
    output.messages.info("Serving to this machine only; Ctrl-C stops it.");
    stop.wait();
    return STATUS_OK;
}

} // namespace

Action addView(CLI::App& app) {
    const auto arguments = std::make_shared<ViewArguments>();
    CLI::App* verb = app.add_subcommand("view", "Show SRC files or models in a browser");
    verb->add_option("FILE", arguments->files, "SRC files, or models in any format that Assimp reads")
        ->required();
    verb->add_option("--port", arguments->port, "Where to serve; 0 takes a free port")
        ->check(CLI::Range(0, 65535))
        ->option_text("N")
        ->capture_default_str();
    addImportLimits(*verb, arguments->importLimits);
    verb->add_flag("--no-open", arguments->noOpen, "Print the address only, open no browser");
    addJson(*verb, arguments->json, "Print the address for programs, on one line");
    addQuiet(*verb, arguments->quiet, "Print errors and the address only");
    verb->footer(R"(
Serves the viewer and these files, and nothing else, to programs on this machine until Ctrl-C or SIGTERM stops it
(status 0). Prints the address on standard output; where there is a desktop the browser opens it.

A file that has changed is seen when the page is loaded again. Models are converted first, as "kelsrc convert" does
without options, and what was converted vanishes at the end.)");
    return [arguments](const Streams& streams) { return runView(*arguments, streams); };
}

} // namespace kelsrc::cli
