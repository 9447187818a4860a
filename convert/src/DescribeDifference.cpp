#include <kel/convert/Compare.h>

#include <kel/convert/Texts.h>

namespace kel::convert {

namespace {

constexpr const char* KIND_NAMES[] = {"meshes",     "names",     "positions", "orientation",
                                      "topology",   "normals",   "colors",    "texcoords",
                                      "attributes", "materials", "metadata",  "textures"};

std::string placeText(const Point& place) {
    return " (" + shortNumber(place[0], 8) + ", " + shortNumber(place[1], 8) + ", " +
           shortNumber(place[2], 8) + ')';
}

} // namespace

const char* kindName(DifferenceKind kind) {
    return KIND_NAMES[static_cast<std::size_t>(kind)];
}

const std::vector<DifferenceKind>& allDifferenceKinds() {
    static const std::vector<DifferenceKind> all = [] {
        std::vector<DifferenceKind> kinds;
        for (std::size_t i = 0; i < std::size(KIND_NAMES); ++i)
            kinds.push_back(static_cast<DifferenceKind>(i));
        return kinds;
    }();
    return all;
}

std::string describe(const Difference& difference) {
    std::string text = difference.mesh.empty() ? "" : "mesh \"" + difference.mesh + "\": ";
    text += kindName(difference.kind);
    if (!difference.what.empty() && difference.kind != DifferenceKind::NAMES)
        text += " \"" + difference.what + '"';
    if (!difference.detail.empty()) {
        text += ": " + difference.detail;
        return difference.place ? text + ", first at" + placeText(*difference.place) : text;
    }
    text += " off by " + shortNumber(difference.amount);
    if (difference.kind == DifferenceKind::NORMALS) text += " degrees";
    text += difference.limit > 0 ? ", more than " + shortNumber(difference.limit)
                                 : std::string(", where nothing may be lost");
    text += ", at " + counted(difference.count, "place", "places");
    return difference.place ? text + ", worst at" + placeText(*difference.place) : text;
}

} // namespace kel::convert
