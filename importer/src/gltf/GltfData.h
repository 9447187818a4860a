#pragma once

#include "GltfContainer.h"
#include "GltfJson.h"

#include <kel/mesh/ComponentType.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kel::importer::detail {

/// Bytes of a file, or of what was decoded from it.
struct GltfBytes {
    const unsigned char* data = nullptr; ///< null: there are none, whatever the length says
    std::uint64_t length = 0;
};

/// Where the bytes of a view are when they are compressed by meshoptimizer's codecs.
struct GltfPackedView {
    enum class Mode : std::uint8_t { ATTRIBUTES, TRIANGLES, INDICES };
    enum class Filter : std::uint8_t { NONE, OCTAHEDRAL, QUATERNION, EXPONENTIAL };

    GltfBytes packed;
    std::uint64_t stride = 0;
    std::uint64_t count = 0;
    Mode mode = Mode::ATTRIBUTES;
    Filter filter = Filter::NONE;
    std::vector<unsigned char> bytes; ///< decoded when they are first asked for
};

struct GltfView {
    GltfBytes bytes;          ///< within its buffer
    std::uint64_t stride = 0; ///< 0: elements stand one behind another
    std::unique_ptr<GltfPackedView> packed;
};

struct GltfSparse {
    std::uint64_t count = 0;
    std::size_t indexView = 0, valueView = 0;
    std::uint64_t indexOffset = 0, valueOffset = 0;
    kel::mesh::ComponentType indexType = kel::mesh::UNSIGNED_INT;
};

struct GltfAccessor {
    std::optional<std::size_t> view; ///< none: zeros, or an extension has the values
    std::uint64_t offset = 0;
    std::uint64_t count = 0;
    kel::mesh::ComponentType type = kel::mesh::FLOAT;
    std::uint32_t width = 1; ///< components
    bool matrix = false;
    bool normalized = false;
    std::unique_ptr<GltfSparse> sparse;

    /// Of an element. Columns of a matrix begin at multiples of four bytes.
    std::uint64_t bytes() const;
};

/// Buffers, views and accessors, checked: an accessor lies within its view, a view within its buffer, and no count
/// is larger than the file has room for. Who reads elements checks no bounds again.
struct GltfData {
    std::vector<GltfView> views;
    std::vector<GltfAccessor> accessors;

    /// The bytes of a view, decoded when they are compressed. It has some.
    ///
    /// throws  ImportError when they cannot be decoded
    GltfBytes bytesOf(const ModelSource& source, std::size_t view) const;

    /// What the buffers' bytes live in.
    std::vector<Content> files;
    std::deque<std::string> decoded; // whose texts stay where they are
    /// Bytes of the model and the files beside it.
    std::uint64_t fileBytes = 0;
};

/// file  the model, with its binary chunk; kept open
///
/// throws  ImportError
GltfData readGltfData(const GltfObject& document, const Content& file, std::string_view binaryChunk);

/// 0 for a type that glTF does not have.
std::uint64_t bytesOfComponent(std::uint64_t type);

} // namespace kel::importer::detail
