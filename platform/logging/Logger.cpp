#include <logging/Logger.h>

#include <boost/log/attributes/constant.hpp>

#include <utility>

namespace logging {

std::shared_ptr<BoostLogger> Logger::getBoostLogger(int line, std::string function, std::string file) {
    auto logger = std::make_shared<BoostLogger>();
    logger->add_attribute("Line", boost::log::attributes::constant<int>(line));
    logger->add_attribute("Function", boost::log::attributes::constant<std::string>(std::move(function)));
    logger->add_attribute("File", boost::log::attributes::constant<std::string>(std::move(file)));
    return logger;
}

} // namespace logging
