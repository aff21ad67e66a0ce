#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "refhost/base/Times.h"

namespace refhost
{

/// Absolute times as RTSP writes them: "19961108T143720.25Z", the basic form of ISO 8601 in UTC (RFC 2326,
/// section 3.7). Leap seconds do not exist, so ":60" is the next minute. Threads: any; no state.
class UtcTime
{
public:
    /// Digits behind the sixth of a fraction are ignored.
    /// \returns nothing for another form, and for a date or time of day that the Gregorian calendar does not
    ///          have
    static std::optional<WallMicroseconds> parse(std::string_view text);

    /// Appends a time with three to six decimals; one beyond the years 0 to 9999 is taken for the nearest
    /// within.
    static void append(std::string& out, WallMicroseconds time);
};

}  // namespace refhost
