// On a caller's input, the functions that are offered to users of the library: the steps, and writing.
#include <kel/prepare/WriteChecked.h>
#include <kel/prepare/detail/Steps.h>

#include "MeshBuffers.h"

#include <kel/src/SrcWriter.h>
#include <kel/src/default_writer/MeshToContainer.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace kel::prepare {

using kel::scene::fromInput;
using kel::scene::Scene;
using kel::src::SrcWriter;
using kel::src::SrcWriterInput;

namespace {

template<typename Step, typename... Arguments>
Scene sceneAfter(const SrcWriterInput& input, const Step& step, const Arguments&... arguments) {
    Scene scene = fromInput(input);
    step(scene, arguments...);
    return scene;
}

/// For a caller whose maps of metadata are to stay without a writer's statistics.
SrcWriterInput toInputWithOwnMetaData(Scene scene) {
    for (kel::scene::SceneMesh& entry : scene.meshes) {
        if (entry.metaData) entry.editMetaData();
    }
    return toInput(std::move(scene));
}

} // namespace

SrcWriterInput transform(const SrcWriterInput& input, const TransformOptions& options) {
    return toInputWithOwnMetaData(sceneAfter(input, steps::transform, options, nullptr));
}

SrcWriterInput optimizeForGpu(const SrcWriterInput& input, OptimizeReport* report) {
    return toInputWithOwnMetaData(sceneAfter(input, steps::optimizeForGpu, report));
}

SrcWriterInput splitForShortIndices(const SrcWriterInput& input, const SplitOptions& options,
                                    SplitReport* report) {
    return toInput(sceneAfter(input, steps::splitForShortIndices, options, report));
}

SrcWriterInput keepStoredAttributes(const SrcWriterInput& input, std::vector<UnstoredAttribute>* removed) {
    return toInput(sceneAfter(input, steps::keepStoredAttributes, removed));
}

SrcWriterInput keepAttributesApart(const SrcWriterInput& input, ApartReport* report) {
    return toInput(sceneAfter(input, steps::keepAttributesApart, report));
}

SrcWriterInput fitToRange(const SrcWriterInput& input, FitReport* report, const FitOptions& options) {
    return toInputWithOwnMetaData(
        sceneAfter(input, steps::fitToRange, report, options, std::vector<steps::PositionBox>()));
}

std::vector<ClampCount> countClamped(const SrcWriterInput& input, const FitOptions& options) {
    return steps::countClamped(fromInput(input), options);
}

SrcWriterInput seamless(const SrcWriterInput& input, Target target, SeamlessReport* report) {
    Scene scene = fromInput(input);
    std::vector<steps::PositionBox> boxes;
    steps::seamless(scene, target, report, &boxes);
    if (isContainerTarget(target) && !boxes.empty()) {
        FitOptions options;
        options.target = target;
        steps::fitToRange(scene, nullptr, options, boxes);
    }
    if (!boxes.empty()) steps::roundToCodes(scene, target);
    return toInputWithOwnMetaData(std::move(scene));
}

SrcWriterInput roundToCodes(const SrcWriterInput& input, Target target, RoundReport* report) {
    return toInputWithOwnMetaData(sceneAfter(input, steps::roundToCodes, target, report));
}

std::vector<ReachedError> measureErrors(const SrcWriterInput& input, Target mode, Codes codes) {
    const Scene scene = fromInput(input);
    return steps::measureErrors(scene, mode, steps::positionErrors(scene, codes));
}

ModeChoice chooseMode(const SrcWriterInput& input, const MaxError& accepted, Codes codes) {
    const Scene scene = fromInput(input);
    return steps::chooseMode(scene, accepted, steps::positionErrors(scene, codes));
}

Problems findProblems(const SrcWriterInput& input, Target target, const ProblemOptions& options) {
    return steps::findProblems(fromInput(input), target, options);
}

void write(const SrcWriterInput& input, Target target, std::ostream& out) {
    switch (target) {
    case Target::UNCOMPRESSED:
        return SrcWriter::write(input, out, SrcWriter::UNCOMPRESSED);
    case Target::POSITION_COMPRESSED:
        return SrcWriter::write(input, out, SrcWriter::POSITION_COMPRESSED);
    case Target::POSITION_NORMAL_COMPRESSED:
        return SrcWriter::write(input, out, SrcWriter::POSITION_NORMAL_COMPRESSED);
    default:
        kel::src::detail::writeMeshSrcEncoded(input, detail::presetOf(target), out);
    }
}

void writeChecked(const SrcWriterInput& input, Target target, std::ostream& out) {
    const Problems problems = findProblems(input, target, {0});
    if (problems.errors == 0) return write(input, target, out);
    const auto first =
        std::find_if(problems.findings.begin(), problems.findings.end(),
                     [](const Finding& finding) { return finding.severity == Severity::ERROR; });
    std::string text = describe(*first);
    if (problems.errors > 1) text += " (and " + std::to_string(problems.errors - 1) + " more)";
    throw std::invalid_argument(text);
}

} // namespace kel::prepare
