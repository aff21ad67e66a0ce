#pragma once
// Tested by tests/refhost/capture/CameraStream_test.cpp.

#include <gst/gst.h>

#include <memory>

#include "refhost/base/Times.h"

namespace refhost
{

class SourceClock;

/// The instant that a running pipeline's time counts from; its clock is the monotonic one.
MonotonicTime baseTimeOf(GstElement* pipeline);

/// Turns the timestamps of a running pipeline's buffers into the monotonic clock, which a pipeline runs on.
/// What the wall clock shows then is left to who dates media (HostClock::wall()): it may be set at any time.
struct CaptureClock
{
    GstElement* pipeline;  ///< its base time is used
    /// Says when media were captured whose source has a clock of its own; null where timestamps say it.
    std::shared_ptr<const SourceClock> source = nullptr;

    /// \returns HostClock::now() at `timestamp` of a segment; now, when the timestamp is not known
    MonotonicTime at(GstClockTime timestamp, const GstSegment* segment) const;
};

}  // namespace refhost
