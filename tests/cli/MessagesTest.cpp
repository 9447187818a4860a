#include <terminal/Messages.h>
#include <terminal/Progress.h>
#include <terminal/Table.h>

#include <gmock/gmock.h>

#include <chrono>
#include <cmath>
#include <mutex>
#include <sstream>
#include <streambuf>
#include <thread>

namespace {

using namespace kelsrc::cli;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST(Printable, KeepsUtf8AndEscapesControlCharacters) {
    EXPECT_EQ(printable("plain"), "plain");
    EXPECT_EQ(printable("gr\xc3\xbcn \xf0\x9f\x9a\x80"), "gr\xc3\xbcn \xf0\x9f\x9a\x80");
    EXPECT_EQ(printable("a\x1b[31m\n\x7f"), "a\\x1b[31m\\x0a\\x7f");
}

TEST(Printable, EscapesControlCharactersOfTwoBytes) {
    EXPECT_EQ(printable("\xc2\x9b"
                        "31m"),
              "\\x9b31m");                        // a one-character escape sequence
    EXPECT_EQ(printable("\xc2\xa0"), "\xc2\xa0"); // a space
    EXPECT_EQ(printable("\xc2"), "\xc2");
}

TEST(Counted, ChoosesTheForm) {
    EXPECT_EQ(counted(0, "mesh", "meshes"), "0 meshes");
    EXPECT_EQ(counted(1, "mesh", "meshes"), "1 mesh");
    EXPECT_EQ(counted(2, "mesh", "meshes"), "2 meshes");
}

TEST(MessagesTest, AnErrorTellsFileThingAndRemedy) {
    std::ostringstream err;
    Messages(err, Messages::QUIET, false)
        .error(Failure(STATUS_INPUT, "a.obj", "is empty", "Export it again."));
    EXPECT_EQ(err.str(), "kelsrc: error: a.obj: is empty\n  Export it again.\n");
}

TEST(MessagesTest, ColourIsOnlyUsedWhenAllowed) {
    std::ostringstream plain, coloured;
    Messages(plain, Messages::NORMAL, false).warning("w");
    Messages(coloured, Messages::NORMAL, true).warning("w");
    EXPECT_EQ(plain.str(), "kelsrc: warning: w\n");
    EXPECT_THAT(coloured.str(), HasSubstr("\x1b[1;33mwarning:\x1b[0m w"));
}

TEST(MessagesTest, LevelsDecideWhatIsSaid) {
    std::ostringstream quiet, normal, verbose;
    for (auto [stream, level] : {std::pair{&quiet, Messages::QUIET}, std::pair{&normal, Messages::NORMAL},
                                 std::pair{&verbose, Messages::VERBOSE}}) {
        Messages messages(*stream, level, false);
        messages.warning("w");
        messages.info("i");
        messages.detail("d");
    }
    EXPECT_EQ(quiet.str(), "");
    EXPECT_EQ(normal.str(), "kelsrc: warning: w\ni\n");
    EXPECT_EQ(verbose.str(), "kelsrc: warning: w\ni\nd\n");
}

TEST(MessagesTest, TheStatusLineStaysBelowTheMessages) {
    std::ostringstream err;
    {
        Messages messages(err, Messages::NORMAL, false);
        messages.setStatusLine("working");
        messages.info("one");
    }
    EXPECT_EQ(err.str(), "\r\x1b[Kworking\r\x1b[Kone\nworking\r\x1b[K");
}

/// A stream that one thread writes and another reads.
class SharedText : public std::streambuf {
public:
    std::string text() {
        const std::lock_guard<std::mutex> lock(mutex);
        return all;
    }

protected:
    int_type overflow(int_type character) override {
        const std::lock_guard<std::mutex> lock(mutex);
        all += traits_type::to_char_type(character);
        return character;
    }
    std::streamsize xsputn(const char* bytes, std::streamsize size) override {
        const std::lock_guard<std::mutex> lock(mutex);
        all.append(bytes, static_cast<std::size_t>(size));
        return size;
    }

private:
    std::mutex mutex;
    std::string all;
};

class ProgressTest : public testing::Test {
protected:
    void waitFor(const std::string& part) {
        while (text.text().find(part) == std::string::npos)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

    SharedText text;
    std::ostream err{&text};
    Messages messages{err, Messages::NORMAL, false};
    Progress::Options options{true, std::chrono::milliseconds(0), std::chrono::milliseconds(1), 80};
};

TEST_F(ProgressTest, DrawsStageBarAndPercent) {
    Progress progress(messages, {{"a.obj", 1000}}, options);
    progress.update(0, "writing", 0.0); // reading, which is most of the work, is over
    waitFor("a.obj: writing [====================>   ] 85 %  ");
}

TEST_F(ProgressTest, TellsRateAndTimeLeft) {
    Progress progress(messages, {{"a.obj", 1000000000}}, options);
    progress.update(0, "reading", 1.0);
    waitFor(" MB/s  ");
    waitFor(" left");
}

TEST_F(ProgressTest, TellsTheTimeSpentUntilThereIsEnoughToGuessFrom) {
    Progress progress(messages, {{"a.obj", 1000}}, options);
    progress.update(0, "checking", 0.1);
    waitFor("a.obj: checking [>                       ] 0 %  0 s");
    EXPECT_THAT(text.text(), Not(HasSubstr("left")));
}

TEST_F(ProgressTest, CountsFilesAndWeighsThemByTheirSize) {
    Progress progress(messages, {{"a", 999}, {"b", 2999}, {"c", 0}}, options);
    progress.finishTask(1);
    waitFor("1 of 3 files [=================>      ] 74 %"); // 3000 of 4001
    progress.finishTask(0);
    waitFor("2 of 3 files [=======================>] 99 %");
}

TEST_F(ProgressTest, NeverRunsBackwards) {
    Progress progress(messages, {{"a", 1000}}, options);
    progress.update(0, "writing", 0.0);
    progress.update(0, "reading", 0.5);
    waitFor("a: reading [====================>   ] 85 %");
}

TEST_F(ProgressTest, AStageOfUnknownLengthKeepsTheBarWhereItIs) {
    Progress progress(messages, {{"a", 1000}}, options);
    progress.update(0, "preparing", -1.0);
    waitFor("80 %");
    progress.update(0, "preparing", std::nan(""));
    waitFor("80 %");
}

TEST_F(ProgressTest, StaysWithinTheTerminal) {
    options.width = 30;
    Progress progress(messages, {{std::string(100, 'n'), 1000}}, options);
    progress.update(0, "reading", 0.5);
    waitFor("nnnn");
    progress.finish();
    EXPECT_THAT(text.text(), HasSubstr(std::string(29, 'n')));
    EXPECT_THAT(text.text(), Not(HasSubstr(std::string(30, 'n'))));
}

TEST_F(ProgressTest, FinishTakesTheLineAway) {
    Progress progress(messages, {{"a", 1000}}, options);
    progress.update(0, "writing", 0.0);
    waitFor("85 %");
    progress.finish();
    EXPECT_THAT(text.text(), testing::EndsWith("\r\x1b[K"));
}

TEST_F(ProgressTest, DrawsNothingBeforeTheDelay) {
    options.delay = std::chrono::hours(1);
    {
        Progress progress(messages, {{"a", 1000}}, options);
        progress.update(0, "reading", 0.5);
    }
    EXPECT_THAT(text.text(), IsEmpty());
}

TEST_F(ProgressTest, DrawsNothingWhenDisabled) {
    options.enabled = false;
    {
        Progress progress(messages, {{"a", 1000}}, options);
        progress.update(0, "reading", 0.5);
    }
    EXPECT_THAT(text.text(), IsEmpty());
}

TEST(NearestWord, FindsTypingErrors) {
    const std::vector<std::string> known{"--preset", "--no-fit", "--quiet", "-o", "-q"};
    EXPECT_EQ(nearestWord("--prset", known), "--preset");   // left out
    EXPECT_EQ(nearestWord("--presett", known), "--preset"); // inserted
    EXPECT_EQ(nearestWord("--prezet", known), "--preset");  // changed
    EXPECT_EQ(nearestWord("--qiuet", known), "--quiet");    // swapped
    EXPECT_EQ(nearestWord("--qu", known), "--quiet");       // begun
}

TEST(NearestWord, IsSilentWhenNothingIsNear) {
    const std::vector<std::string> known{"--preset", "-o", "-q"};
    EXPECT_EQ(nearestWord("--xyzzy", known), "");
    EXPECT_EQ(nearestWord("-x", known), "");
    EXPECT_EQ(nearestWord(std::string(1000, 'a'), known), "");
    EXPECT_EQ(nearestWord("--preset", {}), "");
}

TEST(TableTest, AlignsColumnsByCharactersNotBytes) {
    Table table({"name", "count"});
    table.add({"gr\xc3\xbcn", "7"});
    table.add({"a longer one", "1234567"});
    std::ostringstream out;
    table.print(out);
    EXPECT_EQ(out.str(), "name            count\n"
                         "gr\xc3\xbcn                7\n"
                         "a longer one  1234567\n");
}

} // namespace
