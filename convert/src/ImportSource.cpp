#include "ImportSource.h"

#include <kel/importer/detail/ImportScene.h>

#include <istream>
#include <iterator>
#include <system_error>
#include <utility>

namespace kel::convert {

namespace {

using kel::importer::ImportCode;
using kel::importer::detail::ImportedScene;

ImportedScene import(const Source& source, const kel::importer::ImportOptions& options,
                     std::uint64_t& bytesIn) {
    if (source.stream) {
        const std::string bytes{std::istreambuf_iterator<char>(*source.stream), {}};
        if (source.stream->bad()) throw ConvertError(ConvertCode::SOURCE_UNREADABLE, source.shownName());
        bytesIn = bytes.size();
        return kel::importer::detail::importScene(bytes.data(), bytes.size(), source.name, options);
    }
    if (source.file.empty()) {
        bytesIn = source.bytes.size();
        return kel::importer::detail::importScene(source.bytes.data(), source.bytes.size(), source.name,
                                                  options);
    }
    std::error_code ignored;
    bytesIn = std::filesystem::file_size(source.file, ignored);
    if (ignored) bytesIn = 0;
    return kel::importer::detail::importScene(source.file, options);
}

} // namespace

kel::scene::Scene importSource(const Source& source, const Recipe& recipe, const ConvertOptions& options,
                               ConvertReport& report) {
    if (source.input) return kel::scene::fromInput(*source.input);
    kel::importer::ImportOptions importOptions;
    importOptions.onBadGeometry = recipe.onBadGeometry;
    importOptions.progress = options.progress;
    const auto token =
        options.hooks.onImport ? options.hooks.onImport(source.shownName()) : ProcessHooks::Token();
    try {
        ImportedScene imported = import(source, importOptions, report.bytesIn);
        report.format = std::move(imported.report.format);
        report.dropped = std::move(imported.report.dropped);
        report.notes = std::move(imported.report.notes);
        return std::move(imported.scene);
    } catch (const kel::importer::ImportError& error) {
        if (error.code() == ImportCode::CANCELLED)
            throw ConvertError(ConvertCode::CANCELLED, source.shownName());
        // Its sentence names the file.
        throw ConvertError(error.code() == ImportCode::NON_FINITE_POSITIONS
                               ? ConvertCode::IMPORT_REFUSED_POSITIONS
                               : ConvertCode::IMPORT_REFUSED,
                           "", error.what());
    }
}

} // namespace kel::convert
