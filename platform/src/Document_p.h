#pragma once

#include <src/Technique.h>
#include <src/Types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace src {

struct ArrayDelete {
    // What new[] of a type without a destructor got from ::operator new[], whatever the type was.
    void operator()(unsigned char* bytes) const { ::operator delete[](bytes); }
};
using OwnedArray = std::unique_ptr<unsigned char, ArrayDelete>;

inline OwnedArray takeArray(void* data) {
    return OwnedArray(static_cast<unsigned char*>(data));
}

constexpr std::size_t MAX_COMPONENTS = 4;

struct BufferView {
    std::size_t number;
    std::uint64_t byteLength;
};

struct AttributeView {
    std::size_t number;
    std::size_t bufferView;
    std::uint64_t byteOffset;
    std::uint64_t byteStride;
    std::uint64_t count;
    ComponentType type;
    unsigned int components;
    double decodeOffset[MAX_COMPONENTS];
    double decodeScale[MAX_COMPONENTS];
};

struct IndexView {
    std::size_t number;
    std::size_t bufferView;
    std::uint64_t count;
    ComponentType type;
};

struct Material {
    std::string name;
    std::shared_ptr<Technique> technique;
    std::map<std::string, std::vector<double>> values;
};

struct Mesh {
    std::string name;
    std::shared_ptr<IndexView> indices;
    PrimitiveType primitive;
    std::map<std::string, std::shared_ptr<AttributeView>> attributes;
    bool hasBounds = false;
    double bboxCenter[3] = {};
    double bboxSize[3] = {};
    std::shared_ptr<Material> material;
    std::string meta; ///< a JSON value's text; empty without metadata
};

struct Chunk {
    OwnedArray bytes;
    std::uint64_t byteLength;
};

struct MeshEntry {
    static constexpr std::size_t NO_MATERIAL = ~std::size_t(0);

    std::shared_ptr<Mesh> mesh;
    std::size_t material; ///< its place in Src::materials, or NO_MATERIAL
};

/// A document. Buffer view i lies over chunk i; the views' numbers are their places here.
struct Src {
    std::vector<Chunk> chunks;
    std::vector<std::shared_ptr<AttributeView>> attributeViews;
    std::vector<std::shared_ptr<IndexView>> indexViews;
    std::vector<std::shared_ptr<BufferView>> bufferViews;
    std::vector<std::shared_ptr<Technique>> techniques;
    std::vector<std::shared_ptr<Material>> materials;
    std::vector<MeshEntry> meshes;
    std::unordered_map<const Material*, std::size_t> materialPlaces;
    std::unordered_set<const Mesh*> knownMeshes;

    template<typename View>
    static bool holds(const std::vector<std::shared_ptr<View>>& views, const std::shared_ptr<View>& view) {
        return view->number < views.size() && views[view->number] == view;
    }
};

} // namespace src
