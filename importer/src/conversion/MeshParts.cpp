#include "Conversion.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/ForEachPrimitive.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace kel::importer::detail {

namespace {

template<typename Number>
bool areFinite(const std::vector<Number>& numbers) {
    bool finite = true; // no early end: the loop is made of wide instructions then
    for (const Number number : numbers)
        finite &= std::abs(number) <= std::numeric_limits<Number>::max();
    return finite;
}

/// Makes -0 to 0, so that equal numbers have equal bits, and what is not finite to 0.
///
/// returns  how many were not finite
template<typename Number>
std::size_t clean(std::vector<Number>& numbers) {
    std::size_t replaced = 0;
    if (!areFinite(numbers)) {
        for (Number& number : numbers) {
            if (std::isfinite(number)) continue;
            number = Number(0);
            ++replaced;
        }
    }
    for (Number& number : numbers)
        number += Number(0);
    return replaced;
}

/// Leaves primitives out that have a position that is not finite; returns how many.
std::size_t dropNotFinite(ModelPart& part) {
    const Positions position(part.attributes[0]);
    const std::size_t each = kel::mesh::cornersPerPrimitive(part.type);
    std::vector<std::uint32_t>& indices = part.indices;
    std::size_t kept = 0;
    for (std::size_t i = 0; i + each <= indices.size(); i += each) {
        const auto first = indices.begin() + static_cast<std::ptrdiff_t>(i);
        const auto last = first + static_cast<std::ptrdiff_t>(each);
        if (!std::all_of(first, last, [&](std::uint32_t vertex) { return isFinite(position[vertex]); }))
            continue;
        std::copy(first, last, indices.begin() + static_cast<std::ptrdiff_t>(kept));
        kept += each;
    }
    const std::size_t dropped = (indices.size() - kept) / each;
    indices.resize(kept);
    return dropped;
}

template<typename Number>
void keep(const std::vector<char>& used, std::size_t width, std::vector<Number>& numbers) {
    if (numbers.empty()) return;
    std::size_t kept = 0;
    for (std::size_t v = 0; v < used.size(); ++v) {
        if (!used[v]) continue;
        std::copy_n(&numbers[width * v], width, &numbers[width * kept++]);
    }
    numbers.resize(width * kept);
    numbers.shrink_to_fit();
}

/// Leaves vertices out that no primitive uses; returns how many.
std::size_t dropUnused(ModelPart& part) {
    const std::vector<char> used = usedVertices(part);
    const auto unused = static_cast<std::size_t>(std::count(used.begin(), used.end(), 0));
    if (unused == 0) return 0;
    std::vector<std::uint32_t> place(used.size());
    std::uint32_t kept = 0;
    for (std::size_t v = 0; v < used.size(); ++v) {
        place[v] = kept;
        kept += static_cast<std::uint32_t>(used[v]);
    }
    for (std::uint32_t& index : part.indices)
        index = place[index];
    for (ModelAttribute& attribute : part.attributes) {
        keep(used, attribute.width, attribute.values);
        keep(used, attribute.width, attribute.doubles);
    }
    return unused;
}

bool isGoodNormal(const float* n) {
    return std::isfinite(n[0]) && std::isfinite(n[1]) && std::isfinite(n[2]) &&
           (n[0] != 0.0f || n[1] != 0.0f || n[2] != 0.0f);
}

bool hasGoodNormals(const std::vector<float>& normals) {
    for (std::size_t i = 0; i + 2 < normals.size(); i += 3) {
        if (!isGoodNormal(&normals[i])) return false;
    }
    return true;
}

/// Gives every corner of a triangle list a normal of its own, where the source has none for it, and joins vertices.
void fillNormals(ModelPart& part, PartLosses& losses) {
    CornerNormals made = makeNormals(part.attributes[0], part.indices);
    losses.undefinedNormals += made.undefined;
    if (const ModelAttribute* given = part.normals()) {
        const auto first = static_cast<std::uint32_t>(made.normals.size() / 3);
        for (std::size_t c = 0; c < part.indices.size(); ++c) {
            const std::uint32_t vertex = part.indices[c];
            if (isGoodNormal(&given->values[3 * std::size_t{vertex}])) {
                made.ofCorner[c] = first + vertex;
            } else {
                ++losses.replacedNormals;
            }
        }
        made.normals.insert(made.normals.end(), given->values.begin(), given->values.end());
    } else {
        part.attributes.insert(part.attributes.begin() + 1, {kel::mesh::DEFAULT_NORMALS_NAME, 3, {}, {}});
        part.hasMadeNormals = true;
    }
    joinVertices(part, &made);
}

/// Points along z where points and lines have a normal without a direction.
void replaceNormals(std::vector<float>& normals, PartLosses& losses) {
    for (std::size_t i = 0; i + 2 < normals.size(); i += 3) {
        if (isGoodNormal(&normals[i])) continue;
        normals[i] = normals[i + 1] = 0.0f;
        normals[i + 2] = 1.0f;
        ++losses.replacedNormals;
    }
}

} // namespace

bool hasFinitePositions(const ModelPart& part) {
    const ModelAttribute& positions = part.attributes[0];
    return areFinite(positions.values) && areFinite(positions.doubles);
}

std::vector<char> usedVertices(const ModelPart& part) {
    std::vector<char> used(part.vertices(), 0);
    for (const std::uint32_t vertex : part.indices)
        used[vertex] = 1;
    return used;
}

bool preparePart(ModelPart& part, PartLosses& losses) {
    const std::size_t dropped = hasFinitePositions(part) ? 0 : dropNotFinite(part);
    losses.notFinite += dropped;
    if (part.indices.empty()) return false;
    const std::size_t unused = dropUnused(part);
    if (dropped == 0) losses.unusedVertices += unused;

    ModelAttribute* normals = part.normals();
    const bool good = normals && hasGoodNormals(normals->values);
    const bool surface = part.type == kel::mesh::TRIANGLES;
    if (normals && !good && !surface) replaceNormals(normals->values, losses);
    clean(part.attributes[0].doubles);
    for (ModelAttribute& attribute : part.attributes) {
        if (&attribute != normals) {
            losses.replacedNumbers += clean(attribute.values);
        } else {
            for (float& number : attribute.values)
                number += 0.0f;
        }
    }
    if (surface && !good) {
        fillNormals(part, losses);
    } else if (!part.isIndexed) {
        joinVertices(part, nullptr);
    }
    return true;
}

} // namespace kel::importer::detail
