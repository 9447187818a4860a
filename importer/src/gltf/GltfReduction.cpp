#include "GltfReduction.h"

#include "GltfJson.h"

#include <iterator>
#include <string>

namespace kel::importer::detail {

namespace {

bool isSkinning(const std::string& attribute) {
    return attribute.compare(0, 7, "JOINTS_") == 0 || attribute.compare(0, 8, "WEIGHTS_") == 0;
}

} // namespace

void GltfReduction::takeOut(picojson::object& from, const char* name) {
    any |= from.erase(name) > 0;
}

GltfReduction::GltfReduction(picojson::value& root, Findings& findings) {
    using picojson::object;
    object& document = root.get<object>();
    // The reader gives up on extras that are no objects, which they may be. Meshes get them from the document.
    for (const auto& list : document) {
        forEachObject(document, list.first.c_str(), [&](object& owner) {
            const auto extras = owner.find("extras");
            if (extras == owner.end() || extras->second.is<object>()) return;
            plainExtras.emplace_back(&owner, owner.extract(extras));
        });
    }

    const auto lengthOf = [](const object& owner, const char* list) {
        const auto found = owner.find(list);
        return found == owner.end() ? 0 : arrayOf(&found->second).size();
    };
    const auto report = [&](const char* kind, std::size_t count) {
        if (count > 0) findings.dropped.push_back({kind, count, ""});
    };
    std::size_t bones = 0;
    forEachObject(document, "skins", [&](object& skin) { bones += lengthOf(skin, "joints"); });
    report("bones", bones);
    report("animations", lengthOf(document, "animations"));
    takeOut(document, "skins");
    takeOut(document, "animations");
    forEachObject(document, "nodes", [&](object& node) {
        takeOut(node, "skin");
        takeOut(node, "weights");
    });
    std::size_t targets = 0;
    forEachObject(document, "meshes", [&](object& mesh) {
        takeOut(mesh, "weights");
        forEachObject(mesh, "primitives", [&](object& primitive) {
            targets += lengthOf(primitive, "targets");
            takeOut(primitive, "targets");
            const auto found = primitive.find("attributes");
            if (found == primitive.end() || !found->second.is<object>()) return;
            object& attributes = found->second.get<object>();
            for (auto entry = attributes.begin(); entry != attributes.end();) {
                const bool skinning = isSkinning(entry->first);
                any |= skinning;
                entry = skinning ? attributes.erase(entry) : std::next(entry);
            }
        });
    });
    report("morph targets", targets);
}

GltfReduction::~GltfReduction() {
    for (auto& [owner, extras] : plainExtras)
        owner->insert(std::move(extras));
}

} // namespace kel::importer::detail
