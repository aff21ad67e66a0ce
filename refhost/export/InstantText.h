#pragma once
// Tested by tests/refhost/export/InstantText_test.cpp.

#include <optional>
#include <string_view>

#include "refhost/base/Times.h"

namespace refhost
{

/// Instants as people and programs write them. Threads: any; no state.
class InstantText
{
public:
    /// Seconds since 1970 with up to nine decimals ("1769860800.681"), or a date and time of day of ISO 8601
    /// with its offset from UTC ("2026-01-31T12:00:00.681Z", "20260131T120000Z",
    /// "2026-01-31T13:00:00+01:00"). Digits behind the ninth decimal are ignored.
    /// \returns nothing for another form, a day that no calendar has, and years before 1970 or after 2200
    static std::optional<WallTime> parse(std::string_view text);
};

}  // namespace refhost
