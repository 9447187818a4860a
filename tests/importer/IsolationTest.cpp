// Readers in processes of their own, and what helpers may do that are not what they should be.

#include "ImporterTest.h"

#include <sys/stat.h>
#include <sys/wait.h>

#include <chrono>
#include <iterator>
#include <thread>

namespace kel::importer::test {

using testing::HasSubstr;

/// One triangle, in a format that is read in a process of its own.
const std::string TRIANGLE_OFF = "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n";

/// A binary .x that ends within a number, which fails an assertion of Assimp.
std::string crashingModel() {
    std::ifstream whole("/usr/share/assimp/models/X/test_cube_binary.x", std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(whole), {}};
    text.resize(text.size() * 9 / 10);
    return text;
}

class Isolation : public ImporterTest {
protected:
    static void useHelper(const std::string& path) { ::setenv(detail::HELPER_VARIABLE, path.c_str(), 1); }
    ~Isolation() override { ::unsetenv(detail::HELPER_VARIABLE); }

    /// A model whose reader waits for ever: it names a pipe that nobody writes to.
    std::filesystem::path hangingModel() const {
        ::mkfifo((folder / "pipe.lwo").c_str(), 0600);
        return file("hangs.lws", "LWSC\n3\n\nLoadObject " + (folder / "pipe.lwo").string() + "\n");
    }
    static ImportOptions within(double seconds) {
        ImportOptions options;
        options.limits.seconds = seconds;
        return options;
    }
};

TEST_F(Isolation, GivesTheModelThatIsReadHere) {
    ImportOptions here;
    here.inProcess = true;
    for (const char* name : {"3DS/cubes_with_alpha.3DS", "AC/Wuson.ac", "Collada/duck.dae",
                             "FBX/phong_cube.fbx", "LWO/LWO2/boxuv.lwo", "X/Testwuson.X"}) {
        const auto path = std::filesystem::path("/usr/share/assimp/models") / name;
        if (!std::filesystem::exists(path)) continue;
        const ImportResult apart = importModel(path), same = importModel(path, here);
        ASSERT_EQ(apart.input.meshes.size(), same.input.meshes.size()) << name;
        EXPECT_EQ(apart.report.notes, same.report.notes) << name;
        EXPECT_EQ(apart.report.format, same.report.format) << name;
        EXPECT_EQ(apart.report.dropped.size(), same.report.dropped.size()) << name;
        for (std::size_t m = 0; m < same.input.meshes.size(); ++m) {
            EXPECT_EQ(indicesOf(*apart.input.meshes[m]), indicesOf(*same.input.meshes[m])) << name;
            for (const char* attribute : {"position", "normal", "texcoord", "color"})
                EXPECT_EQ(numbersOf(*apart.input.meshes[m], attribute),
                          numbersOf(*same.input.meshes[m], attribute))
                    << name << ' ' << attribute;
            EXPECT_EQ(*apart.input.metaData.at(apart.input.meshes[m]),
                      *same.input.metaData.at(same.input.meshes[m]))
                << name;
        }
    }
}

TEST_F(Isolation, ReadsModelsFromMemory) {
    const auto result = importModel(TRIANGLE_OFF.data(), TRIANGLE_OFF.size(), "a.off");
    EXPECT_EQ(result.report.triangles, 1u);
    EXPECT_TRUE(result.report.notes.empty());
}

TEST_F(Isolation, FollowsTheWorkingDirectory) {
    const auto before = std::filesystem::current_path();
    importModel(file("first.off", TRIANGLE_OFF)); // the helper has started
    std::filesystem::create_directory(folder / "below");
    file("below/a.off", TRIANGLE_OFF);
    std::filesystem::current_path(folder / "below");
    EXPECT_EQ(importModel("a.off").report.triangles, 1u);
    std::filesystem::current_path(before);
}

TEST_F(Isolation, ServesSeveralThreads) {
    std::vector<std::thread> threads;
    std::vector<std::size_t> triangles(8, 0);
    for (std::size_t t = 0; t < triangles.size(); ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 5; ++i)
                triangles[t] +=
                    importModel(TRIANGLE_OFF.data(), TRIANGLE_OFF.size(), "a.off").report.triangles;
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(triangles, std::vector<std::size_t>(8, 5));
}

TEST_F(Isolation, AForkOfTheProcessHasAHelperOfItsOwn) {
    importModel(file("a.off", TRIANGLE_OFF));
    const pid_t child = ::fork();
    if (child == 0) ::_exit(importModel(folder / "a.off").report.triangles == 1 ? 0 : 1);
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(importModel(folder / "a.off").report.triangles, 1u);
}

TEST_F(Isolation, ACrashIsAnErrorOfTheModel) {
    const auto error = errorOf([&] { import("cut.x", crashingModel()); });
    EXPECT_EQ(error.code(), ImportCode::READER_FAILED);
    EXPECT_THAT(error.what(), HasSubstr("cut.x: the reader crashed ("));
    EXPECT_THAT(error.remedy(), HasSubstr("glTF or OBJ"));
    EXPECT_EQ(import("next.off", TRIANGLE_OFF).report.triangles, 1u);
}

TEST_F(Isolation, AHangIsAnErrorOfTheModel) {
    const auto error = errorOf([&] { importModel(hangingModel(), within(0.2)); });
    EXPECT_EQ(error.code(), ImportCode::TIME_LIMIT);
    EXPECT_THAT(error.what(),
                HasSubstr("hangs.lws: the reader did not finish within 0.2 s; raise the limit"));
    EXPECT_EQ(import("next.off", TRIANGLE_OFF).report.triangles, 1u);
}

TEST_F(Isolation, AReaderThatHangsCanBeCancelled) {
    ImportOptions options = within(0); // for ever
    const auto start = std::chrono::steady_clock::now();
    options.progress = [&](const char*, double) {
        return std::chrono::steady_clock::now() - start < std::chrono::milliseconds(300);
    };
    EXPECT_EQ(errorOf([&] { importModel(hangingModel(), options); }).code(), ImportCode::CANCELLED);
}

TEST_F(Isolation, TooMuchMemoryIsAnErrorOfTheModel) {
    constexpr int SIDE = 400;
    std::string grid =
        "OFF\n" + std::to_string(SIDE * SIDE) + " " + std::to_string((SIDE - 1) * (SIDE - 1)) + " 0\n";
    for (int v = 0; v < SIDE * SIDE; ++v)
        grid += std::to_string(v % SIDE) + " " + std::to_string(v / SIDE) + " 0\n";
    for (int y = 0; y + 1 < SIDE; ++y) {
        for (int x = 0; x + 1 < SIDE; ++x)
            grid += "3 " + std::to_string(y * SIDE + x) + " " + std::to_string(y * SIDE + x + 1) + " " +
                    std::to_string((y + 1) * SIDE + x) + "\n";
    }
    ImportOptions options;
    options.limits.memory = std::uint64_t{4} << 20;
    const auto error = errorOf([&] { import("grid.off", grid, options); });
    EXPECT_EQ(error.code(), ImportCode::MEMORY_LIMIT);
    EXPECT_THAT(error.what(), HasSubstr("the reader needed more than 4.0 MiB of memory; raise the limit"));
    options.limits.memory = 0;
    EXPECT_EQ(import("grid.off", grid, options).report.vertices, static_cast<std::size_t>(SIDE) * SIDE - 1);
}

TEST_F(Isolation, WithoutAHelperTheModelIsReadHereWithANote) {
    for (const std::string& helper : {folder.string() + "/no-helper", std::string("/bin/true")}) {
        useHelper(helper);
        const auto result = import("a.off", TRIANGLE_OFF);
        EXPECT_EQ(result.report.triangles, 1u);
        ASSERT_EQ(result.report.notes.size(), 1u);
        EXPECT_THAT(result.report.notes[0], HasSubstr("without limits on time and memory"));
        EXPECT_THAT(result.report.notes[0], HasSubstr(helper));
    }
}

TEST_F(Isolation, AProcessThatLeavesLeavesNoHelper) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        importModel(file("a.off", TRIANGLE_OFF));
        std::ifstream children("/proc/self/task/" + std::to_string(::getpid()) + "/children");
        pid_t helper = 0;
        children >> helper;
        ::_exit(::write(ends[1], &helper, sizeof helper) == sizeof helper ? 0 : 1); // no destructor runs
    }
    pid_t helper = 0;
    ASSERT_EQ(::read(ends[0], &helper, sizeof helper), static_cast<ssize_t>(sizeof helper));
    ASSERT_GT(helper, 0);
    ::waitpid(child, nullptr, 0);
    bool gone = false;
    for (int i = 0; i < 1000 && !gone; ++i) {
        std::string name;
        std::ifstream("/proc/" + std::to_string(helper) + "/cmdline") >> name; // empty in a zombie
        gone = name.empty();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_TRUE(gone);
    ::close(ends[0]);
    ::close(ends[1]);
}

// ---- Helpers that are not what they should be -----------------------------------------------------------

struct Hostile {
    const char* name;
    ImportCode code;
    const char* what;
};
void PrintTo(const Hostile& hostile, std::ostream* out) {
    *out << hostile.name;
}

class HostileHelper : public Isolation, public testing::WithParamInterface<Hostile> {};
TEST_P(HostileHelper, IsAnErrorOfTheModel) {
    useHostileHelper();
    const std::string name = std::string(GetParam().name) + ".off";
    const auto error = errorOf([&] { import(name, TRIANGLE_OFF, within(0.2)); });
    EXPECT_EQ(error.code(), GetParam().code);
    EXPECT_THAT(error.what(), HasSubstr(name + ": the reader " + GetParam().what));
    // The next one is read by a helper that is one.
    ::unsetenv(detail::HELPER_VARIABLE);
    EXPECT_EQ(import("good.off", TRIANGLE_OFF).report.triangles, 1u);
}
constexpr const char* UNUSABLE = "gave an answer that cannot be used";
INSTANTIATE_TEST_SUITE_P(
    Answers, HostileHelper,
    testing::Values(Hostile{"hangs", ImportCode::TIME_LIMIT, "did not finish within 0.2 s"},
                    Hostile{"chatters", ImportCode::TIME_LIMIT, "did not finish within 0.2 s"},
                    Hostile{"exits", ImportCode::READER_FAILED, "ended without an answer"},
                    Hostile{"crashes", ImportCode::READER_FAILED, "ended without an answer"},
                    Hostile{"noise", ImportCode::READER_FAILED, UNUSABLE},
                    Hostile{"short", ImportCode::READER_FAILED, UNUSABLE},
                    Hostile{"ready", ImportCode::READER_FAILED, UNUSABLE},
                    Hostile{"starts twice", ImportCode::READER_FAILED, UNUSABLE},
                    Hostile{"progress", ImportCode::READER_FAILED, UNUSABLE},
                    Hostile{"stage", ImportCode::READER_FAILED, UNUSABLE},
                    Hostile{"nothing", ImportCode::READER_FAILED, UNUSABLE},
                    Hostile{"unsealed", ImportCode::READER_FAILED, UNUSABLE},
                    Hostile{"can shrink", ImportCode::READER_FAILED, UNUSABLE},
                    Hostile{"disk", ImportCode::READER_FAILED, UNUSABLE},
                    Hostile{"huge", ImportCode::READER_FAILED, UNUSABLE},
                    Hostile{"empty", ImportCode::READER_FAILED, UNUSABLE},
                    Hostile{"garbage", ImportCode::READER_FAILED, UNUSABLE},
                    Hostile{"counts", ImportCode::READER_FAILED, UNUSABLE},
                    Hostile{"refusal", ImportCode::READER_FAILED, UNUSABLE},
                    Hostile{"cancels", ImportCode::READER_FAILED, UNUSABLE},
                    Hostile{"killed", ImportCode::READER_FAILED, "was killed"},
                    Hostile{"segfaults", ImportCode::READER_FAILED, "crashed (SIGSEGV)"},
                    Hostile{"odd status", ImportCode::READER_FAILED, UNUSABLE}));

} // namespace kel::importer::test
