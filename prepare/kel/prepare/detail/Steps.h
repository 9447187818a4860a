#pragma once

#include <kel/prepare/ChooseMode.h>
#include <kel/prepare/FindProblems.h>
#include <kel/prepare/FitToRange.h>
#include <kel/prepare/KeepAttributes.h>
#include <kel/prepare/OptimizeForGpu.h>
#include <kel/prepare/RoundToCodes.h>
#include <kel/prepare/Seamless.h>
#include <kel/prepare/SplitForShortIndices.h>
#include <kel/prepare/Transform.h>
#include <kel/scene/Scene.h>

#include <array>
#include <vector>

/// The functions of kel::prepare on the scene that the importer makes, for a caller that takes several steps.
/// Not installed: callers of the library have the functions of the same names that take a SrcWriterInput, and
/// whose headers tell what each does.
///
/// A step changes the entries that it has to and leaves the others alone; what it replaces is freed as soon
/// as nobody else holds it. A metadata map is copied before its first change, unless the entry owns it, and
/// steps that change no metadata copy none. A mesh that is listed twice is worked on once.
///
/// throws  std::invalid_argument as the functions of the same names do, with a message that names the mesh;
///         the scene is of no further use then
namespace kel::prepare::steps {

using kel::scene::Scene;

/// The order of the steps: transform; optimizeForGpu; for the container writer keepStoredAttributes,
/// keepAttributesApart and, for its preset "CMP1", fitToRange; for the public writer splitForShortIndices and
/// chooseMode; for what quantizes roundToCodes, after which nothing moves a value; findProblems last.
/// Where it is wanted, seamless comes before fitToRange or after chooseMode.
///
/// rounding  gets the largest distance, in units of the result, that rounding positions to floats adds
KEL_PREPARE_EXPORT void transform(Scene& scene, const TransformOptions& options, double* rounding = nullptr);
KEL_PREPARE_EXPORT void optimizeForGpu(Scene& scene, OptimizeReport* report = nullptr);
KEL_PREPARE_EXPORT void splitForShortIndices(Scene& scene, const SplitOptions& options = {},
                                             SplitReport* report = nullptr);
KEL_PREPARE_EXPORT void keepStoredAttributes(Scene& scene, std::vector<UnstoredAttribute>* removed = nullptr);
KEL_PREPARE_EXPORT void keepAttributesApart(Scene& scene, ApartReport* report = nullptr);

/// The cube that codes divide, of a mesh on a lattice; a side of 0 for any other.
struct PositionBox {
    std::array<double, 3> low{};
    double side = 0.0;
};
/// boxes  gets those of the meshes; in a preset, whose cubes stand nowhere else, fitToRange has to get them
KEL_PREPARE_EXPORT void seamless(Scene& scene, Target target, SeamlessReport* report = nullptr,
                                 std::vector<PositionBox>* boxes = nullptr);
/// boxes  by mesh: where there is one it is the range of "position"
KEL_PREPARE_EXPORT void fitToRange(Scene& scene, FitReport* report = nullptr, const FitOptions& options = {},
                                   const std::vector<PositionBox>& boxes = {});
KEL_PREPARE_EXPORT void roundToCodes(Scene& scene, Target target, RoundReport* report = nullptr);

KEL_PREPARE_EXPORT std::vector<ClampCount> countClamped(const Scene& scene, const FitOptions& options = {});
/// Of each mesh in the modes that quantize positions; see measureErrors.
KEL_PREPARE_EXPORT std::vector<double> positionErrors(const Scene& scene, Codes codes);
KEL_PREPARE_EXPORT std::vector<ReachedError> measureErrors(const Scene& scene, Target mode,
                                                           const std::vector<double>& positionErrors);
KEL_PREPARE_EXPORT ModeChoice chooseMode(const Scene& scene, const MaxError& accepted,
                                         const std::vector<double>& positionErrors);
KEL_PREPARE_EXPORT Problems findProblems(const Scene& scene, Target target,
                                         const ProblemOptions& options = {});

} // namespace kel::prepare::steps
