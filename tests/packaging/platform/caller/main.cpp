// Writes one triangle of the pipeline's own mesh class through libkelSrc, and looks for the traces that only
// the pipeline's own libraries leave.
#include <kel/material/MaterialClassic.h>
#include <kel/mesh/Mesh.h>
#include <kel/src/DefaultSrcWriter.h>
#include <kel/src/SrcWriter.h>

#include <iostream>
#include <memory>
#include <sstream>
#include <string>

namespace {

class Indices : public kel::mesh::IndexBuffer {
public:
    kel::mesh::ComponentType getComponentType() const override { return kel::mesh::UNSIGNED_SHORT; }
    std::size_t getComponentCountPerElement() const override { return 1; }
    std::size_t getComponentSizeInBytes() const override { return 2; }
    std::size_t getElementSizeInBytes() const override { return 2; }
    std::size_t getElementStrideInBytes() const override { return 2; }
    std::size_t getElementOffsetInBytes() const override { return 0; }
    std::size_t getElementCount() const override { return 3; }
    void resize(std::size_t) override {}
    std::size_t getIndex(std::size_t position) const override { return position; }
};

class Triangle : public kel::mesh::Mesh {
public:
    Triangle()
        : positions(kel::mesh::AttributeBuffer::createDefault(kel::mesh::FLOAT, 3, "position")),
          indices(std::make_shared<Indices>()) {
        const float corners[3][3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
        positions->resize(3);
        for (int i = 0; i < 3; ++i)
            positions->setElement(i, corners[i]);
    }
    // A fan gets no count in the statistics but a log record.
    kel::mesh::PrimitiveType getPrimitiveType() const override { return kel::mesh::TRIANGLE_FAN; }
    std::size_t getNumPrimitives() const override { return 1; }
    std::shared_ptr<kel::mesh::IndexBuffer> getIndexBuffer() const override { return indices; }
    std::size_t getNumAttributeBuffers() const override { return 1; }
    std::shared_ptr<kel::mesh::AttributeBuffer> getAttributeBuffer(std::size_t) const override {
        return positions;
    }
    std::shared_ptr<kel::mesh::AttributeBuffer> getAttributeBuffer(const std::string& name) const override {
        return name == "position" ? positions : nullptr;
    }

private:
    std::shared_ptr<kel::mesh::AttributeBuffer> positions;
    std::shared_ptr<kel::mesh::IndexBuffer> indices;
};

} // namespace

int main() {
    const auto mesh = std::make_shared<Triangle>();
    kel::src::SrcWriterInput input;
    input.meshes.push_back(mesh);
    input.meshMaterials[mesh] = std::make_shared<kel::material::MaterialClassic>();
    std::ostringstream out;
    kel::src::writeMeshSrcDefault(input, out);
    const std::string file = out.str();
    if (file.find("\"surfaceArea\":777") == std::string::npos ||
        file.find("\"material\":\"material0\"") == std::string::npos) {
        std::cerr << "the file lacks the pipeline's area or material\n";
        return 1;
    }
    kel::src::SrcWriter::write(input, std::cout, kel::src::SrcWriter::POSITION_COMPRESSED);
    std::cout << "wrote " << file.size() << " bytes\n";
}
