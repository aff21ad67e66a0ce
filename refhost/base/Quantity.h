#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace refhost
{

/// Parses a size such as "50GiB" or "1.5 GB". Units: B, KiB, MiB, GiB, TiB (powers of 1024), kB, MB, GB, TB
/// (powers of 1000); case matters.
/// \returns bytes, rounded down; nothing for another text, without a unit, and beyond 2^62
std::optional<std::int64_t> parseSize(std::string_view text);

/// A size in the largest power of 1024 that holds it without a fraction: "50GiB", "0B".
/// \param bytes  not negative
std::string sizeText(std::int64_t bytes);

/// A size for people: three significant digits, "1.46 GiB".
/// \param bytes  not negative
std::string roundedSizeText(std::int64_t bytes);

/// Parses a time such as "90s", "15min", "12h", "7d" or "2w", also with a fraction ("1.5h").
/// \returns rounded down; nothing for another text, without a unit, and beyond 1,000 years
std::optional<std::chrono::seconds> parseTime(std::string_view text);

/// A time in the largest unit that holds it without a fraction: "7d", "90s", "0s".
/// \param span  not negative
std::string timeText(std::chrono::seconds span);

}  // namespace refhost
