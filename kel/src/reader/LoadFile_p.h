#pragma once

#include <kel/src/reader/ByteSources_p.h>
#include <kel/src/reader/FileData_p.h>
#include <kel/src/reader/Findings_p.h>

#include <memory>
#include <string>

namespace kel::src::detail {

// The one loader, of the reader and the validator: preamble, header, references and the chunks' places are
// checked here, against the same limits whoever asks. All of these return nothing after a finding that makes
// the rest unreadable; a ThrowingSink has thrown by then.

/// A file in memory. `mapping` is what keeps `bytes` alive, unless the caller does.
std::unique_ptr<SrcFileData> loadBytes(ByteView bytes, const ReadLimits& limits, FindingSink& sink,
                                       Mapping mapping = {});
/// A stream, up to the end of its last chunk; a sink that wants all findings has it read one byte further,
/// which shows whether there is more.
std::unique_ptr<SrcFileData> loadStream(ByteInput& in, const ReadLimits& limits, FindingSink& sink);
/// A file by name, mapped or read as a stream.
///
/// throws  SrcError when it cannot be opened or read, or is a directory
std::unique_ptr<SrcFileData> loadPath(const std::string& path, const ReadLimits& limits, FindingSink& sink);

/// Preamble and header of a stream, which is left at the data section. Chunks are not checked yet.
std::unique_ptr<SrcFileData> loadStreamHeader(ByteInput& in, const ReadLimits& limits, FindingSink& sink);

} // namespace kel::src::detail
