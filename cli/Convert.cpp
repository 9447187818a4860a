#include "Convert.h"

#include "AtomicFile.h"
#include "HtmlPage.h"
#include "ImporterCrash.h"
#include "Info.h"
#include "Messages.h"
#include "Preparation.h"
#include "SrcInput.h"
#include "Status.h"
#include "Verify.h"
#include "ViewerPage.h"

#include <kel/prepare/MeshName.h>
#include <kel/prepare/WriteChecked.h>
#include <kel/src/SrcReader.h>
#include <kel/src/SrcValidator.h>

#include <istream>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace kelsrc::cli {

namespace {

using kel::prepare::Target;
using kel::src::SrcWriterInput;

constexpr std::size_t PREAMBLE_SIZE = 12;

kel::importer::ImportResult import(const ModelSource& source, const ConvertOptions& options,
                                   const StageCallback& onStage, std::uint64_t& bytesIn) {
    kel::importer::ImportOptions importOptions;
    importOptions.onBadGeometry = options.onBadGeometry;
    importOptions.progress = [&](const char* stage, double done) {
        onStage(stage, done);
        return true;
    };
    const ImporterCrash onCrash(source.name());
    try {
        if (source.stream) {
            const std::string bytes{std::istreambuf_iterator<char>(*source.stream), {}};
            if (source.stream->bad()) throw Failure(STATUS_INPUT, source.name(), "cannot be read");
            bytesIn = bytes.size();
            return kel::importer::importModel(bytes.data(), bytes.size(), "standard input", importOptions);
        }
        std::error_code ignored;
        bytesIn = std::filesystem::file_size(source.file, ignored);
        if (ignored) bytesIn = 0;
        return kel::importer::importModel(source.file, importOptions);
    } catch (const kel::importer::ImportError& error) {
        const bool canDrop = error.code() == kel::importer::ImportCode::NON_FINITE_POSITIONS;
        throw Failure(STATUS_INPUT, "", error.what(),
                      canDrop ? "Give --on-bad-geometry=drop to leave out the primitives that use them."
                              : "");
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

WrittenMesh describeMesh(const SrcWriterInput& input, const kel::mesh::MeshPtr& mesh, Target target) {
    WrittenMesh written;
    written.name = kel::prepare::meshName(input, mesh);
    switch (mesh->getPrimitiveType()) {
    case kel::mesh::POINTS:
        written.points = mesh->getNumPrimitives();
        break;
    case kel::mesh::LINES:
    case kel::mesh::LINE_LOOP:
    case kel::mesh::LINE_STRIP:
        written.lines = mesh->getNumPrimitives();
        break;
    default:
        written.triangles = mesh->getNumPrimitives();
    }
    const auto positions = mesh->getAttributeBuffer("position");
    written.vertices = positions ? positions->getElementCount() : 0;
    written.bytes = storedBytes(*mesh, target);
    return written;
}

std::uint32_t littleEndian(const std::string& bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

/// The last look before the file takes the place of an older one.
void checkWritten(AtomicFile& file, const std::string& name, std::uint64_t size, std::uint64_t payload) {
    const std::string preamble = file.firstBytes(PREAMBLE_SIZE);
    if (preamble.empty()) return; // a device or a pipe
    if (preamble.size() < PREAMBLE_SIZE || littleEndian(preamble, 0) != 23 ||
        littleEndian(preamble, 4) != 42 || PREAMBLE_SIZE + littleEndian(preamble, 8) + payload != size) {
        throw Failure(STATUS_NOT_WRITTEN, name, "what was written is not a whole SRC file",
                      "Write to another disk; if it happens again, please report it.");
    }
}

/// Hands everything on to another stream buffer and counts it.
class CountingBuffer final : public std::streambuf {
public:
    explicit CountingBuffer(std::streambuf* next) : next(next) {}
    std::uint64_t bytes = 0;

protected:
    int_type overflow(int_type character) override {
        const auto result = next->sputc(traits_type::to_char_type(character));
        if (!traits_type::eq_int_type(result, traits_type::eof())) ++bytes;
        return result;
    }
    std::streamsize xsputn(const char* text, std::streamsize size) override {
        const std::streamsize taken = next->sputn(text, size);
        bytes += static_cast<std::uint64_t>(taken);
        return taken;
    }
    int sync() override { return next->pubsync(); }

private:
    std::streambuf* next;
};

/// Has `write` write to standard output, and says how many bytes that were.
template<typename Write>
std::uint64_t countBytes(std::ostream& stream, const Write& write) {
    CountingBuffer buffer(stream.rdbuf());
    std::ostream out(&buffer);
    write(out);
    if (!out.flush())
        throw Failure(STATUS_NOT_WRITTEN, "standard output",
                      "writing failed after " + std::to_string(buffer.bytes) + " bytes",
                      "Make room where it goes, or keep its reader running.");
    return buffer.bytes;
}

/// Reads back what was written, from memory or a path, before anybody else can see it.
template<typename Bytes, typename Open>
void verify(const SrcWriterInput& input, const std::vector<kel::prepare::ReachedError>& errors, Target target,
            bool clamped, const std::string& name, const Bytes& bytes, const Open& open) {
    std::string difference;
    try {
        difference = firstError(kel::src::validateSrc(bytes), clamped);
        if (difference.empty()) difference = firstDifference(input, target, errors, open(bytes));
    } catch (const kel::src::SrcError& error) {
        difference = error.what();
    }
    if (!difference.empty())
        throw Failure(STATUS_NOT_WRITTEN, name, "what was written is not what was meant: " + difference,
                      "An older file is still as it was. Please report this.");
}

ConvertReport convertToSrc(const ModelSource& source, const SrcTarget& target, const ConvertOptions& options,
                           const StageCallback& onStage) {
    ConvertReport report;
    kel::importer::ImportResult imported = import(source, options, onStage, report.bytesIn);
    SrcWriterInput input = std::move(imported.input);
    report.format = std::move(imported.report.format);
    report.dropped = std::move(imported.report.dropped);
    report.notes = std::move(imported.report.notes);

    onStage("preparing", -1.0);
    std::vector<kel::prepare::ReachedError> errors;
    prepareForWriter(source.name(), options, input, report, errors);
    report.dropped = oncePerKind(std::move(report.dropped));

    std::uint64_t payload = 0;
    report.meshes = input.meshes.size();
    for (std::size_t i = 0; i < input.meshes.size(); ++i) {
        WrittenMesh mesh = describeMesh(input, input.meshes[i], report.target);
        if (i < errors.size()) mesh.error = errors[i];
        payload += mesh.bytes;
        report.triangles += mesh.triangles;
        report.lines += mesh.lines;
        report.points += mesh.points;
        report.vertices += mesh.vertices;
        if (options.list) report.written.push_back(std::move(mesh));
    }

    onStage("writing", 0.0);
    try {
        if (target.stream && options.verify) {
            std::ostringstream memory;
            kel::prepare::write(input, report.target, memory);
            const std::string bytes = memory.str();
            onStage("verifying", -1.0);
            verify(input, errors, report.target, options.allowClamping, target.name(),
                   kel::src::ByteView(std::string_view(bytes)),
                   [](const kel::src::ByteView& view) { return kel::src::readSrc(view); });
            report.bytesOut = bytes.size();
            if (!target.stream->write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush())
                throw Failure(STATUS_NOT_WRITTEN, target.name(), "writing failed",
                              "Make room where it goes, or keep its reader running.");
            return report;
        }
        if (target.stream) {
            report.bytesOut = countBytes(
                *target.stream, [&](std::ostream& out) { kel::prepare::write(input, report.target, out); });
            return report;
        }
        std::optional<AtomicFile> own;
        AtomicFile& file = target.opened ? *target.opened : own.emplace(target.file);
        const std::string temporary = file.temporaryPath();
        if (options.verify && temporary.empty())
            throw Failure(STATUS_NOT_WRITTEN, target.name(), "cannot be read back, as --verify asks for",
                          "Write to a file on a disk.");
        file.onProgress([&](std::uint64_t bytes) {
            onStage("writing", static_cast<double>(bytes) / static_cast<double>(payload + 1));
        });
        kel::prepare::write(input, report.target, file.stream());
        report.bytesOut = file.flush();
        checkWritten(file, target.name(), report.bytesOut, payload);
        if (options.verify) {
            onStage("verifying", -1.0);
            verify(input, errors, report.target, options.allowClamping, target.name(), temporary,
                   [](const std::string& path) { return kel::src::openSrc(path); });
        }
        if (own) own->commit();
    } catch (const std::overflow_error& error) {
        throw Failure(STATUS_INPUT, source.name(),
                      std::string("a number that is not finite would have to stand in the file's header: ") +
                          error.what(),
                      "Look for infinite or NaN numbers in its materials and positions.");
    }
    return report;
}

/// What an SRC file says about itself, and with --verify whether that is so.
ConvertReport describeSrc(const ModelSource& source, const ConvertOptions& options) {
    std::istream none(nullptr);
    const FileInfo info = infoOf(openSrcFile(source.file.string(), none), options.list);
    ConvertReport report;
    report.format = "SRC";
    report.takenAsIs = true;
    report.notes.push_back("is an SRC file already, so it goes into the page as it is");
    report.meshes = info.meshes;
    report.triangles = info.triangles;
    report.lines = info.lines;
    report.points = info.points;
    report.vertices = info.vertices;
    report.bytesIn = report.bytesOut = info.bytes;
    for (const auto& mesh : info.meshList) {
        WrittenMesh written;
        written.name = mesh.name;
        (mesh.kind == "points"  ? written.points
         : mesh.kind == "lines" ? written.lines
                                : written.triangles) = mesh.primitives;
        written.vertices = mesh.vertices;
        written.bytes = mesh.bytes;
        report.written.push_back(std::move(written));
    }
    if (options.verify) {
        const std::string error = firstError(kel::src::validateSrc(source.file.string()), false);
        if (!error.empty())
            throw Failure(STATUS_INPUT, source.name(), error, "\"kelsrc validate\" tells more.");
    }
    return report;
}

ConvertReport convertToPage(const ModelSource& source, const SrcTarget& target, const ConvertOptions& options,
                            const StageCallback& onStage) {
    const std::string viewer = viewerPage();
    ConvertReport report;
    EmbeddedFile embedded;
    std::optional<AtomicFile> scratch;
    if (!source.stream && looksLikeSrc(source.file.string())) {
        report = describeSrc(source, options);
        embedded = {source.file.filename().string(), source.file.string()};
    } else {
        // The file's length stands before it in the page, so it is written aside: beside the page, where
        // there has to be room for it anyway.
        if (!target.stream) scratch.emplace(target.file);
        if (!scratch || scratch->temporaryPath().empty()) scratch.emplace(scratchPlace());
        SrcTarget inside;
        inside.file = target.file;
        inside.opened = &*scratch;
        report = convertToSrc(source, inside, options, onStage);
        embedded = {(source.stream ? "model" : source.file.stem().string()) + ".src",
                    scratch->temporaryPath()};
    }
    report.bytesSrc = report.bytesOut;
    const auto onProgress = [&](std::uint64_t bytes) {
        onStage("packing", static_cast<double>(bytes) / static_cast<double>(*report.bytesSrc + 1));
    };
    if (target.stream) {
        report.bytesOut = countBytes(
            *target.stream, [&](std::ostream& out) { writeHtmlPage(out, viewer, embedded, onProgress); });
        return report;
    }
    AtomicFile page(target.file);
    writeHtmlPage(page.stream(), viewer, embedded, onProgress);
    report.bytesOut = page.flush();
    page.commit();
    return report;
}

} // namespace

ConvertReport convert(const ModelSource& source, const SrcTarget& target, const ConvertOptions& options,
                      const StageCallback& stageCallback) {
    const StageCallback onStage = stageCallback ? stageCallback : [](const std::string&, double) {};
    if (!target.stream && !target.opened) {
        if (!source.stream && isSameFile(source.file, target.file)) {
            throw Failure(STATUS_NOT_WRITTEN, target.name(), "is the model itself, which would be lost",
                          "Choose another name for the output.");
        }
        AtomicFile::check(target.file);
    }
    return options.html ? convertToPage(source, target, options, onStage)
                        : convertToSrc(source, target, options, onStage);
}

std::filesystem::path scratchPlace() {
    return std::filesystem::temp_directory_path() / ("kelsrc-" + std::to_string(::getpid()) + ".src");
}

} // namespace kelsrc::cli
