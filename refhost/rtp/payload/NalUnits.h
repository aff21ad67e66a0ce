#pragma once
// Tested by tests/refhost/rtp/payload/H264Depacketizer_test.cpp.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "refhost/media/ByteSpan.h"

namespace refhost
{

/// The NAL units of one frame while they are gathered, each behind its length in four bytes. Threads: one at
/// a time.
class NalUnits
{
public:
    static constexpr std::size_t lengthSize = 4;

    void reserve(std::size_t bytes)
    {
        bytes_.reserve(bytes);
    }

    void add(ByteSpan unit);

    /// Opens a unit of which append() brings the rest. Requires: none is open.
    void open(ByteSpan header);
    /// Requires: a unit is open.
    void append(ByteSpan body);
    /// Ends the open unit. \param whole  false: it is taken out again
    void close(bool whole);

    /// Puts whole units in front of all others. Requires: none is open.
    void putInFront(const NalUnits& units);

    /// Gives the bytes away, without much unused memory; none are left.
    std::vector<std::uint8_t> take();

    /// Keeps the memory.
    void clear()
    {
        bytes_.clear();
    }

    std::size_t size() const
    {
        return bytes_.size();
    }

private:
    void addLength(std::size_t size);

    std::vector<std::uint8_t> bytes_;
    std::size_t openAt_ = 0;  ///< of the length of the unit that is open
};

}  // namespace refhost
