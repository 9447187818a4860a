#include <kel/src/reader/LoadFile_p.h>

#include <kel/src/format/FileLayout.h>
#include <kel/src/reader/Preamble_p.h>
#include <kel/src/reader/ReadHeader_p.h>
#include <kel/src/reader/References_p.h>

#include <string_view>
#include <utility>

namespace kel::src {

namespace detail {

namespace {

std::string_view textOf(const unsigned char* bytes, std::size_t size) {
    return {reinterpret_cast<const char*>(bytes), size};
}

void reportCutHeader(FindingSink& sink, std::uint64_t wanted, std::uint64_t there) {
    sink.report(SrcCode::HEADER_TRUNCATED, format::PREAMBLE_BYTES + there, {},
                std::to_string(wanted) + " bytes, " + std::to_string(there) + " are there");
}

void setData(SrcFileData& file, ByteView data, FindingSink& sink) {
    file.data = data;
    file.dataBytes = data.size;
    checkChunks(file.tables, file.dataBytes, sink);
}

} // namespace

std::unique_ptr<SrcFileData> loadBytes(ByteView bytes, const ReadLimits& limits, FindingSink& sink,
                                       Mapping mapping) {
    auto file = std::make_unique<SrcFileData>();
    file->mapping = std::move(mapping);
    Preamble preamble;
    if (!readPreamble(bytes, limits, sink, preamble)) return nullptr;
    const std::size_t rest = bytes.size - format::PREAMBLE_BYTES;
    if (preamble.headerBytes > rest) {
        reportCutHeader(sink, preamble.headerBytes, rest);
        return nullptr;
    }
    const unsigned char* header = bytes.data + format::PREAMBLE_BYTES;
    if (!readHeader(textOf(header, preamble.headerBytes), limits, sink, file->tables)) return nullptr;
    setData(*file, {header + preamble.headerBytes, rest - preamble.headerBytes}, sink);
    return file;
}

std::unique_ptr<SrcFileData> loadStreamHeader(ByteInput& in, const ReadLimits& limits, FindingSink& sink) {
    const auto read = [&](unsigned char* target, std::size_t size) { return in.read(target, size); };
    GrowingBytes front;
    front.fill(format::PREAMBLE_BYTES, read);
    Preamble preamble;
    if (!readPreamble({front.data(), front.size()}, limits, sink, preamble)) return nullptr;

    auto file = std::make_unique<SrcFileData>();
    GrowingBytes& header = file->headerStore;
    header.fill(preamble.headerBytes, read);
    if (header.size() < preamble.headerBytes) {
        reportCutHeader(sink, preamble.headerBytes, header.size());
        return nullptr;
    }
    // Unlike a caller's block, the header takes memory here, which its tables no longer have.
    ReadLimits rest = limits;
    if (preamble.headerBytes > limits.memoryBytes) {
        sink.report(SrcCode::LIMIT_EXCEEDED, Preamble::HEADER_BYTES_AT, {},
                    "memoryBytes is " + std::to_string(limits.memoryBytes));
        return nullptr;
    }
    rest.memoryBytes -= preamble.headerBytes;
    if (!readHeader(textOf(header.data(), header.size()), rest, sink, file->tables)) return nullptr;
    return file;
}

std::unique_ptr<SrcFileData> loadStream(ByteInput& in, const ReadLimits& limits, FindingSink& sink) {
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
    data.fill(wanted + (sink.wantsAll() ? 1 : 0),
              [&](unsigned char* target, std::size_t size) { return in.read(target, size); });
    setData(*file, {data.data(), data.size()}, sink);
    return file;
}

std::unique_ptr<SrcFileData> loadPath(const std::string& path, const ReadLimits& limits, FindingSink& sink) {
    std::unique_ptr<SrcFileData> file;
    openFile(
        path,
        [&](Mapping&& mapping) {
            const ByteView bytes = mapping.bytes();
            file = loadBytes(bytes, limits, sink, std::move(mapping));
        },
        [&](ByteInput& input) { file = loadStream(input, limits, sink); });
    return file;
}

} // namespace detail

SrcFile readSrc(ByteView bytes, const ReadLimits& limits) {
    detail::ThrowingSink sink;
    return detail::SrcFileAccess::make(detail::loadBytes(bytes, limits, sink));
}

SrcFile readSrc(std::istream& in, const ReadLimits& limits) {
    detail::ThrowingSink sink;
    detail::StreamInput input(in);
    return detail::SrcFileAccess::make(detail::loadStream(input, limits, sink));
}

SrcFile openSrc(const std::string& path, const ReadLimits& limits) {
    detail::ThrowingSink sink;
    return detail::SrcFileAccess::make(detail::loadPath(path, limits, sink));
}

} // namespace kel::src
