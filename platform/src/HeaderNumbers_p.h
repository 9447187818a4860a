#pragma once

#include <kel/src/format/HeaderEmitter.h>
#include <kel/src/text/JsonWriter.h>
#include <kel/src/text/StreamSink.h>

#include <cmath>
#include <cstddef>
#include <string>
#include <string_view>

namespace src {

using HeaderEntries = kel::src::format::HeaderEntries<kel::src::format::SeventeenDigits>;

template<typename Sink>
using HeaderEmitter = kel::src::format::HeaderEmitter<Sink, kel::src::format::SeventeenDigits>;

/// What is wrong with a field that cannot be written, such as "bboxSize[1] is infinite, ..."; empty if it
/// can.
inline std::string faultOf(std::string_view field, const double* values, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        if (std::isfinite(values[i])) continue;
        return std::string(field) + "[" + std::to_string(i) + "] is " +
               (std::isnan(values[i]) ? "not a number" : "infinite") +
               ", which no file can hold. Make the numbers it comes from finite.";
    }
    return {};
}

} // namespace src
