#include "page/ViewServer.h"

#include "Failure.h"
#include "page/Gzip.h"
#include "page/HttpRequest.h"

#include <httplib.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <optional>
#include <poll.h>
#include <string_view>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace kelsrc::cli {

namespace {

using httplib::Request;
using httplib::Response;

constexpr const char* HOST = "127.0.0.1";
constexpr std::size_t THREADS = 16;
constexpr std::size_t PIECE = std::size_t(1) << 18;
constexpr int PAGE_LEVEL = 9;
constexpr int FILE_LEVEL = 1;
// The network is this machine's own and takes 1 to 2 GB/s, where compressing does 0.1 at best: what is larger
// than this would arrive seconds later. Through a forwarded port "ssh -C" compresses.
constexpr std::uint64_t MOST_COMPRESSED = std::uint64_t(8) << 20;
constexpr int IDLE_SECONDS = 30;
constexpr int READ_SECONDS = 10;
constexpr int WRITE_SECONDS = 300; // a page may be busy with what it has got

class Descriptor {
public:
    explicit Descriptor(int number) : number(number) {}
    ~Descriptor() {
        if (number >= 0) ::close(number);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return number; }

private:
    int number;
};

/// HTTP/1.0 knows no chunks.
bool takesGzip(const Request& request) {
    return request.version == "HTTP/1.1" && acceptsGzip(request.get_header_value("Accept-Encoding"));
}

/// The policy that the page states for itself, which names the hashes of its script and style.
std::string policyOf(const std::string& page) {
    constexpr std::string_view before = "<meta http-equiv=\"Content-Security-Policy\" content=\"";
    std::string policy = "frame-ancestors 'none'";
    const std::size_t found = page.find(before);
    if (found == std::string::npos) return policy;
    const std::size_t start = found + before.size();
    return page.substr(start, page.find('"', start) - start) + "; " + policy;
}

// ---- Connections ----------------------------------------------------------------------------------------

/// One connection. All waiting ends when `stop` becomes readable, so that the command ends when it is told
/// to, however many pages are open.
class Connection final : public httplib::Stream {
public:
    Connection(int socket, int stop) : number(socket), stop(stop) {}

    bool waitForRequest() { return begin != end || ready(POLLIN, IDLE_SECONDS); }

    bool is_readable() const override { return begin != end || ready(POLLIN, READ_SECONDS); }
    bool is_writable() const override { return ready(POLLOUT, WRITE_SECONDS); }
    ssize_t read(char* bytes, std::size_t size) override {
        if (begin == end) {
            if (!is_readable()) return -1;
            const ssize_t got = ::recv(number, buffer.data(), buffer.size(), 0);
            if (got <= 0) return got;
            begin = 0;
            end = static_cast<std::size_t>(got);
        }
        const std::size_t count = std::min(size, end - begin);
        std::memcpy(bytes, buffer.data() + begin, count);
        begin += count;
        return static_cast<ssize_t>(count);
    }
    ssize_t write(const char* bytes, std::size_t size) override {
        if (!is_writable()) return -1;
        return ::send(number, bytes, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    }
    void get_remote_ip_and_port(std::string& ip, int& port) const override { ip = HOST, port = 0; }
    void get_local_ip_and_port(std::string& ip, int& port) const override { ip = HOST, port = 0; }
    socket_t socket() const override { return number; }

private:
    bool ready(short event, int seconds) const {
        pollfd waited[2] = {{number, event, 0}, {stop, POLLIN, 0}};
        int count = 0;
        do {
            count = ::poll(waited, 2, seconds * 1000);
        } while (count < 0 && errno == EINTR);
        return count > 0 && waited[1].revents == 0;
    }

    const int number, stop;
    std::array<char, 4096> buffer;
    std::size_t begin = 0, end = 0;
};

/// The library's server, but for two things: it ends at once, and ranges are answered here.
class Listener final : public httplib::Server {
public:
    ~Listener() override { end(); }

    void end() {
        const std::uint64_t one = 1;
        // Cannot fail: the counter is far from full.
        if (::write(stopEvent.get(), &one, sizeof one) < 0) return;
        stop();
    }

private:
    bool process_and_close_socket(socket_t socket) override {
        const Descriptor closing(socket);
        const int on = 1;
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        Connection connection(socket, stopEvent.get());
        bool keep = true;
        while (keep && connection.waitForRequest()) {
            bool closed = false;
            keep = false;
            const bool answered = process_request(connection, false, closed, [&](Request& request) {
                // The library does not check ranges against the length.
                request.ranges.clear();
                // A body is never read, so nothing behind it could be understood.
                keep = (request.method == "GET" || request.method == "HEAD") &&
                       !request.has_header("Transfer-Encoding") &&
                       (!request.has_header("Content-Length") ||
                        request.get_header_value("Content-Length") == "0");
                if (!keep) {
                    request.headers.erase("Connection");
                    request.headers.emplace("Connection", "close");
                }
            });
            keep = keep && answered && !closed;
        }
        ::shutdown(socket, SHUT_RDWR);
        return true;
    }

    const Descriptor stopEvent{::eventfd(0, EFD_CLOEXEC)};
};

} // namespace

class ViewServer::Impl {
    const std::string page, compressedPage, policy;
    std::map<std::string, std::size_t> places; ///< by the path of a request

public:
    Impl(const std::string& page, std::vector<ServedFile> served, int wantedPort)
        : page(page), compressedPage(gzip(page, PAGE_LEVEL)), policy(policyOf(page)),
          files(std::move(served)) {
        for (std::size_t i = 0; i < files.size(); ++i)
            places["/files/" + std::to_string(i) + '/' + files[i].name] = i;
        listener.new_task_queue = [] { return new httplib::ThreadPool(THREADS); };
        listener.set_keep_alive_timeout(IDLE_SECONDS);
        listener.set_keep_alive_max_count(1000); // says the header only; connections end when they are idle
        // Not SO_REUSEPORT, the library's default: with it a second server would take half of the requests.
        listener.set_socket_options([](socket_t socket) {
            const int on = 1;
            ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        });
        listener.set_pre_routing_handler([this](const Request& request, Response& response) {
            answer(request, response);
            return httplib::Server::HandlerResponse::Handled;
        });
        listener.set_default_headers({{"X-Content-Type-Options", "nosniff"},
                                      {"Cross-Origin-Resource-Policy", "same-origin"},
                                      {"Cross-Origin-Opener-Policy", "same-origin"},
                                      {"Referrer-Policy", "no-referrer"},
                                      {"Cache-Control", "no-store"}});
        errno = 0;
        if (wantedPort == 0) {
            port = listener.bind_to_any_port(HOST);
        } else if (listener.bind_to_port(HOST, wantedPort)) {
            port = wantedPort;
        }
        if (port <= 0)
            throw Failure(STATUS_NOT_WRITTEN, std::string(HOST) + ':' + std::to_string(wantedPort),
                          "cannot be served at" + (errno ? std::string(": ") + std::strerror(errno) : ""),
                          "Choose another --port, or none for a free one.");
    }

    ~Impl() {
        listener.end();
        if (thread.joinable()) thread.join();
    }

    int port = 0;
    const std::vector<ServedFile> files;
    Listener listener;
    std::thread thread;
    std::atomic<bool> ended{false};

private:
    void answer(const Request& request, Response& response) const {
        if (!isOurName(request))
            return refuse(response, 403, "This server answers to 127.0.0.1 and localhost only.");
        if (request.method != "GET" && request.method != "HEAD") {
            response.set_header("Allow", "GET, HEAD");
            return refuse(response, 405, "Only GET and HEAD are answered.");
        }
        const std::string_view target = request.target;
        if (target.empty() || target[0] != '/') return refuse(response, 400, "This is no path.");
        const auto path = percentDecoded(target.substr(0, target.find('?')));
        if (path && *path == "/") return sendPage(request, response);
        const auto place = path ? places.find(*path) : places.end();
        if (place == places.end()) return refuse(response, 404, "There is nothing here.");
        sendFile(request, response, files[place->second]);
    }

    bool isOurName(const Request& request) const {
        if (request.get_header_value_count("Host") != 1) return false;
        const std::string host = lowerCase(request.get_header_value("Host"));
        for (const char* name : {"127.0.0.1", "localhost"}) {
            if (host == std::string(name) + ':' + std::to_string(port) || (port == 80 && host == name))
                return true;
        }
        return false;
    }

    static void refuse(Response& response, int status, const char* sentence) {
        response.status = status;
        response.set_header("Content-Security-Policy", NOTHING_ALLOWED);
        response.set_content(std::string(sentence) + '\n', "text/plain; charset=utf-8");
    }

    void sendPage(const Request& request, Response& response) const {
        response.status = 200;
        response.set_header("Content-Security-Policy", policy);
        response.set_header("Vary", "Accept-Encoding");
        const bool compressed = takesGzip(request);
        if (compressed) response.set_header("Content-Encoding", "gzip");
        const std::string& bytes = compressed ? compressedPage : page;
        // As a provider of known length, which the library leaves as it is.
        response.set_content_provider(
            bytes.size(), "text/html; charset=utf-8",
            [&bytes](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                return sink.write(bytes.data() + offset, length);
            });
    }

    static void sendFile(const Request& request, Response& response, const ServedFile& file) {
        // Without waiting, should a pipe have taken the file's place.
        const auto descriptor =
            std::make_shared<Descriptor>(::open(file.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
        struct stat state {};
        if (descriptor->get() < 0 || ::fstat(descriptor->get(), &state) != 0 || !S_ISREG(state.st_mode))
            return refuse(response, 404, "The file is not there any more.");
        const auto size = static_cast<std::uint64_t>(state.st_size);
        const std::string version = std::to_string(state.st_ino) + '-' + std::to_string(size) + '-' +
                                    std::to_string(state.st_mtim.tv_sec) + '.' +
                                    std::to_string(state.st_mtim.tv_nsec);
        const std::string tag = '"' + version + '"';
        response.status = 200;
        response.set_header("Accept-Ranges", "bytes");
        response.set_header("Vary", "Accept-Encoding");

        std::optional<ByteRange> range;
        const bool isSameVersion =
            !request.has_header("If-Range") || request.get_header_value("If-Range") == tag;
        if (request.method == "GET" && request.get_header_value_count("Range") == 1 && isSameVersion)
            range = rangeOf(request.get_header_value("Range"), size);
        if (range && range->begin == range->end) {
            response.set_header("Content-Range", "bytes */" + std::to_string(size));
            return refuse(response, 416, "The file has no such bytes.");
        }
        response.set_header("Content-Security-Policy", NOTHING_ALLOWED);
        if (!range && size <= MOST_COMPRESSED && takesGzip(request)) {
            response.set_header("ETag", '"' + version + "-gzip\"");
            response.set_header("Content-Encoding", "gzip");
            return sendCompressed(response, descriptor, size);
        }
        response.set_header("ETag", tag);
        if (range) {
            response.status = 206;
            response.set_header("Content-Range", "bytes " + std::to_string(range->begin) + '-' +
                                                     std::to_string(range->end - 1) + '/' +
                                                     std::to_string(size));
        }
        const std::uint64_t begin = range ? range->begin : 0, end = range ? range->end : size;
        const auto buffer = std::make_shared<std::vector<char>>(PIECE);
        response.set_content_provider(
            end - begin, FILE_TYPE,
            [descriptor, buffer, begin](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                const std::size_t got = readPiece(*descriptor, *buffer, begin + offset, length);
                return got != 0 && sink.write(buffer->data(), got);
            });
    }

    static void sendCompressed(Response& response, const std::shared_ptr<Descriptor>& descriptor,
                               std::uint64_t size) {
        struct Work {
            httplib::DataSink* sink = nullptr;
            std::vector<char> buffer = std::vector<char>(PIECE);
            std::uint64_t done = 0;
            Gzip compressor{FILE_LEVEL, [this](const char* bytes, std::size_t count) {
                                return sink->write(bytes, count);
                            }};
        };
        const auto work = std::make_shared<Work>();
        response.set_chunked_content_provider(
            FILE_TYPE, [descriptor, work, size](std::size_t, httplib::DataSink& sink) {
                work->sink = &sink;
                const std::size_t got = readPiece(*descriptor, work->buffer, work->done, size - work->done);
                // A file that has shrunk meanwhile: a broken connection tells it, a clean end would not.
                if (got == 0) return false;
                work->done += got;
                if (!work->compressor.add({work->buffer.data(), got})) return false;
                if (work->done < size) return true;
                if (!work->compressor.finish()) return false;
                sink.done();
                return true;
            });
    }

    /// 0 when there is nothing to be read.
    static std::size_t readPiece(const Descriptor& descriptor, std::vector<char>& buffer,
                                 std::uint64_t offset, std::uint64_t length) {
        const std::size_t wanted = static_cast<std::size_t>(std::min<std::uint64_t>(length, buffer.size()));
        ssize_t got = 0;
        do {
            got = ::pread(descriptor.get(), buffer.data(), wanted, static_cast<off_t>(offset));
        } while (got < 0 && errno == EINTR);
        return got < 0 ? 0 : static_cast<std::size_t>(got);
    }

    static constexpr const char* NOTHING_ALLOWED = "default-src 'none'; frame-ancestors 'none'";
    static constexpr const char* FILE_TYPE = "application/octet-stream";
};

ViewServer::ViewServer(const std::string& page, std::vector<ServedFile> files, int port)
    : impl(std::make_unique<Impl>(page, std::move(files), port)) {}

ViewServer::~ViewServer() = default;

int ViewServer::port() const {
    return impl->port;
}

std::string ViewServer::pathOf(std::size_t index) const {
    return "files/" + std::to_string(index) + '/' + percentEncoded(impl->files[index].name);
}

std::string ViewServer::address() const {
    std::string address = std::string("http://") + HOST + ':' + std::to_string(impl->port) + '/';
    for (std::size_t i = 0; i < impl->files.size(); ++i) {
        // The path is encoded once more, as the value of a parameter; its slashes may stay.
        const std::string path = pathOf(i);
        const std::size_t name = path.rfind('/') + 1;
        address += (i == 0 ? "?src=" : "&src=") + path.substr(0, name) + percentEncoded(path.substr(name));
    }
    return address;
}

void ViewServer::start() {
    impl->thread = std::thread([this] {
        impl->listener.listen_after_bind();
        impl->ended = true;
    });
    // Before that, telling it to stop has no effect.
    while (!impl->listener.is_running() && !impl->ended)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

} // namespace kelsrc::cli
