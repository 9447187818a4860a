#pragma once

#include <kel/convert/Export.h>
#include <kel/src/SrcReader.h>

#include <iosfwd>
#include <string>

namespace kel::convert {

/// Opens an SRC file, or reads one from a stream to its end.
///
/// name    of the stream, for messages
/// throws  ConvertError with SRC_REFUSED, in the reader's words
KEL_CONVERT_EXPORT kel::src::SrcFile openSrc(const std::string& path);
KEL_CONVERT_EXPORT kel::src::SrcFile openSrc(std::istream& stream, const std::string& name);

/// True when the file begins as SRC files do, or its name says that it is one; else it may be a model.
KEL_CONVERT_EXPORT bool looksLikeSrc(const std::string& path);

} // namespace kel::convert
