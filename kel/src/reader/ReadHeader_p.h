#pragma once

#include <kel/src/reader/Findings_p.h>
#include <kel/src/reader/HeaderTables_p.h>

#include <string_view>

namespace kel::src::detail {

/// Reads a header into tables and resolves its references. Everything that it says is checked here, once,
/// in arithmetic that cannot wrap: counts, offsets and lengths are whole numbers below 2^53, sums of two
/// of them fit 64 bits, and no product is formed: a count is compared with what a division says there is
/// room for.
///
/// text     must outlive `tables`
/// returns  false when the text could not be walked to its end
bool readHeader(std::string_view text, const ReadLimits& limits, FindingSink& sink, HeaderTables& tables);

} // namespace kel::src::detail
