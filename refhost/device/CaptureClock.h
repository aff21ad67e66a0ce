#pragma once

#include <gst/gst.h>

#include <cstdint>

namespace refhost
{

/// Turns the timestamps of a running pipeline's buffers into the wall clock.
struct CaptureClock
{
    GstElement* pipeline;   ///< tells the base time
    std::int64_t offsetNs;  ///< wall clock less the pipeline's clock

    /// \returns the wall clock at `timestamp` of a segment, nanoseconds since 1970; now, when the timestamp
    /// is not known
    std::int64_t wallNs(GstClockTime timestamp, const GstSegment* segment) const;
};

}  // namespace refhost
