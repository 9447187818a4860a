// "view" and "convert --html" as a user meets them.

#include "ChildProcess.h"
#include "CommandRun.h"
#include "Http.h"
#include "Models.h"
#include "ShellFilter.h"

#include <gmock/gmock.h>

#include <cstring>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>

namespace {

using namespace kel::tests;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;

/// Where a running "view" says that it is.
struct Address {
    std::string line;
    int port = 0;
};

/// "view" in a process of its own, from when it has said its address.
class Viewing {
public:
    explicit Viewing(std::vector<std::string> args, const std::function<void()>& prepare = {})
        : child([&] {
              ::dup2(out.writeEnd(), STDOUT_FILENO);
              ::dup2(::open("/dev/null", O_WRONLY), STDERR_FILENO);
              ::signal(SIGINT, SIG_DFL);
              ::unsetenv("DISPLAY");
              ::unsetenv("WAYLAND_DISPLAY");
              ::alarm(120);
              if (prepare) prepare();
              args.insert(args.begin(), "view");
              return execCommand(args);
          }) {
        out.closeEnd(1);
        char c = 0;
        while (::read(out.readEnd(), &c, 1) == 1 && c != '\n')
            address.line += c;
        const std::size_t host = address.line.find("127.0.0.1:");
        if (host == std::string::npos) throw std::runtime_error("no address: " + address.line);
        address.port = std::stoi(address.line.substr(host + std::strlen("127.0.0.1:")));
    }

    int end(int signal) {
        child.signal(signal);
        return child.wait();
    }

    Address address;

private:
    Pipe out;
    ChildProcess child;
};

class View : public testing::Test {
protected:
    TempFolder folder;
    const std::string plate = writeFile(folder / "plate.obj", PLATE_OBJ);
    const std::string src = [this] {
        EXPECT_EQ(runCommand({"convert", plate, "-o", folder / "plate.src"}).status, 0);
        return folder / "plate.src";
    }();
};

TEST_F(View, ServesTheViewerAndTheFileAtTheAddressThatItPrints) {
    Viewing view({src});
    EXPECT_EQ(view.address.line,
              "http://127.0.0.1:" + std::to_string(view.address.port) + "/?src=files/0/plate.src");
    EXPECT_THAT(ask(view.address.port, "/").body, HasSubstr("<!--kelsrc:files-->"));
    EXPECT_EQ(ask(view.address.port, "/files/0/plate.src").body, contentOf(src));
}

TEST_F(View, PageIsServedWithThePolicyThatItStates) {
    Viewing view({src});
    const HttpAnswer page = ask(view.address.port, "/");
    const std::string policy = page.header("Content-Security-Policy");
    EXPECT_THAT(policy, AllOf(StartsWith("default-src 'none'; script-src 'sha256-"),
                              EndsWith("frame-ancestors 'none'")));
    EXPECT_THAT(page.body, HasSubstr(policy.substr(0, policy.rfind(';'))));
}

TEST_F(View, EndsWithStatus0WhenItIsToldTo) {
    for (const int signal : {SIGINT, SIGTERM}) {
        Viewing view({src});
        HttpConnection open(view.address.port);
        EXPECT_EQ(view.end(signal), 0);
    }
}

TEST_F(View, ModelsAreConvertedIntoAFileThatNobodySees) {
    ASSERT_EQ(::mkdir((folder / "tmp").c_str(), 0700), 0);
    Viewing view({plate}, [&] { ::setenv("TMPDIR", (folder / "tmp").c_str(), 1); });
    EXPECT_THAT(view.address.line, EndsWith("/?src=files/0/plate.src"));
    EXPECT_EQ(ask(view.address.port, "/files/0/plate.src").body, contentOf(src));
    EXPECT_EQ(view.end(SIGTERM), 0);
    EXPECT_TRUE(std::filesystem::is_empty(folder / "tmp"));
    EXPECT_THAT(folder.entries(), UnorderedElementsAre("plate.obj", "plate.src", "tmp"));
}

TEST_F(View, JsonIsOneLine) {
    Viewing view({"--json", src, plate});
    picojson::value report;
    ASSERT_EQ(picojson::parse(report, view.address.line), "");
    EXPECT_EQ(report.get("address").get<std::string>(),
              "http://127.0.0.1:" + std::to_string(view.address.port) +
                  "/?src=files/0/plate.src&src=files/1/plate.src");
    EXPECT_EQ(report.get("port").get<double>(), view.address.port);
    const auto& files = report.get("files").get<picojson::array>();
    ASSERT_EQ(files.size(), 2u);
    EXPECT_EQ(files[1].get("name").get<std::string>(), "plate.src");
    EXPECT_EQ(files[1].get("path").get<std::string>(), "files/1/plate.src");
}

TEST_F(View, PortThatIsTakenIsStatus4) {
    Viewing view({src});
    const CommandResult result =
        runCommand({"view", "--no-open", "--port", std::to_string(view.address.port), src});
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.err, HasSubstr("Choose another --port"));
    EXPECT_THAT(result.out, IsEmpty());
}

TEST_F(View, FilesAreCheckedFirst) {
    const auto status = [](const std::string& file) {
        return runCommand({"view", "--no-open", file}).status;
    };
    EXPECT_EQ(status(folder / "no.src"), 3);
    EXPECT_EQ(status(writeFile(folder / "bad.src", "\x17 not really")), 3);
    EXPECT_EQ(status(writeFile(folder / "text.txt", "hello")), 3);
    EXPECT_EQ(status(folder.path().string()), 3);
    EXPECT_EQ(status("-"), 2);
}

/// A folder with a program xdg-open that writes its argument into a file beside it.
std::string fakeDesktop(const TempFolder& folder) {
    const std::string bin = folder / "bin";
    ::mkdir(bin.c_str(), 0700);
    writeFile(bin + "/xdg-open",
              "#!/bin/sh\nprintf '%s' \"$1\" >\"$0.part\"\nmv \"$0.part\" \"$0.called\"\n");
    ::chmod((bin + "/xdg-open").c_str(), 0700);
    return bin;
}

TEST_F(View, OpensTheBrowserOfADesktop) {
    const std::string bin = fakeDesktop(folder);
    Viewing view({src}, [&] {
        ::setenv("DISPLAY", ":77", 1);
        ::setenv("PATH", (bin + ":/usr/bin:/bin").c_str(), 1);
    });
    while (!std::filesystem::exists(bin + "/xdg-open.called"))
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(contentOf(bin + "/xdg-open.called"), view.address.line);
}

TEST_F(View, OpensNothingWhenToldSo) {
    const std::string bin = fakeDesktop(folder);
    Viewing view({"--no-open", src}, [&] {
        ::setenv("DISPLAY", ":77", 1);
        ::setenv("PATH", (bin + ":/usr/bin:/bin").c_str(), 1);
    });
    EXPECT_EQ(view.end(SIGTERM), 0);
    EXPECT_FALSE(std::filesystem::exists(bin + "/xdg-open.called"));
}

// ---- convert --html -------------------------------------------------------------------------------------

/// The file inside a page.
std::string fileIn(const std::string& page) {
    const std::string begin = "data-encoding=\"gzip\">";
    const std::size_t start = page.find(begin) + begin.size();
    return filtered("base64 -d | gzip -dc", page.substr(start, page.find("</script>", start) - start));
}

TEST_F(View, HtmlHoldsWhatConvertWrites) {
    const CommandResult result =
        runCommand({"convert", plate, "--html", "--verify", "-o", folder / "out.html"});
    EXPECT_EQ(result.status, 0) << result.err;
    const std::string page = contentOf(folder / "out.html");
    EXPECT_THAT(page, AllOf(HasSubstr("data-name=\"plate.src\""), HasSubstr("<title>plate.src</title>"),
                            Not(HasSubstr("<!--kelsrc:files-->"))));
    EXPECT_EQ(fileIn(page), contentOf(src));
}

TEST_F(View, HtmlIsImpliedByTheOutputsEnding) {
    ASSERT_EQ(runCommand({"convert", plate, "-o", folder / "out.html"}).status, 0);
    EXPECT_EQ(fileIn(contentOf(folder / "out.html")), contentOf(src));
}

TEST_F(View, HtmlTakesSrcFilesAsTheyAre) {
    const CommandResult result = runCommand({"convert", src, "--verify", "-o", folder / "out.html"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("1 mesh, 2 triangles"));
    EXPECT_EQ(fileIn(contentOf(folder / "out.html")), contentOf(src));
}

TEST_F(View, HtmlChecksTheSrcFile) {
    const std::string content = contentOf(src);
    const std::string cut = writeFile(folder / "cut.src", content.substr(0, content.size() / 2));
    EXPECT_EQ(runCommand({"convert", cut, "-o", folder / "out.html"}).status, 3);
    EXPECT_FALSE(std::filesystem::exists(folder / "out.html"));
}

TEST_F(View, HtmlIsCalledAfterTheModelWithoutAnOutput) {
    const ProcessResult result =
        runProcess({"convert", plate, "--html"}, [&] { EXPECT_EQ(::chdir(folder.path().c_str()), 0); });
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(folder.entries(), UnorderedElementsAre("plate.obj", "plate.src", "plate.html"));
}

TEST_F(View, HtmlOfSeveralInputsGoesIntoAFolder) {
    writeFile(folder / "b.obj", PLATE_OBJ);
    const CommandResult result =
        runCommand({"convert", src, folder / "b.obj", "--html", "-o", folder / "pages"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(fileIn(contentOf(folder / "pages/plate.html")), contentOf(src));
    EXPECT_TRUE(std::filesystem::exists(folder / "pages/b.html"));
}

TEST_F(View, HtmlOfAFolderTakesModelsAndSrcFiles) {
    ASSERT_EQ(runCommand({"convert", folder.path().string(), "--html", "-o", folder / "pages"}).status, 0);
    EXPECT_TRUE(std::filesystem::exists(folder / "pages/plate.obj.html"));
    EXPECT_TRUE(std::filesystem::exists(folder / "pages/plate.src.html"));
}

TEST_F(View, HtmlGoesToStandardOutput) {
    const CommandResult result = runCommand({"convert", plate, "--html", "-o", "-"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(fileIn(result.out), contentOf(src));
}

TEST_F(View, HtmlIsReportedWithBothSizes) {
    const CommandResult result = runCommand({"convert", plate, "--json", "-o", folder / "out.html"});
    picojson::value report;
    ASSERT_EQ(picojson::parse(report, result.out), "");
    const picojson::value& file = report.get("files").get<picojson::array>().at(0);
    EXPECT_EQ(file.get("bytesSrc").get<double>(), static_cast<double>(contentOf(src).size()));
    EXPECT_EQ(file.get("bytesOut").get<double>(), static_cast<double>(contentOf(folder / "out.html").size()));
    EXPECT_TRUE(file.contains("mode"));
}

TEST_F(View, HtmlOnAFullDiskLeavesTheOldFile) {
    const std::string out = writeFile(folder / "out.html", "old");
    const ProcessResult result = runProcess({"convert", plate, "-o", out}, [] {
        const rlimit limit{3000, 3000};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    });
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(contentOf(out), "old");
    EXPECT_THAT(folder.entries(), UnorderedElementsAre("plate.obj", "plate.src", "out.html"));
}

TEST_F(View, HtmlDoesNotReplaceItsModel) {
    const std::string page = writeFile(folder / "model.html", PLATE_OBJ);
    EXPECT_EQ(runCommand({"convert", page, "-o", page}).status, 4);
    EXPECT_EQ(contentOf(page), PLATE_OBJ);
}

TEST_F(View, OutputIsRequiredButForOnePage) {
    for (const std::vector<std::string>& args : {std::vector<std::string>{"convert", plate},
                                                 {"convert", plate, src, "--html"},
                                                 {"convert", "-", "--html"}})
        EXPECT_EQ(runCommand(args).status, 2);
}

} // namespace
