#include "AssimpReader.h"

#include "VertexJoiner.h"
#include "checks/GltfDocument.h"

#include <kel/importer/Importer.h>

#include <assimp/DefaultIOSystem.h>
#include <assimp/IOStream.hpp>
#include <assimp/IOSystem.hpp>
#include <assimp/Importer.hpp>
#include <assimp/MemoryIOWrapper.h>
#include <assimp/ProgressHandler.hpp>
#include <assimp/importerdesc.h>
#include <assimp/postprocess.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <new>
#include <set>
#include <sstream>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace kel::importer::detail {

namespace {

/// Some readers of Assimp leave memory behind, which a sanitizer would lay at the door of every program that
/// imports.
struct LeaksAreNotOurs {
#if defined(__SANITIZE_ADDRESS__)
    __lsan::ScopedDisabler scope;
#endif
    LeaksAreNotOurs() {} // not trivial, so that a variable of it counts as used
};

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

    bool Exists(const char* file) const override { return source.path == file || disk.Exists(file); }
    char getOsSeparator() const override { return disk.getOsSeparator(); }
    Assimp::IOStream* Open(const char* file, const char* mode) override {
        const bool model = source.path == file;
        Assimp::IOStream* stream = nullptr;
        if (model && !findings.front.empty()) {
            stream = new SplicedStream(source, findings);
        } else if (model && source.bytes) {
            stream =
                new Assimp::MemoryIOStream(reinterpret_cast<const std::uint8_t*>(source.bytes), source.size);
        } else if (model) {
            stream = disk.Open(source.disk.c_str(), mode);
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
            source.refuse(ImportCode::INDEX_OUT_OF_RANGE,
                          std::to_string(bad) + " primitives use vertices beyond the mesh's " +
                              std::to_string(mesh.mNumVertices),
                          "mesh " + std::to_string(m) + " \"" + mesh.mName.C_Str() + "\"",
                          "export the model again, its index list is damaged");
        }
    }
}

/// The reader of RAW files puts every group but the last out of reach. Their meshes need no transform, so the
/// root may have them.
void repairTree(aiScene& scene) {
    aiNode* root = scene.mRootNode;
    if (!root) return;
    aiNode** end = std::remove(root->mChildren, root->mChildren + root->mNumChildren, nullptr);
    const auto kept = static_cast<unsigned>(end - root->mChildren);
    if (kept == root->mNumChildren) return;
    root->mNumChildren = kept;
    std::vector<char> used(scene.mNumMeshes, 0);
    for (unsigned c = 0; c < kept; ++c) {
        const aiNode& child = *root->mChildren[c];
        for (unsigned m = 0; m < child.mNumMeshes; ++m)
            used.at(child.mMeshes[m]) = 1;
    }
    delete[] root->mMeshes;
    root->mNumMeshes = 0;
    root->mMeshes = new unsigned[scene.mNumMeshes];
    for (unsigned m = 0; m < scene.mNumMeshes; ++m) {
        if (!used[m]) root->mMeshes[root->mNumMeshes++] = m;
    }
}

std::vector<char> meshesInUse(const Source& source, const aiScene& scene) {
    std::vector<char> used(scene.mNumMeshes, 0);
    std::vector<const aiNode*> waiting;
    if (scene.mRootNode) waiting.push_back(scene.mRootNode);
    while (!waiting.empty()) {
        const aiNode* node = waiting.back();
        waiting.pop_back();
        for (unsigned m = 0; m < node->mNumMeshes; ++m) {
            if (node->mMeshes[m] >= scene.mNumMeshes) {
                source.refuse(ImportCode::INVALID_MODEL, "a node uses a mesh that does not exist",
                              std::string("node \"") + node->mName.C_Str() + "\"");
            }
            used[node->mMeshes[m]] = 1;
        }
        waiting.insert(waiting.end(), node->mChildren, node->mChildren + node->mNumChildren);
    }
    return used;
}

/// How many vertices that primitives use are not finite. Where every corner has a vertex of its own, as most
/// text formats arrive, equal ones count once.
std::size_t countNotFinite(const aiMesh& mesh) {
    const auto bad = [&](unsigned v) { return !isFinite(mesh.mVertices[v]); };
    std::vector<char> used(mesh.mNumVertices, mesh.mNumFaces == 0 ? 1 : 0);
    std::size_t corners = 0;
    for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
        const aiFace& face = mesh.mFaces[f];
        corners += face.mNumIndices;
        for (unsigned i = 0; i < face.mNumIndices; ++i)
            used[face.mIndices[i]] = 1;
    }
    VertexJoiner joiner({3});
    std::size_t count = 0;
    for (unsigned v = 0; v < mesh.mNumVertices; ++v) {
        if (!used[v] || !bad(v)) continue;
        ++count;
        joiner.add(&mesh.mVertices[v].x);
    }
    return corners == mesh.mNumVertices ? joiner.size() : count;
}

void refuseNotFinite(const Source& source, const aiScene& scene) {
    const std::vector<char> used = meshesInUse(source, scene);
    std::size_t bad = 0;
    std::size_t meshes = 0;
    std::string first;
    for (unsigned m = 0; m < scene.mNumMeshes; ++m) {
        const aiMesh& mesh = *scene.mMeshes[m];
        if (!used[m] || std::all_of(mesh.mVertices, mesh.mVertices + mesh.mNumVertices, isFinite)) continue;
        const std::size_t here = countNotFinite(mesh);
        if (here > 0 && meshes++ == 0) {
            first = "mesh " + std::to_string(m);
            if (mesh.mName.length > 0) first += std::string(" \"") + mesh.mName.C_Str() + "\"";
        }
        bad += here;
    }
    if (bad == 0) return;
    source.refuse(ImportCode::NON_FINITE_POSITIONS,
                  std::to_string(bad) + (bad == 1 ? " vertex position is" : " vertex positions are") +
                      " not finite, in " + std::to_string(meshes) + (meshes == 1 ? " mesh" : " meshes"),
                  "first in " + first);
}

/// Takes out polygons with a position that is not finite: no part of them is worth keeping, and looking for
/// ears among them leads nowhere.
std::size_t removeBrokenPolygons(aiScene& scene) {
    std::size_t removed = 0;
    for (unsigned m = 0; m < scene.mNumMeshes; ++m) {
        aiMesh& mesh = *scene.mMeshes[m];
        aiFace* end = std::remove_if(mesh.mFaces, mesh.mFaces + mesh.mNumFaces, [&](const aiFace& face) {
            return face.mNumIndices > 3 &&
                   !std::all_of(face.mIndices, face.mIndices + face.mNumIndices,
                                [&](unsigned i) { return isFinite(mesh.mVertices[i]); });
        });
        const auto kept = static_cast<unsigned>(end - mesh.mFaces);
        removed += mesh.mNumFaces - kept;
        mesh.mNumFaces = kept;
    }
    return removed;
}

/// The reader's name for people, without what every such name ends with.
std::string formatName(std::string name) {
    for (const char* end : {"\n", " Importer", " Reader", " importer"}) {
        const std::size_t length = std::strlen(end);
        if (name.size() > length && name.compare(name.size() - length, length, end) == 0) {
            name.resize(name.size() - length);
        }
    }
    return name;
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
            source.refuse(ImportCode::OUT_OF_MEMORY, "the model does not fit into memory");
        } catch (const std::exception&) {
            // Its text is the importer's error string, below.
        }
    }
    const std::string text = importer.GetErrorString();
    if (text.find("No suitable reader found") != std::string::npos) {
        source.refuse(ImportCode::UNKNOWN_FORMAT, "no reader knows this kind of file");
    }
    std::string what = text.empty() ? "the reader gave up without a reason" : "the reader gave up: " + text;
    while (!what.empty() && (what.back() == '.' || what.back() == '\n'))
        what.pop_back();
    if (!missing.empty()) {
        source.refuse(ImportCode::MISSING_FILE, what + "; not found: " + *missing.begin());
    }
    const bool range = what.find("index out of range") != std::string::npos;
    source.refuse(range ? ImportCode::INDEX_OUT_OF_RANGE : ImportCode::INVALID_MODEL, what);
}

} // namespace

bool isFinite(const aiVector3D& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

AssimpScene readWithAssimp(const Source& source, const Findings& findings, BadGeometry onBadGeometry,
                           Stages& stages) {
    std::set<std::string> missing;
    Assimp::Importer importer;
    importer.SetIOHandler(new Files(source, findings, stages, missing));
    importer.SetProgressHandler(new Handler(stages));

    stages.at(READING, 0.0);
    const aiScene* read = nullptr;
    {
        const LeaksAreNotOurs scope;
        read = importer.ReadFile(source.path, 0);
    }
    if (!read) refuseFailure(source, importer, stages, missing);
    // The scene is the importer's until it is handed over, but ours to change.
    auto& scene = const_cast<aiScene&>(*read);
    repairTree(scene);
    checkIndices(source, scene);
    AssimpScene result;
    if (onBadGeometry == BadGeometry::FAIL) {
        refuseNotFinite(source, scene);
    } else {
        result.brokenPolygons = removeBrokenPolygons(scene);
    }
    if (hasPolygons(*read) && !importer.ApplyPostProcessing(aiProcess_Triangulate)) {
        refuseFailure(source, importer, stages, missing);
    }
    if (stages.cancelled()) stages.refuseCancelled();

    if (const aiImporterDesc* info = importer.GetImporterInfo(
            static_cast<std::size_t>(std::max(0, importer.GetPropertyInteger("importerIndex", -1))))) {
        result.format = formatName(info->mName);
    }
    result.scene.reset(importer.GetOrphanedScene());
    result.missingFiles.assign(missing.begin(), missing.end());
    return result;
}

} // namespace kel::importer::detail

namespace kel::importer {

bool isModelExtension(const std::string& extension) {
    static const std::set<std::string> known = [] {
        // "*.3d;*.3ds;..."
        aiString list;
        Assimp::Importer().GetExtensionList(list);
        std::set<std::string> extensions;
        std::istringstream patterns(list.C_Str());
        for (std::string pattern; std::getline(patterns, pattern, ';');)
            extensions.insert(pattern.substr(std::min<std::size_t>(pattern.size(), 2)));
        return extensions;
    }();
    std::string name = extension.substr(!extension.empty() && extension[0] == '.');
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return !name.empty() && known.count(name) != 0;
}

} // namespace kel::importer
