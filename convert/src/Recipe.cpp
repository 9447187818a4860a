#include <kel/convert/Recipe.h>

#include <kel/convert/ConvertError.h>
#include <kel/src/SrcJson.h>
#include <kel/src/format/MetadataKeys.h>
#include <kel/src/text/JsonScanner.h>
#include <kel/src/text/JsonValues.h>
#include <kel/src/text/JsonWriter.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace kel::convert {

namespace {

using kel::importer::BadGeometry;
using kel::importer::Origin;
using kel::prepare::Target;
using kel::prepare::UpAxis;

enum class Range { ABOVE_ZERO, NOT_NEGATIVE };

/// What a member that is one of several is called in JSON.
template<typename Value>
struct Named {
    const char* name;
    Value value;
};
using AnyAxis = std::optional<UpAxis>;
using AnyTarget = std::optional<Target>;

const std::vector<Named<AnyAxis>> AXES = {
    {axisName(UpAxis::X), UpAxis::X}, {axisName(UpAxis::Y), UpAxis::Y}, {axisName(UpAxis::Z), UpAxis::Z}};
const std::vector<Named<BadGeometry>> BAD_GEOMETRY = {{"fail", BadGeometry::FAIL},
                                                      {"drop", BadGeometry::DROP}};
const std::vector<Named<Origin::Choice>> ORIGINS = {{"auto", Origin::AUTO}, {"keep", Origin::KEEP}};
const std::vector<Named<AnyTarget>> TARGETS = [] {
    std::vector<Named<AnyTarget>> targets{{"auto", std::nullopt}};
    for (const auto& row : kel::prepare::TARGETS)
        targets.push_back({row.name, row.target});
    return targets;
}();

/// Calls `visit` with the name and the value of each member, in the order of their names, with the range of
/// those that are numbers, and with the names of the values of those that have some.
template<typename AnyRecipe, typename Visit>
void forEachMember(AnyRecipe& recipe, Visit&& visit) {
    visit("allowClamping", recipe.allowClamping);
    visit("fit", recipe.fit);
    visit("fromUnit", recipe.fromUnit, Range::ABOVE_ZERO);
    visit("fromUp", recipe.fromUp, AXES);
    visit("maxError", recipe.maxError, Range::NOT_NEGATIVE);
    visit("onBadGeometry", recipe.onBadGeometry, BAD_GEOMETRY);
    visit("onlyTriangles", recipe.onlyTriangles);
    visit("optimize", recipe.optimize);
    visit("origin", recipe.origin);
    visit("scale", recipe.scale, Range::ABOVE_ZERO);
    visit("scene", recipe.scene);
    visit("seamless", recipe.seamless);
    visit("target", recipe.target, TARGETS);
    visit("toUnit", recipe.toUnit, Range::ABOVE_ZERO);
    visit("toUp", recipe.toUp, AXES);
}

[[noreturn]] void refuse(ConvertCode code, std::string_view member, const std::string& what) {
    throw ConvertError(code, "", '"' + std::string(member) + "\" " + what);
}

struct RecipeWriter {
    std::string json;

    void operator()(std::string_view name, bool value) { begin(name) += value ? "true" : "false"; }
    void operator()(std::string_view name, const std::optional<double>& value, Range) {
        if (value) kel::src::text::appendJsonNumber(begin(name), *value);
    }
    void operator()(std::string_view name, const std::optional<std::string>& value) {
        if (value) kel::src::text::appendJsonString(begin(name), *value);
    }
    void operator()(std::string_view name, const Origin& origin) {
        if (origin.choice == Origin::GIVEN) {
            begin(name) += kel::src::format::originText(origin.at);
        } else {
            (*this)(name, origin.choice, ORIGINS);
        }
    }
    template<typename Value>
    void operator()(std::string_view name, const Value& value, const std::vector<Named<Value>>& known) {
        for (const auto& candidate : known) {
            if (candidate.value == value) kel::src::text::appendJsonString(begin(name), candidate.name);
        }
    }

private:
    std::string& begin(std::string_view name) {
        json += json.empty() ? '{' : ',';
        kel::src::text::appendJsonString(json, name);
        return json += ':';
    }
};

/// Sets the one member of a name from a JSON text.
struct MemberReader {
    std::string_view member, json;
    bool found = false;

    void operator()(std::string_view name, bool& value) {
        if (!isMeant(name)) return;
        if (json != "true" && json != "false") refuseType("is no boolean");
        value = json == "true";
    }
    void operator()(std::string_view name, std::optional<std::string>& value) {
        std::string text;
        if (!isMeant(name)) return;
        if (!kel::src::jsonString(json, text)) refuseType("is no string");
        value = std::move(text);
    }
    template<typename Number>
    void operator()(std::string_view name, Number& value, Range) {
        double number = 0;
        if (!isMeant(name)) return;
        if (!kel::src::text::parseJsonNumber(json, number)) refuseType("is no number");
        value = number;
    }
    void operator()(std::string_view name, Origin& origin) {
        if (name == member && !json.empty() && json[0] == '[') {
            found = true;
            const auto at = kel::src::format::readOrigin(json);
            if (!at) refuseType("is no list of three numbers");
            origin = {Origin::GIVEN, *at};
        } else {
            (*this)(name, origin.choice, ORIGINS);
        }
    }
    template<typename Value>
    void operator()(std::string_view name, Value& value, const std::vector<Named<Value>>& known) {
        if (!isMeant(name)) return;
        std::string text;
        if (!kel::src::jsonString(json, text)) refuseType("is no string");
        const auto meant = std::find_if(known.begin(), known.end(), [&](const Named<Value>& candidate) {
            return text == candidate.name;
        });
        if (meant == known.end())
            refuse(ConvertCode::RECIPE_OUT_OF_RANGE, member,
                   "is \"" + text + "\", which is none of its values");
        value = meant->value;
    }

private:
    bool isMeant(std::string_view name) {
        found = found || name == member;
        return name == member;
    }
    [[noreturn]] void refuseType(const char* what) const {
        refuse(ConvertCode::RECIPE_WRONG_TYPE, member, what);
    }
};

struct RangeCheck {
    void operator()(std::string_view name, const std::optional<double>& value, Range range) const {
        const bool isAboveZero = range == Range::ABOVE_ZERO;
        if (!value || (std::isfinite(*value) && (isAboveZero ? *value > 0.0 : *value >= 0.0))) return;
        refuse(ConvertCode::RECIPE_OUT_OF_RANGE, name,
               isAboveZero ? "must be a finite number above 0" : "must be a finite number, 0 or more");
    }
    template<typename Value>
    void operator()(std::string_view, const Value&) const {}
    void operator()(std::string_view name, const Origin& origin) const {
        if (origin.choice == Origin::GIVEN &&
            !std::all_of(origin.at.begin(), origin.at.end(), [](double c) { return std::isfinite(c); }))
            refuse(ConvertCode::RECIPE_OUT_OF_RANGE, name, "must be three finite numbers");
    }
    template<typename Value>
    void operator()(std::string_view, const Value&, const std::vector<Named<Value>>&) const {}
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
        MemberReader reader{member.key, member.json};
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
