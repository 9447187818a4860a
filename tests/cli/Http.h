#pragma once

// Requests as bytes on a socket, so that also those can be made which no client would make.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace kel::tests {

/// A connection to a server on this machine.
class HttpConnection {
public:
    explicit HttpConnection(int port, const char* address = "127.0.0.1")
        : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(static_cast<std::uint16_t>(port));
        ::inet_pton(AF_INET, address, &to.sin_addr);
        if (::connect(socket, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
            ::close(socket);
            throw std::runtime_error("cannot connect");
        }
        const timeval patience{60, 0};
        ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }
    ~HttpConnection() { ::close(socket); }
    HttpConnection(const HttpConnection&) = delete;
    HttpConnection& operator=(const HttpConnection&) = delete;

    void send(const std::string& text) { ::send(socket, text.data(), text.size(), MSG_NOSIGNAL); }
    /// All until the server closes.
    std::string rest() {
        std::string text;
        while (readSome(text)) {
        }
        return text;
    }
    /// Until what has come contains `mark`.
    std::string until(const std::string& mark) {
        std::string text;
        while (text.find(mark) == std::string::npos && readSome(text)) {
        }
        return text;
    }

private:
    bool readSome(std::string& text) {
        char bytes[65536];
        const ssize_t got = ::recv(socket, bytes, sizeof bytes, 0);
        if (got > 0) text.append(bytes, static_cast<std::size_t>(got));
        return got > 0;
    }

    int socket;
};

struct HttpAnswer {
    int status = 0;
    std::string head, body;

    /// Empty when there is none.
    std::string header(const std::string& name) const {
        const std::string begin = "\r\n" + name + ": ";
        const std::size_t found = head.find(begin);
        if (found == std::string::npos) return "";
        const std::size_t start = found + begin.size();
        return head.substr(start, head.find("\r\n", start) - start);
    }
};

inline HttpAnswer answerOf(const std::string& text) {
    HttpAnswer answer;
    const std::size_t end = text.find("\r\n\r\n");
    if (end == std::string::npos || text.compare(0, 9, "HTTP/1.1 ") != 0)
        throw std::runtime_error("no answer: " + text);
    answer.status = std::stoi(text.substr(9, 3));
    answer.head = text.substr(0, end + 2);
    answer.body = text.substr(end + 4);
    return answer;
}

/// One request on a connection of its own; `headers` are lines that end in "\r\n".
inline HttpAnswer ask(int port, const std::string& target, const std::string& headers = "",
                      const std::string& method = "GET") {
    HttpConnection connection(port);
    connection.send(method + ' ' + target + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                    "\r\nConnection: close\r\n" + headers + "\r\n");
    return answerOf(connection.rest());
}

/// What chunks hold. Throws when the last one is missing.
inline std::string unchunked(const std::string& text) {
    std::string result;
    for (std::size_t at = 0;;) {
        const std::size_t line = text.find("\r\n", at);
        if (line == std::string::npos) throw std::runtime_error("the last chunk is missing");
        const std::size_t size = std::stoul(text.substr(at, line - at), nullptr, 16);
        if (size == 0) return result;
        result += text.substr(line + 2, size);
        at = line + 2 + size + 2;
    }
}

} // namespace kel::tests
