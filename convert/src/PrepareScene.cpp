#include "PrepareScene.h"

#include "MeshFacts.h"

#include <kel/convert/Texts.h>
#include <kel/material/MaterialClassic.h>
#include <kel/mesh/AttributeNames.h>
#include <kel/prepare/detail/Steps.h>
#include <kel/src/MeshUtils.h>
#include <kel/src/encoding/EncodingPresets.h>
#include <kel/src/format/MetadataKeys.h>

#include <glm/geometric.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <set>
#include <utility>

namespace kel::convert {

namespace {

namespace metadata = kel::src::format::metadata;
namespace steps = kel::prepare::steps;
using kel::prepare::Codes;
using kel::prepare::ProblemCode;
using kel::prepare::ReachedError;
using kel::prepare::Target;
using kel::prepare::UpAxis;
using kel::scene::Scene;
using kel::src::format::Source;

constexpr std::size_t PLACES_SHOWN = 5;
// Of the diagonal of the scene's bounds: a tenth of a pixel when the scene fills a screen of 1,600 of them.
constexpr double DEFAULT_MAX_ERROR = 1.0 / 16384.0;

const char* primitivesName(const kel::mesh::Mesh& mesh) {
    const auto type = mesh.getPrimitiveType();
    return type == kel::mesh::TRIANGLES || kel::mesh::cornersPerPrimitive(type) != 3 ? kindName(type)
                                                                                     : "strips or fans";
}

/// The metadata's way to name an axis.
std::string axisText(UpAxis axis) {
    return axis == UpAxis::X ? "X" : axis == UpAxis::Y ? "Y" : "Z";
}

double diagonalOf(const Scene& scene) {
    glm::dvec3 low(std::numeric_limits<double>::infinity()), high(-std::numeric_limits<double>::infinity());
    for (const auto& entry : scene.meshes) {
        const auto positions =
            entry.mesh ? entry.mesh->getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME) : nullptr;
        if (!positions || !positions->isVec3f() || positions->getElementCount() == 0) continue;
        glm::vec3 meshLow, meshHigh;
        kel::src::detail::computeBoundingBoxMinMax(positions, meshLow, meshHigh);
        low = glm::min(low, glm::dvec3(meshLow));
        high = glm::max(high, glm::dvec3(meshHigh));
    }
    return low.x <= high.x ? glm::length(high - low) : 0.0;
}

/// Whether the preset stores codes, which reach no farther than its box.
bool quantizes(Target target) {
    const auto& precision = kel::src::detail::getSRCEncodingPreset(targetName(target)).precision;
    return std::any_of(precision.begin(), precision.end(),
                       [](const auto& bits) { return bits.second != 32; });
}

class Preparation {
public:
    Preparation(const std::string& name, const Recipe& recipe, Scene& scene, ConvertReport& report)
        : name(name), recipe(recipe), scene(scene), report(report) {}

    Prepared run() {
        report.target = recipe.target.value_or(Target::UNCOMPRESSED);
        const bool isContainer = isContainerTarget(report.target);
        scene.useCompressedPreset = report.target == Target::PRESET_CMP1;

        // The container writer labels every mesh as triangles, so no other may reach it.
        if (isContainer || recipe.onlyTriangles) keepTriangles();
        transform();
        optimize();
        if (isContainer) {
            keepStoredAttributes();
            keepAttributesApart();
            reportTransparency();
            if (quantizes(report.target)) {
                fitOrCountClamped();
                steps::roundToCodes(scene, report.target);
            }
        } else {
            splitForShortIndices();
            prepared.errors = chooseMode();
            steps::roundToCodes(scene, report.target);
        }
        refuseProblems();
        if (const std::string* origin =
                scene.meshes.empty() ? nullptr : scene.meshes[0].find(metadata::ORIGIN))
            report.origin = kel::src::format::readOrigin(*origin).value_or(report.origin);
        return std::move(prepared);
    }

private:
    [[noreturn]] void refuse(ConvertCode code, const std::string& detail) const {
        throw ConvertError(code, name, detail);
    }
    void note(std::string sentence) { report.notes.push_back(std::move(sentence)); }
    void drop(std::string kind, std::size_t count, std::string detail) {
        report.dropped.push_back({std::move(kind), count, std::move(detail)});
    }

    /// How a mesh is called in a message.
    std::string meshText(std::size_t position) const {
        const std::string meshName = nameOfMesh(scene.meshes[position]);
        const std::string number = "mesh " + std::to_string(position);
        return meshName.empty() ? number : '"' + meshName + "\" (" + number + ')';
    }

    void keepTriangles() {
        std::vector<std::string> others;
        std::map<std::string, std::size_t> leftOut;
        const auto isKept = [](const kel::scene::SceneMesh& entry) {
            return !entry.mesh || entry.mesh->getPrimitiveType() == kel::mesh::TRIANGLES;
        };
        for (std::size_t i = 0; i < scene.meshes.size(); ++i) {
            if (isKept(scene.meshes[i])) continue;
            const char* primitives = primitivesName(*scene.meshes[i].mesh);
            others.push_back(meshText(i) + " of " + primitives);
            ++leftOut[primitives];
        }
        if (others.empty()) return;
        if (others.size() == scene.meshes.size())
            refuse(ConvertCode::NO_TRIANGLES, listed(others, PLACES_SHOWN));
        if (!recipe.onlyTriangles)
            refuse(ConvertCode::NOT_ONLY_TRIANGLES,
                   (others.size() == 1 ? "is " : "are ") + listed(others, PLACES_SHOWN));
        for (const auto& [kind, count] : leftOut)
            drop("meshes of " + kind, count, "--only-triangles");
        scene.meshes.erase(std::remove_if(scene.meshes.begin(), scene.meshes.end(), std::not_fn(isKept)),
                           scene.meshes.end());
    }

    // ---- Units and axes ---------------------------------------------------------------------------------

    /// What the importer says in each mesh's metadata about the whole file.
    Source statedSource() const {
        for (const auto& entry : scene.meshes) {
            const std::string* text = entry.find(metadata::SOURCE);
            if (!text) continue;
            if (auto source = kel::src::format::readSource(*text)) return std::move(*source);
        }
        return {};
    }

    /// "source" speaks of the positions delivered, so what a transform changes is changed there, too.
    void restateSource() {
        std::string known, restated; // of the mesh before, which mostly says the same
        for (auto& entry : scene.meshes) {
            const std::string* text = entry.find(metadata::SOURCE);
            if (!text) continue;
            if (known != *text) {
                auto source = kel::src::format::readSource(*text);
                if (!source) continue;
                if (recipe.toUnit) source->unit = recipe.toUnit;
                if (recipe.toUp) source->upAxis = axisText(*recipe.toUp);
                known = *text;
                restated = sourceText(*source);
            }
            entry.setMetaData(metadata::SOURCE, restated);
        }
    }

    UpAxis statedUpAxis(const std::string& text) const {
        for (const UpAxis axis : {UpAxis::X, UpAxis::Y, UpAxis::Z}) {
            if (text == axisText(axis)) return axis;
        }
        refuse(ConvertCode::UNKNOWN_UP_AXIS, text);
    }

    void transform() {
        if (recipe.scale == 1.0 && !recipe.toUnit && !recipe.toUp) return;
        const Source stated = statedSource();
        kel::prepare::TransformOptions& change = prepared.change;
        change.scale = recipe.scale;
        if (recipe.toUnit) {
            const std::optional<double> from = recipe.fromUnit ? recipe.fromUnit : stated.unit;
            if (!from)
                note("the model states no unit; its numbers are taken as metres (--units=FROM:TO says "
                     "otherwise)");
            change.scale *= from.value_or(1.0) / *recipe.toUnit;
        }
        if (recipe.toUp) {
            if (recipe.fromUp) {
                change.fromUp = *recipe.fromUp;
            } else if (!stated.upAxis.empty()) {
                change.fromUp = statedUpAxis(stated.upAxis);
            } else {
                note("the model does not state which axis points up; it is taken as y (--up=FROM:TO "
                     "says otherwise)");
            }
            change.toUp = *recipe.toUp;
        }
        try {
            double rounding = 0.0;
            steps::transform(scene, change, &rounding);
            report.sourceError = report.sourceError * change.scale + rounding;
        } catch (const std::invalid_argument& error) {
            refuse(ConvertCode::STEP_REFUSED, error.what());
        }
        restateSource();
    }

    void optimize() {
        if (!recipe.optimize) return;
        kel::prepare::OptimizeReport optimized;
        steps::optimizeForGpu(scene, &optimized);
        note("reordered " + counted(optimized.meshes, "mesh", "meshes") + " for GPUs");
    }

    // ---- The container writer ---------------------------------------------------------------------------

    void keepStoredAttributes() {
        std::vector<kel::prepare::UnstoredAttribute> removed;
        steps::keepStoredAttributes(scene, &removed);
        for (const auto& entry : removed)
            drop('"' + entry.attribute + "\" attributes", entry.meshes,
                 "the preset \"" + std::string(targetName(report.target)) + "\" has no place for " +
                     counted(entry.components, "component", "components") + " of that name");
    }

    void keepAttributesApart() {
        kel::prepare::ApartReport apart;
        steps::keepAttributesApart(scene, &apart);
        if (apart.moved != 0)
            note("the meshes are in another order than in the model: those with fewer attributes "
                 "come first, or they would refer to values of others");
        for (const auto& entry : apart.filled)
            note(counted(entry.meshes, "mesh", "meshes") + " got a neutral \"" + entry.attribute +
                 "\", which others have; their metadata says so under \"filled\"");
    }

    /// The container writer stores no transparency, and viewers take the technique's default for it.
    void reportTransparency() {
        std::set<const kel::material::Material*> seen;
        std::size_t count = 0;
        for (const auto& entry : scene.meshes) {
            if (!seen.insert(entry.material.get()).second) continue;
            const auto* classic = dynamic_cast<const kel::material::MaterialClassic*>(entry.material.get());
            if (classic && classic->getTransparency() != 0.0f) ++count;
        }
        if (count != 0) drop("transparencies", count, "the container writer stores none");
    }

    kel::prepare::FitOptions box() const {
        kel::prepare::FitOptions options;
        options.target = report.target;
        return options;
    }

    void fitOrCountClamped() {
        if (recipe.fit) {
            std::vector<steps::PositionBox> cubes;
            if (recipe.seamless) {
                cubes = makeSeamless(scene, report.target);
                noteSeamless();
            }
            kel::prepare::FitReport fit;
            steps::fitToRange(scene, &fit, box(), cubes);
            note("fitted " + counted(fit.attributes, "attribute", "attributes") + " of " +
                 counted(fit.meshes, "mesh", "meshes") + " into the box of " + targetName(report.target) +
                 ", -0.5 to 0.5; the way back is in each mesh's metadata under \"fit\"");
            return;
        }
        if (recipe.seamless)
            note("--seamless had nothing to do: without fitting, all meshes have one box of codes");
        struct Clamped {
            std::size_t components = 0, meshes = 0;
            std::string first;
        };
        std::map<std::string, Clamped> clamped;
        for (const auto& count : steps::countClamped(scene, box())) {
            Clamped& entry = clamped[count.attribute];
            if (entry.meshes++ == 0) entry.first = meshText(count.mesh);
            entry.components += count.components;
        }
        if (clamped.empty()) return;
        std::string text;
        for (const auto& [attribute, entry] : clamped)
            text += (text.empty() ? "" : "; ") + counted(entry.components, "component", "components") +
                    " of \"" + attribute + "\" in " + counted(entry.meshes, "mesh", "meshes") +
                    ", first in " + entry.first;
        text = std::string("outside the box of ") + targetName(report.target) + ", -0.5 to 0.5: " + text;
        if (!recipe.allowClamping) refuse(ConvertCode::WOULD_CLAMP, text);
        report.warnings.push_back("values were clamped, " + text);
    }

    // ---- The public writer ------------------------------------------------------------------------------

    void splitForShortIndices() {
        kel::prepare::SplitReport split;
        kel::prepare::SplitOptions options;
        if (wantsSeamless()) options.maxVertices -= kel::prepare::SEAMLESS_VERTICES;
        try {
            steps::splitForShortIndices(scene, options, &split);
        } catch (const std::invalid_argument& error) {
            refuse(ConvertCode::STEP_REFUSED, error.what());
        }
        if (split.meshes == 0) return;
        note("cut " + counted(split.meshes, "mesh", "meshes") + " of more than " +
             std::to_string(options.maxVertices) + " vertices into " + counted(split.parts, "part", "parts") +
             ", which doubles " + counted(split.verticesAdded, "vertex", "vertices"));
        if (split.verticesUnused != 0) drop("vertices that no primitive uses", split.verticesUnused, "");
        if (split.degenerateTriangles != 0)
            drop("triangles that use a vertex twice", split.degenerateTriangles, "");
        if (split.indicesIncomplete != 0)
            drop("indices that make no whole primitive", split.indicesIncomplete, "");
    }

    std::vector<ReachedError> chooseMode() {
        std::vector<double> positions;
        if (recipe.target != Target::UNCOMPRESSED) positions = steps::positionErrors(scene, Codes::ROUNDED);
        // The model itself stays for the case that no mode with codes is good enough.
        std::optional<Scene> seamless;
        if (wantsSeamless()) seamless = seamlessCopy(positions);
        std::vector<ReachedError> errors = chooseModeBy(positions);
        if (!seamless) return errors;
        if (report.target == Target::UNCOMPRESSED) {
            report.seamless.reset();
        } else {
            scene = std::move(*seamless);
            noteSeamless();
        }
        return errors;
    }

    std::vector<ReachedError> chooseModeBy(const std::vector<double>& positions) {
        if (recipe.target) {
            std::vector<ReachedError> errors = steps::measureErrors(scene, report.target, positions);
            report.error.emplace();
            for (const auto& error : errors) {
                report.error->position = std::max(report.error->position, error.position);
                report.error->normalDegrees = std::max(report.error->normalDegrees, error.normalDegrees);
            }
            return errors;
        }
        kel::prepare::MaxError accepted;
        accepted.position = recipe.maxError ? *recipe.maxError : diagonalOf(scene) * DEFAULT_MAX_ERROR;
        kel::prepare::ModeChoice choice = steps::chooseMode(scene, accepted, positions);
        report.target = choice.mode;
        report.error = choice.largest;
        if (!choice.whyNotSmaller.empty()) note(choice.whyNotSmaller);
        return std::move(choice.meshes);
    }

    // ---- Lattices ---------------------------------------------------------------------------------------

    /// Whether the recipe asks for it, and the target may store positions as codes in boxes of their own.
    bool wantsSeamless() const { return recipe.seamless && recipe.target != Target::UNCOMPRESSED; }

    /// errors  get those of the meshes that are on lattices then
    Scene seamlessCopy(std::vector<double>& errors) {
        Scene copy = scene;
        for (auto& entry : copy.meshes)
            entry.ownsMetaData = false;
        makeSeamless(copy, Target::POSITION_COMPRESSED);
        for (std::size_t m = 0; m < copy.meshes.size(); ++m) {
            if (copy.meshes[m].find(metadata::BOUNDS)) errors[m] = report.seamless->errors[m];
        }
        return copy;
    }

    std::vector<steps::PositionBox> makeSeamless(Scene& changed, Target target) {
        std::vector<steps::PositionBox> boxes;
        try {
            steps::seamless(changed, target, &report.seamless.emplace(), &boxes);
        } catch (const std::invalid_argument& error) {
            refuse(ConvertCode::STEP_REFUSED, error.what());
        }
        if (report.seamless->meshes == 0)
            refuse(ConvertCode::STEP_REFUSED, "no mesh has surfaces or lines that could be made seamless");
        return boxes;
    }

    void noteSeamless() {
        const kel::prepare::SeamlessReport& seamless = *report.seamless;
        const auto step = [](double length) {
            return "2^" + std::to_string(std::ilogb(length)) + " (" + shortNumber(length) + ')';
        };
        std::string text = "put " + counted(seamless.meshes, "mesh", "meshes") +
                           " onto lattices with steps of " + step(seamless.smallestStep);
        if (seamless.largestStep != seamless.smallestStep) text += " to " + step(seamless.largestStep);
        const double moved = *std::max_element(seamless.errors.begin(), seamless.errors.end());
        note(text + ", which keeps " + counted(seamless.shared, "position", "positions") +
             " of several meshes the same in all of them and moves vertices by at most " +
             shortNumber(moved));
        if (seamless.pointClouds != 0)
            note(counted(seamless.pointClouds, "mesh", "meshes") +
                 " of points stayed apart from that: --seamless is for surfaces and lines");
        report.seamless->errors.clear();
    }

    // ---- For both ---------------------------------------------------------------------------------------

    /// Errors end the conversion; of the rest each kind is told once, and what is left out counts as dropped.
    void refuseProblems() {
        const kel::prepare::Problems problems = steps::findProblems(scene, report.target);
        std::vector<std::string> errors;
        std::map<std::pair<ProblemCode, std::string>, std::vector<const kel::prepare::Finding*>> kinds;
        for (const auto& finding : problems.findings) {
            // Counted and told before.
            if (finding.code == ProblemCode::COMPONENT_CLAMPED && recipe.allowClamping) continue;
            if (finding.severity == kel::prepare::Severity::ERROR) errors.push_back(describe(finding));
            if (finding.severity != kel::prepare::Severity::WARNING) continue;
            const bool isDropped = finding.code == ProblemCode::ATTRIBUTE_DROPPED;
            kinds[{finding.code, isDropped ? finding.attribute : ""}].push_back(&finding);
        }
        if (!errors.empty()) refuse(ConvertCode::PROBLEMS_FOUND, listed(errors, PLACES_SHOWN, "; "));
        for (const auto& [kind, findings] : kinds) {
            if (kind.first == ProblemCode::ATTRIBUTE_DROPPED) {
                drop('"' + kind.second + "\" attributes", findings.size(),
                     "the mode \"" + std::string(targetName(report.target)) + "\" does not write them");
                continue;
            }
            std::string text = describe(*findings.front());
            if (findings.size() > 1)
                text += " (and " + counted(findings.size() - 1, "more place", "more places") + ')';
            report.warnings.push_back(std::move(text));
        }
    }

    const std::string& name;
    const Recipe& recipe;
    Scene& scene;
    ConvertReport& report;
    Prepared prepared;
};

} // namespace

Prepared prepareScene(const std::string& name, const Recipe& recipe, Scene& scene, ConvertReport& report) {
    return Preparation(name, recipe, scene, report).run();
}

} // namespace kel::convert
