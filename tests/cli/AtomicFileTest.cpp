#include "ChildProcess.h"
#include "CommandRun.h"

#include <Failure.h>
#include <files/OutputFile.h>
#include <terminal/Signals.h>

#include <gmock/gmock.h>

#include <csignal>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

using namespace kel::tests;
using kelsrc::cli::Failure;
using kelsrc::cli::SignalGuard;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using AtomicFile = kelsrc::cli::OutputFile;

/// Both ways to write: without a name where the file system can do it, and with one.
class AtomicFileTest : public testing::TestWithParam<AtomicFile::Naming> {
protected:
    /// Writes 200,000 bytes over an old file in a process that may make files of `limit` bytes.
    void expectTooMuchFails(rlim_t limit) {
        writeFile(folder / "old", "old");
        ChildProcess child([&] {
            const SignalGuard signals;
            const rlimit limits{limit, limit};
            ::setrlimit(RLIMIT_FSIZE, &limits);
            try {
                AtomicFile file(folder / "old", GetParam());
                file.stream() << std::string(200000, 'x');
                file.commit();
            } catch (const kel::convert::ConvertError& error) {
                const Failure failure(error);
                return static_cast<int>(failure.status());
            }
            return 0;
        });
        EXPECT_EQ(child.wait(), 4);
        EXPECT_EQ(contentOf(folder / "old"), "old");
        EXPECT_THAT(folder.entries(), ElementsAre("old"));
    }

    TempFolder folder;
};

INSTANTIATE_TEST_SUITE_P(Naming, AtomicFileTest,
                         testing::Values(AtomicFile::Naming::AUTOMATIC, AtomicFile::Naming::ALWAYS_NAMED),
                         [](const auto& test) {
                             return test.param == AtomicFile::Naming::AUTOMATIC ? "Automatic" : "AlwaysNamed";
                         });

TEST_P(AtomicFileTest, AppearsWithCommit) {
    AtomicFile file(folder / "new", GetParam());
    file.stream() << "content";
    EXPECT_EQ(file.flush(), 7u);
    EXPECT_FALSE(std::filesystem::exists(folder / "new"));
    file.commit();
    EXPECT_EQ(contentOf(folder / "new"), "content");
    EXPECT_THAT(folder.entries(), ElementsAre("new"));
}

TEST_P(AtomicFileTest, ReplacesWithCommit) {
    writeFile(folder / "old", "old");
    AtomicFile file(folder / "old", GetParam());
    file.stream() << "content";
    file.flush();
    EXPECT_EQ(contentOf(folder / "old"), "old");
    file.commit();
    EXPECT_EQ(contentOf(folder / "old"), "content");
    EXPECT_THAT(folder.entries(), ElementsAre("old"));
}

TEST_P(AtomicFileTest, WithoutCommitNothingHappened) {
    writeFile(folder / "old", "old");
    {
        AtomicFile file(folder / "old", GetParam());
        file.stream() << "content";
        file.flush();
    }
    EXPECT_EQ(contentOf(folder / "old"), "old");
    EXPECT_THAT(folder.entries(), ElementsAre("old"));
}

TEST_P(AtomicFileTest, HoldsWhatWasWrittenInPiecesOfAnySize) {
    std::string expected;
    AtomicFile file(folder / "new", GetParam());
    for (const std::size_t size : {1u, 3u, 262143u, 262144u, 262145u, 5u, 1000000u, 7u}) {
        const std::string piece(size, static_cast<char>('a' + expected.size() % 26));
        file.stream() << piece;
        expected += piece;
    }
    file.stream().put('!');
    file.commit();
    EXPECT_EQ(contentOf(folder / "new"), expected + '!');
}

TEST_P(AtomicFileTest, GivesTheFirstBytesBack) {
    AtomicFile file(folder / "new", GetParam());
    file.stream() << "content";
    EXPECT_EQ(file.firstBytes(3), "con");
    EXPECT_EQ(file.firstBytes(100), "content");
}

TEST_P(AtomicFileTest, ReportsProgressInBytes) {
    AtomicFile file(folder / "new", GetParam());
    std::vector<std::uint64_t> seen;
    file.onProgress([&](std::uint64_t bytes) { seen.push_back(bytes); });
    file.stream() << std::string(1000000, 'x');
    file.stream() << "y";
    file.commit();
    EXPECT_THAT(seen, ElementsAre(1000000, 1000001));
}

TEST_P(AtomicFileTest, FollowsASymbolicLinkAndLeavesIt) {
    std::filesystem::create_directory(folder / "elsewhere");
    writeFile(folder / "elsewhere/real", "old");
    std::filesystem::create_symlink("elsewhere/real", folder / "link");
    AtomicFile file(folder / "link", GetParam());
    file.stream() << "content";
    file.commit();
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
    EXPECT_EQ(contentOf(folder / "elsewhere/real"), "content");
}

TEST_P(AtomicFileTest, FollowsASymbolicLinkToWhereNothingIsYet) {
    std::filesystem::create_symlink("real", folder / "link");
    AtomicFile file(folder / "link", GetParam());
    file.stream() << "content";
    file.commit();
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
    EXPECT_EQ(contentOf(folder / "real"), "content");
}

TEST_P(AtomicFileTest, NewFilesFollowTheUmask) {
    const mode_t before = ::umask(027);
    AtomicFile file(folder / "new", GetParam());
    ::umask(before);
    file.commit();
    EXPECT_EQ(std::filesystem::status(folder / "new").permissions(), std::filesystem::perms(0640));
}

TEST_P(AtomicFileTest, WritesIntoTheWorkingFolder) {
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    AtomicFile file("new", GetParam());
    file.stream() << "content";
    file.commit();
    std::filesystem::current_path(before);
    EXPECT_EQ(contentOf(folder / "new"), "content");
}

TEST_P(AtomicFileTest, ADeviceIsWrittenDirectly) {
    AtomicFile file("/dev/null", GetParam());
    file.stream() << "content";
    EXPECT_EQ(file.firstBytes(3), "");
    file.commit();
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

TEST_P(AtomicFileTest, AFullDiskFailsWithTheReasonAndARemedy) {
    AtomicFile file("/dev/full", GetParam());
    file.stream() << "content";
    try {
        file.commit();
        FAIL() << "no failure";
    } catch (const kel::convert::ConvertError& error) {
        const Failure failure(error);
        EXPECT_EQ(failure.status(), 4);
        EXPECT_EQ(failure.subject(), "/dev/full");
        EXPECT_THAT(failure.what(), HasSubstr("No space left on device"));
        EXPECT_THAT(failure.remedy(), HasSubstr("Make room"));
    }
}

TEST_P(AtomicFileTest, ASizeLimitFailsAndLeavesTheOldFile) {
    expectTooMuchFails(1000);
}

TEST_P(AtomicFileTest, AFullFileSystemFailsAndLeavesTheOldFile) {
    // Where the test may not mount, a size limit stands in for the small file system.
    const bool mounted = ::mount("none", folder.path().c_str(), "tmpfs", 0, "size=64k") == 0;
    expectTooMuchFails(mounted ? RLIM_INFINITY : 65536);
    if (mounted) ::umount(folder.path().c_str());
}

TEST_P(AtomicFileTest, ASignalRemovesTheTemporaryFileAndEndsWith128PlusItsNumber) {
    for (const auto& [signal, status] :
         {std::pair{SIGINT, 130}, std::pair{SIGTERM, 143}, std::pair{SIGHUP, 129}}) {
        writeFile(folder / "old", "old");
        Pipe ready;
        ChildProcess child([&] {
            ::signal(SIGHUP, SIG_DFL);
            const SignalGuard signals;
            AtomicFile file(folder / "old", GetParam());
            file.stream() << "content";
            file.flush();
            if (::write(ready.writeEnd(), "!", 1) != 1) return 1;
            for (;;)
                ::pause();
        });
        char byte;
        ASSERT_EQ(::read(ready.readEnd(), &byte, 1), 1);
        child.signal(signal);
        EXPECT_EQ(child.wait(), status);
        EXPECT_EQ(contentOf(folder / "old"), "old");
        EXPECT_THAT(folder.entries(), ElementsAre("old"));
    }
}

TEST_P(AtomicFileTest, AnIgnoredSignalStaysIgnored) {
    ChildProcess child([&] {
        ::signal(SIGHUP, SIG_IGN);
        const SignalGuard signals;
        AtomicFile file(folder / "new", GetParam());
        file.stream() << "content";
        ::raise(SIGHUP);
        file.commit();
        return 0;
    });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(contentOf(folder / "new"), "content");
}

TEST(AtomicFileNaming, NotEvenAKillLeavesATraceWhereFilesNeedNoName) {
    TempFolder folder;
    const int probe = ::open(folder.path().c_str(), O_TMPFILE | O_RDWR, 0600);
    if (probe >= 0) ::close(probe);
    Pipe ready;
    ChildProcess child([&] {
        AtomicFile file(folder / "new");
        file.stream() << "content";
        file.flush();
        if (::write(ready.writeEnd(), "!", 1) != 1) return 1;
        for (;;)
            ::pause();
    });
    char byte;
    ASSERT_EQ(::read(ready.readEnd(), &byte, 1), 1);
    child.signal(SIGKILL);
    EXPECT_EQ(child.wait(), -SIGKILL);
    // A file system without nameless files keeps what SIGKILL interrupts, under its own name, never the
    // target's.
    if (probe >= 0) {
        EXPECT_THAT(folder.entries(), IsEmpty());
    }
    EXPECT_FALSE(std::filesystem::exists(folder / "new"));
}

TEST(AtomicFileNaming, HandlersAreRestored) {
    ChildProcess child([] {
        ::signal(SIGTERM, SIG_DFL);
        { const SignalGuard signals; }
        struct sigaction after {};
        ::sigaction(SIGTERM, nullptr, &after);
        return after.sa_handler == SIG_DFL ? 0 : 1;
    });
    EXPECT_EQ(child.wait(), 0);
}

std::string whyRefused(const std::string& target) {
    try {
        AtomicFile::check(target);
    } catch (const kel::convert::ConvertError& error) {
        const Failure failure(error);
        EXPECT_EQ(failure.status(), 4);
        EXPECT_EQ(failure.subject(), target);
        return std::string(failure.what()) + " / " + failure.remedy();
    }
    return "";
}

TEST(AtomicFileCheck, NamesTheReason) {
    TempFolder folder;
    writeFile(folder / "file", "x");
    EXPECT_THAT(whyRefused(folder / "missing/new"), HasSubstr("Make the folder first"));
    EXPECT_THAT(whyRefused(folder / "file/new"), HasSubstr("is a file, not a folder"));
    EXPECT_THAT(whyRefused(folder.path().string()), HasSubstr("is a folder"));
    EXPECT_THAT(whyRefused(folder / ""), HasSubstr("folder"));
    EXPECT_THAT(whyRefused(folder / std::string(300, 'n')), HasSubstr("shorter name"));
    // No process may make files there, not even root's.
    EXPECT_THAT(whyRefused("/proc/new"), HasSubstr("no file can be made in the folder \"/proc\""));
    EXPECT_EQ(whyRefused(folder / "new"), "");
    EXPECT_THAT(folder.entries(), ElementsAre("file"));
}

TEST(AtomicFileCheck, ACircleOfLinksIsRefused) {
    TempFolder folder;
    std::filesystem::create_symlink("b", folder / "a");
    std::filesystem::create_symlink("a", folder / "b");
    EXPECT_THAT(whyRefused(folder / "a"), HasSubstr("symbolic links"));
}

TEST(AtomicFileCheck, DoesNotOpenAPipe) {
    TempFolder folder;
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(whyRefused(folder / "pipe"), ""); // opening it would wait for a reader for ever
}

} // namespace
