#include "LatticeSteps.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace kel::prepare::detail {

namespace {

constexpr std::uint32_t NONE = ~0u;
/// A mesh is moved by half a step at either end, and its lower end becomes a multiple of the step.
constexpr double FREE_CELLS = LATTICE_CELLS - 1.0;

/// So that equal positions have equal bits, where 0 and -0 are two.
LatticePoint normalized(const float* position) {
    return {position[0] + 0.0f, position[1] + 0.0f, position[2] + 0.0f};
}

std::uint64_t hashOf(const LatticePoint& position) {
    std::uint32_t bits[3];
    std::memcpy(bits, position.data(), sizeof bits);
    std::uint64_t hash = 0x9e3779b97f4a7c15u;
    for (const std::uint32_t part : bits) {
        hash = (hash ^ part) * 0xff51afd7ed558ccdu;
        hash ^= hash >> 32;
    }
    return hash;
}

} // namespace

int exponentFor(double side) {
    int exponent = LOWEST_EXPONENT;
    while (exponent <= HIGHEST_EXPONENT && side > (FREE_CELLS - 1.0) * stepOf(exponent))
        ++exponent;
    return exponent;
}

LatticeSteps::LatticeSteps(const std::vector<LatticeMesh>& sources) {
    meshes.resize(sources.size());
    findPositions(sources);
    listMembers();
    settle();
}

void LatticeSteps::findPositions(const std::vector<LatticeMesh>& sources) {
    std::size_t vertices = 0;
    for (const LatticeMesh& source : sources)
        vertices += source.count;
    std::size_t slots = 16;
    while (slots < 2 * vertices)
        slots *= 2;
    std::vector<std::uint32_t> table(slots, NONE);
    std::vector<std::uint32_t> lastMesh; // by position
    for (std::size_t m = 0; m < sources.size(); ++m) {
        const LatticeMesh& source = sources[m];
        Mesh& mesh = meshes[m];
        mesh.exponent = source.exponent;
        mesh.positionOf.resize(source.count);
        for (std::size_t v = 0; v < source.count; ++v) {
            const LatticePoint at = normalized(source.positions + 3 * v);
            std::size_t slot = hashOf(at) & (slots - 1);
            while (table[slot] != NONE && positions[table[slot]].at != at)
                slot = (slot + 1) & (slots - 1);
            if (table[slot] == NONE) {
                table[slot] = static_cast<std::uint32_t>(positions.size());
                positions.push_back({at, source.exponent, NONE, 0});
                lastMesh.push_back(NONE);
            }
            const std::uint32_t number = table[slot];
            mesh.positionOf[v] = number;
            if (lastMesh[number] == m) continue;
            lastMesh[number] = static_cast<std::uint32_t>(m);
            Position& position = positions[number];
            ++position.meshCount;
            position.exponent = std::max(position.exponent, source.exponent);
            mesh.box.include(at);
        }
        mesh.reach = mesh.box.widened(stepOf(source.exponent) / 2);
    }
}

void LatticeSteps::listMembers() {
    std::uint32_t next = 0;
    for (Position& position : positions) {
        if (position.meshCount == 1) continue;
        ++sharedPositions;
        position.firstMember = next;
        next += position.meshCount;
        position.meshCount = 0; // and counted again
    }
    members.resize(next);
    for (std::size_t m = 0; m < meshes.size(); ++m) {
        for (const std::uint32_t number : meshes[m].positionOf) {
            Position& position = positions[number];
            if (position.firstMember == NONE) continue;
            std::uint32_t* const end = &members[position.firstMember] + position.meshCount;
            if (position.meshCount != 0 && end[-1] == m) continue;
            *end = static_cast<std::uint32_t>(m);
            ++position.meshCount;
        }
    }
}

/// Neighbours' steps may move vertices so far that a mesh needs a larger step, which may do the same to
/// others. Steps only grow, up to the largest that there is, whose mesh no neighbour can move out of its
/// cube.
void LatticeSteps::settle() {
    std::vector<std::uint32_t> open;
    const auto stretch = [&](const Position& position) {
        for (std::uint32_t i = 0; i < position.meshCount; ++i) {
            const std::uint32_t m = members[position.firstMember + i];
            Mesh& mesh = meshes[m];
            if (mesh.exponent >= position.exponent) continue;
            const bool didFit = fits(mesh);
            mesh.reach.include(position.at, stepOf(position.exponent) / 2);
            if (didFit && !fits(mesh)) open.push_back(m);
        }
    };
    for (const Position& position : positions) {
        if (position.firstMember != NONE) stretch(position);
    }
    while (!open.empty()) {
        Mesh& mesh = meshes[open.back()];
        open.pop_back();
        while (!fits(mesh)) {
            ++mesh.exponent;
            mesh.reach.include(mesh.box.widened(stepOf(mesh.exponent) / 2));
        }
        for (const std::uint32_t number : mesh.positionOf) {
            Position& position = positions[number];
            if (position.exponent >= mesh.exponent) continue;
            position.exponent = mesh.exponent;
            if (position.firstMember != NONE) stretch(position);
        }
    }
}

bool LatticeSteps::fits(const Mesh& mesh) {
    const double most = FREE_CELLS * stepOf(mesh.exponent);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        if (mesh.reach.high[axis] - mesh.reach.low[axis] > most) return false;
    }
    return true;
}

} // namespace kel::prepare::detail
