#pragma once
// Tested by tests/refhost/capture/CameraStream_test.cpp.

#include <gst/gst.h>

#include <memory>

#include "refhost/base/Times.h"

namespace refhost
{

class SourceClock;

/// The instant at which a running pipeline's running time is 0, on the monotonic clock.
MonotonicTime baseTimeOf(GstElement* pipeline);

/// Converts the timestamps of a running pipeline's buffers to instants of the monotonic clock, which pipelines
/// use. Whoever dates media applies HostClock::wall().
struct CaptureClock
{
    GstElement* pipeline;  ///< gives the base time; not owned
    /// Capture times of a source with its own clock; null where timestamps are capture times.
    std::shared_ptr<const SourceClock> source = nullptr;

    /// \returns the instant of `timestamp` in `segment`; the present time when the timestamp is unknown
    MonotonicTime at(GstClockTime timestamp, const GstSegment* segment) const;
};

}  // namespace refhost
