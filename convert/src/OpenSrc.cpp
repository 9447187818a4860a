#include <kel/convert/OpenSrc.h>

#include <kel/convert/ConvertError.h>
#include <kel/src/format/FileLayout.h>

#include <fstream>

namespace kel::convert {

namespace {

using kel::src::SrcError;
using kel::src::SrcFile;

template<typename Open>
SrcFile open(const std::string& name, const Open& openFile) {
    try {
        return openFile();
    } catch (const SrcError& error) {
        const auto& info = kel::src::infoOf(error.code());
        std::string text(info.name);
        if (!error.path().empty()) text += " at " + error.path();
        if (error.byteOffset() != SrcError::NO_OFFSET) text += ", byte " + std::to_string(error.byteOffset());
        text += ": ";
        text += info.sentence;
        if (!error.detail().empty()) text += " (" + error.detail() + ')';
        throw ConvertError(ConvertCode::SRC_REFUSED, name, text, std::string(info.remedy));
    }
}

} // namespace

SrcFile openSrc(const std::string& path) {
    return open(path, [&] { return kel::src::openSrc(path); });
}

SrcFile openSrc(std::istream& stream, const std::string& name) {
    return open(name, [&] { return kel::src::readSrc(stream); });
}

bool looksLikeSrc(const std::string& path) {
    char bytes[8] = {};
    std::ifstream(path, std::ios::binary).read(bytes, sizeof bytes);
    const std::size_t dot = path.rfind('.');
    return (kel::src::format::readUint32(bytes) == kel::src::format::SIGNATURE &&
            kel::src::format::readUint32(bytes + 4) == kel::src::format::LAYOUT) ||
           (dot != std::string::npos && path.substr(dot) == ".src");
}

} // namespace kel::convert
