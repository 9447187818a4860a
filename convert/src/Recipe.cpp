#include <kel/convert/Recipe.h>

#include <kel/convert/ConvertError.h>
#include <kel/src/SrcJson.h>
#include <kel/src/text/JsonScanner.h>
#include <kel/src/text/JsonValues.h>
#include <kel/src/text/JsonWriter.h>

#include <cmath>
#include <utility>

namespace kel::convert {

namespace {

using kel::importer::BadGeometry;
using kel::prepare::Target;
using kel::prepare::UpAxis;

enum class Range { ABOVE_ZERO, NOT_NEGATIVE };

constexpr const char* AUTO = "auto";
constexpr UpAxis AXES[] = {UpAxis::X, UpAxis::Y, UpAxis::Z};

const char* badGeometryName(BadGeometry value) {
    return value == BadGeometry::DROP ? "drop" : "fail";
}

/// Calls `visit` with the name and the value of each member, in the order of their names, and with the range
/// of those that are numbers.
template<typename AnyRecipe, typename Visit>
void forEachMember(AnyRecipe& recipe, Visit&& visit) {
    visit("allowClamping", recipe.allowClamping);
    visit("fit", recipe.fit);
    visit("fromUnit", recipe.fromUnit, Range::ABOVE_ZERO);
    visit("fromUp", recipe.fromUp);
    visit("maxError", recipe.maxError, Range::NOT_NEGATIVE);
    visit("onBadGeometry", recipe.onBadGeometry);
    visit("onlyTriangles", recipe.onlyTriangles);
    visit("optimize", recipe.optimize);
    visit("scale", recipe.scale, Range::ABOVE_ZERO);
    visit("target", recipe.target);
    visit("toUnit", recipe.toUnit, Range::ABOVE_ZERO);
    visit("toUp", recipe.toUp);
}

[[noreturn]] void refuse(ConvertCode code, std::string_view member, const std::string& what) {
    throw ConvertError(code, "", '"' + std::string(member) + "\" " + what);
}

class RecipeWriter {
public:
    std::string json;

    void operator()(std::string_view name, bool value) { begin(name) += value ? "true" : "false"; }
    void operator()(std::string_view name, double value, Range) {
        kel::src::text::appendJsonNumber(begin(name), value);
    }
    void operator()(std::string_view name, const std::optional<double>& value, Range range) {
        if (value) (*this)(name, *value, range);
    }
    void operator()(std::string_view name, const std::optional<UpAxis>& value) {
        if (value) addText(name, axisName(*value));
    }
    void operator()(std::string_view name, const std::optional<Target>& value) {
        addText(name, value ? targetName(*value) : AUTO);
    }
    void operator()(std::string_view name, BadGeometry value) { addText(name, badGeometryName(value)); }

private:
    std::string& begin(std::string_view name) {
        json += json.empty() ? '{' : ',';
        kel::src::text::appendJsonString(json, name);
        json += ':';
        return json;
    }
    void addText(std::string_view name, std::string_view text) {
        kel::src::text::appendJsonString(begin(name), text);
    }
};

/// Sets the one member of a name from a JSON text.
class MemberReader {
public:
    MemberReader(std::string_view member, std::string_view json) : member(member), json(json) {}
    bool found = false;

    void operator()(std::string_view name, bool& value) {
        if (!isMeant(name)) return;
        if (json != "true" && json != "false") refuseType("is no boolean");
        value = json == "true";
    }
    void operator()(std::string_view name, double& value, Range) {
        if (isMeant(name)) value = number();
    }
    void operator()(std::string_view name, std::optional<double>& value, Range) {
        if (isMeant(name)) value = number();
    }
    void operator()(std::string_view name, std::optional<UpAxis>& value) {
        if (!isMeant(name)) return;
        const std::string text = string();
        for (const UpAxis axis : AXES) {
            if (text == axisName(axis)) value = axis;
        }
        if (!value) refuseValue(text);
    }
    void operator()(std::string_view name, std::optional<Target>& value) {
        if (!isMeant(name)) return;
        const std::string text = string();
        for (const auto& row : kel::prepare::TARGETS) {
            if (text == row.name) value = row.target;
        }
        if (!value && text != AUTO) refuseValue(text);
    }
    void operator()(std::string_view name, BadGeometry& value) {
        if (!isMeant(name)) return;
        const std::string text = string();
        value = text == badGeometryName(BadGeometry::DROP) ? BadGeometry::DROP : BadGeometry::FAIL;
        if (text != badGeometryName(value)) refuseValue(text);
    }

private:
    bool isMeant(std::string_view name) {
        if (name != member) return false;
        found = true;
        return true;
    }
    [[noreturn]] void refuseType(const std::string& what) {
        refuse(ConvertCode::RECIPE_WRONG_TYPE, member, what);
    }
    [[noreturn]] void refuseValue(const std::string& text) {
        refuse(ConvertCode::RECIPE_OUT_OF_RANGE, member, "is \"" + text + "\", which is none of its values");
    }
    double number() {
        double value = 0;
        if (!kel::src::text::parseJsonNumber(json, value)) refuseType("is no number");
        return value;
    }
    std::string string() {
        std::string text;
        if (!kel::src::jsonString(json, text)) refuseType("is no string");
        return text;
    }

    std::string_view member, json;
};

struct RangeCheck {
    void operator()(std::string_view name, double value, Range range) const {
        if (std::isfinite(value) && (range == Range::ABOVE_ZERO ? value > 0.0 : value >= 0.0)) return;
        refuse(ConvertCode::RECIPE_OUT_OF_RANGE, name,
               range == Range::ABOVE_ZERO ? "must be a finite number above 0"
                                          : "must be a finite number, 0 or more");
    }
    void operator()(std::string_view name, const std::optional<double>& value, Range range) const {
        if (value) (*this)(name, *value, range);
    }
    template<typename Value>
    void operator()(std::string_view, const Value&) const {}
};

} // namespace

bool operator==(const Recipe& a, const Recipe& b) {
    return toJson(a) == toJson(b);
}

std::string toJson(const Recipe& recipe) {
    RecipeWriter writer;
    forEachMember(recipe, writer);
    return writer.json + '}';
}

Recipe readRecipe(std::string_view json) {
    const auto verdict = kel::src::text::checkJson(json);
    if (!verdict)
        throw ConvertError(ConvertCode::RECIPE_NOT_JSON, "",
                           std::string(sentenceOf(verdict.fault)) + " at byte " + std::to_string(verdict.at));
    const std::size_t first = json.find_first_not_of(" \t\r\n");
    if (json[first] != '{')
        throw ConvertError(ConvertCode::RECIPE_NOT_JSON, "",
                           "an object was expected at byte " + std::to_string(first));
    Recipe recipe;
    for (const auto& member : kel::src::jsonMembers(json)) {
        MemberReader reader(member.key, member.json);
        forEachMember(recipe, reader);
        if (!reader.found) throw ConvertError(ConvertCode::RECIPE_UNKNOWN_MEMBER, "", member.key);
    }
    checkRecipe(recipe);
    return recipe;
}

void checkRecipe(const Recipe& recipe) {
    forEachMember(recipe, RangeCheck());
}

} // namespace kel::convert
