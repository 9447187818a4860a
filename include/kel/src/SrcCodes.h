#pragma once

#include <kel/src/Export.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kel::src {

/// How much a finding matters.
enum class Severity : std::uint8_t {
    ERROR,   ///< the file is broken: some reader fails on it or shows something wrong
    WARNING, ///< the file reads, but holds something that its writer can hardly have meant
    HINT     ///< the file is fine; this costs bytes or time
};

// clang-format off
/// Everything that can be said about an SRC file, in one table:
///
///     X(CODE, severity, reader refuses it, sentence for people, remedy)
///
/// The name of a code is its text everywhere and never changes. The enum, the messages, docs/errors.md and the
/// commands draw from here.
#define KELSRC_CODES(X) \
    X(UNREADABLE, ERROR, true, "The file cannot be read.", "Check the path and the permissions.") \
    X(NOT_A_FILE, ERROR, true, "This is not a file.", "Name the SRC file itself.") \
    X(EMPTY_FILE, ERROR, true, "The file is empty.", "Write or download it again; the last attempt left nothing.") \
    X(TRUNCATED_PREAMBLE, ERROR, true, "The file ends inside its first 12 bytes.", "Write or download it again.") \
    X(LOOKS_LIKE_HTML, ERROR, true, "This is a web page, not an SRC file.", "Check the address: the server answered with a page, often an error page.") \
    X(LOOKS_LIKE_GLB, ERROR, true, "This is a GLB file, not an SRC file.", "Convert it: kelsrc convert MODEL -o OUT.src.") \
    X(WRONG_SIGNATURE, ERROR, true, "The file does not begin with the numbers 23 and 42, so it is not an SRC file.", "Check that this is the right file.") \
    X(UNKNOWN_LAYOUT, ERROR, true, "The file begins with 23 but not with 42 after it: a layout that this reader does not know.", "Read it with a newer version.") \
    X(HEADER_EMPTY, ERROR, true, "The header has the length 0.", "Write the file again; its writer did not finish.") \
    X(HEADER_TRUNCATED, ERROR, true, "The header is longer than the rest of the file.", "Write or download the file again.") \
    X(LIMIT_EXCEEDED, ERROR, true, "The file asks for more than the limits allow.", "If you trust the file, raise the limit that is named.") \
    X(JSON_SYNTAX, ERROR, true, "The header is not valid JSON.", "Write the file again; the place is where reading stopped.") \
    X(WRONG_TYPE, ERROR, true, "A value has the wrong JSON type.", "Correct the writer.") \
    X(BAD_NUMBER, ERROR, true, "A number is not a whole number from 0 to 2^53 - 1, or not finite.", "Correct the writer.") \
    X(WRONG_LENGTH, ERROR, true, "A list of numbers has the wrong length.", "Give one number per component.") \
    X(MISSING_SECTION, ERROR, true, "A section of the header is missing.", "Write the section, empty if there is nothing in it.") \
    X(MISSING_OPTIONAL_SECTION, WARNING, false, "A section that writers always write is missing; it reads as empty.", "Write the section, empty if there is nothing in it.") \
    X(MISSING_KEY, ERROR, true, "A required entry is missing.", "Correct the writer.") \
    X(UNKNOWN_KEY, HINT, false, "Readers do not know this entry and skip it.", "Keep own data under \"meta\".") \
    X(DUPLICATE_KEY, ERROR, false, "The same key stands twice; readers take the last one.", "Give every entry a key of its own.") \
    X(BAD_COMPONENT_TYPE, ERROR, true, "The component type is none that is allowed here.", "Use 5120 to 5126; for indices 5121, 5123 or 5125.") \
    X(BAD_TYPE, ERROR, true, "The type is none of SCALAR, VEC2, VEC3 and VEC4.", "Correct the writer.") \
    X(BAD_PRIMITIVE, ERROR, true, "The primitive is none of the modes 0 to 6.", "Correct the writer.") \
    X(BAD_STRIDE, ERROR, true, "The stride is smaller than one element.", "Use the size of an element, or more when data are interleaved.") \
    X(ZERO_DECODE_SCALE, ERROR, true, "A decode scale is 0, by which values would be divided.", "Correct the writer; 1 leaves values as they are.") \
    X(DANGLING_CHUNK, ERROR, true, "A buffer view names a chunk that is not there.", "Correct the writer.") \
    X(DANGLING_BUFFER_VIEW, ERROR, true, "A view names a buffer view that is not there.", "Correct the writer.") \
    X(DANGLING_INDEX_VIEW, ERROR, true, "A mesh names an index view that is not there.", "Correct the writer.") \
    X(DANGLING_ATTRIBUTE_VIEW, ERROR, true, "A mesh names an attribute view that is not there.", "Correct the writer.") \
    X(DANGLING_MATERIAL, ERROR, false, "A mesh names a material that is not there; it reads as a mesh without one.", "Add the material, or leave the name empty.") \
    X(DANGLING_TECHNIQUE, ERROR, false, "A material names a technique that is not there.", "Add the technique.") \
    X(CHUNK_PAST_END, ERROR, true, "A chunk ends past the end of the file.", "Write or download the file again; its end is missing.") \
    X(VIEW_PAST_END, ERROR, true, "A view reads past the bytes of its buffer view.", "Correct offset, stride or count, or store the missing bytes.") \
    X(REPEATED_CHUNKS, ERROR, true, "A buffer view's chunks add up to more than the data section, so some are repeated.", "Name every chunk once.") \
    X(CHUNK_OVERLAP, WARNING, false, "Two chunks share bytes.", "Give every chunk bytes of its own.") \
    X(CHUNK_GAP, WARNING, false, "Bytes between two chunks belong to none.", "Store chunks back to back.") \
    X(TRAILING_BYTES, WARNING, false, "Bytes after the last chunk belong to none.", "Cut the file behind its last chunk.") \
    X(VIEW_LENGTH, WARNING, false, "A buffer view's length is not the sum of its chunks.", "Store all its bytes, or correct the length.") \
    X(UNUSED_CHUNK, WARNING, false, "No buffer view uses this chunk.", "Leave it out.") \
    X(UNUSED_BUFFER_VIEW, WARNING, false, "No view uses this buffer view.", "Leave it out.") \
    X(UNUSED_INDEX_VIEW, WARNING, false, "No mesh uses this index view.", "Leave it out.") \
    X(UNUSED_ATTRIBUTE_VIEW, WARNING, false, "No mesh uses this attribute view.", "Leave it out.") \
    X(UNUSED_MATERIAL, HINT, false, "No mesh uses this material.", "Leave it out.") \
    X(UNUSED_TECHNIQUE, HINT, false, "No material uses this technique.", "Leave it out.") \
    X(MATERIAL_WITHOUT_TECHNIQUE, ERROR, false, "A material has no technique.", "Give it \"instanceTechnique\" with a technique's name.") \
    X(UNKNOWN_PARAMETER, WARNING, false, "A material sets a parameter that its technique does not have.", "Correct the name, or declare it in the technique.") \
    X(METADATA_NOT_OBJECT, WARNING, false, "The metadata are a text, not an object: they were no valid JSON when they were written.", "Give every metadata value as JSON; a plain text needs its own quotes.") \
    X(ORIGIN_MALFORMED, WARNING, false, "The metadata entry \"origin\" is not three finite numbers; it is ignored.", "Write it as [x, y, z].") \
    X(BOUNDS_MALFORMED, WARNING, false, "The metadata entry \"bounds\" is not a box of six finite numbers; it is ignored.", "Write it as [xMin, yMin, zMin, xMax, yMax, zMax].") \
    X(FIT_MALFORMED, WARNING, false, "The metadata entry \"fit\" does not give offset and scale per component; it is ignored.", "Write it as {\"position\": {\"offset\": [..], \"scale\": [..]}}.") \
    X(MISSING_POSITION, WARNING, false, "A mesh has no positions, so nothing of it can be drawn.", "Give it an attribute \"position\".") \
    X(INDEX_OUT_OF_RANGE, ERROR, false, "An index is not below the number of vertices.", "Correct the indices; in 16 bits, split meshes above 65535 vertices.") \
    X(INDEX_IS_RESTART, WARNING, false, "An index is the largest number of its type, which WebGL 2 takes for the start of a new strip.", "Use at most 65535 vertices with 16-bit indices.") \
    X(INCOMPLETE_PRIMITIVE, WARNING, false, "The last primitive lacks indices.", "Give three indices per triangle and two per line.") \
    X(DEGENERATE_PRIMITIVES, HINT, false, "Triangles without an area or lines without a length.", "Remove them: they cost and show nothing.") \
    X(NON_FINITE, ERROR, false, "A value is NaN or infinite.", "Repair the mesh before it is written.") \
    X(NORMAL_LENGTH, WARNING, false, "Normals are far from unit length.", "Normalise them; quantized ones must lie in the preset's range.") \
    X(ATTRIBUTE_COUNT, HINT, false, "An attribute has another number of elements than the positions.", "None needed when the mesh does not use it; writers let a mesh refer to an earlier mesh's attribute.") \
    X(MISSING_BOUNDS, HINT, false, "A mesh has positions but no bounds.", "Write bounds: viewers fit the camera and cull by them.") \
    X(BOUNDS_INCOMPLETE, WARNING, false, "A mesh has only one of bboxCenter and bboxSize; both are ignored.", "Write both.") \
    X(BOUNDS_INVERTED, ERROR, false, "The bounds have a negative size.", "Compute them from the positions.") \
    X(BOUNDS_TOO_SMALL, ERROR, false, "The bounds do not hold the positions.", "Compute them from the positions.") \
    X(STATISTICS_DIFFER, WARNING, false, "A statistic in the metadata disagrees with the geometry.", "Remove the entry, or write the file again.") \
    X(UNALIGNED_VIEW, HINT, false, "A view does not begin at a multiple of its component size, so a browser must copy it.", "Store wider types before narrower ones.") \
    X(THREE_BYTE_SLOTS, HINT, false, "Components of 3 bytes, which no GPU reads: a browser must decode them.", "Use 8 or 16 bits, or floats.") \
    X(STREAM_OVERLAP, ERROR, true, "Chunks share bytes, so the file cannot be read as a stream.", "Read the whole file instead.")
// clang-format on

/// Stable names for everything that the reader refuses and the validator finds.
enum class SrcCode : std::uint16_t {
#define KELSRC_CODE(name, severity, refused, sentence, remedy) name,
    KELSRC_CODES(KELSRC_CODE)
#undef KELSRC_CODE
};

/// One row of the table.
struct SrcCodeInfo {
    SrcCode code;
    std::string_view name; ///< the enumerator's name, e.g. "VIEW_PAST_END"
    Severity severity;
    bool refused; ///< the reader throws SrcError with it; all others are found by the validator only
    std::string_view sentence;
    std::string_view remedy;
};

inline constexpr SrcCodeInfo SRC_CODES[] = {
#define KELSRC_CODE(name, severity, refused, sentence, remedy)                                               \
    {SrcCode::name, #name, Severity::severity, refused, sentence, remedy},
    KELSRC_CODES(KELSRC_CODE)
#undef KELSRC_CODE
};

inline constexpr std::size_t SRC_CODE_COUNT = sizeof SRC_CODES / sizeof SRC_CODES[0];

/// The row of a code. The table is in the enum's order.
constexpr const SrcCodeInfo& infoOf(SrcCode code) {
    return SRC_CODES[static_cast<std::size_t>(code)];
}

/// "error", "warning" or "hint".
constexpr std::string_view severityName(Severity severity) {
    return severity == Severity::ERROR ? "error" : severity == Severity::WARNING ? "warning" : "hint";
}

} // namespace kel::src
