#include <kel/src/container/ShapeResourceContainer.h>

#include <kel/mesh/PrimitiveType.h>
#include <kel/src/format/ElementTypes.h>
#include <kel/src/text/JsonWriter.h>
#include <kel/src/text/StreamSink.h>
#include <kel/src/text/TextOrder.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <ostream>
#include <utility>

namespace kel::src::detail {

namespace {

constexpr std::size_t STORE_BLOCK_BYTES = 512 * 1024;
// From this size on a chunk gets memory of its own, so that bytes that were given away are never copied.
constexpr std::size_t OWN_CHUNK_BYTES = 32 * 1024;

std::string numberedId(const char* prefix, std::uint32_t number) {
    return prefix + std::to_string(number);
}

/// A size as a header number: a double, and so not exact from 2^53 on.
template<typename Sink>
void emitSize(Sink& sink, std::string_view keyWithColon, std::uint64_t size) {
    sink.append(keyWithColon);
    if (size < std::uint64_t(1) << 53) {
        sink.appendNumber(size);
    } else {
        std::string text;
        text::appendJsonNumber(text, static_cast<double>(size));
        sink.append(std::string_view(text));
    }
}

template<typename Sink>
void emitKey(Sink& sink, bool& first, std::string& scratch, std::string_view id) {
    if (!first) sink.append(',');
    first = false;
    scratch.clear();
    text::appendJsonString(scratch, id);
    scratch += ':';
    sink.append(std::string_view(scratch));
}

} // namespace

const char* ShapeResourceContainer::BlockStore::keep(const void* bytes, std::size_t size) {
    if (size > freeBytes) {
        const std::size_t blockSize = std::max(STORE_BLOCK_BYTES, size);
        blocks.emplace_back(new char[blockSize]);
        free = blocks.back().get();
        freeBytes = blockSize;
    }
    char* kept = free;
    if (size != 0) std::memcpy(kept, bytes, size);
    free += size;
    freeBytes -= size;
    return kept;
}

template<typename Entry>
void ShapeResourceContainer::NumberedSection<Entry>::put(std::uint32_t number, Entry entry) {
    if (number >= entries.size()) entries.resize(std::size_t(number) + 1);
    entry.present = true;
    entries[number] = entry;
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

std::uint32_t ShapeResourceContainer::getWebGLTypeIdentifier(SRCDataType type) {
    // Of the two types of one width the unsigned one comes first here and second among WebGL's codes.
    const std::uint32_t place = type < FLOAT ? type ^ 1u : std::uint32_t(FLOAT);
    return format::FIRST_COMPONENT_TYPE + place;
}

std::uint32_t ShapeResourceContainer::getWebGLPrimitiveTypeIdentifier(SRCPrimitiveType type) {
    switch (type) {
    case LINES:
        return kel::mesh::LINES;
    case POINTS:
        return kel::mesh::POINTS;
    case TRIANGLES:
        break;
    }
    return kel::mesh::TRIANGLES;
}

std::string ShapeResourceContainer::getComponentTypeString(unsigned int components) {
    return components >= 1 && components <= format::MAX_COMPONENTS
               ? std::string(format::ELEMENT_TYPES[components - 1])
               : "INVALID";
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

void ShapeResourceContainer::storeChunk(Chunk chunk) {
    const std::uint32_t number = bufferChunkCounter++;
    chunks.push_back(chunk);
    bufferChunks.put(number, {chunk.size, chunkBytes});
    chunkBytes += chunk.size;
}

void ShapeResourceContainer::storeChunk(std::vector<unsigned char>&& bytes) {
    if (bytes.size() < OWN_CHUNK_BYTES) {
        storeChunk(Chunk{store.keep(bytes.data(), bytes.size()), bytes.size()});
    } else {
        ownedChunks.push_back(std::move(bytes));
        const auto& owned = ownedChunks.back();
        storeChunk(Chunk{reinterpret_cast<const char*>(owned.data()), owned.size()});
    }
}

void ShapeResourceContainer::storeChunk(const unsigned char* data, std::uint64_t size) {
    if (size < OWN_CHUNK_BYTES) {
        storeChunk(Chunk{store.keep(data, size), size});
    } else {
        storeChunk(std::vector<unsigned char>(data, data + size));
    }
}

void ShapeResourceContainer::appendChunk(const std::string&, picojson::object& bufferViewObject,
                                         const std::vector<unsigned char>& bytes) {
    const std::uint32_t number = bufferChunkCounter;
    storeChunk(bytes.data(), bytes.size());
    bufferViewObject["chunks"].get<picojson::array>().emplace_back(numberedId(bufferChunks.prefix, number));
}

std::string ShapeResourceContainer::addBufferView(std::vector<unsigned char>&& bytes) {
    const std::uint32_t number = bufferViewCounter;
    std::string id = createBufferViewID();
    const BufferViewEntry entry{bytes.size(), bufferChunkCounter, 1};
    storeChunk(std::move(bytes));
    bufferViews.put(number, entry);
    return id;
}

std::string ShapeResourceContainer::addBufferView(const unsigned char* data, unsigned long size,
                                                  const std::vector<unsigned int>* chunkBorders) {
    const std::uint32_t number = bufferViewCounter;
    std::string id = createBufferViewID();
    BufferViewEntry entry{size, bufferChunkCounter, 0};
    if (!chunkBorders) {
        storeChunk(data, size);
        entry.chunkCount = 1;
    } else {
        unsigned long start = 0;
        for (const unsigned int border : *chunkBorders) {
            if (border >= size || border < start) {
                std::cerr
                    << "ERROR: Invalid buffer chunk border specified for SRC export. Finishing buffer export "
                       "before parsing all chunk borders.\n";
                break;
            }
            storeChunk(data + start, border - start);
            ++entry.chunkCount;
            start = border;
        }
    }
    bufferViews.put(number, entry);
    return id;
}

std::string ShapeResourceContainer::addIndexView(const std::string& bufferViewId, unsigned long byteOffset,
                                                 unsigned long count, SRCDataType dataType) {
    const std::uint32_t number = indexViewCounter;
    std::string id = createIndexViewID();
    scratch.clear();
    text::appendJsonString(scratch, bufferViewId);
    indexViews.put(number, {store.keep(scratch), byteOffset, count, getWebGLTypeIdentifier(dataType)});
    return id;
}

std::string ShapeResourceContainer::addAttributeView(unsigned int components, const std::string& bufferViewId,
                                                     unsigned long byteOffset, unsigned long byteStride,
                                                     unsigned long count, SRCDataType dataType,
                                                     const double* decodeOffset, const double* decodeScale) {
    const std::uint32_t number = attributeViewCounter;
    std::string id = createAttributeViewID();
    scratch.clear();
    text::appendArrayMember(scratch, ",\"decodeOffset\":", decodeOffset, components);
    text::appendArrayMember(scratch, ",\"decodeScale\":", decodeScale, components);
    if (scratch != lastDecode) lastDecode = store.keep(scratch);
    scratch.clear();
    text::appendJsonString(scratch, bufferViewId);
    attributeViews.put(number, {store.keep(scratch), lastDecode, byteOffset, byteStride, count,
                                static_cast<std::uint16_t>(getWebGLTypeIdentifier(dataType)),
                                static_cast<std::uint8_t>(components)});
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
        text::appendJsonString(scratch, name);
        scratch += ':';
        text::appendJsonString(scratch, viewId);
    }
    scratch += '}';
    if (bboxCenter) text::appendArrayMember(scratch, ",\"bboxCenter\":", bboxCenter, 3);
    if (bboxSize) text::appendArrayMember(scratch, ",\"bboxSize\":", bboxSize, 3);
    scratch += ",\"indices\":";
    text::appendJsonString(scratch, indexViewId);
    scratch += ",\"material\":";

    MeshEntry entry{};
    entry.head = store.keep(scratch);
    scratch.clear();
    text::appendJsonString(scratch, materialId);
    entry.material = store.keep(scratch);
    entry.primitive = getWebGLPrimitiveTypeIdentifier(primitiveType);
    entry.hasMeta = meta.is<picojson::object>();
    meshes.put(id, entry);
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
    text::appendJson(scratch, parameters);
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
    scratch.clear();
    text::appendJsonString(scratch, key);
    const bool keyIsPlain = scratch.size() == key.size() + 2; // then the text holds the key itself, too
    scratch += ':';
    text::appendJson(scratch, value);
    MetaMember member;
    member.text = store.keep(scratch);
    member.key = keyIsPlain ? member.text.substr(1, key.size()) : store.keep(key);

    // Appending keeps this cheap; members that did not come in order are sorted when the document is written.
    const auto number = static_cast<std::uint32_t>(metaMembers.size());
    if (mesh->firstMember == NO_MEMBER) {
        mesh->firstMember = number;
    } else {
        MetaMember& last = metaMembers[mesh->lastMember];
        last.next = number;
        if (!(last.key < member.key)) mesh->membersInOrder = false;
    }
    metaMembers.push_back(member);
    mesh->lastMember = number;
    mesh->hasMeta = true;
}

void ShapeResourceContainer::sortMembers(MeshEntry& mesh) {
    std::vector<MetaMember> members;
    for (std::uint32_t i = mesh.firstMember; i != NO_MEMBER; i = metaMembers[i].next)
        members.push_back(metaMembers[i]);
    std::stable_sort(members.begin(), members.end(),
                     [](const MetaMember& a, const MetaMember& b) { return a.key < b.key; });
    // Of members with one key the last added counts. The list's places are filled anew, in order.
    std::uint32_t place = mesh.firstMember;
    for (std::size_t i = 0; i < members.size(); ++i) {
        if (i + 1 < members.size() && members[i].key == members[i + 1].key) continue;
        metaMembers[place].key = members[i].key;
        metaMembers[place].text = members[i].text;
        mesh.lastMember = place;
        place = metaMembers[place].next;
    }
    metaMembers[mesh.lastMember].next = NO_MEMBER;
    mesh.membersInOrder = true;
}

void ShapeResourceContainer::addMaterial(const std::string& id, const std::string& techniqueId,
                                         const picojson::value& values) {
    scratch = "{\"instanceTechnique\":{\"technique\":";
    text::appendJsonString(scratch, techniqueId);
    scratch += ",\"values\":";
    text::appendJson(scratch, values);
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
    scratch.clear();
    text::appendJsonString(scratch, materialId);
    mesh->material = store.keep(scratch);
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
    const auto numbered = [&](std::string_view opening, const auto& section, const auto& emitEntry) {
        sink.append(opening);
        bool first = true;
        text::inTextOrder(section.entries.size(), [&](std::size_t i) {
            if (!section.entries[i].present) return;
            sink.append(first ? std::string_view("\"") : std::string_view(",\""));
            first = false;
            sink.append(std::string_view(section.prefix));
            sink.appendNumber(i);
            sink.append(std::string_view("\":{"));
            emitEntry(section.entries[i]);
            sink.append('}');
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
    const std::string typeNames[4] = {"", getComponentTypeString(1), getComponentTypeString(2),
                                      getComponentTypeString(3)};
    numbered("{\"accessors\":{\"attributeViews\":{", attributeViews, [&](const AttributeViewEntry& view) {
        sink.append(std::string_view("\"bufferView\":"));
        sink.append(view.bufferView);
        emitSize(sink, ",\"byteOffset\":", view.byteOffset);
        emitSize(sink, ",\"byteStride\":", view.byteStride);
        emitSize(sink, ",\"componentType\":", view.componentType);
        emitSize(sink, ",\"count\":", view.count);
        sink.append(view.decode);
        sink.append(std::string_view(",\"type\":\""));
        sink.append(std::string_view(typeNames[view.components]));
        sink.append('"');
    });
    numbered(",\"indexViews\":{", indexViews, [&](const IndexViewEntry& view) {
        sink.append(std::string_view("\"bufferView\":"));
        sink.append(view.bufferView);
        emitSize(sink, ",\"byteOffset\":", view.byteOffset);
        emitSize(sink, ",\"componentType\":", view.componentType);
        emitSize(sink, ",\"count\":", view.count);
    });
    numbered("},\"bufferChunks\":{", bufferChunks, [&](const ChunkEntry& chunk) {
        emitSize(sink, "\"byteLength\":", chunk.byteLength);
        emitSize(sink, ",\"byteOffset\":", chunk.byteOffset);
    });
    numbered(",\"bufferViews\":{", bufferViews, [&](const BufferViewEntry& view) {
        emitSize(sink, "\"byteLength\":", view.byteLength);
        sink.append(std::string_view(",\"chunks\":["));
        for (std::uint32_t i = 0; i < view.chunkCount; ++i) {
            sink.append(i == 0 ? std::string_view("\"") : std::string_view(",\""));
            sink.append(std::string_view(bufferChunks.prefix));
            sink.appendNumber(std::uint32_t(view.firstChunk + i)); // the counter wraps, and so do its IDs
            sink.append('"');
        }
        sink.append(']');
    });
    keyed(",\"materials\":{", materials);
    sink.append(std::string_view(",\"meshes\":{"));
    bool firstMesh = true;
    for (const auto& [id, mesh] : meshes.all()) {
        emitKey(sink, firstMesh, text, id);
        sink.append(mesh.head);
        sink.append(mesh.material);
        if (mesh.hasMeta) {
            sink.append(std::string_view(",\"meta\":{"));
            for (std::uint32_t i = mesh.firstMember; i != NO_MEMBER; i = metaMembers[i].next) {
                if (i != mesh.firstMember) sink.append(',');
                sink.append(metaMembers[i].text);
            }
            sink.append('}');
        }
        emitSize(sink, ",\"primitive\":", mesh.primitive);
        sink.append('}');
    }
    sink.append(std::string_view("},\"meta\":"));
    sink.append(metaText);
    keyed(",\"techniques\":{", techniques);
    sink.append(std::string_view(",\"textureViews\":{},\"textures\":{}}"));
}

/// Returns the document's metadata as text, which the caller may have changed in place since the last write.
std::string ShapeResourceContainer::prepareToWrite() {
    for (auto& [id, mesh] : meshes.all()) {
        if (!mesh.membersInOrder) sortMembers(mesh);
    }
    std::string metaText;
    text::appendJson(metaText, header.get<picojson::object>()["meta"]);
    return metaText;
}

void ShapeResourceContainer::writeDocument(std::ostream& out, const std::string& metaText) const {
    text::CountingSink length;
    emitHeader(length, metaText);

    text::StreamSink sink(out);
    sink.appendUint32(23);
    sink.appendUint32(42);
    sink.appendUint32(length.bytes);
    emitHeader(sink, metaText);
    for (const Chunk& chunk : chunks)
        sink.append(std::string_view(chunk.data, chunk.size));
    sink.flush();
}

void ShapeResourceContainer::writeToStream(std::ostream& out) {
    writeDocument(out, prepareToWrite());
}

void ShapeResourceContainer::writeToFile(const char* path) {
    // What can fail in the header fails before the file is touched.
    const std::string metaText = prepareToWrite();
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file) {
        std::cerr << "Unable to open file \"" << path << "\" for writing SRC data." << std::endl;
        return;
    }
    std::cout << "Writing SRC data to \"" << path << "\"." << std::endl;
    writeDocument(file, metaText);
}

} // namespace kel::src::detail
