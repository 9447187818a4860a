#include "Model.h"

#include <kel/mesh/AttributeNames.h>

namespace kel::importer::detail {

ModelAttribute* ModelPart::normals() {
    const bool there = attributes.size() > 1 && attributes[1].name == kel::mesh::DEFAULT_NORMALS_NAME;
    return there ? &attributes[1] : nullptr;
}

} // namespace kel::importer::detail
