#include <kel/convert/Convert.h>

#include "CompareWithSource.h"
#include "MeshFacts.h"
#include "PrepareScene.h"

#include <kel/convert/AtomicFile.h>
#include <kel/convert/Verify.h>
#include <kel/convert/WriteCounted.h>
#include <kel/importer/detail/ImportScene.h>
#include <kel/mesh/AttributeNames.h>
#include <kel/prepare/WriteChecked.h>
#include <kel/src/encoding/EncodingPresets.h>
#include <kel/src/format/FileLayout.h>

#include <istream>
#include <iterator>
#include <map>
#include <new>
#include <ostream>
#include <streambuf>
#include <system_error>
#include <utility>

namespace kel::convert {

namespace {

namespace format = kel::src::format;
using kel::importer::detail::importScene;
using kel::prepare::ReachedError;
using kel::prepare::Target;
using kel::src::SrcWriterInput;

/// The scene of a model, and how many bytes its file has.
kel::importer::detail::ImportedScene
importModel(const Source& source, const kel::importer::ImportOptions& options, std::uint64_t& bytesIn) {
    if (source.stream) {
        const std::string bytes{std::istreambuf_iterator<char>(*source.stream), {}};
        if (source.stream->bad()) throw ConvertError(ConvertCode::SOURCE_UNREADABLE, source.shownName());
        bytesIn = bytes.size();
        return importScene(bytes.data(), bytes.size(), source.name, options);
    }
    if (source.file.empty()) {
        bytesIn = source.bytes.size();
        return importScene(source.bytes.data(), source.bytes.size(), source.name, options);
    }
    std::error_code ignored;
    bytesIn = std::filesystem::file_size(source.file, ignored);
    if (ignored) bytesIn = 0;
    return importScene(source.file, options);
}

/// The scene of a source, whatever kind of source it is. Sets the format, the size, what was dropped and the
/// notes in the report.
kel::scene::Scene importSource(const Source& source, const Recipe& recipe, const ConvertOptions& options,
                               ConvertReport& report) {
    if (source.input) return kel::scene::fromInput(*source.input);
    kel::importer::ImportOptions importOptions;
    importOptions.onBadGeometry = recipe.onBadGeometry;
    importOptions.scene = recipe.scene;
    importOptions.origin = recipe.origin;
    importOptions.limits = options.importLimits;
    importOptions.progress = options.progress;
    try {
        auto imported = importModel(source, importOptions, report.bytesIn);
        report.format = std::move(imported.report.format);
        report.dropped = std::move(imported.report.dropped);
        report.notes = std::move(imported.report.notes);
        report.sourceError = imported.report.positionError;
        report.roundedNormals = imported.report.roundedNormals;
        return std::move(imported.scene);
    } catch (const kel::importer::ImportError& error) {
        using kel::importer::ImportCode;
        if (error.code() == ImportCode::CANCELLED)
            throw ConvertError(ConvertCode::CANCELLED, source.shownName());
        // Its sentence names the file.
        throw ConvertError(error.code() == ImportCode::NON_FINITE_POSITIONS
                               ? ConvertCode::IMPORT_REFUSED_POSITIONS
                               : ConvertCode::IMPORT_REFUSED,
                           "", error.what());
    }
}

/// Once per kind, whoever reported it.
std::vector<kel::importer::Dropped> oncePerKind(std::vector<kel::importer::Dropped> dropped) {
    std::vector<kel::importer::Dropped> result;
    std::map<std::string, std::size_t> places;
    for (auto& entry : dropped) {
        const auto [place, isNew] = places.try_emplace(entry.kind, result.size());
        if (isNew) {
            result.push_back(std::move(entry));
            continue;
        }
        auto& known = result[place->second];
        known.count += entry.count;
        if (!entry.detail.empty() && known.detail.find(entry.detail) == std::string::npos)
            known.detail += (known.detail.empty() ? "" : "; ") + entry.detail;
    }
    return result;
}

/// How many bytes of indices and attributes the writer stores for a mesh.
std::uint64_t storedBytes(const kel::mesh::Mesh& mesh, Target target) {
    const bool isContainer = isContainerTarget(target);
    const auto indices = mesh.getIndexBuffer();
    const std::size_t indexSize = isContainer && indices && indices->getElementSizeInBytes() > 2 ? 4 : 2;
    std::uint64_t bytes = indices ? indices->getElementCount() * indexSize : 0;

    const auto normals = mesh.getAttributeBuffer(kel::mesh::DEFAULT_NORMALS_NAME);
    const auto positions = mesh.getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME);
    if (target == Target::POSITION_NORMAL_COMPRESSED && positions && normals && normals->isVec3f())
        return bytes + positions->getElementCount() * 8;

    const auto& precision =
        kel::src::detail::getSRCEncodingPreset(isContainer ? targetName(target) : "default").precision;
    for (std::size_t i = 0; i < mesh.getNumAttributeBuffers(); ++i) {
        const auto buffer = mesh.getAttributeBuffer(i);
        const std::string name = buffer->getAttributeName();
        std::uint64_t elementSize = buffer->getElementSizeInBytes();
        if (isContainer) {
            elementSize = buffer->getComponentCountPerElement() * ((precision.at(name) + 7) / 8);
        } else if (target != Target::UNCOMPRESSED && name == kel::mesh::DEFAULT_POSITIONS_NAME) {
            elementSize = 6;
        }
        bytes += buffer->getElementCount() * elementSize;
    }
    return bytes;
}

/// Keeps everything in a string that can be read without a copy.
class StringBuffer final : public std::streambuf {
public:
    std::string text;

protected:
    int_type overflow(int_type character) override {
        if (!traits_type::eq_int_type(character, traits_type::eof()))
            text += traits_type::to_char_type(character);
        return traits_type::not_eof(character);
    }
    std::streamsize xsputn(const char* part, std::streamsize size) override {
        text.append(part, static_cast<std::size_t>(size));
        return size;
    }
};

class Conversion {
public:
    Conversion(const Source& source, const Recipe& recipe, const Destination& destination,
               const ConvertOptions& options)
        : source(source), recipe(recipe), destination(destination), options(options) {}

    ConvertReport run() {
        checkDestination(source, destination, options.hooks);
        prepare();
        stage("writing", 0.0);
        try {
            if (!destination.stream) {
                writeFile();
            } else if (options.verify) {
                writeVerified(*destination.stream);
            } else {
                report.bytesOut =
                    writeCounted(*destination.stream, destination.shownName(), [this](std::ostream& out) {
                        kel::prepare::write(input, report.target, out);
                    });
            }
        } catch (const std::overflow_error& error) {
            throw ConvertError(ConvertCode::NON_FINITE_NUMBER, source.shownName(), error.what());
        }
        return std::move(report);
    }

private:
    void stage(const char* name, double done) const {
        if (options.progress && !options.progress(name, done))
            throw ConvertError(ConvertCode::CANCELLED, source.shownName());
    }

    /// From the source to what the writer takes; fills the report.
    void prepare() {
        kel::scene::Scene scene = importSource(source, recipe, options, report);
        if (options.verify) {
            original = scene;
            // Steps change copies of these maps.
            for (auto& entry : scene.meshes)
                entry.ownsMetaData = false;
        }
        stage("preparing", -1.0);
        prepared = prepareScene(source.shownName(), recipe, scene, report);
        const std::vector<ReachedError>& errors = prepared.errors;
        report.dropped = oncePerKind(std::move(report.dropped));
        for (std::size_t i = 0; i < scene.meshes.size(); ++i) {
            const kel::mesh::Mesh& source = *scene.meshes[i].mesh;
            const auto positions = source.getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME);
            WrittenMesh mesh;
            mesh.counts.meshes = 1;
            mesh.counts.vertices = positions ? positions->getElementCount() : 0;
            primitivesIn(mesh.counts, source.getPrimitiveType()) = source.getNumPrimitives();
            mesh.bytes = storedBytes(source, report.target);
            payload += mesh.bytes;
            report.counts += mesh.counts;
            if (!options.list) continue;
            mesh.name = nameOfMesh(scene.meshes[i]);
            if (i < errors.size()) mesh.error = errors[i];
            report.written.push_back(std::move(mesh));
        }
        // The writers add statistics to the maps.
        for (auto& entry : scene.meshes) {
            if (entry.metaData) entry.editMetaData();
        }
        input = toInput(std::move(scene));
    }

    void writeFile() {
        std::optional<AtomicFile> own;
        AtomicFile& file =
            destination.opened ? *destination.opened : own.emplace(destination.file, options.hooks);
        const std::string temporary = file.temporaryPath();
        if (options.verify && temporary.empty())
            throw ConvertError(ConvertCode::CANNOT_READ_BACK, destination.shownName());
        if (options.progress)
            file.onProgress([this](std::uint64_t bytes) {
                options.progress("writing", static_cast<double>(bytes) / static_cast<double>(payload + 1));
            });
        kel::prepare::write(input, report.target, file.stream());
        report.bytesOut = file.flush();
        checkPreamble(file.firstBytes(format::PREAMBLE_BYTES));
        if (options.verify)
            verify([&](const FurtherCheck& further) {
                return verifyFile(input, report.target, errorsOfInput(), recipe.allowClamping, temporary,
                                  further);
            });
        if (own) own->commit();
    }

    /// The last look before the file takes the place of an older one.
    void checkPreamble(const std::string& preamble) const {
        if (preamble.empty()) return; // a device or a pipe
        const char* bytes = preamble.data();
        if (preamble.size() < format::PREAMBLE_BYTES || format::readUint32(bytes) != format::SIGNATURE ||
            format::readUint32(bytes + 4) != format::LAYOUT ||
            format::PREAMBLE_BYTES + format::readUint32(bytes + 8) + payload != report.bytesOut)
            throw ConvertError(ConvertCode::OUTPUT_INCOMPLETE, destination.shownName());
    }

    /// Nobody sees anything of the file before it was read back.
    void writeVerified(std::ostream& stream) {
        StringBuffer memory;
        std::ostream out(&memory);
        kel::prepare::write(input, report.target, out);
        verify([&](const FurtherCheck& further) {
            return verifyBytes(input, report.target, errorsOfInput(), recipe.allowClamping, memory.text,
                               further);
        });
        report.bytesOut = memory.text.size();
        if (!stream.write(memory.text.data(), static_cast<std::streamsize>(memory.text.size())).flush())
            throw ConvertError(ConvertCode::STREAM_FAILED, destination.shownName());
    }

    /// Of what the writer was given, which lies in the middles of the bins and not where the model has it.
    std::vector<ReachedError> errorsOfInput() const {
        if (isContainerTarget(report.target)) return {};
        return kel::prepare::measureErrors(input, report.target);
    }

    template<typename FindDifference>
    void verify(const FindDifference& findDifference) {
        stage("verifying", -1.0);
        const std::string difference =
            findDifference([this](const kel::src::SrcFile& file) { return compareWithOriginal(file); });
        if (!difference.empty())
            throw ConvertError(ConvertCode::VERIFY_FAILED, destination.shownName(), difference);
    }

    /// The first difference; fills the report when there is none.
    std::string compareWithOriginal(const kel::src::SrcFile& file) {
        const CompareReport found = compareWithSource(std::move(original), recipe, report.target,
                                                      prepared.change, file, &prepared.errors);
        if (!found.same()) return describe(found.differences.front());
        report.verified = VerifiedError{found.maxDistance, found.maxAngle, found.maxColor, found.maxTexcoord,
                                        found.isExact};
        return "";
    }

    const Source& source;
    const Recipe& recipe;
    const Destination& destination;
    const ConvertOptions& options;
    ConvertReport report;
    kel::scene::Scene original; ///< as it was before any step, where it is to be verified
    Prepared prepared;
    SrcWriterInput input;
    std::uint64_t payload = 0; ///< bytes of indices and attributes
};

} // namespace

void checkDestination(const Source& source, const Destination& destination, const ProcessHooks& hooks) {
    if (destination.stream || destination.opened) return;
    if (!source.file.empty() && isSameFile(source.file, destination.file))
        throw ConvertError(ConvertCode::OUTPUT_IS_SOURCE, destination.shownName());
    AtomicFile::check(destination.file, hooks);
}

ConvertReport convert(const Source& source, const Recipe& recipe, const Destination& destination,
                      const ConvertOptions& options) {
    // The registry of presets fills on first use and is not made for several threads.
    static const bool presetsAreKnown = [] {
        for (const auto& row : kel::prepare::TARGETS) {
            if (row.isContainer) kel::src::detail::getSRCEncodingPreset(row.name);
        }
        return true;
    }();
    (void)presetsAreKnown;
    checkRecipe(recipe);
    try {
        return Conversion(source, recipe, destination, options).run();
    } catch (const std::bad_alloc&) {
        throw ConvertError(ConvertCode::OUT_OF_MEMORY, source.shownName());
    }
}

} // namespace kel::convert
