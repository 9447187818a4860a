#include "AssimpReader.h"

#include <assimp/DefaultIOSystem.h>
#include <assimp/MemoryIOWrapper.h>

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

class AssimpFiles final : public Assimp::IOSystem {
public:
    AssimpFiles(const ModelSource& source, ProgressReporter& progress, std::set<std::string>& missing)
        : source(source), progress(progress), missing(missing) {}

    bool Exists(const char* file) const override { return source.path == file || disk.Exists(file); }
    char getOsSeparator() const override { return disk.getOsSeparator(); }
    void Close(Assimp::IOStream* stream) override { delete stream; }
    bool ComparePaths(const char* one, const char* second) const override {
        return disk.ComparePaths(one, second);
    }
    Assimp::IOStream* Open(const char* file, const char* mode) override {
        const bool model = source.path == file;
        Assimp::IOStream* stream = nullptr;
        if (model && source.bytes) {
            stream =
                new Assimp::MemoryIOStream(reinterpret_cast<const std::uint8_t*>(source.bytes), source.size);
        } else if (model) {
            stream = disk.Open(source.disk.c_str(), mode);
        } else {
            stream = disk.Open(file, mode);
        }
        if (!stream) {
            missing.insert(file);
            return nullptr;
        }
        return model ? new WatchedStream(stream, progress) : stream;
    }

private:
    const ModelSource& source;
    ProgressReporter& progress;
    std::set<std::string>& missing;
    Assimp::DefaultIOSystem disk;
};

} // namespace

Assimp::IOSystem* newAssimpFiles(const ModelSource& source, ProgressReporter& progress,
                                 std::set<std::string>& missing) {
    return new AssimpFiles(source, progress, missing);
}

} // namespace kel::importer::detail
