// kelsrc_compare [--markdown FILE] [--plot FILE] [--scenes abc]
//
// The same geometry through this library's writers and through others, in one run: time, bytes, bytes after
// zstd and gzip, peak memory. Every result is looked at before it is timed. Times are medians; each writer
// starts from its own form of the scene, which is made beforehand.

#include "Peers.h"
#include "Scenes.h"

#include <kel/prepare/SplitForShortIndices.h>
#include <kel/src/DefaultSrcWriter.h>
#include <kel/src/SrcWriter.h>

#include <zlib.h>
#include <zstd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace kel::bench;

struct Result {
    std::string writer;
    double milliseconds = 0;
    std::size_t bytes = 0, zstd = 0, gzip = 0, peak = 0;
};

struct SceneResults {
    char name;
    std::string title;
    std::vector<Result> results;
};

std::size_t zstdSize(const std::string& bytes) {
    std::string out(ZSTD_compressBound(bytes.size()), '\0');
    const std::size_t size = ZSTD_compress(out.data(), out.size(), bytes.data(), bytes.size(), 3);
    if (ZSTD_isError(size)) throw std::runtime_error(ZSTD_getErrorName(size));
    return size;
}

std::size_t gzipSize(const std::string& bytes) {
    z_stream stream{};
    if (deflateInit2(&stream, 6, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
        throw std::runtime_error("zlib does not start");
    }
    std::string out(deflateBound(&stream, bytes.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    const int state = deflate(&stream, Z_FINISH);
    const std::size_t size = stream.total_out;
    deflateEnd(&stream);
    if (state != Z_STREAM_END) throw std::runtime_error("zlib does not finish");
    return size;
}

double medianMilliseconds(const std::function<void()>& work, std::size_t mostTimes = 40) {
    using Clock = std::chrono::steady_clock;
    std::vector<double> times;
    const auto begin = Clock::now();
    const auto elapsed = [&] {
        return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
    };
    do {
        const double start = elapsed();
        work();
        times.push_back(elapsed() - start);
    } while (times.size() < mostTimes && elapsed() < 2000);
    std::nth_element(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2),
                     times.end());
    return times[times.size() / 2];
}

using Write = std::function<void(std::ostream&)>;

Result measure(const std::string& name, const Write& write,
               const std::function<void(const std::string&)>& check) {
    std::cerr << "  " << name << std::flush;
    Result result;
    result.writer = name;
    result.peak = peakMemoryOf([&] {
        CountingStream out;
        write(out);
    });
    double firstMilliseconds = 0;
    {
        std::ostringstream out;
        firstMilliseconds = medianMilliseconds([&] { write(out); }, 1);
        const std::string bytes = out.str();
        check(bytes);
        result.bytes = bytes.size();
        result.zstd = zstdSize(bytes);
        result.gzip = gzipSize(bytes);
    }
    // What takes many seconds is not taken again; against that, keeping the bytes is nothing.
    result.milliseconds = firstMilliseconds;
    if (firstMilliseconds < 5000)
        result.milliseconds = medianMilliseconds([&] {
            CountingStream out;
            write(out);
            if (out.bytes() != result.bytes)
                throw std::runtime_error(name + " writes other bytes the second time");
        });
    std::cerr << ": " << result.milliseconds << " ms\n";
    return result;
}

void checkSrc(const std::string& file) {
    const std::string signature("\x17\0\0\0\x2a\0\0\0", 8);
    if (file.compare(0, 8, signature) != 0) throw std::runtime_error("not an SRC file");
}

void checkGlb(const std::string& file) {
    if (file.compare(0, 4, "glTF") != 0) throw std::runtime_error("not a GLB file");
}

void checkAny(const std::string& bytes) {
    if (bytes.empty()) throw std::runtime_error("nothing was written");
}

SceneResults compare(char name) {
    const Scene& s = scene(name);
    SceneResults all{name,
                     std::to_string(s.meshes) + (s.meshes == 1 ? " mesh of " : " meshes of ") +
                         std::to_string(s.triangles() / s.meshes) + " triangles",
                     {}};
    std::cerr << "scene " << name << ": " << all.title << '\n';
    const auto add = [&](const std::string& writer, const Write& write, void (*check)(const std::string&)) {
        all.results.push_back(measure(writer, write, check));
    };

    Result limit;
    limit.writer = "memcpy into fresh memory";
    limit.milliseconds = medianMilliseconds([&] { copyToFreshMemory(s, payloadOf(s)); });
    limit.bytes = s.inputBytes();
    limit.peak = s.inputBytes();
    all.results.push_back(limit);

    kel::src::SrcWriterInput compressed = s.input;
    compressed.useCompressedPreset = true;
    const kel::src::SrcWriterInput shortIndices = kel::prepare::splitForShortIndices(s.input);
    using kel::src::SrcWriter;
    add(
        "kelSrc uncompressed",
        [&](std::ostream& out) { SrcWriter::write(shortIndices, out, SrcWriter::UNCOMPRESSED); }, checkSrc);
    add(
        "kelSrc position",
        [&](std::ostream& out) { SrcWriter::write(shortIndices, out, SrcWriter::POSITION_COMPRESSED); },
        checkSrc);
    add(
        "kelSrc position-normal",
        [&](std::ostream& out) {
            SrcWriter::write(shortIndices, out, SrcWriter::POSITION_NORMAL_COMPRESSED);
        },
        checkSrc);
    add(
        "kelSrc container, default", [&](std::ostream& out) { kel::src::writeMeshSrcDefault(s.input, out); },
        checkSrc);
    add(
        "kelSrc container, CMP1", [&](std::ostream& out) { kel::src::writeMeshSrcDefault(compressed, out); },
        checkSrc);

    add(
        "tinygltf, GLB", [&](std::ostream& out) { writeTinygltf(s, out); }, checkGlb);
    {
        const MeshoptimizerInput input(s);
        add(
            "meshoptimizer encoders, 16 bits", [&](std::ostream& out) { input.write(out); }, checkAny);
    }
    {
        const DracoInput input(s);
        add(
            "Draco, speed 10", [&](std::ostream& out) { input.write(out, 10); }, checkAny);
        add(
            "Draco, speed 5", [&](std::ostream& out) { input.write(out, 5); }, checkAny);
    }
    if (s.meshes <= 1000) { // its time grows with the square of the meshes: minutes for scene c
        const AssimpInput input(s);
        add(
            "Assimp, glb2", [&](std::ostream& out) { input.write(out); }, checkGlb);
    }
    return all;
}

std::string fixed(double value, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

std::string megabytes(std::size_t bytes) {
    return bytes == 0 ? "" : fixed(static_cast<double>(bytes) / 1e6, 1);
}

void writeTables(std::ostream& out, const std::vector<SceneResults>& scenes) {
    for (const SceneResults& scene : scenes) {
        out << "### Scene " << scene.name << ": " << scene.title << "\n\n"
            << "| writer | ms | MB | MB after zstd -3 | MB after gzip -6 | peak MB over the scene |\n"
            << "|---|---:|---:|---:|---:|---:|\n";
        for (const Result& result : scene.results) {
            out << "| " << result.writer << " | " << fixed(result.milliseconds, 1) << " | "
                << megabytes(result.bytes) << " | " << megabytes(result.zstd) << " | "
                << megabytes(result.gzip) << " | " << megabytes(result.peak) << " |\n";
        }
        out << '\n';
    }
}

/// Horizontal bars on a logarithmic scale, one group per scene.
void writePlot(std::ostream& out, const std::vector<SceneResults>& scenes) {
    const int left = 230, width = 520, row = 20, group = 40;
    std::size_t rows = 0;
    for (const SceneResults& scene : scenes)
        rows += scene.results.size();
    const int height = static_cast<int>(rows) * row + static_cast<int>(scenes.size()) * group + 30;
    const auto x = [&](double ms) { return left + width * (std::log10(std::max(ms, 1.0)) / 5.0); };
    out << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " << left + width + 80 << ' ' << height
        << "\" font-family=\"sans-serif\" font-size=\"12\">\n"
        << "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
    int y = 10;
    for (const SceneResults& scene : scenes) {
        out << "<text x=\"10\" y=\"" << y + 18 << "\" font-weight=\"bold\" fill=\"#222222\">" << scene.name
            << ": " << scene.title << ", milliseconds (logarithmic)</text>\n";
        y += group - 10;
        for (const Result& result : scene.results) {
            const bool ours = result.writer.compare(0, 6, "kelSrc") == 0;
            const double end = x(result.milliseconds);
            out << "<text x=\"" << left - 8 << "\" y=\"" << y + 13
                << "\" text-anchor=\"end\" fill=\"#222222\">" << result.writer << "</text>\n"
                << "<rect x=\"" << left << "\" y=\"" << y + 2 << "\" width=\""
                << fixed(std::max(1.0, end - left), 1) << "\" height=\"14\" fill=\""
                << (ours ? "#1f6feb" : "#9aa4ad") << "\"/>\n"
                << "<text x=\"" << fixed(std::max(end, left + 1.0) + 6, 1) << "\" y=\"" << y + 13
                << "\" fill=\"#222222\">" << fixed(result.milliseconds, 1) << "</text>\n";
            y += row;
        }
        y += 10;
    }
    out << "</svg>\n";
}

/// Replaces what stands between the two marker lines of a document.
void replaceBetweenMarkers(const std::string& path, const std::string& text) {
    const std::string begin = "<!-- measured: begin -->\n", end = "<!-- measured: end -->";
    std::ifstream in(path);
    std::string document((std::istreambuf_iterator<char>(in)), {});
    const std::size_t from = document.find(begin), to = document.find(end);
    if (from == std::string::npos || to == std::string::npos) {
        throw std::runtime_error(path + " has no lines \"measured: begin\" and \"measured: end\"");
    }
    document.replace(from + begin.size(), to - from - begin.size(), "\n" + text);
    in.close();
    std::ofstream(path) << document;
}

constexpr char USAGE[] =
    "usage: kelsrc_compare [--markdown FILE] [--plot FILE] [--scenes abc]\n"
    "\n"
    "Writes the same geometry through this library and through others, and prints time, bytes and memory.\n"
    "  --markdown FILE  put the tables between the marker lines of that document, too\n"
    "  --plot FILE      draw the times as SVG\n"
    "  --scenes abc     measure these scenes; default: abc\n";

/// Whether each letter names a scene; measuring takes minutes, so a slip must show before it starts.
bool nameScenes(const std::string& names) {
    return !names.empty() && names.find_first_not_of("abc") == std::string::npos;
}

} // namespace

int main(int argc, char** argv) {
    try {
        std::string markdown, plot, names = "abc";
        const std::vector<std::string> arguments(argv + 1, argv + argc);
        for (std::size_t i = 0; i < arguments.size(); i += 2) {
            const std::string& option = arguments[i];
            if (option == "--help" || option == "-h") {
                std::cout << USAGE;
                return 0;
            }
            std::string* const value = option == "--markdown" ? &markdown
                                       : option == "--plot"   ? &plot
                                       : option == "--scenes" ? &names
                                                              : nullptr;
            if (!value || i + 1 == arguments.size()) {
                std::cerr << "kelsrc_compare: " << (value ? "no value for " : "unknown option ") << option
                          << '\n'
                          << USAGE;
                return 2;
            }
            *value = arguments[i + 1];
        }
        if (!nameScenes(names)) {
            std::cerr << "kelsrc_compare: there is no scene \"" << names << "\"; scenes are a, b and c\n";
            return 2;
        }
        std::vector<SceneResults> scenes;
        for (const char name : names)
            scenes.push_back(compare(name));
        std::ostringstream tables;
        writeTables(tables, scenes);
        std::cout << tables.str();
        if (!markdown.empty()) replaceBetweenMarkers(markdown, tables.str());
        if (!plot.empty()) {
            std::ofstream file(plot);
            writePlot(file, scenes);
        }
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "kelsrc_compare: " << error.what() << '\n';
        return 1;
    }
}
