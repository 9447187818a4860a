#pragma once

#include <kel/src/format/FileLayout.h>
#include <kel/src/reader/Findings_p.h>
#include <kel/src/reader/HeaderKeys_p.h>
#include <kel/src/reader/HeaderTables_p.h>
#include <kel/src/reader/JsonCursor_p.h>
#include <kel/src/text/JsonPointer.h>
#include <kel/src/text/JsonValues.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
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

    // ---- Places -----------------------------------------------------------------------------------------

    /// Enters a member of the object that the walk is in, for as long as it lives.
    struct Step {
        Step(HeaderWalk& walk, std::string_view key) : walk(walk) { walk.path[walk.steps++] = key; }
        ~Step() { --walk.steps; }
        Step(const Step&) = delete;
        Step& operator=(const Step&) = delete;
        HeaderWalk& walk;
    };

    void report(SrcCode code, std::string detail) { reportAt(code, in.position(), std::move(detail)); }
    /// position  in the header's text
    void reportAt(SrcCode code, std::size_t position, std::string detail) {
        sink.report(code, format::PREAMBLE_BYTES + position,
                    text::jsonPointer(std::vector<std::string_view>(path.begin(), path.begin() + steps)),
                    std::move(detail));
    }

    // ---- Limits -----------------------------------------------------------------------------------------

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

    // ---- Values -----------------------------------------------------------------------------------------

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
        reportAt(SrcCode::WRONG_TYPE, position, std::string("expected ") + what + ", found " + kindOf(first));
        return false;
    }

    bool takeText(std::string_view& text) {
        if (!expect(in.peek() == '"', "a text")) return false;
        text = meaning(in.rawString());
        return true;
    }

    bool takeCount(std::uint64_t& count) {
        if (!expect(numberIsNext(), "a number")) return false;
        const std::size_t position = in.position();
        const double value = in.number();
        if (!(value >= 0.0) || value >= static_cast<double>(COUNT_END) || std::floor(value) != value) {
            reportAt(SrcCode::BAD_NUMBER, position, "found " + std::to_string(value));
            return false;
        }
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
            if (!expect(numberIsNext(), "a number")) {
                good = false;
                return;
            }
            const std::size_t position = in.position();
            const double value = in.number();
            if (!std::isfinite(value)) {
                reportAt(SrcCode::BAD_NUMBER, position, "too large for a number");
                good = false;
            }
            if (count < N) numbers[count] = value;
            ++count;
        });
        return good;
    }

    /// The text of an object, whatever its members are.
    bool takeObject(std::string_view& text) {
        if (!expect(in.peek() == '{', "an object")) return false;
        text = in.skip();
        return true;
    }

    // ---- Objects ----------------------------------------------------------------------------------------

    /// Walks an object with the keys of `Keys`: `take(key)` consumes the value behind a key. Unknown keys are
    /// passed over. `seen` is filled with the keys that stood there.
    template<typename Keys, typename Take>
    bool takeEntry(KeySet& seen, Take&& take) {
        if (!expect(in.peek() == '{', "an object")) return false;
        in.object([&](std::string_view raw) {
            const std::string_view name = meaning(raw);
            const Step step(*this, name);
            const auto found = std::find(std::begin(Keys::NAMES), std::end(Keys::NAMES), name);
            if (found == std::end(Keys::NAMES)) {
                if (sink.wantsAll()) report(SrcCode::UNKNOWN_KEY, {});
                in.skip();
                return;
            }
            const auto key = static_cast<typename Keys::Key>(found - std::begin(Keys::NAMES));
            if (seen.has(key) && sink.wantsAll()) report(SrcCode::DUPLICATE_KEY, {});
            seen.add(key);
            take(key);
        });
        return true;
    }

    /// Reports the keys of `required` that are not in `seen`.
    template<typename Keys>
    bool require(KeySet seen, KeySet required, SrcCode code = SrcCode::MISSING_KEY) {
        if (seen.hasAll(required)) return true;
        for (std::uint32_t key = 0; key < std::size(Keys::NAMES); ++key) {
            if (!required.has(key) || seen.has(key)) continue;
            const Step step(*this, Keys::NAMES[key]);
            report(code, {});
        }
        return false;
    }

    JsonCursor in;
    const ReadLimits& limits;
    FindingSink& sink;
    HeaderTables& tables;

private:
    bool numberIsNext() const { return in.peek() == '-' || (in.peek() >= '0' && in.peek() <= '9'); }

    /// The kind of JSON value that begins with this character, for people.
    static const char* kindOf(char first) {
        switch (first) {
        case '{':
            return "an object";
        case '[':
            return "a list";
        case '"':
            return "a text";
        case 't':
        case 'f':
            return "true or false";
        case 'n':
            return "null";
        default:
            return "a number";
        }
    }

    std::uint64_t charged = 0;
    std::array<std::string_view, 8> path; // the walk goes no deeper by name; what it passes over is not named
    std::size_t steps = 0;
};

} // namespace kel::src::detail
