#include "PlyRows.h"

#include <algorithm>
#include <cstring>

namespace kel::importer::detail {

PlyRows::PlyRows(const ModelSource& source, const Content& content, const PlyHeader& header)
    : source(source), header(header), bytes(content.data()), size(content.size()),
      cursor(content.data(), content.data() + content.size(), source) {
    cursor.moveTo(header.size);
}

void PlyRows::read(const PlyElement& next, PlyRow& row) {
    number = element == &next ? number + 1 : 0;
    element = &next;
    row.numbers.resize(next.properties.size());
    row.lists.resize(next.properties.size());
    if (header.isText) cursor.skipSpace();
    for (std::size_t p = 0; p < next.properties.size(); ++p) {
        const PlyProperty& property = next.properties[p];
        if (!property.countType) {
            row.numbers[p] = value(property.type);
            continue;
        }
        const bool isMissing = p > 0 && atLineEnd();
        row.lists[p].resize(isMissing ? 0 : listLength(property));
        for (double& item : row.lists[p])
            item = value(property.type);
    }
    if (!header.isText) return;
    longLines += !atLineEnd();
    cursor.skipLine();
}

bool PlyRows::atLineEnd() {
    if (!header.isText) return false;
    cursor.skipBlanks();
    return cursor.atEnd() || cursor.peek() == '\n';
}

std::string PlyRows::place() const {
    return header.isText ? cursor.place()
                         : "element \"" + element->name + "\" " + std::to_string(number) + ", byte " +
                               std::to_string(cursor.offset());
}

double PlyRows::value(PlyType type) {
    if (!header.isText) return binaryValue(type);
    cursor.skipSpace();
    if (cursor.atEnd()) refuseTruncated();
    return cursor.number<double>();
}

double PlyRows::binaryValue(PlyType type) {
    switch (type) {
    case PlyType::INT8:
        return binaryNumber<std::int8_t>();
    case PlyType::UINT8:
        return binaryNumber<std::uint8_t>();
    case PlyType::INT16:
        return binaryNumber<std::int16_t>();
    case PlyType::UINT16:
        return binaryNumber<std::uint16_t>();
    case PlyType::INT32:
        return binaryNumber<std::int32_t>();
    case PlyType::UINT32:
        return binaryNumber<std::uint32_t>();
    case PlyType::FLOAT:
        return binaryNumber<float>();
    default:
        return binaryNumber<double>();
    }
}

template<typename Number>
double PlyRows::binaryNumber() {
    const std::size_t offset = cursor.offset();
    if (size - offset < sizeof(Number)) refuseTruncated();
    char raw[sizeof(Number)];
    std::memcpy(raw, bytes + offset, sizeof raw);
    if (header.isBigEndian) std::reverse(raw, raw + sizeof raw);
    Number number;
    std::memcpy(&number, raw, sizeof raw);
    cursor.moveTo(offset + sizeof raw);
    return static_cast<double>(number);
}

std::size_t PlyRows::listLength(const PlyProperty& property) {
    const double length = value(*property.countType);
    if (!(length >= 0.0) || length != std::floor(length))
        source.refuse(ImportCode::INVALID_MODEL, "the length of a list is no whole number", place());
    const std::size_t room = (size - cursor.offset()) / (header.isText ? 2 : sizeOf(property.type));
    if (length > static_cast<double>(room))
        source.refuse(ImportCode::IMPOSSIBLE_COUNT,
                      "a list announces more entries than the " + std::to_string(room) +
                          " that the file has room for",
                      place());
    return static_cast<std::size_t>(length);
}

void PlyRows::refuseTruncated() const {
    source.refuse(ImportCode::TRUNCATED,
                  "the header announces " + std::to_string(element->count) + " elements \"" + element->name +
                      "\", the file has " + std::to_string(number),
                  place());
}

} // namespace kel::importer::detail
