#pragma once

#include <src/Technique.h>
#include <src/Types.h>

#include "TextBlocks_p.h"

#include <kel/src/format/ElementTypes.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <unordered_map>
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

using kel::src::format::MAX_COMPONENTS;

// What callers hold of views: their number and the document that they belong to. The document keeps no
// handle, so those of one mesh are gone, and their memory warm, when the next mesh comes.

struct ViewHandle {
    std::uint64_t document;
    std::size_t number;
};
struct BufferView : ViewHandle {
    std::uint64_t byteLength;
};
struct AttributeView : ViewHandle {};
struct IndexView : ViewHandle {};

struct AttributeEntry {
    std::size_t bufferView;
    std::uint64_t byteOffset;
    std::uint64_t byteStride;
    std::uint64_t count;
    ComponentType type;
    std::uint16_t components;
    bool hasDecode; ///< false: offsets 0 and scales 1
    double decodeOffset[MAX_COMPONENTS];
    double decodeScale[MAX_COMPONENTS];
};

struct IndexEntry {
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
    std::string meta;           ///< a JSON value's text; empty without metadata
    std::uint64_t document = 0; ///< the document that it was added to last
};

struct Chunk {
    OwnedArray bytes;
    std::uint64_t byteLength;
    std::uint64_t byteOffset;
};

constexpr std::size_t NO_MATERIAL = ~std::size_t(0);
constexpr std::size_t NO_MESH = ~std::size_t(0);

/// A mesh as it will stand in the header, but for the material's ID, which is known at the end only.
struct MeshEntry {
    std::string name;
    TextBlocks::Place head; ///< up to and with the key of the material
    TextBlocks::Place tail; ///< what follows the material
    std::size_t material;   ///< its place in Src::materials, or NO_MATERIAL
};

struct MaterialEntry {
    std::shared_ptr<Material> material;
    std::size_t firstUse = NO_MESH; ///< the first mesh that uses it
};

/// A document. Buffer view i lies over chunk i.
struct Src {
    const std::uint64_t id;
    std::vector<Chunk> chunks;
    std::deque<AttributeEntry> attributeViews;
    std::deque<IndexEntry> indexViews;
    std::vector<std::shared_ptr<Technique>> techniques;
    std::vector<MaterialEntry> materials;
    std::unordered_map<const Material*, std::size_t> materialPlaces;
    TextBlocks meshTexts;
    std::deque<MeshEntry> meshes;
    std::string fault; ///< why the document cannot be written; empty if it can

    Src() : id(nextId()) {}

    bool holds(const ViewHandle& view) const { return view.document == id; }

private:
    /// Never the ID of a document that is gone, as its address could be.
    static std::uint64_t nextId() {
        static std::atomic<std::uint64_t> next{1};
        return next++;
    }
};

} // namespace src
