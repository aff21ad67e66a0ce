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

/// The number that a text of decimal digits and nothing else is, between `min` and `max`. A minus sign in
/// front counts only where `min` is negative.
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

/// As above, from 0.
template <class Number>
std::optional<Number> parseDecimal(std::string_view text, Number max)
{
    return parseDecimal<Number>(text, 0, max);
}

/// As above, any that the type holds.
template <class Number>
std::optional<Number> parseDecimal(std::string_view text)
{
    return parseDecimal<Number>(text, std::numeric_limits<Number>::min(), std::numeric_limits<Number>::max());
}

/// The number that a text starts with, whatever stands behind its digits; as above without limits.
template <class Number>
std::optional<Number> leadingDecimal(std::string_view text)
{
    Number number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() ? std::optional<Number>(number) : std::nullopt;
}

void appendDecimal(std::string& out, std::uint64_t number);

/// With zeros in front up to so many digits; a longer number in full.
void appendPaddedDecimal(std::string& out, std::uint64_t number, std::size_t digits);

/// Millionths from the digits behind a decimal point, which may be none; digits behind the sixth do not
/// count.
std::optional<std::uint32_t> parseMillionths(std::string_view digits);

/// Appends a point and the decimals of a fraction, without the zeros at their end; nothing where none is left.
/// \param parts        of the fraction, less than 10 to the power of maxDecimals
/// \param maxDecimals  digits that `parts` stands for
/// \param minDecimals  so many stay, even if they are zeros
void appendDecimals(std::string& out, std::uint64_t parts, std::size_t maxDecimals, std::size_t minDecimals);

}  // namespace refhost
