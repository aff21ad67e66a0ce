#pragma once
// Tested by tests/refhost/playback/ReverseReader_test.cpp.

#include <cstdint>

#include "refhost/playback/SegmentFile.h"

namespace refhost
{

/// Reads recorded units one after the other, forwards or backwards. Threads: one at a time. Reads from a
/// disk.
class UnitReader
{
public:
    enum class Result
    {
        unit,
        end,
        later  ///< more may be written
    };

    virtual ~UnitReader() = default;

    /// The next unit, with its date.
    virtual Result read(CodedUnit& out) = 0;

    /// Number of the contiguous section that the last unit belongs to.
    virtual std::uint32_t range() const = 0;

    /// What the last unit is.
    virtual const SegmentFile::Track& track(bool video) const = 0;
};

}  // namespace refhost
