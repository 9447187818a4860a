#pragma once

#include <kel/convert/AtomicFile.h>
#include <kel/convert/ProcessHooks.h>

#include <filesystem>

namespace kelsrc::cli {

/// What the library is told of this process: a SignalGuard removes temporary files, and a crash of the importer
/// is told as an error of the model.
kel::convert::ProcessHooks signalHooks();

/// An AtomicFile whose temporary file a SignalGuard removes.
class OutputFile : public kel::convert::AtomicFile {
public:
    explicit OutputFile(const std::filesystem::path& target, Naming naming = Naming::AUTOMATIC)
        : AtomicFile(target, signalHooks(), naming) {}
};

/// A name in the system's folder for temporary files, for a file that is never put in place.
std::filesystem::path scratchPlace();

} // namespace kelsrc::cli
