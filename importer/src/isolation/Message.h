#pragma once

#include "FileDescriptor.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// How a process that imports talks with its helper, and with the child of the helper that reads a model.
namespace kel::importer::detail {

struct Message {
    enum Kind : std::uint32_t {
        READY, ///< the helper serves; text: the version of the library
        READ, ///< text: a ReadRequest; files: where the answers go, the working directory, the bytes in memory
        STARTED,   ///< a child reads
        PROGRESS,  ///< text: the stage; number: how much of it is done
        MODEL,     ///< files: a model, see Transfer.h
        REFUSED,   ///< text: a Refusal
        TOO_LARGE, ///< the limit on memory is reached
        ENDED      ///< the child has ended; number: its status as waitpid() gives it
    };
    Kind kind = READY;
    double number = 0.0;
    std::string text;
    std::vector<FileDescriptor> files;
};

/// The longest text of a message.
constexpr std::size_t LONGEST_TEXT = 65536;

/// Two sockets that are connected and keep messages apart. Throws std::system_error.
std::pair<FileDescriptor, FileDescriptor> socketPair();

/// Waits while the socket is full.
///
/// files    go along as duplicates
/// returns  false when nobody receives any more, or the text is too long
bool send(const FileDescriptor& socket, Message::Kind kind, double number = 0.0, const std::string& text = {},
          std::initializer_list<int> files = {});

struct Received {
    enum State { MESSAGE, NOTHING, CLOSED, BROKEN } state = NOTHING;
    Message message;
};

using Clock = std::chrono::steady_clock;

/// Waits for a message, until then at the latest; without a time for as long as it takes.
Received receive(const FileDescriptor& socket, std::optional<Clock::time_point> until);

} // namespace kel::importer::detail
