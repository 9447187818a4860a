#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/Transforms.h>
#include <kel/src/SrcReader.h>
#include <kel/src/reader/Decode_p.h>
#include <kel/src/reader/FileData_p.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace kel::src {

namespace detail {

namespace {

template<typename T>
double load(const unsigned char* at) {
    T code;
    std::memcpy(&code, at, sizeof code);
    return static_cast<double>(code);
}

/// A tag for codes in slots of 3 bytes.
struct Slot3 {};

template<>
double load<Slot3>(const unsigned char* at) {
    return static_cast<double>(static_cast<std::uint32_t>(at[0]) | static_cast<std::uint32_t>(at[1]) << 8 |
                               static_cast<std::uint32_t>(at[2]) << 16);
}

template<typename T>
constexpr std::size_t SIZE = sizeof(T);
template<>
constexpr std::size_t SIZE<Slot3> = 3;

/// Elements of C components. Sums and quotients in double: the codes of 32 bits and the offsets of small
/// boxes far from the origin need it.
template<typename T, std::size_t C>
void decodeElements(const unsigned char* source, std::size_t stride, std::size_t count, const double* offset,
                    const double* scale, float* target) {
    // Three components do not fill vector registers evenly; twelve numbers, four elements, do.
    constexpr std::size_t GROUP = C == 3 ? 4 : C == 1 ? 8 : 4;
    double groupOffset[GROUP * C], groupScale[GROUP * C];
    for (std::size_t i = 0; i < GROUP * C; ++i) {
        groupOffset[i] = offset[i % C];
        groupScale[i] = scale[i % C];
    }
    std::size_t e = 0;
    for (; e + GROUP <= count; e += GROUP) {
        double codes[GROUP * C];
        for (std::size_t g = 0; g < GROUP; ++g)
            for (std::size_t c = 0; c < C; ++c)
                codes[g * C + c] = load<T>(source + (e + g) * stride + c * SIZE<T>);
        for (std::size_t i = 0; i < GROUP * C; ++i)
            target[e * C + i] = static_cast<float>((codes[i] + groupOffset[i]) / groupScale[i]);
    }
    for (; e < count; ++e)
        for (std::size_t c = 0; c < C; ++c)
            target[e * C + c] =
                static_cast<float>((load<T>(source + e * stride + c * SIZE<T>) + offset[c]) / scale[c]);
}

template<typename T>
void decodeComponents(const unsigned char* source, const SrcAttributeView& view, std::size_t count,
                      float* target) {
    const auto decode = view.components == 1   ? decodeElements<T, 1>
                        : view.components == 2 ? decodeElements<T, 2>
                        : view.components == 3 ? decodeElements<T, 3>
                                               : decodeElements<T, 4>;
    decode(source, static_cast<std::size_t>(view.byteStride), count, view.decodeOffset.data(),
           view.decodeScale.data(), target);
}

void copyFloats(const unsigned char* source, const SrcAttributeView& view, std::size_t count, float* target) {
    const std::size_t element = view.components * sizeof(float);
    if (view.byteStride == element) {
        std::memcpy(target, source, count * element);
        return;
    }
    for (std::size_t e = 0; e < count; ++e)
        std::memcpy(target + e * view.components, source + e * view.byteStride, element);
}

void decodeRun(const unsigned char* source, const SrcAttributeView& view, std::size_t count, float* target) {
    if (view.componentBytes == 3) return decodeComponents<Slot3>(source, view, count, target);
    switch (view.componentType) {
    case kel::mesh::BYTE:
        return decodeComponents<std::int8_t>(source, view, count, target);
    case kel::mesh::UNSIGNED_BYTE:
        return decodeComponents<std::uint8_t>(source, view, count, target);
    case kel::mesh::SHORT:
        return decodeComponents<std::int16_t>(source, view, count, target);
    case kel::mesh::UNSIGNED_SHORT:
        return decodeComponents<std::uint16_t>(source, view, count, target);
    case kel::mesh::INT:
        return decodeComponents<std::int32_t>(source, view, count, target);
    case kel::mesh::UNSIGNED_INT:
        return decodeComponents<std::uint32_t>(source, view, count, target);
    case kel::mesh::FLOAT:
        if (!view.decoded) return copyFloats(source, view, count, target);
        return decodeComponents<float>(source, view, count, target);
    }
}

} // namespace

void forEachRun(
    const SrcFile& file, const SrcBufferView& buffer, std::uint64_t byteOffset, std::uint64_t stride,
    std::uint64_t element, std::uint64_t count,
    const std::function<void(const unsigned char* source, std::uint64_t first, std::size_t count)>& run) {
    if (count == 0) return;
    const ByteView whole = file.bytes(buffer);
    if (whole.data) {
        run(whole.data + byteOffset, 0, static_cast<std::size_t>(count));
        return;
    }
    // Gathered in pieces that stay in the cache.
    constexpr std::uint64_t PIECE_BYTES = 64 * 1024;
    const std::uint64_t perPiece = std::max<std::uint64_t>(1, PIECE_BYTES / stride);
    std::vector<unsigned char> piece;
    ForwardCopy forward(SrcFileAccess::data(file), buffer);
    for (std::uint64_t first = 0; first < count; first += perPiece) {
        const std::uint64_t elements = std::min(perPiece, count - first);
        piece.resize(static_cast<std::size_t>((elements - 1) * stride + element));
        if (!forward.copy(byteOffset + first * stride, piece.size(), piece.data()))
            throw std::logic_error("The bytes of buffer view \"" + std::string(buffer.id) +
                                   "\" are not held: they have not arrived yet, or were let go.");
        run(piece.data(), first, static_cast<std::size_t>(elements));
    }
}

const SrcBufferView& bufferOf(const SrcFile& file, const SrcAttributeView& view) {
    return file.bufferViews()[view.bufferView];
}

} // namespace detail

void decodeAttribute(const SrcFile& file, const SrcAttributeView& view, float* target) {
    detail::forEachRun(file, detail::bufferOf(file, view), view.byteOffset, view.byteStride,
                       std::uint64_t(view.components) * view.componentBytes, view.count,
                       [&](const unsigned char* source, std::uint64_t first, std::size_t count) {
                           detail::decodeRun(source, view, count, target + first * view.components);
                       });
}

std::vector<float> decodeAttribute(const SrcFile& file, const SrcAttributeView& view) {
    std::vector<float> values(static_cast<std::size_t>(view.count) * view.components);
    decodeAttribute(file, view, values.data());
    return values;
}

namespace {

template<typename Index>
void widen(const unsigned char* source, std::size_t count, std::uint32_t* target) {
    for (std::size_t i = 0; i < count; ++i) {
        Index index;
        std::memcpy(&index, source + i * sizeof index, sizeof index);
        target[i] = index;
    }
}

} // namespace

void decodeIndices(const SrcFile& file, const SrcIndexView& view, std::uint32_t* target) {
    const std::size_t size = kel::mesh::getComponentSizeInBytes(view.componentType);
    const auto read = size == 1   ? widen<std::uint8_t>
                      : size == 2 ? widen<std::uint16_t>
                                  : widen<std::uint32_t>;
    detail::forEachRun(file, file.bufferViews()[view.bufferView], view.byteOffset, size, size, view.count,
                       [&](const unsigned char* source, std::uint64_t first, std::size_t count) {
                           read(source, count, target + first);
                       });
}

std::vector<std::uint32_t> decodeIndices(const SrcFile& file, const SrcIndexView& view) {
    std::vector<std::uint32_t> indices(static_cast<std::size_t>(view.count));
    decodeIndices(file, view, indices.data());
    return indices;
}

bool isCombinedPositionNormal(const SrcAttribute& attribute, const SrcAttributeView& view) {
    return attribute.name == "pos3us_nor2ub_oct" && view.componentType == kel::mesh::UNSIGNED_SHORT &&
           view.components == 4;
}

std::vector<float> decodeCombinedNormals(const SrcFile& file, const SrcAttributeView& view) {
    constexpr std::size_t CODE_AT = 6;
    std::vector<float> normals(static_cast<std::size_t>(view.count) * 3);
    detail::forEachRun(file, detail::bufferOf(file, view), view.byteOffset, view.byteStride, 8, view.count,
                       [&](const unsigned char* source, std::uint64_t first, std::size_t count) {
                           for (std::size_t e = 0; e < count; ++e)
                               kel::mesh::decodeOctahedralNormal(source + e * view.byteStride + CODE_AT,
                                                                 normals.data() + (first + e) * 3);
                       });
    return normals;
}

std::vector<SrcFit> fitOf(const SrcMesh& mesh) {
    std::vector<SrcFit> fits;
    for (const SrcMember& member : jsonMembers(mesh.metadata)) {
        if (member.key != "fit") continue;
        for (SrcMember& attribute : jsonMembers(member.json)) {
            SrcFit fit;
            for (const SrcMember& vector : jsonMembers(attribute.json)) {
                if (vector.key == "offset") jsonNumbers(vector.json, fit.offset);
                if (vector.key == "scale") jsonNumbers(vector.json, fit.scale);
            }
            if (fit.offset.empty() || fit.offset.size() != fit.scale.size()) continue;
            fit.attribute = std::move(attribute.key);
            fits.push_back(std::move(fit));
        }
    }
    return fits;
}

const DecodedAttribute* DecodedMesh::find(std::string_view name) const {
    const auto found =
        std::find_if(attributes.begin(), attributes.end(),
                     [&](const DecodedAttribute& attribute) { return attribute.name == name; });
    return found == attributes.end() ? nullptr : &*found;
}

namespace detail {

LeftOvers::LeftOvers(const SrcFile& file, const SrcMesh& mesh)
    : file(file), position(static_cast<std::uint32_t>(&mesh - file.meshes().begin())) {
    for (const SrcAttribute& attribute : file.attributes(mesh))
        if (attribute.name == kel::mesh::DEFAULT_POSITIONS_NAME) ownsPositions = !isOthers(attribute);
}

SrcAttributeView positionPart(const SrcAttributeView& combined) {
    SrcAttributeView positions = combined;
    positions.components = 3;
    return positions;
}

} // namespace detail

DecodedMesh decodeMesh(const SrcFile& file, const SrcMesh& mesh, const DecodeOptions& options) {
    DecodedMesh decoded;
    std::uint64_t taken = 0;
    const auto charge = [&](std::uint64_t numbers) {
        if (numbers > (options.memoryBytes - taken) / sizeof(float))
            throw SrcError(SrcCode::LIMIT_EXCEEDED, SrcError::NO_OFFSET, "/meshes/" + std::string(mesh.id),
                           "memoryBytes is " + std::to_string(options.memoryBytes));
        taken += numbers * sizeof(float);
    };
    if (mesh.indexView != SRC_NONE) {
        const SrcIndexView& view = file.indexViews()[mesh.indexView];
        charge(view.count);
        decoded.indexed = true;
        decoded.indices = decodeIndices(file, view);
    }
    const detail::LeftOvers leftOvers(file, mesh);
    for (const SrcAttribute& attribute : file.attributes(mesh)) {
        if (options.ownAttributesOnly && leftOvers.contain(attribute)) continue;
        const SrcAttributeView& view = file.attributeViews()[attribute.view];
        charge(view.count * 6);
        if (isCombinedPositionNormal(attribute, view)) {
            decoded.attributes.push_back(
                {kel::mesh::DEFAULT_POSITIONS_NAME, 3, decodeAttribute(file, detail::positionPart(view))});
            decoded.attributes.push_back(
                {kel::mesh::DEFAULT_NORMALS_NAME, 3, decodeCombinedNormals(file, view)});
        } else {
            decoded.attributes.push_back(
                {std::string(attribute.name), view.components, decodeAttribute(file, view)});
        }
    }
    if (!options.applyFit) return decoded;
    for (const SrcFit& fit : fitOf(mesh)) {
        for (DecodedAttribute& attribute : decoded.attributes) {
            if (attribute.name != fit.attribute || attribute.components != fit.scale.size()) continue;
            for (std::size_t i = 0; i < attribute.values.size(); ++i) {
                const std::size_t c = i % attribute.components;
                attribute.values[i] = static_cast<float>(
                    static_cast<double>(attribute.values[i]) * fit.scale[c] + fit.offset[c]);
            }
        }
    }
    return decoded;
}

} // namespace kel::src
