#include <kel/src/SrcReader.h>

#include <kel/src/reader/FileData_p.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

namespace kel::src {

using detail::ByteInput;
using detail::Preamble;
using detail::SrcFileAccess;
using detail::SrcFileData;

namespace {

std::string describe(SrcCode code, std::uint64_t offset, const std::string& path, const std::string& detail) {
    const SrcCodeInfo& info = infoOf(code);
    std::string text;
    if (!path.empty()) text += path + ": ";
    if (path.empty() && offset != SrcError::NO_OFFSET) text += "byte " + std::to_string(offset) + ": ";
    text += info.sentence;
    if (!detail.empty()) text += " (" + detail + ")";
    return text + " " + std::string(info.remedy);
}

[[noreturn]] void refuse(SrcCode code, std::string detail) {
    throw SrcError(code, SrcError::NO_OFFSET, {}, std::move(detail));
}

SrcFile finish(std::unique_ptr<SrcFileData> file) {
    detail::ThrowingSink sink;
    detail::checkChunks(file->tables, file->dataBytes, sink);
    return SrcFileAccess::make(std::move(file));
}

/// `file` already owns what `bytes` point to, or nobody does.
SrcFile readMemory(std::unique_ptr<SrcFileData> file, ByteView bytes, const ReadLimits& limits) {
    detail::ThrowingSink sink;
    Preamble preamble;
    detail::readPreamble(bytes, limits, sink, preamble);
    const std::size_t rest = bytes.size - Preamble::BYTES;
    if (preamble.headerBytes > rest) {
        throw SrcError(SrcCode::HEADER_TRUNCATED, bytes.size, {},
                       std::to_string(preamble.headerBytes) + " bytes, " + std::to_string(rest) +
                           " are there");
    }
    const unsigned char* header = bytes.data + Preamble::BYTES;
    detail::readHeader({reinterpret_cast<const char*>(header), preamble.headerBytes}, limits, sink,
                       file->tables);
    file->data = {header + preamble.headerBytes, rest - preamble.headerBytes};
    file->dataBytes = file->data.size;
    return finish(std::move(file));
}

SrcFile readInput(ByteInput& in, const ReadLimits& limits) {
    std::unique_ptr<SrcFileData> file = detail::readStreamHeader(in, limits);
    const std::uint64_t wanted = file->tables.payloadEnd();
    if (wanted > limits.memoryBytes) {
        refuse(SrcCode::LIMIT_EXCEEDED, std::to_string(wanted) + " bytes of data; memoryBytes is " +
                                            std::to_string(limits.memoryBytes));
    }
    file->dataStore.fill(wanted,
                         [&](unsigned char* target, std::size_t size) { return in.read(target, size); });
    file->data = {file->dataStore.data(), file->dataStore.size()};
    file->dataBytes = file->data.size;
    return finish(std::move(file));
}

} // namespace

SrcError::SrcError(SrcCode code, std::uint64_t byteOffset, std::string path, std::string detail)
    : std::runtime_error(describe(code, byteOffset, path, detail)), errorCode(code), offset(byteOffset),
      jsonPath(std::move(path)), found(std::move(detail)) {}

SrcFile readSrc(ByteView bytes, const ReadLimits& limits) {
    return readMemory(std::make_unique<SrcFileData>(), bytes, limits);
}

SrcFile readSrc(std::istream& in, const ReadLimits& limits) {
    detail::StreamInput input(in);
    return readInput(input, limits);
}

SrcFile openSrc(const std::string& path, const ReadLimits& limits) {
    std::optional<SrcFile> opened;
    detail::openFile(
        path,
        [&](detail::Mapping&& mapping) {
            auto file = std::make_unique<SrcFileData>();
            const ByteView bytes = mapping.bytes();
            file->mapping = std::move(mapping);
            opened = readMemory(std::move(file), bytes, limits);
        },
        [&](ByteInput& input) { opened = readInput(input, limits); });
    return std::move(*opened);
}

SrcFile::SrcFile(std::unique_ptr<SrcFileData> data) : data(std::move(data)) {}
SrcFile::SrcFile(SrcFile&&) noexcept = default;
SrcFile& SrcFile::operator=(SrcFile&&) noexcept = default;
SrcFile::~SrcFile() = default;

namespace {
template<typename T>
SrcRange<T> rangeOf(const std::vector<T>& entries) {
    return {entries.data(), entries.size()};
}
} // namespace

std::string_view SrcFile::header() const {
    return data->tables.text;
}
std::uint64_t SrcFile::dataOffset() const {
    return Preamble::BYTES + data->tables.text.size();
}
std::uint64_t SrcFile::dataBytes() const {
    return data->dataBytes;
}
SrcRange<SrcChunk> SrcFile::chunks() const {
    return rangeOf(data->tables.chunks);
}
SrcRange<SrcBufferView> SrcFile::bufferViews() const {
    return rangeOf(data->tables.bufferViews);
}
SrcRange<std::uint32_t> SrcFile::viewChunks() const {
    return rangeOf(data->tables.viewChunks);
}
SrcRange<SrcIndexView> SrcFile::indexViews() const {
    return rangeOf(data->tables.indexViews);
}
SrcRange<SrcAttributeView> SrcFile::attributeViews() const {
    return rangeOf(data->tables.attributeViews);
}
SrcRange<SrcMesh> SrcFile::meshes() const {
    return rangeOf(data->tables.meshes);
}
SrcRange<SrcAttribute> SrcFile::attributes(const SrcMesh& mesh) const {
    return {data->tables.attributes.data() + mesh.firstAttribute, mesh.attributeCount};
}
SrcRange<SrcMaterial> SrcFile::materials() const {
    return rangeOf(data->tables.materials);
}
SrcRange<SrcTechnique> SrcFile::techniques() const {
    return rangeOf(data->tables.techniques);
}
std::string_view SrcFile::metadata() const {
    return data->tables.metadata;
}

const SrcMesh* SrcFile::findMesh(std::string_view id) const {
    const std::uint32_t found = data->tables.meshIds.find(id);
    return found == SRC_NONE ? nullptr : &data->tables.meshes[found];
}

const SrcMaterial* SrcFile::findMaterial(std::string_view id) const {
    const std::uint32_t found = data->tables.materialIds.find(id);
    return found == SRC_NONE ? nullptr : &data->tables.materials[found];
}

const SrcAttributeView* SrcFile::findAttribute(const SrcMesh& mesh, std::string_view name) const {
    for (const SrcAttribute& attribute : attributes(mesh))
        if (attribute.name == name) return &data->tables.attributeViews[attribute.view];
    return nullptr;
}

std::vector<double> SrcFile::materialParameter(const SrcMaterial& material, std::string_view name) const {
    std::vector<double> numbers;
    for (const SrcMember& member : jsonMembers(material.values))
        if (member.key == name && jsonNumbers(member.json, numbers)) return numbers;
    if (material.technique == SRC_NONE) return {};
    for (const SrcMember& parameter : jsonMembers(data->tables.techniques[material.technique].parameters)) {
        if (parameter.key != name) continue;
        for (const SrcMember& member : jsonMembers(parameter.json))
            if (member.key == "value" && jsonNumbers(member.json, numbers)) return numbers;
    }
    return {};
}

ByteView SrcFile::bytes(const SrcBufferView& view) const {
    const std::uint32_t* chunks = data->tables.viewChunks.data() + view.firstChunk;
    const unsigned char* first = nullptr;
    const unsigned char* expected = nullptr;
    std::uint64_t covered = 0;
    for (std::uint32_t c = 0; c < view.chunkCount && covered < view.storedBytes; ++c) {
        const std::uint64_t length = data->tables.chunks[chunks[c]].byteLength;
        if (length == 0) continue;
        const unsigned char* begin = data->chunkBytes(chunks[c]);
        if (!begin || (first && (!data->arrived.empty() || begin != expected))) return {};
        if (!first) first = begin;
        expected = begin + length;
        covered += length;
    }
    return {first, static_cast<std::size_t>(view.storedBytes)};
}

bool SrcFile::copyBytes(const SrcBufferView& view, std::uint64_t offset, std::size_t size,
                        void* target) const {
    return detail::ForwardCopy(*data, view).copy(offset, size, static_cast<unsigned char*>(target));
}

} // namespace kel::src
