#pragma once

#include <kel/importer/Importer.h>

#include <cstddef>
#include <string>

namespace kel::importer::detail {

/// The model as the caller gave it.
struct ModelSource {
    std::string shown; ///< for messages: the path as given
    std::string name;  ///< without folder, for metadata
    std::string disk;  ///< where the content is, unless it is in memory:
    const char* bytes = nullptr;
    std::size_t size = 0;
    std::string path;  ///< what Assimp takes for the place of the model; files beside it are looked for there
    std::string guess; ///< an extension by the content, for a name that has none

    /// Lower case, without dot; the guess when the name has none.
    std::string extension() const;

    /// place   in the file; may be empty
    /// remedy  empty for the code's own
    /// throws  ImportError
    [[noreturn]] void refuse(ImportCode code, const std::string& what, const std::string& place = {},
                             const std::string& remedy = {}) const;
};

/// With A to Z as small letters; others stay, whatever the locale.
std::string smallLetters(std::string text);

/// Tells the caller how far the import is and carries the caller's wish to stop.
class ProgressReporter {
public:
    ProgressReporter(const Progress& progress, const ModelSource& source)
        : progress(progress), source(source) {}

    /// throws  ImportError CANCELLED
    void report(const char* stage, double done);
    /// Asks whether to go on while nothing new is known.
    ///
    /// throws  ImportError CANCELLED
    void ask();
    bool cancelled() const { return stopped; }
    [[noreturn]] void refuseCancelled() const;

private:
    const Progress& progress;
    const ModelSource& source;
    std::string lastStage;
    double lastDone = 0.0;
    bool stopped = false;

    void tell();
};

} // namespace kel::importer::detail
