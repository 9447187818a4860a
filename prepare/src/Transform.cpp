#include <kel/prepare/Transform.h>

#include "Buffers.h"
#include "TextCheck.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/src/MeshUtils.h>
#include <kel/src/text/JsonWriter.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <unordered_map>

namespace kel::prepare {

namespace {

using detail::AttributePtr;
using Matrix = std::array<double, 9>; // row by row

/// The right angle about the third axis that takes `from` onto `to`.
Matrix turn(UpAxis from, UpAxis to) {
    Matrix matrix{1, 0, 0, 0, 1, 0, 0, 0, 1};
    if (from == to) return matrix;
    const auto f = static_cast<std::size_t>(from);
    const auto t = static_cast<std::size_t>(to);
    matrix[3 * f + f] = matrix[3 * t + t] = 0.0;
    matrix[3 * t + f] = 1.0;
    matrix[3 * f + t] = -1.0; // keeps left and right: the determinant is 1
    return matrix;
}

Matrix product(const Matrix& a, const Matrix& b) {
    Matrix c{};
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t column = 0; column < 3; ++column) {
            for (std::size_t k = 0; k < 3; ++k)
                c[3 * row + column] += a[3 * row + k] * b[3 * k + column];
        }
    }
    return c;
}

AttributePtr transformed(const AttributePtr& buffer, const Matrix& matrix) {
    const detail::PackedFloats values(*buffer);
    detail::Bytes bytes(values.size() * sizeof(float));
    auto* out = reinterpret_cast<float*>(bytes.data());
    // Every row of a turn has one entry; the sum of three would turn an infinity into NaN.
    std::array<std::size_t, 3> source{};
    std::array<double, 3> factor{};
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t column = 0; column < 3; ++column) {
            if (matrix[3 * row + column] == 0.0) continue;
            source[row] = column;
            factor[row] = matrix[3 * row + column];
        }
    }
    for (std::size_t i = 0; i < values.size(); i += 3) {
        for (std::size_t row = 0; row < 3; ++row) {
            const double value = static_cast<double>(values.data()[i + source[row]]);
            out[i + row] = static_cast<float>(value * factor[row] + 0.0); // + 0 makes -0 a 0
        }
    }
    return detail::makeAttribute(kel::mesh::FLOAT, 3, std::move(bytes), buffer->getAttributeName());
}

struct Record {
    Matrix matrix{};
    double scale = 1.0;
    std::string from, to;
};

/// An earlier record; false when there is none, or none of our form.
bool readRecord(const std::map<std::string, std::string>& metaData, Record& record) {
    const auto found = metaData.find("transform");
    if (found == metaData.end()) return false;
    const picojson::value value = detail::parseChecked(found->second);
    if (!value.is<picojson::object>()) return false;
    const picojson::value& matrix = value.get("matrix");
    if (!matrix.is<picojson::array>() || matrix.get<picojson::array>().size() != record.matrix.size() ||
        !value.get("scale").is<double>() || !value.get("from").is<std::string>()) {
        return false;
    }
    for (std::size_t i = 0; i < record.matrix.size(); ++i) {
        const picojson::value& entry = matrix.get<picojson::array>()[i];
        if (!entry.is<double>()) return false;
        record.matrix[i] = entry.get<double>();
    }
    record.scale = value.get("scale").get<double>();
    record.from = value.get("from").get<std::string>();
    return true;
}

std::string textOf(const Record& record) {
    std::string text = "{\"from\":";
    kel::src::text::appendJsonString(text, record.from);
    kel::src::text::appendArrayMember(text, ",\"matrix\":", record.matrix.data(), record.matrix.size());
    kel::src::text::appendMember(text, ",\"scale\":", record.scale);
    kel::src::text::appendMember(text, ",\"to\":", record.to);
    return text + '}';
}

} // namespace

const char* nameOf(UpAxis axis) {
    return axis == UpAxis::X ? "x" : axis == UpAxis::Y ? "y" : "z";
}

std::optional<double> metresPer(std::string_view unit) {
    struct Unit {
        std::string_view name;
        double metres;
    };
    for (const Unit& known :
         {Unit{"mm", 0.001}, Unit{"cm", 0.01}, Unit{"dm", 0.1}, Unit{"m", 1.0}, Unit{"km", 1000.0},
          Unit{"in", 0.0254}, Unit{"ft", 0.3048}, Unit{"yd", 0.9144}, Unit{"mi", 1609.344}}) {
        if (known.name == unit) return known.metres;
    }
    return std::nullopt;
}

kel::src::SrcWriterInput transform(const kel::src::SrcWriterInput& input, const TransformOptions& options) {
    if (!std::isfinite(options.scale) || !(options.scale > 0.0)) {
        throw std::invalid_argument("The scale must be a finite number greater than 0.");
    }
    kel::src::SrcWriterInput result = input;
    result.metaData = detail::copyMetaData(input);
    const bool turns = options.fromUp != options.toUp;
    if (!turns && options.scale == 1.0) return result;

    const Matrix rotation = turn(options.fromUp, options.toUp);
    Matrix matrix = rotation;
    for (double& entry : matrix)
        entry *= options.scale;

    std::unordered_map<AttributePtr, AttributePtr> buffers; // shared ones stay shared
    std::unordered_map<kel::mesh::MeshPtr, kel::mesh::MeshPtr> meshes;
    for (std::size_t m = 0; m < input.meshes.size(); ++m) {
        const kel::mesh::MeshPtr& mesh = input.meshes[m];
        if (!mesh) continue;
        const auto [known, isNew] = meshes.try_emplace(mesh);
        if (isNew) {
            const auto before = input.metaData.find(mesh);
            if (before != input.metaData.end() && before->second && before->second->count("fit") != 0) {
                throw std::invalid_argument(detail::placeOf(input, m) +
                                            " was fitted to a range already; transform it before that.");
            }
            std::vector<AttributePtr> attributes = detail::attributesOf(*mesh);
            for (AttributePtr& buffer : attributes) {
                if (!buffer) continue;
                const std::string name = buffer->getAttributeName();
                const bool isPosition = name == kel::mesh::DEFAULT_POSITIONS_NAME;
                if (!isPosition && !(turns && name == kel::mesh::DEFAULT_NORMALS_NAME)) continue;
                if (!kel::src::detail::isAttributeVec3f(buffer)) {
                    throw std::invalid_argument(detail::placeOf(input, m) + ": attribute \"" + name +
                                                "\" is not three floats per vertex and cannot be "
                                                "transformed; convert it.");
                }
                AttributePtr& done = buffers[buffer];
                if (!done) done = transformed(buffer, isPosition ? matrix : rotation);
                buffer = done;
            }
            known->second =
                std::make_shared<detail::AssembledMesh>(mesh->getPrimitiveType(), mesh->getNumPrimitives(),
                                                        mesh->getIndexBuffer(), std::move(attributes));
            auto& metaData = *detail::moveMeshEntries(result, mesh, known->second);
            Record record{matrix, options.scale, nameOf(options.fromUp), nameOf(options.toUp)};
            Record earlier;
            if (readRecord(metaData, earlier)) {
                record.matrix = product(matrix, earlier.matrix);
                record.scale *= earlier.scale;
                record.from = earlier.from;
            }
            metaData["transform"] = textOf(record);
        }
        result.meshes[m] = known->second;
    }
    return result;
}

} // namespace kel::prepare
