#include <kel/src/format/FileLayout.h>
#include <kel/src/reader/ElementRuns_p.h>
#include <kel/src/reader/Validation_p.h>
#include <kel/src/text/JsonPointer.h>

#include <cmath>
#include <cstring>

namespace kel::src::detail {

void validateValues(Validation& validation) {
    const SrcFile& file = validation.file;
    for (const SrcAttributeView& view : validation.tables.attributeViews) {
        if (!validation.isUsable(view) || view.componentType != kel::mesh::FLOAT) continue;
        validation.work(bufferOf(file, view), view.count * view.byteStride);
        std::uint64_t bad = 0, firstBad = 0;
        forEachRun(file, bufferOf(file, view), view.byteOffset, view.byteStride,
                   std::uint64_t(view.components) * 4, view.count,
                   [&](const unsigned char* source, std::uint64_t first, std::size_t count) {
                       for (std::size_t e = 0; e < count; ++e) {
                           for (std::size_t c = 0; c < view.components; ++c) {
                               float value;
                               std::memcpy(&value, source + e * view.byteStride + c * 4, sizeof value);
                               if (std::isfinite(value)) continue;
                               if (bad++ == 0) firstBad = first + e;
                           }
                       }
                   });
        if (bad > 0)
            validation.report(
                SrcCode::NON_FINITE,
                text::jsonPointer({format::section::ACCESSORS, format::section::ATTRIBUTE_VIEWS, view.id}),
                "first in element " + std::to_string(firstBad), bad);
    }
}

} // namespace kel::src::detail
