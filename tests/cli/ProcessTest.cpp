// What only the real command can show: exit statuses, terminals, signals, limits.

#include "ChildProcess.h"
#include "CommandRun.h"
#include "Models.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>

namespace {

using namespace kel::tests;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

class Command : public testing::Test {
protected:
    TempFolder folder;
    const std::string plate = writeFile(folder / "plate.obj", PLATE_OBJ);
};

TEST_F(Command, ConvertsAndTalksOnStandardErrorOnly) {
    const ProcessResult result = runProcess({"convert", plate, "-o", folder / "out.src"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(result.err, HasSubstr("1 mesh, 2 triangles"));
    EXPECT_EQ(contentOf(folder / "out.src").substr(0, 8), std::string("\x17\0\0\0\x2a\0\0\0", 8));
}

TEST_F(Command, StatusesReachTheCaller) {
    EXPECT_EQ(runProcess({}).status, 2);
    EXPECT_EQ(runProcess({"--help"}).status, 0);
    EXPECT_EQ(runProcess({"convert", folder / "no.obj", "-o", folder / "out.src"}).status, 3);
    EXPECT_EQ(runProcess({"convert", plate, "-o", folder / "no/out.src"}).status, 4);
}

TEST_F(Command, AFullDiskIsAnError) {
    const ProcessResult result = runProcess({"convert", plate, "-o", "/dev/full"});
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.err, HasSubstr("/dev/full: writing failed"));
    EXPECT_THAT(result.err, Not(HasSubstr("1 mesh")));
}

TEST_F(Command, ASizeLimitIsAnErrorThatLeavesTheOldFile) {
    writeFile(folder / "out.src", "old");
    const ProcessResult result = runProcess({"convert", plate, "-o", folder / "out.src"}, [] {
        const rlimit limit{100, 100};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    });
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.err, HasSubstr("ulimit -f"));
    EXPECT_EQ(contentOf(folder / "out.src"), "old");
    EXPECT_THAT(folder.entries(), UnorderedElementsAre("plate.obj", "out.src"));
}

TEST_F(Command, AFullStandardOutputIsAnError) {
    const auto toFull = [] { ::dup2(::open("/dev/full", O_WRONLY), STDOUT_FILENO); };
    const ProcessResult help = runProcess({"--help"}, toFull);
    EXPECT_EQ(help.status, 4);
    EXPECT_THAT(help.err, HasSubstr("standard output: cannot be written"));
}

TEST_F(Command, WritesIntoAPipe) {
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    std::string got;
    std::thread reader([&] { got = contentOf(folder / "pipe"); });
    EXPECT_EQ(runProcess({"convert", plate, "-o", folder / "pipe"}).status, 0);
    // A command that never opened the pipe leaves the reader waiting for a writer; this is one.
    ::close(::open((folder / "pipe").c_str(), O_WRONLY | O_NONBLOCK));
    reader.join();
    EXPECT_EQ(runProcess({"convert", plate, "-o", folder / "out.src"}).status, 0);
    EXPECT_EQ(got, contentOf(folder / "out.src"));
}

/// True when a process waits for the reader of a pipe and handles this signal, or has ended.
bool waitsAndCatches(pid_t pid, int signal) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    bool sleeps = false, catches = false;
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, 7, "State:\t") == 0) {
            if (line[7] == 'Z') return true;
            sleeps = line[7] == 'S';
        }
        if (line.compare(0, 7, "SigCgt:") == 0)
            catches = std::strtoull(line.c_str() + 7, nullptr, 16) >> (signal - 1) & 1;
    }
    return sleeps && catches;
}

TEST_F(Command, SignalsEndItWith128PlusTheirNumber) {
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    for (const auto& [signal, status] :
         {std::pair{SIGINT, 130}, std::pair{SIGTERM, 143}, std::pair{SIGHUP, 129}}) {
        ChildProcess child([&] {
            ::signal(SIGHUP, SIG_DFL);
            ::signal(SIGINT, SIG_DFL);
            return execCommand({"convert", plate, "-o", folder / "pipe"});
        });
        // Nobody reads the pipe, so the command waits there.
        while (!waitsAndCatches(child.pid(), signal))
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        child.signal(signal);
        EXPECT_EQ(child.wait(), status);
    }
}

TEST_F(Command, ColoursAreForTerminalsOnly) {
    const std::vector<std::string> args{"convert", folder / "no.obj", "-o", folder / "out.src"};
    const auto plain = [] { ::unsetenv("NO_COLOR"); };
    EXPECT_THAT(runOnTerminal(args, plain), HasSubstr("\x1b[1;31merror:"));
    EXPECT_THAT(runProcess(args, plain).err, Not(HasSubstr("\x1b")));
}

TEST_F(Command, NoColorIsHonoured) {
    const std::string text = runOnTerminal({"convert", folder / "no.obj", "-o", folder / "out.src"},
                                           [] { ::setenv("NO_COLOR", "1", 1); });
    EXPECT_THAT(text, HasSubstr("error:"));
    EXPECT_THAT(text, Not(HasSubstr("\x1b")));
}

TEST_F(Command, LongWorkShowsProgressOnATerminal) {
    // A pipe without a reader keeps the command in the stage of writing for as long as it takes.
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    int terminal = -1;
    const pid_t id = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    ASSERT_GE(id, 0);
    if (id == 0) {
        ::alarm(120);
        ::setenv("TERM", "xterm", 1);
        ::_exit(execCommand({"convert", plate, "-o", folder / "pipe"}));
    }
    std::string text, written;
    char bytes[4096];
    std::thread reader;
    for (ssize_t got; (got = ::read(terminal, bytes, sizeof bytes)) > 0;) {
        text.append(bytes, static_cast<std::size_t>(got));
        if (!reader.joinable() && text.find("writing [") != std::string::npos)
            reader = std::thread([&] { written = contentOf(folder / "pipe"); });
    }
    ::close(terminal);
    int status = -1;
    ::waitpid(id, &status, 0);
    ASSERT_TRUE(reader.joinable()) << text;
    reader.join();
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(written.empty());
    EXPECT_THAT(text, HasSubstr("\r\x1b[K")); // taken away before the report
    EXPECT_THAT(text, HasSubstr("1 mesh, 2 triangles"));
}

} // namespace
