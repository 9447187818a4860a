#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kel::importer {

// clang-format off
/// Every reason for which a model is refused, in one table:
///
///     X(CODE, its text, what it means, what usually helps)
///
/// Texts are stable. What helps is written as the end of a sentence; a refusal that knows better says so.
#define KEL_IMPORT_CODES(X) \
    X(FILE_NOT_FOUND, "file-not-found", "there is no file at this path", "check the path") \
    X(NOT_A_FILE, "not-a-file", "the path leads to a directory", "name the model file in it") \
    X(FILE_UNREADABLE, "file-unreadable", "the file cannot be opened", "check the file's permissions") \
    X(EMPTY_FILE, "empty-file", "the file has no bytes", "export or download the model again") \
    X(WRONG_CONTENT, "wrong-content", "the content is of another kind than the name says", "give the file the right extension, or check what was downloaded or exported") \
    X(UNKNOWN_FORMAT, "unknown-format", "no reader knows the extension or the content", "convert it to a common format such as glTF, OBJ, STL or PLY") \
    X(TRUNCATED, "truncated", "the file ends before what its header announces", "the file is cut off; export or download it again") \
    X(IMPOSSIBLE_COUNT, "impossible-count", "a header claims more elements than the file can hold", "the file is cut off or its header damaged; export or download it again") \
    X(INVALID_JSON, "invalid-json", "the JSON of a glTF is broken", "the file is cut off or was edited; export or download it again") \
    X(INVALID_MODEL, "invalid-model", "the content is broken in another way", "export the model again") \
    X(MISSING_FILE, "missing-file", "a file beside the model that it needs is missing", "put that file beside the model") \
    X(UNSUPPORTED_FEATURE, "unsupported-feature", "the geometry is stored in a way that no reader here understands", "export the model without it") \
    X(UNSUPPORTED_EXTENSION, "unsupported-extension", "the file requires an extension of its format that is not known here", "export the model without it") \
    X(INDEX_OUT_OF_RANGE, "index-out-of-range", "a primitive uses a vertex that does not exist", "export the model again") \
    X(NO_SCENE, "no-scene", "the scene that was asked for is not in the file", "leave the choice of a scene out") \
    X(NO_MESH, "no-mesh", "nothing to draw", "check that the export includes geometry") \
    X(NO_EXTENT, "no-extent", "every vertex at one place, or nothing but triangles without area", "check the model's scale, or whether the right part was exported") \
    X(NON_FINITE_POSITIONS, "non-finite-positions", "positions are not finite", "correct them, or drop the primitives that use them") \
    X(NON_FINITE_TRANSFORM, "non-finite-transform", "the transform of a node is not finite", "correct the node's position, rotation and scale") \
    X(EXTENT_OVERFLOW, "extent-overflow", "positions or their extent do not fit a 32-bit float", "scale the model down") \
    X(TOO_DEEP, "too-deep", "nodes or values are nested deeper than any real model", "flatten the hierarchy") \
    X(TOO_MANY_COPIES, "too-many-copies", "meshes are placed so often that their copies take more memory than is allowed", "place fewer copies, export the scene in parts, or allow more (ImportOptions::maxCopiedBytes)") \
    X(READER_FAILED, "reader-failed", "the reader of this format crashed, or ended without a result", "convert the model to glTF or OBJ with another program") \
    X(TIME_LIMIT, "time-limit", "reading took longer than it may", "raise the limit (--import-timeout), or convert the model to glTF or OBJ with another program") \
    X(MEMORY_LIMIT, "memory-limit", "reading needed more memory than it may", "raise the limit (--import-memory), or convert the model to glTF or OBJ with another program") \
    X(OUT_OF_MEMORY, "out-of-memory", "the model does not fit into memory", "free some memory or split the model") \
    X(CANCELLED, "cancelled", "the caller's progress function asked to stop", "start it again to finish it")
// clang-format on

enum class ImportCode : std::uint8_t {
#define KEL_IMPORT_CODE(name, text, meaning, remedy) name,
    KEL_IMPORT_CODES(KEL_IMPORT_CODE)
#undef KEL_IMPORT_CODE
};

/// One row of the table.
struct ImportCodeInfo {
    ImportCode code;
    std::string_view text; ///< stable, e.g. "file-not-found"
    std::string_view meaning;
    std::string_view remedy;
};

inline constexpr ImportCodeInfo IMPORT_CODES[] = {
#define KEL_IMPORT_CODE(name, text, meaning, remedy) {ImportCode::name, text, meaning, remedy},
    KEL_IMPORT_CODES(KEL_IMPORT_CODE)
#undef KEL_IMPORT_CODE
};

inline constexpr std::size_t IMPORT_CODE_COUNT = sizeof IMPORT_CODES / sizeof IMPORT_CODES[0];

/// The row of a code. The table is in the enum's order.
constexpr const ImportCodeInfo& infoOf(ImportCode code) {
    return IMPORT_CODES[static_cast<std::size_t>(code)];
}

} // namespace kel::importer
