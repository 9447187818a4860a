#pragma once

#include "terminal/Messages.h"
#include "terminal/Signals.h"

#include <kel/convert/AtomicFile.h>
#include <kel/convert/ProcessHooks.h>

#include <filesystem>
#include <memory>
#include <string>
#include <unistd.h>

namespace kelsrc::cli {

/// Around a call of the importer: some damaged files crash Assimp, and that is an error of the file.
struct ImporterCrash : CrashMessage {
    explicit ImporterCrash(const std::string& name)
        : CrashMessage("kelsrc: error: " + printable(name) +
                           ": Assimp, which reads models, crashed on this file\n"
                           "  It is damaged, or of a kind that this Assimp cannot read: export it again, "
                           "best as glTF. "
                           "The run ends here, and nothing was written for this file.\n",
                       STATUS_INPUT) {}
};

/// What the library is told of this process: a SignalGuard removes temporary files, and a crash of the importer
/// is told as an error of the model.
inline kel::convert::ProcessHooks signalHooks() {
    kel::convert::ProcessHooks hooks;
    hooks.onTemporaryFile = [](const std::string& path) { return std::make_shared<ScopedTempFile>(path); };
    hooks.onImport = [](const std::string& source) { return std::make_shared<ImporterCrash>(source); };
    return hooks;
}

/// An AtomicFile whose temporary file a SignalGuard removes.
class OutputFile : public kel::convert::AtomicFile {
public:
    explicit OutputFile(const std::filesystem::path& target, Naming naming = Naming::AUTOMATIC)
        : AtomicFile(target, signalHooks(), naming) {}
};

/// A name in the system's folder for temporary files, for a file that is never put in place.
inline std::filesystem::path scratchPlace() {
    return std::filesystem::temp_directory_path() / ("kelsrc-" + std::to_string(::getpid()) + ".src");
}

} // namespace kelsrc::cli
