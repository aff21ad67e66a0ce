#include "refhost/http/HttpTarget.h"

#include <algorithm>
#include <cstddef>

#include "refhost/base/Hex.h"

namespace refhost
{
namespace
{

/// \returns nothing for wrong percent-encoding and for a null character
std::optional<std::string> decode(std::string_view text, bool plusIsBlank)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        char c = text[i];
        if (c == '%')
        {
            const std::string_view digits = text.substr(i + 1, 2);
            const auto value = parseHex(digits);
            if (digits.size() != 2 || !value)
            {
                return std::nullopt;
            }
            c = static_cast<char>(*value);
            i += 2;
        }
        else if (c == '+' && plusIsBlank)
        {
            c = ' ';
        }
        if (c == '\0')
        {
            return std::nullopt;
        }
        out += c;
    }
    return out;
}

bool addSegment(std::string_view text, HttpTarget& out)
{
    auto segment = decode(text, false);
    if (!segment || segment->find('/') != std::string::npos || out.segments.size() == HttpTarget::maxParts)
    {
        return false;
    }
    out.segments.push_back(std::move(*segment));
    return true;
}

bool addParameter(std::string_view text, HttpTarget& out)
{
    if (text.empty())
    {
        return true;
    }
    const std::size_t equals = std::min(text.find('='), text.size());
    auto name = decode(text.substr(0, equals), true);
    auto value = decode(text.substr(std::min(equals + 1, text.size())), true);
    if (!name || !value || out.query.size() == HttpTarget::maxParts)
    {
        return false;
    }
    out.query.emplace_back(std::move(*name), std::move(*value));
    return true;
}

/// Calls `add` with each part of `text` between separators. \returns false once `add` does
template <typename Add>
bool eachPart(std::string_view text, char separator, const Add& add)
{
    while (true)
    {
        const std::size_t end = text.find(separator);
        if (!add(text.substr(0, end)))
        {
            return false;
        }
        if (end == std::string_view::npos)
        {
            return true;
        }
        text.remove_prefix(end + 1);
    }
}

}  // namespace

std::optional<HttpTarget> HttpTarget::parse(std::string_view target)
{
    if (target.empty() || target.front() != '/')
    {
        return std::nullopt;
    }
    const std::size_t mark = std::min(target.find('?'), target.size());
    HttpTarget made;
    const bool good = eachPart(target.substr(1, mark - 1), '/',
                               [&](std::string_view part) { return addSegment(part, made); }) &&
                      eachPart(target.substr(std::min(mark + 1, target.size())), '&',
                               [&](std::string_view part) { return addParameter(part, made); });
    return good ? std::optional<HttpTarget>(std::move(made)) : std::nullopt;
}

std::optional<std::string> HttpTarget::parameter(std::string_view name) const
{
    const auto found =
        std::find_if(query.begin(), query.end(), [name](const auto& each) { return each.first == name; });
    return found == query.end() ? std::nullopt : std::optional<std::string>(found->second);
}

}  // namespace refhost
