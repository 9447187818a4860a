#pragma once

#include "../ModelSource.h"
#include "../ProgressReporter.h"
#include "../checks/Findings.h"

#include <assimp/DefaultIOSystem.h>
#include <assimp/IOStream.hpp>
#include <assimp/IOSystem.hpp>

#include <set>
#include <string>

namespace kel::importer::detail {

/// The stage in which Assimp reads.
extern const char* const READING;

/// The file system, with the model in memory where there is one, and a list of what was asked for in vain.
class AssimpFiles final : public Assimp::IOSystem {
public:
    /// missing  gets the names of files that could not be opened
    AssimpFiles(const ModelSource& source, const Findings& findings, ProgressReporter& progress,
                std::set<std::string>& missing)
        : source(source), findings(findings), progress(progress), missing(missing) {}

    bool Exists(const char* file) const override { return source.path == file || disk.Exists(file); }
    char getOsSeparator() const override { return disk.getOsSeparator(); }
    Assimp::IOStream* Open(const char* file, const char* mode) override;
    void Close(Assimp::IOStream* stream) override { delete stream; }
    bool ComparePaths(const char* one, const char* second) const override {
        return disk.ComparePaths(one, second);
    }

private:
    const ModelSource& source;
    const Findings& findings;
    ProgressReporter& progress;
    std::set<std::string>& missing;
    Assimp::DefaultIOSystem disk;
};

} // namespace kel::importer::detail
