#pragma once

#include <kel/convert/Convert.h>
#include <kel/prepare/Transform.h>
#include <kel/scene/Scene.h>

#include <string>
#include <vector>

namespace kel::convert {

/// What later checks need to know of the steps.
struct Prepared {
    /// Of the meshes, in a mode of the public writer: from where they were to what the file decodes to.
    std::vector<kel::prepare::ReachedError> errors;
    kel::prepare::TransformOptions change; ///< how everything was turned and scaled
};

/// Makes a scene fit its writer, by steps of kel::prepare, and says in the report what that changed or left
/// out. Sets report.target and report.error.
///
/// All steps between a model and its writer, those that are still to come included, have one order: import,
/// origin, clean, simplify, levels, merge, optimize, lattice, cut. What exists of them here is: leaving out
/// what is not triangles, and turning and scaling (before clean, which measures in units of the output);
/// reordering for GPUs (optimize); sorting attributes apart and fitting into a preset's box (lattice);
/// cutting for short indices and choosing a mode (cut). After these, what is quantized is moved: onto
/// lattices that meshes share, or so that it gets the nearest code. Last, problems are looked for: they are
/// those of the writer.
///
/// name     for messages
/// throws   ConvertError when the writer would refuse, lose or spoil something that the recipe does not allow
Prepared prepareScene(const std::string& name, const Recipe& recipe, kel::scene::Scene& scene,
                      ConvertReport& report);

} // namespace kel::convert
