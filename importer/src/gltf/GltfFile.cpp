#include "GltfFile.h"

#include "Glb.h"
#include "GltfChecker.h"
#include "GltfReduction.h"

#include <kel/src/text/JsonWriter.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
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

/// What the reader gets in place of a GLB: its JSON anew, with the binary chunk behind it.
void replaceGlb(std::string json, const Chunks& chunks, Findings& findings) {
    glb::padJson(json);
    std::string& front = findings.front;
    glb::appendUint32(front, glb::MAGIC);
    glb::appendUint32(front, glb::VERSION);
    const std::uint64_t tail = chunks.binaryOffset == 0 ? 0 : glb::CHUNK_HEAD_BYTES + chunks.binaryLength;
    glb::appendUint32(front, glb::PREAMBLE_BYTES + glb::CHUNK_HEAD_BYTES + json.size() + tail);
    glb::appendUint32(front, json.size());
    glb::appendUint32(front, glb::JSON_CHUNK);
    front += json;
    if (tail > 0) {
        // The binary chunk, with its own head, as it stands in the file.
        findings.tailOffset = chunks.binaryOffset - glb::CHUNK_HEAD_BYTES;
        findings.tailLength = tail;
    }
}

} // namespace

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
    // The content lives as long as this call; buffers within it must not outlive it.
    const std::shared_ptr<const Content> whole(&content, [](const Content*) {});
    checkGltf(GltfFields(source, document->json()), whole, chunks.binaryOffset, chunks.binaryLength,
              findings);
    {
        const GltfReduction reduction(document->json(), findings);
        if (reduction.changed()) {
            std::string json;
            kel::src::text::appendJson(json, document->json());
            if (binary) {
                replaceGlb(std::move(json), chunks, findings);
            } else {
                findings.front = std::move(json);
            }
        }
    }
    document->keepDescriptions();
    return document;
}

} // namespace kel::importer::detail
