#include <kel/prepare/MeshName.h>

#include <kel/scene/Scene.h>

namespace kel::prepare {

std::string meshName(const kel::src::SrcWriterInput& input, const kel::mesh::MeshPtr& mesh) {
    kel::scene::SceneMesh entry;
    if (const auto found = input.metaData.find(mesh); found != input.metaData.end())
        entry.metaData = found->second;
    return nameOfMesh(entry);
}

} // namespace kel::prepare
