#pragma once

// What every hostile-input test does with a block of bytes: everything that a caller could.

#include <kel/src/SrcReader.h>
#include <kel/src/SrcValidator.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace fuzz {

using namespace kel::src;

/// Ends the process with a message when something does not hold that must, so that every fuzzer sees it.
inline void require(bool holds, const std::string& what) {
    if (holds) return;
    std::cerr << "does not hold: " << what << std::endl;
    std::abort();
}

/// Limits that a small block of bytes cannot reach honestly.
inline ReadLimits smallLimits() {
    ReadLimits limits;
    limits.memoryBytes = std::uint64_t(64) << 20;
    return limits;
}

/// What readSrc made of the bytes: a file, or the code that it refused them with.
struct Reading {
    std::optional<SrcFile> file;
    std::optional<SrcCode> refused;
};

template<typename Read>
Reading readingOf(Read&& read) {
    Reading reading;
    try {
        reading.file = read();
    } catch (const SrcError& error) {
        require(infoOf(error.code()).refused, "the reader throws only what the table says");
        reading.refused = error.code();
    }
    return reading;
}

inline void decodeAll(const SrcFile& file) {
    DecodeOptions options;
    options.ownAttributesOnly = false;
    options.memoryBytes = std::uint64_t(16) << 20;
    constexpr std::size_t MOST_MESHES = 64;
    for (std::size_t m = 0; m < std::min(file.meshes().size(), MOST_MESHES); ++m) {
        try {
            decodeMesh(file, file.meshes()[m], options);
        } catch (const SrcError& error) {
            require(error.code() == SrcCode::LIMIT_EXCEEDED, "a mesh that was let in decodes");
        }
    }
    for (const SrcMaterial& material : file.materials())
        file.materialParameter(material, "diffuseColor");
    jsonMembers(file.metadata());
}

/// Reads the bytes in every way, uses all that comes out, and compares the ways with one another:
/// - memory and a stream agree, but for chunks that end past the stream's end, which both refuse;
/// - the validator finds exactly what the reader refuses;
/// - a file that was let in can be decoded, turned into an input, and streamed mesh by mesh.
///
/// returns  the code that readSrc refused the bytes with
inline std::optional<SrcCode> exercise(ByteView bytes) {
    const ReadLimits limits = smallLimits();
    const Reading memory = readingOf([&] { return readSrc(bytes, limits); });

    std::istringstream in(std::string(reinterpret_cast<const char*>(bytes.data), bytes.size));
    const Reading streamed = readingOf([&] { return readSrc(in, limits); });
    require(memory.refused == streamed.refused || streamed.refused == SrcCode::LIMIT_EXCEEDED,
            "a stream reads as the same bytes in memory do");

    ValidateOptions options;
    options.limits = limits;
    options.maxFindings = std::size_t(1) << 16;
    const ValidationReport report = validateSrc(bytes, options);
    if (report.findings.size() < options.maxFindings) {
        bool refuses = false, same = false;
        for (const SrcFinding& finding : report.findings) {
            const bool workLimit = finding.code == SrcCode::LIMIT_EXCEEDED && !memory.refused;
            refuses |= infoOf(finding.code).refused && !workLimit;
            same |= memory.refused == finding.code;
        }
        require(refuses == memory.refused.has_value(),
                "the validator finds an error where the reader refuses, and only there");
        require(!memory.refused || same, "the validator finds what the reader refuses");
    }

    if (!memory.file) return memory.refused;
    decodeAll(*memory.file);
    try {
        toInput(*memory.file, limits);
    } catch (const SrcError& error) {
        require(error.code() == SrcCode::LIMIT_EXCEEDED, "a file that was let in becomes an input");
    }
    in.clear();
    in.seekg(0);
    try {
        SrcStream stream(in, limits);
        std::size_t meshes = 0;
        DecodeOptions decode;
        decode.memoryBytes = std::uint64_t(1) << 20;
        while (const SrcMesh* mesh = stream.next()) {
            if (++meshes <= 64) {
                try {
                    decodeMesh(stream.file(), *mesh, decode);
                } catch (const SrcError& error) {
                    require(error.code() == SrcCode::LIMIT_EXCEEDED, "a streamed mesh decodes");
                }
            }
        }
        require(meshes == memory.file->meshes().size(), "a stream hands out every mesh");
        require(stream.heldBytes() == 0, "a stream that is through holds nothing");
    } catch (const SrcError& error) {
        require(error.code() == SrcCode::STREAM_OVERLAP || error.code() == SrcCode::LIMIT_EXCEEDED,
                "a stream refuses only chunks that share bytes");
    }
    return memory.refused;
}

} // namespace fuzz
