#include <kel/src/SrcFile.h>

#include <kel/src/SrcJson.h>
#include <kel/src/format/FileLayout.h>
#include <kel/src/reader/FileData_p.h>

#include <utility>

namespace kel::src {

SrcFile::SrcFile(std::unique_ptr<detail::SrcFileData> data) : data(std::move(data)) {}
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
    return format::PREAMBLE_BYTES + data->tables.text.size();
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
            if (member.key == format::key::VALUE && jsonNumbers(member.json, numbers)) return numbers;
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
