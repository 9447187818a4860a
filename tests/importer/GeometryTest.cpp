#include "ImporterTest.h"

namespace kel::importer::test {

using testing::ElementsAre;
using testing::SizeIs;

class Geometry : public ImporterTest {};

TEST_F(Geometry, CornersWithEqualAttributesAreOneVertex) {
    const auto result = import("square.obj", "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nf 1 2 3\nf 1 3 4\n");
    ASSERT_THAT(result.input.meshes, SizeIs(1));
    const auto& mesh = *result.input.meshes[0];
    EXPECT_EQ(mesh.getPrimitiveType(), kel::mesh::TRIANGLES);
    EXPECT_THAT(indicesOf(mesh), ElementsAre(0, 1, 2, 0, 2, 3));
    EXPECT_THAT(numbersOf(mesh, "position"), ElementsAre(0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0));
}

} // namespace kel::importer::test
