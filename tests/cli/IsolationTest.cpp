// Damaged models through the real command: each is an error of its own, and nothing stays behind.

#include "ChildProcess.h"
#include "CommandRun.h"

#include <picojson.h>

#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <sys/stat.h>
#include <thread>

namespace {

using namespace kel::tests;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

const char* const TRIANGLE_OFF = "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n";

/// The children of a process and theirs.
std::vector<pid_t> descendantsOf(pid_t process) {
    std::vector<pid_t> found;
    std::ifstream children("/proc/" + std::to_string(process) + "/task/" + std::to_string(process) +
                           "/children");
    for (pid_t child; children >> child;) {
        found.push_back(child);
        const std::vector<pid_t> below = descendantsOf(child);
        found.insert(found.end(), below.begin(), below.end());
    }
    return found;
}

bool isAlive(pid_t process) {
    std::string name;
    std::ifstream("/proc/" + std::to_string(process) + "/cmdline") >> name; // empty in a zombie
    return !name.empty();
}

template<typename Condition>
bool comesTrue(const Condition& condition) {
    for (int i = 0; i < 4000; ++i) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

class Isolation : public testing::Test {
protected:
    /// A model whose reader waits for ever: it names a pipe that nobody writes to.
    std::string hangingModel() const {
        ::mkfifo((folder / "in/pipe.lwo").c_str(), 0600);
        return writeFile(folder / "in/hangs.lws", "LWSC\n3\n\nLoadObject " + folder / "in/pipe.lwo" + "\n");
    }

    TempFolder folder;
    const bool made = std::filesystem::create_directories(folder / "in");
    const std::string good = writeFile(folder / "in/good.off", TRIANGLE_OFF);
};

TEST_F(Isolation, ASignalEndsHelperAndReaderToo) {
    for (const auto& [signal, status] :
         {std::pair{SIGINT, 130}, std::pair{SIGTERM, 143}, std::pair{SIGKILL, -9}}) {
        const std::string model = hangingModel();
        ChildProcess command([&] {
            ::signal(SIGINT, SIG_DFL);
            return execCommand({"convert", model, "-o", folder / "out.src", "-q"});
        });
        ASSERT_TRUE(comesTrue([&] { return descendantsOf(command.pid()).size() == 2; }));
        const std::vector<pid_t> descendants = descendantsOf(command.pid());
        command.signal(signal);
        EXPECT_EQ(command.wait(), status);
        for (const pid_t process : descendants)
            EXPECT_TRUE(comesTrue([&] { return !isAlive(process); }));
    }
    EXPECT_THAT(folder.entries(), ElementsAre("in"));
}

TEST_F(Isolation, AHangIsAnErrorAndTheBatchGoesOn) {
    const ProcessResult result = runProcess(
        {"convert", hangingModel(), good, "-o", folder / "out", "--jobs=2", "--import-timeout=0.3"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("hangs.lws: the reader did not finish within 0.3 s; "));
    EXPECT_THAT(result.err, HasSubstr("1 of 2 models converted, 1 failed"));
    EXPECT_TRUE(std::filesystem::exists(folder / "out/good.src"));
    EXPECT_FALSE(std::filesystem::exists(folder / "out/hangs.src"));
}

TEST_F(Isolation, LimitsHoldForDiffToo) {
    const ProcessResult result = runProcess({"diff", hangingModel(), good, "--import-timeout=0.3"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("did not finish within 0.3 s"));
}

TEST_F(Isolation, SizesHaveUnits) {
    for (const char* memory : {"none", "0", "1G", "2048M", "1.5G", "4000000K", "6000000000"})
        EXPECT_EQ(runCommand({"convert", good, "-o", folder / "out.src", "--import-memory", memory}).status,
                  0)
            << memory;
}

TEST_F(Isolation, WhatIsNoLimitIsRefused) {
    for (const char* timeout : {"-1", "soon", "3s", "nan", "inf"})
        EXPECT_EQ(runCommand({"convert", good, "-o", folder / "out.src", "--import-timeout", timeout}).status,
                  2)
            << timeout;
    for (const char* memory : {"-1M", "much", "3X", "1GB", "M", "9999999999T"})
        EXPECT_EQ(runCommand({"convert", good, "-o", folder / "out.src", "--import-memory", memory}).status,
                  2)
            << memory;
}

// ---- Damage ---------------------------------------------------------------------------------------------

const std::filesystem::path MODELS = "/usr/share/assimp/models";

/// Cut off, or with bytes and words changed.
std::string damaged(std::string content, unsigned seed) {
    std::mt19937 random(seed);
    if (content.empty()) return content;
    switch (seed % 3) {
    case 0:
        content.resize(1 + random() % content.size());
        break;
    case 1:
        for (int i = 0; i < 20; ++i)
            content[random() % content.size()] = static_cast<char>(random());
        break;
    default:
        // Counts and offsets that lead anywhere.
        for (int i = 0; i < 4; ++i) {
            const std::size_t at = random() % content.size();
            for (std::size_t b = at; b < std::min(at + 4, content.size()); ++b)
                content[b] = '\xFF';
        }
    }
    return content;
}

TEST(DamagedModels, NeverEndABatch) {
    const TempFolder folder;
    std::filesystem::create_directory(folder / "in");
    std::size_t files = 0;
    // Formats whose readers in Assimp 5.2.5 damaged files crash or hang.
    for (const char* name :
         {"MDL/MDL3 (3DGS A4)/minigun.MDL", "MDL/MDL5 (3DGS A5)/minigun_mdl5.mdl", "MDL/MDL (HL1)/man.mdl",
          "ASE/ThreeCubesGreen.ASE", "X/test_cube_binary.x", "COB/dwarf.cob", "COB/molecule_ascii.cob",
          "OpenGEX/Example.ogex", "SMD/triangle.smd", "LWS/move_x.lws", "MD5/SimpleCube.md5mesh",
          "FBX/phong_cube.fbx", "FBX/box.fbx"}) {
        const std::filesystem::path source = MODELS / name;
        ASSERT_TRUE(std::filesystem::exists(source)) << source << ", of Debian's assimp-testmodels";
        const std::string content = contentOf(source.string());
        for (unsigned seed = 0; seed < 6; ++seed, ++files)
            writeFile(folder / ("in/" + source.stem().string() + std::to_string(seed) +
                                source.extension().string()),
                      damaged(content, seed));
    }
    writeFile(folder / "in/zz.off", TRIANGLE_OFF);
    const ProcessResult result = runProcess(
        {"convert", folder / "in", "-o", folder / "out", "--jobs=2", "--import-timeout=1", "--json", "-q"});
    EXPECT_EQ(result.status, 1) << result.err;
    picojson::value report;
    ASSERT_EQ(picojson::parse(report, result.out), "");
    const auto count = [&](const char* key) {
        return static_cast<std::size_t>(report.get("summary").get(key).get<double>());
    };
    EXPECT_EQ(count("converted") + count("failed"), files + 1);
    EXPECT_EQ(count("notTried"), 0u);
    std::size_t written = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder / "out"))
        written += entry.is_regular_file();
    EXPECT_EQ(written, count("converted"));
    for (const auto& file : report.get("files").get<picojson::array>()) {
        const double status = file.get("status").get<double>();
        EXPECT_TRUE(status == 0 || status == 3) << file.serialize();
        EXPECT_EQ(status != 0, file.contains("error") && file.get("error").to_str() != "null")
            << file.serialize();
    }
}

} // namespace
