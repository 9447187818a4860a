#pragma once

#include "terminal/Signals.h"

#include <kel/convert/AtomicFile.h>
#include <kel/convert/ProcessHooks.h>

#include <filesystem>
#include <memory>
#include <string>
#include <unistd.h>

namespace kelsrc::cli {

/// What the library is told of this process: a SignalGuard removes temporary files.
inline kel::convert::ProcessHooks signalHooks() {
    kel::convert::ProcessHooks hooks;
    hooks.onTemporaryFile = [](const std::string& path) { return std::make_shared<ScopedTempFile>(path); };
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
