#include "GltfAccessors.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <type_traits>

namespace kel::importer::detail {

namespace {

template<typename Component>
Component load(const unsigned char* from) {
    Component component; // little-endian, as the file; it need not be aligned
    std::memcpy(&component, from, sizeof component);
    return component;
}

template<std::size_t TAKE, typename Component, typename Number, typename Convert>
void convertElements(const unsigned char* from, std::size_t step, std::size_t count, Number* to,
                     const Convert& convert) {
    for (std::size_t i = 0; i < count; ++i, from += step, to += TAKE) {
        for (std::size_t k = 0; k < TAKE; ++k)
            to[k] = convert(load<Component>(from + k * sizeof(Component)));
    }
}

/// With the usual widths known to the compiler.
template<typename Component, typename Number, typename Convert>
void convertElements(const GltfNumbers& numbers, std::size_t count, std::size_t take, Number* to,
                     const Convert& convert) {
    const auto run = [&](auto width) {
        convertElements<decltype(width)::value, Component>(numbers.from, numbers.step, count, to, convert);
    };
    switch (take) {
    case 1:
        return run(std::integral_constant<std::size_t, 1>());
    case 2:
        return run(std::integral_constant<std::size_t, 2>());
    case 3:
        return run(std::integral_constant<std::size_t, 3>());
    case 4:
        return run(std::integral_constant<std::size_t, 4>());
    default:
        for (std::size_t i = 0; i < count; ++i) {
            for (std::size_t k = 0; k < take; ++k)
                *to++ = convert(load<Component>(numbers.from + i * numbers.step + k * sizeof(Component)));
        }
    }
}

template<typename Component, typename Number>
void convertComponents(const GltfNumbers& numbers, std::size_t count, std::size_t take, Number* to) {
    const auto plain = [](Component component) { return static_cast<Number>(component); };
    if constexpr (std::is_integral_v<Component>) {
        // Two codes of a signed type mean -1.
        constexpr Number LARGEST = static_cast<Number>(std::numeric_limits<Component>::max());
        const auto normalized = [](Component component) {
            return std::max(static_cast<Number>(component) / LARGEST, static_cast<Number>(-1));
        };
        if (numbers.normalized) return convertElements<Component>(numbers, count, take, to, normalized);
    }
    convertElements<Component>(numbers, count, take, to, plain);
}

template<typename Index>
std::vector<std::uint32_t> widen(const GltfNumbers& numbers, std::size_t count) {
    std::vector<std::uint32_t> indices(count);
    const auto plain = [](Index index) { return static_cast<std::uint32_t>(index); };
    convertElements<Index>(numbers, count, 1, indices.data(), plain);
    return indices;
}

/// Numbers as they lie in memory, where that is all that there is to do: one pass instead of two, since nothing is
/// set to zero before it is written.
template<typename Number>
std::vector<Number> copied(const unsigned char* from, std::size_t count) {
    if (reinterpret_cast<std::uintptr_t>(from) % alignof(Number) == 0) {
        const auto* first = reinterpret_cast<const Number*>(from);
        return std::vector<Number>(first, first + count);
    }
    std::vector<Number> numbers(count);
    std::memcpy(numbers.data(), from, count * sizeof(Number));
    return numbers;
}

std::vector<std::uint32_t> decodeIndices(const GltfNumbers& numbers, std::size_t count) {
    if (numbers.type == kel::mesh::UNSIGNED_BYTE) return widen<std::uint8_t>(numbers, count);
    if (numbers.type == kel::mesh::UNSIGNED_SHORT) return widen<std::uint16_t>(numbers, count);
    if (numbers.step == sizeof(std::uint32_t)) return copied<std::uint32_t>(numbers.from, count);
    return widen<std::uint32_t>(numbers, count);
}

/// Where the elements of a view begin, the checks of GltfData having been made.
GltfNumbers numbersIn(const ModelSource& source, const GltfData& data, std::size_t view, std::uint64_t offset,
                      std::uint64_t step, kel::mesh::ComponentType type) {
    return {data.bytesOf(source, view).data + offset, static_cast<std::size_t>(step), type, false};
}

GltfNumbers elementsOf(const ModelSource& source, const GltfData& data, const GltfAccessor& accessor) {
    const std::uint64_t stride = data.views[*accessor.view].stride;
    GltfNumbers numbers = numbersIn(source, data, *accessor.view, accessor.offset,
                                    stride > 0 ? stride : accessor.bytes(), accessor.type);
    numbers.normalized = accessor.normalized;
    return numbers;
}

/// Refuses zeros that the file does not justify: they would cost it nothing.
void checkZeros(const ModelSource& source, const GltfData& data, std::size_t accessor) {
    if (data.accessors[accessor].count <= data.fileBytes) return;
    refuseGltf(source, ImportCode::IMPOSSIBLE_COUNT,
               "it announces " + std::to_string(data.accessors[accessor].count) +
                   " elements without a buffer view; there may be as many as the files have bytes, " +
                   std::to_string(data.fileBytes),
               GltfPlace("accessors", accessor).text());
}

/// Calls replace(element, i) for each sparse value.
template<typename Replace>
void forEachSparse(const ModelSource& source, const GltfData& data, std::size_t index,
                   const Replace& replace) {
    const GltfAccessor& accessor = data.accessors[index];
    const GltfSparse& sparse = *accessor.sparse;
    const auto count = static_cast<std::size_t>(sparse.count);
    const std::vector<std::uint32_t> elements =
        decodeIndices(numbersIn(source, data, sparse.indexView, sparse.indexOffset,
                                bytesOfComponent(sparse.indexType), sparse.indexType),
                      count);
    for (std::size_t i = 0; i < count; ++i) {
        if (elements[i] >= accessor.count) {
            refuseGltf(source, ImportCode::INDEX_OUT_OF_RANGE,
                       "\"sparse\" replaces element " + std::to_string(elements[i]) + " of " +
                           std::to_string(accessor.count),
                       GltfPlace("accessors", index).text());
        }
        replace(elements[i], i);
    }
}

GltfNumbers sparseValues(const ModelSource& source, const GltfData& data, const GltfAccessor& accessor) {
    const GltfSparse& sparse = *accessor.sparse;
    GltfNumbers values =
        numbersIn(source, data, sparse.valueView, sparse.valueOffset, accessor.bytes(), accessor.type);
    values.normalized = accessor.normalized;
    return values;
}

} // namespace

template<typename Number>
std::vector<Number> decodeNumbers(const GltfNumbers& numbers, std::size_t count, std::size_t take) {
    if (std::is_same_v<Number, float> && numbers.type == kel::mesh::FLOAT &&
        numbers.step == take * sizeof(float))
        return copied<Number>(numbers.from, count * take);
    std::vector<Number> result(count * take);
    switch (numbers.type) {
    case kel::mesh::BYTE:
        convertComponents<std::int8_t>(numbers, count, take, result.data());
        break;
    case kel::mesh::UNSIGNED_BYTE:
        convertComponents<std::uint8_t>(numbers, count, take, result.data());
        break;
    case kel::mesh::SHORT:
        convertComponents<std::int16_t>(numbers, count, take, result.data());
        break;
    case kel::mesh::UNSIGNED_SHORT:
        convertComponents<std::uint16_t>(numbers, count, take, result.data());
        break;
    case kel::mesh::INT:
        convertComponents<std::int32_t>(numbers, count, take, result.data());
        break;
    case kel::mesh::UNSIGNED_INT:
        convertComponents<std::uint32_t>(numbers, count, take, result.data());
        break;
    case kel::mesh::FLOAT:
        convertComponents<float>(numbers, count, take, result.data());
        break;
    }
    return result;
}

template<typename Number>
std::vector<Number> readNumbers(const ModelSource& source, const GltfData& data, std::size_t index,
                                std::size_t take, std::size_t first) {
    const GltfAccessor& accessor = data.accessors[index];
    const auto count = static_cast<std::size_t>(accessor.count);
    const std::size_t skipped = first * bytesOfComponent(accessor.type);
    std::vector<Number> result;
    if (accessor.view) {
        GltfNumbers numbers = elementsOf(source, data, accessor);
        numbers.from += skipped;
        result = decodeNumbers<Number>(numbers, count, take);
    } else {
        checkZeros(source, data, index);
        result.resize(count * take);
    }
    if (!accessor.sparse) return result;
    GltfNumbers numbers = sparseValues(source, data, accessor);
    numbers.from += skipped;
    const std::vector<Number> values =
        decodeNumbers<Number>(numbers, static_cast<std::size_t>(accessor.sparse->count), take);
    forEachSparse(source, data, index, [&](std::size_t element, std::size_t i) {
        std::copy_n(values.begin() + static_cast<std::ptrdiff_t>(i * take), take,
                    result.begin() + static_cast<std::ptrdiff_t>(element * take));
    });
    return result;
}

template std::vector<float> decodeNumbers(const GltfNumbers&, std::size_t, std::size_t);
template std::vector<double> decodeNumbers(const GltfNumbers&, std::size_t, std::size_t);
template std::vector<float> readNumbers(const ModelSource&, const GltfData&, std::size_t, std::size_t,
                                        std::size_t);
template std::vector<double> readNumbers(const ModelSource&, const GltfData&, std::size_t, std::size_t,
                                         std::size_t);

std::vector<std::uint32_t> readIndices(const ModelSource& source, const GltfData& data, std::size_t index,
                                       std::size_t vertices, const GltfPlace& place) {
    const GltfAccessor& accessor = data.accessors[index];
    const auto count = static_cast<std::size_t>(accessor.count);
    std::vector<std::uint32_t> indices;
    if (accessor.view) {
        indices = decodeIndices(elementsOf(source, data, accessor), count);
    } else {
        checkZeros(source, data, index);
        indices.resize(count);
    }
    if (accessor.sparse) {
        const std::vector<std::uint32_t> values = decodeIndices(
            sparseValues(source, data, accessor), static_cast<std::size_t>(accessor.sparse->count));
        forEachSparse(source, data, index,
                      [&](std::size_t element, std::size_t i) { indices[element] = values[i]; });
    }
    std::uint32_t largest = 0; // of all, which the compiler makes fast; only a bad one is looked for
    for (const std::uint32_t corner : indices)
        largest = std::max(largest, corner);
    if (!indices.empty() && largest >= vertices) {
        const auto bad = std::find_if(indices.begin(), indices.end(),
                                      [&](std::uint32_t corner) { return corner >= vertices; });
        refuseGltf(source, ImportCode::INDEX_OUT_OF_RANGE,
                   "index " + std::to_string(bad - indices.begin()) + " is " + std::to_string(*bad) +
                       ", but there are only " + std::to_string(vertices) + " vertices",
                   GltfPlace(&place, "indices").text());
    }
    return indices;
}

} // namespace kel::importer::detail
