#include "refhost/base/HeaderText.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace refhost
{
namespace
{

/// Which characters a token may hold (RFC 2326, section 15.1).
constexpr auto tokenCharacters = []
{
    constexpr std::string_view separators = "()<>@,;:\\\"/[]?={}";
    std::array<bool, 256> table{};
    for (int c = ' ' + 1; c < 127; ++c)
    {
        table[static_cast<std::size_t>(c)] = separators.find(static_cast<char>(c)) == std::string_view::npos;
    }
    return table;
}();

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

}  // namespace

std::string_view HeaderText::trim(std::string_view text)
{
    while (!text.empty() && isBlank(text.front()))
    {
        text.remove_prefix(1);
    }
    while (!text.empty() && isBlank(text.back()))
    {
        text.remove_suffix(1);
    }
    return text;
}

std::string_view HeaderText::cut(std::string_view& rest, char separator)
{
    bool quoted = false;
    for (std::size_t i = 0; i < rest.size(); ++i)
    {
        if (rest[i] == '"')
        {
            quoted = !quoted;
        }
        else if (rest[i] == '\\' && quoted)
        {
            ++i;
        }
        else if (rest[i] == separator && !quoted)
        {
            const std::string_view part = rest.substr(0, i);
            rest.remove_prefix(i + 1);
            return trim(part);
        }
    }
    const std::string_view part = rest;
    rest = {};
    return trim(part);
}

std::string_view HeaderText::unquote(std::string_view text)
{
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"')
    {
        return text.substr(1, text.size() - 2);
    }
    return text;
}

bool HeaderText::isToken(std::string_view text)
{
    return !text.empty() &&
           std::all_of(text.begin(), text.end(),
                       [](char c) { return tokenCharacters[static_cast<unsigned char>(c)]; });
}

}  // namespace refhost
