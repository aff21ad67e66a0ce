#pragma once
// Tested by tests/refhost/mp4/SampleEntry_test.cpp.

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "refhost/media/ByteSpan.h"

namespace refhost
{

/// Writes the boxes of MP4 files into memory (ISO/IEC 14496-12, section 4.2). Integers are big-endian.
///
/// Threads: one at a time.
class Mp4Writer
{
public:
    /// A box that is open; close() takes it.
    using Box = std::size_t;

    /// Starts a box.
    /// \param type  four characters
    Box open(std::string_view type);
    /// Starts a box with a version and flags.
    Box open(std::string_view type, std::uint8_t version, std::uint32_t flags);
    /// Ends a box: enters its size. Boxes end in the reverse order of their starts.
    void close(Box box);

    void add8(std::uint8_t value);
    void add16(std::uint16_t value);
    void add24(std::uint32_t value);
    void add32(std::uint32_t value);
    void add64(std::uint64_t value);
    void addText(std::string_view text);
    void addBytes(ByteSpan bytes);
    void addZeros(std::size_t count);
    /// The identity matrix of movie and track headers.
    void addMatrix();

    /// Overwrites a number. Requires: it lies within what was written.
    void set32(std::size_t at, std::uint32_t value);
    void set64(std::size_t at, std::uint64_t value);

    /// Has room for `size` bytes without another allocation.
    void reserve(std::size_t size)
    {
        bytes_.reserve(size);
    }

    std::size_t size() const
    {
        return bytes_.size();
    }

    /// What was written; the writer is empty afterwards.
    std::vector<std::uint8_t> take()
    {
        return std::exchange(bytes_, {});
    }

private:
    std::vector<std::uint8_t> bytes_;
};

}  // namespace refhost
