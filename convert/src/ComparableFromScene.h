#pragma once

#include <kel/convert/ComparableScene.h>
#include <kel/scene/Scene.h>

namespace kel::convert {

/// A scene of the importer, or of a caller. Expects indices below the number of vertices.
///
/// scene  given away where it is moved in: each mesh is freed when it was taken
ComparableScene comparableScene(kel::scene::Scene scene);

} // namespace kel::convert
