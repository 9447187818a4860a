#include "files/OutputFile.h"

#include <memory>
#include <string>
#include <unistd.h>

namespace kelsrc::cli {

kel::convert::ProcessHooks signalHooks() {
    kel::convert::ProcessHooks hooks;
    hooks.onTemporaryFile = [](const std::string& path) { return std::make_shared<ScopedTempFile>(path); };
    hooks.onImport = [](const std::string& source) { return std::make_shared<ImporterCrash>(source); };
    return hooks;
}

std::filesystem::path scratchPlace() {
    return std::filesystem::temp_directory_path() / ("kelsrc-" + std::to_string(::getpid()) + ".src");
}

} // namespace kelsrc::cli
