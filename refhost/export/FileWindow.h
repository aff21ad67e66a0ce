#pragma once
// Tested by tests/refhost/export/SegmentTable_test.cpp.

#include <array>
#include <cstddef>
#include <cstdint>

namespace refhost
{

/// Reads a few bytes here and there in a file, mostly forwards. Threads: one at a time.
class FileWindow
{
public:
    /// Max bytes of one look.
    static constexpr std::size_t maxBytes = 64;

    /// \param descriptor  of a file, open for reading; outlives the window
    explicit FileWindow(int descriptor) : descriptor_(descriptor) {}

    /// Bytes at a place of the file.
    /// \param count  at most maxBytes
    /// \returns null where the file ends before, or cannot be read; valid until the next call
    const std::uint8_t* look(std::uint64_t at, std::size_t count);

    /// How many bytes can be looked at from the last place on without reading the file again.
    std::size_t held(std::uint64_t at) const;

private:
    const int descriptor_;
    std::array<std::uint8_t, 4096> bytes_{};
    std::uint64_t start_ = 0;
    std::size_t size_ = 0;
};

}  // namespace refhost
