#include "CompareProperties.h"

#include "MeshFacts.h"

#include <kel/convert/Texts.h>
#include <kel/src/format/MaterialParameters.h>
#include <kel/src/format/MetadataKeys.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace kel::convert {

namespace {

namespace metadata = kel::src::format::metadata;

/// Differences of material values up to this are rounding.
constexpr double MATERIAL_ROUNDING = 1e-6;

/// What writers and preparation put there themselves, and what is compared in another way.
bool isOwnEntry(std::string_view key) {
    using namespace metadata;
    for (const std::string_view own : {NUM_POINTS, NUM_LINES, NUM_TRIANGLES, NUM_VERTICES, SURFACE_AREA, NAME,
                                       ORIGIN, BOUNDS, FIT, FILLED, PART, PARTS}) {
        if (key == own) return true;
    }
    return false;
}

/// Whether two entries of one source say the same. Only what the numbers mean counts: two files are never
/// called alike.
bool sameSource(const std::string& a, const std::string& b) {
    const auto sourceA = kel::src::format::readSource(a), sourceB = kel::src::format::readSource(b);
    if (!sourceA || !sourceB) return false;
    const auto agree = [](const auto& x, const auto& y, const auto& none) {
        return x == y || x == none || y == none;
    };
    return agree(sourceA->unit, sourceB->unit, std::nullopt) &&
           agree(sourceA->upAxis, sourceB->upAxis, std::string());
}

class Properties {
public:
    Properties(const ComparableMesh& a, const ComparableMesh& b, const std::string& mesh,
               CompareReport& report)
        : a(a), b(b), mesh(mesh), report(report) {}

    void compare() {
        attributes();
        materials();
    }

private:
    void add(DifferenceKind kind, const std::string& what, std::string detail, double amount = 0,
             double limit = 0) {
        Difference difference;
        difference.kind = kind;
        difference.mesh = mesh;
        difference.what = what;
        difference.detail = std::move(detail);
        difference.amount = amount;
        difference.limit = limit;
        difference.count = 1;
        report.differences.push_back(std::move(difference));
    }

    void attributes() {
        const auto only = [&](const ComparableMesh& one, const ComparableMesh& other,
                              std::size_t DifferenceCount::*count, const char* text) {
            for (const auto& [name, attribute] : one.attributes) {
                if (other.attributes.count(name) != 0 || one.filled.count(name) != 0) continue;
                ++(report.attributes[name].*count);
                if (other.canStore(name, attribute.components)) add(DifferenceKind::ATTRIBUTES, name, text);
            }
        };
        only(a, b, &DifferenceCount::onlyA, "only in A");
        only(b, a, &DifferenceCount::onlyB, "only in B");
        for (const auto& [name, attribute] : a.attributes) {
            const auto other = b.attributes.find(name);
            if (other == b.attributes.end() || other->second.components == attribute.components) continue;
            ++report.attributes[name].differ;
            add(DifferenceKind::ATTRIBUTES, name,
                counted(attribute.components, "component", "components") + " in A, " +
                    std::to_string(other->second.components) + " in B");
        }
    }

    void materials() {
        if (a.hasMaterial != b.hasMaterial) {
            ++(a.hasMaterial ? report.materials[""].onlyA : report.materials[""].onlyB);
            add(DifferenceKind::MATERIALS, "", a.hasMaterial ? "only in A" : "only in B");
            return;
        }
        for (const auto& [parameter, value] : a.material) {
            const auto other = b.material.find(parameter);
            double largest = 0;
            bool hasBoth = other != b.material.end() && other->second.size() == value.size();
            for (std::size_t i = 0; hasBoth && i < value.size(); ++i)
                largest = std::max(largest, std::abs(value[i] - other->second[i]));
            if (hasBoth && largest <= MATERIAL_ROUNDING) continue;
            DifferenceCount& count = report.materials[parameter];
            ++count.differ;
            count.largest = std::max(count.largest, largest);
            const bool isTransparency = parameter == parameterName(kel::src::format::TRANSPARENCY);
            if (isTransparency && !(a.storesTransparency && b.storesTransparency)) continue;
            add(DifferenceKind::MATERIALS, parameter,
                hasBoth ? "differs by " + shortNumber(largest) : "has another number of values", largest,
                MATERIAL_ROUNDING);
        }
    }

    const ComparableMesh &a, &b;
    const std::string& mesh;
    CompareReport& report;
};

} // namespace

void compareProperties(const ComparableMesh& a, const ComparableMesh& b, const std::string& mesh,
                       CompareReport& report) {
    Properties(a, b, mesh, report).compare();
    compareMetadata(a.metadata, b.metadata, mesh, report, !a.node.empty() && a.node == b.node);
}

void compareMetadata(const std::map<std::string, std::string>& a, const std::map<std::string, std::string>& b,
                     const std::string& mesh, CompareReport& report, bool sameNode) {
    const auto add = [&](const std::string& key, std::size_t DifferenceCount::*count, const char* text) {
        ++(report.metadata[key].*count);
        Difference& difference = report.differences.emplace_back();
        difference.kind = DifferenceKind::METADATA;
        difference.mesh = mesh;
        difference.what = key;
        difference.detail = text;
        difference.count = 1;
    };
    for (const auto& [key, json] : a) {
        if (isOwnEntry(key)) continue;
        const auto other = b.find(key);
        if (other == b.end()) {
            add(key, &DifferenceCount::onlyA, "only in A");
        } else if (!sameJson(json, other->second) && !(key == metadata::NODE && sameNode) &&
                   !(key == metadata::SOURCE && sameSource(json, other->second))) {
            add(key, &DifferenceCount::differ, "differs");
        }
    }
    for (const auto& [key, json] : b) {
        if (!isOwnEntry(key) && a.count(key) == 0) add(key, &DifferenceCount::onlyB, "only in B");
    }
}

} // namespace kel::convert
