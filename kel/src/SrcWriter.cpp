#include <kel/src/SrcWriter.h>

#include <kel/src/SrcLibWriterImpl.h>

#include <stdexcept>

namespace kel::src {

void SrcWriter::write(const SrcWriterInput& input, std::ostream& out, Compression mode) {
    switch (mode) {
    case UNCOMPRESSED:
        return detail::writeMeshSrcUncompressed(input, out);
    case POSITION_COMPRESSED:
        return detail::writeMeshSrcPosCompressed(input, out);
    case POSITION_NORMAL_COMPRESSED:
        return detail::writeMeshSrcPosNormalCompressed(input, out);
    }
    throw std::invalid_argument("Unknown compression parameter!!!");
}

} // namespace kel::src
