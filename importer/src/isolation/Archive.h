#pragma once

#include <glm/mat4x4.hpp>
#include <glm/vec3.hpp>
#include <glm/vec4.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

/// Data as bytes, from one process to another of the same build. What a struct consists of stands in one function
/// forEachField(archive, struct) beside it, which writes and reads.
namespace kel::importer::detail {

/// Bytes that no writer has written.
class BrokenArchive : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Lists are aligned to this, so that their elements can be read where they lie.
constexpr std::size_t ARCHIVE_ALIGNMENT = 8;

/// Types whose bytes are their value, whatever the bytes are.
template<typename T>
constexpr bool
    IS_PLAIN = (std::is_arithmetic_v<T> && !std::is_same_v<T, bool>) || std::is_same_v<T, glm::vec3> ||
               std::is_same_v<T, glm::vec4> || std::is_same_v<T, glm::dmat4>;

/// The last value of an enumeration.
template<typename Enum>
extern const Enum LARGEST;

/// Writes fields one after the other.
///
/// Sink  called with bytes and their count
template<typename Sink>
class ArchiveWriter {
public:
    explicit ArchiveWriter(Sink sink) : sink(std::move(sink)) {}

    template<typename... Fields>
    void operator()(const Fields&... fields) {
        (write(fields), ...);
    }

private:
    Sink sink;
    std::size_t written = 0;

    void put(const void* bytes, std::size_t size) {
        if (size > 0) sink(bytes, size);
        written += size;
    }
    void count(std::size_t number) { write(static_cast<std::uint64_t>(number)); }

    template<typename T>
    void write(const T& value) {
        if constexpr (IS_PLAIN<T>) {
            put(&value, sizeof value);
        } else if constexpr (std::is_same_v<T, bool> || std::is_enum_v<T>) {
            write(static_cast<std::uint8_t>(value));
        } else {
            forEachField(*this, const_cast<T&>(value)); // only read
        }
    }
    void write(const std::string& text) {
        count(text.size());
        put(text.data(), text.size());
    }
    template<typename T>
    void write(const std::optional<T>& value) {
        write(value.has_value());
        if (value) write(*value);
    }
    template<typename T, std::size_t N>
    void write(const std::array<T, N>& values) {
        for (const T& value : values)
            write(value);
    }
    template<typename T>
    void write(const std::vector<T>& values) {
        count(values.size());
        if constexpr (IS_PLAIN<T>) {
            constexpr char ZEROS[ARCHIVE_ALIGNMENT] = {};
            put(ZEROS, (ARCHIVE_ALIGNMENT - written % ARCHIVE_ALIGNMENT) % ARCHIVE_ALIGNMENT);
            put(values.data(), values.size() * sizeof(T));
        } else {
            for (const T& value : values)
                write(value);
        }
    }
    template<typename T>
    void write(const std::map<std::string, T>& entries) {
        count(entries.size());
        for (const auto& [key, value] : entries)
            (*this)(key, value);
    }
};

/// Reads what an ArchiveWriter wrote, and believes none of it: no more memory is taken than the bytes that are there
/// can fill.
class ArchiveReader {
public:
    /// bytes  aligned as lists are; outlive the reader
    explicit ArchiveReader(std::string_view bytes) : bytes(bytes) {}

    /// throws  BrokenArchive
    template<typename... Fields>
    void operator()(Fields&... fields) {
        (read(fields), ...);
    }
    /// throws  BrokenArchive when bytes are left
    void finish() const {
        if (position != bytes.size()) throw BrokenArchive("there is more than what belongs to it");
    }

private:
    std::string_view bytes;
    std::size_t position = 0;

    const char* take(std::size_t size) {
        if (size > bytes.size() - position) throw BrokenArchive("it ends too early");
        position += size;
        return bytes.data() + (position - size);
    }
    /// Of elements that take at least so many bytes each.
    std::size_t count(std::size_t smallest) {
        std::uint64_t number = 0;
        read(number);
        if (number > (bytes.size() - position) / smallest)
            throw BrokenArchive("it announces more than it has room for");
        return static_cast<std::size_t>(number);
    }

    template<typename T>
    void read(T& value) {
        if constexpr (IS_PLAIN<T>) {
            std::memcpy(&value, take(sizeof value), sizeof value);
        } else if constexpr (std::is_same_v<T, bool>) {
            value = *take(1) != 0;
        } else if constexpr (std::is_enum_v<T>) {
            const auto number = static_cast<std::uint8_t>(*take(1));
            if (number > static_cast<std::uint8_t>(LARGEST<T>))
                throw BrokenArchive("it has a value that does not exist");
            value = static_cast<T>(number);
        } else {
            forEachField(*this, value);
        }
    }
    void read(std::string& text) {
        const std::size_t size = count(1);
        text.assign(take(size), size);
    }
    template<typename T>
    void read(std::optional<T>& value) {
        bool there = false;
        read(there);
        value.reset();
        if (there) read(value.emplace());
    }
    template<typename T, std::size_t N>
    void read(std::array<T, N>& values) {
        for (T& value : values)
            read(value);
    }
    template<typename T>
    void read(std::vector<T>& values) {
        values.clear();
        if constexpr (IS_PLAIN<T>) {
            const std::size_t size = count(sizeof(T));
            take((ARCHIVE_ALIGNMENT - position % ARCHIVE_ALIGNMENT) % ARCHIVE_ALIGNMENT);
            if (size > (bytes.size() - position) / sizeof(T)) throw BrokenArchive("it ends too early");
            const auto* const first = reinterpret_cast<const T*>(take(size * sizeof(T)));
            values.assign(first, first + size);
        } else {
            for (std::size_t left = count(1); left > 0; --left)
                read(values.emplace_back());
        }
    }
    template<typename T>
    void read(std::map<std::string, T>& entries) {
        entries.clear();
        for (std::size_t left = count(1); left > 0; --left) {
            std::string key;
            read(key);
            read(entries[key]);
        }
    }
};

/// The fields as a string.
template<typename... Fields>
std::string packed(const Fields&... fields) {
    std::string text;
    ArchiveWriter writer(
        [&](const void* bytes, std::size_t size) { text.append(static_cast<const char*>(bytes), size); });
    writer(fields...);
    return text;
}

} // namespace kel::importer::detail
