#include "PlyHeader.h"

#include "../text/TextCursor.h"

#include <algorithm>
#include <utility>

namespace kel::importer::detail {

namespace {

const char* const DAMAGED = "the file is cut off or its header damaged; export or download it again";

struct TypeName {
    const char* name;
    PlyType type;
};
const TypeName TYPE_NAMES[] = {
    {"char", PlyType::INT8},     {"uchar", PlyType::UINT8},   {"int8", PlyType::INT8},
    {"uint8", PlyType::UINT8},   {"short", PlyType::INT16},   {"ushort", PlyType::UINT16},
    {"int16", PlyType::INT16},   {"uint16", PlyType::UINT16}, {"int", PlyType::INT32},
    {"uint", PlyType::UINT32},   {"int32", PlyType::INT32},   {"uint32", PlyType::UINT32},
    {"float", PlyType::FLOAT},   {"float32", PlyType::FLOAT}, {"double", PlyType::DOUBLE},
    {"float64", PlyType::DOUBLE}};

class HeaderReader {
public:
    HeaderReader(const ModelSource& source, const Content& content)
        : source(source), content(content), cursor(content.data(), content.data() + content.size(), source) {}

    PlyHeader read() {
        cursor.skipLine(); // "ply", as has been seen
        bool ended = false;
        bool isKnown = false;
        for (; !ended && !cursor.atEnd(); cursor.skipLine()) {
            const std::string keyword = smallLetters(std::string(cursor.word()));
            if (keyword == "format") {
                isKnown = readFormat();
            } else if (keyword == "element") {
                addElement();
            } else if (keyword == "property") {
                addProperty();
            } else if (keyword == "comment") {
                addComment();
            }
            ended = keyword == "end_header";
        }
        if (!ended) refuse(ImportCode::TRUNCATED, "the header has no end");
        if (!isKnown) refuse(ImportCode::INVALID_MODEL, "the header states no format");
        header.size = cursor.offset();
        checkCounts();
        return std::move(header);
    }

private:
    const ModelSource& source;
    const Content& content;
    TextCursor cursor;
    PlyHeader header;

    [[noreturn]] void refuse(ImportCode code, const std::string& what) const {
        source.refuse(code, what, cursor.place(), DAMAGED);
    }

    bool readFormat() {
        const std::string format = smallLetters(std::string(cursor.word()));
        header.isText = format == "ascii";
        header.isBigEndian = format == "binary_big_endian";
        if (!header.isText && !header.isBigEndian && format != "binary_little_endian")
            refuse(ImportCode::INVALID_MODEL, "there is no format \"" + format.substr(0, 40) + "\"");
        return true;
    }

    void addElement() {
        PlyElement& element = header.elements.emplace_back();
        element.name = smallLetters(std::string(cursor.word()));
        const std::string_view count = cursor.word();
        if (count.empty() || count.find_first_not_of("0123456789") != std::string_view::npos)
            refuse(ImportCode::INVALID_MODEL, "the count of an element is not a number");
        // More digits than any file has bytes are as good as the largest number.
        element.count = 1000000000000000000u;
        if (count.size() <= 18) std::from_chars(count.data(), count.data() + count.size(), element.count);
    }

    PlyType type() {
        const std::string name = smallLetters(std::string(cursor.word()));
        for (const TypeName& known : TYPE_NAMES) {
            if (name == known.name) return known.type;
        }
        refuse(ImportCode::INVALID_MODEL, "there is no type \"" + name.substr(0, 40) + "\"");
    }

    void addProperty() {
        if (header.elements.empty())
            refuse(ImportCode::INVALID_MODEL, "a property stands before any element");
        PlyProperty property{};
        const std::size_t start = cursor.offset();
        if (smallLetters(std::string(cursor.word())) == "list") {
            property.countType = type();
            if (isFloating(*property.countType))
                refuse(ImportCode::INVALID_MODEL, "the count of a list is no whole number");
        } else {
            cursor.moveTo(start);
        }
        property.type = type();
        property.name = smallLetters(std::string(cursor.word()));
        header.elements.back().properties.push_back(std::move(property));
    }

    void addComment() {
        if (smallLetters(std::string(cursor.word())) != "texturefile") return;
        const std::string_view name = cursor.restOfLine();
        if (!name.empty()) header.textures.emplace_back(name);
    }

    void checkCounts() const {
        std::uint64_t room = content.size() - header.size;
        for (const PlyElement& element : header.elements) {
            const std::uint64_t bytes = element.smallestSize(header.isText);
            if (bytes == 0) continue; // takes nothing and says nothing
            // The last line may lack its end.
            const std::uint64_t fits = (room + (header.isText ? 1 : 0)) / bytes;
            if (element.count > fits) {
                source.refuse(ImportCode::IMPOSSIBLE_COUNT,
                              "the header announces " + std::to_string(element.count) + " elements \"" +
                                  element.name + "\", the file has room for " + std::to_string(fits) +
                                  " at most",
                              "header");
            }
            room -= std::min(room, element.count * bytes);
        }
    }
};

} // namespace

std::size_t sizeOf(PlyType type) {
    switch (type) {
    case PlyType::INT8:
    case PlyType::UINT8:
        return 1;
    case PlyType::INT16:
    case PlyType::UINT16:
        return 2;
    case PlyType::DOUBLE:
        return 8;
    default:
        return 4;
    }
}

std::uint64_t PlyElement::smallestSize(bool isText) const {
    std::uint64_t size = 0;
    for (const PlyProperty& property : properties) {
        if (!isText) {
            size += sizeOf(property.countType.value_or(property.type));
        } else if (!property.countType || &property == properties.data()) {
            size += 2; // a digit and what ends it; lists further on may be missing
        }
    }
    return size;
}

PlyHeader readPlyHeader(const ModelSource& source, const Content& content) {
    return HeaderReader(source, content).read();
}

} // namespace kel::importer::detail
