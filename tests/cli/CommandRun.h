#pragma once

// Runs the command for tests, in this process or as a process of its own.

#include <Cli.h>

#include <support/TempFolder.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace kel::tests {

struct CommandResult {
    int status = -1;
    std::string out, err;
};

inline CommandResult runCommand(const std::vector<std::string>& args) {
    std::istringstream in;
    std::ostringstream out, err;
    CommandResult result;
    result.status = kelsrc::cli::run(args, in, out, err);
    result.out = out.str();
    result.err = err.str();
    return result;
}

inline std::string contentOf(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + file);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline std::string writeFile(const std::string& file, const std::string& content) {
    std::ofstream(file, std::ios::binary) << content;
    return file;
}

} // namespace kel::tests
