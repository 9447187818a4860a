#include "GltfJson.h"

#include <kel/src/text/JsonScanner.h>
#include <kel/src/text/JsonWriter.h>
#include <kel/src/text/Utf8.h>

#include <algorithm>
#include <cmath>
#include <new>

namespace kel::importer::detail {

namespace {

using simdjson::dom::element;
using simdjson::dom::element_type;

/// Real documents nest a dozen levels, and their extras as deep as metadata may: extras of a node stand at the
/// fourth.
constexpr std::size_t DEEPEST = kel::src::text::MAX_METADATA_DEPTH + 3;

void appendText(std::string& text, element value) {
    switch (value.type()) {
    case element_type::ARRAY:
        kel::src::text::appendSeparated(text, "[]", simdjson::dom::array(value),
                                        [&](element item) { appendText(text, item); });
        break;
    case element_type::OBJECT:
        kel::src::text::appendSeparated(text, "{}", simdjson::dom::object(value),
                                        [&](const simdjson::dom::key_value_pair& member) {
                                            kel::src::text::appendJsonString(text, member.key);
                                            text += ':';
                                            appendText(text, member.value);
                                        });
        break;
    case element_type::STRING:
        kel::src::text::appendJsonString(text, std::string_view(value));
        break;
    case element_type::INT64:
        text += std::to_string(std::int64_t(value));
        break;
    case element_type::UINT64:
        text += std::to_string(std::uint64_t(value));
        break;
    case element_type::DOUBLE:
        kel::src::text::appendJsonNumber(text, double(value));
        break;
    case element_type::BOOL:
        text += bool(value) ? "true" : "false";
        break;
    case element_type::NULL_VALUE:
        text += "null";
        break;
    }
}

[[noreturn]] void refuseJson(const ModelSource& source, std::string_view text, const char* problem) {
    // The parser is fast and does not say where it stopped; the scanner does.
    const kel::src::text::JsonCheck check = kel::src::text::checkJson(text, DEEPEST);
    std::string what = check ? problem : sentenceOf(check.fault);
    std::string place;
    if (!check) {
        const auto end = text.begin() + static_cast<std::ptrdiff_t>(std::min(check.at, text.size()));
        place = "line " + std::to_string(1 + std::count(text.begin(), end, '\n'));
    }
    source.refuse(ImportCode::INVALID_JSON, "the JSON is broken: " + what, place);
}

} // namespace

std::string GltfPlace::text() const {
    std::string place = above ? above->text() + "." : std::string();
    place += name;
    if (index) place += "[" + std::to_string(*index) + "]";
    return place;
}

void refuseGltf(const ModelSource& source, ImportCode code, const std::string& what,
                const std::string& place) {
    const bool isBroken = code != ImportCode::UNSUPPORTED_FEATURE;
    source.refuse(code, what, place, std::string(infoOf(isBroken ? ImportCode::INVALID_MODEL : code).remedy));
}

std::optional<std::uint64_t> wholeNumber(element value) {
    constexpr double LARGEST = 9007199254740992.0;
    double number = 0.0;
    if (value.get(number) != simdjson::SUCCESS) return std::nullopt;
    if (!(number >= 0.0) || number > LARGEST || number != std::floor(number)) return std::nullopt;
    return static_cast<std::uint64_t>(number);
}

element parseGltf(const ModelSource& source, std::string_view text, std::size_t readableBehind,
                  simdjson::dom::parser& parser, std::vector<std::string>& notes) {
    constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";
    if (text.substr(0, BYTE_ORDER_MARK.size()) == BYTE_ORDER_MARK) text.remove_prefix(BYTE_ORDER_MARK.size());
    const std::size_t all = text.size();
    while (!text.empty() && text.back() == '\0') // some writers fill up with zeros in place of spaces
        text.remove_suffix(1);
    readableBehind += all - text.size();

    if (text.size() >= simdjson::SIMDJSON_MAXSIZE_BYTES) refuseJson(source, {}, "it is longer than 4 GiB");
    const simdjson::error_code allocated = parser.allocate(text.size(), DEEPEST);
    if (allocated != simdjson::SUCCESS) throw std::bad_alloc();
    element root;
    const bool copies = readableBehind < simdjson::SIMDJSON_PADDING;
    simdjson::error_code failure = parser.parse(text.data(), text.size(), copies).get(root);
    std::string repaired;
    if (failure == simdjson::UTF8_ERROR) {
        repaired = kel::src::text::validUtf8(text);
        text = repaired;
        notes.emplace_back("The JSON was not UTF-8; the bytes at fault were replaced by U+FFFD");
        failure = parser.parse(text.data(), text.size()).get(root);
    }
    if (failure != simdjson::SUCCESS) refuseJson(source, text, simdjson::error_message(failure));
    if (root.type() != element_type::OBJECT) refuseJson(source, {}, "it is not an object");
    return root;
}

// ---- An object --------------------------------------------------------------------------------------------

GltfObject::GltfObject(const ModelSource& source, std::optional<element> value, const GltfPlace* place)
    : source(&source), where(place) {
    simdjson::dom::object found;
    if (value && value->get(found) == simdjson::SUCCESS) object = found;
}

std::optional<element> GltfObject::find(std::string_view name) const {
    element found;
    if (!object || object->at_key(name).get(found) != simdjson::SUCCESS) return std::nullopt;
    return found;
}

std::optional<std::uint64_t> GltfObject::whole(std::string_view name) const {
    const auto value = find(name);
    if (!value) return std::nullopt;
    const auto number = wholeNumber(*value);
    if (!number) refuseMember(name, "a whole number");
    return number;
}

std::optional<std::size_t> GltfObject::reference(std::string_view name, std::size_t size) const {
    const auto index = whole(name);
    if (!index) return std::nullopt;
    if (*index >= size) {
        refuse(ImportCode::INDEX_OUT_OF_RANGE, "\"" + std::string(name) + "\" is " + std::to_string(*index) +
                                                   ", but there are only " + std::to_string(size));
    }
    return static_cast<std::size_t>(*index);
}

std::size_t GltfObject::needed(std::string_view name, std::size_t size) const {
    const auto index = reference(name, size);
    if (!index) refuse(ImportCode::INVALID_MODEL, "\"" + std::string(name) + "\" is missing");
    return *index;
}

double GltfObject::number(std::string_view name, double fallback) const {
    const auto value = find(name);
    if (!value) return fallback;
    double number = 0.0;
    if (value->get(number) != simdjson::SUCCESS) refuseMember(name, "a number");
    return number;
}

bool GltfObject::flag(std::string_view name) const {
    const auto value = find(name);
    bool flag = false;
    if (value && value->get(flag) != simdjson::SUCCESS) refuseMember(name, "true or false");
    return flag;
}

std::string_view GltfObject::string(std::string_view name) const {
    const auto value = find(name);
    std::string_view text;
    if (value && value->get(text) != simdjson::SUCCESS) refuseMember(name, "a string");
    return text;
}

std::optional<simdjson::dom::array> GltfObject::array(std::string_view name) const {
    const auto value = find(name);
    if (!value) return std::nullopt;
    simdjson::dom::array list;
    if (value->get(list) != simdjson::SUCCESS) refuseMember(name, "a list");
    return list;
}

GltfObject GltfObject::child(std::string_view name, const GltfPlace& place) const {
    const auto value = find(name);
    const GltfObject child(*source, value, &place);
    if (value && !child) refuseMember(name, "an object");
    return child;
}

std::size_t GltfObject::sizeOf(std::string_view list) const {
    const auto elements = array(list);
    return elements ? elements->size() : 0;
}

std::string GltfObject::extras() const {
    std::string text;
    if (const auto value = find("extras")) appendText(text, *value);
    return text;
}

void GltfObject::refuseMember(std::string_view name, const char* shouldBe) const {
    refuse(ImportCode::INVALID_MODEL, "\"" + std::string(name) + "\" is not " + shouldBe);
}

void GltfObject::refuse(ImportCode code, const std::string& what) const {
    refuseGltf(*source, code, what, where ? where->text() : std::string());
}

} // namespace kel::importer::detail
