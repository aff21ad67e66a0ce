#include "refhost/http/ByteRange.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <string>

#include "refhost/base/IgnoreCase.h"

namespace refhost
{
namespace
{

/// Digits alone; a number that is too large counts as the largest.
std::optional<std::uint64_t> numberOf(std::string_view text)
{
    std::uint64_t value = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (end != text.data() + text.size() || text.empty() || failure == std::errc::invalid_argument)
    {
        return std::nullopt;
    }
    return failure == std::errc() ? value : std::numeric_limits<std::uint64_t>::max();
}

std::string_view trimmed(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(" \t");
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(" \t") + 1 - first);
}

}  // namespace

ByteRange ByteRange::parse(std::string_view header, std::uint64_t size)
{
    constexpr std::string_view unit = "bytes=";
    const ByteRange whole{Kind::whole, 0, size};
    const ByteRange nothing{Kind::unsatisfiable, 0, 0};
    header = trimmed(header);
    if (!equalsIgnoringCase(header.substr(0, unit.size()), unit))
    {
        return whole;
    }
    const std::string_view range = trimmed(header.substr(unit.size()));
    const std::size_t dash = range.find('-');
    if (dash == std::string_view::npos)
    {
        return whole;
    }
    const auto first = numberOf(range.substr(0, dash));
    const auto last = numberOf(range.substr(dash + 1));
    if (!first && dash == 0 && last)
    {
        // The last bytes.
        const std::uint64_t count = std::min(*last, size);
        return count == 0 ? nothing : ByteRange{Kind::part, size - count, count};
    }
    const bool open = dash + 1 == range.size();
    if (!first || (!last && !open) || (last && *last < *first))
    {
        return whole;
    }
    if (*first >= size)
    {
        return nothing;
    }
    const std::uint64_t end = open ? size - 1 : std::min(*last, size - 1);
    return {Kind::part, *first, end - *first + 1};
}

}  // namespace refhost
