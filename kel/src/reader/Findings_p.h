#pragma once

#include <kel/src/SrcFile.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace kel::src::detail {

/// Where findings go. The reader throws the first one that it refuses; the validator keeps them all.
class FindingSink {
public:
    virtual ~FindingSink() = default;
    /// offset  from the file's first byte, or SrcError::NO_OFFSET
    /// path    the place in the header as a JSON pointer; may be empty
    /// detail  what was found there; may be empty
    virtual void report(SrcCode code, std::uint64_t offset, std::string path, std::string detail) = 0;
    /// False lets a check leave out what the reader does not need to know.
    virtual bool wantsAll() const = 0;
};

/// The sink of the reader: throws SrcError for what the reader refuses, and drops the rest.
class ThrowingSink final : public FindingSink {
public:
    void report(SrcCode code, std::uint64_t offset, std::string path, std::string detail) override {
        if (infoOf(code).refused) throw SrcError(code, offset, std::move(path), std::move(detail));
    }
    bool wantsAll() const override { return false; }
};

/// A text of the file for a message: in quotes, and cut where it is long.
inline std::string quoted(std::string_view text) {
    constexpr std::size_t LONGEST = 80; // a message is for people
    return '"' + std::string(text.substr(0, LONGEST)) + (text.size() > LONGEST ? "\"..." : "\"");
}

} // namespace kel::src::detail
