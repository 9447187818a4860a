#include <kel/convert/ConvertError.h>

#include <utility>

namespace kel::convert {

namespace {

std::string sentenceOf(ConvertCode code, std::string_view detail) {
    std::string sentence(infoOf(code).sentence);
    const std::size_t place = sentence.find("{}");
    return place == std::string::npos ? sentence : sentence.replace(place, 2, detail);
}

} // namespace

ConvertError::ConvertError(ConvertCode code, std::string subject, std::string_view detail, std::string remedy)
    : std::runtime_error(sentenceOf(code, detail)), errorCode(code), subjectName(std::move(subject)),
      remedyText(infoOf(code).remedy == "*" ? std::move(remedy) : std::string(infoOf(code).remedy)) {}

ConvertError::~ConvertError() = default;

} // namespace kel::convert
