#include "GltfDocument.h"

#include <kel/src/text/JsonWriter.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace kel::importer::detail {

namespace {

[[noreturn]] void refuseShort(const ModelSource& source, const std::string& what, std::uint64_t offset) {
    source.refuse(ImportCode::TRUNCATED, what, "byte " + std::to_string(offset));
}

/// Where the two chunks of a GLB are.
struct Chunks {
    std::uint64_t jsonOffset = 0;
    std::uint64_t jsonLength = 0;
    std::uint64_t binaryOffset = 0;
    std::uint64_t binaryLength = 0;
    std::uint32_t version = glb::VERSION;
};

Chunks readChunks(const ModelSource& source, const Content& content) {
    std::array<std::uint32_t, 3> header{};
    static_assert(sizeof header == glb::PREAMBLE_BYTES);
    if (content.read(0, header.data(), sizeof header) != sizeof header)
        refuseShort(source, "the file ends within its header of 12 bytes", content.size());
    Chunks chunks;
    chunks.version = header[1];
    if (header[2] > content.size()) {
        refuseShort(source,
                    "the header announces " + std::to_string(header[2]) + " bytes, the file has " +
                        std::to_string(content.size()),
                    8);
    }
    if (chunks.version != glb::VERSION) return chunks;
    std::uint64_t offset = sizeof header;
    for (int index = 0; offset + glb::CHUNK_HEAD_BYTES <= header[2]; ++index) {
        std::array<std::uint32_t, 2> chunk{};
        static_assert(sizeof chunk == glb::CHUNK_HEAD_BYTES);
        content.read(offset, chunk.data(), sizeof chunk);
        const std::uint64_t start = offset + sizeof chunk;
        if (chunk[0] > header[2] - start) {
            refuseShort(source,
                        "a chunk announces " + std::to_string(chunk[0]) + " bytes, the file has " +
                            std::to_string(header[2] - start) + " left",
                        offset);
        }
        if (index == 0) {
            if (chunk[1] != glb::JSON_CHUNK) {
                source.refuse(ImportCode::INVALID_MODEL, "the first chunk is not JSON",
                              "byte " + std::to_string(offset));
            }
            chunks.jsonOffset = start;
            chunks.jsonLength = chunk[0];
        } else if (chunk[1] == glb::BINARY_CHUNK && chunks.binaryOffset == 0) {
            chunks.binaryOffset = start;
            chunks.binaryLength = chunk[0];
        }
        offset = start + chunk[0];
    }
    if (chunks.jsonOffset == 0) refuseShort(source, "the file ends before its JSON", offset);
    return chunks;
}

picojson::value parse(const ModelSource& source, const std::string& text) {
    picojson::value root;
    std::string problem;
    std::string::const_iterator end = text.begin();
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) end += 3;
    try {
        end = picojson::parse(root, end, text.end(), &problem);
    } catch (const std::overflow_error&) {
        problem = "a number is too large";
    }
    if (problem.empty() && !root.is<picojson::object>()) problem = "it is not an object";
    if (problem.empty() &&
        text.find_first_not_of(std::string(" \t\r\n\0", 5), static_cast<std::size_t>(end - text.begin())) !=
            std::string::npos) {
        problem = "more text follows its end";
    }
    if (!problem.empty()) {
        while (!problem.empty() && (problem.back() == ' ' || problem.back() == ':'))
            problem.pop_back();
        source.refuse(ImportCode::INVALID_JSON, "the JSON is broken: " + problem,
                      "line " + std::to_string(1 + std::count(text.begin(), end, '\n')));
    }
    return root;
}

bool isSkinning(const std::string& attribute) {
    return attribute.compare(0, 7, "JOINTS_") == 0 || attribute.compare(0, 8, "WEIGHTS_") == 0;
}

/// Extras and whose they are. Nodes of the map, so that putting them back cannot fail.
using PlainExtras = std::vector<std::pair<picojson::object*, picojson::object::node_type>>;

/// Takes out of a document what no mesh needs and what the reader stumbles over: skins, animations and morph
/// targets for good, extras that are no objects until the caller puts them back.
///
/// returns  whether there was anything of the kind
bool reduce(picojson::object& document, PlainExtras& plainExtras, Findings& findings) {
    using picojson::object;
    bool any = false;
    const auto takeOut = [&](object& from, const char* name) { any |= from.erase(name) > 0; };
    // The reader gives up on extras that are no objects, which they may be. Meshes get them from the document.
    for (const auto& list : document) {
        forEachObject(document, list.first.c_str(), [&](object& owner) {
            const auto extras = owner.find("extras");
            if (extras == owner.end() || extras->second.is<object>()) return;
            plainExtras.emplace_back(&owner, owner.extract(extras));
        });
    }

    const auto lengthOf = [](const object& owner, const char* list) {
        const auto found = owner.find(list);
        return found == owner.end() ? 0 : arrayOf(&found->second).size();
    };
    const auto report = [&](const char* kind, std::size_t count) {
        if (count > 0) findings.dropped.push_back({kind, count, ""});
    };
    std::size_t bones = 0;
    forEachObject(document, "skins", [&](object& skin) { bones += lengthOf(skin, "joints"); });
    report("bones", bones);
    report("animations", lengthOf(document, "animations"));
    takeOut(document, "skins");
    takeOut(document, "animations");
    forEachObject(document, "nodes", [&](object& node) {
        takeOut(node, "skin");
        takeOut(node, "weights");
    });
    std::size_t targets = 0;
    forEachObject(document, "meshes", [&](object& mesh) {
        takeOut(mesh, "weights");
        forEachObject(mesh, "primitives", [&](object& primitive) {
            targets += lengthOf(primitive, "targets");
            takeOut(primitive, "targets");
            const auto found = primitive.find("attributes");
            if (found == primitive.end() || !found->second.is<object>()) return;
            object& attributes = found->second.get<object>();
            for (auto entry = attributes.begin(); entry != attributes.end();) {
                const bool skinning = isSkinning(entry->first);
                any |= skinning;
                entry = skinning ? attributes.erase(entry) : std::next(entry);
            }
        });
    });
    report("morph targets", targets);
    return any || !plainExtras.empty();
}

} // namespace

std::string glb::front(std::string json, std::uint64_t tail) {
    json.resize((json.size() + 3) / 4 * 4, ' '); // where chunks end
    std::string result;
    result.reserve(PREAMBLE_BYTES + CHUNK_HEAD_BYTES + json.size());
    for (const std::uint64_t value : {std::uint64_t{MAGIC}, std::uint64_t{VERSION},
                                      PREAMBLE_BYTES + CHUNK_HEAD_BYTES + json.size() + tail,
                                      std::uint64_t{json.size()}, std::uint64_t{JSON_CHUNK}}) {
        for (int shift = 0; shift < 32; shift += 8)
            result += static_cast<char>(value >> shift & 0xFF); // little-endian
    }
    return result += json;
}

std::shared_ptr<const GltfDocument> readGltf(const ModelSource& source, const Content& content, bool binary,
                                             Findings& findings) {
    Chunks chunks;
    if (binary) {
        chunks = readChunks(source, content);
        if (chunks.version != glb::VERSION) return nullptr;
    } else {
        chunks.jsonLength = content.size();
    }
    picojson::value root = parse(source, content.text(chunks.jsonOffset, chunks.jsonLength));
    const std::string version = stringOf(member(member(&root, "asset"), "version"));
    // The first version keeps its lists as objects, and "asset" is optional there.
    const picojson::value* meshes = member(&root, "meshes");
    if (version.compare(0, 1, "1") == 0 || (meshes && meshes->is<picojson::object>())) return nullptr;

    auto document = std::make_shared<GltfDocument>(source, std::move(root));
    checkGltf(source, document->json(), content, chunks.binaryOffset, chunks.binaryLength, findings);
    PlainExtras plainExtras;
    if (reduce(document->json().get<picojson::object>(), plainExtras, findings)) {
        // The reader gets the JSON anew, in a GLB with the binary chunk behind it, its own head included.
        kel::src::text::appendJson(findings.front, document->json());
        if (binary && chunks.binaryOffset > 0) {
            findings.tailOffset = chunks.binaryOffset - glb::CHUNK_HEAD_BYTES;
            findings.tailLength = chunks.binaryLength + glb::CHUNK_HEAD_BYTES;
        }
        if (binary) findings.front = glb::front(std::move(findings.front), findings.tailLength);
    }
    for (auto& [owner, extras] : plainExtras)
        owner->insert(std::move(extras));
    document->keepDescriptions();
    return document;
}

} // namespace kel::importer::detail
