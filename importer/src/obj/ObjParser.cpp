#include "../text/TextCursor.h"
#include "ObjFile.h"

#include <filesystem>
#include <utility>

namespace kel::importer::detail {

namespace {

/// One of the three lists that a corner picks from.
struct List {
    const char* name;
    std::size_t count = 0;
    std::uint32_t largest = 0; // index used so far, from 0
    bool isUsed = false;
    std::size_t placeOfLargest = 0;
};

constexpr std::size_t LARGEST_COUNT = std::numeric_limits<std::int32_t>::max();

class ObjParser {
public:
    ObjParser(const ModelSource& source, std::string_view text, ProgressReporter& progress)
        : source(source), progress(progress), text(text),
          cursor(text.data(), text.data() + text.size(), source, true) {}

    ObjFile read() {
        cursor.skipByteOrderMark();
        for (std::size_t line = 0; !cursor.atEnd(); ++line) {
            if (line % 65536 == 0)
                progress.report("reading",
                                static_cast<double>(cursor.offset()) / static_cast<double>(text.size()));
            if (!cursor.atLineEnd()) readStatement();
            cursor.skipLine();
        }
        for (const List& list : lists) {
            if (list.isUsed && list.largest >= list.count)
                refuseIndex(list, std::int64_t{list.largest} + 1, list.placeOfLargest);
        }
        return std::move(file);
    }

private:
    const ModelSource& source;
    ProgressReporter& progress;
    std::string_view text;
    TextCursor cursor;
    ObjFile file;
    List lists[3] = {{"vertex"}, {"texture coordinate"}, {"normal"}};

    std::optional<std::size_t> object; // the one at hand
    std::optional<std::size_t> material;
    std::string group;

    void readStatement() {
        const std::string_view keyword = cursor.word();
        if (keyword == "v") {
            readPosition();
        } else if (keyword == "vt") {
            readTexcoord();
        } else if (keyword == "vn") {
            for (int i = 0; i < 3; ++i)
                file.normals.push_back(nextNumber<float>("a normal has three"));
            ++lists[2].count;
        } else if (keyword == "f" || keyword == "fo") {
            readFace('f');
        } else if (keyword == "l" || keyword == "p") {
            readFace(keyword[0]);
        } else if (keyword == "g") {
            const std::string name(cursor.restOfLine());
            if (name != group) addObject(name);
            group = name;
        } else if (keyword == "o") {
            const std::string name(cursor.restOfLine());
            if (!name.empty() && !(object && file.objects[*object] == name)) addObject(name);
        } else if (keyword == "usemtl") {
            useMaterial(std::string(cursor.restOfLine()));
        } else if (keyword == "mtllib") {
            readMaterials(cursor.restOfLine());
        } else if (keyword == "curv" || keyword == "curv2" || keyword == "surf") {
            ++file.freeForms;
        }
    }

    template<typename Number>
    Number nextNumber(const char* whatHas) {
        if (cursor.atLineEnd())
            cursor.refuse(ImportCode::INVALID_MODEL, std::string("numbers are missing: ") + whatHas);
        return cursor.number<Number>();
    }

    /// x y z, with w, or with red, green and blue, or with these and alpha.
    void readPosition() {
        double numbers[7];
        std::size_t count = 0;
        for (; !cursor.atLineEnd(); ++count) {
            const double number = cursor.number<double>();
            if (count < 7) numbers[count] = number;
        }
        if (count < 3) cursor.refuse(ImportCode::INVALID_MODEL, "a vertex has less than three coordinates");
        if (count == 4) {
            for (int i = 0; i < 3; ++i)
                numbers[i] /= numbers[3];
        }
        file.positions.insert(file.positions.end(), numbers, numbers + 3);
        if (count == 6 || count == 7) {
            // White until a vertex states its colour.
            file.colors.resize(file.positions.size() - 3, 1.0f);
            for (int i = 3; i < 6; ++i)
                file.colors.push_back(static_cast<float>(numbers[i]));
            file.hasAlpha |= count == 7 && numbers[6] != 1.0;
        } else if (count != 3 && count != 4) {
            file.extraNumbers += count - 3;
        }
        ++lists[0].count;
    }

    void readTexcoord() {
        float uvw[3] = {};
        for (int i = 0; i < 3 && (i == 0 || !cursor.atLineEnd()); ++i)
            uvw[i] = nextNumber<float>("texture coordinates have one at least");
        file.texcoords.insert(file.texcoords.end(), uvw, uvw + 2);
        file.hasThird.push_back(uvw[2] != 0.0f);
        ++lists[1].count;
    }

    void readFace(char kind) {
        const std::size_t before = file.corners.size();
        while (!cursor.atLineEnd())
            file.corners.push_back(readCorner());
        const std::size_t count = file.corners.size() - before;
        if (count == 0) return;
        if (count > LARGEST_COUNT)
            cursor.refuse(ImportCode::UNSUPPORTED_FEATURE, "a face has more corners than 31 bits can number");
        ensureMesh(before);
        const auto size = static_cast<std::int32_t>(count);
        if (kind == 'p') {
            file.faceSizes.insert(file.faceSizes.end(), count, 1);
        } else {
            file.faceSizes.push_back(kind == 'l' ? -size : size);
        }
    }

    ObjCorner readCorner() {
        ObjCorner corner{ObjCorner::NONE, ObjCorner::NONE, ObjCorner::NONE};
        corner.position = readIndex(lists[0]);
        if (cursor.take('/')) {
            if (!cursor.take('/')) {
                if (!cursor.atSeparator()) corner.texcoord = readIndex(lists[1]);
                if (!cursor.take('/')) return finished(corner);
            }
            if (!cursor.atSeparator()) corner.normal = readIndex(lists[2]);
        }
        return finished(corner);
    }
    ObjCorner finished(const ObjCorner& corner) const {
        if (!cursor.atSeparator()) cursor.refuse(ImportCode::INVALID_MODEL, "a corner of a face is no index");
        return corner;
    }

    /// From 0 on. Indices may reach forward; those are judged in the end.
    std::uint32_t readIndex(List& list) {
        const std::optional<std::int64_t> index = cursor.integer();
        if (!index) cursor.refuse(ImportCode::INVALID_MODEL, "a corner of a face is no index");
        if (*index == 0 || *index < -static_cast<std::int64_t>(list.count) ||
            *index >= std::int64_t{ObjCorner::NONE})
            refuseIndex(list, *index, cursor.offset());
        const auto place = static_cast<std::uint32_t>(
            *index > 0 ? *index - 1 : static_cast<std::int64_t>(list.count) + *index);
        if (!list.isUsed || place > list.largest) {
            list.isUsed = true;
            list.largest = place;
            list.placeOfLargest = cursor.offset();
        }
        return place;
    }

    [[noreturn]] void refuseIndex(const List& list, std::int64_t index, std::size_t offset) const {
        source.refuse(
            ImportCode::INDEX_OUT_OF_RANGE,
            std::string("a face uses ") + list.name + " " + std::to_string(index) +
                (index == 0 ? ", they are counted from 1" : ", the file has " + std::to_string(list.count)) +
                (index < 0 ? " up to there" : ""),
            "line " + std::to_string(cursor.lineAt(offset)),
            "export the model again, or add what is missing");
    }

    void addObject(const std::string& name) {
        file.objects.push_back(name);
        object = file.objects.size() - 1;
        addMesh(name, file.corners.size());
    }
    void addMesh(const std::string& name, std::size_t firstCorner) {
        file.meshes.push_back({name, *object, material, file.faceSizes.size(), firstCorner});
    }
    /// A mesh for faces that stand below no name.
    void ensureMesh(std::size_t firstCorner) {
        if (object) return;
        file.objects.emplace_back("defaultobject");
        object = 0;
        addMesh("defaultobject", firstCorner);
    }

    void useMaterial(const std::string& name) {
        if (name.empty()) return;
        const std::size_t found = file.materials.find(name);
        if (material == found) return;
        material = found;
        if (!object) return;
        ObjMesh& mesh = file.meshes.back();
        if (mesh.firstFace == file.faceSizes.size()) {
            mesh.material = material;
        } else {
            addMesh(name, file.corners.size());
        }
    }

    /// The rest of the line is a name, which may have blanks, or several without.
    void readMaterials(std::string_view names) {
        if (names.empty() || readMaterialFile(std::string(names))) return;
        std::set<std::string> missing;
        bool several = false;
        for (std::size_t start = 0; names.find(' ') != std::string_view::npos && start < names.size();) {
            const std::size_t stop = std::min(names.find(' ', start), names.size());
            const std::string name(names.substr(start, stop - start));
            start = stop + 1;
            if (name.empty()) continue;
            if (readMaterialFile(name)) {
                several = true;
            } else {
                missing.insert(pathOf(name));
            }
        }
        if (several) {
            file.missing.insert(missing.begin(), missing.end());
            return;
        }
        file.missing.insert(pathOf(std::string(names)));
        // A file that was renamed, and its materials with it.
        const Content beside(source.path.substr(0, source.path.rfind('.')) + ".mtl");
        if (beside.opened()) file.materials.read(source, beside);
    }
    bool readMaterialFile(const std::string& name) {
        const Content content(pathOf(name));
        if (content.opened()) file.materials.read(source, content);
        return content.opened();
    }
    std::string pathOf(const std::string& name) const {
        return (std::filesystem::path(source.path).parent_path() / name).string(); // which may be absolute
    }
};

} // namespace

ObjFile readObjFile(const ModelSource& source, std::string_view text, ProgressReporter& progress) {
    return ObjParser(source, text, progress).read();
}

} // namespace kel::importer::detail
