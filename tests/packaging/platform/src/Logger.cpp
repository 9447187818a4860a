#include <logging/Logger.h>

#include <iostream>

namespace logging {

std::shared_ptr<BoostLogger> Logger::getBoostLogger(int, std::string function, std::string) {
    std::cout << "the pipeline's logger was asked by " << function << "\n";
    return std::make_shared<BoostLogger>();
}

} // namespace logging
