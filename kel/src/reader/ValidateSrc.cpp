
#include <kel/src/format/FileLayout.h>
#include <kel/src/reader/Validation_p.h>
#include <kel/src/text/JsonPointer.h>

#include <cstring>

namespace kel::src {

namespace detail {

Validation::Validation(const ValidateOptions& options, ReportSink& sink, std::unique_ptr<SrcFileData> data)
    : options(options), sink(sink), file(SrcFileAccess::make(std::move(data))),
      tables(SrcFileAccess::data(file).tables),
      workLeft(std::max<std::uint64_t>(std::uint64_t(64) << 20, file.dataBytes() * options.workFactor)) {}

void Validation::work(const ElementPlaces& elements, std::uint64_t bytes) {
    const std::uint64_t cost = bytes + std::uint64_t(tables.bufferViews[elements.bufferView].chunkCount) * 16;
    if (cost > workLeft) throw WorkExceeded();
    workLeft -= cost;
}

std::vector<float> Validation::decode(const SrcAttributeView& view) {
    work(view, view.count * view.byteStride);
    if (view.count > options.limits.memoryBytes / (sizeof(float) * 4)) throw WorkExceeded();
    return decodeAttribute(file, view);
}

std::vector<std::uint32_t> Validation::decode(const SrcIndexView& view) {
    work(view, view.count * sizeof(std::uint32_t));
    if (view.count > options.limits.memoryBytes / sizeof(std::uint32_t)) throw WorkExceeded();
    return decodeIndices(file, view);
}

} // namespace detail

namespace {

/// NaN and infinities in views of floats; codes decode to finite numbers.
void validateFloats(detail::Validation& validation) {
    for (const SrcAttributeView& view : validation.tables.attributeViews) {
        if (!validation.isUsable(view) || view.componentType != kel::mesh::FLOAT) continue;
        validation.work(view, view.count * view.byteStride);
        std::uint64_t bad = 0, firstBad = 0;
        const auto check = [&](const unsigned char* source, std::uint64_t first, std::size_t count) {
            for (std::size_t e = 0; e < count; ++e) {
                for (std::size_t c = 0; c < view.components; ++c) {
                    float value;
                    std::memcpy(&value, source + e * view.byteStride + c * sizeof value, sizeof value);
                    if (!std::isfinite(value) && bad++ == 0) firstBad = first + e;
                }
            }
        };
        detail::forEachRun(validation.file, view, check);
        if (bad > 0)
            validation.report(
                SrcCode::NON_FINITE,
                text::jsonPointer({format::section::ACCESSORS, format::section::ATTRIBUTE_VIEWS, view.id}),
                "first in element " + std::to_string(firstBad), bad);
    }
}

/// What comes after loading; `data` is empty when there is nothing to check.
ValidationReport validated(std::unique_ptr<detail::SrcFileData> data, const ValidateOptions& options,
                           detail::ReportSink& sink) {
    if (data) {
        detail::Validation validation(options, sink, std::move(data));
        detail::validateLayout(validation);
        detail::Gathered attributeCounts(SrcCode::ATTRIBUTE_COUNT);
        try {
            validateFloats(validation);
            detail::validateMeshes(validation, attributeCounts);
        } catch (const detail::WorkExceeded&) {
            validation.report(SrcCode::LIMIT_EXCEEDED, {},
                              "views name the same bytes so often that checking them all would read " +
                                  std::to_string(options.workFactor) +
                                  " times the file; what follows was not checked");
        }
        attributeCounts.reportTo(sink);
    }
    return std::move(sink.result);
}

} // namespace

ValidationReport validateSrc(ByteView bytes, const ValidateOptions& options) {
    detail::ReportSink sink(options);
    return validated(detail::loadBytes(bytes, options.limits, sink), options, sink);
}

ValidationReport validateSrc(std::istream& in, const ValidateOptions& options) {
    detail::ReportSink sink(options);
    return validated(detail::loadStream(detail::inputFrom(in), options.limits, sink), options, sink);
}

ValidationReport validateSrc(const std::string& path, const ValidateOptions& options) {
    detail::ReportSink sink(options);
    std::unique_ptr<detail::SrcFileData> data;
    try {
        data = detail::loadPath(path, options.limits, sink);
    } catch (const SrcError& error) {
        sink.report(error.code(), error.byteOffset(), error.path(), error.detail());
    }
    return validated(std::move(data), options, sink);
}

} // namespace kel::src
