// A page with a file inside, taken apart with the tools of the system.

#include "CommandRun.h"
#include "ShellFilter.h"

#include <Failure.h>
#include <page/HtmlPage.h>

#include <gmock/gmock.h>

namespace {

using namespace kel::tests;
using kelsrc::cli::EmbeddedFile;
using kelsrc::cli::Failure;
using kelsrc::cli::writeHtmlPage;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

const std::string VIEWER =
    "<head><title>kelSrc viewer</title></head><body>\n<!--kelsrc:files-->\n<script>1</script></body>";

class HtmlPage : public testing::Test {
protected:
    std::string page(const std::string& name, const std::string& content,
                     const std::string& viewer = VIEWER) {
        std::ostringstream out;
        writeHtmlPage(out, viewer, {name, writeFile(folder / "file", content)});
        return out.str();
    }

    TempFolder folder;
};

/// The text of the element that holds the file.
std::string base64In(const std::string& page) {
    const std::string begin = "data-encoding=\"gzip\">";
    const std::size_t start = page.find(begin) + begin.size();
    return page.substr(start, page.find("</script>", start) - start);
}

TEST_F(HtmlPage, HoldsTheFileInTheMarkersPlace) {
    const std::string text = page("engine.src", "0123456789");
    EXPECT_THAT(text, StartsWith("<head><title>engine.src</title></head><body>\n"
                                 "<script type=\"application/vnd.kelsrc\" data-name=\"engine.src\" "
                                 "data-bytes=\"10\" data-encoding=\"gzip\">"));
    EXPECT_THAT(text, EndsWith("</script>\n\n<script>1</script></body>"));
    EXPECT_EQ(filtered("base64 -d | gzip -dc", base64In(text)), "0123456789");
}

TEST_F(HtmlPage, HoldsFilesOfAnyLength) {
    // Compressed, these leave every remainder of a division by 3, and the last takes several pieces.
    std::string content;
    std::uint32_t state = 1;
    for (const std::size_t size : {0u, 1u, 2u, 3u, 4u, 5u, 100u, 3000000u}) {
        while (content.size() < size)
            content += static_cast<char>((state = state * 1664525u + 1013904223u) >> 24);
        const std::string text = page("a", content);
        EXPECT_THAT(text, HasSubstr("data-bytes=\"" + std::to_string(size) + '"'));
        EXPECT_EQ(filtered("base64 -d | gzip -dc", base64In(text)), content) << size;
    }
}

TEST_F(HtmlPage, NamesCannotBreakOut) {
    const std::string text = page("<script>alert(\"'&\")</script>.src", "x");
    const std::string escaped = "&lt;script&gt;alert(&quot;&#39;&amp;&quot;)&lt;/script&gt;.src";
    EXPECT_THAT(text, HasSubstr("<title>" + escaped + "</title>"));
    EXPECT_THAT(text, HasSubstr("data-name=\"" + escaped + "\""));
}

TEST_F(HtmlPage, NamesThatAreNotUtf8AreMadeSo) {
    EXPECT_THAT(page("a\xff.src", "x"), HasSubstr("<title>a\xef\xbf\xbd.src</title>"));
}

TEST_F(HtmlPage, ViewerWithoutAPlaceForFilesIsRefused) {
    EXPECT_THROW(page("a", "x", "<title></title>"), Failure);
    EXPECT_THROW(page("a", "x", "<!--kelsrc:files-->"), Failure);
}

TEST_F(HtmlPage, FileThatIsNotThereIsAnError) {
    std::ostringstream out;
    try {
        writeHtmlPage(out, VIEWER, {"a.src", folder / "no"});
        FAIL() << "a page of nothing";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.status(), kelsrc::cli::STATUS_INPUT);
        EXPECT_EQ(failure.subject(), "a.src");
    }
}

TEST_F(HtmlPage, ProgressEndsWithTheWholeFile) {
    std::vector<std::uint64_t> seen;
    std::ostringstream out;
    writeHtmlPage(out, VIEWER, {"a", writeFile(folder / "file", std::string(2500000, 'x'))},
                  [&](std::uint64_t bytes) { seen.push_back(bytes); });
    ASSERT_GE(seen.size(), 2u);
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    EXPECT_EQ(seen.back(), 2500000u);
}

} // namespace
