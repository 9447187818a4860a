#include <kel/src/reader/Findings_p.h>

#include <utility>

namespace kel::src {

namespace {

std::string messageOf(SrcCode code, std::uint64_t offset, const std::string& path,
                      const std::string& detail) {
    const SrcCodeInfo& info = infoOf(code);
    std::string text;
    if (!path.empty()) text += path + ": ";
    if (path.empty() && offset != SrcError::NO_OFFSET) text += "byte " + std::to_string(offset) + ": ";
    text += info.sentence;
    if (!detail.empty()) text += " (" + detail + ")";
    return text + " " + std::string(info.remedy);
}

} // namespace

SrcError::SrcError(SrcCode code, std::uint64_t byteOffset, std::string path, std::string detail)
    : std::runtime_error(messageOf(code, byteOffset, path, detail)), errorCode(code), offset(byteOffset),
      jsonPath(std::move(path)), found(std::move(detail)) {}

namespace detail {

void ThrowingSink::report(SrcCode code, std::uint64_t offset, std::string path, std::string detail) {
    if (infoOf(code).refused) throw SrcError(code, offset, std::move(path), std::move(detail));
}

std::string quoted(std::string_view text) {
    constexpr std::size_t LONGEST = 80; // a message is for people
    std::string result = "\"";
    result += text.substr(0, LONGEST);
    result += text.size() > LONGEST ? "\"..." : "\"";
    return result;
}

} // namespace detail

} // namespace kel::src
