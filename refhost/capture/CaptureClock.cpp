#include "refhost/capture/CaptureClock.h"

#include "refhost/base/HostClock.h"
#include "refhost/capture/SourceClock.h"

namespace refhost
{

MonotonicTime baseTimeOf(GstElement* pipeline)
{
    return MonotonicTime(Duration(static_cast<std::int64_t>(gst_element_get_base_time(pipeline))));
}

MonotonicTime CaptureClock::at(GstClockTime timestamp, const GstSegment* segment) const
{
    GstClockTime running = 0;
    // Decode times may precede the segment's start.
    const int sign = gst_segment_to_running_time_full(segment, GST_FORMAT_TIME, timestamp, &running);
    if (sign == 0)
    {
        return HostClock::system().now();
    }
    const Duration media(sign * static_cast<std::int64_t>(running));
    return baseTimeOf(pipeline) + (source ? source->captured(media) : media);
}

}  // namespace refhost
