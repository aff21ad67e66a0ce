#pragma once
// Tested by tests/refhost/rtp/payload/PacketRun_test.cpp.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace refhost
{

/// Bytes of somebody else. Threads: a value.
struct ByteSpan
{
    const std::uint8_t* data = nullptr;
    std::size_t size = 0;

    ByteSpan() = default;
    ByteSpan(const std::uint8_t* bytes, std::size_t count) : data(bytes), size(count) {}
    // NOLINTNEXTLINE(google-explicit-constructor): a vector is one of the things that hold bytes
    ByteSpan(const std::vector<std::uint8_t>& bytes) : data(bytes.data()), size(bytes.size()) {}

    bool empty() const
    {
        return size == 0;
    }

    /// Requires: index < size.
    std::uint8_t operator[](std::size_t index) const
    {
        return data[index];
    }

    /// Without the first `count` bytes. Requires: count <= size.
    ByteSpan from(std::size_t count) const
    {
        return {data + count, size - count};
    }

    /// The first `count` bytes. Requires: count <= size.
    ByteSpan first(std::size_t count) const
    {
        return {data, count};
    }

    const std::uint8_t* begin() const
    {
        return data;
    }

    const std::uint8_t* end() const
    {
        return data + size;
    }
};

}  // namespace refhost
