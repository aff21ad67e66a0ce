#pragma once
// Tested by tests/refhost/http/HealthRoutes_test.cpp, tests/refhost/http/HttpRoutes_test.cpp.

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "refhost/base/Times.h"

namespace refhost
{

/// The texts of JSON documents. Threads: any; no state.
class JsonDocument
{
public:
    /// The document on one line with a line end. Bytes that are no UTF-8 become U+FFFD.
    static std::string of(const nlohmann::ordered_json& document);

    /// A date in UTC with milliseconds (RFC 3339), such as "2026-03-01T12:00:00.250Z".
    static std::string time(WallTime time);

    /// The date of such a text, with any number of decimals and with "Z", or of seconds since 1970 with or without
    /// decimals.
    /// \returns nothing for other texts, and outside the years 1970 to 2261
    static std::optional<WallTime> timeOf(const std::string& text);
};

}  // namespace refhost
