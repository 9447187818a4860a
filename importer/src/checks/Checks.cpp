#include "Checks.h"

#include <algorithm>
#include <cctype>
#include <initializer_list>
#include <map>
#include <string_view>

namespace kel::importer::detail {

namespace {

/// Content that a few bytes give away.
enum class Kind { UNKNOWN, OTHER, GLB, GLTF, PLY, OFF, FBX, BLEND, XML, ZIP, COB, X };
struct Recognised {
    Kind kind = Kind::UNKNOWN;
    std::string name; ///< for people; empty when unknown
};

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
    return smallLetters(head.substr(0, word.size())) == word;
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

std::string capitals(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

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

/// throws  ImportError "wrong-content" when the extension promises another kind of content
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
        // PLY may be in capitals, and XML need not say that it is.
        const bool vague =
            recognised.kind == Kind::UNKNOWN &&
            ((promise.kind == Kind::PLY && capitals(content.text(0, 3)) == "PLY") ||
             (promise.kind == Kind::XML && content.text(0, 512).find('<') != std::string::npos));
        if (recognised.kind != promise.kind && !broken && !vague) refuse(promise.name);
        return;
    }
    if (recognised.kind == Kind::OTHER)
        source.refuse(ImportCode::WRONG_CONTENT,
                      "this is no model: the content looks like " + recognised.name, "first bytes");
    // What is left is named after formats without a sure sign; a sure sign of another one is enough.
    const bool signedContent = recognised.kind == Kind::GLB || recognised.kind == Kind::FBX ||
                               recognised.kind == Kind::PLY || recognised.kind == Kind::BLEND ||
                               recognised.kind == Kind::GLTF || recognised.kind == Kind::X;
    const auto isOneOf = [&](std::initializer_list<const char*> list) {
        return std::any_of(list.begin(), list.end(), [&](const char* e) { return extension == e; });
    };
    const bool archive = recognised.kind == Kind::XML || recognised.kind == Kind::ZIP;
    if ((archive && isOneOf({"obj", "stl", "off", "3ds", "fbx"})) ||
        (signedContent && isOneOf({"obj", "stl", "off", "3ds", "dxf", "ase", "lwo", "ac", "ms3d", "wrl",
                                   "md2", "md5mesh", "ifc"}))) {
        refuse("a model of the format " + capitals(extension));
    }
    if (isOneOf({"fbx"}) && signedContent && recognised.kind != Kind::FBX) refuse("an FBX");
    // Formats that are text: a zero byte gives a stranger away.
    if (isOneOf({"obj", "gltf", "off", "nff", "ase", "ogex", "dae", "x3d"})) {
        const std::string head = content.text(0, 1024);
        if (head.find('\0') != std::string::npos)
            source.refuse(ImportCode::WRONG_CONTENT,
                          "a file of the format " + capitals(extension) + " is text, but this has zero bytes",
                          "byte " + std::to_string(head.find('\0')));
    }
    if (extension == "3ds" && content.text(0, 2) != "MM") refuse("a 3DS");
}

} // namespace

std::string guessExtension(const Content& content) {
    static const std::map<Kind, const char*> EXTENSIONS = {
        {Kind::GLB, "glb"}, {Kind::GLTF, "gltf"},   {Kind::PLY, "ply"}, {Kind::OFF, "off"},
        {Kind::FBX, "fbx"}, {Kind::BLEND, "blend"}, {Kind::X, "x"},     {Kind::COB, "cob"}};
    const Kind kind = recognise(content).kind;
    const auto known = EXTENSIONS.find(kind);
    if (known != EXTENSIONS.end()) return known->second;
    if (kind == Kind::XML) {
        const std::string head = content.text(0, 4096);
        return head.find("<COLLADA") != std::string::npos ? "dae"
               : head.find("<X3D") != std::string::npos   ? "x3d"
                                                          : "";
    }
    if (isWholeBinaryStl(content)) return "stl";
    const std::string head = "\n" + content.text(0, 65536);
    if (head.find('\0') != std::string::npos) return {};
    if (startsWithWord(head.substr(1), "solid") && head.find("facet") != std::string::npos) return "stl";
    if (head.find("\nv ") != std::string::npos) return "obj";
    return {};
}

Findings checkBeforeReading(const ModelSource& source, ProgressReporter& progress) {
    progress.report("checking", 0.0);
    Findings findings;
    const Content content(source);
    const Recognised recognised = recognise(content);
    checkKind(source, content, recognised);

    const std::string extension = source.extension();
    if (recognised.kind == Kind::GLB || recognised.kind == Kind::GLTF || extension == "gltf") {
        findings.isGltf = true;
    } else if (recognised.kind == Kind::PLY || extension == "ply") {
        findings.isPly = true;
    } else if (extension == "obj") {
        findings.isObj = true;
    } else if (extension == "stl") {
        checkStl(source, content);
    } else if (extension == "off" || recognised.kind == Kind::OFF) {
        checkOff(source, content, findings);
    } else if (recognised.kind == Kind::XML) {
        checkNesting(source, content, true);
    } else if (recognised.kind == Kind::UNKNOWN || recognised.kind == Kind::X) {
        checkNesting(source, content, false);
    }
    progress.report("checking", 1.0);
    return findings;
}

} // namespace kel::importer::detail
