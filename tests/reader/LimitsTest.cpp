// Reader and validator load a file in the same way: what the limits of the one refuse, the other refuses
// too, at the same place and in the same words.

#include "Files.h"

#include <kel/src/SrcReader.h>
#include <kel/src/SrcValidator.h>

#include <support/TempFolder.h>

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <tuple>
#include <vector>

namespace {

using namespace kel::src;
using namespace reader_fixture;

using Refusal = std::tuple<SrcCode, std::uint64_t, std::string, std::string>;

std::optional<Refusal> refusalBy(const std::function<SrcFile()>& read) {
    try {
        read();
    } catch (const SrcError& error) {
        return Refusal(error.code(), error.byteOffset(), error.path(), error.detail());
    }
    return std::nullopt;
}

/// The first finding for which the reader refuses a file. What is found after loading is left out: views
/// that are too long to look into.
std::optional<Refusal> refusalIn(const ValidationReport& report) {
    for (const SrcFinding& finding : report.findings) {
        const bool isAfterLoading = finding.detail.find("what follows was not checked") != std::string::npos;
        if (infoOf(finding.code).refused && !isAfterLoading)
            return Refusal(finding.code, finding.byteOffset, finding.path, finding.detail);
    }
    return std::nullopt;
}

/// A file on disk, for as long as it lives.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

    const kel::tests::TempFolder folder;
    const std::string path = folder / "limits.src";
};

/// Compares reader and validator with one another.
///
/// returns  whether memory, stream and mapped file were refused
std::array<bool, 3> compare(const std::string& text, const std::string& path, const ReadLimits& limits) {
    ValidateOptions options;
    options.limits = limits;
    std::istringstream forReader(text), forValidator(text);
    const std::optional<Refusal> read[] = {
        refusalBy([&] { return readSrc(ByteView(std::string_view(text)), limits); }),
        refusalBy([&] { return readSrc(forReader, limits); }),
        refusalBy([&] { return openSrc(path, limits); })};
    const std::optional<Refusal> validated[] = {
        refusalIn(validateSrc(ByteView(std::string_view(text)), options)),
        refusalIn(validateSrc(forValidator, options)), refusalIn(validateSrc(path, options))};
    std::array<bool, 3> refused{};
    for (std::size_t way = 0; way < refused.size(); ++way) {
        EXPECT_EQ(read[way], validated[way]) << "way " << way << ", memoryBytes " << limits.memoryBytes;
        refused[way] = read[way].has_value();
    }
    return refused;
}

TEST(Limits, ReaderAndValidatorTakeTheSameMemory) {
    const std::string text =
        write(fixture::inputOf({fixture::sphere(60, 40), fixture::twoMaterials().meshes[0]}), Mode::DEFAULT);
    const TemporaryFile file(text);
    const SrcText parts(text);
    ReadLimits limits;
    std::vector<std::uint64_t> memory = {0,
                                         1,
                                         parts.header.size() - 1,
                                         parts.header.size(),
                                         parts.header.size() + 1,
                                         parts.data.size() - 1,
                                         parts.data.size(),
                                         parts.data.size() + 1};
    for (std::uint64_t bytes = 100; bytes < 2 * text.size(); bytes += bytes < 40000 ? 257 : 9973)
        memory.push_back(bytes);
    std::array<int, 3> refused{}, taken{};
    for (const std::uint64_t bytes : memory) {
        limits.memoryBytes = bytes;
        const std::array<bool, 3> result = compare(text, file.path, limits);
        for (std::size_t way = 0; way < result.size(); ++way)
            ++(result[way] ? refused : taken)[way];
    }
    for (std::size_t way = 0; way < refused.size(); ++way) {
        EXPECT_GT(refused[way], 10) << way;
        EXPECT_GT(taken[way], 10) << way;
    }
}

TEST(Limits, AStreamsHeaderCountsAsMemory) {
    // Much header and hardly any data: what a header in memory is allowed to take is too little for one
    // that has to be stored first.
    const std::string text =
        Editable(triangleFile())
            .replace("\"meta\":{}", "\"meta\":{\"x\":\"" + std::string(100000, 'x') + "\"}")
            .file();
    const TemporaryFile file(text);
    ReadLimits limits;
    limits.memoryBytes = 5 * SrcText(text).header.size();
    EXPECT_EQ(compare(text, file.path, limits), (std::array<bool, 3>{false, true, false}));
    limits.memoryBytes = 6 * SrcText(text).header.size();
    EXPECT_EQ(compare(text, file.path, limits), (std::array<bool, 3>{false, false, false}));
}

TEST(Limits, ReaderAndValidatorRefuseTheSameHeaders) {
    const std::string text = write(fixture::twoMaterials(), Mode::DEFAULT);
    const TemporaryFile file(text);
    constexpr std::array<bool, 3> ALL{true, true, true}, NONE{false, false, false};
    ReadLimits limits;
    EXPECT_EQ(compare(text, file.path, limits), NONE);
    limits.headerBytes = SrcText(text).header.size() - 1;
    EXPECT_EQ(compare(text, file.path, limits), ALL);
    limits = {};
    limits.entries = 1;
    EXPECT_EQ(compare(text, file.path, limits), ALL);
    limits = {};
    limits.stringBytes = 5;
    EXPECT_EQ(compare(text, file.path, limits), ALL);
    limits = {};
    limits.depth = 5;
    EXPECT_EQ(compare(text, file.path, limits), ALL);
    limits.depth = 6;
    EXPECT_EQ(compare(text, file.path, limits), NONE);
}

TEST(Limits, ReaderAndValidatorFindTheSameFileTooShort) {
    const std::string text = triangleFile();
    for (std::size_t length = 0; length <= text.size(); length += 7) {
        const std::string cut = text.substr(0, length);
        const TemporaryFile file(cut);
        const bool isCut = length < text.size();
        EXPECT_EQ(compare(cut, file.path, {}), (std::array<bool, 3>{isCut, isCut, isCut})) << length;
    }
}

} // namespace
