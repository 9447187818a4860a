#include "commands/Command.h"

#include "Failure.h"
#include "commands/ConvertOutput.h"
#include "files/ConvertJobs.h"
#include "files/OutputFile.h"
#include "page/Browser.h"
#include "page/ViewServer.h"
#include "page/ViewerPage.h"
#include "terminal/CapturedOutput.h"
#include "terminal/JsonOutput.h"
#include "terminal/Messages.h"
#include "terminal/Signals.h"
#include "terminal/Terminal.h"
#include <kel/convert/OpenSrc.h>

#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace kelsrc::cli {

namespace {

namespace fs = std::filesystem;

struct ViewArguments {
    std::vector<std::string> files;
    int port = 0;
    bool noOpen = false, json = false, quiet = false;
};

/// The files that are served, and the models among them as SRC files that vanish with this.
struct ServedFiles {
    std::vector<ServedFile> files;
    std::vector<std::unique_ptr<OutputFile>> converted;
};

/// Writes a model aside as "convert" would by default.
ServedFile convertAside(const std::string& path, ServedFiles& served, Messages& messages) {
    auto file = std::make_unique<OutputFile>(scratchPlace());
    Job job;
    job.source = kel::convert::Source::ofFile(path);
    job.destination = kel::convert::Destination::ofOpened(*file, job.source.file.stem().concat(".src"));
    FileReport report;
    {
        const CapturedOutput captured; // it would stand among the command's own lines
        report = convertFile(job, {});
    }
    for (const auto& warning : report.warnings)
        messages.warning(printable(path) + ": " + printable(warning));
    messages.info(reportText(job, report));
    served.converted.push_back(std::move(file));
    return {job.destination.file.string(), served.converted.back()->temporaryPath()};
}

ServedFiles filesToServe(const ViewArguments& arguments, Messages& messages) {
    ServedFiles served;
    for (const auto& path : arguments.files) {
        if (path == "-")
            throw Failure(STATUS_USAGE, "", "standard input cannot be viewed", "Save it to a file first.");
        if (fs::is_directory(path)) throw Failure(STATUS_INPUT, path, "is a folder", "Name the files in it.");
        if (!fs::exists(path) || kel::convert::looksLikeSrc(path)) {
            kel::convert::openSrc(path);
            const fs::path whole = fs::absolute(path);
            served.files.push_back({whole.filename().string(), whole.string()});
        } else {
            served.files.push_back(convertAside(path, served, messages));
        }
    }
    return served;
}

picojson::value toJson(const ViewServer& server, const ServedFiles& served) {
    picojson::object object;
    object["address"] = jsonText(server.address());
    object["port"] = jsonCount(static_cast<std::uint64_t>(server.port()));
    picojson::array files;
    for (std::size_t i = 0; i < served.files.size(); ++i) {
        picojson::object file;
        file["name"] = jsonText(served.files[i].name);
        file["path"] = jsonText(server.pathOf(i));
        files.emplace_back(file);
    }
    object["files"] = picojson::value(files);
    return picojson::value(object);
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
