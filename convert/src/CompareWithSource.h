#pragma once

#include <kel/convert/Compare.h>
#include <kel/convert/Recipe.h>
#include <kel/prepare/ChooseMode.h>
#include <kel/prepare/Target.h>
#include <kel/prepare/Transform.h>
#include <kel/scene/Scene.h>

#include <vector>

namespace kel::convert {

/// What a file that a scene was converted into holds is compared with the scene itself, as it was before any
/// step: so no step can hide what it lost. What the recipe asks for is done here to the numbers of the scene,
/// in doubles and without the steps: leaving out what is not triangles, turning and scaling, clamping.
///
/// change   the turn and scale that the recipe led to
/// reached  of a file whose codes were rounded: the errors of its meshes in a mode of the public writer, which
///          are the limits then, as half a step is in a preset; null where codes may have been truncated
CompareReport compareWithSource(kel::scene::Scene source, const Recipe& recipe, kel::prepare::Target target,
                                const kel::prepare::TransformOptions& change, const kel::src::SrcFile& file,
                                const std::vector<kel::prepare::ReachedError>* reached);

} // namespace kel::convert
