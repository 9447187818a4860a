#include "ViewCommand.h"

#include "AtomicFile.h"
#include "Batch.h"
#include "Browser.h"
#include "JsonOutput.h"
#include "LibraryTalk.h"
#include "Messages.h"
#include "Report.h"
#include "Signals.h"
#include "SrcInput.h"
#include "Status.h"
#include "Terminal.h"
#include "ViewServer.h"
#include "ViewerPage.h"

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

/// What is served, and the models among it as SRC files that vanish with this.
struct Shelf {
    std::vector<ServedFile> files;
    std::vector<std::unique_ptr<AtomicFile>> converted;
};

/// Writes a model aside as "convert" would by default.
ServedFile convertAside(const std::string& path, Shelf& shelf, Messages& messages) {
    Job job;
    job.source.file = path;
    job.target.file = job.source.file.stem();
    job.target.file += ".src";
    auto file = std::make_unique<AtomicFile>(scratchPlace());
    job.target.opened = file.get();
    ConvertReport report;
    {
        LibraryTalk talk; // what the libraries say would stand among the command's own lines
        report = convert(job.source, job.target, {});
    }
    for (const auto& warning : report.warnings)
        messages.warning(printable(path) + ": " + printable(warning));
    messages.info(describe(job, report));
    shelf.converted.push_back(std::move(file));
    return {job.target.file.string(), shelf.converted.back()->temporaryPath()};
}

Shelf shelve(const ViewArguments& arguments, const Streams& streams, Messages& messages) {
    Shelf shelf;
    for (const auto& path : arguments.files) {
        if (path == "-")
            throw Failure(STATUS_USAGE, "", "standard input cannot be viewed", "Save it to a file first.");
        if (fs::is_directory(path)) throw Failure(STATUS_INPUT, path, "is a folder", "Name the files in it.");
        if (!fs::exists(path) || looksLikeSrc(path)) {
            openSrcFile(path, streams.in);
            const fs::path whole = fs::absolute(path);
            shelf.files.push_back({whole.filename().string(), whole.string()});
        } else {
            shelf.files.push_back(convertAside(path, shelf, messages));
        }
    }
    return shelf;
}

picojson::value toJson(const ViewServer& server, const Shelf& shelf) {
    picojson::object object;
    object["address"] = jsonText(server.address());
    object["port"] = jsonCount(static_cast<std::uint64_t>(server.port()));
    picojson::array files;
    for (std::size_t i = 0; i < shelf.files.size(); ++i) {
        picojson::object file;
        file["name"] = jsonText(shelf.files[i].name);
        file["path"] = jsonText(server.pathOf(i));
        files.emplace_back(file);
    }
    object["files"] = picojson::value(files);
    return picojson::value(object);
}

int runView(const ViewArguments& arguments, const Streams& streams) {
    // Streams of their own on the same buffers: what libraries print on the process's streams is caught
    // meanwhile.
    std::ostream out(streams.out.rdbuf()), err(streams.err.rdbuf());
    Messages messages(err, arguments.quiet ? Messages::QUIET : Messages::NORMAL,
                      terminalOf(streams.err).colour);
    const std::string page = viewerPage();
    const Shelf shelf = shelve(arguments, streams, messages);
    ViewServer server(page, shelf.files, arguments.port);
    const StopRequest stop;
    // Before there are connections that a browser would inherit; they wait for start().
    if (!arguments.noOpen) openInBrowser(server.address());
    server.start();
    if (arguments.json) {
        out << toJson(server, shelf).serialize() << std::endl;
    } else {
        out << server.address() << std::endl;
    }
    if (!out) throw Failure(STATUS_NOT_WRITTEN, "standard output", "cannot be written");
    messages.info("Serving to this machine only; Ctrl-C stops it.");
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
    verb->add_flag("--json", arguments->json, "Print the address for programs, on one line");
    verb->add_flag("-q,--quiet", arguments->quiet, "Print errors and the address only");
    verb->footer(R"(
Serves the viewer and these files, and nothing else, to programs on this machine until Ctrl-C or SIGTERM stops it
(status 0). Prints the address on standard output; where there is a desktop the browser opens it.

A file that has changed is seen when the page is loaded again. Models are converted first, as "kelsrc convert" does
without options, and what was converted vanishes at the end.)");
    return [arguments](const Streams& streams) { return runView(*arguments, streams); };
}

} // namespace kelsrc::cli
