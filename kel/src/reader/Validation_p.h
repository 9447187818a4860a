#pragma once

#include <kel/src/SrcDecode.h>
#include <kel/src/SrcValidator.h>
#include <kel/src/reader/FileData_p.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace kel::src::detail {

/// Keeps findings up to a number, counts all of them, and remembers which codes there were.
class ReportSink final : public FindingSink {
public:
    explicit ReportSink(const ValidateOptions& options) : most(options.maxFindings) {}

    void report(SrcCode code, std::uint64_t offset, std::string path, std::string detail) override {
        add({code, offset, std::move(path), std::move(detail), 1});
    }
    bool wantsAll() const override { return true; }

    void add(SrcFinding finding) {
        ++result.counts[static_cast<std::size_t>(finding.severity())];
        seen[static_cast<std::size_t>(finding.code)] = true;
        if (result.findings.size() < most) result.findings.push_back(std::move(finding));
    }
    bool has(std::initializer_list<SrcCode> codes) const {
        return std::any_of(codes.begin(), codes.end(),
                           [&](SrcCode code) { return seen[static_cast<std::size_t>(code)]; });
    }

    ValidationReport result;

private:
    std::size_t most;
    std::array<bool, SRC_CODE_COUNT> seen{};
};

/// One finding for many places: the first one and how many there are.
struct Gathered {
    explicit Gathered(SrcCode code) : finding{code, SrcError::NO_OFFSET, {}, {}, 0} {}

    template<typename Path>
    void add(Path&& path) {
        if (finding.count++ == 0) finding.path = path();
    }
    void reportTo(ReportSink& sink) {
        if (finding.count > 0) sink.add(std::move(finding));
    }

    SrcFinding finding;
};

/// Thrown when the work that a file asks for is beyond measure.
struct WorkExceeded {};

/// The file that is being validated, and what its checks share. Header and references have been read.
class Validation {
public:
    Validation(const ValidateOptions& options, ReportSink& sink, std::unique_ptr<SrcFileData> data);

    void report(SrcCode code, std::string path, std::string detail, std::uint64_t count = 1) {
        sink.add({code, SrcError::NO_OFFSET, std::move(path), std::move(detail), count});
    }

    bool isUsable(const SrcIndexView& view) const {
        return isUsable(view, tables.indexViews, tables.badIndexViews);
    }
    bool isUsable(const SrcAttributeView& view) const {
        return isUsable(view, tables.attributeViews, tables.badAttributeViews);
    }

    /// Before `bytes` for the elements of a view are read.
    ///
    /// throws  WorkExceeded
    void work(const ElementPlaces& elements, std::uint64_t bytes);
    /// Count as work, too; neither takes more than ReadLimits::memoryBytes.
    std::vector<float> decode(const SrcAttributeView& view);
    std::vector<std::uint32_t> decode(const SrcIndexView& view);

    const ValidateOptions& options;
    ReportSink& sink;
    SrcFile file;
    const HeaderTables& tables;

private:
    template<typename View>
    bool isUsable(const View& view, const std::vector<View>& views, const UnusableEntries& bad) const {
        return !bad.contains(static_cast<std::size_t>(&view - views.data())) &&
               !tables.badBufferViews.contains(view.bufferView);
    }

    std::uint64_t workLeft;
};

/// How far a decoded value may lie from the one that was encoded, per component.
inline std::array<double, 4> stepsOf(const SrcAttributeView& view) {
    std::array<double, 4> steps{};
    if (view.decoded)
        for (std::size_t c = 0; c < 4; ++c)
            steps[c] = std::fabs(1.0 / view.decodeScale[c]);
    return steps;
}

/// The positions of a mesh, whichever attribute holds them.
struct MeshPositions {
    const SrcAttribute* attribute = nullptr;
    SrcAttributeView view;
    bool usable = false;
    std::vector<float> values; ///< three per vertex; empty when they are not three numbers each
};

/// Chunks, unused entries, materials and alignment: what can be told without the data section.
void validateLayout(Validation& validation);

/// Mesh by mesh: positions, bounds, normals, indices, primitives.
///
/// attributeCounts  gathers attributes with another number of elements than the positions
void validateMeshes(Validation& validation, Gathered& attributeCounts);

/// Primitives of one mesh, and the statistics in its metadata.
///
/// path         of the mesh, as a JSON pointer
/// indicesGood  false when an index names no vertex or restarts a strip: the primitives are counted then, but
///              not looked at
void validatePrimitives(Validation& validation, const SrcMesh& mesh, const std::string& path,
                        const MeshPositions& positions, bool indicesGood);

} // namespace kel::src::detail
