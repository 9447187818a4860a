#include <src/builder/MeshBuilder.h>

#include "Document_p.h"

#include <kel/src/text/JsonScanner.h>
#include <kel/src/text/JsonWriter.h>
#include <kel/src/text/Utf8.h>
#include <logging/Logger.h>

#include <stdexcept>
#include <utility>

namespace src::builder {

namespace {

/// The object around the metadata's own texts is one level more.
constexpr std::size_t MAX_DEPTH = kel::src::text::MAX_METADATA_DEPTH + 1;

} // namespace

MeshBuilder::MeshBuilder(std::shared_ptr<Mesh> mesh) : mesh(std::move(mesh)) {}
MeshBuilder::~MeshBuilder() = default;

std::shared_ptr<MeshBuilder> MeshBuilder::create(const std::string& name,
                                                 std::shared_ptr<IndexView> indexView,
                                                 PrimitiveType primitiveType) {
    auto mesh = std::make_shared<Mesh>();
    mesh->name = name;
    mesh->indices = std::move(indexView);
    mesh->primitive = primitiveType;
    return std::shared_ptr<MeshBuilder>(new MeshBuilder(std::move(mesh)));
}

Mesh& MeshBuilder::change() {
    if (handedOut) {
        mesh = std::make_shared<Mesh>(*mesh);
        mesh->document = 0;
        handedOut = false;
    }
    return *mesh;
}

void MeshBuilder::addAttribute(const std::string& name, std::shared_ptr<AttributeView> view) {
    if (!view) {
        throw std::invalid_argument("Mesh \"" + mesh->name + "\": attribute \"" + name + "\" needs a view.");
    }
    change().attributes[name] = std::move(view);
}

void MeshBuilder::setBoundingBoxMinMax(std::vector<double> min, std::vector<double> max) {
    if (min.size() != 3 || max.size() != 3) {
        throw std::invalid_argument("Mesh \"" + mesh->name + "\": bounds are three numbers each, not " +
                                    std::to_string(min.size()) + " and " + std::to_string(max.size()) + ".");
    }
    Mesh& target = change();
    target.hasBounds = true;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        target.bboxCenter[axis] = (min[axis] + max[axis]) * 0.5;
        target.bboxSize[axis] = max[axis] - min[axis];
    }
}

void MeshBuilder::setMaterial(std::shared_ptr<Material> material) {
    change().material = std::move(material);
}

void MeshBuilder::setMetaJsonString(const std::string& text) {
    std::string meta;
    meta.reserve(text.size());
    if (const auto check = kel::src::text::appendCompactObject(meta, text, MAX_DEPTH); !check) {
        const auto logger = logging::Logger::getBoostLogger(
            __LINE__, "void src::builder::MeshBuilder::setMetaJsonString(const std::string&)",
            "platform/src/MeshBuilder");
        BOOST_LOG_SEV(*logger, boost::log::trivial::warning)
            << "Metadata of mesh \"" << mesh->name
            << "\" is not a JSON object: " << kel::src::text::sentenceOf(check.fault) << " at byte "
            << check.at << ". The text is kept as one string; give each value as JSON, texts in quotes.";
        meta.clear();
        kel::src::text::appendJsonString(meta, kel::src::text::validUtf8(text));
    }
    change().meta = std::move(meta);
}

std::shared_ptr<Mesh> MeshBuilder::build() {
    handedOut = true;
    return mesh;
}

} // namespace src::builder
