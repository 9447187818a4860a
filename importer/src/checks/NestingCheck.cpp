#include "Checks.h"

namespace kel::importer::detail {

namespace {

constexpr std::size_t DEEPEST = 1000;

[[noreturn]] void refuse(const ModelSource& source, std::size_t line) {
    source.refuse(ImportCode::TOO_DEEP,
                  "its elements are nested more than " + std::to_string(DEEPEST) + " deep",
                  "line " + std::to_string(line));
}

/// How deep the elements of an XML text are nested, as far as it has come.
class XmlDepth {
public:
    std::size_t add(char c) {
        switch (state) {
        case State::TEXT:
            if (c == '<') state = State::OPENED;
            break;
        case State::OPENED:
            closes = c == '/';
            state = closes || (c != '!' && c != '?') ? State::TAG : State::ASIDE;
            break;
        case State::TAG:
            if (quote != 0) {
                if (c == quote) quote = 0;
            } else if (c == '"' || c == '\'') {
                quote = c;
            } else if (c == '>') {
                if (closes) {
                    depth -= depth > 0;
                } else if (last != '/') {
                    ++depth;
                }
                state = State::TEXT;
            }
            break;
        case State::ASIDE: // a comment or the like; a ">" within it only miscounts towards less depth
            if (c == '>') state = State::TEXT;
            break;
        }
        last = c;
        return depth;
    }

private:
    enum class State { TEXT, OPENED, TAG, ASIDE };
    State state = State::TEXT;
    bool closes = false;
    char quote = 0;
    char last = 0;
    std::size_t depth = 0;
};

/// Finds what is no number in an index list of COLLADA: the reader never gets past it and takes memory until
/// none is left.
class IndexLists {
public:
    /// False at the first character that does not belong.
    bool add(char c) {
        if (c == '<') {
            tag.clear();
            inTag = true;
        } else if (inTag) {
            if (c == '>') {
                inTag = false;
                inList = tag == "p" || tag == "v" || tag == "vcount" || tag == "h";
            } else if (tag.size() < 8) {
                tag += c;
            }
        } else if (inList) {
            return (c >= '0' && c <= '9') || c == ' ' || c == '\n' || c == '\r' || c == '\t' || c == '-' ||
                   c == '+';
        }
        return true;
    }

private:
    std::string tag;
    bool inTag = false;
    bool inList = false;
};

} // namespace

void checkNesting(const ModelSource& source, const Content& content, bool xml) {
    constexpr std::size_t BLOCK = 256 * 1024;
    XmlDepth elements;
    IndexLists lists;
    const bool collada = xml && source.extension() == "dae";
    std::size_t braces = 0;
    std::size_t line = 1;
    for (std::uint64_t offset = 0; offset < content.size(); offset += BLOCK) {
        const std::string block = content.text(offset, BLOCK);
        if (!xml && offset == 0 && block.find('\0') != std::string::npos) return; // no text
        for (const char c : block) {
            line += c == '\n';
            if (collada && !lists.add(c))
                source.refuse(ImportCode::INVALID_MODEL,
                              "a list of indices holds something else than whole numbers",
                              "line " + std::to_string(line));
            if (xml) {
                if (elements.add(c) > DEEPEST) refuse(source, line);
            } else if (c == '{') {
                if (++braces > DEEPEST) refuse(source, line);
            } else if (c == '}') {
                braces -= braces > 0;
            }
        }
    }
}

} // namespace kel::importer::detail
