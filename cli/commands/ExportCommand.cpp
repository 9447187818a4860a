#include "commands/Command.h"
#include "commands/ConvertOutput.h"

#include "files/OutputFile.h"
#include "terminal/CapturedOutput.h"
#include <kel/convert/OpenSrc.h>

#include <kel/importer/Exporter.h>

#include <algorithm>
#include <filesystem>
#include <memory>

namespace kelsrc::cli {

namespace {

namespace fs = std::filesystem;
using kel::importer::ExportResult;

struct ExportArguments {
    std::string input, output;
    bool quiet = false;
};

/// Refuses an extension that no exporter has, before any work is done.
void checkExtension(const std::string& output) {
    std::string extension = fs::path(output).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    const auto& known = kel::importer::exportExtensions();
    if (!extension.empty() && std::find(known.begin(), known.end(), extension.substr(1)) != known.end())
        return;
    std::string list;
    for (std::size_t i = 0; i < known.size(); ++i)
        list += (i == 0 ? "." : i + 1 == known.size() ? " or ." : ", .") + known[i];
    throw Failure(STATUS_USAGE, output, "the extension says no format that can be written",
                  "Use " + list + '.');
}

void refuseInput(const fs::path& input, const fs::path& target) {
    if (kel::convert::isSameFile(input, target))
        throw Failure(STATUS_NOT_WRITTEN, target.string(), "is the SRC file itself, which would be lost",
                      "Choose another name for the output.");
}

/// All files are written before the first takes its place; the model, which names the others, comes last.
std::uint64_t write(const ExportResult& result, const fs::path& input, const fs::path& output) {
    std::vector<std::unique_ptr<OutputFile>> files;
    std::uint64_t bytes = 0;
    for (const auto& file : result.files) {
        const fs::path target =
            &file == &result.files.front() ? output : output.parent_path() / fs::path(file.name).filename();
        refuseInput(input, target);
        files.push_back(std::make_unique<OutputFile>(target));
        files.back()->stream().write(file.bytes.data(), static_cast<std::streamsize>(file.bytes.size()));
        bytes += files.back()->flush();
    }
    for (auto file = files.rbegin(); file != files.rend(); ++file)
        (*file)->commit();
    return bytes;
}

void print(Messages& messages, const std::string& output, const ExportResult& result, std::uint64_t bytes) {
    const kel::convert::GeometryCounts counts{result.meshes, result.triangles, result.lines, result.points,
                                              result.vertices};
    std::string text = printable(output) + ": " + countsText(counts) + ", " + counted(bytes, "byte", "bytes");
    for (std::size_t i = 1; i < result.files.size(); ++i)
        text += (i == 1 ? ", with " : ", ") + printable(result.files[i].name);
    messages.info(text + lossesText(result.dropped));
    if (result.positionError != 0.0)
        messages.warning(printable(output) + ": positions so far from zero are off by up to " +
                         shortNumber(result.positionError, 3) +
                         ", because this format is written in floats; .glb and .gltf keep them exact");
}

int runExport(const ExportArguments& arguments, const Streams& streams) {
    Output output(streams, arguments.quiet ? Messages::QUIET : Messages::NORMAL);
    try {
        const CapturedOutput captured;
        checkExtension(arguments.output);
        const fs::path target = arguments.output;
        refuseInput(arguments.input, target);
        OutputFile::check(target, signalHooks());
        const auto file = openSrcFile(arguments.input, streams.in);
        const ExportResult result = kel::importer::exportModel(file, target.filename().string());
        const std::uint64_t bytes = write(result, arguments.input, target);
        print(output.messages, arguments.output, result, bytes);
        return STATUS_OK;
    } catch (...) {
        const Failure failure = currentFailure(inputName(arguments.input));
        output.messages.error(failure);
        return failure.status();
    }
}

} // namespace

Action addExport(CLI::App& app) {
    const auto arguments = std::make_shared<ExportArguments>();
    CLI::App* verb = app.add_subcommand("export", "Turn an SRC file into a model file of another format");
    verb->add_option("FILE", arguments->input, "The SRC file; - reads standard input")->required();
    verb->add_option("-o,--output", arguments->output,
                     "The model; its extension says the format: .glb, .gltf, .obj, .ply or .stl")
        ->option_text("FILE")
        ->required();
    addQuiet(*verb, arguments->quiet);
    verb->footer(R"(
Values are decoded, and what was fitted into a preset's box is moved back. What the format cannot hold is
reported once per kind on standard error.

A .gltf comes with a file of its data, an .obj with one of its materials, beside it.)");
    return [arguments](const Streams& streams) { return runExport(*arguments, streams); };
}

} // namespace kelsrc::cli
