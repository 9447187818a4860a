#pragma once

#include "../text/TextCursor.h"
#include "PlyHeader.h"

#include <vector>

namespace kel::importer::detail {

/// One element's values, in the order of its properties. Doubles hold every type there is.
struct PlyRow {
    std::vector<double> numbers;            ///< 0 for lists
    std::vector<std::vector<double>> lists; ///< empty for what is no list
};

/// Hands out the elements of a PLY file one by one, whatever the encoding. In a text every element begins on
/// a line of its own; where one announces a list that its line does not have, as some programs do, the list
/// is empty.
class PlyRows {
public:
    PlyRows(const ModelSource& source, const Content& content, const PlyHeader& header);

    /// The next element, which is one of these.
    ///
    /// throws  ImportError
    void read(const PlyElement& element, PlyRow& row);
    /// Lines of text with more than the properties of their element.
    std::size_t linesWithMore() const { return longLines; }
    /// How much of the file has been read, 0 to 1.
    double done() const { return static_cast<double>(cursor.offset()) / static_cast<double>(size); }
    /// The element read last, for messages.
    std::string place() const;

private:
    const ModelSource& source;
    const PlyHeader& header;
    const char* bytes;
    std::size_t size;
    TextCursor cursor;
    const PlyElement* element = nullptr;
    std::size_t longLines = 0;
    std::uint64_t number = 0; ///< of the element read last, among its kind

    /// Whether a line of text has ended.
    bool atLineEnd();
    double value(PlyType type);
    double binaryValue(PlyType type);
    template<typename Number>
    double binaryNumber();
    std::size_t listLength(const PlyProperty& property);
    [[noreturn]] void refuseTruncated() const;
};

} // namespace kel::importer::detail
