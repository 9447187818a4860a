#pragma once

#include "../checks/Findings.h"

#include <picojson.h>

#include <utility>
#include <vector>

namespace kel::importer::detail {

/// Takes out of a document what no mesh needs and what the reader stumbles over: skins, animations and morph
/// targets for good, extras that are no objects for as long as this lives.
class GltfReduction {
public:
    /// document  keeps its place as long as this lives
    /// findings  gets what was taken out for good
    GltfReduction(picojson::value& document, Findings& findings);
    /// Puts the extras back.
    ~GltfReduction();
    GltfReduction(const GltfReduction&) = delete;
    GltfReduction& operator=(const GltfReduction&) = delete;

    /// False when there was nothing of the kind.
    bool changed() const { return any || !plainExtras.empty(); }

private:
    bool any = false;
    /// And whose they are. Nodes of the map, so that putting them back cannot fail.
    std::vector<std::pair<picojson::object*, picojson::object::node_type>> plainExtras;

    void takeOut(picojson::object& from, const char* name);
};

} // namespace kel::importer::detail
