#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace refhost
{

/// Reads the fields of a NAL unit's payload bit by bit (ITU-T H.264 and H.265, sections 7.2 and 9.1).
///
/// Beyond the end every field reads as 0 and failed() returns true. Threads: one at a time.
class BitReader
{
public:
    /// \param data  the NAL unit without its header; emulation prevention bytes are removed
    BitReader(const std::uint8_t* data, std::size_t size);

    /// An unsigned number of 0 to 32 bits: u(n).
    std::uint32_t bits(unsigned count);
    bool flag()
    {
        return bits(1) != 0;
    }
    /// An unsigned Exp-Golomb number: ue(v).
    std::uint32_t ue();
    /// A signed Exp-Golomb number: se(v).
    std::int32_t se();
    void skip(std::size_t count);

    /// The end was passed, or an impossible number was read.
    bool failed() const
    {
        return failed_;
    }

private:
    std::vector<std::uint8_t> bytes_;
    std::size_t position_ = 0;  // bits
    bool failed_ = false;
};

}  // namespace refhost
