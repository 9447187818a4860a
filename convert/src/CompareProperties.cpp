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
                                       ORIGIN, FIT, FILLED, PART, PARTS}) {
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
    Properties(const ComparableMesh& a, const ComparableMesh& b, CompareReport& report)
        : a(a), b(b), report(report) {}

    void compare() {
        attributes();
        materials();
        entries();
    }

private:
    void add(DifferenceKind kind, const std::string& what, std::string detail, double amount = 0,
             double limit = 0) {
        Difference difference;
        difference.kind = kind;
        difference.mesh = a.name.empty() ? b.name : a.name;
        difference.what = what;
        difference.detail = std::move(detail);
        difference.amount = amount;
        difference.limit = limit;
        difference.count = 1;
        report.differences.push_back(std::move(difference));
    }

    void attributes() {
        const auto only = [&](const ComparableMesh& mesh, const ComparableMesh& other,
                              std::size_t DifferenceCount::*count, const char* text) {
            for (const auto& [name, attribute] : mesh.attributes) {
                if (other.attributes.count(name) != 0 || mesh.filled.count(name) != 0) continue;
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

    void entries() {
        const auto only = [&](const ComparableMesh& mesh, const ComparableMesh& other,
                              std::size_t DifferenceCount::*count, const char* text) {
            for (const auto& [key, json] : mesh.metadata) {
                if (isOwnEntry(key) || other.metadata.count(key) != 0) continue;
                ++(report.metadata[key].*count);
                add(DifferenceKind::METADATA, key, text);
            }
        };
        only(a, b, &DifferenceCount::onlyA, "only in A");
        only(b, a, &DifferenceCount::onlyB, "only in B");
        for (const auto& [key, json] : a.metadata) {
            const auto other = b.metadata.find(key);
            if (isOwnEntry(key) || other == b.metadata.end() || sameJson(json, other->second)) continue;
            if (key == metadata::NODE && a.node == b.node && !a.node.empty()) continue;
            if (key == metadata::SOURCE && sameSource(json, other->second)) continue;
            ++report.metadata[key].differ;
            add(DifferenceKind::METADATA, key, "differs");
        }
    }

    const ComparableMesh &a, &b;
    CompareReport& report;
};

} // namespace

void compareProperties(const ComparableMesh& a, const ComparableMesh& b, CompareReport& report) {
    Properties(a, b, report).compare();
}

} // namespace kel::convert
