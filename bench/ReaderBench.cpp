// The reader beside its limits: opening a file of many meshes beside reading its bytes and simdjson's own
// parse of its header, decoding beside memcpy of what comes out.

#include <kel/mesh/KelMesh.h>
#include <kel/src/DefaultSrcWriter.h>
#include <kel/src/SrcReader.h>
#include <kel/src/SrcValidator.h>
#include <kel/src/SrcWriter.h>

#include <benchmark/benchmark.h>
#include <simdjson.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace kel::src;

/// A file on disk that goes with the process.
class BenchFile {
public:
    explicit BenchFile(std::size_t meshes) {
        char pattern[] = "/tmp/kelsrc_bench_XXXXXX";
        const int descriptor = ::mkstemp(pattern);
        ::close(descriptor);
        path = pattern;
        SrcWriterInput input;
        for (std::size_t i = 0; i < meshes; ++i) {
            auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
            mesh->addAttribute("position", 3, std::vector<float>{0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1});
            mesh->addAttribute("normal", 3, std::vector<float>(12, 0.5f));
            mesh->addAttribute("texcoord", 2, std::vector<float>(8, 0.25f));
            mesh->setIndices(std::vector<std::uint16_t>{0, 1, 2, 0, 3, 1});
            auto metadata = std::make_shared<std::map<std::string, std::string>>();
            (*metadata)["name"] = "\"part " + std::to_string(i) + "\"";
            input.metaData[mesh] = std::move(metadata);
            input.meshes.push_back(std::move(mesh));
        }
        std::ofstream out(path, std::ios::binary);
        writeMeshSrcDefault(input, out);
    }
    ~BenchFile() { std::remove(path.c_str()); }
    std::string path;
};

const std::string& fileOf(std::size_t meshes) {
    static std::map<std::size_t, BenchFile> files;
    return files.try_emplace(meshes, meshes).first->second.path;
}

void readAndParse(benchmark::State& state) {
    const std::string& path = fileOf(static_cast<std::size_t>(state.range(0)));
    std::size_t bytes = 0;
    for (auto _ : state) {
        const int descriptor = ::open(path.c_str(), O_RDONLY);
        bytes = static_cast<std::size_t>(::lseek(descriptor, 0, SEEK_END));
        ::lseek(descriptor, 0, SEEK_SET);
        const std::unique_ptr<char, decltype(&std::free)> block(static_cast<char*>(std::malloc(bytes)),
                                                                &std::free);
        for (std::size_t got = 0; got < bytes;)
            got += static_cast<std::size_t>(::read(descriptor, block.get() + got, bytes - got));
        ::close(descriptor);
        std::uint32_t header = 0;
        std::memcpy(&header, block.get() + 8, sizeof header);
        simdjson::dom::parser parser;
        simdjson::dom::element root;
        if (parser.parse(block.get() + 12, header, false).get(root)) state.SkipWithError("no JSON");
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}

void open(benchmark::State& state) {
    const std::string& path = fileOf(static_cast<std::size_t>(state.range(0)));
    std::size_t meshes = 0;
    std::uint64_t bytes = 0;
    for (auto _ : state) {
        const SrcFile file = openSrc(path);
        meshes = file.meshes().size();
        bytes = file.dataOffset() + file.dataBytes();
    }
    if (meshes != static_cast<std::size_t>(state.range(0))) state.SkipWithError("meshes are missing");
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}

void validateAll(benchmark::State& state) {
    const std::string& path = fileOf(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        if (validateSrc(path).errors() != 0) state.SkipWithError("the file is broken");
    }
}

constexpr std::size_t VERTICES = 502500;

const std::string& vertexFile(bool compressed) {
    static std::string files[2];
    std::string& text = files[compressed ? 1 : 0];
    if (!text.empty()) return text;
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    std::vector<float> positions(VERTICES * 3);
    for (std::size_t i = 0; i < positions.size(); ++i)
        positions[i] = static_cast<float>(i * 2654435761u % 65536u) / 65536.0f - 0.5f;
    mesh->addAttribute("position", 3, positions);
    mesh->addAttribute("normal", 3, std::move(positions));
    mesh->setIndices(std::vector<std::uint32_t>{0, 1, 2});
    SrcWriterInput input;
    input.meshes.push_back(mesh);
    input.useCompressedPreset = compressed;
    std::ostringstream out;
    writeMeshSrcDefault(input, out);
    return text = out.str();
}

void decode(benchmark::State& state, bool compressed, const char* name) {
    const std::string& text = vertexFile(compressed);
    const SrcFile file = readSrc(ByteView(std::string_view(text)));
    const SrcAttributeView& view = *file.findAttribute(file.meshes()[0], name);
    std::vector<float> target(VERTICES * 3);
    for (auto _ : state) {
        decodeAttribute(file, view, target.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * target.size() * sizeof(float)));
}

void copyFloats(benchmark::State& state) {
    const std::vector<float> source(VERTICES * 3, 1.0f);
    std::vector<float> target(VERTICES * 3);
    for (auto _ : state) {
        std::memcpy(target.data(), source.data(), source.size() * sizeof(float));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * target.size() * sizeof(float)));
}

BENCHMARK(readAndParse)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(open)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(validateAll)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(copyFloats);
BENCHMARK_CAPTURE(decode, floats, false, "position");
BENCHMARK_CAPTURE(decode, codesOf16Bits, true, "position");
BENCHMARK_CAPTURE(decode, codesOf8Bits, true, "normal");

} // namespace
