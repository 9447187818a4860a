#include <kel/src/container/ShapeResourceContainer.h>

#include <kel/mesh/PrimitiveType.h>
#include <kel/src/format/HeaderEmitter.h>
#include <kel/src/text/StreamSink.h>

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

using Entries = format::HeaderEntries<format::SeventeenDigits>;

std::string numberedId(std::string_view prefix, std::uint32_t number) {
    return std::string(prefix) + std::to_string(number);
}

/// Room for one element more, so that adding it cannot fail. Grows as push_back does: reserve alone would grow by
/// one element each time.
template<typename Element>
void makeRoomForOne(std::vector<Element>& elements) {
    if (elements.size() == elements.capacity())
        elements.reserve(std::max<std::size_t>(8, 2 * elements.size()));
}

} // namespace

const char* ShapeResourceContainer::BlockStore::keep(const void* bytes, std::size_t size) {
    if (size > freeBytes) {
        const std::size_t blockSize = std::max(STORE_BLOCK_BYTES, size);
        makeRoomForOne(blocks);
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

/// The string as JSON text.
std::string_view ShapeResourceContainer::keepJson(std::string_view string) {
    scratch.clear();
    text::appendJsonString(scratch, string);
    return store.keep(scratch);
}

template<typename Entry>
void ShapeResourceContainer::NumberedSection<Entry>::put(const Entry& entry) {
    entries.push_back(entry);
    consecutive = consecutive && entry.number == entries.size() - 1;
}

template<typename Entry>
template<typename Visit>
void ShapeResourceContainer::NumberedSection<Entry>::inTextOrder(const Visit& visit) const {
    if (consecutive) {
        format::inTextOrder(entries.size(), [&](std::size_t i) { visit(i, entries[i]); });
        return;
    }
    std::vector<const Entry*> ordered;
    ordered.reserve(entries.size());
    for (const Entry& entry : entries)
        ordered.push_back(&entry);
    std::sort(ordered.begin(), ordered.end(), [](const Entry* a, const Entry* b) {
        if (a->number != b->number) return format::textOrderOf(a->number) < format::textOrderOf(b->number);
        return a < b;
    });
    for (std::size_t i = 0; i < ordered.size(); ++i) {
        if (i + 1 < ordered.size() && ordered[i + 1]->number == ordered[i]->number) continue;
        visit(ordered[i]->number, *ordered[i]);
    }
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
    return type == LINES ? kel::mesh::LINES : type == POINTS ? kel::mesh::POINTS : kel::mesh::TRIANGLES;
}

std::string ShapeResourceContainer::getComponentTypeString(unsigned int components) {
    return components >= 1 && components <= format::MAX_COMPONENTS
               ? std::string(format::ELEMENT_TYPES[components - 1])
               : "INVALID";
}

ShapeResourceContainer::ShapeResourceContainer() : documentMeta(picojson::object()) {}
ShapeResourceContainer::~ShapeResourceContainer() = default;

std::string ShapeResourceContainer::createIndexViewID() {
    return numberedId(format::id_prefix::INDEX_VIEW, indexViewCounter++);
}
std::string ShapeResourceContainer::createAttributeViewID() {
    return numberedId(format::id_prefix::ATTRIBUTE_VIEW, attributeViewCounter++);
}
std::string ShapeResourceContainer::createBufferViewID() {
    return numberedId(format::id_prefix::BUFFER_VIEW, bufferViewCounter++);
}
std::string ShapeResourceContainer::createBufferChunkID() {
    return numberedId(format::id_prefix::CHUNK, bufferChunkCounter++);
}

void ShapeResourceContainer::storeChunk(const char* keptData, std::uint64_t size) {
    bufferChunks.put({bufferChunkCounter++, keptData, size, chunkBytes});
    chunkBytes += size;
}

void ShapeResourceContainer::storeChunk(std::vector<unsigned char>&& bytes) {
    if (bytes.size() < OWN_CHUNK_BYTES) {
        storeChunk(store.keep(bytes.data(), bytes.size()), bytes.size());
    } else {
        makeRoomForOne(ownedChunks);
        storeChunk(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        ownedChunks.push_back(std::move(bytes)); // which leaves them where they are
    }
}

void ShapeResourceContainer::copyChunk(const unsigned char* data, std::uint64_t size) {
    if (size < OWN_CHUNK_BYTES) {
        storeChunk(store.keep(data, size), size);
    } else {
        storeChunk(std::vector<unsigned char>(data, data + size));
    }
}

void ShapeResourceContainer::appendChunk(const std::string&, picojson::object& bufferViewObject,
                                         const std::vector<unsigned char>& bytes) {
    const std::uint32_t number = bufferChunkCounter;
    copyChunk(bytes.data(), bytes.size());
    bufferViewObject[std::string(format::key::CHUNKS)].get<picojson::array>().emplace_back(
        numberedId(format::id_prefix::CHUNK, number));
}

std::string ShapeResourceContainer::addBufferView(std::vector<unsigned char>&& bytes) {
    const std::uint32_t number = bufferViewCounter;
    std::string id = createBufferViewID();
    const BufferViewEntry entry{number, bufferChunkCounter, 1, bytes.size()};
    storeChunk(std::move(bytes));
    bufferViews.put(entry);
    return id;
}

std::string ShapeResourceContainer::addBufferView(const unsigned char* data, unsigned long size,
                                                  const std::vector<unsigned int>* chunkBorders) {
    const std::uint32_t number = bufferViewCounter;
    std::string id = createBufferViewID();
    BufferViewEntry entry{number, bufferChunkCounter, 0, size};
    if (!chunkBorders) {
        copyChunk(data, size);
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
            copyChunk(data + start, border - start);
            ++entry.chunkCount;
            start = border;
        }
    }
    bufferViews.put(entry);
    return id;
}

std::string ShapeResourceContainer::addIndexView(const std::string& bufferViewId, unsigned long byteOffset,
                                                 unsigned long count, SRCDataType dataType) {
    const std::uint32_t number = indexViewCounter;
    std::string id = createIndexViewID();
    indexViews.put({number, getWebGLTypeIdentifier(dataType), keepJson(bufferViewId), byteOffset, count});
    return id;
}

std::string ShapeResourceContainer::addAttributeView(unsigned int components, const std::string& bufferViewId,
                                                     unsigned long byteOffset, unsigned long byteStride,
                                                     unsigned long count, SRCDataType dataType,
                                                     const double* decodeOffset, const double* decodeScale) {
    const std::uint32_t number = attributeViewCounter;
    std::string id = createAttributeViewID();
    scratch.clear();
    Entries::decodeVectors(scratch, decodeOffset, decodeScale, components);
    if (scratch != lastDecode) lastDecode = store.keep(scratch);
    attributeViews.put({number, static_cast<std::uint16_t>(getWebGLTypeIdentifier(dataType)),
                        static_cast<std::uint16_t>(components), keepJson(bufferViewId), lastDecode,
                        byteOffset, byteStride, count});
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
    scratch.clear();
    Entries::meshHead(
        scratch, attributes,
        [](std::string& text, const std::string& view) { text::appendJsonString(text, view); }, bboxCenter,
        bboxSize, [&](std::string& text) { text::appendJsonString(text, indexViewId); });
    MeshEntry entry{};
    entry.head = store.keep(scratch);
    entry.material = keepJson(materialId);
    entry.primitive = getWebGLPrimitiveTypeIdentifier(primitiveType);
    if (meta.is<picojson::object>()) {
        entry.hasMeta = true;
        for (const auto& [key, value] : meta.get<picojson::object>())
            attachMember(entry, storeMember(key, value));
    }
    meshes.put(id, entry);
}

void ShapeResourceContainer::addMetaData(const std::string& key, const picojson::value& value) {
    picojson::value copy(value); // first, so that no half of an entry stays behind when memory runs out
    getMetaData()[key] = std::move(copy);
}

void ShapeResourceContainer::addTechnique(const std::string& id, const picojson::value& parameters) {
    scratch.clear();
    Entries::technique(scratch, [&](std::string& text) { text::appendJson(text, parameters); });
    techniques.put(id, store.keep(scratch));
}

/// The mesh of that ID, or null with a report of what cannot be done without it.
ShapeResourceContainer::MeshEntry* ShapeResourceContainer::findMesh(const std::string& id,
                                                                    const char* purpose) {
    MeshEntry* mesh = meshes.find(id);
    if (!mesh)
        std::cerr << "ERROR: Cannot " << purpose << " mesh with ID \"" << id << "\", no such mesh found.\n";
    return mesh;
}

void ShapeResourceContainer::addMetaDataToMesh(const std::string& key, const picojson::value& value,
                                               const std::string& meshId) {
    if (MeshEntry* mesh = findMesh(meshId, "add meta data to")) attachMember(*mesh, storeMember(key, value));
}

/// A new member that no mesh has yet.
std::uint32_t ShapeResourceContainer::storeMember(const std::string& key, const picojson::value& value) {
    scratch.clear();
    text::appendJsonString(scratch, key);
    const bool keyIsPlain = scratch.size() == key.size() + 2; // then the text holds the key itself, too
    scratch += ':';
    text::appendJson(scratch, value);
    MetaMember member;
    member.text = store.keep(scratch);
    member.key = keyIsPlain ? member.text.substr(1, key.size()) : store.keep(key);
    metaMembers.push_back(member);
    return static_cast<std::uint32_t>(metaMembers.size() - 1);
}

/// Appending keeps this cheap; members that did not come in order are sorted when they are written.
void ShapeResourceContainer::attachMember(MeshEntry& mesh, std::uint32_t number) {
    if (mesh.firstMember == NO_MEMBER) {
        mesh.firstMember = number;
    } else {
        MetaMember& last = metaMembers[mesh.lastMember];
        last.next = number;
        if (!(last.key < metaMembers[number].key)) mesh.membersInOrder = false;
    }
    mesh.lastMember = number;
    mesh.hasMeta = true;
}

void ShapeResourceContainer::addMaterial(const std::string& id, const std::string& techniqueId,
                                         const picojson::value& values) {
    scratch.clear();
    Entries::material(scratch, techniqueId, [&](std::string& text) { text::appendJson(text, values); });
    materials.put(id, store.keep(scratch));
}

void ShapeResourceContainer::assignMaterialToMesh(const std::string& materialId, const std::string& meshId) {
    MeshEntry* mesh = findMesh(meshId, "assign material to");
    if (!mesh) return;
    mesh->material = keepJson(materialId);
    if (!materials.find(materialId))
        std::cout << "WARNING: Assigning material with ID \"" << materialId
                  << "\", to mesh, but such a material doesn't exist yet.\n";
}

picojson::object& ShapeResourceContainer::getMetaData() {
    return documentMeta.get<picojson::object>();
}

void ShapeResourceContainer::sortMembers(std::vector<const MetaMember*>& members) {
    std::stable_sort(members.begin(), members.end(),
                     [](const MetaMember* a, const MetaMember* b) { return a->key < b->key; });
    // Of members with one key the last added counts: it is the first of its run from behind.
    const auto first = std::unique(members.rbegin(), members.rend(),
                                   [](const MetaMember* a, const MetaMember* b) { return a->key == b->key; });
    members.erase(members.begin(), first.base());
}

template<typename Sink>
void ShapeResourceContainer::emitHeader(Sink& sink, std::string_view metaText) const {
    format::HeaderEmitter<Sink, format::SeventeenDigits> emit(sink);
    const auto numbered = [&](std::string_view prefix, const auto& section, const auto& emitEntry) {
        emit.numbered(
            prefix, [&](const auto& visit) { section.inTextOrder(visit); }, emitEntry);
    };
    const auto keyed = [&](const auto& section, const auto& emitEntry) {
        bool first = true;
        for (const auto& [id, entry] : section.all()) {
            emit.entryId(first, id);
            emitEntry(entry);
        }
    };
    std::vector<const MetaMember*> members; // of one mesh after the other
    const auto emitText = [&](std::string_view text) { sink.append(text); };

    emit.header(
        [&] {
            numbered(format::id_prefix::ATTRIBUTE_VIEW, attributeViews, [&](const AttributeViewEntry& view) {
                emit.attributeView(
                    [&] { sink.append(view.bufferView); },
                    {view.byteOffset, view.byteStride, view.count, view.componentType, view.components},
                    view.decode);
            });
        },
        [&] {
            numbered(format::id_prefix::INDEX_VIEW, indexViews, [&](const IndexViewEntry& view) {
                emit.indexView([&] { sink.append(view.bufferView); },
                               {view.byteOffset, 0, view.count, view.componentType, 1});
            });
        },
        [&] {
            numbered(format::id_prefix::CHUNK, bufferChunks,
                     [&](const ChunkEntry& chunk) { emit.chunk(chunk.byteLength, chunk.byteOffset); });
        },
        [&] {
            numbered(format::id_prefix::BUFFER_VIEW, bufferViews, [&](const BufferViewEntry& view) {
                emit.bufferView(view.byteLength, view.firstChunk, view.chunkCount);
            });
        },
        [&] { keyed(materials, emitText); },
        [&] {
            keyed(meshes, [&](const MeshEntry& mesh) {
                sink.append(mesh.head);
                sink.append(mesh.material);
                const auto emitMembers = [&] {
                    members.clear();
                    for (std::uint32_t i = mesh.firstMember; i != NO_MEMBER; i = metaMembers[i].next)
                        members.push_back(&metaMembers[i]);
                    if (!mesh.membersInOrder) sortMembers(members);
                    char separator = '{';
                    for (const MetaMember* member : members) {
                        sink.append(separator);
                        separator = ',';
                        sink.append(member->text);
                    }
                    sink.append(std::string_view(members.empty() ? "{}" : "}"));
                };
                emit.meshTail(mesh.hasMeta, emitMembers, mesh.primitive);
            });
        },
        [&] { sink.append(metaText); }, [&] { keyed(techniques, emitText); });
}

/// The text of the document's metadata, which the caller may have changed in place since the last write.
std::string ShapeResourceContainer::metaDataText() const {
    std::string text;
    text::appendJson(text, documentMeta);
    return text;
}

std::uint64_t ShapeResourceContainer::headerBytes(const std::string& metaText) const {
    text::CountingSink length;
    emitHeader(length, metaText);
    return length.bytes;
}

void ShapeResourceContainer::writeDocument(std::ostream& out, const std::string& metaText,
                                           std::uint64_t headerBytes) const {
    text::StreamSink sink(out);
    sink.append(format::PreambleBytes(headerBytes).text());
    emitHeader(sink, metaText);
    for (const ChunkEntry& chunk : bufferChunks.entries)
        sink.append(std::string_view(chunk.data, chunk.byteLength));
    sink.flush();
}

void ShapeResourceContainer::writeToStream(std::ostream& out) {
    const std::string metaText = metaDataText();
    writeDocument(out, metaText, headerBytes(metaText));
}

void ShapeResourceContainer::writeToFile(const char* path) {
    // What can fail in the header fails before the file is touched.
    const std::string metaText = metaDataText();
    const std::uint64_t length = headerBytes(metaText);
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file) {
        std::cerr << "Unable to open file \"" << path << "\" for writing SRC data." << std::endl;
        return;
    }
    std::cout << "Writing SRC data to \"" << path << "\"." << std::endl;
    writeDocument(file, metaText, length);
}

} // namespace kel::src::detail
