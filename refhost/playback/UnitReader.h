#pragma once
// Tested by tests/refhost/playback/ReverseReader_test.cpp.

#include <cstdint>

#include "refhost/playback/SegmentFile.h"

namespace refhost
{

/// Reads recorded units in sequence, forwards or backwards. Reads from a disk. Threads: one at a time.
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

    /// Number of the contiguous range of the last unit.
    virtual std::uint32_t range() const = 0;

    /// Track of the last unit.
    virtual const FileTrack& track(bool video) const = 0;
};

}  // namespace refhost
