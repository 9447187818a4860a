#pragma once

#include <unistd.h>

#include <utility>

namespace kel::importer::detail {

/// A file descriptor, closed with it.
class FileDescriptor {
public:
    explicit FileDescriptor(int number = -1) : number(number) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(number, other.number);
        return *this;
    }
    ~FileDescriptor() {
        if (number >= 0) ::close(number);
    }

    explicit operator bool() const { return number >= 0; }
    int get() const { return number; }
    /// The caller's to close.
    int release() { return std::exchange(number, -1); }

private:
    int number;
};

} // namespace kel::importer::detail
