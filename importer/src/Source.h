#pragma once

#include <kel/importer/Importer.h>

#include <cstddef>
#include <string>

namespace kel::importer::detail {

/// The model as the caller gave it.
struct Source {
    std::string shown; ///< for messages: the path as given
    std::string name;  ///< without folder, for metadata
    std::string path;  ///< what Assimp opens
    /// The content when it is in memory; otherwise it is read from `path`.
    const char* bytes = nullptr;
    std::size_t size = 0;

    /// Lower case, without dot; empty when the name has none.
    std::string extension() const;

    [[noreturn]] void refuse(const char* code, const std::string& what, const std::string& place,
                             const std::string& remedy) const;
};

/// Reports how far the import is and carries the caller's wish to stop.
class Stages {
public:
    Stages(const Progress& progress, const Source& source) : progress(progress), source(source) {}

    /// throws  ImportError "cancelled"
    void at(const char* stage, double done);
    bool cancelled() const { return stopped; }
    [[noreturn]] void refuseCancelled() const;

private:
    const Progress& progress;
    const Source& source;
    std::string lastStage;
    double lastDone = 0.0;
    bool stopped = false;
};

} // namespace kel::importer::detail
