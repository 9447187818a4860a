#pragma once

#include "../checks/Checks.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::importer::detail {

enum class PlyType : std::uint8_t { INT8, UINT8, INT16, UINT16, INT32, UINT32, FLOAT, DOUBLE };

std::size_t sizeOf(PlyType type);
inline bool isFloating(PlyType type) {
    return type == PlyType::FLOAT || type == PlyType::DOUBLE;
}

struct PlyProperty {
    std::string name;
    PlyType type;                       ///< of the value, or of each in a list
    std::optional<PlyType> countType{}; ///< for lists
};

struct PlyElement {
    std::string name;
    std::uint64_t count = 0;
    std::vector<PlyProperty> properties;

    /// The least that one takes.
    std::uint64_t smallestSize(bool isText) const;
};

/// What a PLY file says about itself.
struct PlyHeader {
    bool isText = false;
    bool isBigEndian = false;
    std::vector<PlyElement> elements;
    std::vector<std::string> textures; ///< named in comments, as is customary
    std::size_t size = 0;              ///< bytes up to the first element
};

/// The header, with counts that the file has room for.
///
/// throws  ImportError
PlyHeader readPlyHeader(const ModelSource& source, const Content& content);

} // namespace kel::importer::detail
