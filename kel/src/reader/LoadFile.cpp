#include <kel/src/reader/FileData_p.h>

#include <kel/src/format/FileLayout.h>

#include <utility>

namespace kel::src {

namespace detail {

namespace {

/// Reads a header of which `there` bytes are there. `memoryTaken` bytes no longer belong to its tables.
bool loadHeader(SrcFileData& file, const unsigned char* header, std::uint64_t wanted, std::uint64_t there,
                ReadLimits limits, std::uint64_t memoryTaken, FindingSink& sink) {
    if (wanted > there) {
        sink.report(SrcCode::HEADER_TRUNCATED, format::PREAMBLE_BYTES + there, {},
                    std::to_string(wanted) + " bytes, " + std::to_string(there) + " are there");
        return false;
    }
    if (memoryTaken > limits.memoryBytes) {
        sink.report(SrcCode::LIMIT_EXCEEDED, HEADER_BYTES_AT, {},
                    "memoryBytes is " + std::to_string(limits.memoryBytes));
        return false;
    }
    limits.memoryBytes -= memoryTaken;
    return readHeader({reinterpret_cast<const char*>(header), static_cast<std::size_t>(wanted)}, limits, sink,
                      file.tables);
}

void setData(SrcFileData& file, ByteView data, FindingSink& sink) {
    file.data = data;
    file.dataBytes = data.size;
    checkChunks(file.tables, file.dataBytes, sink);
}

} // namespace

std::unique_ptr<SrcFileData> loadBytes(ByteView bytes, const ReadLimits& limits, FindingSink& sink,
                                       std::shared_ptr<const void> mapping) {
    const std::uint32_t headerBytes = readPreamble(bytes, limits, sink);
    if (headerBytes == 0) return nullptr;
    auto file = std::make_unique<SrcFileData>();
    file->mapping = std::move(mapping);
    const unsigned char* header = bytes.data + format::PREAMBLE_BYTES;
    const std::size_t rest = bytes.size - format::PREAMBLE_BYTES;
    if (!loadHeader(*file, header, headerBytes, rest, limits, 0, sink)) return nullptr;
    setData(*file, {header + headerBytes, rest - headerBytes}, sink);
    return file;
}

std::unique_ptr<SrcFileData> loadStreamHeader(const ByteInput& in, const ReadLimits& limits,
                                              FindingSink& sink) {
    GrowingBytes front;
    front.fill(format::PREAMBLE_BYTES, in);
    const std::uint32_t headerBytes = readPreamble({front.data(), front.size()}, limits, sink);
    if (headerBytes == 0) return nullptr;
    auto file = std::make_unique<SrcFileData>();
    GrowingBytes& header = file->headerStore;
    header.fill(headerBytes, in);
    // Unlike a caller's block, the header takes memory here, which its tables no longer have.
    if (!loadHeader(*file, header.data(), headerBytes, header.size(), limits, headerBytes, sink))
        return nullptr;
    return file;
}

std::unique_ptr<SrcFileData> loadStream(const ByteInput& in, const ReadLimits& limits, FindingSink& sink) {
    std::unique_ptr<SrcFileData> file = loadStreamHeader(in, limits, sink);
    if (!file) return nullptr;
    const std::uint64_t wanted = file->tables.payloadEnd();
    if (wanted > limits.memoryBytes) {
        sink.report(SrcCode::LIMIT_EXCEEDED, SrcError::NO_OFFSET, {},
                    std::to_string(wanted) + " bytes of data; memoryBytes is " +
                        std::to_string(limits.memoryBytes));
        return nullptr;
    }
    GrowingBytes& data = file->dataStore;
    data.fill(wanted + (sink.wantsAll() ? 1 : 0), in);
    setData(*file, {data.data(), data.size()}, sink);
    return file;
}

std::unique_ptr<SrcFileData> loadPath(const std::string& path, const ReadLimits& limits, FindingSink& sink) {
    OpenedFile opened = openFile(path);
    if (!opened.mapping) return loadStream(opened.input, limits, sink);
    return loadBytes(opened.bytes, limits, sink, std::move(opened.mapping));
}

} // namespace detail

SrcFile readSrc(ByteView bytes, const ReadLimits& limits) {
    detail::ThrowingSink sink;
    return detail::SrcFileAccess::make(detail::loadBytes(bytes, limits, sink));
}

SrcFile readSrc(std::istream& in, const ReadLimits& limits) {
    detail::ThrowingSink sink;
    return detail::SrcFileAccess::make(detail::loadStream(detail::inputFrom(in), limits, sink));
}

SrcFile openSrc(const std::string& path, const ReadLimits& limits) {
    detail::ThrowingSink sink;
    return detail::SrcFileAccess::make(detail::loadPath(path, limits, sink));
}

} // namespace kel::src
