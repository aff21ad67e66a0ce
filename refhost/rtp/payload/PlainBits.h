#pragma once
// Tested by tests/refhost/rtp/payload/AudioConfig_test.cpp.

#include <cstddef>
#include <cstdint>

#include "refhost/media/ByteSpan.h"

namespace refhost
{

/// Reads numbers bit by bit, the most significant first. Behind the end everything is 0, and failed() says so.
/// Threads: one at a time.
class PlainBits
{
public:
    explicit PlainBits(ByteSpan bytes, std::size_t start = 0) : bytes_(bytes), position_(start) {}

    /// \param count  0 to 32
    std::uint32_t bits(unsigned count)
    {
        std::uint32_t value = 0;
        for (unsigned i = 0; i < count; ++i, ++position_)
        {
            const std::size_t at = position_ / 8;
            value = value << 1U | (at < bytes_.size ? bytes_[at] >> (7U - position_ % 8) & 1U : 0U);
        }
        return value;
    }

    void skip(std::size_t count)
    {
        position_ += count;
    }

    /// Bits read or skipped so far, `start` included.
    std::size_t position() const
    {
        return position_;
    }

    /// Bits that are left; 0 behind the end.
    std::size_t left() const
    {
        return failed() ? 0 : bytes_.size * 8 - position_;
    }

    bool failed() const
    {
        return position_ > bytes_.size * 8;
    }

private:
    ByteSpan bytes_;
    std::size_t position_;
};

}  // namespace refhost
