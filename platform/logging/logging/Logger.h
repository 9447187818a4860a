#pragma once

#include <boost/log/sources/severity_logger.hpp>
#include <boost/log/trivial.hpp>

#include <memory>
#include <string>

namespace logging {

/// What the library logs through. Its records carry the severity and the attributes "Line" (int), "Function"
/// and "File" (std::string) of the message's own place, so that a sink can print or filter by them.
using BoostLogger = boost::log::sources::severity_logger_mt<boost::log::trivial::severity_level>;

class __attribute__((visibility("default"))) Logger {
public:
    /// A logger for one message site. Never empty.
    static std::shared_ptr<BoostLogger> getBoostLogger(int line, std::string function, std::string file);
};

} // namespace logging
