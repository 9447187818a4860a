#pragma once

#include <kel/src/format/FileLayout.h>
#include <kel/src/reader/HeaderTables_p.h>
#include <kel/src/reader/JsonCursor_p.h>
#include <kel/src/text/JsonPointer.h>
#include <kel/src/text/JsonValues.h>

#include <array>
#include <cmath>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

namespace kel::src::detail {

/// Thrown when a header asks for more than a limit allows, and that has been reported.
struct LimitReached {};

/// The mechanics of walking a header: where the walk stands, what it may take, and single values. What the
/// values mean is the business of whoever derives from it.
///
/// Each `take` consumes the value that is next. It returns false after a report, when the value is not of the
/// kind, and leaves the target as it is.
class HeaderWalk {
protected:
    HeaderWalk(std::string_view text, const ReadLimits& limits, FindingSink& sink, HeaderTables& tables)
        : in(text, limits.depth), limits(limits), sink(sink), tables(tables) {
        tables.text = text;
        charge(JsonCursor::memoryFor(text.size()));
    }

    /// Enters a member of the object that the walk is in, for as long as it lives.
    struct Step {
        Step(HeaderWalk& walk, std::string_view key) : walk(walk) { walk.path[walk.steps++] = key; }
        ~Step() { --walk.steps; }
        Step(const Step&) = delete;
        Step& operator=(const Step&) = delete;
        HeaderWalk& walk;
    };

    /// Both return false, for those who go on to say that something is not good.
    bool report(SrcCode code, std::string detail) { return reportAt(code, in.position(), std::move(detail)); }
    /// position  in the header's text
    bool reportAt(SrcCode code, std::size_t position, std::string detail) {
        sink.report(code, format::PREAMBLE_BYTES + position,
                    text::jsonPointer(std::vector<std::string_view>(path.begin(), path.begin() + steps)),
                    std::move(detail));
        return false;
    }

    [[noreturn]] void exceed(const std::string& what) {
        report(SrcCode::LIMIT_EXCEEDED, what);
        throw LimitReached();
    }
    void charge(std::uint64_t bytes) {
        if (bytes > limits.memoryBytes - charged)
            exceed("memoryBytes is " + std::to_string(limits.memoryBytes));
        charged += bytes;
    }
    /// Before an entry is added to a section that has `count`.
    void chargeEntry(std::size_t count, std::uint64_t bytes) {
        if (count >= limits.entries) exceed("entries is " + std::to_string(limits.entries));
        charge(bytes);
    }

    /// What a string means that stands like this between its quotes.
    std::string_view meaning(std::string_view raw) {
        if (raw.size() > limits.stringBytes)
            exceed("a name of " + std::to_string(raw.size()) + " bytes; stringBytes is " +
                   std::to_string(limits.stringBytes));
        if (text::isPlain(raw)) return raw;
        charge(raw.size() + sizeof(std::string));
        tables.unescaped.emplace_back();
        text::appendUnescaped(tables.unescaped.back(), raw);
        return tables.unescaped.back();
    }

    /// Passes over the value that is next and reports it, unless it is of the right kind.
    bool expect(bool isRight, const char* what) {
        if (isRight) return true;
        const std::size_t position = in.position();
        const char first = in.peek();
        in.skip(); // first, since it may be no value at all
        return reportAt(SrcCode::WRONG_TYPE, position,
                        std::string("expected ") + what + ", found " + kindOf(first));
    }

    bool take(std::string_view& text) {
        if (!expect(in.peek() == '"', "a text")) return false;
        text = meaning(in.rawString());
        return true;
    }

    bool take(std::uint64_t& count) {
        if (!expect(in.numberIsNext(), "a number")) return false;
        const std::size_t position = in.position();
        const double value = in.number();
        if (!(value >= 0.0) || value >= static_cast<double>(COUNT_END) || std::floor(value) != value)
            return reportAt(SrcCode::BAD_NUMBER, position, "found " + std::to_string(value));
        count = static_cast<std::uint64_t>(value);
        return true;
    }

    /// Up to N numbers; `count` says how many there were, which may be more.
    template<std::size_t N>
    bool takeNumbers(std::array<double, N>& numbers, std::size_t& count) {
        if (!expect(in.peek() == '[', "a list of numbers")) return false;
        bool good = true;
        count = 0;
        in.list([&] {
            const bool isNumber = expect(in.numberIsNext(), "a number");
            good &= isNumber;
            if (!isNumber) return;
            const std::size_t position = in.position();
            const double value = in.number();
            if (!std::isfinite(value))
                good = reportAt(SrcCode::BAD_NUMBER, position, "too large for a number");
            if (count < N) numbers[count] = value;
            ++count;
        });
        return good;
    }

    bool expectObject() { return expect(in.peek() == '{', "an object"); }

    /// The text of an object, whatever its members are.
    bool takeObjectText(std::string_view& text) {
        if (!expectObject()) return false;
        text = in.skip();
        return true;
    }

    /// One key of an object. The value behind it goes to `target`, a variable or a function that takes it.
    template<typename Target>
    struct Entry {
        std::string_view key;
        Target target;
        std::optional<SrcCode> missing; ///< what is reported where the key is missing
        bool seen = false;
    };
    template<typename Target>
    static Entry<Target> optional(std::string_view key, Target&& target) {
        return {key, std::forward<Target>(target), {}};
    }
    template<typename Target>
    static Entry<Target> required(std::string_view key, SrcCode missing, Target&& target) {
        return {key, std::forward<Target>(target), missing};
    }
    template<typename Target>
    static Entry<Target> required(std::string_view key, Target&& target) {
        return required(key, SrcCode::MISSING_KEY, std::forward<Target>(target));
    }

    /// Walks an object with these entries; other keys are passed over.
    ///
    /// behind   called where the object ends, before what is missing is reported
    /// returns  whether it is an object that lacks nothing, and all of its values are good
    template<typename Behind, typename... Entries>
    bool takeObjectAnd(Behind&& behind, Entries&&... entries) {
        if (!expectObject()) return false;
        bool good = true;
        in.object([&](std::string_view raw) {
            const std::string_view name = meaning(raw);
            const Step step(*this, name);
            if ((takeEntry(entries, name, good) || ...)) return;
            if (sink.wantsAll()) report(SrcCode::UNKNOWN_KEY, {});
            in.skip();
        });
        behind();
        (require(entries, good), ...);
        return good;
    }
    template<typename... Entries>
    bool takeObject(Entries&&... entries) {
        return takeObjectAnd([] {}, entries...);
    }

    JsonCursor in;
    const ReadLimits& limits;
    FindingSink& sink;
    HeaderTables& tables;

private:
    template<typename Target>
    bool takeEntry(Entry<Target>& entry, std::string_view name, bool& good) {
        if (entry.key != name) return false;
        if (entry.seen && sink.wantsAll()) report(SrcCode::DUPLICATE_KEY, {});
        entry.seen = true;
        if constexpr (std::is_invocable_v<Target&>) {
            good &= entry.target();
        } else {
            good &= take(entry.target);
        }
        return true;
    }

    template<typename Target>
    void require(const Entry<Target>& entry, bool& good) {
        if (entry.seen || !entry.missing) return;
        const Step step(*this, entry.key);
        good = report(*entry.missing, {});
    }

    /// The kind of JSON value that begins with this character, for people.
    static const char* kindOf(char first) {
        return first == '{'                   ? "an object"
               : first == '['                 ? "a list"
               : first == '"'                 ? "a text"
               : first == 't' || first == 'f' ? "true or false"
               : first == 'n'                 ? "null"
                                              : "a number";
    }

    std::uint64_t charged = 0;
    std::array<std::string_view, 8> path; // the walk goes no deeper by name; what it passes over is not named
    std::size_t steps = 0;
};

} // namespace kel::src::detail
