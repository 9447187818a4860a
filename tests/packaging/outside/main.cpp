#include <kel/mesh/KelMesh.h>
#include <kel/src/DefaultSrcWriter.h>
#include <kel/src/SrcWriterInput.h>

#include <cstdint>
#include <iostream>
#include <memory>
#include <sstream>
#include <vector>

int main() {
    auto triangle = std::make_shared<kel::mesh::DefaultMesh>();
    triangle->addAttribute("position", 3, std::vector<float>{0, 0, 0, 1, 0, 0, 0, 1, 0});
    triangle->setIndices(std::vector<std::uint16_t>{0, 1, 2});
    kel::src::SrcWriterInput input;
    input.meshes.push_back(triangle);

    std::ostringstream out;
    kel::src::writeMeshSrcDefault(input, out);
    const std::string file = out.str();
    // 23, 42, the header's length; behind the header six bytes of indices and 36 of positions.
    const std::size_t headerLength =
        static_cast<unsigned char>(file[8]) + 256u * static_cast<unsigned char>(file[9]);
    if (file[0] != 23 || file[4] != 42 || file.size() != 12 + headerLength + 6 + 36) {
        std::cerr << "unexpected file of " << file.size() << " bytes\n";
        return 1;
    }
    std::cout << "wrote " << file.size() << " bytes\n";
}
