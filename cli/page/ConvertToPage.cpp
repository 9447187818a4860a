#include "page/ConvertToPage.h"

#include "Failure.h"
#include "files/OutputFile.h"
#include "page/HtmlPage.h"

#include <kel/convert/Describe.h>
#include <kel/convert/OpenSrc.h>
#include <kel/convert/Verify.h>
#include <kel/convert/WriteCounted.h>
#include <kel/src/SrcValidator.h>

#include <string>

namespace kelsrc::cli {

namespace {

using kel::convert::Destination;

/// What an SRC file says about itself, and with --verify whether that is so.
FileReport describeSrc(const std::string& path, const kel::convert::ConvertOptions& options) {
    kel::convert::FileInfo info = kel::convert::describe(kel::convert::openSrc(path), options.list);
    FileReport report;
    report.format = "SRC";
    report.takenAsIs = true;
    report.notes.push_back("is an SRC file already, so it goes into the page as it is");
    report.counts = info.counts;
    report.bytesIn = report.bytesOut = info.bytes;
    for (auto& mesh : info.meshList)
        report.written.push_back({std::move(mesh.name), mesh.counts, mesh.bytes, {}});
    if (options.verify) {
        const std::string error = kel::convert::firstError(kel::src::validateSrc(path), false);
        if (!error.empty()) throw Failure(STATUS_INPUT, path, error, "\"kelsrc validate\" tells more.");
    }
    return report;
}

} // namespace

FileReport convertToPage(const kel::convert::Source& source, const kel::convert::Recipe& recipe,
                         const Destination& destination, const kel::convert::ConvertOptions& options) {
    checkDestination(source, destination, options.hooks);
    const std::string viewer = viewerPage();
    FileReport report;
    EmbeddedFile embedded;
    std::optional<OutputFile> scratch;
    if (!source.stream && kel::convert::looksLikeSrc(source.file.string())) {
        report = describeSrc(source.file.string(), options);
        embedded = {source.file.filename().string(), source.file.string()};
    } else {
        // The file's length stands before it in the page, so it is written aside: beside the page, where
        // there has to be room for it anyway.
        if (!destination.stream) scratch.emplace(destination.file);
        if (!scratch || scratch->temporaryPath().empty()) scratch.emplace(scratchPlace());
        const Destination aside = Destination::ofOpened(*scratch, destination.file);
        report = convert(source, recipe, aside, options);
        embedded = {(source.stream ? "model" : source.file.stem().string()) + ".src",
                    scratch->temporaryPath()};
    }
    report.bytesSrc = report.bytesOut;
    const auto onProgress = [&](std::uint64_t bytes) {
        if (options.progress)
            options.progress("packing",
                             static_cast<double>(bytes) / static_cast<double>(*report.bytesSrc + 1));
    };
    if (destination.stream) {
        report.bytesOut =
            kel::convert::writeCounted(*destination.stream, destination.shownName(), [&](std::ostream& out) {
                writeHtmlPage(out, viewer, embedded, onProgress);
            });
        return report;
    }
    OutputFile page(destination.file);
    writeHtmlPage(page.stream(), viewer, embedded, onProgress);
    report.bytesOut = page.flush();
    page.commit();
    return report;
}

} // namespace kelsrc::cli
