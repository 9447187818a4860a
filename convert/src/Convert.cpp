#include <kel/convert/Convert.h>

#include "ImportSource.h"
#include "MeasureWritten.h"
#include "PrepareScene.h"

#include <kel/convert/AtomicFile.h>
#include <kel/convert/Verify.h>
#include <kel/convert/WriteCounted.h>
#include <kel/prepare/WriteChecked.h>

#include <kel/src/encoding/EncodingPresets.h>
#include <kel/src/format/FileLayout.h>

#include <map>
#include <new>
#include <ostream>
#include <streambuf>
#include <utility>

namespace kel::convert {

namespace {

namespace format = kel::src::format;
using kel::prepare::ReachedError;
using kel::src::SrcWriterInput;

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
        stage("preparing", -1.0);
        errors = prepareScene(source.shownName(), recipe, scene, report);
        report.dropped = oncePerKind(std::move(report.dropped));
        for (std::size_t i = 0; i < scene.meshes.size(); ++i) {
            WrittenMesh mesh = measureWritten(*scene.meshes[i].mesh, report.target);
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
            verify([&] { return verifyFile(input, report.target, errors, recipe.allowClamping, temporary); });
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
        verify([&] { return verifyBytes(input, report.target, errors, recipe.allowClamping, memory.text); });
        report.bytesOut = memory.text.size();
        if (!stream.write(memory.text.data(), static_cast<std::streamsize>(memory.text.size())).flush())
            throw ConvertError(ConvertCode::STREAM_FAILED, destination.shownName());
    }

    template<typename FindDifference>
    void verify(const FindDifference& findDifference) const {
        stage("verifying", -1.0);
        const std::string difference = findDifference();
        if (!difference.empty())
            throw ConvertError(ConvertCode::VERIFY_FAILED, destination.shownName(), difference);
    }

    const Source& source;
    const Recipe& recipe;
    const Destination& destination;
    const ConvertOptions& options;
    ConvertReport report;
    std::vector<ReachedError> errors;
    SrcWriterInput input;
    std::uint64_t payload = 0; ///< bytes of indices and attributes
};

} // namespace

Source Source::ofFile(std::filesystem::path file) {
    Source source;
    source.file = std::move(file);
    return source;
}

Source Source::ofStream(std::istream& stream, std::string name) {
    Source source;
    source.stream = &stream;
    source.name = std::move(name);
    return source;
}

Source Source::ofBytes(std::string_view bytes, std::string name) {
    Source source;
    source.bytes = bytes;
    source.name = std::move(name);
    return source;
}

Source Source::ofInput(const SrcWriterInput& input, std::string name) {
    Source source;
    source.input = &input;
    source.name = std::move(name);
    return source;
}

Destination Destination::ofFile(std::filesystem::path file) {
    Destination destination;
    destination.file = std::move(file);
    return destination;
}

Destination Destination::ofStream(std::ostream& stream, std::string name) {
    Destination destination;
    destination.stream = &stream;
    destination.name = std::move(name);
    return destination;
}

Destination Destination::ofOpened(AtomicFile& opened, std::filesystem::path file) {
    Destination destination;
    destination.file = std::move(file);
    destination.opened = &opened;
    return destination;
}

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
