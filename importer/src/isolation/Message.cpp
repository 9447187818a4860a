#include "Message.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <system_error>

namespace kel::importer::detail {

namespace {

constexpr std::size_t MOST_FILES = 4;

struct Head {
    std::uint32_t kind;
    std::uint32_t reserved;
    double number;
};

union Control {
    cmsghdr aligned;
    char bytes[CMSG_SPACE(MOST_FILES * sizeof(int))];
};

} // namespace

std::pair<FileDescriptor, FileDescriptor> socketPair() {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::system_error(errno, std::generic_category(), "socketpair");
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

bool send(const FileDescriptor& socket, Message::Kind kind, double number, const std::string& text,
          std::initializer_list<int> files) {
    if (text.size() > LONGEST_TEXT || files.size() > MOST_FILES) return false;
    Head head{kind, 0, number};
    std::array<iovec, 2> parts{{{&head, sizeof head}, {const_cast<char*>(text.data()), text.size()}}};
    msghdr packet{};
    packet.msg_iov = parts.data();
    packet.msg_iovlen = parts.size();
    Control control{};
    if (files.size() > 0) {
        packet.msg_control = control.bytes;
        packet.msg_controllen = CMSG_SPACE(files.size() * sizeof(int));
        cmsghdr* const entry = CMSG_FIRSTHDR(&packet);
        entry->cmsg_level = SOL_SOCKET;
        entry->cmsg_type = SCM_RIGHTS;
        entry->cmsg_len = CMSG_LEN(files.size() * sizeof(int));
        std::memcpy(CMSG_DATA(entry), files.begin(), files.size() * sizeof(int));
    }
    while (::sendmsg(socket.get(), &packet, MSG_NOSIGNAL) < 0) {
        if (errno != EINTR) return false;
    }
    return true;
}

Received receive(const FileDescriptor& socket, std::optional<Clock::time_point> until) {
    for (;;) {
        int milliseconds = -1;
        if (until) {
            // Rounded up: what is waited for shall be over then.
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(*until - Clock::now()).count();
            milliseconds = static_cast<int>(std::clamp<long long>(left, 0, INT_MAX));
        }
        pollfd ready{socket.get(), POLLIN, 0};
        const int count = ::poll(&ready, 1, milliseconds);
        if (count > 0) break;
        if (count < 0 && errno != EINTR) return {Received::BROKEN, {}};
        if (count == 0 && Clock::now() >= *until) return {Received::NOTHING, {}};
    }
    Received result;
    Message& message = result.message;
    Head head{};
    std::vector<char> text(LONGEST_TEXT);
    std::array<iovec, 2> parts{{{&head, sizeof head}, {text.data(), text.size()}}};
    Control control{};
    msghdr packet{};
    packet.msg_iov = parts.data();
    packet.msg_iovlen = parts.size();
    packet.msg_control = control.bytes;
    packet.msg_controllen = sizeof control;
    ssize_t size = 0;
    do {
        size = ::recvmsg(socket.get(), &packet, MSG_CMSG_CLOEXEC);
    } while (size < 0 && errno == EINTR);
    result.state = size == 0 || (size < 0 && errno == ECONNRESET) ? Received::CLOSED : Received::BROKEN;
    if (size <= 0) return result;
    for (cmsghdr* entry = CMSG_FIRSTHDR(&packet); entry; entry = CMSG_NXTHDR(&packet, entry)) {
        if (entry->cmsg_level != SOL_SOCKET || entry->cmsg_type != SCM_RIGHTS) continue;
        for (std::size_t at = CMSG_LEN(0); at + sizeof(int) <= entry->cmsg_len; at += sizeof(int)) {
            int file = -1;
            std::memcpy(&file, reinterpret_cast<char*>(entry) + at, sizeof file);
            message.files.emplace_back(file);
        }
    }
    if (static_cast<std::size_t>(size) < sizeof head || (packet.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0 ||
        head.kind > Message::ENDED)
        return result;
    message.kind = static_cast<Message::Kind>(head.kind);
    message.number = head.number;
    message.text.assign(text.data(), static_cast<std::size_t>(size) - sizeof head);
    result.state = Received::MESSAGE;
    return result;
}

} // namespace kel::importer::detail
