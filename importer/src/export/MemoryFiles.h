#pragma once

#include <kel/importer/Exporter.h>

#include <assimp/IOStream.hpp>
#include <assimp/IOSystem.hpp>

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace kel::importer::detail {

/// A file that an exporter writes, in a string.
class MemoryStream final : public Assimp::IOStream {
public:
    explicit MemoryStream(std::string& bytes) : bytes(bytes) {}

    std::size_t Read(void*, std::size_t, std::size_t) override { return 0; }
    std::size_t Write(const void* buffer, std::size_t size, std::size_t count) override {
        const std::size_t length = size * count;
        if (bytes.size() < position + length) bytes.resize(position + length);
        if (length != 0) std::memcpy(bytes.data() + position, buffer, length);
        position += length;
        return count;
    }
    aiReturn Seek(std::size_t offset, aiOrigin origin) override {
        position = offset + (origin == aiOrigin_SET ? 0 : origin == aiOrigin_CUR ? position : bytes.size());
        return aiReturn_SUCCESS;
    }
    std::size_t Tell() const override { return position; }
    std::size_t FileSize() const override { return bytes.size(); }
    void Flush() override {}

private:
    std::string& bytes;
    std::size_t position = 0;
};

/// Keeps what an exporter writes, by name.
class MemoryFiles final : public Assimp::IOSystem {
public:
    explicit MemoryFiles(std::vector<std::unique_ptr<ExportedFile>>& files) : files(files) {}

    bool Exists(const char*) const override { return false; }
    char getOsSeparator() const override { return '/'; }
    Assimp::IOStream* Open(const char* name, const char*) override {
        files.push_back(std::make_unique<ExportedFile>());
        files.back()->name = name;
        return new MemoryStream(files.back()->bytes);
    }
    void Close(Assimp::IOStream* stream) override { delete stream; }

private:
    std::vector<std::unique_ptr<ExportedFile>>& files;
};

} // namespace kel::importer::detail
