#include "AssimpReader.h"

#include "AssimpModel.h"

#include <assimp/Importer.hpp>
#include <assimp/ProgressHandler.hpp>
#include <assimp/importerdesc.h>
#include <assimp/postprocess.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <new>
#include <sstream>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace kel::importer {

namespace detail {

namespace {

/// Some readers of Assimp leave memory behind, which a sanitizer would lay at the door of every program that
/// imports.
struct LeaksAreNotOurs {
#if defined(__SANITIZE_ADDRESS__)
    __lsan::ScopedDisabler scope;
#endif
    LeaksAreNotOurs() {} // not trivial, so that a variable of it counts as used
};

/// Passes on how far Assimp says that it is.
class ProgressHandler final : public Assimp::ProgressHandler {
public:
    explicit ProgressHandler(ProgressReporter& progress) : progress(progress) {}
    // Leaving by exception is the only way out of most readers; they are built for it.
    bool Update(float done) override {
        if (done >= 0.0f) progress.report(READING, std::min(1.0, static_cast<double>(done)));
        return true;
    }

private:
    ProgressReporter& progress;
};

/// The reader's name for people, without what every such name ends with.
std::string formatName(std::string name) {
    for (const char* end : {"\n", " Importer", " Reader", " importer"}) {
        const std::size_t length = std::strlen(end);
        if (name.size() > length && name.compare(name.size() - length, length, end) == 0) {
            name.resize(name.size() - length);
        }
    }
    return name;
}

constexpr const char* OTHERWISE = "convert the model to glTF or OBJ with another program";

/// Why Assimp gave up, as our own error.
[[noreturn]] void refuseFailure(const ModelSource& source, const Assimp::Importer& importer,
                                const ProgressReporter& progress, const std::set<std::string>& missing) {
    if (progress.cancelled()) progress.refuseCancelled();
    if (importer.GetException()) {
        try {
            std::rethrow_exception(importer.GetException());
        } catch (const ImportError&) {
            throw;
        } catch (const std::bad_alloc&) {
            source.refuse(ImportCode::OUT_OF_MEMORY, "the model does not fit into memory");
        } catch (const std::exception&) {
            // Its text is the importer's error string, below.
        }
    }
    const std::string text = importer.GetErrorString();
    if (text.find("No suitable reader found") != std::string::npos) {
        source.refuse(ImportCode::UNKNOWN_FORMAT, "no reader knows this kind of file");
    }
    std::string what = text.empty() ? "the reader gave up without a reason" : "the reader gave up: " + text;
    while (!what.empty() && (what.back() == '.' || what.back() == '\n'))
        what.pop_back();
    if (!missing.empty()) {
        source.refuse(ImportCode::MISSING_FILE, what + "; not found: " + *missing.begin());
    }
    const auto says = [&](const char* word) { return what.find(word) != std::string::npos; };
    if (says("not support") || says("unsupported") || says("Unsupported") || says("ersion"))
        source.refuse(ImportCode::UNSUPPORTED_FEATURE, what, "", OTHERWISE);
    // Whether the file is broken or the reader is limited, its words do not tell.
    source.refuse(says("index out of range") ? ImportCode::INDEX_OUT_OF_RANGE : ImportCode::INVALID_MODEL,
                  what, "", std::string("open it in another program; if it is whole there, ") + OTHERWISE);
}

} // namespace

std::unique_ptr<Model> readWithAssimp(const ModelSource& source, const ImportOptions& options,
                                      ProgressReporter& progress) {
    std::set<std::string> missing;
    Assimp::Importer importer;
    importer.SetIOHandler(newAssimpFiles(source, progress, missing)); // which takes it over
    importer.SetProgressHandler(new ProgressHandler(progress));

    progress.report(READING, 0.0);
    const aiScene* read = nullptr;
    {
        const LeaksAreNotOurs scope;
        read = importer.ReadFile(source.path, 0);
    }
    if (!read) refuseFailure(source, importer, progress, missing);
    // The scene is the importer's until it is handed over, but ours to change.
    auto& scene = const_cast<aiScene&>(*read);
    repairTree(scene);
    bool polygons = checkIndices(source, scene);
    std::size_t brokenPolygons = 0;
    if (options.onBadGeometry == BadGeometry::FAIL) {
        refuseNotFinite(source, scene);
    } else {
        brokenPolygons = removeBrokenPolygons(scene, polygons);
    }
    if (polygons && !importer.ApplyPostProcessing(aiProcess_Triangulate)) {
        refuseFailure(source, importer, progress, missing);
    }
    if (progress.cancelled()) progress.refuseCancelled();

    std::string format;
    if (const aiImporterDesc* info = importer.GetImporterInfo(
            static_cast<std::size_t>(std::max(0, importer.GetPropertyInteger("importerIndex", -1))))) {
        format = formatName(info->mName);
    }
    std::unique_ptr<Model> model = modelOf(std::unique_ptr<aiScene>(importer.GetOrphanedScene()), format);
    if (brokenPolygons > 0) model->dropped.push_back({NOT_FINITE_PRIMITIVES, brokenPolygons, ""});
    for (const std::string& file : missing)
        model->notes.push_back("The model names a file that could not be opened: " + file);
    return model;
}

} // namespace detail

bool isModelExtension(const std::string& extension) {
    static const std::set<std::string> known = [] {
        // "*.3d;*.3ds;..."
        aiString list;
        Assimp::Importer().GetExtensionList(list);
        std::set<std::string> extensions;
        std::istringstream patterns(list.C_Str());
        for (std::string pattern; std::getline(patterns, pattern, ';');)
            extensions.insert(pattern.substr(std::min<std::size_t>(pattern.size(), 2)));
        return extensions;
    }();
    const std::string name =
        detail::smallLetters(extension.substr(!extension.empty() && extension[0] == '.'));
    return !name.empty() && known.count(name) != 0;
}

} // namespace kel::importer
