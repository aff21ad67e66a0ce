#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace refhost
{

/// Absolute times as RTSP writes them: "19961108T143720.25Z", the basic form of ISO 8601 in UTC (RFC 2326,
/// section 3.7). Held as microseconds since 1970; leap seconds do not exist, so ":60" is the next minute.
/// Threads: any; no state.
class UtcTime
{
public:
    /// \returns nothing for another form, and for a date or time of day that the Gregorian calendar does not
    ///          have. Digits behind the sixth of a fraction do not count.
    static std::optional<std::int64_t> parse(std::string_view text);

    /// Appends the text of an instant of the years 0 to 9999, with three to six decimals; other instants are
    /// taken for the nearest of these.
    static void append(std::string& out, std::int64_t microseconds);
};

}  // namespace refhost
