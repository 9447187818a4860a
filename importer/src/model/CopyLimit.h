#pragma once

#include "../ModelSource.h"

#include <string>

namespace kel::importer::detail {

/// Counts the memory that copies of meshes ask for, and refuses too much of it before it is taken. In doubles, since
/// they do not wrap, whatever a file multiplies.
class CopyLimit {
public:
    /// granted  bytes that are no copies
    CopyLimit(const ModelSource& source, const ImportOptions& options, double granted = 0.0)
        : source(source), limit(static_cast<double>(options.maxCopiedBytes)), taken(-granted) {}

    /// uses   of one mesh
    /// bytes  of its numbers
    /// place  of the mesh, for the message
    ///
    /// throws  ImportError
    void add(double uses, double bytes, const std::string& place);

private:
    const ModelSource& source;
    double limit;
    double taken;
};

} // namespace kel::importer::detail
