#include "ProgressReporter.h"

namespace kel::importer::detail {

void ProgressReporter::report(const char* stage, double done) {
    if (!progress) return;
    if (stage != lastStage) {
        lastStage = stage;
        lastDone = -1.0;
    }
    // Callers draw a bar: never backwards, and not more often than it can change.
    if (done < lastDone + 0.005 && !(done >= 1.0 && lastDone < 1.0)) return;
    lastDone = done;
    if (!progress(stage, done)) {
        stopped = true;
        refuseCancelled();
    }
}

void ProgressReporter::refuseCancelled() const {
    source.refuse(ImportCode::CANCELLED, "the import was cancelled");
}

} // namespace kel::importer::detail
