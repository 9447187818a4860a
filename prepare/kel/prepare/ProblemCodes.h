#pragma once

#include <kel/src/SrcCodes.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kel::prepare {

/// ERROR: data would be lost, wrong or refused, or the writer would not come back. WARNING: something is left
/// out or probably not meant. HINT: worth knowing.
using kel::src::Severity;

// clang-format off
/// Everything that findProblems says of an input, in one table:
///
///     X(CODE, text of the code, severity, sentence for people, remedy)
///
/// The texts are for programs and never change. "{}" in a sentence stands for a detail of the finding. Rows are
/// in the order of their texts.
#define KEL_PREPARE_PROBLEMS(X) \
    X(ATTRIBUTE_COMPONENTS, "attribute-components", WARNING, "It has {} components per element and is left out; only one to three are written.", "Cut or split it to at most three.") \
    X(ATTRIBUTE_DROPPED, "attribute-dropped", WARNING, "It is left out: {} does not write attributes of this name.", "Choose a target that writes it, or rename it.") \
    X(ATTRIBUTE_DUPLICATE, "attribute-duplicate", ERROR, "The mesh has an attribute of this name already; one hides the other.", "Rename or remove one of them.") \
    X(ATTRIBUTE_INHERITED, "attribute-inherited", ERROR, "The mesh lacks this attribute, which an earlier mesh has, and would point at the earlier mesh's values.", "Apply keepAttributesApart first.") \
    X(ATTRIBUTE_LENGTH, "attribute-length", ERROR, "It does not have one element per vertex: {}.", "Make all attributes of the mesh as long as \"position\".") \
    X(ATTRIBUTE_MISSING, "attribute-missing", ERROR, "The mesh has an empty pointer in place of an attribute.", "Remove it from the mesh.") \
    X(ATTRIBUTE_NOT_FINITE, "attribute-not-finite", WARNING, "It has values that are NaN or infinite.", "Replace them by finite values.") \
    X(ATTRIBUTE_NOT_FLOAT, "attribute-not-float", WARNING, "Its integers are written bit for bit and labelled as floats.", "Convert it to floats.") \
    X(ATTRIBUTE_NOT_FLOAT_QUANTIZED, "attribute-not-float-quantized", ERROR, "Its integers would be quantized as if their bits were floats.", "Convert it to floats.") \
    X(ATTRIBUTE_TYPE, "attribute-type", WARNING, "Its components are not four bytes wide, so it is left out.", "Convert it to floats.") \
    X(BOX_DEGENERATE, "box-degenerate", WARNING, "All its vertices lie in one point.", "Remove the mesh.") \
    X(BOX_FLAT, "box-flat", HINT, "It is flat on an axis; the scale on that axis is that of a hundred-millionth of the diagonal.", "Nothing needs to be done.") \
    X(BOX_OVERFLOW, "box-overflow", ERROR, "Its bounds are too large for a 32-bit float.", "Scale the mesh down, or move it nearer to the origin.") \
    X(COMPONENT_CLAMPED, "component-clamped", ERROR, "It has components outside -0.5 to 0.5, which would be clamped.", "Apply fitToRange first.") \
    X(INDEX_INCOMPLETE, "index-incomplete", WARNING, "The last {} make no whole primitive and draw nothing.", "Remove them, or complete the primitive.") \
    X(INDEX_MISSING, "index-missing", ERROR, "The mesh has no index buffer and is skipped.", "Give it one index per vertex.") \
    X(INDEX_OUT_OF_RANGE, "index-out-of-range", ERROR, "It has indices that name no vertex: it has {} vertices.", "Remove the primitives that use them.") \
    X(INDEX_RESTART, "index-restart", WARNING, "It uses index 65535 in 16 bits, which restarts the primitive in WebGL 2.", "Use indices of four bytes, or split the mesh to 65,535 vertices.") \
    X(INPUT_EMPTY, "input-empty", WARNING, "There is no mesh to write.", "Add one.") \
    X(MATERIAL_NOT_CLASSIC, "material-not-classic", WARNING, "Its material is not a classic one; the mesh is written without a material.", "Convert it to a MaterialClassic.") \
    X(MATERIAL_NOT_FINITE, "material-not-finite", ERROR, "Material {} has a value that is NaN or infinite, which the header cannot hold.", "Replace it by a finite value.") \
    X(MATERIAL_NOT_IN_SET, "material-not-in-set", ERROR, "Its material is not among the input's materials; the mesh would be written without one.", "Add the material to the set.") \
    X(MESH_DUPLICATE, "mesh-duplicate", WARNING, "The mesh is in the list already, at position {}, and is written twice.", "List it once, or make a copy.") \
    X(MESH_MISSING, "mesh-missing", ERROR, "The list of meshes holds an empty pointer.", "Remove it from the list.") \
    X(MESH_UNINDEXED, "mesh-unindexed", HINT, "The mesh has no index buffer, so its surface area is given as 0.", "Give it one index per vertex.") \
    X(MESH_WITHOUT_PRIMITIVES, "mesh-without-primitives", WARNING, "It has too few indices for a single primitive.", "Remove the mesh.") \
    X(MESH_WITHOUT_VERTICES, "mesh-without-vertices", WARNING, "It has no vertices; its bounds are a placeholder.", "Remove the mesh.") \
    X(METADATA_KEY, "metadata-key", ERROR, "The key has a character that is copied into the header without an escape.", "Take quotes, backslashes and control characters out of it.") \
    X(METADATA_MISSING, "metadata-missing", WARNING, "The mesh has no metadata, so it gets no statistics either.", "Give it a map, which may be empty.") \
    X(METADATA_NOT_JSON, "metadata-not-json", ERROR, "The text is not one JSON value, and would be lost or kept as a string.", "Put plain text in quotes, escaped as a JSON string.") \
    X(METADATA_NUMBER, "metadata-number", ERROR, "The text has a number that no double holds.", "Write it as a string.") \
    X(METADATA_TOO_DEEP, "metadata-too-deep", ERROR, "The text nests deeper than {} levels, more than readers follow.", "Make it flatter.") \
    X(NORMAL_MISSING, "normal-missing", HINT, "The mesh has no normals and is written as in the mode \"position\".", "Nothing needs to be done.") \
    X(NORMAL_NOT_UNIT, "normal-not-unit", HINT, "It has normals whose length is not 1; only the direction is written.", "Nothing needs to be done, unless the length has a meaning.") \
    X(NORMAL_TYPE, "normal-type", HINT, "It is not three floats per element, so the mesh is written as in the mode \"position\".", "Convert it to three floats to have it packed.") \
    X(NORMAL_WITHOUT_DIRECTION, "normal-without-direction", WARNING, "It has normals that are zero or not finite; they are written as +z.", "Compute them anew.") \
    X(POSITION_MISSING, "position-missing", ERROR, "The mesh has no attribute \"position\": the container writer skips it, and the compressed modes never end.", "Name its positions \"position\", or leave the mesh out.") \
    X(POSITION_MISSING_UNBOUNDED, "position-missing-unbounded", WARNING, "The mesh has no attribute \"position\" and gets no bounds.", "Name its positions \"position\".") \
    X(POSITION_NOT_FINITE, "position-not-finite", ERROR, "It has values that are NaN or infinite.", "Remove the primitives that use these vertices.") \
    X(POSITION_TYPE, "position-type", ERROR, "Positions must be floats, three in the compressed modes and up to three in the container.", "Convert them to three floats.") \
    X(POSITION_TYPE_UNBOUNDED, "position-type-unbounded", WARNING, "It is not three floats per element, so the mesh gets no bounds.", "Convert it to three floats.") \
    X(PRIMITIVE_MISLABELED, "primitive-mislabeled", ERROR, "It is drawn as {} and would be labelled as a list of triangles.", "Leave the mesh out, turn it into triangles, or use the public writer.") \
    X(PRIMITIVE_UNKNOWN, "primitive-unknown", ERROR, "Its primitive type is {}.", "Give it one of the seven.") \
    X(TEXT_NOT_UTF8, "text-not-utf8", ERROR, "The text is not UTF-8, and readers would refuse the whole file.", "Convert it to UTF-8.") \
    X(TOO_MANY_VERTICES, "too-many-vertices", ERROR, "It has {} vertices, and indices of 16 bits reach 65,535 of them.", "Apply splitForShortIndices first.")
// clang-format on

/// One kind of problem.
enum class ProblemCode : std::uint16_t {
#define KEL_PREPARE_PROBLEM(code, text, severity, sentence, remedy) code,
    KEL_PREPARE_PROBLEMS(KEL_PREPARE_PROBLEM)
#undef KEL_PREPARE_PROBLEM
};

/// One row of the table.
struct ProblemKind {
    ProblemCode code;
    std::string_view text; ///< of the code, e.g. "attribute-components"
    Severity severity;
    std::string_view sentence; ///< what is wrong; "{}" stands for a detail of the finding
    std::string_view remedy;   ///< what to do about it
};

/// All kinds, in the enum's order.
inline constexpr ProblemKind PROBLEM_KINDS[] = {
#define KEL_PREPARE_PROBLEM(code, text, severity, sentence, remedy)                                          \
    {ProblemCode::code, text, Severity::severity, sentence, remedy},
    KEL_PREPARE_PROBLEMS(KEL_PREPARE_PROBLEM)
#undef KEL_PREPARE_PROBLEM
};

constexpr const ProblemKind& kindOf(ProblemCode code) {
    return PROBLEM_KINDS[static_cast<std::size_t>(code)];
}

/// The text of a code, for programs: lower case words with hyphens.
constexpr std::string_view problemText(ProblemCode code) {
    return kindOf(code).text;
}

} // namespace kel::prepare
