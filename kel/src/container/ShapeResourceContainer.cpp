#include <kel/src/container/ShapeResourceContainer.h>

#include <kel/src/json/JsonText.h>
#include <kel/src/json/StreamSink.h>
#include <kel/src/json/TextOrder.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <ostream>
#include <utility>

namespace kel::src::detail {

namespace {

constexpr std::size_t STORE_BLOCK_BYTES = 256 * 1024;

std::string numberedId(const char* prefix, std::uint32_t number) {
    return prefix + std::to_string(number);
}

struct CountingSink {
    std::uint64_t bytes = 0;
    void append(std::string_view text) { bytes += text.size(); }
    void append(char) { ++bytes; }
};

template<typename Sink>
void emitKey(Sink& sink, bool& first, std::string& scratch, std::string_view id) {
    if (!first) sink.append(',');
    first = false;
    scratch.clear();
    appendJsonString(scratch, id);
    scratch += ':';
    sink.append(std::string_view(scratch));
}

} // namespace

std::string_view ShapeResourceContainer::TextStore::keep(std::string_view text) {
    if (text.size() > freeBytes) {
        const std::size_t size = std::max(STORE_BLOCK_BYTES, text.size());
        blocks.emplace_back(new char[size]);
        free = blocks.back().get();
        freeBytes = size;
    }
    std::memcpy(free, text.data(), text.size());
    const std::string_view kept(free, text.size());
    free += text.size();
    freeBytes -= text.size();
    return kept;
}

void ShapeResourceContainer::NumberedSection::put(std::uint32_t number, std::string_view text) {
    if (number >= texts.size()) texts.resize(std::size_t(number) + 1);
    texts[number] = text;
}

template<typename Entry>
Entry& ShapeResourceContainer::KeyedSection<Entry>::put(const std::string& id, Entry entry) {
    // IDs mostly come in counting order, so the place is most often right behind the last one.
    const auto hint = last == entries.end() ? last : std::next(last);
    last = entries.insert_or_assign(hint, id, std::move(entry));
    return last->second;
}

template<typename Entry>
Entry* ShapeResourceContainer::KeyedSection<Entry>::find(const std::string& id) {
    if (last == entries.end() || last->first != id) {
        const auto found = entries.find(id);
        if (found == entries.end()) return nullptr;
        last = found;
    }
    return &last->second;
}

ShapeResourceContainer::ShapeResourceContainer() : header(picojson::object()) {
    auto& root = header.get<picojson::object>();
    for (const char* section : {"meta", "bufferChunks", "bufferViews", "textureViews", "accessors"}) {
        root[section] = picojson::value(picojson::object());
    }
    auto& accessors = root["accessors"].get<picojson::object>();
    accessors["indexViews"] = picojson::value(picojson::object());
    accessors["attributeViews"] = picojson::value(picojson::object());
    for (const char* section : {"techniques", "materials", "textures", "meshes"}) {
        root[section] = picojson::value(picojson::object());
    }
}

ShapeResourceContainer::~ShapeResourceContainer() = default;

std::string ShapeResourceContainer::createIndexViewID() {
    return numberedId(indexViews.prefix, indexViewCounter++);
}
std::string ShapeResourceContainer::createAttributeViewID() {
    return numberedId(attributeViews.prefix, attributeViewCounter++);
}
std::string ShapeResourceContainer::createBufferViewID() {
    return numberedId(bufferViews.prefix, bufferViewCounter++);
}
std::string ShapeResourceContainer::createBufferChunkID() {
    return numberedId(bufferChunks.prefix, bufferChunkCounter++);
}

std::uint32_t ShapeResourceContainer::storeChunk(const std::string& bufferViewId,
                                                 std::vector<unsigned char>&& bytes) {
    const std::uint32_t number = bufferChunkCounter++;
    const std::uint64_t size = bytes.size();
    const auto position = static_cast<unsigned int>(chunks.size());
    chunks.push_back(std::move(bytes));
    // View IDs count upwards, so a new one mostly belongs right behind the last.
    const auto hint =
        lastViewIndices == bufferViewChunkIndices.end() ? lastViewIndices : std::next(lastViewIndices);
    lastViewIndices = bufferViewChunkIndices.try_emplace(hint, bufferViewId);
    lastViewIndices->second.push_back(position);
    scratch = "{";
    appendMember(scratch, "\"byteLength\":", static_cast<double>(size));
    appendMember(scratch, ",\"byteOffset\":", static_cast<double>(chunkBytes));
    scratch += '}';
    bufferChunks.put(number, store.keep(scratch));
    chunkBytes += size;
    return number;
}

void ShapeResourceContainer::appendChunk(const std::string& bufferViewId, picojson::object& bufferViewObject,
                                         const std::vector<unsigned char>& bytes) {
    const std::uint32_t number = storeChunk(bufferViewId, std::vector<unsigned char>(bytes));
    bufferViewObject["chunks"].get<picojson::array>().emplace_back(numberedId(bufferChunks.prefix, number));
}

void ShapeResourceContainer::storeBufferView(std::uint32_t number, unsigned long size,
                                             std::uint32_t firstChunk, std::size_t chunkCount) {
    scratch = "{";
    appendMember(scratch, "\"byteLength\":", static_cast<double>(size));
    scratch += ",\"chunks\":[";
    for (std::size_t i = 0; i < chunkCount; ++i) {
        if (i != 0) scratch += ',';
        scratch += '"';
        scratch += numberedId(bufferChunks.prefix, firstChunk + static_cast<std::uint32_t>(i));
        scratch += '"';
    }
    scratch += "]}";
    bufferViews.put(number, store.keep(scratch));
}

std::string ShapeResourceContainer::addBufferView(std::vector<unsigned char>&& bytes) {
    const std::uint32_t number = bufferViewCounter;
    std::string id = createBufferViewID();
    const unsigned long size = bytes.size();
    const std::uint32_t firstChunk = storeChunk(id, std::move(bytes));
    storeBufferView(number, size, firstChunk, 1);
    return id;
}

std::string ShapeResourceContainer::addBufferView(const unsigned char* data, unsigned long size,
                                                  const std::vector<unsigned int>* chunkBorders) {
    if (!chunkBorders) return addBufferView(std::vector<unsigned char>(data, data + size));

    const std::uint32_t number = bufferViewCounter;
    std::string id = createBufferViewID();
    const std::uint32_t firstChunk = bufferChunkCounter;
    std::size_t chunkCount = 0;
    unsigned long start = 0;
    for (const unsigned int border : *chunkBorders) {
        if (border >= size || border < start) {
            std::cerr << "ERROR: Invalid buffer chunk border specified for SRC export. Finishing buffer "
                         "export before "
                         "parsing all chunk borders.\n";
            break;
        }
        storeChunk(id, std::vector<unsigned char>(data + start, data + border));
        ++chunkCount;
        start = border;
    }
    storeBufferView(number, size, firstChunk, chunkCount);
    return id;
}

std::string ShapeResourceContainer::addIndexView(const std::string& bufferViewId, unsigned long byteOffset,
                                                 unsigned long count, SRCDataType dataType) {
    const std::uint32_t number = indexViewCounter;
    std::string id = createIndexViewID();
    scratch = "{";
    appendMember(scratch, "\"bufferView\":", bufferViewId);
    appendMember(scratch, ",\"byteOffset\":", static_cast<double>(byteOffset));
    appendMember(scratch, ",\"componentType\":", getWebGLTypeIdentifier(dataType));
    appendMember(scratch, ",\"count\":", static_cast<double>(count));
    scratch += '}';
    indexViews.put(number, store.keep(scratch));
    return id;
}

std::string ShapeResourceContainer::addAttributeView(unsigned int components, const std::string& bufferViewId,
                                                     unsigned long byteOffset, unsigned long byteStride,
                                                     unsigned long count, SRCDataType dataType,
                                                     const double* decodeOffset, const double* decodeScale) {
    const std::uint32_t number = attributeViewCounter;
    std::string id = createAttributeViewID();
    scratch = "{";
    appendMember(scratch, "\"bufferView\":", bufferViewId);
    appendMember(scratch, ",\"byteOffset\":", static_cast<double>(byteOffset));
    appendMember(scratch, ",\"byteStride\":", static_cast<double>(byteStride));
    appendMember(scratch, ",\"componentType\":", getWebGLTypeIdentifier(dataType));
    appendMember(scratch, ",\"count\":", static_cast<double>(count));
    appendArrayMember(scratch, ",\"decodeOffset\":", decodeOffset, components);
    appendArrayMember(scratch, ",\"decodeScale\":", decodeScale, components);
    appendMember(scratch, ",\"type\":", getComponentTypeString(components));
    scratch += '}';
    attributeViews.put(number, store.keep(scratch));
    return id;
}

template<unsigned int N>
std::string ShapeResourceContainer::addAttributeView(const std::string& bufferViewId,
                                                     unsigned long byteOffset, unsigned long byteStride,
                                                     unsigned long count, SRCDataType dataType,
                                                     const double* decodeOffset, const double* decodeScale) {
    static_assert(N >= 1 && N <= 3, "an element has 1, 2 or 3 components");
    return addAttributeView(N, bufferViewId, byteOffset, byteStride, count, dataType, decodeOffset,
                            decodeScale);
}

template std::string ShapeResourceContainer::addAttributeView<1>(const std::string&, unsigned long,
                                                                 unsigned long, unsigned long, SRCDataType,
                                                                 const double*, const double*);
template std::string ShapeResourceContainer::addAttributeView<2>(const std::string&, unsigned long,
                                                                 unsigned long, unsigned long, SRCDataType,
                                                                 const double*, const double*);
template std::string ShapeResourceContainer::addAttributeView<3>(const std::string&, unsigned long,
                                                                 unsigned long, unsigned long, SRCDataType,
                                                                 const double*, const double*);

void ShapeResourceContainer::addMesh(const std::string& id,
                                     const std::map<std::string, std::string>& attributes,
                                     const std::string& indexViewId, const std::string& materialId,
                                     SRCPrimitiveType primitiveType, const float* bboxCenter,
                                     const float* bboxSize, picojson::value meta) {
    scratch = "{\"attributes\":{";
    bool first = true;
    for (const auto& [name, viewId] : attributes) {
        if (!first) scratch += ',';
        first = false;
        appendJsonString(scratch, name);
        appendMember(scratch, ":", viewId);
    }
    scratch += '}';
    if (bboxCenter) appendArrayMember(scratch, ",\"bboxCenter\":", bboxCenter, 3);
    if (bboxSize) appendArrayMember(scratch, ",\"bboxSize\":", bboxSize, 3);
    appendMember(scratch, ",\"indices\":", indexViewId);
    scratch += ",\"material\":";

    MeshEntry entry;
    entry.head = store.keep(scratch);
    entry.material = materialId;
    entry.primitive = getWebGLPrimitiveTypeIdentifier(primitiveType);
    entry.hasMeta = meta.is<picojson::object>();
    meshes.put(id, std::move(entry));
    if (meta.is<picojson::object>()) {
        for (const auto& [key, value] : meta.get<picojson::object>())
            addMetaDataToMesh(key, value, id);
    }
}

void ShapeResourceContainer::addMetaData(const std::string& key, const picojson::value& value) {
    getMetaData()[key] = value;
}

void ShapeResourceContainer::addTechnique(const std::string& id, const picojson::value& parameters) {
    scratch = "{\"parameters\":";
    appendJson(scratch, parameters);
    scratch += '}';
    techniques.put(id, store.keep(scratch));
}

void ShapeResourceContainer::addMetaDataToMesh(const std::string& key, const picojson::value& value,
                                               const std::string& meshId) {
    MeshEntry* mesh = meshes.find(meshId);
    if (!mesh) {
        std::cerr << "ERROR: Cannot add meta data to mesh with ID \"" << meshId
                  << "\", no such mesh found.\n";
        return;
    }
    mesh->hasMeta = true;
    scratch.clear();
    appendJson(scratch, value);
    mesh->meta.insert_or_assign(mesh->meta.end(), key, store.keep(scratch));
}

void ShapeResourceContainer::addMaterial(const std::string& id, const std::string& techniqueId,
                                         const picojson::value& values) {
    scratch = "{\"instanceTechnique\":{";
    appendMember(scratch, "\"technique\":", techniqueId);
    scratch += ",\"values\":";
    appendJson(scratch, values);
    scratch += "}}";
    materials.put(id, store.keep(scratch));
}

void ShapeResourceContainer::assignMaterialToMesh(const std::string& materialId, const std::string& meshId) {
    MeshEntry* mesh = meshes.find(meshId);
    if (!mesh) {
        std::cerr << "ERROR: Cannot assign material to mesh with ID \"" << meshId
                  << "\", no such mesh found.\n";
        return;
    }
    mesh->material = materialId;
    if (!materials.find(materialId)) {
        std::cout << "WARNING: Assigning material with ID \"" << materialId
                  << "\", to mesh, but such a material doesn't exist yet.\n";
    }
}

picojson::object& ShapeResourceContainer::getMetaData() {
    picojson::value& meta = header.get<picojson::object>()["meta"];
    return meta.get<picojson::object>();
}

template<typename Sink>
void ShapeResourceContainer::emitHeader(Sink& sink, std::string_view metaText) const {
    std::string text;
    const auto numbered = [&](std::string_view opening, const NumberedSection& section) {
        sink.append(opening);
        bool first = true;
        inTextOrder(section.texts.size(), [&](std::size_t i) {
            if (section.texts[i].empty()) return;
            text = first ? "\"" : ",\"";
            first = false;
            text += section.prefix;
            text += std::to_string(i);
            text += "\":";
            sink.append(std::string_view(text));
            sink.append(section.texts[i]);
        });
        sink.append('}');
    };
    const auto keyed = [&](std::string_view opening, const KeyedSection<std::string_view>& section) {
        sink.append(opening);
        bool first = true;
        for (const auto& [id, entry] : section.all()) {
            emitKey(sink, first, text, id);
            sink.append(entry);
        }
        sink.append('}');
    };

    // Keys in ascending byte order, on every level.
    numbered("{\"accessors\":{\"attributeViews\":{", attributeViews);
    numbered(",\"indexViews\":{", indexViews);
    numbered("},\"bufferChunks\":{", bufferChunks);
    numbered(",\"bufferViews\":{", bufferViews);
    keyed(",\"materials\":{", materials);
    sink.append(std::string_view(",\"meshes\":{"));
    bool firstMesh = true;
    for (const auto& [id, mesh] : meshes.all()) {
        emitKey(sink, firstMesh, text, id);
        sink.append(mesh.head);
        text.clear();
        appendJsonString(text, mesh.material);
        sink.append(std::string_view(text));
        if (mesh.hasMeta) {
            sink.append(std::string_view(",\"meta\":{"));
            bool firstKey = true;
            for (const auto& [key, value] : mesh.meta) {
                emitKey(sink, firstKey, text, key);
                sink.append(value);
            }
            sink.append('}');
        }
        text.clear();
        appendMember(text, ",\"primitive\":", mesh.primitive);
        text += '}';
        sink.append(std::string_view(text));
    }
    sink.append(std::string_view("},\"meta\":"));
    sink.append(metaText);
    keyed(",\"techniques\":{", techniques);
    sink.append(std::string_view(",\"textureViews\":{},\"textures\":{}}"));
}

std::string ShapeResourceContainer::serializeMetaData() {
    std::string text;
    appendJson(text, picojson::value(getMetaData()));
    return text;
}

void ShapeResourceContainer::writeDocument(std::ostream& out, const std::string& metaText) const {
    CountingSink length;
    emitHeader(length, metaText);

    StreamSink sink(out);
    sink.appendUint32(23);
    sink.appendUint32(42);
    sink.appendUint32(length.bytes);
    emitHeader(sink, metaText);
    for (const auto& chunk : chunks) {
        sink.append(std::string_view(reinterpret_cast<const char*>(chunk.data()), chunk.size()));
    }
    sink.flush();
}

void ShapeResourceContainer::writeToStream(std::ostream& out) {
    writeDocument(out, serializeMetaData());
}

void ShapeResourceContainer::writeToFile(const char* path) {
    // What can fail in the header fails before the file is touched.
    const std::string metaText = serializeMetaData();
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file) {
        std::cerr << "Unable to open file \"" << path << "\" for writing SRC data." << std::endl;
        return;
    }
    std::cout << "Writing SRC data to \"" << path << "\"." << std::endl;
    writeDocument(file, metaText);
}

} // namespace kel::src::detail
