#pragma once

#include <CLI/App.hpp>
#include <CLI/Formatter.hpp>

#include <string>

namespace kelsrc::cli {

/// Help texts within 100 columns: descriptions are wrapped, options show their value and nothing else.
class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter() { column_width(32); }

    std::string make_option_opts(const CLI::Option* option) const override;
    std::string make_option_desc(const CLI::Option* option) const override;
};

} // namespace kelsrc::cli
