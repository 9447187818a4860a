#include "AssimpReader.h"

#include "../gltf/GltfDocument.h"

#include <assimp/DefaultIOSystem.h>
#include <assimp/MemoryIOWrapper.h>

#include <algorithm>
#include <cstring>

namespace kel::importer::detail {

namespace {

/// Passes reads on and reports them. Readers of most formats tell no progress of their own.
class WatchedStream final : public Assimp::IOStream {
public:
    WatchedStream(Assimp::IOStream* stream, ProgressReporter& progress)
        : stream(stream), progress(progress) {}

    std::size_t Read(void* buffer, std::size_t size, std::size_t count) override {
        const std::size_t read = stream->Read(buffer, size, count);
        const std::size_t all = stream->FileSize();
        // Parsing follows: a file that has been read is not half done.
        if (all > 0)
            progress.report(READING, 0.4 * static_cast<double>(stream->Tell()) / static_cast<double>(all));
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
    ProgressReporter& progress;
};

/// A text of ours with a range of the model behind it.
class SplicedStream final : public Assimp::IOStream {
public:
    SplicedStream(const ModelSource& source, const Findings& findings)
        : findings(findings), content(source) {}

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

class AssimpFiles final : public Assimp::IOSystem {
public:
    AssimpFiles(const ModelSource& source, const Findings& findings, ProgressReporter& progress,
                std::set<std::string>& missing)
        : source(source), findings(findings), progress(progress), missing(missing) {}

    bool Exists(const char* file) const override { return source.path == file || disk.Exists(file); }
    char getOsSeparator() const override { return disk.getOsSeparator(); }
    void Close(Assimp::IOStream* stream) override { delete stream; }
    bool ComparePaths(const char* one, const char* second) const override {
        return disk.ComparePaths(one, second);
    }
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
        return model ? new WatchedStream(stream, progress) : stream;
    }

private:
    const ModelSource& source;
    const Findings& findings;
    ProgressReporter& progress;
    std::set<std::string>& missing;
    Assimp::DefaultIOSystem disk;
};

} // namespace

Assimp::IOSystem* newAssimpFiles(const ModelSource& source, const Findings& findings,
                                 ProgressReporter& progress, std::set<std::string>& missing) {
    return new AssimpFiles(source, findings, progress, missing);
}

} // namespace kel::importer::detail
