#pragma once

#include "CommandRun.h"

#include <support/SrcText.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace kel::tests {

/// Converts models that lie in a folder of their own.
class ConversionTest : public testing::Test {
protected:
    /// usual  options that every conversion of the test gets
    explicit ConversionTest(std::vector<std::string> usual = {}) : usual(std::move(usual)) {}

    std::string model(const std::string& name, const std::string& text) {
        return writeFile(folder / name, text);
    }

    /// Converts and takes the written file apart; `result` holds what the command said.
    SrcText converted(const std::vector<std::string>& args) {
        std::vector<std::string> all{"convert", "-o", folder / "out.src"};
        all.insert(all.end(), usual.begin(), usual.end());
        all.insert(all.end(), args.begin(), args.end());
        result = runCommand(all);
        if (result.status != 0) throw std::runtime_error(result.err);
        return SrcText(contentOf(folder / "out.src"));
    }

    TempFolder folder;
    CommandResult result;

private:
    const std::vector<std::string> usual;
};

} // namespace kel::tests
