#include "ModelSource.h"

#include <algorithm>
#include <utility>

namespace kel::importer {

ImportError::ImportError(ImportCode code, std::string file, const std::string& what, std::string place,
                         std::string remedy)
    : std::runtime_error(file + ": " + what + (place.empty() ? "" : " (" + place + ")") + "; " + remedy),
      importCode(code), fileText(std::move(file)), placeText(std::move(place)),
      remedyText(std::move(remedy)) {}

ImportError::~ImportError() = default;

namespace detail {

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

void ProgressReporter::report(const char* stage, double done) {
    if (!progress) return;
    if (stage != lastStage) {
        lastStage = stage;
        lastDone = -1.0;
    }
    // Callers draw a bar: never backwards, and not more often than it can change.
    if (done < lastDone + 0.005 && !(done >= 1.0 && lastDone < 1.0)) return;
    lastDone = done;
    tell();
}

void ProgressReporter::ask() {
    if (progress && !lastStage.empty()) tell();
}

void ProgressReporter::tell() {
    if (progress(lastStage.c_str(), lastDone)) return;
    stopped = true;
    refuseCancelled();
}

void ProgressReporter::refuseCancelled() const {
    source.refuse(ImportCode::CANCELLED, "the import was cancelled");
}

} // namespace detail

} // namespace kel::importer
