#pragma once

#include <src/Export.h>
#include <src/Types.h>

#include <memory>
#include <vector>

namespace src::builder {

/// Assembles one document.
///
/// Arrays handed over (every `void* data`) belong to the builder from the moment of the call, also when the
/// call throws. They must come from new[] of a type without a destructor, such as `new unsigned char[n]` or
/// `new unsigned short[n]`; they are freed with ::operator delete[], once, after the document. A null array
/// stands for 0 bytes. Arrays are never copied: they are written from where they lie.
///
/// Views, materials and meshes are numbered in the order in which they are added, so equal calls give equal
/// files. An object made by another builder is refused with std::invalid_argument.
class SRC_EXPORT SrcBuilder {
public:
    static std::shared_ptr<SrcBuilder> create();

    SrcBuilder(const SrcBuilder&) = delete;
    SrcBuilder& operator=(const SrcBuilder&) = delete;
    ~SrcBuilder();

    /// A buffer view over one chunk that holds `byteLength` bytes.
    std::shared_ptr<BufferView> addBufferView(void* data, unsigned long byteLength);

    /// Describes `elementCount` elements of `componentCount` components, 1 to 4, that begin at `byteOffset`
    /// of the buffer view and lie `byteStride` bytes apart. A reader decodes (code + decodeOffset) /
    /// decodeScale; an empty vector pointer stands for neutral values, offset 0 and scale 1.
    ///
    /// throws  std::invalid_argument for an empty buffer view, an unknown type, another component count,
    ///         decode vectors of another length, or elements outside the buffer view
    std::shared_ptr<AttributeView> addAttributeView(std::shared_ptr<BufferView> bufferView,
                                                    unsigned long byteOffset, unsigned long byteStride,
                                                    ComponentType type, unsigned long componentCount,
                                                    unsigned long elementCount,
                                                    std::shared_ptr<std::vector<double>> decodeOffset,
                                                    std::shared_ptr<std::vector<double>> decodeScale);

    /// A buffer view over the packed elements in `data` and an attribute view over all of it.
    ///
    /// throws  std::length_error when the bytes of the elements cannot be counted in 64 bits; otherwise like
    ///         addAttributeView
    std::shared_ptr<AttributeView> addDefaultAttributeView(void* data, ComponentType type,
                                                           unsigned long componentCount,
                                                           unsigned long elementCount,
                                                           std::shared_ptr<std::vector<double>> decodeOffset,
                                                           std::shared_ptr<std::vector<double>> decodeScale);

    /// A buffer view over `count` indices in `data` and an index view over all of it.
    std::shared_ptr<IndexView> addDefaultIndexView(void* data, ComponentType type, unsigned long count);

    /// Each of these adds an object once, however often it is handed in, and together with what it refers
    /// to; an empty pointer adds nothing.
    ///
    /// Materials of one name all stay: the first that a mesh uses keeps the name, the others are called
    /// name_2, name_3 and so on, and each mesh names the one that it was given. Meshes of one name all stay,
    /// too; there the one added first keeps the name.
    void addTechnique(std::shared_ptr<Technique> technique);
    void addMaterial(std::shared_ptr<Material> material);
    void addMesh(std::shared_ptr<Mesh> mesh);

    /// Hands the document over. The builder goes on with a new, empty one.
    std::shared_ptr<Src> build();

private:
    SrcBuilder();

    std::shared_ptr<Src> document;
};

} // namespace src::builder
