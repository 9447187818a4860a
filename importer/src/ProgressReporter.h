#pragma once

#include "ModelSource.h"

#include <kel/importer/Importer.h>

#include <string>

namespace kel::importer::detail {

/// Tells the caller how far the import is and carries the caller's wish to stop.
class ProgressReporter {
public:
    ProgressReporter(const Progress& progress, const ModelSource& source)
        : progress(progress), source(source) {}

    /// throws  ImportError CANCELLED
    void report(const char* stage, double done);
    bool cancelled() const { return stopped; }
    [[noreturn]] void refuseCancelled() const;

private:
    const Progress& progress;
    const ModelSource& source;
    std::string lastStage;
    double lastDone = 0.0;
    bool stopped = false;
};

} // namespace kel::importer::detail
