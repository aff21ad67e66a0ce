#pragma once

#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

namespace refhost
{

/// Parses a text of decimal digits only, with a leading minus sign only where `min` is negative.
/// \returns nothing for other texts and for numbers below `min` or above `max`
template <class Number>
std::optional<Number> parseDecimal(std::string_view text, Number min, Number max)
{
    static_assert(std::is_integral<Number>::value, "of integers; fractions: parseMillionths()");
    Number number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    const bool sign = std::is_signed<Number>::value && !text.empty() && text.front() == '-' && min >= 0;
    const bool good = error == std::errc() && stop == end && !sign && number >= min && number <= max;
    return good ? std::optional<Number>(number) : std::nullopt;
}

/// As above with a minimum of 0.
template <class Number>
std::optional<Number> parseDecimal(std::string_view text, Number max)
{
    return parseDecimal<Number>(text, 0, max);
}

/// As above with the limits of the type.
template <class Number>
std::optional<Number> parseDecimal(std::string_view text)
{
    return parseDecimal<Number>(text, std::numeric_limits<Number>::min(), std::numeric_limits<Number>::max());
}

/// As above, but ignores what follows the leading digits.
template <class Number>
std::optional<Number> leadingDecimal(std::string_view text)
{
    Number number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() ? std::optional<Number>(number) : std::nullopt;
}

void appendDecimal(std::string& out, std::uint64_t number);

/// Pads with leading zeros to `digits`; never truncates.
void appendPaddedDecimal(std::string& out, std::uint64_t number, std::size_t digits);

/// Converts the digits after a decimal point to millionths. No digits are 0; those after the sixth are
/// ignored.
/// \returns nothing when `digits` holds anything else
std::optional<std::uint32_t> parseMillionths(std::string_view digits);

/// Appends a decimal point and the digits of a fraction without trailing zeros, or nothing when no digit is
/// left.
/// \param parts        the fraction in units of 10^-maxDecimals; less than 10^maxDecimals
/// \param minDecimals  digits written even when they are trailing zeros
void appendDecimals(std::string& out, std::uint64_t parts, std::size_t maxDecimals, std::size_t minDecimals);

}  // namespace refhost
