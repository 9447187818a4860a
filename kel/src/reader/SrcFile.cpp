#include <kel/src/SrcFile.h>

#include <kel/src/SrcJson.h>
#include <kel/src/format/FileLayout.h>
#include <kel/src/reader/FileData_p.h>

#include <utility>

namespace kel::src {

namespace {

std::string messageOf(SrcCode code, std::uint64_t offset, const std::string& path,
                      const std::string& detail) {
    const SrcCodeInfo& info = infoOf(code);
    std::string text;
    if (!path.empty()) text += path + ": ";
    if (path.empty() && offset != SrcError::NO_OFFSET) text += "byte " + std::to_string(offset) + ": ";
    text += info.sentence;
    if (!detail.empty()) text += " (" + detail + ")";
    return text + " " + std::string(info.remedy);
}

} // namespace

SrcError::SrcError(SrcCode code, std::uint64_t byteOffset, std::string path, std::string detail)
    : std::runtime_error(messageOf(code, byteOffset, path, detail)), errorCode(code), offset(byteOffset),
      jsonPath(std::move(path)), found(std::move(detail)) {}

SrcFile::SrcFile(std::unique_ptr<detail::SrcFileData> data) : data(std::move(data)) {}
SrcFile::SrcFile(SrcFile&&) noexcept = default;
SrcFile& SrcFile::operator=(SrcFile&&) noexcept = default;
SrcFile::~SrcFile() = default;

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
    return SrcRange(data->tables.chunks);
}
SrcRange<SrcBufferView> SrcFile::bufferViews() const {
    return SrcRange(data->tables.bufferViews);
}
SrcRange<std::uint32_t> SrcFile::viewChunks() const {
    return SrcRange(data->tables.viewChunks);
}
SrcRange<SrcIndexView> SrcFile::indexViews() const {
    return SrcRange(data->tables.indexViews);
}
SrcRange<SrcAttributeView> SrcFile::attributeViews() const {
    return SrcRange(data->tables.attributeViews);
}
SrcRange<SrcMesh> SrcFile::meshes() const {
    return SrcRange(data->tables.meshes);
}
SrcRange<SrcAttribute> SrcFile::attributes(const SrcMesh& mesh) const {
    return {data->tables.attributes.data() + mesh.firstAttribute, mesh.attributeCount};
}
SrcRange<SrcMaterial> SrcFile::materials() const {
    return SrcRange(data->tables.materials);
}
SrcRange<SrcTechnique> SrcFile::techniques() const {
    return SrcRange(data->tables.techniques);
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

} // namespace kel::src
