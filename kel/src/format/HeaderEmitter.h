#pragma once

#include <kel/src/format/ElementTypes.h>
#include <kel/src/format/FileLayout.h>
#include <kel/src/text/JsonWriter.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

/// The text of a header, for both writers: where their bytes agree, they come from here. Keys stand in ascending
/// byte order on every level.
namespace kel::src::format {

/// A key as it stands in a header behind another character, joined when the program is compiled.
template<char Before, const std::string_view& Key>
constexpr std::array<char, Key.size() + 4> joinKey() {
    std::array<char, Key.size() + 4> text{};
    text[0] = Before;
    text[1] = '"';
    for (std::size_t i = 0; i < Key.size(); ++i)
        text[i + 2] = Key[i];
    text[Key.size() + 2] = '"';
    text[Key.size() + 3] = ':';
    return text;
}
template<char Before, const std::string_view& Key>
inline constexpr auto KEY_TEXT = joinKey<Before, Key>();

/// `{"count":`
template<const std::string_view& Key>
inline constexpr std::string_view FIRST_KEY{KEY_TEXT<'{', Key>.data(), KEY_TEXT<'{', Key>.size()};
/// `,"count":`
template<const std::string_view& Key>
inline constexpr std::string_view NEXT_KEY{KEY_TEXT<',', Key>.data(), KEY_TEXT<',', Key>.size()};

/// Calls visit(i) for i = 0 .. count - 1 in the byte order of their decimal texts: 0, 1, 10, 100, ..., 11,
/// ..., 2.
template<typename Visit>
void inTextOrder(std::size_t count, Visit visit) {
    if (count == 0) return;
    visit(std::size_t(0));
    std::size_t n = 1;
    for (std::size_t visited = 1; visited < count; ++visited) {
        visit(n);
        if (n * 10 < count) {
            n *= 10;
        } else {
            if (n + 1 >= count) n /= 10;
            ++n;
            while (n % 10 == 0)
                n /= 10;
        }
    }
}

/// A key that sorts numbers as their decimal texts sort: the digits from the left, and then how many they are.
inline std::pair<std::uint64_t, std::uint32_t> textOrderOf(std::uint32_t number) {
    constexpr std::uint64_t TEN_DIGITS_END = 10000000000;
    if (number == 0) return {0, 1};
    std::uint64_t digits = number;
    std::uint32_t length = 10;
    for (; 10 * digits < TEN_DIGITS_END; digits *= 10)
        --length;
    return {digits, length};
}

/// The rule for a header's numbers that both writers follow today.
struct SeventeenDigits {
    static void append(std::string& text, double number) { text::appendJsonNumber(text, number); }
};

/// The entries that hold numbers with fractions. They are appended to a string.
///
/// Numbers  has append(std::string&, double), the rule for numbers
template<typename Numbers>
struct HeaderEntries {
    template<typename Number>
    static void numbers(std::string& text, std::string_view key, const Number* values, std::size_t count) {
        text::appendArrayMember(text, key, values, count, Numbers::append);
    }

    /// `,"decodeOffset":[..],"decodeScale":[..]`
    static void decodeVectors(std::string& text, const double* offset, const double* scale,
                              std::size_t components) {
        numbers(text, NEXT_KEY<key::DECODE_OFFSET>, offset, components);
        numbers(text, NEXT_KEY<key::DECODE_SCALE>, scale, components);
    }

    /// A mesh up to and with the key of its material.
    ///
    /// attributes           pairs of a name and a view, in ascending order of the names
    /// appendView           appends a view's ID in quotes: (text, view)
    /// bboxCenter, bboxSize three numbers each; null leaves the key out
    /// appendIndexView      appends the ID of the index view in quotes: (text)
    template<typename Attributes, typename AppendView, typename Number, typename AppendIndexView>
    static void meshHead(std::string& text, const Attributes& attributes, const AppendView& appendView,
                         const Number* bboxCenter, const Number* bboxSize,
                         const AppendIndexView& appendIndexView) {
        text += FIRST_KEY<key::ATTRIBUTES>;
        text::appendSeparated(text, "{}", attributes, [&](const auto& attribute) {
            text::appendJsonString(text, attribute.first);
            text += ':';
            appendView(text, attribute.second);
        });
        if (bboxCenter) numbers(text, NEXT_KEY<key::BBOX_CENTER>, bboxCenter, 3);
        if (bboxSize) numbers(text, NEXT_KEY<key::BBOX_SIZE>, bboxSize, 3);
        text += NEXT_KEY<key::INDICES>;
        appendIndexView(text);
        text += NEXT_KEY<key::MATERIAL>;
    }

    /// appendValues  appends the object of the values: (text)
    template<typename AppendValues>
    static void material(std::string& text, std::string_view techniqueId, const AppendValues& appendValues) {
        text += FIRST_KEY<key::INSTANCE_TECHNIQUE>;
        text += FIRST_KEY<key::TECHNIQUE>;
        text::appendJsonString(text, techniqueId);
        text += NEXT_KEY<key::VALUES>;
        appendValues(text);
        text += "}}";
    }

    /// appendParameters  appends the object of the parameters: (text)
    template<typename AppendParameters>
    static void technique(std::string& text, const AppendParameters& appendParameters) {
        text += FIRST_KEY<key::PARAMETERS>;
        appendParameters(text);
        text += '}';
    }
};

/// What a view states besides its buffer view.
struct ViewNumbers {
    std::uint64_t byteOffset, byteStride; ///< an index view has no stride
    std::uint64_t count;
    std::uint32_t componentType; ///< WebGL code
    std::uint32_t components;    ///< 1 to 4
};

/// The header's frame and the entries of whole numbers.
///
/// Sink     has append(std::string_view), append(char) and appendNumber(std::uint64_t)
/// Numbers  the rule for numbers from 2^53 on, which a header's doubles do not hold exactly
template<typename Sink, typename Numbers>
class HeaderEmitter {
public:
    explicit HeaderEmitter(Sink& sink) : sink(sink) {}

    /// The whole header. Each section emits what stands between its braces, once; `meta` emits them, too.
    template<typename AttributeViews, typename IndexViews, typename BufferChunks, typename BufferViews,
             typename Materials, typename Meshes, typename Meta, typename Techniques>
    void header(const AttributeViews& attributeViews, const IndexViews& indexViews,
                const BufferChunks& bufferChunks, const BufferViews& bufferViews, const Materials& materials,
                const Meshes& meshes, const Meta& meta, const Techniques& techniques) {
        sink.append(FIRST_KEY<section::ACCESSORS>);
        object(FIRST_KEY<section::ATTRIBUTE_VIEWS>, attributeViews);
        object(NEXT_KEY<section::INDEX_VIEWS>, indexViews);
        sink.append('}');
        object(NEXT_KEY<section::BUFFER_CHUNKS>, bufferChunks);
        object(NEXT_KEY<section::BUFFER_VIEWS>, bufferViews);
        object(NEXT_KEY<section::MATERIALS>, materials);
        object(NEXT_KEY<section::MESHES>, meshes);
        sink.append(NEXT_KEY<section::META>);
        meta();
        object(NEXT_KEY<section::TECHNIQUES>, techniques);
        object(NEXT_KEY<section::TEXTURE_VIEWS>, [] {});
        object(NEXT_KEY<section::TEXTURES>, [] {});
        sink.append('}');
    }

    /// Entries called after a prefix and a number. `forEach` calls back with each number, in the byte order of
    /// the numbers' decimal texts, and with what `emitEntry` then takes.
    template<typename ForEach, typename EmitEntry>
    void numbered(std::string_view prefix, const ForEach& forEach, const EmitEntry& emitEntry) {
        bool first = true;
        forEach([&](std::uint64_t number, const auto&... entry) {
            sink.append(first ? std::string_view("\"") : std::string_view(",\""));
            first = false;
            sink.append(prefix);
            sink.appendNumber(number);
            sink.append(std::string_view("\":"));
            emitEntry(entry...);
        });
    }

    /// An entry's ID and the colon, behind a comma where it is not the first.
    void entryId(bool& first, std::string_view id) {
        scratch = first ? "" : ",";
        first = false;
        text::appendJsonString(scratch, id);
        scratch += ':';
        sink.append(std::string_view(scratch));
    }

    /// `"prefix12"`
    void id(std::string_view prefix, std::uint64_t number) {
        sink.append('"');
        sink.append(prefix);
        sink.appendNumber(number);
        sink.append('"');
    }

    /// emitBufferView  emits the ID of the buffer view in quotes
    /// decodeVectors   text as HeaderEntries::decodeVectors makes it
    template<typename EmitBufferView>
    void attributeView(const EmitBufferView& emitBufferView, const ViewNumbers& view,
                       std::string_view decodeVectors) {
        sink.append(FIRST_KEY<key::BUFFER_VIEW>);
        emitBufferView();
        number(NEXT_KEY<key::BYTE_OFFSET>, view.byteOffset);
        number(NEXT_KEY<key::BYTE_STRIDE>, view.byteStride);
        number(NEXT_KEY<key::COMPONENT_TYPE>, view.componentType);
        number(NEXT_KEY<key::COUNT>, view.count);
        sink.append(decodeVectors);
        sink.append(NEXT_KEY<key::TYPE>);
        sink.append('"');
        sink.append(ELEMENT_TYPES[view.components - 1]);
        sink.append(std::string_view("\"}"));
    }

    template<typename EmitBufferView>
    void indexView(const EmitBufferView& emitBufferView, const ViewNumbers& view) {
        sink.append(FIRST_KEY<key::BUFFER_VIEW>);
        emitBufferView();
        number(NEXT_KEY<key::BYTE_OFFSET>, view.byteOffset);
        number(NEXT_KEY<key::COMPONENT_TYPE>, view.componentType);
        number(NEXT_KEY<key::COUNT>, view.count);
        sink.append('}');
    }

    void chunk(std::uint64_t byteLength, std::uint64_t byteOffset) {
        number(FIRST_KEY<key::BYTE_LENGTH>, byteLength);
        number(NEXT_KEY<key::BYTE_OFFSET>, byteOffset);
        sink.append('}');
    }

    /// A buffer view whose chunks have consecutive numbers, which go on with 0 behind the largest of 32 bits.
    void bufferView(std::uint64_t byteLength, std::uint32_t firstChunk, std::uint32_t chunkCount) {
        number(FIRST_KEY<key::BYTE_LENGTH>, byteLength);
        sink.append(NEXT_KEY<key::CHUNKS>);
        sink.append('[');
        for (std::uint32_t i = 0; i < chunkCount; ++i) {
            if (i != 0) sink.append(',');
            id(id_prefix::CHUNK, std::uint32_t(firstChunk + i));
        }
        sink.append(std::string_view("]}"));
    }

    /// What follows a mesh's material.
    ///
    /// emitMeta  emits the object of the metadata; not called without `hasMeta`
    template<typename EmitMeta>
    void meshTail(bool hasMeta, const EmitMeta& emitMeta, std::uint32_t primitive) {
        if (hasMeta) {
            sink.append(NEXT_KEY<key::META>);
            emitMeta();
        }
        number(NEXT_KEY<key::PRIMITIVE>, primitive);
        sink.append('}');
    }

private:
    template<typename EmitMembers>
    void object(std::string_view key, const EmitMembers& emitMembers) {
        sink.append(key);
        sink.append('{');
        emitMembers();
        sink.append('}');
    }

    [[gnu::always_inline]] void number(std::string_view key, std::uint64_t value) {
        sink.append(key);
        number(value);
    }
    void number(std::uint64_t value) {
        if (value < std::uint64_t(1) << 53) {
            sink.appendNumber(value);
        } else {
            scratch.clear();
            Numbers::append(scratch, static_cast<double>(value));
            sink.append(std::string_view(scratch));
        }
    }

    Sink& sink;
    std::string scratch;
};

} // namespace kel::src::format
