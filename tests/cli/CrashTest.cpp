// Crashes below the importer, in processes of their own.

#include "ChildProcess.h"
#include "CommandRun.h"

#include <files/OutputFile.h>

#include <gmock/gmock.h>

#include <csignal>
#include <functional>
#include <string>
#include <sys/resource.h>

namespace {

using namespace kel::tests;
using namespace kelsrc::cli;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

/// What a child says on standard error before it ends with `status`.
std::string lastWords(int& status, const std::function<int()>& body) {
    Pipe pipe;
    ChildProcess child([&] {
        ::dup2(pipe.writeEnd(), STDERR_FILENO);
        ::close(pipe.writeEnd());
        // As in the command, where no sanitizer has taken the signals.
        for (const int signal : {SIGSEGV, SIGABRT})
            ::signal(signal, SIG_DFL);
        const rlimit noCore{0, 0};
        ::setrlimit(RLIMIT_CORE, &noCore);
        const SignalGuard signals;
        return body();
    });
    pipe.closeEnd(1);
    std::string words;
    char part[512];
    for (ssize_t n; (n = ::read(pipe.readEnd(), part, sizeof part)) > 0;)
        words.append(part, static_cast<std::size_t>(n));
    status = child.wait();
    return words;
}

/// A frame larger than what a compiler would turn into a loop.
int endless(int depth) { // NOLINT(misc-no-recursion)
    volatile char frame[4096];
    frame[depth % 4096] = 1;
    if (depth < 0) return 0; // never, but compilers warn of what is plainly endless
    return endless(depth + 1) + frame[0];
}

TEST(ImporterCrash, NamesTheFileAndEndsWithTheStatusOfBadInput) {
    int status = 0;
    const std::string words = lastWords(status, [] {
        const ImporterCrash onCrash("bad\n.mdl");
        ::raise(SIGSEGV);
        return 0;
    });
    EXPECT_EQ(status, 3);
    EXPECT_THAT(words,
                AllOf(StartsWith("kelsrc: error: bad\\x0a.mdl: Assimp"), HasSubstr("export it again")));
}

TEST(ImporterCrash, IsToldWhenTheStackIsUsedUp) {
    int status = 0;
    const std::string words = lastWords(status, [] {
        const ImporterCrash onCrash("deep.ogex");
        return endless(0);
    });
    EXPECT_EQ(status, 3);
    EXPECT_THAT(words, StartsWith("kelsrc: error: deep.ogex: "));
}

TEST(ImporterCrash, CrashesAfterTheImportStayCrashes) {
    int status = 0;
    const std::string words = lastWords(status, [] {
        { const ImporterCrash onCrash("good.obj"); }
        ::raise(SIGABRT);
        return 0;
    });
    EXPECT_EQ(status, -SIGABRT);
    EXPECT_EQ(words, "");
}

} // namespace
