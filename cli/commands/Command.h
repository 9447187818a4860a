#pragma once

#include "commands/Verbs.h"
#include "terminal/Messages.h"

#include <kel/importer/Importer.h>
#include <kel/src/SrcReader.h>

#include <CLI/App.hpp>

#include <functional>
#include <ostream>
#include <string>

namespace kelsrc::cli {

struct Streams {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
};

/// Runs a verb after the command line was read; returns the exit status.
using Action = std::function<int(const Streams&)>;

/// Each adds its verb with its options to the command line.
#define KELSRC_VERB(name, add) Action add(CLI::App& app);
KELSRC_VERBS(KELSRC_VERB)
#undef KELSRC_VERB

// ---- What verbs share -----------------------------------------------------------------------------------

/// Where a verb writes: streams of its own on the buffers of the command's, because what libraries print on the
/// process's own streams is captured meanwhile.
struct Output {
    explicit Output(const Streams& streams, Messages::Level level = Messages::NORMAL);
    /// Tells the command's stream when writing data has failed.
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    const Terminal terminal; ///< of standard error
    std::ostream out, err;
    Messages messages;

private:
    std::ostream& shared;
};

CLI::Option* addJson(CLI::App& verb, bool& json, const char* text = "Print a report for programs");
CLI::Option* addQuiet(CLI::App& verb, bool& quiet, const char* text = "Print errors only");
CLI::Option* addMeshes(CLI::App& verb, bool& meshes);

/// What --import-timeout and --import-memory say.
struct ImportLimitArguments {
    std::string timeout, memory;
};
void addImportLimits(CLI::App& verb, ImportLimitArguments& arguments, const char* group = "Options");
/// throws  Failure
kel::importer::ImportLimits limitsOf(const ImportLimitArguments& arguments);

/// How an input is called in messages: "-" is standard input.
std::string inputName(const std::string& path);

/// Opens an SRC file; "-" reads `in`.
///
/// throws  kel::convert::ConvertError
kel::src::SrcFile openSrcFile(const std::string& path, std::istream& in);

} // namespace kelsrc::cli
