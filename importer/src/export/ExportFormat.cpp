#include "ExportFormat.h"

#include "../ModelSource.h"

#include <kel/importer/Exporter.h>

#include <vector>

namespace kel::importer {

namespace detail {

const ExportFormat& exportFormatOf(const std::string& fileName) {
    const std::size_t dot = fileName.rfind('.');
    const std::string extension = dot == std::string::npos ? "" : smallLetters(fileName.substr(dot + 1));
    for (const ExportFormat& format : EXPORT_FORMATS) {
        if (extension == format.extension) return format;
    }
    throw ExportError("there is no exporter for the extension \"" + extension + '"');
}

} // namespace detail

const std::vector<std::string>& exportExtensions() {
    static const std::vector<std::string> extensions = [] {
        std::vector<std::string> result;
        for (const detail::ExportFormat& format : detail::EXPORT_FORMATS)
            result.emplace_back(format.extension);
        return result;
    }();
    return extensions;
}

} // namespace kel::importer
