#include <kel/prepare/detail/Steps.h>

#include <utility>

namespace kel::prepare::steps {

using kel::scene::fromInput;
using kel::scene::toInput;

void transform(Scene& scene, const TransformOptions& options) {
    scene = fromInput(prepare::transform(toInput(std::move(scene)), options));
}

void optimizeForGpu(Scene& scene, OptimizeReport* report) {
    scene = fromInput(prepare::optimizeForGpu(toInput(std::move(scene)), report));
}

void splitForShortIndices(Scene& scene, const SplitOptions& options, SplitReport* report) {
    scene = fromInput(prepare::splitForShortIndices(toInput(std::move(scene)), options, report));
}

void keepStoredAttributes(Scene& scene, std::vector<UnstoredAttribute>* removed) {
    scene = fromInput(prepare::keepStoredAttributes(toInput(std::move(scene)), removed));
}

void keepAttributesApart(Scene& scene, ApartReport* report) {
    scene = fromInput(prepare::keepAttributesApart(toInput(std::move(scene)), report));
}

void fitToRange(Scene& scene, FitReport* report, const FitOptions& options) {
    scene = fromInput(prepare::fitToRange(toInput(std::move(scene)), report, options));
}

std::vector<ClampCount> countClamped(const Scene& scene, const FitOptions& options) {
    return prepare::countClamped(toInput(scene), options);
}

std::vector<ReachedError> measureErrors(const Scene& scene, Target mode) {
    return prepare::measureErrors(toInput(scene), mode);
}

ModeChoice chooseMode(const Scene& scene, const MaxError& accepted) {
    return prepare::chooseMode(toInput(scene), accepted);
}

Problems findProblems(const Scene& scene, Target target, const ProblemOptions& options) {
    return prepare::findProblems(toInput(scene), target, options);
}

} // namespace kel::prepare::steps
