#pragma once

#include "../ModelSource.h"
#include "../checks/Content.h"
#include "GltfJson.h"

#include <picojson.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kel::importer::detail {

/// Reads numbers and references of the document, and refuses what they cannot be.
class GltfFields {
public:
    GltfFields(const ModelSource& source, const picojson::value& root) : source(source), root(root) {}

    const picojson::array& list(const char* name) const { return arrayOf(member(&root, name)); }
    /// With the advice to export the model again, whatever the code.
    [[noreturn]] void refuse(ImportCode code, const std::string& what, const GltfPlace& place) const;
    /// A whole number, `fallback` where it is missing.
    std::uint64_t number(const picojson::value* object, const char* name, std::uint64_t fallback,
                         const GltfPlace& place) const;
    /// A whole number below `size`; nothing where it is missing.
    std::optional<std::size_t> reference(const picojson::value* object, const char* name, std::size_t size,
                                         const GltfPlace& place) const;

    const ModelSource& source;

private:
    const picojson::value& root;
};

/// The bytes of one buffer, wherever they are.
class GltfBufferBytes {
public:
    void setRange(std::shared_ptr<const Content> from, std::uint64_t offset, std::uint64_t count);
    /// The text behind its first `first` characters.
    void setBase64(const std::string& text, std::size_t first);

    std::uint64_t size() const { return length; }
    void read(std::uint64_t offset, void* out, std::size_t count) const;

private:
    std::shared_ptr<const Content> content;
    std::uint64_t start = 0;
    std::uint64_t length = 0;
    std::string decoded;
};

struct GltfBufferView {
    std::size_t buffer = 0;
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
    std::uint64_t stride = 0;
};

struct GltfAccessor {
    std::optional<std::size_t> view;
    std::uint64_t offset = 0;
    std::uint64_t count = 0;
    std::uint64_t component = 0; ///< WebGL type
    std::string type;
    bool sparse = false;

    /// Of an element; 0 when its type or component type is unknown.
    std::uint64_t bytes() const;
};

/// The buffers, buffer views and accessors of a document, checked: every accessor lies within its view, every
/// view within its buffer.
class GltfAccessors {
public:
    /// whole  the model; its binary chunk, which may be empty, lies at the offset
    /// throws  ImportError
    GltfAccessors(const GltfFields& fields, std::shared_ptr<const Content> whole, std::uint64_t binaryOffset,
                  std::uint64_t binaryLength);

    std::size_t size() const { return accessors.size(); }
    const GltfAccessor& operator[](std::size_t index) const { return accessors[index]; }

    /// Refuses indices that are not below `vertices`; the accessor holds unsigned scalars.
    void checkIndices(const GltfAccessor& accessor, std::uint64_t vertices, const GltfPlace& place) const;

private:
    const GltfFields& fields;
    std::vector<GltfBufferBytes> buffers;
    std::vector<GltfBufferView> views;
    std::vector<GltfAccessor> accessors;
    std::uint64_t allBytes = 0; // of the model and the files beside it

    void readBuffers(const std::shared_ptr<const Content>& whole, std::uint64_t binaryOffset,
                     std::uint64_t binaryLength);
    void readViews();
    void readAccessors();
    void checkSparse(const picojson::value& sparse, const GltfAccessor& accessor,
                     const GltfPlace& place) const;
};

} // namespace kel::importer::detail
