#include "PlyReader.h"

#include "../polygons/PolygonCutter.h"
#include "PlyRows.h"

#include <kel/mesh/AttributeNames.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <numeric>
#include <set>
#include <utility>

namespace kel::importer::detail {

namespace {

constexpr std::size_t NONE = static_cast<std::size_t>(-1);

/// Where an element keeps something: places among its properties, or NONE.
using Places = std::vector<std::size_t>;

/// Colours are from 0 to 1, or as large as their type where that is the custom; 255 where it is not.
double largestOf(PlyType type) {
    return isFloating(type) ? 1.0 : type == PlyType::UINT16 ? 65535.0 : 255.0;
}

class PlyReader {
public:
    PlyReader(const ModelSource& source, const ImportOptions& options, ProgressReporter& progress)
        : source(source), options(options), progress(progress), content(source),
          header(readPlyHeader(source, content)), rows(source, content, header) {}

    std::unique_ptr<Model> read() {
        for (const PlyElement& element : header.elements) {
            if (element.properties.empty() || element.count == 0) continue;
            known.assign(element.properties.size(), false);
            if (element.name == "vertex" && positions.empty()) {
                readVertices(element);
            } else if (element.name == "face") {
                readFaces(element);
            } else if (element.name == "tristrips") {
                readStrips(element);
            } else if (element.name == "edge") {
                readEdges(element);
            } else {
                skip(element);
                continue;
            }
            for (std::size_t p = 0; p < known.size(); ++p) {
                if (!known[p]) unknown.push_back(element.name + "." + element.properties[p].name);
            }
        }
        if (positions.empty()) source.refuse(ImportCode::NO_MESH, "there is no vertex");
        return finish();
    }

private:
    const ModelSource& source;
    const ImportOptions& options;
    ProgressReporter& progress;
    const Content content;
    const PlyHeader header;
    PlyRows rows;
    std::uint64_t rowsRead = 0;

    std::vector<bool> known; // for each property of the element at hand, whether it has a meaning here
    std::vector<std::string> unknown, unknownElements;

    std::vector<double> positions;
    std::vector<float> normals, texcoords, colors;
    bool hasAlpha = false;
    std::vector<std::uint32_t> faceCorners, stripCorners, edgeCorners; // which vertices
    std::vector<std::uint32_t> faceSizes, stripSizes;
    std::vector<float> faceTexcoords; // of their corners, where faces state their own

    template<typename Take>
    void forEachRow(const PlyElement& element, const Take& take) {
        PlyRow row;
        for (std::uint64_t i = 0; i < element.count; ++i) {
            if (rowsRead++ % 65536 == 0) progress.report("reading", rows.done());
            rows.read(element, row);
            take(row);
        }
    }

    void skip(const PlyElement& element) {
        forEachRow(element, [](const PlyRow&) {});
        unknownElements.push_back(element.name);
    }

    /// All of the names, or none. Names of one thing are given apart by "|".
    Places find(const PlyElement& element, std::initializer_list<const char*> names, bool lists = false) {
        Places places;
        for (const std::string_view alternatives : names) {
            for (std::size_t p = 0; p < element.properties.size(); ++p) {
                const PlyProperty& property = element.properties[p];
                const std::string word = "|" + property.name + "|";
                if (property.countType.has_value() != lists ||
                    alternatives.find(word) == std::string_view::npos)
                    continue;
                places.push_back(p);
                break;
            }
        }
        if (places.size() != names.size()) return {};
        for (const std::size_t place : places)
            known[place] = true;
        return places;
    }

    void readVertices(const PlyElement& element) {
        const Places xyz = find(element, {"|x|", "|y|", "|z|"});
        if (xyz.empty()) source.refuse(ImportCode::INVALID_MODEL, "vertices have no x, y and z", "header");
        const Places normal = find(element, {"|nx|normal_x|", "|ny|normal_y|", "|nz|normal_z|"});
        const Places uv = find(element, {"|s|u|tx|texture_u|texture_s|", "|t|v|ty|texture_v|texture_t|"});
        const Places color =
            find(element, {"|red|r|diffuse_red|", "|green|g|diffuse_green|", "|blue|b|diffuse_blue|"});
        const Places alpha = color.empty() ? Places() : find(element, {"|alpha|a|diffuse_alpha|"});
        const auto scaled = [&](const PlyRow& row, std::size_t place) {
            return static_cast<float>(row.numbers[place] / largestOf(element.properties[place].type));
        };
        const auto count = static_cast<std::size_t>(element.count);
        if (count > std::numeric_limits<std::uint32_t>::max())
            source.refuse(ImportCode::UNSUPPORTED_FEATURE, "it has more vertices than 32 bits can number",
                          "header", "split the model");
        positions.reserve(3 * count);
        normals.reserve(normal.size() * count);
        texcoords.reserve(uv.size() * count);
        colors.reserve(color.size() * count);
        forEachRow(element, [&](const PlyRow& row) {
            for (const std::size_t p : xyz)
                positions.push_back(row.numbers[p]);
            for (const std::size_t p : normal)
                normals.push_back(static_cast<float>(row.numbers[p]));
            for (const std::size_t p : uv)
                texcoords.push_back(static_cast<float>(row.numbers[p]));
            for (const std::size_t p : color)
                colors.push_back(scaled(row, p));
            for (const std::size_t p : alpha)
                hasAlpha |= scaled(row, p) != 1.0f;
        });
    }

    std::uint32_t index(double number) {
        if (!(number >= 0.0 && number < 4294967295.0) || number != std::floor(number))
            source.refuse(ImportCode::INDEX_OUT_OF_RANGE,
                          "the index of a vertex is no whole number from 0 on", rows.place());
        return static_cast<std::uint32_t>(number);
    }

    void readFaces(const PlyElement& element) {
        const Places indices = find(element, {"|vertex_indices|vertex_index|"}, true);
        const bool ownTexcoords = texcoords.empty();
        const Places uv = ownTexcoords ? find(element, {"|texcoord|"}, true) : Places();
        forEachRow(element, [&](const PlyRow& row) {
            if (indices.empty()) return;
            const std::vector<double>& face = row.lists[indices[0]];
            for (const double number : face)
                faceCorners.push_back(index(number));
            faceSizes.push_back(static_cast<std::uint32_t>(face.size()));
            if (uv.empty()) return;
            for (const double number : row.lists[uv[0]])
                faceTexcoords.push_back(static_cast<float>(number));
            faceTexcoords.resize(2 * faceCorners.size());
        });
    }

    /// -1 ends a strip, so that one list can hold several.
    void readStrips(const PlyElement& element) {
        const Places indices = find(element, {"|vertex_indices|vertex_index|"}, true);
        forEachRow(element, [&](const PlyRow& row) {
            if (indices.empty()) return;
            std::size_t start = stripCorners.size();
            const auto end = [&] {
                stripSizes.push_back(static_cast<std::uint32_t>(stripCorners.size() - start));
                start = stripCorners.size();
            };
            for (const double number : row.lists[indices[0]]) {
                if (number < 0.0) {
                    end();
                } else {
                    stripCorners.push_back(index(number));
                }
            }
            end();
        });
    }

    void readEdges(const PlyElement& element) {
        const Places ends = find(element, {"|vertex1|", "|vertex2|"});
        forEachRow(element, [&](const PlyRow& row) {
            for (const std::size_t p : ends)
                edgeCorners.push_back(index(row.numbers[p]));
        });
    }

    std::unique_ptr<Model> finish() {
        const std::size_t vertices = positions.size() / 3;
        // What the primitives name, one behind another: faces, strips, edges.
        std::vector<std::uint32_t> places = std::move(faceCorners);
        places.insert(places.end(), stripCorners.begin(), stripCorners.end());
        places.insert(places.end(), edgeCorners.begin(), edgeCorners.end());
        checkIndices(places, vertices);

        auto model = std::make_unique<ListedModel>();
        std::vector<ModelAttribute> attributes;
        const bool isCloud = places.empty() && faceSizes.empty();
        attributes.push_back(takePositions(isCloud, places));
        PrimitiveLists lists;
        PolygonCutter cutter(attributes[0], options.onBadGeometry);
        // Where faces state texture coordinates, each corner gets a vertex of its own.
        const bool isSplit = !faceTexcoords.empty();
        std::vector<std::uint32_t> own(isSplit ? places.size() : 0);
        std::iota(own.begin(), own.end(), 0u);
        cut(places, isSplit ? own : places, cutter, lists);
        if (isCloud) {
            lists.points.resize(vertices);
            std::iota(lists.points.begin(), lists.points.end(), 0u);
        }
        cutter.report(model->dropped);

        if (isSplit) {
            attributes[0].values = gather(attributes[0].values, 3, places);
            attributes[0].doubles = gather(attributes[0].doubles, 3, places);
            normals = gather(normals, 3, places);
            colors = gather(colors, 3, places);
            texcoords = std::move(faceTexcoords);
            texcoords.resize(2 * places.size());
        }
        const auto add = [&](std::string name, std::size_t width, std::vector<float>& values) {
            if (!values.empty()) attributes.push_back({std::move(name), width, std::move(values), {}});
        };
        add(kel::mesh::DEFAULT_NORMALS_NAME, 3, normals);
        add(TEXCOORD_NAME, 2, texcoords);
        add(COLOR_NAME, 3, colors);

        std::size_t unused = 0;
        model->format = "Stanford Polygon Library (PLY)";
        model->nodes.emplace_back().meshes.push_back(0);
        model->addMesh({"", "mesh 0", {}}, partsOf(std::move(lists), std::move(attributes), unused));
        reportLosses(*model, unused);
        return model;
    }

    ModelAttribute takePositions(bool isCloud, const std::vector<std::uint32_t>& places) {
        if (!header.isText) return makePositions(std::move(positions));
        std::vector<bool> isUsed(positions.size() / 3, isCloud);
        for (const std::uint32_t place : places)
            isUsed[place] = true;
        return makePositionsOfText(std::move(positions), isUsed, options.origin);
    }

    void checkIndices(const std::vector<std::uint32_t>& places, std::size_t vertices) const {
        const auto bad = std::find_if(places.begin(), places.end(), [&](auto v) { return v >= vertices; });
        if (bad == places.end()) return;
        source.refuse(ImportCode::INDEX_OUT_OF_RANGE,
                      "a primitive uses vertex " + std::to_string(*bad) + ", beyond the file's " +
                          std::to_string(vertices),
                      "mesh 0", "export the model again, its index list is damaged");
    }

    void cut(const std::vector<std::uint32_t>& places, const std::vector<std::uint32_t>& names,
             PolygonCutter& cutter, PrimitiveLists& lists) const {
        std::size_t first = 0;
        for (const std::uint32_t size : faceSizes) {
            cutter.add(places.data() + first, names.data() + first, size, lists);
            first += size;
        }
        for (const std::uint32_t size : stripSizes) {
            for (std::size_t i = first + 2; i < first + size; ++i) {
                const bool odd = (i - first) % 2 != 0;
                const std::size_t triangle[] = {i - 2, odd ? i : i - 1, odd ? i - 1 : i};
                // Strips are led on by triangles without an area, which are not meant to be drawn.
                if (places[i] == places[i - 1] || places[i] == places[i - 2] ||
                    places[i - 1] == places[i - 2])
                    continue;
                for (const std::size_t corner : triangle)
                    lists.triangles.push_back(names[corner]);
            }
            first += size;
        }
        lists.lines.insert(lists.lines.end(), names.begin() + static_cast<std::ptrdiff_t>(first),
                           names.end());
    }

    void reportLosses(Model& model, std::size_t unused) const {
        const auto drop = [&](const char* kind, std::size_t count, const std::string& detail) {
            if (count > 0) model.dropped.push_back({kind, count, detail});
        };
        const std::set<std::string> textures(header.textures.begin(), header.textures.end());
        drop("textures", textures.size(), listed(textures));
        drop("alpha channels", hasAlpha, "of vertex colours");
        drop(UNUSED_VERTICES, unused, "");
        drop("elements without a meaning here", unknownElements.size(), listed(unknownElements));
        drop("ends of lines beyond the properties of their element", rows.linesWithMore(), "");
        drop("properties without a meaning here", unknown.size(), listed(unknown));
    }
};

} // namespace

std::unique_ptr<Model> readPly(const ModelSource& source, const ImportOptions& options,
                               ProgressReporter& progress) {
    progress.report("reading", 0.0);
    std::unique_ptr<Model> model = PlyReader(source, options, progress).read();
    progress.report("reading", 1.0);
    return model;
}

} // namespace kel::importer::detail
