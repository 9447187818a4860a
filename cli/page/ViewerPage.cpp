#include "Failure.h"
#include "page/Gzip.h"
#include "page/HtmlPage.h"

#ifndef KELSRC_HAS_VIEWER
#include <filesystem>
#include <fstream>
#include <iterator>
#endif

namespace kelsrc::cli {

#ifdef KELSRC_HAS_VIEWER

extern "C" {
extern const char kelsrcViewerBegin[], kelsrcViewerEnd[]; // see ViewerBytes.cpp.in
}

std::string viewerPage() {
    return gunzip({kelsrcViewerBegin, static_cast<std::size_t>(kelsrcViewerEnd - kelsrcViewerBegin)});
}

#else

std::string viewerPage() {
    std::error_code error;
    const auto folder = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    if (!error) {
        for (const char* place : {"viewer.html", "../share/kelsrc/viewer.html"}) {
            std::ifstream in(folder / place, std::ios::binary);
            if (in) return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        }
    }
    throw Failure(STATUS_NOT_WRITTEN, "", "this kelsrc was built without the viewer",
                  "Install nodejs and npm and build again, or put a viewer.html beside the command.");
}

#endif

} // namespace kelsrc::cli
