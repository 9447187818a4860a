#include "Conversion.h"

#include <algorithm>
#include <utility>

namespace kel::importer::detail {

void LossReport::drop(const std::string& kind, std::size_t count, const std::string& detail) {
    if (count == 0) return;
    Dropped& entry = dropped[kind];
    entry.kind = kind;
    entry.count += count;
    if (entry.detail.empty()) entry.detail = detail;
}

void LossReport::addNodes(const Model& model, const std::vector<Use>& uses) {
    std::vector<char> used(model.meshes.size(), 0);
    for (const Use& use : uses)
        used[use.mesh] = 1;
    drop("meshes that no node uses", static_cast<std::size_t>(std::count(used.begin(), used.end(), 0)));
    drop("extras of nodes without a mesh",
         static_cast<std::size_t>(
             std::count_if(model.nodes.begin(), model.nodes.end(), [](const ModelNode& node) {
                 return node.meshes.empty() && !node.extras.empty();
             })));
}

void LossReport::write(const Model& model, ImportReport& report) {
    for (const Dropped& found : model.dropped)
        drop(found.kind, found.count, found.detail);
    drop(NOT_FINITE_PRIMITIVES, parts.notFinite);
    drop(UNUSED_VERTICES, parts.unusedVertices);
    for (auto& entry : dropped)
        report.dropped.push_back(std::move(entry.second));

    const auto note = [&](std::size_t count, const std::string& text) {
        if (count > 0) report.notes.push_back(std::to_string(count) + " " + text);
    };
    note(parts.replacedNormals, "normals that were zero or not finite were replaced");
    note(parts.undefinedNormals,
         "normals are undefined, since no triangle there has an area, and point along z");
    note(parts.replacedNumbers, "texture coordinates or colours that were not finite were set to 0");
    note(notUtf8, "texts were not UTF-8; the bytes at fault were replaced by U+FFFD");
    report.notes.insert(report.notes.end(), model.notes.begin(), model.notes.end());
}

} // namespace kel::importer::detail
