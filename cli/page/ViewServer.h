#pragma once

#include <memory>
#include <string>
#include <vector>

namespace kelsrc::cli {

struct ServedFile {
    std::string name; ///< without a folder
    std::string path; ///< where its bytes are; absolute, so that a change of folder does not matter
};

/// Serves the viewer's page at "/" and the files at "/files/N/NAME" to programs on this machine, and nothing
/// else: no path of a request ever becomes a path of the file system.
///
/// A file is opened anew for every request, so that a reload shows what is there now. Answers only to
/// requests that name 127.0.0.1 or localhost with its port as their host: a page from elsewhere whose own
/// name leads here is refused.
class ViewServer {
public:
    /// Takes a port and keeps it; nobody is answered before start().
    ///
    /// port    0 takes a free one
    /// throws  Failure with STATUS_NOT_WRITTEN when the port cannot be had
    ViewServer(const std::string& page, std::vector<ServedFile> files, int port);
    /// Breaks off what is being sent.
    ~ViewServer();
    ViewServer(const ViewServer&) = delete;
    ViewServer& operator=(const ViewServer&) = delete;

    int port() const;
    /// Where file `index` is, relative to the page.
    std::string pathOf(std::size_t index) const;
    /// Where the page is that shows all the files.
    std::string address() const;

    /// Answers from now on, in threads of its own.
    void start();

private:
    class Impl;
    std::unique_ptr<Impl> impl;
};

} // namespace kelsrc::cli
