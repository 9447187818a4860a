#include "../text/TextCursor.h"
#include "ObjFile.h"

#include <utility>

namespace kel::importer::detail {

namespace {

/// Options of texture statements, and how many words follow each.
struct TextureOption {
    const char* name;
    int words;
};
const TextureOption TEXTURE_OPTIONS[] = {{"-blendu", 1},    {"-blendv", 1}, {"-boost", 1},   {"-mm", 2},
                                         {"-o", 3},         {"-s", 3},      {"-t", 3},       {"-texres", 1},
                                         {"-clamp", 1},     {"-bm", 1},     {"-imfchan", 1}, {"-type", 1},
                                         {"-colorspace", 1}};

bool startsNumber(std::string_view word) {
    return !word.empty() &&
           (word[0] == '-' || word[0] == '+' || word[0] == '.' || (word[0] >= '0' && word[0] <= '9'));
}

/// Reads the statements of one material file.
class MaterialReader {
public:
    MaterialReader(const ModelSource& source, const Content& content, ObjMaterials& materials)
        : cursor(content.data(), content.data() + content.size(), source, true), materials(materials) {}

    void read() {
        cursor.skipByteOrderMark();
        for (; !cursor.atEnd(); cursor.skipLine()) {
            if (!cursor.atLineEnd()) readStatement(smallLetters(std::string(cursor.word())));
        }
    }

private:
    TextCursor cursor;
    ObjMaterials& materials;
    std::optional<std::size_t> current;

    void readStatement(const std::string& keyword) {
        if (keyword == "newmtl") {
            current = materials.find(std::string(cursor.restOfLine()));
            return;
        }
        if (keyword.compare(0, 4, "map_") == 0 || keyword == "bump" || keyword == "norm" ||
            keyword == "disp" || keyword == "refl" || keyword == "decal") {
            readTexture();
            return;
        }
        if (!current) return; // values of nothing
        ModelMaterial& material = materials.list[*current];
        if (keyword == "kd") {
            readColor(material.diffuse);
        } else if (keyword == "ka") {
            readColor(material.ambient);
        } else if (keyword == "ks") {
            readColor(material.specular);
        } else if (keyword == "ke") {
            readColor(material.emissive);
        } else if (keyword == "ns") {
            readNumber(material.phongExponent);
        } else if (keyword == "d") {
            readNumber(material.opacity);
        } else if (keyword == "tr") {
            std::optional<float> transparency;
            readNumber(transparency);
            if (transparency) material.opacity = 1.0f - *transparency;
        }
    }

    /// Leaves the value as it is where something else than a number stands there, such as the name of a
    /// spectrum.
    void readNumber(std::optional<float>& value) {
        if (cursor.atLineEnd()) return;
        const std::size_t start = cursor.offset();
        const std::string_view word = cursor.word();
        if (!startsNumber(word)) return;
        cursor.moveTo(start);
        value = cursor.leadingNumber<float>();
    }
    /// One number may stand for the first of three.
    void readColor(std::optional<glm::vec3>& color) {
        glm::vec3 read(0.0f);
        for (int i = 0; i < 3; ++i) {
            std::optional<float> number;
            readNumber(number);
            if (!number && i == 0) return;
            if (!number) break;
            read[i] = *number;
        }
        color = read;
    }

    void readTexture() {
        while (!cursor.atLineEnd()) {
            const std::size_t start = cursor.offset();
            const std::string word = smallLetters(std::string(cursor.word()));
            int words = -1;
            for (const TextureOption& option : TEXTURE_OPTIONS) {
                if (word == option.name) words = option.words;
            }
            if (words < 0) {
                cursor.moveTo(start);
                break;
            }
            for (int i = 0; i < words && !cursor.atLineEnd(); ++i) {
                // Of three numbers, the last two may be missing.
                const std::size_t before = cursor.offset();
                const std::string_view value = cursor.word();
                if (i > 0 && !startsNumber(value)) {
                    cursor.moveTo(before);
                    break;
                }
            }
        }
        const std::string_view name = cursor.restOfLine();
        if (!name.empty()) materials.textures.emplace(name);
    }
};

} // namespace

std::size_t ObjMaterials::find(const std::string& name) {
    const auto [place, isNew] = places.try_emplace(name, list.size());
    if (isNew) {
        ModelMaterial& material = list.emplace_back();
        material.name = name;
        material.identifier = static_cast<std::uint32_t>(list.size());
        // What files that say nothing mean.
        material.diffuse = glm::vec3(0.6f);
        material.ambient = material.specular = material.emissive = glm::vec3(0.0f);
        material.phongExponent = 0.0f;
        material.opacity = 1.0f;
    }
    return place->second;
}

void ObjMaterials::read(const ModelSource& source, const Content& content) {
    MaterialReader(source, content, *this).read();
}

} // namespace kel::importer::detail
