#pragma once

#include <kel/src/text/JsonScanner.h>

#include <picojson.h>

#include <string>

namespace kel::prepare::detail {

/// The value of a text that checkJson has nothing against; null of any other.
inline picojson::value parseChecked(const std::string& text) {
    picojson::value value;
    if (kel::src::text::checkJson(text)) picojson::parse(value, text);
    return value;
}

} // namespace kel::prepare::detail
