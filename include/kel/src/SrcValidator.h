#pragma once

#include <kel/src/Export.h>
#include <kel/src/SrcCodes.h>
#include <kel/src/SrcFile.h>

#include <array>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace kel::src {

/// One thing that is wrong with a file, or could be better.
struct SrcFinding {
    SrcCode code;
    /// Position from the file's first byte; SrcError::NO_OFFSET when there is none.
    std::uint64_t byteOffset = SrcError::NO_OFFSET;
    /// The place in the header as a JSON pointer, e.g. "/meshes/0/indices"; empty when there is none.
    std::string path;
    /// What was found there, e.g. "index 7 of 4 vertices, first at position 12"; may be empty.
    std::string detail;
    /// How many elements of the place it concerns: indices, primitives, values.
    std::uint64_t count = 1;

    Severity severity() const { return infoOf(code).severity; }
};

struct ValidateOptions {
    ReadLimits limits;
    /// Findings kept; those after them are counted only.
    std::size_t maxFindings = 1000;
    /// What the checks of bytes may read, as a multiple of the data section, and 64 MiB at least. A file is
    /// free to name the same bytes in many views; a file that does so beyond measure is not checked to its
    /// end, and LIMIT_EXCEEDED says so.
    std::uint32_t workFactor = 64;
};

struct ValidationReport {
    /// In the order found: front, header, references, then mesh by mesh.
    std::vector<SrcFinding> findings;
    /// All findings per severity, kept or not; by the enumerator's number.
    std::array<std::uint64_t, 3> counts{};

    std::uint64_t errors() const { return counts[static_cast<std::size_t>(Severity::ERROR)]; }
    std::uint64_t warnings() const { return counts[static_cast<std::size_t>(Severity::WARNING)]; }
    std::uint64_t hints() const { return counts[static_cast<std::size_t>(Severity::HINT)]; }
    /// No errors and no warnings.
    bool isClean() const { return errors() == 0 && warnings() == 0; }
};

/// Checks a file, and goes on after the first finding as far as what is left makes sense.
///
/// Beyond everything that the reader refuses it looks into the bytes: indices, values, bounds, normals,
/// statistics. What every file of our writers may hold is no finding above a hint: a mesh that names an
/// earlier mesh's attribute, an empty material name, an unused material or technique.
///
/// Reads nothing outside `bytes`, takes memory in proportion to the header and time in proportion to the
/// file.
KELSRC_EXPORT ValidationReport validateSrc(ByteView bytes, const ValidateOptions& options = {});
/// Opens as openSrc does; a file that cannot be opened is a finding too.
KELSRC_EXPORT ValidationReport validateSrc(const std::string& path, const ValidateOptions& options = {});
/// Reads the whole stream to its end.
KELSRC_EXPORT ValidationReport validateSrc(std::istream& in, const ValidateOptions& options = {});

} // namespace kel::src
