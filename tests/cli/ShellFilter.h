#pragma once

#include "CommandRun.h"

#include <cstdio>

namespace kel::tests {

/// What a shell command makes of some bytes.
inline std::string filtered(const std::string& command, const std::string& bytes) {
    const TempFolder folder;
    const std::string input = writeFile(folder / "in", bytes), output = folder / "out";
    if (std::system(("(" + command + ") <" + input + " >" + output).c_str()) != 0)
        throw std::runtime_error(command + " failed");
    return contentOf(output);
}

} // namespace kel::tests
