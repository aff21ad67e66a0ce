#include "refhost/base/Quantity.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "refhost/base/Decimal.h"

namespace refhost
{
namespace
{

struct Unit
{
    std::string_view name;
    std::int64_t factor;
};

// Each list starts with the units that values are written in, the largest first.
constexpr std::array<Unit, 9> sizeUnits{{{"TiB", std::int64_t{1} << 40},
                                         {"GiB", std::int64_t{1} << 30},
                                         {"MiB", std::int64_t{1} << 20},
                                         {"KiB", std::int64_t{1} << 10},
                                         {"B", 1},
                                         {"TB", 1'000'000'000'000},
                                         {"GB", 1'000'000'000},
                                         {"MB", 1'000'000},
                                         {"kB", 1'000}}};
constexpr std::size_t writtenSizeUnits = 5;
constexpr std::array<Unit, 5> timeUnits{{{"w", 604800}, {"d", 86400}, {"h", 3600}, {"min", 60}, {"s", 1}}};

constexpr std::int64_t maxSize = std::int64_t{1} << 62;
constexpr std::int64_t maxTime = std::int64_t{366} * 86400 * 1000;

/// Parses "<digits>[.<digits>][ ]<unit>".
template <std::size_t Count>
std::optional<std::int64_t> parse(std::string_view text, const std::array<Unit, Count>& units,
                                  std::int64_t max)
{
    const std::size_t wholeEnd = std::min(text.find_first_not_of("0123456789"), text.size());
    std::string_view rest = text.substr(wholeEnd);
    std::string_view decimals;
    if (!rest.empty() && rest.front() == '.')
    {
        rest.remove_prefix(1);
        decimals = rest.substr(0, std::min(rest.find_first_not_of("0123456789"), rest.size()));
        rest.remove_prefix(decimals.size());
        if (decimals.empty())
        {
            return std::nullopt;
        }
    }
    if (!rest.empty() && rest.front() == ' ')
    {
        rest.remove_prefix(1);
    }
    const auto unit =
        std::find_if(units.begin(), units.end(), [rest](const Unit& known) { return known.name == rest; });
    const auto whole = parseDecimal<std::int64_t>(text.substr(0, wholeEnd));
    const auto millionths = parseMillionths(decimals);
    if (unit == units.end() || !whole || !millionths || *whole > max / unit->factor - 1)
    {
        return std::nullopt;
    }
    constexpr std::int64_t million = 1'000'000;
    const std::int64_t part =
        unit->factor / million * *millionths + unit->factor % million * *millionths / million;
    return *whole * unit->factor + part;
}

template <std::size_t Count>
std::string write(std::int64_t value, const std::array<Unit, Count>& units, std::size_t used)
{
    const auto end = units.begin() + static_cast<std::ptrdiff_t>(used);
    const auto unit = value == 0 ? end - 1
                                 : std::find_if(units.begin(), end,
                                                [value](const Unit& u) { return value % u.factor == 0; });
    return fmt::format("{}{}", value / unit->factor, unit->name);
}

}  // namespace

std::optional<std::int64_t> parseSize(std::string_view text)
{
    return parse(text, sizeUnits, maxSize);
}

std::string sizeText(std::int64_t bytes)
{
    return write(bytes, sizeUnits, writtenSizeUnits);
}

std::string roundedSizeText(std::int64_t bytes)
{
    const auto unit = std::find_if(sizeUnits.begin(), sizeUnits.begin() + writtenSizeUnits - 1,
                                   [bytes](const Unit& u) { return bytes >= u.factor; });
    const double value = static_cast<double>(bytes) / static_cast<double>(unit->factor);
    constexpr double enough = 100;
    return unit->factor == 1 || value >= enough ? fmt::format("{:.0f} {}", value, unit->name)
                                                : fmt::format("{:.3g} {}", value, unit->name);
}

std::optional<std::chrono::seconds> parseTime(std::string_view text)
{
    const std::optional<std::int64_t> seconds = parse(text, timeUnits, maxTime);
    return seconds ? std::optional<std::chrono::seconds>(*seconds) : std::nullopt;
}

std::string timeText(std::chrono::seconds span)
{
    return write(span.count(), timeUnits, timeUnits.size());
}

}  // namespace refhost
