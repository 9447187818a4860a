#include <kel/src/SrcDecode.h>
#include <kel/src/format/ElementTypes.h>
#include <kel/src/reader/FileData_p.h>

#include <cstring>

namespace kel::src {

namespace {

template<typename T>
double load(const unsigned char* at) {
    T code;
    std::memcpy(&code, at, sizeof code);
    return static_cast<double>(code);
}

/// A code in a slot of three bytes.
struct WideCode {
    unsigned char bytes[format::WIDE_CODE_BYTES];

    explicit operator double() const { return bytes[0] | bytes[1] << 8 | bytes[2] << 16; }
};

/// Elements of C components. Sums and quotients in double: the codes of 32 bits and the offsets of small
/// boxes far from the origin need it.
template<typename T, std::size_t C, typename Number>
void decodeElements(const unsigned char* source, std::size_t stride, std::size_t count, const double* offset,
                    const double* scale, Number* target) {
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
                codes[g * C + c] = load<T>(source + (e + g) * stride + c * sizeof(T));
        for (std::size_t i = 0; i < GROUP * C; ++i)
            target[e * C + i] = static_cast<Number>((codes[i] + groupOffset[i]) / groupScale[i]);
    }
    for (; e < count; ++e)
        for (std::size_t c = 0; c < C; ++c)
            target[e * C + c] =
                static_cast<Number>((load<T>(source + e * stride + c * sizeof(T)) + offset[c]) / scale[c]);
}

template<typename T, typename Number>
void decodeComponents(const unsigned char* source, const SrcAttributeView& view, std::size_t count,
                      Number* target) {
    const auto decode = view.components == 1   ? decodeElements<T, 1, Number>
                        : view.components == 2 ? decodeElements<T, 2, Number>
                        : view.components == 3 ? decodeElements<T, 3, Number>
                                               : decodeElements<T, 4, Number>;
    decode(source, static_cast<std::size_t>(view.byteStride), count, view.decodeOffset.data(),
           view.decodeScale.data(), target);
}

/// Decoders of a run of elements.
template<typename Number>
using Decode = void (*)(const unsigned char* source, const SrcAttributeView& view, std::size_t count,
                        Number* target);

template<typename Number>
Decode<Number> decoderFor(const SrcAttributeView& view) {
    // In the order of the component types' codes.
    static constexpr Decode<Number> DECODE[] = {
        decodeComponents<std::int8_t, Number>,  decodeComponents<std::uint8_t, Number>,
        decodeComponents<std::int16_t, Number>, decodeComponents<std::uint16_t, Number>,
        decodeComponents<std::int32_t, Number>, decodeComponents<std::uint32_t, Number>,
        decodeComponents<float, Number>};
    return view.componentBytes == format::WIDE_CODE_BYTES
               ? decodeComponents<WideCode, Number>
               : DECODE[view.componentType - format::FIRST_COMPONENT_TYPE];
}

template<typename Number>
void decodeRuns(const SrcFile& file, const SrcAttributeView& view, Number* target) {
    const auto decode = decoderFor<Number>(view);
    detail::forEachRun(file, view, [&](const unsigned char* source, std::uint64_t first, std::size_t count) {
        decode(source, view, count, target + first * view.components);
    });
}

template<typename Index>
void widen(const unsigned char* source, std::size_t count, std::uint32_t* target) {
    for (std::size_t i = 0; i < count; ++i) {
        Index index;
        std::memcpy(&index, source + i * sizeof index, sizeof index);
        target[i] = index;
    }
}

} // namespace

void decodeAttribute(const SrcFile& file, const SrcAttributeView& view, float* target) {
    if (view.componentType == kel::mesh::FLOAT && !view.decoded)
        return detail::copyElements(file, view, target);
    decodeRuns(file, view, target);
}

void decodeAttribute(const SrcFile& file, const SrcAttributeView& view, double* target) {
    decodeRuns(file, view, target);
}

std::vector<float> decodeAttribute(const SrcFile& file, const SrcAttributeView& view) {
    std::vector<float> values(static_cast<std::size_t>(view.count) * view.components);
    decodeAttribute(file, view, values.data());
    return values;
}

void decodeIndices(const SrcFile& file, const SrcIndexView& view, std::uint32_t* target) {
    const std::size_t size = kel::mesh::getComponentSizeInBytes(view.componentType);
    const auto read = size == 1   ? widen<std::uint8_t>
                      : size == 2 ? widen<std::uint16_t>
                                  : widen<std::uint32_t>;
    detail::forEachRun(file, view, [&](const unsigned char* source, std::uint64_t first, std::size_t count) {
        read(source, count, target + first);
    });
}

std::vector<std::uint32_t> decodeIndices(const SrcFile& file, const SrcIndexView& view) {
    std::vector<std::uint32_t> indices(static_cast<std::size_t>(view.count));
    decodeIndices(file, view, indices.data());
    return indices;
}

} // namespace kel::src
