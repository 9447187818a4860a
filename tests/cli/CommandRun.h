#pragma once

// Runs the command for tests, in this process or as a process of its own, in a folder that is removed
// afterwards.

#include <Cli.h>

#include <cstdlib>
#include <filesystem>
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

/// A new, empty folder.
class TempFolder {
public:
    TempFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "kelsrc-test-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder");
        folder = pattern;
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return folder; }
    std::string operator/(const std::string& name) const { return (folder / name).string(); }

    /// Names of what lies in the folder, also hidden files.
    std::vector<std::string> entries() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            names.push_back(entry.path().filename().string());
        return names;
    }

private:
    std::filesystem::path folder;
};

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
