#pragma once

#include <kel/src/format/FileLayout.h>

#include <cstdint>
#include <initializer_list>
#include <string_view>

namespace kel::src::detail {

/// Some of the keys that one kind of object has, by their positions in its NAMES.
class KeySet {
public:
    constexpr KeySet() = default;
    constexpr KeySet(std::initializer_list<std::uint32_t> keys) {
        for (const std::uint32_t key : keys)
            bits |= 1u << key;
    }

    constexpr bool has(std::uint32_t key) const { return (bits >> key & 1u) != 0; }
    constexpr bool hasAll(KeySet others) const { return (bits & others.bits) == others.bits; }
    void add(std::uint32_t key) { bits |= 1u << key; }

private:
    std::uint32_t bits = 0;
};

/// The objects of the header that have fixed keys: what these are called, and which of them must be there.
/// A Key is the position of its name in NAMES. All others are passed over.

struct RootKeys {
    enum Key : std::uint32_t {
        ACCESSORS,
        BUFFER_CHUNKS,
        BUFFER_VIEWS,
        MESHES,
        MATERIALS,
        META,
        TECHNIQUES,
        TEXTURE_VIEWS,
        TEXTURES
    };
    static constexpr std::string_view NAMES[] = {
        format::section::ACCESSORS,  format::section::BUFFER_CHUNKS, format::section::BUFFER_VIEWS,
        format::section::MESHES,     format::section::MATERIALS,     format::section::META,
        format::section::TECHNIQUES, format::section::TEXTURE_VIEWS, format::section::TEXTURES};
    static constexpr KeySet REQUIRED{ACCESSORS, BUFFER_CHUNKS, BUFFER_VIEWS, MESHES};
    /// What writers always write, but what a reader can do without.
    static constexpr KeySet CUSTOMARY{MATERIALS, META, TECHNIQUES, TEXTURE_VIEWS, TEXTURES};
};

struct AccessorKeys {
    enum Key : std::uint32_t { ATTRIBUTE_VIEWS, INDEX_VIEWS };
    static constexpr std::string_view NAMES[] = {format::section::ATTRIBUTE_VIEWS,
                                                 format::section::INDEX_VIEWS};
    static constexpr KeySet REQUIRED{ATTRIBUTE_VIEWS, INDEX_VIEWS};
};

struct ChunkKeys {
    enum Key : std::uint32_t { BYTE_LENGTH, BYTE_OFFSET };
    static constexpr std::string_view NAMES[] = {format::key::BYTE_LENGTH, format::key::BYTE_OFFSET};
    static constexpr KeySet REQUIRED{BYTE_LENGTH, BYTE_OFFSET};
};

struct BufferViewKeys {
    enum Key : std::uint32_t { BYTE_LENGTH, CHUNKS };
    static constexpr std::string_view NAMES[] = {format::key::BYTE_LENGTH, format::key::CHUNKS};
    static constexpr KeySet REQUIRED{BYTE_LENGTH, CHUNKS};
};

struct IndexViewKeys {
    enum Key : std::uint32_t { BUFFER_VIEW, BYTE_OFFSET, COMPONENT_TYPE, COUNT };
    static constexpr std::string_view NAMES[] = {format::key::BUFFER_VIEW, format::key::BYTE_OFFSET,
                                                 format::key::COMPONENT_TYPE, format::key::COUNT};
    static constexpr KeySet REQUIRED{BUFFER_VIEW, BYTE_OFFSET, COMPONENT_TYPE, COUNT};
};

struct AttributeViewKeys {
    enum Key : std::uint32_t {
        BUFFER_VIEW,
        BYTE_OFFSET,
        BYTE_STRIDE,
        COUNT,
        COMPONENT_TYPE,
        DECODE_OFFSET,
        DECODE_SCALE,
        TYPE
    };
    static constexpr std::string_view NAMES[] = {format::key::BUFFER_VIEW,    format::key::BYTE_OFFSET,
                                                 format::key::BYTE_STRIDE,    format::key::COUNT,
                                                 format::key::COMPONENT_TYPE, format::key::DECODE_OFFSET,
                                                 format::key::DECODE_SCALE,   format::key::TYPE};
    static constexpr KeySet REQUIRED{BUFFER_VIEW, BYTE_OFFSET, BYTE_STRIDE, COUNT, COMPONENT_TYPE, TYPE};
};

struct MeshKeys {
    enum Key : std::uint32_t { ATTRIBUTES, BBOX_CENTER, BBOX_SIZE, INDICES, MATERIAL, META, PRIMITIVE };
    static constexpr std::string_view NAMES[] = {
        format::key::ATTRIBUTES, format::key::BBOX_CENTER, format::key::BBOX_SIZE, format::key::INDICES,
        format::key::MATERIAL,   format::key::META,        format::key::PRIMITIVE};
    static constexpr KeySet REQUIRED{ATTRIBUTES, PRIMITIVE};
};

struct MaterialKeys {
    enum Key : std::uint32_t { INSTANCE_TECHNIQUE };
    static constexpr std::string_view NAMES[] = {format::key::INSTANCE_TECHNIQUE};
};

struct InstanceTechniqueKeys {
    enum Key : std::uint32_t { TECHNIQUE, VALUES };
    static constexpr std::string_view NAMES[] = {format::key::TECHNIQUE, format::key::VALUES};
};

struct TechniqueKeys {
    enum Key : std::uint32_t { PARAMETERS };
    static constexpr std::string_view NAMES[] = {format::key::PARAMETERS};
    static constexpr KeySet REQUIRED{PARAMETERS};
};

} // namespace kel::src::detail
