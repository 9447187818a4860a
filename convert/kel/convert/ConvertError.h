#pragma once

#include <kel/convert/Export.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kel::convert {

/// What an error is about; the command's exit status follows from it.
enum class Fault : std::uint8_t {
    SOURCE, ///< the model cannot be read, or not be written as the recipe asks for
    OUTPUT, ///< the file cannot be written where it shall go
    RECIPE  ///< the recipe itself
};

// clang-format off
/// Everything that ends a conversion, a comparison or a description, in one table:
///
///     X(CODE, what is at fault, sentence for people, remedy)
///
/// "{}" in a sentence stands for a detail of the case, "*" as a remedy for one that depends on the case. The
/// subject, mostly a file, stands before the sentence. Remedies name options of the command; a recipe's member
/// has the name of its option.
#define KEL_CONVERT_CODES(X) \
    X(SOURCE_UNREADABLE, SOURCE, "cannot be read", "") \
    X(IMPORT_REFUSED, SOURCE, "{}", "") \
    X(IMPORT_REFUSED_POSITIONS, SOURCE, "{}", "Give --on-bad-geometry=drop to leave out the primitives that use them.") \
    X(SRC_REFUSED, SOURCE, "{}", "*") \
    X(NO_TRIANGLES, SOURCE, "there is no mesh of triangles: {}", "The container writer stores triangles only; --writer=public stores points and lines, too.") \
    X(NOT_ONLY_TRIANGLES, SOURCE, "only meshes of triangles can be written, but here {}", "Give --only-triangles to leave such meshes out, or --writer=public.") \
    X(UNKNOWN_UP_AXIS, SOURCE, "its up axis is {}, which --up cannot turn from", "Turn the model in the program it comes from.") \
    X(STEP_REFUSED, SOURCE, "{}", "") \
    X(WOULD_CLAMP, SOURCE, "values would be clamped, {}", "Leave --no-fit out to fit them, or give --allow-clamping to write them all the same.") \
    X(PROBLEMS_FOUND, SOURCE, "{}", "") \
    X(NON_FINITE_NUMBER, SOURCE, "a number that is not finite would have to stand in the file's header: {}", "Look for infinite or NaN numbers in its materials and positions.") \
    X(INDEX_WITHOUT_VERTEX, SOURCE, "mesh \"{}\" uses vertices that it does not have", "\"kelsrc validate\" tells where.") \
    X(OUT_OF_MEMORY, SOURCE, "needs more memory than there is", "Free some memory, or split the model.") \
    X(CANCELLED, SOURCE, "the conversion was cancelled", "Start it again to finish it.") \
    X(OUTPUT_IS_SOURCE, OUTPUT, "is the model itself, which would be lost", "Choose another name for the output.") \
    X(OUTPUT_REFUSED, OUTPUT, "{}", "*") \
    X(OUTPUT_INCOMPLETE, OUTPUT, "what was written is not a whole SRC file", "Write to another disk; if it happens again, please report it.") \
    X(STREAM_FAILED, OUTPUT, "writing failed{}", "Make room where it goes, or keep its reader running.") \
    X(CANNOT_READ_BACK, OUTPUT, "cannot be read back, as --verify asks for", "Write to a file on a disk.") \
    X(VERIFY_FAILED, OUTPUT, "what was written is not what was meant: {}", "An older file is still as it was. Please report this.") \
    X(RECIPE_NOT_JSON, RECIPE, "the recipe is not a JSON object: {}", "Write it as {\"target\":\"auto\"}.") \
    X(RECIPE_UNKNOWN_MEMBER, RECIPE, "the recipe has a member \"{}\", which is none", "Correct its name, or leave it out.") \
    X(RECIPE_WRONG_TYPE, RECIPE, "the recipe's {}", "Correct it, or leave it out.") \
    X(RECIPE_OUT_OF_RANGE, RECIPE, "the recipe's {}", "Correct it, or leave it out.")
// clang-format on

/// Stable names for everything that ends the work.
enum class ConvertCode : std::uint8_t {
#define KEL_CONVERT_CODE(name, fault, sentence, remedy) name,
    KEL_CONVERT_CODES(KEL_CONVERT_CODE)
#undef KEL_CONVERT_CODE
};

/// One row of the table.
struct ConvertCodeInfo {
    ConvertCode code;
    std::string_view name; ///< the enumerator's name, e.g. "VERIFY_FAILED"
    Fault fault;
    std::string_view sentence;
    std::string_view remedy;
};

inline constexpr ConvertCodeInfo CONVERT_CODES[] = {
#define KEL_CONVERT_CODE(name, fault, sentence, remedy)                                                      \
    {ConvertCode::name, #name, Fault::fault, sentence, remedy},
    KEL_CONVERT_CODES(KEL_CONVERT_CODE)
#undef KEL_CONVERT_CODE
};

/// The row of a code. The table is in the enum's order.
constexpr const ConvertCodeInfo& infoOf(ConvertCode code) {
    return CONVERT_CODES[static_cast<std::size_t>(code)];
}

/// Ends the work on one file. what() is one sentence without the subject.
class KEL_CONVERT_EXPORT ConvertError : public std::runtime_error {
public:
    /// subject  what it is about, mostly a file; may be empty where the detail names it
    /// detail   takes the place of "{}"
    /// remedy   takes the place of "*"
    ConvertError(ConvertCode code, std::string subject, std::string_view detail = {},
                 std::string remedy = {});
    ~ConvertError() override;

    ConvertCode code() const { return errorCode; }
    const std::string& subject() const { return subjectName; }
    const std::string& remedy() const { return remedyText; } ///< may be empty

private:
    ConvertCode errorCode;
    std::string subjectName, remedyText;
};

} // namespace kel::convert
