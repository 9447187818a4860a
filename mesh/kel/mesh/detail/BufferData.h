#pragma once

#include <kel/mesh/Export.h>

#include <cstddef>
#include <utility>
#include <vector>

namespace kel::mesh::detail {

/// Owner of raw bytes that one or more buffers view.
class KEL_MESH_EXPORT BufferData {
public:
    virtual unsigned char* getData() = 0;
    virtual const unsigned char* getData() const = 0;
    virtual std::size_t getSizeInBytes() const = 0;
    virtual void resize(std::size_t sizeInBytes) = 0;
    virtual ~BufferData() = default;
};

/// The bytes in one vector. Create it with std::make_shared and share it.
class KEL_MESH_EXPORT VectorBufferData : public BufferData {
public:
    VectorBufferData() = default;
    explicit VectorBufferData(std::vector<unsigned char> bytes) : bytes(std::move(bytes)) {}

    unsigned char* getData() override { return bytes.data(); }
    const unsigned char* getData() const override { return bytes.data(); }
    std::size_t getSizeInBytes() const override { return bytes.size(); }
    /// Appends zero bytes or cuts.
    void resize(std::size_t sizeInBytes) override { bytes.resize(sizeInBytes); }

private:
    std::vector<unsigned char> bytes;
};

/// A caller's vector of numbers as buffer data: the vector is moved in, its numbers are never copied.
template<typename T>
class TypedBufferData : public BufferData {
public:
    explicit TypedBufferData(std::vector<T> values) : values(std::move(values)) {}

    unsigned char* getData() override { return reinterpret_cast<unsigned char*>(values.data()); }
    const unsigned char* getData() const override {
        return reinterpret_cast<const unsigned char*>(values.data());
    }
    std::size_t getSizeInBytes() const override { return values.size() * sizeof(T); }
    /// Whole numbers only: a size that is no multiple of sizeof(T) is rounded up.
    void resize(std::size_t sizeInBytes) override {
        values.resize((sizeInBytes + sizeof(T) - 1) / sizeof(T));
    }

private:
    std::vector<T> values;
};

} // namespace kel::mesh::detail
