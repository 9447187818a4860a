#include <kel/importer/detail/ImportScene.h>

#include "checks/Checks.h"
#include "conversion/Conversion.h"
#include "gltf/GltfReader.h"
#include "isolation/ReadHere.h"
#include "obj/ObjReader.h"
#include "ply/PlyReader.h"
#include "text/Utf16.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <new>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace kel::importer {

namespace {

/// Whether this is text in UTF-16, and not a binary format that begins with the same two bytes.
bool isUtf16Text(std::string_view content) {
    if (!detail::isUtf16(content)) return false;
    const std::string start = detail::utf8OfUtf16(content.substr(0, 512));
    const auto isAscii = [](char c) { return (c >= ' ' && c <= '~') || c == '\n' || c == '\r' || c == '\t'; };
    return 2 * std::count_if(start.begin(), start.end(), isAscii) >=
           static_cast<std::ptrdiff_t>(start.size());
}

/// Has the source be read in UTF-8 where it is text in UTF-16: Assimp knows that of few formats.
///
/// text  keeps what is read then
void useUtf8(detail::ModelSource& source, std::string& text) {
    const detail::Content content(source);
    const std::string_view bytes(content.data(), static_cast<std::size_t>(content.size()));
    if (!isUtf16Text(bytes)) return;
    text = detail::utf8OfUtf16(bytes);
    source.bytes = text.data();
    source.size = text.size();
}

detail::ImportedScene import(detail::ModelSource source, const ImportOptions& options) {
    detail::ProgressReporter progress(options.progress, source);
    std::string text;
    try {
        useUtf8(source, text);
        if (source.extension().empty()) {
            // Most readers go by the extension alone.
            source.guess = detail::guessExtension(detail::Content(source));
            if (!source.guess.empty()) source.path += "." + source.guess;
        }
        detail::Findings findings = checkBeforeReading(source, progress);
        std::unique_ptr<detail::Model> model;
        if (findings.isGltf) model = openGltf(source, options, progress);
        if (model && model->mayCrash && !options.inProcess) {
            model.reset();
            model = readApart(detail::ReaderKind::GLTF, source, options, progress);
        }
        if (!model && options.scene)
            source.refuse(ImportCode::NO_SCENE, "files of this format have no scenes to choose from");
        if (findings.isPly) model = readPly(source, options, progress);
        if (findings.isObj) model = readObj(source, options, progress);
        if (!model) model = readApart(detail::ReaderKind::ASSIMP, source, options, progress);
        model->dropped.insert(model->dropped.begin(), findings.dropped.begin(), findings.dropped.end());
        return convertModel(*model, source, options, progress);
    } catch (const std::bad_alloc&) {
        source.refuse(ImportCode::OUT_OF_MEMORY, "the model does not fit into memory");
    }
}

ImportResult asResult(detail::ImportedScene imported) {
    return {kel::scene::toInput(std::move(imported.scene)), std::move(imported.report)};
}

} // namespace

namespace detail {

ImportedScene importScene(const std::filesystem::path& file, const ImportOptions& options) {
    ModelSource source;
    source.shown = file.string();
    source.name = file.filename().string();
    source.disk = file.string();
    source.path = source.disk;

    std::error_code failure;
    const auto status = std::filesystem::status(file, failure);
    if (status.type() == std::filesystem::file_type::not_found)
        source.refuse(ImportCode::FILE_NOT_FOUND, "there is no such file");
    if (failure)
        source.refuse(ImportCode::FILE_UNREADABLE, failure.message(), "",
                      "check the path and its permissions");
    if (std::filesystem::is_directory(status)) source.refuse(ImportCode::NOT_A_FILE, "this is a directory");

    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
        source.refuse(ImportCode::FILE_UNREADABLE, errno ? std::strerror(errno) : "it cannot be opened");
    if (!std::filesystem::is_regular_file(status)) {
        // Pipes and devices can be read once and do not know their size.
        const std::string content{std::istreambuf_iterator<char>(stream), {}};
        return importScene(content.data(), content.size(), source.shown, options);
    }
    if (std::filesystem::file_size(file, failure) == 0 && !failure)
        source.refuse(ImportCode::EMPTY_FILE, "the file is empty");
    stream.close();
    return import(source, options);
}

ImportedScene importScene(const void* bytes, std::size_t size, const std::string& name,
                          const ImportOptions& options) {
    ModelSource source;
    source.shown = name;
    source.name = std::filesystem::path(name).filename().string();
    source.path = source.name.empty() ? "model" : source.name;
    source.bytes = static_cast<const char*>(bytes);
    source.size = size;
    if (size == 0) source.refuse(ImportCode::EMPTY_FILE, "the input is empty", "", "check what writes to it");
    return import(source, options);
}

} // namespace detail

ImportResult importModel(const std::filesystem::path& file, const ImportOptions& options) {
    return asResult(detail::importScene(file, options));
}

ImportResult importModel(const void* bytes, std::size_t size, const std::string& name,
                         const ImportOptions& options) {
    return asResult(detail::importScene(bytes, size, name, options));
}

} // namespace kel::importer
