#include "Checks.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <string_view>

namespace kel::importer::detail {

namespace {

struct Magic {
    std::string_view bytes;
    Kind kind;
    const char* name;
};

using namespace std::string_view_literals;

const Magic MAGICS[] = {
    {"glTF"sv, Kind::GLB, "a binary glTF (.glb)"},
    {"Kaydara FBX Binary"sv, Kind::FBX, "a binary FBX"},
    {"BLENDER"sv, Kind::BLEND, "a Blender file"},
    {"ply\n"sv, Kind::PLY, "a PLY"},
    {"ply\r"sv, Kind::PLY, "a PLY"},
    {"xof 0"sv, Kind::X, "a DirectX model (.x)"},
    {"Caligari "sv, Kind::COB, "a trueSpace model"},
    {"PK\x03\x04"sv, Kind::ZIP, "a ZIP archive"},
    {"\x89PNG\r\n"sv, Kind::OTHER, "a PNG image"},
    {"\xFF\xD8\xFF"sv, Kind::OTHER, "a JPEG image"},
    {"GIF8"sv, Kind::OTHER, "a GIF image"},
    {"%PDF"sv, Kind::OTHER, "a PDF"},
    {"\x7F"
     "ELF"sv,
     Kind::OTHER, "a program"},
    {"Rar!"sv, Kind::OTHER, "a RAR archive"},
    {"7z\xBC\xAF"sv, Kind::OTHER, "a 7z archive"},
    {"\x17\0\0\0\x2A\0\0\0"sv, Kind::OTHER, "an SRC file, which is what this writes"},
};

bool startsWithWord(const std::string& head, std::string_view word) {
    if (head.size() < word.size()) return false;
    return std::equal(word.begin(), word.end(), head.begin(), [](char a, char b) {
        return a == static_cast<char>(std::tolower(static_cast<unsigned char>(b)));
    });
}

/// Extensions and what a file of that name has to be.
struct Promise {
    const char* extension;
    Kind kind;
    const char* name;
};
const Promise PROMISES[] = {
    {"glb", Kind::GLB, "a binary glTF"},  {"gltf", Kind::GLTF, "a glTF"}, {"ply", Kind::PLY, "a PLY"},
    {"dae", Kind::XML, "a COLLADA file"}, {"3mf", Kind::ZIP, "a 3MF"},    {"x3d", Kind::XML, "an X3D"},
};

/// Formats that are text, so that a zero byte gives a stranger away.
bool isTextFormat(const std::string& extension) {
    static const std::array<const char*, 8> TEXTS = {"obj", "gltf", "off", "nff",
                                                     "ase", "ogex", "dae", "x3d"};
    return std::find(TEXTS.begin(), TEXTS.end(), extension) != TEXTS.end();
}

std::string capitals(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

} // namespace

Recognised recognise(const Content& content) {
    std::string head = content.text(0, 512);
    for (const Magic& magic : MAGICS) {
        if (head.compare(0, magic.bytes.size(), magic.bytes) == 0) return {magic.kind, magic.name};
    }
    if (head.compare(0, 3, "\xEF\xBB\xBF") == 0) head.erase(0, 3);
    head.erase(0, std::min(head.find_first_not_of(" \t\r\n"), head.size()));
    if (startsWithWord(head, "<!doctype html") || startsWithWord(head, "<html")) {
        return {Kind::OTHER, "a web page, perhaps an error message in place of a download"};
    }
    if (startsWithWord(head, "<?xml") || startsWithWord(head, "<collada") || startsWithWord(head, "<x3d")) {
        return {Kind::XML, "XML"};
    }
    if (startsWithWord(head, "version https://git-lfs")) {
        return {Kind::OTHER, "a Git LFS pointer, not the file that it stands for"};
    }
    if (!head.empty() && head[0] == '{') {
        // Its own reader looks for the same word.
        const std::string start = content.text(0, 65536);
        const bool gltf = start.find("\"asset\"") != std::string::npos ||
                          start.find("\"accessors\"") != std::string::npos ||
                          start.find("\"scenes\"") != std::string::npos;
        if (gltf) return {Kind::GLTF, "a glTF in JSON"};
        return {Kind::UNKNOWN, "JSON"};
    }
    if (startsWithWord(head, "off\n") || startsWithWord(head, "off\r") || startsWithWord(head, "coff\n")) {
        return {Kind::OFF, "an OFF"};
    }
    return {};
}

std::string guessExtension(const Content& content) {
    switch (recognise(content).kind) {
    case Kind::GLB:
        return "glb";
    case Kind::GLTF:
        return "gltf";
    case Kind::PLY:
        return "ply";
    case Kind::OFF:
        return "off";
    case Kind::FBX:
        return "fbx";
    case Kind::BLEND:
        return "blend";
    case Kind::X:
        return "x";
    case Kind::COB:
        return "cob";
    case Kind::XML: {
        const std::string head = content.text(0, 4096);
        return head.find("<COLLADA") != std::string::npos ? "dae"
               : head.find("<X3D") != std::string::npos   ? "x3d"
                                                          : "";
    }
    case Kind::ZIP:
    case Kind::OTHER:
    case Kind::UNKNOWN:
        break;
    }
    std::uint32_t triangles = 0;
    if (content.read(80, &triangles, sizeof triangles) == sizeof triangles &&
        content.size() == 84 + std::uint64_t{50} * triangles) {
        return "stl";
    }
    const std::string head = "\n" + content.text(0, 65536);
    if (head.find('\0') != std::string::npos) return {};
    if (startsWithWord(head.substr(1), "solid") && head.find("facet") != std::string::npos) return "stl";
    if (head.find("\nv ") != std::string::npos) return "obj";
    return {};
}

void checkKind(const ModelSource& source, const Content& content, const Recognised& recognised) {
    const std::string extension = source.extension();
    const auto refuse = [&](const std::string& promised) {
        source.refuse(ImportCode::WRONG_CONTENT,
                      "the name promises " + promised + ", but the content " +
                          (recognised.name.empty() ? "is none" : "looks like " + recognised.name),
                      "first bytes");
    };
    for (const Promise& promise : PROMISES) {
        if (extension != promise.extension) continue;
        // A JSON without the words of a glTF is a broken one: its own check says what is wrong.
        const bool broken = promise.kind == Kind::GLTF && recognised.name == "JSON";
        // UTF-16 has its own first bytes; Assimp turns it into UTF-8.
        const std::string bom = content.text(0, 2);
        const bool utf16 = promise.kind == Kind::XML && (bom == "\xFF\xFE" || bom == "\xFE\xFF");
        if (promise.kind == Kind::PLY && recognised.kind == Kind::UNKNOWN) {
            const std::string word = capitals(content.text(0, 3));
            if (word == "PLY") return;
        }
        if (promise.kind == Kind::XML && recognised.kind == Kind::UNKNOWN) {
            // XML need not say that it is.
            if (content.text(0, 512).find('<') != std::string::npos) return;
        }
        if (recognised.kind != promise.kind && !broken && !utf16) refuse(promise.name);
        return;
    }
    if (recognised.kind == Kind::OTHER) {
        source.refuse(ImportCode::WRONG_CONTENT,
                      "this is no model: the content looks like " + recognised.name, "first bytes");
    }
    // What is left is named after formats without a sure sign; a sure sign of another one is enough.
    const bool signedContent = recognised.kind == Kind::GLB || recognised.kind == Kind::FBX ||
                               recognised.kind == Kind::PLY || recognised.kind == Kind::BLEND ||
                               recognised.kind == Kind::GLTF || recognised.kind == Kind::X;
    const auto isOneOf = [&](std::initializer_list<const char*> list) {
        return std::any_of(list.begin(), list.end(), [&](const char* e) { return extension == e; });
    };
    if (signedContent && isOneOf({"obj", "stl", "off", "3ds", "dxf", "ase", "lwo", "ac", "ms3d", "wrl", "md2",
                                  "md5mesh", "ifc"})) {
        refuse("a model of the format " + capitals(extension));
    }
    if (isOneOf({"fbx"}) && signedContent && recognised.kind != Kind::FBX) refuse("an FBX");
    if ((recognised.kind == Kind::XML || recognised.kind == Kind::ZIP) &&
        isOneOf({"obj", "stl", "off", "3ds", "fbx"})) {
        refuse("a model of the format " + capitals(extension));
    }
    if (isTextFormat(extension)) {
        const std::string head = content.text(0, 1024);
        const bool utf = head.compare(0, 2, "\xFF\xFE") == 0 || head.compare(0, 2, "\xFE\xFF") == 0 ||
                         head.compare(0, 4, "\0\0\xFE\xFF"sv) == 0;
        if (!utf && head.find('\0') != std::string::npos) {
            source.refuse(ImportCode::WRONG_CONTENT,
                          "a file of the format " + capitals(extension) + " is text, but this has zero bytes",
                          "byte " + std::to_string(head.find('\0')));
        }
    }
    if (extension == "3ds" && content.text(0, 2) != "MM") refuse("a 3DS");
}

} // namespace kel::importer::detail
