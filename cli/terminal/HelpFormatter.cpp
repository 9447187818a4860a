#include "terminal/HelpFormatter.h"

#include <sstream>

namespace kelsrc::cli {

namespace {

constexpr std::size_t TEXT_WIDTH = 66;

std::string wrapped(const std::string& text) {
    std::istringstream words(text);
    std::string result, word;
    std::size_t used = 0;
    while (words >> word) {
        if (used != 0 && used + 1 + word.size() > TEXT_WIDTH) {
            result += '\n';
            used = 0;
        } else if (used != 0) {
            result += ' ';
            ++used;
        }
        result += word;
        used += word.size();
    }
    return result;
}

} // namespace

std::string HelpFormatter::make_option_opts(const CLI::Option* option) const {
    if (option->get_type_size() == 0 || option->get_positional()) return "";
    return ' ' + option->get_option_text();
}

std::string HelpFormatter::make_option_desc(const CLI::Option* option) const {
    std::string text = option->get_description();
    if (option->get_required() && !option->get_positional()) text += " (required)";
    if (!option->get_default_str().empty()) text += " (default: " + option->get_default_str() + ')';
    return wrapped(text);
}

} // namespace kelsrc::cli
