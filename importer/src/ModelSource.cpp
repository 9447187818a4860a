#include "ModelSource.h"

#include <kel/importer/Importer.h>

#include <algorithm>

namespace kel::importer::detail {

std::string smallLetters(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return text;
}

std::string ModelSource::extension() const {
    const auto dot = name.rfind('.');
    return dot == std::string::npos ? guess : smallLetters(name.substr(dot + 1));
}

void ModelSource::refuse(ImportCode code, const std::string& what, const std::string& place,
                         const std::string& remedy) const {
    throw ImportError(code, shown, what, place, remedy.empty() ? std::string(infoOf(code).remedy) : remedy);
}

} // namespace kel::importer::detail
