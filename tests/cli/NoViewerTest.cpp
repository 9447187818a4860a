// Where a command that was built without the viewer looks for one. A program of its own, in a folder of its
// own.

#include "CommandRun.h"

#include <Failure.h>
#include <page/HtmlPage.h>

#include <gmock/gmock.h>

namespace {

namespace fs = std::filesystem;
using namespace kel::tests;
using kelsrc::cli::viewerPage;

// One test, because tests run at the same time and there is one folder.
TEST(NoViewer, PageIsLookedForBesideTheCommandAndInTheInstalledTree) {
    const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path();
    const fs::path beside = folder / "viewer.html";
    const fs::path share = folder.parent_path() / "share/kelsrc/viewer.html";
    try {
        viewerPage();
        FAIL() << "a page from nowhere";
    } catch (const kelsrc::cli::Failure& failure) {
        EXPECT_EQ(failure.status(), kelsrc::cli::STATUS_NOT_WRITTEN);
        EXPECT_STREQ(failure.what(), "this kelsrc was built without the viewer");
        EXPECT_THAT(failure.remedy(), testing::HasSubstr("nodejs and npm"));
    }
    fs::create_directories(share.parent_path());
    writeFile(share.string(), "installed");
    EXPECT_EQ(viewerPage(), "installed");
    fs::remove_all(share.parent_path());
    writeFile(beside.string(), "beside");
    EXPECT_EQ(viewerPage(), "beside");
    fs::remove(beside);
}

} // namespace
