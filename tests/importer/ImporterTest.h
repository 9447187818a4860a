#pragma once

#include <kel/importer/Importer.h>
#include <kel/importer/detail/ServeImports.h>
#include <kel/material/MaterialClassic.h>

#include <support/TempFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace kel::importer {

/// What a failed comparison shows.
inline void PrintTo(ImportCode code, std::ostream* out) {
    *out << infoOf(code).text;
}

} // namespace kel::importer

namespace kel::importer::test {

/// A folder of its own for each test, removed with it.
class ImporterTest : public testing::Test {
protected:
    std::filesystem::path file(const std::string& name, const std::string& content) const {
        std::ofstream(folder / name, std::ios::binary) << content;
        return folder / name;
    }
    ImportResult import(const std::string& name, const std::string& content,
                        const ImportOptions& options = {}) const {
        return importModel(file(name, content), options);
    }

    const kel::tests::TempFolder temporary;
    const std::filesystem::path folder = temporary.path();
};

inline std::vector<std::size_t> indicesOf(const kel::mesh::Mesh& mesh) {
    std::vector<std::size_t> indices;
    const auto buffer = mesh.getIndexBuffer();
    for (std::size_t i = 0; buffer && i < buffer->getElementCount(); ++i)
        indices.push_back(buffer->getIndex(i));
    return indices;
}

/// All numbers of an attribute of floats, vertex after vertex; none when the mesh does not have it.
inline std::vector<float> numbersOf(const kel::mesh::Mesh& mesh, const std::string& attribute) {
    std::vector<float> numbers;
    const auto buffer = mesh.getAttributeBuffer(attribute);
    if (!buffer || buffer->getComponentType() != kel::mesh::FLOAT) return numbers;
    const std::size_t width = buffer->getComponentCountPerElement();
    numbers.resize(width * buffer->getElementCount());
    for (std::size_t i = 0; i < buffer->getElementCount(); ++i)
        buffer->getElement(i, &numbers[width * i]);
    return numbers;
}

/// An attribute as the corners of the primitives see it: element of index 0, of index 1, ...
inline std::vector<std::vector<float>> cornersOf(const kel::mesh::Mesh& mesh, const std::string& attribute) {
    const std::vector<float> numbers = numbersOf(mesh, attribute);
    std::vector<std::vector<float>> corners;
    if (numbers.empty()) return corners;
    const std::size_t width = mesh.getAttributeBuffer(attribute)->getComponentCountPerElement();
    for (const std::size_t i : indicesOf(mesh)) {
        corners.emplace_back(numbers.begin() + static_cast<std::ptrdiff_t>(width * i),
                             numbers.begin() + static_cast<std::ptrdiff_t>(width * (i + 1)));
    }
    return corners;
}

inline std::string metadataOf(const ImportResult& result, std::size_t mesh, const std::string& key) {
    const auto& map = *result.input.metaData.at(result.input.meshes.at(mesh));
    const auto found = map.find(key);
    return found == map.end() ? "" : found->second;
}

/// The material of a mesh, or null.
inline std::shared_ptr<kel::material::MaterialClassic> materialOf(const ImportResult& result,
                                                                  std::size_t mesh) {
    const auto found = result.input.meshMaterials.find(result.input.meshes.at(mesh));
    if (found == result.input.meshMaterials.end()) return nullptr;
    return std::dynamic_pointer_cast<kel::material::MaterialClassic>(found->second);
}

inline std::size_t droppedOf(const ImportResult& result, const std::string& kind) {
    std::size_t count = 0;
    for (const Dropped& dropped : result.report.dropped) {
        if (dropped.kind == kind) count += dropped.count;
    }
    return count;
}

/// From now on the importer is served by hostile_helper.cpp.
inline void useHostileHelper() {
    const auto program =
        std::filesystem::read_symlink("/proc/self/exe").replace_filename("hostile_import_helper");
    ::setenv(detail::HELPER_VARIABLE, program.c_str(), 1);
}

/// The error of an import that must fail.
template<typename Import>
ImportError errorOf(Import&& import) {
    try {
        import();
    } catch (const ImportError& error) {
        return error;
    }
    ADD_FAILURE() << "the import went through";
    return {ImportCode::CANCELLED, "", "no error", "", ""};
}

} // namespace kel::importer::test
