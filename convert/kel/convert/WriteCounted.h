#pragma once

#include <kel/convert/Export.h>

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>

namespace kel::convert {

/// Has `write` write to a stream.
///
/// name     of the stream, for messages
/// returns  how many bytes that were
/// throws   ConvertError with STREAM_FAILED when the stream took less
KEL_CONVERT_EXPORT std::uint64_t writeCounted(std::ostream& stream, const std::string& name,
                                              const std::function<void(std::ostream&)>& write);

} // namespace kel::convert
