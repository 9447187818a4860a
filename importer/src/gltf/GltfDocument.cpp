#include "GltfDocument.h"

#include <cctype>
#include <cmath>
#include <utility>

namespace kel::importer::detail {

namespace {

constexpr double LARGEST_WHOLE = 9007199254740992.0; // doubles hold every integer up to there
constexpr std::size_t DEEPEST_NODE = 512;

} // namespace

const picojson::value* member(const picojson::value* value, const char* name) {
    if (!value || !value->is<picojson::object>()) return nullptr;
    const picojson::object& object = value->get<picojson::object>();
    const auto found = object.find(name);
    return found == object.end() ? nullptr : &found->second;
}

const picojson::array& arrayOf(const picojson::value* value) {
    static const picojson::array NONE;
    return value && value->is<picojson::array>() ? value->get<picojson::array>() : NONE;
}

const picojson::value* elementOf(const picojson::value* value, std::size_t index) {
    const picojson::array& all = arrayOf(value);
    return index < all.size() ? &all[index] : nullptr;
}

const picojson::object& objectOf(const picojson::value* value) {
    static const picojson::object NONE;
    return value && value->is<picojson::object>() ? value->get<picojson::object>() : NONE;
}

std::string stringOf(const picojson::value* value) {
    return value && value->is<std::string>() ? value->get<std::string>() : std::string();
}

std::optional<std::uint64_t> wholeNumber(const picojson::value* value) {
    if (!value || !value->is<double>()) return std::nullopt;
    const double number = value->get<double>();
    if (number < 0.0 || number > LARGEST_WHOLE || number != std::floor(number)) return std::nullopt;
    return static_cast<std::uint64_t>(number);
}

std::string percentDecoded(const std::string& uri) {
    std::string path;
    for (std::size_t i = 0; i < uri.size(); ++i) {
        const auto digit = [&](std::size_t at) {
            return at < uri.size() && std::isxdigit(static_cast<unsigned char>(uri[at])) != 0;
        };
        if (uri[i] == '%' && digit(i + 1) && digit(i + 2)) {
            path += static_cast<char>(std::stoi(uri.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            path += uri[i];
        }
    }
    return path;
}

std::string GltfPlace::text() const {
    std::string place = above ? above->text() + "." : std::string();
    place += name;
    if (index) place += "[" + std::to_string(*index) + "]";
    return place;
}

GltfDocument::GltfDocument(const ModelSource& source, picojson::value json) : root(std::move(json)) {
    const picojson::array& nodes = arrayOf(member(&root, "nodes"));
    children.resize(nodes.size());
    std::vector<std::size_t> parents(nodes.size(), 0);
    const auto indexOf = [&](const picojson::value& value, const auto& place) {
        const auto index = wholeNumber(&value);
        if (!index || *index >= nodes.size())
            source.refuse(ImportCode::INDEX_OUT_OF_RANGE, "it names a node that does not exist", place());
        return static_cast<std::size_t>(*index);
    };
    for (std::size_t n = 0; n < nodes.size(); ++n) {
        for (const picojson::value& value : arrayOf(member(&nodes[n], "children"))) {
            const std::size_t child =
                indexOf(value, [&] { return GltfPlace(GltfPlace("nodes", n), "children").text(); });
            // Two parents would multiply what hangs below, level by level.
            if (++parents[child] > 1)
                source.refuse(ImportCode::INVALID_MODEL, "the node has more than one parent",
                              GltfPlace("nodes", child).text());
            children[n].push_back(child);
        }
    }
    const picojson::value* shown = scene();
    if (!shown) {
        source.refuse(ImportCode::NO_MESH, "the file has no scene", "",
                      "export a scene, with the geometry in it");
    }
    for (const picojson::value& value : arrayOf(member(shown, "nodes"))) {
        const std::size_t node = indexOf(value, [] { return std::string("scenes.nodes"); });
        if (parents[node]++ > 0)
            source.refuse(ImportCode::INVALID_MODEL,
                          "a root of the scene is the child of a node or is named twice",
                          GltfPlace("nodes", node).text());
        roots.push_back(node);
    }
    // Every node has one parent now, so a walk from the roots ends; how deep it goes is left.
    std::vector<std::pair<std::size_t, std::size_t>> waiting;
    for (const std::size_t node : roots)
        waiting.emplace_back(node, 1);
    while (!waiting.empty()) {
        const auto [node, depth] = waiting.back();
        waiting.pop_back();
        if (depth > DEEPEST_NODE) {
            source.refuse(ImportCode::TOO_DEEP,
                          "nodes are nested more than " + std::to_string(DEEPEST_NODE) + " deep",
                          GltfPlace("nodes", node).text());
        }
        for (const std::size_t child : children[node])
            waiting.emplace_back(child, depth + 1);
    }
}

void GltfDocument::keepDescriptions() {
    picojson::object& document = root.get<picojson::object>();
    for (const char* name : {"accessors", "bufferViews", "buffers", "images"})
        document.erase(name);
    forEachObject(document, "meshes", [](picojson::object& mesh) {
        forEachObject(mesh, "primitives", [](picojson::object& primitive) { primitive.erase("attributes"); });
    });
}

const picojson::value* GltfDocument::scene() const {
    const auto index = wholeNumber(member(&root, "scene"));
    return find("scenes", static_cast<std::size_t>(index.value_or(0)));
}

std::optional<std::size_t> GltfDocument::meshOf(std::size_t node) const {
    const auto index = wholeNumber(member(find("nodes", node), "mesh"));
    if (!index) return std::nullopt;
    return static_cast<std::size_t>(*index);
}

} // namespace kel::importer::detail
