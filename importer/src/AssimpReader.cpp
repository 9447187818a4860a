#include "AssimpReader.h"

#include "checks/GltfDocument.h"

#include <assimp/DefaultIOSystem.h>
#include <assimp/IOStream.hpp>
#include <assimp/IOSystem.hpp>
#include <assimp/Importer.hpp>
#include <assimp/MemoryIOWrapper.h>
#include <assimp/ProgressHandler.hpp>
#include <assimp/importerdesc.h>
#include <assimp/postprocess.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <new>
#include <set>
#include <vector>

namespace kel::importer::detail {

namespace {

const char* const READING = "reading";

/// Passes reads on and reports them. Readers of most formats tell no progress of their own.
class WatchedStream final : public Assimp::IOStream {
public:
    WatchedStream(Assimp::IOStream* stream, Stages& stages) : stream(stream), stages(stages) {}

    std::size_t Read(void* buffer, std::size_t size, std::size_t count) override {
        const std::size_t read = stream->Read(buffer, size, count);
        const std::size_t all = stream->FileSize();
        // Parsing follows: a file that has been read is not half done.
        if (all > 0) stages.at(READING, 0.4 * static_cast<double>(stream->Tell()) / static_cast<double>(all));
        return read;
    }
    std::size_t Write(const void* buffer, std::size_t size, std::size_t count) override {
        return stream->Write(buffer, size, count);
    }
    aiReturn Seek(std::size_t offset, aiOrigin origin) override { return stream->Seek(offset, origin); }
    std::size_t Tell() const override { return stream->Tell(); }
    std::size_t FileSize() const override { return stream->FileSize(); }
    void Flush() override { stream->Flush(); }

private:
    std::unique_ptr<Assimp::IOStream> stream;
    Stages& stages;
};

/// A text of ours with a range of the model behind it.
class SplicedStream final : public Assimp::IOStream {
public:
    SplicedStream(const Source& source, const Findings& findings) : findings(findings), content(source) {}

    std::size_t Read(void* buffer, std::size_t size, std::size_t count) override {
        if (size == 0) return 0;
        std::size_t wanted = std::min(count, (FileSize() - position) / size) * size;
        auto* out = static_cast<char*>(buffer);
        const std::size_t front = findings.front.size();
        if (position < front) {
            const std::size_t here = std::min(wanted, front - position);
            std::memcpy(out, findings.front.data() + position, here);
            out += here;
            position += here;
            wanted -= here;
        }
        std::size_t read = static_cast<std::size_t>(out - static_cast<char*>(buffer));
        if (wanted > 0) {
            const std::size_t here = content.read(findings.tailOffset + (position - front), out, wanted);
            position += here;
            read += here;
        }
        return read / size;
    }
    std::size_t Write(const void*, std::size_t, std::size_t) override { return 0; }
    aiReturn Seek(std::size_t offset, aiOrigin origin) override {
        const std::size_t base = origin == aiOrigin_SET ? 0 : origin == aiOrigin_CUR ? position : FileSize();
        const std::size_t target = origin == aiOrigin_END ? base - std::min(base, offset) : base + offset;
        if (target > FileSize()) return aiReturn_FAILURE;
        position = target;
        return aiReturn_SUCCESS;
    }
    std::size_t Tell() const override { return position; }
    std::size_t FileSize() const override { return findings.front.size() + findings.tailLength; }
    void Flush() override {}

private:
    const Findings& findings;
    Content content;
    std::size_t position = 0;
};

/// The file system, with the model in memory where there is one, and a list of what was asked for in vain.
class Files final : public Assimp::IOSystem {
public:
    Files(const Source& source, const Findings& findings, Stages& stages, std::set<std::string>& missing)
        : source(source), findings(findings), stages(stages), missing(missing) {}

    bool Exists(const char* file) const override {
        return (source.bytes && source.path == file) || disk.Exists(file);
    }
    char getOsSeparator() const override { return disk.getOsSeparator(); }
    Assimp::IOStream* Open(const char* file, const char* mode) override {
        const bool model = source.path == file;
        Assimp::IOStream* stream = nullptr;
        if (model && !findings.front.empty()) {
            stream = new SplicedStream(source, findings);
        } else if (model && source.bytes) {
            stream =
                new Assimp::MemoryIOStream(reinterpret_cast<const std::uint8_t*>(source.bytes), source.size);
        } else {
            stream = disk.Open(file, mode);
            // glTF names the files beside it by URI.
            if (!stream && findings.gltf) stream = disk.Open(percentDecoded(file).c_str(), mode);
        }
        if (!stream) {
            missing.insert(file);
            return nullptr;
        }
        return model ? new WatchedStream(stream, stages) : stream;
    }
    void Close(Assimp::IOStream* stream) override { delete stream; }
    bool ComparePaths(const char* one, const char* second) const override {
        return disk.ComparePaths(one, second);
    }

private:
    const Source& source;
    const Findings& findings;
    Stages& stages;
    std::set<std::string>& missing;
    Assimp::DefaultIOSystem disk;
};

class Handler final : public Assimp::ProgressHandler {
public:
    explicit Handler(Stages& stages) : stages(stages) {}
    // Leaving by exception is the only way out of most readers; they are built for it.
    bool Update(float done) override {
        if (done >= 0.0f) stages.at(READING, std::min(1.0, static_cast<double>(done)));
        return true;
    }

private:
    Stages& stages;
};

void checkIndices(const Source& source, const aiScene& scene) {
    for (unsigned m = 0; m < scene.mNumMeshes; ++m) {
        const aiMesh& mesh = *scene.mMeshes[m];
        std::size_t bad = 0;
        for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
            const aiFace& face = mesh.mFaces[f];
            bad += std::any_of(face.mIndices, face.mIndices + face.mNumIndices,
                               [&](unsigned index) { return index >= mesh.mNumVertices; });
        }
        if (bad > 0) {
            source.refuse("index-out-of-range",
                          std::to_string(bad) + " primitives use vertices beyond the mesh's " +
                              std::to_string(mesh.mNumVertices),
                          "mesh " + std::to_string(m) + " \"" + mesh.mName.C_Str() + "\"",
                          "export the model again, its index list is damaged");
        }
    }
}

bool hasPolygons(const aiScene& scene) {
    for (unsigned m = 0; m < scene.mNumMeshes; ++m) {
        const aiMesh& mesh = *scene.mMeshes[m];
        if (std::any_of(mesh.mFaces, mesh.mFaces + mesh.mNumFaces,
                        [](const aiFace& face) { return face.mNumIndices > 3; })) {
            return true;
        }
    }
    return false;
}

/// Why Assimp gave up, as our own error.
[[noreturn]] void refuseFailure(const Source& source, const Assimp::Importer& importer, const Stages& stages,
                                const std::set<std::string>& missing) {
    if (stages.cancelled()) stages.refuseCancelled();
    if (importer.GetException()) {
        try {
            std::rethrow_exception(importer.GetException());
        } catch (const ImportError&) {
            throw;
        } catch (const std::bad_alloc&) {
            source.refuse("out-of-memory", "the model does not fit into memory", "",
                          "free some memory or split the model");
        } catch (const std::exception&) {
            // Its text is the importer's error string, below.
        }
    }
    const std::string text = importer.GetErrorString();
    if (text.find("No suitable reader found") != std::string::npos) {
        source.refuse("unknown-format", "no reader knows this kind of file", "",
                      "convert it to a common format such as glTF, OBJ, STL or PLY");
    }
    std::string what = text.empty() ? "the reader gave up without a reason" : "the reader gave up: " + text;
    while (!what.empty() && (what.back() == '.' || what.back() == '\n'))
        what.pop_back();
    if (!missing.empty()) {
        source.refuse("missing-file", what + "; not found: " + *missing.begin(), "",
                      "put that file beside the model");
    }
    const bool range = what.find("index out of range") != std::string::npos;
    source.refuse(range ? "index-out-of-range" : "invalid-model", what, "", "export the model again");
}

} // namespace

AssimpScene readWithAssimp(const Source& source, const Findings& findings, Stages& stages) {
    std::set<std::string> missing;
    Assimp::Importer importer;
    importer.SetIOHandler(new Files(source, findings, stages, missing));
    importer.SetProgressHandler(new Handler(stages));

    stages.at(READING, 0.0);
    const aiScene* read = importer.ReadFile(source.path, 0);
    if (!read) refuseFailure(source, importer, stages, missing);
    checkIndices(source, *read);
    if (hasPolygons(*read) && !importer.ApplyPostProcessing(aiProcess_Triangulate)) {
        refuseFailure(source, importer, stages, missing);
    }
    if (stages.cancelled()) stages.refuseCancelled();

    AssimpScene result;
    if (const aiImporterDesc* info = importer.GetImporterInfo(
            static_cast<std::size_t>(std::max(0, importer.GetPropertyInteger("importerIndex", -1))))) {
        result.format = info->mName;
    }
    result.scene.reset(importer.GetOrphanedScene());
    result.missingFiles.assign(missing.begin(), missing.end());
    return result;
}

} // namespace kel::importer::detail
